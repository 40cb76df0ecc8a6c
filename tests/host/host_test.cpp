// The host's core with the real module loaded: registration, the pool and its
// fault injection, formatting and the constants.
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
  // The 16-byte block handed over at registration stays with the host.
  EXPECT_EQ(host.pool().live_blocks(), 1u);
  EXPECT_EQ(host.pool().live_bytes(), 16u);
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
  EXPECT_NE(alloc(pool, 8, FMSD_POOL_ORDINARY), nullptr);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(alloc(pool, 8, FMSD_POOL_ORDINARY), nullptr);
  host.pool().clear_faults();
  EXPECT_NE(alloc(pool, 8, FMSD_POOL_ORDINARY), nullptr);

  EXPECT_EQ(release(pool, a, 0, 4), 0);
  EXPECT_EQ(release(pool, a, 0, 4), -1) << "a block is freed once";
  int local;
  EXPECT_EQ(release(pool, &local, 0, 4), -1);
  EXPECT_EQ(release(pool, nullptr, 0, 4), 0);
  EXPECT_EQ(host.pool().live_blocks(), 4u);  // registration block, c and the two after
  host.pool().release_all();
  EXPECT_EQ(host.pool().live_bytes(), 0u);
}

TEST_F(Loaded, FormattingIsCountedAndBounded) {
  auto* xpsstr = symbol<fmsd_fn_xpsstr>("xpsstr");
  char field[8];
  std::memset(field, ' ', sizeof field);
  EXPECT_EQ(xpsstr(field + 1, 7, "%li", 12L), 2);
  EXPECT_EQ(xpsstr(field + 4, 2, "%li", 123456L), 2);
  EXPECT_EQ(std::string(field, 8), " 12 12  ") << "bounded, and no terminator is written";
  EXPECT_EQ(xpsstr(field, 0, "%li", 1L), 0);
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
  fmsd_word other[FMSD_TASK_WORDS] = {}, override_block[FMSD_TASK_WORDS] = {reinterpret_cast<fmsd_word>(other)};
  other[FMSD_TASK_REGISTRATION] = 4242;
  host.set_task_override(override_block);
  std::string error;
  auto module = Module::load(host, FMSD_TEST_MODULE, error);
  ASSERT_TRUE(module) << error;
  EXPECT_EQ(module->registration().task, 4242);
}

TEST(Registration, RefusesAWrongTaskOrProcess) {
  Host host;
  void* table[4] = {};
  const fmsd_word task = host.registration_task_word();
  EXPECT_EQ(host.register_services(table, nullptr, 4, task + 1, host.process_block()), 0);
  EXPECT_EQ(host.register_services(table, nullptr, 4, task, nullptr), 0);
  EXPECT_EQ(host.register_services(nullptr, nullptr, 4, task, host.process_block()), 0);
  EXPECT_NE(host.register_services(table, nullptr, 4, task, host.process_block()), 0);
}

// A path that cannot be loaded at all is covered by the command-line test.
TEST(Loading, ClearErrorForALibraryThatIsNotAModule) {
  Host host;
  std::string error;
  EXPECT_FALSE(Module::load(host, "libm.so.6", error));
  EXPECT_NE(error.find("mcn_main"), std::string::npos) << error;
}

TEST(Constants, MissingAndBoundsWhereTheModuleReadsThem) {
  Host host;
  const auto* constants =
      reinterpret_cast<const unsigned char*>(static_cast<const fmsd_word*>(host.control_block())[FMSD_GCB_CONSTANTS]);
  double missing, upper, lower;
  std::memcpy(&missing, constants + FMSD_CONST_MISSING, 8);
  std::memcpy(&upper, constants + FMSD_CONST_UPPER_BOUND, 8);
  std::memcpy(&lower, constants + FMSD_CONST_LOWER_BOUND, 8);
  EXPECT_TRUE(fmsd::host::is_missing(missing));
  EXPECT_GT(upper, 1e300);
  EXPECT_EQ(lower, -upper);
}

}  // namespace
