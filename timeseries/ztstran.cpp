// The four transformation families (logarithm, square root, logit, Box-Cox), their
// inverses, and the median, mean and standard error of a forecast turned back to the
// original scale when it is normal on the transformed scale.
//
// Overflow is never trapped: each routine checks its arguments against the limits
// below before computing, and whatever still comes out as an infinity or a NaN (an
// infinite or NaN input, an extreme parameter) is reported as outside the domain.
#include <cmath>
#include <cstring>

#include "fmsd/transform.h"
#include "util/numeric.h"

namespace {

using fmsd::missing;
using fmsd::wzmis;

constexpr double kExpLimit = 709.78271289339;      // exp of anything above overflows
constexpr double kUnderflow = -708.3964185;        // exp of anything below is 0
constexpr double kRootRange = 1.3407807929943e154; // its square still fits
constexpr double kHalfRange = 8.988465674311578e307;
constexpr double kSquareGuard = 1.3407807929942597e152;  // 2^512 / 100
constexpr double kRootEps = 1.053671212772351e-8;        // square root of the unit round-off
constexpr double kLambdaZero = 1e-8;               // Box-Cox exponents nearer 0 mean the logarithm
constexpr double kNormalDensity0 = 0.3989422804014327;
constexpr double kScaleFloor = 1.491668147e-154;

void put(double* p, double v) {
  if (p != nullptr) *p = v;
}

int fail(double* out, int status) {
  put(out, missing());
  return status;
}

int finite(double v, double* out) {
  if (!std::isfinite(v)) return fail(out, 1);
  put(out, v);
  return 0;
}

double or_default(double theta, double dflt) { return wzmis(theta) ? dflt : theta; }

// ---- forward and inverse ----

int log_forward(double x, double theta, double* out) {
  if (wzmis(x)) return fail(out, -1);
  const double v = x + or_default(theta, 0);
  if (!(v > 0)) return fail(out, 1);
  return finite(std::log(v), out);
}

int log_inverse(double y, double theta, double* out) {
  if (wzmis(y)) return fail(out, -1);
  if (!(y <= kExpLimit)) return fail(out, 1);
  return finite(std::exp(y) - or_default(theta, 0), out);
}

int sqrt_forward(double x, double theta, double* out) {
  if (wzmis(x)) return fail(out, -1);
  const double v = x + or_default(theta, 0);
  if (!(v >= 0)) return fail(out, 1);
  return finite(std::sqrt(v), out);
}

int sqrt_inverse(double y, double theta, double* out) {
  if (wzmis(y)) return fail(out, -1);
  if (!(std::fabs(y) < kRootRange)) return fail(out, 1);
  return finite(y * y - or_default(theta, 0), out);
}

int logit_forward(double x, double theta, double* out) {
  if (wzmis(x)) return fail(out, -1);
  const double tx = or_default(theta, 1) * x;
  const double ratio = fmsd::divide(tx, 1 - tx);
  if (!(ratio > 0)) return fail(out, 1);
  return finite(std::log(ratio), out);
}

// A missing y comes back as it is, whatever its low bits hold.
int logit_inverse(double y, double theta, double* out) {
  if (wzmis(y)) {
    put(out, y);
    return -1;
  }
  theta = or_default(theta, 1);
  if (std::isnan(y) || std::isnan(theta)) return fail(out, 1);
  double p;
  if (y > -kUnderflow) p = 1;
  else if (y <= -kExpLimit) p = 0;
  else p = 1 / (1 + std::exp(-y));
  return finite(fmsd::divide(p, theta), out);
}

int boxcox_forward(double x, double lambda, double* out) {
  if (wzmis(x)) return fail(out, -1);
  if (std::isnan(x)) return fail(out, 1);
  if (wzmis(lambda)) return finite(x, out);
  if (std::fabs(lambda) < kLambdaZero) return log_forward(x, 0, out);
  int status;
  const double p = zpower(x, lambda, &status);
  if (status != 0) return fail(out, 1);
  const double v = fmsd::divide(p - 1, lambda);
  if (!(std::fabs(v) < kRootRange)) return fail(out, 1);
  put(out, v);
  return 0;
}

int boxcox_inverse(double y, double lambda, double* out) {
  if (wzmis(y)) return fail(out, -1);
  if (std::isnan(y)) return fail(out, 1);
  if (wzmis(lambda)) return finite(y, out);
  if (std::fabs(lambda) < kLambdaZero) return log_inverse(y, 0, out);
  int status;
  const double v = zpower(lambda * y + 1, 1 / lambda, &status);
  if (status != 0) return fail(out, 1);
  return finite(v, out);
}

// ---- moments of the back-transformed value ----

int log_moments(double y, double s, double theta, double* median, double* mean, double* se) {
  if (wzmis(y) || wzmis(s)) {
    fail(median, -1);
    fail(mean, -1);
    return fail(se, -1);
  }
  theta = or_default(theta, 0);
  if (!(y < kExpLimit)) {
    fail(median, 1);
    fail(mean, 1);
    return fail(se, 1);
  }
  const double e = std::exp(y);
  int status = finite(e - theta, median);
  const double half = s * s / 2;
  if (!(half < kExpLimit)) {
    fail(mean, 1);
    return fail(se, 1);
  }
  const double f = std::exp(half);
  if (!(e < kRootRange && f < kRootRange)) {
    fail(mean, 1);
    return fail(se, 1);
  }
  status |= finite(e * f - theta, mean);
  if (e * f >= kRootRange) return fail(se, 1);
  // f^2 - 1 from expm1: it vanishes for small s, where the difference would be all rounding.
  const double f2m1 = std::expm1(s * s);
  put(se, f2m1 > 0 ? e * f * std::sqrt(f2m1) : 0.0);
  return status;
}

int sqrt_moments(double y, double s, double theta, double* median, double* mean, double* se) {
  if (wzmis(y) || wzmis(s)) {
    fail(median, -1);
    fail(mean, -1);
    return fail(se, -1);
  }
  theta = or_default(theta, 0);
  if (!(std::fabs(y) < kRootRange)) {
    fail(median, 1);
    fail(mean, 1);
    return fail(se, 1);
  }
  const double y2 = y * y;
  const double s2 = s * s;
  int status = finite(y2 - theta, median);
  if (!(s < kRootRange && y2 < kHalfRange && s2 < kHalfRange)) {
    fail(mean, 1);
    return fail(se, 1);
  }
  status |= finite(y2 + s2 - theta, mean);
  if (s2 > kSquareGuard || y2 > kSquareGuard) return fail(se, 1);
  const double v = (4 * y2 + 2 * s2) * s2;
  put(se, v > 0 ? std::sqrt(v) : 0.0);
  return status;
}

// A forward or inverse routine of one family.
using Single = int (*)(double, double, double*);

// Mean and variance of inverse(Y), Y ~ N(y, s^2), by the trapezoidal rule on the
// normal density over n steps of s/m on each side, stopping once the terms no longer
// count. Box-Cox uses only the nodes above 0 below the centre.
int quadrature_moments(Single inverse, bool boxcox, double y, double s, double theta, int n, int m,
                       const double* w, double* median, double* mean, double* se) {
  if (w == nullptr || n < 1 || m < 1 || wzmis(w[0])) {
    fail(median, -1);
    fail(mean, -1);
    return fail(se, -1);
  }
  double g0;
  if (inverse(y, theta, &g0) != 0) {
    put(median, g0);
    put(mean, g0);
    return fail(se, boxcox ? -1 : 1);
  }
  put(median, g0);
  put(mean, g0);
  if (wzmis(s)) return fail(se, 0);
  if (!std::isfinite(s)) return fail(se, 1);
  if (s <= kRootEps * std::fabs(y)) {
    put(se, s);
    return 0;
  }

  double s1 = g0 * w[0];
  double s2 = s1 * g0;
  const double step = s / m;
  const double tol = kRootEps / n;
  for (int k = 1; k <= n; ++k) {
    const double t = k * step;
    double upper, lower = 0, b = 0;
    if (inverse(y + t, theta, &upper) != 0) return fail(se, 1);
    const double a = w[k] * upper;
    s1 += a;
    s2 += a * upper;
    if (!boxcox || y - t > 0) {
      if (inverse(y - t, theta, &lower) != 0) return fail(se, 1);
      b = w[k] * lower;
    }
    if (s2 > kHalfRange || b > kHalfRange) return fail(se, 1);
    s1 += b;
    s2 += b * lower;
    if (s1 * tol > std::fabs(a) && s1 * tol > std::fabs(b)) break;
  }
  put(mean, s1);
  const double var = s2 - s1 * s1;
  put(se, var > 0 ? std::sqrt(var) : 0.0);
  return 0;
}

// The median and the root mean squared error about it, from a moment routine's results;
// after a failure only the median is passed on.
int with_rmse(int status, double med, double mean, double se, double* median, double* rmse) {
  put(median, med);
  if (status != 0) return status;
  return finite(std::hypot(se, mean - med), rmse);
}

bool table_ready(int n, int m, double* w) {
  if (w == nullptr) return false;
  return !wzmis(w[0]) || ztstniw(n, m, w) == 0;
}

// An unknown family (no routine) copies the values.
int each(Single single, const double* x, int count, double theta, double* out) {
  if (count <= 0 || x == nullptr || out == nullptr) return -1;
  int worst = 0;
  for (int i = 0; i < count; ++i) {
    if (single == nullptr) out[i] = x[i];
    else if (single(x[i], theta, &out[i]) == 1) worst = 1;
  }
  return worst;
}

// Names are compared on exactly eight characters, blank-padded; a negative length
// means a NUL-terminated name.
int lookup(const char* name, int length, const char (*names)[9], int count) {
  char padded[8];
  std::memset(padded, ' ', sizeof padded);
  if (name != nullptr) {
    if (length < 0) length = fmsd::wzstlen(name);
    std::memcpy(padded, name, static_cast<size_t>(fmsd::min(length, 8)));
  }
  for (int i = 0; i < count; ++i)
    if (std::memcmp(padded, names[i], 8) == 0) return i + 1;
  return 0;
}

Single forward_of(int type) {
  switch (type) {
    case ZTST_LOG: return log_forward;
    case ZTST_SQRT: return sqrt_forward;
    case ZTST_LOGIT: return logit_forward;
    case ZTST_BOXCOX: return boxcox_forward;
    default: return nullptr;
  }
}

Single inverse_of(int type) {
  switch (type) {
    case ZTST_LOG: return log_inverse;
    case ZTST_SQRT: return sqrt_inverse;
    case ZTST_LOGIT: return logit_inverse;
    case ZTST_BOXCOX: return boxcox_inverse;
    default: return nullptr;
  }
}

}  // namespace

extern "C" {

FMSD_API int ztstlf(double x, double theta, double* out) { return log_forward(x, theta, out); }
FMSD_API int ztstsf(double x, double theta, double* out) { return sqrt_forward(x, theta, out); }
FMSD_API int ztstgf(double x, double theta, double* out) { return logit_forward(x, theta, out); }
FMSD_API int ztstbf(double x, double theta, double* out) { return boxcox_forward(x, theta, out); }
FMSD_API int ztstli(double y, double theta, double* out) { return log_inverse(y, theta, out); }
FMSD_API int ztstsi(double y, double theta, double* out) { return sqrt_inverse(y, theta, out); }
FMSD_API int ztstgi(double y, double theta, double* out) { return logit_inverse(y, theta, out); }
FMSD_API int ztstbi(double y, double theta, double* out) { return boxcox_inverse(y, theta, out); }

FMSD_API int ztstle(double y, double s, double theta, double* median, double* mean, double* se) {
  return log_moments(y, s, theta, median, mean, se);
}

FMSD_API int ztstse(double y, double s, double theta, double* median, double* mean, double* se) {
  return sqrt_moments(y, s, theta, median, mean, se);
}

FMSD_API int ztstge(double y, double s, double theta, int n, int m, const double* w, double* median, double* mean,
                    double* se) {
  return quadrature_moments(logit_inverse, false, y, s, theta, n, m, w, median, mean, se);
}

FMSD_API int ztstbe(double y, double s, double theta, int n, int m, const double* w, double* median, double* mean,
                    double* se) {
  return quadrature_moments(boxcox_inverse, true, y, s, theta, n, m, w, median, mean, se);
}

FMSD_API int ztstlm(double y, double s, double theta, double* median, double* rmse) {
  double med, mean, se;
  const int status = log_moments(y, s, theta, &med, &mean, &se);
  return with_rmse(status, med, mean, se, median, rmse);
}

FMSD_API int ztstsm(double y, double s, double theta, double* median, double* rmse) {
  double med, mean, se;
  const int status = sqrt_moments(y, s, theta, &med, &mean, &se);
  return with_rmse(status, med, mean, se, median, rmse);
}

FMSD_API int ztstgm(double y, double s, double theta, int n, int m, const double* w, double* median, double* rmse) {
  double med, mean, se;
  const int status = ztstge(y, s, theta, n, m, w, &med, &mean, &se);
  return with_rmse(status, med, mean, se, median, rmse);
}

FMSD_API int ztstbm(double y, double s, double theta, int n, int m, const double* w, double* median, double* rmse) {
  double med, mean, se;
  const int status = ztstbe(y, s, theta, n, m, w, &med, &mean, &se);
  return with_rmse(status, med, mean, se, median, rmse);
}

FMSD_API int ztstf(double x, int type, double theta, double* out) {
  const Single f = forward_of(type);
  if (f == nullptr) {
    put(out, x);
    return 0;
  }
  return f(x, theta, out);
}

FMSD_API int ztsti(double y, int type, double theta, double* out) {
  const Single f = inverse_of(type);
  if (f == nullptr) {
    put(out, y);
    return 0;
  }
  return f(y, theta, out);
}

FMSD_API int ztstfv(const double* x, int count, int type, double theta, double* out) {
  return each(forward_of(type), x, count, theta, out);
}

FMSD_API int ztstiv(const double* y, int count, int type, double theta, double* out) {
  return each(inverse_of(type), y, count, theta, out);
}

FMSD_API int ztste(double y, double s, int type, double theta, int n, int m, double* w, double* mean, double* se) {
  double median;
  switch (type) {
    case ZTST_LOG: return ztstle(y, s, theta, &median, mean, se);
    case ZTST_SQRT: return ztstse(y, s, theta, &median, mean, se);
    case ZTST_LOGIT:
    case ZTST_BOXCOX:
      if (!table_ready(n, m, w)) {
        fail(mean, -1);
        return fail(se, -1);
      }
      return type == ZTST_LOGIT ? ztstge(y, s, theta, n, m, w, &median, mean, se)
                                : ztstbe(y, s, theta, n, m, w, &median, mean, se);
    default:
      put(mean, y);
      return 0;
  }
}

FMSD_API int ztstm(double y, double s, int type, double theta, int n, int m, double* w, double* median,
                   double* rmse) {
  switch (type) {
    case ZTST_LOG: return ztstlm(y, s, theta, median, rmse);
    case ZTST_SQRT: return ztstsm(y, s, theta, median, rmse);
    case ZTST_LOGIT:
    case ZTST_BOXCOX:
      if (!table_ready(n, m, w)) return fail(median, -1);
      return type == ZTST_LOGIT ? ztstgm(y, s, theta, n, m, w, median, rmse)
                                : ztstbm(y, s, theta, n, m, w, median, rmse);
    default:
      put(median, y);
      return 0;
  }
}

FMSD_API int ztstnm(const char* name, int length) {
  static const char names[][9] = {"LOG     ", "SQRT    ", "LOGIT   ", "BOXCOX  "};
  return lookup(name, length, names, 4);
}

FMSD_API int ztstopt(const char* name, int length) {
  static const char names[][9] = {"INVERSE ", "MEAN    ", "MEDIAN  "};
  return lookup(name, length, names, 3);
}

FMSD_API int ztstniw(int n, int m, double* w) {
  if (n < 1 || m < 1 || w == nullptr) return -1;
  const double h = 1.0 / m;
  w[0] = h * kNormalDensity0;
  for (int k = 1; k <= n; ++k) {
    const double z = k * h;
    w[k] = w[0] * std::exp(-0.5 * z * z);
  }
  return 0;
}

// The scale is a power of ten just above the largest value, shrunk a little so that
// the largest value itself stays inside the logit's domain.
FMSD_API int ztstgp(const double* x, int count, double* theta) {
  double largest = 0;
  if (x != nullptr)
    for (int i = 0; i < count; ++i)
      if (!wzmis(x[i]) && x[i] > largest) largest = x[i];
  if (largest > kScaleFloor) {
    int status;
    const double p = zpower(10, std::ceil(std::log10(largest)), &status);
    if (status == 0) {
      put(theta, 0.999999 / p);
      return 0;
    }
  }
  put(theta, missing());
  return -1;
}

}  // extern "C"
