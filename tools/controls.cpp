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

#include "control_set.h"
#include "diagnosis.h"
#include "output.h"
#include "text.h"
#include "tool_error.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* Reset_Word = "reset";

struct State {
    uint32_t flag;
    const char* name;  ///< in JSON
    const char* text;
};

constexpr State States[] = {
    {WQZ_CAMERA_CONTROL_FLAG_READ_ONLY, "read-only", "read-only"},
    {WQZ_CAMERA_CONTROL_FLAG_INACTIVE, "inactive",
     "inactive (another control, such as an automatic one, overrides it)"},
    {WQZ_CAMERA_CONTROL_FLAG_GRABBED, "grabbed", "held by another program or by a running capture"}};

const char* Type_Name(uint32_t type)
{
    constexpr std::pair<uint32_t, const char*> Names[] = {
        {WQZ_CAMERA_CONTROL_INTEGER, "integer"},     {WQZ_CAMERA_CONTROL_BOOLEAN, "boolean"},
        {WQZ_CAMERA_CONTROL_MENU, "menu"},           {WQZ_CAMERA_CONTROL_BUTTON, "button"},
        {WQZ_CAMERA_CONTROL_INTEGER64, "integer64"}, {WQZ_CAMERA_CONTROL_STRING, "string"},
        {WQZ_CAMERA_CONTROL_BITMASK, "bitmask"},     {WQZ_CAMERA_CONTROL_INTEGER_MENU, "integer menu"}};
    const auto* found = std::ranges::find(Names, type, &std::pair<uint32_t, const char*>::first);
    return found == std::end(Names) ? "other" : found->second;
}

/// A control and what reading it gave.
struct Reading {
    const Control* control;
    std::optional<wqz::Control_Value> value;  ///< nothing when it was refused, and for a control that cannot be read
};

Reading Read(const wqz::Camera& camera, const Control& control, bool& all_read)
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

Json Number_Json(const Control& control, int64_t number)
{
    return control.about.type == WQZ_CAMERA_CONTROL_BOOLEAN ? Json(number != 0) : Json(number);
}

Json Value_Json(const Reading& reading)
{
    if (!reading.value) {
        return nullptr;
    }
    return reading.control->Is_String() ? Json(reading.value->text)
                                        : Number_Json(*reading.control, reading.value->number);
}

std::string Value_Text(const Control& control, const wqz::Control_Value& value)
{
    return control.Is_String() ? '"' + Printable(value.text) + '"' : Number_Text(control, value.number);
}

Json Control_Json(const Reading& reading)
{
    const WQZ_Camera_Control& about = reading.control->about;
    Json json{
        {"name", about.key},
        {"label", about.name},
        {"id", about.id},
        {"type", Type_Name(about.type)},
        {"value", Value_Json(reading)},
        {"default", reading.control->Is_String() ? Json(nullptr) : Number_Json(*reading.control, about.default_value)},
        {"min", about.minimum},
        {"max", about.maximum},
        {"step", about.step},
        {"state", Json::array()}};
    for (const State& state : States) {
        if (reading.control->Has(state.flag)) {
            json["state"].push_back(state.name);
        }
    }
    for (const auto& item : reading.control->items) {
        json["items"].push_back({{"index", item.index}, {"name", item.name}});
    }
    return json;
}

void Print_Json(const std::vector<Reading>& readings)
{
    Json list = Json::array();
    std::ranges::transform(readings, std::back_inserter(list), Control_Json);
    std::cout << Json_Text(list) << '\n';
}

std::string Value_Or_Dash(const Reading& reading)
{
    return reading.value ? Value_Text(*reading.control, *reading.value) : "-";
}

void Print_Table(const std::vector<Reading>& readings)
{
    size_t names = 0;
    size_t values = 0;
    for (const Reading& reading : readings) {
        names = std::max(names, std::string(reading.control->about.key).size());
        values = std::max(values, Value_Or_Dash(reading).size());
    }
    for (const Reading& reading : readings) {
        std::string range = Range_Text(*reading.control);
        for (const State& state : States) {
            range += reading.control->Has(state.flag) ? std::string("; ") + state.text : "";
        }
        std::cout << std::left << std::setw(static_cast<int>(names) + 2) << reading.control->about.key << std::right
                  << std::setw(static_cast<int>(values)) << Value_Or_Dash(reading) << "  " << range << '\n';
    }
}

bool Print(const wqz::Camera& camera, const std::vector<const Control*>& chosen, bool json)
{
    bool all_read = true;
    std::vector<Reading> readings;
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

/// @return what the camera refused, with the reason; empty when it is at its default or nothing can be done
std::string Reset_One(wqz::Camera& camera, const Control& control)
{
    const bool is_state = control.Is_Readable() && !control.Is_String();
    if (!is_state || control.Has(WQZ_CAMERA_CONTROL_FLAG_READ_ONLY)) {
        return "";
    }
    try {
        const int64_t wanted = control.about.default_value;
        if (camera.Get(control.about.id).number != wanted) {
            camera.Set({control.about.id, wanted});
        }
        return "";
    } catch (const wqz::Camera_Error& error) {
        return error.what();
    }
}

/// Resets all controls, twice: some can be set only when another one, such as an automatic, was reset.
bool Reset(wqz::Camera& camera)
{
    bool complete = true;
    for (const bool last : {false, true}) {
        for (const Control& control : Read_Controls(camera)) {
            const std::string refusal = Reset_One(camera, control);
            if (last && !refusal.empty() && !control.Has(WQZ_CAMERA_CONTROL_FLAG_INACTIVE)) {
                Say(refusal);
                complete = false;
            }
        }
    }
    return complete;
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
