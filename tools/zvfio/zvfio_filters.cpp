// zvfio filters: the open (or save) dialog's filter string of the installed
// classes and their unique extension list, as the manager's builder makes it.
#include "zvfio.h"
#include "zvfio_manager.h"
#include "templates/zvfilterbuilder.h"

namespace zvfio {
namespace {

HRESULT RunFilters(const Args &args)
{
    Manager mgr;
    HRESULT hr = mgr.Create();
    if (FAILED(hr))
        return hr;
    IUnknown *unk = nullptr;
    IZvFioFilterBuilder2 *b = nullptr;
    hr = mgr->GetFilterBuilder2(IID_IZvFioFilterBuilder2, &unk);
    if (SUCCEEDED(hr))
        hr = unk->QueryInterface(IID_IZvFioFilterBuilder2, (void **)&b);
    if (unk)
        unk->Release();
    if (FAILED(hr))
        return hr;
    const bool save = args.has(L"--save");
    hr = save ? b->AddRenderers(0, 0, 0) : b->AddReaders(0, 0, 0);
    DWORD bytes = 0, count = 0;
    std::wstring filter;
    if (SUCCEEDED(hr) && SUCCEEDED(b->GetFilterString(nullptr, &bytes, nullptr, &count, nullptr, 0, 0))) {
        filter.resize(bytes / 2);
        b->GetFilterString(&filter[0], &bytes, nullptr, &count, nullptr, 0, 0);
    }
    std::wstring unique;
    tZVLIST *list = nullptr;
    if (SUCCEEDED(hr) && SUCCEEDED(ZvFio_BuildUniqueExtensionList(&list, b, nullptr, 0, 0)))
        for (int i = 0; i < ZvList_GetCount(list); i++)
            unique += (i ? L";" : L"") + std::wstring((const WCHAR *)ZvList_GetItem(list, i));
    ZvList_Destroy(list);
    b->Release();
    if (FAILED(hr))
        return hr;
    // pairs of description and patterns, each ended by NUL
    std::vector<std::pair<std::wstring, std::wstring>> pairs;
    for (size_t at = 0; at < filter.size() && filter[at];) {
        std::wstring text = filter.c_str() + at;
        at += text.size() + 1;
        std::wstring patterns = at < filter.size() ? filter.c_str() + at : L"";
        at += patterns.size() + 1;
        pairs.push_back({text, patterns});
    }
    if (args.json) {
        Out("{\"kind\": \"%s\", \"filters\": [", save ? "save" : "open");
        for (size_t i = 0; i < pairs.size(); i++)
            Out("%s{\"text\": %s, \"patterns\": %s}", i ? ", " : "", JsonString(Utf8(pairs[i].first)).c_str(),
                JsonString(Utf8(pairs[i].second)).c_str());
        Out("], \"extensions\": %s}\n", JsonString(Utf8(unique)).c_str());
        return S_OK;
    }
    for (const auto &p : pairs)
        Out("%s\t%s\n", Utf8(p.first).c_str(), Utf8(p.second).c_str());
    Out("extensions\t%s\n", Utf8(unique).c_str());
    return pairs.empty() ? S_FALSE : S_OK;
}

} // namespace

const Command kFiltersCommand = {
    "filters",
    "the open or save dialog's filter string and unique extensions",
    "usage: zvfio filters [--save] [--json]\n"
    "\n"
    "Prints each filter of the open dialog (with --save: of the save dialog)\n"
    "as its text and its patterns, one a line, separated by a tab, as the\n"
    "manager's filter builder makes them from the installed reader (renderer)\n"
    "classes; then the unique extensions, sorted. With --json: one object\n"
    "with \"filters\" and \"extensions\".\n",
    "--save --json",
    RunFilters,
};

} // namespace zvfio
