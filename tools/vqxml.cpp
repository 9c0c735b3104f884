// vqxml.cpp - the vqxml command-line program: check, format, select, query,
// answer, image and stats over the library's public interface.
//
// Exit codes: 0 done, 1 the input was refused or a document was not built
// (messages say why), 2 a usage error.
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "input.h"
#include "vqxml/vqxml.h"

namespace {

using Args = std::vector<std::string>;

constexpr int kOk = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 2;

// ---- help texts --------------------------------------------------------------

struct Command {
    const char *name;
    const char *usage;  // first line of the command's help
    const char *help;   // the rest
    int (*run)(const Args &);
};

constexpr char kOverview[] =
    "usage: vqxml COMMAND [ARG...]\n"
    "       vqxml --help | --version | COMMAND --help\n"
    "\n"
    "Files may be given as - for standard input.\n"
    "\n"
    "commands:\n"
    "  check FILE...                  parse each file and print its messages\n"
    "  format [--indent] FILE         print the document compactly or indented\n"
    "  select PATH FILE...            print the nodes a path selects\n"
    "  query MODEL ENTRY...           build a query from path=value entries\n"
    "  answer MODEL QUERY ENTRY...    build an answer from path=value entries\n"
    "  image save FILE OUT            write the document's area image\n"
    "  image load IN                  load an area image and print it\n"
    "  stats FILE                     nodes, handles, area size, parse speed, memory\n"
    "\n"
    "exit status: 0 done, 1 input refused or document not built, 2 usage error\n";

void err(const std::string &line) { std::fprintf(stderr, "vqxml: %s\n", line.c_str()); }

int usageError(const std::string &line) {
    err(line + " (see vqxml --help)");
    return kUsage;
}

// ---- library helpers -----------------------------------------------------------

// Drains the main error list; each message goes to `out` as "PREFIX:LINE: message"
// when the parameters start with a line number (parse messages), else as
// "PREFIX: message". Returns the number of messages.
int drainMessages(FILE *out, const std::string &prefix) {
    char params[256];
    int count = 0;
    int64_t code;
    while ((code = VQXML_getError(params)) != 0) {
        ++count;
        std::string message(512, '\0');
        const int32_t n = VQXML_getErrorMsg(code, params, message.data(), static_cast<int32_t>(message.size()));
        if (n >= static_cast<int32_t>(message.size())) {
            message.assign(static_cast<size_t>(n) + 1, '\0');
            VQXML_getErrorMsg(code, params, message.data(), n + 1);
        }
        message.resize(static_cast<size_t>(n < 0 ? 0 : n));
        std::string line;
        // Parse messages (1001900 and up) carry the line as their first parameter.
        if (code >= 1001900 && params[0] >= '0' && params[0] <= '9') {
            const char *bar = std::strchr(params, '|');
            line.assign(params, bar != nullptr ? static_cast<size_t>(bar - params) : std::strlen(params));
        }
        if (prefix.empty())
            std::fprintf(out, "%s\n", message.c_str());
        else if (line.empty())
            std::fprintf(out, "%s: %s\n", prefix.c_str(), message.c_str());
        else
            std::fprintf(out, "%s:%s: %s\n", prefix.c_str(), line.c_str(), message.c_str());
    }
    return count;
}

// A parsed document, deleted with its area when it goes out of scope.
struct Document {
    VQHANDLE handle = 0;
    Document() = default;
    explicit Document(VQHANDLE h) : handle(h) {}
    Document(const Document &) = delete;
    Document &operator=(const Document &) = delete;
    ~Document() {
        if (handle != 0) VQDOM_deleteNode(handle);
    }
};

// Reads and parses a file; on failure reports to stderr (the input problem,
// or every parse message) and returns 0.
VQHANDLE parseFile(const std::string &name) {
    const vqtool::Input in = vqtool::readText(name);
    if (!in.error.empty()) {
        err(in.error);
        return 0;
    }
    const VQHANDLE doc = VQXML_parse(in.bytes.c_str());
    drainMessages(stderr, name);
    return doc;
}

// The node printed by a print function that takes (node, buffer, size) and
// returns the full length needed.
template <typename Print>
std::string printed(VQHANDLE node, Print print) {
    std::string text(4096, '\0');
    int32_t n = print(node, text.data(), static_cast<int32_t>(text.size()));
    // A text of 2 GiB or more does not fit the printers' 32-bit sizes: the
    // first 4 KiB are all that is shown then.
    if (n >= static_cast<int32_t>(text.size()) && n < INT32_MAX) {
        text.assign(static_cast<size_t>(n) + 1, '\0');
        n = print(node, text.data(), n + 1);
    }
    text.resize(std::min(static_cast<size_t>(n < 0 ? 0 : n), text.size() - 1));
    return text;
}

std::string compact(VQHANDLE node) { return printed(node, VQXML_printNode); }

// The text of a DOM string.
std::string dsText(VQHANDLE ds) {
    const int64_t length = VQDOM_lenDS(ds);
    std::string text(static_cast<size_t>(length < 0 ? 0 : length) + 1, '\0');
    VQDOM_cpyDS(ds, text.data(), static_cast<int64_t>(text.size()));
    text.resize(std::strlen(text.c_str()));
    return text;
}

void writeOut(const std::string &text) { std::fwrite(text.data(), 1, text.size(), stdout); }

// Output ends with a line break in the library's own form.
void writeDocument(const std::string &text) {
    writeOut(text);
    std::fputs("\r\n", stdout);
}

// Splits "path=value" entries into the library's form: path, NUL, value.
bool entryList(const Args &args, size_t from, std::vector<std::string> &entries) {
    for (size_t i = from; i < args.size(); ++i) {
        const size_t eq = args[i].find('=');
        if (eq == std::string::npos || eq == 0) {
            usageError("entry \"" + args[i] + "\" is not path=value");
            return false;
        }
        std::string entry = args[i];
        entry[eq] = '\0';
        entries.push_back(std::move(entry));
    }
    return true;
}

// ---- check ---------------------------------------------------------------------

int runCheck(const Args &args) {
    if (args.empty()) return usageError("check: no file given");
    int status = kOk;
    for (const std::string &name : args) {
        const vqtool::Input in = vqtool::readText(name);
        if (!in.error.empty()) {
            err(in.error);
            status = kFailed;
            continue;
        }
        const Document doc(VQXML_parse(in.bytes.c_str()));
        drainMessages(stdout, name);
        if (doc.handle == 0) status = kFailed;
    }
    return status;
}

// ---- format --------------------------------------------------------------------

// The document with its document element indented. Pretty-printing a
// document node indents nothing below it, so the document's own text (its
// declaration and children, "\r\n" between them) is put together here with
// the document element printed by the pretty-printer.
std::string indented(VQHANDLE doc) {
    const std::string whole = compact(doc);
    std::vector<std::string> children;
    size_t childBytes = 0;
    const int64_t bound = docHead[doc & 255] != nullptr ? docHead[doc & 255]->dbgHandles : 0;
    int64_t steps = 0;
    for (VQHANDLE c = VQDOM_getFirstChild(doc); c != 0 && steps++ < bound; c = VQDOM_getNextSibling(c)) {
        children.push_back(compact(c));
        childBytes += children.back().size();
    }
    const size_t separators = children.empty() ? 0 : 2 * (children.size() - 1);
    if (childBytes + separators > whole.size()) return whole;
    std::string out = whole.substr(0, whole.size() - childBytes - separators);
    steps = 0;
    size_t i = 0;
    for (VQHANDLE c = VQDOM_getFirstChild(doc); c != 0 && steps++ < bound; c = VQDOM_getNextSibling(c), ++i) {
        if (i > 0) out += "\r\n";
        out += VQDOM_getNodeType(c) == VQXML_ELEMENT_NODE ? printed(c, VQXML_printBeautifyNode) : children[i];
    }
    return out;
}

int runFormat(const Args &args) {
    bool indent = false;
    std::string file;
    for (const std::string &a : args) {
        if (a == "--indent")
            indent = true;
        else if (!file.empty())
            return usageError("format: one file only");
        else
            file = a;
    }
    if (file.empty()) return usageError("format: no file given");
    const Document doc(parseFile(file));
    if (doc.handle == 0) return kFailed;
    writeDocument(indent ? indented(doc.handle) : compact(doc.handle));
    return kOk;
}

// ---- select --------------------------------------------------------------------

// An element prints as XML, an attribute or a text node as its value.
std::string selected(VQHANDLE node) {
    const int32_t type = VQDOM_getNodeType(node);
    if (type == VQXML_ATTRIBUTE_NODE || type == VQXML_TEXT_NODE || type == VQXML_CDATA_SECTION_NODE)
        return dsText(VQDOM_getNodeValue(node));
    return compact(node);
}

int runSelect(const Args &args) {
    if (args.size() < 2) return usageError("select: a path and at least one file are needed");
    const std::string &path = args[0];
    const bool named = args.size() > 2;
    int status = kFailed;
    bool broken = false;
    for (size_t f = 1; f < args.size(); ++f) {
        const Document doc(parseFile(args[f]));
        if (doc.handle == 0) {
            broken = true;
            continue;
        }
        const std::string prefix = named ? args[f] + ":" : std::string();
        std::vector<VQHANDLE> nodes;
        const VQHANDLE list = VQXML_selectNodes(doc.handle, path.c_str());
        const uint32_t n = list != 0 ? VQDOM_getLengthList(list) : 0;
        for (uint32_t i = 0; i < n; ++i) nodes.push_back(VQDOM_itemList(list, i));
        // Selection lists take names and '/' only; a path with a predicate,
        // text() or a final @attribute selects its one node.
        if (nodes.empty()) {
            const VQHANDLE single = VQXML_selectSingleNode(doc.handle, path.c_str());
            if (single != 0) nodes.push_back(single);
        }
        for (const VQHANDLE node : nodes) {
            if (node == 0) continue;
            writeOut(prefix + selected(node));
            std::fputs("\n", stdout);
            status = kOk;
        }
        drainMessages(stderr, args[f]);
    }
    return broken ? kFailed : status;
}

// ---- query and answer ------------------------------------------------------------

// Builds with `build`, reports every rejected entry, prints the document.
template <typename Build>
int buildAndPrint(const std::vector<std::string> &entries, Build build) {
    std::vector<const char *> list;
    for (const std::string &e : entries) list.push_back(e.c_str());
    list.push_back(nullptr);
    const Document built(build(list.data()));
    drainMessages(stderr, std::string());
    if (built.handle == 0) {
        err("document not built");
        return kFailed;
    }
    writeDocument(compact(built.handle));
    return kOk;
}

int runQuery(const Args &args) {
    if (args.empty()) return usageError("query: no model given");
    std::vector<std::string> entries;
    if (!entryList(args, 1, entries)) return kUsage;
    const Document model(parseFile(args[0]));
    if (model.handle == 0) return kFailed;
    return buildAndPrint(entries, [&](const char **list) { return VQXML_createQuery(model.handle, list); });
}

int runAnswer(const Args &args) {
    if (args.size() < 2) return usageError("answer: a model and a query are needed");
    std::vector<std::string> entries;
    if (!entryList(args, 2, entries)) return kUsage;
    const Document model(parseFile(args[0]));
    if (model.handle == 0) return kFailed;
    const Document query(parseFile(args[1]));
    if (query.handle == 0) return kFailed;
    return buildAndPrint(entries,
                         [&](const char **list) { return VQXML_createAnswer(model.handle, query.handle, list); });
}

// ---- image ---------------------------------------------------------------------

int runImage(const Args &args) {
    const bool save = !args.empty() && args[0] == "save";
    const bool load = !args.empty() && args[0] == "load";
    if (!(save && args.size() == 3) && !(load && args.size() == 2))
        return usageError("image: use \"image save FILE OUT\" or \"image load IN\"");
    if (save) {
        const Document doc(parseFile(args[1]));
        if (doc.handle == 0) return kFailed;
        int32_t length = 0;
        const void *image = VQXML_streamOut(doc.handle, &length);
        if (image == nullptr || length <= 0) {
            drainMessages(stderr, args[1]);
            err(args[1] + ": no image");
            return kFailed;
        }
        FILE *out = args[2] == "-" ? stdout : std::fopen(args[2].c_str(), "wb");
        if (out == nullptr) {
            err(args[2] + ": cannot open: " + std::strerror(errno));
            return kFailed;
        }
        const bool written = std::fwrite(image, 1, static_cast<size_t>(length), out) == static_cast<size_t>(length);
        const bool closed = out == stdout ? std::fflush(out) == 0 : std::fclose(out) == 0;
        if (!written || !closed) {
            err(args[2] + ": cannot write");
            return kFailed;
        }
        return kOk;
    }
    const vqtool::Input in = vqtool::readFile(args[1]);
    if (!in.error.empty()) {
        err(in.error);
        return kFailed;
    }
    if (in.bytes.size() < sizeof(VQXML_AreaHead)) {
        err(args[1] + ": " + std::to_string(in.bytes.size()) + " bytes is too short for an area image");
        return kFailed;
    }
    void *block = VQXML_streamIn(static_cast<int32_t>(in.bytes.size()));
    if (block == nullptr) {
        drainMessages(stderr, args[1]);
        return kFailed;
    }
    std::memcpy(block, in.bytes.data(), in.bytes.size());
    int32_t number = 0;
    std::memcpy(&number, in.bytes.data(), sizeof number);
    if (!VQXML_documentLoaded(block)) {  // the block is consumed either way
        drainMessages(stderr, args[1]);
        err(args[1] + ": not loaded: not an area image that this build of the library wrote");
        return kFailed;
    }
    // The document node is the first object of its area.
    const Document doc(static_cast<VQHANDLE>(256 + (number & 255)));
    if (VQDOM_getNodeType(doc.handle) != VQXML_DOCUMENT_NODE) {
        drainMessages(stderr, args[1]);
        err(args[1] + ": the image holds no document node");
        return kFailed;
    }
    writeDocument(compact(doc.handle));
    return kOk;
}

// ---- stats ---------------------------------------------------------------------

constexpr const char *kTypeNames[] = {
    "",                  // not a node type
    "element",           "attribute",    "text",         "cdata-section",
    "entity-reference",  "entity",       "processing-instruction",
    "comment",           "document",     "document-type", "document-fragment",
    "notation",          "element-decl", "attlist-decl", "att-def",
    "cp-children",       "name-list"};
constexpr int kTypes = sizeof kTypeNames / sizeof kTypeNames[0];

// Counts the nodes of the tree below `root` by type, attributes and their
// children included. The walk visits and holds at most as many nodes as the
// area has live objects, so a tree linked into a loop still ends.
void countNodes(VQHANDLE root, int64_t bound, std::vector<int64_t> &counts, int64_t &steps) {
    std::vector<VQHANDLE> pending{root};
    const auto room = [&] { return steps + static_cast<int64_t>(pending.size()) < bound; };
    while (!pending.empty() && steps < bound) {
        const VQHANDLE node = pending.back();
        pending.pop_back();
        ++steps;
        const int32_t type = VQDOM_getNodeType(node);
        ++counts[type > 0 && type < kTypes ? type : 0];
        if (type == VQXML_ELEMENT_NODE) {
            const VQHANDLE map = VQDOM_getAttributes(node);
            const uint32_t n = VQDOM_getLengthMap(map);
            for (uint32_t i = 0; i < n && room(); ++i) pending.push_back(VQDOM_itemMap(map, i));
        }
        for (VQHANDLE c = VQDOM_getFirstChild(node); c != 0 && room(); c = VQDOM_getNextSibling(c))
            pending.push_back(c);
    }
}

std::string percent(double part, double whole) {
    char text[32];
    std::snprintf(text, sizeof text, "%.4f%%", whole > 0 ? 100.0 * part / whole : 0.0);
    return text;
}

int runStats(const Args &args) {
    if (args.size() != 1) return usageError("stats: one file is needed");
    const std::string &name = args[0];
    const vqtool::Input in = vqtool::readText(name);
    if (!in.error.empty()) {
        err(in.error);
        return kFailed;
    }
    const auto start = std::chrono::steady_clock::now();
    const Document doc(VQXML_parse(in.bytes.c_str()));
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    drainMessages(stderr, name);
    if (doc.handle == 0) return kFailed;

    const VQXML_AreaHead *head = docHead[doc.handle & 255];
    if (head == nullptr) {
        err(name + ": the document has no area");
        return kFailed;
    }
    std::vector<int64_t> counts(kTypes, 0);
    int64_t steps = 0;
    countNodes(doc.handle, head->dbgHandles, counts, steps);
    struct rusage usage {};
    getrusage(RUSAGE_SELF, &usage);

    const double mb = static_cast<double>(in.bytes.size()) / 1e6;
    std::printf("file          %s\n", name.c_str());
    std::printf("input         %zu bytes\n", in.bytes.size());
    std::printf("parse         %.3f ms, %.1f MB/s\n", seconds * 1e3, seconds > 0 ? mb / seconds : 0.0);
    std::printf("nodes         %lld\n", static_cast<long long>(steps));
    for (int t = 1; t < kTypes; ++t)
        if (counts[t] != 0) std::printf("  %-22s %lld\n", kTypeNames[t], static_cast<long long>(counts[t]));
    if (counts[0] != 0) std::printf("  %-22s %lld\n", "other", static_cast<long long>(counts[0]));
    constexpr double kMaxHandles = 16777214, kMaxArea = 2147483647;
    std::printf("handles       %d of %.0f (%s), table of %d slots\n", head->dbgHandles, kMaxHandles,
                percent(head->dbgHandles, kMaxHandles).c_str(), head->indexes);
    std::printf("area          %d of %.0f bytes (%s), %d bytes free\n", head->size, kMaxArea,
                percent(head->size, kMaxArea).c_str(), head->freesize);
    std::printf("peak memory   %ld KiB\n", usage.ru_maxrss);
    return kOk;
}

// ---- the commands ----------------------------------------------------------------

constexpr Command kCommands[] = {
    {"check", "usage: vqxml check FILE...",
     "Parses each file and prints every message the library records as\n"
     "FILE:LINE: message (FILE: message when the message has no line).\n"
     "Exit status 0 when every file parses, 1 when any does not.\n",
     runCheck},
    {"format", "usage: vqxml format [--indent] FILE",
     "Prints the document compactly, or with its document element indented by\n"
     "the pretty-printer. Line breaks are CR LF, as the library writes them.\n",
     runFormat},
    {"select", "usage: vqxml select PATH FILE...",
     "Prints each node the path selects, one per line: an element as XML, an\n"
     "attribute or a text node as its value. With several files each line\n"
     "starts with FILE:. Exit status 1 when nothing is selected.\n"
     "Paths: steps by name, '/' from the document, [n], [@a='v' and @b='w'],\n"
     "a final text() or @attribute.\n",
     runSelect},
    {"query", "usage: vqxml query MODEL ENTRY...",
     "Builds a query from the model and entries path=value (path: DESC names\n"
     "joined by '.', a group followed by (n) for its n-th occurrence) and prints\n"
     "it. Every rejected entry is reported; exit status 1 when the query is not\n"
     "built.\n",
     runQuery},
    {"answer", "usage: vqxml answer MODEL QUERY ENTRY...",
     "Builds an answer to the query from the model and entries path=value and\n"
     "prints it. Every rejected entry is reported; exit status 1 when the answer\n"
     "is not built.\n",
     runAnswer},
    {"image", "usage: vqxml image save FILE OUT | vqxml image load IN",
     "save: parses FILE and writes the document's area image to OUT (- for\n"
     "standard output). load: loads an image and prints the document. Images\n"
     "are read back only by the same build on the same kind of machine.\n",
     runImage},
    {"stats", "usage: vqxml stats FILE",
     "Parses the file and prints its nodes by type, the handles and area bytes\n"
     "it uses against the limits of one document, the parse time and speed,\n"
     "and the program's peak memory.\n",
     runStats},
};

const Command *findCommand(const std::string &name) {
    for (const Command &c : kCommands)
        if (name == c.name) return &c;
    return nullptr;
}

}  // namespace

int main(int argc, char **argv) {
    const Args all(argv + 1, argv + argc);
    if (all.empty()) {
        std::fputs(kOverview, stderr);
        return kUsage;
    }
    if (all[0] == "--help" || all[0] == "-h") {
        std::fputs(kOverview, stdout);
        return kOk;
    }
    if (all[0] == "--version") {
        std::printf("vqxml %s\n", VQXML_VERSION_STRING);
        return kOk;
    }
    const Command *command = findCommand(all[0]);
    if (command == nullptr) return usageError("unknown command \"" + all[0] + "\"");
    const Args args(all.begin() + 1, all.end());
    for (const std::string &a : args) {
        if (a == "--help" || a == "-h") {
            std::printf("%s\n\n%s", command->usage, command->help);
            return kOk;
        }
    }
    VQXML_xmlInit();
    const int status = command->run(args);
    VQXML_xmlCleanup();
    std::fflush(stdout);
    return std::ferror(stdout) ? kFailed : status;
}
