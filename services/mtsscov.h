// The series diagnostics service's work area and the routines around it: the
// unit-root specification reader, the work area's allocation, and the writer of
// the diagnostics output data set.
#ifndef FMSD_SERVICES_MTSSCOV_H
#define FMSD_SERVICES_MTSSCOV_H

#include "fmsd/hostabi.h"
#include "services/dataset.h"

namespace fmsd {

// Lag arrays run from lag 0 to the L the area was made for; nlags is M, the lags
// reported (-1 for none).  Every double array comes filled with the missing value.
struct DiagnosticsArea {
  int nlags;
  double* series;     // the observations as read, NOBS of them
  double* working;    // the trimmed series, centred by the correlation routines
  double mean;
  int* counts;        // usable pairs per lag
  double* acov;
  double* acf;
  double* acf_se;     // Bartlett standard errors
  double* pacf;
  double pacf_se;
  double* iacf;
  double iacf_se;
  double* wnoise;     // Ljung-Box probabilities
  double* unitroot;   // per augmenting lag
  double* seasonur;   // per augmenting lag
  int* lag_orders;    // 0 .. MAXAR
  double* pacf_work;  // 3 (L + 1)
  double* work;       // 3 (L + 1)
};

// mode != 0 makes the area for nobs observations, lags 0..maxlag and augmenting lags
// 0..maxar; 0, or non-zero after freeing everything when the host ran out of memory.
// mode == 0 frees whatever the area holds and returns 0.
int allocate(int mode, int nobs, int maxlag, int maxar, DiagnosticsArea* area) noexcept;

// Reads a unit-root specification list (a list word; 0 or an unusable list gives the
// defaults): method 2 Phillips-Perron, 0 random walk, 1 regression; variant 0 zero
// mean, 1 single mean, 2 trend, -1 none; statistic type 0 rho, 1 tau, 2 F, -1 none.
// Returns 0, -1 for a DLAG outside 1..12 (left as it was), or the host's status of
// the DLAG lookup.
int geturspec(void* context, fmsd_word list, int* method, int* variant, int* dlag, int* maxar,
              int* stattype) noexcept;

// Writes one observation per lag 0..M to a new data set; 0, or -1 after a host
// failure (logged, and the data set discarded).
int acovout(DataSetRecord* output, const DiagnosticsArea* area, int probabilities) noexcept;

}  // namespace fmsd

#endif
