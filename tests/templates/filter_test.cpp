// File filter strings and unique extension lists; the manager's builder and
// template editing without pages.
#include "templatetest.h"
#include "templates/zvfilterbuilder.h"
#include "filemng/filemng.h"
#include <set>

using namespace templatetest;

namespace {

struct Builder {
    IZvFioFilterBuilder2 *b = nullptr;
    Builder() { ZvFio_CreateFilterBuilder(nullptr, IID_IZvFioFilterBuilder2, (void **)&b); }
    ~Builder()
    {
        if (b)
            b->Release();
    }
    std::wstring Filter(const GUID *mask = nullptr, int maskCount = 0, DWORD options = 0,
                        std::vector<DWORD> *ids = nullptr)
    {
        DWORD size = 0, count = 0;
        if (FAILED(b->GetFilterString(nullptr, &size, nullptr, &count, mask, maskCount, options)))
            return L"<fail>";
        std::wstring out(size / 2, L'?');
        std::vector<DWORD> got(count);
        EXPECT_EQ(S_OK, b->GetFilterString(&out[0], &size, got.data(), &count, mask, maskCount, options));
        if (ids)
            *ids = got;
        return out;
    }
    std::wstring Extensions(DWORD options = 0)
    {
        b->BuildExtensionList(nullptr, 0, 0, options);
        std::vector<WCHAR> text(8192);
        b->CopyExtensionList(text.data(), (DWORD)text.size(), L'|');
        return text.data();
    }
};

const GUID kWave = {1, 0, 0, {0}}, kAiff = {2, 0, 0, {0}}, kAll = {3, 0, 0, {0}};

} // namespace

TEST(FilterBuilder, StringsAndUniqueExtensions)
{
    Builder f;
    ASSERT_TRUE(f.b);
    int count = -1;
    EXPECT_EQ(E_FAIL, f.b->GetEntryCount(&count));
    EXPECT_EQ(L"<fail>", f.Filter());

    const wchar_t *longPatterns = L"*.wav;*.bwf;*.rf64;*.wave;*.w64;*.bw64";
    ASSERT_EQ(S_OK, f.b->AddEntry(longPatterns, L"Wave", 10, -1, 0, &kWave));
    ASSERT_EQ(S_OK, f.b->AddEntry(L"*.aif;*.aiff;*.WAV", L"AIFF", 11, -1, 0, &kAiff));
    ASSERT_EQ(S_OK, f.b->AddEntry(L"*.*", L"All files", 12, -1, ZVFILTER_DESCRIPTION_ONLY, &kAll));
    std::vector<DWORD> ids;
    std::wstring expect = std::wstring(L"Wave (*.wav;*.bwf;*.rf64;*.wave;*.w64...)") + L'\0' + longPatterns + L'\0' +
                          L"AIFF (*.aif;*.aiff;*.WAV)" + L'\0' + L"*.aif;*.aiff;*.WAV" + L'\0' + L"All files" + L'\0' +
                          L"*.*" + L'\0' + L'\0';
    EXPECT_EQ(f.Filter(nullptr, 0, 0, &ids), expect);
    EXPECT_EQ(ids, (std::vector<DWORD>{10, 11, 12}));
    // first patterns of all entries before second ones; one "*.wav"; no "*.*"
    EXPECT_EQ(f.Extensions(), L"*.wav|*.aif|*.bwf|*.aiff|*.rf64|*.wave|*.w64|*.bw64");

    // a mask keeps entries by class, inverted with option bit 0
    EXPECT_EQ(f.Filter(&kAiff, 1, 0, &ids).substr(0, 4), L"AIFF");
    EXPECT_EQ(ids, (std::vector<DWORD>{11}));
    // the same mask count builds only when asked to
    ASSERT_EQ(S_OK, f.b->BuildFilter(&kAiff, 1, 0, ZVFILTER_OPT_INVERT));
    f.Filter(&kAiff, 1, ZVFILTER_OPT_INVERT, &ids);
    EXPECT_EQ(ids, (std::vector<DWORD>{10, 12}));

    // hidden: still in the filter, out of the unique list
    ASSERT_EQ(S_OK, f.b->SetEntryHidden(0, TRUE));
    EXPECT_EQ(f.Filter(), expect);
    EXPECT_EQ(f.Extensions(), L"*.aif|*.aiff|*.WAV");
    int at = -1;
    EXPECT_EQ(S_OK, f.b->FindEntryByGuid(&at, &kAiff));
    EXPECT_EQ(1, at);
    ZVFIO_FILTERENTRYINFO info;
    ASSERT_EQ(S_OK, f.b->GetEntryInfo(&info, 1));
    EXPECT_STREQ(info.description, L"AIFF");
    EXPECT_EQ(info.extensionCount, 3u);
    EXPECT_EQ(E_INVALIDARG, f.b->GetEntryInfo(&info, 3));

    // copies cut with a NUL and say so
    WCHAR small[8];
    EXPECT_EQ(ZVERR_BUFFER_TOO_SMALL, f.b->CopyFilter(small, 8));
    EXPECT_EQ(0, small[7]);
    DWORD some[5];
    f.Filter();
    EXPECT_EQ(S_OK, f.b->CopyIds(some, 5));
    EXPECT_EQ(some[2], 12u);
    EXPECT_EQ(some[3], (DWORD)-1);

    // single list: the unique extensions as the pairs' place
    EXPECT_EQ(S_OK, f.b->SetSingleList(TRUE));
    std::wstring single = f.Filter();
    EXPECT_EQ(single, std::wstring(L"*.aif") + L'\0' + L"*.aiff" + L'\0' + L"*.WAV" + L'\0' + L'\0');
    EXPECT_EQ(S_OK, f.b->Reset());
    EXPECT_EQ(E_FAIL, f.b->GetEntryCount(&count));
}

TEST(FilterBuilder, LongListsAreCutNeverFailed)
{
    Builder f;
    std::wstring many;
    for (int i = 0; i < 400; i++)
        many += (i ? L";*.x" : L"*.x") + std::to_wstring(i);
    ASSERT_EQ(S_OK, f.b->AddEntry(many.c_str(), L"Many", 1, -1, 0, nullptr));
    std::wstring list = f.Extensions(ZVFILTER_OPT_ALLFILES);
    EXPECT_LT(list.size(), 260u);
    EXPECT_GT(list.size(), 200u);
    EXPECT_NE(list.back(), L'|');
    EXPECT_EQ(f.Extensions().size(), many.size());
}

// Sorted and unique without regard to case, checked against a set of the
// lower-case patterns of the visible entries; a list too long for the
// fetch buffer keeps whole patterns only.
TEST(FilterBuilder, UniqueExtensionListSortedAgainstASet)
{
    const wchar_t *pool[] = {L"*.wav", L"*.WAV", L"*.aif", L"*.Aiff", L"*.*", L"*.w?v", L"*.mp3", L"*.b", L"*.a",
                             L"*.zz", L"*.Zz", L"*.ab"};
    zvtest::Rng rng{7};
    for (int round = 0; round < 40; round++) {
        Builder f;
        std::set<std::wstring> expect;
        int entries = 1 + (int)rng.below(5);
        for (int e = 0; e < entries; e++) {
            std::wstring patterns;
            std::vector<std::wstring> picked;
            for (unsigned n = 1 + rng.below(4); n; n--) {
                picked.push_back(pool[rng.below(sizeof pool / sizeof pool[0])]);
                patterns += (patterns.empty() ? L"" : L";") + picked.back();
            }
            bool hidden = rng.below(4) == 0;
            ASSERT_EQ(S_OK, f.b->AddEntry(patterns.c_str(), L"E", e, -1, 0, nullptr));
            f.b->SetEntryHidden(e, hidden);
            for (std::wstring p : picked)
                if (!hidden && p.find(L"*.*") == std::wstring::npos && p.find(L'?') == std::wstring::npos) {
                    for (WCHAR &c : p)
                        c = towlower(c);
                    expect.insert(p);
                }
        }
        tZVLIST *list = nullptr;
        ASSERT_EQ(S_OK, ZvFio_BuildUniqueExtensionList(&list, f.b, nullptr, 0, 0));
        std::vector<std::wstring> got;
        for (int i = 0; i < ZvList_GetCount(list); i++) {
            std::wstring p = (const WCHAR *)ZvList_GetItem(list, i);
            for (WCHAR &c : p)
                c = towlower(c);
            got.push_back(p);
        }
        ZvList_Destroy(list);
        EXPECT_EQ(got, std::vector<std::wstring>(expect.begin(), expect.end())) << "round " << round;
    }

    Builder f;
    std::wstring many;
    for (int i = 0; i < 600; i++)
        many += (i ? L";*.x" : L"*.x") + std::to_wstring(i);
    ASSERT_EQ(S_OK, f.b->AddEntry(many.c_str(), L"Many", 1, -1, 0, nullptr));
    tZVLIST *list = nullptr;
    ASSERT_EQ(S_OK, ZvFio_BuildUniqueExtensionList(&list, f.b, nullptr, 0, 0));
    size_t units = 0;
    for (int i = 0; i < ZvList_GetCount(list); i++) {
        std::wstring p = (const WCHAR *)ZvList_GetItem(list, i);
        units += p.size() + 1;
        int n = _wtoi(p.c_str() + 3);
        EXPECT_EQ(p, L"*.x" + std::to_wstring(n)) << "whole patterns only";
        EXPECT_TRUE(i == 0 || _wcsicmp((const WCHAR *)ZvList_GetItem(list, i - 1), p.c_str()) < 0);
    }
    EXPECT_LE(units, 4160u / 2);
    EXPECT_GT(units, 4000u / 2);
    ZvList_Destroy(list);
}

TEST(ManagerTemplates, FilterBuilderAndEditWithoutPages)
{
    IZvFileIOMgrForApp *app = nullptr;
    long reserved = 0;
    ASSERT_EQ(S_OK, ZVFileIO_CreateInstance(&app, nullptr, ZVFIO_CREATE_MANAGERONLY | ZVFIO_CREATE_BESIDEPROGRAM,
                                            nullptr, reserved));
    IUnknown *unk = nullptr;
    ASSERT_EQ(S_OK, app->GetFilterBuilder(&unk));
    IZvFioFilterBuilder2 *b = nullptr;
    ASSERT_EQ(S_OK, unk->QueryInterface(IID_IZvFioFilterBuilder2, (void **)&b));
    EXPECT_EQ(S_OK, b->AddReaders(0, 0, 0)); // no plug-in list: no entries
    int count = 0;
    EXPECT_EQ(E_FAIL, b->GetEntryCount(&count));
    b->Release();
    unk->Release();
    ASSERT_EQ(S_OK, app->QueryInterface(IID_IZvFioFilterBuilder2, (void **)&b));
    b->Release();

    FakeRenderer cls;
    tagZVTEMPLATExV2 *source = MakeVectorRecord(4, L"Edit me", L"");
    PZVTEMPLATE edited = (PZVTEMPLATE)0x1;
    EXPECT_EQ(S_FALSE, app->EditTemplate(0, &cls, 0, nullptr, source, nullptr, L"Title", &edited));
    EXPECT_EQ(nullptr, edited);
    ZvFio_ReleaseTemplate(source);
    app->CleanUp();
    app->Release();
}
