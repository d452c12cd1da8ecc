#include <gtest/gtest.h>
#include "zvmetric.h"
#include <string>
#include <vector>

namespace {

class ZvMetricTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        app_ = L"ZvMetricTest" + std::to_wstring(GetCurrentProcessId());
        ASSERT_EQ(ZvMetric_Open(&m_, app_.c_str(), kVersion, nullptr), S_OK);
        ASSERT_NE(m_, nullptr);
    }
    void TearDown() override
    {
        ZvMetric_Close(m_);
        ZvMetric_DeleteAll(app_.c_str(), kVersion);
        ZvMetric_DeleteAll(app_.c_str(), 0);
        std::wstring root = L"Software\\" ZVMETRIC_COMPANY L"\\" + app_;
        EXPECT_FALSE(exists(root)) << "test keys left behind";
        ZvRegDeleteKey(HKEY_CURRENT_USER, (L"Software\\ZvOtherCompany\\" + app_).c_str());
    }
    static bool exists(const std::wstring &path)
    {
        HKEY key;
        if (RegOpenKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS)
            return false;
        RegCloseKey(key);
        return true;
    }
    std::wstring base() const { return L"Software\\" ZVMETRIC_COMPANY L"\\" + app_ + L"\\2.5\\Metrics"; }

    static const DWORD kVersion = ZVMETRIC_VERSION(2, 5) | 0x1234; // low word ignored
    std::wstring app_;
    HZVMETRIC m_ = nullptr;
};

IStream *streamWith(size_t bytes)
{
    IStream *s = nullptr;
    EXPECT_EQ(CreateStreamOnHGlobal(nullptr, TRUE, &s), S_OK);
    std::vector<BYTE> data(bytes);
    for (size_t i = 0; i < bytes; i++)
        data[i] = (BYTE)(i * 7);
    ULONG written = 0;
    if (bytes)
        s->Write(data.data(), (ULONG)bytes, &written);
    return s;
}

} // namespace

TEST_F(ZvMetricTest, KeyPathsAndSubKeys)
{
    EXPECT_EQ(std::wstring(m_->userPath), base());
    EXPECT_TRUE(exists(base()));

    HZVMETRIC plain = nullptr;
    ASSERT_EQ(ZvMetric_Open(&plain, app_.c_str(), 0, L"Win"), S_OK);
    EXPECT_EQ(std::wstring(plain->userPath), L"Software\\" ZVMETRIC_COMPANY L"\\" + app_ + L"\\Metrics\\Win");

    // A sub-key of a sub-key replaces it rather than nesting.
    HZVMETRIC sub = nullptr, sibling = nullptr;
    ASSERT_EQ(ZvMetric_OpenSubKey(&sub, m_, L"Dialogs"), S_OK);
    EXPECT_EQ(std::wstring(sub->userPath), base() + L"\\Dialogs");
    ASSERT_EQ(ZvMetric_OpenSubKey(&sibling, sub, L"Views"), S_OK);
    EXPECT_EQ(std::wstring(sibling->userPath), base() + L"\\Views");
    HZVMETRIC none = (HZVMETRIC)1;
    EXPECT_EQ(ZvMetric_OpenSubKey(&none, nullptr, L"x"), E_FAIL);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(ZvMetric_OpenSubKey(&none, ZVMETRIC_DEFAULT, L"x"), E_FAIL);

    // Values in different sub-keys are apart.
    ZvSetMetric(sub, 1, 11);
    ZvSetMetric(sibling, 1, 22);
    EXPECT_EQ(ZvGetMetric(sub, 1), 11);
    EXPECT_EQ(ZvGetMetric(m_, 1), 0);

    HZVMETRIC other = nullptr;
    ASSERT_EQ(ZvMetric_OpenRegHiveAndVersion(&other, app_.c_str(), kVersion, L"ZvOtherCompany", nullptr), S_OK);
    EXPECT_EQ(std::wstring(other->userPath), L"Software\\ZvOtherCompany\\" + app_ + L"\\2.5\\Metrics");

    // Deleting a sub-key leaves the rest; CloseAndDeleteKey takes its own key.
    EXPECT_EQ(ZvMetric_DeleteKey(app_.c_str(), kVersion, L"Dialogs"), S_OK);
    EXPECT_FALSE(exists(base() + L"\\Dialogs"));
    EXPECT_TRUE(exists(base() + L"\\Views"));
    EXPECT_EQ(ZvMetric_CloseAndDeleteKey(sibling), S_OK);
    EXPECT_FALSE(exists(base() + L"\\Views"));
    EXPECT_TRUE(exists(base()));
    EXPECT_EQ(ZvMetric_CloseAndDeleteKey(nullptr), E_FAIL);
    EXPECT_EQ(ZvMetric_Close(nullptr), S_OK);
    ZvMetric_Close(sub);
    ZvMetric_Close(plain);
    ZvMetric_Close(other);
}

TEST_F(ZvMetricTest, NumbersBoundsAndNames)
{
    EXPECT_EQ(ZvSetMetric(m_, -7, 99), S_OK);
    EXPECT_EQ(ZvGetMetric(m_, 7), 99);
    EXPECT_EQ(ZvGetMetric(m_, -7), 99);
    DWORD type = 0, value = 0, size = sizeof value;
    EXPECT_EQ(RegGetValueW(HKEY_CURRENT_USER, base().c_str(), L"7", RRF_RT_ANY, &type, &value, &size),
              ERROR_SUCCESS);
    EXPECT_EQ(type, (DWORD)REG_DWORD);
    EXPECT_EQ(value, 99u);

    EXPECT_EQ(ZvGetMetricEx(m_, 7, 5, 5, 1), 99);     // equal bounds: no bounds
    EXPECT_EQ(ZvGetMetricEx(m_, 7, 0, 10, 1), 10);
    EXPECT_EQ(ZvGetMetricEx(m_, 8, 0, 10, 20), 10);   // the default is clamped too
    EXPECT_EQ(ZvGetMetricEx(m_, 8, 3, 3, 20), 20);
    EXPECT_EQ(ZvGetMetricEx(m_, 8, 0, 10, -4), 0);
    EXPECT_EQ(ZvGetMetric(m_, 8), 0);
    EXPECT_TRUE(ZvGetMetricBool(m_, 7, FALSE));
    EXPECT_TRUE(ZvGetMetricBool(m_, 8, TRUE));
    ZvSetMetric(m_, 8, 0);
    EXPECT_FALSE(ZvGetMetricBool(m_, 8, TRUE));

    EXPECT_EQ(ZvSetMetricUsingName(m_, L"Named", -3), S_OK);
    EXPECT_EQ(ZvGetMetricUsingName(m_, L"Named", 5), -3);
    EXPECT_EQ(ZvGetMetricUsingName(m_, L"Missing", 5), 5);
    EXPECT_EQ(ZvSetMetricUsingName(nullptr, L"Named", 1), E_FAIL);
    // A text under a number's name is no number.
    RegSetKeyValueW(HKEY_CURRENT_USER, base().c_str(), L"9", REG_SZ, L"12", 6);
    EXPECT_EQ(ZvGetMetricEx(m_, 9, 0, 0, 4), 4);

    wchar_t name[16];
    EXPECT_EQ(ZvMetricGetName(7, REG_DWORD, name), 2);
    const struct { int id; DWORD type; const wchar_t *name; } names[] = {
        {7, REG_DWORD, L"D7"}, {-7, REG_SZ, L"S7"}, {7, REG_BINARY, L"B7"}, {7, REG_MULTI_SZ, L"Z7"},
        {7, 99, L"Z7"}, {INT_MIN, REG_DWORD, L"D2147483648"}};
    for (const auto &n : names) {
        ZvMetricGetName(n.id, n.type, name);
        EXPECT_STREQ(n.name, name) << n.id << " " << n.type;
    }
}

TEST_F(ZvMetricTest, Texts)
{
    wchar_t b[16];
    // the length the read gives and the text it leaves
    auto text = [&](int id, int size, const wchar_t *dflt, BOOL emptyIsValue) {
        b[0] = L'x';
        int n = ZvGetMetricStringEx(m_, id, b, size, dflt, emptyIsValue);
        return std::to_wstring(n) + L":" + b;
    };
    EXPECT_EQ(ZvSetMetricString(m_, 3, L"hello"), S_OK);
    EXPECT_EQ(text(3, 16, L"default", FALSE), L"5:hello");
    EXPECT_EQ(text(-3, 16, nullptr, FALSE), L"5:hello");
    EXPECT_EQ(text(3, 4, L"dflt", FALSE), L"3:dfl"); // too long for the buffer: the default stands in
    EXPECT_EQ(text(4, 16, L"default", FALSE), L"7:default");
    EXPECT_EQ(text(4, 16, nullptr, FALSE), L"0:");

    EXPECT_EQ(ZvSetMetricString(m_, 5, L""), S_OK);
    EXPECT_EQ(text(5, 16, L"default", TRUE), L"0:");
    EXPECT_EQ(text(5, 16, L"default", FALSE), L"7:default");
    EXPECT_EQ(ZvSetMetricString(m_, 6, L"abc"), S_OK); // fills the buffer exactly
    EXPECT_EQ(text(6, 4, nullptr, FALSE), L"3:abc");

    const wchar_t multi[] = L"one\0two\0";
    EXPECT_EQ(ZvSetMetricMultiString(m_, 3, multi, 9), S_OK);
    EXPECT_EQ(ZvGetMetricMultiStringEx(m_, 3, b, 16, nullptr, FALSE), 8);
    EXPECT_EQ(std::wstring(b, 9), std::wstring(multi, 9));
    EXPECT_EQ(ZvGetMetricStringEx(m_, 3, b, 16, nullptr, FALSE), 5); // kinds have their own names

    EXPECT_EQ(ZvSetMetricString(ZVMETRIC_DEFAULT, 3, L"x"), E_FAIL);
    EXPECT_EQ(ZvSetMetricString(nullptr, 3, L"x"), E_FAIL);
    EXPECT_EQ(ZvSetMetricString(m_, 3, nullptr), E_FAIL);
    EXPECT_EQ(ZvSetMetricMultiString(ZVMETRIC_DEFAULT, 3, multi, 9), E_FAIL);
    EXPECT_EQ(ZvSetMetricMultiString(m_, 3, multi, -1), E_FAIL);
    EXPECT_EQ(ZvGetMetricStringEx(ZVMETRIC_DEFAULT, 3, b, 16, L"d", FALSE), 1);
    EXPECT_EQ(ZvGetMetricStringEx(m_, 3, nullptr, 16, L"d", FALSE), 0);
}

TEST_F(ZvMetricTest, BinaryAndStreams)
{
    BYTE data[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    EXPECT_EQ(ZvSetMetricBinary(m_, 2, data, sizeof data), S_OK);
    BYTE b[16];
    memset(b, 0xEE, sizeof b);
    EXPECT_EQ(ZvGetMetricBinary(m_, 2, b, 16), 10);
    EXPECT_EQ(memcmp(b, data, 10), 0);
    EXPECT_EQ(b[15], 0);
    memset(b, 0xEE, sizeof b);
    EXPECT_EQ(ZvGetMetricBinary(m_, 3, b, 16), 0);
    EXPECT_EQ(b[0], 0);

    DWORD size = 99;
    EXPECT_EQ(ZvGetMetricBinaryEx(m_, 2, nullptr, 0, &size), S_OK);
    EXPECT_EQ(size, 10u);
    memset(b, 0xEE, sizeof b);
    EXPECT_EQ(ZvGetMetricBinaryEx(m_, 2, b, 4, &size), ZVERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 10u);
    EXPECT_EQ(b[0], 0);
    EXPECT_EQ(b[4], 0xEE);
    EXPECT_EQ(ZvGetMetricBinaryEx(m_, 3, b, 16, &size), S_FALSE);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(ZvGetMetricBinaryEx(m_, 2, b, 16, nullptr), E_INVALIDARG);
    EXPECT_EQ(ZvGetMetricBinaryEx(nullptr, 2, b, 16, &size), ZVERR_NOT_FOUND);
    EXPECT_EQ(ZvSetMetricBinary(ZVMETRIC_DEFAULT, 2, data, 10), E_FAIL);
    EXPECT_EQ(ZvSetMetricBinary(m_, 2, nullptr, 10), E_FAIL);

    IStream *full = streamWith(2048), *over = streamWith(2049), *empty = streamWith(0);
    EXPECT_EQ(ZvSetMetricStream(m_, 4, full), S_OK);
    EXPECT_EQ(ZvSetMetricStream(m_, 5, over), E_INVALIDARG);
    EXPECT_EQ(ZvSetMetricStream(m_, 5, empty), E_UNEXPECTED);
    EXPECT_EQ(ZvSetMetricStream(m_, 5, nullptr), E_POINTER);
    EXPECT_EQ(ZvSetMetricStream(nullptr, 5, full), E_FAIL);

    IStream *back = streamWith(3);
    EXPECT_EQ(ZvGetMetricStream(m_, 4, back), S_OK);
    HGLOBAL memory;
    ASSERT_EQ(GetHGlobalFromStream(back, &memory), S_OK);
    const BYTE *bytes = (const BYTE *)GlobalLock(memory);
    bool same = true;
    for (int i = 0; i < 2048; i++)
        same = same && bytes[i] == (BYTE)(i * 7);
    GlobalUnlock(memory);
    EXPECT_TRUE(same);
    EXPECT_EQ(ZvGetMetricStream(m_, 5, back), E_UNEXPECTED);
    EXPECT_EQ(ZvGetMetricStream(m_, 4, nullptr), E_POINTER);
    full->Release();
    over->Release();
    empty->Release();
    back->Release();
}

TEST_F(ZvMetricTest, AnyExistDelete)
{
    ZvSetMetric(m_, 7, 5);
    BYTE b[16];
    DWORD size = 0;
    // Reversed sense: the requested kind found is "not found".
    EXPECT_EQ(ZvGetMetricAny(m_, 7, REG_DWORD, b, 16, &size), ZVERR_NOT_FOUND);
    EXPECT_EQ(ZvGetMetricAny(m_, 7, REG_SZ, b, 16, &size), S_OK);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(ZvGetMetricAny(m_, 7, REG_DWORD, b, 2, &size), ZVERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(ZvGetMetricAny(m_, 70, REG_DWORD, b, 16, &size), S_OK);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(ZvGetMetricAny(nullptr, 7, REG_DWORD, b, 16, &size), E_UNEXPECTED);

    // A text under the decimal name is terminated in the buffer.
    RegSetKeyValueW(HKEY_CURRENT_USER, base().c_str(), L"8", REG_SZ, L"abc", 8);
    wchar_t text[8];
    memset(text, 0xFF, sizeof text);
    EXPECT_EQ(ZvGetMetricAny(m_, 8, REG_DWORD, text, sizeof text, &size), S_OK);
    EXPECT_EQ(size, 8u);
    EXPECT_STREQ(text, L"abc");
    memset(text, 0xFF, sizeof text);
    EXPECT_EQ(ZvGetMetricAny(m_, 8, REG_DWORD, text, 8, &size), S_OK); // exactly full
    EXPECT_STREQ(text, L"abc");
    EXPECT_EQ(ZvGetMetricAny(m_, 8, REG_DWORD, text, 6, &size), ZVERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 8u);

    EXPECT_EQ(ZvDoesMetricExist(m_, 7, REG_DWORD), 0);
    EXPECT_EQ(ZvDoesMetricExist(m_, 7, REG_SZ), 1);
    EXPECT_EQ(ZvDoesMetricExist(nullptr, 7, REG_DWORD), 1);
    EXPECT_EQ(ZvDeleteMetric(m_, -7, REG_DWORD), S_OK);
    EXPECT_EQ(ZvDoesMetricExist(m_, 7, REG_DWORD), 1);
    EXPECT_EQ(ZvDeleteMetric(m_, 7, REG_DWORD), E_FAIL);
    EXPECT_EQ(ZvDeleteMetric(nullptr, 7, REG_DWORD), S_FALSE);
    ZvSetMetricUsingName(m_, L"N", 1);
    EXPECT_EQ(ZvDeleteMetricUsingName(m_, L"N", REG_SZ), S_OK);
}

TEST_F(ZvMetricTest, HandlesWithoutKey)
{
    // The default handle and a null one read defaults and refuse writes.
    for (HZVMETRIC h : {(HZVMETRIC) nullptr, ZVMETRIC_DEFAULT}) {
        EXPECT_EQ(ZvGetMetric(h, 1), 0);
        EXPECT_EQ(ZvGetMetricEx(h, 1, 0, 0, 42), 42);
        EXPECT_EQ(ZvSetMetric(h, 1, 1), E_FAIL);
        EXPECT_EQ(ZvSetMetricUsingName(h, L"x", 1), E_FAIL);
    }
    // A key that cannot be created still gives a handle.
    HZVMETRIC bad = nullptr;
    std::wstring badPath = base() + L"\\" + std::wstring(300, L'k');
    HRESULT hr = ZvMetric_OpenAppVersion(&bad, badPath.c_str(), nullptr);
    ASSERT_NE(bad, nullptr);
    if (FAILED(hr)) {
        EXPECT_EQ(HRESULT_FACILITY(hr), FACILITY_WIN32);
        EXPECT_EQ(ZvSetMetric(bad, 1, 1), E_FAIL);
        EXPECT_EQ(ZvGetMetricEx(bad, 1, 0, 0, 42), 42);
    }
    ZvMetric_Close(bad);
    bad = nullptr;
    EXPECT_EQ(ZvMetric_OpenAppVersion(&bad, L"", nullptr), E_INVALIDARG);
    ASSERT_NE(bad, nullptr);
    EXPECT_EQ(ZvSetMetric(bad, 1, 1), E_FAIL);
    EXPECT_EQ(ZvMetric_CloseAndDeleteKey(bad), S_OK); // deletes nothing
    bad = nullptr;
    EXPECT_EQ(ZvMetric_Open(&bad, nullptr, kVersion, nullptr), E_INVALIDARG);
    ZvMetric_Close(bad);
    EXPECT_EQ(ZvMetric_OpenAppVersion(nullptr, L"Software\\x", nullptr), E_INVALIDARG);
}

TEST_F(ZvMetricTest, TreeRemoval)
{
    std::wstring tree = L"Software\\" ZVMETRIC_COMPANY L"\\" + app_ + L"\\Tree";
    HKEY key;
    for (const wchar_t *leaf : {L"\\a\\b\\c", L"\\a\\d", L"\\e"}) {
        ASSERT_EQ(RegCreateKeyW(HKEY_CURRENT_USER, (tree + leaf).c_str(), &key), ERROR_SUCCESS);
        RegSetValueExW(key, L"v", 0, REG_SZ, (const BYTE *)L"x", 4);
        RegCloseKey(key);
    }
    EXPECT_TRUE(ZvRegDeleteKey(HKEY_CURRENT_USER, tree.c_str()));
    EXPECT_FALSE(exists(tree));
    EXPECT_TRUE(ZvRegDeleteKey(HKEY_CURRENT_USER, tree.c_str())); // already gone
    EXPECT_FALSE(ZvRegDeleteKey(HKEY_CURRENT_USER, L""));
    EXPECT_FALSE(ZvRegDeleteKey(HKEY_CURRENT_USER, nullptr));

    // DeleteUserMetrics and DeleteAll take the whole version tree.
    ZvSetMetric(m_, 1, 1);
    EXPECT_EQ(ZvMetric_DeleteUserMetrics(app_.c_str(), kVersion), S_OK);
    EXPECT_FALSE(exists(base()));
    EXPECT_EQ(ZvMetric_DeleteAll(nullptr, kVersion), S_OK);
}
