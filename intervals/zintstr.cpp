// Interval specifications ("MONTH", "DTDAY", "WEEK2.3", "WEEKDAY17W", "5") turned
// into the interval record that every other interval routine works from.
#include <cstddef>
#include <cstring>

#include "fmsd/intervals.h"
#include "module/hostops.h"

static_assert(offsetof(zintrec, mult) == 2);
static_assert(offsetof(zintrec, shift) == 4);
static_assert(offsetof(zintrec, nworkdays) == 6);
static_assert(offsetof(zintrec, weekend) == 7);
static_assert(offsetof(zintrec, text) == 14);
static_assert(offsetof(zintrec, textlen) == 36);
static_assert(sizeof(zintrec) == 38);

namespace {

constexpr int kMaxNumber = 32767;

bool is_letter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
bool is_digit(char c) { return c >= '0' && c <= '9'; }

struct IntervalName {
  const char* name;
  int code;
};

// NONE is known but has no interval, so the caller refuses it like an unknown name.
constexpr IntervalName kNames[] = {
    {"NONE", ZINT_NONE},
    {"OBS", ZINT_OBS},
    {"SECOND", ZINT_SECOND}, {"SECONDS", ZINT_SECOND}, {"SEC", ZINT_SECOND},
    {"MINUTE", ZINT_MINUTE}, {"MINUTES", ZINT_MINUTE}, {"MIN", ZINT_MINUTE},
    {"HOUR", ZINT_HOUR}, {"HOURLY", ZINT_HOUR}, {"HOURS", ZINT_HOUR}, {"HR", ZINT_HOUR},
    {"DAY", ZINT_DAY}, {"DAILY", ZINT_DAY}, {"DAYS", ZINT_DAY},
    {"WEEKDAY", ZINT_WEEKDAY}, {"WEEKDAYS", ZINT_WEEKDAY},
    {"WEEK", ZINT_WEEK}, {"WEEKLY", ZINT_WEEK}, {"WEEKS", ZINT_WEEK},
    {"TENDAY", ZINT_TENDAY},
    {"SEMIMONTH", ZINT_SEMIMONTH}, {"SEMIMONTHLY", ZINT_SEMIMONTH}, {"SEMIMONTHS", ZINT_SEMIMONTH},
    {"SEMIMON", ZINT_SEMIMONTH},
    {"MONTH", ZINT_MONTH}, {"MONTHLY", ZINT_MONTH}, {"MONTHS", ZINT_MONTH}, {"MON", ZINT_MONTH},
    {"QTR", ZINT_QTR}, {"QUARTER", ZINT_QTR}, {"QUARTERLY", ZINT_QTR}, {"QUARTERS", ZINT_QTR},
    {"QTRLY", ZINT_QTR}, {"QTRS", ZINT_QTR},
    {"SEMIYEAR", ZINT_SEMIYEAR}, {"SEMIYEARLY", ZINT_SEMIYEAR}, {"SEMIYEARS", ZINT_SEMIYEAR},
    {"SEMIYR", ZINT_SEMIYEAR}, {"SEMIANNUAL", ZINT_SEMIYEAR}, {"SEMIANN", ZINT_SEMIYEAR},
    {"YEAR", ZINT_YEAR}, {"YEARS", ZINT_YEAR}, {"YEARLY", ZINT_YEAR}, {"YR", ZINT_YEAR},
    {"ANNUAL", ZINT_YEAR}, {"ANNUALLY", ZINT_YEAR}, {"ANNUALS", ZINT_YEAR},
};

// The name is upper case already; only a whole-name match counts, so "MONT" and
// "MONTHX" stay unknown.
int getname(const char* name, int length) {
  if (name[0] < 'A' || name[0] > 'Y') return ZINT_NONE;
  for (const IntervalName& known : kNames) {
    if (known.name[0] != name[0] || std::strlen(known.name) != static_cast<std::size_t>(length)) continue;
    if (std::memcmp(known.name + 1, name + 1, length - 1) == 0) return known.code;
  }
  return ZINT_NONE;
}

// Reads "mult[.shift]"; a multiplier of 0 or none at all means 1, a shift of 0 means none.
int getnum(const char* text, int length, int pointpos, int* mult, int* shift) {
  const int end = pointpos < 0 ? length : pointpos;
  int value = 0;
  for (int i = 0; i < end; ++i) {
    if (!is_digit(text[i])) return ZINT_BAD_CHARACTER;
    value = value * 10 + (text[i] - '0');
    if (value > kMaxNumber) return ZINT_BAD_MULTIPLIER;
  }
  *mult = value == 0 ? 1 : value;
  *shift = 0;
  if (pointpos < 0 || pointpos + 1 == length) return ZINT_OK;
  value = 0;
  for (int i = pointpos + 1; i < length; ++i) {
    if (!is_digit(text[i])) return ZINT_BAD_CHARACTER;
    value = value * 10 + (text[i] - '0');
    if (value > kMaxNumber) return ZINT_BAD_SHIFT;
  }
  if (value < 1) return ZINT_BAD_SHIFT;
  *shift = value;
  return ZINT_OK;
}

// A shift counts months for years, half years and quarters and days for weeks, so it
// may run to that many units per interval; other intervals shift by whole intervals.
int checkshift(int code, int mult, int shift) {
  int units = 1;
  switch (code) {
    case ZINT_QTR: units = 3; break;
    case ZINT_SEMIYEAR: units = 6; break;
    case ZINT_YEAR: units = 12; break;
    case ZINT_WEEK: units = 7; break;
    default: break;
  }
  return shift < 1 || shift <= units * mult ? 0 : 1;
}

// The digits before the W name the days off (1 = Sunday); without a W the week
// runs Monday to Friday.
int weekday(zintrec* rec, const char* text, int wpos) {
  std::memset(rec->weekend, 0, sizeof rec->weekend);
  if (wpos < 0) {
    rec->nworkdays = 5;
    rec->weekend[0] = rec->weekend[6] = 1;
    return 0;
  }
  // A W right after the name belongs to the name, so at least one digit stands before it.
  if (wpos > 6) return 1;
  for (int i = 0; i < wpos; ++i) {
    if (text[i] < '1' || text[i] > '7') return 1;
    rec->weekend[text[i] - '1'] = 1;
  }
  // At most six days off, so at least one day is always worked.
  int worked = 0;
  for (int8_t off : rec->weekend) worked += off == 0;
  rec->nworkdays = static_cast<int8_t>(worked);
  return 0;
}

}  // namespace

extern "C" {

FMSD_API int zintstr(const char* text, int length, zintrec* rec) {
  if (text == nullptr || rec == nullptr) return ZINT_NULL_ARGUMENT;
  if (length < 0) {
    const std::size_t n = std::strlen(text);
    length = n > ZINT_TEXT_MAX ? ZINT_TEXT_MAX + 1 : static_cast<int>(n);
  }
  if (length < 1 || length > ZINT_TEXT_MAX) return ZINT_BAD_LENGTH;

  std::memset(rec, 0, sizeof *rec);
  std::memcpy(rec->text, text, length);
  rec->textlen = static_cast<int16_t>(length);
  rec->mult = 1;

  const unsigned char* upcase = fmsd::host_upcase();
  char name[ZINT_TEXT_MAX];
  int namelen = 0;
  for (; namelen < length && is_letter(text[namelen]); ++namelen)
    name[namelen] = static_cast<char>(upcase[static_cast<unsigned char>(text[namelen])]);

  // A W right after the name is a letter of the name; here it can only follow a digit.
  int pointpos = -1;
  int wpos = -1;
  for (int i = namelen; i < length; ++i) {
    const char c = text[i];
    if (is_digit(c)) continue;
    if (c == '.' && pointpos < 0) {
      pointpos = i;
    } else if ((c == 'W' || c == 'w') && wpos < 0 && pointpos < 0) {
      wpos = i;
    } else {
      return ZINT_BAD_CHARACTER;
    }
  }

  int mult = 1;
  int shift = 0;
  if (namelen == 0) {
    if (wpos >= 0) return ZINT_BAD_CHARACTER;
    if (const int status = getnum(text, length, pointpos, &mult, &shift)) return status;
    if (shift != 0) return ZINT_BAD_SHIFT;
    rec->kind = 'o';
    rec->code = ZINT_OBS;
    rec->mult = static_cast<int16_t>(mult);
    return ZINT_OK;
  }

  const char* rest = text + namelen;
  int restlen = length - namelen;
  if (pointpos >= 0) pointpos -= namelen;
  if (wpos >= 0) wpos -= namelen;

  // DT or T asks for datetime values; TENDAY is a name of its own, not T + ENDAY.
  const char* base = name;
  int baselen = namelen;
  if (namelen > 1 && name[0] == 'D' && name[1] == 'T') {
    base += 2;
    baselen -= 2;
    rec->kind = 's';
  } else if (namelen > 1 && name[0] == 'T' && name[1] != 'E') {
    base += 1;
    baselen -= 1;
    rec->kind = 's';
  }
  if (baselen < 2) return ZINT_BAD_NAME;
  const int code = getname(base, baselen);
  if (code == ZINT_NONE) return ZINT_BAD_NAME;
  rec->code = static_cast<uint8_t>(code);
  if (rec->kind == 0) rec->kind = code == ZINT_OBS ? 'o' : code < ZINT_DAY ? 's' : 'd';

  if (code == ZINT_WEEKDAY) {
    if (weekday(rec, rest, wpos) != 0) return ZINT_BAD_CHARACTER;
  } else if (wpos >= 0) {
    return ZINT_BAD_CHARACTER;
  }
  if (wpos >= 0) {
    rest += wpos + 1;
    restlen -= wpos + 1;
    if (pointpos >= 0) pointpos -= wpos + 1;
  }
  if (restlen == 0) return ZINT_OK;

  if (const int status = getnum(rest, restlen, pointpos, &mult, &shift)) return status;
  rec->mult = static_cast<int16_t>(mult);
  if (shift != 0) {
    if (checkshift(code, mult, shift) != 0) return ZINT_BAD_SHIFT;
    rec->shift = static_cast<int16_t>(shift - 1);
  }
  return ZINT_OK;
}

}  // extern "C"
