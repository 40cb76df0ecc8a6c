// JSON parameter lists: JSON text to host lists and back.
//
// An object becomes a list of named items in document order, an array a list of
// unnamed items; a string is a text item, an integer that fits 32 bits an integer
// item, any other number a double item, null the missing value, true and false the
// integers 1 and 0, and an object or array a sublist.
#ifndef FMSD_HOST_JSON_H
#define FMSD_HOST_JSON_H

#include <stdexcept>
#include <string>
#include <string_view>

namespace fmsd::host {

class List;
class ListRegistry;

// Objects and arrays nested deeper than this are refused.
inline constexpr int kMaxJsonDepth = 64;

// A refused JSON text; the message starts with "line L, column C: ", where the
// column counts bytes from 1.
class JsonError : public std::runtime_error {
 public:
  JsonError(const std::string& message, int line, int column);
  int line() const noexcept { return line_; }
  int column() const noexcept { return column_; }

 private:
  int line_;
  int column_;
};

// Parses a JSON object or array (strict RFC 8259, UTF-8) into a new list of the
// registry.  On failure it throws JsonError and leaves the registry as it was.
List& json_to_list(ListRegistry& lists, std::string_view text);

// A list as JSON: an object when any item has a name (unnamed items get the name
// ""), an array otherwise.  Doubles are written in the shortest form that reads
// back to the same double, always with a fraction or an exponent so that they read
// back as doubles; missing values, infinities and NaNs are written as null.
// indent 0 writes one line; otherwise each item goes on its own line.
std::string list_to_json(const List& list, int indent = 0);

// A text as a JSON string, quotes included.  Bytes that are not UTF-8 are written
// as the code points of the same number (\u0080 to \u00ff).
std::string json_string(std::string_view text);

}  // namespace fmsd::host

#endif
