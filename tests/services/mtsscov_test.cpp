// The series diagnostics service called through the registered service table of the
// real host: a series checked against statsmodels (tools/mtsscov_reference.py), the
// edge cases of short and gappy series, the unit-root specification, every result
// code, and failures of memory, lists and data sets.
#include <cmath>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "services/mtsscov.h"
#include "tests/services/service_test.h"

namespace {

using namespace fmsd_test;
using Table = std::map<std::string, Column>;  // cells as text, empty when missing

Table parse_table(const std::string& text) {
  const Rows rows = parse(text);
  Table t;
  for (std::size_t j = 0; j < rows.at(0).size(); ++j) t[rows[0][j]] = column(rows, j);
  return t;
}

double number(const std::string& cell) { return cell.empty() ? NAN : std::stod(cell); }

constexpr char kHeader[] =
    "LAG,N,ACOV,LACF,ACF,UACF,LPACF,PACF,UPACF,LIACF,IACF,UIACF,WNOISE,UNITROOT,SEASONUR,WN_LP,UR_LP,SUR_LP";
constexpr char kProbabilities[] = ",ACF_PRB,PACF_PRB,IACF_PRB,ACF_LP,PACF_LP,IACF_LP";

class Diagnostics : public ServiceTest {
 protected:
  void SetUp() override {
    attach(3, false);
    check_pool_ = true;
    write("in", fixture("mtsscov_input.csv"));
    write("out", kOld);
  }

  std::string out() { return contents("out"); }
  // Also notes the result list the call leaves.
  double call(Arguments& args) {
    const double result = ServiceTest::call(args);
    list_ = args.result(8).value_or(-1);
    return result;
  }
  double run(std::optional<int> nlags, const std::string& options = "", const std::string& var = "Y",
             double nobs = NAN, double results = 0) {
    Arguments a;
    a.text("T.IN").text(var).number(nobs);
    nlags ? a.integer(*nlags) : a.missing();
    a.word(options.empty() ? 0 : list(options)).text("T.OUT").number(results).missing();
    return call(a);
  }

  // The result list's items: names in order, values by name (missing as NaN).
  std::map<std::string, double> results(std::vector<std::string>* names = nullptr) {
    std::map<std::string, double> r;
    for (const auto& item : host_.lists().get(static_cast<fmsd_word>(list_)).items()) {
      double v = NAN;
      fmsd::host::read_double(*item, v);
      r[item->name] = v;
      if (names != nullptr) names->push_back(item->name);
    }
    return r;
  }

  static constexpr char kOld[] = "OLD\n1\n";
  double list_ = -1;
};

TEST_F(Diagnostics, AgreesWithStatsmodels) {
  ASSERT_EQ(run(12, R"({"CORRPROB": 1})"), 0);
  const std::string text = out();
  EXPECT_EQ(text.substr(0, text.find('\n')), std::string(kHeader) + kProbabilities);
  Table got = parse_table(text);
  for (const auto& [name, column] : parse_table(fixture("mtsscov_expected.csv"))) {
    ASSERT_EQ(got[name].size(), column.size()) << name;
    for (std::size_t k = 0; k < column.size(); ++k) {
      if (column[k].empty())
        EXPECT_TRUE(got[name][k].empty()) << name << " lag " << k;
      else
        EXPECT_NEAR(number(got[name][k]), number(column[k]), 1e-9) << name << " lag " << k;
    }
  }
  // No unit-root test without a TYPE; no seasonal test without SEASONUR.
  for (const char* name : {"UNITROOT", "SEASONUR", "UR_LP", "SUR_LP"})
    EXPECT_EQ(got[name], std::vector<std::string>(13, "")) << name;

  std::vector<std::string> items;
  auto r = results(&items);
  EXPECT_EQ(items, (std::vector<std::string>{"NLAGS", "MEAN", "NNMSS", "PACF_STD", "IACF_STD", "N", "URPVAL", "URREC",
                                              "SURPVAL", "SURREC"}));
  const Table summary = parse_table(fixture("mtsscov_summary.csv"));
  for (std::size_t i = 0; i < summary.at("name").size(); ++i)
    EXPECT_NEAR(r[summary.at("name")[i]], number(summary.at("value")[i]), 1e-9) << summary.at("name")[i];
  EXPECT_TRUE(std::isnan(r["URPVAL"]) && std::isnan(r["SURPVAL"]));
  EXPECT_EQ(r["URREC"], 0);  // the tests ran and failed
  EXPECT_EQ(r["SURREC"], -99);

  ASSERT_EQ(run(12, R"({"CORRPROB": 0})"), 0);
  EXPECT_EQ(out().substr(0, out().find('\n')), kHeader);
}

// Gaps inside and at both ends, series shorter than the lags asked, the observation
// count, and a request without lags.
TEST_F(Diagnostics, ShortAndGappySeries) {
  write("in", "T,Y\n1,.\n2,1\n3,2\n4,\n5,4\n6,8\n7,\n8,\n");
  ASSERT_EQ(run(12), 1);
  auto r = results();
  // L = NNMSS - 1 = 3 lags over 1, 2, ., 4, 8: pairs (1, 2) and (4, 8) at lag 1, (2, 4)
  // at lag 2, (1, 4) and (2, 8) at lag 3.
  EXPECT_EQ((std::vector<double>{r["NNMSS"], r["N"], r["MEAN"], r["PACF_STD"], r["NLAGS"]}),
            (std::vector<double>{4, 5, 3.75, 0.5, 3}));
  Table t = parse_table(out());
  EXPECT_EQ(t["LAG"], (std::vector<std::string>{"0", "1", "2", "3"}));
  EXPECT_EQ(t["N"], (std::vector<std::string>{"4", "2", "1", "2"}));
  // Deviations -2.75, -1.75, ., 0.25, 4.25; the divisor is n less the pairs lost.
  EXPECT_DOUBLE_EQ(number(t["ACOV"][0]), 28.75 / 4);
  EXPECT_DOUBLE_EQ(number(t["ACOV"][3]), (-2.75 * 0.25 - 1.75 * 4.25) / 5);
  // A standard error of 1/2 spans the whole range: the band is [-1, 1].
  EXPECT_EQ(t["LACF"][1] + t["UACF"][1] + t["LPACF"][1], "-11-1");

  write("in", "Y\n3\n1\n4\n1\n5\n");
  ASSERT_EQ(run(12), 1);
  EXPECT_EQ(results()["NLAGS"], 4);
  EXPECT_EQ(parse_table(out())["LAG"].size(), 5u);

  write("in", fixture("mtsscov_input.csv"));
  ASSERT_EQ(run(12, "", "Y", 50), 0);
  EXPECT_EQ(results()["N"], 48);
  ASSERT_EQ(run(12, "", "Y", 1e12), 0);
  EXPECT_EQ(results()["N"], 120);

  ASSERT_EQ(run(std::nullopt, R"({"UNITROOT": {"TYPE": "SINGLEMEAN"}})"), 0);
  r = results();
  EXPECT_EQ(r["NLAGS"], -1);
  EXPECT_TRUE(std::isnan(r["URPVAL"]));
  EXPECT_EQ(r["URREC"], -99);
  EXPECT_EQ(out(), std::string(kHeader) + "\n");
}

TEST_F(Diagnostics, UnitRootSpecifications) {
  Arguments none;
  fmsd::host::CallContext context(host_, none);
  // method, variant, DLAG (5 before the call), MAXAR, statistic type, status
  const auto spec = [&](const std::string& json) {
    std::vector<int> v{77, 77, 5, 77, 77};
    v.push_back(fmsd::geturspec(context.context(), json.empty() ? 0 : list(json), &v[0], &v[1], &v[2], &v[3], &v[4]));
    return v;
  };
  using V = std::vector<int>;
  EXPECT_EQ(spec(""), (V{1, -1, 1, 0, -1, 0}));
  EXPECT_EQ(spec("{}"), (V{1, -1, 1, 0, -1, 1}));
  EXPECT_EQ(spec(R"({"METHOD":"P","TYPE":"ZERO","STATTYPE":"R","MAXAR":3,"DLAG":4})"), (V{2, 0, 4, 3, 0, 0}));
  EXPECT_EQ(spec(R"({"METHOD":"RW","TYPE":"SINGLE","STATTYPE":"STUD","MAXAR":-2,"DLAG":12})"), (V{0, 1, 12, 0, 1, 0}));
  EXPECT_EQ(spec(R"({"METHOD":"ADF","TYPE":"TREND","STATTYPE":"FSTAT","DLAG":4})"), (V{1, 2, 1, 0, 2, 0}));
  // Values are compared as written, so lower case names nothing.
  EXPECT_EQ(spec(R"({"method":"pp","TYPE":"trend","STATTYPE":"FSTATISTIC"})"), (V{1, -1, 1, 0, 2, 1}));
  EXPECT_EQ(spec(R"({"DLAG":13})"), (V{1, -1, 5, 0, -1, -1}));
}

// The probabilities come from the Dickey-Fuller tables; statsmodels' MacKinnon
// surfaces give the same tau probabilities to about a percent.
TEST_F(Diagnostics, UnitRootProbabilities) {
  // A seasonal test with fewer lags than the unit-root test still leaves room for it.
  ASSERT_EQ(run(12, R"({"UNITROOT":{"TYPE":"SINGLEMEAN","STATTYPE":"STUDENTIZED","MAXAR":2},
                       "SEASONUR":{"TYPE":"SINGLEMEAN","DLAG":4}})"),
            0);
  Table t = parse_table(out());
  auto r = results();
  EXPECT_NE(r["SURREC"], -99);
  EXPECT_EQ(std::vector<std::string>(t["UNITROOT"].begin() + 3, t["UNITROOT"].end()), std::vector<std::string>(10, ""));
  if (t["UNITROOT"][0].empty()) GTEST_SKIP() << "the Dickey-Fuller tables decline";
  const Table adf = parse_table(fixture("mtsscov_adf.csv"));
  for (std::size_t p = 0; p < 3; ++p) EXPECT_NEAR(number(t["UNITROOT"][p]), number(adf.at("pvalue")[p]), 0.01) << p;
  EXPECT_EQ(r["URPVAL"], number(t["UNITROOT"][2]));
  EXPECT_TRUE(!t["SEASONUR"][0].empty() && t["SEASONUR"][1].empty());
}

// ---- result codes and failures ---------------------------------------------------------

TEST_F(Diagnostics, EveryResultCode) {
  write("in", "Y,C\n,\"a\"\n,\"b\"\n");
  EXPECT_EQ(run(3), -997);
  EXPECT_EQ(run(3, "", "NOPE"), -996);
  EXPECT_EQ(run(1, "", "C"), -996);
  write("in", fixture("mtsscov_input.csv"));
  const auto with = [](const char* in, const char* var, const char* output, fmsd_word options = 0) {
    Arguments a;
    a.text(in).text(var).missing().integer(3).word(options).text(output).missing().missing();
    return a;
  };
  Arguments refused[] = {with("", "Y", "T.OUT"), with("T.IN", "", "T.OUT"), with("T.IN", "Y", ""), {}};
  refused[3].word(1).text("Y").missing().integer(3).word(0).text("T.OUT").missing().missing();
  for (Arguments& a : refused) EXPECT_EQ(call(a), -998);
  Arguments unusable[] = {with("T.IN", "Y", "T.NO PE"), with("T.NOTHERE", "Y", "T.OUT")};
  for (Arguments& a : unusable) EXPECT_EQ(call(a), -996);
  // Neither lags nor an options list (one that is no list counts as none).
  EXPECT_EQ(run(std::nullopt), -998);
  Arguments not_a_list;
  not_a_list.text("T.IN").text("Y").missing().missing().word(9999).text("T.OUT").missing().missing();
  EXPECT_EQ(call(not_a_list), -998);
  EXPECT_EQ(out(), kOld);

  // The list given is cleared and filled; one that is no list is replaced by a new one.
  const fmsd_word given = list(R"({"OLD": 1})");
  ASSERT_EQ(run(3, "", "Y", NAN, static_cast<double>(given)), 0);
  EXPECT_EQ(list_, given);
  EXPECT_EQ(host_.lists().get(given).size(), 10u);
  ASSERT_EQ(run(3, "", "Y", NAN, 9999), 0);
  EXPECT_GT(list_, given);

  // The host refuses a new list, or an item: nothing is kept.
  write("out", kOld);
  void* const newl = host_.function(232, 94);
  void* const insd = host_.function(232, 77);
  host_.bind(232, 94, reinterpret_cast<void*>(+[](fmsd_word*, fmsd_word, int) { return -1; }));
  EXPECT_EQ(run(3), -999);
  EXPECT_EQ(list_, 0);
  host_.bind(232, 94, newl);
  host_.bind(232, 77, reinterpret_cast<void*>(+[](fmsd_word, double, int, const char*, int) { return -1; }));
  const std::size_t lists = host_.lists().size();
  EXPECT_EQ(run(3), -995);
  EXPECT_EQ(list_, 0);
  EXPECT_EQ(host_.lists().size(), lists);  // the new list was given back
  EXPECT_EQ(out(), kOld);
  EXPECT_EQ(run(200), 1);  // fewer lags than asked overrides the item failure
  host_.bind(232, 77, insd);
}

TEST_F(Diagnostics, HostFailuresGiveTheirCodes) {
  const std::string options = R"({"CORRPROB":1,"UNITROOT":{"TYPE":"SINGLEMEAN","MAXAR":2},
                                  "SEASONUR":{"TYPE":"ZEROMEAN","DLAG":4,"MAXAR":1}})";
  const long before = host_.pool().allocations();
  ASSERT_EQ(run(12, options), 0);
  const long blocks = host_.pool().allocations() - before;
  EXPECT_GE(blocks, 15);
  write("out", kOld);
  for (long n = 1; n <= blocks; ++n) {
    host_.pool().fail_nth(n);
    EXPECT_EQ(run(12, options), -999) << "allocation " << n;
    host_.pool().clear_faults();
    host_.pool().reset_failed();
  }
  auto& datasets = host_.datasets();
  for (const char* name : {"T.IN", "T.OUT"}) {
    datasets.fail_open(name);
    EXPECT_EQ(run(12, options), -996) << name;
    datasets.clear_faults();
  }
  // Rows are counted first, so every pass meets the failure.
  for (long row : {1, 60, 123}) {
    datasets.fail_read("T.IN", row);
    EXPECT_EQ(run(12, options), -996) << "row " << row;
    datasets.clear_faults();
  }
  datasets.fail_write("T.OUT", 3);
  EXPECT_EQ(run(12, options), -996);
  // Fewer lags than asked overrides even a failed output, which is not kept.
  EXPECT_EQ(run(500, options), 1);
  datasets.clear_faults();
  EXPECT_EQ(out(), kOld);
}

}  // namespace
