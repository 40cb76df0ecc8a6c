// Internal to the host: filling the facility table with the host operations.
#ifndef FMSD_HOST_OPERATIONS_H
#define FMSD_HOST_OPERATIONS_H

#include "host/host.h"

namespace fmsd::host {

// Facility and slot of every host operation, by name: op::slgnd::facility ...
#define FMSD_OPERATION_INFO(name, facility_, slot_, result, params) \
  struct name {                                                     \
    using type = fmsd_fn_##name;                                    \
    static constexpr int facility = facility_;                      \
    static constexpr int slot = slot_;                              \
  };
namespace op {
FMSD_HOST_OPERATIONS(FMSD_OPERATION_INFO)
}
#undef FMSD_OPERATION_INFO

// Binding through the operation's own function type makes a host function with
// the wrong signature a compile error.
template <class Op>
void bind(Host& host, typename Op::type* function) noexcept {
  host.bind(Op::facility, Op::slot, reinterpret_cast<void*>(function));
}

void install_operations(Host& host) noexcept;

// Each facility's machinery binds its own operations.
void install_list_operations(Host& host) noexcept;      // host/lists.cpp: facility 232
void install_argument_operations(Host& host) noexcept;  // host/arguments.cpp: facility 233
void install_dataset_operations(Host& host) noexcept;   // host/datasets.cpp: facilities 39 and 203
void install_message_operations(Host& host) noexcept;   // host/catalogue.cpp: xpmstr, xprrlog, znamdiv

// The message operations, variadic like their printf-style callers.
int xpsstr_op(char* buffer, int size, const char* format, ...) noexcept;
int xebug_op(const char* format, ...) noexcept;

}  // namespace fmsd::host

#endif
