// The template list stream and its reader.
#include "templates/zvtemplatestream.h"
#include <stdlib.h>
#include <string.h>
#include <new>

STDMETHODIMP CZvListStream::QueryInterface(REFIID riid, void **out)
{
    if (!out)
        return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IStream)) {
        *out = static_cast<IStream *>(this);
        AddRef();
        return S_OK;
    }
    *out = NULL;
    return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) CZvListStream::AddRef()
{
    return (ULONG)InterlockedIncrement(&ref_);
}

STDMETHODIMP_(ULONG) CZvListStream::Release()
{
    LONG n = InterlockedDecrement(&ref_);
    if (!n)
        delete this;
    return (ULONG)n;
}

STDMETHODIMP CZvListStream::Read(void *buffer, ULONG count, ULONG *read)
{
    if (read)
        *read = 0;
    if (!buffer)
        return E_INVALIDARG;
    if (!list_)
        return ZVERR_LIST_STREAM_END;
    if (!count)
        return E_INVALIDARG;
    BYTE *to = (BYTE *)buffer;
    ULONG done = 0;
    HRESULT status = S_FALSE;
    while (done < count && index_ < list_->count) {
        const BYTE *bytes;
        DWORD size;
        DWORD header[3] = {ZVTEMPLATE_LIST_HEADER, ZVTEMPLATE_LIST_VERSION, (DWORD)list_->count};
        if (index_ < 0) {
            bytes = (const BYTE *)header;
            size = sizeof header;
        } else if (FAILED(status = GetItemBytes(ZvList_GetItem(list_, index_), &bytes, &size))) {
            index_++; // a bad item is passed over
            offset_ = 0;
            continue;
        }
        DWORD n = size - offset_ < count - done ? size - offset_ : count - done;
        memcpy(to + done, bytes + offset_, n);
        done += n;
        offset_ += n;
        status = S_OK;
        if (offset_ >= size) {
            index_++;
            offset_ = 0;
        }
    }
    if (done)
        status = S_OK;
    if (read)
        *read = done;
    return status;
}

STDMETHODIMP CZvListStream::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER *position)
{
    int count = list_ ? list_->count : 0;
    HRESULT hr = S_OK;
    switch (origin) {
    case STREAM_SEEK_SET:
        index_ = -1;
        offset_ = 0;
        break;
    case STREAM_SEEK_END:
        index_ = count;
        offset_ = 0;
        break;
    case STREAM_SEEK_CUR: {
        // forward by bytes, item by item
        DWORD left = move.LowPart;
        while (left) {
            if (index_ >= count) {
                hr = ZVERR_LIST_STREAM_END;
                break;
            }
            DWORD size = ZVTEMPLATE_LIST_HEADER;
            const BYTE *bytes;
            if (index_ >= 0 && FAILED(GetItemBytes(ZvList_GetItem(list_, index_), &bytes, &size)))
                size = 0;
            DWORD n = size - offset_ < left ? size - offset_ : left;
            left -= n;
            offset_ += n;
            if (offset_ >= size) {
                index_++;
                offset_ = 0;
            }
        }
        break;
    }
    default:
        return STG_E_INVALIDFUNCTION;
    }
    if (position)
        position->QuadPart = index_ < 0 ? 0 : (ULONGLONG)index_;
    return hr;
}

HRESULT CZvTemplateStream::GetItemBytes(const void *item, const BYTE **bytes, DWORD *size)
{
    const tagZVTEMPLATExV2 *t = (const tagZVTEMPLATExV2 *)item;
    if (!t || t->dwSize < ZVTEMPLATE_HEADER_SIZE)
        return E_ZVTEMPLATE_BAD;
    *bytes = (const BYTE *)t;
    *size = t->dwSize;
    return S_OK;
}

HRESULT ZvFio_MakeTemplateListIStream(tZVLIST *list, IStream **out)
{
    if (!out)
        return E_POINTER;
    *out = NULL;
    CZvTemplateStream *stream = new (std::nothrow) CZvTemplateStream(list);
    if (!stream)
        return E_OUTOFMEMORY;
    return stream->QueryInterface(IID_IStream, (void **)out);
}

HRESULT ZvFio_AddTemplatesToListFromIStream(tZVLIST *list, IStream *stream)
{
    if (!list || !stream)
        return E_POINTER;
    LARGE_INTEGER zero = {};
    stream->Seek(zero, STREAM_SEEK_SET, NULL);
    HRESULT hr = S_OK;
    DWORD header[3];
    ULONG got = 0;
    if (FAILED(stream->Read(header, sizeof header, &got)) || got != sizeof header)
        hr = E_FAIL;
    for (DWORD i = 0; SUCCEEDED(hr) && i < header[2]; i++) {
        DWORD size = 0;
        if (FAILED(stream->Read(&size, sizeof size, &got)) || got != sizeof size) {
            hr = E_FAIL;
            break;
        }
        if (size < ZVTEMPLATE_HEADER_SIZE || size > ZVTEMPLATE_STREAM_MAX) {
            hr = E_ZVTEMPLATE_BAD;
            break;
        }
        tagZVTEMPLATExV2 *t = (tagZVTEMPLATExV2 *)calloc(1, size);
        if (!t) {
            hr = E_OUTOFMEMORY;
            break;
        }
        if (FAILED(stream->Read((BYTE *)t + 4, size - 4, &got)) || got != size - 4) {
            free(t);
            hr = E_ZVTEMPLATE_BAD;
            break;
        }
        t->dwSize = size;
        if (FAILED(hr = ZvList_InsertList(list, list->count, &t, 1)))
            free(t);
    }
    stream->Seek(zero, STREAM_SEEK_SET, NULL);
    return hr;
}

HRESULT ZvFio_CreateTemplateList(tZVLIST **list, int slots)
{
    return ZvList_CreateExZ(list, 0, slots > 0 ? slots : 8, 16, ZVLIST_THREADSAFE);
}

void ZvFio_FreeTemplateList(tZVLIST *list)
{
    if (!list)
        return;
    for (int i = 0; i < list->count; i++)
        free(ZvList_GetItem(list, i));
    ZvList_Destroy(list);
}
