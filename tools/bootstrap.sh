#!/bin/sh
# Installs what the build, the tests, the demo and the benchmarks call, where
# it is missing. Each need is probed by the thing that is called (a command,
# a file, a pkg-config module), not by a package name: a package of a similar
# name being present says nothing about the command being there.
#
#   sh tools/bootstrap.sh          everything
#   sh tools/bootstrap.sh --check  only lists what is missing (exit 1 if any)
set -e

# Each line: a probe and the Debian package that satisfies it. "cmd:NAME" is
# a command on PATH, "file:PATH" a file, "pc:MODULE" a pkg-config module.
needs='
cmd:make                                        make
cmd:git                                         git
cmd:cmake                                       cmake
cmd:ninja                                       ninja-build
cmd:x86_64-w64-mingw32-gcc-posix                gcc-mingw-w64-x86-64-posix
cmd:x86_64-w64-mingw32-g++-posix                g++-mingw-w64-x86-64-posix
cmd:i686-w64-mingw32-gcc-posix                  gcc-mingw-w64-i686-posix
cmd:i686-w64-mingw32-g++-posix                  g++-mingw-w64-i686-posix
cmd:x86_64-w64-mingw32-windres                  binutils-mingw-w64-x86-64
cmd:i686-w64-mingw32-windres                    binutils-mingw-w64-i686
file:/usr/lib/wine/wine64                       wine64
file:/usr/lib/wine/wineserver                   libwine
cmd:widl-stable                                 wine64-tools
file:/usr/include/wine/wine/windows/unknwn.idl  libwine-dev
file:/usr/src/googletest/CMakeLists.txt         googletest
cmd:python3                                     python3
cmd:sox                                         sox
cmd:sndfile-info                                sndfile-programs
cmd:bc                                          bc
cmd:g++                                         g++
cmd:ccache                                      ccache
cmd:pkg-config                                  pkg-config
pc:libavutil                                    libavutil-dev
pc:libswresample                                libswresample-dev
pc:samplerate                                   libsamplerate0-dev
pc:expat                                        libexpat1-dev
pc:pugixml                                      libpugixml-dev
cmd:xmllint                                     libxml2-utils
cmd:exiftool                                    libimage-exiftool-perl
file:/usr/include/libyuv.h                      libyuv-dev
pc:libswscale                                   libswscale-dev
cmd:ffmpeg                                      ffmpeg
file:/usr/lib/x86_64-linux-gnu/libOpenCL.so.1   ocl-icd-libopencl1
file:/etc/OpenCL/vendors/pocl.icd               pocl-opencl-icd
'

missing=""
while read -r probe pkg; do
    [ -n "$probe" ] || continue
    kind=${probe%%:*}
    what=${probe#*:}
    case "$kind" in
    cmd)  command -v "$what" >/dev/null 2>&1 && continue ;;
    file) [ -e "$what" ] && continue ;;
    pc)   command -v pkg-config >/dev/null 2>&1 && pkg-config --exists "$what" 2>/dev/null && continue ;;
    esac
    case " $missing " in *" $pkg "*) ;; *) missing="$missing $pkg" ;; esac
done <<EOF
$needs
EOF

if [ "$1" = "--check" ]; then
    [ -z "$missing" ] && { echo "bootstrap: nothing missing"; exit 0; }
    echo "bootstrap: missing:$missing"
    exit 1
fi
[ -z "$missing" ] && exit 0

echo "installing:$missing"
if [ "$(id -u)" != 0 ]; then
    echo "bootstrap: these packages are missing and installing them needs root:$missing" >&2
    exit 1
fi
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends $missing >/dev/null
