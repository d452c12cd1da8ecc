#include "filemng/fiodiscovery.h"
#include "filemng/filemng.h"
#include "filemng/fioload.h"
#include "filemng/surrogatetable.h"
#include "filemng/zvprofile.h"
#include "zvlist.h"
#include "zvpaths.h"
#include <shlobj.h>
#include <shlwapi.h>
#include <stdio.h>
#include <wchar.h>
#include <wctype.h>
#if __has_include("zvlang.h")
#include "zvlang.h"
#define ZVFIO_HAVE_LANG 1
#endif

// {F6E48972-515B-4A5E-B316-A46A03C9C3C0}
const GUID CLSID_ZvFioPluginListing = {0xF6E48972, 0x515B, 0x4A5E, {0xB3, 0x16, 0xA4, 0x6A, 0x03, 0xC9, 0xC3, 0xC0}};

WCHAR g_zvfioProductName[128];
static ZVFIO_DATAPATHS g_paths;
static CRITICAL_SECTION *PathLock()
{
    static CRITICAL_SECTION cs;
    static LONG once;
    if (InterlockedCompareExchange(&once, 1, 0) == 0) {
        InitializeCriticalSection(&cs);
        InterlockedExchange(&once, 2);
    }
    while (once != 2)
        Sleep(0);
    return &cs;
}

DWORD ZvFioKernelLangID()
{
#ifdef ZVFIO_HAVE_LANG
    HZVLANG lang = ZvLang_GetKernelLang();
    return lang ? (DWORD)ZvLang_GetLCID(lang) : 0;
#else
    return 0;
#endif
}

HRESULT ZvFioCreateRecordList(tZVLIST **list)
{
    return ZvList_CreateExZ(list, 0, 0, 0, ZVLIST_THREADSAFE);
}

static void ProgramPath(WCHAR *out)
{
    if (FAILED(ZvGetModuleFileName(NULL, out, MAX_PATH)))
        out[0] = 0;
}

HRESULT ZvFioPluginVersionName(DWORD flags, const WCHAR *path, WCHAR *out, int length)
{
    if (!out || length < 1)
        return E_INVALIDARG;
    out[0] = 0;
    WCHAR program[MAX_PATH];
    if (!path || !*path) {
        ProgramPath(program);
        path = program;
    }
    WCHAR name[MAX_PATH] = L"";
    bool haveFixed = false;
    VS_FIXEDFILEINFO fixed = {};
    DWORD handle = 0;
    DWORD size = GetFileVersionInfoSizeW(path, &handle);
    if (size) {
        BYTE *data = (BYTE *)ZvMem_Alloc(size);
        if (data && GetFileVersionInfoW(path, 0, size, data)) {
            void *p = NULL;
            UINT len = 0;
            if (VerQueryValueW(data, L"\\", &p, &len) && p && len >= sizeof(VS_FIXEDFILEINFO)) {
                fixed = *(VS_FIXEDFILEINFO *)p;
                haveFixed = true;
            }
            DWORD translation = 0x04E404E4;
            if (VerQueryValueW(data, L"\\VarFileInfo\\Translation", &p, &len) && p && len >= 4)
                translation = *(DWORD *)p;
            WCHAR query[80];
            _snwprintf(query, 80, L"\\StringFileInfo\\%04hX%04hX\\ProductName", LOWORD(translation),
                       HIWORD(translation));
            query[79] = 0;
            if (VerQueryValueW(data, query, &p, &len) && p && len > 0 && *(WCHAR *)p) {
                _snwprintf(name, MAX_PATH, L"%s", (WCHAR *)p);
                name[MAX_PATH - 1] = 0;
            }
        }
        if (data)
            ZvMem_Free(data);
    }
    if (!name[0])
        ZvGetFileNameWithoutPathOrExtension(path, name, MAX_PATH);
    if (!(flags & ZVFIO_CREATE_NOVERSION) && haveFixed) {
        WCHAR ver[32];
        _snwprintf(ver, 32, L"\\%d.%d", (int)HIWORD(fixed.dwProductVersionMS), (int)LOWORD(fixed.dwProductVersionMS));
        ver[31] = 0;
        if (wcslen(name) + wcslen(ver) < MAX_PATH)
            wcscat(name, ver);
    }
    if ((int)wcslen(name) >= length)
        return ZVERR_BUFFER_TOO_SMALL;
    wcscpy(out, name);
    return S_OK;
}

const ZVFIO_DATAPATHS *ZvFioGetDataPaths()
{
    return &g_paths;
}

void ZvFioResetDataPaths()
{
    EnterCriticalSection(PathLock());
    memset(&g_paths, 0, sizeof g_paths);
    g_zvfioProductName[0] = 0;
    LeaveCriticalSection(PathLock());
}

void ZvFioSetProductName(DWORD flags, const WCHAR *path)
{
    WCHAR name[MAX_PATH];
    if (FAILED(ZvFioPluginVersionName(flags, path, name, MAX_PATH)) || !name[0])
        wcscpy(name, L"Unspecified");
    EnterCriticalSection(PathLock());
    // cut where a surrogate's copy would be cut
    _snwprintf(g_zvfioProductName, 128, L"%s", name);
    g_zvfioProductName[127] = 0;
    LeaveCriticalSection(PathLock());
}

// The user folder `csidl` with the product name below it, made if missing.
static bool UserFolder(int csidl, const WCHAR *product, WCHAR *out)
{
    if (FAILED(SHGetFolderPathW(NULL, csidl | CSIDL_FLAG_CREATE, NULL, 0, out)))
        return false;
    if (!PathAppendW(out, product))
        return false;
    ZvCreateDirectory(out, NULL);
    DWORD a = GetFileAttributesW(out);
    return a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_DIRECTORY);
}

HRESULT ZvFioResolveDataPaths(DWORD flags, const WCHAR *path)
{
    EnterCriticalSection(PathLock());
    if (g_paths.known) {
        LeaveCriticalSection(PathLock());
        return S_OK;
    }
    WCHAR program[MAX_PATH];
    if (!path || !*path) {
        ProgramPath(program);
        path = program;
    }
    ZVFIO_DATAPATHS p;
    memset(&p, 0, sizeof p);
    p.userMetricFolder = p.userCacheFolder = !(flags & ZVFIO_CREATE_BESIDEPROGRAM);
    if (g_zvfioProductName[0])
        _snwprintf(p.productName, MAX_PATH, L"%s", g_zvfioProductName);
    else
        ZvFioPluginVersionName(flags, path, p.productName, MAX_PATH);
    WCHAR folderOfPath[MAX_PATH];
    ZvGetPathNameFromFilePath(path, folderOfPath, MAX_PATH);
    WCHAR base[MAX_PATH];
    ZvGetFileNameWithoutPathOrExtension(path, base, MAX_PATH);

    if (!p.userMetricFolder || !UserFolder(CSIDL_APPDATA, p.productName, p.metricFolder)) {
        wcscpy(p.metricFolder, folderOfPath);
        p.userMetricFolder = FALSE;
    }
    if (p.userMetricFolder)
        _snwprintf(p.metricFile, MAX_PATH, L"FFMetrics_%s.ini", L"x86");
    else
        _snwprintf(p.metricFile, MAX_PATH, L"%s%s FFMetrics_%s.ini", base, L"", L"x86");

    if (!p.userCacheFolder || !UserFolder(CSIDL_LOCAL_APPDATA, p.productName, p.cacheFolder)) {
        wcscpy(p.cacheFolder, folderOfPath);
        p.userCacheFolder = FALSE;
    }
    // each system language has its own cache
    if (p.userCacheFolder)
        _snwprintf(p.cacheFile, MAX_PATH, L"FFCache_%s_%d.ini", L"x86", (int)GetSystemDefaultLCID());
    else
        _snwprintf(p.cacheFile, MAX_PATH, L"%s%s FFCache_%s_%d.ini", base, L"", L"x86", (int)GetSystemDefaultLCID());
    p.metricFile[MAX_PATH - 1] = p.cacheFile[MAX_PATH - 1] = p.productName[MAX_PATH - 1] = 0;
    p.known = TRUE;
    g_paths = p;
    LeaveCriticalSection(PathLock());
    return S_OK;
}

static void JoinPath(const WCHAR *folder, const WCHAR *file, WCHAR *out)
{
    out[0] = 0;
    if (!folder[0] || !file[0])
        return;
    wcscpy(out, folder);
    if (FAILED(ZvAppendToPathName(out, MAX_PATH, file)))
        out[0] = 0;
}

void ZvFioGetCacheFileName(WCHAR *out)
{
    EnterCriticalSection(PathLock());
    JoinPath(g_paths.cacheFolder, g_paths.cacheFile, out);
    LeaveCriticalSection(PathLock());
}

void ZvFioGetMetricFileName(WCHAR *out)
{
    EnterCriticalSection(PathLock());
    JoinPath(g_paths.metricFolder, g_paths.metricFile, out);
    LeaveCriticalSection(PathLock());
}

// ---------------------------------------------------------------- candidates

HRESULT ZvFioAddPluginCandidate(tZVLIST *list, const WCHAR *path, LONG group, const WCHAR *meritReader,
                                DWORD merit, ZVFIO_PLUGININFO **out)
{
    if (out)
        *out = NULL;
    if (!list || !path || !*path)
        return E_INVALIDARG;
    ZVFIO_PLUGININFO local;
    memset(&local, 0, sizeof local);
    local.cbSize = sizeof(ZVFIO_PLUGININFO);
    local.dwVersion = ZVFIO_RECORD_VERSION;
    local.Surrogate = group;
    local.MeritValue = merit;
    local.LangID = ZvFioKernelLangID();
    if (meritReader && *meritReader && FAILED(CLSIDFromString((LPOLESTR)meritReader, &local.MeritReader)))
        local.MeritValue = 0;
    if (wcslen(path) >= MAX_PATH)
        return ZVERR_BAD_FILENAME;
    wcscpy(local.szPath, path);
    ZvAddExtensionToPathName(local.szPath, MAX_PATH, L"*.dll");

    for (int i = 0; i < list->count; ++i) {
        ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
        if (r && !_wcsicmp(r->szPath, local.szPath))
            return S_OK;
    }
    local.ModTime = ZvDosGetDateTimeUTC(local.szPath);
    if (!local.ModTime)
        return S_OK; // no file: no record, no error
    local.dwRecordFlags = (local.dwRecordFlags & ~(ZVFIO_RF_UNUSABLE | ZVFIO_RF_AMD64)) | ZVFIO_RF_FIRST;
    WORD machine = 0;
    if (FAILED(ZvGetFileExecutableInfo(local.szPath, &machine, NULL)))
        local.dwRecordFlags |= ZVFIO_RF_UNUSABLE;
    else if (machine == IMAGE_FILE_MACHINE_AMD64)
        local.dwRecordFlags |= ZVFIO_RF_AMD64;

    ZVFIO_PLUGININFO *r = ZvFioAllocRecord(&local);
    if (!r)
        return E_OUTOFMEMORY;
    HRESULT hr = ZvList_InsertList(list, -1, &r, 1);
    if (FAILED(hr)) {
        ZvFioFreeRecord(r);
        return hr;
    }
    if (out)
        *out = r;
    return S_OK;
}

static bool OnSkipList(const WCHAR *path, const WCHAR *const *skip, LONG count)
{
    const WCHAR *name = ZvGetFileNamePtrW(path);
    for (LONG i = 0; skip && i < count; ++i)
        if (skip[i] && !_wcsicmp(skip[i], name))
            return true;
    return false;
}

HRESULT ZvFioReadConfigFiles(tZVLIST *list, const WCHAR *folder, const WCHAR *const *skip, LONG skipCount)
{
    WCHAR pattern[MAX_PATH];
    if (_snwprintf(pattern, MAX_PATH, L"%s\\*.Fio2007-Config", folder) < 0)
        return ZVERR_BAD_FILENAME;
    WIN32_FIND_DATAW fd;
    HANDLE find = FindFirstFileW(pattern, &fd);
    if (find == INVALID_HANDLE_VALUE)
        return S_OK;
    HRESULT hr = S_OK;
    WCHAR *keys = (WCHAR *)ZvMem_Alloc(8320 * sizeof(WCHAR));
    if (!keys) {
        FindClose(find);
        return E_OUTOFMEMORY;
    }
    do {
        if (fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
            continue;
        WCHAR file[MAX_PATH];
        if (_snwprintf(file, MAX_PATH, L"%s\\%s", folder, fd.cFileName) < 0)
            continue;
        file[MAX_PATH - 1] = 0;
        DWORD n = GetPrivateProfileStringW(L"FileIO Plug-Ins", NULL, L"", keys, 8320, file);
        for (WCHAR *key = keys; key < keys + n && *key && SUCCEEDED(hr); key += wcslen(key) + 1) {
            WCHAR rel[520], dll[520];
            GetPrivateProfileStringW(L"FileIO Plug-Ins", key, L"", rel, 520, file);
            if (!rel[0])
                continue;
            if (!PathCombineW(dll, folder, rel))
                wcscpy(dll, rel);
            if (OnSkipList(dll, skip, skipCount))
                continue;
            LONG group = (LONG)GetPrivateProfileIntW(key, L"Surrogate", -1, file);
            WCHAR reader[128];
            GetPrivateProfileStringW(key, L"Reader", L"", reader, 128, file);
            DWORD merit = 0;
            if (reader[0])
                merit = GetPrivateProfileIntW(key, reader, 0, file);
            ZVFIO_PLUGININFO *added = NULL;
            hr = ZvFioAddPluginCandidate(list, dll, group, reader, merit, &added);
            // modules the plug-in wants loaded before it
            WCHAR preload[MAX_PATH];
            if (added && GetPrivateProfileStringW(key, L"PreloadModules", L"", preload, MAX_PATH, file))
                ZvFioStrSet(&added->PreloadModules, preload);
        }
    } while (SUCCEEDED(hr) && FindNextFileW(find, &fd));
    FindClose(find);
    ZvMem_Free(keys);
    return hr;
}

// ---------------------------------------------------------------- extension lists

WCHAR *ZvFioNormaliseExtList(const WCHAR *text)
{
    if (!text)
        text = L"";
    size_t n = wcslen(text);
    WCHAR *out = (WCHAR *)ZvMem_Alloc((n + 1) * sizeof(WCHAR));
    if (!out)
        return NULL;
    size_t o = 0;
    const WCHAR *p = text;
    bool first = true;
    for (;;) {
        const WCHAR *end = wcschr(p, L';');
        if (!end)
            end = p + wcslen(p);
        const WCHAR *a = p, *b = end;
        while (a < b && iswspace(*a))
            ++a;
        while (b > a && iswspace(b[-1]))
            --b;
        if (!first)
            out[o++] = L';';
        first = false;
        memcpy(out + o, a, (size_t)(b - a) * sizeof(WCHAR));
        o += (size_t)(b - a);
        if (!*end)
            break;
        p = end + 1;
    }
    out[o] = 0;
    return out;
}

// ---------------------------------------------------------------- cache reading

static void DllSectionName(const ZVFIO_PLUGININFO *r, WCHAR *out)
{
    if (FAILED(ZvGetFileNameWithoutPathOrExtension(r->szPath, out, MAX_PATH)))
        out[0] = 0;
}

// Classes whose strings are refreshed at every start unless exempted.
static const GUID kForcedRefresh[3] = {
    {0xDDDB20E0, 0x9EAE, 0x11D3, {0xBB, 0x2E, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0x85CB92DF, 0x8309, 0x42F2, {0xAD, 0x61, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0x4A5BFB35, 0x1417, 0x4785, {0x9E, 0x4E, 0, 0, 0, 0, 0, 0}},
};

struct CachedClass {
    GUID clsid;
    WCHAR name[129];
    int access, flags, streamType;
    DWORD modTime;
    LONG group;
    DWORD merit;
};

// Fills `r` from the class section. S_OK when valid; S_FALSE when the class's
// strings are stale (other ModTime or language): the record is then loaded
// at start to refresh them; ZVERR_MALFORMED when the section is incomplete.
static HRESULT FillRecordFromCache(CZvProfile &cache, ZVFIO_PLUGININFO *r, const CachedClass &c, IZvLogger *logger,
                                   BOOL logFlag)
{
    // empty the record, keeping what the candidate step found
    // preload modules named by the configuration stay
    ZvFioStrSet(&r->DialogName, NULL);
    ZvFioStrSet(&r->ExtReader, NULL);
    ZvFioStrSet(&r->ExtRenderer, NULL);
    r->clsidPlugin = c.clsid;
    wcscpy(r->szName, c.name);
    r->Access = (DWORD)c.access;
    r->Flags = (DWORD)c.flags;
    r->StreamType = (DWORD)c.streamType;
    r->dwLoadFlags = r->Flags & ZVFIO_LF_NOFORCE;
    r->Surrogate = c.group;
    r->MeritValue = c.merit;
    memset(&r->MeritReader, 0, sizeof r->MeritReader); // the reader id was only a test
    memset(&r->clsidReader, 0, sizeof(GUID));
    memset(&r->clsidRenderer, 0, sizeof(GUID));
    r->nReaderState = r->nRendererState = ZVFIO_STATE_NONE;
    r->dwRecordFlags &= ~(ZVFIO_RF_UNUSABLE | ZVFIO_RF_EXCLUDED | ZVFIO_RF_DIRTY);

    WCHAR section[40];
    ZvFioGuidText(c.clsid, section);
    cache.SetSection(section);
    DWORD modTime = (DWORD)cache.GetInt(L"ModTime", 0);
    DWORD langId = (DWORD)cache.GetInt(L"LangID", -1);
    DWORD kernelLang = ZvFioKernelLangID();
    HRESULT hr = S_OK;
    if (modTime != c.modTime || langId != kernelLang) {
        hr = S_FALSE;
        r->LangID = kernelLang;
    } else {
        r->LangID = langId;
        WCHAR text[1024];
        if (!r->PreloadModules && cache.GetString(L"PreloadModules", NULL, text, 1024) && text[0])
            r->PreloadModules = ZvFioStrDup(text);
        bool found = false;
        if (r->Access & ZVFIO_ACCESS_READER) {
            GUID ids[2];
            if (cache.GetClassIds(L"Reader", ids, 2) == 1) {
                r->clsidReader = ids[0];
                found = true;
                if (cache.GetString(L"ExtReader", NULL, text, 1024))
                    r->ExtReader = ZvFioNormaliseExtList(text);
            } else {
                r->nReaderState = ZVFIO_STATE_FAILED;
            }
        }
        if (r->Access & ZVFIO_ACCESS_RENDERER) {
            GUID ids[2];
            if (cache.GetClassIds(L"Renderer", ids, 2) == 1) {
                r->clsidRenderer = ids[0];
                found = true;
                if (cache.GetString(L"ExtRenderer", NULL, text, 1024))
                    r->ExtRenderer = ZvFioNormaliseExtList(text);
                else
                    hr = ZVERR_MALFORMED;
            } else {
                r->nRendererState = ZVFIO_STATE_FAILED;
            }
        }
        if (cache.GetString(L"DialogName", NULL, text, 1024))
            r->DialogName = ZvFioStrDup(text);
        else if (found)
            hr = ZVERR_MALFORMED;
        if (hr == S_OK && logFlag && logger) {
            const WCHAR *what = (r->Access & ZVFIO_ACCESS_READER) && (r->Access & ZVFIO_ACCESS_RENDERER)
                                    ? L"reader|renderer"
                                    : (r->Access & ZVFIO_ACCESS_RENDERER) ? L"renderer" : L"reader";
            ZvFioLogWrite(logger, __FILE__, __LINE__, L" Loading cached %s plugin '%s' from path '%s' ", what,
                          r->szName, r->szPath);
        }
    }
    if (hr == S_FALSE) {
        r->dwLoadFlags |= ZVFIO_LF_LOADONINIT;
        r->dwRecordFlags |= ZVFIO_RF_DIRTY;
    }
    if (!(r->dwLoadFlags & ZVFIO_LF_NOFORCE))
        for (const GUID &g : kForcedRefresh)
            if (ZvFioSameClass10(g, c.clsid))
                r->dwLoadFlags |= ZVFIO_LF_LOADONINIT;
    return hr;
}

HRESULT ZvFioReadPluginCache(tZVLIST *list, BOOL *allValid, IZvLogger *logger, BOOL logFlag)
{
    if (allValid)
        *allValid = TRUE;
    if (!list)
        return E_INVALIDARG;
    WCHAR file[MAX_PATH];
    ZvFioGetCacheFileName(file);
    CZvProfile cache(file);
    bool exists = file[0] && cache.FileExists();
    int count = list->count;
    for (int i = 0; i < list->count && count > 0; ++i, --count) {
        ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
        if (!r)
            continue;
        if (!exists) {
            r->dwRecordFlags |= ZVFIO_RF_UNCACHED;
            if (allValid)
                *allValid = FALSE;
            continue;
        }
        WCHAR section[MAX_PATH];
        DllSectionName(r, section);
        cache.SetSection(section);
        DWORD modTime = (DWORD)cache.GetInt(L"ModTime", 0);
        LONG group = cache.GetInt(L"Surrogate", 0);
        DWORD merit = (DWORD)cache.GetInt(L"MeritValue", 0);
        WCHAR meritReader[64], path[MAX_PATH];
        cache.GetString(L"MeritReader", L"_._", meritReader, 64);
        cache.GetString(L"Path", L"_._", path, MAX_PATH);
        GUID meritId;
        if (meritReader[0] != L'{' || FAILED(CLSIDFromString(meritReader, &meritId)))
            merit = 0;
        if (modTime != r->ModTime || _wcsicmp(path, r->szPath)) {
            r->dwRecordFlags |= ZVFIO_RF_UNCACHED;
            if (allValid)
                *allValid = FALSE;
            continue;
        }
        GUID ids[16];
        int n = cache.GetClassIds(NULL, ids, 16);
        ZVFIO_PLUGININFO *extras[16] = {};
        bool ok = true;
        HRESULT hr = S_OK;
        for (int k = 1; k < n; ++k) {
            extras[k] = ZvFioAllocRecord(r);
            if (!extras[k]) {
                hr = E_OUTOFMEMORY;
                break;
            }
            extras[k]->dwRecordFlags &= ~ZVFIO_RF_FIRST;
        }
        if (FAILED(hr)) {
            for (ZVFIO_PLUGININFO *e : extras)
                ZvFioFreeRecord(e);
            return hr;
        }
        for (int k = 0; k < n && ok; ++k) {
            ZVFIO_PLUGININFO *target = k ? extras[k] : r;
            if (ZvFioIsExcludedClass(ids[k])) {
                target->clsidPlugin = ids[k];
                target->dwRecordFlags |= ZVFIO_RF_UNUSABLE | ZVFIO_RF_EXCLUDED;
                continue;
            }
            CachedClass c;
            memset(&c, 0, sizeof c);
            c.clsid = ids[k];
            c.modTime = modTime;
            c.group = group;
            c.merit = merit;
            WCHAR key[40];
            ZvFioGuidText(ids[k], key);
            cache.SetSection(section);
            if (!cache.GetString(key, NULL, c.name, 129))
                c.name[0] = 0;
            WCHAR classSection[MAX_PATH + 40];
            _snwprintf(classSection, MAX_PATH + 40, L"%s.%s", section, key);
            classSection[MAX_PATH + 39] = 0;
            cache.SetSection(classSection);
            c.access = cache.GetInt(L"Access", -1);
            c.flags = cache.GetInt(L"Flags", -1);
            c.streamType = cache.GetInt(L"StreamType", -1);
            if (c.access == -1 || c.flags == -1 || c.streamType == -1) {
                ok = false;
                break;
            }
            HRESULT fill = FillRecordFromCache(cache, target, c, logger, logFlag);
            if (FAILED(fill))
                ok = false;
        }
        if (ok) {
            if (n == 0)
                r->dwRecordFlags |= ZVFIO_RF_UNUSABLE; // a DLL that listed no class
            for (int k = 1; k < n; ++k) {
                extras[k]->dwRecordFlags &= ~(ZVFIO_RF_UNCACHED | ZVFIO_RF_FIRST);
                ZvList_InsertList(list, i + k, &extras[k], 1);
            }
            if (n > 1)
                i += n - 1;
            r->dwRecordFlags &= ~ZVFIO_RF_UNCACHED;
        } else {
            for (int k = 1; k < n; ++k)
                ZvFioFreeRecord(extras[k]);
            r->dwRecordFlags |= ZVFIO_RF_UNCACHED;
            if (allValid)
                *allValid = FALSE;
        }
    }
    return S_OK;
}

// ---------------------------------------------------------------- listing pass

HRESULT ZvFioGrovelPluginDlls(tZVLIST *list, BOOL all, CZvFileIOManager *manager)
{
    if (!list)
        return E_INVALIDARG;
    for (int i = 0; i < list->count; ++i) {
        ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
        if (!r)
            continue;
        DWORD need = ZVFIO_RF_UNCACHED | ZVFIO_RF_FIRST;
        if (!all && (r->dwRecordFlags & need) != need)
            continue;
        ZVFIO_PLUGININFO work = *r;
        work.clsidPlugin = CLSID_ZvFioPluginListing;
        work.hModule = NULL;
        work.pFactory = NULL;
        work.PreloadModules = r->PreloadModules; // borrowed for the load only
        work.dwRecordFlags &= ~ZVFIO_RF_PRELOADED;
        DWORD oldFlags = r->dwRecordFlags;
        r->dwRecordFlags &= ~ZVFIO_RF_DIRTY;

        ZVFIO_LISTEDCLASS classes[16];
        int count = 0;
        HRESULT hr = E_FAIL;
        if (!(oldFlags & ZVFIO_RF_UNUSABLE))
            hr = ZvFioListDll(&work, manager, classes, 16, &count);
        if (work.dwRecordFlags & ZVFIO_RF_PRELOADED) {
            r->dwRecordFlags |= ZVFIO_RF_PRELOADED;
        }
        if (hr == E_OUTOFMEMORY)
            return hr;
        if (FAILED(hr) && ZvFioSurrogateUnreachable(r)) {
            // Not the DLL's fault: it stays unlisted and out of the cache, so
            // that the next start asks it again.
            r->dwRecordFlags |= ZVFIO_RF_UNUSABLE | ZVFIO_RF_UNCACHED;
            r->hrSurrogate = hr;
            if (manager)
                manager->log(__FILE__, __LINE__, L" The surrogate of '%s' could not be started: 0x%08lX", r->szPath,
                             (unsigned long)hr);
            continue;
        }
        // a DLL that can't be listed is remembered as unusable until its ModTime changes
        r->dwRecordFlags |= ZVFIO_RF_UNUSABLE | ZVFIO_RF_DIRTY;
        if (FAILED(hr)) {
            if (work.hModule)
                FreeLibrary(work.hModule);
            continue;
        }
        bool routed = (work.dwRecordFlags & ZVFIO_RF_SURROGATE) != 0;
        int usable = 0;
        for (int k = 0; k < count; ++k) {
            ZVFIO_PLUGININFO *target = r;
            if (k > 0) {
                target = ZvFioAllocRecord(r);
                if (!target)
                    return E_OUTOFMEMORY;
                target->dwRecordFlags &= ~ZVFIO_RF_FIRST;
                if (FAILED(ZvList_InsertList(list, i + k, &target, 1))) {
                    ZvFioFreeRecord(target);
                    return E_OUTOFMEMORY;
                }
            }
            const ZVFIO_LISTEDCLASS &c = classes[k];
            if (k == 0) {
                // whatever a rejected cache entry left behind goes
                ZvFioStrSet(&target->DialogName, NULL);
                ZvFioStrSet(&target->ExtReader, NULL);
                ZvFioStrSet(&target->ExtRenderer, NULL);
                memset(&target->clsidReader, 0, sizeof(GUID));
                memset(&target->clsidRenderer, 0, sizeof(GUID));
                target->nReaderState = target->nRendererState = ZVFIO_STATE_NONE;
            }
            target->clsidPlugin = c.clsid;
            wcscpy(target->szName, c.name);
            target->Access = c.access;
            target->StreamType = c.streamType;
            target->dwSpare1 = c.kept;
            target->Flags = c.flags;
            target->dwLoadFlags = c.flags;
            target->LangID = ZvFioKernelLangID();
            target->dwRecordFlags = (oldFlags & ZVFIO_RF_AMD64) | (routed ? ZVFIO_RF_SURROGATE : 0) | ZVFIO_RF_DIRTY |
                                    (r->dwRecordFlags & ZVFIO_RF_PRELOADED && k == 0 ? ZVFIO_RF_PRELOADED : 0) |
                                    (k == 0 ? ZVFIO_RF_FIRST : 0);
            if (ZvFioIsExcludedClass(c.clsid)) {
                target->dwRecordFlags |= ZVFIO_RF_UNUSABLE | ZVFIO_RF_EXCLUDED;
            } else {
                target->dwLoadFlags |= ZVFIO_LF_LOADONINIT;
                ++usable;
            }
        }
        i += count > 1 ? count - 1 : 0;
        if (!usable && work.hModule)
            FreeLibrary(work.hModule);
    }
    return S_OK;
}

// ---------------------------------------------------------------- cache writing

static void WriteRecordSections(CZvProfile &cache, tZVLIST *list, int index)
{
    ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, index);
    WCHAR dll[MAX_PATH];
    DllSectionName(r, dll);
    WCHAR key[40];
    if (r->dwRecordFlags & ZVFIO_RF_FIRST) {
        cache.SetSection(dll);
        cache.ClearSection();
        cache.SetString(L"Path", r->szPath);
        cache.SetInt(L"ModTime", (int)r->ModTime);
        cache.SetInt(L"Surrogate", r->Surrogate);
        if (r->MeritValue) {
            cache.SetInt(L"MeritValue", (int)r->MeritValue);
            cache.SetClassId(L"MeritReader", r->MeritReader, NULL);
        }
        // every class of the DLL: the records behind this one without the first-record flag
        for (int k = index; k < list->count; ++k) {
            ZVFIO_PLUGININFO *c = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, k);
            if (!c || (k > index && (c->dwRecordFlags & ZVFIO_RF_FIRST)))
                break;
            if (!(c->dwRecordFlags & ZVFIO_RF_UNUSABLE))
                cache.SetClassId(NULL, c->clsidPlugin, c->szName);
        }
    }
    if (r->dwRecordFlags & ZVFIO_RF_UNUSABLE)
        return;
    ZvFioGuidText(r->clsidPlugin, key);
    WCHAR classSection[MAX_PATH + 40];
    _snwprintf(classSection, MAX_PATH + 40, L"%s.%s", dll, key);
    classSection[MAX_PATH + 39] = 0;
    cache.SetSection(classSection);
    cache.SetInt(L"Access", (int)r->Access);
    cache.SetInt(L"Flags", (int)r->Flags);
    cache.SetInt(L"StreamType", (int)r->StreamType);

    cache.SetSection(key);
    cache.ClearSection();
    cache.SetString(L"DialogName", r->DialogName ? r->DialogName : L"");
    cache.SetInt(L"LangID", (int)r->LangID);
    cache.SetInt(L"ModTime", (int)r->ModTime);
    cache.SetString(L"PreloadModules", r->PreloadModules ? r->PreloadModules : L"");
    static const GUID nullId = {};
    if ((r->Access & ZVFIO_ACCESS_READER) && !IsEqualGUID(r->clsidReader, nullId)) {
        cache.SetClassId(L"Reader", r->clsidReader, NULL);
        cache.SetString(L"ExtReader", r->ExtReader ? r->ExtReader : L"");
    }
    if ((r->Access & ZVFIO_ACCESS_RENDERER) && !IsEqualGUID(r->clsidRenderer, nullId)) {
        cache.SetClassId(L"Renderer", r->clsidRenderer, NULL);
        cache.SetString(L"ExtRenderer", r->ExtRenderer ? r->ExtRenderer : L"");
    }
}

// Replaces `file` by `temp` in one step; a reader of another process may
// hold the old file open for a moment.
static bool ReplaceFile(const WCHAR *temp, const WCHAR *file)
{
    for (int attempt = 0; attempt < 40; ++attempt) {
        if (MoveFileExW(temp, file, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
            return true;
        Sleep(25);
    }
    return false;
}

HRESULT ZvFioWritePluginCache(tZVLIST *list, DWORD flags)
{
    if (!list || list->count == 0)
        return 1;
    if (list->count < 0)
        return E_UNEXPECTED;
    WCHAR file[MAX_PATH];
    ZvFioGetCacheFileName(file);
    if (!file[0])
        return E_UNEXPECTED;
    bool any = false;
    for (int i = 0; i < list->count && !any; ++i) {
        ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
        any = r && ((flags & 1) || (r->dwRecordFlags & ZVFIO_RF_DIRTY));
    }
    if (!any && !(flags & 2))
        return S_OK;
    // The changes go to a new file that then replaces the cache whole: other
    // processes read the old cache or the new one, never a half-written one.
    // A name of its own for each write, so that no cached copy of an older
    // temporary file is taken for it.
    static volatile LONG serial;
    WCHAR temp[MAX_PATH];
    int put = _snwprintf(temp, MAX_PATH, L"%s.%lx-%lx.tmp", file, (unsigned long)GetCurrentProcessId(),
                         (unsigned long)InterlockedIncrement(&serial));
    if (put < 0 || put >= MAX_PATH)
        return ZVERR_BAD_FILENAME;
    ::DeleteFileW(temp);
    CZvProfile cache(temp);
    CZvProfile current(file);
    if (!(flags & 2) && current.FileExists() && !CopyFileW(file, temp, FALSE))
        return ZVERR_FILE_WRITE;
    for (int i = 0; i < list->count; ++i) {
        ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
        if (!r || (!(flags & 1) && !(r->dwRecordFlags & ZVFIO_RF_DIRTY)))
            continue;
        // single write failures are noticed and ignored
        WriteRecordSections(cache, list, i);
        GetLastError();
    }
    cache.Flush();
    if (GetFileAttributesW(temp) == INVALID_FILE_ATTRIBUTES) {
        // a deleted cache with nothing to write
        if (flags & 2)
            current.DeleteFile();
    } else if (!ReplaceFile(temp, file)) {
        ::DeleteFileW(temp);
        return ZVERR_FILE_WRITE; // the records stay marked for the next write
    }
    for (int i = 0; i < list->count; ++i) {
        ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
        if (r && ((flags & 1) || (r->dwRecordFlags & ZVFIO_RF_DIRTY)))
            r->dwRecordFlags &= ~ZVFIO_RF_DIRTY;
    }
    return S_OK;
}
