// The variables of a forecasting model: the "VARLIST" list turned into variable
// entries, the keyword codes of an entry, and the sorting of the entries into
// the roles of the model.
#ifndef FMSD_SERVICES_VARLIST_H
#define FMSD_SERVICES_VARLIST_H

#include <cstdint>

#include "fmsd/hostabi.h"
#include "fmsd/intervals.h"
#include "services/dataset.h"

namespace fmsd {

// Variable type codes ("VARTYPE"); 0 to 10 occur at most once in a model.
enum VariableType {
  kTimeId = 0,
  kActual = 1,
  kPredict = 2,
  kUpper = 3,
  kLower = 4,
  kError = 5,
  kStd = 6,
  kNError = 7,
  kResidual = 8,
  kResStd = 9,
  kNResid = 10,
  kRegressor = 11,
  kAdjustment = 12,
  kSeasonalDummy = 13,
  kTrendCurve = 14,
  kIntervention = 15,
  kUnclassified = 16
};
inline constexpr int kUniqueTypes = 11;

// Trend-curve kinds ("VARKIND" of a type-14 entry).
enum TrendCurve { kLinear = 1, kQuad = 2, kCube = 3, kExp = 4, kLog = 5, kHyp = 6, kPow = 7, kLogit = 8, kErt = 9 };

// Intervention kinds ("VARKIND" of a type-15 entry).
enum InterventionKind { kPoint = 1, kStep = 2, kRamp = 3 };

// Role letters.
inline constexpr char kRoleInput = 'I';
inline constexpr char kRoleForecast = 'F';
inline constexpr char kRoleGenerate = 'G';

// The entries a service works with: on the way into getvarlist, count is the
// capacity of the array; on the way out, the number of entries filled.
struct VariableList {
  int count;
  VariableEntry* entries;
};

// One open-ended role group: a count and the caller's array of entry indexes.
struct RoleGroup {
  int count;
  int16_t* index;
};

// Role groups, in the order the role table holds them.
enum RoleGroupId {
  kRegressors = 0,
  kAdjustments = 1,
  kInterventions = 2,
  kTrendCurves = 3,
  kSeasonalDummies = 4,
  kOthers = 5,
  kRoleGroups = 6
};

// Unique slot of a role that is absent.
inline constexpr int16_t kNoRole = -99;

// What getunique fills.  The caller sets list and the six group arrays, each with
// room for as many indexes as there are entries.
struct RoleTable {
  VariableList list;
  RoleGroup group[kRoleGroups];
  int16_t unique[kUniqueTypes];
};

// getunique results besides 0.
inline constexpr int kRoleTwice = -1;
inline constexpr int kRoleMissing = -2;

// Fills entries from the sublists of the "VARLIST" list object; returns the
// number filled, which is also left in list->count.  Dates are aligned with
// zintnx3 and the alignment letter.
int getvarlist(fmsd_word registry, const zintrec* interval, char align, void* varlist, VariableList* list) noexcept;

int getvartype(const char* text, int length) noexcept;
int gettctype(const char* text, int length) noexcept;
int getinttype(const char* text, int length) noexcept;

// Sorts the entries into roles; forecast != 0 also requires the forecast, its
// limits, its error and its standard error.  Returns 0, kRoleTwice or kRoleMissing.
int getunique(RoleTable* table, int forecast) noexcept;

}  // namespace fmsd

#endif
