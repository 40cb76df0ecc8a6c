// Logarithmic building blocks of the log-scale gamma and beta routines.  Each keeps
// full relative accuracy in the range where the obvious formula cancels.
#include <cmath>

#include "fmsd/probability.h"
#include "probability/zlogscale.h"

namespace {

constexpr double kEuler = 0.5772156649015329;
// zeta(k) - 1 for k = 2, 3, ...
constexpr double kZetaM1[] = {
    0.6449340668482264,    0.2020569031595943,    0.08232323371113819,   0.03692775514336993,
    0.01734306198444914,   0.008349277381922827,  0.00407735619794434,   0.0020083928260822143,
    0.0009945751278180853, 0.0004941886041194645, 0.0002460865533080483, 0.00012271334757848915,
    6.124813505870483e-05, 3.058823630702049e-05, 1.528225940865187e-05, 7.637197637899763e-06,
    3.81729326499984e-06,  1.908212716553939e-06, 9.539620338727962e-07, 4.769329867878064e-07};
// Below this the series for ln Gamma(1 + a) is used; above it 1 + a loses too little of
// a for the rational fit behind zlgamma to matter.
constexpr double kSeriesLimit = 0.2;
// Where the Stirling form of ln Gamma is exact to rounding.
constexpr double kStirling = 15;
// The Stirling series B(2k) / (2k (2k - 1)) of the correction behind zlgbern.
constexpr double kStirlingSeries[6] = {0.08333333333333333,   -0.002777777777777778, 0.0007936507936507937,
                                       -0.0005952380952380953, 0.0008417508417508417, -0.0019175269175269176};

// zlgbern(b + s) - zlgbern(b) for b >= 15.  For s much smaller than b the two nearly
// cancel, so each power is differenced on its own: z1^-n - z0^-n =
// -z1^-n ((1 + s/b)^n - 1).
double stirling_difference(double b, double s) noexcept {
  if (s > b) return zlgbern(b + s) - zlgbern(b);
  const double l = std::log1p(s / b);
  const double z = 1 / (b + s);
  const double z2 = z * z;
  double power = z;
  double sum = 0;
  for (int k = 0; k < 6; ++k) {
    sum -= kStirlingSeries[k] * power * std::expm1((2 * k + 1) * l);
    power *= z2;
  }
  return sum;
}

}  // namespace

namespace fmsd {

double zl1pmx(double t) noexcept {
  if (!(std::fabs(t) <= 0.5)) return std::log1p(t) - t;
  // ln(1 + t) = 2 atanh(r) with r = t / (2 + t), and 2r - t = -t r exactly, so the
  // cancelling first-order terms never meet.
  const double r = t / (2 + t);
  const double r2 = r * r;
  double power = 1;
  double sum = 1.0 / 3;
  for (int k = 5; power > 1e-18; k += 2) {
    power *= r2;
    sum += power / k;
  }
  return r * (2 * r2 * sum - t);
}

double zl1mexp(double l) noexcept {
  // Near 0, e^l rounds to 1 and expm1 keeps the difference; far below, log1p keeps e^l.
  return l > -0.6931471805599453 ? std::log(-std::expm1(l)) : std::log1p(-std::exp(l));
}

double zlgam1p(double a) noexcept {
  if (a > kSeriesLimit) return zlgamma(1 + a);
  // ln Gamma(1 + a) = -ln(1 + a) + (1 - gamma) a + sum_k (-1)^k (zeta(k) - 1) a^k / k.
  double sum = 0;
  double power = a;
  double sign = 1;
  for (int k = 2; k < 22; ++k) {
    power *= a;
    const double term = kZetaM1[k - 2] * power / k;
    sum += sign * term;
    sign = -sign;
    if (term <= 1e-17 * std::fabs(sum)) break;
  }
  return -std::log1p(a) + (1 - kEuler) * a + sum;
}

double zlgdif(double b, double s) noexcept {
  // Gamma(b + 1) = b Gamma(b) moves b up to where Stirling's form holds; the terms
  // taken off are ln(1 + s / b), all of one sign.
  double shift = 0;
  for (; b < kStirling; b += 1) shift -= std::log1p(s / b);
  // The Stirling forms of the two logarithms with their large terms cancelled.
  return shift + (b - 0.5) * std::log1p(s / b) + s * (std::log(b + s) - 1) + stirling_difference(b, s);
}

}  // namespace fmsd
