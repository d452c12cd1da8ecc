// Where the samples of a linear PCM file lie and how they are stored, read
// from the headers of a wave, Wave64 or AIFF/AIFC file with the chunk
// layers, and the in-place turn of stored samples into delivered ones.
#pragma once
#include "zvbase.h"
#include "audio/waveformat.h"

enum PcmContainer { PCM_WAVE = 0, PCM_WAVE64 = 1, PCM_AIFF = 2 };

// Limits a header must keep; outside them the file is malformed.
#define PCM_MAX_CHANNELS 1024
#define PCM_MAX_RATE     1536000u

struct PcmLayout {
    PcmContainer container;
    WORD channels;
    DWORD rate;
    WORD bytesPerSample;     // stored container bytes of one sample
    WORD validBits;          // significant bits (<= 8 * bytesPerSample)
    bool isFloat;
    bool bigEndian;          // AIFF without sowt
    bool signed8;            // 8-bit samples stored signed (AIFF)
    bool extensible;         // the wave format was WAVE_FORMAT_EXTENSIBLE
    DWORD channelMask;
    WORD blockAlign;         // channels * bytesPerSample
    ULONGLONG dataOffset;    // first byte of the first frame
    ULONGLONG frames;        // frames present in the file
    ULONGLONG fileLength;
};

// True when the first bytes carry the container's signature.
bool PcmSniff(const BYTE *head, DWORD size, PcmContainer container);
// Reads the headers of an open file (the handle's position is moved).
// S_OK with a layout, else the system's code: ZVERR_UNSUPPORTED_FORMAT for a
// file of another kind or a compressed format, ZVERR_MALFORMED for broken
// headers, ZVERR_NO_RIFF_HEADER and friends from the chunk layers.
HRESULT PcmParse(HANDLE file, PcmContainer container, PcmLayout *out);
// Sample type delivered by ReadSamples, and the one stored in the file.
ZVSAMPLETYPE PcmDecodedType(const PcmLayout &layout);
ZVSAMPLETYPE PcmStoredType(const PcmLayout &layout);
// Turns frames of stored samples into delivered ones in place.
void PcmDecode(const PcmLayout &layout, BYTE *data, size_t frames);
