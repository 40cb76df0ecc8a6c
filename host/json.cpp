// JSON parameter lists.  Both directions work with an explicit stack, so the depth
// of a document costs no native stack.
#include "host/json.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <vector>

#include "host/host.h"
#include "host/lists.h"

namespace fmsd::host {

JsonError::JsonError(const std::string& message, int line, int column)
    : std::runtime_error("line " + std::to_string(line) + ", column " + std::to_string(column) + ": " + message),
      line_(line),
      column_(column) {}

namespace {

bool is_digit(int c) noexcept { return c >= '0' && c <= '9'; }
bool continuation(unsigned char c) noexcept { return (c & 0xC0) == 0x80; }

// Length of the well-formed UTF-8 sequence at s[i] (RFC 3629: no overlong forms,
// no surrogates, nothing above U+10FFFF), or 0.
std::size_t utf8_length(std::string_view s, std::size_t i) noexcept {
  const auto at = [&](std::size_t k) { return i + k < s.size() ? static_cast<unsigned char>(s[i + k]) : 0; };
  const unsigned char c = at(0);
  if (c < 0x80) return 1;
  if (c >= 0xC2 && c <= 0xDF) return continuation(at(1)) ? 2 : 0;
  if (c >= 0xE0 && c <= 0xEF) {
    const unsigned char lo = c == 0xE0 ? 0xA0 : 0x80, hi = c == 0xED ? 0x9F : 0xBF;
    return at(1) >= lo && at(1) <= hi && continuation(at(2)) ? 3 : 0;
  }
  if (c >= 0xF0 && c <= 0xF4) {
    const unsigned char lo = c == 0xF0 ? 0x90 : 0x80, hi = c == 0xF4 ? 0x8F : 0xBF;
    return at(1) >= lo && at(1) <= hi && continuation(at(2)) && continuation(at(3)) ? 4 : 0;
  }
  return 0;
}

void put_utf8(std::string& out, std::uint32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

// Whether a number literal that no double can hold is too large rather than too
// small: whether its leading significant digit stands at or above the units.
bool too_large(std::string_view lit) noexcept {
  std::size_t i = lit[0] == '-' ? 1 : 0;
  long long lead = 0;
  bool seen = false;
  const std::size_t int_start = i;
  while (i < lit.size() && is_digit(lit[i])) ++i;
  for (std::size_t k = int_start; k < i && !seen; ++k)
    if (lit[k] != '0') lead = static_cast<long long>(i - k) - 1, seen = true;
  if (i < lit.size() && lit[i] == '.') {
    ++i;
    for (long long k = 1; i < lit.size() && is_digit(lit[i]); ++i, ++k)
      if (!seen && lit[i] != '0') lead = -k, seen = true;
  }
  long long exponent = 0;
  if (i < lit.size() && (lit[i] == 'e' || lit[i] == 'E')) {
    const bool negative = lit[++i] == '-';
    if (lit[i] == '-' || lit[i] == '+') ++i;
    for (; i < lit.size(); ++i) exponent = std::min(exponent * 10 + (lit[i] - '0'), 1000000000LL);
    if (negative) exponent = -exponent;
  }
  return lead + exponent >= 0;
}

class Parser {
 public:
  Parser(ListRegistry& lists, std::string_view text) : lists_(lists), s_(text) {}

  List& parse() {
    if (s_.substr(0, 3) == "\xEF\xBB\xBF") pos_ = 3;  // a byte order mark may be ignored
    space();
    if (peek() != '{' && peek() != '[') fail(pos_, "a parameter list must be a JSON object or array, " + found());
    List& root = lists_.create();
    try {
      build(root);
    } catch (...) {
      lists_.free(root);
      throw;
    }
    return root;
  }

 private:
  struct Frame {
    List* list;
    bool object;
  };

  void build(List& root) {
    std::vector<Frame> stack{{&root, next() == '{'}};
    bool first = true;
    while (true) {
      space();
      const Frame f = stack.back();
      const char close = f.object ? '}' : ']';
      if (peek() == close) {
        ++pos_;
        stack.pop_back();
        if (stack.empty()) break;
        first = false;
        continue;
      }
      if (!first) {
        if (peek() != ',') fail(pos_, std::string("expected ',' or '") + close + "', " + found());
        ++pos_;
        space();
      }
      std::string name;
      if (f.object) {
        if (peek() != '"') fail(pos_, "expected a name in double quotes, " + found());
        name = string();
        space();
        if (peek() != ':') fail(pos_, "expected ':' after the name, " + found());
        ++pos_;
        space();
      }
      const int c = peek();
      if (c == '{' || c == '[') {
        if (stack.size() >= static_cast<std::size_t>(kMaxJsonDepth))
          fail(pos_, "objects and arrays are nested more than " + std::to_string(kMaxJsonDepth) + " deep");
        ++pos_;
        stack.push_back({&lists_.append_list(*f.list, name), c == '{'});
        first = true;
        continue;
      }
      std::string text;
      lists_.insert(*f.list, -1, name, scalar(text));
      first = false;
    }
    space();
    if (pos_ < s_.size()) fail(pos_, "unexpected text after the end of the list, " + found());
  }

  // A string, number or literal; a string's bytes go to text, which the value views.
  Value scalar(std::string& text) {
    const int c = peek();
    if (c == '"') {
      text = string();
      return Value::string(text);
    }
    if (c == '-' || is_digit(c)) return number();
    if (literal("true")) return Value::whole(1);
    if (literal("false")) return Value::whole(0);
    if (literal("null")) return Value::real(missing_value());
    fail(pos_, "expected a value, " + found());
  }

  bool literal(std::string_view word) {
    if (s_.substr(pos_, word.size()) != word) return false;
    pos_ += word.size();
    return true;
  }

  Value number() {
    const std::size_t start = pos_;
    if (peek() == '-') ++pos_;
    if (peek() == '0') {
      ++pos_;
    } else if (is_digit(peek())) {
      while (is_digit(peek())) ++pos_;
    } else {
      fail(pos_, "expected a digit, " + found());
    }
    bool integral = true;
    if (peek() == '.') {
      integral = false;
      ++pos_;
      if (!is_digit(peek())) fail(pos_, "expected a digit after the decimal point, " + found());
      while (is_digit(peek())) ++pos_;
    }
    if (peek() == 'e' || peek() == 'E') {
      integral = false;
      ++pos_;
      if (peek() == '+' || peek() == '-') ++pos_;
      if (!is_digit(peek())) fail(pos_, "expected a digit in the exponent, " + found());
      while (is_digit(peek())) ++pos_;
    }
    const std::string_view lit = s_.substr(start, pos_ - start);
    const char* first = lit.data();
    const char* last = lit.data() + lit.size();
    if (integral) {
      long long v = 0;
      const auto r = std::from_chars(first, last, v);
      if (r.ec == std::errc() && v >= std::numeric_limits<std::int32_t>::min() &&
          v <= std::numeric_limits<std::int32_t>::max())
        return Value::whole(static_cast<std::int32_t>(v));
    }
    double x = 0;
    const auto r = std::from_chars(first, last, x);
    if (r.ec == std::errc::result_out_of_range) {
      if (too_large(lit)) fail(start, "the number " + std::string(lit) + " is too large for a double");
      x = lit[0] == '-' ? -0.0 : 0.0;  // below the smallest double: it rounds to zero
    }
    return Value::real(x);
  }

  std::string string() {
    const std::size_t start = pos_++;
    std::string out;
    while (true) {
      if (pos_ >= s_.size()) fail(start, "the text has no closing double quote");
      const auto c = static_cast<unsigned char>(s_[pos_]);
      if (c == '"') {
        ++pos_;
        break;
      }
      if (c == '\\') {
        escape(out);
      } else if (c < 0x20) {
        fail(pos_, "a control character in a text must be written as an escape");
      } else {
        const std::size_t n = utf8_length(s_, pos_);
        if (n == 0) fail(pos_, "the text is not valid UTF-8");
        out.append(s_.substr(pos_, n));
        pos_ += n;
      }
      if (out.size() > kMaxText) fail(start, "a text or name is longer than 32767 bytes");
    }
    return out;
  }

  void escape(std::string& out) {
    const std::size_t at = pos_++;
    const int c = peek();
    ++pos_;
    switch (c) {
      case '"': out += '"'; return;
      case '\\': out += '\\'; return;
      case '/': out += '/'; return;
      case 'b': out += '\b'; return;
      case 'f': out += '\f'; return;
      case 'n': out += '\n'; return;
      case 'r': out += '\r'; return;
      case 't': out += '\t'; return;
      case 'u': break;
      default: fail(at, "unknown escape in a text");
    }
    std::uint32_t cp = hex4(at);
    if (cp >= 0xDC00 && cp <= 0xDFFF) fail(at, "a low surrogate escape without a high one before it");
    if (cp >= 0xD800 && cp <= 0xDBFF) {
      if (s_.substr(pos_, 2) != "\\u") fail(at, "a high surrogate escape without a low one after it");
      pos_ += 2;
      const std::uint32_t low = hex4(at);
      if (low < 0xDC00 || low > 0xDFFF) fail(at, "a high surrogate escape without a low one after it");
      cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
    }
    put_utf8(out, cp);
  }

  std::uint32_t hex4(std::size_t at) {
    std::uint32_t v = 0;
    for (int k = 0; k < 4; ++k, ++pos_) {
      const int c = peek();
      const int d = is_digit(c) ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
      if (d < 0) fail(at, "\\u needs four hexadecimal digits");
      v = v * 16 + static_cast<std::uint32_t>(d);
    }
    return v;
  }

  void space() noexcept {
    while (pos_ < s_.size() && (s_[pos_] == ' ' || s_[pos_] == '\t' || s_[pos_] == '\n' || s_[pos_] == '\r')) ++pos_;
  }
  int peek() const noexcept { return pos_ < s_.size() ? static_cast<unsigned char>(s_[pos_]) : -1; }
  int next() noexcept { return static_cast<unsigned char>(s_[pos_++]); }

  std::string found() const {
    const int c = peek();
    if (c < 0) return "found the end of the text";
    if (c >= 0x20 && c < 0x7F) return std::string("found '") + static_cast<char>(c) + "'";
    char buf[32];
    std::snprintf(buf, sizeof buf, "found byte 0x%02X", static_cast<unsigned>(c));
    return buf;
  }

  [[noreturn]] void fail(std::size_t at, const std::string& what) const {
    int line = 1;
    std::size_t line_start = 0;
    for (std::size_t i = 0; i < at && i < s_.size(); ++i)
      if (s_[i] == '\n') ++line, line_start = i + 1;
    throw JsonError(what, line, static_cast<int>(at - line_start) + 1);
  }

  ListRegistry& lists_;
  std::string_view s_;
  std::size_t pos_ = 0;
};

void put_double(std::string& out, double x) {
  if (!std::isfinite(x)) {
    out += "null";
    return;
  }
  char buf[32];
  const auto r = std::to_chars(buf, buf + sizeof buf, x);
  const std::string_view t(buf, static_cast<std::size_t>(r.ptr - buf));
  out += t;
  if (t.find_first_of(".e") == std::string_view::npos) out += ".0";
}

}  // namespace

std::string json_string(std::string_view text) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string out = "\"";
  for (std::size_t i = 0; i < text.size();) {
    const auto c = static_cast<unsigned char>(text[i]);
    const char* short_escape = c == '"'    ? "\\\""
                               : c == '\\' ? "\\\\"
                               : c == '\n' ? "\\n"
                               : c == '\r' ? "\\r"
                               : c == '\t' ? "\\t"
                               : c == '\b' ? "\\b"
                               : c == '\f' ? "\\f"
                                           : nullptr;
    const std::size_t n = c < 0x20 ? 0 : utf8_length(text, i);
    if (short_escape != nullptr) {
      out += short_escape;
      ++i;
    } else if (n > 0) {
      out.append(text.substr(i, n));
      i += n;
    } else {
      out += "\\u00";
      out += kHex[c >> 4];
      out += kHex[c & 15];
      ++i;
    }
  }
  return out + "\"";
}

List& json_to_list(ListRegistry& lists, std::string_view text) { return Parser(lists, text).parse(); }

std::string list_to_json(const List& list, int indent) {
  struct Frame {
    const List* list;
    std::size_t next;
    bool object;
  };
  std::string out;
  std::vector<Frame> stack;
  const auto open = [&](const List& l) {
    bool object = false;
    for (const auto& item : l.items()) object = object || !item->name.empty();
    out += object ? '{' : '[';
    stack.push_back({&l, 0, object});
  };
  const auto newline = [&](std::size_t depth) {
    if (indent <= 0) return;
    out += '\n';
    out.append(depth * static_cast<std::size_t>(indent), ' ');
  };
  open(list);
  while (!stack.empty()) {
    Frame& f = stack.back();
    const auto& items = f.list->items();
    if (f.next == items.size()) {
      const char close = f.object ? '}' : ']';
      stack.pop_back();
      if (!items.empty()) newline(stack.size());
      out += close;
      continue;
    }
    const Item& item = *items[f.next++];
    if (f.next > 1) out += indent > 0 ? "," : ", ";
    newline(stack.size());
    if (f.object) {
      out += json_string(item.name);
      out += ": ";
    }
    switch (item.kind()) {
      case FMSD_ITEM_DOUBLE: put_double(out, item.head.number); break;
      case FMSD_ITEM_INTEGER:
      case FMSD_ITEM_SHORT: out += std::to_string(item.integer); break;
      case FMSD_ITEM_TEXT: out += json_string(item.text); break;
      case FMSD_ITEM_LIST: open(*item.sublist); break;
      default: out += "null"; break;
    }
  }
  return out;
}

}  // namespace fmsd::host
