/* Series transformations: the logarithm, square root, logit and Box-Cox families,
 * forward and inverse, and the moments of a back-transformed forecast whose value on
 * the transformed scale is normal with a known standard error.
 *
 * Single-value routines return 0 on success, -1 when the input value is missing and
 * 1 when it lies outside the family's domain or the result would overflow; the output
 * is then the host's missing value. Array routines return -1 for a count of 0 or less,
 * 1 when any element gave 1, else 0. A missing parameter takes the family's default:
 * 0 for LOG and SQRT, 1 for LOGIT; BOXCOX passes values through unchanged. */
#ifndef FMSD_TRANSFORM_H
#define FMSD_TRANSFORM_H

#include "fmsd/module.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Transformation types; any other type passes values through unchanged. */
enum { ZTST_NONE = 0, ZTST_LOG = 1, ZTST_SQRT = 2, ZTST_LOGIT = 3, ZTST_BOXCOX = 4 };

/* Back-transformation options. */
enum { ZTST_UNKNOWN = 0, ZTST_INVERSE = 1, ZTST_MEAN = 2, ZTST_MEDIAN = 3 };

/* Statuses of zpower besides 0: -1 a missing or NaN argument, 1 overflow, 2 a negative
 * base with a non-integer exponent, 3 a zero base with an exponent of 0 or less. */
enum { ZPOWER_OVERFLOW = 1, ZPOWER_NEGATIVE_BASE = 2, ZPOWER_ZERO_BASE = 3 };

/* ---- dispatchers by type ---- */
FMSD_API int ztstf(double x, int type, double theta, double *out);
FMSD_API int ztsti(double y, int type, double theta, double *out);
FMSD_API int ztstfv(const double *x, int count, int type, double theta, double *out);
FMSD_API int ztstiv(const double *y, int count, int type, double theta, double *out);
/* The mean of the back-transformed value and its standard error, and the median with
 * the root mean squared error about it. LOGIT and BOXCOX integrate over the weight
 * table w of n + 1 entries (n nodes on each side, m per standard deviation); when
 * w[0] is missing the table is filled first. */
FMSD_API int ztste(double y, double s, int type, double theta, int n, int m, double *w, double *mean, double *se);
FMSD_API int ztstm(double y, double s, int type, double theta, int n, int m, double *w, double *median,
                   double *rmse);

/* ---- name lookups: exactly eight characters, blank-padded, case as written ---- */
FMSD_API int ztstnm(const char *name, int length);
FMSD_API int ztstopt(const char *name, int length);

/* The LOGIT scale that keeps every scale * x of the series below 1; -1 when the
 * series has no value above 0 that a power of ten can bound. */
FMSD_API int ztstgp(const double *x, int count, double *theta);
/* Normal-integration weights: w[k] = phi(k / m) / m for k = 0 to n. -1 for n < 1 or m < 1. */
FMSD_API int ztstniw(int n, int m, double *w);
FMSD_API double zpower(double x, double y, int *status);

/* ---- the families ---- */
FMSD_API int ztstlf(double x, double theta, double *out);
FMSD_API int ztstsf(double x, double theta, double *out);
FMSD_API int ztstgf(double x, double theta, double *out);
FMSD_API int ztstbf(double x, double theta, double *out);
FMSD_API int ztstli(double y, double theta, double *out);
FMSD_API int ztstsi(double y, double theta, double *out);
FMSD_API int ztstgi(double y, double theta, double *out);
FMSD_API int ztstbi(double y, double theta, double *out);

FMSD_API int ztstle(double y, double s, double theta, double *median, double *mean, double *se);
FMSD_API int ztstse(double y, double s, double theta, double *median, double *mean, double *se);
FMSD_API int ztstge(double y, double s, double theta, int n, int m, const double *w, double *median,
                    double *mean, double *se);
FMSD_API int ztstbe(double y, double s, double theta, int n, int m, const double *w, double *median,
                    double *mean, double *se);

FMSD_API int ztstlm(double y, double s, double theta, double *median, double *rmse);
FMSD_API int ztstsm(double y, double s, double theta, double *median, double *rmse);
FMSD_API int ztstgm(double y, double s, double theta, int n, int m, const double *w, double *median, double *rmse);
FMSD_API int ztstbm(double y, double s, double theta, int n, int m, const double *w, double *median, double *rmse);

#ifdef __cplusplus
}
#endif

#endif
