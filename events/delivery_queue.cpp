// The delivery queue: a doubly linked FIFO of pooled records under one mutex.
// Producers append (or move a replaced value event to the tail) and post one
// drain task to the main thread when the queue turns non-empty; the drain takes
// everything queued at once, raises it, and posts itself again if more came.
#include "events/delivery_queue.h"

#include <cstdint>
#include <mutex>
#include <new>
#include <vector>

#include "plugin/platform.h"
#include "plugin/trace.h"

struct Delivery {
    Delivery* next;
    Delivery* prev;
    DeliveryTarget* target;
    const DeliveryRoute* route;
    libvlc_event_t event;
};

struct DeliveryTarget {
    REALobject object;
    bool alive = true;  // main thread only
    // The owner's reference plus one per queued delivery; under the queue lock.
    int references = 1;
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

// Spare records kept after a backlog drained; the rest go back to the allocator.
constexpr size_t kSpareKept = 1024;

struct DeliveryQueue {
    std::mutex lock;
    Delivery* head = nullptr;
    Delivery* tail = nullptr;
    Delivery* spare = nullptr;  // singly linked through next
    size_t spareCount = 0;
    uint64_t batch = 1;  // the batch now filling; the drain takes it whole
    bool drainPosted = false;
};

DeliveryQueue& Queue() {
    // Never destroyed: libvlc's threads may post until the process ends.
    static DeliveryQueue* queue = new DeliveryQueue;
    return *queue;
}

// Main thread only: numbers the drains, for the per-target handler cache.
uint64_t gDrainRound = 0;

void Unlink(DeliveryQueue& q, Delivery* d) {
    (d->prev ? d->prev->next : q.head) = d->next;
    (d->next ? d->next->prev : q.tail) = d->prev;
}

void Append(DeliveryQueue& q, Delivery* d) {
    d->next = nullptr;
    d->prev = q.tail;
    (q.tail ? q.tail->next : q.head) = d;
    q.tail = d;
}

// Under the lock: spare records beyond kSpareKept, for the caller to free unlocked.
Delivery* TakeSurplus(DeliveryQueue& q) {
    Delivery* surplus = nullptr;
    while (q.spareCount > kSpareKept) {
        Delivery* d = q.spare;
        q.spare = d->next;
        --q.spareCount;
        d->next = surplus;
        surplus = d;
    }
    return surplus;
}

void FreeChain(Delivery* d) {
    while (d != nullptr) {
        Delivery* next = d->next;
        delete d;
        d = next;
    }
}

void* HandlerFor(DeliveryTarget* target, const DeliveryRoute& route) {
    DeliveryTarget::Handler& cached = target->handlers[route.id];
    if (cached.round != gDrainRound) {
        cached.handler = LookupEventHandler(target->object, *route.cls, route.eventIndex);
        cached.round = gDrainRound;
    }
    return cached.handler;
}

void Drain(void*);

void PostDrain() { PlatformPostToMainThread(Drain, nullptr); }

// Runs on the main thread: raises the batch queued so far.
void Drain(void*) {
    DeliveryQueue& q = Queue();
    Delivery* batch;
    {
        std::lock_guard<std::mutex> hold(q.lock);
        batch = q.head;
        q.head = q.tail = nullptr;
        ++q.batch;  // replacing can no longer reach into this batch
    }
    ++gDrainRound;
    for (Delivery* d = batch; d != nullptr; d = d->next) {
        DeliveryTarget* target = d->target;
        if (target->alive) {
            void* handler = HandlerFor(target, *d->route);
            TRACEF("%p", d->route->traceName, handler);
            if (handler != nullptr) d->route->raise(target->object, handler, d->event);
        }
        d->route->giveBack(d->event);
    }
    std::vector<DeliveryTarget*> unreferenced;
    Delivery* surplus = nullptr;
    bool more;
    {
        std::lock_guard<std::mutex> hold(q.lock);
        for (Delivery* d = batch; d != nullptr;) {
            Delivery* next = d->next;
            if (--d->target->references == 0) unreferenced.push_back(d->target);
            d->next = q.spare;
            q.spare = d;
            ++q.spareCount;
            d = next;
        }
        more = q.head != nullptr;
        if (!more) {
            q.drainPosted = false;
            surplus = TakeSurplus(q);
        }
    }
    for (DeliveryTarget* t : unreferenced) delete t;
    FreeChain(surplus);
    // Later deliveries wait for the next loop iteration, so the host's other
    // sources run between batches.
    if (more) PostDrain();
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
    DeliveryQueue& q = Queue();
    bool unreferenced;
    {
        std::lock_guard<std::mutex> hold(q.lock);
        unreferenced = --target->references == 0;
    }
    if (unreferenced) delete target;
}

void PostDelivery(DeliveryTarget* target, const DeliveryRoute& route, const libvlc_event_t& event) {
    DeliveryQueue& q = Queue();
    libvlc_event_t dropped;  // a replaced value event, or this one when there is no memory
    bool drop = false;
    bool post = false;
    {
        std::lock_guard<std::mutex> hold(q.lock);
        DeliveryTarget::Latest& latest = target->latest[route.id];
        Delivery* d = nullptr;
        if (route.latestValueOnly && latest.batch == q.batch && latest.delivery != nullptr) {
            d = latest.delivery;
            Unlink(q, d);
            dropped = d->event;
            drop = true;
        } else if (q.spare != nullptr) {
            d = q.spare;
            q.spare = d->next;
            --q.spareCount;
            ++target->references;
        } else if ((d = new (std::nothrow) Delivery) != nullptr) {
            ++target->references;
        }
        if (d != nullptr) {
            d->target = target;
            d->route = &route;
            d->event = event;
            Append(q, d);
            if (route.latestValueOnly) latest = {d, q.batch};
            post = !q.drainPosted;
            q.drainPosted = true;
        } else {
            dropped = event;
            drop = true;
        }
    }
    if (drop) route.giveBack(dropped);
    if (post) PostDrain();
}
