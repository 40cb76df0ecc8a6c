// What must hold for any text given to the interval parser, and for the records it
// accepts: shared by the fuzz target and the regression test that replays the
// inputs the fuzzer found.
#ifndef FMSD_FUZZ_ZINTSTR_CHECK_H
#define FMSD_FUZZ_ZINTSTR_CHECK_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "fmsd/intervals.h"

// Returns null when every property holds, else a description of the first that fails.
inline const char* check_interval_text(const unsigned char* data, std::size_t size) {
  char text[64];
  const std::size_t n = size < sizeof text - 1 ? size : sizeof text - 1;
  std::memcpy(text, data, n);
  text[n] = '\0';

  zintrec rec;
  const int status = zintstr(text, static_cast<int>(n), &rec);
  switch (status) {
    case ZINT_OK:
    case ZINT_BAD_MULTIPLIER:
    case ZINT_BAD_SHIFT:
    case ZINT_BAD_LENGTH:
    case ZINT_BAD_CHARACTER:
    case ZINT_BAD_NAME:
      break;
    default:
      return "unknown status";
  }
  // A negative length reads up to the terminator: the same answer for a text without NULs.
  if (std::memchr(text, '\0', n) == nullptr) {
    zintrec again;
    if (zintstr(text, -1, &again) != status) return "negative length disagrees";
  }
  if (status != ZINT_OK) return nullptr;

  if (rec.textlen != static_cast<int>(n) || std::memcmp(rec.text, text, n) != 0) return "text not kept";
  if (rec.kind != 'o' && rec.kind != 'd' && rec.kind != 's') return "bad kind";
  if (rec.mult < 1) return "bad multiplier";
  const int f = rec.code == ZINT_QTR ? 3 : rec.code == ZINT_SEMIYEAR ? 6 : rec.code == ZINT_YEAR ? 12
                : rec.code == ZINT_WEEK ? 7 : 1;
  if (rec.shift < 0 || rec.shift >= f * rec.mult) return "shift out of range";
  if (rec.code == ZINT_WEEKDAY) {
    int off = 0;
    for (signed char w : rec.weekend) off += w;
    if (rec.nworkdays < 1 || rec.nworkdays + off != 7) return "weekend does not add up";
  }

  char name[16];
  int16_t len = 0, width = 0, shortwidth = 0;
  zintfmt(&rec, name, &len, &width, &shortwidth);
  if (len < 1 || len > 8 || width < shortwidth || shortwidth < 2) return "bad display format";

  // Advancing and counting must not fault whatever the time ID.
  double t = 0;
  std::memcpy(&t, text, n < sizeof t ? n : sizeof t);
  const double start = rec.kind == 's' ? 86400.0 * 1000 : 1000;
  const double next = zintnx2(&rec, start, 3);
  std::uint64_t bits;
  std::memcpy(&bits, &next, sizeof bits);
  const bool left_the_calendar = (bits >> 48) == 0xFFFFu;  // a large multiplier may step past it
  if (!left_the_calendar && zintck2(&rec, start, next) != 3) return "advance then count back";
  zintnx3(&rec, t, -2, "END");
  zintck2(&rec, t, -t);
  return nullptr;
}

#endif
