// What the page reads and changes, as JSON.
#ifndef WQZ_TOOL_PREVIEW_API_H
#define WQZ_TOOL_PREVIEW_API_H

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "roster.h"

/// A request that cannot be fulfilled. The sentence goes to the page.
class Api_Error : public std::runtime_error {
public:
    Api_Error(int http_status, const std::string& sentence) : std::runtime_error(sentence), status(http_status) {}

    int Status() const noexcept { return status; }

private:
    int status;
};

/// @return the cameras, and the state of the one that is asked for (null when there is none)
nlohmann::ordered_json State_Json(Roster& roster, const std::string& identity);

/// @return the offers of the camera
nlohmann::ordered_json Modes_Json(Feed& feed);

/// @return the controls with their values
nlohmann::ordered_json Controls_Json(Feed& feed);

/// Sets a control, or with {"reset": true} all to their defaults.
/// @return the controls as they are then
nlohmann::ordered_json Change_Controls(Feed& feed, const nlohmann::json& change);

/// @return the mode that the camera accepted
nlohmann::ordered_json Change_Mode(Feed& feed, const nlohmann::json& change);

/// @throws Api_Error  404 when there is no such camera
std::shared_ptr<Feed> Find_Feed(Roster& roster, const std::string& identity);

#endif  // WQZ_TOOL_PREVIEW_API_H
