// The vqxml program as a user meets it: each command on small files, with
// its exact output and exit status, and every kind of input it must refuse
// with one line instead of handing the library something else.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>

#include "vqxml/vqxml.h"

namespace {

struct Outcome {
    int status;
    std::string out, err;
};

std::string slurp(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

class CliTest : public ::testing::Test {
protected:
    void SetUp() override {
        char templ[] = "/tmp/vqxml-cli-XXXXXX";
        ASSERT_NE(mkdtemp(templ), nullptr);
        dir_ = templ;
        file("ok.xml", "<a x=\"1\"><b>hi</b><c/></a>");
        file("bad.xml", "<a>\n<b>\n</a>");
    }
    void TearDown() override { std::system(("rm -rf '" + dir_ + "'").c_str()); }

    void file(const std::string &name, const std::string &bytes) {
        std::ofstream(dir_ + "/" + name, std::ios::binary) << bytes;
    }

    // Runs the program in the test's folder; `args` is a shell fragment.
    Outcome run(const std::string &args, const std::string &input = "") {
        file(".in", input);
        const std::string command = "cd '" + dir_ + "' && '" VQXML_TOOL_PATH "' " + args +
                                    " <.in >.out 2>.err";
        const int raw = std::system(command.c_str());
        return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(dir_ + "/.out"), slurp(dir_ + "/.err")};
    }

    std::string dir_;
};

TEST_F(CliTest, HelpVersionAndUsageErrors) {
    Outcome r = run("--help");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind("usage: vqxml COMMAND", 0), 0u) << r.out;
    r = run("--version");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, std::string("vqxml ") + VQXML_VERSION_STRING + "\n");
    for (const char *command : {"check", "format", "select", "query", "answer", "image", "stats"}) {
        r = run(std::string(command) + " --help");
        EXPECT_EQ(r.status, 0) << command;
        EXPECT_EQ(r.out.rfind(std::string("usage: vqxml ") + command, 0), 0u) << r.out;
    }
    struct {
        const char *args, *err;
    } const usage[] = {
        {"", "usage: vqxml COMMAND"},
        {"frob", "vqxml: unknown command \"frob\" (see vqxml --help)\n"},
        {"check", "vqxml: check: no file given (see vqxml --help)\n"},
        {"format ok.xml ok.xml", "vqxml: format: one file only (see vqxml --help)\n"},
        {"stats", "vqxml: stats: one file is needed (see vqxml --help)\n"},
        {"query m.xml Size", "vqxml: entry \"Size\" is not path=value (see vqxml --help)\n"},
        {"image copy ok.xml", "vqxml: image: use \"image save FILE OUT\" or \"image load IN\" (see vqxml --help)\n"},
    };
    for (const auto &u : usage) {
        r = run(u.args);
        EXPECT_EQ(r.status, 2) << u.args;
        EXPECT_EQ(r.err.rfind(u.err, 0), 0u) << u.args << ": " << r.err;
        EXPECT_EQ(r.out, "") << u.args;
    }
}

TEST_F(CliTest, CheckPrintsEachMessageWithFileAndLine) {
    Outcome r = run("check ok.xml");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out + r.err, "");
    // The line comes from the message's parameters; the message is the
    // library's own text.
    r = run("check ok.xml bad.xml -", "<r>\n\n<s></r>");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out,
              "bad.xml:3: line 3: endtag of \"b\": name different\n"
              "-:3: line 3: endtag of \"s\": name different\n");
    EXPECT_EQ(r.err, "");
}

TEST_F(CliTest, RefusedInputsGetOneLine) {
    file("empty.xml", "");
    file("le.xml", std::string("\xFF\xFE<\0a\0/\0>\0", 10));
    file("be.xml", std::string("\xFE\xFF\0<\0a\0/\0>", 10));
    file("nul.xml", std::string("<a>\nx\0y</a>", 11));
    mkdir((dir_ + "/sub").c_str(), 0755);
    // Over the area limit without writing gigabytes: a sparse file.
    const int fd = open((dir_ + "/huge.xml").c_str(), O_CREAT | O_WRONLY, 0644);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(ftruncate(fd, 2147483648LL), 0);
    close(fd);
    const std::string bom = ": starts with a UTF-16 byte-order mark; the library reads bytes and never "
                            "transcodes: convert the file to UTF-8 first\n";
    struct {
        const char *file;
        std::string err;
    } const cases[] = {
        {"missing.xml", "vqxml: missing.xml: cannot open: No such file or directory\n"},
        {"sub", "vqxml: sub: is a directory\n"},
        {"empty.xml", "vqxml: empty.xml: empty file\n"},
        {"le.xml", "vqxml: le.xml" + bom},
        {"be.xml", "vqxml: be.xml" + bom},
        {"nul.xml", "vqxml: nul.xml:2: NUL byte at offset 5; the library reads NUL-terminated text and "
                    "would silently ignore the 5 bytes after it\n"},
        {"huge.xml", "vqxml: huge.xml: 2147483648 bytes is over the limit of 2147483647 bytes (the most "
                     "one document area can hold)\n"},
    };
    for (const auto &c : cases) {
        for (const char *command : {"check", "format", "stats"}) {
            const Outcome r = run(std::string(command) + " " + c.file);
            EXPECT_EQ(r.status, 1) << command << " " << c.file;
            EXPECT_EQ(r.err, c.err) << command << " " << c.file;
            EXPECT_EQ(r.out, "") << command << " " << c.file;
        }
    }
    // A refused file does not stop the others from being checked.
    const Outcome r = run("check empty.xml bad.xml");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "bad.xml:3: line 3: endtag of \"b\": name different\n");
}

TEST_F(CliTest, FormatPrintsTheLibrarysText) {
    Outcome r = run("format ok.xml");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "<a x=\"1\"><b>hi</b><c/></a>\r\n");
    r = run("format bad.xml");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "bad.xml:3: line 3: endtag of \"b\": name different\n");
    // Only the document element is indented; what stands around it keeps
    // the document's own line breaks.
    r = run("format --indent -", "<?xml version=\"1.0\"?>\n<!--a--><a><b>hi</b><c><d/></c></a><!--z-->");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "<?xml version=\"1.0\"?>\r\n<!--a-->\r\n<a>\r\n  <b>hi</b>\r\n  <c>\r\n    <d/>\r\n"
                     "  </c>\r\n</a>\r\n<!--z-->\r\n");
}

TEST_F(CliTest, StatsCountsNodesAgainstTheLimits) {
    const Outcome r = run("stats ok.xml");
    EXPECT_EQ(r.status, 0) << r.err;
    for (const char *line : {"input         26 bytes\n", "nodes         7\n", "  element                3\n",
                             "  attribute              1\n", "  text                   2\n",
                             "  document               1\n", " of 16777214 (", " of 2147483647 bytes (",
                             " MB/s\n", "peak memory   "})
        EXPECT_NE(r.out.find(line), std::string::npos) << line << "\n" << r.out;
}

TEST_F(CliTest, SelectPrintsEachNodeOnItsLine) {
    file("s.xml", "<r><a id=\"1\"><b>x</b><b>y</b></a><a id=\"2\"><b>z</b></a></r>");
    struct {
        const char *args, *out;
        int status;
    } const cases[] = {
        // A list counts only below the first of same-named steps.
        {"select /r/a/b s.xml", "<b>x</b>\n<b>y</b>\n", 0},
        {"select \"r/a[@id='2']/b\" s.xml", "<b>z</b>\n", 0},
        {"select r/a/@id s.xml", "1\n", 0},
        {"select 'r/a/b/text()' s.xml", "x\n", 0},
        {"select r/zz s.xml", "", 1},
        {"select r/a s.xml ok.xml", "s.xml:<a id=\"1\"><b>x</b><b>y</b></a>\ns.xml:<a id=\"2\"><b>z</b></a>\n", 0},
        {"select r bad.xml", "", 1},
    };
    for (const auto &c : cases) {
        const Outcome r = run(c.args);
        EXPECT_EQ(r.status, c.status) << c.args;
        EXPECT_EQ(r.out, c.out) << c.args;
    }
}

TEST_F(CliTest, QueryAndAnswerReportEveryRejectedEntry) {
    file("m.xml",
         "<MODEL ID=\"M1\"><PAR><P1 DESC=\"Size\">number</P1><P2 DESC=\"Name\" USE=\"M\">text</P2>"
         "<G DESC=\"Grp\" OCCURENCE=\"MULTIPLE\"><X DESC=\"X\">int</X></G></PAR>"
         "<DAT><D1 DESC=\"State\">gyr</D1></DAT></MODEL>");
    Outcome r = run("query m.xml Size=12 Name=Anna 'Grp(1).X=5'");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "<MODEL PID=\"M1\"><PAR><P1>12</P1><P2>Anna</P2><G/><G><X>5</X></G></PAR></MODEL>\r\n");
    r = run("query m.xml Size=12a Nme=x");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err,
              "parameter \"Size\": number required\n"
              "illegal parameter: \"Nme\"\n"
              "mandatory parameter \"..Name\" missing from Document \"MODEL\"\n"
              "vqxml: document not built\n");

    file("q.xml", "<MODEL PID=\"M1\"><PAR><P2>Anna</P2></PAR></MODEL>");
    r = run("answer m.xml q.xml State=Yellow");
    EXPECT_EQ(r.status, 0) << r.err;
    const size_t stamp = r.out.find(" TIMESTAMP=\"");
    ASSERT_NE(stamp, std::string::npos) << r.out;
    EXPECT_EQ(r.out.substr(0, stamp) + r.out.substr(stamp + 32),
              "<MODEL PID=\"M1\"><PAR><P2>Anna</P2></PAR><DAT><D1>2</D1></DAT></MODEL>\r\n");
    r = run("answer m.xml q.xml State=blue Size=1");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err,
              "data \"State\": value \"blue\" is illegal for type \"gyr\"\n"
              "illegal data: \"Size\"\n"
              "vqxml: document not built\n");
}

TEST_F(CliTest, ImageRoundTripAndRefusedImages) {
    Outcome r = run("image save ok.xml ok.img");
    EXPECT_EQ(r.status, 0) << r.err;
    r = run("image load ok.img");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "<a x=\"1\"><b>hi</b><c/></a>\r\n");
    file("junk.img", std::string(100, 'x'));
    struct {
        const char *args, *err;
    } const refused[] = {
        {"image load ok.xml", "vqxml: ok.xml: 26 bytes is too short for an area image\n"},
        {"image load junk.img", "vqxml: junk.img: not loaded: not an area image that this build of the library wrote\n"},
        {"image load missing.img", "vqxml: missing.img: cannot open: No such file or directory\n"},
        {"image save bad.xml out.img", "bad.xml:3: line 3: endtag of \"b\": name different\n"},
    };
    for (const auto &c : refused) {
        r = run(c.args);
        EXPECT_EQ(r.status, 1) << c.args;
        EXPECT_EQ(r.err, c.err) << c.args;
        EXPECT_EQ(r.out, "") << c.args;
    }
}

}  // namespace
