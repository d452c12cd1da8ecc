#include <gtest/gtest.h>
#include <share.h>
#include <string>
#include <vector>
#include <set>
#include <thread>
#include "testutil.h"
#include "zvlog.h"
#include "zvproxy.h"
#include "childserver.h"

namespace {

// Reads a file that the log may still hold open.
std::string ReadShared(const std::wstring &path)
{
    std::vector<unsigned char> bytes;
    zvtest::ReadFileBytes(path, bytes);
    return std::string(bytes.begin(), bytes.end());
}

std::vector<std::string> Lines(const std::string &text)
{
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        std::string line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        lines.push_back(line);
        start = end + 1;
    }
    return lines;
}

bool Exists(const std::wstring &path)
{
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// Each writer test has a log and a file name in a folder of its own.
class LogWriter : public ::testing::Test {
protected:
    zvtest::TempDir dir;
    std::wstring path = dir.file(L"test.log");
    CLog log;
};

} // namespace

TEST_F(LogWriter, InitRejectsBadArgumentsAndUnopenedLogRefusesWrites)
{
    EXPECT_EQ(log.Init(nullptr, 4, 0, 0), E_INVALIDARG);
    EXPECT_EQ(log.Init(path.c_str(), 0, 0, 0), E_INVALIDARG);
    EXPECT_EQ(log.Write(4, L"x.cpp", 1, L"never"), ZVERR_INIT_FAILED);
    EXPECT_EQ(log.Init(dir.file(L"missing\\a.log").c_str(), 4, 0, 0), ZVERR_FILE_OPEN);
    EXPECT_EQ(log.Write(4, L"x.cpp", 1, L"never"), ZVERR_INIT_FAILED);
    EXPECT_FALSE(Exists(path));

    // Init works again after Shutdown, and a new session appends.
    ASSERT_EQ(log.Init(path.c_str(), 0x10, 0, 0), S_OK);
    EXPECT_EQ(log.Write(0x10, nullptr, 0, L"first"), S_OK);
    log.Shutdown();
    EXPECT_EQ(log.Write(0x10, nullptr, 0, L"lost"), ZVERR_INIT_FAILED);
    ASSERT_EQ(log.Init(path.c_str(), 0x10, 0, 0), S_OK);
    EXPECT_EQ(log.Write(0x10, nullptr, 0, L"second"), S_OK);
    EXPECT_EQ(Lines(ReadShared(path)), (std::vector<std::string>{"first", "second"}));
    EXPECT_STREQ(log.GetLogFileName(), path.c_str());
}

TEST_F(LogWriter, LevelsTagsAndDecorations)
{
    // Only warnings are written; level 3 shares a bit and has no tag of its own.
    ASSERT_EQ(log.Init(path.c_str(), 0x10002, 0, 0), S_OK);
    EXPECT_EQ(log.Write(4, L"a.cpp", 1, L"info dropped"), S_OK);
    EXPECT_EQ(log.Write(2, nullptr, 0, L"warned %d", 7), S_OK);
    EXPECT_EQ(log.Write(3, nullptr, 0, L"odd level"), S_OK);
    log.Shutdown();
    std::vector<std::string> lines = Lines(ReadShared(path));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].substr(0, 4), "WARN");
    EXPECT_NE(lines[0].find("warned 7"), std::string::npos);
    EXPECT_EQ(lines[1].substr(0, 4), "????");
    DeleteFileW(path.c_str());

    // Every tag, and levels of 17 or above.
    ASSERT_EQ(log.Init(path.c_str(), 0xFFFF, 0, 0), S_OK);
    const DWORD levels[] = {1, 2, 4, 8, 0x10, 0x11, 0x8000};
    for (DWORD level : levels)
        log.Write(level, nullptr, 0, L"m");
    log.Shutdown();
    EXPECT_EQ(Lines(ReadShared(path)),
              (std::vector<std::string>{"ERR  m", "WARN m", "INFO m", "DBG  m", "m", "???? m", "???? m"}));
    DeleteFileW(path.c_str());

    // Tag, time stamp, source file without its path and the line, then text.
    ASSERT_EQ(log.Init(path.c_str(), 0x30004, 0, _SH_DENYWR), S_OK);
    EXPECT_EQ(log.Write(4, L"C:\\src\\filemng\\filemng.cpp", 42, L"opened %ls", L"take.wav"), S_OK);
    EXPECT_EQ(log.Write(4, L"short.c", 12345, L"x"), S_OK);
    log.Shutdown();
    lines = Lines(ReadShared(path));
    ASSERT_EQ(lines.size(), 2u);
    SYSTEMTIME st;
    GetLocalTime(&st);
    char date[16];
    snprintf(date, sizeof(date), " %02d-%02d-%02d ", st.wYear % 100, st.wMonth, st.wDay);
    // "INFO yy-mm-dd hh:mm:ss     filemng.cpp(  42): opened take.wav"
    ASSERT_EQ(lines[0].size(), 4 + 19 + 23 + 15u);
    EXPECT_EQ(lines[0].substr(0, 4), "INFO");
    EXPECT_EQ(lines[0].substr(4, 10), date);
    EXPECT_EQ(lines[0][16], ':');
    EXPECT_EQ(lines[0][19], ':');
    EXPECT_EQ(lines[0].substr(23), "    filemng.cpp(  42): opened take.wav");
    EXPECT_EQ(lines[1].substr(23), "        short.c(12345): x");
}

TEST_F(LogWriter, LongAndWideTextIsCutAndKept)
{
    ASSERT_EQ(log.Init(path.c_str(), 0x10, 0, 0), S_OK);
    std::wstring big(2000, L'x');
    EXPECT_EQ(log.Write(0x10, nullptr, 0, L"%ls", big.c_str()), S_OK);
    // Text outside one code page survives as UTF-8.
    EXPECT_EQ(log.Write(0x10, nullptr, 0, L"caf\x00E9 \x65E5\x672C"), S_OK);
    log.Shutdown();
    std::vector<std::string> lines = Lines(ReadShared(path));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], std::string(1023, 'x'));
    EXPECT_EQ(lines[1], "caf\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC");
}

TEST_F(LogWriter, RollOverKeepsExactlyOnePreviousGeneration)
{
    std::wstring previous = path + L".previous";
    ASSERT_EQ(log.Init(path.c_str(), 0x10, 1000, 0x20), S_OK);
    // 30 lines of 100 bytes with CR LF: the log rolls over about every ten.
    for (int i = 0; i < 30; i++) {
        std::wstring text(98 - 3, L'a' + (i / 10));
        WCHAR line[128];
        swprintf(line, 128, L"%03d%ls", i, text.c_str());
        ASSERT_EQ(log.Write(0x10, nullptr, 0, L"%ls", line), S_OK);
    }
    log.Shutdown();
    ASSERT_TRUE(Exists(previous));
    EXPECT_FALSE(Exists(previous + L".previous"));
    std::string current = ReadShared(path);
    std::string older = ReadShared(previous);
    // The log passes its size by one line at most.
    EXPECT_LE(current.size(), 1000u + 100u);
    EXPECT_GE(older.size(), 1000u);
    EXPECT_LE(older.size(), 1000u + 100u);
    std::vector<std::string> a = Lines(older), b = Lines(current);
    ASSERT_FALSE(a.empty());
    ASSERT_FALSE(b.empty());
    // The older file holds the lines just before the current ones.
    EXPECT_EQ(atoi(a.back().substr(0, 3).c_str()) + 1, atoi(b.front().substr(0, 3).c_str()));
    EXPECT_EQ(b.back().substr(0, 3), "029");

    // A new session with an oversized log rolls over at its first line.
    ASSERT_EQ(log.Init(path.c_str(), 0x10, 50, 0), S_OK);
    ASSERT_EQ(log.Write(0x10, nullptr, 0, L"fresh"), S_OK);
    log.Shutdown();
    EXPECT_EQ(Lines(ReadShared(path)), std::vector<std::string>{"fresh"});
    EXPECT_EQ(ReadShared(previous), current);
}

TEST_F(LogWriter, BlockedRollOverKeepsLogging)
{
    ASSERT_EQ(log.Init(path.c_str(), 0x10, 10, 0x40), S_OK);
    ASSERT_EQ(log.Write(0x10, nullptr, 0, L"0123456789abc"), S_OK);
    // A reader without delete sharing keeps the log from being renamed:
    // the roll-over re-opens the same file and appends.
    HANDLE keep = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(keep, INVALID_HANDLE_VALUE);
    EXPECT_EQ(log.Write(0x10, nullptr, 0, L"still here"), S_OK);
    CloseHandle(keep);
    log.Shutdown();
    EXPECT_EQ(Lines(ReadShared(path)), (std::vector<std::string>{"0123456789abc", "still here"}));
}

TEST_F(LogWriter, TwoThreadsLoseAndInterleaveNothing)
{
    ASSERT_EQ(log.Init(path.c_str(), 0x10, 0, 0), S_OK);
    auto writer = [this](int id) {
        for (int i = 0; i < 10000; i++)
            log.Write(0x10, nullptr, 0, L"thread %d line %05d %ls", id, i, L"payload-payload-payload");
    };
    std::thread one(writer, 1), two(writer, 2);
    one.join();
    two.join();
    log.Shutdown();
    std::vector<std::string> lines = Lines(ReadShared(path));
    ASSERT_EQ(lines.size(), 20000u);
    int next[3] = {0, 0, 0};
    for (const std::string &line : lines) {
        int id = -1, n = -1;
        char tail[64] = {};
        ASSERT_EQ(sscanf(line.c_str(), "thread %d line %d %63s", &id, &n, tail), 3) << line;
        ASSERT_TRUE(id == 1 || id == 2) << line;
        ASSERT_EQ(n, next[id]) << line;
        ASSERT_STREQ(tail, "payload-payload-payload");
        ASSERT_EQ(line.size(), strlen("thread 1 line 00000 payload-payload-payload"));
        next[id]++;
    }
}

TEST(LogObject, InterfaceWritesTextVerbatimAndCountsReferences)
{
    zvtest::TempDir dir;
    std::wstring path = dir.file(L"com.log");
    IZvLogger *logger = nullptr;
    ASSERT_EQ(ZvLogger_Create(&logger), S_OK);
    IUnknown *unk = nullptr;
    ASSERT_EQ(logger->QueryInterface(IID_IUnknown, (void **)&unk), S_OK);
    EXPECT_EQ(unk, static_cast<IUnknown *>(logger));
    unk->Release();
    void *other = (void *)1;
    EXPECT_EQ(logger->QueryInterface(IID_IStream, &other), E_NOINTERFACE);
    EXPECT_EQ(other, nullptr);

    EXPECT_EQ(logger->Init(nullptr, 4, 0, 0), E_INVALIDARG);
    ASSERT_EQ(logger->Init(path.c_str(), 0x20007, -1, 0x20), S_OK);
    // A text with format characters is written as it stands.
    EXPECT_EQ(logger->Write(4, L"d:\\x\\m.cpp", 7, L"100% %s %d %n"), S_OK);
    EXPECT_EQ(logger->Write(4, nullptr, 8, nullptr), S_OK);
    EXPECT_EQ(logger->Write(8, L"m.cpp", 9, L"debug is not written"), S_OK);
    EXPECT_EQ(ZvLogger_Printf(logger, 1, L"m.cpp", 10, L"%d files", 3), S_OK);

    WCHAR name[MAX_PATH] = L"unchanged";
    EXPECT_EQ(logger->GetLogFileName(name, 0), S_OK);
    EXPECT_STREQ(name, L"unchanged");
    EXPECT_EQ(logger->GetLogFileName(name, MAX_PATH), S_OK);
    EXPECT_STREQ(name, path.c_str());
    EXPECT_EQ(logger->GetLogFileName(name, 4), S_OK);
    EXPECT_EQ(wcslen(name), 3u);

    EXPECT_EQ(logger->Shutdown(), S_OK);
    EXPECT_EQ(logger->Release(), 0u);
    std::vector<std::string> lines = Lines(ReadShared(path));
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "INFO           m.cpp(   7): 100% %s %d %n");
    EXPECT_EQ(lines[1], "INFO                (   8): ");
    EXPECT_EQ(lines[2], "ERR            m.cpp(  10): 3 files");
}

TEST(LogObject, TimingScopesAndTrace)
{
    ZvTiming_Reset();
    ULONGLONG count = 9, total = 9;
    EXPECT_FALSE(ZvTiming_Get("CZvFileIOManager::GetMetric", &count, &total));
    EXPECT_EQ(count, 0u);
    for (int i = 0; i < 3; i++) {
        ZV_TIMING_SCOPE("CZvFileIOManager::GetMetric");
        Sleep(2);
    }
    // The same name from another literal counts to the same entry.
    char copy[] = "CZvFileIOManager::GetMetric";
    { CZvTimingScope scope(copy); }
    EXPECT_TRUE(ZvTiming_Get("CZvFileIOManager::GetMetric", &count, &total));
    EXPECT_EQ(count, 4u);
    EXPECT_GE(total, 3000u);
    EXPECT_FALSE(ZvTiming_Get(nullptr, &count, nullptr));

    std::wstring huge(3000, L'q');
    ZvTrace(ZV_TRACE_FILEMNG, L"%ls", huge.c_str());
    ZvTrace(nullptr, nullptr);
}

// Serves one logger to another process.
ZVTEST_CHILD(logger_server)
{
    IZvLogger *logger = nullptr;
    if (FAILED(contracttest::InitComOnce()) || FAILED(ZvLogger_Create(&logger)))
        return 3;
    int rc = contracttest::ServeObject(logger, argc, argv);
    logger->Release();
    return rc;
}

TEST(LogObject, WorksFromAnotherProcess)
{
    ASSERT_TRUE(SUCCEEDED(contracttest::InitComOnce()));
    zvtest::TempDir dir;
    contracttest::ChildServer child("logger_server", dir.file(L"logger.bin"));
    ASSERT_NE(child.object(), nullptr);
    IZvLogger *logger = nullptr;
    ASSERT_EQ(child.object()->QueryInterface(IID_IZvLogger, (void **)&logger), S_OK);
    std::wstring path = dir.file(L"remote.log");
    EXPECT_EQ(logger->Init(path.c_str(), 0x20004, 0, 0x20), S_OK);
    // null texts and a buffer of 0 characters cross as such
    EXPECT_EQ(logger->Write(4, L"C:\\src\\remote.cpp", 5, L"across %s"), S_OK);
    EXPECT_EQ(logger->Write(4, nullptr, 6, nullptr), S_OK);
    WCHAR name[MAX_PATH] = L"unchanged";
    EXPECT_EQ(logger->GetLogFileName(name, 0), S_OK);
    EXPECT_EQ(logger->GetLogFileName(name, MAX_PATH), S_OK);
    EXPECT_STREQ(name, path.c_str());
    EXPECT_EQ(logger->Shutdown(), S_OK);
    logger->Release();
    EXPECT_EQ(Lines(ReadShared(path)),
              (std::vector<std::string>{"INFO      remote.cpp(   5): across %s", "INFO                (   6): "}));
}
