// Advancing and counting by calendar intervals, checked against reference results
// that tools/interval_reference.py finds by walking Python's calendar unit by unit.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "fmsd/intervals.h"
#include "tests/intervals/hosted.h"

namespace {

// One expected value: absent (empty field), missing (".") or a number.
struct Expected {
  bool present = false;
  bool missing = false;
  double value = 0;
};

struct Row {
  bool advance;  // "nx": a = start, b = n; "ck": a = from, b = to
  std::string text;
  double a, b;
  Expected next, count;
  int line;
};

Expected expected(std::string_view field) {
  Expected e;
  e.present = !field.empty();
  e.missing = field == ".";
  if (e.present && !e.missing) e.value = std::strtod(std::string(field).c_str(), nullptr);
  return e;
}

std::vector<Row> load() {
  std::ifstream in(std::string(FMSD_TEST_DATA) + "/interval_reference.csv");
  std::stringstream all;
  all << in.rdbuf();
  const std::string data = all.str();
  std::vector<Row> rows;
  std::string_view rest(data);
  int line = 0;
  while (!rest.empty()) {
    const auto eol = rest.find('\n');
    std::string_view text = rest.substr(0, eol);
    rest.remove_prefix(eol == std::string_view::npos ? rest.size() : eol + 1);
    if (++line == 1 || text.empty()) continue;
    std::string_view f[6];
    for (int i = 0; i < 6; ++i) {
      const auto comma = text.find(',');
      f[i] = text.substr(0, comma);
      text.remove_prefix(comma == std::string_view::npos ? text.size() : comma + 1);
    }
    rows.push_back({f[0] == "nx", std::string(f[1]), std::strtod(std::string(f[2]).c_str(), nullptr),
                    std::strtod(std::string(f[3]).c_str(), nullptr), expected(f[4]), expected(f[5]), line});
  }
  return rows;
}

const std::vector<Row>& reference() {
  static const std::vector<Row> rows = load();
  return rows;
}

bool matches(double got, const Expected& want) {
  return want.missing ? is_missing(got) : !is_missing(got) && got == want.value;
}

// Collects mismatches and reports the first few with their inputs, then the count.
class Mismatches {
 public:
  void add(const Row& row, const char* what, double got, const Expected& want) {
    if (++count_ > 12) return;
    std::ostringstream s;
    s.precision(17);
    s << "line " << row.line << ": " << what << " \"" << row.text << "\" (" << row.a << ", " << row.b << ") gave ";
    if (is_missing(got)) s << "missing"; else s << got;
    s << ", expected ";
    if (want.missing) s << "missing"; else s << want.value;
    report_ += s.str() + "\n";
  }
  void parse_failure(const Row& row, int status) {
    if (++count_ <= 12) report_ += "line " + std::to_string(row.line) + ": zintstr(\"" + row.text + "\") = " +
                                   std::to_string(status) + "\n";
  }
  void check(std::size_t total) const {
    EXPECT_EQ(count_, 0u) << count_ << " of " << total << " reference rows differ, first ones:\n" << report_;
  }

 private:
  std::size_t count_ = 0;
  std::string report_;
};

class IntervalReference : public ::testing::Test {
 protected:
  void SetUp() override {
    hosted();
    ASSERT_GT(reference().size(), 130000u) << "tests/data/interval_reference.csv is missing or short";
  }

  // Runs check(rec, row) over every row of one kind, parsing its text first.
  template <typename Check>
  void run(bool advance, Check check) {
    Mismatches bad;
    std::size_t total = 0;
    for (const Row& row : reference()) {
      if (row.advance != advance) continue;
      ++total;
      zintrec rec;
      const int status = zintstr(row.text.c_str(), static_cast<int>(row.text.size()), &rec);
      if (status != ZINT_OK)
        bad.parse_failure(row, status);
      else
        check(rec, row, bad);
    }
    EXPECT_GT(total, 0u);
    bad.check(total);
  }
};

// The first time ID of the interval n intervals on, and counting back from start to it gives n.
TEST_F(IntervalReference, AdvancesAsTheCalendarWalkDoes) {
  run(true, [](const zintrec& rec, const Row& row, Mismatches& bad) {
    const double next = zintnx2(&rec, row.a, row.b);
    if (!matches(next, row.next)) bad.add(row, "zintnx2", next, row.next);
    if (row.count.present && !row.next.missing) {
      const double n = zintck2(&rec, row.a, row.next.value);
      if (!matches(n, row.count)) bad.add(row, "zintck2 to the expected next of", n, row.count);
    }
  });
}

// Intervals begun between two time IDs, including 53-week years and the first month of shifted years.
TEST_F(IntervalReference, CountsAsTheCalendarWalkDoes) {
  run(false, [](const zintrec& rec, const Row& row, Mismatches& bad) {
    const double n = zintck2(&rec, row.a, row.b);
    if (!matches(n, row.count)) bad.add(row, "zintck2", n, row.count);
  });
}

}  // namespace
