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
// A JSON string literal, quotes included.
std::string JsonString(const std::string &text);

// Results of the tool itself (the system's codes where one fits).
#define ZVFIO_E_USAGE    E_INVALIDARG
#define ZVFIO_E_NOTYET   E_NOTIMPL

// The commands, each in its own source.
extern const Command kChunksCommand;
extern const Command kRepairCommand;
extern const Command kPluginsCommand;
extern const Command kIdentifyCommand;
extern const Command kInfoCommand;
extern const Command kReadCommand;
extern const Command kFiltersCommand;
extern const Command kTemplatesCommand;

} // namespace zvfio
