#!/bin/sh
# Frame conversions and scalers at 1080p against native peers measured in the
# same run: a frame library for the YUV conversions, a scaling library for
# the scalers. ratio = ours / peer (target >= 1 on the system's threads; the
# single-thread ratios are printed beside them).
set -e
root=$(cd "$(dirname "$0")/.." && pwd)
build=${ZV_BUILD:-$root/build}
bin=${ZV_BIN:-$build/x64/bin}
run=${ZV_RUN:-$root/cmake/wine-run.sh}

work="$build/x64/bench_yuv"
mkdir -p "$work"
g++ -O2 -o "$work/yuv_peer" "$root/bench/yuv_peer.cc" -lyuv $(pkg-config --cflags --libs libswscale libavutil)

# Both programs stay up and are handed one case at a time, ours and the
# peer's rounds alternating (who goes first too), and each side keeps its best
# round: a change of the machine's load then falls on both sides alike.
budget=${ZV_BENCH_BUDGET:-0.5}
rounds=${ZV_BENCH_ROUNDS:-5}
each=$(awk -v b="$budget" -v r="$rounds" 'BEGIN { printf "%.4f", b / r }')
rm -f "$work/ours.in" "$work/ours.out" "$work/peer.in" "$work/peer.out"
mkfifo "$work/ours.in" "$work/ours.out" "$work/peer.in" "$work/peer.out"
"$run" "$bin/bench_yuv.exe" "$each" < "$work/ours.in" > "$work/ours.out" &
"$work/yuv_peer" "$each" < "$work/peer.in" > "$work/peer.out" &
exec 3> "$work/ours.in" 4< "$work/ours.out" 5> "$work/peer.in" 6< "$work/peer.out"
: > "$work/ours.txt"
: > "$work/peer.txt"
ours() { echo "$1 $2" >&3; read -r line <&4; echo "$line" >> "$work/ours.txt"; }
peer() { echo "$1" >&5; read -r line <&6; echo "$line" >> "$work/peer.txt"; }
r=0
while [ $r -lt "$rounds" ]; do
    for c in i420 nv12 uyvy bgra2i420 bilinear bicubic; do
        if [ $((r % 2)) -eq 0 ]; then
            peer $c; ours $c all; ours $c 1
        else
            ours $c 1; ours $c all; peer $c
        fi
    done
    r=$((r + 1))
done
exec 3>&- 5>&-
wait
exec 4<&- 6<&-
rm -f "$work/ours.in" "$work/ours.out" "$work/peer.in" "$work/peer.out"

awk '
function label(c) {
    if (c == "i420") return "yuv-i420-to-bgra-vs-libyuv"
    if (c == "nv12") return "yuv-nv12-to-bgra-vs-libyuv"
    if (c == "uyvy") return "yuv-uyvy-to-bgra-vs-libyuv"
    if (c == "bgra2i420") return "yuv-bgra-to-i420-vs-libyuv"
    if (c == "bilinear") return "scale-bilinear-vs-swscale"
    return "scale-bicubic-vs-swscale"
}
{ sub(/\r$/, "") }
FNR == NR { if ($3 + 0 > peer[$2]) peer[$2] = $3 + 0; next }
$1 == "rate" { k = $2 " " $3; if ($4 + 0 > ours[k]) ours[k] = $4 + 0 }
END {
    n = split("i420 nv12 uyvy bgra2i420 bilinear bicubic", cs, " ")
    for (t = 0; t < 2; t++)
        for (i = 1; i <= n; i++) {
            c = cs[i]
            k = c (t ? " 1" : " all")
            if (!(peer[c] > 0) || !(ours[k] > 0)) continue
            if (t)
                printf "bench %s-1thread: %.2f (target >= 0)\n", label(c), ours[k] / peer[c]
            else
                printf "bench %s: %.2f (target >= 1.0)\n", label(c), ours[k] / peer[c]
        }
}' "$work/peer.txt" "$work/ours.txt"
