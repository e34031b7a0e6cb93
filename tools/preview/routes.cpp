// Routes requests to the page's files, the API and the pictures.
#include "routes.h"

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "../output.h"
#include "api.h"
#include "page_files.h"

namespace {

using namespace std::chrono_literals;
using httplib::Request;
using httplib::Response;
using Json = nlohmann::ordered_json;

constexpr auto Picture_Slice = 500ms;  // how soon a viewer that went away is noticed while no picture comes
constexpr auto Snapshot_Limit = 5s;    // a camera that has to be started takes up to a few seconds

enum Status { Bad_Request = 400, Forbidden = 403, Server_Error = 500, Unavailable = 503 };

// The page loads its own files only, nothing can frame it, and other origins cannot embed the pictures.
const httplib::Headers Security_Headers = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
     "form-action 'none'; base-uri 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Referrer-Policy", "no-referrer"},
    {"Cache-Control", "no-store"}};

void Set_Json(Response& response, const Json& json)
{
    response.set_content(Json_Text(json, -1), "application/json");
}

void Set_Error(Response& response, int status, const std::string& sentence)
{
    response.status = status;
    Set_Json(response, {{"error", sentence}});
}

/// Runs a handler, and answers with the sentence of what fails.
httplib::Server::Handler Answering(std::function<void(const Request&, Response&)> handler)
{
    return [handler = std::move(handler)](const Request& request, Response& response) {
        try {
            handler(request, response);
        } catch (const Api_Error& error) {
            Set_Error(response, error.Status(), error.what());
        } catch (const std::exception& error) {
            Set_Error(response, Server_Error, error.what());
        }
    };
}

nlohmann::json Parsed_Body(const Request& request)
{
    auto body = nlohmann::json::parse(request.body, nullptr, false);
    if (!body.is_object()) {
        throw Api_Error(Bad_Request, "The request is not a JSON object.");
    }
    return body;
}

/// One of the streams and snapshots that may be under way at a time, watching a camera.
class Transfer {
public:
    Transfer(std::atomic<int>& all_transfers, std::shared_ptr<Feed> watched)
        : transfers(all_transfers), feed(std::move(watched)), viewer(*feed)
    {
    }
    ~Transfer() { --transfers; }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    std::shared_ptr<const Picture> Next(std::chrono::milliseconds timeout)
    {
        auto picture = viewer.Next(timeout);
        if (picture) {
            feed->Count_Sent(*picture);
        }
        return picture;
    }

private:
    std::atomic<int>& transfers;
    std::shared_ptr<Feed> feed;
    Feed::Viewer viewer;
};

/// @throws Api_Error  when too many are under way
std::shared_ptr<Transfer> Begin_Transfer(std::atomic<int>& transfers, std::shared_ptr<Feed> feed)
{
    if (transfers.fetch_add(1) >= Most_Viewers) {
        --transfers;
        throw Api_Error(Unavailable, "Too many viewers. Close one and try again.");
    }
    return std::make_shared<Transfer>(transfers, std::move(feed));
}

/// Sends the pictures that are newest when the one before is sent, until the viewer goes.
bool Send_Next(Transfer& transfer, size_t offset, httplib::DataSink& sink)
{
    if (offset == 0) {
        const std::string start = "--" + std::string(Part_Boundary) + "\r\n";
        return sink.write(start.data(), start.size());
    }
    const auto picture = transfer.Next(Picture_Slice);
    if (!picture) {
        return sink.is_writable();
    }
    return sink.write(picture->Part().data(), picture->Part().size());
}

}  // namespace

Routes::Routes(Http_Server& server, const Access& granted, Roster& known_cameras)
    : access(granted), roster(known_cameras)
{
    Add_Checks(server);
    Add_Page(server);
    Add_Api(server);
    server.Get("/stream", Answering([this](const auto& request, auto& response) { Send_Stream(request, response); }));
    server.Get("/snapshot",
               Answering([this](const auto& request, auto& response) { Send_Snapshot(request, response); }));
}

void Routes::Add_Checks(Http_Server& server)
{
    server.set_default_headers(Security_Headers);
    server.set_pre_routing_handler([this](const Request& request, Response& response) {
        const std::string refusal = access.Refusal(request);
        if (!refusal.empty()) {
            Set_Error(response, Forbidden, refusal);
            return httplib::Server::HandlerResponse::Handled;
        }
        const std::string cookie = access.Cookie_To_Set(request);
        if (!cookie.empty()) {
            response.set_header("Set-Cookie", cookie);
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });
}

void Routes::Add_Page(Http_Server& server)
{
    for (const Page_File& file : Page_Files) {
        server.Get(std::string(file.path), [&file](const Request&, Response& response) {
            response.set_content(file.content.data(), file.content.size(), std::string(file.type));
        });
    }
}

void Routes::Add_Api(Http_Server& server)
{
    const auto feed_of = [this](const std::string& identity) { return Find_Feed(roster, identity); };
    server.Get("/api/state", Answering([this](const Request& request, Response& response) {
                   Set_Json(response, State_Json(roster, request.get_param_value("camera")));
               }));
    server.Get("/api/modes", Answering([feed_of](const Request& request, Response& response) {
                   Set_Json(response, Modes_Json(*feed_of(request.get_param_value("camera"))));
               }));
    server.Get("/api/controls", Answering([feed_of](const Request& request, Response& response) {
                   Set_Json(response, Controls_Json(*feed_of(request.get_param_value("camera"))));
               }));
    server.Post("/api/controls", Answering([feed_of](const Request& request, Response& response) {
                    const auto feed = feed_of(request.get_param_value("camera"));
                    Set_Json(response, Change_Controls(*feed, Parsed_Body(request)));
                }));
    server.Post("/api/mode", Answering([feed_of](const Request& request, Response& response) {
                    const auto feed = feed_of(request.get_param_value("camera"));
                    Set_Json(response, Change_Mode(*feed, Parsed_Body(request)));
                }));
}

void Routes::Send_Stream(const Request& request, Response& response)
{
    const auto transfer = Begin_Transfer(transfers, Find_Feed(roster, request.get_param_value("camera")));
    response.set_header("Connection", "close");
    response.set_content_provider(
        "multipart/x-mixed-replace; boundary=" + std::string(Part_Boundary),
        [transfer](size_t offset, httplib::DataSink& sink) { return Send_Next(*transfer, offset, sink); });
}

void Routes::Send_Snapshot(const Request& request, Response& response)
{
    const auto feed = Find_Feed(roster, request.get_param_value("camera"));
    const auto transfer = Begin_Transfer(transfers, feed);
    const auto picture = transfer->Next(Snapshot_Limit);
    if (!picture) {
        const std::string problem = feed->Report().problem;
        throw Api_Error(Unavailable, problem.empty() ? "No picture came within five seconds." : problem);
    }
    response.set_header("X-Sequence", std::to_string(picture->sequence));
    response.set_header("Content-Disposition", "inline; filename=\"snapshot.jpg\"");
    // The response keeps the transfer and the picture until all is sent.
    response.set_content_provider(picture->Jpeg().size(), "image/jpeg",
                                  [transfer, picture](size_t offset, size_t length, httplib::DataSink& sink) {
                                      return sink.write(picture->Jpeg().data() + offset, length);
                                  });
}
