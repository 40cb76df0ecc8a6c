// The window rule that the moving summaries share: validation, clipping to the
// series, the strictness test, and the walk of a window along the series.
#ifndef FMSD_TIMESERIES_WINDOW_H
#define FMSD_TIMESERIES_WINDOW_H

#include <cstddef>

#include "util/numeric.h"

namespace fmsd {

// A weight sum (or weight) smaller than this in magnitude is taken as zero.
inline constexpr double kWeightFloor = 1.491668147e-154;

// Positions t - lag ... t + lead; a window longer than the series is cut to it, so
// that every position it can reach lies in the series and no index can overflow.
struct Window {
  int lag;
  int lead;
  int capacity;  // the most in-series positions a window can hold
};

// False, after telling the host, for a window that cannot be formed.
inline bool window_valid(const char* routine, int k, int lead) noexcept {
  const long long lag = static_cast<long long>(k) - lead - 1;
  if (k >= 1 && lead >= 0 && lag >= 0) return true;
  xebug("exptran: %s: window size k=%i lead=%i lag=%i", routine, k, lead, static_cast<int>(lag));
  return false;
}

inline Window clip(int n, int k, int lead) noexcept {
  const int lag = k - lead - 1;
  if (k <= n) return {lag, lead, k};
  return {min(lag, n - 1), min(lead, n - 1), n};
}

// Whether a window of `positions` in-series positions, `present` of them holding a
// value, gets a summary.
inline bool summarised(int strict, std::ptrdiff_t positions, std::ptrdiff_t present) noexcept {
  return strict == 0 ? present >= 1 : strict == 1 && present == positions;
}

// Missing everywhere, as a flag that never summarises asks; returns the values lost.
inline int all_missing(const double* x, int n, double* out) noexcept {
  const double miss = missing();
  int lost = 0;
  for (int t = 0; t < n; ++t) {
    lost += 1 - wzmis(x[t]);
    out[t] = miss;
  }
  return lost;
}

// Slides the window along the series. The summary sees only the positions that hold
// a value, through add(i), remove(i) and replace(out, in) (one leaves as another
// enters), and gives each summarised window's output through value(first, last,
// present). A summary may also take over the steps that slide a full window from one
// value to another, which need none of the bookkeeping here: run(t, end, present,
// out) writes the outputs from step t on, stops before `end` or at a step it leaves
// to the walk, and returns that step. Returns the number of positions left missing
// whose input is not.
template <class Summary>
int walk(const double* x, int n, const Window& w, int strict, Summary& summary, double* out) noexcept {
  const double miss = missing();
  std::ptrdiff_t first = 0, last = -1, absent = 0;
  int lost = 0;
  for (std::ptrdiff_t t = 0; t < n; ++t) {
    const std::ptrdiff_t lo = t > w.lag ? t - w.lag : 0;
    const std::ptrdiff_t hi = t + w.lead < n ? t + w.lead : n - 1;
    if (first < lo && last < hi) {
      const int gone = wzmis(x[first]), none = wzmis(x[hi]);
      if (!gone && !none) {
        summary.replace(first, hi);
      } else {
        if (!gone) summary.remove(first);
        if (!none) summary.add(hi);
        absent += none - gone;
      }
      first = lo;
      last = hi;
    } else {
      for (; first < lo; ++first) {
        if (wzmis(x[first])) --absent;
        else summary.remove(first);
      }
      while (last < hi) {
        if (wzmis(x[++last])) ++absent;
        else summary.add(last);
      }
    }
    const std::ptrdiff_t positions = last - first + 1, present = positions - absent;
    if (summarised(strict, positions, present)) {
      out[t] = summary.value(first, last, present);
      if constexpr (requires { summary.run(t, t, present, out); }) {
        if (t >= w.lag && t + 1 < n - w.lead) {
          t = summary.run(t + 1, n - w.lead, present, out) - 1;
          first = t - w.lag;
          last = t + w.lead;
        }
      }
    } else {
      out[t] = miss;
      lost += 1 - wzmis(x[t]);
    }
  }
  return lost;
}

}  // namespace fmsd

#endif
