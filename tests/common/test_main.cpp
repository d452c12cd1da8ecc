// Entry of every test executable. A test may relaunch its own executable
// with "--child NAME ..." to play a second process; such a run executes the
// registered child routine instead of the tests.
#include <gtest/gtest.h>
#include <windows.h>
#include <cstring>
#include <cstdio>
#include "testutil.h"

int main(int argc, char **argv)
{
    if (argc >= 3 && strcmp(argv[1], "--child") == 0)
        return zvtest::RunChild(argv[2], argc - 3, argv + 3);
    // a failing test must never stop on a message box
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
