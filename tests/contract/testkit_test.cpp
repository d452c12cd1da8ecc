// The test plug-ins as a manager meets them: listing, class objects, the
// trivial format, the load counters, and the contract's calls crossing into
// a second process that hosts a plug-in class.
#include <gtest/gtest.h>
#include <windows.h>
#include <objbase.h>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>
#include "testutil.h"
#include "readstream.h"
#include "zvproxy.h"
#include "filemng/zvmemtoken.h"
#include "../../plugins/sdk/zvplugin_sdk.h"
#include "../../plugins/testkit/testkit.h"
#include "childserver.h"

namespace {

// One scope for the whole process: plug-ins keep the block of the scope in
// which they were first attached.
TestkitCounters &Counters()
{
    static TestkitCounters counters;
    return counters;
}

typedef HRESULT(WINAPI *GetClassObjectFn)(REFCLSID, REFIID, void **);

struct Plugin {
    HMODULE module = NULL;
    GetClassObjectFn getClassObject = nullptr;
    explicit Plugin(const wchar_t *name)
    {
        Counters();
        module = LoadLibraryW((zvtest::TestkitDir() + name).c_str());
        if (module)
            getClassObject = (GetClassObjectFn)(void *)GetProcAddress(module, "DllGetClassObject");
    }
    // DLLs stay loaded, as the manager leaves them
    template <class T>
    HRESULT create(const GUID &clsid, REFIID iid, T **out)
    {
        *out = nullptr;
        IClassFactory *factory = nullptr;
        HRESULT hr = getClassObject(clsid, IID_IClassFactory, (void **)&factory);
        if (FAILED(hr))
            return hr;
        hr = factory->CreateInstance(NULL, iid, (void **)out);
        factory->Release();
        return hr;
    }
};

using zvtest::LocalToken;

bool RampHolds(const short *samples, LONGLONG first, DWORD frames)
{
    for (DWORD i = 0; i < frames; i++)
        if (samples[2 * i] != (short)(2 * (first + i)) || samples[2 * i + 1] != (short)(2 * (first + i) + 1))
            return false;
    return true;
}
} // namespace

// The plug-in kit's edge answers; the test reader's format itself is checked
// by the validator (test_zvfio_validate) and across a process border below.
TEST(TestkitPlugins, KitClassObjectEdges)
{
    Plugin dual(L"tk_dual.dll");
    IZvReadFileClass *reader = nullptr;
    ASSERT_EQ(dual.create(CLSID_TkDualReader, IID_IZvReadFileClass, &reader), S_OK);
    // (the class id and manager a manager sets are read back in FioPlugins)
    IZvFileIOManager *manager = nullptr;
    EXPECT_EQ(reader->GetManager(&manager), E_FAIL);
    EXPECT_EQ(manager, nullptr);
    ZVFIO_FILECLASS_INFO_TEXT ids[1] = {ZVFIO_INFOTEXT_READEXTENSIONS};
    BSTR texts[1];
    EXPECT_EQ(reader->GetInfoText(ids, -1, texts), E_INVALIDARG);

    IZvRenderFileClass *renderer = nullptr;
    ASSERT_EQ(reader->GetRenderClass(&renderer), S_OK);
    PZVTEMPLATE t = nullptr;
    EXPECT_EQ(renderer->GetTemplate(&t, TK_RENDERER_PRESETS), E_INVALIDARG);
    EXPECT_EQ(t, nullptr);
    renderer->Release();
    reader->Release();
}

// ------------------------------------------------- across a process border

ZVTEST_CHILD(contract_tkdual)
{
    if (FAILED(contracttest::InitComOnce()))
        return 9;
    Plugin dual(L"tk_dual.dll");
    if (!dual.getClassObject)
        return 10;
    IZvReadFileClass *cls = nullptr;
    if (FAILED(dual.create(CLSID_TkDualReader, IID_IZvReadFileClass, &cls)))
        return 11;
    int rc = contracttest::ServeObject(cls, argc, argv);
    cls->Release();
    return rc;
}

TEST(TestkitPlugins, ContractCallsCrossIntoAPluginProcess)
{
    ASSERT_TRUE(SUCCEEDED(contracttest::InitComOnce()));
    zvtest::TempDir dir;
    // the test reader's file: its magic and a frame count of 4096
    const std::wstring path = dir.file(L"x.tkd");
    ASSERT_TRUE(zvtest::WriteFileBytes(path, TK_MAGIC_DUAL "\0\x10\0\0", 8));
    LONG attachesBefore = Counters().get(TK_DLL_DUAL, TK_ATTACH);
    contracttest::ChildServer child("contract_tkdual", dir.file(L"object.bin"));
    ASSERT_NE(child.object(), nullptr);
    // the child shares our counters through the inherited scope
    EXPECT_EQ(Counters().get(TK_DLL_DUAL, TK_ATTACH), attachesBefore + 1);
    EXPECT_EQ(Counters().get(TK_DLL_DUAL, TK_LAST_PID), (LONG)child.processId());

    IZvReadFileClass *cls = nullptr;
    ASSERT_EQ(child.object()->QueryInterface(IID_IZvReadFileClass, (void **)&cls), S_OK);
    GUID guid = {};
    EXPECT_EQ(cls->GetClassGuid(&guid), S_OK);
    EXPECT_TRUE(IsEqualGUID(guid, CLSID_TkDualReader));

    // string arrays, identification records, handles of this process
    ZVFIO_FILECLASS_INFO_TEXT ids[2] = {ZVFIO_INFOTEXT_EXTENSIONS, ZVFIO_INFOTEXT_SHORTNAME};
    BSTR texts[2] = {};
    ASSERT_EQ(cls->GetInfoText(ids, 2, texts), S_OK);
    EXPECT_STREQ(texts[0], L"*.tkd");
    EXPECT_STREQ(texts[1], L"TkDual");
    SysFreeString(texts[0]);
    SysFreeString(texts[1]);
    EXPECT_EQ(ZvSdk_IsType(cls, ~(UINT64)0, TK_MAGIC_DUAL, 4, 0), S_OK);
    EXPECT_EQ(ZvSdk_IsType(cls, ~(UINT64)0, "OggS", 4, 0), ZVERR_UNSUPPORTED_FORMAT);
    EXPECT_EQ(ZvSdk_IsTypeSlow(cls, path.c_str()), S_OK);

    HANDLE h = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, NULL, OPEN_EXISTING, 0, NULL);
    IZvReadFile *file = nullptr;
    ASSERT_EQ(cls->OpenFile(&file, ZvSdk_HandleToWire(h), GetCurrentProcessId(), path.c_str(), TRUE), S_OK);
    CloseHandle(h);
    LONGLONG length = 0;
    EXPECT_EQ(file->GetLength(&length), S_OK);
    EXPECT_EQ(length, 8);
    IZvReadAudioStream *audio = zvtest::OpenAudio(file, 0, ZVFILESTREAMTYPE_AUDIO);
    ASSERT_NE(audio, nullptr);
    _ZVFILESTREAMFORMATINFOv2 format = {};
    EXPECT_EQ(audio->GetStreamFormatInfo(&format), S_OK);
    EXPECT_EQ(format.cbSize, (DWORD)ZVFILESTREAMFORMATINFO_SIZE);
    EXPECT_EQ(format.llLength, 4096);

    // bulk data by token: local memory of this process ...
    std::vector<short> local(2 * 256, -1);
    DWORD got = 0;
    EXPECT_EQ(audio->ReadSamples(100, 0, LocalToken(local.data(), 1024), 256, &got), S_OK);
    EXPECT_EQ(got, 256u);
    EXPECT_TRUE(RampHolds(local.data(), 100, 256));
    // ... and a mapping of this process with the data at an offset
    HANDLE mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, NULL, PAGE_READWRITE, 0, 4096, NULL);
    ASSERT_NE(mapping, (HANDLE)NULL);
    BYTE *view = (BYTE *)MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 4096);
    ASSERT_NE(view, nullptr);
    _zvmemorytoken mapped = {};
    mapped.hMapping = ZvSdk_HandleToWire(mapping);
    mapped.qwBase = (UINT64)(ULONG_PTR)view;
    mapped.cbData = 1024;
    mapped.cbMapping = 4096;
    mapped.dwOffset = 64;
    mapped.dwKind = ZVMEMTOKEN_KIND_MAPPING;
    mapped.dwProcessId = GetCurrentProcessId();
    EXPECT_EQ(audio->ReadSamples(4000, 0, mapped, 256, &got), S_OK);
    EXPECT_EQ(got, 96u);
    EXPECT_TRUE(RampHolds((short *)(view + 64), 4000, 96));
    EXPECT_EQ(view[0], 0);
    UnmapViewOfFile(view);
    CloseHandle(mapping);
    audio->Release();
    file->Release();

    // template records come back as blocks of this process's heap
    IZvRenderFileClass *renderer = nullptr;
    ASSERT_EQ(cls->GetRenderClass(&renderer), S_OK);
    PZVTEMPLATE t = nullptr;
    ASSERT_EQ(renderer->GetTemplate(&t, 0), S_OK);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->dwVersion, (DWORD)ZVTEMPLATE_VERSION_V2);
    EXPECT_TRUE(IsEqualGUID(t->rendererClass, CLSID_TkDualRenderer));
    EXPECT_STREQ((const wchar_t *)((BYTE *)t + ZVTEMPLATE_HEADER_SIZE), L"Testkit preset 1");
    PZVTEMPLATE edit = nullptr;
    ASSERT_EQ(renderer->MakeEditTemplate(&edit, t, nullptr, 2), S_OK);
    EXPECT_EQ(memcmp(edit, t, t->dwSize), 0);
    DWORD rate = 0;
    EXPECT_EQ(renderer->GetTemplateInfo(t, (BYTE *)&rate, 4, 3), S_OK);
    EXPECT_EQ(rate, (DWORD)(TK_SAMPLE_RATE * TK_CHANNELS * 16));
    free(edit);
    free(t);
    EXPECT_EQ(renderer->MakeEditTemplate(&edit, nullptr, nullptr, 2), E_INVALIDARG);
    EXPECT_EQ(edit, nullptr);
    renderer->Release();

    HRESULT status = E_FAIL;
    BSTR message = nullptr;
    EXPECT_EQ(cls->GetPluginStatus(&status, &message), S_OK);
    EXPECT_EQ(status, S_OK);
    EXPECT_STREQ(message, L"ready");
    SysFreeString(message);
    cls->Release();
}
