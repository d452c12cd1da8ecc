#!/usr/bin/env python3
"""Independent checksums and GUIDs of the records that template_test.cpp
builds with MakeVectorRecord: prints the C++ table the test holds."""
import hashlib
import struct
import uuid
import zlib

CASES = [(0, "", ""), (5, "Alpha", "note one"), (64, "CD Audio 44.1", ""), (3, "", "only notes"),
         (1000, "Long \u00e9\u4e2d", "Line1\r\nLine2")]


def record(data_size, name, notes):
    text_units = len(name) + len(notes) + 2
    padded = (data_size + 3) & ~3
    size = 536 + padded + 2 * text_units
    b = bytearray(size)
    struct.pack_into("<IIII", b, 0, size, 0x2000000, 0, 0)
    for i in range(56, 528):
        b[i] = (i * 7 + 3) & 0xFF
    struct.pack_into("<II", b, 528, text_units, data_size)
    for i in range(data_size):
        b[536 + i] = (i * 13 + 5) & 0xFF
    return bytes(b)


def hashed(data_size, name, notes, text):
    b = record(data_size, name, notes)
    parts = [b[56:528], b[536:536 + data_size]]
    if text:
        parts += [name.encode("utf-16-le"), notes.encode("utf-16-le")]
    return b"".join(parts)


def guid(data_size, name, notes, text):
    d = bytearray(hashlib.md5(b"Fileio2007 V2 Template Data\0" + hashed(data_size, name, notes, text)).digest())
    d[7] = (d[7] & 0x0F) | 0x30
    d[8] = (d[8] & 0x3F) | 0x80
    return "{" + str(uuid.UUID(bytes_le=bytes(d))).upper() + "}"


for data_size, name, notes in CASES:
    row = [str(data_size), 'L"%s"' % name.encode("unicode_escape").decode().replace("\\u", "\\x"),
           'L"%s"' % notes.encode("unicode_escape").decode().replace("\\u", "\\x")]
    for text in (False, True):
        row.append("0x%08Xu" % zlib.crc32(hashed(data_size, name, notes, text)))
    for text in (False, True):
        row.append('L"%s"' % guid(data_size, name, notes, text))
    print("    {" + ", ".join(row) + "},")
