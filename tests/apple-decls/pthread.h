// The system's pthread.h plus macOS's pthread_main_np.
#pragma once
#include_next <pthread.h>

extern "C" int pthread_main_np(void);
