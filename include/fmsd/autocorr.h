/* Autocorrelation of one series: autocovariances, the autocorrelation function with
 * Bartlett standard errors, Ljung-Box white-noise probabilities, partial autocorrelations
 * (Durbin-Levinson) and inverse autocorrelations.
 *
 * Lag arrays are indexed by lag 0 to maxlag. The series may hold the host's missing
 * value anywhere; a lag without a usable pair gets the missing value. Nothing here
 * allocates: every array and workspace comes from the caller. */
#ifndef FMSD_AUTOCORR_H
#define FMSD_AUTOCORR_H

#include "fmsd/module.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
  ZTS_NO_SERIES = -997,   /* ztsscor: the series has no present value */
  ZTS_BAD_ARGUMENT = -998 /* any routine: a null array, a negative length or maximum lag */
};

/* Centres the series in place on the mean of its present values (stored in *mean) and
 * computes autocovariance[k] = sum of x[i] x[i+k] over the pairs with both members
 * present, divided by n less the pairs with a missing member; count[k] is the number
 * of usable pairs (n - k - missing pairs, so 0 or negative for k >= n). Returns the
 * number of present values, returning it at once, with nothing written, when it is
 * below 2; 0 when the lag-0 autocovariance is missing. With mean NULL the series is
 * taken as already centred and left as it is. */
FMSD_API int ztsscov(double *x, int n, int maxlag, double *mean, double *acov, int *count);

/* ztsscov, then acf[k] = acov[k] / acov[0] and Bartlett standard errors
 * se[k] = sqrt(1 + 2 sum_{0<j<k} acf[j]^2) / sqrt(nobs), se[0] = 0; se holds at least
 * max(maxlag + 1, 2) doubles. Returns 0, or ZTS_NO_SERIES. */
FMSD_API int ztsscor(double *x, int n, int maxlag, double *mean, double *acov, int *count, double *acf,
                     double *se);

/* Ljung-Box probabilities on a centred series: prob[k] = P(chi2(k) > Q_k), prob[0] = 0.
 * The maximum lag is lowered to one below the number of present values; lags beyond it
 * are not written. Returns the maximum lag used (-1 when no value is present). */
FMSD_API int ztsslbw(const double *x, int n, int maxlag, double *prob);

/* Partial autocorrelations pacf[1..maxlag] from acf[0..maxlag], damped first where the
 * sequence is not positive definite; missing acf values are set to 0 in the caller's
 * array. The inverse autocorrelations of the autoregression of order
 * m = min(maxlag, n / 2) go to iacf[0..maxlag-1] (lag 1 first; missing beyond m) when
 * m >= 2. pacf is also workspace: at least max(3 maxlag, maxlag + 1) doubles; work
 * holds 3 (maxlag + 1). Returns 0, or 1 when the sequence could not be made positive
 * definite (no pacf or iacf values written). */
FMSD_API int ztsspcr(double *acf, int n, int maxlag, double *pacf, double *iacf, double *work);

/* The largest damping g in [0, 1], to within 0.05, for which 1, g r[1], ..., g^p r[p]
 * is a valid autocorrelation sequence; 1 when p <= 0. work holds 3 p doubles; its first
 * p receive the order-p prediction-error filter of the accepted sequence (the negated
 * autoregressive coefficients). A non-finite r[k] gives 0: no damping repairs it.
 * ZTS_BAD_ARGUMENT for a null array. */
FMSD_API double zposdef(const double *r, int p, double *work);

#ifdef __cplusplus
}
#endif

#endif
