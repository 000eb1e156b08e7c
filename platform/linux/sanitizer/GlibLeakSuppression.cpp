// The leak checker reads this when the test program is built with sanitizers. GLib allocates
// its first table of interned strings in a library constructor and abandons it, on purpose,
// once GStreamer has interned enough names to need a larger one. Without frame pointers in
// GLib that block's stack is only "g_malloc", so exactly that frame is exempted; blocks from
// g_malloc0, g_new, object or source constructors are still reported.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:g_malloc$\n";
}

extern "C" const char* __lsan_default_options();
extern "C" const char* __lsan_default_options() {
  return "print_suppressions=0";
}
