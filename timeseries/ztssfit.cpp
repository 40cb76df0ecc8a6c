// Statistics of fit of a model's predictions to a series, the comparison of two values
// of one statistic, and the summary of a single series.
//
// Sums of squares about the mean are accumulated about the first value instead, so
// that a series with a large level and a small spread keeps its digits. A statistic
// that overflows or is undefined (infinite inputs) is reported missing, like one that
// cannot be computed.
#include <cfloat>
#include <cmath>

#include "fmsd/fitstats.h"
#include "util/numeric.h"

namespace {

using fmsd::missing;
using fmsd::wzmis;

constexpr double kDivideBound = 1.3407807929943e154;  // what divide returns for x / 0
constexpr double kSstFloor = 1.491668147e-154;

struct ShiftedSums {
  int count = 0;
  double shift = 0;
  double sum = 0;    // of x - shift
  double sumsq = 0;  // of (x - shift)^2

  void add(double x) {
    if (count++ == 0) shift = x;
    const double d = x - shift;
    sum += d;
    sumsq += d * d;
  }
  double total() const { return sum + count * shift; }
  double mean() const { return shift + sum / count; }
  // sum of x^2 - (sum of x)^2 / count
  double corrected() const {
    const double c = sumsq - sum * sum / count;
    return c < 0 ? 0.0 : c;
  }
};

double checked(double v) { return std::isfinite(v) ? v : missing(); }

}  // namespace

extern "C" {

FMSD_API int ztssfit(double before, const double* actual, const double* predicted, int count, int nparms,
                     fitstats* fs) {
  if (fs == nullptr || count < 0 || (count > 0 && (actual == nullptr || predicted == nullptr))) return -1;
  const double miss = missing();

  int present = 0, predictions = 0;
  for (int i = 0; i < count; ++i) {
    present += !wzmis(actual[i]);
    predictions += !wzmis(predicted[i]);
  }
  int first = 0, last = count;
  while (first < last && wzmis(predicted[first])) ++first;
  while (last > first && wzmis(predicted[last - 1])) --last;
  const int n = last - first;

  // Differences run over the given positions: the first one kept after trimming is
  // differenced with the position before it, trimmed or not.
  double prev = first > 0 ? actual[first - 1] : before;
  ShiftedSums act, diff;
  double tss = 0, sse = 0, sum_e = 0, sum_abs_e = 0, sum_pe = 0, sum_abs_pe = 0;
  double max_e = -HUGE_VAL, min_e = HUGE_VAL, max_pe = -HUGE_VAL, min_pe = HUGE_VAL;
  int u = n, v = n;
  for (int i = first; i < last; ++i) {
    const double a = actual[i], p = predicted[i];
    if (!wzmis(a)) {
      act.add(a);
      tss += a * a;
      if (!wzmis(prev)) diff.add(a - prev);
    }
    prev = a;
    if (wzmis(a) || wzmis(p)) {
      --u;
      --v;
      continue;
    }
    const double e = a - p;
    sum_e += e;
    sse += e * e;
    sum_abs_e += std::fabs(e);
    max_e = fmsd::fmax(e, max_e);
    min_e = fmsd::fmin(e, min_e);
    // A zero actual value with a non-zero error has no percentage error.
    const double pe = fmsd::divide(e, a);
    if (wzmis(pe) || !(std::fabs(pe) < kDivideBound)) {
      --v;
      continue;
    }
    sum_pe += pe;
    sum_abs_pe += std::fabs(pe);
    max_pe = fmsd::fmax(pe, max_pe);
    min_pe = fmsd::fmin(pe, min_pe);
  }

  const int k = nparms;
  fs->nobs = count;
  fs->n = n;
  fs->nparms = nparms;
  fs->dfe = u - k;
  fs->nmissa = count - present;
  fs->nmissp = count - predictions;
  fs->tss = fs->sst = miss;
  auto stat = [fs](int i) -> double& { return fs->stat[i - 1]; };  // numbered from 1
  fmsd::vzfdl(miss, fs->stat, ZTSS_NSTATS);

  if (u > 0) {
    const double dfe = u - k;
    const double mse = sse / u;
    stat(ZTSS_SSE) = sse;
    stat(ZTSS_MSE) = mse;
    stat(ZTSS_RMSE) = mse > 0 ? std::sqrt(mse) : 0.0;
    if (dfe > 0) {
      stat(ZTSS_MSE_DFE) = sse / dfe;
      stat(ZTSS_RMSE_DFE) = sse > 0 ? std::sqrt(sse / dfe) : 0.0;
    }
    stat(ZTSS_MAE) = sum_abs_e / u;
    if (sse > 0) {
      stat(ZTSS_AIC) = u * std::log(mse) + 2.0 * k;
      stat(ZTSS_SBC) = u * std::log(mse) + k * std::log(static_cast<double>(u));
    }
    if (u - k > 0) stat(ZTSS_APC) = (u + k) * sse / (u - k) / u;
    stat(ZTSS_MAXERR) = max_e;
    stat(ZTSS_MINERR) = min_e;
    stat(ZTSS_ME) = sum_e / u;

    // The corrected sum divides by the used count, which is below the count of
    // actual values when predictions are missing inside the range.
    const double total = act.total();
    const double sst = act.corrected() - total * total * ((act.count - u) / (static_cast<double>(act.count) * u));
    fs->tss = checked(tss);
    fs->sst = checked(sst);
    if (sst > kSstFloor) {
      const double ratio = sse / sst;
      stat(ZTSS_RSQUARE) = 1 - ratio;
      if (dfe > 0) {
        stat(ZTSS_ADJ_RSQ) = 1 - (u - 1) * ratio / dfe;
        stat(ZTSS_A_ADJ_RSQ) = 1 - (u + k) * ratio / dfe;
      }
    }
    const int r = diff.count;
    if (r > 0) {
      const double q = fmsd::divide(mse, diff.corrected() / r);
      if (!wzmis(q)) stat(ZTSS_RW_RSQ) = 1 - q;
    }
  }
  if (v > 0) {
    stat(ZTSS_MAPE) = 100 * sum_abs_pe / v;
    stat(ZTSS_MAXPE) = 100 * max_pe;
    stat(ZTSS_MINPE) = 100 * min_pe;
    stat(ZTSS_MPE) = 100 * sum_pe / v;
  }
  for (int i = 1; i <= ZTSS_NSTATS; ++i)
    if (!wzmis(stat(i))) stat(i) = checked(stat(i));
  return present;
}

FMSD_API double ztssfs(const fitstats* fs, int index) {
  if (fs == nullptr || index < 1 || index > ZTSS_NSTATS) return missing();
  return fs->stat[index - 1];
}

FMSD_API int ztssfc(double a, double b, int index) {
  if (index < 1 || index > ZTSS_NSTATS) return -2;
  const bool a_missing = wzmis(a), b_missing = wzmis(b);
  if (a_missing && b_missing) return -1;
  if (a_missing) return 1;
  if (b_missing) return 0;
  const bool larger_is_better = index >= ZTSS_RSQUARE && index <= ZTSS_RW_RSQ;
  return (larger_is_better ? a < b : a > b) ? 1 : 0;
}

FMSD_API int ztssumm(const double* x, int count, tssumm* summary) {
  if (summary == nullptr || count < 0 || (count > 0 && x == nullptr)) return -1;
  ShiftedSums sums;
  double lo = DBL_MAX, hi = -DBL_MAX;
  int nmiss = 0, run = 0, minrun = count, maxrun = 0;
  for (int i = 0; i <= count; ++i) {
    if (i < count && wzmis(x[i])) {
      ++nmiss;
      ++run;
      continue;
    }
    if (run > 0) {
      minrun = fmsd::min(minrun, run);
      maxrun = fmsd::max(maxrun, run);
      run = 0;
    }
    if (i == count) break;
    sums.add(x[i]);
    lo = fmsd::fmin(x[i], lo);
    hi = fmsd::fmax(x[i], hi);
  }
  const int m = sums.count;
  summary->count = count;
  summary->nvalid = m;
  summary->nmiss = nmiss;
  summary->minrun = nmiss > 0 ? minrun : 0;
  summary->maxrun = maxrun;
  summary->min = m > 0 ? checked(lo) : missing();
  summary->max = m > 0 ? checked(hi) : missing();
  summary->mean = m > 0 ? checked(sums.mean()) : missing();
  summary->std = m > 1 ? checked(std::sqrt(sums.corrected() / (m - 1))) : missing();
  return m;
}

}  // extern "C"
