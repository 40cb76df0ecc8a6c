// Runs a command for each group of rows that share the values of the BY
// variables.  The input is read once, in order, a group at a time; each group
// becomes an in-memory data set that a worker thread hands to the service under
// the input's own name; the groups' outputs are written in group order into one
// output data set, the BY variables first, and each group's outcome goes into a
// JSON array.  A group that fails is reported and left out; the others go on.
// Where the output library has a text form (CSV), the workers also format their
// groups' rows, so that the reading thread, which bounds a large run, only
// parses the input and appends finished text.
//
// The rows must come in ascending order of the BY variables (numbers by value,
// missing first; texts byte by byte), so that memory holds a bounded number of
// groups however many there are.
#ifndef FMSD_APP_BY_H
#define FMSD_APP_BY_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/memory_library.h"
#include "app/options.h"

namespace fmsd::host {
class Arguments;
class Host;
class List;
class Module;
}  // namespace fmsd::host

namespace fmsd::app {

// A worker's view of the data: the group's input and the outputs the service
// writes, held in libraries of the worker's own host that carry the names the
// command line gave.
class GroupData {
 public:
  virtual ~GroupData() = default;
  // What the service will read as LIB.MEMBER.
  virtual void put(const std::string& dataset, std::shared_ptr<const Table> rows) = 0;
  // What the service wrote and saved as LIB.MEMBER, or null; taking it forgets it.
  virtual std::shared_ptr<const Table> take(const std::string& dataset) = 0;
};

// What one group's work came to.
struct GroupOutcome {
  bool ok = false;
  double code = 0;
  std::string message;                  // why it failed, or a notice for a success
  std::shared_ptr<const Table> output;  // rows to write after the BY variables
  std::string list_json;                // the result list, one line, or empty
  double service_seconds = 0;           // wall time inside the service calls
  double service_cpu_seconds = 0;       // this thread's processor time inside them
};

struct ByRun {
  std::string command;                 // "diagnose", for messages
  std::vector<std::string> by;         // BY variable names
  std::string input, input_shown;      // LIB.MEMBER and how messages name it
  std::string output, output_shown;
  std::vector<std::string> libraries;  // LIB names the workers bind to memory
  std::optional<std::string> result_file;  // the JSON array; standard output when absent
  std::optional<std::string> timing_file;
  unsigned jobs = 0;                   // 0: one per processor
  int progress = -1;                   // 1 on, 0 off, -1 when standard error is a terminal
  // Runs on a worker thread with that worker's host (current on the thread, its
  // pool the one the module allocates from) and its data.
  std::function<GroupOutcome(host::Host&, GroupData&, const std::shared_ptr<const Table>&)> work;
};

// Reads the input through `host` (the libraries bound as the command line
// asked), runs the groups and writes the output and the result array.  Returns
// the exit status: 0 when every group succeeded, 3 when some failed and the
// others were saved, 1 when nothing was saved.  Throws UsageError for BY
// variables that the input does not have.
int run_groups(host::Host& host, const ByRun& run);

// Wall and processor time of the service calls of a group, added to its outcome.
struct ServiceTiming {
  ServiceTiming();
  void stop(GroupOutcome& outcome) const;

 private:
  double wall_, cpu_;
};

// A command's options with --by, --jobs, --progress and --timing added.
std::vector<OptionSpec> with_by(std::vector<OptionSpec> options);
// Checks those options before anything runs: UsageError for a bad value, or
// for --jobs, --progress or --timing without --by.
void check_by_options(const OptionValues& values);
// What those options and --result say about a run.
void apply_by_options(const OptionValues& values, ByRun& run);

}  // namespace fmsd::app

#endif
