// The sanitizers' suppressions for apple_tests, built in so that they also apply when CTest
// lists the tests. They name only GCC's Objective-C runtime and GNUstep's Foundation, which
// are not built with the sanitizers.
//
// LeakSanitizer: what those libraries allocate once and keep for the life of the process
// (class and method tables, per-thread data). Their stacks end inside the uninstrumented
// libraries, so they can only be named by library. The tests count the adapter's and the
// double's Objective-C objects themselves (GSDebugAllocationCount); C++ allocations of ours
// are still checked.
extern "C" const char* __lsan_default_suppressions();

extern "C" const char* __lsan_default_suppressions() {
  return "leak:libobjc.so\n"
         "leak:libgnustep-base.so\n";
}

// ThreadSanitizer:
// - the lock order inside GNUstep's own start-up (its class locks against the runtime's),
//   which ThreadSanitizer sees through the intercepted pthread calls only;
// - the message of a copied std::runtime_error (so of every SKError): libstdc++ shares it
//   between the copies under an atomic reference count inside the uninstrumented library,
//   so when the last copy is destroyed on another thread than the one that read it last,
//   the free looks unordered with that read.
extern "C" const char* __tsan_default_suppressions();

extern "C" const char* __tsan_default_suppressions() {
  return "deadlock:libgnustep-base.so\n"
         "deadlock:libobjc.so\n"
         "race:std::runtime_error::~runtime_error\n";
}
