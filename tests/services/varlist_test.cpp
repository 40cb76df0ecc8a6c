// Variable lists: the keyword codes, the entries read from "VARLIST" lists built by
// the real host from JSON, and the sorting of entries into model roles.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "fmsd/transform.h"
#include "host/json.h"
#include "host/lists.h"
#include "services/varlist.h"
#include "tests/hosted.h"

namespace {

using fmsd::VariableEntry;

int code(int (*lookup)(const char*, int) noexcept, const std::string& text) {
  return lookup(text.data(), static_cast<int>(text.size()));
}

TEST(VariableKeywords, AreMatchedOnEightBlankPaddedCharacters) {
  const char* types[] = {"TIMEID", "ACTUAL", "PREDICT", "UPPER", "LOWER", "ERROR", "STD",     "NERROR",
                         "RESIDUAL", "RESSTD", "NRESID", "REG",   "ADJ",   "SD",    "TC",      "INT"};
  for (int k = 0; k < 16; ++k) EXPECT_EQ(code(fmsd::getvartype, types[k]), k) << types[k];
  // Case counts, and only the first eight characters are looked at.
  for (const char* other : {"timeid", "", "TIMEIDX"}) EXPECT_EQ(code(fmsd::getvartype, other), fmsd::kUnclassified);
  EXPECT_EQ(code(fmsd::getvartype, "ACTUAL  X"), fmsd::kActual);

  const char* curves[] = {"LINEAR", "QUAD", "CUBE", "EXP", "LOG", "HYP", "POW", "LOGIT", "ERT"};
  for (int k = 0; k < 9; ++k) EXPECT_EQ(code(fmsd::gettctype, curves[k]), k + 1) << curves[k];
  EXPECT_EQ(code(fmsd::gettctype, "quad"), fmsd::kLinear);
  EXPECT_EQ(code(fmsd::getinttype, "STEP"), fmsd::kStep);
  EXPECT_EQ(code(fmsd::getinttype, "RAMP"), fmsd::kRamp);
  EXPECT_EQ(code(fmsd::getinttype, "LOGIT"), fmsd::kPoint);
}

class VarList : public ::testing::Test {
 protected:
  void SetUp() override {
    hosted();
    ASSERT_EQ(zintstr("MONTH", 5, &monthly_), ZINT_OK);
  }

  int read(const std::string& json, int capacity) {
    entries_.assign(static_cast<std::size_t>(capacity) + 1, VariableEntry{});
    std::memset(&entries_.back(), 0x5A, sizeof(VariableEntry));
    list_ = {capacity, entries_.data()};
    void* varlist = fmsd::host::json_to_list(hosted().lists(), json).object();
    return fmsd::getvarlist(hosted().lists().word(), &monthly_, 'B', varlist, &list_);
  }

  zintrec monthly_{};
  std::vector<VariableEntry> entries_;
  fmsd::VariableList list_{};
};

std::string name(const char* text, short length) { return std::string(text, static_cast<std::size_t>(length)); }

TEST_F(VarList, EntriesAreFilledFromTheNamedItems) {
  using namespace std::chrono;
  const auto mid_march = (sys_days{1990y / March / 15} - sys_days{1960y / January / 1}).count();
  const auto march = (sys_days{1990y / March / 1} - sys_days{1960y / January / 1}).count();
  const std::string name32(32, 'N');
  ASSERT_EQ(read(R"([
    {"FROM": "GEN", "OLDNAME": "OLD", "VARNAME": "NEW", "VARTYPE": "TC", "VARKIND": "LOGIT",
     "VARDATE": )" + std::to_string(mid_march) + R"(, "TRNSTYPE": "LOG", "TRNSPARM": 2.5, "TRNSOPT": "MEDIAN"},
    "not a sublist", {},
    {"FROM": "INP", "VARTYPE": "INT", "VARKIND": "LOGIT",
     "VARNAME": ")" + name32 + R"(", "OLDNAME": ")" + name32 + R"(X"},
    {"FROM": "FORE", "VARTYPE": "REG", "VARKIND": "STEP"},
    {"FROM": "X"},
    {"FROM": "INPUT"}
  ])",
                 8),
            5);
  const VariableEntry& a = entries_[0];
  EXPECT_EQ(name(a.input_name, a.input_name_length) + " " + name(a.name, a.name_length), "OLD NEW");
  EXPECT_EQ((std::vector<double>{static_cast<double>(a.role), static_cast<double>(a.type), static_cast<double>(a.kind),
                                 a.date, static_cast<double>(a.transform), a.transform_parameter,
                                 static_cast<double>(a.transform_option)}),
            (std::vector<double>{'G', fmsd::kTrendCurve, fmsd::kLogit, static_cast<double>(march), ZTST_LOG, 2.5,
                                 ZTST_MEDIAN}));

  // Names of 32 characters are kept; a longer one leaves the name empty.
  const VariableEntry& b = entries_[1];
  EXPECT_EQ(std::make_pair(b.role, b.kind), (std::pair<char, int>{'I', fmsd::kPoint}));
  EXPECT_EQ(name(b.name, b.name_length), name32);
  EXPECT_EQ(b.input_name_length, 0);
  EXPECT_TRUE(is_missing(b.date) && is_missing(b.transform_parameter));

  EXPECT_EQ(entries_[2].kind, 0) << "only trend curves and interventions have kinds";
  EXPECT_EQ(std::string({entries_[2].role, entries_[3].role, entries_[4].role}), std::string("F\0I", 3));

  // The capacity bounds the entries filled; nothing is written past it.
  EXPECT_EQ(read(R"([{"FROM": "G"}, {"FROM": "G"}, {"FROM": "G"}])", 2), 2);
  EXPECT_EQ(reinterpret_cast<const unsigned char*>(&entries_[2])[0], 0x5A);
}

// ---- roles ------------------------------------------------------------------------------

struct Var {
  int type;
  std::string name = {};
  char role = 0;
  int transform = ZTST_LOG;
};

class Roles : public ::testing::Test {
 protected:
  int sort(const std::vector<Var>& vars, int forecast = 0) {
    entries_.assign(vars.size(), VariableEntry{});
    for (std::size_t i = 0; i < vars.size(); ++i) {
      VariableEntry& e = entries_[i];
      e.type = vars[i].type;
      e.role = vars[i].role;
      e.transform = vars[i].transform;
      e.name_length = static_cast<short>(vars[i].name.size());
      std::memcpy(e.name, vars[i].name.data(), vars[i].name.size());
    }
    table_ = {};
    table_.list = {static_cast<int>(vars.size()), entries_.data()};
    for (auto& g : groups_) g.assign(vars.size(), -1);
    for (int g = 0; g < fmsd::kRoleGroups; ++g) table_.group[g].index = groups_[g].data();
    return fmsd::getunique(&table_, forecast);
  }

  std::vector<int> group(int g) const {
    return std::vector<int>(groups_[g].begin(), groups_[g].begin() + table_.group[g].count);
  }
  int slot(int type) const { return table_.unique[type]; }
  char role(int i) const { return entries_[static_cast<std::size_t>(i)].role; }
  int transform(int i) const { return entries_[static_cast<std::size_t>(i)].transform; }

  std::vector<VariableEntry> entries_;
  std::vector<int16_t> groups_[fmsd::kRoleGroups];
  fmsd::RoleTable table_{};
};

TEST_F(Roles, EachTypeGetsItsSlotOrGroupAndDefaultRole) {
  using namespace fmsd;
  ASSERT_EQ(sort({{kTimeId}, {kActual}, {kPredict}, {kUpper, "", 'I'}, {kLower}, {kError}, {kStd}, {kNError, "", 'I'},
                  {kResidual, "", 'I'}, {kResStd}, {kNResid}, {kRegressor, "", 'G'}, {kAdjustment},
                  {kSeasonalDummy}, {kTrendCurve}, {kIntervention}, {kUnclassified, "Z"}, {kRegressor}},
                 1),
            0);
  for (int type = 0; type < kUniqueTypes; ++type) EXPECT_EQ(slot(type), type);
  EXPECT_EQ(std::string({role(0), role(1), role(2), role(3), role(4), role(5), role(6), role(7), role(8), role(9),
                         role(10), role(11), role(12), role(13), role(14), role(15), role(16)}),
            "IIFIFFFGFFGIIFFFI");
  EXPECT_EQ(group(kRegressors), (std::vector<int>{11, 17}));
  const int single[][2] = {{kAdjustments, 12}, {kSeasonalDummies, 13}, {kTrendCurves, 14}, {kInterventions, 15}, {kOthers, 16}};
  for (const auto& g : single) EXPECT_EQ(group(g[0]), std::vector<int>{g[1]}) << g[0];
  // The time ID and the generated and unclassified groups lose their transformation;
  // the actual series and the regressors keep theirs.
  EXPECT_EQ((std::vector<int>{transform(0), transform(1), transform(11)}), (std::vector<int>{0, ZTST_LOG, ZTST_LOG}));
  for (int i = 12; i <= 16; ++i) EXPECT_EQ(transform(i), 0) << i;
}

TEST_F(Roles, MissingAndRepeatedRolesAreReported) {
  using namespace fmsd;
  EXPECT_EQ(sort({{kActual}}), kRoleMissing);
  EXPECT_EQ(sort({{kTimeId}}), kRoleMissing);
  EXPECT_EQ(sort({{kTimeId}, {kActual}}), 0);
  // The forecast, its limits, error and standard error are needed only when asked for.
  EXPECT_EQ(sort({{kTimeId}, {kActual}, {kPredict}, {kUpper}, {kLower}, {kError}}, 1), kRoleMissing);
  EXPECT_EQ(sort({{kTimeId}, {kActual}, {kUpper}, {kLower}, {kError}, {kStd}}, 1), 0);

  // The first of two actual series keeps the slot.
  EXPECT_EQ(sort({{kTimeId}, {kActual}, {kActual}}), kRoleTwice);
  EXPECT_EQ(slot(kActual), 1);
  EXPECT_EQ(role(2), 0);
  EXPECT_EQ(sort({{kTimeId}, {kActual}, {kActual}, {kUpper}, {kLower}, {kError}}, 1), kRoleMissing);
}

TEST_F(Roles, UnclassifiedEntriesAreClaimedByTheirNames) {
  using namespace fmsd;
  // A lower-case type is unclassified, and then claimed by a name beginning "TIMEID".
  ASSERT_EQ(sort({{kUnclassified, "TIMEID"}, {kUnclassified, "ACT"}, {kUnclassified, "STD"}, {kUnclassified, "W"}}),
            0);
  EXPECT_EQ((std::vector<int>{slot(kTimeId), slot(kActual), slot(kStd), entries_[0].type}),
            (std::vector<int>{0, 1, 2, kTimeId}));
  EXPECT_EQ(role(2), 'I') << "the first pass gave the unclassified entry its role";
  EXPECT_EQ(transform(2), 0);
  EXPECT_EQ(group(kOthers), std::vector<int>{3}) << "claimed entries leave the group";

  // A name longer than a keyword, or a taken slot, claims nothing and ends the pass.
  EXPECT_EQ(sort({{kTimeId}, {kUnclassified, "TIMEIDX"}, {kUnclassified, "ACTUAL"}}), kRoleMissing);
  EXPECT_EQ(group(kOthers), (std::vector<int>{1, 2}));
  EXPECT_EQ(sort({{kTimeId}, {kUnclassified, "TIMEID"}, {kUnclassified, "ACTUAL"}}), kRoleMissing);
  EXPECT_EQ(slot(kTimeId), 0);

  // Seven unique roles taken leave the names alone.
  EXPECT_EQ(sort({{kTimeId}, {kActual}, {kPredict}, {kUpper}, {kLower}, {kError}, {kResStd},
                  {kUnclassified, "STD"}}),
            0);
  EXPECT_EQ(slot(kStd), kNoRole);
}

}  // namespace
