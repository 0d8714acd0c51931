#include "core/jvm/EventGate.h"

#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

namespace {

TEST(EventGate, closingWaitsForTheHandlersAtWorkAndLetsNobodyElseIn) {
    std::atomic<bool> isClosed{false};
    auto atWork = std::make_unique<EventGate>();
    EXPECT_TRUE(atWork->isOpen());
    std::thread closer([&] {
        EventGate::close();
        isClosed = true;
    });
    while (EventGate().isOpen()) {
        std::this_thread::yield();
    }
    EXPECT_FALSE(isClosed) << "one handler is still at work";
    atWork.reset();
    closer.join();
    EXPECT_FALSE(EventGate().isOpen());
    EventGate::open();
    EXPECT_TRUE(EventGate().isOpen());
}

} // namespace
