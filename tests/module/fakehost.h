// A minimal host for module tests: a control block whose facility table the test
// fills with probes, a counting pool and a constants block.
#ifndef FMSD_TESTS_FAKEHOST_H
#define FMSD_TESTS_FAKEHOST_H

#include <bit>
#include <cstdint>
#include <cstring>
#include <vector>

#include "fmsd/hostabi.h"
#include "fmsd/module.h"

struct FakeHost {
  struct PoolObject {
    fmsd_pool abi;
    FakeHost* owner;
  };

  fmsd_word gcb[FMSD_GCB_WORDS] = {};
  void* facilities[FMSD_FACILITY_COUNT] = {};
  std::vector<std::vector<void*>> slots{FMSD_FACILITY_COUNT, std::vector<void*>(512, nullptr)};
  unsigned char use[FMSD_FACILITY_COUNT] = {};
  fmsd_word task[FMSD_TASK_WORDS] = {};
  alignas(8) unsigned char constants[FMSD_CONST_BYTES] = {};
  unsigned char upcase[256];
  PoolObject pool{{alloc, release}, this};
  std::vector<void*> blocks;
  std::vector<int> alloc_flags;
  fmsd_word pidb[4] = {42};

  FakeHost() {
    for (int f = 0; f < FMSD_FACILITY_COUNT; ++f) facilities[f] = slots[static_cast<std::size_t>(f)].data();
    for (int c = 0; c < 256; ++c) upcase[c] = static_cast<unsigned char>(c >= 'a' && c <= 'z' ? c - 32 : c);
    task[FMSD_TASK_CURRENT] = 1;
    task[FMSD_TASK_REGISTRATION] = 777;
    set_double(FMSD_CONST_MISSING, bits(0xFFFF000000000000ull));
    set_double(FMSD_CONST_UPPER_BOUND, 1e300);
    set_double(FMSD_CONST_LOWER_BOUND, -1e300);
    gcb[FMSD_GCB_FACILITIES] = reinterpret_cast<fmsd_word>(facilities);
    gcb[FMSD_GCB_USEBYTES] = reinterpret_cast<fmsd_word>(use);
    gcb[FMSD_GCB_TASK] = reinterpret_cast<fmsd_word>(task);
    gcb[FMSD_GCB_POOL] = reinterpret_cast<fmsd_word>(&pool);
    gcb[FMSD_GCB_UPCASE] = reinterpret_cast<fmsd_word>(upcase);
    gcb[FMSD_GCB_CONSTANTS] = reinterpret_cast<fmsd_word>(constants);
    mcn_main(gcb, pidb);
  }
  ~FakeHost() {
    for (void* b : blocks) ::operator delete(b);
  }

  static double bits(std::uint64_t u) { return std::bit_cast<double>(u); }
  void set_double(int offset, double v) { std::memcpy(constants + offset, &v, sizeof v); }
  void bind(int facility, int slot, void* fn) { slots[static_cast<std::size_t>(facility)][static_cast<std::size_t>(slot)] = fn; }

  static void* alloc(fmsd_pool* p, fmsd_word bytes, int flags) {
    FakeHost* h = reinterpret_cast<PoolObject*>(p)->owner;
    void* b = ::operator new(static_cast<std::size_t>(bytes));
    h->blocks.push_back(b);
    h->alloc_flags.push_back(flags);
    return b;
  }
  static int release(fmsd_pool*, void*, fmsd_word, int) { return 0; }
};

#endif
