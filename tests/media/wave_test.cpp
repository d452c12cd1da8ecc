#include "mediatest.h"
#include "media/waveheader.h"
#include "media/mriff.h"
#include "media/riff64.h"
#include "media/iff.h"
#include <stdlib.h>

using namespace mediatest;

namespace {

WAVEFORMATEX Pcm(WORD channels, DWORD rate, WORD bits, WORD tag = WAVE_FORMAT_PCM)
{
    WAVEFORMATEX f = {};
    f.wFormatTag = tag;
    f.nChannels = channels;
    f.nSamplesPerSec = rate;
    f.wBitsPerSample = bits;
    f.nBlockAlign = (WORD)(channels * (bits / 8));
    f.nAvgBytesPerSec = rate * f.nBlockAlign;
    return f;
}

// A wave file as this layer lays it down: 46-byte header, then audio.
Bytes Wave46(const WAVEFORMATEX &f, const Bytes &audio)
{
    Bytes fmt;
    Put(fmt, &f, 16);
    Le16(fmt, 0);
    return Riff("WAVE", Cat({Chunk("fmt ", fmt), Chunk("data", audio)}));
}

// What ZvGetFileWfx reads (format, frame count, audio offset); the format
// is freed with it.
struct FileWfx {
    WAVEFORMATEX *f = nullptr;
    ULONGLONG frames = 0, offset = 0;
    ~FileWfx() { free(f); }
    WAVEFORMATEX *read(const std::wstring &path)
    {
        free(f);
        return f = ZvGetFileWfx(path.c_str(), &frames, &offset);
    }
};

} // namespace

TEST(WaveCreate, PlainPaddedAndWave64Headers)
{
    zvtest::TempDir dir;
    std::wstring path = dir.file(L"a.wav");
    WAVEFORMATEX f = Pcm(2, 44100, 16);
    EXPECT_EQ(ZVERR_FILE_OPEN, ZvInitializeWav(path.c_str(), &f, TRUNCATE_EXISTING));
    ASSERT_EQ(S_OK, ZvInitializeWav(path.c_str(), &f, CREATE_NEW));
    Bytes b;
    ASSERT_TRUE(zvtest::ReadFileBytes(path, b));
    EXPECT_EQ(Wave46(f, {}), b);

    // A 20-bit record is refused though its align fits 24 bits; so is one
    // with extra bytes.
    WAVEFORMATEX twenty = Pcm(2, 48000, 24);
    twenty.wBitsPerSample = 20;
    EXPECT_EQ(ZVERR_UNSUPPORTED_MEDIA, ZvInitializeWav(path.c_str(), &twenty, OPEN_EXISTING));
    WAVEFORMATEX extra = f;
    extra.cbSize = 2;
    EXPECT_EQ(ZVERR_UNSUPPORTED_MEDIA, ZvInitializeWav(path.c_str(), &extra, OPEN_EXISTING));
    ASSERT_TRUE(zvtest::ReadFileBytes(path, b));
    EXPECT_EQ(46u, b.size()); // untouched

    // Padded: 53 rounds to 54, an empty JUNK chunk.
    ASSERT_EQ(S_OK, ZvInitializeWavWithJunk(path.c_str(), &f, OPEN_EXISTING, 53));
    ASSERT_TRUE(zvtest::ReadFileBytes(path, b));
    ASSERT_EQ(54u, b.size());
    EXPECT_EQ(46u, GetLe32(b, 4));
    EXPECT_EQ(0, memcmp(b.data() + 38, "JUNK\0\0\0\0data\0\0\0\0", 16));
    ASSERT_EQ(S_OK, ZvInitializeWavWithJunk(path.c_str(), &f, OPEN_ALWAYS, 4096));
    ASSERT_TRUE(zvtest::ReadFileBytes(path, b));
    ASSERT_EQ(4096u, b.size());
    EXPECT_EQ(4096u - 54, GetLe32(b, 42));
    EXPECT_EQ(0, memcmp(b.data() + 4088, "data", 4));
    EXPECT_EQ(E_INVALIDARG, ZvInitializeWavWithJunk(path.c_str(), &f, OPEN_ALWAYS, 52));

    // Wave64: stored RIFF size 130 for 112 bytes until the writer sets it.
    std::wstring w64 = dir.file(L"a.w64");
    ASSERT_EQ(S_OK, ZvInitializeWav64(w64.c_str(), &f, CREATE_ALWAYS));
    ASSERT_TRUE(zvtest::ReadFileBytes(w64, b));
    ASSERT_EQ(112u, b.size());
    EXPECT_EQ(130u, GetLe32(b, 16));
    EXPECT_EQ(42u, GetLe32(b, 56));
    EXPECT_EQ(0, memcmp(b.data() + 88, &ZVW64_DATA, 16));
    EXPECT_EQ(24u, GetLe32(b, 104));
    ASSERT_EQ(S_OK, ZvInitializeWav64WithJunk(w64.c_str(), &f, CREATE_ALWAYS, 130));
    ASSERT_TRUE(zvtest::ReadFileBytes(w64, b));
    ASSERT_EQ(136u, b.size());
    EXPECT_EQ(160u, GetLe32(b, 16));
    EXPECT_EQ(0, memcmp(b.data() + 88, &ZVW64_JUNK, 16));
    EXPECT_EQ(24u, GetLe32(b, 128));
    EXPECT_EQ(E_INVALIDARG, ZvInitializeWav64WithJunk(w64.c_str(), &f, CREATE_ALWAYS, 128));

    // The record overloads write the same bytes.
    _zvwaveformat zf;
    zf.Init(44100, ZVSAMPLE_S16, 2);
    ASSERT_EQ(S_OK, ZvInitializeWav(path.c_str(), &zf, CREATE_ALWAYS));
    ASSERT_TRUE(zvtest::ReadFileBytes(path, b));
    EXPECT_EQ(Wave46(f, {}), b);
}

TEST(WaveInsert, HeaderSizesAndKeptPosition)
{
    WAVEFORMATEX f = Pcm(1, 8000, 8);
    TestFile t(Filled(200));
    t.seek(77);
    EXPECT_EQ(ZVERR_NEWER_FORMAT, ZvInsertWavHeader(t.h(), &f, 10, 48));
    EXPECT_EQ(ZVERR_NEWER_FORMAT, ZvInsertWavHeader(t.h(), &f, 10, 47));
    EXPECT_EQ(ZVERR_NEWER_FORMAT, ZvInsertWavHeader(t.h(), &f, 10, 44));
    EXPECT_EQ(Filled(200), t.bytes());
    ASSERT_EQ(S_OK, ZvInsertWavHeader(t.h(), &f, 100, 54));
    EXPECT_EQ(77u, t.pos());
    Bytes b = t.bytes();
    EXPECT_EQ(0, memcmp(b.data() + 38, "JUNK\0\0\0\0data", 12));
    EXPECT_EQ(100u, GetLe32(b, 50));
    EXPECT_EQ(146u, GetLe32(b, 4));
    EXPECT_TRUE(std::equal(b.begin() + 54, b.end(), Filled(200).begin() + 54));
    ASSERT_EQ(S_OK, ZvInsertWavHeader(t.h(), &f, 154, 46));
    b = t.bytes();
    Bytes hdr = Wave46(f, {});
    hdr[4] = 192;
    hdr[42] = 154;
    EXPECT_EQ(hdr, Bytes(b.begin(), b.begin() + 46));
    TestFile tiny(Filled(40));
    EXPECT_EQ(ZVERR_NEWER_FORMAT, ZvInsertWavHeader(tiny.h(), &f, 0, 46));

    TestFile w(Filled(300));
    EXPECT_EQ(ZVERR_NEWER_FORMAT, ZvInsertW64Header(w.h(), &f, 10, 120));
    EXPECT_EQ(ZVERR_NEWER_FORMAT, ZvInsertW64Header(w.h(), &f, 10, 116));
    ASSERT_EQ(S_OK, ZvInsertW64Header(w.h(), &f, 164, 136));
    b = w.bytes();
    EXPECT_EQ(300u, GetLe32(b, 16));
    EXPECT_EQ(164u + 24, GetLe32(b, 128));
}

TEST(WaveRead, FormatsFramesOffsetsAndMending)
{
    zvtest::TempDir dir;
    std::wstring path = dir.file(L"r.wav");
    // 20-bit in 24-bit containers, stored with the wrong align of 20 bits.
    WAVEFORMATEX f = Pcm(2, 48000, 24);
    f.wBitsPerSample = 20;
    Bytes img = Riff("WAVE", Cat({Chunk("LIST", Filled(5)), Chunk("fmt ", Bytes((BYTE *)&f, (BYTE *)&f + 16)),
                                  Chunk("data", Filled(6 * 7 + 1))}));
    zvtest::WriteFileBytes(path, img.data(), img.size());
    FileWfx got;
    ASSERT_TRUE(got.read(path));
    EXPECT_EQ(24, got.f->wBitsPerSample);
    EXPECT_EQ(6, got.f->nBlockAlign);
    EXPECT_EQ(f.nAvgBytesPerSec, got.f->nAvgBytesPerSec); // not corrected
    EXPECT_EQ(7u, got.frames);
    EXPECT_EQ(12u + 14 + 24 + 8, got.offset);
    EXPECT_TRUE(ZvFileIsWave(path.c_str(), FALSE));
    EXPECT_FALSE(ZvFileIsWave64(path.c_str(), TRUE));
    EXPECT_FALSE(ZvFileIsAiff(path.c_str()));

    // Compressed: a wave file only when allowed, never a format to read.
    WAVEFORMATEX adpcm = Pcm(2, 44100, 4, 2);
    img = Riff("WAVE", Cat({Chunk("fmt ", Bytes((BYTE *)&adpcm, (BYTE *)&adpcm + 18)), Chunk("data", Filled(8))}));
    zvtest::WriteFileBytes(path, img.data(), img.size());
    EXPECT_FALSE(ZvFileIsWave(path.c_str(), FALSE));
    EXPECT_TRUE(ZvFileIsWave(path.c_str(), TRUE));
    EXPECT_EQ(nullptr, got.read(path));
    EXPECT_FALSE(ZvFileIsWave(dir.file(L"none.wav").c_str(), TRUE));
    EXPECT_EQ(nullptr, got.read(dir.file(L"none.wav")));

    // Extensible float, uncompressed.
    WAVEFORMATEXTENSIBLE wfe = {};
    wfe.Format = Pcm(2, 96000, 32, WAVE_FORMAT_EXTENSIBLE);
    wfe.Format.cbSize = 22;
    wfe.Samples.wValidBitsPerSample = 32;
    wfe.dwChannelMask = 3;
    wfe.SubFormat = {3, 0, 0x10, {0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, 0x71}}; // IEEE float
    img = Riff("WAVE", Cat({Chunk("fmt ", Bytes((BYTE *)&wfe, (BYTE *)&wfe + 40)), Chunk("data", Filled(80))}));
    zvtest::WriteFileBytes(path, img.data(), img.size());
    ASSERT_TRUE(got.read(path));
    EXPECT_EQ(WAVE_FORMAT_EXTENSIBLE, got.f->wFormatTag);
    EXPECT_EQ(0, memcmp(got.f, &wfe, 40));
    EXPECT_EQ(10u, got.frames);

    // The same reader on an image in memory.
    WAVEFORMATEXTENSIBLE out = {};
    DWORD dataOffset = 0;
    ASSERT_EQ(S_OK, mriff_GetWfx(&out.Format, img.data(), (DWORD)img.size(), &dataOffset));
    EXPECT_EQ(0, memcmp(&out, &wfe, 40));
    EXPECT_EQ(12u + 48 + 8, dataOffset);
    _zvwaveformat zf;
    ASSERT_EQ(S_OK, mriff_GetWfx(&zf, img.data(), (DWORD)img.size(), &dataOffset));
    EXPECT_EQ(ZVSAMPLE_F32, zf.sampleType);
    EXPECT_EQ(ZVERR_UNSUPPORTED_MEDIA, mriff_GetWfx(&out.Format, img.data(), 30, &dataOffset));
}

TEST(WaveRead, Wave64AndAiffFormats)
{
    zvtest::TempDir dir;
    std::wstring path = dir.file(L"r.w64");
    WAVEFORMATEX f = Pcm(2, 44100, 16);
    ASSERT_EQ(S_OK, ZvInitializeWav64WithJunk(path.c_str(), &f, CREATE_ALWAYS, 200));
    {
        HANDLE h = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        ASSERT_NE(INVALID_HANDLE_VALUE, h);
        AppendToFile(h, Filled(4 * 25));
        ASSERT_EQ(S_OK, riff64_SetRIFFSize(h, 200 + 100 - 24));
        LARGE_INTEGER at;
        at.QuadPart = 200 - 24;
        SetFilePointerEx(h, at, nullptr, FILE_BEGIN);
        ASSERT_EQ(S_OK, riff64_WriteChunkHeader(h, ZVW64_DATA, 100));
        CloseHandle(h);
    }
    EXPECT_TRUE(ZvFileIsWave64(path.c_str(), FALSE));
    EXPECT_FALSE(ZvFileIsWave(path.c_str(), TRUE));
    FileWfx got;
    ASSERT_TRUE(got.read(path));
    EXPECT_EQ(0, memcmp(got.f, &f, 18));
    EXPECT_EQ(25u, got.frames);
    EXPECT_EQ(200u, got.offset);

    // AIFF through the same entry: big-endian 16-bit, frames from COMM.
    Bytes ssnd;
    Be32(ssnd, 0); Be32(ssnd, 0);
    Put(ssnd, Filled(8).data(), 8);
    Bytes aiff = Form("AIFF", Cat({IffChunk("COMM", CommBody(1, 4, 16, 22050)), IffChunk("SSND", ssnd)}));
    std::wstring apath = dir.file(L"r.aif");
    zvtest::WriteFileBytes(apath, aiff.data(), aiff.size());
    EXPECT_TRUE(ZvFileIsAiff(apath.c_str()));
    ASSERT_TRUE(got.read(apath));
    EXPECT_EQ(ZV_WAVE_FORMAT_BIGENDIAN, got.f->wFormatTag);
    EXPECT_EQ(22050u, got.f->nSamplesPerSec);
    EXPECT_EQ(4u, got.frames);
    EXPECT_EQ(12u + 26 + 16, got.offset);

    // Rewriting the format of an AIFF changes COMM only.
    WAVEFORMATEX stereo = Pcm(2, 48000, 16);
    ASSERT_EQ(S_OK, ZvSetFileWfx(apath.c_str(), &stereo));
    Bytes after;
    zvtest::ReadFileBytes(apath, after);
    ASSERT_EQ(aiff.size(), after.size());
    EXPECT_TRUE(std::equal(after.begin() + 38, after.end(), aiff.begin() + 38));
    ASSERT_TRUE(got.read(apath));
    EXPECT_EQ(2, got.f->nChannels);
    EXPECT_EQ(48000u, got.f->nSamplesPerSec);
    EXPECT_EQ(2u, got.frames);
    WAVEFORMATEX flt = Pcm(2, 48000, 32, WAVE_FORMAT_IEEE_FLOAT);
    EXPECT_EQ(ZVERR_UNSUPPORTED_FORMAT, ZvSetFileWfx(apath.c_str(), &flt));
    EXPECT_EQ(ZVERR_FILE_OPEN, ZvSetFileWfx(dir.file(L"none").c_str(), &flt));
}

TEST(WaveRepair, RebuildsHeadersFromTheFileLength)
{
    WAVEFORMATEX f = Pcm(2, 44100, 16);
    Bytes audio = Filled(4 * 100);
    Bytes good = Wave46(f, audio);

    // fmt bytes all zero, data at 38: the defaults, align 4, start 46.
    Bytes img = good;
    std::fill(img.begin() + 4, img.begin() + 8, 0);
    std::fill(img.begin() + 20, img.begin() + 38, 0);
    TestFile t(img);
    t.seek(5);
    ASSERT_EQ(S_OK, ZvFixTrashedWav(t.h(), nullptr, 4096));
    EXPECT_EQ(5u, t.pos());
    EXPECT_EQ(good, t.bytes());

    // Size past the end and a partial last frame: the odd bytes stay in the
    // file, out of the size.
    img = good;
    img[42] = 0xFF;
    img[43] = 0xFF;
    img.push_back(7);
    img.push_back(8);
    t.rewrite(img);
    ASSERT_EQ(S_OK, ZvFixTrashedWav(t.h(), nullptr, 4096));
    Bytes b = t.bytes();
    ASSERT_EQ(img.size(), b.size());
    EXPECT_EQ(400u, GetLe32(b, 42));
    EXPECT_EQ(400u + 38, GetLe32(b, 4));
    EXPECT_TRUE(std::equal(b.begin() + 46, b.end(), img.begin() + 46));

    // No data id at all: the audio starts at the limit.
    img = Cat({Bytes(1000, 0), audio});
    t.rewrite(img);
    ASSERT_EQ(S_OK, ZvFixTrashedWav(t.h(), nullptr, 1000));
    b = t.bytes();
    EXPECT_EQ(0, memcmp(b.data() + 992, "data", 4));
    EXPECT_EQ(400u, GetLe32(b, 996));
    EXPECT_EQ(0, memcmp(b.data() + 38, "JUNK", 4));

    // Rates: 192,000 is kept, 192,001 replaced by the given format's.
    for (DWORD rate : {192000u, 192001u}) {
        img = good;
        memcpy(img.data() + 24, &rate, 4);
        memset(img.data() + 4, 0, 4);
        t.rewrite(img);
        WAVEFORMATEX given = Pcm(1, 22050, 8);
        ASSERT_EQ(S_OK, ZvFixTrashedWav(t.h(), &given, 4096));
        b = t.bytes();
        EXPECT_EQ(rate == 192000 ? 192000u : 22050u, GetLe32(b, 24));
        EXPECT_EQ(2u, b[22]); // stereo kept
    }

    // A float file with bad bits gets 32; the data id found by the scan in
    // a header whose chunk sizes are destroyed.
    WAVEFORMATEX fl = Pcm(2, 48000, 32, WAVE_FORMAT_IEEE_FLOAT);
    img = Riff("WAVE", Cat({Chunk("fmt ", Bytes((BYTE *)&fl, (BYTE *)&fl + 18)), Chunk("JUNK", Bytes(4000, 0)),
                            Chunk("data", Filled(8 * 30))}));
    img[34] = 12; // bits
    img[42] = 0xF0; // JUNK size runs past the end
    t.rewrite(img);
    ASSERT_EQ(S_OK, ZvFixTrashedWav(t.h(), nullptr, 0x100000));
    b = t.bytes();
    EXPECT_EQ(32, b[34]);
    EXPECT_EQ(8, b[32]);
    EXPECT_EQ(240u, GetLe32(b, b.size() - 240 - 4));
    ASSERT_EQ(img.size(), b.size());
    EXPECT_TRUE(std::equal(b.begin() + 4054, b.end(), img.begin() + 4054));
}

TEST(WaveRepair, ScanStartsBehindAnEighteenByteFmtChunk)
{
    // A 44-byte header keeps its data id at 36, before walk and scan start:
    // the repair finds no data and takes the limit as the data start. The
    // command-line repair mends such a file itself and never gets here.
    WAVEFORMATEX f = Pcm(2, 44100, 16);
    Bytes img = Riff("WAVE", Cat({Chunk("fmt ", Bytes((BYTE *)&f, (BYTE *)&f + 16)), Chunk("data", Bytes(400, 1))}));
    TestFile t(img);
    ASSERT_EQ(S_OK, ZvFixTrashedWav(t.h(), nullptr, 200));
    Bytes b = t.bytes();
    EXPECT_EQ(0, memcmp(b.data() + 192, "data", 4));
    EXPECT_EQ(244u, GetLe32(b, 196));
}

TEST(WaveRepair, UnrepairableFilesAreLeftUnchanged)
{
    // An odd start, a start between 47 and 53, and a file too short to hold
    // the format.
    WAVEFORMATEX f = Pcm(2, 44100, 16);
    Bytes fmt16((BYTE *)&f, (BYTE *)&f + 16);
    std::vector<Bytes> bad = {
        Riff("WAVE", Cat({Chunk("fmt ", Cat({fmt16, Bytes(2, 0)})), Chunk("x   ", Filled(1)), Chunk("data", Filled(40))})),
        Riff("WAVE", Cat({Chunk("fmt ", Cat({fmt16, Bytes(8, 0)})), Chunk("data", Filled(4))})),
        Bytes(30, 'R'),
    };
    bad[0].erase(bad[0].begin() + 46 + 1); // drop the pad: data at an odd offset
    for (size_t i = 0; i < bad.size(); i++) {
        TestFile t(bad[i]);
        HRESULT hr = ZvFixTrashedWav(t.h(), nullptr, 4096);
        EXPECT_TRUE(hr == ZVERR_NEWER_FORMAT || hr == ZVERR_FILE_READ) << i << " " << std::hex << hr;
        EXPECT_EQ(bad[i], t.bytes()) << i;
        EXPECT_EQ(0u, t.pos());
    }
    WAVEFORMATEX none = Pcm(0, 44100, 16);
    TestFile t(Wave46(f, Filled(8)));
    memset(&none, 0, sizeof none);
    none.nChannels = 0;
    Bytes zeros = Wave46(f, Filled(8));
    std::fill(zeros.begin() + 20, zeros.begin() + 38, 0);
    t.rewrite(zeros);
    EXPECT_EQ(E_INVALIDARG, ZvFixTrashedWav(t.h(), &none, 4096));
    EXPECT_EQ(zeros, t.bytes());
}

TEST(WaveRepair, Wave64AndSetFormatRoundTrip)
{
    zvtest::TempDir dir;
    std::wstring path = dir.file(L"s.w64");
    WAVEFORMATEX f = Pcm(1, 32000, 16);
    ASSERT_EQ(S_OK, ZvInitializeWav64(path.c_str(), &f, CREATE_ALWAYS));
    HANDLE h = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, h);
    AppendToFile(h, Filled(2 * 50 + 1)); // never closed: sizes still empty
    ASSERT_EQ(S_OK, ZvFixTrashedW64(h, nullptr, 1 << 20));
    CloseHandle(h);
    FileWfx got;
    ASSERT_TRUE(got.read(path));
    EXPECT_EQ(0, memcmp(got.f, &f, 18));
    EXPECT_EQ(50u, got.frames);
    EXPECT_EQ(112u, got.offset);

    // Replacing a wave file's format overwrites its first 26 bytes; repair
    // then rebuilds the header with the new format.
    std::wstring wav = dir.file(L"s.wav");
    Bytes img = Wave46(f, Filled(2 * 50));
    zvtest::WriteFileBytes(wav, img.data(), img.size());
    WAVEFORMATEX stereo = Pcm(2, 32000, 16);
    ASSERT_EQ(S_OK, ZvSetFileWfx(wav.c_str(), &stereo));
    Bytes b;
    zvtest::ReadFileBytes(wav, b);
    EXPECT_EQ(0, memcmp(b.data(), "fmt \x12\0\0\0", 8));
    EXPECT_FALSE(ZvFileIsWave(wav.c_str(), TRUE));
    WAVEFORMATEX twenty = stereo;
    twenty.wBitsPerSample = 20;
    EXPECT_EQ(ZVERR_UNSUPPORTED_MEDIA, ZvSetFileWfx(wav.c_str(), &twenty));
    h = CreateFileW(wav.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_EQ(S_OK, ZvFixTrashedWav(h, &stereo, 4096));
    CloseHandle(h);
    ASSERT_TRUE(got.read(wav));
    EXPECT_EQ(2, got.f->nChannels);
    EXPECT_EQ(25u, got.frames);

    // Headers in memory.
    BYTE buf[64] = {};
    _tMRIFF mr;
    mriff_Init(&mr, buf, 0, sizeof buf);
    ASSERT_EQ(S_OK, mriff_WriteWaveHeader(&mr, &f, 8, 54));
    EXPECT_EQ(54u, mriff_GetFilePointer(&mr));
    EXPECT_EQ(0, memcmp(buf + 38, "JUNK\0\0\0\0data\x08", 13));
    mriff_Init(&mr, buf, 0, 40);
    EXPECT_EQ(ZVERR_FILE_WRITE, mriff_WriteWaveHeader(&mr, &f, 8, 46));
    EXPECT_EQ(ZVERR_NEWER_FORMAT, mriff_WriteWaveHeader(&mr, &f, 8, 50));
}
