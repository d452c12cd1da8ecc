// The plain text log: CLog writes the file, one older ".previous"
// generation at most; CZvLogger is the same writer as a COM object
// (IZvLogger). Beside them: timing scopes and the debugger trace.
#pragma once
#include "zvbase.h"
#include "zvmemory.h"
#include <stdio.h>
#include <stdarg.h>
#include "zvlogger.h"

#ifndef ZVERR_INIT_FAILED
#define ZVERR_INIT_FAILED ((HRESULT)0x8004E01B)  // "A component failed to initialize."
#endif

// Levels of a line, and the decorations of the log.
enum LOGFLAGS {
    LOGFLAG_ERROR = 0x1,      // "ERR "
    LOGFLAG_WARNING = 0x2,    // "WARN"
    LOGFLAG_INFO = 0x4,       // "INFO"
    LOGFLAG_DEBUG = 0x8,      // "DBG "
    LOGFLAG_PLAIN = 0x10,     // no tag
    LOGFLAG_TIMESTAMP = 0x10000,
    LOGFLAG_SOURCE = 0x20000,
};

// Widens a narrow literal such as __FILE__ for the source argument.
#define ZV_WIDEN2(x) L##x
#define ZV_WIDEN(x) ZV_WIDEN2(x)
#define ZV_WFILE ZV_WIDEN(__FILE__)

#ifdef __cplusplus

#define ZVLOG_PATH_CHARS 260
#define ZVLOG_LINE_CHARS 1024

// Lines are UTF-8 in a file opened in text mode, flushed one by one. Init,
// Write and Shutdown hold the lock.
class CLog : public ZvGlobalObject {
public:
    CLog();
    virtual ~CLog();

    // flags: LOGFLAGS levels to write and decorations; maxSize: roll-over
    // size in bytes, 0 or less never; shareMode: 0 for the default opening,
    // else a _SH_ sharing flag. E_INVALIDARG for a null name or flags of 0,
    // ZVERR_FILE_OPEN when the file can't be opened.
    HRESULT Init(LPCWSTR fileName, DWORD flags, int maxSize, int shareMode);
    void Shutdown();
    // Formats with the wide printf of the run time (%s is a wide string).
    // ZVERR_INIT_FAILED when the log is not open; 0 when the level is not
    // written or the line was written.
    HRESULT Write(DWORD level, LPCWSTR sourceFile, int line, LPCWSTR format, ...);
    HRESULT WriteV(DWORD level, LPCWSTR sourceFile, int line, LPCWSTR format, va_list args);
    LPCWSTR GetLogFileName() { return fileName; }
    BOOL IsReady() const { return ready != 0; }

private:
    HRESULT Open();

    LONG ready;
    FILE *file;
    DWORD flags;
    int maxSize;
    WCHAR fileName[ZVLOG_PATH_CHARS];
    WCHAR previousName[ZVLOG_PATH_CHARS];
    CRITICAL_SECTION lock;
    int shareMode;
};

// The COM object around a CLog. The reference count starts at 0: the creator
// takes the first reference (QueryInterface or AddRef).
class CZvLogger : public IZvLogger, public ZvGlobalObject {
public:
    CZvLogger();
    virtual ~CZvLogger();

    STDMETHODIMP QueryInterface(REFIID iid, void **out) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    STDMETHODIMP Init(LPCWSTR fileName, DWORD flags, LONG maxSize, LONG shareMode) override;
    STDMETHODIMP Shutdown() override;
    STDMETHODIMP Write(DWORD level, LPCWSTR sourceFile, LONG line, LPCWSTR text) override;
    STDMETHODIMP GetLogFileName(WCHAR *buffer, LONG length) override;

    CLog *GetLog() { return log; }

private:
    CLog *log;
    LONG refs;
};

// Timing scope: opens at construction and closes at the end of the block.
// The name is a literal such as "CZvFileIOManager::GetMetric"; the kernel
// keeps a count and the total time per name.
class CZvTimingScope {
public:
    explicit CZvTimingScope(const char *name);
    ~CZvTimingScope();
    CZvTimingScope(const CZvTimingScope &) = delete;
    CZvTimingScope &operator=(const CZvTimingScope &) = delete;

private:
    const char *name;
    ULONGLONG start;
};
#define ZV_TIMING_SCOPE_CAT2(a, b) a##b
#define ZV_TIMING_SCOPE_CAT(a, b) ZV_TIMING_SCOPE_CAT2(a, b)
#define ZV_TIMING_SCOPE(name) CZvTimingScope ZV_TIMING_SCOPE_CAT(zvTimingScope_, __LINE__)(name)

#endif // __cplusplus

// Creates a CZvLogger and returns it with one reference.
ZVAPI HRESULT ZvLogger_Create(IZvLogger **out);

// Writes a formatted line to a logger (null does nothing): the text is
// formatted into at most 511 characters, then Write(level, file, line, text).
ZVAPI HRESULT ZvLogger_Printf(IZvLogger *logger, DWORD level, LPCWSTR sourceFile, int line,
                              LPCWSTR format, ...);

// Counts and total microseconds of the closed scopes of a name; 0 when the
// name was never timed. ZvTiming_Reset forgets all.
ZVAPI BOOL ZvTiming_Get(const char *name, ULONGLONG *count, ULONGLONG *totalMicrosec);
ZVAPI void ZvTiming_Reset(void);

// Debugger trace: the prefix, then the formatted text, in a buffer of 1024
// characters, to OutputDebugStringW.
#define ZV_TRACE_FILEMNG L"[KELPO][FILEMNG] "
ZVAPI void ZvTrace(LPCWSTR prefix, LPCWSTR format, ...);
ZVAPI void ZvTraceV(LPCWSTR prefix, LPCWSTR format, va_list args);
