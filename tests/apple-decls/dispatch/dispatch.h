// Declarations of the dispatch functions the Apple platform file calls.
#pragma once

#include <stdint.h>

extern "C" {
typedef struct dispatch_queue_s* dispatch_queue_t;
typedef void (*dispatch_function_t)(void*);
typedef uint64_t dispatch_time_t;
extern struct dispatch_queue_s _dispatch_main_q;
void dispatch_async_f(dispatch_queue_t queue, void* context, dispatch_function_t work);
dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta);
void dispatch_after_f(dispatch_time_t when, dispatch_queue_t queue, void* context, dispatch_function_t work);
}

#define dispatch_get_main_queue() (&_dispatch_main_q)
#define DISPATCH_TIME_NOW (0ull)
#define NSEC_PER_MSEC 1000000ull
