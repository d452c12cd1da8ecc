// Hosts as a user runs them: copies of zvfio.exe in folders of their own,
// with the data files in the user's folders. A surrogate that can't start
// is told as such and leaves nothing in the cache; two hosts of one product
// starting at once on an empty cache leave a whole one.
#include <gtest/gtest.h>
#include "mockreader.h"
#include "testutil.h"
#include <shlobj.h>
#include <memory>
#include <set>
#include <string>
#include <vector>

using namespace idtest;
using zvtest::Ini;

namespace {

std::wstring Bin(const wchar_t *name) { return zvtest::ExeDir() + name; }

// A host folder: `product`.exe (a copy of zvfio.exe), pcm.dll and its
// configuration, with the PCM reader in group `group` when it is above 0,
// and the surrogate beside it when asked.
std::wstring MakeHost(const zvtest::TempDir &folder, const wchar_t *product, int group, bool surrogate)
{
    const std::wstring &dir = folder.path();
    EXPECT_TRUE(CopyFileW(Bin(L"zvfio.exe").c_str(), (dir + L"\\" + product + L".exe").c_str(), FALSE));
    EXPECT_TRUE(CopyFileW(Bin(L"pcm.dll").c_str(), (dir + L"\\pcm.dll").c_str(), FALSE));
    std::string config = "[FileIO Plug-Ins]\r\nPcm=pcm.dll\r\n";
    if (group > 0)
        config += "\r\n[Pcm]\r\nSurrogate=" + std::to_string(group) + "\r\n";
    WriteTemp(dir, L"pcm.Fio2007-Config", std::vector<unsigned char>(config.begin(), config.end()));
    if (surrogate) {
        CreateDirectoryW((dir + L"\\x86").c_str(), nullptr);
        EXPECT_TRUE(CopyFileW(Bin(L"x86\\Vantry.exe").c_str(), (dir + L"\\x86\\Vantry.exe").c_str(), FALSE));
    }
    return dir;
}

// The plug-in cache of a product, in the user's local folder.
std::wstring CacheOf(const wchar_t *product)
{
    wchar_t local[MAX_PATH] = L"";
    SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA, nullptr, 0, local);
    wchar_t name[64];
    _snwprintf(name, 64, L"FFCache_x86_%d.ini", (int)GetSystemDefaultLCID());
    return std::wstring(local) + L"\\" + product + L"\\" + name;
}

// One run of a host with its output (both streams) in a file.
struct HostRun {
    PROCESS_INFORMATION pi = {};
    zvtest::TempDir logDir;
    std::wstring log = logDir.file(L"out.txt");
    bool started = false;

    HostRun(const std::wstring &exe, const std::wstring &args)
    {
        SECURITY_ATTRIBUTES sa = {sizeof sa, nullptr, TRUE};
        HANDLE out = CreateFileW(log.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &sa, CREATE_ALWAYS, 0, nullptr);
        STARTUPINFOW si = {};
        si.cb = sizeof si;
        si.dwFlags = STARTF_USESTDHANDLES;
        si.hStdOutput = si.hStdError = out;
        si.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
        std::wstring line = L"\"" + exe + L"\" " + args;
        started = CreateProcessW(nullptr, &line[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &si, &pi);
        CloseHandle(out);
    }
    // The exit code, -1 when it didn't start or didn't end within a minute.
    int wait(std::string *text = nullptr)
    {
        DWORD code = (DWORD)-1;
        if (started) {
            if (WaitForSingleObject(pi.hProcess, 60000) != WAIT_OBJECT_0)
                TerminateProcess(pi.hProcess, (UINT)-1);
            GetExitCodeProcess(pi.hProcess, &code);
            CloseHandle(pi.hProcess);
            CloseHandle(pi.hThread);
            started = false;
        }
        std::vector<unsigned char> bytes;
        zvtest::ReadFileBytes(log, bytes);
        if (text)
            text->assign(bytes.begin(), bytes.end());
        return (int)code;
    }
};

int RunHost(const std::wstring &exe, const wchar_t *args, std::string *text)
{
    return HostRun(exe, args).wait(text);
}

// The cache is whole: it starts with a section, no section is there twice,
// and the DLL's section names a path, time and its class sections in full.
::testing::AssertionResult CacheIsWhole(const std::wstring &file, const std::set<std::wstring> &paths)
{
    std::vector<unsigned char> bytes;
    if (!zvtest::ReadFileBytes(file, bytes) || bytes.empty())
        return ::testing::AssertionFailure() << "no cache file";
    std::string text(bytes.begin(), bytes.end());
    size_t first = text.find_first_not_of(" \r\n\t");
    if (first == std::string::npos || text[first] != '[')
        return ::testing::AssertionFailure() << "starts inside a section:\n" << text.substr(0, 200);
    std::set<std::string> sections;
    for (size_t at = 0; at < text.size();) {
        size_t end = text.find('\n', at);
        std::string line = text.substr(at, end == std::string::npos ? std::string::npos : end - at);
        at = end == std::string::npos ? text.size() : end + 1;
        if (!line.empty() && line[0] == '[' && !sections.insert(line).second)
            return ::testing::AssertionFailure() << "section twice: " << line;
    }
    if (!paths.count(Ini(file, L"pcm", L"Path")))
        return ::testing::AssertionFailure() << "[pcm] has no path of a host:\n" << text;
    if (Ini(file, L"pcm", L"ModTime") == L"<none>")
        return ::testing::AssertionFailure() << "[pcm] has no time:\n" << text;
    wchar_t keys[2048];
    DWORD n = GetPrivateProfileStringW(L"pcm", nullptr, L"", keys, 2048, file.c_str());
    int classes = 0;
    for (wchar_t *k = keys; k < keys + n && *k; k += wcslen(k) + 1) {
        if (*k != L'{')
            continue;
        ++classes;
        std::wstring section = std::wstring(L"pcm.") + k;
        for (const wchar_t *key : {L"Access", L"Flags", L"StreamType"})
            if (Ini(file, section.c_str(), key) == L"<none>")
                return ::testing::AssertionFailure() << "class section incomplete:\n" << text;
        if (Ini(file, k, L"LangID") == L"<none>")
            return ::testing::AssertionFailure() << "class strings missing:\n" << text;
    }
    if (!classes)
        return ::testing::AssertionFailure() << "[pcm] lists no class:\n" << text;
    return ::testing::AssertionSuccess();
}

} // namespace

TEST(ColdStart, SurrogateThatCannotStartIsToldAndNotCached)
{
    const wchar_t *product = L"zvnolaunch";
    const std::wstring cache = CacheOf(product);
    DeleteFileW(cache.c_str());
    zvtest::TempDir folder;
    const std::wstring dir = MakeHost(folder, product, 1, false);
    const std::wstring exe = dir + L"\\" + product + L".exe";
    std::wstring wave = WriteTemp(dir, L"tone.wav", WaveBytes(100));
    const std::wstring identify = L"identify \"" + wave + L"\"";

    std::string text;
    EXPECT_EQ(1, RunHost(exe, L"plugins --rescan --load", &text)) << text;
    EXPECT_NE(std::string::npos, text.find("could not be started")) << text;
    EXPECT_EQ(std::string::npos, text.find("no plug-ins found")) << text;
    EXPECT_EQ(L"<none>", Ini(cache, L"pcm", L"Path")) << "the failure went into the cache";
    EXPECT_EQ(1, RunHost(exe, identify.c_str(), &text)) << text;
    EXPECT_NE(std::string::npos, text.find("could not be started")) << text;

    // with the surrogate back, the next start works without a rescan
    CreateDirectoryW((dir + L"\\x86").c_str(), nullptr);
    ASSERT_TRUE(CopyFileW(Bin(L"x86\\Vantry.exe").c_str(), (dir + L"\\x86\\Vantry.exe").c_str(), FALSE));
    EXPECT_EQ(0, RunHost(exe, L"plugins --load", &text)) << text;
    EXPECT_NE(std::string::npos, text.find("loaded, surrogate pid")) << text;
    EXPECT_EQ(0, RunHost(exe, identify.c_str(), &text)) << text;
    EXPECT_EQ(dir + L"\\pcm.dll", Ini(cache, L"pcm", L"Path"));

    // and a surrogate gone again is told as such for the cached plug-in too
    ASSERT_TRUE(DeleteFileW((dir + L"\\x86\\Vantry.exe").c_str()));
    EXPECT_EQ(1, RunHost(exe, identify.c_str(), &text)) << text;
    EXPECT_NE(std::string::npos, text.find("could not be started")) << text;
    EXPECT_EQ(dir + L"\\pcm.dll", Ini(cache, L"pcm", L"Path")) << "the cached entry stays";

    DeleteFileW(cache.c_str());
}

TEST(ColdStart, TwoHostsOfOneProductLeaveAWholeCache)
{
    // One host reads in process, the other through its surrogate; each
    // takes the other's entry for a stale one and writes its own. Fifty
    // rounds, as five pairs of products side by side, ten times.
    const int kPairs = 5, kTimes = 10;
    struct Pair {
        std::wstring product, cache, inProc, routed;
        std::set<std::wstring> paths;
        zvtest::TempDir inProcDir, routedDir;
    };
    std::vector<std::unique_ptr<Pair>> owned;
    for (int p = 0; p < kPairs; ++p) {
        owned.emplace_back(new Pair);
        Pair &x = *owned.back();
        x.product = L"zvcold" + std::to_wstring(p);
        x.cache = CacheOf(x.product.c_str());
        x.inProc = MakeHost(x.inProcDir, x.product.c_str(), -1, false);
        x.routed = MakeHost(x.routedDir, x.product.c_str(), 1, true);
        x.paths = {x.inProc + L"\\pcm.dll", x.routed + L"\\pcm.dll"};
    }
    for (int round = 0; round < kTimes; ++round) {
        std::vector<std::unique_ptr<HostRun>> runs;
        for (auto &p : owned) {
            Pair &x = *p;
            DeleteFileW(x.cache.c_str());
            runs.emplace_back(new HostRun(x.inProc + L"\\" + x.product + L".exe", L"plugins"));
            runs.emplace_back(new HostRun(x.routed + L"\\" + x.product + L".exe", L"plugins"));
        }
        for (size_t k = 0; k < runs.size(); ++k) {
            std::string text;
            EXPECT_EQ(0, runs[k]->wait(&text)) << "round " << round << ", host " << k << "\n" << text;
        }
        for (auto &p : owned)
            ASSERT_TRUE(CacheIsWhole(p->cache, p->paths)) << "round " << round << ", " << p->cache;
    }
    for (auto &p : owned)
        DeleteFileW(p->cache.c_str());
}
