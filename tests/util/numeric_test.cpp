// The shared numeric helpers.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "tests/module/fakehost.h"
#include "util/numeric.h"

namespace {

using fmsd::divide;
using fmsd::divide_unitroot;
using fmsd::wzmis;

// Just above 2^512, so that the square of a guarded quotient stays finite.
constexpr double kBound = 1.3407807929943E154;

TEST(Missing, TopSixteenBitsDecide) {
  for (std::uint64_t low : {0ull, 1ull, 0x123456789ABCull, 0xFFFFFFFFFFFFull})
    EXPECT_EQ(wzmis(FakeHost::bits(0xFFFF000000000000ull | low)), 1) << low;
  const double not_missing[] = {0.0, -1.0, std::numeric_limits<double>::infinity(),
                                -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN(),
                                -std::numeric_limits<double>::quiet_NaN(), FakeHost::bits(0xFFFE000000000000ull),
                                FakeHost::bits(0x7FFF000000000000ull), FakeHost::bits(0xFFF8000000000000ull)};
  for (double x : not_missing) EXPECT_EQ(wzmis(x), 0) << x;
}

TEST(Missing, IsTheHostsValueReadAtEachUse) {
  FakeHost host;
  EXPECT_TRUE(wzmis(fmsd::missing()));
  const double other = FakeHost::bits(0xFFFF0000000000AAull);
  host.set_double(FMSD_CONST_MISSING, other);
  const double passed = divide(fmsd::missing(), 2);
  EXPECT_EQ(std::memcmp(&passed, &other, sizeof other), 0);
}

TEST(Divide, GuardsInBothFlavours) {
  FakeHost host;
  const double miss = fmsd::missing();
  for (auto* f : {divide, divide_unitroot}) {
    EXPECT_EQ(f(0, 0), 0);
    EXPECT_EQ(f(0, 1e-300), 0);
    EXPECT_TRUE(wzmis(f(miss, 1)));
    EXPECT_TRUE(wzmis(f(1, miss)));
    EXPECT_EQ(f(1e300, -1), -1e300);  // |b| >= 1: the plain quotient, however large
    EXPECT_DOUBLE_EQ(f(1e-300, 1e-10), 1e-290);
  }
  EXPECT_EQ(divide(5, 0), kBound);
  EXPECT_EQ(divide(-5, 0), -kBound);
  EXPECT_EQ(divide(1e300, 1e-200), kBound);
  EXPECT_EQ(divide(-1e300, 1e-200), -kBound);
  EXPECT_EQ(divide(-1e300, -1e-200), kBound);

  // The unit-root flavour: a zero divisor gives missing, overflow the host's bounds.
  EXPECT_TRUE(wzmis(divide_unitroot(5, 0)));
  EXPECT_TRUE(wzmis(divide_unitroot(-5, 0)));
  EXPECT_EQ(divide_unitroot(-1e300, -1e-200), 1e300);
  EXPECT_EQ(divide_unitroot(1e300, -1e-200), -1e300);
}

TEST(MinMax, NaNOrderAndSignedZero) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(fmsd::fmin(nan, 1), 1);
  EXPECT_EQ(fmsd::fmax(nan, 1), 1);
  EXPECT_TRUE(std::isnan(fmsd::fmin(1, nan)));
  EXPECT_TRUE(std::isnan(fmsd::fmax(1, nan)));
  EXPECT_EQ(fmsd::fmin(2, 1), 1);
  EXPECT_EQ(fmsd::fmax(2, 1), 2);
  // Equal values: a is returned, which tells -0 from +0.
  EXPECT_TRUE(std::signbit(fmsd::fmin(-0.0, 0.0)));
  EXPECT_FALSE(std::signbit(fmsd::fmax(0.0, -0.0)));
}

TEST(PackedIndex, LowerTriangleBySymmetry) {
  // Walking the rows of the lower triangle visits 0, 1, 2, ... in order.
  int expected = 0;
  for (int h = 0; h < 50; ++h)
    for (int l = 0; l <= h; ++l) {
      ASSERT_EQ(fmsd::zisub(h, l), expected);
      ASSERT_EQ(fmsd::zisub(l, h), expected++);
    }
}

TEST(Text, StripAndCaselessCompare) {
  FakeHost host;
  EXPECT_EQ(fmsd::wzstrip("TIMEID  ", 8), 6);
  EXPECT_EQ(fmsd::wzstrip("        ", 8), 0);
  EXPECT_EQ(fmsd::wzstrip("A\t", 2), 2);  // only the blank counts as padding
  EXPECT_EQ(fmsd::wzbcup("abc", "ABC", 3), 0);
  EXPECT_LT(fmsd::wzbcup("abc", "ABD", 3), 0);
  EXPECT_EQ(fmsd::wzbcup("abc", "ABD", 2), 0);
  EXPECT_GT(fmsd::wzbcup("b", "A", 1), 0);
  // Bytes are compared unsigned after mapping through the host's table.
  EXPECT_GT(fmsd::wzbcup("\xE9", "z", 1), 0);
  host.upcase[0xE9] = 0xC9;
  EXPECT_EQ(fmsd::wzbcup("\xE9", "\xC9", 1), 0);
}

}  // namespace
