// ln(1 + x), accurate near 0.

#include <cmath>

#include "fmsd/probability.h"

// Near 0, ln(1 + x) = 2 atanh(w/2) with w = x/(1 + x/2): a short odd series in w
// that keeps full relative accuracy where 1 + x would round x away.
extern "C" double zln1px(double x) {
  if (std::fabs(x) > 0.03125) return std::log(1.0 + x);
  const double w = x / (1.0 + 0.5 * x);
  const double w2 = w * w;
  return w + w * w2 * (0.08333333333333427 - 0.0023812878804825234 * w2) / (1.0 - 0.178575454351365 * w2);
}
