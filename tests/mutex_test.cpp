// The mutex with its condition variable and the scope guard over it.
#include <gtest/gtest.h>

#include <cerrno>
#include <thread>

#include "Mutex/mutex_class.h"

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

}  // namespace
