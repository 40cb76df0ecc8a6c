// Host lists through the facility table, as the module reaches them, and JSON
// parameter lists.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

#include "host/json.h"
#include "host/lists.h"
#include "host/operations.h"

namespace {

using namespace fmsd::host;

class Lists : public ::testing::Test {
 protected:
  template <class Op>
  typename Op::type* op() {
    return reinterpret_cast<typename Op::type*>(host.function(Op::facility, Op::slot));
  }
  fmsd_word make() {
    fmsd_word id = 0;
    EXPECT_EQ(op<op::slnewl>()(&id, reg, 84), 0);
    return id;
  }
  // Walks the object as the module's readers do, reading values through slgetnv
  // and slstrng: "N2.5 I7 Cabc L".
  std::string walk(fmsd_word list) {
    auto* w = static_cast<fmsd_word*>(op<op::slistp>()(list, reg));
    if (w == nullptr) return "?";
    std::ostringstream out;
    out.precision(10);
    w[FMSD_LIST_CURSOR_INDEX] = 0;
    w[FMSD_LIST_CURSOR] = w[FMSD_LIST_FIRST];
    for (auto* item = reinterpret_cast<fmsd_list_item*>(w[FMSD_LIST_CURSOR]); item != nullptr;) {
      out << (w[FMSD_LIST_CURSOR_INDEX] ? " " : "") << item->kind;
      if (item->kind == 'N') is_missing(item->number) ? out << '.' : out << item->number;
      if (item->kind == 'I' || item->kind == 'S') out << op<op::slgetnv>()(item, 0);
      if (item->kind == 'C') {
        const fmsd_text* t = op<op::slstrng>()(item);
        out << std::string(t->text, static_cast<std::size_t>(t->length));
      }
      if (w[FMSD_LIST_CURSOR_INDEX] == w[FMSD_LIST_COUNT] - 1) {
        EXPECT_EQ(item->next, nullptr);
        EXPECT_EQ(reinterpret_cast<fmsd_word>(item), w[kListLast]);
        break;
      }
      ++w[FMSD_LIST_CURSOR_INDEX];
      item = item->next;
      w[FMSD_LIST_CURSOR] = reinterpret_cast<fmsd_word>(item);
    }
    return out.str();
  }
  std::string last_log() const { return host.log().empty() ? "" : host.log().back(); }

  Host host;
  fmsd_word reg = host.lists().word();
};

TEST_F(Lists, ObjectWordsFollowEveryChange) {
  const fmsd_word l = make();
  auto* w = static_cast<fmsd_word*>(op<op::slistp>()(l, reg));
  ASSERT_NE(w, nullptr);
  EXPECT_EQ(w[0], l);
  const auto empty = [&] { return w[FMSD_LIST_FIRST] == 0 && w[FMSD_LIST_COUNT] == 0 && w[kListLast] == 0; };
  EXPECT_TRUE(empty());
  EXPECT_EQ(op<op::slinsd>()(l, 2.5, -1, "A", 1), 0);
  EXPECT_EQ(op<op::slinsc>()(l, "abc", 3, 1, "B", 1), 0);           // front
  EXPECT_EQ(op<op::slinsi>()(l, 7, 2, "C", 1), 0);                  // middle
  EXPECT_EQ(op<op::slinss>()(l, -3, 4, nullptr, 0), 0);             // count + 1 appends
  EXPECT_EQ(walk(l), "Cabc I7 N2.5 S-3");
  // A walker left its cursor on the last item; deleting it must not leave the cursor dangling.
  EXPECT_EQ(op<op::slditm>()(l, 4), 0);
  EXPECT_EQ(w[FMSD_LIST_COUNT], 3);
  EXPECT_TRUE(w[FMSD_LIST_CURSOR_INDEX] == 0 && w[FMSD_LIST_CURSOR] == w[FMSD_LIST_FIRST]);
  EXPECT_EQ(op<op::slditm>()(l, 1), 0);
  EXPECT_EQ(walk(l), "I7 N2.5");
  EXPECT_EQ(op<op::slclear>()(l, 128, reg, 0), 0);
  EXPECT_TRUE(empty());
}

TEST_F(Lists, WordsAreIdentifiersOrLiveObjectsOnly) {
  const fmsd_word l = make();
  const auto obj = reinterpret_cast<fmsd_word>(op<op::slistp>()(l, reg));
  EXPECT_EQ(op<op::slinsi>()(obj, 5, -1, "N", 1), 0);
  int v = 0;
  EXPECT_EQ(op<op::slitmi>()(l, 1, &v), 0);
  EXPECT_EQ(v, 5);
  // A block shaped like a list object, and a freed list, are refused without being read.
  fmsd_word fake[FMSD_LIST_WORDS] = {l, obj, 1};
  EXPECT_NE(op<op::slitmi>()(reinterpret_cast<fmsd_word>(fake), 1, &v), 0);
  fmsd_list_item fake_item{nullptr, 'C', {}, 0};
  EXPECT_EQ(op<op::slstrng>()(&fake_item), nullptr);
  EXPECT_TRUE(is_missing(op<op::slgetnv>()(&fake_item, 0)));
  auto* item = reinterpret_cast<fmsd_list_item*>(reinterpret_cast<fmsd_word*>(obj)[FMSD_LIST_FIRST]);
  EXPECT_EQ(op<op::slgetnv>()(item, 0), 5.0);
  EXPECT_EQ(op<op::slfree>()(l, 1, reg), 0);
  EXPECT_NE(op<op::slinsi>()(obj, 5, -1, "N", 1), 0);
  EXPECT_NE(op<op::slinsi>()(l, 5, -1, "N", 1), 0);
  EXPECT_TRUE(is_missing(op<op::slgetnv>()(item, 0)));
  EXPECT_NE(last_log().find("no list item"), std::string::npos) << last_log();
  // The registry word must be this host's.
  fmsd_word other = 0;
  EXPECT_NE(op<op::slnewl>()(&other, reg + 8, 84), 0);
  EXPECT_EQ(op<op::slistp>()(make(), 0), nullptr);
}

TEST_F(Lists, GetByNameFindsFullNamesIgnoringCaseAndOtherwiseGivesTheDefault) {
  const fmsd_word l = make();
  op<op::slinsc>()(l, "MONTH", 5, -1, "INTERVAL", 8);
  op<op::slinsd>()(l, 12.0, -1, "NSEASONS", 8);
  const char* text = nullptr;
  int length = -1;
  EXPECT_EQ(op<op::slgnc>()(l, "interval", 8, 1, 1, &text, &length, nullptr, 0), 0);
  EXPECT_EQ(std::string(text, static_cast<std::size_t>(length)), "MONTH");
  for (const char* name : {"INTERVA", "INTERVALS"}) {
    text = nullptr;
    EXPECT_EQ(op<op::slgnc>()(l, name, static_cast<int>(std::strlen(name)), 1, 1, &text, &length, nullptr, 0), 1);
    EXPECT_EQ(text, nullptr) << "no default given: the output stays";
  }
  EXPECT_EQ(op<op::slgnc>()(l, "ALIGN", 5, 1, 1, &text, &length, "BEGIN", 5), 1);
  EXPECT_EQ(std::string(text, static_cast<std::size_t>(length)), "BEGIN");
  const double fallback = -1;
  double d = 0;
  EXPECT_EQ(op<op::slgnd>()(l, "LEAD", 4, 1, 1, &d, &fallback), 1);
  EXPECT_EQ(d, -1);
  // An item of the wrong kind is reported, and the default still applies.
  const std::size_t logged = host.log().size();
  EXPECT_EQ(op<op::slgnd>()(l, "INTERVAL", 8, 1, 1, &d, &fallback), 2);
  EXPECT_EQ(d, -1);
  ASSERT_EQ(host.log().size(), logged + 1);
  EXPECT_NE(last_log().find("\"INTERVAL\""), std::string::npos) << last_log();
  fmsd_word sub = 0;
  const fmsd_word none = 0;
  EXPECT_EQ(op<op::slgnl>()(l, "VARLIST", 7, 1, 1, &sub, &none), 1);
  EXPECT_EQ(sub, 0);
}

TEST_F(Lists, NumericKindsConvertWhenTheValueFits) {
  const fmsd_word l = make();
  op<op::slinsd>()(l, 12.0, -1, "WHOLE", 5);
  op<op::slinsd>()(l, 12.5, -1, "HALF", 4);
  op<op::slinsd>()(l, 3e9, -1, "BIG", 3);
  op<op::slinsi>()(l, 40000, -1, "WIDE", 4);
  op<op::slinsi>()(l, -300, -1, "NARROW", 6);
  op<op::slinsd>()(l, missing_value(), -1, "GAP", 3);
  int i = 0;
  std::int16_t s = 0;
  double d = 0;
  EXPECT_EQ(op<op::slgni>()(l, "WHOLE", 5, 1, 1, &i, nullptr), 0);
  EXPECT_EQ(i, 12);
  EXPECT_EQ(op<op::slgni>()(l, "HALF", 4, 1, 1, &i, nullptr), 2);
  EXPECT_EQ(op<op::slgni>()(l, "BIG", 3, 1, 1, &i, nullptr), 2);
  EXPECT_EQ(op<op::slgns>()(l, "WIDE", 4, 1, 1, &s, nullptr), 2);
  EXPECT_EQ(op<op::slgns>()(l, "NARROW", 6, 1, 1, &s, nullptr), 0);
  EXPECT_EQ(s, -300);
  EXPECT_EQ(op<op::slgnd>()(l, "WIDE", 4, 1, 1, &d, nullptr), 0);
  EXPECT_EQ(d, 40000.0);
  // A missing value is a double like any other, but no integer: it counts as absent.
  EXPECT_EQ(op<op::slgnd>()(l, "GAP", 3, 1, 1, &d, nullptr), 0);
  EXPECT_TRUE(is_missing(d));
  const int fallback = 9;
  EXPECT_EQ(op<op::slgni>()(l, "GAP", 3, 1, 1, &i, &fallback), 1);
  EXPECT_EQ(i, 9);
  EXPECT_EQ(op<op::slitmi>()(l, 1, &i), 0);
  EXPECT_EQ(op<op::slitmi>()(l, 2, &i), -1);
  EXPECT_NE(op<op::slinss>()(l, 40000, -1, "S", 1), 0);
  EXPECT_NE(op<op::slsets>()(l, 1, -32769, 1), 0);
  EXPECT_EQ(op<op::slsets>()(l, 1, -32768, 1), 0);
}

TEST_F(Lists, PositionsSettersSearchesAndRenames) {
  const fmsd_word l = make();
  EXPECT_NE(op<op::slinsd>()(l, 1, 0, "X", 1), 0);
  EXPECT_NE(op<op::slinsd>()(l, 1, 2, "X", 1), 0);
  op<op::slinsc>()(l, "ACTUAL", 6, -1, "ROLE", 4);
  op<op::slinsc>()(l, "actual", 6, -1, "role", 4);
  op<op::slinsi>()(l, 3, -1, "DIF", 3);
  op<op::slinsc>()(l, "TIMEID", 6, -1, "ROLE", 4);
  EXPECT_EQ(op<op::slsrchn>()(l, "Role", 4, 1, 1), 1);
  EXPECT_EQ(op<op::slsrchn>()(l, "ROLE", 4, 1, 2), 2);
  EXPECT_EQ(op<op::slsrchn>()(l, "ROLE", 4, 1, 3), 4);
  EXPECT_EQ(op<op::slsrchn>()(l, "ROLE", 4, 1, 5), 0);
  EXPECT_EQ(op<op::slsrchn>()(l, "SDIF", 4, 1, 1), 0);
  // Texts are data: compared byte for byte.
  EXPECT_EQ(op<op::slsrchc>()(l, "actual", 6, 1, 0, 1, 1), 2);
  EXPECT_EQ(op<op::slsrchc>()(l, "TIMEID", 6, 1, 0, 1, 1), 4);
  EXPECT_EQ(op<op::slsrchc>()(l, "TIME", 4, 1, 0, 1, 1), 0);
  // Set by name replaces the first match and appends when there is none.
  EXPECT_EQ(op<op::slsnc>()(l, "PREDICT", 7, "role", 4, 1, 1), 0);
  EXPECT_EQ(op<op::slsnd>()(l, 0.5, "ALPHA", 5, 1, 1), 0);
  EXPECT_EQ(walk(l), "CPREDICT Cactual I3 CTIMEID N0.5");
  // Setting by position changes the kind as well as the value.
  EXPECT_EQ(op<op::slsetd>()(l, 2, 1.25, 1), 0);
  EXPECT_EQ(op<op::slseti>()(l, 5, -4, 1), 0);
  EXPECT_NE(op<op::slsetc>()(l, 6, "X", 1, 1), 0);
  EXPECT_EQ(walk(l), "CPREDICT N1.25 I3 CTIMEID I-4");
  const char* name = "SDIF";
  const int length = 4;
  EXPECT_EQ(op<op::slni>()(l, 3, &name, &length), 0);
  EXPECT_EQ(op<op::slsrchn>()(l, "sdif", 4, 1, 1), 3);
  fmsd_text t{};
  EXPECT_EQ(op<op::slitmc>()(l, 4, &t), 0);
  EXPECT_EQ(std::string(t.text, static_cast<std::size_t>(t.length)), "TIMEID");
  EXPECT_NE(op<op::slitmc>()(l, 3, &t), 0);
  const std::string long_text(32768, 'x');
  EXPECT_NE(op<op::slinsc>()(l, long_text.data(), 32768, -1, "T", 1), 0);
  EXPECT_EQ(op<op::slinsc>()(l, long_text.data(), 32767, -1, "T", 1), 0);
}

TEST_F(Lists, SublistsBelongToTheirItem) {
  ListRegistry& lists = host.lists();
  const std::size_t before = lists.size();
  const fmsd_word top = make(), mid = make(), leaf = make();
  op<op::slinsd>()(leaf, 1.5, -1, "X", 1);
  EXPECT_EQ(op<op::slinsl>()(mid, leaf, -1, "LEAF", 4), 0);
  EXPECT_EQ(op<op::slinsl>()(top, mid, -1, "MID", 3), 0);
  EXPECT_NE(op<op::slinsl>()(top, leaf, -1, "AGAIN", 5), 0) << "a list has one holder";
  EXPECT_NE(op<op::slinsl>()(leaf, top, -1, "LOOP", 4), 0) << "no list inside itself";
  EXPECT_NE(op<op::slfree>()(mid, 1, reg), 0) << "a held list goes with its item";
  fmsd_word got = 0;
  EXPECT_EQ(op<op::slitml>()(top, 1, &got), 0);
  EXPECT_EQ(got, mid);

  const fmsd_word copy = op<op::slcopy>()(top, 0, 0, reg);
  ASSERT_NE(copy, 0);
  EXPECT_EQ(lists.size(), before + 6);
  fmsd_word copied_mid = 0, copied_leaf = 0;
  EXPECT_EQ(op<op::slgnl>()(copy, "mid", 3, 1, 1, &copied_mid, nullptr), 0);
  EXPECT_EQ(op<op::slgnl>()(copied_mid, "leaf", 4, 1, 1, &copied_leaf, nullptr), 0);
  EXPECT_NE(copied_leaf, leaf);
  EXPECT_EQ(op<op::slsetd>()(copied_leaf, 1, 9, 1), 0);
  EXPECT_EQ(walk(leaf), "N1.5");
  EXPECT_EQ(walk(copied_leaf), "N9");

  // Replacing the item, deleting it, clearing or freeing the list frees what it holds.
  EXPECT_EQ(op<op::slsetd>()(copied_mid, 1, 0, 1), 0);
  EXPECT_EQ(lists.find(copied_leaf), nullptr);
  EXPECT_EQ(op<op::slditm>()(copy, 1), 0);
  EXPECT_EQ(lists.find(copied_mid), nullptr);
  EXPECT_EQ(op<op::slfree>()(copy, 1, reg), 0);
  EXPECT_EQ(op<op::slclear>()(top, 128, reg, 0), 0);
  EXPECT_EQ(lists.find(mid), nullptr);
  EXPECT_EQ(lists.find(leaf), nullptr);
  EXPECT_EQ(op<op::slfree>()(top, 1, reg), 0);
  EXPECT_EQ(lists.size(), before);
}

TEST_F(Lists, DepthCostsNoStack) {
  ListRegistry& lists = host.lists();
  List& top = lists.create();
  List* at = &top;
  for (int i = 0; i < 100000; ++i) at = &lists.append_list(*at, "");
  List& copy = lists.copy(top);
  EXPECT_EQ(lists.size(), 2 * 100001u);
  const std::string text = list_to_json(top);
  EXPECT_EQ(text.size(), 2 * 100001u);
  EXPECT_THROW(json_to_list(lists, text), JsonError);
  lists.free(copy);
  lists.free(top);
  EXPECT_EQ(lists.size(), 0u);
}

// ---- JSON -----------------------------------------------------------------------------

class Json : public Lists {
 protected:
  std::string error(const std::string& text, int* line = nullptr, int* column = nullptr) {
    const std::size_t before = host.lists().size();
    try {
      json_to_list(host.lists(), text);
    } catch (const JsonError& e) {
      EXPECT_EQ(host.lists().size(), before) << "a refused text leaves no list behind";
      if (line != nullptr) *line = e.line();
      if (column != nullptr) *column = e.column();
      return e.what();
    }
    return "accepted";
  }
};

TEST_F(Json, MapsKindsNamesAndOrder) {
  List& l = json_to_list(host.lists(),
                         R"({"INTERVALINFO": {"INTERVAL": "MONTH", "NSEASONS": 12},
                             "ALPHA": 0.05, "E": 1e2, "BIG": 3000000000, "LOW": -2147483648, "HIGH": 2147483648,
                             "NONE": null, "NOINT": true, "VARLIST": ["SALES", {"ROLE": "TIMEID"}, []],
                             "alpha": 7})");
  EXPECT_EQ(walk(l.id()), "L N0.05 N100 N3000000000 I-2147483648 N2147483648 N. I1 L I7");
  EXPECT_TRUE(is_missing(l.at(7).head.number));
  EXPECT_EQ(l.at(1).name, "INTERVALINFO");
  EXPECT_EQ(walk(l.at(1).sublist->id()), "CMONTH I12");
  const List& vars = *l.at(9).sublist;
  EXPECT_TRUE(vars.at(1).name.empty());
  EXPECT_EQ(vars.at(1).text, "SALES");
  EXPECT_EQ(vars.at(3).sublist->size(), 0u);
  double d = 0;
  EXPECT_EQ(op<op::slgnd>()(l.id(), "Alpha", 5, 1, 1, &d, nullptr), 0);
  EXPECT_EQ(d, 0.05) << "the first of two equal names";
}

TEST_F(Json, TextsDecodeEscapesAndWriteBackAsValidJson) {
  List& l = json_to_list(host.lists(), R"(["a\"b\\c\/d\b\f\n\r\t\u00e9\ud83d\ude00\u0000z"])");
  // Python's json.loads of the same text, encoded as UTF-8.
  const unsigned char expected[] = {97, 34, 98, 92, 99, 47,  100, 8,   12,  10, 13,
                                    9,  195, 169, 240, 159, 152, 128, 0, 122};
  EXPECT_EQ(l.at(1).text, std::string(reinterpret_cast<const char*>(expected), sizeof expected));
  EXPECT_EQ(list_to_json(l), R"(["a\"b\\c/d\b\f\n\r\t)" "\xC3\xA9\xF0\x9F\x98\x80" R"(\u0000z"])");
  // Bytes that are not UTF-8 (put there by a service) still give valid JSON.
  EXPECT_EQ(json_string("\x01\x7F\xE9x"), R"("\u0001)" "\x7F" R"(\u00e9x")");
  List& mixed = host.lists().create();
  host.lists().insert(mixed, -1, "A", Value::whole(1));
  host.lists().insert(mixed, -1, "", Value::string("b"));
  EXPECT_EQ(list_to_json(mixed), R"({"A": 1, "": "b"})");
  EXPECT_EQ(list_to_json(mixed, 2), "{\n  \"A\": 1,\n  \"\": \"b\"\n}");
}

TEST_F(Json, DoublesAreShortestAndReadBackExactly) {
  // Python's repr gives the same digits for these.
  const std::pair<double, const char*> cases[] = {
      {0.1, "0.1"},       {1.0 / 3, "0.3333333333333333"}, {5e-324, "5e-324"}, {1.7976931348623157e308, "1.7976931348623157e+308"},
      {100.0, "100.0"},   {-0.0, "-0.0"},                   {123456.789, "123456.789"}, {1e21, "1e+21"},
      {2.5e-5, "2.5e-05"}};
  for (const auto& [x, text] : cases) {
    List& l = host.lists().create();
    host.lists().insert(l, -1, "", Value::real(x));
    EXPECT_EQ(list_to_json(l), "[" + std::string(text) + "]");
  }
  std::mt19937_64 bits(20240601);
  List& l = host.lists().create();
  for (int i = 0; i < 2000; ++i) {
    double x;
    const std::uint64_t b = bits();
    std::memcpy(&x, &b, sizeof x);
    if (std::isfinite(x)) host.lists().insert(l, -1, "", Value::real(x));
  }
  const std::string text = list_to_json(l);
  const char* p = text.c_str() + 1;
  for (const auto& item : l.items()) {
    char* end = nullptr;
    const double back = std::strtod(p, &end);
    EXPECT_EQ(std::memcmp(&back, &item->head.number, sizeof back), 0) << std::string(p, static_cast<const char*>(end));
    p = end + 2;
  }
  EXPECT_EQ(json_to_list(host.lists(), "[1e-400, -1e-400]").at(2).head.number, 0.0);
}

TEST_F(Json, ErrorsNameLineAndColumn) {
  int line = 0, column = 0;
  EXPECT_NE(error("{\n  \"A\": 1,\n  \"B\": tru\n}", &line, &column).find("expected a value"), std::string::npos);
  EXPECT_EQ(line, 3);
  EXPECT_EQ(column, 8);
  error("[1,\n 2,]", &line, &column);
  EXPECT_EQ(line, 2);
  EXPECT_EQ(column, 4);
  const char* refused[] = {"",         "5",          "\"text\"",    "{} x",     "{\"A\" 1}",  "{\"A\": 01}",
                           "[1.]",     "[-]",        "[1e]",        "[.5]",     "[+1]",       "{A: 1}",
                           "['a']",    "[\"\x01\"]", "[\"\\x\"]",   "[\"\\ud800\"]", "[\"\\udc00\\ud800\"]",
                           "[\"\xC0\xAF\"]", "[\"\xED\xA0\x80\"]", "[\"abc",  "[1e400]",  "[NaN]",  "{\"A\": 1,}"};
  for (const char* text : refused) EXPECT_NE(error(text), "accepted") << text;
  EXPECT_NE(error("{\"A\": \"" + std::string(32768, 'x') + "\"}").find("32767"), std::string::npos);
  const std::string deep = std::string(kMaxJsonDepth, '[') + std::string(kMaxJsonDepth, ']');
  EXPECT_EQ(error(deep), "accepted");
  EXPECT_NE(error("[" + deep + "]").find("nested"), std::string::npos);
}

// The fuzzer's corpus, replayed: whatever parses writes JSON that reads back to the same JSON.
TEST_F(Json, CorpusReachesAFixedPoint) {
  int parsed = 0;
  for (const auto& entry : std::filesystem::directory_iterator(FMSD_FUZZ_CORPUS "/json")) {
    std::ifstream in(entry.path(), std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    List* first = nullptr;
    try {
      first = &json_to_list(host.lists(), text);
    } catch (const JsonError&) {
      continue;
    }
    ++parsed;
    const std::string once = list_to_json(*first);
    List& second = json_to_list(host.lists(), once);
    EXPECT_EQ(list_to_json(second), once) << entry.path();
    host.lists().free(*first);
    host.lists().free(second);
  }
  EXPECT_GT(parsed, 0);
  EXPECT_EQ(host.lists().size(), 0u);
}

}  // namespace
