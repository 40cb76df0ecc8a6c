// Damping of an autocorrelation sequence that is not positive definite (sample
// autocorrelations with missing values, or handed in from elsewhere): the terms are
// shrunk geometrically, r[k] -> g^k r[k], which keeps the shape of the function while
// pulling it into the valid set, and g is found by bisection.
#include <cmath>

#include "fmsd/autocorr.h"

namespace {

constexpr double kTolerance = 0.05;

// Levinson recursion on d[0..p) = r[1..p] with r[0] = 1: the sequence is positive
// definite when every reflection coefficient is below 1 in magnitude. The coefficients
// of the last completed order end in *b (a and b trade places at each order).
bool positive_definite(const double* d, int p, double*& a, double*& b) {
  double v = 1;
  double q = 0;
  for (int k = 0; k < p && std::fabs(q) < 1; ++k) {
    double s = d[k];
    for (int j = 0; j < k; ++j) s += b[j] * d[k - j - 1];
    q = -s / v;
    if (std::fabs(q) < 1) {
      v += s * q;
      for (int j = 0; j < k; ++j) a[j] = b[j] + q * b[k - j - 1];
      a[k] = q;
    }
    double* t = a;
    a = b;
    b = t;
  }
  return std::fabs(q) < 1;
}

}  // namespace

extern "C" {

FMSD_API double zposdef(const double* r, int p, double* work) {
  if (p <= 0) return 1;
  if (r == nullptr || work == nullptr) return ZTS_BAD_ARGUMENT;
  // g^k times an infinity or a NaN is never a valid correlation, not even at g = 0;
  // any finite sequence is valid at g = 0, so the bisection below ends.
  for (int k = 1; k <= p; ++k)
    if (!std::isfinite(r[k])) return 0;

  double* a = work;
  double* b = work + p;
  double* const d = work + 2 * p;
  double lo = 0;
  double hi = 1;
  double g = 1;
  for (;;) {
    double gk = g;
    for (int j = 0; j < p; ++j) {
      d[j] = gk * r[j + 1];
      gk *= g;
    }
    if (!positive_definite(d, p, a, b)) {
      hi = g;
      g = (g + lo) / 2;
    } else {
      if (std::fabs(g - hi) <= kTolerance) break;
      lo = g;
      g = (g + hi) / 2;
    }
  }
  if (b != work)
    for (int j = 0; j < p; ++j) work[j] = b[j];
  return g;
}

}  // extern "C"
