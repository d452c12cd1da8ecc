// The surrogate object and its factory, in this process: identities, bad
// arguments and the module lock that the object holds.
#include "vantry.h"
#include "zvproxy.h"
#include <gtest/gtest.h>

namespace {

class VantryObject : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        CoInitializeEx(NULL, COINIT_MULTITHREADED);
        // the global interface table marshals through the proxies
        ZvProxy_Register();
        static bool module_ready;
        if (!module_ready) {
            vantry_module_init();
            module_ready = true;
        }
    }
    static void TearDownTestSuite()
    {
        ZvProxy_Unregister();
        CoUninitialize();
    }
    void SetUp() override
    {
        // keeps the server count above zero, so no test here ends "the server"
        base_ = vantry_module_lock();
        ASSERT_EQ(S_OK, vantry32_create_factory(IID_IClassFactory, (void **)&factory_));
        ASSERT_EQ(S_OK, IClassFactory_CreateInstance(factory_, NULL, IID_IZvFileIOManagerSurrogate,
                                                     (void **)&object_));
    }
    void TearDown() override
    {
        if (object_)
            IZvFileIOManagerSurrogate_Release(object_);
        if (factory_)
            IClassFactory_Release(factory_);
        EXPECT_EQ(base_, vantry_module_get_lock_count()) << "module lock leaked or given back twice";
        vantry_module_unlock();
    }
    LONG base_ = 0;
    IClassFactory *factory_ = NULL;
    IZvFileIOManagerSurrogate *object_ = NULL;
};

TEST_F(VantryObject, FactoryAndObjectRefuseAggregationAndNullPointers)
{
    IUnknown *unk = (IUnknown *)1;
    EXPECT_EQ(CLASS_E_NOAGGREGATION, IClassFactory_CreateInstance(factory_, (IUnknown *)factory_, IID_IUnknown,
                                                                  (void **)&unk));
    EXPECT_EQ(NULL, unk);
    EXPECT_EQ(E_POINTER, IClassFactory_CreateInstance(factory_, NULL, IID_IUnknown, NULL));
    unk = (IUnknown *)1;
    EXPECT_EQ(E_NOINTERFACE, IClassFactory_CreateInstance(factory_, NULL, IID_IMarshal, (void **)&unk));
    EXPECT_EQ(NULL, unk);
    EXPECT_EQ(E_NOINTERFACE, IClassFactory_QueryInterface(factory_, IID_IZvFileIOManagerSurrogate, (void **)&unk));
    EXPECT_EQ(E_POINTER, vantry32_create_factory(IID_IUnknown, NULL));
    // the process id is checked across the process border by the server
    // tests, the served calls' refusals by SurrogateTest.ServedObjectRefusesBadCallsInOrder
    EXPECT_EQ(E_POINTER, IZvFileIOManagerSurrogate_GetProcessId(object_, NULL));
}

TEST_F(VantryObject, InterfacesShareOneIdentity)
{
    IUnknown *unk1 = NULL, *unk2 = NULL;
    IVantry32 *vantry = NULL;
    IExternalConnection *conn = NULL;
    ASSERT_EQ(S_OK, IZvFileIOManagerSurrogate_QueryInterface(object_, IID_IVantry32, (void **)&vantry));
    ASSERT_EQ(S_OK, IVantry32_QueryInterface(vantry, IID_IExternalConnection, (void **)&conn));
    ASSERT_EQ(S_OK, IExternalConnection_QueryInterface(conn, IID_IUnknown, (void **)&unk1));
    ASSERT_EQ(S_OK, IZvFileIOManagerSurrogate_QueryInterface(object_, IID_IUnknown, (void **)&unk2));
    EXPECT_EQ(unk1, unk2);
    void *none = (void *)1;
    EXPECT_EQ(E_NOINTERFACE, IVantry32_QueryInterface(vantry, IID_IMarshal, &none));
    EXPECT_EQ(NULL, none);
    EXPECT_EQ(E_POINTER, IVantry32_QueryInterface(vantry, IID_IUnknown, NULL));
    IUnknown_Release(unk1);
    IUnknown_Release(unk2);
    IExternalConnection_Release(conn);
    IVantry32_Release(vantry);
}

TEST_F(VantryObject, CloseHandleClosesTheLow32Bits)
{
    EXPECT_EQ(E_INVALIDARG, IZvFileIOManagerSurrogate_CloseHandle(object_, 0));
    EXPECT_EQ(E_INVALIDARG, IZvFileIOManagerSurrogate_CloseHandle(object_, (UINT64)-1));
    HANDLE event = CreateEventW(NULL, FALSE, FALSE, NULL);
    ASSERT_TRUE(event != NULL);
    UINT64 wire = (UINT64)(LONG64)(LONG_PTR)event;
    EXPECT_EQ(0, IZvFileIOManagerSurrogate_CloseHandle(object_, wire));
    DWORD flags;
    EXPECT_FALSE(GetHandleInformation(event, &flags)) << "the handle is still open";
    // a second close, and a value with nothing in its low word, fail with 1
    EXPECT_EQ(1, IZvFileIOManagerSurrogate_CloseHandle(object_, wire));
    EXPECT_EQ(1, IZvFileIOManagerSurrogate_CloseHandle(object_, 0x100000000ull));
}

TEST_F(VantryObject, LastExternalReleaseAndLockServerCountOnTheModule)
{
    EXPECT_EQ(base_ + 1, vantry_module_get_lock_count());
    IExternalConnection *conn = NULL;
    ASSERT_EQ(S_OK, IZvFileIOManagerSurrogate_QueryInterface(object_, IID_IExternalConnection, (void **)&conn));
    EXPECT_EQ(1u, IExternalConnection_AddConnection(conn, EXTCONN_STRONG, 0));
    EXPECT_EQ(2u, IExternalConnection_AddConnection(conn, EXTCONN_STRONG, 0));
    EXPECT_EQ(0u, IExternalConnection_AddConnection(conn, EXTCONN_WEAK, 0));
    EXPECT_EQ(1u, IExternalConnection_ReleaseConnection(conn, EXTCONN_STRONG, 0, TRUE));
    EXPECT_EQ(base_ + 1, vantry_module_get_lock_count());
    // the last one, but the caller keeps the object: still locked
    EXPECT_EQ(0u, IExternalConnection_ReleaseConnection(conn, EXTCONN_STRONG, 0, FALSE));
    EXPECT_EQ(base_ + 1, vantry_module_get_lock_count());
    EXPECT_EQ(1u, IExternalConnection_AddConnection(conn, EXTCONN_STRONG, 0));
    EXPECT_EQ(0u, IExternalConnection_ReleaseConnection(conn, EXTCONN_STRONG, 0, TRUE));
    EXPECT_EQ(base_, vantry_module_get_lock_count());
    // an unbalanced release neither underflows nor unlocks again
    EXPECT_EQ(0u, IExternalConnection_ReleaseConnection(conn, EXTCONN_STRONG, 0, TRUE));
    EXPECT_EQ(base_, vantry_module_get_lock_count());
    IExternalConnection_Release(conn);
    // the final Release of the object doesn't unlock a second time (TearDown checks)
    EXPECT_EQ(S_OK, IClassFactory_LockServer(factory_, TRUE));
    EXPECT_EQ(base_ + 1, vantry_module_get_lock_count());
    EXPECT_EQ(S_OK, IClassFactory_LockServer(factory_, FALSE));
    EXPECT_EQ(base_, vantry_module_get_lock_count());
}

TEST_F(VantryObject, ModuleKeepsOneGlobalInterfaceTable)
{
    IGlobalInterfaceTable *git1 = NULL, *git2 = NULL;
    EXPECT_EQ(E_POINTER, vantry_module_get_git(NULL));
    ASSERT_EQ(S_OK, vantry_module_get_git(&git1));
    ASSERT_EQ(S_OK, vantry_module_get_git(&git2));
    EXPECT_EQ(git1, git2);
    // usable: the object goes in and comes back out
    DWORD cookie = 0;
    ASSERT_EQ(S_OK, IGlobalInterfaceTable_RegisterInterfaceInGlobal(git1, (IUnknown *)object_,
                                                                    IID_IZvFileIOManagerSurrogate, &cookie));
    IZvFileIOManagerSurrogate *back = NULL;
    EXPECT_EQ(S_OK, IGlobalInterfaceTable_GetInterfaceFromGlobal(git2, cookie, IID_IZvFileIOManagerSurrogate,
                                                                 (void **)&back));
    if (back)
        IZvFileIOManagerSurrogate_Release(back);
    EXPECT_EQ(S_OK, IGlobalInterfaceTable_RevokeInterfaceFromGlobal(git1, cookie));
    IGlobalInterfaceTable_Release(git1);
    IGlobalInterfaceTable_Release(git2);
}

} // namespace
