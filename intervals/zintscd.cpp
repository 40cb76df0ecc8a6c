// Season numbers of a run of consecutive observations, and the seasonal dummy
// regressors of one season.
#include <cstring>

#include "fmsd/intervals.h"
#include "util/numeric.h"

namespace {

// A whole-number count, or 0 when the count failed or cannot be an int.
long long whole(double x) {
  if (fmsd::wzmis(x) || !(x > -2147483648.0 && x < 2147483648.0)) return 0;
  return static_cast<long long>(x);
}

int floormod(long long a, int b) {
  const long long r = a % b;
  return static_cast<int>(r < 0 ? r + b : r);
}

int no_seasons(int16_t* seasons, int n) {
  for (int i = 0; i < n; ++i) seasons[i] = 0;
  return 1;
}

// Year and week arithmetic is done in days; datetime IDs count seconds.
double day_length(const zintrec* rec) { return rec->kind == 's' ? 86400.0 : 1.0; }

bool year_cycle(const zintrec* rec, zintrec* year) {
  return zintstr(rec->kind == 's' ? "DTYEAR" : "YEAR", -1, year) == ZINT_OK;
}

// Weeks from the week that holds 4 January of ti's year to ti's week, so that
// the first week counted is the first to lie mostly in the new year.
long long weeks_into_year(const zintrec* rec, const zintrec* year, double ti) {
  const double y = zintnx2(year, ti, 0);
  if (fmsd::wzmis(y)) return 0;
  const double first = zintnx2(rec, y + 3 * day_length(rec), 0);
  return static_cast<int16_t>(whole(zintck2(rec, first, ti)));
}

// The share of the days of t's week that fall in the following year. The week is
// found from t first, so that a time ID aligned to the middle or end of its week
// gives the same share as its first day.
double new_year_share(const zintrec* rec, double t) {
  zintrec year;
  if (!year_cycle(rec, &year)) return fmsd::missing();
  const double next = zintnx2(&year, zintnx2(rec, t, 0), 1);
  if (fmsd::wzmis(next)) return next;
  const double after = zintnx2(rec, next, 1);
  if (fmsd::wzmis(after)) return after;
  return (after - next) / (7.0 * day_length(rec));
}

}  // namespace

extern "C" {

FMSD_API int zintscd(const zintrec* rec, double t0, int week53, int n, int16_t* seasons, int16_t* nseasons) {
  if (rec == nullptr || (n > 0 && seasons == nullptr)) return -1;
  if (n < 0) n = 0;

  // Observation numbers have no calendar to find a cycle in.
  zintrec cycle;
  std::memset(&cycle, 0, sizeof cycle);
  int length = 1;
  int found = 1;
  if (rec->kind != 'o') {
    found = zintsea(rec, t0, &cycle, &length);
    if (found == 2) return -1;
    if (found == 1) length = 1;
  }
  const int wanted = nseasons != nullptr ? *nseasons : -1;
  if (length <= 1 && wanted <= 1) return no_seasons(seasons, n);
  if (wanted < 0) {
    if (nseasons != nullptr) *nseasons = static_cast<int16_t>(length);
  } else {
    length = wanted;
  }
  if (length < 1) return no_seasons(seasons, n);

  if (rec->code == ZINT_WEEK) {
    zintrec year;
    if (!year_cycle(rec, &year)) return -1;
    if (week53 < 0 || week53 > length) week53 = 0;
    int previous = -1;
    for (int i = 0; i < n; ++i) {
      const int season = floormod(weeks_into_year(rec, &year, zintnx2(rec, t0, i)), length);
      // Two weeks in a row with one number: the first is a 53rd week.
      if (season == previous && length > 1) seasons[i - 1] = static_cast<int16_t>(week53);
      seasons[i] = static_cast<int16_t>(season);
      previous = season;
    }
    return 0;
  }

  // Season 0 is the first interval that begins inside the cycle.
  double base = t0;
  if (found == 0) {
    const double start = zintnx2(&cycle, t0, 0);
    base = zintnx2(rec, start, 0);
    if (base < start) base = zintnx2(rec, base, 1);
  }
  int season = floormod(whole(zintck2(rec, base, t0)), length);
  for (int i = 0; i < n; ++i) {
    seasons[i] = static_cast<int16_t>(season);
    if (++season == length) season = 0;
  }
  return 0;
}

FMSD_API void zintscy(const zintrec* rec, int season, double t, int nseasons, int all, double* dummies,
                      double* fraction) {
  all = all != 0;
  const int count = nseasons - 1 + all;
  if (dummies == nullptr || count < 1) return;
  for (int i = 0; i < count; ++i) dummies[i] = 0;

  // A 53rd week is shared between the year's first season and its last, by the
  // days it has in each year; the last season has a dummy only with all.
  if (rec != nullptr && rec->code == ZINT_WEEK && season == nseasons) {
    double own = fmsd::missing();
    double& share = fraction != nullptr ? *fraction : own;
    if (fmsd::wzmis(share)) share = new_year_share(rec, t);
    if (fmsd::wzmis(share)) {
      dummies[0] = share;
      if (all) dummies[nseasons - 1] = share;
      return;
    }
    dummies[0] += share;
    if (all) dummies[nseasons - 1] += 1 - share;
    return;
  }

  if (season < 0) return;
  if (season < nseasons - 1)
    dummies[season] = 1;
  else if (all)
    dummies[nseasons - 1] = 1;
}

}  // extern "C"
