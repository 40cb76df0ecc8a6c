// The regression machinery and the probability lookup that the Dickey-Fuller and the
// Phillips-Perron tests share.
#ifndef FMSD_UNITROOT_ETSSUR_H
#define FMSD_UNITROOT_ETSSUR_H

#include "fmsd/unitroot.h"

namespace fmsd::etss {

// Below this a range or a sum of squares counts as no variation; at this a cross
// product counts as overflowing (its square would not be finite).
inline constexpr double kTiny = 1.491668147e-154;
inline constexpr double kBig = 1.3407807929943e154;
inline constexpr double kSweepTolerance = 1e-12;

// diff[t] = y[t] - y[t - d], missing where either is missing and for t < d. Returns
// the number of present differences, with the ranges of the present levels and
// differences and the midpoint of the levels, or -1 when n <= d or no difference is
// present.
int getdif(const double* y, int n, int d, double* diff, double* level_range, double* diff_range,
           double* level_mid) noexcept;

// Cross products of one regression layout, accumulated from a zero matrix into
// reg->matrix; reg->k, nobs and sst are set. Each returns 0, ETSS_OVERFLOW,
// ETSS_NO_LEVEL_VARIATION (the dependent variable has none) or ETSS_TOO_FEW.
//   getsscpy: [1] [t] y[t-1] diff[t-1] .. diff[t-p] | diff[t]   (differenced form)
//   getsscpn: [1] [t] y[t-lag] | y[t]                          (level form)
//   getsscp:  diff[t-1] .. diff[t-p] | diff[t]                  (the seasonal filter)
//   getsscps: [1] [t] level[t-d] diff[t-1] .. diff[t-p] | dep[t] (filtered seasonal form)
// [1] enters for variants 1 and 2, [t] (= t, the index in the series) for variant 2.
// With the intercept, shift is taken from the levels (see etss_regression).
int getsscpy(etss_regression* reg, const double* y, const double* diff, int n, int variant, int p,
             double shift) noexcept;
int getsscpn(etss_regression* reg, const double* y, int n, int variant, int lag, double shift) noexcept;
int getsscp(etss_regression* reg, const double* diff, int n, int p) noexcept;
int getsscps(etss_regression* reg, const double* level, const double* diff, const double* dep, int n, int variant,
             int d, int p, double shift) noexcept;

// Deletes row and column index from a packed matrix of the given order, in place.
void remove(double* matrix, int order, int index) noexcept;

// Deletes the trend (index 1) or, with the levels given back their own cross
// products first, the intercept (index 0) of a fit, leaving the layout of the variant
// below it.
void drop_deterministic(etss_regression& reg, int index) noexcept;

// Sweeps the regressors of reg->matrix in order into reg->swept, dropping each one the
// sweep refuses as collinear with those before it. 0, or -1 when the first is refused.
int getswept(etss_regression* reg) noexcept;

// Error sums of squares and the parameter records of a swept regression; the
// estimates also go to out (0 for a dropped regressor) when it is not null.
void getpest(etss_regression* reg, double* out) noexcept;

// Probabilities of rho and tau and the Dickey-Fuller F table probability of a result
// record, and its verdict. Returns 0, 1 when rho's probability failed, 2 when tau's,
// 3 when both; -1 for settings without tables.
int getdfpval(double s2, int n, int variant, int d, double alpha, etss_result* record) noexcept;

using TableFunction = int(double stat, int n, int d, double* prob);

// The probability of a period between the tabled ones, interpolated in ln d through the
// normal deviates of the tabled periods 1, 2, 4, 6 and 12. Returns 0, or 1 when n <= 23
// or a tabled period has no probability.
int interpol(TableFunction* table, double stat, int n, int d, double* out) noexcept;

}  // namespace fmsd::etss

#endif
