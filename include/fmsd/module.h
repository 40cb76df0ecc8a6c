/* The module's entry, its image-information records and its service entries. */
#ifndef FMSD_MODULE_H
#define FMSD_MODULE_H

#include <stddef.h>
#include <stdint.h>

#include "fmsd/hostabi.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Entry points of the module carry default visibility; everything else in it is hidden. */
#ifndef FMSD_API
#define FMSD_API __attribute__((visibility("default")))
#endif

#define FMSD_IMAGE_MAGIC 0xB0BDEBEDu

/* Image-information block returned by mcn_main. */
typedef struct fmsd_image_info {
  char marker[24];                                /* "QOR_Image_Information=" */
  uint32_t magic;                                 /* FMSD_IMAGE_MAGIC */
  uint32_t eight;                                 /* 8 */
  char version[6];
  char release[20];
  char build_date[26];                            /* "Nov 23 2026" */
  const struct fmsd_routine_descriptor *const *routines; /* mcn_pcns */
  const char *notice;
  char level[4];                                  /* "001" */
} fmsd_image_info;

typedef int fmsd_routine_fn(fmsd_word context, fmsd_word *request);

/* Descriptor of a routine the host may call; the module has one, qorfmsd. */
typedef struct fmsd_routine_descriptor {
  uint32_t kind;        /* 0xFFFF0000 */
  uint32_t size1;       /* 1024 */
  uint32_t size2;       /* 1024 */
  char name[8];         /* blank-padded, no terminator */
  uint32_t reserved;    /* 0 */
  fmsd_routine_fn *routine;
  uint32_t args;        /* 4 */
  uint32_t id;          /* 9683 */
  uint32_t stamp;       /* 0x0243B788 */
  uint32_t flags;       /* 15 */
} fmsd_routine_descriptor;

/* A service entry: (call context, argument vector); always returns 0, its outcome
 * travels in the result position of the call. */
typedef int fmsd_service_fn(void *context, void *arguments);

#define FMSD_SERVICE_COUNT 4

FMSD_API extern void *v_global_gcb_anchor;
FMSD_API extern void *v_global_pidb_anchor;
FMSD_API extern int32_t u_deve;
FMSD_API extern int32_t u_devp;

FMSD_API extern const fmsd_image_info vi_mcn;
FMSD_API extern const fmsd_routine_descriptor *const mcn_pcns[2];
FMSD_API extern const fmsd_routine_descriptor pcn_QORFMSD;
FMSD_API extern const char _B_ten[10];
FMSD_API extern const char _Z_twenty[20];

FMSD_API const fmsd_image_info *mcn_main(void *gcb, void *pidb);
FMSD_API void himodcn(void);
FMSD_API int qorfmsd(fmsd_word context, fmsd_word *request);

FMSD_API int modout(void *context, void *arguments);
FMSD_API int moddata(void *context, void *arguments);
FMSD_API int mtstran(void *context, void *arguments);
FMSD_API int mtsscov(void *context, void *arguments);

FMSD_API void *vmalloc_handler(fmsd_pool *pool, fmsd_word bytes, int flags);
FMSD_API void *vmalcp_handler(fmsd_pool *pool, fmsd_word bytes, int flags);
FMSD_API int vmfree_handler(fmsd_pool *pool, void *block, fmsd_word word, int flags);

#ifdef __cplusplus
}
#endif

#endif
