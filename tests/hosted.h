// Runs the module's code, linked in statically, against the real host: the
// host's calendar, missing value and diagnostic log.
#ifndef FMSD_TESTS_HOSTED_H
#define FMSD_TESTS_HOSTED_H

#include "fmsd/intervals.h"
#include "fmsd/module.h"
#include "host/host.h"

// One host for the whole test program. It enters the module again on every use,
// because a test may have entered the module into a host of its own since.
inline fmsd::host::Host& hosted() {
  static fmsd::host::Host* host = new fmsd::host::Host();
  mcn_main(host->control_block(), host->process_block());
  return *host;
}

inline bool is_missing(double x) { return fmsd::host::is_missing(x); }

// An interval record built field by field, bypassing the parser; Monday to Friday are worked.
inline zintrec interval(char kind, int code, int mult = 1, int shift = 0) {
  zintrec r{};
  r.kind = kind;
  r.code = static_cast<uint8_t>(code);
  r.mult = static_cast<int16_t>(mult);
  r.shift = static_cast<int16_t>(shift);
  r.nworkdays = 5;
  r.weekend[0] = r.weekend[6] = 1;
  return r;
}

#endif
