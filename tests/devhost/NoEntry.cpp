// A loadable library that does not export CreateInstance.
extern "C" __attribute__((visibility("default"))) int NotTheEntryPoint() { return 0; }
