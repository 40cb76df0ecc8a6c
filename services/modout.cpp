// The model output service.
#include "fmsd/module.h"
#include "module/hostops.h"

namespace {
constexpr int kResultPosition = 7;
constexpr double kNotAvailable = -998;
}  // namespace

// Until the model output computation lands (issue #8) every call is answered as a call
// with unusable arguments, so a host never mistakes it for a success.
extern "C" FMSD_API int modout(void* context, void* /*arguments*/) {
  posretd(context, kResultPosition, kNotAvailable, 0);
  return 0;
}
