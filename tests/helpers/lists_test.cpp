// The module's list helpers over real host lists: arrays in and out, list
// algebra, and the interval description of a series.
#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "fmsd/lists.h"
#include "host/host.h"
#include "host/lists.h"
#include "module/hostops.h"

namespace {

using fmsd::host::is_missing;

// One item to put into a list: a double, an integer ('I'), a 16-bit integer ('S'),
// a text ('C') or a sublist ('L'), with an optional name.
struct Entry {
  char kind;
  double x;
  std::string_view text;
  std::string_view name;
};
Entry num(double x, std::string_view name = {}) { return {'N', x, {}, name}; }
Entry whole(int x, std::string_view name = {}) { return {'I', static_cast<double>(x), {}, name}; }
Entry small(int x, std::string_view name = {}) { return {'S', static_cast<double>(x), {}, name}; }
Entry txt(std::string_view t, std::string_view name = {}) { return {'C', 0, t, name}; }
Entry sub(fmsd_word l) { return {'L', static_cast<double>(l), {}, {}}; }

// Numbers as text, a missing value as ".", so that a whole array compares at once.
std::string show(const double* x, int n) {
  std::ostringstream s;
  for (int i = 0; i < n; ++i) {
    if (i > 0) s << ' ';
    if (is_missing(x[i]))
      s << '.';
    else
      s << x[i];
  }
  return s.str();
}
template <typename T>
std::vector<T> first(const T* x, int n) { return std::vector<T>(x, x + n); }

class Lists : public ::testing::Test {
 protected:
  void SetUp() override { mcn_main(host_.control_block(), host_.process_block()); }

  fmsd_word registry() { return host_.lists().word(); }
  void* object(fmsd_word id) { return slistp(id, registry()); }
  fmsd::host::List& list(fmsd_word id) { return host_.lists().get(id); }
  // The item names (or texts) from a position on, separated by blanks.
  std::string names(fmsd_word id, long from = 1, std::string fmsd::host::Item::*field = &fmsd::host::Item::name) {
    std::string s;
    for (long p = from; p <= static_cast<long>(list(id).size()); ++p) s += (p > from ? " " : "") + list(id).at(p).*field;
    return s;
  }

  // Built through the host's list operations, as a list program would.
  fmsd_word make(std::initializer_list<Entry> entries = {}) {
    fmsd_word l = 0;
    EXPECT_EQ(slnewl(&l, registry(), 84), 0);
    for (const Entry& e : entries) {
      const char* n = e.name.data();
      const int nl = static_cast<int>(e.name.size());
      const int x = static_cast<int>(e.x);
      const int rc = e.kind == 'N'   ? slinsd(l, e.x, -1, n, nl)
                     : e.kind == 'I' ? slinsi(l, x, -1, n, nl)
                     : e.kind == 'S' ? slinss(l, x, -1, n, nl)
                     : e.kind == 'L' ? slinsl(l, x, -1, n, nl)
                                     : slinsc(l, e.text.data(), static_cast<int>(e.text.size()), -1, n, nl);
      EXPECT_EQ(rc, 0);
    }
    return l;
  }

  fmsd::host::Host host_;
};

// ---- reading arrays -------------------------------------------------------------------

TEST_F(Lists, NumbersAreReadInListOrder) {
  const fmsd_word l = make({num(1.5), txt("X"), whole(7), small(-3), num(2.5)});
  double out[6];
  EXPECT_EQ(zgetnum(object(l), 6, out), 4);
  EXPECT_EQ(show(out, 6), "1.5 7 -3 2.5 . .");
  // A walk to the end leaves the list's cursor on its last item.
  const auto* words = static_cast<const fmsd_word*>(object(l));
  EXPECT_EQ(words[FMSD_LIST_CURSOR_INDEX], 4);
  EXPECT_EQ(words[FMSD_LIST_CURSOR], reinterpret_cast<fmsd_word>(&list(l).at(5).head));
  EXPECT_EQ(zgetnum(nullptr, 2, out), 0);
  EXPECT_TRUE(is_missing(out[0]));

  const fmsd_word m = make({num(3), num(12), num(host_.missing()), num(-10)});
  int nmissing = -1;
  EXPECT_EQ(zgetnme(object(m), 5, 10.0, out, &nmissing), 4);
  EXPECT_EQ(show(out, 5), "3 . . -10 .");
  EXPECT_EQ(nmissing, 2);
}

TEST_F(Lists, TextsAreCopiedAndMatched) {
  const fmsd_word l = make({txt("TIMEID"), num(5), txt("A_VERY_LONG_NAME"), txt("X")});
  char names[3][8];
  EXPECT_EQ(zgetst8(object(l), 3, names), 3);
  EXPECT_EQ(std::string(names[0], 24), "TIMEID  A_VERY_LX       ");

  // zgetstr stops at a non-text item or at the end, counting what it gathered.
  const char* texts[4] = {};
  int lengths[4] = {};
  int total = -1;
  EXPECT_EQ(zgetstr(object(make({txt("AB"), txt("CDE"), num(1), txt("F")})), 4, texts, lengths, &total), 2);
  EXPECT_EQ(total, 5);
  EXPECT_EQ(std::string(texts[1], static_cast<std::size_t>(lengths[1])), "CDE");
  EXPECT_EQ(zgetstr(object(make({txt("XYZ")})), 3, texts, lengths, &total), 1);
  EXPECT_EQ(total, 3);

  const char* candidates[] = {"PREDICT", "ACTUAL"};
  const int sizes[] = {7, 6};
  int indexes[4];
  EXPECT_EQ(zcmpstr(object(make({txt("ACTUAL"), num(1), txt("ACT"), txt("PREDICT")})), 4, candidates, sizes, 2,
                    indexes),
            3);
  EXPECT_EQ(first(indexes, 4), (std::vector<int>{1, -1, 0, -1}));  // "ACT": same first bytes, other length

  // Against 8-character names the item's own length decides; longer items take no slot.
  const char eight[2][8] = {{'T', 'I', 'M', 'E', 'I', 'D', ' ', ' '}, {'A', 'C', 'T', 'U', 'A', 'L', ' ', ' '}};
  const fmsd_word m = make({txt("TIME"), txt("PREDICTED1"), txt("ACTUAL"), txt("ERROR")});
  EXPECT_EQ(zcmpst8(object(m), 4, eight, 2, indexes), 3);
  EXPECT_EQ(first(indexes, 3), (std::vector<int>{0, 1, -1}));
  EXPECT_EQ(zcmpst8(object(m), 2, eight, 0, indexes), 0);
  EXPECT_EQ(indexes[0], -1);
}

// ---- writing arrays -------------------------------------------------------------------

TEST_F(Lists, NumberedItemsAreNamedAfterThePrefix) {
  const fmsd_word l = make();
  double values[13];
  for (int i = 0; i < 12; ++i) values[i] = i + 0.5;
  EXPECT_EQ(zslinsd(l, values, 12, "A", 1), 0);
  EXPECT_EQ(names(l), "A1 A2 A3 A4 A5 A6 A7 A8 A9 A10 A11 A12");
  EXPECT_EQ(list(l).at(12).head.number, 11.5);
  // A13 is absent: its default is stored and the read reports the failure.
  const double fallback = -1;
  EXPECT_EQ(zslgnd(l, "A", 1, values, 13, &fallback), -1);
  EXPECT_EQ(first(values + 11, 2), (std::vector<double>{11.5, -1}));

  const int ints[2] = {4, 5};
  EXPECT_EQ(zslinss(l, ints, 2, "S", 1), 0);
  EXPECT_EQ(list(l).at(14).kind(), FMSD_ITEM_SHORT);
  // The number goes into what 20 characters leave after the prefix.
  const char twenty[] = "ABCDEFGHIJKLMNOPQRST";
  EXPECT_EQ(zslinsi(l, ints, 2, twenty, 20), 0);
  EXPECT_EQ(zslinsi(l, ints, 2, twenty, 19), 0);
  EXPECT_EQ(names(l, 13), "S1 S2 ABCDEFGHIJKLMNOPQRST ABCDEFGHIJKLMNOPQRST ABCDEFGHIJKLMNOPQRS1 ABCDEFGHIJKLMNOPQRS2");
}

TEST_F(Lists, ValuesAreSetByPosition) {
  const fmsd_word l = make({num(0), num(0), num(0), num(0)});
  const int ints[2] = {8, 9};
  EXPECT_EQ(zslseti(l, 1, ints, 2), 0);
  EXPECT_EQ(zslsets(l, 3, ints, 2), 0);
  int back[4] = {};
  EXPECT_EQ(zslgeti(l, 1, back, 4), 0);
  EXPECT_EQ(first(back, 4), (std::vector<int>{8, 9, 8, 9}));
  // Position 5 does not exist; what was set before the failure stays.
  const double d[3] = {2.5, 3.5, 4.5};
  EXPECT_EQ(zslsetd(l, 3, d, 3), -1);
  EXPECT_EQ(list(l).at(4).head.number, 3.5);
  EXPECT_EQ(zslsetc(l, 3, "V", 1, 2), 0);
  EXPECT_EQ(list(l).at(4).text, "V2");

  // zputstr writes every second item and tells how far it got.
  const fmsd_word t = make({txt("-"), txt("-"), txt("-"), txt("-"), txt("-"), txt("-")});
  const char* texts[] = {"one", "two", "three", "four"};
  const int lengths[] = {3, 3, 5, 4};
  EXPECT_EQ(zputstr(texts, lengths, 1, 3, t), 3);
  EXPECT_EQ(names(t, 1, &fmsd::host::Item::text), "one - two - three -");
  EXPECT_EQ(zputstr(texts, lengths, 2, 4, t), 2);  // the fourth would go to position 8
  EXPECT_EQ(names(t, 1, &fmsd::host::Item::text), "one one two two three three");
  EXPECT_EQ(zputstr(texts, lengths, 7, 1, t), -1);
}

// ---- list algebra ---------------------------------------------------------------------

TEST_F(Lists, ComplementDropsTextsFoundInTheSecondList) {
  const fmsd_word first = make({txt("A"), txt("B", "NAMED"), num(1), txt("C"), txt("B")});
  void* result = nullptr;
  EXPECT_EQ(slcmplc(registry(), object(first), object(make({txt("C"), num(2), txt("B")})), &result), 2);
  ASSERT_NE(result, nullptr);
  const fmsd_word copy = static_cast<const fmsd_word*>(result)[0];
  EXPECT_EQ(list(copy).at(1).text, "A");
  EXPECT_EQ(list(copy).at(2).kind(), FMSD_ITEM_DOUBLE);
  EXPECT_EQ(list(first).size(), 5u);
  EXPECT_EQ(slcmplc(registry(), object(first), object(make()), &result), 5);

  // A copy left empty is freed.
  const fmsd_word all = make({txt("C"), txt("B"), txt("A")});
  const std::size_t before = host_.lists().size();
  EXPECT_EQ(slcmplc(registry(), object(make({txt("A"), txt("B")})), object(all), &result), 0);
  EXPECT_EQ(result, nullptr);
  EXPECT_EQ(host_.lists().size(), before + 1);
  result = &host_;
  EXPECT_EQ(slcmplc(registry(), nullptr, object(all), &result), 0);
  EXPECT_EQ(result, nullptr);
  // A copy the host refuses (here: under the wrong registry) is reported.
  EXPECT_EQ(slcmplc(registry() + 8, object(first), object(all), &result), -1);
}

TEST_F(Lists, RenamesFollowTheOldNewPairs) {
  const fmsd_word renames = make({
      sub(make({txt("X", "OLD"), txt("Y", "NEW")})),
      sub(make({txt("q", "OLD"), txt("Q", "NEW")})),  // the same name in another case
      sub(make({txt("Z", "OLD")})),                   // incomplete
      sub(make({txt("W", "OLD"), txt("", "NEW")})),   // an empty new name
      num(1),                                         // not a sublist
      sub(make({txt("R", "OLD"), txt("RR", "NEW")})),
  });
  const fmsd_word target = make({num(1, "X"), num(2, "Q"), num(3, "x"), num(4, "Z"), num(5, "W"), num(6, "R")});
  EXPECT_EQ(zslsrch(registry(), object(renames), object(target)), 3);
  EXPECT_EQ(names(target), "Y Q Y Z W RR");
  EXPECT_EQ(zslsrch(registry(), object(make()), object(target)), 0);
}

// ---- interval description -------------------------------------------------------------

TEST_F(Lists, IntervalDescriptionIsRead) {
  zintrec rec{};
  zintinfo info{};
  std::memset(info.fmtname, 'x', sizeof info.fmtname);
  const fmsd_word l = make({txt("month", "INTERVAL"), txt("YEAR", "SINTERVAL"), small(12, "NSEASONS")});
  ASSERT_EQ(zkvlint(object(l), &rec, &info), 0);
  EXPECT_EQ((std::vector<int>{rec.code, info.season.code, info.nseasons, info.fmtlen, info.width}),
            (std::vector<int>{ZINT_MONTH, ZINT_YEAR, 12, 5, 7}));
  EXPECT_STREQ(info.fmtname, "MONYY");
  EXPECT_EQ(zkvlint(object(l), nullptr, nullptr), -1);

  // No seasonal interval: the interval record is filled all the same.
  EXPECT_EQ(zkvlint(object(make({txt("QTR", "INTERVAL")})), &rec, &info), -1);
  EXPECT_EQ(rec.code, ZINT_QTR);
  EXPECT_EQ(zkvlint(object(make({txt("FORTNIGHT", "INTERVAL"), txt("YEAR", "SINTERVAL")})), &rec, &info), -1);
  // Without the interval record only the seasonal side is read; an absent NSEASONS stays.
  const fmsd_word seasonal = make({txt("DAY", "SINTERVAL")});
  EXPECT_EQ(zkvlint(object(seasonal), &rec, nullptr), -1);
  EXPECT_EQ(zkvlint(object(seasonal), nullptr, &info), 0);
  EXPECT_EQ((std::vector<int>{info.season.code, info.nseasons}), (std::vector<int>{ZINT_DAY, 12}));
}

TEST_F(Lists, IntervalDescriptionIsWritten) {
  const auto unit_of = [&](const char* interval) {
    zintrec rec{};
    EXPECT_EQ(interval != nullptr ? zintstr(interval, -1, &rec) : 0, 0);
    const fmsd_word l = make();
    EXPECT_EQ(zintkvl(&rec, nullptr, l), 0);
    return list(l).find("TIMEUNIT")->text;
  };
  EXPECT_EQ(unit_of("5"), "N");
  EXPECT_EQ(unit_of("DTDAY"), "DT");
  EXPECT_EQ(unit_of(nullptr), "UND");

  // A description read from one list and written to another.
  const fmsd_word in = make({txt("Month", "INTERVAL"), txt("YEAR", "SINTERVAL"), whole(12, "NSEASONS")});
  zintrec rec{};
  zintinfo info{};
  ASSERT_EQ(zkvlint(object(in), &rec, &info), 0);
  const fmsd_word out = make({txt("old", "INTERVAL")});
  ASSERT_EQ(zintkvl(&rec, &info, out), 0);
  const fmsd::host::List& o = list(out);
  ASSERT_EQ(o.size(), 5u);
  const char* texts[][2] = {{"INTERVAL", "Month"}, {"TIMEUNIT", "D"}, {"SINTERVAL", "YEAR"}};
  for (const auto& t : texts) EXPECT_EQ(o.find(t[0])->text, t[1]) << t[0];
  EXPECT_EQ(o.find("NSEASONS")->integer, 12);
  EXPECT_EQ(o.find("IDFORMAT")->text, "MONYY7.");
  EXPECT_EQ(zintkvl(&rec, &info, 0), -1);
  EXPECT_EQ(zintkvl(nullptr, nullptr, out), -1);
}

}  // namespace
