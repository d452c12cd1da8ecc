// Identification: rejection of the application's own containers, the order
// of the stages, each reader asked at most once, and what is remembered of
// readers that say they aren't ready.
#include <gtest/gtest.h>
#include "mockreader.h"
#include "memlogger.h"
#include "filemng/fioidentify.h"
#include "media/quickid.h"
#include <set>

using namespace idtest;

namespace {

using Logger = zvtest::MemoryLogger;

// Identifies a file by path through the manager.
HRESULT Identify(CZvFileIOManager *mgr, const std::wstring &path, LONG *index, DWORD access = GENERIC_READ)
{
    HANDLE h = CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                           nullptr);
    EXPECT_NE(INVALID_HANDLE_VALUE, h);
    HRESULT hr = mgr->IdentifyFileType((UINT64)(LONG_PTR)h, path.c_str(), index, 0);
    CloseHandle(h);
    return hr;
}

std::vector<unsigned char> Bytes(const char *text, size_t n) { return std::vector<unsigned char>(text, text + n); }

} // namespace

TEST(IdentifyTables, SignatureTableRowsAndClasses)
{
    const ZvFioSignatureRow *rows = ZvFioSignatureTable();
    std::set<DWORD> closed; // ids whose run of rows has ended
    for (int i = 0; i < ZVFIO_SIGNATURE_ROWS; ++i) {
        ASSERT_NE(nullptr, ZvFioSignatureClass(rows[i].classData1)) << i;
        EXPECT_EQ(0u, closed.count(rows[i].typeId)) << "rows of one id stand together: " << i;
        if (i + 1 < ZVFIO_SIGNATURE_ROWS && rows[i + 1].typeId != rows[i].typeId)
            closed.insert(rows[i].typeId);
    }
    EXPECT_EQ(nullptr, ZvFioSignatureClass(0x12345678));
}

TEST(IdentifyTables, OwnContainersByFirstBytes)
{
    auto rejected = [](const char *head, size_t n) {
        std::vector<unsigned char> b(head, head + n);
        b.resize(64, 0);
        return ZvFioIdentifyIsRejectedContainer(b.data(), (DWORD)n) != FALSE;
    };
    EXPECT_TRUE(rejected("RIFF\0\0\0\0WAVE", 12)) << "size word 0, any form";
    EXPECT_TRUE(rejected("RIFF\0\0\0\0ABCD", 12));
    for (const char *form : {"ZVXX", "VORD", "ZVSS", "ZVPL", "ZVPJ"}) {
        std::string h = std::string("RIFF\x10\0\0\0", 8) + form;
        EXPECT_TRUE(rejected(h.data(), 12)) << form;
    }
    EXPECT_FALSE(rejected("RIFF\x10\0\0\0WAVE", 12));
    EXPECT_TRUE(rejected("ZVPK00000000", 12));
    EXPECT_TRUE(rejected("MThd\0\0\0\x06\0\0\0\x01", 12));
    EXPECT_FALSE(rejected("MThd\0\0\0\x06\0\0\0", 11)) << "fewer than 12 bytes are not tested";
    EXPECT_FALSE(rejected("RIFF\0\0\0\0WAV", 11));

    // Wave64 with one of the own form ids: only with more than 40 bytes
    static const GUID riff = {0x66666972, 0x912E, 0x11CF, {0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00}};
    static const GUID own = {0x4D60BD88, 0x7758, 0x11D4, {0x88, 0x3A, 0x00, 0xB0, 0xD0, 0x22, 0x3D, 0x2B}};
    unsigned char w64[64] = {};
    memcpy(w64, &riff, 16);
    w64[16] = 64;
    memcpy(w64 + 24, &own, 16);
    EXPECT_TRUE(ZvFioIdentifyIsRejectedContainer(w64, 41));
    EXPECT_FALSE(ZvFioIdentifyIsRejectedContainer(w64, 40));
    w64[30] ^= 1;
    EXPECT_FALSE(ZvFioIdentifyIsRejectedContainer(w64, 64));
}

TEST(IdentifyStages, OwnContainerAsksNoReaderAndFailsOpen)
{
    MockReader a(0xA0000001, L"A");
    a.byteAnswer = S_OK;
    MockSetup s({{&a, L"*.wav", 0}});
    std::wstring f = WriteTemp(s.dataDir, L"zero.wav", Bytes("RIFF\0\0\0\0WAVEfmt ", 16));
    LONG index = 7;
    EXPECT_EQ((HRESULT)0x8004E033, Identify(s.mgr, f, &index));
    EXPECT_EQ(-1, index);
    EXPECT_EQ(0, a.asked());
    IZvReadFile *file = nullptr;
    EXPECT_EQ((HRESULT)0x8004E033, s.mgr->OpenReader(f.c_str(), &file, 0));
    EXPECT_EQ(nullptr, file);
    EXPECT_EQ(0, a.opens);
}

TEST(IdentifyStages, EmptyAndElevenByteFilesRunEveryStage)
{
    MockReader ext(0xA0000001, L"Ext"), other(0xA0000002, L"Other");
    MockSetup s({{&ext, L"*.xyz", 0}, {&other, L"*.abc", 0}});
    LONG index = 7;
    EXPECT_EQ(ZVERR_UNSUPPORTED_FORMAT, Identify(s.mgr, WriteTemp(s.dataDir, L"empty.xyz", {}), &index));
    EXPECT_EQ(-1, index);
    EXPECT_EQ(1, ext.byteCalls);
    EXPECT_EQ(1, other.byteCalls);
    EXPECT_EQ(0u, other.lastChunkSize);

    // eleven bytes that would be rejected with a twelfth
    EXPECT_EQ(ZVERR_UNSUPPORTED_FORMAT, Identify(s.mgr, WriteTemp(s.dataDir, L"eleven.xyz", Bytes("RIFF\0\0\0\0ZVX", 11)), &index));
    EXPECT_EQ(2, ext.byteCalls);
    EXPECT_EQ(2, other.byteCalls);
    EXPECT_EQ(11u, other.lastChunkSize);
}

TEST(IdentifyStages, StageThatFoundTheReaderIsLogged)
{
    MockReader ext(0xA0000001, L"Ext");
    ext.byteAnswer = S_OK;
    MockSetup s({{&ext, L"*.xyz", 0}});
    Logger log;
    s.mgr->SetLogger(&log);
    s.mgr->SetMetric(79, 1);
    LONG index = -5;
    EXPECT_EQ(S_OK, Identify(s.mgr, WriteTemp(s.dataDir, L"some.xyz", Bytes("hello", 5)), &index));
    EXPECT_EQ(s.indexOf(ext), index);
    EXPECT_TRUE(log.has(L"Plugin found from file extension for")) << log.lines.size();
    EXPECT_EQ(1, ext.byteCalls);

    // without an extension the same reader is found by walking the list
    log.lines.clear();
    EXPECT_EQ(S_OK, Identify(s.mgr, WriteTemp(s.dataDir, L"noextension", Bytes("hello", 5)), &index));
    EXPECT_TRUE(log.has(L"Plugin found from going through the list"));
    EXPECT_EQ(2, ext.byteCalls);

    // a failed run says so at level 1, and at level 0 nothing is written
    ext.byteAnswer = ZVERR_UNSUPPORTED_FORMAT;
    log.lines.clear();
    EXPECT_EQ(ZVERR_UNSUPPORTED_FORMAT, Identify(s.mgr, WriteTemp(s.dataDir, L"other.xyz", Bytes("x", 1)), &index));
    EXPECT_TRUE(log.has(L"No Plugin Found through IdentifyFileType Session"));
    s.mgr->SetMetric(79, 0);
    log.lines.clear();
    Identify(s.mgr, WriteTemp(s.dataDir, L"other2.xyz", Bytes("x", 1)), &index);
    EXPECT_TRUE(log.lines.empty());
    s.mgr->SetLogger(nullptr);
}

TEST(IdentifyStages, SignatureCandidateBeforeExtensionAndAskedOnce)
{
    MockReader wave(0x0A30C422, L"Wave"), byExt(0xA0000001, L"ByExt");
    wave.id = *ZvFioSignatureClass(0x0A30C422);
    wave.byteAnswer = S_OK;
    byExt.byteAnswer = S_OK;
    MockSetup s({{&byExt, L"*.wav", 0}, {&wave, L"*.wav", 0}});
    Logger log;
    s.mgr->SetLogger(&log);
    s.mgr->SetMetric(79, 2);
    std::wstring f = WriteTemp(s.dataDir, L"tone.wav", WaveBytes(10));
    LONG index = -1;
    EXPECT_EQ(S_OK, Identify(s.mgr, f, &index));
    EXPECT_EQ(s.indexOf(wave), index);
    EXPECT_EQ(0, byExt.asked());
    EXPECT_TRUE(log.has(L"Plugin found from file signature for"));
    EXPECT_TRUE(log.has(L"qv4compound is bypassed:'Wave', 'Wave' Plugin examined")) << "level 2 examines";

    // the candidate says no, and it is also the last used reader: it is
    // asked once, the extension class once
    wave.byteAnswer = ZVERR_UNSUPPORTED_FORMAT;
    byExt.byteAnswer = ZVERR_UNSUPPORTED_FORMAT;
    s.mgr->SetLastUsedReader(&wave);
    wave.byteCalls = 0;
    EXPECT_EQ(ZVERR_UNSUPPORTED_FORMAT, Identify(s.mgr, f, &index));
    EXPECT_EQ(-1, index);
    EXPECT_EQ(1, wave.asked());
    EXPECT_EQ(1, byExt.asked());
    s.mgr->SetLogger(nullptr);
}

TEST(IdentifyStages, LastUsedReaderTriedBeforeTheList)
{
    MockReader first(0xA0000009, L"First"), last(0xA0000001, L"Last");
    first.byteAnswer = S_OK;
    last.byteAnswer = S_OK;
    MockSetup s({{&first, nullptr, 0}, {&last, nullptr, 0}});
    ASSERT_LT(s.indexOf(first), s.indexOf(last)) << "list order by class id";
    s.mgr->SetLastUsedReader(&last);
    LONG index = -1;
    EXPECT_EQ(S_OK, Identify(s.mgr, WriteTemp(s.dataDir, L"f.bin", Bytes("data", 4)), &index));
    EXPECT_EQ(s.indexOf(last), index);
    EXPECT_EQ(0, first.asked());
}

TEST(IdentifyStages, FirstSignatureClassNotReadyIsRemembered)
{
    // a wave file with a "scot" chunk has two candidate classes
    MockReader scot(0xD284C498, L"Scot"), wave(0x0A30C422, L"Wave"), other(0xA0000001, L"Other");
    scot.id = *ZvFioSignatureClass(0xD284C498);
    wave.id = *ZvFioSignatureClass(0x0A30C422);
    scot.byteAnswer = ZVERR_PLUGIN_NOT_INITIALIZED;
    wave.byteAnswer = ZVERR_PLUGIN_NOT_INITIALIZED;
    other.byteAnswer = S_OK;
    MockSetup s({{&scot, nullptr, 0}, {&wave, nullptr, 0}, {&other, nullptr, 0}});
    std::wstring f = WriteTemp(s.dataDir, L"scot.wav", WaveBytes(10, true));
    ZVFILEIDINFO info = {};
    info.path = f.c_str();
    BOOL identified = FALSE;
    ASSERT_EQ(S_OK, ZvIsQuicklyIdentifiableMediaFileFormat(&info, &identified));
    ASSERT_EQ(7u, info.identifiedType);

    LONG index = -1;
    EXPECT_EQ(ZVERR_PLUGIN_NOT_INITIALIZED, Identify(s.mgr, f, &index));
    EXPECT_EQ(s.indexOf(scot), index);
    EXPECT_EQ(1, wave.asked());
    EXPECT_EQ(0, other.asked()) << "a remembered signature class ends the search";

    // the second class saying so isn't remembered: the list goes on
    scot.byteAnswer = ZVERR_UNSUPPORTED_FORMAT;
    EXPECT_EQ(S_OK, Identify(s.mgr, f, &index));
    EXPECT_EQ(s.indexOf(other), index);
    other.byteAnswer = ZVERR_UNSUPPORTED_FORMAT;
    EXPECT_EQ(ZVERR_UNSUPPORTED_FORMAT, Identify(s.mgr, f, &index));
    EXPECT_EQ(-1, index);
}

TEST(IdentifyStages, NotReadyThenFoundGivesItsSuccessCode)
{
    MockReader ext1(0xA0000003, L"Ext1"), ext2(0xA0000002, L"Ext2"), later(0xA0000001, L"Later");
    ext1.byteAnswer = ZVERR_PLUGIN_NOT_INITIALIZED;
    ext2.byteAnswer = ZVERR_PLUGIN_NOT_INITIALIZED;
    later.byteAnswer = S_OK;
    MockSetup s({{&ext1, L"*.xyz", 0}, {&ext2, L"*.xyz", 0}, {&later, nullptr, 0}});
    std::wstring f = WriteTemp(s.dataDir, L"a.xyz", Bytes("zz", 2));
    LONG index = -1;
    EXPECT_EQ((HRESULT)0x0004E016, Identify(s.mgr, f, &index));
    EXPECT_EQ(s.indexOf(later), index);
    // without a taker, the later extension class that said so is the answer
    later.byteAnswer = ZVERR_UNSUPPORTED_FORMAT;
    EXPECT_EQ(ZVERR_PLUGIN_NOT_INITIALIZED, Identify(s.mgr, f, &index));
    EXPECT_EQ(s.indexOf(ext2), index);
    EXPECT_EQ(2, ext1.byteCalls);
    EXPECT_EQ(2, ext2.byteCalls);
}

TEST(IdentifyStages, UnreadableHandleGivesTheWin32Error)
{
    MockReader a(0xA0000001, L"A");
    MockSetup s({{&a, nullptr, 0}});
    std::wstring f = WriteTemp(s.dataDir, L"w.bin", Bytes("abcd", 4));
    LONG index = 3;
    HRESULT hr = Identify(s.mgr, f, &index, GENERIC_WRITE);
    EXPECT_TRUE(FAILED(hr));
    EXPECT_NE(ZVERR_UNSUPPORTED_FORMAT, hr);
    EXPECT_EQ(-1, index);
    EXPECT_EQ(0, a.asked());
    EXPECT_EQ(E_INVALIDARG, s.mgr->IdentifyFileType((UINT64)(LONG_PTR)INVALID_HANDLE_VALUE, f.c_str(), &index, 0));
}

TEST(IdentifySlow, PathTestsInOrderWithTheWeakListReader)
{
    MockReader ext(0xA0000002, L"Ext"), weak(0xBFD5DB7F, L"Weak"), ready(0xA0000001, L"NotReady");
    weak.id = {0xBFD5DB7F, 0xE73B, 0x41F9, {0xAF, 0x05, 0x61, 0x7C, 0x1D, 0x2E, 0x4A, 0x09}};
    weak.slowAnswer = S_OK;
    MockSetup s({{&ext, L"*.xyz", 0}, {&weak, nullptr, 0}, {&ready, nullptr, 0}});
    std::wstring f = WriteTemp(s.dataDir, L"p.xyz", Bytes("q", 1));
    LONG index = -1;
    // the weak reader counts while nobody said "not ready"
    EXPECT_EQ(S_OK, s.mgr->IdentifyFileTypeSlow(f.c_str(), &index));
    EXPECT_EQ(s.indexOf(weak), index);
    EXPECT_EQ(0, ext.byteCalls + weak.byteCalls);
    EXPECT_EQ(1, ext.slowCalls);
    // once a reader said it, the weak yes doesn't count
    ext.slowAnswer = ZVERR_PLUGIN_NOT_INITIALIZED;
    EXPECT_EQ(ZVERR_PLUGIN_NOT_INITIALIZED, s.mgr->IdentifyFileTypeSlow(f.c_str(), &index));
    EXPECT_EQ(s.indexOf(ext), index);
    EXPECT_EQ(E_INVALIDARG, s.mgr->IdentifyFileTypeSlow(nullptr, &index));
}

TEST(IdentifyStages, FalseIsANoInEveryStage)
{
    // S_FALSE succeeds as an HRESULT, but only 0 means yes
    MockReader wave(0x0A30C422, L"Wave"), byExt(0xA0000003, L"ByExt"), last(0xA0000002, L"Last"),
        listed(0xA0000001, L"Listed");
    wave.id = *ZvFioSignatureClass(0x0A30C422);
    for (MockReader *m : {&wave, &byExt, &last, &listed})
        m->byteAnswer = m->slowAnswer = S_FALSE;
    MockSetup s({{&wave, nullptr, 0}, {&byExt, L"*.wav", 0}, {&last, nullptr, 0}, {&listed, nullptr, 0}});
    s.mgr->SetLastUsedReader(&last);
    std::wstring f = WriteTemp(s.dataDir, L"tone.wav", WaveBytes(10));
    LONG index = 7;
    EXPECT_EQ(ZVERR_UNSUPPORTED_FORMAT, Identify(s.mgr, f, &index));
    EXPECT_EQ(-1, index);
    for (MockReader *m : {&wave, &byExt, &last, &listed})
        EXPECT_EQ(1, m->byteCalls) << "each stage asks its class once";
    EXPECT_EQ(ZVERR_UNSUPPORTED_FORMAT, s.mgr->IdentifyFileTypeSlow(f.c_str(), &index));
    EXPECT_EQ(-1, index);
    EXPECT_EQ(1, listed.slowCalls);

    listed.byteAnswer = listed.slowAnswer = S_OK;
    EXPECT_EQ(S_OK, Identify(s.mgr, f, &index));
    EXPECT_EQ(s.indexOf(listed), index);
    EXPECT_EQ(S_OK, s.mgr->IdentifyFileTypeSlow(f.c_str(), &index));
    EXPECT_EQ(s.indexOf(listed), index);
}
