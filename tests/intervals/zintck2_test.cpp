// Counting and advancing by intervals on hand-picked dates.  Day numbers come
// from the standard library's civil calendar, not from the host's; it agrees with
// the host's only before the year 4000, so the end of the range is given as a number.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "fmsd/intervals.h"
#include "tests/intervals/hosted.h"

namespace {

using namespace std::chrono;

zintrec interval(char kind, int code, int mult = 1, int shift = 0) {
  zintrec r{};
  r.kind = kind;
  r.code = static_cast<uint8_t>(code);
  r.mult = static_cast<int16_t>(mult);
  r.shift = static_cast<int16_t>(shift);
  if (code == ZINT_WEEKDAY) {
    r.nworkdays = 5;
    r.weekend[0] = r.weekend[6] = 1;
  }
  return r;
}

double day(int y, unsigned m, unsigned d) {
  return (sys_days{year{y} / month{m} / d} - sys_days{1960y / January / 1}).count();
}

constexpr double kLast = 6589335;  // 31 December 20000

class IntervalSteps : public ::testing::Test {
 protected:
  void SetUp() override { hosted().clear_diagnostics(); }
  const zintrec month = interval('d', ZINT_MONTH);
};

TEST_F(IntervalSteps, CountsBoundariesCrossed) {
  EXPECT_EQ(zintck2(&month, 30, 31), 1);
  EXPECT_EQ(zintck2(&month, 0, 30), 0);
  EXPECT_EQ(zintck2(&month, 31, 30), -1);
  EXPECT_EQ(zintck2(&month, 30, 0), 0);
  const zintrec week = interval('d', ZINT_WEEK), monday = interval('d', ZINT_WEEK, 1, 1);
  EXPECT_EQ(zintck2(&week, 1, 2), 1);
  EXPECT_EQ(zintck2(&monday, 1, 2), 0);
  EXPECT_EQ(zintck2(&monday, 2, 3), 1);
  const zintrec weekday = interval('d', ZINT_WEEKDAY);
  EXPECT_EQ(zintck2(&weekday, 0, 1), 0);
  EXPECT_EQ(zintck2(&weekday, 0, 3), 1);
  const zintrec dtday = interval('s', ZINT_DAY), hour = interval('s', ZINT_HOUR);
  EXPECT_EQ(zintck2(&dtday, 0, 86399), 0);
  EXPECT_EQ(zintck2(&dtday, 0, 86400), 1);
  EXPECT_EQ(zintck2(&hour, 3599, 3600), 1);
  const zintrec obs = interval('o', ZINT_OBS), three = interval('o', ZINT_OBS, 3);
  EXPECT_EQ(zintck2(&obs, 1, 5), 4);
  EXPECT_EQ(zintck2(&three, 1, 5), 1);
  // Fiscal years from July; quarters from January, before and after 1960.
  const zintrec july = interval('d', ZINT_YEAR, 1, 6), qtr = interval('d', ZINT_QTR);
  EXPECT_EQ(zintck2(&july, day(1999, 6, 30), day(1999, 7, 1)), 1);
  EXPECT_EQ(zintck2(&july, day(1999, 7, 1), day(2000, 6, 30)), 0);
  EXPECT_EQ(zintck2(&qtr, day(1582, 3, 31), day(1582, 4, 1)), 1);
  EXPECT_EQ(zintck2(&qtr, day(1959, 12, 31), day(2023, 1, 1)), 253);
}

TEST_F(IntervalSteps, AdvancesToIntervalBeginnings) {
  const double mar15 = day(1960, 3, 15);
  EXPECT_EQ(zintnx2(&month, mar15, 0), day(1960, 3, 1));
  EXPECT_EQ(zintnx2(&month, mar15, 1), day(1960, 4, 1));
  EXPECT_EQ(zintnx2(&month, mar15, -1), day(1960, 2, 1));
  EXPECT_EQ(zintnx2(&month, day(1900, 3, 15), 1200), day(2000, 3, 1));
  const zintrec tenday = interval('d', ZINT_TENDAY), semimonth = interval('d', ZINT_SEMIMONTH);
  EXPECT_EQ(zintnx2(&tenday, day(1960, 3, 25), 0), day(1960, 3, 21));
  EXPECT_EQ(zintnx2(&tenday, day(1960, 3, 25), 1), day(1960, 4, 1));
  EXPECT_EQ(zintnx2(&tenday, day(1960, 3, 5), -1), day(1960, 2, 21));
  EXPECT_EQ(zintnx2(&semimonth, day(1960, 3, 20), 0), day(1960, 3, 16));
  EXPECT_EQ(zintnx2(&semimonth, day(1960, 3, 20), 1), day(1960, 4, 1));
  const zintrec weekday = interval('d', ZINT_WEEKDAY);
  EXPECT_EQ(zintnx2(&weekday, 1, 1), 3);
  EXPECT_EQ(zintnx2(&weekday, 1, 0), 0);
  EXPECT_EQ(zintnx2(&weekday, 1, 10), day(1960, 1, 15));
  const zintrec dtmonth = interval('s', ZINT_MONTH);
  EXPECT_EQ(zintnx2(&dtmonth, day(1960, 3, 15) * 86400 + 3723, 1), day(1960, 4, 1) * 86400);
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
  for (double bad : {first - 1, last + 1, hosted().missing()}) {
    EXPECT_TRUE(is_missing(zintck2(&month, bad, 0))) << bad;
    EXPECT_TRUE(is_missing(zintck2(&month, 0, bad))) << bad;
    EXPECT_TRUE(is_missing(zintnx2(&month, bad, 0))) << bad;
  }
  EXPECT_TRUE(is_missing(zintnx2(&month, first, -1)));
  EXPECT_TRUE(is_missing(zintnx2(&month, last, 1)));
  EXPECT_TRUE(is_missing(zintnx2(&month, 0, 2147483648.0)));
  EXPECT_TRUE(is_missing(zintnx2(&month, 0, -2147483648.0)));
  // Steps far beyond the calendar, some short enough to pass the overflow guard.
  for (int code : {ZINT_DAY, ZINT_WEEKDAY, ZINT_WEEK, ZINT_TENDAY, ZINT_SEMIMONTH, ZINT_MONTH, ZINT_YEAR})
    for (double n : {2147483647.0, 2140894312.0, 1070447156.0, 69060000.0, 7000000.0})
      for (int mult : {1, 2, 3}) {
        const zintrec r = interval('d', code, mult, mult - 1);
        EXPECT_TRUE(is_missing(zintnx2(&r, kLast, n))) << code << ' ' << n;
        EXPECT_TRUE(is_missing(zintnx2(&r, kLast, -n))) << code << ' ' << n;
      }
  const zintrec obs = interval('o', ZINT_OBS);
  EXPECT_EQ(zintnx2(&obs, 1e15, 2147483647), 1e15 + 2147483647);
  EXPECT_EQ(zintck2(&obs, 0, 1.3407807929942597e+152), 1.3407807929942597e+152);
  EXPECT_TRUE(is_missing(zintck2(&obs, 0, 1.35e152)));
  const zintrec mismatched[] = {interval('d', ZINT_OBS), interval('d', ZINT_HOUR), interval('o', ZINT_MONTH),
                                interval('o', ZINT_WEEKDAY), interval('o', ZINT_SECOND)};
  for (const zintrec& r : mismatched) {
    EXPECT_TRUE(is_missing(zintck2(&r, 1, 2))) << int{r.code};
    EXPECT_TRUE(is_missing(zintnx2(&r, 1, 1))) << int{r.code};
  }
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
