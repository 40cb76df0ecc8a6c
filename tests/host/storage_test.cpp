#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <csignal>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "host/host.h"
#include "host/storage.h"
#include "host/storage_detail.h"

namespace fs = std::filesystem;
using namespace fmsd::host;

namespace {

// Day and second numbers below come from Python's datetime: (date - date(1960, 1, 1)).days.
constexpr double k20200229 = 21974;
constexpr double k15820101 = -138061;
constexpr double k20210304T050607 = 1930453567;

struct TempDir {
  fs::path path;
  TempDir() {
    static int serial = 0;
    path = fs::temp_directory_path() /
           ("fmsd-storage-" + std::to_string(::getpid()) + "-" + std::to_string(++serial));
    fs::create_directories(path);
  }
  ~TempDir() { fs::remove_all(path); }
  std::vector<std::string> files() const {
    std::vector<std::string> out;
    for (const auto& e : fs::directory_iterator(path)) out.push_back(e.path().filename().string());
    std::sort(out.begin(), out.end());
    return out;
  }
  void put(const std::string& name, const std::string& text) const {
    std::ofstream(path / name, std::ios::binary) << text;
  }
  std::string get(const std::string& name) const {
    std::ifstream in(path / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
};

Column numeric(const std::string& name, Form form = Form::Number) { return {name, true, form, 8, ""}; }
Column character(const std::string& name) { return {name, false, Form::Number, 8, ""}; }

// Columns as tests compare them: "name num|date|datetime", or "name $length" for text.
std::string layout(const std::vector<Column>& columns) {
  std::string out;
  for (const auto& c : columns) {
    out += (out.empty() ? "" : ", ") + c.name + " ";
    if (!c.numeric) out += "$" + std::to_string(c.length);
    else out += c.form == Form::Date ? "date" : c.form == Form::DateTime ? "datetime" : "num";
  }
  return out;
}

// A row as tests compare it: numbers by bit pattern, the missing value as "."
std::vector<std::string> show_row(const std::vector<Column>& columns, const std::vector<Cell>& cells) {
  std::vector<std::string> out;
  for (std::size_t j = 0; j < columns.size(); ++j) {
    if (!columns[j].numeric) {
      out.emplace_back(cells[j].text);
    } else if (is_missing(cells[j].number)) {
      out.emplace_back(".");
    } else {
      std::ostringstream s;
      s << cells[j].number << "#" << std::hex << std::bit_cast<std::uint64_t>(cells[j].number);
      out.push_back(s.str());
    }
  }
  return out;
}

using Rows = std::vector<std::vector<std::string>>;

Rows read_all(Reader& reader) {
  Rows rows;
  std::vector<Cell> cells(reader.columns().size());
  while (reader.next(cells.data())) rows.push_back(show_row(reader.columns(), cells));
  EXPECT_EQ(reader.error(), "");
  return rows;
}

Rows read_member(Library& library, const std::string& member) {
  std::string error;
  auto reader = library.open(member, error);
  EXPECT_TRUE(reader) << error;
  return reader ? read_all(*reader) : Rows{};
}

bool write_rows(Library& library, const std::string& member, const std::vector<Column>& columns,
                const std::vector<std::vector<Cell>>& rows) {
  std::string error;
  auto writer = library.create(member, columns, error);
  EXPECT_TRUE(writer) << error;
  if (!writer) return false;
  for (const auto& row : rows) EXPECT_TRUE(writer->write(row.data())) << writer->error();
  return writer->commit();
}

Cell num(double x) { return Cell{x, {}}; }
Cell text(std::string_view t) { return Cell{0, t}; }
const Cell kMissing = num(missing_value());

// The columns, every row and the error that a reader with the given buffer size
// gives (or the open error alone).
Rows read_through(const fs::path& path, std::size_t buffer) {
  std::string error;
  auto reader = detail::open_csv_file(path.string(), buffer, error);
  if (!reader) return Rows{{error}};
  Rows rows = {{layout(reader->columns())}};
  std::vector<Cell> cells(reader->columns().size());
  while (reader->next(cells.data())) rows.push_back(show_row(reader->columns(), cells));
  rows.push_back({reader->error()});
  return rows;
}

std::unique_ptr<Reader> open_text(const TempDir& dir, const std::string& csv, std::string& error) {
  dir.put("t.csv", csv);
  auto library = open_csv_library(dir.path.string(), error);
  return library ? library->open("t", error) : nullptr;
}

// ---- both backends, one test body ---------------------------------------------------

enum class Backend { Csv, Sqlite };

class Storage : public ::testing::TestWithParam<Backend> {
 protected:
  void SetUp() override {
    std::string error;
    library = GetParam() == Backend::Csv ? open_csv_library(dir.path.string(), error)
                                         : open_sqlite_library((dir.path / "lib.db").string(), error);
    ASSERT_TRUE(library) << error;
  }
  // Nothing but the members themselves: no temporary file or table is left.
  std::vector<std::string> members() const {
    if (GetParam() == Backend::Csv) return dir.files();
    std::vector<std::string> out;
    sqlite3* db = nullptr;
    sqlite3_open((dir.path / "lib.db").string().c_str(), &db);
    sqlite3_stmt* s = nullptr;
    sqlite3_prepare_v2(db, "SELECT name FROM sqlite_schema ORDER BY name", -1, &s, nullptr);
    while (sqlite3_step(s) == SQLITE_ROW)
      out.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(s, 0)));
    sqlite3_finalize(s);
    sqlite3_close(db);
    return out;
  }
  std::string member_file(const std::string& name) const {
    return GetParam() == Backend::Csv ? name + ".csv" : name;
  }

  TempDir dir;
  std::unique_ptr<Library> library;
};

TEST_P(Storage, RoundTripsEveryKindOfColumnWithMissingValues) {
  const std::vector<Column> columns = {numeric("x"), character("Name"), numeric("day", Form::Date),
                                       numeric("at", Form::DateTime)};
  const std::vector<std::vector<Cell>> rows = {
      {num(1.5), text("plain"), num(k20200229), num(k20210304T050607)},
      {kMissing, text("with, comma \"and\" quotes\nand a newline"), kMissing, kMissing},
      {num(-2e-300), text(""), num(k15820101), num(-0.5)},
      {num(42), text("12.5"), num(-1), num(k20210304T050607 + 0.125)},
  };
  ASSERT_TRUE(write_rows(*library, "Mixed", columns, rows));
  std::string error;
  auto reader = library->open("MIXED", error);
  ASSERT_TRUE(reader) << error;
  EXPECT_EQ(layout(reader->columns()), "x num, Name $38, day date, at datetime");
  EXPECT_EQ(reader->rows(), GetParam() == Backend::Csv ? -1 : 4);
  Rows expected;
  for (const auto& row : rows) expected.push_back(show_row(columns, row));
  EXPECT_EQ(read_all(*reader), expected);
  // Back to the start, and only the selected columns decoded.
  ASSERT_TRUE(reader->rewind());
  reader->select({false, true, false, false});
  std::vector<Cell> cells(4, num(7));
  for (int pass = 0; pass < 2; ++pass) {
    ASSERT_TRUE(reader->next(cells.data()));
    EXPECT_EQ(cells[1].text, "plain");
    EXPECT_EQ(cells[0].number, 7);
    EXPECT_EQ(cells[3].number, 7);
    ASSERT_TRUE(reader->next(cells.data()));
    ASSERT_TRUE(reader->rewind());
  }
}

TEST_P(Storage, DoublesReadBackBitForBit) {
  using L = std::numeric_limits<double>;
  std::vector<double> values = {0.0, -0.0, L::denorm_min(), -L::denorm_min(), L::min(), std::nextafter(L::min(), 0.0),
                                L::max(), -L::max(), L::infinity(), 0.1, 1e22, 1e23, 9007199254740993.0,
                                123456789012345678.0};
  std::mt19937_64 random(20240611);
  while (values.size() < 3000) {
    const double x = std::bit_cast<double>(random());
    if (!std::isnan(x)) values.push_back(x);
  }
  std::vector<std::vector<Cell>> rows;
  for (double x : values) rows.push_back({num(x)});
  ASSERT_TRUE(write_rows(*library, "bits", {numeric("x")}, rows));
  const Rows got = read_member(*library, "bits");
  ASSERT_EQ(got.size(), values.size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    // SQLite keeps a whole-valued REAL as an integer on disk, and so loses the sign of -0.
    const double x = GetParam() == Backend::Sqlite && values[i] == 0 ? 0.0 : values[i];
    EXPECT_EQ(got[i], show_row({numeric("x")}, {num(x)})) << "row " << i;
  }
}

TEST_P(Storage, NamesCannotLeaveTheLibrary) {
  const std::vector<Column> columns = {numeric("x")};
  for (const std::string& bad :
       std::vector<std::string>{"../x", "a/b", "x.csv", "\"x\"", "", std::string(33, 'a'), "1x", "a b",
                                std::string("a\0b", 3), "x;DROP"}) {
    std::string error;
    EXPECT_FALSE(library->open(bad, error)) << bad;
    EXPECT_NE(error.find("not a valid member name"), std::string::npos) << error;
    error.clear();
    EXPECT_FALSE(library->create(bad, columns, error)) << bad;
    EXPECT_NE(error.find("not a valid member name"), std::string::npos) << error;
  }
  std::string error;
  EXPECT_FALSE(library->create("ok", {numeric("a/b")}, error));
  EXPECT_NE(error.find("\"a/b\" is not a valid variable name"), std::string::npos) << error;
  EXPECT_FALSE(library->create("ok", {numeric("v"), numeric("V")}, error));
  EXPECT_NE(error.find("appears twice"), std::string::npos) << error;
  EXPECT_TRUE(library->create(std::string(32, 'a'), columns, error)) << error;
  EXPECT_TRUE(valid_library_name("library9") && valid_library_name("_"));
  EXPECT_FALSE(valid_library_name("library10"));
}

TEST_P(Storage, AFailedWriteLeavesTheMemberAsItWas) {
  const std::vector<Column> columns = {numeric("x"), numeric("d", Form::Date)};
  ASSERT_TRUE(write_rows(*library, "keep", columns, {{num(1), num(0)}, {num(2), num(1)}}));
  const Rows before = read_member(*library, "keep");
  const auto listing = members();
  const std::vector<Cell> row = {num(9), num(9)}, bad_day = {num(9), num(1e9)};
  const auto started = [&] {
    std::string error;
    auto writer = library->create("keep", columns, error);
    EXPECT_TRUE(writer && writer->write(row.data())) << error;
    return writer;
  };
  {  // discarded
    auto writer = started();
    writer->discard();
    EXPECT_FALSE(writer->commit());
  }
  started();  // destroyed without commit
  {           // an error part way: a day the calendar does not have
    auto writer = started();
    EXPECT_FALSE(writer->write(bad_day.data()));
    EXPECT_NE(writer->error().find("row 2, column 2 (d)"), std::string::npos) << writer->error();
    EXPECT_NE(writer->error().find(member_file("keep")), std::string::npos) << writer->error();
    EXPECT_FALSE(writer->write(row.data()));
    EXPECT_FALSE(writer->commit());
  }
  EXPECT_EQ(read_member(*library, "keep"), before);
  EXPECT_EQ(members(), listing);
}

TEST_P(Storage, AReaderKeepsItsRowsWhileTheMemberIsReplaced) {
  const std::vector<Column> columns = {numeric("x")};
  ASSERT_TRUE(write_rows(*library, "m", columns, {{num(1)}, {num(2)}, {num(3)}}));
  std::string error;
  auto reader = library->open("m", error);
  ASSERT_TRUE(reader) << error;
  Cell cell;
  ASSERT_TRUE(reader->next(&cell));
  EXPECT_EQ(cell.number, 1);
  ASSERT_TRUE(write_rows(*library, "m", columns, {{num(10)}}));
  EXPECT_EQ(read_all(*reader), (Rows{show_row(columns, {num(2)}), show_row(columns, {num(3)})}));
  EXPECT_EQ(read_member(*library, "m"), (Rows{show_row(columns, {num(10)})}));
}

TEST_P(Storage, MissingMembersAndPlacesAreNamed) {
  std::string error;
  EXPECT_FALSE(library->open("absent", error));
  EXPECT_NE(error.find(library->describe()), std::string::npos) << error;
  EXPECT_NE(error.find("no member absent"), std::string::npos) << error;
  const std::string nowhere = (dir.path / "no" / "where").string();
  EXPECT_FALSE(GetParam() == Backend::Csv ? open_csv_library(nowhere, error)
                                          : open_sqlite_library(nowhere, error));
  EXPECT_NE(error.find(nowhere), std::string::npos) << error;
}

INSTANTIATE_TEST_SUITE_P(Backends, Storage, ::testing::Values(Backend::Csv, Backend::Sqlite),
                         [](const auto& backend) {
                           return backend.param == Backend::Csv ? "Csv" : "Sqlite";
                         });

// ---- CSV files ------------------------------------------------------------------------

// Rows formatted away from the writer (as worker threads do) and appended whole
// must give the very bytes the writer gives.
TEST(CsvFile, WritesTheTextItPromisesWhereverRowsAreFormatted) {
  TempDir dir;
  std::string error, why;
  auto library = open_csv_library(dir.path.string(), error);
  ASSERT_TRUE(library) << error;
  const std::vector<Column> columns = {numeric("x"), character("s"), numeric("d", Form::Date),
                                       numeric("t", Form::DateTime)};
  const std::vector<std::vector<Cell>> rows = {{num(0.1), text("12"), num(k20200229), num(-0.5)},
                                               {kMissing, text("a\"b"), kMissing, num(k20210304T050607 + 0.25)},
                                               {num(-0.0), text(""), num(k20200229 + 0.75), kMissing}};
  const std::string body =
      "0.1,\"12\",2020-02-29,1959-12-31T23:59:59.5\n"
      ",\"a\"\"b\",,2021-03-04T05:06:07.25\n"
      "-0,\"\",2020-02-29,\n";
  ASSERT_TRUE(write_rows(*library, "Out", columns, rows));
  EXPECT_EQ(dir.get("out.csv"), "x,s,d,t\n" + body);
  // Alone on its row a missing value is a dot, since a blank line is skipped.
  ASSERT_TRUE(write_rows(*library, "one", {numeric("x")}, {{kMissing}, {num(1)}}));
  EXPECT_EQ(dir.get("one.csv"), "x\n.\n1\n");

  std::string formatted;
  for (const auto& row : rows) ASSERT_TRUE(library->format_row(columns, row.data(), formatted, why)) << why;
  EXPECT_EQ(formatted, body);
  // Bigger than the writer's buffer, so that it also goes straight to the file.
  std::string many;
  for (int i = 0; i < 20000; ++i) many += formatted;
  auto writer = library->create("big", columns, error);
  ASSERT_TRUE(writer) << error;
  ASSERT_TRUE(writer->write(rows[0].data()));
  ASSERT_TRUE(writer->write_text(many, 60000)) << writer->error();
  ASSERT_TRUE(writer->write_text(formatted, 3)) << writer->error();
  ASSERT_TRUE(writer->commit()) << writer->error();
  EXPECT_EQ(dir.get("big.csv"), "x,s,d,t\n" + body.substr(0, body.find('\n') + 1) + many + formatted);
  EXPECT_EQ(dir.files(), (std::vector<std::string>{"big.csv", "one.csv", "out.csv"}));

  // A day outside the calendar: named, and nothing of the row is added.
  const std::vector<Cell> bad = {num(1), text("z"), num(1e9), kMissing};
  std::string kept = "before\n";
  EXPECT_FALSE(library->format_row(columns, bad.data(), kept, why));
  EXPECT_EQ(kept, "before\n");
  EXPECT_NE(why.find("column 3 (d): 1e+09 is not a date"), std::string::npos) << why;
}

// Members larger than the writer's buffer, and a file size limit that makes
// writing fail part way, as a full disk would.
TEST(CsvFile, AWriteErrorFailsTheWriterAndKeepsTheMember) {
  TempDir dir;
  std::string error;
  auto library = open_csv_library(dir.path.string(), error);
  ASSERT_TRUE(library) << error;
  const std::string long_text(100000, 'z');
  const std::vector<Column> columns = {character("x")};
  ASSERT_TRUE(write_rows(*library, "m", columns, std::vector<std::vector<Cell>>(30, {text(long_text)})));
  const Rows before = read_member(*library, "m");
  EXPECT_EQ(before, Rows(30, {long_text}));

  auto writer = library->create("m", columns, error);
  ASSERT_TRUE(writer) << error;
  rlimit saved{};
  getrlimit(RLIMIT_FSIZE, &saved);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit = saved;
  limit.rlim_cur = 3 << 20;
  setrlimit(RLIMIT_FSIZE, &limit);
  int written = 0;
  while (written < 1000 && writer->write(std::vector<Cell>{text(long_text)}.data())) ++written;
  setrlimit(RLIMIT_FSIZE, &saved);
  std::signal(SIGXFSZ, handler);
  EXPECT_LT(written, 1000);
  EXPECT_NE(writer->error().find("m.csv: cannot write the new member"), std::string::npos) << writer->error();
  EXPECT_FALSE(writer->commit());
  EXPECT_EQ(dir.files(), std::vector<std::string>{"m.csv"});
  EXPECT_EQ(read_member(*library, "m"), before);
}

TEST(CsvFile, ReadsQuotingLineEndingsAndBlanks) {
  TempDir dir;
  std::string error;
  auto reader = open_text(dir,
                          "\xEF\xBB\xBF"
                          "a, \"b\" ,c\r\n"
                          "1,\"x, \"\"y\"\"\nz\",.\r\n"
                          "\r\n"
                          " +2 ,plain,\n"
                          "\n"
                          "-3e2, \"q\" ,4",
                          error);
  ASSERT_TRUE(reader) << error;
  EXPECT_EQ(layout(reader->columns()), "a num, b $8, c num");
  const Rows expected = {{"1#3ff0000000000000", "x, \"y\"\nz", "."},
                         {"2#4000000000000000", "plain", "."},
                         {"-300#c072c00000000000", "q", "4#4010000000000000"}};
  EXPECT_EQ(read_all(*reader), expected);
}

// Rows cut by the end of the buffer at every possible place must read the same.
// Then what the fuzzer kept: a reader whose buffer is three bytes, so that every
// row is cut somewhere, reads what the full-size reader reads, errors included.
TEST(CsvFile, RowsAcrossBufferEndsReadTheSame) {
  TempDir dir;
  std::string file = "n,s,d\n";
  Rows expected(1);
  std::size_t longest = 0;
  std::mt19937 random(7);
  for (int i = 0; i < 400; ++i) {
    std::string s(random() % 40, 'a' + i % 26);
    if (i % 3 == 0) s += "\"\n,";
    longest = std::max(longest, s.size());
    const double x = static_cast<int>(random() % 100000) / 8.0 - 5000;
    std::ostringstream row;
    row << std::setprecision(17) << x << ",\"";
    for (char c : s) row << (c == '"' ? "\"\"" : std::string(1, c));
    row << "\"," << (i % 5 == 0 ? "" : "2020-02-29") << (i % 2 ? "\r\n" : "\n");
    file += row.str();
    expected.push_back(show_row({numeric("n"), character("s"), numeric("d")},
                                {num(x), text(s), i % 5 == 0 ? kMissing : num(k20200229)}));
  }
  expected[0] = {"n num, s $" + std::to_string(longest) + ", d date"};
  expected.push_back({""});
  dir.put("t.csv", file);
  for (std::size_t buffer : {1, 2, 3, 5, 17, 64, 1000, 1 << 20})
    EXPECT_EQ(read_through(dir.path / "t.csv", buffer), expected) << "buffer " << buffer;

  int files = 0;
  for (const auto& entry : fs::directory_iterator(FMSD_FUZZ_CORPUS "/csv")) {
    EXPECT_EQ(read_through(entry.path(), 3), read_through(entry.path(), 1 << 20)) << entry.path();
    ++files;
  }
  EXPECT_GT(files, 0);
}

// Decimal texts as the C library reads them (correctly rounded), whatever path
// the reader takes for them; among them 19-digit texts of the points halfway
// between two doubles, where rounding twice goes wrong.
TEST(CsvFile, NumbersReadAsStrtodReadsThem) {
  TempDir dir;
  std::mt19937_64 random(99);
  std::string file = "x\n";
  std::vector<double> expected;
  for (int i = 0; i < 40000; ++i) {
    char text[64];
    const double x = std::ldexp(static_cast<double>(random() >> 11), static_cast<int>(random() % 80) - 90);
    const int digits = 1 + static_cast<int>(random() % 21);
    if (i % 2) {
      std::snprintf(text, sizeof text, i % 3 ? "%.*f" : "%.*g", digits, i % 4 == 1 ? x : -x);
    } else {
      const double y = std::ldexp(static_cast<double>(random() >> 11), -36 - static_cast<int>(random() % 8));
      std::snprintf(text, sizeof text, "%.13Lf", (static_cast<long double>(y) + std::nextafter(y, 1e9)) / 2);
    }
    file += std::string(text) + "\n";
    expected.push_back(std::strtod(text, nullptr));
  }
  std::string error;
  auto reader = open_text(dir, file, error);
  ASSERT_TRUE(reader) << error;
  Cell cell;
  for (double x : expected) {
    ASSERT_TRUE(reader->next(&cell)) << reader->error();
    ASSERT_EQ(std::bit_cast<std::uint64_t>(cell.number), std::bit_cast<std::uint64_t>(x)) << x;
  }
  EXPECT_FALSE(reader->next(&cell));
}

TEST(CsvFile, DatetimesWithFractionsEitherSideOf1960) {
  TempDir dir;
  std::string error;
  auto reader = open_text(dir,
                          "t\n1959-12-31T23:59:59.000\n1959-12-31 23:59:58.25\n1960-01-01T00:00:00.5\n"
                          "1582-01-01T00:00\n2021-03-04T05:06:07.125\n",
                          error);
  ASSERT_TRUE(reader) << error;
  EXPECT_EQ(reader->columns()[0].form, Form::DateTime);
  Cell cell;
  for (double x : {-1.0, -1.75, 0.5, k15820101 * 86400, k20210304T050607 + 0.125}) {
    ASSERT_TRUE(reader->next(&cell)) << reader->error();
    EXPECT_EQ(cell.number, x);
  }
}

TEST(CsvFile, TypesComeFromTheFirstRows) {
  TempDir dir;
  std::string file = "num,day,at,mixed,quoted,empty,late\n";
  for (int i = 0; i < 3000; ++i) {
    file += i % 7 ? "1.5," : ",";
    file += i % 2 ? "1960-01-01," : ".,";
    file += i % 2 ? "2021-03-04T05:06:07," : "2021-03-04,";
    file += i == 500 ? "2020-02-29," : "3,";
    file += i == 9 ? "\"7\"," : "7,";
    file += ",";
    file += i == 2500 ? std::string(300, 'z') + "\n" : "w\n";
  }
  std::string error;
  auto reader = open_text(dir, file, error);
  ASSERT_TRUE(reader) << error;
  // A date among datetimes is midnight; numbers and dates together are text, and
  // so is a column with one quoted cell; a text's length is the longest cell
  // anywhere, not only in the first rows.
  const auto& c = reader->columns();
  EXPECT_EQ(layout(c), "num num, day date, at datetime, mixed $10, quoted $1, empty num, late $300");
  std::vector<Cell> cells(c.size());
  ASSERT_TRUE(reader->next(cells.data()));
  EXPECT_TRUE(is_missing(cells[0].number) && is_missing(cells[1].number) && is_missing(cells[5].number));
  EXPECT_EQ(cells[2].number, k20210304T050607 - 5 * 3600 - 6 * 60 - 7);
  long rows = 1;
  while (reader->next(cells.data())) ++rows;
  EXPECT_EQ(rows, 3000);
  EXPECT_EQ(reader->error(), "");
}

TEST(CsvFile, CellsThatDoNotFitAreErrorsNamingRowAndColumn) {
  TempDir dir;
  const std::string header = "a,b\n";
  std::string ok;
  for (int i = 0; i < 1200; ++i) ok += std::to_string(i) + ",2020-01-01\n";
  struct Case {
    std::string tail, message;
  };
  for (const Case& c :
       {Case{"5,abc\n", "row 1201 (line 1202), column 2 (b): \"abc\" is not a date"},
        Case{"x,2020-01-01\n", "row 1201 (line 1202), column 1 (a): \"x\" is not a number"},
        Case{"\"5\",2020-01-01\n", "column 1 (a): quoted text \"5\" in a numeric column"},
        Case{"5,2020-01-01T10:00:00\n", "column 2 (b): \"2020-01-01T10:00:00\" is not a date"},
        Case{"5\n", "row 1201 (line 1202), column 1 (a): the row ends after 1 of 2 cells"},
        Case{"5,2020-01-01,6\n", "column 2 (b): the row has more than the header's 2 cells"},
        Case{"5,\"2020-01-01\n", "column 2 (b): a quoted cell has no closing quote"},
        Case{"\"5\"x,.\n", "column 1 (a): text follows the closing quote"}}) {
    std::string error;
    auto reader = open_text(dir, header + ok + c.tail + "1,2020-01-01\n", error);
    ASSERT_TRUE(reader) << error;
    std::vector<Cell> cells(2);
    int rows = 0;
    while (reader->next(cells.data())) ++rows;
    EXPECT_EQ(rows, 1200) << c.tail;
    EXPECT_NE(reader->error().find((dir.path / "t.csv").string() + ": "), std::string::npos)
        << reader->error();
    EXPECT_NE(reader->error().find(c.message), std::string::npos) << reader->error();
    EXPECT_FALSE(reader->next(cells.data()));
  }
}

TEST(CsvFile, HeaderErrorsNameFileAndColumn) {
  TempDir dir;
  for (const auto& [text, message] : std::vector<std::pair<std::string, std::string>>{
           {"", "the file is empty"},
           {"\n\n", "the file is empty"},
           {"a,,c\n1,2,3\n", "line 1, column 2: \"\" is not a valid variable name"},
           {"a,b,\n", "line 1, column 3: \"\" is not a valid variable name"},
           {"\n\nx,1y\n", "line 3, column 2: \"1y\" is not a valid variable name"},
           {"a,\"b c\"\n", "column 2: \"b c\" is not a valid variable name"},
           {"Sales,price,SALES\n", "column 3: variable \"SALES\" appears twice (also column 1)"},
           {"a,\"b\n", "the header line has a quoted name with no closing quote"}}) {
    std::string error;
    EXPECT_FALSE(open_text(dir, text, error)) << text;
    EXPECT_NE(error.find((dir.path / "t.csv").string() + ": "), std::string::npos) << error;
    EXPECT_NE(error.find(message), std::string::npos) << error;
  }
}

TEST(CsvFile, MemberFilesAreFoundWhateverTheirCase) {
  TempDir dir;
  dir.put("Sales.csv", "v\n1\n");
  std::string error;
  auto library = open_csv_library(dir.path.string(), error);
  ASSERT_TRUE(library) << error;
  EXPECT_EQ(read_member(*library, "SALES").size(), 1u);
  ASSERT_TRUE(write_rows(*library, "sales", {numeric("v")}, {{num(1)}, {num(2)}}));
  ASSERT_TRUE(write_rows(*library, "NEW", {numeric("v")}, {{num(1)}}));
  EXPECT_EQ(dir.files(), (std::vector<std::string>{"Sales.csv", "new.csv"}));
  EXPECT_EQ(read_member(*library, "Sales").size(), 2u);
}

// ---- SQLite databases -----------------------------------------------------------------

TEST(SqliteDatabase, ReadsTablesOtherProgramsWrote) {
  TempDir dir;
  const std::string file = (dir.path / "other.db").string();
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(file.c_str(), &db), SQLITE_OK);
  ASSERT_EQ(
      sqlite3_exec(db,
                   "CREATE TABLE Sales (id INTEGER, name VARCHAR(20), day DATE, at TIMESTAMP, "
                   "loose, words);"
                   "INSERT INTO Sales VALUES (1, 'ab', '2020-02-29', '2021-03-04 05:06:07', 2.5, 'x');"
                   "INSERT INTO Sales VALUES (NULL, NULL, NULL, NULL, NULL, 17);"
                   "INSERT INTO Sales VALUES (3, 'abcd', '1582-01-01', '2021-03-04T05:06:07.5', 4, NULL);"
                   "CREATE TABLE bad (x REAL); INSERT INTO bad VALUES (1), ('oops');"
                   "CREATE VIEW big AS SELECT * FROM sales WHERE id > 1;",
                   nullptr, nullptr, nullptr),
      SQLITE_OK);
  sqlite3_close(db);
  std::string error;
  auto library = open_sqlite_library(file, error);
  ASSERT_TRUE(library) << error;
  auto reader = library->open("sales", error);
  ASSERT_TRUE(reader) << error;
  EXPECT_EQ(reader->rows(), 3);
  // An untyped column is numeric while it holds numbers only.
  const auto& c = reader->columns();
  EXPECT_EQ(layout(c), "id num, name $4, day date, at datetime, loose num, words $2");
  const Rows rows = read_all(*reader);
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows[0],
            show_row(c, {num(1), text("ab"), num(k20200229), num(k20210304T050607), num(2.5), text("x")}));
  EXPECT_EQ(rows[1], show_row(c, {kMissing, text(""), kMissing, kMissing, kMissing, text("17")}));
  EXPECT_EQ(rows[2], show_row(c, {num(3), text("abcd"), num(k15820101), num(k20210304T050607 + 0.5), num(4),
                                  text("")}));

  // A view reads like a table, and follows the member when it is replaced.
  ASSERT_TRUE(write_rows(*library, "sales", {numeric("id")}, {{num(1)}, {num(5)}}));
  EXPECT_EQ(read_member(*library, "big"), (Rows{show_row({numeric("id")}, {num(5)})}));

  reader = library->open("bad", error);
  ASSERT_TRUE(reader) << error;
  Cell cell;
  EXPECT_TRUE(reader->next(&cell));
  EXPECT_FALSE(reader->next(&cell));
  EXPECT_EQ(reader->error(),
            "SQLite library " + file + ", table bad: row 2, column 1 (x): \"oops\" is not a number");
}

TEST(SqliteDatabase, WritesDeclaredTypesAndIsoText) {
  TempDir dir;
  const std::string file = (dir.path / "new.db").string();
  std::string error;
  auto library = open_sqlite_library(file, error);
  ASSERT_TRUE(library) << error;
  EXPECT_FALSE(fs::exists(file));  // made by the first write
  const std::vector<Column> columns = {numeric("x"), character("s"), numeric("d", Form::Date),
                                       numeric("t", Form::DateTime)};
  auto first = library->create("Out", columns, error);
  ASSERT_TRUE(first) << error;
  EXPECT_FALSE(library->create("other", columns, error));  // one writer at a time
  EXPECT_NE(error.find("table out of the same database is being written"), std::string::npos) << error;
  ASSERT_TRUE(first->write(std::vector<Cell>{num(0.5), text("it's"), num(k20200229), num(-0.5)}.data()));
  ASSERT_TRUE(first->commit());

  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(file.c_str(), &db), SQLITE_OK);
  sqlite3_stmt* s = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(
                db, "SELECT sql, (SELECT x || '|' || s || '|' || d || '|' || t FROM out) FROM sqlite_schema",
                -1, &s, nullptr),
            SQLITE_OK);
  ASSERT_EQ(sqlite3_step(s), SQLITE_ROW);
  EXPECT_STREQ(reinterpret_cast<const char*>(sqlite3_column_text(s, 0)),
               "CREATE TABLE \"out\" (\"x\" REAL, \"s\" TEXT, \"d\" DATE, \"t\" DATETIME)");
  EXPECT_STREQ(reinterpret_cast<const char*>(sqlite3_column_text(s, 1)),
               "0.5|it's|2020-02-29|1959-12-31 23:59:59.5");
  EXPECT_EQ(sqlite3_step(s), SQLITE_DONE);
  sqlite3_finalize(s);
  sqlite3_close(db);

  std::ofstream(dir.path / "junk.db") << "not a database at all, but long enough to have a header.....";
  EXPECT_FALSE(open_sqlite_library((dir.path / "junk.db").string(), error));
  EXPECT_NE(error.find("junk.db: file is not a database"), std::string::npos) << error;
}

}  // namespace
