#!/usr/bin/env bash
# Regenerates recovered_items.tsv (next to this script): every top-level item that
# pffexport 20180714 (package pff-tools, run as a black box) writes in its
# recovery pass (-m recovered: "orphan and recovered items") for the sample stores,
# with its kind, node id and name or subject as pffexport reports them.
#
# Usage: tests/data/oracle/make_recovered_items.sh [TESTDATA_DIR]
#   TESTDATA_DIR defaults to $TESTDATA or /work/shared/testdata.
# Writes only recovered_items.tsv and a temporary directory (removed on exit).
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/oracle_common.sh"
oracle_start recovered_items "${1:-}" pffexport python3
out="$here/recovered_items.tsv"

# -m recovered writes x.recovered (and x.orphans when there are orphans) and
# nothing of the allocated items; -m all writes the same two directories.
pff_each -m recovered

python3 - "$work/list" > "$work/recovered_items.tsv" <<'PY'
import os, re, sys
from oracle_text import esc, read_text

TOP = 'x.recovered'
RX_TYPED = re.compile(r'^Processing ([a-z][a-z ]*): (\d+) \(identifier: (\d+)\) in path: ' + TOP + r'/$')
RX_UNKNOWN = re.compile(r'^Unable to retrieve type of item (\d+) out of (\d+)\.$')
RX_SKIPPED = re.compile(r'^Skipped export of item: (\d+) out of: (\d+) of type: (.*) \(0x[0-9a-f]+\)\.$')
RX_CREATED = re.compile(r'^Created directory: ' + TOP + r'/([^/]*)\.$')
RX_SAVING = re.compile(r'^Saving folder with name: (.*) as: [^/]*$')
HEADER_FILES = ('OutlookHeaders.txt', 'Appointment.txt', 'Meeting.txt', 'Contact.txt',
                'DistributionList.txt', 'Task.txt', 'Note.txt', 'Activity.txt')

def subject(item_dir):
    """The Subject: line of the item's first section, or None."""
    for name in HEADER_FILES:
        p = os.path.join(item_dir, name)
        if os.path.isfile(p):
            for ln in read_text(p).split('\n')[1:]:
                if ln == '':
                    return None
                m = re.match(r'^Subject:\t+(.*)$', ln)
                if m:
                    return m.group(1)
            return None
    return None

def stdout_top(sdir):
    """N and the top-level item numbers in the order stdout reports them. The
    loop over the recovered items prints "item K out of N" for K = 1..N; the
    loops over the contents of a recovered item print their own lines between."""
    n, seen = None, []
    for ln in read_text(os.path.join(sdir, 'stdout.txt')).split('\n'):
        m = re.search(r' item (\d+) out of (\d+)', ln)
        if not m:
            continue
        k, of = int(m.group(1)), int(m.group(2))
        if n is None and k == 1:
            n = of
        if n == of and k == len(seen) + 1:
            seen.append(k)
    return n or 0, seen

rows = []
with open(sys.argv[1]) as f:
    entries = [l.rstrip('\n').split('\t') for l in f if l.strip()]
for sdir, store in entries:
    if os.path.isdir(os.path.join(sdir, 'x.orphans')):
        raise SystemExit('%s: pffexport wrote orphan items; this script does not read them yet' % store)
    n, seen = stdout_top(sdir)
    if seen != list(range(1, n + 1)):
        raise SystemExit('%s: cannot follow the top-level item numbers in stdout' % store)
    items = {}   # K -> [kind, node id, name]
    pending = None
    for ln in read_text(os.path.join(sdir, 'pff.log')).split('\n'):
        m = RX_TYPED.match(ln)
        if m:
            pending = int(m.group(2)) + 1
            items[pending] = [m.group(1), '0x%x' % int(m.group(3)), '-']
            continue
        m = RX_UNKNOWN.match(ln)
        if m and int(m.group(2)) == n and int(m.group(1)) not in items:
            items[int(m.group(1))] = ['unknown', '-', '-']
            pending = None
            continue
        m = RX_SKIPPED.match(ln)
        if m and int(m.group(2)) == n and int(m.group(1)) not in items:
            items[int(m.group(1))] = ['skipped', '-', m.group(3)]
            pending = None
            continue
        if pending is None:
            continue
        m = RX_SAVING.match(ln)
        if m and items[pending][0] == 'folder':
            items[pending][2] = m.group(1)
            continue
        m = RX_CREATED.match(ln)
        if m:
            if items[pending][0] != 'folder':
                s = subject(os.path.join(sdir, TOP, m.group(1)))
                if s is not None:
                    items[pending][2] = s
            pending = None
    if sorted(items) != list(range(1, n + 1)):
        raise SystemExit('%s: log names items %r, stdout 1..%d' % (store, sorted(items), n))
    kinds = {}
    for k in range(1, n + 1):
        kind, nid, name = items[k]
        rows.append((store, str(k), str(n), kind, nid, esc(name)))
        kinds[kind] = kinds.get(kind, 0) + 1
    if n == 0:
        rows.append((store, '0', '0', '-', '-', '-'))
    print('%s: %d recovered %r' % (store, n, kinds), file=sys.stderr)
print('store\titem\tof\tkind\tnode_id\tname')
for r in rows:
    print('\t'.join(r))
PY

mv "$work/recovered_items.tsv" "$out"
echo "wrote $out" >&2
