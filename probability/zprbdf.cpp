// Left-tail probabilities of the Dickey-Fuller statistics: the normalized statistic
// n(rho - 1) and the studentized statistic tau, zero mean, single mean and trend, for
// n regression rows and seasonal period d in 1, 2, 4, 6, 12.
//
// Each is a response surface: the statistic is clamped to the interval its band was
// fitted on, mapped to a normal deviate z by polynomials in the statistic and in a
// sample-size variable w, and the probability is Phi(z). The coefficients were fitted
// by tools/dffit.py to simulated null distributions of the statistics as the unit-root
// tests compute them (tools/dfsim), with the walk starting from a zero that is part of
// the series. Small samples, where the distribution changes quickly with n, have one
// row of coefficients per n; larger ones share a surface in w. Where the shape of the
// distribution changes along the statistic's range, the range is split and each piece
// has its own polynomials, tied to its neighbour at the split.

#include <cmath>
#include <initializer_list>

#include "fmsd/dickeyfuller.h"
#include "fmsd/probability.h"
#include "probability/zprbdf_tables.h"
#include "util/numeric.h"

namespace {

using namespace fmsd::dftables;

// c[0] + c[1] x + ... + c[k] x^k, by Horner's rule from c[k] down.
double poly(const double* c, int k, double x) {
  double r = c[k];
  for (int i = k - 1; i >= 0; --i) r = r * x + c[i];
  return r;
}

// (P0(x) + w (P1(x) + w (P2(x) + ...))) / (1 + x^2 Q(x^2)), the polynomials of the given
// degrees stored one after another and Q of degree q after them; q < 0: no denominator.
double surface(const double* c, std::initializer_list<int> degrees, int q, double x, double w) {
  double value[5];
  int m = 0;
  for (int k : degrees) {
    value[m++] = poly(c, k, x);
    c += k + 1;
  }
  double z = value[m - 1];
  for (int i = m - 2; i >= 0; --i) z = value[i] + w * z;
  if (q >= 0) z /= 1 + x * x * poly(c, q, x * x);
  return z;
}

double clamp(double s, double lo, double hi) { return fmsd::fmin(fmsd::fmax(s, lo), hi); }

// The smallest n of each period; the functions decline below it. Only the trend
// functions are limited to d = 1 by their callers.
bool supported(int n, int d) {
  switch (d) {
    case 1:
    case 2:
      return n >= 5;
    case 4:
    case 6:
    case 12:
      return n >= 2 * d;
    default:
      return false;
  }
}

int done(double z, double* prob) {
  *prob = zprbnrm(z);
  return 0;
}

}  // namespace

extern "C" {

int zprbdf(double s, int n, int d, double* prob) {
  *prob = -1;
  if (!supported(n, d)) return 1;
  const double dn = n;
  double z;
  switch (d) {
    case 1:
      s = clamp(s, -28, 70);
      if (n <= 29) {
        if (n <= 9 && s >= -8 && s <= 2) {
          z = poly(czm1m + 10 * (n - 5), 9, s);
        } else {
          s = clamp(s, -28, n <= 10 ? 7.5 : 6.5);
          const double* c = czm1l + 11 * (n - 5);
          z = poly(c, 7, s) / (1 + s * s * poly(c + 8, 2, s * s));
        }
      } else {
        s = clamp(s, -28, 6);
        z = surface(czm1h, {11, 11}, 4, s, 50 / dn);
      }
      break;
    case 2:
      if (n <= 19) {
        s = clamp(s, -28, 30);
        const double* c = czm2b + 27 * ((n - 1) / 10);
        const double w = 1 / std::sqrt(dn);
        z = surface(c, {6, 6, 6}, -1, s, w) / poly(c + 21, 5, s);
      } else if (n <= 39) {
        z = surface(czm2l, {7, 7, 7, 5}, 2, clamp(s, -28, 30), std::sqrt(20 / dn));
      } else {
        z = surface(czm2h, {7, 7}, 2, clamp(s, -28, 8), 1 / dn);
      }
      break;
    case 4:
      if (n <= 59)
        z = surface(czm4l, {9, 9, 9, 9, 9}, 3, clamp(s, -28, 20), std::sqrt(8 / dn));
      else
        z = surface(czm4h, {9, 9}, 3, clamp(s, -28, 10), 1 / dn);
      break;
    case 6:
      if (n <= 89)
        z = surface(czm6l, {9, 9, 9, 9, 9}, 3, clamp(s, -28, 21), std::sqrt(12 / dn));
      else
        z = surface(czm6h, {9, 9}, 3, clamp(s, -28, 11), 1 / dn);
      break;
    default:  // 12
      if (n <= 119)
        z = surface(czm12l, {5, 5, 5, 5}, 1, clamp(s, -28, 25), 1 / std::sqrt(dn));
      else
        z = surface(czm12h, {9, 9}, 3, clamp(s, -28, 15), 1 / dn);
      break;
  }
  return done(z, prob);
}

int zprdfsm(double s, int n, int d, double* prob) {
  *prob = -1;
  if (!supported(n, d)) return 1;
  const double dn = n;
  double z;
  switch (d) {
    case 1:
      if (n <= 10) {
        s = clamp(s, -28, 20);
        if (s >= -7 && s <= 0) {
          z = poly(csm1md + 9 * (n - 5), 8, s);
        } else {
          const double x = s + 3;
          const double* c = csm1l + 17 * (n - 5);
          z = poly(c, 11, x) / (1 + x * x * poly(c + 12, 4, x * x));
        }
      } else if (n <= 29) {
        z = surface(csm1m, {7, 7, 7}, 2, clamp(s, -28, 10), std::sqrt(10 / dn));
      } else {
        z = surface(csm1h, {7, 7}, 2, clamp(s, -28, 6), 1 / dn);
      }
      break;
    case 2:
      if (n <= 26) {
        // Four blocks of about six n each, w measured from the block's start.
        const int block = n <= 8 ? 0 : n <= 14 ? 1 : n <= 20 ? 2 : 3;
        const double start = 6 * block + 2;
        s = clamp(s, -28, block == 1 ? 12 : 30);
        z = surface(csm2l + 25 * block, {7, 7, 5}, 2, s + 3, 1 / std::sqrt(dn - start));
      } else if (n <= 35) {
        z = surface(csm2m, {7, 7, 7}, 2, clamp(s, -37, 7.5), std::sqrt(26 / dn));
      } else if (n <= 50) {
        z = surface(csm2m + 27, {7, 7, 7, 7}, 2, clamp(s, -37, 7.5), std::sqrt(36 / dn));
      } else {
        z = surface(csm2h, {7, 7}, 2, clamp(s, -37, 7.5), 1 / dn);
      }
      break;
    case 4:
      if (n <= 16) {
        s = clamp(s, -28, n <= 9 ? 28 : 18);
        const double w = std::sqrt(8 / dn);
        if (s >= -3)
          z = surface(csm4l, {6, 6, 5}, 2, s + 3, w);
        else
          z = surface(csm4l + 23, {7, 7, 5}, 2, s + 3, w);
      } else if (n <= 59) {
        z = surface(csm4m, {7, 7, 7, 7, 7}, 1, clamp(s, -28, 15), 1 / std::sqrt(dn - 7));
      } else {
        z = surface(csm4h, {9, 9}, 3, clamp(s, -28, 10), 60 / dn);
      }
      break;
    case 6:
      if (n <= 29)
        z = surface(csm6l, {9, 9, 7, 7, 7}, 3, clamp(s, -28, 30), std::sqrt(12 / dn));
      else if (n <= 45)
        z = surface(csm6m, {9, 9, 7}, 3, clamp(s, -28, 10), std::sqrt(30 / dn));
      else if (n <= 60)
        z = surface(csm6m + 32, {9, 9, 7}, 3, clamp(s, -28, 10), std::sqrt(48 / dn));
      else
        z = surface(csm6h, {9, 9}, 3, clamp(s, -28, 10), 60 / dn);
      break;
    default:  // 12
      if (n <= 70)
        z = surface(csm12l, {9, 9, 7, 6}, 3, clamp(s, -28, 30), 1 / std::sqrt(dn - 21));
      else if (n <= 120)
        z = surface(csm12m, {7, 7, 5, 5}, 2, clamp(s, -28, 15), std::sqrt(72 / dn));
      else
        z = surface(csm12h, {9, 9}, 3, clamp(s, -28, 15), 1 / dn);
      break;
  }
  return done(z, prob);
}

int zprdftr(double s, int n, int d, double* prob) {
  *prob = -1;
  if (d != 1 || n < 5) return 1;
  const double dn = n;
  double z;
  if (n >= 20) {
    s = clamp(s, -40, 40);
    const double x = s + 10;
    const double w = 1 / dn;
    if (s > -10) {
      z = surface(ctr1hr, {6, 6}, 1, x, w);
    } else {
      z = poly(ctr1hl, 7, x) + w * (poly(ctr1hl + 8, 5, x) + w * x * x * poly(ctr1hl + 14, 2, x));
    }
  } else if (n >= 10) {
    s = clamp(s, -40, 40);
    const double x = s + 10;
    if (s >= 5)
      z = surface(ctr1lu, {1, 1, 1}, -1, s, 1 / std::sqrt(dn));
    else if (s > -10)
      z = surface(ctr1mr, {7, 6}, 2, x, 1 / dn);
    else
      z = surface(ctr1ml, {6, 6, 5}, -1, x, 1 / dn);
  } else {
    // One row per n; rows of 9 from n = 4, whose first 8 places hold the polynomial.
    // Only n = 8 is clamped; for the others the lowest piece ends at -40.
    if (n == 8) s = clamp(s, -30, 15);
    const int row = n - 4;
    if (s >= 10) {
      const double* t = ctr1lu + 2 * row;
      z = t[0] + t[1] * (s - 10);
    } else if (s >= -5) {
      z = poly(ctr1lr + 9 * row, 7, s + 6);
    } else if (s >= -15) {
      z = poly(ctr1lm + 9 * row, 7, s + 16);
    } else if (s >= -40) {
      z = poly(ctr1ll + 9 * row, 7, s + 14);
    } else {
      return 1;
    }
  }
  return done(z, prob);
}

int zpdfszm(double s, int n, int d, double* prob) {
  *prob = -1;
  if (!supported(n, d)) return 1;
  const double dn = n;
  double z;
  switch (d) {
    case 1:
      if (n <= 9) {
        s = clamp(s, -6, 7);
        const double* c = cszm1l + 18 * (n - 4);
        if (s >= 1)
          z = poly(c, 5, s);
        else if (s > -1)
          z = poly(c + 6, 5, s + 2);
        else
          z = poly(c + 12, 5, s);
      } else if (n <= 19) {
        s = clamp(s, -6, 7);
        const double w = 1 / std::sqrt(dn);
        z = s >= -1 ? surface(cszm1m, {8, 7}, -1, s + 2, w) : surface(cszm1m + 17, {8, 7}, -1, s, w);
      } else {
        s = clamp(s, -5, 5);
        z = surface(s >= -1 ? cszm1h : cszm1h + 18, {9, 7}, -1, s, 1 / dn);
      }
      break;
    case 2:
      if (n <= 19) {
        s = clamp(s, -6, 6);
        const double w = std::sqrt(6 / dn);
        z = s >= -1 ? surface(cszm2lr, {8, 6, 4, 2}, -1, s + 2, w) : surface(cszm2ll, {8, 6, 4, 2}, -1, s, w);
      } else {
        s = clamp(s, -5, 5.24);
        z = surface(s >= -1 ? cszm2h : cszm2h + 19, {10, 7}, -1, s, 1 / dn);
      }
      break;
    case 4:
      if (n <= 39) {
        s = clamp(s, -5, 6);
        z = surface(s >= -1 ? cszm4l : cszm4l + 19, {7, 5, 4}, -1, s + 1, 1 / std::sqrt(dn));
      } else {
        z = surface(cszm4h, {9, 9}, 3, clamp(s, -5, 4), 1 / dn);
      }
      break;
    case 6:
      if (n <= 59)
        z = surface(cszm6l, {9, 9, 9}, 3, clamp(s, -6, 5), 1 / std::sqrt(dn));
      else
        z = surface(cszm6h, {9, 9}, 3, clamp(s, -5, 4), 1 / dn);
      break;
    default:  // 12
      if (n <= 119) {
        s = clamp(s, -6, 5);
        z = surface(s >= -1 ? cszm12l : cszm12l + 21, {8, 5, 5}, -1, s + 1, 1 / std::sqrt(dn));
      } else {
        z = surface(cszm12h, {9, 9}, 3, clamp(s, -4, 4), 1 / dn);
      }
      break;
  }
  return done(z, prob);
}

int zpdfssm(double s, int n, int d, double* prob) {
  *prob = -1;
  if (!supported(n, d)) return 1;
  const double dn = n;
  double z;
  switch (d) {
    case 1:
      if (n <= 9) {
        s = clamp(s, -10, 10);
        const double* c = cssm1l + 21 * (n - 4);
        if (s >= -0.5)
          z = poly(c, 6, s + 2);
        else if (s >= -2.5)
          z = poly(c + 7, 6, s);
        else
          z = poly(c + 14, 6, s);
      } else if (n <= 19) {
        s = clamp(s, -10, 10);
        const double w = 1 / std::sqrt(dn);
        z = s >= -1 ? surface(cssm1m, {7, 6}, -1, s + 2, w) : surface(cssm1m + 15, {7, 6}, -1, s, w);
      } else {
        s = clamp(s, -5.5, 3);
        z = surface(s >= -1 ? cssm1h : cssm1h + 15, {7, 6}, -1, s, 15 / dn);
      }
      break;
    case 2:
      if (n <= 19) {
        s = clamp(s, -7, 5);
        const double w = std::sqrt(4 / dn);
        z = s >= -1 ? surface(cssm2l, {7, 5, 5, 4}, -1, s + 2, w) : surface(cssm2l + 25, {7, 5, 5, 4}, -1, s, w);
      } else {
        z = surface(cssm2h, {9, 9}, 3, clamp(s, -5, 3.5), 1 / dn);
      }
      break;
    case 4:
      if (n <= 39) {
        s = clamp(s, -6, 5);
        z = surface(s >= -1 ? cssm4l : cssm4l + 25, {7, 5, 5, 4}, -1, s + 1, std::sqrt(8 / dn));
      } else {
        z = surface(cssm4h, {9, 9}, 3, clamp(s, -5, 3.7), 1 / dn);
      }
      break;
    case 6:
      if (n <= 59) {
        s = clamp(s, -6, 5);
        z = surface(s >= -1 ? cssm6l : cssm6l + 25, {7, 5, 5, 4}, -1, s + 1, std::sqrt(12 / dn));
      } else {
        s = clamp(s, -5, 3.7);
        const double w = 60 / dn;
        z = s >= -1 ? surface(cssm6h, {7, 6}, -1, s + 2, w) : surface(cssm6h + 15, {7, 6}, -1, s, w);
      }
      break;
    default:  // 12
      if (n <= 119) {
        s = clamp(s, -6, 5);
        z = surface(s >= -1 ? cssm12l : cssm12l + 25, {7, 5, 5, 4}, -1, s + 1, std::sqrt(24 / dn));
      } else {
        z = surface(cssm12h, {9, 9}, 3, clamp(s, -5, 3.55), 1 / dn);
      }
      break;
  }
  return done(z, prob);
}

int zpdfstr(double s, int n, int d, double* prob) {
  *prob = -1;
  if (d != 1 || n < 5) return 1;
  const double dn = n;
  double z;
  if (n <= 9) {
    s = n == 5 ? clamp(s, -40, 8) : clamp(s, -18, 2.75);
    const double* c = cstr1l + 27 * (n - 4);
    z = poly(s >= -1 ? c : s >= -3 ? c + 9 : c + 18, 8, s + 2);
  } else if (n <= 15) {
    s = clamp(s, -8, 2.8);
    const double w = 1 / std::sqrt(dn);
    z = s >= -2.5 ? surface(cstr1m, {9, 6, 4}, -1, s + 3, w) : surface(cstr1m + 22, {9, 6, 4}, -1, s + 2, w);
  } else {
    s = clamp(s, -6.4, 1.0);
    const double w = 15 / dn;
    z = s >= -2.5 ? surface(cstr1h, {8, 6, 4}, -1, s + 3, w) : surface(cstr1h + 21, {8, 6, 4}, -1, s + 2, w);
  }
  return done(z, prob);
}
}
