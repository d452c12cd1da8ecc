// zvfio: command-line host of the file I/O library. Each command is one
// function with its own help text; main() dispatches, and turns a failed
// result into the system's error text and a non-zero exit code.
#pragma once
#include <windows.h>
#include <string>
#include <vector>

namespace zvfio {

// The arguments after the command name, with the common switches taken out.
struct Args {
    std::vector<std::wstring> files;     // plain arguments in order
    std::vector<std::wstring> options;   // "--name" or "--name=value", as given
    bool json = false;
    bool has(const wchar_t *name) const;
    // value of "--name=value" or of "--name value" (then taken from files)
    bool value(const wchar_t *name, std::wstring *out) const;
};

// A command: its name, one line of summary, its help text, the options it
// takes, and its body. `options` lists them separated by spaces; a name that
// ends with '=' takes a value, given as "--name=value" or "--name value"
// (both reach the body as "--name=value"). "--json" is an option like any
// other. Anything else that starts with "--" is a usage error (exit 2); a
// lone "--" ends the options.
// The body returns S_OK, S_FALSE (ran, nothing to do), or a failure that
// main() reports with the error handler's text.
struct Command {
    const char *name;
    const char *summary;
    const char *help;
    const char *options;
    HRESULT (*run)(const Args &args);
};

// Output: UTF-8 on stdout, errors on stderr.
void Out(const char *format, ...);
void Err(const char *format, ...);
std::string Utf8(const std::wstring &text);
// The system's text for a result, on one line, naming this tool as the application.
std::string ErrorText(HRESULT hr);
// The text for a failure about a file: ErrorText, or what the file is when
// that says more (a folder; the coding that no reader supports).
std::string FailureText(const std::wstring &path, HRESULT hr);
// A GUID in its braced text form.
std::string GuidText(const GUID &g);
// A JSON string literal, quotes included.
std::string JsonString(const std::string &text);

// Runs main's `body` with the arguments less "--apartment=sta|mta" on a
// thread of that apartment with a message loop (default sta); 2 on a bad value.
int RunInApartment(int argc, wchar_t **argv, int (*body)(int, wchar_t **));

// Results of the tool itself (the system's codes where one fits).
#define ZVFIO_E_USAGE    E_INVALIDARG
#define ZVFIO_E_NOTYET   E_NOTIMPL
// A failure the command has already reported with the file it is about.
#define ZVFIO_E_REPORTED ((HRESULT)0x80040201)

// One manager for a command that reads several files it changed.
class ReadSession {
public:
    ReadSession();
    ~ReadSession();
    // Opens the file and reads its first audio stream to the end: the frames
    // read and the frames the stream says it has.
    HRESULT Read(const std::wstring &path, LONGLONG *frames, LONGLONG *expected);

private:
    ReadSession(const ReadSession &) = delete;
    ReadSession &operator=(const ReadSession &) = delete;
    struct Impl;
    Impl *impl_;
};

// The commands, each in its own source.
extern const Command kChunksCommand;
extern const Command kRepairCommand;
extern const Command kPluginsCommand;
extern const Command kIdentifyCommand;
extern const Command kInfoCommand;
extern const Command kReadCommand;
extern const Command kFiltersCommand;
extern const Command kTemplatesCommand;
extern const Command kRenderCommand;
extern const Command kMetaCommand;
extern const Command kValidateCommand;

} // namespace zvfio
