// The series transformations against scipy and numpy, the moments of back-transformed
// forecasts against closed forms, mpmath integrals and Monte Carlo, and the power
// routine against mpmath; reference values from tools/transform_reference.py.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "fmsd/transform.h"
#include "tests/csv_reader.h"

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

::testing::AssertionResult near(double got, double want, double rtol) {
  if (is_missing(want) ? is_missing(got) : !is_missing(got) && std::fabs(got - want) <= rtol * std::fabs(want))
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "got " << (is_missing(got) ? "missing" : std::to_string(got)) << " ("
                                       << got << "), want " << want << " within " << rtol;
}

bool same_bits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

TEST(TransformReference, ForwardAndInverseMatchScipy) {
  hosted();
  const auto rows = read_csv("timeseries/transform_values.csv");
  ASSERT_GT(rows.size(), 500u);
  for (const CsvRow& r : rows) {
    const int type = ztstnm(r.text("family").c_str(), -1);
    // Box-Cox subtracts 1 from a power, which costs digits for small exponents.
    const double rtol = type == ZTST_BOXCOX ? 1e-9 : 4e-15;
    double out;
    const int status = r.text("direction") == "forward" ? ztstf(r.num("input"), type, r.num("theta"), &out)
                                                         : ztsti(r.num("input"), type, r.num("theta"), &out);
    EXPECT_EQ(status, 0) << r.line;
    EXPECT_TRUE(near(out, r.num("expected"), rtol)) << r.line;
  }
}

TEST(TransformReference, PowerMatchesMpmath) {
  hosted();
  const auto rows = read_csv("timeseries/transform_power.csv");
  ASSERT_GT(rows.size(), 50u);
  for (const CsvRow& r : rows) {
    int status = -9;
    EXPECT_TRUE(near(zpower(r.num("x"), r.num("y"), &status), r.num("expected"), r.num("rtol"))) << r.line;
    EXPECT_EQ(status, 0) << r.line;
  }
}

TEST(TransformReference, MomentsMatchClosedFormsIntegralsAndMonteCarlo) {
  hosted();
  const auto rows = read_csv("timeseries/transform_moments.csv");
  ASSERT_EQ(rows.size(), 17u);
  std::vector<double> w(101);
  for (const CsvRow& r : rows) {
    w[0] = fmsd::missing();  // each case fills the table afresh
    const int type = ztstnm(r.text("family").c_str(), -1);
    const double y = r.num("y"), s = r.num("s"), theta = r.num("theta");
    double mean, se, median, rmse;
    ASSERT_EQ(ztste(y, s, type, theta, 100, 10, w.data(), &mean, &se), 0) << r.line;
    ASSERT_EQ(ztstm(y, s, type, theta, 100, 10, w.data(), &median, &rmse), 0) << r.line;
    EXPECT_TRUE(near(median, r.num("median"), 1e-14)) << r.line;
    // LOG and SQRT have closed forms. The integration for the others stops once its
    // terms fall below 1e-10 of the sum, so the mean is good to about that; the
    // variance, a difference of two such sums, to about 1e-10 of the mean squared.
    const double tol = type == ZTST_LOG || type == ZTST_SQRT ? 1e-14 : 1e-9;
    EXPECT_TRUE(near(mean, r.num("mean"), tol)) << r.line;
    const double slack = tol * mean * mean;
    EXPECT_NEAR(se * se, std::pow(r.num("se"), 2), slack) << r.line;
    EXPECT_NEAR(rmse * rmse, std::pow(r.num("rmse"), 2), slack) << r.line;
    EXPECT_LT(std::fabs(mean - r.num("mc_mean")), 5 * r.num("mc_mean_se")) << r.line;
    EXPECT_TRUE(near(se, r.num("mc_sd"), 0.01)) << r.line;
  }
}

// One value through one family: status and output (kMiss for the missing value).
struct Edge {
  int type;
  bool forward;
  double x, theta;
  int status;
  double out;
};

constexpr double kMiss = -1e300;  // stands for the host's missing value in the table

TEST(Transform, DomainEdgesAndDefaults) {
  hosted();
  const double miss = fmsd::missing();
  const Edge edges[] = {
      {ZTST_LOG, true, 0, kMiss, 1, kMiss},         {ZTST_LOG, true, 0, 1, 0, 0},
      {ZTST_SQRT, true, -1, 1, 0, 0},               {ZTST_SQRT, true, -1.5, 1, 1, kMiss},
      {ZTST_LOG, false, 709.79, 0, 1, kMiss},       {ZTST_LOG, false, 709.78, 0, 0, std::exp(709.78)},
      {ZTST_SQRT, false, 1.3407807929943e154, 0, 1, kMiss},
      {ZTST_BOXCOX, true, 3.7, 1e-9, 0, std::log(3.7)},
      {ZTST_BOXCOX, true, -3.7, kMiss, 0, -3.7},
      {ZTST_BOXCOX, true, -2, 3, 0, -3},            // negative values take integral exponents only
      {ZTST_BOXCOX, true, -2, 0.5, 1, kMiss},       {ZTST_BOXCOX, true, 0, -1, 1, kMiss},
      {ZTST_BOXCOX, false, -3, 0.5, 0, 0.25},       // (0.5 * -3 + 1)^2
      {ZTST_LOGIT, true, 2, 0.6, 1, kMiss},         {ZTST_LOGIT, true, 0, kMiss, 1, kMiss},
      {ZTST_LOGIT, true, 0.25, kMiss, 0, std::log(1.0 / 3)},
      {ZTST_LOGIT, false, -800, 2, 0, 0},           {ZTST_LOGIT, false, 800, 2, 0, 0.5},
      {ZTST_NONE, true, -7.5, 3, 0, -7.5},          {5, false, kMiss, 3, 0, kMiss},
  };
  for (const Edge& e : edges) {
    const double x = e.x == kMiss ? miss : e.x, theta = e.theta == kMiss ? miss : e.theta;
    double out;
    const int status = e.forward ? ztstf(x, e.type, theta, &out) : ztsti(x, e.type, theta, &out);
    EXPECT_EQ(status, e.status) << e.type << " " << e.forward << " " << e.x;
    if (e.out == kMiss) EXPECT_TRUE(is_missing(out)) << e.type << " " << e.x;
    else EXPECT_DOUBLE_EQ(out, e.out) << e.type << " " << e.x;
  }

  // A missing value with its own low bits: the logit inverse hands it back as it is,
  // the others give the host's.
  double tagged;
  const std::uint64_t bits = 0xFFFF0000000000AAull;
  std::memcpy(&tagged, &bits, sizeof tagged);
  for (int type = ZTST_LOG; type <= ZTST_BOXCOX; ++type) {
    double out;
    EXPECT_EQ(ztstf(tagged, type, 0.5, &out), -1) << type;
    EXPECT_TRUE(is_missing(out));
    EXPECT_EQ(ztsti(tagged, type, 0.5, &out), -1) << type;
    EXPECT_EQ(same_bits(out, tagged), type == ZTST_LOGIT) << type;
  }
}

// Infinities, NaNs and the largest doubles, as values and as parameters, come back
// either as a finite value with status 0 or as the missing value with status 1.
TEST(Transform, ExtremeInputsNeverEscape) {
  hosted();
  const double values[] = {kInf, -kInf, DBL_MAX, -DBL_MAX, std::nan(""), 1e-310, 0.5, -0.5};
  const double params[] = {fmsd::missing(), 0, DBL_MAX, -DBL_MAX, kInf, 1e-300, 2, -3};
  for (int type = ZTST_LOG; type <= ZTST_BOXCOX; ++type)
    for (double x : values)
      for (double theta : params)
        for (int inverse = 0; inverse < 2; ++inverse) {
          double out;
          const int status = inverse ? ztsti(x, type, theta, &out) : ztstf(x, type, theta, &out);
          const bool ok = status == 0 ? std::isfinite(out) : status == 1 && is_missing(out);
          EXPECT_TRUE(ok) << "type " << type << (inverse ? " inverse " : " forward ") << x << " theta " << theta
                          << ": status " << status << ", " << out;
        }
}

TEST(Transform, ArraysReportTheWorstElement) {
  hosted();
  const double miss = fmsd::missing();
  std::vector<double> x = {-1, miss, 4, 9}, out(4);
  EXPECT_EQ(ztstfv(x.data(), 4, ZTST_LOG, miss, x.data()), 1);  // in place; the missing one does not count
  EXPECT_TRUE(is_missing(x[0]) && is_missing(x[1]) && x[3] == std::log(9.0));
  EXPECT_EQ(ztstiv(x.data(), 4, ZTST_LOG, miss, out.data()), 0);
  EXPECT_DOUBLE_EQ(out[3], 9);
  EXPECT_EQ(ztstiv(x.data(), 4, 9, miss, out.data()), 0);
  EXPECT_TRUE(same_bits(out[2], x[2]));
  EXPECT_EQ(ztstfv(x.data(), 0, ZTST_LOG, miss, out.data()), -1);
  EXPECT_EQ(ztstiv(nullptr, 2, ZTST_LOG, miss, out.data()), -1);
}

TEST(TransformMoments, DegenerateAndFailingCases) {
  hosted();
  const double miss = fmsd::missing();
  std::vector<double> w(101, miss);
  double median, mean, se, rmse = -1;

  // No spread: the moments collapse onto the inverse.
  EXPECT_EQ(ztstle(2, 0, 1, &median, &mean, &se), 0);
  EXPECT_TRUE(mean == std::exp(2.0) - 1 && se == 0);
  EXPECT_EQ(ztstm(2, 0, ZTST_LOG, 1, 0, 0, nullptr, &median, &rmse), 0);
  EXPECT_EQ(rmse, 0);
  EXPECT_EQ(ztste(1.5, 0, ZTST_LOGIT, miss, 100, 10, w.data(), &mean, &se), 0);
  EXPECT_TRUE(mean == 1 / (1 + std::exp(-1.5)) && se == 0);

  // Missing inputs give -1, except for the logit, whose inverse has no other failure.
  EXPECT_EQ(ztstle(miss, 1, 0, &median, &mean, &se), -1);
  EXPECT_TRUE(is_missing(median) && is_missing(mean) && is_missing(se));
  EXPECT_EQ(ztste(miss, 1, ZTST_BOXCOX, 0.5, 100, 10, w.data(), &mean, &se), -1);
  EXPECT_EQ(ztste(miss, 1, ZTST_LOGIT, 1, 100, 10, w.data(), &mean, &se), 1);
  EXPECT_TRUE(is_missing(mean) && is_missing(se));
  EXPECT_EQ(ztste(0, miss, ZTST_LOGIT, 1, 100, 10, w.data(), &mean, &se), 0);
  EXPECT_TRUE(mean == 0.5 && is_missing(se));

  // Overflow is caught by the limits, keeping what could be computed.
  EXPECT_EQ(ztstle(709.8, 1, 0, &median, &mean, &se), 1);
  EXPECT_TRUE(is_missing(median));
  EXPECT_EQ(ztstle(1, 40, 0, &median, &mean, &se), 1);
  EXPECT_TRUE(median == std::exp(1.0) && is_missing(mean) && is_missing(se));
  EXPECT_EQ(ztstle(354.5, 1, 0, &median, &mean, &se), 1);  // e^354.5 is below 2^512, e^355 is not
  EXPECT_TRUE(!is_missing(mean) && is_missing(se));
  EXPECT_EQ(ztstse(1e100, 1e152, 0, &median, &mean, &se), 1);
  EXPECT_TRUE(mean == 1e200 + 1e152 * 1e152 && is_missing(se));
  // A Box-Cox node beyond the range: the mean falls back on the inverse.
  rmse = -1;
  EXPECT_EQ(ztstm(6000, 300, ZTST_BOXCOX, 0.005, 100, 10, w.data(), &median, &rmse), 1);
  EXPECT_EQ(rmse, -1);
  EXPECT_EQ(ztste(6000, 300, ZTST_BOXCOX, 0.005, 100, 10, w.data(), &mean, &se), 1);
  EXPECT_NEAR(mean, std::pow(31.0, 200), 1e-12 * std::pow(31.0, 200));
  EXPECT_TRUE(mean == median && is_missing(se));

  // Standard errors that are not numbers never escape into the results.
  for (double s : {kInf, -kInf, DBL_MAX, std::nan("")})
    for (int type = ZTST_LOG; type <= ZTST_BOXCOX; ++type) {
      const int status = ztste(3, s, type, 0.5, 100, 10, w.data(), &mean, &se);
      const bool ok = status == 0 ? std::isfinite(mean) && std::isfinite(se) : status == 1 && is_missing(se);
      EXPECT_TRUE(ok) << type << " " << s << ": status " << status;
    }
}

TEST(TransformMoments, WeightTable) {
  hosted();
  double mean, se, median, rmse = -1;
  EXPECT_EQ(ztste(1, 1, ZTST_LOGIT, 1, 100, 10, nullptr, &mean, &se), -1);
  std::vector<double> w(101, fmsd::missing());
  EXPECT_EQ(ztstm(1, 1, ZTST_BOXCOX, 1, 0, 10, w.data(), &median, &rmse), -1);
  EXPECT_EQ(ztstniw(100, 0, w.data()), -1);
  EXPECT_TRUE(rmse == -1 && is_missing(w[0]));
  EXPECT_EQ(ztstm(1, 1, ZTST_BOXCOX, 1, 100, 10, w.data(), &median, &rmse), 0);
  // phi(0) / 10 and phi(1) / 10 from tables of the normal density.
  EXPECT_DOUBLE_EQ(w[0], 0.039894228040143268);
  EXPECT_DOUBLE_EQ(w[10], 0.024197072451914337);
  EXPECT_DOUBLE_EQ(w[100], 0.039894228040143268 * std::exp(-50.0));

  // Unknown types pass y through and leave the second output alone.
  se = rmse = -1;
  EXPECT_EQ(ztste(4, 1, 0, 1, 100, 10, w.data(), &mean, &se), 0);
  EXPECT_EQ(ztstm(4, 1, 7, 1, 100, 10, w.data(), &median, &rmse), 0);
  EXPECT_TRUE(mean == 4 && median == 4 && se == -1 && rmse == -1);
}

TEST(Transform, NameLookups) {
  const struct {
    const char* name;
    int length, type, option;
  } names[] = {{"LOG", 3, ZTST_LOG, 0},          {"log", 3, 0, 0},
               {"LOGIT", 5, ZTST_LOGIT, 0},      {"LOGIT", 3, ZTST_LOG, 0},
               {"BOXCOXES", 8, 0, 0},            {"BOXCOX  trailing", 16, ZTST_BOXCOX, 0},
               {"SQRT", -1, ZTST_SQRT, 0},       {nullptr, 4, 0, 0},
               {"INVERSE ", 8, 0, ZTST_INVERSE}, {"MEAN", 4, 0, ZTST_MEAN},
               {"MEDIAN", -1, 0, ZTST_MEDIAN},   {"MED", 3, 0, 0}};
  for (const auto& n : names) {
    EXPECT_EQ(ztstnm(n.name, n.length), n.type) << (n.name ? n.name : "null") << " " << n.length;
    EXPECT_EQ(ztstopt(n.name, n.length), n.option) << (n.name ? n.name : "null") << " " << n.length;
  }
}

TEST(Transform, LogitScale) {
  hosted();
  const double miss = fmsd::missing();
  double theta;
  const double series[] = {miss, 12, 150, -400, 3}, small[] = {0.05, 0.01};
  EXPECT_EQ(ztstgp(series, 5, &theta), 0);
  EXPECT_DOUBLE_EQ(theta, 0.000999999);
  EXPECT_EQ(ztstgp(small, 2, &theta), 0);
  EXPECT_DOUBLE_EQ(theta, 9.99999);
  for (double top : {miss, -5.0, 1e-200, DBL_MAX, kInf}) {
    theta = 0;
    EXPECT_EQ(ztstgp(&top, 1, &theta), -1) << top;
    EXPECT_TRUE(is_missing(theta));
  }
}

TEST(Power, StatusesAndLimits) {
  hosted();
  const double huge = 1.3407807929943e154, nan = std::nan("");
  const struct {
    double x, y;
    int status;
    double result;  // kMiss: the missing value
  } cases[] = {
      {-8, 1.0 / 3, ZPOWER_NEGATIVE_BASE, kMiss}, {-1, 3e9, ZPOWER_NEGATIVE_BASE, kMiss},
      {-2, 3, 0, -8},    {-1, 7, 0, -1},          {-7, 0, 0, 1},
      {0, -1, ZPOWER_ZERO_BASE, kMiss},           {0, 0, ZPOWER_ZERO_BASE, kMiss},  {0, 2.5, 0, 0},
      {10, 309, ZPOWER_OVERFLOW, kMiss},          {10, -400, 0, 0},
      {1.5, huge, ZPOWER_OVERFLOW, kMiss},        {0.5, huge, 0, 0},
      {kInf, 2, ZPOWER_OVERFLOW, kMiss},          {kInf, -2, 0, 0},
      {DBL_MAX, 1.5, ZPOWER_OVERFLOW, kMiss},     {2, nan, -1, kMiss},
      {2, 1023.9, 0, std::pow(2.0, 1023.9)},
  };
  for (const auto& c : cases) {
    int status = -9;
    const double r = zpower(c.x, c.y, &status);
    EXPECT_EQ(status, c.status) << c.x << "^" << c.y;
    EXPECT_TRUE(c.result == kMiss ? is_missing(r) : r == c.result) << c.x << "^" << c.y << " = " << r;
  }
  EXPECT_EQ(zpower(3, 2, nullptr), 9);  // the status is optional
}

}  // namespace
