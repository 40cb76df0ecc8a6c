// The model data service, loaded and called through its registered service table
// as the command line calls it: parameters as host lists from JSON, data sets as
// CSV files in a temporary directory, each call inside the host's call bracket.
// Expected data sets come from tools/moddata_reference.py.
#include <cmath>
#include <string>

#include "tests/services/service_test.h"

namespace {

using namespace fmsd_test;

// Dates and missing values compare as text, numbers to within rounding.
void expect_same(const Rows& actual, const Rows& expected) {
  ASSERT_EQ(actual.size(), expected.size());
  ASSERT_EQ(actual[0], expected[0]);
  for (std::size_t i = 1; i < expected.size(); ++i)
    for (std::size_t j = 0; j < expected[0].size(); ++j) {
      const std::string &a = actual[i][j], &e = expected[i][j];
      if (e.empty() || e.find('-', 1) == 4) {
        EXPECT_EQ(a, e) << "row " << i << ", " << expected[0][j];
      } else {
        const double x = a.empty() ? NAN : std::stod(a), y = std::stod(e);
        EXPECT_NEAR(x, y, 1e-14 * std::fabs(y)) << "row " << i << ", " << expected[0][j];
      }
    }
}

class ModData : public ServiceTest {
 protected:
  void SetUp() override { attach(1, true); }

  Rows output() { return parse(contents("out")); }

  using ServiceTest::call;
  double call(const std::string& parameters, const std::string& in = "T.IN", const std::string& out = "T.OUT") {
    Arguments args;
    args.word(0).word(list(parameters)).text(in).text(out);
    return call(args);
  }
};

const std::string kInput = "DATE,SALES,NAME\n1990-01-01,10,\"a\"\n1990-02-01,11,\"b\"\n1990-03-01,12,\"c\"\n"
                           "1990-04-01,13,\"d\"\n";
const std::string kActual = R"({"VARTYPE": "ACTUAL", "OLDNAME": "SALES", "VARNAME": "SALES"})";

std::string parameters(const std::string& vars = kActual,
                       const std::string& ranges = R"({"DATA_RANGE": {"NOBS": 4, "STDATE": 10958}})",
                       const std::string& interval = R"({"INTERVAL": "MONTH", "SINTERVAL": "YEAR"})",
                       const std::string& more = "") {
  return R"({"INTERVALINFO": )" + interval + R"(, "TIME_RANGES": )" + ranges + more +
         R"(, "VARLIST": [{"VARTYPE": "TIMEID", "OLDNAME": "DATE", "VARNAME": "DATE"}, )" + vars + "]}";
}

// ---- what it writes ----------------------------------------------------------------

// Two input months lie before the data start, twelve points follow the data; the
// actual series is adjusted and logged, and trend curves are centred for a QUAD.
TEST_F(ModData, MonthlyModelDataMatchesTheReference) {
  write("in", fixture("moddata_monthly_in.csv"));
  ASSERT_EQ(call(fixture("moddata_monthly.json")), 0);
  expect_same(output(), parse(fixture("moddata_monthly_out.csv")));

  // An adjustment-only model, named by a leading part of "ADJONLY", keeps the
  // adjustments out of the actual series.
  std::string adjonly = fixture("moddata_monthly.json");
  adjonly.replace(adjonly.find("\"ARIMA\""), 7, "\"ADJ\"");
  ASSERT_EQ(call(adjonly), 0);
  const Column sales = column(parse(fixture("moddata_monthly_in.csv")), "SALES");
  const Column actual = column(output(), "SALES");
  for (std::size_t k = 0; k < 30; ++k) {
    if (sales[k + 2].empty()) {
      EXPECT_EQ(actual[k], "");
    } else {
      EXPECT_DOUBLE_EQ(std::stod(actual[k]), std::log(std::stod(sales[k + 2]))) << k;
    }
  }
}

TEST_F(ModData, WeeklySeasonsShareTheFiftyThirdWeek) {
  write("in", fixture("moddata_weekly_in.csv"));
  ASSERT_EQ(call(fixture("moddata_weekly.json")), 0);
  expect_same(output(), parse(fixture("moddata_weekly_out.csv")));
}

TEST_F(ModData, TimeIDsFollowTheAlignment) {
  write("in", kInput);
  ASSERT_EQ(call(parameters(kActual, R"({"DATA_RANGE": {"NOBS": 3, "STDATE": 10958}})",
                            R"({"INTERVAL": "MONTH", "SINTERVAL": "YEAR"})", R"(, "ALIGN": "END")")),
            0);
  EXPECT_EQ(column(output(), "DATE"), (Column{"1990-01-31", "1990-02-28", "1990-03-31"}));
}

// The data range may ask for more points than the input holds: the points after
// the input's last row have missing inputs and computed regressors.
TEST_F(ModData, TheDataRangeMayRunPastTheInput) {
  write("in", kInput);
  const std::string dummies = R"(, {"VARTYPE": "SD", "VARNAME": "JAN", "FROM": "G"},
                                   {"VARTYPE": "SD", "VARNAME": "FEB", "FROM": "G"})";
  ASSERT_EQ(call(parameters(kActual + dummies, R"({"DATA_RANGE": {"NOBS": 14, "STDATE": 10958}})",
                            R"({"INTERVAL": "MONTH", "SINTERVAL": "YEAR", "NSEASONS": 12})")),
            0);
  const Rows out = output();
  Column sales{"10", "11", "12", "13"};
  sales.resize(14);
  EXPECT_EQ(column(out, "SALES"), sales);
  EXPECT_EQ(column(out, "JAN"), (Column{"1", "0", "0", "0", "0", "0", "0", "0", "0", "0", "0", "0",
                                                          "1", "0"}));
  EXPECT_EQ(column(out, "FEB")[13], "1");

  // Without a dummy row the seasonal dummies are missing.
  ASSERT_EQ(call(parameters(kActual + dummies, R"({"DATA_RANGE": {"NOBS": 2, "STDATE": 10958}})",
                            R"({"INTERVAL": "MONTH", "SINTERVAL": "YEAR", "NSEASONS": 1})")),
            0);
  EXPECT_EQ(column(output(), "JAN"), (Column{"", ""}));
  // Without a data range the unknown input count leaves no point to write.
  ASSERT_EQ(call(parameters(kActual, "{}")), 0);
  EXPECT_EQ(output().size(), 1u);
}

TEST_F(ModData, AFailedReadKeepsTheRowsBeforeIt) {
  write("in", kInput);
  host_.datasets().fail_read("T.IN", 3);
  ASSERT_EQ(call(parameters()), 0);
  EXPECT_EQ(column(output(), "SALES"), (Column{"10", "11"}));
}

// ---- refusals: each leaves an existing output as it was -----------------------------------

class Refused : public ModData {
 protected:
  void SetUp() override {
    ModData::SetUp();
    write("in", kInput);
    write("out", "X\n1\n");
  }
  void TearDown() override {
    EXPECT_EQ(contents("out"), "X\n1\n");
    ModData::TearDown();
  }
};

TEST_F(Refused, ArgumentsAndParameterListsThatDoNotFit) {
  const fmsd_word list = this->list(parameters());
  Arguments text_first, no_list, no_output;
  text_first.text("X").word(list).text("T.IN").text("T.OUT");
  no_list.word(0).word(0).text("T.IN").text("T.OUT");
  no_output.word(0).word(list).text("T.IN").text("");
  for (Arguments* args : {&text_first, &no_list, &no_output}) EXPECT_EQ(call(*args), -998);

  EXPECT_EQ(call(R"({"VARLIST": []})"), -998) << "no interval information";
  EXPECT_EQ(call(parameters(kActual, "{}", R"({"INTERVAL": "MONTH"})")), -998) << "no seasonal interval";
  EXPECT_EQ(call(R"({"INTERVALINFO": {"INTERVAL": "MONTH", "SINTERVAL": "YEAR"}})"), -998) << "no variables";
  EXPECT_EQ(call(parameters(R"({"VARTYPE": "REG", "OLDNAME": "SALES", "VARNAME": "SALES"})")), -998);
  EXPECT_EQ(call(parameters(kActual + R"(, {"VARTYPE": "ACTUAL", "OLDNAME": "SALES", "VARNAME": "B"})")), -998);

  EXPECT_EQ(call(parameters(kActual, R"({"DATA_RANGE": {"NOBS": 0}})")), -997);
  EXPECT_EQ(call(parameters(kActual, R"({"DATA_RANGE": {"NOBS": 4, "STDATE": 10958},
                                          "FIT_RANGE": {"ENDDATE": 0}})")),
            -997);
}

TEST_F(Refused, DataSetsAndVariablesThatCannotBeUsed) {
  EXPECT_EQ(call(parameters(), "T.NONE"), -996);
  EXPECT_EQ(call(parameters(), "T.IN", "T.1OUT"), -996);
  EXPECT_EQ(call(parameters(R"({"VARTYPE": "ACTUAL", "OLDNAME": "VOLUME", "VARNAME": "SALES"})")), -996);
  EXPECT_EQ(call(parameters(R"({"VARTYPE": "ACTUAL", "OLDNAME": "NAME", "VARNAME": "SALES"})")), -996)
      << "a character variable";
  EXPECT_EQ(call(parameters(R"({"VARTYPE": "ACTUAL", "OLDNAME": "SALES", "VARNAME": "1SALES"})")), -996)
      << "an output name the host refuses";
  EXPECT_EQ(call(parameters(kActual, R"({"DATA_RANGE": {"NOBS": 4, "STDATE": 11100}})")), -996)
      << "every observation before the data start";

  // A call whose input variable cannot be bound ends as a success that writes
  // nothing: here two variables read the only column of the input.
  write("one", "DATE\n1990-01-01\n");
  EXPECT_EQ(call(parameters(R"({"VARTYPE": "ACTUAL", "OLDNAME": "DATE", "VARNAME": "SALES"})"), "T.ONE"), 0);
}

TEST_F(Refused, DataSetFaults) {
  auto& datasets = host_.datasets();
  for (const char* name : {"T.IN", "T.OUT"}) {
    datasets.fail_open(name);
    EXPECT_EQ(call(parameters()), -996) << name;
    datasets.clear_faults();
  }
  datasets.fail_read("T.IN", 1);  // fails while counting and again after
  EXPECT_EQ(call(parameters()), -996);
  datasets.clear_faults();
  // The host does not save an output with a row it could not write, though the
  // call still counts as a success.
  datasets.fail_write("T.OUT", 2);
  EXPECT_EQ(call(parameters()), 0);
}

TEST_F(Refused, EveryAllocationFailureGivesMinus999) {
  host_.pool().fail_after(1000000);
  ASSERT_EQ(call(parameters()), 0);
  const long allocations = host_.pool().allocations();
  ASSERT_GE(allocations, 9);
  write("out", "X\n1\n");
  for (long n = 1; n <= allocations; ++n) {
    host_.pool().fail_nth(n);
    host_.pool().reset_failed();
    EXPECT_EQ(call(parameters()), -999) << n;
  }
  host_.pool().clear_faults();
  host_.pool().reset_failed();
}

}  // namespace
