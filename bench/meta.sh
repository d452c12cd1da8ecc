#!/bin/sh
# Replacing the markers of a 1 GiB wave file appends and retires chunks
# behind the audio and never moves it: against copying the file (cp) in the
# same run.
set -e
file="$ZV_BUILD/x64/bench-meta-1g.wav"
copy="$ZV_BUILD/x64/bench-meta-1g-copy.wav"
trap 'rm -f "$file" "$copy"' EXIT
python3 - "$file" <<'PY'
import struct, sys
data = 1 << 30
with open(sys.argv[1], "wb") as f:
    f.write(b"RIFF" + struct.pack("<I", 4 + 24 + 8 + data) + b"WAVE")
    f.write(b"fmt " + struct.pack("<IHHIIHH", 16, 1, 2, 44100, 176400, 4, 16))
    f.write(b"data" + struct.pack("<I", data))
    block = bytes(range(256)) * 4096
    for _ in range(data // len(block)):
        f.write(block)
PY
cat "$file" > /dev/null
s=$(date +%s%N); cp "$file" "$copy"; sync "$copy"; e=$(date +%s%N)
cp_s=$(echo "($e - $s) / 1000000000" | bc -l)
update=$($ZV_RUN "$ZV_BIN/bench_meta.exe" update "Z:$file" | tr -d "\r")
echo "update ${update}s copy ${cp_s}s" >&2
printf 'bench meta-update-1gib: %.4f (target < 0.1)\n' "$(echo "$update / $cp_s" | bc -l)"
