// The model data service.
#include "fmsd/module.h"
#include "module/hostops.h"

namespace {
constexpr int kResultPosition = 5;
constexpr double kNotAvailable = -998;
}  // namespace

// Until the model data computation lands (issue #8) every call is answered as a call
// with unusable arguments, so a host never mistakes it for a success.
extern "C" FMSD_API int moddata(void* context, void* /*arguments*/) {
  posretd(context, kResultPosition, kNotAvailable, 0);
  return 0;
}
