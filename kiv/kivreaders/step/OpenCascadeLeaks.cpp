// For programs with Open CASCADE that are built with LeakSanitizer: the library keeps its tables, and objects that
// refer to each other, until the process ends. What it has allocated itself is no finding.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libTK\n";
}
