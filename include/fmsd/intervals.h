/* Calendar intervals: parsing interval specifications, counting and advancing
 * time IDs by intervals, and the seasonal cycle of an interval.
 *
 * Time IDs are doubles: dates are day numbers (day 0 = 1 January 1960, a Friday),
 * datetimes are seconds from the start of day 0, observation IDs plain numbers.
 * Every routine answers a failure with the host's missing value. */
#ifndef FMSD_INTERVALS_H
#define FMSD_INTERVALS_H

#include <stdint.h>

#include "fmsd/module.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Interval codes, ordered by duration: above 24 counts days, 10 to 20 seconds. */
enum {
  ZINT_NONE = 0,
  ZINT_OBS = 1,
  ZINT_SECOND = 10,
  ZINT_MINUTE = 15,
  ZINT_HOUR = 20,
  ZINT_DAY = 25,
  ZINT_WEEKDAY = 27,
  ZINT_WEEK = 30,
  ZINT_TENDAY = 35,
  ZINT_SEMIMONTH = 40,
  ZINT_MONTH = 45,
  ZINT_QTR = 50,
  ZINT_SEMIYEAR = 55,
  ZINT_YEAR = 60
};

/* Status codes of zintstr. */
enum {
  ZINT_OK = 0,
  ZINT_BAD_MULTIPLIER = 1,
  ZINT_BAD_SHIFT = 2,
  ZINT_BAD_LENGTH = 101,
  ZINT_BAD_CHARACTER = 102,
  ZINT_BAD_NAME = 103,
  ZINT_NULL_ARGUMENT = 1001
};

#define ZINT_TEXT_MAX 21

/* A parsed interval specification. */
typedef struct zintrec {
  char kind;           /* 'o' observation numbers, 'd' dates, 's' datetimes; 0 when cleared */
  uint8_t code;        /* ZINT_* */
  int16_t mult;        /* 1 to 32767 */
  int16_t shift;       /* shift index, zero-based; 0 when none */
  int8_t nworkdays;    /* WEEKDAY: working days in a week */
  int8_t weekend[7];   /* WEEKDAY: weekend[i] is 1 when day i+1 (1 = Sunday) is not worked */
  char text[22];       /* the interval text as given, NUL-padded */
  int16_t textlen;
} zintrec;

/* The interval description a host list carries: the seasonal interval, the
 * number of seasons and the display format of the time IDs. */
typedef struct zintinfo {
  zintrec season;       /* offset 0 */
  char reserved[6];     /* 38 */
  int16_t nseasons;     /* 44 */
  int16_t width;        /* 46 */
  int16_t fmtlen;       /* 48 */
  char fmtname[10];     /* 50: the name, then at least one NUL */
} zintinfo;

FMSD_STATIC_ASSERT(sizeof(zintrec) == 38, "interval record layout");
FMSD_STATIC_ASSERT(offsetof(zintinfo, nseasons) == 44 && offsetof(zintinfo, width) == 46 &&
                       offsetof(zintinfo, fmtlen) == 48 && offsetof(zintinfo, fmtname) == 50,
                   "interval information layout");

FMSD_API int zintstr(const char *text, int length, zintrec *rec);
FMSD_API void zintfmt(const zintrec *rec, char *fmtname, int16_t *fmtlen, int16_t *width, int16_t *shortwidth);

FMSD_API double zintck2(const zintrec *rec, double from, double to);
FMSD_API double zintnx2(const zintrec *rec, double start, double n);
FMSD_API double zintnx3(const zintrec *rec, double start, double n, const char *align);

FMSD_API int zintsea(const zintrec *rec, double t, zintrec *cycle, int *nseasons);
FMSD_API int zintscd(const zintrec *rec, double t0, int week53, int n, int16_t *seasons, int16_t *nseasons);
FMSD_API void zintscy(const zintrec *rec, int season, double t, int nseasons, int all, double *dummies,
                      double *fraction);

#ifdef __cplusplus
}
#endif

#endif
