#!/bin/sh
# Makes the AVI reader's test files with ffmpeg into the folder $1, and for
# each the video (and audio) packets as stored, copied out by ffmpeg.
# manifest.txt: file width height frames fourcc audio(0/1)
set -e
out="$1"
[ -n "$out" ] || { echo "usage: $0 OUTDIR" >&2; exit 2; }
rm -rf "$out"
mkdir -p "$out"
cd "$out"

gen() { # name pix_fmt size frames codec audio
    name=$1; pix=$2; size=$3; n=$4; codec=$5; audio=$6
    if [ "$audio" = 1 ]; then
        ffmpeg -v error -f lavfi -i "testsrc=size=$size:rate=25" -f lavfi -i "sine=frequency=440:sample_rate=48000" \
            -frames:v "$n" -shortest -pix_fmt "$pix" -c:v "$codec" -c:a pcm_s16le -ac 2 "$name.avi"
        ffmpeg -v error -i "$name.avi" -map 0:a -c copy -f s16le "$name.a.raw"
    else
        ffmpeg -v error -f lavfi -i "testsrc=size=$size:rate=25" -frames:v "$n" -pix_fmt "$pix" -c:v "$codec" "$name.avi"
    fi
    ffmpeg -v error -i "$name.avi" -map 0:v -c copy -f rawvideo "$name.v.raw"
    # ffmpeg's own conversion to BGRA (BT.601, studio range) of 8-bit YUV
    # (NV12 goes by way of I420, a plain repack, so that chroma is taken
    # for its pixels as it stands rather than resampled)
    case $pix in
        yuv420p|uyvy422|yuyv422)
            ffmpeg -v error -i "$name.avi" -map 0:v -f rawvideo -pix_fmt bgra "$name.bgra" ;;
        nv12)
            ffmpeg -v error -i "$name.avi" -map 0:v -vf format=yuv420p -f rawvideo \
                -pix_fmt bgra "$name.bgra" ;;
    esac
    w=${size%x*}; h=${size#*x}
    echo "$name.avi $w $h $n $pix $audio" >> manifest.txt
}

gen bgr24_even bgr24 64x48 10 rawvideo 1
gen bgr24_odd bgr24 33x17 5 rawvideo 0
gen bgra bgra 15x7 3 rawvideo 0
gen i420 yuv420p 32x18 4 rawvideo 1
gen i420_odd yuv420p 33x17 3 rawvideo 0
gen uyvy uyvy422 32x16 2 rawvideo 0
gen yuy2 yuyv422 34x10 6 rawvideo 0
gen nv12 nv12 32x18 3 rawvideo 0
gen v210 yuv422p10le 48x16 5 v210 0
gen long yuv420p 16x16 300 rawvideo 0
