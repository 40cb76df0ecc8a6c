// The options of a command: the table each command declares, the split of its
// words into values, and the help text made from the same table, so that what
// the help promises is exactly what the parser takes.
#ifndef FMSD_APP_OPTIONS_H
#define FMSD_APP_OPTIONS_H

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace fmsd::app {

// A command line that cannot be run as written; the program exits with status 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct OptionSpec {
  const char* name;         // "in" for --in
  const char* placeholder;  // "DS"
  bool required;
  const char* help;
};

struct CommandSpec {
  const char* name;
  const char* summary;      // one line, for fmsd --help
  const char* description;  // what the command does, for fmsd COMMAND --help
  std::vector<OptionSpec> options;
  std::string details;      // list items and examples, shown as written
};

// The values a command line gives, by option name.
class OptionValues {
 public:
  const std::string* find(std::string_view name) const;
  const std::string& get(std::string_view name) const;  // a required option
  void set(const std::string& name, std::string value) { values_[name] = std::move(value); }

  // A whole number of at least `least`, or nothing when the option is absent.
  std::optional<long> integer(std::string_view name, long least) const;

 private:
  std::map<std::string, std::string, std::less<>> values_;
};

// Splits the words that follow the command (--name VALUE or --name=VALUE).
// Unknown, repeated, valueless or missing required options are usage errors.
OptionValues parse_options(const CommandSpec& spec, const std::vector<std::string>& words);

std::string usage_line(const CommandSpec& spec);
std::string help_text(const CommandSpec& spec);

}  // namespace fmsd::app

#endif
