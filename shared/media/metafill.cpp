// Metadata readers: each kind's chunks as framed items in a caller's list,
// the same frames a generic stream carries, so a list read from one file can
// be streamed into another.
#include "media/metainternal.h"
#include <string.h>

using namespace zvmeta;

namespace {

// The items of one kind (null for none) in the given store.
HRESULT ReadInto(HANDLE file, bool w64, DWORD bit, Store *store, const std::vector<Bytes> **items)
{
    ChunkIndex index;
    HRESULT hr = IndexFile(file, w64, &index);
    if (SUCCEEDED(hr)) {
        store->sampleRate = RateOf(file, index);
        hr = ReadKind(file, index, *KindOfBit(bit), store->sampleRate, store);
    }
    *items = SUCCEEDED(hr) ? store->of(bit) : nullptr;
    return hr;
}

} // namespace

HRESULT zvmeta::AppendItem(tZVLIST *list, DWORD bit, const Bytes &record)
{
    Bytes item(sizeof(ZVMETA_ITEMFRAME) + record.size());
    ZVMETA_ITEMFRAME f = {28, ZVMETA_VERSION, KindOfBit(bit)->guid, (DWORD)record.size()};
    memcpy(item.data(), &f, sizeof f);
    if (!record.empty())
        memcpy(item.data() + sizeof f, record.data(), record.size());
    return ZvList_AllocAndInsertItem(list, item.data(), (int)item.size(), -1, nullptr);
}

namespace {

HRESULT Fill(HANDLE file, bool w64, DWORD bit, tZVLIST *list)
{
    if (!list)
        return E_POINTER;
    Store store;
    const std::vector<Bytes> *items;
    HRESULT hr = ReadInto(file, w64, bit, &store, &items);
    if (FAILED(hr))
        return hr;
    for (size_t i = 0; items && i < items->size(); i++)
        if (FAILED(hr = AppendItem(list, bit, (*items)[i])))
            return hr;
    return S_OK;
}

HRESULT Cues(HANDLE file, bool w64, tZVLIST *markers, tZVLIST *regions)
{
    if (!markers && !regions)
        return S_OK;
    Store store;
    const std::vector<Bytes> *items;
    HRESULT hr = ReadInto(file, w64, ZVMETA_MARKERS, &store, &items);
    if (FAILED(hr))
        return hr;
    for (size_t i = 0; items && i < items->size(); i++) {
        const Bytes &r = (*items)[i];
        LONGLONG length;
        memcpy(&length, r.data() + 16, 8);
        if (markers && FAILED(hr = AppendItem(markers, ZVMETA_MARKERS, r)))
            return hr;
        if (regions && length >= 0 && FAILED(hr = AppendItem(regions, ZVMETA_MARKERS, r)))
            return hr;
    }
    return S_OK;
}

// The first item as a locked, zero-filled global block.
// A locked global copy of a record.
HRESULT ToGlobal(const Bytes &r, void **data, DWORD *size)
{
    HGLOBAL h = GlobalAlloc(GHND, r.size() ? r.size() : 1);
    void *p = h ? GlobalLock(h) : nullptr;
    if (!p) {
        if (h)
            GlobalFree(h);
        return E_OUTOFMEMORY;
    }
    memcpy(p, r.data(), r.size());
    *data = p;
    *size = (DWORD)r.size();
    return S_OK;
}

HRESULT Block(HANDLE file, bool w64, DWORD bit, void **data, DWORD *size)
{
    if (!data || !size)
        return E_POINTER;
    *data = nullptr;
    *size = 0;
    Store store;
    const std::vector<Bytes> *items;
    HRESULT hr = ReadInto(file, w64, bit, &store, &items);
    if (FAILED(hr))
        return hr;
    if (!items || items->empty())
        return ZVERR_NOT_FOUND;
    return ToGlobal(items->front(), data, size);
}

// From an AIFF file the record is built from INST and MARK.
HRESULT AiffSampler(HANDLE file, void **data, DWORD *size, DWORD rate)
{
    if (!data || !size)
        return E_POINTER;
    *data = nullptr;
    *size = 0;
    Bytes r;
    HRESULT hr = zvmeta::ReadAiffSampler(file, rate, &r);
    return FAILED(hr) ? hr : ToGlobal(r, data, size);
}

} // namespace

#define ZV_FILL_PAIR(name, bit)                                                                                        \
    HRESULT ZvFMMeta_##name(HANDLE file, tZVLIST *list) { return Fill(file, false, bit, list); }                        \
    HRESULT ZvFMMeta64_##name(HANDLE file, tZVLIST *list) { return Fill(file, true, bit, list); }

ZV_FILL_PAIR(fillKeyframeLocFromFile, ZVMETA_KEYFRAMES)
ZV_FILL_PAIR(fillCDTracksFromFile, ZVMETA_CDTRACKS)
ZV_FILL_PAIR(fillScottFromFile, ZVMETA_SCOTT)
ZV_FILL_PAIR(fillPlaylistFromFile, ZVMETA_PLAYLIST)
ZV_FILL_PAIR(fillTriggerlistFromFile, ZVMETA_TRIGGERS)
ZV_FILL_PAIR(fillStretchInfo2FromFile, ZVMETA_STRETCH)
ZV_FILL_PAIR(fillBeatMarkersFromFile, ZVMETA_BEATMARKERS)
ZV_FILL_PAIR(fillDetectedBeatsFromFile, ZVMETA_DETECTEDBEATS)
ZV_FILL_PAIR(fillBeatmapInfoFromFile, ZVMETA_BEATMAPINFO)
ZV_FILL_PAIR(fillBeatmapMarkersFromFile, ZVMETA_BEATMAPMARKERS)

HRESULT ZvFMMeta_fillCuesFromFileEx(HANDLE file, DWORD, tZVLIST *markers, tZVLIST *regions)
{
    return Cues(file, false, markers, regions);
}

HRESULT ZvFMMeta64_fillCuesFromFileEx(HANDLE file, DWORD, tZVLIST *markers, tZVLIST *regions)
{
    return Cues(file, true, markers, regions);
}

HRESULT ZvFMMeta_fillSummaryFromFileEx(HANDLE file, tZVLIST *list, tZVLIST *)
{
    return Fill(file, false, ZVMETA_SUMMARY, list);
}

HRESULT ZvFMMeta64_fillSummaryFromFileEx(HANDLE file, tZVLIST *list, tZVLIST *)
{
    return Fill(file, true, ZVMETA_SUMMARY, list);
}

HRESULT ZvFMMeta_fillSamplerinfoFromFileEx(HANDLE file, void **data, DWORD *size, BOOL fromAiff, DWORD rate)
{
    return fromAiff ? AiffSampler(file, data, size, rate) : Block(file, false, ZVMETA_SAMPLER, data, size);
}

HRESULT ZvFMMeta64_fillSamplerinfoFromFileEx(HANDLE file, void **data, DWORD *size, BOOL fromAiff, DWORD rate)
{
    return fromAiff ? AiffSampler(file, data, size, rate) : Block(file, true, ZVMETA_SAMPLER, data, size);
}

HRESULT ZvFMMeta_fillCDInfoFromFile(HANDLE file, void **data, DWORD *size, BOOL isWave64)
{
    return Block(file, isWave64 != FALSE, ZVMETA_CDINFO, data, size);
}

HRESULT ZvFMMeta_fillDisplistFromFile(HANDLE file, void **data, DWORD *size)
{
    return Block(file, false, ZVMETA_DISPLIST, data, size);
}

HRESULT ZvFMMeta64_fillDisplistFromFile(HANDLE file, void **data, DWORD *size)
{
    return Block(file, true, ZVMETA_DISPLIST, data, size);
}

HRESULT ZvFMMeta_fillARDEOmetaFromFileEx(HANDLE file, tZVLIST *list, tZVLIST *)
{
    if (!list)
        return E_POINTER;
    Bytes record;
    HRESULT hr = ReadArdeoTimeCode(file, &record);
    return FAILED(hr) ? hr : AppendItem(list, ZVMETA_SUMMARY, record);
}
