// The host memory pool.  It owns every block it hands out, so that the host can
// reclaim what a service leaves behind, and it can be told to fail allocations
// so that every failure path of the module can be exercised.
#include <cstdlib>
#include <cstring>

#include "host/host.h"

namespace fmsd::host {

namespace {

void* pool_alloc(fmsd_pool* pool, fmsd_word bytes, int flags) noexcept;
int pool_free(fmsd_pool* pool, void* block, fmsd_word word, int flags) noexcept;

thread_local Pool* t_diverted = nullptr;

}  // namespace

Pool::Divert::Divert(Pool& pool) noexcept : previous_(t_diverted) { t_diverted = &pool; }

Pool::Divert::~Divert() { t_diverted = previous_; }

Pool::Pool() : object_{{pool_alloc, pool_free}, this} {}

Pool::~Pool() { release_all(); }

void* Pool::allocate(fmsd_word bytes, int flags) noexcept {
  ++count_;
  const bool inject = (fault_ == Fault::Nth && count_ == fault_at_) || (fault_ == Fault::After && count_ > fault_at_);
  if (inject || bytes < 0) {
    failed_ = true;
    return nullptr;
  }
  const auto size = static_cast<std::size_t>(bytes);
  void* block = (flags & FMSD_POOL_ZERO) ? std::calloc(size ? size : 1, 1) : std::malloc(size ? size : 1);
  if (block == nullptr) {
    failed_ = true;
    return nullptr;
  }
  try {
    live_.emplace(block, size);
  } catch (...) {
    std::free(block);
    failed_ = true;
    return nullptr;
  }
  live_bytes_ += size;
  return block;
}

int Pool::release(void* block) noexcept {
  if (block == nullptr) return 0;
  auto it = live_.find(block);
  if (it == live_.end()) return -1;
  live_bytes_ -= it->second;
  live_.erase(it);
  std::free(block);
  return 0;
}

void Pool::release_all() noexcept {
  for (auto& [block, size] : live_) std::free(block);
  live_.clear();
  live_bytes_ = 0;
}

void Pool::fail_nth(long n) noexcept {
  count_ = 0;
  fault_at_ = n;
  fault_ = Fault::Nth;
}

void Pool::fail_after(long n) noexcept {
  count_ = 0;
  fault_at_ = n;
  fault_ = Fault::After;
}

void Pool::clear_faults() noexcept { fault_ = Fault::None; }

namespace {

// The module's pool pointer is the first member of a Pool::Object.
Pool* owner(fmsd_pool* pool) noexcept {
  return t_diverted != nullptr ? t_diverted : reinterpret_cast<Pool::Object*>(pool)->owner;
}

void* pool_alloc(fmsd_pool* pool, fmsd_word bytes, int flags) noexcept {
  return pool != nullptr ? owner(pool)->allocate(bytes, flags) : nullptr;
}

int pool_free(fmsd_pool* pool, void* block, fmsd_word, int) noexcept {
  return pool != nullptr ? owner(pool)->release(block) : -1;
}

}  // namespace

}  // namespace fmsd::host
