// The PCM reader plug-in, loaded straight from its DLL: identification,
// opening and decoding against sox's raw decode of the same files, a reader
// in a second process working with our handle and our memory, and damaged
// files that must end in the system's codes.
#include <gtest/gtest.h>
#include "testutil.h"
#include "readstream.h"
#include "zvplugin_sdk.h"
#include "zvplugin_view.h"
#include "audio/waveformat.h"
#include "filemng/zvmemtoken.h"
#include "media/riff.h"
#include <algorithm>
#include <random>
#include <sstream>
#include <stdio.h>
#include <string>
#include <vector>

namespace {

const GUID kWaveClass = {0x0A30C422, 0xB91B, 0x11D3, {0xA4, 0x84, 0x00, 0x10, 0x5A, 0x24, 0xAA, 0x37}};
const GUID kWave64Class = {0x605F1174, 0x83E4, 0x4420, {0x85, 0xA1, 0xB5, 0xA4, 0xDC, 0x1E, 0xA0, 0x28}};
const GUID kAiffClass = {0x3CBBA9C2, 0x75AD, 0x11D3, {0xA4, 0x83, 0x00, 0x10, 0x5A, 0x24, 0xAA, 0x37}};
const GUID *const kClasses[3] = {&kWaveClass, &kWave64Class, &kAiffClass};

template <class T> HRESULT Create(const GUID &clsid, REFIID iid, T **out)
{
    return zvtest::CreateFromDll(L"pcm.dll", clsid, iid, (void **)out);
}

IZvReadFileClass *Class(int index)
{
    static IZvReadFileClass *classes[3];
    if (!classes[index])
        Create(*kClasses[index], IID_IZvReadFileClass, &classes[index]);
    return classes[index];
}

int ContainerIndex(const std::string &name)
{
    return name == "wave" ? 0 : name == "wave64" ? 1 : 2;
}

struct Fixture {
    std::wstring path, raw;
    int container;
    ZVSAMPLETYPE type;
    unsigned bytes, channels, rate;
};

std::wstring FixtureDir() { return zvtest::HostDirFromEnv("ZV_PCM_FIXTURES"); }

ZVSAMPLETYPE TypeByName(const std::string &t)
{
    if (t == "u8") return ZVSAMPLE_U8;
    if (t == "s16") return ZVSAMPLE_S16;
    if (t == "s24") return ZVSAMPLE_S24;
    if (t == "s32") return ZVSAMPLE_S32;
    if (t == "f32") return ZVSAMPLE_F32;
    if (t == "f64") return ZVSAMPLE_F64;
    return ZVSAMPLE_NONE;
}

// The files of manifest.txt: file raw container type bytes channels rate.
const std::vector<Fixture> &Fixtures()
{
    static std::vector<Fixture> list = [] {
        std::vector<Fixture> out;
        std::wstring dir = FixtureDir();
        std::vector<unsigned char> text;
        if (dir.empty() || !zvtest::ReadFileBytes(dir + L"manifest.txt", text))
            return out;
        std::istringstream in(std::string(text.begin(), text.end()));
        std::string file, raw, container, type;
        Fixture f;
        while (in >> file >> raw >> container >> type >> f.bytes >> f.channels >> f.rate) {
            f.path = dir + std::wstring(file.begin(), file.end());
            f.raw = dir + std::wstring(raw.begin(), raw.end());
            f.container = ContainerIndex(container);
            f.type = TypeByName(type);
            out.push_back(f);
        }
        return out;
    }();
    return list;
}

HANDLE OpenForRead(const std::wstring &path)
{
    return CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL, OPEN_EXISTING, 0, NULL);
}

// The reader's type test as the manager makes it: the first 64 KiB and the
// handle.
HRESULT Identify(IZvReadFileClass *cls, HANDLE file)
{
    std::vector<BYTE> chunk(65536);
    DWORD got = 0;
    SetFilePointer(file, 0, NULL, FILE_BEGIN);
    if (!ReadFile(file, chunk.data(), (DWORD)chunk.size(), &got, NULL))
        got = 0;
    return ZvSdk_IsType(cls, ZvSdk_HandleToWire(file), got ? chunk.data() : nullptr, got, 0);
}

struct Opened {
    IZvReadFile *file = nullptr;
    IZvReadAudioStream *audio = nullptr;
    _zvwaveformat format = {};
    LONGLONG frames = 0;
    ~Opened()
    {
        if (audio)
            audio->Release();
        if (file)
            file->Release();
    }
};

// Opens through the class with our handle, which is closed before any read:
// the reader must hold its own.
HRESULT Open(IZvReadFileClass *cls, const std::wstring &path, Opened &o)
{
    HANDLE h = OpenForRead(path);
    if (h == INVALID_HANDLE_VALUE)
        return HRESULT_FROM_WIN32(GetLastError());
    HRESULT hr = cls->OpenFile(&o.file, ZvSdk_HandleToWire(h), GetCurrentProcessId(), path.c_str(), TRUE);
    CloseHandle(h);
    if (FAILED(hr))
        return hr;
    IZvReadStream *stream = nullptr;
    hr = o.file->OpenStream(&stream, 0, 0, 0, 0);
    if (FAILED(hr))
        return hr;
    hr = stream->QueryInterface(IID_IZvReadAudioStream, (void **)&o.audio);
    stream->Release();
    if (FAILED(hr))
        return hr;
    _ZVFILESTREAMFORMATINFOv2 info = {};
    hr = o.audio->GetStreamFormatInfo(&info);
    if (FAILED(hr))
        return hr;
    memcpy(&o.format, info.format, sizeof o.format);
    o.frames = info.llLength;
    return S_OK;
}

using zvtest::LocalToken;

// All frames, read with buffers of changing odd sizes.
HRESULT ReadAll(IZvReadAudioStream *audio, unsigned align, LONGLONG frames, std::vector<BYTE> &out)
{
    static const DWORD sizes[] = {1, 7, 333, 4099, 3, 1021};
    out.clear();
    std::vector<BYTE> buffer;
    LONGLONG at = 0;
    for (int i = 0; at < frames; i++) {
        DWORD want = sizes[i % 6];
        buffer.assign((size_t)want * align, 0xCD);
        DWORD got = 0;
        HRESULT hr = audio->ReadSamples((DWORD)at, (LONG)(at >> 32), LocalToken(buffer.data(), (DWORD)buffer.size()),
                                        want, &got);
        if (FAILED(hr))
            return hr;
        if (got == 0)
            return E_UNEXPECTED;   // no progress before the end
        out.insert(out.end(), buffer.begin(), buffer.begin() + (size_t)got * align);
        at += got;
    }
    return S_OK;
}

bool IsSystemCode(HRESULT hr)
{
    return hr == (HRESULT)0x8004E00B || hr == (HRESULT)0x8004E016 ||
           (hr >= (HRESULT)0x8004E080 && hr <= (HRESULT)0x8004E083);
}

} // namespace

// ------------------------------------------------------------ the module

TEST(PcmModule, ListsThreeReaderClassesUnderTheTableIdsThenTheirRenderers)
{
    IZvUnsharedFIOPluginInfo *listing = nullptr;
    ASSERT_EQ(Create(CLSID_ZvPluginInfo, IID_IZvUnsharedFIOPluginInfo, &listing), S_OK);
    LONG count = 0;
    ASSERT_EQ(listing->GetClassCount(&count), S_OK);
    ASSERT_EQ(count, 6);
    for (LONG i = 0; i < 3; i++) {
        ZVFIO_PLUGINCLASSINFO info = {};
        ASSERT_EQ(listing->GetPluginClassInfo(i, &info), S_OK);
        EXPECT_TRUE(IsEqualGUID(info.classId, *kClasses[i]));
        EXPECT_EQ(info.dwAccess, (DWORD)ZVFIO_ACCESS_READER);
        EXPECT_NE(info.name[0], 0);
        GUID guid = {};
        ASSERT_NE(Class(i), nullptr);
        EXPECT_EQ(Class(i)->GetClassGuid(&guid), S_OK);
        EXPECT_TRUE(IsEqualGUID(guid, *kClasses[i]));
    }
    ZVFIO_PLUGINCLASSINFO info = {};
    for (LONG i = 3; i < 6; i++) {
        ASSERT_EQ(listing->GetPluginClassInfo(i, &info), S_OK);
        EXPECT_EQ(info.dwAccess, (DWORD)ZVFIO_ACCESS_RENDERER);
        IUnknown *renderer = nullptr;
        EXPECT_EQ(Create(info.classId, IID_IUnknown, &renderer), S_OK);
        if (renderer)
            renderer->Release();
    }
    EXPECT_EQ(listing->GetPluginClassInfo(6, &info), E_INVALIDARG);
    EXPECT_EQ(listing->GetPluginClassInfo(-1, &info), E_INVALIDARG);
    EXPECT_EQ(listing->GetPluginClassInfo(0, nullptr), E_POINTER);
    listing->Release();

    IUnknown *none = nullptr;
    EXPECT_EQ(Create(IID_IZvReadFile, IID_IUnknown, &none), CLASS_E_CLASSNOTAVAILABLE);

    ZVFIO_FILECLASS_INFO_TEXT ids[3] = {ZVFIO_INFOTEXT_EXTENSIONS, ZVFIO_INFOTEXT_PLUGINNAME, (ZVFIO_FILECLASS_INFO_TEXT)99};
    BSTR texts[3] = {};
    ASSERT_EQ(Class(2)->GetInfoText(ids, 3, texts), S_OK);
    EXPECT_STREQ(texts[0], L"*.aif;*.aiff;*.aifc");
    EXPECT_NE(texts[1], nullptr);
    EXPECT_EQ(texts[2], nullptr);
    SysFreeString(texts[0]);
    SysFreeString(texts[1]);
}

TEST(PcmModule, IdentifiesByPathAloneFromTheExtension)
{
    EXPECT_EQ(ZvSdk_IsTypeSlow(Class(0), L"C:\\a.b\\take.WAV"), S_OK);
    EXPECT_EQ(ZvSdk_IsTypeSlow(Class(0), L"C:\\take.wav?track=2"), S_OK);
    EXPECT_EQ(ZvSdk_IsTypeSlow(Class(0), L"C:\\wav\\take"), ZVERR_UNSUPPORTED_FORMAT);
    EXPECT_EQ(ZvSdk_IsTypeSlow(Class(1), L"x.w64"), S_OK);
    EXPECT_EQ(ZvSdk_IsTypeSlow(Class(2), L"x.aifc"), S_OK);
    EXPECT_EQ(ZvSdk_IsTypeSlow(Class(2), L"x.wav"), ZVERR_UNSUPPORTED_FORMAT);
    ZVFIO_IDENTIFYINFO empty = {};
    empty.cbSize = sizeof empty;
    empty.hFile = ~(UINT64)0;
    EXPECT_EQ(Class(0)->IdentifyFile(&empty), E_INVALIDARG);
    EXPECT_EQ(Class(0)->IdentifyFile(nullptr), E_POINTER);
}

// ------------------------------------------------------------- decoding

TEST(PcmDecode, EveryFixtureMatchesSoxByteForByte)
{
    const std::vector<Fixture> &list = Fixtures();
    ASSERT_GE(list.size(), 17u) << "fixtures missing: ZV_PCM_FIXTURES=" << (getenv("ZV_PCM_FIXTURES") ? getenv("ZV_PCM_FIXTURES") : "");
    for (const Fixture &f : list) {
        SCOPED_TRACE(std::string(f.path.begin(), f.path.end()));
        HANDLE h = OpenForRead(f.path);
        ASSERT_NE(h, INVALID_HANDLE_VALUE);
        for (int c = 0; c < 3; c++)
            EXPECT_EQ(Identify(Class(c), h), c == f.container ? S_OK : ZVERR_UNSUPPORTED_FORMAT) << "class " << c;
        CloseHandle(h);

        Opened o;
        ASSERT_EQ(Open(Class(f.container), f.path, o), S_OK);
        EXPECT_EQ(o.format.sampleType, f.type);
        EXPECT_EQ(o.format.channels, f.channels);
        EXPECT_EQ(o.format.samplesPerSec, f.rate);
        unsigned align = f.bytes * f.channels;
        EXPECT_EQ(o.format.blockAlign, align);
        DWORD blockAlign = 0;
        EXPECT_EQ(o.audio->GetBlockAlign(&blockAlign), S_OK);
        EXPECT_EQ(blockAlign, align);

        std::vector<unsigned char> expected, got;
        ASSERT_TRUE(zvtest::ReadFileBytes(f.raw, expected));
        EXPECT_EQ(o.frames, (LONGLONG)(expected.size() / align));
        ASSERT_EQ(ReadAll(o.audio, align, o.frames, got), S_OK);
        ASSERT_EQ(got.size(), expected.size() / align * align);
        EXPECT_TRUE(memcmp(got.data(), expected.data(), got.size()) == 0);
    }
}

TEST(PcmDecode, StoredFormatTellsWhatTheFileHolds)
{
    struct Case {
        const wchar_t *file;
        ZVSAMPLETYPE stored;
        bool extensible;
    } cases[] = {
        {L"a16.aiff", ZVSAMPLE_S16BE, false}, {L"a24.aiff", ZVSAMPLE_S24BE, false},
        {L"a8.aiff", ZVSAMPLE_S8, false},     {L"csowt.aifc", ZVSAMPLE_S16, false},
        {L"wext.wav", ZVSAMPLE_S24, true},    {L"w8.wav", ZVSAMPLE_U8, false},
    };
    ASSERT_FALSE(Fixtures().empty());
    for (const Case &c : cases) {
        std::wstring path = FixtureDir() + c.file;
        int container = wcsstr(c.file, L".aif") ? 2 : 0;
        Opened o;
        ASSERT_EQ(Open(Class(container), path, o), S_OK);
        _ZVFILESTREAMFORMATINFOv2 info = {};
        ASSERT_EQ(o.audio->GetStoredFormatInfo(&info), S_OK);
        EXPECT_EQ(info.cbSize, (DWORD)ZVFILESTREAMFORMATINFO_SIZE);
        EXPECT_EQ(info.dwStreamType, (DWORD)ZVFILESTREAMTYPE_AUDIO);
        _zvwaveformat stored;
        memcpy(&stored, info.format, sizeof stored);
        EXPECT_EQ(stored.sampleType, c.stored);
        EXPECT_EQ((stored.flags & ZVWFX_FLAG_EXTENSIBLE) != 0, c.extensible);
    }
}

TEST(PcmDecode, RandomAccessEndsAndArguments)
{
    ASSERT_FALSE(Fixtures().empty());
    const Fixture &f = Fixtures()[2];   // 24-bit stereo wave
    std::vector<unsigned char> expected;
    ASSERT_TRUE(zvtest::ReadFileBytes(f.raw, expected));
    Opened o;
    ASSERT_EQ(Open(Class(f.container), f.path, o), S_OK);
    const unsigned align = f.bytes * f.channels;
    std::mt19937 rng(7);
    std::vector<BYTE> buffer(4096 * align);
    for (int i = 0; i < 50; i++) {
        LONGLONG at = rng() % o.frames;
        DWORD want = 1 + rng() % 4096, got = 0;
        ASSERT_EQ(o.audio->ReadSamples((DWORD)at, 0, LocalToken(buffer.data(), (DWORD)buffer.size()), want, &got),
                  S_OK);
        ASSERT_EQ(got, (DWORD)std::min<LONGLONG>(want, o.frames - at));
        ASSERT_EQ(memcmp(buffer.data(), expected.data() + at * align, (size_t)got * align), 0) << at;
        LONGLONG next = -1;
        EXPECT_EQ(o.audio->GetReadPosition(&next), S_OK);
        EXPECT_EQ(next, at + got);
    }
    DWORD got = 99;
    EXPECT_EQ(o.audio->ReadSamples((DWORD)o.frames, 0, LocalToken(buffer.data(), 64), 1, &got), S_FALSE);
    EXPECT_EQ(got, 0u);
    EXPECT_EQ(o.audio->ReadSamples(0, 1, LocalToken(buffer.data(), 64), 1, &got), S_FALSE);
    EXPECT_EQ(o.audio->ReadSamples(0, -1, LocalToken(buffer.data(), 64), 1, &got), E_INVALIDARG);
    EXPECT_EQ(o.audio->ReadSamples(0, 0, LocalToken(buffer.data(), align * 10 - 1), 10, &got), ZVERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(o.audio->ReadSamples(0, 0, LocalToken(buffer.data(), 64), 1, nullptr), E_POINTER);

    // a mapping token with the data at an offset
    _zvmemorytoken mapped;
    ASSERT_EQ(ZvMemoryToken_CreateMapping(&mapped, 8192), S_OK);
    BYTE *view = (BYTE *)(ULONG_PTR)mapped.qwBase;
    mapped.dwOffset = 100;
    mapped.cbData = 8000;
    EXPECT_EQ(o.audio->ReadSamples(5, 0, mapped, 8000 / align, &got), S_OK);
    EXPECT_EQ(memcmp(view + 100, expected.data() + 5 * align, (size_t)got * align), 0);
    EXPECT_EQ(view[99], 0);
    mapped.dwOffset = 0;
    ZvMemoryToken_ReleaseMapping(&mapped);

    // the object graph: stream to file to class, streams by index and type
    IZvReadFileClass *cls = nullptr;
    ASSERT_EQ(o.file->GetClass(&cls), S_OK);
    EXPECT_EQ(cls, Class(f.container));
    cls->Release();
    IZvReadStream *stream = nullptr;
    EXPECT_EQ(o.file->OpenStream(&stream, 1, 0, 0, 0), E_INVALIDARG);
    EXPECT_EQ(o.file->OpenStream(&stream, 0, ZVFILESTREAMTYPE_VIDEO, 0, 0), E_INVALIDARG);
    EXPECT_EQ(stream, nullptr);
    LONG count = 0;
    EXPECT_EQ(o.file->GetStreamCount(&count), S_OK);
    EXPECT_EQ(count, 1);
    LONGLONG length = 0;
    EXPECT_EQ(o.file->GetLength(&length), S_OK);
    WIN32_FILE_ATTRIBUTE_DATA attributes;
    ASSERT_TRUE(GetFileAttributesExW(f.path.c_str(), GetFileExInfoStandard, &attributes));
    EXPECT_EQ(length, (LONGLONG)attributes.nFileSizeLow);
    // after Close the file gives no more samples, and says so
    EXPECT_EQ(o.file->Close(), S_OK);
    EXPECT_EQ(o.audio->ReadSamples(0, 0, LocalToken(buffer.data(), (DWORD)buffer.size()), 10, &got), E_UNEXPECTED);
}

TEST(PcmDecode, OpensByNameWithAMonikerTailWhenGivenNoHandle)
{
    ASSERT_FALSE(Fixtures().empty());
    const Fixture &f = Fixtures()[0];
    std::wstring name = f.path + L"?take=1";
    IZvReadFile *file = nullptr;
    ASSERT_EQ(Class(f.container)->OpenFile(&file, ~(UINT64)0, GetCurrentProcessId(), name.c_str(), TRUE), S_OK);
    BSTR stored = nullptr;
    EXPECT_EQ(file->GetFileName(&stored), S_OK);
    EXPECT_STREQ(stored, name.c_str());
    SysFreeString(stored);
    file->Release();
    EXPECT_EQ(Class(0)->OpenFile(&file, ~(UINT64)0, GetCurrentProcessId(), L"Z:\\no\\such\\file.wav", TRUE),
              HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(file, nullptr);
    // a file of another container is refused by each class
    EXPECT_EQ(Class(1)->OpenFile(&file, ~(UINT64)0, GetCurrentProcessId(), f.path.c_str(), TRUE),
              ZVERR_UNSUPPORTED_FORMAT);
    EXPECT_EQ(Class(2)->OpenFile(&file, ~(UINT64)0, GetCurrentProcessId(), f.path.c_str(), TRUE),
              ZVERR_UNSUPPORTED_FORMAT);
}

// ----------------------------------------------- across a process border

// The child opens the parent's handle by the parent's process id and reads
// into two tokens of the parent: a mapping and plain memory.
ZVTEST_CHILD(pcm_foreign)
{
    if (argc < 6)
        return 2;
    UINT64 handle = _strtoui64(argv[0], nullptr, 16);
    DWORD pid = strtoul(argv[1], nullptr, 10);
    _zvmemorytoken mapped = {}, local = {};
    mapped.hMapping = _strtoui64(argv[2], nullptr, 16);
    mapped.qwBase = _strtoui64(argv[3], nullptr, 16);
    local.qwBase = _strtoui64(argv[4], nullptr, 16);
    DWORD frames = strtoul(argv[5], nullptr, 10);
    mapped.cbData = mapped.cbMapping = local.cbData = local.cbMapping = frames * 4;
    mapped.dwKind = ZVMEMTOKEN_KIND_MAPPING;
    local.dwKind = ZVMEMTOKEN_KIND_LOCAL;
    local.hMapping = ~(UINT64)0;
    mapped.dwProcessId = local.dwProcessId = pid;
    IZvReadFileClass *cls = Class(0);
    if (!cls)
        return 3;
    IZvReadFile *file = nullptr;
    if (cls->OpenFile(&file, handle, pid, L"w16.wav", TRUE) != S_OK)
        return 4;
    IZvReadAudioStream *audio = zvtest::OpenAudio(file);
    if (!audio)
        return 5;
    DWORD got1 = 0, got2 = 0;
    HRESULT hr1 = audio->ReadSamples(0, 0, mapped, frames, &got1);
    HRESULT hr2 = audio->ReadSamples(frames, 0, local, frames, &got2);
    audio->Release();
    file->Release();
    if (hr1 != S_OK || got1 != frames)
        return 6;
    if (hr2 != S_OK || got2 != frames)
        return 7;
    return 0;
}

TEST(PcmForeign, AReaderInAnotherProcessUsesOurHandleAndOurMemory)
{
    ASSERT_GE(Fixtures().size(), 2u);
    const Fixture &f = Fixtures()[1];   // 16-bit stereo wave
    std::vector<unsigned char> expected;
    ASSERT_TRUE(zvtest::ReadFileBytes(f.raw, expected));
    const DWORD frames = 1000;
    HANDLE h = OpenForRead(f.path);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    _zvmemorytoken mapped;
    ASSERT_EQ(ZvMemoryToken_CreateMapping(&mapped, frames * 4), S_OK);
    std::vector<BYTE> local(frames * 4, 0xEE);

    wchar_t args[512];
    swprintf(args, 512, L"pcm_foreign %llx %lu %llx %llx %llx %lu",
             (unsigned long long)ZvSdk_HandleToWire(h), GetCurrentProcessId(),
             (unsigned long long)mapped.hMapping, (unsigned long long)mapped.qwBase,
             (unsigned long long)(ULONG_PTR)local.data(), frames);
    EXPECT_EQ(zvtest::RunChildProcess(args), 0u);
    CloseHandle(h);
    EXPECT_EQ(memcmp((BYTE *)(ULONG_PTR)mapped.qwBase, expected.data(), frames * 4), 0);
    EXPECT_EQ(memcmp(local.data(), expected.data() + frames * 4, frames * 4), 0);
    ZvMemoryToken_ReleaseMapping(&mapped);
}

// A reader's kept view of its caller's buffer follows the caller's
// sections: a wider request, more access, and a new section behind a handle
// value that named another one before. A suspended child owns the handles,
// as a host owns the buffer it passes to a surrogate.
TEST(PcmForeign, AKeptViewFollowsTheCallersSections)
{
    struct Owner {
        PROCESS_INFORMATION pi = {};
        ~Owner()
        {
            if (pi.hProcess) {
                TerminateProcess(pi.hProcess, 0);
                WaitForSingleObject(pi.hProcess, 10000);
                CloseHandle(pi.hThread);
                CloseHandle(pi.hProcess);
            }
        }
    } owner;
    PROCESS_INFORMATION &pi = owner.pi;
    std::wstring cmd = L"\"" + zvtest::ExePath() + L"\" --child none";
    STARTUPINFOW si = {};
    si.cb = sizeof si;
    ASSERT_TRUE(CreateProcessW(NULL, &cmd[0], NULL, NULL, FALSE, CREATE_SUSPENDED, NULL, NULL, &si, &pi));
    const DWORD size = 64 << 10;
    HANDLE a = CreateFileMappingW(INVALID_HANDLE_VALUE, NULL, PAGE_READWRITE, 0, size, NULL);
    HANDLE b = CreateFileMappingW(INVALID_HANDLE_VALUE, NULL, PAGE_READWRITE, 0, size, NULL);
    BYTE *viewA = (BYTE *)MapViewOfFile(a, FILE_MAP_WRITE, 0, 0, 0);
    BYTE *viewB = (BYTE *)MapViewOfFile(b, FILE_MAP_WRITE, 0, 0, 0);
    ASSERT_TRUE(viewA && viewB);
    auto give = [&](HANDLE h) {
        HANDLE theirs = NULL;
        DuplicateHandle(GetCurrentProcess(), h, pi.hProcess, &theirs, 0, FALSE, DUPLICATE_SAME_ACCESS);
        return theirs;
    };
    HANDLE inChild = give(a);
    ASSERT_NE(inChild, (HANDLE)NULL);
    _zvmemorytoken t = {};
    t.hMapping = ZvSdk_HandleToWire(inChild);
    t.cbData = t.cbMapping = 4096;
    t.dwKind = ZVMEMTOKEN_KIND_MAPPING;
    t.dwProcessId = pi.dwProcessId;
    zvsdk::KeptView kept;
    auto put = [&](DWORD access, BYTE value) {
        zvsdk::HeldView held(kept, t, access);
        if (held.get() && (access & FILE_MAP_WRITE))
            memset(held.get(), value, t.cbData);
        return held.get() != nullptr;
    };
    auto all = [](const BYTE *p, DWORD n, BYTE v) { return std::all_of(p, p + n, [v](BYTE x) { return x == v; }); };

    EXPECT_TRUE(put(FILE_MAP_READ, 0));
    EXPECT_TRUE(put(FILE_MAP_WRITE, 1));   // more access than the kept view has
    EXPECT_TRUE(all(viewA, 4096, 1));
    t.dwOffset = 8192;                     // past the kept view's end
    t.cbData = 8192;
    EXPECT_TRUE(put(FILE_MAP_WRITE, 2));
    EXPECT_TRUE(all(viewA + 8192, 8192, 2));

    // the caller closes its section and passes another, likely under the
    // same handle value
    HANDLE back = NULL;
    ASSERT_TRUE(DuplicateHandle(pi.hProcess, inChild, GetCurrentProcess(), &back, 0, FALSE,
                                DUPLICATE_CLOSE_SOURCE | DUPLICATE_SAME_ACCESS));
    CloseHandle(back);
    t.hMapping = ZvSdk_HandleToWire(give(b));
    EXPECT_TRUE(put(FILE_MAP_WRITE, 3));
    EXPECT_TRUE(all(viewB + 8192, 8192, 3));
    EXPECT_TRUE(all(viewA + 8192, 8192, 2));

    // tokens of this process and plain memory get no kept view
    t.dwProcessId = GetCurrentProcessId();
    EXPECT_FALSE(put(FILE_MAP_WRITE, 4));
    t.dwProcessId = pi.dwProcessId;
    t.dwKind = ZVMEMTOKEN_KIND_LOCAL;
    EXPECT_FALSE(put(FILE_MAP_WRITE, 4));

    UnmapViewOfFile(viewA);
    UnmapViewOfFile(viewB);
    CloseHandle(a);
    CloseHandle(b);
}

// ------------------------------------------------------------ bad files

namespace {

struct Damaged {
    zvtest::TempDir dir;
    // Writes the bytes as a file, identifies and opens it with a class, reads
    // whatever opened; returns the first failure, or S_OK.
    HRESULT run(int cls, const std::vector<BYTE> &bytes, const wchar_t *name = L"x.wav")
    {
        std::wstring path = dir.file(name);
        if (!zvtest::WriteFileBytes(path, bytes.data(), bytes.size()))
            return E_FAIL;
        HANDLE h = OpenForRead(path);
        if (h == INVALID_HANDLE_VALUE)
            return E_FAIL;
        HRESULT identified = Identify(Class(cls), h);
        CloseHandle(h);
        Opened o;
        HRESULT hr = Open(Class(cls), path, o);
        if (SUCCEEDED(identified) != SUCCEEDED(hr))
            return E_UNEXPECTED;   // the two must agree on a file with a handle
        if (FAILED(hr))
            return hr;
        unsigned align = o.format.blockAlign;
        if (align == 0 || (ULONGLONG)o.frames * align > bytes.size())
            return E_UNEXPECTED;
        std::vector<BYTE> all;
        return ReadAll(o.audio, align, o.frames, all);
    }
};

std::vector<BYTE> FixtureBytes(size_t index, size_t limit = 0)
{
    std::vector<BYTE> bytes;
    if (index < Fixtures().size())
        zvtest::ReadFileBytes(Fixtures()[index].path, bytes);
    if (limit && bytes.size() > limit)
        bytes.resize(limit);
    return bytes;
}

} // namespace

TEST(PcmBadFiles, DamagedHeadersGiveTheSystemCodes)
{
    ASSERT_GE(Fixtures().size(), 13u);
    Damaged d;
    // w16.wav: RIFF 0, WAVE 8, "fmt " 12 (16 bytes from 20), data 36, samples 44
    const std::vector<BYTE> wav = FixtureBytes(1);
    ASSERT_GT(wav.size(), 1000u);
    EXPECT_EQ(d.run(0, std::vector<BYTE>(wav.begin(), wav.begin() + 8)), ZVERR_MALFORMED);
    EXPECT_EQ(d.run(0, std::vector<BYTE>(wav.begin(), wav.begin() + 30)), ZVERR_MALFORMED);
    EXPECT_EQ(d.run(0, std::vector<BYTE>(wav.begin(), wav.begin() + 44)), S_OK);   // no samples at all
    // one field overwritten (little-endian, `width` bytes); a data size past
    // the end, or a RIFF size of 0, reads what is there, as from a recording
    // that was never closed
    const struct {
        size_t at, width;
        DWORD value;
        HRESULT want;
    } edits[] = {
        {16, 4, 0x7FFFFFF0, ZVERR_MALFORMED}, {22, 2, 0, ZVERR_MALFORMED},
        {24, 4, 0, ZVERR_MALFORMED},          {24, 4, 0xFFFFFFFF, ZVERR_MALFORMED},
        {24, 4, 10000000, ZVERR_MALFORMED},   {32, 2, 3, ZVERR_MALFORMED},
        {20, 2, 2, ZVERR_UNSUPPORTED_FORMAT}, {34, 2, 12, ZVERR_UNSUPPORTED_FORMAT},
        {8, 4, ZVRIFF_ID('A', 'V', 'I', ' '), ZVERR_UNSUPPORTED_FORMAT},
        {36, 4, ZVRIFF_ID('d', 'a', 't', '_'), ZVERR_MALFORMED},
        {40, 4, 0xFFFFFFFF, S_OK},            {4, 4, 0, S_OK},
    };
    for (const auto &e : edits) {
        std::vector<BYTE> b = wav;
        memcpy(&b[e.at], &e.value, e.width);
        EXPECT_EQ(d.run(0, b), e.want) << "at " << e.at << " value " << e.value;
    }

    // random bytes named .wav, and an empty file
    std::mt19937 rng(11);
    std::vector<BYTE> noise(3000);
    for (BYTE &b : noise)
        b = (BYTE)rng();
    for (int c = 0; c < 3; c++)
        EXPECT_EQ(d.run(c, noise), ZVERR_UNSUPPORTED_FORMAT) << c;
    EXPECT_EQ(d.run(0, std::vector<BYTE>()), ZVERR_UNSUPPORTED_FORMAT);

    // AIFF (a16.aiff: channels at COMM + 8, the rate's exponent at COMM + 16)
    const std::vector<BYTE> aiff = FixtureBytes(7);
    size_t comm = 12;
    while (comm + 4 < aiff.size() && memcmp(&aiff[comm], "COMM", 4) != 0)
        comm++;
    ASSERT_LT(comm + 26, aiff.size());
    std::vector<BYTE> b = aiff;
    b[comm + 8] = b[comm + 9] = 0;
    EXPECT_EQ(d.run(2, b, L"x.aif"), ZVERR_MALFORMED);
    b = aiff;
    b[comm + 16] = 0x7F;   // rate exponent far too large
    EXPECT_EQ(d.run(2, b, L"x.aif"), ZVERR_MALFORMED);
    b = aiff;
    b[comm + 16] |= 0x80;  // negative rate
    EXPECT_EQ(d.run(2, b, L"x.aif"), ZVERR_MALFORMED);
    b = std::vector<BYTE>(aiff.begin(), aiff.begin() + comm + 20);
    EXPECT_EQ(d.run(2, b, L"x.aif"), ZVERR_MALFORMED);
    // an AIFC compression that isn't linear
    b = FixtureBytes(10);   // cf32.aifc
    for (size_t i = 12; i + 4 < b.size(); i++)
        if (memcmp(&b[i], "fl32", 4) == 0) {
            memcpy(&b[i], "ima4", 4);
            break;
        }
    EXPECT_EQ(d.run(2, b, L"x.aifc"), ZVERR_UNSUPPORTED_FORMAT);

    // Wave64 cut inside its header
    b = FixtureBytes(12, 30);
    EXPECT_EQ(d.run(1, b, L"x.w64"), ZVERR_MALFORMED);
    b = FixtureBytes(12, 100);
    b.resize(64);   // headers whole, fmt cut
    EXPECT_EQ(d.run(1, b, L"x.w64"), ZVERR_MALFORMED);
}

TEST(PcmBadFiles, ThousandsOfMutatedFilesEndInSystemCodes)
{
    ASSERT_GE(Fixtures().size(), 17u);
    Damaged d;
    std::mt19937 rng(20261122);
    static const DWORD extremes[] = {0, 1, 2, 0x7FFFFFFF, 0xFFFFFFFF, 0x80000000, 0xFFFFFFF8, 24, 40};
    int runs = 0, opened = 0;
    for (size_t i = 0; i < Fixtures().size(); i++) {
        const std::vector<BYTE> base = FixtureBytes(i, 1536);
        int cls = Fixtures()[i].container;
        for (int k = 0; k < 125; k++, runs++) {
            std::vector<BYTE> b = base;
            int edits = 1 + rng() % 3;
            for (int e = 0; e < edits && !b.empty(); e++) {
                size_t head = std::min<size_t>(b.size(), 128);
                switch (rng() % 4) {
                case 0:   // flipped bits in the headers
                    b[rng() % head] ^= (BYTE)(1u << (rng() % 8));
                    break;
                case 1:   // a field set to an extreme, either byte order
                    if (head >= 4) {
                        size_t at = rng() % (head - 3);
                        DWORD v = extremes[rng() % 9];
                        if (rng() & 1)
                            v = __builtin_bswap32(v);
                        memcpy(&b[at], &v, 4);
                    }
                    break;
                case 2:   // cut short
                    b.resize(rng() % (b.size() + 1));
                    break;
                default:  // a random byte anywhere
                    b[rng() % b.size()] = (BYTE)rng();
                    break;
                }
            }
            HRESULT hr = d.run(cls, b, L"m.bin");
            ASSERT_TRUE(hr == S_OK || IsSystemCode(hr))
                << "fixture " << i << " run " << k << ": 0x" << std::hex << hr;
            opened += hr == S_OK;
        }
    }
    EXPECT_GE(runs, 2000);
    EXPECT_GT(opened, 0);
}
