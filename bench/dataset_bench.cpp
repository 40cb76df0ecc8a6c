// Reading a large numeric CSV data set the way the services do: through the
// handle's read request (counting rows as getdsnobs does) and through an input
// vector bound to doubles.  Reports rows per second and the peak resident memory,
// which must not grow with the number of rows:
//   dataset_bench [--rows=N] [--dir=PATH]   (default 10,000,000 rows in a temporary directory)
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>

#include "host/datasets.h"
#include "host/host.h"
#include "module/hostops.h"
#include "services/dataset.h"

namespace {

long g_rows = 10'000'000;
std::string g_dir;

double peak_rss_mib() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss / 1024.0;
}

[[noreturn]] void die(const std::string& why) {
  std::fprintf(stderr, "dataset_bench: %s\n", why.c_str());
  std::exit(1);
}

void write_rows(const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) die("cannot write " + path);
  std::mt19937_64 rng(20261123);
  std::normal_distribution<double> normal(100, 15);
  std::string out = "t,x,y\n";
  char cell[32];
  for (long i = 0; i < g_rows; ++i) {
    out += std::to_string(i);
    for (int c = 0; c < 2; ++c) {
      out += ',';
      out.append(cell, std::to_chars(cell, cell + sizeof cell, normal(rng)).ptr);
    }
    out += '\n';
    if (out.size() > (1 << 20)) {
      std::fwrite(out.data(), 1, out.size(), f);
      out.clear();
    }
  }
  std::fwrite(out.data(), 1, out.size(), f);
  if (std::fclose(f) != 0) die("cannot finish " + path);
}

fmsd::host::Host& host() {
  static fmsd::host::Host* h = [] {
    auto* made = new fmsd::host::Host();
    mcn_main(made->control_block(), made->process_block());
    std::string error;
    if (!made->datasets().bind_directory("BENCH", g_dir, error)) die(error);
    return made;
  }();
  return *h;
}

// Opens BENCH.ROWS for input as a service does; a CSV data set cannot tell its
// row count, which opends reports as -4 with the count left negative.
void open_rows(fmsd::DataSetRecord& rec) {
  host();
  std::memset(&rec, 0, sizeof rec);
  rec.name = "BENCH.ROWS";
  rec.length = 10;
  const int rc = fmsd::opends(FMSD_OPEN_INPUT, &rec);
  if (rc != 0 && !(rc == -4 && rec.nobs < 0)) die("cannot open BENCH.ROWS: " + std::to_string(rc));
}

void BM_ReadRequestPath(benchmark::State& state) {
  for (auto _ : state) {
    fmsd::DataSetRecord rec;
    open_rows(rec);
    if (fmsd::getdsnobs(rec.access) != g_rows) state.SkipWithError("wrong row count");
    fmsd::closeds(rec.access[FMSD_ACCESS_HANDLE], 0, 0);
  }
  state.SetItemsProcessed(state.iterations() * g_rows);
  state.counters["rows"] = static_cast<double>(g_rows);
  state.counters["peak_rss_MiB"] = peak_rss_mib();
}
BENCHMARK(BM_ReadRequestPath)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_BoundVectorPath(benchmark::State& state) {
  for (auto _ : state) {
    fmsd::DataSetRecord rec;
    open_rows(rec);
    const fmsd_word ds = rec.access[FMSD_ACCESS_HANDLE];
    fmsd_word vector = 0;
    double values[3];
    xvgeti(ds, 3, &vector);
    const char* names[3] = {"t", "x", "y"};
    for (int i = 0; i < 3; ++i) {
      int number = 0;
      if (xvfind(ds, names[i], 1, &number, 0) < 0 || xvgetd(vector, number, 0, &values[i], 8, 8, 0, 0) < 0)
        die("cannot bind variable " + std::string(names[i]));
    }
    xvsele(ds);
    xvgete(vector);

    auto* handle = reinterpret_cast<fmsd_word*>(ds);
    auto* const* functions = reinterpret_cast<fmsd_request_fn* const*>(handle[FMSD_HANDLE_FUNCTIONS]);
    double sum = 0;
    long rows = 0;
    for (;;) {
      rec.access[FMSD_ACCESS_REQUEST] = FMSD_REQUEST_READ_NEXT;
      rec.access[FMSD_ACCESS_FLAGS] |= FMSD_ACCESS_COUNTED;
      const int result = functions[FMSD_HANDLE_READ_SLOT](rec.access);
      handle[FMSD_HANDLE_RESULT] = result;
      if (result != 0) break;
      ++handle[FMSD_HANDLE_ROWS];
      handle[FMSD_HANDLE_BUFFER] = rec.access[FMSD_ACCESS_BUFFER];
      xyvget(vector, 0);
      sum += values[0] + values[1] + values[2];
      ++rows;
    }
    if (rows != g_rows) state.SkipWithError("wrong row count");
    benchmark::DoNotOptimize(sum);
    xvgett(vector);
    fmsd::closeds(ds, 0, 0);
  }
  state.SetItemsProcessed(state.iterations() * g_rows);
  state.counters["rows"] = static_cast<double>(g_rows);
  state.counters["peak_rss_MiB"] = peak_rss_mib();
}
BENCHMARK(BM_BoundVectorPath)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  int kept = 1;
  bool own_dir = true;
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], "--rows=", 7) == 0) {
      g_rows = std::strtol(argv[i] + 7, nullptr, 10);
    } else if (std::strncmp(argv[i], "--dir=", 6) == 0) {
      g_dir = argv[i] + 6;
      own_dir = false;
    } else {
      argv[kept++] = argv[i];
    }
  }
  argc = kept;
  if (g_rows < 1) die("--rows must be positive");
  if (own_dir) {
    g_dir = (std::filesystem::temp_directory_path() / ("fmsd-bench-" + std::to_string(::getpid()))).string();
    std::filesystem::create_directories(g_dir);
  }
  if (!std::filesystem::exists(g_dir + "/rows.csv")) write_rows(g_dir + "/rows.csv");

  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  if (own_dir) std::filesystem::remove_all(g_dir);
  return 0;
}
