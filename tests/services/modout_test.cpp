// The model output service called through the registered service table of the real
// host: reference cases computed with numpy and scipy (tools/modout_reference.py),
// edge cases of the merge, every result code, and failures of memory and data sets.
#include <cmath>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "host/storage.h"
#include "tests/services/service_test.h"

namespace {

using namespace fmsd_test;
using fmsd::host::is_missing;
using Numbers = std::vector<double>;

const double M = std::numeric_limits<double>::quiet_NaN();  // a missing value in the tables below

// A small monthly model: four input rows from January 2020 (one actual missing, a
// character column) and six untransformed forecasts with a standard error of 2 and
// a residual that an untransformed model does not pass on.
constexpr char kInput[] = "DATE,Y,ADJ1,NOTE\n2020-01-01,10,1,\"a\"\n2020-02-01,12,1,\"b\"\n2020-03-01,,1,\"c\"\n"
                          "2020-04-01,14,1,\"d\"\n";
constexpr char kForecast[] =
    "DATE,FORECAST,L95,U95,STD,RESIDUAL\n2020-01-01,9,5,13,2,1\n2020-02-01,13,9,17,2,1\n2020-03-01,11,7,15,2,1\n"
    "2020-04-01,15,11,19,2,1\n2020-05-01,16,12,20,2,1\n2020-06-01,17,13,21,2,1\n";
constexpr char kRanges[] = R"({"DATA_RANGE":{"STDATE":21915,"NOBS":4},"FORCAST_RANGE":{"ENDDATE":22067}})";
constexpr char kVariables[] =
    R"({"VARNAME":"DATE","OLDNAME":"DATE","VARTYPE":"TIMEID"},{"VARNAME":"ACTUAL","OLDNAME":"Y","VARTYPE":"ACTUAL"},)"
    R"({"VARNAME":"PREDICT","OLDNAME":"FORECAST","VARTYPE":"PREDICT"},)"
    R"({"VARNAME":"UPPER","OLDNAME":"U95","VARTYPE":"UPPER"},{"VARNAME":"LOWER","OLDNAME":"L95","VARTYPE":"LOWER"},)"
    R"({"VARNAME":"ERROR","VARTYPE":"ERROR","FROM":"GEN"},{"VARNAME":"STD","OLDNAME":"STD","VARTYPE":"STD"},)"
    R"({"VARNAME":"NERROR","VARTYPE":"NERROR"},{"VARNAME":"RESIDUAL","OLDNAME":"RESIDUAL","VARTYPE":"RESIDUAL"},)"
    R"({"VARNAME":"NRESID","VARTYPE":"NRESID"},{"VARNAME":"ADJ1","OLDNAME":"ADJ1","VARTYPE":"ADJ"})";

// The parameter list as JSON; an empty interval and a variable list of "-" are left out.
struct Params {
  std::string interval = "MONTH";
  std::string ranges = kRanges;
  std::string variables = kVariables;
  std::string more = R"(,"MODELTYPE":"ADJONLY")";

  std::string json() const {
    std::string j = "{\"TIME_RANGES\":" + ranges + more;
    if (!interval.empty()) j += R"(,"INTERVALINFO":{"INTERVAL":")" + interval + "\"}";
    if (variables != "-") j += ",\"VARLIST\":[" + variables + "]";
    return j + "}";
  }
};

void expect_close(const Numbers& got, const Numbers& want, const std::string& what, double tolerance = 1e-12) {
  ASSERT_EQ(got.size(), want.size()) << what;
  for (std::size_t i = 0; i < want.size(); ++i) {
    if (std::isnan(want[i]))
      EXPECT_TRUE(is_missing(got[i])) << what << " row " << i << ": " << got[i];
    else
      EXPECT_NEAR(got[i], want[i], tolerance * std::max(1.0, std::fabs(want[i]))) << what << " row " << i;
  }
}

class ModelOutput : public ServiceTest {
 protected:
  void SetUp() override {
    attach(0, false);
    write("in", kInput);
    write("fc", kForecast);
    write("out", "OLD\n1\n");
  }

  double run(const std::string& params, bool with_results = true, const char* input = "T.IN") {
    results_ = with_results ? host_.lists().create().id() : 0;
    Arguments args;
    args.word(0).word(fmsd::host::json_to_list(host_.lists(), params).id());
    args.text(input).text("T.FC").text("T.OUT").word(results_);
    return call(args);
  }
  double run(const Params& p = {}, bool with_results = true) { return run(p.json(), with_results); }

  // The output data set through the host's storage, dates as day numbers.
  std::map<std::string, Numbers> output(std::vector<std::string>* names = nullptr) {
    std::map<std::string, Numbers> t;
    std::string error;
    auto reader = host_.datasets().library("T")->open("OUT", error);
    if (!reader) ADD_FAILURE() << error;
    if (!reader) return t;
    if (names != nullptr)
      for (const auto& c : reader->columns()) names->push_back(c.name);
    EXPECT_EQ(reader->columns().front().form, fmsd::host::Form::Date);
    std::vector<fmsd::host::Cell> cells(reader->columns().size());
    while (reader->next(cells.data()))
      for (std::size_t i = 0; i < cells.size(); ++i) t[reader->columns()[i].name].push_back(cells[i].number);
    return t;
  }

  fmsd_word results_ = 0;
};

// ---- reference cases -------------------------------------------------------------------

// The quadrature stops once its terms fall below 1e-10 of its sum, which leaves the
// standard error, and the errors normalised by it, good to about 1e-8.
struct Case {
  const char* name;
  double tolerance;
};
void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

class ReferenceCase : public ModelOutput, public ::testing::WithParamInterface<Case> {};

TEST_P(ReferenceCase, MatchesTheIndependentComputation) {
  const std::string name = GetParam().name, series = name.substr(0, name.find('_'));
  const auto numbers = [](const Column& cells) {
    Numbers x;
    for (const std::string& cell : cells) x.push_back(cell.empty() ? M : std::stod(cell));
    return x;
  };
  write("in", fixture(series + "_input.csv"));
  write("fc", fixture(series + "_forecast.csv"));
  ASSERT_EQ(run(fixture(name + "_params.json")), 0) << (host_.log().empty() ? "" : host_.log().back());

  std::vector<std::string> names;
  auto got = output(&names);
  const Rows want = parse(fixture(name + "_expected.csv"));
  EXPECT_EQ(names, want[0]);  // one variable per list entry, in list order
  for (std::size_t j = 0; j < want[0].size(); ++j)
    expect_close(got[want[0][j]], numbers(column(want, j)), name + " " + want[0][j], GetParam().tolerance);

  const fmsd::host::List& results = host_.lists().get(results_);
  ASSERT_EQ(results.size(), 3u);
  const Rows stats = parse(fixture(name + "_fitstats.csv"));
  for (long position = 0; position + 1 < static_cast<long>(stats.size()); ++position) {
    const auto& row = stats[static_cast<std::size_t>(position) + 1];
    const fmsd::host::Item& item = position == 0 ? results.at(1) : results.at(3).sublist->at(position);
    EXPECT_EQ(item.name, row[0]);
    double value = M;
    if (!fmsd::host::read_double(item, value)) value = item.head.number;
    expect_close({value}, numbers({row[1]}), name + " " + item.name, GetParam().tolerance);
  }
}

INSTANTIATE_TEST_SUITE_P(Services, ReferenceCase,
                         ::testing::Values(Case{"log_mean", 1e-12}, Case{"logit_mean", 1e-7},
                                           Case{"logit_median", 1e-7}),
                         [](const auto& p) { return std::string(p.param.name); });

// ---- edge cases of the merge -------------------------------------------------------------------

TEST_F(ModelOutput, AnUntransformedModelPassesValuesThroughAndAddsAdjustmentsBack) {
  // No result list: no statistics, and still a success.
  ASSERT_EQ(run(Params{}, false), 0);
  auto t = output();
  expect_close(t["DATE"], {21915, 21946, 21975, 22006, 22036, 22067}, "DATE");
  expect_close(t["ACTUAL"], {10, 12, M, 14, M, M}, "ACTUAL");
  expect_close(t["PREDICT"], {9, 13, 11, 15, 16, 17}, "PREDICT");
  expect_close(t["ERROR"], {1, -1, M, -1, M, M}, "ERROR");
  expect_close(t["NERROR"], {0.5, -0.5, M, -0.5, M, M}, "NERROR");
  expect_close(t["RESIDUAL"], {M, M, M, M, M, M}, "RESIDUAL");
  expect_close(t["NRESID"], {M, M, M, M, M, M}, "NRESID");

  Params arima;
  arima.more = R"(,"MODELTYPE":"ARIMA")";
  ASSERT_EQ(run(arima), 0);
  t = output();
  expect_close(t["ACTUAL"], {11, 13, M, 15, M, M}, "ACTUAL");
  expect_close(t["PREDICT"], {10, 14, 12, 16, 16, 17}, "PREDICT");
  expect_close(t["UPPER"], {14, 18, 16, 20, 20, 21}, "UPPER");
  expect_close(t["ERROR"], {1, -1, M, -1, M, M}, "ERROR");
}

TEST_F(ModelOutput, ForecastRowsBeforeTheFirstInputRowAreSkipped) {
  write("in", "DATE,Y,ADJ1,NOTE\n2020-03-01,12,0,\"c\"\n2020-04-01,14,0,\"d\"\n");
  ASSERT_EQ(run(), 0);
  auto t = output();
  expect_close(t["DATE"], {21975, 22006, 22036, 22067}, "DATE");
  expect_close(t["ACTUAL"], {12, 14, M, M}, "ACTUAL");
  expect_close(t["PREDICT"], {11, 15, 16, 17}, "PREDICT");
}

// ---- result codes and failures -----------------------------------------------------------------

TEST_F(ModelOutput, EveryRefusalHasItsCodeAndLeavesTheOutputAsItWas) {
  const auto with = [](std::string Params::*field, std::string value) {
    Params p;
    p.*field = std::move(value);
    return p;
  };
  const auto replace = [&](const std::string& from, const std::string& to) {
    std::string v = kVariables;
    return with(&Params::variables, v.replace(v.find(from), from.size(), to));
  };
  const std::string forecast = R"({"VARNAME":"PREDICT","OLDNAME":"FORECAST","VARTYPE":"PREDICT")";
  const struct {
    const char* what;
    Params params;
    double code;
  } cases[] = {
      {"no interval", with(&Params::interval, ""), -998},
      {"unknown interval", with(&Params::interval, "FORTNIGHT"), -998},
      {"no variable list", with(&Params::variables, "-"), -998},
      {"empty variable list", with(&Params::variables, ""), -998},
      {"two actual series", with(&Params::variables, kVariables + std::string(R"(,{"VARTYPE":"ACTUAL"})")), -998},
      {"no forecast", replace(forecast, R"({"VARNAME":"QQ","OLDNAME":"FORECAST")"), -998},
      {"transformed, no RESSTD", replace(forecast, forecast + R"(,"TRNSTYPE":"LOG")"), -998},
      {"empty data range", with(&Params::ranges, R"({"DATA_RANGE":{"STDATE":21915,"NOBS":0}})"), -997},
      {"variable not found", replace(R"("OLDNAME":"U95")", R"("OLDNAME":"U99")"), -996},
      {"character variable", with(&Params::variables, kVariables + std::string(R"(,{"VARNAME":"N","OLDNAME":"NOTE"})")),
       -996},
      {"output variable without a name", replace(R"("VARNAME":"NRESID",)", ""), -996},
      {"no input row in the data range", with(&Params::ranges, R"({"DATA_RANGE":{"STDATE":22100,"NOBS":4}})"), -996},
  };
  for (const auto& c : cases) EXPECT_EQ(run(c.params), c.code) << c.what;
  EXPECT_EQ(run(Params{}.json(), true, "T.NOTHERE"), -996);

  const fmsd_word params = fmsd::host::json_to_list(host_.lists(), Params{}.json()).id();
  Arguments mismatched, no_params, unnamed, not_a_list;
  mismatched.word(0).text("x").text("T.IN").text("T.FC").text("T.OUT").word(0);
  no_params.word(0).word(0).text("T.IN").text("T.FC").text("T.OUT").word(0);
  unnamed.word(0).word(params).text("T.IN").text("").text("T.OUT").word(0);
  not_a_list.word(0).word(params).text("T.IN").text("T.FC").text("T.OUT").word(9999);
  for (Arguments* a : {&mismatched, &no_params, &unnamed, &not_a_list}) EXPECT_EQ(call(*a), -998);
  EXPECT_EQ(contents("out"), "OLD\n1\n");
}

TEST_F(ModelOutput, HostFailuresGiveTheirCodes) {
  const long before = host_.pool().allocations();
  ASSERT_EQ(run(), 0);
  const long blocks = host_.pool().allocations() - before;
  EXPECT_GE(blocks, 11);
  write("out", "OLD\n1\n");
  for (long n = 1; n <= blocks; ++n) {
    host_.pool().fail_nth(n);
    EXPECT_EQ(run(), -999) << "allocation " << n;
    host_.pool().clear_faults();
    host_.pool().reset_failed();
  }
  auto& datasets = host_.datasets();
  for (const char* name : {"T.IN", "T.FC", "T.OUT"}) {
    datasets.fail_open(name);
    EXPECT_EQ(run(), -996) << name;
    datasets.clear_faults();
  }
  // The first forecast row gives its time ID, the first input row places the series.
  for (const char* name : {"T.IN", "T.FC"}) {
    datasets.fail_read(name, 1);
    EXPECT_EQ(run(), -996) << name;
    datasets.clear_faults();
  }
  // An output with a row missing cannot be saved.
  datasets.fail_write("T.OUT", 2);
  EXPECT_EQ(run(), -996);
  EXPECT_EQ(contents("out"), "OLD\n1\n");

  // A read failure inside the series ends it: the rows before it are kept.
  datasets.clear_faults();
  datasets.fail_read("T.IN", 3);
  ASSERT_EQ(run(), 0);
  expect_close(output()["ACTUAL"], {10, 12}, "ACTUAL");
}

}  // namespace
