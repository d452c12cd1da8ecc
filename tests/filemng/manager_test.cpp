// The manager object: creation without listing, its slots, metrics, logger,
// acceleration blocks and the surrogate table.
#include <gtest/gtest.h>
#include "fiotest.h"
#include "memlogger.h"
#include "filemng/filemng.h"
#include "filemng/fiodiscovery.h"
#include "filemng/surrogatetable.h"
#include <string>
#include <vector>

namespace {

using fiotest::DataFolder;

IZvFileIOMgrForApp *CreateBare(DWORD flags = 0, _ZVFIO_KEYED_INFO *info = nullptr)
{
    IZvFileIOMgrForApp *mgr = nullptr;
    long reserved = 0;
    HRESULT hr = ZVFileIO_CreateInstance(&mgr, nullptr, flags | ZVFIO_CREATE_MANAGERONLY | ZVFIO_CREATE_BESIDEPROGRAM,
                                         info, reserved);
    EXPECT_EQ(S_OK, hr);
    return mgr;
}

using CountingLogger = zvtest::MemoryLogger;

} // namespace

static_assert(offsetof(_ZVFIO_INITIALIZATION_METRICS, values) == 92, "metrics layout");
static_assert(sizeof(_ZVFIO_ACCELERATION_INFO) == 48, "acceleration layout");

TEST(FioManagerCore, ManagerOnlyCreationAnswersEverySlot)
{
    DataFolder data;
    IZvFileIOMgrForApp *mgr = CreateBare();
    ASSERT_NE(nullptr, mgr);
    IZvFileIOManager *base = nullptr;
    ASSERT_EQ(S_OK, mgr->QueryInterface(IID_IZvFileIOManager, (void **)&base));
    EXPECT_EQ(static_cast<IUnknown *>(mgr), static_cast<IUnknown *>(base));
    base->Release();
    IUnknown *other = (IUnknown *)1;
    EXPECT_EQ(E_NOINTERFACE, mgr->QueryInterface(IID_IClassFactory, (void **)&other));
    EXPECT_EQ(nullptr, other);

    LANGID lang = 0xFFFF;
    EXPECT_EQ(E_INVALIDARG, mgr->GetLangID(&lang, 1));
    EXPECT_EQ(S_OK, mgr->GetLangID(&lang, 0));
    EXPECT_EQ(E_INVALIDARG, mgr->GetSupportedHardwareDecodersEx(nullptr));
    GUID any = {1, 2, 3, {4, 0, 0, 0, 0, 0, 0, 0}};

    // without a plug-in list
    IZvFIOPluginEnum *plugins = (IZvFIOPluginEnum *)1;
    EXPECT_EQ(E_FAIL, mgr->GetPluginEnum(&plugins));
    EXPECT_EQ(nullptr, plugins);
    ZVFIO_PLUGINDESC desc = {};
    desc.cbSize = sizeof desc;
    EXPECT_EQ(E_FAIL, mgr->GetPluginInfo(any, &desc));
    IZvFileIOTypeEnum *readers = nullptr;
    EXPECT_EQ(ZVERR_NOT_FOUND, mgr->GetReaderEnum(&readers));
    LONG count = -1;
    EXPECT_EQ(S_OK, mgr->GetReaderCount(&count));
    EXPECT_EQ(0, count);
    EXPECT_EQ(S_FALSE, mgr->GetPluginCount(&count));
    IZvReadFileClass *rc = (IZvReadFileClass *)1;
    EXPECT_EQ(E_NOINTERFACE, mgr->GetReaderClass(&rc, 0));
    EXPECT_EQ(nullptr, rc);
    EXPECT_EQ(ZVERR_UNSUPPORTED_FORMAT, mgr->FindReaderClass(&rc, any));
    LONG pos = -2;
    EXPECT_EQ(E_INVALIDARG, mgr->FindNextReaderClassByExt(&rc, L"wav", &pos));

    _ZVFIO_ACCELERATION_INFO acc;
    EXPECT_EQ(E_INVALIDARG, mgr->SetGPUAcceleration(nullptr));
    EXPECT_EQ(E_INVALIDARG, mgr->GetGPUAcceleration(nullptr));
    for (int i = 0; i < 48; ++i)
        acc.block[i] = (BYTE)(i * 7);
    EXPECT_EQ(S_OK, mgr->SetGPUAcceleration(&acc));
    _ZVFIO_ACCELERATION_INFO back = {};
    EXPECT_EQ(S_OK, mgr->GetGPUAcceleration(&back));
    EXPECT_EQ(0, memcmp(&acc, &back, sizeof acc));

    // bad arguments
    long reserved = 0;
    EXPECT_EQ(E_POINTER, ZVFileIO_CreateInstance(nullptr, nullptr, 0, nullptr, reserved));
    EXPECT_EQ(E_POINTER, ZVFileIO_CreateSurrogateManagerInstance(nullptr, 0, nullptr, nullptr));
    EXPECT_EQ(S_OK, mgr->GetMetric(1, nullptr)); // nowhere to put it, and still S_OK
    EXPECT_EQ(S_OK, mgr->GetMetric(100, nullptr));
    EXPECT_EQ(S_OK, mgr->GetMetricString(100, nullptr, 0, nullptr));
    EXPECT_EQ(E_INVALIDARG, mgr->SetMetricBinary(100, nullptr, 8));
    EXPECT_EQ(E_POINTER, mgr->GetLogger(nullptr));
    CZvFileIOManager *impl = static_cast<CZvFileIOManager *>(mgr);
    EXPECT_EQ(E_INVALIDARG, impl->GrovelSpecifiedPlugins(nullptr, 0, nullptr));
    EXPECT_EQ(E_POINTER, impl->GrovelPlugins2(nullptr, 0, nullptr));
    EXPECT_EQ(S_OK, impl->UpdatePluginCache(0)); // no list: nothing to write

    EXPECT_EQ(S_OK, mgr->CleanUp());
    EXPECT_EQ(S_OK, mgr->CleanUp()); // a second clean-up does nothing
    EXPECT_EQ(0u, mgr->Release());
}

TEST(FioManagerCore, MetricTableAndFile)
{
    DataFolder data;
    _ZVFIO_KEYED_INFO info = {};
    info.metrics.mask[11] = 1;
    info.metrics.values[11] = 42;
    info.metrics.values[12] = 99; // masked out
    IZvFileIOMgrForApp *mgr = CreateBare(0, &info);
    ASSERT_NE(nullptr, mgr);
    auto metric = [&](LONG id) {
        LONG v = -1;
        EXPECT_EQ(S_OK, mgr->GetMetric(id, &v)) << id;
        return v;
    };
    EXPECT_EQ(42, metric(11));
    EXPECT_EQ(0, metric(12));

    // 90 is nothing
    EXPECT_EQ(S_OK, mgr->SetMetric(90, 7));
    EXPECT_EQ(0, metric(90));
    // 91 and up go to the file
    EXPECT_EQ(S_OK, mgr->SetMetric(91, 1234));
    EXPECT_EQ(1234, metric(91));
    std::wstring file = data.metricFile();
    EXPECT_EQ(L"1234", fiotest::Ini(file, L"Metrics", L"D91"));
    // a stored value equal to the probe default reads back as stored
    EXPECT_EQ(S_OK, mgr->SetMetric(92, 0xF00D));
    EXPECT_EQ(0xF00D, metric(92));
    EXPECT_EQ(0, metric(93)); // missing
    // a negative id is a large unsigned one, filed under its absolute value
    EXPECT_EQ(S_OK, mgr->SetMetric(-5, 55));
    EXPECT_EQ(L"55", fiotest::Ini(file, L"Metrics", L"D5"));
    EXPECT_EQ(55, metric(-5));
    EXPECT_EQ(0, metric(5)); // the table entry is untouched

    // strings
    wchar_t text[32] = L"x";
    DWORD len = 99;
    EXPECT_EQ(S_OK, mgr->GetMetricString(3, text, 32, &len));
    EXPECT_EQ(0, text[0]);
    EXPECT_EQ(0u, len);
    EXPECT_EQ(S_OK, mgr->GetMetricString(100, text, 32, &len));
    EXPECT_EQ(0u, len);
    EXPECT_EQ(S_OK, mgr->SetMetricString(100, L"hello"));
    EXPECT_EQ(S_OK, mgr->GetMetricString(100, text, 32, &len));
    EXPECT_STREQ(L"hello", text);
    EXPECT_EQ(6u, len);
    EXPECT_EQ(S_OK, mgr->SetMetricString(101, L""));
    EXPECT_EQ(S_OK, mgr->GetMetricString(101, text, 32, &len));
    EXPECT_EQ(1u, len); // an empty value is still a value

    // binary: length/4 numbers, trailing zeros dropped, one kept
    LONG vals[5] = {1, -2, 3, 0, 0};
    EXPECT_EQ(S_OK, mgr->SetMetricBinary(110, (BYTE *)vals, sizeof vals));
    EXPECT_EQ(L"1,-2,3", fiotest::Ini(file, L"Metrics", L"B110"));
    LONG zeros[2] = {};
    EXPECT_EQ(S_OK, mgr->SetMetricBinary(111, (BYTE *)zeros, sizeof zeros));
    EXPECT_EQ(L"0", fiotest::Ini(file, L"Metrics", L"B111"));
    LONG back[6] = {9, 9, 9, 9, 9, 9};
    EXPECT_EQ(S_OK, mgr->GetMetricBinary(110, (BYTE *)back, sizeof back, &len));
    EXPECT_EQ(sizeof back, len);
    EXPECT_EQ((std::vector<LONG>{1, -2, 3, 0, 0, 0}), std::vector<LONG>(back, back + 6));
    BYTE odd[6] = {1, 1, 1, 1, 1, 1};
    EXPECT_EQ(S_OK, mgr->GetMetricBinary(110, odd, 6, &len)); // not a multiple of 4: no data
    EXPECT_EQ(0, odd[0]);

    // delete by kind
    EXPECT_EQ(S_OK, mgr->DeleteMetric(91, 4));
    EXPECT_EQ(0, metric(91));
    EXPECT_EQ(S_OK, mgr->DeleteMetric(100, 1));
    EXPECT_EQ(L"<none>", fiotest::Ini(file, L"Metrics", L"S100"));
    EXPECT_EQ(S_OK, mgr->DeleteMetric(110, 3));
    EXPECT_EQ(L"<none>", fiotest::Ini(file, L"Metrics", L"B110"));

    // a mask of zeros changes nothing
    CZvFileIOManager *impl = static_cast<CZvFileIOManager *>(mgr);
    _ZVFIO_INITIALIZATION_METRICS none = {};
    none.values[11] = 5;
    EXPECT_EQ(S_OK, impl->SetMetrics(&none));
    EXPECT_EQ(42, metric(11));
    mgr->Release();
}

TEST(FioManagerCore, LoggerOwnershipAndCreationFlag)
{
    DataFolder data;
    IZvFileIOMgrForApp *mgr = CreateBare();
    ASSERT_NE(nullptr, mgr);
    IZvLogger *got = (IZvLogger *)1;
    EXPECT_EQ(E_FAIL, mgr->GetLogger(&got));
    EXPECT_EQ(nullptr, got);
    CountingLogger logger;
    logger.AddRef(); // the reference the manager takes over
    EXPECT_EQ(S_OK, mgr->SetLogger(&logger));
    EXPECT_EQ(2, logger.refs);
    EXPECT_EQ(S_OK, mgr->GetLogger(&got));
    EXPECT_EQ(&logger, got);
    EXPECT_EQ(3, logger.refs);
    got->Release();
    EXPECT_EQ(S_OK, mgr->SetLogger(nullptr));
    EXPECT_EQ(1, logger.refs); // released
    EXPECT_EQ(E_FAIL, mgr->GetLogger(&got));
    EXPECT_EQ(nullptr, got);
    mgr->Release();

    // one the manager makes from the creation flag writes its start line
    _ZVFIO_KEYED_INFO info = {};
    std::wstring path = data.dir.file(L"fio.log");
    wcscpy(info.szLogPath, path.c_str());
    mgr = CreateBare(ZVFIO_CREATE_LOGGER, &info);
    ASSERT_NE(nullptr, mgr);
    EXPECT_EQ(S_OK, mgr->GetLogger(&got));
    ASSERT_NE(nullptr, got);
    got->Release();
    mgr->Release();
    std::vector<unsigned char> bytes;
    ASSERT_TRUE(zvtest::ReadFileBytes(path, bytes));
    EXPECT_NE(std::string::npos, std::string(bytes.begin(), bytes.end()).find("*** Start of FileIO Manager log ***"));
    // a log that can't be opened leaves the manager without a logger
    wcscpy(info.szLogPath, data.dir.file(L"no\\such\\folder\\fio.log").c_str());
    mgr = CreateBare(ZVFIO_CREATE_LOGGER, &info);
    ASSERT_NE(nullptr, mgr);
    EXPECT_EQ(E_FAIL, mgr->GetLogger(&got));
    mgr->Release();
}

TEST(FioManagerCore, SurrogateTableIsSharedByManagers)
{
    DataFolder data;
    _ZVFIO_KEYED_INFO first = {}, second = {};
    first.metrics.mask[27] = 1;
    first.metrics.values[27] = 3;
    second.metrics.mask[27] = 1;
    second.metrics.values[27] = 8;
    IZvFileIOMgrForApp *a = CreateBare(0, &first);
    ASSERT_NE(nullptr, g_pZvFioSurrogateTable);
    ZVFIO_SURROGATETABLE *table = g_pZvFioSurrogateTable;
    IZvFileIOMgrForApp *b = CreateBare(ZVFIO_CREATE_NOVERSION, &second);
    EXPECT_EQ(table, g_pZvFioSurrogateTable);
    EXPECT_EQ(2, table->refs);
    EXPECT_EQ(static_cast<IUnknown *>(a), table->firstManager);
    EXPECT_EQ(3, table->metrics.values[27]);
    EXPECT_EQ(0u, table->flags & ZVFIO_CREATE_NOVERSION);
    EXPECT_FALSE(table->isSurrogate);
    EXPECT_FALSE(ZVFileIO_IsSurrogateProcessId(GetCurrentProcessId()));

    // routing: a stale routed flag goes with a group of -1 (the groups of
    // real plug-ins, and a record inside a surrogate, are the routing tests')
    ZVFIO_PLUGININFO rec = {};
    rec.Surrogate = -1;
    rec.dwRecordFlags = ZVFIO_RF_SURROGATE;
    EXPECT_FALSE(ZvFioDeriveRouting(&rec));
    EXPECT_EQ(0u, rec.dwRecordFlags & ZVFIO_RF_SURROGATE);

    b->Release();
    EXPECT_EQ(1, g_pZvFioSurrogateTable->refs);
    a->Release();
    EXPECT_EQ(nullptr, g_pZvFioSurrogateTable);
}

TEST(FioManagerCore, SurrogateManagerCreation)
{
    DataFolder data;
    _ZVFIO_INITIALIZATION_METRICS m = {};
    m.mask[79] = 1;
    m.values[79] = 2;
    IZvFileIOMgrForApp *mgr = nullptr;
    ASSERT_EQ(S_OK, ZVFileIO_CreateSurrogateManagerInstance(&mgr, 0, &m, data.dir.file(L"host.exe").c_str()));
    ASSERT_NE(nullptr, mgr);
    ASSERT_NE(nullptr, g_pZvFioSurrogateTable);
    EXPECT_TRUE(g_pZvFioSurrogateTable->isSurrogate);
    EXPECT_TRUE(static_cast<CZvFileIOManager *>(mgr)->isSurrogate());
    LONG v = 0;
    mgr->GetMetric(79, &v);
    EXPECT_EQ(2, v);
    EXPECT_EQ(S_OK, mgr->CleanUp());
    EXPECT_EQ(nullptr, g_pZvFioSurrogateTable);
    mgr->Release();
}
