// Small helpers shared by the record classes.
#pragma once

#include "plugin/host_entries.h"
#include "plugin/registration.h"
#include "plugin/text.h"
#include "plugin/trace.h"

#include <cstring>

// The four bytes of a fourcc in memory order, as an ASCII string of length 4.
inline REALstring FourCCString(uint32_t fourcc) {
    char bytes[4];
    memcpy(bytes, &fourcc, 4);
    return REALBuildUnicodeString(bytes, 4, kEncodingASCII);
}

// Copies a libvlc linked list into a chain of host records, head first, each
// record holding its successor. `fill` copies one node's fields and answers
// the record's Next field. Stops (nil) where a record cannot be made.
template <typename Data, typename Node, typename Fill>
REALobject NewRecordChain(const Node* node, const char* traceLabel, const REALclassDefinition& cls, Fill fill) {
    TRACEF("%p", traceLabel, static_cast<const void*>(node));
    if (node == nullptr) return nullptr;
    REALobject object = REALnewInstance(cls.name);
    if (object == nullptr) return nullptr;
    REALobject* next = fill(DataOf<Data>(object, cls), *node);
    *next = NewRecordChain<Data>(node->p_next, traceLabel, cls, fill);
    return object;
}

// The same from libvlc's arrays of node pointers (the 3.0 list getters).
template <typename Data, typename Node, typename Fill>
REALobject NewRecordChainFromArray(Node* const* nodes, size_t count, const char* traceLabel,
                                   const REALclassDefinition& cls, Fill fill) {
    TRACEF("%p", traceLabel, static_cast<const void*>(nodes));
    REALobject head = nullptr;
    REALobject* next = &head;
    for (size_t i = 0; nodes != nullptr && i < count && nodes[i] != nullptr; ++i) {
        REALobject object = REALnewInstance(cls.name);
        if (object == nullptr) break;
        *next = object;
        next = fill(DataOf<Data>(object, cls), *nodes[i]);
    }
    return head;
}
