// Common ground of the kernel library: the export marker and the result
// codes that recur across the system. Every exported kernel function is a
// plain C function, exported by name from the executable that links it.
#pragma once
#include <windows.h>
#include <stdint.h>

#ifdef __cplusplus
#define ZV_EXTERN_C extern "C"
#else
#define ZV_EXTERN_C
#endif

#if defined(ZV_BUILDING_KERNEL)
#define ZVAPI ZV_EXTERN_C __declspec(dllexport)
#else
#define ZVAPI ZV_EXTERN_C
#endif

// The system's own results: facility 4, codes from 0xE000.
#define ZV_MAKE_ERROR(code)   ((HRESULT)(0x8004E000u | (code)))
#define ZV_MAKE_SUCCESS(code) ((HRESULT)(0x0004E000u | (code)))

#define ZVERR_UNSUPPORTED_MEDIA  ((HRESULT)0x8004E000)
#define ZVERR_DISK_FULL          ((HRESULT)0x8004E002)
#define ZVERR_FILE_CREATE        ((HRESULT)0x8004E006)
#define ZVERR_FILE_OPEN          ((HRESULT)0x8004E007)
#define ZVERR_FILE_READ          ((HRESULT)0x8004E008)
#define ZVERR_FILE_WRITE         ((HRESULT)0x8004E009)
#define ZVERR_NOT_FOUND          ((HRESULT)0x8004E00A)
#define ZVERR_MALFORMED          ((HRESULT)0x8004E00B)
#define ZVERR_CANCELLED          ((HRESULT)0x8004E00C)
#define ZVERR_BAD_FILENAME       ((HRESULT)0x8004E00D)
#define ZVERR_UNSUPPORTED_FORMAT ((HRESULT)0x8004E016)
#define ZVERR_PLUGIN_NOT_INITIALIZED ((HRESULT)0x8004E047)
#define ZVERR_SIZE_LIMIT         ((HRESULT)0x8004E03A)
#define ZVERR_BUFFER_TOO_SMALL   ((HRESULT)0x8004E03C)
#define ZVERR_NO_RIFF_HEADER     ((HRESULT)0x8004E080)
#define ZVERR_NO_LIST_HEADER     ((HRESULT)0x8004E081)
#define ZVERR_ZERO_CHUNK         ((HRESULT)0x8004E082)
#define ZVERR_NEWER_FORMAT       ((HRESULT)0x8004E083)
