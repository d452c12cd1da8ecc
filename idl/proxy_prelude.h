/* Forced in front of each widl proxy file: the stubless proxies refer to the
   IUnknown forwarders, which the MinGW headers don't declare. */
#include <objbase.h>
#include <rpcproxy.h>
#ifdef __cplusplus
extern "C" {
#endif
HRESULT STDMETHODCALLTYPE IUnknown_QueryInterface_Proxy(IUnknown *This, REFIID riid, void **ppvObject);
ULONG STDMETHODCALLTYPE IUnknown_AddRef_Proxy(IUnknown *This);
ULONG STDMETHODCALLTYPE IUnknown_Release_Proxy(IUnknown *This);
#ifdef __cplusplus
}
#endif
