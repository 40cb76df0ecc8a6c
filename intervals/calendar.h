// Calendar arithmetic shared by interval counting and advancing.  Days, months
// and periods are 32-bit integers divided with floor, so that dates before 1960
// fall into the right interval.
#ifndef FMSD_INTERVALS_CALENDAR_H
#define FMSD_INTERVALS_CALENDAR_H

#include <bit>
#include <cstdint>

#include "fmsd/intervals.h"

namespace fmsd {

// The host calendar's range: 1 January 1582 to 31 December 20000.  Kept as
// literals because the module never sees the host's headers.
inline constexpr int kFirstDate = -138061;
inline constexpr int kLastDate = 6589335;

inline bool valid_date(double day) noexcept { return day >= kFirstDate && day <= kLastDate; }

// floor(a / b) and the remainder that goes with it, in 0 to b - 1, for b > 0.
inline int ldiv(int a, int b) noexcept {
  const int q = a / b;
  return q - (q * b > a);
}
inline int lmod(int a, int b) noexcept {
  const int r = a - a / b * b;
  return r < 0 ? r + b : r;
}

// The codes counted in seconds; any other code below DAY is one a parsed record cannot hold.
inline bool timecode(int code) noexcept { return code == ZINT_SECOND || code == ZINT_MINUTE || code == ZINT_HOUR; }

// Base units in one interval: months for QTR and longer, days for WEEK, seconds
// for MINUTE and HOUR, the code's own unit otherwise.
inline int effmult(const zintrec* rec) noexcept {
  const int mult = rec->mult > 0 ? rec->mult : 1;
  switch (rec->code) {
    case ZINT_MINUTE: return 60 * mult;
    case ZINT_HOUR: return 3600 * mult;
    case ZINT_WEEK: return 7 * mult;
    case ZINT_QTR: return 3 * mult;
    case ZINT_SEMIYEAR: return 6 * mult;
    case ZINT_YEAR: return 12 * mult;
    default: return mult;
  }
}

// What to add to a base index so that interval boundaries fall on multiples of m.
// Day 0 is a Friday: taking 5 off a WEEK's shift starts unshifted weeks on Sunday.
inline int shiftoffset(const zintrec* rec, int m) noexcept {
  int k = rec->shift;
  int unit = 1;
  if (rec->code == ZINT_WEEK)
    k -= 5;
  else if (rec->code == ZINT_MINUTE)
    unit = 60;
  else if (rec->code == ZINT_HOUR)
    unit = 3600;
  return k != 0 ? m - k * unit : 0;
}

// Periods a month is cut into by a month-based code; 0 for a code that has no rule.
inline int monthparts(int code) noexcept {
  switch (code) {
    case ZINT_TENDAY: return 3;
    case ZINT_SEMIMONTH: return 2;
    case ZINT_MONTH:
    case ZINT_QTR:
    case ZINT_SEMIYEAR:
    case ZINT_YEAR: return 1;
    default: return 0;
  }
}

// Period index of a calendar day counted from January 1960, for a month cut into parts.
inline int period(int parts, int month, int day, int year) noexcept {
  const int m = 12 * (year - 1960) + month - 1;
  if (parts == 3) return 3 * m + (day > 10) + (day > 20);
  if (parts == 2) return 2 * m + (day > 15);
  return m;
}

// 0 = Sunday ... 6 = Saturday, the order of the weekend flags, for |d| <= 2^30.
// A multiply instead of a division: GCC guesses the working-day paths cold and
// would compile a constant divisor to a slow divide there.
inline int dayofweek(int d) noexcept {
  const std::uint32_t x = static_cast<std::uint32_t>(d + 5) + 7u * (1u << 28);
  const auto q = static_cast<std::uint32_t>((std::uint64_t{x} * 2454267027u) >> 34);  // x / 7
  return static_cast<int>(x - 7 * q);
}


// The working days of a week as bits, bit i for day of week i, written twice so
// that the seven days after any day of week are one shift away.
inline unsigned workbits(const zintrec* rec) noexcept {
  unsigned w = 0;
  for (int i = 0; i < 7; ++i) w |= static_cast<unsigned>(rec->weekend[i] == 0) << i;
  return w | w << 7;
}

// Bit t is set when day d + 1 + t (equally d - 6 + t) is a working day, t = 0..6.
inline unsigned workwindow(unsigned bits, int d) noexcept { return (bits >> (dayofweek(d) + 1)) & 0x7F; }

// Working days from day 0 to d: whole weeks count nworkdays each, then the working
// days among those after the Friday that opens d's week (days of week 6, 0, 1 ...).
inline int workindex(const zintrec* rec, int d) noexcept {
  const int r = lmod(d, 7);
  return rec->nworkdays * ((d - r) / 7) + std::popcount((workbits(rec) >> 6) & ((1u << r) - 1));
}

// The nearest working day at or before d; false when the record marks every day off.
// Bit operations instead of a walk: the day of week of a random date defeats the
// branch predictor, and a mispredicted walk costs more than the arithmetic.
inline bool lastworkday(const zintrec* rec, int& d) noexcept {
  const unsigned window = workwindow(workbits(rec), d);
  if (window == 0) return false;
  d -= 6 - (std::bit_width(window) - 1);
  return true;
}

// The rest-th working day after the working day d, for rest below the working days
// of a week, all of which lie in the seven days after d.
inline int nextworkday(const zintrec* rec, int d, int rest) noexcept {
  if (rest <= 0) return d;
  unsigned window = workwindow(workbits(rec), d);
  while (--rest > 0) window &= window - 1;
  return d + std::countr_zero(window) + 1;
}

}  // namespace fmsd

#endif
