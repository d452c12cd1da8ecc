#!/bin/sh
# Makes the demonstration's sample files with sox in the folder $1 and
# lists them on stdout, one a line: file, expected reader short name, and
# the sox options of the raw form the reader decodes to.
set -e
out="$1"
[ -n "$out" ] || { echo "usage: $0 OUTDIR" >&2; exit 2; }
mkdir -p "$out"
gen() { # name rate channels sox-output-options...
    name=$1; rate=$2; ch=$3; shift 3
    sox -R -D -n -r "$rate" -c "$ch" "$@" "$out/$name" synth 0.5 sine 440 sine 1250 whitenoise vol 0.5
}
gen w16.wav 44100 2 -e signed -b 16
gen w24.wav 48000 2 -e signed -b 24
gen w32.wav 48000 1 -e signed -b 32
gen wf32.wav 44100 2 -e floating-point -b 32
gen a16.aiff 44100 2 -e signed -b 16
gen cf32.aifc 48000 2 -e floating-point -b 32
gen x16.w64 44100 2 -t w64 -e signed -b 16
# a wave file whose LIST chunk stands before "fmt "
python3 - "$out/w16.wav" "$out/listfirst.wav" <<'PY'
import struct, sys
d = open(sys.argv[1], 'rb').read()
info = b'INFOINAM' + struct.pack('<I', 6) + b'Demo\0\0'
lst = b'LIST' + struct.pack('<I', len(info)) + info
body = d[12:]
out = b'RIFF' + struct.pack('<I', 4 + len(lst) + len(body)) + b'WAVE' + lst + body
open(sys.argv[2], 'wb').write(out)
PY
cat <<LIST
w16.wav Wave -e signed -b 16
w24.wav Wave -e signed -b 24
w32.wav Wave -e signed -b 32
wf32.wav Wave -e floating-point -b 32
a16.aiff AIFF -e signed -b 16
cf32.aifc AIFF -e floating-point -b 32
x16.w64 Wave64 -e signed -b 16
listfirst.wav Wave -e signed -b 16
LIST
