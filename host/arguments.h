// Service arguments: the argument vector a service call receives, the call context
// that leads the service to the host's lists, and the results it sets.
//
// A service is called as service(context.context(), context.arguments()).  It
// reads its arguments with posargs and sets results with posretd: its result at
// the position after the last argument, and output arguments at their own
// positions.
#ifndef FMSD_HOST_ARGUMENTS_H
#define FMSD_HOST_ARGUMENTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fmsd/hostabi.h"

namespace fmsd::host {

class Host;

// Words of the call context beyond FMSD_CONTEXT_SESSION.
inline constexpr int kContextArguments = 0;  // the argument vector
inline constexpr int kContextWords = 8;

class Arguments {
 public:
  enum class Kind { Text, Double, Integer, Missing, Word };
  struct Argument {
    Kind kind;
    std::string text;
    double number = 0;
    std::int64_t integer = 0;  // Integer and Word
  };

  // Each call adds the next position, counting from 1.
  Arguments& text(std::string_view value);
  Arguments& number(double value);  // a missing value is a missing argument
  Arguments& integer(std::int64_t value);
  Arguments& missing();
  Arguments& word(fmsd_word value);  // a list identifier, say

  int count() const noexcept { return static_cast<int>(arguments_.size()); }
  const Argument& at(int position) const { return arguments_.at(static_cast<std::size_t>(position) - 1); }

  // What posretd set at a position (1 to count + 1); result() is the position after
  // the last argument.
  std::optional<double> result(int position) const noexcept;
  std::optional<double> result() const noexcept { return result(count() + 1); }
  // 0 after storing; -1 for a position outside 1 to count + 1.
  int set_result(int position, double value);
  void clear_results() noexcept { results_.clear(); }

 private:
  std::vector<Argument> arguments_;
  std::vector<std::optional<double>> results_;
};

// The call context of one service call: word FMSD_CONTEXT_SESSION leads to the
// session block, whose word FMSD_SESSION_LISTS is the host's list registry word;
// word kContextArguments is the argument vector.  posargs and posretd accept only
// contexts that are alive.
class CallContext {
 public:
  CallContext(Host& host, Arguments& arguments);
  ~CallContext();
  CallContext(const CallContext&) = delete;
  CallContext& operator=(const CallContext&) = delete;

  void* context() noexcept { return words_; }
  void* arguments() noexcept { return &arguments_; }
  Arguments& vector() noexcept { return arguments_; }
  Host& host() noexcept { return host_; }

  // The live context at this address, or null.
  static CallContext* find(const void* context) noexcept;

 private:
  fmsd_word words_[kContextWords] = {};
  fmsd_word session_[FMSD_SESSION_WORDS] = {};
  Host& host_;
  Arguments& arguments_;
};

}  // namespace fmsd::host

#endif
