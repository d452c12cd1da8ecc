// zvfio validate: loads one plug-in the way a host would, from a host folder
// of its own (its own configuration and plug-in cache, never the user's), and
// runs each check in a child process with a time limit, so that a crash or a
// hang is a finding rather than the end of the run.
//
// The parent copies this program, the plug-in and, for --routed, the
// surrogate into the host folder, writes the configuration, then starts
// "zvfio validate --child=CHECK" there once per check. A child prints one
// verdict line ("pass: ...", "fail: ...", "skip: ...") and exits 0, 1 or 77;
// its exception filter prints "crash: ..." with the error handler's text.
#include "zvfio.h"
#include "zvfio_manager.h"
#include "zvfio_failures.h"
#include "zverror.h"
#include "zvpaths.h"
#include "zvlist.h"
#include "zvhandlecount.h"
#include "filemng/surrogatetable.h"
#include "filemng/zvmemtoken.h"
#include "audio/waveformat.h"
#include <psapi.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <algorithm>
#include <atomic>
#include <thread>

namespace zvfio {
namespace {

std::wstring ExePath()
{
    wchar_t path[MAX_PATH];
    return SUCCEEDED(ZvGetModuleFileName(nullptr, path, MAX_PATH)) ? path : L"";
}

// The program's folder, with a trailing backslash.
std::wstring ExeDir()
{
    wchar_t path[MAX_PATH];
    return SUCCEEDED(ZvGetModulePath(nullptr, path, MAX_PATH)) ? path : L"";
}

bool ReadFileBytes(const std::wstring &path, std::vector<BYTE> &out)
{
    out.clear();
    HANDLE h = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                           nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return false;
    LARGE_INTEGER size = {};
    GetFileSizeEx(h, &size);
    out.resize((size_t)std::min<LONGLONG>(size.QuadPart, 64 << 20));
    DWORD got = 0;
    BOOL ok = out.empty() || ReadFile(h, out.data(), (DWORD)out.size(), &got, nullptr);
    CloseHandle(h);
    out.resize(got);
    return ok;
}

bool WriteFileBytes(const std::wstring &path, const void *data, size_t size)
{
    HANDLE h = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return false;
    DWORD put = 0;
    BOOL ok = !size || WriteFile(h, data, (DWORD)size, &put, nullptr);
    CloseHandle(h);
    return ok && put == size;
}

// --- the child's side ---------------------------------------------------------

struct Verdict {
    int code;            // 0 pass, 1 fail, 77 skip
    std::string text;
};

Verdict Pass(const char *format, ...) __attribute__((format(gnu_printf, 1, 2)));
Verdict Fail(const char *format, ...) __attribute__((format(gnu_printf, 1, 2)));
Verdict Skip(const char *text) { return {77, text}; }

std::string VFormat(const char *format, va_list args)
{
    char text[1024];
    vsnprintf(text, sizeof text, format, args);
    return text;
}
Verdict Pass(const char *format, ...)
{
    va_list a;
    va_start(a, format);
    Verdict v{0, VFormat(format, a)};
    va_end(a);
    return v;
}
Verdict Fail(const char *format, ...)
{
    va_list a;
    va_start(a, format);
    Verdict v{1, VFormat(format, a)};
    va_end(a);
    return v;
}

std::string Code(HRESULT hr)
{
    char text[32];
    snprintf(text, sizeof text, "0x%08lX", (unsigned long)hr);
    return std::string(text) + " (" + ErrorText(hr) + ")";
}

// The plug-in's records: the host folder configures no other.
std::vector<const ZVFIO_PLUGININFO *> Records(CZvFileIOManager *mgr)
{
    std::vector<const ZVFIO_PLUGININFO *> out;
    tZVLIST *list = mgr->pluginList();
    for (int i = 0; list && i < list->count; ++i) {
        auto *r = (const ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
        if (r && !(r->dwRecordFlags & ZVFIO_RF_UNUSABLE))
            out.push_back(r);
    }
    return out;
}

struct Stream {
    IZvReadFile *file = nullptr;
    IZvReadAudioStream *audio = nullptr;
    LONGLONG frames = 0;
    DWORD align = 0;
    ~Stream()
    {
        if (audio)
            audio->Release();
        if (file)
            file->Release();
    }
};

// Opens a file's first audio stream through the manager; "" or the failure.
std::string OpenAudio(CZvFileIOManager *mgr, const std::wstring &path, Stream &s)
{
    HRESULT hr = mgr->OpenReader(path.c_str(), &s.file, 0);
    if (FAILED(hr) || !s.file)
        return "OpenReader(" + Utf8(path) + ") gave " + Code(hr);
    LONG count = 0;
    s.file->GetStreamCount(&count);
    for (LONG i = 0; i < count && !s.audio; ++i) {
        IZvReadStream *any = nullptr;
        if (FAILED(s.file->OpenStream(&any, i, ZVFILESTREAMTYPE_AUDIO, 0, 0)) || !any)
            continue;
        any->QueryInterface(IID_IZvReadAudioStream, (void **)&s.audio);
        any->Release();
    }
    if (!s.audio)
        return "no audio stream";
    if (FAILED(hr = s.audio->GetSampleCount(&s.frames)))
        return "GetSampleCount gave " + Code(hr);
    if (FAILED(hr = s.audio->GetBlockAlign(&s.align)) || !s.align)
        return "GetBlockAlign gave " + Code(hr) + ", block " + std::to_string(s.align);
    return "";
}

// Reads frames [from, from + count) in calls of `per` frames; "" or the failure.
// Unless `exact`, an early end (a read of 0 frames) ends the range there.
std::string ReadRange(IZvReadAudioStream *audio, DWORD align, LONGLONG from, LONGLONG count, DWORD per,
                      std::vector<BYTE> &out, bool exact = true)
{
    // grown as frames arrive: a stream may claim far more than it holds
    out.clear();
    out.reserve((size_t)std::min<LONGLONG>(count, 1 << 20) * align);
    std::vector<BYTE> buffer((size_t)per * align);
    _zvmemorytoken token;
    ZvMemoryToken_InitLocal(&token, buffer.data(), (DWORD)buffer.size(), ZVMEMTOKEN_KIND_LOCAL);
    LONGLONG done = 0;
    while (done < count) {
        DWORD want = (DWORD)std::min<LONGLONG>(per, count - done), got = 0;
        LONGLONG at = from + done;
        HRESULT hr = audio->ReadSamples((DWORD)at, (LONG)(at >> 32), token, want, &got);
        if (FAILED(hr))
            return "ReadSamples(" + std::to_string(at) + ", " + std::to_string(want) + ") gave " + Code(hr);
        if (got == 0 && !exact)
            return "";
        if (got == 0 || got > want)
            return "ReadSamples(" + std::to_string(at) + ", " + std::to_string(want) + ") delivered " +
                   std::to_string(got) + " frames, " + std::to_string(count - done) + " before the end";
        out.insert(out.end(), buffer.begin(), buffer.begin() + (size_t)got * align);
        done += got;
    }
    return "";
}

struct Child {
    Manager mgr;
    std::vector<std::wstring> samples;
    std::wstring scratch;   // a folder of the host's for made-up files
    std::wstring plugin;    // the hosted copy of the DLL
    bool routed = false;
};

// The DLL's own class list, where it loads into this process (a plug-in of
// the other architecture only through its surrogate): a duplicate class id
// there is a fault even where the manager keeps only one of the two.
std::string DuplicateInDll(const std::wstring &path)
{
    HMODULE dll = LoadLibraryW(path.c_str());
    if (!dll)
        return "";
    typedef HRESULT(WINAPI * GetClassObjectFn)(REFCLSID, REFIID, void **);
    auto get = (GetClassObjectFn)(void *)GetProcAddress(dll, "DllGetClassObject");
    IZvUnsharedFIOPluginInfo *info = nullptr;
    std::string found;
    IClassFactory *factory = nullptr;
    if (get && SUCCEEDED(get(CLSID_ZvPluginInfo, IID_IClassFactory, (void **)&factory)) && factory) {
        factory->CreateInstance(nullptr, IID_IZvUnsharedFIOPluginInfo, (void **)&info);
        factory->Release();
    }
    if (info) {
        LONG count = 0;
        info->GetClassCount(&count);
        std::vector<GUID> ids;
        for (LONG i = 0; i < count && found.empty(); ++i) {
            ZVFIO_PLUGINCLASSINFO ci = {};
            if (FAILED(info->GetPluginClassInfo(i, &ci)))
                continue;
            for (size_t k = 0; k < ids.size() && found.empty(); ++k)
                if (IsEqualGUID(ids[k], ci.classId))
                    found = "class id " + GuidText(ci.classId) + " is listed twice, at " + std::to_string(k) + " and " +
                            std::to_string(i);
            ids.push_back(ci.classId);
        }
        info->Release();
    }
    return found;
}

Verdict CheckListing(Child &c)
{
    std::string duplicate = DuplicateInDll(c.plugin);
    if (!duplicate.empty())
        return Fail("%s", duplicate.c_str());
    std::vector<const ZVFIO_PLUGININFO *> records = Records(c.mgr.get());
    if (records.empty()) {
        std::vector<PluginFailure> failures = ConfiguredPluginFailures(c.mgr->pluginList());
        return Fail("the plug-in lists no class%s%s", failures.empty() ? "" : ": ",
                    failures.empty() ? "" : failures[0].reason.c_str());
    }
    std::vector<GUID> seen;
    for (const ZVFIO_PLUGININFO *r : records) {
        const bool reader = (r->Access & ZVFIO_ACCESS_READER) != 0;
        const GUID id = reader ? r->clsidReader : r->clsidRenderer;
        if (IsEqualGUID(id, GUID_NULL))
            return Fail("a class record without a class id (%s)", Utf8(r->szName).c_str());
        for (const GUID &g : seen)
            if (IsEqualGUID(g, id))
                return Fail("class id %s is listed twice", GuidText(id).c_str());
        seen.push_back(id);
        if (!r->szName[0])
            return Fail("class %s has no name", GuidText(id).c_str());
        const wchar_t *ext = reader ? r->ExtReader : r->ExtRenderer;
        if (!ext || !*ext)
            return Fail("class %s (%s) has no extension list", GuidText(id).c_str(), Utf8(r->szName).c_str());
        if (reader) {
            IZvReadFileClass *cls = nullptr;
            HRESULT hr = c.mgr->FindReaderClass(&cls, id);
            if (FAILED(hr) || !cls)
                return Fail("FindReaderClass(%s) gave %s", GuidText(id).c_str(), Code(hr).c_str());
            GUID back = GUID_NULL;
            cls->GetClassGuid(&back);
            cls->Release();
            if (!IsEqualGUID(back, id))
                return Fail("class %s says its id is %s", GuidText(id).c_str(), GuidText(back).c_str());
        }
    }
    // a second listing, from the DLL rather than the cache, says the same
    Manager again;
    HRESULT hr = again.Create(ZVFIO_CREATE_BESIDEPROGRAM | ZVFIO_CREATE_FULLLISTING);
    if (FAILED(hr))
        return Fail("a second manager gave %s", Code(hr).c_str());
    std::vector<const ZVFIO_PLUGININFO *> second = Records(again.get());
    if (second.size() != records.size())
        return Fail("a second listing gave %zu classes, the first %zu", second.size(), records.size());
    for (size_t i = 0; i < second.size(); ++i)
        if (!IsEqualGUID(second[i]->clsidReader, records[i]->clsidReader) ||
            !IsEqualGUID(second[i]->clsidRenderer, records[i]->clsidRenderer) ||
            second[i]->MeritValue != records[i]->MeritValue)
            return Fail("a second listing differs at class %zu", i);
    return Pass("%zu classes", records.size());
}

// A call that never reached the plug-in, or whose process failed under it.
bool IsCallFailure(HRESULT hr)
{
    return HRESULT_FACILITY(hr) == FACILITY_RPC ||
           (HRESULT_FACILITY(hr) == FACILITY_WIN32 && HRESULT_CODE(hr) >= 1700 && HRESULT_CODE(hr) < 1800) ||
           hr == CO_E_OBJNOTCONNECTED || hr == CO_E_SERVER_EXEC_FAILURE ||
           // an exception in the plug-in, caught by the stub in its surrogate
           hr == RPC_E_SERVERFAULT || hr == HRESULT_FROM_WIN32(ERROR_NOACCESS);
}

// Whether the plug-in's surrogate still runs, and is the one seen before
// (*pid, 0 until one was seen).
bool SurrogateAlive(Child &c, DWORD *pid)
{
    for (const ZVFIO_PLUGININFO *r : Records(c.mgr.get())) {
        ZVFIO_SURROGATESLOT *slot = ZvFioSurrogateTable_FindSlot(r->Surrogate);
        if (!slot || !slot->processId)
            continue;
        if (*pid && slot->processId != *pid)
            return false;
        HANDLE p = OpenProcess(SYNCHRONIZE, FALSE, slot->processId);
        const bool running = p && WaitForSingleObject(p, 0) == WAIT_TIMEOUT;
        if (p)
            CloseHandle(p);
        if (!running)
            return false;
        *pid = slot->processId;
    }
    return true;
}

Verdict CheckIdentify(Child &c)
{
    std::vector<std::wstring> extensions = {L".bin"};
    for (const ZVFIO_PLUGININFO *r : Records(c.mgr.get())) {
        const wchar_t *e = r->ExtReader ? wcschr(r->ExtReader, L'.') : nullptr;
        if (e)
            extensions.push_back(std::wstring(e, wcscspn(e, L";, ")));
    }
    struct Made {
        std::string what;
        std::vector<BYTE> bytes;
    };
    std::vector<Made> files = {{"empty", {}}, {"1-byte", {0x52}}, {"11-byte", std::vector<BYTE>(11, 0x49)}};
    Made noise{"random", std::vector<BYTE>(65536)};
    unsigned seed = 12345;
    for (BYTE &b : noise.bytes)
        b = (BYTE)((seed = seed * 1103515245u + 12345u) >> 16);
    files.push_back(noise);
    for (const std::wstring &s : c.samples) {
        std::vector<BYTE> whole;
        ReadFileBytes(s, whole);
        for (size_t cut : {(size_t)12, (size_t)44, whole.size() / 2})
            if (cut < whole.size())
                files.push_back({"truncated " + Utf8(s) + " at " + std::to_string(cut),
                                 std::vector<BYTE>(whole.begin(), whole.begin() + cut)});
    }
    std::vector<IZvReadFileClass *> classes;
    for (const ZVFIO_PLUGININFO *r : Records(c.mgr.get())) {
        IZvReadFileClass *cls = nullptr;
        if ((r->Access & ZVFIO_ACCESS_READER) && SUCCEEDED(c.mgr->FindReaderClass(&cls, r->clsidReader)) && cls)
            classes.push_back(cls);
    }
    struct Release {
        std::vector<IZvReadFileClass *> &list;
        ~Release()
        {
            for (IZvReadFileClass *k : list)
                k->Release();
        }
    } release{classes};
    int n = 0;
    DWORD surrogate = 0;
    for (const Made &m : files)
        for (const std::wstring &ext : extensions) {
            std::wstring path = c.scratch + L"\\made" + std::to_wstring(n++) + ext;
            WriteFileBytes(path, m.bytes.data(), m.bytes.size());
            HANDLE h = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
            // each reader class itself, as the manager asks it: the manager
            // takes any failure for "not mine", where a call that failed
            // under the plug-in (a crash in its surrogate) is a fault
            for (IZvReadFileClass *cls : classes) {
                ZVFIO_IDENTIFYINFO info = {};
                info.cbSize = sizeof info;
                info.hFile = (UINT64)(LONG_PTR)h;
                info.dwProcessId = GetCurrentProcessId();
                info.cbChunk = (DWORD)std::min<size_t>(m.bytes.size(), 4096);
                info.pChunk = info.cbChunk ? (BYTE *)m.bytes.data() : nullptr;
                info.pszPath = (WCHAR *)path.c_str();
                HRESULT own = cls->IdentifyFile(&info);
                if (IsCallFailure(own) || (FAILED(own) && !ZvErrorHandler_GetHresultString(own))) {
                    CloseHandle(h);
                    return Fail("IdentifyFile on the %s file (%s) gave %s", m.what.c_str(), Utf8(ext).c_str(),
                                Code(own).c_str());
                }
            }
            LONG index = -1;
            HRESULT hr = c.mgr->IdentifyFileType((UINT64)(LONG_PTR)h, path.c_str(), &index, 0);
            CloseHandle(h);
            const bool truncated = m.what.compare(0, 9, "truncated") == 0;
            if (c.routed && !SurrogateAlive(c, &surrogate))
                return Fail("the surrogate ended while the %s file was identified (%s)", m.what.c_str(),
                            Code(hr).c_str());
            if (IsCallFailure(hr))
                return Fail("identifying the %s file gave %s", m.what.c_str(), Code(hr).c_str());
            if (FAILED(hr) && !ZvErrorHandler_GetHresultString(hr))
                return Fail("identifying the %s file gave %s, a code without a text", m.what.c_str(),
                            Code(hr).c_str());
            if (SUCCEEDED(hr) && !truncated)
                return Fail("the %s file (%s) was identified as the plug-in's", m.what.c_str(), Utf8(ext).c_str());
            if (SUCCEEDED(hr)) {
                // a truncated file the reader takes must open and read without
                // harm; whether its length is right is the samples check's business
                Stream s;
                std::vector<BYTE> data;
                if (OpenAudio(c.mgr.get(), path, s).empty())
                    ReadRange(s.audio, s.align, 0, s.frames, 4096, data, false);
            }
        }
    return Pass("%d made-up files refused with the system's codes", n);
}

Verdict CheckSamples(Child &c)
{
    if (c.samples.empty())
        return Skip("no sample files (--sample FILE)");
    for (const std::wstring &path : c.samples) {
        Stream s;
        std::string failure = OpenAudio(c.mgr.get(), path, s);
        if (!failure.empty())
            return Fail("%s: %s", Utf8(path).c_str(), failure.c_str());
        std::vector<BYTE> whole, part;
        // the whole stream in large calls; its length must be what it says
        if (!(failure = ReadRange(s.audio, s.align, 0, s.frames, (1u << 20) / s.align + 1, whole)).empty())
            return Fail("%s: %s", Utf8(path).c_str(), failure.c_str());
        _zvmemorytoken token;
        BYTE extra[64];
        ZvMemoryToken_InitLocal(&token, extra, sizeof extra, ZVMEMTOKEN_KIND_LOCAL);
        DWORD got = 0;
        DWORD past = (DWORD)std::min<DWORD>(1, (DWORD)(sizeof extra / s.align));
        HRESULT hr = s.audio->ReadSamples((DWORD)s.frames, (LONG)(s.frames >> 32), token, past, &got);
        if (past && (FAILED(hr) || got != 0))
            return Fail("%s: a read at the end (%lld) gave %s and %lu frames; the stream says it has %lld",
                        Utf8(path).c_str(), (long long)s.frames, Code(hr).c_str(), (unsigned long)got,
                        (long long)s.frames);
        // odd call sizes over the start, and seeks, must give the same bytes
        const LONGLONG head = std::min<LONGLONG>(s.frames, 3000);
        for (DWORD per : {1u, 7u, 4096u}) {
            const LONGLONG count = per < 4096 ? head : s.frames;
            if (!(failure = ReadRange(s.audio, s.align, 0, count, per, part)).empty())
                return Fail("%s: %s", Utf8(path).c_str(), failure.c_str());
            if (memcmp(part.data(), whole.data(), part.size()))
                return Fail("%s: reading %lu frames a call gives other bytes than large calls", Utf8(path).c_str(),
                            (unsigned long)per);
        }
        for (LONGLONG at : {s.frames / 2, s.frames - 1, s.frames / 3, (LONGLONG)1}) {
            if (at < 0 || at >= s.frames)
                continue;
            LONGLONG count = std::min<LONGLONG>(s.frames - at, 1000);
            if (!(failure = ReadRange(s.audio, s.align, at, count, 333, part)).empty())
                return Fail("%s: %s", Utf8(path).c_str(), failure.c_str());
            if (memcmp(part.data(), &whole[(size_t)at * s.align], part.size()))
                return Fail("%s: a seek to frame %lld lands elsewhere", Utf8(path).c_str(), (long long)at);
        }
    }
    return Pass("%zu sample files read to the end at 1, 7, 4096 and 1 MiB a call, seeks in place", c.samples.size());
}

// The file a renderer class writes with one of its presets: a short signal
// in the format the file says it takes, read back through the manager.
std::string RenderOne(Child &c, IZvRenderFileClass *cls, const tagZVTEMPLATExV2 *t, const std::wstring &path)
{
    IZvRenderFile *file = nullptr;
    HRESULT hr = cls->CreateFile(&file, path.c_str(), t, ZVFIO_STREAMMASK_AUDIO, 0);
    if (FAILED(hr) || !file)
        return "CreateFile gave " + Code(hr);
    _ZVFILESTREAMFORMATINFOv2 format = {};
    format.cbSize = sizeof format;
    hr = file->GetStreamFormatInfo(0, &format);
    const ZVWAVEFORMAT *wf = (const ZVWAVEFORMAT *)format.format;
    if (FAILED(hr) || !wf->blockAlign || !wf->channels || !wf->samplesPerSec) {
        file->Abort();
        file->Release();
        return "GetStreamFormatInfo of the new file gave " + Code(hr);
    }
    const DWORD frames = wf->samplesPerSec / 10 + 7, align = wf->blockAlign;
    std::vector<BYTE> signal((size_t)frames * align);
    for (size_t i = 0; i < signal.size(); ++i)
        signal[i] = (BYTE)(i * 7 + i / align);
    if (FAILED(hr = file->BeginWrite(0))) {
        file->Release();
        return "BeginWrite gave " + Code(hr);
    }
    for (DWORD at = 0; at < frames && SUCCEEDED(hr);) {
        DWORD n = std::min<DWORD>(frames - at, 4093), written = 0;
        _zvmemorytoken token;
        ZvMemoryToken_InitLocal(&token, &signal[(size_t)at * align], n * align, ZVMEMTOKEN_KIND_LOCAL);
        hr = file->WriteSamples(0, token, n, &written);
        if (SUCCEEDED(hr) && written != n)
            hr = E_FAIL;
        at += n;
    }
    HRESULT end = SUCCEEDED(hr) ? file->EndWrite(0) : file->Abort();
    file->Release();
    if (FAILED(hr) || FAILED(end))
        return "WriteSamples/EndWrite gave " + Code(FAILED(hr) ? hr : end);
    Stream back;
    std::string failure = OpenAudio(c.mgr.get(), path, back);
    if (!failure.empty())
        return "reading it back: " + failure;
    if (back.frames != frames)
        return "it reads back with " + std::to_string(back.frames) + " frames, " + std::to_string(frames) + " written";
    std::vector<BYTE> data;
    if (!(failure = ReadRange(back.audio, back.align, 0, back.frames, 4096, data)).empty())
        return "reading it back: " + failure;
    if (back.align == align && data != signal)
        return "it reads back with other samples than were written";
    return "";
}

Verdict CheckRenderers(Child &c)
{
    int rendered = 0;
    for (const ZVFIO_PLUGININFO *r : Records(c.mgr.get())) {
        if (!(r->Access & ZVFIO_ACCESS_RENDERER))
            continue;
        IZvRenderFileClass *cls = nullptr;
        HRESULT hr = c.mgr->FindRendererClass(&cls, r->clsidRenderer);
        if (FAILED(hr) || !cls)
            return Fail("FindRendererClass(%s) gave %s", GuidText(r->clsidRenderer).c_str(), Code(hr).c_str());
        const wchar_t *e = r->ExtRenderer ? wcschr(r->ExtRenderer, L'.') : nullptr;
        const std::wstring ext = e ? std::wstring(e, wcscspn(e, L";, ")) : L".out";
        LONG count = 0;
        cls->GetTemplateCount(&count);
        for (LONG i = 0; i < count; ++i) {
            PZVTEMPLATE t = nullptr;
            if (FAILED(hr = cls->GetTemplate(&t, i)) || !t) {
                cls->Release();
                return Fail("%s: GetTemplate(%ld) gave %s", Utf8(r->szName).c_str(), (long)i, Code(hr).c_str());
            }
            std::wstring path = c.scratch + L"\\render" + std::to_wstring(rendered) + ext;
            std::string failure = RenderOne(c, cls, (const tagZVTEMPLATExV2 *)t, path);
            free(t);   // the record is the caller's, from the C run-time
            if (!failure.empty()) {
                cls->Release();
                return Fail("%s, preset %ld: %s", Utf8(r->szName).c_str(), (long)i, failure.c_str());
            }
            ++rendered;
        }
        cls->Release();
    }
    if (!rendered)
        return Skip("no renderer class with a preset");
    return Pass("%d presets rendered a signal that reads back", rendered);
}

Verdict CheckThreads(Child &c)
{
    if (c.samples.empty())
        return Skip("no sample files (--sample FILE)");
    Stream s;
    std::string failure = OpenAudio(c.mgr.get(), c.samples[0], s);
    if (!failure.empty())
        return Fail("%s", failure.c_str());
    std::vector<BYTE> one;
    if (!(failure = ReadRange(s.audio, s.align, 0, s.frames, 4096, one, false)).empty())
        return Fail("one thread: %s", failure.c_str());
    const int kThreads = 8;
    std::vector<std::string> failures(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            std::vector<BYTE> mine;
            failures[t] = ReadRange(s.audio, s.align, 0, s.frames, 1000 + 97 * t, mine, false);
            if (failures[t].empty() && mine != one)
                failures[t] = "other bytes than one thread read";
            CoUninitialize();
        });
    for (std::thread &t : threads)
        t.join();
    for (int t = 0; t < kThreads; ++t)
        if (!failures[t].empty())
            return Fail("thread %d of %d on one stream: %s", t + 1, kThreads, failures[t].c_str());
    return Pass("%d threads on one stream read what one thread reads", kThreads);
}

// Where the plug-in's objects live: this process, or its surrogate.
HANDLE PluginProcess(Child &c)
{
    for (const ZVFIO_PLUGININFO *r : Records(c.mgr.get()))
        if (r->dwRecordFlags & ZVFIO_RF_SURROGATE)
            if (ZVFIO_SURROGATESLOT *slot = ZvFioSurrogateTable_FindSlot(r->Surrogate))
                if (slot->processId)
                    return OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ | PROCESS_TERMINATE | PROCESS_DUP_HANDLE,
                                       FALSE,
                                       slot->processId);
    HANDLE self = nullptr;
    DuplicateHandle(GetCurrentProcess(), GetCurrentProcess(), GetCurrentProcess(), &self, 0, FALSE,
                    DUPLICATE_SAME_ACCESS);
    return self;
}

Verdict CheckLeaks(Child &c)
{
    if (c.samples.empty())
        return Skip("no sample files (--sample FILE)");
    auto cycle = [&](std::string &failure) {
        Stream s;
        failure = OpenAudio(c.mgr.get(), c.samples[0], s);
        std::vector<BYTE> data;
        if (failure.empty())
            failure = ReadRange(s.audio, s.align, 0, std::min<LONGLONG>(s.frames, 4096), 4096, data);
        return failure.empty();
    };
    std::string failure;
    for (int i = 0; i < 50; ++i)
        if (!cycle(failure))
            return Fail("%s", failure.c_str());
    HANDLE process = PluginProcess(c);
    const DWORD pid = GetProcessId(process);
    auto measure = [&](DWORD *handles, SIZE_T *memory) {
        *handles = ZvProcessHandleCount(pid);
        PROCESS_MEMORY_COUNTERS_EX m = {};
        m.cb = sizeof m;
        GetProcessMemoryInfo(process, (PROCESS_MEMORY_COUNTERS *)&m, sizeof m);
        *memory = std::max(m.PrivateUsage, m.PagefileUsage);
    };
    DWORD handles0 = 0, handles1 = 0;
    SIZE_T memory0 = 0, memory1 = 0;
    measure(&handles0, &memory0);
    const int kCycles = 1000;
    for (int i = 0; i < kCycles; ++i)
        if (!cycle(failure)) {
            CloseHandle(process);
            return Fail("cycle %d: %s", i + 1, failure.c_str());
        }
    measure(&handles1, &memory1);
    CloseHandle(process);
    const long grewHandles = (long)handles1 - (long)handles0;
    const long long grewMemory = (long long)memory1 - (long long)memory0;
    // a leak of one handle or one 4 KiB block per cycle shows far above these
    if (grewHandles > 32)
        return Fail("%d open/read/close cycles left %ld more handles in the %s", kCycles, grewHandles,
                    c.routed ? "surrogate" : "process");
    if (grewMemory > (8ll << 20))
        return Fail("%d open/read/close cycles grew committed memory by %lld KiB in the %s", kCycles,
                    grewMemory >> 10, c.routed ? "surrogate" : "process");
    return Pass("%d cycles: handles %+ld, committed memory %+lld KiB", kCycles, grewHandles, grewMemory >> 10);
}

Verdict CheckKill(Child &c)
{
    if (!c.routed)
        return Skip("only with --routed");
    if (c.samples.empty())
        return Skip("no sample files (--sample FILE)");
    Stream s;
    std::string failure = OpenAudio(c.mgr.get(), c.samples[0], s);
    if (!failure.empty())
        return Fail("%s", failure.c_str());
    std::vector<BYTE> data;
    if (!(failure = ReadRange(s.audio, s.align, 0, std::min<LONGLONG>(s.frames, 100), 100, data)).empty())
        return Fail("%s", failure.c_str());
    HANDLE surrogate = PluginProcess(c);
    if (!surrogate || GetProcessId(surrogate) == GetCurrentProcessId())
        return Fail("the plug-in does not run in a surrogate");
    TerminateProcess(surrogate, 9);
    WaitForSingleObject(surrogate, 10000);
    CloseHandle(surrogate);
    std::vector<BYTE> buffer(4096 * (size_t)s.align);
    _zvmemorytoken token;
    ZvMemoryToken_InitLocal(&token, buffer.data(), (DWORD)buffer.size(), ZVMEMTOKEN_KIND_LOCAL);
    DWORD got = 0;
    HRESULT hr = s.audio->ReadSamples(0, 0, token, 4096, &got);
    if (SUCCEEDED(hr))
        return Fail("a read after the surrogate was killed gave %s", Code(hr).c_str());
    return Pass("a read after the surrogate was killed gave %s", Code(hr).c_str());
}

struct CheckDef {
    const char *name;
    Verdict (*run)(Child &);
    DWORD seconds;   // time limit of its child
};
const CheckDef kChecks[] = {
    {"listing", CheckListing, 60}, {"identify", CheckIdentify, 60}, {"samples", CheckSamples, 300},
    {"renderers", CheckRenderers, 120}, {"threads", CheckThreads, 120}, {"leaks", CheckLeaks, 300},
    {"kill", CheckKill, 60},
};

LONG WINAPI CrashFilter(EXCEPTION_POINTERS *pointers)
{
    char text[2048];
    ZvErrorHandler_DumpExceptionRecord(text, sizeof text, "validate", pointers, 1 | 2);
    for (char &ch : text)
        if (ch == '\r' || ch == '\n')
            ch = ' ';
    printf("crash: %s\n", text);
    fflush(stdout);
    return EXCEPTION_EXECUTE_HANDLER;
}

int RunChild(const std::wstring &name, const Args &args)
{
    SetUnhandledExceptionFilter(CrashFilter);
    const CheckDef *def = nullptr;
    for (const CheckDef &d : kChecks)
        if (Utf8(name) == d.name)
            def = &d;
    if (!def) {
        printf("fail: no check named %s\n", Utf8(name).c_str());
        return 1;
    }
    Child c;
    c.routed = args.has(L"--routed");
    for (const std::wstring &o : args.options)
        if (o.compare(0, 9, L"--sample=") == 0)
            c.samples.push_back(o.substr(9));
    c.scratch = ExeDir() + L"scratch";
    c.plugin = args.files[0];
    CreateDirectoryW(c.scratch.c_str(), nullptr);
    HRESULT hr = c.mgr.Create(ZVFIO_CREATE_BESIDEPROGRAM);
    Verdict v = FAILED(hr) ? Fail("the manager gave %s", Code(hr).c_str()) : def->run(c);
    printf("%s: %s\n", v.code == 0 ? "pass" : v.code == 77 ? "skip" : "fail", v.text.c_str());
    fflush(stdout);
    return v.code;
}

// --- the parent's side --------------------------------------------------------

struct Outcome {
    std::string check, result, text;
    double seconds = 0;
};

bool Copy(const std::wstring &from, const std::wstring &to) { return CopyFileW(from.c_str(), to.c_str(), FALSE); }

// Ends the surrogates that a child left behind: any process whose image lies
// in the host folder. A surrogate ends by itself shortly after its last
// client, and so takes its class registration with it; one ended by force
// while it was going may leave that registration to the next check's first
// activation, which then waits for a server that is gone. So each one gets
// a few seconds to end before it is ended.
void EndStrays(const std::wstring &host)
{
    DWORD ids[4096], bytes = 0;
    if (!EnumProcesses(ids, sizeof ids, &bytes))
        return;
    for (DWORD i = 0; i < bytes / sizeof(DWORD); ++i) {
        if (ids[i] == GetCurrentProcessId())
            continue;
        HANDLE p = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | PROCESS_TERMINATE | SYNCHRONIZE, FALSE, ids[i]);
        if (!p)
            continue;
        wchar_t image[MAX_PATH];
        DWORD size = MAX_PATH;
        if (QueryFullProcessImageNameW(p, 0, image, &size) && !_wcsnicmp(image, host.c_str(), host.size()) &&
            WaitForSingleObject(p, 5000) != WAIT_OBJECT_0) {
            TerminateProcess(p, 1);
            WaitForSingleObject(p, 5000);
        }
        CloseHandle(p);
    }
}

Outcome RunCheck(const CheckDef &def, DWORD limit, const std::wstring &host, const std::wstring &plugin,
                 const Args &args)
{
    Outcome o{def.name, "fail", ""};
    const ULONGLONG start = GetTickCount64();
    std::wstring log = host + L"\\" + std::wstring(def.name, def.name + strlen(def.name)) + L".txt";
    SECURITY_ATTRIBUTES sa = {sizeof sa, nullptr, TRUE};
    HANDLE out = CreateFileW(log.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &sa, CREATE_ALWAYS, 0, nullptr);
    std::wstring cmd = L"\"" + host + L"\\zvfio.exe\" validate --child=" +
                       std::wstring(def.name, def.name + strlen(def.name));
    for (const std::wstring &o2 : args.options)
        if (o2 == L"--routed" || o2.compare(0, 9, L"--sample=") == 0)
            cmd += L" \"" + o2 + L"\"";
    cmd += L" \"" + plugin + L"\"";
    STARTUPINFOW si = {};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdOutput = si.hStdError = out;
    si.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    PROCESS_INFORMATION pi = {};
    std::vector<wchar_t> line(cmd.begin(), cmd.end());
    line.push_back(0);
    if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, host.c_str(), &si, &pi)) {
        CloseHandle(out);
        o.text = "the check's process could not start: " + ErrorText(HRESULT_FROM_WIN32(GetLastError()));
        return o;
    }
    CloseHandle(out);
    DWORD code = 0;
    if (WaitForSingleObject(pi.hProcess, limit * 1000) != WAIT_OBJECT_0) {
        TerminateProcess(pi.hProcess, 1);
        WaitForSingleObject(pi.hProcess, 5000);
        o.text = "no answer within " + std::to_string(limit) + " s (a hang or a deadlock)";
    }
    o.seconds = (GetTickCount64() - start) / 1000.0;
    GetExitCodeProcess(pi.hProcess, &code);
    CloseHandle(pi.hThread);
    CloseHandle(pi.hProcess);
    EndStrays(host);
    std::vector<BYTE> text;
    ReadFileBytes(log, text);
    std::string verdict;
    for (size_t at = 0; at < text.size();) {
        size_t end = at;
        while (end < text.size() && text[end] != '\n')
            ++end;
        std::string l((const char *)&text[at], end - at);
        if (!l.empty() && l.back() == '\r')
            l.pop_back();
        for (const char *p : {"pass: ", "fail: ", "skip: ", "crash: "})
            if (l.compare(0, strlen(p), p) == 0)
                verdict = l;
        at = end + 1;
    }
    if (!o.text.empty())
        return o;
    const size_t colon = verdict.find(": ");
    if (colon != std::string::npos) {
        o.result = verdict.substr(0, colon);
        o.text = verdict.substr(colon + 2);
    }
    if (code >= 0xC0000000u) {
        o.result = "crash";
        if (o.text.empty() || verdict.compare(0, 6, "crash:"))
            o.text = "ended by exception " + Code((HRESULT)code);
    } else if (o.result == "pass" && code != 0)
        o.result = "fail", o.text = "exit code " + std::to_string(code) + " after: " + o.text;
    else if (verdict.empty())
        o.text = "ended with code " + std::to_string(code) + " and no verdict";
    return o;
}

// A host folder of its own: this program, the plug-in, its configuration
// and, routed, the surrogate.
HRESULT MakeHost(const std::wstring &plugin, bool routed, std::wstring *host, std::wstring *hosted)
{
    wchar_t temp[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    *host = std::wstring(temp) + L"zvfio-validate-" + std::to_wstring(GetCurrentProcessId());
    CreateDirectoryW(host->c_str(), nullptr);
    const std::wstring name = plugin.substr(plugin.find_last_of(L"\\/") + 1);
    *hosted = *host + L"\\" + name;
    if (!Copy(ExePath(), *host + L"\\zvfio.exe") || !Copy(plugin, *hosted))
        return HRESULT_FROM_WIN32(GetLastError());
    if (routed) {
        CreateDirectoryW((*host + L"\\x86").c_str(), nullptr);
        if (!Copy(ExeDir() + L"x86\\Vantry.exe", *host + L"\\x86\\Vantry.exe"))
            return HRESULT_FROM_WIN32(GetLastError());
    }
    std::string config = "[FileIO Plug-Ins]\r\nValidated=" + Utf8(name) + "\r\n";
    if (routed)
        config += "\r\n[Validated]\r\nSurrogate=1\r\n";
    return WriteFileBytes(*host + L"\\validate.Fio2007-Config", config.data(), config.size()) ? S_OK : E_FAIL;
}

void RemoveHost(const std::wstring &host)
{
    for (const wchar_t *sub : {L"\\scratch\\*", L"\\x86\\*", L"\\*"}) {
        WIN32_FIND_DATAW f;
        std::wstring pattern = host + sub;
        std::wstring dir = pattern.substr(0, pattern.size() - 2);
        HANDLE h = FindFirstFileW(pattern.c_str(), &f);
        if (h == INVALID_HANDLE_VALUE)
            continue;
        do
            if (!(f.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
                DeleteFileW((dir + L"\\" + f.cFileName).c_str());
        while (FindNextFileW(h, &f));
        FindClose(h);
        RemoveDirectoryW(dir.c_str());
    }
}

HRESULT Validate(const Args &args)
{
    std::wstring child;
    if (args.value(L"--child", &child)) {
        if (args.files.size() != 1)
            return ZVFIO_E_USAGE;
        ExitProcess((UINT)RunChild(child, args));
    }
    if (args.files.size() != 1)
        return ZVFIO_E_USAGE;
    wchar_t full[MAX_PATH];
    if (!GetFullPathNameW(args.files[0].c_str(), MAX_PATH, full, nullptr) ||
        GetFileAttributesW(full) == INVALID_FILE_ATTRIBUTES) {
        Err("zvfio validate: %s: %s\n", Utf8(args.files[0]).c_str(),
            ErrorText(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)).c_str());
        return ZVFIO_E_REPORTED;
    }
    // samples are handed to the children by full path
    Args given = args;
    for (std::wstring &o : given.options)
        if (o.compare(0, 9, L"--sample=") == 0) {
            wchar_t path[MAX_PATH];
            if (!GetFullPathNameW(o.c_str() + 9, MAX_PATH, path, nullptr) ||
                GetFileAttributesW(path) == INVALID_FILE_ATTRIBUTES) {
                Err("zvfio validate: %s: %s\n", Utf8(o.substr(9)).c_str(),
                    ErrorText(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)).c_str());
                return ZVFIO_E_REPORTED;
            }
            o = L"--sample=" + std::wstring(path);
        }
    std::wstring only, seconds;
    args.value(L"--only", &only);
    const DWORD limit = args.value(L"--timeout", &seconds) ? (DWORD)_wtoi(seconds.c_str()) : 0;
    const bool routed = args.has(L"--routed");
    std::wstring host, hosted;
    HRESULT hr = MakeHost(full, routed, &host, &hosted);
    if (FAILED(hr)) {
        Err("zvfio validate: the host folder %s: %s\n", Utf8(host).c_str(), ErrorText(hr).c_str());
        RemoveHost(host);
        return ZVFIO_E_REPORTED;
    }
    std::vector<Outcome> outcomes;
    for (const CheckDef &d : kChecks) {
        if (!only.empty() && Utf8(only) != d.name)
            continue;
        if (!routed && !strcmp(d.name, "kill"))
            continue;
        outcomes.push_back(RunCheck(d, limit ? limit : d.seconds, host, hosted, given));
        const Outcome &o = outcomes.back();
        if (!args.json)
            Out("%-9s %-5s %5.1f s  %s\n", o.check.c_str(), o.result.c_str(), o.seconds, o.text.c_str());
    }
    RemoveHost(host);
    if (outcomes.empty()) {
        Err("zvfio validate: no check named %s\n", Utf8(only).c_str());
        return ZVFIO_E_USAGE;
    }
    bool failed = false;
    for (const Outcome &o : outcomes)
        failed |= o.result == "fail" || o.result == "crash";
    if (args.json) {
        Out("{\"plugin\": %s, \"routed\": %s, \"checks\": [", JsonString(Utf8(full)).c_str(),
            routed ? "true" : "false");
        for (size_t i = 0; i < outcomes.size(); ++i)
            Out("%s\n  {\"check\": %s, \"result\": %s, \"seconds\": %.1f, \"text\": %s}", i ? "," : "",
                JsonString(outcomes[i].check).c_str(), JsonString(outcomes[i].result).c_str(), outcomes[i].seconds,
                JsonString(outcomes[i].text).c_str());
        Out("\n], \"passed\": %s}\n", failed ? "false" : "true");
    }
    return failed ? ZVFIO_E_REPORTED : S_OK;
}

} // namespace

extern const Command kValidateCommand = {
    "validate", "check a plug-in the way a host uses it, each check in a process of its own",
    "usage: zvfio validate [--routed] [--json] [--only CHECK] [--sample FILE]... [--timeout S] PLUGIN.dll\n"
    "Lists the plug-in's classes through a manager of its own (its own folder\n"
    "and cache, never yours) and runs each check in a child process with a\n"
    "time limit; a crash or a hang is reported, not suffered.\n"
    "Checks:\n"
    "  listing   class ids, names, extension lists, no duplicate id, a second\n"
    "            listing gives the same answer\n"
    "  identify  empty, 1-byte, 11-byte, random and truncated files get a\n"
    "            clear error, never a crash\n"
    "  samples   each sample file opens and reads to its end at 1, 7, 4096\n"
    "            and 1 MiB a call with the same bytes; seeks land in place\n"
    "  renderers each preset of each renderer class renders a short signal\n"
    "            that reads back through the manager's readers\n"
    "  threads   8 threads on one stream read what one thread reads\n"
    "  leaks     1,000 open/read/close cycles grow neither handles nor memory\n"
    "  kill      (--routed) killing the surrogate mid-read gives the caller\n"
    "            an error, not a hang\n"
    "Options:\n"
    "  --routed       run the plug-in in a surrogate (x86\\Vantry.exe beside zvfio)\n"
    "  --sample FILE  a file the plug-in reads; may be given more than once\n"
    "  --only CHECK   run one check\n"
    "  --timeout S    the time limit of each check (default 60 to 300 s)\n"
    "  --json         the report as JSON\n"
    "Each check prints pass, fail (with the reason and the call that failed),\n"
    "skip or crash (with the exception). Exit code 1 when any check fails.\n",
    "--routed --json --only= --sample= --timeout= --child=", Validate};

} // namespace zvfio
