// The log writer, its COM object, timing scopes and the debugger trace.
#include "zvlog.h"
#include "zvkernel.h"
#include <share.h>
#include <string.h>
#include <wchar.h>

namespace {

// Copies at most size - 1 characters and always terminates.
void CopyCut(WCHAR *dst, size_t size, const WCHAR *src)
{
    size_t n = wcslen(src);
    if (n > size - 1)
        n = size - 1;
    memcpy(dst, src, n * sizeof(WCHAR));
    dst[n] = 0;
}

const WCHAR *TagOf(DWORD level)
{
    switch (level) {
    case LOGFLAG_ERROR: return L"ERR ";
    case LOGFLAG_WARNING: return L"WARN";
    case LOGFLAG_INFO: return L"INFO";
    case LOGFLAG_DEBUG: return L"DBG ";
    case LOGFLAG_PLAIN: return L"";
    default: return L"????";
    }
}

const WCHAR *BaseName(const WCHAR *path)
{
    const WCHAR *name = path;
    for (const WCHAR *p = path; *p; p++)
        if (*p == L'\\' || *p == L'/' || *p == L':')
            name = p + 1;
    return name;
}

// Formats into buffer of size characters; text beyond size - 1 is cut.
void FormatCut(WCHAR *buffer, size_t size, const WCHAR *format, va_list args)
{
    int n = _vsnwprintf(buffer, size - 1, format, args);
    if (n < 0 || (size_t)n >= size - 1)
        buffer[size - 1] = 0;
    else
        buffer[n] = 0;
}

} // namespace

// ---------------------------------------------------------------- CLog

CLog::CLog() : ready(0), file(nullptr), flags(0), maxSize(0), shareMode(0)
{
    fileName[0] = 0;
    previousName[0] = 0;
    InitializeCriticalSection(&lock);
}

CLog::~CLog()
{
    Shutdown();
    DeleteCriticalSection(&lock);
}

HRESULT CLog::Open()
{
    FILE *f = nullptr;
    if (shareMode == 0) {
        if (_wfopen_s(&f, fileName, L"a+t") != 0)
            f = nullptr;
    } else {
        f = _wfsopen(fileName, L"a+t", shareMode);
    }
    if (!f)
        return ZVERR_FILE_OPEN;
    // An appending stream reports 0 until its first write; the size of what
    // an earlier session wrote counts towards the roll-over.
    fseek(f, 0, SEEK_END);
    file = f;
    return S_OK;
}

HRESULT CLog::Init(LPCWSTR name, DWORD newFlags, int newMaxSize, int newShareMode)
{
    if (!name || !newFlags)
        return E_INVALIDARG;
    EnterCriticalSection(&lock);
    if (file) {
        fclose(file);
        file = nullptr;
    }
    ready = 0;
    CopyCut(fileName, ZVLOG_PATH_CHARS, name);
    WCHAR previous[ZVLOG_PATH_CHARS + 16];
    _snwprintf(previous, ZVLOG_PATH_CHARS + 16, L"%ls.previous", fileName);
    previous[ZVLOG_PATH_CHARS + 15] = 0;
    CopyCut(previousName, ZVLOG_PATH_CHARS, previous);
    flags = newFlags;
    maxSize = newMaxSize;
    shareMode = newShareMode;
    HRESULT hr = Open();
    if (SUCCEEDED(hr))
        ready = 1;
    LeaveCriticalSection(&lock);
    return hr;
}

// Takes the lock too: through IZvLogger a Shutdown from one caller may meet
// a Write from another.
void CLog::Shutdown()
{
    EnterCriticalSection(&lock);
    if (file) {
        fclose(file);
        file = nullptr;
    }
    ready = 0;
    LeaveCriticalSection(&lock);
}

HRESULT CLog::Write(DWORD level, LPCWSTR sourceFile, int line, LPCWSTR format, ...)
{
    va_list args;
    va_start(args, format);
    HRESULT hr = WriteV(level, sourceFile, line, format, args);
    va_end(args);
    return hr;
}

HRESULT CLog::WriteV(DWORD level, LPCWSTR sourceFile, int line, LPCWSTR format, va_list args)
{
    EnterCriticalSection(&lock);
    HRESULT hr = S_OK;
    if (!ready || !file) {
        hr = ZVERR_INIT_FAILED;
        goto done;
    }
    if (!(level & flags & 0xFFFFu))
        goto done;

    if (maxSize > 0 && ftell(file) >= maxSize) {
        fclose(file);
        file = nullptr;
        _wremove(previousName);
        _wrename(fileName, previousName);
        hr = Open();
        if (FAILED(hr)) {
            ready = 0;
            goto done;
        }
    }

    {
        // tag, decorations and message, then the line as UTF-8
        WCHAR text[96 + ZVLOG_PATH_CHARS + ZVLOG_LINE_CHARS];
        size_t pos = 0;
        const size_t room = sizeof(text) / sizeof(text[0]);
        const WCHAR *tag = TagOf(level);
        CopyCut(text, room, tag);
        pos = wcslen(text);
        if (flags & LOGFLAG_TIMESTAMP) {
            SYSTEMTIME st;
            GetLocalTime(&st);
            pos += _snwprintf(text + pos, room - pos, L" %02d-%02d-%02d %02d:%02d:%02d ",
                              st.wYear % 100, st.wMonth, st.wDay, st.wHour, st.wMinute, st.wSecond);
        } else if (*tag) {
            text[pos++] = L' ';
        }
        if (flags & LOGFLAG_SOURCE) {
            WCHAR name[ZVLOG_PATH_CHARS];
            CopyCut(name, ZVLOG_PATH_CHARS, sourceFile ? BaseName(sourceFile) : L"");
            int n = _snwprintf(text + pos, room - pos - ZVLOG_LINE_CHARS, L"%15ls(%4d): ", name, line);
            if (n > 0)
                pos += (size_t)n;
        }
        FormatCut(text + pos, ZVLOG_LINE_CHARS, format ? format : L"", args);

        char utf8[3 * (sizeof(text) / sizeof(text[0])) + 2];
        int bytes = WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8, sizeof(utf8) - 1, nullptr, nullptr);
        if (bytes <= 0)
            bytes = 1, utf8[0] = 0;
        utf8[bytes - 1] = '\n';
        fwrite(utf8, 1, (size_t)bytes, file);
        fflush(file);
    }

done:
    LeaveCriticalSection(&lock);
    return hr;
}

// ---------------------------------------------------------------- CZvLogger

CZvLogger::CZvLogger() : log(new CLog), refs(0)
{
}

CZvLogger::~CZvLogger()
{
    delete log;
}

STDMETHODIMP CZvLogger::QueryInterface(REFIID iid, void **out)
{
    if (!out)
        return E_POINTER;
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IZvLogger)) {
        *out = static_cast<IZvLogger *>(this);
        AddRef();
        return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) CZvLogger::AddRef()
{
    return (ULONG)InterlockedIncrement(&refs);
}

STDMETHODIMP_(ULONG) CZvLogger::Release()
{
    LONG n = InterlockedDecrement(&refs);
    if (n == 0)
        delete this;
    return (ULONG)n;
}

STDMETHODIMP CZvLogger::Init(LPCWSTR fileName, DWORD flags, LONG maxSize, LONG shareMode)
{
    if (!log)
        return E_OUTOFMEMORY;
    return log->Init(fileName, flags, (int)maxSize, (int)shareMode);
}

STDMETHODIMP CZvLogger::Shutdown()
{
    if (log)
        log->Shutdown();
    return S_OK;
}

STDMETHODIMP CZvLogger::Write(DWORD level, LPCWSTR sourceFile, LONG line, LPCWSTR text)
{
    if (log)
        log->Write(level, sourceFile, (int)line, L"%ls", text ? text : L"");
    return S_OK;
}

STDMETHODIMP CZvLogger::GetLogFileName(WCHAR *buffer, LONG length)
{
    if (!buffer || length < 1 || !log)
        return S_OK;
    CopyCut(buffer, (size_t)length, log->GetLogFileName());
    return S_OK;
}

ZVAPI HRESULT ZvLogger_Create(IZvLogger **out)
{
    if (!out)
        return E_POINTER;
    *out = nullptr;
    CZvLogger *logger = new CZvLogger;
    if (!logger)
        return E_OUTOFMEMORY;
    if (!logger->GetLog()) {
        delete logger;
        return E_OUTOFMEMORY;
    }
    logger->AddRef();
    *out = logger;
    return S_OK;
}

ZVAPI HRESULT ZvLogger_Printf(IZvLogger *logger, DWORD level, LPCWSTR sourceFile, int line,
                              LPCWSTR format, ...)
{
    if (!logger || !format)
        return logger ? E_INVALIDARG : S_OK;
    WCHAR text[512];
    va_list args;
    va_start(args, format);
    FormatCut(text, 512, format, args);
    va_end(args);
    return logger->Write(level, sourceFile, line, text);
}

// ---------------------------------------------------------------- timing scopes

namespace {
struct TimingEntry {
    const char *name;
    ULONGLONG count;
    ULONGLONG total;
};
const int kTimingEntries = 512;
TimingEntry g_timing[kTimingEntries];
int g_timingCount;
SRWLOCK g_timingLock = SRWLOCK_INIT;

// Literals of one name may lie at different addresses in different units:
// the address is tried first, the text second.
TimingEntry *FindTiming(const char *name)
{
    for (int i = 0; i < g_timingCount; i++)
        if (g_timing[i].name == name)
            return &g_timing[i];
    for (int i = 0; i < g_timingCount; i++)
        if (strcmp(g_timing[i].name, name) == 0)
            return &g_timing[i];
    return nullptr;
}
} // namespace

CZvTimingScope::CZvTimingScope(const char *scopeName) : name(scopeName), start(ZvGetMicrosecEx())
{
}

CZvTimingScope::~CZvTimingScope()
{
    if (!name)
        return;
    ULONGLONG elapsed = ZvDeltaMicrosecEx(start);
    AcquireSRWLockExclusive(&g_timingLock);
    TimingEntry *e = FindTiming(name);
    if (!e && g_timingCount < kTimingEntries) {
        e = &g_timing[g_timingCount++];
        e->name = name;
    }
    if (e) {
        e->count++;
        e->total += elapsed;
    }
    ReleaseSRWLockExclusive(&g_timingLock);
}

ZVAPI BOOL ZvTiming_Get(const char *name, ULONGLONG *count, ULONGLONG *totalMicrosec)
{
    if (count)
        *count = 0;
    if (totalMicrosec)
        *totalMicrosec = 0;
    if (!name)
        return FALSE;
    AcquireSRWLockShared(&g_timingLock);
    TimingEntry *e = FindTiming(name);
    if (e) {
        if (count)
            *count = e->count;
        if (totalMicrosec)
            *totalMicrosec = e->total;
    }
    ReleaseSRWLockShared(&g_timingLock);
    return e != nullptr;
}

ZVAPI void ZvTiming_Reset(void)
{
    AcquireSRWLockExclusive(&g_timingLock);
    g_timingCount = 0;
    ReleaseSRWLockExclusive(&g_timingLock);
}

// ---------------------------------------------------------------- trace

ZVAPI void ZvTraceV(LPCWSTR prefix, LPCWSTR format, va_list args)
{
    WCHAR text[1024];
    CopyCut(text, 1024, prefix ? prefix : L"");
    size_t pos = wcslen(text);
    FormatCut(text + pos, 1024 - pos, format ? format : L"", args);
    OutputDebugStringW(text);
}

ZVAPI void ZvTrace(LPCWSTR prefix, LPCWSTR format, ...)
{
    va_list args;
    va_start(args, format);
    ZvTraceV(prefix, format, args);
    va_end(args);
}
