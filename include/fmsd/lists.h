/* Moving whole arrays between host lists and the module's arrays, and the interval
 * description of a series in a host list.
 *
 * Readers take the host's list object (as slistp gives it) and walk it directly;
 * writers take a list word (an identifier or an object). */
#ifndef FMSD_LISTS_H
#define FMSD_LISTS_H

#include "fmsd/intervals.h"

#ifdef __cplusplus
extern "C" {
#endif

FMSD_API int zgetnum(void *list, int n, double *out);
FMSD_API int zgetnme(void *list, int n, double threshold, double *out, int *nmissing);
FMSD_API int zgetst8(void *list, int n, char (*names)[8]);
FMSD_API int zgetstr(void *list, int n, const char **texts, int *lengths, int *total);
FMSD_API int zcmpstr(void *list, int n, const char *const *texts, const int *lengths, int m, int *indexes);
FMSD_API int zcmpst8(void *list, int n, const char (*names)[8], int m, int *indexes);

FMSD_API int zslinsd(fmsd_word list, const double *values, int n, const char *prefix, int prefix_length);
FMSD_API int zslinsi(fmsd_word list, const int *values, int n, const char *prefix, int prefix_length);
FMSD_API int zslinss(fmsd_word list, const int *values, int n, const char *prefix, int prefix_length);
FMSD_API int zslgnd(fmsd_word list, const char *prefix, int prefix_length, double *out, int n,
                    const double *default_value);
FMSD_API int zslsetd(fmsd_word list, int start, const double *values, int n);
FMSD_API int zslseti(fmsd_word list, int start, const int *values, int n);
FMSD_API int zslsets(fmsd_word list, int start, const int *values, int n);
FMSD_API int zslgeti(fmsd_word list, int start, int *out, int n);
FMSD_API int zslsetc(fmsd_word list, int start, const char *prefix, int prefix_length, int n);
FMSD_API int zputstr(const char *const *texts, const int *lengths, int start, int n, fmsd_word list);

FMSD_API int slcmplc(fmsd_word registry, void *first, void *second, void **result);
FMSD_API int zslsrch(fmsd_word registry, void *renames, void *target);

FMSD_API int zkvlint(void *list, zintrec *rec, zintinfo *info);
FMSD_API int zintkvl(const zintrec *rec, const zintinfo *info, fmsd_word list);

#ifdef __cplusplus
}
#endif

#endif
