// libfmsdhost: a host for the fmsd module.  It owns the global control block and
// everything the block points to, loads the module as any host would, and
// answers the module's host operations.
#ifndef FMSD_HOST_HOST_H
#define FMSD_HOST_HOST_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "fmsd/hostabi.h"
#include "fmsd/module.h"

namespace fmsd::host {

// The missing value this host stores and writes: a NaN whose top 16 bits are all ones.
inline constexpr std::uint64_t kMissingBits = 0xFFFF000000000000ull;
double missing_value() noexcept;
bool is_missing(double x) noexcept;

// ---- calendar: day 0 is 1 January 1960 ------------------------------------------
// Valid from 1 January 1582 to 31 December 20000.  Leap years are the Gregorian
// ones except that years divisible by 4000 are common years.
inline constexpr int kFirstDay = -138061;
inline constexpr int kLastDay = 6589335;
// The day number of a calendar day, or the missing value when there is no such day.
double ziddmdy(int month, int day, int year) noexcept;
// Splits a day number into month, day and year; returns 0, or non-zero (outputs
// untouched) for a missing, non-finite or out-of-range date.  A fractional day
// belongs to the day it falls in.
int zidmdyd(int* month, int* day, int* year, double date) noexcept;

// ---- matrix kernels on packed lower-triangular symmetric matrices ----------------
// Adds weight * row * row' to the order x order matrix; returns 1, or 0 without
// touching the matrix when the row holds a missing value or a NaN.
int zscp(const double* row, int order, double weight, double* matrix) noexcept;
// Sum of x[i] * y[i] for i < n; 0 when n < 1.
double zinner(const double* x, const double* y, int n) noexcept;
// Sweeps the matrix on pivot (counted from 0).  status[i] is '1' for a pivot that
// has been swept.  The pivot is refused (result 1, nothing changed) when its current
// diagonal is not larger in magnitude than tolerance * |diagonal[pivot]|, or when it
// was swept already; -1 for invalid arguments; 0 after a sweep.
int zsweep(double* matrix, int pivot, int order, char* status, const double* diagonal,
           double tolerance) noexcept;

// ---- memory pool ------------------------------------------------------------------
class Pool {
 public:
  Pool();
  ~Pool();
  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;

  fmsd_pool* object() noexcept { return &object_.abi; }
  void* allocate(fmsd_word bytes, int flags) noexcept;
  // 0 after freeing; -1 for a pointer the pool did not hand out (nothing is freed).
  int release(void* block) noexcept;
  void release_all() noexcept;

  // Fault injection, counted from the moment it is set: the nth allocation fails,
  // or every allocation after the nth does.
  void fail_nth(long n) noexcept;
  void fail_after(long n) noexcept;
  void clear_faults() noexcept;

  bool failed() const noexcept { return failed_; }
  void reset_failed() noexcept { failed_ = false; }
  std::size_t live_blocks() const noexcept { return live_.size(); }
  std::size_t live_bytes() const noexcept { return live_bytes_; }
  long allocations() const noexcept { return count_; }

  // While a Divert is alive, what the module allocates or frees on this thread
  // goes to `pool`, whichever pool object it reached it through.  The module
  // finds the pool through the control block it was entered with, which belongs
  // to the host that loaded it; a worker thread that serves calls for a host of
  // its own diverts to that host's pool, so that its blocks and the failures
  // xmemdef reports stay apart from other threads'.
  class Divert {
   public:
    explicit Divert(Pool& pool) noexcept;
    ~Divert();
    Divert(const Divert&) = delete;
    Divert& operator=(const Divert&) = delete;

   private:
    Pool* previous_;
  };

  // What the module holds: the pool's two function words, then the way back here.
  struct Object {
    fmsd_pool abi;
    Pool* owner;
  };

 private:
  enum class Fault { None, Nth, After };
  Object object_;
  std::unordered_map<void*, std::size_t> live_;
  std::size_t live_bytes_ = 0;
  long count_ = 0;
  long fault_at_ = 0;
  Fault fault_ = Fault::None;
  bool failed_ = false;
};

// ---- the host -----------------------------------------------------------------------
class ListRegistry;  // host/lists.h
class DataSets;      // host/datasets.h

struct Registration {
  std::vector<fmsd_service_fn*> services;
  void* block;
  fmsd_word task;
  fmsd_word handle;
};

class Host {
 public:
  Host();
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  // The host that answers host operations on this thread: the most recently
  // created one alive on it.  A host is made, used and destroyed on one thread.
  static Host* current() noexcept;

  void* control_block() noexcept { return gcb_.data(); }
  void* process_block() noexcept { return pidb_.data(); }
  Pool& pool() noexcept { return pool_; }

  // Facility table: install a function in a slot (for tests and for later facilities).
  void bind(int facility, int slot, void* function) noexcept;
  void* function(int facility, int slot) const noexcept;
  unsigned char use_byte(int facility) const noexcept { return use_[static_cast<std::size_t>(facility)]; }
  void clear_use_bytes() noexcept;

  fmsd_word* default_task() noexcept { return task_.data(); }
  void set_task_override(fmsd_word* block) noexcept;
  fmsd_word registration_task_word() const noexcept;

  unsigned char* constants() noexcept { return constants_; }
  double missing() const noexcept;

  // Registration (virv2g).
  void refuse_registrations(bool refuse) noexcept { refuse_registrations_ = refuse; }
  const std::vector<Registration>& registrations() const noexcept { return registrations_; }
  fmsd_word register_services(void* const* table, void* block, int count, fmsd_word task, void* pidb) noexcept;

  ListRegistry& lists() noexcept { return *lists_; }
  DataSets& datasets() noexcept { return *datasets_; }

  // The host log: every failure of a host request, in words that name the data
  // set, variable or list concerned, oldest first.
  const std::vector<std::string>& log() const noexcept { return log_; }
  void add_log(std::string text);
  void clear_log() noexcept { log_.clear(); }

  // Messages the module reported through xebug, oldest first.
  const std::vector<std::string>& diagnostics() const noexcept { return diagnostics_; }
  void add_diagnostic(std::string text);
  void clear_diagnostics() noexcept { diagnostics_.clear(); }

 private:
  std::vector<fmsd_word> gcb_;
  std::vector<fmsd_word> pidb_;
  std::vector<fmsd_word> task_;
  std::vector<void*> facilities_;                 // facility number -> slot table
  std::vector<std::vector<void*>> slots_;         // the slot tables themselves
  std::vector<unsigned char> use_;
  alignas(8) unsigned char constants_[FMSD_CONST_BYTES];
  unsigned char upcase_[256];
  Pool pool_;
  std::vector<Registration> registrations_;
  std::vector<std::string> diagnostics_;
  std::vector<std::string> log_;
  std::unique_ptr<ListRegistry> lists_;
  std::unique_ptr<DataSets> datasets_;
  bool refuse_registrations_ = false;
  Host* previous_;
};

// ---- the module, loaded and registered ---------------------------------------------
class Module {
 public:
  // Loads the shared object at path, enters it and registers its services with the
  // host.  Returns null and fills error when any step fails.
  static std::unique_ptr<Module> load(Host& host, const std::string& path, std::string& error);
  ~Module();
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  const fmsd_image_info& image() const noexcept { return *image_; }
  const std::string& path() const noexcept { return path_; }
  const Registration& registration() const noexcept { return registration_; }
  // The exported name of a registered service entry (found through the dynamic symbols).
  std::string service_name(int slot) const;

 private:
  Module() = default;
  void* handle_ = nullptr;
  const fmsd_image_info* image_ = nullptr;
  std::string path_;
  Registration registration_{};
};

// Where the module is looked for when no path is given: $FMSD_MODULE, else
// libfmsd.so in ../lib and then in the directory of the running program.
std::string default_module_path();

}  // namespace fmsd::host

#endif
