"""marrow-cli export --to eml over all 35 sample stores, item by item against
the files readpst writes for the same items (tests/data/oracle/export_oracle.tsv,
made by make_export_oracle.sh): folder, subject, sender, recipients, date,
plain and HTML body, attachment files, embedded messages. pffexport's
items.tsv and item_parts.tsv stand in where readpst has nothing to say
(contacts, appointments) and confirm the verdicts below.

Also: every EML parses without defects; items that are not mail come out as
their rendered rows (ExtraInformation.txt attached, rows or body in the HTML);
non-ASCII text reads back as the store holds it, every text part in the one
charset it declares.

Every difference is either explained by a rule (RULES: a verdict and the
condition that proves it) or pinned item by item (PINS). A pin that no longer
matches fails too, so the list stays exact.

Usage: check_export_oracle.py MARROW_CLI TESTDATA_DIR ORACLE_DIR [--report]
Exits 77 (skipped) when TESTDATA_DIR is absent. --report prints every
difference with its verdict and the agreement table."""
import collections
import datetime
import email
import email.policy
import html
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'data', 'oracle'))
from oracle_mail import digest, norm_text, read_eml  # noqa: E402

STORE_DIRS = ('pst/ansi', 'pst/unicode', 'ost/unicode512', 'ost4k')

# ------------------------------------------------------------ oracles
def unesc(s):
    """The TSV escapes undone; \\xNN bytes that are not UTF-8 come back as surrogates."""
    out, i = bytearray(), 0
    b = s.encode('utf-8')
    while i < len(b):
        if b[i] == 0x5C and i + 1 < len(b):
            n = b[i + 1]
            if n == ord('x'):
                out.append(int(b[i + 2:i + 4], 16))
                i += 4
                continue
            out.extend({ord('t'): b'\t', ord('n'): b'\n', ord('r'): b'\r', ord('\\'): b'\\'}[n])
            i += 2
            continue
        out.append(b[i])
        i += 1
    return out.decode('utf-8', 'surrogateescape')


def read_tsv(path):
    with open(path, encoding='utf-8') as f:
        head = f.readline().rstrip('\n').split('\t')
        return [dict(zip(head, line.rstrip('\n').split('\t'))) for line in f if line.strip()]


def load_readpst(path):
    """store -> node id -> the item as readpst wrote it."""
    items = collections.defaultdict(dict)
    for row in read_tsv(path):
        it = items[row['store']].setdefault(int(row['node_id'], 16), {'attachments': [], 'messages': []})
        if row['part'] == 'item':
            it.update({k: row[k] for k in ('kind', 'date')})
            it['folder'] = unesc(row['folder_path'])
            for k in ('subject', 'from', 'to', 'cc'):
                it[k] = unesc(row[k])
            it['text'] = (row['text_bytes'], row['text_sha256'])
            it['html'] = (row['html_bytes'], row['html_sha256'])
        elif row['part'] == 'attachment':
            it['attachments'].append((unesc(row['name']), int(row['bytes']), row['sha256']))
        elif row['part'] == 'message':
            it['messages'].append({'subject': unesc(row['subject']), 'from': unesc(row['from']),
                                   'date': row['date'], 'text': (row['text_bytes'], row['text_sha256']),
                                   'html': (row['html_bytes'], row['html_sha256']), 'attachments': []})
        else:
            it['messages'][int(row['n'].split('.')[0]) - 1]['attachments'].append(
                (unesc(row['name']), int(row['bytes']), row['sha256']))
    return items


def pff_time(text):
    """items.tsv's 'Mar 15, 2010 17:12:05.951519700 UTC' as a UTC datetime; None for '-'."""
    if text == '-':
        return None
    d = datetime.datetime.strptime(text.split('.')[0], '%b %d, %Y %H:%M:%S')
    return d.replace(tzinfo=datetime.timezone.utc)


def load_pffexport(oracle_dir):
    """(items.tsv rows, item_parts.tsv rows) by (store, node id)."""
    items = {(r['store'], int(r['node_id'], 16)): r for r in read_tsv(os.path.join(oracle_dir, 'items.tsv'))}
    parts = collections.defaultdict(list)
    for r in read_tsv(os.path.join(oracle_dir, 'item_parts.tsv')):
        parts[(r['store'], int(r['node_id'], 16))].append(r)
    return items, parts


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
        parts = [f['name']]
        at = by_id.get(f['parentId'])
        while at is not None:
            if at['name']:
                if at['name'].upper() in TOP_FOLDERS:
                    break
                parts.insert(0, at['name'])
            at = by_id.get(at['parentId'])
        out[f['nodeId']] = '/'.join(safe_component(p) for p in parts)
    return out


# The export's reading of a message class (content/item_render.cpp ClassifyItem):
# the first of these found in the class, else mail.
CLASS_RULES = (('IPM.CONTACT', 'contact'), ('IPM.TASK', 'task'), ('IPM.NOTE', 'mail'), ('IPM.POST', 'mail'),
               ('IPM.APPO', 'calendar'), ('IPM.SCHEDULE', 'calendar'), ('MEETING', 'calendar'),
               ('IPM.ACTIVITY', 'journal'), ('IPM.STICK', 'note'), ('IPM.DIST', 'contact'))
REBUILT = {'contact', 'task', 'calendar', 'journal'}


def item_kind(message_class):
    upper = message_class.upper()
    return next((k for text, k in CLASS_RULES if text in upper), 'mail')


class Ours:
    """One store exported, and the list rows that tell which file is which item."""

    def __init__(self, cli, source, work):
        self.name = os.path.basename(source)
        os.makedirs(work)
        self.store = os.path.join(work, self.name)
        shutil.copyfile(source, self.store)
        out = os.path.join(work, 'out')
        os.mkdir(out)
        snap = os.path.join(work, 'tree.snapshot')
        code, text = run_cli(cli, 'tree', self.store, '--json', '--save-snapshot', snap)
        assert code == 0, (source, text)
        folders = json.loads(text)['folders']
        self.top_name = next((f['name'] for f in folders if f['nodeId'] == TOP_OF_FOLDERS_ID), None)
        code, text = run_cli(cli, 'export', self.store, '--to', 'eml', '--out', out)
        assert code == 0, (source, text)
        self.root = os.path.join(out, self.name)
        self.items = {}     # node id -> (folder directory, EML path or None, list row)
        self.lost = []      # old copies the scan found: (folder directory, EML path or None, list row)
        placed = set()
        dirs = export_dirs(folders)
        for f in folders:
            if f['items'] == 0:
                continue
            code, text = run_cli(cli, 'list', self.store, f['path'], '--json', '--snapshot', snap)
            assert code == 0, (source, f['path'], text)
            n = 0
            for row in json.loads(text)['items']:
                # The export counts an item that shows a sender, a subject or a date.
                if not (row['from'] or row['subject'] or row['date']):
                    continue
                n += 1
                path = os.path.join(self.root, dirs[f['nodeId']], '%d.eml' % n)
                if os.path.isfile(path):
                    placed.add(os.path.realpath(path))
                else:
                    path = None
                entry = (dirs[f['nodeId']], path, row)
                if row['status'] == 'Existing':
                    assert row['nodeId'] not in self.items, (source, row)
                    self.items[row['nodeId']] = entry
                else:
                    self.lost.append(entry)
        self.unplaced = [os.path.relpath(os.path.join(dp, name), self.root)
                         for dp, dn, fn in os.walk(self.root) for name in fn
                         if os.path.realpath(os.path.join(dp, name)) not in placed]


def html_body_text(markup):
    """The text of the HTML body BuildItemEml writes: <br> as line ends, tags dropped, entities read."""
    body = re.sub(r'(?is)^.*?<body>', '', markup)
    body = re.sub(r'(?i)<br>\r?\n?', '\n', body)
    body = re.sub(r'<[^>]*>', '', body)
    return norm_text(html.unescape(body))


# ------------------------------------------------------------ verdicts
# export_verdicts.tsv: every kind of difference a rule explains (V, name -> why;
# the condition that proves it is in compare_*), every single item pinned with
# why (PINS, (store, node id, field) -> why), and non-ASCII text as the store
# holds it (EXPECT_TEXT: 'subject' the EML's subject, 'embedded' the last words
# of an attached message's subject, 'extra' a line of ExtraInformation.txt,
# 'attachment' a file name).
V, PINS, EXPECT_TEXT = {}, {}, []


def load_verdicts(oracle_dir):
    for r in read_tsv(os.path.join(oracle_dir, 'export_verdicts.tsv')):
        key, text = unesc(r['store_or_rule']), unesc(r['text'])
        if r['kind'] == 'rule':
            V[key] = text
        elif r['kind'] == 'pin':
            PINS[(key, int(r['node_id'], 16), r['field'])] = text
        else:
            EXPECT_TEXT.append((key, int(r['node_id'], 16), r['field'], text))


EMPTY = digest('')


# ------------------------------------------------------------ comparing
def agree():
    return ('agree',)


def rule(name):
    return ('rule', name)


def differ(ours, theirs):
    return ('diff', ours, theirs)


def addr_set(v):
    return sorted({a.lower() for a in v.split(';')}) if v != '-' else []


def has_stored_headers(msg):
    own = {'from', 'subject', 'mime-version', 'date', 'content-type', 'content-transfer-encoding', 'to', 'cc',
           'bcc'}
    return any(k.lower() not in own for k in msg.keys())


def compare_folder(ours_dir, want, top_name):
    expected = '/'.join(safe_component(p) for p in want.split('/')) if want != '.' else ''
    if ours_dir == expected:
        return agree()
    if top_name and ours_dir == '/'.join(x for x in (safe_component(top_name), expected) if x):
        return rule('top-localised')
    return differ(ours_dir, expected)


def compare_subject(kind, ours, want, pff):
    if kind == 'vcf':
        if pff is not None and ours == unesc(pff['subject']):
            return agree() if ours == want else rule('vcf-name')
        return differ(ours, want)
    if ours == want:
        return agree()
    if ours == want.rstrip() and want != want.rstrip():
        return rule('trailing-blank')
    return differ(ours, want)


def compare_from(ours, want):
    want = '-' if want.lower() == 'mailer-daemon' else want.lower()
    if ours.lower() == want:
        return agree() if want != '-' else rule('no-address')
    return differ(ours, want)


def compare_recipients(ours, want, msg):
    a, b = addr_set(ours), addr_set(want)
    if a == b:
        return agree()
    if not a and not has_stored_headers(msg):
        return rule('no-headers-no-to')
    return differ(a, b)


# Dates that agree to the minute only: GetDateText, which the Date is made
# from, carries no seconds.
SECONDS_DROPPED = [0]


def compare_date(kind, ours, want, pff):
    delivery = pff_time(pff['delivery_time']) if pff is not None else None
    at_delivery = delivery is not None and ours[:16] == delivery.strftime('%Y-%m-%dT%H:%M')
    if ours == '-' and delivery is None and (kind != 'eml' or want == '-'):
        return agree()   # no time to give
    if kind == 'eml':
        if want != '-' and ours[:16] == want[:16]:
            if ours != want:
                SECONDS_DROPPED[0] += 1
            return agree()
        if want != '-' and at_delivery:
            return rule('date-delivery')
        if want == '-' and at_delivery and pff['client_submit_time'] == '-':
            return rule('date-no-sent')
        return differ(ours, want)
    return rule('date-item') if at_delivery else differ(ours, want)


def compare_bodies(kind, mine, want, pff, rebuilt):
    """(text verdict, html verdict)."""
    if kind == 'vcf':
        return None, None
    if kind == 'ics' or rebuilt:
        ours = digest(html_body_text(mine['html_str'])) if mine['html_str'] is not None else ('-', '-')
        if want['text'] != ('-', '-'):
            text = agree() if ours == want['text'] else differ(ours, want['text'])
        else:
            text = None
        html_v = rule('rebuilt-body') if kind == 'eml' and mine['html'] != want['html'] else None
        return text, html_v
    if mine['text'] == want['text']:
        text = agree()
    elif mine['text'] == ('-', '-') and mine['html'] != ('-', '-') and mine['html'] == want['html']:
        text = rule('one-body')
    elif (mine['text'] != ('-', '-') and want['text'] == ('-', '-') and pff is not None and
          pff['plain_body_bytes'] == '-' and pff['html_body_bytes'] == '-' and pff['rtf_body_bytes'] != '-'):
        text = rule('rtf-only')
    elif mine['text'] == EMPTY and want['text'] == ('-', '-') and pff is not None and pff['plain_body_bytes'] == '0':
        text = rule('empty-plain')
    else:
        text = differ(mine['text'], want['text'])
    html_v = agree() if mine['html'] == want['html'] else differ(mine['html'], want['html'])
    return text, html_v


def files_of(attachments):
    return sorted((a[0], a[1], a[2]) for a in attachments)


def compare_files(ours, want):
    a, b = files_of(ours), sorted(want)
    if a == b:
        return agree()
    if sorted(x[1:] for x in a) == sorted(x[1:] for x in b):
        named = {x[1:]: x[0] for x in a}
        if all(named[x[1:]] == 'Picture (Device Independent Bitmap)' for x in b if x not in a):
            return rule('ole-name')
    return differ(a, b)


def compare_messages(ours, want):
    mine = sorted(ours, key=lambda m: m['subject'])
    theirs = sorted(want, key=lambda m: m['subject'])
    if [m['subject'] for m in mine] != [m['subject'] for m in theirs]:
        return differ([m['subject'] for m in mine], [m['subject'] for m in theirs])
    used = None
    for m, w in zip(mine, theirs):
        if files_of(m['attachments']) != sorted(w['attachments']):
            return differ((m['subject'], files_of(m['attachments'])), (w['subject'], w['attachments']))
        if m['html'] != w['html'] or (m['text'] != w['text'] and
                                      not (m['text'] == ('-', '-') and m['html'] != ('-', '-'))):
            return differ((m['subject'], m['text'], m['html']), (w['subject'], w['text'], w['html']))
        if m['text'] != w['text']:
            used = 'one-body'
    return rule(used) if used else agree()


def rows_check(attachments, mine):
    """An item that is not mail: its rows attached as ExtraInformation.txt, and in the HTML body
    unless the body holds the item's plain body. '' when so, else what is wrong."""
    extra = [a for a in attachments if a[0] == 'ExtraInformation.txt']
    if len(extra) != 1:
        return 'no ExtraInformation.txt'
    rows = [l for l in norm_text(extra[0][4].decode('utf-8', 'replace')).split('\n') if l.strip()]
    if not rows:
        return 'ExtraInformation.txt is empty'
    body = html_body_text(mine['html_str'] or '')
    if not body:
        return 'empty HTML body'
    if all(r.strip() in body for r in rows) or not any(r.strip() in body for r in rows):
        return ''   # the rows, or the plain body instead of them
    return 'HTML body holds some rows only'


def charset_check(strict):
    """'' when every text part declares a charset its bytes decode in; else the first fault."""
    for p in strict.walk():
        if p.get_content_maintype() != 'text' or p.is_multipart():
            continue
        cs = p.get_content_charset()
        raw = p.get_payload(decode=True) or b''
        if cs is None and any(b > 127 for b in raw):
            return '%s part with 8-bit bytes and no charset' % p.get_content_type()
        try:
            raw.decode(cs or 'us-ascii')
        except (LookupError, UnicodeDecodeError) as e:
            return '%s part not %s: %s' % (p.get_content_type(), cs, e)
    return ''


def text_found(where, text, mine, attachments, inner):
    if where == 'subject':
        return mine['subject'] == text
    if where == 'embedded':
        return any(m['subject'].endswith(' ' + text) for m in inner)
    if where == 'attachment':
        return any(a[0] == text for a in attachments)
    extra = [a for a in attachments if a[0] == 'ExtraInformation.txt']
    return bool(extra) and text in extra[0][4].decode('utf-8', 'replace')


# ------------------------------------------------------------ the run
FIELDS = ('item', 'parse', 'folder', 'subject', 'from', 'to', 'cc', 'date', 'text', 'html', 'attachments',
          'messages', 'rows', 'charset', 'nonascii')


class Tally:
    def __init__(self):
        self.counts = collections.defaultdict(collections.Counter)   # (store, field) -> status -> n
        self.lines = []          # (status, store, node, field, text)
        self.pins_used = set()

    def add(self, store, node, field, outcome):
        if outcome is None:
            return
        key = (store, node, field)
        if outcome[0] == 'agree':
            if key in PINS:
                self.pins_used.add(key)
                self.lines.append(('STALE', store, node, field, 'pinned, but agrees now: ' + PINS[key]))
                self.counts[(store, field)]['fail'] += 1
            else:
                self.counts[(store, field)]['agree'] += 1
            return
        if outcome[0] == 'rule':
            self.counts[(store, field)]['rule'] += 1
            self.lines.append(('rule', store, node, field, V[outcome[1]]))
            return
        text = 'ours %r, oracle %r' % (outcome[1], outcome[2])
        if key in PINS:
            self.pins_used.add(key)
            self.counts[(store, field)]['pin'] += 1
            self.lines.append(('pin', store, node, field, '%s -- %s' % (PINS[key], text)))
        else:
            self.counts[(store, field)]['fail'] += 1
            self.lines.append(('FAIL', store, node, field, text))


REPORT_TYPES = ('message/delivery-status', 'message/disposition-notification')


def check_store(tally, store, ours, readpst, pitems, pparts):
    want_items = readpst.get(store, {})
    for node, want in sorted(want_items.items()):
        add = lambda field, outcome: tally.add(store, node, field, outcome)
        if node not in ours.items:
            add('item', differ('no item', want['subject']))
            continue
        folder, path, row = ours.items[node]
        if path is None:
            add('item', differ('no file', want['subject']))
            continue
        add('item', agree())
        with open(path, 'rb') as f:
            data = f.read()
        msg, mine, attachments, inner = read_eml(data)
        kind = want['kind']
        rebuilt = item_kind(row['messageClass']) in REBUILT
        pff = pitems.get((store, node))
        add('folder', compare_folder(folder, want['folder'], ours.top_name))
        add('subject', compare_subject(kind, mine['subject'], want['subject'], pff))
        if kind == 'eml':
            add('from', compare_from(mine['from'], want['from']))
            add('to', compare_recipients(mine['to'], want['to'], msg))
            add('cc', compare_recipients(mine['cc'], want['cc'], msg))
        add('date', compare_date(kind, mine['date'], want['date'], pff))
        text, html_v = compare_bodies(kind, mine, want, pff, rebuilt)
        add('text', text)
        add('html', html_v)
        files = [a for a in attachments if not (rebuilt and a[0] == 'ExtraInformation.txt')]
        if kind == 'eml':
            add('attachments', compare_files(files, want['attachments']))
            add('messages', compare_messages(inner, want['messages']))
        else:
            parts = pparts.get((store, node), [])
            pff_files = [(unesc(p['name']), int(p['bytes']), p['sha256']) for p in parts
                         if p['part'] == 'attachment' and p['kind'] == 'file']
            pff_messages = sum(1 for p in parts if p['part'] == 'attachment' and p['kind'].startswith('message:'))
            outcome = compare_files(files, pff_files)
            add('attachments', rule('ics-attachments') if outcome == agree() and pff_files else outcome)
            add('messages', rule('ics-messages') if len(inner) == pff_messages and inner else
                agree() if len(inner) == pff_messages else differ(len(inner), pff_messages))

    # Items readpst does not write.
    for node, (folder, path, row) in sorted(ours.items.items()):
        if node in want_items:
            continue
        cls = row['messageClass'].upper()
        outcome = (rule('distlist') if cls.startswith('IPM.DISTLIST') else
                   rule('freebusy') if cls.startswith('IPM.MICROSOFT.SCHEDULEDATA.FREEBUSY') else
                   rule('post') if cls.startswith('IPM.POST') else
                   differ('exported ' + row['messageClass'], 'not written'))
        tally.add(store, node, 'item', outcome)

    # Every file of ours: parses, rows of items that are not mail, one charset per part.
    entries = [(node, e) for node, e in ours.items.items()] + [(e[2]['nodeId'], e) for e in ours.lost]
    for node, (folder, path, row) in entries:
        if path is None:
            continue
        lost = row['status'] != 'Existing'
        with open(path, 'rb') as f:
            data = f.read()
        strict = email.message_from_bytes(data, policy=email.policy.default)
        defects = []

        def walk(p, report):
            report = report or p.get_content_type() in REPORT_TYPES
            defects.extend((report, type(d).__name__) for d in p.defects)
            if p.is_multipart():
                for sub in p.get_payload():
                    walk(sub, report)
        walk(strict, False)
        for h in ('From', 'To', 'Cc', 'Subject', 'Date'):
            if strict[h] is not None:
                defects += [(h, type(d).__name__) for d in strict[h].defects]
        if not defects:
            outcome = agree()
        elif all(t is True and d == 'MissingHeaderBodySeparatorDefect' for t, d in defects):
            outcome = rule('report-part')
        else:
            outcome = differ(defects, [])
        if not lost:
            tally.add(store, node, 'parse', outcome)
        elif outcome[0] == 'diff':
            tally.add(store, node, 'parse', outcome)
        msg, mine, attachments, inner = read_eml(data)
        fault = charset_check(strict)
        if not fault and strict['Subject'] is not None and str(strict['Subject']) != mine['subject']:
            fault = 'subject reads %r strictly, %r otherwise' % (str(strict['Subject']), mine['subject'])
        if not lost or fault:
            tally.add(store, node, 'charset', differ(fault, '') if fault else agree())
        if item_kind(row['messageClass']) in REBUILT and not lost:
            fault = rows_check(attachments, mine)
            tally.add(store, node, 'rows', differ(fault, 'rows') if fault else agree())
    for st, node, where, text in EXPECT_TEXT:
        if st != store:
            continue
        path = ours.items.get(node, (None, None))[1]
        found = False
        if path is not None:
            with open(path, 'rb') as f:
                msg, mine, attachments, inner = read_eml(f.read())
            found = text_found(where, text, mine, attachments, inner)
        tally.add(store, node, 'nonascii', agree() if found else differ('no %s %r' % (where, text), text))


def main():
    if len(sys.argv) < 4:
        sys.exit(__doc__)
    cli, testdata, oracle_dir = sys.argv[1:4]
    report = '--report' in sys.argv[4:]
    if not os.path.isdir(testdata):
        print('skipped: no test data at %s' % testdata)
        sys.exit(77)
    readpst = load_readpst(os.path.join(oracle_dir, 'export_oracle.tsv'))
    load_verdicts(oracle_dir)
    pitems, pparts = load_pffexport(oracle_dir)
    stores = sorted(os.path.join(d, f) for d in STORE_DIRS for f in os.listdir(os.path.join(testdata, d))
                    if f.endswith(('.pst', '.ost')))
    assert len(stores) == 35 and set(readpst) <= set(stores), stores
    tally = Tally()
    problems = []
    work = tempfile.mkdtemp(prefix='marrow-export-oracle-%d-' % os.getpid())
    try:
        for i, store in enumerate(stores):
            ours = Ours(cli, os.path.join(testdata, store), os.path.join(work, 'store%d-%d' % (i, os.getpid())))
            problems += ['%s: %s is no item the list shows' % (store, p) for p in ours.unplaced]
            check_store(tally, store, ours, readpst, pitems, pparts)
    finally:
        shutil.rmtree(work)
    problems += ['pin matches nothing: %s 0x%x %s' % k for k in sorted(set(PINS) - tally.pins_used)]

    failures = [l for l in tally.lines if l[0] in ('FAIL', 'STALE')]
    if report:
        for status, store, node, field, text in tally.lines:
            print('%-5s %s 0x%x %s: %s' % (status, store, node, field, text))
        print()
        print('dates that agree to the minute, not to the second: %d' % SECONDS_DROPPED[0])
        print('agreement per store: agree/compared (+ by rule, pinned, FAIL)')
        print('%-50s %s' % ('store', ' '.join('%-12s' % f for f in FIELDS)))
        for store in stores:
            cells = []
            for f in FIELDS:
                c = tally.counts.get((store, f), collections.Counter())
                n = sum(c.values())
                cell = '%d/%d' % (c['agree'], n) if n else '-'
                extra = ''.join(x for x, k in (('r', 'rule'), ('p', 'pin'), ('F', 'fail')) if c[k])
                cells.append('%-12s' % (cell + ('' if not extra else '+' + extra)))
            print('%-50s %s' % (store, ' '.join(cells)))
    for status, store, node, field, text in failures:
        print('%s %s 0x%x %s: %s' % (status, store, node, field, text))
    for p in problems:
        print('PROBLEM ' + p)
    if failures or problems:
        sys.exit(1)
    print('ok')


if __name__ == '__main__':
    main()
