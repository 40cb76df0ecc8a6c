// Where data sets live: a library is a directory of CSV files or an SQLite
// database, and a member is one data set in it.  Readers stream; writers go to a
// temporary file or transaction and replace the member only on commit.
#ifndef FMSD_HOST_STORAGE_H
#define FMSD_HOST_STORAGE_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace fmsd::host {

// How a numeric column is shown: plain numbers, or day / second counts from
// 1 January 1960 kept as ISO-8601 text in storage.
enum class Form { Number, Date, DateTime };

struct Column {
  std::string name;
  bool numeric = true;
  Form form = Form::Number;  // numeric columns only
  int length = 8;            // bytes: 8 for numbers, the longest text for characters
  std::string label;
};

// One cell of a row: a number (the host's missing value when empty) or a text.
// Texts stay valid until the next call on the same reader.
struct Cell {
  double number = 0;
  std::string_view text;
};

class Reader {
 public:
  virtual ~Reader() = default;
  virtual const std::vector<Column>& columns() const = 0;
  // Number of rows when it is known without reading them all, else -1.
  virtual std::int64_t rows() const = 0;
  // Only these columns need to be decoded from now on (all by default).
  virtual void select(const std::vector<bool>& wanted) = 0;
  // Fills one cell per column; false at the end of the data or on an error
  // (then error() says what went wrong, naming the row and column).
  virtual bool next(Cell* cells) = 0;
  virtual const std::string& error() const = 0;
  // Back to the first row.
  virtual bool rewind() = 0;
};

class Writer {
 public:
  virtual ~Writer() = default;
  virtual bool write(const Cell* cells) = 0;
  // `count` rows already in the member's text form, as the library's
  // format_row() made them: a caller can format rows on other threads and only
  // append them here.  False where the writer has no text form.
  virtual bool write_text(std::string_view rows, std::int64_t count) {
    (void)rows;
    (void)count;
    return false;
  }
  // Replaces the member with what was written; nothing is visible before.
  virtual bool commit() = 0;
  // Forgets what was written; an existing member stays as it was.
  virtual void discard() noexcept = 0;
  virtual const std::string& error() const = 0;
};

class Library {
 public:
  virtual ~Library() = default;
  // Null with error set when the member cannot be read (absent, unreadable, malformed header).
  virtual std::unique_ptr<Reader> open(const std::string& member, std::string& error) = 0;
  virtual std::unique_ptr<Writer> create(const std::string& member, const std::vector<Column>& columns,
                                         std::string& error) = 0;
  virtual std::string describe() const = 0;  // the directory or database file, for messages
  // One row in the text form of this library's writers, appended to out; safe
  // to call from any thread.  False, out as it was, where the library has no
  // text form (why empty) or a value cannot be shown (why says which).
  virtual bool format_row(const std::vector<Column>& columns, const Cell* cells, std::string& out,
                          std::string& why) const {
    (void)columns;
    (void)cells;
    (void)out;
    (void)why;
    return false;
  }
};

// A library on a directory (members are member.csv) or on an SQLite database
// file (members are tables).  Null with error set when the place cannot be used.
std::unique_ptr<Library> open_csv_library(const std::string& directory, std::string& error);
std::unique_ptr<Library> open_sqlite_library(const std::string& file, std::string& error);

// Library and member names are identifiers: a letter or underscore, then letters,
// digits or underscores, at most 32 characters (8 for a library).  Nothing else
// can reach outside a library.
bool valid_member_name(std::string_view name) noexcept;
bool valid_library_name(std::string_view name) noexcept;

}  // namespace fmsd::host

#endif
