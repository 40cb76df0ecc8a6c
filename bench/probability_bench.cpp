// Time per call of the probability routines over fixed argument sets.
// bench/compare_scipy.sh runs it beside the same calls through scipy.special
// (bench/scipy_peer.py draws the same arguments from the same formula).

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "fmsd/probability.h"
#include "tests/hosted.h"

namespace {

constexpr int kArgs = 4096;

// Argument i of a set: lo + (hi - lo) * frac(i * golden ratio), the low-discrepancy
// sequence the Python peer reproduces.
std::vector<double> spread(double lo, double hi) {
  std::vector<double> v(kArgs);
  for (int i = 0; i < kArgs; ++i) {
    const double g = std::fmod(i * 0.6180339887498949, 1.0);
    v[i] = lo + (hi - lo) * g;
  }
  return v;
}

template <typename F>
void run(benchmark::State& state, F&& call) {
  for (auto _ : state)
    for (int i = 0; i < kArgs; ++i) benchmark::DoNotOptimize(call(i));
  state.SetItemsProcessed(state.iterations() * kArgs);
}

const std::vector<double> kX = spread(-6, 6);
const std::vector<double> kP = spread(1e-6, 1 - 1e-6);
const std::vector<double> kPos = spread(0.01, 20);
const std::vector<double> kShape = spread(0.5, 50);
const std::vector<double> kUnit = spread(0.001, 0.999);
const std::vector<double> kSmall = spread(-0.5, 0.5);

void erf(benchmark::State& s) { run(s, [](int i) { return zferf(kX[i]); }); }
void erfc(benchmark::State& s) { run(s, [](int i) { return zferfc(kX[i]); }); }
void ndtr(benchmark::State& s) { run(s, [](int i) { return zprbnrm(kX[i]); }); }
void ndtri(benchmark::State& s) { run(s, [](int i) { return zprobit(kP[i]); }); }
void log_ndtr(benchmark::State& s) {
  run(s, [](int i) {
    double lo, up, d;
    zlognrm(kX[i], &lo, &up, &d);
    return lo;
  });
}
void mills(benchmark::State& s) {
  run(s, [](int i) {
    double r;
    zmillsr(kX[i], &r);
    return r;
  });
}
void log1p(benchmark::State& s) { run(s, [](int i) { return zln1px(kSmall[i]); }); }
void gammaln(benchmark::State& s) { run(s, [](int i) { return zlgamma(kPos[i]); }); }
void betaln(benchmark::State& s) { run(s, [](int i) { return zlbeta(kShape[i], kPos[i]); }); }
void betainc(benchmark::State& s) {
  run(s, [](int i) {
    double v, d;
    zibeta(kUnit[i], kShape[i], kPos[i], &v, &d);
    return v;
  });
}
void gammainc(benchmark::State& s) {
  run(s, [](int i) {
    double p, q, d;
    zigamma(kPos[i], kShape[i], &p, &q, &d);
    return p;
  });
}
void fdtrc(benchmark::State& s) { run(s, [](int i) { return zprbf(kPos[i], 5, kShape[i]); }); }
void stdtr2(benchmark::State& s) {
  run(s, [](int i) { return zpgt2(kX[i] * kX[i], static_cast<int>(kShape[i])); });
}
void prbigs(benchmark::State& s) { run(s, [](int i) { return zprbigs(kPos[i], kShape[i]); }); }
void log_gammainc(benchmark::State& s) {
  run(s, [](int i) {
    zloggam_rec r{kPos[i], kShape[i], 0, 0, 0, 0};
    zloggam(&r);
    return r.lnp;
  });
}
void log_betainc(benchmark::State& s) {
  run(s, [](int i) {
    zlogbet_rec r{kUnit[i], kShape[i], kPos[i], 0, 0, 0, 0};
    zlogbet(&r);
    return r.lnp;
  });
}
void gamma_logpdf(benchmark::State& s) { run(s, [](int i) { return zldngam(kPos[i], kShape[i]); }); }
void beta_logpdf(benchmark::State& s) { run(s, [](int i) { return zldnbet(kUnit[i], kShape[i], kPos[i]); }); }
void chdtrc(benchmark::State& s) {
  hosted();
  run(s, [](int i) { return zpgx2(kPos[i] * 2, static_cast<int>(kShape[i])); });
}

}  // namespace

// Named after the scipy.special function each is set beside.
BENCHMARK(erf);
BENCHMARK(erfc);
BENCHMARK(ndtr);
BENCHMARK(ndtri);
BENCHMARK(log_ndtr);
BENCHMARK(mills);
BENCHMARK(log1p);
BENCHMARK(gammaln);
BENCHMARK(betaln);
BENCHMARK(betainc);
BENCHMARK(gammainc);
BENCHMARK(fdtrc);
BENCHMARK(stdtr2);
BENCHMARK(chdtrc);
BENCHMARK(prbigs);
BENCHMARK(log_gammainc);
BENCHMARK(log_betainc);
BENCHMARK(gamma_logpdf);
BENCHMARK(beta_logpdf);

BENCHMARK_MAIN();
