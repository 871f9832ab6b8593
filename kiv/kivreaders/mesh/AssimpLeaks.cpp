// For a reader that is built with LeakSanitizer: where a text ends too early the library of formats does not give back
// what it had begun. The reader ends then; what the library has allocated itself is no finding.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libassimp\n";
}
