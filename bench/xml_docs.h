// The documents of the XML parse bench, made the same way on both sides:
// an iXML shape (deep blocks of short text elements, indented) and an
// attribute-heavy list, each filled to the size asked.
#pragma once
#include <stdio.h>
#include <string>

static inline std::string XmlBenchDocument(bool ixml, size_t size)
{
    std::string d = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    d += ixml ? "<BWFXML>\n  <IXML_VERSION>1.61</IXML_VERSION>\n  <PROJECT>Night Shoot</PROJECT>\n"
              : "<markers file=\"take_0012.wav\" rate=\"48000\">\n";
    char buf[512];
    for (unsigned i = 0; d.size() < size; i++) {
        if (ixml)
            snprintf(buf, sizeof buf,
                     "  <TAKE_BLOCK>\n    <SCENE>%uA</SCENE>\n    <TAKE>%u</TAKE>\n"
                     "    <NOTE>Plane overhead &amp; wind on boom, take %u kept</NOTE>\n"
                     "    <TRACK><CHANNEL_INDEX>%u</CHANNEL_INDEX><INTERLEAVE_INDEX>%u</INTERLEAVE_INDEX>"
                     "<NAME>Lav %u</NAME><FUNCTION>LEFT</FUNCTION></TRACK>\n"
                     "    <TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_LO>%u</TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_LO>\n"
                     "  </TAKE_BLOCK>\n",
                     i % 200, i, i, i % 8 + 1, i % 8 + 1, i, i * 48000u);
        else
            snprintf(buf, sizeof buf,
                     "<marker id=\"%u\" pos=\"%u\" len=\"%u\" name=\"Marker %u\" color=\"#FF%04X\" "
                     "type=\"cue\" flags=\"0x%04X\"/>\n",
                     i, i * 4410u, (i * 37u) % 100000u, i, i & 0xFFFF, i & 0x13);
        d += buf;
    }
    d += ixml ? "</BWFXML>\n" : "</markers>\n";
    return d;
}

struct XmlBenchCase {
    const char *name;
    bool ixml;
    size_t size;
};
static const XmlBenchCase kXmlBenchCases[] = {
    {"ixml-1m", true, 1u << 20},
    {"ixml-20m", true, 20u << 20},
    {"attrs-1m", false, 1u << 20},
    {"attrs-20m", false, 20u << 20},
};
