// Ordinary least squares for the forecast command: a Householder QR factorisation
// that sets aside columns which add nothing to the ones before them, and the
// Student t distribution for standard errors, limits and tests.
#ifndef FMSD_APP_REGRESSION_H
#define FMSD_APP_REGRESSION_H

#include <vector>

namespace fmsd::app {

class LeastSquares {
 public:
  // Fits y on the columns of x (n rows of p values, row after row).  A column whose
  // part orthogonal to the columns kept before it has less than 1e-7 of its own
  // length is aliased: it gets no coefficient, and the fit is that of the other
  // columns.  n may be smaller than p.
  LeastSquares(const std::vector<double>& x, const std::vector<double>& y, int n, int p);

  int rank() const noexcept { return rank_; }
  int observations() const noexcept { return n_; }
  int df() const noexcept { return n_ - rank_; }
  bool aliased(int column) const noexcept { return !kept_[static_cast<std::size_t>(column)]; }
  double coefficient(int column) const noexcept { return coefficients_[static_cast<std::size_t>(column)]; }
  double sse() const noexcept { return sse_; }
  // The residual standard deviation, sqrt(sse / df); NaN without degrees of freedom.
  double sigma() const noexcept;
  // The standard error of a kept column's coefficient.
  double standard_error(int column) const;

  // x'b and x'(X'X)^-1 x for a row of p regressor values (aliased columns ignored).
  double predict(const double* row) const;
  double leverage(const double* row) const;

 private:
  int n_, rank_ = 0;
  std::vector<bool> kept_;
  std::vector<int> order_;    // the kept columns, in order
  std::vector<double> r_;     // rank x rank upper triangle, row major
  std::vector<double> rinv_;  // its inverse
  std::vector<double> coefficients_;
  double sse_ = 0;
};

// P(|T| > sqrt(t2)) for Student's t with df degrees of freedom, negative when it
// fails: the module's zpgt2, so that the host's limits and the services' tests use
// one t distribution.
using TwoSidedT = double (*)(double t2, int df);
// The t with P(T <= t) = p, for 0 < p < 1 and df >= 1.
double t_quantile(double p, int df, TwoSidedT two_sided);

}  // namespace fmsd::app

#endif
