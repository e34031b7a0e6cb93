// Laying down and taking of scripted answers.
#include "script/script.h"

namespace virtual_camera {

void Script::Add_Fault(uint32_t request, const Fault& fault)
{
    const std::lock_guard lock(mutex);
    faults[request].push_back({fault, fault.times, fault.skip});
}

void Script::Add_Alteration(uint32_t request, Alteration change, int times, int skip)
{
    const std::lock_guard lock(mutex);
    alterations[request].push_back({std::move(change), times, skip});
}

void Script::Add_Select(const Select_Answer& answer, int times, int skip)
{
    const std::lock_guard lock(mutex);
    selects.push_back({answer, times, skip});
}

void Script::Push_Frame(std::vector<uint8_t> bytes)
{
    const std::lock_guard lock(mutex);
    frames.push_back(std::move(bytes));
}

template <typename What>
std::optional<What> Script::Take(std::deque<Step<What>>& steps)
{
    if (steps.empty()) {
        return std::nullopt;
    }
    Step<What>& step = steps.front();
    if (step.skip > 0) {
        step.skip--;
        return std::nullopt;
    }
    What what = step.what;
    if (step.times != Always && --step.times <= 0) {
        steps.pop_front();
    }
    return what;
}

std::optional<Fault> Script::Take_Fault(uint32_t request)
{
    const std::lock_guard lock(mutex);
    const auto found = faults.find(request);
    return found == faults.end() ? std::nullopt : Take(found->second);
}

Script::Alteration Script::Take_Alteration(uint32_t request)
{
    const std::lock_guard lock(mutex);
    const auto found = alterations.find(request);
    return found == alterations.end() ? nullptr : Take(found->second).value_or(nullptr);
}

std::optional<Select_Answer> Script::Take_Select()
{
    const std::lock_guard lock(mutex);
    return Take(selects);
}

std::optional<std::vector<uint8_t>> Script::Take_Frame()
{
    const std::lock_guard lock(mutex);
    if (frames.empty()) {
        return std::nullopt;
    }
    std::vector<uint8_t> bytes = std::move(frames.front());
    frames.pop_front();
    return bytes;
}

}  // namespace virtual_camera
