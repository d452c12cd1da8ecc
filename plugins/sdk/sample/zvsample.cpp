// zvsample.dll: the smallest useful reader, a starting point for a plug-in
// of your own. It reads ".zvs" files: the 4 bytes "ZVS1", the number of
// sample frames (32-bit, little-endian), then that many frames of 16-bit
// stereo PCM at 48000 Hz. Everything a host needs from a plug-in is here:
// the listing object, a reader class that identifies and opens its files,
// an open file with one audio stream, and the DLL's two entry points. The
// kit (zvplugin_com.h) supplies reference counting, the class factory and
// the answers that don't depend on the format.
#include "zvplugin_com.h"
#include <mmreg.h>
#include <new>
#include <string.h>

// {6A1D37E2-3C0B-4E51-9A77-0C5E8B2D9F41}: pick a new GUID for your reader.
static const GUID CLSID_ZvSampleReader = {0x6a1d37e2, 0x3c0b, 0x4e51, {0x9a, 0x77, 0x0c, 0x5e, 0x8b, 0x2d, 0x9f, 0x41}};

namespace {

const char kMagic[4] = {'Z', 'V', 'S', '1'};
const DWORD kRate = 48000, kChannels = 2, kAlign = 4, kHeader = 8;

using zvsdk::Hand;

// Reads `size` bytes at `offset` without moving the handle's file pointer.
DWORD ReadAt(HANDLE file, ULONGLONG offset, void *buffer, DWORD size)
{
    OVERLAPPED at = {};
    at.Offset = (DWORD)offset;
    at.OffsetHigh = (DWORD)(offset >> 32);
    DWORD got = 0;
    return ReadFile(file, buffer, size, &got, &at) ? got : 0;
}

// The stream's format: 16-bit stereo PCM at 48000 Hz.
HRESULT FillFormat(_ZVFILESTREAMFORMATINFOv2 *format, LONGLONG frames)
{
    if (!format)
        return E_POINTER;
    zvsdk::StartFormat(format, ZVFILESTREAMTYPE_AUDIO, frames);
    WAVEFORMATEX wf = {WAVE_FORMAT_PCM, (WORD)kChannels, kRate, kRate * kAlign, (WORD)kAlign, 16, 0};
    memcpy(format->format, &wf, sizeof wf);
    return S_OK;
}

class SampleStream : public zvsdk::AudioStream {
public:
    SampleStream(IZvReadFile *file, HANDLE data, LONGLONG frames) : AudioStream(file, 0, frames, kAlign), data_(data) {}
    HRESULT STDMETHODCALLTYPE GetStreamFormatInfo(_ZVFILESTREAMFORMATINFOv2 *format) override
    {
        return FillFormat(format, frames_);
    }
    // Frames from `position` into the caller's memory token; the kit has
    // checked the arguments and clipped the count to the stream.
    HRESULT ReadFrames(LONGLONG position, DWORD n, const _zvmemorytoken &buffer, DWORD *read) override
    {
        BYTE *bytes = new (std::nothrow) BYTE[(size_t)n * kAlign + 1];
        if (!bytes)
            return E_OUTOFMEMORY;
        DWORD got = ReadAt(data_, kHeader + (ULONGLONG)position * kAlign, bytes, n * kAlign) / kAlign;
        HRESULT hr = got ? zvsdk::WriteToken(buffer, bytes, got * kAlign) : ZVERR_UNSUPPORTED_FORMAT;
        delete[] bytes;
        *read = SUCCEEDED(hr) ? got : 0;
        return hr;
    }

private:
    HANDLE data_;   // the file's handle, owned by the file object
};

class SampleFile : public zvsdk::SingleAudioFile {
public:
    SampleFile(IZvReadFileClass *owner, BSTR name, HANDLE data, LONGLONG frames)
        : SingleAudioFile(owner, name, frames), data_(data)
    {
    }
    ~SampleFile() override { CloseHandle(data_); }
    HRESULT FillFormat(_ZVFILESTREAMFORMATINFOv2 *format) override { return ::FillFormat(format, frames_); }
    zvsdk::AudioStream *NewStream() override { return new (std::nothrow) SampleStream(this, data_, frames_); }
    HRESULT STDMETHODCALLTYPE GetLength(LONGLONG *length) override
    {
        if (!length)
            return E_POINTER;
        LARGE_INTEGER size = {};
        GetFileSizeEx(data_, &size);
        *length = size.QuadPart;
        return S_OK;
    }

private:
    HANDLE data_;
};

// The frames a file holds by its header, or -1 when it is not ours.
LONGLONG FramesOf(const BYTE *head, DWORD size, LONGLONG fileSize)
{
    if (size < kHeader || memcmp(head, kMagic, 4) != 0)
        return -1;
    DWORD frames;
    memcpy(&frames, head + 4, 4);
    // a header that promises more than the file holds is damage, not ours
    return fileSize >= 0 && kHeader + (LONGLONG)frames * kAlign > fileSize ? -1 : (LONGLONG)frames;
}

class SampleClass : public zvsdk::ClassObject<IZvReadFileClass, &IID_IZvReadFileClass> {
public:
    HRESULT STDMETHODCALLTYPE GetClassGuid(GUID *id) override
    {
        return zvsdk::Answer(id, CLSID_ZvSampleReader);
    }
    HRESULT STDMETHODCALLTYPE GetStreamTypes(DWORD *mask) override
    {
        return zvsdk::Answer(mask, ZVFIO_STREAMMASK_AUDIO);
    }
    HRESULT STDMETHODCALLTYPE GetRenderClass(IZvRenderFileClass **render) override
    {
        if (!render)
            return E_POINTER;
        *render = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetInfoText(const ZVFIO_FILECLASS_INFO_TEXT *ids, LONG count, BSTR *texts) override
    {
        if (count < 0 || (count && (!ids || !texts)))
            return count < 0 ? E_INVALIDARG : E_POINTER;
        for (LONG i = 0; i < count; i++) {
            const wchar_t *text = ids[i] == ZVFIO_INFOTEXT_SHORTNAME                                    ? L"ZvSample"
                                  : ids[i] == ZVFIO_INFOTEXT_DESCRIPTION || ids[i] == ZVFIO_INFOTEXT_PLUGINNAME ? L"Sample Reader"
                                  : ids[i] == ZVFIO_INFOTEXT_READEXTENSIONS || ids[i] == ZVFIO_INFOTEXT_EXTENSIONS ? L"*.zvs"
                                                                                                               : nullptr;
            texts[i] = text ? SysAllocString(text) : NULL;
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE IdentifyFile(const ZVFIO_IDENTIFYINFO *info) override
    {
        if (!info)
            return E_POINTER;
        if (info->cbSize < sizeof *info)
            return E_INVALIDARG;
        BYTE head[kHeader];
        DWORD got = 0;
        LONGLONG size = -1;
        HANDLE file = NULL;
        if (SUCCEEDED(zvsdk::AdoptHandle(info->hFile, info->dwProcessId, &file))) {
            got = ReadAt(file, 0, head, kHeader);
            LARGE_INTEGER s = {};
            if (GetFileSizeEx(file, &s))
                size = s.QuadPart;
            CloseHandle(file);
        } else if (info->pChunk) {
            got = info->cbChunk < kHeader ? info->cbChunk : kHeader;
            memcpy(head, info->pChunk, got);
        } else {
            return ZVERR_UNSUPPORTED_FORMAT;
        }
        return FramesOf(head, got, size) >= 0 ? S_OK : ZVERR_UNSUPPORTED_FORMAT;
    }
    HRESULT STDMETHODCALLTYPE IdentifyStream(IStream *, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE OpenFile(IZvReadFile **file, UINT64 handle, DWORD processId, LPCWSTR name,
                                       BOOL) override
    {
        if (!file)
            return E_POINTER;
        *file = nullptr;
        HANDLE data = NULL;
        if (FAILED(zvsdk::AdoptHandle(handle, processId, &data))) {
            if (!name || !*name)
                return E_INVALIDARG;
            data = CreateFileW(name, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL, OPEN_EXISTING, 0, NULL);
            if (data == INVALID_HANDLE_VALUE)
                return HRESULT_FROM_WIN32(GetLastError());
        }
        BYTE head[kHeader];
        LARGE_INTEGER size = {};
        GetFileSizeEx(data, &size);
        LONGLONG frames = FramesOf(head, ReadAt(data, 0, head, kHeader), size.QuadPart);
        if (frames < 0) {
            CloseHandle(data);
            return ZVERR_UNSUPPORTED_FORMAT;
        }
        BSTR copy = name ? SysAllocString(name) : NULL;
        SampleFile *opened = new (std::nothrow) SampleFile(this, copy, data, frames);
        if (!opened) {
            SysFreeString(copy);
            CloseHandle(data);
            return E_OUTOFMEMORY;
        }
        return Hand(opened, IID_IZvReadFile, (void **)file);
    }
    HRESULT STDMETHODCALLTYPE OpenStreamFile(IZvReadFile **, IStream *, LPCWSTR, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetMetaTypes(DWORD *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetPluginStatus(HRESULT *status, BSTR *message) override
    {
        if (!status)
            return E_POINTER;
        *status = S_OK;
        if (message)
            *message = SysAllocString(L"ready");
        return S_OK;
    }
};

HRESULT CreateObject(const void *, REFIID iid, void **out)
{
    return Hand(new (std::nothrow) SampleClass, iid, out);
}

// What the manager lists without opening anything: one reader class.
const ZVFIO_PLUGINCLASSINFO kClasses[] = {
    {CLSID_ZvSampleReader, L"Sample Reader", ZVFIO_ACCESS_READER, ZVFIO_STREAMMASK_AUDIO, 1, 0, 0, 0, 0, 0},
};
const zvsdk::ClassTable kTable = {kClasses, 1};

} // namespace

ZVSDK_ENTRY_POINTS(kTable, CreateObject)
