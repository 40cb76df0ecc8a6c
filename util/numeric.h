// Helpers the whole numeric library shares: the missing value, safe division,
// minimum and maximum, array filling, blank-padded texts and packed indexing.
#ifndef FMSD_UTIL_NUMERIC_H
#define FMSD_UTIL_NUMERIC_H

#include <cstdint>
#include <cstring>

#include "module/hostops.h"

namespace fmsd {

// A double is missing when its top 16 bits are all ones, whatever the low 48 bits hold.
inline int wzmis(double x) noexcept {
  std::uint64_t bits;
  std::memcpy(&bits, &x, sizeof bits);
  return (bits >> 48) == 0xFFFFu ? 1 : 0;
}

inline int min(int a, int b) noexcept { return a < b ? a : b; }
inline int lmin(int a, int b) noexcept { return a < b ? a : b; }
inline int max(int a, int b) noexcept { return a > b ? a : b; }
inline int lmax(int a, int b) noexcept { return a > b ? a : b; }

// With a NaN on either side the comparison fails and b is returned.
inline double fmin(double a, double b) noexcept { return a <= b ? a : b; }
inline double fmax(double a, double b) noexcept { return a >= b ? a : b; }

// floor without a library call, exact for every double: beyond 2^52 every double is
// integral already, and NaN and the infinities come back as they are.
inline double ffloor(double x) noexcept {
  if (!(x > -4503599627370496.0 && x < 4503599627370496.0)) return x;
  const double t = static_cast<double>(static_cast<std::int64_t>(x));
  return t > x ? t - 1 : t;
}

// Index of element (i, j) of a symmetric matrix stored as the rows of its lower triangle.
inline int zisub(int i, int j) noexcept {
  const int h = i > j ? i : j;
  const int l = i > j ? j : i;
  return h * (h + 1) / 2 + l;
}

// The guard that replaces a quotient too large to represent: just above 2^512,
// so that its square is still finite.
inline constexpr double kDivideBound = 1.3407807929943E154;

// a / b with missing values passed through and overflow replaced by +/-kDivideBound;
// b == 0 gives the bound with the sign of a, and 0 / 0 gives 0.
double divide(double a, double b) noexcept;

// The unit-root tests' division: as divide, but a non-zero number over zero is
// missing and an overflowing quotient takes the host's own bounds.
double divide_unitroot(double a, double b) noexcept;

void vzfdl(double value, double* array, int count) noexcept;
int wzstlen(const char* s) noexcept;
int wzstrip(const char* s, int length) noexcept;
int wzbcup(const void* a, const void* b, int count) noexcept;

}  // namespace fmsd

#endif
