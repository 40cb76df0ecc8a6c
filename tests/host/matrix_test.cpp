// The sweep is checked against products with the original matrix and against the
// orthogonality of least-squares residuals, never against another sweep.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "host/host.h"

namespace fh = fmsd::host;

namespace {

using Full = std::vector<std::vector<double>>;

std::size_t at(int i, int j) {
  if (i < j) std::swap(i, j);
  return static_cast<std::size_t>(i) * (i + 1) / 2 + j;
}

// The packed lower triangle of a, and the diagonal the sweep measures pivots against.
std::vector<double> pack(const Full& a) {
  const int n = static_cast<int>(a.size());
  std::vector<double> m(at(n, 0));
  for (int i = 0; i < n; ++i)
    for (int j = 0; j <= i; ++j) m[at(i, j)] = a[i][j];
  return m;
}
std::vector<double> diagonal(const std::vector<double>& m, int n) {
  std::vector<double> d(n);
  for (int i = 0; i < n; ++i) d[i] = m[at(i, i)];
  return d;
}

// B * B' with B wider than tall, plus a small ridge: positive definite, with a
// condition number that stays moderate.
Full random_spd(int n, std::mt19937_64& rng) {
  std::normal_distribution<double> normal;
  Full b(n, std::vector<double>(n + 3)), a(n, std::vector<double>(n));
  for (auto& row : b)
    for (double& x : row) x = normal(rng);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) a[i][j] = std::inner_product(b[i].begin(), b[i].end(), b[j].begin(), i == j ? 0.01 : 0.0);
  return a;
}

// Largest relative residual of the identities that hold after sweeping the set S
// of a matrix A (U the rest), all checked by product with A:
//   A_SS M_SS = I,   A_SS M_SU = A_SU,   M_UU + A_US M_SU = A_UU.
double sweep_residual(const Full& a, const std::vector<double>& m, const std::string& status) {
  const int n = static_cast<int>(a.size());
  double worst = 0;
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) {
      const bool is = status[i] == '1', js = status[j] == '1';
      if (!is && js) continue;  // the transpose of a block already covered
      double sum = is ? 0.0 : m[at(i, j)], scale = std::fabs(sum);
      for (int l = 0; l < n; ++l)
        if (status[l] == '1') {
          sum += a[i][l] * m[at(l, j)];
          scale += std::fabs(a[i][l] * m[at(l, j)]);
        }
      const double want = is && js ? (i == j ? 1.0 : 0.0) : a[i][j];
      worst = std::max(worst, std::fabs(sum - want) / std::max(scale, 1.0));
    }
  return worst;
}

}  // namespace

TEST(MatrixSweep, RandomSpdInAnyOrderGivesInverseAndConsistentPartialBlocks) {
  std::mt19937_64 rng(20240611);
  for (int n = 1; n <= 12; ++n)
    for (int trial = 0; trial < 4; ++trial) {
      SCOPED_TRACE("order " + std::to_string(n) + " trial " + std::to_string(trial));
      const Full a = random_spd(n, rng);
      std::vector<double> m = pack(a);
      const std::vector<double> d = diagonal(m, n);
      std::string status(n, '0');
      std::vector<int> order(n);
      std::iota(order.begin(), order.end(), 0);
      std::shuffle(order.begin(), order.end(), rng);
      // Stop half-way to check a partly swept matrix, then finish.
      const int half = std::uniform_int_distribution<int>(0, n)(rng);
      for (int s = 0; s < n; ++s) {
        if (s == half) {
          EXPECT_LT(sweep_residual(a, m, status), 1e-9);
        }
        ASSERT_EQ(fh::zsweep(m.data(), order[s], n, status.data(), d.data(), 1e-9), 0);
      }
      EXPECT_EQ(status, std::string(n, '1'));
      EXPECT_LT(sweep_residual(a, m, status), 1e-9);

      const std::vector<double> before = m;
      EXPECT_EQ(fh::zsweep(m.data(), order[0], n, status.data(), d.data(), 1e-9), 1);
      EXPECT_EQ(m, before);
    }
}

TEST(MatrixSweep, RegressionCoefficientsAndResidualSumOfSquares) {
  std::mt19937_64 rng(77);
  std::normal_distribution<double> normal;
  std::uniform_real_distribution<double> uniform(0.2, 3.0);
  for (int p : {1, 3, 6})
    for (bool weighted : {false, true}) {
      SCOPED_TRACE("p " + std::to_string(p) + (weighted ? " weighted" : ""));
      const int k = p + 1, rows = 40;  // intercept and p regressors, then y
      Full x(rows, std::vector<double>(k + 1, 1.0));
      std::vector<double> m(at(k + 1, 0), 0.0), w(rows, 1.0);
      for (int r = 0; r < rows; ++r) {
        x[r][k] = 5.0 + normal(rng) * 0.5;
        for (int c = 1; c < k; ++c) {
          x[r][c] = 3.0 * normal(rng) + c;
          x[r][k] += (c - 2.5) * x[r][c];
        }
        if (weighted) w[r] = uniform(rng);
        ASSERT_EQ(fh::zscp(x[r].data(), k + 1, w[r], m.data()), 1);
      }
      const std::vector<double> d = diagonal(m, k + 1);
      std::string status(k + 1, '0');
      for (int i = 0; i < k; ++i) ASSERT_EQ(fh::zsweep(m.data(), i, k + 1, status.data(), d.data(), 1e-9), 0);
      // Least squares is what leaves residuals orthogonal to every regressor.
      std::vector<double> xe(k, 0.0), scale(k, 0.0);
      double sse = 0;
      for (int r = 0; r < rows; ++r) {
        double e = x[r][k];
        for (int i = 0; i < k; ++i) e -= x[r][i] * m[at(k, i)];
        sse += w[r] * e * e;
        for (int i = 0; i < k; ++i) {
          xe[i] += w[r] * x[r][i] * e;
          scale[i] += std::fabs(w[r] * x[r][i] * x[r][k]);
        }
      }
      for (int i = 0; i < k; ++i) EXPECT_LT(std::fabs(xe[i]), 1e-11 * scale[i]) << i;
      EXPECT_NEAR(m[at(k, k)], sse, 1e-9 * sse);
    }
}

TEST(MatrixSweep, DependentAndZeroColumnsAreRefused) {
  // Integer data keeps the cross products exact, so the dependent column's pivot
  // is rounding noise against its original diagonal.
  std::mt19937_64 rng(5);
  std::uniform_int_distribution<int> digit(-9, 9);
  const int n = 5;
  std::vector<double> m(at(n, 0), 0.0);
  for (int r = 0; r < 30; ++r) {
    double row[n] = {double(digit(rng)), double(digit(rng)), 0, 0, double(digit(rng))};
    row[2] = row[0] - 2 * row[1];
    ASSERT_EQ(fh::zscp(row, n, 1.0, m.data()), 1);
  }
  Full a(n, std::vector<double>(n));
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) a[i][j] = m[at(i, j)];
  const std::vector<double> d = diagonal(m, n);
  std::string status(n, '0');
  for (int pivot = 0; pivot < n; ++pivot) {
    const std::vector<double> before = m;
    const bool refused = pivot == 2 || pivot == 3;
    EXPECT_EQ(fh::zsweep(m.data(), pivot, n, status.data(), d.data(), 1e-8), refused ? 1 : 0) << pivot;
    EXPECT_TRUE(!refused || m == before) << pivot;
  }
  EXPECT_EQ(status, "11001");
  EXPECT_LT(sweep_residual(a, m, status), 1e-9);
}

TEST(MatrixSweep, ToleranceAndArguments) {
  double m[3] = {4.0, 1.0, 0.5};  // [[4, 1], [1, 0.5]]
  char status[3] = "00";
  const double d[2] = {4.0, 0.5};
  // Without a diagonal the tolerance is absolute.
  EXPECT_EQ(fh::zsweep(m, 1, 2, status, nullptr, 0.5), 1);
  EXPECT_EQ(fh::zsweep(m, 1, 2, status, d, 0.999), 0);
  EXPECT_STREQ(status, "01");
  EXPECT_EQ(fh::zsweep(nullptr, 0, 2, status, d, 0.0), -1);
  EXPECT_EQ(fh::zsweep(m, 0, 2, nullptr, d, 0.0), -1);
  for (int pivot : {-1, 2}) EXPECT_EQ(fh::zsweep(m, pivot, 2, status, d, 0.0), -1) << pivot;
  EXPECT_EQ(fh::zsweep(m, 0, 0, status, d, 0.0), -1);

  double nan = std::numeric_limits<double>::quiet_NaN();
  char one[2] = "0";
  EXPECT_EQ(fh::zsweep(&nan, 0, 1, one, nullptr, 0.0), 1);
  EXPECT_STREQ(one, "0");
}

TEST(MatrixKernels, CrossProductsRejectMissingRowsAndInnerProduct) {
  const std::vector<double> scaled = {2, 4, 8, 6, 12, 18};
  double m[6] = {};
  const double row[3] = {1.0, 2.0, 3.0}, y[3] = {4.0, -5.0, 6.0};
  ASSERT_EQ(fh::zscp(row, 3, 2.0, m), 1);
  EXPECT_EQ(std::vector<double>(m, m + 6), scaled);
  // A rejected row leaves no trace, wherever its missing value sits.
  for (double bad : {fh::missing_value(), std::numeric_limits<double>::quiet_NaN()}) {
    const double rows[2][3] = {{bad, 1.0, 1.0}, {1.0, 1.0, bad}};
    for (const auto& r : rows) EXPECT_EQ(fh::zscp(r, 3, 1.0, m), 0);
  }
  EXPECT_EQ(fh::zscp(row, 0, 1.0, m) + fh::zscp(nullptr, 3, 1.0, m) + fh::zscp(row, 3, 1.0, nullptr), 0);
  EXPECT_EQ(std::vector<double>(m, m + 6), scaled);
  EXPECT_EQ(fh::zinner(row, y, 3), 12.0);
  EXPECT_EQ(fh::zinner(nullptr, nullptr, -1), 0.0);
}
