// Open data sets as the module sees them: a handle whose first words follow the
// host block layout, an observation buffer with one slot per variable, and
// vectors that bind variables to the module's own doubles.
#include "host/datasets.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <new>
#include <vector>

#include "host/operations.h"
#include "host/storage.h"

namespace fmsd::host {

namespace {

constexpr std::size_t kLevelWidth = 8;
constexpr int kMaxMemberLength = 32;
constexpr int kLabelLimit = 256;
constexpr char kDefaultLibrary[] = "WORK";

std::string upper(std::string_view s) {
  std::string out(s);
  for (char& c : out)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return out;
}

bool same_name(std::string_view a, std::string_view b) noexcept {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'a' && x <= 'z') x = static_cast<char>(x - 'a' + 'A');
    if (y >= 'a' && y <= 'z') y = static_cast<char>(y - 'a' + 'A');
    if (x != y) return false;
  }
  return true;
}

std::string_view trim_blanks(std::string_view s) noexcept {
  while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
  while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
  return s;
}

// "LIB.MEMBER" or "MEMBER" as one key, so that faults match whatever case a
// caller uses.
std::string dataset_key(std::string_view name) {
  const auto dot = name.find('.');
  if (dot == std::string_view::npos) return std::string(kDefaultLibrary) + "." + upper(name);
  return upper(name.substr(0, dot)) + "." + upper(name.substr(dot + 1));
}

// Bytes of a variable's slot in the observation buffer.
std::size_t slot_bytes(const Column& c) noexcept {
  return c.numeric ? 8 : static_cast<std::size_t>(std::max(c.length, 1));
}

struct Variable {
  Column column;
  std::size_t offset = 0;  // of its slot in the observation buffer
  fmsd_vardesc descriptor{};
};

void describe(Variable& v) {
  fmsd_vardesc& d = v.descriptor;
  d = fmsd_vardesc{};
  const char* format = v.column.form == Form::Date       ? "DATE    "
                       : v.column.form == Form::DateTime ? "DATETIME"
                                                         : "        ";
  std::memcpy(d.format, format, sizeof d.format);
  d.format_width = static_cast<std::int16_t>(v.column.form == Form::Date       ? 9
                                             : v.column.form == Form::DateTime ? 16
                                                                               : 0);
  d.length = static_cast<std::int32_t>(slot_bytes(v.column));
  d.name_length = static_cast<std::int16_t>(v.column.name.size());
  d.name_kind = 1;
  d.type = v.column.numeric ? 1 : 2;
  d.name = v.column.name.c_str();
  d.label = v.column.label.c_str();
}

enum class Mode { Input, Output };

// An open data set.  `words` is the handle the module holds; the rest is ours.
struct OpenSet {
  fmsd_word words[FMSD_HANDLE_WORDS] = {};
  std::string name;    // LIB.MEMBER in upper case, for messages and faults
  std::string member;  // as the module spelled it, for the storage
  std::shared_ptr<Library> library;
  Mode mode = Mode::Input;
  fmsd_word* access = nullptr;
  std::vector<std::unique_ptr<Variable>> variables;
  std::vector<unsigned char> buffer;
  std::unique_ptr<Reader> reader;
  std::unique_ptr<Writer> writer;
  std::vector<Cell> cells;
  std::vector<bool> wanted;  // columns the reader decodes
  bool selected = false;     // xvsele narrowed the columns to the bound ones
  bool broken = false;       // a read or write failed: end of data / nothing saved
  long row = 0;              // rows read or written in this pass
  bool put_pending = false;  // xyvput wrote the row the next write request asks for
  int put_status = 0;

  bool input() const noexcept { return mode == Mode::Input; }
};

struct Vector {
  OpenSet* set;
  Mode mode;
  int capacity;
  bool ended = false;
  std::vector<std::pair<std::size_t, double*>> bindings;  // variable index, module double
};

struct Fault {
  bool open = false;
  long read_row = 0;
  long write_row = 0;
};

// An output closed with 0 during a service call: committed or discarded when
// the call's outcome is known.
struct Held {
  std::string name;
  std::unique_ptr<Writer> writer;
};

}  // namespace

struct DataSets::State {
  explicit State(Host& h) : host(h) {}
  Host& host;
  std::map<std::string, std::shared_ptr<Library>> libraries;  // by upper-case name
  std::vector<std::unique_ptr<OpenSet>> open;
  std::vector<std::unique_ptr<Vector>> vectors;
  std::vector<Held> held;
  std::map<std::string, Fault> faults;
  std::string last_failure;
  bool in_call = false;

  int fail(int status, std::string text) noexcept {
    report(std::move(text));
    return -status;
  }
  void report(std::string text) noexcept {
    try {
      last_failure = text;
      host.add_log(std::move(text));
    } catch (...) {
    }
  }
  // For the paths where building a message may itself run out of memory.
  int fail_text(int status, const char* text) noexcept {
    try {
      report(text);
    } catch (...) {
    }
    return -status;
  }

  OpenSet* find(fmsd_word handle) const noexcept {
    for (const auto& s : open)
      if (reinterpret_cast<fmsd_word>(s->words) == handle) return s.get();
    return nullptr;
  }
  Vector* find_vector(fmsd_word word) const noexcept {
    for (const auto& v : vectors)
      if (reinterpret_cast<fmsd_word>(v.get()) == word) return v.get();
    return nullptr;
  }
  const Fault* fault(const OpenSet& s) const {
    if (faults.empty()) return nullptr;
    auto it = faults.find(s.name);
    return it == faults.end() ? nullptr : &it->second;
  }

  std::shared_ptr<Library> storage(const std::string& name) {
    auto it = libraries.find(upper(name));
    if (it != libraries.end()) return it->second;
    if (!same_name(name, kDefaultLibrary)) return nullptr;
    std::string error;
    std::shared_ptr<Library> work = open_csv_library(std::filesystem::current_path().string(), error);
    if (work) libraries[kDefaultLibrary] = work;
    return work;
  }

  // The words the module reads follow the buffer whenever it moves.  An output
  // has no slots before its variables are defined; it still gets a valid buffer
  // so that the module never copies to or from null.
  void publish_buffer(OpenSet& s) {
    if (s.buffer.empty()) s.buffer.assign(8, 0);
    const auto data = reinterpret_cast<fmsd_word>(s.buffer.data());
    s.words[FMSD_HANDLE_BUFFER] = data;
    if (s.access != nullptr) s.access[FMSD_ACCESS_BUFFER] = data;
  }

  void clear_slot(OpenSet& s, const Variable& v) noexcept {
    unsigned char* slot = s.buffer.data() + v.offset;
    if (v.column.numeric) {
      const double m = host.missing();
      std::memcpy(slot, &m, sizeof m);
    } else {
      std::memset(slot, ' ', slot_bytes(v.column));
    }
  }

  void apply_selection(OpenSet& s) {
    if (!s.reader) return;
    s.reader->select(s.wanted);
    for (std::size_t i = 0; i < s.variables.size(); ++i)
      if (!s.wanted[i]) clear_slot(s, *s.variables[i]);
  }

  void drop(OpenSet& s) noexcept {
    std::erase_if(vectors, [&](const auto& v) { return v->set == &s; });
    std::erase_if(open, [&](const auto& p) { return p.get() == &s; });
  }

  // ---- opening ---------------------------------------------------------------------

  int open_set(fmsd_word* access, const unsigned char* request, fmsd_request_fn* const* functions) {
    access[FMSD_ACCESS_HANDLE] = 0;
    const std::string_view level1 =
        trim_blanks({reinterpret_cast<const char*>(request + FMSD_REQUEST_LEVEL1), kLevelWidth});
    std::int16_t length = 0;
    std::memcpy(&length, request + FMSD_REQUEST_NAMEBLOCK, sizeof length);
    if (length < 1 || length > kMaxMemberLength)
      return fail(FMSD_STATUS_OPEN_FAILED,
                  "A data set could not be opened: its name is missing or longer than 32 characters.");
    const std::string member(reinterpret_cast<const char*>(request + FMSD_REQUEST_NAMEBLOCK + 2),
                             static_cast<std::size_t>(length));
    const std::string library = level1.empty() ? std::string(kDefaultLibrary) : upper(level1);
    const std::string name = library + "." + upper(member);
    if (!valid_library_name(library) || !valid_member_name(member))
      return fail(FMSD_STATUS_OPEN_FAILED,
                  "Data set " + name + " could not be opened: the name is not a valid data set name.");

    int mode = 0;
    std::memcpy(&mode, request + FMSD_REQUEST_MODE, sizeof mode);
    auto set = std::make_unique<OpenSet>();
    set->name = name;
    set->member = member;
    set->mode = (mode & 1) ? Mode::Input : Mode::Output;
    if (const Fault* f = fault(*set); f != nullptr && f->open)
      return fail(FMSD_STATUS_OPEN_FAILED, "Data set " + name + " could not be opened (injected fault).");
    set->library = storage(library);
    if (!set->library)
      return fail(FMSD_STATUS_OPEN_FAILED,
                  "Data set " + name + " could not be opened: library " + library + " is not bound.");

    if (set->input()) {
      std::string error;
      set->reader = set->library->open(member, error);
      if (!set->reader) return fail(FMSD_STATUS_OPEN_FAILED, "Data set " + name + " could not be opened: " + error);
      std::size_t offset = 0;
      for (const Column& c : set->reader->columns()) {
        auto v = std::make_unique<Variable>();
        v->column = c;
        v->offset = offset;
        offset += slot_bytes(v->column);
        describe(*v);
        set->variables.push_back(std::move(v));
      }
      set->buffer.assign(offset, 0);
      for (const auto& v : set->variables) clear_slot(*set, *v);
      set->cells.resize(set->variables.size());
      set->wanted.assign(set->variables.size(), true);
      set->words[FMSD_HANDLE_BUFFER_BYTES] = static_cast<fmsd_word>(offset);
    }
    set->access = access;
    set->words[FMSD_HANDLE_FUNCTIONS] = reinterpret_cast<fmsd_word>(functions);
    publish_buffer(*set);
    access[FMSD_ACCESS_HANDLE] = reinterpret_cast<fmsd_word>(set->words);
    open.push_back(std::move(set));
    return 0;
  }

  // ---- reading ----------------------------------------------------------------------

  int read_row(OpenSet& s) {
    if (!s.input())
      return -fail(FMSD_STATUS_BAD_REQUEST, "Data set " + s.name + " is open for output and cannot be read.");
    if (s.broken) return FMSD_STATUS_END;
    const long number = s.row + 1;
    if (const Fault* f = fault(s); f != nullptr && f->read_row == number) {
      s.broken = true;
      return -fail(FMSD_STATUS_READ_FAILED,
                   "Row " + std::to_string(number) + " of data set " + s.name + " could not be read (injected fault).");
    }
    if (!s.reader->next(s.cells.data())) {
      if (s.reader->error().empty()) return FMSD_STATUS_END;
      s.broken = true;
      return -fail(FMSD_STATUS_READ_FAILED, "Data set " + s.name + " could not be read: " + s.reader->error());
    }
    for (std::size_t i = 0; i < s.variables.size(); ++i) {
      if (!s.wanted[i]) continue;
      const Variable& v = *s.variables[i];
      unsigned char* slot = s.buffer.data() + v.offset;
      if (v.column.numeric) {
        std::memcpy(slot, &s.cells[i].number, sizeof(double));
      } else {
        const std::size_t width = slot_bytes(v.column);
        const std::size_t n = std::min(width, s.cells[i].text.size());
        std::memcpy(slot, s.cells[i].text.data(), n);
        std::memset(slot + n, ' ', width - n);
      }
    }
    s.row = number;
    return 0;
  }

  int rewind(OpenSet& s) {
    if (!s.input())
      return fail(FMSD_STATUS_BAD_REQUEST, "Data set " + s.name + " is open for output and cannot be rewound.");
    if (!s.reader->rewind()) {
      std::string error;
      auto fresh = s.library->open(s.member, error);
      if (!fresh) return fail(FMSD_STATUS_READ_FAILED, "Data set " + s.name + " could not be read again: " + error);
      s.reader = std::move(fresh);
    }
    apply_selection(s);
    s.broken = false;
    s.row = 0;
    s.words[FMSD_HANDLE_ROWS] = 0;
    return 0;
  }

  // ---- writing ----------------------------------------------------------------------

  void gather(OpenSet& s, const Vector& v) noexcept {
    for (const auto& [index, source] : v.bindings)
      std::memcpy(s.buffer.data() + s.variables[index]->offset, source, sizeof(double));
  }

  int define(OpenSet& s) {
    if (s.writer) return 0;
    if (s.variables.empty())
      return fail(FMSD_STATUS_BAD_REQUEST, "Data set " + s.name + " cannot be written: it has no variables.");
    std::vector<Column> columns;
    std::size_t offset = 0;
    for (auto& v : s.variables) {
      v->offset = offset;
      offset += slot_bytes(v->column);
      columns.push_back(v->column);
    }
    std::string error;
    s.writer = s.library->create(s.member, columns, error);
    if (!s.writer) return fail(FMSD_STATUS_OPEN_FAILED, "Data set " + s.name + " could not be created: " + error);
    s.buffer.assign(offset, 0);
    for (const auto& v : s.variables) clear_slot(s, *v);
    s.cells.resize(s.variables.size());
    s.words[FMSD_HANDLE_BUFFER_BYTES] = static_cast<fmsd_word>(offset);
    publish_buffer(s);
    return 0;
  }

  // The write request: the row xyvput has just written, or else the current
  // values of every output vector.
  int write_request(OpenSet& s) {
    if (s.put_pending) {
      s.put_pending = false;
      return s.put_status;
    }
    if (!s.input()) {
      if (const int status = define(s); status != 0) return -status;
      for (const auto& v : vectors)
        if (v->set == &s) gather(s, *v);
    }
    return write_row(s);
  }

  // Callers have defined the output first.
  int write_row(OpenSet& s) {
    if (s.input())
      return -fail(FMSD_STATUS_BAD_REQUEST, "Data set " + s.name + " is open for input and cannot be written.");
    if (s.broken) return FMSD_STATUS_WRITE_FAILED;
    const long number = s.row + 1;
    if (const Fault* f = fault(s); f != nullptr && f->write_row == number) {
      s.broken = true;
      return -fail(FMSD_STATUS_WRITE_FAILED,
                   "Row " + std::to_string(number) + " of data set " + s.name +
                       " could not be written (injected fault); the data set will not be saved.");
    }
    for (std::size_t i = 0; i < s.variables.size(); ++i)
      std::memcpy(&s.cells[i].number, s.buffer.data() + s.variables[i]->offset, sizeof(double));
    if (!s.writer->write(s.cells.data())) {
      s.broken = true;
      return -fail(FMSD_STATUS_WRITE_FAILED, "Data set " + s.name + " could not be written: " + s.writer->error() +
                                                 "; the data set will not be saved.");
    }
    s.row = number;
    return 0;
  }

  // ---- closing ----------------------------------------------------------------------

  int commit(const std::string& name, Writer& writer) {
    if (writer.commit()) return 0;
    const std::string reason = writer.error();
    writer.discard();
    return fail(FMSD_STATUS_WRITE_FAILED, "Data set " + name + " could not be saved: " + reason);
  }

  int close(OpenSet& s, bool keep) {
    int status = 0;
    if (!s.input() && s.writer) {
      if (keep && s.broken) {
        status = fail(FMSD_STATUS_WRITE_FAILED, "Data set " + s.name +
                                                    " was not saved because a row could not be written; any earlier "
                                                    "data set of that name is unchanged.");
        keep = false;
      }
      if (!keep) {
        s.writer->discard();
      } else if (in_call) {
        held.push_back({s.name, std::move(s.writer)});
      } else {
        status = commit(s.name, *s.writer);
      }
    }
    drop(s);
    return status;
  }
};

// The host operations reach the state of the current host through here.
struct DataSetOperations {
  using State = DataSets::State;
  static State* state() noexcept {
    Host* host = Host::current();
    return host != nullptr ? host->datasets().state_.get() : nullptr;
  }
};

namespace {

using State = DataSetOperations::State;

template <class Body>
int guarded(Body body) noexcept {
  State* st = DataSetOperations::state();
  if (st == nullptr) return -FMSD_STATUS_BAD_REQUEST;
  try {
    return body(*st);
  } catch (const std::bad_alloc&) {
    return st->fail_text(FMSD_STATUS_NO_MEMORY, "The host ran out of memory while handling a data set request.");
  } catch (...) {
    return st->fail_text(FMSD_STATUS_BAD_REQUEST, "A data set request failed unexpectedly.");
  }
}

OpenSet* open_set(State& st, fmsd_word handle, const char* operation) {
  OpenSet* s = st.find(handle);
  if (s == nullptr) st.report(std::string(operation) + " was given a data set that is not open.");
  return s;
}

Vector* vector_of(State& st, fmsd_word word, Mode mode, const char* operation) {
  Vector* v = st.find_vector(word);
  if (v == nullptr || v->mode != mode) {
    st.report(std::string(operation) + " was given " + (mode == Mode::Input ? "an input" : "an output") +
              " vector that does not exist.");
    return nullptr;
  }
  return v;
}

// ---- request functions: positive statuses, as the module masks and compares them ----

int request(fmsd_word* access, bool read) noexcept {
  if (access == nullptr) return FMSD_STATUS_BAD_REQUEST;
  int status = FMSD_STATUS_BAD_REQUEST;
  OpenSet* s = nullptr;
  guarded([&](State& st) {
    s = open_set(st, access[FMSD_ACCESS_HANDLE], read ? "A read request" : "A write request");
    if (s == nullptr) return 0;
    if (read && access[FMSD_ACCESS_REQUEST] != FMSD_REQUEST_READ_NEXT)
      status = -st.fail(FMSD_STATUS_BAD_REQUEST, "Request " + std::to_string(access[FMSD_ACCESS_REQUEST]) +
                                                     " on data set " + s->name + " is not a read request.");
    else
      status = read ? st.read_row(*s) : st.write_request(*s);
    return 0;
  });
  if (s != nullptr) s->words[FMSD_HANDLE_RESULT] = status;
  return status;
}

int read_request(fmsd_word* access) noexcept { return request(access, true); }
int write_request(fmsd_word* access) noexcept { return request(access, false); }
int unsupported_request(fmsd_word*) noexcept { return FMSD_STATUS_BAD_REQUEST; }

fmsd_request_fn* const kRequestFunctions[] = {read_request, unsupported_request, unsupported_request, write_request};

// ---- facility 203: data sets -----------------------------------------------------------

int xoopen_op(fmsd_word* handle, void* request_block) noexcept {
  return guarded([&](State& st) {
    if (handle == nullptr || request_block == nullptr)
      return st.fail(FMSD_STATUS_BAD_REQUEST, "An open request came without its handle word or request block.");
    return st.open_set(handle, static_cast<const unsigned char*>(request_block), kRequestFunctions);
  });
}

int xoclose_op(fmsd_word dataset, int option) noexcept {
  return guarded([&](State& st) {
    OpenSet* s = open_set(st, dataset, "Closing");
    return s == nullptr ? -FMSD_STATUS_BAD_REQUEST : st.close(*s, (option & FMSD_CLOSE_DISCARD) == 0);
  });
}

int rewind_op(fmsd_word dataset) noexcept {
  return guarded([&](State& st) {
    OpenSet* s = open_set(st, dataset, "Rewinding");
    return s == nullptr ? -FMSD_STATUS_BAD_REQUEST : st.rewind(*s);
  });
}
int xbyrwnd_op(fmsd_word dataset, int) noexcept { return rewind_op(dataset); }
int xoreopn_op(fmsd_word dataset, int) noexcept { return rewind_op(dataset); }

int xoinfo_op(fmsd_word dataset, int attribute, int* value) noexcept {
  return guarded([&](State& st) {
    OpenSet* s = open_set(st, dataset, "A data set information request");
    if (s == nullptr || value == nullptr) return -FMSD_STATUS_BAD_REQUEST;
    const std::int64_t rows = s->input() ? s->reader->rows() : s->row;
    const int count = static_cast<int>(std::min<std::int64_t>(rows, INT32_MAX));
    switch (attribute) {
      case FMSD_INFO_VARIABLES:
        *value = static_cast<int>(s->variables.size());
        return 0;
      case FMSD_INFO_LOGICAL_ROWS:
        *value = count;
        return 0;
      case FMSD_INFO_ROWS:
        // Not logged: an unknown count is the everyday answer for a CSV file,
        // and the module then counts by reading.
        *value = count;
        return count >= 0 ? 0 : -FMSD_STATUS_BAD_REQUEST;
      default:
        return st.fail(FMSD_STATUS_BAD_REQUEST,
                       "Attribute " + std::to_string(attribute) + " of data set " + s->name + " is not known.");
    }
  });
}

int xvallv_op(fmsd_word dataset, fmsd_word* out) noexcept {
  return guarded([&](State& st) {
    OpenSet* s = open_set(st, dataset, "Selecting all variables");
    if (s == nullptr) return -FMSD_STATUS_BAD_REQUEST;
    if (!s->input())
      return st.fail(FMSD_STATUS_BAD_REQUEST, "Data set " + s->name + " is open for output; it has nothing to read.");
    s->wanted.assign(s->variables.size(), true);
    s->selected = false;
    st.apply_selection(*s);
    if (out != nullptr) *out = static_cast<fmsd_word>(s->variables.size());
    return 0;
  });
}

int xvfind_op(fmsd_word dataset, const char* name, int length, int* number, int) noexcept {
  return guarded([&](State& st) {
    OpenSet* s = open_set(st, dataset, "Finding a variable");
    if (s == nullptr || number == nullptr || (name == nullptr && length > 0)) return -FMSD_STATUS_BAD_REQUEST;
    std::string_view wanted =
        length > 0 ? std::string_view(name, static_cast<std::size_t>(length)) : std::string_view();
    wanted = trim_blanks(wanted);
    for (std::size_t i = 0; i < s->variables.size(); ++i)
      if (same_name(s->variables[i]->column.name, wanted)) {
        *number = static_cast<int>(i + 1);
        return 0;
      }
    return st.fail(FMSD_STATUS_NO_VARIABLE, "Variable " + std::string(wanted) + " is not in data set " + s->name + ".");
  });
}

int xvgeti_op(fmsd_word dataset, int count, fmsd_word* out) noexcept {
  return guarded([&](State& st) {
    OpenSet* s = open_set(st, dataset, "Starting an input vector");
    if (s == nullptr || out == nullptr) return -FMSD_STATUS_BAD_REQUEST;
    if (!s->input() || count < 0)
      return st.fail(FMSD_STATUS_BAD_REQUEST, "An input vector of " + std::to_string(count) +
                                                  " variables cannot be started on data set " + s->name + ".");
    auto v = std::make_unique<Vector>(Vector{s, Mode::Input, count, false, {}});
    *out = reinterpret_cast<fmsd_word>(v.get());
    st.vectors.push_back(std::move(v));
    return 0;
  });
}

int xvgetd_op(fmsd_word vector, int number, int, double* destination, int size, int, int, int) noexcept {
  return guarded([&](State& st) {
    Vector* v = vector_of(st, vector, Mode::Input, "Binding a variable");
    if (v == nullptr) return -FMSD_STATUS_BAD_REQUEST;
    OpenSet& s = *v->set;
    if (number < 1 || static_cast<std::size_t>(number) > s.variables.size())
      return st.fail(FMSD_STATUS_NO_VARIABLE,
                     "Data set " + s.name + " has no variable number " + std::to_string(number) + ".");
    const Variable& var = *s.variables[static_cast<std::size_t>(number - 1)];
    if (!var.column.numeric)
      return st.fail(FMSD_STATUS_BAD_REQUEST, "Variable " + var.column.name + " of data set " + s.name +
                                                  " is character and cannot be read as a number.");
    if (destination == nullptr || size != 8 || v->ended || static_cast<int>(v->bindings.size()) >= v->capacity)
      return st.fail(FMSD_STATUS_BAD_REQUEST,
                     "Variable " + var.column.name + " of data set " + s.name +
                         " cannot be bound: the input vector is full, ended, or the destination is not a double.");
    v->bindings.emplace_back(static_cast<std::size_t>(number - 1), destination);
    if (s.selected && !s.wanted[static_cast<std::size_t>(number - 1)]) {
      s.wanted[static_cast<std::size_t>(number - 1)] = true;
      st.apply_selection(s);
    }
    return 0;
  });
}

int xvgete_op(fmsd_word vector) noexcept {
  return guarded([&](State& st) {
    Vector* v = vector_of(st, vector, Mode::Input, "Ending an input vector");
    if (v == nullptr) return -FMSD_STATUS_BAD_REQUEST;
    v->ended = true;
    return 0;
  });
}

// Only the bound variables are decoded from here on: a wide data set read for
// one series costs little more than a narrow one.
int xvsele_op(fmsd_word dataset) noexcept {
  return guarded([&](State& st) {
    OpenSet* s = open_set(st, dataset, "Ending the variable selection");
    if (s == nullptr) return -FMSD_STATUS_BAD_REQUEST;
    if (!s->input())
      return st.fail(FMSD_STATUS_BAD_REQUEST, "Data set " + s->name + " is open for output; it has nothing to select.");
    s->wanted.assign(s->variables.size(), false);
    for (const auto& v : st.vectors)
      if (v->set == s)
        for (const auto& binding : v->bindings) s->wanted[binding.first] = true;
    s->selected = true;
    st.apply_selection(*s);
    return 0;
  });
}

int xyvget_op(fmsd_word vector, int) noexcept {
  return guarded([&](State& st) {
    Vector* v = vector_of(st, vector, Mode::Input, "Fetching values");
    if (v == nullptr) return -FMSD_STATUS_BAD_REQUEST;
    for (const auto& [index, destination] : v->bindings)
      std::memcpy(destination, v->set->buffer.data() + v->set->variables[index]->offset, sizeof(double));
    return 0;
  });
}

int end_vector(fmsd_word vector, Mode mode, const char* operation) noexcept {
  return guarded([&](State& st) {
    Vector* v = vector_of(st, vector, mode, operation);
    if (v == nullptr) return -FMSD_STATUS_BAD_REQUEST;
    std::erase_if(st.vectors, [&](const auto& p) { return p.get() == v; });
    return 0;
  });
}
int xvgett_op(fmsd_word vector) noexcept { return end_vector(vector, Mode::Input, "Freeing an input vector"); }
int xvputt_op(fmsd_word vector) noexcept { return end_vector(vector, Mode::Output, "Freeing an output vector"); }

int xvputi_op(fmsd_word dataset, int count, int, fmsd_word* out) noexcept {
  return guarded([&](State& st) {
    OpenSet* s = open_set(st, dataset, "Starting an output vector");
    if (s == nullptr || out == nullptr) return -FMSD_STATUS_BAD_REQUEST;
    if (s->input() || s->writer || count < 0)
      return st.fail(FMSD_STATUS_BAD_REQUEST, "An output vector of " + std::to_string(count) +
                                                  " variables cannot be started on data set " + s->name + ".");
    auto v = std::make_unique<Vector>(Vector{s, Mode::Output, count, false, {}});
    *out = reinterpret_cast<fmsd_word>(v.get());
    st.vectors.push_back(std::move(v));
    return 0;
  });
}

Form form_of(const fmsd_vardesc& d) {
  const std::string_view format = trim_blanks({d.format, sizeof d.format});
  if (same_name(format, "DATE")) return Form::Date;
  if (same_name(format, "DATETIME")) return Form::DateTime;
  return Form::Number;
}

int xvputd_op(fmsd_word vector, void* descriptor, int, double* source, int size, int, int) noexcept {
  return guarded([&](State& st) {
    Vector* v = vector_of(st, vector, Mode::Output, "Defining an output variable");
    if (v == nullptr || descriptor == nullptr) return -FMSD_STATUS_BAD_REQUEST;
    OpenSet& s = *v->set;
    const auto& d = *static_cast<const fmsd_vardesc*>(descriptor);
    const std::string name = d.name != nullptr && d.name_length > 0
                                 ? std::string(d.name, static_cast<std::size_t>(d.name_length))
                                 : std::string();
    if (!valid_member_name(name))
      return st.fail(FMSD_STATUS_BAD_REQUEST,
                     "\"" + name + "\" is not a valid variable name for data set " + s.name + ".");
    if (d.type != 1 || source == nullptr || size != 8)
      return st.fail(FMSD_STATUS_BAD_REQUEST,
                     "Variable " + name + " of data set " + s.name + " must be numeric, with a double as its source.");
    if (v->ended || s.writer || static_cast<int>(v->bindings.size()) >= v->capacity)
      return st.fail(FMSD_STATUS_BAD_REQUEST, "Variable " + name + " cannot be added to data set " + s.name +
                                                  ": its output vector is full or its definition has ended.");
    for (const auto& other : s.variables)
      if (same_name(other->column.name, name))
        return st.fail(FMSD_STATUS_BAD_REQUEST,
                       "Data set " + s.name + " already has a variable " + other->column.name + ".");
    auto var = std::make_unique<Variable>();
    var->column.name = name;
    var->column.form = form_of(d);
    if (d.label != nullptr) var->column.label = std::string(trim_blanks({d.label, ::strnlen(d.label, kLabelLimit)}));
    describe(*var);
    v->bindings.emplace_back(s.variables.size(), source);
    s.variables.push_back(std::move(var));
    return 0;
  });
}

int xvpute_op(fmsd_word vector) noexcept {
  return guarded([&](State& st) {
    Vector* v = vector_of(st, vector, Mode::Output, "Ending an output vector");
    if (v == nullptr) return -FMSD_STATUS_BAD_REQUEST;
    v->ended = true;
    return st.define(*v->set);
  });
}

int xyvput_op(fmsd_word vector, int) noexcept {
  return guarded([&](State& st) {
    Vector* v = vector_of(st, vector, Mode::Output, "Writing values");
    if (v == nullptr) return -FMSD_STATUS_BAD_REQUEST;
    OpenSet& s = *v->set;
    if (const int status = st.define(s); status != 0) return status;
    st.gather(s, *v);
    s.put_status = st.write_row(s);
    s.put_pending = true;
    return -s.put_status;
  });
}

int xvnamei_op(void* descriptor) noexcept {
  if (descriptor == nullptr) return -FMSD_STATUS_BAD_REQUEST;
  auto& d = *static_cast<fmsd_vardesc*>(descriptor);
  d = fmsd_vardesc{};
  std::memset(d.format, ' ', sizeof d.format);
  d.length = 8;
  d.name_kind = 1;
  d.type = 1;
  d.label = "";
  return 0;
}

// ---- facility 39: status and descriptors -------------------------------------------------

int xofprc_op(void* access, int status, int mode) noexcept {
  if (status == 0 || (static_cast<unsigned>(status) & FMSD_STATUS_MASK) == FMSD_STATUS_END) return status;
  guarded([&](State& st) {
    const OpenSet* s = access != nullptr ? st.find(static_cast<fmsd_word*>(access)[FMSD_ACCESS_HANDLE]) : nullptr;
    const std::string name = s != nullptr ? "data set " + s->name : std::string("a data set that is not open");
    const char* what = mode == 4 ? "Writing" : mode == 1 ? "Reading" : "A request on";
    st.report(std::string(what) + " " + name + " failed with status " + std::to_string(status) + ".");
    return 0;
  });
  return status;
}

int xvname_op(fmsd_word dataset, int number, void** descriptor) noexcept {
  return guarded([&](State& st) {
    OpenSet* s = open_set(st, dataset, "Describing a variable");
    if (s == nullptr || descriptor == nullptr) return -FMSD_STATUS_BAD_REQUEST;
    if (number < 1 || static_cast<std::size_t>(number) > s->variables.size())
      return st.fail(FMSD_STATUS_NO_VARIABLE,
                     "Data set " + s->name + " has no variable number " + std::to_string(number) + ".");
    *descriptor = &s->variables[static_cast<std::size_t>(number - 1)]->descriptor;
    return 0;
  });
}

}  // namespace

// ---- the C++ side ------------------------------------------------------------------------

DataSets::DataSets(Host& host) : state_(std::make_unique<State>(host)) {}

DataSets::~DataSets() {
  for (auto& s : state_->open)
    if (s->writer) s->writer->discard();
  for (auto& h : state_->held) h.writer->discard();
}

bool DataSets::bind_directory(std::string_view library, const std::string& directory, std::string& error) {
  std::unique_ptr<Library> storage = open_csv_library(directory, error);
  return storage && bind(library, std::move(storage), error);
}

bool DataSets::bind_database(std::string_view library, const std::string& file, std::string& error) {
  std::unique_ptr<Library> storage = open_sqlite_library(file, error);
  return storage && bind(library, std::move(storage), error);
}

bool DataSets::bind(std::string_view library, std::unique_ptr<Library> storage, std::string& error) {
  if (!valid_library_name(library)) {
    error = "\"" + std::string(library) + "\" is not a valid library name";
    return false;
  }
  if (!storage) {
    error = "library " + upper(library) + " has no storage";
    return false;
  }
  state_->libraries[upper(library)] = std::move(storage);
  return true;
}

Library* DataSets::library(std::string_view name) noexcept {
  try {
    return state_->storage(std::string(name)).get();
  } catch (...) {
    return nullptr;
  }
}

void DataSets::begin_call() noexcept { state_->in_call = true; }

bool DataSets::finish_call(bool success) noexcept {
  State& st = *state_;
  st.in_call = false;
  bool saved = true;
  try {
    while (!st.open.empty())
      if (st.close(*st.open.back(), success) != 0) saved = false;
    for (auto& h : st.held) {
      if (!success)
        h.writer->discard();
      else if (st.commit(h.name, *h.writer) != 0)
        saved = false;
    }
  } catch (...) {
    saved = false;
  }
  st.held.clear();
  st.vectors.clear();
  return saved;
}

std::size_t DataSets::open_count() const noexcept { return state_->open.size(); }

void DataSets::fail_open(std::string_view dataset) { state_->faults[dataset_key(dataset)].open = true; }
void DataSets::fail_read(std::string_view dataset, long row) { state_->faults[dataset_key(dataset)].read_row = row; }
void DataSets::fail_write(std::string_view dataset, long row) { state_->faults[dataset_key(dataset)].write_row = row; }
void DataSets::clear_faults() noexcept { state_->faults.clear(); }

void DataSets::report(std::string text) noexcept { state_->report(std::move(text)); }
const std::string& DataSets::last_failure() const noexcept { return state_->last_failure; }

void install_dataset_operations(Host& host) noexcept {
  bind<op::xofprc>(host, xofprc_op);
  bind<op::xvname>(host, xvname_op);
  bind<op::xbyrwnd>(host, xbyrwnd_op);
  bind<op::xoclose>(host, xoclose_op);
  bind<op::xvgett>(host, xvgett_op);
  bind<op::xvputt>(host, xvputt_op);
  bind<op::xyvget>(host, xyvget_op);
  bind<op::xyvput>(host, xyvput_op);
  bind<op::xoreopn>(host, xoreopn_op);
  bind<op::xoinfo>(host, xoinfo_op);
  bind<op::xoopen>(host, xoopen_op);
  bind<op::xvallv>(host, xvallv_op);
  bind<op::xvfind>(host, xvfind_op);
  bind<op::xvgetd>(host, xvgetd_op);
  bind<op::xvgete>(host, xvgete_op);
  bind<op::xvgeti>(host, xvgeti_op);
  bind<op::xvnamei>(host, xvnamei_op);
  bind<op::xvputd>(host, xvputd_op);
  bind<op::xvpute>(host, xvpute_op);
  bind<op::xvputi>(host, xvputi_op);
  bind<op::xvsele>(host, xvsele_op);
}

}  // namespace fmsd::host
