// A second process that serves one test object across a process border: it
// marshals the object into a file and keeps serving calls until the parent
// says it is done (or has gone).
#pragma once
#include <windows.h>
#include <objbase.h>
#include <string>

namespace contracttest {

// Joins the multithreaded apartment for the rest of the process and
// registers the contract's proxies there once. The apartment is never left:
// proxy registrations live as long as the apartment does.
HRESULT InitComOnce();

// Starts this executable as the child `routine` with the marshal file as
// argument and waits until the object is there. Returns the unmarshalled
// object (one reference) or null.
class ChildServer {
public:
    ChildServer(const char *routine, const std::wstring &marshalFile);
    ~ChildServer();
    IUnknown *object() const { return object_; }
    DWORD processId() const { return pi_.dwProcessId; }
private:
    PROCESS_INFORMATION pi_ = {};
    HANDLE done_ = NULL;
    IUnknown *object_ = nullptr;
};

// In the child: publishes `object` through the marshal file named by argv[0]
// and serves it until the parent is done. Returns the exit code.
int ServeObject(IUnknown *object, int argc, char **argv);

} // namespace contracttest
