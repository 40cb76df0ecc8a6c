/* Statistics of fit between the actual values of a series and a model's predictions,
 * and a summary of one series. Statistics that cannot be computed are the host's
 * missing value. */
#ifndef FMSD_FITSTATS_H
#define FMSD_FITSTATS_H

#include <stdint.h>

#include "fmsd/module.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Statistic numbers for ztssfs and ztssfc; ZTSS_MSE_DFE and ZTSS_RMSE_DFE divide by
 * the error degrees of freedom. */
enum {
  ZTSS_SSE = 1,
  ZTSS_MSE = 2,
  ZTSS_RMSE = 3,
  ZTSS_MSE_DFE = 4,
  ZTSS_RMSE_DFE = 5,
  ZTSS_MAPE = 6,
  ZTSS_MAE = 7,
  ZTSS_RSQUARE = 8,
  ZTSS_ADJ_RSQ = 9,
  ZTSS_A_ADJ_RSQ = 10,
  ZTSS_RW_RSQ = 11,
  ZTSS_AIC = 12,
  ZTSS_SBC = 13,
  ZTSS_APC = 14,
  ZTSS_MAXERR = 15,
  ZTSS_MINERR = 16,
  ZTSS_MAXPE = 17,
  ZTSS_MINPE = 18,
  ZTSS_ME = 19,
  ZTSS_MPE = 20
};

#define ZTSS_NSTATS 20

typedef struct fitstats {
  int32_t dfe;    /* used observations minus parameters */
  int32_t n;      /* observations left after trimming missing predictions at both ends */
  int32_t nobs;   /* observations given */
  int32_t nmissa; /* missing actual values among those given */
  int32_t nmissp; /* missing predictions among those given */
  int32_t nparms; /* model parameters, as given */
  double tss;     /* uncorrected sum of squares of the actual values */
  double sst;     /* corrected sum of squares of the actual values */
  double stat[ZTSS_NSTATS]; /* statistic i is stat[i - 1] */
} fitstats;

typedef struct tssumm {
  int32_t count;    /* values given */
  int32_t nvalid;   /* non-missing values */
  int32_t nmiss;    /* missing values */
  int32_t minrun;   /* shortest run of consecutive missing values */
  int32_t maxrun;   /* longest run of consecutive missing values */
  double min;
  double max;
  double mean;
  double std;       /* sample standard deviation */
} tssumm;

FMSD_STATIC_ASSERT(offsetof(fitstats, tss) == 24 && offsetof(fitstats, stat) == 40 && sizeof(fitstats) == 200,
                   "fit statistics layout");
FMSD_STATIC_ASSERT(offsetof(tssumm, min) == 24 && offsetof(tssumm, std) == 48 && sizeof(tssumm) == 56,
                   "series summary layout");

/* Fills *fs from count actual values and predictions; before is the actual value that
 * precedes actual[0] (missing when there is none). Returns the number of non-missing
 * actual values, or -1 for a negative count or a null pointer. */
FMSD_API int ztssfit(double before, const double *actual, const double *predicted, int count, int nparms,
                     fitstats *fs);
/* Statistic index (1 to 20) of the record; missing for any other index. */
FMSD_API double ztssfs(const fitstats *fs, int index);
/* 1 when a is a worse value of statistic index than b, else 0; -1 when both are
 * missing, -2 for an index outside 1 to 20. */
FMSD_API int ztssfc(double a, double b, int index);
/* Returns the number of non-missing values, or -1 for a negative count or a null pointer. */
FMSD_API int ztssumm(const double *x, int count, tssumm *summary);

#ifdef __cplusplus
}
#endif

#endif
