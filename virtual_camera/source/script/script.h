// The answers that a test has prepared for the next calls on a camera. Any thread may use it.
#ifndef WQZ_VIRTUAL_CAMERA_SCRIPT_H
#define WQZ_VIRTUAL_CAMERA_SCRIPT_H

#include <virtual_camera/virtual_camera.h>
#include <atomic>
#include <deque>
#include <map>
#include <mutex>

namespace virtual_camera {

/// Prepared answers of one kind. Those for the same request take effect one after another.
template <typename What>
class Steps {
public:
    void Add(uint32_t request, What what, int times = 1, int skip = 0)
    {
        const std::lock_guard lock(mutex);
        steps[request].push_back({std::move(what), times, skip});
    }

    /// @return the answer for this call, if there is one
    std::optional<What> Take(uint32_t request)
    {
        const std::lock_guard lock(mutex);
        const auto found = steps.find(request);
        if (found == steps.end() || found->second.empty() || found->second.front().skip-- > 0) {
            return std::nullopt;
        }
        Step& step = found->second.front();
        step.skip = 0;
        std::optional<What> what = step.what;
        if (step.times != Always && --step.times <= 0) {
            found->second.pop_front();
        }
        return what;
    }

private:
    struct Step {
        What what;
        int times;
        int skip;
    };

    std::mutex mutex;
    std::map<uint32_t, std::deque<Step>> steps;
};

struct Answer {
    int result = 0;
    int error = 0;  // errno when the call failed
};

struct Script {
    Steps<Fault> faults;
    Steps<std::function<void(void*)>> alterations;
    Steps<Answer> selects;               // for Call_Select
    Steps<std::vector<uint8_t>> frames;  // for VIDIOC_DQBUF
    std::atomic<int> descriptor_minimum{0};
};

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_SCRIPT_H
