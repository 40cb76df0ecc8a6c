// Host lists and the list operations of facility 232.
#include "host/lists.h"

#include <cmath>
#include <cstdio>
#include <limits>
#include <new>
#include <utility>

#include "host/operations.h"

namespace fmsd::host {

namespace {

char upper(char c) noexcept { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

std::string quoted(std::string_view s) { return "\"" + std::string(s) + "\""; }

const char* kind_words(char kind) noexcept {
  switch (kind) {
    case FMSD_ITEM_DOUBLE: return "a number";
    case FMSD_ITEM_INTEGER: return "an integer";
    case FMSD_ITEM_SHORT: return "a 16-bit integer";
    case FMSD_ITEM_TEXT: return "a text";
    case FMSD_ITEM_LIST: return "a list";
    default: return "of an unknown kind";
  }
}

// The value an item holds, to copy it into another item.
Value value_of(const Item& item) noexcept {
  Value v;
  v.kind = item.kind();
  v.number = item.head.number;
  v.integer = item.integer;
  v.text = item.text;
  v.sublist = item.sublist;
  return v;
}

}  // namespace

bool same_name(std::string_view a, std::string_view b) noexcept {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (upper(a[i]) != upper(b[i])) return false;
  return true;
}

bool read_double(const Item& item, double& out) noexcept {
  switch (item.kind()) {
    case FMSD_ITEM_DOUBLE: out = item.head.number; return true;
    case FMSD_ITEM_INTEGER:
    case FMSD_ITEM_SHORT: out = item.integer; return true;
    default: return false;
  }
}

bool read_int(const Item& item, std::int32_t& out) noexcept {
  if (item.kind() == FMSD_ITEM_INTEGER || item.kind() == FMSD_ITEM_SHORT) {
    out = item.integer;
    return true;
  }
  if (item.kind() != FMSD_ITEM_DOUBLE) return false;
  const double x = item.head.number;
  // The bounds are exact doubles; NaNs, the missing value among them, fail both tests.
  if (!(x >= -2147483648.0 && x <= 2147483647.0) || x != std::trunc(x)) return false;
  out = static_cast<std::int32_t>(x);
  return true;
}

bool read_short(const Item& item, std::int16_t& out) noexcept {
  std::int32_t i;
  if (!read_int(item, i) || i < std::numeric_limits<std::int16_t>::min() ||
      i > std::numeric_limits<std::int16_t>::max())
    return false;
  out = static_cast<std::int16_t>(i);
  return true;
}

// ---- List ------------------------------------------------------------------------------

Item& List::at(long position) {
  return const_cast<Item&>(static_cast<const List&>(*this).at(position));
}

const Item& List::at(long position) const {
  if (position < 1 || static_cast<std::size_t>(position) > items_.size())
    throw ListError(describe() + ": there is no item at position " + std::to_string(position) + " (it has " +
                    std::to_string(items_.size()) + ")");
  return *items_[static_cast<std::size_t>(position) - 1];
}

Item* List::find(std::string_view name) const noexcept {
  const long p = search_name(name, 1);
  return p > 0 ? items_[static_cast<std::size_t>(p) - 1].get() : nullptr;
}

long List::search_name(std::string_view name, long start) const noexcept {
  if (name.empty()) return 0;
  for (std::size_t i = start > 1 ? static_cast<std::size_t>(start) - 1 : 0; i < items_.size(); ++i)
    if (same_name(items_[i]->name, name)) return static_cast<long>(i) + 1;
  return 0;
}

long List::search_text(std::string_view text) const noexcept {
  for (std::size_t i = 0; i < items_.size(); ++i)
    if (items_[i]->kind() == FMSD_ITEM_TEXT && items_[i]->text == text) return static_cast<long>(i) + 1;
  return 0;
}

std::string List::describe() const { return "list " + std::to_string(id()); }

// ---- ListRegistry ----------------------------------------------------------------------

ListRegistry::ListRegistry() = default;
ListRegistry::~ListRegistry() = default;

List& ListRegistry::create() {
  auto owned = std::make_unique<List>();
  List& list = *owned;
  const fmsd_word id = next_id_;
  list.words_[kListId] = id;
  list.words_[kListRegistry] = word();
  objects_.emplace(list.words_, &list);
  try {
    lists_.emplace(id, std::move(owned));
  } catch (...) {
    objects_.erase(list.words_);
    throw;
  }
  ++next_id_;
  return list;
}

List* ListRegistry::find(fmsd_word list) const noexcept {
  if (auto it = lists_.find(list); it != lists_.end()) return it->second.get();
  if (auto it = objects_.find(reinterpret_cast<const void*>(list)); it != objects_.end()) return it->second;
  return nullptr;
}

List& ListRegistry::get(fmsd_word list) const {
  if (List* l = find(list)) return *l;
  char buf[64];
  if (list > 0 && list < (fmsd_word{1} << 32))
    std::snprintf(buf, sizeof buf, "there is no list %ld", static_cast<long>(list));
  else
    std::snprintf(buf, sizeof buf, "there is no list at 0x%lx", static_cast<unsigned long>(list));
  throw ListError(buf);
}

Item* ListRegistry::find_item(const void* item) const noexcept {
  auto it = items_.find(item);
  return it != items_.end() ? it->second : nullptr;
}

// Checks everything about a value that could refuse it, so that storing it cannot fail.
void ListRegistry::adopt(List& list, List& sublist) const {
  if (find(sublist.id()) != &sublist) throw ListError(list.describe() + ": the sublist is not a list of this host");
  if (sublist.holder_ != nullptr)
    throw ListError(list.describe() + ": " + sublist.describe() + " already belongs to an item of " +
                    sublist.parent_->describe());
  // A list that holds no items cannot hold the list either; that spares the walk up
  // when a document is built, one new empty sublist at a time.
  const List* root = &list;
  if (!sublist.items_.empty())
    while (root->parent_ != nullptr) root = root->parent_;
  if (root == &sublist)
    throw ListError(list.describe() + ": " + sublist.describe() + " cannot be put inside itself");
}

void ListRegistry::assign(List& list, Item& item, const Value& value) {
  std::string text;
  switch (value.kind) {
    case FMSD_ITEM_DOUBLE:
    case FMSD_ITEM_INTEGER: break;
    case FMSD_ITEM_SHORT:
      if (value.integer < std::numeric_limits<std::int16_t>::min() ||
          value.integer > std::numeric_limits<std::int16_t>::max())
        throw ListError(list.describe() + ": " + std::to_string(value.integer) + " does not fit a 16-bit item");
      break;
    case FMSD_ITEM_TEXT:
      if (value.text.size() > kMaxText)
        throw ListError(list.describe() + ": a text of " + std::to_string(value.text.size()) +
                        " bytes is longer than an item holds (" + std::to_string(kMaxText) + ")");
      text.assign(value.text);
      break;
    case FMSD_ITEM_LIST:
      if (value.sublist == nullptr) throw ListError(list.describe() + ": no sublist given");
      adopt(list, *value.sublist);
      break;
    default: throw ListError(list.describe() + ": unknown item kind");
  }
  // Nothing below throws: the item changes completely or not at all.
  List* old = item.sublist;
  item.head.kind = value.kind;
  item.head.number = value.kind == FMSD_ITEM_DOUBLE ? value.number : 0;
  item.integer = value.kind == FMSD_ITEM_INTEGER || value.kind == FMSD_ITEM_SHORT ? value.integer : 0;
  item.text = std::move(text);
  item.block = value.kind == FMSD_ITEM_TEXT
                   ? fmsd_text{item.text.data(), static_cast<std::int16_t>(item.text.size())}
                   : fmsd_text{nullptr, 0};
  item.sublist = value.sublist;
  if (value.kind == FMSD_ITEM_LIST) {
    value.sublist->holder_ = &item;
    value.sublist->parent_ = &list;
  } else {
    item.sublist = nullptr;
  }
  if (old != nullptr && old != item.sublist) {
    old->holder_ = nullptr;
    drop(*old);
  }
}

void ListRegistry::link(List& list, std::size_t index) noexcept {
  auto& v = list.items_;
  for (std::size_t i = index > 0 ? index - 1 : 0; i <= index && i < v.size(); ++i)
    v[i]->head.next = i + 1 < v.size() ? &v[i + 1]->head : nullptr;
}

// Words 1 to 5 follow the items.  The cursor keeps its index when that still
// names an item; the cursor word itself is never read back, since walkers write it.
void ListRegistry::sync(List& list) noexcept {
  const auto& v = list.items_;
  const auto n = static_cast<fmsd_word>(v.size());
  fmsd_word* w = list.words_;
  w[FMSD_LIST_FIRST] = n > 0 ? reinterpret_cast<fmsd_word>(&v.front()->head) : 0;
  w[FMSD_LIST_COUNT] = n;
  w[kListLast] = n > 0 ? reinterpret_cast<fmsd_word>(&v.back()->head) : 0;
  if (w[FMSD_LIST_CURSOR_INDEX] < 0 || w[FMSD_LIST_CURSOR_INDEX] >= n) w[FMSD_LIST_CURSOR_INDEX] = 0;
  w[FMSD_LIST_CURSOR] =
      n > 0 ? reinterpret_cast<fmsd_word>(&v[static_cast<std::size_t>(w[FMSD_LIST_CURSOR_INDEX])]->head) : 0;
}

// Removes a list and every list below it.  The walk goes down through the items
// and back up through the parent links, so depth costs no stack.
void ListRegistry::drop(List& list) noexcept {
  List* current = &list;
  while (current != nullptr) {
    auto& v = current->items_;
    if (!v.empty()) {
      std::unique_ptr<Item> item = std::move(v.back());
      v.pop_back();
      items_.erase(&item->head);
      if (item->sublist != nullptr) current = item->sublist;
      continue;
    }
    List* up = current == &list ? nullptr : current->parent_;
    objects_.erase(current->words_);
    lists_.erase(current->id());
    current = up;
  }
}

void ListRegistry::forget(Item& item) noexcept {
  items_.erase(&item.head);
  if (item.sublist != nullptr) {
    item.sublist->holder_ = nullptr;
    drop(*item.sublist);
    item.sublist = nullptr;
  }
}

Item& ListRegistry::insert(List& list, long position, std::string_view name, const Value& value) {
  const std::size_t n = list.items_.size();
  if (position == -1) position = static_cast<long>(n) + 1;
  if (position < 1 || static_cast<std::size_t>(position) > n + 1)
    throw ListError(list.describe() + ": cannot insert at position " + std::to_string(position) + " (it has " +
                    std::to_string(n) + " items)");
  if (name.size() > kMaxText) throw ListError(list.describe() + ": an item name is longer than 32767 bytes");
  auto owned = std::make_unique<Item>();
  Item& item = *owned;
  item.name.assign(name);
  item.head.kind = FMSD_ITEM_DOUBLE;
  list.items_.reserve(n + 1);
  items_.emplace(&item.head, &item);
  try {
    assign(list, item, value);
  } catch (...) {
    items_.erase(&item.head);
    throw;
  }
  const std::size_t index = static_cast<std::size_t>(position) - 1;
  list.items_.insert(list.items_.begin() + static_cast<std::ptrdiff_t>(index), std::move(owned));
  link(list, index);
  sync(list);
  return item;
}

List& ListRegistry::append_list(List& list, std::string_view name) {
  List& sublist = create();
  try {
    insert(list, -1, name, Value::list(sublist));
  } catch (...) {
    drop(sublist);
    throw;
  }
  return sublist;
}

void ListRegistry::set(List& list, long position, const Value& value) { assign(list, list.at(position), value); }

void ListRegistry::set_named(List& list, std::string_view name, const Value& value) {
  if (name.empty()) throw ListError(list.describe() + ": an item set by name needs a name");
  if (const long p = list.search_name(name, 1); p > 0)
    set(list, p, value);
  else
    insert(list, -1, name, value);
}

void ListRegistry::remove(List& list, long position) {
  forget(list.at(position));
  const auto index = static_cast<std::size_t>(position) - 1;
  list.items_.erase(list.items_.begin() + static_cast<std::ptrdiff_t>(index));
  link(list, index);
  sync(list);
}

void ListRegistry::rename(List& list, long position, std::string_view name) {
  if (name.size() > kMaxText) throw ListError(list.describe() + ": an item name is longer than 32767 bytes");
  list.at(position).name.assign(name);
}

void ListRegistry::clear(List& list) {
  for (auto& item : list.items_) forget(*item);
  list.items_.clear();
  sync(list);
}

void ListRegistry::free(List& list) {
  if (list.holder_ != nullptr)
    throw ListError(list.describe() + " belongs to an item of " + list.parent_->describe() +
                    "; it is freed with that item");
  drop(list);
}

List& ListRegistry::copy(const List& list) {
  List& root = create();
  try {
    struct Step {
      const List* from;
      List* to;
      std::size_t next;
    };
    std::vector<Step> steps{{&list, &root, 0}};
    while (!steps.empty()) {
      Step& s = steps.back();
      if (s.next == s.from->items_.size()) {
        steps.pop_back();
        continue;
      }
      const Item& item = *s.from->items_[s.next++];
      List* to = s.to;
      if (item.kind() == FMSD_ITEM_LIST) {
        List& sub = append_list(*to, item.name);
        steps.push_back({item.sublist, &sub, 0});
      } else {
        insert(*to, -1, item.name, value_of(item));
      }
    }
  } catch (...) {
    drop(root);
    throw;
  }
  return root;
}

// ---- the operations of facility 232 ------------------------------------------------------

namespace {

void note(Host& host, const char* text) noexcept {
  try {
    host.add_log(text);
  } catch (...) {
  }
}

// Runs an operation on the current host's registry.  Whatever it throws becomes a
// host log entry and the operation's failure value.
template <class R, class F>
R run(R failure, F&& body) noexcept {
  Host* host = Host::current();
  if (host == nullptr) return failure;
  try {
    return body(*host, host->lists());
  } catch (const std::bad_alloc&) {
    note(*host, "out of memory in a list operation");
  } catch (const std::exception& e) {
    note(*host, e.what());
  } catch (...) {
    note(*host, "a list operation failed");
  }
  return failure;
}

void check_registry(const ListRegistry& lists, fmsd_word registry) {
  if (registry != lists.word())
    throw ListError("the list registry word " + std::to_string(registry) + " is not this host's");
}

std::string_view counted(const List& list, const char* text, int length, const char* what) {
  if (length < 0 || (length > 0 && text == nullptr))
    throw ListError(list.describe() + ": " + what + " of length " + std::to_string(length) + " cannot be read");
  if (static_cast<std::size_t>(length) > kMaxText)
    throw ListError(list.describe() + ": " + what + " is longer than 32767 bytes");
  return {length > 0 ? text : "", static_cast<std::size_t>(length)};
}

std::string_view name_arg(const List& list, const char* name, int length) {
  return counted(list, name, length, "an item name");
}

template <class T>
void need(const List& list, T* out) {
  if (out == nullptr) throw ListError(list.describe() + ": no place was given for the result");
}

// Get by name: 0 found; 1 absent, or a missing value read as an integer; 2 an item
// of another kind (logged).  Unless found, a given default is stored in the output.
// read(item) stores the value and says whether the item could give it; fallback()
// stores the default when one was given.
template <class Read, class Fallback>
int get_named(fmsd_word list, const char* name, int length, bool has_output, Read read, Fallback fallback) noexcept {
  return run(-1, [&](Host& host, ListRegistry& lists) {
    List& l = lists.get(list);
    const std::string_view n = name_arg(l, name, length);
    if (!has_output) throw ListError(l.describe() + ": no place was given for item " + quoted(n));
    Item* item = l.find(n);
    if (item != nullptr && read(*item)) return 0;
    fallback();
    if (item == nullptr || (item->kind() == FMSD_ITEM_DOUBLE && is_missing(item->head.number))) return 1;
    note(host, (l.describe() + ": item " + quoted(n) + " is " + kind_words(item->kind()) +
                ", not the kind asked for")
                   .c_str());
    return 2;
  });
}

template <class T, class Read>
int get_value(fmsd_word list, const char* name, int length, T* out, const T* fallback, Read read) noexcept {
  return get_named(
      list, name, length, out != nullptr, [&](const Item& item) { return read(item, *out); },
      [&] {
        if (fallback != nullptr) *out = *fallback;
      });
}

int slgnd_op(fmsd_word list, const char* name, int length, int, int, double* out, const double* fallback) noexcept {
  return get_value(list, name, length, out, fallback, read_double);
}

int slgni_op(fmsd_word list, const char* name, int length, int, int, int* out, const int* fallback) noexcept {
  return get_value(list, name, length, out, fallback, [](const Item& item, int& v) { return read_int(item, v); });
}

int slgns_op(fmsd_word list, const char* name, int length, int, int, std::int16_t* out,
             const std::int16_t* fallback) noexcept {
  return get_value(list, name, length, out, fallback, read_short);
}

int slgnl_op(fmsd_word list, const char* name, int length, int, int, fmsd_word* out,
             const fmsd_word* fallback) noexcept {
  return get_value(list, name, length, out, fallback, [](const Item& item, fmsd_word& v) {
    if (item.kind() != FMSD_ITEM_LIST) return false;
    v = item.sublist->id();
    return true;
  });
}

int slgnc_op(fmsd_word list, const char* name, int length, int, int, const char** text, int* text_length,
             const char* fallback, int fallback_length) noexcept {
  return get_named(
      list, name, length, text != nullptr && text_length != nullptr,
      [&](const Item& item) {
        if (item.kind() != FMSD_ITEM_TEXT) return false;
        *text = item.text.data();
        *text_length = static_cast<int>(item.text.size());
        return true;
      },
      [&] {
        if (fallback == nullptr) return;
        *text = fallback;
        *text_length = fallback_length;
      });
}

int insert_op(fmsd_word list, int position, const char* name, int length, const Value& value) noexcept {
  return run(-1, [&](Host&, ListRegistry& lists) {
    List& l = lists.get(list);
    lists.insert(l, position, name_arg(l, name, length), value);
    return 0;
  });
}

int slinsd_op(fmsd_word list, double value, int position, const char* name, int length) noexcept {
  return insert_op(list, position, name, length, Value::real(value));
}

int slinsi_op(fmsd_word list, int value, int position, const char* name, int length) noexcept {
  return insert_op(list, position, name, length, Value::whole(value));
}

int slinss_op(fmsd_word list, int value, int position, const char* name, int length) noexcept {
  return insert_op(list, position, name, length, Value::small(value));
}

int slinsc_op(fmsd_word list, const char* text, int text_length, int position, const char* name,
              int length) noexcept {
  return run(-1, [&](Host&, ListRegistry& lists) {
    List& l = lists.get(list);
    lists.insert(l, position, name_arg(l, name, length), Value::string(counted(l, text, text_length, "a text")));
    return 0;
  });
}

int slinsl_op(fmsd_word list, fmsd_word sublist, int position, const char* name, int length) noexcept {
  return run(-1, [&](Host&, ListRegistry& lists) {
    List& l = lists.get(list);
    lists.insert(l, position, name_arg(l, name, length), Value::list(lists.get(sublist)));
    return 0;
  });
}

template <class T, class Read>
int item_at(fmsd_word list, int position, T* out, Read read) noexcept {
  return run(-1, [&](Host&, ListRegistry& lists) {
    List& l = lists.get(list);
    const Item& item = l.at(position);
    need(l, out);
    if (!read(item, *out))
      throw ListError(l.describe() + ": the item at position " + std::to_string(position) + " is " +
                      kind_words(item.kind()) + ", not the kind asked for");
    return 0;
  });
}

int slitmc_op(fmsd_word list, int position, fmsd_text* out) noexcept {
  return item_at(list, position, out, [](const Item& item, fmsd_text& v) {
    if (item.kind() != FMSD_ITEM_TEXT) return false;
    v = item.block;
    return true;
  });
}

int slitmi_op(fmsd_word list, int position, int* out) noexcept {
  return item_at(list, position, out, [](const Item& item, int& v) { return read_int(item, v); });
}

int slitml_op(fmsd_word list, int position, fmsd_word* out) noexcept {
  return item_at(list, position, out, [](const Item& item, fmsd_word& v) {
    if (item.kind() != FMSD_ITEM_LIST) return false;
    v = item.sublist->id();
    return true;
  });
}

int set_op(fmsd_word list, int position, const Value& value) noexcept {
  return run(-1, [&](Host&, ListRegistry& lists) {
    lists.set(lists.get(list), position, value);
    return 0;
  });
}

int slsetd_op(fmsd_word list, int position, double value, int) noexcept {
  return set_op(list, position, Value::real(value));
}

int slseti_op(fmsd_word list, int position, int value, int) noexcept {
  return set_op(list, position, Value::whole(value));
}

int slsets_op(fmsd_word list, int position, int value, int) noexcept {
  return set_op(list, position, Value::small(value));
}

int slsetc_op(fmsd_word list, int position, const char* text, int length, int) noexcept {
  return run(-1, [&](Host&, ListRegistry& lists) {
    List& l = lists.get(list);
    lists.set(l, position, Value::string(counted(l, text, length, "a text")));
    return 0;
  });
}

int set_named_op(fmsd_word list, const char* name, int length, const Value& value) noexcept {
  return run(-1, [&](Host&, ListRegistry& lists) {
    List& l = lists.get(list);
    lists.set_named(l, name_arg(l, name, length), value);
    return 0;
  });
}

int slsnd_op(fmsd_word list, double value, const char* name, int length, int, int) noexcept {
  return set_named_op(list, name, length, Value::real(value));
}

int slsni_op(fmsd_word list, int value, const char* name, int length, int, int) noexcept {
  return set_named_op(list, name, length, Value::whole(value));
}

int slsns_op(fmsd_word list, int value, const char* name, int length, int, int) noexcept {
  return set_named_op(list, name, length, Value::small(value));
}

int slsnc_op(fmsd_word list, const char* text, int text_length, const char* name, int length, int, int) noexcept {
  return run(-1, [&](Host&, ListRegistry& lists) {
    List& l = lists.get(list);
    lists.set_named(l, name_arg(l, name, length), Value::string(counted(l, text, text_length, "a text")));
    return 0;
  });
}

int slsrchc_op(fmsd_word list, const char* text, int length, int, int, int, int) noexcept {
  return run(0, [&](Host&, ListRegistry& lists) {
    List& l = lists.get(list);
    return static_cast<int>(l.search_text(counted(l, text, length, "a text")));
  });
}

int slsrchn_op(fmsd_word list, const char* name, int length, int, int start) noexcept {
  return run(0, [&](Host&, ListRegistry& lists) {
    List& l = lists.get(list);
    return static_cast<int>(l.search_name(name_arg(l, name, length), start));
  });
}

int slditm_op(fmsd_word list, int position) noexcept {
  return run(-1, [&](Host&, ListRegistry& lists) {
    lists.remove(lists.get(list), position);
    return 0;
  });
}

int slni_op(fmsd_word list, int position, const char* const* name, const int* length) noexcept {
  return run(-1, [&](Host&, ListRegistry& lists) {
    List& l = lists.get(list);
    if (name == nullptr || length == nullptr) throw ListError(l.describe() + ": no new name was given");
    lists.rename(l, position, name_arg(l, *name, *length));
    return 0;
  });
}

int slnewl_op(fmsd_word* out, fmsd_word registry, int) noexcept {
  return run(-1, [&](Host&, ListRegistry& lists) {
    check_registry(lists, registry);
    if (out == nullptr) throw ListError("slnewl: no place was given for the new list");
    *out = lists.create().id();
    return 0;
  });
}

void* slistp_op(fmsd_word list, fmsd_word registry) noexcept {
  return run(static_cast<void*>(nullptr), [&](Host&, ListRegistry& lists) -> void* {
    check_registry(lists, registry);
    return lists.get(list).object();
  });
}

fmsd_word slcopy_op(fmsd_word list, int, int, fmsd_word registry) noexcept {
  return run(fmsd_word{0}, [&](Host&, ListRegistry& lists) {
    check_registry(lists, registry);
    return lists.copy(lists.get(list)).id();
  });
}

int slclear_op(fmsd_word list, int, fmsd_word registry, int) noexcept {
  return run(-1, [&](Host&, ListRegistry& lists) {
    check_registry(lists, registry);
    lists.clear(lists.get(list));
    return 0;
  });
}

int slfree_op(fmsd_word list, int, fmsd_word registry) noexcept {
  return run(-1, [&](Host&, ListRegistry& lists) {
    check_registry(lists, registry);
    lists.free(lists.get(list));
    return 0;
  });
}

Item& live_item(const ListRegistry& lists, const void* item) {
  if (Item* i = lists.find_item(item)) return *i;
  char buf[64];
  std::snprintf(buf, sizeof buf, "there is no list item at %p", item);
  throw ListError(buf);
}

fmsd_text* slstrng_op(void* item) noexcept {
  return run(static_cast<fmsd_text*>(nullptr), [&](Host&, ListRegistry& lists) {
    Item& i = live_item(lists, item);
    if (i.kind() != FMSD_ITEM_TEXT)
      throw ListError(std::string("a list item is ") + kind_words(i.kind()) + ", not a text");
    return &i.block;
  });
}

double slgetnv_op(void* item, int) noexcept {
  return run(missing_value(), [&](Host&, ListRegistry& lists) {
    double v;
    const Item& i = live_item(lists, item);
    if (!read_double(i, v)) throw ListError(std::string("a list item is ") + kind_words(i.kind()) + ", not a number");
    return v;
  });
}

}  // namespace

void install_list_operations(Host& host) noexcept {
  bind<op::slclear>(host, slclear_op);
  bind<op::slcopy>(host, slcopy_op);
  bind<op::slditm>(host, slditm_op);
  bind<op::slfree>(host, slfree_op);
  bind<op::slgnc>(host, slgnc_op);
  bind<op::slgnd>(host, slgnd_op);
  bind<op::slgni>(host, slgni_op);
  bind<op::slgnl>(host, slgnl_op);
  bind<op::slgns>(host, slgns_op);
  bind<op::slinsc>(host, slinsc_op);
  bind<op::slinsd>(host, slinsd_op);
  bind<op::slinsi>(host, slinsi_op);
  bind<op::slinsl>(host, slinsl_op);
  bind<op::slinss>(host, slinss_op);
  bind<op::slitmc>(host, slitmc_op);
  bind<op::slitmi>(host, slitmi_op);
  bind<op::slitml>(host, slitml_op);
  bind<op::slnewl>(host, slnewl_op);
  bind<op::slni>(host, slni_op);
  bind<op::slistp>(host, slistp_op);
  bind<op::slsetc>(host, slsetc_op);
  bind<op::slsetd>(host, slsetd_op);
  bind<op::slseti>(host, slseti_op);
  bind<op::slsets>(host, slsets_op);
  bind<op::slsnc>(host, slsnc_op);
  bind<op::slsnd>(host, slsnd_op);
  bind<op::slsni>(host, slsni_op);
  bind<op::slsns>(host, slsns_op);
  bind<op::slsrchc>(host, slsrchc_op);
  bind<op::slsrchn>(host, slsrchn_op);
  bind<op::slstrng>(host, slstrng_op);
  bind<op::slgetnv>(host, slgetnv_op);
}

}  // namespace fmsd::host
