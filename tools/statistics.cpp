// Counts frames, rates and losses.
#include "statistics.h"

#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>

void Statistics::Count(const WQZ_Camera_Frame& frame, bool missed)
{
    if (frames == 0) {
        first_ns = frame.time_ns;
    } else if (missed) {
        last_gap = static_cast<double>(frame.time_ns - last_ns) / 1e9;
        seconds_missed += last_gap;
        ++gaps;
    }
    last_ns = frame.time_ns;
    lost += frame.lost_before;
    ++frames;
}

double Statistics::Rate() const
{
    const double seconds = Seconds() - seconds_missed;
    const uint64_t intervals = frames - gaps;
    return intervals < 2 || seconds <= 0 ? 0 : static_cast<double>(intervals - 1) / seconds;
}

double Statistics::Megabytes_Per_Second() const
{
    return frames == 0 ? 0 : static_cast<double>(total_bytes) / static_cast<double>(frames) * Rate() / 1e6;
}

std::string Statistics::Progress() const
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(2) << frames << " frames, " << Rate() << " per second, "
         << Megabytes_Per_Second() << " MB/s, lost " << lost;
    return text.str();
}

std::string Statistics::Summary(uint64_t skipped) const
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(2) << "captured  " << frames << (frames == 1 ? " frame" : " frames");
    if (frames > 1) {
        text << " in " << Seconds() << " s: " << Rate() << " frames per second, " << Megabytes_Per_Second() << " MB/s";
    }
    text << "\nlost      " << lost << "\n"
         << "damaged   " << damaged << "\n";
    if (skipped > 0) {
        text << "skipped   " << skipped << "\n";
    }
    if (gaps > 0) {
        text << "missed    " << seconds_missed << " s while the camera was away, " << gaps
             << (gaps == 1 ? " time\n" : " times\n");
    }
    return text.str();
}

void Statistics::Add_To(nlohmann::ordered_json& json, uint64_t skipped) const
{
    json["frames"] = frames;
    json["seconds"] = Seconds();
    json["frames_per_second"] = Rate();
    json["bytes"] = total_bytes;
    json["lost"] = lost;
    json["damaged"] = damaged;
    json["skipped"] = skipped;
    json["times_away"] = gaps;
    json["seconds_missed"] = seconds_missed;
}
