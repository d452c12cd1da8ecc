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

    zvtest::ChildGuard guard;
    zvtest::HostManager host(L""); // data files in the user's folders
    ASSERT_EQ(S_OK, host.created);
    CZvFileIOManager *mgr = host.mgr;
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

    ASSERT_EQ(S_OK, host.listConfigured(PluginFolder(), ZVFIO_CREATE_NOCACHE));
    guard.adoptTable();

    const LONG kMetric = 4242;
    ASSERT_EQ(S_OK, mgr->SetMetric(kMetric, 17));
    ASSERT_EQ(S_OK, mgr->SetMetric(kMetric + 1, 0));
    IZvReadFileClass *cls = nullptr;
    ZVFIO_PLUGININFO *record = host.record(TsReaderClass(TS_G1A));
    ASSERT_TRUE(record);
    ASSERT_EQ(S_OK, mgr->getReader(record, &cls));
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
    host.release(); // before the guard checks its children
}
