// The series transformation service, loaded and called through its registered
// service table as the command line calls it: options as host lists from JSON,
// data sets as CSV files in a temporary directory, each call inside the host's call
// bracket.  Expected series come from tools/mtstran_reference.py.
#include <cmath>
#include <optional>
#include <string>

#include "tests/services/service_test.h"

namespace {

using namespace fmsd_test;

// Missing values compare as empty cells, numbers to within a few rounding errors.
void expect_near(const Column& actual, const Column& expected, double tolerance, const std::string& what) {
  ASSERT_EQ(actual.size(), expected.size()) << what;
  for (std::size_t i = 0; i < expected.size(); ++i) {
    if (expected[i].empty() || actual[i].empty()) {
      EXPECT_EQ(actual[i], expected[i]) << what << ", row " << i;
    } else {
      const double x = std::stod(actual[i]), y = std::stod(expected[i]);
      EXPECT_NEAR(x, y, tolerance * std::fmax(1.0, std::fabs(y))) << what << ", row " << i;
    }
  }
}

const std::string kSmall = "DATE,SALES,NAME\n1990-01-01,4,a\n1990-02-01,5,b\n1990-03-01,0,c\n1990-04-01,2,d\n"
                           "1990-05-01,3,e\n";

class MtsTran : public ServiceTest {
 protected:
  void SetUp() override {
    attach(2, true);
    check_pool_ = true;
    write("in", fixture("mtstran_in.csv"));
    write("small", kSmall);
  }

  Rows output() { return parse(contents("out")); }
  Column treated() { return column(output(), 1); }

  using ServiceTest::call;
  // A season length of nullopt is passed as a missing argument.
  double call(std::optional<std::string> options, std::optional<long> season = 12, const std::string& in = "T.IN",
              const std::string& var = "SALES", const std::string& carry = "DATE", const std::string& out = "T.OUT") {
    Arguments args;
    args.word(0).text(in).text(var).text(carry);
    season ? args.integer(*season) : args.missing();
    args.word(options ? list(*options) : 0).text(out);
    return call(args);
  }
};

// ---- what it writes ----------------------------------------------------------------

TEST_F(MtsTran, TreatedSeriesMatchTheReference) {
  const Rows cases = parse(fixture("mtstran_cases.csv"), ';');
  const Rows expected = parse(fixture("mtstran_expected.csv"));
  const Column dates = column(parse(fixture("mtstran_in.csv")), 0);
  for (std::size_t k = 0; k < cases.size(); ++k) {
    const std::string& name = cases[k][0];
    ASSERT_EQ(expected[0][k], name);
    ASSERT_EQ(call(cases[k][2], std::stol(cases[k][1])), 0) << name;
    const Rows out = output();
    EXPECT_EQ(out[0], (std::vector<std::string>{"DATE", "SALES"})) << name;
    EXPECT_EQ(column(out, 0), dates) << name << ": the carried variable";
    expect_near(column(out, 1), column(expected, k), 1e-12, name);
  }
}

TEST_F(MtsTran, OptionListsThatAskForLittle) {
  const Rows expected = parse(fixture("mtstran_expected.csv"));
  const Column series = column(parse(fixture("mtstran_in.csv")), 1);

  // No items at all: the percent change, first value missing.
  ASSERT_EQ(call("{}"), 0);
  expect_near(treated(), column(expected, 3), 1e-12, "no option items");
  // No option list: the series as it is.
  ASSERT_EQ(call(std::nullopt), 0);
  EXPECT_EQ(treated(), series);
  // Seasonal differences need a season of at least 2.
  for (const std::optional<long> s : {std::optional<long>(1), std::optional<long>(0), std::optional<long>(-12),
                                      std::optional<long>()}) {
    ASSERT_EQ(call(R"({"SDIF": 2})", s), 0);
    EXPECT_EQ(treated(), series) << "season " << s.value_or(999);
  }
  // An unknown transformation name is no transformation; "log" is not "LOG".
  ASSERT_EQ(call(R"({"TRNSTYPE": "log", "DIF": 0})"), 0);
  EXPECT_EQ(treated(), series);
  // Items of another kind count as absent.
  ASSERT_EQ(call(R"({"DIF": 1.5, "PCHANGE": "yes"})"), 0);
  EXPECT_EQ(treated(), series);
}

TEST_F(MtsTran, DecompositionWordsAreMatchedAsWritten) {
  const Rows expected = parse(fixture("mtstran_expected.csv"));
  const Column series = column(parse(fixture("mtstran_in.csv")), 1);
  // Column 8 is the multiplicative adjusted series, 6 the multiplicative seasonal, 12 the additive adjusted.
  const struct {
    const char* type;
    const char* component;
    std::size_t reference;
  } cases[] = {{"MULTIPLICATIVE", "tc", 8},  {"M", "TREND", 8},       {"MULTIPLICATIVELY", "SC", 6},
               {"A", "", 12},                {"ADDITIVELY", "SA", 12}};
  for (const auto& c : cases) {
    ASSERT_EQ(call(std::string(R"({"CDLIST": {"CDTYPE": ")") + c.type + R"(", "CDCOMP": ")" + c.component + "\"}}"),
              0);
    expect_near(treated(), column(expected, c.reference), 1e-12, std::string(c.type) + " " + c.component);
  }
  ASSERT_EQ(call(R"({"CDLIST": {"CDTYPE": "mult"}})"), 0);
  EXPECT_EQ(treated(), series) << "no decomposition";
}

TEST_F(MtsTran, PercentChangeAfterAZeroIsMissing) {
  ASSERT_EQ(call(R"({"PCHANGE": 1})", 0, "T.SMALL"), 0);
  EXPECT_EQ(treated(), (Column{"", "25", "-100", "", "50"}));
}

// The differences of the small series hold a zero: a multiplicative decomposition
// cannot use it, so the additive one is returned with result 3.
TEST_F(MtsTran, MultiplicativeFallsBackToAdditive) {
  ASSERT_EQ(call(R"({"DIF": 1, "CDLIST": {"CDTYPE": "ADD", "CDCOMP": "TC"}})", 3, "T.SMALL"), 0);
  const Column additive = treated();
  // Differences 1, -5, 2, 1 from the second value; 3-term means of the values
  // present, missing at both ends.
  expect_near(additive, Column{"", "-2", "-0.66666666666666663", "-0.66666666666666663", ""}, 1e-15, "additive");
  ASSERT_EQ(call(R"({"DIF": 1, "CDLIST": {"CDTYPE": "MULT", "CDCOMP": "TC"}})", 3, "T.SMALL"), 3);
  EXPECT_EQ(treated(), additive);
  // The percent change leaves a -100 behind the zero.
  EXPECT_EQ(call(R"({"PCHANGE": 1, "CDLIST": {"CDTYPE": "M", "CDCOMP": "SC"}})", 2, "T.SMALL"), 3);
}

// Every value missing is a notice, whatever the number of differences.
TEST_F(MtsTran, EveryValueMissingIsANotice) {
  EXPECT_EQ(call(R"({"DIF": 32767})"), 2);
  EXPECT_EQ(treated(), Column(72, ""));
  EXPECT_EQ(call(R"({"SDIF": 6})"), 2);
  write("gaps", "DATE,SALES\n1990-01-01,\n1990-02-01,\n");
  EXPECT_EQ(call(R"({"TRNSTYPE": "LOG"})", 12, "T.GAPS"), 2) << "an all-missing series passes the domain test";
}

// A database table tells its size without being read; the result is the same.
TEST_F(MtsTran, AnInputThatKnowsItsSize) {
  std::string error;
  ASSERT_TRUE(host_.datasets().bind_database("D", (dir_ / "d.db").string(), error)) << error;
  ASSERT_EQ(call(std::nullopt, 12, "T.IN", "SALES", "DATE", "D.IN"), 0);
  const std::string options = R"({"TRNSTYPE": "LOG", "DIF": 1, "SDIF": 1})";
  ASSERT_EQ(call(options, 12, "D.IN"), 0);
  const Rows from_table = output();
  ASSERT_EQ(call(options), 0);
  EXPECT_EQ(from_table, output());
}

// ---- refusals: each leaves an existing output as it was -----------------------------------

class MtsTranRefused : public MtsTran {
 protected:
  void SetUp() override {
    MtsTran::SetUp();
    write("out", "X\n1\n");
  }
  void TearDown() override {
    EXPECT_EQ(contents("out"), "X\n1\n");
    MtsTran::TearDown();
  }
};

TEST_F(MtsTranRefused, ArgumentsThatDoNotFit) {
  for (int empty = 0; empty < 4; ++empty) {  // each name left empty in turn
    std::string names[4] = {"T.IN", "SALES", "DATE", "T.OUT"};
    names[empty].clear();
    EXPECT_EQ(call("{}", 12, names[0], names[1], names[2], names[3]), -998) << empty;
  }
  Arguments text_first, text_season, no_list;
  text_first.text("X").text("T.IN").text("SALES").text("DATE").integer(12).word(list("{}")).text("T.OUT");
  text_season.word(0).text("T.IN").text("SALES").text("DATE").text("12").word(list("{}")).text("T.OUT");
  no_list.word(0).text("T.IN").text("SALES").text("DATE").integer(12).word(987654).text("T.OUT");
  for (Arguments* args : {&text_first, &text_season, &no_list}) EXPECT_EQ(call(*args), -998);
}

TEST_F(MtsTranRefused, DataSetsAndVariablesThatCannotBeUsed) {
  EXPECT_EQ(call("{}", 12, "T.NONE"), -996);
  EXPECT_EQ(call("{}", 12, "T.IN", "SALES", "DATE", "T.1OUT"), -996);
  EXPECT_EQ(call("{}", 12, "T.IN", "VOLUME"), -996);
  EXPECT_EQ(call("{}", 12, "T.IN", "SALES", "TIME"), -996);
  EXPECT_EQ(call("{}", 12, "T.SMALL", "NAME"), -996) << "a character series";
  EXPECT_EQ(call("{}", 12, "T.SMALL", "SALES", "NAME"), -996) << "a character carried variable";
  EXPECT_EQ(call("{}", 12, "T.IN", "SALES", "SALES"), -996) << "one variable cannot be written twice";
  write("empty", "DATE,SALES\n");
  EXPECT_EQ(call("{}", 12, "T.EMPTY"), -996);
}

TEST_F(MtsTranRefused, TransformationsAndDecompositionsThatCannotRun) {
  EXPECT_EQ(call(R"({"TRNSTYPE": "LOG"})", 0, "T.SMALL"), -899);
  EXPECT_EQ(call(R"({"TRNSTYPE": "LOG", "TRNSPARM": 1})", 0, "T.SMALL"), -899) << "the parameter is not considered";
  EXPECT_EQ(call(R"({"TRNSTYPE": "LOG", "TRNSOPT": "INVERSE"})", 0, "T.SMALL"), -899) << "nor the direction";
  // A decomposition without a season, and a multiplicative one of values too
  // small for its trend-cycle.
  EXPECT_EQ(call(R"({"CDLIST": {"CDTYPE": "ADD"}})", 0), -900);
  write("tiny", "DATE,SALES\n1990-01-01,1e-100\n1990-02-01,2e-100\n1990-03-01,3e-100\n1990-04-01,4e-100\n");
  EXPECT_EQ(call(R"({"CDLIST": {"CDTYPE": "MULT", "CDCOMP": "TC"}})", 2, "T.TINY"), -900);
}

TEST_F(MtsTranRefused, DataSetFaults) {
  auto& datasets = host_.datasets();
  for (const char* name : {"T.IN", "T.OUT"}) {
    datasets.fail_open(name);
    EXPECT_EQ(call("{}"), -996) << name;
    datasets.clear_faults();
  }
  // A row that cannot be written keeps the call a success, but the host saves
  // no output with a row missing.
  datasets.fail_write("T.OUT", 5);
  EXPECT_EQ(call(std::nullopt), 0);
  datasets.clear_faults();
}

TEST_F(MtsTranRefused, EveryAllocationFailureGivesMinus999) {
  for (const char* options : {"{}", R"({"CDLIST": {"CDTYPE": "ADD"}})"}) {
    host_.pool().fail_after(1000000);
    ASSERT_EQ(call(options, 12, "T.IN", "SALES", "DATE", "T.NEW"), 0);
    const long allocations = host_.pool().allocations();
    ASSERT_EQ(allocations, options[1] == '}' ? 3 : 5);
    for (long n = 1; n <= allocations; ++n) {
      host_.pool().fail_nth(n);
      host_.pool().reset_failed();
      EXPECT_EQ(call(options), -999) << options << ", allocation " << n;
    }
    host_.pool().clear_faults();
    host_.pool().reset_failed();
  }
}

// A row that cannot be read is missing in the output; the rows after it are not
// read either, because the host ends the data there.
TEST_F(MtsTran, ARowThatCannotBeReadIsMissing) {
  host_.datasets().fail_read("T.SMALL", 3);
  ASSERT_EQ(call(std::nullopt, 0, "T.SMALL"), 0);
  EXPECT_EQ(column(output(), 0), (Column{"1990-01-01", "1990-02-01", ""}));
  EXPECT_EQ(treated(), (Column{"4", "5", ""}));
}

}  // namespace
