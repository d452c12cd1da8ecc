#include "filemng/fioenum.h"

// Ranking of known classes by the first 32 bits of their plug-in class id:
// the first table leads in its order, unknown classes follow, the second
// table comes last.
static const DWORD kReaderFirst[52] = {
    0x5A8D382F, 0x2611DA5E, 0xBB9E52AD, 0xC6D72CA1, 0xE3CA6330, 0x3909B5B7,
    0xAEB1C9FC, 0x6DA7265D, 0xCED44F50, 0x52CC9A77, 0x52BAE11E, 0x79A79077,
    0xA1CA2955, 0x21612A34, 0x63A036EA, 0x145D078B, 0xFCDE3D2E, 0xD39B076E,
    0xCB705425, 0x5864F4AB, 0x34EFD06F, 0x8FC5383D, 0x16446E8C, 0x100FDAE0,
    0x9A0F5E97, 0x9ADE0F71, 0x341D000D, 0xEAFDA37F, 0x5D9E52AD, 0x5DCE1329,
    0xFECE1329, 0x5596A08C, 0x3EBDD682, 0x9EEB9CE1, 0x36D420C0, 0x6943B620,
    0x899D6EB0, 0x899D6EB3, 0x08BB5FBF, 0x3EBDD682, 0xEB0408E1, 0xA90D17B8,
    0x13EEFCAF, 0xBEADD1C1, 0x97D2FCE4, 0xC1FD3D03, 0x97D2FCE1, 0xEAEC8DC2,
    0x25EE0416, 0xC8783FB0, 0xABD1218C, 0x04B85A64,
};
static const DWORD kReaderSecond[5] = {
    0xE61EEE69, 0xA65FA79B, 0xF009FBF0, 0xADD461A1, 0xDF171157,
};
static const DWORD kRendererFirst[29] = {
    0x5A8D382F, 0xC6D72CA1, 0xBB9E52AD, 0xFECE1329, 0xAEB1C9FC, 0x6DA7265D,
    0xCED44F50, 0x52CC9A77, 0x100FDAE0, 0x9A0F5E97, 0x9ADE0F71, 0x341D000D,
    0xEAFDA37F, 0xE3CA6330, 0x3909B5B7, 0x145D078B, 0x52BAE11E, 0x79A79077,
    0xA1CA2955, 0x21612A34, 0x63A036EA, 0xFCDE3D2E, 0xD39B076E, 0xCB705425,
    0x5864F4AB, 0xABD1218C, 0x9DAB86DF, 0xADD461A1, 0x85CB92DF,
};
static const DWORD kRendererSecond[2] = {
    0x2611DA5E, 0x7EC4F92B,
};

static int Rank(const GUID &id, BOOL renderers)
{
    const DWORD *first = renderers ? kRendererFirst : kReaderFirst;
    int nFirst = renderers ? 29 : 52;
    const DWORD *second = renderers ? kRendererSecond : kReaderSecond;
    int nSecond = renderers ? 2 : 5;
    for (int i = 0; i < nFirst; ++i)
        if (first[i] == id.Data1)
            return nFirst - i;
    for (int i = 0; i < nSecond; ++i)
        if (second[i] == id.Data1)
            return -1 - i;
    return 0;
}

static int WINAPI CompareReaders(ULONG_PTR, const void *a, const void *b)
{
    const ZVFIO_PLUGININFO *ra = (const ZVFIO_PLUGININFO *)a, *rb = (const ZVFIO_PLUGININFO *)b;
    int ka = Rank(ra->clsidPlugin, FALSE), kb = Rank(rb->clsidPlugin, FALSE);
    if (ka != kb)
        return ka < kb ? 1 : -1; // descending rank
    // the larger first differing byte comes first
    int c = memcmp(&ra->clsidReader, &rb->clsidReader, sizeof(GUID));
    return c < 0 ? 1 : c > 0 ? -1 : 0;
}

static int WINAPI CompareRenderers(ULONG_PTR, const void *a, const void *b)
{
    const ZVFIO_PLUGININFO *ra = (const ZVFIO_PLUGININFO *)a, *rb = (const ZVFIO_PLUGININFO *)b;
    int ka = Rank(ra->clsidPlugin, TRUE), kb = Rank(rb->clsidPlugin, TRUE);
    if (ka != kb)
        return ka < kb ? 1 : -1;
    int c = memcmp(&ra->clsidRenderer, &rb->clsidRenderer, sizeof(GUID));
    return c < 0 ? 1 : c > 0 ? -1 : 0;
}

CZvFileIOTypeEnum::CZvFileIOTypeEnum(BOOL renderers)
    : m_pList(NULL), m_pManager(NULL), m_nPosition(0), m_cRef(0), m_bRenderers(renderers)
{
}

CZvFileIOTypeEnum::~CZvFileIOTypeEnum()
{
    ZvList_Destroy(m_pList); // the records are borrowed
}

STDMETHODIMP CZvFileIOTypeEnum::QueryInterface(REFIID riid, void **out)
{
    if (!out)
        return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IZvFileIOTypeEnum)) {
        *out = static_cast<IZvFileIOTypeEnum *>(this);
        AddRef();
        return S_OK;
    }
    *out = NULL;
    return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) CZvFileIOTypeEnum::AddRef()
{
    return (ULONG)InterlockedIncrement(&m_cRef);
}

STDMETHODIMP_(ULONG) CZvFileIOTypeEnum::Release()
{
    LONG n = InterlockedDecrement(&m_cRef);
    if (n == 0)
        delete this;
    return (ULONG)n;
}

STDMETHODIMP CZvFileIOTypeEnum::Next(ULONG count, IUnknown **classes, ULONG *fetched)
{
    ULONG got = 0;
    if (!classes && count)
        return E_POINTER;
    LONG size = m_pList ? m_pList->count : 0;
    while (got < count && m_nPosition < size) {
        ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(m_pList, m_nPosition++);
        if (!r)
            continue;
        IUnknown *cls = NULL;
        HRESULT hr = m_bRenderers ? m_pManager->getRenderer(r, (IZvRenderFileClass **)&cls)
                                  : m_pManager->getReader(r, (IZvReadFileClass **)&cls);
        if (SUCCEEDED(hr) && cls)
            classes[got++] = cls; // carries the reference of get...
    }
    if (fetched)
        *fetched = got;
    return got ? S_OK : S_FALSE;
}

STDMETHODIMP CZvFileIOTypeEnum::Skip(ULONG count)
{
    LONG size = m_pList ? m_pList->count : 0;
    LONGLONG pos = (LONGLONG)m_nPosition + count;
    m_nPosition = (LONG)(pos < size ? pos : size);
    return m_nPosition < size ? S_OK : E_NOTIMPL;
}

STDMETHODIMP CZvFileIOTypeEnum::Reset()
{
    m_nPosition = 0;
    return S_OK;
}

STDMETHODIMP CZvFileIOTypeEnum::Reserved6() { return E_NOTIMPL; }
STDMETHODIMP CZvFileIOTypeEnum::Reserved7() { return E_NOTIMPL; }

STDMETHODIMP CZvFileIOTypeEnum::GetCount(LONG *count)
{
    if (!count)
        return E_POINTER;
    *count = m_pList ? m_pList->count : 0;
    return S_OK;
}

HRESULT CZvFileIOTypeEnum::Build(CZvFileIOManager *manager, DWORD filterFlags, LONG idCount, const GUID *ids,
                                 tZVLIST *plugins)
{
    ZvList_Destroy(m_pList);
    m_pList = NULL;
    m_nPosition = 0;
    m_pManager = manager;
    HRESULT hr = ZvList_CreateExZ(&m_pList, 0, 0, 0, ZVLIST_THREADSAFE);
    if (FAILED(hr))
        return hr;
    DWORD access = m_bRenderers ? ZVFIO_ACCESS_RENDERER : ZVFIO_ACCESS_READER;
    for (int i = 0; plugins && i < plugins->count; ++i) {
        ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(plugins, i);
        if (!r || (r->dwRecordFlags & ZVFIO_RF_UNUSABLE))
            continue;
        LONG &state = m_bRenderers ? r->nRendererState : r->nReaderState;
        state = ZVFIO_STATE_FAILED;
        if (!(r->Access & access))
            continue;
        if (ids && idCount > 0) {
            bool found = false;
            for (LONG k = 0; k < idCount && !found; ++k)
                found = ZvFioSameClass10(ids[k], r->clsidPlugin);
            if ((filterFlags & 1) ? !found : found)
                continue;
        }
        if (!r->dwListed) {
            // the first of several DLLs that offer one class wins
            bool dup = false;
            for (int k = 0; k < i && !dup; ++k) {
                ZVFIO_PLUGININFO *o = (ZVFIO_PLUGININFO *)ZvList_GetItem(plugins, k);
                LONG other = o ? (m_bRenderers ? o->nRendererState : o->nReaderState) : ZVFIO_STATE_FAILED;
                dup = o && other != ZVFIO_STATE_FAILED && IsEqualGUID(o->clsidPlugin, r->clsidPlugin);
            }
            if (dup)
                continue;
        }
        // a class that is already loaded keeps its state
        state = (m_bRenderers ? r->pRendererClass : r->pReaderClass) ? ZVFIO_STATE_LOADED : ZVFIO_STATE_NONE;
        hr = ZvList_InsertList(m_pList, -1, &r, 1);
        if (FAILED(hr))
            return hr;
    }
    ZvList_Sort(m_pList, 0, m_bRenderers ? CompareRenderers : CompareReaders);
    for (int i = 0; i < m_pList->count; ++i) {
        ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(m_pList, i);
        if (m_bRenderers) {
            r->nRendererIndex = i;
            if (r->pRendererClass) {
                IZvRenderFileClass *c = NULL;
                if (SUCCEEDED(r->pRendererClass->QueryInterface(IID_IZvRenderFileClass, (void **)&c))) {
                    c->SetClassId((DWORD)i);
                    c->Release();
                }
            }
        } else {
            r->nReaderIndex = i;
            if (r->pReaderClass) {
                IZvReadFileClass *c = NULL;
                if (SUCCEEDED(r->pReaderClass->QueryInterface(IID_IZvReadFileClass, (void **)&c))) {
                    c->SetClassId((DWORD)i);
                    c->Release();
                }
            }
        }
    }
    return S_OK;
}

// ---------------------------------------------------------------- plug-in enumerator

CZvFIOPluginEnum::CZvFIOPluginEnum(tZVLIST *list, CZvFileIOManager *manager)
    : m_pList(list), m_nPosition(0), m_cRef(0), m_pManager(manager)
{
}

STDMETHODIMP CZvFIOPluginEnum::QueryInterface(REFIID riid, void **out)
{
    if (!out)
        return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IZvFIOPluginEnum)) {
        *out = static_cast<IZvFIOPluginEnum *>(this);
        AddRef();
        return S_OK;
    }
    *out = NULL;
    return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) CZvFIOPluginEnum::AddRef()
{
    return (ULONG)InterlockedIncrement(&m_cRef);
}

STDMETHODIMP_(ULONG) CZvFIOPluginEnum::Release()
{
    LONG n = InterlockedDecrement(&m_cRef);
    if (n == 0)
        delete this;
    return (ULONG)n;
}

static HRESULT FillDesc(const ZVFIO_PLUGININFO *r, ZVFIO_PLUGINDESC *desc)
{
    if (!desc || desc->cbSize < sizeof(ZVFIO_PLUGINDESC) || desc->cbSize > sizeof(ZVFIO_PLUGINDESC))
        return E_FAIL;
    DWORD size = desc->cbSize;
    memset(desc, 0, sizeof *desc);
    desc->cbSize = size;
    desc->pluginClassId = r->clsidPlugin;
    desc->readerClassId = r->clsidReader;
    desc->rendererClassId = r->clsidRenderer;
    memcpy(desc->path, r->szPath, sizeof desc->path);
    return S_OK;
}

STDMETHODIMP CZvFIOPluginEnum::Next(ULONG count, ZVFIO_PLUGINDESC *descs, ULONG *fetched)
{
    ULONG got = 0;
    LONG size = m_pList ? m_pList->count : 0;
    while (descs && got < count && m_nPosition < size) {
        ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(m_pList, m_nPosition++);
        if (r && SUCCEEDED(FillDesc(r, &descs[got])))
            ++got;
    }
    if (fetched)
        *fetched = got;
    return got ? S_OK : S_FALSE;
}

STDMETHODIMP CZvFIOPluginEnum::Skip(ULONG count)
{
    LONG size = m_pList ? m_pList->count : 0;
    LONGLONG pos = (LONGLONG)m_nPosition + count;
    m_nPosition = (LONG)(pos < size ? pos : size);
    return m_nPosition < size ? S_OK : E_NOTIMPL;
}

STDMETHODIMP CZvFIOPluginEnum::Reset()
{
    m_nPosition = 0;
    return S_OK;
}

STDMETHODIMP CZvFIOPluginEnum::Reserved6() { return E_NOTIMPL; }
STDMETHODIMP CZvFIOPluginEnum::Reserved8() { return E_UNEXPECTED; }
STDMETHODIMP CZvFIOPluginEnum::Reserved9() { return E_UNEXPECTED; }

STDMETHODIMP CZvFIOPluginEnum::GetInfo(REFGUID pluginClassId, ZVFIO_PLUGINDESC *desc)
{
    if (!desc || desc->cbSize < sizeof(ZVFIO_PLUGINDESC))
        return E_FAIL;
    LONG size = m_pList ? m_pList->count : 0;
    for (int pass = 0; pass < 2; ++pass) {
        for (LONG i = 0; i < size; ++i) {
            ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(m_pList, i);
            if (!r)
                continue;
            bool match = pass == 0 ? IsEqualGUID(r->clsidPlugin, pluginClassId)
                                   : ZvFioSameClass10(r->clsidPlugin, pluginClassId);
            if (match)
                return FillDesc(r, desc);
        }
    }
    return ZVERR_NOT_FOUND;
}
