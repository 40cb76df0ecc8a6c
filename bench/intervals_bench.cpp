// Interval arithmetic over large arrays of dates: the cases that
// bench/compare_pandas.sh runs against pandas on the same dates.  The module's
// code is linked in statically and reaches the real host (its calendar among
// the host operations) through the same stubs as the loaded module does.
//
//   --dates=FILE    day numbers (day 0 = 1 January 1960) as little-endian int32:
//                   the starts, then as many ends; without it, a fixed seed
//   --results=FILE  also writes the three results, as int32 (INT32_MIN for a
//                   missing value), so that the peer can check it did the same work
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "bench/peer_main.h"
#include "fmsd/intervals.h"
#include "fmsd/module.h"
#include "host/host.h"

namespace {

struct Dates {
  std::vector<double> from, to;
};

Dates& dates() {
  static Dates d;
  return d;
}

// The weekday case runs on the first tenth of the dates, as the peer's does.
std::size_t weekday_count() { return dates().from.size() / 10; }

bool load(const char* path) {
  std::vector<std::int32_t> raw;
  if (!fmsd_bench::read_values(path, raw) || raw.size() % 2 != 0) return false;
  const std::size_t half = raw.size() / 2;
  dates().from.assign(raw.begin(), raw.begin() + static_cast<std::ptrdiff_t>(half));
  dates().to.assign(raw.begin() + static_cast<std::ptrdiff_t>(half), raw.end());
  return true;
}

// Days from 1 January 1678 to 31 December 2261, the range pandas holds in nanoseconds.
void generate(std::size_t count) {
  std::mt19937_64 random(20240601);
  std::uniform_int_distribution<int> day(-102997, 110303);
  for (auto* v : {&dates().from, &dates().to}) {
    v->resize(count);
    for (double& d : *v) d = day(random);
  }
}

zintrec interval(const char* name) {
  zintrec rec;
  if (zintstr(name, static_cast<int>(std::strlen(name)), &rec) != ZINT_OK) {
    std::fprintf(stderr, "cannot parse %s\n", name);
    std::exit(1);
  }
  return rec;
}

void advance(const zintrec& rec, const std::vector<double>& from, std::size_t count, double n,
             double* out) {
  for (std::size_t i = 0; i < count; ++i) out[i] = zintnx2(&rec, from[i], n);
}

void count(const zintrec& rec, const std::vector<double>& from, const std::vector<double>& to,
           double* out) {
  for (std::size_t i = 0; i < from.size(); ++i) out[i] = zintck2(&rec, from[i], to[i]);
}

void BM_MonthAdvance(benchmark::State& state) {
  const zintrec rec = interval("MONTH");
  const auto& d = dates();
  std::vector<double> out(d.from.size());
  for (auto _ : state) {
    advance(rec, d.from, d.from.size(), 1, out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(d.from.size()));
  state.counters["dates"] = static_cast<double>(d.from.size());
}
BENCHMARK(BM_MonthAdvance)->Unit(benchmark::kMillisecond);

void BM_MonthCount(benchmark::State& state) {
  const zintrec rec = interval("MONTH");
  const auto& d = dates();
  std::vector<double> out(d.from.size());
  for (auto _ : state) {
    count(rec, d.from, d.to, out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(d.from.size()));
  state.counters["dates"] = static_cast<double>(d.from.size());
}
BENCHMARK(BM_MonthCount)->Unit(benchmark::kMillisecond);

void BM_WeekdayAdvance(benchmark::State& state) {
  const zintrec rec = interval("WEEKDAY");
  const auto& d = dates();
  std::vector<double> out(weekday_count());
  for (auto _ : state) {
    advance(rec, d.from, out.size(), 3, out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(out.size()));
  state.counters["dates"] = static_cast<double>(out.size());
}
BENCHMARK(BM_WeekdayAdvance)->Unit(benchmark::kMillisecond);

bool write_results(const char* path) {
  const auto& d = dates();
  std::vector<double> all(2 * d.from.size() + weekday_count());
  advance(interval("MONTH"), d.from, d.from.size(), 1, all.data());
  count(interval("MONTH"), d.from, d.to, all.data() + d.from.size());
  advance(interval("WEEKDAY"), d.from, weekday_count(), 3, all.data() + 2 * d.from.size());
  std::vector<std::int32_t> raw(all.size());
  for (std::size_t i = 0; i < all.size(); ++i)
    raw[i] = fmsd::host::is_missing(all[i]) ? INT32_MIN : static_cast<std::int32_t>(all[i]);
  std::FILE* f = std::fopen(path, "wb");
  if (f == nullptr) return false;
  const bool ok = std::fwrite(raw.data(), sizeof raw[0], raw.size(), f) == raw.size();
  return std::fclose(f) == 0 && ok;
}

}  // namespace

int main(int argc, char** argv) {
  const char* dates_path = nullptr;
  const char* results_path = nullptr;
  fmsd_bench::take_options(argc, argv, {{"--dates=", &dates_path}, {"--results=", &results_path}});

  fmsd::host::Host host;
  mcn_main(host.control_block(), host.process_block());
  if (dates_path != nullptr) {
    if (!load(dates_path)) {
      std::fprintf(stderr, "cannot read dates from %s\n", dates_path);
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
