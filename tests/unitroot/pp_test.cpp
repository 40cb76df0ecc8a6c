// Phillips-Perron statistics against Hamilton's formulas on a numpy fit (all variants,
// series with gaps too) and against R's urca and tseries after rescaling their
// corrections to the finite-sample convention, from tools/unitroot_reference.py.
#include <cmath>
#include <string>
#include <vector>

#include "tests/unitroot/fixtures.h"

namespace {

constexpr int kMaxLag = 8;

// Without probability tables only statistics beyond +/-100 get a probability, so the
// status of the last lookup may then be any of 0 to 3.
bool acceptable(int status) { return status == 0 || (status > 0 && status <= 3 && !df_tables_present()); }

TEST(PhillipsPerron, EveryVariantMatchesHamiltonsFormulas) {
  std::vector<int> lags;
  for (int l = 0; l <= kMaxLag; ++l) lags.push_back(l);
  const std::vector<CsvRow> rows = read_table("pp.csv");
  for (const auto& [name, y] : series()) {
    const int n = static_cast<int>(y.size());
    std::vector<double> diff(y.size()), est(3);
    // All three variants from one trend fit, and each on its own.
    Context all(ETSS_PHILLIPS_PERRON, ETSS_SINGLE_MEAN, 1, kMaxLag, lags, n);
    const int status = etssur2(y.data(), n, &all.c, diff.data());
    for (int variant = 0; variant < 3; ++variant) {
      Context one(ETSS_PHILLIPS_PERRON, variant, 1, kMaxLag, lags, n);
      bool fitted = false;
      for (const CsvRow& want : rows) {
        if (want.text("case") != name || want.integer("variant") != variant) continue;
        SCOPED_TRACE(name + " variant " + std::to_string(variant) + " lag " + want.text("lag"));
        if (!fitted) {
          ASSERT_TRUE(acceptable(status)) << status;
          ASSERT_TRUE(acceptable(etssppt(y.data(), n, &one.c, est.data(), diff.data())));
          EXPECT_EQ(one->main.nobs, want.integer("nobs"));
          // The intercept comes back to the series' units from a fit on shifted levels,
          // which costs it up to about 1e-10 relative.
          for (int i = 0; i <= variant; ++i) EXPECT_TRUE(near(est[i], want.num("e" + std::to_string(i)), 1e-9));
          fitted = true;
        }
        for (const etss_result& got : {one->results[variant][want.integer("lag")], all->results[variant][want.integer("lag")]}) {
          EXPECT_TRUE(near(got.omega, want.num("omega"), 1e-9));
          EXPECT_TRUE(near(got.rho, want.num("zrho"), 1e-9));
          EXPECT_TRUE(near(got.tau, want.num("ztau"), 1e-9));
          EXPECT_TRUE(is_missing(got.fstat) && is_missing(got.f_prob) && is_missing(got.f_dfprob));
        }
      }
    }
  }
}

// urca and tseries report the same long-run variance; their corrections differ from
// the finite-sample one only by the sum of squares they scale by (docs/ACCURACY.md).
TEST(PhillipsPerron, AgreesWithUrcaAndTseriesAfterConversion) {
  const std::vector<CsvRow> rows = read_table("pp_r.csv");
  ASSERT_FALSE(rows.empty());
  for (const CsvRow& want : rows) {
    SCOPED_TRACE(want.text("case") + " " + want.text("peer") + " " + want.text("model") + " lag " + want.text("lag"));
    const std::vector<double>& y = series().at(want.text("case"));
    const int n = static_cast<int>(y.size());
    const int variant = want.text("model") == "trend" ? ETSS_TREND : ETSS_SINGLE_MEAN;
    Context ctx(ETSS_PHILLIPS_PERRON, variant, 1, want.integer("lag"), {want.integer("lag")}, n);
    std::vector<double> diff(y.size()), est(3);
    ASSERT_GE(etssppt(y.data(), n, &ctx.c, est.data(), diff.data()), 0);
    const etss_result& got = ctx->results[variant][0];
    EXPECT_EQ(ctx->main.nobs, want.integer("n"));
    EXPECT_TRUE(near(est[variant], want.num("alpha"), 1e-10));
    EXPECT_TRUE(near(got.omega * got.omega, want.num("omega2"), 1e-9));
    EXPECT_TRUE(near(got.rho, want.num("zalpha_conv"), 1e-9));
    EXPECT_TRUE(near(got.tau, want.num("ztau_conv"), 1e-9));
  }
}

TEST(PhillipsPerron, LagsWithoutResidualPairsAreNotUsed) {
  // Three values, then two gaps: residuals sit at positions 1 and 2 of every five, so
  // no pair lies 2 or 3 apart and the largest usable lag falls from 3 to 1; lag 4 is
  // beyond the context's maximum anyway.
  hosted();
  std::vector<double> y;
  for (int i = 0; i < 40; ++i)
    y.insert(y.end(), {std::sin(i), std::sin(i) + std::cos(3.0 * i), 0.5 * std::cos(i), fmsd::missing(), fmsd::missing()});
  const int n = static_cast<int>(y.size());
  Context ctx(ETSS_PHILLIPS_PERRON, ETSS_SINGLE_MEAN, 1, 3, {1, 2, 3, 4}, n);
  std::vector<double> diff(y.size()), est(3);
  ASSERT_GE(etssppt(y.data(), n, &ctx.c, est.data(), diff.data()), 0);
  const etss_result* r = ctx->results[ETSS_SINGLE_MEAN];
  EXPECT_FALSE(is_missing(r[0].rho));
  for (int i = 1; i < 4; ++i)
    EXPECT_TRUE(is_missing(r[i].omega) && is_missing(r[i].rho) && is_missing(r[i].tau) && r[i].verdict == 0) << i;
}

}  // namespace
