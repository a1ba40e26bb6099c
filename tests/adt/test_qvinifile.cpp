// INI files: the first-match lookup, the reader's syntax (sections, comments,
// blank lines, trimming, CRLF, BOM), malformed lines with their line numbers,
// loading from files, and allocation failures.
#include <fstream>
#include <string>

#include "support/qvtest.h"

namespace {

struct Ini {
    qv_inifile *ini;
    Ini() {
        int err = -1;
        ini = qv_inifile_create(&err);
        EXPECT_EQ(err, QV_ERROR_NONE);
    }
    ~Ini() { qv_inifile_destroy(ini); }
    int parse(const std::string &text) { return qv_inifile_parse(ini, text.data(), text.size()); }
    std::string get(const char *section, const char *key) {
        const char *v = qv_inifile_get(ini, section, key);
        return v != nullptr ? v : "<null>";
    }
};

TEST(IniFile, FreshObjectFindsNothingAndTheNullSectionIsItsOwn) {
    Ini f;
    EXPECT_EQ(f.get(nullptr, "key"), "<null>");
    EXPECT_EQ(f.get("section", "key"), "<null>");
    EXPECT_EQ(qv_inifile_parse(f.ini, nullptr, 0), 0);
    EXPECT_EQ(f.get(nullptr, ""), "<null>");
    // The null section and a named one never match each other.
    ASSERT_EQ(f.parse("a = outside\n[s]\nb = inside\n"), 0);
    EXPECT_EQ(f.get(nullptr, "a"), "outside");
    EXPECT_EQ(f.get("s", "a"), "<null>");
    EXPECT_EQ(f.get("s", "b"), "inside");
    EXPECT_EQ(f.get(nullptr, "b"), "<null>");
}

TEST(IniFile, SectionsCommentsBlankLinesAndTrimming) {
    Ini f;
    ASSERT_EQ(f.parse("\xEF\xBB\xBF"
                      "top = level\r\n"
                      "; a comment = not an entry\n"
                      "   # another\n"
                      "\n"
                      "  \t \n"
                      "[ server ]\r\n"
                      "  host\t=  example.org  \n"
                      "port=8080\n"
                      "empty =\n"
                      "path = a=b ; kept\n"
                      "[Server]\n"
                      "host = other\n"
                      "last = no newline at the end"),
              0);
    EXPECT_EQ(f.get(nullptr, "top"), "level");
    EXPECT_EQ(f.get("server", "host"), "example.org");
    EXPECT_EQ(f.get("server", "port"), "8080");
    EXPECT_EQ(f.get("server", "empty"), "");
    EXPECT_EQ(f.get("server", "path"), "a=b ; kept");  // no inline comments
    EXPECT_EQ(f.get("Server", "host"), "other");        // case-sensitive sections
    EXPECT_EQ(f.get("Server", "last"), "no newline at the end");
    EXPECT_EQ(f.get(nullptr, "; a comment"), "<null>");
    EXPECT_EQ(f.get(nullptr, "# another"), "<null>");
    EXPECT_EQ(f.get("server", "Host"), "<null>");       // case-sensitive keys
}

TEST(IniFile, FirstOccurrenceWinsAcrossParses) {
    Ini f;
    ASSERT_EQ(f.parse("[s]\nk = first\nk = second\n"), 0);
    ASSERT_EQ(f.parse("[s]\nk = third\nj = later\n"), 0);  // appended after
    EXPECT_EQ(f.get("s", "k"), "first");
    EXPECT_EQ(f.get("s", "j"), "later");
}

TEST(IniFile, MalformedLinesNameTheirNumberAndChangeNothing) {
    struct Case {
        std::string text;
        std::string message;
    };
    const Case cases[] = {
        {"a = 1\n\nnot a pair\n", "unable to parse INI line 3 (missing '=' after the key), error 209 (invalid syntax)"},
        {"[open\n", "unable to parse INI line 1 (missing ']' after the section name), error 209 (invalid syntax)"},
        {"x=1\r\n[  ]\r\n", "unable to parse INI line 2 (empty section name), error 209 (invalid syntax)"},
        {"[a]b]\n", "unable to parse INI line 1 (bracket inside the section name), error 209 (invalid syntax)"},
        {"; c\n = value\n", "unable to parse INI line 2 (empty key), error 209 (invalid syntax)"},
        {std::string("k = v\0w\n", 8), "unable to parse INI line 1 (a zero byte in the line), error 209 (invalid syntax)"},
    };
    for (const Case &c : cases) {
        qvtest::LogCapture log;
        Ini f;
        ASSERT_EQ(f.parse("kept = yes\n"), 0);
        EXPECT_EQ(f.parse(c.text), QV_ERROR_INVALID_SYNTAX) << c.text;
        EXPECT_TRUE(log.has(6, c.message)) << c.text;
        EXPECT_EQ(f.get(nullptr, "kept"), "yes");
        EXPECT_EQ(f.get(nullptr, "a"), "<null>");
        EXPECT_EQ(f.get(nullptr, "x"), "<null>");
    }
}

TEST(IniFile, LoadsFromAFile) {
    std::string dir = qvtest::temp_dir("ini");
    ASSERT_FALSE(dir.empty());
    std::string path = dir + "/app.ini";
    std::string big(20000, 'v');  // larger than one read
    std::ofstream(path) << "# settings\n[db]\nname = main\nblob = " << big << "\n[x]\nbroken\n";
    qvtest::LogCapture log;
    Ini f;
    EXPECT_EQ(qv_inifile_load(f.ini, path.c_str()), QV_ERROR_INVALID_SYNTAX);
    EXPECT_TRUE(log.has(6, "unable to parse line 6 of INI file '" + path +
                               "' (missing '=' after the key), error 209 (invalid syntax)"));
    EXPECT_EQ(f.get("db", "name"), "<null>");
    std::ofstream(path) << "# settings\n[db]\nname = main\nblob = " << big << "\n";
    EXPECT_EQ(qv_inifile_load(f.ini, path.c_str()), 0);
    EXPECT_EQ(f.get("db", "name"), "main");
    EXPECT_EQ(f.get("db", "blob"), big);

    log.clear();
    std::string missing = dir + "/missing.ini";
    EXPECT_EQ(qv_inifile_load(f.ini, missing.c_str()), QV_ERROR_NOT_FOUND);
    EXPECT_TRUE(log.has(7, "fopen() returned error 2"));
    EXPECT_TRUE(log.has(7, "unable to read INI file '" + missing + "', error 207 (item not found)"));
    EXPECT_EQ(qv_inifile_load(f.ini, (path + "/under-a-file.ini").c_str()), QV_ERROR_NOT_DIRECTORY);
    EXPECT_EQ(qv_inifile_load(f.ini, dir.c_str()), QV_ERROR_IO);  // a directory cannot be read
    EXPECT_EQ(f.get("db", "name"), "main");
}

TEST(IniFile, AllocationFailures) {
    std::string dir = qvtest::temp_dir("inifail");
    std::string path = dir + "/a.ini";
    std::ofstream(path) << "[s]\nk = v\n; note\n";
    qvtest::LogCapture log;
    qvtest::alloc_failure_sweep([&](unsigned long failing) {
        int err = -1;
        qv_inifile *ini = qv_inifile_create(&err);
        if (ini == nullptr) {
            EXPECT_EQ(err, QV_ERROR_NO_MEMORY);
            ASSERT_NE(failing, 0u);
            return;
        }
        EXPECT_EQ(err, QV_ERROR_NONE);
        const std::string text = "a = 1\n[sec]\n# c\nb = 2\n";
        int rc = qv_inifile_parse(ini, text.data(), text.size());
        if (rc == 0) {
            EXPECT_STREQ(qv_inifile_get(ini, "sec", "b"), "2");
        } else {
            EXPECT_EQ(rc, QV_ERROR_NO_MEMORY);
            EXPECT_EQ(qv_inifile_get(ini, nullptr, "a"), nullptr);  // all or nothing
        }
        rc = qv_inifile_load(ini, path.c_str());
        if (rc == 0) {
            EXPECT_STREQ(qv_inifile_get(ini, "s", "k"), "v");
        } else {
            EXPECT_EQ(rc, QV_ERROR_NO_MEMORY);
            EXPECT_EQ(qv_inifile_get(ini, "s", "k"), nullptr);
        }
        qv_inifile_destroy(ini);
    });
}

TEST(IniFileDeathTest, PreconditionsAreAssertions) {
    Ini f;
    EXPECT_DEATH(qv_inifile_get(nullptr, nullptr, "k"), "src/adt/qvinifile.cpp:[0-9]+: Assertion `inifile' failed.");
    EXPECT_DEATH(qv_inifile_get(f.ini, nullptr, nullptr), "src/adt/qvinifile.cpp:[0-9]+: Assertion `key != NULL' failed.");
    EXPECT_DEATH(qv_inifile_destroy(nullptr), "src/adt/qvinifile.cpp:[0-9]+: Assertion `qvinifile != NULL' failed.");
    EXPECT_DEATH(qv_inifile_parse(f.ini, nullptr, 3), "src/adt/qvinifile.cpp:[0-9]+: Assertion `buffer != NULL \\|\\| length == 0' failed.");
}

}  // namespace
