// What tests with many threads at random moments share: draws from a seed that is printed, rounds, and threads.
#ifndef WQZ_TESTS_SUPPORT_STORM_H
#define WQZ_TESTS_SUPPORT_STORM_H

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <thread>
#include <vector>

/// The draws of one thread.
class Random {
public:
    explicit Random(uint32_t seed) : engine(seed) {}

    /// @return a number from 0 to below `limit`
    uint32_t Below(uint32_t limit) { return static_cast<uint32_t>(engine() % limit); }

    void Sleep_Up_To(std::chrono::microseconds longest)
    {
        std::this_thread::sleep_for(std::chrono::microseconds(Below(static_cast<uint32_t>(longest.count()) + 1)));
    }

private:
    std::mt19937 engine;
};

/// The rounds of a test: as many as it asks for, or as many as WQZ_STORM_SECONDS gives time for. The seed is printed,
/// and WQZ_STORM_SEED sets it. It repeats what is drawn, but not how the threads interleave.
class Rounds {
public:
    explicit Rounds(uint32_t count)
        : wanted(count),
          seconds(Number_Of("WQZ_STORM_SECONDS")),
          end(Clock::now() + std::chrono::seconds(seconds)),
          seed(Number_Of("WQZ_STORM_SEED"))
    {
        if (seed == 0) {
            seed = std::random_device()();
        }
        std::printf("seed %u\n", seed);
        (void)std::fflush(stdout);
    }
    ~Rounds() { std::printf("%u rounds, the slowest end took %lld ms\n", begun, slowest); }
    Rounds(const Rounds&) = delete;
    Rounds& operator=(const Rounds&) = delete;

    bool Next()
    {
        const bool more = seconds == 0 ? begun < wanted : Clock::now() < end;
        begun += more ? 1 : 0;
        return more;
    }
    uint32_t Begun() const { return begun; }

    /// Notes how long the round's stop or close took.
    void Ended_In(std::chrono::milliseconds time) { slowest = std::max<long long>(slowest, time.count()); }

    /// @return the draws of one more thread
    Random New_Random() { return Random(seed + ++drawing); }

private:
    using Clock = std::chrono::steady_clock;

    static uint32_t Number_Of(const char* variable)
    {
        const char* text = std::getenv(variable);
        return text == nullptr ? 0 : static_cast<uint32_t>(std::strtoul(text, nullptr, 10));
    }

    uint32_t wanted;
    uint32_t seconds;
    Clock::time_point end;
    uint32_t seed;
    uint32_t drawing = 0;
    uint32_t begun = 0;
    long long slowest = 0;
};

/// Tells a call that ends late, on a machine with much other work, from one that does not end.
constexpr std::chrono::seconds Slack{5};

/// Threads of a test that end together.
class Crew {
public:
    Crew() = default;
    ~Crew() { Join(); }
    Crew(const Crew&) = delete;
    Crew& operator=(const Crew&) = delete;

    void Once(const std::function<void()>& body) { threads.emplace_back(body); }

    /// Repeats the body until Join.
    void Repeat(const std::function<void()>& body)
    {
        threads.emplace_back([this, body]() mutable {
            while (!stop) {
                body();
            }
        });
    }

    void Join()
    {
        stop = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
        threads.clear();
        stop = false;
    }

private:
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
};

#endif  // WQZ_TESTS_SUPPORT_STORM_H
