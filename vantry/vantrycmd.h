/*
 * The parts of Vantry.exe that a client shares with it: the class ids, the
 * command line and the launching of a surrogate. Nothing here depends on the
 * form (C or C++) in which the caller sees COM interfaces.
 */
#pragma once
#include <windows.h>

#ifdef __cplusplus
extern "C" {
#endif

/* {5CDF45F4-888C-461A-8AB2-5AAA015B4642}: the surrogate's one class */
extern const CLSID CLSID_Vantry32;
/* {76CEE251-BF47-41C7-AEC2-84D3329E5E78} */
extern const GUID APPID_Vantry;

/* The class id under which the surrogate with this process id serves:
   Data1 of CLSID_Vantry32 exclusive-or'ed with the process id. */
void Vantry_ProcessClassId(DWORD processId, CLSID *out);

enum VantrySwitch
{
    VANTRY_RUN = 0,
    VANTRY_UNREGSERVER,
    VANTRY_REGSERVER,
    VANTRY_UNREGSERVER_PERUSER,
    VANTRY_REGSERVER_PERUSER
};

/* The first registration switch of a command line ("-" or "/", any case,
   ending at a blank, a tab or the end), VANTRY_RUN when there is none. */
enum VantrySwitch Vantry_ParseSwitch(const wchar_t *commandLine);

/* The language: the text behind the last blank, wholly a decimal number from
   0 to 0xFFFF. 0 stands for the user's language (with 0x400 in the
   sublanguage bits). FALSE leaves *lang as it was. */
BOOL Vantry_ParseLanguage(const wchar_t *commandLine, LANGID *lang);

/* Calling side. The surrogate's path for a host at hostPath (null: this
   program): beside it for a 32-bit host, in its "x86" sub-folder for a 64-bit
   one. FALSE when it doesn't fit in MAX_PATH characters. */
BOOL Vantry_SurrogatePath(const wchar_t *hostPath, wchar_t *out, DWORD outChars);

/* Starts a surrogate suspended, then resumes it, with the command line
   "\"path\" language". The caller closes both handles of *pi. */
HRESULT Vantry_Launch(const wchar_t *path, int language, PROCESS_INFORMATION *pi);

/* Reaches the surrogate with that process id: CoCreateInstance of its
   per-process class, retried every 100 ms while the class isn't registered
   yet, at most `attempts` times. With a process handle, a surrogate that has
   already ended gives CO_E_SERVER_EXEC_FAILURE at once instead. */
HRESULT Vantry_Connect(DWORD processId, HANDLE process, unsigned attempts, REFIID iid, void **out);

#ifdef __cplusplus
}
#endif
