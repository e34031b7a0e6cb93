// What the server answers: the page, its API, streams and snapshots.
#ifndef WQZ_TOOL_PREVIEW_ROUTES_H
#define WQZ_TOOL_PREVIEW_ROUTES_H

#include <atomic>

#include "access.h"
#include "http_server.h"
#include "roster.h"

class Routes {
public:
    /// Adds all routes to the server. What is named here must live as long as the server runs.
    Routes(Http_Server& server, const Access& granted, Roster& known_cameras);

private:
    void Add_Checks(Http_Server& server);
    void Add_Page(Http_Server& server);
    void Add_Api(Http_Server& server);
    void Send_Stream(const httplib::Request& request, httplib::Response& response);
    void Send_Snapshot(const httplib::Request& request, httplib::Response& response);

    const Access& access;
    Roster& roster;
    std::atomic<int> transfers = 0;  // streams and snapshots
};

#endif  // WQZ_TOOL_PREVIEW_ROUTES_H
