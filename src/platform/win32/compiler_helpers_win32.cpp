// Helpers that the generated kernels call under the names of another compiler.
#if defined(__i386__)

// _chkstk: touches the pages of a large stack frame of eax bytes and moves the stack
// pointer; this compiler's own helper does the same under another name.
asm(".text\n.globl __chkstk\n"
    "__chkstk:\n"
    "  jmp ___chkstk\n");

// 64-bit arithmetic: both operands on the stack, taken off by the function.
#define KORIN_HELPER(name, type, expression)                      \
  extern "C" type __stdcall name(type a, type b) asm("__" #name); \
  extern "C" type __stdcall name(type a, type b) { return expression; }

KORIN_HELPER(alldiv, long long, a / b)
KORIN_HELPER(allrem, long long, a % b)
KORIN_HELPER(allmul, long long, a* b)
KORIN_HELPER(aulldiv, unsigned long long, a / b)
KORIN_HELPER(aullrem, unsigned long long, a % b)

#else

// __chkstk: touches the pages of a large stack frame of rax bytes and changes no
// register; this compiler's own helper does the same under another name.
asm(".text\n.globl __chkstk\n"
    "__chkstk:\n"
    "  jmp ___chkstk_ms\n");

#endif
