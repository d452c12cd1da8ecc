// Opening readers: from a file name (with an optional moniker tail) to an
// IZvReadFile, through identification, merit and the reader's open; and the
// moniker helpers that build and split such names.
#include "filemng/filemng.h"
#include "filemng/fioidentify.h"
#include "filemng/surrogatetable.h"
#include "zverror.h"
#include <wchar.h>

// A reader that may find no streams in a file another reader then takes.
static const GUID kStreamlessReader = {0x997E5FF1, 0x274E, 0x41CE, {0xBF, 0x44, 0x25, 0x6E, 0x5B, 0x79, 0x19, 0x54}};
static const GUID kStreamlessFallback = {0x0DD21229, 0xC538, 0x406D, {0x92, 0xEF, 0xB9, 0x22, 0x71, 0xF7, 0x2E, 0x95}};

#define ZVFIO_OPEN_NAME_LIMIT    520 // characters, with the terminator
#define ZVFIO_OPENEX_NAME_LIMIT  712
#define ZVFIO_OPEN_RESTRICTED    0x3000u

// The file-system part of a name: up to its first "?".
static HRESULT CopyPathPart(const WCHAR *name, WCHAR *path, size_t capacity)
{
    const WCHAR *q = wcschr(name, L'?');
    size_t n = q ? (size_t)(q - name) : wcslen(name);
    if (n >= capacity)
        return ZVERR_BUFFER_TOO_SMALL;
    memcpy(path, name, n * sizeof(WCHAR));
    path[n] = 0;
    return S_OK;
}

static HANDLE OpenForReading(const WCHAR *path)
{
    return CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL, OPEN_EXISTING,
                       FILE_FLAG_SEQUENTIAL_SCAN, NULL);
}

static HRESULT OpenError()
{
    DWORD e = GetLastError();
    return ZvErrorHandler_TranslateWin32Error(e ? e : ERROR_OPEN_FAILED);
}

STDMETHODIMP CZvFileIOManager::OpenReader(LPCWSTR name, IZvReadFile **out, DWORD flags)
{
    ZVFIO_SCOPE("CZvFileIOManager::OpenReader");
    LONG noSlowPass = 0;
    GetMetric(ZVFIO_METRIC_NOSLOWIDENT, &noSlowPass);
    if (!name || !out)
        return E_INVALIDARG;
    *out = NULL;
    WCHAR path[ZVFIO_OPEN_NAME_LIMIT];
    HRESULT hr = CopyPathPart(name, path, ZVFIO_OPEN_NAME_LIMIT);
    if (FAILED(hr))
        return hr;
    HANDLE file = OpenForReading(path);
    if (file == INVALID_HANDLE_VALUE)
        return OpenError();

    LONG index = -1;
    hr = IdentifyFileType((UINT64)(LONG_PTR)file, path, &index, flags);
    if (FAILED(hr) && hr != ZVERR_OWN_CONTAINER) {
        if (hr == ZVERR_READER_UNINITIALISED) {
            CloseHandle(file);
            return hr;
        }
        if (noSlowPass == 0) {
            HRESULT slow = IdentifyFileTypeSlow(path, &index);
            if (slow == ZVERR_READER_UNINITIALISED) {
                CloseHandle(file);
                return hr;
            }
            hr = slow;
        }
    }
    const HRESULT identified = hr;
    if (FAILED(identified)) {
        CloseHandle(file);
        return identified;
    }

    // merit lets a plug-in claim a file over the identified reader
    IZvReadFileClass *cls = NULL;
    if (FAILED(ZvFioHighestMeritReaderClass(this, &cls, path))) {
        hr = GetReaderClass(&cls, index);
        if (FAILED(hr)) {
            CloseHandle(file);
            return hr;
        }
    }
    const BOOL normalOpen = (flags & ZVFIO_OPEN_RESTRICTED) == 0;
    IZvReadFile *reader = NULL;
    hr = cls->OpenFile(&reader, (UINT64)(LONG_PTR)file, GetCurrentProcessId(), name, normalOpen);
    CloseHandle(file); // a reader doesn't keep this handle

    GUID id = GUID_NULL;
    if (SUCCEEDED(hr) && reader && SUCCEEDED(cls->GetClassGuid(&id)) && IsEqualGUID(id, kStreamlessReader)) {
        LONG streams = 0;
        hr = reader->GetStreamCount(&streams);
        if (SUCCEEDED(hr) && streams == 0) {
            reader->Release();
            reader = NULL;
            cls->Release();
            cls = NULL;
            LONG other = -1;
            tZVLIST *list = readerList();
            for (int i = 0; list && i < list->count && other < 0; ++i) {
                ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
                if (IsEqualGUID(r->clsidReader, kStreamlessFallback))
                    other = i;
            }
            hr = other < 0 ? ZVERR_UNSUPPORTED_FORMAT : GetReaderClass(&cls, other);
            if (SUCCEEDED(hr)) {
                ZVFIO_IDENTIFYINFO info;
                memset(&info, 0, sizeof info);
                info.cbSize = sizeof info;
                info.hFile = (UINT64)(LONG_PTR)INVALID_HANDLE_VALUE;
                info.dwProcessId = GetCurrentProcessId();
                info.pszPath = path;
                hr = cls->IdentifyFile(&info);
            }
            if (SUCCEEDED(hr))
                hr = cls->OpenFile(&reader, (UINT64)(LONG_PTR)INVALID_HANDLE_VALUE, GetCurrentProcessId(), name,
                                   normalOpen);
        }
    }
    if (SUCCEEDED(hr) && reader) {
        *out = reader;
        SetLastUsedReader(cls);
        cls->Release();
        return identified == ZVS_READER_AFTER_UNINITIALISED ? identified : hr;
    }
    if (reader)
        reader->Release();
    if (cls)
        cls->Release();
    return FAILED(hr) ? hr : ZVERR_UNSUPPORTED_FORMAT;
}

STDMETHODIMP CZvFileIOManager::OpenReaderEx(LPCWSTR name, IZvReadFile **out, REFGUID readerClass, DWORD flags)
{
    ZVFIO_SCOPE("CZvFileIOManager::OpenReaderEx");
    if (!name || !out)
        return E_INVALIDARG;
    *out = NULL;
    WCHAR path[ZVFIO_OPENEX_NAME_LIMIT];
    HRESULT hr = CopyPathPart(name, path, ZVFIO_OPENEX_NAME_LIMIT);
    if (FAILED(hr))
        return hr;
    if (!IsEqualGUID(readerClass, GUID_NULL)) {
        IZvReadFileClass *cls = NULL;
        if (SUCCEEDED(FindReaderClass(&cls, readerClass)) && cls) {
            HANDLE file = OpenForReading(path);
            if (file != INVALID_HANDLE_VALUE) {
                hr = cls->OpenFile(out, (UINT64)(LONG_PTR)file, GetCurrentProcessId(), name, TRUE);
                CloseHandle(file);
                if (FAILED(hr) && *out) {
                    (*out)->Release();
                    *out = NULL;
                }
            }
            cls->Release();
        }
    }
    if (*out)
        return hr;
    return OpenReader(name, out, flags);
}

STDMETHODIMP CZvFileIOManager::IsOpenProgressNeeded(LPCWSTR path, DWORD flags)
{
    ZVFIO_SCOPE("CZvFileIOManager::IsOpenProgressNeeded");
    if (!path)
        return E_INVALIDARG;
    HANDLE file = OpenForReading(path);
    if (file == INVALID_HANDLE_VALUE)
        return OpenError();
    HRESULT answer = S_FALSE;
    LONG index = -1;
    IZvReadFileClass *cls = NULL;
    if (SUCCEEDED(IdentifyFileType((UINT64)(LONG_PTR)file, path, &index, flags)) &&
        SUCCEEDED(GetReaderClass(&cls, index)) && cls) {
        IZvOpenWithProgressClass *progress = NULL;
        if (SUCCEEDED(cls->QueryInterface(IID_IZvOpenWithProgressClass, (void **)&progress)) && progress) {
            answer = progress->IsOpenProgressNeeded(path);
            progress->Release();
        }
        cls->Release();
    }
    CloseHandle(file);
    return answer;
}

// --- monikers -------------------------------------------------------------

// Appends `text` to buffer[*used] within size; false when it had to be cut.
static bool Append(wchar_t *buffer, unsigned size, unsigned *used, const wchar_t *text)
{
    for (; *text; ++text) {
        if (*used + 1 >= size) {
            buffer[*used] = 0;
            return false;
        }
        buffer[(*used)++] = *text;
    }
    buffer[*used] = 0;
    return true;
}

ZVAPI HRESULT ZvFio_BuildMoniker(wchar_t *buffer, unsigned size, const wchar_t *path, const wchar_t *first,
                                 const wchar_t *second)
{
    if (!buffer)
        return E_POINTER;
    if (size < 1)
        return E_INVALIDARG;
    unsigned used = 0;
    buffer[0] = 0;
    bool fits = Append(buffer, size, &used, path ? path : L"");
    if (fits && first) {
        fits = Append(buffer, size, &used, L"?") && Append(buffer, size, &used, first);
        if (fits && second)
            fits = Append(buffer, size, &used, L"&") && Append(buffer, size, &used, second);
    }
    return fits ? S_OK : ZVERR_BUFFER_TOO_SMALL;
}

// Copies n characters of text into target (capacity in characters).
static bool CopyCut(wchar_t *target, unsigned capacity, const wchar_t *text, size_t n)
{
    if (!target || capacity == 0)
        return true;
    bool fits = n < capacity;
    if (!fits)
        n = capacity - 1;
    memcpy(target, text, n * sizeof(wchar_t));
    target[n] = 0;
    return fits;
}

ZVAPI HRESULT ZvFio_ParseMoniker(const wchar_t *moniker, wchar_t *path, unsigned pathSize, wchar_t *rest,
                                 unsigned restSize)
{
    if (!moniker || (!path && !rest))
        return E_INVALIDARG;
    const wchar_t *q = wcschr(moniker, L'?');
    size_t pathLength = q ? (size_t)(q - moniker) : wcslen(moniker);
    bool fits = CopyCut(path, pathSize, moniker, pathLength);
    if (rest && restSize > 0)
        rest[0] = 0;
    if (!q)
        return fits ? S_FALSE : ZVERR_BUFFER_TOO_SMALL;
    if (rest && restSize >= 2)
        fits = CopyCut(rest, restSize, q + 1, wcslen(q + 1)) && fits;
    return fits ? S_OK : ZVERR_BUFFER_TOO_SMALL;
}

ZVAPI HRESULT ZvFio_GetPluginPath(IZvRenderFileClass *renderClass, wchar_t *path, unsigned size)
{
    if (!path || size == 0)
        return E_INVALIDARG;
    path[0] = 0;
    GUID id = GUID_NULL;
    if (!renderClass || FAILED(renderClass->GetClassGuid(&id)))
        return E_INVALIDARG;
    ZVFIO_SURROGATETABLE *t = g_pZvFioSurrogateTable;
    IUnknown *first = t ? t->firstManager : NULL;
    if (!first)
        return S_FALSE;
    CZvFileIOManager *mgr = static_cast<CZvFileIOManager *>(static_cast<IZvFileIOMgrForApp *>(first));
    tZVLIST *list = mgr->pluginList();
    for (int i = 0; list && i < list->count; ++i) {
        ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
        if (r && IsEqualGUID(r->clsidRenderer, id)) {
            CopyCut(path, size, r->szPath, wcslen(r->szPath));
            return S_OK;
        }
    }
    return S_FALSE;
}
