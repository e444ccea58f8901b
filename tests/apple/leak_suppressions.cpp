// LeakSanitizer's suppressions for apple_tests, built in so that they also apply when
// CTest lists the tests: what GCC's Objective-C runtime and GNUstep's Foundation allocate
// once and keep for the life of the process (class and method tables, per-thread data).
// Their stacks end inside those uninstrumented libraries, so they can only be named by
// library. The tests count the adapter's and the double's Objective-C objects themselves
// (GSDebugAllocationCount); C++ allocations of ours are still checked.
extern "C" const char* __lsan_default_suppressions();

extern "C" const char* __lsan_default_suppressions() {
  return "leak:libobjc.so\n"
         "leak:libgnustep-base.so\n";
}
