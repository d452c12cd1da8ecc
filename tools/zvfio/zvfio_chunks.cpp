// zvfio chunks: the chunk tree of a RIFF, Wave64 or AIFF/AIFC file, read
// through the chunk layers. The walk is bounded by the file, not by stored
// sizes, so a damaged file shows where it goes wrong instead of failing.
#include "zvfio.h"
#include "zverror.h"
#include "media/riff.h"
#include "media/riff64.h"
#include "media/iff.h"
#include <stdio.h>
#include <string.h>

namespace zvfio {
namespace {

const unsigned kMaxNodes = 100000;

struct Node {
    std::string id;        // four characters, or a label name / GUID text
    std::string type;      // list or form type, if any
    ULONGLONG offset = 0;  // of the chunk header
    ULONGLONG size = 0;    // data bytes, as stored (Wave64: without its header)
    bool pastEnd = false;  // the stored size runs past the end of the file
    std::vector<Node> children;
};

struct Walk {
    HANDLE file;
    ULONGLONG length;
    unsigned nodes = 0;
};

std::string FourCC(DWORD lowFirst)
{
    std::string s;
    for (int i = 0; i < 4; i++) {
        char c = (char)(lowFirst >> (8 * i));
        s += c >= 0x20 && c < 0x7F ? c : '?';
    }
    return s;
}

// IFF ids are held with the first character in the high byte.
std::string FourCCBE(DWORD highFirst) { return FourCC(__builtin_bswap32(highFirst)); }

std::string LabelName(const GUID &g)
{
    static const struct {
        const GUID *guid;
        const char *name;
    } known[] = {{&ZVW64_RIFF, "riff"}, {&ZVW64_LIST, "list"}, {&ZVW64_WAVE, "wave"},
                 {&ZVW64_FMT, "fmt "},  {&ZVW64_DATA, "data"}, {&ZVW64_JUNK, "junk"}};
    for (const auto &k : known)
        if (IsEqualGUID(g, *k.guid))
            return k.name;
    char buf[48];
    snprintf(buf, sizeof buf, "{%08lX-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", (unsigned long)g.Data1,
             g.Data2, g.Data3, g.Data4[0], g.Data4[1], g.Data4[2], g.Data4[3], g.Data4[4], g.Data4[5],
             g.Data4[6], g.Data4[7]);
    return buf;
}

bool SeekTo(HANDLE file, ULONGLONG pos)
{
    LARGE_INTEGER d;
    d.QuadPart = (LONGLONG)pos;
    return SetFilePointerEx(file, d, nullptr, FILE_BEGIN) != FALSE;
}

bool Read(HANDLE file, void *buffer, DWORD size)
{
    DWORD got = 0;
    return ReadFile(file, buffer, size, &got, nullptr) && got == size;
}

void WalkRiff(Walk &w, ULONGLONG pos, ULONGLONG end, std::vector<Node> &out)
{
    while (pos + 8 <= end && w.nodes < kMaxNodes) {
        DWORD id = 0, size = 0;
        if (!SeekTo(w.file, pos) || FAILED(riff_ReadChunkHeader(w.file, &id, &size)))
            return;
        Node n;
        n.id = FourCC(id);
        n.offset = pos;
        n.size = size;
        ULONGLONG next = pos + 8 + (ULONGLONG)size + (size & 1);
        n.pastEnd = pos + 8 + (ULONGLONG)size > w.length;
        w.nodes++;
        DWORD type = 0;
        if (id == ZVRIFF_LIST && size >= 4 && Read(w.file, &type, 4)) {
            n.type = FourCC(type);
            WalkRiff(w, pos + 12, next < end ? next : end, n.children);
        }
        out.push_back(n);
        pos = next;
    }
}

void WalkWave64(Walk &w, ULONGLONG pos, ULONGLONG end, std::vector<Node> &out)
{
    while (pos + 24 <= end && w.nodes < kMaxNodes) {
        GUID label = {};
        ULONGLONG size = 0;
        if (!SeekTo(w.file, pos) || FAILED(riff64_ReadChunkHeader(w.file, &label, &size)))
            return;
        if (size > w.length)
            size = w.length + 1;   // far past the end: no sum below may wrap
        Node n;
        n.id = LabelName(label);
        n.offset = pos;
        n.size = size;
        ULONGLONG next = pos + 24 + ((size + 7) & ~7ull);
        n.pastEnd = pos + 24 + size > w.length;
        w.nodes++;
        GUID type;
        if (IsEqualGUID(label, ZVW64_LIST) && size >= 16 && Read(w.file, &type, 16)) {
            n.type = LabelName(type);
            WalkWave64(w, pos + 40, next < end ? next : end, n.children);
        }
        out.push_back(n);
        pos = next;
    }
}

void WalkIff(Walk &w, ULONGLONG pos, ULONGLONG end, std::vector<Node> &out)
{
    while (pos + 8 <= end && w.nodes < kMaxNodes) {
        tZVIFFCHUNKHDR h = {};
        if (!SeekTo(w.file, pos) || FAILED(iff_ReadChunkHdr(w.file, &h)))
            return;
        Node n;
        n.id = FourCCBE(h.id);
        n.offset = pos;
        n.size = h.size;
        ULONGLONG next = pos + 8 + (ULONGLONG)h.size + (h.size & 1);
        n.pastEnd = pos + 8 + (ULONGLONG)h.size > w.length;
        w.nodes++;
        out.push_back(n);
        pos = next;
    }
}

void PrintText(const Node &n, int depth)
{
    Out("%*s%-6s", depth * 2, "", ("'" + n.id + "'").c_str());
    if (!n.type.empty())
        Out(" '%s'", n.type.c_str());
    Out("  offset %llu  size %llu%s\n", n.offset, n.size, n.pastEnd ? "  (past the end of the file)" : "");
    for (const Node &c : n.children)
        PrintText(c, depth + 1);
}

void PrintJson(const Node &n, int depth)
{
    Out("%*s{\"id\": %s, ", depth * 2, "", JsonString(n.id).c_str());
    if (!n.type.empty())
        Out("\"type\": %s, ", JsonString(n.type).c_str());
    Out("\"offset\": %llu, \"size\": %llu, \"pastEnd\": %s", n.offset, n.size, n.pastEnd ? "true" : "false");
    if (!n.children.empty()) {
        Out(", \"chunks\": [\n");
        for (size_t i = 0; i < n.children.size(); i++) {
            PrintJson(n.children[i], depth + 1);
            Out(i + 1 < n.children.size() ? ",\n" : "\n");
        }
        Out("%*s]", depth * 2, "");
    }
    Out("}");
}

HRESULT Chunks(HANDLE file, Node &root, std::string &container)
{
    LARGE_INTEGER size;
    if (!GetFileSizeEx(file, &size))
        return ZvErrorHandler_TranslateWin32Error(GetLastError());
    Walk w{file, (ULONGLONG)size.QuadPart};
    BYTE head[40] = {};
    DWORD got = 0;
    if (!ReadFile(file, head, sizeof head, &got, nullptr))
        return ZvErrorHandler_TranslateWin32Error(GetLastError());
    SeekTo(file, 0);
    root.offset = 0;
    if (got >= 40 && memcmp(head, &ZVW64_RIFF, 16) == 0) {
        ULONGLONG body = 0;
        GUID form = {};
        HRESULT hr = riff64_ReadFileID(file, &body, &form);
        if (FAILED(hr))
            return hr == ZVERR_FILE_READ ? ZVERR_MALFORMED : hr;
        container = "Wave64";
        root.id = "riff";
        root.type = LabelName(form);
        root.size = body + 16;   // as stored, less its 24-byte header
        root.pastEnd = body + 40 > w.length;
        WalkWave64(w, 40, w.length, root.children);
        return S_OK;
    }
    if (got >= 12 && memcmp(head, "RIFF", 4) == 0) {
        DWORD body = 0, form = 0;
        HRESULT hr = riff_ReadFileID(file, &body, &form);
        if (FAILED(hr))
            return hr == ZVERR_FILE_READ ? ZVERR_MALFORMED : hr;
        container = "RIFF";
        root.id = "RIFF";
        root.type = FourCC(form);
        root.size = (DWORD)(body + 4);
        root.pastEnd = root.size + 8 > w.length;
        WalkRiff(w, 12, w.length, root.children);
        return S_OK;
    }
    if (got >= 12 && memcmp(head, "FORM", 4) == 0) {
        tZVIFFCHUNKHDR h = {};
        DWORD form = 0;
        HRESULT hr = iff_ReadFormType(file, &h, &form);
        if (FAILED(hr))
            return hr == ZVERR_FILE_READ ? ZVERR_MALFORMED : hr;
        container = "IFF";
        root.id = "FORM";
        root.type = FourCCBE(form);
        root.size = h.size;
        root.pastEnd = (ULONGLONG)h.size + 8 > w.length;
        WalkIff(w, 12, w.length, root.children);
        return S_OK;
    }
    return ZVERR_UNSUPPORTED_FORMAT;
}

HRESULT Run(const Args &args)
{
    if (args.files.empty())
        return ZVFIO_E_USAGE;
    HRESULT result = S_OK;
    if (args.json)
        Out("[\n");
    for (size_t i = 0; i < args.files.size(); i++) {
        const std::wstring &path = args.files[i];
        HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL,
                                  OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, NULL);
        HRESULT hr = file == INVALID_HANDLE_VALUE ? ZvErrorHandler_TranslateWin32Error(GetLastError()) : S_OK;
        Node root;
        std::string container;
        if (SUCCEEDED(hr)) {
            hr = Chunks(file, root, container);
            CloseHandle(file);
        }
        if (FAILED(hr)) {
            if (args.files.size() == 1) {
                if (args.json)
                    Out("]\n");
                return hr;
            }
            Err("zvfio chunks: %s: %s (0x%08lX)\n", Utf8(path).c_str(), ErrorText(hr).c_str(), (unsigned long)hr);
            result = hr;
            continue;
        }
        if (args.json) {
            Out("  {\"file\": %s, \"container\": %s, \"root\":\n", JsonString(Utf8(path)).c_str(),
                JsonString(container).c_str());
            PrintJson(root, 2);
            Out("}%s\n", i + 1 < args.files.size() ? "," : "");
        } else {
            if (args.files.size() > 1)
                Out("%s:\n", Utf8(path).c_str());
            PrintText(root, 0);
        }
    }
    if (args.json)
        Out("]\n");
    return result;
}

} // namespace

const Command kChunksCommand = {
    "chunks", "the chunk tree of a RIFF, Wave64 or AIFF/AIFC file",
    "usage: zvfio chunks [--json] FILE...\n"
    "\n"
    "Prints the chunks of each file: id (a list's or form's type beside it),\n"
    "offset of the chunk header and stored data size. Wave64 labels are shown\n"
    "by name when known, else as GUIDs; their sizes exclude the 24-byte header.\n"
    "The walk follows the file, not the stored sizes, and marks a chunk whose\n"
    "size runs past the end of the file.\n"
    "\n"
    "  --json   one JSON array with a tree per file\n",
    "--json",
    Run,
};

} // namespace zvfio
