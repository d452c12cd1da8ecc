#!/bin/sh
# zvfio against the PCM fixtures: the chunk tree (text and JSON), a repair
# of a wave file whose sizes were wiped, and the exit codes of failures.
# usage: zvfio_check.sh ZVFIO_EXE WINE_RUN FIXTURE_DIR WORK_DIR
set -u
exe=$1; run=$2; fixtures=$3; work=$4
rm -rf "$work"; mkdir -p "$work"
win() { printf 'Z:%s' "$1" | tr / '\\'; }
zvfio() { "$run" "$exe" "$@"; }
fail=0
check() { # description, then the condition's exit status in $?
    if [ "$2" -eq 0 ]; then echo "ok: $1"; else echo "FAILED: $1"; fail=1; fi
}

out=$(zvfio chunks "$(win "$fixtures/wlist.wav")")
printf "%s\n" "$out" | grep -q "^  'LIST' 'INFO'  offset 12  size 18"; check "LIST before fmt shown in order" $?
printf "%s\n" "$out" | grep -q "^    'INAM'  offset 24  size 5"; check "list entries nested" $?
printf "%s\n" "$out" | grep -q "^  'fmt '  offset 38  size 16"; check "fmt after the list" $?

zvfio chunks --json "$(win "$fixtures/x16.w64")" "$(win "$fixtures/a16.aiff")" > "$work/tree.json"
python3 - "$work/tree.json" <<'PY'
import json, sys
files = json.load(open(sys.argv[1]))
assert [f['container'] for f in files] == ['Wave64', 'IFF'], files
w64 = [c['id'] for c in files[0]['root']['chunks']]
assert w64[0] == 'fmt ' and 'data' in w64, w64
aiff = [c['id'] for c in files[1]['root']['chunks']]
assert 'COMM' in aiff and 'SSND' in aiff, aiff
PY
check "JSON tree of Wave64 and AIFF" $?

# sizes wiped as by a recording that was never closed
cp "$fixtures/wf32.wav" "$work/cut.wav"
python3 - "$work/cut.wav" <<'PY'
import sys
p = sys.argv[1]
d = bytearray(open(p, 'rb').read())
d[4:8] = bytes(4)
i = d.find(b'data')
d[i+4:i+8] = bytes(4)
open(p, 'wb').write(d)
PY
out=$(zvfio repair "$(win "$work/cut.wav")"); rc=$?
[ $rc -eq 0 ]; check "repair succeeds" $?
printf "%s\n" "$out" | grep -q "^  RIFF size at 4: "; check "repair reports the RIFF size" $?
printf "%s\n" "$out" | grep -q "^  audio: offset 58, 105840 bytes" && printf "%s\n" "$out" | grep -q "^  data size at 54: ";
check "repair reports the data size" $?
cmp -s -i 58 "$work/cut.wav" "$fixtures/wf32.wav"; check "repair leaves the audio alone" $?
out=$(zvfio repair "$(win "$work/cut.wav")")
printf "%s\n" "$out" | grep -q "nothing to repair"; check "a sound file is left alone" $?

zvfio chunks "$(win "$work/none.wav")" 2>"$work/err.txt"; rc=$?
[ $rc -eq 1 ] && grep -q "0x8004E00A\|0x80070002" "$work/err.txt"; check "missing file: exit 1 with the system's text" $?
zvfio chunks "$(win "$fixtures/manifest.txt")" 2>"$work/err.txt"; rc=$?
[ $rc -eq 1 ] && grep -q "0x8004E016" "$work/err.txt"; check "not a chunk file: 0x8004E016" $?
zvfio chunks >/dev/null 2>&1; [ $? -eq 2 ]; check "no file: usage, exit 2" $?
zvfio nonsense >/dev/null 2>&1; [ $? -eq 2 ]; check "unknown command: exit 2" $?
# through the manager: the reader's format in words
out=$(zvfio info "$(win "$fixtures/a16.aiff")"); rc=$?
[ $rc -eq 0 ] && printf "%s\n" "$out" | grep -q "44100 Hz, 2 channels, 16-bit int"; check "info: the decoded format" $?
out=$(zvfio info "$(win "$fixtures/a24.aiff")"); rc=$?
[ $rc -eq 0 ] && printf "%s\n" "$out" | grep -q "48000 Hz, 1 channel, 24-bit int"; check "info: one channel, singular" $?
exit $fail
