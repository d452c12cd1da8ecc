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

HRESULT ZvProxy_Register(void)
{
    IUnknown *factory = NULL;
    HRESULT hr;
    const ProxyFileInfo *const *file;

    if (InterlockedCompareExchange(&zv_ps_registered, 1, 0) != 0)
        return S_FALSE;
    hr = ZvProxy_GetClassObject(&CLSID_ZvProxyStub, &IID_IUnknown, (void **)&factory);
    if (FAILED(hr))
        goto failed;
    hr = CoRegisterClassObject(&CLSID_ZvProxyStub, factory, CLSCTX_INPROC_SERVER,
                               REGCLS_MULTIPLEUSE, &zv_ps_cookie);
    factory->lpVtbl->Release(factory);
    if (FAILED(hr))
        goto failed;
    for (file = zv_proxy_files; *file; file++) {
        unsigned short i;
        for (i = 0; i < (*file)->TableSize; i++) {
            const CInterfaceStubVtbl *stub = (*file)->pStubVtblList[i];
            hr = CoRegisterPSClsid(stub->header.piid, &CLSID_ZvProxyStub);
            if (FAILED(hr))
                goto failed;
        }
    }
    return S_OK;
failed:
    InterlockedExchange(&zv_ps_registered, 0);
    return hr;
}

void ZvProxy_Unregister(void)
{
    if (InterlockedCompareExchange(&zv_ps_registered, 0, 1) == 1 && zv_ps_cookie) {
        CoRevokeClassObject(zv_ps_cookie);
        zv_ps_cookie = 0;
    }
}
