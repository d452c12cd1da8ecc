// Damaged template files, streams and list streams: every load ends with a
// code of the system and a null record, and nothing is left allocated.
#include "zvhandlecount.h"
#include "templatetest.h"
#include <set>
#include <stdlib.h>

using namespace templatetest;

namespace {

using zvtest::Rng;

const std::set<HRESULT> kCodes = {S_OK, E_ZVTEMPLATE_BAD, E_ZVTEMPLATE_READ, E_UNEXPECTED, E_OUTOFMEMORY, E_FAIL};

// The fields whose damage matters: sizes, versions, block sizes, counts.
Bytes Mutate(const Bytes &base, Rng &rng, const std::vector<size_t> &words)
{
    Bytes b = base;
    switch (rng.below(4)) {
    case 0:
        for (unsigned i = 0, n = 1 + rng.below(4); i < n && !b.empty(); i++)
            b[rng.below((unsigned)b.size())] ^= (BYTE)(1u << rng.below(8));
        break;
    case 1:
        b.resize(rng.below((unsigned)b.size()));
        break;
    default: {
        static const DWORD values[] = {0, 1, 2, 3, 199, 200, 535, 536, 540, 0x1000000, 0x2000000, 0x3000000,
                                       0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0x2000001, 0xFFFFFFFC};
        size_t at = words[rng.below((unsigned)words.size())];
        DWORD v = rng.below(4) ? values[rng.below(sizeof values / sizeof values[0])] : rng.next();
        if (at + 4 <= b.size())
            memcpy(b.data() + at, &v, 4);
        break;
    }
    }
    return b;
}

// Reads what a loaded record offers, so that a bad one shows under the checks.
void Touch(const tagZVTEMPLATExV2 *t)
{
    ZvFio_GetTemplateDataCRC32(t, TRUE);
    GUID g;
    ZvFio_InitGUIDFromTemplateMD5DataHash(&g, t, TRUE);
    volatile size_t n = wcslen(ZvFio_GetTemplateName(t)) + wcslen(ZvFio_GetTemplateNotes(t));
    (void)n;
    tagZVTEMPLATExV2 *copy = nullptr;
    if (SUCCEEDED(ZvFio_MakeTemplate(&copy, ZVTEMPLATE_VERSION_V2, t, 3, 0, ZvFio_GetTemplateName(t),
                                     ZvFio_GetTemplateNotes(t))))
        ZvFio_ReleaseTemplate(copy);
}

} // namespace

TEST(TemplateFuzz, DamagedFilesStreamsAndLists)
{
    zvtest::TempDir dir;
    std::wstring path = dir.file(L"f.zvt2");
    FakeRenderer cls;

    tagZVTEMPLATExV2 *good = MakeVectorRecord(24, L"Fuzz", L"notes");
    Bytes v2 = RecordBytes(good);
    ZvFio_ReleaseTemplate(good);
    std::vector<size_t> v2Words = {0, 4, 56, 60, 256, 260, 528, 532};

    V1Spec spec;
    spec.name = L"v1";
    spec.wfx.Format.wFormatTag = WAVE_FORMAT_PCM;
    spec.wfx.Format.nChannels = 2;
    spec.wfx.Format.nSamplesPerSec = 44100;
    spec.wfx.Format.wBitsPerSample = 16;
    spec.encoded.assign(30, 0);
    spec.encoded[0] = 0x55; // an encoded tag with 12 extra bytes
    spec.encoded[16] = 12;
    spec.audioData = {1, 2, 3};
    spec.video = true;
    spec.format1.assign(40, 1);
    spec.format2.assign(40, 2);
    spec.videoData = {4, 5};
    Bytes v1 = WriteV1(spec);
    // size words of the old form: header, has-audio, encoded size, data sizes
    std::vector<size_t> v1Words = {0, 4, 1048, 1052 + 18 + 4, 1052 + 18 + 4 + 4 + 30 + 32};
    for (size_t at = 1052 + 18 + 4 + 4 + 30 + 32 + 4 + 3; at + 4 <= v1.size(); at += 4)
        v1Words.push_back(at);

    tZVLIST *list = nullptr;
    ASSERT_EQ(ZvFio_CreateTemplateList(&list, 4), S_OK);
    for (int i = 0; i < 3; i++) {
        tagZVTEMPLATExV2 *t = MakeVectorRecord(4 * i + 1, L"L", L"");
        ZvList_InsertList(list, list->count, &t, 1);
    }
    IStream *listStream = nullptr;
    ZvFio_MakeTemplateListIStream(list, &listStream);
    Bytes listBytes(65536);
    ULONG got = 0;
    listStream->Read(listBytes.data(), (ULONG)listBytes.size(), &got);
    listBytes.resize(got);
    listStream->Release();
    ZvFio_FreeTemplateList(list);
    std::vector<size_t> listWords = {0, 4, 8, 12, 12 + 541, 12 + 541 + 545};

    long long heapBefore = 0;
    DWORD handlesBefore = 0;
    Rng rng = {20261125};
    int loaded = 0;
    const int kRounds = 2400;
    for (int round = 0; round < kRounds + 20; round++) {
        if (round == 20) { // after the first lazy allocations of COM and the CRT
            heapBefore = zvtest::HeapBusyBlocks();
            handlesBefore = ZvProcessHandleCount();
        }
        int variant = round % 3;
        HRESULT hr;
        tagZVTEMPLATExV2 *t = (tagZVTEMPLATExV2 *)0x1;
        if (variant == 0) {
            Bytes b = Mutate(v2, rng, v2Words);
            ASSERT_TRUE(zvtest::WriteFileBytes(path, b.data(), b.size()));
            hr = ZvFio_LoadRawUserTemplate(&cls, path.c_str(), &t);
        } else if (variant == 1) {
            Bytes b = Mutate(rng.below(2) ? v1 : v2, rng, rng.below(2) ? v1Words : v2Words);
            if (rng.below(2)) {
                ASSERT_TRUE(zvtest::WriteFileBytes(path, b.data(), b.size()));
                hr = ZvFio_LoadRawUserTemplate(&cls, path.c_str(), &t);
            } else {
                hr = LoadStream(b, &t, ZVTEMPLATE_VERSION_V2, &cls);
            }
        } else {
            tZVLIST *back = nullptr;
            ZvFio_CreateTemplateList(&back, 4);
            IStream *s = StreamOf(Mutate(listBytes, rng, listWords));
            hr = ZvFio_AddTemplatesToListFromIStream(back, s);
            s->Release();
            for (int i = 0; i < back->count; i++)
                Touch((tagZVTEMPLATExV2 *)ZvList_GetItem(back, i));
            ZvFio_FreeTemplateList(back);
            t = nullptr;
        }
        EXPECT_TRUE(kCodes.count(hr)) << std::hex << hr << " in round " << std::dec << round;
        if (SUCCEEDED(hr) && t) {
            loaded++;
            Touch(t);
        } else {
            EXPECT_EQ(t, nullptr) << "round " << round;
        }
        if (t != (tagZVTEMPLATExV2 *)0x1)
            ZvFio_ReleaseTemplate(t);
    }
    EXPECT_GT(loaded, 100); // the mutations leave many records whole
    EXPECT_LE(zvtest::HeapBusyBlocks(), heapBefore);
    DWORD handlesAfter = ZvProcessHandleCount();
    ASSERT_GT(handlesBefore, 0u) << "no handle count: the leak check would be empty";
    EXPECT_LE(handlesAfter, handlesBefore);
}
