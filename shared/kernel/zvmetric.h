// Metrics: user preferences stored by number in the registry of the current
// user, below "Software\<company>\<application>\<major>.<minor>\Metrics".
//
// Every read takes a default and never fails outward: a missing value, a
// missing key or a null handle give the default. Writes report E_FAIL when
// there is nothing to write to.
//
// A metric id is a signed number whose sign is dropped (-7 and 7 are one
// metric). Value names by kind: REG_DWORD "7", REG_SZ "S7", REG_BINARY "B7",
// REG_MULTI_SZ (and any other kind) "Z7".
#pragma once
#include "zvbase.h"
#include <objidl.h>

typedef struct ZVMETRICBLOCK {
    wchar_t machinePath[260]; // never filled
    HKEY machineKey;          // never opened; closed at close if set
    wchar_t userPath[260];    // full key path below HKEY_CURRENT_USER
    HKEY userKey;             // open key, or null when it could not be created
} ZVMETRICBLOCK, *HZVMETRIC;

// The process default handle. Nothing opens it, so it reads defaults.
#define ZVMETRIC_DEFAULT ((HZVMETRIC)(LONG_PTR)-1)
#define ZVMETRIC_COMPANY L"Kelpo Media Works"
// Version word: major in bits 24-31, minor in bits 16-23.
#define ZVMETRIC_VERSION(major, minor) ((((DWORD)(major) & 0xFF) << 24) | (((DWORD)(minor) & 0xFF) << 16))

// --- Open and close ----------------------------------------------------------------
// The handle is stored in every case, also when the key could not be created
// (then reads give defaults and writes E_FAIL); the result tells.
ZVAPI HRESULT ZvMetric_OpenAppVersion(HZVMETRIC *metric, const wchar_t *keyPath, const wchar_t *subKey);
ZVAPI HRESULT ZvMetric_Open(HZVMETRIC *metric, const wchar_t *application, DWORD version, const wchar_t *subKey);
ZVAPI HRESULT ZvMetric_OpenRegHiveAndVersion(HZVMETRIC *metric, const wchar_t *application, DWORD version,
                                             const wchar_t *company, const wchar_t *subKey);
// A sibling of the parent: the parent's own sub-key, if any, is replaced.
ZVAPI HRESULT ZvMetric_OpenSubKey(HZVMETRIC *metric, HZVMETRIC parent, const wchar_t *subKey);
ZVAPI HRESULT ZvMetric_Close(HZVMETRIC metric);
ZVAPI HRESULT ZvMetric_CloseAndDeleteKey(HZVMETRIC metric);

// Removal of whole settings trees; all return 0.
ZVAPI HRESULT ZvMetric_DeleteAll(const wchar_t *application, DWORD version);
ZVAPI HRESULT ZvMetric_DeleteAllHiveAndVersion(const wchar_t *application, DWORD version, const wchar_t *company);
ZVAPI HRESULT ZvMetric_DeleteUserMetrics(const wchar_t *application, DWORD version);
ZVAPI HRESULT ZvMetric_DeleteKey(const wchar_t *application, DWORD version, const wchar_t *subKey);
ZVAPI HRESULT ZvMetric_DeleteKeyHiveAndVersion(const wchar_t *application, DWORD version, const wchar_t *company,
                                               const wchar_t *subKey);

// --- Numbers ----------------------------------------------------------------------------
ZVAPI LONG ZvGetMetric(HZVMETRIC metric, int id);
// Equal bounds mean no bounds; the default is clamped like a stored value.
ZVAPI LONG ZvGetMetricEx(HZVMETRIC metric, int id, LONG minimum, LONG maximum, LONG defaultValue);
ZVAPI BOOL ZvGetMetricBool(HZVMETRIC metric, int id, BOOL defaultValue);
ZVAPI HRESULT ZvSetMetric(HZVMETRIC metric, int id, LONG value);
ZVAPI LONG ZvGetMetricUsingName(HZVMETRIC metric, const wchar_t *name, LONG defaultValue);
ZVAPI HRESULT ZvSetMetricUsingName(HZVMETRIC metric, const wchar_t *name, LONG value);

// --- Texts ------------------------------------------------------------------------------
// Characters stored, without the terminator. A stored empty text counts as
// text only with keepEmpty; otherwise the default (if any) is copied.
ZVAPI int ZvGetMetricStringEx(HZVMETRIC metric, int id, wchar_t *buffer, int cch, const wchar_t *defaultText,
                              BOOL keepEmpty);
ZVAPI HRESULT ZvSetMetricString(HZVMETRIC metric, int id, const wchar_t *text);
ZVAPI int ZvGetMetricMultiStringEx(HZVMETRIC metric, int id, wchar_t *buffer, int cch, const wchar_t *defaultText,
                                   BOOL keepEmpty);
// Stores exactly cch characters (include the closing terminators).
ZVAPI HRESULT ZvSetMetricMultiString(HZVMETRIC metric, int id, const wchar_t *data, int cch);

// --- Binary and stream -----------------------------------------------------------------
// Bytes read; the rest of the buffer is zeroed (all of it when missing).
ZVAPI int ZvGetMetricBinary(HZVMETRIC metric, int id, void *buffer, int size);
// 0 with the size; S_FALSE (1) and size 0 when missing; ZVERR_BUFFER_TOO_SMALL
// with the needed size; ZVERR_NOT_FOUND without a key. A null buffer with
// size 0 asks for the size.
ZVAPI HRESULT ZvGetMetricBinaryEx(HZVMETRIC metric, int id, void *buffer, DWORD size, DWORD *sizeOut);
ZVAPI HRESULT ZvSetMetricBinary(HZVMETRIC metric, int id, const void *data, DWORD size);
// Writes the stored bytes into the stream from its start.
ZVAPI HRESULT ZvGetMetricStream(HZVMETRIC metric, int id, IStream *stream);
// Stores what was written so far (at most 2048 bytes) into a stream on
// global memory (CreateStreamOnHGlobal).
ZVAPI HRESULT ZvSetMetricStream(HZVMETRIC metric, int id, IStream *stream);

// --- General ----------------------------------------------------------------------------
// Reads the value under the plain decimal name. Reversed sense: a value of
// the requested kind gives ZVERR_NOT_FOUND; a missing value or one of another
// kind gives 0 with its size (a REG_SZ text is terminated in the buffer).
// ZVERR_BUFFER_TOO_SMALL with the needed size; E_UNEXPECTED without a key.
ZVAPI HRESULT ZvGetMetricAny(HZVMETRIC metric, int id, DWORD kind, void *buffer, DWORD size, DWORD *sizeOut);
// 0 if the metric exists with that kind, 1 otherwise.
ZVAPI int ZvDoesMetricExist(HZVMETRIC metric, int id, DWORD kind);
// 0, 1 without a key, E_FAIL when the registry refuses.
ZVAPI HRESULT ZvDeleteMetric(HZVMETRIC metric, int id, DWORD kind);
ZVAPI HRESULT ZvDeleteMetricUsingName(HZVMETRIC metric, const wchar_t *name, DWORD kind);
// Display name: as the value name, but "D7" for REG_DWORD. Buffer of 16.
ZVAPI int ZvMetricGetName(int id, DWORD kind, wchar_t *buffer);

// Deletes a key with all its sub-keys. TRUE when the key is gone (also when
// it never existed).
ZVAPI BOOL ZvRegDeleteKey(HKEY root, const wchar_t *path);
