// avi.dll: reader of uncompressed AVI files (AVI 1.0 and OpenDML): RGB and
// the common YUV layouts as stored, and PCM audio beside them. One reader
// class under the class id that the manager's signature table names for
// AVI files.
//
// Self-contained like every plug-in: the format layer, the RIFF chunk
// layer, the wave format record and the memory token mapping are compiled
// in, so it loads in the application and in a surrogate alike.
#include "avireader.h"
#include "zvplugin_files.h"
#include <new>
#include <string.h>

namespace {

using zvsdk::Hand;

// {EA9D287B-C85A-11D3-BB3A-0050DA1A5B06}
const GUID CLSID_AviReader = {0xEA9D287B, 0xC85A, 0x11D3, {0xBB, 0x3A, 0x00, 0x50, 0xDA, 0x1A, 0x5B, 0x06}};

// the description is also the listed name (kClasses below)
const zvsdk::ClassTexts kTexts = {L"AVI", L"AVI (uncompressed)", L"*.avi", L"Uncompressed AVI Reader", L"1.0", nullptr};

class AviReadClass : public zvsdk::PlainReadClass {
public:
    HRESULT STDMETHODCALLTYPE GetClassGuid(GUID *id) override
    {
        return zvsdk::Answer(id, CLSID_AviReader);
    }
    HRESULT STDMETHODCALLTYPE GetStreamTypes(DWORD *mask) override
    {
        return zvsdk::Answer(mask, ZVFIO_STREAMMASK_AUDIO | ZVFIO_STREAMMASK_VIDEO);
    }
    HRESULT STDMETHODCALLTYPE GetInfoText(const ZVFIO_FILECLASS_INFO_TEXT *ids, LONG count, BSTR *texts) override
    {
        return zvsdk::AnswerInfoTexts(kTexts, ids, count, texts);
    }

    // By the first bytes, then by the headers and index when a file comes
    // with them: an AVI of a coding this reader doesn't read is refused, so
    // that a reader that has it can take the file. By the extension when
    // only a path is given.
    HRESULT STDMETHODCALLTYPE IdentifyFile(const ZVFIO_IDENTIFYINFO *info) override
    {
        if (!info)
            return E_POINTER;
        if (info->cbSize < sizeof(ZVFIO_IDENTIFYINFO))
            return E_INVALIDARG;
        HANDLE given = ZvSdk_WireToHandle(info->hFile);
        const bool haveFile = given != INVALID_HANDLE_VALUE && given != NULL;
        if (info->pChunk && info->cbChunk > 0) {
            if (!AviSniff(info->pChunk, info->cbChunk))
                return ZVERR_UNSUPPORTED_FORMAT;
            if (!haveFile)
                return S_OK;
        } else if (!haveFile) {
            if (!info->pszPath)
                return E_INVALIDARG;
            return zvsdk::NameHasExtension(info->pszPath, kTexts.extensions) ? S_OK : ZVERR_UNSUPPORTED_FORMAT;
        }
        HANDLE file = NULL;
        HRESULT hr = zvsdk::AdoptHandle(info->hFile, info->dwProcessId, &file);
        if (FAILED(hr))
            return hr;
        AviFile avi;
        hr = Parse(file, &avi);
        CloseHandle(file);
        return hr;
    }
    HRESULT OpenHandle(HANDLE file, BSTR name, IZvReadFile **out) override
    {
        AviFile avi;
        HRESULT hr = Parse(file, &avi);
        if (FAILED(hr)) {
            CloseHandle(file);
            SysFreeString(name);
            return hr;
        }
        return AviCreateReadFile(this, file, avi, name, out);
    }

private:
    // The headers and index, and whether this reader gives the file out.
    static HRESULT Parse(HANDLE file, AviFile *avi)
    {
        HRESULT hr;
        try {
            hr = AviParse(file, avi);
        } catch (const std::bad_alloc &) {
            hr = E_OUTOFMEMORY;   // an index claiming more entries than memory holds
        }
        return SUCCEEDED(hr) && !AviReadable(*avi) ? ZVERR_UNSUPPORTED_FORMAT : hr;
    }
};

HRESULT CreateAviObject(const void *, REFIID iid, void **out)
{
    return Hand(new (std::nothrow) AviReadClass, iid, out);
}

const ZVFIO_PLUGINCLASSINFO kClasses[] = {
    {CLSID_AviReader, L"AVI (uncompressed)", ZVFIO_ACCESS_READER, ZVFIO_STREAMMASK_AUDIO | ZVFIO_STREAMMASK_VIDEO, 1, 0, 0, 0, 0, 0},
};
const zvsdk::ClassTable kTable = {kClasses, 1};

} // namespace

ZVSDK_ENTRY_POINTS(kTable, CreateAviObject)

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID)
{
    if (reason == DLL_PROCESS_ATTACH)
        DisableThreadLibraryCalls(instance);
    return TRUE;
}
