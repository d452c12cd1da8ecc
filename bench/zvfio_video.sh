#!/bin/sh
# zvfio read --stream video on an uncompressed 1080p AVI (UYVY, about 500 MB),
# with the reader in a surrogate (bin/avi-surrogate) against the same reader
# in process, in the same run. Ratio = frames per second through the
# surrogate / in process; zvfio times the frames alone.
dir="${ZV_BUILD:-/tmp}/bench-zvfio-video"
mkdir -p "$dir"
big="$dir/big.avi"
trap 'rm -f "$big"' EXIT INT TERM
ffmpeg -v error -y -f lavfi -i "testsrc=size=1920x1080:rate=25" -frames:v 120 -pix_fmt uyvy422 -c:v rawvideo "$big" ||
    { echo "zvfio-read-video-surrogate: ffmpeg could not make the file" >&2; exit 1; }
win=$(echo "Z:$big" | tr '/' '\\')

# best of two, MB/s as zvfio reports it
rate() { # exe
    best=0
    for _ in 1 2; do
        r=$($ZV_RUN "$1" read --stream video --pixel native --quiet "$win" | tr -d '\r' |
            sed -n 's/.* \([0-9.]*\) MB\/s$/\1/p')
        [ -n "$r" ] || { echo 0; return; }
        best=$(echo "if ($r > $best) $r else $best" | bc -l)
    done
    echo "$best"
}
inproc=$(rate "$ZV_BIN/zvfio.exe")
sur=$(rate "$ZV_BIN/avi-surrogate/zvfio.exe")
if [ "$(echo "$inproc > 0" | bc)" = 1 ]; then
    printf 'bench zvfio-read-video-surrogate: %.2f (target >= 0.5)\n' "$(echo "$sur / $inproc" | bc -l)"
else
    echo "zvfio-read-video-surrogate: the read in process failed" >&2
fi
echo "  (frames in process $(printf %.0f "$inproc") MB/s, through a surrogate $(printf %.0f "$sur") MB/s)" >&2
