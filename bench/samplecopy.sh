#!/bin/sh
# Sample copy against two native peers measured in the same run (a general
# resampling library at equal rates and layouts, and a sample-rate
# converter's array converters), and against memcpy of the output bytes.
# ratio = ours / faster peer (target >= 1); at 16 Mi samples also
# ours / memcpy (target >= 0.5).
set -e
root=$(cd "$(dirname "$0")/.." && pwd)
build=${ZV_BUILD:-$root/build}
bin=${ZV_BIN:-$build/x64/bin}
run=${ZV_RUN:-$root/cmake/wine-run.sh}

need=""
for pkg in libswresample-dev libsamplerate0-dev pkg-config g++; do
    dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" || need="$need $pkg"
done
if [ -n "$need" ]; then
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $need >/dev/null
fi

work="$build/x64/bench_samplecopy"
mkdir -p "$work"
g++ -O2 -o "$work/samplecopy_peer" "$root/bench/samplecopy_peer.cc" \
    $(pkg-config --cflags --libs libswresample libavutil samplerate)

budget=${ZV_BENCH_BUDGET:-0.12}
"$run" "$bin/bench_samplecopy.exe" "$budget" | tr -d '\r' > "$work/ours.txt"
"$work/samplecopy_peer" "$budget" > "$work/peer.txt"

awk '
function label(n) { return n >= 16777216 ? "16Mi" : n >= 262144 ? "256Ki" : "4Ki" }
function bytes(f) { return f == "u8" ? 1 : f == "s16" ? 2 : f == "dbl" ? 8 : 4 }
FNR == NR {
    if ($1 == "memcpy") mem[$2 " " $3] = $4
    else { k = $2 " " $3 " " $4; if ($5 > peer[k]) peer[k] = $5 }
    next
}
$1 == "rate" {
    k = $2 " " $3 " " $4
    if (peer[k] > 0)
        printf "bench samplecopy_%s_from_%s_%s: %.2f (target >= 1)\n", $2, $3, label($4), $5 / peer[k]
    m = mem[bytes($2) " " $4]
    if ($4 >= 16777216 && m > 0)
        printf "bench samplecopy_%s_from_%s_16Mi_vs_memcpy: %.2f (target >= 0.5)\n", $2, $3, $5 / m
}' "$work/peer.txt" "$work/ours.txt"
