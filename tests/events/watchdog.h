// Stops the process when a test runs past its limit: a hang fails at once and names itself.
#pragma once

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <thread>

namespace eventstest {

class Watchdog {
public:
    explicit Watchdog(std::chrono::seconds limit)
        : thread_([this, limit] {
              if (finished_.get_future().wait_for(limit) == std::future_status::ready) return;
              fprintf(stderr, "watchdog: the test hung for %lld s\n", static_cast<long long>(limit.count()));
              abort();
          }) {}
    ~Watchdog() {
        finished_.set_value();
        thread_.join();
    }

private:
    std::promise<void> finished_;
    std::thread thread_;
};

}  // namespace eventstest
