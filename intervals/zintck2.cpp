// Counting the interval boundaries between two time IDs.
#include <cmath>

#include "intervals/calendar.h"
#include "util/numeric.h"

namespace fmsd {
namespace {

// Beyond this a time ID is not a usable position on any calendar.
constexpr double kHuge = 1.3407807929942597e+152;

double yearbase(const zintrec* rec, int from, int to) noexcept {
  int fm, fd, fy, tm, td, ty;
  if (zidmdyd(&fm, &fd, &fy, from) != 0 || zidmdyd(&tm, &td, &ty, to) != 0) [[unlikely]]
    return missing();
  const int parts = monthparts(rec->code);
  if (parts == 0) [[unlikely]] {
    xebug("zintck2: invalid intcode=%i", static_cast<int>(rec->code));
    return missing();
  }
  const int pf = period(parts, fm, fd, fy), pt = period(parts, tm, td, ty);
  const int m = effmult(rec);
  if (m == 1) return pt - pf;
  const int s = shiftoffset(rec, m);
  return ldiv(pt + s, m) - ldiv(pf + s, m);
}

// Each day counts as its working day at or before it, so a weekend adds nothing.
double weekday(const zintrec* rec, int from, int to) noexcept {
  if (rec->nworkdays < 1 || rec->nworkdays > 7) return missing();
  if (!lastworkday(rec, from) || !lastworkday(rec, to)) return missing();
  const int wf = workindex(rec, from), wt = workindex(rec, to);
  const int m = rec->mult > 0 ? rec->mult : 1;
  if (m == 1) return wt - wf;
  const int s = rec->shift != 0 ? m - rec->shift : 0;
  return ldiv(wt + s, m) - ldiv(wf + s, m);
}

double daybase(const zintrec* rec, int from, int to) noexcept {
  if (rec->code == ZINT_WEEKDAY) return weekday(rec, from, to);
  const int m = effmult(rec);
  if (m == 1) return to - from;
  const int s = shiftoffset(rec, m);
  return ldiv(to + s, m) - ldiv(from + s, m);
}

double dateck(const zintrec* rec, double from, double to) noexcept {
  if (rec->kind == 's') {
    from = ffloor(from / 86400);
    to = ffloor(to / 86400);
  } else if (rec->kind != 'd') {
    return missing();
  }
  if (!valid_date(from) || !valid_date(to)) [[unlikely]]
    return missing();
  const int f = static_cast<int>(from), t = static_cast<int>(to);
  return rec->code > ZINT_WEEK ? yearbase(rec, f, t) : daybase(rec, f, t);
}

double timeck(const zintrec* rec, double from, double to) noexcept {
  if (rec->kind != 's') return missing();
  if (!timecode(rec->code)) {
    xebug("zintck2: bad intcode=%i", static_cast<int>(rec->code));
    return missing();
  }
  const int m = effmult(rec);
  if (m == 1) return to - from;
  const double s = shiftoffset(rec, m);
  return ffloor((to + s) / m) - ffloor((from + s) / m);
}

}  // namespace
}  // namespace fmsd

extern "C" FMSD_API double zintck2(const zintrec* rec, double from, double to) {
  using namespace fmsd;
  if (rec == nullptr || wzmis(from) || wzmis(to)) [[unlikely]]
    return missing();
  if (!(std::fabs(from) <= kHuge) || !(std::fabs(to) <= kHuge)) [[unlikely]]
    return missing();
  from = ffloor(from);
  to = ffloor(to);
  if (rec->code == ZINT_OBS) {
    if (rec->kind != 'o') return missing();
    const double m = rec->mult > 0 ? rec->mult : 1;
    return ffloor(to / m) - ffloor(from / m);
  }
  return rec->code > 24 ? dateck(rec, from, to) : timeck(rec, from, to);
}
