// The renderers of pcm.dll (wave, Wave64, AIFF/AIFC): their presets
// rendered and read back through the PCM reader byte for byte, 1 to 6
// channels in every sample type, the header form the channel count and width
// call for, sizes fixed up on close (odd data included), and the results of
// templates they cannot write. Files go to $ZV_PCM_RENDERED with a manifest,
// where render_sox.sh checks them against sox's reading.
#include <gtest/gtest.h>
#include "testutil.h"
#include "readstream.h"
#include "zvplugin_sdk.h"
#include "audio/waveformat.h"
#include "templates/zvtemplate.h"
#include "filemng/zvmemtoken.h"
#include "media/zvmeta.h"
#include "media/projectlink.h"
#include <math.h>
#include <stdio.h>
#include <string>
#include <vector>

namespace {

const GUID kWaveReader = {0x0A30C422, 0xB91B, 0x11D3, {0xA4, 0x84, 0x00, 0x10, 0x5A, 0x24, 0xAA, 0x37}};
const GUID kWaveRenderer = {0x7C1E5B2A, 0x3D4F, 0x4A8B, {0x9E, 0x21, 0x6F, 0x0B, 0x5C, 0x3D, 0x8A, 0x14}};

struct Container {
    const char *name;
    GUID renderer, reader;
    const wchar_t *ext;
};
const Container kContainers[] = {
    {"wave", kWaveRenderer, kWaveReader, L".wav"},
    {"wave64",
     {0x7C1E5B2B, 0x3D4F, 0x4A8B, {0x9E, 0x21, 0x6F, 0x0B, 0x5C, 0x3D, 0x8A, 0x14}},
     {0x605F1174, 0x83E4, 0x4420, {0x85, 0xA1, 0xB5, 0xA4, 0xDC, 0x1E, 0xA0, 0x28}},
     L".w64"},
    {"aiff",
     {0x7C1E5B2C, 0x3D4F, 0x4A8B, {0x9E, 0x21, 0x6F, 0x0B, 0x5C, 0x3D, 0x8A, 0x14}},
     {0x3CBBA9C2, 0x75AD, 0x11D3, {0xA4, 0x83, 0x00, 0x10, 0x5A, 0x24, 0xAA, 0x37}},
     L".aif"},
};

template <class T> HRESULT Create(const GUID &clsid, REFIID iid, T **out)
{
    return zvtest::CreateFromDll(L"pcm.dll", clsid, iid, (void **)out);
}

// Where rendered files are kept for the sox check; a temp folder otherwise.
std::wstring OutDir(const zvtest::TempDir &temp)
{
    std::wstring dir = zvtest::HostDirFromEnv("ZV_PCM_RENDERED");
    if (dir.empty())
        return temp.path() + L"\\";
    CreateDirectoryW(dir.c_str(), NULL);
    // A fresh manifest per run of the executable.
    static bool cleared = DeleteFileW((dir + L"manifest.txt").c_str()) || true;
    (void)cleared;
    return dir;
}

void Manifest(const std::wstring &dir, const char *line)
{
    FILE *f = _wfopen((dir + L"manifest.txt").c_str(), L"ab");
    if (f) {
        fputs(line, f);
        fclose(f);
    }
}

const char *TypeName(ZVSAMPLETYPE t)
{
    switch (t) {
    case ZVSAMPLE_U8: return "u8";
    case ZVSAMPLE_S16: return "s16";
    case ZVSAMPLE_S24: return "s24";
    case ZVSAMPLE_S32: return "s32";
    default: return "f32";
    }
}

// A signal in the stored form: two sines and full-scale extremes, so sign,
// byte order and the clipping points all show.
std::vector<BYTE> Signal(ZVSAMPLETYPE type, unsigned channels, unsigned frames)
{
    unsigned bytes = ZvAudio_BytesFromSampleType(type);
    std::vector<BYTE> out(frames * channels * bytes);
    BYTE *p = out.data();
    for (unsigned i = 0; i < frames; i++)
        for (unsigned c = 0; c < channels; c++, p += bytes) {
            double v = 0.6 * sin(i * 0.031 * (c + 1)) + 0.3 * sin(i * 0.47);
            if (i % 97 == 5)
                v = c & 1 ? -1.0 : 0.99999;
            if (type == ZVSAMPLE_F32) {
                float f = (float)v;
                memcpy(p, &f, 4);
                continue;
            }
            long long full = 1ll << (bytes * 8 - 1);
            long long s = (long long)floor(v * full);
            if (s >= full)
                s = full - 1;
            if (type == ZVSAMPLE_U8)
                s += 128;
            for (unsigned b = 0; b < bytes; b++)
                p[b] = (BYTE)(s >> (8 * b));
        }
    return out;
}

using zvtest::LocalToken;

struct Renderer : ::testing::TestWithParam<int> {
    IZvRenderFileClass *cls = nullptr;
    IZvReadFileClass *reader = nullptr;
    zvtest::TempDir temp;
    const Container &kind = kContainers[GetParam()];
    void SetUp() override
    {
        ASSERT_EQ(Create(kind.renderer, IID_IZvRenderFileClass, &cls), S_OK);
        ASSERT_EQ(Create(kind.reader, IID_IZvReadFileClass, &reader), S_OK);
    }
    void TearDown() override
    {
        if (cls)
            cls->Release();
        if (reader)
            reader->Release();
    }

    // Writes the signal in uneven pieces and closes.
    void Render(const std::wstring &path, const tagZVTEMPLATExV2 *t, const std::vector<BYTE> &data, unsigned align)
    {
        IZvRenderFile *file = nullptr;
        ASSERT_EQ(cls->CreateFile(&file, path.c_str(), t, ZVFIO_STREAMMASK_AUDIO, 0), S_OK);
        ASSERT_EQ(file->BeginWrite(0), S_OK);
        static const DWORD pieces[] = {1, 999, 17, 4096, 3};
        DWORD frames = (DWORD)(data.size() / align), at = 0;
        for (int i = 0; at < frames; i++) {
            DWORD n = pieces[i % 5] < frames - at ? pieces[i % 5] : frames - at;
            DWORD written = 0;
            ASSERT_EQ(file->WriteSamples(0, LocalToken((void *)(data.data() + at * align), n * align), n, &written),
                      S_OK);
            ASSERT_EQ(written, n);
            at += n;
        }
        ASSERT_EQ(file->EndWrite(0), S_OK);
        file->Release();
    }

    // The file through the PCM reader: its format and all its bytes.
    void ReadBack(const std::wstring &path, _zvwaveformat *format, std::vector<BYTE> &out)
    {
        IZvReadFile *file = nullptr;
        ASSERT_EQ(reader->OpenFile(&file, ZvSdk_HandleToWire(INVALID_HANDLE_VALUE), 0, path.c_str(), FALSE), S_OK);
        IZvReadAudioStream *audio = zvtest::OpenAudio(file);
        ASSERT_NE(audio, nullptr);
        _ZVFILESTREAMFORMATINFOv2 info = {};
        info.cbSize = sizeof info;
        ASSERT_EQ(audio->GetStreamFormatInfo(&info), S_OK);
        memcpy(format, info.format, sizeof *format);
        out.assign((size_t)info.llLength * format->blockAlign, 0);
        DWORD got = 0;
        if (info.llLength > 0) {
            EXPECT_EQ(audio->ReadSamples(0, 0, LocalToken(out.data(), (DWORD)out.size()), (DWORD)info.llLength, &got),
                      S_OK);
        }
        EXPECT_EQ(got, (DWORD)info.llLength);
        audio->Release();
        file->Release();
    }

    // A template of the renderer's first preset with another audio format.
    tagZVTEMPLATExV2 *WithFormat(DWORD rate, ZVSAMPLETYPE type, unsigned channels)
    {
        tagZVTEMPLATExV2 *t = nullptr;
        EXPECT_EQ(cls->GetTemplate(&t, 0), S_OK);
        if (t)
            ZvTemplateAt<_zvwaveformat>(t, ZVT_OFS_AUDIO_FORMAT)->Init(rate, type, channels);
        return t;
    }

    // The file for render_sox.sh with the samples as written; AIFF keeps
    // 8-bit samples signed, so sox reads them as such.
    void ForSox(const std::wstring &dir, const std::wstring &name, ZVSAMPLETYPE type, unsigned channels, DWORD rate,
                std::vector<BYTE> raw)
    {
        bool signed8 = type == ZVSAMPLE_U8 && GetParam() == 2;
        if (signed8)
            for (BYTE &b : raw)
                b ^= 0x80;
        char line[160];
        snprintf(line, sizeof line, "%ls %s %u %u %lu\n", name.c_str(), signed8 ? "s8" : TypeName(type),
                 ZvAudio_BitsFromSampleType(type), channels, (unsigned long)rate);
        Manifest(dir, line);
        zvtest::WriteFileBytes(dir + name + L".raw", raw.data(), raw.size());
    }
};

// File bytes as little-endian words.
DWORD Word(const std::vector<BYTE> &b, size_t at)
{
    DWORD v = 0;
    if (at + 4 <= b.size())
        memcpy(&v, &b[at], 4);
    return v;
}

TEST_P(Renderer, PresetsRoundTripThroughTheReader)
{
    static const struct { DWORD rate; ZVSAMPLETYPE type; } want[] = {
        {44100, ZVSAMPLE_S16}, {48000, ZVSAMPLE_S24}, {96000, ZVSAMPLE_F32}};
    LONG count = 0;
    ASSERT_EQ(cls->GetTemplateCount(&count), S_OK);
    ASSERT_EQ(count, 3);
    std::wstring dir = OutDir(temp);
    for (LONG i = 0; i < count; i++) {
        tagZVTEMPLATExV2 *t = nullptr;
        ASSERT_EQ(cls->GetTemplate(&t, i), S_OK);
        EXPECT_EQ(t->dwPresetId, (DWORD)i + 1);
        EXPECT_TRUE(IsEqualGUID(t->rendererClass, kind.renderer));
        EXPECT_NE(ZvFio_GetTemplateName(t)[0], 0);
        EXPECT_EQ(cls->CheckTemplate(t), S_OK);
        tagZVTEMPLATExV2 *found = nullptr;
        EXPECT_EQ(cls->FindTemplate(t->templateId, &found), S_OK);
        EXPECT_TRUE(found && found->dwPresetId == t->dwPresetId);
        free(found);
        const _zvwaveformat *f = ZvTemplateAt<_zvwaveformat>(t, ZVT_OFS_AUDIO_FORMAT);
        EXPECT_EQ(f->samplesPerSec, want[i].rate);
        EXPECT_EQ(f->sampleType, want[i].type);
        EXPECT_EQ(f->channels, 2);
        DWORD bitsPerSecond = 0;
        EXPECT_EQ(cls->GetTemplateInfo(t, (BYTE *)&bitsPerSecond, 4, 3), S_OK);
        EXPECT_EQ(bitsPerSecond, want[i].rate * 2 * ZvAudio_BitsFromSampleType(want[i].type));

        std::vector<BYTE> signal = Signal(want[i].type, 2, 10007);
        wchar_t name[32];
        swprintf(name, 32, L"preset%ld%ls", (long)i, kind.ext);
        Render(dir + name, t, signal, f->blockAlign);
        std::vector<BYTE> back;
        _zvwaveformat got = {};
        ReadBack(dir + name, &got, back);
        EXPECT_EQ(got.samplesPerSec, want[i].rate);
        EXPECT_EQ(got.sampleType, want[i].type);
        EXPECT_EQ(got.channels, 2);
        EXPECT_TRUE(back == signal) << "preset " << i;
        ForSox(dir, name, want[i].type, 2, want[i].rate, signal);
        free(t);
    }
}

// Every width from mono to 6 channels: wave has a plain header (fmt 16) only
// up to two channels of up to 16 bits; sizes right even when the data is odd.
TEST_P(Renderer, ChannelsAndWidthsPickTheHeaderForm)
{
    static const ZVSAMPLETYPE types[] = {ZVSAMPLE_U8, ZVSAMPLE_S16, ZVSAMPLE_S24, ZVSAMPLE_S32, ZVSAMPLE_F32};
    std::wstring dir = OutDir(temp);
    for (ZVSAMPLETYPE type : types)
        for (unsigned ch = 1; ch <= 6; ch++) {
            SCOPED_TRACE(testing::Message() << TypeName(type) << " x" << ch);
            tagZVTEMPLATExV2 *t = WithFormat(22050, type, ch);
            ASSERT_NE(t, nullptr);
            unsigned align = ch * ZvAudio_BytesFromSampleType(type);
            std::vector<BYTE> signal = Signal(type, ch, 1001);
            wchar_t name[40];
            swprintf(name, 40, L"%hs_%u%ls", TypeName(type), ch, kind.ext);
            Render(dir + name, t, signal, align);
            free(t);

            std::vector<BYTE> file;
            ASSERT_TRUE(zvtest::ReadFileBytes(dir + name, file));
            bool extensible = ch > 2 || ZvAudio_BitsFromSampleType(type) > 16;
            DWORD fmtSize = extensible ? 40 : 16, tag = extensible ? 0xFFFE : type == ZVSAMPLE_F32 ? 3 : 1;
            size_t size = signal.size();
            switch (GetParam()) {
            case 0: {
                EXPECT_EQ(Word(file, 16), fmtSize);
                EXPECT_EQ(Word(file, 20) & 0xFFFF, tag);
                size_t dataAt = 20 + fmtSize;
                EXPECT_EQ(Word(file, dataAt), 0x61746164u);
                EXPECT_EQ(Word(file, dataAt + 4), (DWORD)size);
                EXPECT_EQ(file.size(), dataAt + 8 + size + (size & 1));
                EXPECT_EQ(Word(file, 4), (DWORD)file.size() - 8);
                if (extensible) {
                    EXPECT_EQ(Word(file, 20 + 20), (1u << ch) - 1) << "speaker mask";
                }
                break;
            }
            case 1:
                // always the plain form; sizes count the 24-byte headers;
                // the last chunk has no pad
                EXPECT_EQ(Word(file, 56), 24u + 16);
                EXPECT_EQ(Word(file, 64) & 0xFFFF, type == ZVSAMPLE_F32 ? 3u : 1u);
                EXPECT_EQ(Word(file, 80), 0x61746164u);
                EXPECT_EQ(Word(file, 96), (DWORD)size + 24);
                EXPECT_EQ(file.size(), 104 + size);
                EXPECT_EQ(Word(file, 16), (DWORD)file.size());
                break;
            case 2:
                EXPECT_EQ(_byteswap_ulong(Word(file, 4)), (DWORD)file.size() - 8) << "FORM size";
                EXPECT_EQ(Word(file, 8), type == ZVSAMPLE_F32 ? 0x43464941u : 0x46464941u) << "AIFC for float";
                EXPECT_EQ(file.size() & 1, 0u);
                break;
            }

            std::vector<BYTE> back;
            _zvwaveformat got = {};
            ReadBack(dir + name, &got, back);
            EXPECT_EQ(got.channels, ch);
            EXPECT_EQ(got.sampleType, type);
            EXPECT_TRUE(back == signal);
            ForSox(dir, name, type, ch, 22050, signal);
        }
}

TEST_P(Renderer, RefusalsAndAbort)
{
    tagZVTEMPLATExV2 *t = WithFormat(48000, ZVSAMPLE_F64, 2);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(cls->CheckTemplate(t), ZVERR_TEMPLATE_REFUSED);
    IZvRenderFile *file = nullptr;
    std::wstring path = temp.file((L"x" + std::wstring(kind.ext)).c_str());
    EXPECT_EQ(cls->CreateFile(&file, path.c_str(), t, ZVFIO_STREAMMASK_AUDIO, 0), ZVERR_TEMPLATE_REFUSED);
    EXPECT_EQ(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES);
    DWORD usable = 1;
    EXPECT_EQ(cls->GetTemplateInfo(t, (BYTE *)&usable, 4, 0x17), S_OK);
    EXPECT_EQ(usable, 0u);
    ZvTemplateAt<_zvwaveformat>(t, ZVT_OFS_AUDIO_FORMAT)->Init(48000, ZVSAMPLE_S16, 0);
    EXPECT_EQ(cls->CheckTemplate(t), ZVERR_TEMPLATE_REFUSED);
    ZvTemplateAt<_zvwaveformat>(t, ZVT_OFS_AUDIO_FORMAT)->Init(48000, ZVSAMPLE_S16, 2);
    DWORD none = 0;
    memcpy(t->audio, &none, 4);
    EXPECT_EQ(cls->CheckTemplate(t), ZVERR_TEMPLATE_REFUSED);
    EXPECT_EQ(cls->CheckTemplate(nullptr), E_INVALIDARG);
    EXPECT_EQ(cls->CreateFile(&file, nullptr, t, 1, 0), E_INVALIDARG);
    free(t);

    t = WithFormat(44100, ZVSAMPLE_S16, 2);
    ASSERT_EQ(cls->CreateFile(&file, path.c_str(), t, ZVFIO_STREAMMASK_AUDIO, 0), S_OK);
    BYTE four[4] = {};
    DWORD written = 7;
    EXPECT_EQ(file->WriteSamples(0, LocalToken(four, 4), 2, &written), ZVERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(file->WriteSamples(1, LocalToken(four, 4), 1, &written), E_INVALIDARG);
    EXPECT_EQ(file->WriteSamples(0, LocalToken(four, 4), 1, &written), S_OK);
    // Metadata streams cut short or of no link are refused; AIFF takes no link.
    const bool aiff = wcsstr(kind.ext, L"aif") != nullptr;
    IStream *s = nullptr;
    ASSERT_EQ(CreateStreamOnHGlobal(nullptr, TRUE, &s), S_OK);
    const DWORD head[3] = {28, 100, 1};
    s->Write(head, sizeof head, nullptr);
    EXPECT_EQ(file->SetMeta(ZVMETA_MARKERS, nullptr), E_POINTER);
    EXPECT_EQ(file->SetMeta(ZVMETA_MARKERS, s), ZVERR_FILE_READ);
    EXPECT_EQ(file->SetMeta(ZVMETA_PROJECTLINK_STREAM, s), aiff ? E_NOTIMPL : ZVERR_MALFORMED);
    EXPECT_EQ(file->SetMeta(0x12345678, s), E_INVALIDARG);
    s->Release();
    EXPECT_EQ(file->Abort(), S_OK);
    EXPECT_EQ(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(file->WriteSamples(0, LocalToken(four, 4), 1, &written), E_UNEXPECTED);
    EXPECT_EQ(file->Close(), S_OK);
    file->Release();

    // Nothing written: a valid empty file.
    ASSERT_EQ(cls->CreateFile(&file, path.c_str(), t, 0, 0), S_OK);
    file->Release();
    std::vector<BYTE> back;
    _zvwaveformat got = {};
    ReadBack(path, &got, back);
    EXPECT_TRUE(back.empty());
    free(t);
}

// Templates with damaged audio blocks: refused with the system's codes or
// written as a file the reader takes back, never a crash; no block leaks.
TEST_P(Renderer, MutatedTemplates)
{
    tagZVTEMPLATExV2 *base = nullptr;
    ASSERT_EQ(cls->GetTemplate(&base, 1), S_OK);
    std::wstring path = temp.file((L"m" + std::wstring(kind.ext)).c_str());
    zvtest::Rng rng{7u + GetParam()};
    long long before = zvtest::HeapBusyBlocks();
    int written = 0;
    for (int i = 0; i < 1500; i++) {
        tagZVTEMPLATExV2 *t = ZvFio_CopyTemplate(base);
        ASSERT_NE(t, nullptr);
        for (unsigned n = 1 + rng.below(4); n; n--) {
            // mostly the format record, sometimes the block head
            unsigned at = rng.below(4) ? ZVT_OFS_AUDIO_FORMAT + rng.below(32) : ZVT_OFS_AUDIO + rng.below(16);
            ((BYTE *)t)[at] = rng.below(3) ? (BYTE)rng.next() : (BYTE)(((BYTE *)t)[at] ^ (1u << rng.below(8)));
        }
        HRESULT check = cls->CheckTemplate(t);
        ASSERT_TRUE(check == S_OK || check == ZVERR_TEMPLATE_REFUSED) << std::hex << check;
        if (check == S_OK && ZvTemplateAt<_zvwaveformat>(t, ZVT_OFS_AUDIO_FORMAT)->channels <= 8) {
            IZvRenderFile *file = nullptr;
            ASSERT_EQ(cls->CreateFile(&file, path.c_str(), t, ZVFIO_STREAMMASK_AUDIO, 0), S_OK);
            BYTE frames[8 * 4 * 3] = {1, 2, 3};
            DWORD n = 0;
            EXPECT_EQ(file->WriteSamples(0, LocalToken(frames, sizeof frames), 3, &n), S_OK);
            EXPECT_EQ(file->Close(), S_OK);
            file->Release();
            const _zvwaveformat *f = ZvTemplateAt<_zvwaveformat>(t, ZVT_OFS_AUDIO_FORMAT);
            SCOPED_TRACE(testing::Message() << f->samplesPerSec << " Hz type " << f->sampleType << " x"
                                            << f->channels << " mask " << std::hex << f->channelMask);
            std::vector<BYTE> back;
            _zvwaveformat got = {};
            ReadBack(path, &got, back);
            EXPECT_EQ(back.size(), 3u * got.blockAlign);
            written++;
        }
        free(t);
    }
    free(base);
    EXPECT_GT(written, 10);
    EXPECT_LE(zvtest::HeapBusyBlocks() - before, 8);
}

// Each reader names its container's renderer as its companion and back.
TEST_P(Renderer, ReaderAndRendererAreCompanions)
{
    IZvRenderFileClass *other = nullptr;
    ASSERT_EQ(reader->GetRenderClass(&other), S_OK);
    GUID guid = {};
    EXPECT_EQ(other->GetClassGuid(&guid), S_OK);
    EXPECT_TRUE(IsEqualGUID(guid, kind.renderer));
    IZvReadFileClass *back = nullptr;
    ASSERT_EQ(other->GetReadClass(&back), S_OK);
    EXPECT_EQ(back->GetClassGuid(&guid), S_OK);
    EXPECT_TRUE(IsEqualGUID(guid, kind.reader));
    back->Release();
    other->Release();
}

INSTANTIATE_TEST_SUITE_P(Pcm, Renderer, ::testing::Values(0, 1, 2),
                         [](const ::testing::TestParamInfo<int> &p) { return std::string(kContainers[p.param].name); });

} // namespace
