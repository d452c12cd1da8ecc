// Opening readers: the name and its moniker tail, the length limits, the
// slow pass and metric 27, merit, restricted opens, the explicit class of
// OpenReaderEx; and the moniker helpers.
#include <gtest/gtest.h>
#include "mockreader.h"
#include "filemng/fioidentify.h"
#include "zverror.h"

using namespace idtest;

namespace {

std::vector<unsigned char> Some() { return std::vector<unsigned char>(100, 'z'); }

struct Opened {
    IZvReadFile *file = nullptr;
    ~Opened()
    {
        if (file)
            file->Release();
    }
    std::wstring name() const
    {
        BSTR n = nullptr;
        std::wstring s;
        if (file && SUCCEEDED(file->GetFileName(&n)) && n)
            s = n;
        SysFreeString(n);
        return s;
    }
};

} // namespace

TEST(OpenReaderName, MonikerTailGoesToTheReaderOnly)
{
    MockReader a(0xA0000001, L"A");
    a.byteAnswer = S_OK;
    MockSetup s({{&a, L"*.xyz", 0}});
    std::wstring f = WriteTemp(s.dataDir, L"clip.xyz", Some());
    std::wstring name = f + L"?stream=2&x?y";
    Opened o;
    EXPECT_EQ(S_OK, s.mgr->OpenReader(name.c_str(), &o.file, 0));
    ASSERT_NE(nullptr, o.file);
    EXPECT_EQ(name, o.name());
    EXPECT_EQ(name, a.lastOpenName);
    EXPECT_EQ(TRUE, a.lastNormalOpen);

    // a missing file, a null name
    IZvReadFile *none = nullptr;
    std::wstring missing = s.dataDir + L"\\missing.xyz?tail";
    HRESULT hr = s.mgr->OpenReader(missing.c_str(), &none, 0);
    EXPECT_TRUE(FAILED(hr));
    EXPECT_NE(nullptr, ZvErrorHandler_GetHresultString(hr));
    EXPECT_EQ(nullptr, none);
    EXPECT_EQ(E_INVALIDARG, s.mgr->OpenReader(nullptr, &none, 0));
    EXPECT_EQ(E_INVALIDARG, s.mgr->OpenReaderEx(nullptr, &none, GUID_NULL, 0));
}

// A file whose name has exactly `length` characters, in folders of 150
// characters below the test's folder (not in the long form: its "?" would
// start a moniker tail).
static std::wstring LongFile(const std::wstring &base, size_t length)
{
    std::wstring path = base;
    int folder = 0;
    while (length - path.size() - 1 > 250) {
        path += L"\\" + std::wstring(149, (wchar_t)(L'a' + folder++));
        CreateDirectoryW(path.c_str(), nullptr);
    }
    path += L"\\" + std::wstring(length - path.size() - 1, L'f');
    EXPECT_EQ(length, path.size());
    HANDLE h = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    EXPECT_NE(INVALID_HANDLE_VALUE, h);
    DWORD done = 0;
    WriteFile(h, "zzzz", 4, &done, nullptr);
    CloseHandle(h);
    return path;
}

static void RemoveLongFile(std::wstring path)
{
    DeleteFileW(path.c_str());
    for (size_t cut; (cut = path.rfind(L'\\')) != std::wstring::npos && path.size() - cut == 150;) {
        path.resize(cut);
        RemoveDirectoryW(path.c_str());
    }
}

TEST(OpenReaderName, LengthLimitsOfBothOpens)
{
    MockReader a(0xA0000001, L"A");
    a.byteAnswer = S_OK;
    MockSetup s({{&a, nullptr, 0}});
    IZvReadFile *none = nullptr;
    {
        std::wstring f = LongFile(s.dataDir, 519);
        Opened o;
        EXPECT_EQ(S_OK, s.mgr->OpenReader(f.c_str(), &o.file, 0));
        EXPECT_EQ(ZVERR_BUFFER_TOO_SMALL, s.mgr->OpenReader((f + L"g").c_str(), &none, 0));
        // the tail after "?" doesn't count
        Opened t;
        EXPECT_EQ(S_OK, s.mgr->OpenReader((f + L"?" + std::wstring(900, L't')).c_str(), &t.file, 0));
        RemoveLongFile(f);
    }
    // with a class of its own the longer limit holds; the fallback to
    // OpenReader has the shorter one
    std::wstring f = LongFile(s.dataDir, 711);
    {
        Opened o;
        EXPECT_EQ(S_OK, s.mgr->OpenReaderEx(f.c_str(), &o.file, a.id, 0));
        EXPECT_NE(nullptr, o.file);
    }
    EXPECT_EQ(ZVERR_BUFFER_TOO_SMALL, s.mgr->OpenReaderEx((f + L"g").c_str(), &none, a.id, 0));
    EXPECT_EQ(ZVERR_BUFFER_TOO_SMALL, s.mgr->OpenReaderEx(f.c_str(), &none, ClassId(0x77777777), 0)) << "falls back";
    EXPECT_EQ(nullptr, none);
    RemoveLongFile(f);
}

TEST(OpenReaderIdentify, SlowPassUnlessMetric27)
{
    MockReader a(0xA0000001, L"A");
    a.slowAnswer = S_OK; // only its test by path says yes
    MockSetup s({{&a, L"*.xyz", 0}});
    std::wstring f = WriteTemp(s.dataDir, L"s.xyz", Some());
    {
        Opened o;
        EXPECT_EQ(S_OK, s.mgr->OpenReader(f.c_str(), &o.file, 0));
        EXPECT_NE(nullptr, o.file);
        EXPECT_EQ(1, a.slowCalls);
    }
    s.mgr->SetMetric(27, 1);
    IZvReadFile *none = nullptr;
    EXPECT_EQ(ZVERR_UNSUPPORTED_FORMAT, s.mgr->OpenReader(f.c_str(), &none, 0));
    EXPECT_EQ(1, a.slowCalls) << "no slow pass with metric 27";
    EXPECT_EQ(nullptr, none);
}

TEST(OpenReaderIdentify, NotReadyEndsOpenAndAfterwardsSucceedsWithItsCode)
{
    MockReader ext(0xA0000002, L"Ext"), later(0xA0000001, L"Later");
    ext.byteAnswer = ZVERR_PLUGIN_NOT_INITIALIZED;
    MockSetup s({{&ext, L"*.xyz", 0}, {&later, nullptr, 0}});
    std::wstring f = WriteTemp(s.dataDir, L"n.xyz", Some());
    IZvReadFile *none = nullptr;
    EXPECT_EQ(ZVERR_PLUGIN_NOT_INITIALIZED, s.mgr->OpenReader(f.c_str(), &none, 0));
    EXPECT_EQ(0, ext.slowCalls) << "no slow pass after a reader that isn't ready";
    EXPECT_EQ(0, ext.opens + later.opens);
    later.byteAnswer = S_OK;
    Opened o;
    EXPECT_EQ((HRESULT)0x0004E016, s.mgr->OpenReader(f.c_str(), &o.file, 0));
    EXPECT_NE(nullptr, o.file);
    EXPECT_EQ(1, later.opens);
}

TEST(OpenReaderIdentify, RestrictedFlagsAndReaderFailure)
{
    MockReader a(0xA0000001, L"A");
    a.byteAnswer = S_OK;
    MockSetup s({{&a, L"*.xyz", 0}});
    std::wstring f = WriteTemp(s.dataDir, L"r.xyz", Some());
    for (DWORD flags : {0x1000u, 0x2000u, 0x3000u}) {
        Opened o;
        EXPECT_EQ(S_OK, s.mgr->OpenReader(f.c_str(), &o.file, flags));
        EXPECT_EQ(FALSE, a.lastNormalOpen) << flags;
    }
    a.openAnswer = (HRESULT)0x8004E00B;
    IZvReadFile *none = nullptr;
    EXPECT_EQ((HRESULT)0x8004E00B, s.mgr->OpenReader(f.c_str(), &none, 0));
    EXPECT_EQ(nullptr, none);
}

TEST(OpenReaderMerit, PositiveMeritThatSaysYesWins)
{
    MockReader plain(0xA0000002, L"Plain"), merit(0xA0000001, L"Merit"), zero(0xA0000003, L"Zero");
    plain.byteAnswer = S_OK;
    merit.byteAnswer = S_OK;
    MockSetup s({{&plain, L"*.xyz", 0}, {&merit, nullptr, 3}, {&zero, nullptr, 0}});
    std::wstring f = WriteTemp(s.dataDir, L"m.xyz", Some());
    {
        Opened o;
        EXPECT_EQ(S_OK, s.mgr->OpenReader(f.c_str(), &o.file, 0));
        EXPECT_EQ(1, merit.opens);
        EXPECT_EQ(0, plain.opens);
        EXPECT_EQ(1, plain.byteCalls) << "identified once, not again for merit";
        EXPECT_EQ(0, zero.asked()) << "merit 0 is never asked";
    }
    merit.byteAnswer = ZVERR_UNSUPPORTED_FORMAT;
    Opened o;
    EXPECT_EQ(S_OK, s.mgr->OpenReader(f.c_str(), &o.file, 0));
    EXPECT_EQ(1, plain.opens);
    EXPECT_EQ(1, merit.opens);
}

TEST(OpenReaderEx, ClassGivenOpensWithoutIdentification)
{
    MockReader a(0xA0000002, L"A"), b(0xA0000001, L"B");
    a.byteAnswer = S_OK;
    MockSetup s({{&a, L"*.xyz", 0}, {&b, nullptr, 0}});
    std::wstring f = WriteTemp(s.dataDir, L"e.xyz", Some());
    {
        Opened o;
        EXPECT_EQ(S_OK, s.mgr->OpenReaderEx(f.c_str(), &o.file, b.id, 0));
        EXPECT_EQ(1, b.opens);
        EXPECT_EQ(TRUE, b.lastNormalOpen);
        EXPECT_EQ(0, a.asked() + b.asked());
    }
    // an unknown class falls back to identification
    Opened o;
    EXPECT_EQ(S_OK, s.mgr->OpenReaderEx(f.c_str(), &o.file, ClassId(0x77777777), 0));
    EXPECT_EQ(1, a.opens);
    EXPECT_EQ(S_FALSE, s.mgr->IsOpenProgressNeeded(f.c_str(), 0));
    EXPECT_TRUE(FAILED(s.mgr->IsOpenProgressNeeded((s.dataDir + L"\\nothing").c_str(), 0)));
}

TEST(OpenMoniker, BuildAndParse)
{
    wchar_t buf[64];
    EXPECT_EQ(S_OK, ZvFio_BuildMoniker(buf, 64, L"C:\\a.wav", L"s=1", L"t=2"));
    EXPECT_STREQ(L"C:\\a.wav?s=1&t=2", buf);
    EXPECT_EQ(S_OK, ZvFio_BuildMoniker(buf, 64, L"C:\\a.wav", nullptr, L"t=2"));
    EXPECT_STREQ(L"C:\\a.wav", buf);
    EXPECT_EQ(ZVERR_BUFFER_TOO_SMALL, ZvFio_BuildMoniker(buf, 8, L"C:\\a.wav", L"s", L"t"));
    EXPECT_STREQ(L"C:\\a.wa", buf);
    EXPECT_EQ(E_POINTER, ZvFio_BuildMoniker(nullptr, 8, L"x", nullptr, nullptr));
    EXPECT_EQ(E_INVALIDARG, ZvFio_BuildMoniker(buf, 0, L"x", nullptr, nullptr));

    wchar_t path[64], rest[64];
    EXPECT_EQ(S_OK, ZvFio_ParseMoniker(L"C:\\a.wav?s=1&t=2", path, 64, rest, 64));
    EXPECT_STREQ(L"C:\\a.wav", path);
    EXPECT_STREQ(L"s=1&t=2", rest);
    EXPECT_EQ(S_FALSE, ZvFio_ParseMoniker(L"C:\\a.wav", path, 64, rest, 64));
    EXPECT_STREQ(L"", rest);
    EXPECT_EQ(ZVERR_BUFFER_TOO_SMALL, ZvFio_ParseMoniker(L"C:\\a.wav?s", path, 4, rest, 64));
    EXPECT_STREQ(L"C:\\", path);
    EXPECT_EQ(S_OK, ZvFio_ParseMoniker(L"C:\\a.wav?s", path, 64, rest, 1)) << "a one-character target gets nothing";
    EXPECT_STREQ(L"", rest);
    EXPECT_EQ(E_INVALIDARG, ZvFio_ParseMoniker(nullptr, path, 64, rest, 64));
    EXPECT_EQ(E_INVALIDARG, ZvFio_ParseMoniker(L"x", nullptr, 0, nullptr, 0));
}
