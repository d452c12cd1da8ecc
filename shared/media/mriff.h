// RIFF chunk layer on an image in memory: the riff_ functions of media/riff.h
// with a _tMRIFF record in place of a file handle. The buffer belongs to the
// caller. Writes clamp at the capacity end, reads and seeks at the data end;
// a write past the data end moves the data end forward (the dataSize field
// changes only through mriff_UpdateDataSize).
#pragma once
#include "zvbase.h"
#include "media/riff.h"
#include "audio/waveformat.h"

typedef struct _tMRIFF {
    BYTE *start;
    BYTE *cursor;
    BYTE *dataEnd;
    BYTE *capacityEnd;
    DWORD dataSize;
    DWORD capacity;
} _tMRIFF;
#if defined(_M_IX86) || defined(__i386__)
static_assert(sizeof(_tMRIFF) == 24, "_tMRIFF is six 32-bit fields");
#endif

// Null record: E_POINTER; data size above capacity: E_INVALIDARG.
ZVAPI HRESULT mriff_Init(_tMRIFF *mr, void *buffer, DWORD dataSize, DWORD capacity);
ZVAPI DWORD mriff_GetFilePointer(_tMRIFF *mr);
// Methods FILE_BEGIN, FILE_CURRENT, FILE_END (from the data end). The result
// is clamped to the image and returned as an offset from its start.
ZVAPI DWORD mriff_SetFilePointer(_tMRIFF *mr, LONG distanceLow, LONG *distanceHigh, DWORD method);
ZVAPI DWORD mriff_ZvSetFilePointer(_tMRIFF *mr, LONGLONG distance, DWORD method);
// FALSE on a short read (what was there is copied).
ZVAPI BOOL mriff_ReadFile(_tMRIFF *mr, void *buffer, DWORD count, DWORD *read);
// Copies what fits before the capacity end; always TRUE.
ZVAPI BOOL mriff_WriteFile(_tMRIFF *mr, const void *buffer, DWORD count, DWORD *written);
// Adds delta to the data size and the data end; returns delta.
ZVAPI LONG mriff_UpdateDataSize(_tMRIFF *mr, LONG delta);

ZVAPI HRESULT mriff_WriteChunkHeader(_tMRIFF *mr, DWORD id, DWORD size);
ZVAPI HRESULT mriff_WriteListHeader(_tMRIFF *mr, DWORD listType, DWORD size);
ZVAPI HRESULT mriff_WriteFileID(_tMRIFF *mr, DWORD formType, DWORD size);

ZVAPI HRESULT mriff_SaveLocation(_tMRIFF *mr, DWORD *position);
ZVAPI HRESULT mriff_RestoreLocation(_tMRIFF *mr, DWORD position);
ZVAPI DWORD mriff_SkipChunk(_tMRIFF *mr, DWORD size);
ZVAPI HRESULT mriff_SeekDataStart(_tMRIFF *mr);
ZVAPI HRESULT mriff_ReadData(_tMRIFF *mr, void *buffer, DWORD count);
ZVAPI HRESULT mriff_ReadDataBounded(_tMRIFF *mr, void *buffer, DWORD size, DWORD limit);
ZVAPI HRESULT mriff_ReadDataAlloc(_tMRIFF *mr, tZVRIFFBLOCK *block);
ZVAPI HRESULT mriff_ReadChunkHeader(_tMRIFF *mr, DWORD *id, DWORD *size);
ZVAPI HRESULT mriff_ReadListHeader(_tMRIFF *mr, DWORD *listType, DWORD *size);
ZVAPI HRESULT mriff_ReadFileID(_tMRIFF *mr, DWORD *size, DWORD *formType);
ZVAPI HRESULT mriff_FindChunkHeader(_tMRIFF *mr, DWORD id, DWORD *size, DWORD *remaining);
ZVAPI HRESULT mriff_FindChunkHeaderInRIFF(_tMRIFF *mr, DWORD id, DWORD *size, DWORD *remaining);
ZVAPI HRESULT mriff_FindListChunk(_tMRIFF *mr, DWORD listType, DWORD *size, DWORD *remaining);
ZVAPI HRESULT mriff_FindListChunkFromStart(_tMRIFF *mr, DWORD listType, DWORD *size);
ZVAPI HRESULT mriff_GetNumListEntries(_tMRIFF *mr, DWORD *count, DWORD *remaining);
// Entry id of the first LIST of type INFO, at most capacity bytes into
// buffer; size receives the bytes copied. The cursor is kept.
ZVAPI HRESULT mriff_GetInfoString(_tMRIFF *mr, DWORD id, char *buffer, DWORD capacity, DWORD *size);

// Wave headers in memory (the layouts of media/waveheader.h). headerSize 46
// gives the plain header, an even size of 54 or more a JUNK-padded one.
ZVAPI HRESULT mriff_WriteWaveHeader(_tMRIFF *mr, const WAVEFORMATEX *format, DWORD dataSize, DWORD headerSize);
// The wave reader on an image: format receives the record (the buffer must
// hold a WAVEFORMATEXTENSIBLE, 40 bytes) and dataOffset the offset of the
// first sample. ZVERR_UNSUPPORTED_MEDIA for a format that is not linear PCM.
ZVAPI HRESULT mriff_GetWfx(WAVEFORMATEX *format, const void *image, DWORD imageSize, DWORD *dataOffset);
#ifdef __cplusplus
ZVAPI_CXX HRESULT mriff_WriteWaveHeader(_tMRIFF *mr, const _zvwaveformat *format, DWORD dataSize, DWORD headerSize);
ZVAPI_CXX HRESULT mriff_GetWfx(_zvwaveformat *format, const void *image, DWORD imageSize, DWORD *dataOffset);
#endif
