#pragma once
#include <gtest/gtest.h>
#include <windows.h>
#include <utility>
#include <vector>
#include "filemng/surrogatetable.h"

namespace zvtest {

// Every surrogate the table started, or the test itself: after the test
// each must have ended (within 3 s of the last clean-up, unless told
// otherwise); one still running is terminated and the test fails.
class ChildGuard {
public:
    ~ChildGuard() { check(); }
    void adopt(HANDLE process, DWORD pid) { children_.push_back({pid, process}); }
    // The last child adopted: its exit code, or STILL_ACTIVE when it runs past `ms`.
    DWORD waitExit(DWORD ms)
    {
        DWORD code = STILL_ACTIVE;
        if (!children_.empty() && WaitForSingleObject(children_.back().second, ms) == WAIT_OBJECT_0)
            GetExitCodeProcess(children_.back().second, &code);
        return code;
    }
    HANDLE handle() const { return children_.empty() ? NULL : children_.back().second; }
    DWORD pid() const { return children_.empty() ? 0 : children_.back().first; }
    void adoptTable()
    {
        ZVFIO_SURROGATETABLE *t = g_pZvFioSurrogateTable;
        for (LONG i = 0; t && i < t->used; ++i) {
            DWORD pid = t->slots[i].processId;
            if (!pid || pid == GetCurrentProcessId() || known(pid))
                continue;
            HANDLE h = OpenProcess(SYNCHRONIZE | PROCESS_TERMINATE | PROCESS_QUERY_INFORMATION, FALSE, pid);
            if (h)
                children_.push_back({pid, h});
        }
    }
    // True if every child ended within `ms`.
    bool waitAll(DWORD ms)
    {
        DWORD start = GetTickCount();
        for (auto &c : children_) {
            DWORD spent = GetTickCount() - start;
            if (WaitForSingleObject(c.second, spent < ms ? ms - spent : 0) != WAIT_OBJECT_0)
                return false;
        }
        return true;
    }
    size_t count() const { return children_.size(); }
    void check(DWORD ms = 3000)
    {
        for (auto &c : children_) {
            if (WaitForSingleObject(c.second, ms) != WAIT_OBJECT_0) {
                TerminateProcess(c.second, 1);
                WaitForSingleObject(c.second, 5000);
                ADD_FAILURE() << "Vantry.exe " << c.first << " was still running and had to be terminated";
            }
            CloseHandle(c.second);
        }
        children_.clear();
    }

private:
    bool known(DWORD pid) const
    {
        for (auto &c : children_)
            if (c.first == pid)
                return true;
        return false;
    }
    std::vector<std::pair<DWORD, HANDLE>> children_;
};

} // namespace zvtest
