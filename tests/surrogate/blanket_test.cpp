// Blankets around objects in a surrogate: identity, local answers, wraps,
// bulk data through tokens, many threads, and a child that dies.
#include "surrogate_world.h"
#include "filemng/zvmemtoken.h"
#include <process.h>
#include <stdlib.h>
#include <thread>
#include <atomic>
#include <algorithm>

using namespace tsworld;

namespace {

template <class T> T *As(IUnknown *p, REFIID iid)
{
    T *out = nullptr;
    if (p)
        p->QueryInterface(iid, (void **)&out);
    return out;
}

IUnknown *Identity(IUnknown *p)
{
    IUnknown *u = nullptr;
    p->QueryInterface(IID_IUnknown, (void **)&u);
    if (u)
        u->Release();
    return u;
}

// One routed and one in-process reader, their files and streams.
struct Readers {
    World w;
    IZvReadFileClass *routedClass = nullptr, *localClass = nullptr;
    IZvReadFile *routedFile = nullptr, *localFile = nullptr;
    IZvReadStream *routedAudio = nullptr, *localAudio = nullptr;
    IZvReadStream *routedVideo = nullptr, *localVideo = nullptr;
    IZvReadFile *routedFile2 = nullptr, *localFile2 = nullptr;
    Readers()
    {
        if (FAILED(w.created))
            return;
        routedClass = w.reader(TS_G1A);
        localClass = w.reader(TS_G0);
        if (!routedClass || !localClass)
            return;
        routedAudio = OpenStream(routedClass, 0, &routedFile);
        localAudio = OpenStream(localClass, 0, &localFile);
        routedVideo = OpenStream(routedClass, 1, &routedFile2);
        localVideo = OpenStream(localClass, 1, &localFile2);
    }
    ~Readers()
    {
        // children before parents
        for (IUnknown *p : {(IUnknown *)routedAudio, (IUnknown *)localAudio, (IUnknown *)routedVideo,
                            (IUnknown *)localVideo, (IUnknown *)routedFile, (IUnknown *)localFile,
                            (IUnknown *)routedFile2, (IUnknown *)localFile2, (IUnknown *)routedClass,
                            (IUnknown *)localClass})
            if (p)
                p->Release();
    }
    bool ok() const { return routedAudio && localAudio && routedVideo && localVideo; }
};

// Replaces one kernel32 import of this executable for the life of the
// object: the library is linked in, so its calls go through these slots.
class ImportSwap {
public:
    ImportSwap(const char *name, void *replacement)
    {
        BYTE *base = (BYTE *)GetModuleHandleW(NULL);
        auto *dos = (IMAGE_DOS_HEADER *)base;
        auto *nt = (IMAGE_NT_HEADERS *)(base + dos->e_lfanew);
        const IMAGE_DATA_DIRECTORY &dir = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
        for (auto *d = (IMAGE_IMPORT_DESCRIPTOR *)(base + dir.VirtualAddress); d->Name; ++d) {
            if (_stricmp((const char *)(base + d->Name), "kernel32.dll"))
                continue;
            auto *names = (IMAGE_THUNK_DATA *)(base + d->OriginalFirstThunk);
            auto *slots = (IMAGE_THUNK_DATA *)(base + d->FirstThunk);
            for (; names->u1.AddressOfData; ++names, ++slots) {
                if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal))
                    continue;
                auto *byName = (IMAGE_IMPORT_BY_NAME *)(base + names->u1.AddressOfData);
                if (!strcmp((const char *)byName->Name, name)) {
                    slot_ = (void **)&slots->u1.Function;
                    saved_ = *slot_;
                    write(replacement);
                    return;
                }
            }
        }
    }
    ~ImportSwap()
    {
        if (slot_)
            write(saved_);
    }
    bool ok() const { return slot_ != nullptr; }

private:
    void write(void *value)
    {
        DWORD old;
        VirtualProtect(slot_, sizeof *slot_, PAGE_READWRITE, &old);
        *slot_ = value;
        VirtualProtect(slot_, sizeof *slot_, old, &old);
    }
    void **slot_ = nullptr;
    void *saved_ = nullptr;
};

LONG g_mappingTries = 0;
HANDLE WINAPI NoMapping(HANDLE, LPSECURITY_ATTRIBUTES, DWORD, DWORD, DWORD, LPCWSTR)
{
    InterlockedIncrement(&g_mappingTries);
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return NULL;
}

} // namespace

TEST_F(SurrogateTest, ReadSamplesAndReadFrameDeliverTheSameBytesAsInProcess)
{
    Readers r;
    ASSERT_TRUE(r.ok());
    IZvReadAudioStream *remote = As<IZvReadAudioStream>(r.routedAudio, IID_IZvReadAudioStream);
    IZvReadAudioStream *local = As<IZvReadAudioStream>(r.localAudio, IID_IZvReadAudioStream);
    IZvReadVideoStream *remoteV = As<IZvReadVideoStream>(r.routedVideo, IID_IZvReadVideoStream);
    IZvReadVideoStream *localV = As<IZvReadVideoStream>(r.localVideo, IID_IZvReadVideoStream);
    ASSERT_TRUE(remote && local && remoteV && localV);

    const DWORD sizes[] = {1, 3, 4, 4095, 65537, 1u << 20, 64u << 20};
    for (DWORD kind : std::initializer_list<DWORD>{2u, ZVMEMTOKEN_KIND_MAPPING, 7u, ZVMEMTOKEN_KIND_LOCAL}) {
        for (DWORD size : sizes) {
            if (kind == ZVMEMTOKEN_KIND_LOCAL && size > (1u << 20))
                continue; // read through the other process's memory: kept small
            SCOPED_TRACE(testing::Message() << "kind " << kind << " size " << size);
            DWORD frames = size / 4;
            LONGLONG position = 0x12345 + size;
            TokenBuffer a(size, kind), b(size, kind);
            DWORD readA = 0, readB = 0;
            HRESULT ha = remote->ReadSamples((DWORD)position, (LONG)(position >> 32), a.token, frames, &readA);
            HRESULT hb = local->ReadSamples((DWORD)position, (LONG)(position >> 32), b.token, frames, &readB);
            ASSERT_EQ(S_OK, ha);
            ASSERT_EQ(hb, ha);
            EXPECT_EQ(frames, readA);
            std::vector<BYTE> want = AudioPattern(position, frames);
            EXPECT_EQ(0, memcmp(a.data(), want.data(), want.size()));
            EXPECT_EQ(0, memcmp(a.data(), b.data(), want.size()));

            TokenBuffer c(size, kind), d(size, kind);
            ASSERT_EQ(S_OK, remoteV->ReadFrame(9, 0, 0, c.token, 0, 0));
            ASSERT_EQ(S_OK, localV->ReadFrame(9, 0, 0, d.token, 0, 0));
            EXPECT_EQ(0, memcmp(c.data(), d.data(), size));
            EXPECT_EQ((BYTE)(9 * 7 + size - 1), c.data()[size - 1]);
        }
    }
    // a too small buffer is the plug-in's answer, through the blanket as it is
    TokenBuffer small(7, 2);
    DWORD got = 5;
    EXPECT_EQ((HRESULT)0x8004E03C, remote->ReadSamples(0, 0, small.token, 2, &got));
    remote->Release();
    local->Release();
    remoteV->Release();
    localV->Release();
}

// A private buffer needs a shared mapping to cross; when none can be made the
// blanket fails the call itself and the plug-in is never asked.
TEST_F(SurrogateTest, NoSharedMappingFailsWithoutACall)
{
    Readers r;
    ASSERT_TRUE(r.ok());
    IZvReadAudioStream *remote = As<IZvReadAudioStream>(r.routedAudio, IID_IZvReadAudioStream);
    IZvReadVideoStream *remoteV = As<IZvReadVideoStream>(r.routedVideo, IID_IZvReadVideoStream);
    ASSERT_TRUE(remote && remoteV);
    TokenBuffer buffer(4096, 2), mapped(4096, ZVMEMTOKEN_KIND_MAPPING);
    DWORD got = 77;
    {
        ImportSwap swap("CreateFileMappingW", (void *)&NoMapping);
        ASSERT_TRUE(swap.ok());
        EXPECT_EQ(E_FAIL, remote->ReadSamples(0, 0, buffer.token, 1024, &got));
        EXPECT_EQ(77u, got);
        EXPECT_EQ(E_FAIL, remoteV->ReadFrame(3, 0, 0, buffer.token, 0, 0));
        EXPECT_EQ(2, g_mappingTries);
        // a mapping the caller made already still crosses
        EXPECT_EQ(S_OK, remote->ReadSamples(0, 0, mapped.token, 1024, &got));
    }
    EXPECT_EQ(1024u, got);
    EXPECT_TRUE(std::all_of(buffer.local.begin(), buffer.local.end(), [](BYTE b) { return b == 0xCD; }));
    // nothing is left broken: the next call with a shadow works
    got = 0;
    EXPECT_EQ(S_OK, remote->ReadSamples(0, 0, buffer.token, 1024, &got));
    EXPECT_EQ(1024u, got);
    remote->Release();
    remoteV->Release();
}

TEST_F(SurrogateTest, EightThreadsShareOneReaderBlanket)
{
    Readers r;
    ASSERT_TRUE(r.ok());
    IZvReadAudioStream *remote = As<IZvReadAudioStream>(r.routedAudio, IID_IZvReadAudioStream);
    ASSERT_TRUE(remote);
    CZvOutOfProcObj *blanket = ZvBlanket_From(remote);
    ASSERT_TRUE(blanket);

    // every other thread than the one that made it gets a pointer of its own, once
    TokenBuffer first(4096, 2);
    DWORD read = 0;
    ASSERT_EQ(S_OK, remote->ReadSamples(0, 0, first.token, 1024, &read));
    EXPECT_EQ(0u, blanket->ThreadEntries()) << "the thread that made it uses its own pointer";

    std::atomic<int> bad{0}, calls{0};
    std::vector<std::thread> threads;
    for (int k = 0; k < 8; ++k) {
        threads.emplace_back([&, k] {
            CoInitializeEx(NULL, COINIT_MULTITHREADED);
            for (int i = 0; i < 25; ++i) {
                DWORD frames = 1000 + 313 * k + i;
                LONGLONG position = 100000LL * k + 777 * i;
                TokenBuffer b(frames * 4, (i & 1) ? ZVMEMTOKEN_KIND_MAPPING : 2);
                DWORD got = 0;
                HRESULT hr = remote->ReadSamples((DWORD)position, 0, b.token, frames, &got);
                std::vector<BYTE> want = AudioPattern(position, frames);
                if (hr != S_OK || got != frames || memcmp(b.data(), want.data(), want.size()))
                    ++bad;
                ++calls;
            }
            CoUninitialize();
        });
    }
    for (auto &t : threads)
        t.join();
    EXPECT_EQ(0, bad.load());
    EXPECT_EQ(200, calls.load());
    EXPECT_EQ(8u, blanket->ThreadEntries());
    ASSERT_EQ(S_OK, remote->ReadSamples(0, 0, first.token, 1024, &read));
    EXPECT_EQ(9u, blanket->ThreadEntries());
    remote->Release();
}

TEST_F(SurrogateTest, IdentityLocalAnswersAndWraps)
{
    Readers r;
    ASSERT_TRUE(r.ok());
    IZvReadFileClass *cls = r.routedClass;
    // class blanket: own interface and IUnknown are itself, id word is local
    EXPECT_EQ((IUnknown *)cls, Identity(cls));
    IZvReadFileClass *same = As<IZvReadFileClass>(cls, IID_IZvReadFileClass);
    EXPECT_EQ(cls, same);
    same->Release();
    EXPECT_EQ(S_OK, cls->SetClassId(0x6123));
    DWORD id = 0;
    EXPECT_EQ(S_OK, cls->GetClassId(&id));
    EXPECT_EQ(0x6123u, id);
    IZvFileIOManager *m = nullptr, *want = As<IZvFileIOManager>(r.w.app, IID_IZvFileIOManager);
    EXPECT_EQ(S_OK, cls->SetManager(nullptr)) << "swallowed";
    EXPECT_EQ(S_OK, cls->GetManager(&m));
    EXPECT_EQ(want, m);
    m->Release();
    want->Release();
    GUID g = {};
    EXPECT_EQ(S_OK, cls->GetClassGuid(&g));
    EXPECT_TRUE(IsEqualGUID(TsReaderClass(TS_G1A), g));

    // an interface outside the family comes back raw
    IPersist *persist = As<IPersist>(cls, IID_IPersist);
    ASSERT_TRUE(persist);
    EXPECT_EQ(nullptr, ZvBlanket_From(persist));
    CLSID pc = {};
    EXPECT_EQ(S_OK, persist->GetClassID(&pc));
    persist->Release();

    // a file's and a stream's class is the class blanket itself
    IZvReadFileClass *back = nullptr;
    EXPECT_EQ(S_OK, r.routedFile->GetClass(&back));
    EXPECT_EQ(cls, back);
    back->Release();
    EXPECT_EQ(S_OK, r.routedAudio->GetClass(&back));
    EXPECT_EQ(cls, back);
    back->Release();

    // sibling: the plug-in's S_FALSE is lost, the class stays the same
    IZvReadFile *sibling = nullptr;
    EXPECT_EQ(S_OK, r.routedFile->GetSiblingFile(&sibling));
    ASSERT_TRUE(sibling);
    EXPECT_EQ(S_OK, sibling->GetClass(&back));
    EXPECT_EQ(cls, back);
    back->Release();
    sibling->Release();
    // success without a stream
    IZvReadStream *none = nullptr;
    EXPECT_EQ(E_OUTOFMEMORY, r.routedFile->OpenStream(&none, 2, 0, 0, 0));
    EXPECT_EQ(nullptr, none);
    EXPECT_EQ(E_INVALIDARG, r.routedFile->OpenStream(&none, 5, 0, 0, 0));

    // derived stream: IUnknown and the base go back to the stream it came from
    IZvReadStream *stream = r.routedAudio;
    IZvReadAudioStream *a1 = As<IZvReadAudioStream>(stream, IID_IZvReadAudioStream);
    IZvReadAudioStream *a2 = As<IZvReadAudioStream>(stream, IID_IZvReadAudioStream);
    ASSERT_TRUE(a1 && a2);
    EXPECT_NE(a1, a2) << "every query makes a new blanket";
    IZvReadStream *base = As<IZvReadStream>(a1, IID_IZvReadStream);
    EXPECT_EQ(stream, base);
    base->Release();
    EXPECT_EQ(Identity(stream), Identity(a1));
    LONG out = 0;
    ASSERT_TRUE(ZvBlanket_From(a1));
    EXPECT_EQ(S_OK, ZvBlanket_From(a1)->IsOutOfProc(&out));
    EXPECT_EQ(-1, out) << "flags are inherited";
    // one level further from the class: the file object answers, and it has none
    EXPECT_EQ(E_NOINTERFACE, a1->GetClass(&back));
    a1->Release();
    a2->Release();

    // metadata: a blanket, its streams raw
    IZvReadMeta *meta = nullptr;
    ASSERT_EQ(S_OK, r.routedFile->GetMeta(&meta));
    EXPECT_TRUE(ZvBlanket_From(meta));
    IStream *summary = nullptr;
    EXPECT_EQ(S_OK, meta->GetSummaryStream(&summary));
    if (summary)
        summary->Release();
    EXPECT_EQ(E_NOTIMPL, meta->GetMarkerStream(&summary));
    meta->Release();

    // the factory itself
    void *p = nullptr;
    EXPECT_EQ(E_OUTOFMEMORY, ZvBlanket_Wrap(&IID_IZvReadFile, &p, nullptr, nullptr, 0));
    IUnknown *raw = r.localClass;
    raw->AddRef();
    p = raw;
    EXPECT_EQ(S_OK, ZvBlanket_Wrap(&IID_IPersist, &p, nullptr, nullptr, 0));
    EXPECT_EQ(raw, p) << "outside the family: left as it is";
    EXPECT_EQ(S_OK, ZvBlanket_Wrap(&IID_IZvReadFileClass, &p, nullptr, nullptr, 0));
    ASSERT_TRUE(ZvBlanket_From((IUnknown *)p));
    EXPECT_EQ(S_OK, ZvBlanket_From((IUnknown *)p)->IsOutOfProc(&out));
    EXPECT_EQ(0, out);
    ((IUnknown *)p)->Release();
}

TEST_F(SurrogateTest, RendererBlanketsHandOutTemplatesAndFiles)
{
    World w;
    ASSERT_EQ(S_OK, w.created);
    IZvRenderFileClass *cls = w.renderer(TS_G3);
    ASSERT_TRUE(cls);
    ASSERT_TRUE(ZvBlanket_From(cls));
    LONG count = 0;
    EXPECT_EQ(S_OK, cls->GetTemplateCount(&count));
    EXPECT_EQ(TS_PRESETS, count);
    PZVTEMPLATE t = nullptr;
    ASSERT_EQ(S_OK, cls->GetTemplate(&t, 1));
    ASSERT_TRUE(t);
    EXPECT_EQ(2u, t->dwPresetId);
    EXPECT_TRUE(IsEqualGUID(TsRendererClass(TS_G3), t->rendererClass));
    free(t); // marshalled into this process's heap
    EXPECT_EQ(E_INVALIDARG, cls->GetTemplate(&t, 5));

    IZvRenderFile *file = nullptr;
    EXPECT_EQ(E_INVALIDARG, cls->CreateFile(&file, nullptr, nullptr, 1, 0));
    EXPECT_EQ(nullptr, file);
    ASSERT_EQ(S_OK, cls->CreateFile(&file, L"out.tsm", nullptr, 1, 0));
    IZvRenderFileClass *back = nullptr;
    EXPECT_EQ(S_OK, file->GetClass(&back));
    EXPECT_EQ(cls, back);
    back->Release();
    DWORD progress = 0;
    EXPECT_EQ(S_OK, file->GetProgress(&progress));
    EXPECT_EQ(1000u, progress);
    file->Release();

    IZvReadFileClass *reader = nullptr;
    ASSERT_EQ(S_OK, cls->GetReadClass(&reader));
    ASSERT_TRUE(ZvBlanket_From(reader));
    DWORD id = 7;
    EXPECT_EQ(S_OK, reader->GetClassId(&id));
    EXPECT_EQ(0u, id) << "a new blanket holds its own id word";
    reader->Release();
    cls->Release();
}

TEST_F(SurrogateTest, AKilledChildGivesComErrorsAndKeepsItsSlot)
{
    Readers r;
    ASSERT_TRUE(r.ok());
    DWORD child = ObjectProcess(r.routedFile);
    ASSERT_NE(0u, child);
    ASSERT_NE(GetCurrentProcessId(), child);
    IZvReadVideoStream *video = As<IZvReadVideoStream>(r.routedVideo, IID_IZvReadVideoStream);
    ASSERT_TRUE(video);

    // a call under way when the child dies
    std::atomic<HRESULT> during{S_OK};
    std::atomic<bool> done{false};
    std::thread caller([&] {
        CoInitializeEx(NULL, COINIT_MULTITHREADED);
        DWORD flags = 0;
        during = video->GetFrameFlags(4000, 0, &flags);
        done = true;
        CoUninitialize();
    });
    Sleep(500);
    HANDLE h = OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, child);
    ASSERT_TRUE(h);
    TerminateProcess(h, 9);
    WaitForSingleObject(h, 5000);
    CloseHandle(h);
    for (int i = 0; i < 300 && !done; ++i)
        Sleep(100);
    ASSERT_TRUE(done.load()) << "a call into a dead child must not hang";
    caller.join();
    auto comError = [](HRESULT hr) { return hr == (HRESULT)0x800706BE || hr == (HRESULT)0x800706BA; };
    EXPECT_TRUE(comError(during.load())) << std::hex << during.load();

    DWORD flags = 0;
    EXPECT_TRUE(comError(video->GetFrameFlags(0, 0, &flags)));
    TokenBuffer b(4096, 2);
    EXPECT_TRUE(comError(video->ReadFrame(0, 0, 0, b.token, 0, 0)));
    video->Release();
    // the group keeps its slot and its dead child
    ZVFIO_SURROGATESLOT *slot = ZvFioSurrogateTable_FindSlot(1);
    ASSERT_TRUE(slot);
    EXPECT_EQ(child, slot->processId);
    ZVFIO_PLUGININFO *rec = r.w.record(TsReaderClass(TS_G1B));
    EXPECT_EQ(S_OK, ZvFioLaunchSurrogate(rec));
    EXPECT_EQ(child, ZvFioSurrogateTable_FindSlot(1)->processId);
    // the other groups go on working
    IZvReadFileClass *g2 = r.w.reader(TS_G2);
    ASSERT_TRUE(g2);
    IZvReadFile *f = nullptr;
    EXPECT_EQ(S_OK, g2->OpenFile(&f, ~(UINT64)0, 0, L"b.tsm", TRUE));
    if (f)
        f->Release();
    g2->Release();
}
