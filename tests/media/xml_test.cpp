// The XML document: iXML in its three character forms, the forgiving rules of
// the parser, look-ups, files, escapes, and mutated documents by the thousand.
#include "zvhandlecount.h"
#include "mediatest.h"
#include "media/xml/zvxml.h"
#include <set>
#include <string>

using namespace mediatest;

namespace {

const char kIxml[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
    "<BWFXML>\r\n"
    "  <IXML_VERSION>1.61</IXML_VERSION>\r\n"
    "  <PROJECT>Night Shoot</PROJECT>\r\n"
    "  <SCENE>12A</SCENE>\r\n"
    "  <TAKE>3</TAKE>\r\n"
    "  <NOTE>Plane &amp; wind</NOTE>\r\n"
    "  <!-- recorder says hi -->\r\n"
    "  <SPEED><TIMECODE_RATE>25/1</TIMECODE_RATE></SPEED>\r\n"
    "  <TRACK_LIST>\r\n"
    "    <TRACK_COUNT>2</TRACK_COUNT>\r\n"
    "    <TRACK><CHANNEL_INDEX>1</CHANNEL_INDEX><NAME>Boom</NAME></TRACK>\r\n"
    "    <TRACK><CHANNEL_INDEX>2</CHANNEL_INDEX><NAME>Lav</NAME></TRACK>\r\n"
    "  </TRACK_LIST>\r\n"
    "  <USER id=\"7\" kind=\"memo\"/>\r\n"
    "</BWFXML>\r\n";

std::wstring Child(CZvXML_Document &d, tagZVXML_CONTENT *c, const wchar_t *name)
{
    WCHAR buf[256];
    HRESULT hr = d.GetChildContentString(c, name, buf, 256);
    return SUCCEEDED(hr) ? std::wstring(buf) : L"<" + std::to_wstring((unsigned)hr) + L">";
}

void CheckIxml(CZvXML_Document &d)
{
    ASSERT_EQ(S_OK, d.ParseFile());
    EXPECT_STREQ(L"1.0", d.Version());
    EXPECT_STREQ(L"UTF-8", d.EncodingName());
    tagZVXML_CONTENT *root;
    ASSERT_EQ(S_OK, d.FindChild(nullptr, L"BWFXML", &root));
    EXPECT_EQ(nullptr, root->parent);
    EXPECT_EQ(L"1.61", Child(d, root, L"IXML_VERSION"));
    EXPECT_EQ(L"Night Shoot", Child(d, root, L"PROJECT"));
    EXPECT_EQ(L"12A", Child(d, root, L"SCENE"));
    EXPECT_EQ(L"Plane &amp; wind", Child(d, root, L"NOTE")); // kept raw
    tagZVXML_CONTENT *speed, *tracks, *user;
    ASSERT_EQ(S_OK, d.FindChild(root, L"SPEED", &speed));
    EXPECT_EQ(L"25/1", Child(d, speed, L"TIMECODE_RATE"));
    EXPECT_EQ(ZVERR_NOT_FOUND, d.FindChild(root, L"scene", &speed)); // exact names
    ASSERT_EQ(S_OK, d.FindChild(root, L"TRACK_LIST", &tracks));
    EXPECT_EQ(&root->element, tracks->parent);

    // Walk the tracks with a look-up; the comment is a content of its own.
    std::vector<std::wstring> names;
    tagZVXML_CONTENT *c;
    INT_PTR h = d.FindContentFirst(&tracks->element, &c);
    ASSERT_NE(-1, h);
    do {
        if (c->type == ZVXML_ELEMENT && !wcscmp(c->element.name, L"TRACK"))
            names.push_back(Child(d, c, L"NAME"));
    } while (d.FindContentNext(h, &c) == S_OK);
    EXPECT_EQ(ZVERR_NOT_FOUND, d.FindContentNext(h, &c));
    EXPECT_EQ(S_OK, d.FindContentClose(h));
    EXPECT_EQ(E_HANDLE, d.FindContentNext(h, &c));
    EXPECT_EQ((std::vector<std::wstring>{L"Boom", L"Lav"}), names);
    bool comment = false;
    for (int i = 0; i < ZvList_GetCount(root->element.contents); i++) {
        auto *x = (tagZVXML_CONTENT *)ZvList_GetItem(root->element.contents, i);
        comment |= x->type == ZVXML_COMMENT && !wcscmp(x->text, L"-- recorder says hi --");
    }
    EXPECT_TRUE(comment);

    ASSERT_EQ(S_OK, d.FindChild(root, L"USER", &user));
    EXPECT_EQ(1u, user->element.empty);
    WCHAR v[8];
    EXPECT_EQ(S_OK, d.GetAttributeString(&user->element, L"kind", v, 8));
    EXPECT_STREQ(L"memo", v);
    EXPECT_EQ(ZVERR_BUFFER_TOO_SMALL, d.GetAttributeString(&user->element, L"kind", v, 3));
    EXPECT_STREQ(L"me", v);
    EXPECT_EQ(ZVERR_NOT_FOUND, d.GetAttributeString(&user->element, L"KIND", v, 8));
    EXPECT_EQ(E_INVALIDARG, d.GetAttributeString(nullptr, L"kind", v, 8));
    int len = 0;
    EXPECT_EQ(ZVERR_NOT_FOUND, d.GetContentStringReqLen(&user->element, &len)); // empty element
    tagZVXML_CONTENT *take;
    ASSERT_EQ(S_OK, d.FindChild(root, L"TAKE", &take));
    EXPECT_EQ(S_OK, d.GetContentStringReqLen(&take->element, &len));
    EXPECT_EQ(2, len);
}

Bytes Utf16(const std::wstring &s, bool bom)
{
    Bytes b;
    if (bom)
        b = {0xFF, 0xFE};
    for (wchar_t c : s)
        Le16(b, c);
    return b;
}

HRESULT ParseText(CZvXML_Document &d, const char *text)
{
    HRESULT hr = d.OpenMemory(text, strlen(text));
    return FAILED(hr) ? hr : d.ParseFile();
}

// Mixed documents for the mutation tests: an attribute list with every kind
// of content.
std::string AttrsDocument()
{
    std::string attrs = "<?xml version=\"1.0\"?>\n<list>\n";
    for (int i = 0; i < 40; i++)
        attrs += "<item id=\"" + std::to_string(i) + "\" name=\"n&amp;" + std::to_string(i) +
                 "\" flag=\"yes\"><v>" + std::to_string(i * 7) + "</v><!-- c --><![CDATA[<x>]]></item>\n";
    return attrs + "</list>\n";
}

// A few random edits: bit flips, cuts, pieces of syntax put in, truncation.
// ASCII keeps every byte below 0x80.
struct Mutator {
    unsigned long long s = 20261125;
    unsigned Next(unsigned n)
    {
        s = s * 6364136223846793005ull + 1442695040888963407ull;
        return n ? (unsigned)(s >> 33) % n : 0u;
    }
    void Mutate(Bytes &b, bool ascii)
    {
        static const char *const kPieces[] = {"<", ">", "/", "\"", "'", "=", "<!--", "-->", "<![CDATA[", "]]>",
                                              "<?", "?>", "</", "/>", "&", "\0", " ", "<!DOCTYPE", "\xFF\xFE"};
        const unsigned pieces = sizeof kPieces / sizeof *kPieces - (ascii ? 1 : 0);
        for (unsigned k = 0, n = 1 + Next(6); k < n && !b.empty(); k++) {
            size_t at = Next((unsigned)b.size());
            switch (Next(4)) {
            case 0: b[at] ^= (BYTE)(1u << Next(ascii ? 7 : 8)); break;
            case 1: b.erase(b.begin() + at, b.begin() + std::min(b.size(), at + 1 + Next(40))); break;
            case 2: { const char *p = kPieces[Next(pieces)];
                      b.insert(b.begin() + at, p, p + (*p ? strlen(p) : 1)); break; }
            default: b.resize(at); break;
            }
        }
    }
};

// A parse as text: its result, the declaration, the open element's depth,
// and the tree, each content with its type, name, attributes and text.
std::wstring Dump(CZvXML_Document &d, HRESULT hr)
{
    std::wstring out = std::to_wstring((unsigned)hr) + L" " + d.Version() + L"|" + d.EncodingName() + L"|" +
                       d.Standalone() + L" depth ";
    int depth = 0;
    for (tagZVXML_ELEMENT *e = d.m_current; e; e = e->content->parent)
        depth++;
    out += std::to_wstring(depth);
    std::vector<tagZVXML_CONTENT *> todo;
    if (d.Root())
        todo.push_back(d.Root());
    while (!todo.empty()) {
        tagZVXML_CONTENT *c = todo.back();
        todo.pop_back();
        out += L"\n" + std::to_wstring(c->type) + L" ";
        if (c->type != ZVXML_ELEMENT) {
            out += c->text;
            continue;
        }
        out += std::wstring(c->element.name) + (c->element.empty ? L"/" : L"");
        for (int i = 0; i < ZvList_GetCount(c->element.attributes); i++) {
            auto *a = (tagZVXML_ATTRIBUTE *)ZvList_GetItem(c->element.attributes, i);
            out += L" " + std::wstring(a->name) + L"=" + a->value;
        }
        for (int i = ZvList_GetCount(c->element.contents); i-- > 0;)
            todo.push_back((tagZVXML_CONTENT *)ZvList_GetItem(c->element.contents, i));
    }
    return out;
}

} // namespace

TEST(XmlDocument, IxmlInEveryCharacterForm)
{
    {
        CZvXML_Document d;
        ASSERT_EQ(S_OK, d.OpenMemory(kIxml, sizeof kIxml - 1));
        CheckIxml(d);
    }
    { // a byte order mark in 8-bit text is passed over
        std::string withBom = "\xEF\xBB\xBF" + std::string(kIxml);
        CZvXML_Document d;
        ASSERT_EQ(S_OK, d.OpenMemory(withBom.data(), withBom.size()));
        CheckIxml(d);
    }
    { // 16-bit, at an odd address too
        std::string a(kIxml);
        Bytes b = Utf16(std::wstring(a.begin(), a.end()), true);
        Bytes odd(1, 0);
        Put(odd, b.data(), b.size());
        CZvXML_Document d;
        ASSERT_EQ(S_OK, d.OpenMemory(odd.data() + 1, b.size()));
        CheckIxml(d);
        // reopened after closing, the same document again
        d.CloseMemory();
        EXPECT_EQ(nullptr, d.Root());
        ASSERT_EQ(S_OK, d.OpenMemory(b.data(), b.size()));
        CheckIxml(d);
    }
}

TEST(XmlDocument, SixteenBitCodesAboveAsciiAreNameCharacters)
{
    Bytes b = Utf16(L"<sc\u00e9ne t\u00e9=\"caf\u00e9\">\u00e9t\u00e9</sc\u00e9ne>", true);
    CZvXML_Document d;
    ASSERT_EQ(S_OK, d.OpenMemory(b.data(), b.size()));
    ASSERT_EQ(S_OK, d.ParseFile());
    ASSERT_NE(nullptr, d.Root());
    EXPECT_STREQ(L"sc\u00e9ne", d.Root()->element.name);
    WCHAR v[16];
    EXPECT_EQ(S_OK, d.GetAttributeString(&d.Root()->element, L"t\u00e9", v, 16));
    EXPECT_STREQ(L"caf\u00e9", v);
    EXPECT_EQ(S_OK, d.GetContentString(&d.Root()->element, v, 16));
    EXPECT_STREQ(L"\u00e9t\u00e9", v);
}

TEST(XmlDocument, ForgivingRules)
{
    CZvXML_Document d;
    // Single quotes fail the attribute; the element goes, the loop goes on.
    EXPECT_EQ(S_OK, ParseText(d, "<r><a b='1'/><c/></r>"));
    tagZVXML_CONTENT *c;
    EXPECT_EQ(ZVERR_NOT_FOUND, d.FindChild(d.Root(), L"a", &c));
    EXPECT_EQ(S_OK, d.FindChild(d.Root(), L"c", &c));
    // Alone, the dropped root leaves nothing; the text after it is passed over.
    EXPECT_EQ(S_OK, ParseText(d, "<a b='1'/>"));
    EXPECT_EQ(nullptr, d.Root());

    // A mismatched end tag stays on its element.
    EXPECT_EQ(E_FAIL, ParseText(d, "<a></b>"));
    ASSERT_NE(nullptr, d.Root());
    EXPECT_EQ(&d.Root()->element, d.m_current);
    EXPECT_EQ(S_OK, ParseText(d, "<a></b>tail"));

    // Comments keep an inner ">", CDATA keeps its text raw.
    ASSERT_EQ(S_OK, ParseText(d, "<r><!-- a > b --><![CDATA[x<y>z]]>  lead and trail  </r>"));
    tZVLIST *items = d.Root()->element.contents;
    ASSERT_EQ(3, ZvList_GetCount(items));
    EXPECT_STREQ(L"-- a > b --", ((tagZVXML_CONTENT *)ZvList_GetItem(items, 0))->text);
    EXPECT_EQ(ZVXML_CDATA, ((tagZVXML_CONTENT *)ZvList_GetItem(items, 1))->type);
    EXPECT_STREQ(L"lead and trail  ", ((tagZVXML_CONTENT *)ZvList_GetItem(items, 2))->text);

    // A DOCTYPE is skipped; processing instructions inside the root are kept.
    ASSERT_EQ(S_OK, ParseText(d, "<?xml version=\"1.1\" standalone=\"yes\"?><!DOCTYPE r><r><?pi x?></r>"));
    EXPECT_STREQ(L"yes", d.Standalone());
    EXPECT_EQ(ZVXML_PI, ((tagZVXML_CONTENT *)ZvList_GetItem(d.Root()->element.contents, 0))->type);
    EXPECT_EQ(S_OK, ParseText(d, "<?xml version=1.0?><r/>x<"));
    EXPECT_STREQ(L"", d.Version());
    EXPECT_STREQ(L"r", d.Root()->element.name);
    EXPECT_EQ(ZVERR_MALFORMED, d.OpenMemory("", 0));
    EXPECT_EQ(E_POINTER, d.OpenMemory(nullptr, 4));
}

TEST(XmlDocument, FilesAndDeepNesting)
{
    zvtest::TempDir dir;
    CZvXML_Document d;
    EXPECT_EQ(ZVERR_PATH_NOT_FOUND, d.OpenFile(dir.file(L"missing.xml").c_str()));
    EXPECT_EQ(ZVERR_PATH_NOT_FOUND, d.OpenFile(dir.path().c_str()));
    EXPECT_EQ(ZVERR_PATH_NOT_FOUND, d.OpenFile(nullptr));
    zvtest::WriteFileBytes(dir.file(L"empty.xml"), "", 0);
    EXPECT_EQ(ZVERR_MALFORMED, d.OpenFile(dir.file(L"empty.xml").c_str()));
    zvtest::WriteFileBytes(dir.file(L"ixml.xml"), kIxml, sizeof kIxml - 1);
    ASSERT_EQ(S_OK, d.OpenFile(dir.file(L"ixml.xml").c_str()));
    CheckIxml(d);
    d.CloseFile();
    // Closing let go of the mapping: the file can be deleted.
    EXPECT_TRUE(DeleteFileW(dir.file(L"ixml.xml").c_str()));

    // Depth costs no stack, in parse or close.
    std::string deep;
    for (int i = 0; i < 200000; i++)
        deep += "<e>";
    ASSERT_EQ(S_OK, ParseText(d, deep.c_str()));
    int depth = 0;
    for (tagZVXML_ELEMENT *e = d.m_current; e; e = e->content->parent)
        depth++;
    EXPECT_EQ(200000, depth);
    d.CloseMemory();
}

TEST(XmlEscapes, ThreeKnownEscapes)
{
    EXPECT_TRUE(ZvXML_DoesStringNeedEscapes(L"a < b"));
    EXPECT_TRUE(ZvXML_DoesStringNeedEscapes(L"R&D"));
    EXPECT_FALSE(ZvXML_DoesStringNeedEscapes(L"R&amp;D &lt;x&gt;"));
    EXPECT_FALSE(ZvXML_DoesStringHaveEscapes(L"R&D &quot;"));
    EXPECT_TRUE(ZvXML_DoesStringHaveEscapes(L"x &gt; y"));

    WCHAR buf[64];
    EXPECT_EQ(S_OK, ZvXML_AddEscapes(buf, 64, L"R&D <1> &amp;"));
    EXPECT_STREQ(L"R&amp;D &lt;1&gt; &amp;", buf);
    WCHAR again[64];
    EXPECT_EQ(S_OK, ZvXML_AddEscapes(again, 64, buf)); // a second run changes nothing
    EXPECT_STREQ(buf, again);
    EXPECT_EQ((int)wcslen(buf), ZvXML_EscapedLength(L"R&D <1> &amp;"));
    EXPECT_EQ(ZVERR_BUFFER_TOO_SMALL, ZvXML_AddEscapes(buf, 6, L"a&b"));
    EXPECT_STREQ(L"a", buf); // an escape is never cut in half

    wcscpy(buf, L"&amp;lt; & &bogus; &lt;&gt;");
    EXPECT_EQ(S_OK, ZvXML_RemoveEscapes(buf));
    EXPECT_STREQ(L"&lt; & &bogus; <>", buf);
}

// Mutated documents: only the parser's codes, no crash or hang, nothing left
// allocated and no handle left open.
TEST(XmlDocument, MutatedDocuments)
{
    std::string attrs = AttrsDocument(), ixml(kIxml);
    const Bytes bases[3] = {Bytes(ixml.begin(), ixml.end()), Bytes(attrs.begin(), attrs.end()),
                            Utf16(std::wstring(ixml.begin(), ixml.end()), true)};
    const std::set<HRESULT> codes = {S_OK, E_FAIL, E_OUTOFMEMORY, ZVERR_MALFORMED};
    Mutator m;
    zvtest::TempDir dir;
    std::wstring path = dir.file(L"fuzz.xml");
    long long heapBefore = 0;
    DWORD handlesBefore = 0;
    for (int variant = 0; variant < 6200; variant++) {
        if (variant == 200) {
            heapBefore = HeapBusyBlocks();
            handlesBefore = ZvProcessHandleCount();
        }
        Bytes b = bases[variant % 3];
        m.Mutate(b, false);
        CZvXML_Document d;
        HRESULT hr;
        if (variant % 10 == 0) {
            zvtest::WriteFileBytes(path, b.data(), b.size());
            hr = d.OpenFile(path.c_str());
        } else {
            hr = d.OpenMemory(b.empty() ? nullptr : b.data(), b.size());
        }
        EXPECT_TRUE(codes.count(hr)) << std::hex << hr << " open, variant " << std::dec << variant;
        if (FAILED(hr))
            continue;
        hr = d.ParseFile();
        EXPECT_TRUE(codes.count(hr)) << std::hex << hr << " parse, variant " << std::dec << variant;
        // Every record reachable and sound: walk the whole tree.
        std::vector<tagZVXML_ELEMENT *> todo;
        if (d.Root())
            todo.push_back(&d.Root()->element);
        WCHAR buf[32];
        while (!todo.empty()) {
            tagZVXML_ELEMENT *e = todo.back();
            todo.pop_back();
            ASSERT_NE(nullptr, e->name);
            d.GetAttributeString(e, L"id", buf, 32);
            d.GetContentString(e, buf, 32);
            tagZVXML_CONTENT *c;
            INT_PTR h = d.FindContentFirst(e, &c);
            if (h == -1)
                continue;
            do {
                ASSERT_EQ(e, c->parent);
                if (c->type == ZVXML_ELEMENT)
                    todo.push_back(&c->element);
                else
                    ASSERT_NE(nullptr, c->text);
            } while (d.FindContentNext(h, &c) == S_OK);
            d.FindContentClose(h);
        }
    }
    EXPECT_LE(HeapBusyBlocks(), heapBefore);
    DWORD handlesAfter = ZvProcessHandleCount();
    ASSERT_GT(handlesBefore, 0u) << "no handle count: the leak check would be empty";
    EXPECT_LE(handlesAfter, handlesBefore);
}

// The 8-bit form reads tags from bytes, the 16-bit form character by
// character: an ASCII document, mutated, gives the same tree and result in
// both.
TEST(XmlDocument, EightAndSixteenBitFormsAgree)
{
    std::string attrs = AttrsDocument(), ixml(kIxml);
    const Bytes bases[2] = {Bytes(ixml.begin(), ixml.end()), Bytes(attrs.begin(), attrs.end())};
    Mutator m;
    for (int variant = 0; variant < 3000; variant++) {
        Bytes b = bases[variant % 2];
        if (variant >= 2)
            m.Mutate(b, true);
        if (b.empty())
            continue;
        Bytes w = Utf16(std::wstring(b.begin(), b.end()), true);
        CZvXML_Document d8, d16;
        ASSERT_EQ(S_OK, d8.OpenMemory(b.data(), b.size()));
        ASSERT_EQ(S_OK, d16.OpenMemory(w.data(), w.size()));
        HRESULT hr8 = d8.ParseFile(), hr16 = d16.ParseFile();
        ASSERT_EQ(Dump(d8, hr8), Dump(d16, hr16)) << "variant " << variant;
    }
}
