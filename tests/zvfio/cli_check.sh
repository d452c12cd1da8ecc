#!/bin/sh
# zvfio as a command-line tool: usage errors exit 2 with the command's usage
# line, "--" ends the options, every error names its file, read --raw keeps
# no partial output and writes to standard output for "-", unsupported files
# and folders are called what they are, and the launcher bin/zvfio runs it
# from Linux by name with its exit code. $1: the build's bin folder, $2: a
# scratch folder. The wineserver of ZV_WINEPREFIX must run.
bin="$1"
out="$2"
root=$(cd "$(dirname "$0")/../.." && pwd)
run="$root/cmake/wine-run.sh"
command -v sox >/dev/null || { echo "sox is not installed"; exit 77; }
rm -rf "$out" && mkdir -p "$out" || exit 1
out=$(cd "$out" && pwd)
win() { printf 'Z:%s\n' "$1" | tr '/' '\\'; }
status=0
fail() { echo "FAIL $*"; status=1; }
# zvfio ARGS: output (stdout and stderr, no carriage returns) in $text, exit code in $rc
call() { "$run" "$bin/zvfio.exe" "$@" >"$out/.out" 2>&1; rc=$?; text=$(tr -d '\r' <"$out/.out"); }
expect() { # rc pattern what
    if [ "$rc" != "$1" ] || ! printf '%s\n' "$text" | grep -qF -- "$2"; then fail "$3: exit $rc, output: $text"; else echo "ok   $3"; fi
}

sox -D -n -r 44100 -c 2 -b 16 "$out/tone.wav" synth 0.2 sine 440
sox -D -n -r 8000 -c 1 -e u-law "$out/ulaw.wav" synth 0.1 sine 300
f=$(win "$out/tone.wav")

call read --bogus "$f";               expect 2 "usage: zvfio read" "unknown option gives the usage line"
call repair --rate;                   expect 2 "needs a value" "an option without its value"
call identify -- --not-an-option.wav; expect 1 "not-an-option.wav" "-- ends the options"
call read "$(win "$out/missing.wav")"; expect 1 "missing.wav:" "a missing file is named"
call read --raw "$(win "$out/nodir/o.raw")" "$f"; expect 1 "o.raw:" "an unwritable output is named"
call read "$(win "$out")";            expect 1 "a folder, not a file" "a folder is called a folder"
call read "$(win "$out/ulaw.wav")";   expect 1 "law (tag 7) is not supported by any installed reader" "an unsupported coding is named"

call read --raw "$(win "$out/o.raw")" "$f"; expect 0 "8820 samples" "read --raw"
"$run" "$bin/zvfio.exe" read --quiet --raw - "$f" >"$out/stdout.raw" 2>"$out/.err"
if cmp -s "$out/o.raw" "$out/stdout.raw" && [ -s "$out/o.raw" ]; then echo "ok   read --raw - writes the samples to standard output"
else fail "read --raw - differs from read --raw FILE"; fi
ls "$out"/*.zvfio-partial >/dev/null 2>&1 && fail "a partial output was left behind"
# Ctrl-C mid-read: a sparse 3.9 GB wave keeps the read busy for seconds
python3 - "$out/huge.wav" <<'PY'
import struct, sys
n = 3900000000
with open(sys.argv[1], 'wb') as f:
    f.write(b'RIFF' + struct.pack('<I', n + 36) + b'WAVEfmt ' + struct.pack('<IHHIIHH', 16, 1, 2, 48000, 192000, 4, 16)
            + b'data' + struct.pack('<I', n))
    f.truncate(44 + n)
PY
"$run" "$bin/zvfio.exe" read --raw "$(win "$out/huge.raw")" "$(win "$out/huge.wav")" >"$out/.out" 2>&1 &
reader=$!
i=0; while [ $i -lt 100 ] && ! [ -s "$out/huge.raw.zvfio-partial" ]; do sleep 0.1; i=$((i + 1)); done
kill -INT $reader; wait $reader; rc=$?; text=$(tr -d '\r' <"$out/.out")
expect 1 "interrupted; no output kept" "Ctrl-C stops read --raw"
ls "$out"/huge.raw* >/dev/null 2>&1 && fail "Ctrl-C left an output behind"
rm -f "$out/huge.wav"
call read --progress --raw "$(win "$out/o2.raw")" "$f"; expect 0 "frames" "--progress shows progress"

# the program folder lists no test plug-in
call plugins
case "$text" in *tk_*) fail "the program folder lists test plug-ins: $text" ;; esac

# plug-ins that offer nothing are listed with their reason: the test plug-ins
# (copied beside the tool) include one that isn't a DLL, one without the entry
# point and one whose class list is bad; a host folder of its own names a DLL
# that isn't there
mkdir -p "$out/tkhost" && cp "$bin"/testkit/tk_*.dll "$bin"/testkit/*.Fio2007-Config "$bin/zvfio.exe" "$out/tkhost/"
"$run" "$out/tkhost/zvfio.exe" plugins --load >"$out/.out" 2>&1; rc=$?; text=$(tr -d '\r' <"$out/.out")
expect 0 "tk_notadll.dll" "plugins --load lists a file that isn't a DLL"
printf '%s\n' "$text" | grep -A2 "tk_notadll.dll" | grep -q "reason    not a DLL" || fail "tk_notadll.dll: no 'not a DLL' reason: $text"
printf '%s\n' "$text" | grep -A2 "tk_noentry.dll" | grep -q "reason    no entry point" || fail "tk_noentry.dll: no 'no entry point' reason"
printf '%s\n' "$text" | grep -A2 "tk_badlist.dll" | grep -q "reason    bad class list" || fail "tk_badlist.dll: no 'bad class list' reason"
mkdir -p "$out/host" && cp "$bin/zvfio.exe" "$out/host/"
printf '[FileIO Plug-Ins]\nGone=gone.dll\n' >"$out/host/gone.Fio2007-Config"
"$run" "$out/host/zvfio.exe" plugins --load --json >"$out/.out" 2>&1; rc=$?; text=$(tr -d '\r' <"$out/.out")
expect 0 '"reason": "missing DLL"' "plugins --load names a configured DLL that is missing"

# the launcher, as a user calls it
text=$(ZV_WINEPREFIX="$ZV_WINEPREFIX" "$bin/zvfio" repair "$out/tone.wav" 2>&1 | tr -d '\r')
rc=$?
printf '%s\n' "$text" | grep -q "nothing to repair" || fail "bin/zvfio repair on a Linux path: $text"
ZV_WINEPREFIX="$ZV_WINEPREFIX" "$bin/zvfio" read --bogus >/dev/null 2>&1
rc=$?
[ $rc -eq 2 ] && echo "ok   the launcher passes the exit code through" || fail "the launcher gave exit $rc, not 2"
exit $status
