// Blank-padded and counted text helpers.
#include "util/numeric.h"

namespace fmsd {

int wzstlen(const char* s) noexcept {
  if (s == nullptr) return 0;
  return static_cast<int>(std::strlen(s));
}

int wzstrip(const char* s, int length) noexcept {
  while (length > 0 && s[length - 1] == ' ') --length;
  return length > 0 ? length : 0;
}

// Compares ignoring case through the host's upper-case table, so that the host
// decides what case means for bytes beyond ASCII.
int wzbcup(const void* a, const void* b, int count) noexcept {
  const auto* p = static_cast<const unsigned char*>(a);
  const auto* q = static_cast<const unsigned char*>(b);
  const unsigned char* upcase = nullptr;
  for (int k = 0; k < count; ++k) {
    if (p[k] == q[k]) continue;
    if (upcase == nullptr) upcase = host_upcase();
    const int x = upcase[p[k]];
    const int y = upcase[q[k]];
    if (x != y) return x - y;
  }
  return 0;
}

void vzfdl(double value, double* array, int count) noexcept {
  for (int k = 0; k < count; ++k) array[k] = value;
}

}  // namespace fmsd
