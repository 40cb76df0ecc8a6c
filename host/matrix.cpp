// Kernels on symmetric matrices kept as their packed lower triangle, row by row:
// element (i, j), i >= j, lives at i * (i + 1) / 2 + j.
#include <cmath>
#include <cstddef>

#include "host/host.h"

namespace fmsd::host {

int zscp(const double* row, int order, double weight, double* matrix) noexcept {
  if (row == nullptr || matrix == nullptr || order < 1) return 0;
  // Screen the whole row first so that a rejected observation leaves no trace.
  // The missing value is itself a NaN, so one test covers both.
  for (int i = 0; i < order; ++i)
    if (std::isnan(row[i])) return 0;
  double* m = matrix;
  for (int i = 0; i < order; ++i) {
    const double wi = weight * row[i];
    for (int j = 0; j <= i; ++j) m[j] += wi * row[j];
    m += i + 1;
  }
  return 1;
}

double zinner(const double* x, const double* y, int n) noexcept {
  double sum = 0.0;
  for (int i = 0; i < n; ++i) sum += x[i] * y[i];
  return sum;
}

// The swept block is kept as +inverse (not the textbook -inverse) so that the
// matrix stays symmetric and the packed triangle still describes it; the price is
// that the sign of an update depends on whether both indices are already swept.
int zsweep(double* matrix, int pivot, int order, char* status, const double* diagonal,
           double tolerance) noexcept {
  if (matrix == nullptr || status == nullptr || order < 1 || pivot < 0 || pivot >= order)
    return -1;
  const int k = pivot;
  double* const rowk = matrix + static_cast<std::ptrdiff_t>(k) * (k + 1) / 2;
  const double d = rowk[k];
  const double bound = diagonal != nullptr ? tolerance * std::fabs(diagonal[k]) : tolerance;
  // Written so that a NaN pivot fails the test too.
  if (status[k] == '1' || !(std::fabs(d) > bound)) return 1;

  // Every element off row and column k first, while row/column k still hold the
  // original values the update reads; rowk[j] is M[k][j] for j < k, and M[j][k]
  // for j > k sits k places into row j.
  double* m = matrix;
  for (int i = 0; i < order; ++i, m += i) {
    if (i == k) continue;
    const double t = (i < k ? rowk[i] : m[k]) / d;
    const bool iswept = status[i] == '1';
    const int head = i < k ? i + 1 : k;  // columns taken from row k
    if (iswept) {
      for (int j = 0; j < head; ++j) m[j] += (status[j] == '1' ? t : -t) * rowk[j];
    } else {
      for (int j = 0; j < head; ++j) m[j] -= t * rowk[j];
    }
    // Columns past k (only rows below k have them): M[j][k] walks down column k,
    // by offset from row k so that the walk never forms a pointer past the end.
    std::ptrdiff_t c = 2 * k + 1;  // M[k+1][k]
    for (int j = k + 1; j <= i; c += ++j) {
      const double u = t * rowk[c];
      m[j] += iswept && status[j] == '1' ? u : -u;
    }
  }

  const double r = 1.0 / d;
  for (int j = 0; j < k; ++j) rowk[j] *= status[j] == '1' ? -r : r;
  rowk[k] = r;
  std::ptrdiff_t c = 2 * k + 1;
  for (int i = k + 1; i < order; c += ++i) rowk[c] *= status[i] == '1' ? -r : r;
  status[k] = '1';
  return 0;
}

}  // namespace fmsd::host
