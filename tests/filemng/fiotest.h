// Helpers of the manager's tests.
#pragma once
#include "testutil.h"
#include "fiohost.h"
#include "filemng/filemng.h"
#include "filemng/fiodiscovery.h"
#include "filemng/zvprofile.h"
#include <string>

namespace fiotest {

inline std::wstring GuidText(const GUID &g)
{
    wchar_t t[40];
    ZvFioGuidText(g, t);
    return t;
}

using zvtest::Ini;

// Gives a file a last write time that differs by the minute.
inline void SetMinute(const std::wstring &path, WORD minute)
{
    HANDLE h = CreateFileW(path.c_str(), FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    SYSTEMTIME st = {2022, 3, 0, 4, 5, minute, 0, 0};
    FILETIME ft;
    SystemTimeToFileTime(&st, &ft);
    SetFileTime(h, nullptr, nullptr, &ft);
    CloseHandle(h);
}

// The process-wide data files beside a host that doesn't exist, in a
// temporary folder.
struct DataFolder {
    zvtest::TempDir dir;
    DataFolder()
    {
        ZvFioResetDataPaths();
        ZvFioResolveDataPaths(ZVFIO_CREATE_BESIDEPROGRAM, dir.file(L"host.exe").c_str());
    }
    ~DataFolder() { ZvFioResetDataPaths(); }
    std::wstring cacheFile() const
    {
        wchar_t f[MAX_PATH];
        ZvFioGetCacheFileName(f);
        return f;
    }
    std::wstring metricFile() const
    {
        wchar_t f[MAX_PATH];
        ZvFioGetMetricFileName(f);
        return f;
    }
};

// A manager without plug-in list over a data folder.
struct BareManager : DataFolder {
    zvtest::HostManager host{dir.path()};
    IZvFileIOMgrForApp *mgr = host.app;
    CZvFileIOManager *impl = host.mgr;
};

} // namespace fiotest
