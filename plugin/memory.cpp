#include "plugin/memory.h"

#include <cstdlib>

#include "plugin/host_entries.h"
#include "plugin/platform.h"
#include "plugin/registration.h"
#include "plugin/text.h"
#include "plugin/trace.h"

bool ArrayAccessTested = false;
bool ArrayAccessSuccess = false;

// ---- memory blocks -----------------------------------------------------------

void REALNewMemoryBlockWork(void* work) {
    auto* request = static_cast<MemoryBlockWork*>(work);
    REALobject block = REALnewInstance("MemoryBlock");
    if (block == nullptr) return;
    using ConstructorFn = void (*)(REALobject, RBInteger);
    // Asked each time: an answer kept from an earlier host would outlive it.
    auto constructor = reinterpret_cast<ConstructorFn>(REALLoadObjectMethod(block, "Constructor(bytes as Integer)"));
    if (constructor != nullptr) {
        constructor(block, request->size);
        if (REALMemoryBlockGetSize(block) >= request->size) {
            request->result = block;
            return;
        }
    }
    REALUnlockObject(block);
}

REALmemoryBlock NewMemoryBlock(int64_t size) {
    MemoryBlockWork work{size, nullptr};
    if (REALobject raised = REALCallFunctionWithExceptionHandler(REALNewMemoryBlockWork, &work)) {
        REALUnlockObject(raised);
        if (work.result != nullptr) REALUnlockObject(work.result);
        return nullptr;
    }
    return work.result;
}

// ---- arrays ------------------------------------------------------------------

namespace {

constexpr int64_t kTestUpperBound = 1234;

bool Fail(const char* what, int64_t found) {
    TRACEF("%lld", what, static_cast<long long>(found));
    return false;
}

bool CheckArray(REALarray array) {
    int64_t ubound = REALGetArrayUBound(array);
    if (ubound != kTestUpperBound) return Fail("ubound failed", ubound);
    REALSetArrayValueInteger(array, 0, 12345);
    REALSetArrayValueInteger(array, 9, 123456);
    int64_t first = REALGetArrayValueInteger(array, 0);
    if (first != 12345) return Fail("Index 0 failed", first);
    int64_t ninth = REALGetArrayValueInteger(array, 9);
    if (ninth != 123456) return Fail("Index 9 failed", ninth);

    const auto* header = reinterpret_cast<const HostArrayHeader*>(array);
    if (header->refCount != 1) return Fail("refCount wrong", header->refCount);
    if (header->dimensionCount != 1) return Fail("DimensionCount wrong", header->dimensionCount);
    if (header->upperBound != kTestUpperBound) return Fail("ubound wrong", header->upperBound);
    if (header->elements == nullptr) return Fail("data is nil", 0);
    const auto* elements = static_cast<const int64_t*>(header->elements);
    if (elements[0] != 12345) return Fail("Index 0 failed", elements[0]);
    if (elements[9] != 123456) return Fail("Index 9 failed", elements[9]);
    return true;
}

// Decides once per process whether elements may be read in place.
void EnsureArrayAccessTested() {
    if (ArrayAccessTested) return;
    TRACEF("%f", "TestArray", rbversion);
    ArrayAccessTested = true;
    ArrayAccessSuccess = false;
    REALarray probe = REALCreateArray(kArrayOfInt64, kTestUpperBound);
    if (probe == nullptr) {
        TRACE("Failed to allocate array");
        return;
    }
    TestArray(probe);
    REALUnlockObject(probe);
}

const int64_t* InPlaceElements(REALarray array) {
    return static_cast<const int64_t*>(reinterpret_cast<const HostArrayHeader*>(array)->elements);
}

}  // namespace

void TestArray(REALarray array) { ArrayAccessSuccess = CheckArray(array); }

int64_t ArrayUpperBound(REALarray array) {
    if (array == nullptr) return -1;
    return REALGetArrayUBound(array);
}

REALstring ArrayStringAt(REALarray array, int64_t index) {
    EnsureArrayAccessTested();
    if (ArrayAccessSuccess) {
        auto string = reinterpret_cast<REALstring>(InPlaceElements(array)[index]);
        if (string != nullptr) REALLockString(string);
        return string;
    }
    return REALGetArrayString(array, index);
}

int64_t ArrayIntegerAt(REALarray array, int64_t index) {
    EnsureArrayAccessTested();
    if (ArrayAccessSuccess) return InPlaceElements(array)[index];
    return REALGetArrayValueInteger(array, index);
}

// ---- folder-item paths -------------------------------------------------------

char* UnixFilePathUTF8(REALfolderItem item) {
    if (item == nullptr) return nullptr;
    bool native = rbversion >= 2013.0;
    REALstring pathString = nullptr;
    if (!REALGetPropValueString(item, native ? "NativePath" : "URLPath", &pathString)) return nullptr;
    StringRef release(pathString);
    rbText text(pathString);
    if (native) TRACEF("%s", "native path:", text.GetUTF8());
    return PlatformFolderItemPath(text.GetUTF8(), !native);
}

rbPath::~rbPath() { free(path_); }

const char* rbPath::GetUnixPath() {
    if (!computed_) {
        path_ = UnixFilePathUTF8(item_);
        computed_ = true;
    }
    return path_;
}
