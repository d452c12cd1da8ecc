// zvfio templates: the merged template list of a renderer class, and a new
// user template made from one of them.
#include "zvfio.h"
#include "zvfio_manager.h"
#include "templates/zvtemplatestore.h"
#include "templates/zvtemplateinfo.h"
#include <stdlib.h>

namespace zvfio {

// A renderer class by GUID, by extension ("wav", ".wav" or "*.wav") or by
// a part of its display name.
HRESULT FindRenderer(Manager &mgr, const std::wstring &key, IZvRenderFileClass **cls)
{
    *cls = nullptr;
    GUID guid;
    if (key.size() == 38 && SUCCEEDED(CLSIDFromString(key.c_str(), &guid)))
        return mgr->FindRendererClass(cls, guid);
    std::wstring bare = key;
    while (!bare.empty() && (bare[0] == L'*' || bare[0] == L'.'))
        bare.erase(0, 1);
    for (const std::wstring &ext : {bare, L"." + bare, L"*." + bare}) {
        LONG position = -1;
        if (!bare.empty() && SUCCEEDED(mgr->FindNextRenderClassByExt(cls, ext.c_str(), &position)) && *cls)
            return S_OK;
    }
    HRESULT hr = mgr->FindRenderClassByName(cls, key.c_str());
    return SUCCEEDED(hr) && *cls ? S_OK : ZVERR_NOT_FOUND;
}

std::string FormatText(const tagZVTEMPLATExV2 *t)
{
    DWORD rate = 0, bits = 0, channels = 0; // 16-bit values in 4-byte buffers
    if (ZvFio_GetTemplateInfo(t, 1, &rate, 4, ZVTI_SAMPLE_RATE) != S_OK)
        return "no audio";
    ZvFio_GetTemplateInfo(t, 1, &bits, 4, ZVTI_BITS);
    ZvFio_GetTemplateInfo(t, 1, &channels, 4, ZVTI_CHANNELS);
    const ZVWAVEFORMAT *f = ZvTemplateAt<ZVWAVEFORMAT>(t, ZVT_OFS_AUDIO_FORMAT);
    bool isFloat = f->sampleType == ZVSAMPLE_F32 || f->sampleType == ZVSAMPLE_F64;
    char text[96];
    snprintf(text, sizeof text, "%lu Hz, %lu-bit%s, %lu channel%s", (unsigned long)rate, (unsigned long)bits,
             isFloat ? " float" : "", (unsigned long)channels, channels == 1 ? "" : "s");
    return text;
}

namespace {

// Where a record of the merged view comes from.
std::string Source(const CZvGlobalTemplateCache *cache, const tagZVTEMPLATExV2 *t)
{
    for (const ZVTEMPLATEFOLDER *f : cache->folders)
        for (const tagZVTEMPLATExV2 *x : f->templates)
            if (x == t)
                return f->kind == ZVTEMPLATEFOLDER_PRESETS ? "preset" : Utf8(f->path);
    return "";
}

HRESULT List(Manager &mgr, IZvRenderFileClass *cls, bool json)
{
    CZvGlobalTemplateCache *cache = nullptr;
    HRESULT hr = ZvFio_GetGlobalTemplateCache(mgr.get(), cls, &cache);
    if (FAILED(hr))
        return hr;
    CZvPrivateTemplateCache view(cache);
    hr = view.Merge(0);
    if (json)
        Out("[");
    for (size_t i = 0; SUCCEEDED(hr) && i < view.List().size(); i++) {
        const tagZVTEMPLATExV2 *t = view.List()[i];
        std::string name = Utf8(ZvFio_GetTemplateName(t)), notes = Utf8(ZvFio_GetTemplateNotes(t));
        if (json)
            Out("%s{\"name\": %s, \"guid\": \"%s\", \"source\": %s, \"format\": %s, \"notes\": %s}", i ? ", " : "",
                JsonString(name).c_str(), GuidText(t->templateId).c_str(), JsonString(Source(cache, t)).c_str(),
                JsonString(FormatText(t)).c_str(), JsonString(notes).c_str());
        else
            Out("%s\n  guid     %s\n  source   %s\n  format   %s\n%s%s%s", name.c_str(),
                GuidText(t->templateId).c_str(), Source(cache, t).c_str(), FormatText(t).c_str(),
                notes.empty() ? "" : "  notes    ", notes.c_str(), notes.empty() ? "" : "\n");
    }
    if (json)
        Out("]\n");
    ZvFio_ReleaseGlobalTemplateCache(cache);
    return hr;
}

HRESULT Save(IZvRenderFileClass *cls, const Args &args)
{
    std::wstring from, value;
    if (args.files.size() != 3 || !args.value(L"--from", &from))
        return ZVFIO_E_USAGE;
    const std::wstring &name = args.files[2];
    tagZVTEMPLATExV2 *t = nullptr;
    GUID guid;
    if (from.size() == 38 && SUCCEEDED(CLSIDFromString(from.c_str(), &guid)))
        t = ZvFio_GetTemplateByGuid(cls, guid);
    if (!t)
        t = ZvFio_GetTemplateByName(cls, from.c_str());
    if (!t)
        return ZVERR_NOT_FOUND;
    ZVWAVEFORMAT *f = ZvTemplateAt<ZVWAVEFORMAT>(t, ZVT_OFS_AUDIO_FORMAT);
    DWORD rate = f->samplesPerSec;
    UINT bits = f->BitsPerSample(), channels = f->channels;
    bool isFloat = f->sampleType == ZVSAMPLE_F32 || f->sampleType == ZVSAMPLE_F64;
    if (args.value(L"--rate", &value))
        rate = (DWORD)wcstoul(value.c_str(), nullptr, 10);
    if (args.value(L"--bits", &value)) {
        bits = (UINT)wcstoul(value.c_str(), nullptr, 10);
        isFloat = false;
    }
    if (args.has(L"--float"))
        isFloat = true;
    if (args.value(L"--channels", &value))
        channels = (UINT)wcstoul(value.c_str(), nullptr, 10);
    ZVSAMPLETYPE type = ZvAudio_GetSampleType2(isFloat ? WAVE_FORMAT_IEEE_FLOAT : WAVE_FORMAT_PCM, bits);
    HRESULT hr = S_OK;
    if (type == ZVSAMPLE_NONE || !rate || !channels || channels > 32) {
        Err("zvfio templates save: no such linear format (%u-bit%s, %lu Hz, %u channels)\n", bits,
            isFloat ? " float" : "", (unsigned long)rate, channels);
        hr = ZVFIO_E_USAGE;
    }
    if (SUCCEEDED(hr)) {
        *ZvTemplateAt<DWORD>(t, ZVT_OFS_AUDIO) = ZVTEMPLATE_BLOCK_SIZE;
        f->Init(rate, type, channels, channels == f->channels ? f->channelMask : 0);
        memset(ZvTemplateAt<BYTE>(t, ZVT_OFS_AUDIO_ENCODED), 0, 96);
        std::wstring notes;
        args.value(L"--notes", &notes);
        hr = ZvFio_MakeTemplate(&t, ZVTEMPLATE_VERSION_V2, t, 3, 0, name.c_str(), notes.c_str());
    }
    wchar_t path[MAX_PATH] = L"";
    if (SUCCEEDED(hr)) {
        t->dwPresetId = 0;
        ZvFio_InitGUIDFromTemplateMD5DataHash(&t->templateId, t, FALSE);
        hr = ZvFio_SaveUserTemplate(cls, t, TRUE, path, MAX_PATH);
    }
    if (SUCCEEDED(hr))
        Out("saved %s\n  guid     %s\n  format   %s\n  file     %s\n", Utf8(name).c_str(),
            GuidText(t->templateId).c_str(), FormatText(t).c_str(), Utf8(path).c_str());
    ZvFio_ReleaseTemplate(t);
    return hr;
}

HRESULT RunTemplates(const Args &args)
{
    bool save = !args.files.empty() && args.files[0] == L"save";
    if (args.files.size() != (save ? 3u : 1u))
        return ZVFIO_E_USAGE;
    Manager mgr;
    HRESULT hr = mgr.Create();
    IZvRenderFileClass *cls = nullptr;
    if (SUCCEEDED(hr))
        hr = FindRenderer(mgr, args.files[save ? 1 : 0], &cls);
    if (SUCCEEDED(hr))
        hr = save ? Save(cls, args) : List(mgr, cls, args.json);
    if (cls)
        cls->Release();
    return hr;
}

} // namespace

const Command kTemplatesCommand = {
    "templates",
    "the render templates of a renderer class; save a new one",
    "usage: zvfio templates [--json] CLASS\n"
    "       zvfio templates save CLASS NAME --from TEMPLATE [--rate N] [--bits N]\n"
    "                            [--float] [--channels N] [--notes TEXT]\n"
    "\n"
    "CLASS is a renderer class by its GUID, an extension it writes or a part of\n"
    "its name. The first form lists the class's templates as an application\n"
    "sees them: the presets and the template folders merged by name, each with\n"
    "its name, GUID, where it comes from (\"preset\" or the folder), its audio\n"
    "format and notes. The second copies the template TEMPLATE (a name or a\n"
    "GUID) with the audio format changed as asked and writes it as NAME into\n"
    "the user's template folder of the class.\n",
    "--json --from= --rate= --bits= --float --channels= --notes=",
    RunTemplates,
};

} // namespace zvfio
