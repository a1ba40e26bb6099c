// Conversions, limits, lifecycle entry points and the assertion rule.
#include <climits>
#include <cmath>
#include <utility>

#include "support/qvtest.h"

namespace {

TEST(Convert, RoundHalfAwayFromZeroOrTheMostNegativeValue) {
    // Out of range and NaN give the most negative value.
    const std::pair<double, int64_t> cases[] = {
        {2.5, 3}, {-2.5, -3}, {2.4999, 2}, {-0.5, -1}, {0.49999999, 0}, {-0.0, 0},
        {9007199254740993.0, 9007199254740992LL}, {1e300, INT64_MIN}, {-1e300, INT64_MIN},
        {9223372036854775808.0, INT64_MIN}, {NAN, INT64_MIN}, {INFINITY, INT64_MIN},
        {-9223372036854775808.0, INT64_MIN}};
    for (auto [d, want] : cases) EXPECT_EQ(qv_convert_i64_from_double_round(d), want) << d;
    EXPECT_EQ(qv_convert_long_from_double_round(-7.5), -8L);
    EXPECT_EQ(qv_convert_long_from_double_round(7.49), 7L);
    EXPECT_EQ(qv_convert_long_from_double_round(NAN), LONG_MIN);
    EXPECT_EQ(qv_convert_long_from_double_round(1e300), LONG_MIN);
}

TEST(Convert, SizeToIntClampsOrWraps) {
    int v = 0;
    EXPECT_EQ(qv_convert_int_from_size_t_and_limit(&v, 2147483648u), 1);
    EXPECT_EQ(v, 2147483647);
    EXPECT_EQ(qv_convert_int_from_size_t_and_limit(&v, 2147483647u), 0);
    EXPECT_EQ(v, 2147483647);
    EXPECT_EQ(qv_convert_int_from_size_t_and_limit(&v, SIZE_MAX), 1);
    EXPECT_EQ(v, 2147483647);
    EXPECT_EQ(qv_convert_int_from_size_t(&v, 4294967295u), -1);
    EXPECT_EQ(v, -1);
    EXPECT_EQ(qv_convert_int_from_size_t(&v, 2147483648u), -1);
    EXPECT_EQ(v, INT_MIN);
    EXPECT_EQ(qv_convert_int_from_size_t(&v, 12), 0);
    EXPECT_EQ(v, 12);
    unsigned int u = 0;
    EXPECT_EQ(qv_convert_uint_from_size_t_and_limit(&u, 4294967295u), 0);
    EXPECT_EQ(u, 4294967295u);
    if (sizeof(size_t) > sizeof(unsigned int)) {
        EXPECT_EQ(qv_convert_uint_from_size_t_and_limit(&u, SIZE_MAX), 1);
        EXPECT_EQ(u, UINT_MAX);
    }
}

TEST(Convert, CharacterPointerConversionsKeepTheAddress) {
    const unsigned char bytes[] = "\xe4x";
    char *c = nullptr;
    qv_convert_cstr_from_custr(&c, bytes);
    EXPECT_EQ(static_cast<const void *>(c), static_cast<const void *>(bytes));
    unsigned char *uc = nullptr;
    qv_convert_custr_from_cstr(&uc, c);
    EXPECT_EQ(uc, bytes);
}

TEST(Convert, SaturatingMultiplication) {
    EXPECT_EQ(qv_sizet_multiply_and_limit(0, 4294967295u), 0u);
    EXPECT_EQ(qv_sizet_multiply_and_limit(4294967295u, 0), 0u);
    EXPECT_EQ(qv_sizet_multiply_and_limit(65535, 65537), 4294967295u);
    EXPECT_EQ(qv_sizet_multiply_and_limit(SIZE_MAX / 3, 3), SIZE_MAX / 3 * 3);
    EXPECT_EQ(qv_sizet_multiply_and_limit(SIZE_MAX / 2 + 1, 2), SIZE_MAX);
    EXPECT_EQ(qv_sizet_multiply_and_limit(SIZE_MAX, SIZE_MAX), SIZE_MAX);
    if (sizeof(size_t) == 4) {
        EXPECT_EQ(qv_sizet_multiply_and_limit(65536, 65536), SIZE_MAX);
    }
}

TEST(Convert, Limits) {
    EXPECT_EQ(qv_limit_max_size_t(), SIZE_MAX);
    EXPECT_EQ(qv_limit_max_unsigned_long(), ULONG_MAX);
    EXPECT_EQ(qv_limit_max_unsigned_int(), 4294967295u);
}

TEST(Lifecycle, EntryPointsAndRepeatedUninit) {
    qv_dll_donothing();
    EXPECT_EQ(qv_dll_delayloadinitialize(), 1);
    qv_uninit();
    qv_uninit();
    // The log comes back on the next message.
    qvtest::LogCapture cap;
    QV_LOG(7, "after uninit %d", 2);
    EXPECT_TRUE(cap.has(7, "after uninit 2"));
}

using ConvertDeathTest = ::testing::Test;

TEST_F(ConvertDeathTest, NullDestinationIsAnAssertion) {
    const unsigned char s[] = "x";
    EXPECT_DEATH(qv_convert_cstr_from_custr(nullptr, s),
                 "^" + qvtest::assert_regex("src/util/qvconvert.cpp", "destptr != NULL") + "\n$");
    EXPECT_DEATH(qv_convert_custr_from_cstr(nullptr, "x"),
                 qvtest::assert_regex("src/util/qvconvert.cpp", "destptr != NULL", 2));
    char *d;
    EXPECT_DEATH(qv_convert_cstr_from_custr(&d, nullptr),
                 qvtest::assert_regex("src/util/qvconvert.cpp", "src != NULL"));
}

}  // namespace
