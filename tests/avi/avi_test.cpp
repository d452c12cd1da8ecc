#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>
#include <sstream>
#include <string>
#include <vector>
#include "zvhandlecount.h"
#include "aviformat.h"
#include "zvplugin_sdk.h"
#include "filemng/zvmemtoken.h"
#include "media/riff.h"
#include "media/zvmeta.h"
#include "video/yuv.h"
#include "testutil.h"
#include "readstream.h"
#include "../media/mediatest.h"

namespace {

using namespace mediatest;

Bytes operator+(Bytes a, const Bytes &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes StreamHeader(const char *type, const char *handler, DWORD scale, DWORD rate)
{
    Bytes h;
    PutStr(h, type);
    PutStr(h, handler);
    for (DWORD v : std::initializer_list<DWORD>{0, 0, 0, scale, rate, 0, 0, 0, 0, 0})
        Le32(h, v);
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
        Le32(bih, v);
    Le16(bih, 1);
    Le16(bih, 24);
    for (DWORD v : std::initializer_list<DWORD>{0, imageBytes, 0, 0, 0, 0})
        Le32(bih, v);
    Bytes wfx = Fmt(1, 1, 1000, 16);
    Bytes avih(56, 0);
    // the index chunks are placeholders of fixed size, filled once offsets are known
    auto superIndex = [&](const char *chunkId, const Bytes &entries, int count) {
        Bytes d;
        Le16(d, 4);
        d.push_back(0);
        d.push_back(0);
        Le32(d, (DWORD)count);
        PutStr(d, chunkId);
        for (int i = 0; i < 3; ++i)
            Le32(d, 0);
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
    PutStr(head, "RIFF");
    Le32(head, 0);
    PutStr(head, "AVI ");
    Bytes file = head + hdrl;
    size_t moviStart = file.size() + 8;   // the 'movi' type word
    file = file + List("movi", movi);
    if (!openDML) {
        Bytes idx;
        for (int f = 0; f < frames; ++f) {
            PutStr(idx, "00db");
            Le32(idx, 0x10);
            Le32(idx, vAt[f].first + 4);
            Le32(idx, vAt[f].second);
            PutStr(idx, "01wb");
            Le32(idx, 0);
            Le32(idx, aAt[f].first + 4);
            Le32(idx, aAt[f].second);
        }
        file = file + Chunk("idx1", idx);
    } else {
        const char *ids[2] = {"00db", "01wb"};
        for (int s = 0; s < 2; ++s) {
            auto &at = s ? aAt : vAt;
            Bytes d;
            Le16(d, 2);
            d.push_back(0);
            d.push_back(1);
            Le32(d, (DWORD)frames);
            PutStr(d, ids[s]);
            ULONGLONG base = moviStart + 4;
            d.insert(d.end(), (BYTE *)&base, (BYTE *)&base + 8);
            Le32(d, 0);
            for (auto &e : at) {
                Le32(d, e.first + 8);
                Le32(d, e.second);
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
    Bytes empty = Riff("AVI ", Bytes());
    EXPECT_EQ(ParseBytes(dir, empty, &avi), ZVERR_MALFORMED);
    // an index entry pointing past the end
    Bytes b = MakeAvi(2, false);
    DWORD beyond = 0x7FFFFFF0;
    memcpy(&b[b.size() - 8], &beyond, 4);
    EXPECT_EQ(ParseBytes(dir, b, &avi), ZVERR_MALFORMED);
}

namespace {

const GUID kAviClass = {0xEA9D287B, 0xC85A, 0x11D3, {0xBB, 0x3A, 0x00, 0x50, 0xDA, 0x1A, 0x5B, 0x06}};

// The reader class of avi.dll beside this program, loaded once.
IZvReadFileClass *AviClass()
{
    static IZvReadFileClass *cls = [] {
        IZvReadFileClass *c = nullptr;
        zvtest::CreateFromDll(L"avi.dll", kAviClass, IID_IZvReadFileClass, (void **)&c);
        return c;
    }();
    return cls;
}

struct Reader {
    IZvReadFile *file = nullptr;
    ~Reader()
    {
        if (file)
            file->Release();
    }
};

// Identification by the first bytes with the file, then opening, as the
// manager does; the reader keeps a duplicate of the handle.
HRESULT Open(const std::wstring &path, Reader *r)
{
    HANDLE h = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return ZVERR_FILE_OPEN;
    BYTE head[4096];
    DWORD got = 0;
    ReadFile(h, head, sizeof head, &got, nullptr);
    HRESULT hr = ZvSdk_IsType(AviClass(), ZvSdk_HandleToWire(h), head, got, 0);
    if (hr == S_OK)
        hr = AviClass()->OpenFile(&r->file, ZvSdk_HandleToWire(h), GetCurrentProcessId(), path.c_str(), FALSE);
    CloseHandle(h);
    return hr;
}

using zvtest::OpenStreamAs;

_zvmemorytoken Token(Bytes &b) { return zvtest::LocalToken(b.data(), (DWORD)b.size()); }

// Up to `limit` frames of a video stream one after another, as stored (stride
// 0) or with RGB rows `stride` apart; the frame header; the first failure.
HRESULT ReadFrames(IZvReadFile *file, LONG index, LONG stride, Bytes *all, BITMAPINFOHEADER *h, LONGLONG limit)
{
    IZvReadVideoStream *v = OpenStreamAs<IZvReadVideoStream>(file, index, IID_IZvReadVideoStream);
    if (!v)
        return E_NOINTERFACE;
    _ZVFILESTREAMFORMATINFOv2 info = {};
    info.cbSize = sizeof info;
    HRESULT hr = v->GetStreamFormatInfo(&info);
    memcpy(h, info.format, sizeof *h);
    LONGLONG frames = 0;
    DWORD size = 0;
    v->GetFrameCount(&frames);
    v->GetFrameBufferSize(0, 0, 0, &size);
    Bytes frame(size + 1);
    for (LONGLONG f = 0; SUCCEEDED(hr) && f < std::min(frames, limit); ++f) {
        hr = v->ReadFrame((DWORD)f, 0, 0, Token(frame), stride, 0);
        all->insert(all->end(), frame.begin(), frame.end() - 1);
    }
    v->Release();
    return hr;
}

// Every sample of an audio stream, read in blocks of an odd size so that
// reads straddle the file's chunks.
HRESULT ReadAudio(IZvReadFile *file, LONG index, Bytes *all)
{
    IZvReadAudioStream *a = OpenStreamAs<IZvReadAudioStream>(file, index, IID_IZvReadAudioStream);
    if (!a)
        return E_NOINTERFACE;
    DWORD align = 0;
    LONGLONG total = 0;
    a->GetBlockAlign(&align);
    a->GetSampleCount(&total);
    Bytes block(align * 77);
    HRESULT hr = S_OK;
    for (LONGLONG at = 0; hr == S_OK && at < total;) {
        DWORD got = 0;
        hr = a->ReadSamples((DWORD)at, 0, Token(block), 77, &got);
        all->insert(all->end(), block.begin(), block.begin() + got * align);
        at += got;
    }
    a->Release();
    return hr;
}

} // namespace

// An ARDEO clip: frames under 00dc and a LIST meta whose XML entry has the
// time code, the value 10:00:01:00 holding from frame 25 at 25 frames a second.
Bytes MakeArdeo()
{
    Bytes b = MakeAvi(5, false);
    for (size_t p = 0; p + 4 <= b.size(); ++p)
        if (!memcmp(&b[p], "00db", 4))
            b[p + 3] = 'c';
    const char *xml = "<?xml version=\"1.0\"?><Clip><LtcChangeTable tcFps=\"25\">"
                      "<LtcChange frameCount=\"25\" value=\"10:00:01:00\"/></LtcChangeTable></Clip>";
    b = b + List("meta", Chunk("xml ", Bytes(xml, xml + strlen(xml) + 1)));
    DWORD riffSize = (DWORD)b.size() - 8;
    memcpy(&b[4], &riffSize, 4);
    return b;
}

// The clip's time code comes through the reader's metadata as TCOD.
TEST(AviReader, ArdeoTimeCodeThroughTheMetadata)
{
    ASSERT_NE(AviClass(), nullptr);
    zvtest::TempDir dir;
    const Bytes b = MakeArdeo();
    const std::wstring path = dir.file(L"clip.avi");
    ASSERT_TRUE(zvtest::WriteFileBytes(path, b.data(), b.size()));
    Reader r;
    ASSERT_EQ(S_OK, Open(path, &r));
    DWORD types = 0;
    EXPECT_EQ(S_OK, r.file->GetMetaTypes(&types));
    EXPECT_EQ((DWORD)ZVMETA_SUMMARY, types);
    IZvReadMeta *meta = nullptr;
    ASSERT_EQ(S_OK, r.file->GetMeta(&meta));
    IStream *s = nullptr;
    ASSERT_EQ(S_OK, meta->GetSummaryStream(&s));
    BYTE buf[128] = {};
    ULONG got = 0;
    s->Read(buf, sizeof buf, &got);
    s->Release();
    meta->Release();
    EXPECT_EQ(1u, buf[8]);   // one field
    EXPECT_EQ(0, memcmp(buf + 12, "TCOD", 4));
    EXPECT_STREQ(L"10:00:00:00", (const wchar_t *)(buf + 20));
    // A plain AVI has no metadata.
    const Bytes plain = MakeAvi(5, false);
    const std::wstring other = dir.file(L"plain.avi");
    ASSERT_TRUE(zvtest::WriteFileBytes(other, plain.data(), plain.size()));
    Reader p;
    ASSERT_EQ(S_OK, Open(other, &p));
    EXPECT_EQ(S_OK, p.file->GetMetaTypes(&types));
    EXPECT_EQ(0u, types);
}

TEST(AviReader, MutatedFilesGiveCodesNotCrashesOrLeaks)
{
    ASSERT_NE(AviClass(), nullptr);
    zvtest::TempDir dir;
    const Bytes seeds[3] = {MakeAvi(5, false), MakeAvi(5, true), MakeArdeo()};
    const std::wstring path = dir.file(L"m.avi");
    zvtest::Rng rng = {7};
    int opened = 0;
    DWORD handles0 = 0, handles1 = 0;
    long long heap0 = 0;
    for (int i = 0; i < 3000; ++i) {
        if (i == 100) {   // the reader's one-time allocations are made by now
            handles0 = ZvProcessHandleCount();
            heap0 = zvtest::HeapBusyBlocks();
        }
        Bytes b = seeds[i % 3];
        for (int k = 1 + rng.below(6); k > 0; --k) {
            size_t at = rng.below((unsigned)b.size());
            switch (rng.below(4)) {
            case 0: b[at] = (BYTE)rng.next(); break;
            case 1: b[at] ^= (BYTE)(1 << rng.below(8)); break;
            case 2: {   // a size or count set to an extreme
                DWORD v = rng.below(2) ? 0xFFFFFFFF : rng.below(64);
                if (at + 4 <= b.size())
                    memcpy(&b[at], &v, 4);
                break;
            }
            default: b.resize(at + 1); break;
            }
        }
        ASSERT_TRUE(zvtest::WriteFileBytes(path, b.data(), b.size()));
        Reader r;
        HRESULT hr = Open(path, &r);
        LONG streams = 0;
        if (hr == S_OK) {
            ++opened;
            r.file->GetStreamCount(&streams);
            // the metadata readers, the ARDEO one among them, on the damaged file
            IZvReadMeta *meta = nullptr;
            HRESULT mh = r.file->GetMeta(&meta);
            EXPECT_TRUE(mh == S_OK || mh == S_FALSE || mh == ZVERR_FILE_READ) << std::hex << mh << " at " << std::dec << i;
            if (meta)
                meta->Release();
        }
        for (LONG s = 0; s < streams && SUCCEEDED(hr); ++s) {
            ZVFILESTREAMTYPE type;
            DWORD sub;
            Bytes data;
            BITMAPINFOHEADER h;
            r.file->GetStreamType(s, &type, &sub);
            hr = type == ZVFILESTREAMTYPE_VIDEO ? ReadFrames(r.file, s, 0, &data, &h, 50) : ReadAudio(r.file, s, &data);
        }
        EXPECT_TRUE(hr == S_OK || hr == S_FALSE || hr == ZVERR_MALFORMED || hr == ZVERR_NO_RIFF_HEADER ||
                    hr == ZVERR_UNSUPPORTED_FORMAT || hr == ZVERR_FILE_READ || hr == ZVERR_NEWER_FORMAT ||
                    hr == ZVERR_ZERO_CHUNK)
            << std::hex << hr << " at " << std::dec << i;
    }
    handles1 = ZvProcessHandleCount();
    ASSERT_GT(handles0, 0u) << "no handle count: the leak check would be empty";
    EXPECT_LE(handles1, handles0 + 2);
    EXPECT_LE(zvtest::HeapBusyBlocks(), heap0 + 50);
    EXPECT_GT(opened, 300);   // most single edits leave a readable file
}

// Every ffmpeg-made file through the reader: stream count, geometry and
// frame count, frames as stored equal ffmpeg's packets, audio equals its
// PCM, and RGB rows come top-down or bottom-up as the stride asks.
TEST(AviReader, FilesMadeByFfmpeg)
{
    std::wstring dir = zvtest::HostDirFromEnv("ZV_AVI_FIXTURES");
    if (dir.empty())
        GTEST_SKIP() << "ZV_AVI_FIXTURES is not set";
    ASSERT_NE(AviClass(), nullptr);
    Bytes manifest;
    ASSERT_TRUE(zvtest::ReadFileBytes(dir + L"manifest.txt", manifest));
    std::istringstream in(std::string(manifest.begin(), manifest.end()));
    int files = 0, w, h, frames, audio;
    for (std::string name, pix; in >> name >> w >> h >> frames >> pix >> audio; ++files) {
        SCOPED_TRACE(name);
        std::wstring path = dir + std::wstring(name.begin(), name.end()), base = path.substr(0, path.size() - 4);
        Reader r;
        ASSERT_EQ(Open(path, &r), S_OK);
        LONG streams = 0;
        r.file->GetStreamCount(&streams);
        ASSERT_EQ(streams, audio ? 2 : 1);
        Bytes video, stored;
        BITMAPINFOHEADER bih;
        ASSERT_EQ(ReadFrames(r.file, 0, 0, &video, &bih, frames + 1), S_OK);
        EXPECT_EQ(bih.biWidth, w);
        EXPECT_EQ(abs(bih.biHeight), h);
        ASSERT_TRUE(zvtest::ReadFileBytes(base + L".v.raw", stored));
        EXPECT_TRUE(video == stored) << "frames as stored";
        if (audio) {
            Bytes pcm, ours;
            ASSERT_TRUE(zvtest::ReadFileBytes(base + L".a.raw", pcm));
            EXPECT_EQ(ReadAudio(r.file, 1, &ours), S_OK);
            EXPECT_TRUE(ours == pcm) << "audio";
        }
        Bytes bgra;
        if (bih.biCompression != BI_RGB || !zvtest::ReadFileBytes(base + L".bgra", bgra))
            continue;
        // ffmpeg's BGRA is top-down: our rows at a positive stride, and
        // reversed at a negative one
        const int bytes = bih.biBitCount / 8, row = ((bih.biBitCount * w + 31) >> 3) & ~3;
        for (LONG stride : {row, -row}) {
            Bytes rows;
            ASSERT_EQ(ReadFrames(r.file, 0, stride, &rows, &bih, frames), S_OK);
            int wrong = 0;
            for (int f = 0; f < frames; ++f)
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x)
                        for (int c = 0; c < 3; ++c) {
                            int ourRow = stride > 0 ? y : h - 1 - y;
                            size_t frameAt = (size_t)f * (row * (h - 1) + row);
                            wrong += rows[frameAt + (size_t)ourRow * row + x * bytes + c] !=
                                     bgra[(((size_t)f * h + y) * w + x) * 4 + c];
                        }
            EXPECT_EQ(wrong, 0) << "stride " << stride;
        }
    }
    EXPECT_GE(files, 13);
}

// A file past 1 GiB, made and checked by opendml_big.sh (which sets the
// folder): the frame count, the geometry, the first and the last frame (in
// the AVIX part) as ffmpeg demuxes them, and the audio beside them.
TEST(AviReader, OpenDmlFilePastOneGiB)
{
    std::wstring base = zvtest::HostDirFromEnv("ZV_AVI_BIG");
    if (base.empty())
        GTEST_SKIP() << "ZV_AVI_BIG is not set (opendml_big.sh runs this)";
    Bytes manifest, first, last, pcm;
    ASSERT_TRUE(zvtest::ReadFileBytes(base + L"manifest.txt", manifest));
    int w = 0, h = 0, frames = 0;
    ASSERT_EQ(sscanf(std::string(manifest.begin(), manifest.end()).c_str(), "%d %d %d", &w, &h, &frames), 3);
    ASSERT_TRUE(zvtest::ReadFileBytes(base + L"first.raw", first));
    ASSERT_TRUE(zvtest::ReadFileBytes(base + L"last.raw", last));
    ASSERT_TRUE(zvtest::ReadFileBytes(base + L"big.a.raw", pcm));
    Reader r;
    ASSERT_EQ(Open(base + L"big.avi", &r), S_OK);
    LONG streams = 0;
    r.file->GetStreamCount(&streams);
    ASSERT_EQ(streams, 2);
    IZvReadVideoStream *v = OpenStreamAs<IZvReadVideoStream>(r.file, 0, IID_IZvReadVideoStream);
    ASSERT_NE(v, nullptr);
    _ZVFILESTREAMFORMATINFOv2 info = {};
    info.cbSize = sizeof info;
    EXPECT_EQ(v->GetStreamFormatInfo(&info), S_OK);
    const BITMAPINFOHEADER *bih = (const BITMAPINFOHEADER *)info.format;
    EXPECT_EQ(bih->biWidth, w);
    EXPECT_EQ(abs(bih->biHeight), h);
    LONGLONG count = 0;
    DWORD size = 0;
    EXPECT_EQ(v->GetFrameCount(&count), S_OK);
    EXPECT_EQ(count, frames);
    v->GetFrameBufferSize(0, 0, 0, &size);
    ASSERT_EQ(size, first.size());
    Bytes frame(size);
    for (LONGLONG f : {(LONGLONG)0, count - 1}) {
        ASSERT_EQ(v->ReadFrame((DWORD)f, 0, 0, Token(frame), 0, 0), S_OK);
        EXPECT_TRUE(frame == (f ? last : first)) << "frame " << f;
    }
    v->Release();
    // the audio in large blocks: it runs across both parts of the file
    IZvReadAudioStream *a = OpenStreamAs<IZvReadAudioStream>(r.file, 1, IID_IZvReadAudioStream);
    ASSERT_NE(a, nullptr);
    LONGLONG total = 0;
    a->GetSampleCount(&total);
    EXPECT_EQ(total * 2, (LONGLONG)pcm.size());
    Bytes block(2 * 65521), ours;
    HRESULT hr = S_OK;
    for (LONGLONG at = 0; hr == S_OK && at < total;) {
        DWORD got = 0;
        hr = a->ReadSamples((DWORD)at, 0, Token(block), 65521, &got);
        ours.insert(ours.end(), block.begin(), block.begin() + got * 2);
        at += got;
        if (!got)
            break;
    }
    a->Release();
    EXPECT_EQ(hr, S_OK);
    EXPECT_TRUE(ours == pcm) << "audio";
}

// The child reads frames into the parent's shared memory: frame 0 into A,
// frame 1 into B, frame 2 into A again, so a view kept from one call is
// used only while the same section comes again.
ZVTEST_CHILD(avi_foreign)
{
    if (argc < 6)
        return 2;
    const DWORD pid = strtoul(argv[1], nullptr, 10);
    _zvmemorytoken t[2] = {};
    for (int i = 0; i < 2; ++i) {
        t[i].hMapping = _strtoui64(argv[2 + 2 * i], nullptr, 16);
        t[i].qwBase = _strtoui64(argv[3 + 2 * i], nullptr, 16);
        t[i].cbData = t[i].cbMapping = 24;
        t[i].dwKind = ZVMEMTOKEN_KIND_MAPPING;
        t[i].dwProcessId = pid;
    }
    Reader r;
    if (!AviClass() || AviClass()->OpenFile(&r.file, _strtoui64(argv[0], nullptr, 16), pid, L"f.avi", FALSE) != S_OK)
        return 3;
    IZvReadVideoStream *v = OpenStreamAs<IZvReadVideoStream>(r.file, 0, IID_IZvReadVideoStream);
    if (!v)
        return 4;
    HRESULT hr = S_OK;
    for (DWORD f = 0; f < 3 && hr == S_OK; ++f)
        hr = v->ReadFrame(f, 0, 0, t[f & 1], 0, 0);
    v->Release();
    return hr == S_OK ? 0 : 5;
}

TEST(AviReader, AReaderInAnotherProcessWritesIntoOurMappings)
{
    zvtest::TempDir dir;
    Bytes file = MakeAvi(3, false);
    std::wstring path = dir.file(L"f.avi");
    ASSERT_TRUE(zvtest::WriteFileBytes(path, file.data(), file.size()));
    HANDLE h = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    _zvmemorytoken a, b;
    ASSERT_EQ(ZvMemoryToken_CreateMapping(&a, 24), S_OK);
    ASSERT_EQ(ZvMemoryToken_CreateMapping(&b, 24), S_OK);
    wchar_t args[512];
    swprintf(args, 512, L"avi_foreign %llx %lu %llx %llx %llx %llx",
             (unsigned long long)ZvSdk_HandleToWire(h), GetCurrentProcessId(), (unsigned long long)a.hMapping,
             (unsigned long long)a.qwBase, (unsigned long long)b.hMapping, (unsigned long long)b.qwBase);
    EXPECT_EQ(zvtest::RunChildProcess(args), 0u);
    CloseHandle(h);
    const BYTE *pa = (const BYTE *)(ULONG_PTR)a.qwBase, *pb = (const BYTE *)(ULONG_PTR)b.qwBase;
    for (int i = 0; i < 24; ++i) {
        EXPECT_EQ(pa[i], (BYTE)(2 * 31 + i)) << i;
        EXPECT_EQ(pb[i], (BYTE)(31 + i)) << i;
    }
    ZvMemoryToken_ReleaseMapping(&a);
    ZvMemoryToken_ReleaseMapping(&b);
}
