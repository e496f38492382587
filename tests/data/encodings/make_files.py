#!/usr/bin/env python3
"""Writes the encoded test documents next to this script, byte for byte.

The outputs are committed; rerun only to change them.
"""
import os

HERE = os.path.dirname(os.path.abspath(__file__))

BODY = '<r a="\u00e9t\u00e9">h\u00e9llo \u20ac &amp; \u4e2d</r>\r\n'


def write(name, data):
    with open(os.path.join(HERE, name), "wb") as f:
        f.write(data)


def main():
    decl16 = '<?xml version="1.0" encoding="UTF-16"?>\r\n'
    write("utf16le_bom_decl.xml", b"\xff\xfe" + (decl16 + BODY).encode("utf-16-le"))
    write("utf16be_bom_decl.xml", b"\xfe\xff" + (decl16 + BODY).encode("utf-16-be"))
    write("utf16le_bom.xml", b"\xff\xfe" + BODY.encode("utf-16-le"))
    write("utf16be_bom.xml", b"\xfe\xff" + BODY.encode("utf-16-be"))
    ucs2 = '<?xml version="1.0" encoding="ucs-2"?>\r\n'
    write("utf16be_bom_ucs2.xml", b"\xfe\xff" + (ucs2 + BODY).encode("utf-16-be"))
    # Latin-1: e-acute, copyright sign, a-ring.
    write("iso-8859-1.xml",
          b'<?xml version="1.0" encoding="iso-8859-1"?>\n<r a="\xe9">caf\xe9 \xa9 \xe5</r>\n')
    # Windows-1252: euro sign, curly quotes, trade mark (0x80, 0x93, 0x94, 0x99),
    # declared with blanks around '=' as some writers do.
    write("windows-1252.xml",
          b"<?xml version='1.0' encoding = 'Windows-1252'?>\n<r>\x80 \x93q\x94 \x99</r>\n")
    # A UTF-8 mark wins over a declaration that names another encoding.
    write("utf8_bom_decl_latin1.xml",
          b'\xef\xbb\xbf<?xml version="1.0" encoding="iso-8859-1"?><r>caf\xc3\xa9</r>')


if __name__ == "__main__":
    main()
