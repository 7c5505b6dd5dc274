/* Exported entry stubs: each exported name loads the address of its slot
 * and jumps through it.  Only r11 is touched, so the implementation sees
 * the caller's registers, stack and return address as if called directly. */
#define KVO_PENDING(family, name)
#define KVO_EXPORT(family, name, fn) \
    .globl name; \
    .type name, @function; \
    .p2align 4; \
name: \
    .cfi_startproc; \
    movq name##_arraddr@GOTPCREL(%rip), %r11; \
    jmpq *(%r11); \
    .cfi_endproc; \
    .size name, . - name;

    .text
#include "exports.def"

    .section .note.GNU-stack, "", @progbits
