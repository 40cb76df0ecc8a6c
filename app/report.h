// fmsd report: one self-contained HTML page about one series, made by running
// the transformation and diagnostics services in process and drawing what they
// write, with a fitted model's forecasts when one is given.
#ifndef FMSD_APP_REPORT_H
#define FMSD_APP_REPORT_H

#include <string>
#include <vector>

#include "app/commands.h"

namespace fmsd::app {

// Runs the command, or shows its help, and returns the exit status: 0 when the
// page was written, 1 when a service failed or the data cannot be used (nothing
// is written then), 2 for a command line that cannot be run.
int run_report(const Settings& settings, const std::vector<std::string>& words, bool help);

}  // namespace fmsd::app

#endif
