// Loading a plug-in DLL and creating objects from a record.
#pragma once
#include "zvbase.h"
#include <stdarg.h>
#include "filemng/fioplugininfo.h"

struct IZvLogger;
class CZvFileIOManager;

// What the listing object of a DLL says about one class.
struct ZVFIO_LISTEDCLASS {
    GUID clsid;
    WCHAR name[MAX_PATH];
    DWORD access;
    DWORD streamType;
    DWORD kept;
    DWORD flags;
};

// Loads the record's DLL (preloads first) and creates `iid` from the class
// factory of the record's plug-in class id, in this process.
HRESULT ZvFioLoadDllAndCreate(ZVFIO_PLUGININFO *record, void **out, REFIID iid);
// The same, or through the surrogate when the record is routed.
HRESULT ZvFioCreateFromRecord(ZVFIO_PLUGININFO *record, void **out, REFIID iid, CZvFileIOManager *manager);
// True when the record is routed and its surrogate couldn't be started or
// reached: a failure then says nothing about the DLL.
bool ZvFioSurrogateUnreachable(const ZVFIO_PLUGININFO *record);
// Loads the ";"-separated modules of `list` that lie inside `folder`.
// S_FALSE when nothing was loaded.
HRESULT ZvFioPreloadModules(const WCHAR *folder, const WCHAR *list);
// Asks the DLL of `record` (whose class id is the listing id) for its classes.
HRESULT ZvFioListDll(ZVFIO_PLUGININFO *record, CZvFileIOManager *manager, ZVFIO_LISTEDCLASS *classes, int maximum,
                     int *count);

// A line at level 4 of the manager's log, formatted into at most 512 characters.
void ZvFioLogWrite(IZvLogger *logger, const char *file, int line, const WCHAR *format, ...);
void ZvFioLogWriteV(IZvLogger *logger, const char *file, int line, const WCHAR *format, va_list args);
