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

    void Expect_Balance(const WQZ_Camera_Counts& counts)
    {
        const std::lock_guard lock(mutex);
        EXPECT_EQ(counts.delivered, received.size());
        if (!received.empty()) {
            EXPECT_EQ(counts.delivered + counts.skipped + counts.lost, Produced()) << "a frame disappeared uncounted";
        }
        EXPECT_GE(counts.damaged, damaged);
        EXPECT_LE(counts.damaged, damaged + counts.skipped);
    }

private:
    struct Received {
        int64_t time_ns;
        uint32_t sequence;
    };

    // What the camera produced up to the last frame received. A recovery begins to number at 0 again.
    uint64_t Produced()
    {
        std::sort(received.begin(), received.end(), [](const Received& one, const Received& other) {
            return std::tie(one.time_ns, one.sequence) < std::tie(other.time_ns, other.sequence);
        });
        uint64_t produced = 0;
        for (size_t i = 0; i < received.size(); ++i) {
            if (i + 1 == received.size() || received[i + 1].sequence <= received[i].sequence) {
                produced += uint64_t{received[i].sequence} + 1;
            }
        }
        return produced;
    }

    std::mutex mutex;
    std::vector<Received> received;
    uint64_t damaged = 0;
};

#endif  // WQZ_TESTS_SUPPORT_FRAME_TALLY_H
