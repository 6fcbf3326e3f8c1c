// Declarations of the dispatch functions the Apple platform file calls.
#pragma once

extern "C" {
typedef struct dispatch_queue_s* dispatch_queue_t;
typedef void (*dispatch_function_t)(void*);
extern struct dispatch_queue_s _dispatch_main_q;
void dispatch_async_f(dispatch_queue_t queue, void* context, dispatch_function_t work);
}

#define dispatch_get_main_queue() (&_dispatch_main_q)
