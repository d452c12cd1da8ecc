// Identification and opening through plug-in DLLs that the manager finds
// beside the test, loads on its executor and asks: the test plug-ins, and
// files that no reader takes, which must fail with the system's code.
#include <gtest/gtest.h>
#include "mockreader.h"
#include "filemng/fiodiscovery.h"
#include "filemng/fioidentify.h"
#include "filemng/zvmemtoken.h"
#include "zverror.h"
#include "testutil.h"
#include "readstream.h"
#include "fiohost.h"
#include "../../plugins/testkit/testkit.h"

using namespace idtest;

namespace {

// A manager that lists the DLLs beside the test, but for those named, with
// its data files in a folder of its own.
struct DiscoveredFolder {
    TestkitCounters counters;
    zvtest::TempDir tmp;
    const std::wstring dir = tmp.path();
    _ZVFIO_KEYED_INFO info = {};
    explicit DiscoveredFolder(std::vector<const wchar_t *> &skip)
    {
        info.ppSkipNames = skip.data();
        info.cSkipNames = (LONG)skip.size();
    }
};
struct Discovered : DiscoveredFolder, zvtest::HostManager {
    explicit Discovered(std::vector<const wchar_t *> skip)
        : DiscoveredFolder(skip), HostManager(dir, ZVFIO_CREATE_NOCACHE, &info)
    {
        EXPECT_EQ(S_OK, created);
    }
};

std::vector<unsigned char> TkFile(const char *magic, DWORD frames)
{
    std::vector<unsigned char> b(magic, magic + 4);
    b.resize(8);
    memcpy(&b[4], &frames, 4);
    return b;
}

using zvtest::LocalToken;

const std::vector<const wchar_t *> kOnlyReaders = {L"tk_badlist.dll", L"tk_noentry.dll", L"tk_notadll.dll",
                                                   L"tk_preload.dll", L"pcm.dll"};

// The manager lists the folder of the running program: these tests run from
// the copy of this program in the test plug-ins' folder (test_identify_testkit).
#define NEED_TESTKIT_BESIDE()                                                              \
    if (zvtest::TestkitDir() != zvtest::ExeDir())                                         \
    GTEST_SKIP() << "the test plug-ins are not beside this program; run from bin\\testkit"

} // namespace

TEST(IdentifyPlugins, TestReaderFileIsFoundOpenedAndRead)
{
    NEED_TESTKIT_BESIDE();
    Discovered d(kOnlyReaders);
    ASSERT_NE(nullptr, d.mgr);
    LONG readers = 0;
    d.mgr->GetReaderCount(&readers);
    ASSERT_EQ(2, readers) << "tk_dual and tk_reader";
    std::wstring f = WriteTemp(d.dir, L"tone.tkr", TkFile(TK_MAGIC_READER, 1000));
    IZvReadFile *file = nullptr;
    ASSERT_EQ(S_OK, d.mgr->OpenReader(f.c_str(), &file, 0));
    LONG streams = 0;
    EXPECT_EQ(S_OK, file->GetStreamCount(&streams));
    EXPECT_EQ(1, streams);
    IZvReadAudioStream *audio = zvtest::OpenAudio(file, 0, ZVFILESTREAMTYPE_AUDIO);
    ASSERT_NE(nullptr, audio);
    std::vector<short> buffer(2 * 1000);
    DWORD got = 0;
    EXPECT_EQ(S_OK, audio->ReadSamples(0, 0, LocalToken(buffer.data(), 4000 * 2), 1000, &got));
    EXPECT_EQ(1000u, got);
    EXPECT_EQ(2 * 999 + 1, buffer[1999]);
    audio->Release();
    file->Release();
    // tk_reader was asked by identification (its extension names it) and,
    // having a merit, once more for merit; tk_dual never
    EXPECT_EQ(2, d.counters.get(TK_DLL_READER, TK_IDENTIFY));
    EXPECT_EQ(0, d.counters.get(TK_DLL_DUAL, TK_IDENTIFY));
}

TEST(IdentifyPlugins, WrongExtensionFoundByTheListAndBadFilesRefused)
{
    NEED_TESTKIT_BESIDE();
    Discovered d(kOnlyReaders);
    ASSERT_NE(nullptr, d.mgr);
    // a tk_dual file named like tk_reader's: the extension class says no, the list finds it
    std::wstring f = WriteTemp(d.dir, L"dual.tkr", TkFile(TK_MAGIC_DUAL, 10));
    LONG index = -1;
    HANDLE h = CreateFileW(f.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_EQ(S_OK, d.mgr->IdentifyFileType((UINT64)(LONG_PTR)h, f.c_str(), &index, 0));
    CloseHandle(h);
    IZvReadFileClass *cls = nullptr;
    ASSERT_EQ(S_OK, d.mgr->GetReaderClass(&cls, index));
    GUID id = GUID_NULL;
    cls->GetClassGuid(&id);
    cls->Release();
    EXPECT_TRUE(IsEqualGUID(CLSID_TkDualReader, id));

    // random bytes named .wav, an empty file, a truncated header, a missing file
    std::vector<unsigned char> noise(5000);
    for (size_t i = 0; i < noise.size(); ++i)
        noise[i] = (unsigned char)(i * 2654435761u >> 13);
    struct Case {
        const wchar_t *name;
        std::vector<unsigned char> bytes;
    } cases[] = {{L"noise.wav", noise}, {L"empty.wav", {}}, {L"short.tkr", TkFile(TK_MAGIC_READER, 0)}};
    cases[2].bytes.resize(3);
    for (const Case &c : cases) {
        std::wstring p = WriteTemp(d.dir, c.name, c.bytes);
        IZvReadFile *file = nullptr;
        HRESULT hr = d.mgr->OpenReader(p.c_str(), &file, 0);
        EXPECT_EQ((HRESULT)0x8004E016, hr) << c.bytes.size();
        EXPECT_EQ(nullptr, file);
        const wchar_t *text = ZvErrorHandler_GetHresultString(hr);
        ASSERT_NE(nullptr, text);
        EXPECT_NE(std::wstring::npos, std::wstring(text).find(L"unsupported format"));
    }
    IZvReadFile *file = nullptr;
    HRESULT hr = d.mgr->OpenReader((d.dir + L"\\missing.wav").c_str(), &file, 0);
    EXPECT_TRUE(FAILED(hr));
    EXPECT_NE((HRESULT)0x8004E016, hr);
}

TEST(IdentifyPlugins, PluginPathOfARenderer)
{
    NEED_TESTKIT_BESIDE();
    Discovered d(kOnlyReaders);
    ASSERT_NE(nullptr, d.mgr);
    IZvRenderFileClass *r = nullptr;
    ASSERT_EQ(S_OK, d.mgr->FindRendererClass(&r, CLSID_TkDualRenderer));
    wchar_t path[MAX_PATH];
    EXPECT_EQ(S_OK, ZvFio_GetPluginPath(r, path, MAX_PATH));
    std::wstring p(path);
    EXPECT_EQ(L"tk_dual.dll", p.substr(p.rfind(L'\\') + 1));
    EXPECT_EQ(S_OK, ZvFio_GetPluginPath(r, path, 4));
    EXPECT_EQ(3u, wcslen(path));
    r->Release();
    EXPECT_EQ(E_INVALIDARG, ZvFio_GetPluginPath(nullptr, path, MAX_PATH));
}

// --- the PCM reader ---------------------------------------------------------

namespace {

bool HavePcm()
{
    return GetFileAttributesW((zvtest::ExeDir() + L"pcm.dll").c_str()) != INVALID_FILE_ATTRIBUTES;
}

const std::vector<const wchar_t *> kOnlyPcm = {L"tk_dual.dll",    L"tk_reader.dll",  L"tk_badlist.dll",
                                               L"tk_noentry.dll", L"tk_notadll.dll", L"tk_preload.dll", L"avi.dll"};

// Opens, then reads the first audio stream to its end. The result of the
// open, or of a failed read; a read that never ends fails the test.
HRESULT OpenAndRead(CZvFileIOManager *mgr, const std::wstring &path, LONGLONG *frames)
{
    *frames = 0;
    IZvReadFile *file = nullptr;
    HRESULT hr = mgr->OpenReader(path.c_str(), &file, 0);
    if (FAILED(hr)) {
        EXPECT_EQ(nullptr, file);
        return hr;
    }
    EXPECT_NE(nullptr, file);
    if (!file)
        return E_POINTER;
    IZvReadStream *s = nullptr;
    hr = file->OpenStream(&s, 0, ZVFILESTREAMTYPE_AUDIO, 0, 0);
    IZvReadAudioStream *audio = nullptr;
    if (SUCCEEDED(hr))
        hr = s->QueryInterface(IID_IZvReadAudioStream, (void **)&audio);
    if (SUCCEEDED(hr)) {
        static std::vector<BYTE> buffer(1 << 20);
        DWORD align = 0;
        audio->GetBlockAlign(&align);
        DWORD per = align ? (DWORD)(buffer.size() / align) : 1024;
        int calls = 0;
        for (;; ++calls) {
            if (calls > 100000) {
                ADD_FAILURE() << "the read doesn't end";
                break;
            }
            DWORD got = 0;
            hr = audio->ReadSamples((DWORD)*frames, (LONG)(*frames >> 32),
                                    LocalToken(buffer.data(), (DWORD)buffer.size()), per, &got);
            if (FAILED(hr) || got == 0 || hr == S_FALSE)
                break;
            *frames += got;
        }
        if (hr == S_FALSE)
            hr = S_OK;
    }
    if (audio)
        audio->Release();
    if (s)
        s->Release();
    file->Release();
    return hr;
}

void Put32(std::vector<unsigned char> &b, size_t at, DWORD v) { memcpy(&b[at], &v, 4); }

} // namespace

TEST(IdentifyPcm, MutatedFilesNeverCrashOrHang)
{
    if (!HavePcm())
        GTEST_SKIP() << "pcm.dll is not built";
    Discovered d(kOnlyPcm);
    ASSERT_NE(nullptr, d.mgr);
    // the damaged headers themselves are the PCM reader's tests; here they
    // go through identification and the manager's open
    const std::vector<unsigned char> base = WaveBytes(2000, true);
    zvtest::Rng rng{12345};
    auto next = [&rng]() { return rng.next(); };
    int opened = 0, refused = 0;
    for (int i = 0; i < 2000; ++i) {
        std::vector<unsigned char> b = base;
        switch (i % 4) {
        case 0: // a few bytes of the header changed
            for (int k = 0, n = 1 + (int)(next() % 4); k < n; ++k)
                b[next() % 96] = (unsigned char)next();
            break;
        case 1: // a size word set to something large or small
            Put32(b, (next() % 20) * 4, next() % 3 == 0 ? 0xFFFFFFFF : next());
            break;
        case 2: // cut anywhere
            b.resize(next() % b.size());
            break;
        default: // bytes anywhere, then cut
            for (int k = 0; k < 8; ++k)
                b[next() % b.size()] = (unsigned char)next();
            b.resize(b.size() - next() % 64);
            break;
        }
        std::wstring p = WriteTemp(d.dir, L"mutant.wav", b);
        LONGLONG frames = 0;
        HRESULT hr = OpenAndRead(d.mgr, p, &frames);
        if (SUCCEEDED(hr)) {
            ++opened;
            EXPECT_LE(frames, (LONGLONG)b.size()) << i; // at least a byte a frame
        } else {
            ++refused;
            EXPECT_EQ(4, HRESULT_FACILITY(hr)) << i << " 0x" << std::hex << hr;
            EXPECT_NE(nullptr, ZvErrorHandler_GetHresultString(hr)) << i;
        }
    }
    EXPECT_GT(opened, 0);
    EXPECT_GT(refused, 0);
}
