#!/bin/sh
# Makes the PCM reader's test files with sox, and for each the raw decode
# that sox gives, into the folder $1. manifest.txt has one line per file:
#   file raw container sampletype bytes-per-sample channels rate
# (sampletype: u8 s16 s24 s32 f32 f64, as the reader delivers them).
set -e
out="$1"
[ -n "$out" ] || { echo "usage: $0 OUTDIR" >&2; exit 2; }
rm -rf "$out"
mkdir -p "$out"
cd "$out"


gen() { # name rate channels sox-output-options...
    name=$1; rate=$2; ch=$3; shift 3
    sox -R -D -n -r "$rate" -c "$ch" "$@" "$name" synth 0.3 sine 440 sine 1250 whitenoise vol 0.5
}

expect() { # file container type bytes channels rate
    case $3 in
        u8) enc="-e unsigned -b 8";;
        s16) enc="-e signed -b 16";;
        s24) enc="-e signed -b 24";;
        s32) enc="-e signed -b 32";;
        f32) enc="-e floating-point -b 32";;
        f64) enc="-e floating-point -b 64";;
    esac
    sox -D "$1" -t raw $enc "$1.raw"
    echo "$1 $1.raw $2 $3 $4 $5 $6" >> manifest.txt
}

gen w8.wav 44100 2 -e unsigned -b 8;            expect w8.wav wave u8 1 2 44100
gen w16.wav 44100 2 -e signed -b 16;            expect w16.wav wave s16 2 2 44100
gen w24.wav 48000 2 -e signed -b 24;            expect w24.wav wave s24 3 2 48000
gen w32.wav 22050 1 -e signed -b 32;            expect w32.wav wave s32 4 1 22050
gen wf32.wav 44100 2 -e floating-point -b 32;   expect wf32.wav wave f32 4 2 44100
gen wf64.wav 8000 1 -e floating-point -b 64;    expect wf64.wav wave f64 8 1 8000
gen wext.wav 96000 3 -e signed -b 24;           expect wext.wav wave s24 3 3 96000
gen a16.aiff 44100 2 -e signed -b 16;           expect a16.aiff aiff s16 2 2 44100
gen a24.aiff 48000 1 -e signed -b 24;           expect a24.aiff aiff s24 3 1 48000
gen a8.aiff 11025 1 -e signed -b 8;             expect a8.aiff aiff u8 1 1 11025
gen cf32.aifc 44100 2 -e floating-point -b 32;  expect cf32.aifc aiff f32 4 2 44100
gen cf64.aifc 32000 1 -e floating-point -b 64;  expect cf64.aifc aiff f64 8 1 32000
gen x16.w64 44100 2 -t w64 -e signed -b 16;     expect x16.w64 wave64 s16 2 2 44100
gen x24.w64 48000 2 -t w64 -e signed -b 24;     expect x24.w64 wave64 s24 3 2 48000
# sox reads float Wave64 back with a gain (its float wave reads are exact):
# the reference for that file is its data chunk, found by a separate walk.
gen xf32.w64 44100 1 -t w64 -e floating-point -b 32
python3 - <<'PY'
import struct, uuid
d = open('xf32.w64', 'rb').read()
data = uuid.UUID('61746164-acf3-11d3-8cd1-00c04f8edb8a').bytes_le
i = 40
while i + 24 <= len(d):
    size = struct.unpack('<Q', d[i+16:i+24])[0]
    if d[i:i+16] == data:
        open('xf32.w64.raw', 'wb').write(d[i+24:i+size])
        break
    i += (size + 7) & ~7
PY
echo "xf32.w64 xf32.w64.raw wave64 f32 4 1 44100" >> manifest.txt

# sox writes no 'sowt' and no LIST before 'fmt ': rebuild those from files
# it did write, and let sox read them back for the reference.
gen cnone.aifc 44100 2 -e signed -b 16
python3 - <<'PY'
import struct
d = bytearray(open('cnone.aifc', 'rb').read())
i = 12
while i + 8 <= len(d):
    cid, size = d[i:i+4], struct.unpack('>I', d[i+4:i+8])[0]
    if cid == b'COMM':
        assert d[i+8+18:i+8+22] == b'NONE'
        d[i+8+18:i+8+22] = b'sowt'
    if cid == b'SSND':
        off = struct.unpack('>I', d[i+8:i+12])[0]
        start, end = i + 16 + off, i + 8 + size
        for k in range(start, end - 1, 2):
            d[k], d[k+1] = d[k+1], d[k]
    i += 8 + size + (size & 1)
open('csowt.aifc', 'wb').write(d)

w = open('w16.wav', 'rb').read()
info = b'INFO' + b'INAM' + struct.pack('<I', 5) + b'test\0\0'
lst = b'LIST' + struct.pack('<I', len(info)) + info
body = b'WAVE' + lst + w[12:]
open('wlist.wav', 'wb').write(b'RIFF' + struct.pack('<I', len(body)) + body)
PY
rm -f cnone.aifc
expect csowt.aifc aiff s16 2 2 44100
expect wlist.wav wave s16 2 2 44100
echo "$(wc -l < manifest.txt) fixtures in $out"
