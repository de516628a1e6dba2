// Helpers that the generated kernels call under the names of another compiler.
#if defined(__i386__)

// _chkstk: touches the pages of a large stack frame of eax bytes and moves the stack
// pointer; this compiler's own helper does the same under another name.
asm(".globl __chkstk\n"
    "__chkstk:\n"
    "  jmp ___chkstk\n");

// _aulldiv: unsigned 64-bit division, both operands on the stack, taken off by it.
extern "C" unsigned long long __stdcall KorinDivide(unsigned long long dividend,
                                                    unsigned long long divisor) asm("__aulldiv");
extern "C" unsigned long long __stdcall KorinDivide(unsigned long long dividend,
                                                    unsigned long long divisor) {
  return dividend / divisor;
}

#else

// __chkstk: touches the pages of a large stack frame of rax bytes and changes no
// register; this compiler's own helper does the same under another name.
asm(".globl __chkstk\n"
    "__chkstk:\n"
    "  jmp ___chkstk_ms\n");

#endif
