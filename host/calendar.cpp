// Day numbers <-> calendar dates.  Interval arithmetic calls these for every
// observation, so both directions are closed-form integer arithmetic: the
// Gregorian days-from-civil computation on years that start on 1 March (which puts
// the leap day at the end of each year), corrected for the dropped 29 February of
// every year divisible by 4000.  All intermediate values stay below 2^23.
#include <cmath>

#include "host/host.h"

namespace fmsd::host {
namespace {

constexpr int kFirstYear = 1582;
constexpr int kLastYear = 20000;
// Our day number of 1 March of year 0, the origin of the March-based count.
constexpr int kMarchZero = -715815;
// Days in 400 Gregorian years, and in 4000 of ours (one leap day fewer).
constexpr int kEraDays = 146097;
constexpr int kBigEraDays = 10 * kEraDays - 1;

bool leap(int year) noexcept {
  return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0) && year % 4000 != 0;
}

int month_length(int month, int year) noexcept {
  static constexpr int kLength[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return kLength[month - 1] + (month == 2 && leap(year));
}

}  // namespace

double ziddmdy(int month, int day, int year) noexcept {
  if (month < 1 || month > 12 || year < kFirstYear || year > kLastYear || day < 1 ||
      day > month_length(month, year))
    return missing_value();
  const int y = year - (month <= 2);  // January and February close the previous year
  const int era = y / 400, yoe = y % 400;
  const int doy = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
  const int doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  // y / 4000 counts the 29 Februaries of years divisible by 4000 already passed.
  return era * kEraDays + doe + kMarchZero - y / 4000;
}

int zidmdyd(int* month, int* day, int* year, double date) noexcept {
  // Written so that NaN (the missing value included) fails the test too.
  if (!(date >= kFirstDay && date < kLastDay + 1.0)) return 1;
  int z = static_cast<int>(std::floor(date)) - kMarchZero;
  z += z / kBigEraDays;  // back to the proleptic Gregorian count
  const int era = z / kEraDays, doe = z % kEraDays;
  const int yoe = (doe - doe / 1460 + doe / 36524 - doe / (kEraDays - 1)) / 365;
  const int doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int mp = (5 * doy + 2) / 153;
  *day = doy - (153 * mp + 2) / 5 + 1;
  *month = mp < 10 ? mp + 3 : mp - 9;
  *year = era * 400 + yoe + (*month <= 2);
  return 0;
}

}  // namespace fmsd::host
