/* Registers the proxy-stub factory of every interface of the contract in the
   calling process: the factory is a class object of this process only, and
   each interface id is pointed at it with CoRegisterPSClsid. No registry
   entry and no rights are needed, and both architectures do the same. */
#include <objbase.h>
#include <rpcproxy.h>
#include "zvproxy.h"

#include "zvproxylist.inc"

/* {5CDF45F6-888C-461A-8AB2-5AAA015B4642}: the proxy-stub class of this system */
const CLSID CLSID_ZvProxyStub = {0x5cdf45f6, 0x888c, 0x461a, {0x8a, 0xb2, 0x5a, 0xaa, 0x01, 0x5b, 0x46, 0x42}};

static CStdPSFactoryBuffer zv_ps_factory;
static DWORD zv_ps_cookie;
static LONG zv_ps_registered;

/* Every proxy module supplies the stubs' Release itself, bound to its own
   factory; the second form serves interfaces derived from another one. */
ULONG STDMETHODCALLTYPE CStdStubBuffer_Release(IRpcStubBuffer *This)
{
    return NdrCStdStubBuffer_Release(This, (IPSFactoryBuffer *)&zv_ps_factory);
}

ULONG STDMETHODCALLTYPE CStdStubBuffer2_Release(IRpcStubBuffer *This)
{
    return NdrCStdStubBuffer2_Release(This, (IPSFactoryBuffer *)&zv_ps_factory);
}

HRESULT ZvProxy_GetClassObject(REFCLSID clsid, REFIID iid, void **out)
{
    return NdrDllGetClassObject(clsid, iid, out, (const ProxyFileInfo **)zv_proxy_files, &CLSID_ZvProxyStub, &zv_ps_factory);
}

/* COM keeps class registrations and proxy-stub class ids per apartment, so
   every apartment that marshals a contract interface registers once: the
   multithreaded apartment at start, and each single-threaded apartment (and a
   multithreaded apartment made anew) when it first needs a proxy. Asking for
   the proxy-stub class object tells whether this apartment has it already. */
static CRITICAL_SECTION zv_ps_lock;
static INIT_ONCE zv_ps_lock_once = INIT_ONCE_STATIC_INIT;

static BOOL CALLBACK init_lock(INIT_ONCE *once, void *param, void **context)
{
    (void)once; (void)param; (void)context;
    InitializeCriticalSection(&zv_ps_lock);
    return TRUE;
}

static BOOL registered_here(void)
{
    IUnknown *factory = NULL;
    if (FAILED(CoGetClassObject(&CLSID_ZvProxyStub, CLSCTX_INPROC_SERVER, NULL, &IID_IUnknown, (void **)&factory)))
        return FALSE;
    factory->lpVtbl->Release(factory);
    return TRUE;
}

HRESULT ZvProxy_Register(void)
{
    IUnknown *factory = NULL;
    HRESULT hr;
    DWORD cookie = 0;
    const ProxyFileInfo *const *file;
    APTTYPE type;
    APTTYPEQUALIFIER qualifier;

    InitOnceExecuteOnce(&zv_ps_lock_once, init_lock, NULL, NULL);
    EnterCriticalSection(&zv_ps_lock);
    if (registered_here()) {
        LeaveCriticalSection(&zv_ps_lock);
        return S_FALSE;
    }
    hr = ZvProxy_GetClassObject(&CLSID_ZvProxyStub, &IID_IUnknown, (void **)&factory);
    if (SUCCEEDED(hr)) {
        hr = CoRegisterClassObject(&CLSID_ZvProxyStub, factory, CLSCTX_INPROC_SERVER,
                                   REGCLS_MULTIPLEUSE, &cookie);
        factory->lpVtbl->Release(factory);
    }
    for (file = zv_proxy_files; SUCCEEDED(hr) && *file; file++) {
        unsigned short i;
        for (i = 0; SUCCEEDED(hr) && i < (*file)->TableSize; i++)
            hr = CoRegisterPSClsid((*file)->pStubVtblList[i]->header.piid, &CLSID_ZvProxyStub);
    }
    if (SUCCEEDED(hr)) {
        /* the multithreaded apartment's registration is the one to revoke at
           the end; a single-threaded apartment's goes with its thread */
        if (SUCCEEDED(CoGetApartmentType(&type, &qualifier)) && type == APTTYPE_MTA) {
            if (zv_ps_cookie)
                CoRevokeClassObject(zv_ps_cookie);
            zv_ps_cookie = cookie;
        }
        InterlockedExchange(&zv_ps_registered, 1);
    } else if (cookie)
        CoRevokeClassObject(cookie);
    LeaveCriticalSection(&zv_ps_lock);
    return hr;
}

void ZvProxy_Unregister(void)
{
    if (InterlockedCompareExchange(&zv_ps_registered, 0, 1) == 1 && zv_ps_cookie) {
        CoRevokeClassObject(zv_ps_cookie);
        zv_ps_cookie = 0;
    }
}
