// Control side of the fake libvlc, reached by dlopen()ing the file the plug-in
// loaded (one handle, one set of globals) through qrvtest::FakeVLC.
#pragma once

#include <vlc/vlc.h>

#include <cstdint>

extern "C" {
// Everything back to defaults: answers 0/NULL, counts 0, nothing recorded.
void fakevlc_reset(void);
// A function's answer by its libvlc name, and how often it was called.
void fakevlc_set_int(const char* function, int64_t value);
void fakevlc_set_ptr(const char* function, void* value);
int64_t fakevlc_calls(const char* function);
// Arguments recorded by name: "libvlc_new.argv" (joined by '\n'), "libvlc_video_set_format.chroma", ...
const char* fakevlc_text(const char* key);
int64_t fakevlc_int(const char* key);
// A media object of the fake and its reference count.
libvlc_media_t* fakevlc_new_media(void);
int64_t fakevlc_media_refs(libvlc_media_t* media);

// The one event manager (getters answer NULL when their answer is set to -1).
libvlc_event_manager_t* fakevlc_event_manager(void);
// How many listeners are attached; the first one's callback, to call it as libvlc's threads do.
int64_t fakevlc_attached(libvlc_event_manager_t* manager, int type);
int fakevlc_listener(libvlc_event_manager_t* manager, int type, libvlc_callback_t* callback, void** data);
// Fires on this thread; or `count` copies from each of `threads` new threads, joined before returning,
// u.media_player_time_changed.new_time carrying thread * 1'000'000'000 + sequence number.
void fakevlc_fire(libvlc_event_manager_t* manager, const libvlc_event_t* event);
void fakevlc_fire_from_threads(libvlc_event_manager_t* manager, const libvlc_event_t* event, int threads,
                               int64_t count);

// Where libvlc's log goes: 0 nowhere, 1 the log callback, 2 a file.
int fakevlc_log_route(void);
// Calls the log callback with "%s" and the text, or writes the text to the log file.
void fakevlc_log(int level, const char* module, const char* file, unsigned line, const char* text, int onNewThread);
// Calls the exit handler on a new thread and joins it.
void fakevlc_request_exit(void);

// A video output opens (1), keeping the callbacks and format set so far, or closes (0).
void fakevlc_vout(int open);
// Lock, frame `frame` of the pattern below (padding 0xEE) in the open output's format, else the last
// set, unlock, display. Answers 1; 0 without callbacks; -1, writing nothing, when the plane is too small.
int fakevlc_render_frame(int64_t frame);
// Lock, wait `milliseconds`, unlock.
void fakevlc_hold_frame(int64_t milliseconds);

// A renderer item held once by the fake, and its reference count (-1: no item of the fake). Renderer
// discoverers share the one event manager. What the last libvlc_media_player_set_renderer was given.
libvlc_renderer_item_t* fakevlc_new_renderer_item(const char* name, const char* type, const char* iconURI, int flags);
int64_t fakevlc_renderer_item_refs(const libvlc_renderer_item_t* item);
libvlc_renderer_item_t* fakevlc_player_renderer(void);

// Dialogs, kinds 0 error, 1 login, 2 question, 3 progress, called back through the callbacks `instance` holds
// on a new thread, joined; answers the dialog's number (0 when not shown). Texts: `title`, "Fake text", then
// login "guest" (askStore true); question WARNING, "Cancel", "Yes", NULL; progress 0.25, determinate, "Cancel".
int64_t fakevlc_dialog_raise(libvlc_instance_t* instance, int kind, const char* title);
// libvlc cancels, or updates the progress of, a dialog still open and not cancelled; 1 when called back.
int fakevlc_dialog_cancel(int64_t number);
int fakevlc_dialog_update(int64_t number, double position, const char* text);
// "login USER PASSWORD store|once", "action N", "dismissed", "shown" (an error), "open"; "none": never raised.
const char* fakevlc_dialog_outcome(int64_t number);
}

// Byte c (0 blue, 1 green, 2 red, 3 unused) of pixel (x, y): every channel depends on x, y and frame.
inline uint8_t fakevlc_pattern(int64_t x, int64_t y, int64_t frame, int c) {
    const int64_t bytes[4] = {0x10 + 3 * x + frame, 0x80 + 5 * y + 7 * frame, 0xE0 ^ (x + 2 * y + 13 * frame),
                              29 * frame + 1};
    return static_cast<uint8_t>(bytes[c]);
}
