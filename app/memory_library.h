// A library held in memory: the data sets that pass between the services of one
// command, or the rows of one group of a --by run, without touching the disk.
#ifndef FMSD_APP_MEMORY_LIBRARY_H
#define FMSD_APP_MEMORY_LIBRARY_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/storage.h"

namespace fmsd::app {

// The rows of a data set, a row after another in flat arrays: one vector for
// the whole table rather than one per row keeps a group of a large run cheap to
// build and to hand between threads.
struct Table {
  std::vector<host::Column> columns;
  std::vector<double> numbers;     // a slot per column (0 for a text)
  std::vector<std::string> texts;  // a slot per column, only when some column is a text
  std::size_t rows = 0;

  void add(const host::Cell* cells);
  bool has_texts() const noexcept;
  double number(std::size_t row, std::size_t column) const { return numbers[row * columns.size() + column]; }
};

// What the library holds, shared between the library the host binds and the
// code that fills it or reads it back.  Member names compare without regard to
// case.  Tables are shared, never copied: one put in is read in place.
class MemoryStore {
 public:
  void put(const std::string& member, std::shared_ptr<const Table> table);
  // What a writer of the library commits.
  void save(const std::string& member, std::shared_ptr<const Table> table);
  // The table of a member, or null.
  std::shared_ptr<const Table> find(const std::string& member) const;
  // What a writer saved under the member since it was put there, or null;
  // taking it forgets the member.
  std::shared_ptr<const Table> take(const std::string& member);

 private:
  struct Member {
    std::shared_ptr<const Table> table;
    bool written = false;
  };
  std::map<std::string, Member> members_;
};

class MemoryLibrary final : public host::Library {
 public:
  explicit MemoryLibrary(std::shared_ptr<MemoryStore> store, std::string description = "memory")
      : store_(std::move(store)), description_(std::move(description)) {}
  std::unique_ptr<host::Reader> open(const std::string& member, std::string& error) override;
  std::unique_ptr<host::Writer> create(const std::string& member, const std::vector<host::Column>& columns,
                                       std::string& error) override;
  std::string describe() const override { return description_; }

 private:
  std::shared_ptr<MemoryStore> store_;
  std::string description_;
};

}  // namespace fmsd::app

#endif
