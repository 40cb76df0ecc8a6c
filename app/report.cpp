#include "app/report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "app/inputs.h"
#include "app/results.h"
#include "app/memory_library.h"
#include "app/service_call.h"
#include "app/svg.h"
#include "host/arguments.h"
#include "host/datasets.h"
#include "host/host.h"
#include "host/lists.h"

namespace fmsd::app {

namespace {

using host::Item;
using host::List;
using host::Value;

// Each panel carries its own frame colour, so that a picture of the page shows
// at a glance (and to a checker) which panels it holds.
struct Panel {
  const char* id;
  const char* heading;
  const char* colour;
};
constexpr Panel kSeriesPanel{"series", "The series", "#b00060"};
constexpr Panel kTreatedPanel{"treated", "Transformation and differences", "#00a0a0"};
constexpr Panel kDecompositionPanel{"decomposition", "Seasonal decomposition", "#a0a000"};
constexpr Panel kCorrelationPanel{"correlations", "Autocorrelations", "#6000b0"};
constexpr Panel kTestsPanel{"tests", "White-noise and unit-root tests", "#b05000"};
constexpr Panel kForecastPanel{"forecast", "Actual and forecast", "#0050b0"};

constexpr char kBlue[] = "#1f77b4";
constexpr char kRed[] = "#d62728";
constexpr char kGreen[] = "#2ca02c";
constexpr char kPurple[] = "#9467bd";
constexpr char kBrown[] = "#8c564b";
constexpr char kGrey[] = "#9a9a9a";
constexpr char kLightBlue[] = "#c6dbef";
constexpr char kLightRed[] = "#f6c4c0";

constexpr int kDefaultLags = 24;
constexpr int kDefaultMaxAr = 12;
constexpr char kScratch[] = "_REPORT";

// A step that failed on good command-line grounds: the data or a service said no.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

const CommandSpec& spec() {
  static const CommandSpec command = {
      "report",
      "write a self-contained HTML report on one series",
      "Writes one HTML page about one numeric series: the series, its transformation and\n"
      "differences, a classical seasonal decomposition, the autocorrelation, partial and\n"
      "inverse autocorrelation functions with their two-standard-error bands, white-noise\n"
      "and unit-root probabilities by lag, and, given a fitted model's output data set,\n"
      "the actual values against the forecasts with their limits and the statistics of\n"
      "fit.  It runs the services mtstran and mtsscov in process.  The page holds its\n"
      "charts as inline SVG: no script, no link to anything outside it.\n",
      {{"in", "DS", true, "the input data set"},
       {"var", "NAME", true, "the numeric series"},
       {"time", "NAME", false, "the time ID (default: the first date or datetime\nvariable other than --var; without one, observation numbers)"},
       {"season", "S", false, "the season length (default: 12 for monthly and 4 for\nquarterly dates, else none)"},
       {"options", "P", false, "the option list (items below)"},
       {"forecast", "DS", false, "a model output data set as modout writes it"},
       {"fit", "FILE", false, "the result list of modout (JSON), for the statistics of fit"},
       {"out", "FILE", true, "the HTML file to write"}},
      "option list items (--options):\n"
      "  TRNSTYPE   text: LOG, SQRT, LOGIT or BOXCOX, applied before the differences\n"
      "  TRNSPARM   number: the transformation's parameter\n"
      "  DIF        integer: the number of simple differences\n"
      "  SDIF       integer: the number of seasonal differences\n"
      "  CDTYPE     text: MULTIPLICATIVE (the default) or ADDITIVE decomposition\n"
      "  NLAGS      integer: the largest lag of the correlations (default 24)\n"
      "  UNITROOT   object: the unit-root test, as for diagnose (default: SINGLEMEAN,\n"
      "             STUDENTIZED, MAXAR the smaller of NLAGS and 12)\n"
      "  SEASONUR   object: the seasonal unit-root test, as for diagnose (default, for a\n"
      "             season of 2 to 12: the same with DLAG the season length)\n"
      "  FORECAST   object: the names of the --forecast variables, ACTUAL, PREDICT,\n"
      "             UPPER and LOWER (default: those names themselves, and for ACTUAL\n"
      "             the --var name when there is no ACTUAL)\n"
      "  The correlations and tests are those of the transformed and differenced\n"
      "  series; the decomposition is that of the series as it stands.\n"
      "\nexample:\n"
      "  fmsd report --in samples/airpassengers.csv --var passengers \\\n"
      "      --options '{\"TRNSTYPE\": \"LOG\", \"DIF\": 1, \"SDIF\": 1}' --out air.html\n"
      "  fmsd report --in air.csv --var passengers --forecast airout.csv --fit fit.json \\\n"
      "      --out airfcst.html\n"};
  return command;
}

// ---- the option list -------------------------------------------------------------------

struct ReportOptions {
  const Item* trnstype = nullptr;
  const Item* trnsparm = nullptr;
  int dif = 0;
  int sdif = 0;
  bool multiplicative = true;
  int nlags = kDefaultLags;
  const List* unitroot = nullptr;
  const List* seasonur = nullptr;
  std::string actual, predict = "PREDICT", upper = "UPPER", lower = "LOWER";
  bool treated() const { return trnstype != nullptr || dif > 0 || sdif > 0; }
};

int whole(const Item& item, const std::string& name, int least) {
  std::int32_t v = 0;
  if (!host::read_int(item, v) || v < least)
    throw UsageError("--options: " + name + " wants a whole number of at least " + std::to_string(least));
  return v;
}

const Item& text_item(const Item& item, const std::string& name) {
  if (item.kind() != FMSD_ITEM_TEXT) throw UsageError("--options: " + name + " wants a text");
  return item;
}

const List& object_item(const Item& item, const std::string& name) {
  if (item.kind() != FMSD_ITEM_LIST) throw UsageError("--options: " + name + " wants an object");
  return *item.sublist;
}

ReportOptions read_options(const List* list) {
  ReportOptions o;
  if (list == nullptr) return o;
  auto is = [](const Item& item, const char* name) { return host::same_name(item.name, name); };
  for (const auto& owned : list->items()) {
    const Item& item = *owned;
    if (is(item, "TRNSTYPE")) {
      o.trnstype = &text_item(item, item.name);
    } else if (is(item, "TRNSPARM")) {
      double v = 0;
      if (!host::read_double(item, v)) throw UsageError("--options: TRNSPARM wants a number");
      o.trnsparm = &item;
    } else if (is(item, "DIF")) {
      o.dif = whole(item, "DIF", 0);
    } else if (is(item, "SDIF")) {
      o.sdif = whole(item, "SDIF", 0);
    } else if (is(item, "CDTYPE")) {
      const std::string& t = text_item(item, item.name).text;
      // A leading part of either word will do, as the service reads it.
      if (!t.empty() && std::string("ADDITIVE").compare(0, t.size(), t) == 0)
        o.multiplicative = false;
      else if (t.empty() || std::string("MULTIPLICATIVE").compare(0, std::min(t.size(), std::size_t{14}), t, 0,
                                                                  std::min(t.size(), std::size_t{14})) != 0)
        throw UsageError("--options: CDTYPE wants MULTIPLICATIVE or ADDITIVE, not '" + t + "'");
    } else if (is(item, "NLAGS")) {
      o.nlags = whole(item, "NLAGS", 1);
    } else if (is(item, "UNITROOT")) {
      o.unitroot = &object_item(item, "UNITROOT");
    } else if (is(item, "SEASONUR")) {
      o.seasonur = &object_item(item, "SEASONUR");
    } else if (is(item, "FORECAST")) {
      for (const auto& role : object_item(item, "FORECAST").items()) {
        const std::string& text = text_item(*role, "FORECAST." + role->name).text;
        if (!host::valid_member_name(text))
          throw UsageError("--options: FORECAST." + role->name + " " + text + ": not a variable name");
        if (is(*role, "ACTUAL"))
          o.actual = text;
        else if (is(*role, "PREDICT"))
          o.predict = text;
        else if (is(*role, "UPPER"))
          o.upper = text;
        else if (is(*role, "LOWER"))
          o.lower = text;
        else
          throw UsageError("--options: FORECAST has no item " + role->name + " (ACTUAL, PREDICT, UPPER, LOWER)");
      }
    } else {
      throw UsageError("--options: unknown item " + item.name + " (fmsd report --help lists the items)");
    }
  }
  return o;
}

void check_out_file(const std::string& file) {
  namespace fs = std::filesystem;
  std::error_code ec;
  if (fs::is_directory(file, ec)) throw UsageError("--out " + file + ": is a directory");
  const fs::path directory = fs::absolute(file, ec).parent_path();
  if (ec || !fs::is_directory(directory, ec))
    throw UsageError("--out " + file + ": there is no directory " + directory.string());
}

void check_variable(const OptionValues& values, const char* option) {
  const std::string* name = values.find(option);
  if (name != nullptr && !host::valid_member_name(*name))
    throw UsageError("--" + std::string(option) + " " + *name + ": not a variable name");
}

// ---- the services -------------------------------------------------------------------------

class Services {
 public:
  Services(host::Host& host, const host::Module& module) : host_(host), module_(module) {}

  // Runs a service and keeps what it wrote; Failure names the step when it fails.
  double run(const std::string& service, host::Arguments& a, const std::string& about) {
    int slot = -1;
    for (std::size_t i = 0; i < module_.registration().services.size(); ++i)
      if (host::same_name(module_.service_name(static_cast<int>(i)), service)) slot = static_cast<int>(i);
    if (slot < 0) throw Failure("the module registers no service " + service);
    ServiceCall call(host_, module_, slot);
    const std::optional<double> code = call.run(a);
    if (!code || !(*code >= 0)) {
      const std::string detail = call.detail();
      call.finish(false);
      std::string text = service;
      if (code) {
        const char* meaning = result_meaning(service, *code);
        text += " failed with result " + code_text(*code) + " (" +
                (meaning != nullptr ? meaning : "a result the service does not define") + ")";
      } else {
        text += " set no result";
      }
      throw Failure(text + " " + about + (detail.empty() ? "" : "; host: " + detail));
    }
    if (!call.finish(true)) throw Failure(service + " succeeded, but its output could not be kept; host: " + call.detail());
    return *code;
  }

 private:
  host::Host& host_;
  const host::Module& module_;
};

// A whole data set, column by column: numbers for numeric columns (missing
// values as NaN, which the charts skip), nothing for character ones.
struct Data {
  std::vector<host::Column> columns;
  std::vector<std::vector<double>> numbers;
  std::size_t rows = 0;

  int find(const std::string& name) const {
    for (std::size_t i = 0; i < columns.size(); ++i)
      if (host::same_name(columns[i].name, name)) return static_cast<int>(i);
    return -1;
  }
};

// A numeric column, or all missing values when it is absent.
std::vector<double> column(const Data& t, const std::string& name) {
  const int c = t.find(name);
  if (c < 0 || !t.columns[static_cast<std::size_t>(c)].numeric) return std::vector<double>(t.rows, NAN);
  return t.numbers[static_cast<std::size_t>(c)];
}

Data read_data_set(host::DataSets& data, const std::string& name, const std::string& shown) {
  const std::size_t dot = name.find('.');
  host::Library* library = data.library(name.substr(0, dot));
  if (library == nullptr) throw Failure("library " + name.substr(0, dot) + " is not bound");
  std::string error;
  std::unique_ptr<host::Reader> reader = library->open(name.substr(dot + 1), error);
  if (!reader) throw Failure("cannot read " + shown + ": " + error);
  Data t;
  t.columns = reader->columns();
  t.numbers.resize(t.columns.size());
  std::vector<host::Cell> cells(t.columns.size());
  while (reader->next(cells.data())) {
    for (std::size_t i = 0; i < t.columns.size(); ++i)
      if (t.columns[i].numeric) t.numbers[i].push_back(host::is_missing(cells[i].number) ? NAN : cells[i].number);
    ++t.rows;
  }
  if (!reader->error().empty()) throw Failure("cannot read " + shown + ": " + reader->error());
  return t;
}

svg::Axis axis_of(const host::Column& c) {
  return c.form == host::Form::Date ? svg::Axis::Date : c.form == host::Form::DateTime ? svg::Axis::DateTime
                                                                                         : svg::Axis::Number;
}

// The time ID: the named variable, else the first date or datetime variable that
// is not the series; -1 when there is none.
int time_column(const Data& t, const std::string* named, const std::string& var, const std::string& shown) {
  if (named != nullptr) {
    const int c = t.find(*named);
    if (c < 0) throw Failure("data set " + shown + " has no variable " + *named);
    if (!t.columns[static_cast<std::size_t>(c)].numeric)
      throw Failure("variable " + *named + " of " + shown + " is not numeric");
    return c;
  }
  for (std::size_t i = 0; i < t.columns.size(); ++i)
    if (t.columns[i].numeric && t.columns[i].form != host::Form::Number && !host::same_name(t.columns[i].name, var))
      return static_cast<int>(i);
  return -1;
}

// The season of monthly and quarterly dates, judged by the typical gap between them.
int infer_season(const std::vector<double>& days, svg::Axis axis) {
  if (axis == svg::Axis::Number || days.size() < 3) return 0;
  std::vector<double> gaps;
  for (std::size_t i = 1; i < days.size(); ++i)
    if (std::isfinite(days[i]) && std::isfinite(days[i - 1])) gaps.push_back(days[i] - days[i - 1]);
  if (gaps.empty()) return 0;
  std::nth_element(gaps.begin(), gaps.begin() + static_cast<long>(gaps.size() / 2), gaps.end());
  const double gap = gaps[gaps.size() / 2] / (axis == svg::Axis::DateTime ? 86400.0 : 1.0);
  if (gap >= 28 && gap <= 31) return 12;
  if (gap >= 89 && gap <= 92) return 4;
  return 0;
}

// ---- the page -------------------------------------------------------------------------------

std::string number_text(double v) {
  if (!std::isfinite(v)) return "missing";
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.6g", v);
  return buffer;
}

class Page {
 public:
  void open(const Panel& p) {
    html_ += "<section class=\"panel\" id=\"" + std::string(p.id) + "\" style=\"border-left-color:" + p.colour +
             "\">\n<h2>" + p.heading + "</h2>\n";
  }
  void close() { html_ += "</section>\n"; }
  void heading(const std::string& text) { html_ += "<h3>" + svg::escape(text) + "</h3>\n"; }
  void note(const std::string& text) { html_ += "<p class=\"note\">" + svg::escape(text) + "</p>\n"; }
  void chart(const svg::Chart& c) { html_ += svg::render(c); }
  void table(const std::vector<std::string>& head, const std::vector<std::vector<std::string>>& rows) {
    html_ += "<table>\n<tr>";
    for (const std::string& h : head) html_ += "<th>" + svg::escape(h) + "</th>";
    html_ += "</tr>\n";
    for (const auto& row : rows) {
      html_ += "<tr>";
      for (const std::string& cell : row) html_ += "<td>" + svg::escape(cell) + "</td>";
      html_ += "</tr>\n";
    }
    html_ += "</table>\n";
  }
  void raw(const std::string& text) { html_ += text; }
  const std::string& html() const { return html_; }

 private:
  std::string html_;
};

constexpr char kStyle[] =
    "body{font-family:sans-serif;color:#222222;background:#ffffff;margin:16px;max-width:960px}\n"
    "h1{font-size:20px;margin:0 0 6px 0}\n"
    "h2{font-size:16px;margin:4px 0 8px 0}\n"
    "h3{font-size:13px;margin:10px 0 2px 0}\n"
    "section.panel{border-left:12px solid;padding:4px 12px 10px 14px;margin:0 0 18px 0}\n"
    "svg.chart{display:block}\n"
    "table{border-collapse:collapse;font-size:12px;margin:6px 0}\n"
    "th,td{border:1px solid #cccccc;padding:2px 6px;text-align:right}\n"
    "th{background:#f0f0f0}\n"
    "p.note,p.about{font-size:12px;color:#444444;margin:4px 0}\n";

svg::Chart time_chart(svg::Axis axis, const std::string& y_label) {
  svg::Chart c;
  c.x_axis = axis;
  c.y_label = y_label;
  return c;
}

// Correlation bars from lag 1 on, with the band of two standard errors around 0.
svg::Chart correlation_chart(const std::vector<double>& lags, const std::vector<double>& values,
                             const std::vector<double>& lower, const std::vector<double>& upper,
                             const std::string& name) {
  auto from1 = [&](const std::vector<double>& v) {
    std::vector<double> out;
    for (std::size_t i = 0; i < v.size(); ++i)
      if (lags[i] >= 1) out.push_back(v[i]);
    return out;
  };
  svg::Chart c;
  c.height = 210;
  c.x_label = "lag";
  c.y_label = name;
  c.y_range = std::make_pair(-1.0, 1.0);
  c.y_rules = {0};
  c.bands.push_back({from1(lags), from1(lower), from1(upper), kLightBlue, "two standard errors"});
  c.bars.push_back({from1(lags), from1(values), kBlue, name});
  return c;
}

struct Inputs {
  std::string shown_in;
  std::string var;
  std::vector<double> time, series;
  svg::Axis axis = svg::Axis::Number;
  std::string time_name;
  int season = 0;
};

void series_panel(Page& page, const Inputs& in) {
  page.open(kSeriesPanel);
  svg::Chart c = time_chart(in.axis, in.var);
  c.x_label = in.time_name;
  c.lines.push_back({in.time, in.series, kBlue, in.var, false, false});
  page.chart(c);
  std::size_t present = 0;
  for (double v : in.series) present += std::isfinite(v) ? 1 : 0;
  std::string span;
  if (!in.time.empty())
    span = ", from " + svg::time_label(in.time.front(), in.axis) + " to " + svg::time_label(in.time.back(), in.axis);
  page.note(std::to_string(in.series.size()) + " observations, " + std::to_string(present) + " present" + span +
            (in.season > 1 ? "; season length " + std::to_string(in.season) : "; no seasonal cycle"));
  page.close();
}

std::string treatment_text(const ReportOptions& o, int season) {
  std::string text;
  if (o.trnstype != nullptr) {
    text = o.trnstype->text + " transformation";
    if (o.trnsparm != nullptr) {
      double v = 0;
      host::read_double(*o.trnsparm, v);
      text += " (parameter " + number_text(v) + ")";
    }
  }
  auto add = [&](const std::string& part) { text += (text.empty() ? "" : ", ") + part; };
  if (o.dif > 0) add(std::to_string(o.dif) + " simple difference" + (o.dif > 1 ? "s" : ""));
  if (o.sdif > 0 && season > 1)
    add(std::to_string(o.sdif) + " seasonal difference" + (o.sdif > 1 ? "s" : "") + " at lag " + std::to_string(season));
  return text;
}

int report(const Settings& settings, const std::vector<std::string>& words) {
  const OptionValues values = parse_options(spec(), words);
  check_variable(values, "var");
  check_variable(values, "time");
  const std::optional<long> season_option = values.integer("season", 0);
  const std::string& out = values.get("out");
  check_out_file(out);
  if (values.find("fit") != nullptr && values.find("forecast") == nullptr)
    throw UsageError("--fit goes with --forecast");

  host::Host host;
  DataNames names(host.datasets());
  for (const std::string& library : settings.libraries) names.bind(library);
  std::vector<DataSetName> data_sets{{"--in", values.get("in"), {}, false}};
  if (const std::string* f = values.find("forecast")) data_sets.push_back({"--forecast", *f, {}, false});
  names.resolve(data_sets);
  auto shown = [](const DataSetName& d) { return d.path ? d.given + " (" + d.name + ")" : d.name; };
  const List* option_list =
      values.find("options") ? &load_parameters(host.lists(), "--options", values.get("options")) : nullptr;
  const ReportOptions options = read_options(option_list);
  const List* fit = values.find("fit") ? &load_parameters(host.lists(), "--fit", values.get("fit")) : nullptr;

  // The intermediate data sets live in memory, in a library under a name that
  // no --lib binding uses.
  std::string scratch_name = kScratch;
  for (int i = 1; host.datasets().library(scratch_name) != nullptr; ++i) scratch_name = kScratch + std::to_string(i);
  std::string error;
  if (!host.datasets().bind(scratch_name, std::make_unique<MemoryLibrary>(std::make_shared<MemoryStore>()), error)) {
    std::fprintf(stderr, "fmsd report: %s\n", error.c_str());
    return 1;
  }

  const std::string path = settings.module_path.empty() ? host::default_module_path() : settings.module_path;
  std::unique_ptr<host::Module> module = host::Module::load(host, path, error);
  if (!module) {
    std::fprintf(stderr, "fmsd: cannot use the module: %s\n", error.c_str());
    return 1;
  }

  try {
    Services services(host, *module);
    Inputs in;
    in.var = values.get("var");
    in.shown_in = shown(data_sets[0]);
    const std::string& in_name = data_sets[0].name;
    const Data input = read_data_set(host.datasets(), in_name, in.shown_in);
    const int var_column = input.find(in.var);
    if (var_column < 0) throw Failure("data set " + in.shown_in + " has no variable " + in.var);
    if (!input.columns[static_cast<std::size_t>(var_column)].numeric)
      throw Failure("variable " + in.var + " of " + in.shown_in + " is not numeric");
    if (input.rows == 0) throw Failure("data set " + in.shown_in + " has no observations");
    in.series = column(input, in.var);
    const int time = time_column(input, values.find("time"), in.var, in.shown_in);
    if (time >= 0) {
      in.time_name = input.columns[static_cast<std::size_t>(time)].name;
      in.time = column(input, in.time_name);
      in.axis = axis_of(input.columns[static_cast<std::size_t>(time)]);
    } else {
      in.time_name = "observation";
      for (std::size_t i = 0; i < input.rows; ++i) in.time.push_back(static_cast<double>(i + 1));
    }
    in.season = season_option ? static_cast<int>(*season_option) : infer_season(in.time, in.axis);
    const std::string carry = time >= 0 ? in.time_name : in.var;
    const std::string about = "for input " + in.shown_in + ", variable " + in.var;
    auto scratch_member = [&](const char* member) { return scratch_name + "." + member; };
    auto series_of = [&](const char* member) {
      return column(read_data_set(host.datasets(), scratch_member(member), member), in.var);
    };

    // mtstran on the input, with an option list made from the given items.
    auto transform = [&](const char* member, const std::vector<std::pair<std::string, Value>>& items) {
      host::List& list = host.lists().create();
      for (const auto& [name, value] : items) host.lists().insert(list, -1, name, value);
      host::Arguments a;
      a.word(0).text(in_name).text(in.var).text(carry).integer(in.season).word(list.id()).text(scratch_member(member));
      return services.run("mtstran", a, about);
    };

    Page page;
    series_panel(page, in);

    // The correlations and tests are of the treated series.
    std::string diagnosed = in_name;
    std::vector<double> treated = in.series;
    page.open(kTreatedPanel);
    if (options.treated()) {
      std::vector<std::pair<std::string, Value>> items;
      if (options.trnstype) items.emplace_back("TRNSTYPE", Value::string(options.trnstype->text));
      if (options.trnsparm) {
        double v = 0;
        host::read_double(*options.trnsparm, v);
        items.emplace_back("TRNSPARM", Value::real(v));
      }
      items.emplace_back("DIF", Value::small(options.dif));
      items.emplace_back("SDIF", Value::small(options.sdif));
      const double code = transform("TREATED", items);
      treated = series_of("TREATED");
      diagnosed = scratch_member("TREATED");
      page.note("The series after: " + treatment_text(options, in.season) + "." +
                (code == 2 ? " Every treated value is missing." : ""));
    } else {
      page.note("No transformation or difference was asked for (TRNSTYPE, DIF, SDIF): the series is analysed as it "
                "stands.");
    }
    svg::Chart tc = time_chart(in.axis, "treated " + in.var);
    tc.x_label = in.time_name;
    tc.lines.push_back({in.time, treated, kGreen, "treated " + in.var, false, false});
    page.chart(tc);
    page.close();

    page.open(kDecompositionPanel);
    if (in.season > 1) {
      const std::string type = options.multiplicative ? "MULTIPLICATIVE" : "ADDITIVE";
      struct Component {
        const char* code;
        const char* member;
        const char* title;
        const char* colour;
      };
      const Component components[] = {{"TC", "TC", "Trend-cycle", kRed},
                                      {"SC", "SC", "Seasonal component", kPurple},
                                      {"IC", "IC", "Irregular component", kBrown},
                                      {"SA", "SA", "Seasonally adjusted series", kBlue}};
      bool additive = false;
      for (const Component& comp : components) {
        host::List& cd = host.lists().create();
        host.lists().insert(cd, -1, "CDTYPE", Value::string(type));
        host.lists().insert(cd, -1, "CDCOMP", Value::string(comp.code));
        additive = transform(comp.member, {{"CDLIST", Value::list(cd)}}) == 3 || additive;
      }
      page.note("Classical " + std::string(additive || !options.multiplicative ? "additive" : "multiplicative") + " decomposition with period " +
                std::to_string(in.season) + "." +
                (additive ? " The series has a value that is zero or negative, so an additive decomposition was done "
                            "instead of a multiplicative one."
                          : ""));
      for (const Component& comp : components) {
        page.heading(comp.title);
        svg::Chart c = time_chart(in.axis, comp.code);
        c.height = 180;
        if (comp.code == std::string("TC")) c.lines.push_back({in.time, in.series, kGrey, in.var, false, false});
        c.lines.push_back({in.time, series_of(comp.member), comp.colour, comp.title, false, false});
        page.chart(c);
      }
    } else {
      page.note("No seasonal cycle: give --season S (S of 2 or more) for a decomposition.");
      svg::Chart c = time_chart(in.axis, in.var);
      c.lines.push_back({in.time, in.series, kGrey, in.var, false, false});
      page.chart(c);
    }
    page.close();

    // mtsscov on the treated series.
    host::List& dlist = host.lists().create();
    auto test_spec = [&](const List* given, int dlag) {
      if (given != nullptr) return Value::list(host.lists().copy(*given));
      host::List& l = host.lists().create();
      host.lists().insert(l, -1, "TYPE", Value::string("SINGLEMEAN"));
      host.lists().insert(l, -1, "STATTYPE", Value::string("STUDENTIZED"));
      host.lists().insert(l, -1, "MAXAR", Value::whole(std::min(options.nlags, kDefaultMaxAr)));
      host.lists().insert(l, -1, "DLAG", Value::whole(dlag));
      return Value::list(l);
    };
    host.lists().insert(dlist, -1, "UNITROOT", test_spec(options.unitroot, 1));
    if (options.seasonur != nullptr || (in.season >= 2 && in.season <= 12))
      host.lists().insert(dlist, -1, "SEASONUR", test_spec(options.seasonur, in.season));
    host::List& result = host.lists().create();
    host::Arguments a;
    a.text(diagnosed).text(in.var).missing().integer(options.nlags).word(dlist.id());
    a.text(scratch_member("DIAG")).word(result.id()).missing();
    const double code = services.run("mtsscov", a, about);
    const List* summary = &result;
    if (const std::optional<double> id = a.result(8); id && *id > 0)
      if (const List* l = host.lists().find(static_cast<fmsd_word>(*id))) summary = l;
    const Data diag = read_data_set(host.datasets(), scratch_member("DIAG"), "the diagnostics");
    const std::vector<double> lags = column(diag, "LAG");

    page.open(kCorrelationPanel);
    page.note("Of the treated series; the shaded band is two standard errors either side of 0 (Bartlett's for the "
              "autocorrelations, 1/sqrt(n) for the partial and inverse ones)." +
              std::string(code == 1 ? " The series is too short for the lags asked for: fewer are shown." : ""));
    const struct {
      const char* title;
      const char* name;
      const char* lower;
      const char* upper;
    } functions[] = {{"Autocorrelation function", "ACF", "LACF", "UACF"},
                     {"Partial autocorrelation function", "PACF", "LPACF", "UPACF"},
                     {"Inverse autocorrelation function", "IACF", "LIACF", "UIACF"}};
    for (const auto& f : functions) {
      page.heading(f.title);
      page.chart(correlation_chart(lags, column(diag, f.name), column(diag, f.lower), column(diag, f.upper), f.name));
    }
    page.close();

    page.open(kTestsPanel);
    page.note("Ljung-Box white-noise probabilities up to each lag, and Dickey-Fuller unit-root probabilities for "
              "each number of augmenting lags; the dashed line is 0.05.");
    svg::Chart pc;
    pc.x_label = "lag";
    pc.y_label = "probability";
    pc.y_range = std::make_pair(0.0, 1.0);
    pc.y_rules = {0.05};
    pc.lines.push_back({lags, column(diag, "WNOISE"), kBlue, "white noise", false, true});
    pc.lines.push_back({lags, column(diag, "UNITROOT"), kRed, "unit root", false, true});
    pc.lines.push_back({lags, column(diag, "SEASONUR"), kGreen, "seasonal unit root", true, true});
    page.chart(pc);
    std::vector<std::vector<std::string>> rows;
    for (const auto& owned : summary->items()) {
      double v = 0;
      rows.push_back({owned->name, host::read_double(*owned, v) ? number_text(v) : "missing"});
    }
    page.heading("Summary");
    page.table({"item", "value"}, rows);
    page.close();

    if (data_sets.size() > 1) {
      const std::string shown_fc = shown(data_sets[1]);
      const Data fc = read_data_set(host.datasets(), data_sets[1].name, shown_fc);
      if (fc.find(options.predict) < 0)
        throw Failure("forecast data set " + shown_fc + " has no variable " + options.predict +
                      " (name the forecast variables with the FORECAST option)");
      page.open(kForecastPanel);
      // fmsd forecast keeps the series under its own name; other models may call it ACTUAL.
      const std::string actual = !options.actual.empty() ? options.actual : fc.find("ACTUAL") >= 0 ? "ACTUAL" : in.var;
      const int ft = time_column(fc, values.find("time"), actual, shown_fc);
      std::vector<double> when;
      svg::Axis axis = svg::Axis::Number;
      if (ft >= 0) {
        when = column(fc, fc.columns[static_cast<std::size_t>(ft)].name);
        axis = axis_of(fc.columns[static_cast<std::size_t>(ft)]);
      } else {
        for (std::size_t i = 0; i < fc.rows; ++i) when.push_back(static_cast<double>(i + 1));
      }
      svg::Chart c = time_chart(axis, in.var);
      c.height = 280;
      c.bands.push_back({when, column(fc, options.lower), column(fc, options.upper), kLightRed, "confidence limits"});
      c.lines.push_back({when, column(fc, actual), "#222222", "actual", false, true});
      c.lines.push_back({when, column(fc, options.predict), kRed, "forecast", false, false});
      auto stored = [&](const std::string& name) {
        const int at = fc.find(name);
        return at < 0 ? name + " (absent)" : fc.columns[static_cast<std::size_t>(at)].name;
      };
      page.note("From " + shown_fc + ": " + stored(actual) + ", " + stored(options.predict) + " and the limits " +
                stored(options.lower) + " to " + stored(options.upper) + ".");
      page.chart(c);
      page.heading("Statistics of fit");
      const Item* labels = fit ? fit->find("NAMES") : nullptr;
      const Item* stats = fit ? fit->find("VALUES") : nullptr;
      if (stats != nullptr && stats->kind() == FMSD_ITEM_LIST) {
        std::vector<std::vector<std::string>> fit_rows;
        for (const auto& owned : stats->sublist->items()) {
          const Item* label = labels && labels->kind() == FMSD_ITEM_LIST ? labels->sublist->find(owned->name) : nullptr;
          double v = 0;
          fit_rows.push_back({owned->name, label && label->kind() == FMSD_ITEM_TEXT ? label->text : "",
                              host::read_double(*owned, v) ? number_text(v) : "missing"});
        }
        page.table({"statistic", "label", "value"}, fit_rows);
      } else if (fit != nullptr) {
        throw Failure("--fit " + values.get("fit") + ": no VALUES object, as modout's result list holds");
      } else {
        page.note("Give modout's result list with --fit to show the statistics of fit.");
      }
      page.close();
    }

    std::string html =
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>fmsd report: " +
        svg::escape(in.var) + "</title>\n<style>\n" + kStyle + "</style>\n</head>\n<body>\n<h1>" +
        svg::escape(in.var) + " in " + svg::escape(in.shown_in) + "</h1>\n<p class=\"about\">fmsd " + FMSD_VERSION +
        " report on the series " + svg::escape(in.var) + " against " + svg::escape(in.time_name) + ".</p>\n" +
        page.html() + "</body>\n</html>\n";
    ResultFile file(out);
    if (!file.stage(html) || !file.commit()) throw Failure(file.error());
  } catch (const Failure& e) {
    std::fprintf(stderr, "fmsd report: %s; nothing was written\n", e.what());
    return 1;
  }
  return 0;
}

}  // namespace

int run_report(const Settings& settings, const std::vector<std::string>& words, bool help) {
  if (help) {
    std::fputs(help_text(spec()).c_str(), stdout);
    return 0;
  }
  try {
    return report(settings, words);
  } catch (const UsageError& e) {
    std::fprintf(stderr, "fmsd report: %s\n%s(fmsd report --help tells more)\n", e.what(), usage_line(spec()).c_str());
    return 2;
  }
}

}  // namespace fmsd::app
