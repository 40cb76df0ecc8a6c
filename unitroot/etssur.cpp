// Dickey-Fuller tests: the test context, the ordinary and augmented test, the seasonal
// Dickey-Hasza-Fuller test with an estimated autoregressive filter, and the run of all
// three variants over a list of lag orders.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "fmsd/probability.h"
#include "fmsd/unitroot.h"
#include "unitroot/etssur.h"
#include "util/numeric.h"

namespace fmsd::etss {

namespace {

// Beyond this many regressors the packed indices would leave 32 bits.
constexpr int kMaxRegressors = 46000;

template <class T>
void give_back(T*& block) noexcept {
  if (block == nullptr) return;
  fmsd_pool* pool = host_pool();
  pool->free(pool, block, 0, FMSD_POOL_ORDINARY);
  block = nullptr;
}

template <class T>
T* take(std::int64_t count) noexcept {
  return static_cast<T*>(pool_alloc(static_cast<fmsd_word>(sizeof(T) * static_cast<std::size_t>(count))));
}

void give_back(etss_regression& r) noexcept {
  give_back(r.row);
  give_back(r.diagonal);
  give_back(r.status);
  give_back(r.matrix);
  give_back(r.swept);
  give_back(r.dropped);
  give_back(r.params);
}

void give_back_all(etss_context* c) noexcept {
  give_back(c->main);
  give_back(c->aux);
  give_back(c->work);
  for (etss_result*& r : c->results) give_back(r);
}

// Arrays for up to k regressors; true when every one was had.
bool take(etss_regression& r, int k) noexcept {
  r.capacity = k;
  const std::int64_t order = k + 1, packed = order * (order + 1) / 2;
  r.row = take<double>(order);
  r.diagonal = take<double>(order);
  r.status = take<char>(order);
  r.matrix = take<double>(packed);
  r.swept = take<double>(packed);
  r.dropped = take<unsigned char>(k > 0 ? k : 1);
  r.params = take<etss_param>(k > 0 ? k : 1);
  return r.row && r.diagonal && r.status && r.matrix && r.swept && r.dropped && r.params;
}

etss_result missing_result() noexcept {
  const double m = missing();
  return {0.0, m, m, m, m, m, m, m, m, 0};
}

// The joint F test that the last deterministic coefficient and the level coefficient
// (less 1 in the level form) are both zero, from the inverse block of the swept matrix.
void getfstat(const etss_regression& r, int variant, int augmented, etss_result* out) noexcept {
  const int i1 = variant - 1, i2 = variant;
  const etss_param &p1 = r.params[i1], &p2 = r.params[i2];
  if (!p1.kept || !p2.kept || !(r.s2 > kTiny)) return;
  int pos1 = 0;
  for (int i = 0; i < i1; ++i) pos1 += r.dropped[i] ? 0 : 1;
  const int pos2 = pos1 + 1;
  // The deterministic estimate as fitted: a shifted level leaves the hypothesis
  // "both zero" the same in the fit's own coordinates.
  const double b1 = r.swept[zisub(pos1, r.rank)], b2 = augmented ? p2.estimate : p2.estimate - 1;
  const double a = r.swept[zisub(pos1, pos1)], b = r.swept[zisub(pos1, pos2)], c = r.swept[zisub(pos2, pos2)];
  const double det = a * c - b * b;
  if (!(std::fabs(det) > kTiny)) return;
  out->fstat = divide_unitroot(0.5 * ((a * b2 - b * b1) * b2 + (c * b1 - b * b2) * b1), det * r.s2);
  if (wzmis(out->fstat)) return;
  const double prob = zprbf(out->fstat, 2, r.dfe);
  if (prob >= 0) out->f_prob = prob;
}

// rho, tau, F and their probabilities from a fitted regression whose level coefficient
// follows the variant's deterministic terms.
void getdfts(const etss_regression& r, int variant, int d, int p, int augmented, double alpha,
             etss_result* out) noexcept {
  const double miss = missing();
  etss_result res = missing_result();
  const etss_param& level = r.params[variant];
  // A level coefficient dropped as collinear has no statistic, not a zero one.
  if (level.kept) {
    double b = level.estimate;
    res.tau = level.t;
    res.tau_tprob = level.prob;
    if (!augmented) {
      b -= 1;
      res.tau = divide_unitroot(b, level.se);
      res.tau_tprob = miss;
      if (!wzmis(res.tau)) {
        const double prob = zpgt2(res.tau * res.tau, r.nobs);
        if (prob >= 0) res.tau_tprob = prob;
      }
    }
    if (d == 1 && p > 0) {
      double sum = 0;
      for (int j = 1; j <= p; ++j) sum += r.params[variant + j].estimate;
      b = divide_unitroot(b, 1 - sum);
    }
    res.rho = wzmis(b) ? miss : r.nobs * b;
  }
  if (variant != 0 && d == 1) getfstat(r, variant, augmented, &res);
  getdfpval(r.sse_n, r.nobs, variant, d, alpha, &res);
  *out = res;
}

// z[t] = x[t] - sum phi[j-1] x[t-j], missing when a term is; the count of present z.
int getres0(const double* phi, int p, const double* x, int n, double* z) noexcept {
  const double miss = missing();
  int count = 0;
  for (int t = 0; t < n; ++t) {
    z[t] = miss;
    if (t < p || wzmis(x[t])) continue;
    double v = x[t];
    bool present = true;
    for (int j = 1; j <= p && present; ++j) {
      present = !wzmis(x[t - j]);
      v -= phi[j - 1] * x[t - j];
    }
    if (!present) continue;
    z[t] = v;
    ++count;
  }
  return count;
}

// Dickey-Hasza-Fuller with p > 0: the autoregression of the seasonal differences gives
// a filter; the main regression is accumulated from the filtered series.
int seasonal(etss_context* c, const double* y, const double* diff, int n, int variant, int d, int p) noexcept {
  etss_regression& a = c->aux;
  int status = getsscp(&a, diff, n, p);
  if (status < 0) return status;
  if (getswept(&a) < 0) return ETSS_SWEEP_FAILED;
  double* const level = c->work;
  double* const dep = c->work + n;
  double* const phi = c->work + 2 * static_cast<std::ptrdiff_t>(n);
  getpest(&a, phi);
  getres0(phi, p, y, n, level);
  if (getres0(phi, p, diff, n, dep) <= variant + p + 1) return ETSS_TOO_FEW;
  double lo = 0, hi = 0;
  for (int t = 0, any = 0; t < n; ++t)
    if (!wzmis(level[t])) {
      lo = any ? fmin(lo, level[t]) : level[t];
      hi = any ? fmax(hi, level[t]) : level[t];
      any = 1;
    }
  return getsscps(&c->main, level, diff, dep, n, variant, d, p, 0.5 * lo + 0.5 * hi);
}

// The checks on the differences that every test makes before its regression.
int screen(int m, double level_range, double diff_range, int k) noexcept {
  if (m < k) return ETSS_TOO_FEW;
  if (level_range <= kTiny) return ETSS_NO_LEVEL_VARIATION;
  if (diff_range <= kTiny) return ETSS_NO_DIFFERENCE_VARIATION;
  return 0;
}

}  // namespace

}  // namespace fmsd::etss

using namespace fmsd::etss;

extern "C" {

FMSD_API int etssurm(int mode, int method, int variant, int d, int maxp, int nlags, const int* lags, double alpha,
                     int augmented, int n, etss_context* context) {
  if (context == nullptr) return ETSS_BAD_SETTINGS;
  etss_context* const c = context;
  if (mode == 0) {
    give_back_all(c);
    return 0;
  }
  std::memset(c, 0, sizeof *c);
  c->method = method;
  c->variant = method == ETSS_RANDOM_WALK ? ETSS_SINGLE_MEAN : variant;
  c->d = method == ETSS_REGRESSION ? d : 1;
  c->maxlag = maxp;
  c->nlags = nlags;
  c->lags = lags;
  c->alpha = alpha;
  c->augmented = augmented;
  c->n = n;
  if (maxp < 0 || n < 0 || maxp > kMaxRegressors) return ETSS_BAD_SETTINGS;

  // Room for the trend regression whatever the variant: etssur and etssur2 fit it
  // first and derive the other variants from it.
  const bool pp = method == ETSS_PHILLIPS_PERRON;
  bool ok = take(c->main, pp ? 3 : 3 + maxp);
  if (!pp && c->d > 1) {
    ok &= take(c->aux, maxp);
    c->work = take<double>(3 + maxp + 2 * static_cast<std::int64_t>(n) + 2);
    ok &= c->work != nullptr;
  }
  if (pp) {
    c->work = take<double>(static_cast<std::int64_t>(maxp) + n + 1);
    ok &= c->work != nullptr;
  }
  for (int v = 0; v < 3 && nlags > 0; ++v) {
    c->results[v] = take<etss_result>(nlags);
    ok &= c->results[v] != nullptr;
  }
  const int status = xmemdef();
  if (status == 0 && ok) return 0;
  give_back_all(c);
  return status != 0 ? status : 1;
}

FMSD_API int etssdft(const double* y, int n, etss_context* context, double* diff) {
  if (context == nullptr || y == nullptr || diff == nullptr || n < 0) return ETSS_BAD_SETTINGS;
  etss_context* const c = context;
  const int variant = c->variant, d = c->d, p = c->p, augmented = c->augmented;
  if (p < 0 || d < 0 || d > 12 || variant < 0 || variant > 2 || (variant == 2 && d > 1) ||
      (c->method == ETSS_RANDOM_WALK && variant != 1))
    return ETSS_BAD_SETTINGS;
  // The form of the regression follows from d and p; a flag that contradicts it would
  // misread the level coefficient.
  if (d > 1 ? augmented != (p > 0) : (!augmented && p > 0)) return ETSS_BAD_SETTINGS;
  const int k = variant + p + 1;
  if (k > c->main.capacity) return ETSS_BAD_SETTINGS;
  if (d > 1 && p > 0 && (p > c->aux.capacity || c->work == nullptr || n > c->n)) return ETSS_BAD_SETTINGS;

  double level_range = 0, diff_range = 0, mid = 0;
  const int m = getdif(y, n, d, diff, &level_range, &diff_range, &mid);
  if (m < 0) return ETSS_TOO_FEW;
  int status = screen(m, level_range, diff_range, k);
  if (status < 0) return status;

  etss_regression& r = c->main;
  if (d <= 1)
    status = augmented ? getsscpy(&r, y, diff, n, variant, p, mid) : getsscpn(&r, y, n, variant, 1, mid);
  else if (p == 0)
    status = getsscpn(&r, y, n, variant, d, mid);
  else
    status = seasonal(c, y, diff, n, variant, d, p);
  if (status < 0) return status;
  if (getswept(&r) < 0) return ETSS_SWEEP_FAILED;
  getpest(&r, nullptr);
  getdfts(r, variant, d, p, augmented, c->alpha, &c->result);
  return 0;
}

FMSD_API int etssur(const double* y, int n, etss_context* context, double* diff) {
  if (context == nullptr || context->nlags < 0) return ETSS_BAD_SETTINGS;
  etss_context* const c = context;
  if (c->nlags == 0) return 0;
  if (c->lags == nullptr || c->results[0] == nullptr || y == nullptr || diff == nullptr || n < 0)
    return ETSS_BAD_SETTINGS;
  const etss_result none = missing_result();

  if (c->d != 1) {
    // Seasonal (or invalid) periods: one full test per variant, the context's settings
    // restored afterwards.
    const int p0 = c->p, variant0 = c->variant, augmented0 = c->augmented;
    for (int i = 0; i < c->nlags; ++i)
      for (int v = 2; v >= 0; --v) {
        c->p = c->lags[i];
        c->variant = v;
        c->augmented = c->p > 0;
        c->results[v][i] = etssdft(y, n, c, diff) == 0 ? c->result : none;
      }
    c->p = p0;
    c->variant = variant0;
    c->augmented = augmented0;
    return 0;
  }

  double level_range = 0, diff_range = 0, mid = 0;
  const int m = getdif(y, n, 1, diff, &level_range, &diff_range, &mid);
  etss_regression& r = c->main;
  for (int i = 0; i < c->nlags; ++i) {
    const int p = c->lags[i];
    for (int v = 0; v < 3; ++v) c->results[v][i] = none;
    if (m < 0 || p < 0 || 3 + p > r.capacity) continue;
    // The trend regression's cross products hold those of the other two variants:
    // deleting the trend and then the intercept gives them without a second pass.
    const int accumulated = getsscpy(&r, y, diff, n, 2, p, mid);
    if (accumulated == ETSS_OVERFLOW || accumulated == ETSS_NO_LEVEL_VARIATION) continue;
    for (int v = 2; v >= 0; --v) {
      if (v < 2) drop_deterministic(r, v);
      if (screen(m, level_range, diff_range, r.k) < 0 || r.nobs <= r.k || getswept(&r) < 0) continue;
      getpest(&r, nullptr);
      getdfts(r, v, 1, p, 1, c->alpha, &c->results[v][i]);
    }
  }
  return 0;
}

}  // extern "C"
