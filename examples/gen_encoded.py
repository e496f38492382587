#!/usr/bin/env python3
"""Writes the two examples that are not UTF-8: latin1.xml and utf16.xml.

The bytes are committed; run this only to regenerate them.
"""
import os

HERE = os.path.dirname(os.path.abspath(__file__))

LATIN1 = """<?xml version="1.0" encoding="ISO-8859-1"?>
<menu cafe="Café Zürich">
  <dish price="8.50">Crème brûlée</dish>
  <dish price="12.00">Smørrebrød</dish>
  <dish price="6.00">Jalapeño señorita</dish>
</menu>
"""

UTF16 = """<?xml version="1.0" encoding="UTF-16"?>
<greetings>
  <hello lang="el">Καλημέρα</hello>
  <hello lang="ja">こんにちは</hello>
  <hello lang="ru">Здравствуйте</hello>
  <price>12 €</price>
</greetings>
"""


def write(name, data):
    with open(os.path.join(HERE, name), "wb") as f:
        f.write(data)


# Line ends are LF in both files.
write("latin1.xml", LATIN1.encode("iso-8859-1"))
write("utf16.xml", b"\xff\xfe" + UTF16.encode("utf-16-le"))
