// What the services' result codes mean, and the result file that is written
// only when the whole call has succeeded.
#ifndef FMSD_APP_RESULTS_H
#define FMSD_APP_RESULTS_H

#include <string>
#include <string_view>

namespace fmsd::app {

// The meaning of a service's result code in the service's own terms, or null for
// a code the service does not define.
const char* result_meaning(std::string_view service, double code) noexcept;

// "-996" for a whole code, the shortest exact form otherwise.
std::string code_text(double code);

// A file that takes its content in two steps: stage() writes a hidden temporary
// file beside it, commit() renames that over the file.  A result file staged and
// never committed leaves nothing behind and an earlier file as it was.
class ResultFile {
 public:
  explicit ResultFile(std::string path) : path_(std::move(path)) {}
  ~ResultFile();
  ResultFile(const ResultFile&) = delete;
  ResultFile& operator=(const ResultFile&) = delete;

  // False with error() set when the text cannot be written.
  bool stage(std::string_view text);
  bool commit();
  const std::string& error() const noexcept { return error_; }

 private:
  std::string path_;
  std::string temporary_;
  std::string error_;
};

}  // namespace fmsd::app

#endif
