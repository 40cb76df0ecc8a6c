// SQLite libraries: a database file whose members are tables.
//
// Every reader and writer has its own connection, and the database is kept in
// write-ahead-log mode, so a service can read a table while it replaces that
// table or another: the reader goes on seeing the snapshot it started with.  A
// writer fills a new table inside one transaction and, on commit, drops the old
// member and renames the new table to it, so the member changes all at once.
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "host/host.h"
#include "host/storage.h"
#include "host/storage_detail.h"

namespace fmsd::host {
namespace {

using detail::lower;
using detail::show;

constexpr int kBusyMilliseconds = 5000;

struct CloseConnection {
  void operator()(sqlite3* db) const noexcept { sqlite3_close_v2(db); }
};
using Connection = std::unique_ptr<sqlite3, CloseConnection>;
struct FinalizeStatement {
  void operator()(sqlite3_stmt* s) const noexcept { sqlite3_finalize(s); }
};
using Statement = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

std::string upper(std::string_view name) {
  std::string out(name);
  for (char& c : out)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return out;
}

// Names are identifiers by now; the quotes keep words such as "order" usable.
std::string sql_name(std::string_view name) { return "\"" + std::string(name) + "\""; }

Connection connect(const std::string& file, int flags, std::string& why) {
  sqlite3* db = nullptr;
  const int rc = sqlite3_open_v2(file.c_str(), &db, flags, nullptr);
  Connection connection(db);
  if (rc != SQLITE_OK) {
    why = db != nullptr ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
    return nullptr;
  }
  sqlite3_busy_timeout(db, kBusyMilliseconds);
  return connection;
}

bool run(sqlite3* db, const std::string& sql, std::string& why) {
  char* message = nullptr;
  if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &message) == SQLITE_OK) return true;
  why = message != nullptr ? message : sqlite3_errmsg(db);
  sqlite3_free(message);
  return false;
}

Statement prepare(sqlite3* db, const std::string& sql, std::string& why) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db, sql.c_str(), static_cast<int>(sql.size()), &statement, nullptr) != SQLITE_OK) {
    why = sqlite3_errmsg(db);
    return nullptr;
  }
  return Statement(statement);
}

// Readers and writers of one database may not be able to set this mode (a
// read-only file); they still work, only without reading beside a writer.
void write_ahead_log(sqlite3* db) {
  std::string ignored;
  run(db, "PRAGMA journal_mode=WAL", ignored);
}

enum class Kind { Number, Date, DateTime, Text, Untyped };

// The declared type of a column, by the words SQLite itself goes by; dates are
// named before the numeric rule would take them.
Kind kind_of(const char* declared) {
  const std::string type = upper(declared != nullptr ? declared : "");
  const auto has = [&](const char* word) { return type.find(word) != std::string::npos; };
  if (has("DATETIME") || has("TIMESTAMP")) return Kind::DateTime;
  if (has("DATE")) return Kind::Date;
  if (has("CHAR") || has("CLOB") || has("TEXT")) return Kind::Text;
  if (type.empty() || has("BLOB")) return Kind::Untyped;
  return Kind::Number;
}

class SqliteReader final : public Reader {
 public:
  SqliteReader(Connection db, std::string where) : db_(std::move(db)), where_(std::move(where)) {}
  ~SqliteReader() override {
    select_.reset();
    std::string ignored;
    run(db_.get(), "COMMIT", ignored);
  }

  bool start(const std::string& file, const std::string& table, std::string& error);

  const std::vector<Column>& columns() const override { return columns_; }
  std::int64_t rows() const override { return rows_; }
  void select(const std::vector<bool>& wanted) override {
    for (std::size_t j = 0; j < wanted_.size(); ++j) wanted_[j] = j >= wanted.size() || wanted[j];
  }
  bool next(Cell* cells) override;
  const std::string& error() const override { return error_; }
  bool rewind() override {
    error_.clear();
    failed_ = false;
    row_ = 0;
    sqlite3_reset(select_.get());
    return true;
  }

 private:
  bool bad(std::size_t column, const std::string& why) {
    error_ = where_ + ": row " + std::to_string(row_) + ", column " + std::to_string(column + 1) + " (" +
             columns_[column].name + "): " + why;
    failed_ = true;
    return false;
  }

  Connection db_;
  std::string where_;
  Statement select_;
  std::vector<Column> columns_;
  std::vector<char> wanted_;
  std::int64_t rows_ = 0, row_ = 0;
  std::string error_;
  bool failed_ = false;
};

bool SqliteReader::start(const std::string& file, const std::string& table, std::string& error) {
  std::string why;
  // One read transaction for the reader's life: the row count, the lengths and
  // every pass over the rows see the same snapshot.
  if (!run(db_.get(), "BEGIN", why)) {
    error = where_ + ": " + why;
    return false;
  }
  select_ = prepare(db_.get(), "SELECT * FROM main." + sql_name(table), why);
  if (!select_) {
    error = why.rfind("no such table", 0) == 0
                ? "SQLite library " + file + ": no member " + table + " (no table or view of that name)"
                : where_ + ": " + why;
    return false;
  }
  const int n = sqlite3_column_count(select_.get());
  std::vector<Kind> kinds;
  for (int j = 0; j < n; ++j) {
    const char* name = sqlite3_column_name(select_.get(), j);
    Column c;
    c.name = name != nullptr ? name : "";
    const std::string at = where_ + ": column " + std::to_string(j + 1);
    if (!valid_member_name(c.name)) {
      error = at + ": " + show(c.name) + " is not a valid variable name (" + detail::name_rule(32) + ")";
      return false;
    }
    for (int i = 0; i < j; ++i)
      if (lower(columns_[static_cast<std::size_t>(i)].name) == lower(c.name)) {
        error =
            at + ": variable " + show(c.name) + " appears twice (also column " + std::to_string(i + 1) + ")";
        return false;
      }
    kinds.push_back(kind_of(sqlite3_column_decltype(select_.get(), j)));
    columns_.push_back(std::move(c));
  }
  wanted_.assign(columns_.size(), 1);

  // The row count, the longest text of each character column, and whether an
  // untyped column holds anything but numbers, in one pass.
  std::string sql = "SELECT count(*)";
  for (int j = 0; j < n; ++j) {
    const std::string name = sql_name(columns_[static_cast<std::size_t>(j)].name);
    if (kinds[static_cast<std::size_t>(j)] == Kind::Text ||
        kinds[static_cast<std::size_t>(j)] == Kind::Untyped)
      sql += ", max(length(CAST(" + name + " AS BLOB)))";
    if (kinds[static_cast<std::size_t>(j)] == Kind::Untyped)
      sql += ", count(*) FILTER (WHERE typeof(" + name + ") NOT IN ('integer', 'real', 'null'))";
  }
  Statement summary = prepare(db_.get(), sql + " FROM main." + sql_name(table), why);
  if (!summary || sqlite3_step(summary.get()) != SQLITE_ROW) {
    error = where_ + ": " + (summary ? sqlite3_errmsg(db_.get()) : why);
    return false;
  }
  rows_ = sqlite3_column_int64(summary.get(), 0);
  int at = 1;
  for (std::size_t j = 0; j < columns_.size(); ++j) {
    Column& c = columns_[j];
    Kind kind = kinds[j];
    std::int64_t longest = 0;
    if (kind == Kind::Text || kind == Kind::Untyped) longest = sqlite3_column_int64(summary.get(), at++);
    if (kind == Kind::Untyped)
      kind = sqlite3_column_int64(summary.get(), at++) == 0 ? Kind::Number : Kind::Text;
    if (kind == Kind::Text) {
      c.numeric = false;
      c.length = static_cast<int>(std::clamp<std::int64_t>(longest, 1, 1 << 30));
    } else {
      c.form = kind == Kind::Date ? Form::Date : kind == Kind::DateTime ? Form::DateTime : Form::Number;
    }
  }
  return true;
}

bool SqliteReader::next(Cell* cells) {
  if (failed_) return false;
  sqlite3_stmt* s = select_.get();
  const int rc = sqlite3_step(s);
  if (rc == SQLITE_DONE) return false;
  if (rc != SQLITE_ROW) {
    error_ = where_ + ": row " + std::to_string(row_ + 1) + ": " + sqlite3_errmsg(db_.get());
    failed_ = true;
    return false;
  }
  ++row_;
  for (std::size_t j = 0; j < columns_.size(); ++j) {
    if (!wanted_[j]) continue;
    const Column& c = columns_[j];
    const int i = static_cast<int>(j);
    const int type = sqlite3_column_type(s, i);
    Cell& cell = cells[j];
    if (!c.numeric) {
      const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(s, i));
      cell.text = text != nullptr
                      ? std::string_view(text, static_cast<std::size_t>(sqlite3_column_bytes(s, i)))
                      : std::string_view();
      continue;
    }
    if (type == SQLITE_NULL) {
      cell.number = missing_value();
      continue;
    }
    if (type == SQLITE_BLOB) return bad(j, "binary data where a number belongs");
    if (c.form == Form::Number && type != SQLITE_TEXT) {
      cell.number = sqlite3_column_double(s, i);
      continue;
    }
    if (type != SQLITE_TEXT)
      return bad(j, std::to_string(sqlite3_column_double(s, i)) + " is a number, not an ISO " +
                        (c.form == Form::Date ? "date (YYYY-MM-DD)" : "datetime (YYYY-MM-DD HH:MM:SS)"));
    const std::string_view t(reinterpret_cast<const char*>(sqlite3_column_text(s, i)),
                             static_cast<std::size_t>(sqlite3_column_bytes(s, i)));
    const char* end = t.data() + t.size();
    bool has_time = false;
    if (t.find_first_not_of(" \t") == std::string_view::npos) {
      cell.number = missing_value();
    } else if (c.form == Form::Number) {
      if (!detail::parse_number(t, cell.number)) return bad(j, show(t) + " is not a number");
    } else if (c.form == Form::Date) {
      if (detail::scan_date(t.data(), end, cell.number) != end)
        return bad(j, show(t) + " is not a date (YYYY-MM-DD)");
    } else if (detail::scan_datetime(t.data(), end, cell.number, has_time) != end) {
      return bad(j, show(t) + " is not a datetime (YYYY-MM-DD HH:MM:SS)");
    }
  }
  return true;
}

class SqliteWriter final : public Writer {
 public:
  SqliteWriter(Connection db, std::string where, std::string table, std::vector<Column> columns,
               std::shared_ptr<std::string> writing)
      : db_(std::move(db)),
        where_(std::move(where)),
        table_(std::move(table)),
        columns_(std::move(columns)),
        writing_(std::move(writing)) {}
  ~SqliteWriter() override { discard(); }

  bool start(std::string& error);
  bool write(const Cell* cells) override;
  bool commit() override;
  void discard() noexcept override {
    if (!db_) return;
    insert_.reset();
    sqlite3_exec(db_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
    finish();
  }
  const std::string& error() const override { return error_; }

 private:
  std::string fresh() const { return sql_name(table_ + "$new"); }
  void finish() noexcept {
    db_.reset();
    writing_->clear();
  }
  bool fail(std::string text) {
    if (error_.empty()) error_ = std::move(text);
    discard();
    return false;
  }

  Connection db_;
  std::string where_, table_;
  std::vector<Column> columns_;
  std::shared_ptr<std::string> writing_;
  Statement insert_;
  std::int64_t rows_ = 0;
  std::string error_;
};

bool SqliteWriter::start(std::string& error) {
  std::string why;
  std::string create = "CREATE TABLE main." + fresh() + " (";
  std::string insert = "INSERT INTO main." + fresh() + " VALUES (";
  for (std::size_t j = 0; j < columns_.size(); ++j) {
    const Column& c = columns_[j];
    create += (j > 0 ? ", " : "") + sql_name(c.name) + " " +
              (!c.numeric                 ? "TEXT"
               : c.form == Form::Date     ? "DATE"
               : c.form == Form::DateTime ? "DATETIME"
                                          : "REAL");
    insert += j > 0 ? ", ?" : "?";
  }
  // Without the legacy rule, renaming would rewrite (and refuse over) any view or
  // trigger that names the old member; with it they simply find the new one.
  if (!run(db_.get(), "PRAGMA legacy_alter_table=ON", why) || !run(db_.get(), "BEGIN IMMEDIATE", why) ||
      !run(db_.get(), "DROP TABLE IF EXISTS main." + fresh(), why) || !run(db_.get(), create + ")", why) ||
      !(insert_ = prepare(db_.get(), insert + ")", why))) {
    error = where_ + ": cannot start writing: " + why;
    discard();
    return false;
  }
  return true;
}

bool SqliteWriter::write(const Cell* cells) {
  if (!db_) {
    if (error_.empty()) error_ = where_ + ": the member has been written already";
    return false;
  }
  ++rows_;
  sqlite3_stmt* s = insert_.get();
  char text[detail::kDateTimeChars];
  for (std::size_t j = 0; j < columns_.size(); ++j) {
    const Column& c = columns_[j];
    const Cell& cell = cells[j];
    const int i = static_cast<int>(j) + 1;
    int rc = SQLITE_OK;
    if (!c.numeric) {
      rc = cell.text.empty()
               ? sqlite3_bind_null(s, i)
               : sqlite3_bind_text(s, i, cell.text.data(), static_cast<int>(cell.text.size()), SQLITE_STATIC);
    } else if (is_missing(cell.number)) {
      rc = sqlite3_bind_null(s, i);
    } else if (c.form == Form::Number) {
      rc = sqlite3_bind_double(s, i, cell.number);
    } else {
      const char* end = c.form == Form::Date ? detail::format_date(cell.number, text)
                                             : detail::format_datetime(cell.number, ' ', text);
      if (end == nullptr)
        return fail(where_ + ": row " + std::to_string(rows_) + ", column " + std::to_string(j + 1) + " (" +
                    c.name + "): " + std::to_string(cell.number) + " is not a " +
                    (c.form == Form::Date ? "date" : "datetime") + " in the calendar (1582 to 20000)");
      rc = sqlite3_bind_text(s, i, text, static_cast<int>(end - text), SQLITE_TRANSIENT);
    }
    if (rc != SQLITE_OK)
      return fail(where_ + ": row " + std::to_string(rows_) + ", column " + std::to_string(j + 1) + " (" +
                  c.name + "): " + sqlite3_errmsg(db_.get()));
  }
  const int rc = sqlite3_step(s);
  sqlite3_reset(s);
  if (rc != SQLITE_DONE)
    return fail(where_ + ": row " + std::to_string(rows_) + ": " + sqlite3_errmsg(db_.get()));
  return true;
}

bool SqliteWriter::commit() {
  if (!db_) {
    if (error_.empty()) error_ = where_ + ": the member has been written already";
    return false;
  }
  insert_.reset();
  std::string why;
  if (!run(db_.get(), "DROP TABLE IF EXISTS main." + sql_name(table_), why) ||
      !run(db_.get(), "ALTER TABLE main." + fresh() + " RENAME TO " + sql_name(table_), why) ||
      !run(db_.get(), "COMMIT", why))
    return fail(where_ + ": cannot replace the member: " + why);
  finish();
  return true;
}

class SqliteLibrary final : public Library {
 public:
  explicit SqliteLibrary(std::string file)
      : file_(std::move(file)), writing_(std::make_shared<std::string>()) {}

  std::unique_ptr<Reader> open(const std::string& member, std::string& error) override {
    if (!check(member, error)) return nullptr;
    const std::string table = lower(member);
    std::error_code ec;
    if (!std::filesystem::exists(file_, ec)) {
      error = "SQLite library " + file_ + ": no member " + table + " (the database file does not exist yet)";
      return nullptr;
    }
    std::string why;
    Connection db = connect(file_, SQLITE_OPEN_READWRITE, why);
    if (!db) {
      error = "SQLite library " + file_ + ": cannot open: " + why;
      return nullptr;
    }
    auto reader = std::make_unique<SqliteReader>(std::move(db), where(table));
    if (!reader->start(file_, table, error)) return nullptr;
    return reader;
  }

  std::unique_ptr<Writer> create(const std::string& member, const std::vector<Column>& columns,
                                 std::string& error) override {
    if (!check(member, error)) return nullptr;
    const std::string table = lower(member);
    if (columns.empty()) {
      error = where(table) + ": a member needs at least one variable";
      return nullptr;
    }
    for (std::size_t j = 0; j < columns.size(); ++j) {
      if (!valid_member_name(columns[j].name)) {
        error = where(table) + ": column " + std::to_string(j + 1) + ": " + show(columns[j].name) +
                " is not a valid variable name (" + detail::name_rule(32) + ")";
        return nullptr;
      }
      for (std::size_t i = 0; i < j; ++i)
        if (lower(columns[i].name) == lower(columns[j].name)) {
          error = where(table) + ": variable " + show(columns[j].name) + " appears twice (columns " +
                  std::to_string(i + 1) + " and " + std::to_string(j + 1) + ")";
          return nullptr;
        }
    }
    // SQLite takes one writer at a time; a second one here would only wait for
    // the first and then fail.
    if (!writing_->empty()) {
      error = where(table) + ": cannot be written while table " + *writing_ +
              " of the same database is being written";
      return nullptr;
    }
    std::string why;
    Connection db = connect(file_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, why);
    if (!db) {
      error = "SQLite library " + file_ + ": cannot open: " + why;
      return nullptr;
    }
    write_ahead_log(db.get());
    *writing_ = table;
    auto writer = std::make_unique<SqliteWriter>(std::move(db), where(table), table, columns, writing_);
    if (!writer->start(error)) return nullptr;
    return writer;
  }

  std::string describe() const override { return file_; }

 private:
  std::string where(const std::string& table) const { return "SQLite library " + file_ + ", table " + table; }
  bool check(const std::string& member, std::string& error) const {
    if (valid_member_name(member)) return true;
    error = "SQLite library " + file_ + ": " + show(member) + " is not a valid member name (" +
            detail::name_rule(32) + ")";
    return false;
  }

  std::string file_;
  std::shared_ptr<std::string> writing_;  // the table being written, shared with its writer
};

}  // namespace

std::unique_ptr<Library> open_sqlite_library(const std::string& file, std::string& error) {
  std::error_code ec;
  if (file.empty()) {
    error = "SQLite library: no database file given";
    return nullptr;
  }
  if (std::filesystem::is_directory(file, ec)) {
    error = "SQLite library " + file + ": a directory, not a database file";
    return nullptr;
  }
  if (!std::filesystem::exists(file, ec)) {
    // Created by the first member written.
    const std::filesystem::path parent = std::filesystem::path(file).parent_path();
    if (!parent.empty() && !std::filesystem::is_directory(parent, ec)) {
      error = "SQLite library " + file + ": no such directory " + parent.string();
      return nullptr;
    }
    return std::make_unique<SqliteLibrary>(file);
  }
  std::string why;
  Connection db = connect(file, SQLITE_OPEN_READWRITE, why);
  Statement probe = db ? prepare(db.get(), "SELECT count(*) FROM sqlite_schema", why) : nullptr;
  if (!probe) {
    error = "SQLite library " + file + ": " + why;
    return nullptr;
  }
  probe.reset();
  write_ahead_log(db.get());
  return std::make_unique<SqliteLibrary>(file);
}

}  // namespace fmsd::host
