// The series transformation service: reads one numeric series and a variable
// carried along with it (in practice the time ID), transforms, differences, takes
// the percent change of, or extracts one classical-decomposition component from the
// series, and writes the carried variable and the treated series to a new data set.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "fmsd/decompose.h"
#include "fmsd/module.h"
#include "fmsd/transform.h"
#include "module/hostops.h"
#include "services/dataset.h"
#include "util/numeric.h"

namespace fmsd {
namespace {

constexpr int kArguments = 7;
constexpr int kResultPosition = kArguments + 1;

constexpr int kSuccess = 0;
constexpr int kAllMissing = 2;
constexpr int kAdditiveInstead = 3;
constexpr int kNotPositive = -899;
constexpr int kRoutineFailed = -900;
constexpr int kDataSetFailure = -996;
constexpr int kBadArguments = -998;
constexpr int kNoMemory = -999;

constexpr int kWorkFlags = FMSD_POOL_ORDINARY | FMSD_POOL_ZERO;
constexpr int kFreeFlags = FMSD_POOL_ORDINARY;
constexpr int kOutputVectorFlags = 32;
constexpr int kReadMode = 1;
constexpr int kWriteMode = 4;

// A multiplicative decomposition needs every value above this; below it the
// ratios of the seasonal step would overflow.
constexpr double kSmallestRatioBase = 1.491668147e-154;
constexpr double kLargest = 1.7976931348623157e308;

enum Decomposition { kNoDecomposition, kMultiplicative, kAdditive };
enum Component { kAdjusted, kTrendCycle, kSeasonal, kIrregular };

struct Options {
  int type = ZTST_NONE;
  bool inverse = false;
  double theta = 0;
  int dif = 0;
  int sdif = 0;
  bool pchange = false;
  int decomposition = kNoDecomposition;
  int component = kAdjusted;
};

// The work arrays, all from the host pool and all given back on every way out.
struct Work {
  double* carried = nullptr;
  double* series = nullptr;
  double* result = nullptr;
  double* trend = nullptr;
  double* second = nullptr;
};

fmsd_word handle(const DataSetRecord& r) { return r.access[FMSD_ACCESS_HANDLE]; }

fmsd_word registry_of(void* context) {
  const auto* call = static_cast<const fmsd_word*>(context);
  return reinterpret_cast<const fmsd_word*>(call[FMSD_CONTEXT_SESSION])[FMSD_SESSION_LISTS];
}

fmsd_request_fn* request_function(fmsd_word* h, int slot) {
  return reinterpret_cast<fmsd_request_fn* const*>(h[FMSD_HANDLE_FUNCTIONS])[slot];
}

// Reads the next observation through the data set's own read request: 0, or the
// status the host was told about (the end of the data included).
int read_row(fmsd_word* access) {
  auto* h = reinterpret_cast<fmsd_word*>(access[FMSD_ACCESS_HANDLE]);
  if (h == nullptr) return FMSD_STATUS_END;
  access[FMSD_ACCESS_REQUEST] = FMSD_REQUEST_READ_NEXT;
  access[FMSD_ACCESS_FLAGS] |= FMSD_ACCESS_COUNTED;
  const int result = request_function(h, FMSD_HANDLE_READ_SLOT)(access);
  h[FMSD_HANDLE_RESULT] = result;
  if (result != 0) return xofprc(access, result, kReadMode);
  if ((access[FMSD_ACCESS_FLAGS] & FMSD_ACCESS_COUNTED) != 0) ++h[FMSD_HANDLE_ROWS];
  h[FMSD_HANDLE_BUFFER] = access[FMSD_ACCESS_BUFFER];
  return 0;
}

// Appends the row that xyvput has just filled: 0, or the status the host was told about.
int write_row(fmsd_word* access) {
  auto* h = reinterpret_cast<fmsd_word*>(access[FMSD_ACCESS_HANDLE]);
  if (h == nullptr) return FMSD_STATUS_WRITE_FAILED;
  const fmsd_word from = access[FMSD_ACCESS_BUFFER];
  const fmsd_word to = h[FMSD_HANDLE_BUFFER];
  if (from != 0 && to != 0 && from != to)
    std::memmove(reinterpret_cast<void*>(to), reinterpret_cast<const void*>(from),
                 static_cast<std::size_t>(h[FMSD_HANDLE_BUFFER_BYTES]));
  const int result = request_function(h, FMSD_HANDLE_WRITE_SLOT)(access);
  h[FMSD_HANDLE_RESULT] = result;
  return result == 0 ? 0 : xofprc(access, result, kWriteMode);
}

// The input may not know its size (a CSV file): it is then counted by reading and
// started again.  An input without observations is unusable.
bool open_input(DataSetRecord& r) {
  int status = opends(FMSD_OPEN_INPUT, &r);
  if (r.nobs < 0) {
    r.nobs = getdsnobs(r.access);
    if (r.nobs >= 1) status = xoreopn(handle(r), 1) >= 0 ? 0 : -2;
  }
  return status == 0;
}

bool leads(const char* text, int length, const char* word, int width) {
  return std::memcmp(text, word, static_cast<std::size_t>(min(length, width))) == 0;
}

int decomposition_of(const char* text, int length) {
  if (text == nullptr || length < 1) return kNoDecomposition;
  if (leads(text, length, "MULTIPLICATIVE", 14)) return kMultiplicative;
  if (leads(text, length, "ADDITIVE", 8)) return kAdditive;
  return kNoDecomposition;
}

// Only a two-character text names a component; anything else is the adjusted series.
int component_of(const char* text, int length) {
  if (text == nullptr || length != 2) return kAdjusted;
  if (std::memcmp(text, "TC", 2) == 0) return kTrendCycle;
  if (std::memcmp(text, "SC", 2) == 0) return kSeasonal;
  if (std::memcmp(text, "IC", 2) == 0) return kIrregular;
  return kAdjusted;
}

// Without an option list nothing is asked for; a list with no items at all asks
// for the percent change alone.
Options read_options(fmsd_word list, const void* object) {
  Options o;
  o.theta = missing();
  if (object == nullptr) return o;
  if (static_cast<const fmsd_word*>(object)[FMSD_LIST_COUNT] == 0) {
    o.pchange = true;
    return o;
  }
  const char* text = nullptr;
  int length = 0;
  if (slgnc(list, "TRNSTYPE", 8, 1, 1, &text, &length, nullptr, 0) == 0 && text != nullptr)
    o.type = ztstnm(text, length);
  text = nullptr;
  if (slgnc(list, "TRNSOPT", 7, 1, 1, &text, &length, nullptr, 0) == 0 && text != nullptr)
    o.inverse = ztstopt(text, length) == ZTST_INVERSE;
  const double no_theta = missing();
  slgnd(list, "TRNSPARM", 8, 1, 1, &o.theta, &no_theta);

  const int16_t zero = 0;
  int16_t value = 0;
  slgns(list, "DIF", 3, 1, 1, &value, &zero);
  o.dif = value;
  slgns(list, "SDIF", 4, 1, 1, &value, &zero);
  o.sdif = value;
  slgns(list, "PCHANGE", 7, 1, 1, &value, &zero);
  o.pchange = value != 0;

  fmsd_word cdlist = 0;
  if (slgnl(list, "CDLIST", 6, 1, 1, &cdlist, nullptr) != 0 || cdlist == 0) return o;
  text = nullptr;
  if (slgnc(cdlist, "CDTYPE", 6, 1, 1, &text, &length, nullptr, 0) == 0)
    o.decomposition = decomposition_of(text, length);
  text = nullptr;
  if (slgnc(cdlist, "CDCOMP", 6, 1, 1, &text, &length, nullptr, 0) == 0) o.component = component_of(text, length);
  return o;
}

double* take(int n) { return static_cast<double*>(pool_alloc(static_cast<fmsd_word>(n) * 8, kWorkFlags)); }

void give_back(double* block) {
  if (block == nullptr) return;
  fmsd_pool* pool = host_pool();
  pool->free(pool, block, 0, kFreeFlags);
}

// A difference or percent change too large for a double is as unknown as a missing value.
double finite_or_missing(double x) { return std::isfinite(x) ? x : missing(); }

// Each pass leaves `lag` more leading values missing, so once the passes cover the
// series nothing is left to change.
void difference(double* y, int n, int lag, int times) {
  const double miss = missing();
  for (std::int64_t pass = 0; pass < times && pass * lag < n; ++pass)
    for (int i = n - 1; i >= 0; --i)
      y[i] = i >= lag && !wzmis(y[i]) && !wzmis(y[i - lag]) ? finite_or_missing(y[i] - y[i - lag]) : miss;
}

// A previous value below 1 in magnitude is a divisor only while the quotient stays
// within the safe-division bound; a zero never is.
void percent_change(double* y, int n) {
  const double miss = missing();
  for (int i = n - 1; i >= 1; --i) {
    const double c = y[i];
    const double p = y[i - 1];
    if (wzmis(c) || wzmis(p) || (std::fabs(p) < 1 && !(std::fabs(c) < std::fabs(p) * kDivideBound)))
      y[i] = miss;
    else
      y[i] = finite_or_missing((c - p) * 100 / p);
  }
  y[0] = miss;
}

int decompose(const Options& o, int n, int s, const Work& w) {
  const bool multiplicative = o.decomposition == kMultiplicative;
  switch (o.component) {
    case kTrendCycle: return ztscdtc(w.series, n, s, multiplicative ? 1 : 0, 0, w.result);
    case kSeasonal:
      return multiplicative ? ztscdms(w.series, n, s, 0, w.trend, w.second, w.result)
                            : ztscdas(w.series, n, s, 0, w.trend, w.second, w.result);
    case kIrregular:
      return multiplicative ? ztscdmi(w.series, n, s, 0, w.trend, w.second, w.result)
                            : ztscdai(w.series, n, s, 0, w.trend, w.second, w.result);
    default:
      return multiplicative ? ztscdma(w.series, n, s, 0, w.trend, w.second, w.result)
                            : ztscdaa(w.series, n, s, 0, w.trend, w.second, w.result);
  }
}

class Call {
 public:
  Call(void* context, void* arguments) : context_(context), arguments_(arguments) {}

  int run();
  // Ends what was begun, closes both data sets and gives every work array back.
  void finish();

 private:
  int read_arguments();
  int allocate();
  int bind();
  void read();
  int treat();
  void write();

  void* context_;
  void* arguments_;
  DataSetRecord in_{};
  DataSetRecord out_{};
  fmsd_textarg series_name_{};
  fmsd_textarg carried_name_{};
  int season_ = 0;
  fmsd_word list_ = 0;
  const void* list_object_ = nullptr;
  Options options_{};
  int n_ = 0;
  Work work_{};
  fmsd_word in_vector_ = 0;
  fmsd_word out_vector_ = 0;
  double carried_value_ = 0;
  double series_value_ = 0;
  double smallest_ = kLargest;
  int notice_ = kSuccess;
};

int Call::read_arguments() {
  fmsd_word unused = 0;
  fmsd_textarg in{};
  fmsd_textarg out{};
  int season = 0;
  char season_missing = 0;
  if (posargs(context_, arguments_, kArguments, kArguments, FMSD_ARG_WORD, &unused, FMSD_ARG_TEXT, &in,
              FMSD_ARG_TEXT, &series_name_, FMSD_ARG_TEXT, &carried_name_, FMSD_ARG_INTEGER, &season,
              &season_missing, FMSD_ARG_WORD, &list_, FMSD_ARG_TEXT, &out, FMSD_ARG_INTEGER,
              static_cast<void*>(nullptr), static_cast<void*>(nullptr)) != 0)
    return kBadArguments;
  if (in.length <= 0 || series_name_.length <= 0 || carried_name_.length <= 0 || out.length <= 0)
    return kBadArguments;
  // A word that names no list is a mistake, unlike no list at all.
  if (list_ != 0) {
    list_object_ = slistp(list_, registry_of(context_));
    if (list_object_ == nullptr) return kBadArguments;
  }
  season_ = season_missing != 0 || season < 0 ? 0 : season;
  in_.name = in.text;
  in_.length = in.length;
  out_.name = out.text;
  out_.length = out.length;
  return kSuccess;
}

int Call::allocate() {
  n_ = in_.nobs;
  work_.carried = take(n_);
  work_.series = take(n_);
  work_.result = take(n_);
  bool taken = work_.carried != nullptr && work_.series != nullptr && work_.result != nullptr;
  if (options_.decomposition != kNoDecomposition) {
    work_.trend = take(n_);
    work_.second = take(n_);
    taken = taken && work_.trend != nullptr && work_.second != nullptr;
  }
  return xmemdef() != 0 || !taken ? kNoMemory : kSuccess;
}

// The output holds the carried variable, then the series, each defined from its
// input descriptor so that names, formats and labels carry over.
int Call::bind() {
  const fmsd_word in = handle(in_);
  const fmsd_textarg* names[] = {&carried_name_, &series_name_};
  int numbers[2] = {};
  void* descriptors[2] = {};
  for (int k : {1, 0}) {
    int status = xvfind(in, names[k]->text, names[k]->length, &numbers[k], 0);
    if (status >= 0) status = xvname(in, numbers[k], &descriptors[k]);
    if (status != 0 || descriptors[k] == nullptr) {
      xprrlog(0, status);
      return kDataSetFailure;
    }
    if (static_cast<const fmsd_vardesc*>(descriptors[k])->type != 1) return kDataSetFailure;
  }

  int status = xvgeti(in, 2, &in_vector_);
  if (status == 0) status = xvputi(handle(out_), 2, kOutputVectorFlags, &out_vector_);
  double* buffers[] = {&carried_value_, &series_value_};
  for (int k = 0; k < 2 && status == 0; ++k) {
    status = xvgetd(in_vector_, numbers[k], 0, buffers[k], 8, 8, 0, 0);
    if (status == 0) status = xvputd(out_vector_, descriptors[k], 0, buffers[k], 8, 0, 0);
  }
  if (status == 0) status = xvsele(in);
  if (status == 0) status = xvgete(in_vector_);
  if (status == 0) status = xvpute(out_vector_);
  if (status != 0) {
    xprrlog(0, status);
    return kDataSetFailure;
  }
  return kSuccess;
}

// An observation that cannot be read is kept as missing rather than as a copy of
// the one before; the host has logged why.
void Call::read() {
  const double miss = missing();
  for (int i = 0; i < n_; ++i) {
    carried_value_ = series_value_ = miss;
    if (read_row(in_.access) == 0) xyvget(in_vector_, 0);
    work_.carried[i] = carried_value_;
    work_.series[i] = series_value_;
    if (!wzmis(series_value_) && series_value_ < smallest_) smallest_ = series_value_;
  }
}

int Call::treat() {
  const Options& o = options_;
  // Only a transformation or a decomposition can fail; a request with neither succeeds.
  int status = 0;
  if (o.type != ZTST_NONE) {
    if (smallest_ <= 0) return kNotPositive;
    status = o.inverse ? ztstiv(work_.series, n_, o.type, o.theta, work_.result)
                       : ztstfv(work_.series, n_, o.type, o.theta, work_.result);
  } else {
    std::memcpy(work_.result, work_.series, static_cast<std::size_t>(n_) * sizeof(double));
  }
  difference(work_.result, n_, 1, o.dif);
  if (season_ > 1) difference(work_.result, n_, season_, o.sdif);
  if (o.pchange) percent_change(work_.result, n_);

  if (o.decomposition != kNoDecomposition) {
    std::memcpy(work_.series, work_.result, static_cast<std::size_t>(n_) * sizeof(double));
    Options d = o;
    if (d.decomposition == kMultiplicative) {
      for (int i = 0; i < n_; ++i)
        if (!wzmis(work_.series[i]) && work_.series[i] < kSmallestRatioBase) {
          d.decomposition = kAdditive;
          notice_ = kAdditiveInstead;
          break;
        }
    }
    status = decompose(d, n_, season_, work_);
  }
  if (status < 0) return kRoutineFailed;

  for (int i = 0; i < n_; ++i)
    if (!wzmis(work_.result[i])) return notice_;
  return kAllMissing;
}

// The host saves no output with a row it could not write, so after the first such
// row the rest would only fail the same way.
void Call::write() {
  for (int i = 0; i < n_; ++i) {
    carried_value_ = work_.carried[i];
    series_value_ = work_.result[i];
    xyvput(out_vector_, 0);
    if (write_row(out_.access) != 0) return;
  }
}

int Call::run() {
  int result = read_arguments();
  if (result != kSuccess) return result;
  if (!open_input(in_) || opends(FMSD_OPEN_OUTPUT, &out_) != 0) return kDataSetFailure;
  options_ = read_options(list_, list_object_);
  result = allocate();
  if (result == kSuccess) result = bind();
  if (result != kSuccess) return result;
  read();
  result = treat();
  if (result < 0) return result;
  write();
  return result;
}

void Call::finish() {
  if (in_vector_ != 0) xvgett(in_vector_);
  if (out_vector_ != 0) xvputt(out_vector_);
  closeds(handle(in_), handle(out_), 0);
  for (double* block : {work_.carried, work_.series, work_.result, work_.trend, work_.second}) give_back(block);
}

}  // namespace
}  // namespace fmsd

extern "C" FMSD_API int mtstran(void* context, void* arguments) {
  fmsd::Call call(context, arguments);
  const int result = call.run();
  call.finish();
  posretd(context, fmsd::kResultPosition, result, 0);
  return 0;
}
