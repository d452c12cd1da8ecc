// A host whose data files lie in the user's folders: its surrogates keep
// the same metric and cache files and the same product name, so that no
// second set of files appears under a name of their own.
#include "surrogate_world.h"
#include <shlobj.h>
#include <string>

using namespace tsworld;

namespace {

std::wstring UserFolder(int csidl, const wchar_t *below)
{
    wchar_t path[MAX_PATH] = L"";
    SHGetFolderPathW(nullptr, csidl, nullptr, 0, path);
    return std::wstring(path) + L"\\" + below;
}

bool Exists(const std::wstring &path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

} // namespace

TEST_F(SurrogateTest, HostAndSurrogateShareTheUsersDataFiles)
{
    // the name a surrogate would take without its host's
    const std::wstring strayMetrics = UserFolder(CSIDL_APPDATA, L"Unspecified");
    const std::wstring strayCache = UserFolder(CSIDL_LOCAL_APPDATA, L"Unspecified");
    zvtest::RemoveTree(strayMetrics);
    zvtest::RemoveTree(strayCache);

    ZvFioResetDataPaths();
    zvtest::ChildGuard guard;
    IZvFileIOMgrForApp *app = nullptr;
    long reserved = 0;
    ASSERT_EQ(S_OK, ZVFileIO_CreateInstance(&app, nullptr, ZVFIO_CREATE_MANAGERONLY, nullptr, reserved));
    CZvFileIOManager *mgr = static_cast<CZvFileIOManager *>(app);
    const ZVFIO_DATAPATHS *paths = ZvFioGetDataPaths();
    ASSERT_TRUE(paths->known);
    EXPECT_TRUE(paths->userMetricFolder && paths->userCacheFolder);
    // one name for the mutex, the folders and what the surrogates are told
    EXPECT_STREQ(paths->productName, g_zvfioProductName);
    std::wstring mutexName = std::wstring(L"Local\\Tolan Media Works ") + g_zvfioProductName;
    for (size_t i = 6; i < mutexName.size(); ++i)
        if (mutexName[i] == L'\\')
            mutexName[i] = L' ';
    EXPECT_EQ(mutexName, mgr->sharedMutexName());
    EXPECT_EQ(UserFolder(CSIDL_APPDATA, g_zvfioProductName), paths->metricFolder);
    EXPECT_EQ(UserFolder(CSIDL_LOCAL_APPDATA, g_zvfioProductName), paths->cacheFolder);

    tZVLIST *list = nullptr;
    ASSERT_EQ(S_OK, ZvFioCreateRecordList(&list));
    ASSERT_EQ(S_OK, ZvFioReadConfigFiles(list, PluginFolder().c_str(), nullptr, 0));
    ASSERT_EQ(S_OK, mgr->GrovelSpecifiedPlugins(list, ZVFIO_CREATE_NOCACHE, nullptr));
    ASSERT_EQ(S_OK, mgr->SetPluginList(list, 0, 0, nullptr));
    guard.adoptTable();

    const LONG kMetric = 4242;
    ASSERT_EQ(S_OK, mgr->SetMetric(kMetric, 17));
    ASSERT_EQ(S_OK, mgr->SetMetric(kMetric + 1, 0));
    IZvReadFileClass *cls = nullptr;
    tZVLIST *plugins = mgr->pluginList();
    for (int i = 0; i < plugins->count && !cls; ++i) {
        ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(plugins, i);
        if (IsEqualGUID(r->clsidPlugin, TsReaderClass(TS_G1A))) {
            EXPECT_EQ(S_OK, mgr->getReader(r, &cls));
        }
    }
    ASSERT_TRUE(cls);
    guard.adoptTable();
    IZvReadFile *file = nullptr;
    ASSERT_EQ(S_OK, cls->OpenFile(&file, ~(UINT64)0, 0, L"a.tsm", TRUE));
    ASSERT_TRUE(file);
    EXPECT_NE(GetCurrentProcessId(), ObjectProcess(file));
    // the surrogate's manager reads what the host wrote, and the host what it wrote
    LONG seen = 0;
    EXPECT_EQ(S_OK, file->GetFileInfo((BYTE *)&seen, 4, TS_INFO_METRIC | kMetric));
    EXPECT_EQ(17, seen);
    LONG back = 0;
    EXPECT_EQ(S_OK, mgr->GetMetric(kMetric + 1, &back));
    EXPECT_EQ(18, back);
    file->Release();
    cls->Release();
    EXPECT_FALSE(Exists(strayMetrics)) << "the surrogate made metric files of its own";
    EXPECT_FALSE(Exists(strayCache)) << "the surrogate made a cache of its own";

    mgr->DeleteMetric(kMetric, 4);
    mgr->DeleteMetric(kMetric + 1, 4);
    app->CleanUp();
    app->Release();
    ZvFioResetDataPaths();
}
