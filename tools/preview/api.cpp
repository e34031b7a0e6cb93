// Answers the page's questions by the camera interface.
#include "api.h"

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <utility>

#include "../control_json.h"
#include "../control_set.h"
#include "../tool_error.h"

namespace {

using Json = nlohmann::ordered_json;

enum Status { Bad_Request = 400, Not_Found = 404, Conflict = 409, Refused = 422, Unavailable = 503 };

const char* State_Name(Feed_State state)
{
    switch (state) {
        case Feed_State::Starting:
            return "starting";
        case Feed_State::Live:
            return "live";
        case Feed_State::Unplugged:
            return "unplugged";
        case Feed_State::Failed:
            return "failed";
        default:
            return "idle";
    }
}

Json Mode_Json(const wqz::Mode& mode)
{
    return {{"format", mode.format},
            {"width", mode.width},
            {"height", mode.height},
            {"rate", Rate_Text(mode.interval)},
            {"fps", mode.Rate()}};
}

Json Camera_Json(const Known_Camera& camera)
{
    const std::string product = camera.info.product_name;
    return {{"identity", camera.info.identity},
            {"name", camera.info.card[0] != 0 ? std::string(camera.info.card) : product},
            {"node", camera.info.node},
            {"plugged", camera.plugged}};
}

Json Feed_Json(const Known_Camera& camera)
{
    const Feed_Report report = camera.feed->Report();
    const bool is_away = !camera.plugged && report.state != Feed_State::Live;
    Json json = Camera_Json(camera);
    json["state"] = State_Name(is_away ? Feed_State::Unplugged : report.state);
    json["problem"] = report.problem;
    json["mode"] = report.mode ? Mode_Json(*report.mode) : Json(nullptr);
    json["viewers"] = report.viewers;
    json["revision"] = report.revision;
    json["rate"] = report.rate;
    json["latency_ms"] = report.latency_ms;
    json["frames"] = report.frames;
    json["lost"] = report.lost;
    json["damaged"] = report.damaged;
    json["skipped"] = report.skipped;
    return json;
}

int Status_Of(const wqz::Camera_Error& error)
{
    switch (error.Code()) {
        case EBUSY:
            return Conflict;
        case EINVAL:
        case ERANGE:
        case ENOTSUP:
        case EACCES:
            return Refused;
        default:
            return Unavailable;
    }
}

/// Runs a change and puts what fails into words for the page.
template <typename Change>
auto Reported(Change change)
{
    try {
        return change();
    } catch (const wqz::Camera_Error& error) {
        throw Api_Error(Status_Of(error), error.what());
    } catch (const Tool_Error& error) {
        throw Api_Error(Refused, error.what());
    } catch (const nlohmann::json::exception&) {
        throw Api_Error(Bad_Request, "The request lacks a value, or has one of a wrong type.");
    }
}

std::optional<wqz::Control_Value> Value_Of(const wqz::Camera& camera, const Control& control)
{
    try {
        return control.Is_Readable() ? std::optional(camera.Get(control.about.id)) : std::nullopt;
    } catch (const wqz::Camera_Error& error) {
        if (error.Code() == ENODEV) {
            throw;
        }
        return std::nullopt;  // the page shows the control without a value
    }
}

/// @return a value as users type it; null stands for the default
std::string Value_Text(const nlohmann::json& value)
{
    if (value.is_null()) {
        return "default";
    }
    if (value.is_boolean()) {
        return value.get<bool>() ? "on" : "off";
    }
    return value.is_string() ? value.get<std::string>() : std::to_string(value.get<int64_t>());
}

Json All_Controls(const wqz::Camera& camera)
{
    Json list = Json::array();
    for (const Control& control : Read_Controls(camera)) {
        list.push_back(Control_Json({&control, Value_Of(camera, control)}));
    }
    return list;
}

void Set_Control(wqz::Camera& camera, const nlohmann::json& change)
{
    const std::vector<Control> controls = Read_Controls(camera);
    const Control& control = Control_Named(controls, change.at("name").get<std::string>());
    camera.Set(Parse_Setting(control, Value_Text(change.at("value"))));
}

}  // namespace

Json State_Json(Roster& roster, const std::string& identity)
{
    Json list = Json::array();
    Json chosen = nullptr;
    for (const Known_Camera& camera : roster.Cameras()) {
        list.push_back(Camera_Json(camera));
        if (chosen.is_null() && (identity.empty() || identity == camera.info.identity)) {
            chosen = Feed_Json(camera);
        }
    }
    return {{"cameras", list}, {"camera", chosen}};
}

Json Modes_Json(Feed& feed)
{
    return Reported([&] { return Offers_Json(feed.Camera().Modes()); });
}

Json Controls_Json(Feed& feed)
{
    return Reported([&] { return All_Controls(feed.Camera()); });
}

Json Change_Controls(Feed& feed, const nlohmann::json& change)
{
    return Reported([&] {
        wqz::Camera& camera = feed.Camera();
        if (change.value("reset", false)) {
            (void)Reset_Controls(camera);  // the answer shows the values that were kept
        } else {
            Set_Control(camera, change);
        }
        feed.Note_Change();
        return All_Controls(camera);
    });
}

Json Change_Mode(Feed& feed, const nlohmann::json& change)
{
    return Reported([&] {
        Mode_Wish wish;
        wish.format = change.at("format").get<std::string>();
        wish.size = {change.at("width").get<uint32_t>(), change.at("height").get<uint32_t>()};
        const std::string rate = change.value("rate", "");
        const auto interval = Interval_Of_Rate(rate);
        if (!rate.empty() && !interval) {
            throw Tool_Error("'" + rate + "' is not a rate; write a number such as 30, 29.97 or 30000/1001");
        }
        wish.interval = interval.value_or(wish.interval);
        return Mode_Json(feed.Change_Mode(wish));
    });
}

std::shared_ptr<Feed> Find_Feed(Roster& roster, const std::string& identity)
{
    auto feed = roster.Find(identity);
    if (!feed) {
        throw Api_Error(Not_Found, identity.empty() ? "There is no camera. Plug one in."
                                                    : "There is no camera with this identity.");
    }
    return feed;
}
