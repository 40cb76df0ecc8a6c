/* Unit-root tests of one series: the (augmented) Dickey-Fuller test, the seasonal
 * Dickey-Hasza-Fuller test for periods 2 to 12, and the Phillips-Perron tests, each in
 * the zero mean, single mean and trend variants.
 *
 * A test context is made once per series with etssurm and handed to the tests; it owns
 * every array the tests need, taken from the host pool. The series may hold the host's
 * missing value anywhere: a regression row with a missing member is left out.
 *
 * Every statistic or probability that cannot be formed is the host's missing value. */
#ifndef FMSD_UNITROOT_H
#define FMSD_UNITROOT_H

#include <stddef.h>
#include <stdint.h>

#include "fmsd/module.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Results of etssdft, etssppt and etssur2 (and of the regression steps behind them). */
enum {
  ETSS_BAD_SETTINGS = -99, /* a setting out of range, or arrays the context lacks */
  ETSS_OVERFLOW = -1,      /* a cross product reached 1.3407807929943e154 */
  ETSS_TOO_FEW = -2,       /* too few usable observations for the regression */
  ETSS_NO_LEVEL_VARIATION = -3,
  ETSS_NO_DIFFERENCE_VARIATION = -4,
  ETSS_SWEEP_FAILED = -5 /* the first regressor has no variation left */
};

/* Variants and methods. */
enum { ETSS_ZERO_MEAN = 0, ETSS_SINGLE_MEAN = 1, ETSS_TREND = 2 };
enum { ETSS_RANDOM_WALK = 0, ETSS_REGRESSION = 1, ETSS_PHILLIPS_PERRON = 2 };

/* Records kept at their 32-bit host layout: 4-byte alignment, no padding. */
#pragma pack(push, 4)

/* One regressor of a fitted regression (36 bytes). A regressor dropped for
 * collinearity has estimate 0, missing se, t and prob, and kept 0. */
typedef struct etss_param {
  double estimate;
  double se;
  double t;
  double prob; /* two-sided, nobs degrees of freedom */
  int32_t kept;
} etss_param;

/* One test result (76 bytes). Statuses behind the verdict: 1 the probability exceeds
 * the significance level, -1 it does not, 2 / -2 the statistic is at least 100 / at
 * most -100 (or rho is 0 from a perfect fit: 2), -999 no probability. The verdict is
 * the sum of the rho and tau statuses, or the one that exists, or 0. */
typedef struct etss_result {
  double omega;       /* Phillips-Perron: long-run standard deviation; else 0 */
  double rho;         /* n (rho - 1); Phillips-Perron Z(rho) */
  double rho_prob;    /* Dickey-Fuller probability of rho */
  double tau;         /* studentized statistic; Phillips-Perron Z(tau) */
  double tau_tprob;   /* ordinary two-sided t probability of the level coefficient */
  double tau_prob;    /* Dickey-Fuller probability of tau */
  double fstat;       /* joint F of the last deterministic term and the level */
  double f_prob;      /* from the F distribution */
  double f_dfprob;    /* from the Dickey-Fuller F tables */
  int32_t verdict;
} etss_result;

#pragma pack(pop)

/* A least-squares fit on a packed cross-product matrix: regressors first, the dependent
 * variable last; element (i, j), i >= j, at i (i + 1) / 2 + j. */
typedef struct etss_regression {
  int k;        /* regressors of the current fit */
  int capacity; /* regressors the arrays hold */
  double *row;
  double *diagonal;
  char *status;
  double *matrix; /* cross products as accumulated */
  double *swept;  /* swept copy, dropped regressors removed */
  /* For conditioning, a fit with an intercept takes a constant from its level
   * regressor (in the level form also from the dependent variable) before the cross
   * products are formed; the intercept's record is given back in the original units. */
  double level_shift;
  double dep_shift;
  int level;      /* index of the level regressor, -1 when there is none */
  int intercept;  /* 1 when regressor 0 is the intercept */
  int rank;       /* regressors kept */
  double s2;      /* SSE / (nobs - rank) */
  double rmse;
  double sse_n;   /* SSE / nobs */
  double sst;     /* sum of squares of the dependent variable as accumulated */
  double sse;
  int nobs;
  int dfe;        /* nobs - rank */
  unsigned char *dropped; /* one flag per regressor */
  etss_param *params;
} etss_regression;

typedef struct etss_context {
  int method;    /* ETSS_REGRESSION, ETSS_PHILLIPS_PERRON (or ETSS_RANDOM_WALK) */
  int variant;   /* ETSS_ZERO_MEAN, ETSS_SINGLE_MEAN, ETSS_TREND */
  int d;         /* period of the lagged level: 1, or 2 to 12 for the seasonal test */
  int p;         /* augmenting lags of the next etssdft */
  int augmented; /* 1: regression of differences on the level; 0: of levels on levels */
  double alpha;  /* significance level of the verdicts */
  int nlags;     /* lag orders (etssur) or truncation lags (Phillips-Perron) */
  const int *lags;
  int maxlag;    /* largest augmenting or truncation lag the arrays hold */
  int n;         /* longest series the work array holds */
  double *work;
  etss_regression aux;  /* seasonal test: the filter's autoregression */
  etss_regression main;
  etss_result result;   /* of the last etssdft */
  etss_result *results[3]; /* per lag order: zero mean, single mean, trend */
} etss_context;

/* mode != 0: clears the context, stores the settings and allocates its arrays for
 * series of up to n values and up to maxp augmenting lags (Phillips-Perron: truncation
 * lags); the lag array is kept by reference and must outlive the context. Returns 0,
 * ETSS_BAD_SETTINGS for a null context, a negative n, or maxp outside 0 to 46000, or the
 * host's memory status (non-zero, everything freed). mode == 0: frees the context's
 * arrays and returns 0. */
FMSD_API int etssurm(int mode, int method, int variant, int d, int maxp, int nlags, const int *lags,
                     double alpha, int augmented, int n, etss_context *context);

/* One Dickey-Fuller test for the context's variant, d, p and augmented flag, into
 * context->result. diff holds n doubles of work. Returns 0 or a negative ETSS_ code;
 * on failure the result record is left as it was. */
FMSD_API int etssdft(const double *y, int n, etss_context *context, double *diff);

/* For each lag order of the context: trend, single mean and zero mean tests into
 * results[2], [1], [0] (a failed fit stores missing values and verdict 0). Returns 0, or
 * ETSS_BAD_SETTINGS for a negative lag count or a context without result arrays. */
FMSD_API int etssur(const double *y, int n, etss_context *context, double *diff);

/* Phillips-Perron tests for the context's variant, one record per truncation lag in
 * results[variant]; the regression's estimates go to estimates (variant + 1 doubles)
 * unless it is null.
 * Returns the status of the last probability lookup (0 when both probabilities were
 * found; 1, 2 or 3 when rho's, tau's or both were not), or a negative ETSS_ code. */
FMSD_API int etssppt(const double *y, int n, etss_context *context, double *estimates, double *diff);

/* Phillips-Perron tests of all three variants, into results[2], [1] and [0]. */
FMSD_API int etssur2(const double *y, int n, etss_context *context, double *diff);

#ifdef __cplusplus
}
#endif

FMSD_STATIC_ASSERT(sizeof(etss_param) == 36, "parameter record layout");
FMSD_STATIC_ASSERT(sizeof(etss_result) == 76 && offsetof(etss_result, verdict) == 72, "result record layout");

#endif
