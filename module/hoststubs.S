/* One jump stub per host operation, exported under its plain name and under
 * _<name>_<facility>_<slot>.  A stub marks its facility as used and jumps to the
 * host function, so arguments in registers and on the stack, the variadic
 * register count and a double result all pass through untouched.  Only
 * scratch registers that no argument can live in are used. */
#include "fmsd/hostabi.h"

#if defined(__x86_64__)

.macro HOSTOP name, facility, slot
  .text
  .p2align 4
  .globl \name
  .globl _\name\()_\facility\()_\slot
  .type \name, @function
  .type _\name\()_\facility\()_\slot, @function
\name:
_\name\()_\facility\()_\slot:
  .cfi_startproc
  movq v_global_gcb_anchor@GOTPCREL(%rip), %r11
  movq (%r11), %r11
  movq 8*FMSD_GCB_USEBYTES(%r11), %r10
  movb $1, \facility(%r10)
  movq 8*FMSD_GCB_FACILITIES(%r11), %r11
  movq 8*\facility(%r11), %r11
  jmp *8*\slot(%r11)
  .cfi_endproc
  .size \name, . - \name
  .size _\name\()_\facility\()_\slot, . - \name
.endm

#elif defined(__aarch64__)

.macro HOSTOP name, facility, slot
  .text
  .p2align 4
  .globl \name
  .globl _\name\()_\facility\()_\slot
  .type \name, %function
  .type _\name\()_\facility\()_\slot, %function
\name:
_\name\()_\facility\()_\slot:
  .cfi_startproc
  adrp x16, :got:v_global_gcb_anchor
  ldr x16, [x16, :got_lo12:v_global_gcb_anchor]
  ldr x16, [x16]
  ldr x17, [x16, #8*FMSD_GCB_USEBYTES]
  mov w9, #1
  strb w9, [x17, #\facility]
  ldr x16, [x16, #8*FMSD_GCB_FACILITIES]
  ldr x16, [x16, #8*\facility]
  ldr x16, [x16, #8*\slot]
  br x16
  .cfi_endproc
  .size \name, . - \name
  .size _\name\()_\facility\()_\slot, . - \name
.endm

#else
#error "host call stubs exist for x86-64 and aarch64 only"
#endif

#define FMSD_STUB(name, facility, slot, result, params) HOSTOP name, facility, slot;
FMSD_HOST_OPERATIONS(FMSD_STUB)

  .section .note.GNU-stack, "", %progbits
