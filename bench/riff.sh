#!/bin/sh
# Chunk layer on a 1 GiB file of 10,000 chunks. Finding the last chunk walks
# only the headers: against reading the file once (cat FILE > /dev/null) in
# the same run. Deleting the first chunk moves the whole rest of the file in
# 4 KiB blocks: against the same move made natively by dd over the same file
# in the same run; its ratio to one cached read is printed for information.
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
# dd moves the first chunk's followers over it and cuts the file; the RIFF
# size is then set, so the delete below meets a file of the same shape.
chunk=$((8 + $(od -An -tu4 -j16 -N4 "$file" | tr -d ' ')))
size=$(stat -c %s "$file")
s=$(date +%s%N)
dd if="$file" of="$file" bs=4096 iflag=skip_bytes oflag=seek_bytes skip=$((12 + chunk)) seek=12 conv=notrunc status=none
truncate -s $((size - chunk)) "$file"
e=$(date +%s%N)
native=$(echo "($e - $s) / 1000000000" | bc -l)
python3 -c "import struct,sys; f=open(sys.argv[1],'r+b'); f.seek(4); f.write(struct.pack('<I', $size - $chunk - 8))" "$file"
delete=$($ZV_RUN "$ZV_BIN/bench_riff.exe" delete "Z:$file" | tr -d "\r")
read3=$(readonce)
read=$(echo "($read1 + $read2 + $read3) / 3" | bc -l)
echo "find ${find}s delete ${delete}s native move ${native}s read ${read}s" >&2
printf 'bench riff_find_last_of_10000: %.3f (target < 0.5)\n' "$(echo "$find / $read" | bc -l)"
printf 'bench riff_delete_first_chunk_1gib: %.3f (target <= 1.5)\n' "$(echo "$delete / $native" | bc -l)"
printf 'info riff_delete_first_chunk_1gib_vs_cached_read: %.3f\n' "$(echo "$delete / $read" | bc -l)"
