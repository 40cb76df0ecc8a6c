// Classical decomposition: against statsmodels' seasonal_decompose with its
// two-sided moving average (tools/moving_reference.py), and the rules for missing
// values, short series, bad arguments and series a multiplicative model cannot take.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "fmsd/decompose.h"
#include "tests/csv_reader.h"

namespace {

using Vec = std::vector<double>;

const double M = std::numeric_limits<double>::quiet_NaN();  // stands for missing below

class Decompose : public ::testing::Test {
 protected:
  void SetUp() override {
    hosted();
    miss = fmsd::host::missing_value();
  }
  Vec in(Vec v) const {
    for (double& x : v)
      if (std::isnan(x)) x = miss;
    return v;
  }
  // Equal, missing where the table says M.
  static bool matches(const Vec& got, const Vec& want) {
    if (got.size() != want.size()) return false;
    for (std::size_t i = 0; i < got.size(); ++i) {
      if (std::isnan(want[i]) ? !is_missing(got[i]) : got[i] != want[i]) return false;
    }
    return true;
  }
  double miss = 0;
};

struct Case {
  bool multiplicative;
  int period;
  Vec x, trend, seasonal, resid;
};

std::vector<Case> cases() {
  std::vector<Case> out;
  for (const CsvRow& r : read_csv("timeseries/decompose_reference.csv")) {
    if (r.integer("t") == 0) out.push_back({r.text("model") == "multiplicative", r.integer("period"), {}, {}, {}, {}});
    Case& k = out.back();
    k.x.push_back(r.num("x"));
    k.trend.push_back(r.num("trend"));
    k.seasonal.push_back(r.num("seasonal"));
    k.resid.push_back(r.num("resid"));
  }
  return out;
}

bool near(double got, double want) {
  if (is_missing(want) || is_missing(got)) return is_missing(want) && is_missing(got);
  return std::fabs(got - want) <= 1e-12 * std::max(1.0, std::fabs(want));
}

void expect_near(const Vec& got, const Vec& want, const std::string& what) {
  int bad = 0;
  for (std::size_t i = 0; i < want.size(); ++i)
    if (!near(got[i], want[i]) && bad++ < 3) ADD_FAILURE() << what << " t=" << i << ": " << got[i] << " vs " << want[i];
}

// Every entry point, each running the chain from the start, against statsmodels'
// trend, seasonal and residual; the detrended values and the adjusted series
// follow from those by one operation.
TEST_F(Decompose, AgreesWithStatsmodels) {
  const auto all = cases();
  ASSERT_EQ(all.size(), 10u);
  for (const Case& c : all) {
    const int n = static_cast<int>(c.x.size()), s = c.period;
    const std::string what = std::string(c.multiplicative ? "multiplicative" : "additive") + " s=" +
                             std::to_string(s) + " n=" + std::to_string(n);
    Vec tc(n), detrended(n), seasonal(n), irregular(n), adjusted(n), si(n), adj(n);
    for (int i = 0; i < n; ++i) {
      const bool gone = is_missing(c.trend[i]);
      si[i] = gone ? miss : c.multiplicative ? c.x[i] / c.trend[i] : c.x[i] - c.trend[i];
      adj[i] = gone ? miss : c.multiplicative ? c.trend[i] * c.resid[i] : c.trend[i] + c.resid[i];
    }
    ASSERT_EQ(ztscdtc(c.x.data(), n, s, c.multiplicative, 0, tc.data()), 0) << what;
    expect_near(tc, c.trend, what + " trend-cycle");
    const auto seasonal_of = c.multiplicative ? ztscdms : ztscdas;
    const auto irregular_of = c.multiplicative ? ztscdmi : ztscdai;
    const auto adjusted_of = c.multiplicative ? ztscdma : ztscdaa;
    ASSERT_EQ(seasonal_of(c.x.data(), n, s, 0, tc.data(), detrended.data(), seasonal.data()), 0) << what;
    expect_near(detrended, si, what + " detrended");
    expect_near(seasonal, c.seasonal, what + " seasonal");
    ASSERT_EQ(irregular_of(c.x.data(), n, s, 0, tc.data(), seasonal.data(), irregular.data()), 0) << what;
    expect_near(irregular, c.resid, what + " irregular");
    ASSERT_EQ(adjusted_of(c.x.data(), n, s, 0, tc.data(), seasonal.data(), adjusted.data()), 0) << what;
    expect_near(adjusted, adj, what + " adjusted");
  }
}

TEST_F(Decompose, MissingValuesAndStrictness) {
  // s = 3: each trend-cycle value averages the values present in its window.
  const Vec x = in({1, 2, 3, 4, M, 6, 7, 8, 9});
  Vec tc(9);
  EXPECT_EQ(ztscdtc(x.data(), 9, 3, 0, 0, tc.data()), 0);
  EXPECT_TRUE(matches(tc, {M, 2, 3, 3.5, 5, 6.5, 7, 8, M}));
  EXPECT_EQ(ztscdtc(x.data(), 9, 3, 0, 1, tc.data()), 0);
  EXPECT_TRUE(matches(tc, {M, 2, 3, M, M, M, 7, 8, M}));

  // s = 4 over a gap as long as the window: where one of the two averages to be
  // centred is missing, the other stands in, unless the windows must be complete.
  Vec y(14);
  for (int i = 0; i < 14; ++i) y[i] = i + 1;
  for (int i = 4; i < 8; ++i) y[i] = miss;
  Vec t4(14);
  EXPECT_EQ(ztscdtc(y.data(), 14, 4, 1, 0, t4.data()), 0);
  EXPECT_TRUE(matches(t4, {M, M, 2.75, 3.25, 3.75, 4, 9, 9.25, 9.75, 10.25, 11, 12, M, M}));
  for (int strict : {1, 2}) {
    EXPECT_EQ(ztscdtc(y.data(), 14, 4, 1, strict, t4.data()), 0);
    EXPECT_TRUE(matches(t4, {M, M, M, M, M, M, M, M, M, M, 11, 12, M, M}));
  }

  const Vec none = in({M, M, M, M, M, M});
  Vec a(6), b(6), c(6);
  EXPECT_EQ(ztscdtc(none.data(), 6, 2, 0, 0, a.data()), -1);
  EXPECT_EQ(ztscdas(none.data(), 6, 2, 0, a.data(), b.data(), c.data()), -1);
  EXPECT_TRUE(std::all_of(c.begin(), c.end(), is_missing));
}

TEST_F(Decompose, ShortSeries) {
  // No more values than a season (or a season of one): the trend-cycle is the series
  // and nothing is seasonal.
  const Vec x = in({3, M, 4});
  Vec t(3), s3(3), i3(3), a3(3);
  for (const auto& [n, s] : {std::pair{3, 3}, std::pair{3, 5}, std::pair{3, 1}}) {
    EXPECT_EQ(ztscdma(x.data(), n, s, 0, t.data(), s3.data(), a3.data()), 0);
    EXPECT_TRUE(matches(t, {3, M, 4}));
    EXPECT_EQ(s3, Vec(3, 1.0));
    EXPECT_TRUE(matches(a3, {3, M, 4}));
    EXPECT_EQ(ztscdai(x.data(), n, s, 0, t.data(), s3.data(), i3.data()), 0);
    EXPECT_EQ(s3, Vec(3, 0.0));
    EXPECT_TRUE(matches(i3, {0, M, 0}));
  }
}

TEST_F(Decompose, RejectedArguments) {
  // A multiplicative model cannot take a value of 0 (or below): everything missing.
  Vec x(24);
  for (int i = 0; i < 24; ++i) x[i] = 10 + i % 4;
  x[17] = 0;
  Vec tc(24, 1), seasonal(24, 1), irregular(24, 1);
  EXPECT_EQ(ztscdmi(x.data(), 24, 4, 0, tc.data(), seasonal.data(), irregular.data()), -1);
  for (const Vec* v : {&tc, &seasonal, &irregular}) EXPECT_TRUE(std::all_of(v->begin(), v->end(), is_missing));
  EXPECT_EQ(ztscdtc(x.data(), 24, 4, 0, 0, tc.data()), 0);

  // A season length below 1: -1 everywhere, nothing written past n.
  Vec a(5, 7), b(5, 7), c(5, 7);
  for (int s : {0, -2}) {
    EXPECT_EQ(ztscdtc(x.data(), 3, s, 1, 0, a.data()), -1);
    EXPECT_EQ(ztscdms(x.data(), 3, s, 0, a.data(), b.data(), c.data()), -1);
    EXPECT_EQ(ztscdaa(x.data(), 3, s, 0, a.data(), b.data(), c.data()), -1);
    EXPECT_TRUE(matches(b, {M, M, M, 7, 7}));
    EXPECT_TRUE(matches(c, {M, M, M, 7, 7}));
  }
  EXPECT_EQ(ztscdtc(x.data(), 0, 4, 1, 0, a.data()), -1);
  EXPECT_EQ(ztscdas(x.data(), 24, 4, 0, a.data(), nullptr, c.data()), -1);
}

}  // namespace
