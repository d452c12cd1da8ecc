#!/bin/sh
# Makes the AVI reader's test files with ffmpeg into the folder $1, and for
# each the video (and audio) packets as stored, copied out by ffmpeg, and
# ffmpeg's own BGRA conversion where the source has one.
# manifest.txt: file width height frames pix_fmt audio(0/1)
set -e
out="$1"
[ -n "$out" ] || { echo "usage: $0 OUTDIR" >&2; exit 2; }
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$out"
mkdir -p "$out"
cd "$out"

# BGRA as ffmpeg converts YUV (BT.601, studio range), with chroma taken for
# its pixels as it stands, the system's rule: padded to even size so that
# doubling the chroma by its nearest sample is exact, converted at full
# precision (not by its 8-bit tables, which round up to 3 off), cut back
bgra() { # input width height [input options]
    in=$1; w=$2; h=$3; shift 3
    ffmpeg -v error "$@" -i "$in" -map 0:v -vf "pad=ceil(iw/2)*2:ceil(ih/2)*2,scale=flags=neighbor+full_chroma_inp,format=yuv444p,scale=flags=accurate_rnd+full_chroma_int+full_chroma_inp+bitexact,crop=$w:$h:0:0" \
        -f rawvideo -pix_fmt bgra "$name.bgra"
}

gen() { # name pix_fmt size frames codec audio [extra output options]
    name=$1; pix=$2; size=$3; n=$4; codec=$5; audio=$6; shift 6
    if [ "$audio" = 1 ]; then
        ffmpeg -v error -f lavfi -i "testsrc=size=$size:rate=25" -f lavfi -i "sine=frequency=440:sample_rate=48000" \
            -frames:v "$n" -shortest -pix_fmt "$pix" -c:v "$codec" "$@" -c:a pcm_s16le -ac 2 "$name.avi"
        ffmpeg -v error -i "$name.avi" -map 0:a -c copy -f s16le "$name.a.raw"
    else
        ffmpeg -v error -f lavfi -i "testsrc=size=$size:rate=25" -frames:v "$n" -pix_fmt "$pix" -c:v "$codec" "$@" "$name.avi"
    fi
    ffmpeg -v error -i "$name.avi" -map 0:v -c copy -f rawvideo "$name.v.raw"
    case $pix in
        yuv420p|uyvy422|yuyv422|nv12) bgra "$name.avi" "${size%x*}" "${size#*x}" ;;
        bgr24|bgra) ffmpeg -v error -i "$name.avi" -map 0:v -f rawvideo -pix_fmt bgra "$name.bgra" ;;
    esac
    echo "$name.avi ${size%x*} ${size#*x} $n $pix $audio" >> manifest.txt
}

gen bgr24_even bgr24 64x48 10 rawvideo 1
gen bgr24_odd bgr24 33x17 5 rawvideo 0
gen bgra bgra 15x7 3 rawvideo 0
gen i420 yuv420p 32x18 4 rawvideo 1
gen i420_odd yuv420p 33x17 3 rawvideo 0
gen yv12 yuv420p 34x20 3 rawvideo 0 -vtag YV12
gen uyvy uyvy422 32x16 2 rawvideo 0
gen yuy2 yuyv422 34x10 6 rawvideo 1
gen nv12 nv12 32x18 3 rawvideo 0
gen nv12_odd nv12 21x11 2 rawvideo 0
gen v210 yuv422p10le 48x16 5 v210 0
gen long yuv420p 16x16 300 rawvideo 0

# ffmpeg doesn't put P010 in AVI: its raw frames, wrapped here
ffmpeg -v error -f lavfi -i "testsrc=size=32x18:rate=25" -frames:v 4 -pix_fmt p010le -f rawvideo p010.v.raw
python3 "$here/wrap_avi.py" p010.v.raw p010.avi 32 18 P010 24
name=p010
bgra p010.v.raw 32 18 -f rawvideo -pix_fmt p010le -s 32x18
echo "p010.avi 32 18 4 p010le 0" >> manifest.txt
