// The model output service: merges a fitted model's input data and its forecasts
// on one calendar, turns predictions, limits and errors back to the original scale,
// writes one output row per time point of the fit range and the forecast horizon,
// and returns the statistics of fit over the evaluation range.
#include <cstdint>
#include <cstring>

#include "fmsd/fitstats.h"
#include "fmsd/lists.h"
#include "fmsd/module.h"
#include "fmsd/transform.h"
#include "module/hostops.h"
#include "services/dataset.h"
#include "services/ranges.h"
#include "services/setfitstats.h"
#include "services/varlist.h"
#include "util/numeric.h"

namespace fmsd {
namespace {

constexpr int kArguments = 6;
constexpr int kResultPosition = kArguments + 1;

constexpr int kSuccess = 0;
constexpr int kDataSetFailure = -996;
constexpr int kBadArguments = -998;
constexpr int kNoMemory = -999;

// Normal quadrature for the mean and median of a back-transformed forecast:
// 100 nodes on each side at a tenth of a standard deviation apart.
constexpr int kNodes = 100;
constexpr int kNodesPerSd = 10;

constexpr int kClearOption = 128;
constexpr int kRewindCode = 70;
constexpr int kOutputVectorFlags = 32;
constexpr int kReadMode = 1;
constexpr int kWriteMode = 4;

// The special variables whose values the main loop computes, in the order of
// their type codes.
constexpr int kComputed[] = {kActual, kPredict, kUpper, kLower, kError, kStd, kNError, kResidual, kResStd, kNResid};

struct Parameters {
  zintrec interval{};
  void* ranges = nullptr;
  void* varlist = nullptr;
  int16_t nparms = 0;
  int16_t purearma = 0;
  char align[2] = {'B', 0};
  bool adjust_only = false;
};

struct Work {
  int entries_capacity = 0;
  double* actual = nullptr;     // evaluation range
  double* predicted = nullptr;  // evaluation range
  int evaluated = 0;
  VariableEntry* entries = nullptr;
  RoleTable roles{};
  double* row = nullptr;  // one slot per variable, then the forecast data set's time ID
  double* weights = nullptr;
};

struct Vectors {
  fmsd_word input = 0;
  fmsd_word forecast = 0;
  fmsd_word output = 0;
};

// Where the two inputs lie on the index scale of the data range.
struct Placement {
  double first_time = 0;  // time ID of the first input row used
  int input_first = 0;
  int input_last = 0;
  int forecast_first = 0;
  int forecast_last = 0;
};

fmsd_word handle(const DataSetRecord& r) { return r.access[FMSD_ACCESS_HANDLE]; }

fmsd_word registry_of(void* context) {
  const auto* call = static_cast<const fmsd_word*>(context);
  return reinterpret_cast<const fmsd_word*>(call[FMSD_CONTEXT_SESSION])[FMSD_SESSION_LISTS];
}

fmsd_word* handle_words(fmsd_word* access) { return reinterpret_cast<fmsd_word*>(access[FMSD_ACCESS_HANDLE]); }

fmsd_request_fn* request_function(fmsd_word* handle, int slot) {
  return reinterpret_cast<fmsd_request_fn* const*>(handle[FMSD_HANDLE_FUNCTIONS])[slot];
}

// Moves an input on by one row through the data set's own read function: 0, or the
// status to report (the end of the data included).
int read_row(fmsd_word* access) {
  fmsd_word* h = handle_words(access);
  if (h == nullptr) return FMSD_STATUS_END;
  access[FMSD_ACCESS_REQUEST] = FMSD_REQUEST_READ_NEXT;
  access[FMSD_ACCESS_FLAGS] |= FMSD_ACCESS_COUNTED;
  const int result = request_function(h, FMSD_HANDLE_READ_SLOT)(access);
  h[FMSD_HANDLE_RESULT] = result;
  const bool counted = (access[FMSD_ACCESS_FLAGS] & FMSD_ACCESS_COUNTED) != 0;
  if (result != 0) return counted ? xofprc(access, result, kReadMode) : result;
  if (counted) ++h[FMSD_HANDLE_ROWS];
  h[FMSD_HANDLE_BUFFER] = access[FMSD_ACCESS_BUFFER];
  return 0;
}

// Writes the output row that xyvput has just filled: 0, or the status to report.
int write_row(fmsd_word* access) {
  fmsd_word* h = handle_words(access);
  const fmsd_word from = access[FMSD_ACCESS_BUFFER];
  const fmsd_word to = h[FMSD_HANDLE_BUFFER];
  if (from != 0 && to != 0 && from != to)
    std::memmove(reinterpret_cast<void*>(to), reinterpret_cast<const void*>(from),
                 static_cast<std::size_t>(h[FMSD_HANDLE_BUFFER_BYTES]));
  const int result = request_function(h, FMSD_HANDLE_WRITE_SLOT)(access);
  h[FMSD_HANDLE_RESULT] = result;
  return result == 0 ? 0 : xofprc(access, result, kWriteMode);
}

// Opens an input.  A host that cannot tell the row count without reading (a CSV
// file) leaves it negative: the rows are counted and the data set starts again.
bool open_input(DataSetRecord& r, int mode) {
  const int status = opends(mode, &r);
  if (status == 0) return true;
  if (status != -4 || r.nobs >= 0 || handle(r) == 0) return false;
  r.nobs = getdsnobs(r.access);
  return r.nobs >= 1 && xoreopn(handle(r), 1) >= 0;
}

// A named sublist of a list as its list object; null when absent or unusable.
void* sublist(fmsd_word registry, fmsd_word list, const char* name, int length) {
  fmsd_word id = 0;
  if (slgnl(list, name, length, 1, 1, &id, nullptr) != 0 || id == 0) return nullptr;
  return slistp(id, registry);
}

int list_count(const void* list) { return static_cast<int>(static_cast<const fmsd_word*>(list)[FMSD_LIST_COUNT]); }

// Compared over the text's own length, at most seven characters, so "ADJ" also
// names an adjustment-only model; an empty text names none.
bool adjustment_only(const char* text, int length) {
  constexpr char kAdjOnly[] = "ADJONLY";
  if (text == nullptr || length < 1) return false;
  return std::memcmp(text, kAdjOnly, static_cast<std::size_t>(min(length, 7))) == 0;
}

int read_parameters(fmsd_word registry, fmsd_word list, Parameters& p) {
  void* info = sublist(registry, list, "INTERVALINFO", 12);
  if (info == nullptr || zkvlint(info, &p.interval, nullptr) != 0) return kBadArguments;
  p.ranges = sublist(registry, list, "TIME_RANGES", 11);
  p.varlist = sublist(registry, list, "VARLIST", 7);
  if (p.varlist == nullptr) return kBadArguments;

  const int16_t zero = 0;
  slgns(list, "NPARMS", 6, 1, 1, &p.nparms, &zero);
  slgns(list, "PUREARMA", 8, 1, 1, &p.purearma, &zero);
  if (p.purearma < 0) p.purearma = 0;
  const char* text = nullptr;
  int length = 0;
  if (slgnc(list, "ALIGN", 5, 1, 1, &text, &length, nullptr, 0) == 0 && text != nullptr && length > 0)
    p.align[0] = text[0];
  if (slgnc(list, "MODELTYPE", 9, 1, 1, &text, &length, nullptr, 0) == 0)
    p.adjust_only = adjustment_only(text, length);
  return kSuccess;
}

template <class T>
T* take(fmsd_word count, int flags = FMSD_POOL_ORDINARY) {
  return static_cast<T*>(pool_alloc(count * static_cast<fmsd_word>(sizeof(T)), flags));
}

// The service's blocks stay with the host, which owns the pool.
int allocate(int entries, int evaluation, Work& w) {
  const fmsd_word n = entries;
  w.entries_capacity = entries;
  w.actual = take<double>(evaluation);
  w.predicted = take<double>(evaluation);
  w.entries = take<VariableEntry>(n, FMSD_POOL_ORDINARY | FMSD_POOL_ZERO);
  // The unclassified group can take one index more than there are entries.
  bool groups = true;
  for (RoleGroup& g : w.roles.group) {
    g.index = take<int16_t>(n + 1);
    groups = groups && g.index != nullptr;
  }
  w.row = take<double>(n + 1);
  w.weights = take<double>(kNodes + 1);
  if (xmemdef() != 0 || !groups || w.actual == nullptr || w.predicted == nullptr || w.entries == nullptr ||
      w.row == nullptr || w.weights == nullptr)
    return kNoMemory;
  return kSuccess;
}

// What the service reads must be in the list: the time ID, the actual series, the
// forecast and its limits, and the forecast's standard error on its own scale.
bool has_what_is_read(const RoleTable& roles, const VariableEntry* entries) {
  const int16_t* u = roles.unique;
  if (u[kTimeId] < 0 || u[kActual] < 0 || u[kPredict] < 0 || u[kUpper] < 0 || u[kLower] < 0) return false;
  if (entries[u[kPredict]].transform == ZTST_NONE) return u[kStd] >= 0;
  return u[kResidual] >= 0 && u[kResStd] >= 0;
}

int build_variables(fmsd_word registry, const Parameters& p, Work& w) {
  w.roles.list = {w.entries_capacity, w.entries};
  if (getvarlist(registry, &p.interval, p.align[0], p.varlist, &w.roles.list) <= 0) return kBadArguments;
  if (getunique(&w.roles, 0) != 0) return kBadArguments;
  if (!has_what_is_read(w.roles, w.entries)) return kBadArguments;
  return kSuccess;
}

// A host failure on a data set goes to the host log before the service gives up.
int failed(int status) {
  xprrlog(0, status);
  return kDataSetFailure;
}

// The number and host descriptor of a numeric variable; 0, or a negative host
// status, or 1 for a variable that is not numeric.
int find_numeric(fmsd_word dataset, const char* name, int length, int* number, const fmsd_vardesc** descriptor) {
  const int found = xvfind(dataset, name, length, number, 0);
  if (found < 0) return found;
  void* d = nullptr;
  const int described = xvname(dataset, *number, &d);
  if (described != 0) return described;
  *descriptor = static_cast<const fmsd_vardesc*>(d);
  return (*descriptor)->type == 1 ? 0 : 1;
}

// Finds every variable in the data set its role names; an input variable that is
// not in the input data set is looked for among the forecasts.  The time ID must
// come from the input, and also be in the forecast data set.
int locate(const DataSetRecord& in, const DataSetRecord& fc, Work& w, int* forecast_time) {
  VariableList& list = w.roles.list;
  for (int i = 0; i < list.count; ++i) {
    VariableEntry& v = list.entries[i];
    v.slot = &w.row[i];
    v.input = nullptr;
    int number = 0;
    const fmsd_vardesc* d = nullptr;
    int status = 0;
    if (v.role == kRoleInput) {
      status = find_numeric(handle(in), v.input_name, v.input_name_length, &number, &d);
      if (status < 0) v.role = kRoleForecast;
    }
    if (v.role == kRoleForecast) status = find_numeric(handle(fc), v.input_name, v.input_name_length, &number, &d);
    if (v.role != kRoleInput && v.role != kRoleForecast) continue;
    if (status < 0) return failed(status);
    if (status != 0) return kDataSetFailure;
    v.input_number = static_cast<short>(number);
    v.input = d;
  }
  const VariableEntry& time = list.entries[w.roles.unique[kTimeId]];
  if (time.role != kRoleInput) return kDataSetFailure;
  const fmsd_vardesc* d = nullptr;
  const int status = find_numeric(handle(fc), time.input_name, time.input_name_length, forecast_time, &d);
  if (status < 0) return failed(status);
  return status == 0 ? kSuccess : kDataSetFailure;
}

int bind(const DataSetRecord& in, const DataSetRecord& fc, const DataSetRecord& out, Work& w, int forecast_time,
         Vectors& v) {
  const VariableList& list = w.roles.list;
  int inputs = 0;
  int forecasts = 1;  // the forecast data set's time ID
  for (int i = 0; i < list.count; ++i) {
    inputs += list.entries[i].role == kRoleInput;
    forecasts += list.entries[i].role == kRoleForecast;
  }
  int status = xvgeti(handle(in), inputs, &v.input);
  if (status == 0) status = xvgeti(handle(fc), forecasts, &v.forecast);
  if (status == 0) status = xvputi(handle(out), list.count, kOutputVectorFlags, &v.output);
  if (status != 0) return failed(status);

  for (int i = 0; i < list.count; ++i) {
    VariableEntry& e = list.entries[i];
    if (e.role == kRoleInput || e.role == kRoleForecast) {
      status = xvgetd(e.role == kRoleInput ? v.input : v.forecast, e.input_number, 0, e.slot, 8, 8, 0, 0);
      if (status < 0) return failed(status);
    }
    fmsd_vardesc descriptor;
    getnamestr(&e, &descriptor);
    status = xvputd(v.output, &descriptor, 0, e.slot, 8, 0, 0);
    if (status < 0) return failed(status);
  }
  status = xvgetd(v.forecast, forecast_time, 0, &w.row[list.count], 8, 8, 0, 0);
  if (status == 0) status = xvsele(handle(in));
  if (status == 0) status = xvsele(handle(fc));
  if (status == 0) status = xvgete(v.input);
  if (status == 0) status = xvgete(v.forecast);
  if (status == 0) status = xvpute(v.output);
  return status == 0 ? kSuccess : failed(status);
}

// An index on the data range's scale, truncated toward zero; false when the
// calendar cannot place the time ID.
bool index_of(const zintrec* interval, double data_start, double t, int* out) {
  const double k = zintck2(interval, data_start, t);
  if (wzmis(k) || !(k > -2147483648.0 && k < 2147483648.0)) return false;
  *out = static_cast<int>(k);
  return true;
}

int clamp(std::int64_t k) {
  return static_cast<int>(k < INT32_MIN ? INT32_MIN : (k > INT32_MAX ? INT32_MAX : k));
}

// Places both inputs on the data range's index scale.  The forecast data set's
// first row is read for its time ID and read again by the main loop; input rows
// before the data range (or without a time ID) are skipped, and the first one
// kept stays in the row buffer.
int position(DataSetRecord& in, DataSetRecord& fc, const Parameters& p, const TimeRange& data, const Vectors& v,
             Work& w, Placement& at) {
  const int n = w.roles.list.count;
  const double miss = missing();
  vzfdl(miss, w.row, n + 1);
  int status = read_row(fc.access);
  if (status != 0) return failed(status);
  xyvget(v.forecast, 0);
  const double forecast_start = w.row[n];
  status = xbyrwnd(handle(fc), kRewindCode);
  if (status != 0) return failed(status);
  vzfdl(miss, w.row, n + 1);

  const double* time = w.entries[w.roles.unique[kTimeId]].slot;
  int skipped = 0;
  for (; skipped < in.nobs; ++skipped) {
    status = read_row(in.access);
    if (status != 0) return failed(status);
    xyvget(v.input, 0);
    if (!wzmis(*time) && *time >= data.start) break;
  }
  if (skipped >= in.nobs) return kDataSetFailure;

  at.first_time = *time;
  if (!index_of(&p.interval, data.start, at.first_time, &at.input_first) ||
      !index_of(&p.interval, data.start, forecast_start, &at.forecast_first))
    return kDataSetFailure;
  at.input_last = clamp(static_cast<std::int64_t>(at.input_first) + (in.nobs - skipped) - 1);
  at.forecast_last = clamp(static_cast<std::int64_t>(at.forecast_first) + fc.nobs - 1);
  return kSuccess;
}

double slot_value(const Work& w, int type) {
  const int16_t i = w.roles.unique[type];
  return i >= 0 ? *w.entries[i].slot : missing();
}

// The values the main loop derives at one time point.
struct Point {
  double a, p, u, l, e, sigma, ne, r, q, nr;

  double of(int type) const {
    switch (type) {
      case kActual: return a;
      case kPredict: return p;
      case kUpper: return u;
      case kLower: return l;
      case kError: return e;
      case kStd: return sigma;
      case kNError: return ne;
      case kResidual: return r;
      case kResStd: return q;
      default: return nr;
    }
  }
};

double inverse(double y, const VariableEntry& v) {
  double out = y;
  ztsti(y, v.transform, v.transform_parameter, &out);
  return out;
}

double total_adjustment(const Work& w) {
  const RoleGroup& g = w.roles.group[kAdjustments];
  double sum = 0;
  for (int k = 0; k < g.count; ++k) {
    const double x = *w.entries[g.index[k]].slot;
    if (!wzmis(x)) sum += x;
  }
  return sum;
}

void add_present(double* x, double amount) {
  if (!wzmis(*x)) *x += amount;
}

// Walks the output indexes; false when an output row could not be written.
bool run(DataSetRecord& in, DataSetRecord& fc, DataSetRecord& out, const Parameters& p, const TimeRange& fit,
         const TimeRange& evaluate, int output_first, int output_last, const Vectors& v, Work& w,
         const Placement& at) {
  const double miss = missing();
  const int n = w.roles.list.count;
  const VariableEntry& forecast = w.entries[w.roles.unique[kPredict]];
  const int type = forecast.transform;
  const int option = forecast.transform_option;
  double* time = w.entries[w.roles.unique[kTimeId]].slot;

  // Forecast rows before the first input row kept have no output row.
  for (int t = at.forecast_first; t < at.input_first && t <= at.forecast_last; ++t) {
    const int status = read_row(fc.access);
    if (status != 0) {
      xprrlog(0, status);
      return true;
    }
  }

  bool blanking = false;
  std::int64_t blank_until = 0;
  for (std::int64_t t = at.input_first; t <= output_last; ++t) {
    int status = 0;
    if (t > at.input_first && t <= at.input_last) {
      status = read_row(in.access);
      if (status == 0) xyvget(v.input, 0);
    }
    if (status == 0 && t >= at.forecast_first && t <= at.forecast_last) {
      status = read_row(fc.access);
      if (status == 0) xyvget(v.forecast, 0);
    }
    if (status != 0) {
      xprrlog(0, status);
      return true;
    }
    if (t < output_first) {
      vzfdl(miss, w.row, n + 1);
      continue;
    }

    *time = zintnx3(&p.interval, at.first_time, static_cast<double>(t - at.input_first), p.align);
    Point x{};
    x.a = slot_value(w, kActual);
    x.p = slot_value(w, kPredict);
    x.u = slot_value(w, kUpper);
    x.l = slot_value(w, kLower);
    x.r = x.q = x.nr = miss;
    if (type == ZTST_NONE) {
      x.sigma = slot_value(w, kStd);
    } else {
      x.r = slot_value(w, kResidual);
      x.q = slot_value(w, kResStd);
      x.sigma = x.q;
    }

    // A pure ARMA model's first predictions are start-up values, not forecasts.
    if (!blanking && !wzmis(x.a)) {
      blanking = true;
      blank_until = t + p.purearma;
    }
    if (blanking && t < blank_until) x.p = x.u = x.l = miss;

    if (type != ZTST_NONE && t >= fit.first && t <= fit.last) {
      x.nr = divide(x.r, x.q);
    } else {
      x.r = x.q = miss;
    }

    if (type != ZTST_NONE) {
      const double theta = forecast.transform_parameter;
      if (option == ZTST_MEDIAN) {
        if (ztstm(x.p, x.sigma, type, theta, kNodes, kNodesPerSd, w.weights, &x.p, &x.sigma) != 0) x.sigma = miss;
      } else if (option == ZTST_MEAN && !wzmis(x.sigma)) {
        ztste(x.p, x.sigma, type, theta, kNodes, kNodesPerSd, w.weights, &x.p, &x.sigma);
      } else {
        x.p = inverse(x.p, forecast);
      }
      x.u = inverse(x.u, forecast);
      x.l = inverse(x.l, forecast);
      x.a = inverse(x.a, forecast);
    }

    if (!p.adjust_only) {
      const double adjustment = total_adjustment(w);
      add_present(&x.a, adjustment);
      add_present(&x.p, adjustment);
      add_present(&x.u, adjustment);
      add_present(&x.l, adjustment);
    }

    x.e = !wzmis(x.a) && !wzmis(x.p) ? x.a - x.p : miss;
    x.ne = divide(x.e, x.sigma);

    if (t >= evaluate.first && t <= evaluate.last && w.evaluated < evaluate.nobs) {
      w.actual[w.evaluated] = x.a;
      w.predicted[w.evaluated] = x.p;
      ++w.evaluated;
    }

    for (const int role : kComputed) {
      const int16_t i = w.roles.unique[role];
      if (i >= 0) *w.entries[i].slot = x.of(role);
    }
    // Regressors were transformed with the model data; they go out on their own scale.
    for (int i = 0; i < n; ++i) {
      VariableEntry& e = w.entries[i];
      if (e.type >= kRegressor && e.transform != ZTST_NONE && !wzmis(*e.slot)) *e.slot = inverse(*e.slot, e);
    }

    xyvput(v.output, 0);
    if (write_row(out.access) != 0) return false;
    vzfdl(miss, w.row, n + 1);
  }
  return true;
}

struct Call {
  void* context;
  DataSetRecord in{};
  DataSetRecord forecast{};
  DataSetRecord out{};

  int finish(int result) {
    closeds(handle(in), handle(forecast), handle(out));
    posretd(context, kResultPosition, result, 0);
    return 0;
  }
};

void take_name(DataSetRecord& r, const fmsd_textarg& name) {
  r.name = name.text;
  r.length = name.length;
}

}  // namespace
}  // namespace fmsd

extern "C" FMSD_API int modout(void* context, void* arguments) {
  using namespace fmsd;
  Call call{context};
  fmsd_word unused = 0;
  fmsd_word parameters = 0;
  fmsd_word results = 0;
  fmsd_textarg names[3] = {};
  if (posargs(context, arguments, kArguments, kArguments, FMSD_ARG_WORD, &unused, FMSD_ARG_WORD, &parameters,
              FMSD_ARG_TEXT, &names[0], FMSD_ARG_TEXT, &names[1], FMSD_ARG_TEXT, &names[2], FMSD_ARG_WORD, &results,
              FMSD_ARG_INTEGER, static_cast<void*>(nullptr), static_cast<void*>(nullptr)) != 0)
    return call.finish(kBadArguments);
  if (parameters == 0 || names[0].length < 1 || names[1].length < 1 || names[2].length < 1)
    return call.finish(kBadArguments);
  const fmsd_word registry = registry_of(context);
  if (results != 0 && slclear(results, kClearOption, registry, 0) != 0) return call.finish(kBadArguments);

  take_name(call.in, names[0]);
  take_name(call.forecast, names[1]);
  take_name(call.out, names[2]);
  if (!open_input(call.in, FMSD_OPEN_INPUT) || !open_input(call.forecast, FMSD_OPEN_SECOND_INPUT) ||
      opends(FMSD_OPEN_OUTPUT, &call.out) != 0)
    return call.finish(kDataSetFailure);

  Parameters p;
  int status = read_parameters(registry, parameters, p);
  if (status != kSuccess) return call.finish(status);
  TimeRange data{}, fit{}, evaluate{}, forecast{};
  const int nobs = clamp(static_cast<std::int64_t>(call.in.nobs) + call.forecast.nobs);
  status = gettimes(registry, p.ranges, nobs, &p.interval, &data, &fit, &evaluate, &forecast);
  if (status != 0) return call.finish(status);

  Work w;
  status = allocate(list_count(p.varlist), evaluate.nobs, w);
  if (status == kSuccess) status = build_variables(registry, p, w);
  int forecast_time = 0;
  if (status == kSuccess) status = locate(call.in, call.forecast, w, &forecast_time);
  Vectors v;
  if (status == kSuccess) status = bind(call.in, call.forecast, call.out, w, forecast_time, v);
  if (status != kSuccess) return call.finish(status);

  const int option = w.entries[w.roles.unique[kPredict]].transform_option;
  if (option == ZTST_MEAN || option == ZTST_MEDIAN) ztstniw(kNodes, kNodesPerSd, w.weights);

  Placement at;
  status = position(call.in, call.forecast, p, data, v, w, at);
  if (status != kSuccess) return call.finish(status);
  const std::int64_t extension = static_cast<std::int64_t>(forecast.last) - data.last;
  const int output_last = clamp(static_cast<std::int64_t>(data.last) + (extension > 0 ? extension : 0));
  if (!run(call.in, call.forecast, call.out, p, fit, evaluate, fit.first, output_last, v, w, at))
    return call.finish(kDataSetFailure);

  xvgett(v.input);
  xvgett(v.forecast);
  xvputt(v.output);
  if (results != 0) {
    fitstats fs;
    ztssfit(missing(), w.actual, w.predicted, w.evaluated, p.nparms, &fs);
    setfitstats(registry, &fs, results);
  }
  return call.finish(kSuccess);
}
