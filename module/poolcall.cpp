// Pool call-outs: the module's named way into the host pool's two slots.
#include "fmsd/module.h"

extern "C" {

FMSD_API void* vmalloc_handler(fmsd_pool* pool, fmsd_word bytes, int flags) { return pool->alloc(pool, bytes, flags); }

FMSD_API void* vmalcp_handler(fmsd_pool* pool, fmsd_word bytes, int flags) { return pool->alloc(pool, bytes, flags); }

FMSD_API int vmfree_handler(fmsd_pool* pool, void* block, fmsd_word word, int flags) {
  return pool->free(pool, block, word, flags);
}
}
