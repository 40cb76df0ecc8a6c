/* Moving summaries of a series: sums and means (optionally weighted), corrected sums
 * of squares and variances, minimum, maximum, median and range, and an exponentially
 * weighted moving average.
 *
 * A window of k positions, lead of them after position t and lag = k - lead - 1
 * before it, clipped to the series. Strictness 0 summarises the window's non-missing
 * values when there is at least one; 1 requires every in-series position of the
 * window to hold a value; any other flag gives no summary at all. The output (n
 * doubles, not overlapping the series) is written at every position, the host's
 * missing value where there is no summary.
 *
 * The window routines return the number of positions whose output is missing although
 * their input is not; n, with nothing written, for an invalid window (k < 1, lead < 0
 * or lag < 0; reported through the host's diagnostics) or a null array. A window
 * longer than the series is shrunk to it; n < 1 gives 0. */
#ifndef FMSD_MOVING_H
#define FMSD_MOVING_H

#include "fmsd/module.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Transform codes of ztsmsum: the value, its square, or (any other code) its magnitude. */
enum { ZTSM_VALUE = 0, ZTSM_SQUARE = 1, ZTSM_ABSOLUTE = 2 };

/* Statistic codes of ztsmord. */
enum { ZTSM_MINIMUM = 0, ZTSM_MAXIMUM = 1, ZTSM_MEDIAN = 2, ZTSM_RANGE = 3 };

/* Moving sum (d < 0) or sum / (count - d) (d >= 0; 0.0 when count <= d) of the
 * transformed values. With weights (k doubles, weight i for position t - lag + i)
 * the summary is the weighted mean, divided by (count - d) when d >= 0; weights
 * beyond 1.3407807929943e154 in magnitude are replaced by that value in the caller's
 * array, and a weight sum that is practically 0 with d >= 0 makes every output
 * missing (result n). k = 1 copies the transformed series (missing stays missing). */
FMSD_API int ztsmsum(const double *x, int n, double *weights, int k, int lead, int strict, int d,
                     int transform, double *out);

/* Moving corrected sum of squares C (d < 0; 0.0 for fewer than two values) or
 * C / (count - d) (d >= 0; 0.0 when count <= d): d = 1 gives the sample variance,
 * d = 0 the population variance. Weights as in ztsmsum, giving the weighted
 * population variance. The eighth argument is not used. */
FMSD_API int ztsmcsm(const double *x, int n, double *weights, int k, int lead, int strict, int d,
                     int unused, double *out);

/* Moving minimum, maximum, median (the mean of the two middle values for an even
 * count) or range over the window's non-missing values; a NaN that is not the
 * missing value makes the statistic NaN. work holds at least 3 * min(k, n) ints.
 * An unknown statistic makes every output missing and gives n. */
FMSD_API int ztsmord(const double *x, int n, int k, int lead, int *work, int strict, int statistic,
                     double *out);

/* Exponentially weighted moving average S = w * x + (1 - w) * S', started from the
 * first non-missing value x0. Non-strict (0): a missing value repeats the previous
 * average; result 0. Strict (1): the output at x0 is missing and the first later
 * missing value ends the smoothing; result 1 plus the number of outputs that end
 * set missing. A missing w, or |w| >= 1, copies the series from x0 on (result 0);
 * |w| <= 1.491668147e-154 repeats x0. Any other flag: every output missing, the
 * result is the number of non-missing values. */
FMSD_API int ztsmewa(const double *x, int n, double w, int strict, double *out);

#ifdef __cplusplus
}
#endif

#endif
