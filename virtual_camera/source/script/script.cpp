#include "script/script.h"

namespace virtual_camera {

void Script::Add_Fault(uint32_t request, const Fault& fault)
{
    const std::lock_guard lock(mutex_);
    faults_[request].push_back({fault, fault.times, fault.skip});
    empty_ = false;
}

void Script::Add_Alteration(uint32_t request, Alteration change, int times, int skip)
{
    const std::lock_guard lock(mutex_);
    alterations_[request].push_back({std::move(change), times, skip});
    empty_ = false;
}

void Script::Add_Select(const Select_Answer& answer, int times, int skip)
{
    const std::lock_guard lock(mutex_);
    selects_.push_back({answer, times, skip});
    empty_ = false;
}

void Script::Push_Frame(std::vector<uint8_t> bytes)
{
    const std::lock_guard lock(mutex_);
    frames_.push_back(std::move(bytes));
    empty_ = false;
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
    if (empty_) {
        return std::nullopt;
    }
    const std::lock_guard lock(mutex_);
    const auto found = faults_.find(request);
    return found == faults_.end() ? std::nullopt : Take(found->second);
}

Script::Alteration Script::Take_Alteration(uint32_t request)
{
    if (empty_) {
        return nullptr;
    }
    const std::lock_guard lock(mutex_);
    const auto found = alterations_.find(request);
    return found == alterations_.end() ? nullptr : Take(found->second).value_or(nullptr);
}

std::optional<Select_Answer> Script::Take_Select()
{
    if (empty_) {
        return std::nullopt;
    }
    const std::lock_guard lock(mutex_);
    return Take(selects_);
}

std::optional<std::vector<uint8_t>> Script::Take_Frame()
{
    if (empty_) {
        return std::nullopt;
    }
    const std::lock_guard lock(mutex_);
    if (frames_.empty()) {
        return std::nullopt;
    }
    std::vector<uint8_t> bytes = std::move(frames_.front());
    frames_.pop_front();
    return bytes;
}

}  // namespace virtual_camera
