// Fontconfig keeps pieces of its parsed configuration for the life of the
// process without a pointer the leak checker can see; they are not ours.
extern "C" const char* __lsan_default_suppressions() { return "leak:libfontconfig.so\n"; }
