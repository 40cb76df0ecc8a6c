// The four time ranges of a forecasting run (data, fit, evaluation, forecast) and
// the routine that settles them from the "TIME_RANGES" list.
#ifndef FMSD_SERVICES_RANGES_H
#define FMSD_SERVICES_RANGES_H

#include <cstddef>

#include "fmsd/hostabi.h"
#include "fmsd/intervals.h"

namespace fmsd {

// One range.  Indexes count intervals from 0 at the data range's first observation.
// The record holds no pointer, so it keeps its 28 bytes: the doubles sit on 4-byte
// boundaries and are only ever read and written as members, never through pointers.
struct __attribute__((packed, aligned(4))) TimeRange {
  double start;  // time ID of the first observation
  double end;    // time ID of the last observation
  int nobs;
  int first;
  int last;
};
static_assert(offsetof(TimeRange, end) == 8 && offsetof(TimeRange, nobs) == 16 &&
              offsetof(TimeRange, first) == 20 && offsetof(TimeRange, last) == 24 && sizeof(TimeRange) == 28);

// Returned when the data, fit or evaluation range holds no observation.
inline constexpr int kRangesEmpty = -997;

// Fills the four ranges from the "TIME_RANGES" list object (null when there is
// none), the input's observation count (-1 when unknown) and the series interval.
// Returns 0 or kRangesEmpty; the ranges settled before an empty one keep their
// values and the later ones are not touched.
int gettimes(fmsd_word registry, void* ranges, int nobs, const zintrec* interval, TimeRange* data,
             TimeRange* fit, TimeRange* evaluate, TimeRange* forecast) noexcept;

}  // namespace fmsd

#endif
