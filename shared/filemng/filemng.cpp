#include "templates/zvtemplatestore.h"
#include "filemng/filemng.h"
#include "filemng/fiodiscovery.h"
#include "filemng/fioenum.h"
#include "filemng/fioload.h"
#include "filemng/surrogatetable.h"
#include "filemng/zvprofile.h"
#include "zvpaths.h"
#include "zvlogger.h"
#include <stdarg.h>
#include <stdio.h>
#include <wchar.h>
#include "zvlog.h"

static const IID IID_IZvFioFilterBuilder2_ = {0xA886D595, 0x5FAE, 0x4124, {0x8F, 0x48, 0x4A, 0x23, 0x48, 0x0E, 0xE3, 0x58}};

CZvFileIOManager::CZvFileIOManager(BOOL surrogate)
{
    // the kernel's allocation zero-fills; set what isn't zero
    m_nLastUsedReader = -1;
    m_nLastUsedRenderer = -1;
    m_hSharedMutex = INVALID_HANDLE_VALUE;
    m_bSurrogate = surrogate;
    InitializeCriticalSection(&m_executorLock);
}

CZvFileIOManager::~CZvFileIOManager()
{
    CleanUp();
    if (m_hSharedMutex && m_hSharedMutex != INVALID_HANDLE_VALUE)
        CloseHandle(m_hSharedMutex);
    m_hSharedMutex = INVALID_HANDLE_VALUE;
    // end the executor
    if (m_executor.hThread) {
        InterlockedExchange(&m_executor.quit, 1);
        SetEvent(m_executor.hRequest);
        WaitForSingleObject(m_executor.hThread, INFINITE);
        CloseHandle(m_executor.hThread);
        CloseHandle(m_executor.hRequest);
        CloseHandle(m_executor.hDone);
        m_executor.hThread = NULL;
    }
    releaseEnums();
    if (m_pPluginList) {
        ZvFioFreeRecordList(m_pPluginList);
        m_pPluginList = NULL;
    }
    if (m_pLogger)
        m_pLogger->Release();
    setSkipList(NULL, 0);
    DeleteCriticalSection(&m_executorLock);
}

// ---------------------------------------------------------------- IUnknown

STDMETHODIMP CZvFileIOManager::QueryInterface(REFIID riid, void **out)
{
    if (!out)
        return E_POINTER;
    *out = NULL;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IZvFileIOManager) ||
        IsEqualIID(riid, IID_IZvFileIOMgrForApp)) {
        *out = static_cast<IZvFileIOMgrForApp *>(this);
        AddRef();
        return S_OK;
    }
    if (IsEqualIID(riid, IID_IZvFioFilterBuilder2_))
        return GetFilterBuilder((IUnknown **)out);
    return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) CZvFileIOManager::AddRef()
{
    return (ULONG)InterlockedIncrement(&m_cRef);
}

STDMETHODIMP_(ULONG) CZvFileIOManager::Release()
{
    LONG n = InterlockedDecrement(&m_cRef);
    if (n == 0)
        delete this;
    return (ULONG)n;
}

// ---------------------------------------------------------------- small methods

STDMETHODIMP CZvFileIOManager::GetLangID(LANGID *langId, DWORD reserved)
{
    ZVFIO_SCOPE("CZvFileIOManager::GetLangID");
    if (reserved)
        return E_INVALIDARG;
    if (!langId)
        return E_POINTER;
    *langId = (LANGID)ZvFioKernelLangID();
    return S_OK;
}

STDMETHODIMP CZvFileIOManager::Reserved4() { return E_NOTIMPL; }
STDMETHODIMP CZvFileIOManager::MediaInfo_Initialize(DWORD) { return E_NOTIMPL; }
STDMETHODIMP CZvFileIOManager::MediaInfo_Open(LPCWSTR, UINT64 *) { return E_NOTIMPL; }
STDMETHODIMP CZvFileIOManager::MediaInfo_GetVideoProperty(UINT64, DWORD, BYTE *, DWORD) { return E_NOTIMPL; }
STDMETHODIMP CZvFileIOManager::MediaInfo_GetAudioProperty(UINT64, DWORD, BYTE *, DWORD) { return E_NOTIMPL; }
STDMETHODIMP CZvFileIOManager::MediaInfo_Close(UINT64) { return E_NOTIMPL; }
STDMETHODIMP CZvFileIOManager::MediaInfo_Uninitialize() { return E_NOTIMPL; }
STDMETHODIMP CZvFileIOManager::Reserved18() { return E_NOTIMPL; }
STDMETHODIMP CZvFileIOManager::GetSupportedHardwareDecoders(DWORD *) { return S_OK; }
STDMETHODIMP CZvFileIOManager::Reserved26() { return S_OK; }
STDMETHODIMP CZvFileIOManager::GetSupportedHardwareDecodersEx(DWORD *decoders)
{
    return decoders ? S_OK : E_INVALIDARG;
}
STDMETHODIMP CZvFileIOManager::Reserved28(DWORD *value) { return value ? S_OK : E_INVALIDARG; }
STDMETHODIMP CZvFileIOManager::Reserved45() { return E_NOTIMPL; }
// no use in this system
STDMETHODIMP CZvFileIOManager::Reserved46() { return S_OK; }
STDMETHODIMP CZvFileIOManager::IsRendererActive(REFGUID) { return S_OK; }
HRESULT CZvFileIOManager::Reserved61() { return E_NOTIMPL; }

STDMETHODIMP CZvFileIOManager::SetLogger(IZvLogger *logger)
{
    ZVFIO_SCOPE("CZvFileIOManager::SetLogger");
    IZvLogger *old = m_pLogger;
    m_pLogger = logger; // takes over the caller's reference
    if (old && old != logger)
        old->Release();
    return S_OK;
}

STDMETHODIMP CZvFileIOManager::GetLogger(IZvLogger **logger)
{
    ZVFIO_SCOPE("CZvFileIOManager::GetLogger");
    if (!logger)
        return E_POINTER;
    *logger = m_pLogger;
    if (!m_pLogger)
        return E_FAIL;
    m_pLogger->AddRef();
    return S_OK;
}

STDMETHODIMP CZvFileIOManager::GetGPUAcceleration(_ZVFIO_ACCELERATION_INFO *info)
{
    ZVFIO_SCOPE("CZvFileIOManager::GetGPUAcceleration");
    if (!info)
        return E_INVALIDARG;
    *info = m_acceleration;
    return S_OK;
}

STDMETHODIMP CZvFileIOManager::SetGPUAcceleration(const _ZVFIO_ACCELERATION_INFO *info)
{
    ZVFIO_SCOPE("CZvFileIOManager::SetGPUAcceleration");
    if (!info)
        return E_INVALIDARG;
    m_acceleration = *info;
    return S_OK;
}

void CZvFileIOManager::log(const char *file, int line, const WCHAR *format, ...)
{
    va_list args;
    va_start(args, format);
    ZvFioLogWriteV(m_pLogger, file, line, format, args);
    va_end(args);
}

BOOL CZvFileIOManager::logLoading()
{
    LONG v = 1;
    if (FAILED(GetMetric(ZVFIO_METRIC_LOGLOADING, &v)))
        return TRUE;
    return v != 0;
}

HRESULT CZvFileIOManager::setSkipList(const WCHAR *const *names, LONG count)
{
    if (m_ppSkipNames) {
        for (LONG i = 0; i < m_cSkipNames; ++i)
            ZvFioStrFree(m_ppSkipNames[i]);
        ZvMem_Free(m_ppSkipNames);
    }
    m_ppSkipNames = NULL;
    m_cSkipNames = 0;
    if (!names || count <= 0)
        return S_OK;
    m_ppSkipNames = (WCHAR **)ZvMem_Alloc(sizeof(WCHAR *) * (size_t)count);
    if (!m_ppSkipNames)
        return E_OUTOFMEMORY;
    for (LONG i = 0; i < count; ++i)
        m_ppSkipNames[i] = ZvFioStrDup(names[i] ? names[i] : L"");
    m_cSkipNames = count;
    return S_OK;
}

// ---------------------------------------------------------------- metrics

// Metric ids count as unsigned: below 90 the table, 90 nothing, the rest the
// file under the key of the id's absolute value.
static bool IsTableId(LONG id) { return (ULONG)id < ZVFIO_METRIC_COUNT; }
static bool IsFileId(LONG id) { return (ULONG)id > ZVFIO_METRIC_COUNT; }
static void MetricKey(WCHAR kind, LONG id, WCHAR *key)
{
    LONGLONG a = id < 0 ? -(LONGLONG)id : id;
    _snwprintf(key, 24, L"%c%lld", kind, a);
    key[23] = 0;
}

// The FFMetrics file and the key of a file metric of the given kind.
HRESULT CZvFileIOManager::metricLocation(WCHAR kind, LONG id, WCHAR *path, WCHAR *key)
{
    path[0] = 0;
    if (!ZvFioGetDataPaths()->known)
        ZvFioResolveDataPaths(ZVFIO_CREATE_BESIDEPROGRAM, NULL);
    ZvFioGetMetricFileName(path);
    MetricKey(kind, id, key);
    return path[0] ? S_OK : E_FAIL;
}

STDMETHODIMP CZvFileIOManager::GetMetric(LONG id, LONG *value)
{
    ZVFIO_SCOPE("CZvFileIOManager::GetMetric");
    // always S_OK, also with nowhere to put the value
    LONG ignored = 0;
    if (!value)
        value = &ignored;
    if (IsTableId(id)) {
        *value = m_metrics[id];
    } else if (!IsFileId(id)) {
        *value = 0;
    } else {
        WCHAR file[MAX_PATH], key[24];
        *value = 0;
        if (SUCCEEDED(metricLocation(L'D', id, file, key))) {
            UINT v = GetPrivateProfileIntW(L"Metrics", key, 0xF00D, file);
            if (v == 0xF00D)
                v = GetPrivateProfileIntW(L"Metrics", key, 0, file);
            *value = (LONG)v;
        }
    }
    return S_OK;
}

STDMETHODIMP CZvFileIOManager::SetMetric(LONG id, LONG value)
{
    ZVFIO_SCOPE("CZvFileIOManager::SetMetric");
    if (IsTableId(id)) {
        m_metrics[id] = value;
        return S_OK;
    }
    if (!IsFileId(id))
        return S_OK;
    WCHAR file[MAX_PATH], key[24], text[16];
    HRESULT hr = metricLocation(L'D', id, file, key);
    if (FAILED(hr))
        return hr;
    _snwprintf(text, 16, L"%ld", (long)value);
    text[15] = 0;
    return WritePrivateProfileStringW(L"Metrics", key, text, file) ? S_OK : ZVERR_FILE_WRITE;
}

STDMETHODIMP CZvFileIOManager::GetMetricString(LONG id, WCHAR *text, DWORD capacity, DWORD *length)
{
    ZVFIO_SCOPE("CZvFileIOManager::GetMetricString");
    if (length)
        *length = 0;
    if (text && capacity)
        text[0] = 0;
    if (!IsFileId(id) || !text || !capacity)
        return S_OK;
    WCHAR file[MAX_PATH], key[24];
    HRESULT hr = metricLocation(L'S', id, file, key);
    if (FAILED(hr))
        return hr;
    CZvProfile profile(file);
    profile.SetSection(L"Metrics");
    if (profile.GetString(key, NULL, text, capacity) && length)
        *length = (DWORD)wcslen(text) + 1;
    return S_OK;
}

STDMETHODIMP CZvFileIOManager::SetMetricString(LONG id, LPCWSTR text)
{
    ZVFIO_SCOPE("CZvFileIOManager::SetMetricString");
    if (!IsFileId(id))
        return S_OK;
    WCHAR file[MAX_PATH], key[24];
    HRESULT hr = metricLocation(L'S', id, file, key);
    if (FAILED(hr))
        return hr;
    CZvProfile profile(file);
    profile.SetSection(L"Metrics");
    return profile.SetString(key, text ? text : L"") ? S_OK : ZVERR_FILE_WRITE;
}

STDMETHODIMP CZvFileIOManager::DeleteMetric(LONG id, DWORD type)
{
    ZVFIO_SCOPE("CZvFileIOManager::DeleteMetric");
    if (!IsFileId(id))
        return S_OK;
    WCHAR file[MAX_PATH], key[24];
    HRESULT hr = metricLocation(type == 4 ? L'D' : type == 3 ? L'B' : type == 1 ? L'S' : L'Z', id, file, key);
    if (FAILED(hr))
        return hr;
    WritePrivateProfileStringW(L"Metrics", key, L"", file);
    WritePrivateProfileStringW(L"Metrics", key, NULL, file);
    return S_OK;
}

STDMETHODIMP CZvFileIOManager::GetMetricBinary(LONG id, BYTE *data, DWORD size, DWORD *length)
{
    ZVFIO_SCOPE("CZvFileIOManager::GetMetricBinary");
    if (data && size)
        memset(data, 0, size);
    if (length)
        *length = size;
    if (!IsFileId(id) || !data || (size % 4))
        return S_OK;
    WCHAR file[MAX_PATH], key[24];
    HRESULT hr = metricLocation(L'B', id, file, key);
    if (FAILED(hr))
        return hr;
    WCHAR text[1538];
    GetPrivateProfileStringW(L"Metrics", key, L"", text, 1538, file);
    LONG *values = (LONG *)data;
    DWORD count = size / 4;
    const WCHAR *p = text;
    for (DWORD i = 0; i < count && *p; ++i) {
        values[i] = _wtol(p);
        const WCHAR *comma = wcschr(p, L',');
        if (!comma)
            break;
        p = comma + 1;
    }
    return S_OK;
}

STDMETHODIMP CZvFileIOManager::SetMetricBinary(LONG id, const BYTE *data, DWORD size)
{
    ZVFIO_SCOPE("CZvFileIOManager::SetMetricBinary");
    if (!IsFileId(id))
        return S_OK;
    if (!data && size)
        return E_INVALIDARG;
    WCHAR file[MAX_PATH], key[24];
    HRESULT hr = metricLocation(L'B', id, file, key);
    if (FAILED(hr))
        return hr;
    DWORD count = size / 4;
    if (count > 128)
        count = 128;
    LONG values[128] = {};
    if (count)
        memcpy(values, data, count * 4);
    // trailing zeros are dropped; one value stays
    while (count > 1 && values[count - 1] == 0)
        --count;
    if (!count)
        count = 1;
    WCHAR text[128 * 12 + 2];
    size_t o = 0;
    for (DWORD i = 0; i < count; ++i)
        o += (size_t)_snwprintf(text + o, 13, i ? L",%ld" : L"%ld", (long)values[i]);
    text[o] = 0;
    return WritePrivateProfileStringW(L"Metrics", key, text, file) ? S_OK : ZVERR_FILE_WRITE;
}

HRESULT CZvFileIOManager::SetMetrics(const _ZVFIO_INITIALIZATION_METRICS *metrics)
{
    ZVFIO_SCOPE("CZvFileIOManager::SetMetrics");
    if (!metrics)
        return S_OK;
    for (int i = 0; i < ZVFIO_METRIC_COUNT; ++i)
        if (metrics->mask[i])
            m_metrics[i] = metrics->values[i];
    return S_OK;
}

// ---------------------------------------------------------------- Init and CleanUp

bool CZvFileIOManager::lockShared()
{
    if (!m_hSharedMutex || m_hSharedMutex == INVALID_HANDLE_VALUE)
        return false;
    // A surrogate's manager works only inside a call of its host, and the
    // host holds this mutex across every such call (listing, loading,
    // clean-up): waiting here would wait for the caller.
    if (m_bSurrogate)
        return false;
    DWORD w = WaitForSingleObject(m_hSharedMutex, INFINITE);
    // an abandoned mutex is owned all the same
    return w == WAIT_OBJECT_0 || w == WAIT_ABANDONED;
}

void CZvFileIOManager::unlockShared()
{
    if (m_hSharedMutex && m_hSharedMutex != INVALID_HANDLE_VALUE)
        ReleaseMutex(m_hSharedMutex);
}

STDMETHODIMP CZvFileIOManager::Init(DWORD flags)
{
    return Init(flags, NULL);
}

HRESULT CZvFileIOManager::Init(DWORD flags, const WCHAR *name)
{
    ZVFIO_SCOPE("CZvFileIOManager::Init");
    m_metrics[ZVFIO_METRIC_FORCELISTING] = (flags & ZVFIO_CREATE_FULLLISTING) ? 1 : 0;
    WCHAR product[MAX_PATH];
    if (!name) {
        // the process's name: a surrogate's comes from its host; a host's
        // is made once, so that its mutex, data folders and surrogates agree
        if (!g_zvfioProductName[0])
            ZvFioSetProductName(flags, NULL);
        _snwprintf(product, MAX_PATH, L"%s", g_zvfioProductName);
        product[MAX_PATH - 1] = 0;
        name = product;
    }
    if (!m_hSharedMutex || m_hSharedMutex == INVALID_HANDLE_VALUE) {
        _snwprintf(m_szMutexName, ZVFIO_MUTEXNAME_LENGTH, L"Local\\Tolan Media Works %s", name);
        m_szMutexName[ZVFIO_MUTEXNAME_LENGTH - 1] = 0;
        for (WCHAR *p = m_szMutexName + 6; *p; ++p)
            if (*p == L'\\')
                *p = L' ';
        m_hSharedMutex = CreateMutexW(NULL, FALSE, m_szMutexName);
        if (!m_hSharedMutex)
            m_hSharedMutex = INVALID_HANDLE_VALUE;
    }
    if (!ZvFioGetDataPaths()->known)
        ZvFioResolveDataPaths(flags, NULL);
    return S_OK;
}

void CZvFileIOManager::releaseEnums()
{
    if (m_pPluginEnum) {
        m_pPluginEnum->Release();
        m_pPluginEnum = NULL;
    }
    if (m_pReaderEnum) {
        m_pReaderEnum->Release();
        m_pReaderEnum = NULL;
    }
    if (m_pRendererEnum) {
        m_pRendererEnum->Release();
        m_pRendererEnum = NULL;
    }
}

STDMETHODIMP CZvFileIOManager::CleanUp()
{
    ZVFIO_SCOPE("CZvFileIOManager::CleanUp");
    if (!m_hSharedMutex || m_hSharedMutex == INVALID_HANDLE_VALUE)
        return S_OK;
    bool locked = lockShared();
    if (!m_bCleanedUp) {
        releaseEnums();
        if (m_pPluginList) {
            ZvFioFreeRecordList(m_pPluginList);
            m_pPluginList = NULL;
        }
        ZvFio_ClearTemplateCache(static_cast<IZvFileIOManager *>(this));
        ZvFioSurrogateTable_Release();
        if (m_wComInitialised)
            CoUninitialize();
        m_bCleanedUp = 1;
    }
    if (locked)
        unlockShared();
    return S_OK;
}

// ---------------------------------------------------------------- creation

ZVAPI HRESULT ZVFileIO_CreateInstance(IZvFileIOMgrForApp **out, _ZVFIO_ACCELERATION_INFO *acceleration, DWORD flags,
                                      _ZVFIO_KEYED_INFO *info, long &reserved)
{
    (void)reserved;
    if (!out)
        return E_POINTER;
    *out = NULL;
    HRESULT hr = E_OUTOFMEMORY;
    IZvLogger *logger = NULL;
    if (flags & ZVFIO_CREATE_LOGGER) {
        IZvLogger *made = NULL;
        if (SUCCEEDED(ZvLogger_Create(&made)) && made) {
            if (SUCCEEDED(made->Init(info ? info->szLogPath : L"", 0x10007, -1, 0x20))) {
                made->Write(4, NULL, 0, L"*** Start of FileIO Manager log ***");
                made->Write(4, NULL, 0, L"");
                logger = made;
            } else {
                made->Release();
            }
        }
    }
    CZvFileIOManager *mgr = new CZvFileIOManager(FALSE);
    if (!mgr) {
        if (logger)
            logger->Release();
        return hr;
    }
    hr = mgr->QueryInterface(IID_IZvFileIOMgrForApp, (void **)out);
    if (FAILED(hr)) {
        delete mgr;
        if (logger)
            logger->Release();
        return hr;
    }
    HRESULT init = mgr->Init(flags);
    mgr->SetLogger(logger);
    if (acceleration)
        mgr->SetGPUAcceleration(acceleration);
    ZvFioSurrogateTable_Create();
    ZvFioSurrogateTable_AddRef(FALSE, static_cast<IZvFileIOMgrForApp *>(mgr), flags, info ? &info->metrics : NULL);
    hr = init;
    if (SUCCEEDED(hr) && info) {
        if (info->metrics.mask[ZVFIO_METRIC_FORCELISTING] && info->metrics.values[ZVFIO_METRIC_FORCELISTING])
            flags |= ZVFIO_CREATE_FULLLISTING;
        hr = mgr->SetMetrics(&info->metrics);
        if (SUCCEEDED(hr) && info->ppSkipNames && info->cSkipNames > 0)
            hr = mgr->setSkipList(info->ppSkipNames, info->cSkipNames);
    }
    if (SUCCEEDED(hr) && !(flags & ZVFIO_CREATE_MANAGERONLY)) {
        tZVLIST *list = NULL;
        hr = mgr->GrovelPlugins2(&list, flags, NULL);
        if (SUCCEEDED(hr)) {
            hr = mgr->SetPluginList(list, info ? info->dwFilterFlags : 0, info ? info->cClassIds : 0,
                                    info ? info->pClassIds : NULL);
            if (FAILED(hr))
                ZvFioFreeRecordList(list);
        }
        if (SUCCEEDED(hr)) {
            HRESULT load = mgr->PluginListLoadOnInit();
            if (!(flags & ZVFIO_CREATE_NOCACHE)) {
                mgr->UpdatePluginCache(0);
                mgr->SetMetric(ZVFIO_METRIC_FORCELISTING, 0);
            }
            hr = load;
        }
    }
    if (FAILED(hr)) {
        *out = NULL;
        mgr->Release();
        return hr;
    }
    return S_OK;
}

ZVAPI HRESULT ZVFileIO_CreateSurrogateManagerInstance(IZvFileIOMgrForApp **out, DWORD flags,
                                                      _ZVFIO_INITIALIZATION_METRICS *metrics, const WCHAR *hostPath)
{
    if (!out)
        return E_POINTER;
    *out = NULL;
    if (!ZvFioGetDataPaths()->known)
        ZvFioResolveDataPaths(flags, hostPath);
    CZvFileIOManager *mgr = new CZvFileIOManager(TRUE);
    if (!mgr)
        return E_OUTOFMEMORY;
    HRESULT hr = mgr->QueryInterface(IID_IZvFileIOMgrForApp, (void **)out);
    if (FAILED(hr)) {
        delete mgr;
        return hr;
    }
    hr = mgr->Init(flags);
    ZvFioSurrogateTable_Create();
    ZvFioSurrogateTable_AddRef(TRUE, static_cast<IZvFileIOMgrForApp *>(mgr), flags, metrics);
    if (SUCCEEDED(hr)) {
        mgr->SetMetrics(metrics);
        return S_OK;
    }
    *out = NULL;
    mgr->Release();
    return hr;
}

// ---------------------------------------------------------------- discovery

static tZVLIST *g_pCandidatePaths; // heap strings given by ZvFio_SetPluginCandidateDLLs

ZVAPI HRESULT ZvFio_SetPluginCandidateDLLs(const WCHAR *const *paths, LONG count)
{
    if (count < 0 || (count && !paths))
        return E_INVALIDARG;
    tZVLIST *list = NULL;
    HRESULT hr = ZvList_CreateExZ(&list, 0, 0, 0, ZVLIST_THREADSAFE);
    if (FAILED(hr))
        return hr;
    for (LONG i = 0; i < count && SUCCEEDED(hr); ++i) {
        WCHAR *copy = ZvFioStrDup(paths[i] ? paths[i] : L"");
        hr = copy ? ZvList_InsertList(list, -1, &copy, 1) : E_OUTOFMEMORY;
        if (FAILED(hr))
            ZvFioStrFree(copy);
    }
    if (FAILED(hr)) {
        for (int i = 0; i < list->count; ++i)
            ZvFioStrFree((WCHAR *)ZvList_GetItem(list, i));
        ZvList_Destroy(list);
        return hr;
    }
    tZVLIST *old = (tZVLIST *)InterlockedExchangePointer((void **)&g_pCandidatePaths, list);
    if (old) {
        for (int i = 0; i < old->count; ++i)
            ZvFioStrFree((WCHAR *)ZvList_GetItem(old, i));
        ZvList_Destroy(old);
    }
    return S_OK;
}

ZVAPI HRESULT ZvFio_SetPluginCandidateDLLsFromList(tZVLIST *paths)
{
    if (!paths)
        return ZvFio_SetPluginCandidateDLLs(NULL, 0);
    return ZvFio_SetPluginCandidateDLLs((const WCHAR *const *)paths->data, paths->count);
}

// A new record list filled by `fill` under the shared mutex, then completed
// from the cache or by listing; the caller gets it only on success.
template <class Fill>
HRESULT CZvFileIOManager::grovelNewList(tZVLIST **list, DWORD flags, int *out, Fill fill)
{
    if (!list)
        return E_POINTER;
    *list = NULL;
    bool locked = lockShared();
    ZvFioResolveDataPaths(flags, NULL);
    tZVLIST *made = NULL;
    HRESULT hr = ZvFioCreateRecordList(&made);
    if (SUCCEEDED(hr)) {
        hr = fill(made);
        if (SUCCEEDED(hr) && made->count > 0)
            hr = GrovelSpecifiedPlugins(made, flags, out);
        if (FAILED(hr))
            ZvFioFreeRecordList(made);
        else
            *list = made;
    }
    if (locked)
        unlockShared();
    return hr;
}

HRESULT CZvFileIOManager::GrovelPlugins2(tZVLIST **list, DWORD flags, int *out)
{
    ZVFIO_SCOPE("CZvFileIOManager::GrovelPlugins2");
    return grovelNewList(list, flags, out, [this](tZVLIST *made) {
        WCHAR folder[MAX_PATH];
        if (FAILED(ZvGetModulePath(NULL, folder, MAX_PATH)))
            folder[0] = 0;
        ZvRemoveSlashFromPathNameEnd(folder);
        return ZvFioReadConfigFiles(made, folder, m_ppSkipNames, m_cSkipNames);
    });
}

HRESULT CZvFileIOManager::GrovelPlugins1(tZVLIST **list, const WCHAR *const *paths, LONG count, DWORD flags, int *out)
{
    ZVFIO_SCOPE("CZvFileIOManager::GrovelPlugins1");
    return grovelNewList(list, flags, out, [&](tZVLIST *made) {
        // the given array, else the process-wide candidates
        tZVLIST *given = g_pCandidatePaths;
        if (!paths && given) {
            paths = (const WCHAR *const *)given->data;
            count = given->count;
        }
        HRESULT hr = S_OK;
        for (LONG i = 0; paths && i < count && SUCCEEDED(hr); ++i) {
            if (!paths[i] || !*paths[i])
                continue;
            const WCHAR *name = ZvGetFileNamePtrW(paths[i]);
            bool skip = false;
            for (LONG k = 0; k < m_cSkipNames && !skip; ++k)
                skip = !_wcsicmp(m_ppSkipNames[k], name);
            if (!skip)
                hr = ZvFioAddPluginCandidate(made, paths[i], -1, NULL, 0, NULL);
        }
        return hr;
    });
}

HRESULT CZvFileIOManager::GrovelSpecifiedPlugins(tZVLIST *list, DWORD flags, int *out)
{
    ZVFIO_SCOPE("CZvFileIOManager::GrovelSpecifiedPlugins");
    if (out)
        *out = 0;
    if (!list)
        return E_INVALIDARG;
    if (m_metrics[ZVFIO_METRIC_FORCELISTING])
        flags |= ZVFIO_CREATE_FULLLISTING;
    HRESULT hr;
    if (flags & (ZVFIO_CREATE_FULLLISTING | ZVFIO_CREATE_NOCACHE)) {
        hr = ZvFioGrovelPluginDlls(list, TRUE, this);
    } else {
        BOOL valid = TRUE;
        hr = ZvFioReadPluginCache(list, &valid, m_pLogger, logLoading());
        if (SUCCEEDED(hr) && !valid)
            hr = ZvFioGrovelPluginDlls(list, FALSE, this);
    }
    if (out)
        *out = list->count;
    return FAILED(hr) ? hr : S_OK;
}

HRESULT CZvFileIOManager::UpdatePluginCache(DWORD flags)
{
    ZVFIO_SCOPE("CZvFileIOManager::UpdatePluginCache");
    // other hosts and their surrogates read and write the same file
    bool locked = lockShared();
    HRESULT hr = ZvFioWritePluginCache(m_pPluginList, flags);
    if (locked)
        unlockShared();
    return hr == 1 ? S_OK : hr;
}

// ---------------------------------------------------------------- served side of a surrogate

ZVAPI HRESULT ZvFio_ProcessPluginList(IZvFileIOManager *manager, tZVLIST *paths)
{
    if (!manager)
        return E_INVALIDARG;
    // the surrogate's manager is this class: the interface pointer is its own
    CZvFileIOManager *mgr = static_cast<CZvFileIOManager *>(static_cast<IZvFileIOMgrForApp *>(manager));
    tZVLIST *list = NULL;
    HRESULT hr = ZvList_CreateExZ(&list, 0, 0, 0, ZVLIST_THREADSAFE);
    if (FAILED(hr))
        return hr;
    for (int i = 0; paths && i < paths->count && SUCCEEDED(hr); ++i) {
        const WCHAR *path = (const WCHAR *)ZvList_GetItem(paths, i);
        if (path && *path)
            hr = ZvFioAddPluginCandidate(list, path, -1, NULL, 0, NULL);
    }
    if (SUCCEEDED(hr))
        hr = mgr->GrovelSpecifiedPlugins(list, 0, NULL);
    if (SUCCEEDED(hr))
        hr = mgr->SetPluginList(list, 0, 0, NULL);
    if (FAILED(hr)) {
        ZvFioFreeRecordList(list);
        return hr;
    }
    return mgr->PluginListLoadOnInit();
}

ZVAPI HRESULT ZvFio_LoadPluginAndGetInterface(IZvFileIOManager *manager, const GUID &clsid, const GUID &iid,
                                              void **out)
{
    if (!out)
        return E_POINTER;
    *out = NULL;
    if (!manager)
        return E_INVALIDARG;
    CZvFileIOManager *mgr = static_cast<CZvFileIOManager *>(static_cast<IZvFileIOMgrForApp *>(manager));
    tZVLIST *list = mgr->pluginList();
    ZVFIO_PLUGININFO *r = NULL;
    for (int i = 0; list && i < list->count && !r; ++i) {
        ZVFIO_PLUGININFO *o = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
        if (o && IsEqualGUID(o->clsidPlugin, clsid))
            r = o;
    }
    if (!r)
        return E_FAIL;
    BOOL renderer;
    if (IsEqualIID(iid, IID_IZvReadFileClass))
        renderer = FALSE;
    else if (IsEqualIID(iid, IID_IZvRenderFileClass))
        renderer = TRUE;
    else
        return E_NOINTERFACE;
    HRESULT hr = mgr->loadClassOnly(r, renderer);
    if (FAILED(hr))
        return hr;
    IUnknown *cls = renderer ? r->pRendererClass : r->pReaderClass;
    // a load step that succeeds without a class leaves the pointer null
    return cls ? cls->QueryInterface(iid, out) : hr;
}
