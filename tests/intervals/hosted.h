// Runs the module's code, linked in statically, against the real host: the
// host's calendar, missing value and diagnostic log.
#ifndef FMSD_TESTS_HOSTED_H
#define FMSD_TESTS_HOSTED_H

#include "fmsd/module.h"
#include "host/host.h"

// One host for the whole test program, entered before any test runs.
inline fmsd::host::Host& hosted() {
  static fmsd::host::Host* host = [] {
    auto* h = new fmsd::host::Host();
    mcn_main(h->control_block(), h->process_block());
    return h;
  }();
  return *host;
}

inline bool is_missing(double x) { return fmsd::host::is_missing(x); }

#endif
