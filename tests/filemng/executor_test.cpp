// The executor thread and preloads, without plug-ins.
#include <gtest/gtest.h>
#include "fiotest.h"
#include "filemng/filemng.h"
#include "filemng/fiodiscovery.h"
#include "filemng/fioload.h"
#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

typedef fiotest::BareManager Bare;

struct Probe {
    CZvFileIOManager *mgr;
    DWORD thread;
    APTTYPE apt;
    HRESULT nested;
    DWORD nestedThread;
};

HRESULT RecordThread(void *arg)
{
    Probe *p = (Probe *)arg;
    p->thread = GetCurrentThreadId();
    APTTYPEQUALIFIER q;
    if (FAILED(CoGetApartmentType(&p->apt, &q)))
        p->apt = (APTTYPE)-1;
    return 0x12345;
}

HRESULT Inner(void *arg)
{
    ((Probe *)arg)->nestedThread = GetCurrentThreadId();
    return S_FALSE;
}

// A request made from the executor itself runs at once.
HRESULT Nested(void *arg)
{
    Probe *p = (Probe *)arg;
    p->thread = GetCurrentThreadId();
    p->nested = p->mgr->runOnExecutor(Inner, p);
    return S_OK;
}

} // namespace

TEST(FioExecutor, RunsInTheMultithreadedApartment)
{
    Bare b;
    ASSERT_NE(nullptr, b.impl);
    EXPECT_EQ(0u, b.impl->executorThreadId()); // started on first use
    Probe p = {b.impl, 0, APTTYPE_STA, 0, 0};
    EXPECT_EQ((HRESULT)0x12345, b.impl->runOnExecutor(RecordThread, &p));
    EXPECT_NE(0u, p.thread);
    EXPECT_NE(GetCurrentThreadId(), p.thread);
    EXPECT_EQ(b.impl->executorThreadId(), p.thread);
    EXPECT_EQ(APTTYPE_MTA, p.apt);

    // the caller's apartment doesn't matter
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    Probe q = {b.impl, 0, APTTYPE_STA, 0, 0};
    EXPECT_EQ((HRESULT)0x12345, b.impl->runOnExecutor(RecordThread, &q));
    EXPECT_EQ(p.thread, q.thread);
    CoUninitialize();

    Probe n = {b.impl, 0, APTTYPE_STA, 0, 0};
    EXPECT_EQ(S_OK, b.impl->runOnExecutor(Nested, &n));
    EXPECT_EQ(S_FALSE, n.nested);
    EXPECT_EQ(p.thread, n.nestedThread);
}

TEST(FioExecutor, ManyThreadsOneExecutor)
{
    Bare b;
    ASSERT_NE(nullptr, b.impl);
    struct Shared {
        volatile LONG running, overlap, done;
        DWORD threads[8];
    } s = {0, 0, 0, {}};
    auto body = [](void *arg) -> HRESULT {
        Shared *s = (Shared *)arg;
        if (InterlockedIncrement(&s->running) > 1)
            InterlockedExchange(&s->overlap, 1);
        Sleep(2);
        s->threads[InterlockedIncrement(&s->done) - 1] = GetCurrentThreadId();
        InterlockedDecrement(&s->running);
        return S_OK;
    };
    std::atomic<int> failed{0};
    std::vector<std::thread> t;
    for (int i = 0; i < 8; ++i)
        t.emplace_back([&] { failed += b.impl->runOnExecutor(body, &s) != S_OK; });
    for (auto &h : t)
        h.join();
    EXPECT_EQ(0, failed.load());
    EXPECT_EQ(8, s.done);
    EXPECT_EQ(0, s.overlap); // one request at a time
    for (DWORD id : s.threads)
        EXPECT_EQ(b.impl->executorThreadId(), id);
}

TEST(FioExecutor, PreloadsStayInsideTheFolder)
{
    zvtest::TempDir dir;
    std::wstring folder = dir.path() + L"\\plug";
    CreateDirectoryW(folder.c_str(), nullptr);
    // module images to preload: copies of this program
    std::wstring inside = folder + L"\\pre_in.dll";
    std::wstring outside = dir.file(L"pre_out.dll");
    ASSERT_TRUE(CopyFileW(zvtest::ExePath().c_str(), inside.c_str(), FALSE));
    ASSERT_TRUE(CopyFileW(zvtest::ExePath().c_str(), outside.c_str(), FALSE));
    EXPECT_EQ(nullptr, GetModuleHandleW(inside.c_str()));

    // "..\" that leaves the folder isn't loaded; a missing name is skipped;
    // a name without extension gets ".DLL"
    EXPECT_EQ(S_OK, ZvFioPreloadModules(folder.c_str(), L"..\\pre_out.dll; missing ;pre_in"));
    EXPECT_EQ(nullptr, GetModuleHandleW(outside.c_str()));
    EXPECT_NE(nullptr, GetModuleHandleW(inside.c_str()));
    ZvFioReleasePreloadModules(folder.c_str(), L"..\\pre_out.dll; missing ;pre_in");
    EXPECT_EQ(nullptr, GetModuleHandleW(inside.c_str()));

    EXPECT_EQ(S_FALSE, ZvFioPreloadModules(folder.c_str(), L"..\\pre_out.dll"));
    EXPECT_EQ(nullptr, GetModuleHandleW(outside.c_str()));
    // a list longer than a path does nothing
    std::wstring longList(300, L'a');
    EXPECT_EQ(S_FALSE, ZvFioPreloadModules(folder.c_str(), longList.c_str()));
    EXPECT_EQ(S_FALSE, ZvFioPreloadModules(folder.c_str(), nullptr));

    // a record that loaded preloads releases them when freed
    ZVFIO_PLUGININFO *r = ZvFioAllocRecord(nullptr);
    ASSERT_NE(nullptr, r);
    wcscpy(r->szPath, (folder + L"\\plugin.dll").c_str());
    r->PreloadModules = ZvFioStrDup(L"pre_in.dll");
    ASSERT_EQ(S_OK, ZvFioPreloadModules(folder.c_str(), r->PreloadModules));
    r->dwRecordFlags |= ZVFIO_RF_PRELOADED;
    EXPECT_NE(nullptr, GetModuleHandleW(inside.c_str()));
    ZvFioFreeRecord(r);
    EXPECT_EQ(nullptr, GetModuleHandleW(inside.c_str()));
}

TEST(FioExecutor, BadDllsEndInFailedStates)
{
    Bare b;
    ASSERT_NE(nullptr, b.impl);
    zvtest::TempDir dir;
    ZVFIO_PLUGININFO *r = ZvFioAllocRecord(nullptr);
    ASSERT_NE(nullptr, r);
    r->Access = ZVFIO_ACCESS_READER | ZVFIO_ACCESS_RENDERER;
    // a file that isn't a module: the load fails and stays failed
    std::wstring text = dir.file(L"text.dll");
    ASSERT_TRUE(zvtest::WriteFileBytes(text, "not a module", 12));
    wcscpy(r->szPath, text.c_str());
    IZvReadFileClass *rc = (IZvReadFileClass *)1;
    EXPECT_EQ(E_UNEXPECTED, b.impl->getReader(r, &rc));
    EXPECT_EQ(nullptr, rc);
    EXPECT_EQ(ZVFIO_STATE_FAILED, r->nReaderState);
    EXPECT_EQ(ZVFIO_STATE_FAILED, r->nRendererState);
    EXPECT_EQ(E_NOINTERFACE, b.impl->getReader(r, &rc)); // not tried again
    EXPECT_EQ(nullptr, r->hModule);

    // a module without DllGetClassObject: freed, no class, state stays 0
    ZVFIO_PLUGININFO *m = ZvFioAllocRecord(nullptr);
    std::wstring image = dir.file(L"image.dll");
    ASSERT_TRUE(CopyFileW(zvtest::ExePath().c_str(), image.c_str(), FALSE));
    wcscpy(m->szPath, image.c_str());
    m->Access = ZVFIO_ACCESS_READER;
    EXPECT_EQ(E_NOINTERFACE, b.impl->getReader(m, &rc));
    EXPECT_EQ(nullptr, rc);
    EXPECT_EQ(ZVFIO_STATE_NONE, m->nReaderState);
    EXPECT_EQ(nullptr, m->hModule);
    EXPECT_EQ(nullptr, GetModuleHandleW(image.c_str()));

    // a routed record whose surrogate can't serve it: a clear failure
    ZVFIO_PLUGININFO *s = ZvFioAllocRecord(nullptr);
    wcscpy(s->szPath, image.c_str());
    s->Access = ZVFIO_ACCESS_READER;
    s->Surrogate = 1;
    void *obj = (void *)1;
    EXPECT_TRUE(FAILED(ZvFioCreateFromRecord(s, &obj, IID_IZvReadFileClass, b.impl)));
    EXPECT_EQ(nullptr, obj);
    EXPECT_NE(0u, s->dwRecordFlags & ZVFIO_RF_SURROGATE);
    ZvFioFreeRecord(r);
    ZvFioFreeRecord(m);
    ZvFioFreeRecord(s);
}

TEST(FioExecutor, DependencyAndOnRequestRules)
{
    Bare b;
    ASSERT_NE(nullptr, b.impl);
    zvtest::TempDir dir;
    std::wstring text = dir.file(L"dep.dll");
    ASSERT_TRUE(zvtest::WriteFileBytes(text, "not a module", 12));
    // a class that needs another plug-in's reader, with no such reader
    ZVFIO_PLUGININFO *d = ZvFioAllocRecord(nullptr);
    d->clsidPlugin = {0x341D000D, 0x95CA, 0x458A, {0xAC, 0x65, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}};
    d->Access = ZVFIO_ACCESS_READER;
    wcscpy(d->szPath, text.c_str());
    EXPECT_EQ(ZVERR_PLUGIN_NOT_INITIALIZED, b.impl->loadPlugin(d));
    EXPECT_EQ(ZVFIO_STATE_NONE, d->nReaderState); // may be tried again
    IZvReadFileClass *rc = nullptr;
    EXPECT_EQ(ZVERR_PLUGIN_NOT_INITIALIZED, b.impl->getReader(d, &rc));

    // this class loads only with metric 76 set
    ZVFIO_PLUGININFO *o = ZvFioAllocRecord(nullptr);
    o->clsidPlugin = {0xADD461A1, 0x40AA, 0x47D2, {0xB2, 0x08, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}};
    o->Access = ZVFIO_ACCESS_READER;
    wcscpy(o->szPath, text.c_str());
    EXPECT_EQ(S_FALSE, b.impl->loadPlugin(o));
    EXPECT_EQ(ZVFIO_STATE_NONE, o->nReaderState);
    b.mgr->SetMetric(76, 1);
    EXPECT_EQ(E_UNEXPECTED, b.impl->loadPlugin(o)); // now it is tried
    EXPECT_EQ(ZVFIO_STATE_FAILED, o->nReaderState);
    ZvFioFreeRecord(d);
    ZvFioFreeRecord(o);
}
