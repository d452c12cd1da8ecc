#!/bin/sh
# zvfio render of a 1 GiB 16-bit stereo wave file with the 48 kHz 24-bit
# preset, against sox writing the same 24-bit wave (sox IN -b 24 OUT.wav) in
# the same run; then the same render with the renderer in a surrogate
# (bin/pcm-surrogate) against the render in process. zvfio's time is its
# own measure, from opening the input to closing the output; sox's is wall
# clock. Ratio = sox's time / ours (in process), ours / surrogate's.
# A failed render counts 0 s and fails the bench.
dir="${ZV_BUILD:-/tmp}/bench-render"
mkdir -p "$dir"
big="$dir/big.wav" out="$dir/out.wav"
trap 'rm -f "$big" "$out"' EXIT INT TERM
python3 "$(dirname "$0")/bigwave.py" "$big"
win() { echo "Z:$1" | tr '/' '\\'; }
min() { echo "if ($1 < $2) $1 else $2" | bc -l; }

# Each run writes 1.5 GiB; what the one before left to write back would fall
# on the next, so every run starts after a sync (outside its time), and the
# three kinds take turns, each keeping its best of three.
once() { # kind: seconds of one run
    rm -f "$out"
    sync
    if [ "$1" = sox ]; then
        t0=$(date +%s.%N)
        sox -D "$big" -b 24 "$out"
        t1=$(date +%s.%N)
        echo "$t1 - $t0" | bc -l
    else
        t=$($ZV_RUN "$1" render --template "48,000 Hz 24 Bit, Stereo" "$(win "$big")" "$(win "$out")" |
            tr -d '\r' | sed -n 's/.*, \([0-9.]*\) s$/\1/p')
        echo "${t:-0}"
    fi
}
sox_best=1000000 inproc=1000000 sur=1000000
for _ in 1 2 3; do
    sox_best=$(min "$(once sox)" "$sox_best")
    inproc=$(min "$(once "$ZV_BIN/zvfio.exe")" "$inproc")
    sur=$(min "$(once "$ZV_BIN/pcm-surrogate/zvfio.exe")" "$sur")
done
if [ "$(echo "$inproc > 0 && $sur > 0" | bc)" != 1 ]; then
    echo "bench render: a render failed" >&2
    exit 1
fi
printf 'bench render-wav24-inproc: %.2f (target >= 1.0)\n' "$(echo "$sox_best / $inproc" | bc -l)"
printf 'bench render-wav24-surrogate: %.2f (target >= 0.5)\n' "$(echo "$inproc / $sur" | bc -l)"
echo "  (sox $(printf %.2f "$sox_best") s, zvfio in process $(printf %.2f "$inproc") s," \
     "through a surrogate $(printf %.2f "$sur") s)" >&2
