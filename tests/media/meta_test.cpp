// The metadata stream: every kind through write, read and update, in RIFF,
// Wave64 and the sidecar, with the audio bytes checked after each step.
#include "mediatest.h"
#include "media/zvmeta.h"
#include "zvplugin.h"
#include <map>

using namespace mediatest;

namespace {

const DWORD kAllKinds = 0xFFFFFFFF & ~ZVMETA_SAMPLER_AIFF;

// The generic streams of a source, by kind.
std::map<DWORD, Bytes> Streams(IZvReadMeta *meta)
{
    std::map<DWORD, Bytes> out;
    IZvReadGenericMeta *g = nullptr;
    if (FAILED(meta->QueryInterface(IID_IZvReadGenericMeta, (void **)&g)))
        return out;
    IStream *s = nullptr;
    g->Reset();
    while (g->Next(&s) == S_OK && s) {
        STATSTG st = {};
        s->Stat(&st, STATFLAG_NONAME);
        Bytes b((size_t)st.cbSize.QuadPart);
        ULONG got = 0;
        s->Read(b.data(), (ULONG)b.size(), &got);
        out[ZvFMMeta_KindOfGuid((const GUID *)(b.data() + 12))] = b;
        s->Release();
    }
    g->Release();
    return out;
}

IZvReadMeta *SourceOf(const std::wstring &path, bool w64 = false)
{
    HANDLE h = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                           nullptr);
    IZvReadMeta *meta = nullptr;
    EXPECT_EQ(S_OK, ZvFMMeta_CreateSourceFromFile(h, w64, &meta));
    CloseHandle(h);
    return meta;
}

// Where the audio lies and whether it is still the given bytes.
bool AudioIntact(const std::wstring &path, const Bytes &audio, size_t at)
{
    Bytes b = FileBytes(path);
    return b.size() >= at + audio.size() && std::equal(audio.begin(), audio.end(), b.begin() + at);
}

// Records of one kind's stream, frames stripped.
std::vector<Bytes> Records(const Bytes &stream)
{
    std::vector<Bytes> out;
    for (size_t at = 28; at + 28 <= stream.size();) {
        size_t n = GetLe32(stream, at + 24);
        out.emplace_back(stream.begin() + at + 28, stream.begin() + at + 28 + n);
        at += 28 + n;
    }
    return out;
}

// Kind by kind, so a failure names the kind rather than printing all.
void ExpectSameStreams(const std::map<DWORD, Bytes> &want, const std::map<DWORD, Bytes> &got)
{
    for (auto &kv : want)
        EXPECT_TRUE(got.count(kv.first) && got.at(kv.first) == kv.second) << "kind " << std::hex << kv.first;
    for (auto &kv : got)
        EXPECT_TRUE(want.count(kv.first)) << "extra kind " << std::hex << kv.first;
}

std::wstring MarkerText(const Bytes &record) { return std::wstring((const wchar_t *)(record.data() + 28)); }

// An IStream that fails every read after a number of bytes.
class FailingStream final : public IStream {
public:
    FailingStream(IStream *inner, ULONG *budget) : inner_(inner), budget_(budget) {}
    virtual ~FailingStream() { inner_->Release(); }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void **out) override
    {
        *out = IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IStream) ? this : nullptr;
        return *out ? (AddRef(), S_OK) : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++ref_; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        ULONG r = --ref_;
        if (!r)
            delete this;
        return r;
    }
    HRESULT STDMETHODCALLTYPE Read(void *p, ULONG n, ULONG *got) override
    {
        if (n > *budget_) {
            *got = 0;
            return STG_E_READFAULT;
        }
        *budget_ -= n;
        return inner_->Read(p, n, got);
    }
    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER d, DWORD o, ULARGE_INTEGER *p) override { return inner_->Seek(d, o, p); }
    HRESULT STDMETHODCALLTYPE Write(const void *, ULONG, ULONG *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE CopyTo(IStream *, ULARGE_INTEGER, ULARGE_INTEGER *, ULARGE_INTEGER *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Commit(DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Revert() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Stat(STATSTG *s, DWORD f) override { return inner_->Stat(s, f); }
    HRESULT STDMETHODCALLTYPE Clone(IStream **) override { return E_NOTIMPL; }

private:
    IStream *inner_;
    ULONG *budget_;
    ULONG ref_ = 1;
};

// A source whose generic streams run dry after a byte budget shared by all
// reads, as a source in another process that dies half-way would.
class FailingSource : public IZvReadMeta, public IZvReadGenericMeta {
public:
    FailingSource(IZvReadMeta *inner, ULONG budget) : inner_(inner), budget_(budget)
    {
        inner_->QueryInterface(IID_IZvReadGenericMeta, (void **)&generic_);
    }
    ~FailingSource() { generic_->Release(); }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void **out) override
    {
        if (IsEqualIID(iid, IID_IZvReadGenericMeta))
            *out = static_cast<IZvReadGenericMeta *>(this);
        else if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IZvReadMeta))
            *out = static_cast<IZvReadMeta *>(this);
        else
            return E_NOINTERFACE;
        return S_OK; // lives on the test's stack
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE GetMarkerStream(IStream **s) override { return inner_->GetMarkerStream(s); }
    HRESULT STDMETHODCALLTYPE GetSecondSummaryStream(IStream **s) override { return inner_->GetSecondSummaryStream(s); }
    HRESULT STDMETHODCALLTYPE GetThirdMetaStream(IStream **s) override { return inner_->GetThirdMetaStream(s); }
    HRESULT STDMETHODCALLTYPE GetMetaStream(DWORD k, IStream **s) override { return inner_->GetMetaStream(k, s); }
    HRESULT STDMETHODCALLTYPE GetSummaryStream(IStream **s) override { return inner_->GetSummaryStream(s); }
    HRESULT STDMETHODCALLTYPE Reset() override { return generic_->Reset(); }
    HRESULT STDMETHODCALLTYPE Next(IStream **s) override
    {
        HRESULT hr = generic_->Next(s);
        if (hr == S_OK && *s)
            *s = new FailingStream(*s, &budget_);
        return hr;
    }

private:
    IZvReadMeta *inner_;
    IZvReadGenericMeta *generic_ = nullptr;
    ULONG budget_;
};

} // namespace

TEST(MetaStream, EveryKindSurvivesAWriteIntoRiffAndWave64)
{
    zvtest::TempDir dir;
    const Bytes audio = Filled(4001, 9);
    std::wstring rich = dir.file(L"rich.wav"), wav = dir.file(L"out.wav"), w64 = dir.file(L"out.w64");
    zvtest::WriteFileBytes(rich, MetaRichWave(audio).data(), MetaRichWave(audio).size());
    zvtest::WriteFileBytes(wav, PlainWave(audio).data(), PlainWave(audio).size());
    zvtest::WriteFileBytes(w64, PlainWave64(audio).data(), PlainWave64(audio).size());

    IZvReadMeta *src = SourceOf(rich);
    ASSERT_TRUE(src);
    std::map<DWORD, Bytes> want = Streams(src);
    // Every kind with a chunk in the file, the raw one holding only "zzz ".
    for (DWORD bit : {0x1u, 0x4u, 0x10u, 0x20u, 0x40u, 0x80u, 0x100u, 0x400u, 0x4000u, 0x8000u, 0x10000u, 0x20000u,
                      0x100000u, 0x200000u, 0x400000u, 0x800000u, 0x2000000u})
        EXPECT_TRUE(want.count(bit)) << std::hex << bit;
    ASSERT_EQ(1u, Records(want[ZVMETA_RAW]).size());
    EXPECT_EQ(0, memcmp(Records(want[ZVMETA_RAW])[0].data(), "zzz \5\0\0\0AHOV]", 13));
    // The playlist's repeated entry is read once; scot is cut at 424 bytes.
    EXPECT_EQ(2u, Records(want[ZVMETA_PLAYLIST]).size());
    EXPECT_EQ(424u, Records(want[ZVMETA_SCOTT])[0].size());
    std::vector<Bytes> markers = Records(want[ZVMETA_MARKERS]);
    ASSERT_EQ(2u, markers.size());
    EXPECT_EQ(L"Verse", MarkerText(markers[0]));
    EXPECT_EQ(L"Chorus A", MarkerText(markers[1]));
    EXPECT_EQ(88200u, GetLe32(markers[1], 8));
    EXPECT_EQ(22050u, GetLe32(markers[1], 16));
    EXPECT_EQ(0xFFFFFFFFu, GetLe32(markers[0], 16)); // a marker, not a region
    // CD tracks one by one: the low three flag bits, the text cut to 13
    // characters, the strings behind the record.
    std::vector<Bytes> tracks = Records(want[ZVMETA_CDTRACKS]);
    ASSERT_EQ(2u, tracks.size());
    ASSERT_EQ(62u + 16, tracks[0].size());
    EXPECT_EQ(4u, GetLe32(tracks[0], 4));
    EXPECT_EQ(5u, GetLe32(tracks[1], 4));
    EXPECT_EQ(1176u, GetLe32(tracks[1], 8));
    EXPECT_EQ(0, memcmp(&tracks[0][28], L"USABC2600001", 26));
    EXPECT_EQ(0, memcmp(&tracks[0][62], L"IntroAnn", 16));

    // The direct marker stream: 100 ns units, the region flagged.
    IStream *direct = nullptr;
    ASSERT_EQ(S_OK, src->GetMarkerStream(&direct));
    BYTE d[12 + 28 * 2 + 12] = {};
    ULONG got = 0;
    direct->Read(d, 12 + 28 + 12, &got);
    direct->Release();
    EXPECT_EQ(2u, d[8]);
    EXPECT_EQ(10000000ll, *(LONGLONG *)(d + 12 + 4));

    ASSERT_EQ(S_OK, ZvFMMeta_openAndWriteMetaStreamEx(wav.c_str(), FALSE, 44100, src, kAllKinds, 0));
    ASSERT_EQ(S_OK, ZvFMMeta64_openAndWriteMetaStream(w64.c_str(), FALSE, 44100, src, kAllKinds, 0));
    src->Release();
    EXPECT_TRUE(AudioIntact(wav, audio, 46));
    EXPECT_TRUE(AudioIntact(w64, audio, 40 + 48 + 24));

    IZvReadMeta *back = SourceOf(wav);
    ExpectSameStreams(want, Streams(back));
    back->Release();
    std::map<DWORD, Bytes> want64 = want;
    want64.erase(ZVMETA_RAW); // raw chunks are RIFF only
    back = SourceOf(w64, true);
    ExpectSameStreams(want64, Streams(back));
    back->Release();

    // The Wave64 summary is a count and wide texts, as other Wave64 readers
    // take it; a body in the RIFF list form still reads.
    const Bytes img = FileBytes(w64);
    const GUID &label = *ZvFMMeta_GuidOfKind(ZVMETA_SUMMARY);
    size_t at = 40;
    while (at + 24 <= img.size() && memcmp(&img[at], &label, 16) != 0)
        at += (GetLe32(img, at + 16) + 7) & ~7u;
    ASSERT_LT(at + 24 + 26, img.size());
    EXPECT_EQ(2u, GetLe32(img, at + 24));
    EXPECT_EQ(0, memcmp(&img[at + 28], "INAM\12\0\0\0T\0o\0n\0e\0\0\0ICMT", 22));
    Bytes info = {'I', 'N', 'F', 'O'};
    Put(info, Chunk("INAM", Bytes{'O', 'l', 'd', 0}).data(), 12);
    TestFile old(W64(Cat({Chunk64(ZVW64_FMT, Fmt(1, 2, 44100, 16)), Chunk64(ZVW64_DATA, audio), Chunk64(label, info)})),
                 L"old.w64");
    back = SourceOf(old.path(), true);
    std::vector<Bytes> fields = Records(Streams(back)[ZVMETA_SUMMARY]);
    ASSERT_EQ(1u, fields.size());
    EXPECT_STREQ(L"Old", (const wchar_t *)(fields[0].data() + 4));
    back->Release();
}

TEST(MetaStream, UpdateReplacesKindsAndNeverMovesAudio)
{
    zvtest::TempDir dir;
    const Bytes audio = Filled(1000, 3);
    std::wstring rich = dir.file(L"rich.wav"), other = dir.file(L"other.wav");
    zvtest::WriteFileBytes(rich, MetaRichWave(audio).data(), MetaRichWave(audio).size());
    // Markers of another file: one region, with a text.
    Bytes cue, labl, ltxt;
    Le32(cue, 1);
    Le32(cue, 5); Le32(cue, 10); PutStr(cue, "data"); Le32(cue, 0); Le32(cue, 0); Le32(cue, 10);
    Le32(labl, 5); PutStr(labl, "Bridge"); labl.push_back(0);
    Le32(ltxt, 5); Le32(ltxt, 30); PutStr(ltxt, "rgn "); Le32(ltxt, 0); Le32(ltxt, 0);
    Bytes o = Riff("WAVE", Cat({Chunk("fmt ", Fmt(1, 2, 44100, 16)), Chunk("data", Filled(8)), Chunk("cue ", cue),
                                List("adtl", Cat({Chunk("labl", labl), Chunk("ltxt", ltxt)}))}));
    zvtest::WriteFileBytes(other, o.data(), o.size());

    IZvReadMeta *before = SourceOf(rich), *src = SourceOf(other);
    std::map<DWORD, Bytes> old = Streams(before);
    before->Release();
    size_t audioAt = FileBytes(rich).size();
    {
        Bytes b = FileBytes(rich);
        audioAt = std::search(b.begin(), b.end(), audio.begin(), audio.end()) - b.begin();
    }
    // Markers and summary: INFO sits in front of the audio and becomes JUNK.
    for (int round = 0; round < 2; round++)
        ASSERT_EQ(S_OK, ZvFMMeta_UpdateMetaStream2(rich.c_str(), 44100, src, ZVMETA_MARKERS | ZVMETA_SUMMARY, 0));
    src->Release();
    EXPECT_TRUE(AudioIntact(rich, audio, audioAt));
    IZvReadMeta *after = SourceOf(rich);
    std::map<DWORD, Bytes> now = Streams(after);
    after->Release();
    std::vector<Bytes> markers = Records(now[ZVMETA_MARKERS]);
    ASSERT_EQ(1u, markers.size());
    EXPECT_EQ(L"Bridge", MarkerText(markers[0]));
    EXPECT_EQ(30u, GetLe32(markers[0], 16));
    // The other file has no summary: the kind is not in the effective mask,
    // so the old one stays.
    old.erase(ZVMETA_MARKERS);
    now.erase(ZVMETA_MARKERS);
    ExpectSameStreams(old, now);
    // One cue chunk, one adtl list: the old ones went before the new were written.
    Bytes b = FileBytes(rich);
    int cues = 0;
    for (size_t at = 12; at + 8 <= b.size(); at += 8 + GetLe32(b, at + 4) + (GetLe32(b, at + 4) & 1))
        cues += memcmp(&b[at], "cue ", 4) == 0;
    EXPECT_EQ(1, cues);
    EXPECT_EQ(b.size() - 8, GetLe32(b, 4));

    // Delete by mask, then the marker test.
    EXPECT_EQ(S_OK, ZvFMMeta_LookForMarkers(rich.c_str()));
    EXPECT_EQ(S_OK, ZvFMMeta_DeleteMetaChunks(rich.c_str()));
    EXPECT_EQ(ZVERR_NOT_FOUND, ZvFMMeta_LookForMarkers(rich.c_str()));
    EXPECT_EQ(ZVERR_NOT_FOUND, ZvFMMeta_LookForMarkers(dir.file(L"none.wav").c_str()));
    EXPECT_TRUE(AudioIntact(rich, audio, audioAt));
}

TEST(MetaStream, SidecarNamesItsMediaFileOnly)
{
    zvtest::TempDir dir;
    WCHAR name[MAX_PATH];
    ZvFMMeta_CreateMetaName(L"C:\\x\\a.wav", name, MAX_PATH, FALSE);
    EXPECT_STREQ(L"C:\\x\\a.zvl", name);
    ZvFMMeta_CreateMetaName(L"C:\\x.y\\a", name, MAX_PATH, FALSE);
    EXPECT_STREQ(L"C:\\x.y\\a.zvl", name);
    ZvFMMeta_CreateMetaName(L"C:\\x\\a.wav", name, MAX_PATH, TRUE);
    EXPECT_STREQ(L"C:\\x\\a.wav.zvl", name);
    std::wstring longName(259, L'n');
    ZvFMMeta_CreateMetaName(longName.c_str(), name, MAX_PATH, TRUE);
    EXPECT_EQ(longName.substr(0, 255) + L".zvl", std::wstring(name));

    const Bytes audio = Filled(600, 1);
    std::wstring rich = dir.file(L"rich.wav"), a = dir.file(L"a.wav"), aZvl = dir.file(L"a.zvl");
    zvtest::WriteFileBytes(rich, MetaRichWave(audio).data(), MetaRichWave(audio).size());
    zvtest::WriteFileBytes(a, PlainWave(audio).data(), PlainWave(audio).size());
    // a.zvl belongs to b.wav: not a's sidecar, and a full write leaves it alone.
    Bytes foreign = Riff("ZVPL", Chunk("ZVPI", Bytes{'b', '.', 'w', 'a', 'v', 0}));
    zvtest::WriteFileBytes(aZvl, foreign.data(), foreign.size());
    EXPECT_FALSE(ZvFMMeta_IsMetaFile(a.c_str(), aZvl.c_str()));
    EXPECT_TRUE(ZvFMMeta_IsMetaFile(dir.file(L"b.wav").c_str(), aZvl.c_str()));

    IZvReadMeta *src = SourceOf(rich);
    const Bytes plain = FileBytes(a);
    ASSERT_EQ(S_OK, ZvFMMeta_openAndWriteMetaStreamEx(a.c_str(), FALSE, 44100, src, ZVMETA_SUMMARY,
                                                      ZVMETA_MARKERS | ZVMETA_BWF));
    EXPECT_EQ(foreign, FileBytes(aZvl));
    std::wstring side = dir.file(L"a.wav.zvl");
    ASSERT_TRUE(ZvFMMeta_IsMetaFile(a.c_str(), side.c_str()));
    WCHAR found[MAX_PATH];
    ASSERT_EQ(S_OK, ZvFMMeta_FindMetaFile(a.c_str(), found, MAX_PATH));
    EXPECT_EQ(side, std::wstring(found));
    IZvReadMeta *fromSide = SourceOf(side), *fromFile = SourceOf(a);
    std::map<DWORD, Bytes> all = Streams(src), s = Streams(fromSide), f = Streams(fromFile);
    fromSide->Release();
    fromFile->Release();
    EXPECT_EQ(2u, s.size());
    EXPECT_EQ(all[ZVMETA_MARKERS], s[ZVMETA_MARKERS]);
    EXPECT_EQ(all[ZVMETA_BWF], s[ZVMETA_BWF]);
    EXPECT_EQ(1u, f.size());
    EXPECT_EQ(all[ZVMETA_SUMMARY], f[ZVMETA_SUMMARY]);
    EXPECT_TRUE(AudioIntact(a, audio, 46));

    // An update of markers into the file takes them out of the sidecar.
    ASSERT_EQ(S_OK, ZvFMMeta_UpdateMetaStream2(a.c_str(), 44100, src, ZVMETA_MARKERS, 0));
    fromSide = SourceOf(side);
    s = Streams(fromSide);
    fromSide->Release();
    EXPECT_FALSE(s.count(ZVMETA_MARKERS));
    EXPECT_TRUE(s.count(ZVMETA_BWF));

    // Renamed media: the sidecar follows.
    ASSERT_EQ(S_OK, ZvFMMeta_ChangeAttachedFilename(side.c_str(), dir.file(L"renamed.wav").c_str()));
    EXPECT_TRUE(ZvFMMeta_IsMetaFile(dir.file(L"renamed.wav").c_str(), side.c_str()));
    EXPECT_FALSE(ZvFMMeta_IsMetaFile(a.c_str(), side.c_str()));
    src->Release();
}

TEST(MetaStream, HalfWayFailureKeepsAudioAndAReadableFile)
{
    zvtest::TempDir dir;
    const Bytes audio = Filled(2000, 7);
    std::wstring rich = dir.file(L"rich.wav"), wav = dir.file(L"t.wav");
    zvtest::WriteFileBytes(rich, MetaRichWave(audio).data(), MetaRichWave(audio).size());
    IZvReadMeta *src = SourceOf(rich);
    const Bytes full = Streams(src)[ZVMETA_MARKERS];
    // Every stop point from the first header to well into the later streams.
    int stoppedAfterWriting = 0;
    for (ULONG budget = 0; budget < 6000; budget += 53) {
        SCOPED_TRACE(budget);
        zvtest::WriteFileBytes(wav, PlainWave(audio).data(), PlainWave(audio).size());
        FailingSource failing(src, budget);
        HRESULT hr = ZvFMMeta_openAndWriteMetaStreamEx(wav.c_str(), FALSE, 44100, &failing, kAllKinds, 0);
        EXPECT_TRUE(hr == S_OK || hr == ZVERR_FILE_READ || hr == ZVERR_MALFORMED) << std::hex << hr;
        EXPECT_TRUE(AudioIntact(wav, audio, 46));
        Bytes b = FileBytes(wav);
        EXPECT_LE(GetLe32(b, 4) + 8ull, b.size());
        IZvReadMeta *back = nullptr;
        HANDLE h = CreateFileW(wav.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
        EXPECT_EQ(S_OK, ZvFMMeta_CreateSourceFromFile(h, FALSE, &back));
        CloseHandle(h);
        // What was written is whole: the markers are all there or none.
        std::map<DWORD, Bytes> got = Streams(back);
        EXPECT_TRUE(!got.count(ZVMETA_MARKERS) || got[ZVMETA_MARKERS] == full);
        stoppedAfterWriting += FAILED(hr) && !got.empty();
        back->Release();
    }
    EXPECT_GT(stoppedAfterWriting, 10);
    // A file another process holds without sharing: refused, untouched.
    zvtest::WriteFileBytes(wav, PlainWave(audio).data(), PlainWave(audio).size());
    HANDLE lock = CreateFileW(wav.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_TRUE(FAILED(ZvFMMeta_openAndWriteMetaStreamEx(wav.c_str(), FALSE, 44100, src, kAllKinds, 0)));
    CloseHandle(lock);
    EXPECT_EQ(PlainWave(audio), FileBytes(wav));
    src->Release();
}

// An AIFF file's INST loops, through the markers they name, as a smpl record.
TEST(MetaReaders, AiffSamplerFromInstAndMarkers)
{
    Bytes inst = {60, 0, 0, 127, 1, 127, 0, 0};
    Be16(inst, 1), Be16(inst, 1), Be16(inst, 2); // sustain: forward, markers 1 to 2
    Be16(inst, 2), Be16(inst, 3), Be16(inst, 9); // release: marker 9 is missing
    Bytes mark;
    Be16(mark, 3);
    for (unsigned id : {1u, 2u, 3u}) {
        Be16(mark, id), Be32(mark, id * 1000);
        mark.push_back(3), PutStr(mark, id == 1 ? "beg" : "end");
    }
    Bytes img = Form("AIFF", Cat({IffChunk("COMM", CommBody(1, 4000, 16, 8000)), IffChunk("MARK", mark),
                                  IffChunk("INST", inst), IffChunk("SSND", Bytes(8 + 8000))}));
    TestFile t(img, L"s.aiff");
    void *data = nullptr;
    DWORD size = 0;
    ASSERT_EQ(S_OK, ZvFMMeta_fillSamplerinfoFromFileEx(t.h(), &data, &size, TRUE, 8000));
    ASSERT_EQ(36u + 32, size);
    Bytes r((BYTE *)data, (BYTE *)data + size);
    GlobalUnlock(GlobalHandle(data));
    GlobalFree(GlobalHandle(data));
    EXPECT_EQ(125000u, GetLe32(r, 8)); // sample period in ns
    EXPECT_EQ(60u, GetLe32(r, 12));
    EXPECT_EQ(1u, GetLe32(r, 28));
    EXPECT_EQ(1000u, GetLe32(r, 36 + 8));
    EXPECT_EQ(1000u, GetLe32(r, 36 + 16));
    TestFile none(Form("AIFF", IffChunk("COMM", CommBody(1, 0, 16, 8000))), L"n.aiff");
    EXPECT_EQ(ZVERR_NOT_FOUND, ZvFMMeta_fillSamplerinfoFromFileEx(none.h(), &data, &size, TRUE, 8000));
    TestFile cut(Form("AIFF", IffChunk("INST", Bytes(6))), L"c.aiff");
    EXPECT_EQ(ZVERR_MALFORMED, ZvFMMeta_fillSamplerinfoFromFileEx(cut.h(), &data, &size, TRUE, 8000));
}

// The kinds of a wave file written into an AIFF file behind its audio and
// read back: markers (a region keeps its start), the sampler loop through
// its own markers, the four text fields and raw chunks; then AIFF to AIFF
// loses nothing, and a second write adds no loop markers.
TEST(MetaAiff, WaveKindsIntoAiffAndBack)
{
    const Bytes audio = Filled(8000);
    const Bytes plain = Form("AIFF", Cat({IffChunk("COMM", CommBody(2, 2000, 16, 44100)), IffChunk("SSND", Cat({Bytes(8), audio}))}));
    TestFile wav(MetaRichWave(Filled(40)), L"rich.wav");
    IZvReadMeta *rich = SourceOf(wav.path());
    ASSERT_TRUE(rich);
    TestFile a(plain, L"a.aif");
    ASSERT_EQ(S_OK, ZvFMMeta_WriteMetaToAiff(a.h(), rich, 0xFFFFFFFF));
    rich->Release();
    Bytes img = a.bytes();
    EXPECT_TRUE(std::equal(plain.begin() + 8, plain.end(), img.begin() + 8)) << "audio and header stay";
    EXPECT_EQ(img.size() - 8, (size_t)(img[4] << 24 | img[5] << 16 | img[6] << 8 | img[7]));
    IZvReadMeta *back = nullptr;
    ASSERT_EQ(S_OK, ZvFMMeta_CreateSourceFromAiff(a.h(), &back));
    std::map<DWORD, Bytes> got = Streams(back);
    EXPECT_EQ(4u, got.size());
    std::vector<Bytes> markers = Records(got[ZVMETA_MARKERS]);
    ASSERT_EQ(2u, markers.size());
    EXPECT_EQ(2u, GetLe32(markers[1], 4));
    EXPECT_EQ(88200u, GetLe32(markers[1], 8));
    EXPECT_EQ(0xFFFFFFFFu, GetLe32(markers[1], 16)) << "a point";
    EXPECT_EQ(L"Chorus A", MarkerText(markers[1]));
    std::vector<Bytes> sampler = Records(got[ZVMETA_SAMPLER]);
    ASSERT_EQ(1u, sampler.size());
    ASSERT_EQ(36u + 32, sampler[0].size());
    EXPECT_EQ(100u, GetLe32(sampler[0], 36 + 8));
    EXPECT_EQ(100u, GetLe32(sampler[0], 36 + 16));
    std::vector<Bytes> info = Records(got[ZVMETA_SUMMARY]);
    ASSERT_EQ(2u, info.size());
    EXPECT_EQ(0, memcmp(info[0].data(), "INAM", 4));
    EXPECT_STREQ(L"Tone", (const wchar_t *)(info[0].data() + 4));
    std::vector<Bytes> raw = Records(got[ZVMETA_RAW]);
    ASSERT_EQ(1u, raw.size());
    EXPECT_EQ(Cat({Bytes{'z', 'z', 'z', ' ', 5, 0, 0, 0}, Filled(5, 0x41)}), raw[0]);

    TestFile b(plain, L"b.aifc");
    ASSERT_EQ(S_OK, ZvFMMeta_WriteMetaToAiff(b.h(), back, 0xFFFFFFFF));
    IZvReadMeta *again = nullptr;
    ASSERT_EQ(S_OK, ZvFMMeta_CreateSourceFromAiff(b.h(), &again));
    ExpectSameStreams(got, Streams(again));
    again->Release();
    back->Release();

    // Damaged or foreign files: the system's codes, nothing written.
    TestFile w(PlainWave(audio), L"w.wav");
    EXPECT_EQ(ZVERR_NO_RIFF_HEADER, ZvFMMeta_CreateSourceFromAiff(w.h(), &again));
    Bytes mark;
    Be16(mark, 3), Be16(mark, 1), Be32(mark, 5);
    TestFile cut(Form("AIFF", Cat({IffChunk("COMM", CommBody(2, 2000, 16, 44100)), IffChunk("MARK", mark),
                                   IffChunk("NAME", Bytes{'x'})})), L"cut.aif");
    ASSERT_EQ(S_FALSE, ZvFMMeta_CreateSourceFromAiff(cut.h(), &again)) << "the broken kind is left out";
    got = Streams(again);
    EXPECT_EQ(1u, got.size());
    EXPECT_EQ(1u, got.count(ZVMETA_SUMMARY));
    again->Release();
}

// Writes, updates and deletes through the path functions on an AIFF file:
// markers and sampler loops always share one MARK, the audio stays.
TEST(MetaAiff, PathFunctionsKeepOneMarkChunk)
{
    zvtest::TempDir dir;
    const Bytes audio = Filled(8000);
    const Bytes plain = Form("AIFF", Cat({IffChunk("COMM", CommBody(2, 2000, 16, 44100)), IffChunk("SSND", Cat({Bytes(8), audio}))}));
    Bytes cue;
    Le32(cue, 1), Le32(cue, 7), Le32(cue, 0), PutStr(cue, "data"), Le32(cue, 0), Le32(cue, 0), Le32(cue, 500);
    const Bytes one = Riff("WAVE", Cat({Chunk("fmt ", Fmt(1, 2, 44100, 16)), Chunk("data", audio), Chunk("cue ", cue)}));
    std::wstring aif = dir.file(L"p.aif"), rich = dir.file(L"rich.wav"), single = dir.file(L"one.wav");
    zvtest::WriteFileBytes(aif, plain.data(), plain.size());
    zvtest::WriteFileBytes(rich, MetaRichWave(audio).data(), MetaRichWave(audio).size());
    zvtest::WriteFileBytes(single, one.data(), one.size());
    auto state = [&aif](size_t *marks, size_t *insts) {
        Bytes b = FileBytes(aif);
        *marks = *insts = 0;
        for (size_t at = 12; at + 8 <= b.size();) {
            size_t size = (size_t)b[at + 4] << 24 | b[at + 5] << 16 | b[at + 6] << 8 | b[at + 7];
            *marks += !memcmp(&b[at], "MARK", 4);
            *insts += !memcmp(&b[at], "INST", 4);
            at += 8 + size + (size & 1);
        }
        HANDLE h = CreateFileW(aif.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
        IZvReadMeta *meta = nullptr;
        EXPECT_EQ(S_OK, ZvFMMeta_CreateSourceFromAiff(h, &meta));
        CloseHandle(h);
        std::map<DWORD, Bytes> kinds = meta ? Streams(meta) : std::map<DWORD, Bytes>();
        if (meta)
            meta->Release();
        return kinds;
    };
    size_t marks, insts;
    IZvReadMeta *src = SourceOf(rich);
    ASSERT_EQ(S_OK, ZvFMMeta_openAndWriteMetaStreamEx(aif.c_str(), FALSE, 44100, src,
                                                      ZVMETA_MARKERS | ZVMETA_SAMPLER_AIFF | ZVMETA_SUMMARY, 0));
    src->Release();
    std::map<DWORD, Bytes> kinds = state(&marks, &insts);
    EXPECT_EQ(2u, Records(kinds[ZVMETA_MARKERS]).size());
    EXPECT_EQ(1u, Records(kinds[ZVMETA_SAMPLER]).size());
    EXPECT_EQ(2u, Records(kinds[ZVMETA_SUMMARY]).size());
    EXPECT_EQ(1u, marks);
    EXPECT_TRUE(AudioIntact(aif, audio, 54));

    // One marker in place of the two; the loop stays with it.
    src = SourceOf(single);
    ASSERT_EQ(S_OK, ZvFMMeta_UpdateMetaStreamEx(aif.c_str(), FALSE, 44100, src, ZVMETA_MARKERS));
    src->Release();
    kinds = state(&marks, &insts);
    ASSERT_EQ(1u, Records(kinds[ZVMETA_MARKERS]).size());
    EXPECT_EQ(500u, GetLe32(Records(kinds[ZVMETA_MARKERS])[0], 8));
    EXPECT_EQ(1u, Records(kinds[ZVMETA_SAMPLER]).size());
    EXPECT_EQ(2u, Records(kinds[ZVMETA_SUMMARY]).size());
    EXPECT_EQ(1u, marks);
    EXPECT_TRUE(AudioIntact(aif, audio, 54));

    // The sampler goes, the marker stays; then the texts.
    ASSERT_EQ(S_OK, ZvFMMeta_DeleteMetaChunksEx(aif.c_str(), ZVMETA_SAMPLER_AIFF, FALSE));
    kinds = state(&marks, &insts);
    EXPECT_EQ(0u, kinds.count(ZVMETA_SAMPLER));
    EXPECT_EQ(1u, Records(kinds[ZVMETA_MARKERS]).size());
    EXPECT_EQ(0u, insts);
    ASSERT_EQ(S_OK, ZvFMMeta_DeleteMetaChunksEx(aif.c_str(), ZVMETA_SUMMARY | ZVMETA_MARKERS, FALSE));
    EXPECT_EQ(plain, FileBytes(aif));

    // A raw chunk updated twice stands once.
    for (int round = 0; round < 2; ++round) {
        src = SourceOf(rich);
        ASSERT_EQ(S_OK, ZvFMMeta_UpdateMetaStreamEx(aif.c_str(), FALSE, 44100, src, ZVMETA_RAW));
        src->Release();
    }
    kinds = state(&marks, &insts);
    EXPECT_EQ(1u, Records(kinds[ZVMETA_RAW]).size()) << "the update left the old raw chunk beside the new";
    EXPECT_TRUE(AudioIntact(aif, audio, 54));

    // A MARK in front of the audio is retired in place: the audio stays put.
    Bytes mark;
    Be16(mark, 1), Be16(mark, 1), Be32(mark, 9), mark.push_back(1), PutStr(mark, "a");
    const Bytes front = Form("AIFF", Cat({IffChunk("COMM", CommBody(2, 2000, 16, 44100)), IffChunk("MARK", mark),
                                          IffChunk("SSND", Cat({Bytes(8), audio}))}));
    zvtest::WriteFileBytes(aif, front.data(), front.size());
    ASSERT_EQ(S_OK, ZvFMMeta_DeleteMetaChunksEx(aif.c_str(), ZVMETA_MARKERS, FALSE));
    kinds = state(&marks, &insts);
    EXPECT_TRUE(kinds.empty());
    EXPECT_EQ(front.size(), FileBytes(aif).size());
    EXPECT_TRUE(AudioIntact(aif, audio, 54 + 8 + mark.size()));
}

// An ARDEO clip's time code from the XML entry of its LIST meta.
TEST(MetaReaders, ArdeoTimeCode)
{
    const char *xml = "<?xml version=\"1.0\"?><Clip><LtcChangeTable tcFps=\"25\">"
                      "<LtcChange frameCount=\"0\" value=\"10:00:00:00\"/></LtcChangeTable></Clip>";
    Bytes text(xml, xml + strlen(xml) + 1);
    Bytes avi = Riff("AVI ", Cat({List("hdrl", Chunk("avih", Bytes(56))), List("movi", Chunk("00dc", Filled(10))),
                                  List("meta", Chunk("xml ", text))}));
    TestFile t(avi, L"a.avi");
    EXPECT_TRUE(ZvFMMeta_isARDEOavi(t.h()));
    tZVLIST *list = nullptr;
    ZvList_CreateExZ(&list, sizeof(void *), 4, 4, ZVLIST_HEAPITEMS);
    ASSERT_EQ(S_OK, ZvFMMeta_fillARDEOmetaFromFileEx(t.h(), list, nullptr));
    ASSERT_EQ(1, ZvList_GetCount(list));
    const BYTE *item = (const BYTE *)ZvList_GetItem(list, 0);
    const ZVMETA_ITEMFRAME *f = (const ZVMETA_ITEMFRAME *)item;
    EXPECT_EQ(ZVMETA_SUMMARY, ZvFMMeta_KindOfGuid(&f->kind));
    EXPECT_EQ(0, memcmp(item + 28, "TCOD", 4));
    EXPECT_STREQ(L"10:00:00:00", (const wchar_t *)(item + 32));
    // The packed form, frames first with the drop-frame flag; a value that
    // holds from a later frame, moved back over a dropped label.
    const struct {
        const char *table, *want;
    } forms[] = {{"<LtcChangeTable tcFps=\"30\"><LtcChange frameCount=\"0\" value=\"55150110\"/>", "10:01:15;15"},
                 {"<LtcChangeTable tcFps=\"30\"><LtcChange frameCount=\"2\" value=\"00:01:00;02\"/>", "00:00:59;28"},
                 {"<LtcChangeTable tcFps=\"25\"><LtcChange frameCount=\"50\" value=\"00:00:01:00\"/>", "23:59:59:00"},
                 {"<LtcChangeTable><LtcChange value=\"take 4\"/>", "take 4"}};
    for (const auto &f : forms) {
        std::string doc = std::string("<Clip>") + f.table + "</LtcChangeTable></Clip>";
        TestFile clip(Riff("AVI ", Cat({List("movi", Chunk("00dc", Filled(10))),
                                        List("meta", Chunk("xml ", Bytes(doc.c_str(), doc.c_str() + doc.size() + 1)))})),
                      L"f.avi");
        IZvReadMeta *meta = nullptr;
        ASSERT_EQ(S_OK, ZvFMMeta_CreateSourceFromAvi(clip.h(), &meta));
        std::vector<Bytes> fields = Records(Streams(meta)[ZVMETA_SUMMARY]);
        meta->Release();
        ASSERT_EQ(1u, fields.size()) << f.want;
        std::wstring want(f.want, f.want + strlen(f.want));
        EXPECT_EQ(want, (const wchar_t *)(fields[0].data() + 4));
    }
    ZvList_Destroy(list);
    // Not an ARDEO clip: a wave file, an AVI whose first frame is audio.
    TestFile wav(PlainWave(Filled(8)), L"p.wav");
    EXPECT_FALSE(ZvFMMeta_isARDEOavi(wav.h()));
    TestFile audio(Riff("AVI ", List("movi", Chunk("01wb", Filled(4)))), L"b.avi");
    EXPECT_FALSE(ZvFMMeta_isARDEOavi(audio.h()));
}
