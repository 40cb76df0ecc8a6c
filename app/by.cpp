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

// ---- a worker: a host of its own on its own thread -------------------------------------------

class Worker final : public GroupData {
 public:
  explicit Worker(const std::vector<std::string>& libraries) : divert_(host_.pool()) {
    for (const std::string& name : libraries) {
      if (libraries_.count(upper(name)) != 0) continue;
      auto store = std::make_shared<MemoryStore>();
      libraries_[upper(name)] = store;
      std::string error;
      if (!host_.datasets().bind(name, std::make_unique<MemoryLibrary>(store, "the group's data in library " + upper(name)), error))
        throw RunError(error);
    }
  }
  host::Host& host() noexcept { return host_; }

  void put(const std::string& dataset, std::shared_ptr<const Table> rows) override {
    const auto [library, member] = split(dataset);
    library->put(member, std::move(rows));
  }
  std::shared_ptr<const Table> take(const std::string& dataset) override {
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
  std::pair<MemoryStore*, std::string> split(const std::string& dataset) const {
    const std::size_t dot = dataset.find('.');
    auto it = libraries_.find(upper(dot == std::string::npos ? "WORK" : dataset.substr(0, dot)));
    if (it == libraries_.end()) throw RunError(dataset + " is not in a library the groups are held in");
    return {it->second.get(), dot == std::string::npos ? dataset : dataset.substr(dot + 1)};
  }

  host::Host host_;
  host::Pool::Divert divert_;
  std::map<std::string, std::shared_ptr<MemoryStore>> libraries_;
};

// ---- groups of the input -------------------------------------------------------------------------

struct KeyValue {
  double number = 0;
  std::string text;
};
using Key = std::vector<KeyValue>;

int compare_number(double a, double b) {
  const bool ma = host::is_missing(a) || std::isnan(a);
  const bool mb = host::is_missing(b) || std::isnan(b);
  if (ma || mb) return ma == mb ? 0 : ma ? -1 : 1;
  return a == b ? 0 : a < b ? -1 : 1;
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
  bool next(Key& key, std::shared_ptr<Table>& rows) {
    if (done_) return false;
    if (!ahead_ && !read()) return false;
    key = key_of();
    rows = std::make_shared<Table>();
    rows->columns = in_.columns();
    rows->numbers.reserve(last_size_);
    for (;;) {
      rows->add(cells_.data());
      if (!read()) break;
      const int order = order_of_row(key);
      if (order < 0)
        throw RunError("the input is not sorted by the BY variables: row " + std::to_string(rows_) + " (" +
                       describe(key_of()) + ") comes after " + describe(key) +
                       "; sort the rows by the BY variables in ascending order");
      if (order > 0) break;
    }
    last_size_ = rows->numbers.size();
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
  // Where the row just read goes against the group of `key`: before it, in it
  // (0) or after it.
  int order_of_row(const Key& key) const {
    for (std::size_t k = 0; k < index_.size(); ++k) {
      const host::Cell& cell = cells_[index_[k]];
      const int c = numeric_[k] ? compare_number(cell.number, key[k].number) : cell.text.compare(key[k].text);
      if (c != 0) return c < 0 ? -1 : 1;
    }
    return 0;
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
  std::size_t last_size_ = 0;  // the previous group's cells, to size the next
  bool ahead_ = false;         // cells_ holds the first row of the next group
  bool done_ = false;
};

// ---- the output: BY variables, then what the service wrote ----------------------------------------

// A group's output rows as the output library writes them, made on the worker
// so that the thread that reads the input only appends them.
struct Formatted {
  bool done = false;       // false: the library has no text form, or a value cannot be written
  std::string text;
  std::string unwritable;  // the value that cannot be written, and where
};

Formatted format_rows(const host::Library& library, const std::vector<host::Column>& by, const Key& key,
                      const Table& rows) {
  Formatted f;
  std::vector<host::Column> columns = by;
  columns.insert(columns.end(), rows.columns.begin(), rows.columns.end());
  std::vector<host::Cell> cells(columns.size());
  for (std::size_t k = 0; k < by.size(); ++k) {
    cells[k].number = key[k].number;
    cells[k].text = key[k].text;
  }
  const std::size_t n = rows.columns.size();
  std::string why;
  for (std::size_t r = 0; r < rows.rows; ++r) {
    for (std::size_t j = 0; j < n; ++j) {
      cells[by.size() + j].number = rows.numbers[r * n + j];
      cells[by.size() + j].text =
          rows.columns[j].numeric ? std::string_view() : std::string_view(rows.texts[r * n + j]);
    }
    if (!library.format_row(columns, cells.data(), f.text, why)) {
      if (!why.empty()) f.unwritable = "row " + std::to_string(r + 1) + " of the group's output, " + why;
      f.text.clear();
      return f;
    }
  }
  f.done = true;
  return f;
}

class GroupWriter {
 public:
  GroupWriter(host::Library& library, std::string member, std::string shown, std::vector<host::Column> by)
      : library_(library), member_(std::move(member)), shown_(std::move(shown)), by_(std::move(by)) {}
  ~GroupWriter() {
    if (writer_) writer_->discard();
  }

  // Empty when the rows were written; otherwise why this group's output cannot
  // join the others (nothing of it is written).  `formatted` holds the rows in
  // the output's text form when a worker could make it, BY values first.
  std::string write(const Key& key, const Table& rows, const Formatted& formatted) {
    if (!writer_) open(rows.columns);
    const auto& columns = rows.columns;
    if (columns.size() != expected_.size()) return "its output has other variables than the first group's";
    for (std::size_t j = 0; j < columns.size(); ++j)
      if (!same_name(columns[j].name, expected_[j].name) || columns[j].numeric != expected_[j].numeric)
        return "its output has other variables than the first group's";
    if (!formatted.unwritable.empty()) throw RunError(shown_ + ": " + formatted.unwritable);
    if (formatted.done) {
      if (!writer_->write_text(formatted.text, static_cast<std::int64_t>(rows.rows)))
        throw RunError(shown_ + ": " + writer_->error());
      return {};
    }
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
  }
  // Standard output cannot take back what it was given: a run that stops early
  // still leaves it well-formed JSON (nothing at all before the first group).
  ~ResultArray() {
    if (path_.empty() && !first_ && !finished_) std::fputs("\n]\n", out_);
    if (!temporary_.empty()) {
      if (out_ != nullptr) std::fclose(out_);
      ::unlink(temporary_.c_str());
    }
  }

  void add(const std::string& line) {
    std::fputs(first_ ? "[\n  " : ",\n  ", out_);
    std::fputs(line.c_str(), out_);
    first_ = false;
  }
  // Standard output is finished at once; a file is closed, ready for place().
  void finish() {
    std::fputs(first_ ? "[]\n" : "\n]\n", out_);
    finished_ = true;
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
  bool finished_ = false;
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

// A batch ends at this many groups or input cells, whichever comes first.
constexpr std::size_t kBatchGroups = 16;
constexpr std::size_t kBatchCells = 1 << 14;

struct Queued {
  Key key;
  GroupOutcome outcome;
  Formatted formatted;
};

}  // namespace

// ---- shared pieces --------------------------------------------------------------------------------

ServiceTiming::ServiceTiming()
    : wall_(std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count()),
      cpu_(thread_cpu_seconds()) {}

void ServiceTiming::stop(GroupOutcome& outcome) const {
  outcome.service_seconds +=
      std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count() - wall_;
  outcome.service_cpu_seconds += thread_cpu_seconds() - cpu_;
}

namespace {

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

// Options of the commands that run for each group of rows.
const std::vector<OptionSpec> kByOptions = {
    {"by", "VARS", false, "run for each group of rows with equal values of these\nvariables (separated by commas); the rows must be in\nascending order of them"},
    {"jobs", "N", false, "with --by: worker threads (default: one per processor)"},
    {"progress", "WHEN", false, "with --by: a progress line on standard error: auto (the\ndefault: when standard error is a terminal), on or off"},
    {"timing", "FILE", false, "with --by: write the run's counts and times to FILE as JSON"}};

}  // namespace

std::vector<OptionSpec> with_by(std::vector<OptionSpec> options) {
  options.insert(options.end(), kByOptions.begin(), kByOptions.end());
  return options;
}

void check_by_options(const OptionValues& values) {
  if (const std::string* by = values.find("by")) {
    by_names(*by);
    values.integer("jobs", 1);
    if (const std::string* when = values.find("progress")) progress_setting(*when);
  } else {
    for (const char* option : {"jobs", "progress", "timing"})
      if (values.find(option) != nullptr) throw UsageError("--" + std::string(option) + " goes with --by only");
  }
}

void apply_by_options(const OptionValues& values, ByRun& run) {
  run.by = by_names(values.get("by"));
  if (const std::string* file = values.find("result")) run.result_file = *file;
  if (const std::string* file = values.find("timing")) run.timing_file = *file;
  if (const std::optional<long> jobs = values.integer("jobs", 1)) run.jobs = static_cast<unsigned>(*jobs);
  if (const std::string* when = values.find("progress")) run.progress = progress_setting(*when);
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
    OrderedPool<std::vector<Queued>> pool(
        jobs, [&](unsigned w) { workers[w] = std::make_unique<Worker>(run.libraries); },
        [&](unsigned w) { workers[w].reset(); });

    const auto settle_one = [&](Queued& q) {
      GroupOutcome& o = q.outcome;
      service_seconds += o.service_seconds;
      service_cpu_seconds += o.service_cpu_seconds;
      if (o.ok && o.output) {
        if (std::string why = writer.write(q.key, *o.output, q.formatted); !why.empty()) {
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
    const auto settle = [&] {
      std::vector<Queued> batch = pool.next();
      for (Queued& q : batch) settle_one(q);
    };

    // Small groups go to the workers a batch at a time: handing over each one
    // alone would cost the threads about as much as a small group's work.
    std::vector<std::pair<Key, std::shared_ptr<const Table>>> batch;
    std::size_t batch_cells = 0;
    const auto submit = [&] {
      pool.submit([&workers, &run, &groups, output_library, batch = std::move(batch)](unsigned w) {
        Worker& worker = *workers[w];
        std::vector<Queued> done_here(batch.size());
        for (std::size_t i = 0; i < batch.size(); ++i) {
          const auto& [key, rows] = batch[i];
          Queued& q = done_here[i];
          q.key = key;
          try {
            q.outcome = run.work(worker.host(), worker, rows);
            if (q.outcome.ok && q.outcome.output)
              q.formatted = format_rows(*output_library, groups.by_columns(), key, *q.outcome.output);
          } catch (const std::exception& e) {
            q.outcome = GroupOutcome{};
            q.outcome.code = host::missing_value();
            q.outcome.message = e.what();
          }
          worker.tidy();
        }
        return done_here;
      });
      batch.clear();
      batch_cells = 0;
    };
    Key key;
    std::shared_ptr<Table> rows;
    while (groups.next(key, rows)) {
      batch_cells += rows->numbers.size();
      batch.emplace_back(std::move(key), std::move(rows));
      if (batch.size() < kBatchGroups && batch_cells < kBatchCells) continue;
      while (pool.pending() >= window) settle();
      submit();
      progress.update(done, failed, groups.rows_read());
    }
    if (!batch.empty()) submit();
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
