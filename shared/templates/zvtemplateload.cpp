// Loading templates: the file form, the stream form, and the old V1 stream
// lifted to a V2 record. No loader leaves a partial record behind.
#include "templates/zvtemplate.h"
#include <stdlib.h>
#include <string.h>

namespace {

// Parts of the old form above this are damage, not data.
const DWORD kV1PartMax = ZVTEMPLATE_STREAM_MAX;

HRESULT ReadExact(IStream *stream, void *buffer, DWORD size)
{
    ULONG got = 0;
    HRESULT hr = stream->Read(buffer, size, &got);
    if (FAILED(hr) || got != size)
        return E_ZVTEMPLATE_BAD;
    return S_OK;
}

HRESULT ReadWord(IStream *stream, DWORD *value)
{
    return ReadExact(stream, value, sizeof *value);
}

// A size word, then that many bytes into a fresh block.
HRESULT ReadPart(IStream *stream, DWORD *size, BYTE **part)
{
    HRESULT hr = ReadWord(stream, size);
    if (FAILED(hr))
        return hr;
    if (*size > kV1PartMax)
        return E_ZVTEMPLATE_BAD;
    if (!*size)
        return S_OK;
    *part = (BYTE *)calloc(1, *size);
    if (!*part)
        return E_OUTOFMEMORY;
    return ReadExact(stream, *part, *size);
}

HRESULT ReadV1(ZVTEMPLATExV1 *v1, IStream *stream)
{
    HRESULT hr;
    if (FAILED(hr = ReadExact(stream, v1->name, sizeof v1->name)) ||
        FAILED(hr = ReadExact(stream, v1->notes, sizeof v1->notes)) || FAILED(hr = ReadWord(stream, &v1->hasAudio)))
        return hr;
    v1->name[259] = v1->notes[259] = 0;
    if (v1->hasAudio) {
        if (FAILED(hr = ReadExact(stream, v1->wfx, sizeof v1->wfx)) ||
            FAILED(hr = ReadWord(stream, &v1->audioStreams)) ||
            FAILED(hr = ReadPart(stream, &v1->encodedSize, &v1->encoded)) ||
            FAILED(hr = ReadExact(stream, v1->audioExtension, sizeof v1->audioExtension)) ||
            FAILED(hr = ReadPart(stream, &v1->audioDataSize, &v1->audioData)))
            return hr;
    }
    if (FAILED(hr = ReadWord(stream, &v1->hasVideo)) || !v1->hasVideo)
        return hr;
    if (FAILED(hr = ReadPart(stream, &v1->format1Size, &v1->format1)))
        return hr;
    if (!v1->format1Size)
        return E_UNEXPECTED;
    if (FAILED(hr = ReadWord(stream, &v1->videoStreams)) ||
        FAILED(hr = ReadExact(stream, v1->videoExtension, sizeof v1->videoExtension)) ||
        FAILED(hr = ReadPart(stream, &v1->format2Size, &v1->format2)))
        return hr;
    if (!v1->format2Size)
        return E_UNEXPECTED;
    if (FAILED(hr = ReadWord(stream, &v1->further)) ||
        FAILED(hr = ReadExact(stream, v1->videoExtension2, sizeof v1->videoExtension2)) ||
        FAILED(hr = ReadPart(stream, &v1->videoDataSize, &v1->videoData)))
        return hr;
    return S_OK;
}

// An encoded format of the old form into the record's 96-byte room.
HRESULT LiftEncoded(tagZVTEMPLATExV2 *t, const ZVTEMPLATExV1 &v1)
{
    if (!v1.encodedSize)
        return S_OK;
    BYTE wfx[18] = {};
    if (v1.encodedSize < 16)
        return E_ZVTEMPLATE_BAD;
    memcpy(wfx, v1.encoded, v1.encodedSize < 18 ? v1.encodedSize : 18);
    WAVEFORMATEX *head = (WAVEFORMATEX *)wfx;
    if (v1.encodedSize < 18)
        head->cbSize = 0;
    ZVWAVEFORMAT *dest = ZvTemplateAt<ZVWAVEFORMAT>(t, ZVT_OFS_AUDIO_ENCODED);
    if (head->wFormatTag == WAVE_FORMAT_PCM || head->wFormatTag == WAVE_FORMAT_IEEE_FLOAT) {
        head->cbSize = 0;
        return dest->Init(96, head);
    }
    if (18u + head->cbSize > 96u || 18u + head->cbSize > v1.encodedSize)
        return E_ZVTEMPLATE_BAD;
    return dest->Init(96, (const WAVEFORMATEX *)v1.encoded);
}

HRESULT Lift(tagZVTEMPLATExV2 **out, const ZVTEMPLATExV1 &v1, IZvRenderFileClass *renderClass)
{
    ULONGLONG dataSize = (ULONGLONG)v1.audioDataSize + v1.videoDataSize;
    if (dataSize > ZVTEMPLATE_STREAM_MAX)
        return E_ZVTEMPLATE_BAD;
    tagZVTEMPLATExV2 *t = NULL;
    DWORD version = (v1.dwVersion & 0xFFFFFFu) | ZVTEMPLATE_VERSION_V2;
    HRESULT hr = ZvFio_MakeTemplate(&t, version, NULL, 0, (DWORD)dataSize, v1.name, v1.notes);
    if (FAILED(hr))
        return hr;
    BYTE *data = ZvFio_GetTemplateData(t);
    if (v1.hasAudio) {
        *ZvTemplateAt<DWORD>(t, ZVT_OFS_AUDIO) = ZVTEMPLATE_BLOCK_SIZE;
        *ZvTemplateAt<DWORD>(t, ZVT_OFS_AUDIO_COUNT) = v1.audioStreams;
        WAVEFORMATEX wfx;
        memcpy(&wfx, v1.wfx, sizeof v1.wfx);
        if (wfx.wFormatTag == WAVE_FORMAT_EXTENSIBLE) {
            wfx.cbSize = 0;
            wfx.wFormatTag = wfx.wBitsPerSample < 32 ? WAVE_FORMAT_PCM : WAVE_FORMAT_IEEE_FLOAT;
        }
        wfx.cbSize = 0; // the old form never holds extra bytes here
        ZvTemplateAt<ZVWAVEFORMAT>(t, ZVT_OFS_AUDIO_FORMAT)->Init(32, &wfx);
        memcpy(ZvTemplateAt<BYTE>(t, ZVT_OFS_AUDIO_EXT), v1.audioExtension, sizeof v1.audioExtension);
        if (FAILED(hr = LiftEncoded(t, v1))) {
            free(t);
            return hr;
        }
        if (v1.audioDataSize)
            memcpy(data, v1.audioData, v1.audioDataSize);
    }
    if (v1.hasVideo) {
        *ZvTemplateAt<DWORD>(t, ZVT_OFS_VIDEO) = ZVTEMPLATE_BLOCK_SIZE;
        *ZvTemplateAt<DWORD>(t, ZVT_OFS_VIDEO_COUNT) = v1.videoStreams;
        memcpy(ZvTemplateAt<BYTE>(t, ZVT_OFS_VIDEO_EXT), v1.videoExtension, sizeof v1.videoExtension);
        memcpy(ZvTemplateAt<BYTE>(t, ZVT_OFS_VIDEO_FRAME), v1.format1, v1.format1Size < 40 ? v1.format1Size : 40);
        memcpy(ZvTemplateAt<BYTE>(t, ZVT_OFS_VIDEO_ENCODED), v1.format2, v1.format2Size < 40 ? v1.format2Size : 40);
        if (v1.videoDataSize)
            memcpy(data + v1.audioDataSize, v1.videoData, v1.videoDataSize);
    }
    if (t->dwDataSize && renderClass) {
        renderClass->GetClassGuid(&t->rendererClass);
        static const BYTE kLifted[12] = {0x00, 0x00, 0x10, 0x10, 0x80, 0x00, 0x00, 0x11, 0, 0, 0, 0};
        t->templateId.Data1 = ZvFio_GetTemplateDataCRC32(t, FALSE);
        memcpy((BYTE *)&t->templateId + 4, kLifted, sizeof kLifted);
        tagZVTEMPLATExV2 *result = NULL;
        hr = renderClass->TransformTemplate(&result, t, 1);
        if (hr == E_NOTIMPL) {
            free(result);
        } else if (FAILED(hr)) {
            free(result);
            free(t);
            return hr;
        } else if (result && result != t) {
            free(t);
            t = result;
        }
    }
    *out = t;
    return S_OK;
}

} // namespace

void ZvFio_FreeTemplateDataV1(ZVTEMPLATExV1 *v1)
{
    if (!v1)
        return;
    BYTE **parts[] = {&v1->encoded, &v1->audioData, &v1->format1, &v1->format2, &v1->videoData};
    for (BYTE **p : parts) {
        free(*p);
        *p = NULL;
    }
}

HRESULT ZvFio_LoadTemplateDataV1(ZVTEMPLATExV1 *v1, IStream *stream, DWORD highestVersion, BOOL headerRead)
{
    if (!v1 || !stream)
        return E_POINTER;
    DWORD size = headerRead ? v1->dwSize : 0, version = headerRead ? v1->dwVersion : 0;
    memset(v1, 0, sizeof *v1);
    HRESULT hr;
    if (!headerRead && (FAILED(hr = ReadWord(stream, &size)) || FAILED(hr = ReadWord(stream, &version))))
        return hr;
    if ((version >> 24) != 1 || (version >> 24) > (highestVersion >> 24))
        return E_ZVTEMPLATE_BAD;
    v1->dwSize = size;
    v1->dwVersion = version;
    hr = ReadV1(v1, stream);
    if (FAILED(hr))
        ZvFio_FreeTemplateDataV1(v1);
    return hr;
}

HRESULT ZvFio_LoadTemplateData(tagZVTEMPLATExV2 **out, HANDLE file)
{
    if (!out)
        return E_POINTER;
    *out = NULL;
    LARGE_INTEGER size;
    if (!GetFileSizeEx(file, &size))
        return E_ZVTEMPLATE_READ;
    if (size.QuadPart <= 0 || size.QuadPart >= 0x100000000ll)
        return E_ZVTEMPLATE_BAD;
    DWORD bytes = (DWORD)size.QuadPart;
    BYTE *block = (BYTE *)calloc(1, bytes < ZVTEMPLATE_MIN_SIZE ? ZVTEMPLATE_MIN_SIZE : bytes);
    if (!block)
        return E_OUTOFMEMORY;
    DWORD got = 0;
    if (!ReadFile(file, block, bytes, &got, NULL)) {
        free(block);
        return E_ZVTEMPLATE_READ;
    }
    tagZVTEMPLATExV2 *t = (tagZVTEMPLATExV2 *)block;
    bool good = got >= ZVTEMPLATE_MIN_SIZE && t->dwSize <= got && t->dwVersion >= ZVTEMPLATE_VERSION_V1;
    if (good && (t->dwVersion >> 24) == 2) {
        ULONGLONG need = ZVTEMPLATE_HEADER_SIZE + (((ULONGLONG)t->dwDataSize + 3) & ~3ull) +
                         2ull * t->dwTextCapacity;
        DWORD audio = *ZvTemplateAt<DWORD>(t, ZVT_OFS_AUDIO), video = *ZvTemplateAt<DWORD>(t, ZVT_OFS_VIDEO);
        good = t->dwSize >= ZVTEMPLATE_MIN_SIZE && t->dwDataSize <= got && t->dwTextCapacity <= got && need <= got &&
               (audio == 0 || audio == ZVTEMPLATE_BLOCK_SIZE) && (video == 0 || video == ZVTEMPLATE_BLOCK_SIZE);
    }
    if (!good) {
        free(block);
        return E_ZVTEMPLATE_BAD;
    }
    *out = t;
    return S_OK;
}

HRESULT ZvFio_LoadTemplateData(tagZVTEMPLATExV2 **out, IStream *stream, DWORD highestVersion,
                               IZvRenderFileClass *renderClass)
{
    if (!out)
        return E_POINTER;
    *out = NULL;
    if (!stream)
        return E_POINTER;
    DWORD head[2];
    if (FAILED(ReadExact(stream, head, sizeof head)))
        return E_ZVTEMPLATE_BAD;
    DWORD high = head[1] >> 24;
    if (high > (highestVersion >> 24) || high > 2 || high < 1)
        return E_ZVTEMPLATE_BAD;
    if (high == 2) {
        if (head[0] < ZVTEMPLATE_HEADER_SIZE || head[0] > ZVTEMPLATE_STREAM_MAX)
            return E_ZVTEMPLATE_BAD;
        tagZVTEMPLATExV2 *t =
            (tagZVTEMPLATExV2 *)calloc(1, head[0] < ZVTEMPLATE_MIN_SIZE ? ZVTEMPLATE_MIN_SIZE : head[0]);
        if (!t)
            return E_OUTOFMEMORY;
        t->dwSize = head[0];
        t->dwVersion = head[1];
        if (FAILED(ReadExact(stream, (BYTE *)t + 8, head[0] - 8))) {
            free(t);
            return E_ZVTEMPLATE_BAD;
        }
        *out = t;
        return S_OK;
    }
    ZVTEMPLATExV1 *v1 = (ZVTEMPLATExV1 *)calloc(1, sizeof(ZVTEMPLATExV1));
    if (!v1)
        return E_OUTOFMEMORY;
    v1->dwSize = head[0];
    v1->dwVersion = head[1];
    HRESULT hr = ZvFio_LoadTemplateDataV1(v1, stream, highestVersion, TRUE);
    if (SUCCEEDED(hr))
        hr = Lift(out, *v1, renderClass);
    ZvFio_FreeTemplateDataV1(v1);
    free(v1);
    return hr;
}

HRESULT ZvFio_LoadRawUserTemplate(IZvRenderFileClass *renderClass, LPCWSTR path, tagZVTEMPLATExV2 **out)
{
    if (!out)
        return E_POINTER;
    *out = NULL;
    HANDLE file = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, NULL,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, NULL);
    if (file == INVALID_HANDLE_VALUE)
        return ZVERR_FILE_OPEN;
    tagZVTEMPLATExV2 *t = NULL;
    HRESULT hr = ZvFio_LoadTemplateData(&t, file);
    CloseHandle(file);
    if (FAILED(hr))
        return hr;
    if ((t->dwVersion >> 24) == 1) {
        IStream *stream = NULL;
        hr = CreateStreamOnHGlobal(NULL, TRUE, &stream);
        if (SUCCEEDED(hr)) {
            ULONG written = 0;
            hr = stream->Write(t, t->dwSize, &written);
            free(t);
            t = NULL;
            LARGE_INTEGER zero = {};
            if (SUCCEEDED(hr))
                hr = stream->Seek(zero, STREAM_SEEK_SET, NULL);
            if (SUCCEEDED(hr))
                hr = ZvFio_LoadTemplateData(&t, stream, ZVTEMPLATE_VERSION_V2, renderClass);
            stream->Release();
        } else {
            free(t);
            t = NULL;
        }
        if (FAILED(hr))
            return hr;
    }
    if (renderClass) {
        DWORD writable = 1;
        if (renderClass->GetTemplateInfo(t, (BYTE *)&writable, sizeof writable, 23) == S_OK && writable == 0) {
            free(t);
            return ZVERR_TEMPLATE_REFUSED;
        }
    }
    *out = t;
    return S_OK;
}

BOOL ZvFio_IsUpliftedV1Template(const tagZVTEMPLATExV2 *t)
{
    static const BYTE kLifted[10] = {0x10, 0x10, 0x80, 0x00, 0x00, 0x11, 0, 0, 0, 0};
    return t && t->dwVersion == ZVTEMPLATE_VERSION_V2 && memcmp((const BYTE *)t + 46, kLifted, 10) == 0;
}
