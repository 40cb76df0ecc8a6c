#include "host/lists.h"

#include "host/operations.h"

namespace fmsd::host {
ListRegistry::ListRegistry() = default;
ListRegistry::~ListRegistry() = default;
void install_list_operations(Host&) noexcept {}
}  // namespace fmsd::host
