// The commands that go through the file I/O manager: the plug-in list,
// identification, stream information and reading. They share one manager
// made in this process; routed plug-ins run in their surrogates.
#include "zvfio.h"
#include "zvfio_failures.h"
#include "zvfio_manager.h"
#include "zvfio_audio.h"
#include "zvfio_read.h"
#include "filemng/filemng.h"
#include "filemng/fioidentify.h"
#include "filemng/surrogatetable.h"
#include "filemng/zvmemtoken.h"
#include "audio/waveformat.h"
#include "zverror.h"
#include "zvproxy.h"
#include <stdio.h>
#include <io.h>
#include <string.h>

namespace zvfio {

std::string GuidText(const GUID &g)
{
    wchar_t text[64];
    StringFromGUID2(g, text, 64);
    return Utf8(text);
}

namespace {

// Handles of the surrogate processes this process started, to wait on.
std::vector<HANDLE> SurrogateProcesses()
{
    std::vector<HANDLE> handles;
    ZVFIO_SURROGATETABLE *t = g_pZvFioSurrogateTable;
    for (LONG i = 0; t && i < t->used && i < ZVFIO_SURROGATE_SLOTS; ++i) {
        DWORD pid = t->slots[i].processId;
        HANDLE h = pid ? OpenProcess(SYNCHRONIZE, FALSE, pid) : nullptr;
        if (h)
            handles.push_back(h);
    }
    return handles;
}

// A surrogate ends by itself once its last reference is gone, after a
// pause for its manager's clean-up; the command ends after it, so that
// nothing it started outlives it.
void AwaitSurrogates(std::vector<HANDLE> &handles)
{
    const DWORD limit = 10000;
    DWORD start = GetTickCount();
    for (HANDLE h : handles) {
        DWORD spent = GetTickCount() - start;
        if (WaitForSingleObject(h, spent < limit ? limit - spent : 0) != WAIT_OBJECT_0)
            Err("zvfio: surrogate process %lu did not end\n", (unsigned long)GetProcessId(h));
        CloseHandle(h);
    }
    handles.clear();
}

} // namespace

Manager::~Manager()
{
    std::vector<HANDLE> surrogates = SurrogateProcesses();
    if (app_) {
        app_->CleanUp();
        app_->Release();
    }
    if (com_)
        CoUninitialize();
    AwaitSurrogates(surrogates);
}

HRESULT Manager::Create(DWORD flags)
{
    com_ = SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    ZvProxy_Register();
    long reserved = 0;
    HRESULT hr = ZVFileIO_CreateInstance(&app_, nullptr, flags, nullptr, reserved);
    if (FAILED(hr))
        return hr;
    return app_ ? S_OK : E_FAIL;
}

namespace {

std::string ClassName(IZvReadFileClass *cls)
{
    ZVFIO_FILECLASS_INFO_TEXT id = ZVFIO_INFOTEXT_SHORTNAME;
    BSTR text = nullptr;
    std::string name;
    if (cls && SUCCEEDED(cls->GetInfoText(&id, 1, &text)) && text)
        name = Utf8(text);
    SysFreeString(text);
    return name;
}

// Where a loaded plug-in runs: this process or its surrogate.
std::string Where(const ZVFIO_PLUGININFO *r)
{
    if (!(r->dwRecordFlags & ZVFIO_RF_SURROGATE))
        return "in process";
    ZVFIO_SURROGATESLOT *slot = ZvFioSurrogateTable_FindSlot(r->Surrogate);
    char text[64];
    snprintf(text, sizeof text, "surrogate pid %lu", slot ? (unsigned long)slot->processId : 0ul);
    return text;
}

// The record of a reader class, by its id.
const ZVFIO_PLUGININFO *ReaderRecord(CZvFileIOManager *mgr, const GUID &id)
{
    tZVLIST *list = mgr->readerList();
    for (int i = 0; list && i < list->count; ++i) {
        const ZVFIO_PLUGININFO *r = (const ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
        if (r && IsEqualGUID(r->clsidReader, id))
            return r;
    }
    return nullptr;
}

const char *StateText(LONG state, bool loaded)
{
    if (loaded)
        return "loaded";
    return state == ZVFIO_STATE_FAILED ? "failed" : "not loaded";
}

std::string ErrorText(HRESULT hr)
{
    const wchar_t *t = ZvErrorHandler_GetHresultString(hr);
    std::string text = Utf8(t ? t : L"");
    text.erase(0, text.find_first_not_of("\r\n "));
    for (char &c : text)
        if (c == '\r' || c == '\n')
            c = ' ';
    return text;
}

// Tells of each plug-in whose surrogate couldn't be started (on the error
// output) and gives the first such failure, S_OK when there is none.
HRESULT ReportSurrogateFailures(CZvFileIOManager *mgr, const char *command)
{
    HRESULT first = S_OK;
    tZVLIST *list = mgr->pluginList();
    for (int i = 0; list && i < list->count; ++i) {
        const ZVFIO_PLUGININFO *r = (const ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
        if (!r || SUCCEEDED(r->hrSurrogate))
            continue;
        Err("zvfio %s: %s: the surrogate of group %ld could not be started: %s (0x%08lX)\n", command,
            Utf8(r->szPath).c_str(), (long)r->Surrogate, ErrorText(r->hrSurrogate).c_str(),
            (unsigned long)r->hrSurrogate);
        if (SUCCEEDED(first))
            first = r->hrSurrogate;
    }
    return first;
}

HRESULT Plugins(const Args &args)
{
    if (!args.files.empty())
        return ZVFIO_E_USAGE;
    const bool load = args.has(L"--load");
    Manager mgr;
    // a full listing writes the cache anew, with each DLL's group as configured now
    HRESULT hr = mgr.Create(args.has(L"--rescan") ? ZVFIO_CREATE_FULLLISTING : 0);
    if (FAILED(hr))
        return hr;
    tZVLIST *list = mgr->pluginList();
    if (args.json)
        Out("[");
    int shown = 0;
    for (int i = 0; list && i < list->count; ++i) {
        ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
        if (!r || (r->dwRecordFlags & ZVFIO_RF_UNUSABLE))
            continue; // a surrogate that didn't start is told at the end
        const bool reader = (r->Access & ZVFIO_ACCESS_READER) != 0;
        const bool renderer = (r->Access & ZVFIO_ACCESS_RENDERER) != 0;
        HRESULT loadResult = S_OK;
        if (load) {
            if (reader) {
                IZvReadFileClass *c = nullptr;
                loadResult = mgr->getReader(r, &c);
                if (c)
                    c->Release();
            }
            if (renderer) {
                IZvRenderFileClass *c = nullptr;
                HRESULT h = mgr->getRenderer(r, &c);
                if (c)
                    c->Release();
                if (SUCCEEDED(loadResult))
                    loadResult = h;
            }
        }
        const bool loaded = r->pReaderClass || r->pRendererClass;
        const char *kind = reader && renderer ? "reader+renderer" : reader ? "reader" : "renderer";
        std::string exts = Utf8(r->ExtReader ? r->ExtReader : r->ExtRenderer ? r->ExtRenderer : L"");
        std::string state = StateText(reader ? r->nReaderState : r->nRendererState, loaded);
        std::string where = loaded ? Where(r) : std::string(r->Surrogate > 0 ? "surrogate" : "in process");
        if (args.json) {
            Out("%s\n  {\"id\": %s, \"reader\": %s, \"renderer\": %s, \"name\": %s, \"kind\": \"%s\", "
                "\"extensions\": %s, \"path\": %s, \"group\": %ld, \"merit\": %lu, \"state\": \"%s\", "
                "\"where\": %s",
                shown ? "," : "", JsonString(GuidText(r->clsidPlugin)).c_str(),
                JsonString(reader ? GuidText(r->clsidReader) : "").c_str(),
                JsonString(renderer ? GuidText(r->clsidRenderer) : "").c_str(),
                JsonString(Utf8(r->szName)).c_str(), kind, JsonString(exts).c_str(),
                JsonString(Utf8(r->szPath)).c_str(), (long)r->Surrogate, (unsigned long)r->MeritValue,
                state.c_str(), JsonString(where).c_str());
            if (load && FAILED(loadResult))
                Out(", \"error\": \"0x%08lX\"", (unsigned long)loadResult);
            Out("}");
        } else {
            Out("%s  %s  %s\n", GuidText(r->clsidPlugin).c_str(), kind, Utf8(r->szName).c_str());
            if (reader)
                Out("    reader    %s\n", GuidText(r->clsidReader).c_str());
            if (renderer)
                Out("    renderer  %s\n", GuidText(r->clsidRenderer).c_str());
            Out("    ext       %s\n    path      %s\n    group     %ld   merit %lu\n    state     %s, %s\n",
                exts.c_str(), Utf8(r->szPath).c_str(), (long)r->Surrogate, (unsigned long)r->MeritValue,
                state.c_str(), where.c_str());
            if (load && FAILED(loadResult))
                Out("    error     0x%08lX %s\n", (unsigned long)loadResult, ErrorText(loadResult).c_str());
        }
        ++shown;
    }
    // with --load, the configured DLLs that offer nothing, and why
    for (const PluginFailure &f : load ? ConfiguredPluginFailures(list) : std::vector<PluginFailure>()) {
        if (args.json)
            Out("%s\n  {\"path\": %s, \"state\": \"failed\", \"record\": %s, \"reason\": %s}", shown ? "," : "",
                JsonString(Utf8(f.path)).c_str(), JsonString(f.state).c_str(), JsonString(f.reason).c_str());
        else
            Out("failed  %s\n    state     %s\n    reason    %s\n", Utf8(f.path).c_str(), f.state.c_str(),
                f.reason.c_str());
        ++shown;
    }
    if (args.json)
        Out("\n]\n");
    HRESULT failed = ReportSurrogateFailures(mgr.get(), "plugins");
    if (!args.json && !shown && SUCCEEDED(failed))
        Out("no plug-ins found\n");
    return failed;
}

HRESULT Identify(const Args &args)
{
    if (args.files.empty())
        return ZVFIO_E_USAGE;
    Manager mgr;
    HRESULT hr = mgr.Create();
    if (FAILED(hr))
        return hr;
    HRESULT first = S_OK;
    for (const std::wstring &f : args.files) {
        HANDLE h = CreateFileW(f.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                               FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
        LONG index = -1;
        IZvReadFileClass *cls = nullptr;
        if (h == INVALID_HANDLE_VALUE)
            hr = ZvErrorHandler_TranslateWin32Error(GetLastError());
        else {
            // by content only: the pass by name would take any file named like a reader's
            hr = mgr->IdentifyFileType((UINT64)(LONG_PTR)h, f.c_str(), &index, 0);
            CloseHandle(h);
        }
        if (SUCCEEDED(hr))
            hr = mgr->GetReaderClass(&cls, index);
        if (SUCCEEDED(hr) && cls) {
            GUID id = GUID_NULL;
            cls->GetClassGuid(&id);
            Out("%s: %s %s\n", Utf8(f).c_str(), ClassName(cls).c_str(), GuidText(id).c_str());
            cls->Release();
        } else {
            Out("%s: error 0x%08lX %s\n", Utf8(f).c_str(), (unsigned long)hr, FailureText(f, hr).c_str());
            if (SUCCEEDED(first))
                first = FAILED(hr) ? hr : E_FAIL;
        }
    }
    // a reader that couldn't start is the cause, not the file
    HRESULT failed = ReportSurrogateFailures(mgr.get(), "identify");
    return FAILED(first) && FAILED(failed) ? failed : first;
}

} // namespace

LONG FirstAudioStream(IZvReadFile *file)
{
    LONG streams = 0;
    file->GetStreamCount(&streams);
    for (LONG i = 0; i < streams; ++i) {
        ZVFILESTREAMTYPE type = ZVFILESTREAMTYPE_NONE;
        DWORD sub = 0;
        if (SUCCEEDED(file->GetStreamType(i, &type, &sub)) && type == ZVFILESTREAMTYPE_AUDIO)
            return i;
    }
    return -1;
}

AudioFormat FormatOf(const _ZVFILESTREAMFORMATINFOv2 &info)
{
    AudioFormat f;
    if (info.dwStreamType != ZVFILESTREAMTYPE_AUDIO)
        return f;
    _zvwaveformat wf;
    memcpy(&wf, info.format, sizeof wf < sizeof info.format ? sizeof wf : sizeof info.format);
    f.valid = true;
    f.type = wf.sampleType;
    f.rate = wf.samplesPerSec;
    f.channels = wf.channels;
    f.bits = ZvAudio_BitsFromSampleType(wf.sampleType);
    f.blockAlign = wf.blockAlign ? wf.blockAlign : ZvAudio_BytesFromSampleType(wf.sampleType) * wf.channels;
    f.isFloat = wf.sampleType == ZVSAMPLE_F32 || wf.sampleType == ZVSAMPLE_F64;
    f.length = info.llLength;
    return f;
}

// Opens stream `index` as an audio stream: the stream (null on a failure
// to open it), its format and its length; the result of the format query.
HRESULT OpenAudio(IZvReadFile *file, LONG index, IZvReadAudioStream **as, AudioFormat *a, LONGLONG *total)
{
    *as = nullptr;
    IZvReadStream *s = nullptr;
    HRESULT hr = file->OpenStream(&s, index, ZVFILESTREAMTYPE_AUDIO, 0, 0);
    if (FAILED(hr))
        return hr;
    hr = s->QueryInterface(IID_IZvReadAudioStream, (void **)as);
    s->Release();
    if (FAILED(hr))
        return hr;
    _ZVFILESTREAMFORMATINFOv2 info;
    memset(&info, 0, sizeof info);
    info.cbSize = sizeof info;
    hr = (*as)->GetStreamFormatInfo(&info);
    *a = SUCCEEDED(hr) ? FormatOf(info) : AudioFormat();
    (*as)->GetSampleCount(total);
    return hr;
}

namespace {

const char *StreamTypeText(ZVFILESTREAMTYPE t)
{
    switch (t) {
    case ZVFILESTREAMTYPE_AUDIO: return "audio";
    case ZVFILESTREAMTYPE_VIDEO: return "video";
    case ZVFILESTREAMTYPE_TEXT: return "text";
    case ZVFILESTREAMTYPE_DATA: return "data";
    default: return "none";
    }
}

HRESULT Info(const Args &args)
{
    if (args.files.size() != 1)
        return ZVFIO_E_USAGE;
    const std::wstring &path = args.files[0];
    Manager mgr;
    HRESULT hr = mgr.Create();
    if (FAILED(hr))
        return hr;
    OpenedFile f;
    hr = mgr->OpenReader(path.c_str(), &f.file, 0);
    if (FAILED(hr))
        return hr;
    std::string readerName, readerId, where = "in process";
    IZvReadFileClass *cls = nullptr;
    if (SUCCEEDED(f.file->GetClass(&cls)) && cls) {
        GUID id = GUID_NULL;
        cls->GetClassGuid(&id);
        readerName = ClassName(cls);
        readerId = GuidText(id);
        cls->Release();
        if (const ZVFIO_PLUGININFO *r = ReaderRecord(mgr.get(), id))
            where = Where(r);
    }
    LONGLONG bytes = 0;
    f.file->GetLength(&bytes);
    DWORD meta = 0;
    f.file->GetMetaTypes(&meta);
    LONG streams = 0;
    hr = f.file->GetStreamCount(&streams);
    if (FAILED(hr))
        return hr;
    if (args.json)
        Out("{\"file\": %s, \"reader\": %s, \"readerId\": %s, \"where\": %s, \"bytes\": %lld, "
            "\"metaTypes\": \"0x%08lX\", \"streams\": [",
            JsonString(Utf8(path)).c_str(), JsonString(readerName).c_str(), JsonString(readerId).c_str(),
            JsonString(where).c_str(), (long long)bytes, (unsigned long)meta);
    else
        Out("%s\n  reader   %s %s\n  runs     %s\n  bytes    %lld\n  metadata 0x%08lX\n  streams  %ld\n",
            Utf8(path).c_str(), readerName.c_str(), readerId.c_str(), where.c_str(), (long long)bytes,
            (unsigned long)meta, (long)streams);
    for (LONG i = 0; i < streams; ++i) {
        ZVFILESTREAMTYPE type = ZVFILESTREAMTYPE_NONE;
        DWORD sub = 0;
        f.file->GetStreamType(i, &type, &sub);
        _ZVFILESTREAMFORMATINFOv2 info;
        memset(&info, 0, sizeof info);
        info.cbSize = sizeof info;
        HRESULT fh = f.file->GetStreamFormatInfo(&info, i, 2);
        AudioFormat a = SUCCEEDED(fh) ? FormatOf(info) : AudioFormat();
        double seconds = a.valid && a.rate ? (double)a.length / a.rate : 0.0;
        if (args.json) {
            Out("%s\n  {\"index\": %ld, \"type\": \"%s\"", i ? "," : "", (long)i, StreamTypeText(type));
            if (a.valid)
                Out(", \"rate\": %lu, \"channels\": %u, \"bits\": %u, \"float\": %s, \"samples\": %lld, "
                    "\"seconds\": %.6f",
                    (unsigned long)a.rate, a.channels, a.bits, a.isFloat ? "true" : "false", (long long)a.length,
                    seconds);
            Out("%s}", SUCCEEDED(fh) ? DescribeVideo(info, true).c_str() : "");
        } else {
            Out("  stream %ld: %s", (long)i, StreamTypeText(type));
            if (a.valid)
                Out(", %lu Hz, %u channel%s, %u-bit %s, %lld samples (%.3f s)", (unsigned long)a.rate, a.channels,
                    a.channels == 1 ? "" : "s", a.bits, a.isFloat ? "float" : "int", (long long)a.length, seconds);
            Out("%s\n", SUCCEEDED(fh) ? DescribeVideo(info, false).c_str() : "");
        }
    }
    if (args.json)
        Out("\n]}\n");
    return S_OK;
}

HRESULT Read(const Args &args)
{
    std::wstring rawPath, stream = L"audio";
    args.value(L"--stream", &stream);
    if (stream == L"video")
        return ReadVideo(args);
    if (stream != L"audio")
        return ZVFIO_E_USAGE;
    if (args.files.size() != 1 || (args.has(L"--raw") && !args.value(L"--raw", &rawPath)))
        return ZVFIO_E_USAGE;
    const std::wstring path = args.files[0];
    Manager mgr;
    HRESULT hr = mgr.Create();
    if (FAILED(hr))
        return hr;
    LARGE_INTEGER t0, t1, freq;
    QueryPerformanceFrequency(&freq);
    QueryPerformanceCounter(&t0);
    OpenedFile f;
    hr = mgr->OpenReader(path.c_str(), &f.file, 0);
    if (FAILED(hr))
        return hr;
    LONG audio = FirstAudioStream(f.file);
    if (audio < 0) {
        Err("zvfio read: the file has no audio stream\n");
        return ZVERR_NOT_FOUND;
    }
    IZvReadAudioStream *as = nullptr;
    AudioFormat a;
    LONGLONG total = 0;
    hr = OpenAudio(f.file, audio, &as, &a, &total);
    if (!as)
        return hr;
    if (FAILED(hr) || !a.valid || a.blockAlign == 0) {
        as->Release();
        return FAILED(hr) ? hr : ZVERR_MALFORMED;
    }
    // The samples go to a temporary name beside OUT, renamed at the end, or
    // to standard output for "-"; a failure or Ctrl-C removes the partial file.
    RawOutput out;
    if (!rawPath.empty()) {
        hr = out.Open(rawPath);
        if (FAILED(hr)) {
            as->Release();
            Err("zvfio read: %s: %s (0x%08lX)\n", Utf8(rawPath).c_str(), ErrorText(hr).c_str(), (unsigned long)hr);
            return ZVFIO_E_REPORTED;
        }
    }
    HANDLE raw = out.handle;
    Progress progress(args, total);
    // about 4 MiB a call, whole frames
    const DWORD perCall = (DWORD)((4u << 20) / a.blockAlign);
    const DWORD bufferSize = perCall * a.blockAlign;
    // Shared memory by default: a reader in a surrogate writes straight into
    // it, where private memory would be copied across for every call.
    const bool shared = !args.has(L"--private-buffer");
    _zvmemorytoken token;
    BYTE *buffer = nullptr;
    if (shared) {
        if (SUCCEEDED(ZvMemoryToken_CreateMapping(&token, bufferSize)))
            buffer = (BYTE *)(ULONG_PTR)token.qwBase + token.dwOffset;
    } else {
        buffer = (BYTE *)VirtualAlloc(nullptr, bufferSize, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
        ZvMemoryToken_InitLocal(&token, buffer, bufferSize, ZVMEMTOKEN_KIND_LOCAL);
    }
    if (!buffer) {
        as->Release();
        return E_OUTOFMEMORY;
    }
    LONGLONG position = 0;
    hr = S_OK;
    while (position < total) {
        DWORD want = (DWORD)((total - position) < perCall ? (total - position) : perCall);
        DWORD got = 0;
        hr = as->ReadSamples((DWORD)position, (LONG)(position >> 32), token, want, &got);
        if (FAILED(hr))
            break;
        if (got == 0) {
            hr = S_OK;
            break;
        }
        if (g_interrupted) {
            hr = ZVERR_CANCELLED;
            break;
        }
        if (raw != INVALID_HANDLE_VALUE) {
            DWORD written = 0;
            if (!WriteFile(raw, buffer, got * a.blockAlign, &written, nullptr) || written != got * a.blockAlign) {
                hr = ZvErrorHandler_TranslateWin32Error(GetLastError());
                break;
            }
        }
        position += got;
        progress.Show(position);
    }
    progress.Done();
    QueryPerformanceCounter(&t1);
    if (shared)
        ZvMemoryToken_ReleaseMapping(&token);
    else
        VirtualFree(buffer, 0, MEM_RELEASE);
    as->Release();
    if (SUCCEEDED(hr))
        hr = out.Finish();
    else
        out.Discard();
    if (hr == ZVERR_CANCELLED) {
        Err("zvfio read: %s: interrupted; no output kept\n", Utf8(path).c_str());
        return ZVFIO_E_REPORTED;
    }
    if (FAILED(hr))
        return hr;
    double seconds = (double)(t1.QuadPart - t0.QuadPart) / (double)freq.QuadPart;
    double bytes = (double)position * a.blockAlign;
    // with the samples on standard output, the summary goes to standard error
    void (*say)(const char *, ...) = out.toStdout ? Err : Out;
    say("%s: %lld samples, %.0f bytes, %.3f s, %.1f MB/s\n", Utf8(path).c_str(), (long long)position, bytes,
        seconds, seconds > 0 ? bytes / seconds / 1e6 : 0.0);
    if (position < total)
        say("  the stream ended %lld samples early\n", (long long)(total - position));
    return S_OK;
}

} // namespace

const Command kPluginsCommand = {
    "plugins", "the plug-ins the manager finds",
    "usage: zvfio plugins [--load] [--rescan] [--json]\n"
    "\n"
    "Lists the classes of the plug-ins named by the *.Fio2007-Config files\n"
    "beside zvfio.exe: plug-in class id, reader and renderer class ids, name,\n"
    "extensions, DLL path, surrogate group, merit and load state. Without\n"
    "--load nothing that the plug-in cache describes is loaded.\n"
    "\n"
    "  --load   load every class and say where it runs (this process or the\n"
    "           surrogate's process id), with the error of a failed load\n"
    "  --rescan ask every DLL again instead of the plug-in cache, and write\n"
    "           the cache anew: needed after a configuration file's group\n"
    "           (Surrogate=) changed, since the cache keeps a DLL's group\n"
    "           until the DLL itself changes\n"
    "  --json   the list as JSON\n",
    "--load --rescan --json",
    Plugins,
};

const Command kIdentifyCommand = {
    "identify", "which reader takes each file",
    "usage: zvfio identify FILE...\n"
    "\n"
    "Names the reader class that the manager picks for each file, or the\n"
    "system's error code and text. Exit code 1 when any file failed.\n",
    "",
    Identify,
};

const Command kInfoCommand = {
    "info", "streams and formats of a file",
    "usage: zvfio info [--json] FILE\n"
    "\n"
    "Opens the file with its reader and prints the reader, where it runs\n"
    "(this process or its surrogate's process id), the file's size and\n"
    "metadata kinds, and each stream: for audio rate, channels, bits, float\n"
    "or integer, length; for video size, frame rate, FourCC and its name,\n"
    "bits and frames.\n",
    "--json",
    Info,
};

const Command kReadCommand = {
    "read", "reads the first audio or video stream of a file",
    "usage: zvfio read [--stream audio|video] [--pixel bgra|native]\n"
    "                  [--matrix auto|bt601|bt709|bt2020] [--raw OUT]\n"
    "                  [--progress|--quiet] [--private-buffer] FILE\n"
    "\n"
    "Reads the first audio stream (or video stream) to its end and prints\n"
    "samples (frames), bytes and throughput.\n"
    "\n"
    "  --stream video    read frames instead of samples\n"
    "  --pixel bgra      frames as top-down 8-bit BGRA (the default)\n"
    "  --pixel native    frames as the file stores them\n"
    "  --matrix M        colour matrix of YUV frames; auto picks by frame size\n"
    "  --raw OUT         write the decoded samples, interleaved little-endian,\n"
    "                    or the frames one after the other, to OUT (first to\n"
    "                    OUT.zvfio-partial, renamed at the end; a failure or\n"
    "                    Ctrl-C leaves no OUT); '-' writes them to standard\n"
    "                    output and the summary to standard error\n"
    "  --progress        show progress on standard error even when it is not a\n"
    "                    terminal\n"
    "  --quiet           show no progress\n"
    "  --private-buffer  read into private memory instead of shared memory; a\n"
    "                    reader in a surrogate then gets a copy for each call\n",
    "--raw= --stream= --pixel= --matrix= --private-buffer --progress --quiet",
    Read,
};

struct ReadSession::Impl {
    Manager mgr;
    HRESULT created = S_FALSE;
};

ReadSession::ReadSession() : impl_(new Impl) {}

ReadSession::~ReadSession() { delete impl_; }

// Opens the file through the session's manager and reads the first audio
// stream to its end, for commands that check a file they changed.
HRESULT ReadSession::Read(const std::wstring &path, LONGLONG *frames, LONGLONG *expected)
{
    *frames = *expected = 0;
    if (impl_->created == S_FALSE)
        impl_->created = impl_->mgr.Create();
    HRESULT hr = impl_->created;
    OpenedFile f;
    if (SUCCEEDED(hr))
        hr = impl_->mgr->OpenReader(path.c_str(), &f.file, 0);
    IZvReadAudioStream *as = nullptr;
    AudioFormat a;
    if (SUCCEEDED(hr))
        hr = OpenAudio(f.file, 0, &as, &a, expected);
    if (!as)
        return hr;
    const DWORD perCall = a.blockAlign ? (DWORD)((1u << 20) / a.blockAlign) : 0;
    std::vector<BYTE> buffer((size_t)perCall * a.blockAlign);
    _zvmemorytoken token;
    if (perCall)
        ZvMemoryToken_InitLocal(&token, buffer.data(), (DWORD)buffer.size(), ZVMEMTOKEN_KIND_LOCAL);
    else if (SUCCEEDED(hr))
        hr = ZVERR_MALFORMED;
    while (SUCCEEDED(hr) && *frames < *expected) {
        LONGLONG left = *expected - *frames;
        DWORD got = 0;
        hr = as->ReadSamples((DWORD)*frames, (LONG)(*frames >> 32), token, left < perCall ? (DWORD)left : perCall, &got);
        if (SUCCEEDED(hr) && got == 0)
            break;
        *frames += got;
    }
    as->Release();
    return hr;
}

} // namespace zvfio
