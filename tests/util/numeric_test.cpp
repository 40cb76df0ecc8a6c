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

constexpr double kBound = 1.3407807929943E154;

std::uint64_t bits_of(double d) {
  std::uint64_t u;
  std::memcpy(&u, &d, sizeof u);
  return u;
}

TEST(Missing, TopSixteenBitsDecide) {
  for (std::uint64_t low : {0ull, 1ull, 0x123456789ABCull, 0xFFFFFFFFFFFFull})
    EXPECT_EQ(wzmis(FakeHost::bits(0xFFFF000000000000ull | low)), 1) << low;
  const double not_missing[] = {0.0, -1.0, std::numeric_limits<double>::infinity(),
                                -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN(),
                                -std::numeric_limits<double>::quiet_NaN(), FakeHost::bits(0xFFFE000000000000ull),
                                FakeHost::bits(0x7FFF000000000000ull), FakeHost::bits(0xFFF8000000000000ull)};
  for (double x : not_missing) EXPECT_EQ(wzmis(x), 0) << std::hex << bits_of(x);
}

TEST(Missing, IsTheHostsValueReadAtEachUse) {
  FakeHost host;
  EXPECT_EQ(bits_of(fmsd::missing()), 0xFFFF000000000000ull);
  host.set_double(FMSD_CONST_MISSING, FakeHost::bits(0xFFFF0000000000AAull));
  EXPECT_EQ(bits_of(fmsd::missing()), 0xFFFF0000000000AAull);
  EXPECT_EQ(bits_of(divide(fmsd::missing(), 2)), 0xFFFF0000000000AAull);
}

TEST(Divide, GuardsInBothFlavours) {
  FakeHost host;
  const double miss = fmsd::missing();
  for (auto* f : {divide, divide_unitroot}) {
    EXPECT_EQ(f(0, 0), 0);
    EXPECT_EQ(f(0, 1e-300), 0);
    EXPECT_TRUE(wzmis(f(miss, 1)));
    EXPECT_TRUE(wzmis(f(1, miss)));
    EXPECT_EQ(f(1e300, 2), 5e299);  // |b| >= 1: the plain quotient, however large
    EXPECT_EQ(f(-7, -1), 7);
    EXPECT_EQ(f(1, 0.5), 2);
    EXPECT_DOUBLE_EQ(f(1e-300, 1e-10), 1e-290);
  }
  EXPECT_EQ(divide(5, 0), kBound);
  EXPECT_EQ(divide(-5, 0), -kBound);
  EXPECT_EQ(divide(1e300, 1e-200), kBound);
  EXPECT_EQ(divide(-1e300, 1e-200), -kBound);
  EXPECT_EQ(divide(-1e300, -1e-200), kBound);
  EXPECT_EQ(bits_of(kBound), 0x5FF0000000000087ull);

  // The unit-root flavour: a zero divisor gives missing, overflow the host's bounds.
  EXPECT_TRUE(wzmis(divide_unitroot(5, 0)));
  EXPECT_TRUE(wzmis(divide_unitroot(-5, 0)));
  EXPECT_EQ(divide_unitroot(1e300, 1e-200), 1e300);
  EXPECT_EQ(divide_unitroot(-1e300, 1e-200), -1e300);
}

TEST(MinMax, IntegersAndNaNOrder) {
  EXPECT_EQ(fmsd::min(-3, 2), -3);
  EXPECT_EQ(fmsd::lmin(5, 2), 2);
  EXPECT_EQ(fmsd::max(-3, 2), 2);
  EXPECT_EQ(fmsd::lmax(-2147483647 - 1, 2147483647), 2147483647);
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
  EXPECT_EQ(fmsd::zisub(2, 5), 17);
  EXPECT_EQ(fmsd::zisub(5, 2), 17);
  // Walking the rows of the lower triangle visits 0, 1, 2, ... in order.
  int expected = 0;
  for (int h = 0; h < 50; ++h)
    for (int l = 0; l <= h; ++l) ASSERT_EQ(fmsd::zisub(h, l), expected++);
}

TEST(Fill, CountBoundsTheWrite) {
  double a[4] = {1, 2, 3, 4};
  fmsd::vzfdl(9, a, 0);
  fmsd::vzfdl(9, a, -3);
  EXPECT_EQ(a[0], 1);
  fmsd::vzfdl(9, a, 3);
  EXPECT_EQ(a[2], 9);
  EXPECT_EQ(a[3], 4);
}

TEST(Text, LengthStripAndCaselessCompare) {
  FakeHost host;
  EXPECT_EQ(fmsd::wzstlen(nullptr), 0);
  EXPECT_EQ(fmsd::wzstlen("TIMEID"), 6);
  EXPECT_EQ(fmsd::wzstrip("TIMEID  ", 8), 6);
  EXPECT_EQ(fmsd::wzstrip("        ", 8), 0);
  EXPECT_EQ(fmsd::wzstrip("A\t", 2), 2);  // only the blank counts as padding
  EXPECT_EQ(fmsd::wzstrip("", 0), 0);
  EXPECT_EQ(fmsd::wzbcup("abc", "ABC", 3), 0);
  EXPECT_LT(fmsd::wzbcup("abc", "ABD", 3), 0);
  EXPECT_EQ(fmsd::wzbcup("abc", "ABD", 2), 0);
  EXPECT_EQ(fmsd::wzbcup("b", "A", 1), 1);
  EXPECT_EQ(fmsd::wzbcup("x", "y", 0), 0);
  // Bytes are compared unsigned after mapping through the host's table.
  EXPECT_GT(fmsd::wzbcup("\xE9", "z", 1), 0);
  host.upcase[0xE9] = 0xC9;
  EXPECT_EQ(fmsd::wzbcup("\xE9", "\xC9", 1), 0);
}

}  // namespace
