// Internal to the wave header code: format checks and header writers shared
// by header creation, insertion and repair. Not exported.
#pragma once
#include "media/waveheader.h"
#include "media/riff64.h"
#include "media/chunkio.h"

namespace zvmedia {

// The tag-1 test: block align must fit the bits (20 counting as 24), and 20
// bits are refused all the same.
HRESULT CheckPcmTag1(const WAVEFORMATEX *format);
// Before any header is written: no extra bytes, then the tag-1 test.
HRESULT CheckHeaderFormat(const WAVEFORMATEX *format);

// Writes H bytes of wave header through write(buf, n) -> bool: the plain
// layout for H = 46, else the JUNK-padded one. The caller checked H.
template <class Write>
bool WriteWavHeaderTo(Write write, const WAVEFORMATEX *format, DWORD riffSize, DWORD dataSize, DWORD headerSize)
{
    BYTE head[46];
    StoreLE32(head, ZVRIFF_ID('R', 'I', 'F', 'F'));
    StoreLE32(head + 4, riffSize);
    StoreLE32(head + 8, ZVRIFF_ID('W', 'A', 'V', 'E'));
    StoreLE32(head + 12, ZVRIFF_ID('f', 'm', 't', ' '));
    StoreLE32(head + 16, 18);
    memcpy(head + 20, format, 16);
    head[36] = head[37] = 0; // no extra bytes
    if (!write(head, 38))
        return false;
    if (headerSize > ZVWAV_PLAIN_HEADER) {
        static const BYTE zeros[1024] = {};
        BYTE junk[8];
        DWORD left = headerSize - ZVWAV_PADDED_MIN;
        StoreLE32(junk, ZVRIFF_ID('J', 'U', 'N', 'K'));
        StoreLE32(junk + 4, left);
        if (!write(junk, 8))
            return false;
        while (left) {
            DWORD n = left < sizeof zeros ? left : (DWORD)sizeof zeros;
            if (!write(zeros, n))
                return false;
            left -= n;
        }
    }
    BYTE data[8];
    StoreLE32(data, ZVRIFF_ID('d', 'a', 't', 'a'));
    StoreLE32(data + 4, dataSize);
    return write(data, 8);
}

// The Wave64 header: riffSize and dataSize are sizes above the layer (the
// stored values get 24 added). H = 112 or padded.
bool WriteW64Header(HANDLE file, const WAVEFORMATEX *format, ULONGLONG riffSize, ULONGLONG dataSize,
                    ULONGLONG headerSize);

} // namespace zvmedia
