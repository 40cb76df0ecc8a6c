// The sweep is checked against products with the original matrix and against the
// orthogonality of least-squares residuals, never against another sweep.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
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

std::vector<double> pack(const Full& a) {
  const int n = static_cast<int>(a.size());
  std::vector<double> m(at(n - 1, n - 1) + 1);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j <= i; ++j) m[at(i, j)] = a[i][j];
  return m;
}

std::vector<double> diagonal(const Full& a) {
  std::vector<double> d;
  for (std::size_t i = 0; i < a.size(); ++i) d.push_back(a[i][i]);
  return d;
}

// B * B' with B wider than tall, plus a small ridge: positive definite, with a
// condition number that stays moderate.
Full random_spd(int n, std::mt19937_64& rng) {
  std::normal_distribution<double> normal;
  Full b(n, std::vector<double>(n + 3));
  for (auto& row : b)
    for (double& x : row) x = normal(rng);
  Full a(n, std::vector<double>(n));
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) {
      for (int l = 0; l < n + 3; ++l) a[i][j] += b[i][l] * b[j][l];
      if (i == j) a[i][j] += 0.01;
    }
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
      const std::vector<double> d = diagonal(a);
      std::string status(n, '0');
      std::vector<int> order(n);
      for (int i = 0; i < n; ++i) order[i] = i;
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
      const int k = p + 1, order = k + 1, rows = 40;  // intercept, p regressors, y
      std::vector<double> m(at(order - 1, order - 1) + 1, 0.0);
      Full x(rows, std::vector<double>(k, 1.0));
      std::vector<double> y(rows), w(rows, 1.0);
      for (int r = 0; r < rows; ++r) {
        y[r] = 5.0 + normal(rng) * 0.5;
        for (int c = 1; c < k; ++c) {
          x[r][c] = 3.0 * normal(rng) + c;
          y[r] += (c - 2.5) * x[r][c];
        }
        if (weighted) w[r] = uniform(rng);
        std::vector<double> row = x[r];
        row.push_back(y[r]);
        ASSERT_EQ(fh::zscp(row.data(), order, w[r], m.data()), 1);
      }

      std::vector<double> d(order);
      for (int i = 0; i < order; ++i) d[i] = m[at(i, i)];
      std::string status(order, '0');
      for (int i = 0; i < k; ++i)
        ASSERT_EQ(fh::zsweep(m.data(), i, order, status.data(), d.data(), 1e-9), 0);
      // Least squares is what leaves residuals orthogonal to every regressor.
      std::vector<double> e(rows), xe(k, 0.0), scale(k, 0.0);
      double sse = 0;
      for (int r = 0; r < rows; ++r) {
        e[r] = y[r];
        for (int i = 0; i < k; ++i) e[r] -= x[r][i] * m[at(k, i)];
        sse += w[r] * e[r] * e[r];
        for (int i = 0; i < k; ++i) {
          xe[i] += w[r] * x[r][i] * e[r];
          scale[i] += std::fabs(w[r] * x[r][i] * y[r]);
        }
      }
      for (int i = 0; i < k; ++i) EXPECT_LT(std::fabs(xe[i]), 1e-11 * scale[i]) << i;
      EXPECT_NEAR(m[at(k, k)], sse, 1e-9 * sse);
      EXPECT_EQ(status[k], '0');
    }
}

TEST(MatrixSweep, DependentAndZeroColumnsAreRefused) {
  // Integer data keeps the cross products exact, so the dependent column's pivot
  // is rounding noise against its original diagonal.
  std::mt19937_64 rng(5);
  std::uniform_int_distribution<int> digit(-9, 9);
  const int n = 5;
  std::vector<double> m(at(n - 1, n - 1) + 1, 0.0);
  for (int r = 0; r < 30; ++r) {
    double row[n] = {double(digit(rng)), double(digit(rng)), 0, 0, double(digit(rng))};
    row[2] = row[0] - 2 * row[1];
    ASSERT_EQ(fh::zscp(row, n, 1.0, m.data()), 1);
  }
  Full a(n, std::vector<double>(n));
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) a[i][j] = m[at(i, j)];
  const std::vector<double> d = diagonal(a);
  std::string status(n, '0');

  for (int pivot = 0; pivot < n; ++pivot) {
    SCOPED_TRACE(pivot);
    const std::vector<double> before = m;
    const std::string status_before = status;
    const int got = fh::zsweep(m.data(), pivot, n, status.data(), d.data(), 1e-8);
    if (pivot == 2 || pivot == 3) {
      EXPECT_EQ(got, 1);
      EXPECT_EQ(m, before);
      EXPECT_EQ(status, status_before);
    } else {
      EXPECT_EQ(got, 0);
    }
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
  EXPECT_EQ(fh::zsweep(m, 1, 2, status, d, 0.0), 1);  // already swept
  EXPECT_STREQ(status, "01");

  EXPECT_EQ(fh::zsweep(nullptr, 0, 2, status, d, 0.0), -1);
  EXPECT_EQ(fh::zsweep(m, 0, 2, nullptr, d, 0.0), -1);
  EXPECT_EQ(fh::zsweep(m, 0, 0, status, d, 0.0), -1);
  EXPECT_EQ(fh::zsweep(m, -1, 2, status, d, 0.0), -1);
  EXPECT_EQ(fh::zsweep(m, 2, 2, status, d, 0.0), -1);

  double nan = std::numeric_limits<double>::quiet_NaN();
  char one[2] = "0";
  EXPECT_EQ(fh::zsweep(&nan, 0, 1, one, nullptr, 0.0), 1);
  EXPECT_STREQ(one, "0");
}

TEST(MatrixKernels, CrossProductsRejectMissingRowsAndInnerProduct) {
  double m[6] = {};
  const double row[3] = {1.0, 2.0, 3.0};
  ASSERT_EQ(fh::zscp(row, 3, 2.0, m), 1);
  EXPECT_EQ(std::vector<double>(m, m + 6), (std::vector<double>{2, 4, 8, 6, 12, 18}));

  for (double bad : {std::bit_cast<double>(std::uint64_t{0xFFFF000000000000}),
                     std::bit_cast<double>(std::uint64_t{0xFFFF123456789ABC}),
                     std::numeric_limits<double>::quiet_NaN()}) {
    const double rows[2][3] = {{bad, 1.0, 1.0}, {1.0, 1.0, bad}};
    for (const auto& r : rows) {
      EXPECT_EQ(fh::zscp(r, 3, 1.0, m), 0);
      EXPECT_EQ(std::vector<double>(m, m + 6), (std::vector<double>{2, 4, 8, 6, 12, 18}));
    }
  }
  EXPECT_EQ(fh::zscp(row, 0, 1.0, m), 0);
  EXPECT_EQ(fh::zscp(nullptr, 3, 1.0, m), 0);
  EXPECT_EQ(fh::zscp(row, 3, 1.0, nullptr), 0);

  const double y[3] = {4.0, -5.0, 6.0};
  EXPECT_EQ(fh::zinner(row, y, 3), 12.0);
  EXPECT_EQ(fh::zinner(row, y, 0), 0.0);
  EXPECT_EQ(fh::zinner(nullptr, nullptr, -1), 0.0);
}
