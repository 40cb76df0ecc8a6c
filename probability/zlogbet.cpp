// Logarithms of the tails and the density of the beta distribution, accurate where
// the tails themselves underflow or round to 1.
//
// Every tail is ln K + ln(a well-conditioned sum), with K = x^a (1-x)^b / B(a, b)
// formed without cancelling huge logarithms.  With both shapes large, the smaller tail
// is integrated from x outwards.  Otherwise the work is done in the variable u of x and
// 1 - x that lies below 1/2, so that 1 - u is exact, with shapes p and q:
//   - u below (p+1)/(p+q+2): the lower tail in u, by the power series of
//     I_u(p, q) / u^p for p < 1 (which also gives 1 - I without cancellation), else by
//     the continued fraction;
//   - beyond it, the upper tail in u: the same methods in 1 - u with the shapes
//     exchanged when q is moderate; when q is large the density falls steeply all the
//     way from u to 1, and that tail is integrated.
// The other tail follows as ln(1 - tail).
#include <cmath>

#include "fmsd/probability.h"
#include "probability/zlogscale.h"
#include "util/numeric.h"

namespace {

using fmsd::kLogscaleHuge;
constexpr double kLnSqrt2Pi = 0.9189385332046728;
constexpr double kStirling = 15;
constexpr int kMaxTerms = 5000;

struct Tails {
  double lower;
  double upper;
};

// The point with its logarithms: lnx = ln x, lny = ln(1 - x), both to full accuracy.
struct Point {
  double x;
  double y;
  double lnx;
  double lny;
};

// ln K = a ln x + b ln(1 - x) - ln B(a, b).
double lnk(const Point& p, double a, double b) noexcept {
  const double lo = fmsd::fmin(a, b);
  const double hi = fmsd::fmax(a, b);
  if (hi < kStirling) return a * p.lnx + b * p.lny - zlgamma(lo) + fmsd::zlgdif(hi, lo);
  if (lo < kStirling) {
    // ln B = ln Gamma(lo) - (ln Gamma(hi + lo) - ln Gamma(hi)) by Stirling's form for
    // the difference; its lo ln(hi + lo) goes with the log of lo's own variable, which is
    // about ln(lo / (hi + lo)), so that neither grows with hi.
    const bool a_lo = a <= b;
    const double u = a_lo ? p.x : p.y;
    const double l_lo = fmsd::zlnratio(u, 1 / (hi + lo));
    const double l_hi = a_lo ? p.lny : p.lnx;
    return lo * l_lo + hi * l_hi + (hi - 0.5) * std::log1p(lo / hi) - lo - zlgamma(lo) + zlgbern(hi + lo) -
           zlgbern(hi);
  }
  // Both large: with x0 = a/(a+b) and e = (a+b) x - a,
  //   a ln(x/x0) + b ln((1-x)/(1-x0)) = a ln(1 + e/a) + b ln(1 - e/b),
  // whose first-order terms cancel exactly, and Stirling's formula gives the rest:
  //   a ln x0 + b ln(1-x0) - ln B = ln sqrt(ab / (2 pi (a+b))) + S(a+b) - S(a) - S(b).
  const fmsd::Dd s = fmsd::dd_sum(a, b);
  const fmsd::Dd sx = fmsd::dd_prod(s.hi, p.x);
  const double e = (sx.hi - a) + (sx.lo + s.lo * p.x);
  const double ta = e / a;
  const double tb = -e / b;
  double core;
  if (std::fabs(ta) <= 0.5 && std::fabs(tb) <= 0.5) {
    core = a * fmsd::zl1pmx(ta) + b * fmsd::zl1pmx(tb);
  } else {
    // Far from the mean one of the ratios may be tiny: take its log from ln x.
    const double la = ta > -0.5 ? std::log1p(ta) : p.lnx + std::log(s.hi / a);
    const double lb = tb > -0.5 ? std::log1p(tb) : p.lny + std::log(s.hi / b);
    core = a * la + b * lb;
  }
  return core + 0.5 * (std::log(lo) - std::log1p(lo / hi)) - kLnSqrt2Pi + zlgbern(s.hi) - zlgbern(a) - zlgbern(b);
}

// ln density = ln K - ln x - ln(1 - x).  For a small shape, ln B contains -ln(shape),
// which nearly cancels the log of its own variable when that is close to the shape:
// ln Gamma(s) = ln Gamma(1 + s) - ln s lets the two be taken together as one ratio.
double lndens(const Point& p, double a, double b) noexcept {
  const double lo = fmsd::fmin(a, b);
  if (lo >= 1) return lnk(p, a, b) - p.lnx - p.lny;
  const bool a_lo = a <= b;
  const double rest = a * p.lnx + b * p.lny - fmsd::zlgam1p(lo) + fmsd::zlgdif(fmsd::fmax(a, b), lo);
  return rest + fmsd::zlnratio(lo, a_lo ? p.x : p.y) - (a_lo ? p.lny : p.lnx);
}

// a < 1: I = x^a / (a B(a, b)) (1 + J), J = a sum_n (1-b)(2-b)...(n-b) x^n / (n! (a+n)),
// and 1 - I = (1 - x^a / (a B)) - x^a / (a B) J.  ln(a B(a, b)) = ln Gamma(1 + a) -
// (ln Gamma(a + b) - ln Gamma(b)) keeps its relative accuracy as a goes to 0.
int zserbet(double x, double lnx, double a, double b, double tol, Tails* t) noexcept {
  const double v = a * lnx - fmsd::zlgam1p(a) + fmsd::zlgdif(b, a);
  double c = 1;
  double sum = 0;
  for (int n = 1;; ++n) {
    if (n > kMaxTerms) return 1;
    c *= (n - b) * x / n;
    const double term = c / (a + n);
    sum += term;
    if (std::fabs(term) <= tol * std::fabs(sum)) break;
  }
  const double j = a * sum;
  t->lower = v + std::log1p(j);
  const double i = std::exp(t->lower);
  t->upper = i < 0.5 ? std::log1p(-i) : std::log(-std::expm1(v) - std::exp(v) * j);
  return 0;
}

// x < (a+1)/(a+b+2): I = K / a * 1/(1 + d1/(1 + d2/(1 + ...))) with
// d(2m) = m(b-m)x / ((a+2m-1)(a+2m)), d(2m+1) = -(a+m)(a+b+m)x / ((a+2m)(a+2m+1)),
// by the modified Lentz method.
int zcnfbet(double x, double a, double b, double lnk_, double tol, Tails* t) noexcept {
  constexpr double kTiny = 1e-300;
  const double ab = a + b;
  double c = 1;
  double d = 1 - ab * x / (a + 1);
  if (std::fabs(d) < kTiny) d = kTiny;
  d = 1 / d;
  double h = d;
  for (int m = 1;; ++m) {
    if (m > kMaxTerms) return 1;
    const double m2 = 2 * m;
    // Each term as a product of ratios: the products themselves overflow for huge a.
    double aa = (m * x / (a + m2)) * ((b - m) / (a - 1 + m2));
    d = 1 + aa * d;
    if (std::fabs(d) < kTiny) d = kTiny;
    c = 1 + aa / c;
    if (std::fabs(c) < kTiny) c = kTiny;
    d = 1 / d;
    h *= d * c;
    aa = -((a + m) / (a + m2)) * ((ab + m) / (a + 1 + m2)) * x;
    d = 1 + aa * d;
    if (std::fabs(d) < kTiny) d = kTiny;
    c = 1 + aa / c;
    if (std::fabs(c) < kTiny) c = kTiny;
    d = 1 / d;
    const double delta = d * c;
    h *= delta;
    if (std::fabs(delta - 1) <= tol) break;
  }
  t->lower = lnk_ - std::log(a) + std::log(h);
  t->upper = fmsd::zl1mexp(t->lower);
  return 0;
}

// The log density along t = x + dir sigma s relative to its value at x:
// (a-1)(ln(1+u) - u) + (b-1)(ln(1+v) - v) + slope s, u = (t-x)/x, v = -(t-x)/(1-x).
struct BetaPath {
  double am1;
  double bm1;
  double su;     // u per unit of s
  double sv;     // v per unit of s
  double slope;  // g'(0)
};

double fntrbet(double s, const void* context) {
  const auto* p = static_cast<const BetaPath*>(context);
  return p->am1 * fmsd::zl1pmx(s * p->su) + p->bm1 * fmsd::zl1pmx(s * p->sv) + s * p->slope;
}

// The tail beyond x on the side dir (+1 upper, -1 lower, 0 whichever is the smaller)
// by quadrature from x outwards.  The log density must be concave on that side, or
// at least fall all the way: both shapes large, or x above the mode.
int zintbet(const Point& p, double a, double b, double lnk_, int dir, Tails* t) noexcept {
  const double am1 = a - 1;
  const double bm1 = b - 1;
  // x (1-x) h'(x) = (a-1) - (a+b-2) x, which vanishes at the mode: formed in
  // double-double so that it keeps its relative accuracy there.
  const fmsd::Dd a1 = fmsd::dd_sum(a, -1);
  const fmsd::Dd s = fmsd::dd_sum(a, b);
  const fmsd::Dd s2 = fmsd::dd_sum(s.hi, -2);
  const fmsd::Dd cx = fmsd::dd_prod(s2.hi, p.x);
  const double n = (a1.hi - cx.hi) + (a1.lo - cx.lo - (s.lo + s2.lo) * p.x);
  // The natural scale sigma = x (1-x) / m, m = x (1-x) max(|h'(x)|, sqrt(-h''(x))).
  const double c2 = am1 * p.y * p.y + bm1 * p.x * p.x;
  const double m = fmsd::fmax(std::fabs(n), c2 > 0 ? std::sqrt(c2) : 0);
  // At the median n is close to 2/3 (a-b)/(a+b); comparing n with that, rather than x
  // with a rounded median, keeps the side right when sigma is below an ulp of x.
  const bool upper = dir > 0 || (dir == 0 && n < 2.0 / 3 * (a - b) / (a + b));
  const double sign = upper ? 1 : -1;
  const BetaPath path{am1, bm1, sign * p.y / m, -sign * p.x / m, sign * n / m};
  const double lnf = fmsd::zhrdys(fntrbet, &path, upper ? m / p.x : m / p.y);
  if (std::isnan(lnf)) return 1;
  // ln density = ln K - ln x - ln(1-x), ln sigma = ln x + ln(1-x) - ln m.
  const double tail = lnk_ - std::log(m) + lnf;
  t->lower = upper ? fmsd::zl1mexp(tail) : tail;
  t->upper = upper ? tail : fmsd::zl1mexp(tail);
  return 0;
}

// The tails at a point below (a+1)/(a+b+2), where the lower one is the smaller.
int lower_side(const Point& p, double a, double b, double lnk_, double tol, Tails* t) noexcept {
  return a < 1 ? zserbet(p.x, p.lnx, a, b, tol, t) : zcnfbet(p.x, a, b, lnk_, tol, t);
}

Point flip(const Point& p) noexcept { return {p.y, p.x, p.lny, p.lnx}; }

int tails(const Point& p, double a, double b, double lnk_, double tol, Tails* t) noexcept {
  if (fmsd::fmin(a, b) >= fmsd::kLogscaleLarge) return zintbet(p, a, b, lnk_, 0, t);
  // Work with the variable u below 1/2 (shapes pa, qb), whose complement is exact:
  // the series and the fraction near u = 1 need 1 - u to full accuracy.
  const bool flipped = p.x > 0.5;
  const Point u = flipped ? flip(p) : p;
  const double pa = flipped ? b : a;
  const double qb = flipped ? a : b;
  Tails s;
  int status;
  if (u.x <= (pa + 1) / (pa + qb + 2)) {
    status = lower_side(u, pa, qb, lnk_, tol, &s);
  } else if (qb < fmsd::kLogscaleLarge) {
    // The fraction in 1 - u loses about qb ulps of it near the mean: few enough.
    Tails r;
    status = lower_side(flip(u), qb, pa, lnk_, tol, &r);
    s = {r.upper, r.lower};
  } else {
    // u beyond the mean of a distribution squeezed against 0: the density falls all
    // the way from u to 1.
    status = zintbet(u, pa, qb, lnk_, 1, &s);
  }
  *t = flipped ? Tails{s.upper, s.lower} : s;
  return status;
}

Point point(double x) noexcept { return {x, 1 - x, std::log(x), std::log1p(-x)}; }

// ln density at an end of [0, 1], where the shape of that end decides.
double edge(double near, double far) noexcept {
  return near > 1 ? -kLogscaleHuge : near < 1 ? kLogscaleHuge : std::log(far);
}

double clamp(double l) noexcept { return l < -kLogscaleHuge ? -kLogscaleHuge : l; }

bool valid_shapes(double a, double b) noexcept {
  return std::isfinite(a) && std::isfinite(b) && a >= fmsd::kLogscaleMinShape && b >= fmsd::kLogscaleMinShape;
}

}  // namespace

extern "C" FMSD_API double zldnbet(double x, double a, double b) {
  if (!valid_shapes(a, b) || std::isnan(x)) return NAN;
  if (x < 0 || x > 1) return -kLogscaleHuge;
  if (x == 0) return edge(a, b);
  if (x == 1) return edge(b, a);
  return clamp(lndens(point(x), a, b));
}

extern "C" FMSD_API int zlogbet(zlogbet_rec* r) {
  r->tol = fmsd::fmax(r->tol, fmsd::kLogscaleMinTol);
  const double x = r->x;
  const double a = r->a;
  const double b = r->b;
  if (!valid_shapes(a, b) || !(x >= 0 && x <= 1)) return 1;
  if (x == 0 || x == 1) {
    r->lnp = x == 0 ? -kLogscaleHuge : 0;
    r->lnq = x == 0 ? 0 : -kLogscaleHuge;
    r->lndensity = x == 0 ? edge(a, b) : edge(b, a);
    return 0;
  }
  const Point p = point(x);
  const double k = lnk(p, a, b);
  Tails t;
  if (tails(p, a, b, k, r->tol, &t) != 0) return 1;
  r->lnp = clamp(t.lower);
  r->lnq = clamp(t.upper);
  r->lndensity = clamp(lndens(p, a, b));
  return r->lnp <= 0 && r->lnq <= 0 ? 0 : 1;
}
