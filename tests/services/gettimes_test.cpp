// Settling the four time ranges from "TIME_RANGES" lists built by the real host
// from JSON; dates are day numbers from the C++ calendar, not the host's.
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "host/json.h"
#include "host/lists.h"
#include "services/ranges.h"
#include "tests/hosted.h"

namespace {

using fmsd::TimeRange;

double day(int y, unsigned m, unsigned d) {
  using namespace std::chrono;
  return static_cast<double>((sys_days{year{y} / month{m} / d} - sys_days{year{1960} / January / 1}).count());
}

std::string number(double x) { return std::to_string(x); }

struct Ranges {
  TimeRange data, fit, evaluate, forecast;
};

class GetTimes : public ::testing::Test {
 protected:
  void SetUp() override {
    hosted();
    ASSERT_EQ(zintstr("MONTH", 5, &monthly_), ZINT_OK);
  }

  // Settles the ranges of a "TIME_RANGES" list given as JSON (empty: no list).
  int settle(const std::string& json, int nobs, Ranges& r) {
    void* list = nullptr;
    if (!json.empty()) list = fmsd::host::json_to_list(hosted().lists(), json).object();
    return fmsd::gettimes(hosted().lists().word(), list, nobs, &monthly_, &r.data, &r.fit, &r.evaluate,
                          &r.forecast);
  }

  zintrec monthly_{};
};

void expect_range(const TimeRange& r, double start, double end, int nobs, int first, int last) {
  EXPECT_EQ(r.start, start);
  EXPECT_EQ(r.end, end);
  EXPECT_EQ(r.nobs, nobs);
  EXPECT_EQ(r.first, first);
  EXPECT_EQ(r.last, last);
}

TEST_F(GetTimes, WithoutAListAllRangesSpanTheData) {
  Ranges r;
  ASSERT_EQ(settle("", 100, r), 0);
  for (const TimeRange* range : {&r.data, &r.fit, &r.evaluate, &r.forecast})
    expect_range(*range, 0, day(1968, 4, 1), 100, 0, 99);
}

TEST_F(GetTimes, TheFitRangeStaysInsideTheData) {
  Ranges r;
  // Start dates move to the start of their interval, end dates stay; the fit start
  // is raised to the data start and its count cut to the data count.
  const std::string data = R"("DATA_RANGE": {"NOBS": 24, "STDATE": )" + number(day(1990, 3, 15)) + "}";
  ASSERT_EQ(settle("{" + data + R"(, "FIT_RANGE": {"NOBS": 50, "STDATE": )" + number(day(1989, 1, 1)) + "}}", 100, r),
            0);
  expect_range(r.data, day(1990, 3, 1), day(1992, 2, 1), 24, 0, 23);
  expect_range(r.fit, day(1990, 3, 1), day(1992, 2, 1), 24, 0, 23);

  // An end beyond the fit's count is cut back; one inside it stands as given.
  ASSERT_EQ(settle("{" + data + R"(, "FIT_RANGE": {"NOBS": 6, "STDATE": )" + number(day(1990, 6, 20)) +
                       R"(, "ENDDATE": )" + number(day(1995, 1, 1)) + "}}",
                   100, r),
            0);
  expect_range(r.fit, day(1990, 6, 1), day(1990, 11, 1), 6, 3, 8);
  // The evaluation range defaults to the fit start up to the data's last index.
  expect_range(r.evaluate, day(1990, 6, 1), day(1990, 11, 1), 21, 3, 23);
  expect_range(r.forecast, day(1990, 6, 1), day(1992, 2, 1), 21, 3, 23);
  ASSERT_EQ(settle("{" + data + R"(, "FIT_RANGE": {"ENDDATE": )" + number(day(1990, 9, 15)) + "}}", 100, r), 0);
  expect_range(r.fit, day(1990, 3, 1), day(1990, 9, 15), 7, 0, 6);

  // The data count is cut to the input's count only when that is known.
  ASSERT_EQ(settle(R"({"DATA_RANGE": {"NOBS": 500}})", 100, r), 0);
  EXPECT_EQ(r.data.nobs, 100);
  ASSERT_EQ(settle(R"({"DATA_RANGE": {"NOBS": 500}})", -1, r), 0);
  EXPECT_EQ(r.data.nobs, 500);

  // The evaluation range stays between the fit start and the data's last index.
  ASSERT_EQ(settle("{" + data + R"(, "FIT_RANGE": {"STDATE": )" + number(day(1990, 6, 1)) +
                       R"(}, "EVALUATE_RANGE": {"NOBS": 40, "STDATE": )" + number(day(1990, 2, 1)) + "}}",
                   -1, r),
            0);
  expect_range(r.evaluate, day(1990, 6, 1), day(1992, 2, 1), 21, 3, 23);
}

TEST_F(GetTimes, EmptyRangesAreRefused) {
  Ranges r;
  EXPECT_EQ(settle(R"({"DATA_RANGE": {"NOBS": 0}})", 100, r), fmsd::kRangesEmpty);
  // An unknown input count needs the count in the list.
  EXPECT_EQ(settle(R"({"DATA_RANGE": {"STDATE": 0}})", -1, r), fmsd::kRangesEmpty);

  // The ranges before the empty one are settled; the later ones are not touched.
  r.evaluate.nobs = r.forecast.nobs = 4242;
  EXPECT_EQ(settle(R"({"FIT_RANGE": {"STDATE": )" + number(day(1961, 1, 1)) + R"(, "ENDDATE": )" +
                       number(day(1960, 6, 1)) + "}}",
                   100, r),
            fmsd::kRangesEmpty);
  expect_range(r.data, 0, day(1968, 4, 1), 100, 0, 99);
  EXPECT_EQ(r.evaluate.nobs, 4242);
  EXPECT_EQ(r.forecast.nobs, 4242);

  EXPECT_EQ(settle(R"({"EVALUATE_RANGE": {"NOBS": -3}})", 100, r), fmsd::kRangesEmpty);
  EXPECT_EQ(r.forecast.nobs, 4242);
  // A fit range whose dates the calendar cannot place is empty too.
  EXPECT_EQ(settle(R"({"DATA_RANGE": {"NOBS": 5, "STDATE": null}, "FIT_RANGE": {}})", 100, r),
            fmsd::kRangesEmpty);
}

TEST_F(GetTimes, TheForecastRangeMayRunPastTheData) {
  Ranges r;
  const std::string data = R"("DATA_RANGE": {"NOBS": 24, "STDATE": )" + number(day(1990, 1, 1)) +
                           R"(}, "FIT_RANGE": {"STDATE": )" + number(day(1990, 7, 1)) + "}";
  auto forecast = [&](const std::string& items) {
    return settle("{" + data + R"(, "FORCAST_RANGE": {)" + items + "}}", -1, r);
  };

  ASSERT_EQ(forecast(R"("ENDDATE": )" + number(day(1992, 12, 1))), 0);
  expect_range(r.forecast, day(1990, 7, 1), day(1992, 12, 1), 30, 6, 35);

  // An end before the start leaves the forecast range empty, which is no error.
  ASSERT_EQ(forecast(R"("ENDDATE": )" + number(day(1990, 3, 1))), 0);
  expect_range(r.forecast, day(1990, 7, 1), day(1990, 3, 1), 0, 6, 2);
  ASSERT_EQ(forecast(R"("ENDDATE": null)"), 0);
  EXPECT_EQ(r.forecast.nobs, 0);

  // The start may lie anywhere from the fit start to the data end.
  ASSERT_EQ(forecast(R"("STDATE": )" + number(day(1991, 5, 10))), 0);
  expect_range(r.forecast, day(1991, 5, 1), day(1991, 12, 1), 8, 16, 23);
  ASSERT_EQ(forecast(R"("STDATE": )" + number(day(1995, 1, 1))), 0);
  expect_range(r.forecast, day(1991, 12, 1), day(1991, 12, 1), 1, 23, 23);
  ASSERT_EQ(forecast(R"("STDATE": )" + number(day(1980, 1, 1))), 0);
  EXPECT_EQ(r.forecast.start, day(1990, 7, 1));
}

}  // namespace
