// Project-level checks: the exported symbol list, the allocation rule for
// library code, and consumers built against an installed copy.
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/qvtest.h"

namespace {

std::string run(const std::string &cmd, int *status) {
    std::string out;
    FILE *p = popen((cmd + " 2>&1").c_str(), "r");
    if (p == nullptr) {
        *status = -1;
        return out;
    }
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
    *status = pclose(p);
    return out;
}

std::set<std::string> lines_of(const std::string &text) {
    std::set<std::string> s;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line))
        if (!line.empty()) s.insert(line);
    return s;
}

TEST(Project, SharedLibraryExportsExactlyTheCommittedList) {
    int status = 0;
    std::string out = run("nm -D --defined-only '" QV_SHARED_LIB "' | awk '{print $3}'", &status);
    ASSERT_EQ(status, 0) << out;
    std::set<std::string> exported = lines_of(out);
    std::set<std::string> committed = lines_of(qvtest::read_file(QV_SOURCE_DIR "/tests/exports.txt"));
    ASSERT_FALSE(committed.empty());
    for (const std::string &name : exported) {
        EXPECT_EQ(name.rfind("qv_", 0), 0u) << "exported name outside the qv_ namespace: " << name;
        EXPECT_TRUE(committed.count(name)) << "exported but not in tests/exports.txt: " << name;
    }
    for (const std::string &name : committed) EXPECT_TRUE(exported.count(name)) << "not exported: " << name;
    out = run("readelf -d '" QV_SHARED_LIB "' | grep SONAME", &status);
    EXPECT_NE(out.find("[libqvlib.so.0]"), std::string::npos) << out;
}

void list_sources(const std::string &dir, std::vector<std::string> *out) {
    DIR *d = opendir(dir.c_str());
    if (d == nullptr) return;
    while (struct dirent *e = readdir(d)) {
        std::string name = e->d_name;
        if (name == "." || name == "..") continue;
        std::string path = dir + "/" + name;
        struct stat st;
        if (stat(path.c_str(), &st) != 0) continue;
        if (S_ISDIR(st.st_mode)) {
            list_sources(path, out);
        } else if (name.size() > 2 && (name.ends_with(".cpp") || name.ends_with(".h") || name.ends_with(".c"))) {
            out->push_back(path);
        }
    }
    closedir(d);
}

// Blanks comments and string and character literals, keeping line breaks.
std::string code_only(const std::string &src) {
    std::string out = src;
    enum { CODE, LINE, BLOCK, STR, CHR } st = CODE;
    for (size_t i = 0; i < out.size(); ++i) {
        char c = src[i], n = i + 1 < src.size() ? src[i + 1] : '\0';
        switch (st) {
        case CODE:
            if (c == '/' && n == '/') st = LINE;
            else if (c == '/' && n == '*') st = BLOCK;
            else if (c == '"') st = STR;
            else if (c == '\'') st = CHR;
            continue;
        case LINE:
            if (c == '\n') st = CODE;
            break;
        case BLOCK:
            if (c == '*' && n == '/') { out[i] = out[i + 1] = ' '; ++i; st = CODE; continue; }
            break;
        case STR:
        case CHR:
            if (c == '\\') { out[i] = ' '; if (i + 1 < out.size() && out[i + 1] != '\n') out[++i] = ' '; continue; }
            if ((st == STR && c == '"') || (st == CHR && c == '\'')) { st = CODE; continue; }
            break;
        }
        if (c != '\n') out[i] = ' ';
    }
    return out;
}

TEST(Project, LibraryCodeAllocatesOnlyThroughTheQvFamily) {
    std::vector<std::string> files;
    list_sources(QV_SOURCE_DIR "/src", &files);
    ASSERT_GT(files.size(), 10u);
    const std::regex banned(R"((^|[^A-Za-z0-9_.>:])(malloc|calloc|realloc|free|strdup|strndup|aligned_alloc)\s*\()"
                            R"(|(^|[^A-Za-z0-9_:])new\s+[A-Za-z_(]|(^|[^A-Za-z0-9_])delete(\s*\[\s*\])?\s+[A-Za-z_(])");
    const std::regex placement(R"(::new\s*\()");
    for (const std::string &path : files) {
        // The allocator itself and the platform layer may use the runtime heap.
        if (path.find("/src/util/qvmalloc.cpp") != std::string::npos) continue;
        if (path.find("/src/platform/") != std::string::npos) continue;
        std::istringstream in(code_only(qvtest::read_file(path)));
        std::string line;
        int lineno = 0;
        while (std::getline(in, line)) {
            ++lineno;
            std::string stripped = std::regex_replace(line, placement, "");
            EXPECT_FALSE(std::regex_search(stripped, banned)) << path << ":" << lineno << ": " << line;
        }
    }
}

TEST(Project, BannedCallScannerSeesThroughCommentsOnly) {
    // Guards the scanner itself: real calls are found, mentions are not.
    const std::regex banned(R"((^|[^A-Za-z0-9_.>:])(malloc|free|strdup)\s*\()");
    EXPECT_TRUE(std::regex_search(code_only("p = malloc(4);"), banned));
    EXPECT_TRUE(std::regex_search(code_only("x; free (p);"), banned));
    EXPECT_FALSE(std::regex_search(code_only("q = qv_malloc(4); // malloc(4)"), banned));
    EXPECT_FALSE(std::regex_search(code_only("s = \"free(me)\"; /* strdup(x) */"), banned));
}

TEST(Project, InstalledPackageServesCAndCppConsumers) {
    std::string prefix = qvtest::temp_dir("install");
    ASSERT_FALSE(prefix.empty());
    int status = 0;
    std::string out = run(std::string(QV_CMAKE_COMMAND " --install '" QV_BINARY_DIR "' --prefix '") + prefix + "'", &status);
    ASSERT_EQ(status, 0) << out;
    std::string libdir;
    for (const char *d : {"/lib", "/lib64", "/lib/x86_64-linux-gnu"})
        if (!qvtest::read_file(prefix + d + "/pkgconfig/qvlib.pc").empty()) libdir = prefix + d;
    ASSERT_FALSE(libdir.empty()) << "qvlib.pc not installed";
    std::string san = QV_SANITIZE;
    std::string sanflag = san.empty() ? "" : " -fsanitize=" + san;
    std::string env = "PKG_CONFIG_PATH='" + libdir + "/pkgconfig' LD_LIBRARY_PATH='" + libdir + "' ";

    // C99, pedantic, warnings as errors, through pkg-config.
    std::string exe = prefix + "/c_consumer";
    out = run(env + QV_C_COMPILER " -std=c99 -Wall -Wextra -Werror -pedantic" + sanflag + " '" QV_SOURCE_DIR
                  "/tests/consumers/c/consumer.c' -o '" + exe + "' $(" + env + "pkg-config --cflags --libs qvlib)",
              &status);
    ASSERT_EQ(status, 0) << out;
    out = run(env + "'" + exe + "'", &status);
    EXPECT_EQ(status, 0) << out;
    EXPECT_NE(out.find("c consumer ok"), std::string::npos) << out;

    // C++ through find_package(qvlib), shared and static.
    std::string build = prefix + "/cpp-build";
    out = run(std::string(QV_CMAKE_COMMAND " -S '" QV_SOURCE_DIR "/tests/consumers/cpp' -B '") + build +
                  "' -G '" QV_CMAKE_GENERATOR "' -DCMAKE_CXX_COMPILER='" QV_CXX_COMPILER "' -DCMAKE_PREFIX_PATH='" +
                  prefix + "' -DCMAKE_CXX_FLAGS='" + sanflag + "'",
              &status);
    ASSERT_EQ(status, 0) << out;
    out = run(std::string(QV_CMAKE_COMMAND " --build '") + build + "'", &status);
    ASSERT_EQ(status, 0) << out;
    for (const char *name : {"/consumer", "/consumer_static"}) {
        out = run(env + "'" + build + name + "'", &status);
        EXPECT_EQ(status, 0) << out;
        EXPECT_NE(out.find("c++ consumer ok"), std::string::npos) << out;
    }
    out = run("rm -rf '" + prefix + "'", &status);
}

}  // namespace
