// Class lookup of the manager: enumerators, by index, id, extension, name.
#include "templates/zvfilterbuilder.h"
#include "templates/zvtemplateedit.h"
#include "filemng/filemng.h"
#include "filemng/fioenum.h"
#include <wchar.h>
#include <wctype.h>

#define ZVERR_UNKNOWN_CLASS ZVERR_UNSUPPORTED_FORMAT

tZVLIST *CZvFileIOManager::readerList() const
{
    return m_pReaderEnum ? m_pReaderEnum->List() : NULL;
}

tZVLIST *CZvFileIOManager::rendererList() const
{
    return m_pRendererEnum ? m_pRendererEnum->List() : NULL;
}

HRESULT CZvFileIOManager::SetPluginList(tZVLIST *list, DWORD filterFlags, LONG idCount, const GUID *ids)
{
    ZVFIO_SCOPE("CZvFileIOManager::SetPluginList");
    releaseEnums();
    if (m_pPluginList && m_pPluginList != list)
        ZvFioFreeRecordList(m_pPluginList);
    m_pPluginList = list;
    CZvFIOPluginEnum *plugins = new CZvFIOPluginEnum(list, this);
    CZvFileIOTypeEnum *readers = new CZvFileIOTypeEnum(FALSE);
    CZvFileIOTypeEnum *renderers = new CZvFileIOTypeEnum(TRUE);
    HRESULT hr = (plugins && readers && renderers) ? S_OK : E_OUTOFMEMORY;
    if (plugins)
        plugins->AddRef();
    if (readers)
        readers->AddRef();
    if (renderers)
        renderers->AddRef();
    if (SUCCEEDED(hr))
        hr = readers->Build(this, filterFlags, idCount, ids, list);
    if (SUCCEEDED(hr))
        hr = renderers->Build(this, filterFlags, idCount, ids, list);
    if (FAILED(hr)) {
        if (plugins)
            plugins->Release();
        if (readers)
            readers->Release();
        if (renderers)
            renderers->Release();
        m_pPluginList = NULL; // the caller frees the list
        return hr;
    }
    m_pPluginEnum = plugins;
    m_pReaderEnum = readers;
    m_pRendererEnum = renderers;
    return S_OK;
}

STDMETHODIMP CZvFileIOManager::GetReaderEnum(IZvFileIOTypeEnum **readers)
{
    ZVFIO_SCOPE("CZvFileIOManager::GetReaderEnum");
    if (!readers || !m_pReaderEnum)
        return ZVERR_NOT_FOUND;
    return m_pReaderEnum->QueryInterface(IID_IZvFileIOTypeEnum, (void **)readers);
}

STDMETHODIMP CZvFileIOManager::GetRendererEnum(IZvFileIOTypeEnum **renderers)
{
    ZVFIO_SCOPE("CZvFileIOManager::GetRendererEnum");
    if (!renderers || !m_pRendererEnum)
        return ZVERR_NOT_FOUND;
    return m_pRendererEnum->QueryInterface(IID_IZvFileIOTypeEnum, (void **)renderers);
}

STDMETHODIMP CZvFileIOManager::GetReaderCount(LONG *count)
{
    ZVFIO_SCOPE("CZvFileIOManager::GetReaderCount");
    if (!count)
        return E_POINTER;
    tZVLIST *l = readerList();
    *count = l ? l->count : 0;
    return S_OK;
}

STDMETHODIMP CZvFileIOManager::GetRendererCount(LONG *count)
{
    ZVFIO_SCOPE("CZvFileIOManager::GetRendererCount");
    if (!count)
        return E_POINTER;
    tZVLIST *l = rendererList();
    *count = l ? l->count : 0;
    return S_OK;
}

STDMETHODIMP CZvFileIOManager::GetReaderClass(IZvReadFileClass **readClass, LONG index)
{
    ZVFIO_SCOPE("CZvFileIOManager::GetReaderClass");
    if (!readClass)
        return E_POINTER;
    *readClass = NULL;
    ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(readerList(), index);
    return r ? getReader(r, readClass) : E_NOINTERFACE;
}

STDMETHODIMP CZvFileIOManager::GetRendererClass(IZvRenderFileClass **renderClass, LONG index)
{
    ZVFIO_SCOPE("CZvFileIOManager::GetRendererClass");
    if (!renderClass)
        return E_POINTER;
    *renderClass = NULL;
    ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(rendererList(), index);
    return r ? getRenderer(r, renderClass) : E_NOINTERFACE;
}

// Record of a class id in a list: all 16 bytes first, then the first 10.
static ZVFIO_PLUGININFO *FindByClass(tZVLIST *list, REFGUID id, bool renderer)
{
    for (int pass = 0; pass < 2; ++pass)
        for (int i = 0; list && i < list->count; ++i) {
            ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
            const GUID &c = renderer ? r->clsidRenderer : r->clsidReader;
            if (pass == 0 ? IsEqualGUID(c, id) : ZvFioSameClass10(c, id))
                return r;
        }
    return NULL;
}

STDMETHODIMP CZvFileIOManager::FindReaderClass(IZvReadFileClass **readClass, REFGUID classId)
{
    ZVFIO_SCOPE("CZvFileIOManager::FindReaderClass");
    if (!readClass)
        return E_POINTER;
    *readClass = NULL;
    ZVFIO_PLUGININFO *r = FindByClass(readerList(), classId, false);
    return r ? getReader(r, readClass) : ZVERR_UNKNOWN_CLASS;
}

STDMETHODIMP CZvFileIOManager::FindRendererClass(IZvRenderFileClass **renderClass, REFGUID classId)
{
    ZVFIO_SCOPE("CZvFileIOManager::FindRendererClass");
    if (!renderClass)
        return E_POINTER;
    *renderClass = NULL;
    ZVFIO_PLUGININFO *r = FindByClass(rendererList(), classId, true);
    return r ? getRenderer(r, renderClass) : ZVERR_UNKNOWN_CLASS;
}

// Does an upper-cased ";"-list hold the extension? A token drops "*" and the
// character behind it.
static bool ExtListHas(const WCHAR *list, const WCHAR *ext)
{
    WCHAR buf[1024];
    _snwprintf(buf, 1024, L"%s", list);
    buf[1023] = 0;
    CharUpperW(buf);
    WCHAR *cursor = buf;
    while (WCHAR *tok = ZvFioNextToken(&cursor, L';')) {
        if (tok[0] == L'*')
            tok += tok[1] ? 2 : 1;
        if (!wcscmp(tok, ext))
            return true;
    }
    return false;
}

STDMETHODIMP CZvFileIOManager::FindNextReaderClassByExt(IZvReadFileClass **readClass, LPCWSTR extension,
                                                        LONG *position)
{
    ZVFIO_SCOPE("CZvFileIOManager::FindNextReaderClassByExt");
    if (!readClass || !extension || !position || *position < -1)
        return E_INVALIDARG;
    *readClass = NULL;
    WCHAR ext[64];
    if (*extension == L'.')
        ++extension;
    _snwprintf(ext, 64, L"%s", extension);
    ext[63] = 0;
    CharUpperW(ext);
    // ZVAPn names are Wave64 files
    if (wcslen(ext) > 4 && !wcsncmp(ext, L"ZVAP", 4) && iswdigit(ext[4]))
        wcscpy(ext, L"W64");
    tZVLIST *list = readerList();
    HRESULT hr = ZVERR_UNKNOWN_CLASS;
    for (LONG i = *position < 0 ? 0 : *position; list && i < list->count; ++i) {
        ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
        if (!r->ExtReader || !ExtListHas(r->ExtReader, ext))
            continue;
        hr = getReader(r, readClass);
        if (*readClass) {
            *position = r->nReaderIndex;
            return hr;
        }
    }
    return hr;
}

STDMETHODIMP CZvFileIOManager::FindNextRenderClassByExt(IZvRenderFileClass **renderClass, LPCWSTR extension,
                                                        LONG *position)
{
    ZVFIO_SCOPE("CZvFileIOManager::FindNextRenderClassByExt");
    if (!renderClass || !extension || !position || *position < -1)
        return E_INVALIDARG;
    *renderClass = NULL;
    WCHAR ext[64];
    _snwprintf(ext, 64, L"%s", extension);
    ext[63] = 0;
    CharUpperW(ext);
    tZVLIST *list = rendererList();
    HRESULT hr = ZVERR_UNKNOWN_CLASS;
    for (LONG i = *position < 0 ? 0 : *position; list && i < list->count; ++i) {
        ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
        if (!r->ExtRenderer || !ExtListHas(r->ExtRenderer, ext))
            continue;
        hr = getRenderer(r, renderClass);
        if (*renderClass) {
            *position = r->nRendererIndex;
            return hr;
        }
    }
    return hr;
}

STDMETHODIMP CZvFileIOManager::FindRenderClassByName(IZvRenderFileClass **renderClass, LPCWSTR name)
{
    ZVFIO_SCOPE("CZvFileIOManager::FindRenderClassByName");
    if (!renderClass)
        return E_POINTER;
    *renderClass = NULL;
    if (!name)
        return ZVERR_UNKNOWN_CLASS;
    if (m_pRendererEnum)
        m_pRendererEnum->Reset();
    WCHAR want[MAX_PATH];
    _snwprintf(want, MAX_PATH, L"%s", name);
    want[MAX_PATH - 1] = 0;
    CharUpperW(want);
    tZVLIST *list = rendererList();
    for (int i = 0; list && i < list->count; ++i) {
        ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
        if (!r->DialogName)
            continue;
        WCHAR have[MAX_PATH];
        _snwprintf(have, MAX_PATH, L"%s", r->DialogName);
        have[MAX_PATH - 1] = 0;
        CharUpperW(have);
        if (wcsstr(have, want))
            return getRenderer(r, renderClass);
    }
    return ZVERR_UNKNOWN_CLASS;
}

// Reader classes by the system's type ids (0x6000 and up).
static const struct {
    DWORD id;
    DWORD data1;
} kTypeIdClasses[9] = {
    {0x6000, 0xD5404496}, {0x6000, 0x69C3D5CC}, {0x6001, 0xD5404496}, {0x6001, 0x69C3D5CC}, {0x7000, 0x372FDC19},
    {0x7002, 0xE6D45519}, {0x7002, 0xED823F27}, {0x7002, 0x3B0F152B}, {0x7002, 0xA818A004},
};

HRESULT CZvFileIOManager::IdentifyFileTypeFromId(DWORD typeId, LONG *readerIndex)
{
    ZVFIO_SCOPE("CZvFileIOManager::IdentifyFileTypeFromId");
    if (!readerIndex)
        return E_POINTER;
    *readerIndex = -1;
    if (typeId < 0x6000)
        return ZVERR_UNKNOWN_CLASS;
    tZVLIST *list = readerList();
    bool matched = false;
    for (const auto &row : kTypeIdClasses) {
        if (row.id != typeId) {
            if (matched)
                break;
            continue;
        }
        matched = true;
        for (int i = 0; list && i < list->count; ++i) {
            ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
            if (r && r->clsidReader.Data1 == row.data1) {
                *readerIndex = r->nReaderIndex;
                return S_OK;
            }
        }
    }
    return ZVERR_UNKNOWN_CLASS;
}

STDMETHODIMP CZvFileIOManager::FindReaderClassFromId(IZvReadFileClass **readClass, DWORD typeId)
{
    ZVFIO_SCOPE("CZvFileIOManager::FindReaderClassFromId");
    if (!readClass)
        return E_POINTER;
    *readClass = NULL;
    LONG index = -1;
    HRESULT hr = IdentifyFileTypeFromId(typeId, &index);
    if (FAILED(hr))
        return hr;
    return GetReaderClass(readClass, index);
}

static const GUID kNotRemembered = {0xBFD5DB7F, 0xE73B, 0x41F9, {0xAF, 0x05, 0x61, 0x7C, 0x1D, 0x2E, 0x4A, 0x09}};

HRESULT CZvFileIOManager::SetLastUsedReader(IZvReadFileClass *readClass)
{
    ZVFIO_SCOPE("CZvFileIOManager::SetLastUsedReader");
    if (!readClass)
        return S_OK;
    GUID id = {};
    readClass->GetClassGuid(&id);
    DWORD index = 0;
    if (!IsEqualGUID(id, kNotRemembered) && SUCCEEDED(readClass->GetClassId(&index)))
        m_nLastUsedReader = (LONG)index;
    return S_OK;
}

HRESULT CZvFileIOManager::SetLastUsedRenderer(IZvRenderFileClass *renderClass)
{
    ZVFIO_SCOPE("CZvFileIOManager::SetLastUsedRenderer");
    DWORD index = 0;
    if (renderClass && SUCCEEDED(renderClass->GetClassId(&index)))
        m_nLastUsedRenderer = (LONG)index;
    return S_OK;
}

HRESULT CZvFileIOManager::GetLastUsedReader(IZvReadFileClass **readClass)
{
    ZVFIO_SCOPE("CZvFileIOManager::GetLastUsedReader");
    return GetReaderClass(readClass, m_nLastUsedReader);
}

HRESULT CZvFileIOManager::GetLastUsedRenderer(IZvRenderFileClass **renderClass)
{
    ZVFIO_SCOPE("CZvFileIOManager::GetLastUsedRenderer");
    return GetRendererClass(renderClass, m_nLastUsedRenderer);
}

STDMETHODIMP CZvFileIOManager::GetPluginCount(LONG *count)
{
    ZVFIO_SCOPE("CZvFileIOManager::GetPluginCount");
    LONG n = m_pPluginList ? m_pPluginList->count : 0;
    if (count)
        *count = n;
    return n > 0 ? S_OK : S_FALSE;
}

STDMETHODIMP CZvFileIOManager::GetPluginEnum(IZvFIOPluginEnum **plugins)
{
    ZVFIO_SCOPE("CZvFileIOManager::GetPluginEnum");
    if (!plugins)
        return E_POINTER;
    *plugins = m_pPluginEnum;
    if (!m_pPluginEnum)
        return E_FAIL;
    m_pPluginEnum->AddRef();
    return S_OK;
}

STDMETHODIMP CZvFileIOManager::GetPluginInfo(REFGUID pluginClassId, ZVFIO_PLUGINDESC *desc)
{
    ZVFIO_SCOPE("CZvFileIOManager::GetPluginInfo");
    if (!m_pPluginEnum)
        return E_FAIL;
    return m_pPluginEnum->GetInfo(pluginClassId, desc);
}

STDMETHODIMP CZvFileIOManager::IsPluginLoaded(REFGUID pluginClassId)
{
    ZVFIO_SCOPE("CZvFileIOManager::IsPluginLoaded");
    if (!m_pPluginEnum)
        return E_FAIL;
    ZVFIO_PLUGINDESC desc;
    memset(&desc, 0, sizeof desc);
    desc.cbSize = sizeof desc;
    return m_pPluginEnum->GetInfo(pluginClassId, &desc);
}

STDMETHODIMP CZvFileIOManager::EditTemplate(UINT64 parentWindow, IZvRenderFileClass *rendererClass, DWORD flags,
                                            IStream *templates, PCZVTEMPLATE source, PCZVTEMPLATE further,
                                            LPCWSTR title, PZVTEMPLATE *edited)
{
    ZVFIO_SCOPE("CZvFileIOManager::EditTemplate");
    return ZvFio_ManagerEditTemplate(this, m_pPluginList, parentWindow, rendererClass, flags, templates, source,
                                     further, title, edited);
}

STDMETHODIMP CZvFileIOManager::GetFilterBuilder(IUnknown **builder)
{
    ZVFIO_SCOPE("CZvFileIOManager::GetFilterBuilder");
    return ZvFio_CreateFilterBuilder(this, IID_IZvFioFilterBuilder2, (void **)builder);
}

STDMETHODIMP CZvFileIOManager::GetFilterBuilder2(REFIID iid, IUnknown **builder)
{
    ZVFIO_SCOPE("CZvFileIOManager::GetFilterBuilder2");
    return ZvFio_CreateFilterBuilder(this, iid, (void **)builder);
}
