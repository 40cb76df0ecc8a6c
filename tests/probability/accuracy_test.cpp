// Accuracy of the probability routines against mpmath at 40 digits
// (tools/probability_reference.py). Each reference file is split into regions at the
// places where a routine switches formulas; every region has its own bound.
//
// FMSD_ACCURACY_TABLE=1 prints the maximum relative error per routine, output and
// region as the Markdown table of docs/ACCURACY.md.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "fmsd/probability.h"
#include "tests/csv_reader.h"

namespace {

double relerr(double got, double want) {
  if (got == want) return 0;
  if (want == 0) return std::fabs(got);
  return std::fabs(got - want) / std::fabs(want);
}

// A routine under test: how many leading columns are arguments, and its outputs in
// the order of the remaining columns.
struct Case {
  const char* file;
  int nargs;
  std::function<std::vector<double>(const std::vector<double>&)> eval;
  // Bound per "output/region" (or "output/*"); the error is absolute for regions
  // whose name says so.
  std::map<std::string, double> bounds;
};

std::vector<Case> cases() {
  using V = std::vector<double>;
  return {
      {"erf", 1, [](const V& a) { return V{zferf(a[0]), zferfc(a[0])}; },
       {{"erf/*", 5e-16}, {"erfc/small", 3e-16}, {"erfc/middle", 2e-15}, {"erfc/large", 2e-15}, {"erfc/far", 2e-13}}},
      {"phi", 1, [](const V& a) { return V{zprbnrm(a[0])}; }, {{"phi/central", 4e-15}, {"phi/tail", 3e-13}}},
      {"probit", 1, [](const V& a) { return V{zprobit(a[0])}; }, {{"z/*", 2e-15}, {"z/newton", 1e-15}}},
      {"lognrm", 1,
       [](const V& a) {
         V out(3);
         zlognrm(a[0], &out[0], &out[1], &out[2]);
         return out;
       },
       {{"lndensity/*", 3e-16}, {"*/central", 5e-15}, {"*/tail", 2e-13}}},
      {"millsr", 1,
       [](const V& a) {
         double r;
         zmillsr(a[0], &r);
         return V{r};
       },
       {{"ratio/continued fraction", 1e-15}, {"ratio/direct", 6e-15}, {"ratio/x<-10", 1.5e-13}}},
      {"prbigs", 2, [](const V& a) { return V{zprbigs(a[0], a[1])}; }, {{"cdf/z<=4", 1e-14}, {"cdf/z>4", 5e-13}}},
      {"ln1px", 1, [](const V& a) { return V{zln1px(a[0])}; }, {{"ln1px/series", 3e-16}, {"ln1px/direct", 4e-15}}},
      {"lgamma", 1, [](const V& a) { return V{zlgamma(a[0])}; },
       {{"lgamma/*", 2e-15}, {"lgamma/near 1 and 2 (absolute)", 3e-16}}},
      {"lbeta", 2, [](const V& a) { return V{zlbeta(a[0], a[1])}; }, {{"lbeta/max<15", 1.5e-13}, {"lbeta/max>=15", 1e-14}}},
      {"ibeta", 3,
       [](const V& a) {
         V out(2);
         zibeta(a[0], a[1], a[2], &out[0], &out[1]);
         return out;
       },
       {{"*/a+b<=1000 direct", 1e-12}, {"*/a+b<=1000 swapped", 1e-12}, {"*/*", 3e-12}}},
      {"igamma", 2,
       [](const V& a) {
         V out(3);
         zigamma(a[0], a[1], &out[0], &out[1], &out[2]);
         return out;
       },
       {{"*/a<=1000 lower series", 1e-12}, {"*/a<=1000 upper continued fraction", 1e-12},
        {"*/1000<a<10000 lower series", 3e-11}, {"*/1000<a<10000 upper continued fraction", 3e-11},
        {"*/a>=10000 continued fractions", 1e-10}, {"density/Wilson-Hilferty (a>=10000)", 1e-10},
        {"*/Wilson-Hilferty (a>=10000)", 2e-5}}},
      {"chisq", 2, [](const V& a) { return V{zpgx2(a[0], static_cast<int>(a[1]))}; },
       {{"tail/series and fractions", 2e-11}, {"tail/Wilson-Hilferty", 2e-6}}},
      {"t2", 2, [](const V& a) { return V{zpgt2(a[0], static_cast<int>(a[1]))}; },
       {{"tail/df<=1000", 1e-12}, {"tail/df>1000", 1e-10}}},
      {"f", 3, [](const V& a) { return V{zprbf(a[0], a[1], a[2])}; }, {{"tail/*", 1e-12}}},
  };
}

double bound_for(const Case& c, const std::string& output, const std::string& region) {
  for (const std::string& key : {output + "/" + region, output + "/*", "*/" + region, std::string("*/*")}) {
    auto it = c.bounds.find(key);
    if (it != c.bounds.end()) return it->second;
  }
  return 0;
}

TEST(Accuracy, EveryRoutineWithinItsBoundPerRegion) {
  hosted();
  const bool table = std::getenv("FMSD_ACCURACY_TABLE") != nullptr;
  if (table) std::printf("| Reference file | Output | Region | Points | Max. relative error |\n|---|---|---|---|---|\n");
  for (const Case& c : cases()) {
    const auto rows = read_csv(std::string("probability/") + c.file + ".csv");
    ASSERT_GT(rows.size(), 500u) << c.file;
    // (output, region) -> (points, worst error, arguments of the worst)
    std::map<std::pair<std::string, std::string>, std::tuple<int, double, std::vector<double>>> worst;
    for (const CsvRow& r : rows) {
      std::vector<double> args;
      for (int i = 1; i <= c.nargs; ++i) args.push_back(r.num(i));
      const std::vector<double> got = c.eval(args);
      const std::string& region = r.text("region");
      for (size_t k = 0; k < got.size(); ++k) {
        const std::string& output = (*r.header)[1 + c.nargs + k];
        const double want = r.num(1 + c.nargs + k);
        const double e = region.find("absolute") != std::string::npos ? std::fabs(got[k] - want) : relerr(got[k], want);
        auto& w = worst[{output, region}];
        ++std::get<0>(w);
        if (!(e <= std::get<1>(w))) {
          std::get<1>(w) = e;
          std::get<2>(w) = args;
        }
      }
    }
    for (const auto& [key, w] : worst) {
      const double bound = bound_for(c, key.first, key.second);
      std::ostringstream where;
      for (double a : std::get<2>(w)) where << ' ' << a;
      EXPECT_LE(std::get<1>(w), bound) << c.file << ' ' << key.first << " in " << key.second << " at" << where.str();
      if (table)
        std::printf("| %s | %s | %s | %d | %.2g |\n", c.file, key.first.c_str(), key.second.c_str(), std::get<0>(w),
                    std::get<1>(w));
    }
  }
}

}  // namespace
