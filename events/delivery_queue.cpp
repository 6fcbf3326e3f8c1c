// The delivery queue: a chain of fixed-size blocks of records under one mutex.
// Producers append in place and post one drain task to the main thread when the
// queue turns non-empty; the drain takes the whole chain in O(1), raises it
// outside the lock, and goes on with what came meanwhile until it finds nothing
// queued or its time budget is spent. Blocks are recycled through a spare list
// (growing never copies records); the spares beyond kSpareBlocksKept go back to
// the allocator once the queue has stayed empty for a few milliseconds. A
// replaced value event stays in place with no target (a tombstone); when
// tombstones outnumber live records the filling chain is compacted, so a
// blocked main loop holds at most about twice the live records.
#include "events/delivery_queue.h"

#include <chrono>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <new>
#include <vector>

#include "plugin/platform.h"
#include "plugin/trace.h"

namespace {

// 32 bytes: the event's union without its type (the route's) or sender (never read).
struct Delivery {
    DeliveryTarget* target;  // null once a newer value event replaced this one
    const DeliveryRoute* route;
    unsigned char payload[sizeof(libvlc_event_t::u)];
};

void Keep(Delivery& d, const libvlc_event_t& event) { memcpy(d.payload, &event.u, sizeof d.payload); }

libvlc_event_t EventOf(const Delivery& d) {
    libvlc_event_t event;
    event.type = d.route->eventType;
    event.p_obj = nullptr;
    memcpy(&event.u, d.payload, sizeof d.payload);
    return event;
}

constexpr size_t kBlockRecords = 256;

struct Block {
    Block* next;
    size_t count;  // records in use; only the chain's last block is partly filled
    Delivery records[kBlockRecords];
};

}  // namespace

struct DeliveryTarget {
    REALobject object;
    bool alive = true;  // main thread only
    // The queued value event of each route, valid while `batch` is the batch
    // still filling; under the queue lock.
    struct Latest {
        Delivery* delivery = nullptr;
        uint64_t batch = 0;
    } latest[kRouteCount];
    // Handlers looked up during drain round `round`; main thread only.
    struct Handler {
        void* handler = nullptr;
        uint64_t round = 0;
    } handlers[kRouteCount];
};

namespace {

// Spare blocks kept once the queue has been quiet (1024 records).
constexpr size_t kSpareBlocksKept = 1024 / kBlockRecords;
// How long the queue stays empty before the other spares go back: a stream
// that empties the queue between bursts reuses its blocks instead of
// allocating (and faulting in) fresh ones for every burst.
constexpr unsigned kQuietMilliseconds = 5;
// Compaction waits for this many tombstones, so short batches never pay for it.
constexpr size_t kCompactAfter = 64;

// A retired target queued deliveries may still name, up to batch `lastBatch`.
struct Retired {
    DeliveryTarget* target;
    uint64_t lastBatch;
};

struct DeliveryQueue {
    // Under the lock.
    std::mutex lock;
    Block* head = nullptr;  // the batch now filling, in posting order
    Block* tail = nullptr;
    size_t records = 0;   // in the filling batch, tombstones included
    size_t replaced = 0;  // tombstones in the filling batch
    Block* spare = nullptr;
    size_t spareCount = 0;
    uint64_t batch = 1;  // number of the batch now filling
    bool drainPosted = false;
    // Main thread only; on their own cache line, away from the producers.
    alignas(64) std::vector<Retired> retired;
    // The chain the last drain raised, spared when the next drain takes the lock anyway.
    Block* raisedFirst = nullptr;
    Block* raisedLast = nullptr;
    size_t raisedBlocks = 0;
    int drainsRunning = 0;
    uint64_t drainRound = 0;  // numbers the drains, for the per-target handler cache
    std::chrono::steady_clock::time_point lastDrain;
    bool trimScheduled = false;
};

// Made when the plug-in loads, before libvlc can call it, and never destroyed:
// libvlc's threads may post until the process ends. Posting reads it without
// the guard a function-local static would check on every event.
DeliveryQueue* const gQueue = new DeliveryQueue;

DeliveryQueue& Queue() { return *gQueue; }

// Under the lock: a block for the tail, from the spares or the allocator.
Block* TakeBlock(DeliveryQueue& q) {
    Block* b = q.spare;
    if (b != nullptr) {
        q.spare = b->next;
        --q.spareCount;
    } else if ((b = new (std::nothrow) Block) == nullptr) {
        return nullptr;
    }
    b->next = nullptr;
    b->count = 0;
    return b;
}

// Under the lock: puts the chain first..last (linked through next) with the spares.
void SpareChain(DeliveryQueue& q, Block* first, Block* last, size_t count) {
    last->next = q.spare;
    q.spare = first;
    q.spareCount += count;
}

// Under the lock: spares beyond kSpareBlocksKept, for the caller to free unlocked.
Block* TakeSurplus(DeliveryQueue& q) {
    Block* surplus = nullptr;
    while (q.spareCount > kSpareBlocksKept) {
        Block* b = q.spare;
        q.spare = b->next;
        --q.spareCount;
        b->next = surplus;
        surplus = b;
    }
    return surplus;
}

void FreeChain(Block* b) {
    while (b != nullptr) {
        Block* next = b->next;
        delete b;
        b = next;
    }
}

// Under the lock: moves the live records forward over the tombstones,
// re-pointing each value event's latest entry, and spares the emptied blocks.
void DropReplaced(DeliveryQueue& q) {
    Block* to = q.head;
    size_t toIndex = 0;
    for (Block* from = q.head; from != nullptr; from = from->next) {
        for (size_t i = 0; i < from->count; ++i) {
            Delivery& d = from->records[i];
            if (d.target == nullptr) continue;
            if (toIndex == kBlockRecords) {
                to = to->next;
                toIndex = 0;
            }
            Delivery& moved = to->records[toIndex++];
            if (&moved != &d) moved = d;
            if (moved.route->latestValueOnly) moved.target->latest[moved.route->id].delivery = &moved;
        }
    }
    // Blocks before `to` stay full; the posting record is live, so toIndex > 0.
    to->count = toIndex;
    size_t emptied = 0;
    Block* last = to;
    for (Block* b = to->next; b != nullptr; b = b->next) {
        ++emptied;
        last = b;
    }
    if (emptied > 0) SpareChain(q, to->next, last, emptied);
    to->next = nullptr;
    q.tail = to;
    q.records -= q.replaced;
    q.replaced = 0;
}

void* HandlerFor(DeliveryQueue& q, DeliveryTarget* target, const DeliveryRoute& route) {
    DeliveryTarget::Handler& cached = target->handlers[route.id];
    if (cached.round != q.drainRound) {
        cached.handler = LookupEventHandler(target->object, *route.cls, route.eventIndex);
        cached.round = q.drainRound;
    }
    return cached.handler;
}

// Main thread: deletes retired targets no batch after `drainedBatch` can name.
void DeleteRetired(DeliveryQueue& q, uint64_t drainedBatch) {
    size_t kept = 0;
    for (Retired r : q.retired) {
        if (r.lastBatch <= drainedBatch)
            delete r.target;
        else
            q.retired[kept++] = r;
    }
    q.retired.resize(kept);
}

// Main thread, kQuietMilliseconds after a drain left the queue empty: gives
// back the spares beyond kSpareBlocksKept if no drain ran since.
void TrimSpares(void*) {
    DeliveryQueue& q = Queue();
    auto quietFor = std::chrono::steady_clock::now() - q.lastDrain;
    if (quietFor < std::chrono::milliseconds(kQuietMilliseconds)) {
        auto rest =
            std::chrono::ceil<std::chrono::milliseconds>(std::chrono::milliseconds(kQuietMilliseconds) - quietFor);
        PlatformRunOnMainThreadAfter(static_cast<unsigned>(rest.count()), TrimSpares, nullptr);
        return;
    }
    q.trimScheduled = false;
    Block* surplus = nullptr;
    {
        std::lock_guard<std::mutex> hold(q.lock);
        // Otherwise a drain is on its way and schedules the next trim.
        if (q.head == nullptr) surplus = TakeSurplus(q);
    }
    FreeChain(surplus);
}

void Drain(void*);

void PostDrain() { PlatformPostToMainThread(Drain, nullptr); }

// A drain goes on with what was queued while it raised the batch before, for
// up to this long; then later deliveries wait for the next loop iteration, so
// the host's other sources run between drains.
constexpr auto kDrainBudget = std::chrono::microseconds(1000);

// Under the lock: spares the chain the last batch left, takes the queued
// batch, and when there is none ends the drain sequence (and tells whether
// spares beyond kSpareBlocksKept are left). Answers the batch's number.
uint64_t TakeBatch(DeliveryQueue& q, Block*& first, Block*& last, bool& surplus) {
    std::lock_guard<std::mutex> hold(q.lock);
    if (q.raisedFirst != nullptr) SpareChain(q, q.raisedFirst, q.raisedLast, q.raisedBlocks);
    q.raisedFirst = q.raisedLast = nullptr;
    q.raisedBlocks = 0;
    first = q.head;
    last = q.tail;
    q.head = q.tail = nullptr;
    q.records = q.replaced = 0;
    if (first == nullptr) {
        q.drainPosted = false;
        surplus = q.spareCount > kSpareBlocksKept;
    }
    return q.batch++;  // replacing can no longer reach into this batch
}

// Main thread: raises a taken chain; answers its length in blocks.
size_t RaiseChain(DeliveryQueue& q, Block* first) {
    ++q.drainsRunning;
    ++q.drainRound;
    size_t blocks = 0;
    for (Block* b = first; b != nullptr; b = b->next, ++blocks) {
        for (size_t i = 0; i < b->count; ++i) {
            Delivery& d = b->records[i];
            DeliveryTarget* target = d.target;
            if (target == nullptr) continue;  // replaced; given back by its replacer
            libvlc_event_t event = EventOf(d);
            if (target->alive) {
                void* handler = HandlerFor(q, target, *d.route);
                TRACEF("%p", d.route->traceName, handler);
                if (handler != nullptr) d.route->raise(target->object, handler, event);
            }
            if (d.route->giveBack != nullptr) d.route->giveBack(event);
        }
    }
    --q.drainsRunning;
    return blocks;
}

// Runs on the main thread: raises batch after batch, one lock each, until it
// finds the queue empty (the sequence ends) or its budget is spent (it posts
// itself again).
void Drain(void*) {
    DeliveryQueue& q = Queue();
    auto started = std::chrono::steady_clock::now();
    for (;;) {
        Block* first;
        Block* last;
        bool surplus = false;
        uint64_t drained = TakeBatch(q, first, last, surplus);
        if (first != nullptr) {
            q.raisedBlocks = RaiseChain(q, first);
            q.raisedFirst = first;
            q.raisedLast = last;
        }
        q.lastDrain = std::chrono::steady_clock::now();
        DeleteRetired(q, drained);
        if (first == nullptr) {
            if (surplus && !q.trimScheduled) {
                q.trimScheduled = true;
                PlatformRunOnMainThreadAfter(kQuietMilliseconds, TrimSpares, nullptr);
            }
            return;
        }
        if (q.lastDrain - started >= kDrainBudget) break;
    }
    PostDrain();
}

// Kept targets libvlc may still call with; reachable for the rest of the process.
std::vector<DeliveryTarget*>& KeptTargets() {
    static auto* kept = new std::vector<DeliveryTarget*>;
    return *kept;
}

}  // namespace

DeliveryTarget* NewDeliveryTarget(REALobject object) {
    auto* target = new DeliveryTarget;
    target->object = object;
    return target;
}

void RetireDeliveryTarget(DeliveryTarget* target, bool libvlcMayStillCall) {
    if (target == nullptr) return;
    target->alive = false;
    if (libvlcMayStillCall) {
        KeptTargets().push_back(target);
        return;
    }
    // libvlc no longer calls with the target, so only batches up to the one
    // filling now can name it.
    DeliveryQueue& q = Queue();
    bool queued;
    uint64_t lastBatch;
    {
        std::lock_guard<std::mutex> hold(q.lock);
        queued = q.head != nullptr;
        lastBatch = q.batch;
    }
    if (queued || q.drainsRunning > 0)
        q.retired.push_back({target, lastBatch});
    else
        delete target;
}

void PostDelivery(DeliveryTarget* target, const DeliveryRoute& route, const libvlc_event_t& event) {
    DeliveryQueue& q = Queue();
    libvlc_event_t dropped;  // a replaced value event, or this one when there is no memory
    bool drop = false;
    bool post = false;
    {
        std::lock_guard<std::mutex> hold(q.lock);
        if (q.tail == nullptr || q.tail->count == kBlockRecords) {
            if (Block* b = TakeBlock(q)) {
                (q.tail != nullptr ? q.tail->next : q.head) = b;
                q.tail = b;
            } else {
                dropped = event;
                drop = true;
            }
        }
        if (!drop) {
            Delivery& d = q.tail->records[q.tail->count++];
            d.target = target;
            d.route = &route;
            Keep(d, event);
            ++q.records;
            if (route.latestValueOnly) {
                DeliveryTarget::Latest& latest = target->latest[route.id];
                if (latest.batch == q.batch) {
                    dropped = EventOf(*latest.delivery);
                    drop = true;
                    latest.delivery->target = nullptr;
                    ++q.replaced;
                }
                latest = {&d, q.batch};
                if (q.replaced >= kCompactAfter && q.replaced * 2 > q.records) DropReplaced(q);
            }
            post = !q.drainPosted;
            q.drainPosted = true;
            // The next line of the block was last read by the drain on another core.
            if (q.tail->count + 2 <= kBlockRecords) __builtin_prefetch(&d + 2, 1);
        }
    }
    if (drop && route.giveBack != nullptr) route.giveBack(dropped);
    if (post) PostDrain();
}
