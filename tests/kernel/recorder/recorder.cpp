extern "C" int kernel_recorder_is_loaded;
int kernel_recorder_is_loaded = 1;
