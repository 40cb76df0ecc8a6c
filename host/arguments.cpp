// Service arguments and results: the operations of facility 233.
#include "host/arguments.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <limits>
#include <new>
#include <stdexcept>

#include "host/lists.h"
#include "host/operations.h"

namespace fmsd::host {

namespace {

// The contexts of the calls in progress; posargs and posretd follow no other.
std::vector<CallContext*>& live_contexts() {
  // A call runs on one thread from start to end; contexts of calls on other
  // threads are neither seen nor touched.
  static thread_local std::vector<CallContext*> live;
  return live;
}

class ArgumentError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace

Arguments& Arguments::text(std::string_view value) {
  arguments_.push_back({Kind::Text, std::string(value)});
  return *this;
}

Arguments& Arguments::number(double value) {
  if (is_missing(value)) return missing();
  arguments_.push_back({Kind::Double, {}, value});
  return *this;
}

Arguments& Arguments::integer(std::int64_t value) {
  arguments_.push_back({Kind::Integer, {}, 0, value});
  return *this;
}

Arguments& Arguments::missing() {
  arguments_.push_back({Kind::Missing, {}});
  return *this;
}

Arguments& Arguments::word(fmsd_word value) {
  arguments_.push_back({Kind::Word, {}, 0, value});
  return *this;
}

std::optional<double> Arguments::result(int position) const noexcept {
  if (position < 1 || static_cast<std::size_t>(position) > results_.size()) return std::nullopt;
  return results_[static_cast<std::size_t>(position) - 1];
}

int Arguments::set_result(int position, double value) {
  if (position < 1 || position > count() + 1) return -1;
  if (results_.size() < static_cast<std::size_t>(position)) results_.resize(static_cast<std::size_t>(position));
  results_[static_cast<std::size_t>(position) - 1] = value;
  return 0;
}

CallContext::CallContext(Host& host, Arguments& arguments) : host_(host), arguments_(arguments) {
  session_[FMSD_SESSION_LISTS] = host.lists().word();
  words_[FMSD_CONTEXT_SESSION] = reinterpret_cast<fmsd_word>(session_);
  words_[kContextArguments] = reinterpret_cast<fmsd_word>(&arguments_);
  live_contexts().push_back(this);
}

CallContext::~CallContext() {
  auto& live = live_contexts();
  live.erase(std::remove(live.begin(), live.end(), this), live.end());
}

CallContext* CallContext::find(const void* context) noexcept {
  for (CallContext* c : live_contexts())
    if (c->context() == context) return c;
  return nullptr;
}

namespace {

using Kind = Arguments::Kind;

// One argument as the service describes it: a kind code and its destinations.
struct Slot {
  int kind;
  void* first;
  void* second;
};

// What an argument delivers, worked out for every argument before any is stored.
struct Delivery {
  fmsd_textarg text{"", 0};
  double number = 0;
  int integer = 0;
  char missing = 0;
  fmsd_word word = 0;
};

std::string describe(const Arguments::Argument& a) {
  switch (a.kind) {
    case Kind::Text: return "a text";
    case Kind::Double: return "the number " + std::to_string(a.number);
    case Kind::Integer: return "the integer " + std::to_string(a.integer);
    case Kind::Word: return "the word " + std::to_string(a.integer);
    case Kind::Missing: break;
  }
  return "missing";
}

[[noreturn]] void mismatch(int position, const Arguments::Argument& a, const char* wanted) {
  throw ArgumentError("argument " + std::to_string(position) + " is " + describe(a) + ", which the service cannot read as " +
                      wanted);
}

bool integral(double x, double low, double high) noexcept { return x >= low && x <= high && x == std::trunc(x); }

Delivery deliver(int position, const Arguments::Argument& a, int kind, double missing) {
  Delivery d;
  constexpr double kIntLow = std::numeric_limits<int>::min(), kIntHigh = std::numeric_limits<int>::max();
  constexpr auto kInt = [](std::int64_t v) {
    return v >= std::numeric_limits<int>::min() && v <= std::numeric_limits<int>::max();
  };
  switch (kind) {
    case FMSD_ARG_TEXT:
      if (a.kind == Kind::Text)
        d.text = {a.text.data(), static_cast<int>(a.text.size())};
      else if (a.kind != Kind::Missing)
        mismatch(position, a, "a text");
      break;
    case FMSD_ARG_DOUBLE:
      if (a.kind == Kind::Text) mismatch(position, a, "a number");
      d.number = a.kind == Kind::Double    ? a.number
                 : a.kind == Kind::Missing ? missing
                                           : static_cast<double>(a.integer);
      break;
    case FMSD_ARG_INTEGER:
      if (a.kind == Kind::Missing) {
        d.missing = 1;
      } else if (a.kind == Kind::Double && integral(a.number, kIntLow, kIntHigh)) {
        d.integer = static_cast<int>(a.number);
      } else if ((a.kind == Kind::Integer || a.kind == Kind::Word) && kInt(a.integer)) {
        d.integer = static_cast<int>(a.integer);
      } else {
        mismatch(position, a, "an integer");
      }
      break;
    case FMSD_ARG_WORD:
      if (a.kind == Kind::Integer || a.kind == Kind::Word)
        d.word = static_cast<fmsd_word>(a.integer);
      else if (a.kind == Kind::Double && integral(a.number, -9.2233720368547758e18, 9.2233720368547748e18))
        d.word = static_cast<fmsd_word>(a.number);
      else if (a.kind != Kind::Missing)
        mismatch(position, a, "a word");
      break;
  }
  return d;
}

void store(const Slot& s, const Delivery& d) noexcept {
  switch (s.kind) {
    case FMSD_ARG_TEXT:
      if (s.first != nullptr) *static_cast<fmsd_textarg*>(s.first) = d.text;
      break;
    case FMSD_ARG_DOUBLE:
      if (s.first != nullptr) *static_cast<double*>(s.first) = d.number;
      break;
    case FMSD_ARG_INTEGER:
      if (s.first != nullptr) *static_cast<int*>(s.first) = d.integer;
      if (s.second != nullptr) *static_cast<char*>(s.second) = d.missing;
      break;
    case FMSD_ARG_WORD:
      if (s.first != nullptr) *static_cast<fmsd_word*>(s.first) = d.word;
      break;
  }
}

void note(Host& host, const char* text) noexcept {
  try {
    host.add_log(text);
  } catch (...) {
  }
}

// How reading the descriptors ended.
enum class Described { Fully, UnknownKind, Early, Unterminated };

// Reads the service's descriptors and, when they fit the call, stores every
// argument; on any mismatch nothing is stored.
void read_arguments(CallContext& call, const std::vector<Slot>& slots, Described described, int bad_kind) {
  const Arguments& args = call.vector();
  const int n = args.count();
  switch (described) {
    case Described::Fully: break;
    case Described::UnknownKind:
      throw ArgumentError("the service describes argument " + std::to_string(slots.size() + 1) +
                          " with the unknown kind code " + std::to_string(bad_kind));
    case Described::Early:
      throw ArgumentError("the service describes " + std::to_string(slots.size()) + " arguments but counts " +
                          std::to_string(n));
    case Described::Unterminated:
      throw ArgumentError("the service describes more than its " + std::to_string(n) + " arguments");
  }
  std::vector<Delivery> deliveries;
  deliveries.reserve(slots.size());
  const double missing = call.host().missing();
  for (std::size_t i = 0; i < slots.size(); ++i) {
    const int position = static_cast<int>(i) + 1;
    deliveries.push_back(deliver(position, args.at(position), slots[i].kind, missing));
  }
  for (std::size_t i = 0; i < slots.size(); ++i) store(slots[i], deliveries[i]);
}

int posargs_op(void* context, void* arguments, int count, int count2, ...) noexcept {
  CallContext* call = CallContext::find(context);
  Host* host = call != nullptr ? &call->host() : Host::current();
  if (host == nullptr) return -1;
  try {
    if (call == nullptr) throw ArgumentError("posargs: the call context is not one of a call in progress");
    if (arguments != call->arguments()) throw ArgumentError("posargs: the argument vector is not this call's");
    if (count != count2)
      throw ArgumentError("the service gives two argument counts, " + std::to_string(count) + " and " +
                          std::to_string(count2));
    if (count != call->vector().count())
      throw ArgumentError("the service reads " + std::to_string(count) + " arguments, but the call passes " +
                          std::to_string(call->vector().count()));
    std::vector<Slot> slots;
    slots.reserve(static_cast<std::size_t>(count));
    Described described = Described::Fully;
    int bad_kind = 0;
    // Nothing between va_start and va_end throws.
    std::va_list ap;
    va_start(ap, count2);
    for (int i = 0; i < count && described == Described::Fully; ++i) {
      Slot s{va_arg(ap, int), nullptr, nullptr};
      if (s.kind == FMSD_ARG_TEXT || s.kind == FMSD_ARG_DOUBLE || s.kind == FMSD_ARG_WORD) {
        s.first = va_arg(ap, void*);
      } else if (s.kind == FMSD_ARG_INTEGER) {
        s.first = va_arg(ap, void*);
        s.second = va_arg(ap, void*);
        if (s.first == nullptr && s.second == nullptr) described = Described::Early;
      } else {
        described = Described::UnknownKind;
        bad_kind = s.kind;
      }
      if (described == Described::Fully) slots.push_back(s);
    }
    if (described == Described::Fully) {
      if (va_arg(ap, int) != FMSD_ARG_INTEGER) {
        described = Described::Unterminated;
      } else {
        void* a = va_arg(ap, void*);
        void* b = va_arg(ap, void*);
        if (a != nullptr || b != nullptr) described = Described::Unterminated;
      }
    }
    va_end(ap);
    read_arguments(*call, slots, described, bad_kind);
    return 0;
  } catch (const std::bad_alloc&) {
    note(*host, "out of memory while reading service arguments");
  } catch (const std::exception& e) {
    note(*host, e.what());
  } catch (...) {
    note(*host, "reading service arguments failed");
  }
  return -1;
}

int posretd_op(void* context, int position, double value, int) noexcept {
  CallContext* call = CallContext::find(context);
  Host* host = call != nullptr ? &call->host() : Host::current();
  if (host == nullptr) return -1;
  try {
    if (call == nullptr) throw ArgumentError("posretd: the call context is not one of a call in progress");
    if (call->vector().set_result(position, value) != 0)
      throw ArgumentError("the service sets a result at position " + std::to_string(position) + ", but the call has " +
                          std::to_string(call->vector().count()) + " arguments");
    return 0;
  } catch (const std::bad_alloc&) {
    note(*host, "out of memory while setting a service result");
  } catch (const std::exception& e) {
    note(*host, e.what());
  }
  return -1;
}

}  // namespace

void install_argument_operations(Host& host) noexcept {
  bind<op::posargs>(host, posargs_op);
  bind<op::posretd>(host, posretd_op);
}

}  // namespace fmsd::host
