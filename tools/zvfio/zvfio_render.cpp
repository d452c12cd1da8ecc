// zvfio render: a file read through the manager's reader and written again
// through a renderer with one of its templates. Samples change type through
// the system's sample copy; rate and channel count never change, since the
// system has no resampler or mixer.
#include "zvfio.h"
#include "zvfio_audio.h"
#include "zvfio_manager.h"
#include "templates/zvtemplatestore.h"
#include "filemng/zvmemtoken.h"
#include "audio/samplecopy.h"
#include "media/zvmeta.h"
#include "media/projectlink.h"
#include <string.h>

namespace zvfio {
namespace {

// The part of a name after its last dot, empty without one.
std::wstring Extension(const std::wstring &path)
{
    size_t dot = path.find_last_of(L".\\/");
    return dot == std::wstring::npos || path[dot] != L'.' ? L"" : path.substr(dot + 1);
}

// A template by file (.zvt2, .zvt or any existing file), by GUID or by name.
HRESULT FindTemplate(IZvRenderFileClass *cls, const std::wstring &key, tagZVTEMPLATExV2 **out)
{
    *out = nullptr;
    std::wstring ext = Extension(key);
    DWORD attributes = GetFileAttributesW(key.c_str());
    if (_wcsicmp(ext.c_str(), L"zvt2") == 0 || _wcsicmp(ext.c_str(), L"zvt") == 0 ||
        (attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY)))
        return ZvFio_LoadRawUserTemplate(cls, key.c_str(), out);
    GUID guid;
    if (key.size() == 38 && SUCCEEDED(CLSIDFromString(key.c_str(), &guid)))
        *out = ZvFio_GetTemplateByGuid(cls, guid);
    if (!*out)
        *out = ZvFio_GetTemplateByName(cls, key.c_str());
    return *out ? S_OK : ZVERR_NOT_FOUND;
}

// Two shared buffers of whole frames: what the reader fills, and what the
// renderer takes when the types differ. Shared memory reaches a plug-in in
// a surrogate without a copy per call.
struct Buffers {
    _zvmemorytoken in = {}, out = {};
    BYTE *inData = nullptr, *outData = nullptr;
    ~Buffers()
    {
        if (inData)
            ZvMemoryToken_ReleaseMapping(&in);
        if (outData)
            ZvMemoryToken_ReleaseMapping(&out);
    }
    static BYTE *Map(_zvmemorytoken *t, DWORD size)
    {
        return SUCCEEDED(ZvMemoryToken_CreateMapping(t, size)) ? (BYTE *)(ULONG_PTR)t->qwBase + t->dwOffset
                                                               : nullptr;
    }
};

// Reads the stream to its end and writes it to the render file.
HRESULT Copy(IZvReadAudioStream *as, const AudioFormat &a, LONGLONG total, IZvRenderFile *file,
             const ZVWAVEFORMAT &to, LONGLONG *done)
{
    *done = 0;
    const DWORD perCall = (DWORD)((8u << 20) / (a.blockAlign > to.blockAlign ? a.blockAlign : to.blockAlign));
    ZVAUDIOCOPYFUNC convert = nullptr;
    if (a.type != to.sampleType && !(convert = ZvAudio_GetCopyFunction2(to.sampleType, a.type)))
        return ZVERR_UNSUPPORTED_MEDIA;
    Buffers b;
    if (!(b.inData = Buffers::Map(&b.in, perCall * a.blockAlign)) ||
        (convert && !(b.outData = Buffers::Map(&b.out, perCall * to.blockAlign))))
        return E_OUTOFMEMORY;
    HRESULT hr = file->BeginWrite(0);
    while (SUCCEEDED(hr) && *done < total) {
        DWORD want = (DWORD)(total - *done < perCall ? total - *done : perCall), got = 0, put = 0;
        hr = as->ReadSamples((DWORD)*done, (LONG)(*done >> 32), b.in, want, &got);
        if (FAILED(hr) || got == 0)
            break;
        if (convert)
            convert(b.outData, b.inData, (int)(got * a.channels), 1.0f);
        hr = file->WriteSamples(0, convert ? b.out : b.in, got, &put);
        if (SUCCEEDED(hr) && put != got)
            hr = ZVERR_FILE_WRITE;
        if (SUCCEEDED(hr))
            *done += got;
    }
    return hr;
}

// Every kind of metadata the reader offers, and its project link, handed to
// the renderer. A reader or renderer without metadata is no failure.
HRESULT CopyMeta(IZvReadFile *from, IZvRenderFile *to)
{
    IZvReadMeta *meta = nullptr;
    if (FAILED(from->GetMeta(&meta)) || !meta)
        return S_OK;
    HRESULT hr = S_OK;
    IZvReadGenericMeta *generic = nullptr;
    if (SUCCEEDED(meta->QueryInterface(IID_IZvReadGenericMeta, (void **)&generic))) {
        IStream *s = nullptr;
        generic->Reset();
        while (SUCCEEDED(hr) && generic->Next(&s) == S_OK && s) {
            ZVMETA_STREAMHEADER head = {};
            ULONG got = 0;
            if (SUCCEEDED(s->Read(&head, sizeof head, &got)) && got == sizeof head && head.count > 0) {
                DWORD bit = ZvFMMeta_KindOfGuid(&head.kind);
                hr = bit ? to->SetMeta(bit, s) : S_OK;
            }
            s->Release();
        }
        generic->Release();
    }
    CZvLinkProjectInfo link;
    BOOL found = FALSE;
    IStream *s = nullptr;
    if (SUCCEEDED(hr) && SUCCEEDED(ProjectLinkReadMeta_LoadInfo(meta, &link, &found)) && found &&
        SUCCEEDED(hr = CreateStreamOnHGlobal(nullptr, TRUE, &s))) {
        if (SUCCEEDED(hr = ProjectLink_SaveToStream(&link, s)))
            hr = to->SetMeta(ZVMETA_PROJECTLINK_STREAM, s);
        s->Release();
    }
    link.FreeMemory();
    meta->Release();
    return hr == E_NOTIMPL ? S_OK : hr;
}

HRESULT RunRender(const Args &args)
{
    std::wstring key, rendererKey;
    if (args.files.size() != 2 || !args.value(L"--template", &key) ||
        (args.has(L"--renderer") && !args.value(L"--renderer", &rendererKey)))
        return ZVFIO_E_USAGE;
    const std::wstring &in = args.files[0], &outPath = args.files[1];
    if (rendererKey.empty())
        rendererKey = Extension(outPath);
    Manager mgr;
    HRESULT hr = mgr.Create();
    if (FAILED(hr))
        return hr;
    IZvRenderFileClass *cls = nullptr;
    hr = rendererKey.empty() ? ZVERR_NOT_FOUND : FindRenderer(mgr, rendererKey, &cls);
    if (FAILED(hr)) {
        Err("zvfio render: no renderer for '%s'; name one with --renderer\n", Utf8(rendererKey).c_str());
        return ZVFIO_E_REPORTED;
    }
    tagZVTEMPLATExV2 *t = nullptr;
    hr = FindTemplate(cls, key, &t);
    if (FAILED(hr)) {
        cls->Release();
        Err("zvfio render: template '%s': %s (0x%08lX)\n", Utf8(key).c_str(), ErrorText(hr).c_str(),
            (unsigned long)hr);
        return ZVFIO_E_REPORTED;
    }
    ZVWAVEFORMAT to = *ZvTemplateAt<ZVWAVEFORMAT>(t, ZVT_OFS_AUDIO_FORMAT);
    LARGE_INTEGER t0, t1, freq;
    QueryPerformanceFrequency(&freq);
    QueryPerformanceCounter(&t0);
    OpenedFile f;
    IZvReadAudioStream *as = nullptr;
    AudioFormat a;
    LONGLONG total = 0;
    hr = mgr->OpenReader(in.c_str(), &f.file, 0);
    LONG audio = SUCCEEDED(hr) ? FirstAudioStream(f.file) : -1;
    if (SUCCEEDED(hr) && audio < 0)
        hr = ZVERR_NOT_FOUND;
    if (SUCCEEDED(hr))
        hr = OpenAudio(f.file, audio, &as, &a, &total);
    if (SUCCEEDED(hr) && (!a.valid || a.blockAlign == 0))
        hr = ZVERR_MALFORMED;
    if (FAILED(hr)) {
        Err("zvfio render: %s: %s (0x%08lX)\n", Utf8(in).c_str(), FailureText(in, hr).c_str(), (unsigned long)hr);
        hr = ZVFIO_E_REPORTED;
    } else if (a.rate != to.samplesPerSec || a.channels != to.channels) {
        Err("zvfio render: %s has %lu Hz, %u channel%s; template '%s' wants %s: there is no resampling or "
            "channel mixing, pick a template with the input's rate and channels\n",
            Utf8(in).c_str(), (unsigned long)a.rate, a.channels, a.channels == 1 ? "" : "s",
            Utf8(ZvFio_GetTemplateName(t)).c_str(), FormatText(t).c_str());
        hr = ZVFIO_E_REPORTED;
    }
    IZvRenderFile *file = nullptr;
    if (SUCCEEDED(hr))
        hr = cls->CreateFile(&file, outPath.c_str(), t, ZVFIO_STREAMMASK_AUDIO, 0);
    LONGLONG done = 0;
    if (file) {
        hr = Copy(as, a, total, file, to, &done);
        if (SUCCEEDED(hr) && !args.has(L"--no-meta"))
            hr = CopyMeta(f.file, file);
        HRESULT closed = SUCCEEDED(hr) ? file->EndWrite(0) : file->Abort();
        if (SUCCEEDED(hr))
            hr = closed;
        file->Release();
    }
    if (as)
        as->Release();
    QueryPerformanceCounter(&t1);
    if (SUCCEEDED(hr)) {
        // what an application would offer next time
        ZvFio_SaveAppLastUsedTemplate(cls, t, L"", TRUE);
        Out("%s: %lld samples, %s, template '%s', %.3f s\n", Utf8(outPath).c_str(), (long long)done,
            FormatText(t).c_str(), Utf8(ZvFio_GetTemplateName(t)).c_str(),
            (double)(t1.QuadPart - t0.QuadPart) / (double)freq.QuadPart);
    } else if (hr != ZVFIO_E_REPORTED) {
        Err("zvfio render: %s: %s (0x%08lX)\n", Utf8(outPath).c_str(), FailureText(outPath, hr).c_str(),
            (unsigned long)hr);
        hr = ZVFIO_E_REPORTED;
    }
    ZvFio_ReleaseTemplate(t);
    cls->Release();
    return hr;
}

} // namespace

const Command kRenderCommand = {
    "render", "writes a file anew through a renderer and template",
    "usage: zvfio render --template NAME|GUID|FILE.zvt2 [--renderer CLASS] IN OUT\n"
    "\n"
    "Reads the first audio stream of IN through its reader and writes it to\n"
    "OUT through a renderer with the template given by name, GUID or template\n"
    "file. The renderer is the one for OUT's extension unless --renderer names\n"
    "a class (GUID, extension or part of its name). Samples are converted to\n"
    "the template's sample type; rate and channel count must already match\n"
    "the template's, as nothing resamples or mixes channels. On success the\n"
    "template becomes the class's last used template. A failure leaves no OUT.\n"
    "The metadata IN's reader offers (markers, INFO, bext, iXML and the other\n"
    "kinds) and its project link go to OUT as well, where the renderer takes\n"
    "them: wave and Wave64 take all; AIFF takes markers (a region keeps its\n"
    "start), sampler loops, raw chunks and the title, artist, copyright and\n"
    "comment (NAME, AUTH, (c), ANNO), and no project link.\n"
    "\n"
    "  --no-meta   leave the metadata and the project link behind\n",
    "--template= --renderer= --no-meta",
    RunRender,
};

} // namespace zvfio
