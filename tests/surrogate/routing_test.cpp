// Which records go to which surrogate, the slot table, the served object's
// checks and the end of the children.
#include "surrogate_world.h"
#include "filemng/fioserved.h"

using namespace tsworld;

namespace {

DWORD ReaderProcess(World &w, int variant)
{
    IZvReadFileClass *cls = w.reader(variant);
    if (!cls)
        return 0;
    IZvReadFile *file = nullptr;
    DWORD pid = 0;
    if (SUCCEEDED(cls->OpenFile(&file, ~(UINT64)0, 0, L"a.tsm", TRUE)) && file) {
        pid = ObjectProcess(file);
        file->Release();
    }
    cls->Release();
    return pid;
}

} // namespace

TEST_F(SurrogateTest, GroupsShareChildrenAndEndAfterTheLastCleanUp)
{
    World w;
    ASSERT_EQ(S_OK, w.created);
    ZVFIO_SURROGATETABLE *t = g_pZvFioSurrogateTable;
    ASSERT_TRUE(t);
    // listing started one child per positive group
    EXPECT_EQ(3, t->used);
    EXPECT_EQ(3u, w.guard.count());

    DWORD self = GetCurrentProcessId();
    DWORD g1a = ReaderProcess(w, TS_G1A), g1b = ReaderProcess(w, TS_G1B);
    DWORD g2 = ReaderProcess(w, TS_G2), g3 = ReaderProcess(w, TS_G3);
    EXPECT_NE(0u, g1a);
    EXPECT_NE(self, g1a);
    EXPECT_EQ(g1a, g1b) << "one group, one child";
    EXPECT_NE(g1a, g2);
    EXPECT_NE(g2, g3);
    EXPECT_NE(g1a, g3);
    EXPECT_TRUE(ZVFileIO_IsSurrogateProcessId(g2));
    EXPECT_FALSE(ZVFileIO_IsSurrogateProcessId(self));
    EXPECT_EQ(self, ReaderProcess(w, TS_G0));
    EXPECT_EQ(self, ReaderProcess(w, TS_GM1));

    EXPECT_TRUE(w.record(TsReaderClass(TS_G2))->dwRecordFlags & ZVFIO_RF_SURROGATE);
    EXPECT_FALSE(w.record(TsReaderClass(TS_G0))->dwRecordFlags & ZVFIO_RF_SURROGATE);
    EXPECT_FALSE(w.record(TsReaderClass(TS_GM1))->dwRecordFlags & ZVFIO_RF_SURROGATE);

    // routed class objects are blankets, in-process ones are the plug-in's own
    IZvReadFileClass *routed = w.reader(TS_G3), *local = w.reader(TS_G0);
    ASSERT_TRUE(routed && local);
    CZvOutOfProcObj *blanket = ZvBlanket_From(routed);
    ASSERT_TRUE(blanket);
    LONG out = 0;
    EXPECT_EQ(S_OK, blanket->IsOutOfProc(&out));
    EXPECT_EQ(-1, out);
    EXPECT_EQ(nullptr, ZvBlanket_From(local));
    routed->Release();
    local->Release();

    w.cleanUp();
    EXPECT_EQ(nullptr, g_pZvFioSurrogateTable);
    EXPECT_TRUE(w.guard.waitAll(3000)) << "children must end within 3 s of the last clean-up";
}

TEST_F(SurrogateTest, NothingIsRoutedInsideASurrogate)
{
    zvtest::TempDir dir;
    ZvFioResetDataPaths();
    IZvFileIOMgrForApp *mgr = nullptr;
    _ZVFIO_INITIALIZATION_METRICS metrics = {};
    ASSERT_EQ(S_OK, ZVFileIO_CreateSurrogateManagerInstance(&mgr, ZVFIO_CREATE_BESIDEPROGRAM, &metrics,
                                                            dir.file(L"host.exe").c_str()));
    ZVFIO_PLUGININFO r = {};
    r.Surrogate = 4;
    r.dwRecordFlags = ZVFIO_RF_SURROGATE;
    EXPECT_FALSE(ZvFioDeriveRouting(&r));
    EXPECT_EQ(0u, r.dwRecordFlags & ZVFIO_RF_SURROGATE);
    EXPECT_EQ(S_OK, ZvFioLaunchSurrogate(&r));
    EXPECT_EQ(0, g_pZvFioSurrogateTable->used) << "no child for a record in a surrogate";
    mgr->CleanUp();
    mgr->Release();
    ZvFioResetDataPaths();
}

TEST_F(SurrogateTest, ThirtySlotsThenBufferTooSmall)
{
    zvtest::TempDir dir;
    zvtest::HostManager host(dir.path(), World::kFlags);
    ASSERT_EQ(S_OK, host.created);
    ZVFIO_SURROGATETABLE *t = g_pZvFioSurrogateTable;
    ASSERT_TRUE(t);
    // thirty groups that count as launched, without thirty processes
    for (int i = 0; i < ZVFIO_SURROGATE_SLOTS; ++i) {
        t->slots[i].group = i + 1;
        t->slots[i].processId = 0x7FFFFFF0;
    }
    t->used = ZVFIO_SURROGATE_SLOTS;
    ZVFIO_PLUGININFO r = {};
    r.Surrogate = 31;
    EXPECT_EQ((HRESULT)0x8004E03C, ZvFioLaunchSurrogate(&r));
    EXPECT_TRUE(r.dwRecordFlags & ZVFIO_RF_SURROGATE);
    void *obj = (void *)1;
    EXPECT_EQ((HRESULT)0x8004E03C, ZvFioRoutedCreate(&r, &obj, IID_IZvReadFileClass, host.app));
    EXPECT_EQ(nullptr, obj);
    r.Surrogate = 17; // has its slot: nothing to start
    EXPECT_EQ(S_OK, ZvFioLaunchSurrogate(&r));
    EXPECT_EQ(ZVFIO_SURROGATE_SLOTS, t->used);
    r.Surrogate = 0;
    EXPECT_EQ(S_OK, ZvFioLaunchSurrogate(&r));
    EXPECT_EQ(0u, r.dwRecordFlags & ZVFIO_RF_SURROGATE);
    for (auto &s : t->slots)
        s.processId = 0;
}

TEST_F(SurrogateTest, ServedObjectRefusesBadCallsInOrder)
{
    ZvFioServedState state = {};
    void *out = (void *)1;
    EXPECT_EQ(E_INVALIDARG, ZvFioServed_CreateObject(&state, L"", CLSID_ZvPluginInfo, IID_IUnknown, &out));
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(E_INVALIDARG, ZvFioServed_CreateObject(&state, nullptr, CLSID_ZvPluginInfo, IID_IUnknown, &out));
    EXPECT_EQ(E_INVALIDARG, ZvFioServed_CreateObject(&state, L"x.dll", CLSID_ZvPluginInfo, IID_IUnknown, nullptr));
    // plug-in classes need the manager first
    EXPECT_EQ(E_UNEXPECTED,
              ZvFioServed_CreateObject(&state, L"x.dll", TsReaderClass(1), IID_IZvReadFileClass, &out));
    EXPECT_EQ(E_FAIL, ZvFioServed_ProcessPluginList(&state));
    BYTE_BLOB *edited = (BYTE_BLOB *)1;
    EXPECT_EQ(E_FAIL, ZvFioServed_EditTemplate(&state, 0, nullptr, 0, nullptr, 0, nullptr, nullptr, &edited));
    EXPECT_EQ(nullptr, edited);
    // any other interface comes straight from the DLL
    std::wstring noEntry = zvtest::TestkitDir() + L"tk_noentry.dll";
    EXPECT_EQ(CO_E_ERRORINDLL, ZvFioServed_CreateObject(&state, noEntry.c_str(), CLSID_ZvPluginInfo,
                                                        IID_IZvUnsharedFIOPluginInfo, &out));
    std::wstring missing = zvtest::ExeDir() + L"no_such_plugin.dll";
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND),
              ZvFioServed_CreateObject(&state, missing.c_str(), CLSID_ZvPluginInfo, IID_IZvUnsharedFIOPluginInfo, &out));
    std::wstring plugin = PluginFolder() + L"\\ts_g0.dll";
    IZvUnsharedFIOPluginInfo *info = nullptr;
    ASSERT_EQ(S_OK, ZvFioServed_CreateObject(&state, plugin.c_str(), CLSID_ZvPluginInfo,
                                             IID_IZvUnsharedFIOPluginInfo, (void **)&info));
    LONG n = 0;
    EXPECT_EQ(S_OK, info->GetClassCount(&n));
    EXPECT_EQ(2, n);
    info->Release();
    // queued paths are dropped with the object
    EXPECT_EQ(S_OK, ZvFioServed_AddPlugin(&state, plugin.c_str()));
    EXPECT_EQ(S_OK, ZvFioServed_AddPlugin(&state, nullptr));
    EXPECT_EQ(2, state.pending->count);
    ZvFioServed_Destroy(&state);
    EXPECT_EQ(nullptr, state.pending);
}

TEST_F(SurrogateTest, HandlesCrossIntoTheChildAndAreClosedThere)
{
    World w;
    ASSERT_EQ(S_OK, w.created);
    zvtest::TempDir dir;
    std::wstring path = dir.file(L"a.tsm");
    ASSERT_TRUE(zvtest::WriteFileBytes(path, "TSM1", 4));
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, NULL, OPEN_EXISTING, 0, NULL);
    ASSERT_NE(INVALID_HANDLE_VALUE, file);

    ZVFIO_PLUGININFO *routed = w.record(TsReaderClass(TS_G2)), *local = w.record(TsReaderClass(TS_G0));
    ASSERT_TRUE(routed && local);
    ZvFioSurrogate_BeginIdentification();
    UINT64 wire = 0, again = 0;
    DWORD pid = 0;
    ASSERT_EQ(S_OK, ZvFioSurrogate_IdentifyHandle(routed, file, &wire, &pid));
    EXPECT_NE(GetCurrentProcessId(), pid);
    EXPECT_TRUE(ZVFileIO_IsSurrogateProcessId(pid));
    ASSERT_EQ(S_OK, ZvFioSurrogate_IdentifyHandle(routed, file, &again, &pid));
    EXPECT_EQ(wire, again) << "one duplicate per slot and identification";
    // the duplicate is a handle of the child: it comes back out
    void *back = nullptr;
    ASSERT_EQ(S_OK, DuplicateHandleFromProcessId((DWORD)wire, pid, &back));
    char head[4] = {};
    DWORD got = 0;
    OVERLAPPED at = {};
    EXPECT_TRUE(ReadFile((HANDLE)back, head, 4, &got, &at));
    EXPECT_EQ(0, memcmp(head, "TSM1", 4));
    CloseHandle((HANDLE)back);
    UINT64 own = 0;
    DWORD ownPid = 0;
    ASSERT_EQ(S_OK, ZvFioSurrogate_IdentifyHandle(local, file, &own, &ownPid));
    EXPECT_EQ((UINT64)(LONG_PTR)file, own);
    EXPECT_EQ(GetCurrentProcessId(), ownPid);

    ZvFioSurrogate_EndIdentification();
    back = nullptr;
    if (DuplicateHandleFromProcessId((DWORD)wire, pid, &back) == S_OK) {
        // the child may already use the number for another object of its own;
        // it just must not be our file any more
        BY_HANDLE_FILE_INFORMATION ours = {}, theirs = {};
        bool same = GetFileInformationByHandle((HANDLE)back, &theirs) && GetFileInformationByHandle(file, &ours) &&
                    ours.dwVolumeSerialNumber == theirs.dwVolumeSerialNumber &&
                    ours.nFileIndexHigh == theirs.nFileIndexHigh && ours.nFileIndexLow == theirs.nFileIndexLow;
        CloseHandle((HANDLE)back);
        EXPECT_FALSE(same) << "closed in the child";
    }

    // the surrogate's own CloseHandle: 0 in both halves is refused
    IZvFileIOManagerSurrogate *s = ZvFioSurrogateSlot_Get(ZvFioSurrogateTable_FindSlot(2));
    ASSERT_TRUE(s);
    EXPECT_EQ(E_INVALIDARG, s->CloseHandle(0));
    EXPECT_EQ(E_INVALIDARG, s->CloseHandle(~(UINT64)0));
    EXPECT_EQ(1, s->CloseHandle(0x12345670ull << 32)) << "a zero low word is tried, and fails";

    UINT64 dup = 0;
    ASSERT_EQ(S_OK, ZvFioSurrogate_DuplicateForRecord(routed, file, &dup, &pid));
    EXPECT_EQ(S_OK, ZvFioSurrogate_CloseRemoteHandle(pid, dup));
    // not the same number again: the child may have reused it meanwhile
    EXPECT_EQ(1, ZvFioSurrogate_CloseRemoteHandle(pid, 0x7FFFFFF8)) << "a handle the child doesn't have";
    EXPECT_EQ(E_INVALIDARG, ZvFioSurrogate_CloseRemoteHandle(0x7FFFFFF0, dup));
    CloseHandle(file);
}
