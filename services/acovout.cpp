// The diagnostics output data set: one observation per lag with the correlation
// functions, their two-standard-error bands, the white-noise and unit-root
// probabilities and their log-probabilities, and on request the significance
// probabilities of the three correlation functions.
#include <cmath>

#include "fmsd/probability.h"
#include "module/hostops.h"
#include "services/mtsscov.h"
#include "util/numeric.h"

namespace fmsd {
namespace {

constexpr int kVariables = 24;
constexpr int kWithoutProbabilities = 18;
constexpr int kLabelBytes = 256;
constexpr int kFirstLabel = 1120;
constexpr int kOutputVectorFlags = 32;
constexpr double kLn10 = 2.302585092994046;
constexpr double kSmallest = 0.0001;
constexpr double kLargest = 0.9999;
constexpr double kLogFloor = 4;

enum Column {
  kLag,
  kN,
  kAcov,
  kLacf,
  kAcf,
  kUacf,
  kLpacf,
  kPacf,
  kUpacf,
  kLiacf,
  kIacf,
  kUiacf,
  kWnoise,
  kUnitroot,
  kSeasonur,
  kWnLp,
  kUrLp,
  kSurLp,
  kAcfPrb,
  kPacfPrb,
  kIacfPrb,
  kAcfLp,
  kPacfLp,
  kIacfLp
};

struct Attributes {
  char name[9];  // blank-padded to 8
  short length;
  char format[9];
  short width;  // 0: worked out from the data
  short decimals;
};

constexpr Attributes kAttributes[kVariables] = {
    {"LAG     ", 3, "        ", 0, 0},  {"N       ", 1, "        ", 0, 0},  {"ACOV    ", 4, "BEST    ", 12, 0},
    {"LACF    ", 4, "        ", 5, 3},  {"ACF     ", 3, "BEST    ", 3, 0},  {"UACF    ", 4, "        ", 5, 3},
    {"LPACF   ", 5, "        ", 5, 3},  {"PACF    ", 4, "BEST    ", 3, 0},  {"UPACF   ", 5, "        ", 5, 3},
    {"LIACF   ", 5, "        ", 5, 3},  {"IACF    ", 4, "BEST    ", 3, 0},  {"UIACF   ", 5, "        ", 5, 3},
    {"WNOISE  ", 6, "PVALUE  ", 6, 4},  {"UNITROOT", 8, "PVALUE  ", 6, 4},  {"SEASONUR", 8, "PVALUE  ", 6, 4},
    {"WN_LP   ", 5, "LOGPROB ", 4, 0},  {"UR_LP   ", 5, "LOGPROB ", 4, 0},  {"SUR_LP  ", 6, "LOGPROB ", 4, 0},
    {"ACF_PRB ", 7, "PVALUE  ", 6, 4},  {"PACF_PRB", 8, "PVALUE  ", 6, 4},  {"IACF_PRB", 8, "PVALUE  ", 6, 4},
    {"ACF_LP  ", 6, "LOGPROB ", 4, 0},  {"PACF_LP ", 7, "LOGPROB ", 4, 0},  {"IACF_LP ", 7, "LOGPROB ", 4, 0},
};

short digits(int value) {
  short d = 1;
  for (; value >= 10; value /= 10) ++d;
  return d;
}

// The ACF band: 2 standard errors, or the whole range once they pass 1.
double acf_band(double se, double sign) {
  if (wzmis(se)) return se;
  return se > 0.5 ? sign : sign * 2 * se;
}

double band(double se, double sign) { return wzmis(se) ? se : sign * 2 * se; }

// -log10 of a probability, kept within [0, 4].  The floor gives exactly 4, which the
// division by ln 10 would miss by one unit in the last place.
double log_probability(double p) {
  if (wzmis(p)) return p;
  return p > kSmallest ? -std::log(p) / kLn10 : kLogFloor;
}

// Two-sided normal probability of a correlation against its standard error.
double significance(double r, double se) {
  if (wzmis(r) || wzmis(se)) return missing();
  return fmax(fmin(2 * (1 - zprbnrm(std::fabs(divide(r, se)))), kLargest), kSmallest);
}

// Closes the data set without keeping it, after logging why.
int fail(fmsd_word dataset, int status) {
  xoclose(dataset, FMSD_CLOSE_DISCARD);
  xprrlog(0, status);
  return -1;
}

}  // namespace

int acovout(DataSetRecord* output, const DiagnosticsArea* area, int probabilities) noexcept {
  if (opends(FMSD_OPEN_OUTPUT, output) != 0) return -1;
  const fmsd_word dataset = output->access[FMSD_ACCESS_HANDLE];
  const DiagnosticsArea& a = *area;
  const int m = a.nlags;
  const int defined = probabilities != 0 ? kVariables : kWithoutProbabilities;

  fmsd_vardesc descriptors[kVariables];
  char labels[kVariables][kLabelBytes];
  for (int i = 0; i < kVariables; ++i) {
    fmsd_vardesc& d = descriptors[i];
    const Attributes& t = kAttributes[i];
    xvnamei(&d);
    d.type = 1;
    d.length = 8;
    __builtin_memcpy(d.format, t.format, sizeof d.format);
    d.format_width = t.width;
    d.format_decimals = t.decimals;
    d.name = t.name;
    d.name_length = t.length;
    labels[i][0] = 0;
    xpmstr(labels[i], kLabelBytes, FMSD_MESSAGE_GROUP, kFirstLabel + i);
    d.label = labels[i];
  }
  descriptors[kLag].format_width = m > 0 ? digits(m) : 1;
  descriptors[kN].format_width = a.counts[0] > 0 ? digits(a.counts[0]) : 1;

  double row[kVariables];
  fmsd_word vector = 0;
  int status = xvputi(dataset, kVariables, kOutputVectorFlags, &vector);
  if (status < 0) return fail(dataset, status);
  for (int i = 0; i < defined; ++i) {
    status = xvputd(vector, &descriptors[i], 0, &row[i], 8, 0, 0);
    if (status < 0) return fail(dataset, status);
    if (status > 0) xprrlog(0, status);
  }
  status = xvpute(vector);
  if (status < 0) return fail(dataset, status);
  if (status > 0) xprrlog(0, status);

  const double miss = missing();
  const double s = a.pacf_se;
  for (int k = 0; k <= m; ++k) {
    const double se = a.acf_se[k];
    row[kLag] = k;
    row[kN] = a.counts[k];
    row[kAcov] = a.acov[k];
    row[kLacf] = acf_band(se, -1);
    row[kAcf] = a.acf[k];
    row[kUacf] = acf_band(se, 1);
    row[kLpacf] = row[kLiacf] = k == 0 ? miss : band(s, -1);
    row[kUpacf] = row[kUiacf] = k == 0 ? miss : band(s, 1);
    row[kPacf] = a.pacf[k];
    row[kIacf] = a.iacf[k];
    row[kWnoise] = a.wnoise[k];
    row[kUnitroot] = a.unitroot[k];
    row[kSeasonur] = a.seasonur[k];
    row[kWnLp] = log_probability(row[kWnoise]);
    row[kUrLp] = log_probability(row[kUnitroot]);
    row[kSurLp] = log_probability(row[kSeasonur]);
    if (probabilities != 0) {
      // A correlation at lag 0 is 1 by construction: certainly significant.
      row[kAcfPrb] = k == 0 ? 0 : significance(a.acf[k], se);
      row[kPacfPrb] = k == 0 ? 0 : significance(a.pacf[k], s);
      row[kIacfPrb] = k == 0 ? 0 : significance(a.iacf[k], s);
      row[kAcfLp] = log_probability(row[kAcfPrb]);
      row[kPacfLp] = log_probability(row[kPacfPrb]);
      row[kIacfLp] = log_probability(row[kIacfPrb]);
    }
    // An output with a row missing must not be kept.
    status = xyvput(vector, 0);
    if (status != 0) return fail(dataset, status);
  }
  status = xvputt(vector);
  if (status < 0) return fail(dataset, status);
  status = xoclose(dataset, 0);
  if (status != 0) {
    xprrlog(0, status);
    return -1;
  }
  return 0;
}

}  // namespace fmsd
