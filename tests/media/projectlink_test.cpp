// Project link: the record's rules, its chunks in RIFF and Wave64 files
// (audio untouched), a source's streams, and the sidecar.
#include "mediatest.h"
#include "media/projectlink.h"
#include "media/zvmeta.h"
#include "zvplugin.h"

using namespace mediatest;

namespace {

const GUID kRenderer = {0x11223344, 0x5566, 0x7788, {1, 2, 3, 4, 5, 6, 7, 8}};

Bytes Wide(const wchar_t *s) { return Bytes((const BYTE *)s, (const BYTE *)(s + wcslen(s) + 1)); }

Bytes Version(DWORD v)
{
    Bytes b;
    Le32(b, v);
    return b;
}

void Fill(CZvLinkProjectInfo *link, const wchar_t *path)
{
    ASSERT_EQ(S_OK, link->SetProjectPath(path));
    ASSERT_EQ(S_OK, link->SetCommandLine(L"/open \"x\""));
    ASSERT_EQ(S_OK, link->SetTemplateName(L"44,100 Hz 16 Bit"));
    ASSERT_EQ(S_OK, link->SetTemplateData("TPL", 3));
    ASSERT_EQ(S_OK, link->SetAppTemplateData("A", 1));
    ASSERT_EQ(S_OK, link->SetCreatorAppInfo(L"zvtest 1.0"));
    link->SetRendererGuid(kRenderer);
    link->SetVersion(0x01000002);
    ASSERT_EQ(S_OK, link->SetProjectData(ZVRIFF_ID('a', 'b', 'c', 'd'), "12345", 5));
}

void ExpectSame(const CZvLinkProjectInfo &a, const CZvLinkProjectInfo &b)
{
    EXPECT_EQ(a.GetFlags(), b.GetFlags());
    EXPECT_TRUE(IsEqualGUID(a.GetRendererGuid(), b.GetRendererGuid()));
    for (DWORD flag = 1; flag <= ZVLINK_CREATORWINDOWCLASS; flag <<= 1) {
        if (flag == ZVLINK_RENDERERGUID)
            continue;
        const tagZVLINKBLOCK *x = a.Block(flag), *y = b.Block(flag);
        EXPECT_TRUE(x->size == y->size && (!x->size || !memcmp(x->data, y->data, x->size))) << "field " << flag;
    }
}

} // namespace

TEST(ProjectLink, RecordRules)
{
    CZvLinkProjectInfo link;
    EXPECT_EQ(ZVERR_LINK_INVALID, link.Validate());
    EXPECT_EQ(E_INVALIDARG, link.SetProjectPath(nullptr));
    // Project data alone: no link, but a block worth writing.
    EXPECT_EQ(E_INVALIDARG, link.SetProjectData(1, "x", 0));
    ASSERT_EQ(S_OK, link.SetProjectData(7, "abc", 3));
    EXPECT_EQ(ZVERR_DUPLICATE_ITEM, link.SetProjectData(7, "zzzz", 4));
    ASSERT_EQ(S_OK, link.SetProjectData(8, "wxyz", 4));
    EXPECT_EQ(12u + 12 + 12, link.GetProjectDataSize());
    DWORD size = 0;
    EXPECT_EQ(S_OK, link.GetProjectData(7, nullptr, &size));
    EXPECT_EQ(3u, size);
    char buf[8] = {};
    size = 2;
    EXPECT_EQ(E_OUTOFMEMORY, link.GetProjectData(7, buf, &size));
    size = sizeof buf;
    EXPECT_EQ(S_OK, link.GetProjectData(7, buf, &size));
    EXPECT_STREQ("abc", buf); // the first data stayed
    EXPECT_EQ(ZVERR_NOT_FOUND, link.GetProjectData(9, nullptr, &size));
    EXPECT_EQ(E_INVALIDARG, link.GetProjectData(7, buf, nullptr));
    EXPECT_EQ(ZVERR_LINK_INVALID, link.ValidateProjectLink());
    EXPECT_EQ(S_OK, link.Validate());
    // A full link; a stray template name without its flag reads as 1.
    ASSERT_EQ(S_OK, link.SetProjectPath(L"p"));
    ASSERT_EQ(S_OK, link.SetCommandLine(L"c"));
    EXPECT_EQ(S_OK, link.ValidateProjectLink());
    WCHAR text[4];
    EXPECT_EQ(1, link.GetProjectPath(text, 4));
    EXPECT_EQ(0, link.GetTemplateName(text, 4));
    EXPECT_EQ(L'\0', text[0]);
    static WCHAR stray[] = L"t";
    link.SetTemplateNameToBuffer(stray, sizeof stray);
    EXPECT_EQ(S_FALSE, link.ValidateProjectLink());
    link.SetTemplateNameToBuffer(nullptr, 0);
    link.FreeMemory();
    EXPECT_EQ(0u, link.GetFlags());
    CZvLinkProjectInfo other;
    size = 0;
    EXPECT_EQ(ZVERR_NOT_FOUND, other.GetProjectData(7, nullptr, &size));
}

TEST(ProjectLink, WrittenAndReadInRiffWave64AndSidecar)
{
    const Bytes audio = Filled(777, 5);
    CZvLinkProjectInfo link;
    Fill(&link, L"C:\\projects\\a very long project name.prj");
    for (bool w64 : {false, true}) {
        SCOPED_TRACE(w64);
        Bytes img = w64 ? W64(Cat({Chunk64(ZVW64_FMT, Fmt(1, 2, 44100, 16)), Chunk64(ZVW64_DATA, audio)}))
                        : Riff("WAVE", Cat({Chunk("fmt ", Fmt(1, 2, 44100, 16)), Chunk("data", audio)}));
        TestFile t(img, w64 ? L"l.w64" : L"l.wav");
        const size_t audioAt = w64 ? img.size() - ((audio.size() + 7) & ~7u) : img.size() - audio.size() - 1;
        ASSERT_EQ(S_OK, w64 ? ProjectLinkRiff64_WriteInfo(t.h(), &link) : ProjectLinkRiff_WriteInfo(t.h(), &link));
        // A shorter rewrite replaces the old chunks rather than adding to them.
        CZvLinkProjectInfo shorter;
        Fill(&shorter, L"C:\\p.prj");
        ASSERT_EQ(S_OK, w64 ? ProjectLinkRiff64_WriteInfo(t.h(), &shorter) : ProjectLinkRiff_WriteInfo(t.h(), &shorter));
        CZvLinkProjectInfo back;
        BOOL found = FALSE;
        ASSERT_EQ(S_OK, w64 ? ProjectLinkRiff64_LoadInfo(t.h(), &back, &found) : ProjectLinkRiff_LoadInfo(t.h(), &back, &found));
        EXPECT_TRUE(found);
        ExpectSame(shorter, back);
        EXPECT_EQ(0x01000002u, back.GetVersion()); // a source has no slot for it
        Bytes now;
        zvtest::ReadFileBytes(t.path(), now);
        EXPECT_TRUE(std::equal(audio.begin(), audio.end(), now.begin() + (long)audioAt));
        // The reader's source offers it and a second file takes it over.
        IZvReadMeta *meta = nullptr;
        ASSERT_EQ(S_OK, ZvFMMeta_CreateSourceFromFile(t.h(), w64, &meta));
        CZvLinkProjectInfo fromSource;
        ASSERT_EQ(S_OK, ProjectLinkReadMeta_LoadInfo(meta, &fromSource, &found));
        EXPECT_TRUE(found);
        ExpectSame(shorter, fromSource);
        t.close();
        TestFile copy(img, w64 ? L"c.w64" : L"c.wav");
        copy.close();
        ASSERT_EQ(S_OK, w64 ? ProjectLinkRiff64_openAndWriteInfo(copy.path().c_str(), meta)
                            : ProjectLinkRiff_openAndWriteInfo(copy.path().c_str(), meta, TRUE));
        meta->Release();
        std::wstring target = w64 ? copy.path() : copy.path() + L".zvl";
        EXPECT_TRUE(w64 || ZvFMMeta_IsMetaFile(copy.path().c_str(), target.c_str()));
        HANDLE h = CreateFileW(target.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
        CZvLinkProjectInfo taken;
        EXPECT_EQ(S_OK, w64 ? ProjectLinkRiff64_LoadInfo(h, &taken, &found) : ProjectLinkRiff_LoadInfo(h, &taken, &found));
        CloseHandle(h);
        ExpectSame(shorter, taken);
        for (CZvLinkProjectInfo *l : {&shorter, &back, &fromSource, &taken})
            l->FreeMemory();
    }
    // The same chunks through a stream (what a renderer is given) and back.
    IStream *s = nullptr;
    ASSERT_EQ(S_OK, CreateStreamOnHGlobal(nullptr, TRUE, &s));
    ASSERT_EQ(S_OK, ProjectLink_SaveToStream(&link, s));
    HGLOBAL g = nullptr;
    GetHGlobalFromStream(s, &g);
    STATSTG st = {};
    s->Stat(&st, STATFLAG_NONAME);
    CZvLinkProjectInfo fromMemory;
    BOOL found = FALSE;
    EXPECT_EQ(S_OK, ProjectLink_LoadFromMemory(GlobalLock(g), st.cbSize.LowPart, &fromMemory, &found));
    GlobalUnlock(g);
    s->Release();
    ExpectSame(link, fromMemory);
    fromMemory.FreeMemory();
    link.FreeMemory();
}

// Chunks as outside writers may leave them: the version decides, and each
// field keeps to its size rule.
TEST(ProjectLink, LoaderRules)
{
    const Bytes fmt = Chunk("fmt ", Fmt(1, 1, 8000, 16)), data = Chunk("data", Filled(10));
    const Bytes path = Chunk("splp", Wide(L"C:\\x.prj")), cmd = Chunk("spcl", Wide(L"-o"));
    struct Case {
        Bytes chunks;
        HRESULT hr;
        DWORD flags;
    } cases[] = {
        {Cat({path, cmd}), ZVERR_MALFORMED, 0},
        {Cat({path, cmd, Chunk("splv", Bytes(3))}), ZVERR_MALFORMED, 0},
        {Cat({path, cmd, Chunk("splv", Version(0x02000000))}), ZVERR_LINK_VERSION, 0},
        {Cat({Chunk("splv", Version(0x01000000)), cmd, path}), S_OK, 3},
        {Cat({Chunk("splp", Wide(L"")), cmd, Chunk("splv", Version(0))}), S_OK, 2},
        {Cat({path, cmd, Chunk("srat", Bytes(4, 1)), Chunk("splv", Version(0))}), S_OK, 3},
        {Cat({path, cmd, Chunk("srtd", Bytes(4, 1)), Chunk("srat", Bytes(4, 1)), Chunk("splv", Version(0))}), S_OK,
         0x33},
        {Cat({path, cmd, Chunk("sprg", Bytes(15)), Chunk("spem", Bytes()), Chunk("splv", Version(0))}), S_OK, 3},
    };
    for (const Case &c : cases) {
        TestFile t(Riff("WAVE", Cat({fmt, data, c.chunks})), L"r.wav");
        CZvLinkProjectInfo link;
        BOOL found = TRUE;
        EXPECT_EQ(c.hr, ProjectLinkRiff_LoadInfo(t.h(), &link, &found));
        EXPECT_EQ(SUCCEEDED(c.hr), found != FALSE);
        EXPECT_EQ(c.flags, link.GetFlags());
        link.FreeMemory();
    }
    TestFile junk(Bytes(100, 'x'), L"j.wav");
    CZvLinkProjectInfo link;
    BOOL found = TRUE;
    EXPECT_EQ(ZVERR_NO_RIFF_HEADER, ProjectLinkRiff_LoadInfo(junk.h(), &link, &found));
    EXPECT_EQ(E_INVALIDARG, ProjectLinkRiff_LoadInfo(junk.h(), nullptr, &found));
    // A link that fails both checks is not written.
    EXPECT_EQ(ZVERR_LINK_INVALID, ProjectLinkRiff_WriteInfo(junk.h(), &link));
    EXPECT_EQ(S_OK, ProjectLinkRiff_openAndWriteInfo(L"x.wav", nullptr, FALSE));
}
