#!/usr/bin/env bash
# Regenerates items.tsv (next to this script): for every top-level item that
# pffexport 20180714 (package pff-tools, run as a black box) exports from the
# sample stores, its subject, sender name, two dates and the sizes of the body
# files it writes.
#
# Usage: tests/data/oracle/make_items.sh [TESTDATA_DIR]
#   TESTDATA_DIR defaults to $TESTDATA or /work/shared/testdata.
# Writes only items.tsv and a temporary directory (removed on exit).
# Items pffexport skips are printed to stderr.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/oracle_common.sh"
oracle_start items "${1:-}" pffexport python3
out="$here/items.tsv"

# Default ("items") mode, without -d: -d also lists associated messages and
# shifts the item numbering in the log.
pff_each -m items

python3 - "$work/list" > "$work/items.tsv" <<'PY'
import os, re, sys
from oracle_text import esc, read_text

RX_FOLDER = re.compile(r'^Processing folder: \d+ \(identifier: (\d+)\) in path: (.*)/$')
RX_ITEM = re.compile(r'^Processing ([a-z][a-z ]*): \d+ \(identifier: (\d+)\) in path: (.*)/$')
RX_CREATED = re.compile(r'^Created directory: (.*)\.$')
RX_SKIPPED = re.compile(r'^Skipped export of item: .* of type: (.*)$')

def items_of(sdir, store):
    """(identifier, item directory) of every item directly inside a folder;
    embedded messages (inside Attachments/) are left out."""
    folders = {'x.export'}
    pending_folder = pending_item = None
    found = []
    for ln in read_text(os.path.join(sdir, 'pff.log')).split('\n'):
        m = RX_FOLDER.match(ln)
        if m:
            pending_folder, pending_item = m.group(2), None
            continue
        m = RX_ITEM.match(ln)
        if m:
            pending_item, pending_folder = (int(m.group(2)), m.group(3)), None
            continue
        m = RX_CREATED.match(ln)
        if m:
            parent = m.group(1).rpartition('/')[0]
            if pending_folder is not None and parent == pending_folder:
                folders.add(m.group(1))
                pending_folder = None
            elif pending_item is not None and parent == pending_item[1]:
                if parent in folders:
                    found.append((pending_item[0], m.group(1)))
                pending_item = None
            continue
        m = RX_SKIPPED.match(ln)
        if m:
            print('  %s: pffexport skipped an item of class %s' % (store, m.group(1)), file=sys.stderr)
    return found

# Every item kind writes a "Message:" section first, in one of these files.
HEADER_FILES = ('OutlookHeaders.txt', 'Appointment.txt', 'Meeting.txt', 'Contact.txt',
                'DistributionList.txt', 'Task.txt', 'Note.txt', 'Activity.txt')
RX_FIELD = re.compile(r'^([A-Z][a-z]+(?: [a-z0-9]+)*):\t+(.*)$')
RX_SECTION = re.compile(r'^[A-Z][A-Za-z ]*:$')

def message_section(item_dir):
    for name in HEADER_FILES:
        p = os.path.join(item_dir, name)
        if os.path.isfile(p):
            lines = read_text(p).split('\n')
            break
    else:
        return None
    fields, key = {}, None
    for i, ln in enumerate(lines[1:], 1):
        nxt = lines[i + 1] if i + 1 < len(lines) else ''
        m = RX_FIELD.match(ln)
        if m:
            key = m.group(1)
            fields[key] = m.group(2)
        elif ln == '' and (nxt == '' or RX_SECTION.match(nxt)):
            break   # a blank line before the next section ends this one
        elif key is not None:
            fields[key] += '\n' + ln   # a value with line breaks
    return fields

def size_of(item_dir, name):
    p = os.path.join(item_dir, name)
    return str(os.path.getsize(p)) if os.path.isfile(p) else '-'

rows = []
with open(sys.argv[1]) as f:
    entries = [l.rstrip('\n').split('\t') for l in f if l.strip()]
for sdir, store in entries:
    n = 0
    for ident, rel in items_of(sdir, store):
        item_dir = os.path.join(sdir, rel)
        fields = message_section(item_dir)
        if fields is None:
            print('  %s: item %d has no header file' % (store, ident), file=sys.stderr)
            continue
        get = lambda k: esc(fields[k]) if k in fields else '-'
        rows.append((store, ident, get('Subject'), get('Sender name'), get('Client submit time'),
                     get('Delivery time'), size_of(item_dir, 'Message.txt'),
                     size_of(item_dir, 'Message.html'), size_of(item_dir, 'Message.rtf')))
        n += 1
    print('%s: %d items' % (store, n), file=sys.stderr)
rows.sort(key=lambda r: (r[0], r[1]))
print('store\tnode_id\tsubject\tsender_name\tclient_submit_time\tdelivery_time\t'
      'plain_body_bytes\thtml_body_bytes\trtf_body_bytes')
for r in rows:
    print('%s\t0x%x\t%s' % (esc(r[0]), r[1], '\t'.join(r[2:])))
PY

mv "$work/items.tsv" "$out"
echo "wrote $out" >&2
