#include "app/results.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace fmsd::app {

namespace {

struct Meaning {
  int code;
  const char* text;
};

constexpr Meaning kModout[] = {
    {0, "success"},
    {-996,
     "a data set cannot be opened, a variable cannot be found or is not numeric, a row cannot be read while "
     "positioning, or no input row lies at or after the start of the data range"},
    {-997, "the time ranges could not be settled"},
    {-998, "an argument is missing or does not match, or the interval information or the variable list is unusable"},
    {-999, "host memory exhausted"},
};

constexpr Meaning kModdata[] = {
    {0, "model data set written"},
    {-996,
     "a data set could not be opened, no input observation lies at or after the data start, an input variable is "
     "missing or not numeric, or an output variable could not be defined"},
    {-997, "the data, fit or evaluation range is empty"},
    {-998,
     "arguments missing or not matching, no usable \"INTERVALINFO\", no variables, or a role error (no time ID or "
     "actual, or a role given twice)"},
    {-999, "host memory exhausted"},
};

constexpr Meaning kMtstran[] = {
    {0, "success"},
    {2, "success, but every value of the treated series is missing"},
    {3,
     "success, but a multiplicative decomposition was asked for a series with a value below 1.491668147e-154 "
     "(zero or negative), and an additive one was done instead"},
    {-996,
     "an input or output data set could not be opened, a variable is missing from the input, or it is not numeric"},
    {-998, "the arguments do not match or a name is empty"},
    {-999, "host memory could not be had"},
    {-899, "a transformation was asked for a series whose smallest present value is not above 0"},
    {-900, "the transformation or the decomposition routine reported failure"},
};

constexpr Meaning kMtsscov[] = {
    {0, "success"},
    {1, "success with fewer lags than requested"},
    {-995, "a result item could not be set"},
    {-996, "data set or variable problem, or the output data set could not be written"},
    {-997, "the series has no usable value"},
    {-998, "bad arguments: an empty name, or neither lags nor an options list"},
    {-999, "memory exhausted or the result list could not be made"},
};

template <std::size_t N>
const char* look_up(const Meaning (&table)[N], double code) noexcept {
  for (const Meaning& m : table)
    if (static_cast<double>(m.code) == code) return m.text;
  return nullptr;
}

}  // namespace

const char* result_meaning(std::string_view service, double code) noexcept {
  if (service == "modout") return look_up(kModout, code);
  if (service == "moddata") return look_up(kModdata, code);
  if (service == "mtstran") return look_up(kMtstran, code);
  if (service == "mtsscov") return look_up(kMtsscov, code);
  return nullptr;
}

std::string code_text(double code) {
  if (std::isfinite(code) && code == std::trunc(code) && std::fabs(code) < 1e15)
    return std::to_string(static_cast<long long>(code));
  char buffer[32];
  const auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, code);
  return ec == std::errc() ? std::string(buffer, end) : "?";
}

ResultFile::~ResultFile() {
  if (!temporary_.empty()) ::unlink(temporary_.c_str());
}

bool ResultFile::stage(std::string_view text) {
  const std::size_t slash = path_.rfind('/');
  const std::string directory = slash == std::string::npos ? "" : path_.substr(0, slash + 1);
  const std::string base = slash == std::string::npos ? path_ : path_.substr(slash + 1);
  temporary_ = directory + "." + base + "." + std::to_string(::getpid()) + ".tmp";
  const int fd = ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) {
    error_ = "cannot create " + temporary_ + ": " + std::strerror(errno);
    temporary_.clear();
    return false;
  }
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  const bool written = done == text.size() && ::fsync(fd) == 0;
  const int saved_errno = errno;
  if (::close(fd) != 0 || !written) {
    error_ = "cannot write " + path_ + ": " + std::strerror(written ? errno : saved_errno);
    return false;
  }
  return true;
}

bool ResultFile::commit() {
  if (::rename(temporary_.c_str(), path_.c_str()) != 0) {
    error_ = "cannot replace " + path_ + ": " + std::strerror(errno);
    return false;
  }
  temporary_.clear();
  return true;
}

}  // namespace fmsd::app
