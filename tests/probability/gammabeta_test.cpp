// Sentinels, statuses, exact points and branch switches of the gamma and beta routines;
// accuracy_test covers their interiors against mpmath. Hard-coded reference values were
// computed with mpmath at 50 digits; the others are closed forms.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <ostream>

#include "fmsd/probability.h"

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

double below(double x) { return std::nextafter(x, -HUGE_VAL); }

struct Beta {
  int status;
  double i, d;
  bool operator==(const Beta&) const = default;
};
void PrintTo(const Beta& r, std::ostream* os) { *os << "{" << r.status << ", " << r.i << ", " << r.d << "}"; }

// Outputs start at 7 so that a status that leaves them untouched shows.
Beta ibeta(double x, double a, double b) {
  Beta r{0, 7.0, 7.0};
  r.status = zibeta(x, a, b, &r.i, &r.d);
  return r;
}

struct Gamma {
  int status;
  double p, q, d;
  bool operator==(const Gamma&) const = default;
};
void PrintTo(const Gamma& r, std::ostream* os) {
  *os << "{" << r.status << ", " << r.p << ", " << r.q << ", " << r.d << "}";
}

Gamma igamma(double x, double a) {
  Gamma r{0, 7.0, 7.0, 7.0};
  r.status = zigamma(x, a, &r.p, &r.q, &r.d);
  return r;
}

void expect_rel(double got, double want, double tol) { EXPECT_NEAR(got, want, tol * std::fabs(want)) << want; }

TEST(LogGamma, SentinelAndExactPoints) {
  EXPECT_EQ(zlgamma(0), -99.0);
  EXPECT_EQ(zlgamma(-2.5), -99.0);
  EXPECT_TRUE(std::isnan(zlgamma(kNaN)));
  EXPECT_EQ(zlgamma(1), 0);
  EXPECT_EQ(zlgamma(2), 0);
  // Half-integers above the reduction interval take the exact ln Gamma(1.5) as well (mpmath).
  expect_rel(zlgamma(10.5), 13.940625219403763, 4e-16);
}

TEST(LogGamma, StirlingSwitchAt15) {
  const double ln14fact = std::log(87178291200.0);
  EXPECT_NEAR(zlgamma(15), ln14fact, 4e-15);
  // One ulp below: the rational fit after 13 reduction steps, about 5e-15 lower.
  EXPECT_NEAR(zlgamma(below(15)), ln14fact, 1e-14);
  expect_rel(zlgbern(15), 0.005554733551962801, 1e-14);  // mpmath
}

TEST(LogBeta, SentinelAndClosedForms) {
  EXPECT_EQ(zlbeta(0, 2), 99.0);
  EXPECT_EQ(zlbeta(2, -1), 99.0);
  EXPECT_TRUE(std::isnan(zlbeta(kNaN, 2)));
  EXPECT_TRUE(std::isnan(zlbeta(2, kNaN)));
  EXPECT_EQ(zlbeta(1, 1), 0);
  // B(20, 3) = 2 / (20 21 22), by the Stirling branch in either order.
  expect_rel(zlbeta(20, 3), std::log(2.0 / (20 * 21 * 22)), 1e-15);
  EXPECT_EQ(zlbeta(3, 20), zlbeta(20, 3));
  // Both sides of the switch to the Stirling form: B(15, 3) = 2 / (15 16 17).
  expect_rel(zlbeta(15, 3), std::log(2.0 / (15 * 16 * 17)), 1e-15);
  expect_rel(zlbeta(below(15), 3), std::log(2.0 / (15 * 16 * 17)), 1e-14);
}

TEST(IncompleteBeta, SentinelsAndStatuses) {
  EXPECT_EQ(ibeta(0.3, 3e9, 2), (Beta{1, 7.0, 7.0}));
  EXPECT_EQ(ibeta(0.3, 2, 2147483648.0).status, 1);
  for (const Beta& bad : {ibeta(1.2, 2, 3), ibeta(-0.1, 2, 3), ibeta(0.3, 0, 3), ibeta(0.3, 2, -1)})
    EXPECT_EQ(bad, (Beta{-1, -1.0, 0}));
  EXPECT_EQ(ibeta(0, 2, 3), (Beta{0, 0, 0}));
  EXPECT_EQ(ibeta(1, 2, 3), (Beta{0, 1, 0}));
  // A log density below -708.4 (here about -720, whose exponential is still a subnormal)
  // puts all the mass on the side of the mean.
  EXPECT_EQ(ibeta(0.0625, 500, 500), (Beta{0, 0, 0}));
  EXPECT_EQ(ibeta(0.9375, 500, 500), (Beta{0, 1, 0}));
}

TEST(IncompleteBeta, Symmetry) {
  for (double x : {1e-10, 0.2, 0.5, 0.999}) EXPECT_NEAR(ibeta(x, 1, 1).i, x, 2e-16 + 2e-16 * x);
  for (double a : {0.3, 1.0, 2.5, 10.0}) EXPECT_NEAR(ibeta(0.5, a, a).i, 0.5, 2e-15) << a;
}

TEST(IncompleteBeta, ExchangeRulesAreContinuous) {
  // I_x(1, 100) = 1 - (1 - x)^100 across the rule t > a + 2r, at x = (1 + 2 sqrt(100/102)) / 101.
  const double x0 = (1 + 2 * std::sqrt(100.0 / 102)) / 101;
  for (double x : {x0 * (1 - 1e-12), x0 * (1 + 1e-12)})
    EXPECT_NEAR(ibeta(x, 1, 100).i, -std::expm1(100 * std::log1p(-x)), 2e-15) << x;
  // I_x(5, 1) = x^5 across the rule t + 6x > a + 3, at x = 2/3.
  for (double x : {2.0 / 3 * (1 - 1e-12), 2.0 / 3 * (1 + 1e-12)})
    EXPECT_NEAR(ibeta(x, 5, 1).i, std::pow(x, 5), 2e-15) << x;
}

TEST(IncompleteBeta, NonConvergence) {
  // A NaN never settles the fraction; with small parameters that is a failure.
  EXPECT_EQ(ibeta(kNaN, 2, 3), (Beta{-1, -1.0, 0}));
  // Near the mean of large parameters the fraction runs out of steps and the normal
  // approximation answers (mpmath reference).
  const Beta big = ibeta(0.45454, 1e6, 1.2e6);
  EXPECT_EQ(big.status, 0);
  EXPECT_NEAR(big.i, 0.49353460344855127, 1e-9);
  EXPECT_GT(big.d, 1000);
}

TEST(IncompleteGamma, SentinelsAndStatuses) {
  for (const Gamma& bad : {igamma(-1, 2), igamma(1, -0.5), igamma(kNaN, 2)})
    EXPECT_EQ(bad, (Gamma{1, -2.0, -2.0, 0}));
  EXPECT_EQ(igamma(3, 0), (Gamma{0, 1, 0, 0}));
  EXPECT_EQ(igamma(0, 1), (Gamma{0, 0, 1, 1}));
  EXPECT_EQ(igamma(0, 2), (Gamma{0, 0, 1, 0}));
}

TEST(IncompleteGamma, SubnormalDensityIsCut) {
  // e^-720 is representable only as a subnormal: the density is cut to 0, the tail is not.
  const Gamma r = igamma(720, 1);
  EXPECT_EQ(r.d, 0);
  EXPECT_DOUBLE_EQ(r.q, std::exp(-720.0));
}

TEST(IncompleteGamma, SeriesMeetsFractionAtXEqualsA) {
  const double p = 0.5188083154720433;  // mpmath P(50, 50)
  EXPECT_NEAR(igamma(50, 50).p, p, 3e-15);
  EXPECT_NEAR(igamma(std::nextafter(50.0, 100.0), 50).p, p, 3e-15);
}

TEST(IncompleteGamma, LargeShape) {
  // Wilson-Hilferty answers near the mean; mpmath P(20000, 20000).
  expect_rel(igamma(20000, 20000).p, 0.5009403162337493, 2e-8);
  // At |x - a| = 0.7 sqrt(a) + 0.02 a the approximation hands over to the continued
  // fractions; the step there is the approximation's error (mpmath references).
  expect_rel(igamma(9730, 10000).p, 0.0032508025108755082, 2e-6);
  expect_rel(igamma(below(9730), 10000).p, 0.0032508025108755082, 1e-11);
  expect_rel(igamma(10270, 10000).q, 0.0036876939803948123, 2e-6);
  expect_rel(igamma(std::nextafter(10270.0, 1e5), 10000).q, 0.0036876939803948123, 1e-11);
}

}  // namespace
