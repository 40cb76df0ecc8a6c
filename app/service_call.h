// One service call made as the host makes it: the argument vector and call
// context, the entry taken from the module's registered service table, and the
// data sets the service writes held back until its result says they are sound.
#ifndef FMSD_APP_SERVICE_CALL_H
#define FMSD_APP_SERVICE_CALL_H

#include <cstddef>
#include <optional>
#include <string>

namespace fmsd::host {
class Arguments;
class Host;
class Module;
}  // namespace fmsd::host

namespace fmsd::app {

class ServiceCall {
 public:
  // The service registered at `slot` of the module's table.
  ServiceCall(host::Host& host, const host::Module& module, int slot);
  // A call that never reached finish(true) leaves no output behind.
  ~ServiceCall();
  ServiceCall(const ServiceCall&) = delete;
  ServiceCall& operator=(const ServiceCall&) = delete;

  // Calls the service once; the result it set at the position after the last
  // argument, or nothing when it set none.
  std::optional<double> run(host::Arguments& arguments);

  // Saves the outputs (success) or discards them.  False when an output could
  // not be saved; detail() then says why.
  bool finish(bool success);

  // The latest entry the host logged since the call began, or an empty text.
  std::string detail() const;

 private:
  host::Host& host_;
  const host::Module& module_;
  int slot_;
  std::size_t log_start_ = 0;
  bool open_ = false;
};

}  // namespace fmsd::app

#endif
