// Upper tail of the chi-square distribution.

#include "fmsd/probability.h"
#include "module/hostops.h"

// P(chi2(df) > x) = Q(df/2, x/2); a failure is reported as the host's missing value.
extern "C" double zpgx2(double x, int df) {
  double p, q, density;
  if (zigamma(x / 2.0, static_cast<double>(df) / 2.0, &p, &q, &density) != 0) return fmsd::missing();
  return q;
}
