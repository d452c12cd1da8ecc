// The reader list the manager derives from its plug-in list: rank order and
// ties, the class filter, duplicate classes, and the lookups on it (by
// extension, by the system's type ids, the enumerator's walk).
#include <gtest/gtest.h>
#include "mockreader.h"
#include "filemng/fiodiscovery.h"
#include "zvlist.h"
#include <vector>

using namespace idtest;

namespace {

GUID Id(DWORD data1, BYTE last = 0xAA)
{
    GUID g = ClassId(data1);
    g.Data4[7] = last;
    return g;
}

// One record of a plug-in list: its plug-in class id, reader class id and,
// when loaded, the class object.
struct Rec {
    GUID plugin;
    GUID reader;
    MockReader *cls = nullptr;
    const wchar_t *ext = nullptr;
    DWORD listed = 0;
    DWORD access = ZVFIO_ACCESS_READER;
};

// A manager without discovery; each SetList hands it a new plug-in list.
struct Lookup : MockSetup {
    Lookup() : MockSetup(std::vector<Entry>()) {}
    HRESULT SetList(const std::vector<Rec> &recs, DWORD filterFlags = 0, const std::vector<GUID> &ids = {})
    {
        tZVLIST *list = nullptr;
        ZvFioCreateRecordList(&list);
        int n = 0;
        for (const Rec &e : recs) {
            ZVFIO_PLUGININFO *r = ZvFioAllocRecord(nullptr);
            r->cbSize = sizeof *r;
            r->clsidPlugin = e.plugin;
            r->clsidReader = e.reader;
            r->Access = e.access;
            r->Surrogate = -1;
            r->dwListed = e.listed;
            _snwprintf(r->szName, MAX_PATH, L"rec%d", n);
            // a DLL that isn't there: a record without class fails to load
            _snwprintf(r->szPath, MAX_PATH, L"%ls\\missing%d.dll", dataDir.c_str(), n++);
            if (e.ext)
                ZvFioStrSet(&r->ExtReader, e.ext);
            if (e.cls) {
                e.cls->AddRef();
                r->pReaderClass = e.cls;
            }
            ZvList_InsertList(list, -1, &r, 1);
        }
        return mgr->SetPluginList(list, filterFlags, (LONG)ids.size(), ids.empty() ? nullptr : ids.data());
    }
    // Plug-in class ids (Data1) of the reader list, in order.
    std::vector<DWORD> Order() const
    {
        std::vector<DWORD> out;
        tZVLIST *l = mgr->readerList();
        for (int i = 0; l && i < l->count; ++i) {
            ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(l, i);
            EXPECT_EQ(i, r->nReaderIndex);
            out.push_back(r->clsidPlugin.Data1);
        }
        return out;
    }
};

} // namespace

TEST(ReaderList, RankOrderAndTies)
{
    Lookup k;
    // ties between classes the system doesn't know go by the reader ids'
    // bytes in memory: 0x000000FF starts with the byte FF, 0x01000000 with 00
    ASSERT_EQ(S_OK, k.SetList({
                        {Id(0xDF171157), Id(0x10)},    // second table, last
                        {Id(0xA0000001), Id(0x01000000)}, // unknown
                        {Id(0xE61EEE69), Id(0x11)},    // second table, first
                        {Id(0x2611DA5E), Id(0x12)},    // first table, second
                        {Id(0xA0000002), Id(0x000000FF)}, // unknown, larger first byte
                        {Id(0x5A8D382F), Id(0x13)},    // first table, first
                    }));
    EXPECT_EQ((std::vector<DWORD>{0x5A8D382F, 0x2611DA5E, 0xA0000002, 0xA0000001, 0xE61EEE69, 0xDF171157}),
              k.Order());
    // equal reader ids up to the last byte
    ASSERT_EQ(S_OK, k.SetList({{Id(0xA0000003), Id(0x20, 0x01)}, {Id(0xA0000004), Id(0x20, 0x02)}}));
    EXPECT_EQ((std::vector<DWORD>{0xA0000004, 0xA0000003}), k.Order());
}

TEST(ReaderList, FilterAndDuplicateClasses)
{
    Lookup k;
    const GUID a = Id(0xA0000001), b = Id(0xA0000002), c = Id(0xA0000003);
    GUID aOtherTail = a;
    aOtherTail.Data4[7] = 0x01; // the filter compares 10 bytes
    std::vector<Rec> three = {{a, Id(1)}, {b, Id(2)}, {c, Id(3)}};
    ASSERT_EQ(S_OK, k.SetList(three, 1, {aOtherTail, c}));
    EXPECT_EQ((std::vector<DWORD>{0xA0000003, 0xA0000001}), k.Order()) << "bit 0: only the named classes";
    ASSERT_EQ(S_OK, k.SetList(three, 0, {aOtherTail, c}));
    EXPECT_EQ((std::vector<DWORD>{0xA0000002}), k.Order()) << "bit 0 clear: all but the named";
    ASSERT_EQ(S_OK, k.SetList(three, 1, {}));
    EXPECT_EQ(3u, k.Order().size()) << "no ids: nothing filtered";

    // a class offered by two DLLs: the first wins unless the second is listed
    ASSERT_EQ(S_OK, k.SetList({{a, Id(1)}, {a, Id(9)}, {b, Id(2)}}));
    tZVLIST *l = k.mgr->readerList();
    ASSERT_EQ(2, l->count);
    for (int i = 0; i < l->count; ++i)
        EXPECT_NE(9u, ((ZVFIO_PLUGININFO *)ZvList_GetItem(l, i))->clsidReader.Data1);
    ASSERT_EQ(S_OK, k.SetList({{a, Id(1)}, {a, Id(9), nullptr, nullptr, 1}, {b, Id(2)}}));
    EXPECT_EQ(3, k.mgr->readerList()->count);
    ASSERT_EQ(S_OK, k.SetList({{a, Id(1)}, {aOtherTail, Id(9)}, {aOtherTail, Id(8)}}, 0, {a}));
    EXPECT_EQ(0, k.mgr->readerList()->count) << "10-byte filter takes both";
    // an earlier record of the class that isn't a reader hides nothing
    Rec rendererOnly = {a, Id(1)};
    rendererOnly.access = ZVFIO_ACCESS_RENDERER;
    ASSERT_EQ(S_OK, k.SetList({rendererOnly, {a, Id(9)}}));
    l = k.mgr->readerList();
    ASSERT_EQ(1, l->count);
    EXPECT_EQ(9u, ((ZVFIO_PLUGININFO *)ZvList_GetItem(l, 0))->clsidReader.Data1);
}

TEST(ReaderList, ZvapWithADigitIsWave64)
{
    MockReader w64(0xA0000001, L"W64"), other(0xA0000002, L"Other");
    Lookup k;
    ASSERT_EQ(S_OK, k.SetList({{w64.id, w64.id, &w64, L"*.w64"}, {other.id, other.id, &other, L"*.zvapx"}}));
    const struct { const wchar_t *name; bool w64; } names[] = {
        {L"ZVAP1", true}, {L"zvap7", true}, {L".ZVAP12", true}, {L"w64", true},
        {L"ZVAP", false}, {L"ZVAPX1", false}, {L"XZVAP1", false}};
    for (const auto &n : names) {
        IZvReadFileClass *cls = nullptr;
        LONG pos = -1;
        HRESULT hr = k.mgr->FindNextReaderClassByExt(&cls, n.name, &pos);
        EXPECT_EQ(n.w64, cls == &w64) << n.name;
        EXPECT_EQ(cls ? S_OK : ZVERR_UNSUPPORTED_FORMAT, hr) << n.name;
        if (cls)
            cls->Release();
    }
}

TEST(ReaderList, TypeIdsNameReaderClasses)
{
    // plug-in ids that differ from the reader ids: the table speaks of readers
    MockReader r6000(0xD5404496, L"A"), r7002a(0x3B0F152B, L"B"), r7002b(0xED823F27, L"C"), decoy(0xA0000009, L"D");
    Lookup k;
    ASSERT_EQ(S_OK, k.SetList({
                        {Id(0x69C3D5CC), decoy.id, &decoy}, // plug-in id of a table class only
                        {Id(0xA0000001), r7002a.id, &r7002a},
                        {Id(0xA0000002), r6000.id, &r6000},
                        {Id(0xA0000003), r7002b.id, &r7002b},
                    }));
    LONG index = 5;
    EXPECT_EQ(S_OK, k.mgr->IdentifyFileTypeFromId(0x6000, &index));
    EXPECT_EQ((LONG)r6000.index, index);
    EXPECT_EQ(S_OK, k.mgr->IdentifyFileTypeFromId(0x6001, &index));
    EXPECT_EQ((LONG)r6000.index, index);
    // rows in table order: ED823F27 comes before 3B0F152B whatever the list says
    EXPECT_EQ(S_OK, k.mgr->IdentifyFileTypeFromId(0x7002, &index));
    EXPECT_EQ((LONG)r7002b.index, index);
    IZvReadFileClass *cls = nullptr;
    EXPECT_EQ(S_OK, k.mgr->FindReaderClassFromId(&cls, 0x7002));
    EXPECT_EQ(&r7002b, cls);
    if (cls)
        cls->Release();
    for (DWORD id : {0x7000u, 0x7001u, 0x5FFFu, 0x1010u}) {
        EXPECT_EQ(ZVERR_UNSUPPORTED_FORMAT, k.mgr->IdentifyFileTypeFromId(id, &index)) << std::hex << id;
        EXPECT_EQ(-1, index);
    }
}

TEST(ReaderList, EnumeratorSkipsAndStepsOverAFailedLoad)
{
    MockReader a(0xA0000003, L"A"), c(0xA0000001, L"C");
    Lookup k;
    // list order by reader id bytes: A (0x03), then the record that can't
    // load (0x02), then C (0x01)
    ASSERT_EQ(S_OK, k.SetList({{a.id, a.id, &a}, {Id(0xA0000002), Id(0xA0000002)}, {c.id, c.id, &c}}));
    IZvFileIOTypeEnum *e = nullptr;
    ASSERT_EQ(S_OK, k.mgr->GetReaderEnum(&e));
    IUnknown *got[3] = {};
    ULONG fetched = 9;
    EXPECT_EQ(S_OK, e->Next(3, got, &fetched));
    ASSERT_EQ(2u, fetched) << "no gap for the class that didn't load";
    EXPECT_EQ(static_cast<IUnknown *>(&a), got[0]);
    EXPECT_EQ(static_cast<IUnknown *>(&c), got[1]);
    for (ULONG i = 0; i < fetched; ++i)
        got[i]->Release();
    EXPECT_EQ(ZVFIO_STATE_FAILED, ((ZVFIO_PLUGININFO *)ZvList_GetItem(k.mgr->readerList(), 1))->nReaderState);
    EXPECT_EQ(S_FALSE, e->Next(1, got, &fetched));
    EXPECT_EQ(0u, fetched);

    e->Reset();
    EXPECT_EQ(S_OK, e->Skip(0));
    EXPECT_EQ(S_OK, e->Skip(1));
    EXPECT_EQ(S_OK, e->Next(1, got, &fetched)) << "steps over the failed one to C";
    EXPECT_EQ(static_cast<IUnknown *>(&c), got[0]);
    got[0]->Release();
    e->Reset();
    EXPECT_EQ(S_OK, e->Skip(2));
    EXPECT_EQ(E_NOTIMPL, e->Skip(1)) << "to the end";
    EXPECT_EQ(E_NOTIMPL, e->Skip(0xFFFFFFFFu));
    EXPECT_EQ(S_FALSE, e->Next(1, got, &fetched));
    e->Release();
}
