// libFuzzer target: the interval parser and what it feeds.
#include <cstdio>
#include <cstdlib>

#include "fuzz/zintstr_check.h"
#include "host/host.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  static fmsd::host::Host host;
  mcn_main(host.control_block(), host.process_block());
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  if (const char* failure = check_interval_text(data, size)) {
    std::fprintf(stderr, "property failed: %s\n", failure);
    std::abort();
  }
  return 0;
}
