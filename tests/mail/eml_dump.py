"""Describes mail files the way the standard library reads them, one fact per
line with text as hex, for the mail tests to compare against. Each file's
lines follow a line "message"."""
import email
import email.policy
import sys


def dump(path):
    with open(path, 'rb') as f:
        msg = email.message_from_binary_file(f, policy=email.policy.default)
    defects = len(msg.defects)
    print('subject\t' + str(msg['subject'] or '').encode('utf-8').hex())
    for field in ('from', 'to', 'cc'):
        header = msg[field]
        for address in (header.addresses if header is not None else ()):
            addr = address.username + ('@' + address.domain if address.domain else '')
            print(field + '\t' + address.display_name.encode('utf-8').hex() + '\t' + addr)
    for part in msg.walk():
        defects += len(part.defects)
        if part.is_multipart():
            print('multipart\t' + part.get_content_type())
            continue
        names = ','.join(part.keys())
        if part.get_content_maintype() == 'text' and part.get_filename() is None:
            text = part.get_content().replace('\r\n', '\n')
            print('text\t' + part.get_content_type() + '\t' + text.encode('utf-8').hex() + '\t' + names)
        else:
            data = part.get_payload(decode=True) or b''
            name = part.get_filename() or ''
            print('file\t' + part.get_content_type() + '\t' + name.encode('utf-8').hex() + '\t' + data.hex() +
                  '\t' + names)
    if msg.get_boundary() is not None:
        print('boundary\t' + msg.get_boundary())
    print('defects\t' + str(defects))


for path in sys.argv[1:]:
    print('message')
    dump(path)
