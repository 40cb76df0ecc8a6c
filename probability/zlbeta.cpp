// The logarithm of the beta function.
#include <cmath>

#include "fmsd/probability.h"

extern "C" FMSD_API double zlbeta(double a, double b) {
  if (a <= 0 || b <= 0) return 99.0;
  // Written so that a NaN on either side reaches the sum and the result.
  const double p = a >= b ? a : b;
  const double q = a >= b ? b : a;
  const double s = p + q;
  if (p < 15) return zlgamma(p) + zlgamma(q) - zlgamma(s);
  // Stirling's forms of ln Gamma(p) and ln Gamma(s) with their large terms cancelled:
  // what is left needs ln(p / s), which zln1px gives without cancellation.
  return (s - 0.5) * zln1px(-q / s) - q * std::log(p) + q + zlgamma(q) + zlgbern(p) - zlgbern(s);
}
