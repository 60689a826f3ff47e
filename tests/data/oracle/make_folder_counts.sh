#!/usr/bin/env bash
# Regenerates folder_counts.tsv (next to this script): per store and per folder,
# the number of top-level (not embedded) message items, as seen by two
# independent readers run as black boxes:
#   pffexport 20180714 (package pff-tools)  and  readpst 0.6.76 (package pst-utils).
#
# Usage: tests/data/oracle/make_folder_counts.sh [TESTDATA_DIR]
#   TESTDATA_DIR defaults to $TESTDATA or /work/shared/testdata.
# Writes only folder_counts.tsv and a temporary directory (removed on exit).
# Notes on what the tools skipped or disagreed on are printed to stderr.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/oracle_common.sh"
oracle_start folder_counts "${1:-}" pffexport readpst python3
out="$here/folder_counts.tsv"
# The stores test::AllStores() lists, and one odd file that is a store all the same.
mapfile -t stores < <(printf '%s\n' "${stores[@]}" odd/aspose_PersonalStorageFile.ost.is-pst | LC_ALL=C sort)

: > "$work/list"
i=0
for rel in "${stores[@]}"; do
  i=$((i + 1))
  d="$work/s$i"
  mkdir -p "$d/items" "$d/debug" "$d/readpst"
  printf '%s\t%s\n' "$d" "$rel" >> "$work/list"
  src="$testdata/$rel"

  # pffexport, default mode ("items": allocated items below the root folder).
  # -l writes a log that names every folder with its identifier.
  ( cd "$d/items" && pffexport -m items -l pff.log -t x "$src" > stdout.txt 2> stderr.txt ) ||
    { echo "pffexport -m items failed on $rel" >&2; exit 1; }
  # pffexport "debug" mode: only used to learn the identifier of the root folder
  # (the items-mode log does not print it) and to list items that items mode skips.
  ( cd "$d/debug" && pffexport -m debug -l pff.log -t x "$src" > stdout.txt 2> stderr.txt ) ||
    { echo "pffexport -m debug failed on $rel" >&2; exit 1; }

  # readpst: -D include deleted items, -S one file per item, -j 0 no child
  # processes, -d debug log (names every item and folder with its identifier).
  # readpst is known to fail now and then on some stores; retry up to 3 times.
  ok=0
  for attempt in 1 2 3; do
    rm -rf "$d/readpst" && mkdir -p "$d/readpst/out"
    if ( cd "$d/readpst" && readpst -D -S -j 0 -o out -d rp.dbg "$src" > stdout.txt 2> stderr.txt ); then
      ok=1; break
    fi
    echo "note: readpst attempt $attempt failed on $rel" >&2
  done
  [ $ok = 1 ] || { echo "readpst failed 3 times on $rel" >&2; exit 1; }
done

python3 - "$work/list" > "$work/folder_counts.tsv" <<'PY'
import os, re, sys
from collections import defaultdict

def esc(s):
    """TSV-safe text: escape backslash, tab, CR, LF.  A '/'-separated part that
    is not valid UTF-8 has every byte >= 0x80 written as \\xNN."""
    if any(0xDC80 <= ord(c) <= 0xDCFF for c in s):
        return '/'.join(esc_part(p) for p in s.split('/'))
    return esc_part(s)

def esc_part(s):
    if any(0xDC80 <= ord(c) <= 0xDCFF for c in s):
        b = s.encode('utf-8', 'surrogateescape')
        return ''.join(esc_part(chr(x)) if x < 0x80 else '\\x%02x' % x for x in b)
    o = []
    for ch in s:
        c = ord(ch)
        if ch == '\\': o.append('\\\\')
        elif ch == '\t': o.append('\\t')
        elif ch == '\n': o.append('\\n')
        elif ch == '\r': o.append('\\r')
        else: o.append(ch)
    return ''.join(o)

def note(msg):
    print(msg, file=sys.stderr)

def readlines(p):
    with open(p, 'rb') as f:
        return f.read().decode('utf-8', 'surrogateescape').split('\n')

# ---------------------------------------------------------------- pffexport
RX_FOLDER = re.compile(r'^Processing folder: (\d+) \(identifier: (\d+)\) in path: (.*)/$')
RX_ITEM = re.compile(r'^Processing ([a-z][a-z ]*): (\d+) \(identifier: (\d+)\) in path: (.*)/$')
RX_CREATED = re.compile(r'^Created directory: (.*)\.$')
RX_SKIPPED = re.compile(r'^Skipped export of item: (\d+) out of: (\d+) of type: (.*) \(0x[0-9a-f]+\)\.$')

def parse_pff(dirpath):
    """Returns (folders, skipped). folders: dir path (relative to dirpath) ->
    dict(id, name, parent, unnamed, log_items[list of item dir names], item_ids)."""
    root = 'x.export'
    folders = {root: dict(id=None, name='.', parent=None, unnamed=False,
                          log_items=[], item_ids=[])}
    pending = None
    skipped = []
    for ln in readlines(os.path.join(dirpath, 'pff.log')):
        m = RX_FOLDER.match(ln)
        if m:
            pending = dict(id=int(m.group(2)), parent=m.group(3), saving=None, missing=None)
            continue
        if pending is not None and ln.startswith('Saving folder with name: '):
            pending['saving'] = ln[len('Saving folder with name: '):]
            continue
        if pending is not None and ln.startswith('Missing folder name defaulting to: '):
            pending['missing'] = ln[len('Missing folder name defaulting to: '):]
            continue
        m = RX_CREATED.match(ln)
        if m:
            path = m.group(1)
            parent, _, base = path.rpartition('/')
            if pending is not None and parent == pending['parent']:
                if pending['saving'] is not None:
                    suffix = ' as: ' + base
                    if not pending['saving'].endswith(suffix):
                        raise SystemExit('cannot parse folder name line: %r' % pending['saving'])
                    name, unnamed = pending['saving'][:-len(suffix)], False
                else:
                    name, unnamed = (pending['missing'] or base), True
                if path in folders:
                    note('  WARNING pffexport wrote two folders into one directory: %s' % path)
                folders[path] = dict(id=pending['id'], name=name, parent=parent,
                                     unnamed=unnamed, log_items=[], item_ids=[])
                pending = None
            elif parent in folders:
                folders[parent]['log_items'].append(base)
            continue
        m = RX_ITEM.match(ln)
        if m and m.group(4) in folders:
            folders[m.group(4)]['item_ids'].append(int(m.group(3)))
            continue
        m = RX_SKIPPED.match(ln)
        if m:
            skipped.append(m.group(3))
    return folders, skipped

def pff_paths(folders):
    out = {}
    def path(d):
        if d in out: return out[d]
        f = folders[d]
        if f['parent'] is None: p = '.'
        else:
            pp = path(f['parent'])
            p = f['name'] if pp == '.' else pp + '/' + f['name']
        out[d] = p
        return p
    for d in folders: path(d)
    return out

def pff_rows(store, sdir):
    items_dir = os.path.join(sdir, 'items')
    folders, skipped = parse_pff(items_dir)
    dfolders, _ = parse_pff(os.path.join(sdir, 'debug'))
    # Root id: the debug-mode folder whose child folders are exactly the
    # items-mode top-level folders.
    top_ids = sorted(f['id'] for f in folders.values() if f['parent'] == 'x.export')
    dchildren = defaultdict(list)
    for d, f in dfolders.items():
        if f['parent'] is not None:
            dchildren[f['parent']].append(f['id'])
    cands = [dfolders[d]['id'] for d in dfolders
             if dfolders[d]['id'] is not None and sorted(dchildren.get(d, [])) == top_ids]
    if top_ids and len(cands) == 1:
        folders['x.export']['id'] = cands[0]
    else:
        note('  WARNING %s: root folder identifier not determined (%r)' % (store, cands))
    paths = pff_paths(folders)
    rows = []
    for d, f in folders.items():
        full = os.path.join(items_dir, d)
        if not os.path.isdir(full):
            note('  WARNING %s: pffexport folder directory missing: %s' % (store, d))
            n = len(f['log_items'])
        else:
            subs = [e for e in os.listdir(full)
                    if os.path.isdir(os.path.join(full, e)) and (d + '/' + e) not in folders]
            n = len(subs)
            if sorted(subs) != sorted(f['log_items']) or n != len(f['item_ids']):
                note('  WARNING %s [pffexport] %s: %d item dirs on disk, %d in log, %d processed'
                     % (store, paths[d], n, len(f['log_items']), len(f['item_ids'])))
        if f['unnamed']:
            note('  note %s [pffexport] folder %s has no name; pffexport calls it %s'
                 % (store, '0x%x' % f['id'], f['name']))
        rows.append((f['id'], paths[d], n))
    # Items that items mode skips (unknown message class): debug mode writes them
    # as Item##### directories.  Compare per folder identifier.
    dcount = {f['id']: len(f['log_items']) for f in dfolders.values()}
    for fid, p, n in rows:
        if fid is not None and fid in dcount and dcount[fid] != n:
            note('  note %s [pffexport] folder 0x%x %s: %d item(s) exported by -m items, %d by -m debug'
                 % (store, fid, p, n, dcount[fid]))
    for cls in skipped:
        note('  note %s [pffexport] -m items skipped an item of class %s' % (store, cls))
    return rows

# ---------------------------------------------------------------- readpst
RX_DBG = re.compile(r'^(\d+) +(\w+) (\w+\.c)\((\d+)\) (.*)$')
RX_DESC = re.compile(r'^Desc Email ID 0x[0-9a-f]+ \[d_ptr->d_id = 0x([0-9a-f]+)\]$')
RX_SUMMARY = re.compile(r'^processed item count for folder (.*) is (\d+), skipped (\d+), total (\d+) ?$')

class Frame:
    def __init__(self, fid, name, parent):
        self.id, self.name, self.parent = fid, name, parent
        self.records = []      # dicts: id, outcome, detail
        self.summary = None
        self.path = name if parent is None else parent.path + '/' + name

def parse_readpst(rdir, store):
    top_id = top_name = None
    stack, frames, pending, rec = [], [], None, None
    for ln in readlines(os.path.join(rdir, 'rp.dbg')):
        m = RX_DBG.match(ln)
        if not m: continue
        func, src, msg = m.group(2), m.group(3), m.group(5)
        if func == 'pst_getTopOfFolders' and top_id is None:
            mm = re.match(r'looking for top of folder descriptor 0x([0-9a-f]+)$', msg)
            if mm: top_id = int(mm.group(1), 16)
            continue
        if src != 'readpst.c': continue
        if func == 'main' and msg.startswith('Root Folder Name: '):
            top_name = msg[len('Root Folder Name: '):]
            continue
        if func != 'process': continue
        if msg == 'Entering function':
            if not stack:
                fr = Frame(top_id, top_name, None)
            else:
                if pending is None or pending.parent is not stack[-1]:
                    raise SystemExit('%s: readpst log: cannot place folder entry' % store)
                fr, pending = pending, None
            if fr not in frames: frames.append(fr)
            stack.append(fr)
            continue
        if msg == 'Leaving function':
            stack.pop(); rec = None; pending = None
            continue
        if not stack: continue
        cur = stack[-1]
        if msg == 'New item record':
            rec = None; continue
        mm = RX_DESC.match(msg)
        if mm:
            rec = dict(id=int(mm.group(1), 16), outcome=None, detail='')
            cur.records.append(rec); continue
        mm = RX_SUMMARY.match(msg)
        if mm:
            cur.summary = (int(mm.group(2)), int(mm.group(3))); continue
        if rec is None or rec['outcome'] is not None: continue
        if msg.startswith('Processing Folder "') and msg.endswith('"'):
            rec['outcome'] = 'folder'
            pending = Frame(rec['id'], msg[len('Processing Folder "'):-1], cur)
            frames.append(pending)
        elif msg.startswith('Processing '):
            rec['outcome'], rec['detail'] = 'written', msg[len('Processing '):]
        elif msg.startswith('Unknown item type') or msg.endswith('skipping it'):
            rec['outcome'], rec['detail'] = 'skipped', msg
    return frames

def readpst_rows(store, sdir):
    rdir = os.path.join(sdir, 'readpst')
    frames = parse_readpst(rdir, store)
    rows, total_written, assoc = [], 0, [0]
    for fr in frames:
        written = [r for r in fr.records if r['outcome'] == 'written']
        subf = [r for r in fr.records if r['outcome'] == 'folder']
        skipped = [r for r in fr.records if r['outcome'] == 'skipped']
        unknown = [r for r in fr.records if r['outcome'] is None]
        total_written += len(written)
        for r in unknown:
            note('  WARNING %s [readpst] %s: item 0x%x without a recognised outcome' % (store, fr.path, r['id']))
        for r in skipped:
            if r['id'] & 31 == 8:
                assoc[0] += 1   # associated (folder-associated) message: never counted
                continue
            kind = {2: 'a FOLDER', 3: 'a search FOLDER', 4: 'a message'}.get(r['id'] & 31, 'a node')
            note('  note %s [readpst] %s: did not write %s 0x%x: %s' % (store, fr.path, kind, r['id'], r['detail']))
        if fr.id is not None and fr.id & 31 not in (2, 3):
            note('  note %s [readpst] %s: treated node 0x%x (not a folder id) as a folder'
                 % (store, fr.path, fr.id))
        if fr.summary is not None and fr.summary != (len(written) + len(subf), len(skipped)):
            note('  WARNING %s [readpst] %s: summary %r vs log %d+%d/%d'
                 % (store, fr.path, fr.summary, len(written), len(subf), len(skipped)))
        # files actually written in -S mode: one file per item, named by a number
        d = os.path.join(rdir, 'out', fr.path)
        if not os.path.isdir(d):
            # readpst writes names that are not valid UTF-8 byte by byte as Latin-1
            alt = fr.path.encode('utf-8', 'surrogateescape').decode('latin-1') \
                if any(0xDC80 <= ord(c) <= 0xDCFF for c in fr.path) else fr.path
            d = os.path.join(rdir, 'out', alt)
        if os.path.isdir(d):
            nfiles = sum(1 for e in os.listdir(d)
                         if e.isdigit() and os.path.isfile(os.path.join(d, e)))
            if nfiles != len(written):
                note('  WARNING %s [readpst] %s: %d item files, %d written per log'
                     % (store, fr.path, nfiles, len(written)))
        elif written:
            note('  WARNING %s [readpst] %s: output directory not found' % (store, fr.path))
        rows.append((fr.id, fr.path, len(written)))
    nfiles = 0
    for dp, dn, fn in os.walk(os.path.join(rdir, 'out')):
        nfiles += sum(1 for e in fn if e.isdigit())
    if nfiles != total_written:
        note('  WARNING %s [readpst] %d item files in total, %d written per log' % (store, nfiles, total_written))
    if assoc[0]:
        note('  note %s [readpst] also met %d associated message(s) (node id & 31 == 8), wrote none'
             % (store, assoc[0]))
    return rows

def compare(store, prow, rrow):
    """Disagreements between the tools, by folder identifier."""
    pm = {fid: (path, n) for fid, path, n in prow if fid is not None}
    for fid, path, n in rrow:
        if fid not in pm:
            note('  DIFF %s: readpst folder 0x%x %s (%d) is not a pffexport folder' % (store, fid, path, n))
        elif pm[fid][1] != n:
            note('  DIFF %s: folder 0x%x %s: pffexport %d, readpst %d' % (store, fid, pm[fid][0], pm[fid][1], n))
    # pffexport folders below readpst's top folder that readpst does not list
    rids = {fid for fid, _, _ in rrow}
    top = rrow[0][1] if rrow else None
    top_id = rrow[0][0] if rrow else None
    if top_id in pm:
        tp = pm[top_id][0]
        for fid, (path, n) in sorted(pm.items(), key=lambda kv: kv[1][0]):
            if (path == tp or path.startswith(tp + '/')) and fid not in rids:
                note('  DIFF %s: pffexport folder 0x%x %s (%d) is not a readpst folder' % (store, fid, path, n))

# ---------------------------------------------------------------- main
out = []
with open(sys.argv[1]) as f:
    entries = [l.rstrip('\n').split('\t') for l in f if l.strip()]
for sdir, store in entries:
    note(store)
    prow, rrow = pff_rows(store, sdir), readpst_rows(store, sdir)
    compare(store, prow, rrow)
    for tool, rows in (('pffexport', prow), ('readpst', rrow)):
        tot = 0
        for fid, path, n in rows:
            out.append((store, tool, esc(path), fid if fid is not None else -1,
                        '-' if fid is None else '0x%x' % fid, n))
            tot += n
        note('  total %s: %d folders, %d messages' % (tool, len(rows), tot))
out.sort(key=lambda r: (r[0], r[1], r[2], r[3]))
print('store\ttool\tfolder_id\tfolder_path\tmessages')
for store, tool, path, _, fid, n in out:
    print('%s\t%s\t%s\t%s\t%d' % (esc(store), tool, fid, path, n))
PY

mv "$work/folder_counts.tsv" "$out"
echo "wrote $out" >&2
