// Probabilities of the periods without tables of their own, interpolated in ln d
// through the tabled periods, against the distribution functions of the tabled periods
// on either side: the interpolated probability must lie between theirs. Where the
// probability is not monotone in d (the simulated distributions are not, for the single
// mean rho between d = 4 and 12), a quartic through five periods swings past its
// neighbours a little, so the test allows 0.003; and it keeps to statistics where every
// tabled probability is between 0.001 and 0.999: beyond that the deviates of the periods
// are far apart (some clamped, some not) and the quartic through them means little.
#include <gtest/gtest.h>

#include <algorithm>

#include "fmsd/dickeyfuller.h"
#include "unitroot/etssur.h"

namespace {

using fmsd::etss::interpol;
using fmsd::etss::TableFunction;

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
