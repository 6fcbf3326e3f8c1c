// Host memory blocks, host arrays and folder-item paths.
#pragma once

#include <cstdint>

#include "plugin/host_abi.h"

extern bool ArrayAccessTested;
extern bool ArrayAccessSuccess;

// What REALNewMemoryBlockWork creates: size in, block out (null on failure).
struct MemoryBlockWork {
    int64_t size;
    REALmemoryBlock result;
};
void REALNewMemoryBlockWork(void* work);

// A new "MemoryBlock" of at least size bytes, or null. A host exception
// thrown by its constructor is caught by the host and reported back here.
REALmemoryBlock NewMemoryBlock(int64_t size);

// Checks a freshly made integer array (upper bound 1234) against the header
// layout the plug-in reads in place; sets ArrayAccessSuccess.
void TestArray(REALarray array);

// Upper bound of a host array; negative when empty (or nil).
int64_t ArrayUpperBound(REALarray array);
// Element i of a string array, with one reference for the caller.
REALstring ArrayStringAt(REALarray array, int64_t index);
// Element i of an integer array.
int64_t ArrayIntegerAt(REALarray array, int64_t index);

// A newly allocated, zero-terminated POSIX path of a folder item as the
// platform's file system names it, or null. The caller frees it.
char* UnixFilePathUTF8(REALfolderItem item);

// Scoped holder of a folder item's path, computed on first use.
class rbPath {
public:
    explicit rbPath(REALfolderItem item) : item_(item) {}
    ~rbPath();
    rbPath(const rbPath&) = delete;
    rbPath& operator=(const rbPath&) = delete;
    const char* GetUnixPath();

private:
    REALfolderItem item_;
    char* path_ = nullptr;
    bool computed_ = false;
};
