// Accounts for every frame of a session's capture.
#ifndef WQZ_TESTS_SUPPORT_RECORD_TALLY_H
#define WQZ_TESTS_SUPPORT_RECORD_TALLY_H

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "USBCam_API/USBCam_API.h"

/// Notes the records that a program takes from one capture of a session, on one thread. The session has no counters,
/// but its records tell: `index` numbers the frames that the session read, and a gap in it is of frames that newer ones
/// overtook. `buffer.sequence` numbers what the camera produced, and a wider gap is of frames that the driver lost.
class Record_Tally {
public:
    void Add(const Frame_Buffer_Data& record)
    {
        const Place next{record.index, record.buffer.sequence};
        EXPECT_GE(next.sequence, next.index) << "the session counts more frames than the driver had";
        if (!places.empty()) {
            EXPECT_GT(next.index, places.back().index) << "a frame was delivered twice, or too late";
            EXPECT_GE(next.sequence - next.index, Lost()) << "the session counts more frames than the driver had";
        }
        places.push_back(next);
    }

    uint64_t Delivered() const { return places.size(); }
    uint64_t Overtaken() const { return places.empty() ? 0 : places.back().index + 1 - places.size(); }
    uint64_t Lost() const { return places.empty() ? 0 : places.back().sequence - places.back().index; }

    /// @param produced  what the camera sent, up to the last record that was taken
    void Expect_Balance(uint64_t produced) const
    {
        EXPECT_EQ(Delivered() + Overtaken() + Lost(), produced) << "a frame disappeared uncounted";
    }

    /// @param numbers  of the frames that the driver handed out, in their order
    void Expect_Handed_Out(const std::vector<uint32_t>& numbers) const
    {
        for (const Place& place : places) {
            ASSERT_LT(place.index, numbers.size());
            EXPECT_EQ(place.sequence, numbers[place.index]) << "record " << place.index << " is of another frame";
        }
    }

private:
    struct Place {
        uint32_t index;
        uint32_t sequence;
    };
    std::vector<Place> places;
};

#endif  // WQZ_TESTS_SUPPORT_RECORD_TALLY_H
