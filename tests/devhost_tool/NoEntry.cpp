// A loadable library without CreateInstance: what the program must refuse as a plug-in.
extern "C" __attribute__((visibility("default"))) int NotASensor() { return 0; }
