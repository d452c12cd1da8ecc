// Names of audio and video formats for display: codec names from tags and
// FourCCs, and attribute lines of format records. Texts are written to the
// caller's buffer (length in characters, terminator included). HRESULT
// functions give 0x8004E03C when the buffer is too small (the text is cut),
// E_POINTER for a null buffer, and S_FALSE when a name was not in the tables
// and the value itself was printed instead.
#pragma once
#include "audio/waveformat.h"

ZVAPI HRESULT ZvAudio_GetCompressionTypeName(UINT tag, LPWSTR buffer, UINT length, BOOL shortName);
ZVAPI HRESULT ZvVideo_GetCompressionTypeName(DWORD fourcc, LPWSTR buffer, UINT length, BOOL shortName);
ZVAPI UINT ZvAudio_ConvertToCanonicalWaveFormatTag(UINT tag);
ZVAPI DWORD ZvVideo_ConvertToCanonicalCompressionFormat(DWORD fourcc);
// Four characters, non-printable ones as '.'; values below 0x10000 (the
// plain compression numbers) as decimal. Returns the buffer.
ZVAPI LPSTR ZvVideo_FOURCCtoPrintString(DWORD fourcc, LPSTR buffer, UINT length);
ZVAPI LPWSTR ZvVideo_FOURCCtoPrintStringW(DWORD fourcc, LPWSTR buffer, UINT length);

// The system's PCM tags by name, other tags by the platform's codec list,
// else "Unknown".
ZVAPI HRESULT ZvAudio_GetTagText(UINT tag, LPWSTR buffer, UINT length);
// "44100 Hz, 16 Bit, Stereo"
ZVAPI HRESULT ZvAudio_GetAttribsText(const WAVEFORMATEX *format, LPWSTR buffer, UINT length);
// "16 Bit", "24 Bit (Unpacked)", "32 Bit (IEEE Float)", ...; empty for type 0.
ZVAPI LPWSTR ZvAudio_GetSampleTypeText(ZVSAMPLETYPE type, LPWSTR buffer, UINT length);
ZVAPI LPWSTR ZvAudio_GetBitDepthText(const WAVEFORMATEX *format, LPWSTR buffer, UINT length);
// "Stereo", "5.1", "3/2 (L, C, R, Ls, Rs) + LFE", or "%d Channel".
ZVAPI LPWSTR ZvAudio_GetChannelsText(UINT channels, DWORD mask, LPWSTR buffer, UINT length);
// The format's codec name: "PCM", "PCM (float)", or the codec's own.
ZVAPI HRESULT ZvAudio_GetFormatText(const WAVEFORMATEX *format, LPWSTR buffer, UINT length);

ZVAPI HRESULT ZvVideo_GetFormatText(DWORD compression, LPWSTR buffer, UINT length);
// "720 x 576, 24 Bit, RGB"; the Ex form names the coding in full.
ZVAPI HRESULT ZvVideo_GetAttribsText(const BITMAPINFOHEADER *header, LPWSTR buffer, UINT length);
ZVAPI HRESULT ZvVideo_GetAttribsTextEx(const BITMAPINFOHEADER *header, LPWSTR buffer, UINT length);
// "Progressive", "Upper field first", ...; "Undefined" for other kinds.
ZVAPI LPCWSTR ZvVideo_GetInterlaceTypeName(int kind);
