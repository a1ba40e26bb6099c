// Option parser: the parsing rules (no permutation, "--", "-", grouped short
// options taking following arguments), the error callback's codes, the exact
// log lines, and the usage text byte for byte.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/qvtest.h"

namespace {

// argv as the parser sees it: argv[0] is the program.
class Args {
public:
    Args(const std::vector<const char *> &list) : strings_(list.begin(), list.end()) {
        for (auto &s : strings_) ptrs_.push_back(s.data());
        ptrs_.push_back(nullptr);
    }
    int argc() const { return static_cast<int>(strings_.size()); }
    char **argv() { return ptrs_.data(); }

private:
    std::vector<std::string> strings_;
    std::vector<char *> ptrs_;
};

using Report = std::tuple<int, std::string, std::string>;  // code, option, value ("(null)" for none)

void record(int error, const char *option, const char *value, void *user) {
    static_cast<std::vector<Report> *>(user)->emplace_back(error, option, value ? value : "(null)");
}

std::string usage_of(qv_getopt *g) {
    char *buf = nullptr;
    size_t len = 0;
    FILE *mem = open_memstream(&buf, &len);
    EXPECT_EQ(qv_getopt_usage(g, mem), 0);
    fclose(mem);
    std::string s(buf, len);
    free(buf);
    return s;
}

class Getopt : public ::testing::Test {
protected:
    void SetUp() override {
        g_ = qv_getopt_create();
        ASSERT_NE(g_, nullptr);
        qv_getopt_set_error_callback(g_, record, &reports_);
        ASSERT_EQ(qv_getopt_help(g_, "help", 'h'), 0);
        ASSERT_EQ(qv_getopt_flag_set(g_, "verbose", 'v', &verbose_, "Print more."), 0);
        ASSERT_EQ(qv_getopt_int(g_, "level", 'l', &level_, "N", "Level."), 0);
        ASSERT_EQ(qv_getopt_const_string(g_, "output", 'o', &output_, "FILE", "Output."), 0);
        ASSERT_EQ(qv_getopt_string_callback(g_, "tag", 't', "TAG", "Tag.", &Getopt::tag, this), 0);
    }
    void TearDown() override { qv_getopt_destroy(g_); }

    static int tag(const char *value, void *data) {
        auto *self = static_cast<Getopt *>(data);
        self->tags_.push_back(value);
        return std::string(value) == "bad" ? QV_ERROR_PERMANENT_FAILURE : 0;
    }
    // The arguments stay alive with the test: string values point into them.
    int parse(const std::vector<const char *> &list) {
        kept_.push_back(std::make_unique<Args>(list));
        return qv_getopt_parse(g_, kept_.back()->argc(), kept_.back()->argv());
    }
    int optind() { return qv_getopt_optind(g_); }

    qv_getopt *g_ = nullptr;
    std::vector<std::unique_ptr<Args>> kept_;
    std::vector<Report> reports_;
    std::vector<std::string> tags_;
    int verbose_ = 0;
    int level_ = -7;
    const char *output_ = nullptr;
};

TEST_F(Getopt, WhereParsingStops) {
    char *none[] = {nullptr};
    EXPECT_EQ(qv_getopt_parse(g_, 0, none), 0);
    EXPECT_EQ(optind(), 1);
    // "--" ends the options (what follows is never looked at); no permutation.
    const std::pair<std::vector<const char *>, int> cases[] = {
        {{"prog"}, 1}, {{"prog", "--", "-x"}, 2}, {{"prog", "file", "-v"}, 1}, {{"prog", "-"}, 2}};
    for (auto &[args, stop] : cases) {
        EXPECT_EQ(parse(args), 0);
        EXPECT_EQ(optind(), stop);
    }
    EXPECT_EQ(verbose_, 0);
    EXPECT_EQ(parse({"prog", "-", "-v", "--", "--", "x"}), 0);
    EXPECT_EQ(optind(), 4);
    EXPECT_EQ(verbose_, 1);
    EXPECT_TRUE(reports_.empty());
}

TEST_F(Getopt, LongOptionValues) {
    EXPECT_EQ(parse({"prog", "--level=5"}), 0);
    EXPECT_EQ(level_, 5);
    EXPECT_EQ(optind(), 2);
    EXPECT_EQ(parse({"prog", "--level", "6", "rest"}), 0);
    EXPECT_EQ(level_, 6);
    EXPECT_EQ(optind(), 3);
    EXPECT_EQ(parse({"prog", "--level=-2147483648", "--output", "--verbose", "--output="}), 0);
    EXPECT_EQ(level_, INT32_MIN);
    EXPECT_STREQ(output_, "");  // the last one wins; "--verbose" was a value, not an option
    EXPECT_EQ(verbose_, 0);
    EXPECT_EQ(parse({"prog", "--verbose=ignored", "--tag=a=b"}), 0);
    EXPECT_EQ(verbose_, 1);
    EXPECT_EQ(tags_, std::vector<std::string>{"a=b"});
    EXPECT_EQ(optind(), 3);
    EXPECT_TRUE(reports_.empty());
}

TEST_F(Getopt, ShortGroupsTakeFollowingArguments) {
    char *argv[] = {const_cast<char *>("prog"), const_cast<char *>("-vlo"), const_cast<char *>("12"),
                    const_cast<char *>("out.txt"), const_cast<char *>("operand"), nullptr};
    EXPECT_EQ(qv_getopt_parse(g_, 5, argv), 0);
    EXPECT_EQ(verbose_, 1);
    EXPECT_EQ(level_, 12);
    EXPECT_EQ(output_, argv[3]);  // a pointer into argv, not a copy
    EXPECT_EQ(optind(), 4);

    // Never an attached value: -ofile is -o -f -i -l -e.
    EXPECT_EQ(parse({"prog", "-ofile", "x"}), -1);
    EXPECT_EQ(reports_, (std::vector<Report>{{QV_ERROR_NOT_FOUND, "-f", "(null)"}}));
    EXPECT_EQ(optind(), 0);
    EXPECT_STREQ(output_, "x");  // applied before the failure
}

TEST_F(Getopt, ErrorCodesAndLogLines) {
    qvtest::LogCapture log;
    const std::pair<std::vector<const char *>, Report> cases[] = {
        {{"prog", "--level"}, {QV_ERROR_INVALID_SYNTAX, "--level", "(null)"}},
        {{"prog", "--level=5x"}, {QV_ERROR_INVALID_ARGUMENT, "--level", "5x"}},
        {{"prog", "--level=3000000000"}, {QV_ERROR_OUT_OF_RANGE, "--level", "3000000000"}},
        {{"prog", "-l", "99999999999999999999"}, {QV_ERROR_OUT_OF_RANGE, "-l", "99999999999999999999"}},
        {{"prog", "--level="}, {QV_ERROR_INVALID_ARGUMENT, "--level", ""}},
        {{"prog", "--nope=1"}, {QV_ERROR_NOT_FOUND, "--nope", "(null)"}},
        {{"prog", "--Verbose"}, {QV_ERROR_NOT_FOUND, "--Verbose", "(null)"}},  // case-sensitive
        {{"prog", "-vq"}, {QV_ERROR_NOT_FOUND, "-q", "(null)"}},
        {{"prog", "-o"}, {QV_ERROR_INVALID_SYNTAX, "-o", "(null)"}},
        {{"prog", "--tag"}, {QV_ERROR_INVALID_SYNTAX, "--tag", "(null)"}},
        {{"prog", "-t", "bad"}, {QV_ERROR_PERMANENT_FAILURE, "-t", "bad"}},
    };
    for (auto &[args, report] : cases) {
        reports_.clear();
        EXPECT_EQ(parse(args), -1);
        EXPECT_EQ(optind(), 0);
        EXPECT_EQ(reports_, std::vector<Report>{report});
    }
    EXPECT_EQ(level_, -7);  // no failed conversion stored anything
    // Only missing values are logged: integers at 6, strings and callbacks at 13.
    ASSERT_EQ(log.lines().size(), 3u);
    EXPECT_TRUE(log.has(6, "option '--level' requires an argument"));
    EXPECT_TRUE(log.has(13, "option '-o' requires an argument"));
    EXPECT_TRUE(log.has(13, "option '--tag' requires an argument"));

    // Without an error callback the failures are only returned.
    qv_getopt_set_error_callback(g_, nullptr, nullptr);
    EXPECT_EQ(parse({"prog", "--nope"}), -1);
    EXPECT_EQ(reports_.size(), 1u);
}

TEST_F(Getopt, HelpPrintsUsageAndReturnsOne) {
    testing::internal::CaptureStdout();
    int rc = parse({"prog", "-vh", "x"});
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(rc, 1);
    EXPECT_EQ(optind(), 2);
    EXPECT_EQ(out, usage_of(g_));
    EXPECT_EQ(out.rfind("usage: PROGRAM OPTIONS\nOPTIONS:\n -h, --help", 0), 0u);
    // The flag is per parse.
    testing::internal::CaptureStdout();
    EXPECT_EQ(parse({"prog", "-v"}), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    // Help met, then a failure: the failure wins.
    testing::internal::CaptureStdout();
    EXPECT_EQ(parse({"prog", "--help", "--nope"}), -1);
    testing::internal::GetCapturedStdout();
}

TEST_F(Getopt, FirstRegisteredMatchWins) {
    int second = 0;
    ASSERT_EQ(qv_getopt_flag_set(g_, "verbose", 'v', &second, "Shadowed."), 0);
    EXPECT_EQ(parse({"prog", "-v", "--verbose"}), 0);
    EXPECT_EQ(verbose_, 1);
    EXPECT_EQ(second, 0);
}

TEST(GetoptUsage, TwoColumnsByteForByte) {
    qv_getopt *g = qv_getopt_create();
    ASSERT_NE(g, nullptr);
    int i = 0;
    const char *s = nullptr;
    qv_getopt_help(g, "help", 'h');
    qv_getopt_flag_set(g, nullptr, 'q', &i, "Quiet.");
    qv_getopt_int(g, "level", 0, &i, "N", "Level of detail, from 0 (quiet) to 9 (everything); the default is 3.");
    qv_getopt_const_string(g, "output-file", 'o', &s, "FILE", "Where to write.");
    // Option columns of 29 and 30 characters: the first keeps its line.
    qv_getopt_flag_set(g, "abcdefghijklmnopqrstuv", 'a', &i, "Twenty-nine.");
    qv_getopt_flag_set(g, "abcdefghijklmnopqrstuvw", 'b', &i, "Thirty.");
    qv_getopt_flag_set(g, "x49", 0, &i, "0123456789012345678901234567890123456789012345678");
    qv_getopt_flag_set(g, "x50", 0, &i, "01234567890123456789012345678901234567890123456789");
    qv_getopt_flag_set(g, "gap", 0, &i, "0123456789012345678901234567890123456789012345678 tail");
    qv_getopt_flag_set(g, "empty", 0, &i, "");
    const std::string pad(30, ' ');
    const std::string expected =
        "usage: PROGRAM OPTIONS\n"
        "OPTIONS:\n"
        " -h, --help                   Show help.\n"
        " -q                           Quiet.\n"
        " --level=N                    Level of detail, from 0 (quiet) to 9\n" +
        pad + "(everything); the default is 3.\n"
        " -o, --output-file=FILE       Where to write.\n"
        " -a, --abcdefghijklmnopqrstuv Twenty-nine.\n"
        " -b, --abcdefghijklmnopqrstuvw\n" +
        pad + "Thirty.\n"
        " --x49                        0123456789012345678901234567890123456789012345678\n"
        " --x50                        0123456789012345678901234567890123456789012345678\n" +
        pad + "9\n"
        " --gap                        0123456789012345678901234567890123456789012345678\n" +
        pad + "tail\n"
        " --empty                      \n";
    EXPECT_EQ(usage_of(g), expected);

    ASSERT_EQ(qv_getopt_set_synopsis(g, "usage: tool [OPTIONS] FILE..."), 0);
    ASSERT_EQ(qv_getopt_set_footer(g, "Report bugs to nobody."), 0);  // no newline added
    std::string withtext = usage_of(g);
    EXPECT_EQ(withtext.rfind("usage: tool [OPTIONS] FILE...\nOPTIONS:\n", 0), 0u);
    const std::string tail = " --empty" + std::string(22, ' ') + "\nReport bugs to nobody.";
    ASSERT_GT(withtext.size(), tail.size());
    EXPECT_EQ(withtext.substr(withtext.size() - tail.size()), tail);
    ASSERT_EQ(qv_getopt_set_synopsis(g, nullptr), 0);
    ASSERT_EQ(qv_getopt_set_footer(g, nullptr), 0);
    EXPECT_EQ(usage_of(g), expected);
    qv_getopt_destroy(g);
}

TEST(GetoptUsage, FailedColumnIsLoggedOnceAndTheRestSkipped) {
    qv_getopt *g = qv_getopt_create();
    int i = 0;
    qv_getopt_flag_set(g, "one", 0, &i, "First.");
    qv_getopt_flag_set(g, "two", 0, &i, "Second.");
    qv_getopt_set_footer(g, "footer\n");
    // A stream open for reading refuses every write.
    FILE *f = fopen("/dev/null", "r");
    ASSERT_NE(f, nullptr);
    qvtest::LogCapture log;
    EXPECT_EQ(qv_getopt_usage(g, f), 0);
    fclose(f);
    EXPECT_EQ(log.texts(), std::vector<std::string>{"unable to output usage"});
    EXPECT_TRUE(log.has(6, "unable to output usage"));
    qv_getopt_destroy(g);
}

TEST(GetoptAlloc, CreateAndRegister) {
    qvtest::alloc_failure_sweep([](unsigned long failing) {
        qvtest::LogCapture log;
        qv_getopt *g = qv_getopt_create();
        if (failing == 1 || failing == 2) {
            EXPECT_EQ(g, nullptr);
            EXPECT_TRUE(log.has(7, failing == 1 ? "not enough memory for qvgetopt context"
                                                : "unable to create qvgetopt option list"));
            return;
        }
        ASSERT_NE(g, nullptr);
        int v = 0;
        // Allocations 3..6: the record, the long name, the value name, the description.
        int rc = qv_getopt_int(g, "level", 'l', &v, "N", "Level.");
        const char *want[] = {"not enough memory for qvgetopt option", "not enough memory for long option 'level'",
                              "not enough memory for option name", "not enough memory for option description"};
        if (failing >= 3 && failing <= 6) {
            EXPECT_EQ(rc, -1);
            EXPECT_EQ(log.texts(), std::vector<std::string>{want[failing - 3]});
            EXPECT_TRUE(log.has(7, want[failing - 3]));
        } else {
            EXPECT_EQ(rc, 0);
        }
        int h = qv_getopt_help(g, nullptr, 'h');
        EXPECT_EQ(h, failing == 7 || failing == 8 ? -1 : 0);
        int s1 = qv_getopt_set_synopsis(g, "first");
        int s2 = qv_getopt_set_synopsis(g, "second");
        int f = qv_getopt_set_footer(g, "footer");
        EXPECT_TRUE(failing != 9 || log.has(7, "not enough memory for synopsis string"));
        EXPECT_TRUE(failing != 11 || log.has(7, "not enough memory for footer string"));
        EXPECT_EQ(s1, failing == 9 ? -1 : 0);
        EXPECT_EQ(s2, failing == 10 ? -1 : 0);
        EXPECT_EQ(f, failing == 11 ? -1 : 0);
        // A failed copy keeps the old synopsis.
        std::string u = usage_of(g);
        EXPECT_EQ(u.rfind(failing == 10 ? "first\n" : "second\n", 0), 0u) << u;
        qv_getopt_destroy(g);
    });
}

TEST(GetoptAlloc, ParseCopiesLongNamesWithValues) {
    qv_getopt *g = qv_getopt_create();
    int v = 0;
    qv_getopt_int(g, "level", 0, &v, "N", "Level.");
    qvtest::alloc_failure_sweep([&](unsigned long failing) {
        qvtest::LogCapture log;
        char *argv[] = {const_cast<char *>("prog"), const_cast<char *>("--level=4"), nullptr};
        v = 0;
        int rc = qv_getopt_parse(g, 2, argv);
        EXPECT_EQ(rc, failing ? -1 : 0);
        EXPECT_EQ(qv_getopt_optind(g), failing ? 0 : 2);
        EXPECT_EQ(v, failing ? 0 : 4);
        EXPECT_TRUE(!failing || log.has(7, "not enough memory for long option name"));
    });
    qv_getopt_destroy(g);
}

TEST(GetoptDeath, Preconditions) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    qv_getopt *g = qv_getopt_create();
    int i = 0;
    const char *s = nullptr;
    char *argv[] = {nullptr};
    EXPECT_DEATH(qv_getopt_destroy(nullptr), "src/util/qvgetopt.cpp:[0-9]+: Assertion `qvgetopt != NULL' failed.");
    EXPECT_DEATH(qv_getopt_flag_set(g, "x", 0, nullptr, "d"), "Assertion `intptr != NULL' failed.");
    EXPECT_DEATH(qv_getopt_flag_set(g, "x", 0, &i, nullptr), "Assertion `description != NULL' failed.");
    EXPECT_DEATH(qv_getopt_int(g, "x", 0, &i, nullptr, "d"), "Assertion `optionname != NULL' failed.");
    EXPECT_DEATH(qv_getopt_const_string(g, "x", 0, nullptr, "N", "d"), "Assertion `stringptr != NULL' failed.");
    EXPECT_DEATH(qv_getopt_string_callback(g, "x", 0, "N", nullptr, nullptr, nullptr),
                 "Assertion `description != NULL' failed.");
    EXPECT_DEATH(qv_getopt_parse(g, -1, argv), "src/util/qvgetopt.cpp:[0-9]+: Assertion `argc >= 0' failed.");
    EXPECT_DEATH(qv_getopt_parse(g, 1, nullptr), "Assertion `argv != NULL' failed.");
    EXPECT_DEATH(qv_getopt_usage(g, nullptr), "src/util/qvgetopt.cpp:[0-9]+: Assertion `out != NULL' failed.");
    qv_getopt_string_callback(g, "cb", 0, "V", "d", nullptr, nullptr);
    char *args[] = {const_cast<char *>("p"), const_cast<char *>("--cb=1"), nullptr};
    EXPECT_DEATH(qv_getopt_parse(g, 2, args), "Assertion `option->callback != NULL' failed.");
    qv_getopt *h = qv_getopt_create();
    qv_getopt_flag_set(h, nullptr, 0, &i, "nameless");
    EXPECT_DEATH(qv_getopt_usage(h, stdout), "Assertion `longopt != NULL' failed.");
    qv_getopt_destroy(h);
    qv_getopt_destroy(g);
    (void)s;
}

}  // namespace
