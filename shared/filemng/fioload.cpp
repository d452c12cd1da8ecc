#include "filemng/fioload.h"
#include "filemng/filemng.h"
#include "filemng/fiodiscovery.h"
#include "filemng/fioenum.h"
#include "filemng/surrogatetable.h"
#include "zvcomspy.h"
#include "zvpaths.h"
#include "zvlogger.h"
#include "zvlog.h"
#include <process.h>
#include <stdarg.h>
#include <stdio.h>
#include <wchar.h>
#include <wctype.h>

// ---------------------------------------------------------------- logging

void ZvFioLogWriteV(IZvLogger *logger, const char *file, int line, const WCHAR *format, va_list args)
{
    if (!logger)
        return;
    WCHAR text[512];
    _vsnwprintf(text, 512, format, args);
    text[511] = 0;
    WCHAR source[MAX_PATH];
    MultiByteToWideChar(CP_ACP, 0, file ? file : "", -1, source, MAX_PATH);
    source[MAX_PATH - 1] = 0;
    logger->Write(4, source, line, text);
}

void ZvFioLogWrite(IZvLogger *logger, const char *file, int line, const WCHAR *format, ...)
{
    va_list args;
    va_start(args, format);
    ZvFioLogWriteV(logger, file, line, format, args);
    va_end(args);
}

// ---------------------------------------------------------------- DLLs

static void FolderOf(const WCHAR *path, WCHAR *folder)
{
    if (FAILED(ZvGetPathNameFromFilePath(path, folder, MAX_PATH)))
        folder[0] = 0;
    ZvRemoveSlashFromPathNameEnd(folder);
}

// Builds the full path of a preload name below `folder`: 1 when it lies
// inside, 0 when it leaves the folder, -1 when it doesn't fit.
static int PreloadPath(const WCHAR *folderUpper, const WCHAR *folder, const WCHAR *name, WCHAR *out)
{
    WCHAR joined[MAX_PATH];
    if (_snwprintf(joined, MAX_PATH, L"%s\\%s", folder, name) < 0)
        return -1;
    joined[MAX_PATH - 1] = 0;
    const WCHAR *ext = ZvGetFileNameExtensionPtrW(joined);
    if (!*ext || !ext[1]) {
        if (*ext)
            *(WCHAR *)ext = 0; // an empty extension ("name.")
        if (FAILED(ZvAddExtensionToPathName(joined, MAX_PATH, L".DLL")))
            return -1;
    }
    WCHAR full[MAX_PATH];
    DWORD n = GetFullPathNameW(joined, MAX_PATH, full, NULL);
    if (!n || n >= MAX_PATH)
        return -1;
    n = GetLongPathNameW(full, out, MAX_PATH);
    if (n >= MAX_PATH)
        return -1;
    if (!n)
        wcscpy(out, full);
    WCHAR upper[MAX_PATH];
    wcscpy(upper, out);
    CharUpperW(upper);
    size_t len = wcslen(folderUpper);
    // the name must stay inside the folder
    return !wcsncmp(upper, folderUpper, len) && (upper[len] == L'\\' || upper[len] == L'/') ? 1 : 0;
}

// Walks the names of a preload list; `visit` gets each full path.
template <typename Visit> static HRESULT WalkPreloads(const WCHAR *folder, const WCHAR *list, Visit visit)
{
    if (!folder || !list || wcslen(list) >= MAX_PATH)
        return S_FALSE;
    WCHAR folderLong[MAX_PATH], folderUpper[MAX_PATH];
    DWORD n = GetFullPathNameW(folder, MAX_PATH, folderUpper, NULL);
    if (!n || n >= MAX_PATH)
        return S_FALSE; // a folder whose copy was cut
    n = GetLongPathNameW(folderUpper, folderLong, MAX_PATH);
    if (!n || n >= MAX_PATH)
        wcscpy(folderLong, folderUpper);
    ZvRemoveSlashFromPathNameEnd(folderLong);
    wcscpy(folderUpper, folderLong);
    CharUpperW(folderUpper);
    WCHAR names[MAX_PATH];
    wcscpy(names, list);
    HRESULT hr = S_FALSE;
    WCHAR *cursor = names;
    while (WCHAR *name = ZvFioNextToken(&cursor, L';')) {
        while (iswspace(*name))
            ++name;
        if (!*name)
            continue;
        WCHAR path[MAX_PATH];
        int inside = PreloadPath(folderUpper, folderLong, name, path);
        if (inside < 0)
            break;
        if (!inside)
            continue;
        if (visit(path))
            hr = S_OK;
    }
    return hr;
}

HRESULT ZvFioPreloadModules(const WCHAR *folder, const WCHAR *list)
{
    return WalkPreloads(folder, list, [](const WCHAR *path) {
        DWORD a = GetFileAttributesW(path);
        bool loaded = false;
        if (a != INVALID_FILE_ATTRIBUTES && !(a & 0x50)) {
            UINT old = SetErrorMode(0);
            SetErrorMode(old | 0x8001);
            loaded = LoadLibraryExW(path, NULL, LOAD_WITH_ALTERED_SEARCH_PATH) != NULL;
            SetErrorMode(old);
        }
        SetDllDirectoryW(NULL);
        return loaded;
    });
}

void ZvFioReleasePreloadModules(const WCHAR *folder, const WCHAR *list)
{
    WalkPreloads(folder, list, [](const WCHAR *path) {
        HMODULE m = GetModuleHandleW(path);
        if (m)
            FreeLibrary(m);
        return m != NULL;
    });
}

HRESULT ZvFioLoadDllAndCreate(ZVFIO_PLUGININFO *r, void **out, REFIID iid)
{
    if (out)
        *out = NULL;
    if (!r || !out)
        return E_INVALIDARG;
    r->dwRecordFlags &= ~ZVFIO_RF_SURROGATE;
    HRESULT hr = S_OK;
    WCHAR oldDir[MAX_PATH];
    bool dirChanged = false;
    if (!r->hModule) {
        if (r->pFactory) {
            r->pFactory->Release();
            r->pFactory = NULL;
        }
        WCHAR folder[MAX_PATH];
        FolderOf(r->szPath, folder);
        DWORD n = GetCurrentDirectoryW(MAX_PATH, oldDir);
        if (n && n < MAX_PATH && folder[0] && SetCurrentDirectoryW(folder))
            dirChanged = true;
        if (r->PreloadModules && *r->PreloadModules) {
            HRESULT pre = ZvFioPreloadModules(folder, r->PreloadModules);
            if (FAILED(pre)) {
                if (dirChanged)
                    SetCurrentDirectoryW(oldDir);
                return pre;
            }
            if (pre != S_FALSE)
                r->dwRecordFlags |= ZVFIO_RF_PRELOADED;
        }
        UINT old = SetErrorMode(0);
        SetErrorMode(old | 0x8001);
        r->hModule = LoadLibraryW(r->szPath);
        if (!r->hModule)
            r->hModule = LoadLibraryExW(r->szPath, NULL, LOAD_WITH_ALTERED_SEARCH_PATH);
        SetErrorMode(old);
        if (!r->hModule) {
            hr = E_UNEXPECTED;
            ZvTrace(ZV_TRACE_FILEMNG, L"cannot load %s (error %lu)\n", r->szPath, (unsigned long)GetLastError());
        }
        SetDllDirectoryW(NULL);
        if (r->hModule) {
            typedef HRESULT(STDAPICALLTYPE * GetClassObjectProc)(REFCLSID, REFIID, void **);
            GetClassObjectProc proc = (GetClassObjectProc)(void *)GetProcAddress(r->hModule, "DllGetClassObject");
            if (!proc || FAILED(proc(r->clsidPlugin, IID_IClassFactory, (void **)&r->pFactory)) || !r->pFactory) {
                FreeLibrary(r->hModule);
                r->hModule = NULL;
                r->pFactory = NULL;
            }
        }
    }
    if (dirChanged)
        SetCurrentDirectoryW(oldDir);
    if (r->pFactory)
        hr = r->pFactory->CreateInstance(NULL, iid, out);
    return hr;
}

bool ZvFioSurrogateUnreachable(const ZVFIO_PLUGININFO *record)
{
    if (!record)
        return false;
    ZVFIO_PLUGININFO probe = *record; // routing is re-derived on a copy
    if (!ZvFioDeriveRouting(&probe))
        return false;
    ZVFIO_SURROGATESLOT *slot = ZvFioSurrogateTable_FindSlot(record->Surrogate);
    return !slot || !ZvFioSurrogateSlot_Get(slot);
}

HRESULT ZvFioCreateFromRecord(ZVFIO_PLUGININFO *r, void **out, REFIID iid, CZvFileIOManager *manager)
{
    if (ZvFioDeriveRouting(r))
        return ZvFioRoutedCreate(r, out, iid, manager ? static_cast<IZvFileIOMgrForApp *>(manager) : NULL);
    return ZvFioLoadDllAndCreate(r, out, iid);
}

HRESULT ZvFioListDll(ZVFIO_PLUGININFO *r, CZvFileIOManager *manager, ZVFIO_LISTEDCLASS *classes, int maximum,
                     int *count)
{
    *count = 0;
    IZvUnsharedFIOPluginInfo *info = NULL;
    HRESULT hr = ZvFioCreateFromRecord(r, (void **)&info, IID_IZvUnsharedFIOPluginInfo, manager);
    if (SUCCEEDED(hr) && !info)
        hr = E_NOINTERFACE;
    if (FAILED(hr)) {
        if (r->pFactory) {
            r->pFactory->Release();
            r->pFactory = NULL;
        }
        return hr;
    }
    LONG n = 0;
    hr = info->GetClassCount(&n);
    if (SUCCEEDED(hr)) {
        for (LONG i = 0; i < n && *count < maximum; ++i) {
            ZVFIO_PLUGINCLASSINFO ci;
            memset(&ci, 0, sizeof ci);
            if (FAILED(info->GetPluginClassInfo(i, &ci)))
                continue;
            ZVFIO_LISTEDCLASS &c = classes[(*count)++];
            c.clsid = ci.classId;
            memcpy(c.name, ci.name, sizeof c.name);
            c.name[MAX_PATH - 1] = 0;
            c.access = ci.dwAccess;
            c.streamType = ci.dwStreamType;
            c.kept = ci.dwPrivate;
            c.flags = ci.dwFlags;
        }
    }
    info->Release();
    if (r->pFactory) {
        r->pFactory->Release();
        r->pFactory = NULL;
    }
    return hr;
}

// ---------------------------------------------------------------- executor

static unsigned __stdcall ExecutorThread(void *param)
{
    ZVFio_ExecutorState *ex = (ZVFio_ExecutorState *)param;
    CMonitored_CoInitializeEx spy;
    spy.CoInitializeEx(NULL, COINIT_MULTITHREADED);
    // further references keep the apartment alive if a plug-in
    // unbalances CoUninitialize
    for (int i = 0; i < 16; ++i)
        CoInitializeEx(NULL, COINIT_MULTITHREADED);
    for (;;) {
        DWORD index = 0;
        HRESULT hr = CoWaitForMultipleHandles(COWAIT_ALERTABLE, INFINITE, 1, &ex->hRequest, &index);
        if (ex->quit)
            break;
        if (SUCCEEDED(hr) && ex->callback) {
            ex->result = ex->callback(ex->arg);
            ex->callback = NULL;
            SetEvent(ex->hDone);
        }
    }
    for (int i = 0; i < 16; ++i)
        CoUninitialize();
    spy.CoUninitialize();
    return 0;
}

HRESULT CZvFileIOManager::runOnExecutor(ZVFIO_EXECUTORPROC proc, void *arg)
{
    ZVFio_ExecutorState &ex = m_executor;
    if (ex.hThread && GetCurrentThreadId() == ex.threadId)
        return proc(arg);
    EnterCriticalSection(&m_executorLock);
    if (!ex.hThread) {
        ex.hRequest = CreateEventW(NULL, FALSE, FALSE, NULL);
        ex.hDone = CreateEventW(NULL, FALSE, FALSE, NULL);
        if (ex.hRequest && ex.hDone) {
            unsigned id = 0;
            ex.hThread = (HANDLE)_beginthreadex(NULL, 0, ExecutorThread, &ex, 0, &id);
            ex.threadId = id;
        }
        if (!ex.hThread) {
            if (ex.hRequest)
                CloseHandle(ex.hRequest);
            if (ex.hDone)
                CloseHandle(ex.hDone);
            ex.hRequest = ex.hDone = NULL;
            LeaveCriticalSection(&m_executorLock);
            return E_FAIL;
        }
    }
    ex.arg = arg;
    ex.callback = proc;
    SetEvent(ex.hRequest);
    HRESULT hr = WaitForSingleObject(ex.hDone, INFINITE) == WAIT_OBJECT_0 ? ex.result : E_FAIL;
    LeaveCriticalSection(&m_executorLock);
    return hr;
}

// ---------------------------------------------------------------- loading

// Classes that need another plug-in's reader loaded first.
static const GUID kDependent[3] = {
    {0x341D000D, 0x95CA, 0x458A, {0xAC, 0x65, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0x9ADE0F71, 0x2E82, 0x4A7C, {0x8D, 0xB3, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0x34EFD06F, 0xE6D9, 0x4712, {0x8C, 0x22, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
};
static const GUID kDependency = {0xCED44F50, 0x8025, 0x44DB, {0xB2, 0xA5, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}};
// Loaded only when metric 76 is set.
static const GUID kOnRequest = {0xADD461A1, 0x40AA, 0x47D2, {0xB2, 0x08, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}};

HRESULT CZvFileIOManager::loadPlugin(ZVFIO_PLUGININFO *r)
{
    if (!r)
        return E_INVALIDARG;
    int dependent = -1;
    for (int i = 0; i < 3; ++i)
        if (IsEqualGUID(r->clsidPlugin, kDependent[i]))
            dependent = i;
    if (dependent >= 0) {
        tZVLIST *readers = readerList();
        ZVFIO_PLUGININFO *dep = NULL;
        for (int i = 0; readers && i < readers->count && !dep; ++i) {
            ZVFIO_PLUGININFO *o = (ZVFIO_PLUGININFO *)ZvList_GetItem(readers, i);
            if (o && IsEqualGUID(o->clsidPlugin, kDependency))
                dep = o;
        }
        if (!dep)
            return ZVERR_PLUGIN_NOT_INITIALIZED;
        if (!dep->pReaderClass && dep->nReaderState == ZVFIO_STATE_NONE) {
            HRESULT hr = doLoadPlugin(dep);
            if (FAILED(hr))
                return hr;
        }
        if (dep->nReaderState == ZVFIO_STATE_FAILED)
            return ZVERR_PLUGIN_NOT_INITIALIZED;
        if (dependent == 2) {
            IZvReadFileClass *c = NULL;
            HRESULT hr = FindReaderClassFromId(&c, 0x7002);
            if (c)
                c->Release();
            if (FAILED(hr))
                return hr;
            c = NULL;
            hr = FindReaderClassFromId(&c, 0x6000);
            if (c)
                c->Release();
            if (FAILED(hr))
                return hr;
        }
    }
    return doLoadPlugin(r);
}

struct ZVFIO_LOADREQUEST {
    CZvFileIOManager *manager;
    ZVFIO_PLUGININFO *record;
};

HRESULT CZvFileIOManager::doLoadPluginMTAExecutorCallback(void *arg)
{
    ZVFIO_LOADREQUEST *req = (ZVFIO_LOADREQUEST *)arg;
    return req->manager->doLoadPluginCallFromMTAOnly(req->record);
}

HRESULT CZvFileIOManager::doLoadPluginCallFromMTAOnly(ZVFIO_PLUGININFO *r)
{
    HRESULT renderer = loadRenderer(r);
    HRESULT reader = loadReader(r);
    if (FAILED(reader))
        return reader;
    return FAILED(renderer) ? renderer : S_OK;
}

HRESULT CZvFileIOManager::doLoadPlugin(ZVFIO_PLUGININFO *r)
{
    LONG special = 0;
    GetMetric(ZVFIO_METRIC_LOADSPECIAL, &special);
    if (!special && IsEqualGUID(r->clsidPlugin, kOnRequest))
        return S_FALSE;
    // A load that a plug-in starts from its own code arrives on the
    // executor while its requester holds the mutex and waits: it runs at
    // once, covered by the requester's hold.
    if (m_executor.hThread && GetCurrentThreadId() == m_executor.threadId)
        return doLoadPluginCallFromMTAOnly(r);
    bool locked = lockShared();
    HRESULT hr = ZvFioLaunchSurrogate(r);
    r->hrSurrogate = FAILED(hr) ? hr : S_OK;
    if (FAILED(hr)) {
        log(__FILE__, __LINE__, L" The surrogate of plugin '%s' ('%s') could not be started: 0x%08lX", r->szName,
            r->szPath, (unsigned long)hr);
        return hr; // the mutex stays held: other processes don't retry a failing launch
    }
    ZVFIO_LOADREQUEST req = {this, r};
    hr = runOnExecutor(doLoadPluginMTAExecutorCallback, &req);
    if (locked)
        unlockShared();
    return hr;
}

static HRESULT AskStrings(IUnknown *cls, bool reader, ZVFIO_PLUGININFO *r, WCHAR **ext)
{
    ZVFIO_FILECLASS_INFO_TEXT readerKinds[3] = {ZVFIO_INFOTEXT_READEXTENSIONS, ZVFIO_INFOTEXT_PLUGINNAME,
                                               ZVFIO_INFOTEXT_EXTENSIONS};
    ZVFIO_FILECLASS_INFO_TEXT rendererKinds[2] = {ZVFIO_INFOTEXT_EXTENSIONS, ZVFIO_INFOTEXT_PLUGINNAME};
    BSTR texts[3] = {};
    HRESULT hr;
    if (reader)
        hr = ((IZvReadFileClass *)cls)->GetInfoText(readerKinds, 3, texts);
    else
        hr = ((IZvRenderFileClass *)cls)->GetInfoText(rendererKinds, 2, texts);
    if (SUCCEEDED(hr)) {
        WCHAR *norm = ZvFioNormaliseExtList(texts[0]);
        if (norm) {
            ZvFioStrFree(*ext);
            *ext = norm;
        }
        if (texts[1])
            ZvFioStrSet(&r->DialogName, texts[1]);
    }
    for (BSTR &t : texts)
        SysFreeString(t);
    return hr;
}

// One class of a record; `renderer` picks the fields and interface.
static HRESULT LoadClass(CZvFileIOManager *mgr, ZVFIO_PLUGININFO *r, bool renderer)
{
    LONG &state = renderer ? r->nRendererState : r->nReaderState;
    IUnknown *&slot = renderer ? r->pRendererClass : r->pReaderClass;
    GUID &clsid = renderer ? r->clsidRenderer : r->clsidReader;
    WCHAR *&ext = renderer ? r->ExtRenderer : r->ExtReader;
    LONG index = renderer ? r->nRendererIndex : r->nReaderIndex;
    REFIID iid = renderer ? IID_IZvRenderFileClass : IID_IZvReadFileClass;
    if (state != ZVFIO_STATE_NONE)
        return S_OK;
    IUnknown *cls = NULL;
    HRESULT hr = ZvFioCreateFromRecord(r, (void **)&cls, iid, mgr);
    if (FAILED(hr)) {
        state = ZVFIO_STATE_FAILED;
        return hr;
    }
    if (!cls)
        return hr;
    IZvFileIOManager *asManager = static_cast<IZvFileIOManager *>(mgr);
    hr = renderer ? ((IZvRenderFileClass *)cls)->SetManager(asManager)
                  : ((IZvReadFileClass *)cls)->SetManager(asManager);
    if (FAILED(hr)) {
        state = ZVFIO_STATE_FAILED;
        cls->Release();
        return hr;
    }
    IUnknown *keep = NULL;
    cls->QueryInterface(IID_IUnknown, (void **)&keep);
    GUID id = {};
    HRESULT got = renderer ? ((IZvRenderFileClass *)cls)->GetClassGuid(&id)
                           : ((IZvReadFileClass *)cls)->GetClassGuid(&id);
    if (SUCCEEDED(got)) {
        if (!IsEqualGUID(id, clsid))
            r->dwRecordFlags |= ZVFIO_RF_DIRTY;
        clsid = id;
    }
    if (!ext || !r->DialogName) {
        AskStrings(cls, !renderer, r, &ext);
        r->LangID = ZvFioKernelLangID();
        r->dwRecordFlags |= ZVFIO_RF_DIRTY;
    }
    if (renderer)
        ((IZvRenderFileClass *)cls)->SetClassId((DWORD)index);
    else
        ((IZvReadFileClass *)cls)->SetClassId((DWORD)index);
    state = ZVFIO_STATE_LOADED;
    if (slot)
        slot->Release();
    slot = keep;
    cls->Release();
    return S_OK;
}

struct ZVFIO_CLASSREQUEST {
    CZvFileIOManager *manager;
    ZVFIO_PLUGININFO *record;
    BOOL renderer;
};

static HRESULT LoadClassCallback(void *arg)
{
    ZVFIO_CLASSREQUEST *req = (ZVFIO_CLASSREQUEST *)arg;
    return req->renderer ? req->manager->loadRenderer(req->record) : req->manager->loadReader(req->record);
}

HRESULT CZvFileIOManager::loadClassOnly(ZVFIO_PLUGININFO *r, BOOL renderer)
{
    ZVFIO_CLASSREQUEST req = {this, r, renderer};
    if (m_executor.hThread && GetCurrentThreadId() == m_executor.threadId)
        return LoadClassCallback(&req);
    bool locked = lockShared();
    HRESULT hr = runOnExecutor(LoadClassCallback, &req);
    if (locked)
        unlockShared();
    return hr;
}

HRESULT CZvFileIOManager::loadReader(ZVFIO_PLUGININFO *r)
{
    if (!(r->Access & ZVFIO_ACCESS_READER)) {
        if (r->nReaderState == ZVFIO_STATE_NONE)
            r->nReaderState = ZVFIO_STATE_FAILED;
        return S_OK;
    }
    return LoadClass(this, r, false);
}

HRESULT CZvFileIOManager::loadRenderer(ZVFIO_PLUGININFO *r)
{
    if (!(r->Access & ZVFIO_ACCESS_RENDERER)) {
        if (r->nRendererState == ZVFIO_STATE_NONE)
            r->nRendererState = ZVFIO_STATE_FAILED;
        return S_OK;
    }
    return LoadClass(this, r, true);
}

HRESULT CZvFileIOManager::getReader(ZVFIO_PLUGININFO *r, IZvReadFileClass **out)
{
    if (!out)
        return E_POINTER;
    *out = NULL;
    HRESULT hr = E_NOINTERFACE;
    if (!r)
        return hr;
    if (!r->pReaderClass && r->nReaderState == ZVFIO_STATE_NONE)
        hr = loadPlugin(r);
    if (r->pReaderClass)
        return r->pReaderClass->QueryInterface(IID_IZvReadFileClass, (void **)out);
    return SUCCEEDED(hr) ? E_NOINTERFACE : hr;
}

HRESULT CZvFileIOManager::getRenderer(ZVFIO_PLUGININFO *r, IZvRenderFileClass **out)
{
    if (!out)
        return E_POINTER;
    *out = NULL;
    HRESULT hr = E_NOINTERFACE;
    if (!r)
        return hr;
    if (!r->pRendererClass && r->nRendererState == ZVFIO_STATE_NONE)
        hr = loadPlugin(r);
    if (r->pRendererClass)
        return r->pRendererClass->QueryInterface(IID_IZvRenderFileClass, (void **)out);
    return SUCCEEDED(hr) ? E_NOINTERFACE : hr;
}

HRESULT CZvFileIOManager::PluginListLoadOnInit()
{
    tZVLIST *readers = readerList(), *renderers = rendererList(), *plugins = m_pPluginList;
    if (!readers || !renderers || !plugins)
        return E_UNEXPECTED;
    bool logIt = logLoading() && m_pLogger;
    for (int pass = 0; pass < 3; ++pass) {
        tZVLIST *list = pass == 0 ? readers : pass == 1 ? renderers : plugins;
        for (int i = 0; i < list->count; ++i) {
            ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
            if (!r || !(r->dwLoadFlags & ZVFIO_LF_LOADONINIT))
                continue;
            loadPlugin(r);
            r->dwLoadFlags &= ~ZVFIO_LF_LOADONINIT;
            if (pass == 2 || !logIt)
                continue;
            bool both = false;
            if (pass == 0) {
                IZvReadFileClass *c = NULL;
                if (SUCCEEDED(getReader(r, &c)) && c) {
                    IZvRenderFileClass *other = NULL;
                    both = SUCCEEDED(c->GetRenderClass(&other)) && other;
                    if (other)
                        other->Release();
                    c->Release();
                }
            } else {
                IZvRenderFileClass *c = NULL;
                if (SUCCEEDED(getRenderer(r, &c)) && c) {
                    IZvReadFileClass *other = NULL;
                    both = SUCCEEDED(c->GetReadClass(&other)) && other;
                    if (other)
                        other->Release();
                    c->Release();
                }
            }
            log(__FILE__, __LINE__, L" Loading %s plugin '%s' from path '%s' ",
                both ? L"reader|renderer" : pass == 0 ? L"reader" : L"renderer", r->szName, r->szPath);
        }
    }
    return S_OK;
}
