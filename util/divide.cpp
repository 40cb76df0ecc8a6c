// Safe division in its two flavours; the tests run in the same order in both so
// that they differ only where the unit-root routines need another answer.
#include <cmath>

#include "util/numeric.h"

namespace fmsd {

namespace {

template <bool UnitRoot>
inline double guarded_divide(double a, double b) noexcept {
  if (wzmis(a) || wzmis(b)) return missing();
  if (std::fabs(b) >= 1) return a / b;
  if (std::fabs(a) < std::fabs(b) * kDivideBound) return a / b;
  if (a == 0) return 0;
  if (b == 0) {
    if (UnitRoot) return missing();
    return a > 0 ? kDivideBound : -kDivideBound;
  }
  if (UnitRoot) return host_constant(a * b > 0 ? FMSD_CONST_UPPER_BOUND : FMSD_CONST_LOWER_BOUND);
  return a * b > 0 ? kDivideBound : -kDivideBound;
}

}  // namespace

double divide(double a, double b) noexcept { return guarded_divide<false>(a, b); }

double divide_unitroot(double a, double b) noexcept { return guarded_divide<true>(a, b); }

}  // namespace fmsd
