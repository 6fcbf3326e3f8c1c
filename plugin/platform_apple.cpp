// macOS side of the platform layer: NSLog trace sink, the main dispatch queue,
// decomposed paths through Core Foundation. Mirrors platform_linux.cpp.
#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>
#include <pthread.h>

#include <cstdlib>
#include <cstring>

#include "plugin/platform.h"

// Foundation's NSLog has C linkage and takes a (toll-free bridged) format string.
extern "C" void NSLog(CFStringRef format, ...);

void PlatformWriteTraceLine(const char* line) { NSLog(CFSTR("%s\n"), line); }

bool PlatformIsMainThread() { return pthread_main_np() != 0; }

void PlatformPostToMainThread(MainThreadTask task, void* data) {
    dispatch_async_f(dispatch_get_main_queue(), data, task);
}

namespace {

// Releases a Core Foundation object at the end of the scope.
class CFRef {
public:
    explicit CFRef(CFTypeRef object) : object_(object) {}
    ~CFRef() {
        if (object_ != nullptr) CFRelease(object_);
    }
    CFRef(const CFRef&) = delete;
    CFRef& operator=(const CFRef&) = delete;
    CFTypeRef get() const { return object_; }

private:
    CFTypeRef object_;
};

}  // namespace

char* PlatformDecomposedPath(const char* pathText, bool isURL) {
    if (pathText == nullptr || *pathText == 0) return nullptr;
    CFRef text(CFStringCreateWithCString(kCFAllocatorDefault, pathText, kCFStringEncodingUTF8));
    if (text.get() == nullptr) return nullptr;
    auto string = static_cast<CFStringRef>(text.get());
    CFRef url(isURL ? CFURLCreateWithString(kCFAllocatorDefault, string, nullptr)
                    : CFURLCreateWithFileSystemPath(kCFAllocatorDefault, string, kCFURLPOSIXPathStyle, false));
    if (url.get() == nullptr) return nullptr;
    CFRef posix(CFURLCopyFileSystemPath(static_cast<CFURLRef>(url.get()), kCFURLPOSIXPathStyle));
    if (posix.get() == nullptr) return nullptr;
    CFRef mutablePath(CFStringCreateMutableCopy(kCFAllocatorDefault, 0, static_cast<CFStringRef>(posix.get())));
    if (mutablePath.get() == nullptr) return nullptr;
    auto decomposed = static_cast<CFMutableStringRef>(const_cast<void*>(mutablePath.get()));
    CFStringNormalize(decomposed, kCFStringNormalizationFormD);
    CFIndex size = 6 * CFStringGetLength(decomposed) + 16;
    char* result = static_cast<char*>(calloc(static_cast<size_t>(size), 1));
    if (result == nullptr) return nullptr;
    if (!CFStringGetCString(decomposed, result, size, kCFStringEncodingUTF8)) {
        free(result);
        return nullptr;
    }
    return result;
}
