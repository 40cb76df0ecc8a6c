// The seasonal cycle of an interval: which longer interval the seasons repeat in,
// and how many seasons it holds.
#include <cstring>

#include "fmsd/intervals.h"
#include "util/numeric.h"

namespace {

struct cycle_row {
  uint8_t code;
  const char* name;     // cycle of a date or observation interval
  const char* dtname;   // the same cycle over datetime values
  int length;           // base intervals in one cycle
};

constexpr cycle_row kCycles[] = {
    {ZINT_SECOND, "MINUTE", "DTMINUTE", 60}, {ZINT_MINUTE, "HOUR", "DTHOUR", 60},
    {ZINT_HOUR, "DAY", "DTDAY", 24},         {ZINT_DAY, "WEEK", "DTWEEK", 7},
    {ZINT_WEEKDAY, "WEEK", "DTWEEK", 0},     {ZINT_WEEK, "YEAR", "DTYEAR", 52},
    {ZINT_TENDAY, "YEAR", "DTYEAR", 36},     {ZINT_SEMIMONTH, "YEAR", "DTYEAR", 24},
    {ZINT_MONTH, "YEAR", "DTYEAR", 12},      {ZINT_QTR, "YEAR", "DTYEAR", 4},
    {ZINT_SEMIYEAR, "YEAR", "DTYEAR", 2},
};

const cycle_row* find_cycle(uint8_t code) {
  for (const cycle_row& row : kCycles)
    if (row.code == code) return &row;
  return nullptr;
}

// A whole-number count, or 0 when the count failed or cannot be an int.
long long whole(double x) {
  if (fmsd::wzmis(x) || !(x > -2147483648.0 && x < 2147483648.0)) return 0;
  return static_cast<long long>(x);
}

bool is_boundary(const zintrec* rec, double t) { return zintnx2(rec, t, 0) == t; }

}  // namespace

extern "C" {

FMSD_API int zintsea(const zintrec* rec, double t, zintrec* cycle, int* nseasons) {
  if (cycle != nullptr) std::memset(cycle, 0, sizeof *cycle);
  if (nseasons != nullptr) *nseasons = 0;
  if (rec == nullptr || rec->code == ZINT_NONE || cycle == nullptr || nseasons == nullptr) return 2;
  const cycle_row* row = find_cycle(rec->code);
  if (row == nullptr) return 1;
  if (zintstr(rec->kind == 's' ? row->dtname : row->name, -1, cycle) != ZINT_OK) {
    std::memset(cycle, 0, sizeof *cycle);
    return 1;
  }

  // A working week has as many seasons as working days, whatever the multiplier.
  if (rec->code == ZINT_WEEKDAY) {
    if (rec->nworkdays >= 1 && rec->nworkdays <= 7) {
      *nseasons = rec->nworkdays;
      return 0;
    }
    std::memset(cycle, 0, sizeof *cycle);
    return 1;
  }
  const int mult = rec->mult < 1 ? 1 : rec->mult;
  // A multiplier that divides the cycle evenly fixes the number of seasons.
  if (mult < row->length && row->length % mult == 0) {
    *nseasons = row->length / mult;
    return 0;
  }

  // Any other multiplier has a cycle only when the cycle's boundaries around t
  // are also interval boundaries, as with HOUR24 and MONTH12.
  double y0 = zintnx2(cycle, t, 0);
  if (fmsd::wzmis(y0)) y0 = 0;
  const double y1 = zintnx2(cycle, y0, 1);
  if (!fmsd::wzmis(y1) && is_boundary(rec, y0) && is_boundary(rec, y1)) {
    const long long count = whole(zintck2(rec, y0, y1));
    if (count >= 1 && count <= 100) {
      *nseasons = static_cast<int>(count);
      return 0;
    }
  }
  std::memset(cycle, 0, sizeof *cycle);
  return 1;
}

}  // extern "C"
