// Classical seasonal decomposition: trend-cycle by a centred moving average, seasonal
// indices from the detrended values season by season, then the irregular and the
// seasonally adjusted series. Each component is built on the one before it, so every
// entry point runs the chain from the start.
#include <cmath>

#include "fmsd/decompose.h"
#include "fmsd/moving.h"
#include "util/numeric.h"

namespace fmsd {
namespace {

// Half the largest double: n values below it / n cannot overflow a sum.
constexpr double kHalfLargest = 8.988465674311578e307;
// A multiplicative series must stay above this (the unit round-off, 2^-53): its
// ratios would be meaningless, or infinite, at or below it.
constexpr double kPositiveFloor = 1.110223024625157e-16;
// The mean of the raw seasonal indices must exceed this before it divides them.
constexpr double kIndexFloor = 1.491668147e-154;

// Copies the values strictly inside (low, high) to `screened` and blanks the others;
// missing values are counted and their places left alone. Returns the number of
// values outside the interval; `below` counts those at or under low.
int extreme(const double* x, int n, double low, double high, double* screened, int* absent, int* below) noexcept {
  const double miss = missing();
  int outside = 0;
  *absent = *below = 0;
  for (int i = 0; i < n; ++i) {
    const double v = x[i];
    if (wzmis(v)) {
      ++*absent;
    } else if (v > low && v < high) {
      screened[i] = v;
    } else {
      screened[i] = miss;
      ++outside;
      if (v <= low) ++*below;
    }
  }
  return outside;
}

// A ratio the later steps can still multiply and divide, or the missing value.
inline double usable(double r, double miss) noexcept {
  return wzmis(r) || !(std::fabs(r) < kDivideBound) ? miss : r;
}

// divide, with the cases where it is the plain quotient of two present values
// taken here without a call.
inline double ratio(double a, double b) noexcept {
  if (!wzmis(a) && !wzmis(b) && (std::fabs(b) >= 1 || std::fabs(a) < std::fabs(b) * kDivideBound)) return a / b;
  return divide(a, b);
}

bool arrays(const void* a, const void* b, const void* c, const void* d) noexcept {
  return a != nullptr && b != nullptr && c != nullptr && d != nullptr;
}

// The seasonal step of both kinds: the detrended value of each position, the raw
// index of each season as the mean of its detrended values, normalised to average
// 1 (multiplicative) or 0 (additive), and repeated over the series.
template <bool Multiplicative>
int seasonal(const double* x, int n, int s, int strict, double* tc, double* detrended, double* indices) noexcept {
  const double miss = missing();
  if (!arrays(x, tc, detrended, indices) || n < 1) return -1;
  if (s < 1 || ztscdtc(x, n, s, Multiplicative, strict, tc) != 0) {
    vzfdl(miss, detrended, n);
    vzfdl(miss, indices, n);
    return -1;
  }
  for (int i = 0; i < n; ++i) {
    if (Multiplicative) detrended[i] = usable(ratio(x[i], tc[i]), miss);
    else detrended[i] = wzmis(x[i]) || wzmis(tc[i]) ? miss : x[i] - tc[i];
  }
  // The trend-cycle is the series itself: nothing is left to be seasonal.
  if (n <= s || s == 1) {
    vzfdl(Multiplicative ? 1.0 : 0.0, indices, n);
    return 0;
  }

  // Season sums in the first s places, their counts in the next s when the array
  // holds them: the series is then read once, in order, rather than once a season.
  double* sums = indices;
  vzfdl(0.0, sums, s);
  if (n - s >= s) {
    double* counts = indices + s;
    vzfdl(0.0, counts, s);
    for (int base = 0; base < n; base += s) {
      const int m = min(s, n - base);
      const double* v = detrended + base;
      for (int j = 0; j < m; ++j) {
        if (wzmis(v[j])) continue;
        sums[j] += v[j];
        counts[j] += 1;
      }
    }
    for (int j = 0; j < s; ++j) sums[j] = counts[j] > 0 ? sums[j] / counts[j] : miss;
  } else {
    for (int j = 0; j < s; ++j) {
      int count = 0;
      for (int i = j; i < n; i += s) {
        if (wzmis(detrended[i])) continue;
        sums[j] += detrended[i];
        ++count;
      }
      sums[j] = count > 0 ? sums[j] / count : miss;
    }
  }
  int valid = 0;
  double total = 0;
  for (int j = 0; j < s; ++j) {
    if (wzmis(indices[j])) continue;
    total += indices[j];
    ++valid;
  }
  if (valid == 0) {
    vzfdl(miss, indices, n);
    return -1;
  }
  const double mean = total / valid;
  for (int j = 0; j < s; ++j) {
    if (wzmis(indices[j])) continue;
    if (!Multiplicative) indices[j] -= mean;
    else if (std::fabs(mean) > kIndexFloor) indices[j] = usable(divide(indices[j], mean), miss);
  }
  for (int i = s; i < n; ++i) indices[i] = indices[i - s];
  return 0;
}

}  // namespace
}  // namespace fmsd

extern "C" FMSD_API int ztscdtc(const double* x, int n, int s, int multiplicative, int strict, double* tc) {
  using namespace fmsd;
  if (n < 1 || s < 1 || x == nullptr || tc == nullptr) return -1;
  if (n <= s || s == 1) {
    for (int i = 0; i < n; ++i) tc[i] = x[i];
    return 0;
  }
  const double miss = missing();
  const int h = s / 2, lead = s % 2 != 0 ? h : h - 1;
  const double high = kHalfLargest / n, low = multiplicative ? kPositiveFloor : -high;
  int absent, below;
  const int outside = extreme(x, n, low, high, tc, &absent, &below);
  if (below > 0) {
    vzfdl(miss, tc, n);
    return -1;
  }
  // Any non-zero strictness asks for complete windows.
  const int averaged = ztsmsum(x, n, nullptr, s, lead, strict != 0, 0, ZTSM_VALUE, tc);
  vzfdl(miss, tc, h);
  vzfdl(miss, tc + (n - lead), lead);
  long long lost = static_cast<long long>(outside) + averaged + h + lead;
  if (s % 2 == 0) {
    // The mean of two neighbouring s-term averages: a 2 x s average centred on t.
    for (int t = h; t <= n - h - 1; ++t) {
      const bool here = !wzmis(tc[t]), next = !wzmis(tc[t + 1]);
      if (here && next) tc[t] = (tc[t] + tc[t + 1]) * 0.5;
      else if (strict != 0) tc[t] = miss;
      else if (next) tc[t] = tc[t + 1];
    }
    tc[n - h] = miss;
    ++lost;
  }
  return lost + absent >= n ? -1 : 0;
}

extern "C" FMSD_API int ztscdms(const double* x, int n, int s, int strict, double* tc, double* si, double* seasonal) {
  return fmsd::seasonal<true>(x, n, s, strict, tc, si, seasonal);
}

extern "C" FMSD_API int ztscdas(const double* x, int n, int s, int strict, double* tc, double* detrended,
                                double* seasonal) {
  return fmsd::seasonal<false>(x, n, s, strict, tc, detrended, seasonal);
}

extern "C" FMSD_API int ztscdmi(const double* x, int n, int s, int strict, double* tc, double* seasonal,
                                double* irregular) {
  using namespace fmsd;
  if (ztscdms(x, n, s, strict, tc, irregular, seasonal) != 0) return -1;
  const double miss = missing();
  for (int i = 0; i < n; ++i) irregular[i] = usable(ratio(irregular[i], seasonal[i]), miss);
  return 0;
}

extern "C" FMSD_API int ztscdai(const double* x, int n, int s, int strict, double* tc, double* seasonal,
                                double* irregular) {
  using namespace fmsd;
  if (ztscdas(x, n, s, strict, tc, irregular, seasonal) != 0) return -1;
  const double miss = missing();
  for (int i = 0; i < n; ++i)
    irregular[i] = wzmis(irregular[i]) || wzmis(seasonal[i]) ? miss : irregular[i] - seasonal[i];
  return 0;
}

extern "C" FMSD_API int ztscdma(const double* x, int n, int s, int strict, double* tc, double* seasonal,
                                double* adjusted) {
  using namespace fmsd;
  if (ztscdmi(x, n, s, strict, tc, seasonal, adjusted) != 0) return -1;
  const double miss = missing();
  for (int i = 0; i < n; ++i) adjusted[i] = wzmis(adjusted[i]) || wzmis(tc[i]) ? miss : adjusted[i] * tc[i];
  return 0;
}

extern "C" FMSD_API int ztscdaa(const double* x, int n, int s, int strict, double* tc, double* seasonal,
                                double* adjusted) {
  using namespace fmsd;
  if (ztscdai(x, n, s, strict, tc, seasonal, adjusted) != 0) return -1;
  const double miss = missing();
  for (int i = 0; i < n; ++i) adjusted[i] = wzmis(adjusted[i]) || wzmis(tc[i]) ? miss : adjusted[i] + tc[i];
  return 0;
}
