// Where a renderer's templates come from: its presets and the template
// folders, merged into one list by name; the manager's shared cache of them,
// private views on it, and the application's last used template.
#pragma once
#include "templates/zvtemplate.h"
#include "zvlist.h"
#include <string>
#include <vector>

#define ZVTEMPLATEFOLDER_PRESETS   8u
#define ZVTEMPLATEFOLDER_FOLDER    16u
#define ZVTEMPLATEFOLDER_OLDONLY   17u    // only .zvt files seen
#define ZVTEMPLATEFOLDER_NEWONLY   18u    // only .zvt2 files seen
#define ZVTEMPLATEFOLDER_BOTH      19u

#define ZVERR_TEMPLATE_CACHE_BUSY  ((HRESULT)0x8004E16D)
#define ZVERR_NO_TEMPLATE_LIST     ((HRESULT)0x8004E0A5)

struct ZVTEMPLATEFOLDER {
    WCHAR path[MAX_PATH];                        // empty for the presets
    std::vector<tagZVTEMPLATExV2 *> templates;   // owned
    std::vector<std::wstring> names;             // file names, parallel, folders only
    DWORD kind;
};

class CZvGlobalTemplateCache {
public:
    std::vector<ZVTEMPLATEFOLDER *> folders;     // the presets first
    LONG refs = 1;
    LONG views = 0;
    GUID renderer = GUID_NULL;
    FILETIME newest = {};

    ~CZvGlobalTemplateCache();
    HRESULT Rebuild(IZvRenderFileClass *cls);
    FILETIME NewestFolderTime() const;
};

class CZvPrivateTemplateCache {
public:
    explicit CZvPrivateTemplateCache(CZvGlobalTemplateCache *global);
    ~CZvPrivateTemplateCache();
    // The merged view: extra template, private folder, then the global
    // folders; the first of each name wins. Option bit 0 leaves out the
    // first preset.
    HRESULT Merge(DWORD options);
    const std::vector<tagZVTEMPLATExV2 *> &List() const { return list_; }
    void SetExtra(tagZVTEMPLATExV2 *extra);   // takes it over

private:
    CZvGlobalTemplateCache *global_;
    bool viewing_ = false;
    std::vector<tagZVTEMPLATExV2 *> list_;
    tagZVTEMPLATExV2 *extra_ = nullptr;
    ZVTEMPLATEFOLDER *private_ = nullptr;
    DWORD options_ = 0;
};

// Template folders below this folder instead of the user's application data
// (hosts with a data folder of their own; null restores the user's).
ZVAPI void ZvFio_SetTemplateDataFolder(LPCWSTR folder);

// The folder paths of a renderer class, newest first (each with a trailing
// separator); the first is always there.
HRESULT ZvFio_GetTemplateFolders(IZvRenderFileClass *cls, std::vector<std::wstring> *paths);

ZVAPI HRESULT ZvFio_GetGlobalTemplateCache(IZvFileIOManager *manager, IZvRenderFileClass *cls,
                                           CZvGlobalTemplateCache **out);
ZVAPI void ZvFio_ReleaseGlobalTemplateCache(CZvGlobalTemplateCache *cache);
// Forgets the manager's cache (its CleanUp); the manager as the cache was
// asked with, without a reference taken.
ZVAPI void ZvFio_ClearTemplateCache(IUnknown *manager);
ZVAPI_CXX HRESULT ZvFio_CreatePrivateTemplateCache(IZvFileIOManager *manager, IZvRenderFileClass *cls,
                                                   CZvPrivateTemplateCache **out);
ZVAPI_CXX HRESULT ZvFio_CreatePrivateTemplateCache(IZvRenderFileClass *cls, CZvPrivateTemplateCache **out);

// Copies of all templates of a class, merged; the first item is the default.
ZVAPI HRESULT ZvFio_GetTemplateList(IZvRenderFileClass *cls, tZVLIST **list);
// Kept in a filtered list if this returns TRUE.
typedef BOOL (CALLBACK *ZVFIO_TEMPLATEFILTERPROC)(const tagZVTEMPLATExV2 *t, void *context);
// "Default Template" (streams as the class's GetStreamTypes says), then the
// merged templates, each copied if the filter keeps it (all without one).
// The manager may be null: the class's own is taken. Flags and option are
// reserved (pass 0). S_FALSE if nothing was copied.
ZVAPI HRESULT ZvFio_GetFilteredTemplateList(IZvFileIOManager *manager, IZvRenderFileClass *cls, tZVLIST **list,
                                            DWORD flags, ZVFIO_TEMPLATEFILTERPROC filter, void *context,
                                            DWORD option);
ZVAPI HRESULT ZvFio_GetTemplate(IZvRenderFileClass *cls, GUID templateId, tagZVTEMPLATExV2 **out);
ZVAPI_CXX tagZVTEMPLATExV2 *ZvFio_GetTemplateByName(tZVLIST *list, LPCWSTR name);
ZVAPI_CXX tagZVTEMPLATExV2 *ZvFio_GetTemplateByName(IZvRenderFileClass *cls, LPCWSTR name);
ZVAPI const tagZVTEMPLATExV2 *ZvFio_GetTemplateByNameNoCopy(tZVLIST *list, LPCWSTR name, int *index);
ZVAPI tagZVTEMPLATExV2 *ZvFio_GetTemplateByGuid(IZvRenderFileClass *cls, REFGUID templateId);
ZVAPI DWORD ZvFio_IsTemplateAPreset(IZvRenderFileClass *cls, const tagZVTEMPLATExV2 *t, LONG *presetId);

// Last used: "Last Used\$(AppName)-<class folder><suffix>.zvt2" in the new folder.
ZVAPI HRESULT ZvFio_SaveAppLastUsedTemplate(IZvRenderFileClass *cls, const tagZVTEMPLATExV2 *t, LPCWSTR suffix,
                                            BOOL overwrite);
ZVAPI HRESULT ZvFio_LoadAppLastUsedTemplate(IZvRenderFileClass *cls, LPCWSTR suffix, tagZVTEMPLATExV2 **out);
ZVAPI HRESULT ZvFio_DeleteAppLastUsedTemplate(IZvRenderFileClass *cls, LPCWSTR suffix);
// Writes a user template into the new folder as "<name>.zvt2".
ZVAPI HRESULT ZvFio_SaveUserTemplate(IZvRenderFileClass *cls, const tagZVTEMPLATExV2 *t, BOOL overwrite,
                                     LPWSTR savedPath, DWORD capacity);
