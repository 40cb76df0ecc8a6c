// What a host call costs: the host function called directly against the same
// function reached through the module's stub, and the calendar conversions that
// interval arithmetic makes for every observation.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#include "host/host.h"

namespace {

fmsd::host::Host& host() {
  static fmsd::host::Host h;
  return h;
}

template <class F>
F* module_symbol(const char* name) {
  static std::unique_ptr<fmsd::host::Module> module = [] {
    std::string error;
    auto m = fmsd::host::Module::load(host(), FMSD_BENCH_MODULE, error);
    if (!m) {
      std::fprintf(stderr, "cannot load the module: %s\n", error.c_str());
      std::exit(1);
    }
    return m;
  }();
  void* h = ::dlopen(FMSD_BENCH_MODULE, RTLD_NOW | RTLD_NOLOAD);
  return reinterpret_cast<F*>(::dlsym(h, name));
}

void BM_InnerProductDirect(benchmark::State& state) {
  host();
  fmsd_fn_zinner* volatile f = fmsd::host::zinner;
  const double x[2] = {1.5, 2.5};
  for (auto _ : state) benchmark::DoNotOptimize(f(x, x, 2));
}
BENCHMARK(BM_InnerProductDirect);

void BM_InnerProductThroughStub(benchmark::State& state) {
  fmsd_fn_zinner* volatile f = module_symbol<fmsd_fn_zinner>("zinner");
  const double x[2] = {1.5, 2.5};
  for (auto _ : state) benchmark::DoNotOptimize(f(x, x, 2));
}
BENCHMARK(BM_InnerProductThroughStub);

void BM_DayToDateThroughStub(benchmark::State& state) {
  auto* split = module_symbol<fmsd_fn_zidmdyd>("zidmdyd");
  int m, d, y;
  double day = fmsd::host::kFirstDay;
  for (auto _ : state) {
    benchmark::DoNotOptimize(split(&m, &d, &y, day));
    day = day < fmsd::host::kLastDay ? day + 97 : fmsd::host::kFirstDay;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_DayToDateThroughStub);

void BM_DateToDayThroughStub(benchmark::State& state) {
  auto* join = module_symbol<fmsd_fn_ziddmdy>("ziddmdy");
  int year = 1582, month = 1;
  for (auto _ : state) {
    benchmark::DoNotOptimize(join(month, 28, year));
    if (++month > 12) month = 1, year = year < 20000 ? year + 1 : 1582;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_DateToDayThroughStub);

}  // namespace

BENCHMARK_MAIN();
