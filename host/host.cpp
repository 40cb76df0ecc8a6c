// The host's global control block and the blocks it points to.
#include "host/host.h"

#include <unistd.h>

#include <cstring>

#include "host/datasets.h"
#include "host/lists.h"
#include "host/operations.h"

namespace fmsd::host {

namespace {

// Per thread, so that a worker thread serving calls for a host of its own finds
// that host in every host operation while other threads find theirs.
thread_local Host* g_current = nullptr;

// The word the default task block hands to registrations.
constexpr fmsd_word kDefaultTaskWord = 0x7A5C;
constexpr double kUpperBound = 1.7976931348623157e308;
constexpr std::size_t kProcessWords = 16;
// More entries than any module registers: a count beyond it is a corrupt call.
constexpr int kMaxServices = 64;

void put_double(unsigned char* block, int offset, double value) { std::memcpy(block + offset, &value, sizeof value); }

}  // namespace

double missing_value() noexcept {
  double v;
  std::memcpy(&v, &kMissingBits, sizeof v);
  return v;
}

bool is_missing(double x) noexcept {
  std::uint64_t bits;
  std::memcpy(&bits, &x, sizeof bits);
  return (bits >> 48) == 0xFFFFu;
}

Host::Host()
    : gcb_(FMSD_GCB_WORDS, 0),
      pidb_(kProcessWords, 0),
      task_(FMSD_TASK_WORDS, 0),
      facilities_(FMSD_FACILITY_COUNT, nullptr),
      slots_(FMSD_FACILITY_COUNT),
      use_(FMSD_FACILITY_COUNT, 0),
      constants_{},
      previous_(g_current) {
  task_[FMSD_TASK_CURRENT] = 1;
  task_[FMSD_TASK_REGISTRATION] = kDefaultTaskWord;
  pidb_[0] = static_cast<fmsd_word>(::getpid());

  put_double(constants_, FMSD_CONST_MISSING, missing_value());
  put_double(constants_, FMSD_CONST_UPPER_BOUND, kUpperBound);
  put_double(constants_, FMSD_CONST_LOWER_BOUND, -kUpperBound);
  for (int c = 0; c < 256; ++c) upcase_[c] = static_cast<unsigned char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);

  gcb_[FMSD_GCB_FACILITIES] = reinterpret_cast<fmsd_word>(facilities_.data());
  gcb_[FMSD_GCB_USEBYTES] = reinterpret_cast<fmsd_word>(use_.data());
  gcb_[FMSD_GCB_TASK] = reinterpret_cast<fmsd_word>(task_.data());
  gcb_[FMSD_GCB_POOL] = reinterpret_cast<fmsd_word>(pool_.object());
  gcb_[FMSD_GCB_UPCASE] = reinterpret_cast<fmsd_word>(upcase_);
  gcb_[FMSD_GCB_CONSTANTS] = reinterpret_cast<fmsd_word>(constants_);

  lists_ = std::make_unique<ListRegistry>();
  datasets_ = std::make_unique<DataSets>(*this);
  install_operations(*this);
  g_current = this;
}

Host::~Host() { g_current = previous_; }

Host* Host::current() noexcept { return g_current; }

void Host::bind(int facility, int slot, void* function) noexcept {
  auto& table = slots_[static_cast<std::size_t>(facility)];
  if (table.size() <= static_cast<std::size_t>(slot)) table.resize(static_cast<std::size_t>(slot) + 1, nullptr);
  table[static_cast<std::size_t>(slot)] = function;
  facilities_[static_cast<std::size_t>(facility)] = table.data();
}

void* Host::function(int facility, int slot) const noexcept {
  const auto& table = slots_[static_cast<std::size_t>(facility)];
  return static_cast<std::size_t>(slot) < table.size() ? table[static_cast<std::size_t>(slot)] : nullptr;
}

void Host::clear_use_bytes() noexcept { std::fill(use_.begin(), use_.end(), 0); }

void Host::set_task_override(fmsd_word* block) noexcept {
  gcb_[FMSD_GCB_TASK_OVERRIDE] = reinterpret_cast<fmsd_word>(block);
}

// The current task: the override when one is set, unless it says it is the task
// itself (1), in which case the default block stands; otherwise the block it names.
fmsd_word Host::registration_task_word() const noexcept {
  const auto* candidate = reinterpret_cast<const fmsd_word*>(gcb_[FMSD_GCB_TASK_OVERRIDE]);
  if (candidate == nullptr) candidate = task_.data();
  const fmsd_word* current = candidate[FMSD_TASK_CURRENT] == 1
                                 ? task_.data()
                                 : reinterpret_cast<const fmsd_word*>(candidate[FMSD_TASK_CURRENT]);
  return current[FMSD_TASK_REGISTRATION];
}

double Host::missing() const noexcept {
  double v;
  std::memcpy(&v, constants_ + FMSD_CONST_MISSING, sizeof v);
  return v;
}

fmsd_word Host::register_services(void* const* table, void* block, int count, fmsd_word task, void* pidb) noexcept {
  if (refuse_registrations_ || table == nullptr || count < 1 || count > kMaxServices) return 0;
  if (pidb != pidb_.data() || task != registration_task_word()) return 0;
  try {
    Registration r{{}, block, task, static_cast<fmsd_word>(registrations_.size() + 1)};
    for (int i = 0; i < count; ++i) r.services.push_back(reinterpret_cast<fmsd_service_fn*>(table[i]));
    registrations_.push_back(std::move(r));
    return registrations_.back().handle;
  } catch (...) {
    return 0;
  }
}

void Host::add_diagnostic(std::string text) { diagnostics_.push_back(std::move(text)); }

void Host::add_log(std::string text) { log_.push_back(std::move(text)); }

}  // namespace fmsd::host
