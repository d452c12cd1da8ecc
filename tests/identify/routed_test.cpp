// The PCM reader put in a surrogate by its configuration: identification
// and opening hand the file across, the samples come back unchanged, no
// handle of the file stays open in either process, and the group a
// configuration gives survives the plug-in cache once it was written anew;
// its wave renderer, reached from the routed reader, writes from there.
#include <gtest/gtest.h>
#include "mockreader.h"
#include "childguard.h"
#include "fiohost.h"
#include "readstream.h"
#include "filemng/fiodiscovery.h"
#include "filemng/surrogatetable.h"
#include "filemng/zvmemtoken.h"
#include "zvproxy.h"
#include "media/zvmeta.h"
#include "media/projectlink.h"
#include <vector>

using namespace idtest;

namespace {

const GUID kWaveReader = {0x0A30C422, 0xB91B, 0x11D3, {0xA4, 0x84, 0x00, 0x10, 0x5A, 0x24, 0xAA, 0x37}};

std::wstring PcmDll() { return zvtest::ExeDir() + L"pcm.dll"; }

// Writes the folder's configuration: pcm.dll by its full path, with a group
// when `group` isn't -1, and a merit for the wave reader when `merit` isn't 0.
void WriteConfig(const std::wstring &dir, int group, int merit)
{
    std::string text = "[FileIO Plug-Ins]\r\nPcm=";
    std::wstring dll = PcmDll();
    text += std::string(dll.begin(), dll.end()) + "\r\n\r\n[Pcm]\r\n";
    if (group != -1)
        text += "Surrogate=" + std::to_string(group) + "\r\n";
    if (merit)
        text += "Reader={0A30C422-B91B-11D3-A484-00105A24AA37}\r\n"
                "{0A30C422-B91B-11D3-A484-00105A24AA37}=" + std::to_string(merit) + "\r\n";
    WriteTemp(dir, L"pcm.Fio2007-Config", std::vector<unsigned char>(text.begin(), text.end()));
}

// A manager whose plug-in list comes from the configuration in `folder`,
// with its data files beside it. Every surrogate it started must
// have ended shortly after its clean-up.
struct Routed : zvtest::HostManager {
    std::wstring dir;
    HRESULT listed = E_FAIL;

    Routed(const std::wstring &folder, DWORD listFlags) : HostManager(folder), dir(folder)
    {
        listed = listConfigured(dir, listFlags);
        if (SUCCEEDED(listed))
            mgr->UpdatePluginCache(0);
    }
    ~Routed()
    {
        zvtest::ChildGuard guard;
        guard.adoptTable();
        release();
        guard.check(5000);
    }
    ZVFIO_PLUGININFO *waveRecord() const { return record(kWaveReader); }
};

// True when nothing, in any process, holds the file open any more.
bool NobodyHolds(const std::wstring &path)
{
    HANDLE h = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return false;
    CloseHandle(h);
    return true;
}

// Reads the whole first stream of an open file with `token` over `buffer`.
HRESULT ReadAll(IZvReadFile *file, _zvmemorytoken token, BYTE *buffer, std::vector<BYTE> *out)
{
    IZvReadAudioStream *audio = zvtest::OpenAudio(file, 0, ZVFILESTREAMTYPE_AUDIO);
    if (!audio)
        return E_NOINTERFACE;
    HRESULT hr = S_OK;
    const DWORD per = token.cbData / 4;
    for (DWORD at = 0;;) {
        DWORD got = 0;
        hr = audio->ReadSamples(at, 0, token, per, &got);
        if (FAILED(hr) || got == 0)
            break;
        out->insert(out->end(), buffer, buffer + got * 4);
        at += got;
    }
    audio->Release();
    return FAILED(hr) ? hr : S_OK;
}

class RoutedPcm : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        CoInitializeEx(NULL, COINIT_MULTITHREADED);
        ZvProxy_Register();
    }
    void SetUp() override
    {
        if (GetFileAttributesW(PcmDll().c_str()) == INVALID_FILE_ATTRIBUTES)
            GTEST_SKIP() << "pcm.dll is not built";
    }
};

} // namespace

TEST_F(RoutedPcm, IdentifiedOpenedAndReadInTheSurrogateWithNoHandleLeft)
{
    zvtest::TempDir tmp;
    const std::wstring d = tmp.path();
    // a merit makes the open ask the reader once more, outside identification
    WriteConfig(d, 1, 5);
    {
        Routed w(d, ZVFIO_CREATE_NOCACHE);
        ASSERT_EQ(S_OK, w.listed);
        ZVFIO_PLUGININFO *record = w.waveRecord();
        ASSERT_TRUE(record);
        EXPECT_EQ(1, record->Surrogate);
        EXPECT_EQ(5u, record->MeritValue);

        const std::vector<unsigned char> bytes = WaveBytes(30000);
        const std::wstring wave = WriteTemp(d, L"tone.wav", bytes);
        HANDLE h = CreateFileW(wave.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                               OPEN_EXISTING, 0, nullptr);
        ASSERT_NE(INVALID_HANDLE_VALUE, h);
        LONG index = -1;
        EXPECT_EQ(S_OK, w.mgr->IdentifyFileType((UINT64)(LONG_PTR)h, wave.c_str(), &index, 0));
        EXPECT_EQ(record->nReaderIndex, index);
        DWORD pid = 0;
        EXPECT_TRUE(ZvFioRecordProcess(record, &pid)) << "the reader was loaded in its surrogate";
        EXPECT_NE(GetCurrentProcessId(), pid);
        ZVFIO_SURROGATESLOT *slot = ZvFioSurrogateTable_FindSlot(1);
        ASSERT_TRUE(slot);
        EXPECT_EQ(-1, slot->hDuplicate);
        CloseHandle(h);
        EXPECT_TRUE(NobodyHolds(wave)) << "the surrogate's duplicate was closed after identification";

        // random bytes named .wav: every stage runs, each asks with the duplicate
        std::vector<unsigned char> noise(20000);
        for (size_t i = 0; i < noise.size(); ++i)
            noise[i] = (unsigned char)((i * 2654435761u) >> 11);
        const std::wstring bad = WriteTemp(d, L"noise.wav", noise);
        IZvReadFile *file = nullptr;
        EXPECT_EQ((HRESULT)0x8004E016, w.mgr->OpenReader(bad.c_str(), &file, 0));
        EXPECT_EQ(nullptr, file);
        EXPECT_TRUE(NobodyHolds(bad));

        // the same samples into private memory (shadowed for each call) and
        // into shared memory (written by the surrogate in place)
        const std::vector<BYTE> expected(bytes.end() - 30000 * 4, bytes.end());
        ASSERT_EQ(S_OK, w.mgr->OpenReader(wave.c_str(), &file, 0));
        ASSERT_TRUE(file);
        std::vector<BYTE> local(64 * 1024);
        _zvmemorytoken token = zvtest::LocalToken(local.data(), (DWORD)local.size());
        std::vector<BYTE> viaLocal, viaShared;
        EXPECT_EQ(S_OK, ReadAll(file, token, local.data(), &viaLocal));
        EXPECT_TRUE(viaLocal == expected);
        ASSERT_EQ(S_OK, ZvMemoryToken_CreateMapping(&token, 48 * 1024));
        EXPECT_EQ(S_OK, ReadAll(file, token, (BYTE *)(ULONG_PTR)token.qwBase + token.dwOffset, &viaShared));
        ZvMemoryToken_ReleaseMapping(&token);
        EXPECT_TRUE(viaShared == expected);
        EXPECT_FALSE(NobodyHolds(wave)) << "the open reader holds its file";
        file->Close();
        file->Release();
        EXPECT_TRUE(NobodyHolds(wave)) << "the reader's handle went with it";
        EXPECT_EQ(-1, slot->hDuplicate);
    }
}

TEST_F(RoutedPcm, ConfiguredGroupReachesTheCacheOnlyWithAFullListing)
{
    zvtest::TempDir tmp;
    const std::wstring d = tmp.path();
    auto group = [&](DWORD flags) {
        Routed w(d, flags);
        EXPECT_EQ(S_OK, w.listed);
        ZVFIO_PLUGININFO *r = w.waveRecord();
        return r ? r->Surrogate : -100;
    };
    WriteConfig(d, -1, 0);
    EXPECT_EQ(-1, group(0)) << "first start: listed and cached in process";
    WriteConfig(d, 1, 0);
    EXPECT_EQ(-1, group(0)) << "an unchanged DLL keeps its cached group";
    EXPECT_EQ(1, group(ZVFIO_CREATE_FULLLISTING)) << "a full listing takes the configured one";
    EXPECT_EQ(1, group(0)) << "and the cache kept it";
    WriteConfig(d, -1, 0);
    EXPECT_EQ(-1, group(ZVFIO_CREATE_FULLLISTING)) << "the way back";
    EXPECT_EQ(-1, group(0));
}

// The wave renderer in the surrogate: its preset crosses as a template
// record, the samples go over from private memory, and the file it closes
// reads back unchanged in process.
TEST_F(RoutedPcm, RenderedInTheSurrogate)
{
    const GUID kWaveRenderer = {0x7C1E5B2A, 0x3D4F, 0x4A8B, {0x9E, 0x21, 0x6F, 0x0B, 0x5C, 0x3D, 0x8A, 0x14}};
    zvtest::TempDir tmp;
    const std::wstring d = tmp.path();
    WriteConfig(d, 1, 5);
    {
        Routed w(d, ZVFIO_CREATE_NOCACHE);
        ASSERT_EQ(S_OK, w.listed);
        // reached as the companion of the routed reader of a wave file
        const std::wstring seed = WriteTemp(d, L"seed.wav", WaveBytes(100));
        IZvReadFile *opened = nullptr;
        ASSERT_EQ(S_OK, w.mgr->OpenReader(seed.c_str(), &opened, 0));
        IZvReadFileClass *readClass = nullptr;
        ASSERT_EQ(S_OK, opened->GetClass(&readClass));
        DWORD pid = 0;
        EXPECT_TRUE(ZvFioRecordProcess(w.waveRecord(), &pid));
        EXPECT_NE(GetCurrentProcessId(), pid) << "the plug-in runs in its surrogate";
        opened->Close();
        opened->Release();
        IZvRenderFileClass *cls = nullptr;
        ASSERT_EQ(S_OK, readClass->GetRenderClass(&cls));
        readClass->Release();
        GUID guid = {};
        EXPECT_EQ(S_OK, cls->GetClassGuid(&guid));
        EXPECT_TRUE(IsEqualGUID(guid, kWaveRenderer));
        tagZVTEMPLATExV2 *t = nullptr;
        ASSERT_EQ(S_OK, cls->GetTemplate(&t, 0));
        ASSERT_TRUE(t);
        EXPECT_TRUE(IsEqualGUID(t->rendererClass, kWaveRenderer));
        const std::wstring path = d + L"\\out.wav";
        IZvRenderFile *file = nullptr;
        ASSERT_EQ(S_OK, cls->CreateFile(&file, path.c_str(), t, ZVFIO_STREAMMASK_AUDIO, 0));
        std::vector<BYTE> samples(4 * 20000);
        for (size_t i = 0; i < samples.size(); ++i)
            samples[i] = (BYTE)((i * 2654435761u) >> 13);
        _zvmemorytoken token = zvtest::LocalToken(samples.data(), (DWORD)samples.size());
        DWORD written = 0;
        EXPECT_EQ(S_OK, file->WriteSamples(0, token, 20000, &written));
        EXPECT_EQ(20000u, written);
        EXPECT_EQ(S_OK, file->Close());
        file->Release();
        free(t);
        cls->Release();
        EXPECT_TRUE(NobodyHolds(path)) << "the surrogate closed the file";

        IZvReadFile *reader = nullptr;
        ASSERT_EQ(S_OK, w.mgr->OpenReader(path.c_str(), &reader, 0));
        std::vector<BYTE> local(64 * 1024), back;
        token = zvtest::LocalToken(local.data(), (DWORD)local.size());
        EXPECT_EQ(S_OK, ReadAll(reader, token, local.data(), &back));
        EXPECT_TRUE(back == samples);
        reader->Close();
        reader->Release();
    }
}

// The metadata of the reader, loaded in process and routed: the streams
// that come over from the surrogate are the ones read from the file here.
TEST_F(RoutedPcm, MetadataComesOverFromTheSurrogate)
{
    zvtest::TempDir tmp;
    const std::wstring d = tmp.path();
    for (int group : {-1, 1}) {
        SCOPED_TRACE(group);
        WriteConfig(d, group, 5);
        Routed w(d, ZVFIO_CREATE_NOCACHE);
        ASSERT_EQ(S_OK, w.listed);
        std::vector<unsigned char> bytes = WaveBytes(3000, true);
        // one marker with a label behind the audio
        const unsigned char cue[] = {'c', 'u', 'e', ' ', 28, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 100, 0, 0, 0,
                                     'd', 'a', 't', 'a', 0, 0, 0, 0, 0, 0, 0, 0, 100, 0, 0, 0};
        const unsigned char adtl[] = {'L', 'I', 'S', 'T', 18, 0, 0, 0, 'a', 'd', 't', 'l', 'l', 'a', 'b', 'l',
                                      6, 0, 0, 0, 1, 0, 0, 0, 'H', 0};
        bytes.insert(bytes.end(), cue, cue + sizeof cue);
        bytes.insert(bytes.end(), adtl, adtl + sizeof adtl);
        // and a project link: path, command line, version
        auto chunk = [&bytes](const char *id, const void *data, DWORD size) {
            bytes.insert(bytes.end(), id, id + 4);
            bytes.insert(bytes.end(), (const BYTE *)&size, (const BYTE *)&size + 4);
            bytes.insert(bytes.end(), (const BYTE *)data, (const BYTE *)data + size);
        };
        const DWORD version = 0x01000000;
        chunk("splp", L"C:\\p\\song.prj", 28);
        chunk("spcl", L"/open", 12);
        chunk("splv", &version, 4);
        DWORD riffSize = (DWORD)bytes.size() - 8;
        memcpy(&bytes[4], &riffSize, 4);
        const std::wstring wave = WriteTemp(d, L"marked.wav", bytes);

        HANDLE h = CreateFileW(wave.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
        IZvReadMeta *local = nullptr;
        ASSERT_EQ(S_OK, ZvFMMeta_CreateSourceFromFile(h, FALSE, &local));
        CloseHandle(h);

        IZvReadFile *file = nullptr;
        ASSERT_EQ(S_OK, w.mgr->OpenReader(wave.c_str(), &file, 0));
        DWORD types = 0;
        EXPECT_EQ(S_OK, file->GetMetaTypes(&types));
        EXPECT_EQ((DWORD)(ZVMETA_MARKERS | ZVMETA_SCOTT), types);
        IZvReadMeta *remote = nullptr;
        ASSERT_EQ(S_OK, file->GetMeta(&remote));
        auto streams = [](IZvReadMeta *meta) {
            std::vector<std::vector<BYTE>> out;
            IZvReadGenericMeta *g = nullptr;
            if (FAILED(meta->QueryInterface(IID_IZvReadGenericMeta, (void **)&g)))
                return out;
            IStream *s = nullptr;
            while (g->Next(&s) == S_OK && s) {
                std::vector<BYTE> b(4096);
                ULONG got = 0;
                s->Read(b.data(), (ULONG)b.size(), &got);
                b.resize(got);
                out.push_back(b);
                s->Release();
            }
            g->Release();
            return out;
        };
        std::vector<std::vector<BYTE>> want = streams(local), got = streams(remote);
        EXPECT_EQ(2u, want.size());
        EXPECT_TRUE(want == got);
        // the direct marker stream too: 100 samples at 48 kHz
        IStream *s = nullptr;
        ASSERT_EQ(S_OK, remote->GetMarkerStream(&s));
        BYTE head[12 + 28] = {};
        ULONG n = 0;
        s->Read(head, sizeof head, &n);
        s->Release();
        EXPECT_EQ(1u, head[8]);
        EXPECT_EQ(20833ll, *(LONGLONG *)(head + 16));
        // the project link through its own blanket
        CZvLinkProjectInfo link;
        BOOL found = FALSE;
        EXPECT_EQ(S_OK, ProjectLinkReadMeta_LoadInfo(remote, &link, &found));
        EXPECT_TRUE(found);
        WCHAR text[64];
        EXPECT_EQ(13, link.GetProjectPath(text, 64));
        EXPECT_STREQ(L"C:\\p\\song.prj", text);
        EXPECT_EQ(5, link.GetCommandLine(text, 64));
        EXPECT_EQ((DWORD)(ZVLINK_PROJECTPATH | ZVLINK_COMMANDLINE), link.GetFlags());
        link.FreeMemory();
        remote->Release();
        local->Release();
        file->Close();
        file->Release();
        EXPECT_TRUE(NobodyHolds(wave));

        // An AIFF file: a marker, its title and an instrument without loops
        // behind the audio.
        const unsigned char aiff[] = {
            'F', 'O', 'R', 'M', 0, 0, 0, 112, 'A', 'I', 'F', 'F', 'C', 'O', 'M', 'M', 0, 0, 0, 18, 0, 1, 0, 0, 0, 4,
            0, 16, 0x40, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0, 'S', 'S', 'N', 'D', 0, 0, 0, 16, 0, 0, 0, 0, 0, 0, 0,
            0, 1, 2, 3, 4, 5, 6, 7, 8, 'M', 'A', 'R', 'K', 0, 0, 0, 12, 0, 1, 0, 7, 0, 0, 0, 2, 2, 'H', 'i', 0,
            'N', 'A', 'M', 'E', 0, 0, 0, 2, 'S', 'o', 'I', 'N', 'S', 'T', 0, 0, 0, 20, 60, 0, 0, 127, 1, 127,
            0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
        const std::wstring aif = WriteTemp(d, L"marked.aif", std::vector<unsigned char>(aiff, aiff + sizeof aiff));
        h = CreateFileW(aif.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
        ASSERT_EQ(S_OK, ZvFMMeta_CreateSourceFromAiff(h, &local));
        CloseHandle(h);
        ASSERT_EQ(S_OK, w.mgr->OpenReader(aif.c_str(), &file, 0));
        EXPECT_EQ(S_OK, file->GetMetaTypes(&types));
        EXPECT_EQ((DWORD)(ZVMETA_MARKERS | ZVMETA_SUMMARY | ZVMETA_SAMPLER), types);
        ASSERT_EQ(S_OK, file->GetMeta(&remote));
        want = streams(local), got = streams(remote);
        EXPECT_EQ(3u, want.size());
        EXPECT_TRUE(want == got);
        remote->Release();
        local->Release();
        file->Close();
        file->Release();
        EXPECT_TRUE(NobodyHolds(aif));
    }
}
