// Autocovariances, ACF, PACF, IACF and Ljung-Box probabilities against statsmodels
// (series without gaps) and a pair-by-pair computation (series with gaps), both from
// tools/autocorr_reference.py; damping and robustness on constructed inputs.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "fmsd/autocorr.h"
#include "tests/csv_reader.h"

namespace {

constexpr double kUnwritten = -12345.0;  // fills slots that must stay untouched

struct Case {
  std::vector<double> x;  // the host's missing value for a gap
  int maxlag = 0;
  bool gaps = false;
  double mean = 0;
  std::vector<double> acov, count, acf, se, pacf, iacf, lbprob;  // missing where NA
};

const std::map<std::string, Case>& cases() {
  static const std::map<std::string, Case> all = [] {
    hosted();
    std::map<std::string, Case> m;
    for (const CsvRow& r : read_csv("timeseries/autocorr_series.csv")) {
      m[r.text("case")].x.push_back(r.num("value"));
      m[r.text("case")].gaps |= !r.has("value");
    }
    for (const CsvRow& r : read_csv("timeseries/autocorr_reference.csv")) {
      Case& c = m[r.text("case")];
      c.maxlag = r.integer("maxlag");
      if (r.integer("lag") == 0) c.mean = r.num("mean");
      int column = 5;
      for (auto* values : {&c.acov, &c.count, &c.acf, &c.se, &c.pacf, &c.iacf, &c.lbprob})
        values->push_back(r.num(column++));
    }
    return m;
  }();
  return all;
}

// A missing value where the reference has NA, else agreement within tol.
void expect_lagged(const char* what, const std::vector<double>& ref, const double* got, int first,
                   double tol) {
  for (int k = first; k < static_cast<int>(ref.size()); ++k) {
    if (is_missing(ref[k]))
      EXPECT_TRUE(is_missing(got[k])) << what << " lag " << k << ": " << got[k];
    else
      EXPECT_NEAR(got[k], ref[k], tol) << what << " lag " << k;
  }
}

using AutocorrReference = ::testing::TestWithParam<std::string>;

TEST_P(AutocorrReference, AcfStandardErrorsAndLjungBox) {
  hosted();
  const Case& c = cases().at(GetParam());
  const int lags = c.maxlag;
  std::vector<double> x = c.x;
  std::vector<double> acov(lags + 1), acf(lags + 1), se(lags + 1), prob(lags + 1, kUnwritten);
  std::vector<int> count(lags + 1);
  double mean = 0;
  ASSERT_EQ(ztsscor(x.data(), static_cast<int>(x.size()), lags, &mean, acov.data(), count.data(), acf.data(),
                    se.data()),
            0);
  EXPECT_NEAR(mean, c.mean, 1e-13 * std::fabs(c.mean) + 1e-15);
  for (int k = 0; k <= lags; ++k) EXPECT_EQ(count[k], c.count[k]) << "lag " << k;
  expect_lagged("acov", c.acov, acov.data(), 0, 1e-12 * c.acov[0]);
  expect_lagged("acf", c.acf, acf.data(), 0, 1e-12);
  expect_lagged("se", c.se, se.data(), 0, 1e-12);

  // On the series as ztsscor left it, centred; lags past the reduced maximum unwritten.
  int top = 0;
  while (top < lags && !is_missing(c.lbprob[top + 1])) ++top;
  EXPECT_EQ(ztsslbw(x.data(), static_cast<int>(x.size()), lags, prob.data()), top);
  for (int k = 0; k <= lags; ++k) {
    if (k > top)
      EXPECT_EQ(prob[k], kUnwritten) << "lag " << k;
    else
      EXPECT_NEAR(prob[k], c.lbprob[k], 1e-12) << "lag " << k;
  }
}

// statsmodels has figures for the series without gaps only.
using AutocorrStatsmodels = AutocorrReference;

TEST_P(AutocorrStatsmodels, PartialAndInverseAutocorrelations) {
  hosted();
  const Case& c = cases().at(GetParam());
  const int lags = c.maxlag;
  std::vector<double> acf = c.acf, pacf(3 * lags), iacf(lags + 1, kUnwritten), work(3 * (lags + 1));
  // The IACF array starts at lag 1: slot 0 of iacf stays as lag 0.
  ASSERT_EQ(ztsspcr(acf.data(), static_cast<int>(c.x.size()), lags, pacf.data(), iacf.data() + 1, work.data()),
            0);
  expect_lagged("pacf", c.pacf, pacf.data(), 1, 1e-12);
  expect_lagged("iacf", c.iacf, iacf.data(), 1, 1e-12);
}

std::vector<std::string> case_names(bool with_gaps) {
  std::vector<std::string> names;
  for (const auto& [name, c] : cases())
    if (with_gaps || !c.gaps) names.push_back(name);
  return names;
}

std::string param_name(const ::testing::TestParamInfo<std::string>& p) { return p.param; }

INSTANTIATE_TEST_SUITE_P(Cases, AutocorrReference, ::testing::ValuesIn(case_names(true)), param_name);
INSTANTIATE_TEST_SUITE_P(Cases, AutocorrStatsmodels, ::testing::ValuesIn(case_names(false)), param_name);

// ---- constructed cases ---------------------------------------------------------------

TEST(Autocorr, ShortSeries) {
  const double m = hosted().missing();
  double acov[4] = {m, m, m, m}, acf[4], se[4], pacf[3], iacf[1] = {kUnwritten}, work[6];
  int count[4];
  double mean = kUnwritten;
  // One present value: nothing computed, the caller's missing-filled arrays read as they stand.
  double one[] = {m, 3.0, m};
  EXPECT_EQ(ztsscor(one, 3, 3, &mean, acov, count, acf, se), 0);
  EXPECT_EQ(mean, kUnwritten);
  EXPECT_TRUE(is_missing(acf[1]) && is_missing(acf[3]));
  EXPECT_EQ(se[1], 1.0);
  double none[] = {m, m};
  EXPECT_EQ(ztsscor(none, 2, 3, &mean, acov, count, acf, se), ZTS_NO_SERIES);

  // Maximum lag 1: SE 1 / sqrt(n), PACF = ACF, no inverse function.
  double x[] = {1, 3, 2, 5, 4, 6};
  ASSERT_EQ(ztsscor(x, 6, 1, &mean, acov, count, acf, se), 0);
  EXPECT_DOUBLE_EQ(se[1], 1 / std::sqrt(6.0));
  ASSERT_EQ(ztsspcr(acf, 6, 1, pacf, iacf, work), 0);
  EXPECT_EQ(pacf[1], acf[1]);
  EXPECT_EQ(iacf[0], kUnwritten);

  // Without a mean slot the series is taken as centred: sums of products over n.
  double c[] = {1.0, -2.0, 0.5, 0.5};
  EXPECT_EQ(ztsscov(c, 4, 2, nullptr, acov, count), 4);
  EXPECT_EQ(c[0], 1.0);
  EXPECT_DOUBLE_EQ(acov[1], (-2.0 - 1.0 + 0.25) / 4);
}

TEST(Autocorr, FarTailProbabilityIsExactlyZero) {
  hosted();
  // A straight line: r1 is about 0.985, so Q1 is about 195, beyond 100 times the lag.
  std::vector<double> x(200);
  for (int i = 0; i < 200; ++i) x[i] = i;
  double acov[4], acf[4], se[4], prob[4];
  int count[4];
  double mean;
  ASSERT_EQ(ztsscor(x.data(), 200, 3, &mean, acov, count, acf, se), 0);
  ASSERT_EQ(ztsslbw(x.data(), 200, 3, prob), 3);
  for (int k = 1; k <= 3; ++k) EXPECT_EQ(prob[k], 0.0) << k;
}

TEST(AutocorrDamping, ValidSequenceIsLeftAlone) {
  hosted();
  // The ACF of an AR(1) with coefficient 0.5: PACF 0.5 then zeros, IACF -0.4 then zeros.
  double acf[6] = {1, 0.5, 0.25, 0.125, 0.0625, 0.03125}, work[15];
  EXPECT_EQ(zposdef(acf, 5, work), 1.0);
  double pacf[15], iacf[5], work2[18];
  ASSERT_EQ(ztsspcr(acf, 100, 5, pacf, iacf, work2), 0);
  EXPECT_DOUBLE_EQ(pacf[1], 0.5);
  EXPECT_DOUBLE_EQ(iacf[0], -0.4);
  for (int k = 2; k <= 5; ++k) {
    EXPECT_NEAR(pacf[k], 0, 1e-15) << k;
    EXPECT_NEAR(iacf[k - 1], 0, 1e-15) << k;
  }

  // A missing lag counts as 0, in the caller's array as well: Levinson-Durbin on
  // 1, 0.5, 0, 0.125 gives -1/3 at lag 2.
  acf[2] = hosted().missing();
  ASSERT_EQ(ztsspcr(acf, 100, 3, pacf, iacf, work2), 0);
  EXPECT_EQ(acf[2], 0.0);
  EXPECT_DOUBLE_EQ(pacf[2], -1.0 / 3);
}

TEST(AutocorrDamping, InvalidSequenceIsDampedOnce) {
  hosted();
  // With rho1 = 0.9 g and rho2 = -0.9 g^2 the correlation matrix stays positive
  // definite while rho2 > 2 rho1^2 - 1, that is for g below 1 / sqrt(2.52).
  const double limit = 1 / std::sqrt(2.52);
  double acf[3] = {1, 0.9, -0.9}, work[9];
  const double g = zposdef(acf, 2, work);
  EXPECT_LT(g, limit);
  EXPECT_GE(g, limit - 0.05);

  double pacf[6], iacf[2];
  ASSERT_EQ(ztsspcr(acf, 100, 2, pacf, iacf, work), 0);
  const double r1 = 0.9 * g, r2 = -0.9 * g * g;
  EXPECT_NEAR(pacf[1], r1, 1e-15);
  EXPECT_NEAR(pacf[2], (r2 - r1 * r1) / (1 - r1 * r1), 1e-15);
  EXPECT_EQ(acf[1], 0.9);
}

TEST(AutocorrDamping, PartialAutocorrelationsStayWithinOne) {
  hosted();
  std::mt19937_64 random(7);
  std::uniform_real_distribution<double> unit(-1, 1);
  for (int trial = 0; trial < 2000; ++trial) {
    const int lags = 1 + trial % 30;
    std::vector<double> acf(lags + 1, 1.0), pacf(3 * lags + 1), iacf(lags), work(3 * (lags + 1));
    for (int k = 1; k <= lags; ++k) acf[k] = unit(random);
    ASSERT_EQ(ztsspcr(acf.data(), 1000, lags, pacf.data(), iacf.data(), work.data()), 0) << trial;
    for (int k = 1; k <= lags; ++k) ASSERT_LE(std::fabs(pacf[k]), 1.0) << trial << " lag " << k;
  }
}

TEST(AutocorrInverse, CutsOffAfterTheAutoregressiveOrder) {
  hosted();
  // AR(2) with phi = (0.5, -0.3): its inverse ACF is the ACF of the MA(2)
  // e_t - 0.5 e_{t-1} + 0.3 e_{t-2}, zero past lag 2.
  const int n = 100000, lags = 12;
  std::mt19937_64 random(11);
  std::normal_distribution<double> noise;
  std::vector<double> x(n);
  double y1 = 0, y2 = 0;
  for (int i = -500; i < n; ++i) {
    const double y = 0.5 * y1 - 0.3 * y2 + noise(random);
    y2 = y1;
    y1 = y;
    if (i >= 0) x[i] = y;
  }
  std::vector<double> acov(lags + 1), acf(lags + 1), se(lags + 1), pacf(3 * lags), iacf(lags), work(3 * (lags + 1));
  std::vector<int> count(lags + 1);
  double mean;
  ASSERT_EQ(ztsscor(x.data(), n, lags, &mean, acov.data(), count.data(), acf.data(), se.data()), 0);
  ASSERT_EQ(ztsspcr(acf.data(), n, lags, pacf.data(), iacf.data(), work.data()), 0);
  const double d = 1 + 0.25 + 0.09;
  const double band = 4 / std::sqrt(static_cast<double>(n));
  EXPECT_NEAR(iacf[0], (-0.5 - 0.5 * 0.3) / d, band);
  EXPECT_NEAR(iacf[1], 0.3 / d, band);
  for (int k = 3; k <= lags; ++k) EXPECT_LT(std::fabs(iacf[k - 1]), band) << k;
}

TEST(AutocorrRobustness, ExtremeValuesNeverCrash) {
  const double m = hosted().missing();
  const double inf = std::numeric_limits<double>::infinity();
  const double specials[] = {inf, -inf, DBL_MAX, -DBL_MAX, std::nan(""), DBL_MIN, 4.9e-324, 1e300, m};
  std::mt19937_64 random(3);
  std::uniform_int_distribution<int> pick(0, 8);
  std::normal_distribution<double> noise;
  for (int trial = 0; trial < 300; ++trial) {
    const int n = 1 + trial % 40, lags = trial % 25;
    std::vector<double> x(n);
    for (double& v : x) v = trial % 3 == 0 || pick(random) < 3 ? specials[pick(random)] : noise(random);
    std::vector<double> acov(lags + 1, m), acf(lags + 1), se(lags + 2), pacf(3 * lags + 1), iacf(lags + 1),
        work(3 * (lags + 1)), prob(lags + 1);
    std::vector<int> count(lags + 1);
    double mean;
    const int status = ztsscor(x.data(), n, lags, &mean, acov.data(), count.data(), acf.data(), se.data());
    ASSERT_TRUE(status == 0 || status == ZTS_NO_SERIES) << trial;
    if (status != 0) continue;
    const int top = ztsslbw(x.data(), n, lags, prob.data());
    ASSERT_LE(top, lags);
    for (int k = 0; k <= top; ++k) EXPECT_TRUE(is_missing(prob[k]) || (prob[k] >= 0 && prob[k] <= 1)) << trial;
    const int pstatus = ztsspcr(acf.data(), n, lags, pacf.data(), iacf.data(), work.data());
    ASSERT_TRUE(pstatus == 0 || pstatus == 1) << trial;
    for (int k = 1; pstatus == 0 && k <= lags; ++k) EXPECT_LE(std::fabs(pacf[k]), 1.0) << trial << " lag " << k;
    const double g = zposdef(acf.data(), lags, work.data());
    EXPECT_TRUE(g >= 0 && g <= 1) << trial;
  }
}

TEST(AutocorrRobustness, BadArgumentsAreRefused) {
  hosted();
  double x[4] = {1, 2, 3, 4}, acov[3], acf[3], se[3], pacf[6], work[9];
  int count[3];
  double mean;
  EXPECT_EQ(ztsscov(nullptr, 4, 2, &mean, acov, count), ZTS_BAD_ARGUMENT);
  EXPECT_EQ(ztsscov(x, 4, -1, &mean, acov, count), ZTS_BAD_ARGUMENT);
  EXPECT_EQ(ztsscor(x, 4, 2, &mean, acov, count, nullptr, se), ZTS_BAD_ARGUMENT);
  EXPECT_EQ(ztsslbw(x, -1, 2, acf), ZTS_BAD_ARGUMENT);
  EXPECT_EQ(ztsspcr(acf, 4, 2, pacf, nullptr, work), ZTS_BAD_ARGUMENT);
  EXPECT_EQ(zposdef(nullptr, 2, work), ZTS_BAD_ARGUMENT);
  EXPECT_EQ(zposdef(nullptr, 0, nullptr), 1.0);
}

}  // namespace
