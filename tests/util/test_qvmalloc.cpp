// The allocator family, its QVMALLOC_FAILMODE switch and the test-build fault
// injector that every allocation-failure test relies on.
#include <cstdlib>
#include <cstring>

#include "support/qvtest.h"

namespace {

TEST(Malloc, ZeroSizesAndNull) {
    void *p = qv_malloc(0);
    ASSERT_NE(p, nullptr);
    qv_free(p);
    qv_free(nullptr);
    unsigned char *c = static_cast<unsigned char *>(qv_cmalloc(64));
    ASSERT_NE(c, nullptr);
    for (int i = 0; i < 64; ++i) EXPECT_EQ(c[i], 0);
    // Realloc never frees for size 0: it keeps a one-byte block.
    void *r = qv_realloc(c, 0);
    ASSERT_NE(r, nullptr);
    qv_free(r);
    void *fresh = qv_realloc(nullptr, 16);
    ASSERT_NE(fresh, nullptr);
    qv_free(fresh);
}

TEST(Malloc, CallocRejectsOverflowingProducts) {
    EXPECT_EQ(qv_calloc(SIZE_MAX / 2, 3), nullptr);
    if (sizeof(size_t) == 4) {
        EXPECT_EQ(qv_calloc(65536, 65537), nullptr);
    }
    unsigned char *p = static_cast<unsigned char *>(qv_calloc(7, 9));
    ASSERT_NE(p, nullptr);
    for (int i = 0; i < 63; ++i) EXPECT_EQ(p[i], 0);
    qv_free(p);
    EXPECT_EQ(qv_mallocfail_unwind_stacktrace(), 0);
    qv_malloc_uninit();
}

// The mode is settled by a process's first allocation, so each case runs in a
// freshly executed child.
class FailModeDeathTest : public ::testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(FailModeDeathTest, AnyValueSwitchesItOnAndTheFirstAllocationFails) {
    EXPECT_EXIT(
        {
            setenv("QVMALLOC_FAILMODE", "0", 1);
            bool ok = qv_malloc(16) == nullptr;
            ok = ok && qv_calloc(1, 1) == nullptr && qv_cmalloc(1) == nullptr;
            ok = ok && qv_strdup("x") == nullptr && qv_log_create() == nullptr;
            void *r = qv_realloc(nullptr, 16);  // exempt
            ok = ok && r != nullptr;
            qv_free(r);
            // The log cannot be created, so library messages vanish silently.
            QV_LOG(0, "dropped");
            std::_Exit(ok ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "^QVMALLOC_FAILMODE enabled!\n$");
}

TEST_F(FailModeDeathTest, AbsentVariableLeavesTheHeapOn) {
    EXPECT_EXIT(
        {
            unsetenv("QVMALLOC_FAILMODE");
            void *p = qv_malloc(16);
            // Setting it later changes nothing: the mode is already settled.
            setenv("QVMALLOC_FAILMODE", "1", 1);
            void *q = qv_malloc(16);
            bool ok = p != nullptr && q != nullptr;
            qv_free(p);
            qv_free(q);
            std::_Exit(ok ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "^$");
}

#ifdef QV_FAULT_INJECTION
TEST(FaultInjector, FailsTheNthAllocationOnceOrFromThenOn) {
    qv::fault::fail_at(2, false);
    void *a = qv_malloc(8);
    void *b = qv_malloc(8);
    void *c = qv_realloc(nullptr, 8);
    EXPECT_NE(a, nullptr);
    EXPECT_EQ(b, nullptr);
    EXPECT_NE(c, nullptr);
    EXPECT_EQ(qv::fault::count(), 3u);
    EXPECT_EQ(qv::fault::failed(), 1u);
    qv::fault::fail_at(2, true);
    void *d = qv_malloc(8);
    EXPECT_NE(d, nullptr);
    EXPECT_EQ(qv_cmalloc(8), nullptr);
    EXPECT_EQ(qv_realloc(d, 64), nullptr);  // d stays valid
    EXPECT_EQ(qv_calloc(1, 1), nullptr);
    EXPECT_EQ(qv::fault::failed(), 3u);
    qv::fault::reset();
    long live = qv::fault::live_blocks();
    qv_free(a);
    qv_free(c);
    qv_free(d);
    EXPECT_EQ(qv::fault::live_blocks(), live - 3);
}
#endif

}  // namespace
