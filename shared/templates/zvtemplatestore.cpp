// Template folders, the shared and private caches, lookups and last used.
#include "templates/zvtemplatestore.h"
#include "templates/zvtemplatestream.h"
#include "zvpaths.h"
#include "zvprintf.h"
#include <shlobj.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>
#include <map>
#include <new>
#include <string>

namespace {

// {949B8283-0607-4843-8882-F7DE6E26D085}: its old folder has a fixed name.
const GUID kOldNamedRenderer = {0x949B8283, 0x0607, 0x4843, {0x88, 0x82, 0xF7, 0xDE, 0x6E, 0x26, 0xD0, 0x85}};
const wchar_t kUntitled[] = L"(Untitled)";
const wchar_t kDefaultTemplate[] = L"Default Template";

std::wstring g_dataRoot; // a host's own data folder instead of the user's

std::wstring DataRoot()
{
    if (!g_dataRoot.empty())
        return g_dataRoot;
    wchar_t path[MAX_PATH];
    if (FAILED(SHGetFolderPathW(NULL, CSIDL_APPDATA | CSIDL_FLAG_CREATE, NULL, 0, path)))
        return L"";
    return path;
}

HRESULT ClassFolderName(IZvRenderFileClass *cls, std::wstring *name)
{
    ZVFIO_FILECLASS_INFO_TEXT id = ZVFIO_INFOTEXT_SHORTNAME;
    BSTR text = NULL;
    HRESULT hr = cls->GetInfoText(&id, 1, &text);
    if (FAILED(hr) || !text) {
        SysFreeString(text);
        return FAILED(hr) ? hr : E_FAIL;
    }
    wchar_t buffer[MAX_PATH];
    wcsncpy(buffer, text, MAX_PATH - 1);
    buffer[MAX_PATH - 1] = 0;
    SysFreeString(text);
    _wcslwr(buffer);
    ZvValidateFileName(buffer, TRUE);
    *name = buffer;
    return S_OK;
}

bool FolderPath(const std::wstring &root, const wchar_t *a, const wchar_t *b, const std::wstring &c,
                std::wstring *out)
{
    wchar_t path[MAX_PATH];
    int n = _snwprintf(path, MAX_PATH, L"%s\\%s\\%s\\%s\\", root.c_str(), a, b, c.c_str());
    if (n < 0 || n >= MAX_PATH)
        return false; // too long for a path: the folder isn't used
    *out = path;
    return true;
}

bool IsFolder(const std::wstring &path)
{
    DWORD a = GetFileAttributesW(path.c_str());
    return a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_DIRECTORY);
}

// Creates every missing level; a file in the folder's place is deleted.
HRESULT MakeFolder(const std::wstring &path)
{
    std::wstring p = path;
    while (!p.empty() && (p.back() == L'\\' || p.back() == L'/'))
        p.pop_back();
    DWORD a = GetFileAttributesW(p.c_str());
    if (a != INVALID_FILE_ATTRIBUTES && !(a & FILE_ATTRIBUTE_DIRECTORY))
        DeleteFileW(p.c_str());
    for (size_t i = 3; i <= p.size(); i++)
        if (i == p.size() || p[i] == L'\\')
            CreateDirectoryW(p.substr(0, i).c_str(), NULL);
    return IsFolder(p) ? S_OK : HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
}

bool SameName(const tagZVTEMPLATExV2 *a, const tagZVTEMPLATExV2 *b)
{
    return _wcsicmp(ZvFio_GetTemplateName(a), ZvFio_GetTemplateName(b)) == 0;
}

void ClearFolder(ZVTEMPLATEFOLDER *f)
{
    for (tagZVTEMPLATExV2 *t : f->templates)
        free(t);
    f->templates.clear();
    f->names.clear();
}

HRESULT ScanFolder(ZVTEMPLATEFOLDER *f, IZvRenderFileClass *cls)
{
    WIN32_FIND_DATAW fd;
    HANDLE find = FindFirstFileW((std::wstring(f->path) + L"*.zvt*").c_str(), &fd);
    if (find == INVALID_HANDLE_VALUE)
        return S_OK;
    bool seenOld = false, seenNew = false;
    HRESULT hr = S_OK;
    do {
        if (fd.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_SYSTEM))
            continue;
        const wchar_t *ext = ZvGetFileNameExtensionPtrW(fd.cFileName);
        if (ext && _wcsicmp(ext, L".zvt") == 0)
            seenOld = true;
        else if (ext && _wcsicmp(ext, L".zvt2") == 0)
            seenNew = true;
        tagZVTEMPLATExV2 *t = NULL;
        hr = ZvFio_LoadRawUserTemplate(cls, (std::wstring(f->path) + fd.cFileName).c_str(), &t);
        if (hr == E_ZVTEMPLATE_BAD || hr == ZVERR_TEMPLATE_REFUSED) {
            hr = S_OK;
            continue;
        }
        if (FAILED(hr))
            break;
        wchar_t base[MAX_PATH];
        ZvGetFileNameWithoutPathOrExtension(fd.cFileName, base, MAX_PATH);
        if (_wcsicmp(ZvFio_GetTemplateName(t), kUntitled) == 0 || _wcsicmp(base, kUntitled) == 0) {
            free(t);
            continue;
        }
        f->templates.push_back(t);
        f->names.push_back(fd.cFileName);
    } while (FindNextFileW(find, &fd));
    FindClose(find);
    if (seenOld || seenNew)
        f->kind = seenOld && seenNew ? ZVTEMPLATEFOLDER_BOTH : seenOld ? ZVTEMPLATEFOLDER_OLDONLY
                                                                       : ZVTEMPLATEFOLDER_NEWONLY;
    return hr;
}

// The manager's one cache, by the manager's identity.
CRITICAL_SECTION *CacheLock()
{
    static CRITICAL_SECTION lock;
    static LONG once;
    if (InterlockedCompareExchange(&once, 1, 0) == 0) {
        InitializeCriticalSection(&lock);
        InterlockedExchange(&once, 2);
    }
    while (once != 2)
        Sleep(0);
    return &lock;
}
std::map<IUnknown *, CZvGlobalTemplateCache *> g_caches;

HRESULT CopyOut(const tagZVTEMPLATExV2 *t, tagZVTEMPLATExV2 **out)
{
    *out = t ? ZvFio_CopyTemplate(t) : NULL;
    return !t ? ZVERR_NOT_FOUND : *out ? S_OK : E_OUTOFMEMORY;
}

} // namespace

ZVAPI void ZvFio_SetTemplateDataFolder(LPCWSTR folder)
{
    g_dataRoot = folder ? folder : L"";
}

HRESULT ZvFio_GetTemplateFolders(IZvRenderFileClass *cls, std::vector<std::wstring> *paths)
{
    paths->clear();
    std::wstring name, root = DataRoot(), p;
    HRESULT hr = ClassFolderName(cls, &name);
    if (FAILED(hr))
        return hr;
    if (!FolderPath(root, L"KELPO", L"Render Templates", name, &p))
        return ZVERR_BUFFER_TOO_SMALL;
    paths->push_back(p);
    GUID guid = GUID_NULL;
    cls->GetClassGuid(&guid);
    std::wstring oldName = IsEqualGUID(guid, kOldNamedRenderer) ? L"prores" : name;
    if (FolderPath(root, L"Tolan", L"Render Templates", oldName, &p) && IsFolder(p))
        paths->push_back(p);
    return S_OK;
}

CZvGlobalTemplateCache::~CZvGlobalTemplateCache()
{
    for (ZVTEMPLATEFOLDER *f : folders) {
        ClearFolder(f);
        delete f;
    }
}

FILETIME CZvGlobalTemplateCache::NewestFolderTime() const
{
    FILETIME newestTime = {};
    for (const ZVTEMPLATEFOLDER *f : folders) {
        if (!f->path[0])
            continue;
        HANDLE h = CreateFileW(f->path, FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                               NULL, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, NULL);
        if (h == INVALID_HANDLE_VALUE)
            continue;
        FILETIME w;
        if (GetFileTime(h, NULL, NULL, &w) && CompareFileTime(&w, &newestTime) > 0)
            newestTime = w;
        CloseHandle(h);
    }
    return newestTime;
}

HRESULT CZvGlobalTemplateCache::Rebuild(IZvRenderFileClass *cls)
{
    if (views > 1)
        return ZVERR_TEMPLATE_CACHE_BUSY; // never changed under its readers
    ZVTEMPLATEFOLDER *presets = NULL;
    for (ZVTEMPLATEFOLDER *f : folders)
        if (f->kind == ZVTEMPLATEFOLDER_PRESETS)
            presets = f;
    if (!presets) {
        presets = new (std::nothrow) ZVTEMPLATEFOLDER();
        if (!presets)
            return E_OUTOFMEMORY;
        presets->kind = ZVTEMPLATEFOLDER_PRESETS;
        folders.insert(folders.begin(), presets);
    }
    HRESULT hr = S_OK;
    if (presets->templates.empty()) {
        LONG count = 0;
        hr = cls->GetTemplateCount(&count);
        for (LONG i = 0; SUCCEEDED(hr) && i < count; i++) {
            LONG again = 0;
            cls->GetTemplateCount(&again); // the calling pattern plug-ins know
            tagZVTEMPLATExV2 *t = NULL;
            hr = cls->GetTemplate(&t, i);
            if (SUCCEEDED(hr) && t)
                presets->templates.push_back(t);
        }
        if (FAILED(hr))
            return hr;
    }
    cls->GetClassGuid(&renderer);
    for (ZVTEMPLATEFOLDER *f : folders) {
        if (f->kind < ZVTEMPLATEFOLDER_FOLDER)
            continue;
        ClearFolder(f);
        f->kind = ZVTEMPLATEFOLDER_FOLDER;
        if (FAILED(hr = ScanFolder(f, cls)))
            return hr;
    }
    newest = NewestFolderTime();
    return S_OK;
}

CZvPrivateTemplateCache::CZvPrivateTemplateCache(CZvGlobalTemplateCache *global) : global_(global)
{
    if (global_)
        InterlockedIncrement(&global_->refs);
}

CZvPrivateTemplateCache::~CZvPrivateTemplateCache()
{
    if (viewing_)
        InterlockedDecrement(&global_->views);
    ZvFio_ReleaseGlobalTemplateCache(global_);
    free(extra_);
    if (private_) {
        ClearFolder(private_);
        delete private_;
    }
}

void CZvPrivateTemplateCache::SetExtra(tagZVTEMPLATExV2 *extra)
{
    free(extra_);
    extra_ = extra;
}

HRESULT CZvPrivateTemplateCache::Merge(DWORD options)
{
    options_ = options;
    list_.clear();
    auto add = [&](tagZVTEMPLATExV2 *t) {
        for (tagZVTEMPLATExV2 *have : list_)
            if (SameName(have, t))
                return;
        list_.push_back(t);
    };
    try {
        if (extra_)
            add(extra_);
        if (private_)
            for (tagZVTEMPLATExV2 *t : private_->templates)
                add(t);
        for (ZVTEMPLATEFOLDER *f : global_ ? global_->folders : std::vector<ZVTEMPLATEFOLDER *>())
            for (size_t i = 0; i < f->templates.size(); i++)
                if (!(i == 0 && f->kind == ZVTEMPLATEFOLDER_PRESETS && (options & 1)))
                    add(f->templates[i]);
    } catch (const std::bad_alloc &) {
        return E_OUTOFMEMORY;
    }
    if (!list_.empty() && global_ && !viewing_) {
        InterlockedIncrement(&global_->views);
        viewing_ = true;
    }
    return S_OK;
}

HRESULT ZvFio_GetGlobalTemplateCache(IZvFileIOManager *manager, IZvRenderFileClass *cls,
                                     CZvGlobalTemplateCache **out)
{
    if (!out)
        return E_POINTER;
    *out = NULL;
    IUnknown *key = manager;
    if (!key || !cls)
        return E_INVALIDARG;
    EnterCriticalSection(CacheLock());
    CZvGlobalTemplateCache *&cache = g_caches[key];
    GUID guid = GUID_NULL;
    HRESULT hr = cls->GetClassGuid(&guid);
    if (cache && (FAILED(hr) || !IsEqualGUID(guid, cache->renderer))) {
        ZvFio_ReleaseGlobalTemplateCache(cache);
        cache = NULL;
    }
    if (cache) {
        FILETIME now = cache->NewestFolderTime();
        hr = CompareFileTime(&now, &cache->newest) > 0 ? cache->Rebuild(cls) : S_OK;
    } else {
        std::vector<std::wstring> paths;
        hr = ZvFio_GetTemplateFolders(cls, &paths);
        CZvGlobalTemplateCache *fresh = SUCCEEDED(hr) ? new (std::nothrow) CZvGlobalTemplateCache() : NULL;
        if (SUCCEEDED(hr) && !fresh)
            hr = E_OUTOFMEMORY;
        if (fresh) {
            fresh->renderer = guid;
            for (const std::wstring &p : paths) {
                ZVTEMPLATEFOLDER *f = new ZVTEMPLATEFOLDER();
                wcsncpy(f->path, p.c_str(), MAX_PATH - 1);
                f->kind = ZVTEMPLATEFOLDER_FOLDER;
                fresh->folders.push_back(f);
            }
            hr = fresh->Rebuild(cls);
            if (SUCCEEDED(hr))
                cache = fresh;
            else
                delete fresh;
        }
    }
    if (SUCCEEDED(hr) && cache) {
        InterlockedIncrement(&cache->refs);
        *out = cache;
    }
    if (!cache)
        g_caches.erase(key);
    LeaveCriticalSection(CacheLock());
    return hr;
}

void ZvFio_ReleaseGlobalTemplateCache(CZvGlobalTemplateCache *cache)
{
    if (cache && InterlockedDecrement(&cache->refs) == 0)
        delete cache;
}

void ZvFio_ClearTemplateCache(IUnknown *manager)
{
    IUnknown *key = manager;
    EnterCriticalSection(CacheLock());
    auto it = g_caches.find(key);
    if (it != g_caches.end()) {
        ZvFio_ReleaseGlobalTemplateCache(it->second);
        g_caches.erase(it);
    }
    LeaveCriticalSection(CacheLock());
}

HRESULT ZvFio_CreatePrivateTemplateCache(IZvFileIOManager *manager, IZvRenderFileClass *cls,
                                         CZvPrivateTemplateCache **out)
{
    if (!out)
        return E_POINTER;
    *out = NULL;
    CZvGlobalTemplateCache *global = NULL;
    HRESULT hr = ZvFio_GetGlobalTemplateCache(manager, cls, &global);
    if (FAILED(hr))
        return hr;
    *out = new (std::nothrow) CZvPrivateTemplateCache(global);
    ZvFio_ReleaseGlobalTemplateCache(global); // the private cache holds its own
    return *out ? S_OK : E_OUTOFMEMORY;
}

HRESULT ZvFio_CreatePrivateTemplateCache(IZvRenderFileClass *cls, CZvPrivateTemplateCache **out)
{
    if (!out)
        return E_POINTER;
    *out = NULL;
    IZvFileIOManager *manager = NULL;
    if (!cls || FAILED(cls->GetManager(&manager)) || !manager)
        return E_UNEXPECTED;
    HRESULT hr = ZvFio_CreatePrivateTemplateCache(manager, cls, out);
    manager->Release();
    return hr;
}

// Copies of the view's templates that the filter keeps (all without one),
// appended to the caller's list or a new one.
static HRESULT CopyView(const CZvPrivateTemplateCache *view, tZVLIST **list, ZVFIO_TEMPLATEFILTERPROC filter,
                        void *context)
{
    HRESULT hr = *list ? S_OK : ZvFio_CreateTemplateList(list, (int)view->List().size());
    int copied = 0;
    for (size_t i = 0; SUCCEEDED(hr) && i < view->List().size(); i++) {
        const tagZVTEMPLATExV2 *t = view->List()[i];
        if (filter && !filter(t, context))
            continue;
        tagZVTEMPLATExV2 *copy = ZvFio_CopyTemplate(t);
        if (!copy || FAILED(ZvList_InsertList(*list, (*list)->count, &copy, 1))) {
            free(copy);
            hr = E_OUTOFMEMORY;
        }
        copied++;
    }
    if (hr == S_OK && copied == 0)
        hr = S_FALSE;
    return hr;
}

HRESULT ZvFio_GetTemplateList(IZvRenderFileClass *cls, tZVLIST **list)
{
    if (!list)
        return E_POINTER;
    CZvPrivateTemplateCache *view = NULL;
    HRESULT hr = ZvFio_CreatePrivateTemplateCache(cls, &view);
    if (SUCCEEDED(hr))
        hr = view->Merge(0);
    if (SUCCEEDED(hr))
        hr = CopyView(view, list, NULL, NULL);
    delete view;
    if (SUCCEEDED(hr) && !*list)
        hr = ZVERR_NO_TEMPLATE_LIST;
    return hr;
}

HRESULT ZvFio_GetFilteredTemplateList(IZvFileIOManager *manager, IZvRenderFileClass *cls, tZVLIST **list,
                                      DWORD, ZVFIO_TEMPLATEFILTERPROC filter, void *context, DWORD)
{
    if (!list)
        return E_POINTER;
    DWORD streams = 0;
    if (!cls || FAILED(cls->GetStreamTypes(&streams)))
        return E_INVALIDARG;
    CZvPrivateTemplateCache *view = NULL;
    HRESULT hr = manager ? ZvFio_CreatePrivateTemplateCache(manager, cls, &view)
                         : ZvFio_CreatePrivateTemplateCache(cls, &view);
    // the synthetic default leads, with a stream of each kind the class writes
    tagZVTEMPLATExV2 *first = NULL;
    if (SUCCEEDED(hr))
        hr = ZvFio_MakeTemplate(&first, ZVTEMPLATE_VERSION_V2, NULL, 0, 0, kDefaultTemplate, L"");
    if (SUCCEEDED(hr)) {
        if (streams & ZVFIO_STREAMMASK_AUDIO) {
            *ZvTemplateAt<DWORD>(first, ZVT_OFS_AUDIO) = ZVTEMPLATE_BLOCK_SIZE;
            *ZvTemplateAt<DWORD>(first, ZVT_OFS_AUDIO_COUNT) = 1;
        }
        if (streams & ZVFIO_STREAMMASK_VIDEO) {
            *ZvTemplateAt<DWORD>(first, ZVT_OFS_VIDEO) = ZVTEMPLATE_BLOCK_SIZE;
            *ZvTemplateAt<DWORD>(first, ZVT_OFS_VIDEO_COUNT) = 1;
        }
        view->SetExtra(first);
        // the first merge leaves the plug-in's own default out; the list
        // handed out is the full one
        hr = view->Merge(1);
        if (SUCCEEDED(hr))
            hr = view->Merge(0);
    }
    if (SUCCEEDED(hr))
        hr = CopyView(view, list, filter, context);
    delete view;
    return hr;
}

HRESULT ZvFio_GetTemplate(IZvRenderFileClass *cls, GUID templateId, tagZVTEMPLATExV2 **out)
{
    if (!out)
        return E_POINTER;
    *out = NULL;
    tZVLIST *list = NULL;
    HRESULT hr = ZvFio_GetTemplateList(cls, &list);
    if (SUCCEEDED(hr)) {
        hr = ZVERR_NOT_FOUND;
        // the first item is the default and never matches
        for (int i = 1; i < ZvList_GetCount(list); i++) {
            tagZVTEMPLATExV2 *t = (tagZVTEMPLATExV2 *)ZvList_GetItem(list, i);
            if (IsEqualGUID(t->templateId, templateId)) {
                hr = CopyOut(t, out);
                break;
            }
        }
    }
    ZvFio_FreeTemplateList(list);
    return hr;
}

const tagZVTEMPLATExV2 *ZvFio_GetTemplateByNameNoCopy(tZVLIST *list, LPCWSTR name, int *index)
{
    if (index)
        *index = -1;
    for (int i = 0; name && i < ZvList_GetCount(list); i++) {
        tagZVTEMPLATExV2 *t = (tagZVTEMPLATExV2 *)ZvList_GetItem(list, i);
        if (_wcsicmp(ZvFio_GetTemplateName(t), name) == 0) {
            if (index)
                *index = i;
            return t;
        }
    }
    return NULL;
}

tagZVTEMPLATExV2 *ZvFio_GetTemplateByName(tZVLIST *list, LPCWSTR name)
{
    return ZvFio_CopyTemplate(ZvFio_GetTemplateByNameNoCopy(list, name, NULL));
}

tagZVTEMPLATExV2 *ZvFio_GetTemplateByName(IZvRenderFileClass *cls, LPCWSTR name)
{
    tZVLIST *list = NULL;
    tagZVTEMPLATExV2 *t = NULL;
    if (SUCCEEDED(ZvFio_GetTemplateList(cls, &list)))
        t = ZvFio_GetTemplateByName(list, name);
    ZvFio_FreeTemplateList(list);
    return t;
}

tagZVTEMPLATExV2 *ZvFio_GetTemplateByGuid(IZvRenderFileClass *cls, REFGUID templateId)
{
    tZVLIST *list = NULL;
    tagZVTEMPLATExV2 *found = NULL;
    if (SUCCEEDED(ZvFio_GetTemplateList(cls, &list)))
        for (int i = 0; i < list->count && !found; i++) {
            tagZVTEMPLATExV2 *t = (tagZVTEMPLATExV2 *)ZvList_GetItem(list, i);
            if (IsEqualGUID(t->templateId, templateId))
                found = ZvFio_CopyTemplate(t);
        }
    ZvFio_FreeTemplateList(list);
    return found;
}

DWORD ZvFio_IsTemplateAPreset(IZvRenderFileClass *cls, const tagZVTEMPLATExV2 *t, LONG *presetId)
{
    if (presetId)
        *presetId = -2;
    if (!t)
        return 0;
    IZvFileIOManager *manager = NULL;
    CZvGlobalTemplateCache *cache = NULL;
    if (cls && SUCCEEDED(cls->GetManager(&manager)) && manager) {
        ZvFio_GetGlobalTemplateCache(manager, cls, &cache);
        manager->Release();
    }
    DWORD result = 0;
    for (ZVTEMPLATEFOLDER *f : cache ? cache->folders : std::vector<ZVTEMPLATEFOLDER *>()) {
        if (f->kind >= ZVTEMPLATEFOLDER_FOLDER)
            continue;
        for (const tagZVTEMPLATExV2 *p : f->templates) {
            if (p == t) {
                result = 0xFF;
            } else if (!result && SameName(p, t)) {
                result = 1;
                if (p->dwSize == t->dwSize && memcmp(p, t, t->dwSize) == 0)
                    result = 7;
                else if (p->dwDataSize == t->dwDataSize && p->dwSize >= 536 + p->dwDataSize &&
                         t->dwSize >= 536 + t->dwDataSize && memcmp(p, t, 536 + p->dwDataSize) == 0)
                    result = 5;
            } else {
                continue;
            }
            if (presetId)
                *presetId = (LONG)p->dwPresetId;
            if (result == 0xFF)
                break;
        }
    }
    ZvFio_ReleaseGlobalTemplateCache(cache);
    return result;
}

static HRESULT LastUsedPath(IZvRenderFileClass *cls, LPCWSTR suffix, std::wstring *folder, std::wstring *file)
{
    std::vector<std::wstring> paths;
    std::wstring name;
    HRESULT hr;
    if (!cls)
        return E_POINTER;
    if (FAILED(hr = ZvFio_GetTemplateFolders(cls, &paths)) || FAILED(hr = ClassFolderName(cls, &name)))
        return hr;
    // the folder beside the class folders, below the new "Render Templates"
    std::wstring root = paths[0].substr(0, paths[0].size() - 1);
    root = root.substr(0, root.find_last_of(L'\\') + 1) + L"Last Used\\";
    wchar_t app[MAX_PATH] = L"";
    if (ZvPrintF_GetToken(L"AppName", app, MAX_PATH) <= 0) {
        wchar_t exe[MAX_PATH];
        GetModuleFileNameW(NULL, exe, MAX_PATH);
        ZvGetFileNameWithoutPathOrExtension(exe, app, MAX_PATH);
    }
    wchar_t base[MAX_PATH];
    _snwprintf(base, MAX_PATH - 8, L"%s-%s%s", app, name.c_str(), suffix ? suffix : L"");
    base[MAX_PATH - 8] = 0;
    ZvValidateFileName(base, TRUE);
    *folder = root;
    *file = root + base + L".zvt2";
    return file->size() < MAX_PATH ? S_OK : ZVERR_BUFFER_TOO_SMALL;
}

static HRESULT WriteTemplateFile(const std::wstring &path, const tagZVTEMPLATExV2 *t, BOOL overwrite)
{
    HANDLE h = CreateFileW(path.c_str(), GENERIC_WRITE, 0, NULL, overwrite ? CREATE_ALWAYS : CREATE_NEW,
                           FILE_ATTRIBUTE_NORMAL, NULL);
    if (h == INVALID_HANDLE_VALUE)
        return HRESULT_FROM_WIN32(GetLastError());
    DWORD written = 0;
    BOOL ok = WriteFile(h, t, t->dwSize, &written, NULL);
    HRESULT hr = ok && written == t->dwSize ? S_OK : HRESULT_FROM_WIN32(GetLastError());
    CloseHandle(h);
    if (FAILED(hr))
        DeleteFileW(path.c_str());
    return hr;
}

HRESULT ZvFio_SaveAppLastUsedTemplate(IZvRenderFileClass *cls, const tagZVTEMPLATExV2 *t, LPCWSTR suffix,
                                      BOOL overwrite)
{
    if (!t)
        return E_POINTER;
    std::wstring folder, file;
    HRESULT hr = LastUsedPath(cls, suffix, &folder, &file);
    if (SUCCEEDED(hr))
        hr = MakeFolder(folder);
    return SUCCEEDED(hr) ? WriteTemplateFile(file, t, overwrite) : hr;
}

HRESULT ZvFio_LoadAppLastUsedTemplate(IZvRenderFileClass *cls, LPCWSTR suffix, tagZVTEMPLATExV2 **out)
{
    if (!out)
        return E_POINTER;
    *out = NULL;
    std::wstring folder, file;
    HRESULT hr = LastUsedPath(cls, suffix, &folder, &file);
    return SUCCEEDED(hr) ? ZvFio_LoadRawUserTemplate(cls, file.c_str(), out) : hr;
}

HRESULT ZvFio_DeleteAppLastUsedTemplate(IZvRenderFileClass *cls, LPCWSTR suffix)
{
    std::wstring folder, file;
    HRESULT hr = LastUsedPath(cls, suffix, &folder, &file);
    if (FAILED(hr))
        return hr;
    return DeleteFileW(file.c_str()) ? S_OK : ZVERR_NOT_FOUND;
}

HRESULT ZvFio_SaveUserTemplate(IZvRenderFileClass *cls, const tagZVTEMPLATExV2 *t, BOOL overwrite,
                               LPWSTR savedPath, DWORD capacity)
{
    if (!t || !cls)
        return E_POINTER;
    wchar_t name[MAX_PATH];
    wcsncpy(name, ZvFio_GetTemplateName(t), MAX_PATH - 8);
    name[MAX_PATH - 8] = 0;
    if (!name[0] || _wcsicmp(name, kUntitled) == 0)
        return ZVERR_BAD_FILENAME;
    ZvValidateFileName(name, TRUE);
    std::vector<std::wstring> paths;
    HRESULT hr = ZvFio_GetTemplateFolders(cls, &paths);
    if (FAILED(hr) || FAILED(hr = MakeFolder(paths[0])))
        return hr;
    std::wstring file = paths[0] + name + L".zvt2";
    if (file.size() >= MAX_PATH)
        return ZVERR_BUFFER_TOO_SMALL;
    hr = WriteTemplateFile(file, t, overwrite);
    if (SUCCEEDED(hr) && savedPath && capacity) {
        wcsncpy(savedPath, file.c_str(), capacity - 1);
        savedPath[capacity - 1] = 0;
    }
    return hr;
}
