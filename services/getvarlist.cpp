// The "VARLIST" list turned into variable entries, the keyword codes of an entry,
// and the sorting of the entries into the roles of a forecasting model.
#include <cstring>

#include "fmsd/transform.h"
#include "module/hostops.h"
#include "services/varlist.h"
#include "util/numeric.h"

namespace fmsd {
namespace {

constexpr int kKeyword = 8;
constexpr int kNameLimit = 32;

// The text in an 8-character field of blanks, compared whole with each keyword in
// turn; the position of the first equal one, or -1.
int keyword(const char* text, int length, const char* const* keywords, int count) {
  char field[kKeyword];
  std::memset(field, ' ', sizeof field);
  if (text != nullptr && length > 0) std::memcpy(field, text, static_cast<std::size_t>(min(length, kKeyword)));
  for (int k = 0; k < count; ++k)
    if (std::memcmp(field, keywords[k], kKeyword) == 0) return k;
  return -1;
}

// The leading part of a keyword that a text of this length is compared over.
bool leads(const char* text, int length, const char* word, int width) {
  return std::memcmp(text, word, static_cast<std::size_t>(min(width, length))) == 0;
}

// "FROM" matches a keyword by its leading characters: "GEN" is "GENERATE".
char role_of(const char* text, int length) {
  if (text == nullptr || length <= 0) return 0;
  if (leads(text, length, "GENERATE", 8)) return kRoleGenerate;
  if (leads(text, length, "INPUT", 5)) return kRoleInput;
  if (leads(text, length, "FORECAST", 8)) return kRoleForecast;
  return 0;
}

struct Text {
  const char* text = nullptr;
  int length = 0;
};

// A character item of the sublist; an empty text when it is absent.
Text text_item(fmsd_word list, const char* name, int length) {
  Text t;
  if (slgnc(list, name, length, 1, 1, &t.text, &t.length, nullptr, 0) != 0 || t.text == nullptr) return Text{};
  if (t.length < 0) t.length = 0;
  return t;
}

// A name of at most 32 characters; a longer or absent one leaves the name empty.
void name_item(fmsd_word list, const char* item, int item_length, char* name, short* name_length) {
  const Text t = text_item(list, item, item_length);
  *name_length = 0;
  if (t.length == 0 || t.length > kNameLimit) return;
  std::memcpy(name, t.text, static_cast<std::size_t>(t.length));
  *name_length = static_cast<short>(t.length);
}

// A double item of the sublist; missing when it is absent.
double number_item(fmsd_word list, const char* name, int length) {
  double x = missing();
  if (slgnd(list, name, length, 1, 1, &x, nullptr) != 0) return missing();
  return x;
}

void fill(fmsd_word list, const zintrec* interval, char align, VariableEntry* e) {
  std::memset(e, 0, sizeof *e);
  const Text from = text_item(list, "FROM", 4);
  e->role = role_of(from.text, from.length);
  name_item(list, "OLDNAME", 7, e->input_name, &e->input_name_length);
  name_item(list, "VARNAME", 7, e->name, &e->name_length);
  const Text type = text_item(list, "VARTYPE", 7);
  e->type = getvartype(type.text, type.length);
  const Text kind = text_item(list, "VARKIND", 7);
  if (e->type == kTrendCurve) e->kind = gettctype(kind.text, kind.length);
  if (e->type == kIntervention) e->kind = getinttype(kind.text, kind.length);
  const char alignment[1] = {align};
  e->date = missing();
  double date = missing();
  if (slgnd(list, "VARDATE", 7, 1, 1, &date, nullptr) == 0) e->date = zintnx3(interval, date, 0, alignment);
  const Text transform = text_item(list, "TRNSTYPE", 8);
  e->transform = ztstnm(transform.text, transform.length);
  e->transform_parameter = number_item(list, "TRNSPARM", 8);
  const Text option = text_item(list, "TRNSOPT", 7);
  e->transform_option = ztstopt(option.text, option.length);
}

// ---- roles --------------------------------------------------------------------------

void append(RoleGroup& group, int i) { group.index[group.count++] = static_cast<int16_t>(i); }

void default_role(VariableEntry& e, char role) {
  if (e.role == 0) e.role = role;
}

// The unique roles that an unclassified entry can take by its output name, in the
// order they are tried, with the role letter each gives and whether it drops the
// entry's transformation.
struct NamedRole {
  const char* keyword;
  int type;
  char role;
  bool untransformed;
};
constexpr NamedRole kNamedRoles[] = {
    {"TIMEID  ", kTimeId, kRoleInput, true},     {"ACTUAL  ", kActual, kRoleInput, false},
    {"PREDICT ", kPredict, kRoleForecast, false}, {"UPPER   ", kUpper, kRoleForecast, false},
    {"LOWER   ", kLower, kRoleForecast, false},   {"ERROR   ", kError, kRoleInput, true},
    {"STD     ", kStd, kRoleForecast, false}};
constexpr int kNamedRoleCount = 7;

// The first named role whose slot is free and whose keyword begins with the
// entry's output name; null when there is none.
const NamedRole* claim(const RoleTable& t, const VariableEntry& e) {
  const int width = min(kKeyword, max(static_cast<int>(e.name_length), 0));
  for (const NamedRole& r : kNamedRoles)
    if (t.unique[r.type] == kNoRole && std::memcmp(e.name, r.keyword, static_cast<std::size_t>(width)) == 0) return &r;
  return nullptr;
}

}  // namespace

int getvartype(const char* text, int length) noexcept {
  static const char* const kTypes[] = {"TIMEID  ", "ACTUAL  ", "PREDICT ", "UPPER   ", "LOWER   ", "ERROR   ",
                                       "STD     ", "NERROR  ", "RESIDUAL", "RESSTD  ", "NRESID  ", "REG     ",
                                       "ADJ     ", "SD      ", "TC      ", "INT     "};
  const int k = keyword(text, length, kTypes, 16);
  return k < 0 ? kUnclassified : k;
}

int gettctype(const char* text, int length) noexcept {
  static const char* const kCurves[] = {"QUAD    ", "CUBE    ", "EXP     ", "LOG     ",
                                        "HYP     ", "POW     ", "LOGIT   ", "ERT     "};
  const int k = keyword(text, length, kCurves, 8);
  return k < 0 ? kLinear : kQuad + k;
}

int getinttype(const char* text, int length) noexcept {
  static const char* const kKinds[] = {"STEP    ", "RAMP    "};
  const int k = keyword(text, length, kKinds, 2);
  return k < 0 ? kPoint : kStep + k;
}

// Walks the list object as the module's list readers do, keeping its cursor on the
// item it stands on; a sublist's identifier is asked for by the item's position.
int getvarlist(fmsd_word registry, const zintrec* interval, char align, void* varlist, VariableList* list) noexcept {
  const int capacity = list->count;
  list->count = 0;
  auto* words = static_cast<fmsd_word*>(varlist);
  const auto list_word = reinterpret_cast<fmsd_word>(varlist);
  const fmsd_word count = words != nullptr ? words[FMSD_LIST_COUNT] : 0;
  auto* item = count > 0 ? reinterpret_cast<fmsd_list_item*>(words[FMSD_LIST_FIRST]) : nullptr;
  for (fmsd_word position = 0; item != nullptr && list->count < capacity; ++position) {
    words[FMSD_LIST_CURSOR_INDEX] = position;
    words[FMSD_LIST_CURSOR] = reinterpret_cast<fmsd_word>(item);
    fmsd_word id = 0;
    if (item->kind == FMSD_ITEM_LIST && slitml(list_word, static_cast<int>(position) + 1, &id) == 0) {
      auto* sublist = static_cast<fmsd_word*>(slistp(id, registry));
      if (sublist != nullptr && sublist[FMSD_LIST_COUNT] > 0)
        fill(reinterpret_cast<fmsd_word>(sublist), interval, align, &list->entries[list->count++]);
    }
    item = position < count - 1 ? item->next : nullptr;
  }
  return list->count;
}

int getunique(RoleTable* table, int forecast) noexcept {
  RoleTable& t = *table;
  for (int16_t& slot : t.unique) slot = kNoRole;
  for (RoleGroup& g : t.group) g.count = 0;
  int result = 0;
  int unique = 0;

  for (int i = 0; i < t.list.count; ++i) {
    VariableEntry& e = t.list.entries[i];
    if (e.type >= kTimeId && e.type <= kNResid) {
      if (t.unique[e.type] != kNoRole) {
        result = kRoleTwice;
        continue;
      }
      t.unique[e.type] = static_cast<int16_t>(i);
    }
    switch (e.type) {
      case kTimeId:
        default_role(e, kRoleInput);
        e.transform = 0;
        ++unique;
        break;
      case kActual:
        default_role(e, kRoleInput);
        ++unique;
        break;
      case kPredict:
      case kUpper:
      case kLower:
      case kError:
      case kStd:
      case kResStd:
        default_role(e, kRoleForecast);
        ++unique;
        break;
      case kNError:
      case kNResid:
        e.role = kRoleGenerate;
        break;
      case kResidual:
        e.role = kRoleForecast;
        break;
      case kRegressor:
        append(t.group[kRegressors], i);
        e.role = kRoleInput;
        break;
      case kAdjustment:
        append(t.group[kAdjustments], i);
        default_role(e, kRoleInput);
        e.transform = 0;
        break;
      case kSeasonalDummy:
      case kTrendCurve:
      case kIntervention:
        append(t.group[e.type == kSeasonalDummy ? kSeasonalDummies
                       : e.type == kTrendCurve  ? kTrendCurves
                                                : kInterventions],
               i);
        default_role(e, kRoleForecast);
        e.transform = 0;
        break;
      default:
        append(t.group[kOthers], i);
        default_role(e, kRoleInput);
        e.transform = 0;
        break;
    }
  }

  // Unclassified entries named like a missing unique role take it, until the first
  // one that cannot.  An entry that takes a role leaves the unclassified group.
  RoleGroup& others = t.group[kOthers];
  int kept = 0;
  int k = 0;
  for (; k < others.count && unique < kNamedRoleCount; ++k) {
    VariableEntry& e = t.list.entries[others.index[k]];
    const NamedRole* r = claim(t, e);
    if (r == nullptr) break;
    t.unique[r->type] = others.index[k];
    e.type = r->type;
    default_role(e, r->role);
    if (r->untransformed) e.transform = 0;
    ++unique;
  }
  for (; k < others.count; ++k) others.index[kept++] = others.index[k];
  others.count = kept;

  if (t.unique[kTimeId] == kNoRole || t.unique[kActual] == kNoRole) return kRoleMissing;
  const bool incomplete = t.unique[kError] == kNoRole || t.unique[kUpper] == kNoRole ||
                          t.unique[kLower] == kNoRole || t.unique[kStd] == kNoRole;
  if (incomplete && forecast != 0) return kRoleMissing;
  return result;
}

}  // namespace fmsd
