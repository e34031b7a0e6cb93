// The mutex with its condition variable and the scope guard over it.
#include <gtest/gtest.h>

#include <cerrno>
#include <thread>
#include <vector>

#include "Mutex/mutex_class.h"
#include "support/waiting.h"

namespace {

int32_t Try_From_Another_Thread(Mutex_Class& pair)
{
    int32_t result = -1;
    std::thread([&] {
        result = pthread_mutex_trylock(&pair.mutex);
        if (result == 0) {
            pthread_mutex_unlock(&pair.mutex);
        }
    }).join();
    return result;
}

TEST(Mutex, AGuardHoldsFromConstructionToTheEndOfItsScope)
{
    Mutex_Class pair;
    {
        Mutex_Lock_Class guard(pair, "here");
        EXPECT_EQ(guard.Init_Pace, "here");
        EXPECT_EQ(guard.lock_status, 1);
        EXPECT_EQ(Try_From_Another_Thread(pair), EBUSY);
        EXPECT_EQ(guard.lock(), -1);
        EXPECT_EQ(guard.trylock(), EBUSY);
        EXPECT_EQ(guard.lock_status, 1);
    }
    EXPECT_EQ(Try_From_Another_Thread(pair), 0);
}

TEST(Mutex, AnUnlockedGuardDoesNotUnlockForAnother)
{
    Mutex_Class pair;
    {
        Mutex_Lock_Class first(&pair);
        EXPECT_EQ(first.unlock(), 0);
        EXPECT_EQ(first.unlock(), -1);
        EXPECT_EQ(first.trylock(), 0);
        EXPECT_EQ(first.unlock(), 0);
        ASSERT_EQ(pthread_mutex_lock(&pair.mutex), 0);
    }
    EXPECT_EQ(Try_From_Another_Thread(pair), EBUSY) << "the end of a released guard unlocked the mutex";
    pthread_mutex_unlock(&pair.mutex);
}

TEST(Mutex, AWaitReleasesTheMutexAndHoldsItAgain)
{
    Mutex_Class pair;
    bool waiting = false;
    bool sent = false;
    std::thread sender([&] {
        for (;;) {
            Mutex_Lock_Class guard(&pair, "sender");
            if (waiting) {
                sent = true;
                EXPECT_EQ(guard.Send_Cond(), 0);
                return;
            }
        }
    });
    Mutex_Lock_Class guard(pair);
    waiting = true;
    while (!sent) {
        EXPECT_EQ(guard.Wait_Cond(), 0);
        EXPECT_EQ(guard.lock_status, 1);
    }
    EXPECT_EQ(Try_From_Another_Thread(pair), EBUSY);
    guard.unlock();
    sender.join();
}

TEST(Mutex, ASignalWakesOneWaiter)
{
    constexpr int waiters = 4;
    Mutex_Class pair;
    int waiting = 0;
    int woken = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < waiters; ++i) {
        threads.emplace_back([&] {
            Mutex_Lock_Class guard(pair);
            ++waiting;
            (void)guard.Wait_Cond();
            ++woken;
        });
    }
    // A waiter releases the mutex by its wait, so who sees the count sees the waits.
    const auto reached = [&](const int& count, int expected) {
        const Mutex_Lock_Class guard(pair);
        return count == expected;
    };
    ASSERT_TRUE(Eventually([&] { return reached(waiting, waiters); }));
    for (int sent = 1; sent <= waiters; ++sent) {
        EXPECT_EQ(Mutex_Lock_Class(pair).Send_Cond(), 0);
        EXPECT_TRUE(Eventually([&] { return reached(woken, sent); }));
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_TRUE(reached(woken, sent)) << "a signal woke several";
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
