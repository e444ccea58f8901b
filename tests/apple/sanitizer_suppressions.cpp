// The sanitizers' suppressions for apple_tests, built in so that they also apply when CTest
// lists the tests. They name only GCC's Objective-C runtime and GNUstep's Foundation, which
// are not built with the sanitizers.
//
// LeakSanitizer: what those libraries keep for the life of the process (class tables,
// per-thread data), whose stacks end inside them. The tests count the adapter's Objective-C
// objects themselves (GSDebugAllocationCount); C++ allocations of ours are still checked.
extern "C" const char* __lsan_default_suppressions();

extern "C" const char* __lsan_default_suppressions() {
  return "leak:libobjc.so\n"
         "leak:libgnustep-base.so\n";
}

// ThreadSanitizer:
// - the lock order inside GNUstep's own start-up (its class locks against the runtime's);
// - the message of a copied std::runtime_error (so of every SKError): libstdc++ shares it
//   between copies under an atomic count inside the uninstrumented library, so freeing it on
//   another thread than the last reader's looks unordered with that read.
extern "C" const char* __tsan_default_suppressions();

extern "C" const char* __tsan_default_suppressions() {
  return "deadlock:libgnustep-base.so\n"
         "deadlock:libobjc.so\n"
         "race:std::runtime_error::~runtime_error\n";
}
