#!/bin/sh
# An OpenDML file past 1 GiB (raw 4:2:0 frames and PCM, so a RIFF and an
# AVIX part) made by ffmpeg in a fresh folder, its first and last frames and
# its audio as ffmpeg demuxes them, then the reader's test on it; the folder
# goes afterwards whatever the outcome. Raw frames are data: the file can't
# be sparse.
# usage: opendml_big.sh TEST_EXE WINE_RUN
set -eu
exe=$1; run=$2
work=$(mktemp -d "${TMPDIR:-/tmp}/zv-opendml.XXXXXX")
trap 'rm -rf "$work"' EXIT INT TERM
w=320; h=240; n=9400; fb=$((w * h * 3 / 2))
ffmpeg -v error -f lavfi -i "testsrc=size=${w}x$h:rate=25" -f lavfi -i "sine=frequency=440:sample_rate=8000" \
    -frames:v $n -pix_fmt yuv420p -c:v rawvideo -c:a pcm_s16le -ac 1 -shortest "$work/big.avi"
size=$(stat -c %s "$work/big.avi")
[ "$size" -gt 1073741824 ] || { echo "ffmpeg made only $size bytes" >&2; exit 1; }
ffmpeg -v error -i "$work/big.avi" -map 0:v -c copy -f rawvideo - | head -c $fb > "$work/first.raw"
ffmpeg -v error -i "$work/big.avi" -map 0:v -c copy -f rawvideo - | tail -c $fb > "$work/last.raw"
ffmpeg -v error -i "$work/big.avi" -map 0:a -c copy -f s16le "$work/big.a.raw"
frames=$(ffprobe -v error -count_packets -select_streams v -show_entries stream=nb_read_packets -of csv=p=0 \
    "$work/big.avi")
echo "$w $h $frames" > "$work/manifest.txt"
ZV_AVI_BIG=$work "$run" "$exe" --gtest_filter=AviReader.OpenDmlFilePastOneGiB --gtest_brief=1
