// Moving summaries and the classical decomposition on a long series: the cases that
// bench/compare_moving.sh runs beside pandas, bottleneck and statsmodels on the same
// data. The module's code is linked in statically and reads the missing value from
// the real host, as the loaded module does.
//
//   --series=FILE   the series as little-endian doubles; without it, a fixed seed
//   --results=FILE  also writes every case's output, one after the other as doubles
//                   (NaN for a missing value), so that the peers can check the work
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

#include "bench/peer_main.h"
#include "fmsd/decompose.h"
#include "fmsd/module.h"
#include "fmsd/moving.h"
#include "host/host.h"

namespace {

using Vec = std::vector<double>;

Vec& series() {
  static Vec x;
  return x;
}

int length() { return static_cast<int>(series().size()); }

bool load(const char* path) { return fmsd_bench::read_values(path, series()); }

// Monthly-looking data well above 0, so that the multiplicative model applies.
void generate(int n) {
  std::mt19937_64 random(20240613);
  std::normal_distribution<double> noise(0, 5);
  series().resize(static_cast<std::size_t>(n));
  for (int t = 0; t < n; ++t) series()[t] = 1000 + 0.001 * t + 20 * std::sin(t * 0.5235987755982988) + noise(random);
}

// The windows trail, as the peers' do: k values ending at t, fewer at the start.
void mean(Vec& out) { ztsmsum(series().data(), length(), nullptr, 101, 0, 0, 0, 0, out.data()); }
void variance(Vec& out) { ztsmcsm(series().data(), length(), nullptr, 101, 0, 0, 1, 0, out.data()); }
void order(int k, int statistic, Vec& out) {
  std::vector<int> work(3 * static_cast<std::size_t>(k));
  ztsmord(series().data(), length(), k, 0, work.data(), 0, statistic, out.data());
}
// The trend-cycle, seasonal and irregular components, as seasonal_decompose gives them.
void decompose(bool multiplicative, Vec& tc, Vec& seasonal, Vec& irregular) {
  (multiplicative ? ztscdmi : ztscdai)(series().data(), length(), 12, 0, tc.data(), seasonal.data(),
                                       irregular.data());
}

void finish(benchmark::State& state) {
  state.SetItemsProcessed(state.iterations() * length());
  state.counters["n"] = length();
}

void BM_Mean(benchmark::State& state) {
  Vec out(series().size());
  for (auto _ : state) {
    mean(out);
    benchmark::ClobberMemory();
  }
  finish(state);
}
BENCHMARK(BM_Mean)->Unit(benchmark::kMillisecond);

void BM_Variance(benchmark::State& state) {
  Vec out(series().size());
  for (auto _ : state) {
    variance(out);
    benchmark::ClobberMemory();
  }
  finish(state);
}
BENCHMARK(BM_Variance)->Unit(benchmark::kMillisecond);

void BM_Median(benchmark::State& state) {
  Vec out(series().size());
  for (auto _ : state) {
    order(static_cast<int>(state.range(0)), ZTSM_MEDIAN, out);
    benchmark::ClobberMemory();
  }
  finish(state);
}
BENCHMARK(BM_Median)->Arg(101)->Arg(10001)->Unit(benchmark::kMillisecond);

void BM_Maximum(benchmark::State& state) {
  Vec out(series().size());
  for (auto _ : state) {
    order(101, ZTSM_MAXIMUM, out);
    benchmark::ClobberMemory();
  }
  finish(state);
}
BENCHMARK(BM_Maximum)->Unit(benchmark::kMillisecond);

void BM_Decompose(benchmark::State& state) {
  Vec tc(series().size()), seasonal(series().size()), irregular(series().size());
  for (auto _ : state) {
    decompose(state.range(0) != 0, tc, seasonal, irregular);
    benchmark::ClobberMemory();
  }
  finish(state);
}
BENCHMARK(BM_Decompose)->ArgName("multiplicative")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// In the order of moving_peer.py's checks.
bool write_results(const char* path) {
  const std::size_t n = series().size();
  std::vector<Vec> all;
  auto next = [&]() -> Vec& { return all.emplace_back(n); };
  mean(next());
  variance(next());
  order(101, ZTSM_MEDIAN, next());
  order(10001, ZTSM_MEDIAN, next());
  order(101, ZTSM_MAXIMUM, next());
  for (bool multiplicative : {false, true}) {
    Vec &tc = next(), &seasonal = next(), &irregular = next();
    decompose(multiplicative, tc, seasonal, irregular);
  }
  std::FILE* f = std::fopen(path, "wb");
  if (f == nullptr) return false;
  bool ok = true;
  for (Vec& v : all) {
    for (double& d : v)
      if (fmsd::host::is_missing(d)) d = NAN;
    ok = ok && std::fwrite(v.data(), sizeof v[0], n, f) == n;
  }
  return std::fclose(f) == 0 && ok;
}

}  // namespace

int main(int argc, char** argv) {
  const char* series_path = nullptr;
  const char* results_path = nullptr;
  fmsd_bench::take_options(argc, argv, {{"--series=", &series_path}, {"--results=", &results_path}});

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
  if (results_path != nullptr && !write_results(results_path)) {
    std::fprintf(stderr, "cannot write %s\n", results_path);
    return 1;
  }

  return fmsd_bench::run_benchmarks(argc, argv);
}
