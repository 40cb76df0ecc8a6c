// Probabilities and verdicts of the unit-root statistics: the Dickey-Fuller
// distribution functions for the tabled periods, interpolation in ln d between them
// for the others, and the published quantiles of the Dickey-Fuller F statistics.
#include <cmath>

#include "fmsd/dickeyfuller.h"
#include "fmsd/probability.h"
#include "unitroot/etssur.h"
#include "util/numeric.h"

namespace fmsd::etss {

namespace {

// Upper-tail probabilities of the F quantile columns below.
constexpr double table_fpvaldf[8] = {0.99, 0.975, 0.95, 0.9, 0.1, 0.05, 0.025, 0.01};

// Quantiles of the joint F statistic of the single mean (Phi1) and trend (Phi3)
// regressions, rows for n <= 25, 50, 100, 250, 500 and more.
constexpr double table_fstat_1[6][8] = {
    {0.29, 0.38, 0.49, 0.65, 4.12, 5.18, 6.3, 7.88},  {0.29, 0.39, 0.5, 0.66, 3.94, 4.86, 5.8, 7.06},
    {0.29, 0.39, 0.5, 0.67, 3.86, 4.71, 5.57, 6.7},   {0.3, 0.39, 0.51, 0.67, 3.81, 4.63, 5.45, 6.52},
    {0.3, 0.39, 0.51, 0.67, 3.79, 4.61, 5.41, 6.47},  {0.3, 0.4, 0.51, 0.67, 3.78, 4.59, 5.38, 6.43}};
constexpr double table_fstat_2[6][8] = {
    {0.74, 0.9, 1.08, 1.33, 5.91, 7.24, 8.65, 10.61}, {0.76, 0.93, 1.11, 1.37, 5.61, 6.73, 7.81, 9.31},
    {0.76, 0.94, 1.12, 1.38, 5.47, 6.49, 7.44, 8.73}, {0.76, 0.94, 1.13, 1.39, 5.39, 6.34, 7.25, 8.43},
    {0.76, 0.94, 1.13, 1.39, 5.36, 6.3, 7.2, 8.34},   {0.77, 0.94, 1.13, 1.39, 5.34, 6.25, 7.16, 8.27}};

// Row i weighs the normal deviates of the tabled periods 1, 2, 4, 6, 12 for the power
// i of ln d: the Lagrange polynomials through those five points.
constexpr double coef[5][5] = {
    {1, 0, 0, 0, 0},
    {-3.124582792, 6.526346988, -7.210018681, 4.316064107, -0.5078096222},
    {3.343934671, -10.97658306, 17.3273712, -11.0770584, 1.382335582},
    {-1.485663797, 5.98781602, -11.61077519, 8.250412407, -1.141789441},
    {0.2337379849, -1.057364967, 2.336259833, -1.80757735, 0.2949444985}};

constexpr int kTabled[5] = {1, 2, 4, 6, 12};

constexpr int kFailed = -999;

bool tabled(int d) noexcept { return d == 1 || d == 2 || d == 4 || d == 6 || d == 12; }

// Probability and status of one statistic; true when a probability was found.
bool lookup(TableFunction* table, double stat, double s2, bool is_rho, int n, int d, double alpha, double* prob,
            int* status) noexcept {
  if (wzmis(stat)) {
    *prob = missing();
    *status = kFailed;
    return false;
  }
  if (stat >= 100) {
    *prob = 0.9999;
    *status = 2;
    return true;
  }
  if (stat <= -100) {
    *prob = 0.0001;
    *status = -2;
    return true;
  }
  double p = -1;
  const int rc = tabled(d) ? table(stat, n, d, &p) : d > 0 ? interpol(table, stat, n, d, &p) : 1;
  if (rc != 0) {
    *prob = missing();
    *status = kFailed;
    return false;
  }
  *prob = fmin(p, 0.9999);
  if (is_rho && std::fabs(stat) < kTiny && s2 < kTiny)
    *status = 2;
  else
    *status = *prob > alpha ? 1 : -1;
  return true;
}

// The probability of a larger F, linear between the tabled quantiles of its row.
double fprob(double f, int n, int variant) noexcept {
  const int row = n <= 25 ? 0 : n <= 50 ? 1 : n <= 100 ? 2 : n <= 250 ? 3 : n <= 500 ? 4 : 5;
  const double* q = variant == 1 ? table_fstat_1[row] : table_fstat_2[row];
  int j = 0;
  while (j < 8 && !(q[j] > f)) ++j;
  if (j == 0) return table_fpvaldf[0];
  if (j == 8) return table_fpvaldf[7];
  return table_fpvaldf[j - 1] + (f - q[j - 1]) / (q[j] - q[j - 1]) * (table_fpvaldf[j] - table_fpvaldf[j - 1]);
}

}  // namespace

int interpol(TableFunction* table, double stat, int n, int d, double* out) noexcept {
  if (n <= 23) return 1;
  double q[5];
  for (int j = 0; j < 5; ++j) {
    double p = -1;
    if (table(stat, n, kTabled[j], &p) != 0) return 1;
    q[j] = zprobit(p);
  }
  const double x = std::log(static_cast<double>(d));
  double z = 0;
  for (int i = 4; i >= 0; --i) {
    double term = 0;
    for (int j = 0; j < 5; ++j) term += coef[i][j] * q[j];
    z = z * x + term;
  }
  *out = fmax(fmin(zprbnrm(z), 0.9999), 0.0001);
  return 0;
}

int getdfpval(double s2, int n, int variant, int d, double alpha, etss_result* record) noexcept {
  if (d < 0 || d > 12 || variant < 0 || variant > 2 || n < 0 || (variant == 2 && d > 1)) return -1;
  static TableFunction* const rho_table[3] = {zprbdf, zprdfsm, zprdftr};
  static TableFunction* const tau_table[3] = {zpdfszm, zpdfssm, zpdfstr};
  // The record's doubles are only 4-byte aligned: no pointers into it.
  int rho_status = 0, tau_status = 0;
  double rho_prob = 0, tau_prob = 0;
  const bool rho_ok = lookup(rho_table[variant], record->rho, s2, true, n, d, alpha, &rho_prob, &rho_status);
  const bool tau_ok = lookup(tau_table[variant], record->tau, s2, false, n, d, alpha, &tau_prob, &tau_status);
  record->rho_prob = rho_prob;
  record->tau_prob = tau_prob;

  record->f_dfprob = d < 2 && variant != 0 && !wzmis(record->fstat) ? fprob(record->fstat, n, variant) : missing();

  if (rho_ok && tau_ok)
    record->verdict = rho_status + tau_status;
  else if (tau_ok)
    record->verdict = tau_status;
  else if (rho_ok)
    record->verdict = rho_status;
  else
    record->verdict = 0;
  return (rho_ok ? 0 : 1) + (tau_ok ? 0 : 2);
}

}  // namespace fmsd::etss
