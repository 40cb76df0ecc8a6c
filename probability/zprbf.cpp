// Upper tail of the F distribution.

#include "fmsd/probability.h"

// P(F > f) = I_y(df2/2, df1/2) with y = df2 / (df1 f + df2).
extern "C" double zprbf(double f, double df1, double df2) {
  if (f < 0 || df2 <= 0 || df1 <= 0) return -1.0;
  if (f == 0) return 1.0;
  const double y = df2 / (df1 * f + df2);
  if (y == 0) return 0.0;
  double i, density;
  if (zibeta(y, df2 / 2.0, df1 / 2.0, &i, &density) != 0) return -2.0;
  return i;
}
