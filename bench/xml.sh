#!/bin/sh
# XML document parse against two native peers measured in the same run:
# expat (SAX, building nothing) and pugixml (DOM), on 1 MB and 20 MB
# documents of an iXML and an attribute-heavy shape. Each ratio is ours over
# the peer in MB/s, the worst of the four documents.
set -e
root=$(cd "$(dirname "$0")/.." && pwd)
build=${ZV_BUILD:-$root/build}
bin=${ZV_BIN:-$build/x64/bin}
run=${ZV_RUN:-$root/cmake/wine-run.sh}
work="$build/x64/bench_xml"
mkdir -p "$work"
g++ -O2 -o "$work/xml_peer" "$root/bench/xml_peer.cc" $(pkg-config --cflags --libs expat pugixml)
budget=${ZV_BENCH_BUDGET:-1.0}
"$run" "$bin/bench_xml.exe" "$budget" | tr -d '\r' > "$work/ours.txt"
"$work/xml_peer" "$budget" > "$work/peer.txt"
awk '
FNR == NR { expat[$1] = $2; pugi[$1] = $3; next }
{
    e = $2 / expat[$1]; p = $2 / pugi[$1]
    printf "%s: ours %s MB/s, expat %s, pugixml %s\n", $1, $2, expat[$1], pugi[$1] > "/dev/stderr"
    if (!n++ || e < worstE) worstE = e
    if (n == 1 || p < worstP) worstP = p
}
END {
    printf "bench xml-parse-vs-expat: %.2f (target >= 1.0)\n", worstE
    printf "bench xml-parse-vs-pugixml: %.2f (target >= 0.5)\n", worstP
}' "$work/peer.txt" "$work/ours.txt"
