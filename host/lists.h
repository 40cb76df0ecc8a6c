// Host lists: ordered items, each with an optional name and a double, an integer,
// a 16-bit integer, a text or a sublist, held in a registry that names every list
// by a small positive identifier.
//
// The module walks list objects and items directly, so both keep a fixed front:
// a list object is FMSD_LIST_WORDS words (0 identifier, 1 first item, 2 item
// count, 3 last item, 4 and 5 the walkers' cursor and cursor index, 6 the
// registry word), and an item starts with an fmsd_list_item.  Every operation
// keeps these words and the items' next pointers in step with the items.
//
// A sublist belongs to the one item that holds it: deleting, replacing or
// clearing that item, or freeing the list, frees the sublist with it.  A list
// that an item holds cannot be freed on its own or put into a second item.
#ifndef FMSD_HOST_LISTS_H
#define FMSD_HOST_LISTS_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "fmsd/hostabi.h"

namespace fmsd::host {

class List;

// A refused list request.  The message names the list and the item concerned.
class ListError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

inline constexpr int kListId = 0;
inline constexpr int kListLast = 3;
inline constexpr int kListRegistry = 6;

// Texts go out with a 16-bit length, so no text, and for symmetry no name, is longer.
inline constexpr std::size_t kMaxText = 32767;

struct Item {
  fmsd_list_item head{};     // what walkers read: next, kind, the double of kind 'N'
  fmsd_text block{};         // what slstrng hands out for kind 'C'
  std::string name;          // empty for an unnamed item
  std::string text;          // kind 'C'
  std::int32_t integer = 0;  // kinds 'I' and 'S'
  List* sublist = nullptr;   // kind 'L', owned by this item

  char kind() const noexcept { return head.kind; }
};

// A value to insert or set.  A sublist must be a list that no item holds yet; the
// item that receives it takes it over.
struct Value {
  char kind = FMSD_ITEM_DOUBLE;
  double number = 0;
  std::int32_t integer = 0;
  std::string_view text;
  List* sublist = nullptr;

  static Value real(double x) noexcept { return {FMSD_ITEM_DOUBLE, x, 0, {}, nullptr}; }
  static Value whole(std::int32_t i) noexcept { return {FMSD_ITEM_INTEGER, 0, i, {}, nullptr}; }
  static Value small(std::int32_t i) noexcept { return {FMSD_ITEM_SHORT, 0, i, {}, nullptr}; }
  static Value string(std::string_view t) noexcept { return {FMSD_ITEM_TEXT, 0, 0, t, nullptr}; }
  static Value list(List& l) noexcept { return {FMSD_ITEM_LIST, 0, 0, {}, &l}; }
};

// Names match when they have the same length and are equal ignoring the case of
// ASCII letters, as the host's upper-case table compares them.
bool same_name(std::string_view a, std::string_view b) noexcept;

// Numeric readings of an item: a double from any numeric kind; an integer from 'I',
// 'S' or an integral double in range; a 16-bit integer when the value fits.  False
// (output untouched) otherwise, a missing double included.
bool read_double(const Item& item, double& out) noexcept;
bool read_int(const Item& item, std::int32_t& out) noexcept;
bool read_short(const Item& item, std::int16_t& out) noexcept;

class List {
 public:
  fmsd_word id() const noexcept { return words_[kListId]; }
  // The list object the module reads, as slistp hands it out.
  fmsd_word* object() noexcept { return words_; }
  const fmsd_word* object() const noexcept { return words_; }
  std::size_t size() const noexcept { return items_.size(); }
  // Items by position, counted from 1; ListError for a position outside the list.
  Item& at(long position);
  const Item& at(long position) const;
  const std::vector<std::unique_ptr<Item>>& items() const noexcept { return items_; }
  // The first item with this name, or null.
  Item* find(std::string_view name) const noexcept;
  // Position (from 1) of the first item at or after start whose name, or whose
  // text for a character item, matches; 0 when there is none.
  long search_name(std::string_view name, long start) const noexcept;
  long search_text(std::string_view text) const noexcept;
  // The list whose item holds this one, or null for a list that stands alone.
  List* parent() const noexcept { return parent_; }
  // "list 3", for messages.
  std::string describe() const;

 private:
  friend class ListRegistry;
  fmsd_word words_[FMSD_LIST_WORDS] = {};
  std::vector<std::unique_ptr<Item>> items_;
  Item* holder_ = nullptr;
  List* parent_ = nullptr;
};

class ListRegistry {
 public:
  ListRegistry();
  ~ListRegistry();
  ListRegistry(const ListRegistry&) = delete;
  ListRegistry& operator=(const ListRegistry&) = delete;

  // The registry word that services find in their session block and pass to
  // slnewl, slcopy, slclear, slfree and slistp.
  fmsd_word word() const noexcept { return reinterpret_cast<fmsd_word>(this); }

  List& create();
  // A list by identifier or by object pointer; null for anything else.  A pointer
  // is only compared, never followed, until it is known to be a live list object.
  List* find(fmsd_word list) const noexcept;
  List& get(fmsd_word list) const;  // ListError when there is no such list
  // The item whose fmsd_list_item is at this address, or null.
  Item* find_item(const void* item) const noexcept;
  std::size_t size() const noexcept { return lists_.size(); }

  // Positions count from 1; insert takes -1 (or size + 1) to append.
  Item& insert(List& list, long position, std::string_view name, const Value& value);
  // A new empty sublist appended to the list under this name.
  List& append_list(List& list, std::string_view name);
  // Replaces the value and kind of an item; its name stays.
  void set(List& list, long position, const Value& value);
  // Replaces the value of the first item of this name, or appends a named item.
  void set_named(List& list, std::string_view name, const Value& value);
  void remove(List& list, long position);
  void rename(List& list, long position, std::string_view name);
  void clear(List& list);
  // ListError for a list that an item holds; its sublists go with it.
  void free(List& list);
  // A deep copy: every sublist is copied too.
  List& copy(const List& list);

 private:
  void assign(List& list, Item& item, const Value& value);
  void adopt(List& list, List& sublist) const;
  void link(List& list, std::size_t index) noexcept;
  void sync(List& list) noexcept;
  void drop(List& list) noexcept;
  void forget(Item& item) noexcept;

  std::unordered_map<fmsd_word, std::unique_ptr<List>> lists_;
  std::unordered_map<const void*, List*> objects_;
  std::unordered_map<const void*, Item*> items_;
  fmsd_word next_id_ = 1;
};

}  // namespace fmsd::host

#endif
