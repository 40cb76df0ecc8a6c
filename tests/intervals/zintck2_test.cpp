// Counting and advancing by intervals at the edges: rounding, the ends of the
// calendar, mismatched records, alignment and impossible codes.  The ordinary
// cases are covered by the property tests and the reference replay.  Day numbers
// come from the standard library's civil calendar, not from the host's; it agrees
// with the host's only before the year 4000, so the end of the range is a number.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "tests/hosted.h"

namespace {

using namespace std::chrono;

double day(int y, unsigned m, unsigned d) {
  return (sys_days{year{y} / month{m} / d} - sys_days{1960y / January / 1}).count();
}

constexpr double kLast = 6589335;  // 31 December 20000

class IntervalSteps : public ::testing::Test {
 protected:
  void SetUp() override { hosted().clear_diagnostics(); }
  const zintrec month = interval('d', ZINT_MONTH);
};

TEST_F(IntervalSteps, FractionsOfADayOrASecond) {
  // A time ID a rounding error short of a day is advanced from that day but counted
  // from the day before.
  const zintrec daily = interval('d', ZINT_DAY);
  EXPECT_EQ(zintnx2(&daily, 2.9999999999999, 0), 3);
  EXPECT_EQ(zintck2(&daily, 2.9999999999999, 3), 1);
  EXPECT_EQ(zintck2(&daily, -0.5, 0), 1);
  const zintrec second = interval('s', ZINT_SECOND);
  EXPECT_EQ(zintck2(&second, 0.5, 2), 2);
}

TEST_F(IntervalSteps, AlignsToEndOrMiddle) {
  const double jan15 = day(1960, 1, 15);
  EXPECT_EQ(zintnx3(&month, jan15, 0, "END"), day(1960, 1, 31));
  EXPECT_EQ(zintnx3(&month, jan15, 0, "MIDDLE"), day(1960, 1, 16));
  EXPECT_EQ(zintnx3(&month, day(1960, 4, 10), 0, "MIDDLE"), day(1960, 4, 15));
  EXPECT_EQ(zintnx3(&month, jan15, 1, "BEGIN"), day(1960, 2, 1));
  EXPECT_EQ(zintnx3(&month, jan15, 1, "E"), day(1960, 2, 29));
  const zintrec dtmonth = interval('s', ZINT_MONTH);
  EXPECT_EQ(zintnx3(&dtmonth, jan15 * 86400, 0, "END"), day(1960, 2, 1) * 86400 - 1);
  EXPECT_TRUE(is_missing(zintnx3(&month, jan15, hosted().missing(), "END")));
  EXPECT_TRUE(is_missing(zintnx3(&month, kLast - 20, 0, "MIDDLE")));
}

TEST_F(IntervalSteps, OutOfRangeAndMismatchedGiveMissing) {
  const double first = day(1582, 1, 1), last = kLast;
  EXPECT_EQ(zintck2(&month, first, last), 12 * (20000 - 1582) + 11);
  EXPECT_EQ(zintnx2(&month, first, 0), first);
  for (double bad : {first - 1, last + 1, hosted().missing()})
    EXPECT_TRUE(is_missing(zintck2(&month, bad, 0)) && is_missing(zintck2(&month, 0, bad)) &&
                is_missing(zintnx2(&month, bad, 0))) << bad;
  EXPECT_TRUE(is_missing(zintnx2(&month, first, -1)));
  EXPECT_TRUE(is_missing(zintnx2(&month, last, 1)));
  EXPECT_TRUE(is_missing(zintnx2(&month, 0, 2147483648.0)));
  EXPECT_TRUE(is_missing(zintnx2(&month, 0, -2147483648.0)));
  // Steps far beyond the calendar, some short enough to pass the overflow guard.
  for (int code : {ZINT_DAY, ZINT_WEEKDAY, ZINT_WEEK, ZINT_TENDAY, ZINT_SEMIMONTH, ZINT_MONTH, ZINT_YEAR})
    for (double n : {2147483647.0, 2140894312.0, 1070447156.0, 69060000.0, 7000000.0})
      for (int mult : {1, 2, 3}) {
        const zintrec r = interval('d', code, mult, mult - 1);
        EXPECT_TRUE(is_missing(zintnx2(&r, kLast, n)) && is_missing(zintnx2(&r, kLast, -n))) << code << ' ' << n;
      }
  const zintrec obs = interval('o', ZINT_OBS);
  EXPECT_EQ(zintnx2(&obs, 1e15, 2147483647), 1e15 + 2147483647);
  EXPECT_EQ(zintck2(&obs, 0, 1.3407807929942597e+152), 1.3407807929942597e+152);
  EXPECT_TRUE(is_missing(zintck2(&obs, 0, 1.35e152)));
  const zintrec mismatched[] = {interval('d', ZINT_OBS), interval('d', ZINT_HOUR), interval('o', ZINT_MONTH),
                                interval('o', ZINT_WEEKDAY), interval('o', ZINT_SECOND)};
  for (const zintrec& r : mismatched)
    EXPECT_TRUE(is_missing(zintck2(&r, 1, 2)) && is_missing(zintnx2(&r, 1, 1))) << r.kind << int{r.code};
  EXPECT_TRUE(hosted().diagnostics().empty());
}

TEST_F(IntervalSteps, ImpossibleCodesAreReported) {
  const zintrec time = interval('s', 12), date = interval('d', 31);
  EXPECT_TRUE(is_missing(zintck2(&time, 0, 1)));
  EXPECT_TRUE(is_missing(zintck2(&date, 0, 1)));
  EXPECT_TRUE(is_missing(zintnx2(&time, 0, 1)));
  EXPECT_TRUE(is_missing(zintnx2(&date, 0, 1)));
  const std::vector<std::string> expected = {"zintck2: bad intcode=12", "zintck2: invalid intcode=31",
                                             "zintnx2: bad intcode=12", "zintnx2: yearbase: bad intcode=31"};
  EXPECT_EQ(hosted().diagnostics(), expected);
}

}  // namespace
