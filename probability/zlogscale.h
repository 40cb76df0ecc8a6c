// Internals shared by the log-scale gamma and beta routines: logarithms that keep
// their relative accuracy where the textbook formulas cancel, a little double-double
// arithmetic, and the quadrature that takes over where series and continued fractions
// would need thousands of terms.
#ifndef FMSD_PROBABILITY_ZLOGSCALE_H
#define FMSD_PROBABILITY_ZLOGSCALE_H

#include <cmath>

namespace fmsd {

// Below this shape parameter the distributions are not worth telling apart from a
// point mass at 0.
inline constexpr double kLogscaleMinShape = 1e-9;
// The smallest tolerance a caller may ask of the series and continued fractions:
// 2.5 * 2^-52.
inline constexpr double kLogscaleMinTol = 5.551115123125785e-16;
// The logarithm of 0 and of an unbounded density.
inline constexpr double kLogscaleHuge = 1.7976931348623157e308;
// From this size of the shape parameters on, the tails are integrated.
inline constexpr double kLogscaleLarge = 1000;

// ln(1 + t) - t for t > -1, to full relative accuracy also where the two terms cancel.
double zl1pmx(double t) noexcept;
// ln(1 - e^l) for l <= 0: the log of one tail from the log of the other.
double zl1mexp(double l) noexcept;
// ln Gamma(1 + a) for a >= 0, with full relative accuracy as a goes to 0.
double zlgam1p(double a) noexcept;
// ln Gamma(b + s) - ln Gamma(b) for b > 0 and s >= 0, without forming either term.
double zlgdif(double b, double s) noexcept;
// ln(p / q) for p, q > 0, accurate also for a ratio near 1, where p - q is exact.
inline double zlnratio(double p, double q) noexcept {
  const double r = p / q;
  if (r >= 0.5 && r <= 2) return std::log1p((p - q) / q);
  return r >= 2.2250738585072014e-308 && r <= 1.7976931348623157e308 ? std::log(r) : std::log(p) - std::log(q);
}

// ln of the integral of exp(g(s)) over [0, smax] (smax may be infinite), where g is
// concave, g(0) = 0 and the unit of s is the integrand's own scale: g'(0) and g''(0)
// lie in [-1, 1].  NaN when the integrand has not died out after a few hundred units.
double zhrdys(double (*g)(double s, const void* context), const void* context, double smax) noexcept;

// A double-double: hi + lo with |lo| at most half an ulp of hi.
struct Dd {
  double hi;
  double lo;
};

inline Dd dd_sum(double a, double b) noexcept {
  const double s = a + b;
  const double v = s - a;
  return {s, (a - (s - v)) + (b - v)};
}

inline Dd dd_prod(double a, double b) noexcept {
  const double p = a * b;
  return {p, std::fma(a, b, -p)};
}

}  // namespace fmsd

#endif
