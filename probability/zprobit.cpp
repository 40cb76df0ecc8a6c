// The normal quantile function.

#include <cmath>

#include "fmsd/probability.h"

namespace {

constexpr double kLowest = -37.64030867301702;  // sqrt(2 * 708.3964185): Phi underflows below it
constexpr double kHighest = 7.941345326170997;  // upper tail 1e-15
constexpr double kSqrt2Ln2 = 1.1774100225154747;

// Central region, in powers of t (lowest first).
constexpr double n1[8] = {1.4756646266356057,  3.827787912267809,   3.926527220876258,
                          2.0524292014826053,  0.5906175347671243,  0.09433047102597236,
                          0.007748014532123519, 0.00023850990628812184};
constexpr double d1[8] = {1.0,                 2.757985744718407,   3.0193046324086072,
                          1.6853868285749263,  0.5155497927835685,  0.08675117268832777,
                          0.007472090148248392, 0.00023846672191006805};
// Tails, in powers of 1/t.
constexpr double n2[9] = {1.3896718225467155e-05, 0.0009933095513250212, 0.021322238814693088,
                          0.1971184884114817,     0.9208235553699621,    2.302486886454419,
                          2.9349133839409465,     1.4756630668977935,    2.2366406817573622e-07};
constexpr double d2[8] = {1.389640654034189e-05, 0.000977052221781334, 0.020255719894916695,
                          0.1775558927085442,    0.7785719242838022,   1.8195065884540687,
                          2.152916059924272,     1.0};

template <int N>
double horner(const double (&c)[N], double x) {
  double s = c[N - 1];
  for (int i = N - 2; i >= 0; --i) s = s * x + c[i];
  return s;
}

// Below 1e-16 the rational forms lose accuracy: Newton's method on ln Phi(z) = ln p.
// The loop runs while the previous probability is off; a NaN ends it unordered.
double szprobit(double p) {
  double z = -std::sqrt(-2.0 * std::log(p));
  double previous = 1.3407807929943e154;
  while (std::fabs(previous - p) > 1e-12 * p) {
    const double f = zprbnrm(z);
    if (f == 0) return kLowest;
    z = z + f * std::log(p / f) / (0.3989422804014327 * std::exp(-0.5 * z * z));
    previous = f;
  }
  return z;
}

}  // namespace

extern "C" double zprobit(double p) {
  if (p == 0) return kLowest;
  if (p == 1) return kHighest;
  if (p < 1e-16) return szprobit(p);
  const double q = p > 0.5 ? 1.0 - p : p;
  const double t = std::sqrt(-2.0 * std::log(q)) - kSqrt2Ln2;
  double x;
  if (q > 0.01) {
    x = t * horner(n1, t) / horner(d1, t);
  } else {
    const double u = 1.0 / t;
    x = t * horner(n2, u) / horner(d2, u);
  }
  return p > 0.5 ? x : -x;
}
