// Wave and Wave64 file headers: recognising wave files, reading and replacing
// their format, laying down a header before audio is written, inserting one
// over existing bytes, and repairing a file whose header was destroyed (a
// recording that was never closed). The audio is never moved: a header is
// fitted to where the data already is and the gap filled with a JUNK chunk.
//
// Layouts (H = header size = offset of the first sample):
//   wave plain H = 46: RIFF, size, WAVE, "fmt " 18 + record, data, size.
//   wave padded H >= 54 (even): as plain to 38, JUNK of H - 54 zero bytes,
//     data header at H - 8.
//   Wave64 plain H = 112: riff/wave header, fmt chunk at 40 (24 + 18 + 6
//     pad), data header at 88. Padded H >= 136 (multiple of 8): junk chunk
//     of H - 136 zero bytes at 88, data header at H - 24.
// All writers write the 18-byte WAVEFORMATEX and refuse a record with extra
// bytes, and a tag-1 record whose block align does not fit its bits or that
// has 20 bits (ZVERR_UNSUPPORTED_MEDIA).
#pragma once
#include "zvbase.h"
#include "audio/waveformat.h"

// Header sizes of the layouts.
#define ZVWAV_PLAIN_HEADER   46
#define ZVWAV_PADDED_MIN     54
#define ZVW64_PLAIN_HEADER   112
#define ZVW64_PADDED_MIN     136

// 1 when the file is RIFF/WAVE with a fmt chunk, and the format is linear
// PCM or compressed formats are allowed.
ZVAPI BOOL ZvFileIsWave(const wchar_t *path, BOOL allowCompressed);
ZVAPI BOOL ZvFileIsWave64(const wchar_t *path, BOOL allowCompressed);
ZVAPI BOOL ZvFileIsAiff(const wchar_t *path);
// The format of a wave, Wave64 or AIFF file holding linear PCM (malloc'd,
// release with free), its frame count and the offset of the first sample;
// null when the file is none of these.
ZVAPI WAVEFORMATEX *ZvGetFileWfx(const wchar_t *path, ULONGLONG *frames, ULONGLONG *dataOffset);
// Replaces the format. For a wave file this writes "fmt ", 18 and the record
// over the first 26 bytes of the file, so the file must then be rebuilt with
// ZvFixTrashedWav; for AIFF the COMM chunk is rewritten in place.
ZVAPI HRESULT ZvSetFileWfx(const wchar_t *path, const WAVEFORMATEX *format);

// Create a file with an empty header. creation is a CreateFileW disposition;
// OPEN_EXISTING acts as TRUNCATE_EXISTING and OPEN_ALWAYS as CREATE_ALWAYS.
ZVAPI HRESULT ZvInitializeWav(const wchar_t *path, const WAVEFORMATEX *format, DWORD creation);
ZVAPI HRESULT ZvInitializeWav64(const wchar_t *path, const WAVEFORMATEX *format, DWORD creation);
ZVAPI HRESULT ZvInitializeWavWithJunk(const wchar_t *path, const WAVEFORMATEX *format, DWORD creation, DWORD headerSize);
ZVAPI HRESULT ZvInitializeWav64WithJunk(const wchar_t *path, const WAVEFORMATEX *format, DWORD creation,
                                        ULONGLONG headerSize);
// Overwrite the start of an open file with a header for dataSize bytes of
// audio at headerSize. The position is kept.
ZVAPI HRESULT ZvInsertWavHeader(HANDLE file, const WAVEFORMATEX *format, DWORD dataSize, DWORD headerSize);
ZVAPI HRESULT ZvInsertW64Header(HANDLE file, const WAVEFORMATEX *format, ULONGLONG dataSize, ULONGLONG headerSize);
// Repair: find the audio (by the chunks, else by scanning for the data id
// up to largestHeader) and write a header sized from the file length. The
// format defaults to the given one, else 16-bit stereo PCM at 44,100 Hz. A
// file that cannot be given a header is left unchanged. The position is kept.
ZVAPI HRESULT ZvFixTrashedWav(HANDLE file, const WAVEFORMATEX *format, DWORD largestHeader);
ZVAPI HRESULT ZvFixTrashedW64(HANDLE file, const WAVEFORMATEX *format, ULONGLONG largestHeader);
// Tag 1 only: 20 bits become 24 and the block align is recomputed. Returns 1
// when bits or block align changed.
ZVAPI BOOL ZvAudio_FixBadWfx(WAVEFORMATEX *format);

#ifdef __cplusplus
ZVAPI_CXX HRESULT ZvInitializeWav(const wchar_t *path, const _zvwaveformat *format, DWORD creation);
ZVAPI_CXX HRESULT ZvInitializeWav64(const wchar_t *path, const _zvwaveformat *format, DWORD creation);
ZVAPI_CXX HRESULT ZvInitializeWavWithJunk(const wchar_t *path, const _zvwaveformat *format, DWORD creation,
                                          DWORD headerSize);
ZVAPI_CXX HRESULT ZvInitializeWav64WithJunk(const wchar_t *path, const _zvwaveformat *format, DWORD creation,
                                            ULONGLONG headerSize);
ZVAPI_CXX HRESULT ZvInsertWavHeader(HANDLE file, const _zvwaveformat *format, DWORD dataSize, DWORD headerSize);
ZVAPI_CXX HRESULT ZvInsertW64Header(HANDLE file, const _zvwaveformat *format, ULONGLONG dataSize,
                                    ULONGLONG headerSize);
ZVAPI_CXX HRESULT ZvFixTrashedWav(HANDLE file, const _zvwaveformat *format, DWORD largestHeader);
ZVAPI_CXX HRESULT ZvFixTrashedW64(HANDLE file, const _zvwaveformat *format, ULONGLONG largestHeader);
// Repair with the default format, without naming a record type.
inline HRESULT ZvFixTrashedWav(HANDLE file, decltype(nullptr), DWORD largestHeader)
{
    return ZvFixTrashedWav(file, (const WAVEFORMATEX *)nullptr, largestHeader);
}
inline HRESULT ZvFixTrashedW64(HANDLE file, decltype(nullptr), ULONGLONG largestHeader)
{
    return ZvFixTrashedW64(file, (const WAVEFORMATEX *)nullptr, largestHeader);
}
#endif
