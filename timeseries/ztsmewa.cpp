// Exponentially weighted moving average.
#include <cmath>

#include "fmsd/moving.h"
#include "timeseries/window.h"

extern "C" FMSD_API int ztsmewa(const double* x, int n, double w, int strict, double* out) {
  using namespace fmsd;
  if (n < 1) return 0;
  if (x == nullptr || out == nullptr) return n;
  if (strict != 0 && strict != 1) return all_missing(x, n, out);
  const double miss = missing();
  int t = 0;
  for (; t < n && wzmis(x[t]); ++t) out[t] = miss;
  if (t == n) return 0;

  if (wzmis(w) || std::fabs(w) >= 1) {
    for (; t < n; ++t) out[t] = x[t];
    return 0;
  }
  const double x0 = x[t];
  out[t] = strict ? miss : x0;
  if (std::fabs(w) <= kWeightFloor) {
    for (++t; t < n; ++t) out[t] = x0;
    return strict;
  }
  double s = x0;
  for (++t; t < n; ++t) {
    if (wzmis(x[t])) {
      if (strict) break;
      out[t] = s;
      continue;
    }
    s = w * x[t] + (1 - w) * s;
    out[t] = s;
  }
  // Strict smoothing ends at the first missing value; what follows is missing.
  const int ended = n - t;
  for (; t < n; ++t) out[t] = miss;
  return strict + ended;
}
