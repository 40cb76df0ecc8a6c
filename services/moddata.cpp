// The model data service: the data set a forecasting model is fitted on.  It
// keeps the span of the input that the time ranges ask for, regenerates regular
// time IDs, adjusts and transforms the actual series, transforms the regressors,
// computes trend-curve, intervention and seasonal-dummy regressors, and runs on
// past the data for as many points as the forecast range reaches beyond it.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "fmsd/lists.h"
#include "fmsd/transform.h"
#include "module/hostops.h"
#include "services/dataset.h"
#include "services/ranges.h"
#include "services/varlist.h"
#include "util/numeric.h"

namespace fmsd {
namespace {

constexpr int kResultPosition = 5;

enum Result { kSuccess = 0, kDataSetFailed = -996, kRangesFailed = -997, kBadArguments = -998, kNoMemory = -999 };
// Binding an input variable failed: the call ends at once with result 0 and
// writes nothing.
constexpr int kEndQuietly = 1;

constexpr int kZeroed = FMSD_POOL_ORDINARY | FMSD_POOL_ZERO;
constexpr int kOutputVectorFlags = 32;
constexpr int kWriteStatusMode = 4;

fmsd_word handle_of(const DataSetRecord& r) { return r.access[FMSD_ACCESS_HANDLE]; }

fmsd_request_fn* request_function(fmsd_word* handle, int slot) {
  return reinterpret_cast<fmsd_request_fn* const*>(handle[FMSD_HANDLE_FUNCTIONS])[slot];
}

// Reads the next observation through the data set's own read request; 0, or the
// status to report (end of data included).
int readobs(fmsd_word* access) {
  auto* handle = reinterpret_cast<fmsd_word*>(access[FMSD_ACCESS_HANDLE]);
  if (handle == nullptr) return FMSD_STATUS_END;
  access[FMSD_ACCESS_REQUEST] = FMSD_REQUEST_READ_NEXT;
  access[FMSD_ACCESS_FLAGS] |= FMSD_ACCESS_COUNTED;
  const int result = request_function(handle, FMSD_HANDLE_READ_SLOT)(access);
  handle[FMSD_HANDLE_RESULT] = result;
  const bool counted = (access[FMSD_ACCESS_FLAGS] & FMSD_ACCESS_COUNTED) != 0;
  if (result != 0) return counted ? xofprc(access, result, 1) : result;
  if (counted) ++handle[FMSD_HANDLE_ROWS];
  handle[FMSD_HANDLE_BUFFER] = access[FMSD_ACCESS_BUFFER];
  return 0;
}

// Writes the current observation through the data set's own write request.
int writeobs(fmsd_word* access) {
  auto* handle = reinterpret_cast<fmsd_word*>(access[FMSD_ACCESS_HANDLE]);
  if (handle == nullptr) return FMSD_STATUS_WRITE_FAILED;
  auto* from = reinterpret_cast<void*>(access[FMSD_ACCESS_BUFFER]);
  auto* to = reinterpret_cast<void*>(handle[FMSD_HANDLE_BUFFER]);
  if (from != nullptr && to != nullptr && from != to)
    std::memcpy(to, from, static_cast<std::size_t>(handle[FMSD_HANDLE_BUFFER_BYTES]));
  const int result = request_function(handle, FMSD_HANDLE_WRITE_SLOT)(access);
  return result == 0 ? 0 : xofprc(access, result, kWriteStatusMode);
}

// A named sublist of the parameter list as its list object; null when absent.
void* sublist(fmsd_word registry, fmsd_word list, const char* name, int length) {
  fmsd_word id = 0;
  if (slgnl(list, name, length, 1, 1, &id, nullptr) != 0 || id == 0) return nullptr;
  return slistp(id, registry);
}

bool leads(const char* text, int length, const char* word, int width) {
  return std::memcmp(text, word, static_cast<std::size_t>(min(length, width))) == 0;
}

// The trend time's value for each kind of trend curve.
double trend(int kind, double t) {
  switch (kind) {
    case kQuad: return t * t;
    case kCube: return t * t * t;
    case kLog:
    case kPow: return std::log(t);
    case kHyp:
    case kErt: return 1 / t;
    default: return t;
  }
}

// The value of an intervention at time ID t, counted in intervals from its date.
double intervention(const zintrec* interval, const VariableEntry& e, double t) {
  if (wzmis(e.date) || wzmis(t) || t < e.date) return 0;
  switch (e.kind) {
    case kRamp: return zintck2(interval, e.date, t);
    case kStep: return 1;
    default: return t == e.date ? 1 : 0;
  }
}

class ModelData {
 public:
  ModelData(void* context, void* arguments) : context_(context), arguments_(arguments) {}

  int run();
  void close() { closeds(handle_of(input_), handle_of(output_), 0); }

 private:
  int open();
  int parameters();
  int allocate();
  int roles();
  int bind();
  int first_observation();
  void generate();
  void compute(double t, int season);

  double& value(int type) { return row_[table_.unique[type]]; }
  VariableEntry& member(int group, int k) { return entries_[table_.group[group].index[k]]; }
  void clear_row() { vzfdl(missing(), row_, nvars_ + 1); }

  void* context_;
  void* arguments_;
  fmsd_word registry_ = 0;
  fmsd_word parameters_ = 0;
  DataSetRecord input_{};
  DataSetRecord output_{};
  zintrec interval_{};
  zintinfo info_{};
  TimeRange data_{};
  TimeRange fit_{};
  TimeRange evaluate_{};
  TimeRange forecast_{};
  std::int64_t lead_ = 0;
  void* varlist_ = nullptr;
  char align_[1] = {'B'};
  char adjust_only_ = 0;
  int noint_ = 0;

  int nvars_ = 0;
  VariableEntry* entries_ = nullptr;
  RoleTable table_{};
  double* row_ = nullptr;
  int16_t* seasons_ = nullptr;
  double* dummies_ = nullptr;
  int ndummies_ = 0;
  int16_t nseasons_ = 0;
  double fraction_ = 0;  // share of a 53rd week in the new year, found once

  fmsd_word in_vector_ = 0;
  fmsd_word out_vector_ = 0;
  double t0_ = 0;          // time ID of the first observation kept
  int k0_ = 0;             // its index
  std::int64_t last_ = 0;  // last output index
};

int ModelData::open() {
  fmsd_textarg in{};
  fmsd_textarg out{};
  fmsd_word unused = 0;
  if (posargs(context_, arguments_, 4, 4, FMSD_ARG_WORD, &unused, FMSD_ARG_WORD, &parameters_, FMSD_ARG_TEXT, &in,
              FMSD_ARG_TEXT, &out, FMSD_ARG_INTEGER, nullptr, nullptr) != 0)
    return kBadArguments;
  if (parameters_ == 0 || in.length <= 0 || out.length <= 0) return kBadArguments;
  const fmsd_word session = static_cast<const fmsd_word*>(context_)[FMSD_CONTEXT_SESSION];
  registry_ = reinterpret_cast<const fmsd_word*>(session)[FMSD_SESSION_LISTS];
  input_.name = in.text;
  input_.length = in.length;
  output_.name = out.text;
  output_.length = out.length;

  // A data set that cannot tell its size (a CSV file) is counted and read again;
  // a count that is known and below 1 is a failure.
  const int opened = opends(FMSD_OPEN_INPUT, &input_);
  if (opened != 0 && !(opened == -4 && input_.nobs < 0)) return kDataSetFailed;
  if (input_.nobs < 0) {
    input_.nobs = getdsnobs(input_.access);
    if (input_.nobs > 0 && xoreopn(handle_of(input_), 1) < 0) return kDataSetFailed;
  }
  if (opends(FMSD_OPEN_OUTPUT, &output_) != 0) return kDataSetFailed;
  return kSuccess;
}

int ModelData::parameters() {
  void* interval = sublist(registry_, parameters_, "INTERVALINFO", 12);
  if (interval == nullptr || zkvlint(interval, &interval_, &info_) != 0) return kBadArguments;

  void* ranges = sublist(registry_, parameters_, "TIME_RANGES", 11);
  if (gettimes(registry_, ranges, -1, &interval_, &data_, &fit_, &evaluate_, &forecast_) < 0) return kRangesFailed;
  lead_ = std::max<std::int64_t>(0, static_cast<std::int64_t>(forecast_.last) - data_.last);

  varlist_ = sublist(registry_, parameters_, "VARLIST", 7);
  const char* text = nullptr;
  int length = 0;
  if (slgnc(parameters_, "ALIGN", 5, 1, 1, &text, &length, nullptr, 0) == 0 && text != nullptr && length > 0)
    align_[0] = text[0];
  text = nullptr;
  length = 0;
  if (slgnc(parameters_, "MODELTYPE", 9, 1, 1, &text, &length, nullptr, 0) == 0 && text != nullptr && length > 0)
    adjust_only_ = leads(text, length, "ADJONLY", 7) ? 'Y' : 'N';
  int16_t noint = 0;
  noint_ = slgns(parameters_, "NOINT", 5, 1, 1, &noint, nullptr) == 0 && noint != 0 ? 1 : 0;
  return kSuccess;
}

// Everything comes from the host pool in one batch and stays with the host,
// which owns the pool; one question to the host tells whether all of it came.
int ModelData::allocate() {
  // Role groups hold 16-bit entry indexes, so at most 32767 variables take part.
  const fmsd_word n = varlist_ != nullptr ? static_cast<const fmsd_word*>(varlist_)[FMSD_LIST_COUNT] : 0;
  nvars_ = static_cast<int>(std::min<fmsd_word>(n, INT16_MAX));
  const auto count = static_cast<fmsd_word>(nvars_);
  entries_ = static_cast<VariableEntry*>(pool_alloc(count * static_cast<fmsd_word>(sizeof(VariableEntry)), kZeroed));
  for (RoleGroup& g : table_.group)
    g.index = static_cast<int16_t*>(pool_alloc(count * static_cast<fmsd_word>(sizeof(int16_t)), kZeroed));
  row_ = static_cast<double*>(pool_alloc((count + 1) * static_cast<fmsd_word>(sizeof(double))));
  // One season per output point: the output may run past the input's rows when
  // the data range asks for more observations than the input holds.
  const std::int64_t points = std::max<std::int64_t>(input_.nobs, static_cast<std::int64_t>(data_.last) + 1) + lead_;
  seasons_ = static_cast<int16_t*>(
      pool_alloc(static_cast<fmsd_word>(std::max<std::int64_t>(points, 0)) * static_cast<fmsd_word>(sizeof(int16_t)),
                 kZeroed));
  if (info_.nseasons > 1) {
    ndummies_ = info_.nseasons + noint_ - 1;
    dummies_ = static_cast<double*>(pool_alloc(ndummies_ * static_cast<fmsd_word>(sizeof(double)), kZeroed));
  }
  return xmemdef() != 0 ? kNoMemory : kSuccess;
}

int ModelData::roles() {
  table_.list = {nvars_, entries_};
  if (getvarlist(registry_, &interval_, align_[0], varlist_, &table_.list) <= 0) return kBadArguments;
  return getunique(&table_, 0) < 0 ? kBadArguments : kSuccess;
}

int ModelData::bind() {
  const fmsd_word in = handle_of(input_);
  int wanted = 0;
  for (int i = 0; i < table_.list.count; ++i) {
    VariableEntry& e = entries_[i];
    if (e.role == kRoleGenerate) continue;
    int number = 0;
    int status = xvfind(in, e.input_name, e.input_name_length, &number, 0);
    void* descriptor = nullptr;
    if (status >= 0) status = xvname(in, number, &descriptor);
    if (status != 0 || descriptor == nullptr) {
      xprrlog(0, status);
      return kDataSetFailed;
    }
    if (static_cast<const fmsd_vardesc*>(descriptor)->type != 1) return kDataSetFailed;
    e.input_number = static_cast<short>(number);
    e.input = static_cast<const fmsd_vardesc*>(descriptor);
    ++wanted;
  }

  int status = xvgeti(in, min(wanted, input_.nvars), &in_vector_);
  if (status == 0) status = xvputi(handle_of(output_), table_.list.count, kOutputVectorFlags, &out_vector_);
  if (status != 0) {
    xprrlog(0, status);
    return kDataSetFailed;
  }
  for (int i = 0; i < table_.list.count; ++i) {
    VariableEntry& e = entries_[i];
    e.slot = &row_[i];
    if (e.role == kRoleInput) {
      status = xvgetd(in_vector_, e.input_number, 0, e.slot, 8, 8, 0, 0);
      if (status < 0) {
        xprrlog(0, status);
        return kEndQuietly;
      }
    }
    fmsd_vardesc descriptor;
    getnamestr(&e, &descriptor);
    status = xvputd(out_vector_, &descriptor, 0, e.slot, 8, 0, 0);
    if (status < 0) {
      xprrlog(0, status);
      return kDataSetFailed;
    }
  }
  xvsele(in);
  xvgete(in_vector_);
  status = xvpute(out_vector_);
  if (status != 0) {
    xprrlog(0, status);
    return kDataSetFailed;
  }
  return kSuccess;
}

// Skips the input observations that lie before the data start; the first one at
// or after it is left in the value row.  A time ID that the calendar cannot count
// from the data start is as unusable as none.
int ModelData::first_observation() {
  const double& time_id = value(kTimeId);
  for (int skipped = 0; skipped < input_.nobs; ++skipped) {
    clear_row();
    const int status = readobs(input_.access);
    xprrlog(0, status);
    if (status != 0) break;
    xyvget(in_vector_, 0);
    if (time_id >= data_.start) {
      t0_ = time_id;
      const double k = zintck2(&interval_, data_.start, t0_);
      if (wzmis(k) || !(k >= 0 && k < 2147483648.0)) return kDataSetFailed;
      k0_ = static_cast<int>(k);
      input_.first = k0_;
      input_.last = k0_ + (input_.nobs - skipped) - 1;
      return kSuccess;
    }
  }
  return kDataSetFailed;
}

void ModelData::compute(double t, int season) {
  const double time_id = value(kTimeId);
  const RoleGroup& curves = table_.group[kTrendCurves];
  for (int j = 0; j < curves.count; ++j) row_[curves.index[j]] = trend(member(kTrendCurves, j).kind, t);
  const RoleGroup& events = table_.group[kInterventions];
  for (int j = 0; j < events.count; ++j)
    row_[events.index[j]] = intervention(&interval_, member(kInterventions, j), time_id);
  const RoleGroup& dummies = table_.group[kSeasonalDummies];
  if (dummies.count > 0) {
    zintscy(&interval_, season, time_id, nseasons_, noint_, dummies_, &fraction_);
    const int copied = min(dummies.count, ndummies_);
    for (int j = 0; j < copied; ++j) row_[dummies.index[j]] = dummies_[j];
  }
}

void ModelData::generate() {
  const RoleGroup& adjustments = table_.group[kAdjustments];
  const int adjust = adjust_only_ == 'Y' ? 0 : adjustments.count;
  const VariableEntry& actual = entries_[table_.unique[kActual]];

  // The trend time counts from 1 at the fit start.  Without a curve that needs a
  // positive time, powers are centred by lowering it 51 for each of them.
  double t = max(1, fit_.first - k0_ + 1);
  bool positive = false;
  int powers = 0;
  for (int j = 0; j < table_.group[kTrendCurves].count; ++j) {
    const int kind = member(kTrendCurves, j).kind;
    positive = positive || kind == kLog || kind == kHyp || kind == kPow || kind == kErt;
    if (kind == kQuad || kind == kCube) ++powers;
  }
  if (!positive) t -= 51.0 * powers;

  // The season array has a slot for every point from k0 to the last output index.
  const std::int64_t points = last_ - k0_ + 1;
  nseasons_ = info_.nseasons;
  fraction_ = missing();
  if (table_.group[kSeasonalDummies].count > 0 && points > 0)
    zintscd(&interval_, t0_, info_.nseasons, static_cast<int>(points), seasons_, &nseasons_);

  // The first observation is in the value row already; k0 is never before the
  // data range's first index, so every point from here on is written.
  for (std::int64_t k = k0_; k <= last_; ++k, t += 1) {
    if (k > k0_ && k <= input_.last) {
      const int status = readobs(input_.access);
      if (status != 0) {
        xprrlog(0, status);
        break;
      }
      xyvget(in_vector_, 0);
    }
    value(kTimeId) = zintnx3(&interval_, t0_, static_cast<double>(k - k0_), align_);

    double a = value(kActual);
    if (!wzmis(a) && adjust > 0) {
      double sum = 0;
      for (int j = 0; j < adjust; ++j) {
        const double x = row_[adjustments.index[j]];
        if (!wzmis(x)) sum += x;
      }
      a -= sum;
    }
    if (actual.transform != 0) ztstf(a, actual.transform, actual.transform_parameter, &a);
    value(kActual) = a;

    compute(t, seasons_[k - k0_]);
    for (int i = 0; i < table_.list.count; ++i) {
      const VariableEntry& e = entries_[i];
      if (e.type >= kPredict && e.transform != 0 && !wzmis(row_[i]))
        ztstf(row_[i], e.transform, e.transform_parameter, &row_[i]);
    }
    xyvput(out_vector_, 0);
    // A row that cannot be written means the data set will not be saved; the rows
    // after it would only fail the same way.
    if (writeobs(output_.access) != 0) break;
    clear_row();
  }
}

int ModelData::run() {
  int result = open();
  if (result == kSuccess) result = parameters();
  if (result == kSuccess) result = allocate();
  if (result == kSuccess) result = roles();
  if (result == kSuccess) result = bind();
  if (result == kEndQuietly) return kSuccess;
  if (result == kSuccess) result = first_observation();
  if (result != kSuccess) return result;
  last_ = static_cast<std::int64_t>(data_.last) + lead_;
  generate();
  xvgett(in_vector_);
  xvputt(out_vector_);
  return kSuccess;
}

}  // namespace
}  // namespace fmsd

extern "C" FMSD_API int moddata(void* context, void* arguments) {
  fmsd::ModelData call(context, arguments);
  const int result = call.run();
  call.close();
  posretd(context, fmsd::kResultPosition, result, 0);
  return 0;
}
