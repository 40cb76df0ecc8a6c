// Two-sided tail of Student's t distribution.

#include "fmsd/probability.h"

// Takes the squared statistic: P(|T| > t) = I_y(df/2, 1/2) with y = df / (t^2 + df).
extern "C" double zpgt2(double t2, int df) {
  const double n = static_cast<double>(df);
  double i, density;
  if (zibeta(n / (t2 + n), n / 2.0, 0.5, &i, &density) != 0) return -2.0;
  return i;
}
