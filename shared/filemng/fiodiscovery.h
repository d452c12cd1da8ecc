// Plug-in discovery: the data folders, the configuration files that name
// candidate DLLs, and the plug-in cache.
#pragma once
#include "zvbase.h"
#include "filemng/fioplugininfo.h"

struct tZVLIST;
struct IZvLogger;
class CZvFileIOManager;

// Process-wide data path state, resolved once.
struct ZVFIO_DATAPATHS {
    BOOL known;
    BOOL userMetricFolder;
    BOOL userCacheFolder;
    WCHAR productName[MAX_PATH];
    WCHAR metricFolder[MAX_PATH];
    WCHAR metricFile[MAX_PATH];
    WCHAR cacheFolder[MAX_PATH];
    WCHAR cacheFile[MAX_PATH];
};
const ZVFIO_DATAPATHS *ZvFioGetDataPaths();
// Resolves the folders and file names from the creation flags and a program
// path (null: this program). Only the first call acts.
HRESULT ZvFioResolveDataPaths(DWORD flags, const WCHAR *path);
// Forgets the resolved paths and the product name, so that the next
// creation resolves again.
void ZvFioResetDataPaths();
// Full names of the cache and metric files ("" while unresolved).
void ZvFioGetCacheFileName(WCHAR *out);
void ZvFioGetMetricFileName(WCHAR *out);

// Product name from the program's version resource (see ZVFIO_CREATE_NOVERSION).
HRESULT ZvFioPluginVersionName(DWORD flags, const WCHAR *path, WCHAR *out, int length);

// The process's product name, at most 128 characters: a host's first
// manager sets it from the program, a surrogate takes its host's. It names
// the shared mutex and the data folders.
extern WCHAR g_zvfioProductName[128];
// Sets it from the version resource of `path` (null: this program).
void ZvFioSetProductName(DWORD flags, const WCHAR *path);

// The language that cached strings are kept in: the kernel's.
DWORD ZvFioKernelLangID();

// Discovery steps.
HRESULT ZvFioAddPluginCandidate(tZVLIST *list, const WCHAR *path, LONG group, const WCHAR *meritReader,
                                DWORD merit, ZVFIO_PLUGININFO **out);
HRESULT ZvFioReadPluginCache(tZVLIST *list, BOOL *allValid, IZvLogger *logger, BOOL logFlag);
HRESULT ZvFioGrovelPluginDlls(tZVLIST *list, BOOL all, CZvFileIOManager *manager);
// flags: bit 0 all records, else those with ZVFIO_RF_DIRTY; bit 1 delete the file first.
// A null or empty list gives 1.
HRESULT ZvFioWritePluginCache(tZVLIST *list, DWORD flags);
// ";"-separated patterns with white space trimmed; an empty input gives "".
WCHAR *ZvFioNormaliseExtList(const WCHAR *text);
// Walks *.Fio2007-Config in `folder` and adds every named DLL not on the skip list.
HRESULT ZvFioReadConfigFiles(tZVLIST *list, const WCHAR *folder, const WCHAR *const *skip, LONG skipCount);

// Thread-safe record list.
HRESULT ZvFioCreateRecordList(tZVLIST **list);

// Listing object's class id, under which every plug-in DLL serves its listing.
extern const GUID CLSID_ZvFioPluginListing;
