#include "app/service_call.h"

#include "host/arguments.h"
#include "host/datasets.h"
#include "host/host.h"

namespace fmsd::app {

ServiceCall::ServiceCall(host::Host& host, const host::Module& module, int slot)
    : host_(host), module_(module), slot_(slot) {}

ServiceCall::~ServiceCall() {
  if (open_) host_.datasets().finish_call(false);
}

std::optional<double> ServiceCall::run(host::Arguments& arguments) {
  const auto& services = module_.registration().services;
  log_start_ = host_.log().size();
  arguments.clear_results();
  host_.datasets().begin_call();
  open_ = true;
  {
    host::CallContext context(host_, arguments);
    services.at(static_cast<std::size_t>(slot_))(context.context(), context.arguments());
  }
  return arguments.result();
}

bool ServiceCall::finish(bool success) {
  open_ = false;
  return host_.datasets().finish_call(success);
}

std::string ServiceCall::detail() const {
  const auto& log = host_.log();
  if (log.size() <= log_start_) return {};
  std::string text = log.back();
  for (char& c : text)
    if (c == '\n' || c == '\r') c = ' ';
  return text;
}

}  // namespace fmsd::app
