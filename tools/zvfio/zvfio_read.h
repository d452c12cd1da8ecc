// What the read commands share: the output file that appears only when the
// read completed, progress on standard error, and the video side of read
// and info (zvfio_video.cpp).
#pragma once
#include "zvfio.h"
#include "zverror.h"
#include "zvplugin.h"
#include <stdio.h>
#include <io.h>

namespace zvfio {

// Set by Ctrl-C or Ctrl-Break while a read runs; the read stops and cleans up.
inline volatile LONG g_interrupted = 0;

inline BOOL WINAPI OnInterrupt(DWORD event)
{
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)
        return FALSE;
    InterlockedExchange(&g_interrupted, 1);
    return TRUE;
}

// Where read --raw puts the samples.
struct RawOutput {
    HANDLE handle = INVALID_HANDLE_VALUE;
    bool toStdout = false;
    std::wstring path, temp;
    HRESULT Open(const std::wstring &target)
    {
        if (target == L"-") {
            toStdout = true;
            fflush(stdout);
            handle = GetStdHandle(STD_OUTPUT_HANDLE);
            return handle && handle != INVALID_HANDLE_VALUE ? S_OK : E_HANDLE;
        }
        DWORD attributes = GetFileAttributesW(target.c_str());
        if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY))
            return HRESULT_FROM_WIN32(ERROR_DIRECTORY);
        path = target;
        temp = target + L".zvfio-partial";
        handle = CreateFileW(temp.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
        if (handle == INVALID_HANDLE_VALUE)
            return ZvErrorHandler_TranslateWin32Error(GetLastError());
        SetConsoleCtrlHandler(OnInterrupt, TRUE);
        return S_OK;
    }
    HRESULT Finish()
    {
        if (toStdout || handle == INVALID_HANDLE_VALUE)
            return S_OK;
        CloseHandle(handle);
        handle = INVALID_HANDLE_VALUE;
        if (!MoveFileExW(temp.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING)) {
            HRESULT hr = ZvErrorHandler_TranslateWin32Error(GetLastError());
            DeleteFileW(temp.c_str());
            return hr;
        }
        return S_OK;
    }
    void Discard()
    {
        if (toStdout || handle == INVALID_HANDLE_VALUE)
            return;
        CloseHandle(handle);
        handle = INVALID_HANDLE_VALUE;
        DeleteFileW(temp.c_str());
    }
    ~RawOutput() { Discard(); }
};

// Frames read so far on standard error, when it is a terminal (--progress
// forces it, --quiet silences it), at most four times a second.
class Progress {
public:
    Progress(const Args &args, LONGLONG total) : total_(total)
    {
        on_ = !args.has(L"--quiet") && (args.has(L"--progress") || _isatty(_fileno(stderr)));
    }
    void Show(LONGLONG done)
    {
        DWORD now = GetTickCount();
        if (!on_ || now - last_ < 250)
            return;
        last_ = now;
        Err("\r%3d%%  %lld of %lld frames", total_ > 0 ? (int)(done * 100 / total_) : 100, (long long)done,
            (long long)total_);
        shown_ = true;
    }
    void Done()
    {
        if (shown_)
            Err("\r%60s\r", "");
    }

private:
    LONGLONG total_;
    bool on_ = false, shown_ = false;
    DWORD last_ = GetTickCount() - 1000; // the first call shows
};

// read --stream video: every frame of the first video stream.
HRESULT ReadVideo(const Args &args);
// info's description of a video stream: size, rate, FourCC and its name.
std::string DescribeVideo(const _ZVFILESTREAMFORMATINFOv2 &info, bool json);

} // namespace zvfio
