// Autocorrelation diagnostics of one long series, as the diagnostics service runs them:
// autocovariances and ACF with standard errors (ztsscor), PACF and IACF (ztsspcr) and
// the Ljung-Box probabilities (ztsslbw), for 100 lags. bench/compare_acf.sh runs it
// beside statsmodels on the same series.
//
//   --series=FILE   the series as little-endian float64; without it, a fixed seed
//   --small=N       also time the first N values (default 20000), the size at which
//                   the peer's quadratic default calls are timed
//   --results=FILE  writes, for the full and the small series, the ACF, SE, PACF,
//                   IACF and Ljung-Box probabilities of lags 0 to 100 (float64), so
//                   that the peer can check it computed the same
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bench/peer_main.h"
#include "fmsd/autocorr.h"
#include "fmsd/module.h"
#include "host/host.h"

namespace {

constexpr int kLags = 100;

std::vector<double>& series() {
  static std::vector<double> s;
  return s;
}

bool load(const char* path) { return fmsd_bench::read_values(path, series()); }

// An AR(1) with coefficient 0.5, the model of the peer script's series.
void generate(std::size_t count) {
  std::mt19937_64 random(20240601);
  std::normal_distribution<double> noise;
  double y = 0;
  series().resize(count);
  for (double& v : series()) v = y = 0.5 * y + noise(random);
}

// Everything one diagnostics run produces, in arrays sized once.
struct Run {
  explicit Run(std::size_t n)
      : x(n), acov(kLags + 1), acf(kLags + 1), se(kLags + 1), pacf(3 * kLags), iacf(kLags),
        work(3 * (kLags + 1)), prob(kLags + 1), count(kLags + 1) {}
  std::vector<double> x, acov, acf, se, pacf, iacf, work, prob;
  std::vector<int> count;
  double mean = 0;

  // The service works on its own copy of the series (ztsscor centres it in place),
  // so the copy is part of the work.
  int all(const double* from) {
    std::memcpy(x.data(), from, x.size() * sizeof(double));
    const int n = static_cast<int>(x.size());
    int status = ztsscor(x.data(), n, kLags, &mean, acov.data(), count.data(), acf.data(), se.data());
    status |= ztsspcr(acf.data(), n, kLags, pacf.data(), iacf.data(), work.data());
    return status | (ztsslbw(x.data(), n, kLags, prob.data()) == kLags ? 0 : 1);
  }
};

void fail(benchmark::State& state, const char* what) { state.SkipWithError(what); }

void BM_Diagnostics(benchmark::State& state, std::size_t n, bool gaps) {
  std::vector<double> from(series().begin(), series().begin() + static_cast<std::ptrdiff_t>(n));
  // One value in a hundred missing exercises the path that blanks and counts pairs.
  if (gaps)
    for (std::size_t i = 7; i < n; i += 100) from[i] = fmsd::host::missing_value();
  Run run(n);
  for (auto _ : state) {
    if (run.all(from.data()) != 0) return fail(state, "a routine failed");
    benchmark::ClobberMemory();
  }
  state.counters["n"] = static_cast<double>(n);
}

void BM_Autocovariances(benchmark::State& state, std::size_t n) {
  Run run(n);
  for (auto _ : state) {
    std::memcpy(run.x.data(), series().data(), n * sizeof(double));
    if (ztsscov(run.x.data(), static_cast<int>(n), kLags, &run.mean, run.acov.data(), run.count.data()) < 2)
      return fail(state, "ztsscov failed");
    benchmark::ClobberMemory();
  }
  state.counters["n"] = static_cast<double>(n);
}

void BM_LjungBox(benchmark::State& state, std::size_t n) {
  Run run(n);
  if (run.all(series().data()) != 0) return fail(state, "a routine failed");
  for (auto _ : state) {
    if (ztsslbw(run.x.data(), static_cast<int>(n), kLags, run.prob.data()) != kLags)
      return fail(state, "ztsslbw failed");
    benchmark::ClobberMemory();
  }
  state.counters["n"] = static_cast<double>(n);
}

bool write_results(const char* path, const std::vector<std::size_t>& sizes) {
  std::vector<double> out;
  for (std::size_t n : sizes) {
    Run run(n);
    if (run.all(series().data()) != 0) return false;
    out.insert(out.end(), run.acf.begin(), run.acf.end());
    out.insert(out.end(), run.se.begin(), run.se.end());
    out.push_back(1.0);
    out.insert(out.end(), run.pacf.begin() + 1, run.pacf.begin() + kLags + 1);
    out.push_back(1.0);
    out.insert(out.end(), run.iacf.begin(), run.iacf.end());
    out.insert(out.end(), run.prob.begin(), run.prob.end());
  }
  std::FILE* f = std::fopen(path, "wb");
  if (f == nullptr) return false;
  const bool ok = std::fwrite(out.data(), sizeof out[0], out.size(), f) == out.size();
  return std::fclose(f) == 0 && ok;
}

}  // namespace

int main(int argc, char** argv) {
  const char* series_path = nullptr;
  const char* results_path = nullptr;
  const char* small_text = "20000";
  fmsd_bench::take_options(argc, argv,
                           {{"--series=", &series_path}, {"--results=", &results_path}, {"--small=", &small_text}});
  const std::size_t small = std::strtoull(small_text, nullptr, 10);

  fmsd::host::Host host;
  mcn_main(host.control_block(), host.process_block());
  if (series_path != nullptr) {
    if (!load(series_path)) {
      std::fprintf(stderr, "cannot read a series from %s\n", series_path);
      return 1;
    }
  } else {
    generate(1000000);
  }
  const std::size_t full = series().size();
  if (full > 2147483647u || small <= static_cast<std::size_t>(kLags) || small > full) {
    std::fprintf(stderr, "need %d < small <= %zu values, and at most 2^31 - 1\n", kLags, full);
    return 1;
  }
  if (results_path != nullptr && !write_results(results_path, {full, small})) {
    std::fprintf(stderr, "cannot write %s\n", results_path);
    return 1;
  }

  for (std::size_t n : {full, small}) {
    const std::string size = "/" + std::to_string(n);
    benchmark::RegisterBenchmark(("BM_Diagnostics" + size).c_str(), BM_Diagnostics, n, false)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("BM_DiagnosticsGaps" + size).c_str(), BM_Diagnostics, n, true)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("BM_Autocovariances" + size).c_str(), BM_Autocovariances, n)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("BM_LjungBox" + size).c_str(), BM_LjungBox, n)
        ->Unit(benchmark::kMillisecond);
  }
  return fmsd_bench::run_benchmarks(argc, argv);
}
