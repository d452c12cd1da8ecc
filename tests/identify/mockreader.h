// Reader classes made in the test process, with answers set by each test
// and counters of what the manager asked them; and the manager set up with
// a plug-in list of such classes.
#pragma once
#include <windows.h>
#include <string>
#include <vector>
#include "filemng/filemng.h"
#include "testutil.h"
#include "fiohost.h"

namespace idtest {

// A GUID with the given first 32 bits and a fixed tail.
GUID ClassId(DWORD data1);

struct MockFile;

struct MockReader : IZvReadFileClass {
    LONG refs = 1;
    GUID id;
    std::wstring name;
    DWORD classFlags = 0;
    HRESULT byteAnswer = (HRESULT)0x8004E016; // answer to the byte test
    HRESULT slowAnswer = (HRESULT)0x8004E016; // answer to the test by path
    HRESULT openAnswer = S_OK;
    LONG streams = 1;                          // streams of the files it opens
    DWORD index = (DWORD)-1;
    // what the manager did
    int byteCalls = 0, slowCalls = 0, opens = 0;
    DWORD lastChunkSize = 0xFFFFFFFF;
    std::wstring lastOpenName;
    BOOL lastNormalOpen = -1;

    MockReader(DWORD data1, const wchar_t *n) : id(ClassId(data1)), name(n) {}
    int asked() const { return byteCalls + slowCalls; }

    STDMETHODIMP QueryInterface(REFIID riid, void **out) override;
    STDMETHODIMP_(ULONG) AddRef() override { return (ULONG)InterlockedIncrement(&refs); }
    STDMETHODIMP_(ULONG) Release() override { return (ULONG)InterlockedDecrement(&refs); }
    STDMETHODIMP SetClassId(DWORD i) override { index = i; return S_OK; }
    STDMETHODIMP GetClassId(DWORD *i) override { *i = index; return S_OK; }
    STDMETHODIMP SetManager(IZvFileIOManager *) override { return S_OK; }
    STDMETHODIMP GetManager(IZvFileIOManager **m) override { *m = nullptr; return E_NOTIMPL; }
    STDMETHODIMP GetClassGuid(GUID *g) override { *g = id; return S_OK; }
    STDMETHODIMP GetStreamTypes(DWORD *m) override { *m = 1; return S_OK; }
    STDMETHODIMP GetClassFlags(DWORD *f) override { *f = classFlags; return S_OK; }
    STDMETHODIMP GetRenderClass(IZvRenderFileClass **r) override { *r = nullptr; return E_NOINTERFACE; }
    STDMETHODIMP GetInfoText(const ZVFIO_FILECLASS_INFO_TEXT *ids, LONG count, BSTR *texts) override;
    STDMETHODIMP GetInfoValue(DWORD, BYTE *, DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP IdentifyFile(const ZVFIO_IDENTIFYINFO *info) override;
    STDMETHODIMP IdentifyStream(IStream *, DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP OpenFile(IZvReadFile **file, UINT64 handle, DWORD pid, LPCWSTR n, BOOL normal) override;
    STDMETHODIMP OpenStreamFile(IZvReadFile **f, IStream *, LPCWSTR, DWORD) override
    {
        *f = nullptr;
        return E_NOTIMPL;
    }
    STDMETHODIMP GetMetaTypes(DWORD *t) override { *t = 0; return S_OK; }
    STDMETHODIMP GetPluginStatus(HRESULT *s, BSTR *) override { *s = S_OK; return S_OK; }
};

// A manager without discovery whose plug-in list holds the given classes,
// each one record (reader access, loaded, extensions and merit as given).
struct MockFolder {
    zvtest::TempDir tmp;
    const std::wstring dataDir = tmp.path();
};
struct MockSetup : MockFolder, zvtest::HostManager {
    struct Entry {
        MockReader *reader;
        const wchar_t *extensions;
        DWORD merit;
    };

    explicit MockSetup(const std::vector<Entry> &entries);
    // reader list index of a class
    LONG indexOf(const MockReader &r) const;
};

// Writes a file into the test's temporary folder and returns its path.
std::wstring WriteTemp(const std::wstring &dir, const wchar_t *name, const std::vector<unsigned char> &bytes);

// A minimal PCM wave file: 16-bit stereo at 48000 Hz, `frames` frames, and
// a "scot" chunk at byte 60 when asked (a second quick type with two
// candidate classes).
std::vector<unsigned char> WaveBytes(unsigned frames, bool scot = false);

} // namespace idtest
