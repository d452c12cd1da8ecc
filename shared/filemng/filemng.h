// The file I/O manager: discovers plug-ins, keeps their cache, loads them on
// demand and hands out their class objects. The same class serves the
// application and each surrogate process; a constructor argument tells which.
#pragma once
#include "zvbase.h"
#include "zvmemory.h"
#include "zvlist.h"
#include "filemng/fiotypes.h"
#include "filemng/fioplugininfo.h"
#include "zvplugin.h"
#include "zvmanager.h"
#include "zvlog.h"

// Every public method of the manager is a timing scope of its own name.
#define ZVFIO_SCOPE(name) ZV_TIMING_SCOPE(name)

class CZvFileIOTypeEnum;
class CZvFIOPluginEnum;

#define ZVFIO_MUTEXNAME_LENGTH (MAX_PATH + 32)

// The manager's executor: one thread in the multithreaded apartment that
// runs all plug-in loading.
typedef HRESULT (*ZVFIO_EXECUTORPROC)(void *arg);
struct ZVFio_ExecutorState {
    volatile LONG quit;
    HANDLE hThread;              // 0 until first use
    DWORD threadId;
    HANDLE hRequest;             // auto-reset
    HANDLE hDone;                // auto-reset
    ZVFIO_EXECUTORPROC callback; // set by a requester, cleared by the executor
    void *arg;
    HRESULT result;
};

class CZvFileIOManager : public IZvFileIOMgrForApp, public ZvGlobalObject {
public:
    explicit CZvFileIOManager(BOOL surrogate);

    // IUnknown
    STDMETHODIMP QueryInterface(REFIID riid, void **out) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    // IZvFileIOManager
    STDMETHODIMP GetLangID(LANGID *langId, DWORD reserved) override;
    STDMETHODIMP Reserved4() override;
    STDMETHODIMP GetMetric(LONG id, LONG *value) override;
    STDMETHODIMP SetMetric(LONG id, LONG value) override;
    STDMETHODIMP GetMetricString(LONG id, WCHAR *text, DWORD capacity, DWORD *length) override;
    STDMETHODIMP SetMetricString(LONG id, LPCWSTR text) override;
    STDMETHODIMP DeleteMetric(LONG id, DWORD type) override;
    STDMETHODIMP GetMetricBinary(LONG id, BYTE *data, DWORD size, DWORD *length) override;
    STDMETHODIMP SetMetricBinary(LONG id, const BYTE *data, DWORD size) override;
    STDMETHODIMP MediaInfo_Initialize(DWORD flags) override;
    STDMETHODIMP MediaInfo_Open(LPCWSTR path, UINT64 *handle) override;
    STDMETHODIMP MediaInfo_GetVideoProperty(UINT64 handle, DWORD propertyId, BYTE *value, DWORD size) override;
    STDMETHODIMP MediaInfo_GetAudioProperty(UINT64 handle, DWORD propertyId, BYTE *value, DWORD size) override;
    STDMETHODIMP MediaInfo_Close(UINT64 handle) override;
    STDMETHODIMP MediaInfo_Uninitialize() override;
    STDMETHODIMP Reserved18() override;
    STDMETHODIMP FindReaderClassFromId(IZvReadFileClass **readClass, DWORD typeId) override;
    STDMETHODIMP FindReaderClass(IZvReadFileClass **readClass, REFGUID classId) override;
    STDMETHODIMP FindRendererClass(IZvRenderFileClass **renderClass, REFGUID classId) override;
    STDMETHODIMP SetLogger(IZvLogger *logger) override;
    STDMETHODIMP GetLogger(IZvLogger **logger) override;
    STDMETHODIMP GetGPUAcceleration(_ZVFIO_ACCELERATION_INFO *info) override;
    STDMETHODIMP GetSupportedHardwareDecoders(DWORD *decoders) override;
    STDMETHODIMP Reserved26() override;
    STDMETHODIMP GetSupportedHardwareDecodersEx(DWORD *decoders) override;
    STDMETHODIMP Reserved28(DWORD *value) override;
    STDMETHODIMP FindNextReaderClassByExt(IZvReadFileClass **readClass, LPCWSTR extension, LONG *position) override;
    STDMETHODIMP FindNextRenderClassByExt(IZvRenderFileClass **renderClass, LPCWSTR extension,
                                          LONG *position) override;
    STDMETHODIMP OpenReader(LPCWSTR name, IZvReadFile **file, DWORD flags) override;
    STDMETHODIMP OpenReaderEx(LPCWSTR name, IZvReadFile **file, REFGUID readerClass, DWORD flags) override;

    // IZvFileIOMgrForApp
    STDMETHODIMP EditTemplate(UINT64 parentWindow, IZvRenderFileClass *rendererClass, DWORD flags,
                              IStream *templates, PCZVTEMPLATE source, PCZVTEMPLATE further, LPCWSTR title,
                              PZVTEMPLATE *edited) override;
    STDMETHODIMP Init(DWORD flags) override;
    STDMETHODIMP CleanUp() override;
    STDMETHODIMP GetReaderEnum(IZvFileIOTypeEnum **readers) override;
    STDMETHODIMP GetRendererEnum(IZvFileIOTypeEnum **renderers) override;
    STDMETHODIMP GetReaderCount(LONG *count) override;
    STDMETHODIMP GetRendererCount(LONG *count) override;
    STDMETHODIMP IdentifyFileType(UINT64 file, LPCWSTR path, LONG *readerIndex, DWORD flags) override;
    STDMETHODIMP IdentifyFileTypeSlow(LPCWSTR path, LONG *readerIndex) override;
    STDMETHODIMP GetReaderClass(IZvReadFileClass **readClass, LONG index) override;
    STDMETHODIMP GetRendererClass(IZvRenderFileClass **renderClass, LONG index) override;
    STDMETHODIMP FindRenderClassByName(IZvRenderFileClass **renderClass, LPCWSTR name) override;
    STDMETHODIMP Reserved45() override;
    STDMETHODIMP Reserved46() override;
    STDMETHODIMP IsOpenProgressNeeded(LPCWSTR path, DWORD flags) override;
    STDMETHODIMP GetPluginCount(LONG *count) override;
    STDMETHODIMP IsPluginLoaded(REFGUID pluginClassId) override;
    STDMETHODIMP GetPluginEnum(IZvFIOPluginEnum **plugins) override;
    STDMETHODIMP GetPluginInfo(REFGUID pluginClassId, ZVFIO_PLUGINDESC *desc) override;
    STDMETHODIMP GetFilterBuilder(IUnknown **builder) override;
    STDMETHODIMP GetFilterBuilder2(REFIID iid, IUnknown **builder) override;
    STDMETHODIMP IsRendererActive(REFGUID rendererClassId) override;
    STDMETHODIMP SetGPUAcceleration(const _ZVFIO_ACCELERATION_INFO *info) override;

    // The class's own operations behind the interfaces.
    virtual ~CZvFileIOManager();
    virtual HRESULT Init(DWORD flags, const WCHAR *name);
    virtual HRESULT GrovelSpecifiedPlugins(tZVLIST *list, DWORD flags, int *out);
    virtual HRESULT GrovelPlugins1(tZVLIST **list, const WCHAR *const *paths, LONG count, DWORD flags, int *out);
    virtual HRESULT GrovelPlugins2(tZVLIST **list, DWORD flags, int *out);
    virtual HRESULT Reserved61();
    virtual HRESULT SetMetrics(const _ZVFIO_INITIALIZATION_METRICS *metrics);
    virtual HRESULT SetPluginList(tZVLIST *list, DWORD filterFlags, LONG idCount, const GUID *ids);
    virtual HRESULT UpdatePluginCache(DWORD flags);
    virtual HRESULT IdentifyFileTypeFromId(DWORD typeId, LONG *readerIndex);
    virtual HRESULT GetLastUsedReader(IZvReadFileClass **readClass);
    virtual HRESULT SetLastUsedReader(IZvReadFileClass *readClass);
    virtual HRESULT GetLastUsedRenderer(IZvRenderFileClass **renderClass);
    virtual HRESULT SetLastUsedRenderer(IZvRenderFileClass *renderClass);

    // Loading (all plug-in code runs on the executor).
    HRESULT loadPlugin(ZVFIO_PLUGININFO *record);
    HRESULT doLoadPlugin(ZVFIO_PLUGININFO *record);
    HRESULT doLoadPluginCallFromMTAOnly(ZVFIO_PLUGININFO *record);
    static HRESULT doLoadPluginMTAExecutorCallback(void *request);
    HRESULT loadReader(ZVFIO_PLUGININFO *record);
    HRESULT loadRenderer(ZVFIO_PLUGININFO *record);
    HRESULT getReader(ZVFIO_PLUGININFO *record, IZvReadFileClass **out);
    HRESULT getRenderer(ZVFIO_PLUGININFO *record, IZvRenderFileClass **out);
    HRESULT PluginListLoadOnInit();
    // The reader or renderer load step alone, on the executor under the mutex.
    HRESULT loadClassOnly(ZVFIO_PLUGININFO *record, BOOL renderer);
    // Runs `proc` on the executor and returns its result; at once when the
    // caller is the executor.
    HRESULT runOnExecutor(ZVFIO_EXECUTORPROC proc, void *arg);
    DWORD executorThreadId() const { return m_executor.threadId; }

    // Shared mutex: a wait without limit; fails at once without a mutex,
    // and in a surrogate, whose host holds it for it.
    bool lockShared();
    void unlockShared();
    const WCHAR *sharedMutexName() const { return m_szMutexName; }

    // State for the other parts of the manager.
    tZVLIST *pluginList() const { return m_pPluginList; }
    tZVLIST *readerList() const;
    tZVLIST *rendererList() const;
    IZvLogger *logger() const { return m_pLogger; }
    BOOL isSurrogate() const { return m_bSurrogate; }
    // Metric 78 (log plug-in loading), 1 when it can't be read.
    BOOL logLoading();
    // Stores a copy of the DLL names to leave out of discovery.
    HRESULT setSkipList(const WCHAR *const *names, LONG count);
    // Writes a line at level 4 to the logger, if any.
    void log(const char *file, int line, const WCHAR *format, ...);

private:
    void releaseEnums();
    HRESULT metricLocation(WCHAR kind, LONG id, WCHAR *path, WCHAR *key);
    template <class Fill> HRESULT grovelNewList(tZVLIST **list, DWORD flags, int *out, Fill fill);

    CZvFileIOTypeEnum *m_pReaderEnum;
    CZvFileIOTypeEnum *m_pRendererEnum;
    IZvFIOPluginEnum *m_pPluginEnum;
    volatile LONG m_cRef;
    LONG m_nLastUsedReader;
    LONG m_nLastUsedRenderer;
    WORD m_wComInitialised;
    tZVLIST *m_pPluginList;
    IZvLogger *m_pLogger;
    _ZVFIO_ACCELERATION_INFO m_acceleration;
    LONG m_metrics[ZVFIO_METRIC_COUNT];
    HANDLE m_hSharedMutex;
    LONG m_bCleanedUp;
    ZVFio_ExecutorState m_executor;
    BOOL m_bSurrogate;
    WCHAR **m_ppSkipNames;
    LONG m_cSkipNames;
    CRITICAL_SECTION m_executorLock; // one request at a time, also without the shared mutex
    WCHAR m_szMutexName[ZVFIO_MUTEXNAME_LENGTH];
};

// Creation of the application's manager.
ZVAPI HRESULT ZVFileIO_CreateInstance(IZvFileIOMgrForApp **out, _ZVFIO_ACCELERATION_INFO *acceleration, DWORD flags,
                                      _ZVFIO_KEYED_INFO *info, long &reserved);
// Creation of a surrogate's manager.
ZVAPI HRESULT ZVFileIO_CreateSurrogateManagerInstance(IZvFileIOMgrForApp **out, DWORD flags,
                                                      _ZVFIO_INITIALIZATION_METRICS *metrics, const WCHAR *hostPath);
// Candidate DLLs for GrovelPlugins1, process-wide.
ZVAPI HRESULT ZvFio_SetPluginCandidateDLLs(const WCHAR *const *paths, LONG count);
ZVAPI HRESULT ZvFio_SetPluginCandidateDLLsFromList(tZVLIST *paths);

// The served side of a surrogate: builds the manager's plug-in list from
// DLL paths (heap strings) and loads what the cache marks.
ZVAPI HRESULT ZvFio_ProcessPluginList(IZvFileIOManager *manager, tZVLIST *paths);
// Loads the reader or renderer class of the record with plug-in class id
// `clsid` and queries it for `iid` (IZvReadFileClass or IZvRenderFileClass).
ZVAPI HRESULT ZvFio_LoadPluginAndGetInterface(IZvFileIOManager *manager, const GUID &clsid, const GUID &iid,
                                              void **out);
