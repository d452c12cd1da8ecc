#include "zvfio.h"
#include "zvprintf.h"
#include "zverror.h"
#include "zvkernel.h"
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

namespace zvfio {

bool Args::has(const wchar_t *name) const
{
    for (const std::wstring &o : options)
        if (o == name || (o.compare(0, wcslen(name), name) == 0 && o[wcslen(name)] == L'='))
            return true;
    return false;
}

bool Args::value(const wchar_t *name, std::wstring *out) const
{
    size_t n = wcslen(name);
    for (const std::wstring &o : options)
        if (o.compare(0, n, name) == 0 && o.size() > n && o[n] == L'=') {
            *out = o.substr(n + 1);
            return true;
        }
    return false;
}

static void Print(FILE *to, const char *format, va_list args)
{
    vfprintf(to, format, args);
    fflush(to);
}

void Out(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    Print(stdout, format, args);
    va_end(args);
}

void Err(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    Print(stderr, format, args);
    va_end(args);
}

std::string Utf8(const std::wstring &text)
{
    if (text.empty())
        return std::string();
    int n = WideCharToMultiByte(CP_UTF8, 0, text.c_str(), (int)text.size(), nullptr, 0, nullptr, nullptr);
    std::string s((size_t)(n > 0 ? n : 0), '\0');
    if (n > 0)
        WideCharToMultiByte(CP_UTF8, 0, text.c_str(), (int)text.size(), &s[0], n, nullptr, nullptr);
    return s;
}

std::string JsonString(const std::string &text)
{
    std::string s = "\"";
    for (unsigned char c : text) {
        switch (c) {
        case '"': s += "\\\""; break;
        case '\\': s += "\\\\"; break;
        case '\n': s += "\\n"; break;
        case '\r': s += "\\r"; break;
        case '\t': s += "\\t"; break;
        default:
            if (c < 0x20) {
                char buf[8];
                snprintf(buf, sizeof buf, "\\u%04x", c);
                s += buf;
            } else {
                s += (char)c;
            }
        }
    }
    return s + "\"";
}

} // namespace zvfio

using namespace zvfio;

static const Command *const kCommands[] = {
    &kChunksCommand, &kRepairCommand, &kPluginsCommand, &kIdentifyCommand, &kInfoCommand, &kReadCommand,
    &kFiltersCommand, &kTemplatesCommand, &kRenderCommand, &kMetaCommand, &kValidateCommand,
};

static void Usage(FILE *to)
{
    fprintf(to, "usage: zvfio COMMAND [options] FILE...\n\ncommands:\n");
    for (const Command *c : kCommands)
        fprintf(to, "  %-10s %s\n", c->name, c->summary);
    fprintf(to, "\n--apartment=sta|mta (any command): run it on a single-threaded apartment\n"
                "with a message loop, as a window thread (default), or in the multithreaded one.\n");
    fprintf(to, "\n'zvfio COMMAND --help' describes one command. Exit code 0 on success,\n"
                "1 on a failure (with the system's error text), 2 on wrong usage.\n");
}

// Whether the command takes the option "--name", and whether with a value.
static bool TakesOption(const Command *command, const std::string &name, bool *takesValue)
{
    const char *list = command->options ? command->options : "";
    while (*list) {
        while (*list == ' ')
            list++;
        const char *end = list;
        while (*end && *end != ' ')
            end++;
        size_t n = (size_t)(end - list);
        const bool value = n > 0 && list[n - 1] == '=';
        if (value)
            n--;
        if (n > 0 && name.size() == n && name.compare(0, n, list, n) == 0) {
            *takesValue = value;
            return true;
        }
        list = end;
    }
    return false;
}

// The first line of a command's help, which is its usage line.
static std::string UsageLine(const Command *command)
{
    std::string help = command->help;
    return help.substr(0, help.find('\n') + 1);
}

std::string zvfio::ErrorText(HRESULT hr)
{
    // the result's sentence alone; the handler's text opens with a line break
    const wchar_t *text = ZvErrorHandler_GetHresultString(hr);
    if (!text)
        text = ZvErrorHandler_GetErrorMessage(0, hr, nullptr);
    std::string message = Utf8(text ? text : L"");
    message.erase(0, message.find_first_not_of("\r\n "));
    for (char &c : message)
        if (c == '\r' || c == '\n')
            c = ' ';
    const std::string token = "$(AppName)";
    for (size_t at; (at = message.find(token)) != std::string::npos;)
        message.replace(at, token.size(), "zvfio");
    return message;
}

// A message box raised anywhere below is answered at once and its text goes
// to stderr: nothing of this tool waits for a user.
static void WINAPI LogBox(const wchar_t *text)
{
    Err("zvfio: %s\n", Utf8(text ? text : L"").c_str());
}

static int Dispatch(int argc, wchar_t **argv)
{
    ZvMsgBoxSetNoUIHook(LogBox);
    // texts formatted by the kernel name the application through this token
    ZvPrintF_AddToken(L"AppName", L"zvfio");
    if (argc < 2) {
        Usage(stderr);
        return 2;
    }
    std::wstring name = argv[1];
    if (name == L"--help" || name == L"-h" || name == L"help") {
        Usage(stdout);
        return 0;
    }
    const Command *command = nullptr;
    for (const Command *c : kCommands)
        if (Utf8(name) == c->name)
            command = c;
    if (!command) {
        Err("zvfio: unknown command '%s'\n\n", Utf8(name).c_str());
        Usage(stderr);
        return 2;
    }
    Args args;
    bool help = false;
    bool optionsEnd = false;
    for (int i = 2; i < argc; i++) {
        std::wstring a = argv[i];
        if (optionsEnd || a.size() < 2 || a.compare(0, 2, L"--") != 0 || a == L"-") {
            if (a == L"-h" && !optionsEnd)
                help = true;
            else
                args.files.push_back(a);
            continue;
        }
        if (a == L"--") {
            optionsEnd = true;
            continue;
        }
        if (a == L"--help") {
            help = true;
            continue;
        }
        const std::wstring::size_type eq = a.find(L'=');
        const std::string optName = Utf8(a.substr(0, eq));
        bool takesValue = false;
        if (!TakesOption(command, optName, &takesValue)) {
            Err("zvfio %s: unknown option '%s'\n", command->name, Utf8(a).c_str());
            Err("%s", UsageLine(command).c_str());
            return 2;
        }
        if (takesValue && eq == std::wstring::npos) {
            if (i + 1 >= argc) {
                Err("zvfio %s: option '%s' needs a value\n", command->name, optName.c_str());
                Err("%s", UsageLine(command).c_str());
                return 2;
            }
            a += L"=";
            a += argv[++i];
        } else if (!takesValue && eq != std::wstring::npos) {
            Err("zvfio %s: option '%s' takes no value\n", command->name, optName.c_str());
            Err("%s", UsageLine(command).c_str());
            return 2;
        }
        if (a == L"--json")
            args.json = true;
        else
            args.options.push_back(a);
    }
    if (help) {
        Out("%s", command->help);
        return 0;
    }
    ZvKernel_EarlyInitialize(GetModuleHandleW(nullptr), 0, nullptr);
    HRESULT hr = command->run(args);
    if (hr == ZVFIO_E_USAGE) {
        Err("%s", command->help);
        return 2;
    }
    if (hr == ZVFIO_E_NOTYET) {
        Err("zvfio %s: not available yet: the file I/O manager doesn't identify and open files in this build\n",
            command->name);
        return 1;
    }
    if (hr == ZVFIO_E_REPORTED)
        return 1;
    if (FAILED(hr)) {
        std::string message = args.files.size() == 1 ? FailureText(args.files[0], hr) : ErrorText(hr);
        std::string where = args.files.size() == 1 ? Utf8(args.files[0]) + ": " : std::string();
        Err("zvfio %s: %s%s (0x%08lX)\n", command->name, where.c_str(), message.c_str(), (unsigned long)hr);
        return 1;
    }
    return 0;
}

int wmain(int argc, wchar_t **argv)
{
    return RunInApartment(argc, argv, Dispatch);
}
