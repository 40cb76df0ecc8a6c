#include "app/regression.h"

#include <cmath>
#include <limits>

namespace fmsd::app {

namespace {

// R's lm() sets a column aside at the same relative size.
constexpr double kAliasTolerance = 1e-7;

double t_density(double t, double df) {
  return std::exp(std::lgamma((df + 1) / 2) - std::lgamma(df / 2) - 0.5 * std::log(df * M_PI) -
                  (df + 1) / 2 * std::log1p(t * t / df));
}

}  // namespace

LeastSquares::LeastSquares(const std::vector<double>& x, const std::vector<double>& y, int n, int p)
    : n_(n), kept_(static_cast<std::size_t>(p), false), coefficients_(static_cast<std::size_t>(p), NAN) {
  const auto N = static_cast<std::size_t>(n);
  std::vector<double> qty(y.begin(), y.begin() + n);
  std::vector<std::vector<double>> reflections;   // unit Householder vectors, from row k on
  std::vector<std::vector<double>> kept_columns;  // each kept column after the reflections
  for (int j = 0; j < p; ++j) {
    std::vector<double> col(N);
    for (std::size_t i = 0; i < N; ++i) col[i] = x[i * static_cast<std::size_t>(p) + static_cast<std::size_t>(j)];
    double original = 0;
    for (double v : col) original += v * v;
    original = std::sqrt(original);
    const std::size_t k = reflections.size();
    for (std::size_t r = 0; r < k; ++r) {
      const std::vector<double>& v = reflections[r];
      double dot = 0;
      for (std::size_t i = r; i < N; ++i) dot += v[i - r] * col[i];
      for (std::size_t i = r; i < N; ++i) col[i] -= 2 * dot * v[i - r];
    }
    double rest = 0;
    for (std::size_t i = k; i < N; ++i) rest += col[i] * col[i];
    rest = std::sqrt(rest);
    if (k >= N || original == 0 || rest < kAliasTolerance * original) continue;
    // Reflect col[k..] onto -sign(col[k]) * rest * e_k.
    const double alpha = col[k] >= 0 ? -rest : rest;
    std::vector<double> v(col.begin() + static_cast<std::ptrdiff_t>(k), col.end());
    v[0] -= alpha;
    double norm = 0;
    for (double e : v) norm += e * e;
    norm = std::sqrt(norm);
    for (double& e : v) e /= norm;
    col[k] = alpha;
    for (std::size_t i = k + 1; i < N; ++i) col[i] = 0;
    double dot = 0;
    for (std::size_t i = k; i < N; ++i) dot += v[i - k] * qty[i];
    for (std::size_t i = k; i < N; ++i) qty[i] -= 2 * dot * v[i - k];
    reflections.push_back(std::move(v));
    kept_columns.push_back(std::move(col));
    kept_[static_cast<std::size_t>(j)] = true;
    order_.push_back(j);
  }
  rank_ = static_cast<int>(order_.size());
  const auto K = static_cast<std::size_t>(rank_);
  r_.assign(K * K, 0);
  for (std::size_t c = 0; c < K; ++c)
    for (std::size_t r = 0; r <= c; ++r) r_[r * K + c] = kept_columns[c][r];
  // R^-1 by back substitution, column by column of the identity.
  rinv_.assign(K * K, 0);
  for (std::size_t c = 0; c < K; ++c) {
    for (std::size_t r = c + 1; r-- > 0;) {
      double s = r == c ? 1.0 : 0.0;
      for (std::size_t m = r + 1; m <= c; ++m) s -= r_[r * K + m] * rinv_[m * K + c];
      rinv_[r * K + c] = s / r_[r * K + r];
    }
  }
  for (std::size_t r = 0; r < K; ++r) {
    double b = 0;
    for (std::size_t m = r; m < K; ++m) b += rinv_[r * K + m] * qty[m];
    coefficients_[static_cast<std::size_t>(order_[r])] = b;
  }
  for (std::size_t i = K; i < N; ++i) sse_ += qty[i] * qty[i];
}

double LeastSquares::sigma() const noexcept {
  return df() > 0 ? std::sqrt(sse_ / df()) : std::numeric_limits<double>::quiet_NaN();
}

double LeastSquares::standard_error(int column) const {
  const auto K = static_cast<std::size_t>(rank_);
  for (std::size_t r = 0; r < K; ++r) {
    if (order_[r] != column) continue;
    // The diagonal of (X'X)^-1 = R^-1 R^-T is the squared norm of a row of R^-1.
    double s = 0;
    for (std::size_t m = r; m < K; ++m) s += rinv_[r * K + m] * rinv_[r * K + m];
    return sigma() * std::sqrt(s);
  }
  return std::numeric_limits<double>::quiet_NaN();
}

double LeastSquares::predict(const double* row) const {
  double s = 0;
  for (int j : order_) s += row[j] * coefficients_[static_cast<std::size_t>(j)];
  return s;
}

double LeastSquares::leverage(const double* row) const {
  // x'(R'R)^-1 x = |R^-T x|^2.
  const auto K = static_cast<std::size_t>(rank_);
  double h = 0;
  for (std::size_t c = 0; c < K; ++c) {
    double z = 0;
    for (std::size_t m = 0; m <= c; ++m) z += rinv_[m * K + c] * row[order_[m]];
    h += z * z;
  }
  return h;
}

double t_quantile(double p, int df, TwoSidedT two_sided) {
  if (!(p > 0 && p < 1) || df < 1) return std::numeric_limits<double>::quiet_NaN();
  if (p == 0.5) return 0;
  if (p < 0.5) return -t_quantile(1 - p, df, two_sided);
  const double alpha = 1 - p;
  // P(T > t) for t >= 0; the module's tail gives both sides at once.
  auto upper = [&](double t) {
    const double both = two_sided(t * t, df);
    return both < 0 ? std::numeric_limits<double>::quiet_NaN() : both / 2;
  };
  double lo = 0, hi = 1;
  while (upper(hi) > alpha && hi < 1e300) hi *= 2;
  // Newton's method, kept inside the bracket by bisection.
  double t = hi / 2;
  for (int i = 0; i < 400; ++i) {
    const double g = upper(t) - alpha;
    if (g > 0)
      lo = t;
    else
      hi = t;
    double next = t + g / t_density(t, df);
    if (!(next > lo && next < hi)) next = (lo + hi) / 2;
    if (std::fabs(next - t) <= 1e-15 * t) return next;
    t = next;
  }
  return t;
}

}  // namespace fmsd::app
