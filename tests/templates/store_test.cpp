// Template stores: presets and folders merged by name, the shared cache
// following folder changes, lookups, and the last used template.
#include "templatetest.h"
#include "templates/zvtemplatestore.h"
#include "filemng/filemng.h"
#include <algorithm>

using namespace templatetest;

namespace {

struct Store {
    zvtest::TempDir dir;
    IZvFileIOMgrForApp *app = nullptr;
    FakeRenderer cls;
    std::vector<tagZVTEMPLATExV2 *> owned;
    std::wstring newFolder, oldFolder;

    Store()
    {
        ZvFio_SetTemplateDataFolder(dir.path().c_str());
        long reserved = 0;
        ZVFileIO_CreateInstance(&app, nullptr, ZVFIO_CREATE_MANAGERONLY | ZVFIO_CREATE_BESIDEPROGRAM, nullptr,
                                reserved);
        cls.manager = app;
        cls.presets = {Named(L"Preset A", 1), Named(L"Preset B", 2)};
        cls.presets[0]->dwPresetId = 1;
        cls.presets[1]->dwPresetId = 2;
        newFolder = dir.path() + L"\\KELPO\\Render Templates\\fake renderer\\";
        oldFolder = dir.path() + L"\\Tolan\\Render Templates\\fake renderer\\";
    }
    ~Store()
    {
        if (app) {
            app->CleanUp();
            app->Release();
        }
        for (tagZVTEMPLATExV2 *t : owned)
            ZvFio_ReleaseTemplate(t);
        ZvFio_SetTemplateDataFolder(nullptr);
    }
    tagZVTEMPLATExV2 *Named(const wchar_t *name, DWORD tag)
    {
        tagZVTEMPLATExV2 *t = nullptr;
        ZvFio_MakeTemplate(&t, ZVTEMPLATE_VERSION_V2, nullptr, 0, 4, name, L"");
        *ZvTemplateAt<DWORD>(t, ZVT_OFS_AUDIO) = 200;
        *(DWORD *)ZvFio_GetTemplateData(t) = tag;
        ZvFio_InitGUIDFromTemplateMD5DataHash(&t->templateId, t, FALSE);
        owned.push_back(t);
        return t;
    }
    void Write(const std::wstring &folder, const wchar_t *file, const tagZVTEMPLATExV2 *t)
    {
        CreateDirectoryW((dir.path() + L"\\Tolan").c_str(), nullptr);
        CreateDirectoryW((dir.path() + L"\\Tolan\\Render Templates").c_str(), nullptr);
        CreateDirectoryW(folder.c_str(), nullptr);
        ASSERT_TRUE(zvtest::WriteFileBytes(folder + file, t, t->dwSize));
    }
    // Names and data tags of the merged list.
    std::vector<std::pair<std::wstring, DWORD>> List()
    {
        std::vector<std::pair<std::wstring, DWORD>> out;
        tZVLIST *list = nullptr;
        if (SUCCEEDED(ZvFio_GetTemplateList(&cls, &list)))
            for (int i = 0; i < list->count; i++) {
                tagZVTEMPLATExV2 *t = (tagZVTEMPLATExV2 *)ZvList_GetItem(list, i);
                out.push_back({ZvFio_GetTemplateName(t), *(DWORD *)ZvFio_GetTemplateData(t)});
            }
        ZvFio_FreeTemplateList(list);
        return out;
    }
};

typedef std::vector<std::pair<std::wstring, DWORD>> Listing;

} // namespace

TEST(TemplateStore, PresetsAndFoldersMergeByName)
{
    Store s;
    ASSERT_TRUE(s.app);
    // the old folder counts only if it is there when the cache is made
    s.Write(s.oldFolder, L"placeholder.txt", s.Named(L"not a template", 0));
    EXPECT_EQ(s.List(), (Listing{{L"Preset A", 1}, {L"Preset B", 2}}));

    wchar_t saved[MAX_PATH];
    ASSERT_EQ(S_OK, ZvFio_SaveUserTemplate(&s.cls, s.Named(L"User 1", 10), FALSE, saved, MAX_PATH));
    EXPECT_EQ(saved, s.newFolder + L"User 1.zvt2");
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_FILE_EXISTS), ZvFio_SaveUserTemplate(&s.cls, s.owned.back(), FALSE, saved, MAX_PATH));
    ASSERT_EQ(S_OK, ZvFio_SaveUserTemplate(&s.cls, s.Named(L"preset a", 11), FALSE, nullptr, 0));
    s.Write(s.newFolder, L"(Untitled).zvt2", s.Named(L"Something", 12));
    s.Write(s.newFolder, L"broken.zvt2", s.Named(L"Broken", 13));
    Bytes junk(600, 0x5A);
    zvtest::WriteFileBytes(s.newFolder + L"broken.zvt2", junk.data(), junk.size());
    s.Write(s.oldFolder, L"User 1.zvt", s.Named(L"USER 1", 20));
    s.Write(s.oldFolder, L"Old only.zvt2", s.Named(L"Old only", 21));

    // presets hide user templates of their name, the new folder the old one;
    // "(Untitled)" and damaged files are left out
    Listing all = s.List();
    Listing expect = {{L"Preset A", 1}, {L"Preset B", 2}, {L"User 1", 10}, {L"Old only", 21}};
    ASSERT_EQ(all.size(), expect.size());
    EXPECT_TRUE(std::is_permutation(all.begin() + 2, all.end(), expect.begin() + 2));
    EXPECT_EQ(all[0], expect[0]);

    // by GUID: never the first item
    tagZVTEMPLATExV2 *t = nullptr;
    EXPECT_EQ(ZVERR_NOT_FOUND, ZvFio_GetTemplate(&s.cls, s.cls.presets[0]->templateId, &t));
    ASSERT_EQ(S_OK, ZvFio_GetTemplate(&s.cls, s.cls.presets[1]->templateId, &t));
    EXPECT_STREQ(ZvFio_GetTemplateName(t), L"Preset B");
    LONG preset = 0;
    EXPECT_EQ(7u, ZvFio_IsTemplateAPreset(&s.cls, t, &preset));
    // the name in other case: equal through the data only
    ASSERT_EQ(S_OK, ZvFio_MakeTemplate(&t, t->dwVersion, t, 3, 0, L"PRESET B", L""));
    EXPECT_EQ(5u, ZvFio_IsTemplateAPreset(&s.cls, t, &preset));
    t->dwCopied = 99;
    EXPECT_EQ(1u, ZvFio_IsTemplateAPreset(&s.cls, t, &preset));
    EXPECT_EQ(2, preset);
    ZvFio_ReleaseTemplate(t);
    t = ZvFio_GetTemplateByName(&s.cls, L"old ONLY");
    ASSERT_TRUE(t);
    EXPECT_EQ(0u, ZvFio_IsTemplateAPreset(&s.cls, t, &preset));
    EXPECT_EQ(-2, preset);
    ZvFio_ReleaseTemplate(t);
}

TEST(TemplateStore, CacheFollowsFoldersUnlessViewed)
{
    Store s;
    ASSERT_EQ(S_OK, ZvFio_SaveUserTemplate(&s.cls, s.Named(L"Gone soon", 30), FALSE, nullptr, 0));
    ASSERT_EQ(3u, s.List().size());
    CZvPrivateTemplateCache *a = nullptr, *b = nullptr;
    ASSERT_EQ(S_OK, ZvFio_CreatePrivateTemplateCache(&s.cls, &a));
    ASSERT_EQ(S_OK, ZvFio_CreatePrivateTemplateCache(&s.cls, &b));
    ASSERT_EQ(S_OK, a->Merge(1)); // without the first preset
    EXPECT_EQ(2u, a->List().size());
    ASSERT_EQ(S_OK, b->Merge(0));
    Sleep(20); // a later folder time than the scan's
    ASSERT_TRUE(DeleteFileW((s.newFolder + L"Gone soon.zvt2").c_str()));
    CZvGlobalTemplateCache *g = nullptr;
    EXPECT_EQ(ZVERR_TEMPLATE_CACHE_BUSY, ZvFio_GetGlobalTemplateCache(s.app, &s.cls, &g));
    EXPECT_EQ(3u, b->List().size()); // the views are untouched
    delete a;
    delete b;
    EXPECT_EQ(2u, s.List().size());
}

TEST(TemplateStore, LastUsed)
{
    Store s;
    tagZVTEMPLATExV2 *t = s.Named(L"Last", 40), *back = nullptr;
    EXPECT_EQ(ZVERR_NOT_FOUND, ZvFio_DeleteAppLastUsedTemplate(&s.cls, L"-x"));
    ASSERT_EQ(S_OK, ZvFio_SaveAppLastUsedTemplate(&s.cls, t, L"-x", FALSE));
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_FILE_EXISTS), ZvFio_SaveAppLastUsedTemplate(&s.cls, t, L"-x", FALSE));
    EXPECT_EQ(S_OK, ZvFio_SaveAppLastUsedTemplate(&s.cls, t, L"-x", TRUE));
    ASSERT_EQ(S_OK, ZvFio_LoadAppLastUsedTemplate(&s.cls, L"-x", &back));
    EXPECT_EQ(RecordBytes(back), RecordBytes(t));
    ZvFio_ReleaseTemplate(back);
    WIN32_FIND_DATAW fd;
    HANDLE h = FindFirstFileW((s.dir.path() + L"\\KELPO\\Render Templates\\Last Used\\*-fake renderer-x.zvt2").c_str(), &fd);
    EXPECT_NE(h, INVALID_HANDLE_VALUE);
    FindClose(h);
    EXPECT_EQ(S_OK, ZvFio_DeleteAppLastUsedTemplate(&s.cls, L"-x"));
    EXPECT_EQ(ZVERR_FILE_OPEN, ZvFio_LoadAppLastUsedTemplate(&s.cls, L"-x", &back));
    // the last used template isn't one of the class's list
    EXPECT_EQ(2u, s.List().size());
}

static BOOL CALLBACK OddTags(const tagZVTEMPLATExV2 *t, void *calls)
{
    ++*(int *)calls;
    return t->dwDataSize && (*(DWORD *)ZvFio_GetTemplateData(t) & 1);
}

static BOOL CALLBACK NoTemplate(const tagZVTEMPLATExV2 *, void *)
{
    return FALSE;
}

// The filtered list is "Default Template" (streams as the class writes)
// ahead of the merged list, which it hides by name, kept by the filter.
TEST(TemplateStore, FilteredListLeadsWithTheDefault)
{
    Store s;
    ASSERT_EQ(S_OK, ZvFio_SaveUserTemplate(&s.cls, s.Named(L"default TEMPLATE", 50), FALSE, nullptr, 0));
    ASSERT_EQ(S_OK, ZvFio_SaveUserTemplate(&s.cls, s.Named(L"User 7", 7), FALSE, nullptr, 0));
    Listing merged = s.List();
    ASSERT_EQ(4u, merged.size());

    struct Case {
        const char *what;
        BOOL(CALLBACK *filter)(const tagZVTEMPLATExV2 *, void *);
        bool (*keep)(const std::wstring &name, DWORD tag);
    } cases[] = {
        {"all", nullptr, [](const std::wstring &, DWORD) { return true; }},
        {"odd tags", OddTags, [](const std::wstring &, DWORD tag) { return (tag & 1) != 0; }},
        {"none", NoTemplate, [](const std::wstring &, DWORD) { return false; }},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        Listing expect;
        if (c.keep(L"Default Template", 0))
            expect.push_back({L"Default Template", 0});
        for (const auto &m : merged)
            if (_wcsicmp(m.first.c_str(), L"Default Template") != 0 && c.keep(m.first, m.second))
                expect.push_back(m);
        int calls = 0;
        tZVLIST *list = nullptr;
        HRESULT hr = ZvFio_GetFilteredTemplateList(nullptr, &s.cls, &list, 0, c.filter, &calls, 0);
        EXPECT_EQ(hr, expect.empty() ? S_FALSE : S_OK);
        Listing got;
        for (int i = 0; i < ZvList_GetCount(list); i++) {
            tagZVTEMPLATExV2 *t = (tagZVTEMPLATExV2 *)ZvList_GetItem(list, i);
            got.push_back({ZvFio_GetTemplateName(t), t->dwDataSize ? *(DWORD *)ZvFio_GetTemplateData(t) : 0});
            if (i == 0 && got[0].first == L"Default Template") {
                EXPECT_EQ(*ZvTemplateAt<DWORD>(t, ZVT_OFS_AUDIO), 200u);
                EXPECT_EQ(*ZvTemplateAt<DWORD>(t, ZVT_OFS_AUDIO_COUNT), 1u);
                EXPECT_EQ(*ZvTemplateAt<DWORD>(t, ZVT_OFS_VIDEO), 0u);
                EXPECT_STREQ(ZvFio_GetTemplateNotes(t), L"");
            }
        }
        EXPECT_EQ(got, expect);
        // asked once per template, the default included
        EXPECT_EQ(calls, c.filter == OddTags ? (int)merged.size() : 0);
        ZvFio_FreeTemplateList(list);
    }
    EXPECT_EQ(s.List(), merged) << "the shared cache is untouched";
    tZVLIST *list = nullptr;
    EXPECT_EQ(E_POINTER, ZvFio_GetFilteredTemplateList(s.app, &s.cls, nullptr, 0, nullptr, nullptr, 0));
    EXPECT_EQ(E_INVALIDARG, ZvFio_GetFilteredTemplateList(s.app, nullptr, &list, 0, nullptr, nullptr, 0));
}
