// The log-scale gamma and beta family against mpmath references that reach tails far
// below 1e-300000 (tools/logscale_reference.py), and its domain and edge values.
//
// FMSD_ACCURACY_TABLE=1 prints the maximum relative error of each output per region as
// a Markdown table.

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "fmsd/probability.h"
#include "tests/csv_reader.h"

namespace {

constexpr double kHuge = 1.7976931348623157e308;
constexpr double kPromise = 1e-12;

// The error of a log tail relative to itself, with logs below 1e-300 in magnitude (an
// underflowing ln(1 - tiny)) compared at that scale.  A log density passes through 0
// wherever the density is 1, so below 1 in magnitude its error is taken as absolute.
double relerr(double got, double want, double floor = 1e-300) {
  if (got == want) return 0;
  return std::fabs(got - want) / std::fmax(std::fabs(want), floor);
}

double denserr(double got, double want) { return relerr(got, want, 1); }

// Checks every row of a reference file; eval returns the status and fills ln P, ln Q,
// ln density.
template <typename Eval>
void check_file(const char* name, int nargs, Eval eval) {
  const auto rows = read_csv(std::string("probability/") + name + ".csv");
  ASSERT_GT(rows.size(), 1000u) << name;
  const char* outputs[3] = {"lnp", "lnq", "lnd"};
  // region -> points and the worst error of each output
  std::map<std::string, std::pair<int, std::array<double, 3>>> worst;
  for (const CsvRow& r : rows) {
    std::vector<double> v;  // the arguments, then ln P, ln Q, ln density
    for (std::size_t i = 1; i < r.cell.size(); ++i) v.push_back(r.num(i));
    double got[3];
    const int status = eval(v.data(), got);
    EXPECT_EQ(status, 0) << name << ": " << r.line;
    auto& w = worst[r.text("region")];
    ++w.first;
    for (int k = 0; k < 3; ++k) {
      const double e = k == 2 ? denserr(got[k], v[nargs + k]) : relerr(got[k], v[nargs + k]);
      EXPECT_LE(e, kPromise) << name << ' ' << outputs[k] << ": " << r.line << ": " << got[k];
      w.second[k] = std::fmax(w.second[k], e);
    }
  }
  if (std::getenv("FMSD_ACCURACY_TABLE") != nullptr)
    for (const auto& [region, w] : worst)
      std::printf("| %s | %s | %d | %.1e | %.1e | %.1e |\n", name, region.c_str(), w.first, w.second[0], w.second[1],
                  w.second[2]);
}

int gamma(double x, double a, double out[3]) {
  zloggam_rec r{x, a, 0, 0, 0, 0};
  const int status = zloggam(&r);
  out[0] = r.lnp;
  out[1] = r.lnq;
  out[2] = r.lndensity;
  return status;
}

int beta(double x, double a, double b, double out[3]) {
  zlogbet_rec r{x, a, b, 0, 0, 0, 0};
  const int status = zlogbet(&r);
  out[0] = r.lnp;
  out[1] = r.lnq;
  out[2] = r.lndensity;
  return status;
}

TEST(Logscale, MatchesReferencesDownToTheDeepestTails) {
  if (std::getenv("FMSD_ACCURACY_TABLE") != nullptr)
    std::printf("| Reference file | Region | Points | ln P | ln Q | ln density |\n|---|---|---|---|---|---|\n");
  check_file("logscale_gamma", 2, [](const double* v, double* out) { return gamma(v[0], v[1], out); });
  check_file("logscale_beta", 3, [](const double* v, double* out) { return beta(v[0], v[1], v[2], out); });
}

TEST(Logscale, DensityRoutinesMatchReferences) {
  for (const CsvRow& r : read_csv("probability/logscale_gamma.csv"))
    EXPECT_LE(denserr(zldngam(r.num("x"), r.num("a")), r.num("lnd")), kPromise) << r.line;
  for (const CsvRow& r : read_csv("probability/logscale_beta.csv"))
    EXPECT_LE(denserr(zldnbet(r.num("x"), r.num("a"), r.num("b")), r.num("lnd")), kPromise) << r.line;
}

TEST(Logscale, OutsideTheDomainTheStatusIsOneAndTheOutputsStay) {
  const double nan = std::nan("");
  for (const auto& [x, a] : std::vector<std::pair<double, double>>{
           {-1e-300, 2}, {1, 0.99e-9}, {1, 0}, {1, -1}, {nan, 1}, {1, nan}, {HUGE_VAL, 1}, {1, HUGE_VAL}}) {
    zloggam_rec r{x, a, 7, 7, 7, 0};
    EXPECT_EQ(zloggam(&r), 1) << x << ' ' << a;
    EXPECT_EQ(r.lnp + r.lnq + r.lndensity, 21);
  }
  for (const auto& [x, a, b] : std::vector<std::tuple<double, double, double>>{
           {-1e-300, 2, 2}, {1.0000000000000002, 2, 2}, {0.5, 0.99e-9, 1}, {0.5, 1, 0}, {nan, 1, 1},
           {0.5, HUGE_VAL, 1}}) {
    zlogbet_rec r{x, a, b, 7, 7, 7, 0};
    EXPECT_EQ(zlogbet(&r), 1) << x << ' ' << a << ' ' << b;
    EXPECT_EQ(r.lnp + r.lnq + r.lndensity, 21);
  }
  EXPECT_TRUE(std::isnan(zldngam(1, 0.5e-9)));
  EXPECT_TRUE(std::isnan(zldnbet(0.5, 1, -2)));
  EXPECT_EQ(zldngam(-1, 2), -kHuge);
  EXPECT_EQ(zldnbet(1.5, 2, 2), -kHuge);
}

TEST(Logscale, ToleranceIsRaisedToTheMinimumAndHonoured) {
  zloggam_rec r{3, 2, 0, 0, 0, 0};
  ASSERT_EQ(zloggam(&r), 0);
  EXPECT_EQ(r.tol, 5.551115123125785e-16);
  // A looser tolerance stops the series early but stays within it.
  zloggam_rec loose{3, 2.5, 0, 0, 0, 1e-6};
  zlogbet_rec bloose{0.3, 2.5, 4, 0, 0, 0, 1e-6};
  ASSERT_EQ(zloggam(&loose), 0);
  ASSERT_EQ(zlogbet(&bloose), 0);
  EXPECT_EQ(loose.tol, 1e-6);
  // mpmath: ln P(2.5, 3) and ln I_0.3(2.5, 4)
  EXPECT_NEAR(loose.lnp, -0.36559881263791901, 1e-5);
  EXPECT_NEAR(bloose.lnp, -1.0435629372684308, 1e-5);
}

TEST(Logscale, EdgesOfTheSupport) {
  struct {
    double a, lnd;
  } gamma_at_0[] = {{2, -kHuge}, {0.5, kHuge}, {1, 0}};
  for (const auto& c : gamma_at_0) {
    zloggam_rec r{0, c.a, 1, 1, 1, 0};
    ASSERT_EQ(zloggam(&r), 0);
    EXPECT_EQ(r.lnp, -kHuge);
    EXPECT_EQ(r.lnq, 0);
    EXPECT_EQ(r.lndensity, c.lnd) << c.a;
    EXPECT_EQ(zldngam(0, c.a), c.lnd);
  }
  // Beta(1, b) has density b at 0, beta(a, 1) density a at 1.
  struct {
    double x, a, b, lnp, lnq, lnd;
  } beta_ends[] = {{0, 2, 3, -kHuge, 0, -kHuge}, {0, 0.5, 3, -kHuge, 0, kHuge}, {0, 1, 3, -kHuge, 0, std::log(3.0)},
                   {1, 2, 3, 0, -kHuge, -kHuge}, {1, 2, 0.5, 0, -kHuge, kHuge}, {1, 2, 1, 0, -kHuge, std::log(2.0)}};
  for (const auto& c : beta_ends) {
    zlogbet_rec r{c.x, c.a, c.b, 1, 1, 1, 0};
    ASSERT_EQ(zlogbet(&r), 0);
    EXPECT_EQ(r.lnp, c.lnp);
    EXPECT_EQ(r.lnq, c.lnq);
    EXPECT_EQ(r.lndensity, c.lnd) << c.x << ' ' << c.a << ' ' << c.b;
    EXPECT_EQ(zldnbet(c.x, c.a, c.b), c.lnd);
  }
}

}  // namespace
