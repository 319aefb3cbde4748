// What the sanitizers are told about libraries that aren't built with them. Read by their run-time
// (-fsanitize=address, -fsanitize=thread); nothing else calls it.

// Visible, because a run-time that is a shared library looks them up in the program.
#pragma GCC visibility push(default)
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_options();
extern "C" const char* __tsan_default_suppressions();
#pragma GCC visibility pop

// x265_encoder_close doesn't give everything back that x265_encoder_open took: buffers of sample
// adaptive offset, some hundred bytes a frame thread and row of coding tree units in a small
// picture, some kilobytes in a large one. That is x265's own, and no fault of its callers.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libx265.so\n";
}

// Tests compare what a program prints.
extern "C" const char* __lsan_default_options() {
  return "print_suppressions=0";
}

// x265's threads hand work over by atomics that the sanitizer can't see, so the memory calls that
// it does see look like races; libnuma is what x265 asks about the processors. Only calls from
// within these two are passed over: what this project does around them is still watched.
extern "C" const char* __tsan_default_suppressions() {
  return "called_from_lib:libx265.so\ncalled_from_lib:libnuma.so\n";
}
