#include "app/commands.h"

#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <system_error>

#include "app/by.h"
#include "app/inputs.h"
#include "app/results.h"
#include "app/service_call.h"
#include "host/arguments.h"
#include "host/host.h"
#include "host/json.h"
#include "host/lists.h"
#include "host/storage.h"

namespace fmsd::app {

namespace {

// Slots of the registered service table, in the order the module registers them.
constexpr int kModout = 0;
constexpr int kModdata = 1;
constexpr int kMtstran = 2;
constexpr int kMtsscov = 3;

// A data set or variable that a command names, for the lines that report on it.
struct Named {
  const char* option;
  const char* label;
  bool data_set;
};

struct ServiceCommand {
  CommandSpec spec;
  const char* service;
  int slot;
  const char* list_option;  // the parameter or option list
  std::vector<Named> named;
  bool result_list;  // the service fills a result list that the command prints
};

// ---- the commands, with their help ----------------------------------------------------

constexpr char kVarlistItems[] =
    "  INTERVALINFO  object, required: the interval of the series\n"
    "      INTERVAL    text: the interval of the time IDs, as \"MONTH\", \"QTR\", \"DTDAY\"\n"
    "      SINTERVAL   text: the seasonal cycle, as \"YEAR\"\n"
    "      NSEASONS    integer: the number of seasons in the cycle, as 12\n"
    "  TIME_RANGES   object of up to four objects, DATA_RANGE, FIT_RANGE, EVALUATE_RANGE\n"
    "                and FORCAST_RANGE (spelled so), each with the optional items\n"
    "      NOBS        integer: the number of observations\n"
    "      STDATE      number: the first time ID (days from 1 January 1960 for a date,\n"
    "                  seconds from its midnight for a datetime, else an observation number)\n"
    "      ENDDATE     number: the last time ID\n"
    "                Without STDATE the data range starts at the interval that holds time\n"
    "                ID 0.  The fit range defaults to the data range, the evaluation range\n"
    "                to the data from the fit start on, the forecast range to the data\n"
    "                range from the fit start.\n"
    "  VARLIST       array of objects, one per variable, in the order of the output:\n"
    "      VARNAME     text: the name in the output data set\n"
    "      OLDNAME     text: the name in the data set it is read from\n"
    "      FROM        text: INPUT, FORECAST or GENERATE (a leading part will do)\n"
    "      VARTYPE     text, upper case: TIMEID, ACTUAL, PREDICT, UPPER, LOWER, ERROR, STD,\n"
    "                  NERROR, RESIDUAL, RESSTD, NRESID, REG (regressor), ADJ (adjustment),\n"
    "                  SD (seasonal dummy), TC (trend curve), INT (intervention)\n"
    "      VARKIND     text: for TC, QUAD, CUBE, EXP, LOG, HYP, POW, LOGIT or ERT (otherwise\n"
    "                  linear); for INT, STEP or RAMP (otherwise a single point)\n"
    "      VARDATE     number: the time ID of an intervention\n"
    "      TRNSTYPE    text: LOG, SQRT, LOGIT or BOXCOX\n"
    "      TRNSPARM    number: the transformation's parameter (each family has a default)\n"
    "      TRNSOPT     text: INVERSE, MEAN or MEDIAN (how forecasts are turned back)\n"
    "  ALIGN         text: time IDs at the B(eginning), M(iddle) or E(nd) of their interval;\n"
    "                B when absent\n"
    "  MODELTYPE     text: ADJONLY for a model of the adjustments only, whose adjustment\n"
    "                variables are then left out of the actual series\n";

constexpr char kIntervalExample[] = "\"INTERVALINFO\": {\"INTERVAL\": \"MONTH\", \"SINTERVAL\": \"YEAR\", \"NSEASONS\": 12}";

const std::vector<ServiceCommand>& table() {
  static const std::vector<ServiceCommand> commands = {
      {{"moddata", "build the data set a forecasting model is fitted on",
        "Builds the data set on which a forecasting model is fitted (service moddata).  It\n"
        "reads the input data set, keeps the span the time ranges ask for, lays out regular\n"
        "time IDs, adjusts and transforms the actual series, transforms the regressors,\n"
        "computes the trend-curve, intervention and seasonal-dummy regressors, and writes one\n"
        "row per time point, going on past the data to the end of the forecast range (with\n"
        "missing actual values).\n",
        {{"params", "P", true, "the parameter list (items below)"},
         {"in", "DS", true, "the input data set"},
         {"out", "DS", true, "the model data set to write"}},
        std::string("parameter list items (--params):\n") + kVarlistItems +
                                          "  NOINT         integer: 1 makes a dummy for every season (a model without\n"
                                          "                intercept)\n"
                                          "  The service is not told the number of input rows: give DATA_RANGE its NOBS.\n"
                                          "\nexample:\n"
                                          "  fmsd --lib ts=data moddata --in ts.air --out ts.airmodel --params '{\n"
                                          "    " + kIntervalExample + ",\n"
                                          "    \"TIME_RANGES\": {\"DATA_RANGE\": {\"STDATE\": -4017, \"NOBS\": 144},\n"
                                          "                    \"FORCAST_RANGE\": {\"ENDDATE\": 700}},\n"
                                          "    \"VARLIST\": [\n"
                                          "      {\"VARNAME\": \"date\", \"OLDNAME\": \"date\", \"VARTYPE\": \"TIMEID\"},\n"
                                          "      {\"VARNAME\": \"air\", \"OLDNAME\": \"air\", \"VARTYPE\": \"ACTUAL\", "
                                          "\"TRNSTYPE\": \"LOG\"},\n"
                                          "      {\"VARNAME\": \"trend\", \"VARTYPE\": \"TC\", \"FROM\": \"GENERATE\"}]}'\n"},
       "moddata",
       kModdata,
       "params",
       {{"in", "input", true}, {"out", "output", true}},
       false},
      {{"modout", "turn a fitted model's data and forecasts into its output data set",
        "Merges a fitted model's input data with its forecasts on a common calendar, turns\n"
        "every value back to the original scale, derives the errors and normalised errors,\n"
        "writes one output data set over the fit range and the forecast horizon, and prints\n"
        "the statistics of fit over the evaluation range as a JSON result list (service\n"
        "modout).\n",
        {{"params", "P", true, "the parameter list (items below)"},
         {"in", "DS", true, "the model's input data: time ID, actual values, inputs, adjustments"},
         {"forecast", "DS", true, "the model's forecasts: predictions, limits, standard errors,\nresiduals"},
         {"out", "DS", true, "the output data set to write"},
         {"result", "FILE", false, "write the result list to FILE instead of standard output"}},
        std::string("parameter list items (--params):\n") + kVarlistItems +
              "  NPARMS        integer: the number of model parameters, for the statistics of fit\n"
              "  PUREARMA      integer: the number of start-up predictions to blank\n"
              "  The variable list names the TIMEID, ACTUAL, PREDICT, UPPER and LOWER variables,\n"
              "  and STD for an untransformed model or RESIDUAL and RESSTD for a transformed one;\n"
              "  the model's transformation is that of the PREDICT variable.\n"
              "\nresult list: DFE (integer) and two objects, NAMES and VALUES, with one item per\n"
              "  statistic of fit: N, NOBS, NMISSA, NMISSP, NPARMS, TSS, SST, SSE, MSE, RMSE,\n"
              "  MAPE, MAE, RSQUARE, ADJ_RSQ, A_ADJ_RSQ, RW_RSQ, AIC, SBC, APC, MAXERR, MINERR,\n"
              "  MAXPE, MINPE, ME, MPE; VALUES holds the value, NAMES its short label.\n"
              "\nexample:\n"
              "  fmsd --lib ts=data modout --in ts.air --forecast ts.airfcst --out ts.airout \\\n"
              "      --result fit.json --params '{\n"
              "    " + kIntervalExample + ",\n"
              "    \"NPARMS\": 2, \"TIME_RANGES\": {\"DATA_RANGE\": {\"STDATE\": -4017}},\n"
              "    \"VARLIST\": [\n"
              "      {\"VARNAME\": \"date\", \"OLDNAME\": \"date\", \"VARTYPE\": \"TIMEID\"},\n"
              "      {\"VARNAME\": \"actual\", \"OLDNAME\": \"air\", \"VARTYPE\": \"ACTUAL\"},\n"
              "      {\"VARNAME\": \"predict\", \"OLDNAME\": \"forecast\", \"VARTYPE\": \"PREDICT\"},\n"
              "      {\"VARNAME\": \"upper\", \"OLDNAME\": \"u95\", \"VARTYPE\": \"UPPER\"},\n"
              "      {\"VARNAME\": \"lower\", \"OLDNAME\": \"l95\", \"VARTYPE\": \"LOWER\"},\n"
              "      {\"VARNAME\": \"std\", \"OLDNAME\": \"std\", \"VARTYPE\": \"STD\"},\n"
              "      {\"VARNAME\": \"error\", \"VARTYPE\": \"ERROR\", \"FROM\": \"GENERATE\"}]}'\n"},
       "modout",
       kModout,
       "params",
       {{"in", "input", true}, {"forecast", "forecast", true}, {"out", "output", true}},
       true},
      {{"transform", "transform, difference or decompose one series",
        "Treats one numeric series and writes it, with one numeric variable carried along\n"
        "unchanged (in practice the time ID), to a new data set: the carried variable first,\n"
        "both under their own names (service mtstran).  The treatments apply in this order:\n"
        "a transformation (forward or inverse), simple differences, seasonal differences,\n"
        "the percent change, and one component of a classical seasonal decomposition.\n",
        with_by({{"in", "DS", true, "the input data set"},
                 {"var", "NAME", true, "the numeric series to treat"},
                 {"carry", "NAME", true, "the numeric variable carried along unchanged"},
                 {"season", "S", false, "the season length, for seasonal differences and the\ndecomposition (default 0: none)"},
                 {"options", "P", false, "the option list (items below); without it the service\nis given no option list"},
                 {"out", "DS", true, "the output data set to write"}}),
        "option list items (--options):\n"
        "  TRNSTYPE   text: LOG, SQRT, LOGIT or BOXCOX\n"
        "  TRNSOPT    text: INVERSE applies the inverse transformation\n"
        "  TRNSPARM   number: the transformation's parameter (each family has a default)\n"
        "  DIF        integer: the number of simple differences\n"
        "  SDIF       integer: the number of seasonal differences at lag S (when S > 1)\n"
        "  PCHANGE    integer: non-zero asks for the percent change\n"
        "  CDLIST     object: a classical seasonal decomposition with period S\n"
        "      CDTYPE   text: MULTIPLICATIVE or ADDITIVE (a leading part will do: MULT, ADD)\n"
        "      CDCOMP   text: SA the seasonally adjusted series (the default), TC the\n"
        "               trend-cycle, SC the seasonal component, IC the irregular component\n"
        "  An option list with no items at all ({}) asks for the percent change alone.\n"
        "\nresults 2 (every treated value is missing) and 3 (a multiplicative decomposition\n"
        "met a value that is zero or negative, and an additive one was done instead) are\n"
        "successes with a notice.\n"
        "\nexample:\n"
        "  fmsd transform --in air.csv --var passengers --carry date --season 12 \\\n"
        "      --options '{\"TRNSTYPE\": \"LOG\", \"DIF\": 1, \"SDIF\": 1}' --out airdif.csv\n"},
       "mtstran",
       kMtstran,
       "options",
       {{"in", "input", true}, {"var", "variable", false}, {"carry", "carried variable", false},
        {"out", "output", true}},
       false},
      {{"diagnose", "autocorrelations, white-noise and unit-root tests of one series",
        "Computes for one numeric variable the autocovariances, the autocorrelation, partial\n"
        "and inverse autocorrelation functions with their standard errors, Ljung-Box\n"
        "white-noise probabilities, and Dickey-Fuller unit-root and seasonal unit-root\n"
        "probabilities (service mtsscov).  It writes one row per lag to the output data set\n"
        "and prints a summary as a JSON result list.\n",
        with_by({{"in", "DS", true, "the input data set"},
                 {"var", "NAME", true, "the numeric series"},
                 {"nobs", "N", false, "read the first N observations only (default: all)"},
                 {"nlags", "L", false, "the largest lag to report; without it no correlation rows\nare written, and --options is needed"},
                 {"options", "P", false, "the option list (items below)"},
                 {"out", "DS", true, "the output data set to write"},
                 {"result", "FILE", false, "write the result list (with --by, the array of the groups'\noutcomes) to FILE instead of standard output"}}),
        "option list items (--options):\n"
        "  CORRPROB   integer: 1 adds the significance probabilities of the correlations\n"
        "  UNITROOT   object: the unit-root test\n"
        "  SEASONUR   object: the seasonal unit-root test, run for a DLAG of 2 to 12\n"
        "    both with the items\n"
        "      METHOD     text: PP (Phillips-Perron), RW, or anything else for the\n"
        "                 regression (augmented Dickey-Fuller) tests\n"
        "      TYPE       text: ZEROMEAN, SINGLEMEAN or TREND; no test runs without it\n"
        "      STATTYPE   text: REGRESSION (rho), STUDENTIZED (tau) or FSTAT (F)\n"
        "      MAXAR      integer: the largest augmenting lag (default 0)\n"
        "      DLAG       integer, 1 to 12: the seasonal period (default 1)\n"
        "    A leading part of a word will do (ZERO for ZEROMEAN).\n"
        "\nresult list:\n"
        "  NLAGS      integer: the number of lags reported\n"
        "  MEAN       the mean of the series\n"
        "  NNMSS      integer: the number of usable values\n"
        "  PACF_STD   the standard error of the partial autocorrelations\n"
        "  IACF_STD   the standard error of the inverse autocorrelations\n"
        "  N          integer: the length of the series without its leading and trailing\n"
        "             missing values\n"
        "  URPVAL     the unit-root probability at the largest augmenting lag\n"
        "  URREC      integer: the verdict of the last unit-root test\n"
        "  SURPVAL    the seasonal unit-root probability (missing when the test did not run)\n"
        "  SURREC     integer: the verdict of the last seasonal test (-99 when it did not run)\n"
        "\nresult 1 (fewer lags than requested) is a success with a notice.\n"
        "\nexample:\n"
        "  fmsd diagnose --in air.csv --var passengers --nlags 24 --out aircorr.csv \\\n"
        "      --options '{\"UNITROOT\": {\"TYPE\": \"SINGLEMEAN\", \"STATTYPE\": \"STUDENTIZED\",\n"
        "                 \"MAXAR\": 2}, \"CORRPROB\": 1}'\n"},
       "mtsscov",
       kMtsscov,
       "options",
       {{"in", "input", true}, {"var", "variable", false}, {"out", "output", true}},
       true},
  };
  return commands;
}

const ServiceCommand& command_of(const CommandSpec& spec) {
  for (const ServiceCommand& c : table())
    if (&c.spec == &spec) return c;
  throw UsageError(std::string("unknown command '") + spec.name + "'");
}

// ---- one run ------------------------------------------------------------------------------

struct Prepared {
  std::map<std::string, std::string> data_sets;  // option -> LIB.MEMBER
  std::map<std::string, std::string> shown;      // option -> how reports name it
  host::List* list = nullptr;
  host::List* result = nullptr;
};

void check_variable(const OptionValues& values, const char* option) {
  const std::string& name = values.get(option);
  if (!host::valid_member_name(name))
    throw UsageError("--" + std::string(option) + " " + name +
                     ": not a variable name (a letter or underscore, then letters, digits or underscores, at most "
                     "32 characters)");
}

void check_result_file(const OptionValues& values) {
  const std::string* file = values.find("result");
  if (file == nullptr) return;
  namespace fs = std::filesystem;
  std::error_code ec;
  if (fs::is_directory(*file, ec)) throw UsageError("--result " + *file + ": is a directory");
  const fs::path directory = fs::absolute(*file, ec).parent_path();
  if (ec || !fs::is_directory(directory, ec))
    throw UsageError("--result " + *file + ": there is no directory " + directory.string());
}

// The counts a command takes and the least each may be: a series of no
// observations is no request, while no seasons or no lags is.
std::optional<long> count(const OptionValues& values, std::string_view option) {
  return values.integer(option, option == "nobs" ? 1 : 0);
}

// The argument vector each service reads with posargs, position by position.
host::Arguments arguments(const ServiceCommand& c, const OptionValues& values, const Prepared& p) {
  host::Arguments a;
  const fmsd_word list = p.list != nullptr ? p.list->id() : 0;
  const auto& ds = p.data_sets;
  switch (c.slot) {
    case kModout:
      a.word(0).word(list).text(ds.at("in")).text(ds.at("forecast")).text(ds.at("out")).word(p.result->id());
      break;
    case kModdata:
      a.word(0).word(list).text(ds.at("in")).text(ds.at("out"));
      break;
    case kMtstran: {
      a.word(0).text(ds.at("in")).text(values.get("var")).text(values.get("carry"));
      const std::optional<long> season = count(values, "season");
      if (season)
        a.integer(*season);
      else
        a.missing();
      a.word(list).text(ds.at("out"));
      break;
    }
    case kMtsscov: {
      a.text(ds.at("in")).text(values.get("var"));
      const std::optional<long> nobs = count(values, "nobs");
      if (nobs)
        a.number(static_cast<double>(*nobs));
      else
        a.missing();
      const std::optional<long> nlags = count(values, "nlags");
      if (nlags)
        a.integer(*nlags);
      else
        a.missing();
      // Position 7 names the list to fill; the service answers with its identifier at 8.
      a.word(list).text(ds.at("out")).word(p.result->id()).missing();
      break;
    }
  }
  return a;
}

std::string concerned(const ServiceCommand& c, const OptionValues& values, const Prepared& p) {
  std::string text;
  for (const Named& n : c.named) {
    if (!text.empty()) text += ", ";
    text += std::string(n.label) + " " + (n.data_set ? p.shown.at(n.option) : values.get(n.option));
  }
  return text;
}

// The list the service filled: the identifier it answered with, else the one it was given.
const host::List* filled_list(host::Host& host, const ServiceCommand& c, const host::Arguments& a, const Prepared& p) {
  if (p.result == nullptr) return nullptr;
  if (const std::optional<double> id = a.result(8); id && *id > 0 && c.slot == kMtsscov)
    if (const host::List* list = host.lists().find(static_cast<fmsd_word>(*id))) return list;
  return p.result;
}

// Binds the libraries, resolves the data set names and reads the lists the
// command passes; UsageError for anything that cannot be used.
Prepared prepare(host::Host& host, const ServiceCommand& c, const Settings& settings, const OptionValues& values) {
  DataNames names(host.datasets());
  for (const std::string& library : settings.libraries) names.bind(library);
  std::vector<DataSetName> data_sets;
  for (const Named& n : c.named)
    if (n.data_set) data_sets.push_back({"--" + std::string(n.option), values.get(n.option), {}, false});
  names.resolve(data_sets);

  Prepared p;
  for (const DataSetName& d : data_sets) {
    const std::string option = d.option.substr(2);
    p.data_sets[option] = d.name;
    p.shown[option] = d.path ? d.given + " (" + d.name + ")" : d.name;
  }
  if (const std::string* text = values.find(c.list_option))
    p.list = &load_parameters(host.lists(), "--" + std::string(c.list_option), *text);
  if (c.result_list) p.result = &host.lists().create();
  return p;
}

std::string result_text(const ServiceCommand& c, double code) {
  const char* meaning = result_meaning(c.service, code);
  return "result " + code_text(code) + " (" + (meaning != nullptr ? meaning : "a result the service does not define") +
         ")";
}

void report(const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); }

// One group of a --by run, on a worker thread with that worker's host.
GroupOutcome run_group(host::Host& host, const host::Module& module, const ServiceCommand& c,
                       const OptionValues& values, const Prepared& p, const std::string& parameters, GroupData& data,
                       const std::shared_ptr<const Table>& rows) {
  data.put(p.data_sets.at("in"), rows);
  Prepared q{p.data_sets, p.shown, nullptr, nullptr};
  if (!parameters.empty()) q.list = &host::json_to_list(host.lists(), parameters);
  if (c.result_list) q.result = &host.lists().create();
  host::Arguments a = arguments(c, values, q);
  GroupOutcome o;
  ServiceCall call(host, module, c.slot);
  const ServiceTiming timing;
  const std::optional<double> code = call.run(a);
  timing.stop(o);
  o.code = code ? *code : host::missing_value();
  o.ok = code && *code >= 0;
  const host::List* filled = o.ok ? filled_list(host, c, a, q) : nullptr;
  if (filled != nullptr) o.list_json = host::list_to_json(*filled);
  if (!o.ok) {
    const std::string detail = call.detail();
    call.finish(false);
    o.message = std::string(c.service) + (code ? " failed with " + result_text(c, *code) : " set no result") +
                (detail.empty() ? "" : "; host: " + detail);
  } else if (!call.finish(true)) {
    o.ok = false;
    o.message = std::string(c.service) + " succeeded, but its output could not be saved; host: " + call.detail();
  } else {
    o.output = data.take(p.data_sets.at("out"));
    if (*code > 0) o.message = result_text(c, *code);
  }
  if (filled != nullptr && filled != q.result && filled->parent() == nullptr)
    host.lists().free(*host.lists().find(filled->id()));
  if (q.result != nullptr) host.lists().free(*q.result);
  if (q.list != nullptr) host.lists().free(*q.list);
  return o;
}

int run_by(host::Host& host, const host::Module& module, const ServiceCommand& c, const OptionValues& values,
           const Prepared& p) {
  ByRun run;
  run.command = c.spec.name;
  run.input = p.data_sets.at("in");
  run.input_shown = p.shown.at("in");
  run.output = p.data_sets.at("out");
  run.output_shown = p.shown.at("out");
  for (const auto& [option, name] : p.data_sets) run.libraries.push_back(name.substr(0, name.find('.')));
  apply_by_options(values, run);
  // Each worker reads the parameters into its own host's lists.
  const std::string parameters = p.list != nullptr ? host::list_to_json(*p.list) : std::string();
  run.work = [&](host::Host& h, GroupData& data, const std::shared_ptr<const Table>& rows) {
    return run_group(h, module, c, values, p, parameters, data, rows);
  };
  return run_groups(host, run);
}

}  // namespace

std::vector<const CommandSpec*> service_commands() {
  std::vector<const CommandSpec*> specs;
  for (const ServiceCommand& c : table()) specs.push_back(&c.spec);
  return specs;
}

const CommandSpec* find_service_command(std::string_view name) {
  for (const ServiceCommand& c : table())
    if (name == c.spec.name) return &c.spec;
  return nullptr;
}

int run_service_command(const CommandSpec& spec, const Settings& settings, const std::vector<std::string>& words) {
  const ServiceCommand& c = command_of(spec);
  const OptionValues values = parse_options(spec, words);
  // Everything the command line says is checked before the module runs.
  for (const Named& n : c.named)
    if (!n.data_set) check_variable(values, n.option);
  for (const char* option : {"season", "nobs", "nlags"}) count(values, option);
  check_result_file(values);
  check_by_options(values);

  host::Host host;
  const Prepared p = prepare(host, c, settings, values);
  std::string error;
  const std::string path = settings.module_path.empty() ? host::default_module_path() : settings.module_path;
  const std::unique_ptr<host::Module> module = host::Module::load(host, path, error);
  if (!module) {
    report("fmsd: cannot use the module: " + error);
    return 1;
  }

  if (values.find("by") != nullptr) return run_by(host, *module, c, values, p);
  host::Arguments a = arguments(c, values, p);
  const std::string head = std::string("fmsd ") + spec.name + ": " + c.service;
  const std::string about = " for " + concerned(c, values, p);
  ServiceCall call(host, *module, c.slot);
  const std::optional<double> code = call.run(a);
  if (!code || !(*code >= 0)) {
    const std::string detail = call.detail();
    call.finish(false);
    report(head + (code ? " failed with " + result_text(c, *code) : std::string(" set no result")) + about +
           (detail.empty() ? "" : "; host: " + detail));
    return 1;
  }

  // The result file is written before the outputs are saved and put in place
  // after, so that a failure of either leaves neither.
  std::string json;
  if (const host::List* list = filled_list(host, c, a, p)) json = host::list_to_json(*list, 2) + "\n";
  std::optional<ResultFile> file;
  if (const std::string* name = values.find("result")) {
    file.emplace(*name);
    if (!file->stage(json)) {
      call.finish(false);
      report(head + " succeeded, but the result file cannot be written: " + file->error() + "; nothing was saved");
      return 1;
    }
  }
  if (!call.finish(true)) {
    report(head + " succeeded, but its output could not be saved" + about + "; host: " + call.detail());
    return 1;
  }
  if (file && !file->commit()) {
    report(head + " succeeded and its output was saved, but " + file->error());
    return 1;
  }
  if (!file) std::fputs(json.c_str(), stdout);
  if (*code > 0) report(head + " notice: " + result_text(c, *code) + about);
  return 0;
}

}  // namespace fmsd::app
