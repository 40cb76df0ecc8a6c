// Reads the reference tables that the generators in tools/ write: a header line, then
// comma-separated fields with "." for a missing value.
#ifndef FMSD_TESTS_TIMESERIES_CSV_READER_H
#define FMSD_TESTS_TIMESERIES_CSV_READER_H

#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "tests/hosted.h"
#include "util/numeric.h"

struct CsvRow {
  std::map<std::string, std::string> field;
  std::string line;

  const std::string& text(const std::string& name) const { return field.at(name); }
  double num(const std::string& name) const {
    const std::string& s = text(name);
    return s == "." ? fmsd::missing() : std::stod(s);
  }
};

inline std::vector<CsvRow> read_csv(const std::string& name) {
  std::vector<CsvRow> rows;
  std::ifstream in(std::string(FMSD_TEST_DATA "/timeseries/") + name);
  std::string line;
  std::vector<std::string> header;
  auto split = [](const std::string& s) {
    std::vector<std::string> f;
    for (std::size_t from = 0, comma = 0; comma != std::string::npos; from = comma + 1)
      f.push_back(s.substr(from, (comma = s.find(',', from)) - from));
    return f;
  };
  if (std::getline(in, line)) header = split(line);
  while (std::getline(in, line)) {
    CsvRow row{{}, line};
    const std::vector<std::string> f = split(line);
    for (std::size_t i = 0; i < header.size() && i < f.size(); ++i) row.field[header[i]] = f[i];
    rows.push_back(row);
  }
  return rows;
}

#endif
