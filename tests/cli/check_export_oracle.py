"""marrow-cli export --to eml over all 35 sample stores, item by item against the files readpst writes
for the same items (tests/data/oracle/export_oracle.tsv): folder, subject, sender, recipients, date,
plain and HTML body, attachment files, embedded messages. pffexport's items.tsv and item_parts.tsv stand
in where readpst has nothing to say (contacts, appointments) and confirm the verdicts.

Also: every EML parses without defects; items that are not mail come out as their rendered rows
(ExtraInformation.txt attached, rows or body in the HTML); non-ASCII text reads back as the store holds
it, every text part in the one charset it declares.

Every difference is either explained by a rule of export_verdicts.tsv (the condition that proves it is
in the compare_* below) or pinned there item by item. A pin that no longer matches fails too.

Usage: check_export_oracle.py MARROW_CLI TESTDATA_DIR ORACLE_DIR [--report]
Exits 77 (skipped) when TESTDATA_DIR is absent. --report prints every difference with its verdict and
the agreement table."""
import collections, datetime, email, email.policy, html, json, os, re, shutil, subprocess, sys, tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'data', 'oracle'))
from oracle_mail import digest, norm_text, read_eml  # noqa: E402

STORE_DIRS = ('pst/ansi', 'pst/unicode', 'ost/unicode512', 'ost4k')
NONE = ('-', '-')
EMPTY = digest('')


# ------------------------------------------------------------ oracles
def unesc(s):
    """The TSV escapes undone; \\xNN bytes that are not UTF-8 come back as surrogates."""
    plain = {b't': b'\t', b'n': b'\n', b'r': b'\r', b'\\': b'\\'}
    return re.sub(rb'\\(x[0-9a-fA-F]{2}|[tnr\\])',
                  lambda m: plain.get(m.group(1)) or bytes([int(m.group(1)[1:], 16)]),
                  s.encode('utf-8')).decode('utf-8', 'surrogateescape')


def read_tsv(path):
    with open(path, encoding='utf-8') as f:
        head = f.readline().rstrip('\n').split('\t')
        return [dict(zip(head, line.rstrip('\n').split('\t'))) for line in f if line.strip()]


def load_readpst(path):
    """store -> node id -> the item as readpst wrote it; its embedded messages alike."""
    items = collections.defaultdict(dict)
    for r in read_tsv(path):
        it = items[r['store']].setdefault(int(r['node_id'], 16), {'attachments': [], 'messages': []})
        fields = {k: unesc(r[k]) for k in ('subject', 'from', 'to', 'cc')}
        fields.update(kind=r['kind'], date=r['date'], folder=unesc(r['folder_path']),
                      text=(r['text_bytes'], r['text_sha256']), html=(r['html_bytes'], r['html_sha256']))
        if r['part'] == 'item':
            it.update(fields)
        elif r['part'] == 'message':
            it['messages'].append(dict(fields, attachments=[]))
        else:
            owner = it if r['part'] == 'attachment' else it['messages'][int(r['n'].split('.')[0]) - 1]
            owner['attachments'].append((unesc(r['name']), int(r['bytes']), r['sha256']))
    return items


def load_verdicts(path):
    """Rules (name -> why), pins ((store, node id, field) -> why) and non-ASCII text the store holds
    ((store, node id, where, text): where is 'subject', 'embedded' the end of an attached message's
    subject, 'extra' a line of ExtraInformation.txt, 'attachment' a file name)."""
    rules, pins, texts = {}, {}, []
    for r in read_tsv(path):
        key, text = unesc(r['store_or_rule']), unesc(r['text'])
        if r['kind'] == 'rule':
            rules[key] = text
        elif r['kind'] == 'pin':
            pins[(key, int(r['node_id'], 16), r['field'])] = text
        else:
            texts.append((key, int(r['node_id'], 16), r['field'], text))
    return rules, pins, texts


# ------------------------------------------------------------ our side
def run_cli(cli, *args):
    run = subprocess.run([cli, *args], capture_output=True, env=dict(os.environ, TZ='UTC'))
    return run.returncode, run.stdout.decode('utf-8', 'surrogateescape')


TOP_FOLDERS = {'IPM_SUBTREE', 'TOP OF PERSONAL FOLDERS', 'TOP OF OUTLOOK DATA FILE'}
TOP_OF_FOLDERS_ID = 0x8022


def safe_component(name):
    out = re.sub(r'[/:*?"<>|\0]', '_', name)
    return '_' if out in ('', '.', '..') else out


def export_dirs(folders):
    """Folder node id -> the folder's directory below the store's export directory:
    names from the folder up, stopping below a top folder, as the export names them."""
    by_id = {f['nodeId']: f for f in folders}
    out = {}
    for f in folders:
        parts, at = [f['name']], by_id.get(f['parentId'])
        while at is not None and (not at['name'] or at['name'].upper() not in TOP_FOLDERS):
            parts[:0] = [at['name']] if at['name'] else []
            at = by_id.get(at['parentId'])
        out[f['nodeId']] = '/'.join(safe_component(p) for p in parts)
    return out


# The export's reading of a message class (content/item_render.cpp ClassifyItem):
# the first of these found in the class, else mail.
CLASS_RULES = (('IPM.CONTACT', 'contact'), ('IPM.TASK', 'task'), ('IPM.NOTE', 'mail'), ('IPM.POST', 'mail'),
               ('IPM.APPO', 'calendar'), ('IPM.SCHEDULE', 'calendar'), ('MEETING', 'calendar'),
               ('IPM.ACTIVITY', 'journal'), ('IPM.STICK', 'note'), ('IPM.DIST', 'contact'))


def rebuilt(message_class):
    """Whether the export renders the item as rows rather than as mail."""
    kind = next((k for text, k in CLASS_RULES if text in message_class.upper()), 'mail')
    return kind in {'contact', 'task', 'calendar', 'journal'}


class Ours:
    """One store exported, and the list rows that tell which file is which item."""

    def __init__(self, cli, source, work):
        self.name = os.path.basename(source)
        os.makedirs(work)
        self.store, out, snap = (os.path.join(work, n) for n in (self.name, 'out', 'tree.snapshot'))
        shutil.copyfile(source, self.store)
        os.mkdir(out)
        code, text = run_cli(cli, 'tree', self.store, '--json', '--save-snapshot', snap)
        assert code == 0, (source, text)
        folders = json.loads(text)['folders']
        self.top_name = next((f['name'] for f in folders if f['nodeId'] == TOP_OF_FOLDERS_ID), None)
        code, text = run_cli(cli, 'export', self.store, '--to', 'eml', '--out', out)
        assert code == 0, (source, text)
        self.root = os.path.join(out, self.name)
        self.items = {}     # node id -> (folder directory, EML path or None, list row)
        self.lost = []      # old copies the scan found: (folder directory, EML path or None, list row)
        self.cache = {}
        placed = set()
        dirs = export_dirs(folders)
        for f in (f for f in folders if f['items']):
            code, text = run_cli(cli, 'list', self.store, f['path'], '--json', '--snapshot', snap)
            assert code == 0, (source, f['path'], text)
            # The export counts an item that shows a sender, a subject or a date.
            rows = [r for r in json.loads(text)['items'] if r['from'] or r['subject'] or r['date']]
            for n, row in enumerate(rows, 1):
                path = os.path.join(self.root, dirs[f['nodeId']], '%d.eml' % n)
                path = path if os.path.isfile(path) else None
                placed.add(path and os.path.realpath(path))
                if row['status'] == 'Existing':
                    assert row['nodeId'] not in self.items, (source, row)
                    self.items[row['nodeId']] = (dirs[f['nodeId']], path, row)
                else:
                    self.lost.append((dirs[f['nodeId']], path, row))
        self.unplaced = [os.path.relpath(os.path.join(dp, name), self.root)
                         for dp, dn, fn in os.walk(self.root) for name in fn
                         if os.path.realpath(os.path.join(dp, name)) not in placed]

    def read(self, path):
        """The file's bytes, and (message, fields, attachments, embedded messages) as read_eml gives them."""
        if path not in self.cache:
            with open(path, 'rb') as f:
                data = f.read()
            self.cache[path] = (data, read_eml(data))
        return self.cache[path]


def html_body_text(markup):
    """The text of the HTML body BuildItemEml writes: <br> as line ends, tags dropped, entities read."""
    body = re.sub(r'(?is)^.*?<body>', '', markup)
    body = re.sub(r'(?i)<br>\r?\n?', '\n', body)
    return norm_text(html.unescape(re.sub(r'<[^>]*>', '', body)))


# ------------------------------------------------------------ comparing: AGREE, a rule, or a difference
AGREE = ('agree',)


def rule(name):
    return ('rule', name)


def differ(ours, theirs):
    return ('diff', ours, theirs)


def compare_folder(ours_dir, want, top_name):
    expected = '/'.join(safe_component(p) for p in want.split('/')) if want != '.' else ''
    if ours_dir == expected:
        return AGREE
    if top_name and ours_dir == '/'.join(x for x in (safe_component(top_name), expected) if x):
        return rule('top-localised')
    return differ(ours_dir, expected)


def compare_subject(kind, ours, want, pff):
    if kind == 'vcf':
        if pff is not None and ours == unesc(pff['subject']):
            return AGREE if ours == want else rule('vcf-name')
    elif ours == want:
        return AGREE
    elif ours == want.rstrip() != want:
        return rule('trailing-blank')
    return differ(ours, want)


def compare_from(ours, want):
    want = '-' if want.lower() == 'mailer-daemon' else want.lower()
    if ours.lower() == want:
        return AGREE if want != '-' else rule('no-address')
    return differ(ours, want)


def compare_recipients(ours, want, msg):
    a, b = ([] if v == '-' else sorted({x.lower() for x in v.split(';')}) for v in (ours, want))
    if a == b:
        return AGREE
    own = {'from', 'subject', 'mime-version', 'date', 'content-type', 'content-transfer-encoding', 'to', 'cc', 'bcc'}
    if not a and all(k.lower() in own for k in msg.keys()):
        return rule('no-headers-no-to')
    return differ(a, b)


# Dates that agree to the minute only: GetDateText, which the Date is made from, carries no seconds.
STATS = collections.Counter()


def compare_date(kind, ours, want, pff):
    delivery = pff is not None and pff['delivery_time'] != '-' and datetime.datetime.strptime(
        pff['delivery_time'].split('.')[0], '%b %d, %Y %H:%M:%S').strftime('%Y-%m-%dT%H:%M')
    at_delivery = bool(delivery) and ours[:16] == delivery
    if ours == '-' and not delivery and (kind != 'eml' or want == '-'):
        return AGREE   # no time to give
    if kind != 'eml':
        return rule('date-item') if at_delivery else differ(ours, want)
    if want != '-' and ours[:16] == want[:16]:
        STATS['seconds dropped'] += ours != want
        return AGREE
    if want != '-' and at_delivery:
        return rule('date-delivery')
    if want == '-' and at_delivery and pff['client_submit_time'] == '-':
        return rule('date-no-sent')
    return differ(ours, want)


def compare_bodies(kind, mine, want, pff, is_rebuilt):
    """(text verdict, html verdict); None where nothing is compared."""
    if kind == 'vcf':
        return None, None
    if kind == 'ics' or is_rebuilt:
        ours = digest(html_body_text(mine['html_str'])) if mine['html_str'] is not None else NONE
        text = None if want['text'] == NONE else AGREE if ours == want['text'] else differ(ours, want['text'])
        return text, rule('rebuilt-body') if kind == 'eml' and mine['html'] != want['html'] else None
    pff = pff or {}
    if mine['text'] == want['text']:
        text = AGREE
    elif mine['text'] == NONE and mine['html'] != NONE and mine['html'] == want['html']:
        text = rule('one-body')
    elif (mine['text'] != NONE and want['text'] == NONE and pff.get('plain_body_bytes') == '-' and
          pff['html_body_bytes'] == '-' and pff['rtf_body_bytes'] != '-'):
        text = rule('rtf-only')
    elif mine['text'] == EMPTY and want['text'] == NONE and pff.get('plain_body_bytes') == '0':
        text = rule('empty-plain')
    else:
        text = differ(mine['text'], want['text'])
    return text, AGREE if mine['html'] == want['html'] else differ(mine['html'], want['html'])


def files_of(attachments):
    return sorted(a[:3] for a in attachments)


def compare_files(ours, want):
    a, b = files_of(ours), sorted(want)
    if a == b:
        return AGREE
    if sorted(x[1:] for x in a) == sorted(x[1:] for x in b):
        named = {x[1:]: x[0] for x in a}
        if all(named[x[1:]] == 'Picture (Device Independent Bitmap)' for x in b if x not in a):
            return rule('ole-name')
    return differ(a, b)


def compare_messages(ours, want):
    mine, theirs = (sorted(x, key=lambda m: m['subject']) for x in (ours, want))
    if [m['subject'] for m in mine] != [m['subject'] for m in theirs]:
        return differ([m['subject'] for m in mine], [m['subject'] for m in theirs])
    used = None
    for m, w in zip(mine, theirs):
        if files_of(m['attachments']) != sorted(w['attachments']):
            return differ((m['subject'], files_of(m['attachments'])), (w['subject'], w['attachments']))
        if m['html'] != w['html'] or (m['text'] != w['text'] and not (m['text'] == NONE and m['html'] != NONE)):
            return differ((m['subject'], m['text'], m['html']), (w['subject'], w['text'], w['html']))
        used = 'one-body' if m['text'] != w['text'] else used
    return rule(used) if used else AGREE


def extra_texts(attachments):
    return [a[4].decode('utf-8', 'replace') for a in attachments if a[0] == 'ExtraInformation.txt']


def rows_fault(attachments, mine):
    """An item that is not mail: its rows attached as ExtraInformation.txt, and in the HTML body
    unless the body holds the item's plain body. '' when so, else what is wrong."""
    extra = extra_texts(attachments)
    extra = extra[0] if len(extra) == 1 else None
    rows = [r.strip() for r in norm_text(extra or '').split('\n') if r.strip()]
    body = html_body_text(mine['html_str'] or '')
    if extra is None or not rows or not body:
        return 'no ExtraInformation.txt' if extra is None else 'ExtraInformation.txt is empty' if not rows \
            else 'empty HTML body'
    found = [r in body for r in rows]
    return '' if all(found) or not any(found) else 'HTML body holds some rows only'


def charset_fault(strict, subject):
    """'' when every text part declares a charset its bytes decode in and the subject reads the same
    strictly; else the first fault."""
    for p in strict.walk():
        if p.get_content_maintype() != 'text' or p.is_multipart():
            continue
        cs, raw = p.get_content_charset(), p.get_payload(decode=True) or b''
        if cs is None and any(b > 127 for b in raw):
            return '%s part with 8-bit bytes and no charset' % p.get_content_type()
        try:
            raw.decode(cs or 'us-ascii')
        except (LookupError, UnicodeDecodeError) as e:
            return '%s part not %s: %s' % (p.get_content_type(), cs, e)
    if strict['Subject'] is not None and str(strict['Subject']) != subject:
        return 'subject reads %r strictly, %r otherwise' % (str(strict['Subject']), subject)
    return ''


REPORT_TYPES = ('message/delivery-status', 'message/disposition-notification')


def parse_outcome(strict):
    """Defects of a strict parse; those of report parts alone are the 'report-part' rule."""
    defects = []

    def walk(p, report):
        report = report or p.get_content_type() in REPORT_TYPES
        defects.extend((report, type(d).__name__) for d in p.defects)
        for sub in p.get_payload() if p.is_multipart() else []:
            walk(sub, report)
    walk(strict, False)
    defects += [(h, type(d).__name__) for h in ('From', 'To', 'Cc', 'Subject', 'Date') if strict[h] is not None
                for d in strict[h].defects]
    if not defects:
        return AGREE
    if all(t is True and d == 'MissingHeaderBodySeparatorDefect' for t, d in defects):
        return rule('report-part')
    return differ(defects, [])


def text_found(where, text, mine, attachments, inner):
    if where == 'subject':
        return mine['subject'] == text
    if where == 'embedded':
        return any(m['subject'].endswith(' ' + text) for m in inner)
    if where == 'attachment':
        return any(a[0] == text for a in attachments)
    return text in (extra_texts(attachments) or [''])[0]


# ------------------------------------------------------------ the run
FIELDS = ('item', 'parse', 'folder', 'subject', 'from', 'to', 'cc', 'date', 'text', 'html', 'attachments',
          'messages', 'rows', 'charset', 'nonascii')
# Classes readpst does not write, and the rule that says so.
NOT_WRITTEN = (('IPM.DISTLIST', 'distlist'), ('IPM.MICROSOFT.SCHEDULEDATA.FREEBUSY', 'freebusy'), ('IPM.POST', 'post'))


class Tally:
    def __init__(self, rules, pins):
        self.rules, self.pins = rules, pins
        self.counts = collections.defaultdict(collections.Counter)   # (store, field) -> status -> n
        self.lines = []          # (status, store, node, field, text)
        self.pins_used = set()

    def add(self, store, node, field, outcome):
        if outcome is None:
            return
        key = (store, node, field)
        pin = self.pins.get(key)
        if pin is not None and outcome[0] != 'rule':
            self.pins_used.add(key)
        if outcome[0] == 'rule':
            status, text = 'rule', self.rules[outcome[1]]
        elif outcome[0] == 'agree':
            status, text = ('STALE', 'pinned, but agrees now: ' + pin) if pin is not None else ('agree', None)
        else:
            text = 'ours %r, oracle %r' % outcome[1:]
            status, text = ('pin', '%s -- %s' % (pin, text)) if pin is not None else ('FAIL', text)
        self.counts[(store, field)][{'STALE': 'fail', 'FAIL': 'fail'}.get(status, status)] += 1
        if text is not None:
            self.lines.append((status, store, node, field, text))


def check_store(tally, store, ours, want_items, pitems, pparts, texts):
    for node, want in sorted(want_items.items()):
        add = lambda field, outcome: tally.add(store, node, field, outcome)
        folder, path, row = ours.items.get(node, (None, None, None))
        if path is None:
            add('item', differ('no item' if row is None else 'no file', want['subject']))
            continue
        add('item', AGREE)
        _, (msg, mine, attachments, inner) = ours.read(path)
        kind, is_rebuilt, pff = want['kind'], rebuilt(row['messageClass']), pitems.get((store, node))
        add('folder', compare_folder(folder, want['folder'], ours.top_name))
        add('subject', compare_subject(kind, mine['subject'], want['subject'], pff))
        if kind == 'eml':
            add('from', compare_from(mine['from'], want['from']))
            for field in ('to', 'cc'):
                add(field, compare_recipients(mine[field], want[field], msg))
        add('date', compare_date(kind, mine['date'], want['date'], pff))
        for field, outcome in zip(('text', 'html'), compare_bodies(kind, mine, want, pff, is_rebuilt)):
            add(field, outcome)
        files = [a for a in attachments if not (is_rebuilt and a[0] == 'ExtraInformation.txt')]
        if kind == 'eml':
            add('attachments', compare_files(files, want['attachments']))
            add('messages', compare_messages(inner, want['messages']))
            continue
        # readpst's .ics and .vcf carry no attachments: pffexport's parts stand in.
        parts = [p for p in pparts.get((store, node), []) if p['part'] == 'attachment']
        pff_files = [(unesc(p['name']), int(p['bytes']), p['sha256']) for p in parts if p['kind'] == 'file']
        pff_messages = sum(p['kind'].startswith('message:') for p in parts)
        outcome = compare_files(files, pff_files)
        add('attachments', rule('ics-attachments') if outcome == AGREE and pff_files else outcome)
        add('messages', differ(len(inner), pff_messages) if len(inner) != pff_messages else
            rule('ics-messages') if inner else AGREE)

    for node, (folder, path, row) in sorted(ours.items.items()):
        if node not in want_items:
            cls = row['messageClass'].upper()
            tally.add(store, node, 'item', next((rule(name) for prefix, name in NOT_WRITTEN if cls.startswith(prefix)),
                                                differ('exported ' + row['messageClass'], 'not written')))

    # Every file of ours: parses, one charset per part, rows of items that are not mail. For old copies
    # the scan found, only faults count.
    for node, (folder, path, row) in list(ours.items.items()) + [(e[2]['nodeId'], e) for e in ours.lost]:
        if path is None:
            continue
        lost = row['status'] != 'Existing'
        data, (msg, mine, attachments, inner) = ours.read(path)
        strict = email.message_from_bytes(data, policy=email.policy.default)
        outcome = parse_outcome(strict)
        if not lost or outcome[0] == 'diff':
            tally.add(store, node, 'parse', outcome)
        fault = charset_fault(strict, mine['subject'])
        if not lost or fault:
            tally.add(store, node, 'charset', differ(fault, '') if fault else AGREE)
        if rebuilt(row['messageClass']) and not lost:
            fault = rows_fault(attachments, mine)
            tally.add(store, node, 'rows', differ(fault, 'rows') if fault else AGREE)

    for node, where, text in ((n, w, t) for st, n, w, t in texts if st == store):
        path = ours.items.get(node, (None, None))[1]
        found = path is not None and text_found(where, text, *ours.read(path)[1][1:])
        tally.add(store, node, 'nonascii', AGREE if found else differ('no %s %r' % (where, text), text))


def print_report(tally, stores):
    for status, store, node, field, text in tally.lines:
        print('%-5s %s 0x%x %s: %s' % (status, store, node, field, text))
    print('\ndates that agree to the minute, not to the second: %d' % STATS['seconds dropped'])
    print('agreement per store: agree/compared (+ by rule, pinned, FAIL)')
    print('%-50s %s' % ('store', ' '.join('%-12s' % f for f in FIELDS)))
    for store in stores:
        cells = []
        for f in FIELDS:
            c = tally.counts.get((store, f), collections.Counter())
            n = sum(c.values())
            extra = ''.join(x for x, k in (('r', 'rule'), ('p', 'pin'), ('F', 'fail')) if c[k])
            cells.append('%-12s' % (('%d/%d' % (c['agree'], n) if n else '-') + (extra and '+' + extra)))
        print('%-50s %s' % (store, ' '.join(cells)))


def main():
    if len(sys.argv) < 4:
        sys.exit(__doc__)
    cli, testdata, oracle_dir = sys.argv[1:4]
    if not os.path.isdir(testdata):
        print('skipped: no test data at %s' % testdata)
        sys.exit(77)
    oracle = lambda name: os.path.join(oracle_dir, name)
    readpst = load_readpst(oracle('export_oracle.tsv'))
    rules, pins, texts = load_verdicts(oracle('export_verdicts.tsv'))
    pitems = {(r['store'], int(r['node_id'], 16)): r for r in read_tsv(oracle('items.tsv'))}
    pparts = collections.defaultdict(list)
    for r in read_tsv(oracle('item_parts.tsv')):
        pparts[(r['store'], int(r['node_id'], 16))].append(r)
    stores = sorted(os.path.join(d, f) for d in STORE_DIRS for f in os.listdir(os.path.join(testdata, d))
                    if f.endswith(('.pst', '.ost')))
    assert len(stores) == 35 and set(readpst) <= set(stores), stores
    tally, problems = Tally(rules, pins), []
    work = tempfile.mkdtemp(prefix='marrow-export-oracle-%d-' % os.getpid())
    try:
        for i, store in enumerate(stores):
            ours = Ours(cli, os.path.join(testdata, store), os.path.join(work, 'store%d' % i))
            problems += ['%s: %s is no item the list shows' % (store, p) for p in ours.unplaced]
            check_store(tally, store, ours, readpst.get(store, {}), pitems, pparts, texts)
    finally:
        shutil.rmtree(work)
    problems += ['pin matches nothing: %s 0x%x %s' % k for k in sorted(set(pins) - tally.pins_used)]
    if '--report' in sys.argv[4:]:
        print_report(tally, stores)
    for line in (l for l in tally.lines if l[0] in ('FAIL', 'STALE')):
        print('%s %s 0x%x %s: %s' % line)
    for p in problems:
        print('PROBLEM ' + p)
    if problems or any(l[0] in ('FAIL', 'STALE') for l in tally.lines):
        sys.exit(1)
    print('ok')


if __name__ == '__main__':
    main()
