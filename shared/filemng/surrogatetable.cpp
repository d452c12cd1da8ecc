#include "filemng/surrogatetable.h"
#include "filemng/blanket.h"
#include "filemng/filemng.h"
#include "filemng/fiodiscovery.h"
#include "zvlist.h"
#include "zvsurrogate.h"
#include "zvproxy.h"
#include <new>
#include <stdio.h>

static void ZvFioStopMonitoring(DWORD processId);

ZVFIO_SURROGATETABLE *g_pZvFioSurrogateTable;

// The table itself has no lock: it is touched under the managers' shared
// mutex. This one covers only its creation and reference count, which also
// serve managers made on several threads.
static CRITICAL_SECTION *TableLock()
{
    static CRITICAL_SECTION cs;
    static volatile LONG state;
    if (InterlockedCompareExchange(&state, 1, 0) == 0) {
        InitializeCriticalSection(&cs);
        InterlockedExchange(&state, 2);
    }
    while (state != 2)
        Sleep(0);
    return &cs;
}

static void FreeGlobal(void *p)
{
    if (p) {
        HGLOBAL h = GlobalHandle(p);
        GlobalUnlock(h);
        GlobalFree(h);
    }
}

HRESULT ZvFioSurrogateTable_Create()
{
    EnterCriticalSection(TableLock());
    if (!g_pZvFioSurrogateTable) {
        HGLOBAL h = GlobalAlloc(GHND, sizeof(ZVFIO_SURROGATETABLE));
        void *block = h ? GlobalLock(h) : NULL;
        ZVFIO_SURROGATETABLE *t = block ? new (block) ZVFIO_SURROGATETABLE() : NULL;
        if (t)
            for (ZVFIO_SURROGATESLOT &s : t->slots)
                s.hDuplicate = -1;
        g_pZvFioSurrogateTable = t;
    }
    HRESULT hr = g_pZvFioSurrogateTable ? S_OK : E_OUTOFMEMORY;
    LeaveCriticalSection(TableLock());
    return hr;
}

HRESULT ZvFioSurrogateTable_AddRef(BOOL surrogate, IUnknown *manager, DWORD flags,
                                   const _ZVFIO_INITIALIZATION_METRICS *metrics)
{
    EnterCriticalSection(TableLock());
    ZVFIO_SURROGATETABLE *t = g_pZvFioSurrogateTable;
    HRESULT hr = E_UNEXPECTED;
    if (t) {
        if (t->refs++ == 0) {
            t->isSurrogate = surrogate ? 1 : 0;
            t->firstManager = manager;
            t->flags = flags;
            if (metrics)
                t->metrics = *metrics;
        }
        hr = S_OK;
    }
    LeaveCriticalSection(TableLock());
    return hr;
}

void ZvFioSurrogateTable_Release()
{
    EnterCriticalSection(TableLock());
    ZVFIO_SURROGATETABLE *t = g_pZvFioSurrogateTable;
    if (t && --t->refs <= 0)
        g_pZvFioSurrogateTable = NULL;
    else
        t = NULL;
    LeaveCriticalSection(TableLock());
    if (!t)
        return;
    for (LONG i = 0; i < t->used && i < ZVFIO_SURROGATE_SLOTS; ++i) {
        if (t->slots[i].processId)
            ZvFioStopMonitoring(t->slots[i].processId);
        // the last reference to the child goes: it ends by itself
        t->slots[i].git.Reset();
    }
    t->~ZVFIO_SURROGATETABLE();
    FreeGlobal(t);
}

ZVFIO_SURROGATESLOT *ZvFioSurrogateTable_FindSlot(LONG group)
{
    ZVFIO_SURROGATETABLE *t = g_pZvFioSurrogateTable;
    if (!t)
        return NULL;
    for (LONG i = 0; i < t->used && i < ZVFIO_SURROGATE_SLOTS; ++i)
        if (t->slots[i].group == group)
            return &t->slots[i];
    return NULL;
}

BOOL ZvFioDeriveRouting(ZVFIO_PLUGININFO *record)
{
    if (!record)
        return FALSE;
    ZVFIO_SURROGATETABLE *t = g_pZvFioSurrogateTable;
    bool inSurrogate = t && t->isSurrogate;
    if (!inSurrogate && record->Surrogate > 0) {
        record->dwRecordFlags |= ZVFIO_RF_SURROGATE;
        return TRUE;
    }
    record->dwRecordFlags &= ~ZVFIO_RF_SURROGATE;
    return FALSE;
}

// ---------------------------------------------------------------- launching

// {5CDF45F4-888C-461A-8AB2-5AAA015B4642}: the surrogate's class; each child
// serves it under Data1 exclusive-or'ed with its process id.
static const CLSID kSurrogateClass = {0x5CDF45F4, 0x888C, 0x461A, {0x8A, 0xB2, 0x5A, 0xAA, 0x01, 0x5B, 0x46, 0x42}};

#define ZVFIO_CONNECT_ATTEMPTS 100

// The crash reporter is a separate DLL; without it monitoring is skipped.
static void CallReporter(const char *name, DWORD processId)
{
    HMODULE reporter = GetModuleHandleW(L"ErrorReport.dll");
    if (!reporter)
        return;
    typedef void(WINAPI * MonitorProc)(DWORD);
    MonitorProc proc = (MonitorProc)(void *)GetProcAddress(reporter, name);
    if (proc)
        proc(processId);
}

static void ZvFioStartMonitoring(DWORD processId)
{
    CallReporter("ErrorReport_StartMonitoringProcess", processId);
}

static void ZvFioStopMonitoring(DWORD processId)
{
    CallReporter("ErrorReport_StopMonitoringProcess", processId);
}

// The surrogate beside a 32-bit host, in the x86 sub-folder of a 64-bit one.
static HRESULT SurrogatePath(WCHAR *path)
{
    WCHAR self[MAX_PATH];
    DWORD n = GetModuleFileNameW(NULL, self, MAX_PATH);
    if (!n || n >= MAX_PATH)
        return HRESULT_FROM_WIN32(ERROR_FILENAME_EXCED_RANGE);
    WCHAR *name = self;
    for (WCHAR *p = self; *p; ++p)
        if (*p == L'\\' || *p == L'/')
            name = p + 1;
#ifdef _WIN64
    const WCHAR *format = L"x86\\%s";
#else
    const WCHAR *format = L"%s";
#endif
    size_t room = MAX_PATH - (size_t)(name - self);
    int put = _snwprintf(name, room, format, L"Vantry.exe");
    if (put < 0 || (size_t)put >= room)
        return HRESULT_FROM_WIN32(ERROR_FILENAME_EXCED_RANGE);
    wcscpy(path, self);
    return S_OK;
}

// A class id whose registration belongs to a process that is gone. The
// system's class table keeps the registration of a server that was ended by
// force, and hands that one out first for as long as the session lasts; a
// new child whose process id was reused computes the same id and can never
// be reached under it.
static bool DeadRegistration(HRESULT hr)
{
    return hr == HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE) || hr == HRESULT_FROM_WIN32(RPC_S_CALL_FAILED) ||
           hr == RPC_E_DISCONNECTED || hr == RPC_E_SERVER_DIED || hr == RPC_E_SERVER_DIED_DNE ||
           hr == CO_E_OBJNOTCONNECTED;
}

// One child: started suspended, so that the crash reporter watches it from
// the start, then asked for its per-process class until it has registered it.
static HRESULT StartAndConnect(ZVFIO_SURROGATESLOT *slot, WCHAR *line, IZvFileIOManagerSurrogate **out,
                               HANDLE *process)
{
    STARTUPINFOW si;
    ZeroMemory(&si, sizeof si);
    si.cb = sizeof si;
    PROCESS_INFORMATION pi;
    slot->processId = 0;
    if (!CreateProcessW(NULL, line, NULL, NULL, FALSE, CREATE_SUSPENDED, NULL, NULL, &si, &pi))
        return HRESULT_FROM_WIN32(GetLastError());
    ZvFioStartMonitoring(pi.dwProcessId);
    ResumeThread(pi.hThread);
    slot->processId = pi.dwProcessId;
    *process = pi.hProcess;

    CLSID clsid = kSurrogateClass;
    clsid.Data1 ^= pi.dwProcessId;
    HRESULT hr = REGDB_E_CLASSNOTREG;
    // the class exists only once the child has registered it; meanwhile a
    // single-threaded apartment keeps taking the messages sent to it
    for (int i = 0; i < ZVFIO_CONNECT_ATTEMPTS && hr == REGDB_E_CLASSNOTREG; ++i) {
        DWORD index = 0;
        if (i)
            CoWaitForMultipleHandles(0, 100, 1, &pi.hThread, &index);
        hr = CoCreateInstance(clsid, NULL, CLSCTX_LOCAL_SERVER, IID_IZvFileIOManagerSurrogate, (void **)out);
    }
    CloseHandle(pi.hThread);
    if (SUCCEEDED(hr) && !*out)
        hr = E_NOINTERFACE;
    return hr;
}

#define ZVFIO_LAUNCH_ATTEMPTS 3

static HRESULT Launch(LONG group)
{
    ZVFIO_SURROGATETABLE *t = g_pZvFioSurrogateTable;
    if (!t)
        return E_UNEXPECTED;
    ZVFIO_SURROGATESLOT *slot = ZvFioSurrogateTable_FindSlot(group);
    if (slot && slot->processId)
        return S_OK;
    if (!slot) {
        if (t->used >= ZVFIO_SURROGATE_SLOTS)
            return ZVERR_BUFFER_TOO_SMALL;
        slot = &t->slots[t->used++];
        slot->group = group;
    }
    WCHAR path[MAX_PATH];
    HRESULT hr = SurrogatePath(path);
    if (FAILED(hr))
        return hr;
    WCHAR line[388];
    int put = _snwprintf(line, 388, L"\"%s\" %d", path, (int)ZvFioKernelLangID());
    if (put < 0 || put >= 388)
        return HRESULT_FROM_WIN32(ERROR_FILENAME_EXCED_RANGE);
    // the reply is unmarshalled in this apartment, which needs the contract's proxies
    ZvProxy_Register();
    IZvFileIOManagerSurrogate *s = NULL;
    HANDLE process = NULL;
    hr = StartAndConnect(slot, line, &s, &process);
    // A child behind a dead registration is unreachable for good: it is
    // ended, and a new one (with another process id) takes its place.
    for (int attempt = 1; DeadRegistration(hr) && attempt < ZVFIO_LAUNCH_ATTEMPTS; ++attempt) {
        ZvFioStopMonitoring(slot->processId);
        TerminateProcess(process, (UINT)hr);
        CloseHandle(process);
        process = NULL;
        hr = StartAndConnect(slot, line, &s, &process);
    }
    if (process)
        CloseHandle(process);
    if (SUCCEEDED(hr)) {
        hr = slot->git.Set(s, IID_IZvFileIOManagerSurrogate);
        s->Release();
    } else if (s) {
        s->Release();
    }
    // On failure the child is left waiting for a client that never comes (it
    // ends with its client), and the slot keeps its process id: later
    // attempts find it launched and get no pointer.
    return hr;
}

HRESULT ZvFioLaunchSurrogate(ZVFIO_PLUGININFO *record)
{
    if (!record || !ZvFioDeriveRouting(record))
        return S_OK;
    // no lock of its own: launches run under the managers' shared mutex
    return Launch(record->Surrogate);
}

IZvFileIOManagerSurrogate *ZvFioSurrogateSlot_Get(ZVFIO_SURROGATESLOT *slot)
{
    return slot ? (IZvFileIOManagerSurrogate *)slot->git.Get() : NULL;
}

// First contact: the child's own manager, then the group's plug-ins. Runs
// once per slot, also when it fails.
static HRESULT FirstContact(ZVFIO_SURROGATESLOT *slot)
{
    ZVFIO_SURROGATETABLE *t = g_pZvFioSurrogateTable;
    if (!t || __atomic_exchange_n(&slot->initialised, (BYTE)1, __ATOMIC_SEQ_CST))
        return S_OK;
    IZvFileIOManagerSurrogate *s = ZvFioSurrogateSlot_Get(slot);
    if (!s)
        return S_OK;
    const WCHAR *product = g_zvfioProductName[0] ? g_zvfioProductName : L"Unspecified";
    WCHAR host[MAX_PATH], longHost[MAX_PATH];
    DWORD n = GetModuleFileNameW(NULL, host, MAX_PATH);
    if (!n || n >= MAX_PATH)
        host[0] = 0;
    n = GetLongPathNameW(host, longHost, MAX_PATH);
    const WCHAR *hostPath = n && n <= MAX_PATH ? longHost : host;
    HRESULT hr = s->CreateSurrogateFileIOManager(t->flags, t->metrics.mask, ZVFIO_METRIC_COUNT, t->metrics.values,
                                                 ZVFIO_METRIC_COUNT, hostPath, product);
    if (FAILED(hr))
        return hr;
    tZVLIST *list = NULL;
    if (t->firstManager)
        list = static_cast<CZvFileIOManager *>(static_cast<IZvFileIOMgrForApp *>(t->firstManager))->pluginList();
    int added = 0;
    HRESULT add = S_OK;
    for (int i = 0; list && i < list->count; ++i) {
        ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
        if (r && ZvFioDeriveRouting(r) && r->Surrogate == slot->group) {
            add = s->AddPluginToList(r->szPath);
            ++added;
        }
    }
    if (added && FAILED(add))
        return add;
    return s->ProcessPluginList();
}

HRESULT ZvFioRoutedCreate(ZVFIO_PLUGININFO *record, void **out, REFIID iid, IUnknown *manager)
{
    if (!out || !record)
        return E_POINTER;
    *out = NULL;
    HRESULT hr = ZvFioLaunchSurrogate(record);
    if (FAILED(hr))
        return hr;
    ZVFIO_SURROGATESLOT *slot = ZvFioSurrogateTable_FindSlot(record->Surrogate);
    if (!slot)
        hr = E_UNEXPECTED;
    else if (!IsEqualIID(iid, IID_IZvUnsharedFIOPluginInfo))
        hr = FirstContact(slot);
    if (FAILED(hr))
        return hr;
    IZvFileIOManagerSurrogate *s = ZvFioSurrogateSlot_Get(slot);
    if (!s)
        return hr;
    hr = s->CreateObject(record->szPath, record->clsidPlugin, iid, (IUnknown **)out);
    if (FAILED(hr))
        return hr;
    if (IsEqualIID(iid, IID_IZvReadFileClass) || IsEqualIID(iid, IID_IZvRenderFileClass))
        hr = ZvBlanket_Wrap(&iid, out, NULL, manager, (record->dwRecordFlags & ZVFIO_RF_AMD64) ? 1 : 0);
    return hr;
}

// ---------------------------------------------------------------- handles

ZVAPI HRESULT DuplicateHandleFromProcessId(DWORD handle, DWORD processId, void **out)
{
    if (!out)
        return E_POINTER;
    *out = NULL;
    HANDLE process = OpenProcess(PROCESS_ALL_ACCESS, FALSE, processId);
    if (!process)
        return HRESULT_FROM_WIN32(GetLastError());
    HRESULT hr = S_OK;
    HANDLE h = (HANDLE)(LONG_PTR)(LONG)handle;
    if (!DuplicateHandle(process, h, GetCurrentProcess(), (HANDLE *)out, 0, FALSE, DUPLICATE_SAME_ACCESS))
        hr = HRESULT_FROM_WIN32(GetLastError());
    CloseHandle(process);
    return hr;
}

ZVAPI HRESULT DuplicateHandleToProcessId(void *handle, DWORD processId, void **out)
{
    if (!out)
        return E_POINTER;
    *out = NULL;
    HANDLE process = OpenProcess(PROCESS_ALL_ACCESS, FALSE, processId);
    if (!process)
        return HRESULT_FROM_WIN32(GetLastError());
    HRESULT hr = S_OK;
    if (!DuplicateHandle(GetCurrentProcess(), (HANDLE)handle, process, (HANDLE *)out, 0, FALSE, DUPLICATE_SAME_ACCESS))
        hr = HRESULT_FROM_WIN32(GetLastError());
    CloseHandle(process);
    return hr;
}

BOOL ZvFioRecordProcess(ZVFIO_PLUGININFO *record, DWORD *processId)
{
    *processId = GetCurrentProcessId();
    if (!ZvFioDeriveRouting(record))
        return FALSE;
    ZVFIO_SURROGATESLOT *slot = ZvFioSurrogateTable_FindSlot(record->Surrogate);
    if (!slot || !slot->processId)
        return FALSE;
    *processId = slot->processId;
    return TRUE;
}

void ZvFioSurrogate_BeginIdentification()
{
    ZVFIO_SURROGATETABLE *t = g_pZvFioSurrogateTable;
    for (LONG i = 0; t && i < t->used && i < ZVFIO_SURROGATE_SLOTS; ++i)
        t->slots[i].hDuplicate = -1;
}

HRESULT ZvFioSurrogate_IdentifyHandle(ZVFIO_PLUGININFO *record, HANDLE file, UINT64 *wireHandle, DWORD *processId)
{
    if (!wireHandle || !processId)
        return E_POINTER;
    *wireHandle = (UINT64)(LONG_PTR)file;
    DWORD pid = 0;
    if (!ZvFioRecordProcess(record, &pid)) {
        *processId = pid;
        return S_OK;
    }
    ZVFIO_SURROGATESLOT *slot = ZvFioSurrogateTable_FindSlot(record->Surrogate);
    if (slot->hDuplicate == -1) {
        void *dup = NULL;
        HRESULT hr = DuplicateHandleToProcessId(file, slot->processId, &dup);
        if (FAILED(hr))
            return hr;
        // handles carry 32 significant bits in either architecture
        slot->hDuplicate = (LONG)(LONG_PTR)dup;
    }
    *wireHandle = (UINT64)(LONG64)slot->hDuplicate;
    *processId = pid;
    return S_OK;
}

void ZvFioSurrogate_EndIdentification()
{
    ZVFIO_SURROGATETABLE *t = g_pZvFioSurrogateTable;
    for (LONG i = 0; t && i < t->used && i < ZVFIO_SURROGATE_SLOTS; ++i) {
        ZVFIO_SURROGATESLOT &slot = t->slots[i];
        if (slot.hDuplicate == -1)
            continue;
        IZvFileIOManagerSurrogate *s = ZvFioSurrogateSlot_Get(&slot);
        if (s)
            s->CloseHandle((UINT64)(LONG64)slot.hDuplicate);
        slot.hDuplicate = -1;
    }
}

HRESULT ZvFioSurrogate_DuplicateForRecord(ZVFIO_PLUGININFO *record, HANDLE file, UINT64 *wireHandle,
                                          DWORD *processId)
{
    if (!wireHandle || !processId)
        return E_POINTER;
    *wireHandle = (UINT64)(LONG_PTR)file;
    DWORD pid = 0;
    if (!ZvFioRecordProcess(record, &pid)) {
        *processId = pid;
        return S_OK;
    }
    void *dup = NULL;
    HRESULT hr = DuplicateHandleToProcessId(file, pid, &dup);
    if (FAILED(hr))
        return hr;
    *wireHandle = (UINT64)(LONG64)(LONG)(LONG_PTR)dup;
    *processId = pid;
    return S_OK;
}

HRESULT ZvFioSurrogate_CloseRemoteHandle(DWORD processId, UINT64 wireHandle)
{
    ZVFIO_SURROGATETABLE *t = g_pZvFioSurrogateTable;
    if (processId == GetCurrentProcessId())
        return S_OK;
    for (LONG i = 0; t && i < t->used && i < ZVFIO_SURROGATE_SLOTS; ++i) {
        if (t->slots[i].processId != processId)
            continue;
        IZvFileIOManagerSurrogate *s = ZvFioSurrogateSlot_Get(&t->slots[i]);
        return s ? s->CloseHandle(wireHandle) : E_UNEXPECTED;
    }
    return E_INVALIDARG;
}

ZVAPI BOOL ZVFileIO_IsSurrogateProcessId(DWORD processId)
{
    ZVFIO_SURROGATETABLE *t = g_pZvFioSurrogateTable;
    if (!t || !processId)
        return FALSE;
    for (LONG i = 0; i < t->used && i < ZVFIO_SURROGATE_SLOTS; ++i)
        if (t->slots[i].processId == processId)
            return TRUE;
    return FALSE;
}
