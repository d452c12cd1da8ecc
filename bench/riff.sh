#!/bin/sh
# Chunk layer on a 1 GiB file of 10,000 chunks, against reading the file once
# (cat FILE > /dev/null) in the same run: finding the last chunk walks only
# the headers; deleting the first chunk moves the whole rest of the file.
set -e
file="$ZV_BUILD/x64/bench-riff-1g.wav"
trap 'rm -f "$file"' EXIT
$ZV_RUN "$ZV_BIN/bench_riff.exe" make "Z:$file"
readonce() {
    s=$(date +%s%N); cat "$file" > /dev/null; e=$(date +%s%N)
    echo "($e - $s) / 1000000000" | bc -l
}
cat "$file" > /dev/null
read1=$(readonce)
find=$($ZV_RUN "$ZV_BIN/bench_riff.exe" find "Z:$file" | tr -d "\r")
read2=$(readonce)
delete=$($ZV_RUN "$ZV_BIN/bench_riff.exe" delete "Z:$file" | tr -d "\r")
read3=$(readonce)
read=$(echo "($read1 + $read2 + $read3) / 3" | bc -l)
echo "find ${find}s delete ${delete}s read ${read}s" >&2
printf 'bench riff_find_last_of_10000: %.3f (target < 0.5)\n' "$(echo "$find / $read" | bc -l)"
printf 'bench riff_delete_first_chunk_1gib: %.3f (target < 4)\n' "$(echo "$delete / $read" | bc -l)"
