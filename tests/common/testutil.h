// Helpers shared by the test executables.
#pragma once
#include <windows.h>
#include <string>
#include <vector>

namespace zvtest {

// A routine that a relaunched test executable runs as "--child NAME args".
typedef int (*ChildRoutine)(int argc, char **argv);
struct ChildRegistration {
    ChildRegistration(const char *name, ChildRoutine routine);
};
#define ZVTEST_CHILD(name) \
    static int zvchild_##name(int argc, char **argv); \
    static ::zvtest::ChildRegistration zvchildreg_##name(#name, zvchild_##name); \
    static int zvchild_##name(int argc, char **argv)
int RunChild(const char *name, int argc, char **argv);

// Full path of the running executable and of its folder (with a trailing "\").
std::wstring ExePath();
std::wstring ExeDir();
// The test plug-ins' folder (with a trailing "\"): bin\testkit, kept out of
// the program folder so that the tools there never list them; or the
// running executable's own folder when it was copied there.
std::wstring TestkitDir();

// A fresh empty folder below the temporary folder, removed with its files
// when the object goes.
class TempDir {
public:
    TempDir();
    ~TempDir();
    const std::wstring &path() const { return path_; }
    std::wstring file(const wchar_t *name) const { return path_ + L"\\" + name; }
private:
    std::wstring path_;
};

// Whole-file helpers; the file may be open elsewhere for writing.
bool WriteFileBytes(const std::wstring &path, const void *data, size_t size);
bool ReadFileBytes(const std::wstring &path, std::vector<unsigned char> &out);
// Removes a folder with everything below it.
void RemoveTree(const std::wstring &dir);
// One value of an .ini file, "<none>" when it is missing.
std::wstring Ini(const std::wstring &file, const std::wstring &section, const std::wstring &key);

// Runs a command line in `folder` (null: this one) and returns its exit
// code: 1000 when it doesn't start, 1001 when it runs past `ms` (then it
// is terminated).
DWORD RunProcess(std::wstring commandLine, const wchar_t *folder = nullptr, DWORD ms = 60000);
// The same with this executable as "--child NAME args".
DWORD RunChildProcess(const std::wstring &nameAndArgs, const wchar_t *folder = nullptr, DWORD ms = 60000);

// A small seeded generator for mutation tests, the same sequence everywhere.
struct Rng {
    unsigned long long s;
    unsigned next()
    {
        s = s * 6364136223846793005ull + 1442695040888963407ull;
        return (unsigned)(s >> 33);
    }
    unsigned below(unsigned n) { return n ? next() % n : 0; }
};

// A folder the test scripts name by a host path in environment variable
// `var`, as a Windows path with a trailing "\"; "" when the variable is unset.
std::wstring HostDirFromEnv(const char *var);

// An object of class `clsid` from plug-in `dll` beside this executable.
HRESULT CreateFromDll(const wchar_t *dll, const GUID &clsid, REFIID iid, void **out);

// Busy blocks in all heaps of the process: what a leak leaves behind.
long long HeapBusyBlocks();

} // namespace zvtest
