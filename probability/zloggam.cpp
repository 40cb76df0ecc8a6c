// Logarithms of the tails and the density of the gamma distribution, accurate where
// the tails themselves underflow or round to 1.
//
// Each tail is computed as the logarithm of a density factor plus the logarithm of a
// well-conditioned sum, never as the difference of two large logarithms:
//   - a < 1 and x < 1.5: the power series of P(a, x) / x^a, which also gives Q without
//     the cancellation of 1 - P;
//   - a below kLogscaleLarge: the series of P below the mean, Legendre's continued
//     fraction for Q above it;
//   - larger a: quadrature of the density from x outwards on the side of the smaller
//     tail (the series and fractions would need thousands of terms near the mean and
//     lose digits to cancellation).
// The other tail follows as ln(1 - tail).
#include <cmath>

#include "fmsd/probability.h"
#include "probability/zlogscale.h"
#include "util/numeric.h"

namespace {

using fmsd::kLogscaleHuge;
constexpr double kLnSqrt2Pi = 0.9189385332046728;
constexpr double kStirling = 15;
// Below this the series of P(a, x) / x^a for small a converges fast; above it the
// continued fraction does, while the alternating series starts to cancel.
constexpr double kSmallX = 1.5;
constexpr int kMaxTerms = 5000;

struct Tails {
  double lnp;
  double lnq;
};

// ln of the gamma(a) density at x > 0.
double lndens(double x, double a) noexcept {
  // ln Gamma(a) = ln Gamma(1 + a) - ln a: for small a the -ln a and -ln x that nearly
  // cancel are taken together as ln(a/x).
  if (a < 1) return a * std::log(x) - x - fmsd::zlgam1p(a) + fmsd::zlnratio(a, x);
  if (a < kStirling) return (a - 1) * std::log(x) - x - zlgamma(a);
  // With t = x/a - 1 the density is exp(a (ln(1 + t) - t) - ln(1 + t)) / sqrt(2 pi a)
  // / exp(Stirling correction): near the mode the bracket is formed without cancelling
  // a ln x against x.
  const double t = (x - a) / a;
  double core;
  if (std::fabs(t) <= 0.5) {
    core = a * fmsd::zl1pmx(t) - std::log1p(t);
  } else {
    const double lr = fmsd::zlnratio(x, a);
    core = a * (lr - t) - lr;
  }
  return core - 0.5 * std::log(a) - kLnSqrt2Pi - zlgbern(a);
}

// a < 1, x < 1.5: P = x^a / Gamma(1 + a) (1 + J) with J = a sum_n (-x)^n / (n! (a + n)),
// and Q = (1 - x^a / Gamma(1 + a)) - x^a / Gamma(1 + a) J, both without cancellation.
int zsmlgam(double x, double a, double tol, Tails* t) noexcept {
  const double u = a * std::log(x) - fmsd::zlgam1p(a);
  double c = 1;
  double sum = 0;
  for (int n = 1;; ++n) {
    if (n > kMaxTerms) return 1;
    c *= -x / n;
    const double term = c / (a + n);
    sum += term;
    if (std::fabs(term) <= tol * std::fabs(sum)) break;
  }
  const double j = a * sum;
  t->lnp = u + std::log1p(j);
  const double p = std::exp(t->lnp);
  t->lnq = p < 0.5 ? std::log1p(-p) : std::log(-std::expm1(u) - std::exp(u) * j);
  return 0;
}

// x < a: P = density * x / a * (1 + x/(a+1) + x^2/((a+1)(a+2)) + ...).
int zsergam(double x, double a, double lnd, double tol, Tails* t) noexcept {
  double term = 1;
  double sum = 1;
  for (int k = 1;; ++k) {
    if (k > kMaxTerms) return 1;
    term *= x / (a + k);
    sum += term;
    if (term <= tol * sum) break;
  }
  t->lnp = lnd + fmsd::zlnratio(x, a) + std::log(sum);
  t->lnq = fmsd::zl1mexp(t->lnp);
  return 0;
}

// x >= a: Legendre's continued fraction Q = density * x / (x+1-a - 1(1-a)/(x+3-a -
// 2(2-a)/(x+5-a - ...))), by the modified Lentz method.
int zcnf1gm(double x, double a, double lnd, double tol, Tails* t) noexcept {
  constexpr double kTiny = 1e-300;
  // x - a is exact near the mean, where it matters.
  const double xa = x - a;
  double f = xa + 1;
  double c = f;
  double d = 0;
  for (int n = 1;; ++n) {
    if (n > kMaxTerms) return 1;
    const double an = n * (a - n);
    const double bn = xa + (2 * n + 1);
    d = bn + an * d;
    if (d == 0) d = kTiny;
    c = bn + an / c;
    if (c == 0) c = kTiny;
    d = 1 / d;
    const double delta = c * d;
    f *= delta;
    if (std::fabs(delta - 1) <= tol) break;
  }
  t->lnq = lnd + std::log(x) - std::log(f);
  t->lnp = fmsd::zl1mexp(t->lnq);
  return 0;
}

// The series and the fraction, for a below kLogscaleLarge.
int zbsgam(double x, double a, double lnd, double tol, Tails* t) noexcept {
  if (a < 1 && x < kSmallX) return zsmlgam(x, a, tol, t);
  if (x < a) return zsergam(x, a, lnd, tol, t);
  return zcnf1gm(x, a, lnd, tol, t);
}

// The log density along t = x + dir sigma s relative to its value at x, with
// sigma = x w: (a - 1) ln(1 + u) - (t - x) = (a - 1)(ln(1 + u) - u) + slope s.
struct GammaPath {
  double am1;
  double step;   // u per unit of s
  double slope;  // g'(0)
};

double fntrgam(double s, const void* context) {
  const auto* p = static_cast<const GammaPath*>(context);
  return p->am1 * fmsd::zl1pmx(s * p->step) + s * p->slope;
}

// a >= kLogscaleLarge: the smaller tail by quadrature from x outwards, in units of
// the log density's own scale 1 / max(|h'(x)|, sqrt(-h''(x))).
int zintgam(double x, double a, double lnd, Tails* t) noexcept {
  const double am1 = a - 1;
  // a - 1 - x: a - x is exact wherever the difference is small.
  const double d = (a - x) - 1;
  const double m = fmsd::fmax(std::fabs(d), std::sqrt(am1));
  const double w = 1 / m;
  // Beyond the median a - 1/3, tested on d so that a huge a does not round it away.
  const bool upper = d < -2.0 / 3;
  const double dir = upper ? 1 : -1;
  const GammaPath path{am1, dir * w, dir * w * d};
  const double smax = upper ? HUGE_VAL : m;
  const double lnf = fmsd::zhrdys(fntrgam, &path, smax);
  if (std::isnan(lnf)) return 1;
  const double tail = lnd + std::log(x) - std::log(m) + lnf;
  t->lnp = upper ? fmsd::zl1mexp(tail) : tail;
  t->lnq = upper ? tail : fmsd::zl1mexp(tail);
  return 0;
}

// The logarithm of an underflowing probability is still a double; clamp the rare
// overflow of a huge shape times a log to the same -1.797e308 that stands for ln 0.
double clamp(double l) noexcept { return l < -kLogscaleHuge ? -kLogscaleHuge : l; }

// ln density for x >= 0 and a valid shape.
double lndens_or_edge(double x, double a) noexcept {
  if (x > 0) return lndens(x, a);
  return a > 1 ? -kLogscaleHuge : a < 1 ? kLogscaleHuge : 0;
}

bool valid(double x, double a) noexcept {
  return std::isfinite(x) && std::isfinite(a) && a >= fmsd::kLogscaleMinShape && x >= 0;
}

}  // namespace

extern "C" FMSD_API double zldngam(double x, double a) {
  if (!(std::isfinite(a) && a >= fmsd::kLogscaleMinShape) || std::isnan(x)) return NAN;
  if (x < 0 || x == HUGE_VAL) return -kLogscaleHuge;
  return clamp(lndens_or_edge(x, a));
}

extern "C" FMSD_API int zloggam(zloggam_rec* r) {
  r->tol = fmsd::fmax(r->tol, fmsd::kLogscaleMinTol);
  const double x = r->x;
  const double a = r->a;
  if (!valid(x, a)) return 1;
  if (x == 0) {
    r->lnp = -kLogscaleHuge;
    r->lnq = 0;
    r->lndensity = lndens_or_edge(x, a);
    return 0;
  }
  const double lnd = lndens(x, a);
  Tails t;
  const int status = a < fmsd::kLogscaleLarge ? zbsgam(x, a, lnd, r->tol, &t) : zintgam(x, a, lnd, &t);
  if (status != 0) return 1;
  r->lnp = clamp(t.lnp);
  r->lnq = clamp(t.lnq);
  r->lndensity = clamp(lnd);
  return r->lnp <= 0 && r->lnq <= 0 ? 0 : 1;
}
