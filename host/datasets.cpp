#include "host/datasets.h"

#include "host/operations.h"

namespace fmsd::host {
DataSets::DataSets(Host&) {}
DataSets::~DataSets() = default;
void install_dataset_operations(Host&) noexcept {}
}  // namespace fmsd::host
