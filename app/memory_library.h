// A library held in memory: the data sets that pass between the services of one
// command (or one group of a larger run) without touching the disk.
#ifndef FMSD_APP_MEMORY_LIBRARY_H
#define FMSD_APP_MEMORY_LIBRARY_H

#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "host/storage.h"

namespace fmsd::app {

// One cell as stored: a number (missing values included) or a text.
using StoredCell = std::variant<double, std::string>;

struct Table {
  std::vector<host::Column> columns;
  std::vector<std::vector<StoredCell>> rows;
};

// What the library holds, shared between the library the host binds and the
// code that fills it or reads it back.  Member names are kept in upper case.
struct MemoryStore {
  std::map<std::string, Table> tables;
  // The table of a member, or null.
  Table* find(const std::string& member);
};

class MemoryLibrary final : public host::Library {
 public:
  explicit MemoryLibrary(std::shared_ptr<MemoryStore> store) : store_(std::move(store)) {}
  std::unique_ptr<host::Reader> open(const std::string& member, std::string& error) override;
  std::unique_ptr<host::Writer> create(const std::string& member, const std::vector<host::Column>& columns,
                                       std::string& error) override;
  std::string describe() const override { return "memory"; }

 private:
  std::shared_ptr<MemoryStore> store_;
};

}  // namespace fmsd::app

#endif
