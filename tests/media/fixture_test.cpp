// Files made by outside tools (tests/media/fixtures.py) walked by the chunk
// layers, and files written here for the outside tools to read back.
#include "mediatest.h"
#include "media/riff.h"
#include "media/riff64.h"
#include "media/iff.h"
#include "media/waveheader.h"
#include <stdlib.h>
#include <sstream>

using namespace mediatest;

namespace {

struct Entry {
    std::string what;
    unsigned long long offset;
    std::string id;
    unsigned long long size;
};
struct FileEntry {
    std::string name, kind;
    std::vector<Entry> chunks;
};

std::vector<FileEntry> ReadManifest()
{
    std::vector<BYTE> raw;
    zvtest::ReadFileBytes(FixtureDir() + L"manifest.txt", raw);
    std::istringstream in(std::string(raw.begin(), raw.end()));
    std::vector<FileEntry> files;
    std::string word;
    while (in >> word) {
        if (word == "file") {
            files.emplace_back();
            in >> files.back().name >> files.back().kind;
        } else if (word == "chunk" || word == "sub") {
            Entry e;
            e.what = word;
            in >> e.offset >> e.id >> e.size;
            files.back().chunks.push_back(e);
        }
    }
    return files;
}

std::string Hex(const void *p, size_t n)
{
    static const char digits[] = "0123456789abcdef";
    std::string s;
    for (size_t i = 0; i < n; i++) {
        BYTE b = ((const BYTE *)p)[i];
        s += digits[b >> 4];
        s += digits[b & 15];
    }
    return s;
}
std::string HexId(DWORD id)
{
    char buf[16];
    snprintf(buf, sizeof buf, "%08lx", (unsigned long)id);
    return buf;
}

std::wstring Wide(const std::string &s) { return std::wstring(s.begin(), s.end()); }

HANDLE OpenRW(const std::wstring &path)
{
    return CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
}

unsigned long long Pos(HANDLE h)
{
    ULONGLONG p = 0;
    riff64_SaveLocation(h, &p);
    return p;
}

// The audio of a PCM file: format, bytes.
bool ReadAudio(const std::wstring &path, WAVEFORMATEX *format, Bytes *audio)
{
    ULONGLONG frames = 0, offset = 0;
    WAVEFORMATEX *f = ZvGetFileWfx(path.c_str(), &frames, &offset);
    if (!f)
        return false;
    memcpy(format, f, sizeof *format);
    Bytes all;
    zvtest::ReadFileBytes(path, all);
    size_t n = (size_t)(frames * f->nBlockAlign);
    free(f);
    if (offset + n > all.size())
        return false;
    audio->assign(all.begin() + (size_t)offset, all.begin() + (size_t)(offset + n));
    return true;
}

} // namespace

TEST(MediaFixtures, ChunksOfOutsideFilesWalkWithTheirOffsetsAndSizes)
{
    NEED_FIXTURES();
    std::vector<FileEntry> files = ReadManifest();
    ASSERT_GE(files.size(), 7u);
    for (const FileEntry &f : files) {
        SCOPED_TRACE(f.name);
        HANDLE h = OpenRW(FixtureDir() + Wide(f.name));
        ASSERT_NE(INVALID_HANDLE_VALUE, h);
        std::vector<Entry> seen;
        if (f.kind == "riff") {
            DWORD body = 0, form = 0;
            ASSERT_EQ(S_OK, riff_ReadFileID(h, &body, &form));
            for (;;) {
                unsigned long long at = Pos(h);
                DWORD id = 0, size = 0;
                if (FAILED(riff_ReadChunkHeader(h, &id, &size)))
                    break;
                seen.push_back({"chunk", at, HexId(id), size});
                unsigned long long next = at + 8 + size + (size & 1);
                if (id == ZVRIFF_LIST) {
                    DWORD type = 0, count = 0;
                    riff_RestoreLocation(h, (DWORD)at);
                    ASSERT_EQ(S_OK, riff_ReadListHeader(h, &type, &size));
                    DWORD bound = size;
                    riff_GetNumListEntries(h, &count, &bound);
                    for (DWORD i = 0; i < count; i++) {
                        unsigned long long sub = Pos(h);
                        DWORD sid = 0, ssize = 0;
                        ASSERT_EQ(S_OK, riff_ReadChunkHeader(h, &sid, &ssize));
                        seen.push_back({"sub", sub, HexId(sid), ssize});
                        riff_SkipChunk(h, ssize);
                    }
                } else {
                    riff_SkipChunk(h, size);
                }
                EXPECT_EQ(next, Pos(h));
            }
            // The search lands on each first chunk of an id.
            for (const Entry &e : f.chunks) {
                if (e.what != "chunk")
                    continue;
                DWORD id = (DWORD)strtoul(e.id.c_str(), nullptr, 16), size = 0, remaining = 0;
                ASSERT_EQ(S_OK, riff_FindChunkHeaderInRIFF(h, id, &size, &remaining));
                EXPECT_EQ(e.size, size);
                // On this chunk, or on an earlier one of the same id.
                EXPECT_LE(Pos(h) - 8, e.offset);
            }
        } else if (f.kind == "w64") {
            ULONGLONG body = 0;
            ASSERT_EQ(S_OK, riff64_ReadFileID(h, &body, nullptr));
            for (;;) {
                unsigned long long at = Pos(h);
                GUID label;
                ULONGLONG size = 0;
                if (FAILED(riff64_ReadChunkHeader(h, &label, &size)))
                    break;
                seen.push_back({"chunk", at, Hex(&label, 16), size});
                riff64_SkipChunk(h, size);
            }
        } else {
            DWORD size = 0;
            ASSERT_TRUE(iff_IsAIFFFile(h, &size));
            SetFilePointer(h, 12, nullptr, FILE_BEGIN);
            for (;;) {
                unsigned long long at = Pos(h);
                tZVIFFCHUNKHDR hdr;
                if (FAILED(iff_ReadChunkHdr(h, &hdr)))
                    break;
                seen.push_back({"chunk", at, HexId(hdr.id), hdr.size});
                iff_SkipChunk(h, hdr.size);
            }
        }
        CloseHandle(h);
        ASSERT_EQ(f.chunks.size(), seen.size());
        for (size_t i = 0; i < seen.size(); i++) {
            EXPECT_EQ(f.chunks[i].what, seen[i].what) << i;
            EXPECT_EQ(f.chunks[i].offset, seen[i].offset) << i;
            EXPECT_EQ(f.chunks[i].id, seen[i].id) << i;
            EXPECT_EQ(f.chunks[i].size, seen[i].size) << i;
        }
    }

    // Formats and frame counts of the same files.
    struct {
        const wchar_t *name;
        WORD tag, channels, bits;
        ULONGLONG frames;
    } formats[] = {
        {L"tone16.wav", WAVE_FORMAT_PCM, 2, 16, 8820},        {L"tone16.w64", WAVE_FORMAT_PCM, 2, 16, 8820},
        {L"tone16.aiff", ZV_WAVE_FORMAT_BIGENDIAN, 2, 16, 8820}, {L"tone16.aifc", ZV_WAVE_FORMAT_BIGENDIAN, 2, 16, 8820},
        {L"multi24.wav", WAVE_FORMAT_EXTENSIBLE, 6, 24, 4800}, {L"info.wav", WAVE_FORMAT_PCM, 2, 16, 8820},
        {L"mono8.wav", WAVE_FORMAT_PCM, 1, 8, 1001},
    };
    for (auto &x : formats) {
        ULONGLONG frames = 0, offset = 0;
        WAVEFORMATEX *got = ZvGetFileWfx((FixtureDir() + x.name).c_str(), &frames, &offset);
        ASSERT_NE(nullptr, got) << x.name;
        EXPECT_EQ(x.tag, got->wFormatTag) << x.name;
        EXPECT_EQ(x.channels, got->nChannels) << x.name;
        EXPECT_EQ(x.bits, got->wBitsPerSample) << x.name;
        EXPECT_EQ(x.frames, frames) << x.name;
        free(got);
    }
}

TEST(MediaFixtures, WritesFilesForTheOutsideTools)
{
    NEED_FIXTURES();
    std::wstring out = OutDir();
    WAVEFORMATEX f;
    Bytes audio;

    // Padded wave header, audio appended, sizes set by inserting the header.
    ASSERT_TRUE(ReadAudio(FixtureDir() + L"tone16.wav", &f, &audio));
    ASSERT_EQ(S_OK, ZvInitializeWavWithJunk((out + L"written.wav").c_str(), &f, CREATE_ALWAYS, 4096));
    HANDLE h = OpenRW(out + L"written.wav");
    AppendToFile(h, audio);
    ASSERT_EQ(S_OK, ZvInsertWavHeader(h, &f, (DWORD)audio.size(), 4096));
    CloseHandle(h);

    ASSERT_EQ(S_OK, ZvInitializeWav64((out + L"written.w64").c_str(), &f, CREATE_ALWAYS));
    h = OpenRW(out + L"written.w64");
    AppendToFile(h, audio);
    ASSERT_EQ(S_OK, ZvInsertW64Header(h, &f, audio.size(), 112));
    CloseHandle(h);

    // Six channels of 24 bits from an extensible source, written plain.
    WAVEFORMATEXTENSIBLE ext = {};
    ULONGLONG frames = 0, offset = 0;
    WAVEFORMATEX *src = ZvGetFileWfx((FixtureDir() + L"multi24.wav").c_str(), &frames, &offset);
    ASSERT_NE(nullptr, src);
    memcpy(&ext, src, sizeof ext);
    free(src);
    _zvwaveformat zf;
    ASSERT_EQ(S_OK, zf.Init(sizeof zf, &ext.Format));
    ASSERT_TRUE(ReadAudio(FixtureDir() + L"multi24.wav", &f, &audio));
    ASSERT_EQ(S_OK, ZvInitializeWav((out + L"written24.wav").c_str(), &zf, CREATE_ALWAYS));
    h = OpenRW(out + L"written24.wav");
    AppendToFile(h, audio);
    ASSERT_EQ(S_OK, ZvInsertWavHeader(h, &zf, (DWORD)audio.size(), 46));
    CloseHandle(h);

    // A chunk inserted between fmt and data keeps every other byte.
    std::wstring ins = out + L"inserted.wav";
    ASSERT_TRUE(CopyFileW((FixtureDir() + L"tone16.wav").c_str(), ins.c_str(), FALSE));
    Bytes before, after;
    zvtest::ReadFileBytes(ins, before);
    h = OpenRW(ins);
    DWORD size = 0, remaining = 0;
    ASSERT_EQ(S_OK, riff_FindChunkHeaderInRIFF(h, ZVRIFF_DATA, &size, &remaining));
    riff_RestoreLocation(h, (DWORD)Pos(h) - 8);
    DWORD at = (DWORD)Pos(h), written = 0;
    ASSERT_EQ(S_OK, riff_InsertChunk(h, ZVRIFF_ID('z', 'v', 't', 'k'), "hello", 5, &written));
    CloseHandle(h);
    zvtest::ReadFileBytes(ins, after);
    ASSERT_EQ(before.size() + written, after.size());
    EXPECT_TRUE(std::equal(after.begin() + 8, after.begin() + at, before.begin() + 8));
    EXPECT_TRUE(std::equal(after.begin() + at + written, after.end(), before.begin() + at));
    EXPECT_EQ(GetLe32(before, 4) + written, GetLe32(after, 4));

    // A list deleted from the middle.
    std::wstring del = out + L"deleted.wav";
    ASSERT_TRUE(CopyFileW((FixtureDir() + L"info.wav").c_str(), del.c_str(), FALSE));
    zvtest::ReadFileBytes(del, before);
    h = OpenRW(del);
    ASSERT_EQ(S_OK, riff_FindListChunkFromStart(h, ZVRIFF_INFO, &size));
    at = (DWORD)Pos(h) - 12;
    DWORD removed = 0;
    ASSERT_EQ(S_OK, riff_DeleteChunk(h, ZVRIFF_INFO, &removed, TRUE));
    CloseHandle(h);
    zvtest::ReadFileBytes(del, after);
    ASSERT_EQ(before.size() - removed, after.size());
    EXPECT_TRUE(std::equal(after.begin() + 8, after.begin() + at, before.begin() + 8));
    EXPECT_TRUE(std::equal(after.begin() + at, after.end(), before.begin() + at + removed));
}

TEST(MediaFixtures, RepairsDamagedFiles)
{
    NEED_FIXTURES();
    std::wstring out = OutDir();
    WIN32_FIND_DATAW fd;
    HANDLE find = FindFirstFileW((FixtureDir() + L"dmg_*").c_str(), &fd);
    ASSERT_NE(INVALID_HANDLE_VALUE, find);
    int repaired = 0;
    do {
        std::wstring name = fd.cFileName;
        std::wstring rep = out + L"rep_" + name.substr(4);
        ASSERT_TRUE(CopyFileW((FixtureDir() + name).c_str(), rep.c_str(), FALSE));
        HANDLE h = OpenRW(rep);
        bool w64 = name.size() > 4 && name.substr(name.size() - 4) == L".w64";
        HRESULT hr = w64 ? ZvFixTrashedW64(h, nullptr, 1 << 20) : ZvFixTrashedWav(h, nullptr, 1 << 20);
        CloseHandle(h);
        EXPECT_EQ(S_OK, hr) << std::string(name.begin(), name.end());
        repaired++;
    } while (FindNextFileW(find, &fd));
    FindClose(find);
    EXPECT_GE(repaired, 7);
}
