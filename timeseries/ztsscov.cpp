// Autocovariances, autocorrelations with Bartlett standard errors, and the Ljung-Box
// white-noise probabilities of one series.
//
// The lag products are the whole cost (n times the number of lags), so they share one
// kernel: a block of neighbouring lags is summed in one sweep over the data, each
// vector accumulator holding two lags (four where the processor has AVX2), and the data
// are swept in slices small enough to stay in the first-level cache while every block
// passes over them. Each lag's products are added in index order within a slice
// whatever the vector width, so every processor gives the same bits.
#include <cmath>
#include <cstddef>

#include "fmsd/autocorr.h"
#include "fmsd/probability.h"
#include "util/numeric.h"

namespace {

using std::ptrdiff_t;
using fmsd::wzmis;

typedef double v2 __attribute__((vector_size(16)));

// The Bartlett sum starts at 1 and only grows: only a NaN sum fails a test against this.
constexpr double kTiny = 1.491668147e-154;

constexpr int kBlock = 16;           // lags per sweep: 8 accumulators hide the add latency
constexpr ptrdiff_t kSlice = 2048;   // elements per slice: 16 KiB stays in L1
constexpr ptrdiff_t kGroup = 128;    // lags that share one copy of a slice with gaps blanked
constexpr ptrdiff_t kBuffer = 1024;  // elements per copy beyond the common range

inline v2 load2(const double* p) {
  v2 v;
  __builtin_memcpy(&v, p, sizeof v);
  return v;
}

// out[j] = sum_{i<len} a[i] * b[i+j] for j < KB (b holds len + KB - 1 values).
// With few lags, U interleaved streams over i keep enough sums in flight.
template <int KB>
void lag_products(const double* a, const double* b, ptrdiff_t len, double* out) {
  constexpr int V = KB / 2;
  constexpr int U = V >= 8 ? 1 : 8 / V;
  v2 acc[U][V] = {};
  ptrdiff_t i = 0;
  for (; i + U <= len; i += U) {
    // Opaque to the optimiser, so that it does not carry loads over from one step to
    // the next: that runs it out of registers and spills the accumulators.
    const double* p = b + i;
    asm("" : "+r"(p));
#pragma GCC unroll 8
    for (int u = 0; u < U; ++u) {
      const v2 ai = {a[i + u], a[i + u]};
#pragma GCC unroll 8
      for (int v = 0; v < V; ++v) acc[u][v] += ai * load2(p + u + 2 * v);
    }
  }
  for (; i < len; ++i) {
    const v2 ai = {a[i], a[i]};
#pragma GCC unroll 8
    for (int v = 0; v < V; ++v) acc[0][v] += ai * load2(b + i + 2 * v);
  }
  for (int v = 0; v < V; ++v) {
    v2 s = acc[0][v];
    for (int u = 1; u < U; ++u) s += acc[u][v];
    out[2 * v] = s[0];
    out[2 * v + 1] = s[1];
  }
}

// The single-lag case: the vector runs along i instead.
template <>
void lag_products<1>(const double* a, const double* b, ptrdiff_t len, double* out) {
  v2 acc[4] = {};
  ptrdiff_t i = 0;
  for (; i + 8 <= len; i += 8) {
#pragma GCC unroll 4
    for (int u = 0; u < 4; ++u) acc[u] += load2(a + i + 2 * u) * load2(b + i + 2 * u);
  }
  const v2 s = (acc[0] + acc[1]) + (acc[2] + acc[3]);
  double t = s[0] + s[1];
  for (; i < len; ++i) t += a[i] * b[i];
  out[0] = t;
}

#if defined(__x86_64__)
typedef double v4 __attribute__((vector_size(32)));

constexpr int kWideBlock = 2 * kBlock;

// Two blocks of kBlock lags in one sweep: each lag's sum is formed exactly as in
// lag_products<kBlock>.
__attribute__((target("avx2"))) void wide_lag_products(const double* a, const double* b, ptrdiff_t len,
                                                       double* out) {
  constexpr int V = kWideBlock / 4;
  v4 acc[V] = {};
  for (ptrdiff_t i = 0; i < len; ++i) {
    const double* p = b + i;
    asm("" : "+r"(p));
    const v4 ai = {a[i], a[i], a[i], a[i]};
#pragma GCC unroll 8
    for (int v = 0; v < V; ++v) {
      v4 bv;
      __builtin_memcpy(&bv, p + 4 * v, sizeof bv);
      acc[v] += ai * bv;
    }
  }
  for (int v = 0; v < V; ++v) __builtin_memcpy(out + 4 * v, &acc[v], sizeof acc[v]);
}

// Asked at each call: the module keeps no state of its own.
bool wide() { return __builtin_cpu_supports("avx2"); }
#endif

// The series as the lag sums see it: with missing values present, windows of it are
// copied with those values as 0, which leaves the sums over usable pairs.
struct Series {
  const double* x;
  ptrdiff_t n;
  bool gaps;
};

void blank(const double* x, ptrdiff_t len, double* to) {
  for (ptrdiff_t i = 0; i < len; ++i) to[i] = wzmis(x[i]) ? 0.0 : x[i];
}

// Adds to sums[k..k+kb) the products of a[0..len) with b[0..len+kb-1).
void add_products(int kb, const double* a, const double* b, ptrdiff_t len, ptrdiff_t k, double* sums) {
  double out[kBlock];
  switch (kb) {
    case 16: lag_products<16>(a, b, len, out); break;
    case 8: lag_products<8>(a, b, len, out); break;
    case 4: lag_products<4>(a, b, len, out); break;
    case 2: lag_products<2>(a, b, len, out); break;
    default: lag_products<1>(a, b, len, out); break;
  }
  for (int j = 0; j < kb; ++j) sums[k + j] += out[j];
}

// Lags per block from lag k on, up to last: full blocks first, then halves.
int block_size(ptrdiff_t k, ptrdiff_t last) {
  int kb = kBlock;
  while (kb > last - k + 1) kb /= 2;
  return kb;
}

// sums[k] = sum of x[i] x[i+k] over the pairs with both members present, for
// first <= k <= last < n.
void lag_sums(const Series& s, ptrdiff_t first, ptrdiff_t last, double* sums) {
  for (ptrdiff_t k = first; k <= last; ++k) sums[k] = 0;
#if defined(__x86_64__)
  const bool pairs_of_blocks = wide();
#endif
  // Every lag has a pair at each i below n - last: there the blocks of a group of lags
  // share each slice, and with gaps one blanked copy of it.
  const ptrdiff_t common = s.n - last;
  double ablank[kSlice], bblank[kSlice + kGroup];
  for (ptrdiff_t lo = 0; lo < common; lo += kSlice) {
    const ptrdiff_t len = common - lo < kSlice ? common - lo : kSlice;
    const double* a = s.x + lo;
    if (s.gaps) {
      blank(a, len, ablank);
      a = ablank;
    }
    for (ptrdiff_t g = first; g <= last; g += kGroup) {
      const ptrdiff_t gend = last - g < kGroup ? last : g + kGroup - 1;
      const double* b = s.x + lo + g;
      if (s.gaps) {
        blank(b, len + gend - g, bblank);
        b = bblank;
      }
      for (ptrdiff_t k = g; k <= gend;) {
#if defined(__x86_64__)
        if (pairs_of_blocks && gend - k + 1 >= kWideBlock) {
          double out[kWideBlock];
          wide_lag_products(a, b + (k - g), len, out);
          for (int j = 0; j < kWideBlock; ++j) sums[k + j] += out[j];
          k += kWideBlock;
          continue;
        }
#endif
        const int kb = block_size(k, gend);
        add_products(kb, a, b + (k - g), len, k, sums);
        k += kb;
      }
    }
  }
  // Beyond it each block runs on to where its own longest lag runs out, and each lag
  // finishes alone. This part is short unless the lags reach far into the series.
  double a[kBuffer], b[kBuffer + kBlock];
  for (ptrdiff_t k0 = first; k0 <= last;) {
    const int kb = block_size(k0, last);
    const ptrdiff_t end = s.n - (k0 + kb - 1);
    for (ptrdiff_t c = common; c < end; c += kBuffer) {
      const ptrdiff_t len = end - c < kBuffer ? end - c : kBuffer;
      if (s.gaps) {
        blank(s.x + c, len, a);
        blank(s.x + c + k0, len + kb - 1, b);
        add_products(kb, a, b, len, k0, sums);
      } else {
        add_products(kb, s.x + c, s.x + c + k0, len, k0, sums);
      }
    }
    for (ptrdiff_t k = k0; k < k0 + kb; ++k) {
      double sum = 0;
      for (ptrdiff_t i = end; i < s.n - k; ++i)
        if (!s.gaps || !(wzmis(s.x[i]) || wzmis(s.x[i + k]))) sum += s.x[i] * s.x[i + k];
      sums[k] += sum;
    }
    k0 += kb;
  }
}

// count[k] = the pairs (x[i], x[i+k]) with both members present, for k <= last < n.
// A pair is lost when either member is missing: the missing values among the first
// n - k, plus those among the last n - k, less the pairs where both are missing. Only
// that last term needs a search, and only from the missing values.
void usable_pairs(const double* x, ptrdiff_t n, int nmiss, ptrdiff_t last, int* count) {
  if (nmiss == 0) {
    for (ptrdiff_t k = 0; k <= last; ++k) count[k] = static_cast<int>(n - k);
    return;
  }
  for (ptrdiff_t k = 0; k <= last; ++k) count[k] = 0;
  for (ptrdiff_t i = 0; i < n; ++i) {
    if (!wzmis(x[i])) continue;
    const ptrdiff_t top = n - 1 - i < last ? n - 1 - i : last;
    for (ptrdiff_t k = 0; k <= top; ++k) count[k] += wzmis(x[i + k]);
  }
  int head = 0;  // missing values among x[0..k)
  int tail = 0;  // missing values among x[n-k..n)
  for (ptrdiff_t k = 0; k <= last; ++k) {
    const int lost = (nmiss - tail) + (nmiss - head) - count[k];
    count[k] = static_cast<int>(n - k) - lost;
    head += wzmis(x[k]);
    tail += wzmis(x[n - 1 - k]);
  }
}

bool bad_series(const double* x, int n, int maxlag) { return n < 0 || maxlag < 0 || (x == nullptr && n > 0); }

}  // namespace

extern "C" {

FMSD_API int ztsscov(double* x, int n, int maxlag, double* mean, double* acov, int* count) {
  if (bad_series(x, n, maxlag) || acov == nullptr || count == nullptr) return ZTS_BAD_ARGUMENT;
  int nmiss = 0;
  double sum = 0;
  for (int i = 0; i < n; ++i) {
    if (wzmis(x[i]))
      ++nmiss;
    else
      sum += x[i];
  }
  const int nobs = n - nmiss;
  if (nobs < 2) return nobs;
  if (mean != nullptr) {
    const double m = sum / nobs;
    *mean = m;
    for (int i = 0; i < n; ++i)
      if (!wzmis(x[i])) x[i] -= m;
  }

  const double missing = fmsd::missing();
  const ptrdiff_t last = maxlag < n - 1 ? maxlag : n - 1;
  lag_sums(Series{x, n, nmiss > 0}, 0, last, acov);
  usable_pairs(x, n, nmiss, last, count);
  for (ptrdiff_t k = 0; k <= last; ++k) {
    // The divisor is n less the pairs with a missing member: the usable pairs plus k.
    acov[k] = count[k] > 0 ? acov[k] / static_cast<double>(count[k] + k) : missing;
  }
  for (ptrdiff_t k = last + 1; k <= maxlag; ++k) {
    acov[k] = missing;
    count[k] = static_cast<int>(n - k);
  }
  return wzmis(acov[0]) ? 0 : nobs;
}

FMSD_API int ztsscor(double* x, int n, int maxlag, double* mean, double* acov, int* count, double* acf,
                     double* se) {
  if (bad_series(x, n, maxlag) || acov == nullptr || count == nullptr || acf == nullptr || se == nullptr)
    return ZTS_BAD_ARGUMENT;
  // With one present value nothing is written and the caller's arrays are read as
  // they stand; the service hands them in filled with the missing value.
  const int nobs = ztsscov(x, n, maxlag, mean, acov, count);
  if (nobs <= 0) return ZTS_NO_SERIES;

  const double missing = fmsd::missing();
  acf[0] = 1;
  for (int k = 1; k <= maxlag; ++k) acf[k] = wzmis(acov[k]) ? missing : fmsd::divide(acov[k], acov[0]);

  const double s = 1 / std::sqrt(static_cast<double>(nobs));
  se[0] = 0;
  se[1] = s;
  double sum = 1;
  for (int k = 1; k < maxlag; ++k) {
    if (!wzmis(acf[k])) sum += 2 * acf[k] * acf[k];
    se[k + 1] = sum > kTiny ? std::sqrt(sum) * s : 0;
  }
  return 0;
}

FMSD_API int ztsslbw(const double* x, int n, int maxlag, double* prob) {
  if (bad_series(x, n, maxlag) || prob == nullptr) return ZTS_BAD_ARGUMENT;
  int nmiss = 0;
  for (int i = 0; i < n; ++i) nmiss += wzmis(x[i]);
  // Lags reach at most one below the number of present values.
  const int lmax = n - nmiss <= maxlag ? n - nmiss - 1 : maxlag;
  if (lmax < 0) {
    prob[0] = 0;
    return lmax;
  }

  // The sum of squares is the lag-0 product sum.
  const double missing = fmsd::missing();
  lag_sums(Series{x, n, nmiss > 0}, 0, lmax, prob);
  const double sumsq = prob[0];
  for (int k = 1; k <= lmax; ++k) {
    const double r = fmsd::divide(prob[k], sumsq);
    prob[k] = !wzmis(r) && std::fabs(r) < fmsd::kDivideBound ? r * r / (n - k - nmiss) : missing;
  }

  prob[0] = 0;
  const double factor = static_cast<double>(n) * (n + 2.0);
  double total = 0;
  for (int k = 1; k <= lmax; ++k) {
    // A lag without a statistic adds nothing, but the degrees of freedom still count it.
    if (wzmis(prob[k]) || !(std::fabs(prob[k]) < fmsd::kDivideBound)) continue;
    total += prob[k];
    const double q = total * factor;
    // Beyond 100 per degree of freedom the tail is far below any level a test is read
    // at: 0, without evaluating the distribution.
    prob[k] = q <= 100.0 * k ? zpgx2(q, k) : 0;
  }
  return lmax;
}

}  // extern "C"
