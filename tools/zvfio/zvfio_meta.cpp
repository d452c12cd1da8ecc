// zvfio meta: shows, sets, deletes and copies the metadata chunks of a
// RIFF or Wave64 file or of its ".zvl" sidecar; shows those of an AIFF file.
#include "zvfio.h"
#include "zverror.h"
#include "media/metainternal.h"
#include "media/bwf.h"
#include "media/projectlink.h"
#include "media/zvsummary.h"
#include "zvplugin.h"
#include <stdlib.h>
#include <string.h>

namespace zvfio {

namespace {

using zvmeta::Bytes;
using zvmeta::Store;

struct KindName {
    const char *name;
    DWORD bit;
};
const KindName kKindNames[] = {
    {"info", ZVMETA_SUMMARY},        {"markers", ZVMETA_MARKERS},       {"scot", ZVMETA_SCOTT},
    {"playlist", ZVMETA_PLAYLIST},   {"triggers", ZVMETA_TRIGGERS},     {"display", ZVMETA_DISPLIST},
    {"sampler", ZVMETA_SAMPLER},     {"raw", ZVMETA_RAW},               {"stretch", ZVMETA_STRETCH},
    {"beats", ZVMETA_BEATMARKERS},   {"detected", ZVMETA_DETECTEDBEATS}, {"keyframes", ZVMETA_KEYFRAMES},
    {"pictures", ZVMETA_PICTURES},   {"cdtracks", ZVMETA_CDTRACKS},     {"beatmap", ZVMETA_BEATMAPINFO},
    {"beatmapmarkers", ZVMETA_BEATMAPMARKERS}, {"bwf", ZVMETA_BWF},     {"cdinfo", ZVMETA_CDINFO},
};

const char *NameOf(DWORD bit)
{
    for (const KindName &k : kKindNames)
        if (k.bit == bit)
            return k.name;
    return "?";
}

// bext fields shown and set by name: offset and width of the text fields.
struct BextField {
    const char *key;
    DWORD offset, size;
};
const BextField kBext[] = {{"Description", 0, 256},      {"Originator", 256, 32}, {"OriginatorReference", 288, 32},
                           {"OriginationDate", 320, 10}, {"OriginationTime", 330, 8}};
const DWORD kBextFixed = 602;
const DWORD kBextId = ZVRIFF_ID('b', 'e', 'x', 't'), kIxmlId = ZVRIFF_ID('i', 'X', 'M', 'L');

bool IsWave64(HANDLE h)
{
    BYTE head[4] = {};
    DWORD got = 0;
    SetFilePointer(h, 0, nullptr, FILE_BEGIN);
    return ReadFile(h, head, 4, &got, nullptr) && got == 4 && memcmp(head, "riff", 4) == 0;
}

HRESULT Load(const std::wstring &path, Store *store, bool *w64)
{
    HANDLE h = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                           0, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return ZvErrorHandler_TranslateWin32Error(GetLastError());
    *w64 = IsWave64(h);
    BYTE head[4] = {};
    DWORD got = 0;
    SetFilePointer(h, 0, nullptr, FILE_BEGIN);
    HRESULT hr = ReadFile(h, head, 4, &got, nullptr) && got == 4 && !memcmp(head, "FORM", 4)
                     ? zvmeta::ReadAiffAll(h, store)
                     : zvmeta::ReadAll(h, *w64, store);
    // an ARDEO clip's time code among the INFO texts
    Bytes code;
    if (!*w64 && SUCCEEDED(hr) && SUCCEEDED(zvmeta::ReadArdeoTimeCode(h, &code)))
        store->add(ZVMETA_SUMMARY, code.data(), (DWORD)code.size());
    CloseHandle(h);
    return hr;
}

std::string Text(const BYTE *p, size_t n)
{
    size_t len = 0;
    while (len < n && p[len])
        len++;
    return std::string((const char *)p, len);
}

std::string WideText(const BYTE *p, size_t bytes)
{
    std::wstring w;
    for (size_t i = 0; i + 1 < bytes && (p[i] | p[i + 1]); i += 2)
        w.push_back((wchar_t)(p[i] | (p[i + 1] << 8)));
    return Utf8(w);
}

std::string Id(DWORD id) { return std::string((const char *)&id, 4); }

// One line per value in text form; "key": value pairs in JSON.
struct Printer {
    bool json;
    bool first = true;
    void value(const std::string &key, const std::string &text)
    {
        if (json)
            Out("%s    %s: %s", first ? "" : ",\n", JsonString(key).c_str(), JsonString(text).c_str());
        else
            Out("%s = %s\n", key.c_str(), text.c_str());
        first = false;
    }
};

void PrintStore(const Store &store, Printer &p)
{
    char buf[128];
    for (const Store::Entry &e : store.kinds) {
        if (e.bit == ZVMETA_MARKERS) {
            for (const Bytes &r : e.records) {
                ZVMETA_MARKER m;
                memcpy(&m, r.data(), sizeof m);
                if (m.length >= 0)
                    snprintf(buf, sizeof buf, "region.%lu", (unsigned long)m.name);
                else
                    snprintf(buf, sizeof buf, "marker.%lu", (unsigned long)m.name);
                char at[64];
                if (m.length >= 0)
                    snprintf(at, sizeof at, "%lld:%lld:", m.position, m.length);
                else
                    snprintf(at, sizeof at, "%lld:", m.position);
                p.value(buf, at + WideText(r.data() + sizeof m, r.size() - sizeof m));
            }
        } else if (e.bit == ZVMETA_SUMMARY) {
            for (const Bytes &r : e.records)
                p.value("info." + Id(zvmeta::Le32(r.data())), WideText(r.data() + 4, r.size() - 4));
        } else if (e.bit == ZVMETA_BWF) {
            for (const Bytes &r : e.records) {
                const BYTE *body = r.data() + 8;
                size_t n = r.size() - 8;
                if (zvmeta::Le32(r.data()) == kBextId && n >= kBextFixed) {
                    for (const BextField &f : kBext)
                        p.value(std::string("bext.") + f.key, Text(body + f.offset, f.size));
                    unsigned long long ref = zvmeta::Le32(body + 338) | ((unsigned long long)zvmeta::Le32(body + 342) << 32);
                    p.value("bext.TimeReference", std::to_string(ref));
                    p.value("bext.CodingHistory", Text(body + kBextFixed, n - kBextFixed));
                } else if (zvmeta::Le32(r.data()) == kIxmlId) {
                    _tagZVBWF_Chunk chunk = {};
                    if (SUCCEEDED(ExtractIxmlContent(body, (DWORD)n, &chunk))) {
                        int rows = 0;
                        const _tagIxml_Info *t = GetTblIxmlInfo(&rows);
                        for (int i = 0; i < rows; i++) {
                            const WCHAR *v = t[i].kind != -2 ? ZvBWF_GetValue(&chunk, t[i].index) : nullptr;
                            if (v && *v)
                                p.value("ixml." + Utf8(t[i].name), Utf8(v));
                        }
                    }
                    ZvBWF_Clear(&chunk);
                }
            }
        } else if (e.bit == ZVMETA_SAMPLER && e.records.size() == 1 && e.records[0].size() >= 36) {
            // The unity note and each loop as start:length in samples.
            const Bytes &r = e.records[0];
            p.value("sampler.UnityNote", std::to_string(zvmeta::Le32(&r[12])));
            for (size_t i = 0, n = zvmeta::Le32(&r[28]); i < n && 36 + (i + 1) * 32 <= r.size(); i++) {
                unsigned long long start, length;
                memcpy(&start, &r[36 + i * 32 + 8], 8);
                memcpy(&length, &r[36 + i * 32 + 16], 8);
                snprintf(buf, sizeof buf, "sampler.loop.%u", (unsigned)i + 1);
                p.value(buf, std::to_string(start) + ":" + std::to_string(length));
            }
        } else if (e.bit == ZVMETA_PICTURES) {
            int n = 0;
            for (const Bytes &r : e.records) {
                const void *pic = r.data();
                snprintf(buf, sizeof buf, "picture.%d", ++n);
                char what[96];
                snprintf(what, sizeof what, "type %lu, %lu bytes, ", (unsigned long)ZvPicture_GetPictureType(pic),
                         (unsigned long)ZvPicture_GetPictureDataSize(pic));
                p.value(buf, what + WideText((const BYTE *)ZvPicture_GetMimeType(pic), ZvPicture_GetMimeTypeByteCount(pic)) +
                                 ", " + WideText((const BYTE *)ZvPicture_GetDescription(pic),
                                                 ZvPicture_GetDescriptionByteCount(pic)));
            }
        } else {
            size_t bytes = 0;
            for (const Bytes &r : e.records)
                bytes += r.size();
            snprintf(buf, sizeof buf, "%u item(s), %u bytes", (unsigned)e.records.size(), (unsigned)bytes);
            p.value(std::string("kind.") + NameOf(e.bit), buf);
        }
    }
}

// Project link fields by key: the text ones, then the others by hand.
const struct LinkKey {
    const char *key;
    DWORD flag;
} kLinkText[] = {{"ProjectPath", ZVLINK_PROJECTPATH},
                 {"CommandLine", ZVLINK_COMMANDLINE},
                 {"TemplateName", ZVLINK_TEMPLATENAME},
                 {"CreatorAppInfo", ZVLINK_CREATORAPPINFO},
                 {"CreatorWindowClass", ZVLINK_CREATORWINDOWCLASS}};

// The link of a file; false when it has none (or a damaged one).
bool LoadLink(const std::wstring &path, CZvLinkProjectInfo *link)
{
    HANDLE h = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                           0, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return false;
    BOOL found = FALSE;
    HRESULT hr = IsWave64(h) ? ProjectLinkRiff64_LoadInfo(h, link, &found) : ProjectLinkRiff_LoadInfo(h, link, &found);
    CloseHandle(h);
    return SUCCEEDED(hr) && found;
}

void PrintLink(const std::wstring &path, Printer &p)
{
    CZvLinkProjectInfo link;
    if (!LoadLink(path, &link))
        return;
    char buf[64];
    snprintf(buf, sizeof buf, "0x%08lX", (unsigned long)link.GetVersion());
    p.value("link.Version", buf);
    for (const LinkKey &k : kLinkText)
        if (link.GetFlags() & k.flag) {
            const tagZVLINKBLOCK *b = link.Block(k.flag);
            p.value(std::string("link.") + k.key, WideText((const BYTE *)b->data, b->size));
        }
    if (link.GetFlags() & ZVLINK_RENDERERGUID)
        p.value("link.RendererGuid", GuidText(link.GetRendererGuid()));
    static const LinkKey kBlocks[] = {{"TemplateData", ZVLINK_TEMPLATEDATA},
                                      {"AppTemplateData", ZVLINK_APPTEMPLATEDATA},
                                      {"ProjectData", ZVLINK_PROJECTDATA}};
    for (const LinkKey &k : kBlocks)
        if (link.GetFlags() & k.flag) {
            snprintf(buf, sizeof buf, "%lu bytes", (unsigned long)link.Block(k.flag)->size);
            p.value(std::string("link.") + k.key, buf);
        }
    link.FreeMemory();
}

HRESULT Show(const Args &args)
{
    const std::wstring &path = args.files[0];
    Store store;
    bool w64 = false;
    HRESULT hr = Load(path, &store, &w64);
    if (FAILED(hr))
        return hr;
    Store side;
    WCHAR sideName[MAX_PATH];
    bool haveSide = SUCCEEDED(ZvFMMeta_FindMetaFile(path.c_str(), sideName, MAX_PATH)) &&
                    SUCCEEDED(Load(sideName, &side, &w64));
    Printer p{args.json};
    if (args.json)
        Out("{\"file\": %s, \"rate\": %lu, \"values\": {\n", JsonString(Utf8(path)).c_str(),
            (unsigned long)store.sampleRate);
    PrintStore(store, p);
    PrintLink(path, p);
    if (args.json) {
        Out("\n  }, \"sidecar\": %s", haveSide ? JsonString(Utf8(sideName)).c_str() : "null");
        if (haveSide) {
            Out(", \"sidecarValues\": {\n");
            p.first = true;
            PrintStore(side, p);
            PrintLink(sideName, p);
            Out("\n  }");
        }
        Out("}\n");
    } else if (haveSide) {
        Out("sidecar %s:\n", Utf8(sideName).c_str());
        PrintStore(side, p);
        PrintLink(sideName, p);
    }
    return S_OK;
}

Bytes *FirstRecord(Store *store, DWORD bit, DWORD id)
{
    for (Store::Entry &e : store->kinds)
        if (e.bit == bit)
            for (Bytes &r : e.records)
                if (!id || zvmeta::Le32(r.data()) == id)
                    return &r;
    return nullptr;
}

Bytes &Record(Store *store, DWORD bit, DWORD id, const Bytes &fresh)
{
    Bytes *r = FirstRecord(store, bit, id);
    if (r)
        return *r;
    store->add(bit, fresh.data(), (DWORD)fresh.size());
    return *FirstRecord(store, bit, id);
}

Bytes ChunkRecord(DWORD id, const Bytes &body)
{
    DWORD head[2] = {id, (DWORD)body.size()};
    Bytes r((const BYTE *)head, (const BYTE *)head + 8);
    r.resize(8 + body.size());
    if (!body.empty())
        memcpy(r.data() + 8, body.data(), body.size());
    return r;
}

void PutWide(Bytes *r, const std::wstring &text)
{
    const BYTE *p = (const BYTE *)text.c_str();
    r->insert(r->end(), p, p + (text.size() + 1) * 2);
}

std::string Ansi(const std::wstring &w)
{
    int n = WideCharToMultiByte(CP_ACP, 0, w.c_str(), -1, nullptr, 0, nullptr, nullptr);
    std::string s((size_t)(n > 0 ? n : 1), '\0');
    WideCharToMultiByte(CP_ACP, 0, w.c_str(), -1, &s[0], n, nullptr, nullptr);
    s.resize(strlen(s.c_str()));
    return s;
}

void AddMarker(Store *store, LONGLONG pos, LONGLONG len, const std::wstring &text)
{
    DWORD name = 1;
    if (const std::vector<Bytes> *ms = store->of(ZVMETA_MARKERS))
        for (const Bytes &r : *ms)
            name = zvmeta::Le32(r.data() + 4) >= name ? zvmeta::Le32(r.data() + 4) + 1 : name;
    ZVMETA_MARKER m = {28, name, pos, len, (DWORD)(text.size() + 1) * 2};
    Bytes r((BYTE *)&m, (BYTE *)&m + sizeof m);
    PutWide(&r, text);
    store->add(ZVMETA_MARKERS, r.data(), (DWORD)r.size());
}

bool Number(const std::wstring &text, LONGLONG *out)
{
    wchar_t *end = nullptr;
    *out = wcstoll(text.c_str(), &end, 10);
    return !text.empty() && end && !*end && *out >= 0;
}

// Applies one KEY=VALUE; the kind it changed, or 0 for a bad key or value.
DWORD Apply(Store *store, const std::wstring &kv)
{
    size_t eq = kv.find(L'=');
    if (eq == std::wstring::npos)
        return 0;
    std::wstring key = kv.substr(0, eq), value = kv.substr(eq + 1);
    if (key == L"marker" || key == L"region") {
        // SAMPLE:NAME or START:LENGTH:NAME; the name may hold colons.
        size_t a = value.find(L':');
        size_t b = key == L"region" && a != std::wstring::npos ? value.find(L':', a + 1) : a;
        LONGLONG pos, len = -1;
        if (b == std::wstring::npos || !Number(value.substr(0, a), &pos) ||
            (key == L"region" && !Number(value.substr(a + 1, b - a - 1), &len)))
            return 0;
        AddMarker(store, pos, len, value.substr(b + 1));
        return ZVMETA_MARKERS;
    }
    if (key.compare(0, 5, L"info.") == 0 && key.size() == 9) {
        std::string id = Utf8(key.substr(5));
        DWORD v = ZVRIFF_ID(id[0], id[1], id[2], id[3]);
        Bytes fresh(4);
        memcpy(fresh.data(), &v, 4);
        Bytes &r = Record(store, ZVMETA_SUMMARY, v, fresh);
        r.resize(4);
        PutWide(&r, value);
        return ZVMETA_SUMMARY;
    }
    if (key.compare(0, 5, L"bext.") == 0) {
        Bytes &r = Record(store, ZVMETA_BWF, kBextId, ChunkRecord(kBextId, Bytes(kBextFixed, 0)));
        if (r.size() < 8 + kBextFixed)
            r.resize(8 + kBextFixed, 0);
        BYTE *body = r.data() + 8;
        std::string k = Utf8(key.substr(5)), text = Ansi(value);
        if (k == "TimeReference") {
            LONGLONG ref;
            if (!Number(value, &ref))
                return 0;
            memcpy(body + 338, &ref, 8);
            return ZVMETA_BWF;
        }
        if (k == "CodingHistory") {
            r.resize(8 + kBextFixed);
            r.insert(r.end(), text.begin(), text.end());
            DWORD size = (DWORD)r.size() - 8;
            memcpy(r.data() + 4, &size, 4);
            return ZVMETA_BWF;
        }
        for (const BextField &f : kBext)
            if (k == f.key) {
                memset(body + f.offset, 0, f.size);
                memcpy(body + f.offset, text.data(), text.size() < f.size ? text.size() : f.size);
                return ZVMETA_BWF;
            }
        return 0;
    }
    if (key.compare(0, 5, L"ixml.") == 0) {
        int rows = 0, index = -1;
        const _tagIxml_Info *t = GetTblIxmlInfo(&rows);
        for (int i = 0; i < rows && index < 0; i++)
            if (t[i].kind != -2 && key.substr(5) == t[i].name)
                index = t[i].index;
        if (index < 0)
            return 0;
        _tagZVBWF_Chunk chunk = {};
        if (Bytes *old = FirstRecord(store, ZVMETA_BWF, kIxmlId))
            ExtractIxmlContent(old->data() + 8, (DWORD)old->size() - 8, &chunk);
        ZvBWF_SetValue(&chunk, index, value.c_str());
        DWORD size = 0;
        Bytes body;
        HRESULT hr = BuildRawBwfIxmlChunkGlobal(&chunk, nullptr, &size, 16, 79, 0);
        if (SUCCEEDED(hr)) {
            body.resize(size);
            hr = BuildRawBwfIxmlChunkGlobal(&chunk, body.data(), &size, 16, 79, 0);
            body.resize(size);
        }
        ZvBWF_Clear(&chunk);
        if (FAILED(hr))
            return 0;
        Bytes rec = ChunkRecord(kIxmlId, body);
        Record(store, ZVMETA_BWF, kIxmlId, rec) = rec;
        return ZVMETA_BWF;
    }
    return 0;
}

// Applies one link.KEY=VALUE to the record; false for a bad key or value.
// An empty text removes its field.
bool ApplyLink(CZvLinkProjectInfo *link, const std::wstring &key, const std::wstring &value)
{
    std::string k = Utf8(key);
    for (const LinkKey &t : kLinkText)
        if (k == t.key) {
            link->FreeField(t.flag);
            if (value.empty())
                return true;
            DWORD size = (DWORD)(value.size() + 1) * sizeof(WCHAR);
            void *p = link->AllocField(t.flag, size);
            if (!p)
                return false;
            memcpy(p, value.c_str(), size);
            link->MarkSet(t.flag);
            return true;
        }
    if (k == "RendererGuid") {
        GUID g;
        if (FAILED(IIDFromString(value.c_str(), &g)))
            return false;
        link->SetRendererGuid(g);
        return true;
    }
    if (k == "Version") {
        LONGLONG v;
        if (!Number(value, &v) || (v >> 24) > 1)
            return false;
        link->SetVersion((DWORD)v);
        return true;
    }
    return false;
}

// The file itself, or its sidecar (S_FALSE when it has none).
HRESULT Target(const std::wstring &path, bool sidecar, std::wstring *target)
{
    *target = path;
    if (!sidecar)
        return S_OK;
    WCHAR name[MAX_PATH];
    if (SUCCEEDED(ZvFMMeta_FindMetaFile(path.c_str(), name, MAX_PATH))) {
        *target = name;
        return S_OK;
    }
    return S_FALSE;
}

// The link into the file, or into its sidecar (made when there is none).
HRESULT WriteLink(const std::wstring &path, bool sidecar, const CZvLinkProjectInfo *link)
{
    std::wstring target;
    bool fresh = false;
    if (Target(path, sidecar, &target) != S_OK) {
        WCHAR name[MAX_PATH];
        ZvFMMeta_CreateMetaName(path.c_str(), name, MAX_PATH, TRUE);
        target = name;
        fresh = true;
    }
    HANDLE h = CreateFileW(target.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                           fresh ? CREATE_ALWAYS : OPEN_EXISTING, 0, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return ZvErrorHandler_TranslateWin32Error(GetLastError());
    HRESULT hr = S_OK;
    if (fresh && SUCCEEDED(hr = riff_WriteFileID(h, ZVRIFF_ID('Z', 'V', 'P', 'L'), 4)))
        hr = ZvFMMeta_AttachFileToExternList(h, path.c_str());
    if (SUCCEEDED(hr))
        hr = IsWave64(h) ? ProjectLinkRiff64_WriteInfo(h, link) : ProjectLinkRiff_WriteInfo(h, link);
    CloseHandle(h);
    return hr;
}

HRESULT Set(const Args &args)
{
    if (args.files.size() < 3)
        return ZVFIO_E_USAGE;
    const std::wstring &path = args.files[1];
    bool sidecar = args.has(L"--sidecar"), w64 = false;
    std::wstring from;
    Store store;
    HRESULT hr = Load(path, &store, &w64);
    if (FAILED(hr))
        return hr;
    bool mediaW64 = w64;
    if (sidecar) {
        // The sidecar's own kinds (none for a new one); the rate is the file's.
        DWORD rate = store.sampleRate;
        store = Store();
        if (Target(path, true, &from) == S_OK && FAILED(hr = Load(from, &store, &w64)))
            return hr;
        store.sampleRate = rate;
    }
    // An AIFF file has no chunks for broadcast wave values or a project link.
    bool aiff = false;
    HANDLE probe = sidecar ? INVALID_HANDLE_VALUE
                           : CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                         OPEN_EXISTING, 0, nullptr);
    if (probe != INVALID_HANDLE_VALUE) {
        aiff = zvmeta::IsFormFile(probe);
        CloseHandle(probe);
    }
    DWORD changed = 0;
    CZvLinkProjectInfo link;
    bool linkChanged = false;
    for (size_t i = 2; i < args.files.size(); i++) {
        const std::wstring &kv = args.files[i];
        size_t eq = kv.find(L'=');
        if (aiff && (kv.compare(0, 5, L"bext.") == 0 || kv.compare(0, 5, L"ixml.") == 0 || kv.compare(0, 5, L"link.") == 0)) {
            Err("zvfio meta set: an AIFF file has no chunk for %s (--sidecar takes it)\n",
                Utf8(kv.substr(0, eq)).c_str());
            return ZVERR_UNSUPPORTED_FORMAT;
        }
        if (kv.compare(0, 5, L"link.") == 0 && eq != std::wstring::npos) {
            if (!linkChanged && !LoadLink(!sidecar ? path : Target(path, true, &from) == S_OK ? from : L"", &link))
                link.SetVersion(0x01000000);
            linkChanged = true;
            if (!ApplyLink(&link, kv.substr(5, eq - 5), kv.substr(eq + 1))) {
                Err("zvfio meta set: cannot set %s\n", Utf8(kv).c_str());
                link.FreeMemory();
                return ZVFIO_E_USAGE;
            }
            continue;
        }
        DWORD bit = Apply(&store, args.files[i]);
        if (!bit) {
            Err("zvfio meta set: cannot set %s\n", Utf8(args.files[i]).c_str());
            link.FreeMemory();
            return ZVFIO_E_USAGE;
        }
        changed |= bit;
    }
    if (linkChanged) {
        hr = WriteLink(path, sidecar, &link);
        link.FreeMemory();
        if (FAILED(hr) || !changed)
            return hr;
    }
    DWORD rate = store.sampleRate;
    IZvReadMeta *meta = nullptr;
    hr = zvmeta::CreateSource(&store, &meta);
    if (FAILED(hr))
        return hr;
    DWORD fileMask = sidecar ? 0 : changed, sideMask = sidecar ? changed : 0;
    hr = mediaW64 ? ZvFMMeta64_UpdateMetaStream(path.c_str(), rate, meta, fileMask, sideMask)
                  : ZvFMMeta_UpdateMetaStream2(path.c_str(), rate, meta, fileMask, sideMask);
    meta->Release();
    return hr;
}

HRESULT Delete(const Args &args)
{
    if (args.files.size() < 3)
        return ZVFIO_E_USAGE;
    const std::wstring &path = args.files[1];
    std::wstring target;
    if (Target(path, args.has(L"--sidecar"), &target) != S_OK)
        return ZVERR_NOT_FOUND;
    DWORD mask = 0;
    bool bext = false, ixml = false;
    for (size_t i = 2; i < args.files.size(); i++) {
        std::string k = Utf8(args.files[i]);
        bool known = false;
        for (const KindName &n : kKindNames)
            if (k == n.name) {
                mask |= n.bit;
                known = true;
            }
        if (k == "bext" || k == "bwf")
            bext = known = true;
        if (k == "ixml" || k == "bwf")
            ixml = known = true;
        if (!known) {
            Err("zvfio meta delete: unknown kind %s\n", k.c_str());
            return ZVFIO_E_USAGE;
        }
    }
    HANDLE h = CreateFileW(target.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0,
                           nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return ZvErrorHandler_TranslateWin32Error(GetLastError());
    bool w64 = IsWave64(h);
    HRESULT hr = ZvFMMeta_DeleteKindsFromFile(h, mask & ~ZVMETA_BWF, w64);
    if (SUCCEEDED(hr) && (bext || ixml) && w64)
        hr = ZVFIO_E_NOTYET;
    if (SUCCEEDED(hr) && bext && SUCCEEDED(hr = ZvFMMeta_DeleteChunkId(h, kBextId)))
        hr = ZvFMMeta_DeleteChunkId(h, ZVRIFF_ID('B', 'E', 'X', 'T'));
    if (SUCCEEDED(hr) && ixml)
        hr = ZvFMMeta_DeleteChunkId(h, kIxmlId);
    CloseHandle(h);
    return hr;
}

HRESULT Copy(const Args &args)
{
    if (args.files.size() != 3)
        return ZVFIO_E_USAGE;
    HANDLE h = CreateFileW(args.files[1].c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                           OPEN_EXISTING, 0, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return ZvErrorHandler_TranslateWin32Error(GetLastError());
    IZvReadMeta *meta = nullptr;
    HRESULT hr = ZvFMMeta_CreateSourceFromFile(h, IsWave64(h), &meta);
    CloseHandle(h);
    if (FAILED(hr))
        return hr;
    h = CreateFileW(args.files[2].c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                    0, nullptr);
    bool w64 = h != INVALID_HANDLE_VALUE && IsWave64(h);
    DWORD rate = 0;
    zvmeta::ChunkIndex index;
    if (h != INVALID_HANDLE_VALUE && SUCCEEDED(zvmeta::IndexFile(h, w64, &index)))
        rate = zvmeta::RateOf(h, index);
    if (h != INVALID_HANDLE_VALUE)
        CloseHandle(h);
    const DWORD all = 0xFFFFFFFF & ~ZVMETA_SAMPLER_AIFF;
    hr = w64 ? ZvFMMeta64_openAndWriteMetaStream(args.files[2].c_str(), FALSE, rate, meta, all, 0)
             : ZvFMMeta_openAndWriteMetaStreamEx(args.files[2].c_str(), FALSE, rate, meta, all, 0);
    meta->Release();
    return hr;
}

HRESULT Run(const Args &args)
{
    if (args.files.empty())
        return ZVFIO_E_USAGE;
    const std::wstring &verb = args.files[0];
    if (verb == L"set")
        return Set(args);
    if (verb == L"delete")
        return Delete(args);
    if (verb == L"copy")
        return Copy(args);
    return args.files.size() == 1 ? Show(args) : ZVFIO_E_USAGE;
}

} // namespace

const Command kMetaCommand = {
    "meta", "shows, sets, deletes and copies metadata chunks",
    "usage: zvfio meta [--json] FILE\n"
    "       zvfio meta set [--sidecar] FILE KEY=VALUE...\n"
    "       zvfio meta delete [--sidecar] FILE KIND...\n"
    "       zvfio meta copy SRC DST\n"
    "\n"
    "Without a verb, prints the metadata of a RIFF, Wave64 or AIFF file and of\n"
    "its \".zvl\" sidecar: markers and regions (in samples), INFO texts (of an\n"
    "AIFF file its NAME, AUTH, (c) and ANNO as INAM, IART, ICOP and ICMT; of an\n"
    "ARDEO clip its time code as TCOD), bext and iXML values, the sampler's\n"
    "unity note and loops (start:length), the project link (link.*), pictures\n"
    "by type, size, MIME type and description, and a count of the items of\n"
    "every other kind.\n"
    "\n"
    "set updates the file (or with --sidecar its sidecar) with these keys:\n"
    "  bext.Description=TEXT, bext.Originator=, bext.OriginatorReference=,\n"
    "  bext.OriginationDate=YYYY-MM-DD, bext.OriginationTime=hh:mm:ss,\n"
    "  bext.CodingHistory=, bext.TimeReference=SAMPLES\n"
    "  info.XXXX=TEXT        an INFO entry by its four-character id (INAM, ICMT...)\n"
    "  ixml.ELEMENT=TEXT     an iXML element by name (SCENE, TAKE, PROJECT, NOTE...)\n"
    "  marker=SAMPLE:NAME    adds a marker\n"
    "  region=START:LENGTH:NAME  adds a region (positions in samples)\n"
    "  link.ProjectPath=PATH, link.CommandLine=TEXT, link.TemplateName=,\n"
    "  link.CreatorAppInfo=, link.CreatorWindowClass=  project link texts (empty\n"
    "                        removes one), link.RendererGuid={GUID}, link.Version=N\n"
    "                        (a link needs a project path and a command line)\n"
    "A kind that is set is written anew as a whole; the others stay as they are.\n"
    "An AIFF file takes info (INAM, IART, ICOP, ICMT), markers and regions (as\n"
    "markers); its bext, ixml and link keys go to the sidecar with --sidecar.\n"
    "\n"
    "delete removes kinds: info markers scot playlist triggers display sampler\n"
    "raw stretch beats detected keyframes pictures cdtracks beatmap\n"
    "beatmapmarkers cdinfo bwf bext ixml.\n"
    "\n"
    "copy writes every kind of SRC into DST, replacing what DST had of them.\n"
    "The audio is never moved: chunks in front of it are retired in place.\n"
    "\n"
    "  --json      one JSON object\n"
    "  --sidecar   set or delete in the \".zvl\" sidecar\n",
    "--json --sidecar",
    Run,
};

} // namespace zvfio
