// libvlc's log to a file libvlc writes itself, or to the host's Log event. The
// log callback runs on libvlc's threads and only copies: every message is
// delivered later on the main thread, even when it was logged there.
#include "events/log_forwarding.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "events/event_manager.h"
#include "media/instance.h"
#include "plugin/guard.h"
#include "plugin/host_entries.h"
#include "plugin/memory.h"
#include "plugin/text.h"

namespace {

// One message in transit; every string is the record's own.
struct LogRecord {
    char* message;
    char* name;
    char* header;
    char* module;
    char* file;
    uint32_t line;
    int32_t level;
};

// length + 4 bytes, zero-filled; null for null texts or sizes that do not fit.
char* CopyLogText(const char* text) {
    if (text == nullptr) return nullptr;
    int32_t size = static_cast<int32_t>(strlen(text)) + 4;
    if (size < 1) return nullptr;
    char* copy = static_cast<char*>(calloc(static_cast<size_t>(size), 1));
    if (copy != nullptr) memcpy(copy, text, static_cast<size_t>(size) - 4);
    return copy;
}

void LaterLog(const libvlc_event_t* event, void* userData) {
    TRACE("LaterLog");
    LogRecord* record;
    memcpy(&record, &event->u, sizeof record);
    if (record == nullptr) return;
    if (userData != nullptr) {
        // The instance is asked for the event manager's Log event.
        auto self = static_cast<REALobject>(userData);
        void* handler = LookupEventHandler(self, VLCEventManagerQRVClass, kLog);
        TRACEF("%p", "Event Log", handler);
        if (handler != nullptr) {
            REALstring message = CString2RB_detect_encoding(record->message);
            REALstring name = CString2RB_detect_encoding(record->name);
            REALstring header = CString2RB_detect_encoding(record->header);
            REALstring module = CString2RB_detect_encoding(record->module);
            REALstring file = CString2RB_detect_encoding(record->file);
            using LogHandler =
                void (*)(REALobject, REALstring, RBInteger, REALstring, REALstring, REALstring, REALstring, RBInteger);
            reinterpret_cast<LogHandler>(handler)(self, message, static_cast<uint32_t>(record->level), name, header,
                                                  module, file, record->line);
            for (REALstring s : {file, module, header, name, message})
                if (s != nullptr) REALUnlockString(s);
        }
    }
    for (char* text : {record->message, record->name, record->header, record->module, record->file}) free(text);
    free(record);
}

void my_libvlc_log_cb(void* userData, int level, const libvlc_log_t* context, const char* format, va_list args) {
    TRACE("my_libvlc_log_cb");
    char message[500];
    memset(message, 0, sizeof message);
    vsnprintf(message, sizeof message, format, args);
    const char* name = nullptr;
    const char* header = nullptr;
    uintptr_t id = 0;
    if (vlcfn::_libvlc_log_get_object != nullptr) vlcfn::_libvlc_log_get_object(context, &name, &header, &id);
    const char* module = nullptr;
    const char* file = nullptr;
    unsigned line = 0;
    if (vlcfn::_libvlc_log_get_context != nullptr) vlcfn::_libvlc_log_get_context(context, &module, &file, &line);

    auto* record = static_cast<LogRecord*>(calloc(1, sizeof(LogRecord)));
    if (record == nullptr) return;
    record->message = CopyLogText(message);
    record->name = CopyLogText(name);
    record->header = CopyLogText(header);
    record->module = CopyLogText(module);
    record->file = CopyLogText(file);
    record->line = line;
    record->level = level;
    libvlc_event_t event;
    memset(&event, 0, sizeof event);
    memcpy(&event.u, &record, sizeof record);
    CallEvent(&event, userData, LaterLog);
}

libvlc_instance_t* InstanceHandle(REALobject self) {
    return reinterpret_cast<libvlc_instance_t*>(InstanceOf(self).handle);
}

}  // namespace

void ClearLog(REALobject self) {
    GUARD_TFH(InstanceOf(self).handle, "ClearLog", libvlc_log_unset, );
    vlcfn::_libvlc_log_unset(InstanceHandle(self));
    InstanceData& d = InstanceOf(self);
    ReleaseField(d.logFile);
    if (d.logStream != nullptr) {
        fclose(d.logStream);
        d.logStream = nullptr;
    }
}

// Guarded by the application-identifier function, as it always was; the folder
// item is kept without a lock of its own, which ClearLog and the destructor give back.
void SetLogFile(REALobject self, REALfolderItem file) {
    GUARD_TFH(InstanceOf(self).handle, "SetLogFile", libvlc_set_app_id, );
    if (file == nullptr) {
        TRACEF("%s", "file", "is nil");
        RaiseNilObjectException("File is nil!?");
        return;
    }
    rbPath path(file);
    FILE* stream = nullptr;
    if (const char* unixPath = path.GetUnixPath()) {
        stream = fopen(unixPath, "wb");
        if (stream != nullptr) setvbuf(stream, nullptr, _IOFBF, 0x100000);
    }
    TRACEF("%p", "result", static_cast<void*>(stream));
    // libvlc 3.0 writes to the stream as soon as it is set: a null one would crash it.
    if (stream != nullptr && vlcfn::_libvlc_log_set_file != nullptr)
        vlcfn::_libvlc_log_set_file(InstanceHandle(self), stream);
    InstanceOf(self).logFile = file;
    InstanceOf(self).logStream = stream;
}

void SetLogEvent(REALobject self) {
    GUARD_TFH(InstanceOf(self).handle, "SetLogEvent", libvlc_log_set, );
    vlcfn::_libvlc_log_set(InstanceHandle(self), my_libvlc_log_cb, self);
}
