// The statistics of fit as host list items: one item per statistic in "VALUES" and,
// under the same name, its short label in "NAMES".
#include "services/setfitstats.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "module/hostops.h"

namespace fmsd {
namespace {

constexpr int kAppend = -1;
constexpr int kNewListOption = 84;

enum class Kind { Integer, Short, Double };

struct Row {
  const char* name;
  const char* label;
  Kind kind;
  std::size_t offset;  // of the value in the record
};

constexpr std::size_t statistic(int index) {
  return offsetof(fitstats, stat) + static_cast<std::size_t>(index - 1) * sizeof(double);
}

// The application keys its displays on these labels, "ajdrsq" included.
constexpr Row kRows[] = {
    {"N", "n", Kind::Integer, offsetof(fitstats, n)},
    {"NOBS", "nobs", Kind::Integer, offsetof(fitstats, nobs)},
    {"NMISSA", "nmissa", Kind::Integer, offsetof(fitstats, nmissa)},
    {"NMISSP", "nmissp", Kind::Integer, offsetof(fitstats, nmissp)},
    {"NPARMS", "nparms", Kind::Short, offsetof(fitstats, nparms)},
    {"TSS", "tss", Kind::Double, offsetof(fitstats, tss)},
    {"SST", "sst", Kind::Double, offsetof(fitstats, sst)},
    {"SSE", "sse", Kind::Double, statistic(ZTSS_SSE)},
    {"MSE", "mse", Kind::Double, statistic(ZTSS_MSE)},
    {"RMSE", "rmse", Kind::Double, statistic(ZTSS_RMSE)},
    {"MAPE", "mape", Kind::Double, statistic(ZTSS_MAPE)},
    {"MAE", "mae", Kind::Double, statistic(ZTSS_MAE)},
    {"RSQUARE", "rsquare", Kind::Double, statistic(ZTSS_RSQUARE)},
    {"ADJ_RSQ", "ajdrsq", Kind::Double, statistic(ZTSS_ADJ_RSQ)},
    {"A_ADJ_RSQ", "arsq", Kind::Double, statistic(ZTSS_A_ADJ_RSQ)},
    {"RW_RSQ", "rwrsq", Kind::Double, statistic(ZTSS_RW_RSQ)},
    {"AIC", "aic", Kind::Double, statistic(ZTSS_AIC)},
    {"SBC", "sbc", Kind::Double, statistic(ZTSS_SBC)},
    {"APC", "apc", Kind::Double, statistic(ZTSS_APC)},
    {"MAXERR", "maxerr", Kind::Double, statistic(ZTSS_MAXERR)},
    {"MINERR", "minerr", Kind::Double, statistic(ZTSS_MINERR)},
    {"MAXPE", "maxpe", Kind::Double, statistic(ZTSS_MAXPE)},
    {"MINPE", "minpe", Kind::Double, statistic(ZTSS_MINPE)},
    {"ME", "me", Kind::Double, statistic(ZTSS_ME)},
    {"MPE", "mpe", Kind::Double, statistic(ZTSS_MPE)},
};

int length(const char* text) { return static_cast<int>(std::strlen(text)); }

template <class T>
T field(const fitstats& fs, std::size_t offset) {
  T value;
  std::memcpy(&value, reinterpret_cast<const char*>(&fs) + offset, sizeof value);
  return value;
}

int insert_value(fmsd_word values, const fitstats& fs, const Row& row) {
  const int name_length = length(row.name);
  switch (row.kind) {
    case Kind::Integer: return slinsi(values, field<int32_t>(fs, row.offset), kAppend, row.name, name_length);
    case Kind::Short: return slinss(values, field<int32_t>(fs, row.offset), kAppend, row.name, name_length);
    case Kind::Double: break;
  }
  return slinsd(values, field<double>(fs, row.offset), kAppend, row.name, name_length);
}

}  // namespace

int setfitstats(fmsd_word registry, const fitstats* fs, fmsd_word list) noexcept {
  if (list == 0 || fs == nullptr) return -1;
  fmsd_word names = 0;
  fmsd_word values = 0;
  if (slnewl(&names, registry, kNewListOption) != 0 || names == 0) return -1;
  if (slnewl(&values, registry, kNewListOption) != 0 || values == 0) {
    slfree(names, 1, registry);
    return -1;
  }
  // A sublist that no item took over would stay behind in the registry.
  if (slinsi(list, fs->dfe, kAppend, "DFE", 3) != 0) {
    slfree(names, 1, registry);
    slfree(values, 1, registry);
    return -1;
  }
  if (slinsl(list, names, kAppend, "NAMES", 5) != 0) {
    slfree(names, 1, registry);
    slfree(values, 1, registry);
    return -1;
  }
  if (slinsl(list, values, kAppend, "VALUES", 6) != 0) {
    slfree(values, 1, registry);
    return -1;
  }
  // Every item is attempted, so one refusal does not hide the statistics after it.
  int status = 0;
  for (const Row& row : kRows) {
    status += insert_value(values, *fs, row);
    status += slinsc(names, row.label, length(row.label), kAppend, row.name, length(row.name));
  }
  return status;
}

}  // namespace fmsd
