// What the benchmarks that a compare script runs beside a peer have in common: the
// --NAME=VALUE options by which the script hands over its data and takes back fmsd's
// results, reading that data, and running Google Benchmark on what is left.
#ifndef FMSD_BENCH_PEER_MAIN_H
#define FMSD_BENCH_PEER_MAIN_H

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <utility>
#include <vector>

namespace fmsd_bench {

// Takes each option "PREFIXvalue" of the list out of argv, pointing its variable at
// the value; everything else stays for Google Benchmark.
inline void take_options(int& argc, char** argv, std::initializer_list<std::pair<const char*, const char**>> options) {
  int kept = 1;
  for (int i = 1; i < argc; ++i) {
    bool taken = false;
    for (const auto& [prefix, value] : options) {
      if (std::strncmp(argv[i], prefix, std::strlen(prefix)) == 0) {
        *value = argv[i] + std::strlen(prefix);
        taken = true;
      }
    }
    if (!taken) argv[kept++] = argv[i];
  }
  argc = kept;
}

// A file of raw values of type T in native byte order; false when it cannot be
// read or holds none.
template <typename T>
bool read_values(const char* path, std::vector<T>& out) {
  std::FILE* f = std::fopen(path, "rb");
  if (f == nullptr) return false;
  T buffer[4096];
  for (std::size_t n; (n = std::fread(buffer, sizeof buffer[0], 4096, f)) > 0;) out.insert(out.end(), buffer, buffer + n);
  std::fclose(f);
  return !out.empty();
}

inline int run_benchmarks(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

}  // namespace fmsd_bench

#endif
