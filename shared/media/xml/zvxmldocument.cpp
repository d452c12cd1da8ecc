// CZvXML_Document: opening, the forgiving parse into a tree, and closing.
// The parser is a loop over the class of the current character; a failed
// inner parse does not stop it, only the last result is returned.
#include "zvxmlspan.h"
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

struct ZvXMLBlock {
    ZvXMLBlock *next;
    size_t size;
    alignas(8) BYTE data[8];
};

namespace {

const size_t kFirstBlock = 64 * 1024, kLargestBlock = 4 * 1024 * 1024;

// Freed blocks of the standard sizes wait here for the next document, a few
// of each size and more of the largest: memory the process touches for the
// first time costs far more than the parse (a page fault each page), and
// documents tend to come in series. Every size keeps its own room, so that a
// large document does not push out what the small ones need.
const int kSizeClasses = 7; // 64 KiB to 4 MiB
const int kKeepSmall = 4, kKeepLargest = sizeof(void *) == 8 ? 24 : 6;
SRWLOCK g_cacheLock = SRWLOCK_INIT;
ZvXMLBlock *g_cache[kSizeClasses];
int g_cached[kSizeClasses];

int SizeClass(size_t size)
{
    for (int c = 0; c < kSizeClasses; c++)
        if (size == kFirstBlock << c)
            return c;
    return -1;
}

ZvXMLBlock *TakeCached(size_t size)
{
    int c = SizeClass(size);
    if (c < 0)
        return nullptr;
    AcquireSRWLockExclusive(&g_cacheLock);
    ZvXMLBlock *b = g_cache[c];
    if (b) {
        g_cache[c] = b->next;
        g_cached[c]--;
    }
    ReleaseSRWLockExclusive(&g_cacheLock);
    return b;
}

void GiveBack(ZvXMLBlock *b)
{
    int c = SizeClass(b->size);
    if (c >= 0) {
        AcquireSRWLockExclusive(&g_cacheLock);
        bool keep = g_cached[c] < (c == kSizeClasses - 1 ? kKeepLargest : kKeepSmall);
        if (keep) {
            b->next = g_cache[c];
            g_cache[c] = b;
            g_cached[c]++;
        }
        ReleaseSRWLockExclusive(&g_cacheLock);
        if (keep)
            return;
    }
    HeapFree(GetProcessHeap(), 0, b);
}

const DWORD kStopName = ZVXML_CLASSBIT(ZVXMLC_BLANK) | ZVXML_CLASSBIT(ZVXMLC_SLASH) |
                        ZVXML_CLASSBIT(ZVXMLC_GT) | ZVXML_CLASSBIT(ZVXMLC_END);
const DWORD kStopText = ZVXML_CLASSBIT(ZVXMLC_LT) | ZVXML_CLASSBIT(ZVXMLC_END);
const DWORD kStopGt = ZVXML_CLASSBIT(ZVXMLC_GT) | ZVXML_CLASSBIT(ZVXMLC_END);
const DWORD kStopEq = ZVXML_CLASSBIT(ZVXMLC_EQ) | ZVXML_CLASSBIT(ZVXMLC_END);
// The classes at which the main loop starts an item.
const DWORD kStartsItem = ZVXML_CLASSBIT(ZVXMLC_HASH) | ZVXML_CLASSBIT(ZVXMLC_SYMBOL) |
                          ZVXML_CLASSBIT(ZVXMLC_PERCENT) | ZVXML_CLASSBIT(ZVXMLC_AMP) |
                          ZVXML_CLASSBIT(ZVXMLC_MINUS) | ZVXML_CLASSBIT(ZVXMLC_DIGIT) |
                          ZVXML_CLASSBIT(ZVXMLC_NAME) | ZVXML_CLASSBIT(ZVXMLC_LT) | ZVXML_CLASSBIT(ZVXMLC_END);
// Words on the open stack per open element: where its contents start, and
// where its name stands in the document and how many bytes it takes.
const int kOpenedWords = 3;
// Longer strings are refused (as out of memory): their lengths are ints.
const size_t kLongestString = 0x3FFFFFF0u;
const DWORD kStopQuote = ZVXML_CLASSBIT(ZVXMLC_QUOTE) | ZVXML_CLASSBIT(ZVXMLC_END);

// The header of every list of a tree, copied whole: clearing it and setting
// its fields one by one cost more than the rest of the list. Made at start-up
// rather than at compile time, so that the copy stays a copy (a constant one
// becomes a slow string store).
tZVLIST MakeListModel()
{
    tZVLIST m;
    memset(&m, 0, sizeof m);
    m.itemSize = sizeof(void *);
    m.magic = ZVLIST_MAGIC;
    m.options = ZVLIST_ANYTHREAD | ZVLIST_HEAPITEMS | ZVLIST_CALLERBLOCK;
    m.growBy = 4;
    return m;
}
const tZVLIST kListModel = MakeListModel();

} // namespace

// Push found the stack full.
HRESULT CZvXML_Document::ZvXMLStack::Grow(void *item)
{
    int grown = capacity ? capacity * 2 : 64;
    void *p = items ? HeapReAlloc(GetProcessHeap(), 0, items, (size_t)grown * sizeof(void *))
                    : HeapAlloc(GetProcessHeap(), 0, (size_t)grown * sizeof(void *));
    if (!p)
        return E_OUTOFMEMORY;
    items = (void **)p;
    capacity = grown;
    items[count++] = item;
    return S_OK;
}

void CZvXML_Document::ZvXMLStack::Free()
{
    if (items)
        HeapFree(GetProcessHeap(), 0, items);
    items = nullptr;
    count = capacity = 0;
}

CZvXML_Document::CZvXML_Document()
{
    memset((void *)&m_dataSize, 0, (size_t)((BYTE *)(&m_attributes + 1) - (BYTE *)&m_dataSize));
    m_file = INVALID_HANDLE_VALUE;
}

CZvXML_Document::~CZvXML_Document()
{
    CloseFile();
}

// Blocks double up to a limit; a request larger than a block gets its own,
// linked behind the current one so the current one stays in use.
void *CZvXML_Document::AllocBlock(size_t bytes)
{
    size_t size = m_blocks ? m_blocks->size * 2 : kFirstBlock;
    if (size > kLargestBlock)
        size = kLargestBlock;
    bool own = bytes > size / 4;
    if (own)
        size = bytes;
    ZvXMLBlock *b = TakeCached(size);
    if (!b)
        b = (ZvXMLBlock *)HeapAlloc(GetProcessHeap(), 0, offsetof(ZvXMLBlock, data) + size);
    if (!b)
        return nullptr;
    b->size = size;
    if (own && m_blocks) {
        b->next = m_blocks->next;
        m_blocks->next = b;
        return b->data;
    }
    b->next = m_blocks;
    m_blocks = b;
    m_blockUsed = bytes;
    return b->data;
}

// Records and strings come one after the other from the current block.
inline void *CZvXML_Document::Alloc(size_t bytes)
{
    bytes = (bytes + 7) & ~(size_t)7;
    if (!m_blocks || m_blocks->size - m_blockUsed < bytes)
        return AllocBlock(bytes);
    void *p = m_blocks->data + m_blockUsed;
    m_blockUsed += bytes;
    return p;
}

void CZvXML_Document::FreeBlocks()
{
    while (m_blocks) {
        ZvXMLBlock *next = m_blocks->next;
        GiveBack(m_blocks);
        m_blocks = next;
    }
    m_blockUsed = 0;
}

// A read-only list over count record pointers, in the document's blocks.
tZVLIST *CZvXML_Document::MakeList(void *const *items, int count)
{
    tZVLIST *l = (tZVLIST *)Alloc(sizeof(tZVLIST) + (size_t)count * sizeof(void *));
    if (!l)
        return nullptr;
    *l = kListModel;
    l->count = l->allocated = count;
    void **to = (void **)(l + 1);
    l->data = (BYTE *)to;
    for (int i = 0; i < count; i++)
        to[i] = items[i];
    return l;
}

// The current element is complete: its run of contents becomes its list.
HRESULT CZvXML_Document::CloseElement()
{
    m_opened.count -= kOpenedWords;
    int start = (int)(INT_PTR)m_opened.items[m_opened.count];
    int n = m_pending.count - start;
    m_pending.count = start;
    if (n > 0 && !(m_current->contents = MakeList(m_pending.items + start, n)))
        return E_OUTOFMEMORY;
    return S_OK;
}

HRESULT CZvXML_Document::OpenMemory(const void *data, ULONGLONG size)
{
    if (!data && size)
        return E_POINTER;
    if (m_encoding)
        CloseMemory();
    if (!size)
        return ZVERR_MALFORMED;
    m_data = (const BYTE *)data;
    m_dataSize = size;
    if (size >= 2 && m_data[0] == 0xFF && m_data[1] == 0xFE) {
        m_encoding = new ZvXMLEncodingUtf16(m_data, size);
        if (m_encoding)
            Enc()->Step();
    } else {
        m_encoding = new ZvXMLEncodingUtf8(m_data, size);
    }
    if (!m_encoding)
        return E_OUTOFMEMORY;
    HRESULT hr = ZvList_CreateExZ(&m_lookups, sizeof(tagZVXML_LOOKUP), 4, 4, ZVLIST_ANYTHREAD | ZVLIST_INPLACEITEMS);
    if (FAILED(hr))
        CloseMemory();
    return hr;
}

HRESULT CZvXML_Document::OpenFile(const WCHAR *path)
{
    if (m_encoding || m_view)
        CloseFile();
    if (!path || !*path)
        return ZVERR_PATH_NOT_FOUND;
    DWORD attributes = GetFileAttributesW(path);
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY))
        return ZVERR_PATH_NOT_FOUND;
    HANDLE file = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return ZVERR_FILE_OPEN;
    LARGE_INTEGER size;
    if (!GetFileSizeEx(file, &size)) {
        CloseHandle(file);
        return ZVERR_FILE_READ;
    }
    if (size.QuadPart == 0) {
        CloseHandle(file);
        return ZVERR_MALFORMED;
    }
    if ((ULONGLONG)size.QuadPart > (ULONGLONG)(SIZE_T)-1 / 2) {
        CloseHandle(file);
        return ZVERR_SIZE_LIMIT;
    }
    HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
    void *view = mapping ? MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0) : nullptr;
    if (!view) {
        if (mapping)
            CloseHandle(mapping);
        CloseHandle(file);
        return ZVERR_FILE_OPEN;
    }
    lstrcpynW(m_path, path, MAX_PATH);
    m_file = file;
    m_mapping = mapping;
    m_view = view;
    HRESULT hr = OpenMemory(view, (ULONGLONG)size.QuadPart);
    if (FAILED(hr))
        CloseFile();
    return hr;
}

HRESULT CZvXML_Document::CloseMemory()
{
    m_root = nullptr;
    m_current = nullptr;
    FreeBlocks();
    m_pending.Free();
    m_opened.Free();
    m_attributes.Free();
    if (m_encoding) {
        m_encoding->Release();
        m_encoding = nullptr;
    }
    ZvList_Destroy(m_lookups);
    m_lookups = nullptr;
    m_data = nullptr;
    m_dataSize = 0;
    m_version[0] = m_encodingName[0] = m_standalone[0] = 0;
    return S_OK;
}

HRESULT CZvXML_Document::CloseFile()
{
    CloseMemory();
    if (m_view)
        UnmapViewOfFile(m_view);
    if (m_mapping)
        CloseHandle(m_mapping);
    if (m_file && m_file != INVALID_HANDLE_VALUE)
        CloseHandle(m_file);
    m_view = nullptr;
    m_mapping = nullptr;
    m_file = INVALID_HANDLE_VALUE;
    m_path[0] = 0;
    return S_OK;
}

// ---- parsing ----

// The two forms are final classes: calls through them are direct.
static int CopyUntil(ZvXMLEncodingUtf *e, DWORD stopClasses, WCHAR *buffer)
{
    return e->Wide() ? static_cast<ZvXMLEncodingUtf16 *>(e)->CopyUntil(stopClasses, buffer)
                     : static_cast<ZvXMLEncodingUtf8 *>(e)->CopyUntil(stopClasses, buffer);
}

// Inline where the parser asks for a string, so that the stop set is a
// constant there; other forms and pages take the copy below.
inline WCHAR *CZvXML_Document::CopyString(DWORD stopClasses, int *length)
{
    const BYTE *span;
    size_t n8;
    ZvXMLEncodingUtf *e = Enc();
    if (e->Wide() || !static_cast<ZvXMLEncodingUtf8 *>(e)->Span(stopClasses, &span, &n8))
        return CopyConverted(stopClasses, length);
    WCHAR *s = Widened(span, n8, static_cast<ZvXMLEncodingUtf8 *>(e)->Map(), (size_t)e->Left());
    if (!s)
        return nullptr;
    e->Skip(n8);
    if (length)
        *length = (int)n8;
    return s;
}

// n bytes at p as a terminated string of the tree; readable bytes from p may
// be loaded.
inline WCHAR *CZvXML_Document::Widened(const BYTE *p, size_t n, const WCHAR *map, size_t readable)
{
    // Room for the wide stores past the end, handed back at once.
    const size_t slack = 32, bytes = ((n + 1) * sizeof(WCHAR) + 7) & ~(size_t)7;
    WCHAR *s = (WCHAR *)Alloc(bytes + slack);
    if (!s)
        return nullptr;
    ZvXMLWiden(p, n, s, map, readable, true);
    s[n] = 0;
    if (m_blocks && (BYTE *)s + bytes + slack == m_blocks->data + m_blockUsed)
        m_blockUsed -= slack;
    return s;
}

WCHAR *CZvXML_Document::CopyConverted(DWORD stopClasses, int *length)
{
    int n = CopyUntil(Enc(), stopClasses, nullptr);
    if (n < 0)
        return nullptr;
    WCHAR *s = (WCHAR *)Alloc(((size_t)n + 1) * sizeof(WCHAR));
    if (!s)
        return nullptr;
    CopyUntil(Enc(), stopClasses, s);
    if (length)
        *length = n;
    return s;
}

// A record in the current element's contents; the first element of a
// document stands by itself as the root. Null content (S_FALSE) where there is
// nowhere to put it: outside the root.
HRESULT CZvXML_Document::AddContent(tagXML_CONTENT_TYPE type, tagZVXML_CONTENT **content)
{
    *content = nullptr;
    if (!m_current && (type != ZVXML_ELEMENT || m_root))
        return S_FALSE;
    tagZVXML_CONTENT *c = (tagZVXML_CONTENT *)Alloc(sizeof(tagZVXML_CONTENT));
    if (!c)
        return E_OUTOFMEMORY;
    memset(c, 0, sizeof *c);
    if (m_current) {
        if (FAILED(m_pending.Push(c)))
            return E_OUTOFMEMORY;
    } else {
        m_root = c;
    }
    c->type = type;
    c->parent = m_current;
    if (type == ZVXML_ELEMENT)
        c->element.content = c;
    *content = c;
    return S_OK;
}

// Undoes the content that AddContent made last.
void CZvXML_Document::DropLastContent(tagZVXML_CONTENT *content)
{
    m_current = content->parent;
    if (m_current)
        m_pending.count--;
    else
        m_root = nullptr;
}

HRESULT CZvXML_Document::ParseFile()
{
    if (!m_encoding)
        return E_UNEXPECTED;
    HRESULT hr = S_OK;
    for (;;) {
        switch (Enc()->ClassHere()) {
        case ZVXMLC_END:
            // Elements still open get their contents as they stand; the
            // current element stays what it was.
            if (m_opened.count) {
                tagZVXML_ELEMENT *keep = m_current;
                while (m_opened.count) {
                    if (FAILED(CloseElement()))
                        hr = E_OUTOFMEMORY;
                    m_current = m_current->content->parent;
                }
                m_current = keep;
            }
            return hr;
        case ZVXMLC_HASH: case ZVXMLC_SYMBOL: case ZVXMLC_PERCENT: case ZVXMLC_AMP:
        case ZVXMLC_MINUS: case ZVXMLC_DIGIT: case ZVXMLC_NAME:
            hr = ParseText(ZVXML_CHARDATA);
            break;
        case ZVXMLC_LT:
            hr = ParseLT();
            break;
        default:
            // Text that starts with another class is dropped.
            Enc()->SkipUntil(kStartsItem);
            break;
        }
    }
}

HRESULT CZvXML_Document::ParseLT()
{
    Enc()->Step();
    switch (Enc()->ClassHere()) {
    case ZVXMLC_BANG:
        return ParseMarkupDeclaration();
    case ZVXMLC_SLASH:
        return ParseEndTag();
    case ZVXMLC_QUESTION:
        return m_current ? ParseText(ZVXML_PI) : ParseXMLDeclaration();
    case ZVXMLC_NAME:
        return ParseStartTag();
    default:
        return S_OK;
    }
}

// Character data and processing instructions: raw text up to the next "<".
HRESULT CZvXML_Document::ParseText(tagXML_CONTENT_TYPE type)
{
    tagZVXML_CONTENT *c;
    HRESULT hr = AddContent(type, &c);
    if (FAILED(hr))
        return hr;
    WCHAR *text = CopyString(kStopText, nullptr);
    if (!text) {
        if (c)
            DropLastContent(c);
        return E_OUTOFMEMORY;
    }
    if (c)
        c->text = text;
    return S_OK;
}

// "=" and an opening double quote; single quotes are refused.
bool CZvXML_Document::PassEqualsQuote()
{
    if (Enc()->ClassHere() != ZVXMLC_EQ)
        return false;
    Enc()->Step();
    if (Enc()->ClassHere() != ZVXMLC_QUOTE)
        return false;
    Enc()->Step();
    return true;
}

HRESULT CZvXML_Document::ParseXMLDeclaration()
{
    ZvXMLEncodingUtf *enc = Enc();
    enc->Step();
    if (enc->Match(L"xml", 3, TRUE) != 0)
        return E_FAIL;
    for (;;) {
        int cls = enc->ClassHere();
        if (cls == ZVXMLC_BLANK) {
            enc->Step();
            continue;
        }
        if (cls == ZVXMLC_QUESTION) {
            enc->Step();
            if (enc->ClassHere() != ZVXMLC_GT)
                return E_FAIL;
            enc->Step();
            return S_OK;
        }
        if (cls != ZVXMLC_NAME)
            return E_FAIL;
        WCHAR *field = nullptr;
        int capacity = 0;
        if (enc->Match(L"version", 7, TRUE) == 0)
            field = m_version, capacity = 10;
        else if (enc->Match(L"encoding", 8, TRUE) == 0)
            field = m_encodingName, capacity = 260;
        else if (enc->Match(L"standalone", 10, TRUE) == 0)
            field = m_standalone, capacity = 20;
        if (!field) {
            while ((cls = enc->ClassHere()) != ZVXMLC_BLANK && cls != ZVXMLC_QUESTION && cls != ZVXMLC_END)
                enc->Step();
            continue;
        }
        if (!PassEqualsQuote())
            return E_FAIL;
        int n = 0;
        WCHAR *value = CopyString(kStopQuote, &n);
        if (!value)
            return E_OUTOFMEMORY;
        lstrcpynW(field, value, capacity);
        if (enc->ClassHere() != ZVXMLC_QUOTE)
            return E_FAIL;
        enc->Step();
    }
}

HRESULT CZvXML_Document::ParseStartTag()
{
    tagZVXML_CONTENT *c;
    HRESULT hr = AddContent(ZVXML_ELEMENT, &c);
    if (FAILED(hr))
        return hr;
    if (!c)
        return E_FAIL; // a second top-level element has nowhere to go
    const BYTE *nameAt = Enc()->Here();
    c->element.name = CopyString(kStopName, nullptr);
    if (!c->element.name) {
        DropLastContent(c);
        return E_OUTOFMEMORY;
    }
    const BYTE *nameEnd = Enc()->Here();
    int opened = m_opened.count;
    m_current = &c->element;
    while (Enc()->ClassHere() == ZVXMLC_BLANK)
        Enc()->Step();
    switch (Enc()->ClassHere()) {
    case ZVXMLC_SLASH:
        c->element.empty = 1;
        m_current = c->parent;
        Enc()->Step();
        if (Enc()->ClassHere() == ZVXMLC_GT)
            Enc()->Step();
        return S_OK;
    case ZVXMLC_GT:
        Enc()->Step();
        hr = S_OK;
        break;
    case ZVXMLC_NAME:
        m_attributes.count = 0;
        hr = ParseAttributes();
        if (SUCCEEDED(hr) && m_attributes.count &&
            !(c->element.attributes = MakeList(m_attributes.items, m_attributes.count)))
            hr = E_OUTOFMEMORY;
        break;
    default:
        hr = E_FAIL;
        break;
    }
    if (FAILED(hr)) {
        DropLastContent(c);
        return hr;
    }
    // Still open: its contents collect from here on. Its name's bytes are
    // kept for the end tag, which then needs no scan and no copy.
    if (!c->element.empty && (FAILED(m_opened.Push((void *)(INT_PTR)m_pending.count)) ||
                              FAILED(m_opened.Push((void *)nameAt)) ||
                              FAILED(m_opened.Push((void *)(INT_PTR)(nameEnd - nameAt))))) {
        m_opened.count = opened;
        DropLastContent(c);
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

HRESULT CZvXML_Document::ParseAttributes()
{
    ZvXMLEncodingUtf *enc = Enc();
    if (!enc->Wide()) {
        auto *u = static_cast<ZvXMLEncodingUtf8 *>(enc);
        if (const WCHAR *map = u->Map())
            return ParseAttributes8(u, map);
    }
    tagZVXML_ELEMENT *e = m_current;
    for (;;) {
        int cls = enc->ClassHere();
        if (cls == ZVXMLC_GT)
            return S_OK;
        if (cls == ZVXMLC_SLASH) {
            e->empty = 1;
            m_current = e->content->parent;
            enc->Step();
            return S_OK;
        }
        if (cls == ZVXMLC_END)
            return E_FAIL;
        tagZVXML_ATTRIBUTE *a = (tagZVXML_ATTRIBUTE *)Alloc(sizeof(tagZVXML_ATTRIBUTE));
        if (!a || FAILED(m_attributes.Push(a)))
            return E_OUTOFMEMORY;
        a->element = e;
        a->value = nullptr;
        if (!(a->name = CopyString(kStopEq, nullptr)))
            return E_OUTOFMEMORY;
        if (!PassEqualsQuote())
            return E_FAIL;
        if (!(a->value = CopyString(kStopQuote, nullptr)))
            return E_OUTOFMEMORY;
        if (enc->ClassHere() != ZVXMLC_QUOTE)
            return E_FAIL;
        enc->Step();
        if (enc->ClassHere() == ZVXMLC_BLANK)
            enc->Step();
    }
}

// The same rules as above over the bytes of an 8-bit document on a one-byte
// page, from a cursor of its own: most of a tag's time went on moving the
// shared one.
HRESULT CZvXML_Document::ParseAttributes8(ZvXMLEncodingUtf8 *u, const WCHAR *map)
{
    tagZVXML_ELEMENT *e = m_current;
    const BYTE *const start = u->Here(), *const end = start + u->Left();
    const BYTE *p = start;
    HRESULT hr = S_OK;
    for (;;) {
        int cls = p < end ? g_zvXMLClasses.c[*p] : (int)ZVXMLC_END;
        if (cls == ZVXMLC_GT)
            break;
        if (cls == ZVXMLC_SLASH) {
            e->empty = 1;
            m_current = e->content->parent;
            p++;
            break;
        }
        if (cls == ZVXMLC_END) {
            hr = E_FAIL;
            break;
        }
        tagZVXML_ATTRIBUTE *a = (tagZVXML_ATTRIBUTE *)Alloc(sizeof(tagZVXML_ATTRIBUTE));
        if (!a || FAILED(m_attributes.Push(a))) {
            hr = E_OUTOFMEMORY;
            break;
        }
        a->element = e;
        a->value = nullptr;
        const BYTE *q = u->ScanTo(p, end, kStopEq);
        if ((size_t)(q - p) > kLongestString || !(a->name = Widened(p, (size_t)(q - p), map, (size_t)(end - p)))) {
            hr = E_OUTOFMEMORY;
            break;
        }
        p = q;
        // "=" and '"' are the only bytes of their classes.
        if (p == end || *p != '=') {
            hr = E_FAIL;
            break;
        }
        p++;
        if (p == end || *p != '"') {
            hr = E_FAIL;
            break;
        }
        p++;
        q = u->ScanTo(p, end, kStopQuote);
        if ((size_t)(q - p) > kLongestString || !(a->value = Widened(p, (size_t)(q - p), map, (size_t)(end - p)))) {
            hr = E_OUTOFMEMORY;
            break;
        }
        p = q;
        if (p == end) {
            hr = E_FAIL;
            break;
        }
        p++;
        if (p < end && g_zvXMLClasses.c[*p] == ZVXMLC_BLANK)
            p++;
    }
    u->Skip((size_t)(p - start));
    return hr;
}

HRESULT CZvXML_Document::ParseEndTag()
{
    Enc()->Step();
    if (m_opened.count) {
        // The same bytes as the start tag's name, then ">": the name matches
        // whatever the form (the start tag's name holds no ">").
        ZvXMLEncodingUtf *e = Enc();
        const BYTE *name = (const BYTE *)m_opened.items[m_opened.count - 2];
        size_t bytes = (size_t)(INT_PTR)m_opened.items[m_opened.count - 1];
        const BYTE *p = e->Here();
        unsigned unit = e->Wide() ? 2 : 1;
        if (e->Left() >= bytes + unit && p[bytes] == '>' && (unit == 1 || p[bytes + 1] == 0) &&
            ZvXMLSameBytes(p, name, bytes)) {
            e->Skip(bytes + unit); // the main loop would pass the ">" over
            HRESULT hr = CloseElement();
            m_current = m_current->content->parent;
            return hr;
        }
    }
    int n = 0;
    ULONGLONG mark = m_blockUsed;
    ZvXMLBlock *block = m_blocks;
    WCHAR *name = CopyString(kStopGt, &n);
    if (!name)
        return E_OUTOFMEMORY;
    bool match = m_current && wcscmp(m_current->name, name) == 0;
    // End tags are not kept: their room goes back when it came from the
    // current block.
    if (block == m_blocks && name == (WCHAR *)(m_blocks->data + mark))
        m_blockUsed = (size_t)mark;
    if (!match)
        return E_FAIL;
    HRESULT hr = CloseElement();
    m_current = m_current->content->parent;
    return hr;
}

HRESULT CZvXML_Document::ParseMarkupDeclaration()
{
    Enc()->Step();
    HRESULT hr = S_OK;
    for (;;) {
        switch (Enc()->ClassHere()) {
        case ZVXMLC_END:
            return hr;
        case ZVXMLC_GT:
            Enc()->Step();
            return hr;
        case ZVXMLC_MINUS:
            hr = ParseComment();
            break;
        case ZVXMLC_LBRACKET:
            hr = ParseCDATA();
            break;
        default:
            Enc()->Step();
            break;
        }
    }
}

HRESULT CZvXML_Document::ParseComment() { return ParseBracketed(ZVXML_COMMENT, L'-'); }
HRESULT CZvXML_Document::ParseCDATA() { return ParseBracketed(ZVXML_CDATA, L']'); }

// Comments and CDATA: text up to a ">" that follows two closers; an inner
// ">" becomes part of the text. The cursor is left on the final ">".
HRESULT CZvXML_Document::ParseBracketed(tagXML_CONTENT_TYPE type, WCHAR closer)
{
    ZvXMLEncodingUtf *enc = Enc();
    WCHAR *text = nullptr;
    size_t length = 0;
    for (;;) {
        int n = enc->CopyUntil(kStopGt, nullptr);
        if (n < 0) {
            HeapFree(GetProcessHeap(), 0, text);
            return E_OUTOFMEMORY;
        }
        WCHAR *grown = (WCHAR *)(text ? HeapReAlloc(GetProcessHeap(), 0, text, (length + n + 2) * sizeof(WCHAR))
                                      : HeapAlloc(GetProcessHeap(), 0, (length + n + 2) * sizeof(WCHAR)));
        if (!grown) {
            HeapFree(GetProcessHeap(), 0, text);
            return E_OUTOFMEMORY;
        }
        text = grown;
        enc->CopyUntil(kStopGt, text + length);
        length += (size_t)n;
        if (enc->AtEnd() || (length >= 2 && text[length - 1] == closer && text[length - 2] == closer))
            break;
        text[length++] = L'>';
        enc->Step();
    }
    tagZVXML_CONTENT *c;
    HRESULT hr = AddContent(type, &c);
    if (SUCCEEDED(hr) && c) {
        if ((c->text = (WCHAR *)Alloc((length + 1) * sizeof(WCHAR))) != nullptr) {
            memcpy(c->text, text, length * sizeof(WCHAR));
            c->text[length] = 0;
        } else {
            DropLastContent(c);
            hr = E_OUTOFMEMORY;
        }
    }
    HeapFree(GetProcessHeap(), 0, text);
    return FAILED(hr) ? hr : S_OK;
}
