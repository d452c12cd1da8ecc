// The commands that go through the file I/O manager: the plug-in list,
// identification, and opening a file with its reader. Each makes one
// manager in this process; readers routed to a surrogate are reached through
// it. Where the manager answers E_NOTIMPL (identification and opening in a
// build that lacks them), main() says the command is not available yet.
#include "zvfio.h"
#include "filemng/filemng.h"
#include "filemng/zvmemtoken.h"
#include "audio/waveformat.h"
#include "zvproxy.h"
#include <stdio.h>

namespace zvfio {
namespace {

// One manager for the life of a command, in the multithreaded apartment.
class Manager {
public:
    Manager()
    {
        CoInitializeEx(NULL, COINIT_MULTITHREADED);
        ZvProxy_Register();
        long reserved = 0;
        hr_ = ZVFileIO_CreateInstance(&mgr_, nullptr, 0, nullptr, reserved);
    }
    ~Manager()
    {
        if (mgr_) {
            mgr_->CleanUp();
            mgr_->Release();
        }
        CoUninitialize();
    }
    HRESULT result() const { return hr_; }
    IZvFileIOMgrForApp *operator->() const { return mgr_; }

private:
    IZvFileIOMgrForApp *mgr_ = nullptr;
    HRESULT hr_ = E_FAIL;
};

std::string GuidText(const GUID &g)
{
    char buf[48];
    snprintf(buf, sizeof buf, "{%08lX-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", (unsigned long)g.Data1,
             g.Data2, g.Data3, g.Data4[0], g.Data4[1], g.Data4[2], g.Data4[3], g.Data4[4], g.Data4[5],
             g.Data4[6], g.Data4[7]);
    return buf;
}

const char *SampleTypeName(ZVSAMPLETYPE t)
{
    switch (t) {
    case ZVSAMPLE_U8: return "u8";
    case ZVSAMPLE_S8: return "s8";
    case ZVSAMPLE_S16: return "s16";
    case ZVSAMPLE_S24: return "s24";
    case ZVSAMPLE_S32: return "s32";
    case ZVSAMPLE_F32: return "f32";
    case ZVSAMPLE_F64: return "f64";
    case ZVSAMPLE_S24IN32: return "s24in32";
    case ZVSAMPLE_S16BE: return "s16be";
    case ZVSAMPLE_S24BE: return "s24be";
    case ZVSAMPLE_S32BE: return "s32be";
    default: return "other";
    }
}

// Class texts by kind, joined for display; empty where the class has none.
std::string ClassText(IZvReadFileClass *cls, ZVFIO_FILECLASS_INFO_TEXT kind)
{
    BSTR text = nullptr;
    std::string s;
    if (SUCCEEDED(cls->GetInfoText(&kind, 1, &text)) && text)
        s = Utf8(text);
    SysFreeString(text);
    return s;
}

HRESULT Plugins(const Args &args)
{
    Manager mgr;
    if (FAILED(mgr.result()))
        return mgr.result();
    IZvFIOPluginEnum *plugins = nullptr;
    HRESULT hr = mgr->GetPluginEnum(&plugins);
    if (FAILED(hr))
        return hr;
    bool load = args.has(L"--load");
    if (args.json)
        Out("[");
    int n = 0;
    for (;;) {
        ZVFIO_PLUGINDESC desc = {};
        desc.cbSize = sizeof desc;
        ULONG fetched = 0;
        if (FAILED(plugins->Next(1, &desc, &fetched)) || fetched == 0)
            break;
        std::string path = Utf8(desc.path);
        std::string reader = IsEqualGUID(desc.readerClassId, GUID_NULL) ? "" : GuidText(desc.readerClassId);
        std::string renderer = IsEqualGUID(desc.rendererClassId, GUID_NULL) ? "" : GuidText(desc.rendererClassId);
        std::string name, status = reader.empty() && renderer.empty() ? "no usable class" : "not loaded";
        HRESULT loaded = S_FALSE;
        if (load && !reader.empty()) {
            IZvReadFileClass *cls = nullptr;
            loaded = mgr->FindReaderClass(&cls, desc.readerClassId);
            if (SUCCEEDED(loaded) && cls) {
                name = ClassText(cls, ZVFIO_INFOTEXT_DESCRIPTION);
                cls->Release();
                status = "loaded";
            } else {
                char buf[32];
                snprintf(buf, sizeof buf, "failed 0x%08lX", (unsigned long)loaded);
                status = buf;
            }
        }
        if (args.json) {
            Out("%s\n  {\"path\": %s, \"reader\": %s, \"renderer\": %s", n ? "," : "", JsonString(path).c_str(),
                reader.empty() ? "null" : JsonString(reader).c_str(),
                renderer.empty() ? "null" : JsonString(renderer).c_str());
            if (load)
                Out(", \"name\": %s, \"status\": %s", JsonString(name).c_str(), JsonString(status).c_str());
            Out("}");
        } else {
            Out("%s\n", path.c_str());
            if (!reader.empty())
                Out("  reader   %s%s%s\n", reader.c_str(), name.empty() ? "" : "  ", name.c_str());
            if (!renderer.empty())
                Out("  renderer %s\n", renderer.c_str());
            if (load || (reader.empty() && renderer.empty()))
                Out("  %s\n", status.c_str());
        }
        n++;
    }
    plugins->Release();
    if (args.json)
        Out("\n]\n");
    else if (n == 0)
        Out("no plug-ins: no *.Fio2007-Config beside zvfio.exe names one\n");
    return S_OK;
}

HRESULT Identify(const Args &args)
{
    if (args.files.empty())
        return ZVFIO_E_USAGE;
    Manager mgr;
    if (FAILED(mgr.result()))
        return mgr.result();
    HRESULT result = S_OK;
    for (const std::wstring &path : args.files) {
        HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL,
                                  OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, NULL);
        HRESULT hr = file == INVALID_HANDLE_VALUE ? HRESULT_FROM_WIN32(GetLastError()) : S_OK;
        LONG index = -1;
        if (SUCCEEDED(hr)) {
            hr = mgr->IdentifyFileType((UINT64)(LONG_PTR)file, path.c_str(), &index, 0);
            CloseHandle(file);
        }
        if (hr == E_NOTIMPL)
            return hr;
        if (FAILED(hr)) {
            Out("%s: none (0x%08lX)\n", Utf8(path).c_str(), (unsigned long)hr);
            result = hr;
            continue;
        }
        IZvReadFileClass *cls = nullptr;
        GUID id = GUID_NULL;
        std::string name;
        if (SUCCEEDED(mgr->GetReaderClass(&cls, index)) && cls) {
            cls->GetClassGuid(&id);
            name = ClassText(cls, ZVFIO_INFOTEXT_DESCRIPTION);
            cls->Release();
        }
        Out("%s: %s %s\n", Utf8(path).c_str(), GuidText(id).c_str(), name.c_str());
    }
    return args.files.size() == 1 ? result : (FAILED(result) ? S_FALSE : S_OK);
}

// The audio stream of an opened file, or null.
IZvReadAudioStream *AudioStream(IZvReadFile *file, LONG index)
{
    IZvReadStream *stream = nullptr;
    IZvReadAudioStream *audio = nullptr;
    if (SUCCEEDED(file->OpenStream(&stream, index, ZVFILESTREAMTYPE_AUDIO, 0, 0)) && stream) {
        stream->QueryInterface(IID_IZvReadAudioStream, (void **)&audio);
        stream->Release();
    }
    return audio;
}

std::string FormatLine(const _ZVFILESTREAMFORMATINFOv2 &info, bool json)
{
    _zvwaveformat f;
    memcpy(&f, info.format, sizeof f);
    char buf[256];
    if (json)
        snprintf(buf, sizeof buf, "{\"sampleType\": \"%s\", \"channels\": %u, \"rate\": %lu, \"blockAlign\": %u}",
                 SampleTypeName(f.sampleType), f.channels, (unsigned long)f.samplesPerSec, f.blockAlign);
    else
        snprintf(buf, sizeof buf, "%s, %u channels, %lu Hz", SampleTypeName(f.sampleType), f.channels,
                 (unsigned long)f.samplesPerSec);
    return buf;
}

HRESULT Info(const Args &args)
{
    if (args.files.size() != 1)
        return ZVFIO_E_USAGE;
    Manager mgr;
    if (FAILED(mgr.result()))
        return mgr.result();
    IZvReadFile *file = nullptr;
    HRESULT hr = mgr->OpenReader(args.files[0].c_str(), &file, 0);
    if (FAILED(hr))
        return hr;
    LONG count = 0;
    LONGLONG length = 0;
    file->GetStreamCount(&count);
    file->GetLength(&length);
    if (args.json)
        Out("{\"file\": %s, \"length\": %lld, \"streams\": [", JsonString(Utf8(args.files[0])).c_str(), length);
    else
        Out("%s: %lld bytes, %ld stream(s)\n", Utf8(args.files[0]).c_str(), length, (long)count);
    for (LONG i = 0; i < count; i++) {
        ZVFILESTREAMTYPE type = ZVFILESTREAMTYPE_NONE;
        DWORD value = 0;
        file->GetStreamType(i, &type, &value);
        IZvReadAudioStream *audio = type == ZVFILESTREAMTYPE_AUDIO ? AudioStream(file, i) : nullptr;
        _ZVFILESTREAMFORMATINFOv2 decoded = {}, stored = {};
        decoded.cbSize = stored.cbSize = sizeof decoded;
        if (audio) {
            audio->GetStreamFormatInfo(&decoded);
            audio->GetStoredFormatInfo(&stored);
            audio->Release();
        }
        if (args.json) {
            Out("%s\n  {\"index\": %ld, \"type\": %u", i ? "," : "", (long)i, (unsigned)type);
            if (audio)
                Out(", \"frames\": %lld, \"decoded\": %s, \"stored\": %s", decoded.llLength,
                    FormatLine(decoded, true).c_str(), FormatLine(stored, true).c_str());
            Out("}");
        } else if (audio) {
            _zvwaveformat f;
            memcpy(&f, decoded.format, sizeof f);
            double seconds = f.samplesPerSec ? (double)decoded.llLength / f.samplesPerSec : 0;
            Out("  stream %ld: audio, %lld frames (%.3f s)\n    decoded: %s\n    stored:  %s\n", (long)i,
                decoded.llLength, seconds, FormatLine(decoded, false).c_str(), FormatLine(stored, false).c_str());
        } else {
            Out("  stream %ld: type %u\n", (long)i, (unsigned)type);
        }
    }
    if (args.json)
        Out("\n]}\n");
    file->Release();
    return S_OK;
}

HRESULT Read(const Args &args)
{
    // --raw=OUT FILE, or --raw OUT FILE
    std::wstring rawPath, path;
    bool raw = args.value(L"--raw", &rawPath);
    if (!raw && args.has(L"--raw") && args.files.size() == 2) {
        raw = true;
        rawPath = args.files[0];
        path = args.files[1];
    } else if (args.files.size() == 1) {
        path = args.files[0];
    } else {
        return ZVFIO_E_USAGE;
    }
    Manager mgr;
    if (FAILED(mgr.result()))
        return mgr.result();
    IZvReadFile *file = nullptr;
    HRESULT hr = mgr->OpenReader(path.c_str(), &file, 0);
    if (FAILED(hr))
        return hr;
    IZvReadAudioStream *audio = AudioStream(file, 0);
    if (!audio) {
        file->Release();
        return ZVERR_NOT_FOUND;
    }
    DWORD align = 0;
    _ZVFILESTREAMFORMATINFOv2 info = {};
    info.cbSize = sizeof info;
    audio->GetStreamFormatInfo(&info);
    audio->GetBlockAlign(&align);
    HANDLE out = INVALID_HANDLE_VALUE;
    if (raw) {
        out = CreateFileW(rawPath.c_str(), GENERIC_WRITE, 0, NULL, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, NULL);
        if (out == INVALID_HANDLE_VALUE)
            hr = HRESULT_FROM_WIN32(GetLastError());
    }
    const DWORD frames = 65536;
    std::vector<BYTE> buffer(align ? (size_t)frames * align : 0);
    LONGLONG at = 0;
    LARGE_INTEGER t0, t1, freq;
    QueryPerformanceFrequency(&freq);
    QueryPerformanceCounter(&t0);
    while (SUCCEEDED(hr) && align && at < info.llLength) {
        _zvmemorytoken token;
        ZvMemoryToken_InitLocal(&token, buffer.data(), (DWORD)buffer.size(), ZVMEMTOKEN_KIND_LOCAL);
        DWORD got = 0;
        hr = audio->ReadSamples((DWORD)at, (LONG)(at >> 32), token, frames, &got);
        if (FAILED(hr) || got == 0)
            break;
        DWORD put = 0;
        if (out != INVALID_HANDLE_VALUE && !WriteFile(out, buffer.data(), got * align, &put, NULL))
            hr = HRESULT_FROM_WIN32(GetLastError());
        at += got;
    }
    QueryPerformanceCounter(&t1);
    if (out != INVALID_HANDLE_VALUE)
        CloseHandle(out);
    audio->Release();
    file->Release();
    if (FAILED(hr))
        return hr;
    double ms = (double)(t1.QuadPart - t0.QuadPart) * 1000.0 / (double)freq.QuadPart;
    Out("%s: %lld frames, %lld bytes in %.1f ms\n", Utf8(path).c_str(), at, at * align, ms);
    return S_OK;
}

} // namespace

const Command kPluginsCommand = {
    "plugins", "the plug-ins the file I/O manager finds",
    "usage: zvfio plugins [--load] [--json]\n"
    "\n"
    "Lists the plug-ins named by the *.Fio2007-Config files beside zvfio.exe,\n"
    "as the file I/O manager records them: path, reader and renderer class ids.\n"
    "\n"
    "  --load   load each reader and report its name or the failure\n"
    "  --json   the list as JSON\n",
    Plugins,
};

const Command kIdentifyCommand = {
    "identify", "which reader takes each file",
    "usage: zvfio identify FILE...\n"
    "\n"
    "Names the reader class that the file I/O manager picks for each file.\n",
    Identify,
};

const Command kInfoCommand = {
    "info", "streams and formats of a file",
    "usage: zvfio info [--json] FILE\n"
    "\n"
    "Opens the file with its reader and prints its streams: type, length, and\n"
    "for audio the format delivered and the format stored.\n",
    Info,
};

const Command kReadCommand = {
    "read", "reads all samples of a file",
    "usage: zvfio read [--raw OUT] FILE\n"
    "\n"
    "Opens the file with its reader, reads every frame of its first stream and\n"
    "reports the count and the time taken; --raw OUT writes the decoded\n"
    "samples to OUT.\n",
    Read,
};

} // namespace zvfio
