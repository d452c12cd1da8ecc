// A small non-validating XML reader for the metadata carried inside media
// files (iXML and the like). A document is read whole, from memory or from a
// read-only mapping, into a tree of content records; no namespaces, DTDs,
// entity expansion or writing. Character data stays raw: a caller removes the
// three known escapes itself (ZvXML_RemoveEscapes).
#pragma once
#include "zvbase.h"
#include "zvlist.h"
#include "zvmemory.h"

#define ZVERR_PATH_NOT_FOUND ((HRESULT)0x8004E032)

enum tagXML_CONTENT_TYPE {
    ZVXML_ELEMENT = 0,
    ZVXML_CHARDATA = 1,
    ZVXML_CDATA = 3,
    ZVXML_PI = 4,
    ZVXML_COMMENT = 5,
};

struct tagZVXML_CONTENT;

// The attribute and content lists are made when the element is complete
// and only where it has items: an element without attributes or contents
// has a null list (ZvList_GetCount and ZvList_GetItem take null as empty).
// Items are pointers to records that stay put. Lists, records and strings of
// a tree are carved from the document's own large blocks, since one heap
// allocation per record would cost more than the parse itself; the lists
// are therefore read-only and never passed to ZvList_Destroy.
struct tagZVXML_ELEMENT {
    tagZVXML_CONTENT *content;  // the record that embeds this element
    DWORD empty;                // 1 for a tag closed by "/>"
    WCHAR *name;
    tZVLIST *attributes;        // of tagZVXML_ATTRIBUTE
    tZVLIST *contents;          // of tagZVXML_CONTENT
};

struct tagZVXML_CONTENT {
    tagXML_CONTENT_TYPE type;
    tagZVXML_ELEMENT *parent;   // null for the root
    union {
        tagZVXML_ELEMENT element; // type 0
        WCHAR *text;              // other types
    };
};
static_assert(sizeof(tagZVXML_CONTENT) == 7 * sizeof(void *), "a content record is 7 words");

struct tagZVXML_ATTRIBUTE {
    tagZVXML_ELEMENT *element;
    WCHAR *name;
    WCHAR *value;
};

// One open look-up of FindContentFirst/Next.
struct tagZVXML_LOOKUP {
    tagZVXML_ELEMENT *element; // null: the document level
    int next;
    int used;
};

// Character classes of the syntax (only these decide it).
enum {
    ZVXMLC_OTHER = 0, ZVXMLC_BLANK = 1, ZVXMLC_BANG = 4, ZVXMLC_QUOTE = 5, ZVXMLC_HASH = 6,
    ZVXMLC_SYMBOL = 7, ZVXMLC_PERCENT = 8, ZVXMLC_AMP = 9, ZVXMLC_APOS = 10, ZVXMLC_MINUS = 16,
    ZVXMLC_SLASH = 17, ZVXMLC_DIGIT = 18, ZVXMLC_COLON = 19, ZVXMLC_SEMI = 20, ZVXMLC_LT = 21,
    ZVXMLC_EQ = 22, ZVXMLC_GT = 23, ZVXMLC_QUESTION = 24, ZVXMLC_NAME = 26, ZVXMLC_LBRACKET = 27,
    ZVXMLC_RBRACKET = 28, ZVXMLC_END = 29,
};
#define ZVXML_CLASSBIT(c) (1u << (c))

// The character form of a document. Shaped like a COM object but never
// queried; the slot order is fixed.
struct IZvXMLEncoding {
    virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void **out) = 0;   // E_NOTIMPL
    virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
    virtual ULONG STDMETHODCALLTYPE Release() = 0;
    // One character forward; E_FAIL at the end.
    virtual HRESULT Advance() = 0;
    // Class of the character at the cursor, ZVXMLC_END at the end.
    virtual int Class() = 0;
    // 0 when text stands at the cursor (the cursor then moves past it).
    virtual int Match(const WCHAR *text, int length, BOOL caseSensitive) = 0;
    // Characters up to the first whose class is in stopClasses (or the end).
    // With a buffer (room for the count plus a terminator) copies and moves;
    // without one counts and stays.
    virtual int CopyUntil(DWORD stopClasses, WCHAR *buffer) = 0;
    virtual void DeleteThis() = 0;
    virtual BOOL AtEnd() = 0;
};

// Class of each byte (the table of the syntax), filled at compile time.
struct ZvXMLClassTable {
    BYTE c[256];
};
extern const ZvXMLClassTable g_zvXMLClasses;

class ZvXMLEncodingUtf : public IZvXMLEncoding, public ZvGlobalObject {
public:
    ZvXMLEncodingUtf(const BYTE *data, ULONGLONG size, unsigned unit)
        : refs_(1), data_(data), size_(size), cursor_(0), unit_(unit) {}
    virtual ~ZvXMLEncodingUtf() {}
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void **out) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    void DeleteThis() override { delete this; }
    ULONGLONG Cursor() const { return cursor_; }
    const BYTE *Here() const { return data_ + cursor_; }
    ULONGLONG Left() const { return size_ - cursor_; }
    void Skip(size_t bytes) { cursor_ += bytes; }
    // The same as Class and Advance, without a virtual call: the parser's
    // loop asks for one class per character.
    int ClassHere() const
    {
        if (unit_ == 1)
            return cursor_ < size_ ? g_zvXMLClasses.c[data_[cursor_]] : (int)ZVXMLC_END;
        if (cursor_ + unit_ > size_)
            return ZVXMLC_END;
        unsigned c = data_[cursor_];
        if (unit_ == 2 && (c |= (unsigned)data_[cursor_ + 1] << 8) > 127)
            return ZVXMLC_NAME;
        return g_zvXMLClasses.c[c];
    }
    void Step()
    {
        if (cursor_ + unit_ <= size_)
            cursor_ += unit_;
    }
    bool Wide() const { return unit_ == 2; }
    // Moves to the first character whose class is in classes (which holds
    // ZVXMLC_END) or to the end.
    void SkipUntil(DWORD classes)
    {
        if (unit_ == 1) {
            while (cursor_ < size_ && !((classes >> g_zvXMLClasses.c[data_[cursor_]]) & 1))
                cursor_++;
        } else {
            while (!((classes >> ClassHere()) & 1))
                cursor_ += 2;
        }
    }
protected:
    volatile LONG refs_;
    const BYTE *data_;
    ULONGLONG size_;
    ULONGLONG cursor_;   // in bytes
    unsigned unit_;      // bytes per character
};

// 8-bit text: bytes are characters of the system ANSI code page.
class ZvXMLEncodingUtf8 final : public ZvXMLEncodingUtf {
public:
    ZvXMLEncodingUtf8(const BYTE *data, ULONGLONG size);
    HRESULT Advance() override;
    int Class() override;
    int Match(const WCHAR *text, int length, BOOL caseSensitive) override;
    int CopyUntil(DWORD stopClasses, WCHAR *buffer) override;
    BOOL AtEnd() override { return cursor_ >= size_; }
    // Where the code page has one byte a character: the bytes from the
    // cursor up to the first of stopClasses, cursor unmoved. False on other
    // pages (CopyUntil then converts).
    bool Span(DWORD stopClasses, const BYTE **start, size_t *length);
    // The page's characters by byte where it has one byte a character, else
    // null.
    const WCHAR *Map() const;
    // The first byte from p whose class is in stopClasses, or end.
    const BYTE *ScanTo(const BYTE *p, const BYTE *end, DWORD stopClasses);
private:
    const struct ZvXMLAnsiPage *page_;
    // The counting pass remembers where it stopped, so that the copy that
    // follows it does not scan the same bytes again.
    ULONGLONG scanFrom_;
    ULONGLONG scanLength_;
    DWORD scanStop_;
    int scanCount_;
    // The stop bytes of the last few stop sets, each repeated sixteen
    // times for a wide compare (a set has few bytes; a scan is short).
    struct StopSet {
        DWORD classes;
        int count; // 0: the table decides
        BYTE pattern[8][16];
    } stops_[8]; // by a hash of the classes
    const StopSet &Stops(DWORD stopClasses);
    const StopSet &FillStops(StopSet &set, DWORD stopClasses);
};

// 16-bit little-endian text; codes above 127 are name characters.
class ZvXMLEncodingUtf16 final : public ZvXMLEncodingUtf {
public:
    ZvXMLEncodingUtf16(const BYTE *data, ULONGLONG size) : ZvXMLEncodingUtf(data, size & ~1ull, 2) {}
    HRESULT Advance() override;
    int Class() override;
    int Match(const WCHAR *text, int length, BOOL caseSensitive) override;
    int CopyUntil(DWORD stopClasses, WCHAR *buffer) override;
    BOOL AtEnd() override { return cursor_ + 2 > size_; }
};

// Class of one byte (the table of the syntax).
ZVAPI int ZvXML_ByteClass(BYTE c);

class CZvXML_Document : public ZvGlobalObject {
public:
    CZvXML_Document();
    ~CZvXML_Document();

    HRESULT OpenMemory(const void *data, ULONGLONG size);
    HRESULT OpenFile(const WCHAR *path);
    HRESULT ParseFile();
    HRESULT CloseMemory();
    HRESULT CloseFile();

    // Look-ups over an element's contents; a null element yields the root.
    // Returns a handle, or -1 when there is nothing.
    INT_PTR FindContentFirst(tagZVXML_ELEMENT *element, tagZVXML_CONTENT **content);
    HRESULT FindContentNext(INT_PTR handle, tagZVXML_CONTENT **content);
    HRESULT FindContentClose(INT_PTR handle);

    // A null content searches the document level (the root).
    HRESULT FindChild(tagZVXML_CONTENT *content, const WCHAR *name, tagZVXML_CONTENT **child);
    HRESULT GetCharDataContent(tagZVXML_ELEMENT *element, tagZVXML_CONTENT **content);
    HRESULT GetContentStringReqLen(tagZVXML_ELEMENT *element, int *length);
    // ZVERR_BUFFER_TOO_SMALL when the text was cut to fit.
    HRESULT GetContentString(tagZVXML_ELEMENT *element, WCHAR *buffer, int capacity);
    HRESULT GetAttribute(tagZVXML_ELEMENT *element, const WCHAR *name, tagZVXML_ATTRIBUTE **attribute);
    HRESULT GetAttributeString(tagZVXML_ELEMENT *element, const WCHAR *name, WCHAR *buffer, int capacity);
    HRESULT GetChildContentString(tagZVXML_CONTENT *content, const WCHAR *name, WCHAR *buffer, int capacity);

    tagZVXML_CONTENT *Root() const { return m_root; }
    const WCHAR *Version() const { return m_version; }
    const WCHAR *EncodingName() const { return m_encodingName; }
    const WCHAR *Standalone() const { return m_standalone; }

private:
    HRESULT ParseLT();
    HRESULT ParseXMLDeclaration();
    HRESULT ParseStartTag();
    HRESULT ParseAttributes();
    HRESULT ParseAttributes8(ZvXMLEncodingUtf8 *u, const WCHAR *map);
    HRESULT ParseEndTag();
    HRESULT ParseMarkupDeclaration();
    HRESULT ParseComment();
    HRESULT ParseCDATA();
    HRESULT ParseText(tagXML_CONTENT_TYPE type);
    HRESULT ParseBracketed(tagXML_CONTENT_TYPE type, WCHAR closer);
    bool PassEqualsQuote();
    HRESULT AddContent(tagXML_CONTENT_TYPE type, tagZVXML_CONTENT **content);
    void DropLastContent(tagZVXML_CONTENT *content);
    __attribute__((always_inline)) WCHAR *CopyString(DWORD stopClasses, int *length);
    WCHAR *CopyConverted(DWORD stopClasses, int *length);
    __attribute__((always_inline)) WCHAR *Widened(const BYTE *p, size_t n, const WCHAR *map, size_t readable);
    tZVLIST *MakeList(void *const *items, int count);
    HRESULT CloseElement();
    // Every document's encoding is one of the two forms above.
    ZvXMLEncodingUtf *Enc() const { return static_cast<ZvXMLEncodingUtf *>(m_encoding); }

public:
    ULONGLONG m_dataSize;
    const BYTE *m_data;
    WCHAR m_path[MAX_PATH];
    HANDLE m_file;
    HANDLE m_mapping;
    void *m_view;
    IZvXMLEncoding *m_encoding;
    tagZVXML_ELEMENT *m_current;
    WCHAR m_version[10];
    WCHAR m_encodingName[260];
    WCHAR m_standalone[20];
    tagZVXML_CONTENT *m_root;
    tZVLIST *m_lookups;

private:
    // Records and strings of the tree, at their exact sizes, from large
    // blocks that close frees at once.
    void *Alloc(size_t bytes);
    void *AllocBlock(size_t bytes);
    void FreeBlocks();
    struct ZvXMLBlock *m_blocks;
    size_t m_blockUsed;
    // While parsing: the contents of the open elements, one run each
    // (m_opened holds where each open element's run starts and where its
    // name stands), and the attributes of the tag being read.
    struct ZvXMLStack {
        void **items;
        int count, capacity;
        HRESULT Push(void *item)
        {
            if (count == capacity)
                return Grow(item);
            items[count++] = item;
            return S_OK;
        }
        HRESULT Grow(void *item);
        void Free();
    } m_pending, m_opened, m_attributes;
};

// Three escapes are known: & &amp;, < &lt;, > &gt;.
ZVAPI BOOL ZvXML_DoesStringNeedEscapes(const WCHAR *text);
ZVAPI BOOL ZvXML_DoesStringHaveEscapes(const WCHAR *text);
// In place; an unknown & stays as it is.
ZVAPI HRESULT ZvXML_RemoveEscapes(WCHAR *text);
// Characters AddEscapes writes for source, without the terminator.
ZVAPI int ZvXML_EscapedLength(const WCHAR *source);
// Copies source escaped; a character already starting its own escape is
// copied plainly, so a second run changes nothing. ZVERR_BUFFER_TOO_SMALL
// (with as much as fits, terminated) when capacity is short.
ZVAPI HRESULT ZvXML_AddEscapes(WCHAR *buffer, int capacity, const WCHAR *source);
