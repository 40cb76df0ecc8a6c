// The Dickey-Fuller distribution functions: what they decline, their clamps, monotony
// in the statistic for every n, continuity where the statistic's range or the band of n
// changes, and accuracy against simulated quantiles (tools/dfsim, extracted by
// tools/dffit.py) and published percentiles.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "fmsd/dickeyfuller.h"
#include "tests/csv_reader.h"

namespace {

using Fn = int (*)(double, int, int, double*);

struct Function {
  const char* name;
  Fn fn;
  bool rho;                // normalized statistic (wider range) or studentized
  std::vector<int> periods;
};

const std::vector<Function>& functions() {
  static const std::vector<Function> all = {
      {"zprbdf", zprbdf, true, {1, 2, 4, 6, 12}},    {"zprdfsm", zprdfsm, true, {1, 2, 4, 6, 12}},
      {"zprdftr", zprdftr, true, {1}},                {"zpdfszm", zpdfszm, false, {1, 2, 4, 6, 12}},
      {"zpdfssm", zpdfssm, false, {1, 2, 4, 6, 12}}, {"zpdfstr", zpdfstr, false, {1}},
  };
  return all;
}

int smallest_n(int d) { return d <= 2 ? 5 : 2 * d; }

double prob(Fn f, double s, int n, int d) {
  double p = -2;
  EXPECT_EQ(f(s, n, d, &p), 0) << "s " << s << " n " << n << " d " << d;
  return p;
}

// Every n up to where all bands have settled, then larger ones up to the asymptote.
std::vector<int> sample_sizes(int d) {
  std::vector<int> ns;
  for (int n = smallest_n(d); n <= 130; ++n) ns.push_back(n);
  for (int n : {150, 200, 300, 500, 1000, 2000, 5000, 10000, 100000, 1000000}) ns.push_back(n);
  return ns;
}

// Points are computed from their index, not accumulated: a running sum lands a hair
// inside a clamp end, where the step from the end is below the polynomials' rounding.
std::vector<double> grid(bool rho) {
  std::vector<double> s;
  if (rho) {
    for (int i = 0; i <= 6000; ++i) s.push_back(-45 + 0.02 * i);
  } else {
    for (int i = 0; i < 330; ++i) s.push_back(-45 + 0.1 * i);
    for (int i = 0; i <= 4800; ++i) s.push_back(-12 + 0.005 * i);
  }
  return s;
}

TEST(DickeyFuller, DeclinesUnsupportedPeriodsAndSmallSamples) {
  for (const auto& f : functions()) {
    for (int d : {-1, 0, 3, 5, 7, 11, 13}) {
      double p = 0.5;
      EXPECT_EQ(f.fn(-2, 100, d, &p), 1) << f.name << " d " << d;
      EXPECT_EQ(p, -1);
    }
    for (int d : {1, 2, 4, 6, 12}) {
      const bool listed = std::find(f.periods.begin(), f.periods.end(), d) != f.periods.end();
      double p = 0.5;
      EXPECT_EQ(f.fn(-2, 200, d, &p), listed ? 0 : 1) << f.name << " d " << d;
      if (!listed) {
        EXPECT_EQ(p, -1);
        continue;
      }
      EXPECT_EQ(f.fn(-2, smallest_n(d) - 1, d, &p), 1) << f.name << " d " << d;
      EXPECT_EQ(p, -1);
      EXPECT_EQ(f.fn(-2, smallest_n(d), d, &p), 0) << f.name << " d " << d;
      EXPECT_GT(p, 0);
      EXPECT_LT(p, 1);
    }
  }
}

TEST(DickeyFuller, TrendRhoDeclinesBelowItsLowestPieceForSmallSamples) {
  for (int n : {5, 6, 7, 9}) {
    double p = 0.5;
    EXPECT_EQ(zprdftr(-40.001, n, 1, &p), 1) << n;
    EXPECT_EQ(p, -1);
    EXPECT_EQ(zprdftr(-40, n, 1, &p), 0) << n;
    EXPECT_GT(p, 0);
  }
  // n = 8 is clamped, and so are the larger samples.
  EXPECT_EQ(prob(zprdftr, -50, 8, 1), prob(zprdftr, -30, 8, 1));
  EXPECT_EQ(prob(zprdftr, 50, 8, 1), prob(zprdftr, 15, 8, 1));
  EXPECT_EQ(prob(zprdftr, -50, 10, 1), prob(zprdftr, -40, 10, 1));
  EXPECT_EQ(prob(zprdftr, -50, 25, 1), prob(zprdftr, -40, 25, 1));
}

TEST(DickeyFuller, ExtremeStatisticsGetTheProbabilityAtTheClampEnd) {
  for (int n = 5; n <= 40; ++n) {
    const double end = n <= 10 ? 7.5 : n <= 29 ? 6.5 : 6;
    EXPECT_EQ(prob(zprbdf, 100, n, 1), prob(zprbdf, end, n, 1)) << n;
  }
  EXPECT_EQ(prob(zpdfstr, -50, 5, 1), prob(zpdfstr, -40, 5, 1));
  EXPECT_EQ(prob(zpdfstr, 5, 16, 1), prob(zpdfstr, 1, 16, 1));
  // Whatever the statistic, the answer is a probability.
  for (const auto& f : functions())
    for (int d : f.periods)
      for (double s : {-1e300, -1e6, 1e6, 1e300}) {
        const double p = prob(f.fn, s, 50, d);
        EXPECT_GT(p, 0) << f.name;
        EXPECT_LT(p, 1) << f.name;
      }
}

TEST(DickeyFuller, NonDecreasingInTheStatisticForEverySampleSize) {
  for (const auto& f : functions()) {
    const std::vector<double> s = grid(f.rho);
    for (int d : f.periods) {
      for (int n : sample_sizes(d)) {
        double last = 0;
        int bad = 0;
        double where = 0;
        for (double x : s) {
          double p;
          if (f.fn(x, n, d, &p) != 0) continue;  // the trend rho below -40 for n < 10
          if (p < last && bad++ == 0) where = x;
          last = p;
        }
        EXPECT_EQ(bad, 0) << f.name << " d " << d << " n " << n << " first at " << where;
      }
    }
  }
}

// The bands that miss 0.002 over 0.001-0.999 or 0.0005 over 0.01-0.10 against the
// simulation, with the largest errors docs/ACCURACY.md reports for them. No surface of
// their layouts can do better: the seasonal low bands step with n mod d, which no surface
// smooth in n follows, and the others have too few terms for their n or statistics
// (tools/dffit.py floor). n_to 0: no upper end.
struct Bound {
  const char* function;
  int d, n_from, n_to;
  double all, tail;
};
constexpr Bound kLooser[] = {
    {"zprbdf", 1, 5, 9, 0.0025, 0.0007}, {"zprbdf", 2, 5, 10, 0.0040, 0.0015},
    {"zprbdf", 4, 8, 59, 0.0049, 0.0009}, {"zprbdf", 6, 12, 89, 0.0048, 0.0005},
    {"zprbdf", 12, 24, 119, 0.0058, 0.0008}, {"zprdfsm", 2, 5, 8, 0.0026, 0.0007},
    {"zprdfsm", 4, 8, 16, 0.0049, 0.0009}, {"zprdfsm", 6, 12, 29, 0.0033, 0.0005},
    {"zprdfsm", 12, 24, 70, 0.0037, 0.0010}, {"zprdftr", 1, 5, 9, 0.0050, 0.0013},
    {"zpdfszm", 2, 5, 19, 0.0036, 0.0010}, {"zpdfszm", 4, 8, 39, 0.0046, 0.0009},
    {"zpdfszm", 6, 12, 59, 0.0045, 0.0009}, {"zpdfszm", 12, 24, 119, 0.0037, 0.0012},
    {"zpdfssm", 1, 20, 0, 0.0022, 0.0006}, {"zpdfssm", 2, 5, 19, 0.0027, 0.0007},
    {"zpdfssm", 4, 8, 39, 0.0047, 0.0008}, {"zpdfssm", 6, 12, 59, 0.0044, 0.0011},
    {"zpdfssm", 12, 24, 119, 0.0041, 0.0014},
};

Bound bound_of(const std::string& function, int d, int n) {
  for (const Bound& b : kLooser)
    if (function == b.function && d == b.d && n >= b.n_from && (b.n_to == 0 || n <= b.n_to)) return b;
  return {nullptr, d, n, n, 0.002, 0.0005};
}

// The largest step of a function between two statistics on either side of t.
double step_at(Fn f, double t, int n, int d) {
  return std::fabs(prob(f, t, n, d) - prob(f, std::nextafter(t, -100.0), n, d));
}

TEST(DickeyFuller, ContinuousWhereTheStatisticsRangeIsSplit) {
  struct Split {
    Fn f;
    int d, n_from, n_to;
    std::vector<double> at;
  };
  const std::vector<Split> splits = {
      {zprbdf, 1, 5, 9, {-8, std::nextafter(2.0, 3.0)}}, {zprdfsm, 1, 5, 10, {-7, std::nextafter(0.0, 1.0)}},
      {zprdfsm, 4, 8, 16, {-3}}, {zprdftr, 1, 5, 9, {10, -5, -15}},
      {zprdftr, 1, 10, 19, {5, std::nextafter(-10.0, 0.0)}}, {zprdftr, 1, 20, 400, {std::nextafter(-10.0, 0.0)}},
      {zpdfszm, 1, 5, 9, {1, std::nextafter(-1.0, 0.0)}}, {zpdfszm, 1, 10, 400, {-1}}, {zpdfszm, 2, 5, 400, {-1}},
      {zpdfszm, 4, 8, 39, {-1}}, {zpdfszm, 12, 24, 119, {-1}}, {zpdfssm, 1, 5, 9, {-0.5, -2.5}},
      {zpdfssm, 1, 10, 400, {-1}}, {zpdfssm, 2, 5, 19, {-1}}, {zpdfssm, 4, 8, 39, {-1}},
      {zpdfssm, 6, 12, 400, {-1}}, {zpdfssm, 12, 24, 119, {-1}}, {zpdfstr, 1, 5, 9, {-1, -3}},
      {zpdfstr, 1, 10, 400, {-2.5}},
  };
  for (const auto& sp : splits)
    for (int n = sp.n_from; n <= sp.n_to; n += n < 60 ? 1 : 17)
      for (double t : sp.at) EXPECT_LT(step_at(sp.f, t, n, sp.d), 0.002) << "d " << sp.d << " n " << n << " at " << t;
}

// Across the last n of a band and the first of the next, the functions may move by no
// more than they move between neighbouring n inside the bands, plus 0.002. The seasonal
// distributions step with n mod d, so "inside" spans a whole period on either side.
TEST(DickeyFuller, ContinuousWhereTheBandOfSampleSizesChanges) {
  const std::map<std::string, std::map<int, std::vector<int>>> last_of_band = {
      {"zprbdf", {{1, {9, 29}}, {2, {10, 19, 39}}, {4, {59}}, {6, {89}}, {12, {119}}}},
      {"zprdfsm", {{1, {10, 29}}, {2, {8, 14, 20, 26, 35, 50}}, {4, {16, 59}}, {6, {29, 45, 60}}, {12, {70, 120}}}},
      {"zprdftr", {{1, {9, 19}}}},
      {"zpdfszm", {{1, {9, 19}}, {2, {19}}, {4, {39}}, {6, {59}}, {12, {119}}}},
      {"zpdfssm", {{1, {9, 19}}, {2, {19}}, {4, {39}}, {6, {59}}, {12, {119}}}},
      {"zpdfstr", {{1, {9, 15}}}},
  };
  for (const auto& f : functions()) {
    std::vector<double> s;
    for (double x = f.rho ? -40 : -8; x <= (f.rho ? 20 : 5); x += f.rho ? 0.05 : 0.01) s.push_back(x);
    for (const auto& [d, ends] : last_of_band.at(f.name)) {
      for (int m : ends) {
        auto largest_move = [&](int a, int b) {
          double most = 0;
          for (double x : s) {
            double pa, pb;
            if (f.fn(x, a, d, &pa) != 0 || f.fn(x, b, d, &pb) != 0) continue;
            most = std::max(most, std::fabs(pa - pb));
          }
          return most;
        };
        double inside = 0;
        for (int k = std::max(m - d, smallest_n(d)); k < m; ++k) inside = std::max(inside, largest_move(k, k + 1));
        for (int k = m + 1; k <= m + d; ++k) inside = std::max(inside, largest_move(k, k + 1));
        // Where a band misses its target, its error can open the step as well.
        const Bound a = bound_of(f.name, d, m), b = bound_of(f.name, d, m + 1);
        const double allowed = a.function || b.function ? a.all + b.all : 0.002;
        EXPECT_LT(largest_move(m, m + 1), inside + allowed) << f.name << " d " << d << " between n " << m << " and " << m + 1;
      }
    }
  }
}

// Sample size n of a reference row; "inf" is taken as a million rows.
int rows_of(const CsvRow& r) { return r.text("n") == "inf" ? 1000000 : r.integer("n"); }

Fn by_name(const std::string& name) {
  for (const auto& f : functions())
    if (name == f.name) return f.fn;
  return nullptr;
}

// Simulated quantiles of each function's statistic at selected n of every band.
TEST(DickeyFuller, MatchesTheSimulatedDistribution) {
  const auto rows = read_csv("probability/dickeyfuller_simulated.csv");
  ASSERT_GT(rows.size(), 1000u);
  for (const CsvRow& r : rows) {
    const double want = r.num("p");
    const double got = prob(by_name(r.text("function")), r.num("statistic"), rows_of(r), r.integer("d"));
    const Bound b = bound_of(r.text("function"), r.integer("d"), rows_of(r));
    EXPECT_LE(std::fabs(got - want), want >= 0.01 && want <= 0.10 ? b.tail : b.all) << r.line;
  }
}

// Fuller's tables count observations: T = n + 1 for n regression rows, and the
// normalized statistic is T(rho^ - 1). The other sources count regression rows.
TEST(DickeyFuller, PublishedPercentilesComeOutAtTheirLevels) {
  const auto rows = read_csv("probability/dickeyfuller_published.csv");
  ASSERT_EQ(rows.size(), 200u);
  for (const CsvRow& r : rows) {
    const bool fuller = r.text("source").rfind("fuller", 0) == 0;
    const bool rho = r.text("function")[2] == 'r';
    const int t = rows_of(r), n = fuller && t < 1000000 ? t - 1 : t;
    const double statistic = fuller && rho ? r.num("statistic") * n / t : r.num("statistic");
    EXPECT_LT(std::fabs(prob(by_name(r.text("function")), statistic, n, r.integer("d")) - r.num("p")), 0.005) << r.line;
  }
}

}  // namespace
