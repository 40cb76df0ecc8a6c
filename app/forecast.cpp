#include "app/forecast.h"

#include <dlfcn.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "app/by.h"
#include "app/commands.h"
#include "app/inputs.h"
#include "app/memory_library.h"
#include "app/regression.h"
#include "app/results.h"
#include "app/service_call.h"
#include "fmsd/intervals.h"
#include "fmsd/probability.h"
#include "host/arguments.h"
#include "host/datasets.h"
#include "host/host.h"
#include "host/json.h"
#include "host/lists.h"
#include "host/storage.h"

namespace fmsd::app {

namespace {

// Slots of the registered service table.
constexpr int kModout = 0;
constexpr int kModdata = 1;

// The library that carries the model data and the forecasts between the services.
constexpr char kMemory[] = "_FCMEM";

constexpr long kMaxLead = 100000;

constexpr const char* kTrendKinds[] = {"LINEAR", "QUAD", "CUBE", "EXP", "LOG", "HYP", "POW", "LOGIT", "ERT"};
constexpr const char* kTransforms[] = {"LOG", "SQRT", "LOGIT", "BOXCOX"};

// A failure of one series, reported in one line.
class SeriesError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

std::string upper(std::string s) {
  for (char& c : s)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return s;
}

bool same(const std::string& a, const std::string& b) { return upper(a) == upper(b); }

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::size_t from = 0;
  for (;;) {
    const std::size_t at = text.find(separator, from);
    parts.push_back(text.substr(from, at == std::string::npos ? std::string::npos : at - from));
    if (at == std::string::npos) return parts;
    from = at + 1;
  }
}

std::string number_text(double x) {
  if (std::isnan(x)) return "null";
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.17g", x);
  return buffer;
}

// ---- the command's options ----------------------------------------------------------------

const CommandSpec& spec() {
  static const CommandSpec command{
      "forecast",
      "fit a regression forecasting model to one series and forecast it",
      "Fits a linear regression of one series on a trend, seasonal dummies, interventions\n"
      "and regressors, and forecasts it with limits.  The model data service builds the\n"
      "regressors (after the adjustments are taken off the series and the transformation\n"
      "applied), the least-squares fit runs over the fit range, and the model output\n"
      "service turns the forecasts back to the original scale and computes the statistics\n"
      "of fit over the evaluation range.  The output data set has one row per time point\n"
      "from the fit start to the end of the forecast lead; the result list (JSON) holds\n"
      "the statistics of fit and the estimates.  docs/FORECAST.md describes the model.\n",
      with_by({{"in", "DS", true, "the input data set, one row per time point in time order"},
       {"id", "NAME", true, "the time ID variable"},
       {"var", "NAME", true, "the series to forecast"},
       {"interval", "I", true,
        "the interval of the time IDs: MONTH, QTR, WEEK, DAY, ...\n(DTHOUR and the like for datetimes)"},
       {"out", "DS", true, "the output data set to write"},
       {"align", "A", false, "time IDs at the BEGINNING, MIDDLE or END of their\ninterval (default BEGINNING)"},
       {"lead", "N", false, "forecast N intervals past the data (default one seasonal\ncycle, or 1 without one)"},
       {"fit-start", "T", false, "the first time point of the fit range"},
       {"fit-end", "T", false, "the last time point of the fit range"},
       {"holdout", "N", false, "leave the last N points out of the fit and evaluate on\nthem"},
       {"evaluate-start", "T", false,
        "the first time point of the evaluation range (default\nthe fit start, or the first point held out)"},
       {"evaluate-end", "T", false,
        "the last time point of the evaluation range (default the\nlast point of the data)"},
       {"trend", "K[,K]", false,
        "trend curves: LINEAR (t), QUAD (t^2), CUBE (t^3), EXP (t),\nLOG (ln t), HYP (1/t), POW (ln t), LOGIT (t), ERT "
        "(1/t)"},
       {"seasonal", "S", false, "DUMMIES for a dummy per season, or NONE (default)"},
       {"intercept", "YES|NO", false, "YES (default) or NO; without an intercept every season\ngets a dummy"},
       {"intervention", "K:T[,...]", false,
        "interventions: POINT (1 at T), STEP (1 from T on)\nor RAMP (0, 1, 2, ... intervals from T)"},
       {"regressors", "V[,V]", false, "input variables used as regressors, as they stand"},
       {"adjust", "V[,V]", false,
        "input variables taken off the series before the fit and\nadded back to the forecasts"},
       {"transform", "F[:P]", false,
        "LOG, SQRT, LOGIT or BOXCOX, with its parameter after a\ncolon (LOG:1 for ln(x + 1), BOXCOX:0.5)"},
       {"back", "B", false, "how forecasts are turned back: MEAN (default), MEDIAN\nor INVERSE"},
       {"level", "L", false, "the confidence level of the limits (default 0.95)"},
       {"result", "FILE", false,
        "write the result list (with --by, the array of the groups'\noutcomes) to FILE instead of standard output"}}),
      "times (T): YYYY-MM-DD, YYYY-MM-DDThh:mm[:ss], or a plain time ID number; a start\n"
      "  inside an interval means the whole interval.  Keywords may be written in either\n"
      "  case, and a list is written with commas and no spaces.\n"
      "\noutput variables: the time ID, the series (actual), predict, std, lower, upper,\n"
      "  error, nerror (error / std), for a transformed series also residual, resstd and\n"
      "  nresid on the transformed scale over the fit range, then the regressors and the\n"
      "  adjustment variables.\n"
      "\nresult list: DFE, NAMES and VALUES, the statistics of fit over the evaluation range\n"
      "  on the original scale, and MODEL: NOBS and NMISS (points of the fit range used and\n"
      "  skipped), NPARMS, DF, SSE, RMSE (on the transformed scale), LEVEL, TQUANTILE and\n"
      "  ESTIMATES, one object per regressor with NAME, ESTIMATE, STDERR, TVALUE, PROBT\n"
      "  and ALIASED (1 for a regressor set aside as a combination of the ones before it).\n"
      "\nexample:\n"
      "  fmsd forecast --in air.csv --id date --var passengers --interval month \\\n"
      "      --transform log --trend linear --seasonal dummies --holdout 12 --lead 24 \\\n"
      "      --intervention step:1955-01-01 --out airfc.csv --result airfit.json\n"};
  return command;
}

std::string option_name(const char* name) { return std::string("--") + name; }

TimeValue parse_time(const char* option, const std::string& text) {
  TimeValue t;
  t.text = text;
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, used = 0;
  double second = 0;
  if (std::sscanf(text.c_str(), "%d-%d-%d%n", &year, &month, &day, &used) == 3 && used >= 8 && text[4] == '-') {
    const double days = host::ziddmdy(month, day, year);
    if (host::is_missing(days) || std::isnan(days))
      throw UsageError(option_name(option) + " " + text + ": there is no such day");
    if (static_cast<std::size_t>(used) == text.size()) {
      t.kind = TimeValue::Kind::Date;
      t.value = days;
      return t;
    }
    int more = 0;
    const std::string rest = text.substr(static_cast<std::size_t>(used));
    if ((std::sscanf(rest.c_str(), "T%d:%d:%lf%n", &hour, &minute, &second, &more) == 3 ||
         std::sscanf(rest.c_str(), "T%d:%d%n", &hour, &minute, &more) == 2) &&
        static_cast<std::size_t>(more) == rest.size() && hour >= 0 && hour < 24 && minute >= 0 && minute < 60 &&
        second >= 0 && second < 60) {
      t.kind = TimeValue::Kind::DateTime;
      t.value = days * 86400 + hour * 3600 + minute * 60 + second;
      return t;
    }
  } else {
    char* end = nullptr;
    errno = 0;
    t.value = std::strtod(text.c_str(), &end);
    if (end != text.c_str() && *end == '\0' && errno == 0 && std::isfinite(t.value)) return t;
  }
  throw UsageError(option_name(option) +
                   " wants a date (YYYY-MM-DD), a datetime (YYYY-MM-DDThh:mm:ss) or a "
                   "number, not '" +
                   text + "'");
}

std::string keyword(const OptionValues& values, const char* option, std::initializer_list<const char*> words) {
  const std::string given = upper(values.get(option));
  std::string choices;
  for (const char* w : words) {
    if (given == w) return given;
    choices += choices.empty() ? w : std::string(", ") + w;
  }
  throw UsageError(option_name(option) + " wants one of " + choices + ", not '" + values.get(option) + "'");
}

std::vector<std::string> variables(const OptionValues& values, const char* option) {
  std::vector<std::string> names;
  for (const std::string& name : split(values.get(option), ',')) {
    if (!host::valid_member_name(name))
      throw UsageError(option_name(option) + ": '" + name +
                       "' is not a variable name (a letter or underscore, then letters, digits or underscores, "
                       "at most 32 characters)");
    names.push_back(name);
  }
  return names;
}

// ---- the module's interval routines and t distribution ---------------------------------------

// The host lays out the time ranges with the module's own calendar, so that the
// indexes it fits on are the ones the services count, and takes its t probabilities
// from the module too.
struct Calendar {
  decltype(&zintstr) parse = nullptr;
  decltype(&zintck2) count = nullptr;
  decltype(&zintnx2) advance = nullptr;
  decltype(&zintsea) season = nullptr;
  decltype(&zpgt2) t_two_sided = nullptr;

  explicit Calendar(const host::Module& module) {
    void* handle = ::dlopen(module.path().c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (handle == nullptr) return;
    parse = reinterpret_cast<decltype(parse)>(::dlsym(handle, "zintstr"));
    count = reinterpret_cast<decltype(count)>(::dlsym(handle, "zintck2"));
    advance = reinterpret_cast<decltype(advance)>(::dlsym(handle, "zintnx2"));
    season = reinterpret_cast<decltype(season)>(::dlsym(handle, "zintsea"));
    t_two_sided = reinterpret_cast<decltype(t_two_sided)>(::dlsym(handle, "zpgt2"));
    ::dlclose(handle);  // the module stays loaded: the host holds it
  }
  bool usable() const { return parse && count && advance && season && t_two_sided; }
};

std::string time_text(double t, host::Form form) {
  if (host::is_missing(t) || std::isnan(t)) return "a missing time ID";
  if (form == host::Form::Number) return number_text(t);
  const double days = form == host::Form::Date ? t : std::floor(t / 86400);
  int month = 0, day = 0, year = 0;
  if (host::zidmdyd(&month, &day, &year, days) != 0) return number_text(t);
  char buffer[48];
  if (form == host::Form::Date) {
    std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02d", year, month, day);
  } else {
    const long s = static_cast<long>(t - days * 86400);
    std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02dT%02ld:%02ld:%02ld", year, month, day, s / 3600, s / 60 % 60,
                  s % 60);
  }
  return buffer;
}

// ---- one series ---------------------------------------------------------------------------

struct InputSeries {
  std::vector<host::Column> columns;
  host::Column id;
  std::vector<double> times;
  std::string id_name, var_name;  // as the data set spells them
  std::vector<std::string> regressors, adjustments;
};

InputSeries read_input(host::Host& host, const ForecastModel& model, const std::string& input) {
  const std::size_t dot = input.find('.');
  host::Library* library = host.datasets().library(input.substr(0, dot));
  if (library == nullptr) throw SeriesError("library of " + input + " is not bound");
  std::string error;
  std::unique_ptr<host::Reader> reader = library->open(input.substr(dot + 1), error);
  if (!reader) throw SeriesError("cannot read " + input + ": " + error);
  InputSeries s;
  s.columns = reader->columns();
  auto find = [&](const std::string& name, const char* role) -> std::size_t {
    for (std::size_t i = 0; i < s.columns.size(); ++i) {
      if (!same(s.columns[i].name, name)) continue;
      if (!s.columns[i].numeric) throw SeriesError(std::string(role) + " " + name + " is not numeric in " + input);
      return i;
    }
    throw SeriesError(std::string(role) + " " + name + " is not in " + input);
  };
  const std::size_t id = find(model.id, "the time ID");
  s.id = s.columns[id];
  s.id_name = s.columns[id].name;
  s.var_name = s.columns[find(model.var, "the series")].name;
  for (const std::string& r : model.regressors) s.regressors.push_back(s.columns[find(r, "the regressor")].name);
  for (const std::string& a : model.adjustments) s.adjustments.push_back(s.columns[find(a, "the adjustment")].name);
  std::vector<bool> wanted(s.columns.size(), false);
  wanted[id] = true;
  reader->select(wanted);
  std::vector<host::Cell> cells(s.columns.size());
  while (reader->next(cells.data())) s.times.push_back(cells[id].number);
  if (!reader->error().empty()) throw SeriesError("cannot read " + input + ": " + reader->error());
  if (s.times.empty()) throw SeriesError(input + " has no rows");
  return s;
}

// The indexes of the four ranges, counted from 0 at the first row.
struct Ranges {
  double start = 0;  // the beginning of the first row's interval
  long n = 0, fit_first = 0, fit_last = 0, evaluate_first = 0, evaluate_last = 0, lead = 0;
};

double to_scale(const TimeValue& t, char kind, const char* option) {
  if (t.kind == TimeValue::Kind::Number) return t.value;
  if (kind == 's') return t.kind == TimeValue::Kind::Date ? t.value * 86400 : t.value;
  if (t.kind == TimeValue::Kind::DateTime)
    throw SeriesError(option_name(option) + " " + t.text + ": the series has dates, so give a date");
  return t.value;
}

Ranges settle_ranges(const Calendar& cal, const zintrec& rec, const ForecastModel& model, const InputSeries& s,
                     int nseasons) {
  Ranges r;
  r.n = static_cast<long>(s.times.size());
  r.start = cal.advance(&rec, s.times[0], 0);
  if (host::is_missing(r.start) || std::isnan(r.start))
    throw SeriesError("the first time ID, " + time_text(s.times[0], s.id.form) + ", is not on the calendar of " +
                      model.interval);
  for (long i = 0; i < r.n; ++i) {
    const double t = s.times[static_cast<std::size_t>(i)];
    const double k = cal.count(&rec, r.start, t);
    if (host::is_missing(t) || std::isnan(k) || host::is_missing(k) || std::trunc(k) != static_cast<double>(i))
      throw SeriesError("the time IDs are not one " + model.interval + " apart: row " + std::to_string(i + 1) +
                        " holds " + time_text(t, s.id.form) + " where " +
                        time_text(cal.advance(&rec, r.start, static_cast<double>(i)), s.id.form) + " was expected");
  }
  // The index of the interval that holds a time, or of the first one after it
  // for a start.
  auto index = [&](const TimeValue& t, const char* option, bool start) {
    double v = to_scale(t, rec.kind, option);
    if (start) v = cal.advance(&rec, v, 0);
    const double k = host::is_missing(v) || std::isnan(v) ? v : cal.count(&rec, r.start, v);
    if (host::is_missing(k) || std::isnan(k))
      throw SeriesError(option_name(option) + " " + t.text + " is not on the calendar of " + model.interval);
    return static_cast<long>(std::max(-1e9, std::min(1e9, std::trunc(k))));
  };
  r.fit_first = model.fit_start ? std::max(0L, index(*model.fit_start, "fit-start", true)) : 0;
  r.fit_last = model.fit_end ? std::min(r.n - 1, index(*model.fit_end, "fit-end", false)) : r.n - 1;
  if (model.holdout) r.fit_last = r.n - 1 - *model.holdout;
  if (r.fit_first > r.fit_last)
    throw SeriesError("the fit range holds none of the " + std::to_string(r.n) + " observations");
  r.evaluate_first = model.evaluate_start ? std::max(r.fit_first, index(*model.evaluate_start, "evaluate-start", true))
                                          : (model.holdout ? r.fit_last + 1 : r.fit_first);
  r.evaluate_last = model.evaluate_end ? std::min(r.n - 1, index(*model.evaluate_end, "evaluate-end", false)) : r.n - 1;
  if (r.evaluate_first > r.evaluate_last) throw SeriesError("the evaluation range holds no observation");
  r.lead = model.lead ? *model.lead : std::max(1, nseasons);
  return r;
}

// What the model data set holds besides the time ID and the series: the
// generated regressors and the input variables, each with its label.
struct Regressor {
  std::string name;   // in the model data set
  std::string label;  // in the estimates
  std::string item;   // its VARLIST entry for the model data service
};

std::string entry(const std::string& name, const std::string& old, const char* type, const std::string& more = "") {
  std::string e = "{\"VARNAME\": " + host::json_string(name);
  if (!old.empty()) e += ", \"OLDNAME\": " + host::json_string(old);
  return e + ", \"VARTYPE\": \"" + type + "\"" + more + "}";
}

std::vector<Regressor> regressors(const ForecastModel& model, const InputSeries& s, const zintrec& rec, int nseasons) {
  std::vector<Regressor> list;
  int generated = 0;
  auto name = [&] { return "_FC" + std::to_string(++generated); };
  for (const std::string& kind : model.trends) {
    const std::string n = name();
    list.push_back({n, "TREND " + kind, entry(n, "", "TC", ", \"VARKIND\": \"" + kind + "\", \"FROM\": \"GENERATE\"")});
  }
  if (model.seasonal) {
    const int dummies = nseasons - (model.intercept ? 1 : 0);
    for (int j = 0; j < dummies; ++j) {
      const std::string n = name();
      list.push_back({n, "SEASON " + std::to_string(j + 1), entry(n, "", "SD", ", \"FROM\": \"GENERATE\"")});
    }
  }
  for (const Intervention& i : model.interventions) {
    const std::string n = name();
    const double date = to_scale(i.date, rec.kind, "intervention");
    list.push_back(
        {n, i.kind + " " + i.date.text,
         entry(n, "", "INT",
               ", \"VARKIND\": \"" + i.kind + "\", \"VARDATE\": " + number_text(date) + ", \"FROM\": \"GENERATE\"")});
  }
  for (const std::string& r : s.regressors) list.push_back({r, r, entry(r, r, "REG", ", \"FROM\": \"INPUT\"")});
  return list;
}

std::string ranges_json(const Calendar& cal, const zintrec& rec, const Ranges& r) {
  auto at = [&](long k) { return number_text(cal.advance(&rec, r.start, static_cast<double>(k))); };
  return "{\"DATA_RANGE\": {\"STDATE\": " + number_text(r.start) + ", \"NOBS\": " + std::to_string(r.n) +
         "}, \"FIT_RANGE\": {\"STDATE\": " + at(r.fit_first) + ", \"ENDDATE\": " + at(r.fit_last) +
         "}, \"EVALUATE_RANGE\": {\"STDATE\": " + at(r.evaluate_first) + ", \"ENDDATE\": " + at(r.evaluate_last) +
         "}, \"FORCAST_RANGE\": {\"ENDDATE\": " + at(r.n - 1 + r.lead) + "}}";
}

// A list made from JSON text, freed when it goes out of scope.
class ScopedList {
 public:
  ScopedList(host::ListRegistry& lists, const std::string& json)
      : lists_(lists), list_(&host::json_to_list(lists, json)) {}
  explicit ScopedList(host::ListRegistry& lists) : lists_(lists), list_(&lists.create()) {}
  ~ScopedList() { lists_.free(*list_); }
  ScopedList(const ScopedList&) = delete;
  ScopedList& operator=(const ScopedList&) = delete;
  host::List& get() { return *list_; }

 private:
  host::ListRegistry& lists_;
  host::List* list_;
};

std::string service_failure(const char* service, const std::optional<double>& code, const ServiceCall& call) {
  std::string text = std::string(service);
  if (!code) {
    text += " set no result";
  } else {
    const char* meaning = result_meaning(service, *code);
    text += " failed with result " + code_text(*code) + " (" +
            (meaning != nullptr ? meaning : "a result the service does not define") + ")";
  }
  const std::string detail = call.detail();
  return detail.empty() ? text : text + "; host: " + detail;
}

struct Fitted {
  std::vector<double> predict, std, residual;
  int nobs = 0, nmiss = 0, nparms = 0;
  double tq = 0;  // the t quantile of the limits
  std::string model_json;
};

Fitted fit(const Calendar& cal, const ForecastModel& model, const Table& data, const std::vector<Regressor>& regs,
           const Ranges& r) {
  auto column = [&](const std::string& name) {
    for (std::size_t i = 0; i < data.columns.size(); ++i)
      if (same(data.columns[i].name, name)) return i;
    throw SeriesError("the model data lack " + name);
  };
  const std::size_t rows = data.rows;
  if (rows != static_cast<std::size_t>(r.n + r.lead))
    throw SeriesError("the model data hold " + std::to_string(rows) + " rows, not " + std::to_string(r.n + r.lead));
  const std::size_t y_at = column(model.var);
  std::vector<std::size_t> at;
  for (const Regressor& g : regs) at.push_back(column(g.name));
  const int p = static_cast<int>(regs.size()) + (model.intercept ? 1 : 0);

  // Each row's regressors; NaN marks a row with a missing regressor.
  auto value = [&](std::size_t row, std::size_t col) {
    const double v = data.number(row, col);
    return host::is_missing(v) ? NAN : v;
  };
  std::vector<double> matrix(rows * static_cast<std::size_t>(p));
  std::vector<bool> complete(rows, true);
  for (std::size_t i = 0; i < rows; ++i) {
    double* x = &matrix[i * static_cast<std::size_t>(p)];
    std::size_t j = 0;
    if (model.intercept) x[j++] = 1;
    for (std::size_t c : at) {
      x[j] = value(i, c);
      if (!std::isfinite(x[j])) complete[i] = false;
      ++j;
    }
  }
  std::vector<double> xs, ys;
  Fitted f;
  for (long i = r.fit_first; i <= r.fit_last; ++i) {
    const auto row = static_cast<std::size_t>(i);
    const double y = value(row, y_at);
    if (!complete[row] || !std::isfinite(y)) {
      ++f.nmiss;
      continue;
    }
    xs.insert(xs.end(), matrix.begin() + static_cast<std::ptrdiff_t>(row * static_cast<std::size_t>(p)),
              matrix.begin() + static_cast<std::ptrdiff_t>((row + 1) * static_cast<std::size_t>(p)));
    ys.push_back(y);
  }
  f.nobs = static_cast<int>(ys.size());
  const LeastSquares ls(xs, ys, f.nobs, p);
  if (ls.rank() == 0 || ls.df() < 1)
    throw SeriesError("the fit range has " + std::to_string(f.nobs) + " usable observations for " +
                      std::to_string(ls.rank()) +
                      " estimated parameters; the fit needs more observations than "
                      "parameters");
  const double sigma = ls.sigma();
  const double tq = t_quantile(0.5 + model.level / 2, ls.df(), cal.t_two_sided);
  auto two_sided = [&](double t) {  // the module's tail is negative when it fails
    const double prob = cal.t_two_sided(t * t, ls.df());
    return prob < 0 ? NAN : prob;
  };

  const double missing = host::missing_value();
  f.predict.assign(rows, missing);
  f.std.assign(rows, missing);
  f.residual.assign(rows, missing);
  for (std::size_t i = 0; i < rows; ++i) {
    if (!complete[i]) continue;
    const double* x = &matrix[i * static_cast<std::size_t>(p)];
    f.predict[i] = ls.predict(x);
    f.std[i] = sigma * std::sqrt(1 + ls.leverage(x));
    const double y = value(i, y_at);
    if (static_cast<long>(i) >= r.fit_first && static_cast<long>(i) <= r.fit_last && std::isfinite(y))
      f.residual[i] = y - f.predict[i];
  }

  std::string estimates;
  for (int j = 0; j < p; ++j) {
    const std::string label = model.intercept ? (j == 0 ? "INTERCEPT" : regs[static_cast<std::size_t>(j - 1)].label)
                                              : regs[static_cast<std::size_t>(j)].label;
    std::string item = "{\"NAME\": " + host::json_string(label);
    if (ls.aliased(j)) {
      item += ", \"ESTIMATE\": null, \"STDERR\": null, \"TVALUE\": null, \"PROBT\": null, \"ALIASED\": 1}";
    } else {
      const double b = ls.coefficient(j), se = ls.standard_error(j), t = b / se;
      item += ", \"ESTIMATE\": " + number_text(b) + ", \"STDERR\": " + number_text(se) +
              ", \"TVALUE\": " + number_text(t) +
              ", \"PROBT\": " + number_text(two_sided(t)) + ", \"ALIASED\": 0}";
    }
    estimates += (j ? ", " : "") + item;
  }
  f.model_json = "{\"NOBS\": " + std::to_string(f.nobs) + ", \"NMISS\": " + std::to_string(f.nmiss) +
                 ", \"NPARMS\": " + std::to_string(ls.rank()) + ", \"DF\": " + std::to_string(ls.df()) +
                 ", \"SSE\": " + number_text(ls.sse()) + ", \"RMSE\": " + number_text(sigma) +
                 ", \"LEVEL\": " + number_text(model.level) + ", \"TQUANTILE\": " + number_text(tq) +
                 ", \"ESTIMATES\": [" + estimates + "]}";
  f.nparms = ls.rank();
  f.tq = tq;
  return f;
}

}  // namespace

const CommandSpec& forecast_spec() { return spec(); }

ForecastModel forecast_model(const OptionValues& values) {
  ForecastModel m;
  for (const char* name : {"id", "var"}) {
    if (!host::valid_member_name(values.get(name)))
      throw UsageError(option_name(name) + " " + values.get(name) +
                       ": not a variable name (a letter or underscore, then letters, digits or underscores, at most "
                       "32 characters)");
  }
  m.id = values.get("id");
  m.var = values.get("var");
  m.interval = upper(values.get("interval"));
  if (values.find("align")) {
    const std::string a = upper(values.get("align"));
    if (a.empty() || (std::string("BEGINNING").rfind(a, 0) != 0 && std::string("MIDDLE").rfind(a, 0) != 0 &&
                      std::string("END").rfind(a, 0) != 0))
      throw UsageError("--align wants BEGINNING, MIDDLE or END (or B, M, E), not '" + values.get("align") + "'");
    m.align = a[0];
  }
  m.lead = values.integer("lead", 0);
  // Every point of the lead becomes a row of the model data, held in memory.
  if (m.lead && *m.lead > kMaxLead)
    throw UsageError("--lead wants at most " + std::to_string(kMaxLead) + " intervals, not " + values.get("lead"));
  m.holdout = values.integer("holdout", 1);
  if (m.holdout && values.find("fit-end"))
    throw UsageError("--holdout and --fit-end both say where the fit ends; give one of them");
  if (values.find("fit-start")) m.fit_start = parse_time("fit-start", values.get("fit-start"));
  if (values.find("fit-end")) m.fit_end = parse_time("fit-end", values.get("fit-end"));
  if (values.find("evaluate-start")) m.evaluate_start = parse_time("evaluate-start", values.get("evaluate-start"));
  if (values.find("evaluate-end")) m.evaluate_end = parse_time("evaluate-end", values.get("evaluate-end"));
  if (values.find("trend")) {
    for (const std::string& k : split(values.get("trend"), ',')) {
      const std::string kind = upper(k);
      bool known = false;
      for (const char* t : kTrendKinds) known = known || kind == t;
      if (!known)
        throw UsageError("--trend: '" + k +
                         "' is not a trend curve (LINEAR, QUAD, CUBE, EXP, LOG, HYP, POW, LOGIT, "
                         "ERT)");
      for (const std::string& earlier : m.trends)
        if (earlier == kind) throw UsageError("--trend names " + kind + " twice");
      m.trends.push_back(kind);
    }
  }
  if (values.find("seasonal")) m.seasonal = keyword(values, "seasonal", {"DUMMIES", "NONE"}) == "DUMMIES";
  if (values.find("intercept")) m.intercept = keyword(values, "intercept", {"YES", "NO"}) == "YES";
  if (values.find("intervention")) {
    for (const std::string& spec_text : split(values.get("intervention"), ',')) {
      const std::size_t colon = spec_text.find(':');
      const std::string kind = upper(spec_text.substr(0, colon));
      if (colon == std::string::npos || (kind != "POINT" && kind != "STEP" && kind != "RAMP"))
        throw UsageError("--intervention wants KIND:TIME with KIND POINT, STEP or RAMP, not '" + spec_text + "'");
      m.interventions.push_back({kind, parse_time("intervention", spec_text.substr(colon + 1))});
    }
  }
  if (values.find("regressors")) m.regressors = variables(values, "regressors");
  if (values.find("adjust")) m.adjustments = variables(values, "adjust");
  if (values.find("transform")) {
    const std::string text = values.get("transform");
    const std::size_t colon = text.find(':');
    m.transform = upper(text.substr(0, colon));
    bool known = false;
    for (const char* t : kTransforms) known = known || m.transform == t;
    if (!known) throw UsageError("--transform wants LOG, SQRT, LOGIT or BOXCOX, not '" + text + "'");
    if (colon != std::string::npos) {
      const std::string number = text.substr(colon + 1);
      char* end = nullptr;
      errno = 0;
      const double x = std::strtod(number.c_str(), &end);
      if (number.empty() || *end != '\0' || errno != 0 || !std::isfinite(x))
        throw UsageError("--transform " + text + ": the parameter after the colon must be a number");
      m.parameter = x;
    }
  }
  if (values.find("back")) m.back = keyword(values, "back", {"MEAN", "MEDIAN", "INVERSE"});
  if (values.find("level")) {
    const std::string& text = values.get("level");
    char* end = nullptr;
    errno = 0;
    m.level = std::strtod(text.c_str(), &end);
    if (*end != '\0' || errno != 0 || !(m.level > 0 && m.level < 1))
      throw UsageError("--level wants a number between 0 and 1, not '" + text + "'");
  }
  if (!m.intercept && m.trends.empty() && !m.seasonal && m.interventions.empty() && m.regressors.empty())
    throw UsageError(
        "--intercept no leaves the model without a regressor: add a trend, seasonal dummies, "
        "interventions or regressors");
  // Names the model data set would hold twice.
  std::vector<std::string> names = {m.id, m.var};
  names.insert(names.end(), m.regressors.begin(), m.regressors.end());
  names.insert(names.end(), m.adjustments.begin(), m.adjustments.end());
  for (std::size_t i = 0; i < names.size(); ++i)
    for (std::size_t j = i + 1; j < names.size(); ++j)
      if (same(names[i], names[j]))
        throw UsageError("the variable " + names[j] + " is named twice among --id, --var, --regressors and --adjust");
  for (const std::string& n : names) {
    for (const char* out : {"predict", "std", "lower", "upper", "error", "nerror", "residual", "resstd", "nresid"})
      if (same(n, out)) throw UsageError("the input variable " + n + " has the name of an output variable; rename it");
    if (upper(n).rfind("_FC", 0) == 0) throw UsageError("the names _FC... are fmsd's own; rename " + n);
  }
  return m;
}

SeriesForecast forecast_series(host::Host& host, const host::Module& module, const ForecastModel& model,
                               const std::string& input, const std::string& output, int indent) {
  SeriesForecast outcome;
  try {
    const Calendar cal(module);
    if (!cal.usable()) throw SeriesError("the module does not export its interval and t routines");
    zintrec rec{};
    if (cal.parse(model.interval.c_str(), static_cast<int>(model.interval.size()), &rec) != ZINT_OK)
      throw SeriesError("'" + model.interval + "' is not an interval");
    const InputSeries s = read_input(host, model, input);
    if (rec.kind == 'd' && s.id.form == host::Form::DateTime)
      throw SeriesError("the time ID " + s.id_name + " holds datetimes: give a DT interval, as DT" + model.interval);
    if (rec.kind == 's' && s.id.form == host::Form::Date)
      throw SeriesError("the time ID " + s.id_name + " holds dates, not datetimes: give a date interval");
    zintrec cycle{};
    int nseasons = 0;
    cal.season(&rec, s.times[0], &cycle, &nseasons);
    if (model.seasonal && nseasons <= 1)
      throw SeriesError("the interval " + model.interval + " has no seasonal cycle for seasonal dummies");
    const Ranges r = settle_ranges(cal, rec, model, s, nseasons);
    const std::vector<Regressor> regs = regressors(model, s, rec, nseasons);

    const std::string interval_json =
        "{\"INTERVAL\": " + host::json_string(model.interval) + ", \"SINTERVAL\": " +
        host::json_string(nseasons > 0 ? std::string(cycle.text, static_cast<std::size_t>(cycle.textlen)) : "") +
        ", \"NSEASONS\": " + std::to_string(nseasons) + "}";
    const std::string common = "\"INTERVALINFO\": " + interval_json + ", \"TIME_RANGES\": " + ranges_json(cal, rec, r) +
                               ", \"ALIGN\": \"" + std::string(1, model.align) + "\"";
    const bool transformed = !model.transform.empty();
    std::string transform_items;
    if (transformed) {
      transform_items = ", \"TRNSTYPE\": \"" + model.transform + "\"";
      if (model.parameter) transform_items += ", \"TRNSPARM\": " + number_text(*model.parameter);
    }

    auto store = std::make_shared<MemoryStore>();
    std::string error;
    if (!host.datasets().bind(kMemory, std::make_unique<MemoryLibrary>(store), error))
      throw SeriesError("cannot hold the model data in memory: " + error);
    const std::string model_data = std::string(kMemory) + ".MODEL";
    const std::string forecasts = std::string(kMemory) + ".FORECAST";

    // The model data: the adjusted, transformed series and its regressors.
    {
      std::string varlist =
          "[" + entry(s.id_name, s.id_name, "TIMEID") + ", " + entry(s.var_name, s.var_name, "ACTUAL", transform_items);
      for (const Regressor& g : regs) varlist += ", " + g.item;
      for (const std::string& a : s.adjustments) varlist += ", " + entry(a, a, "ADJ", ", \"FROM\": \"INPUT\"");
      ScopedList params(host.lists(), "{" + common + ", \"NOINT\": " + (model.intercept ? "0" : "1") +
                                          ", \"VARLIST\": " + varlist + "]}");
      host::Arguments a;
      a.word(0).word(params.get().id()).text(input).text(model_data);
      ServiceCall call(host, module, kModdata);
      const std::optional<double> code = call.run(a);
      if (!code || *code < 0) {
        outcome.code = code;
        const std::string why = service_failure("moddata", code, call);
        call.finish(false);
        throw SeriesError(why);
      }
      if (!call.finish(true)) throw SeriesError("the model data could not be kept: " + call.detail());
    }
    const std::shared_ptr<const Table> data = store->find("MODEL");
    if (data == nullptr) throw SeriesError("moddata wrote no model data");
    const Fitted f = fit(cal, model, *data, regs, r);

    // The forecasts, in the layout the model output service reads.
    auto fc = std::make_shared<Table>();
    std::size_t id_at = 0;
    for (std::size_t i = 0; i < data->columns.size(); ++i)
      if (same(data->columns[i].name, s.id_name)) id_at = i;
    fc->columns.push_back(data->columns[id_at]);
    for (const char* name : {"_FCP", "_FCL", "_FCU", "_FCS", "_FCR", "_FCQ"}) {
      host::Column c;
      c.name = name;
      fc->columns.push_back(c);
    }
    const double missing = host::missing_value();
    for (std::size_t i = 0; i < data->rows; ++i) {
      const double p = f.predict[i], sd = f.std[i];
      const bool present = !host::is_missing(p);
      fc->numbers.insert(fc->numbers.end(), {data->number(i, id_at), p, present ? p - f.tq * sd : missing,
                                             present ? p + f.tq * sd : missing, sd, f.residual[i], sd});
      ++fc->rows;
    }
    store->put("FORECAST", std::move(fc));

    // Back to the original scale, with the statistics of fit.
    std::string varlist = "[" + entry(s.id_name, s.id_name, "TIMEID") + ", " + entry(s.var_name, s.var_name, "ACTUAL");
    const std::string back = transform_items + (transformed ? ", \"TRNSOPT\": \"" + model.back + "\"" : "");
    varlist += ", " + entry("predict", "_FCP", "PREDICT", ", \"FROM\": \"FORECAST\"" + back);
    varlist += ", " + entry("std", "_FCS", "STD", ", \"FROM\": \"FORECAST\"");
    varlist += ", " + entry("lower", "_FCL", "LOWER", ", \"FROM\": \"FORECAST\"");
    varlist += ", " + entry("upper", "_FCU", "UPPER", ", \"FROM\": \"FORECAST\"");
    varlist += ", " + entry("error", "", "ERROR", ", \"FROM\": \"GENERATE\"");
    varlist += ", " + entry("nerror", "", "NERROR", ", \"FROM\": \"GENERATE\"");
    if (transformed) {
      varlist += ", " + entry("residual", "_FCR", "RESIDUAL", ", \"FROM\": \"FORECAST\"");
      varlist += ", " + entry("resstd", "_FCQ", "RESSTD", ", \"FROM\": \"FORECAST\"");
      varlist += ", " + entry("nresid", "", "NRESID", ", \"FROM\": \"GENERATE\"");
    }
    for (const std::string& g : s.regressors) varlist += ", " + entry(g, g, "REG", ", \"FROM\": \"INPUT\"");
    for (const std::string& a : s.adjustments) varlist += ", " + entry(a, a, "ADJ", ", \"FROM\": \"INPUT\"");
    ScopedList params(host.lists(),
                      "{" + common + ", \"NPARMS\": " + std::to_string(f.nparms) + ", \"VARLIST\": " + varlist + "]}");
    ScopedList result(host.lists());
    host::Arguments a;
    a.word(0).word(params.get().id()).text(model_data).text(forecasts).text(output).word(result.get().id());
    outcome.output = std::make_unique<ServiceCall>(host, module, kModout);
    const std::optional<double> code = outcome.output->run(a);
    outcome.code = code;  // the service's result, when the host did not fail first
    if (!code || *code < 0) {
      const std::string why = service_failure("modout", code, *outcome.output);
      outcome.output->finish(false);
      outcome.output.reset();
      throw SeriesError(why);
    }
    host::List& model_list = host::json_to_list(host.lists(), f.model_json);
    host.lists().insert(result.get(), -1, "MODEL", host::Value::list(model_list));
    outcome.result_json = host::list_to_json(result.get(), indent);
    outcome.ok = true;
  } catch (const SeriesError& e) {
    outcome.error = e.what();
  } catch (const host::ListError& e) {
    outcome.error = e.what();
  } catch (const host::JsonError& e) {
    outcome.error = e.what();
  }
  return outcome;
}

int run_forecast(const Settings& settings, const std::vector<std::string>& words, bool help) {
  const CommandSpec& command = spec();
  if (help) {
    std::fputs(help_text(command).c_str(), stdout);
    return 0;
  }
  try {
    const OptionValues values = parse_options(command, words);
    const ForecastModel model = forecast_model(values);
    check_by_options(values);
    if (const std::string* file = values.find("result")) {
      namespace fs = std::filesystem;
      std::error_code ec;
      if (fs::is_directory(*file, ec)) throw UsageError("--result " + *file + ": is a directory");
      const fs::path directory = fs::absolute(*file, ec).parent_path();
      if (ec || !fs::is_directory(directory, ec))
        throw UsageError("--result " + *file + ": there is no directory " + directory.string());
    }
    host::Host host;
    DataNames names(host.datasets());
    for (const std::string& library : settings.libraries) names.bind(library);
    std::vector<DataSetName> data_sets = {{"--in", values.get("in"), {}, false},
                                          {"--out", values.get("out"), {}, false}};
    names.resolve(data_sets);
    const auto shown = [](const DataSetName& d) { return d.path ? d.given + " (" + d.name + ")" : d.name; };
    const std::string about = " for input " + shown(data_sets[0]) + ", output " + shown(data_sets[1]);
    std::string error;
    const std::string path = settings.module_path.empty() ? host::default_module_path() : settings.module_path;
    const std::unique_ptr<host::Module> module = host::Module::load(host, path, error);
    if (!module) {
      std::fprintf(stderr, "fmsd: cannot use the module: %s\n", error.c_str());
      return 1;
    }
    if (values.find("by") != nullptr) {
      ByRun run;
      run.command = "forecast";
      run.input = data_sets[0].name;
      run.input_shown = shown(data_sets[0]);
      run.output = data_sets[1].name;
      run.output_shown = shown(data_sets[1]);
      for (const DataSetName& d : data_sets) run.libraries.push_back(d.name.substr(0, d.name.find('.')));
      apply_by_options(values, run);
      run.work = [&](host::Host& h, GroupData& data, const std::shared_ptr<const Table>& rows) {
        data.put(run.input, rows);
        GroupOutcome o;
        const ServiceTiming timing;
        SeriesForecast g = forecast_series(h, *module, model, run.input, run.output, 0);
        timing.stop(o);
        o.code = g.code ? *g.code : host::missing_value();
        if (!g.ok) {
          o.message = g.error;
        } else if (!g.output->finish(true)) {
          o.message = "the output could not be saved; host: " + g.output->detail();
        } else {
          o.ok = true;
          o.list_json = std::move(g.result_json);
          o.output = data.take(run.output);
        }
        return o;
      };
      return run_groups(host, run);
    }
    SeriesForecast f = forecast_series(host, *module, model, data_sets[0].name, data_sets[1].name);
    if (!f.ok) {
      std::fprintf(stderr, "fmsd forecast: %s%s\n", f.error.c_str(), about.c_str());
      return 1;
    }
    std::optional<ResultFile> file;
    if (const std::string* name = values.find("result")) {
      file.emplace(*name);
      if (!file->stage(f.result_json + "\n")) {
        f.output->finish(false);
        std::fprintf(stderr, "fmsd forecast: the result file cannot be written: %s; nothing was saved\n",
                     file->error().c_str());
        return 1;
      }
    }
    if (!f.output->finish(true)) {
      std::fprintf(stderr, "fmsd forecast: the output could not be saved%s; host: %s\n", about.c_str(),
                   f.output->detail().c_str());
      return 1;
    }
    if (file && !file->commit()) {
      std::fprintf(stderr, "fmsd forecast: the output was saved, but %s\n", file->error().c_str());
      return 1;
    }
    if (!file) std::fputs((f.result_json + "\n").c_str(), stdout);
    return 0;
  } catch (const UsageError& e) {
    std::fprintf(stderr, "fmsd forecast: %s\n%s(fmsd forecast --help tells more)\n", e.what(),
                 usage_line(command).c_str());
    return 2;
  }
}

}  // namespace fmsd::app
