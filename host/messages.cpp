// Formatting into counted buffers, and the diagnostic log the module writes to.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "host/operations.h"

namespace fmsd::host {

// Writes at most size characters and no terminator: callers build counted texts
// (item names, display formats) inside blank-filled fields and use the result
// as the length.
int xpsstr_op(char* buffer, int size, const char* format, ...) noexcept {
  if (buffer == nullptr || format == nullptr || size <= 0) return 0;
  char text[512];
  va_list args;
  va_start(args, format);
  const int n = std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  if (n < 0) return -1;
  int length = n < static_cast<int>(sizeof text) ? n : static_cast<int>(sizeof text) - 1;
  if (length > size) length = size;
  std::memcpy(buffer, text, static_cast<std::size_t>(length));
  return length;
}

int xebug_op(const char* format, ...) noexcept {
  Host* host = Host::current();
  if (host == nullptr || format == nullptr) return -1;
  char text[1024];
  va_list args;
  va_start(args, format);
  const int n = std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  if (n < 0) return -1;
  try {
    host->add_diagnostic(text);
  } catch (...) {
    return -1;
  }
  return 0;
}

}  // namespace fmsd::host
