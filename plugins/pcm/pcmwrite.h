// Headers of the files the renderers write: laid down with empty sizes when
// a file is created, the sizes set when it is closed. Wave goes through the
// RIFF chunk layer, Wave64 through its twin, AIFF/AIFC through the IFF layer.
#pragma once
#include "pcmformat.h"

struct PcmWriteLayout {
    PcmContainer container;
    bool aifc;               // AIFF container: AIFC form (float, or asked by the name)
    ULONGLONG dataOffset;    // first byte of the first frame
    ULONGLONG commAt;        // AIFF: the COMM chunk's data
    ULONGLONG maxData;       // data bytes the container's sizes can hold
    PcmLayout stored;        // how delivered samples are stored (AIFF: swapped)
};

// Writes the header at the start of the file; the handle ends on the first
// sample. ZVERR_UNSUPPORTED_MEDIA for a format the container can't hold.
HRESULT PcmWriteHeader(HANDLE file, PcmContainer container, const _zvwaveformat &format, bool aifc,
                       PcmWriteLayout *out);
// Pads the data and stores every size for dataSize bytes of samples.
HRESULT PcmFinishFile(HANDLE file, const PcmWriteLayout &layout, ULONGLONG dataSize);
// True when samples must be turned into the stored form before writing.
inline bool PcmNeedsEncode(const PcmWriteLayout &l)
{
    return l.stored.bigEndian || l.stored.signed8;
}
