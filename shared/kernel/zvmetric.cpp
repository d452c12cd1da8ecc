// Metrics over the registry of the current user. Nothing is cached: every
// call goes to the registry, which does the serialising.
#include "zvmetric.h"
#include "zvmemory.h"
#include <string>
#include <wchar.h>

namespace {

const int kPathChars = 260;
const DWORD kMaxStreamBytes = 0x800;

// The process default handle; nothing in the system opens it.
HZVMETRIC g_defaultMetric = nullptr;

inline HZVMETRIC resolve(HZVMETRIC metric)
{
    return metric == ZVMETRIC_DEFAULT ? g_defaultMetric : metric;
}

inline HKEY keyOf(HZVMETRIC metric)
{
    metric = resolve(metric);
    return metric ? metric->userKey : nullptr;
}

// The writers that take blocks refuse the default handle outright.
inline HKEY blockWriterKey(HZVMETRIC metric)
{
    return metric == ZVMETRIC_DEFAULT ? nullptr : keyOf(metric);
}

inline HRESULT fromRegistry(LONG error)
{
    return (HRESULT)(0x80070000u | ((DWORD)error & 0xFFFF));
}

// Value name of a metric: the id's sign is dropped, the kind picks a prefix.
void valueName(int id, DWORD kind, wchar_t *name, bool display)
{
    unsigned magnitude = id < 0 ? 0u - (unsigned)id : (unsigned)id;
    const wchar_t *prefix;
    switch (kind) {
    case REG_DWORD: prefix = display ? L"D" : L""; break;
    case REG_SZ: prefix = L"S"; break;
    case REG_BINARY: prefix = L"B"; break;
    default: prefix = L"Z"; break;
    }
    swprintf(name, 16, L"%ls%u", prefix, magnitude);
}

bool readNumber(HKEY key, const wchar_t *name, LONG *value)
{
    if (!key || !name)
        return false;
    DWORD type = 0, v = 0, size = sizeof v;
    if (RegQueryValueExW(key, name, nullptr, &type, (BYTE *)&v, &size) != ERROR_SUCCESS || type != REG_DWORD ||
        size != sizeof v)
        return false;
    *value = (LONG)v;
    return true;
}

int readText(HZVMETRIC metric, int id, DWORD kind, wchar_t *buffer, int cch, const wchar_t *defaultText,
             BOOL keepEmpty)
{
    if (!buffer || cch <= 0)
        return 0;
    HKEY key = keyOf(metric);
    DWORD bytes = 0;
    if (key) {
        wchar_t name[16];
        valueName(id, kind, name, false);
        DWORD type = 0;
        bytes = (DWORD)cch * sizeof(wchar_t);
        if (RegQueryValueExW(key, name, nullptr, &type, (BYTE *)buffer, &bytes) != ERROR_SUCCESS || type != kind)
            bytes = 0;
    }
    // Zero what was not read; a text stored without its terminator is cut.
    memset((BYTE *)buffer + bytes, 0, (size_t)cch * sizeof(wchar_t) - bytes);
    buffer[cch - 1] = 0;
    if (bytes > 2)
        return (int)(bytes / 2 - 1);
    if (bytes > 0 && keepEmpty)
        return 0;
    if (!defaultText)
        return 0;
    lstrcpynW(buffer, defaultText, cch);
    return lstrlenW(buffer);
}

HRESULT writeValue(HKEY key, int id, DWORD kind, const void *data, DWORD bytes)
{
    if (!key)
        return E_FAIL;
    wchar_t name[16];
    valueName(id, kind, name, false);
    return RegSetValueExW(key, name, 0, kind, (const BYTE *)data, bytes) == ERROR_SUCCESS ? S_OK : E_FAIL;
}

void copyCut(wchar_t *dest, const wchar_t *src)
{
    lstrcpynW(dest, src ? src : L"", kPathChars);
}

// "Software\<company>\<application>[\<major>.<minor>]" and an optional tail.
bool appPath(wchar_t *path, const wchar_t *application, DWORD version, const wchar_t *company,
             const wchar_t *tail)
{
    if (!application || !*application)
        return false;
    if (!company || !*company)
        company = ZVMETRIC_COMPANY;
    int major = (int)(version >> 24), minor = (int)((version >> 16) & 0xFF);
    std::wstring p = L"Software\\";
    p += company;
    p += L"\\";
    p += application;
    if (major) {
        wchar_t v[32];
        swprintf(v, 32, L"\\%d.%d", major, minor);
        p += v;
    }
    if (tail)
        p += tail;
    copyCut(path, p.c_str());
    return true;
}

void closeKeys(HZVMETRIC metric)
{
    if (metric->machineKey)
        RegCloseKey(metric->machineKey);
    if (metric->userKey)
        RegCloseKey(metric->userKey);
    metric->machineKey = nullptr;
    metric->userKey = nullptr;
}

bool deleteTree(HKEY root, const std::wstring &path)
{
    if (RegDeleteKeyW(root, path.c_str()) == ERROR_SUCCESS)
        return true;
    HKEY key;
    LONG error = RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, &key);
    if (error == ERROR_FILE_NOT_FOUND)
        return true;
    if (error != ERROR_SUCCESS)
        return false;
    for (;;) {
        wchar_t name[kPathChars];
        DWORD length = kPathChars;
        if (RegEnumKeyExW(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            break;
        if (!deleteTree(root, path + L"\\" + name))
            break;
    }
    RegCloseKey(key);
    return RegDeleteKeyW(root, path.c_str()) == ERROR_SUCCESS;
}

} // namespace

// --- Open and close -------------------------------------------------------------------

HRESULT ZvMetric_OpenAppVersion(HZVMETRIC *metric, const wchar_t *keyPath, const wchar_t *subKey)
{
    if (!metric)
        return E_INVALIDARG;
    *metric = nullptr;
    HZVMETRIC block = (HZVMETRIC)ZvMem_Alloc(sizeof(ZVMETRICBLOCK));
    if (!block)
        return E_OUTOFMEMORY;
    copyCut(block->userPath, keyPath);
    if (subKey && *subKey) {
        std::wstring p = block->userPath;
        p += L"\\";
        p += subKey;
        copyCut(block->userPath, p.c_str());
    }
    HRESULT hr = S_OK;
    // An empty path would name the user's hive itself.
    if (!keyPath || !*keyPath) {
        hr = E_INVALIDARG;
    } else {
        LONG error = RegCreateKeyW(HKEY_CURRENT_USER, block->userPath, &block->userKey);
        if (error != ERROR_SUCCESS) {
            block->userKey = nullptr;
            hr = fromRegistry(error);
        }
    }
    // The handle goes out also on failure: reads then give defaults.
    *metric = block;
    return hr;
}

HRESULT ZvMetric_OpenRegHiveAndVersion(HZVMETRIC *metric, const wchar_t *application, DWORD version,
                                       const wchar_t *company, const wchar_t *subKey)
{
    wchar_t path[kPathChars];
    if (!appPath(path, application, version, company, L"\\Metrics"))
        path[0] = 0;
    return ZvMetric_OpenAppVersion(metric, path, subKey);
}

HRESULT ZvMetric_Open(HZVMETRIC *metric, const wchar_t *application, DWORD version, const wchar_t *subKey)
{
    return ZvMetric_OpenRegHiveAndVersion(metric, application, version, nullptr, subKey);
}

HRESULT ZvMetric_OpenSubKey(HZVMETRIC *metric, HZVMETRIC parent, const wchar_t *subKey)
{
    if (metric)
        *metric = nullptr;
    parent = resolve(parent);
    if (!metric || !parent)
        return E_FAIL;
    // Cut behind the parent's own "\Metrics" segment (a whole segment, not
    // an application name that happens to start so).
    std::wstring path = parent->userPath;
    size_t at = 0;
    for (;;) {
        at = path.find(L"\\Metrics", at);
        if (at == std::wstring::npos)
            break;
        size_t behind = at + 8;
        if (behind == path.size() || path[behind] == L'\\') {
            path.resize(behind);
            break;
        }
        at = behind;
    }
    return ZvMetric_OpenAppVersion(metric, path.c_str(), subKey);
}

HRESULT ZvMetric_Close(HZVMETRIC metric)
{
    if (!metric || metric == ZVMETRIC_DEFAULT)
        return S_OK;
    closeKeys(metric);
    ZvMem_Free(metric);
    return S_OK;
}

HRESULT ZvMetric_CloseAndDeleteKey(HZVMETRIC metric)
{
    if (!metric || metric == ZVMETRIC_DEFAULT)
        return E_FAIL;
    closeKeys(metric);
    if (metric->userPath[0])
        ZvRegDeleteKey(HKEY_CURRENT_USER, metric->userPath);
    ZvMem_Free(metric);
    return S_OK;
}

HRESULT ZvMetric_DeleteAllHiveAndVersion(const wchar_t *application, DWORD version, const wchar_t *company)
{
    wchar_t path[kPathChars];
    if (!appPath(path, application, version, company, nullptr))
        return S_OK;
    ZvRegDeleteKey(HKEY_LOCAL_MACHINE, path);
    ZvRegDeleteKey(HKEY_CURRENT_USER, path);
    return S_OK;
}

HRESULT ZvMetric_DeleteAll(const wchar_t *application, DWORD version)
{
    return ZvMetric_DeleteAllHiveAndVersion(application, version, nullptr);
}

HRESULT ZvMetric_DeleteUserMetrics(const wchar_t *application, DWORD version)
{
    wchar_t path[kPathChars];
    if (appPath(path, application, version, nullptr, nullptr))
        ZvRegDeleteKey(HKEY_CURRENT_USER, path);
    return S_OK;
}

HRESULT ZvMetric_DeleteKeyHiveAndVersion(const wchar_t *application, DWORD version, const wchar_t *company,
                                         const wchar_t *subKey)
{
    std::wstring tail = L"\\Metrics";
    if (subKey && *subKey) {
        tail += L"\\";
        tail += subKey;
    }
    wchar_t path[kPathChars];
    if (!appPath(path, application, version, company, tail.c_str()))
        return S_OK;
    ZvRegDeleteKey(HKEY_LOCAL_MACHINE, path);
    ZvRegDeleteKey(HKEY_CURRENT_USER, path);
    return S_OK;
}

HRESULT ZvMetric_DeleteKey(const wchar_t *application, DWORD version, const wchar_t *subKey)
{
    return ZvMetric_DeleteKeyHiveAndVersion(application, version, nullptr, subKey);
}

// --- Numbers ---------------------------------------------------------------------------------

LONG ZvGetMetric(HZVMETRIC metric, int id)
{
    wchar_t name[16];
    valueName(id, REG_DWORD, name, false);
    LONG value = 0;
    return readNumber(keyOf(metric), name, &value) ? value : 0;
}

LONG ZvGetMetricEx(HZVMETRIC metric, int id, LONG minimum, LONG maximum, LONG defaultValue)
{
    wchar_t name[16];
    valueName(id, REG_DWORD, name, false);
    LONG value = defaultValue;
    readNumber(keyOf(metric), name, &value);
    if (minimum == maximum)
        return value;
    if (minimum > maximum) {
        LONG t = minimum;
        minimum = maximum;
        maximum = t;
    }
    return value < minimum ? minimum : value > maximum ? maximum : value;
}

BOOL ZvGetMetricBool(HZVMETRIC metric, int id, BOOL defaultValue)
{
    wchar_t name[16];
    valueName(id, REG_DWORD, name, false);
    LONG value;
    if (readNumber(keyOf(metric), name, &value))
        return value != 0;
    return defaultValue != 0;
}

HRESULT ZvSetMetric(HZVMETRIC metric, int id, LONG value)
{
    DWORD v = (DWORD)value;
    return writeValue(keyOf(metric), id, REG_DWORD, &v, sizeof v);
}

LONG ZvGetMetricUsingName(HZVMETRIC metric, const wchar_t *name, LONG defaultValue)
{
    LONG value = defaultValue;
    readNumber(keyOf(metric), name, &value);
    return value;
}

HRESULT ZvSetMetricUsingName(HZVMETRIC metric, const wchar_t *name, LONG value)
{
    HKEY key = keyOf(metric);
    if (!key || !name)
        return E_FAIL;
    DWORD v = (DWORD)value;
    LONG error = RegSetValueExW(key, name, 0, REG_DWORD, (const BYTE *)&v, sizeof v);
    return error == ERROR_SUCCESS ? S_OK : fromRegistry(error);
}

// --- Texts ------------------------------------------------------------------------------------

int ZvGetMetricStringEx(HZVMETRIC metric, int id, wchar_t *buffer, int cch, const wchar_t *defaultText,
                        BOOL keepEmpty)
{
    return readText(metric, id, REG_SZ, buffer, cch, defaultText, keepEmpty);
}

int ZvGetMetricMultiStringEx(HZVMETRIC metric, int id, wchar_t *buffer, int cch, const wchar_t *defaultText,
                             BOOL keepEmpty)
{
    return readText(metric, id, REG_MULTI_SZ, buffer, cch, defaultText, keepEmpty);
}

HRESULT ZvSetMetricString(HZVMETRIC metric, int id, const wchar_t *text)
{
    if (!text)
        return E_FAIL;
    DWORD bytes = (DWORD)(lstrlenW(text) + 1) * sizeof(wchar_t);
    return writeValue(blockWriterKey(metric), id, REG_SZ, text, bytes);
}

HRESULT ZvSetMetricMultiString(HZVMETRIC metric, int id, const wchar_t *data, int cch)
{
    if (!data || cch < 0)
        return E_FAIL;
    return writeValue(blockWriterKey(metric), id, REG_MULTI_SZ, data, (DWORD)cch * sizeof(wchar_t));
}

// --- Binary and stream -------------------------------------------------------------------------

int ZvGetMetricBinary(HZVMETRIC metric, int id, void *buffer, int size)
{
    if (!buffer || size <= 0)
        return 0;
    DWORD got = 0;
    HRESULT hr = ZvGetMetricBinaryEx(metric, id, buffer, (DWORD)size, &got);
    if (hr != S_OK) {
        memset(buffer, 0, (size_t)size);
        return 0;
    }
    return (int)got;
}

HRESULT ZvGetMetricBinaryEx(HZVMETRIC metric, int id, void *buffer, DWORD size, DWORD *sizeOut)
{
    if (!sizeOut)
        return E_INVALIDARG;
    *sizeOut = 0;
    if (!buffer)
        size = 0;
    HKEY key = keyOf(metric);
    if (!key) {
        if (buffer)
            memset(buffer, 0, size);
        return ZVERR_NOT_FOUND;
    }
    wchar_t name[16];
    valueName(id, REG_BINARY, name, false);
    DWORD type = 0, got = size;
    LONG error = RegQueryValueExW(key, name, nullptr, &type, (BYTE *)buffer, &got);
    if (error == ERROR_MORE_DATA && type == REG_BINARY) {
        if (buffer)
            memset(buffer, 0, size);
        *sizeOut = got;
        return ZVERR_BUFFER_TOO_SMALL;
    }
    if (error != ERROR_SUCCESS || type != REG_BINARY) {
        if (buffer)
            memset(buffer, 0, size);
        return S_FALSE;
    }
    if (buffer && got < size)
        memset((BYTE *)buffer + got, 0, size - got);
    *sizeOut = got;
    return S_OK;
}

HRESULT ZvSetMetricBinary(HZVMETRIC metric, int id, const void *data, DWORD size)
{
    if (!data && size)
        return E_FAIL;
    return writeValue(blockWriterKey(metric), id, REG_BINARY, data, size);
}

HRESULT ZvSetMetricStream(HZVMETRIC metric, int id, IStream *stream)
{
    if (!stream)
        return E_POINTER;
    LARGE_INTEGER zero = {};
    ULARGE_INTEGER position = {};
    HRESULT hr = stream->Seek(zero, STREAM_SEEK_CUR, &position);
    if (FAILED(hr))
        return hr;
    if (position.QuadPart > kMaxStreamBytes)
        return E_INVALIDARG;
    if (position.QuadPart == 0)
        return E_UNEXPECTED;
    HGLOBAL memory = nullptr;
    hr = GetHGlobalFromStream(stream, &memory);
    if (FAILED(hr))
        return hr;
    void *bytes = GlobalLock(memory);
    if (!bytes)
        return E_UNEXPECTED;
    hr = ZvSetMetricBinary(metric, id, bytes, (DWORD)position.QuadPart);
    GlobalUnlock(memory);
    return FAILED(hr) ? E_FAIL : S_OK;
}

HRESULT ZvGetMetricStream(HZVMETRIC metric, int id, IStream *stream)
{
    if (!stream)
        return E_POINTER;
    DWORD size = 0;
    ZvGetMetricBinaryEx(metric, id, nullptr, 0, &size);
    if (!size)
        return E_UNEXPECTED;
    void *block = ZvMem_Alloc(size);
    if (!block)
        return E_OUTOFMEMORY;
    DWORD got = 0;
    HRESULT hr = ZvGetMetricBinaryEx(metric, id, block, size, &got);
    if (hr != S_OK || got != size) {
        hr = E_UNEXPECTED;
    } else {
        LARGE_INTEGER zero = {};
        hr = stream->Seek(zero, STREAM_SEEK_SET, nullptr);
        ULONG written = 0;
        if (SUCCEEDED(hr))
            hr = stream->Write(block, size, &written);
        if (SUCCEEDED(hr) && written != size)
            hr = E_UNEXPECTED;
    }
    ZvMem_Free(block);
    return hr;
}

// --- General ---------------------------------------------------------------------------------------

HRESULT ZvGetMetricAny(HZVMETRIC metric, int id, DWORD kind, void *buffer, DWORD size, DWORD *sizeOut)
{
    HKEY key = keyOf(metric);
    if (!key)
        return E_UNEXPECTED;
    if (!buffer)
        size = 0;
    wchar_t name[16];
    valueName(id, REG_DWORD, name, false);
    DWORD type = REG_NONE, got = size;
    LONG error = RegQueryValueExW(key, name, nullptr, &type, (BYTE *)buffer, &got);
    if (error == ERROR_MORE_DATA) {
        if (sizeOut)
            *sizeOut = got;
        return ZVERR_BUFFER_TOO_SMALL;
    }
    if (error == ERROR_SUCCESS && type == kind)
        return ZVERR_NOT_FOUND;
    if (error != ERROR_SUCCESS)
        got = 0;
    HRESULT hr = S_OK;
    if (error == ERROR_SUCCESS && type == REG_SZ && buffer) {
        wchar_t *text = (wchar_t *)buffer;
        DWORD chars = got / sizeof(wchar_t), room = size / sizeof(wchar_t);
        if (chars < room) {
            text[chars] = 0;
        } else if (room && text[room - 1] != 0) {
            text[room - 1] = 0;
            got += sizeof(wchar_t);
            hr = ZVERR_BUFFER_TOO_SMALL;
        }
    }
    if (sizeOut)
        *sizeOut = got;
    return hr;
}

int ZvDoesMetricExist(HZVMETRIC metric, int id, DWORD kind)
{
    HKEY key = keyOf(metric);
    if (!key)
        return 1;
    wchar_t name[16];
    valueName(id, kind, name, false);
    DWORD type = REG_NONE;
    if (RegQueryValueExW(key, name, nullptr, &type, nullptr, nullptr) != ERROR_SUCCESS || type != kind)
        return 1;
    return 0;
}

HRESULT ZvDeleteMetricUsingName(HZVMETRIC metric, const wchar_t *name, DWORD)
{
    HKEY key = keyOf(metric);
    if (!key)
        return S_FALSE;
    if (!name)
        return E_FAIL;
    return RegDeleteValueW(key, name) == ERROR_SUCCESS ? S_OK : E_FAIL;
}

HRESULT ZvDeleteMetric(HZVMETRIC metric, int id, DWORD kind)
{
    wchar_t name[16];
    valueName(id, kind, name, false);
    return ZvDeleteMetricUsingName(metric, name, kind);
}

int ZvMetricGetName(int id, DWORD kind, wchar_t *buffer)
{
    if (!buffer)
        return 0;
    valueName(id, kind, buffer, true);
    return lstrlenW(buffer);
}

BOOL ZvRegDeleteKey(HKEY root, const wchar_t *path)
{
    // An empty path would name the root itself.
    if (!root || !path || !*path)
        return FALSE;
    return deleteTree(root, path);
}
