/* Classical seasonal decomposition by moving averages, multiplicative
 * (x = TC * S * I) or additive (x = TC + S + I), of a series x of n values whose
 * first value belongs to season 0 of s.
 *
 * The trend-cycle is the centred moving average of s terms (2 x s for an even s),
 * missing at the first floor(s/2) and last floor(s/2) positions; with n <= s or
 * s = 1 it is the series itself. The seasonal array holds the s normalised indices
 * (they average 1, or 0 in the additive case) repeated over n positions.
 *
 * Each routine computes what it needs from the start of the chain (trend-cycle,
 * seasonal with the seasonal-irregular values, irregular, adjusted) and fills every
 * array it is given with n values. It returns 0, or -1 for n < 1, s < 1, null arrays,
 * a multiplicative series with a value at or below 1.110223024625157e-16, no usable
 * trend-cycle value or no season with a usable value. The strictness flag goes to the
 * moving average: 0 averages the values present, non-zero requires complete windows. */
#ifndef FMSD_DECOMPOSE_H
#define FMSD_DECOMPOSE_H

#include "fmsd/module.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Trend-cycle: multiplicative 1 screens the series for values that are not positive. */
FMSD_API int ztscdtc(const double *x, int n, int s, int multiplicative, int strict, double *tc);

/* Multiplicative: seasonal-irregular ratios x / TC and seasonal indices. */
FMSD_API int ztscdms(const double *x, int n, int s, int strict, double *tc, double *si, double *seasonal);
/* Multiplicative irregular x / (TC * S). */
FMSD_API int ztscdmi(const double *x, int n, int s, int strict, double *tc, double *seasonal, double *irregular);
/* Multiplicative seasonally adjusted series TC * I. */
FMSD_API int ztscdma(const double *x, int n, int s, int strict, double *tc, double *seasonal, double *adjusted);

/* Additive: detrended values x - TC and seasonal effects. */
FMSD_API int ztscdas(const double *x, int n, int s, int strict, double *tc, double *detrended, double *seasonal);
/* Additive irregular x - TC - S. */
FMSD_API int ztscdai(const double *x, int n, int s, int strict, double *tc, double *seasonal, double *irregular);
/* Additive seasonally adjusted series TC + I. */
FMSD_API int ztscdaa(const double *x, int n, int s, int strict, double *tc, double *seasonal, double *adjusted);

#ifdef __cplusplus
}
#endif

#endif
