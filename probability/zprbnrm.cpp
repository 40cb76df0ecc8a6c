// The error function and its complement, the normal distribution function, the
// logarithms of the normal tails and the inverse Gaussian distribution function.
//
// erf and erfc are W. J. Cody's rational Chebyshev approximations (Math. Comp. 23,
// 1969) with his published coefficients, except that the exponential of -y^2 is taken
// directly rather than split into a rounded part and a remainder.

#include <cmath>

#include "fmsd/probability.h"

namespace {

// erf on |x| <= 0.46875.
constexpr double a[5] = {3.16112374387056560e00, 1.13864154151050156e02, 3.77485237685302021e02,
                         3.20937758913846947e03, 1.85777706184603153e-1};
constexpr double b[4] = {2.36012909523441209e01, 2.44024637934444173e02, 1.28261652607737228e03,
                         2.84423683343917062e03};
// erfc on 0.46875 < |x| <= 4.
constexpr double c[9] = {5.64188496988670089e-1, 8.88314979438837594e00, 6.61191906371416295e01,
                         2.98635138197400131e02, 8.81952221241769090e02, 1.71204761263407058e03,
                         2.05107837782607147e03, 1.23033935479799725e03, 2.15311535474403846e-8};
constexpr double d[8] = {1.57449261107098347e01, 1.17693950891312499e02, 5.37181101862009858e02,
                         1.62138957456669019e03, 3.29079923573345963e03, 4.36261909014324716e03,
                         3.43936767414372164e03, 1.23033935480374942e03};
// erfc on |x| > 4, in powers of 1/x^2.
constexpr double p[6] = {3.05326634961232344e-1, 3.60344899949804439e-1, 1.25781726111229246e-1,
                         1.60837851487422766e-2, 6.58749161529837803e-4, 1.63153871373020978e-2};
constexpr double q[5] = {2.56852019228982242e00, 1.87295284992346725e00, 5.27905102951428412e-1,
                         6.05183413124413191e-2, 2.33520497626869185e-3};

constexpr double kRsqrt2 = 0.7071067811865476;
constexpr double kRsqrtPi = 0.5641895835477563;
constexpr double kLnSqrt2Pi = 0.9189385332046728;
constexpr double kUnderflow = -708.3964185;  // exp of anything lower is 0
constexpr double kErfcZero = 1003.7843389118009;

// The large-argument rational part shared by erfc and the inverse Gaussian.
double tail_series(double y) {
  const double w = 1.0 / (y * y);
  double num = p[5] * w;
  double den = w;
  for (int i = 0; i < 4; ++i) {
    num = (num + p[i]) * w;
    den = (den + q[i]) * w;
  }
  return w * (num + p[4]) / (den + q[4]);
}

// selector 0 stores erf(x), 1 stores erfc(x).
void calerf(double x, double* result, int selector) {
  const double y = std::fabs(x);
  double r = 0.0;  // erfc(y)
  if (y > kErfcZero) {
    r = 0.0;
  } else if (!(y > 0.46875)) {  // a NaN takes this branch and stays NaN
    const double s = y > 4.2e-16 ? y * y : 0.0;
    double num = a[4] * s;
    double den = s;
    for (int i = 0; i < 3; ++i) {
      num = (num + a[i]) * s;
      den = (den + b[i]) * s;
    }
    const double erf = x * (num + a[3]) / (den + b[3]);
    *result = selector == 0 ? erf : 1.0 - erf;
    return;
  } else if (y <= 4.0) {
    double num = c[8] * y;
    double den = y;
    for (int i = 0; i < 7; ++i) {
      num = (num + c[i]) * y;
      den = (den + d[i]) * y;
    }
    r = std::exp(-y * y) * (num + c[7]) / (den + d[7]);
  } else {
    const double t = tail_series(y);
    r = -y * y < kUnderflow ? 0.0 : std::exp(-y * y) / y * (kRsqrtPi - t);
  }
  if (selector == 0) {
    const double erf = (0.5 - r) + 0.5;
    *result = x < 0 ? -erf : erf;
  } else {
    *result = x < 0 ? 2.0 - r : r;
  }
}

}  // namespace

extern "C" {

double zferf(double x) {
  double r;
  calerf(x, &r, 0);
  return r;
}

double zferfc(double x) {
  double r;
  calerf(x, &r, 1);
  return r;
}

// The upper branch adds to 1 so that Phi keeps full relative accuracy in the lower
// tail, where erfc carries it.
double zprbnrm(double x) {
  if (x > 0) return (1.0 + zferf(x * kRsqrt2)) * 0.5;
  return zferfc(-x * kRsqrt2) * 0.5;
}

int zlognrm(double x, double* lnlower, double* lnupper, double* lndensity) {
  *lndensity = -0.5 * x * x - kLnSqrt2Pi;
  const double y = std::fabs(x);
  double upper;  // ln of the tail beyond |x|
  if (!(y >= 5.0)) {
    upper = std::log(0.5 * zferfc(y * kRsqrt2));
  } else {
    // erfc underflows long before its logarithm does: go through the Mills ratio.
    double m;
    if (zmillsr(y, &m) != 0) return 1;
    upper = std::log(m) + *lndensity;
  }
  const double other = zln1px(-std::exp(upper));
  if (x <= 0) {
    *lnlower = upper;
    *lnupper = other;
  } else {
    *lnupper = upper;
    *lnlower = other;
  }
  return 0;
}

double zprbigs(double a, double b) {
  if (a == 0) return 0.0;
  const double s = std::sqrt(a);
  const double r = std::sqrt(b);
  const double z = (s + 1.0 / s) * r * kRsqrt2;
  double v;
  if (!(z > 4.0)) {
    const double e2b = std::exp(2.0 * b);
    v = zferfc(z) * e2b / 2.0;
  } else {
    // e^(2b) alone may overflow; combined with e^(-z^2) it cannot.
    const double t = tail_series(z);
    const double e = 2.0 * b - z * z;
    v = e < kUnderflow ? 0.0 : std::exp(e) / z * (kRsqrtPi - t);
    v = v * 0.5;
  }
  return zprbnrm((s - 1.0 / s) * r) + v;
}

}  // extern "C"
