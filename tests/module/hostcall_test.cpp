// The host call table: every operation reaches its own slot under both of its
// names, marks only its facility as used, and passes arguments and results
// through untouched.
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "module/hostops.h"
#include "tests/module/fakehost.h"

extern "C" {
#define DECLARE_LONG_NAME(name, facility, slot, result, params) result _##name##_##facility##_##slot params;
FMSD_HOST_OPERATIONS(DECLARE_LONG_NAME)
#undef DECLARE_LONG_NAME
}

namespace {

int g_called = -1;  // facility * 1000 + slot of the last probe reached

// What each probe answers, distinct per operation so a crossed slot shows.
template <class R>
R answer(int facility, int slot) {
  if constexpr (std::is_pointer_v<R>)
    return reinterpret_cast<R>(static_cast<std::intptr_t>(facility * 1000 + slot));
  else
    return static_cast<R>(facility * 1000 + slot);
}

template <int F, int S, class R>
R reached() {
  g_called = F * 1000 + S;
  return answer<R>(F, S);
}
template <int F, int S, class Fn>
struct Probe;
template <int F, int S, class R, class... A>
struct Probe<F, S, R(A...)> {
  static R call(A...) { return reached<F, S, R>(); }
};
template <int F, int S, class R, class... A>
struct Probe<F, S, R(A..., ...)> {
  static R call(A..., ...) { return reached<F, S, R>(); }
};

template <class R, class... A>
R call_with_zeros(R (*f)(A...)) {
  return f(A{}...);
}
template <class R, class... A>
R call_with_zeros(R (*f)(A..., ...)) {
  return f(A{}...);
}

template <class Fn>
void check(FakeHost& host, const char* name, int facility, int slot, Fn* plain, Fn* long_name) {
  for (Fn* f : {plain, long_name}) {
    std::memset(host.use, 0, sizeof host.use);
    g_called = -1;
    auto r = call_with_zeros(f);
    EXPECT_EQ(g_called, facility * 1000 + slot) << name;
    EXPECT_EQ(r, answer<decltype(r)>(facility, slot)) << name;
    for (int b = 0; b < FMSD_FACILITY_COUNT; ++b) EXPECT_EQ(host.use[b], b == facility ? 1 : 0) << name << " byte " << b;
  }
}

TEST(HostCall, EveryOperationReachesItsSlotUnderBothNames) {
  FakeHost host;
#define BIND_PROBE(name, facility, slot, result, params) \
  host.bind(facility, slot, reinterpret_cast<void*>(&Probe<facility, slot, fmsd_fn_##name>::call));
  FMSD_HOST_OPERATIONS(BIND_PROBE)
#undef BIND_PROBE
#define CHECK_OPERATION(name, facility, slot, result, params) \
  check(host, #name, facility, slot, &name, &_##name##_##facility##_##slot);
  FMSD_HOST_OPERATIONS(CHECK_OPERATION)
#undef CHECK_OPERATION
}

// ---- argument forwarding: more arguments than registers, doubles, variadics -------

char g_seen[256];  // what the last host function was handed

int many_arguments(fmsd_word list, const char* name, int name_length, int o1, int o2, const char** text, int* length,
                   const char* default_text, int default_length) {
  std::snprintf(g_seen, sizeof g_seen, "%ld|%.*s|%d,%d|%.*s", static_cast<long>(list), name_length, name, o1, o2,
                default_length, default_text);
  *text = "value", *length = 5;
  return -77;
}

int two_doubles_and_pointers(double* matrix, int pivot, int order, char* status, const double* diagonal, double tolerance) {
  std::snprintf(g_seen, sizeof g_seen, "%g %d %d %c %g %.17g", matrix[0], pivot, order, status[0], diagonal[0],
                tolerance);
  return 3;
}

int formatted(char* buffer, int size, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int n = std::vsnprintf(buffer, static_cast<std::size_t>(size), format, args);
  va_end(args);
  return n;
}

TEST(HostCall, ArgumentsAndResultsPassUnchanged) {
  FakeHost host;
  host.bind(232, 69, reinterpret_cast<void*>(many_arguments));
  host.bind(11, 39, reinterpret_cast<void*>(two_doubles_and_pointers));
  host.bind(30, 79, reinterpret_cast<void*>(formatted));

  const char* text = nullptr;
  int length = 0;
  EXPECT_EQ(slgnc(-3, "INTERVAL", 8, 1, 1, &text, &length, "DAY", 3), -77);
  EXPECT_STREQ(g_seen, "-3|INTERVAL|1,1|DAY");
  EXPECT_STREQ(text, "value");
  EXPECT_EQ(length, 5);

  double m = 2.5, diag = 4;
  char status = '0';
  EXPECT_EQ(_zsweep_11_39(&m, 1, 7, &status, &diag, 1e-12), 3);
  EXPECT_STREQ(g_seen, "2.5 1 7 0 4 9.9999999999999998e-13");

  // Six integer arguments fill their registers and the ninth double goes on the stack.
  char buf[64];
  EXPECT_EQ(xpsstr(buf, sizeof buf, "%li|%.3f|%s|%d|%g|%g|%g|%g|%g|%g|%g|%g", 12L, 3.14159, "x", 7, 1.0, 2.0, 3.0, 4.0,
                   5.0, 6.0, 7.0, 8.0),
            28);
  EXPECT_STREQ(buf, "12|3.142|x|7|1|2|3|4|5|6|7|8");
}

// vmalloc_handler and vmfree_handler are exercised against the real pool in the host tests.
TEST(PoolCallOuts, CopyAllocationReachesThePool) {
  FakeHost host;
  void* b = vmalcp_handler(&host.pool.abi, 24, 6);
  ASSERT_EQ(host.blocks.size(), 1u);
  EXPECT_EQ(b, host.blocks[0]);
  EXPECT_EQ(host.alloc_flags[0], 6);
}

}  // namespace
