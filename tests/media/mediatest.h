// Helpers of the chunk layer tests: byte builders and files on disk.
#pragma once
#include <gtest/gtest.h>
#include <windows.h>
#include <string>
#include <vector>
#include <cstring>
#include "testutil.h"
#include "media/iff.h"
#include "media/riff64.h"

namespace mediatest {

typedef std::vector<BYTE> Bytes;

inline void Put(Bytes &b, const void *data, size_t n) { b.insert(b.end(), (const BYTE *)data, (const BYTE *)data + n); }
inline void PutStr(Bytes &b, const char *s) { Put(b, s, strlen(s)); }
inline void Le16(Bytes &b, unsigned v) { BYTE x[2] = {(BYTE)v, (BYTE)(v >> 8)}; Put(b, x, 2); }
inline void Le32(Bytes &b, unsigned v) { BYTE x[4] = {(BYTE)v, (BYTE)(v >> 8), (BYTE)(v >> 16), (BYTE)(v >> 24)}; Put(b, x, 4); }
inline void Le64(Bytes &b, unsigned long long v) { Le32(b, (unsigned)v); Le32(b, (unsigned)(v >> 32)); }
inline void Be16(Bytes &b, unsigned v) { BYTE x[2] = {(BYTE)(v >> 8), (BYTE)v}; Put(b, x, 2); }
inline void Be32(Bytes &b, unsigned v) { BYTE x[4] = {(BYTE)(v >> 24), (BYTE)(v >> 16), (BYTE)(v >> 8), (BYTE)v}; Put(b, x, 4); }
inline unsigned GetLe32(const Bytes &b, size_t at) { return b[at] | (b[at + 1] << 8) | (b[at + 2] << 16) | ((unsigned)b[at + 3] << 24); }

// A RIFF chunk with its pad byte.
inline Bytes Chunk(const char *id, const Bytes &body)
{
    Bytes c;
    PutStr(c, id);
    Le32(c, (unsigned)body.size());
    Put(c, body.data(), body.size());
    if (body.size() & 1)
        c.push_back(0);
    return c;
}
inline Bytes Filled(size_t n, BYTE first = 1)
{
    Bytes b(n);
    for (size_t i = 0; i < n; i++)
        b[i] = (BYTE)(first + i * 7);
    return b;
}
inline Bytes Cat(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (auto &p : parts)
        Put(all, p.data(), p.size());
    return all;
}
// RIFF header with a correct size around the chunks.
inline Bytes Riff(const char *form, const Bytes &chunks)
{
    Bytes f;
    PutStr(f, "RIFF");
    Le32(f, (unsigned)(4 + chunks.size()));
    PutStr(f, form);
    Put(f, chunks.data(), chunks.size());
    return f;
}
inline Bytes List(const char *type, const Bytes &chunks)
{
    Bytes body;
    PutStr(body, type);
    Put(body, chunks.data(), chunks.size());
    return Chunk("LIST", body);
}
inline Bytes Fmt(unsigned tag, unsigned channels, unsigned rate, unsigned bits)
{
    Bytes f;
    unsigned align = channels * (bits / 8);
    Le16(f, tag); Le16(f, channels); Le32(f, rate); Le32(f, rate * align); Le16(f, align); Le16(f, bits);
    Le16(f, 0);
    return f;
}

// An IFF chunk (big-endian size) with its pad byte, and a FORM around chunks.
inline Bytes IffChunk(const char *id, const Bytes &body)
{
    Bytes c;
    PutStr(c, id);
    Be32(c, (unsigned)body.size());
    Put(c, body.data(), body.size());
    if (body.size() & 1)
        c.push_back(0);
    return c;
}
inline Bytes Form(const char *form, const Bytes &chunks)
{
    Bytes f;
    PutStr(f, "FORM");
    Be32(f, (unsigned)(4 + chunks.size()));
    PutStr(f, form);
    Put(f, chunks.data(), chunks.size());
    return f;
}
// The 18 bytes of a COMM chunk: channels, frames, bits, 80-bit rate.
inline Bytes CommBody(unsigned channels, unsigned frames, unsigned bits, DWORD rate)
{
    Bytes comm;
    Be16(comm, channels); Be32(comm, frames); Be16(comm, bits);
    WORD e = 0, m[4] = {};
    aiff_CreateRate(rate, &e, m);
    Be16(comm, e);
    for (WORD w : m)
        Be16(comm, w);
    return comm;
}

// A Wave64 chunk as stored (label, size with header, data, pad to 8), and
// a riff/wave file around chunks.
inline Bytes Chunk64(const GUID &label, const Bytes &body, long long storedOverride = -1)
{
    Bytes c;
    Put(c, &label, 16);
    Le64(c, storedOverride >= 0 ? (unsigned long long)storedOverride : body.size() + 24);
    Put(c, body.data(), body.size());
    while (c.size() % 8)
        c.push_back(0);
    return c;
}
inline Bytes W64(const Bytes &chunks)
{
    Bytes f;
    Put(f, &ZVW64_RIFF, 16);
    Le64(f, 40 + chunks.size());
    Put(f, &ZVW64_WAVE, 16);
    Put(f, chunks.data(), chunks.size());
    return f;
}

// A QuickTime atom: big-endian size with its header, then the name.
inline Bytes Atom(const char *name, const Bytes &body)
{
    Bytes a;
    Be32(a, (unsigned)(8 + body.size()));
    PutStr(a, name);
    Put(a, body.data(), body.size());
    return a;
}

// A whole file's bytes, empty when it can't be read.
inline Bytes FileBytes(const std::wstring &path)
{
    Bytes b;
    zvtest::ReadFileBytes(path, b);
    return b;
}

inline void AppendToFile(HANDLE h, const Bytes &b)
{
    LARGE_INTEGER z;
    z.QuadPart = 0;
    SetFilePointerEx(h, z, nullptr, FILE_END);
    DWORD put = 0;
    WriteFile(h, b.data(), (DWORD)b.size(), &put, nullptr);
}

// A file in a temporary folder, open for read and write.
class TestFile {
public:
    explicit TestFile(const Bytes &content, const wchar_t *name = L"t.bin") : path_(dir_.file(name))
    {
        zvtest::WriteFileBytes(path_, content.data(), content.size());
        open();
    }
    ~TestFile() { close(); }
    void open()
    {
        h_ = CreateFileW(path_.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                         FILE_ATTRIBUTE_NORMAL, nullptr);
    }
    void close()
    {
        if (h_ != INVALID_HANDLE_VALUE)
            CloseHandle(h_);
        h_ = INVALID_HANDLE_VALUE;
    }
    HANDLE h() const { return h_; }
    const std::wstring &path() const { return path_; }
    unsigned long long pos() const
    {
        LARGE_INTEGER z, p;
        z.QuadPart = 0;
        SetFilePointerEx(h_, z, &p, FILE_CURRENT);
        return (unsigned long long)p.QuadPart;
    }
    void seek(long long at) const
    {
        LARGE_INTEGER d;
        d.QuadPart = at;
        SetFilePointerEx(h_, d, nullptr, FILE_BEGIN);
    }
    Bytes bytes() const
    {
        Bytes b;
        LARGE_INTEGER size;
        GetFileSizeEx(h_, &size);
        b.resize((size_t)size.QuadPart);
        LARGE_INTEGER z, old;
        z.QuadPart = 0;
        SetFilePointerEx(h_, z, &old, FILE_CURRENT);
        SetFilePointerEx(h_, z, nullptr, FILE_BEGIN);
        DWORD got = 0;
        if (!b.empty())
            ReadFile(h_, b.data(), (DWORD)b.size(), &got, nullptr);
        SetFilePointerEx(h_, old, nullptr, FILE_BEGIN);
        return b;
    }
    void rewrite(const Bytes &content)
    {
        seek(0);
        DWORD put = 0;
        if (!content.empty())
            WriteFile(h_, content.data(), (DWORD)content.size(), &put, nullptr);
        SetEndOfFile(h_);
        seek(0);
    }

private:
    zvtest::TempDir dir_;
    std::wstring path_;
    HANDLE h_ = INVALID_HANDLE_VALUE;
};

// Folder of files made by outside tools before the test run (empty when the
// fixture step did not run): <build>/media-fixtures beside bin/.
std::wstring FixtureDir();
bool FixturesPresent();
#define NEED_FIXTURES()                                                    \
    if (!::mediatest::FixturesPresent())                                   \
    GTEST_SKIP() << "no media fixtures (run through ctest to make them)"
std::wstring OutDir();

// Busy blocks in all heaps of the process: what a leak leaves behind.
long long HeapBusyBlocks();

// A 16-bit stereo 44.1 kHz wave file with a chunk of every metadata kind,
// some in front of the audio and most behind it; audio is the data body.
Bytes MetaRichWave(const Bytes &audio);
// fmt and data only.
Bytes PlainWave(const Bytes &audio);
// The same as Wave64.
Bytes PlainWave64(const Bytes &audio);

} // namespace mediatest
