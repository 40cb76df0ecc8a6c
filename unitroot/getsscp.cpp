// Least squares on a packed cross-product matrix for the unit-root regressions:
// differences, the four row layouts, the sweep that drops collinear regressors, and
// the estimates with their standard errors.
#include <cmath>
#include <cstring>

#include "fmsd/probability.h"
#include "unitroot/etssur.h"
#include "util/numeric.h"

namespace fmsd::etss {

namespace {

int packed_size(int order) { return order * (order + 1) / 2; }

// Feeds the rows that fill(t, row) builds for t = first .. n - 1 into a zeroed matrix.
// A row with a missing member is refused by zscp and not counted.
template <class Fill>
int accumulate(etss_regression* reg, int k, int first, int n, Fill fill) noexcept {
  reg->k = k;
  const int order = k + 1;
  double* const m = reg->matrix;
  std::memset(m, 0, sizeof(double) * static_cast<std::size_t>(packed_size(order)));
  int nobs = 0;
  for (int t = first; t < n; ++t) {
    fill(t, reg->row);
    if (zscp(reg->row, order, 1.0, m) == 0) continue;
    ++nobs;
    // A sum of outer products has |m_ij| <= sqrt(m_ii m_jj), so the diagonal is where
    // an element first reaches the bound.
    for (int i = 0; i < order; ++i)
      if (!(std::fabs(m[zisub(i, i)]) < kBig)) {
        reg->nobs = nobs;
        return ETSS_OVERFLOW;
      }
  }
  reg->nobs = nobs;
  reg->sst = m[zisub(k, k)];
  if (reg->sst <= kTiny) return ETSS_NO_LEVEL_VARIATION;
  return nobs > k ? 0 : ETSS_TOO_FEW;
}

// The deterministic columns that open a row: the intercept, then the time index.
int deterministic(double* row, int variant, int t) noexcept {
  int c = 0;
  if (variant >= 1) row[c++] = 1.0;
  if (variant == 2) row[c++] = static_cast<double>(t);
  return c;
}

// Standard error, t value and probability of an estimate with the given variance.
void set_se(etss_param& q, double var, int nobs) noexcept {
  q.se = var > 0 ? std::sqrt(var) : 0.0;
  q.t = q.prob = missing();
  if (q.se > kTiny) {
    q.t = q.estimate / q.se;
    const double prob = zpgt2(q.t * q.t, nobs);
    if (prob >= 0) q.prob = prob;
  }
}

// Records the layout's level regressor and intercept and the shift it takes; returns
// the shift, 0 for a layout without an intercept.
double layout(etss_regression* reg, int variant, int level, double shift, bool dep_too) noexcept {
  reg->level = level;
  reg->intercept = variant >= 1 ? 1 : 0;
  reg->level_shift = reg->intercept ? shift : 0.0;
  reg->dep_shift = dep_too ? reg->level_shift : 0.0;
  return reg->level_shift;
}

// Gives the level and dependent columns of a shifted matrix their original cross
// products again, before the intercept is deleted to leave a regression without one.
void unshift(etss_regression* reg) noexcept {
  double* const m = reg->matrix;
  const int order = reg->k + 1;
  // Column s plus c times column 0, then row s plus c times row 0.
  auto add = [&](int s, double c) {
    if (c == 0) return;
    const double m00 = m[0], m0s = m[zisub(0, s)];
    for (int j = 0; j < order; ++j)
      if (j != s) m[zisub(s, j)] += c * m[zisub(0, j)];
    m[zisub(s, s)] += 2 * c * m0s + c * c * m00;
  };
  add(reg->level, reg->level_shift);
  add(order - 1, reg->dep_shift);
  reg->level_shift = reg->dep_shift = 0;
}

struct Range {
  double lo = 0, hi = 0;
  bool any = false;
  void add(double v) noexcept {
    if (!any || v < lo) lo = v;
    if (!any || v > hi) hi = v;
    any = true;
  }
};

}  // namespace

int getdif(const double* y, int n, int d, double* diff, double* level_range, double* diff_range,
           double* level_mid) noexcept {
  if (n <= d) return -1;
  const double miss = missing();
  Range levels, diffs;
  int m = 0;
  for (int t = 0; t < n; ++t) {
    if (!wzmis(y[t])) levels.add(y[t]);
    if (t < d || wzmis(y[t]) || wzmis(y[t - d])) {
      diff[t] = miss;
      continue;
    }
    diff[t] = y[t] - y[t - d];
    diffs.add(diff[t]);
    ++m;
  }
  if (m == 0) return -1;
  *level_range = levels.hi - levels.lo;
  *diff_range = diffs.hi - diffs.lo;
  *level_mid = 0.5 * levels.lo + 0.5 * levels.hi;
  return m;
}

int getsscpy(etss_regression* reg, const double* y, const double* diff, int n, int variant, int p,
             double shift) noexcept {
  const double c = layout(reg, variant, variant, shift, false);
  return accumulate(reg, variant + p + 1, max(1, p), n, [&](int t, double* row) {
    int at = deterministic(row, variant, t);
    row[at++] = y[t - 1] - c;
    for (int j = 1; j <= p; ++j) row[at++] = diff[t - j];
    row[at] = diff[t];
  });
}

int getsscpn(etss_regression* reg, const double* y, int n, int variant, int lag, double shift) noexcept {
  const double c = layout(reg, variant, variant, shift, true);
  return accumulate(reg, variant + 1, lag, n, [&](int t, double* row) {
    const int at = deterministic(row, variant, t);
    row[at] = y[t - lag] - c;
    row[at + 1] = y[t] - c;
  });
}

int getsscp(etss_regression* reg, const double* diff, int n, int p) noexcept {
  layout(reg, 0, -1, 0.0, false);
  return accumulate(reg, p, p, n, [&](int t, double* row) {
    for (int j = 1; j <= p; ++j) row[j - 1] = diff[t - j];
    row[p] = diff[t];
  });
}

int getsscps(etss_regression* reg, const double* level, const double* diff, const double* dep, int n, int variant,
             int d, int p, double shift) noexcept {
  const double c = layout(reg, variant, variant, shift, false);
  return accumulate(reg, variant + p + 1, max(d, p), n, [&](int t, double* row) {
    int at = deterministic(row, variant, t);
    row[at++] = level[t - d] - c;
    for (int j = 1; j <= p; ++j) row[at++] = diff[t - j];
    row[at] = dep[t];
  });
}

void remove(double* matrix, int order, int index) noexcept {
  // Elements only move towards the front, so one forward pass does it in place.
  int to = 0, from = 0;
  for (int i = 0; i < order; ++i)
    for (int j = 0; j <= i; ++j, ++from)
      if (i != index && j != index) matrix[to++] = matrix[from];
}

void drop_deterministic(etss_regression& reg, int index) noexcept {
  if (index == 0) {
    unshift(&reg);
    reg.intercept = 0;
  }
  remove(reg.matrix, reg.k + 1, index);
  --reg.k;
  --reg.level;
}

int getswept(etss_regression* reg) noexcept {
  const int k = reg->k;
  double* const s = reg->swept;
  std::memset(reg->dropped, 0, static_cast<std::size_t>(k));
  int kept = k;
  for (;;) {
    // A fresh copy without the regressors dropped so far; removing from the back
    // leaves the positions of those still to be removed unchanged.
    std::memcpy(s, reg->matrix, sizeof(double) * static_cast<std::size_t>(packed_size(k + 1)));
    int order = k + 1;
    for (int i = k - 1; i >= 0; --i)
      if (reg->dropped[i]) remove(s, order--, i);
    for (int i = 0; i < order; ++i) reg->diagonal[i] = s[zisub(i, i)];
    std::memset(reg->status, '0', static_cast<std::size_t>(order));
    int refused = -1;
    for (int pos = 0; pos < kept && refused < 0; ++pos)
      if (zsweep(s, pos, order, reg->status, reg->diagonal, kSweepTolerance) != 0) refused = pos;
    if (refused < 0) break;
    if (refused == 0) return -1;
    for (int i = 0, pos = 0; i < k; ++i)
      if (!reg->dropped[i] && pos++ == refused) {
        reg->dropped[i] = 1;
        break;
      }
    --kept;
  }
  reg->rank = kept;
  reg->dfe = reg->nobs - kept;
  return 0;
}

void getpest(etss_regression* reg, double* out) noexcept {
  const double miss = missing();
  const double* const s = reg->swept;
  const int kept = reg->rank;
  double sse = s[zisub(kept, kept)];
  if (sse < 0) sse = 0;
  reg->sse = sse;
  reg->sse_n = sse / reg->nobs;
  reg->s2 = sse / (reg->nobs - kept);
  reg->rmse = reg->s2 > 0 ? std::sqrt(reg->s2) : 0.0;
  for (int i = 0, pos = 0; i < reg->k; ++i) {
    etss_param& q = reg->params[i];
    if (reg->dropped[i]) {
      q = {0.0, miss, miss, miss, 0};
    } else {
      q.estimate = s[zisub(pos, kept)];
      set_se(q, reg->s2 * s[zisub(pos, pos)], reg->nobs);
      q.kept = 1;
      ++pos;
    }
  }
  if (reg->intercept && reg->params[0].kept && (reg->level_shift != 0 || reg->dep_shift != 0)) {
    // y - c = a' + b (x - c') + ...  means  a = a' - b c' + c: with the level regressor
    // x at position l, var(a) = s2 (M00 - 2 c' M0l + c'^2 Mll) from the inverse block.
    etss_param& a = reg->params[0];
    double var = s[0];
    double b = 0;
    if (reg->level >= 0 && reg->params[reg->level].kept) {
      int l = 0;
      for (int i = 0; i < reg->level; ++i) l += reg->dropped[i] ? 0 : 1;
      const double c = reg->level_shift;
      b = reg->params[reg->level].estimate;
      var = s[0] - 2 * c * s[zisub(0, l)] + c * c * s[zisub(l, l)];
    }
    a.estimate = a.estimate - b * reg->level_shift + reg->dep_shift;
    set_se(a, reg->s2 * var, reg->nobs);
  }
  if (out != nullptr)
    for (int i = 0; i < reg->k; ++i) out[i] = reg->params[i].estimate;
}

}  // namespace fmsd::etss
