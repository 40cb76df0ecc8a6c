// The regularized incomplete gamma functions P(a, x) and Q(a, x) and the gamma density.
#include <cmath>

#include "fmsd/probability.h"
#include "util/numeric.h"

namespace {

constexpr double kLnSqrt2Pi = 0.9189385332046728;
constexpr double kInvSqrt2Pi = 0.3989422804014327;
// 2.5 * 2^-52
constexpr double kTolerance = 5.551115123125785e-16;
constexpr double kHuge = 1.7976931348623157e308;
// ln of the largest double: beyond it e^L overflows, below its negative it underflows.
constexpr double kExpLimit = 709.78271289339;
// Bounds of the convergents' range, about 2^512 and 2^-511.
constexpr double kScaleHigh = 1.3407807929943e154;
constexpr double kScaleLow = 1.491668147e-154;
// From here on the central region is left to the Wilson-Hilferty approximation: there
// the series and the continued fractions would need more terms than their budgets allow.
constexpr double kLargeA = 10000;
constexpr int kSeriesTerms = 920;
constexpr int kFractionSteps = 400;

// Wilson-Hilferty's cube-root normal approximation with its first correction term.
// Returns the lower tail and stores the upper one.
double wilhil(double a, double x, double* upper) noexcept {
  const double r = x / a;
  if (r > 1000) {
    *upper = 0;
    return 1;
  }
  if (r < 0.001) {
    *upper = 1;
    return 0;
  }
  const double m = 9 * a;
  const double f = std::cbrt(r);
  const double sm = std::sqrt(m);
  const double z = (f - (1 - 1 / m)) * sm;
  const double z2 = z * z;
  const double phi = kInvSqrt2Pi * std::exp(-0.5 * z2);
  const double corr = phi * (z * (z2 / 3 - 1) / 4 - (7 - z2 * (z2 + 4)) / (15 * sm)) / m;
  const double p = zprbnrm(-std::fabs(z));
  if (z > 0) {
    *upper = p - corr;
    return 1 - *upper;
  }
  const double lower = p + corr;
  *upper = 1 - lower;
  return lower;
}

// Convergents A / B of a continued fraction with partial denominators 1 and numerators c.
struct Convergents {
  double am, a, bm, b, r;

  // Takes the next numerator; true once the value has settled.
  bool step(double c) noexcept {
    const double an = a + c * am;
    const double bn = b + c * bm;
    const double rn = an / bn;
    if (std::fabs(rn - r) < kTolerance * rn) {
      r = rn;
      return true;
    }
    am = a;
    bm = b;
    a = an;
    b = bn;
    r = rn;
    // Power-of-two rescaling is exact and keeps the convergents in range without logarithms.
    if (am > kScaleHigh || am < kScaleLow) {
      int e;
      am = std::frexp(am, &e);
      bm = std::ldexp(bm, -e);
      a = std::ldexp(a, -e);
      b = std::ldexp(b, -e);
    }
    return false;
  }
};

// P(a, x) / (x density): 1/a + x/(a(a+1)) + x^2/(a(a+1)(a+2)) + ...
bool series(double x, double a, double* sum) noexcept {
  double t = 1 / a;
  double s = t;
  for (int k = 1;; ++k) {
    if (k > kSeriesTerms) return false;
    t = t * x / (a + k);
    s = s + t;
    if (t / s <= kTolerance) break;
  }
  *sum = s;
  return true;
}

// P(a, x) / density by the continued fraction of the lower incomplete gamma function.
bool lowerfrac(double x, double a, double* ratio) noexcept {
  Convergents cf{x / a, x / a, 1, 1 - x / (a + 1), 0};
  cf.r = cf.a / cf.b;
  double k = a + 1;
  double j = 0;
  for (int n = 2; n <= kFractionSteps; ++n) {
    k = k + 1;
    double c;
    if (n % 2 == 0) {
      j = j + 1;
      c = j * x / (k * (k - 1));
    } else {
      c = -x * (a + j) / ((k - 1) * k);
    }
    if (cf.step(c)) {
      *ratio = cf.r;
      return true;
    }
  }
  return false;
}

// Q(a, x) / density by Legendre's continued fraction.
bool upperfrac(double x, double a, double* ratio) noexcept {
  Convergents cf{0, 1, 1, 1, 1};
  double j = 0;
  for (int n = 0; n <= kFractionSteps; ++n) {
    double c;
    if (n % 2 == 0) {
      j = j + 1 / x;
      c = j - a / x;
    } else {
      c = j;
    }
    if (cf.step(c)) {
      *ratio = cf.r;
      return true;
    }
  }
  return false;
}

int fail(double* p, double* q, double* density) noexcept {
  *p = -2.0;
  *q = -2.0;
  *density = 0;
  return 1;
}

}  // namespace

extern "C" FMSD_API int zigamma(double x, double a, double* p, double* q, double* density) {
  if (a < 0 || x < 0) return fail(p, q, density);
  if (a == 0) {
    *p = 1;
    *q = 0;
    *density = 0;
    return 0;
  }
  if (x == 0) {
    *p = 0;
    *q = 1;
    *density = a == 1 ? 1 : 0;
    return 0;
  }
  // Below a = 1 the density is unbounded at 0; work with a + 1 and step back at the end
  // by P(a, x) = P(a + 1, x) + x^a e^-x / Gamma(a + 1).
  const bool shifted = a < 1;
  if (shifted) a += 1;

  // Near x = a the direct form loses the density to cancellation between its large terms.
  double lnd;
  if (a < 10 || std::fabs(x / a - 1) > 0.3) {
    lnd = (a - 1) * std::log(x) - x - zlgamma(a);
  } else {
    lnd = (a - 1) * std::log(x / a) - 0.5 * std::log(a) + (a - x) - zlgbern(a) - kLnSqrt2Pi;
  }

  bool lower = x <= a || x <= 1;
  double tail;
  if (a >= kLargeA && std::fabs(x - a) <= 0.7 * std::sqrt(a) + 0.02 * a) {
    double u;
    const double w = wilhil(a, x, &u);
    lower = w < u;
    tail = lower ? w : u;
  } else {
    double v;
    if (lower && a < kLargeA) {
      if (!series(x, a, &v)) return fail(p, q, density);
      tail = x * v * std::exp(lnd);
    } else if (lower) {
      if (!lowerfrac(x, a, &v)) return fail(p, q, density);
      tail = v * std::exp(lnd);
    } else {
      if (!upperfrac(x, a, &v)) return fail(p, q, density);
      tail = v * std::exp(lnd);
    }
  }
  double d = std::exp(lnd);
  if (lnd < -kExpLimit) d = 0;
  if (lnd > kExpLimit) d = kHuge;
  if (shifted) {
    tail = lower ? tail + d : tail - d;
    d = d * (a - 1) / x;
  }
  *density = d;
  tail = fmsd::fmin(fmsd::fmax(tail, 0), 1);
  *p = lower ? tail : 1 - tail;
  *q = lower ? 1 - tail : tail;
  return 0;
}
