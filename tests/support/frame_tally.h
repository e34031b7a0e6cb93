// Accounts for every frame that a camera produced.
#ifndef WQZ_TESTS_SUPPORT_FRAME_TALLY_H
#define WQZ_TESTS_SUPPORT_FRAME_TALLY_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <tuple>
#include <vector>

#include "Camera/wqz_camera.h"

/// Notes the frames that a program receives from one capture, on any threads. The driver numbers what it produces, and
/// each frame must then be delivered, overtaken by a newer one, or lost in the driver.
class Frame_Tally {
public:
    Frame_Tally() { received.reserve(1000); }  // for tests that count the allocations of a Read

    void Add(const WQZ_Camera_Frame& frame)
    {
        const std::lock_guard lock(mutex);
        received.push_back({frame.time_ns, frame.sequence});
        damaged += (frame.flags & WQZ_CAMERA_FRAME_DAMAGED) != 0 ? 1 : 0;
    }

    void Clear()
    {
        const std::lock_guard lock(mutex);
        received.clear();
        damaged = 0;
    }

    /// @param may_begin_late  the driver may lose frames before the first one, which are in no count
    void Expect_Balance(const WQZ_Camera_Counts& counts, bool may_begin_late = false)
    {
        const std::lock_guard lock(mutex);
        EXPECT_EQ(counts.delivered, received.size());
        if (!received.empty()) {
            const Numbers numbers = Driver_Numbers();
            const uint64_t counted = counts.delivered + counts.skipped + counts.lost;
            EXPECT_LE(counted, numbers.produced) << "a frame was counted twice";
            EXPECT_GE(counted + (may_begin_late ? numbers.before_first : 0), numbers.produced)
                << "a frame disappeared uncounted";
        }
        EXPECT_GE(counts.damaged, damaged);
        EXPECT_LE(counts.damaged, damaged + counts.skipped);
    }

private:
    struct Received {
        int64_t time_ns;
        uint32_t sequence;
    };

    struct Numbers {
        uint64_t produced = 0;      // up to the last frame received
        uint64_t before_first = 0;  // of them, before the first one received
    };

    // A recovery begins to number at 0 again.
    Numbers Driver_Numbers()
    {
        std::sort(received.begin(), received.end(), [](const Received& one, const Received& other) {
            return std::tie(one.time_ns, one.sequence) < std::tie(other.time_ns, other.sequence);
        });
        Numbers numbers;
        for (size_t i = 0; i < received.size(); ++i) {
            if (i == 0 || received[i].sequence <= received[i - 1].sequence) {
                numbers.before_first += received[i].sequence;
            }
            if (i + 1 == received.size() || received[i + 1].sequence <= received[i].sequence) {
                numbers.produced += uint64_t{received[i].sequence} + 1;
            }
        }
        return numbers;
    }

    std::mutex mutex;
    std::vector<Received> received;
    uint64_t damaged = 0;
};

#endif  // WQZ_TESTS_SUPPORT_FRAME_TALLY_H
