// ThreadSanitizer reads these suppressions at start-up (in other builds the
// function is never called). The test servers run inside libcpp-httplib, which
// is not instrumented: TSan sees its allocations and memcmp calls but not all of
// its synchronisation, and reports races between its own pool threads.
extern "C" const char* __tsan_default_suppressions();

extern "C" const char* __tsan_default_suppressions() {
  return "called_from_lib:libcpp-httplib.so\n";
}
