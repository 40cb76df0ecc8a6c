// Opening, counting and closing data sets through the real host, on CSV files and
// an SQLite database in a temporary directory; the host's answers to xoinfo are
// bent where a failure is needed.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "host/datasets.h"
#include "host/host.h"
#include "host/operations.h"
#include "module/hostops.h"
#include "services/dataset.h"

namespace {

namespace fs = std::filesystem;
using fmsd::closeds;
using fmsd::DataSetRecord;
using fmsd::getdsnobs;
using fmsd::opends;

// Per attribute (0 to 4): answer with (result, value) instead of the host.
struct Answer {
  bool bent = false;
  int result = 0;
  int value = 0;
};
Answer answers[5];
int info_calls = 0;
fmsd_fn_xoinfo* host_xoinfo = nullptr;

int bent_xoinfo(fmsd_word dataset, int attribute, int* value) {
  ++info_calls;
  if (attribute < 0 || attribute > 4 || !answers[attribute].bent) return host_xoinfo(dataset, attribute, value);
  *value = answers[attribute].value;
  return answers[attribute].result;
}

class DataSets : public ::testing::Test {
 protected:
  void SetUp() override {
    mcn_main(host_.control_block(), host_.process_block());
    dir_ = fs::temp_directory_path() / ("fmsd-helpers-" + std::to_string(::getpid()) + "-" +
                                        ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir_);
    std::string error;
    ASSERT_TRUE(host_.datasets().bind_directory("T", dir_.string(), error)) << error;
    for (Answer& a : answers) a = Answer{};
    info_calls = 0;
    host_xoinfo = reinterpret_cast<fmsd_fn_xoinfo*>(host_.function(203, 50));
    fmsd::host::bind<fmsd::host::op::xoinfo>(host_, bent_xoinfo);
  }
  void TearDown() override { fs::remove_all(dir_); }

  void write(const std::string& member, const std::string& text) { std::ofstream(dir_ / (member + ".csv")) << text; }

  int open(DataSetRecord& r, const char* name, int mode) {
    r.name = name;
    r.length = static_cast<int>(std::strlen(name));
    return opends(mode, &r);
  }

  std::size_t open_count() { return host_.datasets().open_count(); }

  fmsd::host::Host host_;
  fs::path dir_;
};

fmsd_word handle(const DataSetRecord& r) { return r.access[FMSD_ACCESS_HANDLE]; }

std::string field(const DataSetRecord& r, int offset) {
  return std::string(reinterpret_cast<const char*>(r.request + offset), 8);
}

int int_at(const DataSetRecord& r, int offset) {
  int v;
  std::memcpy(&v, r.request + offset, sizeof v);
  return v;
}

// ---- opening --------------------------------------------------------------------------

TEST_F(DataSets, TheRequestBlockCarriesTheNameParts) {
  write("abcdefghijkl", "x,y\n1,2\n");
  DataSetRecord r{};
  std::memset(r.request, 0x55, sizeof r.request);
  // A CSV file cannot tell its rows: the count is left negative for the caller.
  EXPECT_EQ(open(r, "T.ABCDEFGHIJKL", FMSD_OPEN_INPUT), -4);
  EXPECT_EQ(field(r, FMSD_REQUEST_LEVEL1) + field(r, FMSD_REQUEST_LEVEL2), "T       ABCDEFGH");
  EXPECT_EQ((std::vector<int>{int_at(r, FMSD_REQUEST_MODE), int_at(r, FMSD_REQUEST_MINUS_ONE)}),
            (std::vector<int>{FMSD_OPEN_INPUT, -1}));
  EXPECT_EQ(r.request[FMSD_REQUEST_BYTES - 1], 0);
  EXPECT_EQ(r.nvars, 2);
  EXPECT_LT(r.nobs, 0);
  // The data set stays open for the caller to close.
  EXPECT_EQ(open_count(), 1u);
  closeds(handle(r), 0, 0);
}

TEST_F(DataSets, InputCountsComeFromTheHost) {
  const std::string file = (dir_ / "db.sqlite").string();
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(file.c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db,
                         "CREATE TABLE two(a REAL, b REAL, c REAL); INSERT INTO two VALUES (1, 2, 3), (4, 5, 6);"
                         "CREATE TABLE none(a REAL);",
                         nullptr, nullptr, nullptr),
            SQLITE_OK);
  sqlite3_close(db);
  std::string error;
  ASSERT_TRUE(host_.datasets().bind_database("S", file, error)) << error;

  DataSetRecord r{}, none{};
  ASSERT_EQ(open(r, "s.two", FMSD_OPEN_SECOND_INPUT), 0);
  EXPECT_EQ((std::vector<int>{r.nvars, r.nobs}), (std::vector<int>{3, 2}));
  EXPECT_EQ(field(r, FMSD_REQUEST_LEVEL2), "two     ");
  EXPECT_EQ(int_at(r, FMSD_REQUEST_MODE), FMSD_OPEN_SECOND_INPUT);
  // Both counts are 0 for a table without rows.
  EXPECT_EQ(open(none, "S.NONE", FMSD_OPEN_INPUT), -4);
  EXPECT_EQ(none.nvars, 1);
  closeds(handle(r), handle(none), 0);
}

TEST_F(DataSets, TheLogicalCountStandsInForAMissingRowCount) {
  write("d", "a\n1\n");
  answers[FMSD_INFO_ROWS] = {true, 0, 0};
  answers[FMSD_INFO_LOGICAL_ROWS] = {true, 0, 9};
  DataSetRecord r{};
  for (const int refusal : {0, 1}) {  // a count of 0, or no count at all
    answers[FMSD_INFO_ROWS].result = refusal;
    EXPECT_EQ(open(r, "T.D", FMSD_OPEN_INPUT), 0);
    EXPECT_EQ(r.nobs, 9);
    closeds(handle(r), 0, 0);
  }
  answers[FMSD_INFO_LOGICAL_ROWS].result = 1;
  EXPECT_EQ(open(r, "T.D", FMSD_OPEN_INPUT), -4);
  closeds(handle(r), 0, 0);
}

TEST_F(DataSets, OpenFailuresHaveTheirOwnCodes) {
  write("d", "a\n1\n");
  DataSetRecord r{};
  EXPECT_EQ(open(r, "T.1D", FMSD_OPEN_INPUT), -1);
  EXPECT_EQ(open(r, "A.B.C", FMSD_OPEN_INPUT), -1);
  EXPECT_EQ(open(r, "T.NOTHERE", FMSD_OPEN_INPUT), -2);
  EXPECT_EQ(open_count(), 0u);
  for (const int refusal : {1, 0}) {  // no variable count, or a count of 0
    answers[FMSD_INFO_VARIABLES] = {true, refusal, 0};
    EXPECT_EQ(open(r, "T.D", FMSD_OPEN_INPUT), -3);
    closeds(handle(r), 0, 0);
  }
}

// ---- counting and closing -------------------------------------------------------------

TEST_F(DataSets, CountingReadsEveryRow) {
  write("empty", "a,b\n");
  write("five", "a,b\n1,2\n3,4\n5,6\n7,8\n9,10\n");
  DataSetRecord empty{}, five{};
  open(empty, "T.EMPTY", FMSD_OPEN_INPUT);
  open(five, "T.FIVE", FMSD_OPEN_INPUT);
  ASSERT_TRUE(handle(empty) != 0 && handle(five) != 0);
  EXPECT_EQ(getdsnobs(empty.access), 0);
  EXPECT_EQ(getdsnobs(five.access), 5);
  const auto* words = reinterpret_cast<const fmsd_word*>(handle(five));
  EXPECT_EQ(words[FMSD_HANDLE_ROWS], 5);
  EXPECT_EQ(words[FMSD_HANDLE_BUFFER], five.access[FMSD_ACCESS_BUFFER]);
  closeds(handle(empty), 0, handle(five));
  EXPECT_EQ(open_count(), 0u);
}

TEST_F(DataSets, CountingStopsAfterAFailedRead) {
  write("five", "a\n1\n2\n3\n4\n5\n");
  host_.datasets().fail_read("T.FIVE", 3);
  DataSetRecord r{};
  open(r, "T.FIVE", FMSD_OPEN_INPUT);
  ASSERT_NE(handle(r), 0);
  host_.clear_log();
  // Two rows and the failed read, which this host follows with the end of the data.
  EXPECT_EQ(getdsnobs(r.access), 3);
  EXPECT_FALSE(host_.log().empty());

  // An output cannot be read: the host's refusal, then the status the module logs.
  DataSetRecord out{};
  ASSERT_EQ(open(out, "T.OUT", FMSD_OPEN_OUTPUT), 0);
  host_.clear_log();
  EXPECT_EQ(getdsnobs(out.access), 0);
  ASSERT_EQ(host_.log().size(), 2u);
  EXPECT_NE(host_.log().back().find("T.OUT"), std::string::npos) << host_.log().back();
  closeds(handle(r), handle(out), 0);
}

TEST_F(DataSets, AnOutputOpensWithoutCountsAndClosesWithOthers) {
  closeds(0, 0, 0);
  write("d", "a\n1\n");
  DataSetRecord a{}, b{};
  open(a, "T.D", FMSD_OPEN_INPUT);
  info_calls = 0;
  EXPECT_EQ(open(b, "T.OUT", FMSD_OPEN_OUTPUT), 0);
  EXPECT_EQ((std::vector<int>{info_calls, b.nobs, b.nvars}), (std::vector<int>{0, 0, 0}));
  ASSERT_EQ(open_count(), 2u);
  closeds(0, handle(a), handle(b));
  EXPECT_EQ(open_count(), 0u);
  EXPECT_TRUE(host_.log().empty());
}

// ---- output descriptors ---------------------------------------------------------------

TEST_F(DataSets, OutputDescriptorsTakeTheEntrysName) {
  fmsd::VariableEntry entry{};
  entry.name_length = 8;
  std::memcpy(entry.name, "FORECAST", 8);
  fmsd_vardesc d;
  std::memset(&d, 0x7F, sizeof d);
  fmsd::getnamestr(&entry, &d);
  // A numeric variable of 8 bytes, shown with 5 decimals in 10 columns, blank label.
  EXPECT_EQ((std::vector<int>{d.type, d.length, d.format_width, d.format_decimals, d.name_kind}),
            (std::vector<int>{1, 8, 10, 5, 1}));
  EXPECT_STREQ(d.label, " ");

  // With an input counterpart its descriptor is copied, all but the name.
  fmsd_vardesc input{};
  std::memcpy(input.format, "DATE    ", 8);
  input.format_width = 9;
  input.name = "DATE";
  input.name_length = 4;
  input.label = "Month of sale";
  entry.input = &input;
  entry.name_length = 3;
  fmsd::getnamestr(&entry, &d);
  EXPECT_EQ((std::vector<int>{d.format_width, d.name_length}), (std::vector<int>{9, 3}));
  EXPECT_STREQ(d.label, "Month of sale");
  EXPECT_EQ(d.name, entry.name);
}

}  // namespace
