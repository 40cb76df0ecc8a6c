// Properties of the unit-root tests that need no reference program: invariance to the
// units and the origin of the series, every failure code on a series that provokes
// it, memory exhaustion in etssurm, the probability lookup on constructed inputs, and
// the interpolation between tabled periods against the tables on either side.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "tests/unitroot/fixtures.h"
#include "unitroot/etssur.h"

namespace {

using fmsd::etss::getdfpval;
using fmsd::etss::interpol;
using fmsd::etss::TableFunction;

const std::vector<int> kLags = {0, 1, 4, 12};

// Dickey-Fuller records of the three variants for each lag, then Phillips-Perron's.
std::vector<etss_result> all_records(const std::vector<double>& y) {
  const int n = static_cast<int>(y.size());
  std::vector<double> diff(y.size());
  std::vector<etss_result> out;
  Context df(ETSS_REGRESSION, ETSS_TREND, 1, 12, kLags, n);
  Context pp(ETSS_PHILLIPS_PERRON, ETSS_TREND, 1, 12, kLags, n);
  EXPECT_EQ(etssur(y.data(), n, &df.c, diff.data()), 0);
  EXPECT_GE(etssur2(y.data(), n, &pp.c, diff.data()), 0);
  for (Context* c : {&df, &pp})
    for (etss_result* records : c->c.results) out.insert(out.end(), records, records + kLags.size());
  return out;
}

// Every figure of a record relative to its own size; omega, a standard deviation,
// after dividing out the scale.
void expect_same(const etss_result& got, const etss_result& want, double scale, const std::string& what) {
  auto same = [&](double a, double b, const char* field) {
    if (is_missing(a) && is_missing(b)) return;
    EXPECT_TRUE(!is_missing(a) && !is_missing(b) && std::fabs(a - b) <= 1e-9 * std::fabs(b))
        << what << " " << field << ": " << a << " against " << b;
  };
  same(got.omega / scale, want.omega, "omega");
  same(got.rho, want.rho, "rho");
  same(got.rho_prob, want.rho_prob, "rho probability");
  same(got.tau, want.tau, "tau");
  same(got.tau_tprob, want.tau_tprob, "t probability");
  same(got.tau_prob, want.tau_prob, "tau probability");
  same(got.fstat, want.fstat, "F");
  same(got.f_prob, want.f_prob, "F probability");
  same(got.f_dfprob, want.f_dfprob, "F table probability");
  EXPECT_EQ(got.verdict, want.verdict) << what;
}

TEST(UnitRootProperties, StatisticsDoNotDependOnUnitsOrOrigin) {
  for (const char* name : {"rw200", "co2", "lynx", "gaps"}) {
    const std::vector<double>& y = series().at(name);
    const std::vector<etss_result> base = all_records(y);
    const std::size_t per_variant = kLags.size();
    for (int k = -6; k <= 6; ++k) {
      const double scale = std::pow(10.0, k);
      std::vector<double> scaled = y;
      for (double& v : scaled)
        if (!is_missing(v)) v *= scale;
      const std::vector<etss_result> got = all_records(scaled);
      for (std::size_t i = 0; i < got.size(); ++i)
        expect_same(got[i], base[i], scale, std::string(name) + " times 1e" + std::to_string(k) + " record " + std::to_string(i));
    }
    // A shift moves the zero-mean regression's origin, so only the other two hold.
    for (double shift : {-250.0, 1000.0}) {
      std::vector<double> shifted = y;
      for (double& v : shifted)
        if (!is_missing(v)) v += shift;
      const std::vector<etss_result> got = all_records(shifted);
      for (std::size_t i = 0; i < got.size(); ++i)
        if ((i / per_variant) % 3 != ETSS_ZERO_MEAN)
          expect_same(got[i], base[i], 1.0, std::string(name) + " plus " + std::to_string(shift) + " record " + std::to_string(i));
    }
  }
}

struct Failure {
  const char* what;
  std::vector<double> y;
  int method, variant, d, p, augmented;
  int expected;
};

TEST(UnitRootProperties, EveryFailureCodeOnASeriesThatProvokesIt) {
  const double m = (hosted(), fmsd::missing());
  std::vector<double> walk(80), linear(80), zero_lag;
  double v = 0;
  for (int t = 0; t < 80; ++t) {
    walk[t] = v += std::sin(1.7 * t * t);
    linear[t] = 2.0 * t + 1;
  }
  const std::vector<double> flat(50, 7.25);
  std::vector<double> huge = walk;
  for (double& x : huge) x *= 1e80;
  // Each usable row starts a run at 0: y[t-1] = 0 everywhere the zero-mean fit looks.
  for (int i = 0; i < 30; ++i) zero_lag.insert(zero_lag.end(), {0.0, 1.0 + (i % 7), m});
  const std::vector<Failure> cases = {
      {"variant 3", walk, 1, 3, 1, 0, 1, ETSS_BAD_SETTINGS},
      {"trend with d = 4", walk, 1, 2, 4, 0, 0, ETSS_BAD_SETTINGS},
      {"more lags than the context holds", walk, 1, 1, 1, 9, 1, ETSS_BAD_SETTINGS},
      {"level form with lags", walk, 1, 1, 1, 2, 0, ETSS_BAD_SETTINGS},
      {"squares beyond 2^512", huge, 1, 1, 1, 2, 1, ETSS_OVERFLOW},
      {"four values for five regressors", {1, 3, 2, 5}, 1, 2, 1, 2, 1, ETSS_TOO_FEW},
      {"constant", flat, 1, 1, 1, 0, 1, ETSS_NO_LEVEL_VARIATION},
      {"straight line", linear, 1, 2, 1, 1, 1, ETSS_NO_DIFFERENCE_VARIATION},
      {"seasonal straight line", linear, 1, 1, 4, 1, 1, ETSS_NO_DIFFERENCE_VARIATION},
      {"lagged level all zero", zero_lag, 1, 0, 1, 0, 1, ETSS_SWEEP_FAILED},
  };
  for (const Failure& f : cases) {
    const int n = static_cast<int>(f.y.size());
    Context ctx(f.method, 1, f.d, 4, {}, n);
    ASSERT_EQ(ctx.status, 0) << f.what;
    ctx->variant = f.variant;
    ctx->p = f.p;
    ctx->augmented = f.augmented;
    std::memset(&ctx->result, 0x5A, sizeof ctx->result);
    const etss_result before = ctx->result;
    std::vector<double> diff(f.y.size());
    EXPECT_EQ(etssdft(f.y.data(), n, &ctx.c, diff.data()), f.expected) << f.what;
    EXPECT_EQ(std::memcmp(&before, &ctx->result, sizeof before), 0) << f.what << ": the record was touched";
  }

  std::vector<double> diff(80), est(3);
  Context df(ETSS_REGRESSION, ETSS_TREND, 1, 4, {4}, 80);
  df->nlags = -1;
  EXPECT_EQ(etssur(walk.data(), 80, &df.c, diff.data()), ETSS_BAD_SETTINGS);
  EXPECT_EQ(etssppt(walk.data(), 80, &df.c, est.data(), diff.data()), ETSS_BAD_SETTINGS) << "not made for it";
  Context pp(ETSS_PHILLIPS_PERRON, ETSS_TREND, 1, 4, {4}, 60);
  EXPECT_EQ(etssppt(walk.data(), 61, &pp.c, est.data(), diff.data()), ETSS_BAD_SETTINGS) << "longer than allocated";
  // The differences must outnumber the regressors and the largest lag together.
  EXPECT_EQ(etssppt(walk.data(), 8, &pp.c, est.data(), diff.data()), ETSS_TOO_FEW);
  EXPECT_GE(etssppt(walk.data(), 9, &pp.c, est.data(), diff.data()), 0);
  EXPECT_EQ(etssur2(flat.data(), 50, &pp.c, diff.data()), ETSS_NO_LEVEL_VARIATION);
  pp->variant = 3;
  EXPECT_EQ(etssppt(walk.data(), 60, &pp.c, est.data(), diff.data()), ETSS_BAD_SETTINGS);
}

TEST(UnitRootProperties, ContextCreationSurvivesEveryAllocationFailure) {
  fmsd::host::Pool& pool = hosted().pool();
  const int lags[3] = {0, 1, 2};
  for (int method : {ETSS_REGRESSION, ETSS_PHILLIPS_PERRON})
    for (long nth = 1;; ++nth) {
      const std::size_t live = pool.live_blocks();
      etss_context c;
      pool.fail_nth(nth);
      const int status = etssurm(1, method, 1, 4, 2, 3, lags, 0.05, 1, 100, &c);
      pool.clear_faults();
      pool.reset_failed();
      if (status == 0) {
        EXPECT_GT(nth, 8) << "fewer allocations than expected";
        etssurm(0, 0, 0, 0, 0, 0, nullptr, 0, 0, 0, &c);
        EXPECT_EQ(pool.live_blocks(), live);
        break;
      }
      EXPECT_EQ(pool.live_blocks(), live) << "allocation " << nth << " failed and left blocks behind";
    }
  etss_context c;
  EXPECT_EQ(etssurm(1, 1, 1, 1, -1, 0, nullptr, 0.05, 1, 10, &c), ETSS_BAD_SETTINGS);
  EXPECT_EQ(etssurm(0, 0, 0, 0, 0, 0, nullptr, 0, 0, 0, &c), 0) << "a refused context can still be freed";
}

etss_result record(double rho, double tau, double f) {
  const double m = fmsd::missing();
  return {0, rho, m, tau, m, m, f, m, m, 0};
}

TEST(DickeyFullerLookup, ExtremeAndMissingStatisticsAndTheFTables) {
  hosted();
  const double m = fmsd::missing();
  etss_result r = record(-150, 120, 0.1);
  EXPECT_EQ(getdfpval(1.0, 100, 1, 1, 0.05, &r), 0);
  EXPECT_EQ(double{r.rho_prob}, 0.0001);
  EXPECT_EQ(double{r.tau_prob}, 0.9999);
  EXPECT_EQ(r.verdict, -2 + 2);
  EXPECT_EQ(double{r.f_dfprob}, 0.99) << "below the first quantile of the row";

  r = record(m, -100, 9.0);
  EXPECT_EQ(getdfpval(1.0, 100, 2, 1, 0.05, &r), 1);
  EXPECT_TRUE(is_missing(r.rho_prob));
  EXPECT_EQ(r.verdict, -2) << "the status of the one evaluated statistic";
  EXPECT_EQ(double{r.f_dfprob}, 0.01) << "above the last quantile of the trend row";

  r = record(m, m, m);
  EXPECT_EQ(getdfpval(1.0, 100, 0, 1, 0.05, &r), 3);
  EXPECT_EQ(r.verdict, 0);
  EXPECT_TRUE(is_missing(r.f_dfprob));

  // Halfway between the 0.1 and 0.05 quantiles of the single-mean rows: n = 80 reads
  // the row for 51 to 100 (3.86, 4.71), n = 600 the last row (3.78, 4.59).
  r = record(200, 200, (3.86 + 4.71) / 2);
  getdfpval(1.0, 80, 1, 1, 0.05, &r);
  EXPECT_NEAR(double{r.f_dfprob}, 0.075, 1e-15);
  r.fstat = (3.78 + 4.59) / 2;
  getdfpval(1.0, 600, 1, 1, 0.05, &r);
  EXPECT_NEAR(double{r.f_dfprob}, 0.075, 1e-15);
  r.fstat = 5.0;
  getdfpval(1.0, 100, 1, 2, 0.05, &r);
  EXPECT_TRUE(is_missing(r.f_dfprob)) << "no F table for seasonal periods";

  // Period 0 has no distribution; the trend variant exists only for d = 1.
  r = record(-5, -2, m);
  EXPECT_EQ(getdfpval(1.0, 100, 1, 0, 0.05, &r), 3);
  EXPECT_EQ(getdfpval(1.0, 100, 2, 4, 0.05, &r), -1);
}

// A table whose normal deviate is a quartic in ln d: the interpolation through the five
// tabled periods must reproduce it at every period between them.
double quartic(double stat, int d) {
  const double x = std::log(static_cast<double>(d));
  return -0.8 + 0.3 * stat + x * (0.45 + x * (-0.2 + x * (0.05 - 0.01 * x)));
}
int quartic_table(double stat, int, int d, double* prob) {
  *prob = 0.5 * std::erfc(-quartic(stat, d) / std::sqrt(2.0));
  return 0;
}
int declining_at_6(double stat, int n, int d, double* prob) {
  *prob = -1;
  return d == 6 ? 1 : quartic_table(stat, n, d, prob);
}

TEST(DickeyFullerLookup, InterpolationBetweenTabledPeriods) {
  hosted();
  for (int d = 3; d <= 11; ++d)
    for (double stat : {-6.0, -1.5, 0.0, 2.5}) {
      double p = -1;
      ASSERT_EQ(interpol(quartic_table, stat, 100, d, &p), 0);
      // The weights are stored to ten significant digits; the fourth power of ln 11
      // makes that a few parts in 1e8.
      EXPECT_NEAR(p, 0.5 * std::erfc(-quartic(stat, d) / std::sqrt(2.0)), 5e-8) << "d " << d << " stat " << stat;
    }
  double p = -1;
  EXPECT_EQ(interpol(quartic_table, 30.0, 100, 5, &p), 0);
  EXPECT_EQ(p, 0.9999) << "clamped";
  EXPECT_EQ(interpol(quartic_table, -30.0, 100, 5, &p), 0);
  EXPECT_EQ(p, 0.0001);
  EXPECT_EQ(interpol(quartic_table, 0.0, 23, 5, &p), 1) << "too short";
  EXPECT_EQ(interpol(declining_at_6, 0.0, 100, 5, &p), 1);
}

TEST(DickeyFullerLookup, VerdictsFromTheDistributionFunctions) {
  if (!df_tables_present()) GTEST_SKIP() << "the Dickey-Fuller distribution functions decline every call";
  const std::vector<double>& y = series().at("quarterly");
  const int n = static_cast<int>(y.size());
  for (int d : {1, 3, 4}) {
    Context ctx(ETSS_REGRESSION, ETSS_SINGLE_MEAN, d, 2, {}, n);
    std::vector<double> diff(y.size());
    ctx->p = 1;
    ASSERT_EQ(etssdft(y.data(), n, &ctx.c, diff.data()), 0);
    const etss_result& r = ctx->result;
    ASSERT_FALSE(is_missing(r.rho_prob) || is_missing(r.tau_prob)) << "d " << d;
    EXPECT_TRUE(r.rho_prob > 0 && r.rho_prob <= 0.9999 && r.tau_prob > 0 && r.tau_prob <= 0.9999);
    auto status = [](double stat, double prob) { return stat <= -100 ? -2 : stat >= 100 ? 2 : prob > 0.05 ? 1 : -1; };
    EXPECT_EQ(r.verdict, status(r.rho, r.rho_prob) + status(r.tau, r.tau_prob)) << "d " << d;
  }
  // Between the tabled periods the interpolation needs more than 23 rows.
  Context ctx(ETSS_REGRESSION, ETSS_SINGLE_MEAN, 3, 0, {}, 26);
  std::vector<double> diff(26);
  ctx->augmented = 0;
  ASSERT_EQ(etssdft(y.data(), 26, &ctx.c, diff.data()), 0);
  EXPECT_TRUE(is_missing(ctx->result.rho_prob) && is_missing(ctx->result.tau_prob));
  EXPECT_EQ(ctx->result.verdict, 0);
}

// Probabilities of the periods without tables of their own, interpolated in ln d
// through the tabled periods, against the distribution functions of the tabled periods
// on either side: the interpolated probability must lie between theirs. Where the
// probability is not monotone in d (the simulated distributions are not, for the single
// mean rho between d = 4 and 12), a quartic through five periods swings past its
// neighbours a little, so the test allows 0.003; and it keeps to statistics where every
// tabled probability is between 0.001 and 0.999: beyond that the deviates of the periods
// are far apart (some clamped, some not) and the quartic through them means little.
double tabled(TableFunction* f, double s, int n, int d) {
  double p = -1;
  EXPECT_EQ(f(s, n, d, &p), 0) << "d " << d << " n " << n << " s " << s;
  return p;
}

bool central(TableFunction* f, double s, int n) {
  for (int d : {1, 2, 4, 6, 12}) {
    const double p = tabled(f, s, n, d);
    if (p < 0.001 || p > 0.999) return false;
  }
  return true;
}

TEST(DickeyFullerInterpolation, LiesBetweenTheNeighbouringTabledPeriods) {
  struct Case {
    const char* name;
    TableFunction* f;
    double lo, hi, step;
  };
  const Case cases[] = {{"zprbdf", zprbdf, -30, 10, 0.25},
                        {"zprdfsm", zprdfsm, -35, 8, 0.25},
                        {"zpdfszm", zpdfszm, -5, 4, 0.02},
                        {"zpdfssm", zpdfssm, -6, 3, 0.02}};
  for (const Case& c : cases)
    for (int n : {24, 25, 30, 40, 60, 100, 150, 300, 1000, 5000})
      for (int d = 3; d <= 11; ++d) {
        const int below = d == 3 ? 2 : d == 5 ? 4 : 6;
        const int above = d == 3 ? 4 : d == 5 ? 6 : 12;
        if (d == 4 || d == 6) continue;
        for (int i = 0; c.lo + i * c.step <= c.hi; ++i) {
          const double s = c.lo + i * c.step;
          if (!central(c.f, s, n)) continue;
          double p = -1;
          ASSERT_EQ(interpol(c.f, s, n, d, &p), 0) << c.name;
          const double a = tabled(c.f, s, n, below), b = tabled(c.f, s, n, above);
          EXPECT_GE(p, std::min(a, b) - 0.003) << c.name << " d " << d << " n " << n << " s " << s;
          EXPECT_LE(p, std::max(a, b) + 0.003) << c.name << " d " << d << " n " << n << " s " << s;
        }
      }
}

}  // namespace
