// The Mills ratio R(x) = (1 - Phi(x)) / phi(x).

#include <cmath>

#include "fmsd/probability.h"

namespace {

// Laplace's continued fraction 1/(x + 1/(x + 2/(x + 3/(x + ...)))), by forward
// convergents; from x = 5 on it converges well before the cap.
int zcnfmill(double x, double* ratio) {
  const double v = 1.0 / (x * x);
  double a0 = 0.0, a1 = 1.0 / x;  // A(n-2), A(n-1)
  double b0 = 1.0, b1 = 1.0;
  double f = 1.0 / x;
  for (int n = 1; n <= 101; ++n) {
    const double a = a1 + n * v * a0;
    const double b = b1 + n * v * b0;
    const double next = a / b;
    const bool converged = std::fabs(next - f) <= 5.551115123125785e-16 * next;
    f = next;
    if (converged && n <= 100) {
      *ratio = f;
      return 0;
    }
    a0 = a1;
    a1 = a;
    b0 = b1;
    b1 = b;
  }
  *ratio = f;
  return 1;
}

}  // namespace

extern "C" int zmillsr(double x, double* ratio) {
  if (x >= 5.0) return zcnfmill(x, ratio);
  double r = std::exp(x * 0.5 * x + 0.9189385332046728);
  // Below -10, 1 - Phi(x) is 1 to double precision.
  if (x >= -10.0) r = r * zprbnrm(-x);
  *ratio = r;
  return 0;
}
