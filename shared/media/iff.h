// IFF chunk layer for big-endian FORM files (AIFF, AIFC) on Win32 handles.
// Ids are held byte-swapped, so ZVIFF_ID('F','O','R','M') == 0x464F524D and
// compares with what iff_ReadChunkHdr returns. Chunks pad to even as in RIFF.
// The handle-position rules of the RIFF layer (media/riff.h) hold.
#pragma once
#include "zvbase.h"
#include "audio/waveformat.h"

#define ZVIFF_ID(a, b, c, d) \
    (((DWORD)(BYTE)(a) << 24) | ((DWORD)(BYTE)(b) << 16) | ((DWORD)(BYTE)(c) << 8) | (DWORD)(BYTE)(d))

#define ZVIFF_FORM ZVIFF_ID('F', 'O', 'R', 'M')
#define ZVIFF_AIFF ZVIFF_ID('A', 'I', 'F', 'F')
#define ZVIFF_AIFC ZVIFF_ID('A', 'I', 'F', 'C')
#define ZVIFF_COMM ZVIFF_ID('C', 'O', 'M', 'M')
#define ZVIFF_SSND ZVIFF_ID('S', 'S', 'N', 'D')
#define ZVIFF_MARK ZVIFF_ID('M', 'A', 'R', 'K')
#define ZVIFF_NONE ZVIFF_ID('N', 'O', 'N', 'E')
#define ZVIFF_SOWT ZVIFF_ID('s', 'o', 'w', 't')

typedef struct tZVIFFCHUNKHDR {
    DWORD id;
    DWORD size;
} tZVIFFCHUNKHDR;

#pragma pack(push, 1)
// One MARK record as returned by iff_FindMarker: id, position, name length.
typedef struct tZVIFFMARKER {
    WORD id;
    DWORD position;
    BYTE nameLength;
} tZVIFFMARKER;
#pragma pack(pop)

// Swap count items in place.
ZVAPI void iff_ByteSwap16(void *buffer, DWORD count);
ZVAPI void iff_ByteSwap32(void *buffer, DWORD count);
ZVAPI void aiff_WriteByteSwap16(void *buffer, DWORD count);
ZVAPI void aiff_WriteByteSwap32(void *buffer, DWORD count);

ZVAPI HRESULT iff_ReadChunkHdr(HANDLE file, tZVIFFCHUNKHDR *header);
ZVAPI HRESULT iff_ReadDWORD(HANDLE file, DWORD *value);
ZVAPI HRESULT iff_ReadWORD(HANDLE file, WORD *value);
ZVAPI HRESULT iff_WriteDWORD(HANDLE file, DWORD value);
ZVAPI HRESULT iff_WriteWORD(HANDLE file, WORD value);
ZVAPI HRESULT iff_WriteChunk(HANDLE file, const tZVIFFCHUNKHDR *header);
ZVAPI HRESULT iff_WriteFileID(HANDLE file, DWORD formType, DWORD size);
// A first id other than FORM: ZVERR_MALFORMED.
ZVAPI HRESULT iff_ReadFormType(HANDLE file, tZVIFFCHUNKHDR *header, DWORD *formType);
ZVAPI DWORD iff_SkipChunk(HANDLE file, DWORD size);
// Walks from a chunk header, bounded when remaining is given.
ZVAPI HRESULT iff_FindChunkHeader(HANDLE file, DWORD id, DWORD *size, DWORD *remaining);
ZVAPI HRESULT iff_SeekChunkHeader(HANDLE file, DWORD id, DWORD *size);
// From the start; not FORM: ZVERR_NO_RIFF_HEADER; any miss: ZVERR_NOT_FOUND.
ZVAPI HRESULT iff_FindChunkFromStart(HANDLE file, DWORD id, DWORD *size);
ZVAPI HRESULT iff_FindMarker(HANDLE file, tZVIFFMARKER *marker, WORD id);
// Removes the first chunk id by moving the rest of the file down. Only AIFF
// and AIFC files (ZVERR_MALFORMED otherwise).
ZVAPI HRESULT iff_DeleteChunk(HANDLE file, DWORD id, DWORD *removedSize);
ZVAPI BOOL iff_IsAIFFFile(HANDLE file, DWORD *size);
ZVAPI BOOL iff_IsAIFFFileEx(HANDLE file, DWORD *size, BOOL *isAIFC, BOOL *littleEndian);
// The format of an AIFF/AIFC file as an 18-byte record, the frame count and
// the offset of the first sample.
ZVAPI HRESULT iff_GetAIFFWfx(HANDLE file, WAVEFORMATEX *format, DWORD *frames, DWORD *dataOffset);

// The 80-bit sample rate: exponent word and four mantissa words.
ZVAPI DWORD aiff_ConvertRate(WORD exponent, const WORD *mantissa);
ZVAPI void aiff_CreateRate(DWORD rate, WORD *exponent, WORD *mantissa);
