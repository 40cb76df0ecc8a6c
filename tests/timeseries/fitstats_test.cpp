// Statistics of fit and the series summary against exact rational computations from
// their definitions (tools/fitstats_reference.py), and the comparison of statistics.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "fmsd/fitstats.h"
#include "tests/csv_reader.h"

namespace {

struct Case {
  std::vector<double> actual, predicted;
};

std::map<std::string, Case> series() {
  std::map<std::string, Case> cases;
  for (const CsvRow& r : read_csv("timeseries/fitstats_series.csv")) {
    Case& c = cases[r.text("case")];
    c.actual.push_back(r.num("actual"));
    c.predicted.push_back(r.num("predicted"));
  }
  return cases;
}

std::string check(const CsvRow& r, const char* name, double got, double rtol = 1e-12) {
  const double want = r.num(name);
  if (is_missing(want) ? is_missing(got) : !is_missing(got) && std::fabs(got - want) <= rtol * std::fabs(want))
    return {};
  return std::string(" ") + name + "=" + (is_missing(got) ? "missing" : std::to_string(got));
}

std::string check(const CsvRow& r, const char* name, int got) {
  return std::stoi(r.text(name)) == got ? std::string() : std::string(" ") + name + "=" + std::to_string(got);
}

TEST(FitStatsReference, MatchesExactComputation) {
  hosted();
  auto inputs = series();
  const auto rows = read_csv("timeseries/fitstats_expected.csv");
  ASSERT_EQ(rows.size(), 30u);
  for (const CsvRow& r : rows) {
    Case& c = inputs[r.text("case")];
    const int count = static_cast<int>(c.actual.size());
    fitstats fs;
    const int present = ztssfit(r.num("before"), c.actual.data(), c.predicted.data(), count,
                                std::stoi(r.text("nparms")), &fs);
    std::string bad = check(r, "dfe", fs.dfe) + check(r, "n", fs.n) + check(r, "nobs", fs.nobs) +
                      check(r, "nmissa", fs.nmissa) + check(r, "nmissp", fs.nmissp) +
                      check(r, "nparms", fs.nparms) + check(r, "tss", fs.tss) + check(r, "sst", fs.sst, 1e-10);
    if (present != count - fs.nmissa) bad += " result=" + std::to_string(present);
    for (int i = 1; i <= ZTSS_NSTATS; ++i) {
      // R-squares divide by the corrected sum of squares, which loses digits to cancellation.
      const double rtol = i >= ZTSS_RSQUARE && i <= ZTSS_A_ADJ_RSQ ? 1e-10 : 1e-12;
      bad += check(r, ("stat" + std::to_string(i)).c_str(), ztssfs(&fs, i), rtol);
    }

    tssumm sm;
    EXPECT_EQ(ztssumm(c.actual.data(), count, &sm), sm.nvalid);
    bad += check(r, "count", sm.count) + check(r, "nvalid", sm.nvalid) + check(r, "nmiss", sm.nmiss) +
           check(r, "minrun", sm.minrun) + check(r, "maxrun", sm.maxrun) + check(r, "min", sm.min) +
           check(r, "max", sm.max) + check(r, "mean", sm.mean) + check(r, "std", sm.std);
    EXPECT_EQ(bad, "") << r.line;
  }
}

TEST(FitStats, EdgeCases) {
  hosted();
  const double miss = fmsd::missing();
  fitstats fs;
  // A zero actual value with a non-zero error has no percentage error; with a zero error it has 0.
  const double actual[] = {0, 0, 4, 5};
  const double predicted[] = {1, 0, 2, 5};
  EXPECT_EQ(ztssfit(miss, actual, predicted, 4, 1, &fs), 4);
  EXPECT_DOUBLE_EQ(ztssfs(&fs, ZTSS_MAPE), 100 * 0.5 / 3);
  EXPECT_DOUBLE_EQ(ztssfs(&fs, ZTSS_MAXPE), 50);
  EXPECT_EQ(ztssfs(&fs, ZTSS_MINPE), 0);
  EXPECT_TRUE(is_missing(ztssfs(&fs, 0)) && is_missing(ztssfs(&fs, 21)) && is_missing(ztssfs(nullptr, 1)));

  // Infinities and the largest doubles: nothing that is not a number gets out.
  const double extreme[] = {DBL_MAX, -DBL_MAX, std::numeric_limits<double>::infinity(), 1, miss, 2};
  const double guess[] = {-DBL_MAX, DBL_MAX, 1, std::numeric_limits<double>::infinity(), 3, 2};
  EXPECT_EQ(ztssfit(DBL_MAX, extreme, guess, 6, 1, &fs), 5);
  for (int i = 1; i <= ZTSS_NSTATS; ++i)
    EXPECT_TRUE(is_missing(ztssfs(&fs, i)) || std::isfinite(ztssfs(&fs, i))) << i;
  EXPECT_TRUE(is_missing(fs.sst));
  tssumm sm;
  EXPECT_EQ(ztssumm(extreme, 6, &sm), 5);
  EXPECT_TRUE(is_missing(sm.max) && is_missing(sm.mean) && is_missing(sm.std));
  EXPECT_EQ(sm.min, -DBL_MAX);

  EXPECT_EQ(ztssfit(miss, actual, predicted, -1, 0, &fs), -1);
  EXPECT_EQ(ztssfit(miss, nullptr, predicted, 4, 0, &fs), -1);
  EXPECT_EQ(ztssfit(miss, actual, predicted, 4, 0, nullptr), -1);
  EXPECT_EQ(ztssumm(nullptr, 3, &sm), -1);

  // A series with no value at all: every run is the whole series.
  const double none[] = {miss, miss, miss};
  EXPECT_EQ(ztssumm(none, 3, &sm), 0);
  EXPECT_TRUE(sm.minrun == 3 && sm.maxrun == 3 && is_missing(sm.min) && is_missing(sm.std));
}

TEST(FitStats, Comparison) {
  hosted();
  const double miss = fmsd::missing();
  EXPECT_EQ(ztssfc(0.9, 0.8, ZTSS_RSQUARE), 0);
  EXPECT_EQ(ztssfc(0.8, 0.9, ZTSS_RW_RSQ), 1);
  EXPECT_EQ(ztssfc(0.9, 0.8, ZTSS_SSE), 1);
  EXPECT_EQ(ztssfc(-3, 2, ZTSS_MPE), 0);
  EXPECT_EQ(ztssfc(2, 2, ZTSS_AIC), 0);
  EXPECT_EQ(ztssfc(miss, 2, ZTSS_MAE), 1);
  EXPECT_EQ(ztssfc(2, miss, ZTSS_MAE), 0);
  EXPECT_EQ(ztssfc(miss, miss, ZTSS_MAE), -1);
  EXPECT_EQ(ztssfc(1, 2, 0), -2);
  EXPECT_EQ(ztssfc(1, 2, 21), -2);
}

}  // namespace
