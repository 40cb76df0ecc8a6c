// Advancing and counting by calendar intervals, checked against reference results
// that tools/interval_reference.py finds by walking Python's calendar unit by unit.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/hosted.h"

namespace {

// op,text,a,b,next,count: "nx" rows advance (a = start, b = n), "ck" rows count
// (a = from, b = to).  An expected value is empty when absent and "." when missing.
struct Row {
  std::string csv, text, next, count;
  bool advance;
  double a, b;
};

const std::vector<Row>& reference() {
  static const std::vector<Row> rows = [] {
    std::vector<Row> r;
    std::ifstream in(FMSD_TEST_DATA "/interval_reference.csv");
    std::string line;
    for (std::getline(in, line); std::getline(in, line);) {
      std::vector<std::string> f;
      for (std::size_t from = 0, comma = 0; comma != std::string::npos; from = comma + 1)
        f.push_back(line.substr(from, (comma = line.find(',', from)) - from));
      f.resize(6);
      r.push_back({line, f[1], f[4], f[5], f[0] == "nx", std::stod(f[2]), std::stod(f[3])});
    }
    return r;
  }();
  return rows;
}

// Empty when got is what the reference expects, else what went wrong.
std::string differs(const char* what, double got, const std::string& want) {
  if (want == "." ? is_missing(got) : !is_missing(got) && got == std::stod(want)) return {};
  std::ostringstream s;
  s.precision(17);
  s << what << " gave ";
  if (is_missing(got)) s << "missing"; else s << got;
  s << ", expected " << want;
  return s.str();
}

// "nx" rows: the first time ID of the interval n intervals on, and counting back
// from start to it gives n.  "ck" rows: intervals begun between two time IDs,
// including 53-week years and the first month of shifted years.
std::string check(const zintrec& rec, const Row& row) {
  if (!row.advance) return differs("zintck2", zintck2(&rec, row.a, row.b), row.count);
  std::string d = differs("zintnx2", zintnx2(&rec, row.a, row.b), row.next);
  if (d.empty() && !row.count.empty() && row.next != ".")
    d = differs("zintck2 to the expected next", zintck2(&rec, row.a, std::stod(row.next)), row.count);
  return d;
}

TEST(IntervalReference, AdvancesAndCountsAsTheCalendarWalkDoes) {
  hosted();
  ASSERT_GT(reference().size(), 130000u) << "tests/data/interval_reference.csv is missing or short";
  std::size_t advances = 0, bad = 0;
  std::string report;
  for (const Row& row : reference()) {
    advances += row.advance;
    zintrec rec;
    const std::string what = zintstr(row.text.c_str(), -1, &rec) != ZINT_OK ? "zintstr refused it" : check(rec, row);
    if (!what.empty() && ++bad <= 12) report += row.csv + ": " + what + "\n";
  }
  EXPECT_TRUE(advances > 0 && advances < reference().size()) << "both kinds of row are replayed";
  EXPECT_EQ(bad, 0u) << bad << " of " << reference().size() << " reference rows differ, first ones:\n" << report;
}

}  // namespace
