// Module entry: the two anchors, the static image information the host reads
// to find qorfmsd, and the registration of the four services.
#include <cstddef>

#include "fmsd/module.h"
#include "module/hostops.h"

static_assert(sizeof(void*) == 8, "the module is laid out for 64-bit hosts");
static_assert(offsetof(fmsd_image_info, magic) == 24);
static_assert(offsetof(fmsd_image_info, eight) == 28);
static_assert(offsetof(fmsd_image_info, version) == 32);
static_assert(offsetof(fmsd_image_info, release) == 38);
static_assert(offsetof(fmsd_image_info, build_date) == 58);
static_assert(offsetof(fmsd_image_info, routines) == 88);
static_assert(offsetof(fmsd_image_info, notice) == 96);
static_assert(offsetof(fmsd_image_info, level) == 104);
static_assert(sizeof(fmsd_image_info) == 112);
static_assert(offsetof(fmsd_routine_descriptor, name) == 12);
static_assert(offsetof(fmsd_routine_descriptor, reserved) == 20);
static_assert(offsetof(fmsd_routine_descriptor, routine) == 24);
static_assert(offsetof(fmsd_routine_descriptor, args) == 32);
static_assert(offsetof(fmsd_routine_descriptor, flags) == 44);
static_assert(sizeof(fmsd_routine_descriptor) == 48);

namespace {

// The descriptor and the two shared constant fields that lie right behind it.
struct DescriptorArea {
  fmsd_routine_descriptor descriptor;
  char blanks[10];
  char zeros[20];
};
static_assert(offsetof(DescriptorArea, blanks) == sizeof(fmsd_routine_descriptor));

constexpr int kStatusRegistrationRefused = 4;

}  // namespace

extern "C" {

FMSD_API void* v_global_gcb_anchor = nullptr;
FMSD_API void* v_global_pidb_anchor = nullptr;
FMSD_API int32_t u_deve = 0;
FMSD_API int32_t u_devp = 0;

extern const DescriptorArea pcn_QORFMSD_area;
const DescriptorArea pcn_QORFMSD_area = {
    {0xFFFF0000u, 1024, 1024, {'q', 'o', 'r', 'f', 'm', 's', 'd', ' '}, 0, qorfmsd, 4, 9683, 0x0243B788u, 15},
    {' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '},
    {},
};

const fmsd_routine_descriptor* const mcn_pcns[2] = {&pcn_QORFMSD, nullptr};

const fmsd_image_info vi_mcn = {
    "QOR_Image_Information=",
    FMSD_IMAGE_MAGIC,
    8,
    FMSD_VERSION_SHORT,
    FMSD_RELEASE,
    __DATE__,
    mcn_pcns,
    "fmsd: model data, model output, series transformation and series diagnostics services.",
    "001",
};

FMSD_API void himodcn(void) {}

FMSD_API const fmsd_image_info* mcn_main(void* gcb, void* pidb) {
  v_global_gcb_anchor = gcb;
  v_global_pidb_anchor = pidb;
  himodcn();
  return &vi_mcn;
}

FMSD_API int qorfmsd(fmsd_word context, fmsd_word* request) {
  if (context == 0 || request == nullptr) return 0;
  auto* status = reinterpret_cast<fmsd_word*>(request[0]);
  auto* handle_out = reinterpret_cast<fmsd_word*>(request[1]);

  // The host keeps this block for the registration; it is not ours to free.
  void* block = fmsd::pool_alloc(16);
  void* const table[FMSD_SERVICE_COUNT] = {reinterpret_cast<void*>(modout), reinterpret_cast<void*>(moddata),
                                           reinterpret_cast<void*>(mtstran), reinterpret_cast<void*>(mtsscov)};

  auto* candidate = reinterpret_cast<const fmsd_word*>(fmsd::gcb_word(FMSD_GCB_TASK_OVERRIDE));
  if (candidate == nullptr) candidate = reinterpret_cast<const fmsd_word*>(fmsd::gcb_word(FMSD_GCB_TASK));
  const fmsd_word* task = candidate[FMSD_TASK_CURRENT] == 1
                              ? reinterpret_cast<const fmsd_word*>(fmsd::gcb_word(FMSD_GCB_TASK))
                              : reinterpret_cast<const fmsd_word*>(candidate[FMSD_TASK_CURRENT]);

  fmsd_word handle =
      virv2g(table, block, FMSD_SERVICE_COUNT, task[FMSD_TASK_REGISTRATION], v_global_pidb_anchor);
  if (handle != 0) {
    *handle_out = handle;
    return 1;
  }
  *handle_out = 0;
  status[0] = kStatusRegistrationRefused;
  status[1] = reinterpret_cast<fmsd_word>(block);
  return 0;
}

}  // extern "C"

// The descriptor, the blanks and the zeros are one object so that their order in
// memory is fixed; these give the parts their own exported names.
asm(".globl pcn_QORFMSD\n"
    ".type pcn_QORFMSD, %object\n"
    ".size pcn_QORFMSD, 48\n"
    ".set pcn_QORFMSD, pcn_QORFMSD_area\n"
    ".globl _B_ten\n"
    ".type _B_ten, %object\n"
    ".size _B_ten, 10\n"
    ".set _B_ten, pcn_QORFMSD_area + 48\n"
    ".globl _Z_twenty\n"
    ".type _Z_twenty, %object\n"
    ".size _Z_twenty, 20\n"
    ".set _Z_twenty, pcn_QORFMSD_area + 58\n");
