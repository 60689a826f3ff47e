"""Text helpers the oracle scripts share."""


def esc(s):
    """Backslash, tab, CR and LF escaped; bytes that are not UTF-8 as \\xNN."""
    o = []
    for ch in s:
        c = ord(ch)
        if ch == '\\': o.append('\\\\')
        elif ch == '\t': o.append('\\t')
        elif ch == '\n': o.append('\\n')
        elif ch == '\r': o.append('\\r')
        elif 0xDC80 <= c <= 0xDCFF: o.append('\\x%02x' % (c - 0xDC00))
        else: o.append(ch)
    return ''.join(o)


def read_text(p):
    with open(p, 'rb') as f:
        return f.read().decode('utf-8', 'surrogateescape')
