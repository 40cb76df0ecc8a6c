// The commands that run the module's services: what each takes, how its options
// become the service's argument vector, and how the outcome is reported.
#ifndef FMSD_APP_COMMANDS_H
#define FMSD_APP_COMMANDS_H

#include <string>
#include <string_view>
#include <vector>

#include "app/options.h"

namespace fmsd::app {

// What the options before the command settle for every command.
struct Settings {
  std::string module_path;             // empty: the default place
  std::vector<std::string> libraries;  // --lib NAME=PATH, in order
};

// The service commands in the order the general help lists them.
std::vector<const CommandSpec*> service_commands();
const CommandSpec* find_service_command(std::string_view name);

// Runs a service command and returns the exit status: 0 when the service
// succeeded, 1 when it or saving its output failed.  A command line that
// cannot be run throws UsageError before anything is written.
int run_service_command(const CommandSpec& spec, const Settings& settings, const std::vector<std::string>& words);

}  // namespace fmsd::app

#endif
