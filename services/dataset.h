// The services' data set records and the helpers that open, count and close them.
#ifndef FMSD_SERVICES_DATASET_H
#define FMSD_SERVICES_DATASET_H

#include <cstddef>

#include "fmsd/hostabi.h"

namespace fmsd {

// One per data set a service touches.  posargs fills name and length; opends the rest.
struct DataSetRecord {
  const char* name;                           // the two-level name as passed, not terminated
  int length;
  unsigned char request[FMSD_REQUEST_BYTES];  // open request block
  fmsd_word access[FMSD_ACCESS_WORDS];        // access block; word 0 is the handle
  int first;                                  // first located observation, relative to the data range
  int last;                                   // last observation on the same scale
  int nobs;                                   // observations; negative when the host cannot tell
  int nvars;
  int unused;
};
static_assert(offsetof(DataSetRecord, length) == 8 && offsetof(DataSetRecord, request) == 12 &&
              offsetof(DataSetRecord, access) == 656 && offsetof(DataSetRecord, first) == 760 &&
              offsetof(DataSetRecord, nobs) == 768 && offsetof(DataSetRecord, nvars) == 772 &&
              sizeof(DataSetRecord) == 784);

// One variable of a service's variable list.  Field order and widths are fixed;
// the doubles and pointers sit on their natural boundaries.
struct VariableEntry {
  short name_length;             // 0 when absent or longer than 32
  char name[32];                 // output name
  int type;                      // variable type code
  int kind;                      // trend-curve or intervention code
  double date;                   // aligned date of the variable; missing when absent
  int transform;                 // transformation code
  double transform_parameter;
  int transform_option;
  char role;                     // 'I' input, 'F' forecast, 'G' generated, 0 none yet
  short input_name_length;
  char input_name[32];
  short input_number;            // variable number in the input data set
  double* slot;                  // the double that carries the value
  const fmsd_vardesc* input;     // descriptor of the matching input variable, or null
};
static_assert(offsetof(VariableEntry, name) == 2 && offsetof(VariableEntry, type) == 36 &&
              offsetof(VariableEntry, date) == 48 && offsetof(VariableEntry, transform_parameter) == 64 &&
              offsetof(VariableEntry, role) == 76 && offsetof(VariableEntry, input_name) == 80 &&
              offsetof(VariableEntry, input_number) == 112 && offsetof(VariableEntry, slot) == 120 &&
              offsetof(VariableEntry, input) == 128 && sizeof(VariableEntry) == 136);

int opends(int mode, DataSetRecord* record) noexcept;
int getdsnobs(fmsd_word* access) noexcept;
void closeds(fmsd_word a, fmsd_word b, fmsd_word c) noexcept;
void getnamestr(const VariableEntry* entry, fmsd_vardesc* descriptor) noexcept;

}  // namespace fmsd

#endif
