#!/bin/sh
# zvfio read on a 1 GiB wave file, in process and through a surrogate
# (bin/pcm-surrogate), against sox decoding the same file to /dev/null in
# the same run. Ratio = our throughput / sox's.
dir="${ZV_BUILD:-/tmp}/bench-zvfio"
mkdir -p "$dir"
big="$dir/big.wav"
trap 'rm -f "$big"' EXIT INT TERM
python3 "$(dirname "$0")/bigwave.py" "$big"
win=$(echo "Z:$big" | tr '/' '\\')
bytes=$((1 << 30))

# sox: best of two, wall clock
sox_best=0
for _ in 1 2; do
    t0=$(date +%s.%N)
    sox "$big" -t raw /dev/null
    t1=$(date +%s.%N)
    r=$(echo "$bytes / ($t1 - $t0) / 1000000" | bc -l)
    sox_best=$(echo "if ($r > $sox_best) $r else $sox_best" | bc -l)
done

# zvfio: best of two, its own measure of open and read
ours() { # exe [read options]
    exe=$1
    shift
    best=0
    for _ in 1 2; do
        r=$($ZV_RUN "$exe" read "$@" "$win" | tr -d '\r' | sed -n 's/.* \([0-9.]*\) MB\/s$/\1/p')
        [ -n "$r" ] || { echo 0; return; }
        best=$(echo "if ($r > $best) $r else $best" | bc -l)
    done
    echo "$best"
}
inproc=$(ours "$ZV_BIN/zvfio.exe")
printf 'bench zvfio-read-inproc: %.2f (target >= 1.0)\n' "$(echo "$inproc / $sox_best" | bc -l)"
# bin/pcm-surrogate runs the same reader in a surrogate: every block crosses
# the process boundary, in zvfio's shared buffer; with a private buffer the
# reader's blanket shadows it for each call (shown for comparison)
sur=$(ours "$ZV_BIN/pcm-surrogate/zvfio.exe")
printf 'bench zvfio-read-surrogate: %.2f (target >= 0.5)\n' "$(echo "$sur / $sox_best" | bc -l)"
[ "$(echo "$sur > 0" | bc)" = 1 ] || echo "zvfio-read-surrogate: the read through the surrogate failed" >&2
private=$(ours "$ZV_BIN/pcm-surrogate/zvfio.exe" --private-buffer)
echo "  (sox $(printf %.0f "$sox_best") MB/s, zvfio in process $(printf %.0f "$inproc") MB/s," \
     "through a surrogate $(printf %.0f "$sur") MB/s, $(printf %.0f "$private") MB/s with a private buffer)" >&2
