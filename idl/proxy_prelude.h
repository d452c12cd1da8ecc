/* Forced in front of each widl proxy file: the stubless proxies refer to the
   IUnknown forwarders, which the MinGW headers don't declare. */
#include <objbase.h>
/* the generated file asks for the stubless proxy header layout only after
   this prelude has included rpcproxy.h, so it must be asked for here */
#ifndef USE_STUBLESS_PROXY
#define USE_STUBLESS_PROXY
#endif
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
