// The template record: hashes against an independent computation
// (template_vectors.py), making and setting, file and stream loading, and
// lifting of the old form.
#include "templatetest.h"
#include "templates/zvtemplateinfo.h"
#include <stdlib.h>

using namespace templatetest;

namespace {

struct Vector {
    DWORD dataSize;
    const wchar_t *name, *notes;
    DWORD crc, crcText;
    const wchar_t *guid, *guidText;
};

// Output of tests/templates/template_vectors.py.
const Vector kVectors[] = {
    {0, L"", L"", 0x08F258FDu, 0x08F258FDu, L"{A9FF8547-51FF-338B-9378-A6C0D2A87F97}", L"{A9FF8547-51FF-338B-9378-A6C0D2A87F97}"},
    {5, L"Alpha", L"note one", 0x45187E85u, 0x16EE6B54u, L"{A66CF630-C1B2-3FD4-8DE3-5D21BE855CE9}", L"{AF81A8C5-8547-35B2-AAD4-DC800E0DD0C8}"},
    {64, L"CD Audio 44.1", L"", 0x2A7D1912u, 0xFD9F3EDFu, L"{31463F8E-D79C-3FDA-901D-D7D4898DE28E}", L"{95A65F91-7913-38EA-88FB-D508886A0242}"},
    {3, L"", L"only notes", 0x90BBC238u, 0x77B7D09Au, L"{5CEC9C90-73F3-3412-955C-B126E9216532}", L"{A227E9D5-D186-3F57-83FC-AACB4BA044C2}"},
    {1000, L"Long \xe9\x4e2d", L"Line1\r\nLine2", 0x84021DF4u, 0xED2D5991u, L"{673A1ACD-CD27-3D2E-A859-12B88D4D42F2}", L"{D84C8CB2-D1E3-3FA5-A005-B0DAA2DD94DA}"},
};

std::wstring GuidText(const GUID &g)
{
    wchar_t text[40];
    StringFromGUID2(g, text, 40);
    return text;
}

struct Owned {
    tagZVTEMPLATExV2 *t = nullptr;
    ~Owned() { ZvFio_ReleaseTemplate(t); }
};

} // namespace

TEST(TemplateRecord, HashesEqualAnIndependentComputation)
{
    for (const Vector &v : kVectors) {
        Owned o;
        o.t = MakeVectorRecord(v.dataSize, v.name, v.notes);
        ASSERT_TRUE(o.t);
        EXPECT_STREQ(ZvFio_GetTemplateName(o.t), v.name);
        EXPECT_STREQ(ZvFio_GetTemplateNotes(o.t), v.notes);
        EXPECT_EQ(ZvFio_GetTemplateDataCRC32(o.t, FALSE), v.crc) << v.dataSize;
        EXPECT_EQ(ZvFio_GetTemplateDataCRC32(o.t, TRUE), v.crcText) << v.dataSize;
        GUID g;
        ASSERT_EQ(ZvFio_InitGUIDFromTemplateMD5DataHash(&g, o.t, FALSE), S_OK);
        EXPECT_EQ(GuidText(g), v.guid);
        ASSERT_EQ(ZvFio_InitGUIDFromTemplateMD5DataHash(&g, o.t, TRUE), S_OK);
        EXPECT_EQ(GuidText(g), v.guidText);
        // header fields, the GUIDs among them, are outside both sums
        o.t->templateId = g;
        o.t->dwPresetId = 9;
        EXPECT_EQ(ZvFio_GetTemplateDataCRC32(o.t, TRUE), v.crcText);
    }
    Owned a, b;
    a.t = MakeVectorRecord(5, L"One", L"x");
    b.t = MakeVectorRecord(5, L"Two", L"x");
    EXPECT_EQ(ZvFio_GetTemplateDataCRC32(a.t, FALSE), ZvFio_GetTemplateDataCRC32(b.t, FALSE));
    EXPECT_NE(ZvFio_GetTemplateDataCRC32(a.t, TRUE), ZvFio_GetTemplateDataCRC32(b.t, TRUE));
}

TEST(TemplateRecord, MakeAndSet)
{
    Owned src;
    src.t = MakeVectorRecord(10, L"Source", L"Audio: 44,100 Hz\r\nVideo: none\r\n  my own note");
    // the generated description is dropped from the notes
    EXPECT_STREQ(ZvFio_GetTemplateNotes(src.t), L"my own note");
    src.t->dwCopied = 5;
    src.t->dwPresetId = 6;

    // reuse of the same record keeps its content, text from its own area
    Bytes before = RecordBytes(src.t);
    tagZVTEMPLATExV2 *same = src.t;
    ASSERT_EQ(ZvFio_MakeTemplate(&src.t, ZVTEMPLATE_VERSION_V2, src.t, 3, 0, ZvFio_GetTemplateName(src.t),
                                 ZvFio_GetTemplateNotes(src.t)),
              S_OK);
    EXPECT_EQ(src.t, same);
    EXPECT_EQ(RecordBytes(src.t), before);

    // a new record with only audio, extra data zeroed behind the source's
    Owned made;
    ASSERT_EQ(ZvFio_MakeTemplate(&made.t, ZVTEMPLATE_VERSION_V2 | 3, src.t, 1, 6, L"Made", nullptr), S_OK);
    EXPECT_EQ(made.t->dwDataSize, 16u);
    EXPECT_EQ(made.t->dwSize, 536u + 16 + 2 * (4 + 0 + 2));
    EXPECT_EQ(made.t->dwVersion, ZVTEMPLATE_VERSION_V2 | 3);
    EXPECT_EQ(made.t->dwCopied, 5u);
    EXPECT_EQ(made.t->dwPresetId, 6u);
    EXPECT_EQ(memcmp(made.t->audio, src.t->audio, 200), 0);
    EXPECT_EQ(made.t->video[0], 0);
    EXPECT_EQ(memcmp((BYTE *)made.t + 536, (BYTE *)src.t + 536, 10), 0);
    EXPECT_EQ(((BYTE *)made.t)[536 + 10], 0);
    EXPECT_STREQ(ZvFio_GetTemplateName(made.t), L"Made");
    EXPECT_STREQ(ZvFio_GetTemplateNotes(made.t), L"");

    // set: compare, copy into the old block, adopt
    tagZVTEMPLATExV2 *held = ZvFio_CopyTemplate(src.t);
    EXPECT_EQ(ZvFio_SetTemplate(&held, src.t, ZVTEMPLATE_SET_COMPARE | ZVTEMPLATE_SET_COPY), S_FALSE);
    EXPECT_NE(held, src.t);
    EXPECT_EQ(ZvFio_SetTemplate(&held, made.t, ZVTEMPLATE_SET_COMPARE | ZVTEMPLATE_SET_COPY), S_OK);
    EXPECT_EQ(RecordBytes(held).size(), made.t->dwSize);
    EXPECT_EQ(memcmp(held, made.t, made.t->dwSize), 0);
    EXPECT_EQ(ZvFio_SetTemplate(&held, ZvFio_CopyTemplate(src.t), 0), S_OK);
    EXPECT_EQ(RecordBytes(held), before);
    EXPECT_EQ(ZvFio_SetTemplate(&held, nullptr, ZVTEMPLATE_SET_COMPARE), S_OK);
    EXPECT_EQ(held, nullptr);
    tagZVTEMPLATExV2 *none = nullptr;
    EXPECT_EQ(ZvFio_SetTemplate(&none, nullptr, ZVTEMPLATE_SET_COMPARE), S_FALSE);
}

TEST(TemplateRecord, FilesLoadBackByteForByte)
{
    zvtest::TempDir dir;
    for (const Vector &v : kVectors) {
        Owned o, back;
        o.t = MakeVectorRecord(v.dataSize, v.name, v.notes);
        *ZvTemplateAt<DWORD>(o.t, ZVT_OFS_AUDIO) = 200; // the files' checks want whole blocks
        *ZvTemplateAt<DWORD>(o.t, ZVT_OFS_VIDEO) = 0;
        std::wstring path = dir.file(L"t.zvt2");
        ASSERT_TRUE(zvtest::WriteFileBytes(path, o.t, o.t->dwSize));
        ASSERT_EQ(ZvFio_LoadRawUserTemplate(nullptr, path.c_str(), &back.t), S_OK);
        EXPECT_EQ(RecordBytes(back.t), RecordBytes(o.t));
    }
    // the smallest record: no blocks, capacity 2
    Bytes min(540, 0);
    DWORD head[2] = {540, ZVTEMPLATE_VERSION_V2};
    memcpy(min.data(), head, 8);
    min[528] = 2;
    std::wstring path = dir.file(L"min.zvt2");
    Owned m;
    ASSERT_TRUE(zvtest::WriteFileBytes(path, min.data(), min.size()));
    ASSERT_EQ(ZvFio_LoadRawUserTemplate(nullptr, path.c_str(), &m.t), S_OK);
    EXPECT_STREQ(ZvFio_GetTemplateName(m.t), L"");

    tagZVTEMPLATExV2 *t = (tagZVTEMPLATExV2 *)0x1;
    Bytes bad = min;
    bad[56] = 199;
    ASSERT_TRUE(zvtest::WriteFileBytes(path, bad.data(), bad.size()));
    EXPECT_EQ(ZvFio_LoadRawUserTemplate(nullptr, path.c_str(), &t), E_ZVTEMPLATE_BAD);
    EXPECT_EQ(t, nullptr);
    // 536 bytes: a stream takes it, a file doesn't
    Bytes short536(min.begin(), min.begin() + 536);
    memcpy(short536.data(), "\x18\x02\0\0", 4);
    short536[528] = 0;
    ASSERT_TRUE(zvtest::WriteFileBytes(path, short536.data(), short536.size()));
    EXPECT_EQ(ZvFio_LoadRawUserTemplate(nullptr, path.c_str(), &t), E_ZVTEMPLATE_BAD);
    EXPECT_EQ(LoadStream(short536, &t), S_OK);
    EXPECT_EQ(t->dwSize, 536u);
    ZvFio_ReleaseTemplate(t);
    EXPECT_EQ(ZvFio_LoadRawUserTemplate(nullptr, dir.file(L"missing.zvt2").c_str(), &t), ZVERR_FILE_OPEN);

    // a plug-in that refuses the template
    FakeRenderer refuse;
    refuse.writable = 0;
    ASSERT_TRUE(zvtest::WriteFileBytes(path, min.data(), min.size()));
    EXPECT_EQ(ZvFio_LoadRawUserTemplate(&refuse, path.c_str(), &t), ZVERR_TEMPLATE_REFUSED);
    EXPECT_EQ(t, nullptr);
}

TEST(TemplateRecord, StreamVersions)
{
    Owned o;
    o.t = MakeVectorRecord(5, L"S", L"");
    Bytes b = RecordBytes(o.t);
    tagZVTEMPLATExV2 *t = nullptr;
    EXPECT_EQ(LoadStream(b, &t, ZVTEMPLATE_VERSION_V1), E_ZVTEMPLATE_BAD);
    b[7] = 3;
    EXPECT_EQ(LoadStream(b, &t, 0x3000000), E_ZVTEMPLATE_BAD);
    b[7] = 2;
    b.resize(b.size() - 1);
    EXPECT_EQ(LoadStream(b, &t), E_ZVTEMPLATE_BAD);
    EXPECT_EQ(t, nullptr);
}

TEST(TemplateRecord, OldFormIsLifted)
{
    V1Spec spec;
    spec.name = L"Old one";
    spec.notes = L"kept";
    WAVEFORMATEXTENSIBLE &w = spec.wfx;
    w.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    w.Format.nChannels = 2;
    w.Format.nSamplesPerSec = 48000;
    w.Format.wBitsPerSample = 24;
    w.Format.nBlockAlign = 6;
    w.Format.nAvgBytesPerSec = 288000;
    w.Format.cbSize = 22;
    spec.audioData = {1, 2, 3, 4, 5};
    spec.video = true;
    spec.format1.assign(40, 0x11);
    spec.format2.assign(44, 0x22);
    spec.videoData = {9, 8, 7};

    FakeRenderer cls;
    Owned lifted;
    ASSERT_EQ(LoadStream(WriteV1(spec), &lifted.t, ZVTEMPLATE_VERSION_V2, &cls), S_OK);
    tagZVTEMPLATExV2 *t = lifted.t;
    EXPECT_EQ(t->dwVersion, ZVTEMPLATE_VERSION_V2 | 0x42);
    EXPECT_STREQ(ZvFio_GetTemplateName(t), L"Old one");
    EXPECT_STREQ(ZvFio_GetTemplateNotes(t), L"kept");
    EXPECT_EQ(*ZvTemplateAt<DWORD>(t, ZVT_OFS_AUDIO), 200u);
    const ZVWAVEFORMAT *fmt = ZvTemplateAt<ZVWAVEFORMAT>(t, ZVT_OFS_AUDIO_FORMAT);
    EXPECT_EQ(fmt->sampleType, ZVSAMPLE_S24);
    EXPECT_EQ(fmt->samplesPerSec, 48000u);
    EXPECT_EQ(fmt->channels, 2);
    EXPECT_EQ(fmt->flags & ZVWFX_FLAG_EXTENSIBLE, 0u); // the extension was dropped
    EXPECT_EQ(*ZvTemplateAt<BYTE>(t, ZVT_OFS_AUDIO_EXT), 0xA0);
    EXPECT_EQ(*ZvTemplateAt<DWORD>(t, ZVT_OFS_VIDEO), 200u);
    EXPECT_EQ(*ZvTemplateAt<BYTE>(t, ZVT_OFS_VIDEO_FRAME + 39), 0x11);
    EXPECT_EQ(*ZvTemplateAt<BYTE>(t, ZVT_OFS_VIDEO_ENCODED + 39), 0x22);
    EXPECT_EQ(*ZvTemplateAt<BYTE>(t, ZVT_OFS_VIDEO_ENCODED + 40), 0);
    ASSERT_EQ(t->dwDataSize, 8u);
    EXPECT_EQ(memcmp(ZvFio_GetTemplateData(t), "\1\2\3\4\5\x9\x8\x7", 8), 0);
    EXPECT_TRUE(IsEqualGUID(t->rendererClass, cls.guid));
    EXPECT_EQ(cls.transformCalls, 1);
    // the low version bits keep it from counting as lifted
    EXPECT_FALSE(ZvFio_IsUpliftedV1Template(t));

    // with a plain version word it counts; the name is not in the GUID
    Bytes v1 = WriteV1(spec);
    v1[4] = 0;
    spec.name = L"Another name";
    Bytes v1b = WriteV1(spec);
    v1b[4] = 0;
    Owned a, b;
    ASSERT_EQ(LoadStream(v1, &a.t, ZVTEMPLATE_VERSION_V2, &cls), S_OK);
    ASSERT_EQ(LoadStream(v1b, &b.t, ZVTEMPLATE_VERSION_V2, &cls), S_OK);
    EXPECT_TRUE(ZvFio_IsUpliftedV1Template(a.t));
    EXPECT_TRUE(IsEqualGUID(a.t->templateId, b.t->templateId));
    wchar_t expect[40];
    swprintf(expect, 40, L"{%08X-0000-1010-8000-001100000000}", (unsigned)ZvFio_GetTemplateDataCRC32(a.t, FALSE));
    EXPECT_EQ(GuidText(a.t->templateId), expect);

    // a plug-in's transformation replaces the record; its failure fails the load
    cls.transformResult = S_OK;
    Owned c;
    ASSERT_EQ(LoadStream(v1, &c.t, ZVTEMPLATE_VERSION_V2, &cls), S_OK);
    EXPECT_EQ(c.t->dwPresetId, 77u);
    cls.transformResult = E_ACCESSDENIED;
    tagZVTEMPLATExV2 *failed = nullptr;
    EXPECT_EQ(LoadStream(v1, &failed, ZVTEMPLATE_VERSION_V2, &cls), E_ACCESSDENIED);
    EXPECT_EQ(failed, nullptr);

    // an old file on disk is lifted on load
    zvtest::TempDir dir;
    cls.transformResult = E_NOTIMPL;
    ASSERT_TRUE(zvtest::WriteFileBytes(dir.file(L"old.zvt"), v1.data(), v1.size()));
    Owned fromFile;
    ASSERT_EQ(ZvFio_LoadRawUserTemplate(&cls, dir.file(L"old.zvt").c_str(), &fromFile.t), S_OK);
    EXPECT_EQ(RecordBytes(fromFile.t), RecordBytes(a.t));

    // without data: no class, no GUID; a missing video format is unexpected
    spec.audioData.clear();
    spec.videoData.clear();
    Owned plain;
    ASSERT_EQ(LoadStream(WriteV1(spec), &plain.t, ZVTEMPLATE_VERSION_V2, &cls), S_OK);
    EXPECT_TRUE(IsEqualGUID(plain.t->templateId, GUID_NULL));
    EXPECT_TRUE(IsEqualGUID(plain.t->rendererClass, GUID_NULL));
    spec.format2.clear();
    EXPECT_EQ(LoadStream(WriteV1(spec), &failed, ZVTEMPLATE_VERSION_V2, &cls), E_UNEXPECTED);
}

TEST(TemplateList, StreamRoundTrip)
{
    tZVLIST *list = nullptr, *back = nullptr;
    ASSERT_EQ(ZvFio_CreateTemplateList(&list, 4), S_OK);
    ASSERT_EQ(ZvFio_CreateTemplateList(&back, 4), S_OK);
    for (const Vector &v : kVectors) {
        tagZVTEMPLATExV2 *t = MakeVectorRecord(v.dataSize, v.name, v.notes);
        ZvList_InsertList(list, list->count, &t, 1);
    }
    IStream *s = nullptr;
    ASSERT_EQ(ZvFio_MakeTemplateListIStream(list, &s), S_OK);
    // reading in odd pieces gives the same bytes as one read
    Bytes whole(100000), pieces;
    ULONG got = 0;
    EXPECT_EQ(s->Read(whole.data(), (ULONG)whole.size(), &got), S_OK);
    whole.resize(got);
    LARGE_INTEGER move;
    move.QuadPart = 1234;
    ULARGE_INTEGER pos;
    EXPECT_EQ(s->Seek(move, STREAM_SEEK_SET, &pos), S_OK);
    EXPECT_EQ(pos.QuadPart, 0u);
    BYTE piece[7];
    while (s->Read(piece, sizeof piece, &got) == S_OK && got)
        pieces.insert(pieces.end(), piece, piece + got);
    EXPECT_EQ(pieces, whole);
    DWORD header[3] = {12, 100, (DWORD)list->count};
    ASSERT_GE(whole.size(), 12u);
    EXPECT_EQ(memcmp(whole.data(), header, 12), 0);
    ASSERT_EQ(ZvFio_AddTemplatesToListFromIStream(back, s), S_OK);
    ASSERT_EQ(back->count, list->count);
    for (int i = 0; i < list->count; i++) {
        EXPECT_NE(ZvList_GetItem(back, i), ZvList_GetItem(list, i));
        EXPECT_EQ(RecordBytes((tagZVTEMPLATExV2 *)ZvList_GetItem(back, i)),
                  RecordBytes((tagZVTEMPLATExV2 *)ZvList_GetItem(list, i)));
    }
    EXPECT_EQ(s->Write(piece, 1, nullptr), E_NOTIMPL);
    s->Release();
    ZvFio_FreeTemplateList(list);
    ZvFio_FreeTemplateList(back);
}

// Stream records in, each stream's blocks at their offsets; a kind without
// format data passed over, an empty encoded record not copied.
TEST(TemplateRecord, GeneratedFromStreamRecords)
{
    _ZVFILESTREAMFORMATINFOv2 f[3] = {}, enc[3] = {};
    f[0].dwStreamType = ZVFILESTREAMTYPE_DATA;
    f[1].dwStreamType = ZVFILESTREAMTYPE_AUDIO;
    ZVWAVEFORMAT wf;
    wf.Init(48000, ZVSAMPLE_S24, 2);
    memcpy(f[1].format, &wf, sizeof wf);
    memset(f[1].extension, 0xA1, sizeof f[1].extension);
    f[2].dwStreamType = ZVFILESTREAMTYPE_VIDEO;
    memset(f[2].format, 0xB2, sizeof f[2].format);
    memset(f[2].extension, 0xC3, sizeof f[2].extension);
    memset(enc[2].format, 0xD4, sizeof enc[2].format);
    Owned o;
    ASSERT_EQ(S_OK, ZvFio_GenerateTemplate(&o.t, f, enc, 3, 0, L"made", L"from streams"));
    EXPECT_STREQ(ZvFio_GetTemplateName(o.t), L"made");
    DWORD v = 0;
    EXPECT_EQ(S_OK, ZvFio_GetTemplateInfo(o.t, 3, &v, 4, ZVTI_AUDIO_STREAMS));
    EXPECT_EQ(v, 1u);
    EXPECT_EQ(S_OK, ZvFio_GetTemplateInfo(o.t, 3, &v, 4, ZVTI_VIDEO_STREAMS));
    EXPECT_EQ(v, 1u);
    EXPECT_EQ(S_OK, ZvFio_GetTemplateInfo(o.t, 1, &v, 4, ZVTI_SAMPLE_RATE));
    EXPECT_EQ(v, 48000u);
    const BYTE *b = (const BYTE *)o.t;
    EXPECT_EQ(memcmp(b + ZVT_OFS_AUDIO_FORMAT, &wf, sizeof wf), 0);
    EXPECT_EQ(b[ZVT_OFS_AUDIO_EXT], 0xA1);
    EXPECT_EQ(b[ZVT_OFS_AUDIO_EXT + 31], 0xA1);
    EXPECT_EQ(b[ZVT_OFS_AUDIO_ENCODED], 0) << "no encoded audio given";
    EXPECT_EQ(b[ZVT_OFS_VIDEO_FRAME + 39], 0xB2);
    EXPECT_EQ(b[ZVT_OFS_VIDEO_FRAME + 40], 0xC3) << "the frame is 40 bytes, then the extension";
    EXPECT_EQ(b[ZVT_OFS_VIDEO_EXT + 63], 0xC3);
    EXPECT_EQ(b[ZVT_OFS_VIDEO_ENCODED + 39], 0xD4);
    EXPECT_EQ(b[ZVT_OFS_VIDEO_ENCODED + 40], 0);
    EXPECT_EQ(ZvFio_GenerateTemplate(nullptr, f, enc, 3, 0, L"", L""), E_POINTER);
    EXPECT_EQ(ZvFio_GenerateTemplate(&o.t, nullptr, nullptr, 1, 0, L"", L""), E_POINTER);
}

namespace {

// Live streams that report fixed records: an audio stream with a stored
// format, and a video stream that tells its stored frame if `render`.
#define ZVT_STUB(sig) STDMETHODIMP sig override { return E_NOTIMPL; }
template <class Itf>
struct StreamBase : Itf {
    _ZVFILESTREAMFORMATINFOv2 decoded = {}, stored = {};
    ZVT_STUB(GetClass(IZvReadFileClass **))
    ZVT_STUB(GetFile(IZvReadFile **))
    ZVT_STUB(GetStreamIndex(LONG *))
    ZVT_STUB(GetType(ZVFILESTREAMTYPE *))
    ZVT_STUB(GetStreamLength(LONGLONG *))
    ZVT_STUB(GetInfoText(WCHAR *, DWORD, DWORD))
    ZVT_STUB(GetInfo(BYTE *, DWORD, DWORD))
    ZVT_STUB(SetReadOptions(DWORD))
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP GetStreamFormatInfo(_ZVFILESTREAMFORMATINFOv2 *f) override
    {
        memcpy(f->extension, decoded.extension, sizeof f->extension);
        memcpy(f->format, decoded.format, sizeof f->format);
        return S_OK;
    }
    HRESULT Stored(_ZVFILESTREAMFORMATINFOv2 *f)
    {
        memcpy(f->format, stored.format, sizeof f->format);
        return S_OK;
    }
};

struct LiveAudio : StreamBase<IZvReadAudioStream> {
    STDMETHODIMP QueryInterface(REFIID iid, void **out) override
    {
        *out = IsEqualIID(iid, IID_IZvReadAudioStream) || IsEqualIID(iid, IID_IZvReadStream) ? this : nullptr;
        return *out ? S_OK : E_NOINTERFACE;
    }
    ZVT_STUB(GetSampleCount(LONGLONG *))
    ZVT_STUB(SetOutputFormat(const _ZVFILESTREAMFORMATINFOv2 *))
    STDMETHODIMP GetStoredFormatInfo(_ZVFILESTREAMFORMATINFOv2 *f) override { return Stored(f); }
    ZVT_STUB(GetReadPosition(LONGLONG *))
    ZVT_STUB(ReadSamples(DWORD, LONG, _zvmemorytoken, DWORD, DWORD *))
    ZVT_STUB(GetBlockAlign(DWORD *))
    ZVT_STUB(Prefetch(LONGLONG, DWORD))
};

struct LiveVideo : StreamBase<IZvReadVideoStream>, IZvReadVideoRenderStream {
    bool render = true;
    STDMETHODIMP QueryInterface(REFIID iid, void **out) override
    {
        *out = nullptr;
        if (IsEqualIID(iid, IID_IZvReadVideoStream) || IsEqualIID(iid, IID_IZvReadStream))
            *out = static_cast<IZvReadVideoStream *>(this);
        else if (render && IsEqualIID(iid, IID_IZvReadVideoRenderStream))
            *out = static_cast<IZvReadVideoRenderStream *>(this);
        return *out ? S_OK : E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP GetStoredFormatInfo(_ZVFILESTREAMFORMATINFOv2 *f) override { return Stored(f); }
    ZVT_STUB(GetFrameCount(LONGLONG *))
    ZVT_STUB(GetFrameRate(DOUBLE *))
    ZVT_STUB(GetKeyFrameInterval(DWORD *))
    ZVT_STUB(SetOutputFormat(LONG, LONG, DWORD, DWORD))
    ZVT_STUB(GetFrameBufferSize(LONG, LONG, DWORD, DWORD *))
    ZVT_STUB(ReadFrame(DWORD, LONG, DWORD, _zvmemorytoken, LONG, DWORD))
    ZVT_STUB(GetFrameFlags(DWORD, LONG, DWORD *))
    ZVT_STUB(PrefetchFrames(DWORD, LONG, DWORD))
    ZVT_STUB(SetPlaybackRate(DOUBLE))
    ZVT_STUB(Flush())
    ZVT_STUB(GetDecoderFlags(DWORD *))
};
#undef ZVT_STUB

} // namespace

// From live streams the record is the one the record form makes of what
// the streams report; a video stream that can't tell its stored frame has
// none, a stream without the asked interface fails the whole.
TEST(TemplateRecord, GeneratedFromLiveStreams)
{
    LiveAudio audio;
    ZVWAVEFORMAT wf;
    wf.Init(44100, ZVSAMPLE_F32, 2);
    memcpy(audio.decoded.format, &wf, sizeof wf);
    memset(audio.decoded.extension, 0x11, sizeof audio.decoded.extension);
    memset(audio.stored.format, 0x22, sizeof audio.stored.format);
    LiveVideo video;
    memset(video.decoded.format, 0x33, sizeof video.decoded.format);
    memset(video.decoded.extension, 0x44, sizeof video.decoded.extension);
    memset(video.stored.format, 0x55, sizeof video.stored.format);

    IZvReadStream *streams[3] = {nullptr, &audio, static_cast<IZvReadVideoStream *>(&video)};
    ZVFILESTREAMTYPE types[3] = {ZVFILESTREAMTYPE_DATA, ZVFILESTREAMTYPE_AUDIO, ZVFILESTREAMTYPE_VIDEO};
    for (bool render : {true, false}) {
        SCOPED_TRACE(render ? "stored frame told" : "no stored frame");
        video.render = render;
        _ZVFILESTREAMFORMATINFOv2 f[3] = {}, enc[3] = {};
        f[1] = audio.decoded, enc[1] = audio.stored;
        f[2] = video.decoded;
        if (render)
            enc[2] = video.stored;
        f[1].dwStreamType = ZVFILESTREAMTYPE_AUDIO;
        f[2].dwStreamType = ZVFILESTREAMTYPE_VIDEO;
        Owned expect, got;
        ASSERT_EQ(S_OK, ZvFio_GenerateTemplate(&expect.t, f, enc, 3, 8, L"", L""));
        ASSERT_EQ(S_OK, ZvFio_GenerateTemplate(&got.t, streams, 3, types, 8));
        EXPECT_EQ(RecordBytes(got.t), RecordBytes(expect.t));
        EXPECT_EQ(((const BYTE *)got.t)[ZVT_OFS_AUDIO_ENCODED + 95], 0x22);
        EXPECT_EQ(((const BYTE *)got.t)[ZVT_OFS_VIDEO_ENCODED], render ? 0x55 : 0);
        EXPECT_EQ(got.t->dwDataSize, 8u);
    }
    Owned kept;
    ASSERT_EQ(S_OK, ZvFio_GenerateTemplate(&kept.t, streams, 1, types, 0));
    tagZVTEMPLATExV2 *before = kept.t;
    types[1] = ZVFILESTREAMTYPE_VIDEO; // the audio stream has no video interface
    EXPECT_EQ(E_NOINTERFACE, ZvFio_GenerateTemplate(&kept.t, streams, 3, types, 0));
    EXPECT_EQ(kept.t, before);
    EXPECT_EQ(E_POINTER, ZvFio_GenerateTemplate(&kept.t, (IZvReadStream *const *)nullptr, 1, types, 0));
}

TEST(TemplateRecord, InfoValues)
{
    ZVWAVEFORMAT fmt;
    fmt.Init(96000, ZVSAMPLE_F32, 6);
    Owned o;
    ASSERT_EQ(S_OK, ZvFio_InitBasicAudioTemplate(&o.t, &fmt));
    EXPECT_EQ(o.t->dwSize, 540u);
    const struct { DWORD id, value; } infos[] = {
        {ZVTI_SAMPLE_RATE, 96000}, {ZVTI_BITS, 32}, {ZVTI_FORMAT_TAG, WAVE_FORMAT_IEEE_FLOAT},
        {ZVTI_CHANNEL_MASK, 0x3F}, // the default mask of six channels
        {ZVTI_AUDIO_BITRATE, 96000u * 6 * 4 * 8}};
    DWORD v = 0;
    for (const auto &i : infos) {
        EXPECT_EQ(S_OK, ZvFio_GetTemplateInfo(o.t, 1, &v, 4, i.id)) << i.id;
        EXPECT_EQ(v, i.value) << i.id;
    }
    *ZvTemplateAt<DWORD>(o.t, ZVT_OFS_AUDIO_FLAGS) = ZVTEMPLATE_AUDIO_RATE_UNUSABLE;
    EXPECT_EQ(S_OK, ZvFio_GetTemplateInfo(o.t, 1, &v, 4, ZVTI_AUDIO_BITRATE));
    EXPECT_EQ(v, 0u);
    v = 5;
    EXPECT_EQ(S_FALSE, ZvFio_GetTemplateInfo(o.t, 2, &v, 4, ZVTI_WIDTH)); // no video
    EXPECT_EQ(v, 0u);
    LONGLONG rate;
    EXPECT_EQ(ZVERR_BUFFER_TOO_SMALL, ZvFio_GetTemplateInfo(o.t, 1, &v, 2, ZVTI_SAMPLE_RATE));
    EXPECT_EQ(ZVERR_BUFFER_TOO_SMALL, ZvFio_GetTemplateInfo(o.t, 3, &v, 4, ZVTI_AUDIO_EXTENSION));
    EXPECT_EQ(E_INVALIDARG, ZvFio_GetTemplateInfo(nullptr, 1, &rate, 8, ZVTI_SAMPLE_RATE));
    EXPECT_EQ(E_NOTIMPL, ZvFio_GetTemplateInfo(o.t, 1, &rate, 8, 25));
}
