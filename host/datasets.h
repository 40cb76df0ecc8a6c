// Host data sets: libraries, open data sets, input and output vectors.
//
// A data set is named LIB.MEMBER (MEMBER alone means WORK.MEMBER).  Library names
// are bound to storage (a directory of CSV files, an SQLite database, or any
// Library a test supplies); WORK is the current directory until it is bound.
// The module reaches open data sets through the host operations of facilities
// 39 and 203 and through the request functions of the handles they hand out.
#ifndef FMSD_HOST_DATASETS_H
#define FMSD_HOST_DATASETS_H

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace fmsd::host {

class Host;
class Library;

class DataSets {
 public:
  explicit DataSets(Host& host);
  // Outputs still open are discarded: nothing half-written replaces a data set.
  ~DataSets();
  DataSets(const DataSets&) = delete;
  DataSets& operator=(const DataSets&) = delete;

  // ---- libraries (names are case-insensitive identifiers of at most 8 characters) ----
  // Binding a name again replaces the earlier binding; data sets already open keep
  // the storage they were opened on until they are closed.
  bool bind_directory(std::string_view library, const std::string& directory, std::string& error);
  bool bind_database(std::string_view library, const std::string& file, std::string& error);
  bool bind(std::string_view library, std::unique_ptr<Library> storage, std::string& error);
  // The storage of a library name, or null when it is not bound.
  Library* library(std::string_view name) noexcept;

  // ---- a service call ----------------------------------------------------------------
  // Between these two, an output the module closes normally is held back rather
  // than saved, because only the call's result says whether it is sound.
  // finish_call saves the held outputs and any output left open when the call
  // succeeded, discards them all when it failed, and closes the inputs left open.
  // It returns false when an output could not be saved (the log says why).
  // Outside a call, closing an output saves it at once.
  void begin_call() noexcept;
  bool finish_call(bool success) noexcept;
  std::size_t open_count() const noexcept;

  // ---- fault injection, by data set name ("LIB.MEMBER" or "MEMBER") -----------------------
  // Opening the data set fails; reading or writing its row number `row` (counted
  // from 1 in each pass) fails.  Faults stay until cleared.
  void fail_open(std::string_view dataset);
  void fail_read(std::string_view dataset, long row);
  void fail_write(std::string_view dataset, long row);
  void clear_faults() noexcept;

  // Logs a failure in the host log and keeps it as the latest detail for xprrlog.
  void report(std::string text) noexcept;
  const std::string& last_failure() const noexcept;

 private:
  struct State;
  friend struct DataSetOperations;
  std::unique_ptr<State> state_;
};

}  // namespace fmsd::host

#endif
