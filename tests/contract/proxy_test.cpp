// Every interface of the contract has a proxy and a stub: an object in a
// second process is asked for each interface through COM.
#include <gtest/gtest.h>
#include <windows.h>
#include <objbase.h>
#include "testutil.h"
#include "zvproxy.h"
#include "zvplugin.h"
#include "zvmanager.h"
#include "zvsurrogate.h"
#include "childserver.h"

namespace {

const IID *const kContractIids[] = {
    &IID_IZvReadFileClass,  &IID_IZvRenderFileClass,   &IID_IZvReadFile,
    &IID_IZvRenderFile,     &IID_IZvReadStream,        &IID_IZvReadAudioStream,
    &IID_IZvReadVideoStream, &IID_IZvReadTextStream,   &IID_IZvReadMeta,
    &IID_IZvReadProjectLinkMeta, &IID_IZvUnsharedFIOPluginInfo,
    &IID_IZvFileIOManager,  &IID_IZvFileIOMgrForApp,   &IID_IZvFileIOTypeEnum,
    &IID_IZvFIOPluginEnum,  &IID_IZvFileIOManagerSurrogate, &IID_IVantry32, &IID_IZvLogger,
};

// An object that claims every interface of the contract. Only its identity
// is used: no operation beyond IUnknown is ever called on it.
struct Universal {
    const void *const *vtbl;
    LONG ref;
};

HRESULT STDMETHODCALLTYPE UniversalQI(Universal *self, REFIID iid, void **out)
{
    *out = nullptr;
    bool known = IsEqualIID(iid, IID_IUnknown);
    for (const IID *k : kContractIids)
        known = known || IsEqualIID(iid, *k);
    if (!known)
        return E_NOINTERFACE;
    InterlockedIncrement(&self->ref);
    *out = self;
    return S_OK;
}
ULONG STDMETHODCALLTYPE UniversalAddRef(Universal *self) { return InterlockedIncrement(&self->ref); }
ULONG STDMETHODCALLTYPE UniversalRelease(Universal *self) { return InterlockedDecrement(&self->ref); }
HRESULT STDMETHODCALLTYPE UniversalNotImpl(Universal *) { return E_NOTIMPL; }

struct UniversalVtbl {
    const void *slots[96];
    UniversalVtbl()
    {
        slots[0] = (const void *)UniversalQI;
        slots[1] = (const void *)UniversalAddRef;
        slots[2] = (const void *)UniversalRelease;
        for (int i = 3; i < 96; i++)
            slots[i] = (const void *)UniversalNotImpl;
    }
};


} // namespace

ZVTEST_CHILD(contract_universal)
{
    if (FAILED(contracttest::InitComOnce()))
        return 9;
    static UniversalVtbl vtbl;
    Universal object = {vtbl.slots, 1};
    return contracttest::ServeObject((IUnknown *)&object, argc, argv);
}

TEST(ContractProxies, EveryInterfaceCrossesAProcessBorder)
{
    ASSERT_TRUE(SUCCEEDED(contracttest::InitComOnce()));
    zvtest::TempDir dir;
    contracttest::ChildServer child("contract_universal", dir.file(L"object.bin"));
    ASSERT_NE(child.object(), nullptr);
    for (const IID *iid : kContractIids) {
        IUnknown *itf = nullptr;
        wchar_t text[40];
        StringFromGUID2(*iid, text, 40);
        char name[40];
        WideCharToMultiByte(CP_UTF8, 0, text, -1, name, sizeof(name), NULL, NULL);
        EXPECT_EQ(child.object()->QueryInterface(*iid, (void **)&itf), S_OK) << "interface " << name;
        if (itf) {
            // a proxy, not the object: the pointer lives in this process
            EXPECT_NE(itf, child.object());
            itf->Release();
        }
    }
    IUnknown *none = nullptr;
    EXPECT_EQ(child.object()->QueryInterface(IID_IPersist, (void **)&none), E_NOINTERFACE);
}
