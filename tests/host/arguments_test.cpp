// Service arguments and results through the facility table, and one call of a
// real service of the module.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "host/arguments.h"
#include "host/host.h"
#include "host/lists.h"
#include "host/operations.h"

namespace {

using namespace fmsd::host;

class Call : public ::testing::Test {
 protected:
  Host host;
  Arguments args;
  fmsd_fn_posargs* posargs = reinterpret_cast<fmsd_fn_posargs*>(host.function(233, 16));
  fmsd_fn_posretd* posretd = reinterpret_cast<fmsd_fn_posretd*>(host.function(233, 24));
};

std::string text(const fmsd_textarg& t) { return std::string(t.text, static_cast<std::size_t>(t.length)); }

TEST_F(Call, DeliversEveryKindInPlace) {
  args.word(0).text("WORK.AIR").text("SALES").text("DATE").integer(12).word(3).text("OUT");
  CallContext call(host, args);
  fmsd_word lead = -1, options = 0;
  fmsd_textarg in{}, series{}, carried{}, out{};
  int season = -1;
  char season_missing = 9;
  EXPECT_EQ(posargs(call.context(), call.arguments(), 7, 7, FMSD_ARG_WORD, &lead, FMSD_ARG_TEXT, &in, FMSD_ARG_TEXT,
                    &series, FMSD_ARG_TEXT, &carried, FMSD_ARG_INTEGER, &season, &season_missing, FMSD_ARG_WORD,
                    &options, FMSD_ARG_TEXT, &out, FMSD_ARG_INTEGER, nullptr, nullptr),
            0);
  EXPECT_EQ(text(in) + "|" + text(series) + "|" + text(carried) + "|" + text(out), "WORK.AIR|SALES|DATE|OUT");
  EXPECT_EQ(lead, 0);
  EXPECT_EQ(options, 3);
  EXPECT_EQ(season, 12);
  EXPECT_EQ(season_missing, 0);
  EXPECT_TRUE(host.log().empty());
}

TEST_F(Call, ConvertsBetweenNumericKindsAndMissingValues) {
  args.integer(5).number(7.0).missing().missing().missing().number(42.0);
  CallContext call(host, args);
  double five = 0, gap = 0;
  int seven = 0, none = -1;
  char seven_missing = 1, none_missing = 0;
  fmsd_textarg empty{nullptr, -1};
  fmsd_word word = 0;
  EXPECT_EQ(posargs(call.context(), call.arguments(), 6, 6, FMSD_ARG_DOUBLE, &five, FMSD_ARG_INTEGER, &seven,
                    &seven_missing, FMSD_ARG_DOUBLE, &gap, FMSD_ARG_INTEGER, &none, &none_missing, FMSD_ARG_TEXT,
                    &empty, FMSD_ARG_WORD, &word, FMSD_ARG_INTEGER, nullptr, nullptr),
            0);
  EXPECT_EQ(five, 5.0);
  EXPECT_EQ(seven, 7);
  EXPECT_EQ(seven_missing, 0);
  EXPECT_TRUE(is_missing(gap));
  EXPECT_EQ(none_missing, 1);
  EXPECT_EQ(empty.length, 0);
  EXPECT_NE(empty.text, nullptr);
  EXPECT_EQ(word, 42);
}

TEST_F(Call, MismatchesAreRefusedLoggedAndStoreNothing) {
  args.text("WORK.AIR").number(2.5);
  CallContext call(host, args);
  fmsd_textarg name{};
  double d = -1;
  int i = -1;
  char m = 7;
  fmsd_word other = 0;
  void* ctx = call.context();
  void* vec = call.arguments();
  struct Case {
    const char* what;
    int rc;
  } cases[] = {
      {"count differs from the call", posargs(ctx, vec, 1, 1, FMSD_ARG_TEXT, &name, FMSD_ARG_INTEGER, nullptr, nullptr)},
      {"two counts differ", posargs(ctx, vec, 2, 3, FMSD_ARG_TEXT, &name, FMSD_ARG_DOUBLE, &d, FMSD_ARG_INTEGER, nullptr,
                                    nullptr)},
      {"text read as a number",
       posargs(ctx, vec, 2, 2, FMSD_ARG_DOUBLE, &d, FMSD_ARG_DOUBLE, &d, FMSD_ARG_INTEGER, nullptr, nullptr)},
      {"2.5 read as an integer",
       posargs(ctx, vec, 2, 2, FMSD_ARG_TEXT, &name, FMSD_ARG_INTEGER, &i, &m, FMSD_ARG_INTEGER, nullptr, nullptr)},
      {"2.5 read as a word",
       posargs(ctx, vec, 2, 2, FMSD_ARG_TEXT, &name, FMSD_ARG_WORD, &other, FMSD_ARG_INTEGER, nullptr, nullptr)},
      {"unknown kind", posargs(ctx, vec, 2, 2, FMSD_ARG_TEXT, &name, 7, &d, FMSD_ARG_INTEGER, nullptr, nullptr)},
      {"terminator too early", posargs(ctx, vec, 2, 2, FMSD_ARG_TEXT, &name, FMSD_ARG_INTEGER, nullptr, nullptr)},
      {"more descriptors than arguments", posargs(ctx, vec, 2, 2, FMSD_ARG_TEXT, &name, FMSD_ARG_DOUBLE, &d,
                                                  FMSD_ARG_DOUBLE, &d, FMSD_ARG_INTEGER, nullptr, nullptr)},
      {"another argument vector",
       posargs(ctx, &args + 1, 2, 2, FMSD_ARG_TEXT, &name, FMSD_ARG_DOUBLE, &d, FMSD_ARG_INTEGER, nullptr, nullptr)},
      {"not a call context",
       posargs(&other, vec, 2, 2, FMSD_ARG_TEXT, &name, FMSD_ARG_DOUBLE, &d, FMSD_ARG_INTEGER, nullptr, nullptr)},
  };
  for (const auto& c : cases) EXPECT_NE(c.rc, 0) << c.what;
  EXPECT_EQ(host.log().size(), std::size(cases));
  EXPECT_EQ(name.text, nullptr) << "a later mismatch keeps earlier arguments from being stored";
  EXPECT_EQ(d, -1);
  EXPECT_EQ(i, -1);
  EXPECT_EQ(m, 7);
  EXPECT_NE(host.log()[2].find("argument 1"), std::string::npos) << host.log()[2];
}

TEST_F(Call, ResultsGoToTheResultAndOutputPositions) {
  args.text("IN").text("Y").missing().integer(24).word(0).text("OUT").missing().missing();
  CallContext call(host, args);
  EXPECT_EQ(posretd(call.context(), 8, 17, 0), 0);
  EXPECT_EQ(posretd(call.context(), 9, -998, 0), 0);
  EXPECT_NE(posretd(call.context(), 10, 0, 0), 0);
  EXPECT_NE(posretd(call.context(), 0, 0, 0), 0);
  EXPECT_EQ(args.result(8), 17);
  EXPECT_EQ(args.result(), -998);
  EXPECT_FALSE(args.result(1).has_value());
  EXPECT_EQ(host.log().size(), 2u);
}

TEST_F(Call, TheSessionBlockLeadsToTheListRegistry) {
  CallContext call(host, args);
  const auto* context = static_cast<const fmsd_word*>(call.context());
  const auto* session = reinterpret_cast<const fmsd_word*>(context[FMSD_CONTEXT_SESSION]);
  fmsd_word list = 0;
  auto* slnewl = reinterpret_cast<fmsd_fn_slnewl*>(host.function(232, 94));
  EXPECT_EQ(slnewl(&list, session[FMSD_SESSION_LISTS], 84), 0);
  EXPECT_NE(host.lists().find(list), nullptr);
}

// The module's diagnostics service, called as the command line will call it: an
// empty input name is refused with -998 at the position after its arguments.
TEST_F(Call, ARealServiceSetsItsResult) {
  std::string error;
  auto module = Module::load(host, FMSD_TEST_MODULE, error);
  ASSERT_TRUE(module) << error;
  args.text("").text("Y").missing().integer(4).word(0).text("OUT").missing().missing();
  CallContext call(host, args);
  ASSERT_EQ(module->registration().services.size(), 4u);
  EXPECT_EQ(module->registration().services[3](call.context(), call.arguments()), 0);
  EXPECT_EQ(args.result(), -998);
}

}  // namespace
