/* The binary contract between the fmsd module and any host that loads it.
 *
 * Everything here is shared by both sides: the word layout of the host blocks
 * the module reads, the memory pool object, and the table of host operations
 * with their facility, slot and C signature.  The module reaches the host only
 * through these; the host fills them.  A word is pointer-sized. */
#ifndef FMSD_HOSTABI_H
#define FMSD_HOSTABI_H

#ifndef __ASSEMBLER__
#include <stdint.h>
#endif

/* Word numbers in the global control block. */
#define FMSD_GCB_FACILITIES 0   /* facility vector table */
#define FMSD_GCB_USEBYTES 1     /* one use byte per facility */
#define FMSD_GCB_TASK 4         /* default task block */
#define FMSD_GCB_POOL 5         /* memory pool object */
#define FMSD_GCB_UPCASE 6       /* 256-byte upper-case table */
#define FMSD_GCB_CONSTANTS 9    /* constants block */
#define FMSD_GCB_TASK_OVERRIDE 56
#define FMSD_GCB_WORDS 64

#define FMSD_FACILITY_COUNT 256

/* Byte offsets in the constants block. */
#define FMSD_CONST_MISSING 368
#define FMSD_CONST_UPPER_BOUND 584
#define FMSD_CONST_LOWER_BOUND 616
#define FMSD_CONST_BYTES 640

/* Task block words. */
#define FMSD_TASK_CURRENT 0     /* 1, or the address of the current task block */
#define FMSD_TASK_REGISTRATION 36
#define FMSD_TASK_WORDS 40

/* Pool allocation flags: 4 for an ordinary block; bit 2 asks for zeroed memory. */
#define FMSD_POOL_ORDINARY 4
#define FMSD_POOL_ZERO 2

#ifndef __ASSEMBLER__
#ifdef __cplusplus
extern "C" {
#endif

typedef intptr_t fmsd_word;

/* A counted text as list items hand it out: a pointer and a 16-bit length. */
typedef struct fmsd_text {
  const char *text;
  int16_t length;
} fmsd_text;

typedef struct fmsd_pool fmsd_pool;
typedef void *fmsd_pool_alloc_fn(fmsd_pool *pool, fmsd_word bytes, int flags);
typedef int fmsd_pool_free_fn(fmsd_pool *pool, void *block, fmsd_word word, int flags);

/* The first two words of the host's pool object; the host keeps its own state behind them. */
struct fmsd_pool {
  fmsd_pool_alloc_fn *alloc;
  fmsd_pool_free_fn *free;
};

#ifdef __cplusplus
}
#endif
#endif /* __ASSEMBLER__ */

/* The host operations: X(name, facility, slot, result type, parameter list).
 * A list argument is a list identifier or a list object pointer, as a word. */
#define FMSD_HOST_OPERATIONS(X)                                                                   \
  X(virv2g, 0, 77, fmsd_word, (void *const *table, void *block, int count, fmsd_word task, void *pidb)) \
  X(zscp, 11, 2, int, (const double *row, int order, double weight, double *matrix))               \
  X(zinner, 11, 3, double, (const double *x, const double *y, int n))                              \
  X(zsweep, 11, 39, int,                                                                          \
    (double *matrix, int pivot, int order, char *status, const double *diagonal, double tolerance)) \
  X(xmemdef, 30, 30, int, (void))                                                                 \
  X(xpmstr, 30, 74, int, (char *buffer, int size, int group, int number))                         \
  X(xpsstr, 30, 79, int, (char *buffer, int size, const char *format, ...))                       \
  X(xprrlog, 30, 130, int, (int zero, int status))                                                \
  X(znamdiv, 30, 182, int,                                                                        \
    (int zero, const char *name, int length, fmsd_word *out, int levels, char *first, char *block, char *last)) \
  X(ziddmdy, 31, 302, double, (int month, int day, int year))                                     \
  X(zidmdyd, 31, 303, int, (int *month, int *day, int *year, double date))                        \
  X(xofprc, 39, 39, int, (void *access, int status, int mode))                                    \
  X(xvname, 39, 42, int, (fmsd_word dataset, int variable, void **descriptor))                    \
  X(xebug, 197, 6, int, (const char *format, ...))                                                \
  X(xbyrwnd, 203, 5, int, (fmsd_word dataset, int code))                                          \
  X(xoclose, 203, 11, int, (fmsd_word dataset, int zero))                                         \
  X(xvgett, 203, 23, int, (fmsd_word vector))                                                     \
  X(xvputt, 203, 25, int, (fmsd_word vector))                                                     \
  X(xyvget, 203, 27, int, (fmsd_word vector, int zero))                                           \
  X(xyvput, 203, 28, int, (fmsd_word vector, int zero))                                           \
  X(xoreopn, 203, 45, int, (fmsd_word dataset, int one))                                          \
  X(xoinfo, 203, 50, int, (fmsd_word dataset, int attribute, int *value))                         \
  X(xoopen, 203, 53, int, (fmsd_word * handle, void *request))                                    \
  X(xvallv, 203, 59, int, (fmsd_word dataset, fmsd_word *out))                                    \
  X(xvfind, 203, 60, int, (fmsd_word dataset, const char *name, int length, int *variable, int zero)) \
  X(xvgetd, 203, 61, int,                                                                         \
    (fmsd_word vector, int variable, int zero, double *destination, int size, int width, int z1, int z2)) \
  X(xvgete, 203, 62, int, (fmsd_word vector))                                                     \
  X(xvgeti, 203, 63, int, (fmsd_word dataset, int count, fmsd_word *vector))                      \
  X(xvnamei, 203, 66, int, (void *descriptor))                                                    \
  X(xvputd, 203, 69, int,                                                                         \
    (fmsd_word vector, void *descriptor, int zero, double *source, int size, int z1, int z2))     \
  X(xvpute, 203, 70, int, (fmsd_word vector))                                                     \
  X(xvputi, 203, 71, int, (fmsd_word dataset, int count, int flags, fmsd_word *vector))           \
  X(xvsele, 203, 72, int, (fmsd_word dataset))                                                    \
  X(slclear, 232, 59, int, (fmsd_word list, int option, fmsd_word registry, int zero))            \
  X(slcopy, 232, 60, fmsd_word, (fmsd_word list, int z1, int z2, fmsd_word registry))             \
  X(slditm, 232, 63, int, (fmsd_word list, int position))                                         \
  X(slfree, 232, 66, int, (fmsd_word list, int option, fmsd_word registry))                       \
  X(slgnc, 232, 69, int,                                                                          \
    (fmsd_word list, const char *name, int name_length, int o1, int o2, const char **text,         \
     int *length, const char *default_text, int default_length))                                  \
  X(slgnd, 232, 70, int,                                                                          \
    (fmsd_word list, const char *name, int name_length, int o1, int o2, double *out, const double *default_value)) \
  X(slgni, 232, 71, int,                                                                          \
    (fmsd_word list, const char *name, int name_length, int o1, int o2, int *out, const int *default_value)) \
  X(slgnl, 232, 72, int,                                                                          \
    (fmsd_word list, const char *name, int name_length, int o1, int o2, fmsd_word *out,            \
     const fmsd_word *default_value))                                                             \
  X(slgns, 232, 74, int,                                                                          \
    (fmsd_word list, const char *name, int name_length, int o1, int o2, int16_t *out,              \
     const int16_t *default_value))                                                               \
  X(slinsc, 232, 76, int,                                                                         \
    (fmsd_word list, const char *text, int length, int position, const char *name, int name_length)) \
  X(slinsd, 232, 77, int, (fmsd_word list, double value, int position, const char *name, int name_length)) \
  X(slinsi, 232, 78, int, (fmsd_word list, int value, int position, const char *name, int name_length)) \
  X(slinsl, 232, 79, int,                                                                         \
    (fmsd_word list, fmsd_word sublist, int position, const char *name, int name_length))         \
  X(slinss, 232, 81, int, (fmsd_word list, int value, int position, const char *name, int name_length)) \
  X(slitmc, 232, 85, int, (fmsd_word list, int position, fmsd_text *out))                         \
  X(slitmi, 232, 87, int, (fmsd_word list, int position, int *out))                               \
  X(slitml, 232, 88, int, (fmsd_word list, int position, fmsd_word *out))                         \
  X(slnewl, 232, 94, int, (fmsd_word * out, fmsd_word registry, int option))                      \
  X(slni, 232, 95, int, (fmsd_word list, int position, const char *const *name, const int *name_length)) \
  X(slistp, 232, 96, void *, (fmsd_word list, fmsd_word registry))                                \
  X(slsetc, 232, 109, int, (fmsd_word list, int position, const char *text, int length, int option)) \
  X(slsetd, 232, 110, int, (fmsd_word list, int position, double value, int option))              \
  X(slseti, 232, 111, int, (fmsd_word list, int position, int value, int option))                 \
  X(slsets, 232, 114, int, (fmsd_word list, int position, int value, int option))                 \
  X(slsnc, 232, 116, int,                                                                         \
    (fmsd_word list, const char *text, int length, const char *name, int name_length, int o1, int o2)) \
  X(slsnd, 232, 117, int, (fmsd_word list, double value, const char *name, int name_length, int o1, int o2)) \
  X(slsni, 232, 118, int, (fmsd_word list, int value, const char *name, int name_length, int o1, int o2)) \
  X(slsns, 232, 121, int, (fmsd_word list, int value, const char *name, int name_length, int o1, int o2)) \
  X(slsrchc, 232, 124, int,                                                                       \
    (fmsd_word list, const char *text, int length, int o1, int o2, int o3, int o4))               \
  X(slsrchn, 232, 128, int, (fmsd_word list, const char *name, int name_length, int o1, int start)) \
  X(slstrng, 232, 146, fmsd_text *, (void *item))                                                 \
  X(slgetnv, 232, 149, double, (void *item, int zero))                                            \
  X(posargs, 233, 16, int, (void *context, void *arguments, int count, int count2, ...))          \
  X(posretd, 233, 24, int, (void *context, int position, double value, int zero))

#define FMSD_HOST_OPERATION_COUNT 67

#ifndef __ASSEMBLER__
#ifdef __cplusplus
extern "C" {
#endif
/* fmsd_fn_<name>: the C function type of each host operation. */
#define FMSD_DECLARE_FN_TYPE(name, facility, slot, result, params) typedef result fmsd_fn_##name params;
FMSD_HOST_OPERATIONS(FMSD_DECLARE_FN_TYPE)
#undef FMSD_DECLARE_FN_TYPE
#ifdef __cplusplus
}
#endif
#endif

#endif
