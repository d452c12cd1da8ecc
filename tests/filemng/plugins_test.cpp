// Discovery, cache and loading with the test plug-ins. Whole starts run in
// a copy of this program in a temporary folder, with the data files beside
// it, so that each start is a new process; the plug-ins count their loads
// in shared memory.
#include <gtest/gtest.h>
#include "fiotest.h"
#include "filemng/filemng.h"
#include "filemng/fiodiscovery.h"
#include "filemng/zvprofile.h"
#include "zvpaths.h"
#include "../../plugins/testkit/testkit.h"
#include <stdio.h>
#include <string>
#include <thread>
#include <vector>

using namespace fiotest;

namespace {

const wchar_t *const kDlls[] = {L"tk_dual.dll",    L"tk_reader.dll", L"tk_badlist.dll", L"tk_noentry.dll",
                                L"tk_notadll.dll", L"tk_preload.dll", L"tk_preloaded.dll"};

// A program folder of its own: a copy of this program, the test plug-ins
// and their configuration file.
struct Host {
    zvtest::TempDir dir;
    std::wstring exe;
    Host()
    {
        exe = dir.file(L"fiohost.exe");
        CopyFileW(zvtest::ExePath().c_str(), exe.c_str(), FALSE);
        std::wstring bin = zvtest::TestkitDir();
        for (const wchar_t *d : kDlls)
            CopyFileW((bin + d).c_str(), dir.file(d).c_str(), FALSE);
        CopyFileW((bin + L"testkit.Fio2007-Config").c_str(), dir.file(L"testkit.Fio2007-Config").c_str(), FALSE);
    }
    std::wstring cache() const
    {
        wchar_t name[MAX_PATH];
        swprintf(name, MAX_PATH, L"fiohost FFCache_x86_%d.ini", (int)GetSystemDefaultLCID());
        return dir.file(name);
    }
    std::wstring result() const { return dir.file(L"result.ini"); }
    // Runs one start of the manager in a new process.
    DWORD start(DWORD flags = 0)
    {
        DeleteFileW(result().c_str());
        return zvtest::RunProcess(L"\"" + exe + L"\" --child fio_start " + std::to_wstring(flags) + L" \"" +
                                      result() + L"\"",
                                  dir.path().c_str());
    }
    // The child's report on the record of a class (by name).
    std::wstring rec(const wchar_t *name, const wchar_t *key) const
    {
        return Ini(result(), name, key);
    }
    int recInt(const wchar_t *name, const wchar_t *key) const
    {
        return GetPrivateProfileIntW(name, key, -999, result().c_str());
    }
};

} // namespace

// One start of the manager: creation with the given flags (data beside the
// program), then a report of every record and whether its DLL is loaded.
ZVTEST_CHILD(fio_start)
{
    if (argc < 2)
        return 2;
    DWORD flags = (DWORD)strtoul(argv[0], nullptr, 10) | ZVFIO_CREATE_BESIDEPROGRAM;
    wchar_t result[MAX_PATH];
    MultiByteToWideChar(CP_ACP, 0, argv[1], -1, result, MAX_PATH);
    auto put = [&](const std::wstring &section, const wchar_t *key, const std::wstring &value) {
        WritePrivateProfileStringW(section.c_str(), key, value.c_str(), result);
    };
    TestkitCounters keep; // the scope comes from the parent
    IZvFileIOMgrForApp *mgr = nullptr;
    long reserved = 0;
    HRESULT hr = ZVFileIO_CreateInstance(&mgr, nullptr, flags, nullptr, reserved);
    wchar_t text[64];
    swprintf(text, 64, L"0x%08lX", (unsigned long)hr);
    put(L"summary", L"hr", text);
    if (FAILED(hr) || !mgr)
        return 3;
    tZVLIST *list = static_cast<CZvFileIOManager *>(mgr)->pluginList();
    int n = list ? list->count : 0;
    put(L"summary", L"count", std::to_wstring(n));
    int loaded = 0;
    for (int i = 0; i < n; ++i) {
        ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
        // classes by name; a DLL without one by its file name
        std::wstring section = r->szName[0] ? r->szName : ZvGetFileNamePtrW(r->szPath);
        bool inProcess = GetModuleHandleW(r->szPath) != nullptr;
        loaded += inProcess;
        put(section, L"flags", std::to_wstring(r->dwRecordFlags));
        put(section, L"reader", std::to_wstring(r->nReaderState));
        put(section, L"renderer", std::to_wstring(r->nRendererState));
        put(section, L"loaded", inProcess ? L"1" : L"0");
        put(section, L"dialog", r->DialogName ? r->DialogName : L"");
        put(section, L"ext", r->ExtReader ? r->ExtReader : r->ExtRenderer ? r->ExtRenderer : L"");
        put(section, L"merit", std::to_wstring(r->MeritValue));
    }
    put(L"summary", L"loaded", std::to_wstring(loaded));
    LONG readers = 0;
    mgr->GetReaderCount(&readers);
    put(L"summary", L"readers", std::to_wstring(readers));
    WritePrivateProfileStringW(nullptr, nullptr, nullptr, result);
    // loaded classes hold the manager: clean up before the last release
    mgr->CleanUp();
    mgr->Release();
    return 0;
}

TEST(FioPlugins, ColdStartListsAndWarmStartLoadsNothing)
{
    Host host;
    TestkitCounters counters(nullptr);
    ASSERT_TRUE(counters.ok());
    counters.reset();

    // cold: every DLL is listed, the cache is written
    ASSERT_EQ(0u, host.start());
    EXPECT_EQ(L"0x00000000", host.rec(L"summary", L"hr"));
    EXPECT_GE(counters.get(TK_DLL_DUAL, TK_LISTING), 1);
    EXPECT_GE(counters.get(TK_DLL_READER, TK_LISTING), 1);
    EXPECT_GE(counters.get(TK_DLL_BADLIST, TK_LISTING), 1);
    EXPECT_GE(counters.get(TK_DLL_PRELOAD, TK_LISTING), 1);
    EXPECT_GE(counters.get(TK_DLL_NOENTRY, TK_ATTACH), 1);
    std::wstring cache = host.cache();
    ASSERT_NE(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(cache.c_str()));
    int count = host.recInt(L"summary", L"count");
    EXPECT_EQ(7, count); // dual twice, reader, badlist, noentry, notadll, preload

    // every listed class was loaded at start and its strings were asked
    EXPECT_EQ(1, host.recInt(L"Testkit Dual Reader", L"reader"));
    EXPECT_EQ(1, host.recInt(L"Testkit Dual Renderer", L"renderer"));
    EXPECT_EQ(L"*.tkd", host.rec(L"Testkit Dual Reader", L"ext"));
    EXPECT_EQ(5, host.recInt(L"Testkit Reader", L"merit"));
    EXPECT_GE(counters.get(TK_DLL_PRELOAD, TK_PRELOAD_SEEN), 1);

    // bad plug-ins end unusable; the manager works on
    for (const wchar_t *bad : {L"tk_badlist.dll", L"tk_noentry.dll", L"tk_notadll.dll"}) {
        SCOPED_TRACE(bad);
        int flags = host.recInt(bad, L"flags");
        ASSERT_NE(-999, flags);
        EXPECT_NE(0, flags & ZVFIO_RF_UNUSABLE);
        EXPECT_EQ(0, host.recInt(bad, L"loaded")); // nothing usable stays loaded
    }
    EXPECT_EQ(3, host.recInt(L"summary", L"readers")); // dual, reader, preload

    // what the cache keeps beyond the keys the writer's own test checks
    std::wstring rd = GuidText(CLSID_TkDualReader), rn = GuidText(CLSID_TkDualRenderer);
    EXPECT_EQ(L"Testkit Dual Renderer", Ini(cache, L"tk_dual", rn));
    EXPECT_EQ(L"tk_preloaded.dll", Ini(cache, GuidText(CLSID_TkPreloadReader), L"PreloadModules"));
    EXPECT_EQ(L"5", Ini(cache, L"tk_reader", L"MeritValue"));

    // warm: a new process fills every record from the cache and loads nothing
    counters.reset();
    ASSERT_EQ(0u, host.start());
    EXPECT_EQ(0, counters.loads());
    EXPECT_EQ(0, host.recInt(L"summary", L"loaded"));
    EXPECT_EQ(count, host.recInt(L"summary", L"count"));
    EXPECT_EQ(0, host.recInt(L"Testkit Dual Reader", L"reader")); // not loaded yet
    EXPECT_EQ(L"*.tkd", host.rec(L"Testkit Dual Reader", L"ext"));
    EXPECT_EQ(L"Testkit Dual Renderer", host.rec(L"Testkit Dual Renderer", L"dialog").substr(0, 21));
    EXPECT_NE(0, host.recInt(L"tk_badlist.dll", L"flags") & ZVFIO_RF_UNUSABLE);
    EXPECT_EQ(3, host.recInt(L"summary", L"readers"));

    // a touched DLL is listed again, and only that one
    counters.reset();
    SetMinute(host.dir.file(L"tk_reader.dll"), 11);
    ASSERT_EQ(0u, host.start());
    EXPECT_EQ(1, counters.get(TK_DLL_READER, TK_LISTING));
    EXPECT_EQ(0, counters.get(TK_DLL_DUAL, TK_ATTACH));
    EXPECT_EQ(0, counters.get(TK_DLL_PRELOAD, TK_ATTACH));
    EXPECT_EQ(0, counters.get(TK_DLL_BADLIST, TK_ATTACH));
    counters.reset();
    ASSERT_EQ(0u, host.start());
    EXPECT_EQ(0, counters.loads());

    // another language in one class: that class alone is loaded to refresh
    // its strings, nothing is listed
    WritePrivateProfileStringW(rn.c_str(), L"LangID", L"1036", cache.c_str());
    WritePrivateProfileStringW(nullptr, nullptr, nullptr, cache.c_str());
    counters.reset();
    ASSERT_EQ(0u, host.start());
    EXPECT_EQ(0, counters.get(TK_DLL_DUAL, TK_LISTING));
    EXPECT_EQ(1, counters.get(TK_DLL_DUAL, TK_CLASSOBJECT));
    EXPECT_EQ(1, host.recInt(L"Testkit Dual Renderer", L"renderer"));
    EXPECT_EQ(0, host.recInt(L"Testkit Dual Reader", L"reader"));
    EXPECT_EQ(0, counters.get(TK_DLL_READER, TK_ATTACH));
    EXPECT_NE(L"1036", Ini(cache, rn, L"LangID")); // rewritten
    counters.reset();
    ASSERT_EQ(0u, host.start());
    EXPECT_EQ(0, counters.loads());

    // flag 0x80: everything listed, nothing written
    std::vector<unsigned char> before, after;
    ASSERT_TRUE(zvtest::ReadFileBytes(cache, before));
    counters.reset();
    ASSERT_EQ(0u, host.start(ZVFIO_CREATE_NOCACHE));
    EXPECT_GE(counters.get(TK_DLL_DUAL, TK_LISTING), 1);
    ASSERT_TRUE(zvtest::ReadFileBytes(cache, after));
    EXPECT_EQ(before, after);
}

TEST(FioPlugins, TruncatedCacheIsRebuilt)
{
    Host host;
    TestkitCounters counters(nullptr);
    ASSERT_EQ(0u, host.start());
    std::wstring cache = host.cache();
    std::vector<unsigned char> bytes;
    ASSERT_TRUE(zvtest::ReadFileBytes(cache, bytes));
    std::string text(bytes.begin(), bytes.end());
    // a crash between two writes: one class section of a DLL with two
    // classes lost its last keys; the whole DLL is no longer trusted
    std::wstring id = GuidText(CLSID_TkDualRenderer);
    size_t at = text.find("[tk_dual." + std::string(id.begin(), id.end()) + "]");
    ASSERT_NE(std::string::npos, at);
    size_t cut = text.find("Flags", at);
    ASSERT_NE(std::string::npos, cut);
    std::string damaged = text.substr(0, cut);
    ASSERT_TRUE(zvtest::WriteFileBytes(cache, damaged.data(), damaged.size()));

    counters.reset();
    ASSERT_EQ(0u, host.start());
    EXPECT_EQ(L"0x00000000", host.rec(L"summary", L"hr"));
    EXPECT_EQ(1, counters.get(TK_DLL_DUAL, TK_LISTING)); // not trusted: listed again
    EXPECT_EQ(1, host.recInt(L"Testkit Dual Reader", L"reader")) << "the intact class was not kept";
    EXPECT_EQ(7, host.recInt(L"summary", L"count"));
    EXPECT_EQ(L"32", Ini(cache, L"tk_dual." + id, L"Access"));
    counters.reset();
    ASSERT_EQ(0u, host.start());
    EXPECT_EQ(0, counters.loads()); // whole again

    // nonsense for a cache: rebuilt, never trusted
    const char junk[] = "[tk_dual]\r\nPath=\x01\x02\r\nModTime=12\r\n[[[\r\n=\r\n";
    ASSERT_TRUE(zvtest::WriteFileBytes(cache, junk, sizeof junk - 1));
    counters.reset();
    ASSERT_EQ(0u, host.start());
    EXPECT_GE(counters.get(TK_DLL_DUAL, TK_LISTING), 1);
    EXPECT_EQ(7, host.recInt(L"summary", L"count"));
    // and an empty one
    ASSERT_TRUE(zvtest::WriteFileBytes(cache, "", 0));
    counters.reset();
    ASSERT_EQ(0u, host.start());
    EXPECT_GE(counters.get(TK_DLL_READER, TK_LISTING), 1);
}

namespace {

// Plug-ins used in this process: a copy of each test plug-in per test, so
// that each test sees its own first load.
struct InProcess : BareManager {
    tZVLIST *list = nullptr;
    DWORD childCode = 999;
    explicit InProcess(std::initializer_list<const wchar_t *> dlls)
    {
        std::vector<std::wstring> paths;
        for (const wchar_t *d : dlls) {
            paths.push_back(dir.file(d));
            CopyFileW((zvtest::TestkitDir() + d).c_str(), paths.back().c_str(), FALSE);
        }
        CopyFileW((zvtest::TestkitDir() + L"tk_preloaded.dll").c_str(), dir.file(L"tk_preloaded.dll").c_str(), FALSE);
        // a first start in another process lists them into the cache
        std::wstring args = L"fio_list \"" + dir.file(L"host.exe") + L"\"";
        for (auto &p : paths)
            args += L" \"" + p + L"\"";
        childCode = zvtest::RunChildProcess(args);
        // this start is warm: nothing is loaded yet
        std::vector<const wchar_t *> raw;
        for (auto &p : paths)
            raw.push_back(p.c_str());
        impl->GrovelPlugins1(&list, raw.data(), (LONG)raw.size(), 0, nullptr);
        impl->SetPluginList(list, 0, 0, nullptr);
    }
    ZVFIO_PLUGININFO *find(const GUID &cls) { return host.record(cls); }
};

// A first start over the given DLLs with the data files beside the given
// host: list, load at start, write the cache.
ZVTEST_CHILD(fio_list)
{
    if (argc < 1)
        return 2;
    std::vector<std::wstring> args;
    for (int i = 0; i < argc; ++i) {
        wchar_t w[MAX_PATH];
        MultiByteToWideChar(CP_ACP, 0, argv[i], -1, w, MAX_PATH);
        args.push_back(w);
    }
    ZvFioResolveDataPaths(ZVFIO_CREATE_BESIDEPROGRAM, args[0].c_str());
    TestkitCounters keep;
    IZvFileIOMgrForApp *mgr = nullptr;
    long reserved = 0;
    if (FAILED(ZVFileIO_CreateInstance(&mgr, nullptr, ZVFIO_CREATE_MANAGERONLY | ZVFIO_CREATE_BESIDEPROGRAM, nullptr,
                                       reserved)))
        return 3;
    CZvFileIOManager *impl = static_cast<CZvFileIOManager *>(mgr);
    std::vector<const wchar_t *> raw;
    for (size_t i = 1; i < args.size(); ++i)
        raw.push_back(args[i].c_str());
    tZVLIST *list = nullptr;
    HRESULT hr = impl->GrovelPlugins1(&list, raw.data(), (LONG)raw.size(), 0, nullptr);
    if (SUCCEEDED(hr))
        hr = impl->SetPluginList(list, 0, 0, nullptr);
    if (SUCCEEDED(hr))
        hr = impl->PluginListLoadOnInit();
    if (SUCCEEDED(hr))
        hr = impl->UpdatePluginCache(0);
    mgr->CleanUp();
    mgr->Release();
    return SUCCEEDED(hr) ? 0 : 4;
}

// Which thread loads a module: the loader tells through its notification.
struct NameString {
    USHORT Length;
    USHORT MaximumLength;
    PWSTR Buffer;
};
typedef struct {
    ULONG Flags;
    const NameString *FullDllName;
    const NameString *BaseDllName;
    PVOID DllBase;
    ULONG SizeOfImage;
} LoadedData;
typedef VOID(CALLBACK *NotifyFn)(ULONG reason, const LoadedData *data, PVOID context);
typedef LONG(NTAPI *RegisterFn)(ULONG flags, NotifyFn fn, PVOID context, PVOID *cookie);
typedef LONG(NTAPI *UnregisterFn)(PVOID cookie);
volatile DWORD g_loaderThread;
VOID CALLBACK OnDllLoad(ULONG reason, const LoadedData *data, PVOID)
{
    if (reason == 1 && data && data->BaseDllName &&
        !_wcsnicmp(data->BaseDllName->Buffer, L"tk_reader.dll", data->BaseDllName->Length / 2))
        g_loaderThread = GetCurrentThreadId();
}

} // namespace

TEST(FioPlugins, LoadingRunsOnTheExecutorOnce)
{
    TestkitCounters counters(nullptr);
    InProcess env({L"tk_reader.dll", L"tk_dual.dll"});
    ASSERT_NE(nullptr, env.impl);
    ASSERT_EQ(0u, env.childCode);
    ZVFIO_PLUGININFO *r = env.find(CLSID_TkReader);
    ASSERT_NE(nullptr, r);
    EXPECT_EQ(nullptr, GetModuleHandleW(r->szPath)); // warm: not loaded
    counters.reset();

    PVOID cookie = nullptr;
    HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    RegisterFn reg = (RegisterFn)(void *)GetProcAddress(ntdll, "LdrRegisterDllNotification");
    UnregisterFn unreg = (UnregisterFn)(void *)GetProcAddress(ntdll, "LdrUnregisterDllNotification");
    if (reg)
        reg(0, OnDllLoad, nullptr, &cookie);

    // two threads of single-threaded apartments ask at once
    struct Ask {
        HRESULT hr = E_FAIL;
        IZvReadFileClass *cls = nullptr;
    } a, b;
    HANDLE go = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    auto ask = [&](Ask *into) {
        CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        WaitForSingleObject(go, 10000);
        into->hr = env.impl->getReader(r, &into->cls);
        CoUninitialize();
    };
    std::thread ta(ask, &a), tb(ask, &b);
    SetEvent(go);
    ta.join();
    tb.join();
    CloseHandle(go);
    if (cookie && unreg)
        unreg(cookie);
    EXPECT_EQ(S_OK, a.hr);
    EXPECT_EQ(S_OK, b.hr);
    ASSERT_NE(nullptr, a.cls);
    ASSERT_NE(nullptr, b.cls);
    EXPECT_EQ(a.cls, b.cls);
    EXPECT_EQ(1, counters.get(TK_DLL_READER, TK_ATTACH)); // the DLL loaded once
    EXPECT_EQ(1, counters.get(TK_DLL_READER, TK_CLASSOBJECT));
    if (cookie) {
        EXPECT_EQ(env.impl->executorThreadId(), g_loaderThread);
    }
    EXPECT_EQ(ZVFIO_STATE_LOADED, r->nReaderState);
    DWORD index = 99;
    EXPECT_EQ(S_OK, a.cls->GetClassId(&index));
    EXPECT_EQ((DWORD)r->nReaderIndex, index);
    IZvFileIOManager *back = nullptr;
    EXPECT_EQ(S_OK, a.cls->GetManager(&back));
    EXPECT_EQ(static_cast<IZvFileIOManager *>(env.impl), back);
    if (back)
        back->Release();
    a.cls->Release();
    b.cls->Release();

    // lookups reach loaded and unloaded classes alike
    IZvReadFileClass *byId = nullptr;
    EXPECT_EQ(S_OK, env.mgr->FindReaderClass(&byId, CLSID_TkDualReader));
    ASSERT_NE(nullptr, byId);
    byId->Release();
    LONG pos = -1;
    IZvReadFileClass *byExt = nullptr;
    EXPECT_EQ(S_OK, env.mgr->FindNextReaderClassByExt(&byExt, L".TKR", &pos));
    ASSERT_NE(nullptr, byExt);
    EXPECT_EQ(r->nReaderIndex, pos);
    byExt->Release();
    IZvRenderFileClass *byName = nullptr;
    EXPECT_EQ(S_OK, env.mgr->FindRenderClassByName(&byName, L"dual render"));
    ASSERT_NE(nullptr, byName);
    byName->Release();
    EXPECT_EQ(1, counters.get(TK_DLL_DUAL, TK_ATTACH));
}

TEST(FioPlugins, PreloadsAndBadPlugins)
{
    TestkitCounters counters(nullptr);
    InProcess env({L"tk_preload.dll", L"tk_badlist.dll", L"tk_noentry.dll"});
    ASSERT_NE(nullptr, env.impl);
    ASSERT_EQ(0u, env.childCode);
    ZVFIO_PLUGININFO *p = env.find(CLSID_TkPreloadReader);
    ASSERT_NE(nullptr, p);
    // the modules a record names are loaded from its folder first
    ZvFioStrSet(&p->PreloadModules, L"tk_preloaded.dll;..\\tk_preloaded.dll");
    counters.reset();
    IZvReadFileClass *cls = nullptr;
    ASSERT_EQ(S_OK, env.impl->getReader(p, &cls));
    ASSERT_NE(nullptr, cls);
    cls->Release();
    EXPECT_EQ(1, counters.get(TK_DLL_PRELOAD, TK_PRELOAD_SEEN)); // loaded before the plug-in
    EXPECT_NE(0u, p->dwRecordFlags & ZVFIO_RF_PRELOADED);
    EXPECT_NE(nullptr, GetModuleHandleW(env.dir.file(L"tk_preloaded.dll").c_str()));

    // the unusable DLLs have records no list shows
    LONG all = 0, readers = 0;
    env.mgr->GetPluginCount(&all);
    env.mgr->GetReaderCount(&readers);
    EXPECT_EQ(3, all);
    EXPECT_EQ(1, readers);
    for (int i = 0; i < env.list->count; ++i) {
        ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(env.list, i);
        if (r != p) {
            EXPECT_NE(0u, r->dwRecordFlags & ZVFIO_RF_UNUSABLE) << i;
        }
    }
    // and the manager works on
    IZvReadFileClass *again = nullptr;
    EXPECT_EQ(S_OK, env.mgr->GetReaderClass(&again, 0));
    ASSERT_NE(nullptr, again);
    again->Release();
}

TEST(FioPlugins, SurrogateSideListAndLoad)
{
    TestkitCounters counters(nullptr);
    fiotest::DataFolder data;
    std::wstring reader = data.dir.file(L"tk_reader.dll"), dual = data.dir.file(L"tk_dual.dll");
    CopyFileW((zvtest::TestkitDir() + L"tk_reader.dll").c_str(), reader.c_str(), FALSE);
    CopyFileW((zvtest::TestkitDir() + L"tk_dual.dll").c_str(), dual.c_str(), FALSE);
    IZvFileIOMgrForApp *mgr = nullptr;
    ASSERT_EQ(S_OK, ZVFileIO_CreateSurrogateManagerInstance(&mgr, ZVFIO_CREATE_BESIDEPROGRAM, nullptr,
                                                            data.dir.file(L"host.exe").c_str()));
    tZVLIST *paths = nullptr;
    ASSERT_EQ(S_OK, ZvList_CreateExZ(&paths, 0, 0, 0, 0));
    const wchar_t *items[] = {reader.c_str(), dual.c_str(), L""};
    ZvList_InsertList(paths, -1, items, 3);
    EXPECT_EQ(S_OK, ZvFio_ProcessPluginList(mgr, paths));
    ZvList_Destroy(paths);
    LONG n = 0;
    mgr->GetPluginCount(&n);
    EXPECT_EQ(3, n);

    IZvRenderFileClass *w = nullptr;
    EXPECT_EQ(S_OK, ZvFio_LoadPluginAndGetInterface(mgr, CLSID_TkDualRenderer, IID_IZvRenderFileClass, (void **)&w));
    ASSERT_NE(nullptr, w);
    w->Release();
    void *none = (void *)1;
    EXPECT_EQ(E_NOINTERFACE, ZvFio_LoadPluginAndGetInterface(mgr, CLSID_TkReader, IID_IStream, &none));
    EXPECT_EQ(nullptr, none);
    GUID unknown = {0x1234, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};
    EXPECT_EQ(E_FAIL, ZvFio_LoadPluginAndGetInterface(mgr, unknown, IID_IZvReadFileClass, &none));
    EXPECT_EQ(E_POINTER, ZvFio_LoadPluginAndGetInterface(mgr, CLSID_TkReader, IID_IZvReadFileClass, nullptr));
    mgr->CleanUp();
    mgr->Release();
}
