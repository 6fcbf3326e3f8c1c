// libvlc's log to a file libvlc writes itself, or to the host's Log event. The
// log callback runs on libvlc's threads and only copies: every message is
// delivered later on the main thread, even when it was logged there. An
// instance's log lines and exit requests go through its delivery target, so
// those still queued when the instance goes are dropped.
#include "events/log_forwarding.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unordered_map>

#include "events/delivery_queue.h"
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

LogRecord* RecordOf(const libvlc_event_t& event) {
    LogRecord* record;
    memcpy(&record, &event.u, sizeof record);
    return record;
}

// The instance is asked for the event manager's Log event.
void LaterLog(REALobject self, void* handler, const libvlc_event_t& event) {
    TRACE("LaterLog");
    LogRecord* record = RecordOf(event);
    if (record == nullptr) return;
    REALstring message = CString2RB_detect_encoding(record->message);
    REALstring name = CString2RB_detect_encoding(record->name);
    REALstring header = CString2RB_detect_encoding(record->header);
    REALstring module = CString2RB_detect_encoding(record->module);
    REALstring file = CString2RB_detect_encoding(record->file);
    using LogHandler =
        void (*)(REALobject, REALstring, RBInteger, REALstring, REALstring, REALstring, REALstring, RBInteger);
    reinterpret_cast<LogHandler>(handler)(self, message, static_cast<uint32_t>(record->level), name, header, module,
                                          file, record->line);
    for (REALstring s : {file, module, header, name, message})
        if (s != nullptr) REALUnlockString(s);
}

void FreeLogRecord(libvlc_event_t& event) {
    LogRecord* record = RecordOf(event);
    if (record == nullptr) return;
    for (char* text : {record->message, record->name, record->header, record->module, record->file}) free(text);
    free(record);
}

const DeliveryRoute kLogDelivery = {kLogRoute,    &VLCEventManagerQRVClass, kLog, "Event Log", false, 0, LaterLog,
                                    FreeLogRecord};

// A cut inside a multi-byte UTF-8 character would leave bytes no decoder
// accepts, and the whole line would be read as another encoding.
void CutAtCharacterBoundary(char* text, size_t length) {
    size_t start = length;
    while (start > 0 && length - start < 3 && (static_cast<unsigned char>(text[start - 1]) & 0xC0) == 0x80) --start;
    if (start == 0) return;
    auto lead = static_cast<unsigned char>(text[start - 1]);
    size_t needed = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
    if (length - (start - 1) < needed) memset(text + start - 1, 0, length - (start - 1));
}

void my_libvlc_log_cb(void* userData, int level, const libvlc_log_t* context, const char* format, va_list args) {
    TRACE("my_libvlc_log_cb");
    char message[500];
    memset(message, 0, sizeof message);
    if (vsnprintf(message, sizeof message, format, args) >= static_cast<int>(sizeof message))
        CutAtCharacterBoundary(message, sizeof message - 1);
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
    if (userData != nullptr)
        PostDelivery(static_cast<DeliveryTarget*>(userData), kLogDelivery, event);
    else
        FreeLogRecord(event);
}

libvlc_instance_t* InstanceHandle(REALobject self) {
    return reinterpret_cast<libvlc_instance_t*>(InstanceOf(self).handle);
}

// What libvlc may call back with for an instance. Main thread only, keyed by
// the instance object while it exists.
struct InstanceRoutes {
    DeliveryTarget* target = nullptr;
    bool logCallback = false;
    bool exitHandler = false;
};

std::unordered_map<REALobject, InstanceRoutes>& RoutedInstances() {
    static auto* instances = new std::unordered_map<REALobject, InstanceRoutes>;
    return *instances;
}

DeliveryTarget* RoutedTarget(REALobject self, bool InstanceRoutes::*route) {
    InstanceRoutes& routes = RoutedInstances()[self];
    if (routes.target == nullptr) routes.target = NewDeliveryTarget(self);
    routes.*route = true;
    return routes.target;
}

// fopen(path, "wb") that never waits: a named pipe nobody reads (or a device
// that is not ready) fails at once instead of holding the main thread. The
// descriptor stays non-blocking, so a reader that stops reading costs log lines
// rather than a libvlc thread, and the main thread waiting for it.
FILE* OpenLogFile(const char* path) {
    int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK, 0666);
    if (fd < 0) return nullptr;
    FILE* stream = fdopen(fd, "wb");
    if (stream == nullptr) close(fd);
    return stream;
}

// Closes the log file after libvlc stopped writing to it.
void CloseLogFile(InstanceData& d) {
    ReleaseField(d.logFile);
    if (d.logStream != nullptr) {
        fclose(d.logStream);
        d.logStream = nullptr;
    }
}

}  // namespace

DeliveryTarget* ExitDeliveryTarget(REALobject instance) { return RoutedTarget(instance, &InstanceRoutes::exitHandler); }

void EndInstanceDeliveries(REALobject self) {
    libvlc_instance_t* handle = InstanceHandle(self);
    auto found = RoutedInstances().find(self);
    InstanceRoutes routes = found != RoutedInstances().end() ? found->second : InstanceRoutes{};
    if (found != RoutedInstances().end()) RoutedInstances().erase(found);
    bool logging = routes.logCallback || InstanceOf(self).logStream != nullptr;
    bool logStays = logging && (handle == nullptr || vlcfn::_libvlc_log_unset == nullptr);
    if (logging && !logStays) vlcfn::_libvlc_log_unset(handle);
    // NULL turns libvlc's exit handler off.
    bool exitStays = routes.exitHandler && (handle == nullptr || vlcfn::_libvlc_set_exit_handler == nullptr);
    if (routes.exitHandler && !exitStays) vlcfn::_libvlc_set_exit_handler(handle, nullptr, nullptr);
    RetireDeliveryTarget(routes.target, (routes.logCallback && logStays) || exitStays);
}

void ClearLog(REALobject self) {
    GUARD_TFH(InstanceOf(self).handle, "ClearLog", libvlc_log_unset, );
    vlcfn::_libvlc_log_unset(InstanceHandle(self));
    CloseLogFile(InstanceOf(self));
}

// Guarded by the application-identifier function, as it always was. The folder
// item is kept locked until ClearLog, the next SetLogFile or the destructor.
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
        stream = OpenLogFile(unixPath);
        if (stream != nullptr) setvbuf(stream, nullptr, _IOFBF, 0x100000);
    }
    TRACEF("%p", "result", static_cast<void*>(stream));
    // libvlc 3.0 writes to the stream as soon as it is set: a null one would
    // crash it. Without a stream the previous route still ends.
    if (stream != nullptr && vlcfn::_libvlc_log_set_file != nullptr)
        vlcfn::_libvlc_log_set_file(InstanceHandle(self), stream);
    else if (vlcfn::_libvlc_log_unset != nullptr)
        vlcfn::_libvlc_log_unset(InstanceHandle(self));
    // libvlc no longer writes to the previous file.
    InstanceData& d = InstanceOf(self);
    CloseLogFile(d);
    REALLockObject(file);
    d.logFile = file;
    d.logStream = stream;
}

void SetLogEvent(REALobject self) {
    GUARD_TFH(InstanceOf(self).handle, "SetLogEvent", libvlc_log_set, );
    vlcfn::_libvlc_log_set(InstanceHandle(self), my_libvlc_log_cb, RoutedTarget(self, &InstanceRoutes::logCallback));
}
