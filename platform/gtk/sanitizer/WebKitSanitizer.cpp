// Read by the sanitizers when a program that loads WebKit is built with them; it has no effect
// in other builds. Programs linking this do not link the GLib-only rules as well: the GLib
// rule is repeated here.
extern "C" const char* __ubsan_default_options();
extern "C" const char* __ubsan_default_options() {
  return "print_stacktrace=1:suppressions=" TOVANI_WEBKIT_UBSAN_SUPPRESSIONS;
}

// GLib's abandoned first table of interned strings, as for every GLib program (see
// platform/linux/sanitizer), and the blocks that font configuration, D-Bus and JavaScriptCore
// keep for the life of the process. Those libraries are built without frame pointers, so
// their stacks end inside them and a rule can only name the library.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:g_malloc$\n"
         "leak:libfontconfig.so\n"
         "leak:libdbus-1.so\n"
         "leak:libjavascriptcoregtk-4.1.so\n";
}

extern "C" const char* __lsan_default_options();
extern "C" const char* __lsan_default_options() {
  return "print_suppressions=0";
}
