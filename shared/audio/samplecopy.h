// Sample copy: one function per ordered pair of linear sample types that
// converts a run of samples and applies a gain in the same pass.
//
// Every conversion goes through 64-bit floating point: normalise the source
// to full scale 1.0, multiply by the gain unless it is exactly 1.0, scale to
// the destination, clamp, and round to nearest-even by adding 1.5 * 2^52.
// Floats are never clamped. Destination and source may be the same buffer.
#pragma once
#include "audio/waveformat.h"

// destination, source, count of samples (not frames), gain (1.0 = unity).
// A count of 0 or below writes nothing. From 256Ki samples between separate
// buffers the vector forms share the run with worker threads (which round
// as the calling thread does) and return when all of it is written; an
// output of 8 MiB or more is written past the caches.
typedef void (*ZVAUDIOCOPYFUNC)(void *dest, const void *src, int count, float gain);

// Null for a pair without a function (destination 64 or 65 with source 48
// or 66, or a type that is not linear). The processor variant is chosen at
// each lookup from the CPU support word, so look up once per stream.
ZVAPI ZVAUDIOCOPYFUNC ZvAudio_GetCopyFunction2(ZVSAMPLETYPE dest, ZVSAMPLETYPE src);
ZVAPI ZVAUDIOCOPYFUNC ZvAudio_GetCopyFunction(const WAVEFORMATEX *dest, const WAVEFORMATEX *src);

// The lookup for a given CPU support word (class in the low 4 bits), limited
// to what this processor has; for checks that compare the variants. The
// word may also carry ZVAUDIOCOPY_NO512, which keeps the lookup to vectors
// of at most 256 bits.
#define ZVAUDIOCOPY_NO512 0x80000000u
ZVAPI ZVAUDIOCOPYFUNC ZvAudio_GetCopyFunctionForCPU(ZVSAMPLETYPE dest, ZVSAMPLETYPE src, DWORD cpuWord);

// The support word the lookup uses.
ZVAPI DWORD ZvAudio_GetCopyCPUWord(void);

// Converts frames * source channels samples. 0, E_NOTIMPL for a pair without
// a function, E_POINTER for a null format or buffer. Frames 0 does nothing.
ZVAPI HRESULT ZvAudio_Copy(const WAVEFORMATEX *destFormat, void *dest, const WAVEFORMATEX *srcFormat,
                           const void *src, int frames, float gain);

// The built-in self-check: every integer value of every integer type goes to
// float and back unchanged in each processor variant. S_OK or E_UNEXPECTED;
// with an owner window a failure is also shown.
ZVAPI HRESULT ZvAudioCopy_UnitTest(HWND owner);

#ifdef __cplusplus
namespace zvsc {
// The self-check's walk with the words given and `run` for each row that
// the words select (row number, support word); a failed row adds its detail
// line under E_UNEXPECTED. For the tests.
HRESULT RunCopySelfCheck(HWND owner, DWORD current, DWORD forced, bool (*run)(int row, DWORD word));
}
#endif

#ifdef __cplusplus
ZVAPI_CXX ZVAUDIOCOPYFUNC ZvAudio_GetCopyFunction(const ZVWAVEFORMAT *dest, const ZVWAVEFORMAT *src);
ZVAPI_CXX ZVAUDIOCOPYFUNC ZvAudio_GetCopyFunction(const WAVEFORMATEX *dest, const ZVWAVEFORMAT *src);
ZVAPI_CXX ZVAUDIOCOPYFUNC ZvAudio_GetCopyFunction(const ZVWAVEFORMAT *dest, const WAVEFORMATEX *src);
ZVAPI_CXX HRESULT ZvAudio_Copy(const ZVWAVEFORMAT *destFormat, void *dest, const ZVWAVEFORMAT *srcFormat,
                               const void *src, int frames, float gain);
ZVAPI_CXX HRESULT ZvAudio_Copy(const WAVEFORMATEX *destFormat, void *dest, const ZVWAVEFORMAT *srcFormat,
                               const void *src, int frames, float gain);
ZVAPI_CXX HRESULT ZvAudio_Copy(const ZVWAVEFORMAT *destFormat, void *dest, const WAVEFORMATEX *srcFormat,
                               const void *src, int frames, float gain);
#endif
