// The verb "controls": prints, sets and resets a camera's controls.
#include "controls.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "control_json.h"
#include "control_set.h"
#include "diagnosis.h"
#include "output.h"
#include "text.h"
#include "tool_error.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* Reset_Word = "reset";

Control_Reading Read(const wqz::Camera& camera, const Control& control, bool& all_read)
{
    if (!control.Is_Readable()) {
        return {&control, std::nullopt};
    }
    try {
        return {&control, camera.Get(control.about.id)};
    } catch (const wqz::Camera_Error& error) {
        Say(error.what());
        all_read = false;
        return {&control, std::nullopt};
    }
}

std::string Value_Text(const Control& control, const wqz::Control_Value& value)
{
    return control.Is_String() ? '"' + Printable(value.text) + '"' : Number_Text(control, value.number);
}

void Print_Json(const std::vector<Control_Reading>& readings)
{
    Json list = Json::array();
    std::ranges::transform(readings, std::back_inserter(list), Control_Json);
    std::cout << Json_Text(list) << '\n';
}

std::string Value_Or_Dash(const Control_Reading& reading)
{
    return reading.value ? Value_Text(*reading.control, *reading.value) : "-";
}

void Print_Table(const std::vector<Control_Reading>& readings)
{
    size_t names = 0;
    size_t values = 0;
    for (const Control_Reading& reading : readings) {
        names = std::max(names, std::string(reading.control->about.key).size());
        values = std::max(values, Value_Or_Dash(reading).size());
    }
    for (const Control_Reading& reading : readings) {
        std::string range = Range_Text(*reading.control);
        for (const Control_State& state : Control_States) {
            range += reading.control->Has(state.flag) ? std::string("; ") + state.text : "";
        }
        std::cout << std::left << std::setw(static_cast<int>(names) + 2) << reading.control->about.key << std::right
                  << std::setw(static_cast<int>(values)) << Value_Or_Dash(reading) << "  " << range << '\n';
    }
}

bool Print(const wqz::Camera& camera, const std::vector<const Control*>& chosen, bool json)
{
    bool all_read = true;
    std::vector<Control_Reading> readings;
    std::ranges::transform(chosen, std::back_inserter(readings),
                           [&](const Control* control) { return Read(camera, *control, all_read); });
    if (json) {
        Print_Json(readings);
    } else {
        Print_Table(readings);
    }
    return all_read;
}

/// Tells what the camera took of a value that was set.
void Print_Result(const wqz::Camera& camera, const Control& control, int64_t wanted)
{
    std::cout << control.about.key << ": ";
    if (!control.Is_Readable()) {
        std::cout << "done\n";
        return;
    }
    const wqz::Control_Value taken = camera.Get(control.about.id);
    std::cout << Value_Text(control, taken);
    if (!control.Is_String() && taken.number != wanted) {
        std::cout << " (the camera chose this for " << Number_Text(control, wanted) << ")";
    }
    std::cout << '\n';
}

bool Reset(wqz::Camera& camera)
{
    const std::vector<std::string> refusals = Reset_Controls(camera);
    std::ranges::for_each(refusals, Say);
    return refusals.empty();
}

bool Is_Setting(const std::string& word)
{
    return word.find('=') != std::string::npos;
}

enum class Action { Print, Set, Reset };

/// What a word asks for.
struct Step {
    Action action;
    const Control* control = nullptr;
    std::optional<wqz::Setting> setting = std::nullopt;
};

std::vector<Step> Parse_Steps(const std::vector<Control>& controls, const std::vector<std::string>& words)
{
    std::vector<Step> steps;
    for (const std::string& word : words) {
        if (word == Reset_Word) {
            steps.push_back({Action::Reset});
            continue;
        }
        const size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        const Control& control = Control_Named(controls, name);
        if (!Is_Setting(word)) {
            steps.push_back({Action::Print, &control});
            continue;
        }
        if (control.Has(WQZ_CAMERA_CONTROL_FLAG_READ_ONLY)) {
            throw Tool_Error(word + ": " + control.about.key + " is read-only");
        }
        steps.push_back({Action::Set, &control, Parse_Setting(control, word.substr(equals + 1))});
    }
    return steps;
}

/// Opens the camera that the first word names, and removes the word. A first word that names no camera may name a
/// control of the only camera.
wqz::Camera Open_Named(std::vector<std::string>& words)
{
    if (words.empty() || words.front() == Reset_Word || Is_Setting(words.front())) {
        return Open_Camera("");
    }
    try {
        wqz::Camera camera = Open_Camera(words.front());
        words.erase(words.begin());
        return camera;
    } catch (const wqz::Camera_Error& error) {
        const bool can_name_a_control =
            words.front().find_first_of("/:@") == std::string::npos && !Whole_Number(words.front());
        if (error.Code() != ENOENT || !can_name_a_control || wqz::List_Cameras().size() != 1) {
            throw;
        }
    }
    return Open_Camera("");
}

}  // namespace

int Run_Controls(std::vector<std::string> words, bool json)
{
    wqz::Camera camera = Open_Named(words);
    const std::vector<Control> controls = Read_Controls(camera);
    const std::vector<Step> steps = Parse_Steps(controls, words);
    bool complete = true;
    std::vector<const Control*> chosen;
    for (const Step& step : steps) {
        if (step.action == Action::Reset) {
            complete = Reset(camera) && complete;
        } else if (step.action == Action::Set) {
            camera.Set(*step.setting);
        }
        if (step.action == Action::Set && !json) {
            Print_Result(camera, *step.control, step.setting->value);
        } else if (step.control != nullptr) {
            chosen.push_back(step.control);
        }
    }
    if (words.empty()) {
        std::ranges::transform(controls, std::back_inserter(chosen), [](const Control& control) { return &control; });
    }
    if (controls.empty()) {
        Say("the camera has no controls");
    }
    if (json || !chosen.empty()) {
        complete = Print(camera, chosen, json) && complete;
    }
    return complete ? EXIT_SUCCESS : EXIT_FAILURE;
}
