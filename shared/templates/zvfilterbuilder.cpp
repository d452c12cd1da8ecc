// CZvFioFilterBuilder: entries from the installed classes or from the
// application, built into filter strings and unique extension lists.
#include "templates/zvfilterbuilder.h"
#include <new>
#include <string>
#include <vector>
#include <wchar.h>

extern "C" const IID IID_IZvFioFilterBuilder2 = {0xA886D595, 0x5FAE, 0x4124,
                                                 {0x8F, 0x48, 0x4A, 0x23, 0x48, 0x0E, 0xE3, 0x58}};

namespace {

const DWORD kStale = 0x1;
const DWORD kChanged = 0x2;
const DWORD kAllFiles = 0x4;
const DWORD kDefaultSet = 0x8;
const DWORD kSingleList = 0x10;

// Patterns shown in full up to this position; the rest becomes "...".
const size_t kShownPatternChars = 30;
const DWORD kAllFilesCapacity = 260;

struct Entry {
    DWORD id;
    std::wstring extensions;
    std::wstring description;
    DWORD extensionCount;
    DWORD reserved;
    DWORD flags;
    GUID first;
    GUID second;
};

std::vector<std::wstring> SplitPatterns(const std::wstring &text)
{
    std::vector<std::wstring> out;
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find(L';', start);
        if (end == std::wstring::npos)
            end = text.size();
        std::wstring p = text.substr(start, end - start);
        size_t a = p.find_first_not_of(L' '), b = p.find_last_not_of(L' ');
        if (a != std::wstring::npos)
            out.push_back(p.substr(a, b - a + 1));
        start = end + 1;
    }
    return out;
}

bool InMask(const Entry &e, const GUID *mask, int maskCount)
{
    for (int i = 0; i < maskCount; i++)
        if (IsEqualGUID(mask[i], e.first) || IsEqualGUID(mask[i], e.second))
            return true;
    return false;
}

class CZvFioFilterBuilder : public IZvFioFilterBuilder2 {
public:
    explicit CZvFioFilterBuilder(IZvFileIOMgrForApp *manager) : manager_(manager)
    {
        if (manager_)
            manager_->AddRef();
    }
    virtual ~CZvFioFilterBuilder()
    {
        if (manager_)
            manager_->Release();
    }

    STDMETHODIMP QueryInterface(REFIID riid, void **out) override
    {
        if (!out)
            return E_POINTER;
        if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IZvFioFilterBuilder2)) {
            *out = static_cast<IZvFioFilterBuilder2 *>(this);
            AddRef();
            return S_OK;
        }
        *out = NULL;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return (ULONG)InterlockedIncrement(&ref_); }
    STDMETHODIMP_(ULONG) Release() override
    {
        LONG n = InterlockedDecrement(&ref_);
        if (!n)
            delete this;
        return (ULONG)n;
    }

    STDMETHODIMP AddReaders(DWORD, DWORD, DWORD) override { return AddClasses(false); }
    STDMETHODIMP AddRenderers(DWORD, DWORD, DWORD) override { return AddClasses(true); }
    STDMETHODIMP SetDefault(DWORD id, DWORD value) override
    {
        if (id == (DWORD)-1) {
            state_ &= ~kDefaultSet;
            return S_OK;
        }
        return SetDefaultEx(id, value, 1);
    }
    STDMETHODIMP SetDefaultEx(DWORD id, DWORD value, DWORD flag) override
    {
        defaultId_ = id;
        defaultValue_ = value;
        state_ = flag ? state_ | kDefaultSet : state_ & ~kDefaultSet;
        return S_OK;
    }
    STDMETHODIMP SetLastWord(DWORD value) override
    {
        lastWord_ = value;
        return S_OK;
    }
    STDMETHODIMP SetSingleList(BOOL single) override
    {
        DWORD want = single ? kSingleList : 0;
        if ((state_ & kSingleList) != want)
            state_ = (state_ & ~kSingleList) | want | kStale;
        return S_OK;
    }
    STDMETHODIMP AddEntry(LPCWSTR extensions, LPCWSTR description, DWORD id, int insertAt, DWORD flags,
                          const GUID *classGuid) override
    {
        return AddEntryEx(extensions, description, id, insertAt, flags, classGuid, NULL);
    }
    STDMETHODIMP AddEntryEx(LPCWSTR extensions, LPCWSTR description, DWORD id, int insertAt, DWORD flags,
                            const GUID *classGuid, const GUID *secondGuid) override
    {
        try {
            Entry e = {id, extensions ? extensions : L"", description ? description : L"", 0, 0, flags,
                       classGuid ? *classGuid : GUID_NULL, secondGuid ? *secondGuid : GUID_NULL};
            e.extensionCount = (DWORD)SplitPatterns(e.extensions).size();
            if (insertAt < 0 || (size_t)insertAt > entries_.size())
                insertAt = (int)entries_.size();
            entries_.insert(entries_.begin() + insertAt, e);
        } catch (const std::bad_alloc &) {
            return E_OUTOFMEMORY;
        }
        state_ |= kStale | kChanged;
        return S_OK;
    }
    STDMETHODIMP AddCombinedEntry(const GUID *mask, int maskCount, DWORD options, LPCWSTR description, DWORD id,
                                  int insertAt, DWORD flags, const GUID *classGuid) override
    {
        std::wstring list;
        try {
            list = UniqueExtensions(mask, maskCount, options);
        } catch (const std::bad_alloc &) {
            return E_OUTOFMEMORY;
        }
        return AddEntry(list.c_str(), description, id, insertAt, flags, classGuid);
    }
    STDMETHODIMP RemoveEntry(int index) override
    {
        if (index < 0 || (size_t)index >= entries_.size())
            return E_INVALIDARG;
        entries_.erase(entries_.begin() + index);
        state_ |= kStale | kChanged;
        return S_OK;
    }
    STDMETHODIMP Reserved13() override { return E_NOTIMPL; }
    STDMETHODIMP GetFilterString(WCHAR *buffer, DWORD *size, DWORD *ids, DWORD *count, const GUID *mask,
                                 int maskCount, DWORD options) override
    {
        if (entries_.empty())
            return E_FAIL;
        if (maskCount != lastMaskCount_ || ((options ^ lastOptions_) & ZVFILTER_OPT_ALLFILES))
            state_ |= kStale;
        if (state_ & kStale) {
            HRESULT hr = BuildFilter(mask, maskCount, 0, options);
            if (FAILED(hr))
                return hr;
        }
        DWORD bytes = (DWORD)(filter_.size() * sizeof(WCHAR));
        HRESULT hr = S_OK;
        if (buffer) {
            if (size && *size >= bytes)
                memcpy(buffer, filter_.data(), bytes);
            else
                hr = E_FAIL;
        }
        if (size)
            *size = bytes;
        if (count) {
            if (ids && *count >= ids_.size())
                memcpy(ids, ids_.data(), ids_.size() * sizeof(DWORD));
            *count = (DWORD)ids_.size();
        }
        return hr;
    }
    STDMETHODIMP Reset() override
    {
        entries_.clear();
        filter_.clear();
        extensionList_.clear();
        ids_.clear();
        state_ = (state_ & kSingleList) | kStale;
        return S_OK;
    }
    STDMETHODIMP GetEntryCount(int *count) override
    {
        if (!count)
            return E_POINTER;
        *count = (int)entries_.size();
        return entries_.empty() ? E_FAIL : S_OK;
    }
    STDMETHODIMP GetEntryInfo(ZVFIO_FILTERENTRYINFO *info, int index) override
    {
        if (!info)
            return E_POINTER;
        if (index < 0 || (size_t)index >= entries_.size())
            return E_INVALIDARG;
        const Entry &e = entries_[index];
        memset(info, 0, sizeof *info);
        info->cbSize = sizeof *info;
        info->id = e.id;
        info->flags = e.flags;
        info->extensionCount = e.extensionCount;
        info->classGuid = e.first;
        info->secondGuid = e.second;
        wcsncpy(info->extensions, e.extensions.c_str(), ARRAYSIZE(info->extensions) - 1);
        wcsncpy(info->description, e.description.c_str(), ARRAYSIZE(info->description) - 1);
        return S_OK;
    }
    STDMETHODIMP SetEntryHidden(int index, BOOL hidden) override
    {
        if (index < 0 || (size_t)index >= entries_.size())
            return E_INVALIDARG;
        DWORD &f = entries_[index].flags;
        f = hidden ? f | ZVFILTER_HIDDEN : f & ~ZVFILTER_HIDDEN;
        state_ |= kStale;
        return S_OK;
    }
    STDMETHODIMP FindEntryByGuid(int *index, const GUID *guid) override
    {
        if (!index || !guid)
            return E_POINTER;
        *index = -1;
        for (size_t i = 0; i < entries_.size(); i++)
            if (IsEqualGUID(entries_[i].first, *guid)) {
                *index = (int)i;
                return S_OK;
            }
        return E_FAIL;
    }
    STDMETHODIMP SetEntriesHidden(const GUID *mask, int maskCount, BOOL hidden, DWORD options) override
    {
        for (Entry &e : entries_) {
            bool act = !(options & ZVFILTER_OPT_ON_MASK) || InMask(e, mask, maskCount);
            if (act)
                e.flags = hidden ? e.flags | ZVFILTER_HIDDEN : e.flags & ~ZVFILTER_HIDDEN;
        }
        state_ |= kStale;
        return S_OK;
    }
    STDMETHODIMP BuildFilter(const GUID *mask, int maskCount, DWORD, DWORD options) override
    {
        try {
            Build(mask, maskCount, options);
        } catch (const std::bad_alloc &) {
            return E_OUTOFMEMORY;
        }
        return S_OK;
    }
    STDMETHODIMP BuildExtensionList(const GUID *mask, int maskCount, DWORD, DWORD options) override
    {
        try {
            extensionList_ = UniqueExtensions(mask, maskCount, options);
        } catch (const std::bad_alloc &) {
            return E_OUTOFMEMORY;
        }
        return S_OK;
    }
    STDMETHODIMP GetSizes(DWORD *filterBytes, DWORD *extensionUnits, DWORD *idCount) override
    {
        if (filterBytes)
            *filterBytes = (DWORD)(filter_.size() * sizeof(WCHAR));
        if (extensionUnits)
            *extensionUnits = extensionList_.empty() ? 0 : (DWORD)extensionList_.size() + 1;
        if (idCount)
            *idCount = (DWORD)ids_.size();
        return S_OK;
    }
    STDMETHODIMP CopyFilter(WCHAR *buffer, DWORD capacity) override
    {
        if (!buffer || !capacity)
            return E_INVALIDARG;
        if (filter_.size() <= capacity) {
            memcpy(buffer, filter_.data(), filter_.size() * sizeof(WCHAR));
            if (filter_.size() < capacity)
                buffer[filter_.size()] = 0;
            return S_OK;
        }
        memcpy(buffer, filter_.data(), capacity * sizeof(WCHAR));
        buffer[capacity - 1] = 0;
        return ZVERR_BUFFER_TOO_SMALL;
    }
    STDMETHODIMP CopyIds(DWORD *ids, DWORD count) override
    {
        if (!ids)
            return E_INVALIDARG;
        for (DWORD i = 0; i < count; i++)
            ids[i] = i < ids_.size() ? ids_[i] : (DWORD)-1;
        return count < ids_.size() ? ZVERR_BUFFER_TOO_SMALL : S_OK;
    }
    STDMETHODIMP CopyExtensionList(WCHAR *buffer, DWORD capacity, WCHAR separator) override
    {
        if (!buffer || !capacity)
            return E_INVALIDARG;
        DWORD n = (DWORD)extensionList_.size() < capacity - 1 ? (DWORD)extensionList_.size() : capacity - 1;
        for (DWORD i = 0; i < n; i++)
            buffer[i] = extensionList_[i] == L';' && separator ? separator : extensionList_[i];
        buffer[n] = 0;
        return n < extensionList_.size() ? ZVERR_BUFFER_TOO_SMALL : S_OK;
    }
    STDMETHODIMP GetFilterPointer(LPCWSTR *filter) override
    {
        if (!filter)
            return E_POINTER;
        *filter = filter_.empty() ? NULL : filter_.data();
        return S_OK;
    }
    STDMETHODIMP GetExtensionListPointer(LPCWSTR *list) override
    {
        if (!list)
            return E_POINTER;
        *list = extensionList_.c_str();
        return S_OK;
    }
    STDMETHODIMP GetIdsPointer(const DWORD **ids, DWORD *count) override
    {
        if (!ids || !count)
            return E_POINTER;
        *ids = ids_.empty() ? NULL : ids_.data();
        *count = (DWORD)ids_.size();
        return S_OK;
    }
    STDMETHODIMP GetDefault(DWORD *id, DWORD *value, DWORD *lastWord) override
    {
        if (id)
            *id = (state_ & kDefaultSet) ? defaultId_ : (DWORD)-1;
        if (value)
            *value = defaultValue_;
        if (lastWord)
            *lastWord = lastWord_;
        return S_OK;
    }

private:
    HRESULT AddClasses(bool renderers);

    bool Kept(const Entry &e, const GUID *mask, int maskCount, DWORD options) const
    {
        if (!mask || maskCount <= 0)
            return true;
        return InMask(e, mask, maskCount) != ((options & ZVFILTER_OPT_INVERT) != 0);
    }

    // First patterns of all entries before the second of any, so a list
    // that has to be cut keeps the most typical extensions.
    std::wstring UniqueExtensions(const GUID *mask, int maskCount, DWORD options) const
    {
        size_t capacity = (options & ZVFILTER_OPT_ALLFILES) ? kAllFilesCapacity : (size_t)-1;
        std::vector<std::vector<std::wstring>> patterns;
        for (const Entry &e : entries_)
            if (!(e.flags & (ZVFILTER_HIDDEN | ZVFILTER_NO_EXTLIST)) && Kept(e, mask, maskCount, options))
                patterns.push_back(SplitPatterns(e.extensions));
        std::wstring list;
        std::vector<std::wstring> seen;
        for (size_t pos = 0;; pos++) {
            bool any = false;
            for (const auto &p : patterns) {
                if (pos >= p.size())
                    continue;
                any = true;
                const std::wstring &x = p[pos];
                if (x.find(L"*.*") != std::wstring::npos || x.find(L'?') != std::wstring::npos)
                    continue;
                bool dup = false;
                for (const std::wstring &s : seen)
                    dup = dup || _wcsicmp(s.c_str(), x.c_str()) == 0;
                if (dup)
                    continue;
                size_t grown = list.size() + (list.empty() ? 0 : 1) + x.size();
                if (grown + 1 > capacity)
                    return list;
                if (!list.empty())
                    list += L';';
                list += x;
                seen.push_back(x);
            }
            if (!any)
                return list;
        }
    }

    void Build(const GUID *mask, int maskCount, DWORD options)
    {
        filter_.clear();
        ids_.clear();
        lastMaskCount_ = maskCount;
        lastOptions_ = options;
        state_ = (state_ & ~(kStale | kAllFiles)) | ((options & ZVFILTER_OPT_ALLFILES) ? kAllFiles : 0);
        if (entries_.empty())
            return;
        if (state_ & kSingleList) {
            std::wstring list = UniqueExtensions(mask, maskCount, options);
            for (WCHAR c : list)
                filter_.push_back(c == L';' ? 0 : c);
            filter_.push_back(0);
            filter_.push_back(0);
            return;
        }
        for (const Entry &e : entries_) {
            if (e.extensions.empty() || e.description.empty() || !Kept(e, mask, maskCount, options))
                continue;
            std::wstring shown = e.description;
            if (!(e.flags & ZVFILTER_DESCRIPTION_ONLY)) {
                std::wstring patterns = e.extensions;
                size_t cut = patterns.size() > kShownPatternChars ? patterns.find(L';', kShownPatternChars)
                                                                  : std::wstring::npos;
                if (cut != std::wstring::npos)
                    patterns = patterns.substr(0, cut) + L"...";
                shown += L" (" + patterns + L")";
            }
            filter_.insert(filter_.end(), shown.begin(), shown.end());
            filter_.push_back(0);
            filter_.insert(filter_.end(), e.extensions.begin(), e.extensions.end());
            filter_.push_back(0);
            ids_.push_back(e.id);
        }
        filter_.push_back(0);
    }

    LONG ref_ = 0;
    IZvFileIOMgrForApp *manager_;
    std::vector<Entry> entries_;
    DWORD state_ = kStale;
    int lastMaskCount_ = 0;
    DWORD lastOptions_ = 0;
    std::vector<WCHAR> filter_;
    std::wstring extensionList_;
    std::vector<DWORD> ids_;
    DWORD defaultId_ = 0, defaultValue_ = 0, lastWord_ = 0;
};

HRESULT CZvFioFilterBuilder::AddClasses(bool renderers)
{
    if (!manager_)
        return E_UNEXPECTED;
    LONG count = 0;
    HRESULT hr = renderers ? manager_->GetRendererCount(&count) : manager_->GetReaderCount(&count);
    if (FAILED(hr))
        return hr;
    for (LONG i = 0; i < count; i++) {
        IUnknown *cls = NULL;
        if (renderers)
            hr = manager_->GetRendererClass((IZvRenderFileClass **)&cls, i);
        else
            hr = manager_->GetReaderClass((IZvReadFileClass **)&cls, i);
        if (FAILED(hr) || !cls)
            continue; // a class that can't load has no entry
        const ZVFIO_FILECLASS_INFO_TEXT ids[2] = {ZVFIO_INFOTEXT_PLUGINNAME, ZVFIO_INFOTEXT_EXTENSIONS};
        BSTR texts[2] = {};
        GUID guid = GUID_NULL;
        DWORD classId = (DWORD)i;
        if (renderers) {
            IZvRenderFileClass *r = (IZvRenderFileClass *)cls;
            hr = r->GetInfoText(ids, 2, texts);
            r->GetClassGuid(&guid);
            r->GetClassId(&classId);
        } else {
            IZvReadFileClass *r = (IZvReadFileClass *)cls;
            hr = r->GetInfoText(ids, 2, texts);
            r->GetClassGuid(&guid);
            r->GetClassId(&classId);
        }
        if (SUCCEEDED(hr) && texts[0] && texts[1])
            hr = AddEntry(texts[1], texts[0], classId, -1, 0, &guid);
        else
            hr = S_OK;
        SysFreeString(texts[0]);
        SysFreeString(texts[1]);
        cls->Release();
        if (hr == E_OUTOFMEMORY)
            return hr;
    }
    return S_OK;
}

} // namespace

HRESULT ZvFio_CreateFilterBuilder(IZvFileIOMgrForApp *manager, REFIID iid, void **out)
{
    if (!out)
        return E_POINTER;
    *out = NULL;
    CZvFioFilterBuilder *b = new (std::nothrow) CZvFioFilterBuilder(manager);
    if (!b)
        return E_OUTOFMEMORY;
    b->AddRef();
    HRESULT hr = b->QueryInterface(iid, out);
    b->Release();
    return hr;
}

namespace {

// Bytes the unique list is fetched into; a longer list is cut at a whole pattern.
const DWORD kUniqueListBytes = 4160;

int WINAPI CompareTextNoCase(ULONG_PTR, const void *a, const void *b)
{
    return _wcsicmp((const WCHAR *)a, (const WCHAR *)b);
}

} // namespace

HRESULT ZvFio_BuildUniqueExtensionList(tZVLIST **list, IZvFioFilterBuilder2 *builder, const GUID *mask,
                                       int maskCount, DWORD options)
{
    if (!list || !builder)
        return E_POINTER;
    std::vector<WCHAR> text(kUniqueListBytes / sizeof(WCHAR));
    HRESULT hr = builder->BuildExtensionList(mask, maskCount, 0, options);
    if (SUCCEEDED(hr))
        hr = builder->CopyExtensionList(text.data(), (DWORD)text.size(), L';');
    if (hr == ZVERR_BUFFER_TOO_SMALL) {
        // the last pattern may be cut short: leave it out
        WCHAR *last = wcsrchr(text.data(), L';');
        *(last ? last : text.data()) = 0;
        hr = S_OK;
    }
    if (FAILED(hr))
        return hr;
    bool created = !*list;
    if (created && FAILED(hr = ZvList_CreateExZ(list, 0, 16, 16, ZVLIST_HEAPITEMS)))
        return hr;
    for (WCHAR *p = text.data(); SUCCEEDED(hr) && *p;) {
        WCHAR *end = wcschr(p, L';');
        size_t n = end ? (size_t)(end - p) : wcslen(p);
        std::wstring pattern(p, n);
        p += n + (end ? 1 : 0);
        if (pattern.empty() || pattern.find(L"*.*") != std::wstring::npos || pattern.find(L'?') != std::wstring::npos)
            continue;
        hr = ZvList_AllocAndInsertItem(*list, pattern.c_str(), (int)((n + 1) * sizeof(WCHAR)), (*list)->count,
                                       NULL);
    }
    if (SUCCEEDED(hr))
        hr = ZvList_Sort(*list, 0, CompareTextNoCase);
    for (int i = ZvList_GetCount(*list) - 1; SUCCEEDED(hr) && i > 0; i--)
        if (CompareTextNoCase(0, ZvList_GetItem(*list, i - 1), ZvList_GetItem(*list, i)) == 0)
            hr = ZvList_DeleteList(*list, i, 1, FALSE);
    if (FAILED(hr) && created) {
        ZvList_Destroy(*list);
        *list = NULL;
    }
    return hr;
}

HRESULT ZvFio_BuildUniqueExtensionList(IZvFileIOMgrForApp *manager, tZVLIST **list, DWORD sourceMask, DWORD count,
                                       const GUID *mask, int maskCount, DWORD options)
{
    IZvFioFilterBuilder2 *builder = NULL;
    HRESULT hr = ZvFio_CreateFilterBuilder(manager, IID_IZvFioFilterBuilder2, (void **)&builder);
    if (SUCCEEDED(hr))
        hr = builder->AddReaders(sourceMask, count, 0);
    if (SUCCEEDED(hr))
        hr = ZvFio_BuildUniqueExtensionList(list, builder, mask, maskCount, options);
    if (builder)
        builder->Release();
    return hr;
}
