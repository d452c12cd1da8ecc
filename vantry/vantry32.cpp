// CVantry32: the surrogate's one COM object, and its class factory.
#include "vantry.h"
#include "filemng/fioserved.h"

struct vantry32
{
    IZvFileIOManagerSurrogate IZvFileIOManagerSurrogate_iface;
    IVantry32 IVantry32_iface;
    IExternalConnection IExternalConnection_iface;
    LONG ref;
    LONG connections;           /* strong external connections */
    LONG module_locked;         /* 1 while this object holds a module lock */
    CRITICAL_SECTION cs;
    ZvFioServedState served;    /* the surrogate's manager and pending plug-in paths */
};

// The framework's marker of an object in destruction.
static const LONG VANTRY32_DESTROYED = (LONG)0xC0000001;

static inline struct vantry32 *impl_from_IZvFileIOManagerSurrogate(IZvFileIOManagerSurrogate *iface)
{
    return CONTAINING_RECORD(iface, struct vantry32, IZvFileIOManagerSurrogate_iface);
}

static inline struct vantry32 *impl_from_IVantry32(IVantry32 *iface)
{
    return CONTAINING_RECORD(iface, struct vantry32, IVantry32_iface);
}

static inline struct vantry32 *impl_from_IExternalConnection(IExternalConnection *iface)
{
    return CONTAINING_RECORD(iface, struct vantry32, IExternalConnection_iface);
}

// Gives the object's module lock back, once: from the last external release
// or, failing that, from the destructor.
static void vantry32_unlock_module(struct vantry32 *This)
{
    if (InterlockedExchange(&This->module_locked, 0))
        vantry_module_unlock();
}

static void vantry32_destroy(struct vantry32 *This)
{
    This->ref = VANTRY32_DESTROYED;
    // the unlock comes first: the pause after the message loop covers what follows
    vantry32_unlock_module(This);
    ZvFioServed_Destroy(&This->served);
    DeleteCriticalSection(&This->cs);
    HeapFree(GetProcessHeap(), 0, This);
}

static HRESULT vantry32_query_interface(struct vantry32 *This, REFIID riid, void **out)
{
    if (!out)
        return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IZvFileIOManagerSurrogate))
        *out = &This->IZvFileIOManagerSurrogate_iface;
    else if (IsEqualIID(riid, IID_IVantry32))
        *out = &This->IVantry32_iface;
    else if (IsEqualIID(riid, IID_IExternalConnection))
        *out = &This->IExternalConnection_iface;
    else {
        *out = NULL;
        return E_NOINTERFACE;
    }
    InterlockedIncrement(&This->ref);
    return S_OK;
}

static ULONG vantry32_release(struct vantry32 *This)
{
    LONG ref = InterlockedDecrement(&This->ref);
    if (ref == 0)
        vantry32_destroy(This);
    return (ULONG)ref;
}

/* IZvFileIOManagerSurrogate */

static HRESULT WINAPI surrogate_QueryInterface(IZvFileIOManagerSurrogate *iface, REFIID riid, void **out)
{
    return vantry32_query_interface(impl_from_IZvFileIOManagerSurrogate(iface), riid, out);
}

static ULONG WINAPI surrogate_AddRef(IZvFileIOManagerSurrogate *iface)
{
    return (ULONG)InterlockedIncrement(&impl_from_IZvFileIOManagerSurrogate(iface)->ref);
}

static ULONG WINAPI surrogate_Release(IZvFileIOManagerSurrogate *iface)
{
    return vantry32_release(impl_from_IZvFileIOManagerSurrogate(iface));
}

static HRESULT WINAPI surrogate_GetProcessId(IZvFileIOManagerSurrogate *iface, DWORD *processId)
{
    (void)iface;
    if (!processId)
        return E_POINTER;
    *processId = GetCurrentProcessId();
    return S_OK;
}

static HRESULT WINAPI surrogate_CreateObject(IZvFileIOManagerSurrogate *iface, LPCWSTR dllPath,
                                             REFCLSID classId, REFIID interfaceId, IUnknown **object)
{
    return ZvFioServed_CreateObject(&impl_from_IZvFileIOManagerSurrogate(iface)->served, dllPath, classId,
                                    interfaceId, (void **)object);
}

// Closes a handle that the client duplicated into this process. The answer
// is 0 or 1, not the failure's HRESULT: the client only logs it.
static HRESULT WINAPI surrogate_CloseHandle(IZvFileIOManagerSurrogate *iface, UINT64 handle)
{
    (void)iface;
    if (handle == 0 || handle == (UINT64)-1)
        return E_INVALIDARG;
    // handles carry 32 significant bits, sign-extended in a 64-bit process
    HANDLE h = (HANDLE)(LONG_PTR)(LONG)(DWORD)handle;
    return CloseHandle(h) ? 0 : 1;
}

static HRESULT WINAPI surrogate_CreateSurrogateFileIOManager(IZvFileIOManagerSurrogate *iface, DWORD flags,
                                                             const BYTE *mask, DWORD maskLength,
                                                             const LONG *values, DWORD valueCount,
                                                             LPCWSTR hostPath, LPCWSTR productName)
{
    return ZvFioServed_CreateManager(&impl_from_IZvFileIOManagerSurrogate(iface)->served, flags, mask, maskLength,
                                     values, valueCount, hostPath, productName);
}

// The pending list has no lock: the client sends these from one thread.
static HRESULT WINAPI surrogate_AddPluginToList(IZvFileIOManagerSurrogate *iface, LPCWSTR dllPath)
{
    return ZvFioServed_AddPlugin(&impl_from_IZvFileIOManagerSurrogate(iface)->served, dllPath);
}

static HRESULT WINAPI surrogate_ProcessPluginList(IZvFileIOManagerSurrogate *iface)
{
    return ZvFioServed_ProcessPluginList(&impl_from_IZvFileIOManagerSurrogate(iface)->served);
}

static HRESULT WINAPI surrogate_EditTemplate(IZvFileIOManagerSurrogate *iface, UINT64 parentWindow,
                                             IUnknown *rendererClass, DWORD flags, IStream *templates,
                                             DWORD templateSize, const BYTE *templateData,
                                             LPCWSTR title, BYTE_BLOB **edited)
{
    return ZvFioServed_EditTemplate(&impl_from_IZvFileIOManagerSurrogate(iface)->served, parentWindow,
                                    rendererClass, flags, templates, templateSize, templateData, title, edited);
}

static const IZvFileIOManagerSurrogateVtbl surrogate_vtbl = {
    surrogate_QueryInterface,
    surrogate_AddRef,
    surrogate_Release,
    surrogate_GetProcessId,
    surrogate_CreateObject,
    surrogate_CloseHandle,
    surrogate_CreateSurrogateFileIOManager,
    surrogate_AddPluginToList,
    surrogate_ProcessPluginList,
    surrogate_EditTemplate,
};

/* IVantry32 */

static HRESULT WINAPI vantry32_QueryInterface(IVantry32 *iface, REFIID riid, void **out)
{
    return vantry32_query_interface(impl_from_IVantry32(iface), riid, out);
}

static ULONG WINAPI vantry32_AddRef(IVantry32 *iface)
{
    return (ULONG)InterlockedIncrement(&impl_from_IVantry32(iface)->ref);
}

static ULONG WINAPI vantry32_Release(IVantry32 *iface)
{
    return vantry32_release(impl_from_IVantry32(iface));
}

static const IVantry32Vtbl vantry32_vtbl = {
    vantry32_QueryInterface,
    vantry32_AddRef,
    vantry32_Release,
};

/* IExternalConnection: the stubs of the COM runtime may keep their
   references after the client's last release, so the end of the last strong
   connection is what gives the module lock back. */

static HRESULT WINAPI extconn_QueryInterface(IExternalConnection *iface, REFIID riid, void **out)
{
    return vantry32_query_interface(impl_from_IExternalConnection(iface), riid, out);
}

static ULONG WINAPI extconn_AddRef(IExternalConnection *iface)
{
    return (ULONG)InterlockedIncrement(&impl_from_IExternalConnection(iface)->ref);
}

static ULONG WINAPI extconn_Release(IExternalConnection *iface)
{
    return vantry32_release(impl_from_IExternalConnection(iface));
}

static DWORD WINAPI extconn_AddConnection(IExternalConnection *iface, DWORD extconn, DWORD reserved)
{
    struct vantry32 *This = impl_from_IExternalConnection(iface);
    (void)reserved;
    if (!(extconn & EXTCONN_STRONG))
        return 0;
    return (DWORD)InterlockedIncrement(&This->connections);
}

static DWORD WINAPI extconn_ReleaseConnection(IExternalConnection *iface, DWORD extconn, DWORD reserved,
                                              BOOL lastReleaseCloses)
{
    struct vantry32 *This = impl_from_IExternalConnection(iface);
    (void)reserved;
    if (!(extconn & EXTCONN_STRONG))
        return 0;
    LONG count = InterlockedDecrement(&This->connections);
    if (count < 0) {
        // more releases than connections: stay at zero
        InterlockedIncrement(&This->connections);
        count = 0;
    }
    if (count == 0 && lastReleaseCloses)
        vantry32_unlock_module(This);
    return (DWORD)count;
}

static const IExternalConnectionVtbl extconn_vtbl = {
    extconn_QueryInterface,
    extconn_AddRef,
    extconn_Release,
    extconn_AddConnection,
    extconn_ReleaseConnection,
};

static HRESULT vantry32_create(REFIID riid, void **out)
{
    struct vantry32 *This = (struct vantry32 *)HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, sizeof(*This));
    if (!This)
        return E_OUTOFMEMORY;
    This->IZvFileIOManagerSurrogate_iface.lpVtbl = &surrogate_vtbl;
    This->IVantry32_iface.lpVtbl = &vantry32_vtbl;
    This->IExternalConnection_iface.lpVtbl = &extconn_vtbl;
    This->ref = 1;
    if (!InitializeCriticalSectionAndSpinCount(&This->cs, 0)) {
        HeapFree(GetProcessHeap(), 0, This);
        return E_OUTOFMEMORY;
    }
    vantry_module_lock();
    This->module_locked = 1;
    HRESULT hr = vantry32_query_interface(This, riid, out);
    vantry32_release(This);
    return hr;
}

/* The class factory */

struct vantry32_factory
{
    IClassFactory IClassFactory_iface;
    LONG ref;
};

static inline struct vantry32_factory *impl_from_IClassFactory(IClassFactory *iface)
{
    return CONTAINING_RECORD(iface, struct vantry32_factory, IClassFactory_iface);
}

static HRESULT WINAPI factory_QueryInterface(IClassFactory *iface, REFIID riid, void **out)
{
    if (!out)
        return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IClassFactory)) {
        *out = iface;
        IClassFactory_AddRef(iface);
        return S_OK;
    }
    *out = NULL;
    return E_NOINTERFACE;
}

static ULONG WINAPI factory_AddRef(IClassFactory *iface)
{
    return (ULONG)InterlockedIncrement(&impl_from_IClassFactory(iface)->ref);
}

static ULONG WINAPI factory_Release(IClassFactory *iface)
{
    struct vantry32_factory *This = impl_from_IClassFactory(iface);
    LONG ref = InterlockedDecrement(&This->ref);
    if (ref == 0)
        HeapFree(GetProcessHeap(), 0, This);
    return (ULONG)ref;
}

static HRESULT WINAPI factory_CreateInstance(IClassFactory *iface, IUnknown *outer, REFIID riid, void **out)
{
    (void)iface;
    if (!out)
        return E_POINTER;
    *out = NULL;
    if (outer)
        return CLASS_E_NOAGGREGATION;
    return vantry32_create(riid, out);
}

static HRESULT WINAPI factory_LockServer(IClassFactory *iface, BOOL lock)
{
    (void)iface;
    if (lock)
        vantry_module_lock();
    else
        vantry_module_unlock();
    return S_OK;
}

static const IClassFactoryVtbl factory_vtbl = {
    factory_QueryInterface,
    factory_AddRef,
    factory_Release,
    factory_CreateInstance,
    factory_LockServer,
};

HRESULT vantry32_create_factory(REFIID riid, void **out)
{
    if (!out)
        return E_POINTER;
    *out = NULL;
    struct vantry32_factory *This =
        (struct vantry32_factory *)HeapAlloc(GetProcessHeap(), 0, sizeof(*This));
    if (!This)
        return E_OUTOFMEMORY;
    This->IClassFactory_iface.lpVtbl = &factory_vtbl;
    This->ref = 1;
    HRESULT hr = factory_QueryInterface(&This->IClassFactory_iface, riid, out);
    factory_Release(&This->IClassFactory_iface);
    return hr;
}
