// Host data sets and messages, driven through the host operations the way the
// module drives them: over an in-memory library whose contents and failures the
// tests choose, then over the CSV and SQLite libraries.
#include "host/datasets.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cctype>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <variant>

#include "host/operations.h"
#include "host/storage.h"

namespace {

using namespace fmsd::host;

std::string upper(std::string s) {
  for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

// ---- an in-memory library ------------------------------------------------------------

using Value = std::variant<double, std::string>;
struct Table {
  std::vector<Column> columns;
  std::vector<std::vector<Value>> rows;
  long bad_row = 0;  // the reader reports a storage error at this row (from 1)
};

struct Store {
  std::map<std::string, Table> tables;
  bool rows_known = true;
  bool refuse_commit = false;
  std::vector<bool> selection;
};

class MemReader : public Reader {
 public:
  MemReader(Store& store, const Table& t) : store_(store), table_(t) {}
  const std::vector<Column>& columns() const override { return table_.columns; }
  std::int64_t rows() const override { return store_.rows_known ? static_cast<std::int64_t>(table_.rows.size()) : -1; }
  void select(const std::vector<bool>& wanted) override { store_.selection = wanted; }
  bool next(Cell* cells) override {
    if (static_cast<long>(at_) + 1 == table_.bad_row) error_ = "row " + std::to_string(at_ + 1) + " is damaged";
    if (!error_.empty() || at_ >= table_.rows.size()) return false;
    const auto& row = table_.rows[at_++];
    for (std::size_t i = 0; i < row.size(); ++i)
      if (const double* x = std::get_if<double>(&row[i]))
        cells[i].number = *x;
      else
        cells[i].text = std::get<std::string>(row[i]);
    return true;
  }
  const std::string& error() const override { return error_; }
  bool rewind() override {
    at_ = 0;
    error_.clear();
    return true;
  }

 private:
  Store& store_;
  const Table& table_;
  std::size_t at_ = 0;
  std::string error_;
};

class MemWriter : public Writer {
 public:
  MemWriter(Store& store, std::string member, std::vector<Column> columns) : store_(store), member_(std::move(member)) {
    staged_.columns = std::move(columns);
  }
  bool write(const Cell* cells) override {
    auto& row = staged_.rows.emplace_back();
    for (std::size_t i = 0; i < staged_.columns.size(); ++i) row.emplace_back(cells[i].number);
    return true;
  }
  bool commit() override {
    if (store_.refuse_commit)
      error_ = "the disk is full";
    else
      store_.tables[member_] = staged_;
    return error_.empty();
  }
  void discard() noexcept override {}
  const std::string& error() const override { return error_; }

 private:
  Store& store_;
  std::string member_;
  Table staged_;
  std::string error_;
};

class MemLibrary : public Library {
 public:
  explicit MemLibrary(std::shared_ptr<Store> store) : store_(std::move(store)) {}
  std::unique_ptr<Reader> open(const std::string& member, std::string& error) override {
    auto it = store_->tables.find(upper(member));
    if (it != store_->tables.end()) return std::make_unique<MemReader>(*store_, it->second);
    error = member + " does not exist";
    return nullptr;
  }
  std::unique_ptr<Writer> create(const std::string& member, const std::vector<Column>& columns, std::string&) override {
    return std::make_unique<MemWriter>(*store_, upper(member), columns);
  }
  std::string describe() const override { return "memory"; }

 private:
  std::shared_ptr<Store> store_;
};

// ---- the module's side -------------------------------------------------------------------

struct Record {
  unsigned char request[FMSD_REQUEST_BYTES] = {};
  fmsd_word access[FMSD_ACCESS_WORDS] = {};
  fmsd_word* handle() const { return reinterpret_cast<fmsd_word*>(access[FMSD_ACCESS_HANDLE]); }
  fmsd_word ds() const { return access[FMSD_ACCESS_HANDLE]; }
  fmsd_request_fn* function(int slot) const {
    return reinterpret_cast<fmsd_request_fn* const*>(handle()[FMSD_HANDLE_FUNCTIONS])[slot];
  }
};

template <class Op>
typename Op::type* operation(Host& host) {
  return reinterpret_cast<typename Op::type*>(host.function(Op::facility, Op::slot));
}
#define OP(name) operation<op::name>(host)

struct OutVar {
  const char* name;
  const char* format;
  double* source;
  const char* label = "";
};

class DataSetsTest : public ::testing::Test {
 protected:
  DataSetsTest() {
    std::string error;
    EXPECT_TRUE(host.datasets().bind("WORK", std::make_unique<MemLibrary>(store), error)) << error;
    store->tables["SALES"] = Table{{{"DATE", true, Form::Date, 8, "Month"},
                                    {"REGION", false, Form::Number, 5, ""},
                                    {"AMOUNT", true, Form::Number, 8, "Sales amount"},
                                    {"STAMP", true, Form::DateTime, 8, ""}},
                                   {{31.0, std::string("north"), 1.5, 0.0},
                                    {59.0, std::string("south"), missing_value(), 60.0},
                                    {90.0, std::string("ea"), -2.25, 120.0}}};
  }

  // What the module does to open a data set: split the name, fill the request, open.
  int open(const char* name, int mode, Record& r) {
    char first[34], block[34], last[34];
    fmsd_word levels = 0;
    if (OP(znamdiv)(0, name, static_cast<int>(std::strlen(name)), &levels, 3, first, block, last) != 0) return -100;
    std::memset(r.request + FMSD_REQUEST_LEVEL1, ' ', 8);
    std::memcpy(r.request + FMSD_REQUEST_LEVEL1, first + 2, static_cast<std::size_t>(std::min<int>(first[0], 8)));
    std::memcpy(r.request + FMSD_REQUEST_NAMEBLOCK, block, 34);
    std::memcpy(r.request + FMSD_REQUEST_MODE, &mode, sizeof mode);
    return OP(xoopen)(r.access, r.request);
  }
  // The module's read request, with the bookkeeping that is the caller's.
  int read(Record& r) {
    r.access[FMSD_ACCESS_REQUEST] = FMSD_REQUEST_READ_NEXT;
    r.access[FMSD_ACCESS_FLAGS] |= FMSD_ACCESS_COUNTED;
    const int result = r.function(FMSD_HANDLE_READ_SLOT)(r.access);
    r.handle()[FMSD_HANDLE_RESULT] = result;
    if (result != 0) return OP(xofprc)(r.access, result, 1);
    r.handle()[FMSD_HANDLE_ROWS] += 1;
    r.handle()[FMSD_HANDLE_BUFFER] = r.access[FMSD_ACCESS_BUFFER];
    return 0;
  }
  int write(Record& r) {
    fmsd_word* h = r.handle();
    std::memmove(reinterpret_cast<void*>(h[FMSD_HANDLE_BUFFER]), reinterpret_cast<void*>(r.access[FMSD_ACCESS_BUFFER]),
                 static_cast<std::size_t>(h[FMSD_HANDLE_BUFFER_BYTES]));
    const int result = r.function(FMSD_HANDLE_WRITE_SLOT)(r.access);
    return result != 0 ? OP(xofprc)(r.access, result, 4) : 0;
  }
  // The module's counting loop: every read that does not end the data counts.
  int count(Record& r) {
    fmsd_word all = 0;
    EXPECT_EQ(OP(xvallv)(r.ds(), &all), 0);
    int n = 0;
    while ((static_cast<unsigned>(read(r)) & FMSD_STATUS_MASK) != FMSD_STATUS_END) ++n;
    return n;
  }
  fmsd_word define(Record& out, std::initializer_list<OutVar> vars) {
    fmsd_word v = 0;
    EXPECT_EQ(OP(xvputi)(out.ds(), static_cast<int>(vars.size()), 32, &v), 0);
    for (const OutVar& var : vars) {
      fmsd_vardesc d;
      OP(xvnamei)(&d);
      std::memcpy(d.format, var.format, 8);
      d.name = var.name;
      d.name_length = static_cast<std::int16_t>(std::strlen(var.name));
      d.label = var.label;
      EXPECT_EQ(OP(xvputd)(v, &d, 0, var.source, 8, 0, 0), 0) << var.name;
    }
    EXPECT_EQ(OP(xvpute)(v), 0);
    return v;
  }
  fmsd_word define_xy(Record& out) { return define(out, {{"X", "        ", &x}, {"Y", "        ", &y}}); }
  // An input vector on the named variables, ended as the services end it.
  fmsd_word bind(Record& in, std::initializer_list<std::pair<const char*, double*>> vars) {
    fmsd_word v = 0;
    EXPECT_EQ(OP(xvgeti)(in.ds(), static_cast<int>(vars.size()), &v), 0);
    for (auto [name, destination] : vars) {
      int number = 0;
      EXPECT_EQ(OP(xvfind)(in.ds(), name, static_cast<int>(std::strlen(name)), &number, 0), 0) << name;
      EXPECT_EQ(OP(xvgetd)(v, number, 0, destination, 8, 8, 0, 0), 0) << name;
    }
    EXPECT_EQ(OP(xvsele)(in.ds()), 0);
    EXPECT_EQ(OP(xvgete)(v), 0);
    return v;
  }
  bool logged(const std::string& a, const std::string& b = "") const {
    for (const auto& line : host.log())
      if (line.find(a) != std::string::npos && line.find(b) != std::string::npos) return true;
    return false;
  }
  std::size_t rows_of(const char* member) const { return store->tables.at(member).rows.size(); }

  std::shared_ptr<Store> store = std::make_shared<Store>();
  Host host;
  double x = 0, y = 0;
};

TEST_F(DataSetsTest, NamesSplitIntoLibraryAndMember) {
  char first[34], block[34], last[34];
  fmsd_word levels = 0;
  ASSERT_EQ(OP(znamdiv)(0, "sales2.Monthly_totals", 21, &levels, 3, first, block, last), 0);
  EXPECT_EQ(levels, 2);
  EXPECT_EQ(std::string(first, 8), std::string("\x06\x00sales2", 8));
  EXPECT_EQ(std::string(last, 16), std::string("\x0E\x00Monthly_totals", 16));
  EXPECT_EQ(std::string(block, 34), std::string("\x0E\x00Monthly_totals", 16) + std::string(18, ' '));
  ASSERT_EQ(OP(znamdiv)(0, "AIR", 3, &levels, 3, first, block, last), 0);
  EXPECT_EQ(levels, 1);
  EXPECT_EQ(std::string(first, 6), std::string("\x04\x00WORK", 6));

  const std::string x33(33, 'x');
  for (const std::string& bad : std::vector<std::string>{"a.b.c", "../etc", "work./x", "1abc", "lib/x", "a.", ".b",
                                                         "   ", "toolonglib.x", "w." + x33, x33})
    EXPECT_NE(OP(znamdiv)(0, bad.c_str(), static_cast<int>(bad.size()), &levels, 3, first, block, last), 0) << bad;
  EXPECT_TRUE(logged("\"a.b.c\"", "more than two levels"));
}

TEST_F(DataSetsTest, ReadRequestsFollowTheModulesProtocol) {
  Record r;
  ASSERT_EQ(open("work.sales", FMSD_OPEN_INPUT, r), 0);
  int variables = 0, value = 0;
  EXPECT_EQ(OP(xoinfo)(r.ds(), FMSD_INFO_VARIABLES, &variables), 0);
  EXPECT_EQ(OP(xoinfo)(r.ds(), FMSD_INFO_ROWS, &value), 0);
  EXPECT_EQ(std::pair(variables, value), std::pair(4, 3));
  // 8 bytes per number and the declared width of the character variable.
  EXPECT_EQ(r.handle()[FMSD_HANDLE_BUFFER_BYTES], 8 + 5 + 8 + 8);
  const auto* buffer = reinterpret_cast<const char*>(r.access[FMSD_ACCESS_BUFFER]);
  const auto number = [&](int offset) {
    double d;
    std::memcpy(&d, buffer + offset, 8);
    return d;
  };
  ASSERT_EQ(read(r), 0);
  EXPECT_TRUE(number(0) == 31.0 && std::string(buffer + 8, 5) == "north" && number(13) == 1.5);
  ASSERT_EQ(read(r), 0);
  EXPECT_TRUE(is_missing(number(13)));
  ASSERT_EQ(read(r), 0);
  EXPECT_TRUE(std::string(buffer + 8, 5) == "ea   " && number(21) == 120.0);
  EXPECT_EQ(read(r), FMSD_STATUS_END);
  // The host leaves the caller's bookkeeping alone.
  EXPECT_EQ(r.handle()[FMSD_HANDLE_ROWS], 3);
  EXPECT_EQ(r.handle()[FMSD_HANDLE_BUFFER], r.access[FMSD_ACCESS_BUFFER]);

  EXPECT_EQ(OP(xbyrwnd)(r.ds(), 70), 0);
  ASSERT_EQ(read(r), 0);
  EXPECT_EQ(number(0), 31.0);
  r.access[FMSD_ACCESS_REQUEST] = 12;
  EXPECT_EQ(r.function(FMSD_HANDLE_READ_SLOT)(r.access), FMSD_STATUS_BAD_REQUEST);
  EXPECT_TRUE(logged("Request 12", "WORK.SALES"));
  EXPECT_EQ(OP(xoclose)(r.ds(), 0), 0);

  // An unknown count: the module counts by reading, reopens, and reads again.
  store->rows_known = false;
  ASSERT_EQ(open("SALES", FMSD_OPEN_SECOND_INPUT, r), 0);
  EXPECT_LT(OP(xoinfo)(r.ds(), FMSD_INFO_ROWS, &value), 0);
  EXPECT_EQ(OP(xoinfo)(r.ds(), FMSD_INFO_LOGICAL_ROWS, &value), 0);
  EXPECT_EQ(value, -1);
  EXPECT_EQ(count(r), 3);
  EXPECT_EQ(OP(xoreopn)(r.ds(), 1), 0);
  EXPECT_EQ(count(r), 3);
  EXPECT_EQ(OP(xoclose)(r.ds(), 0), 0);
  EXPECT_LT(OP(xoclose)(r.ds(), 0), 0);  // closed: refused, not dereferenced
  EXPECT_EQ(host.datasets().open_count(), 0u);
}

TEST_F(DataSetsTest, VariablesAreFoundDescribedAndBound) {
  Record r;
  ASSERT_EQ(open("SALES", FMSD_OPEN_INPUT, r), 0);
  const struct {
    const char* name;
    int type, length;
    const char* format;
    int width;
    const char* label;
  } expected[] = {{"date", 1, 8, "DATE    ", 9, "Month"},
                  {"Region", 2, 5, "        ", 0, ""},
                  {"AMOUNT", 1, 8, "        ", 0, "Sales amount"},
                  {"stamp", 1, 8, "DATETIME", 16, ""}};
  for (const auto& e : expected) {
    int number = 0;
    void* p = nullptr;
    ASSERT_EQ(OP(xvfind)(r.ds(), e.name, static_cast<int>(std::strlen(e.name)), &number, 0), 0) << e.name;
    ASSERT_EQ(OP(xvname)(r.ds(), number, &p), 0);
    const auto* d = static_cast<const fmsd_vardesc*>(p);
    EXPECT_EQ(upper(std::string(d->name, static_cast<std::size_t>(d->name_length))), upper(e.name));
    EXPECT_EQ(d->type, e.type) << e.name;
    EXPECT_EQ(d->length, e.length) << e.name;
    EXPECT_EQ(std::string(d->format, 8), e.format) << e.name;
    EXPECT_EQ(d->format_width, e.width) << e.name;
    EXPECT_STREQ(d->label, e.label);
  }
  int number = 0;
  void* p = nullptr;
  EXPECT_LT(OP(xvfind)(r.ds(), "PRICE", 5, &number, 0), 0);
  EXPECT_TRUE(logged("PRICE", "WORK.SALES"));
  EXPECT_LT(OP(xvname)(r.ds(), 5, &p), 0);

  double amount = 0, date = 0, text = 0;
  const fmsd_word v = bind(r, {{"AMOUNT", &amount}, {"DATE", &date}});
  EXPECT_LT(OP(xvgetd)(v, 2, 0, &text, 8, 8, 0, 0), 0);  // REGION is character
  EXPECT_TRUE(logged("REGION", "character"));
  EXPECT_EQ(store->selection, (std::vector<bool>{true, false, true, false}));
  std::vector<double> dates, amounts;
  while (read(r) == 0) {
    ASSERT_EQ(OP(xyvget)(v, 0), 0);
    dates.push_back(date);
    amounts.push_back(amount);
  }
  EXPECT_EQ(dates, (std::vector<double>{31, 59, 90}));
  EXPECT_EQ(amounts[0], 1.5);
  EXPECT_TRUE(is_missing(amounts[1]));
  EXPECT_EQ(amounts[2], -2.25);
  EXPECT_EQ(OP(xvgett)(v), 0);
  EXPECT_LT(OP(xyvget)(v, 0), 0);
  EXPECT_EQ(OP(xoclose)(r.ds(), 0), 0);
}

TEST_F(DataSetsTest, OutputVectorsWriteRowsWhenClosed) {
  Record out;
  ASSERT_EQ(open("RESULT", FMSD_OPEN_OUTPUT, out), 0);
  EXPECT_NE(out.access[FMSD_ACCESS_BUFFER], 0);
  const fmsd_word v = define(out, {{"WHEN", "DATE    ", &x, "Month start"}, {"VALUE", "        ", &y}});
  EXPECT_EQ(out.handle()[FMSD_HANDLE_BUFFER_BYTES], 16);
  fmsd_vardesc d;
  ASSERT_EQ(OP(xvnamei)(&d), 0);
  d.name = "EXTRA   ";  // blank-padded: the length counts
  d.name_length = 5;
  EXPECT_LT(OP(xvputd)(v, &d, 0, &y, 8, 0, 0), 0);  // the definition has ended

  // xyvput alone; xyvput then the write request (one row, not two); the write
  // request alone, which takes the bound values.
  x = 0, y = 10;
  ASSERT_EQ(OP(xyvput)(v, 0), 0);
  x = 31, y = 20;
  ASSERT_EQ(OP(xyvput)(v, 0), 0);
  ASSERT_EQ(write(out), 0);
  x = 59, y = missing_value();
  ASSERT_EQ(write(out), 0);
  int rows = 0;
  EXPECT_EQ(OP(xoinfo)(out.ds(), FMSD_INFO_ROWS, &rows), 0);
  EXPECT_EQ(rows, 3);
  EXPECT_EQ(store->tables.count("RESULT"), 0u);  // nothing visible before the close
  EXPECT_EQ(OP(xvputt)(v), 0);
  ASSERT_EQ(OP(xoclose)(out.ds(), 0), 0);

  const Table& t = store->tables.at("RESULT");
  ASSERT_EQ(t.columns.size(), 2u);
  EXPECT_EQ(t.columns[0].name, "WHEN");
  EXPECT_EQ(t.columns[0].form, Form::Date);
  EXPECT_EQ(t.columns[0].label, "Month start");
  EXPECT_EQ(t.columns[1].form, Form::Number);
  ASSERT_EQ(t.rows.size(), 3u);
  EXPECT_EQ(std::get<double>(t.rows[1][0]), 31);
  EXPECT_EQ(std::get<double>(t.rows[1][1]), 20);
  EXPECT_EQ(std::get<double>(t.rows[2][0]), 59);
  EXPECT_TRUE(is_missing(std::get<double>(t.rows[2][1])));
}

TEST_F(DataSetsTest, OnlySoundOutputsReplaceADataSet) {
  const std::size_t original = rows_of("SALES");
  Record r;
  ASSERT_EQ(open("SALES", FMSD_OPEN_OUTPUT, r), 0);
  define_xy(r);
  ASSERT_EQ(write(r), 0);
  EXPECT_EQ(OP(xoclose)(r.ds(), FMSD_CLOSE_DISCARD), 0);
  EXPECT_EQ(rows_of("SALES"), original);

  // Within a service call a normal close waits for the call's outcome.
  host.datasets().begin_call();
  ASSERT_EQ(open("SALES", FMSD_OPEN_OUTPUT, r), 0);
  define_xy(r);
  ASSERT_EQ(write(r), 0);
  EXPECT_EQ(OP(xoclose)(r.ds(), 0), 0);
  Record left_open;
  ASSERT_EQ(open("OTHER", FMSD_OPEN_OUTPUT, left_open), 0);
  define_xy(left_open);
  EXPECT_TRUE(host.datasets().finish_call(false));
  EXPECT_EQ(rows_of("SALES"), original);
  EXPECT_EQ(store->tables.count("OTHER"), 0u);
  EXPECT_EQ(host.datasets().open_count(), 0u);

  host.datasets().begin_call();
  ASSERT_EQ(open("OTHER", FMSD_OPEN_OUTPUT, r), 0);
  define_xy(r);
  ASSERT_EQ(write(r), 0);
  EXPECT_TRUE(host.datasets().finish_call(true));
  EXPECT_EQ(rows_of("OTHER"), 1u);

  // Closed before anything was defined: nothing to save, nothing replaced.
  ASSERT_EQ(open("SALES", FMSD_OPEN_OUTPUT, r), 0);
  EXPECT_EQ(OP(xoclose)(r.ds(), 0), 0);
  EXPECT_EQ(rows_of("SALES"), original);

  store->refuse_commit = true;
  ASSERT_EQ(open("SALES", FMSD_OPEN_OUTPUT, r), 0);
  define_xy(r);
  EXPECT_LT(OP(xoclose)(r.ds(), 0), 0);
  EXPECT_TRUE(logged("WORK.SALES", "the disk is full"));
}

TEST_F(DataSetsTest, FaultsAreReportedAndContained) {
  host.datasets().fail_open("work.sales");
  Record r;
  EXPECT_LT(open("SALES", FMSD_OPEN_INPUT, r), 0);
  EXPECT_EQ(r.ds(), 0);
  EXPECT_TRUE(logged("WORK.SALES", "could not be opened"));
  host.datasets().clear_faults();

  // One failed read, then the end of the data, so a counting loop stops.
  host.datasets().fail_read("SALES", 2);
  ASSERT_EQ(open("SALES", FMSD_OPEN_INPUT, r), 0);
  EXPECT_EQ(read(r), 0);
  EXPECT_EQ(read(r), FMSD_STATUS_READ_FAILED);
  EXPECT_EQ(read(r), FMSD_STATUS_END);
  EXPECT_TRUE(logged("Row 2", "WORK.SALES"));
  EXPECT_TRUE(logged("Reading data set WORK.SALES failed"));
  EXPECT_EQ(OP(xoreopn)(r.ds(), 1), 0);
  EXPECT_EQ(count(r), 2);
  EXPECT_EQ(OP(xoclose)(r.ds(), 0), 0);
  host.datasets().clear_faults();

  store->tables["SALES"].bad_row = 3;
  ASSERT_EQ(open("SALES", FMSD_OPEN_INPUT, r), 0);
  EXPECT_EQ(count(r), 3);
  EXPECT_TRUE(logged("WORK.SALES", "row 3 is damaged"));
  EXPECT_EQ(OP(xoclose)(r.ds(), 0), 0);

  // A failed write refuses the rest of the rows; the old data set stays.
  host.datasets().fail_write("WORK.SALES", 2);
  ASSERT_EQ(open("SALES", FMSD_OPEN_OUTPUT, r), 0);
  const fmsd_word v = define_xy(r);
  EXPECT_EQ(OP(xyvput)(v, 0), 0);
  EXPECT_EQ(write(r), 0);
  EXPECT_LT(OP(xyvput)(v, 0), 0);
  EXPECT_EQ(write(r), FMSD_STATUS_WRITE_FAILED);
  EXPECT_TRUE(logged("Writing data set WORK.SALES failed"));
  EXPECT_LT(OP(xoclose)(r.ds(), 0), 0);
  EXPECT_EQ(store->tables.at("SALES").columns.size(), 4u);
  EXPECT_TRUE(logged("WORK.SALES was not saved"));

  EXPECT_LT(open("NOWHERE.X", FMSD_OPEN_INPUT, r), 0);
  EXPECT_TRUE(logged("library NOWHERE is not bound"));
  EXPECT_LT(open("MISSING", FMSD_OPEN_INPUT, r), 0);
  EXPECT_TRUE(logged("WORK.MISSING", "does not exist"));
}

TEST_F(DataSetsTest, MessagesCarryLabelsAndStatuses) {
  char buffer[256];
  std::vector<std::string> labels;
  for (int n = 1120; n <= 1143; ++n) {
    ASSERT_EQ(OP(xpmstr)(buffer, 256, 421, n), 0) << n;
    labels.push_back(buffer);
  }
  EXPECT_EQ((std::vector<std::string>{labels[0], labels[2], labels[4]}),
            (std::vector<std::string>{"Lag", "Autocovariance", "Autocorrelation"}));
  EXPECT_EQ(std::set<std::string>(labels.begin(), labels.end()).size(), 24u);
  ASSERT_EQ(OP(xpmstr)(buffer, 4, 421, 1122), 0);
  EXPECT_STREQ(buffer, "Aut");
  EXPECT_NE(OP(xpmstr)(buffer, 256, 421, 1144), 0);
  EXPECT_NE(OP(xpmstr)(buffer, 256, 420, 1120), 0);

  host.clear_log();
  EXPECT_EQ(OP(xprrlog)(0, 0), 0);
  EXPECT_EQ(OP(xprrlog)(0, FMSD_STATUS_END), 0);
  EXPECT_TRUE(host.log().empty());
  Record r;
  ASSERT_EQ(open("SALES", FMSD_OPEN_INPUT, r), 0);
  int number = 0;
  const int status = OP(xvfind)(r.ds(), "PRICE", 5, &number, 0);
  host.clear_log();
  EXPECT_EQ(OP(xprrlog)(0, status), 0);
  ASSERT_EQ(host.log().size(), 1u);
  EXPECT_TRUE(logged("not found", "Variable PRICE is not in data set WORK.SALES"));
  EXPECT_EQ(OP(xoclose)(r.ds(), 0), 0);
}

// The same round trip on each real backend, bit for bit through the vectors.
class Backends : public DataSetsTest, public ::testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(dir);
    std::string error;
    ASSERT_TRUE(GetParam() ? host.datasets().bind_database("LIB", (dir / "lib.db").string(), error)
                           : host.datasets().bind_directory("LIB", dir.string(), error))
        << error;
  }
  void TearDown() override { std::filesystem::remove_all(dir); }
  const std::filesystem::path dir = std::filesystem::temp_directory_path() /
                                    ("fmsd-datasets-" + std::to_string(::getpid()) + (GetParam() ? "-db" : "-csv"));
};

TEST_P(Backends, RoundTripThroughVectors) {
  const double dates[] = {0, 31, 21915}, values[] = {0.1 + 0.2, missing_value(), -1e-300};
  Record out;
  ASSERT_EQ(open("lib.series", FMSD_OPEN_OUTPUT, out), 0);
  const fmsd_word v = define(out, {{"WHEN", "DATE    ", &x}, {"VALUE", "        ", &y}});
  for (int i = 0; i < 3; ++i) {
    x = dates[i], y = values[i];
    ASSERT_EQ(OP(xyvput)(v, 0), 0);
    ASSERT_EQ(write(out), 0);
  }
  ASSERT_EQ(OP(xoclose)(out.ds(), 0), 0);

  Record in;
  ASSERT_EQ(open("LIB.SERIES", FMSD_OPEN_INPUT, in), 0);
  int rows = 0;
  // A database knows its row count; a CSV file is counted by reading.
  EXPECT_EQ(OP(xoinfo)(in.ds(), FMSD_INFO_ROWS, &rows) == 0, GetParam());
  EXPECT_EQ(rows, GetParam() ? 3 : -1);
  EXPECT_EQ(count(in), 3);
  ASSERT_EQ(OP(xoreopn)(in.ds(), 1), 0);
  int number = 0;
  void* p = nullptr;
  ASSERT_EQ(OP(xvfind)(in.ds(), "when", 4, &number, 0), 0);
  ASSERT_EQ(OP(xvname)(in.ds(), number, &p), 0);
  EXPECT_EQ(std::string(static_cast<fmsd_vardesc*>(p)->format, 8), "DATE    ");
  double when = 0, value = 0;
  const fmsd_word iv = bind(in, {{"WHEN", &when}, {"VALUE", &value}});
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(read(in), 0);
    ASSERT_EQ(OP(xyvget)(iv, 0), 0);
    EXPECT_EQ(when, dates[i]);
    EXPECT_EQ(std::memcmp(&value, &values[i], 8), 0) << i;
  }
  EXPECT_EQ(read(in), FMSD_STATUS_END);
  EXPECT_EQ(OP(xoclose)(in.ds(), 0), 0);
}

INSTANTIATE_TEST_SUITE_P(DataSets, Backends, ::testing::Values(false, true),
                         [](const auto& param) { return param.param ? "SQLite" : "CSV"; });

}  // namespace
