#!/usr/bin/env bash
# Regenerates export_oracle.tsv (next to this script): for every item that
# readpst 0.6.76 (package pst-utils, run as a black box) writes as a file of
# its own from the sample stores, the message as a mail reader sees it:
# folder, subject, sender and recipient addresses, date, plain and HTML body
# text (length and SHA-256), attachment files (name, size, SHA-256) and the
# embedded messages. Items are keyed by node id, which readpst's debug log
# names for every item it writes.
#
# Usage: tests/data/oracle/make_export_oracle.sh [TESTDATA_DIR]
#   TESTDATA_DIR defaults to $TESTDATA or /work/shared/testdata.
# Writes only export_oracle.tsv and a temporary directory (removed on exit).
# Per-store totals and every disagreement between readpst runs go to stderr.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/oracle_common.sh"
oracle_start export_oracle "${1:-}" readpst python3
out="$here/export_oracle.tsv"
runs=${READPST_RUNS:-3}   # readpst now and then garbles a body or fails; each item takes the majority of three runs

: > "$work/list"
i=0
for rel in "${stores[@]}"; do
  i=$((i + 1))
  for r in $(seq 1 $runs); do
    d="$work/s$i/r$r"
    # -e one file per item (.eml, .ics, .vcf), -b no RTF body as an attachment,
    # -D Deleted Items too, -8 bodies in UTF-8, -j 0 no child processes (the
    # debug log then follows the order the files are written in).
    ok=0
    for attempt in 1 2 3; do
      rm -rf "$d" && mkdir -p "$d/out"
      if ( cd "$d" && readpst -e -b -D -8 -j 0 -o out -d rp.dbg "$testdata/$rel" > stdout.txt 2> stderr.txt ); then
        ok=1; break
      fi
      echo "note: readpst attempt $attempt failed on $rel (run $r)" >&2
    done
    [ $ok = 1 ] || { echo "readpst failed 3 times on $rel" >&2; exit 1; }
    printf '%s\t%s\t%s\n' "$d" "$rel" "$r" >> "$work/list"
  done
done

python3 - "$work/list" > "$work/export_oracle.tsv" <<'PY'
import collections, os, re, sys
from oracle_text import esc
from oracle_mail import digest, norm_text, read_eml

def fail(msg):
    print('error: ' + msg, file=sys.stderr)
    sys.exit(1)

def readlines(p):
    with open(p, 'rb') as f:
        return f.read().decode('utf-8', 'surrogateescape').split('\n')

# ------------------------------------------------------------ the debug log
RX_DBG = re.compile(r'^(\d+) +(\w+) (\w+\.c)\((\d+)\) (.*)$')
RX_DESC = re.compile(r'^Desc Email ID 0x[0-9a-f]+ \[d_ptr->d_id = 0x([0-9a-f]+)\]$')

class Frame:
    def __init__(self, name, parent):
        self.name, self.parent = name, parent
        self.written = []      # (node id, subject the log prints), in the order written
        self.path = name if parent is None else parent.path + '/' + name

def parse_log(rdir, store):
    """readpst's folders (from its top folder down) and the items it wrote in each."""
    top_name = None
    stack, frames, pending, rec = [], [], None, None
    for ln in readlines(os.path.join(rdir, 'rp.dbg')):
        m = RX_DBG.match(ln)
        if not m: continue
        func, src, msg = m.group(2), m.group(3), m.group(5)
        if src != 'readpst.c': continue
        if func == 'main' and msg.startswith('Root Folder Name: '):
            top_name = msg[len('Root Folder Name: '):]
            continue
        if func != 'process': continue
        if msg == 'Entering function':
            if not stack:
                fr = Frame(top_name, None)
            else:
                if pending is None or pending.parent is not stack[-1]:
                    fail('%s: readpst log: cannot place folder entry' % store)
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
            rec = {'id': int(mm.group(1), 16), 'subject': None, 'done': False}
            continue
        if rec is None: continue
        if msg.startswith('item->subject = ') and rec['subject'] is None:
            rec['subject'] = msg[len('item->subject = '):]
            continue
        if rec['done']: continue
        if msg.startswith('Processing Folder "') and msg.endswith('"'):
            rec['done'] = True
            pending = Frame(msg[len('Processing Folder "'):-1], cur)
            frames.append(pending)
        elif msg in ('Processing Email', 'Processing Contact', 'Processing Appointment Entry',
                     'Processing Journal Entry'):
            rec['done'] = True
            cur.written.append((rec['id'], rec['subject']))
        elif msg.startswith('Unknown item type') or msg.endswith('skipping it'):
            rec['done'] = True
    return frames

def folder_dir(rdir, path):
    d = os.path.join(rdir, 'out', path)
    if not os.path.isdir(d):
        # readpst writes names that are not valid UTF-8 byte by byte as Latin-1
        d = os.path.join(rdir, 'out', path.encode('utf-8', 'surrogateescape').decode('latin-1'))
    return d

# ------------------------------------------------------------ the files
def ical_unescape(v):
    return re.sub(r'\\([nN,;\\])', lambda m: '\n' if m.group(1) in 'nN' else m.group(1), v)

def unfold(path):
    with open(path, 'rb') as f:
        text = f.read().decode('utf-8', 'surrogateescape')
    return re.sub(r'\r?\n[ \t]', '', text).replace('\r\n', '\n').split('\n')

def read_ics(path):
    """The event's own fields; those of the components inside it (the alarm) are left out."""
    fields, stack = {}, []
    for ln in unfold(path):
        k, _, v = ln.partition(':')
        k = k.split(';')[0]
        if k == 'BEGIN':
            stack.append(v)
        elif k == 'END':
            stack.pop()
        elif stack[-1:] == ['VEVENT'] and k in ('SUMMARY', 'DTSTART', 'DESCRIPTION') and k not in fields:
            fields[k] = ical_unescape(v)
    date = '-'
    m = re.match(r'^(\d{4})(\d\d)(\d\d)T(\d\d)(\d\d)(\d\d)Z$', fields.get('DTSTART', ''))
    if m: date = '%s-%s-%sT%s:%s:%sZ' % m.groups()
    text = norm_text(fields['DESCRIPTION']) if 'DESCRIPTION' in fields else None
    return {'subject': fields.get('SUMMARY', '-'), 'from': '-', 'to': '-', 'cc': '-', 'date': date,
            'text': digest(text), 'html': ('-', '-')}

def read_vcf(path):
    fn = '-'
    for ln in unfold(path):
        if ln.startswith('FN:'):
            fn = ical_unescape(ln[3:]); break
    return {'subject': fn, 'from': '-', 'to': '-', 'cc': '-', 'date': '-', 'text': ('-', '-'),
            'html': ('-', '-')}

def item_rows(store, node, folder, kind, item, attachments, inner):
    rows = [(store, node, 'item', '0', esc(folder), kind, esc(item['subject']), esc(item['from']),
             esc(item['to']), esc(item['cc']), item['date']) + item['text'] + item['html'] + ('-', '-', '-')]
    for n, (name, size, sha, ctype, _) in enumerate(attachments, 1):
        rows.append((store, node, 'attachment', str(n), '-', ctype, '-', '-', '-', '-', '-', '-', '-', '-', '-',
                     esc(name), str(size), sha))
    for n, m in enumerate(inner, 1):
        rows.append((store, node, 'message', str(n), '-', 'eml', esc(m['subject']), esc(m['from']), esc(m['to']),
                     esc(m['cc']), m['date']) + m['text'] + m['html'] + ('-', '-', '-'))
        for k, (name, size, sha, ctype, _) in enumerate(m['attachments'], 1):
            rows.append((store, node, 'message_attachment', '%d.%d' % (n, k), '-', ctype, '-', '-', '-', '-', '-',
                         '-', '-', '-', '-', esc(name), str(size), sha))
    return rows

def run_rows(rdir, store):
    """{node id: rows} of one readpst run."""
    frames = parse_log(rdir, store)
    items = {}
    nfiles = 0
    for dp, dn, fn in os.walk(os.path.join(rdir, 'out')):
        nfiles += len(fn)
    nwritten = 0
    for fr in frames:
        if not fr.written: continue
        d = folder_dir(rdir, fr.path)
        files = sorted((f for f in os.listdir(d) if re.match(r'^\d+\.(eml|ics|vcf)$', f)),
                       key=lambda f: int(f.split('.')[0]))
        if len(files) != len(fr.written):
            fail('%s: %s: %d files, %d items written per log' % (store, fr.path, len(files), len(fr.written)))
        # Paths below readpst's top folder (named after the store), as ours leave out the top folders.
        folder = fr.path.split('/', 1)[1] if '/' in fr.path else '.'
        for f, (node, logsubj) in zip(files, fr.written):
            kind = f.rsplit('.', 1)[1]
            p = os.path.join(d, f)
            if kind == 'eml':
                with open(p, 'rb') as f:
                    _, item, att, inner = read_eml(f.read(), True)
            elif kind == 'ics':
                item, att, inner = read_ics(p), [], []
            else:
                item, att, inner = read_vcf(p), [], []
            if kind == 'eml' and logsubj is not None and item['subject'] != logsubj and \
                    item['subject'].encode('utf-8', 'surrogateescape') != logsubj.encode('utf-8', 'surrogateescape'):
                print('  note %s 0x%x: file subject %r, log subject %r' % (store, node, item['subject'], logsubj),
                      file=sys.stderr)
            if node in items:
                fail('%s: item 0x%x written twice' % (store, node))
            items[node] = item_rows(store, node, folder, kind, item, att, inner)
            nwritten += 1
    if nwritten != nfiles:
        fail('%s: %d files, %d placed' % (store, nfiles, nwritten))
    return items

runs = collections.defaultdict(list)
with open(sys.argv[1]) as f:
    for l in f:
        if not l.strip(): continue
        rdir, store, r = l.rstrip('\n').split('\t')
        runs[store].append(run_rows(rdir, store))

rows = []
for store in sorted(runs):
    results = runs[store]
    nodes = sorted(set().union(*[set(r) for r in results]))
    natt = nmsg = 0
    for node in nodes:
        votes = collections.Counter(tuple(r.get(node, ())) for r in results)
        best, n = votes.most_common(1)[0]
        if n * 2 <= len(results) or not best:
            fail('%s 0x%x: no majority among %d readpst runs' % (store, node, len(results)))
        if n != len(results):
            print('  note %s 0x%x: %d of %d readpst runs agree' % (store, node, n, len(results)), file=sys.stderr)
        rows.extend(best)
        natt += sum(1 for r in best if r[2] == 'attachment')
        nmsg += sum(1 for r in best if r[2] == 'message')
    print('%s: %d items, %d attachments, %d embedded messages' % (store, len(nodes), natt, nmsg), file=sys.stderr)

PARTS = ['item', 'attachment', 'message', 'message_attachment']
rows.sort(key=lambda r: (r[0], r[1], PARTS.index(r[2]), [int(x) for x in r[3].split('.')]))
print('store\tnode_id\tpart\tn\tfolder_path\tkind\tsubject\tfrom\tto\tcc\tdate\t'
      'text_bytes\ttext_sha256\thtml_bytes\thtml_sha256\tname\tbytes\tsha256')
for r in rows:
    print('%s\t0x%x\t%s\t%s\t%s' % (esc(r[0]), r[1], r[2], r[3], '\t'.join(r[4:])))
PY

mv "$work/export_oracle.tsv" "$out"
echo "wrote $out" >&2
