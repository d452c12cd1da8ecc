// XML parse bench, the peers, built natively: expat as a SAX parser whose
// handlers build nothing, and pugixml building its DOM (freed again).
// Prints "<case> <expat MB/s> <pugixml MB/s>".
#include "xml_docs.h"
#include <expat.h>
#include <pugixml.hpp>
#include <chrono>
#include <stdlib.h>

static void XMLCALL OnStart(void *n, const XML_Char *, const XML_Char **) { ++*(long *)n; }
static void XMLCALL OnEnd(void *n, const XML_Char *) { ++*(long *)n; }
static void XMLCALL OnText(void *n, const XML_Char *, int) { ++*(long *)n; }

template <class F> static double Best(double budget, F parse)
{
    double best = 1e30, spent = 0;
    for (int run = 0; run < 3 || spent < budget; run++) {
        auto a = std::chrono::steady_clock::now();
        if (!parse())
            exit(1);
        double t = std::chrono::duration<double>(std::chrono::steady_clock::now() - a).count();
        best = t < best ? t : best;
        spent += t;
    }
    return best;
}

int main(int argc, char **argv)
{
    double budget = argc > 1 ? atof(argv[1]) : 1.0;
    for (const XmlBenchCase &c : kXmlBenchCases) {
        std::string doc = XmlBenchDocument(c.ixml, c.size);
        double expat = Best(budget, [&] {
            long events = 0;
            XML_Parser p = XML_ParserCreate(nullptr);
            XML_SetUserData(p, &events);
            XML_SetElementHandler(p, OnStart, OnEnd);
            XML_SetCharacterDataHandler(p, OnText);
            bool ok = XML_Parse(p, doc.data(), (int)doc.size(), 1) == XML_STATUS_OK && events > 0;
            XML_ParserFree(p);
            return ok;
        });
        double pugi = Best(budget, [&] {
            pugi::xml_document d;
            return (bool)d.load_buffer(doc.data(), doc.size());
        });
        printf("%s %.2f %.2f\n", c.name, doc.size() / expat / 1e6, doc.size() / pugi / 1e6);
    }
    return 0;
}
