// Quadrature of exp(g) over a half-line or a long interval, for log-concave integrands
// measured in their own scale: panels of 10-point Gauss-Legendre, which is exact to
// rounding on a unit panel where the integrand varies like a Gaussian of unit width and
// on a panel of four units where it falls like an exponential of unit rate, continued
// until the rest of the integral cannot reach the last bit.
#include <cmath>
#include <limits>

#include "probability/zlogscale.h"

namespace {

// Nodes in (0, 1) and weights of the 10-point Gauss-Legendre rule on [-1, 1].
constexpr double kNode[5] = {0.14887433898163122, 0.4333953941292472, 0.6794095682990244, 0.8650633666889845,
                             0.9739065285171717};
constexpr double kWeight[5] = {0.29552422471475287, 0.26926671930999635, 0.21908636251598204, 0.1494513491505806,
                               0.06667134430868814};
// A decaying log-concave integrand is below e^-40 of its peak within about 40 units
// of it, a dozen panels past the core.
constexpr int kMaxPanels = 200;
// The remainder bound at which the sum is final.
constexpr double kNegligible = 1e-18;

}  // namespace

namespace fmsd {

double zhrdys(double (*g)(double s, const void* context), const void* context, double smax) noexcept {
  double sum = 0;
  double g_prev = 0;
  double lo = 0;
  for (int k = 0; k < kMaxPanels; ++k) {
    // Unit panels across the core, where a Gaussian part of unit width may still
    // dominate; beyond 8 units only an exponential part of at most unit rate matters,
    // which wider panels integrate as exactly.
    const double width = lo < 8 ? 1 : lo < 16 ? 2 : 4;
    const double hi = smax < lo + width ? smax : lo + width;
    const double mid = 0.5 * (lo + hi);
    const double half = 0.5 * (hi - lo);
    double panel = 0;
    for (int i = 0; i < 5; ++i) {
      const double d = half * kNode[i];
      panel += kWeight[i] * (std::exp(g(mid - d, context)) + std::exp(g(mid + d, context)));
    }
    sum += half * panel;
    if (hi >= smax) return std::log(sum);
    // Past its peak a concave g falls at least as steeply as over the last panel, so
    // what is left is at most e^g(hi) width / (g(lo) - g(hi)).
    const double g_hi = g(hi, context);
    if (g_hi < g_prev && std::exp(g_hi) * width <= kNegligible * (g_prev - g_hi) * sum) return std::log(sum);
    g_prev = g_hi;
    lo = hi;
  }
  return std::numeric_limits<double>::quiet_NaN();
}

}  // namespace fmsd
