// Sampler information of an AIFF file: the INST chunk and the MARK entries
// its loops name, turned into the record of a smpl item (36-byte header,
// then 32-byte loops: id, type, start u64, length u64, fraction, play count).
#include "media/metainternal.h"
#include "media/iff.h"
#include "media/chunkio.h"
#include <string.h>

namespace zvmeta {

HRESULT ReadAiffSampler(HANDLE file, DWORD rate, Bytes *record)
{
    if (!record)
        return E_POINTER;
    DWORD size = 0;
    HRESULT hr = iff_FindChunkFromStart(file, ZVIFF_ID('I', 'N', 'S', 'T'), &size);
    if (FAILED(hr))
        return hr;
    BYTE inst[20];
    DWORD got = 0;
    if (size < sizeof inst)
        return ZVERR_MALFORMED;
    if (!ReadFile(file, inst, sizeof inst, &got, nullptr) || got != sizeof inst)
        return ZVERR_FILE_READ;
    record->assign(36, 0);
    DWORD period = rate ? (DWORD)(1000000000.0 / rate + 0.5) : 0;
    DWORD unity = inst[0];
    memcpy(&(*record)[8], &period, 4);
    memcpy(&(*record)[12], &unity, 4);
    // Sustain loop, then release loop: play mode, begin and end marker ids.
    DWORD loops = 0;
    for (int which = 0; which < 2; which++) {
        const BYTE *l = inst + 8 + which * 6;
        WORD mode = zvmedia::LoadBE16(l);
        if (mode == 0)
            continue;
        tZVIFFMARKER begin, end;
        hr = iff_FindMarker(file, &begin, zvmedia::LoadBE16(l + 2));
        if (SUCCEEDED(hr))
            hr = iff_FindMarker(file, &end, zvmedia::LoadBE16(l + 4));
        if (hr == ZVERR_NOT_FOUND)
            continue; // a loop whose markers are gone is no loop
        if (FAILED(hr))
            return hr;
        DWORD id = loops, type = mode == 2 ? 1 : 0, zero = 0;
        ULONGLONG start = begin.position, length = end.position > begin.position ? end.position - begin.position : 0;
        BYTE loop[32];
        memcpy(loop, &id, 4);
        memcpy(loop + 4, &type, 4);
        memcpy(loop + 8, &start, 8);
        memcpy(loop + 16, &length, 8);
        memcpy(loop + 24, &zero, 4);
        memcpy(loop + 28, &zero, 4);
        record->insert(record->end(), loop, loop + 32);
        loops++;
    }
    memcpy(&(*record)[28], &loops, 4);
    return S_OK;
}

} // namespace zvmeta
