// What the unit-root suites share: the reference tables that tools/unitroot_reference.py
// writes, the series they were computed on, and a test context that frees itself.
#ifndef FMSD_TESTS_UNITROOT_FIXTURES_H
#define FMSD_TESTS_UNITROOT_FIXTURES_H

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "fmsd/dickeyfuller.h"
#include "fmsd/unitroot.h"
#include "tests/csv_reader.h"

inline std::vector<CsvRow> read_table(const std::string& file) { return read_csv("unitroot/" + file); }

// The series of the reference tables by case name, missing values as the host's.
inline const std::map<std::string, std::vector<double>>& series() {
  static const std::map<std::string, std::vector<double>> all = [] {
    hosted();
    std::map<std::string, std::vector<double>> m;
    for (const CsvRow& r : read_table("series.csv")) m[r.text("case")].push_back(r.num("value"));
    return m;
  }();
  return all;
}

// |a - b| within tol relative to the larger of |b| and 1, both missing counting as equal.
inline ::testing::AssertionResult near(double a, double b, double tol) {
  if (is_missing(a) && is_missing(b)) return ::testing::AssertionSuccess();
  if (is_missing(a) != is_missing(b) || !(std::fabs(a - b) <= tol * std::fmax(1.0, std::fabs(b))))
    return ::testing::AssertionFailure() << a << " against " << b << " (tolerance " << tol << ")";
  return ::testing::AssertionSuccess();
}

// A test context made by etssurm and freed with it.
struct Context {
  std::vector<int> lags;
  etss_context c{};
  int status;
  Context(int method, int variant, int d, int maxp, std::vector<int> lag_list, int n, int augmented = 1)
      : lags(std::move(lag_list)) {
    hosted();
    status = etssurm(1, method, variant, d, maxp, static_cast<int>(lags.size()), lags.data(), 0.05, augmented, n, &c);
  }
  ~Context() { etssurm(0, 0, 0, 0, 0, 0, nullptr, 0, 0, 0, &c); }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;
  etss_context* operator->() { return &c; }
};

// Whether the Dickey-Fuller distribution functions give probabilities in this build.
inline bool df_tables_present() {
  double p = -1;
  return zprdfsm(-2.0, 100, 1, &p) == 0;
}

#endif
