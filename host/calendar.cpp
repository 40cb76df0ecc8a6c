// Day numbers <-> calendar dates.  Interval arithmetic makes one call each way per
// step, so neither direction divides: years are counted from 1 March, which puts
// the leap day at the end of each year, and every division by a constant is a
// multiplication and a shift whose constants are exact over the whole calendar
// (the test walks every day).  Years divisible by 4000 drop their 29 February: one
// correction each way on top of the Gregorian count.
#include <cstdint>

#include "host/host.h"

namespace fmsd::host {
namespace {

constexpr int kFirstYear = 1582;
constexpr int kLastYear = 20000;
// Our day number of 1 March of year 0, the origin of the March-based count.  It is
// a multiple of 4000 years back, so the 400- and 4000-year cycles start there.
constexpr int kMarchZero = -715815;
constexpr std::uint32_t kBigEraDays = 1460969;  // 4000 of our years

struct Month {
  std::uint16_t before;  // days from 1 March to the first of the month
  std::uint16_t length;  // 28 for February: 29 February is checked apart
};
constexpr Month kMonth[12] = {{306, 31}, {337, 28}, {0, 31},   {31, 30},  {61, 31},  {92, 30},
                              {122, 31}, {153, 31}, {184, 30}, {214, 31}, {245, 30}, {275, 31}};

// Month, day and year step of each day of a March-based year; the last one,
// 29 February, is reached in leap years only.  Four bytes, so that the day of
// the year scales straight into an address.
struct alignas(4) DayOfYear {
  std::uint8_t month, day, next_year;  // January and February close the year
};
struct DayTable {
  DayOfYear at[366];
};
constexpr DayTable day_table() {
  DayTable t{};
  for (int month = 1; month <= 12; ++month) {
    const Month& m = kMonth[month - 1];
    for (int day = 1; day <= m.length + (month == 2); ++day)
      t.at[m.before + day - 1] = {static_cast<std::uint8_t>(month), static_cast<std::uint8_t>(day),
                                  month <= 2};
  }
  return t;
}
constexpr DayTable kDays = day_table();

bool leap(int year) noexcept {
  return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0) && year % 4000 != 0;
}

}  // namespace

double ziddmdy(int month, int day, int year) noexcept {
  if (static_cast<unsigned>(month - 1) > 11u ||
      static_cast<unsigned>(year - kFirstYear) > unsigned{kLastYear - kFirstYear} || day < 1)
    return missing_value();
  const Month& m = kMonth[month - 1];
  if (day > m.length && !(month == 2 && day == 29 && leap(year))) return missing_value();
  // Compared rather than loaded: the year's arithmetic need not wait for the table.
  const std::uint32_t y = static_cast<std::uint32_t>(year) - (month <= 2);
  const std::uint32_t century = y / 100;
  // Julian days, less the skipped Gregorian leap days, less the 29 Februaries of
  // years divisible by 4000 already passed: none before the year 4000, where a
  // predicted branch saves the division.
  std::uint32_t days = 1461 * y / 4 - century + century / 4;
  if (y >= 4000) [[unlikely]]
    days -= y / 4000;
  return static_cast<int>(days + m.before + static_cast<std::uint32_t>(day) - 1) + kMarchZero;
}

int zidmdyd(int* month, int* day, int* year, double date) noexcept {
  // Written so that NaN (the missing value included) fails the test too.
  if (!(date >= kFirstDay && date < kLastDay + 1.0)) return 1;
  // Day numbers are nearly always whole.  A negative one with a fraction truncated
  // upwards takes a second pass from the day below; as a branch rather than a
  // subtraction, the test stays off the path that computes the date.
  const int whole = static_cast<int>(date);
  if (whole > date) [[unlikely]]
    return zidmdyd(month, day, year, whole - 1.0);
  std::uint64_t n = static_cast<std::uint32_t>(whole - kMarchZero);
  // n / 1460969 (4000 of our years) makes it a Gregorian count; before the year
  // 4000 that is 0.
  if (n >= kBigEraDays) [[unlikely]]
    n += n * 3010363 >> 42;
  // Adding the leap days that Gregorian centuries skip makes it a Julian count, in
  // which every 4 years have 1461 days.
  const std::uint64_t centuries = (4 * n + 3) * 15051803 >> 41;  // (4n + 3) / 146097
  const std::uint64_t julian = n + centuries - centuries / 4;
  // (4 julian + 3) / 1461 as a fixed-point product: the integer part is the year,
  // the fraction the day of the year.
  const std::uint64_t p = (4 * julian + 3) * 47035919;
  const auto y = static_cast<std::uint32_t>(p >> 36);
  const DayOfYear& d = kDays.at[((p & ((std::uint64_t{1} << 36) - 1)) * 1461) >> 38];
  *year = static_cast<int>(y + d.next_year);
  *month = d.month;
  *day = d.day;
  return 0;
}

}  // namespace fmsd::host
