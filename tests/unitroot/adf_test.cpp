// The Dickey-Fuller regressions against tools/unitroot_reference.py: tau against
// statsmodels' adfuller, estimates, rho and F against a numpy least-squares fit of the
// same rows (leaving out collinear columns), the seasonal test against numpy's fit of
// its two steps. Real series (Nile, lynx, AirPassengers, co2) and simulated ones.
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/unitroot/fixtures.h"

namespace {

constexpr int kMaxLag = 12;

std::string label(const CsvRow& r) { return r.text("case") + " variant " + r.text("variant") + " p " + r.text("p"); }

void expect_record(const etss_result& got, const CsvRow& want) {
  EXPECT_EQ(double{got.omega}, 0.0);
  EXPECT_TRUE(near(got.rho, want.num("rho"), 1e-9));
  EXPECT_TRUE(near(got.tau, want.num("tau"), 1e-9));
  if (want.has("tau_sm")) {
    EXPECT_TRUE(near(got.tau, want.num("tau_sm"), 1e-9)) << "statsmodels";
  }
  EXPECT_TRUE(near(got.tau_tprob, want.num("tprob"), 1e-9));
  EXPECT_TRUE(near(got.fstat, want.num("f"), 1e-9));
  EXPECT_TRUE(near(got.f_prob, want.num("fprob"), 1e-9));
  // Read from the published quantiles, which span 0.99 to 0.01.
  EXPECT_TRUE(want.has("f") ? got.f_dfprob >= 0.01 && got.f_dfprob <= 0.99 : is_missing(got.f_dfprob));
}

TEST(AugmentedDickeyFuller, EachTestMatchesStatsmodelsAndLeastSquares) {
  for (const auto& [name, y] : series()) {
    const int n = static_cast<int>(y.size());
    Context ctx(ETSS_REGRESSION, ETSS_TREND, 1, kMaxLag, {}, n);
    std::vector<double> diff(y.size());
    for (const CsvRow& want : read_table("adf.csv")) {
      if (want.text("case") != name) continue;
      SCOPED_TRACE(label(want));
      ctx->variant = want.integer("variant");
      ctx->p = want.integer("p");
      ctx->augmented = 1;
      ASSERT_EQ(etssdft(y.data(), n, &ctx.c, diff.data()), 0);
      const etss_regression& r = ctx->main;
      EXPECT_EQ(r.nobs, want.integer("nobs"));
      EXPECT_TRUE(near(r.sse_n, want.num("sigma2"), 1e-9));
      for (int i = 0; i < r.k; ++i) {
        const std::string at = std::to_string(i);
        EXPECT_TRUE(near(r.params[i].estimate, want.num("e" + at), 1e-10)) << "estimate " << i;
        EXPECT_TRUE(near(r.params[i].se, want.num("s" + at), 1e-9)) << "standard error " << i;
        EXPECT_EQ(r.params[i].kept, want.has("s" + at) ? 1 : 0);
      }
      expect_record(ctx->result, want);
      // The regression of y[t] on y[t-1], with rho - 1 formed after the fit, gives the
      // same statistics as the differenced form without lags.
      if (ctx->p == 0) {
        ctx->augmented = 0;
        ASSERT_EQ(etssdft(y.data(), n, &ctx.c, diff.data()), 0);
        expect_record(ctx->result, want);
      }
    }
  }
}

// etssur derives single mean and zero mean by deleting columns of the trend
// regression's cross products; the records must equal those of separate fits.
TEST(AugmentedDickeyFuller, LagListDerivesEveryVariantFromTheTrendFit) {
  std::vector<int> lags;
  for (int p = kMaxLag; p >= 0; --p) lags.push_back(p);
  for (const auto& [name, y] : series()) {
    const int n = static_cast<int>(y.size());
    Context ctx(ETSS_REGRESSION, ETSS_ZERO_MEAN, 1, kMaxLag, lags, n);
    std::vector<double> diff(y.size());
    ASSERT_EQ(etssur(y.data(), n, &ctx.c, diff.data()), 0);
    std::set<std::pair<int, int>> checked;
    for (const CsvRow& want : read_table("adf.csv")) {
      if (want.text("case") != name) continue;
      SCOPED_TRACE(label(want));
      expect_record(ctx->results[want.integer("variant")][kMaxLag - want.integer("p")], want);
      checked.insert({want.integer("variant"), want.integer("p")});
    }
    // Orders without a usable row ("blocks" beyond two lags) store missing records.
    for (int i = 0; i <= kMaxLag; ++i)
      for (int v = 0; v < 3; ++v)
        if (checked.count({v, lags[i]}) == 0) {
          EXPECT_TRUE(is_missing(ctx->results[v][i].rho) && ctx->results[v][i].verdict == 0) << name;
        }
  }
}

TEST(AugmentedDickeyFuller, CollinearRegressorsAreDropped) {
  // In "blocks" every usable row has dy[t-1] = 1: the lag duplicates the intercept.
  const std::vector<double>& y = series().at("blocks");
  const int n = static_cast<int>(y.size());
  Context ctx(ETSS_REGRESSION, ETSS_SINGLE_MEAN, 1, 2, {}, n);
  std::vector<double> diff(y.size());
  ctx->p = 1;
  ASSERT_EQ(etssdft(y.data(), n, &ctx.c, diff.data()), 0);
  const etss_regression& r = ctx->main;
  EXPECT_EQ(r.rank, 2);
  EXPECT_EQ(r.dfe, r.nobs - 2);
  EXPECT_EQ(std::vector<int>(r.dropped, r.dropped + 3), (std::vector<int>{0, 0, 1}));
  // Without the intercept the lag is no longer redundant.
  ctx->variant = ETSS_ZERO_MEAN;
  ASSERT_EQ(etssdft(y.data(), n, &ctx.c, diff.data()), 0);
  EXPECT_EQ(ctx->main.rank, 2);

  // Runs of (3, w) and a gap: y[t-1] = 3 on every usable row, so the level itself
  // goes, and with it every statistic.
  std::vector<double> z;
  for (int i = 0; i < 40; ++i) z.insert(z.end(), {3.0, 1.0 + 0.37 * i - 0.01 * i * i, fmsd::missing()});
  ctx->variant = ETSS_SINGLE_MEAN;
  ctx->p = 0;
  ASSERT_EQ(etssdft(z.data(), static_cast<int>(z.size()), &ctx.c, diff.data()), 0);
  EXPECT_EQ(ctx->main.dropped[1], 1);
  EXPECT_TRUE(is_missing(ctx->result.rho) && is_missing(ctx->result.tau) && is_missing(ctx->result.fstat));
  EXPECT_EQ(ctx->result.verdict, 0);
}

TEST(SeasonalDickeyFuller, TwoStepFitMatchesLeastSquares) {
  for (const CsvRow& want : read_table("seasonal.csv")) {
    SCOPED_TRACE(label(want) + " d " + want.text("d"));
    const std::vector<double>& y = series().at(want.text("case"));
    const int n = static_cast<int>(y.size());
    Context ctx(ETSS_REGRESSION, want.integer("variant"), want.integer("d"), 3, {}, n);
    std::vector<double> diff(y.size());
    ctx->p = want.integer("p");
    ctx->augmented = ctx->p > 0;
    ASSERT_EQ(etssdft(y.data(), n, &ctx.c, diff.data()), 0);
    EXPECT_EQ(ctx->main.nobs, want.integer("nobs"));
    EXPECT_TRUE(near(ctx->result.rho, want.num("rho"), 1e-9));
    EXPECT_TRUE(near(ctx->result.tau, want.num("tau"), 1e-9));
    EXPECT_TRUE(near(ctx->main.sse_n, want.num("sigma2"), 1e-9));
    EXPECT_TRUE(is_missing(ctx->result.fstat) && is_missing(ctx->result.f_dfprob)) << "no F beyond d = 1";
  }
  // Over a lag list each variant is a test of its own; there is no trend variant.
  const std::vector<double>& y = series().at("co2");
  Context ctx(ETSS_REGRESSION, ETSS_SINGLE_MEAN, 12, 3, {0, 1, 2, 3}, static_cast<int>(y.size()));
  std::vector<double> diff(y.size());
  ASSERT_EQ(etssur(y.data(), static_cast<int>(y.size()), &ctx.c, diff.data()), 0);
  EXPECT_EQ(ctx->variant, ETSS_SINGLE_MEAN) << "the context's own settings are kept";
  for (const CsvRow& want : read_table("seasonal.csv"))
    if (want.text("case") == "co2") {
      EXPECT_TRUE(near(ctx->results[want.integer("variant")][want.integer("p")].tau, want.num("tau"), 1e-9));
    }
  for (int i = 0; i < 4; ++i) EXPECT_TRUE(is_missing(ctx->results[ETSS_TREND][i].tau));
}

}  // namespace
