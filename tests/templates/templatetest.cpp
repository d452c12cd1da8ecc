#include "templatetest.h"
#include <stdlib.h>

namespace templatetest {

tagZVTEMPLATExV2 *MakeVectorRecord(DWORD dataSize, const wchar_t *name, const wchar_t *notes)
{
    tagZVTEMPLATExV2 *t = nullptr;
    if (FAILED(ZvFio_MakeTemplate(&t, ZVTEMPLATE_VERSION_V2, nullptr, 3, dataSize, name, notes)))
        return nullptr;
    BYTE *b = (BYTE *)t;
    for (DWORD i = 56; i < 528; i++)
        b[i] = (BYTE)(i * 7 + 3);
    for (DWORD i = 0; i < dataSize; i++)
        b[536 + i] = (BYTE)(i * 13 + 5);
    return t;
}

Bytes RecordBytes(const tagZVTEMPLATExV2 *t)
{
    return t ? Bytes((const BYTE *)t, (const BYTE *)t + t->dwSize) : Bytes();
}

static void Put(Bytes &b, const void *p, size_t n)
{
    b.insert(b.end(), (const BYTE *)p, (const BYTE *)p + n);
}

static void PutWord(Bytes &b, DWORD v)
{
    Put(b, &v, 4);
}

static void PutPart(Bytes &b, const Bytes &part)
{
    PutWord(b, (DWORD)part.size());
    Put(b, part.data(), part.size());
}

Bytes WriteV1(const V1Spec &s)
{
    Bytes b;
    PutWord(b, 0);
    PutWord(b, ZVTEMPLATE_VERSION_V1 | 0x42);
    WCHAR text[260] = {};
    wcsncpy(text, s.name.c_str(), 259);
    Put(b, text, sizeof text);
    memset(text, 0, sizeof text);
    wcsncpy(text, s.notes.c_str(), 259);
    Put(b, text, sizeof text);
    PutWord(b, s.audio);
    if (s.audio) {
        Put(b, &s.wfx, 18);
        PutWord(b, s.audioStreams);
        PutPart(b, s.encoded);
        BYTE ext[32];
        for (int i = 0; i < 32; i++)
            ext[i] = (BYTE)(0xA0 + i);
        Put(b, ext, 32);
        PutPart(b, s.audioData);
    }
    PutWord(b, s.video);
    if (s.video) {
        PutPart(b, s.format1);
        PutWord(b, 1);
        BYTE ext[64];
        for (int i = 0; i < 64; i++)
            ext[i] = (BYTE)(0x40 + i);
        Put(b, ext, 64);
        PutPart(b, s.format2);
        PutWord(b, 7);
        Put(b, ext, 64);
        PutPart(b, s.videoData);
    }
    DWORD size = (DWORD)b.size();
    memcpy(b.data(), &size, 4);
    return b;
}

IStream *StreamOf(const Bytes &bytes)
{
    IStream *s = nullptr;
    if (FAILED(CreateStreamOnHGlobal(nullptr, TRUE, &s)))
        return nullptr;
    ULONG written;
    s->Write(bytes.data(), (ULONG)bytes.size(), &written);
    LARGE_INTEGER zero = {};
    s->Seek(zero, STREAM_SEEK_SET, nullptr);
    return s;
}

HRESULT LoadStream(const Bytes &bytes, tagZVTEMPLATExV2 **t, DWORD version, IZvRenderFileClass *cls)
{
    IStream *s = StreamOf(bytes);
    HRESULT hr = ZvFio_LoadTemplateData(t, s, version, cls);
    s->Release();
    return hr;
}

STDMETHODIMP FakeRenderer::TransformTemplate(PZVTEMPLATE *result, PCZVTEMPLATE source, DWORD mode)
{
    transformCalls++;
    *result = nullptr;
    if (mode != 1 || FAILED(transformResult))
        return transformResult;
    // marks the lifted record in a copy, as a plug-in that adds its own data
    *result = ZvFio_CopyTemplate(source);
    (*result)->dwPresetId = 77;
    return S_OK;
}

} // namespace templatetest
