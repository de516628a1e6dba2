// What the sanitizers must know of libraries: CFITSIO asks for as much memory as a
// damaged header says and copes with a refusal, and on such files it loses small
// strings of its own; SimpleIni loses a text when memory is refused. Halide's runtime
// is not instrumented: threads that meet at one of its mutexes wait for each other
// through memory whose order the thread sanitizer cannot see. The names are the
// sanitizers' hooks; without them nothing calls these.
extern "C" [[gnu::visibility("default")]] const char* __asan_default_options();
extern "C" [[gnu::visibility("default")]] const char* __lsan_default_suppressions();
extern "C" [[gnu::visibility("default")]] const char* __tsan_default_suppressions();

const char* __asan_default_options() { return "allocator_may_return_null=1"; }
const char* __lsan_default_suppressions() { return "leak:libcfitsio\nleak:CSimpleIniTempl\n"; }
const char* __tsan_default_suppressions() {
  return "race:Halide::Runtime::Internal::Synchronization\n";
}
