// Counting and advancing must agree with each other and with where intervals
// begin, for every code, multiplier and shift, anywhere in the calendar.  Where an
// interval begins is worked out here from calendar fields (the host's calendar)
// and from day-by-day walks, not from the module's own arithmetic.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "tests/hosted.h"

namespace {

constexpr int kFirst = -138061, kLast = 6589335;

std::int64_t floormod(std::int64_t a, std::int64_t b) { return ((a % b) + b) % b; }
std::int64_t floordiv(std::int64_t a, std::int64_t b) { return (a - floormod(a, b)) / b; }

// Months per interval unit for the month-based codes, and shift positions per unit.
int units(int code) {
  return code == ZINT_QTR ? 3 : code == ZINT_SEMIYEAR ? 6 : code == ZINT_YEAR ? 12 : code == ZINT_WEEK ? 7 : 1;
}

// Whether base position x (a day, or a second for the time codes) opens an interval:
// one interval starts `shift` units after 1 January 1960 (weeks after Sunday
// 27 December 1959) and they follow each other every `mult` intervals of the base name.
bool opens(const zintrec& r, std::int64_t x) {
  const std::int64_t k = r.shift, m = r.mult;
  switch (r.code) {
    case ZINT_OBS: return floormod(x, m) == 0;
    case ZINT_SECOND: return floormod(x - k, m) == 0;
    case ZINT_MINUTE: return floormod(x - 60 * k, 60 * m) == 0;
    case ZINT_HOUR: return floormod(x - 3600 * k, 3600 * m) == 0;
    case ZINT_DAY: return floormod(x - k, m) == 0;
    case ZINT_WEEK: return floormod(x + 5 - k, 7 * m) == 0;
  }
  int mo, d, y;
  EXPECT_EQ(fmsd::host::zidmdyd(&mo, &d, &y, static_cast<double>(x)), 0);
  const std::int64_t month = 12 * (y - 1960) + mo - 1;
  if (r.code == ZINT_TENDAY) return (d == 1 || d == 11 || d == 21) && floormod(3 * month + d / 10 - k, m) == 0;
  if (r.code == ZINT_SEMIMONTH) return (d == 1 || d == 16) && floormod(2 * month + d / 16 - k, m) == 0;
  return d == 1 && floormod(month - k, units(r.code) * m) == 0;
}

TEST(IntervalProperties, CountingAndAdvancingAgreeWithIntervalBeginnings) {
  hosted();
  std::mt19937_64 rng(20240611);
  std::uniform_int_distribution<int> days(kFirst, kLast), secs(0, 86399), steps(-40, 40);
  const int codes[] = {ZINT_OBS,     ZINT_SECOND,    ZINT_MINUTE, ZINT_HOUR, ZINT_DAY,      ZINT_WEEKDAY, ZINT_WEEK,
                       ZINT_TENDAY, ZINT_SEMIMONTH, ZINT_MONTH,  ZINT_QTR,  ZINT_SEMIYEAR, ZINT_YEAR};
  long checked = 0;
  for (int code : codes)
    for (char kind : {'d', 's'})
      for (int mult = 1; mult <= 13; ++mult)
        for (int shift = 0; shift < units(code) * mult; ++shift) {
          const bool daily = code > 24;
          if (!daily && kind == 'd') continue;
          const zintrec r = interval(code == ZINT_OBS ? 'o' : kind, code, mult, shift);
          const double scale = kind == 's' && daily ? 86400 : 1;
          for (int i = 0; i < 60; ++i) {
            const double t = kind == 's' ? days(rng) * 86400.0 + secs(rng) : days(rng);
            const int n = steps(rng);
            const double b = zintnx2(&r, t, 0), next = zintnx2(&r, t, 1), to = zintnx2(&r, t, n);
            if (is_missing(b) || is_missing(next) || is_missing(to)) continue;  // at the ends of the calendar
            ++checked;
            ASSERT_TRUE(b <= t && t < next) << int{r.code} << ' ' << t;
            ASSERT_EQ(zintnx2(&r, b, 0), b);
            ASSERT_EQ(zintck2(&r, t, to), n) << int{r.code} << ' ' << t << ' ' << n;
            ASSERT_EQ(zintck2(&r, to, t), -n);
            if (code == ZINT_WEEKDAY) continue;
            ASSERT_TRUE(opens(r, static_cast<std::int64_t>(b / scale))) << int{r.code} << ' ' << t;
            // One step of the base unit crosses a boundary exactly when it lands on one.
            const double step = kind == 's' && !daily ? 1 : scale;
            const double c = zintck2(&r, b - step, b), c2 = zintck2(&r, t, t + step);
            ASSERT_TRUE(c == 1 || (daily && b / scale == kFirst));  // nothing lies before the first day
            ASSERT_EQ(c2, opens(r, static_cast<std::int64_t>(std::floor((t + step) / scale)))) << int{r.code} << ' ' << t;
          }
        }
  EXPECT_GT(checked, 370000);
}

// Working days by walking the calendar one day at a time from a day whose count is
// known: day 0 counts 0, and every 7 consecutive days hold nworkdays working days.
struct Walk {
  int first;
  std::vector<std::int64_t> count;  // working days in (0, day]
  std::vector<bool> working;
  Walk(const zintrec& r, int from, int to) : first(from - floormod(from, 7)) {
    using namespace std::chrono;
    std::int64_t w = std::int64_t{r.nworkdays} * (first / 7);
    for (int d = first; d <= to; ++d) {
      const unsigned dow = weekday{sys_days{1960y / January / 1} + days{d}}.c_encoding();
      const bool work = r.weekend[dow] == 0;
      if (d > first) w += work;
      count.push_back(w);
      working.push_back(work);
    }
  }
  std::int64_t at(int d) const { return count[d - first]; }
  bool works(int d) const { return working[d - first]; }
};

TEST(IntervalProperties, WorkingDaysAgreeWithAWalk) {
  hosted();
  std::mt19937_64 rng(7);
  std::uniform_int_distribution<int> days(kFirst + 500, kLast - 500), near(-100, 100), steps(-2, 2);
  // Days off as weekday indices, 0 = Sunday.
  const std::vector<std::vector<int>> weekends = {{0, 6}, {5, 6}, {0}, {0, 1, 2, 4, 5, 6}};
  for (const auto& off : weekends)
    for (int mult = 1; mult <= 13; ++mult)
      for (int shift = 0; shift < mult; ++shift) {
        zintrec r = interval('d', ZINT_WEEKDAY, mult, shift);
        r.weekend[0] = r.weekend[6] = 0;
        for (int i : off) r.weekend[i] = 1;
        r.nworkdays = static_cast<int8_t>(7 - off.size());
        for (int c = 0; c < 4; ++c) {
          const int centre = days(rng);
          const Walk walk(r, centre - 400, centre + 400);
          auto interval_of = [&](int d) { return floordiv(walk.at(d) - shift, mult); };
          for (int i = 0; i < 20; ++i) {
            const int a = centre + near(rng), b = centre + near(rng), n = steps(rng);
            ASSERT_EQ(zintck2(&r, a, b), interval_of(b) - interval_of(a)) << mult << '.' << shift << ' ' << a;
            // An interval begins on its working day whose count is mult * interval + shift.
            const std::int64_t target = (interval_of(a) + n) * mult + shift;
            int e = centre - 400;
            while (!(walk.works(e) && walk.at(e) == target)) ASSERT_LT(++e, centre + 400);
            ASSERT_EQ(zintnx2(&r, a, n), e) << mult << '.' << shift << ' ' << a << ' ' << n;
          }
        }
      }
}

}  // namespace
