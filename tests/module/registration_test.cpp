// Entry, image information and registration of the service table.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/module/fakehost.h"

namespace {

struct Virv2gCall {
  int calls = 0;
  void* table[4] = {};
  void* block = nullptr;
  int count = 0;
  fmsd_word task = 0;
  void* pidb = nullptr;
  fmsd_word answer = 99;
} g_virv2g;

fmsd_word fake_virv2g(void* const* table, void* block, int count, fmsd_word task, void* pidb) {
  g_virv2g = {g_virv2g.calls + 1, {table[0], table[1], table[2], table[3]}, block, count, task, pidb, g_virv2g.answer};
  return g_virv2g.answer;
}

class Registration : public ::testing::Test {
 protected:
  void SetUp() override {
    g_virv2g = Virv2gCall{};
    host.bind(0, 77, reinterpret_cast<void*>(fake_virv2g));
  }
  int register_with(fmsd_word* status, fmsd_word* handle) {
    fmsd_word request[2] = {reinterpret_cast<fmsd_word>(status), reinterpret_cast<fmsd_word>(handle)};
    return qorfmsd(1, request);
  }
  FakeHost host;
};

TEST_F(Registration, HandsTheFourServicesInOrder) {
  fmsd_word status[2] = {-5, -6}, handle = 0;
  EXPECT_EQ(register_with(status, &handle), 1);
  EXPECT_EQ(handle, 99);
  EXPECT_EQ(status[0], -5);
  ASSERT_EQ(g_virv2g.count, 4);
  const void* services[] = {reinterpret_cast<void*>(modout), reinterpret_cast<void*>(moddata),
                            reinterpret_cast<void*>(mtstran), reinterpret_cast<void*>(mtsscov)};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(g_virv2g.table[i], services[i]) << i;
  EXPECT_EQ(g_virv2g.task, 777);
  EXPECT_EQ(g_virv2g.pidb, host.pidb);
  ASSERT_EQ(host.blocks.size(), 1u);
  EXPECT_EQ(g_virv2g.block, host.blocks[0]);
  EXPECT_EQ(host.alloc_flags[0], 4);
}

TEST_F(Registration, RefusalReportsCodeFourAndTheBlock) {
  g_virv2g.answer = 0;
  fmsd_word status[2] = {0, 0}, handle = 1234;
  EXPECT_EQ(register_with(status, &handle), 0);
  EXPECT_EQ(handle, 0);
  EXPECT_EQ(status[0], 4);
  ASSERT_EQ(host.blocks.size(), 1u);
  EXPECT_EQ(status[1], reinterpret_cast<fmsd_word>(host.blocks[0]));
}

TEST_F(Registration, NullArgumentsTouchNothing) {
  fmsd_word status[2] = {7, 8}, handle = 9;
  fmsd_word request[2] = {reinterpret_cast<fmsd_word>(status), reinterpret_cast<fmsd_word>(&handle)};
  EXPECT_EQ(qorfmsd(0, request), 0);
  EXPECT_EQ(qorfmsd(1, nullptr), 0);
  EXPECT_TRUE(status[0] == 7 && status[1] == 8 && handle == 9);
  EXPECT_EQ(g_virv2g.calls, 0);
  EXPECT_TRUE(host.blocks.empty());
}

TEST_F(Registration, TaskWordFollowsTheOverride) {
  fmsd_word status[2] = {}, handle = 0, self[FMSD_TASK_WORDS] = {1}, other[FMSD_TASK_WORDS] = {},
            pointer[FMSD_TASK_WORDS] = {reinterpret_cast<fmsd_word>(other)};
  self[FMSD_TASK_REGISTRATION] = 111;
  other[FMSD_TASK_REGISTRATION] = 333;
  // An override that says it is the task itself leaves the default task in charge.
  host.gcb[FMSD_GCB_TASK_OVERRIDE] = reinterpret_cast<fmsd_word>(self);
  register_with(status, &handle);
  EXPECT_EQ(g_virv2g.task, 777);

  // An override that points elsewhere hands over the task it points to.
  host.gcb[FMSD_GCB_TASK_OVERRIDE] = reinterpret_cast<fmsd_word>(pointer);
  register_with(status, &handle);
  EXPECT_EQ(g_virv2g.task, 333);

  // Without an override, a default task that points elsewhere is followed too.
  host.gcb[FMSD_GCB_TASK_OVERRIDE] = 0;
  host.task[FMSD_TASK_CURRENT] = reinterpret_cast<fmsd_word>(other);
  register_with(status, &handle);
  EXPECT_EQ(g_virv2g.task, 333);
}

// The marker, magic, routine list and descriptor are proven by the host loading
// the module; these are the parts of the image nothing else reads.
TEST(ImageInformation, TheWordEightTheListEndAndTheFieldsBehindTheDescriptor) {
  std::uint32_t eight;
  std::memcpy(&eight, reinterpret_cast<const char*>(&vi_mcn) + 28, sizeof eight);
  EXPECT_EQ(eight, 8u);
  EXPECT_EQ(mcn_pcns[1], nullptr);
  EXPECT_EQ(_B_ten, reinterpret_cast<const char*>(&pcn_QORFMSD) + sizeof(fmsd_routine_descriptor));
  EXPECT_EQ(_Z_twenty, _B_ten + 10);
  EXPECT_EQ(std::string(_B_ten, 10) + std::string(_Z_twenty, 20), std::string(10, ' ') + std::string(20, '\0'));
}

}  // namespace
