// The normal routines and the F, t and chi-square tails: exact values at the ends,
// symmetry, continuity where formulas switch, round trips and every sentinel. Interior
// accuracy is accuracy_test's, against mpmath.

#include <gtest/gtest.h>

#include <cmath>

#include "fmsd/probability.h"
#include "tests/hosted.h"

namespace {

constexpr double kLowest = -37.64030867301702;

double rel(double got, double want) { return std::fabs(got - want) / std::fabs(want); }

TEST(Normal, ExactValuesAtTheEnds) {
  EXPECT_EQ(zprbnrm(0), 0.5);
  EXPECT_EQ(zprbnrm(-37.65), 0.0);
  EXPECT_GT(zprbnrm(-37.6), 0.0);
  EXPECT_EQ(zprbnrm(40), 1.0);
  EXPECT_EQ(zferfc(27), 0.0);
  EXPECT_EQ(zferfc(-27), 2.0);
  EXPECT_EQ(zferf(27), 1.0);
  EXPECT_EQ(zferf(-27), -1.0);
  EXPECT_TRUE(std::isnan(zprbnrm(NAN)));
  EXPECT_TRUE(std::isnan(zferfc(NAN)));
}

TEST(Normal, SymmetryAndContinuityAtTheSwitches) {
  for (double x = 0.01; x < 6; x += 0.37) {
    EXPECT_EQ(zferf(-x), -zferf(x));
    EXPECT_EQ(zferfc(-x), 2.0 - zferfc(x));
  }
  // Across each switch the step is what the slope 2 exp(-t^2) / sqrt(pi) predicts.
  for (double t : {0.46875, 4.0}) {
    const double below = std::nextafter(t, 0.0), above = std::nextafter(t, 10.0);
    const double slope = 1.1283791670955126 * std::exp(-t * t) * (above - below);
    EXPECT_LT(std::fabs(zferfc(below) - zferfc(above) - slope), 4e-16 * zferfc(t)) << t;
    EXPECT_LT(std::fabs(zferf(above) - zferf(below) - slope), 4e-16 * zferf(t)) << t;
  }
}

TEST(Normal, QuantileEndsDomainAndRoundTrip) {
  EXPECT_EQ(zprobit(0), kLowest);
  EXPECT_EQ(zprobit(1), 7.941345326170997);
  EXPECT_TRUE(std::isnan(zprobit(-0.1)));
  EXPECT_TRUE(std::isnan(zprobit(1.5)));
  EXPECT_TRUE(std::isnan(zprobit(NAN)));
  // Newton branch: the point returned is one step past a probability within 1e-12 of p.
  const double z = zprobit(1e-20);
  EXPECT_LT(rel(zprbnrm(z), 1e-20), 1e-12);
  for (double p = 1e-10; p < 1 - 1e-10; p = p < 0.5 ? p * 1.7 : 1 - (1 - p) / 1.7) {
    const double back = zprbnrm(zprobit(p));
    // Phi's own error near |z| = 6 is a few units; the conditioning of the tails adds z^2 units.
    EXPECT_LT(rel(back, p), 5e-14) << p;
  }
}

TEST(Normal, MillsRatioHasNoJumpAtFive) {
  // (1 - Phi(x)) / phi(x) from mpmath at 40 digits.
  double below, at;
  ASSERT_EQ(zmillsr(std::nextafter(5.0, 0.0), &below), 0);
  ASSERT_EQ(zmillsr(5.0, &at), 0);
  EXPECT_LT(rel(at, 0.19280810471531576), 2e-15);
  EXPECT_LT(rel(below, 0.19280810471531576), 3e-15);
  double r;
  EXPECT_EQ(zmillsr(INFINITY, &r), 0);
  EXPECT_EQ(r, 0.0);
}

TEST(Normal, LogTailsAndInverseGaussianEnds) {
  double lo, up, dens;
  ASSERT_EQ(zlognrm(0, &lo, &up, &dens), 0);
  EXPECT_EQ(lo, std::log(0.5));
  EXPECT_EQ(up, std::log(0.5));
  EXPECT_EQ(dens, -0.9189385332046728);
  EXPECT_EQ(zprbigs(0, 3), 0.0);
  EXPECT_TRUE(std::isnan(zprbigs(-1, 1)));
  EXPECT_EQ(zln1px(1e-300), 1e-300);
}

TEST(Tails, SentinelsAndExactEnds) {
  hosted();
  EXPECT_EQ(zprbf(0, 3, 10), 1.0);
  EXPECT_EQ(zprbf(-1, 3, 10), -1.0);
  EXPECT_EQ(zprbf(2, 0, 10), -1.0);
  EXPECT_EQ(zprbf(2, 3, -1), -1.0);
  EXPECT_EQ(zprbf(1e308, 1e10, 1e-300), 0.0);  // y underflows to 0
  EXPECT_EQ(zprbf(2, 5e9, 10), -2.0);          // the beta refuses parameters beyond 2^31
  EXPECT_EQ(zpgt2(-5, 3), -2.0);               // first argument of the beta outside [0, 1]
  EXPECT_TRUE(is_missing(zpgx2(-1, 3)));
  EXPECT_TRUE(is_missing(zpgx2(4, -2)));
  for (int df : {1, 2, 7, 100}) {
    EXPECT_EQ(zpgt2(0, df), 1.0);
    EXPECT_EQ(zpgx2(0, df), 1.0);
  }
}

}  // namespace
