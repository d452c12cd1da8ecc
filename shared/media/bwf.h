// Broadcast wave metadata: the bext and iXML chunks of a RIFF wave file at
// chunk level (update in place or by append, delete), and the format
// properties a coding history line needs.
#pragma once
#include "zvbase.h"

enum BWF_CHUNK_ENUM {
    BWF_CHUNK_BEXT = 0,
    BWF_CHUNK_IXML = 1,
};

// Chunk ids by BWF_CHUNK_ENUM.
ZVAPI DWORD bwf_ChunkId(int which);

// Rate, bits and channels from the fmt chunk; the position is not kept.
ZVAPI HRESULT ReadFilePropsFromFormatChunk(HANDLE file, DWORD *rate, DWORD *bits, DWORD *channels);

// Writes the body of chunk which (outside 0 to 1: E_INVALIDARG). An old
// chunk at least as large is overwritten in place and its tail zero-filled
// (written 0). Otherwise the new chunk is appended at the end the RIFF size
// gives and the RIFF size grows by written; a too small old chunk then becomes
// JUNK. The new chunk is complete and counted before the old one is retired,
// so a write that stops half-way leaves the old chunk readable.
ZVAPI HRESULT bwfriff_UpdateStreamChunk(int which, HANDLE file, const void *data, DWORD size, DWORD *written);
// which outside 0 to 1 returns 0; a missing chunk is no fault. The removed
// size is added to *removed.
ZVAPI HRESULT bwfriff_DeleteChunk(int which, HANDLE file, DWORD *removed);
ZVAPI HRESULT bwfriff_DeleteAllChunks(HANDLE file, DWORD *removed);
