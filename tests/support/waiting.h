// Helpers that wait for another thread.
#ifndef WQZ_TESTS_SUPPORT_WAITING_H
#define WQZ_TESTS_SUPPORT_WAITING_H

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

/// @return whether the condition came true within 20 seconds
inline bool Eventually(const std::function<bool()>& holds)
{
    using Clock = std::chrono::steady_clock;
    for (const auto end = Clock::now() + std::chrono::seconds(20); Clock::now() < end;) {
        if (holds()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return false;
}

/// Runs a blocking call on a thread of its own and wakes it until it returns.
/// @return the call's result
template <typename Wait, typename Wake>
auto Wait_And_Wake(Wait wait, Wake wake)
{
    std::atomic<bool> returned{false};
    decltype(wait()) result{};
    std::thread waiter([&] {
        result = wait();
        returned = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(returned) << "the call did not wait";
    while (!returned) {
        wake();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    waiter.join();
    return result;
}

#endif  // WQZ_TESTS_SUPPORT_WAITING_H
