// Phillips-Perron tests: the Dickey-Fuller statistics of the regression of y[t] on
// y[t-1] corrected for serial correlation of its residuals by a Bartlett-weighted
// (Newey-West) long-run variance, for each truncation lag of the context.
#include <cmath>
#include <cstddef>

#include "fmsd/unitroot.h"
#include "unitroot/etssur.h"
#include "util/numeric.h"

namespace fmsd::etss {

namespace {

void missing_records(etss_result* records, int count) noexcept {
  const double m = missing();
  for (int i = 0; i < count; ++i) records[i] = {m, m, m, m, m, m, m, m, m, 0};
}

// e[t] = y[t] - (a + b t) - rho y[t-1] with the intercept a (variants 1, 2) and the
// trend b (variant 2) of the fit; missing where y[t] or y[t-1] is. Returns the count
// of present residuals.
int getresn(const double* y, int n, int variant, const etss_param* params, double* e) noexcept {
  const double miss = missing();
  const double a = variant >= 1 ? params[0].estimate : 0.0;
  const double b = variant == 2 ? params[1].estimate : 0.0;
  const double rho = params[variant].estimate;
  int count = 0;
  if (n > 0) e[0] = miss;
  for (int t = 1; t < n; ++t) {
    if (wzmis(y[t]) || wzmis(y[t - 1])) {
      e[t] = miss;
      continue;
    }
    e[t] = y[t] - (a + b * t) - rho * y[t - 1];
    ++count;
  }
  return count;
}

// Z(rho) and Z(tau) for each truncation lag. Returns the status of the last
// probability lookup, or 3 when the level coefficient has no t value.
int getppts(const double* e, int n, int variant, double alpha, const int* lags, int nlags, int maxlag,
            const etss_regression& r, double* acov, etss_result* records) noexcept {
  const double miss = missing();
  const double big_t = r.nobs;
  const double s2 = r.sse / big_t;
  const double sigma = s2 > 0 ? std::sqrt(s2) : 0.0;
  const etss_param& level = r.params[variant];
  const double b = level.estimate - 1;
  const double t = level.kept ? divide_unitroot(b, level.se) : miss;
  if (wzmis(t)) {
    missing_records(records, nlags);
    return 3;
  }
  // The residual standard error of the fit over that of the level coefficient; 0 for
  // a perfect fit, where both vanish.
  const double c = divide_unitroot(level.se * big_t, r.rmse);

  acov[0] = s2;
  for (int j = 1; j <= maxlag; ++j) {
    double sum = 0;
    bool any = false;
    for (int i = j; i < n; ++i)
      if (!wzmis(e[i]) && !wzmis(e[i - j])) {
        sum += e[i] * e[i - j];
        any = true;
      }
    acov[j] = any ? sum / big_t : miss;
  }
  int top = maxlag;
  while (top > 0 && wzmis(acov[top])) --top;

  int status = 0;
  for (int q = 0; q < nlags; ++q) {
    etss_result& rec = records[q];
    const int l = lags[q];
    missing_records(&rec, 1);
    if (l < 0 || l > top) continue;
    double lambda = 0, w = 1;
    for (int j = 1; j <= l; ++j) {
      if (wzmis(acov[j])) continue;
      w -= 1.0 / (l + 1);
      lambda += 2 * w * acov[j];
    }
    rec.omega = s2 + lambda > 0 ? std::sqrt(s2 + lambda) : 0.0;
    rec.rho = big_t * b - 0.5 * c * c * lambda;
    rec.tau = divide_unitroot(t * sigma - 0.5 * c * lambda, rec.omega);
    status = getdfpval(s2, r.nobs, variant, 1, alpha, &rec);
  }
  return status;
}

// Whether the context was made for these tests and holds a series of n values.
bool usable(const etss_context* c, const double* y, int n, const double* diff) noexcept {
  return c != nullptr && y != nullptr && diff != nullptr && n >= 0 && c->method == ETSS_PHILLIPS_PERRON &&
         c->work != nullptr && n <= c->n && c->maxlag >= 0 && c->main.capacity >= 3 &&
         (c->nlags <= 0 || (c->lags != nullptr && c->results[0] != nullptr));
}

int screen(const double* y, int n, double* diff, int needed, double* mid) noexcept {
  double level_range = 0, diff_range = 0;
  const int m = getdif(y, n, 1, diff, &level_range, &diff_range, mid);
  if (m < needed) return ETSS_TOO_FEW;
  if (level_range <= kTiny) return ETSS_NO_LEVEL_VARIATION;
  if (diff_range <= kTiny) return ETSS_NO_DIFFERENCE_VARIATION;
  return 0;
}

}  // namespace

}  // namespace fmsd::etss

using namespace fmsd::etss;

extern "C" {

FMSD_API int etssppt(const double* y, int n, etss_context* context, double* estimates, double* diff) {
  if (!usable(context, y, n, diff) || context->variant < 0 || context->variant > 2) return ETSS_BAD_SETTINGS;
  etss_context* const c = context;
  const int variant = c->variant, k = variant + 1;
  double mid = 0;
  int status = screen(y, n, diff, k + c->maxlag + 1, &mid);
  if (status < 0) return status;
  etss_regression& r = c->main;
  status = getsscpn(&r, y, n, variant, 1, mid);
  if (status < 0) return status;
  if (getswept(&r) < 0) return ETSS_SWEEP_FAILED;
  getpest(&r, estimates);
  if (getresn(y, n, variant, r.params, c->work) <= k + c->maxlag) return ETSS_TOO_FEW;
  return getppts(c->work, n, variant, c->alpha, c->lags, c->nlags > 0 ? c->nlags : 0, c->maxlag, r, c->work + n,
                 c->results[variant]);
}

FMSD_API int etssur2(const double* y, int n, etss_context* context, double* diff) {
  if (!usable(context, y, n, diff)) return ETSS_BAD_SETTINGS;
  etss_context* const c = context;
  const int nlags = c->nlags > 0 ? c->nlags : 0;
  double mid = 0;
  int status = screen(y, n, diff, 3, &mid);
  if (status < 0) return status;
  etss_regression& r = c->main;
  // One pass for the trend regression; the other variants delete its trend and then
  // its intercept column.
  const int accumulated = getsscpn(&r, y, n, 2, 1, mid);
  if (accumulated == ETSS_OVERFLOW || accumulated == ETSS_NO_LEVEL_VARIATION) {
    for (etss_result* records : c->results) missing_records(records, nlags);
    return accumulated;
  }
  for (int v = 2; v >= 0; --v) {
    if (v < 2) drop_deterministic(r, v);
    if (r.nobs <= r.k)
      status = ETSS_TOO_FEW;
    else if (getswept(&r) < 0)
      status = ETSS_SWEEP_FAILED;
    else {
      getpest(&r, nullptr);
      getresn(y, n, v, r.params, c->work);
      status = getppts(c->work, n, v, c->alpha, c->lags, nlags, c->maxlag, r, c->work + n, c->results[v]);
    }
    if (status < 0) missing_records(c->results[v], nlags);
  }
  return status;
}

}  // extern "C"
