// Advancing by intervals with the result aligned to the beginning, middle or end
// of the interval reached.
#include <cmath>

#include "fmsd/intervals.h"
#include "util/numeric.h"

extern "C" FMSD_API double zintnx3(const zintrec* rec, double start, double n, const char* align) {
  using namespace fmsd;
  const char how = align != nullptr ? align[0] : '\0';
  if (how == 'E') {
    if (wzmis(n)) return missing();
    // The last time ID of an interval is the one before the next interval begins.
    const double next = zintnx2(rec, start, n + 1);
    return wzmis(next) ? next : next - 1;
  }
  const double b = zintnx2(rec, start, n);
  if (how != 'M' || wzmis(b)) return b;
  const double e = zintnx2(rec, b, 1);
  if (wzmis(e)) return missing();
  return ffloor((b + e - 1) * 0.5);
}
