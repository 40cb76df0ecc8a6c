// CSV libraries: a directory whose members are member.csv files.
//
// A reader streams the file through one buffer that it refills in place, so its
// memory follows the longest row and never the number of rows.  Numbers and dates
// are decoded straight from the buffer; a text cell is a view into it, or into a
// per-row scratch string when doubled quotes had to be undone.  A row cut by the
// end of the buffer is parsed again from its start once more bytes are in.
//
// A writer fills a temporary file beside the member and renames it over the
// member on commit, so readers see the old member or the new one, never a mix.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <limits>
#include <system_error>
#include <utility>

#include "host/host.h"
#include "host/storage.h"
#include "host/storage_detail.h"

namespace fmsd::host {
namespace {

bool blank(char c) noexcept { return c == ' ' || c == '\t'; }
bool digit(char c) noexcept { return c >= '0' && c <= '9'; }

std::string_view trim(const char* begin, const char* end) noexcept {
  while (begin < end && blank(*begin)) ++begin;
  while (end > begin && blank(end[-1])) --end;
  return {begin, static_cast<std::size_t>(end - begin)};
}

bool two_digits(const char* p, int& value) noexcept {
  if (!digit(p[0]) || !digit(p[1])) return false;
  value = (p[0] - '0') * 10 + (p[1] - '0');
  return true;
}

char* put_two(char* out, int value) noexcept {
  out[0] = static_cast<char>('0' + value / 10);
  out[1] = static_cast<char>('0' + value % 10);
  return out + 2;
}

// 10^k - f for the k fraction digits f (not all zero), in k digits: the fraction
// that completes f to a whole second.  Applied twice it gives f back.
void complement(const char* f, std::size_t k, char* out) noexcept {
  std::size_t last = k;
  while (last > 0 && f[last - 1] == '0') --last;
  for (std::size_t i = 0; i < k; ++i)
    out[i] = i + 1 < last    ? static_cast<char>('9' - (f[i] - '0'))
             : i + 1 == last ? static_cast<char>('0' + 10 - (f[i] - '0'))
                             : '0';
}

// n + 0.f read as one decimal number, so that it rounds once, exactly as the
// shortest fixed text that format_datetime writes reads back.  Before 1960 the
// text is the negative decimal -(|n| - 1).(complement of f).
double seconds_value(std::int64_t n, const char* f, std::size_t k) {
  if (std::all_of(f, f + k, [](char c) { return c == '0'; })) return static_cast<double>(n);
  char small[128];
  std::string large;
  char* text = small;
  if (k + 24 > sizeof small) {
    large.resize(k + 24);
    text = large.data();
  }
  char* p = text;
  if (n < 0) *p++ = '-';
  p = std::to_chars(p, p + 24, n < 0 ? -(n + 1) : n).ptr;
  *p++ = '.';
  if (n < 0)
    complement(f, k, p);
  else
    std::memcpy(p, f, k);
  double value = 0;
  std::from_chars(text, p + k, value);
  return value;
}

std::uint64_t digits_at(const char*& q, const char* end, std::uint64_t value) noexcept {
  while (q < end && digit(*q)) value = value * 10 + static_cast<unsigned>(*q++ - '0');
  return value;
}

// The common decimal numbers (no exponent, at most 19 digits) without the general
// parser.  The digits and the power of ten are exact, so one division rounds
// correctly, as the general parser would: in a double when the digits fit its 53
// bits, else in the 64 bits of the x87 long double where there is one.  Rounding
// twice (to 64 bits, then to 53) differs from rounding once only when the first
// result falls exactly halfway between two doubles; that case, and anything else
// unusual, is left to std::from_chars: null.
const char* quick_number(const char* p, const char* end, double& value) noexcept {
  static constexpr double kPower[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,
                                      1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19};
  const bool negative = p < end && *p == '-';
  const char* q = p + negative;
  const char* first = q;
  std::uint64_t digits = digits_at(q, end, 0);
  auto count = q - first;
  int scale = 0;
  if (q < end && *q == '.') {
    const char* fraction = ++q;
    digits = digits_at(q, end, digits);
    scale = static_cast<int>(q - fraction);
    count += scale;
  }
  if (count == 0 || count > 19 || (q < end && (*q == 'e' || *q == 'E'))) return nullptr;
  double x = 0;
  if (scale == 0) {
    x = static_cast<double>(digits);
  } else if (digits <= std::uint64_t{1} << 53) {
    x = static_cast<double>(digits) / kPower[scale];
  } else if constexpr (std::numeric_limits<long double>::digits == 64) {
    // Powers of ten up to 1e19 are exact in double, hence in long double.
    const long double wide = static_cast<long double>(digits) / static_cast<long double>(kPower[scale]);
    std::uint64_t bits;
    std::memcpy(&bits, &wide, sizeof bits);  // the significand, with its integer bit
    if ((bits & 0x7FF) == 0x400) return nullptr;
    x = static_cast<double>(wide);
  } else {
    return nullptr;
  }
  value = negative ? -x : x;
  return q;
}

}  // namespace

namespace detail {

bool parse_number(std::string_view text, double& value) noexcept {
  const std::string_view t = trim(text.data(), text.data() + text.size());
  const char* p = t.data();
  const char* end = p + t.size();
  if (end - p > 1 && *p == '+' && p[1] != '-' && p[1] != '+') ++p;
  if (p == end) return false;
  if (quick_number(p, end, value) == end) return true;
  const auto [q, ec] = std::from_chars(p, end, value);
  return ec == std::errc() && q == end;
}

const char* scan_date(const char* p, const char* end, double& day) noexcept {
  int year = 0;
  const char* q = p;
  while (q < end && q - p < 5 && digit(*q)) year = year * 10 + (*q++ - '0');
  int month = 0, mday = 0;
  if (q - p < 4 || end - q < 6 || q[0] != '-' || q[3] != '-' || !two_digits(q + 1, month) ||
      !two_digits(q + 4, mday))
    return nullptr;
  const double d = ziddmdy(month, mday, year);
  if (is_missing(d)) return nullptr;
  day = d;
  return q + 6;
}

const char* scan_datetime(const char* p, const char* end, double& seconds, bool& has_time) noexcept {
  double day = 0;
  const char* q = scan_date(p, end, day);
  if (q == nullptr) return nullptr;
  std::int64_t n = static_cast<std::int64_t>(day) * 86400;
  has_time = false;
  int hour = 0, minute = 0, second = 0;
  if (end - q < 6 || (q[0] != 'T' && q[0] != ' ') || q[3] != ':' || !two_digits(q + 1, hour) ||
      !two_digits(q + 4, minute) || hour > 23 || minute > 59) {
    seconds = static_cast<double>(n);
    return q;
  }
  has_time = true;
  q += 6;
  const bool with_seconds = end - q >= 3 && q[0] == ':' && two_digits(q + 1, second) && second <= 59;
  if (with_seconds) q += 3;
  n += hour * 3600 + minute * 60 + second;
  if (with_seconds && end - q >= 2 && q[0] == '.' && digit(q[1])) {
    const char* f = ++q;
    while (q < end && digit(*q)) ++q;
    seconds = seconds_value(n, f, static_cast<std::size_t>(q - f));
  } else {
    seconds = static_cast<double>(n);
  }
  return q;
}

char* format_date(double day, char* out) noexcept {
  int month = 0, mday = 0, year = 0;
  if (zidmdyd(&month, &mday, &year, day) != 0) return nullptr;
  out = std::to_chars(out, out + 5, year).ptr;
  *out++ = '-';
  out = put_two(out, month);
  *out++ = '-';
  return put_two(out, mday);
}

char* format_datetime(double seconds, char separator, char* out) noexcept {
  if (!(seconds >= (kFirstDay - 1.0) * 86400 && seconds < (kLastDay + 1.0) * 86400)) return nullptr;
  // The shortest fixed text that reads back to the same double; its whole part
  // gives the clock, its digits after the point the fraction of the second.
  char text[kDateTimeChars];
  const auto [end, ec] = std::to_chars(text, text + sizeof text, seconds, std::chars_format::fixed);
  if (ec != std::errc()) return nullptr;
  const bool negative = text[0] == '-';
  const char* point = std::find(text, end, '.');
  std::int64_t whole = 0;
  std::from_chars(text + negative, point, whole);
  const char* fraction = point < end ? point + 1 : end;
  const auto k = static_cast<std::size_t>(end - fraction);
  const bool borrow = negative && k > 0;
  const std::int64_t n = borrow ? -(whole + 1) : negative ? -whole : whole;
  std::int64_t day = n / 86400;
  if (n % 86400 < 0) --day;
  if (day < kFirstDay || day > kLastDay) return nullptr;
  const auto clock = static_cast<int>(n - day * 86400);
  out = format_date(static_cast<double>(day), out);
  *out++ = separator;
  out = put_two(out, clock / 3600);
  *out++ = ':';
  out = put_two(out, clock / 60 % 60);
  *out++ = ':';
  out = put_two(out, clock % 60);
  if (k > 0) {
    *out++ = '.';
    if (borrow)
      complement(fraction, k, out);
    else
      std::memcpy(out, fraction, k);
    out += k;
  }
  return out;
}

}  // namespace detail

namespace {

using detail::show;

constexpr std::size_t kBufferBytes = std::size_t{1} << 20;
constexpr std::int64_t kSampleRows = 1000;

std::string system_error(int code) { return std::generic_category().message(code); }

using detail::lower;

bool same_name(std::string_view a, std::string_view b) { return lower(a) == lower(b); }

// ---- reading ------------------------------------------------------------------------

class Input {
 public:
  Input(int fd, std::size_t bytes)
      : fd_(fd), data_(std::make_unique_for_overwrite<char[]>(bytes)), size_(bytes) {}
  ~Input() { ::close(fd_); }
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  const char* begin() const noexcept { return data_.get() + pos_; }
  const char* end() const noexcept { return data_.get() + len_; }
  bool eof() const noexcept { return eof_; }
  void consume(const char* p) noexcept { pos_ = static_cast<std::size_t>(p - data_.get()); }
  std::int64_t offset(const char* p) const noexcept { return base_ + (p - data_.get()); }

  // Keeps the unread bytes, moved to the front, and reads behind them until the
  // buffer is full or the file ends; a row that fills the whole buffer makes it
  // grow.  False, with errno set, when reading fails.
  bool refill() {
    if (pos_ > 0) {
      std::memmove(data_.get(), data_.get() + pos_, len_ - pos_);
      base_ += static_cast<std::int64_t>(pos_);
      len_ -= pos_;
      pos_ = 0;
    }
    if (len_ == size_) {
      auto bigger = std::make_unique_for_overwrite<char[]>(2 * size_);
      std::memcpy(bigger.get(), data_.get(), len_);
      data_ = std::move(bigger);
      size_ *= 2;
    }
    while (len_ < size_ && !eof_) {
      const ssize_t n = ::read(fd_, data_.get() + len_, size_ - len_);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) return false;
      if (n == 0) eof_ = true;
      len_ += static_cast<std::size_t>(n);
    }
    return true;
  }

  bool seek(std::int64_t offset) noexcept {
    pos_ = len_ = 0;
    eof_ = false;
    base_ = offset;
    return ::lseek(fd_, offset, SEEK_SET) == offset;
  }

 private:
  int fd_;
  std::unique_ptr<char[]> data_;
  std::size_t size_;
  std::size_t pos_ = 0, len_ = 0;
  std::int64_t base_ = 0;  // file offset of data_[0]
  bool eof_ = false;
};

enum class Step { Next, RowEnd, More, Bad };

// What follows a cell: a comma (another cell), the end of the row (a newline,
// CR LF, or the end of the file), or something that does not end a cell.  A lone
// CR inside a row is data.  p moves past the delimiter.
inline Step delimiter(const char*& p, const char* end, bool eof) noexcept {
  if (p == end) return eof ? Step::RowEnd : Step::More;
  const char c = *p;
  if (c == ',') {
    ++p;
    return Step::Next;
  }
  if (c == '\n') {
    ++p;
    return Step::RowEnd;
  }
  if (c == '\r') {
    if (p + 1 == end) {
      if (!eof) return Step::More;
      ++p;
      return Step::RowEnd;
    }
    if (p[1] == '\n') {
      p += 2;
      return Step::RowEnd;
    }
  }
  return Step::Bad;
}

struct Field {
  const char* begin;  // the text; inside the quotes for a quoted cell
  const char* end;
  bool quoted;
  std::size_t doubled;   // "" pairs inside the quotes, each one quote in the text
  std::size_t newlines;  // inside the quotes
  std::size_t length() const noexcept { return static_cast<std::size_t>(end - begin) - doubled; }
};

enum class Trouble { Unterminated, AfterQuote };

// One cell at p.  A cell whose first non-blank byte is a quote is quoted (RFC 4180:
// "" stands for one quote, commas and newlines are text); blanks may follow the
// closing quote, nothing else may.  Any other cell runs to the next delimiter.
Step read_field(const char*& p, const char* end, bool eof, Field& f, Trouble& trouble) noexcept {
  const char* q = p;
  while (q < end && blank(*q)) ++q;
  if (q == end && !eof) return Step::More;
  if (q < end && *q == '"') {
    f.quoted = true;
    f.doubled = 0;
    f.begin = ++q;
    for (;;) {
      q = static_cast<const char*>(std::memchr(q, '"', static_cast<std::size_t>(end - q)));
      if (q == nullptr) {
        trouble = Trouble::Unterminated;
        return eof ? Step::Bad : Step::More;
      }
      // A quote at the end of the buffer closes the cell for now; the delimiter
      // test below asks for more, and the row is read again.
      if (q + 1 < end && q[1] == '"') {
        ++f.doubled;
        q += 2;
        continue;
      }
      break;
    }
    f.end = q++;
    f.newlines = static_cast<std::size_t>(std::count(f.begin, f.end, '\n'));
    while (q < end && blank(*q)) ++q;
    const Step step = delimiter(q, end, eof);
    if (step == Step::Bad) trouble = Trouble::AfterQuote;
    if (step == Step::Next || step == Step::RowEnd) p = q;
    return step;
  }
  f.quoted = false;
  f.doubled = f.newlines = 0;
  f.begin = q = p;
  for (;; ++q) {
    if (q == end) {
      if (!eof) return Step::More;
      f.end = p = q;
      return Step::RowEnd;
    }
    const char c = *q;
    if (c == ',' || c == '\n' || c == '\r') {
      const char* after = q;
      const Step step = delimiter(after, end, eof);
      if (step == Step::Bad) continue;  // a CR inside the cell
      if (step == Step::More) return step;
      f.end = q;
      p = after;
      return step;
    }
  }
}

enum class Plan : std::uint8_t { Skip, Number, Date, DateTime, Text };
enum class Got { Row, More, End, Bad };

// What the first rows showed of a column's cells.
enum Seen : unsigned { kNumber = 1, kDate = 2, kDateTime = 4, kText = 8 };

unsigned classify(const Field& f) noexcept {
  if (f.quoted) return kText;
  const std::string_view t = trim(f.begin, f.end);
  if (t.empty() || t == ".") return 0;
  double value = 0;
  if (detail::parse_number(t, value)) return kNumber;
  bool has_time = false;
  const char* end = t.data() + t.size();
  if (detail::scan_datetime(t.data(), end, value, has_time) == end) return has_time ? kDateTime : kDate;
  return kText;
}

Plan decide(unsigned seen) noexcept {
  if (seen & kText) return Plan::Text;
  if (seen & kNumber) return seen & (kDate | kDateTime) ? Plan::Text : Plan::Number;
  if (seen & kDateTime) return Plan::DateTime;
  if (seen & kDate) return Plan::Date;
  return Plan::Number;  // nothing but missing values
}

class CsvReader final : public Reader {
 public:
  CsvReader(std::string path, int fd, std::size_t buffer) : path_(std::move(path)), in_(fd, buffer) {}

  bool start(std::string& error);

  const std::vector<Column>& columns() const override { return columns_; }
  std::int64_t rows() const override { return -1; }
  void select(const std::vector<bool>& wanted) override {
    for (std::size_t j = 0; j < kind_.size(); ++j)
      plan_[j] = j < wanted.size() && !wanted[j] ? Plan::Skip : kind_[j];
  }
  bool next(Cell* cells) override {
    if (failed_) return false;
    for (;;) {
      switch (parse(cells)) {
        case Got::Row:
          return true;
        case Got::End:
        case Got::Bad:
          return false;
        case Got::More:
          if (!in_.refill()) return fail(path_ + ": cannot read: " + system_error(errno));
      }
    }
  }
  const std::string& error() const override { return error_; }
  bool rewind() override {
    failed_ = false;
    error_.clear();
    row_ = 0;
    line_ = data_line_;
    if (in_.seek(data_offset_)) return true;
    return fail(path_ + ": cannot go back to the first row: " + system_error(errno));
  }

 private:
  const char* skip_blank_lines();
  Got parse(Cell* cells);
  Got split();
  bool fill(std::string& error) {
    if (in_.refill()) return true;
    error = path_ + ": cannot read: " + system_error(errno);
    return false;
  }
  bool fail(std::string text) {
    error_ = std::move(text);
    failed_ = true;
    return false;
  }
  Got bad(std::size_t column, const std::string& why) {
    fail(path_ + ": row " + std::to_string(row_ + 1) + " (line " + std::to_string(line_) + "), column " +
         std::to_string(column + 1) + " (" + columns_[column].name + "): " + why);
    return Got::Bad;
  }
  template <class Scan>
  Got slow_cell(std::size_t j, const Field& f, Cell& cell, const char* kind, const char* expected, Scan scan);

  std::string path_;
  Input in_;
  std::vector<Column> columns_;
  std::vector<Plan> kind_;  // what each column holds
  std::vector<Plan> plan_;  // the same, or Skip for a column not selected
  std::vector<Field> fields_;
  std::string scratch_;  // this row's quoted texts that held doubled quotes
  struct Decoded {
    std::size_t column, offset, length;
  };
  std::vector<Decoded> decoded_;
  std::int64_t data_offset_ = 0, data_line_ = 0;
  std::int64_t row_ = 0;          // rows read
  std::int64_t line_ = 1;         // line on which the next row starts
  std::int64_t record_line_ = 1;  // line on which the last row started
  Trouble trouble_ = Trouble::Unterminated;
  std::string error_;
  bool failed_ = false;
};

// Blank lines are skipped (and counted) wherever a row may start.
const char* CsvReader::skip_blank_lines() {
  const char* p = in_.begin();
  const char* end = in_.end();
  while (p < end) {
    if (*p == '\n') {
      ++p;
    } else if (*p == '\r' && ((p + 1 == end && in_.eof()) || (p + 1 < end && p[1] == '\n'))) {
      p += p + 1 == end ? 1 : 2;
    } else {
      break;
    }
    ++line_;
  }
  in_.consume(p);
  record_line_ = line_;
  return p;
}

// The next record's cells into fields_, skipping blank lines.  On More nothing of
// the record has been consumed.
Got CsvReader::split() {
  const char* p = skip_blank_lines();
  const char* end = in_.end();
  const bool eof = in_.eof();
  if (p == end) return eof ? Got::End : Got::More;
  fields_.clear();
  std::size_t newlines = 0;
  for (;;) {
    Field f{};
    const Step step = read_field(p, end, eof, f, trouble_);
    if (step == Step::More) return Got::More;
    if (step == Step::Bad) return Got::Bad;
    fields_.push_back(f);
    newlines += f.newlines;
    if (step == Step::RowEnd) break;
  }
  in_.consume(p);
  line_ += 1 + static_cast<std::int64_t>(newlines);
  return Got::Row;
}

bool CsvReader::start(std::string& error) {
  do {
    if (!fill(error)) return false;
  } while (in_.end() - in_.begin() < 3 && !in_.eof());
  if (in_.end() - in_.begin() >= 3 && std::memcmp(in_.begin(), "\xEF\xBB\xBF", 3) == 0)
    in_.consume(in_.begin() + 3);  // a byte order mark, as spreadsheets write
  Got got;
  while ((got = split()) == Got::More)
    if (!fill(error)) return false;
  if (got == Got::End) {
    error = path_ + ": the file is empty: the first line must name the variables";
    return false;
  }
  if (got == Got::Bad) {
    error = path_ + ": line " + std::to_string(record_line_) + ": the header line has " +
            (trouble_ == Trouble::Unterminated ? "a quoted name with no closing quote"
                                               : "text after the closing quote of a name");
    return false;
  }
  const std::size_t n = fields_.size();
  for (std::size_t j = 0; j < n; ++j) {
    const Field& f = fields_[j];
    std::string name = f.quoted ? std::string(f.begin, f.end) : std::string(trim(f.begin, f.end));
    const std::string at =
        path_ + ": line " + std::to_string(record_line_) + ", column " + std::to_string(j + 1);
    if (!valid_member_name(name)) {
      error = at + ": " + show(name) + " is not a valid variable name (" + detail::name_rule(32) + ")";
      return false;
    }
    for (std::size_t i = 0; i < j; ++i)
      if (same_name(columns_[i].name, name)) {
        error =
            at + ": variable " + show(name) + " appears twice (also column " + std::to_string(i + 1) + ")";
        return false;
      }
    Column c;
    c.name = std::move(name);
    columns_.push_back(std::move(c));
  }
  data_offset_ = in_.offset(in_.begin());
  data_line_ = line_;

  // The first rows decide each column's type.  A row that is malformed ends the
  // sample early; reading reports it when it gets there.
  std::vector<unsigned> seen(n, 0);
  std::vector<std::size_t> longest(n, 0);
  bool whole = true;
  for (std::int64_t rows = 0; rows < kSampleRows;) {
    got = split();
    if (got == Got::More) {
      if (!fill(error)) return false;
      continue;
    }
    if (got != Got::Row || fields_.size() != n) {
      whole = false;
      break;
    }
    for (std::size_t j = 0; j < n; ++j) {
      seen[j] |= classify(fields_[j]);
      longest[j] = std::max(longest[j], fields_[j].length());
    }
    ++rows;
  }
  bool text = false;
  for (std::size_t j = 0; j < n; ++j) {
    kind_.push_back(decide(seen[j]));
    Column& c = columns_[j];
    if (kind_[j] == Plan::Text) {
      text = true;
      c.numeric = false;
    } else {
      c.form = kind_[j] == Plan::Date       ? Form::Date
               : kind_[j] == Plan::DateTime ? Form::DateTime
                                            : Form::Number;
    }
  }
  // A character column is as long as its longest cell anywhere in the file, so
  // nothing is ever cut: the rest of the file is scanned for it, once.
  while (text && whole) {
    got = split();
    if (got == Got::More) {
      if (!fill(error)) return false;
      continue;
    }
    if (got != Got::Row || fields_.size() != n) break;
    for (std::size_t j = 0; j < n; ++j)
      if (kind_[j] == Plan::Text) longest[j] = std::max(longest[j], fields_[j].length());
  }
  for (std::size_t j = 0; j < n; ++j)
    if (kind_[j] == Plan::Text)
      columns_[j].length = static_cast<int>(std::clamp<std::size_t>(longest[j], 1, 1 << 30));
  plan_ = kind_;
  fields_ = {};
  if (!rewind()) {
    error = error_;
    return false;
  }
  return true;
}

// A cell that the fast paths did not take: quoted, blank-padded, missing, cut by
// the end of the buffer, or wrong.
template <class Scan>
Got CsvReader::slow_cell(std::size_t j, const Field& f, Cell& cell, const char* kind, const char* expected,
                         Scan scan) {
  const std::string_view t = trim(f.begin, f.end);
  if (f.quoted)
    return bad(j, "quoted text " + show({f.begin, static_cast<std::size_t>(f.end - f.begin)}) + " in a " +
                      kind + " column (a quoted cell is always text)");
  if (t.empty() || t == ".") {
    cell.number = missing_value();
    return Got::Row;
  }
  if (scan(t, cell.number)) return Got::Row;
  return bad(j, show(t) + " is not " + expected);
}

Got CsvReader::parse(Cell* cells) {
  const char* p = skip_blank_lines();
  const char* const end = in_.end();
  const bool eof = in_.eof();
  if (p == end) return eof ? Got::End : Got::More;

  scratch_.clear();
  decoded_.clear();
  std::size_t newlines = 0;
  const Plan* plan = plan_.data();
  const std::size_t n = plan_.size();
  for (std::size_t j = 0; j < n; ++j) {
    const Step want = j + 1 == n ? Step::RowEnd : Step::Next;
    Cell& cell = cells[j];
    // Fast paths: a plain number or date straight from the buffer.
    if (p < end && *p != '"') {
      const char* q = nullptr;
      double value = 0;
      bool has_time = false;
      switch (plan[j]) {
        case Plan::Number:
          q = quick_number(p, end, value);
          if (q == nullptr) {
            const auto r = std::from_chars(p, end, value);
            if (r.ec == std::errc()) q = r.ptr;
          }
          break;
        case Plan::Date:
          q = detail::scan_date(p, end, value);
          break;
        case Plan::DateTime:
          q = detail::scan_datetime(p, end, value, has_time);
          break;
        default:
          break;
      }
      if (q != nullptr) {
        const Step step = delimiter(q, end, eof);
        if (step == want) {
          cell.number = value;
          p = q;
          continue;
        }
      }
    }
    Field f;
    const Step step = read_field(p, end, eof, f, trouble_);
    if (step == Step::More) return Got::More;
    if (step == Step::Bad)
      return bad(j, trouble_ == Trouble::Unterminated ? "a quoted cell has no closing quote"
                                                      : "text follows the closing quote of a cell");
    if (step != want)
      return bad(j,
                 step == Step::RowEnd
                     ? "the row ends after " + std::to_string(j + 1) + " of " + std::to_string(n) + " cells"
                     : "the row has more than the header's " + std::to_string(n) + " cells");
    newlines += f.newlines;
    Got got = Got::Row;
    switch (plan[j]) {
      case Plan::Skip:
        break;
      case Plan::Number:
        got = slow_cell(j, f, cell, "numeric", "a number",
                        [](std::string_view t, double& v) { return detail::parse_number(t, v); });
        break;
      case Plan::Date:
        got = slow_cell(j, f, cell, "date", "a date (YYYY-MM-DD)", [](std::string_view t, double& v) {
          return detail::scan_date(t.data(), t.data() + t.size(), v) == t.data() + t.size();
        });
        break;
      case Plan::DateTime:
        got = slow_cell(
            j, f, cell, "datetime", "a datetime (YYYY-MM-DDTHH:MM:SS)", [](std::string_view t, double& v) {
              bool has_time = false;
              return detail::scan_datetime(t.data(), t.data() + t.size(), v, has_time) == t.data() + t.size();
            });
        break;
      case Plan::Text:
        if (f.doubled == 0) {
          cell.text = {f.begin, static_cast<std::size_t>(f.end - f.begin)};
        } else {
          const std::size_t offset = scratch_.size();
          for (const char* c = f.begin; c < f.end; ++c) {
            scratch_ += *c;
            if (*c == '"') ++c;
          }
          decoded_.push_back({j, offset, scratch_.size() - offset});
        }
        break;
    }
    if (got != Got::Row) return got;
  }
  // The scratch string may have moved while it grew: views into it are made last.
  for (const Decoded& d : decoded_) cells[d.column].text = {scratch_.data() + d.offset, d.length};
  in_.consume(p);
  ++row_;
  line_ += 1 + static_cast<std::int64_t>(newlines);
  return Got::Row;
}

// ---- writing ------------------------------------------------------------------------

class CsvWriter final : public Writer {
 public:
  CsvWriter(std::string target, std::string temp, int fd, std::vector<Column> columns)
      : target_(std::move(target)),
        temp_(std::move(temp)),
        fd_(fd),
        columns_(std::move(columns)),
        out_(std::make_unique_for_overwrite<char[]>(kBufferBytes)),
        size_(kBufferBytes) {}
  ~CsvWriter() override { discard(); }

  void header() {
    for (std::size_t j = 0; j < columns_.size(); ++j) {
      char* p = room(columns_[j].name.size() + 2);
      if (j > 0) *p++ = ',';
      p = std::copy(columns_[j].name.begin(), columns_[j].name.end(), p);
      used_ = static_cast<std::size_t>(p - out_.get());
    }
    *room(1) = '\n';
    ++used_;
  }

  bool write(const Cell* cells) override;
  bool write_text(std::string_view rows, std::int64_t count) override;
  bool commit() override;
  void discard() noexcept override {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    if (!temp_.empty()) ::unlink(temp_.c_str());
    temp_.clear();
    open_ = false;
  }
  const std::string& error() const override { return error_; }

 private:
  // Space for at least bytes more at the end of the buffer, flushing or growing it.
  char* room(std::size_t bytes) {
    if (used_ + bytes > size_) {
      flush();
      if (bytes > size_) {
        size_ = bytes;
        out_ = std::make_unique_for_overwrite<char[]>(size_);
      }
    }
    return out_.get() + used_;
  }
  bool flush() {
    const std::size_t pending = std::exchange(used_, 0);
    for (std::size_t done = 0; done < pending && fd_ >= 0;) {
      const ssize_t n = ::write(fd_, out_.get() + done, pending - done);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) return fail(target_ + ": cannot write the new member: " + system_error(errno));
      done += static_cast<std::size_t>(n);
    }
    return open_;
  }
  bool fail(std::string text) {
    if (error_.empty()) error_ = std::move(text);
    discard();
    return false;
  }

  std::string target_, temp_;
  int fd_;
  std::vector<Column> columns_;
  std::unique_ptr<char[]> out_;
  std::size_t size_, used_ = 0;
  std::int64_t rows_ = 0;
  std::string error_;
  bool open_ = true;
};

// The cells of a row as a member holds them.  A text is quoted, its quotes
// doubled: at most 2 * size + 3 bytes with the comma before it.
char* put_text(std::string_view text, bool first, char* p) noexcept {
  if (!first) *p++ = ',';
  *p++ = '"';
  for (char ch : text) {
    if (ch == '"') *p++ = '"';
    *p++ = ch;
  }
  *p++ = '"';
  return p;
}

constexpr std::size_t kNumberRoom = detail::kDateTimeChars + 1;

// A number in at most kNumberRoom bytes; null when a date or datetime is outside
// the calendar.  An empty line would be skipped on reading, so a missing value
// alone on its row is written as a dot.
char* put_number(const Column& c, double x, bool first, bool alone, char* p) noexcept {
  if (!first) *p++ = ',';
  if (is_missing(x)) {
    if (alone) *p++ = '.';
    return p;
  }
  return c.form == Form::Date       ? detail::format_date(x, p)
         : c.form == Form::DateTime ? detail::format_datetime(x, 'T', p)
                                    : std::to_chars(p, p + 32, x).ptr;
}

std::string unshowable(const Column& c, std::size_t j, double x) {
  char text[32];
  *std::to_chars(text, text + sizeof text, x).ptr = '\0';
  return "column " + std::to_string(j + 1) + " (" + c.name + "): " + text + " is not a " +
         (c.form == Form::Date ? "date" : "datetime") + " in the calendar (1582 to 20000)";
}

bool CsvWriter::write(const Cell* cells) {
  if (!open_) {
    if (error_.empty()) error_ = target_ + ": the member has been written already";
    return false;
  }
  ++rows_;
  const bool alone = columns_.size() == 1;
  for (std::size_t j = 0; j < columns_.size(); ++j) {
    const Column& c = columns_[j];
    const Cell& cell = cells[j];
    char* p = c.numeric ? put_number(c, cell.number, j == 0, alone, room(kNumberRoom))
                        : put_text(cell.text, j == 0, room(2 * cell.text.size() + 3));
    if (p == nullptr) return fail(target_ + ": row " + std::to_string(rows_) + ", " + unshowable(c, j, cell.number));
    used_ = static_cast<std::size_t>(p - out_.get());
  }
  *room(1) = '\n';
  ++used_;
  return open_;
}

bool CsvWriter::write_text(std::string_view rows, std::int64_t count) {
  if (!open_) {
    if (error_.empty()) error_ = target_ + ": the member has been written already";
    return false;
  }
  rows_ += count;
  if (rows.size() <= size_) {
    std::memcpy(room(rows.size()), rows.data(), rows.size());
    used_ += rows.size();
    return open_;
  }
  // Longer than the buffer: straight to the file after what the buffer holds.
  if (!flush()) return false;
  for (std::size_t done = 0; done < rows.size();) {
    const ssize_t n = ::write(fd_, rows.data() + done, rows.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return fail(target_ + ": cannot write the new member: " + system_error(errno));
    done += static_cast<std::size_t>(n);
  }
  return open_;
}

bool CsvWriter::commit() {
  if (!open_) {
    if (error_.empty()) error_ = target_ + ": the member has been written already";
    return false;
  }
  if (!flush()) return false;
  // The data reach the disk before the name points at them.
  if (::fsync(fd_) != 0) return fail(target_ + ": cannot save the new member: " + system_error(errno));
  const int fd = std::exchange(fd_, -1);
  if (::close(fd) != 0) return fail(target_ + ": cannot save the new member: " + system_error(errno));
  if (::rename(temp_.c_str(), target_.c_str()) != 0)
    return fail(target_ + ": cannot replace the member: " + system_error(errno));
  temp_.clear();
  open_ = false;
  const std::string directory = std::filesystem::path(target_).parent_path().string();
  const int dir = ::open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir >= 0) {
    ::fsync(dir);  // the rename itself; not every file system can, and the data are safe already
    ::close(dir);
  }
  return true;
}

// ---- the library ------------------------------------------------------------------

class CsvLibrary final : public Library {
 public:
  explicit CsvLibrary(std::string directory) : directory_(std::move(directory)) {}

  std::unique_ptr<Reader> open(const std::string& member, std::string& error) override {
    if (!check(member, error)) return nullptr;
    const std::string path = file(member);
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
      error = errno == ENOENT ? describe() + ": no member " + member + " (no file " + lower(member) + ".csv)"
                              : path + ": cannot open: " + system_error(errno);
      return nullptr;
    }
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
      ::close(fd);
      error = path + ": not a regular file";
      return nullptr;
    }
    auto reader = std::make_unique<CsvReader>(path, fd, kBufferBytes);
    if (!reader->start(error)) return nullptr;
    return reader;
  }

  std::unique_ptr<Writer> create(const std::string& member, const std::vector<Column>& columns,
                                 std::string& error) override {
    if (!check(member, error)) return nullptr;
    const std::string target = file(member);
    if (columns.empty()) {
      error = target + ": a member needs at least one variable";
      return nullptr;
    }
    for (std::size_t j = 0; j < columns.size(); ++j) {
      if (!valid_member_name(columns[j].name)) {
        error = target + ": column " + std::to_string(j + 1) + ": " + show(columns[j].name) +
                " is not a valid variable name (" + detail::name_rule(32) + ")";
        return nullptr;
      }
      for (std::size_t i = 0; i < j; ++i)
        if (same_name(columns[i].name, columns[j].name)) {
          error = target + ": variable " + show(columns[j].name) + " appears twice (columns " +
                  std::to_string(i + 1) + " and " + std::to_string(j + 1) + ")";
          return nullptr;
        }
    }
    // Hidden and not ending in .csv, so never taken for a member.
    const std::string stem = (std::filesystem::path(directory_) / ("." + lower(member) + ".csv.")).string();
    for (int attempt = 0; attempt < 100; ++attempt) {
      std::string temp = stem + std::to_string(::getpid()) + "-" + std::to_string(++serial_) + ".tmp";
      const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
      if (fd < 0 && errno == EEXIST) continue;
      if (fd < 0) {
        error = target + ": cannot create a temporary file in " + directory_ + ": " + system_error(errno);
        return nullptr;
      }
      auto writer = std::make_unique<CsvWriter>(target, std::move(temp), fd, columns);
      writer->header();
      return writer;
    }
    error = target + ": cannot find a free temporary file name in " + directory_;
    return nullptr;
  }

  std::string describe() const override { return directory_; }

  bool format_row(const std::vector<Column>& columns, const Cell* cells, std::string& out,
                  std::string& why) const override;

 private:
  bool check(const std::string& member, std::string& error) const {
    if (valid_member_name(member)) return true;
    error = "CSV library " + directory_ + ": " + show(member) + " is not a valid member name (" +
            detail::name_rule(32) + ")";
    return false;
  }

  // Member files are named in lower case; a file that differs only in case (as
  // written by another program) is the member too, when it is the only one.
  std::string file(const std::string& member) const {
    const std::string name = lower(member) + ".csv";
    const std::filesystem::path dir(directory_);
    std::error_code ec;
    if (std::filesystem::exists(dir / name, ec)) return (dir / name).string();
    std::string found;
    for (std::filesystem::directory_iterator it(dir, ec), last; !ec && it != last; it.increment(ec)) {
      const std::string other = it->path().filename().string();
      if (other.size() == name.size() && lower(other) == name) {
        if (!found.empty()) return (dir / name).string();
        found = other;
      }
    }
    return (dir / (found.empty() ? name : found)).string();
  }

  std::string directory_;
  unsigned serial_ = 0;
};

bool CsvLibrary::format_row(const std::vector<Column>& columns, const Cell* cells, std::string& out,
                            std::string& why) const {
  const std::size_t at = out.size();
  const bool alone = columns.size() == 1;
  char number[kNumberRoom];
  for (std::size_t j = 0; j < columns.size(); ++j) {
    const Column& c = columns[j];
    if (!c.numeric) {
      const std::size_t before = out.size();
      out.resize(before + 2 * cells[j].text.size() + 3);
      out.resize(static_cast<std::size_t>(put_text(cells[j].text, j == 0, out.data() + before) - out.data()));
      continue;
    }
    const char* end = put_number(c, cells[j].number, j == 0, alone, number);
    if (end == nullptr) {
      out.resize(at);
      why = unshowable(c, j, cells[j].number);
      return false;
    }
    out.append(number, static_cast<std::size_t>(end - number));
  }
  out += '\n';
  return true;
}

}  // namespace

std::unique_ptr<Library> open_csv_library(const std::string& directory, std::string& error) {
  std::error_code ec;
  if (directory.empty() || !std::filesystem::is_directory(directory, ec)) {
    error = directory.empty()                        ? "CSV library: no directory given"
            : std::filesystem::exists(directory, ec) ? "CSV library " + directory + ": not a directory"
                                                     : "CSV library " + directory + ": no such directory";
    return nullptr;
  }
  return std::make_unique<CsvLibrary>(directory);
}

namespace detail {

std::unique_ptr<Reader> open_csv_file(const std::string& path, std::size_t buffer_bytes, std::string& error) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    error = path + ": cannot open: " + system_error(errno);
    return nullptr;
  }
  auto reader = std::make_unique<CsvReader>(path, fd, std::max<std::size_t>(buffer_bytes, 1));
  if (!reader->start(error)) return nullptr;
  return reader;
}

}  // namespace detail
}  // namespace fmsd::host
