// The series diagnostics service: for one numeric variable the autocovariances,
// the autocorrelation, partial and inverse autocorrelation functions, Ljung-Box
// white-noise probabilities and Dickey-Fuller unit-root and seasonal unit-root
// probabilities per augmenting lag, written one row per lag, with a summary in a
// host list.
#include "services/mtsscov.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "fmsd/autocorr.h"
#include "fmsd/module.h"
#include "fmsd/unitroot.h"
#include "module/hostops.h"
#include "util/numeric.h"

namespace fmsd {
namespace {

constexpr int kArguments = 8;
constexpr int kListPosition = 8;
constexpr int kResultPosition = 9;

enum Result {
  kSuccess = 0,
  kFewerLags = 1,
  kItemFailed = -995,
  kDataSetFailed = -996,
  kNoValue = -997,
  kBadArguments = -998,
  kNoMemory = -999
};

constexpr int kClearOption = 128;
constexpr int kNewListOption = 84;
constexpr int kReadMode = 1;
// A sum of NOBS squares of values below this bound over NOBS stays finite.
constexpr double kValueBound = 1.3407807929943e154;
constexpr double kLevel = 0.05;
constexpr int kNotRun = -99;

struct Spec {
  int method = ETSS_REGRESSION;
  int variant = -1;
  int dlag = 1;
  int maxar = 0;
  int stattype = -1;
};

fmsd_word registry_of(void* context) {
  const auto* call = static_cast<const fmsd_word*>(context);
  return reinterpret_cast<const fmsd_word*>(call[FMSD_CONTEXT_SESSION])[FMSD_SESSION_LISTS];
}

// The value's first min(width, length) characters against the word's: so "P" picks
// "PP" and "ZERO" picks "ZEROMEAN".
bool leads(const char* text, int length, const char* word, int width) {
  const int compared = min(length, width);
  return compared <= 0 || std::memcmp(text, word, static_cast<std::size_t>(compared)) == 0;
}

// A text item's value; false when the item is absent or not a text.
bool text_item(fmsd_word list, const char* name, int name_length, const char** text, int* length) {
  *text = nullptr;
  *length = 0;
  return slgnc(list, name, name_length, 1, 1, text, length, nullptr, 0) == 0 && (*text != nullptr || *length == 0);
}

fmsd_word* handle_words(fmsd_word* access) { return reinterpret_cast<fmsd_word*>(access[FMSD_ACCESS_HANDLE]); }

// Moves the input on by one row through the data set's own read function: 0, or the
// status to report (the end of the data included).
int read_row(fmsd_word* access) {
  fmsd_word* h = handle_words(access);
  if (h == nullptr) return FMSD_STATUS_END;
  access[FMSD_ACCESS_REQUEST] = FMSD_REQUEST_READ_NEXT;
  access[FMSD_ACCESS_FLAGS] |= FMSD_ACCESS_COUNTED;
  const int result = reinterpret_cast<fmsd_request_fn* const*>(h[FMSD_HANDLE_FUNCTIONS])[FMSD_HANDLE_READ_SLOT](access);
  h[FMSD_HANDLE_RESULT] = result;
  const bool counted = (access[FMSD_ACCESS_FLAGS] & FMSD_ACCESS_COUNTED) != 0;
  if (result != 0) return counted ? xofprc(access, result, kReadMode) : result;
  if (counted) ++h[FMSD_HANDLE_ROWS];
  h[FMSD_HANDLE_BUFFER] = access[FMSD_ACCESS_BUFFER];
  return 0;
}

template <class T>
T* take(std::int64_t count, int flags = FMSD_POOL_ORDINARY) {
  return static_cast<T*>(pool_alloc(static_cast<fmsd_word>(count) * static_cast<fmsd_word>(sizeof(T)), flags));
}

template <class T>
void give_back(T*& block) {
  if (block == nullptr) return;
  fmsd_pool* pool = host_pool();
  pool->free(pool, block, 0, FMSD_POOL_ORDINARY);
  block = nullptr;
}

class Diagnostics {
 public:
  Diagnostics(void* context, void* arguments) : context_(context), arguments_(arguments) {}

  int run();
  void finish();
  bool arguments_read() const { return registry_ != 0; }
  fmsd_word list() const { return list_; }

 private:
  int read_arguments();
  int open_input();
  int prepare();
  int read_series();
  void correlations();
  void unit_root_tests();
  double run_tests(const Spec& spec, int d, int last, double* probabilities, int* verdict);
  int results();

  void* context_;
  void* arguments_;
  fmsd_word registry_ = 0;
  DataSetRecord input_{};
  DataSetRecord output_{};
  fmsd_textarg variable_{};
  fmsd_word options_ = 0;
  double given_nobs_ = 0;
  double given_list_ = 0;
  int nlags_ = -1;
  int corrprob_ = 0;
  Spec seasonal_{};
  Spec unitroot_{};

  int nobs_ = 0;
  DiagnosticsArea area_{};
  etss_context tests_{};
  fmsd_word vector_ = 0;
  double value_ = 0;  // the input variable's slot in the value vector

  int nnmss_ = 0;
  int first_ = 0;  // index of the first present value
  int n_ = 0;      // length of the series without its leading and trailing missing values
  double urpval_ = 0;
  int urrec_ = kNotRun;
  double surpval_ = 0;
  int surrec_ = kNotRun;
  fmsd_word list_ = 0;
};

int Diagnostics::read_arguments() {
  fmsd_textarg in{}, out{};
  char nlags_missing = 0;
  int unused = 0;
  char unused_missing = 0;
  if (posargs(context_, arguments_, kArguments, kArguments, FMSD_ARG_TEXT, &in, FMSD_ARG_TEXT, &variable_,
              FMSD_ARG_DOUBLE, &given_nobs_, FMSD_ARG_INTEGER, &nlags_, &nlags_missing, FMSD_ARG_WORD, &options_,
              FMSD_ARG_TEXT, &out, FMSD_ARG_DOUBLE, &given_list_, FMSD_ARG_INTEGER, &unused, &unused_missing,
              FMSD_ARG_INTEGER, static_cast<void*>(nullptr), static_cast<void*>(nullptr)) != 0)
    return kBadArguments;
  registry_ = registry_of(context_);
  if (nlags_missing != 0 || nlags_ < -1) nlags_ = -1;
  // An options word that names no list is no options list.
  if (options_ != 0 && slistp(options_, registry_) == nullptr) options_ = 0;
  if (in.length <= 0 || variable_.length <= 0 || out.length <= 0) return kBadArguments;
  // Without lags and without tests there is nothing to compute.
  if (nlags_ == -1 && options_ == 0) return kBadArguments;
  input_.name = in.text;
  input_.length = in.length;
  output_.name = out.text;
  output_.length = out.length;

  if (options_ == 0) return kSuccess;
  const int zero = 0;
  slgni(options_, "CORRPROB", 8, 1, 1, &corrprob_, &zero);
  // Both specifications are read now: the test context is sized for the larger MAXAR.
  fmsd_word sublist = 0;
  if (slgnl(options_, "SEASONUR", 8, 1, 1, &sublist, nullptr) != 0) sublist = 0;
  geturspec(context_, sublist, &seasonal_.method, &seasonal_.variant, &seasonal_.dlag, &seasonal_.maxar,
            &seasonal_.stattype);
  if (slgnl(options_, "UNITROOT", 8, 1, 1, &sublist, nullptr) != 0) sublist = 0;
  geturspec(context_, sublist, &unitroot_.method, &unitroot_.variant, &unitroot_.dlag, &unitroot_.maxar,
            &unitroot_.stattype);
  return kSuccess;
}

// A host that cannot tell the row count without reading (a CSV file) gets its rows
// counted, and the data set starts again.  A NOBS beyond the rows reads them all.
int Diagnostics::open_input() {
  const int opened = opends(FMSD_OPEN_INPUT, &input_);
  if (opened != 0) {
    const fmsd_word handle = input_.access[FMSD_ACCESS_HANDLE];
    if (opened != -4 || input_.nobs >= 0 || handle == 0) return kDataSetFailed;
    input_.nobs = getdsnobs(input_.access);
    if (xoreopn(handle, 1) < 0) return kDataSetFailed;
  }
  const int count = max(input_.nobs, 0);
  nobs_ = wzmis(given_nobs_) || !(given_nobs_ >= 0) || given_nobs_ >= count ? count : static_cast<int>(given_nobs_);
  return kSuccess;
}

// No reported lag reaches beyond NOBS - 1, nor an augmenting lag beyond the lags
// reported, so the arrays and the test context are sized no larger.
int Diagnostics::prepare() {
  const int lags = min(max(nlags_, 2), max(nobs_ - 1, 2));
  const int maxar = min(max(seasonal_.maxar, unitroot_.maxar), min(max(nlags_, 0), max(nobs_ - 1, 0)));
  if (allocate(1, nobs_, lags, maxar, &area_) != 0) return kNoMemory;
  for (int p = 0; p <= maxar; ++p) area_.lag_orders[p] = p;
  if (etssurm(2, ETSS_REGRESSION, ETSS_TREND, seasonal_.dlag, maxar, 1, area_.lag_orders, kLevel, 1, nobs_,
              &tests_) != 0)
    return kNoMemory;
  return kSuccess;
}

int Diagnostics::read_series() {
  const fmsd_word in = input_.access[FMSD_ACCESS_HANDLE];
  int number = 0;
  void* descriptor = nullptr;
  int status = xvfind(in, variable_.text, variable_.length, &number, 0);
  if (status >= 0) status = xvname(in, number, &descriptor);
  if (status >= 0 && (descriptor == nullptr || static_cast<const fmsd_vardesc*>(descriptor)->type != 1))
    return kDataSetFailed;
  if (status >= 0) status = xvgeti(in, 1, &vector_);
  if (status >= 0) status = xvgetd(vector_, number, 0, &value_, 8, 8, 0, 0);
  if (status >= 0) status = xvsele(in);
  if (status >= 0) status = xvgete(vector_);
  if (status < 0) {
    xprrlog(0, status);
    return kDataSetFailed;
  }

  // A value so large that the sums of squares could overflow is as unusable as a
  // missing one, and so is a NaN or an infinity.
  const double miss = missing();
  const double bound = nobs_ > 0 ? kValueBound / nobs_ : kValueBound;
  for (int i = 0; i < nobs_; ++i) {
    // A series cut short by a read failure would give other correlations.
    status = read_row(input_.access);
    if (status != 0) {
      xprrlog(0, status);
      return kDataSetFailed;
    }
    xyvget(vector_, 0);
    if (wzmis(value_) || !(std::fabs(value_) <= bound)) {
      area_.series[i] = miss;
    } else {
      area_.series[i] = value_;
      ++nnmss_;
    }
  }
  xvgett(vector_);
  xoclose(in, 0);
  input_.access[FMSD_ACCESS_HANDLE] = 0;

  int last = nobs_ - 1;
  while (first_ <= last && wzmis(area_.series[first_])) ++first_;
  while (last >= first_ && wzmis(area_.series[last])) --last;
  n_ = last - first_ + 1;
  if (n_ <= 0) return kNoValue;
  std::memcpy(area_.working, area_.series + first_, static_cast<std::size_t>(n_) * sizeof(double));
  return kSuccess;
}

void Diagnostics::correlations() {
  int lags = min(max(nlags_, 2), max(nobs_ - 1, 2));
  if (nnmss_ <= lags) lags = nnmss_ - 1;
  ztsscor(area_.working, n_, lags, &area_.mean, area_.acov, area_.counts, area_.acf, area_.acf_se);
  while (lags > 0 && area_.counts[lags - 1] <= 0) --lags;
  const int m = min(lags, nlags_);
  area_.nlags = m;

  // On failure the partial and inverse autocorrelations stay missing.
  if (ztsspcr(area_.acf, n_, lags, area_.pacf_work, area_.iacf + 1, area_.work) == 0) {
    for (int k = 0; k <= m; ++k) area_.pacf[k] = area_.pacf_work[k];
    area_.pacf[0] = area_.iacf[0] = 1;
    area_.pacf_se = area_.iacf_se = 1 / std::sqrt(static_cast<double>(nnmss_));
  }
  if (m >= 0) ztsslbw(area_.working, n_, m, area_.wnoise);
}

// Runs the test for augmenting lags 0..last and returns the probability at the last
// one.  The verdict is that of the last test; 0 when it failed, -99 when none ran.
double Diagnostics::run_tests(const Spec& spec, int d, int last, double* probabilities, int* verdict) {
  const double miss = missing();
  tests_.d = d;
  tests_.variant = spec.variant;
  tests_.method = spec.method;
  *verdict = kNotRun;
  // etssdft works out the regression sizes from the variant and p itself.
  for (int p = 0; p <= last; ++p) {
    tests_.p = p;
    tests_.augmented = p > 0 ? 1 : 0;
    if (etssdft(area_.series + first_, n_, &tests_, area_.working) != 0) {
      probabilities[p] = miss;
      *verdict = 0;
      continue;
    }
    const etss_result& r = tests_.result;
    if (spec.stattype == 0)
      probabilities[p] = r.rho_prob;
    else if (spec.stattype == 2 && d == 1)
      probabilities[p] = r.f_dfprob;
    else
      probabilities[p] = r.tau_prob;
    *verdict = r.verdict;
  }
  return last >= 0 ? probabilities[last] : miss;
}

void Diagnostics::unit_root_tests() {
  const int m = area_.nlags;
  surpval_ = missing();
  surrec_ = kNotRun;
  if (seasonal_.dlag >= 2 && seasonal_.dlag <= 12)
    surpval_ = run_tests(seasonal_, seasonal_.dlag, min(seasonal_.maxar, m), area_.seasonur, &surrec_);
  urpval_ = run_tests(unitroot_, 1, min(unitroot_.maxar, m), area_.unitroot, &urrec_);
}

int Diagnostics::results() {
  fmsd_word list = 0;
  bool made = false;
  if (!wzmis(given_list_) && given_list_ >= 1 && given_list_ < 2147483648.0 &&
      given_list_ == ffloor(given_list_)) {
    list = static_cast<fmsd_word>(given_list_);
    if (slclear(list, kClearOption, registry_, 0) != 0) list = 0;
  }
  if (list == 0) {
    if (slnewl(&list, registry_, kNewListOption) != 0 || list == 0) return kNoMemory;
    made = true;
  }
  const bool set = slinsi(list, area_.nlags, -1, "NLAGS", 5) == 0 && slinsd(list, area_.mean, -1, "MEAN", 4) == 0 &&
                   slinsi(list, nnmss_, -1, "NNMSS", 5) == 0 &&
                   slinsd(list, area_.pacf_se, -1, "PACF_STD", 8) == 0 &&
                   slinsd(list, area_.iacf_se, -1, "IACF_STD", 8) == 0 && slinsi(list, n_, -1, "N", 1) == 0 &&
                   slinsd(list, urpval_, -1, "URPVAL", 6) == 0 && slinsi(list, urrec_, -1, "URREC", 5) == 0 &&
                   slinsd(list, surpval_, -1, "SURPVAL", 7) == 0 && slinsi(list, surrec_, -1, "SURREC", 6) == 0;
  if (!set) {
    // A list made here that the caller will not hear of would only be left behind.
    if (made) slfree(list, 0, registry_);
    return kItemFailed;
  }
  list_ = list;
  return kSuccess;
}

int Diagnostics::run() {
  int code = read_arguments();
  if (code == kSuccess) code = open_input();
  if (code == kSuccess) code = prepare();
  if (code == kSuccess) code = read_series();
  if (code != kSuccess) return code;
  correlations();
  unit_root_tests();
  code = results();
  // Without a result list the call has failed; its output would not be kept.
  if (code == kNoMemory) return code;
  if (acovout(&output_, &area_, corrprob_) != 0) code = kDataSetFailed;
  if (area_.nlags < nlags_) code = kFewerLags;
  return code;
}

void Diagnostics::finish() {
  const fmsd_word in = input_.access[FMSD_ACCESS_HANDLE];
  if (in != 0) xoclose(in, 0);
  input_.access[FMSD_ACCESS_HANDLE] = 0;
  etssurm(0, 0, 0, 0, 0, 0, nullptr, 0, 0, 0, &tests_);
  allocate(0, 0, 0, 0, &area_);
}

}  // namespace

int geturspec(void* context, fmsd_word list, int* method, int* variant, int* dlag, int* maxar, int* stattype) noexcept {
  *method = ETSS_REGRESSION;
  *variant = -1;
  *stattype = -1;
  *maxar = 0;
  if (list == 0 || slistp(list, registry_of(context)) == nullptr) {
    *dlag = 1;
    return 0;
  }

  const char* text = nullptr;
  int length = 0;
  if (text_item(list, "METHOD", 6, &text, &length)) {
    if (leads(text, length, "PP", 2))
      *method = ETSS_PHILLIPS_PERRON;
    else if (leads(text, length, "RW", 2))
      *method = ETSS_RANDOM_WALK;
  }
  if (text_item(list, "TYPE", 4, &text, &length)) {
    if (leads(text, length, "ZEROMEAN", 8))
      *variant = ETSS_ZERO_MEAN;
    else if (leads(text, length, "SINGLEMEAN", 10))
      *variant = ETSS_SINGLE_MEAN;
    else if (leads(text, length, "TREND", 5))
      *variant = ETSS_TREND;
  }
  if (text_item(list, "STATTYPE", 8, &text, &length)) {
    if (leads(text, length, "REGRESSION", 10))
      *stattype = 0;
    else if (leads(text, length, "STUDENTIZED", 11))
      *stattype = 1;
    else if (leads(text, length, "FSTAT", 5))
      *stattype = 2;
  }
  const int zero = 0;
  slgni(list, "MAXAR", 5, 1, 1, maxar, &zero);
  if (*maxar < 0) *maxar = 0;

  // The trend regression has no seasonal form.
  if (*variant == ETSS_TREND) {
    *dlag = 1;
    return 0;
  }
  const int one = 1;
  int value = 1;
  const int status = slgni(list, "DLAG", 4, 1, 1, &value, &one);
  if (status == 0 && (value < 1 || value > 12)) return -1;
  *dlag = value;
  return status;
}

int allocate(int mode, int nobs, int maxlag, int maxar, DiagnosticsArea* area) noexcept {
  DiagnosticsArea& a = *area;
  if (mode == 0) {
    for (double** block : {&a.series, &a.working, &a.acov, &a.acf, &a.acf_se, &a.pacf, &a.iacf, &a.wnoise, &a.unitroot,
                           &a.seasonur, &a.pacf_work, &a.work})
      give_back(*block);
    give_back(a.counts);
    give_back(a.lag_orders);
    return 0;
  }
  a = DiagnosticsArea{};
  const double miss = missing();
  a.nlags = -1;
  a.mean = a.pacf_se = a.iacf_se = miss;
  const std::int64_t lags = static_cast<std::int64_t>(maxlag) + 1;
  bool all = true;
  const auto doubles = [&](std::int64_t count) {
    double* block = take<double>(count);
    all = all && block != nullptr;
    if (block != nullptr) vzfdl(miss, block, static_cast<int>(count));
    return block;
  };
  const auto integers = [&](std::int64_t count) {
    int* block = take<int>(count, FMSD_POOL_ORDINARY | FMSD_POOL_ZERO);
    all = all && block != nullptr;
    return block;
  };
  a.series = doubles(nobs);
  a.working = doubles(nobs);
  a.counts = integers(lags);
  for (double** block : {&a.acov, &a.acf, &a.acf_se, &a.pacf, &a.iacf, &a.wnoise, &a.unitroot, &a.seasonur})
    *block = doubles(lags);
  a.lag_orders = integers(static_cast<std::int64_t>(maxar) + 1);
  a.pacf_work = doubles(3 * lags);
  a.work = doubles(3 * lags);
  const int status = xmemdef();
  if (status == 0 && all) return 0;
  allocate(0, 0, 0, 0, area);
  return status != 0 ? status : 1;
}

}  // namespace fmsd

extern "C" FMSD_API int mtsscov(void* context, void* arguments) {
  fmsd::Diagnostics call(context, arguments);
  const int code = call.run();
  call.finish();
  if (call.arguments_read()) posretd(context, fmsd::kListPosition, static_cast<double>(call.list()), 0);
  posretd(context, fmsd::kResultPosition, code, 0);
  return 0;
}
