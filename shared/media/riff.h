// RIFF chunk layer: free functions on an open file handle. There is no parser
// object: every function works from the handle's current position, and where
// it leaves the handle is part of its contract (see each declaration).
//
// Chunk ids are 32-bit values with the first character in the low byte, so
// ZVRIFF_ID('R','I','F','F') == 0x46464952. Sizes on disk are little-endian;
// a chunk of odd size is followed by one zero pad byte that its size leaves
// out. A "remaining" counter, where a function takes one, bounds the walk to
// the bytes left in the enclosing container from the position (take it from
// the file header: stored RIFF size minus 4); a null counter walks until a
// read fails, which then gives ZVERR_FILE_READ rather than ZVERR_NOT_FOUND.
#pragma once
#include "zvbase.h"

#define ZVRIFF_ID(a, b, c, d) \
    ((DWORD)(BYTE)(a) | ((DWORD)(BYTE)(b) << 8) | ((DWORD)(BYTE)(c) << 16) | ((DWORD)(BYTE)(d) << 24))

#define ZVRIFF_RIFF ZVRIFF_ID('R', 'I', 'F', 'F')
#define ZVRIFF_LIST ZVRIFF_ID('L', 'I', 'S', 'T')
#define ZVRIFF_WAVE ZVRIFF_ID('W', 'A', 'V', 'E')
#define ZVRIFF_FMT  ZVRIFF_ID('f', 'm', 't', ' ')
#define ZVRIFF_DATA ZVRIFF_ID('d', 'a', 't', 'a')
#define ZVRIFF_JUNK ZVRIFF_ID('J', 'U', 'N', 'K')
#define ZVRIFF_INFO ZVRIFF_ID('I', 'N', 'F', 'O')
#define ZVRIFF_CDDA ZVRIFF_ID('C', 'D', 'D', 'A')

// Error results of the chunk layers not in zvbase.h.
#define ZVERR_WRONG_CHUNK_SIZE ((HRESULT)0x8004E01C)

// The largest stored RIFF size: that size plus 8 still fits in 32 bits.
#define ZVRIFF_MAX_SIZE 0xFFFFFFF7u

// In/out record of riff_ReadDataAlloc (and its Wave64 and memory twins).
// size is read, data receives a locked, zero-filled movable global block;
// the caller unlocks and frees it (GlobalUnlock, GlobalFree(GlobalHandle)).
typedef struct tZVRIFFBLOCK {
    DWORD size;
    void *data;
} tZVRIFFBLOCK;

// --- Position and plain data ---
// Low 32 bits of the position; returns 0.
ZVAPI HRESULT riff_SaveLocation(HANDLE file, DWORD *position);
ZVAPI HRESULT riff_RestoreLocation(HANDLE file, DWORD position);
// To the first chunk, offset 12.
ZVAPI HRESULT riff_SeekDataStart(HANDLE file);
// Forward over size and the pad of an odd size; returns that distance.
ZVAPI DWORD riff_SkipChunk(HANDLE file, DWORD size);
// Negative size: ZVERR_NEWER_FORMAT; 0: ZVERR_ZERO_CHUNK; else 0.
ZVAPI HRESULT riff_ValidateChunkHeader(DWORD id, LONG size);
// Exactly count bytes, then over the pad of an odd count.
ZVAPI HRESULT riff_ReadData(HANDLE file, void *buffer, DWORD count);
// min(size, limit) bytes, then forward over the rest of size plus one when
// limit is odd.
ZVAPI HRESULT riff_ReadDataBounded(HANDLE file, void *buffer, DWORD size, DWORD limit);
ZVAPI HRESULT riff_ReadDataAlloc(HANDLE file, tZVRIFFBLOCK *block);

// --- File header ---
ZVAPI HRESULT riff_WriteFileID(HANDLE file, DWORD formType, DWORD size);
// size receives the stored size minus 4. Leaves the handle behind the form type.
ZVAPI HRESULT riff_ReadFileID(HANDLE file, DWORD *size, DWORD *formType);
// Writes size at offset 4; the position is kept.
ZVAPI HRESULT riff_SetRIFFSize(HANDLE file, DWORD size);
// Adds delta to the stored size; past ZVRIFF_MAX_SIZE the file is cut back
// to its stored length and ZVERR_SIZE_LIMIT returned. The position is kept.
ZVAPI HRESULT riff_UpdateRIFFSize(HANDLE file, LONGLONG delta);
// Stored size plus 4 (4 less than the real length of a well-formed file).
ZVAPI HRESULT riff_GetFileSize(HANDLE file, DWORD *size);

// --- Chunks and lists ---
ZVAPI HRESULT riff_WriteChunkHeader(HANDLE file, DWORD id, DWORD size);
// Header, data and pad; written receives 8 plus the padded size.
ZVAPI HRESULT riff_WriteChunk(HANDLE file, DWORD id, const void *data, DWORD size, DWORD *written);
ZVAPI HRESULT riff_WriteListHeader(HANDLE file, DWORD listType, DWORD size);
ZVAPI HRESULT riff_ReadChunkHeader(HANDLE file, DWORD *id, DWORD *size);
// size receives the stored size minus 4; ZVERR_NO_LIST_HEADER for another id.
ZVAPI HRESULT riff_ReadListHeader(HANDLE file, DWORD *listType, DWORD *size);
// Walks from a chunk header; on success the handle stands on the data.
ZVAPI HRESULT riff_FindChunkHeader(HANDLE file, DWORD id, DWORD *size, DWORD *remaining);
// From the start of the file, bounded by its header.
ZVAPI HRESULT riff_FindChunkHeaderInRIFF(HANDLE file, DWORD id, DWORD *size, DWORD *remaining);
// On success the handle stands on the first sub-chunk; size excludes the type.
ZVAPI HRESULT riff_FindListChunk(HANDLE file, DWORD listType, DWORD *size, DWORD *remaining);
ZVAPI HRESULT riff_FindListChunkFromStart(HANDLE file, DWORD listType, DWORD *size);
// Counts the chunks ahead; the position is kept, the counter consumed.
ZVAPI HRESULT riff_GetNumListEntries(HANDLE file, DWORD *count, DWORD *remaining);
ZVAPI HRESULT riff_SeekListEntry(HANDLE file, DWORD index, DWORD *remaining);
// Removes the first chunk id (or the first LIST of type id) by moving the
// rest of the file down; the handle is left at the new end of the file.
ZVAPI HRESULT riff_DeleteChunk(HANDLE file, DWORD id, DWORD *removedSize, BOOL isList);
// Inserts a chunk at the position, which must stand on a chunk header inside
// the RIFF body, by moving the rest of the file up. A file that would pass
// the size limit is left untouched (ZVERR_SIZE_LIMIT). The handle is left
// behind the new chunk; written receives 8 plus the padded size.
ZVAPI HRESULT riff_InsertChunk(HANDLE file, DWORD id, const void *data, DWORD size, DWORD *written);

// --- Strings and CD audio ---
ZVAPI HRESULT riff_WriteANSIString(HANDLE file, const wchar_t *text, DWORD *written);
// Reads size bytes (at most capacity) as an ANSI string; size is in/out.
ZVAPI HRESULT riff_ReadANSIString(HANDLE file, wchar_t *buffer, DWORD capacity, DWORD *size);
// The RIFF/CDDA header and its 24-byte fmt chunk.
ZVAPI HRESULT riff_ReadRIFFCDDA(HANDLE file, void *fmt24);
ZVAPI HRESULT riff_ReadCDAFile(const wchar_t *path, DWORD *track, DWORD *startSector, DWORD *startFrame,
                               DWORD *sectorCount, DWORD *serial);
