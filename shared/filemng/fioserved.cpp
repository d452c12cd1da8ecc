#include "filemng/fioserved.h"
#include "filemng/filemng.h"
#include "filemng/fiodiscovery.h"
#include "zvlist.h"
#include <stdlib.h>

static void FreePending(tZVLIST *list)
{
    if (!list)
        return;
    for (int i = 0; i < list->count; ++i)
        ZvFioStrFree((WCHAR *)ZvList_GetItem(list, i));
    ZvList_Destroy(list);
}

// Any interface of a DLL's class, without the manager. The DLL stays loaded.
static HRESULT CreateDllObject(LPCWSTR path, REFCLSID clsid, REFIID iid, void **out)
{
    HMODULE module = GetModuleHandleW(path);
    if (!module) {
        // the plug-in's dependencies are looked for beside the program first
        WCHAR self[MAX_PATH], drive[_MAX_DRIVE], dir[_MAX_DIR], folder[MAX_PATH];
        DWORD n = GetModuleFileNameW(NULL, self, MAX_PATH);
        if (n && n < MAX_PATH && !_wsplitpath_s(self, drive, _MAX_DRIVE, dir, _MAX_DIR, NULL, 0, NULL, 0) &&
            !_wmakepath_s(folder, MAX_PATH, drive, dir, NULL, NULL))
            SetCurrentDirectoryW(folder);
        module = LoadLibraryExW(path, NULL, LOAD_WITH_ALTERED_SEARCH_PATH);
        if (!module)
            return HRESULT_FROM_WIN32(GetLastError());
    }
    typedef HRESULT(STDAPICALLTYPE * GetClassObjectProc)(REFCLSID, REFIID, void **);
    GetClassObjectProc proc = (GetClassObjectProc)(void *)GetProcAddress(module, "DllGetClassObject");
    if (!proc)
        return CO_E_ERRORINDLL;
    IClassFactory *factory = NULL;
    HRESULT hr = proc(clsid, IID_IClassFactory, (void **)&factory);
    if (FAILED(hr))
        return hr;
    if (!factory)
        return E_NOINTERFACE;
    hr = factory->CreateInstance(NULL, iid, out);
    factory->Release();
    return hr;
}

HRESULT ZvFioServed_CreateObject(ZvFioServedState *state, LPCWSTR dllPath, REFCLSID classId, REFIID iid,
                                 void **out)
{
    if (!out || !dllPath || !*dllPath) {
        if (out)
            *out = NULL;
        return E_INVALIDARG;
    }
    *out = NULL;
    if (IsEqualIID(iid, IID_IZvReadFileClass) || IsEqualIID(iid, IID_IZvRenderFileClass)) {
        if (!state->manager)
            return E_UNEXPECTED;
        return ZvFio_LoadPluginAndGetInterface((IZvFileIOManager *)(IZvFileIOMgrForApp *)state->manager, classId,
                                               iid, out);
    }
    return CreateDllObject(dllPath, classId, iid, out);
}

HRESULT ZvFioServed_CreateManager(ZvFioServedState *state, DWORD flags, const BYTE *mask, DWORD maskLength,
                                  const LONG *values, DWORD valueCount, LPCWSTR hostPath, LPCWSTR productName)
{
    _ZVFIO_INITIALIZATION_METRICS metrics;
    ZeroMemory(&metrics, sizeof metrics);
    if (values) {
        if (mask)
            memcpy(metrics.mask, mask, maskLength < ZVFIO_METRIC_COUNT ? maskLength : ZVFIO_METRIC_COUNT);
        DWORD bytes = valueCount < ZVFIO_METRIC_COUNT ? valueCount * 4 : ZVFIO_METRIC_COUNT * 4;
        memcpy(metrics.values, values, bytes);
    }
    if (productName) {
        // at most 128 characters, the last of which ends the string
        wcsncpy(g_zvfioProductName, productName, 128);
        g_zvfioProductName[127] = 0;
    }
    if (state->manager)
        return S_OK; // one manager per surrogate object
    IZvFileIOMgrForApp *made = NULL;
    HRESULT hr = ZVFileIO_CreateSurrogateManagerInstance(&made, flags, &metrics, hostPath);
    state->manager = made;
    return hr;
}

HRESULT ZvFioServed_AddPlugin(ZvFioServedState *state, LPCWSTR dllPath)
{
    if (!state->pending) {
        HRESULT hr = ZvList_CreateExZ(&state->pending, 0, 0, 0, ZVLIST_ANYTHREAD);
        if (FAILED(hr))
            return hr;
    }
    WCHAR *copy = ZvFioStrDup(dllPath ? dllPath : L"");
    if (!copy)
        return E_OUTOFMEMORY;
    HRESULT hr = ZvList_InsertList(state->pending, -1, &copy, 1);
    if (FAILED(hr))
        ZvFioStrFree(copy);
    return hr;
}

HRESULT ZvFioServed_ProcessPluginList(ZvFioServedState *state)
{
    if (!state->manager)
        return E_FAIL;
    HRESULT hr = ZvFio_ProcessPluginList((IZvFileIOManager *)(IZvFileIOMgrForApp *)state->manager, state->pending);
    FreePending(state->pending);
    state->pending = NULL;
    return hr;
}

HRESULT ZvFioServed_EditTemplate(ZvFioServedState *state, UINT64 parentWindow, IUnknown *rendererClass,
                                 DWORD flags, IStream *templates, DWORD templateSize, const BYTE *templateData,
                                 LPCWSTR title, BYTE_BLOB **edited)
{
    if (edited)
        *edited = NULL;
    if (!state->manager)
        return E_FAIL;
    IZvRenderFileClass *cls = NULL;
    if (rendererClass)
        rendererClass->QueryInterface(IID_IZvRenderFileClass, (void **)&cls);
    const tagZVTEMPLATExV2 *source = NULL;
    if (templateData && templateSize >= ZVTEMPLATE_HEADER_SIZE)
        source = (const tagZVTEMPLATExV2 *)templateData;
    PZVTEMPLATE result = NULL;
    HRESULT hr = ((IZvFileIOMgrForApp *)state->manager)
                     ->EditTemplate(parentWindow, cls, flags, templates, source, NULL, title, &result);
    if (cls)
        cls->Release();
    if (SUCCEEDED(hr) && result && edited) {
        DWORD size = result->dwSize;
        BYTE_BLOB *blob = (BYTE_BLOB *)CoTaskMemAlloc(sizeof(BYTE_BLOB) + size);
        if (blob) {
            blob->clSize = size;
            memcpy(blob->abData, result, size);
            *edited = blob;
        } else {
            hr = E_OUTOFMEMORY;
        }
    }
    free(result);
    return hr;
}

void ZvFioServed_Destroy(ZvFioServedState *state)
{
    FreePending(state->pending);
    state->pending = NULL;
    IZvFileIOMgrForApp *manager = (IZvFileIOMgrForApp *)state->manager;
    state->manager = NULL;
    if (manager) {
        manager->CleanUp();
        manager->Release();
    }
}
