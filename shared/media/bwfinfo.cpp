// The broadcast wave record: the iXML element table, the two views kept in
// step, and reading bext and iXML from a RIFF wave file.
#include "bwf.h"
#include "riff.h"
#include "chunkio.h"
#include "xml/zvxml.h"
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

#define V(major, minor) ((DWORD)(major) | ((DWORD)(minor) << 16))
const _tagIxml_Info kIxml[] = {
    {16, L"BWFXML", V(1, 0), -1, -2},
    {17, L"IXML_VERSION", V(1, 0), 16, -1}, {18, L"PROJECT", V(1, 0), 16, -1}, {19, L"SCENE", V(1, 0), 16, -1},
    {20, L"TAKE", V(1, 0), 16, -1}, {21, L"TAPE", V(1, 0), 16, -1}, {22, L"CIRCLED", V(1, 0), 16, -1},
    {23, L"NO_GOOD", V(1, 52), 16, -1}, {24, L"FALSE_START", V(1, 52), 16, -1}, {25, L"WILD_TRACK", V(1, 52), 16, -1},
    {26, L"FILE_UID", V(1, 0), 16, -1}, {27, L"UBITS", V(1, 0), 16, -1}, {28, L"NOTE", V(1, 0), 16, -1},
    {29, L"USER", V(1, 0), 16, -1}, {30, L"PRE_RECORD_SAMPLECOUNT", V(1, 30), 16, -1},
    {31, L"SPEED", V(1, 0), 16, -2},
    {32, L"NOTE", V(1, 0), 31, 0}, {33, L"MASTER_SPEED", V(1, 0), 31, 0}, {34, L"CURRENT_SPEED", V(1, 0), 31, 0},
    {35, L"TIMECODE_FLAG", V(1, 0), 31, 0}, {36, L"TIMECODE_RATE", V(1, 0), 31, 0},
    {37, L"FILE_SAMPLE_RATE", V(1, 0), 31, 0}, {38, L"AUDIO_BIT_DEPTH", V(1, 0), 31, 0},
    {39, L"DIGITIZER_SAMPLE_RATE", V(1, 0), 31, 0}, {40, L"TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_HI", V(1, 0), 31, 0},
    {41, L"TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_LO", V(1, 0), 31, 0}, {42, L"TIMESTAMP_SAMPLE_RATE", V(1, 0), 31, 0},
    {43, L"HISTORY", V(1, 0), 16, -2},
    {44, L"ORIGINAL_FILENAME", V(1, 0), 43, 0}, {45, L"PARENT_FILENAME", V(1, 0), 43, 0},
    {46, L"PARENT_UID", V(1, 0), 43, 0},
    {47, L"FILE_SET", V(1, 0), 16, -2},
    {48, L"TOTAL_FILES", V(1, 0), 47, 0}, {49, L"FAMILY_UID", V(1, 0), 47, 0}, {50, L"FAMILY_NAME", V(1, 0), 47, 0},
    {51, L"FILE_SET_INDEX", V(1, 0), 47, 0},
    {52, L"BEXT", V(1, 0), 16, -2},
    {53, L"BWF_DESCRIPTION", V(1, 0), 52, 0}, {54, L"BWF_ORIGINATOR", V(1, 0), 52, 0},
    {55, L"BWF_ORIGINATOR_REFERENCE", V(1, 0), 52, 0}, {56, L"BWF_ORIGINATION_DATE", V(1, 0), 52, 0},
    {57, L"BWF_ORIGINATION_TIME", V(1, 0), 52, 0}, {58, L"BWF_TIME_REFERENCE_LOW", V(1, 0), 52, 0},
    {59, L"BWF_TIME_REFERENCE_HIGH", V(1, 0), 52, 0}, {60, L"BWF_VERSION", V(1, 0), 52, 0},
    {61, L"BWF_UMID", V(1, 0), 52, 0}, {62, L"BWF_RESERVED", V(1, 0), 52, 0},
    {63, L"BWF_CODING_HISTORY", V(1, 0), 52, 0},
    {64, L"TRACK_LIST", V(1, 0), 16, -2},
    {65, L"TRACK_COUNT", V(1, 0), 64, -1},
    {66, L"TRACK", V(1, 0), 64, -2},
    {67, L"CHANNEL_INDEX", V(1, 0), 66, 0}, {68, L"INTERLEAVE_INDEX", V(1, 0), 66, 0}, {69, L"NAME", V(1, 0), 66, 0},
    {70, L"FUNCTION", V(1, 0), 66, 0},
    {71, L"SYNC_POINT_LIST", V(1, 40), 16, -2},
    {72, L"SYNC_POINT_COUNT", V(1, 40), 71, -1},
    {73, L"SYNC_POINT", V(1, 40), 71, -2},
    {74, L"SYNC_POINT_TYPE", V(1, 40), 73, 0}, {75, L"SYNC_POINT_FUNCTION", V(1, 40), 73, 0},
    {76, L"SYNC_POINT_COMMENT", V(1, 40), 73, 0}, {77, L"SYNC_POINT_LOW", V(1, 40), 73, 0},
    {78, L"SYNC_POINT_HIGH", V(1, 40), 73, 0}, {79, L"SYNC_POINT_EVENT_DURATION", V(1, 40), 73, 0},
    {80, L"<Unknown iXML Element List>", 0, 16, -2},
};
#undef V
const int kRows = (int)(sizeof kIxml / sizeof kIxml[0]);
static_assert(sizeof kIxml / sizeof kIxml[0] == 65, "indexes 16 to 80");

const _tagIxml_Info *Row(int index)
{
    return index >= 16 && index <= 80 ? &kIxml[index - 16] : nullptr;
}

// The bext field of an iXML BEXT value, and back.
int Twin(int index)
{
    if (index >= 0 && index <= 10)
        return index + 53;
    if (index >= 53 && index <= 63)
        return index - 53;
    return -1;
}

WCHAR *Dup(const WCHAR *text)
{
    size_t n = wcslen(text) + 1;
    WCHAR *s = (WCHAR *)malloc(n * sizeof(WCHAR));
    if (s)
        memcpy(s, text, n * sizeof(WCHAR));
    return s;
}

// A fixed-width ANSI field up to its first zero.
HRESULT SetAnsi(_tagZVBWF_Chunk *chunk, int index, const BYTE *field, int width)
{
    int n = 0;
    while (n < width && field[n])
        n++;
    WCHAR text[300];
    int got = n ? MultiByteToWideChar(CP_ACP, 0, (const char *)field, n, text, 299) : 0;
    text[got] = 0;
    return ZvBWF_SetValue(chunk, index, text);
}

HRESULT SetNumber(_tagZVBWF_Chunk *chunk, int index, const WCHAR *format, double value)
{
    WCHAR text[32];
    _snwprintf(text, 31, format, value);
    text[31] = 0;
    return ZvBWF_SetValue(chunk, index, text);
}

} // namespace

const _tagIxml_Info *GetTblIxmlInfo(int *count)
{
    if (count)
        *count = kRows + 1; // with the closing row that follows in the published table's form
    return kIxml;
}

BOOL IsKnownIxmlNodeGlobal(const WCHAR *name)
{
    if (!name)
        return FALSE;
    for (int i = 0; i < kRows - 1; i++)
        if (!lstrcmpiW(kIxml[i].name, name))
            return TRUE;
    return FALSE;
}

const _tagIxml_Info *GetIxmlInfoIndexForMetaIdxGlobal(const _tagZVBWF_Chunk *, int index)
{
    return Row(index);
}

HRESULT ZvBWF_SetValue(_tagZVBWF_Chunk *chunk, int index, const WCHAR *text)
{
    if (!chunk || index < 0 || index >= ZVBWF_VALUE_COUNT)
        return E_INVALIDARG;
    int twin = Twin(index);
    WCHAR *a = nullptr, *b = nullptr;
    if (text && *text) {
        a = Dup(text);
        b = twin >= 0 ? Dup(text) : nullptr;
        if (!a || (twin >= 0 && !b)) {
            free(a);
            free(b);
            return E_OUTOFMEMORY;
        }
    }
    free(chunk->values[index]);
    chunk->values[index] = a;
    if (twin >= 0) {
        free(chunk->values[twin]);
        chunk->values[twin] = b;
    }
    if (index == ZVBWF_CODING_HISTORY || twin == ZVBWF_CODING_HISTORY)
        chunk->codingHistory = chunk->values[ZVBWF_CODING_HISTORY];
    return S_OK;
}

const WCHAR *ZvBWF_GetValue(const _tagZVBWF_Chunk *chunk, int index)
{
    return chunk && index >= 0 && index < ZVBWF_VALUE_COUNT ? chunk->values[index] : nullptr;
}

void ZvBWF_Clear(_tagZVBWF_Chunk *chunk)
{
    if (!chunk)
        return;
    for (WCHAR *&v : chunk->values) {
        free(v);
        v = nullptr;
    }
    chunk->codingHistory = nullptr;
    chunk->filled = 0;
    chunk->nodeLevel = 0;
}

// The published bext layout: texts of fixed width, the time reference in two
// words, the version, the UMID, five loudness words of version 2, reserved
// room, then the coding history to the end.
static HRESULT LoadBext(const BYTE *b, DWORD size, _tagZVBWF_Chunk *chunk)
{
    if (size < 348)
        return ZVERR_MALFORMED;
    HRESULT hr;
    if (FAILED(hr = SetAnsi(chunk, ZVBWF_DESCRIPTION, b, 256)) ||
        FAILED(hr = SetAnsi(chunk, ZVBWF_ORIGINATOR, b + 256, 32)) ||
        FAILED(hr = SetAnsi(chunk, ZVBWF_ORIGINATOR_REFERENCE, b + 288, 32)) ||
        FAILED(hr = SetAnsi(chunk, ZVBWF_ORIGINATION_DATE, b + 320, 10)) ||
        FAILED(hr = SetAnsi(chunk, ZVBWF_ORIGINATION_TIME, b + 330, 8)) ||
        FAILED(hr = SetNumber(chunk, ZVBWF_TIME_REFERENCE_LOW, L"%.0f", zvmedia::LoadLE32(b + 338))) ||
        FAILED(hr = SetNumber(chunk, ZVBWF_TIME_REFERENCE_HIGH, L"%.0f", zvmedia::LoadLE32(b + 342))))
        return hr;
    WCHAR version[16];
    _snwprintf(version, 15, L"%d.%02d", b[346] | b[347] << 8, 0);
    version[15] = 0;
    if (FAILED(hr = ZvBWF_SetValue(chunk, ZVBWF_VERSION, version)))
        return hr;
    if (size >= 412 && FAILED(hr = SetAnsi(chunk, ZVBWF_UMID, b + 348, 64)))
        return hr;
    if (size >= 422) {
        for (int i = 0; i < 5; i++) {
            short v = (short)(b[412 + 2 * i] | b[413 + 2 * i] << 8);
            if (FAILED(hr = SetNumber(chunk, ZVBWF_LOUDNESS_VALUE + i, L"%.2f", v / 100.0)))
                return hr;
        }
    }
    if (size > 602) {
        DWORD n = size - 602;
        WCHAR *text = (WCHAR *)malloc(((size_t)n + 1) * sizeof(WCHAR));
        if (!text)
            return E_OUTOFMEMORY;
        DWORD len = 0;
        while (len < n && b[602 + len])
            len++;
        int got = len ? MultiByteToWideChar(CP_ACP, 0, (const char *)b + 602, (int)len, text, (int)n) : 0;
        text[got] = 0;
        hr = ZvBWF_SetValue(chunk, ZVBWF_CODING_HISTORY, text);
        free(text);
    }
    return hr;
}

// The document reads 8-bit text as ANSI, and iXML is UTF-8 by its own
// rules: UTF-8 (with or without its mark) and big-endian UTF-16 are handed
// over as little-endian UTF-16 with a mark. Bytes that are not valid UTF-8
// stay 8-bit, for older files written in the ANSI code page.
static BYTE *IxmlAsDocumentText(const BYTE *data, DWORD size, DWORD *outSize)
{
    BYTE *copy = nullptr;
    if (size >= 2 && data[0] == 0xFE && data[1] == 0xFF) {
        DWORD n = size & ~1u;
        if ((copy = (BYTE *)malloc(n)) != nullptr) {
            copy[0] = 0xFF, copy[1] = 0xFE;
            for (DWORD i = 2; i < n; i += 2)
                copy[i] = data[i + 1], copy[i + 1] = data[i];
            *outSize = n;
        }
        return copy;
    }
    if (!(size >= 2 && data[0] == 0xFF && data[1] == 0xFE)) {
        DWORD skip = size >= 3 && data[0] == 0xEF && data[1] == 0xBB && data[2] == 0xBF ? 3 : 0;
        DWORD end = skip;
        bool wide = skip != 0;
        while (end < size && data[end]) // a chunk updated in place ends in zeros
            wide |= data[end++] >= 0x80;
        int n = wide && end > skip ? MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, (const char *)data + skip,
                                                         (int)(end - skip), nullptr, 0)
                                   : 0;
        if (n > 0 && (copy = (BYTE *)malloc(((size_t)n + 1) * sizeof(WCHAR))) != nullptr) {
            copy[0] = 0xFF, copy[1] = 0xFE;
            MultiByteToWideChar(CP_UTF8, 0, (const char *)data + skip, (int)(end - skip), (WCHAR *)copy + 1, n);
            *outSize = (DWORD)(n + 1) * sizeof(WCHAR);
            return copy;
        }
        data += skip, size -= skip; // a mark with nothing valid behind it
    }
    if ((copy = (BYTE *)malloc(size ? size : 1)) != nullptr) {
        memcpy(copy, data, size);
        *outSize = size;
    }
    return copy;
}

HRESULT ExtractIxmlContent(const void *data, DWORD size, _tagZVBWF_Chunk *chunk)
{
    if (!data || !chunk)
        return E_INVALIDARG;
    // The block is copied: the document keeps a pointer into it.
    BYTE *copy = IxmlAsDocumentText((const BYTE *)data, size, &size);
    if (!copy)
        return E_OUTOFMEMORY;
    CZvXML_Document *doc = new CZvXML_Document;
    HRESULT hr = doc ? doc->OpenMemory(copy, size) : E_OUTOFMEMORY;
    if (SUCCEEDED(hr))
        hr = doc->ParseFile();
    if (SUCCEEDED(hr) && !doc->Root())
        hr = E_FAIL;
    if (SUCCEEDED(hr)) {
        chunk->filled = 1;
        // Known values by name under their table parent; the walk keeps to
        // the levels the table knows (the root and one or two below).
        tagZVXML_ELEMENT *stack[8];
        int rows[8];
        int depth = 0;
        stack[depth] = &doc->Root()->element;
        rows[depth++] = 16;
        while (depth && SUCCEEDED(hr)) {
            tagZVXML_ELEMENT *e = stack[--depth];
            int parentRow = rows[depth];
            for (int i = 0, n = ZvList_GetCount(e->contents); i < n; i++) {
                auto *c = (tagZVXML_CONTENT *)ZvList_GetItem(e->contents, i);
                if (c->type != ZVXML_ELEMENT)
                    continue;
                for (const _tagIxml_Info &r : kIxml) {
                    if (r.parent != parentRow || wcscmp(r.name, c->element.name))
                        continue;
                    if (r.kind == -2) {
                        if (depth < 8) {
                            stack[depth] = &c->element;
                            rows[depth++] = r.index;
                        }
                    } else if (ZvList_GetCount(c->element.contents) && !chunk->values[r.index]) {
                        int len = 0;
                        if (SUCCEEDED(doc->GetContentStringReqLen(&c->element, &len)) && len > 0) {
                            WCHAR *text = (WCHAR *)malloc((size_t)len * sizeof(WCHAR));
                            if (!text) {
                                hr = E_OUTOFMEMORY;
                                break;
                            }
                            doc->GetContentString(&c->element, text, len);
                            if (ZvXML_DoesStringHaveEscapes(text))
                                ZvXML_RemoveEscapes(text);
                            // A value of a table is stored in the table's own
                            // spelling; one the table does not know reads as -1.
                            const _tagIxml_Value *table = ZvBWF_ValueTableOf(r.index);
                            if (table) {
                                int v = ZvBWF_ValueOfText(table, text);
                                hr = ZvBWF_SetValue(chunk, r.index, v < 0 ? L"-1" : table[v].text);
                            } else {
                                hr = ZvBWF_SetValue(chunk, r.index, text);
                            }
                            free(text);
                        }
                    }
                    break;
                }
            }
        }
        if (SUCCEEDED(hr))
            hr = S_OK;
    }
    delete doc;
    free(copy);
    return hr;
}

HRESULT bwfriff_LoadInfo(HANDLE file, _tagZVBWF_Chunk *chunk, BOOL *found)
{
    if (!chunk || !found)
        return E_INVALIDARG;
    *found = FALSE;
    static const DWORD kBext[2] = {ZVRIFF_ID('b', 'e', 'x', 't'), ZVRIFF_ID('B', 'E', 'X', 'T')};
    HRESULT result = S_OK;
    for (int which = 0; which < 3; which++) {
        DWORD id = which < 2 ? kBext[which] : ZVRIFF_ID('i', 'X', 'M', 'L');
        if (which == 1 && *found)
            continue; // BEXT only stands in for a missing bext
        DWORD size = 0, remaining = 0;
        HRESULT hr = riff_FindChunkHeaderInRIFF(file, id, &size, &remaining);
        if (hr == ZVERR_NOT_FOUND)
            continue;
        if (FAILED(hr))
            return hr;
        tZVRIFFBLOCK block = {size, nullptr};
        if (FAILED(hr = riff_ReadDataAlloc(file, &block)))
            return hr;
        hr = which < 2 ? LoadBext((const BYTE *)block.data, block.size, chunk)
                       : ExtractIxmlContent(block.data, block.size, chunk);
        HGLOBAL g = GlobalHandle(block.data);
        GlobalUnlock(g);
        GlobalFree(g);
        if (FAILED(hr))
            result = hr; // the values read so far stay
        else
            *found = TRUE;
    }
    if (*found)
        chunk->filled = 1;
    return result;
}
