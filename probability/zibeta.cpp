// The regularized incomplete beta function I_x(a, b) and the beta density.
#include <cmath>

#include "fmsd/probability.h"
#include "util/numeric.h"

namespace {

constexpr double kExpUnderflow = -708.3964185;
constexpr double kLargestInt = 2147483647.0;
constexpr double kHuge = 1.7976931348623157e308;
// Successive ratios this close (2^-50, relative) mean the fraction has settled.
constexpr double kTolerance = 8.881784197001256e-16;
constexpr int kSteps = 200;

// Continued fraction for I_x(a, b) / (x density / a), two partial quotients per step.
// Every quantity is a double: for large a and b the integer products overflow.
// Returns false when it has not settled within the step budget.
bool betafrac(double x, double a, double b, double* ratio) noexcept {
  const double c = (1 - x) / x;
  double d = a * (a + 1) * c;
  double e = 2 * a * c;
  const double g = 2 * c;
  double u = -a * (b - 1);
  double h = a - b;
  double v = a + b;
  double k = a + b;
  double pm = 1, qm = 0, p = 1, q = 1;
  double r = 1, rm = 0;
  for (int n = 1; n < kSteps; ++n) {
    if (std::fabs(r - rm) < kTolerance * r) {
      *ratio = r;
      return true;
    }
    const double t1 = u / d;
    h += 2;
    u += h;
    e += g;
    d += e;
    double p1 = pm * t1 + p;
    double q1 = qm * t1 + q;
    const double t2 = v / d;
    k += 2;
    v += k;
    e += g;
    d += e;
    double p2 = t2 * p + p1;
    double q2 = t2 * q + q1;
    rm = r;
    if (p2 == 0) {
      r = kHuge;
    } else {
      // Rescale by a power of two, which is exact, before the convergents leave the range.
      int ex;
      const double mant = std::frexp(p2, &ex);
      if (ex > 354 || ex < -354) {
        p2 = mant;
        q2 = std::ldexp(q2, -ex);
        p1 = std::ldexp(p1, -ex);
        q1 = std::ldexp(q1, -ex);
      }
      r = q2 / p2;
    }
    pm = p1;
    qm = q1;
    p = p2;
    q = q2;
  }
  return false;
}

// Paulson's normal approximation through F = b x / ((1 - x) a), which is F(2a, 2b).
double paulson(double x, double a, double b) noexcept {
  const double f = std::cbrt(b * x / ((1 - x) * a));
  const double alpha = 1 / (9 * a);
  const double beta = 1 / (9 * b);
  const double z = (f * (1 - beta) - (1 - alpha)) / std::sqrt(alpha + f * f * beta);
  return zprbnrm(z);
}

}  // namespace

extern "C" FMSD_API int zibeta(double x, double a, double b, double* i, double* density) {
  if (a > kLargestInt || b > kLargestInt) return 1;
  if (x < 0 || x > 1 || a <= 0 || b <= 0) {
    *i = -1.0;
    *density = 0;
    return -1;
  }
  if (x == 0 || x == 1) {
    *i = x;
    *density = 0;
    return 0;
  }
  const double lnd = (a - 1) * std::log(x) + (b - 1) * zln1px(-x) - zlbeta(a, b);
  if (lnd < kExpUnderflow) {
    // The density is negligible, so nearly all the mass lies on one side of x.
    *i = x > a / (a + b) ? 1 : 0;
    *density = 0;
    return 0;
  }
  const double d = std::exp(lnd);

  // The fraction converges fast only left of the mode; beyond it, use I_x(a, b) = 1 - I_{1-x}(b, a).
  double xx = x, aa = a, bb = b;
  const double s = a + b;
  const double t = s * x;
  const double r = std::sqrt(a * b / (s + 1));
  const bool swapped = t > a + 2 * r || t + 6 * x > a + 3;
  if (swapped) {
    aa = b;
    bb = a;
    xx = 1 - x;
  }
  // Below a = 1 the fraction is poor; step up by I_x(a, b) = I_x(a + 1, b) + x^a (1 - x)^b / (a B(a, b)).
  const bool shifted = aa < 1;
  if (shifted) aa += 1;

  double ratio;
  double result;
  if (betafrac(xx, aa, bb, &ratio)) {
    if (!shifted) {
      result = d * xx * ratio / aa;
    } else {
      result = d * xx * ((1 - xx) + ratio * xx * (aa + bb - 1) / aa) / (aa - 1);
    }
    if (swapped) result = 1 - result;
  } else if ((a > 5000 && b > 100) || (b > 5000 && a > 100)) {
    result = paulson(x, a, b);
  } else {
    *i = -1.0;
    *density = 0;
    return -1;
  }
  *i = fmsd::fmin(fmsd::fmax(result, 0), 1);
  *density = d;
  return 0;
}
