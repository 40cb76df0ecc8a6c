// Small inline SVG charts for the HTML report: lines, filled bands and bars over
// a numeric or calendar axis, with ticks, tick labels and a legend.  Everything
// is drawn from the data given; nothing refers to anything outside the page.
#ifndef FMSD_APP_SVG_H
#define FMSD_APP_SVG_H

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace fmsd::app::svg {

// How the x values read: plain numbers, days or seconds from 1 January 1960.
enum class Axis { Number, Date, DateTime };

// A missing value (NaN) breaks a line or a band; a bar is not drawn for it.
struct Line {
  std::vector<double> x, y;
  std::string colour;
  std::string label;  // empty: not in the legend
  bool dashed = false;
  bool points = false;  // a marker at each value as well
};

struct Band {
  std::vector<double> x, lower, upper;
  std::string colour;
  std::string label;
};

struct Bars {
  std::vector<double> x, y;
  std::string colour;
  std::string label;
};

struct Chart {
  int width = 920;
  int height = 240;
  Axis x_axis = Axis::Number;
  std::string x_label;
  std::string y_label;
  std::optional<std::pair<double, double>> y_range;  // fixed instead of fitted to the data
  std::vector<double> y_rules;                      // dashed reference lines across the plot
  std::vector<Band> bands;                          // drawn first, then bars, then lines
  std::vector<Bars> bars;
  std::vector<Line> lines;
};

// The chart as an <svg> element.  A chart with no value to draw says so in its
// plot area rather than inventing a scale.
std::string render(const Chart& chart);

// Text made safe for HTML and SVG content and attribute values.
std::string escape(std::string_view text);

// A calendar label for a time ID: "1949-01-01" for a date, with the time of day
// for a datetime; the number itself on a plain axis.
std::string time_label(double x, Axis axis);

}  // namespace fmsd::app::svg

#endif
