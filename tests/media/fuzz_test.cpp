// Mutated files through the search, read, edit and repair functions: every
// call must end with a code of the system, and nothing may be left allocated.
#include "zvhandlecount.h"
#include "mediatest.h"
#include "media/riff.h"
#include "media/riff64.h"
#include "media/mriff.h"
#include "media/iff.h"
#include "media/waveheader.h"
#include "media/zvmeta.h"
#include "media/projectlink.h"
#include "media/zvsummary.h"
#include "zvplugin.h"
#include <set>
#include <stdlib.h>

using namespace mediatest;

namespace {

using zvtest::Rng;

const std::set<HRESULT> kCodes = {
    S_OK, S_FALSE, ZVERR_UNSUPPORTED_MEDIA, ZVERR_FILE_OPEN, ZVERR_FILE_READ, ZVERR_FILE_WRITE, ZVERR_NOT_FOUND,
    ZVERR_MALFORMED, ZVERR_UNSUPPORTED_FORMAT, ZVERR_WRONG_CHUNK_SIZE, ZVERR_SIZE_LIMIT, ZVERR_NO_RIFF_HEADER,
    ZVERR_NO_LIST_HEADER, ZVERR_ZERO_CHUNK, ZVERR_NEWER_FORMAT, E_OUTOFMEMORY, E_INVALIDARG, E_POINTER,
    ZVERR_LINK_VERSION, ZVERR_LINK_STREAM,
};

#define EXPECT_CODE(call)                                                              \
    do {                                                                               \
        HRESULT hr_ = (call);                                                                                                                 \
        EXPECT_TRUE(kCodes.count(hr_)) << #call << " gave " << std::hex << hr_ << " on variant " << variant; \
    } while (0)

// Size words are where the damage matters most: 0, odd, negative, huge.
Bytes Mutate(const Bytes &base, Rng &rng, const std::vector<size_t> &sizeAt)
{
    Bytes b = base;
    switch (rng.below(5)) {
    case 0: // bit flips
        for (unsigned i = 0, n = 1 + rng.below(4); i < n; i++)
            b[rng.below((unsigned)b.size())] ^= (BYTE)(1u << rng.below(8));
        break;
    case 1: // truncation
        b.resize(rng.below((unsigned)b.size()));
        break;
    default: { // a size word set to a bad value
        static const DWORD values[] = {0, 1, 3, 7, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0xFFFFFFF7, 0xFFFFFFF0, 9, 23, 25};
        size_t at = sizeAt[rng.below((unsigned)sizeAt.size())];
        DWORD v = rng.below(4) ? values[rng.below(sizeof values / sizeof values[0])] : rng.next();
        if (at + 4 <= b.size())
            memcpy(b.data() + at, &v, 4);
        if (rng.below(3) == 0 && at + 8 <= b.size()) { // the high word of a Wave64 size
            DWORD high = rng.below(2) ? 0xFFFFFFFF : rng.next();
            memcpy(b.data() + at + 4, &high, 4);
        }
        break;
    }
    }
    return b;
}

// Offsets of the size words of a RIFF or IFF image, found by walking it.
std::vector<size_t> SizeWords(const Bytes &b, size_t first, size_t headerSize, size_t sizeOffset, size_t align,
                              bool bigEndian)
{
    std::vector<size_t> at = {4, sizeOffset == 16 ? 16u : 4u};
    for (size_t o = first; o + headerSize <= b.size();) {
        at.push_back(o + sizeOffset);
        unsigned long long size = bigEndian ? ((unsigned)b[o + 4] << 24 | b[o + 5] << 16 | b[o + 6] << 8 | b[o + 7])
                                            : GetLe32(b, o + sizeOffset);
        if (headerSize == 24)
            size = size < 24 ? 0 : size - 24;
        // Look inside lists too.
        if (headerSize == 8 && memcmp(&b[o], "LIST", 4) == 0)
            o += 12;
        else
            o += headerSize + ((size + align - 1) & ~(unsigned long long)(align - 1));
    }
    return at;
}

void FreeBlock(tZVRIFFBLOCK &block)
{
    if (block.data) {
        HGLOBAL h = GlobalHandle(block.data);
        GlobalUnlock(h);
        GlobalFree(h);
        block.data = nullptr;
    }
}

Bytes RiffBase()
{
    WAVEFORMATEX f = {};
    f.wFormatTag = 1; f.nChannels = 2; f.nSamplesPerSec = 44100; f.wBitsPerSample = 16;
    f.nBlockAlign = 4; f.nAvgBytesPerSec = 176400;
    Bytes fmt((BYTE *)&f, (BYTE *)&f + 18);
    return Riff("WAVE", Cat({Chunk("fmt ", fmt), Chunk("JUNK", Bytes(20, 0)),
                             List("INFO", Cat({Chunk("INAM", Bytes{'a', 'b', 'c', 0}), Chunk("ICMT", Filled(5, 'A'))})),
                             Chunk("odd ", Filled(3)), Chunk("data", Filled(64)), Chunk("zzz ", Filled(7))}));
}

Bytes W64Base()
{
    WAVEFORMATEX f = {};
    f.wFormatTag = 1; f.nChannels = 1; f.nSamplesPerSec = 8000; f.wBitsPerSample = 16;
    f.nBlockAlign = 2; f.nAvgBytesPerSec = 16000;
    Bytes list;
    Put(list, &ZVW64_WAVE, 16);
    Bytes inner = Chunk64(ZVW64_JUNK, Filled(9));
    Put(list, inner.data(), inner.size());
    return W64(Cat({Chunk64(ZVW64_FMT, Bytes((BYTE *)&f, (BYTE *)&f + 18)), Chunk64(ZVW64_JUNK, Bytes(13, 0)),
                    Chunk64(ZVW64_LIST, list), Chunk64(ZVW64_DATA, Filled(50))}));
}

Bytes AiffBase()
{
    Bytes comm = CommBody(2, 8, 16, 44100);
    PutStr(comm, "NONE");
    Be16(comm, 0);
    Bytes mark;
    Be16(mark, 2);
    Be16(mark, 1); Be32(mark, 4); mark.push_back(1); PutStr(mark, "a");
    Be16(mark, 2); Be32(mark, 6); mark.push_back(2); PutStr(mark, "bc"); mark.push_back(0);
    Bytes ssnd;
    Be32(ssnd, 4); Be32(ssnd, 0);
    Put(ssnd, Filled(36).data(), 36);
    // A sustain loop over both markers, text and a foreign chunk behind the audio.
    Bytes inst = {60, 0, 0, 127, 1, 127, 0, 0};
    Be16(inst, 1), Be16(inst, 1), Be16(inst, 2), Be16(inst, 0), Be16(inst, 0), Be16(inst, 0);
    return Form("AIFC", Cat({IffChunk("FVER", Filled(4)), IffChunk("COMM", comm), IffChunk("MARK", mark),
                             IffChunk("INST", inst), IffChunk("SSND", ssnd), IffChunk("NAME", Filled(5, 'a')),
                             IffChunk("APPL", Filled(9))}));
}

// An ARDEO clip: a movi list whose first frame is 00dc, a LIST meta with the
// time code in its XML entry, a LIST INFO beside it.
Bytes ArdeoBase()
{
    const char *xml = "<Clip><LtcChangeTable tcFps=\"30\"><LtcChange frameCount=\"3\" value=\"00:01:00;02\"/>"
                      "</LtcChangeTable></Clip>";
    return Riff("AVI ", Cat({List("INFO", Chunk("INAM", Bytes{'c', 0})), List("movi", Chunk("00dc", Filled(10))),
                             List("meta", Chunk("xml ", Bytes(xml, xml + strlen(xml) + 1)))}));
}

// The rich wave file with a project link and a picture list behind it.
Bytes WithLinkAndPictures(const Bytes &rich)
{
    Bytes f = rich;
    const wchar_t path[] = L"C:\\p.prj", cmd[] = L"-o";
    Bytes picture;
    Le32(picture, 24 + 4 + 12);
    Le32(picture, 2), Le32(picture, 3), Le32(picture, 4), Le32(picture, 0), Le32(picture, 12);
    Put(picture, L"a", 4);
    Put(picture, Filled(12).data(), 12);
    Bytes version;
    Le32(version, 0x01000000);
    Bytes tail = Cat({Chunk("splp", Bytes((const BYTE *)path, (const BYTE *)path + sizeof path)),
                      Chunk("spcl", Bytes((const BYTE *)cmd, (const BYTE *)cmd + sizeof cmd)),
                      Chunk("sprg", Filled(16)), Chunk("srtd", Filled(9)), Chunk("srat", Filled(3)),
                      Chunk("spem", Cat({Bytes{'L', 'I', 'S', 'T', 12, 0, 0, 0, 's', 'p', 'e', 'l'}, Chunk("abcd", Filled(4))})),
                      Chunk("splv", version), List("pic ", Cat({Chunk("pict", picture), Chunk("pict", picture)}))});
    Put(f, tail.data(), tail.size());
    DWORD size = (DWORD)f.size() - 8;
    memcpy(&f[4], &size, 4);
    return f;
}

// Metadata chunks of every kind: the rich wave file, and the same kinds as
// the writer puts them into a Wave64 file.
Bytes MetaW64Base(const Bytes &rich)
{
    zvtest::TempDir dir;
    std::wstring src = dir.file(L"rich.wav"), dst = dir.file(L"meta.w64");
    zvtest::WriteFileBytes(src, rich.data(), rich.size());
    Bytes plain = PlainWave64(Filled(40));
    zvtest::WriteFileBytes(dst, plain.data(), plain.size());
    HANDLE h = CreateFileW(src.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    IZvReadMeta *meta = nullptr;
    ZvFMMeta_CreateSourceFromFile(h, FALSE, &meta);
    CloseHandle(h);
    if (meta) {
        ZvFMMeta64_openAndWriteMetaStream(dst.c_str(), TRUE, 44100, meta, 0xFFFFFDFF, 0);
        ProjectLinkRiff64_openAndWriteInfo(dst.c_str(), meta);
        meta->Release();
    }
    Bytes out;
    zvtest::ReadFileBytes(dst, out);
    return out;
}

// The size words, and the word behind each header: the count of a counted
// chunk, the type of a list.
std::vector<size_t> WithCounts(std::vector<size_t> at, size_t behind)
{
    size_t n = at.size();
    for (size_t i = 2; i < n; i++)
        at.push_back(at[i] + behind);
    return at;
}

// Every metadata reader and, now and then, the writer into the damaged file.
void MetaReaders(HANDLE h, bool w64, IZvReadMeta *clean, const CZvLinkProjectInfo *cleanLink, int variant)
{
    CZvLinkProjectInfo link;
    BOOL found = FALSE;
    EXPECT_CODE(w64 ? ProjectLinkRiff64_LoadInfo(h, &link, &found) : ProjectLinkRiff_LoadInfo(h, &link, &found));
    link.FreeMemory();
    DWORD listSize = 0;
    if (!w64 && SUCCEEDED(riff_FindListChunkFromStart(h, ZVRIFF_INFO, &listSize))) {
        _summarylisttag summary = {0, nullptr};
        EXPECT_CODE(ZvSummary_Load(h, &summary, &listSize));
        ZvSummary_Free(&summary);
    }
    DWORD all = 0, form = 0;
    SetFilePointer(h, 0, nullptr, FILE_BEGIN);
    if (!w64 && SUCCEEDED(riff_ReadFileID(h, &all, &form))) {
        tagZVDISPLIST *list = displist_Create();
        EXPECT_CODE(displist_Load(h, list, &all));
        displist_Destroy(list);
    }
    void *sampler = nullptr;
    DWORD samplerSize = 0;
    if (SUCCEEDED(w64 ? ZvFMMeta64_fillSamplerinfoFromFileEx(h, &sampler, &samplerSize, FALSE, 44100)
                      : ZvFMMeta_fillSamplerinfoFromFileEx(h, &sampler, &samplerSize, FALSE, 44100)) && sampler) {
        GlobalUnlock(GlobalHandle(sampler));
        GlobalFree(GlobalHandle(sampler));
    }
    IZvReadMeta *meta = nullptr;
    EXPECT_CODE(ZvFMMeta_CreateSourceFromFile(h, w64, &meta));
    if (meta) {
        IStream *s = nullptr;
        if (SUCCEEDED(meta->GetMarkerStream(&s)) && s)
            s->Release();
        meta->Release();
    }
    tZVLIST *a = nullptr, *b = nullptr;
    ZvList_CreateExZ(&a, sizeof(void *), 4, 4, ZVLIST_HEAPITEMS);
    ZvList_CreateExZ(&b, sizeof(void *), 4, 4, ZVLIST_HEAPITEMS);
    EXPECT_CODE(w64 ? ZvFMMeta64_fillCuesFromFileEx(h, 44100, a, b) : ZvFMMeta_fillCuesFromFileEx(h, 44100, a, b));
    EXPECT_CODE(w64 ? ZvFMMeta64_fillSummaryFromFileEx(h, a, nullptr) : ZvFMMeta_fillSummaryFromFileEx(h, a, nullptr));
    EXPECT_CODE(w64 ? ZvFMMeta64_fillPlaylistFromFile(h, b) : ZvFMMeta_fillPlaylistFromFile(h, b));
    EXPECT_CODE(w64 ? ZvFMMeta64_fillKeyframeLocFromFile(h, b) : ZvFMMeta_fillKeyframeLocFromFile(h, b));
    ZvList_Destroy(a);
    ZvList_Destroy(b);
    void *data = nullptr;
    DWORD size = 0;
    if (SUCCEEDED(ZvFMMeta_fillCDInfoFromFile(h, &data, &size, w64)) && data) {
        GlobalUnlock(GlobalHandle(data));
        GlobalFree(GlobalHandle(data));
    }
    if (variant % 8 == 0) {
        EXPECT_CODE(ZvFMMeta_DeleteKindsFromFile(h, 0xFFFFFFFF, w64));
        EXPECT_CODE(ZvFMMeta_WriteMetaToFile(h, w64, 44100, clean, 0xFFFFFDFF));
        EXPECT_CODE(w64 ? ProjectLinkRiff64_WriteInfo(h, cleanLink) : ProjectLinkRiff_WriteInfo(h, cleanLink));
    }
}

// The AIFF metadata reader and, now and then, the writer or a deletion on
// the damaged file.
void AiffMetaReaders(HANDLE h, IZvReadMeta *clean, int variant)
{
    IZvReadMeta *meta = nullptr;
    EXPECT_CODE(ZvFMMeta_CreateSourceFromAiff(h, &meta));
    if (meta) {
        if (variant % 4 == 1)
            EXPECT_CODE(ZvFMMeta_WriteMetaToAiff(h, meta, 0xFFFFFFFF));
        meta->Release();
    }
    if (variant % 4 == 3)
        EXPECT_CODE(ZvFMMeta_WriteMetaToAiff(h, clean, 0xFFFFFFFF));
    if (variant % 4 == 2)
        EXPECT_CODE(ZvFMMeta_DeleteKindsFromFile(h, variant % 8 == 2 ? ZVMETA_MARKERS : ZVMETA_SAMPLER_AIFF, FALSE));
}

} // namespace

TEST(MediaRobustness, MutatedFilesGiveCodesAndLeakNothing)
{
    TestFile t(Bytes{}, L"fuzz.wav");
    const Bytes riff = RiffBase(), w64 = W64Base(), aiff = AiffBase();
    const std::vector<size_t> riffSizes = SizeWords(riff, 12, 8, 4, 2, false);
    const std::vector<size_t> w64Sizes = SizeWords(w64, 40, 24, 16, 8, false);
    const std::vector<size_t> aiffSizes = SizeWords(aiff, 12, 8, 4, 2, true);
    const Bytes ardeo = ArdeoBase();
    const std::vector<size_t> ardeoSizes = SizeWords(ardeo, 12, 8, 4, 2, false);
    const Bytes metaRiff = WithLinkAndPictures(MetaRichWave(Filled(40))), metaW64 = MetaW64Base(metaRiff);
    const std::vector<size_t> metaRiffSizes = WithCounts(SizeWords(metaRiff, 12, 8, 4, 2, false), 4);
    const std::vector<size_t> metaW64Sizes = WithCounts(SizeWords(metaW64, 40, 24, 16, 8, false), 8);
    IZvReadMeta *clean = nullptr;
    t.rewrite(metaRiff);
    ASSERT_EQ(S_OK, ZvFMMeta_CreateSourceFromFile(t.h(), FALSE, &clean));
    CZvLinkProjectInfo cleanLink;
    BOOL linked = FALSE;
    ASSERT_EQ(S_OK, ProjectLinkRiff_LoadInfo(t.h(), &cleanLink, &linked));
    ASSERT_TRUE(linked);
    Rng rng{20261121};
    wchar_t text[64];
    BYTE buf[64];

    // The first 200 variants warm up what the run-time makes lazily; the
    // blocks and handles are counted over the 6,000 after them.
    long long heapBefore = 0;
    DWORD handlesBefore = 0;
    int variant = 0;
    for (; variant < 6200; variant++) {
        if (variant == 200) {
            heapBefore = HeapBusyBlocks();
            handlesBefore = ZvProcessHandleCount();
        }
        int family = variant % 5; // RIFF twice as often: it has the most functions
        if (family == 4) {
            // Metadata: ten files a turn, RIFF and Wave64 by turns, so that
            // each reader sees over 6,000 of them (AIFF over 3,700, ARDEO
            // clips 1,240).
            for (int k = 0; k < 10; k++) {
                bool w = k & 1;
                t.rewrite(Mutate(w ? metaW64 : metaRiff, rng, w ? metaW64Sizes : metaRiffSizes));
                MetaReaders(t.h(), w, clean, &cleanLink, variant + k);
            }
            // and AIFF twice a turn, beside the turns of its own family
            for (int k = 0; k < 2; k++) {
                t.rewrite(Mutate(aiff, rng, aiffSizes));
                AiffMetaReaders(t.h(), clean, variant / 5 * 2 + k);
            }
            // and an ARDEO clip, through the list reader and the source
            t.rewrite(Mutate(ardeo, rng, ardeoSizes));
            tZVLIST *tc = nullptr;
            ZvList_CreateExZ(&tc, sizeof(void *), 4, 4, ZVLIST_HEAPITEMS);
            EXPECT_CODE(ZvFMMeta_fillARDEOmetaFromFileEx(t.h(), tc, nullptr));
            ZvList_Destroy(tc);
            IZvReadMeta *avi = nullptr;
            EXPECT_CODE(ZvFMMeta_CreateSourceFromAvi(t.h(), &avi));
            if (avi)
                avi->Release();
            continue;
        }
        const Bytes &base = family == 2 ? w64 : family == 3 ? aiff : riff;
        const std::vector<size_t> &sizes = family == 2 ? w64Sizes : family == 3 ? aiffSizes : riffSizes;
        Bytes img = Mutate(base, rng, sizes);
        t.rewrite(img);
        HANDLE h = t.h();
        if (family < 2) {
            DWORD size = 0, remaining = 0, count = 0;
            EXPECT_CODE(riff_FindChunkHeaderInRIFF(h, ZVRIFF_DATA, &size, &remaining));
            riff_SeekDataStart(h);
            EXPECT_CODE(riff_FindChunkHeader(h, ZVRIFF_ID('n', 'o', 'n', 'e'), &size, nullptr));
            if (SUCCEEDED(riff_FindChunkHeaderInRIFF(h, ZVRIFF_FMT, &size, &remaining))) {
                tZVRIFFBLOCK block = {size, nullptr};
                EXPECT_CODE(riff_ReadDataAlloc(h, &block));
                FreeBlock(block);
            }
            if (SUCCEEDED(riff_FindListChunkFromStart(h, ZVRIFF_INFO, &size))) {
                DWORD bound = size;
                EXPECT_CODE(riff_GetNumListEntries(h, &count, &bound));
                EXPECT_CODE(riff_GetNumListEntries(h, &count, nullptr));
                bound = size;
                EXPECT_CODE(riff_SeekListEntry(h, 1, &bound));
                bound = size;
                if (SUCCEEDED(riff_FindChunkHeader(h, ZVRIFF_ID('I', 'C', 'M', 'T'), &size, &bound)) && size < 1000)
                    EXPECT_CODE(riff_ReadANSIString(h, text, 64, &size));
            }
            riff_SeekDataStart(h);
            EXPECT_CODE(riff_FindListChunk(h, ZVRIFF_ID('a', 'd', 't', 'l'), &size, nullptr));
            EXPECT_CODE(riff_GetFileSize(h, &size));

            _tMRIFF mr;
            mriff_Init(&mr, img.data(), (DWORD)img.size(), (DWORD)img.size());
            EXPECT_CODE(mriff_FindChunkHeaderInRIFF(&mr, ZVRIFF_DATA, &size, &remaining));
            EXPECT_CODE(mriff_GetInfoString(&mr, ZVRIFF_ID('I', 'N', 'A', 'M'), (char *)buf, sizeof buf, &size));
            WAVEFORMATEXTENSIBLE wfe;
            EXPECT_CODE(mriff_GetWfx(&wfe.Format, img.data(), (DWORD)img.size(), &size));

            ULONGLONG frames = 0, offset = 0;
            free(ZvGetFileWfx(t.path().c_str(), &frames, &offset));
            ZvFileIsWave(t.path().c_str(), TRUE);
            if (family == 0) {
                EXPECT_CODE(riff_DeleteChunk(h, ZVRIFF_INFO, &size, TRUE));
                EXPECT_CODE(riff_DeleteChunk(h, ZVRIFF_ID('o', 'd', 'd', ' '), &size, FALSE));
            } else {
                Bytes before = t.bytes();
                HRESULT hr = ZvFixTrashedWav(h, nullptr, 1 << 16);
                EXPECT_CODE(hr);
                // A repair keeps the length; a refused one every byte.
                if (FAILED(hr)) {
                    EXPECT_EQ(before, t.bytes()) << "variant " << variant;
                } else {
                    EXPECT_EQ(before.size(), t.bytes().size()) << "variant " << variant;
                }
            }
        } else if (family == 2) {
            ULONGLONG size = 0;
            LONGLONG remaining = 0;
            DWORD count = 0;
            EXPECT_CODE(riff64_FindChunkHeaderInRIFF(h, ZVW64_DATA, &size, &remaining));
            riff64_SeekDataStart(h);
            EXPECT_CODE(riff64_FindChunkHeader(h, ZVW64_RIFF, &size, nullptr));
            if (SUCCEEDED(riff64_FindChunkHeaderInRIFF(h, ZVW64_FMT, &size, &remaining))) {
                tZVRIFFBLOCK block = {(DWORD)size, nullptr};
                EXPECT_CODE(riff64_ReadDataAlloc(h, &block));
                FreeBlock(block);
            }
            if (SUCCEEDED(riff64_FindListChunkFromStart(h, ZVW64_WAVE, &size))) {
                LONGLONG bound = (LONGLONG)size;
                EXPECT_CODE(riff64_GetNumListEntries(h, &count, &bound));
                EXPECT_CODE(riff64_GetNumListEntries(h, &count, nullptr));
            }
            ULONGLONG frames = 0, offset = 0;
            free(ZvGetFileWfx(t.path().c_str(), &frames, &offset));
            if (variant % 8 == 2) {
                EXPECT_CODE(riff64_DeleteChunk(h, ZVW64_JUNK, &size));
            } else {
                Bytes before = t.bytes();
                HRESULT hr = ZvFixTrashedW64(h, nullptr, 1 << 16);
                EXPECT_CODE(hr);
                if (FAILED(hr)) {
                    EXPECT_EQ(before, t.bytes()) << "variant " << variant;
                }
            }
        } else {
            DWORD size = 0, frames = 0, offset = 0;
            BOOL aifc, little;
            iff_IsAIFFFileEx(h, &size, &aifc, &little);
            WAVEFORMATEX wfx;
            EXPECT_CODE(iff_GetAIFFWfx(h, &wfx, &frames, &offset));
            tZVIFFMARKER marker;
            EXPECT_CODE(iff_FindMarker(h, &marker, 2));
            EXPECT_CODE(iff_FindChunkFromStart(h, ZVIFF_SSND, &size));
            t.seek(12);
            EXPECT_CODE(iff_SeekChunkHeader(h, ZVIFF_ID('n', 'o', 'n', 'e'), &size));
            ULONGLONG frames64 = 0, offset64 = 0;
            free(ZvGetFileWfx(t.path().c_str(), &frames64, &offset64));
            EXPECT_CODE(iff_DeleteChunk(h, ZVIFF_MARK, &size));
            AiffMetaReaders(h, clean, variant / 5);
        }
    }
    EXPECT_GT(heapBefore, 0);
    EXPECT_LE(HeapBusyBlocks(), heapBefore);
    // The count does see a block that is left behind.
    void *probe = GlobalLock(GlobalAlloc(GHND, 64));
    EXPECT_GT(HeapBusyBlocks(), heapBefore);
    GlobalUnlock(GlobalHandle(probe));
    GlobalFree(GlobalHandle(probe));
    DWORD handlesAfter = ZvProcessHandleCount();
    ASSERT_GT(handlesBefore, 0u) << "no handle count: the leak check would be empty";
    EXPECT_LE(handlesAfter, handlesBefore);
    clean->Release();
    cleanLink.FreeMemory();
}
