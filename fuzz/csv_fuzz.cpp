// libFuzzer target: arbitrary bytes read as a member of a CSV library.
//
// Properties: nothing crashes; a failure always comes with a message; a reader
// whose buffer is a few bytes (so that every row is cut somewhere) reads exactly
// what the full-size reader reads; a member that reads without error, written
// back and read again, gives the same columns and the same cells; and its rows
// formatted apart from the writer give the writer's own bytes.
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "host/host.h"
#include "host/storage.h"
#include "host/storage_detail.h"

namespace {

namespace fs = std::filesystem;
using namespace fmsd::host;

struct Table {
  bool opened = false;
  std::string error;
  std::vector<Column> columns;
  std::vector<double> numbers;
  std::vector<std::string> texts;
};

[[noreturn]] void failed(const char* property, const std::string& detail = "") {
  std::fprintf(stderr, "property failed: %s %s\n", property, detail.c_str());
  std::abort();
}

Table read(std::unique_ptr<Reader> reader, const std::string& error) {
  Table t;
  if (!reader) {
    if (error.empty()) failed("an unopened member comes with a message");
    t.error = error;
    return t;
  }
  t.opened = true;
  t.columns = reader->columns();
  std::vector<Cell> cells(t.columns.size());
  while (reader->next(cells.data()))
    for (std::size_t j = 0; j < cells.size(); ++j) {
      if (t.columns[j].numeric)
        t.numbers.push_back(cells[j].number);
      else
        t.texts.emplace_back(cells[j].text);
    }
  t.error = reader->error();
  if (reader->rows() != -1) failed("a CSV member does not know its row count");
  return t;
}

bool same_number(double a, double b) {
  if (is_missing(a) || is_missing(b)) return is_missing(a) && is_missing(b);
  if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
  return std::memcmp(&a, &b, sizeof a) == 0;
}

void same(const Table& a, const Table& b, const char* property) {
  if (a.opened != b.opened || a.error != b.error || a.columns.size() != b.columns.size() ||
      a.numbers.size() != b.numbers.size() || a.texts != b.texts)
    failed(property, a.error + " | " + b.error);
  for (std::size_t j = 0; j < a.columns.size(); ++j) {
    const Column &x = a.columns[j], &y = b.columns[j];
    if (x.name != y.name || x.numeric != y.numeric || x.form != y.form || x.length != y.length)
      failed(property, "column " + x.name);
  }
  for (std::size_t i = 0; i < a.numbers.size(); ++i)
    if (!same_number(a.numbers[i], b.numbers[i])) failed(property, "number " + std::to_string(i));
}

fs::path place() {
  const fs::path base = fs::is_directory("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path();
  return base / ("fmsd-csv-fuzz-" + std::to_string(::getpid()));
}

const fs::path& directory() {
  static const fs::path dir = [] {
    fs::create_directories(place());
    std::atexit([] {
      std::error_code ignored;
      fs::remove_all(place(), ignored);
    });
    return place();
  }();
  return dir;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const fs::path& dir = directory();
  std::ofstream(dir / "in.csv", std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  std::string error;
  auto library = open_csv_library(dir.string(), error);
  if (!library) failed("the library opens", error);

  const Table whole = read(library->open("in", error), error);
  error.clear();
  const std::size_t small = 1 + (size > 0 ? data[size - 1] % 13 : 0);
  same(whole, read(detail::open_csv_file((dir / "in.csv").string(), small, error), error),
       "a small buffer reads the same");
  if (!whole.opened || !whole.error.empty()) return 0;

  auto writer = library->create("out", whole.columns, error);
  if (!writer) failed("a member that was read can be written", error);
  const std::size_t n = whole.columns.size();
  std::vector<Cell> cells(n);
  std::size_t number = 0, text = 0;
  std::string formatted, why;
  std::int64_t rows = 0;
  while (number < whole.numbers.size() || text < whole.texts.size()) {
    for (std::size_t j = 0; j < n; ++j)
      if (whole.columns[j].numeric)
        cells[j].number = whole.numbers[number++];
      else
        cells[j].text = whole.texts[text++];
    if (!writer->write(cells.data())) failed("rows that were read can be written", writer->error());
    if (!library->format_row(whole.columns, cells.data(), formatted, why)) failed("rows that were read can be formatted", why);
    ++rows;
  }
  if (!writer->commit()) failed("the written member commits", writer->error());
  same(whole, read(library->open("out", error), error), "written rows read back the same");

  // Rows formatted away from the writer (as worker threads do) must give the same bytes.
  auto text_writer = library->create("text", whole.columns, error);
  if (!text_writer || !text_writer->write_text(formatted, rows) || !text_writer->commit())
    failed("formatted rows can be written", text_writer ? text_writer->error() : error);
  auto bytes = [](const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  };
  if (bytes(dir / "out.csv") != bytes(dir / "text.csv")) failed("formatted rows write the writer's bytes");
  fs::remove(dir / "out.csv");
  fs::remove(dir / "text.csv");
  return 0;
}
