// The series transformation service.
#include "fmsd/module.h"
#include "module/hostops.h"

namespace {
constexpr int kResultPosition = 8;
constexpr double kNotAvailable = -998;
}  // namespace

// Until the series transformation computation lands (issue #8) every call is answered as a call
// with unusable arguments, so a host never mistakes it for a success.
extern "C" FMSD_API int mtstran(void* context, void* /*arguments*/) {
  posretd(context, kResultPosition, kNotAvailable, 0);
  return 0;
}
