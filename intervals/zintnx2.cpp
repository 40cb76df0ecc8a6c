// Advancing a time ID by a number of intervals to the beginning of the interval reached.
#include <cmath>
#include <cstdint>

#include "intervals/calendar.h"
#include "util/numeric.h"

namespace fmsd {
namespace {

// Room for a step in 32-bit day arithmetic once the largest valid day is added.
constexpr int kStepRoom = 2147483647 - kLastDate;

// A step of n intervals of at most span days each must fit in kStepRoom.
bool toolong(int n, int span) noexcept {
  const std::int64_t a = n < 0 ? -static_cast<std::int64_t>(n) : n;
  return a * span > kStepRoom;
}

// Years added to the month count of the fast path so that it stays positive for
// every step the guard lets through, and 12 divides it without sign fix-ups.
constexpr int kYearBias = 8000000;

double yearbase(const zintrec* rec, int start, int n) noexcept {
  int month, day, year;
  if (zidmdyd(&month, &day, &year, start) != 0) [[unlikely]]
    return missing();
  // Plain months, by far the most common interval; a MONTH of multiplier 1 has no shift.
  if (rec->code == ZINT_MONTH && rec->mult <= 1) [[likely]] {
    if (toolong(n, 31)) [[unlikely]]
      return missing();
    const unsigned u = 12u * static_cast<unsigned>(year + kYearBias) + static_cast<unsigned>(month - 1 + n);
    return ziddmdy(static_cast<int>(u % 12) + 1, 1, static_cast<int>(u / 12) - kYearBias);
  }
  const int parts = monthparts(rec->code);
  const int m = effmult(rec);
  if (toolong(n, (parts == 3 ? 11 : parts == 2 ? 16 : 31) * m)) [[unlikely]]
    return missing();
  if (parts == 0) [[unlikely]] {
    xebug("zintnx2: yearbase: bad intcode=%i", static_cast<int>(rec->code));
    return missing();
  }
  int p = period(parts, month, day, year);
  if (m == 1) {
    p += n;
  } else {
    const int s = shiftoffset(rec, m);
    p = (ldiv(p + s, m) + n) * m - s;
  }
  // Whole months, the common case, apart from the others so that 12 stays a constant divisor.
  if (parts == 1) [[likely]] {
    const int y = ldiv(p, 12);
    return ziddmdy(p - 12 * y + 1, 1, 1960 + y);
  }
  const int q = 12 * parts, y = ldiv(p, q), r = p - q * y;
  return ziddmdy(r / parts + 1, 1 + (parts == 3 ? 10 : 15) * (r % parts), 1960 + y);
}

// Moves n working days from the working day d: whole weeks first, since seven
// calendar days from a working day always hold nworkdays of them.
bool workstep(const zintrec* rec, int& d, int n) noexcept {
  const int w = rec->nworkdays;
  // Short steps, the common case, need no division by the variable week length.
  int weeks = 0, rest = n;
  if (n < 0 || n >= w) {
    weeks = ldiv(n, w);
    rest = n - weeks * w;
  }
  const std::int64_t to = d + 7 * static_cast<std::int64_t>(weeks);
  // A step this long leaves the calendar anyway; refusing it keeps the walk in 32 bits.
  if (to < -(1 << 30) || to > (1 << 30)) return false;
  d = nextworkday(rec, static_cast<int>(to), rest);
  return true;
}

double weekday(const zintrec* rec, int start, int n) noexcept {
  const int mult = rec->mult > 0 ? rec->mult : 1;
  if (toolong(n, mult) || rec->nworkdays < 1 || rec->nworkdays > 7) return missing();
  if (!lastworkday(rec, start)) return missing();
  if (mult > 1) {
    // Back to the first working day of start's interval, then whole intervals on.
    n *= mult;
    const int s = rec->shift != 0 ? mult - rec->shift : 0;
    const int wi = workindex(rec, start);
    workstep(rec, start, ldiv(wi + s, mult) * mult - s - wi);
  }
  return workstep(rec, start, n) ? start : missing();
}

double daybase(const zintrec* rec, int start, int n) noexcept {
  if (rec->code == ZINT_WEEKDAY) return weekday(rec, start, n);
  const int m = effmult(rec);
  if (toolong(n, m)) return missing();
  if (m == 1) return start + n;
  // At the edge of the guard the product can pass 2^31 before s is taken off.
  const int s = shiftoffset(rec, m);
  return (static_cast<std::int64_t>(ldiv(start + s, m)) + n) * m - s;
}

double datenx(const zintrec* rec, double start, int n) noexcept {
  const bool seconds = rec->kind == 's';
  if (seconds)
    start = ffloor(start / 86400);
  else if (rec->kind != 'd')
    return missing();
  if (!valid_date(start)) [[unlikely]]
    return missing();
  const int d = static_cast<int>(start);
  const double r = rec->code > ZINT_WEEK ? yearbase(rec, d, n) : daybase(rec, d, n);
  if (!valid_date(r)) [[unlikely]]
    return missing();
  return seconds ? r * 86400 : r;
}

double timenx(const zintrec* rec, double start, int n) noexcept {
  if (rec->kind != 's') return missing();
  if (!timecode(rec->code)) {
    xebug("zintnx2: bad intcode=%i", static_cast<int>(rec->code));
    return missing();
  }
  const int m = effmult(rec);
  const double s = shiftoffset(rec, m);
  return (ffloor((start + s) / m) + n) * m - s;
}

}  // namespace
}  // namespace fmsd

extern "C" FMSD_API double zintnx2(const zintrec* rec, double start, double n) {
  using namespace fmsd;
  if (rec == nullptr || wzmis(start) || wzmis(n) || !(std::fabs(n) <= 2147483647.0)) [[unlikely]]
    return missing();
  // Absorbs the rounding of a time ID computed as a sum of steps.
  start = ffloor(start + 1e-12);
  const int k = static_cast<int>(ffloor(n + 1e-12));
  if (rec->code == ZINT_OBS) {
    if (rec->kind != 'o') return missing();
    if (rec->mult <= 1) return start + k;
    return ffloor(start / rec->mult) * rec->mult + static_cast<double>(rec->mult) * k;
  }
  return rec->code > 24 ? datenx(rec, start, k) : timenx(rec, start, k);
}
