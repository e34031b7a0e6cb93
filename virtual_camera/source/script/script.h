// What a test laid down for the next calls on a camera. Locks by itself.
#ifndef WQZ_VIRTUAL_CAMERA_SCRIPT_H
#define WQZ_VIRTUAL_CAMERA_SCRIPT_H

#include <virtual_camera/virtual_camera.h>
#include <atomic>
#include <deque>
#include <map>
#include <mutex>

namespace virtual_camera {

struct Select_Answer {
    int result = 0;
    int error = 0;
};

class Script {
public:
    using Alteration = std::function<void(void*)>;

    void Add_Fault(uint32_t request, const Fault& fault);
    void Add_Alteration(uint32_t request, Alteration change, int times, int skip);
    void Add_Select(const Select_Answer& answer, int times, int skip);
    void Push_Frame(std::vector<uint8_t> bytes);
    void Set_Descriptor_Minimum(int minimum) { descriptor_minimum = minimum; }

    // Each takes what is due at this call.
    std::optional<Fault> Take_Fault(uint32_t request);
    Alteration Take_Alteration(uint32_t request);
    std::optional<Select_Answer> Take_Select();
    std::optional<std::vector<uint8_t>> Take_Frame();
    int Descriptor_Minimum() const { return descriptor_minimum; }

    // Around a fork.
    void Lock() { mutex.lock(); }
    void Unlock() { mutex.unlock(); }

private:
    template <typename What>
    struct Step {
        What what;
        int times;
        int skip;
    };

    template <typename What>
    static std::optional<What> Take(std::deque<Step<What>>& steps);

    std::atomic<int> descriptor_minimum{0};
    std::mutex mutex;
    std::map<uint32_t, std::deque<Step<Fault>>> faults;
    std::map<uint32_t, std::deque<Step<Alteration>>> alterations;
    std::deque<Step<Select_Answer>> selects;
    std::deque<std::vector<uint8_t>> frames;
};

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_SCRIPT_H
