// libFuzzer target: JSON parameter lists.  Any bytes either parse or are refused
// with a JsonError; what parses writes JSON that reads back to the same JSON, and
// freeing the lists leaves the registry as it was.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "host/host.h"
#include "host/json.h"
#include "host/lists.h"

namespace {
fmsd::host::Host* g_host = nullptr;

[[noreturn]] void failed(const char* what, const std::string& detail) {
  std::fprintf(stderr, "property failed: %s\n%s\n", what, detail.c_str());
  std::abort();
}
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  static fmsd::host::Host host;
  g_host = &host;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  using namespace fmsd::host;
  ListRegistry& lists = g_host->lists();
  const std::size_t before = lists.size();
  List* first = nullptr;
  try {
    first = &json_to_list(lists, std::string_view(reinterpret_cast<const char*>(data), size));
  } catch (const JsonError&) {
    if (lists.size() != before) failed("a refused text left lists behind", "");
    return 0;
  }
  const std::string once = list_to_json(*first);
  List* second = nullptr;
  try {
    second = &json_to_list(lists, once);
  } catch (const JsonError& e) {
    failed("written JSON does not read back", once + "\n" + e.what());
  }
  const std::string twice = list_to_json(*second);
  if (twice != once) failed("list -> JSON -> list -> JSON is not a fixed point", once + "\n" + twice);
  lists.free(*first);
  lists.free(*second);
  if (lists.size() != before) failed("freeing the lists left some behind", once);
  return 0;
}
