// SHA-1 and SHA-256: published vectors, block-boundary behaviour of the
// incremental interface, and agreement of the hardware and portable paths.
// Every case runs for both digests and, where the CPU allows, both paths.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "crypto/qvsha.h"
#include "qvlib.h"
#include "support/qvtest.h"
#include "util/codec_support.h"

namespace {

// One digest seen through type-erased entry points, so that every case is
// written once for both algorithms.
struct Algo {
    const char *name;
    size_t size;
    void *(*create)();
    void (*init)(void *);
    void (*update)(void *, const void *, size_t);
    void (*finalize)(void *);
    void (*digest)(void *, unsigned char *);
    void (*destroy)(void *);
    const char *empty, *abc, *two_block_448, *two_block_896, *million_a, *digest_of_digests, *long_pattern;
};

const Algo kSha1 = {
    "sha1", 20,
    [] { return static_cast<void *>(qv_sha1_create()); },
    [](void *o) { qv_sha1_init(static_cast<qv_sha1 *>(o)); },
    [](void *o, const void *d, size_t n) { qv_sha1_update(static_cast<qv_sha1 *>(o), d, n); },
    [](void *o) { qv_sha1_finalize(static_cast<qv_sha1 *>(o)); },
    [](void *o, unsigned char *d) { qv_sha1_digest(static_cast<qv_sha1 *>(o), d); },
    [](void *o) { qv_sha1_destroy(static_cast<qv_sha1 *>(o)); },
    "da39a3ee5e6b4b0d3255bfef95601890afd80709",
    "a9993e364706816aba3e25717850c26c9cd0d89d",
    "84983e441c3bd26ebaae4aa1f95129e5e54670f1",
    "a49b2446a02c645bf419f995b67091253a04a259",
    "34aa973cd4c4daa4f61eeb2bdbad27316534016f",
    "b94c0fd52835f85acb3416dc24aee3f5bccdb9da",
    "9071a8362f0498b386f5a7d61e95738bd56b298b",
};

const Algo kSha256 = {
    "sha256", 32,
    [] { return static_cast<void *>(qv_sha256_create()); },
    [](void *o) { qv_sha256_init(static_cast<qv_sha256 *>(o)); },
    [](void *o, const void *d, size_t n) { qv_sha256_update(static_cast<qv_sha256 *>(o), d, n); },
    [](void *o) { qv_sha256_finalize(static_cast<qv_sha256 *>(o)); },
    [](void *o, unsigned char *d) { qv_sha256_digest(static_cast<qv_sha256 *>(o), d); },
    [](void *o) { qv_sha256_destroy(static_cast<qv_sha256 *>(o)); },
    "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855",
    "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad",
    "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1",
    "cf5b16a778af8380036ce59e7b0492370b249b11e8f07a51afac45037afee9d1",
    "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0",
    "f9be27f65ce096e9153691cee0f5949b0e477b1afb72e8fa01644e3860e834c5",
    "b33eb4f8e829c8e751daebf599fcce1f51f541806e35c4e46f85ef7f322401ff",
};

std::string to_hex(const unsigned char *p, size_t n) {
    static const char digits[] = "0123456789abcdef";
    std::string s;
    for (size_t i = 0; i < n; ++i) {
        s += digits[p[i] >> 4];
        s += digits[p[i] & 15];
    }
    return s;
}

// Byte i of the pattern messages (reproducible by any other implementation).
std::vector<unsigned char> pattern(size_t n, unsigned mul, unsigned add) {
    std::vector<unsigned char> v(n);
    for (size_t i = 0; i < n; ++i) v[i] = static_cast<unsigned char>(i * mul + add);
    return v;
}

enum class Path { hardware, portable };

class Sha : public ::testing::TestWithParam<std::tuple<const Algo *, Path>> {
protected:
    void SetUp() override {
        if (path() == Path::hardware && !qv::sha::hardware_supported())
            GTEST_SKIP() << "this CPU has no SHA extensions";
        qv::sha::force_portable(path() == Path::portable);
        obj_ = algo().create();
        ASSERT_NE(obj_, nullptr);
    }
    void TearDown() override {
        if (obj_ != nullptr) algo().destroy(obj_);
        qv::sha::force_portable(false);
    }
    const Algo &algo() const { return *std::get<0>(GetParam()); }
    Path path() const { return std::get<1>(GetParam()); }

    std::vector<unsigned char> finish() {
        std::vector<unsigned char> d(algo().size);
        algo().finalize(obj_);
        algo().digest(obj_, d.data());
        return d;
    }
    std::string finish_hex() {
        auto d = finish();
        return to_hex(d.data(), d.size());
    }
    std::string hash(const void *data, size_t n) {
        algo().init(obj_);
        algo().update(obj_, data, n);
        return finish_hex();
    }
    std::string hash(const std::string &s) { return hash(s.data(), s.size()); }

    void *obj_ = nullptr;
};

TEST_P(Sha, PublishedExamples) {
    EXPECT_EQ(hash(""), algo().empty);
    EXPECT_EQ(hash("abc"), algo().abc);
    EXPECT_EQ(hash("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"), algo().two_block_448);
    EXPECT_EQ(hash("abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmnoijklmnopjklmnopqklmnopqrlmnopqrs"
                   "mnopqrstnopqrstu"),
              algo().two_block_896);
    EXPECT_EQ(hash(std::string(1000000, 'a')), algo().million_a);
}

TEST_P(Sha, FreshObjectInitRestartsAndDigestCanBeReadTwice) {
    // create leaves the object initialised: no init call here.
    algo().update(obj_, nullptr, 0);
    algo().update(obj_, "", 0);
    EXPECT_EQ(finish_hex(), algo().empty);
    algo().update(obj_, "some earlier message", 20);
    EXPECT_EQ(hash("abc"), algo().abc);
    std::vector<unsigned char> again(algo().size);
    algo().digest(obj_, again.data());
    EXPECT_EQ(to_hex(again.data(), again.size()), algo().abc);
}

TEST_P(Sha, OneUpdateEqualsByteByByteAtEveryLengthUpTo200) {
    // Covers every padding boundary (55, 56, 63, 64, 119, 120, 127, 128...).
    std::vector<unsigned char> all;
    for (size_t n = 0; n <= 200; ++n) {
        auto msg = pattern(n, 131, 7);
        auto whole = hash(msg.data(), msg.size());
        algo().init(obj_);
        for (unsigned char b : msg) algo().update(obj_, &b, 1);
        auto bytes = finish();
        EXPECT_EQ(to_hex(bytes.data(), bytes.size()), whole) << "length " << n;
        all.insert(all.end(), bytes.begin(), bytes.end());
    }
    // The digests of all 201 messages, hashed once more, against a value
    // computed by an independent implementation.
    EXPECT_EQ(hash(all.data(), all.size()), algo().digest_of_digests);
}

TEST_P(Sha, LongMessageAcrossManyUnevenUpdates) {
    std::vector<unsigned char> data((1u << 20) + 17);
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(i * i + 3 * i + 1);
    EXPECT_EQ(hash(data.data(), data.size()), algo().long_pattern);

    const size_t steps[] = {1, 63, 64, 65, 127, 128, 129, 4096, 7, 100000, 55, 56};
    algo().init(obj_);
    size_t pos = 0;
    for (size_t k = 0; pos < data.size(); ++k) {
        size_t n = std::min(steps[k % (sizeof steps / sizeof steps[0])], data.size() - pos);
        algo().update(obj_, data.data() + pos, n);
        pos += n;
    }
    EXPECT_EQ(finish_hex(), algo().long_pattern);
}

INSTANTIATE_TEST_SUITE_P(Digests, Sha,
                         ::testing::Combine(::testing::Values(&kSha1, &kSha256),
                                            ::testing::Values(Path::hardware, Path::portable)),
                         [](const auto &p) {
                             return std::string(std::get<0>(p.param)->name) +
                                    (std::get<1>(p.param) == Path::hardware ? "_hardware" : "_portable");
                         });

// The two compressors must agree on arbitrary states and block runs, not only
// on states reachable from the initial values.
TEST(ShaPaths, HardwareAndPortableCompressorsAgree) {
    if (!qv::sha::hardware_supported()) GTEST_SKIP() << "this CPU has no SHA extensions";
#if QV_SHA_HAVE_X86
    auto blocks = pattern(64 * 9, 197, 3);
    for (size_t n = 1; n <= 9; ++n) {
        uint32_t s1a[5], s1b[5], s2a[8], s2b[8];
        for (uint32_t i = 0; i < 8; ++i) {
            uint32_t v = 0x9e3779b9u * (i + 1) + static_cast<uint32_t>(n);
            if (i < 5) s1a[i] = s1b[i] = v;
            s2a[i] = s2b[i] = v;
        }
        qv::sha::sha1_compress_portable(s1a, blocks.data(), n);
        qv::sha::sha1_compress_x86(s1b, blocks.data(), n);
        qv::sha::sha256_compress_portable(s2a, blocks.data(), n);
        qv::sha::sha256_compress_x86(s2b, blocks.data(), n);
        for (int i = 0; i < 5; ++i) EXPECT_EQ(s1a[i], s1b[i]) << n << " blocks, word " << i;
        for (int i = 0; i < 8; ++i) EXPECT_EQ(s2a[i], s2b[i]) << n << " blocks, word " << i;
    }
#endif
}

TEST(ShaCreate, OutOfMemoryIsLoggedAndGivesNull) {
    qvtest::alloc_failure_sweep([](unsigned long failing) {
        qvtest::LogCapture log;
        qv_sha1 *s1 = qv_sha1_create();
        EXPECT_EQ(s1 == nullptr, failing == 1);
        EXPECT_EQ(log.has(7, "not enough memory for SHA-1 context"), failing == 1);
        if (s1 != nullptr) qv_sha1_destroy(s1);
    });
    qvtest::alloc_failure_sweep([](unsigned long failing) {
        qvtest::LogCapture log;
        qv_sha256 *s2 = qv_sha256_create();
        EXPECT_EQ(s2 == nullptr, failing == 1);
        EXPECT_EQ(log.has(7, "not enough memory for SHA256 context"), failing == 1);
        if (s2 != nullptr) qv_sha256_destroy(s2);
    });
}

#define DIES(call, file, expr) EXPECT_DEATH(call, "src/crypto/" file ":[0-9]+: Assertion `" expr "' failed.")
TEST(ShaDeathTest, NullArgumentsAreAssertions) {
    DIES(qv_sha1_init(nullptr), "qvsha1.cpp", "qvsha1 != NULL");
    DIES(qv_sha1_update(nullptr, "", 0), "qvsha1.cpp", "qvsha1 != NULL");
    DIES(qv_sha1_destroy(nullptr), "qvsha1.cpp", "qvsha1 != NULL");
    DIES(qv_sha256_finalize(nullptr), "qvsha256.cpp", "qvsha256 != NULL");
    DIES(qv_sha256_destroy(nullptr), "qvsha256.cpp", "qvsha256 != NULL");
    qv_sha1 *s1 = qv_sha1_create();
    qv_sha256 *s2 = qv_sha256_create();
    DIES(qv_sha1_digest(s1, nullptr), "qvsha1.cpp", "digest != NULL");
    DIES(qv_sha256_digest(s2, nullptr), "qvsha256.cpp", "digest != NULL");
    qv_sha1_destroy(s1);
    qv_sha256_destroy(s2);
}

}  // namespace
