#!/bin/sh
# zvfio render of a 1 GiB 16-bit stereo wave file with the 48 kHz 24-bit
# preset, against sox writing the same 24-bit wave (sox IN -b 24 OUT.wav) in
# the same run; then the same render with the renderer in a surrogate
# (bin/pcm-surrogate) against the render in process. zvfio's time is its
# own measure, from opening the input to closing the output; sox's is wall
# clock. Ratio = sox's time / ours (in process), ours / surrogate's.
dir="${ZV_BUILD:-/tmp}/bench-render"
mkdir -p "$dir"
big="$dir/big.wav" out="$dir/out.wav"
trap 'rm -f "$big" "$out"' EXIT INT TERM
python3 "$(dirname "$0")/bigwave.py" "$big"
win() { echo "Z:$1" | tr '/' '\\'; }
min() { echo "if ($1 < $2) $1 else $2" | bc -l; }

# sox: best of two
sox_best=1000000
for _ in 1 2; do
    rm -f "$out"
    t0=$(date +%s.%N)
    sox -D "$big" -b 24 "$out"
    t1=$(date +%s.%N)
    sox_best=$(min "$(echo "$t1 - $t0" | bc -l)" "$sox_best")
done

ours() { # exe: best of two
    best=1000000
    for _ in 1 2; do
        rm -f "$out"
        t=$($ZV_RUN "$1" render --template "48,000 Hz 24 Bit, Stereo" "$(win "$big")" "$(win "$out")" |
            tr -d '\r' | sed -n 's/.*, \([0-9.]*\) s$/\1/p')
        [ -n "$t" ] || { echo 0; return; }
        best=$(min "$t" "$best")
    done
    echo "$best"
}
inproc=$(ours "$ZV_BIN/zvfio.exe")
sur=$(ours "$ZV_BIN/pcm-surrogate/zvfio.exe")
if [ "$(echo "$inproc > 0 && $sur > 0" | bc)" != 1 ]; then
    echo "bench render: a render failed" >&2
    exit 1
fi
printf 'bench render-wav24-inproc: %.2f (target >= 1.0)\n' "$(echo "$sox_best / $inproc" | bc -l)"
printf 'bench render-wav24-surrogate: %.2f (target >= 0.5)\n' "$(echo "$inproc / $sur" | bc -l)"
echo "  (sox $(printf %.2f "$sox_best") s, zvfio in process $(printf %.2f "$inproc") s," \
     "through a surrogate $(printf %.2f "$sur") s)" >&2
