// Wave64 chunk layer: the twin of the RIFF layer (media/riff.h) for files
// that may pass 4 GiB. A chunk has a 16-byte GUID label and a 64-bit size
// that counts its own 24-byte header; chunks align to 8 bytes. Above this
// layer a size is the number of data bytes: reads subtract 24, writes add
// 24, and a stored size below 24 reads as 0. Positions are 64-bit; remaining
// counters are signed and a negative counter ends a search.
#pragma once
#include "zvbase.h"
#include "media/riff.h"

// Labels of the container (GUIDs in their usual mixed-endian disk form).
static const GUID ZVW64_RIFF = {0x66666972, 0x912E, 0x11CF, {0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00}};
static const GUID ZVW64_LIST = {0x7473696C, 0x912F, 0x11CF, {0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00}};
static const GUID ZVW64_WAVE = {0x65766177, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
static const GUID ZVW64_FMT = {0x20746D66, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
static const GUID ZVW64_DATA = {0x61746164, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
// The third group really is 113D here; files carry exactly these bytes.
static const GUID ZVW64_JUNK = {0x6B6E756A, 0xACF3, 0x113D, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};

// Inert entry points kept for plug-ins that import them; both return 0.
ZVAPI HRESULT riff64_getGUIDLabel(GUID label);
ZVAPI HRESULT riff64_getGUIDLabelProperly(GUID label, DWORD arg1, DWORD arg2);

ZVAPI HRESULT riff64_SaveLocation(HANDLE file, ULONGLONG *position);
ZVAPI HRESULT riff64_RestoreLocation(HANDLE file, ULONGLONG position);
// To the first chunk, offset 40.
ZVAPI HRESULT riff64_SeekDataStart(HANDLE file);
// Forward over size rounded up to 8; returns that distance.
ZVAPI ULONGLONG riff64_SkipChunk(HANDLE file, ULONGLONG size);
// (low word & 7) | (high word & 8) non-zero: ZVERR_NEWER_FORMAT; 0: ZVERR_ZERO_CHUNK.
ZVAPI HRESULT riff64_ValidateChunkHeader(GUID label, ULONGLONG size);
ZVAPI HRESULT riff64_ReadData(HANDLE file, void *buffer, DWORD count);
ZVAPI HRESULT riff64_ReadDataBounded(HANDLE file, void *buffer, ULONGLONG size, DWORD limit);
ZVAPI HRESULT riff64_ReadDataAlloc(HANDLE file, tZVRIFFBLOCK *block);

// Stores size + 24 at offset 16; the position is kept.
ZVAPI HRESULT riff64_SetRIFFSize(HANDLE file, ULONGLONG size);
// Adds delta to the stored size; no limit. The position is kept.
ZVAPI HRESULT riff64_UpdateRIFFSize(HANDLE file, LONGLONG delta);

ZVAPI HRESULT riff64_WriteChunkHeader(HANDLE file, GUID label, ULONGLONG size);
ZVAPI HRESULT riff64_WriteChunk(HANDLE file, GUID label, const void *data, DWORD count, ULONGLONG *written);
// A "list" chunk header of the given size (stored + 24), then the type.
ZVAPI HRESULT riff64_WriteListHeader(HANDLE file, GUID listType, ULONGLONG size);
ZVAPI HRESULT riff64_WriteFileID(HANDLE file, GUID formType, ULONGLONG size);
ZVAPI HRESULT riff64_ReadChunkHeader(HANDLE file, GUID *label, ULONGLONG *size);
// size receives the stored size minus 40 (no floor).
ZVAPI HRESULT riff64_ReadListHeader(HANDLE file, GUID *listType, ULONGLONG *size);
// size receives the stored file size minus 40: the bytes behind the header.
ZVAPI HRESULT riff64_ReadFileID(HANDLE file, ULONGLONG *size, GUID *formType);
ZVAPI HRESULT riff64_FindChunkHeader(HANDLE file, GUID label, ULONGLONG *size, LONGLONG *remaining);
ZVAPI HRESULT riff64_FindChunkHeaderInRIFF(HANDLE file, GUID label, ULONGLONG *size, LONGLONG *remaining);
ZVAPI HRESULT riff64_FindListChunk(HANDLE file, GUID listType, ULONGLONG *size, LONGLONG *remaining);
ZVAPI HRESULT riff64_FindListChunkFromStart(HANDLE file, GUID listType, ULONGLONG *size);
ZVAPI HRESULT riff64_GetNumListEntries(HANDLE file, DWORD *count, LONGLONG *remaining);
ZVAPI HRESULT riff64_SeekListEntry(HANDLE file, DWORD index, LONGLONG *remaining);
// Removes the first chunk with this label; the handle ends at the new end.
ZVAPI HRESULT riff64_DeleteChunk(HANDLE file, GUID label, ULONGLONG *removedSize);

// Writing chunks whose length is not known in advance.
// count bytes, then zeros up to a multiple of 8; written gets the padded count.
ZVAPI HRESULT riff64_WriteData(HANDLE file, const void *data, DWORD count, ULONGLONG *written);
ZVAPI HRESULT riff64_WriteToFile(HANDLE file, const void *data, DWORD count);
// Current position minus start.
ZVAPI ULONGLONG riff64_AmountWritten(HANDLE file, ULONGLONG start);
// Zeros until the distance from start is a multiple of 8.
ZVAPI HRESULT riff64_Pad(HANDLE file, ULONGLONG start);
// start receives the position; a header of size 0 (stored as 24) follows.
ZVAPI HRESULT riff64_PrepareChunk(HANDLE file, GUID label, ULONGLONG *start);
// Pads, stores the padded length (header included) at start + 16, and
// returns to the end of the chunk.
ZVAPI HRESULT riff64_CompleteChunk(HANDLE file, ULONGLONG start);
ZVAPI HRESULT riff64_PrepareList(HANDLE file, GUID listType, ULONGLONG *start);
ZVAPI HRESULT riff64_WriteChunkToFile(HANDLE file, GUID label, const void *data, DWORD count);
