// Names of libraries, members and variables.  Only identifiers are accepted, so a
// member name can become a file or table name as it stands: no separator, dot,
// quote, blank or control byte can ever reach the file system or the SQL text.
#include <cstdio>

#include "host/storage.h"
#include "host/storage_detail.h"

namespace fmsd::host {
namespace {

bool identifier(std::string_view name, std::size_t longest) noexcept {
  if (name.empty() || name.size() > longest) return false;
  const auto start = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; };
  if (!start(name[0])) return false;
  for (char c : name.substr(1))
    if (!start(c) && !(c >= '0' && c <= '9')) return false;
  return true;
}

}  // namespace

bool valid_member_name(std::string_view name) noexcept { return identifier(name, 32); }
bool valid_library_name(std::string_view name) noexcept { return identifier(name, 8); }

namespace detail {

std::string lower(std::string_view name) {
  std::string out(name);
  for (char& c : out)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return out;
}

std::string show(std::string_view text) {
  constexpr std::size_t kLongest = 60;
  std::string out = "\"";
  for (std::size_t i = 0; i < text.size() && i < kLongest; ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20 || c == 0x7F) {
      char code[8];
      std::snprintf(code, sizeof code, "\\x%02X", c);
      out += code;
    } else {
      out += static_cast<char>(c);
    }
  }
  out += '"';
  if (text.size() > kLongest) out += "...";
  return out;
}

std::string name_rule(std::size_t longest) {
  return "a name is a letter or underscore, then letters, digits or underscores, at most " +
         std::to_string(longest) + " characters";
}

}  // namespace detail
}  // namespace fmsd::host
