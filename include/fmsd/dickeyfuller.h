/* The Dickey-Fuller distribution: left-tail probabilities of the normalized
 * statistic n(rho - 1) and of the studentized statistic (tau) of a unit-root test,
 * for n regression rows and seasonal period d, in the zero mean, single mean and
 * trend variants. Each returns 0 with the probability stored, or 1 (the output set to
 * -1) when d and n are not supported. */
#ifndef FMSD_DICKEYFULLER_H
#define FMSD_DICKEYFULLER_H

#include "fmsd/module.h"

#ifdef __cplusplus
extern "C" {
#endif

FMSD_API int zprbdf(double stat, int n, int d, double *prob);  /* normalized, zero mean */
FMSD_API int zprdfsm(double stat, int n, int d, double *prob); /* normalized, single mean */
FMSD_API int zprdftr(double stat, int n, int d, double *prob); /* normalized, trend */
FMSD_API int zpdfszm(double stat, int n, int d, double *prob); /* studentized, zero mean */
FMSD_API int zpdfssm(double stat, int n, int d, double *prob); /* studentized, single mean */
FMSD_API int zpdfstr(double stat, int n, int d, double *prob); /* studentized, trend */

#ifdef __cplusplus
}
#endif

#endif
