#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <string>
#include <tuple>

#include "host/host.h"

using fmsd::host::kFirstDay;
using fmsd::host::kLastDay;
using fmsd::host::ziddmdy;
using fmsd::host::zidmdyd;

namespace {

std::string show(int m, int d, int y) {
  return std::to_string(y) + "-" + std::to_string(m) + "-" + std::to_string(d);
}

// Both directions agree with the given date; the empty string when they do.
std::string mismatch(int m, int d, int y, int day) {
  int om = 0, od = 0, oy = 0;
  if (ziddmdy(m, d, y) == day && zidmdyd(&om, &od, &oy, day) == 0 && om == m && od == d && oy == y) return {};
  return show(m, d, y) + " = day " + std::to_string(day);
}

}  // namespace

// Walks every day of the range with plain counters, so any slip in the closed
// form (era boundaries, the 4000-year rule) shows up as a mismatch.
TEST(Calendar, EveryDayRoundTrips) {
  static const int kLength[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  int m = 1, d = 1, y = 1582;
  long bad = 0;
  std::string first;
  for (int day = kFirstDay; day <= kLastDay; ++day) {
    if (std::string s = mismatch(m, d, y, day); !s.empty() && bad++ == 0) first = s;
    const bool leap = y % 4 == 0 && (y % 100 != 0 || y % 400 == 0) && y % 4000 != 0;
    if (++d > kLength[m - 1] + (m == 2 && leap)) {
      d = 1;
      if (++m > 12) m = 1, ++y;
    }
  }
  EXPECT_EQ(bad, 0) << "first mismatch: " << first;
  EXPECT_EQ(show(m, d, y), show(1, 1, 20001)) << "the walk should end on 31 December 20000";
}

// Dates, day numbers and weekdays computed by datetime (tools/calendar_reference.py).
TEST(Calendar, MatchesReferenceTable) {
  std::ifstream in(FMSD_TEST_DATA "/calendar_reference.csv");
  ASSERT_TRUE(in) << "missing calendar_reference.csv";
  std::string line, first;
  std::getline(in, line);
  long rows = 0, bad = 0;
  while (std::getline(in, line)) {
    int y, m, d, day, weekday;
    ASSERT_EQ(std::sscanf(line.c_str(), "%d,%d,%d,%d,%d", &y, &m, &d, &day, &weekday), 5) << line;
    ++rows;
    // Day 0 was a Friday (ISO weekday 5).
    const int iso = ((day % 7 + 7) % 7 + 4) % 7 + 1;
    if ((!mismatch(m, d, y, day).empty() || iso != weekday) && bad++ == 0) first = line;
  }
  EXPECT_GT(rows, 10000);
  EXPECT_EQ(bad, 0) << "first mismatch: " << first;
}

TEST(Calendar, DaysAroundTheDroppedLeapDays) {
  // datetime (proleptic Gregorian) gives 745155 for 1 March 4000 and 2206125 for
  // 1 March 8000; ours drops 29 February 4000 (and 8000), hence -1 and -2.
  // 31 December 20000: datetime gives 2936549 for 31 December 9999; add 25 cycles
  // of 146097 days to reach 31 December 19999, then 366 for the Gregorian leap year
  // 20000: 6589340.  Five dropped days (4000 ... 20000) leave 6589335.
  EXPECT_EQ(ziddmdy(3, 1, 4000), 745154);
  EXPECT_EQ(ziddmdy(3, 1, 8000), 2206123);
  EXPECT_EQ(ziddmdy(12, 31, 20000), 6589335);
}

TEST(Calendar, RefusesDatesOutsideTheCalendar) {
  for (auto [m, d, y] : {std::tuple{2, 29, 4000}, {2, 29, 1900}, {2, 29, 12000}, {12, 31, 1581},
                         {1, 1, 20001}, {0, 1, 2000}, {13, 1, 2000}, {1, 0, 2000},
                         {1, 32, 2000}, {4, 31, 2000}, {-1, 1, 2000}})
    EXPECT_TRUE(fmsd::host::is_missing(ziddmdy(m, d, y))) << show(m, d, y);

  const double inf = std::numeric_limits<double>::infinity();
  for (double date : {fmsd::host::missing_value(), std::nan(""), inf, -inf, -138062.0,
                      6589336.0, kFirstDay - 0.5, 1e300, -1e300}) {
    int m = -7, d = -7, y = -7;
    EXPECT_TRUE(zidmdyd(&m, &d, &y, date) != 0 && m == -7 && d == -7 && y == -7) << date;
  }
}

TEST(Calendar, FractionalDaysBelongToTheDayTheyFallIn) {
  for (auto [date, want] : {std::pair{-0.5, show(12, 31, 1959)}, {0.999, show(1, 1, 1960)},
                            {kLastDay + 0.75, show(12, 31, 20000)}}) {
    int m = 0, d = 0, y = 0;
    EXPECT_EQ(zidmdyd(&m, &d, &y, date), 0) << date;
    EXPECT_EQ(show(m, d, y), want) << date;
  }
}
