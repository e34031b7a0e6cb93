// Counts frames, rates and losses from sequence numbers, indexes and time stamps.
#include "statistics.h"

#include <iomanip>
#include <sstream>

namespace {

/// @return how many numbers a wrapping counter skipped between two readings; none when it stands still or restarts
uint32_t Skipped(uint32_t before, uint32_t now)
{
    const uint32_t step = now - before;
    return step == 0 || step > UINT32_MAX / 2 ? 0 : step - 1;
}

double Stamp(const Frame_Buffer_Data& frame)
{
    const timeval& stamp = frame.buffer.timestamp;
    return static_cast<double>(stamp.tv_sec) + static_cast<double>(stamp.tv_usec) / 1e6;
}

}  // namespace

void Statistics::Count_Arrival(const Frame_Buffer_Data& frame, Clock::time_point now)
{
    if (frames == 0) {
        first = now;
        first_stamp = Stamp(frame);
        index_gaps = frame.index;  // the library counts from 0; drivers may start anywhere
        sequence_gaps = frame.index;
    } else {
        sequence_gaps += Skipped(last_sequence, frame.buffer.sequence);
        index_gaps += Skipped(last_index, frame.index);
    }
    last_sequence = frame.buffer.sequence;
    last_index = frame.index;
    last = now;
    last_stamp = Stamp(frame);
    ++frames;
}

double Statistics::Seconds() const
{
    const double by_driver = last_stamp - first_stamp;
    return by_driver > 0 ? by_driver : std::chrono::duration<double>(last - first).count();
}

double Statistics::Rate() const
{
    return frames < 2 || Seconds() <= 0 ? 0 : static_cast<double>(frames - 1) / Seconds();
}

double Statistics::Megabytes_Per_Second() const
{
    return frames == 0 ? 0 : static_cast<double>(total_bytes) / static_cast<double>(frames) * Rate() / 1e6;
}

uint64_t Statistics::Lost_In_Driver() const
{
    return sequence_gaps > index_gaps ? sequence_gaps - index_gaps : 0;
}

std::string Statistics::Progress() const
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(2) << frames << " frames, " << Rate() << " per second, "
         << Megabytes_Per_Second() << " MB/s, lost " << Lost_In_Driver() << " in the driver and " << index_gaps
         << " unread";
    return text.str();
}

std::string Statistics::Summary() const
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(2) << "captured  " << frames << " frames in " << Seconds()
         << " s: " << Rate() << " frames per second, " << Megabytes_Per_Second() << " MB/s\n"
         << "lost      " << Lost_In_Driver() << " in the driver (gaps in its sequence), " << index_gaps
         << " unread (gaps in the index)\n"
         << "damaged   " << damaged << "\n";
    return text.str();
}
