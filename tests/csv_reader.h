// Reads the reference tables that the generators in tools/ write: a header line, then
// comma-separated fields, "." or "NA" for a missing value. The unit-root and
// probability suites read theirs through it as well.
#ifndef FMSD_TESTS_CSV_READER_H
#define FMSD_TESTS_CSV_READER_H

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/hosted.h"
#include "util/numeric.h"

struct CsvRow {
  std::shared_ptr<const std::vector<std::string>> header;
  std::vector<std::string> cell;
  std::string line;

  const std::string& text(const std::string& name) const {
    const auto at = std::find(header->begin(), header->end(), name);
    if (at == header->end() || static_cast<std::size_t>(at - header->begin()) >= cell.size())
      throw std::out_of_range("no column " + name + " in: " + line);
    return cell[at - header->begin()];
  }
  static bool present(const std::string& s) { return s != "." && s != "NA"; }
  bool has(const std::string& name) const { return present(text(name)); }
  int integer(const std::string& name) const { return std::atoi(text(name).c_str()); }
  // The host's missing value where the table has none; "nan" and "inf" read as such.
  static double number(const std::string& s) { return present(s) ? std::strtod(s.c_str(), nullptr) : fmsd::missing(); }
  double num(const std::string& name) const { return number(text(name)); }
  double num(std::size_t column) const { return number(cell.at(column)); }
};

// The rows of a file under the test data, e.g. read_csv("timeseries/fitstats_series.csv").
inline std::vector<CsvRow> read_csv(const std::string& path) {
  auto split = [](const std::string& s) {
    std::vector<std::string> f;
    for (std::size_t from = 0, comma = 0; comma != std::string::npos; from = comma + 1)
      f.push_back(s.substr(from, (comma = s.find(',', from)) - from));
    return f;
  };
  std::ifstream in(std::string(FMSD_TEST_DATA "/") + path);
  std::string line;
  auto header = std::make_shared<std::vector<std::string>>();
  if (std::getline(in, line)) *header = split(line);
  std::vector<CsvRow> rows;
  while (std::getline(in, line)) rows.push_back({header, split(line), line});
  return rows;
}

#endif
