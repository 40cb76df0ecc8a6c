#include "host/operations.h"

namespace fmsd::host {
void install_argument_operations(Host&) noexcept {}
}  // namespace fmsd::host
