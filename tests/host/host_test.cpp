// The host's core with the real module loaded: registration, the use bytes,
// the pool and its fault injection, formatting and diagnostics.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>

#include "host/host.h"

namespace {

using fmsd::host::Host;
using fmsd::host::Module;

template <class F>
F* symbol(const char* name) {
  void* h = ::dlopen(FMSD_TEST_MODULE, RTLD_NOW | RTLD_NOLOAD);
  void* s = h != nullptr ? ::dlsym(h, name) : nullptr;
  if (h != nullptr) ::dlclose(h);
  return reinterpret_cast<F*>(s);
}

class Loaded : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    module = Module::load(host, FMSD_TEST_MODULE, error);
    ASSERT_TRUE(module) << error;
  }
  Host host;
  std::unique_ptr<Module> module;
};

TEST_F(Loaded, RegistersTheFourServicesByName) {
  ASSERT_EQ(host.registrations().size(), 1u);
  const char* names[] = {"modout", "moddata", "mtstran", "mtsscov"};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(module->service_name(i), names[i]);
  EXPECT_EQ(module->registration().task, host.registration_task_word());
  // The 16-byte block handed over at registration stays with the host.
  EXPECT_EQ(host.pool().live_blocks(), 1u);
  EXPECT_EQ(host.pool().live_bytes(), 16u);
  EXPECT_EQ(host.use_byte(0), 1);
}

TEST_F(Loaded, UseByteMarksOnlyTheCalledFacility) {
  host.clear_use_bytes();
  auto* xmemdef = symbol<fmsd_fn_xmemdef>("xmemdef");
  ASSERT_NE(xmemdef, nullptr);
  EXPECT_EQ(xmemdef(), 0);
  for (int f = 0; f < FMSD_FACILITY_COUNT; ++f) EXPECT_EQ(host.use_byte(f), f == 30 ? 1 : 0) << f;
}

TEST_F(Loaded, PoolFaultsReachTheModule) {
  auto* alloc = symbol<void*(fmsd_pool*, fmsd_word, int)>("vmalloc_handler");
  auto* release = symbol<int(fmsd_pool*, void*, fmsd_word, int)>("vmfree_handler");
  auto* xmemdef = symbol<fmsd_fn_xmemdef>("xmemdef");
  fmsd_pool* pool = host.pool().object();

  host.pool().fail_nth(2);
  void* a = alloc(pool, 8, FMSD_POOL_ORDINARY);
  EXPECT_NE(a, nullptr);
  EXPECT_EQ(xmemdef(), 0);
  EXPECT_EQ(alloc(pool, 8, FMSD_POOL_ORDINARY), nullptr);
  EXPECT_NE(xmemdef(), 0);
  void* c = alloc(pool, 8, FMSD_POOL_ORDINARY | FMSD_POOL_ZERO);
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(static_cast<const char*>(c)[7], 0);
  EXPECT_NE(xmemdef(), 0) << "a failure stays reported until the host resets it";
  host.pool().reset_failed();
  EXPECT_EQ(xmemdef(), 0);

  host.pool().fail_after(1);
  void* d = alloc(pool, 8, FMSD_POOL_ORDINARY);
  EXPECT_NE(d, nullptr);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(alloc(pool, 8, FMSD_POOL_ORDINARY), nullptr);
  host.pool().clear_faults();
  EXPECT_NE(alloc(pool, 8, FMSD_POOL_ORDINARY), nullptr);

  EXPECT_EQ(release(pool, a, 0, 4), 0);
  EXPECT_EQ(release(pool, a, 0, 4), -1) << "a block is freed once";
  int local;
  EXPECT_EQ(release(pool, &local, 0, 4), -1);
  EXPECT_EQ(release(pool, nullptr, 0, 4), 0);
  EXPECT_EQ(host.pool().live_blocks(), 4u);  // registration block, c, d and the last one
  host.pool().release_all();
  EXPECT_EQ(host.pool().live_blocks(), 0u);
  EXPECT_EQ(host.pool().live_bytes(), 0u);
}

TEST_F(Loaded, FormattingIsCountedAndBounded) {
  auto* xpsstr = symbol<fmsd_fn_xpsstr>("xpsstr");
  char field[20];
  std::memset(field, ' ', sizeof field);
  EXPECT_EQ(xpsstr(field + 1, 19, "%li", 12L), 2);
  EXPECT_EQ(std::string(field, 5), " 12  ") << "no terminator is written";
  EXPECT_EQ(xpsstr(field, 3, "%li", 123456L), 3);
  EXPECT_EQ(std::string(field, 4), "123 ");
  EXPECT_EQ(xpsstr(field, 0, "%li", 1L), 0);
  char format[20];
  const int n = xpsstr(format, sizeof format, "%*s%i.", 4, "DATE", 9);
  EXPECT_EQ(std::string(format, static_cast<std::size_t>(n)), "DATE9.");
}

TEST_F(Loaded, DiagnosticsAreRecorded) {
  auto* xebug = symbol<fmsd_fn_xebug>("xebug");
  EXPECT_EQ(xebug("zintck2: invalid intcode=%i", 99), 0);
  ASSERT_EQ(host.diagnostics().size(), 1u);
  EXPECT_EQ(host.diagnostics()[0], "zintck2: invalid intcode=99");
}

TEST_F(Loaded, OperationsNotYetBuiltAnswerFailure) {
  auto* slgnd = symbol<fmsd_fn_slgnd>("slgnd");
  double out = 0;
  EXPECT_NE(slgnd(1, "X", 1, 1, 1, &out, nullptr), 0);
  EXPECT_EQ(out, 0);
  EXPECT_TRUE(fmsd::host::is_missing(symbol<fmsd_fn_slgetnv>("slgetnv")(nullptr, 0)));
  EXPECT_EQ(symbol<fmsd_fn_slcopy>("slcopy")(1, 0, 0, 0), 0);
  EXPECT_EQ(symbol<fmsd_fn_slistp>("slistp")(1, 0), nullptr);
}

TEST(Registration, RefusedLeavesTheBlockWithTheHost) {
  Host host;
  host.refuse_registrations(true);
  std::string error;
  EXPECT_FALSE(Module::load(host, FMSD_TEST_MODULE, error));
  EXPECT_NE(error.find("status 4"), std::string::npos) << error;
  EXPECT_TRUE(host.registrations().empty());
  EXPECT_EQ(host.pool().live_blocks(), 1u);
}

TEST(Registration, FollowsTheTaskOverride) {
  Host host;
  fmsd_word other[FMSD_TASK_WORDS] = {};
  other[FMSD_TASK_REGISTRATION] = 4242;
  fmsd_word override_block[FMSD_TASK_WORDS] = {reinterpret_cast<fmsd_word>(other)};
  host.set_task_override(override_block);
  std::string error;
  auto module = Module::load(host, FMSD_TEST_MODULE, error);
  ASSERT_TRUE(module) << error;
  EXPECT_EQ(module->registration().task, 4242);
}

TEST(Registration, RefusesAWrongTaskOrProcess) {
  Host host;
  void* table[4] = {};
  EXPECT_EQ(host.register_services(table, nullptr, 4, host.registration_task_word() + 1, host.process_block()), 0);
  EXPECT_EQ(host.register_services(table, nullptr, 4, host.registration_task_word(), nullptr), 0);
  EXPECT_EQ(host.register_services(nullptr, nullptr, 4, host.registration_task_word(), host.process_block()), 0);
  EXPECT_NE(host.register_services(table, nullptr, 4, host.registration_task_word(), host.process_block()), 0);
}

TEST(Loading, ClearErrorsForWhatIsNotAModule) {
  Host host;
  std::string error;
  EXPECT_FALSE(Module::load(host, "/nonexistent/libfmsd.so", error));
  EXPECT_NE(error.find("/nonexistent/libfmsd.so"), std::string::npos);
  error.clear();
  EXPECT_FALSE(Module::load(host, "libm.so.6", error));
  EXPECT_NE(error.find("mcn_main"), std::string::npos) << error;
}

TEST(Constants, MissingAndBoundsWhereTheModuleReadsThem) {
  Host host;
  const auto* gcb = static_cast<const fmsd_word*>(host.control_block());
  const auto* constants = reinterpret_cast<const unsigned char*>(gcb[FMSD_GCB_CONSTANTS]);
  std::uint64_t missing;
  std::memcpy(&missing, constants + 368, 8);
  EXPECT_EQ(missing >> 48, 0xFFFFu);
  double upper, lower;
  std::memcpy(&upper, constants + 584, 8);
  std::memcpy(&lower, constants + 616, 8);
  EXPECT_GT(upper, 1e300);
  EXPECT_EQ(lower, -upper);
  const auto* upcase = reinterpret_cast<const unsigned char*>(gcb[FMSD_GCB_UPCASE]);
  EXPECT_EQ(upcase['q'], 'Q');
  EXPECT_EQ(upcase['Q'], 'Q');
  EXPECT_EQ(upcase['1'], '1');
  EXPECT_EQ(upcase[0xE9], 0xE9);
}

}  // namespace
