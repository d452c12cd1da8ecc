// Discovery without loading: candidates, configuration files, the cache file
// and its validity rules.
#include <gtest/gtest.h>
#include "fiotest.h"
#include "filemng/filemng.h"
#include "filemng/fiodiscovery.h"
#include "zvpaths.h"
#include <atomic>
#include <string>
#include <thread>
#include <vector>

using namespace fiotest;

namespace {

const GUID kClassA = {0x11111111, 0x2222, 0x3333, {0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x01}};
const GUID kClassB = {0x11111111, 0x2222, 0x3333, {0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x02}};
const GUID kClassC = {0x11111111, 0x2222, 0x3333, {0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x03}};
const GUID kReaderA = {0xAAAA0001, 0, 0, {1, 2, 3, 4, 5, 6, 7, 8}};
const GUID kRendererA = {0xBBBB0001, 0, 0, {1, 2, 3, 4, 5, 6, 7, 8}};
const GUID kReaderB = {0xAAAA0002, 0, 0, {1, 2, 3, 4, 5, 6, 7, 8}};
const GUID kRendererC = {0xBBBB0003, 0, 0, {1, 2, 3, 4, 5, 6, 7, 8}};

// A folder with fake plug-in DLLs (copies of this program: valid images
// that are never loaded here) and the data files beside a host there.
struct Fixture : DataFolder {
    std::wstring cache = cacheFile();
    std::wstring dll(const wchar_t *name)
    {
        std::wstring p = dir.file(name);
        if (GetFileAttributesW(p.c_str()) == INVALID_FILE_ATTRIBUTES) {
            CopyFileW(zvtest::ExePath().c_str(), p.c_str(), FALSE);
            SetMinute(p, 1);
        }
        return p;
    }
};

tZVLIST *NewList()
{
    tZVLIST *l = nullptr;
    EXPECT_EQ(S_OK, ZvFioCreateRecordList(&l));
    return l;
}

ZVFIO_PLUGININFO *At(tZVLIST *l, int i) { return (ZVFIO_PLUGININFO *)ZvList_GetItem(l, i); }

// Fills a record the way the listing pass does.
void Listed(ZVFIO_PLUGININFO *r, const GUID &cls, const wchar_t *name, DWORD access, const GUID *reader,
            const wchar_t *extR, const GUID *renderer, const wchar_t *extW)
{
    r->clsidPlugin = cls;
    wcscpy(r->szName, name);
    r->Access = access;
    r->Flags = 0;
    r->StreamType = 1;
    r->clsidReader = reader ? *reader : GUID{};
    r->clsidRenderer = renderer ? *renderer : GUID{};
    ZvFioStrSet(&r->ExtReader, extR);
    ZvFioStrSet(&r->ExtRenderer, extW);
    ZvFioStrSet(&r->DialogName, name);
    r->dwRecordFlags |= ZVFIO_RF_DIRTY;
    r->dwRecordFlags &= ~ZVFIO_RF_UNCACHED;
}

// Two DLLs: plugA with a reader|renderer class and a reader class, plugB
// with a renderer class. Returns the written list.
tZVLIST *WriteTwoDlls(Fixture &fx)
{
    tZVLIST *l = NewList();
    ZVFIO_PLUGININFO *a = nullptr, *b = nullptr;
    EXPECT_EQ(S_OK, ZvFioAddPluginCandidate(l, fx.dll(L"plugA.dll").c_str(), 2, nullptr, 0, &a));
    EXPECT_EQ(S_OK, ZvFioAddPluginCandidate(l, fx.dll(L"plugB.dll").c_str(), -1, nullptr, 0, &b));
    Listed(a, kClassA, L"Alpha", ZVFIO_ACCESS_READER | ZVFIO_ACCESS_RENDERER, &kReaderA, L"*.a1; *.a2 ",
           &kRendererA, L"*.a1");
    ZVFIO_PLUGININFO *a2 = ZvFioAllocRecord(a);
    a2->dwRecordFlags &= ~ZVFIO_RF_FIRST;
    Listed(a2, kClassB, L"Beta", ZVFIO_ACCESS_READER, &kReaderB, L"*.b", nullptr, nullptr);
    ZvList_InsertList(l, 1, &a2, 1);
    Listed(b, kClassC, L"Gamma", ZVFIO_ACCESS_RENDERER, nullptr, nullptr, &kRendererC, L"*.c");
    EXPECT_EQ(S_OK, ZvFioWritePluginCache(l, 0));
    for (int i = 0; i < l->count; ++i)
        EXPECT_EQ(0u, At(l, i)->dwRecordFlags & ZVFIO_RF_DIRTY);
    return l;
}

// A fresh candidate list of the two DLLs read from the cache.
tZVLIST *ReadTwoDlls(Fixture &fx, BOOL *valid)
{
    tZVLIST *l = NewList();
    ZvFioAddPluginCandidate(l, fx.dll(L"plugA.dll").c_str(), 2, nullptr, 0, nullptr);
    ZvFioAddPluginCandidate(l, fx.dll(L"plugB.dll").c_str(), -1, nullptr, 0, nullptr);
    EXPECT_EQ(S_OK, ZvFioReadPluginCache(l, valid, nullptr, FALSE));
    return l;
}

} // namespace

TEST(FioDiscovery, Candidates)
{
    Fixture fx;
    tZVLIST *l = NewList();
    std::wstring a = fx.dll(L"plugA.dll");
    ZVFIO_PLUGININFO *r = nullptr;
    // no extension: ".dll" is added
    ASSERT_EQ(S_OK, ZvFioAddPluginCandidate(l, fx.dir.file(L"plugA").c_str(), 4, L"{AAAA0001-0000-0000-0102-030405060708}",
                                           9, &r));
    ASSERT_NE(nullptr, r);
    EXPECT_EQ(a, std::wstring(r->szPath));
    EXPECT_EQ(ZVFIO_RECORD_VERSION, r->dwVersion);
    EXPECT_EQ(4, r->Surrogate);
    EXPECT_EQ(9u, r->MeritValue);
    EXPECT_TRUE(IsEqualGUID(kReaderA, r->MeritReader));
    EXPECT_EQ(ZvDosGetDateTimeUTC(a.c_str()), r->ModTime);
    EXPECT_NE(0u, r->dwRecordFlags & ZVFIO_RF_FIRST);
#ifdef _WIN64
    EXPECT_NE(0u, r->dwRecordFlags & ZVFIO_RF_AMD64);
#endif
    // the same path in another case: one record
    std::wstring upper = a;
    CharUpperW(&upper[0]);
    EXPECT_EQ(S_OK, ZvFioAddPluginCandidate(l, upper.c_str(), 7, nullptr, 0, &r));
    EXPECT_EQ(nullptr, r);
    EXPECT_EQ(1, l->count);
    // no file: no record and no error
    EXPECT_EQ(S_OK, ZvFioAddPluginCandidate(l, fx.dir.file(L"none.dll").c_str(), -1, nullptr, 0, &r));
    EXPECT_EQ(1, l->count);
    // not an executable: unusable
    std::wstring text = fx.dir.file(L"text.dll");
    ASSERT_TRUE(zvtest::WriteFileBytes(text, "just text", 9));
    ASSERT_EQ(S_OK, ZvFioAddPluginCandidate(l, text.c_str(), -1, L"not a class id", 5, &r));
    ASSERT_NE(nullptr, r);
    EXPECT_NE(0u, r->dwRecordFlags & ZVFIO_RF_UNUSABLE);
    EXPECT_EQ(0u, r->MeritValue); // a merit reader that isn't an id drops the merit
    EXPECT_EQ(E_INVALIDARG, ZvFioAddPluginCandidate(nullptr, text.c_str(), -1, nullptr, 0, &r));
    EXPECT_EQ(E_INVALIDARG, ZvFioAddPluginCandidate(l, nullptr, -1, nullptr, 0, &r));
    ZvFioFreeRecordList(l);
}

TEST(FioDiscovery, ConfigurationFiles)
{
    Fixture fx;
    fx.dll(L"plugA.dll");
    fx.dll(L"plugB.dll");
    fx.dll(L"skipme.dll");
    const char config[] = "[FileIO Plug-Ins]\r\n"
                          "first=plugA.dll\r\n"
                          "second=.\\plugA.dll\r\n"
                          "third=plugB\r\n"
                          "fourth=SKIPME.dll\r\n"
                          "fifth=missing.dll\r\n"
                          "[first]\r\nSurrogate=3\r\nReader={AAAA0001-0000-0000-0102-030405060708}\r\n"
                          "{AAAA0001-0000-0000-0102-030405060708}=7\r\n"
                          "[second]\r\nSurrogate=5\r\n"
                          "[third]\r\nReader={AAAA0002-0000-0000-0102-030405060708}\r\n";
    ASSERT_TRUE(zvtest::WriteFileBytes(fx.dir.file(L"test.Fio2007-Config"), config, sizeof config - 1));
    tZVLIST *l = NewList();
    const wchar_t *skip[] = {L"skipme.dll"};
    ASSERT_EQ(S_OK, ZvFioReadConfigFiles(l, fx.dir.path().c_str(), skip, 1));
    ASSERT_EQ(2, l->count);
    EXPECT_EQ(fx.dir.file(L"plugA.dll"), std::wstring(At(l, 0)->szPath));
    EXPECT_EQ(3, At(l, 0)->Surrogate); // the first naming stays
    EXPECT_EQ(7u, At(l, 0)->MeritValue);
    EXPECT_EQ(fx.dir.file(L"plugB.dll"), std::wstring(At(l, 1)->szPath));
    EXPECT_EQ(-1, At(l, 1)->Surrogate);
    EXPECT_EQ(0u, At(l, 1)->MeritValue); // Reader without its merit key
    ZvFioFreeRecordList(l);

    // no configuration files: no candidates
    zvtest::TempDir empty;
    l = NewList();
    EXPECT_EQ(S_OK, ZvFioReadConfigFiles(l, empty.path().c_str(), nullptr, 0));
    EXPECT_EQ(0, l->count);
    ZvFioFreeRecordList(l);
}

TEST(FioDiscovery, CacheSectionsAndKeys)
{
    Fixture fx;
    tZVLIST *l = WriteTwoDlls(fx);
    const std::wstring &c = fx.cache;
    std::wstring a = fx.dll(L"plugA.dll");
    // [plugA]: written once for both classes
    EXPECT_EQ(a, Ini(c, L"plugA", L"Path"));
    EXPECT_EQ(std::to_wstring(ZvDosGetDateTimeUTC(a.c_str())), Ini(c, L"plugA", L"ModTime"));
    EXPECT_EQ(L"2", Ini(c, L"plugA", L"Surrogate"));
    EXPECT_EQ(L"<none>", Ini(c, L"plugA", L"MeritValue")); // only when not 0
    EXPECT_EQ(L"Alpha", Ini(c, L"plugA", GuidText(kClassA)));
    EXPECT_EQ(L"Beta", Ini(c, L"plugA", GuidText(kClassB)));
    // [plugA.{class}]
    std::wstring sa = L"plugA." + GuidText(kClassA);
    EXPECT_EQ(L"48", Ini(c, sa, L"Access"));
    EXPECT_EQ(L"0", Ini(c, sa, L"Flags"));
    EXPECT_EQ(L"1", Ini(c, sa, L"StreamType"));
    EXPECT_EQ(L"16", Ini(c, L"plugA." + GuidText(kClassB), L"Access"));
    // [{class}]
    std::wstring ca = GuidText(kClassA);
    EXPECT_EQ(L"Alpha", Ini(c, ca, L"DialogName"));
    EXPECT_EQ(L"0", Ini(c, ca, L"LangID"));
    EXPECT_EQ(Ini(c, L"plugA", L"ModTime"), Ini(c, ca, L"ModTime"));
    EXPECT_EQ(L"", Ini(c, ca, L"PreloadModules"));
    EXPECT_EQ(GuidText(kReaderA), Ini(c, ca, L"Reader"));
    EXPECT_EQ(L"*.a1; *.a2", Ini(c, ca, L"ExtReader")); // the file trims the end
    EXPECT_EQ(GuidText(kRendererA), Ini(c, ca, L"Renderer"));
    EXPECT_EQ(L"*.a1", Ini(c, ca, L"ExtRenderer"));
    std::wstring cc = GuidText(kClassC);
    EXPECT_EQ(L"<none>", Ini(c, cc, L"Reader")); // only with the reader bit
    EXPECT_EQ(GuidText(kRendererC), Ini(c, cc, L"Renderer"));
    EXPECT_EQ(L"-1", Ini(c, L"plugB", L"Surrogate"));
    ZvFioFreeRecordList(l);
    EXPECT_EQ(1, ZvFioWritePluginCache(nullptr, 0));
}

TEST(FioDiscovery, WarmReadFillsEveryRecord)
{
    Fixture fx;
    tZVLIST *w = WriteTwoDlls(fx);
    BOOL valid = FALSE;
    tZVLIST *l = ReadTwoDlls(fx, &valid);
    EXPECT_TRUE(valid);
    ASSERT_EQ(3, l->count);
    for (int i = 0; i < 3; ++i) {
        ZVFIO_PLUGININFO *r = At(l, i), *o = At(w, i);
        SCOPED_TRACE(i);
        EXPECT_TRUE(IsEqualGUID(o->clsidPlugin, r->clsidPlugin));
        EXPECT_STREQ(o->szName, r->szName);
        EXPECT_STREQ(o->szPath, r->szPath);
        EXPECT_EQ(o->Access, r->Access);
        EXPECT_EQ(o->StreamType, r->StreamType);
        EXPECT_EQ(o->ModTime, r->ModTime);
        EXPECT_EQ(o->Surrogate, r->Surrogate);
        EXPECT_TRUE(IsEqualGUID(o->clsidReader, r->clsidReader));
        EXPECT_TRUE(IsEqualGUID(o->clsidRenderer, r->clsidRenderer));
        EXPECT_EQ(0u, r->dwRecordFlags & (ZVFIO_RF_UNCACHED | ZVFIO_RF_DIRTY | ZVFIO_RF_UNUSABLE));
        EXPECT_EQ(0u, r->dwLoadFlags & ZVFIO_LF_LOADONINIT);
        EXPECT_EQ(i != 1, (r->dwRecordFlags & ZVFIO_RF_FIRST) != 0);
        EXPECT_EQ(ZVFIO_STATE_NONE, r->nReaderState);
    }
    EXPECT_STREQ(L"*.a1;*.a2", At(l, 0)->ExtReader); // normalised
    EXPECT_STREQ(L"Alpha", At(l, 0)->DialogName);
    EXPECT_EQ(nullptr, At(l, 2)->ExtReader);
    EXPECT_STREQ(L"*.c", At(l, 2)->ExtRenderer);
    ZvFioFreeRecordList(l);
    ZvFioFreeRecordList(w);
}

TEST(FioDiscovery, AtMostSixteenClassesPerDll)
{
    Fixture fx;
    std::wstring a = fx.dll(L"plugA.dll");
    const std::wstring &c = fx.cache;
    std::wstring mod = std::to_wstring(ZvDosGetDateTimeUTC(a.c_str()));
    auto put = [&](const std::wstring &section, const wchar_t *key, const std::wstring &value) {
        WritePrivateProfileStringW(section.c_str(), key, value.c_str(), c.c_str());
    };
    put(L"plugA", L"Path", a);
    put(L"plugA", L"ModTime", mod);
    for (int i = 0; i < 18; ++i) {
        GUID g = kClassA;
        g.Data4[7] = (BYTE)(0x40 + i);
        std::wstring id = GuidText(g);
        put(L"plugA", id.c_str(), L"name");
        for (const wchar_t *key : {L"Access", L"Flags", L"StreamType"})
            put(L"plugA." + id, key, L"0");
        put(id, L"ModTime", mod);
        put(id, L"LangID", L"0");
        put(id, L"DialogName", L"name");
    }
    WritePrivateProfileStringW(nullptr, nullptr, nullptr, c.c_str());
    tZVLIST *l = NewList();
    ZvFioAddPluginCandidate(l, a.c_str(), -1, nullptr, 0, nullptr);
    BOOL valid = FALSE;
    ASSERT_EQ(S_OK, ZvFioReadPluginCache(l, &valid, nullptr, FALSE));
    EXPECT_TRUE(valid);
    EXPECT_EQ(16, l->count);
    ZvFioFreeRecordList(l);
}

TEST(FioDiscovery, ExtensionListsAreNormalised)
{
    WCHAR *n = ZvFioNormaliseExtList(L"  *.wav ;*.bwf;\t*.w64  ");
    EXPECT_STREQ(L"*.wav;*.bwf;*.w64", n);
    ZvFioStrFree(n);
    n = ZvFioNormaliseExtList(L"");
    EXPECT_STREQ(L"", n);
    ZvFioStrFree(n);
}

TEST(FioDiscovery, CacheIsReplacedWholeAndWritesWaitForTheSharedMutex)
{
    Fixture fx;
    tZVLIST *l = WriteTwoDlls(fx);
    // the file's identity: a new file takes the old one's place, the old
    // one is never rewritten in place
    auto fileId = [&]() {
        HANDLE h = CreateFileW(fx.cache.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                               nullptr, OPEN_EXISTING, 0, nullptr);
        BY_HANDLE_FILE_INFORMATION info = {};
        GetFileInformationByHandle(h, &info);
        CloseHandle(h);
        return ((ULONGLONG)info.nFileIndexHigh << 32) | info.nFileIndexLow;
    };
    const ULONGLONG before = fileId();
    ZvFioStrSet(&At(l, 0)->DialogName, L"Alpha, renamed");
    At(l, 0)->dwRecordFlags |= ZVFIO_RF_DIRTY;
    EXPECT_EQ(S_OK, ZvFioWritePluginCache(l, 0));
    EXPECT_NE(before, fileId());
    EXPECT_EQ(L"Alpha, renamed", Ini(fx.cache, GuidText(kClassA), L"DialogName"));
    EXPECT_EQ(L"Gamma", Ini(fx.cache, GuidText(kClassC), L"DialogName")) << "the rest was carried over";
    // nothing is left beside it
    WIN32_FIND_DATAW fd;
    HANDLE find = FindFirstFileW((fx.cache + L".*.tmp").c_str(), &fd);
    EXPECT_EQ(INVALID_HANDLE_VALUE, find) << "a temporary file was left";
    if (find != INVALID_HANDLE_VALUE)
        FindClose(find);
    // nothing to write: the file stays as it is
    const ULONGLONG written = fileId();
    EXPECT_EQ(S_OK, ZvFioWritePluginCache(l, 0));
    EXPECT_EQ(written, fileId());

    // the manager writes only while it holds the shared mutex
    IZvFileIOMgrForApp *app = nullptr;
    long reserved = 0;
    ASSERT_EQ(S_OK, ZVFileIO_CreateInstance(&app, nullptr, ZVFIO_CREATE_MANAGERONLY | ZVFIO_CREATE_BESIDEPROGRAM,
                                            nullptr, reserved));
    CZvFileIOManager *mgr = static_cast<CZvFileIOManager *>(app);
    ASSERT_EQ(S_OK, mgr->SetPluginList(l, 0, 0, nullptr));
    ZvFioStrSet(&At(l, 0)->DialogName, L"Alpha, third");
    At(l, 0)->dwRecordFlags |= ZVFIO_RF_DIRTY;
    // another holds the mutex until told to let go
    HANDLE held = CreateEventW(nullptr, TRUE, FALSE, nullptr), letGo = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::thread holder([&, name = std::wstring(mgr->sharedMutexName())] {
        HANDLE m = OpenMutexW(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, name.c_str());
        WaitForSingleObject(m, INFINITE);
        SetEvent(held);
        WaitForSingleObject(letGo, INFINITE);
        ReleaseMutex(m);
        CloseHandle(m);
    });
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(held, 10000));
    std::atomic<HRESULT> update{E_PENDING};
    std::thread writer([&] { update = mgr->UpdatePluginCache(0); });
    Sleep(300);
    EXPECT_EQ(E_PENDING, update.load()) << "wrote while another held the mutex";
    EXPECT_EQ(L"Alpha, renamed", Ini(fx.cache, GuidText(kClassA), L"DialogName"));
    SetEvent(letGo);
    writer.join();
    holder.join();
    EXPECT_EQ(S_OK, update.load());
    EXPECT_EQ(L"Alpha, third", Ini(fx.cache, GuidText(kClassA), L"DialogName"));
    CloseHandle(held);
    CloseHandle(letGo);
    app->CleanUp();
    app->Release();
}
