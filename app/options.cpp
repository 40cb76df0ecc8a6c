#include "app/options.h"

#include <cerrno>
#include <cstdlib>

namespace fmsd::app {

namespace {

constexpr std::size_t kHelpColumn = 18;

// What every command that takes data sets shares; shown at the end of its help.
constexpr char kCommon[] =
    "data set names (DS):\n"
    "  LIB.MEMBER       member MEMBER of the library bound with --lib LIB=PATH\n"
    "  MEMBER           member of WORK, which is the current directory unless bound\n"
    "  PATH.csv         a CSV file (any name that ends in .csv or holds a /); its\n"
    "                   file name without .csv must be a valid member name\n"
    "  Names are a letter or underscore, then letters, digits or underscores: at\n"
    "  most 8 characters for a library, 32 for a member or a variable.  A new CSV\n"
    "  file is named in lower case.\n"
    "\n"
    "parameter lists (P): a JSON object, written inline ('{...}') or in a file.\n"
    "  An object becomes a list of named items, an array a list of unnamed items;\n"
    "  a string is a text, an integer an integer, any other number a double, null\n"
    "  the missing value.  Item names are matched without regard to case.\n"
    "\n"
    "global options:\n"
    "  --lib NAME=PATH  bind library NAME to a directory of CSV files or to an\n"
    "                   SQLite database file (created when first written); repeatable\n"
    "  --module PATH    the module to load (default: $FMSD_MODULE, else libfmsd.so\n"
    "                   in ../lib beside the program, else beside it)\n"
    "\n"
    "exit status: 0 when the service succeeds (results 1, 2 and 3 add a notice on\n"
    "standard error), 1 when it fails (one line names the service, the result, its\n"
    "meaning and the data concerned; no output data set or result file is written),\n"
    "2 for a command line that cannot be run.\n";

const OptionSpec* find_spec(const CommandSpec& spec, std::string_view name) {
  for (const OptionSpec& o : spec.options)
    if (name == o.name) return &o;
  return nullptr;
}

std::string option_text(const OptionSpec& o) { return std::string("--") + o.name + " " + o.placeholder; }

}  // namespace

const std::string* OptionValues::find(std::string_view name) const {
  auto it = values_.find(name);
  return it == values_.end() ? nullptr : &it->second;
}

const std::string& OptionValues::get(std::string_view name) const {
  const std::string* value = find(name);
  if (value == nullptr) throw UsageError("--" + std::string(name) + " is required");
  return *value;
}

std::optional<long> OptionValues::integer(std::string_view name, long least) const {
  const std::string* text = find(name);
  if (text == nullptr) return std::nullopt;
  const std::string wanted = "--" + std::string(name) + " wants a whole number of at least " + std::to_string(least);
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(text->c_str(), &end, 10);
  if (text->empty() || *end != '\0' || errno == ERANGE || value > 0x7FFFFFFF)
    throw UsageError(wanted + ", not '" + *text + "'");
  if (value < least) throw UsageError(wanted + ", not " + *text);
  return value;
}

OptionValues parse_options(const CommandSpec& spec, const std::vector<std::string>& words) {
  OptionValues values;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (word.size() < 3 || word.compare(0, 2, "--") != 0)
      throw UsageError("unexpected argument '" + word + "' (options are written --NAME VALUE)");
    const std::size_t equals = word.find('=');
    const std::string name = word.substr(2, equals == std::string::npos ? std::string::npos : equals - 2);
    const OptionSpec* option = find_spec(spec, name);
    if (option == nullptr) throw UsageError(std::string(spec.name) + " has no option --" + name);
    if (values.find(name) != nullptr) throw UsageError("--" + name + " is given twice");
    std::string value;
    if (equals != std::string::npos) {
      value = word.substr(equals + 1);
    } else if (i + 1 < words.size()) {
      value = words[++i];
    } else {
      throw UsageError("--" + name + " needs a value: " + option_text(*option));
    }
    if (value.empty()) throw UsageError("--" + name + " is given an empty value");
    values.set(name, std::move(value));
  }
  for (const OptionSpec& o : spec.options)
    if (o.required && values.find(o.name) == nullptr) throw UsageError("--" + std::string(o.name) + " is required");
  return values;
}

std::string usage_line(const CommandSpec& spec) {
  std::string line = std::string("usage: fmsd [--lib NAME=PATH]... ") + spec.name;
  for (const OptionSpec& o : spec.options)
    line += o.required ? " " + option_text(o) : " [" + option_text(o) + "]";
  return line + "\n";
}

std::string help_text(const CommandSpec& spec) {
  std::string text = usage_line(spec) + "\n" + spec.description + "\noptions:\n";
  for (const OptionSpec& o : spec.options) {
    std::string head = "  " + option_text(o);
    head.append(head.size() < kHelpColumn ? kHelpColumn - head.size() : 1, ' ');
    std::string help = o.help;
    for (std::size_t at = help.find('\n'); at != std::string::npos; at = help.find('\n', at + 1))
      help.insert(at + 1, kHelpColumn, ' ');
    text += head + help + "\n";
  }
  return text + "\n" + spec.details + "\n" + kCommon;
}

}  // namespace fmsd::app
