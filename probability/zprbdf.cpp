// Probabilities of the Dickey-Fuller statistics. Until the fitted response surfaces
// are in place every combination is declined.

#include "fmsd/dickeyfuller.h"

namespace {
int decline(double* prob) {
  *prob = -1;
  return 1;
}
}  // namespace

extern "C" {
int zprbdf(double, int, int, double* prob) { return decline(prob); }
int zprdfsm(double, int, int, double* prob) { return decline(prob); }
int zprdftr(double, int, int, double* prob) { return decline(prob); }
int zpdfszm(double, int, int, double* prob) { return decline(prob); }
int zpdfssm(double, int, int, double* prob) { return decline(prob); }
int zpdfstr(double, int, int, double* prob) { return decline(prob); }
}
