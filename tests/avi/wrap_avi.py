#!/usr/bin/env python3
"""Wraps raw frames of one size in an AVI 1.0 file with an idx1 index.
usage: wrap_avi.py RAW OUT WIDTH HEIGHT FOURCC BITS"""
import struct
import sys

raw, out, w, h, fourcc, bits = sys.argv[1], sys.argv[2], int(sys.argv[3]), int(sys.argv[4]), sys.argv[5], int(sys.argv[6])
data = open(raw, 'rb').read()
frame = {'P010': w * h * 3}[fourcc]
frames = [data[i:i + frame] for i in range(0, len(data), frame)]


def chunk(cid, body):
    return cid + struct.pack('<I', len(body)) + body + (b'\0' if len(body) & 1 else b'')


def lst(kind, body, cid=b'LIST'):
    return chunk(cid, kind + body)


avih = struct.pack('<14I', 40000, 0, 0, 0x10, len(frames), 0, 1, frame, w, h, 0, 0, 0, 0)
strh = b'vids' + fourcc.encode() + struct.pack('<IHHIIIIIIII4h', 0, 0, 0, 0, 1, 25, 0, len(frames), frame, 0, 0,
                                                 0, 0, w, h)
strf = struct.pack('<IiiHHIIiiII', 40, w, h, 1, bits, struct.unpack('<I', fourcc.encode())[0], frame, 0, 0, 0, 0)
hdrl = lst(b'hdrl', chunk(b'avih', avih) + lst(b'strl', chunk(b'strh', strh) + chunk(b'strf', strf)))
movi, index, at = b'', b'', 4
for f in frames:
    index += b'00dc' + struct.pack('<III', 0x10, at, len(f))
    c = chunk(b'00dc', f)
    movi += c
    at += len(c)
body = b'AVI ' + hdrl + lst(b'movi', movi) + chunk(b'idx1', index)
open(out, 'wb').write(b'RIFF' + struct.pack('<I', len(body)) + body)
