// Parsing interval specifications and choosing their display formats.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "fmsd/intervals.h"
#include "tests/intervals/hosted.h"

namespace {

struct Parsed {
  int status;
  zintrec rec;
};

Parsed parse(const std::string& text) {
  hosted();
  Parsed p{};
  p.status = zintstr(text.c_str(), static_cast<int>(text.size()), &p.rec);
  return p;
}

// Every accepted name with its code and the kind of time ID it counts, as documented for users.
const struct {
  int code;
  char kind;
  std::vector<std::string> names;
} kCodes[] = {
    {1, 'o', {"OBS"}},
    {10, 's', {"SECOND", "SECONDS", "SEC"}},
    {15, 's', {"MINUTE", "MINUTES", "MIN"}},
    {20, 's', {"HOUR", "HOURLY", "HOURS", "HR"}},
    {25, 'd', {"DAY", "DAILY", "DAYS"}},
    {27, 'd', {"WEEKDAY", "WEEKDAYS"}},
    {30, 'd', {"WEEK", "WEEKLY", "WEEKS"}},
    {35, 'd', {"TENDAY"}},
    {40, 'd', {"SEMIMONTH", "SEMIMONTHLY", "SEMIMONTHS", "SEMIMON"}},
    {45, 'd', {"MONTH", "MONTHLY", "MONTHS", "MON"}},
    {50, 'd', {"QTR", "QUARTER", "QUARTERLY", "QUARTERS", "QTRLY", "QTRS"}},
    {55, 'd', {"SEMIYEAR", "SEMIYEARLY", "SEMIYEARS", "SEMIYR", "SEMIANNUAL", "SEMIANN"}},
    {60, 'd', {"YEAR", "YEARS", "YEARLY", "YR", "ANNUAL", "ANNUALLY", "ANNUALS"}},
};

TEST(Zintstr, EveryNameAloneAndAfterADatetimePrefix) {
  for (const auto& c : kCodes) {
    for (const std::string& name : c.names) {
      for (const std::string prefix : {"", "DT", "T", "dt"}) {
        const std::string text = prefix + name;
        const Parsed p = parse(text);
        ASSERT_EQ(p.status, 0) << text;
        EXPECT_EQ(p.rec.code, c.code) << text;
        EXPECT_EQ(p.rec.kind, prefix.empty() ? c.kind : 's') << text;
        EXPECT_EQ(p.rec.mult, 1) << text;
      }
    }
  }
  // Only whole names count: neither a prefix of a known name nor an extension of one.
  for (const char* bad : {"NONE", "MONT", "MONTHX", "SECS", "HRS", "SEMI", "QTRLYS", "SEMIANNUALLY", "TE", "DT", "T", "D"})
    EXPECT_EQ(parse(bad).status, ZINT_BAD_NAME) << bad;
}

TEST(Zintstr, StatusCodeKindMultiplierShift) {
  const struct {
    const char* text;
    int status, code = 0;
    char kind = 0;
    int mult = 0, shift = 0;
  } cases[] = {
      // case is ignored but kept in the text; T and DT ask for datetimes, except in TENDAY
      {"month", 0, 45, 'd', 1, 0}, {"Month", 0, 45, 'd', 1, 0}, {"DTMONTH", 0, 45, 's', 1, 0},
      {"TMONTH", 0, 45, 's', 1, 0}, {"TENDAY", 0, 35, 'd', 1, 0}, {"HOUR", 0, 20, 's', 1, 0},
      {"OBS", 0, 1, 'o', 1, 0}, {"DTOBS", 0, 1, 's', 1, 0},
      // multiplier and shift limits; the shift runs in months for QTR, SEMIYEAR and YEAR, in days for WEEK
      {"MONTH0", 0, 45, 'd', 1, 0}, {"MONTH32767", 0, 45, 'd', 32767, 0}, {"MONTH32768", 1},
      {"MONTH.", 0, 45, 'd', 1, 0}, {"MONTH.0", 2}, {"MONTH2.32768", 2},
      {"YEAR.13", 2}, {"YEAR2.13", 0, 60, 'd', 2, 12}, {"SEMIYEAR.6", 0, 55, 'd', 1, 5}, {"SEMIYEAR.7", 2},
      {"QTR.3", 0, 50, 'd', 1, 2}, {"QTR.4", 2}, {"WEEK.7", 0, 30, 'd', 1, 6}, {"WEEK.8", 2},
      {"MONTH2.2", 0, 45, 'd', 2, 1}, {"MONTH.2", 2}, {"dthour3.3", 0, 20, 's', 3, 2},
      // bare numbers count observations and take no shift
      {"5", 0, 1, 'o', 5, 0}, {"5.", 0, 1, 'o', 5, 0}, {"5.2", 2}, {"40000", 1}, {"W5", 103}, {"5W", 102},
      // misplaced characters; a W straight after the name is part of the name
      {"WEEK W", 102}, {"MONTH 2", 102}, {"MONTH2W", 102}, {"MONTHW", 103}, {"MONTH2.2.", 102},
      {"WEEKDAY1W2W", 102}, {"WEEKDAY2.1W", 102},
  };
  for (const auto& c : cases) {
    const Parsed p = parse(c.text);
    ASSERT_EQ(p.status, c.status) << c.text;
    if (c.status != 0) continue;
    EXPECT_EQ(p.rec.code, c.code) << c.text;
    EXPECT_EQ(p.rec.kind, c.kind) << c.text;
    EXPECT_EQ(p.rec.mult, c.mult) << c.text;
    EXPECT_EQ(p.rec.shift, c.shift) << c.text;
    EXPECT_EQ(p.rec.textlen, static_cast<int>(std::strlen(c.text))) << c.text;
    EXPECT_STREQ(p.rec.text, c.text);
  }
}

TEST(Zintstr, WeekdayCalendars) {
  const struct {
    const char* text;
    int status, nworkdays = 0;
    const char* weekend = "";  // Sunday to Saturday, 1 = day off
    int mult = 0, shift = 0;
  } cases[] = {
      {"WEEKDAY", 0, 5, "1000001", 1, 0},     {"WEEKDAY17W", 0, 5, "1000001", 1, 0},
      {"WEEKDAY1W", 0, 6, "1000000", 1, 0},   {"weekday67w", 0, 5, "0000011", 1, 0},
      {"WEEKDAY17W2.2", 0, 5, "1000001", 2, 1}, {"WEEKDAY111W", 0, 6, "1000000", 1, 0},
      {"WEEKDAY123456W", 0, 1, "1111110", 1, 0}, {"WEEKDAY3", 0, 5, "1000001", 3, 0},
      {"WEEKDAY1234567W", 102}, {"WEEKDAY8W", 102}, {"WEEKDAY0W", 102}, {"WEEKDAYW", 103}, {"WEEKDAY1W.2", 2},
  };
  for (const auto& c : cases) {
    const Parsed p = parse(c.text);
    ASSERT_EQ(p.status, c.status) << c.text;
    if (c.status != 0) continue;
    EXPECT_EQ(p.rec.code, ZINT_WEEKDAY);
    EXPECT_EQ(p.rec.nworkdays, c.nworkdays) << c.text;
    for (int d = 0; d < 7; ++d) EXPECT_EQ(p.rec.weekend[d], c.weekend[d] - '0') << c.text << " day " << d + 1;
    EXPECT_EQ(p.rec.mult, c.mult) << c.text;
    EXPECT_EQ(p.rec.shift, c.shift) << c.text;
  }
}

TEST(Zintstr, LengthsArgumentsAndClearing) {
  hosted();
  const std::string longest = "MONTH" + std::string(14, '0') + "12", too_long = longest + "0";
  zintrec rec;
  for (int length : {21, -1}) {
    ASSERT_EQ(zintstr(longest.c_str(), length, &rec), 0);
    EXPECT_EQ(rec.mult, 12);
    EXPECT_EQ(rec.textlen, 21);
  }
  EXPECT_EQ(zintstr("MONTH2", 5, &rec), 0);  // only the counted characters are read
  EXPECT_EQ(rec.mult, 1);
  EXPECT_STREQ(rec.text, "MONTH");

  // A refused length leaves the record alone; past that check it is cleared first.
  std::memset(&rec, 0x5A, sizeof rec);
  EXPECT_EQ(zintstr(too_long.c_str(), 22, &rec), ZINT_BAD_LENGTH);
  EXPECT_EQ(zintstr(too_long.c_str(), -1, &rec), ZINT_BAD_LENGTH);
  EXPECT_EQ(zintstr("", -1, &rec), ZINT_BAD_LENGTH);
  EXPECT_EQ(zintstr("MONTH", 0, &rec), ZINT_BAD_LENGTH);
  EXPECT_EQ(rec.mult, 0x5A5A);
  EXPECT_EQ(zintstr("NONE", 4, &rec), ZINT_BAD_NAME);
  EXPECT_EQ(rec.code, 0);
  EXPECT_EQ(rec.kind, 0);
  EXPECT_EQ(zintstr("QTR", 3, &rec), 0);
  const zintrec expected = {'d', ZINT_QTR, 1, 0, 0, {}, "QTR", 3};
  EXPECT_EQ(std::memcmp(&rec, &expected, sizeof rec), 0);

  EXPECT_EQ(zintstr(nullptr, 5, &rec), ZINT_NULL_ARGUMENT);
  EXPECT_EQ(zintstr("MONTH", 5, nullptr), ZINT_NULL_ARGUMENT);
}

TEST(Zintfmt, FormatTable) {
  const struct {
    char kind;
    int code, shift;
    const char* name;
    int width, shortwidth;
  } cases[] = {
      {'d', 0, 0, "D", 9, 7},           {'o', 1, 0, "F", 6, 4},           {'u', 45, 0, "F", 6, 4},
      {'s', 10, 0, "DATETIME", 16, 16}, {'s', 15, 0, "DATETIME", 13, 13}, {'s', 15, 1, "DATETIME", 16, 16},
      {'s', 20, 0, "DATETIME", 10, 10}, {'s', 20, 2, "DATETIME", 13, 13}, {'d', 25, 0, "DATE", 9, 7},
      {'s', 25, 0, "DTDATE", 9, 7},     {'s', 27, 0, "DTDATE", 9, 7},     {'s', 35, 0, "DTDATE", 9, 7},
      {'s', 40, 0, "DTDATE", 9, 7},
      {'d', 30, 0, "WEEKDATX", 17, 15}, {'s', 30, 0, "DTWKDATX", 17, 15}, {'d', 45, 0, "MONYY", 7, 5},
      {'s', 55, 0, "DTMONYY", 7, 5},    {'d', 50, 1, "MONYY", 7, 5},      {'s', 60, 6, "DTMONYY", 7, 5},
      {'d', 50, 0, "YYQC", 6, 4},       {'s', 50, 0, "DTYYQC", 6, 4},     {'d', 60, 0, "YEAR", 4, 2},
      {'s', 60, 0, "DTYEAR", 4, 2},     {'s', 1, 0, "DATETIME", 16, 16},  {'d', 99, 0, "DATE", 9, 7},
  };
  for (const auto& c : cases) {
    zintrec rec{};
    rec.kind = c.kind;
    rec.code = static_cast<uint8_t>(c.code);
    rec.mult = 1;
    rec.shift = static_cast<int16_t>(c.shift);
    char name[12];
    std::memset(name, '#', sizeof name);
    int16_t len = -1, width = -1, shortwidth = -1;
    zintfmt(&rec, name, &len, &width, &shortwidth);
    const std::string row = std::string(1, c.kind) + std::to_string(c.code) + "." + std::to_string(c.shift);
    ASSERT_EQ(len, static_cast<int>(std::strlen(c.name))) << row;
    EXPECT_EQ(std::string(name, len + 1), std::string(c.name) + "#") << row;  // no NUL written
    EXPECT_EQ(width, c.width) << row;
    EXPECT_EQ(shortwidth, c.shortwidth) << row;
  }
  char name[1];
  int16_t len, width, shortwidth;
  zintfmt(nullptr, name, &len, &width, &shortwidth);
  EXPECT_EQ(std::string(name, len) + std::to_string(width) + std::to_string(shortwidth), "D97");
}

}  // namespace
