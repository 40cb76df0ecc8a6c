#include "host/operations.h"

namespace fmsd::host {
void install_message_operations(Host&) noexcept {}
}  // namespace fmsd::host
