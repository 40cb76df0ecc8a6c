// Moving summaries: against pandas' rolling windows, statsmodels and exact rational
// arithmetic (tools/moving_reference.py), against a brute-force sort over wide
// windows, and the rules of the window.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "fmsd/moving.h"
#include "tests/csv_reader.h"

namespace {

using Vec = std::vector<double>;

const double M = std::numeric_limits<double>::quiet_NaN();  // stands for missing in the tables below
const double kInf = std::numeric_limits<double>::infinity();
const double kBig = std::numeric_limits<double>::max();

class Moving : public ::testing::Test {
 protected:
  void SetUp() override {
    hosted().clear_diagnostics();
    miss = fmsd::host::missing_value();
  }
  // The host's missing value where a table says M.
  Vec in(Vec v) const {
    for (double& x : v)
      if (std::isnan(x)) x = miss;
    return v;
  }
  double miss = 0;
};

Vec numbers(const std::string& s) {
  Vec out;
  std::istringstream in(s);
  for (std::string word; in >> word;) out.push_back(CsvRow::number(word));
  return out;
}

// Missing matches missing, NaN NaN, an infinity itself; a number matches to 1e-13 of
// the larger of itself and `scale`: a peer's variance of a constant window may be a
// few ulps of the data rather than 0, while exact references give scale 0.
bool same(double got, double want, double scale) {
  if (is_missing(want) || is_missing(got)) return is_missing(want) && is_missing(got);
  if (std::isnan(want) || std::isnan(got)) return std::isnan(want) && std::isnan(got);
  if (std::isinf(want) || std::isinf(got)) return got == want;
  return std::fabs(got - want) <= 1e-13 * std::max(std::fabs(want), scale);
}

int run(const std::string& routine, const Vec& x, int k, int lead, int strict, int d, int code, Vec weights,
        Vec& out) {
  const int n = static_cast<int>(x.size());
  out.assign(x.size(), -12345.0);
  double* w = weights.empty() ? nullptr : weights.data();
  if (routine == "ztsmsum") return ztsmsum(x.data(), n, w, k, lead, strict, d, code, out.data());
  if (routine == "ztsmcsm") return ztsmcsm(x.data(), n, w, k, lead, strict, d, 0, out.data());
  if (routine == "ztsmewa") return ztsmewa(x.data(), n, weights[0], strict, out.data());
  // Exactly the storage the header asks for, so that the sanitizers see any overrun.
  std::vector<int> work(3 * static_cast<std::size_t>(std::min(k, n)));
  return ztsmord(x.data(), n, k, lead, work.data(), strict, code, out.data());
}

TEST_F(Moving, AgreesWithPeersAndExactArithmetic) {
  std::map<std::string, Vec> series;
  for (const CsvRow& r : read_csv("timeseries/moving_series.csv")) series[r.text("series")].push_back(r.num("x"));
  const auto cases = read_csv("timeseries/moving_reference.csv");
  ASSERT_GT(cases.size(), 400u);
  for (const CsvRow& r : cases) {
    const std::string& routine = r.text("routine");
    const Vec& x = series.at(r.text("series"));
    const int k = r.integer("k"), lead = r.integer("lead"), strict = r.integer("strict"), d = r.integer("d"),
              code = r.integer("code");
    const Vec want = numbers(r.text("expected"));
    ASSERT_EQ(want.size(), x.size());
    Vec got;
    const int lost = run(routine, x, k, lead, strict, d, code, numbers(r.text("weights")), got);
    double scale = 0;
    for (double v : want)
      if (r.text("source") != "exact" && !is_missing(v) && std::isfinite(v)) scale = std::max(scale, std::fabs(v));
    int expected_lost = 0, bad = 0;
    for (std::size_t t = 0; t < x.size(); ++t) {
      expected_lost += is_missing(want[t]) && !is_missing(x[t]);
      if (!same(got[t], want[t], scale) && bad++ < 3)
        ADD_FAILURE() << r.line.substr(0, 80) << " t=" << t << ": got " << got[t] << ", want " << want[t];
    }
    if (routine != "ztsmewa") {
      EXPECT_EQ(lost, expected_lost) << r.line.substr(0, 80);
    }
  }
}

// Wide windows, ties, missing runs and windows longer than the series against a
// sort of every window: the heaps and queues must survive every kind of step.
TEST_F(Moving, OrderStatisticsMatchASortOfEachWindow) {
  std::mt19937_64 random(7);
  std::uniform_int_distribution<int> value(0, 40), gap(0, 99);
  const struct {
    int n, k, lead;
  } shapes[] = {{1200, 401, 200}, {1200, 801, 0}, {500, 64, 63}, {300, 700, 100}, {400, 1, 0}, {400, 2, 1}};
  for (const auto& [n, k, lead] : shapes) {
    Vec x(n);
    for (int i = 0; i < n; ++i) x[i] = value(random) * 0.25;
    for (int i = 0; i < n; ++i) {
      if (gap(random) < 3)
        for (int j = i; j < std::min(n, i + value(random)); ++j) x[j] = miss;
    }
    const int lag = k - lead - 1;
    for (int code = 0; code < 4; ++code) {
      Vec got;
      run("ztsmord", x, k, lead, 0, 0, code, {}, got);
      int bad = 0;
      for (int t = 0; t < n; ++t) {
        Vec w;
        for (int i = std::max(0, t - lag); i <= std::min(n - 1, t + lead); ++i)
          if (!is_missing(x[i])) w.push_back(x[i]);
        double want = miss;
        if (!w.empty()) {
          std::sort(w.begin(), w.end());
          const std::size_t m = w.size();
          want = code == 0 ? w[0] : code == 1 ? w[m - 1] : code == 3 ? w[m - 1] - w[0]
                                                                     : (w[(m - 1) / 2] + w[m / 2]) / 2;
        }
        if (!same(got[t], want, 0) && bad++ < 3)
          ADD_FAILURE() << "n=" << n << " k=" << k << " lead=" << lead << " code=" << code << " t=" << t
                        << ": got " << got[t] << ", want " << want;
      }
    }
  }
}

// A level of 1e9 with noise of 1e-3 (variance 1e-6, eighteen digits below the
// squares), with jumps of a million, over many more steps than a rebuild interval:
// the variance stays non-negative and agrees with a two-pass sum in long double.
TEST_F(Moving, VarianceOfAHighLevelStaysAccurate) {
  const int n = 30000, k = 101, lead = 50;
  std::mt19937_64 random(11);
  std::normal_distribution<double> noise(0, 1e-3);
  Vec x(n);
  for (int i = 0; i < n; ++i) x[i] = 1e9 + (i / 7000) * 1e6 + noise(random);
  Vec got;
  run("ztsmcsm", x, k, lead, 0, 1, 0, {}, got);
  double worst = 0;
  for (int t = 0; t < n; ++t) {
    const int lo = std::max(0, t - (k - lead - 1)), hi = std::min(n - 1, t + lead);
    long double mean = 0, c = 0;
    for (int i = lo; i <= hi; ++i) mean += x[i];
    mean /= hi - lo + 1;
    for (int i = lo; i <= hi; ++i) c += (x[i] - mean) * (x[i] - mean);
    const double want = static_cast<double>(c / (hi - lo));
    ASSERT_GE(got[t], 0.0) << t;
    worst = std::max(worst, std::fabs(got[t] - want) / want);
  }
  EXPECT_LT(worst, 1e-13);
}

// The strict rule around a gap, and the divisor and flag rules at the ends.
TEST_F(Moving, StrictnessDivisorsAndFlags) {
  const Vec full = {1, 2, 3, 4, 5}, gap = in({1, 2, M, 4, 5});
  Vec out(5);
  EXPECT_EQ(ztsmsum(gap.data(), 5, nullptr, 3, 1, 1, 0, 0, out.data()), 2);
  EXPECT_TRUE(out[0] == 1.5 && is_missing(out[1]) && is_missing(out[2]) && is_missing(out[3]) && out[4] == 4.5);
  // d = 2 leaves nothing to divide by in the two-value windows at the ends.
  ztsmsum(full.data(), 5, nullptr, 3, 1, 0, 2, 0, out.data());
  EXPECT_EQ(out, (Vec{0, 6, 9, 12, 0}));

  // Any flag but 0 and 1 summarises nothing; the lost count is every value present.
  for (int strict : {2, -1}) {
    EXPECT_EQ(ztsmsum(gap.data(), 5, nullptr, 3, 1, strict, 0, 0, out.data()), 4);
    EXPECT_EQ(ztsmcsm(gap.data(), 5, nullptr, 3, 1, strict, 0, 0, out.data()), 4);
    int work[9];
    EXPECT_EQ(ztsmord(gap.data(), 5, 3, 1, work, strict, ZTSM_MEDIAN, out.data()), 4);
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), is_missing));
  }
}

TEST_F(Moving, InvalidWindowsAreReportedAndLeaveTheOutputAlone) {
  const Vec x = {1, 2, 3, 4};
  int work[12];
  const std::pair<int, int> windows[] = {{0, 0}, {3, 3}, {3, -1}};
  for (const auto& [k, lead] : windows) {
    Vec out(4, 7.0);
    EXPECT_EQ(ztsmsum(x.data(), 4, nullptr, k, lead, 0, 0, 0, out.data()), 4);
    EXPECT_EQ(ztsmcsm(x.data(), 4, nullptr, k, lead, 0, 0, 0, out.data()), 4);
    EXPECT_EQ(ztsmord(x.data(), 4, k, lead, work, 0, 0, out.data()), 4);
    EXPECT_EQ(out, Vec(4, 7.0));
  }
  const auto& log = hosted().diagnostics();
  ASSERT_EQ(log.size(), 9u);
  EXPECT_EQ(log[0], "exptran: ztsmsum: window size k=0 lead=0 lag=-1");
  EXPECT_EQ(log[4], "exptran: ztsmcsm: window size k=3 lead=3 lag=-1");
  EXPECT_EQ(log[8], "exptran: ztsmord: window size k=3 lead=-1 lag=3");

  // A window longer than the series is cut to it without a word; the weights stay
  // with their positions (k = 8, lag 6: position 0 of window t = 0 has weight 7).
  Vec out(4);
  Vec w = {1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(ztsmsum(x.data(), 4, w.data(), 8, 1, 0, -1, 0, out.data()), 0);
  EXPECT_DOUBLE_EQ(out[0], (7 * 1 + 8 * 2) / 15.0);
  EXPECT_DOUBLE_EQ(out[3], (4 * 1 + 5 * 2 + 6 * 3 + 7 * 4) / 22.0);
  EXPECT_EQ(log.size(), 9u);

  EXPECT_EQ(ztsmsum(x.data(), 0, nullptr, 3, 1, 0, 0, 0, out.data()), 0);
  EXPECT_EQ(ztsmsum(nullptr, 4, nullptr, 3, 1, 0, 0, 0, out.data()), 4);
  EXPECT_EQ(ztsmord(x.data(), 4, 3, 1, nullptr, 0, 0, out.data()), 4);
  EXPECT_EQ(ztsmewa(x.data(), 4, 0.5, 0, nullptr), 4);
  // No such statistic: nothing is summarised.
  EXPECT_EQ(ztsmord(x.data(), 4, 3, 1, work, 0, 4, out.data()), 4);
  EXPECT_TRUE(std::all_of(out.begin(), out.end(), is_missing));
}

TEST_F(Moving, TransformsAndWeights) {
  const Vec x = in({-2, M, 3});
  Vec out(3);
  // A window of one is the transformed series, missing values staying missing.
  EXPECT_EQ(ztsmsum(x.data(), 3, nullptr, 1, 0, 1, 0, ZTSM_SQUARE, out.data()), 0);
  EXPECT_EQ(out[0], 4);
  EXPECT_TRUE(is_missing(out[1]));
  ztsmsum(x.data(), 3, nullptr, 1, 0, 0, 0, 7, out.data());
  EXPECT_EQ(out[0], 2);
  EXPECT_TRUE(is_missing(out[1]));

  // Weights beyond the guard are capped in the caller's array, sign and all.
  const Vec y = {1, 2, 3};
  Vec w = {-1e200, 2};
  ztsmsum(y.data(), 3, w.data(), 2, 0, 0, -1, 0, out.data());
  EXPECT_EQ(w[0], 1.3407807929943e154);

  // Weights that sum to nothing cannot divide: every output missing when d >= 0.
  Vec zero = {1, -1};
  EXPECT_EQ(ztsmsum(y.data(), 3, zero.data(), 2, 0, 0, 0, 0, out.data()), 3);
  EXPECT_TRUE(std::all_of(out.begin(), out.end(), is_missing));
  EXPECT_EQ(ztsmcsm(y.data(), 3, zero.data(), 2, 0, 0, 1, 0, out.data()), 3);
  EXPECT_TRUE(std::all_of(out.begin(), out.end(), is_missing));
}

TEST_F(Moving, ExponentialAverage) {
  const Vec x = in({M, 1, M, 3});
  Vec out(4);
  EXPECT_EQ(ztsmewa(x.data(), 4, 0.5, 0, out.data()), 0);
  EXPECT_TRUE(is_missing(out[0]) && out[1] == 1 && out[2] == 1 && out[3] == 2);
  EXPECT_EQ(ztsmewa(x.data(), 4, 0.5, 1, out.data()), 3);
  EXPECT_TRUE(std::all_of(out.begin(), out.end(), is_missing));

  // A weight of 1 or more, or a missing one, smooths nothing; one of practically 0
  // holds the first value.
  for (double w : {1.0, -3.0, miss}) {
    EXPECT_EQ(ztsmewa(x.data(), 4, w, 1, out.data()), 0);
    EXPECT_TRUE(out[1] == 1 && is_missing(out[2]) && out[3] == 3);
  }
  EXPECT_EQ(ztsmewa(x.data(), 4, 1e-160, 0, out.data()), 0);
  EXPECT_TRUE(out[1] == 1 && out[2] == 1 && out[3] == 1);
}

// The reference cases hold infinities, NaNs and the largest doubles; here the same
// kind of series goes through the paths they leave out: weights, transforms, strictness.
TEST_F(Moving, ExtremeValuesThroughEveryPath) {
  const Vec x = {kBig, kBig, -kBig, kInf, 1, -kInf, 2, std::numeric_limits<double>::denorm_min(), kBig, 4, 5};
  const int n = static_cast<int>(x.size());
  Vec out(x.size()), w(5, kBig);
  std::vector<int> work(15);
  for (int strict : {0, 1}) {
    for (int d : {-1, 0, 1}) {
      for (int transform : {0, 1, 2}) {
        ztsmsum(x.data(), n, nullptr, 5, 2, strict, d, transform, out.data());
        EXPECT_TRUE(std::none_of(out.begin(), out.end(), is_missing));
        ztsmsum(x.data(), n, w.data(), 5, 2, strict, d, transform, out.data());
      }
      ztsmcsm(x.data(), n, w.data(), 5, 2, strict, d, 0, out.data());
      EXPECT_TRUE(std::none_of(out.begin(), out.end(), is_missing));
    }
    for (int code = 0; code < 4; ++code) ztsmord(x.data(), n, 5, 2, work.data(), strict, code, out.data());
    ztsmewa(x.data(), n, 0.5, strict, out.data());
  }
}

}  // namespace
