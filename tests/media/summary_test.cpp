// Summary lists, display lists and the picture and media-format blocks: on
// disk, in streams, and the list operations.
#include "mediatest.h"
#include "media/zvsummary.h"
#include "media/riff.h"
#include "media/zvmeta.h"
#include "zvplugin.h"

using namespace mediatest;

namespace {

const DWORD INAM = ZVRIFF_ID('I', 'N', 'A', 'M'), ICMT = ZVRIFF_ID('I', 'C', 'M', 'T'),
            ISFT = ZVRIFF_ID('I', 'S', 'F', 'T');

void Seek(HANDLE h, LONG at) { SetFilePointer(h, at, nullptr, FILE_BEGIN); }

} // namespace

TEST(Summary, SavedAndLoadedInBothForms)
{
    _summarylisttag list = {0, nullptr};
    ASSERT_EQ(S_OK, ZvSummary_SetItem(&list, INAM, L"Caf\u00e9 night"));
    ASSERT_EQ(S_OK, ZvSummary_SetItem(&list, ICMT, L""));
    ASSERT_EQ(S_OK, ZvSummary_SetItem(&list, ISFT, L"zv"));
    ASSERT_EQ(S_OK, ZvSummary_SetItem(&list, ISFT, nullptr)); // a hole, left out on saving
    EXPECT_EQ(-1, ZvSummary_GetItemIndex(&list, ISFT));
    for (bool wide : {false, true}) {
        SCOPED_TRACE(wide);
        TestFile t(Bytes(), L"s.bin");
        DWORD written = 0;
        ASSERT_EQ(S_OK, wide ? ZvSummary_SaveUNFO(t.h(), &list, &written) : ZvSummary_Save(t.h(), &list, &written));
        Bytes img = FileBytes(t.path());
        ASSERT_EQ(img.size(), written);
        EXPECT_EQ(0, memcmp(&img[8], wide ? "UNFO" : "INFO", 4));
        EXPECT_EQ(written - 8, GetLe32(img, 4));
        // the empty text is one zero byte (two in wide form), padded
        EXPECT_EQ(wide ? 2u : 1u, GetLe32(img, written - (wide ? 10 : 10) + 4));
        Seek(t.h(), 12);
        DWORD remaining = written - 12;
        _summarylisttag back = {7, nullptr};
        ASSERT_EQ(S_OK, wide ? ZvSummary_LoadUNFO(t.h(), &back, &remaining) : ZvSummary_Load(t.h(), &back, &remaining));
        EXPECT_EQ(2u, back.count);
        EXPECT_EQ(0, ZvSummary_Compare(&list, &back));
        EXPECT_STREQ(L"", ZvSummary_GetItemText(&back, ICMT));
        // one entry by id from the list, the position kept
        Seek(t.h(), 12);
        WCHAR text[32];
        remaining = written - 12;
        if (!wide) {
            EXPECT_EQ(S_OK, ZvSummary_GetStringFromFile(t.h(), INAM, text, 32, &remaining));
            EXPECT_STREQ(L"Caf\u00e9 night", text);
            EXPECT_EQ(ZVERR_NOT_FOUND, ZvSummary_GetStringFromFile(t.h(), ISFT, text, 32, &remaining));
            EXPECT_EQ(12u, SetFilePointer(t.h(), 0, nullptr, FILE_CURRENT));
        }
        ZvSummary_Free(&back);
    }
    // Only holes: a LIST with just its type.
    _summarylisttag holes = {0, nullptr};
    ZvSummary_SetItem(&holes, INAM, L"x");
    ZvSummary_SetItem(&holes, INAM, nullptr);
    TestFile t(Bytes(), L"h.bin");
    DWORD written = 0;
    ASSERT_EQ(S_OK, ZvSummary_Save(t.h(), &holes, &written));
    EXPECT_EQ(12u, written);
    ZvSummary_Free(&holes);

    // Stream form and back.
    IStream *s = nullptr;
    ASSERT_EQ(S_OK, CreateStreamOnHGlobal(nullptr, TRUE, &s));
    ASSERT_EQ(S_OK, list.Persist(s, 0));
    LARGE_INTEGER zero = {};
    s->Seek(zero, STREAM_SEEK_SET, nullptr);
    _summarylisttag created = {0, nullptr};
    ASSERT_EQ(S_OK, _summarylisttag::Create(s, 0, &created));
    EXPECT_EQ(0, ZvSummary_Compare(&list, &created));
    s->Release();
    ZvSummary_Free(&created);
    ZvSummary_Free(&list);
}

TEST(Summary, MergeCopyAndDamagedLists)
{
    _summarylisttag a = {0, nullptr}, b = {0, nullptr}, c = {0, nullptr};
    ZvSummary_SetItem(&a, INAM, L"old");
    ZvSummary_SetItem(&b, INAM, L"new");
    ZvSummary_SetItem(&b, ICMT, L"comment");
    DWORD moved = 9;
    ASSERT_EQ(S_OK, ZvSummary_Merge(&a, &b, FALSE, &moved));
    EXPECT_EQ(1u, moved);
    EXPECT_STREQ(L"old", ZvSummary_GetItemText(&a, INAM));
    EXPECT_STREQ(L"new", ZvSummary_GetItemText(&b, INAM)); // stayed behind
    EXPECT_EQ(nullptr, ZvSummary_GetItemText(&b, ICMT));  // moved
    ASSERT_EQ(S_OK, ZvSummary_Merge(&a, &b, TRUE, &moved));
    EXPECT_STREQ(L"new", ZvSummary_GetItemText(&a, INAM));
    ASSERT_EQ(S_OK, ZvSummary_Copy(&c, &a));
    EXPECT_EQ(0, ZvSummary_Compare(&a, &c));
    ZvSummary_SetItem(&c, ICMT, L"other");
    EXPECT_NE(0, ZvSummary_Compare(&a, &c));
    for (_summarylisttag *l : {&a, &b, &c})
        ZvSummary_Free(l);

    // Entries that overrun the list, and a size-0 entry, which counts.
    const Bytes good = Cat({Chunk("INAM", Bytes()), Chunk("ICMT", Bytes{'h', 'i', 0})});
    TestFile t(good, L"d.bin");
    DWORD remaining = (DWORD)good.size();
    _summarylisttag l = {0, nullptr};
    ASSERT_EQ(S_OK, ZvSummary_Load(t.h(), &l, &remaining));
    EXPECT_EQ(2u, l.count);
    EXPECT_STREQ(L"", ZvSummary_GetItemText(&l, INAM));
    ZvSummary_Free(&l);
    Seek(t.h(), 0);
    remaining = 10; // the second entry lies past the list's end
    HRESULT hr = ZvSummary_Load(t.h(), &l, &remaining);
    EXPECT_TRUE(hr == S_OK || hr == ZVERR_MALFORMED);
    EXPECT_LE(l.count, 1u);
    ZvSummary_Free(&l);
    EXPECT_EQ(E_INVALIDARG, ZvSummary_Load(t.h(), nullptr, &remaining));
}

TEST(DisplayList, ItemsOnDiskInBothFormsAndFromAStream)
{
    tagZVDISPLIST *list = displist_Create();
    ASSERT_TRUE(list);
    ASSERT_EQ(2u, list->count);
    TestFile t(Bytes(), L"d.bin");
    DWORD written = 5;
    ASSERT_EQ(S_OK, displist_Save(t.h(), list, &written));
    EXPECT_EQ(0u, written); // a fresh list writes nothing
    EXPECT_EQ(-1, displist_SetItem(list, 99, 1, "x"));
    const Bytes dib = Filled(41, 3);
    ASSERT_EQ(0, displist_SetItem(list, CF_DIB, (DWORD)dib.size(), dib.data()));
    ASSERT_EQ(0, displist_SetItem(list, CF_TEXT, 3, "hi"));
    for (bool w64 : {false, true}) {
        SCOPED_TRACE(w64);
        TestFile f(Bytes(), L"d2.bin");
        ULONGLONG written64 = 0;
        ASSERT_EQ(S_OK, w64 ? displist64_Save(f.h(), list, &written64) : displist_Save(f.h(), list, &written));
        Bytes img = FileBytes(f.path());
        EXPECT_EQ(img.size(), w64 ? written64 : written);
        if (!w64) {
            EXPECT_EQ(0, memcmp(img.data(), "DISP", 4));
            EXPECT_EQ(7u, GetLe32(img, 4)); // text first, in list order
        }
        Seek(f.h(), 0);
        tagZVDISPLIST *back = displist_Create();
        DWORD remaining = (DWORD)img.size();
        ULONGLONG remaining64 = img.size();
        ASSERT_EQ(S_OK, w64 ? displist64_Load(f.h(), back, &remaining64) : displist_Load(f.h(), back, &remaining));
        const tagZVDISPITEM *item = displist_GetItem(back, CF_DIB);
        ASSERT_TRUE(item && item->size == dib.size());
        EXPECT_EQ(0, memcmp(item->data, dib.data(), dib.size()));
        EXPECT_STREQ("hi", (const char *)displist_GetItem(back, CF_TEXT)->data);
        displist_Destroy(back);
    }
    // A generic display stream: one item per format.
    Bytes stream;
    ZVMETA_STREAMHEADER head = {28, ZVMETA_VERSION, 1, *ZvFMMeta_GuidOfKind(ZVMETA_DISPLIST)};
    Put(stream, &head, sizeof head);
    ZVMETA_ITEMFRAME f = {28, ZVMETA_VERSION, head.kind, 6};
    Put(stream, &f, sizeof f);
    Le32(stream, CF_TEXT);
    PutStr(stream, "ok");
    IStream *s = nullptr;
    ASSERT_EQ(S_OK, CreateStreamOnHGlobal(nullptr, TRUE, &s));
    s->Write(stream.data(), (ULONG)stream.size(), nullptr);
    LARGE_INTEGER zero = {};
    s->Seek(zero, STREAM_SEEK_SET, nullptr);
    ASSERT_EQ(S_OK, displist_LoadFromStream(s, list));
    EXPECT_EQ(0, memcmp(displist_GetItem(list, CF_TEXT)->data, "ok", 2));
    s->Release();
    displist_Destroy(list);
}

TEST(MetaBlocks, SizesAndFields)
{
    void *m = ZvSmfmf_CreateMeta(0, nullptr);
    ASSERT_TRUE(m);
    EXPECT_EQ(16u, ZvSmfmf_GetTotalSize(m));
    EXPECT_EQ(0x10041u, ZvSmfmf_GetSmfmfVersion(m));
    EXPECT_EQ(2u, ZvSmfmf_GetStructVersion(m));
    GlobalFree(m);
    m = ZvSmfmf_CreateMeta(5, "abcde");
    EXPECT_EQ(21u, ZvSmfmf_GetTotalSize(m));
    EXPECT_EQ(0, memcmp(ZvSmfmf_GetData(m), "abcde", 5));
    GlobalFree(m);

    EXPECT_EQ(24u + 10, ZvPicture_GetMetaSizeNeeded(nullptr, nullptr, 10));
    void *p = ZvPicture_CreateMeta(3, L"image/png", L"Front", 4, "\x89PNG");
    ASSERT_TRUE(p);
    EXPECT_EQ(20u, ZvPicture_GetMimeTypeByteCount(p)); // 9 characters and a terminator
    EXPECT_EQ(12u, ZvPicture_GetDescriptionByteCount(p));
    EXPECT_EQ(24u + 20 + 12 + 4, ZvPicture_GetPictureTotalSize(p));
    EXPECT_STREQ(L"image/png", ZvPicture_GetMimeType(p));
    EXPECT_STREQ(L"Front", ZvPicture_GetDescription(p));
    EXPECT_EQ(3u, ZvPicture_GetPictureType(p));
    EXPECT_EQ(0, memcmp(ZvPicture_GetPictureData(p), "\x89PNG", 4));
    EXPECT_TRUE(ZvPicture_IsValid(p, ZvPicture_GetPictureTotalSize(p)));
    EXPECT_FALSE(ZvPicture_IsValid(p, ZvPicture_GetPictureTotalSize(p) - 1));

    // Pictures in a file are offered by its source, as whole blocks.
    Bytes block((const BYTE *)p, (const BYTE *)p + ZvPicture_GetPictureTotalSize(p));
    Bytes img = Riff("WAVE", Cat({Chunk("fmt ", Fmt(1, 1, 8000, 16)), Chunk("data", Filled(8)),
                                  List("pic ", Cat({Chunk("pict", block), Chunk("pict", block)}))}));
    GlobalFree(p);
    TestFile t(img, L"p.wav");
    IZvReadMeta *meta = nullptr;
    ASSERT_EQ(S_OK, ZvFMMeta_CreateSourceFromFile(t.h(), FALSE, &meta));
    IStream *s = nullptr;
    ASSERT_EQ(S_OK, meta->GetMetaStream(ZVMETA_PICTURES, &s));
    ZVMETA_STREAMHEADER head = {};
    s->Read(&head, sizeof head, nullptr);
    EXPECT_EQ(2, head.count);
    s->Release();
    meta->Release();
}
