// The host call table: every operation reaches its own slot under both of its
// names, marks only its facility as used, and passes arguments and results
// through untouched.
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <tuple>

#include "module/hostops.h"
#include "tests/module/fakehost.h"

extern "C" {
#define DECLARE_LONG_NAME(name, facility, slot, result, params) result _##name##_##facility##_##slot params;
FMSD_HOST_OPERATIONS(DECLARE_LONG_NAME)
#undef DECLARE_LONG_NAME
}

namespace {

int g_called_facility = -1;
int g_called_slot = -1;

// What each probe answers, distinct per operation so a crossed slot shows.
template <class R>
R answer(int facility, int slot) {
  if constexpr (std::is_same_v<R, double>)
    return facility + slot / 1000.0;
  else if constexpr (std::is_pointer_v<R>)
    return reinterpret_cast<R>(static_cast<std::intptr_t>(facility * 1000 + slot));
  else
    return static_cast<R>(facility * 1000 + slot);
}

template <int F, int S, class Fn>
struct Probe;
template <int F, int S, class R, class... A>
struct Probe<F, S, R(A...)> {
  static R call(A...) {
    g_called_facility = F;
    g_called_slot = S;
    return answer<R>(F, S);
  }
};
template <int F, int S, class R, class... A>
struct Probe<F, S, R(A..., ...)> {
  static R call(A..., ...) {
    g_called_facility = F;
    g_called_slot = S;
    return answer<R>(F, S);
  }
};

template <class R, class... A>
R call_with_zeros(R (*f)(A...)) {
  return f(A{}...);
}
template <class R, class... A>
R call_with_zeros(R (*f)(A..., ...)) {
  return f(A{}...);
}

struct Checker {
  FakeHost& host;
  int checked = 0;

  template <class Fn>
  void check(const char* name, int facility, int slot, Fn* plain, Fn* long_name) {
    using R = decltype(call_with_zeros(plain));
    for (Fn* f : {plain, long_name}) {
      std::memset(host.use, 0, sizeof host.use);
      g_called_facility = g_called_slot = -1;
      const R r = call_with_zeros(f);
      EXPECT_EQ(g_called_facility, facility) << name;
      EXPECT_EQ(g_called_slot, slot) << name;
      EXPECT_EQ(r, answer<R>(facility, slot)) << name;
      for (int b = 0; b < FMSD_FACILITY_COUNT; ++b) EXPECT_EQ(host.use[b], b == facility ? 1 : 0) << name << " byte " << b;
    }
    ++checked;
  }
};

TEST(HostCall, EveryOperationReachesItsSlotUnderBothNames) {
  FakeHost host;
#define BIND_PROBE(name, facility, slot, result, params) \
  host.bind(facility, slot, reinterpret_cast<void*>(&Probe<facility, slot, fmsd_fn_##name>::call));
  FMSD_HOST_OPERATIONS(BIND_PROBE)
#undef BIND_PROBE
  Checker checker{host};
#define CHECK_OPERATION(name, facility, slot, result, params) \
  checker.check(#name, facility, slot, &name, &_##name##_##facility##_##slot);
  FMSD_HOST_OPERATIONS(CHECK_OPERATION)
#undef CHECK_OPERATION
  EXPECT_EQ(checker.checked, FMSD_HOST_OPERATION_COUNT);
}

// ---- argument forwarding: more arguments than registers, doubles, variadics -------

std::string g_seen;

int many_arguments(fmsd_word list, const char* name, int name_length, int o1, int o2, const char** text, int* length,
                   const char* default_text, int default_length) {
  g_seen = std::to_string(list) + "|" + std::string(name, static_cast<std::size_t>(name_length)) + "|" +
           std::to_string(o1) + "," + std::to_string(o2) + "|" + std::string(default_text, static_cast<std::size_t>(default_length));
  *text = "value";
  *length = 5;
  return -77;
}

int double_between_integers(fmsd_word list, double value, int position, const char* name, int name_length) {
  char buf[128];
  std::snprintf(buf, sizeof buf, "%ld %.17g %d %.*s", static_cast<long>(list), value, position, name_length, name);
  g_seen = buf;
  return 5;
}

int two_doubles_and_pointers(double* matrix, int pivot, int order, char* status, const double* diagonal, double tolerance) {
  char buf[128];
  std::snprintf(buf, sizeof buf, "%g %d %d %c %g %.17g", matrix[0], pivot, order, status[0], diagonal[0], tolerance);
  g_seen = buf;
  return 3;
}

double day_count(int month, int day, int year) { return year * 10000.0 + month * 100 + day + 0.25; }

int formatted(char* buffer, int size, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int n = std::vsnprintf(buffer, static_cast<std::size_t>(size), format, args);
  va_end(args);
  return n;
}

int argument_reader(void* context, void* arguments, int count, int count2, ...) {
  va_list args;
  va_start(args, count2);
  g_seen = std::to_string(reinterpret_cast<std::intptr_t>(context)) + " " +
           std::to_string(reinterpret_cast<std::intptr_t>(arguments)) + " " + std::to_string(count) + " " +
           std::to_string(count2);
  for (int i = 0; i < count; ++i) {
    void* destination = va_arg(args, void*);
    const int kind = va_arg(args, int);
    g_seen += " " + std::to_string(reinterpret_cast<std::intptr_t>(destination)) + ":" + std::to_string(kind);
  }
  va_end(args);
  return 0;
}

TEST(HostCall, ArgumentsAndResultsPassUnchanged) {
  FakeHost host;
  host.bind(232, 69, reinterpret_cast<void*>(many_arguments));
  host.bind(232, 77, reinterpret_cast<void*>(double_between_integers));
  host.bind(11, 39, reinterpret_cast<void*>(two_doubles_and_pointers));
  host.bind(31, 302, reinterpret_cast<void*>(day_count));
  host.bind(30, 79, reinterpret_cast<void*>(formatted));
  host.bind(233, 16, reinterpret_cast<void*>(argument_reader));

  const char* text = nullptr;
  int length = 0;
  EXPECT_EQ(slgnc(-3, "INTERVAL", 8, 1, 1, &text, &length, "DAY", 3), -77);
  EXPECT_EQ(g_seen, "-3|INTERVAL|1,1|DAY");
  EXPECT_STREQ(text, "value");
  EXPECT_EQ(length, 5);

  EXPECT_EQ(slinsd(11, -0.1, -1, "ALPHA", 5), 5);
  EXPECT_EQ(g_seen, "11 -0.10000000000000001 -1 ALPHA");

  double m = 2.5, diag = 4;
  char status = '0';
  EXPECT_EQ(_zsweep_11_39(&m, 1, 7, &status, &diag, 1e-12), 3);
  EXPECT_EQ(g_seen, "2.5 1 7 0 4 9.9999999999999998e-13");

  EXPECT_EQ(ziddmdy(12, 31, 20000), 200001231.25);

  char buf[64];
  EXPECT_EQ(xpsstr(buf, sizeof buf, "%li|%.3f|%s|%d|%g|%g|%g|%g|%g|%g|%g|%g", 12L, 3.14159, "x", 7, 1.0, 2.0, 3.0, 4.0,
                   5.0, 6.0, 7.0, 8.0),
            28);
  EXPECT_STREQ(buf, "12|3.142|x|7|1|2|3|4|5|6|7|8");

  int a = 0, b = 0, c = 0, d = 0;
  EXPECT_EQ(posargs(reinterpret_cast<void*>(100), reinterpret_cast<void*>(200), 4, 4, &a, 1, &b, 3, &c, 9, &d, 4), 0);
  EXPECT_EQ(g_seen, "100 200 4 4 " + std::to_string(reinterpret_cast<std::intptr_t>(&a)) + ":1 " +
                        std::to_string(reinterpret_cast<std::intptr_t>(&b)) + ":3 " +
                        std::to_string(reinterpret_cast<std::intptr_t>(&c)) + ":9 " +
                        std::to_string(reinterpret_cast<std::intptr_t>(&d)) + ":4");
}

TEST(PoolCallOuts, ReachTheTwoSlots) {
  FakeHost host;
  fmsd_pool* pool = &host.pool.abi;
  void* a = vmalloc_handler(pool, 16, 4);
  void* b = vmalcp_handler(pool, 24, 6);
  ASSERT_EQ(host.blocks.size(), 2u);
  EXPECT_EQ(a, host.blocks[0]);
  EXPECT_EQ(b, host.blocks[1]);
  EXPECT_EQ(host.alloc_flags[1], 6);
  EXPECT_EQ(vmfree_handler(pool, a, 0, 4), 0);
}

}  // namespace
