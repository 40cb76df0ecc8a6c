// x raised to y without ever producing an infinity or a NaN: every overflow is seen
// coming from the logarithm of the result and reported by status instead.
#include <cmath>
#include <cstdint>

#include "fmsd/transform.h"
#include "util/numeric.h"

namespace {

constexpr double kExpLimit = 709.78271289339;      // exp of anything above overflows
constexpr double kUnderflow = -708.3964185;        // exp of anything below is 0
constexpr double kHugeExponent = 1.3407807929943e154;
// Powers below 2^104 come out of repeated squaring without a spurious overflow on
// the way, and as exactly as the products allow.
constexpr double kSmallPower = 72.0873067782343;
// The logarithm of the result is inflated by a few units in the last place so that a
// result just below the overflow limit is not pushed over it by rounding.
constexpr double kLogSlack = 1.0000000000000007;

double binary_power(double base, std::uint64_t e) {
  double r = 1;
  for (;;) {
    if (e & 1) r *= base;
    e >>= 1;
    if (e == 0) return r;
    base *= base;
  }
}

double fail(int* status, int code) {
  *status = code;
  return fmsd::missing();
}

}  // namespace

extern "C" FMSD_API double zpower(double x, double y, int* status) {
  int ignored;
  if (status == nullptr) status = &ignored;
  *status = 0;
  if (std::isnan(x) || std::isnan(y)) return fail(status, -1);

  if (x == 0) return y > 0 ? 0.0 : fail(status, ZPOWER_ZERO_BASE);
  if (y == 1) return x;
  if (y == 0) return 1;

  bool negate = false;
  if (x < 0) {
    if (!(std::fabs(y) < 2147483647.0) || y != std::trunc(y)) return fail(status, ZPOWER_NEGATIVE_BASE);
    negate = static_cast<std::int32_t>(y) % 2 != 0;
  }
  const double ax = std::fabs(x);
  if (ax == 1) return negate ? -1.0 : 1.0;

  if (std::fabs(y) >= kHugeExponent) return (ax > 1) == (y > 0) ? fail(status, ZPOWER_OVERFLOW) : 0.0;

  const double lnr = y * std::log(ax) * kLogSlack;
  if (lnr >= kExpLimit) return fail(status, ZPOWER_OVERFLOW);
  if (lnr <= kUnderflow) return 0;

  double r;
  const bool int32_exponent = std::fabs(y) < 2147483648.0 && y == std::trunc(y);
  if (int32_exponent && std::fabs(lnr) < kSmallPower) {
    r = binary_power(ax, static_cast<std::uint64_t>(std::fabs(y)));
    if (y < 0) r = 1 / r;
  } else if (std::fabs(y) < 9223372036854775808.0 && y == std::trunc(y)) {
    r = binary_power(y < 0 ? 1 / ax : ax, static_cast<std::uint64_t>(std::fabs(y)));
  } else {
    r = std::pow(ax, y);
  }
  if (!std::isfinite(r)) return fail(status, ZPOWER_OVERFLOW);
  return negate ? -r : r;
}
