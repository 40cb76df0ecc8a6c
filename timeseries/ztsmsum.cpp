// Moving sums and means, corrected sums of squares and variances, with or without
// weights.
//
// Without weights the window slides: each step adds the value that enters it and
// removes the one that leaves, in compensated sums that carry the rounding error of
// every addition, so a step costs the same for a window of 11 or of 10,001 and a
// value that has left leaves no trace. The sums are rebuilt from the window now and
// then all the same, so that rounding cannot build up over a long series. Infinities
// and NaNs stay out of the sums and are counted instead: an infinity that has left
// the window must not leave a NaN behind. With weights every window is summed afresh,
// since each position's weight changes from one window to the next.
#include <cmath>
#include <cstddef>

#include "fmsd/moving.h"
#include "timeseries/window.h"

namespace fmsd {
namespace {

using std::ptrdiff_t;

constexpr double kNaN = __builtin_nan("");
constexpr double kInf = __builtin_inf();
constexpr double kLargest = __DBL_MAX__;

// Sums that overflowed are taken again on values scaled by a power of two, which is
// exact for everything but the smallest subnormal values, negligible beside them.
constexpr double kSumDown = 0x1p-64, kSumUp = 0x1p64;
// Scaled by 2^-540, the squares of differences of any two doubles still add up
// without overflow; the corrected sum is scaled back in two steps.
constexpr double kSquareDown = 0x1p-540, kSquareUp = 0x1p540;
// A corrected sum of squares below this fraction of the raw one has lost too many
// digits to cancellation: the values have drifted far from the shift.
constexpr double kCancellation = 0x1p-5;

// A sum that carries the rounding error of each addition (the two-sum transformation).
struct Compensated {
  double sum = 0, error = 0;
  void add(double v) noexcept {
    const double t = sum + v, z = t - sum;
    error += (sum - (t - z)) + (v - z);
    sum = t;
  }
  double value() const noexcept { return sum + error; }
};

// The infinities and NaNs of a window, which decide its sum by themselves.
struct Nonfinite {
  ptrdiff_t nan = 0, plus = 0, minus = 0;
  void count(double v, int step) noexcept {
    if (v != v) nan += step;
    else if (v > 0) plus += step;
    else minus += step;
  }
  bool any() const noexcept { return nan + plus + minus > 0; }
  double sum() const noexcept {
    if (nan > 0 || (plus > 0 && minus > 0)) return kNaN;
    return plus > 0 ? kInf : -kInf;
  }
};

// Rebuilding costs one pass over the window; every few windows' worth of steps keeps
// that to a fraction of an operation per output.
ptrdiff_t rebuild_interval(const Window& w) noexcept { return 8 * static_cast<ptrdiff_t>(w.capacity) + 2048; }

template <int Transform>
inline double transformed(double v) noexcept {
  if constexpr (Transform == ZTSM_VALUE) return v;
  else if constexpr (Transform == ZTSM_SQUARE) return v * v;
  else return std::fabs(v);
}

// The divisor rules: d < 0 reports the quantity, d >= 0 divides it by count - d.
inline double divided(double q, ptrdiff_t count, int d) noexcept {
  if (d < 0) return q;
  return count > d ? q / static_cast<double>(count - d) : 0.0;
}

// The sum of the window's finite transformed values, from scratch.
template <int Transform>
Compensated window_sum(const double* x, ptrdiff_t first, ptrdiff_t last, double scale) noexcept {
  Compensated s;
  for (ptrdiff_t i = first; i <= last; ++i) {
    if (wzmis(x[i])) continue;
    const double v = transformed<Transform>(x[i]);
    if (std::isfinite(v)) s.add(v * scale);
  }
  return s;
}

// The running state lives in plain members and every helper that rebuilds it works
// on values, so that the compiler can keep the sums in registers along the walk.
template <int Transform>
class RunningSum {
 public:
  RunningSum(const double* x, int d, const Window& w) noexcept
      : x_(x), d_(d), lag_(w.lag), lead_(w.lead), interval_(rebuild_interval(w)) {}

  void add(ptrdiff_t i) noexcept { put(transformed<Transform>(x_[i]), 1); }
  void remove(ptrdiff_t i) noexcept { put(transformed<Transform>(x_[i]), -1); }
  void replace(ptrdiff_t out, ptrdiff_t in) noexcept {
    remove(out);
    add(in);
  }

  double value(ptrdiff_t first, ptrdiff_t last, ptrdiff_t present) noexcept {
    if (nonfinite_.any()) return divided(nonfinite_.sum(), present, d_);
    if (changes_ > interval_ || !std::isfinite(sum_.sum)) {
      sum_ = window_sum<Transform>(x_, first, last, 1.0);
      changes_ = 0;
    }
    const double s = sum_.value();
    if (std::isfinite(s)) return divided(s, present, d_);
    return divided(window_sum<Transform>(x_, first, last, kSumDown).value(), present, d_) * kSumUp;
  }

  // Full windows sliding over finite values, until a value that is not, an overflow
  // or a rebuild calls for the general step.
  ptrdiff_t run(ptrdiff_t t, ptrdiff_t end, ptrdiff_t present, double* out) noexcept {
    if (nonfinite_.any()) return t;
    for (; t < end && changes_ <= interval_; ++t) {
      const double a = transformed<Transform>(x_[t - lag_ - 1]), b = transformed<Transform>(x_[t + lead_]);
      if (!(std::fabs(a) <= kLargest && std::fabs(b) <= kLargest)) break;
      sum_.add(-a);
      sum_.add(b);
      changes_ += 2;
      if (!(std::fabs(sum_.sum) <= kLargest)) {
        out[t] = value(t - lag_, t + lead_, present);
        return t + 1;
      }
      out[t] = divided(sum_.value(), present, d_);
    }
    return t;
  }

 private:
  void put(double v, int step) noexcept {
    ++changes_;
    if (!std::isfinite(v)) {
      nonfinite_.count(v, step);
      return;
    }
    finite_ += step;
    if (finite_ == 0) sum_ = {};
    else sum_.add(step > 0 ? v : -v);
  }

  const double* x_;
  int d_;
  ptrdiff_t lag_, lead_, interval_;
  ptrdiff_t changes_ = 0, finite_ = 0;
  Compensated sum_;
  Nonfinite nonfinite_;
};

struct Moments {
  double shift = 0;
  Compensated sum, squares;
};

// Sums of deviations from the mean of the window's `count` finite values, in two
// passes that skip what the running sums skip.
Moments window_moments(const double* x, ptrdiff_t first, ptrdiff_t last, ptrdiff_t count) noexcept {
  Moments m;
  m.shift = window_sum<ZTSM_VALUE>(x, first, last, 1.0).value() / static_cast<double>(count);
  if (!std::isfinite(m.shift))
    m.shift = window_sum<ZTSM_VALUE>(x, first, last, kSumDown).value() / static_cast<double>(count) * kSumUp;
  for (ptrdiff_t i = first; i <= last; ++i) {
    if (wzmis(x[i]) || !std::isfinite(x[i])) continue;
    const double y = x[i] - m.shift;
    m.sum.add(y);
    m.squares.add(y * y);
  }
  return m;
}

// The corrected sum of squares of a window whose spread overflows, times 2^-1080.
double scaled_corrected(const double* x, ptrdiff_t first, ptrdiff_t last, ptrdiff_t count) noexcept {
  const double mean = window_sum<ZTSM_VALUE>(x, first, last, kSquareDown).value() / static_cast<double>(count);
  Compensated squares;
  for (ptrdiff_t i = first; i <= last; ++i) {
    if (wzmis(x[i]) || !std::isfinite(x[i])) continue;
    const double y = x[i] * kSquareDown - mean;
    squares.add(y * y);
  }
  const double c = squares.value();
  return c > 0 ? c : 0.0;
}

// Sums of the deviations from a shift near the window's mean, so that a series at a
// level far above its spread keeps its digits: the corrected sum of squares is then
// the difference of two numbers of its own size, not of two huge ones.
class RunningMoments {
 public:
  RunningMoments(const double* x, int d, const Window& w) noexcept
      : x_(x), d_(d), lag_(w.lag), lead_(w.lead), interval_(rebuild_interval(w)) {}

  void add(ptrdiff_t i) noexcept { put(x_[i], 1); }
  void remove(ptrdiff_t i) noexcept { put(x_[i], -1); }
  void replace(ptrdiff_t out, ptrdiff_t in) noexcept {
    remove(out);
    add(in);
  }

  double value(ptrdiff_t first, ptrdiff_t last, ptrdiff_t present) noexcept {
    if (d_ < 0 ? present < 2 : present <= d_) return 0.0;
    if (nonfinite_.any()) return kNaN;
    if (finite_ == 1) return 0.0;
    if (changes_ > interval_) rebuild(first, last);
    double c = corrected();
    if (!(c >= m_.squares.value() * kCancellation)) {
      rebuild(first, last);
      c = corrected();
      if (!std::isfinite(c))
        return divided(scaled_corrected(x_, first, last, finite_), present, d_) * kSquareUp * kSquareUp;
    }
    return divided(c > 0 ? c : 0.0, present, d_);
  }

  // Full windows sliding over finite values, as long as the shift keeps its digits.
  ptrdiff_t run(ptrdiff_t t, ptrdiff_t end, ptrdiff_t present, double* out) noexcept {
    if (nonfinite_.any() || finite_ < 2 || (d_ >= 0 && present <= d_)) return t;
    for (; t < end && changes_ <= interval_; ++t) {
      const double a = x_[t - lag_ - 1], b = x_[t + lead_];
      if (!(std::fabs(a) <= kLargest && std::fabs(b) <= kLargest)) break;
      const double ya = a - m_.shift, yb = b - m_.shift;
      m_.sum.add(-ya);
      m_.sum.add(yb);
      m_.squares.add(-(ya * ya));
      m_.squares.add(yb * yb);
      changes_ += 2;
      const double c = corrected();
      if (!(c >= m_.squares.value() * kCancellation)) {
        out[t] = value(t - lag_, t + lead_, present);
        return t + 1;
      }
      out[t] = divided(c, present, d_);
    }
    return t;
  }

 private:
  void put(double v, int step) noexcept {
    ++changes_;
    if (!std::isfinite(v)) {
      nonfinite_.count(v, step);
      return;
    }
    finite_ += step;
    if (finite_ == 0) {
      m_.sum = {};
      m_.squares = {};
      return;
    }
    const double y = v - m_.shift;
    m_.sum.add(step > 0 ? y : -y);
    m_.squares.add(step > 0 ? y * y : -(y * y));
  }

  double corrected() const noexcept {
    const double s = m_.sum.value();
    return m_.squares.value() - s / static_cast<double>(finite_) * s;
  }

  void rebuild(ptrdiff_t first, ptrdiff_t last) noexcept {
    m_ = window_moments(x_, first, last, finite_);
    changes_ = 0;
  }

  const double* x_;
  int d_;
  ptrdiff_t lag_, lead_, interval_;
  ptrdiff_t changes_ = 0, finite_ = 0;
  Moments m_;
  Nonfinite nonfinite_;
};

// Weights beyond the division guard are capped at it, sign and all, and summed;
// `nonnegative` tells whether a weighted variance can only be >= 0.
double screen(double* weights, int k, bool* nonnegative) noexcept {
  double total = 0;
  *nonnegative = true;
  for (int i = 0; i < k; ++i) {
    if (std::fabs(weights[i]) > kDivideBound) weights[i] = kDivideBound;
    if (!(weights[i] >= 0)) *nonnegative = false;
    total += weights[i];
  }
  return total;
}

// Weight i belongs to position t - lag + i, lag being the caller's: a window cut to
// the series keeps its weights where they were.
template <int Transform>
int weighted_sum(const double* x, int n, const double* weights, ptrdiff_t lag, const Window& w, int strict, int d,
                 double* out) noexcept {
  const double miss = missing();
  int lost = 0;
  for (ptrdiff_t t = 0; t < n; ++t) {
    const ptrdiff_t first = t > w.lag ? t - w.lag : 0;
    const ptrdiff_t last = t + w.lead < n ? t + w.lead : n - 1;
    const ptrdiff_t base = lag - t;
    double s = 0, total = 0;
    ptrdiff_t present = 0;
    for (ptrdiff_t i = first; i <= last; ++i) {
      if (wzmis(x[i])) {
        if (strict == 1) break;
        continue;
      }
      s += weights[base + i] * transformed<Transform>(x[i]);
      total += weights[base + i];
      ++present;
    }
    if (!(std::fabs(total) >= kWeightFloor)) present = 0;
    if (summarised(strict, last - first + 1, present)) {
      out[t] = divided(s / total, present, d);
    } else {
      out[t] = miss;
      lost += 1 - wzmis(x[t]);
    }
  }
  return lost;
}

int weighted_moments(const double* x, int n, const double* weights, ptrdiff_t lag, const Window& w, int strict, int d,
                     bool nonnegative, double* out) noexcept {
  const double miss = missing();
  int lost = 0;
  for (ptrdiff_t t = 0; t < n; ++t) {
    const ptrdiff_t first = t > w.lag ? t - w.lag : 0;
    const ptrdiff_t last = t + w.lead < n ? t + w.lead : n - 1;
    const ptrdiff_t base = lag - t;
    double shift = 0;
    for (ptrdiff_t i = first; i <= last; ++i) {
      if (!wzmis(x[i]) && std::isfinite(x[i])) {
        shift = x[i];
        break;
      }
    }
    double total = 0, sum = 0, squares = 0;
    ptrdiff_t present = 0;
    for (ptrdiff_t i = first; i <= last; ++i) {
      if (wzmis(x[i])) {
        if (strict == 1) break;
        continue;
      }
      const double y = x[i] - shift;
      total += weights[base + i];
      sum += weights[base + i] * y;
      squares += weights[base + i] * y * y;
      ++present;
    }
    if (!(std::fabs(total) >= kWeightFloor)) present = 0;
    if (!summarised(strict, last - first + 1, present)) {
      out[t] = miss;
      lost += 1 - wzmis(x[t]);
      continue;
    }
    const double mean = sum / total;
    double c = squares / total - mean * mean;
    if (nonnegative && c < 0) c = 0;
    out[t] = d < 0 ? (present >= 2 ? c : 0.0) : divided(c, present, d);
  }
  return lost;
}

template <int Transform>
int unweighted_sum(const double* x, int n, const Window& w, int strict, int d, double* out) noexcept {
  RunningSum<Transform> sum(x, d, w);
  return walk(x, n, w, strict, sum, out);
}

}  // namespace
}  // namespace fmsd

extern "C" FMSD_API int ztsmsum(const double* x, int n, double* weights, int k, int lead, int strict, int d,
                                int transform, double* out) {
  using namespace fmsd;
  if (!window_valid("ztsmsum", k, lead)) return n;
  if (n < 1) return 0;
  if (x == nullptr || out == nullptr) return n;
  const int kind = transform == ZTSM_VALUE || transform == ZTSM_SQUARE ? transform : ZTSM_ABSOLUTE;
  if (k == 1) {
    // A window of one is the transformed series; a missing value stays missing
    // (its magnitude would no longer be one).
    for (int t = 0; t < n; ++t) {
      const double v = x[t];
      out[t] = wzmis(v) || kind == ZTSM_VALUE ? v : kind == ZTSM_SQUARE ? v * v : std::fabs(v);
    }
    return 0;
  }
  const Window w = clip(n, k, lead);
  if (weights != nullptr) {
    bool nonnegative;
    const double total = screen(weights, k, &nonnegative);
    if (d >= 0 && std::fabs(total) < kWeightFloor) {
      vzfdl(missing(), out, n);
      return n;
    }
    if (strict != 0 && strict != 1) return all_missing(x, n, out);
    const ptrdiff_t lag = static_cast<ptrdiff_t>(k) - lead - 1;
    if (kind == ZTSM_VALUE) return weighted_sum<ZTSM_VALUE>(x, n, weights, lag, w, strict, d, out);
    if (kind == ZTSM_SQUARE) return weighted_sum<ZTSM_SQUARE>(x, n, weights, lag, w, strict, d, out);
    return weighted_sum<ZTSM_ABSOLUTE>(x, n, weights, lag, w, strict, d, out);
  }
  if (strict != 0 && strict != 1) return all_missing(x, n, out);
  if (kind == ZTSM_VALUE) return unweighted_sum<ZTSM_VALUE>(x, n, w, strict, d, out);
  if (kind == ZTSM_SQUARE) return unweighted_sum<ZTSM_SQUARE>(x, n, w, strict, d, out);
  return unweighted_sum<ZTSM_ABSOLUTE>(x, n, w, strict, d, out);
}

extern "C" FMSD_API int ztsmcsm(const double* x, int n, double* weights, int k, int lead, int strict, int d,
                                int /*unused*/, double* out) {
  using namespace fmsd;
  if (!window_valid("ztsmcsm", k, lead)) return n;
  if (n < 1) return 0;
  if (x == nullptr || out == nullptr) return n;
  const Window w = clip(n, k, lead);
  if (weights != nullptr) {
    bool nonnegative;
    const double total = screen(weights, k, &nonnegative);
    if (d >= 0 && std::fabs(total) < kWeightFloor) {
      vzfdl(missing(), out, n);
      return n;
    }
    if (strict != 0 && strict != 1) return all_missing(x, n, out);
    const ptrdiff_t lag = static_cast<ptrdiff_t>(k) - lead - 1;
    return weighted_moments(x, n, weights, lag, w, strict, d, nonnegative, out);
  }
  if (strict != 0 && strict != 1) return all_missing(x, n, out);
  RunningMoments moments(x, d, w);
  return walk(x, n, w, strict, moments, out);
}
