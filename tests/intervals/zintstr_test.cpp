// Parsing interval specifications and choosing their display formats.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/hosted.h"

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
  for (const auto& c : kCodes)
    for (const std::string& name : c.names)
      for (const std::string prefix : {"", "DT", "T", "dt"}) {
        const Parsed p = parse(prefix + name);
        ASSERT_EQ(p.status, 0) << prefix + name;
        EXPECT_EQ(p.rec.code, c.code) << prefix + name;
        EXPECT_EQ(p.rec.kind, prefix.empty() ? c.kind : 's') << prefix + name;
        EXPECT_EQ(p.rec.mult, 1) << prefix + name;
      }
  // Only whole names count: neither a prefix of a known name nor an extension of one.
  for (const char* bad : {"NONE", "MONT", "MONTHX", "SECS", "HRS", "SEMI", "QTRLYS", "SEMIANNUALLY", "TE", "DT", "T", "D"})
    EXPECT_EQ(parse(bad).status, ZINT_BAD_NAME) << bad;
}

// "code kind mult.shift", with the number of working days and the days off from
// Sunday to Saturday for WEEKDAY; or the status of a refusal.
std::string outcome(const char* text) {
  const Parsed p = parse(text);
  if (p.status != 0) return "status " + std::to_string(p.status);
  EXPECT_EQ(std::string(p.rec.text, p.rec.textlen), text) << "the text is kept as given";
  std::string s = std::to_string(p.rec.code) + ' ' + p.rec.kind + ' ' + std::to_string(p.rec.mult) + '.' +
                  std::to_string(p.rec.shift);
  if (p.rec.code != ZINT_WEEKDAY) return s;
  s += ' ' + std::to_string(p.rec.nworkdays) + ' ';
  for (int8_t off : p.rec.weekend) s += static_cast<char>('0' + off);
  return s;
}

TEST(Zintstr, StatusCodeKindMultiplierShiftAndWorkingDays) {
  const char* const cases[][2] = {
      // case is ignored but kept in the text; T and DT ask for datetimes, except in TENDAY
      {"month", "45 d 1.0"}, {"Month", "45 d 1.0"}, {"DTMONTH", "45 s 1.0"}, {"TMONTH", "45 s 1.0"},
      {"TENDAY", "35 d 1.0"}, {"HOUR", "20 s 1.0"}, {"OBS", "1 o 1.0"}, {"DTOBS", "1 s 1.0"},
      // multiplier and shift limits; the shift runs in months for QTR, SEMIYEAR and YEAR, in days for WEEK
      {"MONTH0", "45 d 1.0"}, {"MONTH32767", "45 d 32767.0"}, {"MONTH32768", "status 1"}, {"MONTH.", "45 d 1.0"},
      {"MONTH.0", "status 2"}, {"MONTH2.32768", "status 2"}, {"YEAR.13", "status 2"}, {"YEAR2.13", "60 d 2.12"},
      {"SEMIYEAR.6", "55 d 1.5"}, {"SEMIYEAR.7", "status 2"}, {"QTR.3", "50 d 1.2"}, {"QTR.4", "status 2"},
      {"WEEK.7", "30 d 1.6"}, {"WEEK.8", "status 2"}, {"MONTH2.2", "45 d 2.1"}, {"MONTH.2", "status 2"},
      {"dthour3.3", "20 s 3.2"},
      // bare numbers count observations and take no shift
      {"5", "1 o 5.0"}, {"5.", "1 o 5.0"}, {"5.2", "status 2"}, {"40000", "status 1"}, {"W5", "status 103"},
      {"5W", "status 102"},
      // misplaced characters; a W straight after the name is part of the name
      {"WEEK W", "status 102"}, {"MONTH 2", "status 102"}, {"MONTH2W", "status 102"}, {"MONTHW", "status 103"},
      {"MONTH2.2.", "status 102"}, {"WEEKDAY1W2W", "status 102"}, {"WEEKDAY2.1W", "status 102"},
      // days off before the W, 1 = Sunday; at least one day must be worked
      {"WEEKDAY", "27 d 1.0 5 1000001"}, {"WEEKDAY17W", "27 d 1.0 5 1000001"}, {"WEEKDAY1W", "27 d 1.0 6 1000000"},
      {"weekday67w", "27 d 1.0 5 0000011"}, {"WEEKDAY17W2.2", "27 d 2.1 5 1000001"},
      {"WEEKDAY111W", "27 d 1.0 6 1000000"}, {"WEEKDAY123456W", "27 d 1.0 1 1111110"},
      {"WEEKDAY3", "27 d 3.0 5 1000001"}, {"WEEKDAY1234567W", "status 102"}, {"WEEKDAY8W", "status 102"},
      {"WEEKDAY0W", "status 102"}, {"WEEKDAYW", "status 103"}, {"WEEKDAY1W.2", "status 2"},
  };
  for (const auto& c : cases) EXPECT_EQ(outcome(c[0]), c[1]) << c[0];
}

TEST(Zintstr, LengthsArgumentsAndClearing) {
  hosted();
  const std::string longest = "MONTH" + std::string(14, '0') + "12", too_long = longest + "0";
  zintrec rec;
  for (int length : {21, -1}) EXPECT_TRUE(zintstr(longest.c_str(), length, &rec) == 0 && rec.mult == 12) << length;
  EXPECT_EQ(zintstr("MONTH2", 5, &rec), 0);  // only the counted characters are read
  EXPECT_EQ(std::string(rec.text) + " " + std::to_string(rec.mult), "MONTH 1");

  // A refused length leaves the record alone; past that check it is cleared first.
  std::memset(&rec, 0x5A, sizeof rec);
  for (auto [text, length] : {std::pair{too_long.c_str(), 22}, {too_long.c_str(), -1}, {"", -1}, {"MONTH", 0}})
    EXPECT_EQ(zintstr(text, length, &rec), ZINT_BAD_LENGTH) << text << ' ' << length;
  EXPECT_EQ(rec.mult, 0x5A5A);
  EXPECT_EQ(zintstr("NONE", 4, &rec), ZINT_BAD_NAME);
  EXPECT_EQ(rec.code + rec.kind, 0);
  EXPECT_EQ(zintstr("QTR", 3, &rec), 0);
  const zintrec expected = {'d', ZINT_QTR, 1, 0, 0, {}, "QTR", 3};
  EXPECT_EQ(std::memcmp(&rec, &expected, sizeof rec), 0);

  EXPECT_EQ(zintstr(nullptr, 5, &rec), ZINT_NULL_ARGUMENT);
  EXPECT_EQ(zintstr("MONTH", 5, nullptr), ZINT_NULL_ARGUMENT);
}

// One row per rule of the format choice: date and datetime flavours, and the
// shifted intervals that start off the hour or mid-year.
TEST(Zintfmt, FormatTable) {
  const struct {
    char kind;
    int code, shift;
    const char* format;  // name, width and narrower width
  } cases[] = {
      {'d', 0, 0, "D 9 7"},           {'o', 1, 0, "F 6 4"},            {'u', 45, 0, "F 6 4"},
      {'s', 10, 0, "DATETIME 16 16"}, {'s', 15, 0, "DATETIME 13 13"},  {'s', 15, 1, "DATETIME 16 16"},
      {'s', 20, 0, "DATETIME 10 10"}, {'s', 20, 2, "DATETIME 13 13"},  {'d', 25, 0, "DATE 9 7"},
      {'s', 27, 0, "DTDATE 9 7"},     {'d', 30, 0, "WEEKDATX 17 15"},  {'s', 30, 0, "DTWKDATX 17 15"},
      {'d', 45, 0, "MONYY 7 5"},      {'s', 55, 0, "DTMONYY 7 5"},     {'d', 50, 1, "MONYY 7 5"},
      {'s', 60, 6, "DTMONYY 7 5"},    {'d', 50, 0, "YYQC 6 4"},        {'s', 50, 0, "DTYYQC 6 4"},
      {'d', 60, 0, "YEAR 4 2"},       {'s', 60, 0, "DTYEAR 4 2"},      {'s', 1, 0, "DATETIME 16 16"},
      {'d', 99, 0, "DATE 9 7"},
  };
  for (const auto& c : cases) {
    const zintrec rec = interval(c.kind, c.code, 1, c.shift);
    char name[12];
    std::memset(name, '#', sizeof name);
    int16_t len = -1, width = -1, shortwidth = -1;
    zintfmt(&rec, name, &len, &width, &shortwidth);
    ASSERT_TRUE(len >= 0 && len < 12) << c.format;
    EXPECT_EQ(name[len], '#') << c.format << ": no NUL is written";
    EXPECT_EQ(std::string(name, len) + " " + std::to_string(width) + " " + std::to_string(shortwidth), c.format);
  }
  char name[1];
  int16_t len, width, shortwidth;
  zintfmt(nullptr, name, &len, &width, &shortwidth);
  EXPECT_EQ(std::string(name, len) + " " + std::to_string(width) + " " + std::to_string(shortwidth), "D 9 7");
}

}  // namespace
