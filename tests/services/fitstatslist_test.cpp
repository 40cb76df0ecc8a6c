// The statistics of fit as host list items, on the real host's lists; the host's
// list operations are bent where a refusal is needed.  The values under each name
// are checked against numpy in the model output service's reference cases.
#include <gtest/gtest.h>

#include <string>

#include "host/host.h"
#include "host/lists.h"
#include "host/operations.h"
#include "services/setfitstats.h"

namespace {

using fmsd::host::List;

// Item names, labels and kinds as the application reads them.
constexpr const char* kItems[][3] = {
    {"N", "n", "I"},           {"NOBS", "nobs", "I"},        {"NMISSA", "nmissa", "I"},  {"NMISSP", "nmissp", "I"},
    {"NPARMS", "nparms", "S"}, {"TSS", "tss", "N"},          {"SST", "sst", "N"},        {"SSE", "sse", "N"},
    {"MSE", "mse", "N"},       {"RMSE", "rmse", "N"},        {"MAPE", "mape", "N"},      {"MAE", "mae", "N"},
    {"RSQUARE", "rsquare", "N"}, {"ADJ_RSQ", "ajdrsq", "N"}, {"A_ADJ_RSQ", "arsq", "N"}, {"RW_RSQ", "rwrsq", "N"},
    {"AIC", "aic", "N"},       {"SBC", "sbc", "N"},          {"APC", "apc", "N"},        {"MAXERR", "maxerr", "N"},
    {"MINERR", "minerr", "N"}, {"MAXPE", "maxpe", "N"},      {"MINPE", "minpe", "N"},    {"ME", "me", "N"},
    {"MPE", "mpe", "N"},
};

// Refuses the insertion of items of one name, or every new list after a count of them.
std::string refused;
int lists_left = -1;
fmsd_fn_slinsd* host_slinsd;
fmsd_fn_slinsl* host_slinsl;
fmsd_fn_slnewl* host_slnewl;

int bent_slinsd(fmsd_word l, double v, int at, const char* n, int len) {
  return std::string(n, static_cast<std::size_t>(len)) == refused ? -1 : host_slinsd(l, v, at, n, len);
}
int bent_slinsl(fmsd_word l, fmsd_word s, int at, const char* n, int len) {
  return std::string(n, static_cast<std::size_t>(len)) == refused ? -1 : host_slinsl(l, s, at, n, len);
}
int bent_slnewl(fmsd_word* out, fmsd_word registry, int option) {
  return lists_left-- == 0 ? -1 : host_slnewl(out, registry, option);
}

class FitStatsList : public ::testing::Test {
 protected:
  void SetUp() override {
    mcn_main(host_.control_block(), host_.process_block());
    host_slinsd = reinterpret_cast<fmsd_fn_slinsd*>(host_.function(232, 77));
    host_slinsl = reinterpret_cast<fmsd_fn_slinsl*>(host_.function(232, 79));
    host_slnewl = reinterpret_cast<fmsd_fn_slnewl*>(host_.function(232, 94));
    fmsd::host::bind<fmsd::host::op::slinsd>(host_, bent_slinsd);
    fmsd::host::bind<fmsd::host::op::slinsl>(host_, bent_slinsl);
    fmsd::host::bind<fmsd::host::op::slnewl>(host_, bent_slnewl);
    refused.clear();
    lists_left = -1;
    fs_.dfe = -3;
    fs_.tss = fs_.sst = fmsd::host::missing_value();
    for (double& s : fs_.stat) s = fmsd::host::missing_value();
  }
  // Into an empty target; the lists the registry holds just before the call.
  int put(std::size_t* lists = nullptr) {
    host_.lists().clear(target_);
    if (lists != nullptr) *lists = host_.lists().size();
    return fmsd::setfitstats(host_.lists().word(), &fs_, target_.id());
  }

  fmsd::host::Host host_;
  List& target_ = host_.lists().create();
  fitstats fs_{};
};

TEST_F(FitStatsList, EveryStatisticIsListedEvenWhenMissing) {
  ASSERT_EQ(put(), 0);
  ASSERT_EQ(target_.size(), 3u);
  EXPECT_EQ(target_.at(1).name, "DFE");
  EXPECT_EQ(target_.at(1).integer, -3);
  const List& names = *target_.at(2).sublist;
  const List& values = *target_.at(3).sublist;
  EXPECT_EQ(target_.at(2).name, "NAMES");
  EXPECT_EQ(target_.at(3).name, "VALUES");
  ASSERT_EQ(names.size(), 25u);
  ASSERT_EQ(values.size(), 25u);
  for (long i = 1; i <= 25; ++i) {
    const auto& item = kItems[i - 1];
    EXPECT_EQ(values.at(i).name, item[0]);
    EXPECT_EQ(values.at(i).kind(), item[2][0]) << item[0];
    EXPECT_EQ(names.at(i).name, item[0]);
    EXPECT_EQ(names.at(i).text, item[1]);
    EXPECT_TRUE(i <= 5 || fmsd::host::is_missing(values.at(i).head.number)) << item[0];
  }
}

TEST_F(FitStatsList, RefusalsAreReported) {
  EXPECT_EQ(fmsd::setfitstats(host_.lists().word(), &fs_, 0), -1);
  // A refused statistic does not stop the ones after it.
  refused = "RMSE";
  EXPECT_NE(put(), 0);
  EXPECT_EQ(target_.at(3).sublist->size(), 24u);
  EXPECT_EQ(target_.at(2).sublist->size(), 25u);
  // Without its frame no statistic is listed, and no list is left behind unheld.
  std::size_t lists = 0;
  refused = "NAMES";
  EXPECT_EQ(put(&lists), -1);
  EXPECT_EQ(host_.lists().size(), lists);
  refused = "VALUES";
  EXPECT_EQ(put(&lists), -1);
  EXPECT_EQ(host_.lists().size(), lists + 1);  // "NAMES", held by the target
  refused.clear();
  for (const int made : {0, 1}) {
    lists_left = made;
    EXPECT_EQ(put(&lists), -1);
    EXPECT_EQ(host_.lists().size(), lists);
    EXPECT_EQ(target_.size(), 0u);
  }
}

}  // namespace
