// fmsd forecast: one series to forecasts on its own scale, with limits and the
// statistics of fit.  The model data service lays out the regressors, the host
// fits them by least squares, and the model output service turns the forecasts
// back to the original scale.
#ifndef FMSD_APP_FORECAST_H
#define FMSD_APP_FORECAST_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/options.h"

namespace fmsd::host {
class Host;
class Module;
}  // namespace fmsd::host

namespace fmsd::app {

struct Settings;
class ServiceCall;

// A time as written on the command line: a plain number is a time ID as it
// stands; a date (YYYY-MM-DD) or a datetime (YYYY-MM-DDThh:mm[:ss]) is turned
// into the time ID scale of the series when the series is known.
struct TimeValue {
  enum class Kind { Number, Date, DateTime };
  Kind kind = Kind::Number;
  double value = 0;  // the number, the day number, or seconds from 1 January 1960
  std::string text;  // as written, for messages
};

struct Intervention {
  std::string kind;  // POINT, STEP or RAMP
  TimeValue date;
};

// Everything the options say about the model of one series.
struct ForecastModel {
  std::string id;        // the time ID variable
  std::string var;       // the series
  std::string interval;  // upper case, as the services read it
  char align = 'B';
  std::optional<long> lead;  // default: one seasonal cycle, else 1
  std::optional<TimeValue> fit_start, fit_end, evaluate_start, evaluate_end;
  std::optional<long> holdout;
  std::vector<std::string> trends;  // LINEAR, QUAD, CUBE, EXP, LOG, HYP, POW, LOGIT, ERT
  bool seasonal = false;
  bool intercept = true;
  std::vector<Intervention> interventions;
  std::vector<std::string> regressors;
  std::vector<std::string> adjustments;
  std::string transform;            // empty: none; LOG, SQRT, LOGIT, BOXCOX
  std::optional<double> parameter;  // the transformation's parameter
  std::string back = "MEAN";        // MEAN, MEDIAN or INVERSE
  double level = 0.95;
};

const CommandSpec& forecast_spec();

// The model the options describe; UsageError for anything that cannot be used.
ForecastModel forecast_model(const OptionValues& values);

// The outcome of forecasting one series.
struct SeriesForecast {
  bool ok = false;
  std::string error;        // on failure, what went wrong, in one line
  std::string result_json;  // the result list (statistics of fit and the estimates)
  // The result of the service that failed, or of the model output service on
  // success; absent when the host found the failure.
  std::optional<double> code;
  // The model output call, whose output data set is held back: finish(true)
  // saves it, and dropping the call discards it.
  std::unique_ptr<ServiceCall> output;
};

// Forecasts the series in data set `input` into data set `output` (both
// LIB.MEMBER names of bound libraries).  It keeps no state between calls, and
// uses a library named _FCMEM of the host for the data sets between the services.
// The result list is written with `indent` spaces a level, or on one line.
SeriesForecast forecast_series(host::Host& host, const host::Module& module, const ForecastModel& model,
                               const std::string& input, const std::string& output, int indent = 2);

// The command: parses the words after "forecast" and returns the exit status.
int run_forecast(const Settings& settings, const std::vector<std::string>& words, bool help);

}  // namespace fmsd::app

#endif
