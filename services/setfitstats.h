// The statistics of fit of a model, as the forecasting application reads them from
// a host list.
#ifndef FMSD_SERVICES_SETFITSTATS_H
#define FMSD_SERVICES_SETFITSTATS_H

#include "fmsd/fitstats.h"
#include "fmsd/hostabi.h"

namespace fmsd {

// Appends "DFE" and the sublists "NAMES" (labels) and "VALUES" to list.  Returns
// -1 when the list is 0 or the frame cannot be built; otherwise the sum of the
// statuses of the per-statistic insertions, so non-zero means an item is missing.
int setfitstats(fmsd_word registry, const fitstats* fs, fmsd_word list) noexcept;

}  // namespace fmsd

#endif
