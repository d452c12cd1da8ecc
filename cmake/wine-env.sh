# Sourced by wine-run.sh and wine-prefix.sh: the environment every Wine
# process of the project shares, server and clients alike.
export WINEDEBUG=-all
export WINELOADER=/usr/lib/wine/wine64
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d"
# Wine keeps the memory of every page-file section (the shared buffers a
# surrogate fills) as a file in the server's folder under TMPDIR. On a disk
# file system each first write to a page of a view pays a journal update; on
# tmpfs it is a plain page fault, which makes reads through a surrogate about
# 1.5 times as fast. /dev/shm is used when it is tmpfs with room to spare (a
# container's 64 MB /dev/shm would make large mappings fail); server and
# clients must agree, so the choice depends on nothing but the machine.
if [ -z "$ZV_WINE_TMPDIR" ]; then
    ZV_WINE_TMPDIR=${TMPDIR:-/tmp}
    if [ "$(stat -f -c %T /dev/shm 2>/dev/null)" = tmpfs ] && [ -w /dev/shm ] &&
       [ "$(df -Pk /dev/shm 2>/dev/null | awk 'NR==2 {print $4}')" -ge 4194304 ] 2>/dev/null; then
        ZV_WINE_TMPDIR=/dev/shm
    fi
fi
export ZV_WINE_TMPDIR
export TMPDIR="$ZV_WINE_TMPDIR"
