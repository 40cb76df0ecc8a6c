// Partial autocorrelations by the Durbin-Levinson recursion, and inverse
// autocorrelations from the autoregression the recursion fits on the way.
#include "fmsd/autocorr.h"
#include "util/numeric.h"

namespace {

// The inverse autocorrelations of an AR(m) process are the autocorrelations of the
// moving average with the same coefficients: with phi[0] = -1, lag j is
// sum_i phi[i] phi[i+j] / sum_i phi[i]^2. Lags past m are missing.
void pinv(double* phi, int m, int maxlag, double* iacf) {
  phi[0] = -1;
  const double d0 = zinner(phi, phi, m + 1);
  for (int j = 1; j <= m; ++j) iacf[j - 1] = zinner(phi, phi + j, m - j + 1) / d0;
  const double missing = fmsd::missing();
  for (int j = m + 1; j <= maxlag; ++j) iacf[j - 1] = missing;
}

}  // namespace

extern "C" {

FMSD_API int ztsspcr(double* acf, int n, int maxlag, double* pacf, double* iacf, double* work) {
  if (acf == nullptr || n < 0 || maxlag < 0 || pacf == nullptr || iacf == nullptr || work == nullptr)
    return ZTS_BAD_ARGUMENT;
  const int lags = maxlag;
  double* prev = work;
  double* next = work + (lags + 1);
  double* const r = work + 2 * (lags + 1);

  // A lag without an autocorrelation counts as uncorrelated, here and for the caller.
  r[0] = acf[0];
  for (int k = 1; k <= lags; ++k) {
    if (fmsd::wzmis(acf[k])) {
      r[k] = 0;
      acf[k] = 0;
    } else {
      r[k] = acf[k] / r[0];
    }
  }
  r[0] = 1;
  if (lags == 0) return 0;

  const double g = zposdef(r, lags, pacf);
  if (g < 1) {
    double gk = g;
    for (int k = 1; k <= lags; ++k) {
      r[k] *= gk;
      gk *= g;
    }
    if (zposdef(r, lags, pacf) < 1) return 1;
  }

  const int m = lags < n / 2 ? lags : n / 2;
  prev[1] = r[1] / r[0];
  pacf[1] = prev[1];
  for (int k = 2; k <= lags; ++k) {
    double num = r[k];
    double den = r[0];
    for (int j = 1; j < k; ++j) {
      num -= prev[j] * r[k - j];
      den -= prev[j] * r[j];
    }
    const double phikk = num / den;
    pacf[k] = phikk;
    for (int j = 1; j < k; ++j) next[j] = prev[j] - phikk * prev[k - j];
    next[k] = phikk;
    if (k == m) pinv(next, m, lags, iacf);
    double* t = prev;
    prev = next;
    next = t;
  }
  return 0;
}

}  // extern "C"
