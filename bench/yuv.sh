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

budget=${ZV_BENCH_BUDGET:-0.5}
"$run" "$bin/bench_yuv.exe" "$budget" | tr -d '\r' > "$work/ours.txt"
"$work/yuv_peer" "$budget" > "$work/peer.txt"

awk '
FNR == NR { peer[$2] = $3; next }
$1 == "rate" && peer[$2] > 0 {
    name = "scale-bicubic-vs-swscale"
    if ($2 == "i420") name = "yuv-i420-to-bgra-vs-libyuv"
    if ($2 == "nv12") name = "yuv-nv12-to-bgra-vs-libyuv"
    if ($2 == "uyvy") name = "yuv-uyvy-to-bgra-vs-libyuv"
    if ($2 == "bgra2i420") name = "yuv-bgra-to-i420-vs-libyuv"
    if ($2 == "bilinear") name = "scale-bilinear-vs-swscale"
    if ($3 == "all")
        printf "bench %s: %.2f (target >= 1.0)\n", name, $4 / peer[$2]
    else
        printf "bench %s-1thread: %.2f (target >= 0)\n", name, $4 / peer[$2]
}' "$work/peer.txt" "$work/ours.txt"
