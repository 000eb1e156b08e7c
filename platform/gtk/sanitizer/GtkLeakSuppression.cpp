// The leak checker's exemptions for programs that draw with GTK, used in place of the GLib
// ones (a program has one list). Besides GLib's abandoned block of interned strings (see
// platform/linux/sanitizer), fontconfig's configuration and font cache are exempted: Pango
// loads them once, keeps them for the life of the process and never frees them by design.
// Nothing else from GTK, GStreamer or the SDK is.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:g_malloc$\n"
         "leak:libfontconfig.so\n";
}

extern "C" const char* __lsan_default_options();
extern "C" const char* __lsan_default_options() {
  return "print_suppressions=0";
}
