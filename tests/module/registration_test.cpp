// Entry, image information and registration of the service table.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

#include "tests/module/fakehost.h"

namespace {

struct Virv2gCall {
  int calls = 0;
  void* table[8] = {};
  void* block = nullptr;
  int count = 0;
  fmsd_word task = 0;
  void* pidb = nullptr;
  fmsd_word answer = 99;
} g_virv2g;

fmsd_word fake_virv2g(void* const* table, void* block, int count, fmsd_word task, void* pidb) {
  ++g_virv2g.calls;
  for (int i = 0; i < count && i < 8; ++i) g_virv2g.table[i] = table[i];
  g_virv2g.block = block;
  g_virv2g.count = count;
  g_virv2g.task = task;
  g_virv2g.pidb = pidb;
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

TEST_F(Registration, EntryKeepsBothAnchorsAndReturnsImage) {
  int gcb = 0, pidb = 0;
  EXPECT_EQ(mcn_main(&gcb, &pidb), &vi_mcn);
  EXPECT_EQ(v_global_gcb_anchor, &gcb);
  EXPECT_EQ(v_global_pidb_anchor, &pidb);
  mcn_main(host.gcb, host.pidb);
}

TEST_F(Registration, HandsTheFourServicesInOrder) {
  fmsd_word status[2] = {-5, -6}, handle = 0;
  EXPECT_EQ(register_with(status, &handle), 1);
  EXPECT_EQ(handle, 99);
  EXPECT_EQ(status[0], -5);
  ASSERT_EQ(g_virv2g.count, 4);
  EXPECT_EQ(g_virv2g.table[0], reinterpret_cast<void*>(modout));
  EXPECT_EQ(g_virv2g.table[1], reinterpret_cast<void*>(moddata));
  EXPECT_EQ(g_virv2g.table[2], reinterpret_cast<void*>(mtstran));
  EXPECT_EQ(g_virv2g.table[3], reinterpret_cast<void*>(mtsscov));
  EXPECT_EQ(g_virv2g.task, 777);
  EXPECT_EQ(g_virv2g.pidb, host.pidb);
  ASSERT_EQ(host.blocks.size(), 1u);
  EXPECT_EQ(g_virv2g.block, host.blocks[0]);
  EXPECT_EQ(host.alloc_flags[0], 4);
  EXPECT_EQ(host.use[0], 1);
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
  EXPECT_EQ(status[0], 7);
  EXPECT_EQ(status[1], 8);
  EXPECT_EQ(handle, 9);
  EXPECT_EQ(g_virv2g.calls, 0);
  EXPECT_TRUE(host.blocks.empty());
}

TEST_F(Registration, TaskWordFollowsTheOverride) {
  fmsd_word status[2] = {}, handle = 0;
  // An override that says it is the task itself leaves the default task in charge.
  fmsd_word self[FMSD_TASK_WORDS] = {1};
  self[FMSD_TASK_REGISTRATION] = 111;
  host.gcb[FMSD_GCB_TASK_OVERRIDE] = reinterpret_cast<fmsd_word>(self);
  register_with(status, &handle);
  EXPECT_EQ(g_virv2g.task, 777);

  // An override that points elsewhere hands over the task it points to.
  fmsd_word other[FMSD_TASK_WORDS] = {};
  other[FMSD_TASK_REGISTRATION] = 333;
  fmsd_word pointer[FMSD_TASK_WORDS] = {reinterpret_cast<fmsd_word>(other)};
  host.gcb[FMSD_GCB_TASK_OVERRIDE] = reinterpret_cast<fmsd_word>(pointer);
  register_with(status, &handle);
  EXPECT_EQ(g_virv2g.task, 333);

  // Without an override, a default task that points elsewhere is followed too.
  host.gcb[FMSD_GCB_TASK_OVERRIDE] = 0;
  host.task[FMSD_TASK_CURRENT] = reinterpret_cast<fmsd_word>(other);
  register_with(status, &handle);
  EXPECT_EQ(g_virv2g.task, 333);
}

TEST(ImageInformation, LayoutAndContent) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(&vi_mcn);
  EXPECT_STREQ(reinterpret_cast<const char*>(bytes), "QOR_Image_Information=");
  std::uint32_t magic, eight;
  std::memcpy(&magic, bytes + 24, 4);
  std::memcpy(&eight, bytes + 28, 4);
  EXPECT_EQ(magic, 0xB0BDEBEDu);
  EXPECT_EQ(eight, 8u);
  const void* routines;
  std::memcpy(&routines, bytes + 88, sizeof routines);
  EXPECT_EQ(routines, static_cast<const void*>(mcn_pcns));
  EXPECT_EQ(mcn_pcns[0], &pcn_QORFMSD);
  EXPECT_EQ(mcn_pcns[1], nullptr);
}

TEST(ImageInformation, RoutineDescriptorAndTheFieldsBehindIt) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(&pcn_QORFMSD);
  EXPECT_EQ(std::memcmp(bytes + 12, "qorfmsd ", 8), 0);
  void* routine;
  std::memcpy(&routine, bytes + 24, sizeof routine);
  EXPECT_EQ(routine, reinterpret_cast<void*>(qorfmsd));

  EXPECT_EQ(reinterpret_cast<const unsigned char*>(_B_ten), bytes + sizeof(fmsd_routine_descriptor));
  EXPECT_EQ(_Z_twenty, _B_ten + 10);
  EXPECT_EQ(std::memcmp(_B_ten, "          ", 10), 0);
  for (char c : _Z_twenty) EXPECT_EQ(c, 0);
}

TEST(ImageInformation, HimodcnAndTheSpareWordsStayInert) {
  himodcn();
  EXPECT_EQ(u_deve, 0);
  EXPECT_EQ(u_devp, 0);
}

}  // namespace
