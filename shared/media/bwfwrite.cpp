// The broadcast wave record written back: a bext body from its fields and
// an iXML document from its nodes.
#include "bwf.h"
#include "riff.h"
#include "chunkio.h"
#include "xml/zvxml.h"
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

namespace {

// Bytes appended to a buffer that may be absent (measuring) or short.
struct Out {
    BYTE *data;
    DWORD capacity;
    DWORD size;
    void put(const void *p, DWORD n)
    {
        if (data && size + n <= capacity)
            memcpy(data + size, p, n);
        size += n;
    }
    void text(const char *s) { put(s, (DWORD)strlen(s)); }
    // iXML text: UTF-8, as its declaration says.
    void wide(const WCHAR *s)
    {
        int n = WideCharToMultiByte(CP_UTF8, 0, s, -1, nullptr, 0, nullptr, nullptr);
        if (n <= 1)
            return;
        if (data && size + (DWORD)n - 1 <= capacity)
            WideCharToMultiByte(CP_UTF8, 0, s, -1, (char *)data + size, n - 1, nullptr, nullptr);
        size += (DWORD)n - 1;
    }
};

void Field(BYTE *body, const WCHAR *text, int width)
{
    if (text)
        WideCharToMultiByte(CP_ACP, 0, text, -1, (char *)body, width, nullptr, nullptr);
    // a field filled to its width has no terminator; one cut short by the
    // conversion keeps what fit
}

DWORD Number(const WCHAR *text)
{
    return text ? (DWORD)wcstoul(text, nullptr, 10) : 0;
}

void BuildBext(const _tagZVBWF_Chunk *c, Out &out)
{
    BYTE body[602] = {};
    Field(body, c->values[ZVBWF_DESCRIPTION], 256);
    Field(body + 256, c->values[ZVBWF_ORIGINATOR], 32);
    Field(body + 288, c->values[ZVBWF_ORIGINATOR_REFERENCE], 32);
    Field(body + 320, c->values[ZVBWF_ORIGINATION_DATE], 10);
    Field(body + 330, c->values[ZVBWF_ORIGINATION_TIME], 8);
    zvmedia::StoreLE32(body + 338, Number(c->values[ZVBWF_TIME_REFERENCE_LOW]));
    zvmedia::StoreLE32(body + 342, Number(c->values[ZVBWF_TIME_REFERENCE_HIGH]));
    DWORD version = c->values[ZVBWF_VERSION] ? Number(c->values[ZVBWF_VERSION]) : 1;
    body[346] = (BYTE)version;
    body[347] = (BYTE)(version >> 8);
    Field(body + 348, c->values[ZVBWF_UMID], 64);
    for (int i = 0; i < 5; i++) {
        const WCHAR *v = c->values[ZVBWF_LOUDNESS_VALUE + i];
        short x = (short)(v ? wcstod(v, nullptr) * 100.0 + (v[0] == L'-' ? -0.5 : 0.5) : 0x7FFF);
        body[412 + 2 * i] = (BYTE)x;
        body[413 + 2 * i] = (BYTE)(x >> 8);
    }
    out.put(body, sizeof body);
    if (c->values[ZVBWF_CODING_HISTORY])
        out.wide(c->values[ZVBWF_CODING_HISTORY]);
}

// The record's iXML version as major | minor << 16; all rows without one.
DWORD RecordVersion(const _tagZVBWF_Chunk *c)
{
    const WCHAR *v = c->values[17];
    if (!v)
        return 0xFFFFFFFF;
    WCHAR *end = nullptr;
    DWORD major = wcstoul(v, &end, 10), minor = 0;
    if (end && *end == L'.')
        minor = wcstoul(end + 1, nullptr, 10);
    return major | minor << 16;
}

bool VersionOk(DWORD row, DWORD record)
{
    if (record == 0xFFFFFFFF)
        return true;
    DWORD rMajor = row & 0xFFFF, rMinor = row >> 16, major = record & 0xFFFF, minor = record >> 16;
    return major > rMajor || (major == rMajor && minor >= rMinor);
}

// A row below parent, in the index range and the record's version.
bool InScope(const _tagIxml_Info &r, int parent, int first, int last, DWORD version)
{
    return r.parent == parent && r.index >= first && r.index <= last && r.index != ZVIXML_UNKNOWN &&
           VersionOk(r.version, version);
}

bool HasValues(const _tagZVBWF_Chunk *c, int parent, int first, int last, DWORD version)
{
    int count = 0;
    const _tagIxml_Info *t = GetTblIxmlInfo(&count);
    for (int i = 0; i < count - 1; i++) {
        const _tagIxml_Info &r = t[i];
        if (!InScope(r, parent, first, last, version))
            continue;
        if (r.kind == -2 ? HasValues(c, r.index, first, last, version) : c->values[r.index] != nullptr)
            return true;
    }
    return false;
}

void Indent(Out &out, int level)
{
    for (int i = 0; i < level; i++)
        out.text("\t");
}

void BuildLevel(const _tagZVBWF_Chunk *c, Out &out, int parent, int first, int last, int level, DWORD version)
{
    int count = 0;
    const _tagIxml_Info *t = GetTblIxmlInfo(&count);
    for (int i = 0; i < count - 1; i++) {
        const _tagIxml_Info &r = t[i];
        if (!InScope(r, parent, first, last, version))
            continue;
        if (r.kind == -2) {
            if (!HasValues(c, r.index, first, last, version))
                continue;
            Indent(out, level);
            out.text("<"), out.wide(r.name), out.text(">\r\n");
            BuildLevel(c, out, r.index, first, last, level + 1, version);
            Indent(out, level);
            out.text("</"), out.wide(r.name), out.text(">\r\n");
        } else if (const WCHAR *v = c->values[r.index]) {
            Indent(out, level);
            out.text("<"), out.wide(r.name), out.text(">");
            int n = ZvXML_EscapedLength(v) + 1;
            WCHAR *escaped = (WCHAR *)malloc((size_t)n * sizeof(WCHAR));
            if (escaped && SUCCEEDED(ZvXML_AddEscapes(escaped, n, v)))
                out.wide(escaped);
            free(escaped);
            out.text("</"), out.wide(r.name), out.text(">\r\n");
        }
    }
}

} // namespace

HRESULT BuildRawBwfIxmlChunkGlobal(const _tagZVBWF_Chunk *chunk, BYTE *data, DWORD *size, int first, int last,
                                   int level)
{
    if (!chunk || !size || first < 0 || last < first || last >= ZVBWF_VALUE_COUNT)
        return E_INVALIDARG;
    Out out = {data, data ? *size : 0, 0};
    if (first <= ZVBWF_MAX_SHORT_TERM) {
        BuildBext(chunk, out);
    } else {
        DWORD version = RecordVersion(chunk);
        if (HasValues(chunk, ZVIXML_BWFXML, first, last, version)) {
            out.text("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<BWFXML>\r\n");
            BuildLevel(chunk, out, ZVIXML_BWFXML, first, last, level + 1, version);
            out.text("</BWFXML>\r\n");
        }
    }
    bool fits = !data || out.size <= *size;
    *size = out.size;
    return fits ? S_OK : ZVERR_BUFFER_TOO_SMALL;
}

HRESULT BuildAndWriteRawIxmlChunk(HANDLE file, const _tagZVBWF_Chunk *chunk, BOOL isWave64)
{
    if (!chunk || !file || file == INVALID_HANDLE_VALUE)
        return E_INVALIDARG;
    if (isWave64)
        return E_NOTIMPL;
    DWORD size = 0;
    HRESULT hr = BuildRawBwfIxmlChunkGlobal(chunk, nullptr, &size, 16, 79, 0);
    if (FAILED(hr))
        return hr;
    if (!size) {
        DWORD removed = 0;
        hr = bwfriff_DeleteChunk(BWF_CHUNK_IXML, file, &removed);
        return hr == ZVERR_NOT_FOUND ? S_OK : hr;
    }
    BYTE *data = (BYTE *)malloc(size);
    if (!data)
        return E_OUTOFMEMORY;
    hr = BuildRawBwfIxmlChunkGlobal(chunk, data, &size, 16, 79, 0);
    DWORD written = 0;
    if (SUCCEEDED(hr))
        hr = bwfriff_UpdateStreamChunk(BWF_CHUNK_IXML, file, data, size, &written);
    free(data);
    return hr;
}

HRESULT bwfriff_SaveBext(HANDLE file, const _tagZVBWF_Chunk *chunk)
{
    if (!chunk)
        return E_INVALIDARG;
    DWORD size = 0;
    BuildRawBwfIxmlChunkGlobal(chunk, nullptr, &size, 0, 15, 0);
    BYTE *data = (BYTE *)malloc(size);
    if (!data)
        return E_OUTOFMEMORY;
    HRESULT hr = BuildRawBwfIxmlChunkGlobal(chunk, data, &size, 0, 15, 0);
    DWORD written = 0;
    if (SUCCEEDED(hr))
        hr = bwfriff_UpdateStreamChunk(BWF_CHUNK_BEXT, file, data, size, &written);
    free(data);
    return hr;
}
