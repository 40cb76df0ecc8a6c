#include "app/by.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <thread>

#include "app/options.h"
#include "app/pool.h"
#include "host/datasets.h"
#include "host/host.h"
#include "host/json.h"
#include "host/storage_detail.h"

namespace fmsd::app {

namespace {

namespace fs = std::filesystem;

// A run that cannot go on: nothing is saved.
class RunError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

std::string upper(std::string_view s) {
  std::string out(s);
  for (char& c : out)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return out;
}

bool same_name(std::string_view a, std::string_view b) { return upper(a) == upper(b); }

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double thread_cpu_seconds() {
  timespec t{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

// ---- data sets in memory ------------------------------------------------------------------

class GroupTableReader final : public host::Reader {
 public:
  explicit GroupTableReader(std::shared_ptr<const GroupTable> table) : table_(std::move(table)) {}
  const std::vector<host::Column>& columns() const override { return table_->columns; }
  std::int64_t rows() const override { return static_cast<std::int64_t>(table_->rows); }
  void select(const std::vector<bool>&) override {}
  bool next(host::Cell* cells) override {
    if (row_ == table_->rows) return false;
    const std::size_t n = table_->columns.size();
    const std::size_t at = row_ * n;
    for (std::size_t j = 0; j < n; ++j) {
      cells[j].number = table_->numbers[at + j];
      cells[j].text = table_->columns[j].numeric ? std::string_view() : std::string_view(table_->texts[at + j]);
    }
    ++row_;
    return true;
  }
  const std::string& error() const override { return error_; }
  bool rewind() override {
    row_ = 0;
    return true;
  }

 private:
  std::shared_ptr<const GroupTable> table_;
  std::size_t row_ = 0;
  std::string error_;
};

class GroupLibrary;

class GroupTableWriter final : public host::Writer {
 public:
  GroupTableWriter(GroupLibrary& library, std::string member, std::vector<host::Column> columns)
      : library_(library), member_(std::move(member)), table_(std::make_shared<GroupTable>()) {
    table_->columns = std::move(columns);
  }
  bool write(const host::Cell* cells) override {
    table_->add(cells);
    return true;
  }
  bool commit() override;
  void discard() noexcept override { table_.reset(); }
  const std::string& error() const override { return error_; }

 private:
  GroupLibrary& library_;
  std::string member_;
  std::shared_ptr<GroupTable> table_;
  std::string error_;
};

// Members by lower-case name, as the file and database libraries compare them.
class GroupLibrary final : public host::Library {
 public:
  explicit GroupLibrary(std::string name) : name_(std::move(name)) {}
  std::unique_ptr<host::Reader> open(const std::string& member, std::string& error) override {
    auto it = members_.find(host::detail::lower(member));
    if (it == members_.end()) {
      error = "the group's data holds no member " + member;
      return nullptr;
    }
    return std::make_unique<GroupTableReader>(it->second);
  }
  std::unique_ptr<host::Writer> create(const std::string& member, const std::vector<host::Column>& columns,
                                       std::string&) override {
    return std::make_unique<GroupTableWriter>(*this, host::detail::lower(member), columns);
  }
  std::string describe() const override { return "the group's data in library " + name_; }

  void put(const std::string& member, std::shared_ptr<const GroupTable> table) {
    members_[host::detail::lower(member)] = std::move(table);
  }
  std::shared_ptr<GroupTable> take(const std::string& member) {
    auto it = saved_.find(host::detail::lower(member));
    if (it == saved_.end()) return nullptr;
    std::shared_ptr<GroupTable> table = std::move(it->second);
    saved_.erase(it);
    members_.erase(host::detail::lower(member));
    return table;
  }
  void save(const std::string& member, std::shared_ptr<GroupTable> table) {
    members_[member] = table;
    saved_[member] = std::move(table);
  }

 private:
  std::string name_;
  std::map<std::string, std::shared_ptr<const GroupTable>> members_;
  std::map<std::string, std::shared_ptr<GroupTable>> saved_;
};

bool GroupTableWriter::commit() {
  if (!table_) return false;
  library_.save(member_, std::move(table_));
  return true;
}

// ---- a worker: a host of its own on its own thread -------------------------------------------

class Worker final : public GroupData {
 public:
  explicit Worker(const std::vector<std::string>& libraries) : divert_(host_.pool()) {
    for (const std::string& name : libraries) {
      if (libraries_.count(upper(name)) != 0) continue;
      auto library = std::make_unique<GroupLibrary>(upper(name));
      libraries_[upper(name)] = library.get();
      std::string error;
      if (!host_.datasets().bind(name, std::move(library), error)) throw RunError(error);
    }
  }
  host::Host& host() noexcept { return host_; }

  void put(const std::string& dataset, std::shared_ptr<const GroupTable> rows) override {
    const auto [library, member] = split(dataset);
    library->put(member, std::move(rows));
  }
  std::shared_ptr<GroupTable> take(const std::string& dataset) override {
    const auto [library, member] = split(dataset);
    return library->take(member);
  }

  // What one group leaves in the host goes before the next: the blocks the
  // services leave to the host, and the log lines its messages came from.
  void tidy() noexcept {
    host_.pool().release_all();
    host_.pool().reset_failed();
    host_.clear_log();
    host_.clear_diagnostics();
  }

 private:
  std::pair<GroupLibrary*, std::string> split(const std::string& dataset) const {
    const std::size_t dot = dataset.find('.');
    auto it = libraries_.find(upper(dot == std::string::npos ? "WORK" : dataset.substr(0, dot)));
    if (it == libraries_.end()) throw RunError(dataset + " is not in a library the groups are held in");
    return {it->second, dot == std::string::npos ? dataset : dataset.substr(dot + 1)};
  }

  host::Host host_;
  host::Pool::Divert divert_;
  std::map<std::string, GroupLibrary*> libraries_;
};

// ---- groups of the input -------------------------------------------------------------------------

struct KeyValue {
  double number = 0;
  std::string text;
};
using Key = std::vector<KeyValue>;

int compare(const Key& a, const Key& b, const std::vector<bool>& numeric) {
  for (std::size_t k = 0; k < a.size(); ++k) {
    if (numeric[k]) {
      const bool ma = host::is_missing(a[k].number) || std::isnan(a[k].number);
      const bool mb = host::is_missing(b[k].number) || std::isnan(b[k].number);
      if (ma || mb) {
        if (ma != mb) return ma ? -1 : 1;
        continue;
      }
      if (a[k].number != b[k].number) return a[k].number < b[k].number ? -1 : 1;
    } else if (const int c = a[k].text.compare(b[k].text); c != 0) {
      return c < 0 ? -1 : 1;
    }
  }
  return 0;
}

class GroupReader {
 public:
  GroupReader(host::Reader& in, const std::vector<std::string>& by, const std::string& shown) : in_(in) {
    const auto& columns = in_.columns();
    for (const std::string& name : by) {
      std::size_t j = 0;
      while (j < columns.size() && !same_name(columns[j].name, name)) ++j;
      if (j == columns.size()) throw UsageError("--by " + name + ": " + shown + " has no variable " + name);
      if (std::find(index_.begin(), index_.end(), j) != index_.end())
        throw UsageError("--by names " + name + " twice");
      index_.push_back(j);
      numeric_.push_back(columns[j].numeric);
      by_columns_.push_back(columns[j]);
    }
    cells_.resize(columns.size());
  }

  const std::vector<host::Column>& by_columns() const noexcept { return by_columns_; }
  std::size_t rows_read() const noexcept { return rows_; }

  // The next group's key and rows; false after the last.
  bool next(Key& key, std::shared_ptr<GroupTable>& rows) {
    if (done_) return false;
    if (!ahead_ && !read()) return false;
    key = key_of();
    rows = std::make_shared<GroupTable>();
    rows->columns = in_.columns();
    for (;;) {
      rows->add(cells_.data());
      if (!read()) break;
      const Key following = key_of();
      const int order = compare(following, key, numeric_);
      if (order < 0)
        throw RunError("the input is not sorted by the BY variables: row " + std::to_string(rows_) + " (" +
                       describe(following) + ") comes after " + describe(key) +
                       "; sort the rows by the BY variables in ascending order");
      if (order > 0) break;
    }
    return true;
  }

  std::string describe(const Key& key) const {
    std::string text;
    for (std::size_t k = 0; k < key.size(); ++k) {
      if (k) text += ", ";
      text += by_columns_[k].name + "=" + shown(k, key[k]);
    }
    return text;
  }

  // A BY value as the data shows it: dates and datetimes as ISO text.
  std::string shown(std::size_t k, const KeyValue& v) const {
    if (!numeric_[k]) return v.text;
    if (host::is_missing(v.number) || std::isnan(v.number)) return ".";
    char buffer[host::detail::kDateTimeChars];
    const char* end = nullptr;
    if (by_columns_[k].form == host::Form::Date) end = host::detail::format_date(v.number, buffer);
    if (by_columns_[k].form == host::Form::DateTime) end = host::detail::format_datetime(v.number, 'T', buffer);
    if (end == nullptr) end = std::to_chars(buffer, buffer + sizeof buffer, v.number).ptr;
    return std::string(static_cast<const char*>(buffer), end);
  }

  bool numeric(std::size_t k) const noexcept { return numeric_[k]; }

 private:
  bool read() {
    ahead_ = in_.next(cells_.data());
    if (!ahead_) {
      done_ = true;
      if (!in_.error().empty()) throw RunError(in_.error());
      return false;
    }
    ++rows_;
    return true;
  }
  Key key_of() const {
    Key key(index_.size());
    for (std::size_t k = 0; k < index_.size(); ++k) {
      if (numeric_[k])
        key[k].number = cells_[index_[k]].number;
      else
        key[k].text = std::string(cells_[index_[k]].text);
    }
    return key;
  }

  host::Reader& in_;
  std::vector<std::size_t> index_;
  std::vector<bool> numeric_;
  std::vector<host::Column> by_columns_;
  std::vector<host::Cell> cells_;
  std::size_t rows_ = 0;
  bool ahead_ = false;  // cells_ holds the first row of the next group
  bool done_ = false;
};

// ---- the output: BY variables, then what the service wrote ----------------------------------------

class GroupWriter {
 public:
  GroupWriter(host::Library& library, std::string member, std::string shown, std::vector<host::Column> by)
      : library_(library), member_(std::move(member)), shown_(std::move(shown)), by_(std::move(by)) {}
  ~GroupWriter() {
    if (writer_) writer_->discard();
  }

  // Empty when the rows were written; otherwise why this group's output cannot
  // join the others (nothing of it is written).
  std::string write(const Key& key, const GroupTable& rows) {
    if (!writer_) open(rows.columns);
    const auto& columns = rows.columns;
    if (columns.size() != expected_.size()) return "its output has other variables than the first group's";
    for (std::size_t j = 0; j < columns.size(); ++j)
      if (!same_name(columns[j].name, expected_[j].name) || columns[j].numeric != expected_[j].numeric)
        return "its output has other variables than the first group's";
    const std::size_t n = columns.size();
    cells_.resize(by_.size() + n);
    for (std::size_t k = 0; k < by_.size(); ++k) {
      cells_[k].number = key[k].number;
      cells_[k].text = key[k].text;
    }
    for (std::size_t r = 0; r < rows.rows; ++r) {
      for (std::size_t j = 0; j < n; ++j) {
        host::Cell& c = cells_[by_.size() + j];
        c.number = rows.numbers[r * n + j];
        c.text = columns[j].numeric ? std::string_view() : std::string_view(rows.texts[r * n + j]);
      }
      if (!writer_->write(cells_.data())) throw RunError(shown_ + ": " + writer_->error());
    }
    return {};
  }

  bool opened() const noexcept { return writer_ != nullptr; }
  void commit() {
    if (!writer_->commit()) throw RunError(shown_ + ": " + writer_->error());
    writer_.reset();
  }

 private:
  void open(const std::vector<host::Column>& columns) {
    std::vector<host::Column> all = by_;
    for (const host::Column& c : columns) {
      for (const host::Column& b : by_)
        if (same_name(b.name, c.name))
          throw RunError("BY variable " + b.name + " has the name of a variable of the output; rename it");
      all.push_back(c);
    }
    std::string error;
    writer_ = library_.create(member_, all, error);
    if (!writer_) throw RunError(shown_ + ": " + error);
    expected_ = columns;
  }

  host::Library& library_;
  std::string member_, shown_;
  std::vector<host::Column> by_, expected_;
  std::unique_ptr<host::Writer> writer_;
  std::vector<host::Cell> cells_;
};

// The JSON array of outcomes, a group a line as the groups finish.  A result
// file goes to a hidden file beside it and takes its name only when the output
// is saved too.
class ResultArray {
 public:
  explicit ResultArray(const std::optional<std::string>& path) {
    if (!path) {
      out_ = stdout;
    } else {
      const fs::path target(*path);
      path_ = *path;
      temporary_ = (target.parent_path() / ("." + target.filename().string() + ".XXXXXX")).string();
      const int fd = ::mkstemp(temporary_.data());
      if (fd < 0 || (out_ = ::fdopen(fd, "w")) == nullptr) {
        if (fd >= 0) ::close(fd);
        temporary_.clear();
        throw RunError(*path + ": cannot write the result file: " + std::strerror(errno));
      }
    }
    std::fputs("[", out_);
  }
  ~ResultArray() {
    if (!temporary_.empty()) {
      if (out_ != nullptr) std::fclose(out_);
      ::unlink(temporary_.c_str());
    }
  }

  void add(const std::string& line) {
    std::fputs(first_ ? "\n  " : ",\n  ", out_);
    std::fputs(line.c_str(), out_);
    first_ = false;
  }
  // Standard output is finished at once; a file is closed, ready for place().
  void finish() {
    std::fputs(first_ ? "]\n" : "\n]\n", out_);
    if (path_.empty()) {
      std::fflush(out_);
      return;
    }
    const bool bad = std::ferror(out_) != 0;
    const bool closed = std::fclose(out_) == 0;
    out_ = nullptr;
    if (bad || !closed) throw RunError(path_ + ": cannot write the result file: " + std::strerror(errno));
  }
  void place() {
    if (path_.empty()) return;
    if (std::rename(temporary_.c_str(), path_.c_str()) != 0)
      throw RunError("the output was saved, but the result file " + path_ + " could not be put in place: " +
                     std::strerror(errno));
    temporary_.clear();
  }

 private:
  std::FILE* out_ = nullptr;
  std::string path_, temporary_;
  bool first_ = true;
};

std::string json_number(double x) {
  if (host::is_missing(x) || !std::isfinite(x)) return "null";
  char buffer[32];
  return std::string(buffer, std::to_chars(buffer, buffer + sizeof buffer, x).ptr);
}

// ---- progress on standard error -------------------------------------------------------------------

// Lines of a CSV member's file beyond its header, when the input is one: the
// rows to come, for the bar.  Quoted line breaks make it an estimate.
long long csv_rows(host::Library& library, const std::string& member) {
  std::error_code ec;
  const fs::path file = fs::path(library.describe()) / (host::detail::lower(member) + ".csv");
  if (!fs::is_regular_file(file, ec)) return -1;
  std::FILE* f = std::fopen(file.c_str(), "rb");
  if (f == nullptr) return -1;
  static constexpr std::size_t kChunk = 1 << 20;
  std::vector<char> buffer(kChunk);
  long long lines = 0;
  std::size_t n;
  while ((n = std::fread(buffer.data(), 1, kChunk, f)) > 0) lines += std::count(buffer.data(), buffer.data() + n, '\n');
  std::fclose(f);
  return lines - 1;
}

class Progress {
 public:
  Progress(bool on, std::string command, long long total_rows)
      : on_(on), command_(std::move(command)), total_(total_rows), start_(std::chrono::steady_clock::now()) {}

  void update(std::size_t groups, std::size_t failed, std::size_t rows) {
    if (!on_) return;
    const double now = seconds_since(start_);
    if (now < kDelay || now - drawn_ < kEvery) return;
    drawn_ = now;
    draw(groups, failed, rows, now);
  }
  void finish(std::size_t groups, std::size_t failed, std::size_t rows) {
    if (!on_ || drawn_ == 0) return;
    total_ = static_cast<long long>(rows);
    draw(groups, failed, rows, seconds_since(start_));
    std::fputc('\n', stderr);
  }

 private:
  static constexpr double kDelay = 0.5, kEvery = 0.2;
  static constexpr int kWidth = 30;

  void draw(std::size_t groups, std::size_t failed, std::size_t rows, double now) {
    std::string bar;
    if (total_ > 0) {
      const double part = std::min(1.0, static_cast<double>(rows) / static_cast<double>(total_));
      const int filled = static_cast<int>(part * kWidth);
      bar = "[" + std::string(static_cast<std::size_t>(filled), '#') +
            std::string(static_cast<std::size_t>(kWidth - filled), ' ') + "] " +
            std::to_string(static_cast<int>(part * 100)) + "%  ";
    }
    std::fprintf(stderr, "\rfmsd %s: %s%zu groups, %zu failed, %.0f groups/s ", command_.c_str(), bar.c_str(), groups,
                 failed, now > 0 ? static_cast<double>(groups) / now : 0.0);
    std::fflush(stderr);
  }

  bool on_;
  std::string command_;
  long long total_;
  std::chrono::steady_clock::time_point start_;
  double drawn_ = 0;
};

struct Queued {
  Key key;
  GroupOutcome outcome;
};

}  // namespace

// ---- shared pieces --------------------------------------------------------------------------------

void GroupTable::add(const host::Cell* cells) {
  const std::size_t n = columns.size();
  const bool texts_too = has_texts();
  for (std::size_t j = 0; j < n; ++j) {
    numbers.push_back(columns[j].numeric ? cells[j].number : 0);
    if (texts_too) texts.emplace_back(columns[j].numeric ? std::string_view() : cells[j].text);
  }
  ++rows;
}

bool GroupTable::has_texts() const noexcept {
  for (const host::Column& c : columns)
    if (!c.numeric) return true;
  return false;
}

ServiceTiming::ServiceTiming()
    : wall_(std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count()),
      cpu_(thread_cpu_seconds()) {}

void ServiceTiming::stop(GroupOutcome& outcome) const {
  outcome.service_seconds +=
      std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count() - wall_;
  outcome.service_cpu_seconds += thread_cpu_seconds() - cpu_;
}

std::vector<std::string> by_names(const std::string& text) {
  std::vector<std::string> names;
  std::string name;
  for (const char c : text + ",") {
    if (c == ',' || c == ' ' || c == '\t') {
      if (!name.empty()) names.push_back(name);
      name.clear();
    } else {
      name += c;
    }
  }
  if (names.empty()) throw UsageError("--by names no variable");
  for (const std::string& n : names)
    if (!host::valid_member_name(n))
      throw UsageError("--by " + n + ": not a variable name (a letter or underscore, then letters, digits or "
                       "underscores, at most 32 characters)");
  return names;
}

int progress_setting(const std::string& text) {
  if (text == "on") return 1;
  if (text == "off") return 0;
  if (text == "auto") return -1;
  throw UsageError("--progress wants auto, on or off, not '" + text + "'");
}

// ---- the run ----------------------------------------------------------------------------------------

int run_groups(host::Host& host, const ByRun& run) {
  const auto start = std::chrono::steady_clock::now();
  const std::string head = "fmsd " + run.command + ": ";
  const auto split = [](const std::string& dataset) {
    const std::size_t dot = dataset.find('.');
    return std::pair{dataset.substr(0, dot), dataset.substr(dot + 1)};
  };
  const auto [in_library, in_member] = split(run.input);
  const auto [out_library, out_member] = split(run.output);
  host::Library* input_library = host.datasets().library(in_library);
  host::Library* output_library = host.datasets().library(out_library);
  if (input_library == nullptr || output_library == nullptr)
    throw UsageError("the data sets' libraries are not bound");

  std::string error;
  std::unique_ptr<host::Reader> reader = input_library->open(in_member, error);
  if (!reader) {
    std::fprintf(stderr, "%scannot read %s: %s\n", head.c_str(), run.input_shown.c_str(), error.c_str());
    return 1;
  }
  GroupReader groups(*reader, run.by, run.input_shown);

  const bool show = run.progress > 0 || (run.progress < 0 && ::isatty(STDERR_FILENO));
  Progress progress(show, run.command,
                    !show ? -1 : reader->rows() >= 0 ? reader->rows() : csv_rows(*input_library, in_member));

  unsigned jobs = run.jobs != 0 ? run.jobs : std::max(1u, std::thread::hardware_concurrency());
  std::vector<std::unique_ptr<Worker>> workers(jobs);
  const std::size_t window = 4 * static_cast<std::size_t>(jobs);

  std::size_t done = 0, failed = 0, saved = 0;
  double service_seconds = 0, service_cpu_seconds = 0;
  try {
    GroupWriter writer(*output_library, out_member, run.output_shown, groups.by_columns());
    ResultArray results(run.result_file);
    OrderedPool<Queued> pool(
        jobs, [&](unsigned w) { workers[w] = std::make_unique<Worker>(run.libraries); },
        [&](unsigned w) { workers[w].reset(); });

    const auto settle = [&] {
      Queued q = pool.next();
      GroupOutcome& o = q.outcome;
      service_seconds += o.service_seconds;
      service_cpu_seconds += o.service_cpu_seconds;
      if (o.ok && o.output) {
        if (std::string why = writer.write(q.key, *o.output); !why.empty()) {
          o.ok = false;
          o.message = why;
        }
      } else if (o.ok) {
        o.ok = false;
        o.message = "it wrote no output";
      }
      std::string line = "{\"BY\": {";
      for (std::size_t k = 0; k < q.key.size(); ++k) {
        if (k) line += ", ";
        line += host::json_string(run.by[k]) + ": " +
                (groups.numeric(k) ? json_number(q.key[k].number) : host::json_string(q.key[k].text));
      }
      line += "}, \"RESULT\": " + json_number(o.code);
      if (!o.message.empty()) line += std::string(o.ok ? ", \"NOTICE\": " : ", \"ERROR\": ") + host::json_string(o.message);
      if (o.ok && !o.list_json.empty()) line += ", \"LIST\": " + o.list_json;
      results.add(line + "}");
      ++done;
      if (o.ok) {
        ++saved;
      } else {
        ++failed;
        std::fprintf(stderr, "%sgroup %s failed: %s\n", head.c_str(), groups.describe(q.key).c_str(),
                     o.message.c_str());
      }
      progress.update(done, failed, groups.rows_read());
    };

    Key key;
    std::shared_ptr<GroupTable> rows;
    while (groups.next(key, rows)) {
      while (pool.pending() >= window) settle();
      pool.submit([&workers, &run, key, rows = std::shared_ptr<const GroupTable>(std::move(rows))](unsigned w) {
        Worker& worker = *workers[w];
        Queued q{key, {}};
        try {
          q.outcome = run.work(worker.host(), worker, rows);
        } catch (const std::exception& e) {
          q.outcome = GroupOutcome{};
          q.outcome.code = host::missing_value();
          q.outcome.message = e.what();
        }
        worker.tidy();
        return q;
      });
      progress.update(done, failed, groups.rows_read());
    }
    while (pool.pending() > 0) settle();
    progress.finish(done, failed, groups.rows_read());
    if (done == 0) throw RunError(run.input_shown + " has no rows");

    results.finish();
    if (saved == 0) {
      std::fprintf(stderr, "%severy one of the %zu groups failed; nothing was saved\n", head.c_str(), done);
      return 1;
    }
    writer.commit();
    results.place();
  } catch (const RunError& e) {
    std::fprintf(stderr, "%s%s; nothing was saved\n", head.c_str(), e.what());
    return 1;
  }

  if (run.timing_file) {
    std::FILE* f = std::fopen(run.timing_file->c_str(), "w");
    if (f == nullptr) {
      std::fprintf(stderr, "%sthe output was saved, but %s cannot be written: %s\n", head.c_str(),
                   run.timing_file->c_str(), std::strerror(errno));
      return 1;
    }
    std::fprintf(f,
                 "{\"groups\": %zu, \"failed\": %zu, \"workers\": %u, \"wall_seconds\": %.6f, "
                 "\"service_seconds\": %.6f, \"service_cpu_seconds\": %.6f}\n",
                 done, failed, jobs, seconds_since(start), service_seconds, service_cpu_seconds);
    std::fclose(f);
  }
  if (failed > 0) {
    std::fprintf(stderr, "%s%zu of %zu groups failed; the other %zu were saved\n", head.c_str(), failed, done, saved);
    return 3;
  }
  return 0;
}

}  // namespace fmsd::app
