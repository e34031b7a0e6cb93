// Writes controls as JSON.
#include "control_json.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>

namespace {

using Json = nlohmann::ordered_json;

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

Json Number_Json(const Control& control, int64_t number)
{
    return control.about.type == WQZ_CAMERA_CONTROL_BOOLEAN ? Json(number != 0) : Json(number);
}

Json Value_Json(const Control_Reading& reading)
{
    if (!reading.value) {
        return nullptr;
    }
    return reading.control->Is_String() ? Json(reading.value->text)
                                        : Number_Json(*reading.control, reading.value->number);
}

}  // namespace

Json Control_Json(const Control_Reading& reading)
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
    for (const Control_State& state : Control_States) {
        if (reading.control->Has(state.flag)) {
            json["state"].push_back(state.name);
        }
    }
    for (const auto& item : reading.control->items) {
        json["items"].push_back({{"index", item.index}, {"name", item.name}});
    }
    return json;
}
