// Read by the leak sanitizer (-fsanitize=address) when a program ends; nothing else calls it.

extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_options();

// x265_encoder_close doesn't give everything back that x265_encoder_open took: some hundred bytes a
// frame thread. That is x265's own, and no fault of its callers.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libx265.so\n";
}

// Tests compare what a program prints.
extern "C" const char* __lsan_default_options() {
  return "print_suppressions=0";
}
