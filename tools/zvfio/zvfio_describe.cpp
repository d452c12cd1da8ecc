// Failure texts that say what the file is: a folder is not "read only or in
// use", and an unsupported file names its coding and tag instead of only
// "unsupported format".
#include "zvfio.h"
#include "zvbase.h"
#include "audio/formatnames.h"
#include <string.h>

namespace zvfio {
namespace {

DWORD Le32(const BYTE *p) { return p[0] | (p[1] << 8) | (p[2] << 16) | ((DWORD)p[3] << 24); }
DWORD Be32(const BYTE *p) { return ((DWORD)p[0] << 24) | (p[1] << 16) | (p[2] << 8) | p[3]; }

// Common codings by their usual names; others by the kernel's table.
std::string TagName(UINT tag)
{
    static const struct {
        UINT tag;
        const char *name;
    } names[] = {{0x2, "MS ADPCM"}, {0x6, "A-law"}, {0x7, "\xC2\xB5-law"}, {0x11, "IMA ADPCM"},
                 {0x31, "GSM 6.10"}, {0x50, "MPEG audio"}, {0x55, "MPEG layer 3"}, {0xFF, "AAC"},
                 {0x2000, "AC-3"}, {0x2001, "DTS"}};
    for (const auto &n : names)
        if (n.tag == tag)
            return n.name;
    wchar_t text[128] = L"";
    ZvAudio_GetCompressionTypeName(tag, text, 128, FALSE);
    return text[0] ? Utf8(text) : "an unknown coding";
}

// The coding of a RIFF/WAVE or AIFF-C file, from its first 64 KiB.
std::string Coding(const std::wstring &path)
{
    HANDLE f = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                           0, nullptr);
    if (f == INVALID_HANDLE_VALUE)
        return std::string();
    static BYTE head[65536];
    DWORD got = 0;
    ReadFile(f, head, sizeof head, &got, nullptr);
    CloseHandle(f);
    char buf[160];
    if (got >= 12 && !memcmp(head, "RIFF", 4) && !memcmp(head + 8, "WAVE", 4)) {
        for (DWORD pos = 12; pos + 8 + 16 <= got;) {
            DWORD size = Le32(head + pos + 4);
            if (!memcmp(head + pos, "fmt ", 4)) {
                UINT tag = head[pos + 8] | (head[pos + 9] << 8);
                if (tag == 0xFFFE && size >= 40 && pos + 8 + 26 <= got)
                    tag = head[pos + 8 + 24] | (head[pos + 8 + 25] << 8);
                snprintf(buf, sizeof buf, "%s (tag %u)", TagName(tag).c_str(), tag);
                return buf;
            }
            if (size > got)
                break;
            pos += 8 + size + (size & 1);
        }
        return "a wave file without a readable format";
    }
    if (got >= 12 && !memcmp(head, "FORM", 4) && !memcmp(head + 8, "AIFC", 4)) {
        for (DWORD pos = 12; pos + 8 + 22 <= got;) {
            DWORD size = Be32(head + pos + 4);
            if (!memcmp(head + pos, "COMM", 4)) {
                snprintf(buf, sizeof buf, "AIFF-C coding '%.4s'", (const char *)head + pos + 8 + 18);
                return buf;
            }
            if (size > got)
                break;
            pos += 8 + size + (size & 1);
        }
    }
    return std::string();
}

} // namespace

std::string FailureText(const std::wstring &path, HRESULT hr)
{
    DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY))
        return "a folder, not a file";
    if (hr == ZVERR_UNSUPPORTED_FORMAT || hr == ZVERR_UNSUPPORTED_MEDIA) {
        std::string coding = Coding(path);
        if (!coding.empty())
            return coding + " is not supported by any installed reader";
    }
    return ErrorText(hr);
}

} // namespace zvfio
