#!/usr/bin/env bash
# Regenerates item_parts.tsv (next to this script): for every top-level item
# that pffexport 20180714 (package pff-tools, run as a black box) exports from
# the sample stores, the recipients it lists in Recipients.txt and the
# attachments it writes below Attachments/ (name, size, SHA-256, and which of
# them are embedded messages).
#
# Usage: tests/data/oracle/make_item_parts.sh [TESTDATA_DIR]
#   TESTDATA_DIR defaults to $TESTDATA or /work/shared/testdata.
# Writes only item_parts.tsv and a temporary directory (removed on exit).
# Per-store totals go to stderr.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/oracle_common.sh"
oracle_start item_parts "${1:-}" pffexport python3
out="$here/item_parts.tsv"

# Default ("items") mode and text format, without -d, as make_items.sh.
pff_each -m items -f text

python3 - "$work/list" > "$work/item_parts.tsv" <<'PY'
import hashlib, os, re, sys
from oracle_text import esc, read_text

def fail(msg):
    print('error: ' + msg, file=sys.stderr)
    sys.exit(1)

RX_FOLDER = re.compile(r'^Processing folder: \d+ \(identifier: (\d+)\) in path: (.*)/$')
RX_ITEM = re.compile(r'^Processing ([a-z][a-z ]*): \d+ \(identifier: (\d+)\) in path: (.*)/$')
RX_CREATED = re.compile(r'^Created directory: (.*)\.$')
RX_RECIPIENTS = re.compile(r'^Saving (\d+)recipient\(s\) as: Recipients\.txt$')
RX_NAMED = re.compile(r'^Saving attachment with filename: (.*) as: (\d+_.*)$')
RX_UNNAMED = re.compile(r'^Missing attachment filename defaulting to: (\d+_Attachment\.txt)$')
RX_MESSAGE = re.compile(r'^Missing attachment filename saving as: (Attachment\d+)$')

def walk_log(sdir):
    """Top-level items as (identifier, kind, item directory, recipients the log
    announces, {attachment entry in Attachments/: name from the log or None}).

    Attachment lines carry no item; an embedded message's own attachments come
    between its parent's. A line is given to the innermost open Attachments/
    directory of the current top-level item that holds that entry, not yet claimed."""
    folders = {'x.export'}
    pending_folder = pending_item = None
    items = []
    current = None          # [identifier, kind, dir, recipients, names, open attachment dirs]
    last_dir = None         # the item directory made last, top-level or embedded
    for ln in read_text(os.path.join(sdir, 'pff.log')).split('\n'):
        m = RX_FOLDER.match(ln)
        if m:
            pending_folder, pending_item = m.group(2), None
            continue
        m = RX_ITEM.match(ln)
        if m:
            pending_item, pending_folder = (m.group(1), int(m.group(2)), m.group(3)), None
            continue
        m = RX_CREATED.match(ln)
        if m:
            path = m.group(1)
            parent = path.rpartition('/')[0]
            if pending_folder is not None and parent == pending_folder:
                folders.add(path)
                pending_folder = None
            elif pending_item is not None and parent == pending_item[2]:
                if parent in folders:
                    current = [pending_item[1], pending_item[0], path, None, {}, []]
                    items.append(current)
                last_dir, pending_item = path, None
            elif current is not None and path.endswith('/Attachments') and path.startswith(current[2] + '/'):
                current[5].append(path)
            continue
        if current is None:
            continue
        m = RX_RECIPIENTS.match(ln)
        if m:
            # Written right after the directory of the item it belongs to.
            if last_dir == current[2]:
                current[3] = int(m.group(1))
            continue
        for rx, named in ((RX_NAMED, True), (RX_UNNAMED, False), (RX_MESSAGE, False)):
            m = rx.match(ln)
            if not m:
                continue
            entry = m.group(2) if named else m.group(1)
            for adir in reversed(current[5]):
                key = (adir, entry)
                if key not in current[4] and os.path.lexists(os.path.join(sdir, adir, entry)):
                    current[4][key] = m.group(1) if named else None
                    break
            else:
                fail('%s: no directory holds attachment %s' % (sdir, entry))
    return items

RX_FIELD = re.compile(r'^([A-Z][A-Za-z ]*):\t+(.*)$')

def recipients(item_dir):
    """Blocks of 'Key:\\tvalue' lines, one per recipient, in file order."""
    p = os.path.join(item_dir, 'Recipients.txt')
    if not os.path.isfile(p):
        return []
    out, cur = [], {}
    for ln in read_text(p).split('\n'):
        m = RX_FIELD.match(ln)
        if m:
            cur[m.group(1)] = m.group(2)
        elif ln == '':
            if cur:
                out.append(cur)
            cur = {}
        else:
            fail('%s: unexpected line %r' % (p, ln))
    if cur:
        out.append(cur)
    return out

def sha256(p):
    h = hashlib.sha256()
    with open(p, 'rb') as f:
        for chunk in iter(lambda: f.read(1 << 20), b''):
            h.update(chunk)
    return h.hexdigest()

rows = []
with open(sys.argv[1]) as f:
    entries = [l.rstrip('\n').split('\t') for l in f if l.strip()]
for sdir, store in entries:
    nrec = natt = nmsg = 0
    for ident, kind, rel, announced, names, _ in walk_log(sdir):
        item_dir = os.path.join(sdir, rel)
        rows.append((store, ident, 'item', 0, kind, '-', '-', '-', '-', '-'))
        recs = recipients(item_dir)
        if len(recs) != (announced or 0):
            fail('%s 0x%x: log announces %s recipients, Recipients.txt has %d' % (store, ident, announced, len(recs)))
        for n, r in enumerate(recs, 1):
            if not {'Display name', 'Email address', 'Address type', 'Recipient type'} <= r.keys():
                fail('%s 0x%x: recipient %d lacks a field' % (store, ident, n))
            rows.append((store, ident, 'recipient', n, r['Recipient type'], esc(r['Display name']),
                         esc(r['Address type']), esc(r['Email address']), '-', '-'))
        nrec += len(recs)
        adir = os.path.join(item_dir, 'Attachments')
        listed = sorted(os.listdir(adir)) if os.path.isdir(adir) else []
        for entry in listed:
            if (rel + '/Attachments', entry) not in names:
                fail('%s 0x%x: the log does not name attachment %s' % (store, ident, entry))
            p = os.path.join(adir, entry)
            n = int(re.match(r'^(?:Attachment)?(\d+)', entry).group(1))
            if os.path.isdir(p):
                inner = os.listdir(p)
                if len(inner) != 1:
                    fail('%s: %d items in %s' % (store, len(inner), p))
                kind = 'message:' + re.sub(r'\d+$', '', inner[0])   # message:Message, message:Appointment ...
                rows.append((store, ident, 'attachment', n, kind, '-', '-', '-', '-', '-'))
                nmsg += 1
            else:
                name = names[(rel + '/Attachments', entry)]
                rows.append((store, ident, 'attachment', n, 'file', '-' if name is None else esc(name),
                             '-', '-', str(os.path.getsize(p)), sha256(p)))
                natt += 1
    print('%s: %d recipients, %d attachment files, %d embedded items' % (store, nrec, natt, nmsg), file=sys.stderr)

rows.sort(key=lambda r: (r[0], r[1], ['item', 'recipient', 'attachment'].index(r[2]), r[3]))
print('store\tnode_id\tpart\tn\tkind\tname\taddress_type\taddress\tbytes\tsha256')
for r in rows:
    print('%s\t0x%x\t%s\t%d\t%s' % (esc(r[0]), r[1], r[2], r[3], '\t'.join(r[4:])))
PY

mv "$work/item_parts.tsv" "$out"
echo "wrote $out" >&2
