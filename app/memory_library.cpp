#include "app/memory_library.h"

#include "host/storage_detail.h"

namespace fmsd::app {

namespace {

class MemoryReader final : public host::Reader {
 public:
  explicit MemoryReader(std::shared_ptr<const Table> table) : table_(std::move(table)) {}
  const std::vector<host::Column>& columns() const override { return table_->columns; }
  std::int64_t rows() const override { return static_cast<std::int64_t>(table_->rows); }
  void select(const std::vector<bool>&) override {}
  bool next(host::Cell* cells) override {
    if (row_ == table_->rows) return false;
    const std::size_t n = table_->columns.size();
    const std::size_t at = row_ * n;
    for (std::size_t j = 0; j < n; ++j) {
      cells[j].number = table_->numbers[at + j];
      cells[j].text = table_->columns[j].numeric ? std::string_view() : std::string_view(table_->texts[at + j]);
    }
    ++row_;
    return true;
  }
  const std::string& error() const override { return error_; }
  bool rewind() override {
    row_ = 0;
    return true;
  }

 private:
  std::shared_ptr<const Table> table_;  // held, so that a member replaced meanwhile stays readable
  std::size_t row_ = 0;
  std::string error_;
};

// Rows are staged and replace the member only on commit, as on disk.
class MemoryWriter final : public host::Writer {
 public:
  MemoryWriter(MemoryStore& store, std::string member, std::vector<host::Column> columns)
      : store_(store), member_(std::move(member)), staged_(std::make_shared<Table>()) {
    staged_->columns = std::move(columns);
  }
  bool write(const host::Cell* cells) override {
    staged_->add(cells);
    return true;
  }
  bool commit() override {
    if (!staged_) return false;
    store_.save(member_, std::move(staged_));
    return true;
  }
  void discard() noexcept override { staged_.reset(); }
  const std::string& error() const override { return error_; }

 private:
  MemoryStore& store_;
  std::string member_;
  std::shared_ptr<Table> staged_;
  std::string error_;
};

}  // namespace

void Table::add(const host::Cell* cells) {
  const std::size_t n = columns.size();
  const std::size_t at = numbers.size();
  numbers.resize(at + n);
  bool texts_too = false;
  for (std::size_t j = 0; j < n; ++j) {
    const bool numeric = columns[j].numeric;
    numbers[at + j] = numeric ? cells[j].number : 0;
    texts_too = texts_too || !numeric;
  }
  if (texts_too)
    for (std::size_t j = 0; j < n; ++j) texts.emplace_back(columns[j].numeric ? std::string_view() : cells[j].text);
  ++rows;
}

bool Table::has_texts() const noexcept {
  for (const host::Column& c : columns)
    if (!c.numeric) return true;
  return false;
}

void MemoryStore::put(const std::string& member, std::shared_ptr<const Table> table) {
  members_[host::detail::lower(member)] = {std::move(table), false};
}

std::shared_ptr<const Table> MemoryStore::find(const std::string& member) const {
  auto it = members_.find(host::detail::lower(member));
  return it == members_.end() ? nullptr : it->second.table;
}

std::shared_ptr<const Table> MemoryStore::take(const std::string& member) {
  auto it = members_.find(host::detail::lower(member));
  if (it == members_.end() || !it->second.written) return nullptr;
  std::shared_ptr<const Table> table = std::move(it->second.table);
  members_.erase(it);
  return table;
}

void MemoryStore::save(const std::string& member, std::shared_ptr<const Table> table) {
  members_[host::detail::lower(member)] = {std::move(table), true};
}

std::unique_ptr<host::Reader> MemoryLibrary::open(const std::string& member, std::string& error) {
  if (std::shared_ptr<const Table> table = store_->find(member)) return std::make_unique<MemoryReader>(std::move(table));
  error = "member " + member + " is not in " + description_;
  return nullptr;
}

std::unique_ptr<host::Writer> MemoryLibrary::create(const std::string& member, const std::vector<host::Column>& columns,
                                                    std::string&) {
  return std::make_unique<MemoryWriter>(*store_, member, columns);
}

}  // namespace fmsd::app
