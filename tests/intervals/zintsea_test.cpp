// Seasonal cycles, season numbers and seasonal dummies of intervals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "tests/hosted.h"

namespace {

class Seasons : public ::testing::Test {
 protected:
  void SetUp() override { hosted(); }

  static zintrec parse(const char* text) {
    zintrec rec{};
    EXPECT_EQ(zintstr(text, -1, &rec), ZINT_OK) << text;
    return rec;
  }
  static double day(int year, int month, int d) { return fmsd::host::ziddmdy(month, d, year); }

  // "seasons | status nseasons", the last as zintscd leaves it.
  static std::string run(const char* text, double t0, int n, int nseasons = -1, int week53 = 52) {
    const zintrec rec = parse(text);
    std::vector<int16_t> out(n, 99);
    int16_t count = static_cast<int16_t>(nseasons);
    const int status = zintscd(&rec, t0, week53, n, out.data(), &count);
    std::string s;
    for (int season : out) s += std::to_string(season) + ' ';
    return s + "| " + std::to_string(status) + ' ' + std::to_string(count);
  }
};

TEST_F(Seasons, CycleOfEachInterval) {
  // No cycle (""): a five-month step never lands on both ends of a year (1965
  // starts on one), and a two-day step never on both ends of a week.
  const struct {
    const char* text;
    const char* cycle;
    int nseasons;
  } cases[] = {{"MONTH", "YEAR", 12},     {"MONTH3", "YEAR", 4},       {"DTHOUR", "DTDAY", 24},
               {"WEEKDAY", "WEEK", 5},    {"WEEKDAY1W", "WEEK", 6},    {"WEEKDAY17W3", "WEEK", 5},
               {"SECOND5", "DTMINUTE", 12}, {"DAY", "WEEK", 7},        {"HOUR24", "DTDAY", 1},
               {"MONTH12", "YEAR", 1},    {"MONTH5", "", 0},           {"DAY2", "", 0},
               {"OBS", "", 0},            {"WEEK3", "", 0}};
  for (const auto& c : cases) {
    const zintrec rec = parse(c.text);
    zintrec cycle, want{};
    if (*c.cycle) want = parse(c.cycle);
    int n = -1;
    EXPECT_EQ(zintsea(&rec, day(1965, 3, 15), &cycle, &n), *c.cycle ? 0 : 1) << c.text;
    EXPECT_EQ(std::memcmp(&cycle, &want, sizeof cycle), 0) << c.text;
    EXPECT_EQ(n, c.nseasons) << c.text;
  }
  zintrec cycle, none{};
  int n;
  EXPECT_EQ(zintsea(nullptr, 0, &cycle, &n), 2);
  EXPECT_EQ(zintsea(&none, 0, &cycle, &n), 2);
}

TEST_F(Seasons, NumberingFollowsTheCalendar) {
  EXPECT_EQ(run("MONTH", day(1960, 3, 15), 12), "2 3 4 5 6 7 8 9 10 11 0 1 | 0 12");
  EXPECT_EQ(run("MONTH", day(1960, 3, 15), 5, 6), "2 3 4 5 0 | 0 6");
  // Quarters from February: the one holding January began in November and is the last.
  EXPECT_EQ(run("QTR.2", day(1960, 1, 15), 5), "3 0 1 2 3 | 0 4");
  // Wednesday 6 January 1960; working weeks start on Monday.
  EXPECT_EQ(run("WEEKDAY", day(1960, 1, 6), 6), "2 3 4 0 1 2 | 0 5");
  EXPECT_EQ(run("WEEKDAY1W", day(1960, 1, 2), 3), "5 0 1 | 0 6");
  EXPECT_EQ(run("DTHOUR", 2 * 86400 + 22.5 * 3600, 4), "22 23 0 1 | 0 24");
  EXPECT_EQ(run("DAY", day(1960, 1, 1), 3), "5 6 0 | 0 7");
}

TEST_F(Seasons, WithoutACycleEverySeasonIsZeroUnlessTheCallerGivesSome) {
  for (const char* text : {"OBS", "MONTH5", "HOUR24"}) EXPECT_EQ(run(text, 17, 4), "0 0 0 0 | 1 -1") << text;
  EXPECT_EQ(run("OBS", 17, 5, 3), "0 1 2 0 1 | 0 3");
  EXPECT_EQ(run("OBS", 17, 3, 1), "0 0 0 | 1 1");
  zintrec none{};
  int16_t s[2], n = -1;
  EXPECT_EQ(zintscd(&none, 0, 0, 2, s, &n), -1);
  EXPECT_EQ(zintscd(nullptr, 0, 0, 2, s, &n), -1);
}

// Weeks count from the week that holds 4 January. For Monday weeks (WEEK.2) that
// is ISO 8601 week 1, so the expected numbers are Python's
// date.isocalendar().week - 1, with ISO week 53 marked. A Sunday week holds the
// same days as the ISO week of its Monday, so Sunday weeks (WEEK) use the week of
// the following day; that holds in 1961, 1962, 2020 and 2021, where 4 January is
// not a Sunday.
TEST_F(Seasons, FiftyThirdWeekIsMarked) {
  const std::string across2020 = "48 49 50 51 52 0 1 2 3 4 | 0 52";
  EXPECT_EQ(run("WEEK.2", day(2020, 11, 30), 10), across2020);
  EXPECT_EQ(run("WEEK", day(2020, 11, 29), 10), across2020);
  EXPECT_EQ(run("DTWEEK", day(2020, 11, 29) * 86400 + 3600, 10), across2020);
  EXPECT_EQ(run("WEEK", day(2020, 11, 29), 10, -1, 99), "48 49 50 51 0 0 1 2 3 4 | 0 52");
  EXPECT_EQ(run("WEEK.2", day(2021, 12, 20), 3), "50 51 0 | 0 52");
  // Sunday 31 December 1961 holds 4 January 1962: the first week of 1962, no extra week.
  EXPECT_EQ(run("WEEK", day(1961, 12, 24), 3), "51 0 1 | 0 52");
}

TEST_F(Seasons, DummiesOfOneSeason) {
  const zintrec month = parse("MONTH");
  double cache = fmsd::host::missing_value();
  std::vector<double> d(13, 7);
  zintscy(&month, 11, 0, 12, 0, d.data(), &cache);
  EXPECT_EQ(d, (std::vector<double>{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7, 7}));
  zintscy(&month, 11, 0, 12, 1, d.data(), &cache);
  EXPECT_EQ(d[11], 1);
  zintscy(&month, 3, 0, 12, 0, d.data(), &cache);
  EXPECT_EQ(d, (std::vector<double>{0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 7}));
  EXPECT_TRUE(is_missing(cache));
}

// The week from Sunday 27 December 2020 has 2 of its 7 days in 2021; the Monday
// week from 28 December has 3. A share already cached is used as it stands.
TEST_F(Seasons, FiftyThirdWeekIsSharedBetweenFirstAndLastSeason) {
  struct Case {
    const char* text;
    double t;
    int nseasons, all;
    double share, cached;
  };
  const double sunday = day(2020, 12, 27), none = fmsd::host::missing_value();
  for (const Case& c : {Case{"WEEK", sunday, 52, 1, 2.0 / 7, none}, Case{"WEEK", sunday + 6, 52, 1, 2.0 / 7, none},
                        Case{"WEEK.2", sunday + 1, 52, 0, 3.0 / 7, none},
                        Case{"DTWEEK", sunday * 86400 + 7, 52, 1, 2.0 / 7, none},
                        Case{"WEEK", sunday, 26, 1, 2.0 / 7, none}, Case{"WEEK", sunday, 26, 0, 2.0 / 7, none},
                        Case{"WEEK2", sunday, 26, 1, 2.0 / 7, none}, Case{"WEEK", sunday, 52, 1, 0.25, 0.25}}) {
    const zintrec rec = parse(c.text);
    double cache = c.cached;
    std::vector<double> d(53, 7), want(53, 7);
    std::fill(want.begin(), want.begin() + c.nseasons - 1 + c.all, 0.0);
    want[0] = c.share;
    if (c.all) want[c.nseasons - 1] = 1 - c.share;
    zintscy(&rec, c.nseasons, c.t, c.nseasons, c.all, d.data(), &cache);
    for (int j = 0; j < 53; ++j) EXPECT_NEAR(d[j], want[j], 1e-15) << c.text << " " << c.nseasons << " " << j;
    EXPECT_NEAR(cache, c.share, 1e-15) << c.text;
  }
}

}  // namespace
