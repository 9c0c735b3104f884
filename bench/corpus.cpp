// corpus.cpp - deterministic generators for the benchmark corpora. A small
// linear congruential generator keeps every run byte-identical.
#include "corpus.h"

#include <cstdint>
#include <cstdio>

namespace bench {
namespace {

struct Rng {
    uint64_t state;
    uint32_t next() {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        return static_cast<uint32_t>(state >> 33);
    }
    uint32_t below(uint32_t n) { return next() % n; }
};

const char *const kWords[] = {"alpha", "bravo", "charlie", "delta", "echo", "foxtrot", "golf",
                              "hotel", "india", "juliet", "kilo", "lima", "mike", "november",
                              "oscar", "papa", "quebec", "romeo", "sierra", "tango", "uniform",
                              "victor", "whiskey", "xray", "yankee", "zulu", "Grüße", "naïve"};
constexpr uint32_t kWordCount = sizeof kWords / sizeof kWords[0];

void words(std::string &out, Rng &rng, int n) {
    for (int i = 0; i < n; ++i) {
        if (i) out += ' ';
        out += kWords[rng.below(kWordCount)];
    }
}

void number(std::string &out, uint32_t v) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "%u", v);
    out += buf;
}

}  // namespace

std::string records(size_t bytes) {
    Rng rng{1};
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<records>\n";
    for (uint32_t id = 1; out.size() < bytes; ++id) {
        out += "  <record id=\"";
        number(out, id);
        out += "\" kind=\"";
        out += kWords[rng.below(kWordCount)];
        out += "\" amount=\"";
        number(out, rng.below(100000));
        out += "\">\n    <name>";
        words(out, rng, 2);
        out += "</name>\n    <city zip=\"";
        number(out, 10000 + rng.below(89999));
        out += "\">";
        words(out, rng, 1);
        out += "</city>\n    <note>";
        words(out, rng, 6);
        out += "</note>\n  </record>\n";
    }
    out += "</records>\n";
    return out;
}

std::string mixedText(size_t bytes) {
    Rng rng{2};
    std::string out = "<?xml version=\"1.0\"?>\n<book>\n";
    while (out.size() < bytes) {
        out += "<p>";
        for (int s = 0; s < 8; ++s) {
            words(out, rng, 10);
            switch (rng.below(6)) {
                case 0: out += " &amp; "; break;
                case 1: out += " &lt;tag&gt; "; break;
                case 2: out += " &#233;t&#xE9; "; break;
                case 3: out += " <b>"; words(out, rng, 2); out += "</b> "; break;
                case 4: out += " <i>"; words(out, rng, 1); out += "</i>, "; break;
                default: out += ". "; break;
            }
        }
        out += "</p>\n";
    }
    out += "</book>\n";
    return out;
}

std::string manyAttributes(size_t bytes) {
    Rng rng{3};
    std::string out = "<?xml version=\"1.0\"?>\n<table>\n";
    for (uint32_t row = 1; out.size() < bytes; ++row) {
        out += "<row";
        for (int a = 0; a < 30; ++a) {
            out += " c";
            number(out, static_cast<uint32_t>(a));
            out += "=\"";
            if (a % 3 == 0)
                number(out, rng.below(1000000));
            else
                out += kWords[rng.below(kWordCount)];
            out += "\"";
        }
        out += "/>\n";
    }
    out += "</table>\n";
    return out;
}

std::string dtdHeavy(size_t bytes) {
    Rng rng{4};
    std::string out =
        "<?xml version=\"1.0\"?>\n"
        "<!DOCTYPE catalog [\n"
        "  <!ELEMENT catalog (item*)>\n"
        "  <!ELEMENT item (title, maker, price)>\n"
        "  <!ELEMENT title (#PCDATA)>\n"
        "  <!ELEMENT maker (#PCDATA)>\n"
        "  <!ELEMENT price (#PCDATA)>\n"
        "  <!ATTLIST item id ID #REQUIRED\n"
        "                 status (new|used|refurbished) \"new\"\n"
        "                 currency CDATA \"EUR\"\n"
        "                 shipping NMTOKENS \"  standard  express \">\n"
        "  <!ATTLIST price tax CDATA #FIXED \"19\">\n"
        "  <!ENTITY acme \"ACME Manufacturing &amp; Sons\">\n"
        "  <!ENTITY globex \"Globex Corporation\">\n"
        "  <!ENTITY note \"<![CDATA[fragile]]> handle with care\">\n"
        "]>\n<catalog>\n";
    for (uint32_t id = 1; out.size() < bytes; ++id) {
        out += "  <item id=\"i";
        number(out, id);
        out += rng.below(4) == 0 ? "\" status=\"used\">\n" : "\">\n";
        out += "    <title>";
        words(out, rng, 3);
        out += " &note;</title>\n    <maker>";
        out += rng.below(2) ? "&acme;" : "&globex;";
        out += "</maker>\n    <price>";
        number(out, rng.below(10000));
        out += "</price>\n  </item>\n";
    }
    out += "</catalog>\n";
    return out;
}

std::string deepNesting(size_t bytes) {
    Rng rng{5};
    std::string out = "<?xml version=\"1.0\"?>\n<deep>";
    while (out.size() < bytes) {
        for (int d = 0; d < 1000; ++d) out += "<n>";
        words(out, rng, 3);
        for (int d = 0; d < 1000; ++d) out += "</n>";
        out += '\n';
    }
    out += "</deep>\n";
    return out;
}

std::vector<Corpus> generated(size_t bytes, const std::string &suffix) {
    return {{"records" + suffix, records(bytes)},
            {"mixed-text" + suffix, mixedText(bytes)},
            {"attributes" + suffix, manyAttributes(bytes)},
            {"dtd" + suffix, dtdHeavy(bytes)},
            {"deep" + suffix, deepNesting(bytes)}};
}

std::vector<Corpus> hostile() {
    auto repeat = [](const std::string &s, int n) {
        std::string out;
        for (int i = 0; i < n; ++i) out += s;
        return out;
    };
    std::vector<Corpus> out;
    std::string laughs = "<?xml version=\"1.0\"?>\n<!DOCTYPE lolz [\n <!ENTITY lol \"lol\">\n";
    for (int i = 1; i < 10; ++i) {
        const std::string prev = i == 1 ? "lol" : "lol" + std::to_string(i - 1);
        laughs += " <!ENTITY lol" + std::to_string(i) + " \"" + repeat("&" + prev + ";", 10) + "\">\n";
    }
    out.push_back({"billion-laughs", laughs + "]>\n<lolz>&lol9;</lolz>\n"});
    out.push_back({"large-entity", "<!DOCTYPE r [<!ENTITY a '" + std::string(100000, 'x') + "'>]>\n<r>" +
                                       repeat("&a;", 20000) + "</r>\n"});
    std::string defaults = "<!DOCTYPE r [\n";
    for (int i = 0; i < 200; ++i)
        defaults += "<!ATTLIST a d" + std::to_string(i) + " CDATA '" + std::string(1000, 'y') + "'>\n";
    out.push_back({"attribute-defaults", defaults + "]>\n<r>" + repeat("<a/>", 20000) + "</r>\n"});
    std::string params = "<!DOCTYPE r [<!ENTITY % p60 '" + std::string(20000, ' ') + "'>";
    for (int i = 59; i >= 0; --i)
        params += "<!ENTITY % p" + std::to_string(i) + " '%p" + std::to_string(i + 1) + ";'>";
    out.push_back({"parameter-entities", params + repeat("%p0;", 100) + "]><r/>\n"});
    return out;
}

}  // namespace bench
