// qvsum against coreutils: the same files through sha256sum/sha1sum and
// qvsum must give the same standard output, the same exit status and the
// same diagnostics (with the program name swapped).
#include <gtest/gtest.h>

#include <cstdlib>
#include <sys/wait.h>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/qvtest.h"

#ifdef QV_QVSUM

namespace {

struct Outcome {
    std::string out, err;
    int status;
};

class Qvsum : public ::testing::Test {
protected:
    void SetUp() override {
        if (std::system("command -v sha256sum >/dev/null && command -v sha1sum >/dev/null") != 0)
            GTEST_SKIP() << "coreutils' sha256sum is not installed";
        dir_ = qvtest::temp_dir("qvsum");
        ASSERT_FALSE(dir_.empty());
        write("empty", "");
        write("abc", "abc");
        std::string big;
        for (size_t i = 0; big.size() < 300000; ++i) big.push_back(static_cast<char>(i * 2654435761u >> 13));
        write("big", big);                           // spans several read chunks
        write("chunk", std::string(128 * 1024, 'c'));  // exactly one chunk
        write("back\\slash", "b");
        write("new\nline", "n");
        write("car\rriage", "r");
        write("sp ace", "s");
    }
    void TearDown() override {
        if (!dir_.empty()) std::filesystem::remove_all(dir_);
    }
    void write(const std::string &name, const std::string &content) {
        std::ofstream(dir_ + "/" + name, std::ios::binary) << content;
    }
    Outcome run(const std::string &cmd) {
        std::string full = "cd '" + dir_ + "' && " + cmd + " >.out 2>.err";
        int rc = std::system(full.c_str());
        Outcome r{qvtest::read_file(dir_ + "/.out"), qvtest::read_file(dir_ + "/.err"),
              WIFEXITED(rc) ? WEXITSTATUS(rc) : -1};
        return r;
    }
    // Runs the coreutils tool and qvsum with the same arguments and compares.
    void same(const std::string &tool, const std::string &qvargs, const std::string &args,
              const std::string &input = "") {
        SCOPED_TRACE(tool + " " + args);
        Outcome want = run(tool + " " + args + input);
        Outcome got = run(std::string("'") + QV_QVSUM + "' " + qvargs + " " + args + input);
        EXPECT_EQ(got.out, want.out);
        EXPECT_EQ(got.status, want.status);
        std::string err = want.err;
        for (size_t p = 0; (p = err.find(tool + ":", p)) != std::string::npos; p += 6) err.replace(p, tool.size() + 1, "qvsum:");
        EXPECT_EQ(got.err, err);
    }

    const std::string files = "empty abc big chunk 'back\\slash' 'new\nline' 'car\rriage'";
    std::string dir_;
};

TEST_F(Qvsum, DigestLinesAsCoreutils) {
    same("sha256sum", "", files);
    same("sha256sum", "--sha256", files + " missing 'sp ace' .");
    same("sha1sum", "--sha1", files);
    same("sha256sum", "", "", " <big");
    same("sha256sum", "", "- abc", " <chunk");
}

TEST_F(Qvsum, CheckAsCoreutils) {
    ASSERT_EQ(run("sha256sum " + files + " 'sp ace' >sums").status, 0);
    ASSERT_EQ(run("sha256sum --tag abc big >>sums").status, 0);
    same("sha256sum", "", "--check sums");
    same("sha256sum", "", "-c", " <sums");

    // One file changed, one gone, lines that do not parse, a comment, CRLF.
    write("abc", "abd");
    ASSERT_EQ(run("rm big && printf 'garbage\\n# note\\n\\n' >>sums && sha256sum empty | sed 's/$/\\r/' >>sums")
                  .status, 0);
    same("sha256sum", "", "-c sums");
    write("sums2", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855 empty\n"
                   "E3B0C44298FC1C149AFBF4C8996FB92427AE41E4649B934CA495991B7852B855 empty\n");
    same("sha256sum", "", "-c sums2");
    same("sha256sum", "", "-c sums sums2 nolist");

    ASSERT_EQ(run("sha1sum abc empty >sums1").status, 0);
    write("empty", "x");
    same("sha1sum", "--sha1", "-c sums1");
    write("junk", "not a checksum line\n");
    same("sha256sum", "", "-c junk");
}

TEST_F(Qvsum, HelpAndBadOptions) {
    Outcome r = run(std::string("'") + QV_QVSUM + "' -h");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind("usage: qvsum [--sha1|--sha256] [--check] FILE...\nOPTIONS:\n -h, --help", 0), 0u) << r.out;
    EXPECT_EQ(r.err, "");
    r = run(std::string("'") + QV_QVSUM + "' --nope abc");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "qvsum: unrecognized option '--nope'\nTry 'qvsum --help' for more information.\n");
    r = run(std::string("'") + QV_QVSUM + "' --sha1 --sha256 abc");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "qvsum: choose one of --sha1 and --sha256\nTry 'qvsum --help' for more information.\n");
}

}  // namespace

#endif  // QV_QVSUM
