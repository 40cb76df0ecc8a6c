/* The binary contract between the fmsd module and any host that loads it.
 *
 * Everything here is shared by both sides: the word layout of the host blocks
 * the module reads, the memory pool object, and the table of host operations
 * with their facility, slot and C signature.  The module reaches the host only
 * through these; the host fills them.  A word is pointer-sized. */
#ifndef FMSD_HOSTABI_H
#define FMSD_HOSTABI_H

#ifndef __ASSEMBLER__
#include <stddef.h>
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

/* A text argument as posargs delivers it: the first two fields of a data set record. */
typedef struct fmsd_textarg {
  const char *text;
  int length;
} fmsd_textarg;

typedef struct fmsd_list_item fmsd_list_item;
/* The part of a list item the module reads; the host keeps the rest behind it. */
struct fmsd_list_item {
  fmsd_list_item *next;
  char kind;
  char reserved[7];
  double number;
};

/* A host variable descriptor (the module sets a few fields of it, see FMSD_VAR_*). */
typedef struct fmsd_vardesc {
  char format[8];
  char reserved1[4];
  int16_t format_width;
  int16_t format_decimals;
  char reserved2[20];
  int32_t length;
  char reserved3[4];
  int16_t name_length;
  int16_t name_kind;
  char reserved4[16];
  uint8_t type;
  char reserved5[23];
  const char *name;
  const char *label;
  char reserved6[16];
} fmsd_vardesc;

typedef int fmsd_request_fn(fmsd_word *access);


#ifdef __cplusplus
}
#endif
#endif /* __ASSEMBLER__ */

/* ---- host lists ---------------------------------------------------------------------
 * A list is named by a small positive identifier or reached through its object;
 * every list operation takes either form as its list word.  The module walks the
 * object and its items directly. */
#define FMSD_LIST_FIRST 1       /* word: first item */
#define FMSD_LIST_COUNT 2       /* word: number of items */
#define FMSD_LIST_CURSOR 4      /* word: the item a walk stands on (written by walkers) */
#define FMSD_LIST_CURSOR_INDEX 5
#define FMSD_LIST_WORDS 8

/* Kind letters of list items. */
#define FMSD_ITEM_DOUBLE 'N'    /* the double at byte 16 */
#define FMSD_ITEM_INTEGER 'I'   /* numeric, read with slgetnv */
#define FMSD_ITEM_SHORT 'S'     /* 16-bit, read with slgetnv */
#define FMSD_ITEM_TEXT 'C'      /* character, read with slstrng */
#define FMSD_ITEM_LIST 'L'      /* sublist */

/* ---- call context and arguments ---------------------------------------------------- */
#define FMSD_CONTEXT_SESSION 1  /* call context word: the session block */
#define FMSD_SESSION_LISTS 28   /* session block word: the list registry */
#define FMSD_SESSION_WORDS 32

/* posargs kind codes.  Arguments are described by (kind, destination...) and the
 * description ends with FMSD_ARG_INTEGER and two null destinations. */
#define FMSD_ARG_TEXT 1         /* one destination: an fmsd_textarg */
#define FMSD_ARG_DOUBLE 3       /* one destination: a double (missing when absent) */
#define FMSD_ARG_INTEGER 4      /* two destinations: an int and a char set to 1 when missing */
#define FMSD_ARG_WORD 9         /* one destination: a word (a list identifier, say) */

/* ---- data sets ------------------------------------------------------------------------ */
/* Open request block: what the module fills before xoopen (byte offsets). */
#define FMSD_REQUEST_BYTES 640
#define FMSD_REQUEST_LEVEL1 0   /* 8 characters, blank-padded */
#define FMSD_REQUEST_NAMEBLOCK 20  /* 34 bytes: 16-bit length and up to 32 characters */
#define FMSD_REQUEST_LEVEL2 54  /* 8 characters, blank-padded */
#define FMSD_REQUEST_MODE 64    /* int */
#define FMSD_REQUEST_MINUS_ONE 72
#define FMSD_OPEN_INPUT 1
#define FMSD_OPEN_OUTPUT 2
#define FMSD_OPEN_SECOND_INPUT 0x1000001

/* Access block words (the module's side of an open data set). */
#define FMSD_ACCESS_HANDLE 0
#define FMSD_ACCESS_BUFFER 3    /* the observation buffer */
#define FMSD_ACCESS_FLAGS 6
#define FMSD_ACCESS_REQUEST 7
#define FMSD_ACCESS_WORDS 13
#define FMSD_ACCESS_COUNTED 0x40
#define FMSD_REQUEST_READ_NEXT 11

/* Data set handle words (the host's open data set). */
#define FMSD_HANDLE_FUNCTIONS 3 /* request functions: slot 0 reads the next row, slot 3 writes one */
#define FMSD_HANDLE_BUFFER 4
#define FMSD_HANDLE_RESULT 5
#define FMSD_HANDLE_BUFFER_BYTES 8
#define FMSD_HANDLE_ROWS 10
#define FMSD_HANDLE_WORDS 16
#define FMSD_HANDLE_READ_SLOT 0
#define FMSD_HANDLE_WRITE_SLOT 3

/* Request statuses: masked with FMSD_STATUS_MASK, FMSD_STATUS_END means end of data. */
#define FMSD_STATUS_MASK 0x803FFFFF
#define FMSD_STATUS_END 0x801
#define FMSD_STATUS_READ_FAILED 0x802
#define FMSD_STATUS_WRITE_FAILED 0x803
#define FMSD_STATUS_OPEN_FAILED 0x804
#define FMSD_STATUS_NO_VARIABLE 0x805
#define FMSD_STATUS_BAD_REQUEST 0x806
#define FMSD_STATUS_NO_MEMORY 0x807

/* xoinfo attributes. */
#define FMSD_INFO_LOGICAL_ROWS 2
#define FMSD_INFO_ROWS 3
#define FMSD_INFO_VARIABLES 4

/* xoclose option: discard an output data set instead of committing it. */
#define FMSD_CLOSE_DISCARD 65536

/* Variable descriptor byte offsets. */
#define FMSD_VAR_FORMAT 0       /* 8 characters, blank-padded: "DATE", "DATETIME", "BEST" ... */
#define FMSD_VAR_FORMAT_WIDTH 12
#define FMSD_VAR_FORMAT_DECIMALS 14
#define FMSD_VAR_LENGTH 36      /* int: bytes in the observation buffer */
#define FMSD_VAR_NAME_LENGTH 44
#define FMSD_VAR_NAME_KIND 46
#define FMSD_VAR_TYPE 64        /* 1 numeric, 2 character */
#define FMSD_VAR_NAME 88        /* pointer */
#define FMSD_VAR_LABEL 96       /* pointer */
#define FMSD_VAR_BYTES 120
#define FMSD_MESSAGE_GROUP 421  /* the catalogue of the module's labels */

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

#ifndef __ASSEMBLER__
#ifdef __cplusplus
#define FMSD_STATIC_ASSERT(c, m) static_assert(c, m)
#else
#define FMSD_STATIC_ASSERT(c, m) _Static_assert(c, m)
#endif
FMSD_STATIC_ASSERT(offsetof(fmsd_list_item, kind) == 8 && offsetof(fmsd_list_item, number) == 16,
                   "list item layout");
FMSD_STATIC_ASSERT(offsetof(fmsd_vardesc, format_width) == FMSD_VAR_FORMAT_WIDTH &&
                       offsetof(fmsd_vardesc, format_decimals) == FMSD_VAR_FORMAT_DECIMALS &&
                       offsetof(fmsd_vardesc, length) == FMSD_VAR_LENGTH &&
                       offsetof(fmsd_vardesc, name_length) == FMSD_VAR_NAME_LENGTH &&
                       offsetof(fmsd_vardesc, name_kind) == FMSD_VAR_NAME_KIND &&
                       offsetof(fmsd_vardesc, type) == FMSD_VAR_TYPE && offsetof(fmsd_vardesc, name) == FMSD_VAR_NAME &&
                       offsetof(fmsd_vardesc, label) == FMSD_VAR_LABEL && sizeof(fmsd_vardesc) == FMSD_VAR_BYTES,
                   "variable descriptor layout");
#endif

#endif
