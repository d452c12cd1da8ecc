#include "mockreader.h"
#include "filemng/fiodiscovery.h"
#include "../media/mediatest.h"
#include "../../plugins/sdk/zvplugin_com.h"
#include <gtest/gtest.h>

namespace idtest {

GUID ClassId(DWORD data1)
{
    GUID g = {data1, 0x1111, 0x2222, {0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA}};
    return g;
}

// The smallest reader file object, from the plug-in kit: it knows its
// class, its name and its stream count.
struct MockFile : zvsdk::ReadFileObject {
    LONG streams;
    MockFile(IZvReadFileClass *owner, const wchar_t *n, LONG s) : ReadFileObject(owner, SysAllocString(n)), streams(s)
    {
    }
    STDMETHODIMP GetLength(LONGLONG *l) override { *l = 0; return S_OK; }
    STDMETHODIMP GetStreamCount(LONG *c) override { *c = streams; return S_OK; }
    STDMETHODIMP GetDefaultStream(DWORD, LONG *s) override { *s = -1; return E_NOTIMPL; }
    STDMETHODIMP GetStreamFormatInfo(_ZVFILESTREAMFORMATINFOv2 *, LONG, DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP GetStreamType(LONG, ZVFILESTREAMTYPE *, DWORD *) override { return E_NOTIMPL; }
    STDMETHODIMP GetStreamName(LONG, BSTR *n) override { *n = nullptr; return E_NOTIMPL; }
    STDMETHODIMP OpenStream(IZvReadStream **s, LONG, DWORD, DWORD, DWORD) override { *s = nullptr; return E_NOTIMPL; }
    STDMETHODIMP GetStreamLength(LONG, LONGLONG *l) override { *l = 0; return E_NOTIMPL; }
    STDMETHODIMP Close() override { return S_OK; }
};

STDMETHODIMP MockReader::QueryInterface(REFIID riid, void **out)
{
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IZvReadFileClass)) {
        *out = this;
        AddRef();
        return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
}

STDMETHODIMP MockReader::GetInfoText(const ZVFIO_FILECLASS_INFO_TEXT *ids, LONG count, BSTR *texts)
{
    for (LONG i = 0; i < count; ++i)
        texts[i] = SysAllocString(ids[i] == ZVFIO_INFOTEXT_SHORTNAME ? name.c_str() : L"");
    return S_OK;
}

STDMETHODIMP MockReader::IdentifyFile(const ZVFIO_IDENTIFYINFO *info)
{
    if (info->hFile == (UINT64)(LONG_PTR)INVALID_HANDLE_VALUE && !info->pChunk) {
        ++slowCalls;
        return slowAnswer;
    }
    ++byteCalls;
    lastChunkSize = info->cbChunk;
    return byteAnswer;
}

STDMETHODIMP MockReader::OpenFile(IZvReadFile **file, UINT64 handle, DWORD, LPCWSTR n, BOOL normal)
{
    ++opens;
    lastOpenName = n ? n : L"";
    lastNormalOpen = normal;
    *file = nullptr;
    if (FAILED(openAnswer))
        return openAnswer;
    // the handle is the caller's and must be usable during the call
    if ((HANDLE)(LONG_PTR)handle != INVALID_HANDLE_VALUE && GetFileType((HANDLE)(LONG_PTR)handle) != FILE_TYPE_DISK)
        return E_HANDLE;
    *file = new MockFile(this, n, streams);
    return openAnswer;
}

MockSetup::MockSetup(const std::vector<Entry> &entries) : HostManager(dataDir)
{
    EXPECT_EQ(S_OK, created);
    tZVLIST *list = nullptr;
    ZvList_CreateExZ(&list, 0, 0, 0, 0);
    for (const Entry &e : entries) {
        ZVFIO_PLUGININFO *r = ZvFioAllocRecord(nullptr);
        r->clsidPlugin = e.reader->id;
        r->clsidReader = e.reader->id;
        r->Access = ZVFIO_ACCESS_READER;
        r->Surrogate = -1;
        r->MeritValue = e.merit;
        r->dwListed = 1;
        _snwprintf(r->szName, MAX_PATH, L"%ls", e.reader->name.c_str());
        _snwprintf(r->szPath, MAX_PATH, L"%ls\\%ls.dll", dataDir.c_str(), e.reader->name.c_str());
        if (e.extensions)
            ZvFioStrSet(&r->ExtReader, e.extensions);
        e.reader->AddRef();
        r->pReaderClass = e.reader;
        ZvList_InsertList(list, -1, &r, 1);
    }
    EXPECT_EQ(S_OK, mgr->SetPluginList(list, 0, 0, nullptr));
}

LONG MockSetup::indexOf(const MockReader &r) const { return (LONG)r.index; }

std::wstring WriteTemp(const std::wstring &dir, const wchar_t *name, const std::vector<unsigned char> &bytes)
{
    std::wstring path = dir + L"\\" + name;
    zvtest::WriteFileBytes(path, bytes.data(), bytes.size());
    return path;
}

std::vector<unsigned char> WaveBytes(unsigned frames, bool scot)
{
    using namespace mediatest;
    Bytes fmt = Fmt(1, 2, 48000, 16), pcm;
    fmt.resize(16);
    for (unsigned i = 0; i < frames; ++i) {
        Le16(pcm, 2 * i);
        Le16(pcm, 2 * i + 1);
    }
    // with "scot": a JUNK chunk at byte 36 puts it at byte 60
    Bytes extra = scot ? Cat({Chunk("JUNK", Bytes(16)), Chunk("scot", Bytes(8))}) : Bytes();
    return Riff("WAVE", Cat({Chunk("fmt ", fmt), extra, Chunk("data", pcm)}));
}

} // namespace idtest
