/* The proxy-stub module of the contract, linked into every process. */
#pragma once
#include <objbase.h>
#ifdef __cplusplus
extern "C" {
#endif
extern const CLSID CLSID_ZvProxyStub;
/* Registers the proxies of all contract interfaces in this process. Call
   once COM is initialised; S_FALSE when already done. */
HRESULT ZvProxy_Register(void);
void ZvProxy_Unregister(void);
HRESULT ZvProxy_GetClassObject(REFCLSID clsid, REFIID iid, void **out);
#ifdef __cplusplus
}
#endif
