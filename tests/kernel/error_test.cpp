// Error texts, details, translation, message boxes without a window, dumps.
#include <gtest/gtest.h>
#include "zverror.h"
#include "zvprintf.h"
#include "testutil.h"
#include <oleauto.h>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

const wchar_t kContext0[] = L"An error occurred during the current operation.";

// Text with "\\n" for each line break, as the fixture files write it.
std::wstring widen(const std::string &s)
{
    std::wstring out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '\\' && i + 1 < s.size() && s[i + 1] == 'n') {
            out += L'\n';
            ++i;
        } else {
            out += static_cast<wchar_t>(static_cast<unsigned char>(s[i]));
        }
    }
    return out;
}

// The tab-separated rows of a file in tests/kernel/fixtures of the source
// tree that ZV_SOURCE_DIR names; lines starting with "#" are comments.
std::vector<std::vector<std::string>> readFixture(const wchar_t *name)
{
    std::vector<unsigned char> bytes;
    zvtest::ReadFileBytes(zvtest::HostDirFromEnv("ZV_SOURCE_DIR") + L"tests\\kernel\\fixtures\\" + name, bytes);
    std::istringstream in(std::string(bytes.begin(), bytes.end()));
    std::vector<std::vector<std::string>> rows;
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#')
            continue;
        std::vector<std::string> fields;
        std::istringstream cells(line);
        for (std::string cell; std::getline(cells, cell, '\t');)
            fields.push_back(cell);
        rows.push_back(fields);
    }
    return rows;
}

std::wstring replaceAll(std::wstring text, const std::wstring &from, const std::wstring &to)
{
    for (size_t at = 0; (at = text.find(from, at)) != std::wstring::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

std::vector<std::wstring> g_logged;
void WINAPI logBox(const wchar_t *text)
{
    g_logged.push_back(text);
}

// Every test runs with boxes answered by their default button.
class ErrorBase : public testing::Test {
protected:
    void SetUp() override
    {
        ZvMsgBoxSetAppData(GetModuleHandleW(nullptr), nullptr, L"Error Test");
        ASSERT_TRUE(ZvMsgBoxSetNoUIHook(logBox));
        g_logged.clear();
        ZvErrorHandler_DetailsInit();
    }
};

} // namespace

using ErrorTexts = ErrorBase;

TEST_F(ErrorTexts, EveryResultGivesItsTextForContextZero)
{
    auto rows = readFixture(L"result_texts.txt");
    ASSERT_GE(rows.size(), 150u) << "tests/kernel/fixtures/result_texts.txt under ZV_SOURCE_DIR";
    ASSERT_TRUE(ZvPrintF_AddToken(L"AppName", L"Test App"));
    for (const auto &row : rows) {
        ASSERT_EQ(3u, row.size());
        HRESULT hr = static_cast<HRESULT>(strtoul(row[0].c_str(), nullptr, 16));
        std::wstring text = (row[1] == "1" ? L"\n\n" : L"") + widen(row[2]);
        const wchar_t *raw = ZvErrorHandler_GetHresultString(hr);
        ASSERT_NE(nullptr, raw) << row[0];
        EXPECT_EQ(text, raw) << row[0];
        // "%s" of a result text takes the argument; "%s" keeps it as written.
        std::wstring expected = kContext0 + replaceAll(text, L"$(AppName)", L"Test App");
        EXPECT_EQ(expected, ZvErrorHandler_GetErrorMessage(0, hr, L"%s")) << row[0];
    }
    ZvPrintF_DeleteToken(L"AppName");
}

TEST_F(ErrorTexts, ContextsByNumberTextOrFirstRow)
{
    auto rows = readFixture(L"context_texts.txt");
    ASSERT_GE(rows.size(), 50u);
    for (const auto &row : rows)
        EXPECT_EQ(widen(row[1]), ZvErrorHandler_GetContextString(strtoul(row[0].c_str(), nullptr, 10))) << row[0];
    EXPECT_STREQ(kContext0, ZvErrorHandler_GetContextString(53));
    EXPECT_STREQ(kContext0, ZvErrorHandler_GetContextString(0xFFFF));
    static const wchar_t own[] = L"Own context %s.";
    EXPECT_EQ(own, ZvErrorHandler_GetContextString(reinterpret_cast<UINT_PTR>(own)));

    EXPECT_STREQ(L"An error occurred while loading the project file song.prj.\n\n"
                 L"The file could not be opened. Make sure the file exists and that you have access to the "
                 L"file/folder.",
                 ZvErrorHandler_GetErrorMessage(5, ZVERR_FILE_OPEN, L"song.prj"));
    EXPECT_STREQ(L"Own context 100%.\n\nThe item was not found.",
                 ZvErrorHandler_GetErrorMessage(reinterpret_cast<UINT_PTR>(own), ZVERR_NOT_FOUND, L"100%"));
}

TEST_F(ErrorTexts, UnknownResultTellsItsNumber)
{
    EXPECT_EQ(nullptr, ZvErrorHandler_GetHresultString(static_cast<HRESULT>(0x8004EFFF)));
    EXPECT_EQ(std::wstring(kContext0) + L"\n\nError 0x8004efff (message missing)",
              ZvErrorHandler_GetErrorMessage(0, static_cast<HRESULT>(0x8004EFFF), nullptr));
    // A context that fills the message leaves no room for the result.
    std::wstring longContext(1960, L'c');
    EXPECT_EQ(longContext, ZvErrorHandler_GetErrorMessage(reinterpret_cast<UINT_PTR>(longContext.c_str()),
                                                          E_FAIL, nullptr));
}

TEST_F(ErrorTexts, RegisteredTablesComeFirstAndNullEndsTheSearch)
{
    static ZVLANGSTRING record = ZVLANG_TEXT(L"\n\nFrom a record.");
    static const ZVERROR_TABLE rows[] = {
        {E_FAIL, L"\n\nOwn reason."},
        {static_cast<HRESULT>(0x8004E00E), nullptr},
        {static_cast<HRESULT>(0x8004EF01), ZVLANGTEXT(record)},
    };
    static const ZVERROR_TABLE_RCID numbered[] = {
        {static_cast<HRESULT>(0x8004EF02), 0x6000},
    };
    ASSERT_EQ(0, ZvErrorHandler_AddErrorTable(rows, 3));
    HZVLANG lang = nullptr;
    ASSERT_EQ(S_OK, ZvLang_Open(&lang, GetModuleHandleW(nullptr), 0x409, 0));
    ASSERT_EQ(0, ZvErrorHandler_AddErrorTable(lang, numbered, 1));
    EXPECT_STREQ(L"\n\nOwn reason.", ZvErrorHandler_GetHresultString(E_FAIL));
    EXPECT_EQ(nullptr, ZvErrorHandler_GetHresultString(static_cast<HRESULT>(0x8004E00E)));
    EXPECT_STREQ(L"\n\nFrom a record.", ZvErrorHandler_GetHresultString(static_cast<HRESULT>(0x8004EF01)));
    EXPECT_STREQ(L"English six", ZvErrorHandler_GetHresultString(static_cast<HRESULT>(0x8004EF02)));
    EXPECT_NE(nullptr, ZvErrorHandler_GetHresultString(E_INVALIDARG));  // built-in still there

    EXPECT_EQ(1, ZvErrorHandler_AddErrorTable(static_cast<const ZVERROR_TABLE *>(nullptr), 1));
    static const ZVERROR_TABLE filler[] = {{static_cast<HRESULT>(0x8004EFFE), L"filler"}};
    int added = 2;
    while (ZvErrorHandler_AddErrorTable(filler, 1) == 0)
        ++added;
    EXPECT_EQ(ZVERR_MAX_TABLES, added);
    EXPECT_EQ(1, ZvErrorHandler_AddErrorTable(filler, 1));
    ZvLang_Close(lang);
}

using ErrorDetails = ErrorBase;

TEST_F(ErrorDetails, LinesAreComposedBehindTheMessage)
{
    EXPECT_EQ(nullptr, ZvErrorHandler_DetailsInfo(nullptr, nullptr, nullptr));
    EXPECT_EQ(S_OK, ZvErrorHandler_DetailsAddString(ZVERR_FILE_READ, L"file %s at %d", L"a.wav", 12));
    EXPECT_EQ(S_OK, ZvErrorHandler_DetailsAddString(ZVERR_FILE_READ, L"100% plain"));
    HRESULT hr = 0;
    int lines = 0;
    DWORD owner = 0;
    EXPECT_STREQ(L"file a.wav at 12\r\n100% plain\r\n", ZvErrorHandler_DetailsInfo(&hr, &lines, &owner));
    EXPECT_EQ(ZVERR_FILE_READ, hr);
    EXPECT_EQ(2, lines);
    EXPECT_EQ(GetCurrentThreadId(), owner);
    EXPECT_EQ(ZVERR_FILE_READ, ZvErrorHandler_GetLastError());

    BSTR text = ZvErrorHandler_ComposeErrorText(0, ZVERR_NOT_FOUND, nullptr);
    ASSERT_NE(nullptr, text);
    EXPECT_EQ(std::wstring(kContext0) + L"\n\nThe item was not found.\r\n<Details>\r\nfile a.wav at 12\r\n"
                                        L"100% plain\r\n\r\n</Details>",
              std::wstring(text, SysStringLen(text)));
    SysFreeString(text);

    EXPECT_EQ(E_POINTER, ZvErrorHandler_DetailsAddString(ZVERR_FILE_READ, nullptr));
    EXPECT_EQ(E_POINTER, ZvErrorHandler_DetailsSetHyperlink(nullptr, L"label"));
    EXPECT_EQ(S_OK, ZvErrorHandler_DetailsSetHyperlink(L"http://example.invalid/", L"More"));

    ZvErrorHandler_DetailsInit();
    text = ZvErrorHandler_ComposeErrorText(0, ZVERR_NOT_FOUND, nullptr);
    EXPECT_EQ(std::wstring(kContext0) + L"\n\nThe item was not found.", std::wstring(text));
    SysFreeString(text);
}

TEST_F(ErrorDetails, FullStoreRefusesAndOtherThreadsAddOnlyToTheSameResult)
{
    std::wstring big(4000, L'x');
    EXPECT_EQ(S_OK, ZvErrorHandler_DetailsAddString(E_FAIL, big.c_str()));
    EXPECT_EQ(S_OK, ZvErrorHandler_DetailsAddString(E_FAIL, big.c_str()));
    std::wstring before = ZvErrorHandler_DetailsInfo(nullptr, nullptr, nullptr);
    EXPECT_EQ(E_FAIL, ZvErrorHandler_DetailsAddString(E_FAIL, std::wstring(200, L'y').c_str()));
    EXPECT_EQ(before, ZvErrorHandler_DetailsInfo(nullptr, nullptr, nullptr));

    ZvErrorHandler_DetailsInit();
    ASSERT_EQ(S_OK, ZvErrorHandler_DetailsAddString(E_FAIL, L"first"));
    HRESULT same = E_NOTIMPL, other = E_NOTIMPL;
    std::thread([&] {
        other = ZvErrorHandler_DetailsAddString(E_OUTOFMEMORY, L"other");
        same = ZvErrorHandler_DetailsAddString(E_FAIL, L"same");
    }).join();
    EXPECT_EQ(E_FAIL, other);
    EXPECT_EQ(S_OK, same);
    int lines = 0;
    EXPECT_STREQ(L"first\r\nsame\r\n", ZvErrorHandler_DetailsInfo(nullptr, &lines, nullptr));
    EXPECT_EQ(2, lines);
}

TEST(ErrorTranslate, Win32AndCommonDialogNumbers)
{
    static const struct {
        DWORD error;
        HRESULT hr;
    } win32[] = {
        {0, S_OK}, {1, E_INVALIDARG}, {2, ZVERR_NOT_FOUND}, {3, ZVERR_NOT_FOUND}, {126, ZVERR_NOT_FOUND},
        {127, ZVERR_NOT_FOUND}, {4, (HRESULT)0x8004E026}, {5, E_ACCESSDENIED}, {6, E_HANDLE},
        {14, E_OUTOFMEMORY}, {84, E_OUTOFMEMORY}, {15, (HRESULT)0x800404B0}, {32, (HRESULT)0x8004E05A},
        {39, ZVERR_DISK_FULL}, {112, ZVERR_DISK_FULL}, {80, (HRESULT)0x8004E032}, {110, ZVERR_FILE_OPEN},
        {120, E_NOTIMPL}, {123, ZVERR_BAD_FILENAME}, {170, (HRESULT)0x8004E005}, {183, (HRESULT)0x8004E170},
        {87, E_FAIL}, {0xFFFFFFFF, E_FAIL},
    };
    for (const auto &row : win32)
        EXPECT_EQ(row.hr, ZvErrorHandler_TranslateWin32Error(row.error)) << row.error;

    static const struct {
        DWORD error;
        HRESULT hr;
    } dialog[] = {
        {0, S_OK}, {1, E_INVALIDARG}, {11, E_INVALIDARG}, {2, E_OUTOFMEMORY}, {10, E_OUTOFMEMORY},
        {6, (HRESULT)0x8004E00E}, {0x3002, ZVERR_BAD_FILENAME}, {0x3003, E_INVALIDARG}, {0x4001, E_INVALIDARG},
        {0xFFFF, E_INVALIDARG}, {0x3001, E_OUTOFMEMORY}, {12, E_FAIL}, {0x1001, E_FAIL},
    };
    for (const auto &row : dialog)
        EXPECT_EQ(row.hr, ZvErrorHandler_TranslateCommDlgError(row.error)) << row.error;
}

using ErrorBoxes = ErrorBase;

namespace {
int WINAPI answer42(void *data, HWND, const wchar_t *text, const wchar_t *, UINT)
{
    *static_cast<int *>(data) += 1;
    return wcscmp(text, L"pass") == 0 ? -1 : 42;
}
} // namespace

TEST_F(ErrorBoxes, NoInterfaceHookAnswersWithTheDefaultButton)
{
    EXPECT_EQ(IDOK, ZvErrorHandler_MsgBox(nullptr, MB_OK, 0, ZVERR_CANCELLED, nullptr, nullptr));
    EXPECT_TRUE(g_logged.empty()) << "a cancelled operation shows nothing";

    EXPECT_EQ(IDOK, ZvErrorHandler_MsgBox(nullptr, MB_OK, 0, ZVERR_NOT_FOUND, nullptr, nullptr));
    ASSERT_EQ(1u, g_logged.size());
    EXPECT_EQ(std::wstring(kContext0) + L"\n\nThe item was not found.", g_logged[0]);

    // the default button of each set; one past the set's end is its first
    const struct { UINT type; int answer; } defaults[] = {
        {MB_YESNOCANCEL | MB_DEFBUTTON2, IDNO}, {MB_YESNOCANCEL | MB_DEFBUTTON3, IDCANCEL},
        {MB_YESNO | MB_DEFBUTTON4, IDYES}, {MB_ABORTRETRYIGNORE | MB_DEFBUTTON3, IDIGNORE}};
    for (const auto &d : defaults)
        EXPECT_EQ(d.answer, ZvMessageBox(nullptr, L"q", nullptr, d.type)) << std::hex << d.type;
    EXPECT_EQ(ZVID_NOTOALL, ZvMsgBox_CustomNoF(nullptr, ZVMB_YESYESALLNONOALLCANCEL | MB_DEFBUTTON4, nullptr,
                                               nullptr, L"q"));
    EXPECT_EQ(ZVID_DELETE, ZvMsgBox_TitledNoF(nullptr, ZVMB_YESNODELETE | MB_DEFBUTTON3, L"t", L"q"));
    EXPECT_EQ(ZVID_YESTOALL, ZvMsgBox_TitledF(nullptr, ZVMB_YESYESALLNOCANCEL | MB_DEFBUTTON2, L"t", L"%d", 5));
    EXPECT_EQ(L"5", g_logged.back());
    BOOL dontShow = TRUE;
    EXPECT_EQ(IDRETRY, ZvMsgBox_CustomExNoF(nullptr, MB_RETRYCANCEL, nullptr, nullptr, &dontShow, L"q"));
    EXPECT_FALSE(dontShow);

    EXPECT_EQ(IDOK, ZvMsgBoxF(nullptr, MB_OK, L"%s has %d items", L"list", 3));
    EXPECT_EQ(L"list has 3 items", g_logged.back());
    EXPECT_EQ(IDOK, ZvMsgBoxId(nullptr, MB_OK, ZvLang_GetKernelLang(), 0x6000));
    EXPECT_EQ(L"English six", g_logged.back());
    EXPECT_EQ(IDOK, ZvErrorHandler_MsgBoxText(nullptr, MB_OK, L"body", L"Saving"));
    EXPECT_EQ(L"Saving\n\nbody", g_logged.back());
}

TEST_F(ErrorBoxes, HookReplacesTheBoxAndOnlyItsThreadChangesIt)
{
    int calls = 0;
    ASSERT_TRUE(ZvMsgBoxSetHook(answer42, &calls));
    EXPECT_EQ(42, ZvMessageBox(nullptr, L"text", L"title", MB_OK));
    EXPECT_EQ(IDNO, ZvMessageBox(nullptr, L"pass", L"title", MB_YESNO | MB_DEFBUTTON2));
    EXPECT_EQ(2, calls);
    BOOL fromOther = TRUE;
    std::thread([&] { fromOther = ZvMsgBoxSetHook(nullptr, nullptr); }).join();
    EXPECT_FALSE(fromOther);
    EXPECT_TRUE(ZvMsgBoxSetHook(nullptr, nullptr));
}

using ErrorDumps = ErrorBase;

namespace {
// An exception of `code` at the capture.
struct Fault {
    CONTEXT context = {};
    EXCEPTION_RECORD record = {};
    EXCEPTION_POINTERS pointers = {&record, &context};
    explicit Fault(DWORD code)
    {
        RtlCaptureContext(&context);
        record.ExceptionCode = code;
    }
};

// A readable page followed by one that faults on reading.
struct GuardedPage {
    GuardedPage()
    {
        base = static_cast<BYTE *>(VirtualAlloc(nullptr, 8192, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
        DWORD old;
        VirtualProtect(base + 4096, 4096, PAGE_NOACCESS, &old);
    }
    ~GuardedPage() { VirtualFree(base, 0, MEM_RELEASE); }
    BYTE *edge() const { return base + 4096; }
    BYTE *base;
};
} // namespace

TEST_F(ErrorDumps, HexLinesShowBytesCharactersAndUnreadableMemory)
{
    char buffer[512];
    const char data[] = "ABCDEFGH\x01JK";
    int n = ZvErrorHandler_DumpHex(buffer, sizeof(buffer), data, 11);
    EXPECT_EQ(static_cast<int>(strlen(buffer)), n);
    std::string text(buffer);
    EXPECT_NE(std::string::npos, text.find(": 41 42 43 44 45 46 47 48 ABCDEFGH\r\n"));
    EXPECT_NE(std::string::npos, text.find(": 01 4A 4B                " ".JK\r\n"));

    GuardedPage page;
    memcpy(page.edge() - 4, "wxyz", 4);
    ZvErrorHandler_DumpHex(buffer, sizeof(buffer), page.edge() - 4, 8);
    EXPECT_NE(std::string::npos, std::string(buffer).find("77 78 79 7A .. .. .. .. wxyz....\r\n"));
    ZvErrorHandler_DumpHexDWords(buffer, sizeof(buffer), page.edge() - 8, 4);
    EXPECT_NE(std::string::npos, std::string(buffer).find("........ ........ \r\n"));

    // Too little room: nothing is written and nothing beyond the size.
    char small[48];
    memset(small, '#', sizeof(small));
    EXPECT_EQ(0, ZvErrorHandler_DumpHex(small, 40, data, 8));
    EXPECT_EQ('#', small[40]);
    EXPECT_EQ(0, ZvErrorHandler_DumpHex(nullptr, 100, data, 8));
}

TEST_F(ErrorDumps, ExceptionReportHasEverySection)
{
    Fault f(EXCEPTION_ACCESS_VIOLATION);
    EXCEPTION_RECORD &record = f.record;
    EXCEPTION_POINTERS &pointers = f.pointers;
    record.NumberParameters = 2;
    record.ExceptionInformation[0] = 1;
    record.ExceptionInformation[1] = 0x1234;
    static char report[8192];
    ZvErrorHandler_DumpExceptionRecord(report, sizeof(report), "worker", &pointers, 0);
    std::string text(report);
    EXPECT_EQ(0u, text.find("Exception 0xC0000005 (access violation) WRITE:0x")) << text;
    EXPECT_NE(std::string::npos, text.find("In Module 'test_kernel.exe' at Address 0x")) << text;
    EXPECT_NE(std::string::npos, text.find("Thread: worker ID=0x")) << text;
    EXPECT_NE(std::string::npos, text.find("Registers:\r\n")) << text;
    EXPECT_NE(std::string::npos, text.find("Bytes at CS:")) << text;
    EXPECT_NE(std::string::npos, text.find("Stack Dump:\r\n")) << text;
    EXPECT_LT(text.size(), sizeof(report));

    record.ExceptionCode = 0xE0001234;
    ZvErrorHandler_DumpExceptionRecord(report, sizeof(report), nullptr, &pointers, 1);
    text = report;
    EXPECT_EQ(0u, text.find("Exception 0xE0001234 (Unknown Type) IP:0x")) << text;
    EXPECT_EQ(text.size() - 2, text.find("\r\n"));

    // A small buffer is filled only as far as whole lines fit.
    char small[120];
    memset(small, '#', sizeof(small));
    ZvErrorHandler_DumpExceptionRecord(small, 100, "t", &pointers, 0);
    EXPECT_EQ('#', small[100]);
    EXPECT_LT(strlen(small), 100u);
}

TEST_F(ErrorDumps, StackWordsShowWhereTheyPoint)
{
    GuardedPage page;
    UINT_PTR *words = reinterpret_cast<UINT_PTR *>(page.edge()) - 3;
    words[0] = 0x12345678;  // unmapped
    words[1] = reinterpret_cast<UINT_PTR>(&ZvErrorHandler_DumpHex);
    words[2] = 7;
    Fault f(EXCEPTION_BREAKPOINT);
#ifdef _WIN64
    f.context.Rsp = reinterpret_cast<DWORD64>(words);
#else
    f.context.Esp = reinterpret_cast<DWORD>(words);
#endif
    static char report[8192];
    ZvErrorHandler_DumpExceptionRecord(report, sizeof(report), nullptr, &f.pointers, 16);
    std::string text(report);
    std::vector<std::string> lines;
    for (size_t at = 0, next; (next = text.find("\r\n", at)) != std::string::npos; at = next + 2)
        lines.push_back(text.substr(at, next - at));
    ASSERT_GE(lines.size(), 5u) << text;
    EXPECT_EQ("Stack Dump:", lines[0]);
    EXPECT_NE(std::string::npos, lines[1].find("12345678 ")) << lines[1];
    EXPECT_EQ(std::string::npos, lines[1].find(" + ")) << lines[1];
    EXPECT_NE(std::string::npos, lines[2].find("(test_kernel.exe)")) << lines[2];
    EXPECT_NE(std::string::npos, lines[4].find("........ ")) << lines[4];
}

TEST_F(ErrorDumps, FilterReportsInABoxAndPassesMisalignment)
{
    Fault f(EXCEPTION_INT_DIVIDE_BY_ZERO);
    EXPECT_EQ(EXCEPTION_EXECUTE_HANDLER, ZvErrorHandler_ExceptionFilter(&f.pointers, "main"));
    ASSERT_EQ(1u, g_logged.size());
    EXPECT_EQ(std::wstring(kContext0) + L"\n\nAn Exception has occurred.", g_logged[0]);
    int lines = 0;
    const wchar_t *details = ZvErrorHandler_DetailsInfo(nullptr, &lines, nullptr);
    ASSERT_NE(nullptr, details);
    EXPECT_EQ(2, lines);
    EXPECT_EQ(0u, std::wstring(details).find(L"Error Test\r\nException 0xC0000094 (integer divide by zero) IP:0x"))
        << details;

    f.record.ExceptionCode = EXCEPTION_DATATYPE_MISALIGNMENT;
    EXPECT_EQ(EXCEPTION_CONTINUE_SEARCH, ZvErrorHandler_ExceptionFilter(&f.pointers, "main"));
    EXPECT_EQ(EXCEPTION_CONTINUE_SEARCH, ZvErrorHandler_ExceptionFilter(nullptr, "main"));
}
