"""Describes mail files the way the standard library reads them, one fact per
line with text as hex (bytes it cannot decode as they stand), for the mail
and content tests to compare against. Each file's lines follow a line
"message"."""
import email
import email.policy
import sys


def hex_of(text):
    return str(text).encode('utf-8', 'surrogateescape').hex()


def dump(path):
    with open(path, 'rb') as f:
        msg = email.message_from_binary_file(f, policy=email.policy.default)
    defects = len(msg.defects)
    print('subject\t' + hex_of(msg['subject'] or ''))
    for field in ('from', 'to', 'cc'):
        header = msg[field]
        for address in (header.addresses if header is not None else ()):
            addr = address.username + ('@' + address.domain if address.domain else '')
            print(field + '\t' + hex_of(address.display_name) + '\t' + addr)
    for part in msg.walk():
        defects += len(part.defects)
        if part.is_multipart():
            print('multipart\t' + part.get_content_type())
            continue
        names = ','.join(part.keys())
        if part.get_content_maintype() == 'text' and part.get_filename() is None:
            text = part.get_content().replace('\r\n', '\n')
            print('text\t' + part.get_content_type() + '\t' + hex_of(text) + '\t' + names)
        else:
            data = part.get_payload(decode=True) or b''
            name = part.get_filename() or ''
            print('file\t' + part.get_content_type() + '\t' + hex_of(name) + '\t' + data.hex() +
                  '\t' + names)
    if msg.get_boundary() is not None:
        print('boundary\t' + msg.get_boundary())
    print('defects\t' + str(defects))


for path in sys.argv[1:]:
    print('message')
    dump(path)
