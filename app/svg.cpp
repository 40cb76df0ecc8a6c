#include "app/svg.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include "host/host.h"

namespace fmsd::app::svg {

namespace {

constexpr double kLeft = 64;
constexpr double kRight = 16;
constexpr double kTop = 26;
constexpr double kBottom = 40;
constexpr double kDay = 86400;

struct Tick {
  double at;
  std::string label;
};

struct Range {
  double lo = std::numeric_limits<double>::infinity();
  double hi = -std::numeric_limits<double>::infinity();
  void add(double v) {
    if (!std::isfinite(v)) return;
    lo = std::min(lo, v);
    hi = std::max(hi, v);
  }
  bool empty() const { return lo > hi; }
};

std::string fixed(double v, int decimals) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.*f", decimals, v);
  return buffer;
}

// 1, 2 or 5 times a power of ten, so that about `target` steps cover the span.
double nice_step(double span, int target) {
  const double raw = span / target;
  const double magnitude = std::pow(10.0, std::floor(std::log10(raw)));
  const double norm = raw / magnitude;
  return (norm < 1.5 ? 1 : norm < 3 ? 2 : norm < 7 ? 5 : 10) * magnitude;
}

std::string number_label(double v, double step) {
  if (std::fabs(v) < step * 1e-9) v = 0;
  if (std::fabs(v) >= 1e7 || (v != 0 && std::fabs(v) < 1e-4)) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.3g", v);
    return buffer;
  }
  const int decimals = std::max(0, static_cast<int>(-std::floor(std::log10(step) + 1e-9)));
  return fixed(v, decimals);
}

std::vector<Tick> number_ticks(double lo, double hi, int target, bool whole) {
  double step = nice_step(hi - lo, target);
  if (whole) step = std::max(step, 1.0);
  std::vector<Tick> ticks;
  for (double t = std::ceil(lo / step - 1e-9) * step; t <= hi + step * 1e-9; t += step)
    ticks.push_back({t, number_label(t, step)});
  return ticks;
}

struct Ymd {
  int y, m, d;
};

bool split_day(double day, Ymd& out) { return host::zidmdyd(&out.m, &out.d, &out.y, std::floor(day)) == 0; }

std::string two(int v) { return (v < 10 ? "0" : "") + std::to_string(v); }

// Calendar ticks at whole years, months or days, whichever gives a handful over
// the span; the time of day only when the span is shorter than a few days.
std::vector<Tick> date_ticks(double lo, double hi, Axis axis) {
  const double scale = axis == Axis::DateTime ? kDay : 1;
  const double first = lo / scale, last = hi / scale;
  Ymd a{}, b{};
  if (!split_day(first, a) || !split_day(last, b)) return number_ticks(lo, hi, 8, false);
  std::vector<Tick> ticks;
  const double years = (last - first) / 365.25;
  if (years >= 3) {
    int step = static_cast<int>(std::max(1.0, nice_step(years, 8)));
    for (int y = (a.y / step) * step; y <= b.y; y += step) {
      const double at = host::ziddmdy(1, 1, y) * scale;
      if (at >= lo && at <= hi) ticks.push_back({at, std::to_string(y)});
    }
  } else if (last - first >= 60) {
    const double months = years * 12;
    const int step = months <= 10 ? 1 : months <= 20 ? 2 : months <= 30 ? 3 : 6;
    for (int index = a.y * 12 + a.m - 1; index <= b.y * 12 + b.m - 1; ++index) {
      const int y = index / 12, m = index % 12 + 1;
      if ((m - 1) % step != 0) continue;
      const double at = host::ziddmdy(m, 1, y) * scale;
      if (at >= lo && at <= hi) ticks.push_back({at, std::to_string(y) + "-" + two(m)});
    }
  } else if (last - first >= 3 || axis == Axis::Date) {
    const double step = std::max(1.0, nice_step(last - first, 8));
    for (double day = std::ceil(first / step) * step; day <= last; day += step) {
      Ymd c{};
      if (split_day(day, c)) ticks.push_back({day * scale, std::to_string(c.y) + "-" + two(c.m) + "-" + two(c.d)});
    }
  } else {
    const double hours = (hi - lo) / 3600;
    const double step = std::max(1.0, nice_step(hours, 8)) * 3600;
    for (double s = std::ceil(lo / step) * step; s <= hi; s += step) ticks.push_back({s, time_label(s, axis).substr(5)});
  }
  return ticks;
}

class Canvas {
 public:
  Canvas(const Chart& c, double x_lo, double x_hi, double y_lo, double y_hi)
      : c_(c), x_lo_(x_lo), x_hi_(x_hi), y_lo_(y_lo), y_hi_(y_hi) {}
  double px(double x) const { return kLeft + (x - x_lo_) / (x_hi_ - x_lo_) * plot_width(); }
  double py(double y) const {
    const double v = kTop + (y_hi_ - y) / (y_hi_ - y_lo_) * plot_height();
    return std::clamp(v, kTop, kTop + plot_height());
  }
  double plot_width() const { return c_.width - kLeft - kRight; }
  double plot_height() const { return c_.height - kTop - kBottom; }

 private:
  const Chart& c_;
  double x_lo_, x_hi_, y_lo_, y_hi_;
};

std::string point(double x, double y) { return fixed(x, 1) + "," + fixed(y, 1); }

void draw_line(std::string& out, const Canvas& k, const Line& line) {
  std::string path;
  bool open = false;
  const std::size_t n = std::min(line.x.size(), line.y.size());
  for (std::size_t i = 0; i < n; ++i) {
    if (!std::isfinite(line.x[i]) || !std::isfinite(line.y[i])) {
      open = false;
      continue;
    }
    path += (open ? " L" : " M") + point(k.px(line.x[i]), k.py(line.y[i]));
    open = true;
  }
  if (!path.empty())
    out += "<path d=\"" + path.substr(1) + "\" fill=\"none\" stroke=\"" + line.colour + "\" stroke-width=\"1.6\"" +
           (line.dashed ? " stroke-dasharray=\"5,3\"" : "") + "/>\n";
  if (!line.points) return;
  for (std::size_t i = 0; i < n; ++i)
    if (std::isfinite(line.x[i]) && std::isfinite(line.y[i]))
      out += "<circle cx=\"" + fixed(k.px(line.x[i]), 1) + "\" cy=\"" + fixed(k.py(line.y[i]), 1) +
             "\" r=\"2.6\" fill=\"" + line.colour + "\"/>\n";
}

void draw_band(std::string& out, const Canvas& k, const Band& band) {
  const std::size_t n = std::min({band.x.size(), band.lower.size(), band.upper.size()});
  std::size_t i = 0;
  while (i < n) {
    auto present = [&](std::size_t j) {
      return std::isfinite(band.x[j]) && std::isfinite(band.lower[j]) && std::isfinite(band.upper[j]);
    };
    if (!present(i)) {
      ++i;
      continue;
    }
    std::size_t j = i;
    while (j < n && present(j)) ++j;
    std::string points;
    for (std::size_t t = i; t < j; ++t) points += point(k.px(band.x[t]), k.py(band.upper[t])) + " ";
    for (std::size_t t = j; t-- > i;) points += point(k.px(band.x[t]), k.py(band.lower[t])) + " ";
    // A band of one value is drawn as a short vertical stroke.
    if (j - i == 1)
      out += "<line x1=\"" + fixed(k.px(band.x[i]), 1) + "\" x2=\"" + fixed(k.px(band.x[i]), 1) + "\" y1=\"" +
             fixed(k.py(band.upper[i]), 1) + "\" y2=\"" + fixed(k.py(band.lower[i]), 1) + "\" stroke=\"" + band.colour +
             "\" stroke-width=\"3\"/>\n";
    else
      out += "<polygon points=\"" + points + "\" fill=\"" + band.colour + "\" stroke=\"none\"/>\n";
    i = j;
  }
}

// The distance between neighbouring bars, for their width.
double bar_spacing(const Bars& bars) {
  std::vector<double> xs;
  for (double x : bars.x)
    if (std::isfinite(x)) xs.push_back(x);
  std::sort(xs.begin(), xs.end());
  double spacing = std::numeric_limits<double>::infinity();
  for (std::size_t i = 1; i < xs.size(); ++i)
    if (xs[i] > xs[i - 1]) spacing = std::min(spacing, xs[i] - xs[i - 1]);
  return std::isfinite(spacing) ? spacing : 1;
}

void draw_bars(std::string& out, const Canvas& k, const Bars& bars) {
  const double half = std::max(1.0, 0.3 * bar_spacing(bars) * (k.px(1) - k.px(0)));
  const std::size_t n = std::min(bars.x.size(), bars.y.size());
  for (std::size_t i = 0; i < n; ++i) {
    if (!std::isfinite(bars.x[i]) || !std::isfinite(bars.y[i])) continue;
    const double top = std::min(k.py(0), k.py(bars.y[i]));
    const double height = std::max(1.0, std::fabs(k.py(bars.y[i]) - k.py(0)));
    out += "<rect x=\"" + fixed(k.px(bars.x[i]) - half, 1) + "\" y=\"" + fixed(top, 1) + "\" width=\"" +
           fixed(2 * half, 1) + "\" height=\"" + fixed(height, 1) + "\" fill=\"" + bars.colour + "\"/>\n";
  }
}

void draw_legend(std::string& out, const Chart& c) {
  double x = kLeft;
  auto entry = [&](const std::string& label, const std::string& colour, bool line) {
    if (label.empty()) return;
    if (line)
      out += "<line x1=\"" + fixed(x, 1) + "\" x2=\"" + fixed(x + 16, 1) + "\" y1=\"12\" y2=\"12\" stroke=\"" +
             colour + "\" stroke-width=\"2.5\"/>\n";
    else
      out += "<rect x=\"" + fixed(x, 1) + "\" y=\"7\" width=\"16\" height=\"10\" fill=\"" + colour + "\"/>\n";
    out += "<text x=\"" + fixed(x + 21, 1) + "\" y=\"16\">" + escape(label) + "</text>\n";
    x += 34 + 6.5 * static_cast<double>(label.size());
  };
  for (const Band& b : c.bands) entry(b.label, b.colour, false);
  for (const Bars& b : c.bars) entry(b.label, b.colour, false);
  for (const Line& l : c.lines) entry(l.label, l.colour, true);
}

}  // namespace

std::string escape(std::string_view text) {
  std::string out;
  for (char ch : text) {
    switch (ch) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&#39;"; break;
      default: out += ch;
    }
  }
  return out;
}

std::string time_label(double x, Axis axis) {
  if (!std::isfinite(x)) return "";
  if (axis == Axis::Number) return number_label(x, std::fabs(x - std::round(x)) < 1e-9 ? 1 : 1e-6);
  const double day = axis == Axis::DateTime ? std::floor(x / kDay) : std::floor(x);
  Ymd d{};
  if (!split_day(day, d)) return fixed(x, 0);
  std::string label = std::to_string(d.y) + "-" + two(d.m) + "-" + two(d.d);
  if (axis == Axis::DateTime) {
    const long seconds = std::lround(x - day * kDay);
    label += " " + two(static_cast<int>(seconds / 3600)) + ":" + two(static_cast<int>(seconds / 60 % 60));
  }
  return label;
}

std::string render(const Chart& c) {
  Range xs, ys;
  bool bars = false;
  for (const Band& b : c.bands) {
    for (std::size_t i = 0; i < b.x.size(); ++i)
      if (std::isfinite(b.lower[i]) && std::isfinite(b.upper[i])) {
        xs.add(b.x[i]);
        ys.add(b.lower[i]);
        ys.add(b.upper[i]);
      }
  }
  for (const Bars& b : c.bars)
    for (std::size_t i = 0; i < b.x.size(); ++i)
      if (std::isfinite(b.y[i])) {
        xs.add(b.x[i]);
        ys.add(b.y[i]);
        ys.add(0);
        bars = true;
      }
  for (const Line& l : c.lines)
    for (std::size_t i = 0; i < l.x.size(); ++i)
      if (std::isfinite(l.y[i])) {
        xs.add(l.x[i]);
        ys.add(l.y[i]);
      }

  std::string out = "<svg class=\"chart\" width=\"" + std::to_string(c.width) + "\" height=\"" +
                    std::to_string(c.height) + "\" viewBox=\"0 0 " + std::to_string(c.width) + " " +
                    std::to_string(c.height) + "\" font-family=\"sans-serif\" font-size=\"11\" role=\"img\">\n";
  const double plot_w = c.width - kLeft - kRight, plot_h = c.height - kTop - kBottom;
  out += "<rect x=\"" + fixed(kLeft, 1) + "\" y=\"" + fixed(kTop, 1) + "\" width=\"" + fixed(plot_w, 1) +
         "\" height=\"" + fixed(plot_h, 1) + "\" fill=\"#ffffff\" stroke=\"#888888\"/>\n";
  if (xs.empty() || ys.empty()) {
    out += "<text x=\"" + fixed(kLeft + plot_w / 2, 1) + "\" y=\"" + fixed(kTop + plot_h / 2, 1) +
           "\" text-anchor=\"middle\" fill=\"#555555\">no values to show</text>\n</svg>\n";
    return out;
  }

  double y_lo = ys.lo, y_hi = ys.hi;
  if (c.y_range) {
    y_lo = c.y_range->first;
    y_hi = c.y_range->second;
  } else {
    if (y_hi - y_lo <= std::fabs(y_hi) * 1e-12) {
      const double pad = y_hi != 0 ? std::fabs(y_hi) * 0.1 : 1;
      y_lo -= pad;
      y_hi += pad;
    }
    const double step = nice_step(y_hi - y_lo, 5);
    y_lo = std::floor(y_lo / step) * step;
    y_hi = std::ceil(y_hi / step) * step;
  }
  double x_lo = xs.lo, x_hi = xs.hi;
  if (bars || x_hi <= x_lo) {
    // Bars are centred on their values, so the first and last need room.
    double spacing = 1;
    for (const Bars& b : c.bars) spacing = std::min(spacing, bar_spacing(b));
    x_lo -= 0.7 * spacing;
    x_hi += 0.7 * spacing;
  }
  const Canvas k(c, x_lo, x_hi, y_lo, y_hi);

  // Grid and ticks.
  const bool whole_x = c.x_axis == Axis::Number && bars;
  const std::vector<Tick> x_ticks =
      c.x_axis == Axis::Number ? number_ticks(x_lo, x_hi, 10, whole_x) : date_ticks(x_lo, x_hi, c.x_axis);
  const double bottom = kTop + plot_h;
  for (const Tick& t : x_ticks) {
    const std::string x = fixed(k.px(t.at), 1);
    out += "<line x1=\"" + x + "\" x2=\"" + x + "\" y1=\"" + fixed(bottom, 1) + "\" y2=\"" + fixed(bottom + 5, 1) +
           "\" stroke=\"#555555\"/>\n";
    out += "<text x=\"" + x + "\" y=\"" + fixed(bottom + 17, 1) + "\" text-anchor=\"middle\">" + escape(t.label) +
           "</text>\n";
  }
  for (const Tick& t : number_ticks(y_lo, y_hi, 5, false)) {
    const std::string y = fixed(k.py(t.at), 1);
    out += "<line x1=\"" + fixed(kLeft, 1) + "\" x2=\"" + fixed(kLeft + plot_w, 1) + "\" y1=\"" + y + "\" y2=\"" + y +
           "\" stroke=\"#e4e4e4\"/>\n";
    out += "<text x=\"" + fixed(kLeft - 6, 1) + "\" y=\"" + fixed(k.py(t.at) + 4, 1) + "\" text-anchor=\"end\">" +
           escape(t.label) + "</text>\n";
  }
  for (double rule : c.y_rules)
    if (rule >= y_lo && rule <= y_hi) {
      const std::string y = fixed(k.py(rule), 1);
      out += "<line x1=\"" + fixed(kLeft, 1) + "\" x2=\"" + fixed(kLeft + plot_w, 1) + "\" y1=\"" + y + "\" y2=\"" +
             y + "\" stroke=\"#555555\" stroke-dasharray=\"4,3\"/>\n";
    }

  for (const Band& b : c.bands) draw_band(out, k, b);
  for (const Bars& b : c.bars) draw_bars(out, k, b);
  for (const Line& l : c.lines) draw_line(out, k, l);
  draw_legend(out, c);

  if (!c.x_label.empty())
    out += "<text x=\"" + fixed(kLeft + plot_w / 2, 1) + "\" y=\"" + fixed(c.height - 6.0, 1) +
           "\" text-anchor=\"middle\">" + escape(c.x_label) + "</text>\n";
  if (!c.y_label.empty())
    out += "<text transform=\"translate(14," + fixed(kTop + plot_h / 2, 1) +
           ") rotate(-90)\" text-anchor=\"middle\">" + escape(c.y_label) + "</text>\n";
  return out + "</svg>\n";
}

}  // namespace fmsd::app::svg
