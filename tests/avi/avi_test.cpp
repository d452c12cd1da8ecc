#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>
#include <string>
#include <vector>
#include "aviformat.h"
#include "media/riff.h"
#include "video/yuv.h"
#include "testutil.h"

namespace {

typedef std::vector<BYTE> Bytes;

void Put32(Bytes &b, DWORD v) { b.insert(b.end(), (BYTE *)&v, (BYTE *)&v + 4); }
void Put16(Bytes &b, WORD v) { b.insert(b.end(), (BYTE *)&v, (BYTE *)&v + 2); }
void PutId(Bytes &b, const char *id) { b.insert(b.end(), id, id + 4); }

Bytes Chunk(const char *id, const Bytes &data)
{
    Bytes b;
    PutId(b, id);
    Put32(b, (DWORD)data.size());
    b.insert(b.end(), data.begin(), data.end());
    if (data.size() & 1)
        b.push_back(0);
    return b;
}

Bytes List(const char *type, const Bytes &body, const char *id = "LIST")
{
    Bytes d;
    PutId(d, type);
    d.insert(d.end(), body.begin(), body.end());
    return Chunk(id, d);
}

Bytes operator+(Bytes a, const Bytes &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes StreamHeader(const char *type, const char *handler, DWORD scale, DWORD rate)
{
    Bytes h;
    PutId(h, type);
    PutId(h, handler);
    for (DWORD v : std::initializer_list<DWORD>{0, 0, 0, scale, rate, 0, 0, 0, 0, 0})
        Put32(h, v);
    h.resize(56);   // the frame rectangle stays 0
    return h;
}

// A file of `frames` BGR frames of 3 x 2 and a PCM stream, 1 kHz mono
// 16-bit, 10 samples a frame: with idx1, or with an OpenDML index.
Bytes MakeAvi(int frames, bool openDML)
{
    const int w = 3, h = 2;
    const DWORD rowBytes = 12, imageBytes = rowBytes * h;   // 9 bytes a row, padded to 4
    Bytes bih;
    for (DWORD v : std::initializer_list<DWORD>{40, (DWORD)w, (DWORD)h})
        Put32(bih, v);
    Put16(bih, 1);
    Put16(bih, 24);
    for (DWORD v : std::initializer_list<DWORD>{0, imageBytes, 0, 0, 0, 0})
        Put32(bih, v);
    Bytes wfx;
    Put16(wfx, 1);
    Put16(wfx, 1);
    Put32(wfx, 1000);
    Put32(wfx, 2000);
    Put16(wfx, 2);
    Put16(wfx, 16);
    Bytes avih(56, 0);
    // the index chunks are placeholders of fixed size, filled once offsets are known
    auto superIndex = [&](const char *chunkId, const Bytes &entries, int count) {
        Bytes d;
        Put16(d, 4);
        d.push_back(0);
        d.push_back(0);
        Put32(d, (DWORD)count);
        PutId(d, chunkId);
        for (int i = 0; i < 3; ++i)
            Put32(d, 0);
        return Chunk("indx", d + entries);
    };
    Bytes strlV = Chunk("strh", StreamHeader("vids", "DIB ", 1, 25)) + Chunk("strf", bih);
    Bytes strlA = Chunk("strh", StreamHeader("auds", "\0\0\0\0", 1, 1000)) + Chunk("strf", wfx);
    Bytes placeholder(16, 0);
    if (openDML) {
        strlV = strlV + superIndex("00db", placeholder, 1);
        strlA = strlA + superIndex("01wb", placeholder, 1);
    }
    Bytes hdrl = List("hdrl", Chunk("avih", avih) + List("strl", strlV) + List("strl", strlA));
    Bytes movi;
    std::vector<std::pair<DWORD, DWORD>> vAt, aAt;   // offset in movi body, size
    for (int f = 0; f < frames; ++f) {
        Bytes img(imageBytes);
        for (DWORD i = 0; i < imageBytes; ++i)
            img[i] = (BYTE)(f * 31 + i);
        vAt.push_back({(DWORD)movi.size(), imageBytes});
        movi = movi + Chunk("00db", img);
        Bytes pcm(20);
        for (int i = 0; i < 20; ++i)
            pcm[i] = (BYTE)(f + i);
        aAt.push_back({(DWORD)movi.size(), 20});
        movi = movi + Chunk("01wb", pcm);
    }
    Bytes head;
    PutId(head, "RIFF");
    Put32(head, 0);
    PutId(head, "AVI ");
    Bytes file = head + hdrl;
    size_t moviStart = file.size() + 8;   // the 'movi' type word
    file = file + List("movi", movi);
    if (!openDML) {
        Bytes idx;
        for (int f = 0; f < frames; ++f) {
            PutId(idx, "00db");
            Put32(idx, 0x10);
            Put32(idx, vAt[f].first + 4);
            Put32(idx, vAt[f].second);
            PutId(idx, "01wb");
            Put32(idx, 0);
            Put32(idx, aAt[f].first + 4);
            Put32(idx, aAt[f].second);
        }
        file = file + Chunk("idx1", idx);
    } else {
        const char *ids[2] = {"00db", "01wb"};
        for (int s = 0; s < 2; ++s) {
            auto &at = s ? aAt : vAt;
            Bytes d;
            Put16(d, 2);
            d.push_back(0);
            d.push_back(1);
            Put32(d, (DWORD)frames);
            PutId(d, ids[s]);
            ULONGLONG base = moviStart + 4;
            d.insert(d.end(), (BYTE *)&base, (BYTE *)&base + 8);
            Put32(d, 0);
            for (auto &e : at) {
                Put32(d, e.first + 8);
                Put32(d, e.second);
            }
            ULONGLONG ixAt = file.size();
            Bytes ix = Chunk(s ? "ix01" : "ix00", d);
            file = file + ix;
            // patch the super index entry: offset, size, duration
            const char *tag = s ? "01wb" : "00db";
            for (size_t p = 0; p + 4 <= file.size(); ++p)
                if (!memcmp(&file[p], "indx", 4) && !memcmp(&file[p + 8 + 8], tag, 4)) {
                    BYTE *e = &file[p + 8 + 24];
                    memcpy(e, &ixAt, 8);
                    DWORD sz = (DWORD)ix.size(), dur = (DWORD)frames;
                    memcpy(e + 8, &sz, 4);
                    memcpy(e + 12, &dur, 4);
                    break;
                }
        }
    }
    DWORD riffSize = (DWORD)file.size() - 8;
    memcpy(&file[4], &riffSize, 4);
    return file;
}

HRESULT ParseBytes(const zvtest::TempDir &dir, const Bytes &b, AviFile *out)
{
    std::wstring path = dir.file(L"t.avi");
    EXPECT_TRUE(zvtest::WriteFileBytes(path, b.data(), b.size()));
    HANDLE f = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(f, INVALID_HANDLE_VALUE);
    HRESULT hr = AviParse(f, out);
    CloseHandle(f);
    return hr;
}

} // namespace

TEST(AviFormat, ReadsStreamsThroughEitherIndex)
{
    zvtest::TempDir dir;
    for (bool odml : {false, true}) {
        SCOPED_TRACE(odml);
        Bytes b = MakeAvi(7, odml);
        EXPECT_TRUE(AviSniff(b.data(), 12));
        AviFile avi;
        ASSERT_EQ(ParseBytes(dir, b, &avi), S_OK);
        EXPECT_EQ(avi.openDML, odml);
        ASSERT_EQ(avi.streams.size(), 2u);
        const AviStream &v = avi.streams[0], &a = avi.streams[1];
        EXPECT_EQ(v.type, ZVRIFF_ID('v', 'i', 'd', 's'));
        EXPECT_EQ(v.video.biWidth, 3);
        EXPECT_EQ(v.video.biBitCount, 24);
        EXPECT_EQ(v.rate, 25u);
        ASSERT_EQ(v.chunks.size(), 7u);
        EXPECT_EQ(b[v.chunks[3].offset], (BYTE)(3 * 31));
        EXPECT_EQ(v.chunks[3].size, 24u);
        EXPECT_EQ(a.audio.nSamplesPerSec, 1000u);
        EXPECT_EQ(a.bytes, 140u);
        EXPECT_EQ(b[a.chunks[6].offset + 1], 7);
    }
    // without an index the movi chunks are walked
    Bytes b = MakeAvi(4, false);
    size_t idx = b.size() - (8 + 4 * 2 * 16);
    ASSERT_EQ(memcmp(&b[idx], "idx1", 4), 0);
    b.resize(idx);
    DWORD riffSize = (DWORD)b.size() - 8;
    memcpy(&b[4], &riffSize, 4);
    AviFile avi;
    ASSERT_EQ(ParseBytes(dir, b, &avi), S_OK);
    EXPECT_EQ(avi.streams[0].chunks.size(), 4u);
}

TEST(AviFormat, RefusesOtherFilesWithTheSystemsCodes)
{
    zvtest::TempDir dir;
    AviFile avi;
    Bytes wave = Chunk("RIFF", Bytes{'W', 'A', 'V', 'E'});
    EXPECT_EQ(ParseBytes(dir, wave, &avi), ZVERR_UNSUPPORTED_FORMAT);
    EXPECT_EQ(ParseBytes(dir, Bytes(40, 'x'), &avi), ZVERR_NO_RIFF_HEADER);
    Bytes empty = List("AVI ", Bytes(), "RIFF");
    EXPECT_EQ(ParseBytes(dir, empty, &avi), ZVERR_MALFORMED);
    // an index entry pointing past the end
    Bytes b = MakeAvi(2, false);
    DWORD beyond = 0x7FFFFFF0;
    memcpy(&b[b.size() - 8], &beyond, 4);
    EXPECT_EQ(ParseBytes(dir, b, &avi), ZVERR_MALFORMED);
}

TEST(AviFormat, MutatedFilesGiveCodesNotCrashes)
{
    zvtest::TempDir dir;
    const Bytes seeds[2] = {MakeAvi(5, false), MakeAvi(5, true)};
    uint32_t x = 12345;
    auto rnd = [&] {
        x ^= x << 13; x ^= x >> 17; x ^= x << 5;
        return x;
    };
    int ok = 0;
    for (int i = 0; i < 3000; ++i) {
        Bytes b = seeds[i & 1];
        int edits = 1 + rnd() % 6;
        for (int k = 0; k < edits; ++k) {
            size_t at = rnd() % b.size();
            switch (rnd() % 4) {
            case 0: b[at] = (BYTE)rnd(); break;
            case 1: b[at] ^= (BYTE)(1 << (rnd() % 8)); break;
            case 2: {   // a size field set to an extreme
                DWORD v = rnd() & 1 ? 0xFFFFFFFF : rnd() % 64;
                if (at + 4 <= b.size())
                    memcpy(&b[at], &v, 4);
                break;
            }
            default: b.resize(at + 1); break;
            }
        }
        AviFile avi;
        HRESULT hr = ParseBytes(dir, b, &avi);
        EXPECT_TRUE(hr == S_OK || hr == ZVERR_MALFORMED || hr == ZVERR_NO_RIFF_HEADER ||
                    hr == ZVERR_UNSUPPORTED_FORMAT || hr == ZVERR_FILE_READ || hr == ZVERR_NEWER_FORMAT ||
                    hr == ZVERR_ZERO_CHUNK)
            << std::hex << hr << " at " << std::dec << i;
        if (hr == S_OK) {
            ++ok;
            for (const AviStream &s : avi.streams)
                for (const AviChunk &c : s.chunks)
                    ASSERT_LE(c.offset + c.size, (ULONGLONG)b.size());
        }
    }
    EXPECT_GT(ok, 100);   // most single edits leave a readable file
}

namespace {

std::wstring Widen(const std::string &s)
{
    return std::wstring(s.begin(), s.end());
}

// The fixture folder as a Windows path (the variable holds the host's).
std::wstring FixtureDir()
{
    const char *dir = getenv("ZV_AVI_FIXTURES");
    if (!dir || !*dir)
        return L"";
    std::wstring w = L"Z:" + Widen(dir);
    for (auto &c : w)
        if (c == L'/')
            c = L'\\';
    return w + L"\\";
}

HRESULT ParseFile(const std::wstring &path, AviFile *out)
{
    HANDLE f = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    if (f == INVALID_HANDLE_VALUE)
        return ZVERR_FILE_OPEN;
    HRESULT hr = AviParse(f, out);
    CloseHandle(f);
    return hr;
}

Bytes Concat(const Bytes &file, const AviStream &s)
{
    Bytes all;
    for (const AviChunk &c : s.chunks)
        all.insert(all.end(), file.begin() + (size_t)c.offset, file.begin() + (size_t)(c.offset + c.size));
    return all;
}

} // namespace

TEST(AviFormat, FilesMadeByFfmpeg)
{
    std::wstring dir = FixtureDir();
    if (dir.empty())
        GTEST_SKIP() << "ZV_AVI_FIXTURES is not set";
    Bytes manifest;
    ASSERT_TRUE(zvtest::ReadFileBytes(dir + L"manifest.txt", manifest));
    std::string text(manifest.begin(), manifest.end());
    size_t pos = 0;
    int files = 0;
    while (pos < text.size()) {
        size_t eol = text.find('\n', pos);
        std::string line = text.substr(pos, eol - pos);
        pos = eol == std::string::npos ? text.size() : eol + 1;
        char name[64], pix[32];
        int w, h, frames, audio;
        if (sscanf(line.c_str(), "%63s %d %d %d %31s %d", name, &w, &h, &frames, pix, &audio) != 6)
            continue;
        SCOPED_TRACE(name);
        ++files;
        std::wstring path = dir + Widen(name), base = path.substr(0, path.size() - 4);
        Bytes file, video;
        ASSERT_TRUE(zvtest::ReadFileBytes(path, file));
        ASSERT_TRUE(zvtest::ReadFileBytes(base + L".v.raw", video));
        AviFile avi;
        ASSERT_EQ(ParseFile(path, &avi), S_OK);
        ASSERT_EQ(avi.streams.size(), audio ? 2u : 1u);
        const AviStream &v = avi.streams[0];
        EXPECT_EQ(v.video.biWidth, w);
        EXPECT_EQ(abs(v.video.biHeight), h);
        EXPECT_EQ((int)v.chunks.size(), frames);
        EXPECT_TRUE(Concat(file, v) == video);   // frames as stored, byte for byte
        if (audio) {
            Bytes pcm;
            ASSERT_TRUE(zvtest::ReadFileBytes(base + L".a.raw", pcm));
            EXPECT_EQ(avi.streams[1].audio.wFormatTag, WAVE_FORMAT_PCM);
            EXPECT_TRUE(Concat(file, avi.streams[1]) == pcm);
        }
        // 8-bit YUV of even size: the frame geometry is ours, and our BGRA
        // is ffmpeg's within 3 a channel (its unscaled converter rounds
        // through 8-bit tables; ours is exact to the matrix)
        Bytes bgra;
        if ((w | h) & 1 || !zvtest::ReadFileBytes(base + L".bgra", bgra))
            continue;
        BITMAPINFOHEADER src = v.video;
        src.biHeight = h;
        EXPECT_EQ(ZvYUVImageBytesAndOffsets(&src, nullptr), (int)v.chunks[0].size);
        BITMAPINFOHEADER dst;
        ASSERT_EQ(ZvDibInfo(nullptr, nullptr, &dst, ZVPT_BGRA32, w, -h, nullptr, 0), S_OK);
        Bytes ours(4 * w * h);
        ZVYUVSETTINGS s = {};
        s.selector = ZVYUV_BT601;
        s.limited = 1;
        int worst = 0;
        for (int f = 0; f < frames; ++f) {
            const void *planes[3] = {&file[(size_t)v.chunks[f].offset], nullptr, nullptr};
            ASSERT_EQ(ZvYUV_YUVToRGB(&dst, ours.data(), 0, &src, planes, nullptr, nullptr, &s), S_OK);
            for (int i = 0; i < 4 * w * h; ++i)
                worst = std::max(worst, abs((int)ours[i] - (int)bgra[(size_t)f * 4 * w * h + i]));
        }
        EXPECT_LE(worst, 3);
    }
    EXPECT_GE(files, 10);
}
