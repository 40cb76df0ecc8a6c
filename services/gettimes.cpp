// Settling the data, fit, evaluation and forecast ranges of a forecasting run.
#include <cstdint>

#include "module/hostops.h"
#include "services/ranges.h"
#include "util/numeric.h"

namespace fmsd {
namespace {

// One sublist of "TIME_RANGES", or null when it is absent or not a list.
void* sublist(fmsd_word registry, void* ranges, const char* name, int length) {
  if (ranges == nullptr) return nullptr;
  fmsd_word id = 0;
  if (slgnl(reinterpret_cast<fmsd_word>(ranges), name, length, 1, 1, &id, nullptr) != 0 || id == 0) return nullptr;
  return slistp(id, registry);
}

// The items of a range sublist; each read leaves the default when the item is absent.
int nobs_item(void* range, int fallback) {
  int value = fallback;
  slgni(reinterpret_cast<fmsd_word>(range), "NOBS", 4, 1, 1, &value, &fallback);
  return value;
}

double date_item(void* range, const char* name, int length, double fallback) {
  double value = fallback;
  slgnd(reinterpret_cast<fmsd_word>(range), name, length, 1, 1, &value, &fallback);
  return value;
}

double align(const zintrec* rec, double t) { return zintnx2(rec, t, 0); }
double advance(const zintrec* rec, double t, double k) { return zintnx2(rec, t, k); }

// Index arithmetic is done wide and brought back into range, so that no count
// read from a list can overflow it.
int clamp(std::int64_t k) {
  return static_cast<int>(k < INT32_MIN ? INT32_MIN : (k > INT32_MAX ? INT32_MAX : k));
}

int last_of(int count) { return clamp(static_cast<std::int64_t>(count) - 1); }

// The index of t on the data range's scale, truncated toward zero.  False when the
// count fails (a missing date) or lies outside what an index can hold.
bool index_of(const zintrec* rec, double data_start, double t, int* out) {
  const double k = zintck2(rec, data_start, t);
  if (wzmis(k) || !(k > -2147483648.0 && k < 2147483648.0)) return false;
  *out = static_cast<int>(k);
  return true;
}

// First, last and count of a bounded range from its dates; false when it is empty.
bool place(const zintrec* rec, double data_start, TimeRange* r) {
  int first = 0;
  int last = 0;
  if (!index_of(rec, data_start, r->start, &first) || !index_of(rec, data_start, r->end, &last)) return false;
  const std::int64_t count = static_cast<std::int64_t>(last) - first + 1;
  if (count <= 0 || count > INT32_MAX) return false;
  r->first = first;
  r->last = last;
  r->nobs = static_cast<int>(count);
  return true;
}

// The end of a range that may not run past count observations from its start.
double bounded_end(const zintrec* rec, void* range, double start, int count) {
  const double limit = advance(rec, start, static_cast<double>(count) - 1);
  return fmin(date_item(range, "ENDDATE", 7, limit), limit);
}

}  // namespace

int gettimes(fmsd_word registry, void* ranges, int nobs, const zintrec* interval, TimeRange* data,
             TimeRange* fit, TimeRange* evaluate, TimeRange* forecast) noexcept {
  void* data_list = sublist(registry, ranges, "DATA_RANGE", 10);
  void* fit_list = sublist(registry, ranges, "FIT_RANGE", 9);
  void* evaluate_list = sublist(registry, ranges, "EVALUATE_RANGE", 14);
  void* forecast_list = sublist(registry, ranges, "FORCAST_RANGE", 13);

  const double origin = align(interval, 0);
  if (data_list == nullptr) {
    *data = {origin, advance(interval, origin, static_cast<double>(nobs) - 1), nobs, 0, last_of(nobs)};
  } else {
    int count = nobs_item(data_list, nobs);
    if (nobs > 0) count = min(count, nobs);
    const double start = align(interval, date_item(data_list, "STDATE", 6, origin));
    *data = {start, bounded_end(interval, data_list, start, count), count, 0, last_of(count)};
    if (count <= 0) return kRangesEmpty;
  }

  *fit = *data;
  if (fit_list != nullptr) {
    const int count = min(nobs_item(fit_list, data->nobs), data->nobs);
    fit->start = fmax(align(interval, date_item(fit_list, "STDATE", 6, data->start)), data->start);
    fit->end = bounded_end(interval, fit_list, fit->start, count);
    if (!place(interval, data->start, fit)) return kRangesEmpty;
  }

  const int evaluate_count = clamp(static_cast<std::int64_t>(data->last) - fit->first + 1);
  *evaluate = {fit->start, fit->end, evaluate_count, fit->first, data->last};
  if (evaluate_list != nullptr) {
    const int count = min(nobs_item(evaluate_list, evaluate_count), evaluate_count);
    evaluate->start = fmax(align(interval, date_item(evaluate_list, "STDATE", 6, fit->start)), fit->start);
    evaluate->end = bounded_end(interval, evaluate_list, evaluate->start, count);
    if (!place(interval, data->start, evaluate)) return kRangesEmpty;
  }

  *forecast = {fit->start, data->end, evaluate_count, fit->first, data->last};
  if (forecast_list != nullptr) {
    // A forecast may start anywhere from the fit start to the data end.
    const double wanted = align(interval, date_item(forecast_list, "STDATE", 6, fit->start));
    forecast->start = fmax(fmin(wanted, data->end), fit->start);
    forecast->end = date_item(forecast_list, "ENDDATE", 7, data->end);
    // An end before the start, or one the calendar cannot place, leaves the range empty.
    int first = fit->first;
    index_of(interval, data->start, forecast->start, &first);
    int last = first - 1;
    index_of(interval, data->start, forecast->end, &last);
    const std::int64_t count = static_cast<std::int64_t>(last) - first + 1;
    forecast->first = first;
    forecast->last = last;
    forecast->nobs = count < 0 ? 0 : clamp(count);
  }
  return 0;
}

}  // namespace fmsd
