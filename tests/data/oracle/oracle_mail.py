"""A mail message as a reader sees it, shared by make_oracle.py (over
readpst's files) and tests/cli/check_export_oracle.py (over ours)."""
import datetime, email, email.header, email.policy, email.utils, hashlib, re


def norm_text(s):
    """Line ends as LF, trailing blanks of every line and trailing empty lines dropped."""
    s = s.replace('\r\n', '\n').replace('\r', '\n')
    return '\n'.join(l.rstrip() for l in s.split('\n')).rstrip('\n')


def digest(text):
    if text is None:
        return ('-', '-')
    b = text.encode('utf-8', 'surrogateescape')
    return (str(len(b)), hashlib.sha256(b).hexdigest())


def decode(raw, charset):
    """RAW in CHARSET, as UTF-8 when Python does not know it; bytes that do not decode as surrogates."""
    try:
        return raw.decode(charset, 'surrogateescape')
    except LookupError:
        return raw.decode('utf-8', 'surrogateescape')


def header_text(v):
    """A header's text: unfolded, encoded words decoded."""
    if v is None:
        return None
    return ''.join(chunk if isinstance(chunk, str) else decode(chunk, cs or 'utf-8')
                   for chunk, cs in email.header.decode_header(re.sub(r'\r?\n(?=[ \t])', '', str(v))))


def addresses(msg, name):
    vals = msg.get_all(name) or []
    out = [a for _, a in email.utils.getaddresses([header_text(v) for v in vals]) if '@' in a]
    return ';'.join(out) if out else '-'


def date_of(msg):
    v = msg.get('Date')
    if v is None:
        return '-'
    try:
        d = email.utils.parsedate_to_datetime(str(v))
    except (TypeError, ValueError):
        return 'unparsed:' + str(v)
    if d.tzinfo is None:
        d = d.replace(tzinfo=datetime.timezone.utc)
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
    return decode(p.get_payload(decode=True) or b'', p.get_content_charset() or 'us-ascii')


def message_fields(msg, attachments, messages, readpst=False):
    """Header fields, bodies; attachments (name, size, sha256, type, bytes) and
    embedded messages appended to the lists. With readpst, its own rendering
    of a meeting (a text/calendar part) is left out."""
    plain = html = None

    def walk(p):
        nonlocal plain, html
        ctype = p.get_content_type()
        if p.get_content_maintype() == 'multipart':
            if p.is_multipart():   # a multipart without parts holds only its preamble
                for sub in p.get_payload():
                    walk(sub)
            return
        if ctype == 'message/rfc822':
            inner = p.get_payload()
            messages.append(inner[0] if isinstance(inner, list) else inner)
            return
        disp = str(p.get('Content-Disposition', '')).split(';')[0].strip().lower()
        name = filename_of(p)
        if name is None and disp == '':
            if ctype == 'text/plain' and plain is None:
                plain = norm_text(part_text(p))
                return
            if ctype == 'text/html' and html is None:
                html = norm_text(part_text(p))
                return
            if readpst and ctype == 'text/calendar':
                return
        if readpst and ctype == 'text/calendar' and name is not None and re.match(r'^i\d+\.ics$', name):
            return
        data = p.get_payload(decode=True) or b''
        if ctype.startswith('application/x-report-'):
            ctype = 'message/' + ctype[len('application/x-report-'):]
        attachments.append((name if name is not None else '-', len(data), hashlib.sha256(data).hexdigest(),
                            ctype, data))
    walk(msg)
    sender = email.utils.parseaddr(header_text(msg['From']))[1] if msg.get('From') is not None else ''
    subj = header_text(msg.get('Subject'))
    return {'subject': '-' if subj is None else subj, 'from': sender or '-', 'to': addresses(msg, 'To'),
            'cc': addresses(msg, 'Cc'), 'date': date_of(msg), 'text': digest(plain),
            'html': digest(html), 'plain_str': plain, 'html_str': html}


# Python reads a delivery or read report's status part as header blocks and
# drops its bytes; under a type of its own the part stays a file.
RX_REPORT_PART = re.compile(rb'^(Content-Type:[ \t]*)message/(delivery-status|disposition-notification)',
                            re.M | re.I)
# readpst puts an mbox "From " line (quoted) at the top of an embedded message.
RX_FROMLINE = re.compile(rb'^>From "[^"\r\n]*" \w{3} \w{3} +\d+ \d\d:\d\d:\d\d \d{4}\r?\n', re.M)


def read_eml(data, readpst=False):
    """(message, its fields, its attachments, the fields of each embedded message)."""
    if readpst:
        data = RX_FROMLINE.sub(b'', data)
    msg = email.message_from_bytes(RX_REPORT_PART.sub(rb'\1application/x-report-\2', data),
                                   policy=email.policy.compat32)
    attachments, messages = [], []
    item = message_fields(msg, attachments, messages, readpst)
    inner = [dict(message_fields(m, a, [], readpst), attachments=a) for m, a in ((m, []) for m in messages)]
    return msg, item, attachments, inner
