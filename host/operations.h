// Internal to the host: filling the facility table with the host operations.
#ifndef FMSD_HOST_OPERATIONS_H
#define FMSD_HOST_OPERATIONS_H

#include "host/host.h"

namespace fmsd::host {

void install_operations(Host& host) noexcept;

// The message operations, variadic like their printf-style callers.
int xpsstr_op(char* buffer, int size, const char* format, ...) noexcept;
int xebug_op(const char* format, ...) noexcept;

}  // namespace fmsd::host

#endif
