/* Probability functions: the normal distribution, the gamma and beta functions with
 * their incomplete forms, the F, t and chi-square tails, and a log-scale family that
 * keeps extreme tails that the ordinary routines round to 0 or 1.
 *
 * Every routine is a pure function: no state, no allocation, no messages. None tests
 * for the host's missing value; callers screen their arguments first. A NaN argument
 * gives a NaN result, except in zibeta and zigamma, which report it as a failure. */
#ifndef FMSD_PROBABILITY_H
#define FMSD_PROBABILITY_H

#include "fmsd/module.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- the normal distribution ---- */
FMSD_API double zferf(double x);
FMSD_API double zferfc(double x);
/* P(Z <= x); exactly 0.5 at 0, exactly 0 below -37.64030867301702. */
FMSD_API double zprbnrm(double x);
/* The quantile: -37.64030867301702 at 0, 7.941345326170997 at 1, NaN outside [0, 1]. */
FMSD_API double zprobit(double p);
/* ln P(Z <= x), ln P(Z > x) and ln of the density; 1 when the Mills ratio fails
 * (the density is stored, the tails are not). */
FMSD_API int zlognrm(double x, double *lnlower, double *lnupper, double *lndensity);
/* (1 - Phi(x)) / phi(x); 1 when the continued fraction (x >= 5) did not converge. */
FMSD_API int zmillsr(double x, double *ratio);
/* Inverse Gaussian distribution function at a times the mean, b = shape / mean. */
FMSD_API double zprbigs(double a, double b);
/* ln(1 + x), accurate near 0. */
FMSD_API double zln1px(double x);

/* ---- gamma and beta ---- */
/* Stirling correction: ln Gamma(x) - ((x - 1/2) ln x - x + ln sqrt(2 pi)). */
FMSD_API double zlgbern(double x);
/* ln Gamma(x); -99.0 for x <= 0. */
FMSD_API double zlgamma(double x);
/* ln B(a, b); 99.0 when a <= 0 or b <= 0. */
FMSD_API double zlbeta(double a, double b);
/* Regularized incomplete beta I_x(a, b) and the beta density at x. Status 0; 1 when a
 * or b exceeds 2147483647 (outputs untouched); -1 for x outside [0, 1], a <= 0, b <= 0
 * or no convergence (I = -1, density 0). */
FMSD_API int zibeta(double x, double a, double b, double *i, double *density);
/* Regularized incomplete gamma P(a, x), Q = 1 - P and the gamma density at x. Status 0;
 * 1 for a < 0, x < 0 or no convergence (P = Q = -2, density 0). */
FMSD_API int zigamma(double x, double a, double *p, double *q, double *density);

/* ---- tails of the F, t and chi-square distributions ---- */
/* P(F(df1, df2) > f); -1 for f < 0 or a non-positive df, -2 when the beta fails. */
FMSD_API double zprbf(double f, double df1, double df2);
/* P(|T(df)| > sqrt(t2)); -2 when the beta fails. */
FMSD_API double zpgt2(double t2, int df);
/* P(chi2(df) > x); the host's missing value when the gamma fails. */
FMSD_API double zpgx2(double x, int df);

/* ---- the log-scale family ----
 * Logarithms of both tails and of the density of the gamma and beta distributions,
 * for arguments where the tails underflow to 0 or round to 1 in the routines above.
 * What they promise, for finite arguments with shapes of at least 1e-9:
 *   - every log tail within 1e-12 of its exact value, relative, whatever the depth
 *     of the tail; the log density within 1e-12 relative, or absolute where it is
 *     below 1 in magnitude (checked against mpmath for gamma shapes 1e-9 to 1e18 and
 *     beta shapes 1e-9 to 1e15, with log tails down to -1e118);
 *   - the log of a tail close to 1 is ln(1 - other tail), as accurate relative to
 *     its own size, down to the smallest double;
 *   - ln 0 is -1.7976931348623157e308 and the log of an unbounded density at an end
 *     of the support is +1.7976931348623157e308.
 * Status 0; 1 for an argument outside the domain (the outputs are left as they are),
 * a series that did not converge, or a log tail above 0. */

/* The record zloggam works on: the gamma(a) distribution at x. x and a are read; tol
 * is raised to at least 5.551115123125785e-16 (2.5 * 2^-52) and is the relative
 * accuracy asked of the series and continued fractions. */
typedef struct zloggam_rec {
  double x;
  double a;
  double lnp;       /* ln P(a, x) */
  double lnq;       /* ln Q(a, x) = ln(1 - P(a, x)) */
  double lndensity; /* ln of the gamma(a) density at x */
  double tol;
} zloggam_rec;

/* The record zlogbet works on: the beta(a, b) distribution at x, tol as above. */
typedef struct zlogbet_rec {
  double x;
  double a;
  double b;
  double lnp;       /* ln I_x(a, b) */
  double lnq;       /* ln(1 - I_x(a, b)) */
  double lndensity; /* ln of the beta(a, b) density at x */
  double tol;
} zlogbet_rec;

/* Domain: x >= 0 and a >= 1e-9. At x = 0: ln P = -1.797e308, ln Q = 0, and the log
 * density is -1.797e308 for a > 1, +1.797e308 for a < 1, 0 for a = 1. */
FMSD_API int zloggam(zloggam_rec *r);
/* Domain: 0 <= x <= 1, a >= 1e-9 and b >= 1e-9. At x = 0: ln P = -1.797e308, ln Q = 0,
 * log density -1.797e308, +1.797e308 or ln b as a > 1, a < 1 or a = 1; at x = 1 the
 * same with the tails exchanged and b in place of a. */
FMSD_API int zlogbet(zlogbet_rec *r);
/* ln of the gamma(a) density at x and of the beta(a, b) density at x: the values the
 * records receive, -1.797e308 outside the support, NaN for a shape below 1e-9 or an
 * argument that is NaN. */
FMSD_API double zldngam(double x, double a);
FMSD_API double zldnbet(double x, double a, double b);

#ifdef __cplusplus
}
#endif

#endif
