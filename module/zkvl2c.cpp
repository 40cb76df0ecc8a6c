// Whole arrays moved between host lists and the module's arrays, and the interval
// description of a series kept in a host list.
//
// The readers walk the host's list object themselves instead of asking for each
// item, so reading n items is one pass.  They keep the object's cursor words on
// the item they stand on, so the cursor shows where a walk stopped.
#include <cstring>

#include "fmsd/lists.h"
#include "module/hostops.h"
#include "util/numeric.h"

namespace {

using fmsd::missing;

constexpr int kNameBuffer = 20;

bool is_number(char kind) { return kind == 'N' || kind == '#' || kind == 'I' || kind == 'S' || kind == 'B'; }
bool is_text(char kind) { return kind == 'C' || kind == 'P' || kind == '$' || kind == 'T'; }

double number_of(fmsd_list_item* item) {
  return item->kind == FMSD_ITEM_DOUBLE ? item->number : slgetnv(item, 0);
}

// Steps through a list object, keeping the object's cursor words on the current item.
class Walk {
 public:
  explicit Walk(void* list) : words_(static_cast<fmsd_word*>(list)) {
    if (words_ == nullptr) return;
    count_ = words_[FMSD_LIST_COUNT];
    item_ = reinterpret_cast<fmsd_list_item*>(words_[FMSD_LIST_FIRST]);
    if (count_ < 1) item_ = nullptr;
    words_[FMSD_LIST_CURSOR_INDEX] = 0;
    words_[FMSD_LIST_CURSOR] = reinterpret_cast<fmsd_word>(item_);
  }

  fmsd_list_item* item() const { return item_; }

  void advance() {
    if (words_[FMSD_LIST_CURSOR_INDEX] >= count_ - 1) {
      item_ = nullptr;
      return;
    }
    item_ = item_->next;
    ++words_[FMSD_LIST_CURSOR_INDEX];
    words_[FMSD_LIST_CURSOR] = reinterpret_cast<fmsd_word>(item_);
  }

 private:
  fmsd_word* words_;
  fmsd_word count_ = 0;
  fmsd_list_item* item_ = nullptr;
};

fmsd_word count_of(const void* list) {
  return list == nullptr ? 0 : static_cast<const fmsd_word*>(list)[FMSD_LIST_COUNT];
}

// Numeric items in list order into out (pre-filled with missing values); values
// beyond the threshold, when one is given, stay missing and are counted.
int read_numbers(void* list, int n, const double* threshold, double* out, int* nmissing) {
  const double absent = missing();
  for (int k = 0; k < n; ++k) out[k] = absent;
  if (list == nullptr || n <= 0) return 0;
  int filled = 0;
  for (Walk w(list); w.item() != nullptr && filled < n; w.advance()) {
    if (!is_number(w.item()->kind)) continue;
    const double x = number_of(w.item());
    if (threshold != nullptr && (fmsd::wzmis(x) || x > *threshold || x < -*threshold)) {
      ++*nmissing;
    } else {
      out[filled] = x;
    }
    ++filled;
  }
  return filled;
}

// Compares the character items of a list with m candidate texts; width 0 asks for
// equal lengths, width 8 for a match over the item's own length within an 8-character name.
int compare_texts(void* list, int n, int m, int* indexes, int width, const char* const* texts,
                  const int* lengths, const char (*names)[8]) {
  for (int k = 0; k < n; ++k) indexes[k] = -1;
  if (list == nullptr || n <= 0 || m <= 0) return 0;
  int examined = 0;
  for (Walk w(list); w.item() != nullptr && examined < n; w.advance()) {
    if (!is_text(w.item()->kind)) continue;
    const fmsd_text* t = slstrng(w.item());
    if (t == nullptr) continue;
    const int length = t->length;
    if (length < 0 || (width != 0 && length > width)) continue;
    for (int j = 0; j < m; ++j) {
      const char* candidate = width != 0 ? names[j] : texts[j];
      if (width == 0 && lengths[j] != length) continue;
      if (length == 0 || std::memcmp(candidate, t->text, static_cast<std::size_t>(length)) == 0) {
        indexes[examined] = j;
        break;
      }
    }
    ++examined;
  }
  return examined;
}

// Item names prefix1, prefix2 ...: the number goes into what the 20-character buffer
// leaves after the prefix, so a prefix of 20 characters names every item alike.
class Names {
 public:
  Names(const char* prefix, int prefix_length) {
    std::memset(buffer_, ' ', sizeof buffer_);
    prefix_ = prefix_length < 0 ? 0 : (prefix_length > kNameBuffer ? kNameBuffer : prefix_length);
    if (prefix_ > 0) std::memcpy(buffer_, prefix, static_cast<std::size_t>(prefix_));
  }

  const char* text() const { return buffer_; }

  int number(int i) {
    xpsstr(buffer_ + prefix_, kNameBuffer - prefix_, "%li", static_cast<long>(i));
    return fmsd::wzstrip(buffer_, kNameBuffer);
  }

 private:
  char buffer_[kNameBuffer];
  int prefix_;
};

template <class Call>
int each_named(const char* prefix, int prefix_length, int n, Call call) {
  if (n < 1) return 0;
  Names names(prefix, prefix_length);
  for (int i = 1; i <= n; ++i) {
    const int length = names.number(i);
    if (call(i - 1, names.text(), length) != 0) return -1;
  }
  return 0;
}

template <class Call>
int each_position(int n, Call call) {
  for (int k = 0; k < n; ++k) {
    if (call(k) != 0) return -1;
  }
  return 0;
}

template <int N>
int set_text(fmsd_word list, const char (&name)[N], const char* text, int length) {
  return slsnc(list, text, length, name, N - 1, 1, 1);
}

struct Unit {
  const char* text;
  int length;
};

Unit time_unit(char kind) {
  switch (kind) {
    case 'd': return {"D", 1};
    case 's': return {"DT", 2};
    case 'o': return {"N", 1};
    default: return {"UND", 3};
  }
}

}  // namespace

extern "C" {

FMSD_API int zgetnum(void* list, int n, double* out) { return read_numbers(list, n, nullptr, out, nullptr); }

FMSD_API int zgetnme(void* list, int n, double threshold, double* out, int* nmissing) {
  *nmissing = 0;
  return read_numbers(list, n, &threshold, out, nmissing);
}

FMSD_API int zgetst8(void* list, int n, char (*names)[8]) {
  if (list == nullptr || n <= 0) return 0;
  int filled = 0;
  for (Walk w(list); w.item() != nullptr && filled < n; w.advance()) {
    if (!is_text(w.item()->kind)) continue;
    const fmsd_text* t = slstrng(w.item());
    if (t == nullptr) continue;
    std::memcpy(names[filled], _B_ten, 8);
    const int length = t->length < 8 ? t->length : 8;
    if (length > 0) std::memcpy(names[filled], t->text, static_cast<std::size_t>(length));
    ++filled;
  }
  return filled;
}

// Stops at the end of the list or at the first item that is not a character item;
// either way the result counts the texts gathered and total holds their lengths,
// so texts[0] ... texts[result - 1] are always valid.
FMSD_API int zgetstr(void* list, int n, const char** texts, int* lengths, int* total) {
  int gathered = 0;
  int sum = 0;
  if (list != nullptr && n > 0) {
    for (Walk w(list); w.item() != nullptr && gathered < n; w.advance()) {
      if (!is_text(w.item()->kind)) break;
      const fmsd_text* t = slstrng(w.item());
      if (t == nullptr) break;
      texts[gathered] = t->text;
      lengths[gathered] = t->length;
      sum += t->length;
      ++gathered;
    }
  }
  *total = sum;
  return gathered;
}

FMSD_API int zcmpstr(void* list, int n, const char* const* texts, const int* lengths, int m, int* indexes) {
  return compare_texts(list, n, m, indexes, 0, texts, lengths, nullptr);
}

FMSD_API int zcmpst8(void* list, int n, const char (*names)[8], int m, int* indexes) {
  return compare_texts(list, n, m, indexes, 8, nullptr, nullptr, names);
}

FMSD_API int zslinsd(fmsd_word list, const double* values, int n, const char* prefix, int prefix_length) {
  return each_named(prefix, prefix_length, n, [&](int k, const char* name, int length) {
    return slinsd(list, values[k], -1, name, length);
  });
}

FMSD_API int zslinsi(fmsd_word list, const int* values, int n, const char* prefix, int prefix_length) {
  return each_named(prefix, prefix_length, n, [&](int k, const char* name, int length) {
    return slinsi(list, values[k], -1, name, length);
  });
}

FMSD_API int zslinss(fmsd_word list, const int* values, int n, const char* prefix, int prefix_length) {
  return each_named(prefix, prefix_length, n, [&](int k, const char* name, int length) {
    return slinss(list, values[k], -1, name, length);
  });
}

FMSD_API int zslgnd(fmsd_word list, const char* prefix, int prefix_length, double* out, int n,
                    const double* default_value) {
  return each_named(prefix, prefix_length, n, [&](int k, const char* name, int length) {
    return slgnd(list, name, length, 1, 1, &out[k], default_value);
  });
}

FMSD_API int zslsetc(fmsd_word list, int start, const char* prefix, int prefix_length, int n) {
  return each_named(prefix, prefix_length, n, [&](int k, const char* name, int length) {
    return slsetc(list, start + k, name, length, 1);
  });
}

FMSD_API int zslsetd(fmsd_word list, int start, const double* values, int n) {
  return each_position(n, [&](int k) { return slsetd(list, start + k, values[k], 1); });
}

FMSD_API int zslseti(fmsd_word list, int start, const int* values, int n) {
  return each_position(n, [&](int k) { return slseti(list, start + k, values[k], 1); });
}

FMSD_API int zslsets(fmsd_word list, int start, const int* values, int n) {
  return each_position(n, [&](int k) { return slsets(list, start + k, values[k], 1); });
}

FMSD_API int zslgeti(fmsd_word list, int start, int* out, int n) {
  return each_position(n, [&](int k) { return slitmi(list, start + k, &out[k]); });
}

// Labels and values alternate in the list, so the texts go to every second item.
FMSD_API int zputstr(const char* const* texts, const int* lengths, int start, int n, fmsd_word list) {
  if (n < 1) return 0;
  for (int k = 0; k < n; ++k) {
    if (slsetc(list, start + 2 * k, texts[k], lengths[k], 1) != 0) return k - 1;
  }
  return n;
}

FMSD_API int slcmplc(fmsd_word registry, void* first, void* second, void** result) {
  *result = nullptr;
  if (count_of(first) == 0) return 0;
  const fmsd_word copy = slcopy(reinterpret_cast<fmsd_word>(first), 0, 0, registry);
  if (copy == 0) return -1;
  void* object = slistp(copy, registry);
  if (object == nullptr) {
    slfree(copy, 1, registry);
    return -1;
  }
  const auto list = reinterpret_cast<fmsd_word>(object);
  if (count_of(second) > 0) {
    for (auto position = static_cast<int>(count_of(object)); position >= 1; --position) {
      fmsd_text text{};
      if (slitmc(list, position, &text) != 0) continue;
      if (slsrchc(reinterpret_cast<fmsd_word>(second), text.text, text.length, 1, 0, 1, 1) > 0) {
        slditm(list, position);
      }
    }
  }
  const auto left = static_cast<int>(count_of(object));
  if (left == 0) {
    slfree(copy, 1, registry);
    return 0;
  }
  *result = object;
  return left;
}

// Each sublist of the rename list is {OLD: name, NEW: name}.  The search goes on
// after the item just renamed, so a rename the host refuses cannot stall it.
FMSD_API int zslsrch(fmsd_word registry, void* renames, void* target) {
  if (count_of(renames) == 0 || count_of(target) == 0) return 0;
  const auto rename_list = reinterpret_cast<fmsd_word>(renames);
  const auto target_list = reinterpret_cast<fmsd_word>(target);
  const auto nrenames = static_cast<int>(count_of(renames));
  int renamed = 0;
  for (int i = 1; i <= nrenames; ++i) {
    fmsd_word sublist = 0;
    if (slitml(rename_list, i, &sublist) != 0 || sublist == 0) continue;
    const auto pair = reinterpret_cast<fmsd_word>(slistp(sublist, registry));
    if (pair == 0) continue;
    const char* old_name = nullptr;
    const char* new_name = nullptr;
    int old_length = 0;
    int new_length = 0;
    if (slgnc(pair, "OLD", 3, 1, 1, &old_name, &old_length, nullptr, 0) != 0 ||
        slgnc(pair, "NEW", 3, 1, 1, &new_name, &new_length, nullptr, 0) != 0)
      continue;
    if (old_name == nullptr || old_length == 0 || new_name == nullptr || new_length == 0) continue;
    if (old_length == new_length && fmsd::wzbcup(old_name, new_name, old_length) == 0) continue;
    const auto last = static_cast<int>(count_of(target));
    for (int from = 1; from <= last;) {
      const int found = slsrchn(target_list, old_name, old_length, 1, from);
      if (found <= 0) break;
      if (slni(target_list, found, &new_name, &new_length) == 0) ++renamed;
      from = found + 1;
    }
  }
  return renamed;
}

FMSD_API int zkvlint(void* list, zintrec* rec, zintinfo* info) {
  if (list == nullptr || (rec == nullptr && info == nullptr)) return -1;
  const auto words = reinterpret_cast<fmsd_word>(list);
  const char* text = nullptr;
  int length = 0;
  if (rec != nullptr) {
    if (slgnc(words, "INTERVAL", 8, 1, 1, &text, &length, nullptr, 0) != 0) return -1;
    if (zintstr(text, length, rec) != ZINT_OK) return -1;
  }
  if (info == nullptr) return 0;
  if (slgnc(words, "SINTERVAL", 9, 1, 1, &text, &length, nullptr, 0) != 0) return -1;
  // A seasonal interval the parser refuses leaves a cleared or partial record; the
  // callers read the number of seasons rather than the seasonal interval itself.
  zintstr(text, length, &info->season);
  slgns(words, "NSEASONS", 8, 1, 1, &info->nseasons, nullptr);
  if (rec != nullptr) {
    int16_t shortwidth = 0;
    std::memset(info->fmtname, 0, sizeof info->fmtname);
    zintfmt(rec, info->fmtname, &info->fmtlen, &info->width, &shortwidth);
  }
  return 0;
}

FMSD_API int zintkvl(const zintrec* rec, const zintinfo* info, fmsd_word list) {
  if (list == 0 || (rec == nullptr && info == nullptr)) return -1;
  if (rec != nullptr) {
    if (set_text(list, "INTERVAL", rec->text, rec->textlen) != 0) return -1;
    const Unit unit = time_unit(rec->kind);
    if (set_text(list, "TIMEUNIT", unit.text, unit.length) != 0) return -1;
  }
  if (info == nullptr) return 0;
  if (set_text(list, "SINTERVAL", info->season.text, info->season.textlen) != 0) return -1;
  slsns(list, info->nseasons, "NSEASONS", 8, 1, 1);
  // The name is read by its length, never past its field, so it needs no terminator.
  int name_length = info->fmtlen;
  if (name_length < 0) name_length = 0;
  if (name_length > static_cast<int>(sizeof info->fmtname)) name_length = static_cast<int>(sizeof info->fmtname);
  char format[kNameBuffer];
  const int length = xpsstr(format, kNameBuffer, "%.*s%i.", name_length, info->fmtname, static_cast<int>(info->width));
  if (length > 0) set_text(list, "IDFORMAT", format, length);
  return 0;
}

}  // extern "C"
