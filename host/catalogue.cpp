// The host's message catalogue, the log of data set failures the module asks
// for, and the splitting of data set names into library and member.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "host/datasets.h"
#include "host/operations.h"
#include "host/storage.h"

namespace fmsd::host {

namespace {

// Labels of the series diagnostics output variables, in the order of its columns.
constexpr int kFirstDiagnosticLabel = 1120;
constexpr const char* kDiagnosticLabels[] = {
    "Lag",
    "Number of observation pairs",
    "Autocovariance",
    "Lower two-standard-error band of the autocorrelations",
    "Autocorrelation",
    "Upper two-standard-error band of the autocorrelations",
    "Lower two-standard-error band of the partial autocorrelations",
    "Partial autocorrelation",
    "Upper two-standard-error band of the partial autocorrelations",
    "Lower two-standard-error band of the inverse autocorrelations",
    "Inverse autocorrelation",
    "Upper two-standard-error band of the inverse autocorrelations",
    "White-noise test probability",
    "Unit-root test probability",
    "Seasonal unit-root test probability",
    "White-noise test log probability",
    "Unit-root test log probability",
    "Seasonal unit-root test log probability",
    "Autocorrelation significance probability",
    "Partial autocorrelation significance probability",
    "Inverse autocorrelation significance probability",
    "Autocorrelation significance log probability",
    "Partial autocorrelation significance log probability",
    "Inverse autocorrelation significance log probability",
};
constexpr int kDiagnosticLabelCount = static_cast<int>(sizeof kDiagnosticLabels / sizeof kDiagnosticLabels[0]);

const char* status_message(unsigned code) noexcept {
  switch (code) {
    case FMSD_STATUS_READ_FAILED:
      return "A data set could not be read.";
    case FMSD_STATUS_WRITE_FAILED:
      return "A data set could not be written.";
    case FMSD_STATUS_OPEN_FAILED:
      return "A data set could not be opened.";
    case FMSD_STATUS_NO_VARIABLE:
      return "A variable was not found.";
    case FMSD_STATUS_BAD_REQUEST:
      return "A data set request was not valid.";
    case FMSD_STATUS_NO_MEMORY:
      return "The host ran out of memory.";
    default:
      return nullptr;
  }
}

int xpmstr_op(char* buffer, int size, int group, int number) noexcept {
  if (buffer == nullptr || size < 1) return -1;
  buffer[0] = '\0';
  const int index = number - kFirstDiagnosticLabel;
  if (group != FMSD_MESSAGE_GROUP || index < 0 || index >= kDiagnosticLabelCount) {
    if (Host* host = Host::current()) {
      try {
        host->add_log("Message " + std::to_string(number) + " of group " + std::to_string(group) + " does not exist.");
      } catch (...) {
      }
    }
    return -1;
  }
  const char* text = kDiagnosticLabels[index];
  const std::size_t n = std::min(std::strlen(text), static_cast<std::size_t>(size - 1));
  std::memcpy(buffer, text, n);
  buffer[n] = '\0';
  return 0;
}

// The module's statuses come both as they are (from the request functions and
// xofprc) and negated (from the operations), so both forms are understood.
int xprrlog_op(int, int status) noexcept {
  const unsigned code =
      (status < 0 ? 0u - static_cast<unsigned>(status) : static_cast<unsigned>(status)) & FMSD_STATUS_MASK;
  if (code == 0 || code == FMSD_STATUS_END) return 0;
  Host* host = Host::current();
  if (host == nullptr) return -1;
  try {
    const char* message = status_message(code);
    std::string line =
        message != nullptr ? message : "A data set request failed with status " + std::to_string(status) + ".";
    const std::string& detail = host->datasets().last_failure();
    if (!detail.empty()) line += " " + detail;
    host->add_log(std::move(line));
  } catch (...) {
    return -1;
  }
  return 0;
}

void put_counted(char* out, std::string_view text) noexcept {
  const auto length = static_cast<std::int16_t>(text.size());
  std::memcpy(out, &length, sizeof length);
  std::memcpy(out + sizeof length, text.data(), text.size());
}

int refuse(std::string_view name, const char* why) noexcept {
  if (Host* host = Host::current()) {
    try {
      host->datasets().report("\"" + std::string(name) + "\" is not a valid data set name: " + why);
    } catch (...) {
    }
  }
  return -1;
}

// LIB.MEMBER or MEMBER (in WORK).  `first` gets the library and `last` the
// member, each as a 16-bit length and its characters; `block` gets the 34-byte
// name block (the member, blank-padded to 32).  Names that are not identifiers
// cannot name a path, so nothing reaches outside its library.
int znamdiv_op(int, const char* name, int length, fmsd_word* levels, int max_levels, char* first, char* block,
               char* last) noexcept {
  if (name == nullptr || length < 1) return refuse("", "the name is empty.");
  std::string_view text(name, static_cast<std::size_t>(length));
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  if (text.empty()) return refuse(text, "the name is empty.");
  const auto dot = text.find('.');
  const int found = dot == std::string_view::npos ? 1 : 2;
  if (found == 2 && text.find('.', dot + 1) != std::string_view::npos)
    return refuse(text, "it has more than two levels.");
  if (found > max_levels) return refuse(text, "it has more levels than were asked for.");
  const std::string_view library = found == 1 ? std::string_view("WORK") : text.substr(0, dot);
  const std::string_view member = found == 1 ? text : text.substr(dot + 1);
  if (!valid_library_name(library))
    return refuse(text,
                  "a library name is a letter or underscore followed by at most 7 letters, digits or underscores.");
  if (!valid_member_name(member))
    return refuse(text,
                  "a member name is a letter or underscore followed by at most 31 letters, digits or underscores.");
  if (first != nullptr) put_counted(first, library);
  if (last != nullptr) put_counted(last, member);
  if (block != nullptr) {
    std::memset(block, ' ', 34);
    put_counted(block, member);
  }
  if (levels != nullptr) *levels = found;
  return 0;
}

}  // namespace

void install_message_operations(Host& host) noexcept {
  bind<op::xpmstr>(host, xpmstr_op);
  bind<op::xprrlog>(host, xprrlog_op);
  bind<op::znamdiv>(host, znamdiv_op);
}

}  // namespace fmsd::host
