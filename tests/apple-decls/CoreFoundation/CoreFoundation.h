// Declarations of the Core Foundation functions the Apple platform file calls,
// with their public signatures: for the syntax check on Linux and for the
// stand-ins under tests/apple-standins.
#pragma once
#include <stdint.h>

extern "C" {
typedef signed long CFIndex;
typedef unsigned char Boolean;
typedef uint32_t CFStringEncoding;
typedef const void* CFTypeRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFString* CFStringRef;
typedef struct __CFString* CFMutableStringRef;
typedef const struct __CFURL* CFURLRef;
typedef CFIndex CFURLPathStyle;
typedef CFIndex CFStringNormalizationForm;

enum { kCFStringEncodingUTF8 = 0x08000100 };
enum { kCFURLPOSIXPathStyle = 0 };
enum { kCFStringNormalizationFormD = 0 };

extern const CFAllocatorRef kCFAllocatorDefault;

void CFRelease(CFTypeRef cf);
CFStringRef CFStringCreateWithCString(CFAllocatorRef alloc, const char* cStr, CFStringEncoding encoding);
CFStringRef __CFStringMakeConstantString(const char* cStr);
CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef alloc, CFIndex maxLength, CFStringRef theString);
void CFStringNormalize(CFMutableStringRef theString, CFStringNormalizationForm theForm);
CFIndex CFStringGetLength(CFStringRef theString);
Boolean CFStringGetCString(CFStringRef theString, char* buffer, CFIndex bufferSize, CFStringEncoding encoding);
CFURLRef CFURLCreateWithString(CFAllocatorRef allocator, CFStringRef URLString, CFURLRef baseURL);
CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef filePath, CFURLPathStyle pathStyle,
                                       Boolean isDirectory);
CFStringRef CFURLCopyFileSystemPath(CFURLRef anURL, CFURLPathStyle pathStyle);
}

#define CFSTR(cStr) __CFStringMakeConstantString("" cStr "")
