// The module's view of the host: its anchors, the host operations (reached
// through the stubs in hoststubs.S) and the pool call-outs.
#ifndef FMSD_MODULE_HOSTOPS_H
#define FMSD_MODULE_HOSTOPS_H

#include "fmsd/hostabi.h"
#include "fmsd/module.h"

extern "C" {
#define FMSD_DECLARE_STUB(name, facility, slot, result, params) result name params;
FMSD_HOST_OPERATIONS(FMSD_DECLARE_STUB)
#undef FMSD_DECLARE_STUB
}

namespace fmsd {

inline fmsd_word gcb_word(int n) noexcept {
  return reinterpret_cast<const fmsd_word*>(v_global_gcb_anchor)[n];
}

inline fmsd_pool* host_pool() noexcept { return reinterpret_cast<fmsd_pool*>(gcb_word(FMSD_GCB_POOL)); }

inline const unsigned char* host_upcase() noexcept {
  return reinterpret_cast<const unsigned char*>(gcb_word(FMSD_GCB_UPCASE));
}

// Host constants are read afresh at each use: the host may change them between calls.
inline double host_constant(int byte_offset) noexcept {
  double v;
  __builtin_memcpy(&v, reinterpret_cast<const char*>(gcb_word(FMSD_GCB_CONSTANTS)) + byte_offset, sizeof v);
  return v;
}

inline double missing() noexcept { return host_constant(FMSD_CONST_MISSING); }

// Allocates from the host pool without a call-out, as the services do.
inline void* pool_alloc(fmsd_word bytes, int flags = FMSD_POOL_ORDINARY) noexcept {
  fmsd_pool* pool = host_pool();
  return pool->alloc(pool, bytes, flags);
}

}  // namespace fmsd

#endif
