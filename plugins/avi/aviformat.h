// Where the frames and samples of an uncompressed AVI file lie: the stream
// headers and the index (AVI 1.0 idx1, or the OpenDML super index and its
// ix## chunks across RIFF AVIX parts), read with the RIFF chunk layer.
#pragma once
#include "zvbase.h"
#include <mmreg.h>
#include <vector>

#define AVI_MAX_STREAMS 64
#define AVI_MAX_DIMENSION 32768

struct AviChunk {
    ULONGLONG offset;   // first data byte
    DWORD size;         // 0 for a dropped frame (the one before repeats)
};

struct AviStream {
    DWORD type;          // 'vids', 'auds' or another
    DWORD handler;
    DWORD scale, rate;   // rate / scale per second
    BITMAPINFOHEADER video;   // video streams
    WAVEFORMATEX audio;       // audio streams (cbSize 0)
    std::vector<AviChunk> chunks;
    ULONGLONG bytes;     // sum of the chunk sizes
};

struct AviFile {
    std::vector<AviStream> streams;
    ULONGLONG fileLength;
    bool openDML;        // the index came from indx / ix## chunks
};

// Reads the headers and the index of an open file (the position moves).
// S_OK, else ZVERR_NO_RIFF_HEADER (not RIFF), ZVERR_UNSUPPORTED_FORMAT
// (RIFF of another form), ZVERR_MALFORMED (broken headers or an index that
// points outside the file), ZVERR_FILE_READ.
HRESULT AviParse(HANDLE file, AviFile *out);
// True when the first bytes are the header of an AVI file.
bool AviSniff(const BYTE *head, DWORD size);
