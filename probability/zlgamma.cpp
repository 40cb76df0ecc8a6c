// The logarithm of the gamma function and the Stirling correction it shares with the
// log-beta and incomplete gamma routines.
#include <cmath>

#include "fmsd/probability.h"

namespace {

constexpr double kLnSqrt2Pi = 0.9189385332046728;
// Half an ulp of 1: arguments this close to 1 or 2 are taken as exact zeros of ln Gamma.
constexpr double kNearInteger = 1.110223024625157e-16;
// -ln Gamma(1.5): half-integers reduce to it exactly, without the rational fit's error.
constexpr double kMinusLnGammaHalf3 = 0.12078223763524522;

// Rational fits of ln Gamma(1 + t) / t on [1, 1.5) and of ln Gamma(2 + t) / t on
// [1.5, 2], lowest power first; both denominators have constant term 1.
constexpr double kN1[7] = {-0.5772156649015329, -0.8017986934675778, 0.2079812846119617, 0.7494577256954738,
                           0.36252537533106266, 0.05692342633165193, 0.002126546376940967};
constexpr double kD1[7] = {1.0, 2.8139668163177345, 2.9550965510668346, 1.4276752135116328,
                           0.31469269123782706, 0.026724016735058816, 0.0005124543681927987};
constexpr double kN2[7] = {0.42278433509846713, 0.9712118746069075, 0.8058203645027399, 0.3098673634213962,
                           0.05678875296955259, 0.004410493669232917, 9.627912858833401e-05};
constexpr double kD2[7] = {1.0, 1.5344580849517535, 0.8949255863507323, 0.24611091348667924,
                           0.03194668377437606, 0.0016767266689027731, 2.1326962979603636e-05};

double horner(const double (&c)[7], double t) noexcept {
  double s = c[6];
  for (int i = 5; i >= 0; --i) s = s * t + c[i];
  return s;
}

}  // namespace

extern "C" FMSD_API double zlgbern(double x) {
  const double u = 1 / x;
  const double v = u * u;
  return u * (0.08333333333333333 +
              v * (-0.002777777777777778 +
                   v * (0.0007936507936507937 +
                        v * (-0.0005952380952380953 + v * (0.0008417508417508417 + v * -0.0019175269175269176)))));
}

extern "C" FMSD_API double zlgamma(double x) {
  if (x <= 0) return -99.0;
  if (std::fabs(x - 1) < kNearInteger || std::fabs(x - 2) < kNearInteger) return 0;
  if (x >= 15) return (x - 0.5) * std::log(x) - x + kLnSqrt2Pi + zlgbern(x);
  // Gamma(x) = P * Gamma(z) with z in [1, 2], by the recurrence Gamma(z + 1) = z Gamma(z).
  double p = 1;
  double z = x;
  while (z < 1) {
    p = p / z;
    z = z + 1;
  }
  while (z > 2) {
    z = z - 1;
    p = p * z;
  }
  if (std::fabs((x - std::trunc(x)) - 0.5) < kNearInteger) return std::log(p) - kMinusLnGammaHalf3;
  if (z < 1.5) {
    const double t = z - 1;
    return std::log(p) + t * horner(kN1, t) / horner(kD1, t);
  }
  const double t = z - 2;
  return std::log(p) + t * horner(kN2, t) / horner(kD2, t);
}
