#include "app/memory_library.h"

namespace fmsd::app {

namespace {

std::string upper(const std::string& s) {
  std::string out = s;
  for (char& c : out)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return out;
}

class MemoryReader final : public host::Reader {
 public:
  explicit MemoryReader(const Table& table) : table_(table) {}
  const std::vector<host::Column>& columns() const override { return table_.columns; }
  std::int64_t rows() const override { return static_cast<std::int64_t>(table_.rows.size()); }
  void select(const std::vector<bool>&) override {}
  bool next(host::Cell* cells) override {
    if (at_ == table_.rows.size()) return false;
    const std::vector<StoredCell>& row = table_.rows[at_++];
    for (std::size_t i = 0; i < row.size(); ++i) {
      if (const double* x = std::get_if<double>(&row[i]))
        cells[i] = {*x, {}};
      else
        cells[i] = {0, std::get<std::string>(row[i])};
    }
    return true;
  }
  const std::string& error() const override { return error_; }
  bool rewind() override {
    at_ = 0;
    return true;
  }

 private:
  const Table& table_;
  std::size_t at_ = 0;
  std::string error_;
};

// Rows are staged and replace the member only on commit, as on disk.
class MemoryWriter final : public host::Writer {
 public:
  MemoryWriter(MemoryStore& store, std::string member, std::vector<host::Column> columns)
      : store_(store), member_(std::move(member)) {
    staged_.columns = std::move(columns);
  }
  bool write(const host::Cell* cells) override {
    std::vector<StoredCell> row;
    row.reserve(staged_.columns.size());
    for (std::size_t i = 0; i < staged_.columns.size(); ++i) {
      if (staged_.columns[i].numeric)
        row.emplace_back(cells[i].number);
      else
        row.emplace_back(std::string(cells[i].text));
    }
    staged_.rows.push_back(std::move(row));
    return true;
  }
  bool commit() override {
    store_.tables[member_] = std::move(staged_);
    staged_ = {};
    return true;
  }
  void discard() noexcept override { staged_ = {}; }
  const std::string& error() const override { return error_; }

 private:
  MemoryStore& store_;
  std::string member_;
  Table staged_;
  std::string error_;
};

}  // namespace

Table* MemoryStore::find(const std::string& member) {
  auto it = tables.find(upper(member));
  return it == tables.end() ? nullptr : &it->second;
}

std::unique_ptr<host::Reader> MemoryLibrary::open(const std::string& member, std::string& error) {
  if (const Table* table = store_->find(member)) return std::make_unique<MemoryReader>(*table);
  error = "member " + member + " is not in memory";
  return nullptr;
}

std::unique_ptr<host::Writer> MemoryLibrary::create(const std::string& member, const std::vector<host::Column>& columns,
                                                    std::string&) {
  return std::make_unique<MemoryWriter>(*store_, upper(member), columns);
}

}  // namespace fmsd::app
