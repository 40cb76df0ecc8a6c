// The display format that suits the time IDs of an interval: its name, a preferred
// width and a narrower one.
#include <cstring>

#include "fmsd/intervals.h"

namespace {

struct Format {
  const char* name;
  int16_t width;
  int16_t shortwidth;
};

// The date formats and their datetime counterparts, which read dates out of seconds.
Format dated(bool dates, const char* date_name, const char* datetime_name, int16_t width, int16_t shortwidth) {
  return {dates ? date_name : datetime_name, width, shortwidth};
}

Format format_of(const zintrec* rec) {
  if (rec == nullptr || rec->code == ZINT_NONE) return {"D", 9, 7};
  if (rec->kind == 'o' || rec->kind == 'u') return {"F", 6, 4};
  const bool dates = rec->kind == 'd';
  // A shifted interval may start off the hour or mid-year, so it shows one unit more.
  const bool shifted = rec->shift != 0;
  switch (rec->code) {
    case ZINT_SECOND: return {"DATETIME", 16, 16};
    case ZINT_MINUTE: return shifted ? Format{"DATETIME", 16, 16} : Format{"DATETIME", 13, 13};
    case ZINT_HOUR: return shifted ? Format{"DATETIME", 13, 13} : Format{"DATETIME", 10, 10};
    case ZINT_DAY:
    case ZINT_WEEKDAY:
    case ZINT_TENDAY:
    case ZINT_SEMIMONTH: return dated(dates, "DATE", "DTDATE", 9, 7);
    case ZINT_WEEK: return dated(dates, "WEEKDATX", "DTWKDATX", 17, 15);
    case ZINT_QTR:
      if (!shifted) return dated(dates, "YYQC", "DTYYQC", 6, 4);
      return dated(dates, "MONYY", "DTMONYY", 7, 5);
    case ZINT_YEAR:
      if (!shifted) return dated(dates, "YEAR", "DTYEAR", 4, 2);
      return dated(dates, "MONYY", "DTMONYY", 7, 5);
    case ZINT_MONTH:
    case ZINT_SEMIYEAR: return dated(dates, "MONYY", "DTMONYY", 7, 5);
    default: return dates ? Format{"DATE", 9, 7} : Format{"DATETIME", 16, 16};
  }
}

}  // namespace

extern "C" {

// The name is written without a terminating NUL: callers place it in counted fields.
FMSD_API void zintfmt(const zintrec* rec, char* fmtname, int16_t* fmtlen, int16_t* width, int16_t* shortwidth) {
  const Format f = format_of(rec);
  const std::size_t n = std::strlen(f.name);
  std::memcpy(fmtname, f.name, n);
  *fmtlen = static_cast<int16_t>(n);
  *width = f.width;
  *shortwidth = f.shortwidth;
}

}  // extern "C"
