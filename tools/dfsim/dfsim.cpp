// Simulates the null distributions of the Dickey-Fuller statistics as fmsd's unit-root
// tests compute them, and writes their quantiles, one file per (period d, rows n) cell.
//
// The series is a (seasonal) Gaussian random walk y_t = y_{t-d} + e_t whose first d values
// are zero and belong to the series, so the test regression of y_t on [1], [t], y_{t-d} has
// exactly n rows: the walk starts from a known zero, as in the classical tables. The zero
// mean statistics depend on that start; the single mean and trend ones do not depend on
// the level. From running sums over the rows, one pass per replication gives, for every
// variant, rho = n (rho^ - 1) and tau = (rho^ - 1) / se with s^2 = SSE / (n - regressors).
//
// Every cell is reproducible on its own: replications come in chunks, each drawn from a
// generator seeded by (seed, d, n, chunk), so neither the thread count nor the order of
// the cells changes a single value. A cell whose file already holds at least the asked
// replications is skipped; anything less is simulated again from chunk 0 at the larger
// count, which reproduces the earlier replications and adds the new ones.
//
//   dfsim [--out DIR] [--seed S] [--threads T] [--reps R] [--reps-large R]
//         [--large-from N] [--cells d:n,d:n,...]      simulate (default: the whole plan)
//   dfsim --plan                                       list the plan's cells
//   dfsim --bench d n reps                             throughput, statistics per second
//   dfsim --trace d n reps                             the series and statistics, as text

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace {

// ---- random numbers ------------------------------------------------------------------

std::uint64_t splitmix64(std::uint64_t& s) {
  std::uint64_t z = (s += 0x9E3779B97F4A7C15ull);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
  return z ^ (z >> 31);
}

// xoshiro256++: every output bit is sound, so the ziggurat may take its layer and sign
// from the low bits and the value from the top 53 of one draw.
struct Xoshiro {
  std::uint64_t s[4];
  explicit Xoshiro(std::uint64_t seed) {
    for (auto& w : s) w = splitmix64(seed);
  }
  std::uint64_t next() {
    const std::uint64_t sum = s[0] + s[3];
    const std::uint64_t r = ((sum << 23) | (sum >> 41)) + s[0];
    const std::uint64_t t = s[1] << 17;
    s[2] ^= s[0];
    s[3] ^= s[1];
    s[1] ^= s[2];
    s[0] ^= s[3];
    s[2] ^= t;
    s[3] = (s[3] << 45) | (s[3] >> 19);
    return r;
  }
  double uniform() { return static_cast<double>(static_cast<std::int64_t>(next() >> 11)) * 0x1.0p-53; }
};

// Ziggurat of 256 layers for the standard normal (Marsaglia and Tsang). Layer 0 is the
// base strip with the tail beyond r; layer i >= 1 spans x in [0, x[i]].
struct Ziggurat {
  static constexpr double r = 3.6541528853610088;
  static constexpr double v = 4.92867323399e-3;
  double x[257];
  double f[257];
  Ziggurat() {
    x[0] = v / std::exp(-0.5 * r * r);
    x[1] = r;
    for (int i = 1; i < 256; ++i) {
      const double fi = std::exp(-0.5 * x[i] * x[i]) + v / x[i];
      x[i + 1] = fi >= 1.0 ? 0.0 : std::sqrt(-2.0 * std::log(fi));
    }
    x[256] = 0.0;
    for (int i = 0; i <= 256; ++i) f[i] = std::exp(-0.5 * x[i] * x[i]);
  }
  // The sign goes in by flipping the sign bit: a branch on a random bit would be
  // mispredicted half the time and cost more than the rest of the draw.
  static double with_sign(double v, std::uint64_t u) {
    std::uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    bits ^= (u & 0x100) << 55;
    std::memcpy(&v, &bits, sizeof v);
    return v;
  }
  double draw(Xoshiro& g) const {
    for (;;) {
      const std::uint64_t u = g.next();
      const int i = static_cast<int>(u & 0xFF);
      const double xx = static_cast<double>(static_cast<std::int64_t>(u >> 11)) * 0x1.0p-53 * x[i];
      if (xx < x[i + 1]) return with_sign(xx, u);
      if (i == 0) {
        double a, b;
        do {
          a = -std::log(g.uniform() + 0x1.0p-54) / r;
          b = -std::log(g.uniform() + 0x1.0p-54);
        } while (b + b < a * a);
        return with_sign(r + a, u);
      }
      if (f[i] + g.uniform() * (f[i + 1] - f[i]) < std::exp(-0.5 * xx * xx)) return with_sign(xx, u);
    }
  }
};

const Ziggurat kZig;

// ---- one replication -------------------------------------------------------------------

constexpr int kMaxStats = 6;  // rho and tau for zero mean, single mean, trend

struct Stats {
  double v[kMaxStats];
};

int stat_count(int d) { return d == 1 ? 6 : 4; }

// Statistics of one replication from the running sums over the n rows; x is the lagged
// level, e the innovation (the difference y_t - y_{t-d}), tc the trend centred on the
// rows, which keeps the trend orthogonal to the intercept.
struct Sums {
  double sx = 0, sxx = 0, sxe = 0, se = 0, see = 0, stx = 0, ste = 0;
};

void finish(const Sums& s, int n, bool trend, Stats& out) {
  const double dn = n;
  double b = s.sxe / s.sxx;
  double sse = s.see - s.sxe * b;
  out.v[0] = dn * b;
  out.v[1] = b / std::sqrt(sse / (dn - 1) / s.sxx);

  const double mx = s.sx / dn;
  const double sxx1 = s.sxx - s.sx * mx;
  const double sxe1 = s.sxe - mx * s.se;
  const double see1 = s.see - s.se * s.se / dn;
  b = sxe1 / sxx1;
  sse = see1 - sxe1 * b;
  out.v[2] = dn * b;
  out.v[3] = b / std::sqrt(sse / (dn - 2) / sxx1);
  if (!trend) return;

  const double stt = dn * (dn * dn - 1) / 12;
  const double sxx2 = sxx1 - s.stx * s.stx / stt;
  const double sxe2 = sxe1 - s.stx * s.ste / stt;
  const double see2 = see1 - s.ste * s.ste / stt;
  b = sxe2 / sxx2;
  sse = see2 - sxe2 * b;
  out.v[4] = dn * b;
  out.v[5] = b / std::sqrt(sse / (dn - 3) / sxx2);
}

// ring holds the last d levels; the first d of them are the walk's zero start.
void replicate(int d, int n, Xoshiro& g, std::vector<double>& ring, Stats& out,
               std::vector<double>* trace) {
  Sums s;
  std::fill(ring.begin(), ring.end(), 0.0);
  if (d == 1) {
    double y = 0;
    const double c = 0.5 * (n + 1);
    for (int r = 1; r <= n; ++r) {
      const double e = kZig.draw(g);
      const double tc = r - c;
      s.sx += y;
      s.sxx += y * y;
      s.sxe += y * e;
      s.se += e;
      s.see += e * e;
      s.stx += tc * y;
      s.ste += tc * e;
      y += e;
      if (trace) trace->push_back(y);
    }
  } else {
    int j = 0;
    for (int r = 1; r <= n; ++r) {
      const double e = kZig.draw(g);
      const double y = ring[j];
      s.sx += y;
      s.sxx += y * y;
      s.sxe += y * e;
      s.se += e;
      s.see += e * e;
      ring[j] = y + e;
      if (trace) trace->push_back(y + e);
      if (++j == d) j = 0;
    }
  }
  finish(s, n, d == 1, out);
}

// ---- cells -------------------------------------------------------------------------------

constexpr int kChunk = 1 << 16;

std::uint64_t chunk_seed(std::uint64_t seed, int d, int n, std::int64_t chunk) {
  std::uint64_t s = seed;
  std::uint64_t h = splitmix64(s);
  s = h ^ (static_cast<std::uint64_t>(d) << 32) ^ static_cast<std::uint64_t>(n);
  h = splitmix64(s);
  s = h ^ static_cast<std::uint64_t>(chunk);
  return splitmix64(s);
}

// Probability levels of the stored quantiles: every thousandth in the tails up to 0.1
// and from 0.9, every 0.005 between, the far tails down to 1e-6, and the extremes.
std::vector<double> levels() {
  const double far[] = {1e-6, 2e-6, 5e-6, 1e-5, 2e-5, 5e-5, 1e-4, 2e-4, 5e-4};
  std::vector<double> p{0.0};
  for (double q : far) p.push_back(q);
  for (int k = 1; k <= 100; ++k) p.push_back(k / 1000.0);
  for (int k = 21; k <= 179; ++k) p.push_back(k / 200.0);
  for (int k = 900; k <= 999; ++k) p.push_back(k / 1000.0);
  for (int i = 8; i >= 0; --i) p.push_back(1.0 - far[i]);
  p.push_back(1.0);
  std::sort(p.begin(), p.end());
  p.erase(std::unique(p.begin(), p.end()), p.end());
  return p;
}

// Order statistic index of level p: the smallest value whose empirical distribution
// function reaches p.
std::int64_t level_index(double p, std::int64_t reps) {
  const double k = std::ceil(p * static_cast<double>(reps) - 1e-9) - 1;
  return std::clamp<std::int64_t>(static_cast<std::int64_t>(k), 0, reps - 1);
}

// Places the order statistics at the sorted indices idx[lo..hi) into position, splitting
// the range at the middle index each time: O(reps log levels), much less than a sort.
void multiselect(float* a, std::int64_t from, std::int64_t to, const std::int64_t* idx, int lo,
                 int hi) {
  if (lo >= hi) return;
  const int mid = (lo + hi) / 2;
  const std::int64_t k = idx[mid];
  std::nth_element(a + from, a + k, a + to);
  multiselect(a, from, k, idx, lo, mid);
  multiselect(a, k + 1, to, idx, mid + 1, hi);
}

const char* const kNames[kMaxStats] = {"rho_zm", "tau_zm", "rho_sm", "tau_sm", "rho_tr", "tau_tr"};

std::string cell_path(const std::string& dir, int d, int n) {
  char name[64];
  std::snprintf(name, sizeof name, "/d%02d_n%05d.csv", d, n);
  return dir + name;
}

// Replications already in a cell's file (0 when there is none or it cannot be read).
std::int64_t stored_reps(const std::string& path) {
  FILE* f = std::fopen(path.c_str(), "r");
  if (!f) return 0;
  long long reps = 0;
  char line[256];
  if (std::fgets(line, sizeof line, f)) {
    const char* at = std::strstr(line, "reps=");
    if (at) reps = std::atoll(at + 5);
  }
  std::fclose(f);
  return reps;
}

struct Options {
  std::string out = "tools/dfsim/data";
  std::uint64_t seed = 20240611;
  int threads = 2;
  std::int64_t reps = 4000000;
  std::int64_t reps_large = 4000000;
  int large_from = 501;
};

bool simulate_cell(const Options& o, int d, int n) {
  const std::string path = cell_path(o.out, d, n);
  const std::int64_t reps = n >= o.large_from ? o.reps_large : o.reps;
  if (stored_reps(path) >= reps) return true;
  const int ns = stat_count(d);
  std::vector<float> data(static_cast<std::size_t>(ns) * static_cast<std::size_t>(reps));
  const std::int64_t chunks = (reps + kChunk - 1) / kChunk;
  std::atomic<std::int64_t> next{0};
  const auto t0 = std::chrono::steady_clock::now();

  auto work = [&] {
    std::vector<double> ring(static_cast<std::size_t>(d));
    Stats st;
    for (std::int64_t c; (c = next++) < chunks;) {
      Xoshiro g(chunk_seed(o.seed, d, n, c));
      const std::int64_t end = std::min(reps, (c + 1) * kChunk);
      for (std::int64_t r = c * kChunk; r < end; ++r) {
        replicate(d, n, g, ring, st, nullptr);
        for (int k = 0; k < ns; ++k) data[static_cast<std::size_t>(k * reps + r)] = static_cast<float>(st.v[k]);
      }
    }
  };
  std::vector<std::thread> pool;
  for (int t = 1; t < o.threads; ++t) pool.emplace_back(work);
  work();
  for (auto& t : pool) t.join();
  const auto t1 = std::chrono::steady_clock::now();

  const std::vector<double> p = levels();
  std::vector<std::int64_t> idx(p.size());
  for (std::size_t i = 0; i < p.size(); ++i) idx[i] = level_index(p[i], reps);
  std::vector<std::int64_t> uidx(idx);
  uidx.erase(std::unique(uidx.begin(), uidx.end()), uidx.end());
  std::atomic<int> nexts{0};
  auto select = [&] {
    for (int k; (k = nexts++) < ns;)
      multiselect(data.data() + static_cast<std::size_t>(k) * reps, 0, reps, uidx.data(), 0,
                  static_cast<int>(uidx.size()));
  };
  pool.clear();
  for (int t = 1; t < o.threads; ++t) pool.emplace_back(select);
  select();
  for (auto& t : pool) t.join();

  const std::string tmp = path + ".tmp";
  FILE* f = std::fopen(tmp.c_str(), "w");
  if (!f) {
    std::fprintf(stderr, "dfsim: cannot write %s\n", tmp.c_str());
    return false;
  }
  std::fprintf(f, "# dfsim d=%d n=%d reps=%lld seed=%llu\n", d, n, static_cast<long long>(reps),
               static_cast<unsigned long long>(o.seed));
  std::fprintf(f, "p");
  for (int k = 0; k < ns; ++k) std::fprintf(f, ",%s", kNames[k]);
  std::fprintf(f, "\n");
  for (std::size_t i = 0; i < p.size(); ++i) {
    std::fprintf(f, "%.10g", p[i]);
    for (int k = 0; k < ns; ++k)
      std::fprintf(f, ",%.7g", static_cast<double>(data[static_cast<std::size_t>(k * reps + idx[i])]));
    std::fprintf(f, "\n");
  }
  const bool ok = std::fflush(f) == 0 && std::ferror(f) == 0;
  std::fclose(f);
  if (!ok || std::rename(tmp.c_str(), path.c_str()) != 0) {
    std::fprintf(stderr, "dfsim: cannot write %s\n", path.c_str());
    return false;
  }
  const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  const double sim = std::chrono::duration<double>(t1 - t0).count();
  std::printf("d=%d n=%d reps=%lld simulate %.1fs total %.1fs\n", d, n, static_cast<long long>(reps),
              sim, secs);
  std::fflush(stdout);
  return true;
}

// The plan: every n of the bands that have one coefficient row per n and of the small
// bands around the period's band limits, then a grid that thins out up to 10,000.
// Small cells come first, so fitting can start while the large ones run.
std::vector<std::pair<int, int>> plan() {
  const int grid[] = {70,  80,  90,  100, 110, 120,  130,  140,  160,  180,  200,  250, 300,
                      350, 400, 500, 600, 800, 1000, 1500, 2000, 3000, 5000, 7000, 10000};
  struct Dense {
    int d, from, every_to, step2_to;
  };
  const Dense dense[] = {{1, 5, 64, 64}, {2, 5, 64, 64}, {4, 8, 64, 64}, {6, 12, 64, 100}, {12, 24, 72, 126}};
  std::vector<std::pair<int, int>> cells;
  for (const auto& x : dense) {
    for (int n = x.from; n <= x.every_to; ++n) cells.emplace_back(x.d, n);
    for (int n = x.every_to + 2; n <= x.step2_to; n += 2) cells.emplace_back(x.d, n);
  }
  // Odd band limits inside the stepped stretches.
  cells.emplace_back(6, 89);
  cells.emplace_back(6, 91);
  cells.emplace_back(12, 119);
  cells.emplace_back(12, 121);
  for (const auto& x : dense)
    for (int n : grid)
      if (n > x.step2_to) cells.emplace_back(x.d, n);
  std::stable_sort(cells.begin(), cells.end(), [](auto a, auto b) { return a.second < b.second; });
  return cells;
}

std::vector<std::pair<int, int>> parse_cells(const char* s) {
  std::vector<std::pair<int, int>> cells;
  while (*s) {
    int d = 0, n = 0, used = 0;
    if (std::sscanf(s, "%d:%d%n", &d, &n, &used) != 2) break;
    cells.emplace_back(d, n);
    s += used;
    if (*s == ',') ++s;
  }
  return cells;
}

bool valid_cell(int d, int n) { return d >= 1 && d <= 12 && n > d && n >= 5 && n <= 1000000; }

int bench(int d, int n, std::int64_t reps) {
  Xoshiro g(chunk_seed(1, d, n, 0));
  std::vector<double> ring(static_cast<std::size_t>(d));
  Stats st;
  double sink = 0;
  const std::clock_t c0 = std::clock();
  const auto t0 = std::chrono::steady_clock::now();
  for (std::int64_t r = 0; r < reps; ++r) {
    replicate(d, n, g, ring, st, nullptr);
    sink += st.v[1];
  }
  // Processor time rather than wall time: on a shared machine it is the figure per core.
  const double cpu = static_cast<double>(std::clock() - c0) / CLOCKS_PER_SEC;
  const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  const double rows = static_cast<double>(reps) * n;
  std::printf("d=%d n=%d reps=%lld: cpu %.3f s (wall %.3f s), %.3g replications/s, %.3g statistics/s,"
              " %.2f ns per row (checksum %.6g)\n",
              d, n, static_cast<long long>(reps), cpu, wall, reps / cpu, reps * stat_count(d) / cpu,
              cpu / rows * 1e9, sink / static_cast<double>(reps));
  return 0;
}

int trace(int d, int n, std::int64_t reps) {
  Xoshiro g(chunk_seed(1, d, n, 0));
  std::vector<double> ring(static_cast<std::size_t>(d));
  Stats st;
  std::vector<double> y;
  for (std::int64_t r = 0; r < reps; ++r) {
    y.assign(static_cast<std::size_t>(d), 0.0);
    replicate(d, n, g, ring, st, &y);
    std::printf("series");
    for (double v : y) std::printf(" %.17g", v);
    std::printf("\nstats");
    for (int k = 0; k < stat_count(d); ++k) std::printf(" %.17g", st.v[k]);
    std::printf("\n");
  }
  return 0;
}

int usage() {
  std::fprintf(stderr,
               "usage: dfsim [--out DIR] [--seed S] [--threads T] [--reps R] [--reps-large R]\n"
               "             [--large-from N] [--cells d:n,...]\n"
               "       dfsim --plan | --bench d n reps | --trace d n reps\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  std::vector<std::pair<int, int>> cells = plan();
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    const bool has = i + 1 < argc;
    if ((a == "--bench" || a == "--trace") && i + 3 < argc) {
      const int d = std::atoi(argv[i + 1]), n = std::atoi(argv[i + 2]);
      const std::int64_t reps = std::atoll(argv[i + 3]);
      if (!valid_cell(d, n) || reps < 1) return usage();
      return a == "--bench" ? bench(d, n, reps) : trace(d, n, reps);
    } else if (a == "--plan") {
      for (auto [d, n] : cells) std::printf("%d:%d\n", d, n);
      return 0;
    } else if (a == "--out" && has) {
      o.out = argv[++i];
    } else if (a == "--seed" && has) {
      o.seed = std::strtoull(argv[++i], nullptr, 10);
    } else if (a == "--threads" && has) {
      o.threads = std::max(1, std::atoi(argv[++i]));
    } else if (a == "--reps" && has) {
      o.reps = std::atoll(argv[++i]);
    } else if (a == "--reps-large" && has) {
      o.reps_large = std::atoll(argv[++i]);
    } else if (a == "--large-from" && has) {
      o.large_from = std::atoi(argv[++i]);
    } else if (a == "--cells" && has) {
      cells = parse_cells(argv[++i]);
    } else {
      return usage();
    }
  }
  if (o.reps < 1 || o.reps_large < 1) return usage();
  for (auto [d, n] : cells)
    if (!valid_cell(d, n)) return usage();
  std::filesystem::create_directories(o.out);
  for (auto [d, n] : cells)
    if (!simulate_cell(o, d, n)) return 1;
  return 0;
}
