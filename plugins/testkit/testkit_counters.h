// Counters of the test plug-ins, shared by every process that loads them:
// how often each DLL was attached, listed, asked for a class, asked to
// identify or open a file. Tests read them to prove, for instance, that a
// warm start loads no plug-in at all.
//
// The counters live in a named block of shared memory. Its name carries a
// scope taken from the environment variable ZV_TESTKIT_SCOPE ("default"
// when unset), which child processes inherit; a test sets its own scope
// before it starts anything so that parallel runs don't mix. The block
// exists while some process holds it: a test opens it first and keeps the
// TestkitCounters object until it has read what it needs.
#pragma once
#include <windows.h>
#include <string.h>
#include <wchar.h>

// Which DLL a counter row belongs to.
enum TestkitDll {
    TK_DLL_DUAL = 0,      // tk_dual.dll: a reader class and a renderer class
    TK_DLL_READER,        // tk_reader.dll: one reader class, with a merit
    TK_DLL_BADLIST,       // tk_badlist.dll: its listing object can't be made
    TK_DLL_NOENTRY,       // tk_noentry.dll: no DllGetClassObject
    TK_DLL_PRELOAD,       // tk_preload.dll: a reader that wants tk_preloaded.dll
    TK_DLL_PRELOADED,     // tk_preloaded.dll: the preload module
    TK_DLL_COUNT
};

// What is counted for each DLL.
enum TestkitCounter {
    TK_ATTACH = 0,        // DllMain process attach
    TK_DETACH,            // DllMain process detach
    TK_LISTING,           // listing object handed out (DllGetClassObject for it)
    TK_CLASSOBJECT,       // class factory handed out for a plug-in class
    TK_IDENTIFY,          // IdentifyFile calls
    TK_OPEN,              // files opened
    TK_PRELOAD_SEEN,      // attach found tk_preloaded.dll already loaded
    TK_LAST_PID,          // process id of the last attach
    TK_COUNTER_COUNT
};

struct TestkitCounterBlock {
    LONG magic;           // TK_COUNTER_MAGIC once initialised
    LONG rows[TK_DLL_COUNT][TK_COUNTER_COUNT];
};

#define TK_COUNTER_MAGIC 0x314B5454 /* "TTK1" */
#define TK_SCOPE_VARIABLE L"ZV_TESTKIT_SCOPE"

// The block's name for the current scope.
static inline void TestkitCounterName(wchar_t *name, size_t capacity)
{
    wchar_t scope[64];
    DWORD n = GetEnvironmentVariableW(TK_SCOPE_VARIABLE, scope, 64);
    if (n == 0 || n >= 64)
        wcscpy(scope, L"default");
    _snwprintf(name, capacity, L"Local\\ZvTestkitCounters_%ls", scope);
    name[capacity - 1] = 0;
}

// Maps the block of the current scope, creating it zeroed if it is new.
// Null if shared memory can't be had; the plug-ins then count nothing.
static inline TestkitCounterBlock *TestkitOpenCounters(HANDLE *mapping)
{
    wchar_t name[96];
    TestkitCounterName(name, 96);
    *mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, NULL, PAGE_READWRITE, 0,
                                  sizeof(TestkitCounterBlock), name);
    if (!*mapping)
        return NULL;
    TestkitCounterBlock *block = (TestkitCounterBlock *)MapViewOfFile(
        *mapping, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, sizeof(TestkitCounterBlock));
    if (!block) {
        CloseHandle(*mapping);
        *mapping = NULL;
        return NULL;
    }
    // a new page-file mapping is zero-filled, so the magic only marks use
    InterlockedCompareExchange(&block->magic, TK_COUNTER_MAGIC, 0);
    return block;
}

static inline void TestkitCloseCounters(TestkitCounterBlock *block, HANDLE mapping)
{
    if (block)
        UnmapViewOfFile(block);
    if (mapping)
        CloseHandle(mapping);
}

#ifdef __cplusplus
// The tests' view: holds the block open and reads or resets it. Without a
// scope given it keeps the one it inherited (a child of a test shares its
// parent's counters) or, at the top, makes one of its own.
class TestkitCounters {
public:
    explicit TestkitCounters(const wchar_t *scope = NULL)
    {
        wchar_t own[64];
        if (!scope && GetEnvironmentVariableW(TK_SCOPE_VARIABLE, own, 64) == 0) {
            _snwprintf(own, 64, L"p%lu", GetCurrentProcessId());
            own[63] = 0;
            scope = own;
        }
        if (scope)
            SetEnvironmentVariableW(TK_SCOPE_VARIABLE, scope);
        block_ = TestkitOpenCounters(&mapping_);
    }
    ~TestkitCounters() { TestkitCloseCounters(block_, mapping_); }
    TestkitCounters(const TestkitCounters &) = delete;
    TestkitCounters &operator=(const TestkitCounters &) = delete;

    bool ok() const { return block_ != NULL; }
    LONG get(TestkitDll dll, TestkitCounter what) const
    {
        return block_ ? block_->rows[dll][what] : -1;
    }
    void reset()
    {
        if (block_)
            memset(block_->rows, 0, sizeof(block_->rows));
    }
    // attaches of all plug-in DLLs together
    LONG loads() const
    {
        LONG n = 0;
        for (int i = 0; i < TK_DLL_COUNT; i++)
            n += get((TestkitDll)i, TK_ATTACH);
        return n;
    }
private:
    HANDLE mapping_ = NULL;
    TestkitCounterBlock *block_ = NULL;
};
#endif
