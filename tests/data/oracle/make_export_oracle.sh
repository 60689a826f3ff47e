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
import collections, datetime, email, email.header, email.policy, email.utils, hashlib, os, re, sys
from oracle_text import esc

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
def norm_text(s):
    """Line ends as LF, trailing blanks of every line and trailing empty lines dropped."""
    s = s.replace('\r\n', '\n').replace('\r', '\n')
    return '\n'.join(l.rstrip() for l in s.split('\n')).rstrip('\n')

def digest(text):
    if text is None: return ('-', '-')
    b = text.encode('utf-8', 'surrogateescape')
    return (str(len(b)), hashlib.sha256(b).hexdigest())

def header_text(v):
    """A header's text: unfolded, encoded words decoded."""
    if v is None: return None
    parts = []
    for chunk, cs in email.header.decode_header(re.sub(r'\r?\n(?=[ \t])', '', str(v))):
        if isinstance(chunk, str):
            parts.append(chunk)
        else:
            try:
                parts.append(chunk.decode(cs or 'utf-8', 'surrogateescape'))
            except LookupError:
                parts.append(chunk.decode('utf-8', 'surrogateescape'))
    return ''.join(parts)

def addresses(msg, name):
    vals = msg.get_all(name) or []
    out = [a for _, a in email.utils.getaddresses([header_text(v) for v in vals]) if '@' in a]
    return ';'.join(out) if out else '-'

def date_of(msg):
    v = msg.get('Date')
    if v is None: return '-'
    try:
        d = email.utils.parsedate_to_datetime(str(v))
    except (TypeError, ValueError):
        return 'unparsed:' + str(v)
    if d.tzinfo is None: d = d.replace(tzinfo=datetime.timezone.utc)
    return d.astimezone(datetime.timezone.utc).strftime('%Y-%m-%dT%H:%M:%SZ')

def filename_of(p):
    """The file name a part gives, RFC 2231 form first (a plain copy next to it may hold raw bytes)."""
    for hdr, key in (('content-disposition', 'filename'), ('content-type', 'name')):
        vals = [v for k, v in (p.get_params(header=hdr) or [])[1:] if k.lower() == key]
        for v in vals:
            if isinstance(v, tuple):
                return email.utils.collapse_rfc2231_value(v)
        if vals:
            return header_text(email.utils.unquote(vals[0]))
    return None

def part_text(p):
    raw = p.get_payload(decode=True) or b''
    cs = p.get_content_charset() or 'us-ascii'
    try:
        return raw.decode(cs, 'surrogateescape')
    except LookupError:
        return raw.decode('utf-8', 'surrogateescape')

# readpst puts an mbox "From " line (quoted) at the top of an embedded message.
RX_FROMLINE = re.compile(rb'^>From "[^"\r\n]*" \w{3} \w{3} +\d+ \d\d:\d\d:\d\d \d{4}\r?\n', re.M)

def message_fields(msg, attachments, messages):
    """Header fields, bodies; attachments and embedded messages appended to the lists."""
    plain = html = None
    def walk(p):
        nonlocal plain, html
        ctype = p.get_content_type()
        if p.get_content_maintype() == 'multipart':
            if p.is_multipart():   # a multipart without parts holds only its preamble
                for sub in p.get_payload(): walk(sub)
            return
        if ctype == 'message/rfc822':
            inner = p.get_payload()
            messages.append(inner[0] if isinstance(inner, list) else inner)
            return
        disp = str(p.get('Content-Disposition', '')).split(';')[0].strip().lower()
        name = filename_of(p)
        if name is None and disp == '':
            if ctype == 'text/plain' and plain is None:
                plain = norm_text(part_text(p)); return
            if ctype == 'text/html' and html is None:
                html = norm_text(part_text(p)); return
            if ctype == 'text/calendar':
                return   # readpst's own rendering of a meeting
        if ctype == 'text/calendar' and name is not None and re.match(r'^i\d+\.ics$', name):
            return       # readpst's own rendering of a meeting, attached
        data = p.get_payload(decode=True) or b''
        if ctype.startswith('application/x-report-'):
            ctype = 'message/' + ctype[len('application/x-report-'):]
        attachments.append((name if name is not None else '-', ctype, len(data),
                            hashlib.sha256(data).hexdigest()))
    walk(msg)
    sender = '-'
    if msg.get('From') is not None:
        a = email.utils.parseaddr(header_text(msg['From']))[1]
        sender = a if a else '-'
    subj = header_text(msg.get('Subject'))
    return {'subject': '-' if subj is None else subj, 'from': sender, 'to': addresses(msg, 'To'),
            'cc': addresses(msg, 'Cc'), 'date': date_of(msg), 'text': digest(plain),
            'html': digest(html)}

# Python reads a delivery or read report's status part as header blocks and
# drops its bytes; under a type of its own the part stays a file.
RX_REPORT_PART = re.compile(rb'^(Content-Type:[ \t]*)message/(delivery-status|disposition-notification)', re.M | re.I)

def read_eml(path):
    with open(path, 'rb') as f:
        data = RX_REPORT_PART.sub(rb'\1application/x-report-\2', RX_FROMLINE.sub(b'', f.read()))
    msg = email.message_from_bytes(data, policy=email.policy.compat32)
    attachments, messages = [], []
    item = message_fields(msg, attachments, messages)
    inner = []
    for m in messages:
        a, mm = [], []
        f = message_fields(m, a, mm)
        f['attachments'] = a
        inner.append(f)
    return item, attachments, inner

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
    for n, (name, ctype, size, sha) in enumerate(attachments, 1):
        rows.append((store, node, 'attachment', str(n), '-', ctype, '-', '-', '-', '-', '-', '-', '-', '-', '-',
                     esc(name), str(size), sha))
    for n, m in enumerate(inner, 1):
        rows.append((store, node, 'message', str(n), '-', 'eml', esc(m['subject']), esc(m['from']), esc(m['to']),
                     esc(m['cc']), m['date']) + m['text'] + m['html'] + ('-', '-', '-'))
        for k, (name, ctype, size, sha) in enumerate(m['attachments'], 1):
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
                item, att, inner = read_eml(p)
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
