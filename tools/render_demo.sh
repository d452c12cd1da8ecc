#!/bin/sh
# The demonstration's render leg: a sox-made file at each preset's rate goes
# through zvfio render with that preset (wave, Wave64 and AIFF in turn) and
# is read back with zvfio read; the samples must equal sox's conversion of
# the same file to the preset's type. $1: the host folder (bin or
# bin/pcm-surrogate), $2: a scratch folder. The wineserver of ZV_WINEPREFIX
# must run.
bin="$1"
out="$2"
root=$(cd "$(dirname "$0")/.." && pwd)
run="$root/cmake/wine-run.sh"
[ -n "$bin" ] && [ -n "$out" ] || { echo "usage: $0 BINDIR OUTDIR" >&2; exit 2; }
rm -rf "$out" && mkdir -p "$out" || exit 1
out=$(cd "$out" && pwd)
win() { echo "Z:$1" | tr '/' '\\'; }
zvfio() { "$run" "$bin/zvfio.exe" "$@" 2>&1 | tr -d '\r'; }
status=0
while read -r rate bits enc ext templ; do
    in="$out/in$rate.wav" res="$out/out$rate.$ext"
    sox -R -D -n -r "$rate" -c 2 -b 16 "$in" synth 0.5 sine 440 sine 1250 vol 0.5
    echo "== zvfio render --template \"$templ\" in$rate.wav out$rate.$ext"
    zvfio render --template "$templ" "$(win "$in")" "$(win "$res")"
    zvfio read --quiet --raw "$(win "$res.raw")" "$(win "$res")" >/dev/null
    sox -D "$in" -t raw -e "$enc" -b "$bits" "$out/want$rate.raw"
    said=$(sox --i -r "$res" 2>/dev/null)/$(sox --i -b "$res" 2>/dev/null)
    if cmp -s "$res.raw" "$out/want$rate.raw" && [ "$said" = "$rate/$bits" ]; then
        echo "   read back equal to sox's conversion; sox reads $rate Hz, $bits bits"
    else
        echo "FAIL out$rate.$ext does not read back as sox converts in$rate.wav"
        status=1
    fi
done <<LIST
44100 16 signed wav 44,100 Hz 16 Bit, Stereo
48000 24 signed w64 48,000 Hz 24 Bit, Stereo
96000 32 floating-point aif 96,000 Hz 32 Bit (float), Stereo
LIST
exit $status
