// Hex and stack dumps and the report of an unhandled exception. Everything
// here writes narrow text into fixed buffers and tests memory before reading
// it, so that reporting a fault cannot fault or overrun.
#include "zverrint.h"
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

namespace {

// Room that must be left before a line is started: the widest line of a
// dump, which grows with the width of an address.
const int kLineRoom = 50 + 3 * static_cast<int>(sizeof(void *) - 4);

// Appends to a fixed narrow buffer; never overruns, always terminated.
class Out {
public:
    Out(char *buffer, int size) : buffer_(buffer), size_(buffer && size > 0 ? size : 0)
    {
        if (size_)
            buffer_[0] = 0;
    }
    bool room() const { return size_ - pos_ >= kLineRoom; }
    void printf(const char *format, ...)
    {
        if (pos_ >= size_ - 1)
            return;
        va_list args;
        va_start(args, format);
        int n = vsnprintf(buffer_ + pos_, size_ - pos_, format, args);
        va_end(args);
        if (n < 0)
            n = 0;
        pos_ += n < size_ - pos_ ? n : size_ - pos_ - 1;
    }
    int written() const { return pos_; }
private:
    char *buffer_;
    int size_;
    int pos_ = 0;
};

bool readable(const void *p, size_t n)
{
    return p && !IsBadReadPtr(p, n);
}

#ifdef _WIN64
typedef ULONGLONG Word;
#define ZV_WORD_FORMAT "%016llX "
#define ZV_WORD_UNREADABLE "................ "
#else
typedef DWORD Word;
#define ZV_WORD_FORMAT "%08lX "
#define ZV_WORD_UNREADABLE "........ "
#endif

void hexLines(Out &out, const BYTE *p, int bytes)
{
    for (int i = 0; i < bytes && out.room(); i += 8) {
        out.printf(" %p: ", static_cast<const void *>(p + i));
        char chars[9];
        int shown = 0;
        for (int j = 0; j < 8; ++j) {
            if (i + j >= bytes) {
                out.printf("   ");
                continue;
            }
            const BYTE *b = p + i + j;
            if (readable(b, 1)) {
                out.printf("%02X ", *b);
                chars[shown++] = (*b >= 0x20 && *b <= 0x7E) ? static_cast<char>(*b) : '.';
            } else {
                out.printf(".. ");
                chars[shown++] = '.';
            }
        }
        chars[shown] = 0;
        out.printf("%s\r\n", chars);
    }
}

const char *exceptionName(DWORD code)
{
    static const struct {
        DWORD code;
        const char *name;
    } kNames[] = {
        {0x80000001, "guard page violation"},  {0x80000002, "datatype misalignment"},
        {0x80000003, "breakpoint"},            {0x80000004, "single step"},
        {0xC0000005, "access violation"},      {0xC0000006, "in page error"},
        {0xC0000008, "invalid handle"},        {0xC0000017, "no memory"},
        {0xC000001D, "illegal instruction"},   {0xC0000025, "noncontinuable exception"},
        {0xC0000026, "invalid disposition"},   {0xC000008C, "array bounds exceeded"},
        {0xC000008D, "float denormal operand"}, {0xC000008E, "float divide by zero"},
        {0xC000008F, "float inexact result"},  {0xC0000090, "float invalid operation"},
        {0xC0000091, "float overflow"},        {0xC0000092, "float stack check"},
        {0xC0000093, "float underflow"},       {0xC0000094, "integer divide by zero"},
        {0xC0000095, "integer overflow"},      {0xC0000096, "privileged instruction"},
        {0xC00000FD, "stack overflow"},        {0xC000013A, "control+c exit"},
    };
    for (const auto &n : kNames) {
        if (n.code == code)
            return n.name;
    }
    return "Unknown Type";
}

// The allocation base of a committed area holding p, or null.
const BYTE *allocationBase(const void *p)
{
    MEMORY_BASIC_INFORMATION info;
    if (!VirtualQuery(p, &info, sizeof(info)) || info.State != MEM_COMMIT)
        return nullptr;
    return static_cast<const BYTE *>(info.AllocationBase);
}

bool moduleName(const BYTE *base, char *name, DWORD size)
{
    name[0] = 0;
    if (!base || !GetModuleFileNameA(reinterpret_cast<HMODULE>(const_cast<BYTE *>(base)), name, size))
        return false;
    const char *slash = strrchr(name, '\\');
    if (slash)
        memmove(name, slash + 1, strlen(slash + 1) + 1);
    return name[0] != 0;
}

struct StackLine {
    bool unreadable;
    bool module;
    bool low;
};

// One stack word: its address, value, and where the value points.
StackLine stackLine(Out &out, const Word *at, char lead)
{
    StackLine line = {false, false, false};
    out.printf("%c%p: ", lead, static_cast<const void *>(at));
    if (!readable(at, sizeof(Word))) {
        out.printf(ZV_WORD_UNREADABLE "\r\n");
        line.unreadable = true;
        return line;
    }
    Word value = *at;
    out.printf(ZV_WORD_FORMAT, value);
    const void *target = reinterpret_cast<const void *>(static_cast<UINT_PTR>(value));
    const BYTE *base = value > 0xFFFF ? allocationBase(target) : nullptr;
    if (base) {
        out.printf(" %p + %X ", static_cast<const void *>(base),
                   static_cast<unsigned>(static_cast<const BYTE *>(target) - base));
        char name[MAX_PATH];
        if (moduleName(base, name, sizeof(name))) {
            out.printf("(%s)", name);
            line.module = true;
            line.low = reinterpret_cast<UINT_PTR>(base) < 0x10000001;
        }
    }
    out.printf("\r\n");
    return line;
}

void stackDump(Out &out, const Word *sp, const Word *end)
{
    out.printf("Stack Dump:\r\n");
    if (!sp)
        return;
    // The first words from the stack pointer; to the end when little is left.
    size_t count = 16;
    if (end > sp && static_cast<size_t>(end - sp) >= 16 &&
        static_cast<size_t>(reinterpret_cast<const BYTE *>(end) - reinterpret_cast<const BYTE *>(sp + 16)) < 80)
        count = static_cast<size_t>(end - sp);
    int lowModules = 0;
    const Word *at = sp;
    for (size_t i = 0; i < count && out.room(); ++i, ++at) {
        StackLine line = stackLine(out, at, ' ');
        if (line.module && line.low)
            ++lowModules;
    }
    bool reachedEnd = end && at >= end;

    // Walk on for return addresses into modules.
    if (lowModules < 6 && end) {
        const Word *walk = reinterpret_cast<const Word *>(reinterpret_cast<const BYTE *>(sp) + 64);
        if (walk < at)
            walk = at;
        const Word *stop = reinterpret_cast<const Word *>(reinterpret_cast<const BYTE *>(end) - 16);
        int follow = 0, followTotal = 0;
        for (; walk < stop && out.room(); ++walk) {
            if (!readable(walk, sizeof(Word)))
                break;
            Word value = *walk;
            const BYTE *base = value > 0xFFFF
                                   ? allocationBase(reinterpret_cast<const void *>(static_cast<UINT_PTR>(value)))
                                   : nullptr;
            char name[MAX_PATH];
            if (base && moduleName(base, name, sizeof(name))) {
                StackLine line = stackLine(out, walk, '>');
                follow = 4;
                if (line.low && ++lowModules >= 6) {
                    ++walk;
                    break;
                }
            } else if (follow > 0 && followTotal < 16) {
                stackLine(out, walk, ' ');
                --follow;
                ++followTotal;
            }
        }
        if (walk >= stop)
            reachedEnd = true;
    }
    if (!reachedEnd && end && out.room()) {
        out.printf("- - -\r\n");
        for (const Word *w = end - 4; w < end && out.room(); ++w)
            stackLine(out, w, ' ');
    }
}

// The calling thread's stack: the committed area around a local reaches up
// to the stack's end; the reservation starts at its far limit.
void threadStack(const Word **limit, const Word **end)
{
    volatile int local = 0;
    MEMORY_BASIC_INFORMATION info;
    *limit = *end = nullptr;
    if (!VirtualQuery(const_cast<int *>(&local), &info, sizeof(info)))
        return;
    *limit = static_cast<const Word *>(info.AllocationBase);
    *end = reinterpret_cast<const Word *>(static_cast<const BYTE *>(info.BaseAddress) + info.RegionSize);
}

typedef void(WINAPI *UnmanagedExceptionProc)(EXCEPTION_POINTERS *);

void tellCrashReporter(EXCEPTION_POINTERS *pointers)
{
    HMODULE reporter = GetModuleHandleW(L"ErrorReport.dll");
    if (!reporter)
        return;
    UnmanagedExceptionProc proc = reinterpret_cast<UnmanagedExceptionProc>(
        reinterpret_cast<void *>(GetProcAddress(reporter, "ErrorReport_UnmanagedException")));
    if (proc)
        proc(pointers);
}

} // namespace

int ZvErrorHandler_DumpHex(char *buffer, int size, const void *address, int bytes)
{
    Out out(buffer, size);
    if (bytes > 0)
        hexLines(out, static_cast<const BYTE *>(address), bytes);
    return out.written();
}

int ZvErrorHandler_DumpHexDWords(char *buffer, int size, const void *address, int words)
{
    Out out(buffer, size);
    const DWORD *p = static_cast<const DWORD *>(address);
    for (int i = 0; i < words && out.room(); i += 4) {
        out.printf(" %p: ", static_cast<const void *>(p + i));
        for (int j = 0; j < 4 && i + j < words; ++j) {
            if (readable(p + i + j, sizeof(DWORD)))
                out.printf("%08lX ", static_cast<unsigned long>(p[i + j]));
            else
                out.printf("........ ");
        }
        out.printf("\r\n");
    }
    return out.written();
}

void ZvErrorHandler_DumpExceptionRecord(char *buffer, int size, const char *threadName, EXCEPTION_POINTERS *pointers,
                                        DWORD sections)
{
    Out out(buffer, size);
    if (!pointers || !readable(pointers, sizeof(*pointers)))
        return;
    tellCrashReporter(pointers);
    if (!sections)
        sections = 255;
    const EXCEPTION_RECORD *record =
        readable(pointers->ExceptionRecord, sizeof(EXCEPTION_RECORD)) ? pointers->ExceptionRecord : nullptr;
    const CONTEXT *context = readable(pointers->ContextRecord, sizeof(CONTEXT)) ? pointers->ContextRecord : nullptr;
#ifdef _WIN64
    const void *ip = context ? reinterpret_cast<const void *>(context->Rip)
                             : (record ? record->ExceptionAddress : nullptr);
    const Word *sp = context ? reinterpret_cast<const Word *>(context->Rsp) : nullptr;
#else
    const void *ip = context ? reinterpret_cast<const void *>(context->Eip)
                             : (record ? record->ExceptionAddress : nullptr);
    const Word *sp = context ? reinterpret_cast<const Word *>(context->Esp) : nullptr;
#endif

    if ((sections & 1) && record && out.room()) {
        char access[64] = "";
        if (record->ExceptionCode == EXCEPTION_ACCESS_VIOLATION && record->NumberParameters >= 2)
            snprintf(access, sizeof(access), " %s:0x%p", record->ExceptionInformation[0] ? "WRITE" : "READ",
                     reinterpret_cast<void *>(record->ExceptionInformation[1]));
        out.printf("Exception 0x%lX (%s)%s IP:0x%p\r\n", static_cast<unsigned long>(record->ExceptionCode),
                   exceptionName(record->ExceptionCode), access, ip);
    }
    if ((sections & 2) && out.room()) {
        const BYTE *base = ip ? allocationBase(ip) : nullptr;
        char name[MAX_PATH];
        if (!moduleName(base, name, sizeof(name)))
            lstrcpyA(name, "?");
        out.printf("In Module '%s' at Address 0x%p + 0x%p\r\n", name, static_cast<const void *>(base),
                   reinterpret_cast<void *>(base ? static_cast<const BYTE *>(ip) - base : 0));
    }
    // The stack of the reporting thread, which is the faulting one in a filter.
    const Word *stackLimit, *stackEnd;
    threadStack(&stackLimit, &stackEnd);
    if ((sections & 32) && out.room()) {
        char stack[64];
        snprintf(stack, sizeof(stack), "0x%p-0x%p", static_cast<const void *>(stackLimit),
                 static_cast<const void *>(stackEnd));
        out.printf("Thread: %s ID=0x%lX Stack=%s\r\n", threadName ? threadName : "",
                   static_cast<unsigned long>(GetCurrentThreadId()), stack);
    }
    if ((sections & 4) && context && out.room()) {
        out.printf("Registers:\r\n");
#ifdef _WIN64
        const CONTEXT &c = *context;
        out.printf(" RAX=%016llx CS=%04x RIP=%016llx EFLGS=%08lx\r\n", c.Rax, c.SegCs, c.Rip, c.EFlags);
        out.printf(" RBX=%016llx SS=%04x RSP=%016llx RBP=%016llx\r\n", c.Rbx, c.SegSs, c.Rsp, c.Rbp);
        out.printf(" RCX=%016llx DS=%04x RSI=%016llx FS=%04x\r\n", c.Rcx, c.SegDs, c.Rsi, c.SegFs);
        out.printf(" RDX=%016llx ES=%04x RDI=%016llx GS=%04x\r\n", c.Rdx, c.SegEs, c.Rdi, c.SegGs);
        out.printf(" R8 =%016llx R9 =%016llx R10=%016llx R11=%016llx\r\n", c.R8, c.R9, c.R10, c.R11);
        out.printf(" R12=%016llx R13=%016llx R14=%016llx R15=%016llx\r\n", c.R12, c.R13, c.R14, c.R15);
#else
        const CONTEXT &c = *context;
        out.printf(" EAX=%08lx CS=%04lx EIP=%08lx EFLGS=%08lx\r\n", c.Eax, c.SegCs, c.Eip, c.EFlags);
        out.printf(" EBX=%08lx SS=%04lx ESP=%08lx EBP=%08lx\r\n", c.Ebx, c.SegSs, c.Esp, c.Ebp);
        out.printf(" ECX=%08lx DS=%04lx ESI=%08lx FS=%04lx\r\n", c.Ecx, c.SegDs, c.Esi, c.SegFs);
        out.printf(" EDX=%08lx ES=%04lx EDI=%08lx GS=%04lx\r\n", c.Edx, c.SegEs, c.Edi, c.SegGs);
#endif
    }
    if ((sections & 8) && ip && out.room()) {
#ifdef _WIN64
        out.printf("Bytes at CS:RIP:\r\n");
#else
        out.printf("Bytes at CS:EIP:\r\n");
#endif
        hexLines(out, static_cast<const BYTE *>(ip), 16);
    }
    if ((sections & 16) && sp && out.room()) {
        // A stack pointer outside this thread's stack has no known end.
        const Word *end = (stackEnd && sp >= stackLimit && sp < stackEnd) ? stackEnd : nullptr;
        stackDump(out, sp, end);
    }
}

LONG ZvErrorHandler_ExceptionFilter(EXCEPTION_POINTERS *pointers, const char *threadName)
{
    if (!pointers || !readable(pointers, sizeof(*pointers)))
        return EXCEPTION_CONTINUE_SEARCH;
    if (pointers->ExceptionRecord && readable(pointers->ExceptionRecord, sizeof(EXCEPTION_RECORD)) &&
        pointers->ExceptionRecord->ExceptionCode == 0x80000002)
        return EXCEPTION_CONTINUE_SEARCH;
    static char dump[4096];
    ZvErrorHandler_DumpExceptionRecord(dump, sizeof(dump), threadName, pointers, 0);

    typedef BOOL(WINAPI * DebuggerProc)(void);
    HMODULE kernel = GetModuleHandleW(L"KERNEL32");
    DebuggerProc debugger =
        kernel ? reinterpret_cast<DebuggerProc>(reinterpret_cast<void *>(GetProcAddress(kernel, "IsDebuggerPresent")))
               : nullptr;
    if (debugger && debugger())
        return EXCEPTION_CONTINUE_SEARCH;

    ZvErrorHandler_DetailsInit();
    ZvErrorHandler_DetailsAddString(ZVERR_EXCEPTION, L"%s", zverr_AppTitle());
    static wchar_t wide[4096];
    MultiByteToWideChar(CP_ACP, 0, dump, -1, wide, ARRAYSIZE(wide));
    wide[ARRAYSIZE(wide) - 1] = 0;
    ZvErrorHandler_DetailsAddString(ZVERR_EXCEPTION, L"%s", wide);
    ZvErrorHandler_MsgBoxText(nullptr, MB_ICONEXCLAMATION,
                              ZvErrorHandler_GetErrorMessage(0, ZVERR_EXCEPTION, nullptr), nullptr);
    return EXCEPTION_EXECUTE_HANDLER;
}
