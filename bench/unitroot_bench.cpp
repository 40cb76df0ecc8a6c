// Augmented Dickey-Fuller tests of one long series for every lag 0 to 12, as the
// diagnostics service runs them: single mean, one etssdft per lag on a context made
// once. bench/compare_adf.sh runs it beside statsmodels on the same series.
//
//   --series=FILE   the series as little-endian float64; without it, a fixed seed
//   --results=FILE  writes nobs, rho and tau of lags 0 to 12 (float64), so that the
//                   peer can check it computed the same
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

#include "bench/peer_main.h"
#include "fmsd/module.h"
#include "fmsd/unitroot.h"
#include "host/host.h"

namespace {

constexpr int kMaxLag = 12;

std::vector<double>& series() {
  static std::vector<double> s;
  return s;
}

bool load(const char* path) { return fmsd_bench::read_values(path, series()); }

// A random walk, as the peer script draws it.
void generate(std::size_t count) {
  std::mt19937_64 random(20240617);
  std::normal_distribution<double> noise;
  double y = 0;
  series().resize(count);
  for (double& v : series()) v = y += noise(random);
}

struct Run {
  explicit Run(int variant) : n(static_cast<int>(series().size())), diff(series().size()) {
    for (int p = 0; p <= kMaxLag; ++p) lags.push_back(p);
    status = etssurm(1, ETSS_REGRESSION, variant, 1, kMaxLag, kMaxLag + 1, lags.data(), 0.05, 1, n, &context);
  }
  ~Run() { etssurm(0, 0, 0, 0, 0, 0, nullptr, 0, 0, 0, &context); }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  // One test per lag, the record and the row count of each kept.
  int each_lag(etss_result* out, int* nobs) {
    for (int p = 0; p <= kMaxLag; ++p) {
      context.p = p;
      context.augmented = 1;
      if (etssdft(series().data(), n, &context, diff.data()) != 0) return 1;
      out[p] = context.result;
      nobs[p] = context.main.nobs;
    }
    return 0;
  }

  int n;
  std::vector<int> lags;
  std::vector<double> diff;
  etss_context context{};
  int status;
};

void BM_AugmentedEachLag(benchmark::State& state) {
  Run run(ETSS_SINGLE_MEAN);
  std::vector<etss_result> out(kMaxLag + 1);
  std::vector<int> nobs(kMaxLag + 1);
  if (run.status != 0) return state.SkipWithError("etssurm failed");
  for (auto _ : state) {
    if (run.each_lag(out.data(), nobs.data()) != 0) return state.SkipWithError("etssdft failed");
    benchmark::ClobberMemory();
  }
  state.counters["n"] = run.n;
}

// All three variants for every lag from one trend fit per lag (etssur).
void BM_AllVariantsEachLag(benchmark::State& state) {
  Run run(ETSS_TREND);
  if (run.status != 0) return state.SkipWithError("etssurm failed");
  for (auto _ : state) {
    if (etssur(series().data(), run.n, &run.context, run.diff.data()) != 0) return state.SkipWithError("etssur failed");
    benchmark::ClobberMemory();
  }
  state.counters["n"] = run.n;
}

bool write_results(const char* path) {
  Run run(ETSS_SINGLE_MEAN);
  std::vector<etss_result> out(kMaxLag + 1);
  std::vector<int> nobs(kMaxLag + 1);
  if (run.status != 0 || run.each_lag(out.data(), nobs.data()) != 0) return false;
  std::vector<double> flat;
  for (int p = 0; p <= kMaxLag; ++p) flat.insert(flat.end(), {static_cast<double>(nobs[p]), out[p].rho, out[p].tau});
  std::FILE* f = std::fopen(path, "wb");
  if (f == nullptr) return false;
  const bool ok = std::fwrite(flat.data(), sizeof flat[0], flat.size(), f) == flat.size();
  return std::fclose(f) == 0 && ok;
}

}  // namespace

BENCHMARK(BM_AugmentedEachLag)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AllVariantsEachLag)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
  const char* series_path = nullptr;
  const char* results_path = nullptr;
  fmsd_bench::take_options(argc, argv, {{"--series=", &series_path}, {"--results=", &results_path}});

  fmsd::host::Host host;
  mcn_main(host.control_block(), host.process_block());
  if (series_path != nullptr ? !load(series_path) : (generate(100000), false)) {
    std::fprintf(stderr, "cannot read a series from %s\n", series_path);
    return 1;
  }
  if (series().size() > 2147483647u) {
    std::fprintf(stderr, "at most 2^31 - 1 values\n");
    return 1;
  }
  if (results_path != nullptr && !write_results(results_path)) {
    std::fprintf(stderr, "cannot write %s\n", results_path);
    return 1;
  }
  return fmsd_bench::run_benchmarks(argc, argv);
}
