"""Regenerates one oracle table next to this script from pffexport 20180714 and
readpst 0.6.76, run as black boxes (README.md says what each column means).

Usage: make_oracle.py TABLE [TESTDATA_DIR]   (TABLE: folder_counts, items,
item_parts, recovered_items, folder_classes, export_oracle; TESTDATA_DIR
defaults to $TESTDATA or /work/shared/testdata). Writes only TABLE.tsv and a
temporary directory; notes and per-store totals go to stderr."""
import collections, glob, hashlib, os, re, shutil, subprocess, sys, tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
from oracle_mail import digest, norm_text, read_eml  # noqa: E402

VERSIONS = {'pffexport': (r'^pffexport (\S+)', '20180714'), 'readpst': (r'^ReadPST / LibPST v(\S+)', '0.6.76')}


def note(msg):
    print(msg, file=sys.stderr)


def fail(msg):
    sys.exit('error: ' + msg)


def esc(s):
    """Backslash, tab, CR and LF escaped; bytes that are not UTF-8 as \\xNN."""
    table = {'\\': '\\\\', '\t': '\\t', '\n': '\\n', '\r': '\\r'}
    return ''.join(table.get(ch) or ('\\x%02x' % (ord(ch) - 0xDC00) if 0xDC80 <= ord(ch) <= 0xDCFF else ch)
                   for ch in s)


def esc_path(s):
    """As esc, but a '/'-separated part that is not UTF-8 has every byte >= 0x80 as \\xNN."""
    bad = lambda p: any(0xDC80 <= ord(c) <= 0xDCFF for c in p)
    return '/'.join(''.join(esc(chr(x)) if x < 0x80 else '\\x%02x' % x for x in p.encode('utf-8', 'surrogateescape'))
                    if bad(p) else esc(p) for p in s.split('/'))


def read_text(p):
    with open(p, 'rb') as f:
        return f.read().decode('utf-8', 'surrogateescape')


def read_lines(p):
    return read_text(p).split('\n')


class Run:
    """The tools checked, a scratch folder, and the sample stores test::AllStores() lists."""

    def __init__(self, name, testdata, tools):
        os.environ.update(LC_ALL='C.UTF-8', TZ='UTC')
        self.testdata = os.path.abspath(testdata)
        for tool in tools:
            if not shutil.which(tool):
                fail('missing tool: ' + tool)
            rx, want = VERSIONS[tool]
            out = subprocess.run([tool, '-V'], capture_output=True, text=True, errors='replace')
            m = re.search(rx, out.stdout + out.stderr, re.M)
            if not m or m.group(1) != want:
                note('warning: %s version %s, reference data was made with %s' % (tool, m and m.group(1), want))
        self.work = tempfile.mkdtemp(prefix=name + '.', dir=os.environ.get('TMPDIR', '/tmp'))
        self.stores = sorted(os.path.relpath(p, self.testdata) for pat in
                             ('pst/ansi/*.pst', 'pst/unicode/*.pst', 'ost/unicode512/*.ost', 'ost4k/*.ost')
                             for p in glob.glob(os.path.join(self.testdata, pat)))

    def tool(self, d, args, what=None):
        """ARGS run in folder D, output in stdout.txt and stderr.txt; a failure ends the run when WHAT is given."""
        os.makedirs(d, exist_ok=True)
        with open(os.path.join(d, 'stdout.txt'), 'wb') as o, open(os.path.join(d, 'stderr.txt'), 'wb') as e:
            ok = subprocess.run(args, cwd=d, stdout=o, stderr=e).returncode == 0
        if not ok and what:
            fail('%s failed on %s' % (' '.join(args[:3]), what))
        return ok

    def pff_each(self, *args):
        """pffexport ARGS -l pff.log -t x STORE in a folder of its own per store: [(folder, store)]."""
        out = []
        for i, rel in enumerate(self.stores, 1):
            d = os.path.join(self.work, 's%d' % i)
            self.tool(d, ['pffexport', *args, '-l', 'pff.log', '-t', 'x', os.path.join(self.testdata, rel)], rel)
            out.append((d, rel))
        return out

    def readpst(self, d, args, rel):
        """readpst now and then fails on some stores; three tries."""
        for attempt in (1, 2, 3):
            shutil.rmtree(d, ignore_errors=True)
            os.makedirs(os.path.join(d, 'out'))
            if self.tool(d, ['readpst', *args, '-o', 'out', '-d', 'rp.dbg', os.path.join(self.testdata, rel)]):
                return
            note('note: readpst attempt %d failed on %s' % (attempt, rel))
        fail('readpst failed 3 times on ' + rel)


# ------------------------------------------------------------ pffexport's log and files
RX_FOLDER = re.compile(r'^Processing folder: (\d+) \(identifier: (\d+)\) in path: (.*)/$')
RX_ITEM = re.compile(r'^Processing ([a-z][a-z ]*): (\d+) \(identifier: (\d+)\) in path: (.*)/$')
RX_CREATED = re.compile(r'^Created directory: (.*)\.$')
RX_SKIPPED = re.compile(r'^Skipped export of item: (\d+) out of: (\d+) of type: (.*) \(0x[0-9a-f]+\)\.$')
# Every item kind writes a "Message:" section first, in one of these files.
HEADER_FILES = ('OutlookHeaders.txt', 'Appointment.txt', 'Meeting.txt', 'Contact.txt',
                'DistributionList.txt', 'Task.txt', 'Note.txt', 'Activity.txt')
RX_FIELD = re.compile(r'^([A-Z][a-z]+(?: [a-z0-9]+)*):\t+(.*)$')
RX_SECTION = re.compile(r'^[A-Z][A-Za-z ]*:$')


def message_section(item_dir):
    """The fields of the item's first section, or None when it has no header file."""
    name = next((n for n in HEADER_FILES if os.path.isfile(os.path.join(item_dir, n))), None)
    if name is None:
        return None
    lines = read_lines(os.path.join(item_dir, name))
    fields, key = {}, None
    for i, ln in enumerate(lines[1:], 1):
        nxt = lines[i + 1] if i + 1 < len(lines) else ''
        m = RX_FIELD.match(ln)
        if m:
            key = m.group(1)
            fields[key] = m.group(2)
        elif ln == '' and (nxt == '' or RX_SECTION.match(nxt)):
            break
        elif key is not None:
            fields[key] += '\n' + ln
    return fields


RX_RECIPIENTS = re.compile(r'^Saving (\d+)recipient\(s\) as: Recipients\.txt$')
RX_ATTACHMENT = ((re.compile(r'^Saving attachment with filename: (.*) as: (\d+_.*)$'), True),
                 (re.compile(r'^Missing attachment filename defaulting to: (\d+_Attachment\.txt)$'), False),
                 (re.compile(r'^Missing attachment filename saving as: (Attachment\d+)$'), False))


def walk_log(sdir, store):
    """Top-level items as [identifier, kind, item directory, recipients the log announces,
    {(Attachments/ directory, entry): name from the log or None}, open Attachments/ directories];
    embedded messages (inside Attachments/) are left out.

    Attachment lines carry no item; an embedded message's own attachments come between its
    parent's. A line is given to the innermost open Attachments/ directory of the current
    top-level item that holds that entry, not yet claimed."""
    folders = {'x.export'}
    pending_folder = pending_item = current = last_dir = None
    items = []
    for ln in read_lines(os.path.join(sdir, 'pff.log')):
        m = RX_FOLDER.match(ln)
        if m:
            pending_folder, pending_item = m.group(3), None
            continue
        m = RX_ITEM.match(ln)
        if m:
            pending_item, pending_folder = (m.group(1), int(m.group(3)), m.group(4)), None
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
        m = RX_SKIPPED.match(ln)
        if m:
            note('  %s: pffexport skipped an item of class %s' % (store, m.group(3)))
        if current is None:
            continue
        m = RX_RECIPIENTS.match(ln)
        if m:
            if last_dir == current[2]:   # written right after the directory of its item
                current[3] = int(m.group(1))
            continue
        for rx, named in RX_ATTACHMENT:
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


def make_items(run):
    rows = []
    for sdir, store in run.pff_each('-m', 'items'):
        n = 0
        for ident, _, rel, *_ in walk_log(sdir, store):
            item_dir = os.path.join(sdir, rel)
            fields = message_section(item_dir)
            if fields is None:
                note('  %s: item %d has no header file' % (store, ident))
                continue
            size = lambda f: str(os.path.getsize(os.path.join(item_dir, f))) \
                if os.path.isfile(os.path.join(item_dir, f)) else '-'
            rows.append((store, ident, *(esc(fields[k]) if k in fields else '-' for k in
                                         ('Subject', 'Sender name', 'Client submit time', 'Delivery time')),
                         size('Message.txt'), size('Message.html'), size('Message.rtf')))
            n += 1
        note('%s: %d items' % (store, n))
    rows.sort(key=lambda r: (r[0], r[1]))
    return ('store\tnode_id\tsubject\tsender_name\tclient_submit_time\tdelivery_time\t'
            'plain_body_bytes\thtml_body_bytes\trtf_body_bytes',
            ['%s\t0x%x\t%s' % (esc(r[0]), r[1], '\t'.join(r[2:])) for r in rows])


def recipients(item_dir):
    """Blocks of 'Key:\\tvalue' lines of Recipients.txt, one per recipient, in file order."""
    p = os.path.join(item_dir, 'Recipients.txt')
    out, cur = [], {}
    for ln in read_lines(p) if os.path.isfile(p) else []:
        m = re.match(r'^([A-Z][A-Za-z ]*):\t+(.*)$', ln)
        if m:
            cur[m.group(1)] = m.group(2)
        elif ln == '':
            out += [cur] if cur else []
            cur = {}
        else:
            fail('%s: unexpected line %r' % (p, ln))
    return out + ([cur] if cur else [])


def sha256_file(p):
    with open(p, 'rb') as f:
        return hashlib.sha256(f.read()).hexdigest()


def make_item_parts(run):
    rows = []
    for sdir, store in run.pff_each('-m', 'items', '-f', 'text'):
        nrec = natt = nmsg = 0
        for ident, kind, rel, announced, names, _ in walk_log(sdir, store):
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
            for entry in sorted(os.listdir(adir)) if os.path.isdir(adir) else []:
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
                                 '-', '-', str(os.path.getsize(p)), sha256_file(p)))
                    natt += 1
        note('%s: %d recipients, %d attachment files, %d embedded items' % (store, nrec, natt, nmsg))
    rows.sort(key=lambda r: (r[0], r[1], ['item', 'recipient', 'attachment'].index(r[2]), r[3]))
    return ('store\tnode_id\tpart\tn\tkind\tname\taddress_type\taddress\tbytes\tsha256',
            ['%s\t0x%x\t%s\t%d\t%s' % (esc(r[0]), r[1], r[2], r[3], '\t'.join(r[4:])) for r in rows])


def make_recovered_items(run):
    """-m recovered writes x.recovered (and x.orphans when there are orphans), nothing else."""
    top = 'x.recovered'
    rx_typed = re.compile(r'^Processing ([a-z][a-z ]*): (\d+) \(identifier: (\d+)\) in path: ' + top + r'/$')
    rx_unknown = re.compile(r'^Unable to retrieve type of item (\d+) out of (\d+)\.$')
    rx_created = re.compile(r'^Created directory: ' + top + r'/([^/]*)\.$')
    rx_saving = re.compile(r'^Saving folder with name: (.*) as: [^/]*$')
    rows = []
    for sdir, store in run.pff_each('-m', 'recovered'):
        if os.path.isdir(os.path.join(sdir, 'x.orphans')):
            fail('%s: pffexport wrote orphan items; this script does not read them yet' % store)
        # stdout prints "item K out of N" for K = 1..N, the loops inside an item their own lines between.
        n, seen = None, []
        for ln in read_lines(os.path.join(sdir, 'stdout.txt')):
            m = re.search(r' item (\d+) out of (\d+)', ln)
            if m:
                k, of = int(m.group(1)), int(m.group(2))
                n = of if n is None and k == 1 else n
                seen += [k] if n == of and k == len(seen) + 1 else []
        n = n or 0
        if seen != list(range(1, n + 1)):
            fail('%s: cannot follow the top-level item numbers in stdout' % store)
        items, pending = {}, None   # K -> [kind, node id, name]
        for ln in read_lines(os.path.join(sdir, 'pff.log')):
            m = rx_typed.match(ln)
            if m:
                pending = int(m.group(2)) + 1
                items[pending] = [m.group(1), '0x%x' % int(m.group(3)), '-']
                continue
            m = rx_unknown.match(ln) or RX_SKIPPED.match(ln)
            if m and int(m.group(2)) == n and int(m.group(1)) not in items:
                items[int(m.group(1))] = ['unknown', '-', '-'] if m.re is rx_unknown else ['skipped', '-', m.group(3)]
                pending = None
                continue
            if pending is None:
                continue
            m = rx_saving.match(ln)
            if m and items[pending][0] == 'folder':
                items[pending][2] = m.group(1)
                continue
            m = rx_created.match(ln)
            if m:
                if items[pending][0] != 'folder':
                    s = (message_section(os.path.join(sdir, top, m.group(1))) or {}).get('Subject')
                    items[pending][2] = items[pending][2] if s is None else s
                pending = None
        if sorted(items) != list(range(1, n + 1)):
            fail('%s: log names items %r, stdout 1..%d' % (store, sorted(items), n))
        rows += [(store, str(k), str(n), items[k][0], items[k][1], esc(items[k][2])) for k in range(1, n + 1)]
        rows += [(store, '0', '0', '-', '-', '-')] if n == 0 else []
        note('%s: %d recovered %r' % (store, n, collections.Counter(items[k][0] for k in items)))
    return 'store\titem\tof\tkind\tnode_id\tname', ['\t'.join(r) for r in rows]


def item_values(path):
    """Entry type -> [value type, bytes of its value], from a pffexport ItemValues.txt."""
    out, entry, collecting = {}, None, False
    for line in open(path, encoding='utf-8', errors='replace'):
        m = re.match(r'(Entry|Value) type:\s+0x([0-9a-f]+)', line)
        if m and m.group(1) == 'Entry':
            entry, collecting = int(m.group(2), 16), False
        elif m and entry is not None:
            out.setdefault(entry, [int(m.group(2), 16), bytearray()])
        elif line.startswith('Value:') and entry is not None:
            collecting = True
        elif re.match(r'0x[0-9a-f]{8}: ', line) and collecting and entry in out:
            out[entry][1] += bytes(int(t, 16) for t in line[12:].split('   ')[0].split())
        elif not line.strip():
            collecting = False
    return out


def make_folder_classes(run):
    """Keyed by folder id through the export paths of folder_counts.tsv."""
    with open(os.path.join(HERE, 'folder_counts.tsv'), encoding='utf-8') as f:
        counts = [line.rstrip('\n').split('\t') for line in list(f)[1:]]
    for store in sorted({r[0] for r in counts if r[1] == 'pffexport'}):
        d = os.path.join(run.work, store)
        os.makedirs(d)
        shutil.copyfile(os.path.join(run.testdata, store), os.path.join(d, 'store'))
        subprocess.run(['pffexport', '-d', '-m', 'items', '-q', '-t', 'x', 'store'], cwd=d,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    rows = []
    for store, tool, fid, path, _ in counts:
        iv = os.path.join(run.work, store, 'x.export', '' if path == '.' else path, 'ItemValues.txt')
        if tool != 'pffexport' or '\\' in path or not os.path.isfile(iv):
            continue
        v = item_values(iv).get(0x3613)
        cls = '-' if v is None else v[1].decode('utf-16-le' if v[0] == 0x1F else 'cp1252', errors='replace')
        rows.append((store, fid, cls.split('\0')[0] or '-'))
    return 'store\tfolder_id\tcontainer_class', ['\t'.join(r) for r in sorted(rows)]


# ------------------------------------------------------------ readpst's debug log
RX_DBG = re.compile(r'^(\d+) +(\w+) (\w+\.c)\((\d+)\) (.*)$')
RX_DESC = re.compile(r'^Desc Email ID 0x[0-9a-f]+ \[d_ptr->d_id = 0x([0-9a-f]+)\]$')
RX_SUMMARY = re.compile(r'^processed item count for folder (.*) is (\d+), skipped (\d+), total (\d+) ?$')


class Frame:
    def __init__(self, fid, name, parent):
        self.id, self.name, self.parent = fid, name, parent
        self.records, self.summary = [], None   # records: dicts of id, outcome, detail, subject
        self.path = name if parent is None else parent.path + '/' + name

    def outcome(self, what):
        return [r for r in self.records if r['outcome'] == what]


def readpst_log(rdir, store):
    """readpst's folders from its top folder down, each with the items it met in order."""
    top_id = top_name = None
    stack, frames, pending, rec = [], [], None, None
    for ln in read_lines(os.path.join(rdir, 'rp.dbg')):
        m = RX_DBG.match(ln)
        if not m:
            continue
        func, src, msg = m.group(2, 3, 5)
        if func == 'pst_getTopOfFolders' and top_id is None:
            mm = re.match(r'looking for top of folder descriptor 0x([0-9a-f]+)$', msg)
            top_id = int(mm.group(1), 16) if mm else None
            continue
        if src != 'readpst.c':
            continue
        if func == 'main' and msg.startswith('Root Folder Name: '):
            top_name = msg[len('Root Folder Name: '):]
            continue
        if func != 'process':
            continue
        if msg == 'Entering function':
            if not stack:
                fr = Frame(top_id, top_name, None)
            else:
                if pending is None or pending.parent is not stack[-1]:
                    fail('%s: readpst log: cannot place folder entry' % store)
                fr, pending = pending, None
            if fr not in frames:
                frames.append(fr)
            stack.append(fr)
        elif msg == 'Leaving function':
            stack.pop()
            rec = pending = None
        elif not stack:
            continue
        elif msg == 'New item record':
            rec = None
        elif RX_DESC.match(msg):
            rec = dict(id=int(RX_DESC.match(msg).group(1), 16), outcome=None, detail='', subject=None)
            stack[-1].records.append(rec)
        elif RX_SUMMARY.match(msg):
            stack[-1].summary = tuple(int(x) for x in RX_SUMMARY.match(msg).group(2, 3))
        elif rec is None:
            continue
        elif msg.startswith('item->subject = ') and rec['subject'] is None:
            rec['subject'] = msg[len('item->subject = '):]
        elif rec['outcome'] is not None:
            continue
        elif msg.startswith('Processing Folder "') and msg.endswith('"'):
            rec['outcome'] = 'folder'
            pending = Frame(rec['id'], msg[len('Processing Folder "'):-1], stack[-1])
            frames.append(pending)
        elif msg.startswith('Processing '):
            rec['outcome'], rec['detail'] = 'written', msg[len('Processing '):]
        elif msg.startswith('Unknown item type') or msg.endswith('skipping it'):
            rec['outcome'], rec['detail'] = 'skipped', msg
    return frames


def folder_dir(rdir, path):
    d = os.path.join(rdir, 'out', path)
    if not os.path.isdir(d) and any(0xDC80 <= ord(c) <= 0xDCFF for c in path):
        # readpst writes names that are not valid UTF-8 byte by byte as Latin-1
        d = os.path.join(rdir, 'out', path.encode('utf-8', 'surrogateescape').decode('latin-1'))
    return d


# ------------------------------------------------------------ folder_counts
def parse_pff(dirpath):
    """(folders, classes skipped): export directory -> dict(id, name, parent, unnamed,
    log_items [item directory names], item_ids)."""
    folders = {'x.export': dict(id=None, name='.', parent=None, unnamed=False, log_items=[], item_ids=[])}
    pending, skipped = None, []
    for ln in read_lines(os.path.join(dirpath, 'pff.log')):
        m = RX_FOLDER.match(ln)
        if m:
            pending = dict(id=int(m.group(2)), parent=m.group(3), saving=None, missing=None)
            continue
        for key, head in (('saving', 'Saving folder with name: '), ('missing', 'Missing folder name defaulting to: ')):
            if pending is not None and ln.startswith(head):
                pending[key] = ln[len(head):]
                break
        else:
            m = RX_CREATED.match(ln)
            if m:
                path = m.group(1)
                parent, _, base = path.rpartition('/')
                if pending is not None and parent == pending['parent']:
                    if pending['saving'] is not None:
                        if not pending['saving'].endswith(' as: ' + base):
                            fail('cannot parse folder name line: %r' % pending['saving'])
                        name, unnamed = pending['saving'][:-len(' as: ' + base)], False
                    else:
                        name, unnamed = (pending['missing'] or base), True
                    if path in folders:
                        note('  WARNING pffexport wrote two folders into one directory: %s' % path)
                    folders[path] = dict(id=pending['id'], name=name, parent=parent, unnamed=unnamed,
                                         log_items=[], item_ids=[])
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


def pff_rows(store, sdir):
    items_dir = os.path.join(sdir, 'items')
    folders, skipped = parse_pff(items_dir)
    dfolders, _ = parse_pff(os.path.join(sdir, 'debug'))
    # Root id: the debug-mode folder whose child folders are exactly the items-mode top-level folders.
    top_ids = sorted(f['id'] for f in folders.values() if f['parent'] == 'x.export')
    dchildren = collections.defaultdict(list)
    for f in dfolders.values():
        if f['parent'] is not None:
            dchildren[f['parent']].append(f['id'])
    cands = [f['id'] for d, f in dfolders.items() if f['id'] is not None and sorted(dchildren.get(d, [])) == top_ids]
    if top_ids and len(cands) == 1:
        folders['x.export']['id'] = cands[0]
    else:
        note('  WARNING %s: root folder identifier not determined (%r)' % (store, cands))
    paths = {}

    def path(d):
        if d not in paths:
            f = folders[d]
            pp = f['parent'] and path(f['parent'])
            paths[d] = '.' if pp is None else f['name'] if pp == '.' else pp + '/' + f['name']
        return paths[d]
    rows = []
    for d, f in folders.items():
        full = os.path.join(items_dir, d)
        if not os.path.isdir(full):
            note('  WARNING %s: pffexport folder directory missing: %s' % (store, d))
            n = len(f['log_items'])
        else:
            subs = [e for e in os.listdir(full) if os.path.isdir(os.path.join(full, e)) and (d + '/' + e) not in folders]
            n = len(subs)
            if sorted(subs) != sorted(f['log_items']) or n != len(f['item_ids']):
                note('  WARNING %s [pffexport] %s: %d item dirs on disk, %d in log, %d processed'
                     % (store, path(d), n, len(f['log_items']), len(f['item_ids'])))
        if f['unnamed']:
            note('  note %s [pffexport] folder 0x%x has no name; pffexport calls it %s' % (store, f['id'], f['name']))
        rows.append((f['id'], path(d), n))
    for cls in skipped:
        note('  note %s [pffexport] -m items skipped an item of class %s' % (store, cls))
    return rows


def readpst_rows(store, sdir):
    rdir = os.path.join(sdir, 'readpst')
    rows, total_written, assoc = [], 0, 0
    for fr in readpst_log(rdir, store):
        written, subf, skipped = fr.outcome('written'), fr.outcome('folder'), fr.outcome('skipped')
        total_written += len(written)
        for r in fr.outcome(None):
            note('  WARNING %s [readpst] %s: item 0x%x without a recognised outcome' % (store, fr.path, r['id']))
        for r in skipped:
            if r['id'] & 31 == 8:
                assoc += 1   # associated (folder-associated) message: never counted
                continue
            kind = {2: 'a FOLDER', 3: 'a search FOLDER', 4: 'a message'}.get(r['id'] & 31, 'a node')
            note('  note %s [readpst] %s: did not write %s 0x%x: %s' % (store, fr.path, kind, r['id'], r['detail']))
        if fr.id is not None and fr.id & 31 not in (2, 3):
            note('  note %s [readpst] %s: treated node 0x%x (not a folder id) as a folder' % (store, fr.path, fr.id))
        if fr.summary is not None and fr.summary != (len(written) + len(subf), len(skipped)):
            note('  WARNING %s [readpst] %s: summary %r vs log %d+%d/%d'
                 % (store, fr.path, fr.summary, len(written), len(subf), len(skipped)))
        d = folder_dir(rdir, fr.path)   # -S writes one file per item, named by a number
        if os.path.isdir(d):
            nfiles = sum(1 for e in os.listdir(d) if e.isdigit() and os.path.isfile(os.path.join(d, e)))
            if nfiles != len(written):
                note('  WARNING %s [readpst] %s: %d item files, %d written per log' % (store, fr.path, nfiles, len(written)))
        elif written:
            note('  WARNING %s [readpst] %s: output directory not found' % (store, fr.path))
        rows.append((fr.id, fr.path, len(written)))
    nfiles = sum(1 for _, _, fn in os.walk(os.path.join(rdir, 'out')) for e in fn if e.isdigit())
    if nfiles != total_written:
        note('  WARNING %s [readpst] %d item files in total, %d written per log' % (store, nfiles, total_written))
    if assoc:
        note('  note %s [readpst] also met %d associated message(s) (node id & 31 == 8), wrote none' % (store, assoc))
    return rows


def compare_tools(store, prow, rrow):
    """Disagreements between the tools, by folder identifier."""
    pm = {fid: (path, n) for fid, path, n in prow if fid is not None}
    for fid, path, n in rrow:
        if fid not in pm:
            note('  DIFF %s: readpst folder 0x%x %s (%d) is not a pffexport folder' % (store, fid, path, n))
        elif pm[fid][1] != n:
            note('  DIFF %s: folder 0x%x %s: pffexport %d, readpst %d' % (store, fid, pm[fid][0], pm[fid][1], n))
    if rrow and rrow[0][0] in pm:   # pffexport folders below readpst's top folder that readpst does not list
        tp, rids = pm[rrow[0][0]][0], {fid for fid, _, _ in rrow}
        for fid, (path, n) in sorted(pm.items(), key=lambda kv: kv[1][0]):
            if (path == tp or path.startswith(tp + '/')) and fid not in rids:
                note('  DIFF %s: pffexport folder 0x%x %s (%d) is not a readpst folder' % (store, fid, path, n))


def make_folder_counts(run):
    out = []
    # The stores test::AllStores() lists, and one odd file that is a store all the same.
    for i, store in enumerate(sorted(run.stores + ['odd/aspose_PersonalStorageFile.ost.is-pst']), 1):
        sdir, src = os.path.join(run.work, 's%d' % i), os.path.join(run.testdata, store)
        for mode in ('items', 'debug'):   # debug: the root folder's id, and items that items mode skips
            run.tool(os.path.join(sdir, mode), ['pffexport', '-m', mode, '-l', 'pff.log', '-t', 'x', src], store)
        run.readpst(os.path.join(sdir, 'readpst'), ['-D', '-S', '-j', '0'], store)
        note(store)
        prow, rrow = pff_rows(store, sdir), readpst_rows(store, sdir)
        compare_tools(store, prow, rrow)
        for tool, rows in (('pffexport', prow), ('readpst', rrow)):
            out += [(store, tool, esc_path(path), -1 if fid is None else fid, '-' if fid is None else '0x%x' % fid, n)
                    for fid, path, n in rows]
            note('  total %s: %d folders, %d messages' % (tool, len(rows), sum(r[2] for r in rows)))
    out.sort(key=lambda r: r[:4])
    return ('store\ttool\tfolder_id\tfolder_path\tmessages',
            ['%s\t%s\t%s\t%s\t%d' % (esc_path(store), tool, fid, path, n) for store, tool, path, _, fid, n in out])


# ------------------------------------------------------------ export_oracle
def unfold(path):
    return re.sub(r'\r?\n[ \t]', '', read_text(path)).replace('\r\n', '\n').split('\n')


def ical_unescape(v):
    return re.sub(r'\\([nN,;\\])', lambda m: '\n' if m.group(1) in 'nN' else m.group(1), v)


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
    m = re.match(r'^(\d{4})(\d\d)(\d\d)T(\d\d)(\d\d)(\d\d)Z$', fields.get('DTSTART', ''))
    text = norm_text(fields['DESCRIPTION']) if 'DESCRIPTION' in fields else None
    return {'subject': fields.get('SUMMARY', '-'), 'from': '-', 'to': '-', 'cc': '-',
            'date': '%s-%s-%sT%s:%s:%sZ' % m.groups() if m else '-', 'text': digest(text), 'html': ('-', '-')}


def read_vcf(path):
    fn = next((ical_unescape(ln[3:]) for ln in unfold(path) if ln.startswith('FN:')), '-')
    return {'subject': fn, 'from': '-', 'to': '-', 'cc': '-', 'date': '-', 'text': ('-', '-'), 'html': ('-', '-')}


def item_rows(store, node, folder, kind, item, attachments, inner):
    def head(part, n, folder, kind, m):
        return (store, node, part, n, folder, kind, *(esc(m[k]) for k in ('subject', 'from', 'to', 'cc')),
                m['date'], *m['text'], *m['html'], '-', '-', '-')

    def files(part, n, name, size, sha, ctype, _):
        return (store, node, part, n, '-', ctype) + ('-',) * 9 + (esc(name), str(size), sha)
    rows = [head('item', '0', esc(folder), kind, item)]
    rows += [files('attachment', str(n), *a) for n, a in enumerate(attachments, 1)]
    for n, m in enumerate(inner, 1):
        rows.append(head('message', str(n), '-', 'eml', m))
        rows += [files('message_attachment', '%d.%d' % (n, k), *a) for k, a in enumerate(m['attachments'], 1)]
    return rows


WRITTEN = ('Email', 'Contact', 'Appointment Entry', 'Journal Entry')


def run_rows(rdir, store):
    """{node id: rows} of one readpst run."""
    items = {}
    for fr in readpst_log(rdir, store):
        written = [r for r in fr.outcome('written') if r['detail'] in WRITTEN]
        if not written:
            continue
        d = folder_dir(rdir, fr.path)
        files = sorted((f for f in os.listdir(d) if re.match(r'^\d+\.(eml|ics|vcf)$', f)),
                       key=lambda f: int(f.split('.')[0]))
        if len(files) != len(written):
            fail('%s: %s: %d files, %d items written per log' % (store, fr.path, len(files), len(written)))
        # Paths below readpst's top folder (named after the store), as ours leave out the top folders.
        folder = fr.path.split('/', 1)[1] if '/' in fr.path else '.'
        for f, r in zip(files, written):
            kind, p, node = f.rsplit('.', 1)[1], os.path.join(d, f), r['id']
            if kind == 'eml':
                with open(p, 'rb') as fh:
                    _, item, att, inner = read_eml(fh.read(), True)
                logsubj = r['subject']
                if logsubj is not None and item['subject'].encode('utf-8', 'surrogateescape') != \
                        logsubj.encode('utf-8', 'surrogateescape'):
                    note('  note %s 0x%x: file subject %r, log subject %r' % (store, node, item['subject'], logsubj))
            else:
                item, att, inner = (read_ics if kind == 'ics' else read_vcf)(p), [], []
            if node in items:
                fail('%s: item 0x%x written twice' % (store, node))
            items[node] = item_rows(store, node, folder, kind, item, att, inner)
    nfiles = sum(len(fn) for _, _, fn in os.walk(os.path.join(rdir, 'out')))
    if len(items) != nfiles:
        fail('%s: %d files, %d placed' % (store, nfiles, len(items)))
    return items


def make_export_oracle(run):
    """Each store is read READPST_RUNS times (3); each item takes the rows most runs agree on, as readpst
    now and then garbles a body or fails."""
    nruns, rows = int(os.environ.get('READPST_RUNS', '3')), []
    for i, store in enumerate(run.stores, 1):
        results = []
        for r in range(1, nruns + 1):
            d = os.path.join(run.work, 's%d' % i, 'r%d' % r)
            # -e one file per item (.eml, .ics, .vcf), -b no RTF body as an attachment, -D Deleted Items
            # too, -8 bodies in UTF-8, -j 0 no child processes (the log then follows the files' order).
            run.readpst(d, ['-e', '-b', '-D', '-8', '-j', '0'], store)
            results.append(run_rows(d, store))
        nodes = sorted(set().union(*results))
        natt = nmsg = 0
        for node in nodes:
            best, n = collections.Counter(tuple(r.get(node, ())) for r in results).most_common(1)[0]
            if n * 2 <= len(results) or not best:
                fail('%s 0x%x: no majority among %d readpst runs' % (store, node, len(results)))
            if n != len(results):
                note('  note %s 0x%x: %d of %d readpst runs agree' % (store, node, n, len(results)))
            rows.extend(best)
            natt += sum(1 for r in best if r[2] == 'attachment')
            nmsg += sum(1 for r in best if r[2] == 'message')
        note('%s: %d items, %d attachments, %d embedded messages' % (store, len(nodes), natt, nmsg))
    parts = ['item', 'attachment', 'message', 'message_attachment']
    rows.sort(key=lambda r: (r[0], r[1], parts.index(r[2]), [int(x) for x in r[3].split('.')]))
    return ('store\tnode_id\tpart\tn\tfolder_path\tkind\tsubject\tfrom\tto\tcc\tdate\t'
            'text_bytes\ttext_sha256\thtml_bytes\thtml_sha256\tname\tbytes\tsha256',
            ['%s\t0x%x\t%s\t%s\t%s' % (esc(r[0]), r[1], r[2], r[3], '\t'.join(r[4:])) for r in rows])


TABLES = {'folder_counts': ('pffexport', 'readpst'), 'items': ('pffexport',), 'item_parts': ('pffexport',),
          'recovered_items': ('pffexport',), 'folder_classes': ('pffexport',), 'export_oracle': ('readpst',)}

if __name__ == '__main__':
    if len(sys.argv) not in (2, 3) or sys.argv[1] not in TABLES:
        sys.exit(__doc__)
    table = sys.argv[1]
    run = Run(table, sys.argv[2] if len(sys.argv) > 2 else os.environ.get('TESTDATA', '/work/shared/testdata'),
              TABLES[table])
    try:
        header, lines = globals()['make_' + table](run)
        out = os.path.join(HERE, table + '.tsv')
        with open(out + '.new', 'w', encoding='utf-8', newline='\n') as f:
            f.write('\n'.join([header] + lines) + '\n')
        os.replace(out + '.new', out)
        note('wrote ' + out)
    finally:
        shutil.rmtree(run.work)
