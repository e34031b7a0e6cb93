// The HTTP server: a listening socket, a fixed number of threads, and limits that keep it answering.
#ifndef WQZ_TOOL_PREVIEW_HTTP_SERVER_H
#define WQZ_TOOL_PREVIEW_HTTP_SERVER_H

#include <httplib.h>

#include <functional>
#include <string>

#include "connection.h"

constexpr size_t Connection_Threads = 48;
/// Streams and snapshots at a time. The other threads are left to requests that end soon.
constexpr int Most_Viewers = 32;

class Http_Server : public httplib::Server {
public:
    Http_Server();

    /// @param address  an IP address in numbers
    /// @param port  0 for any
    /// @return the port, or a negative errno value
    int Bind(const std::string& address, int port);

    /// Ends the server from another thread.
    void End();

    /// Answers the requests of one connection, and closes it.
    bool process_and_close_socket(socket_t socket) override;

private:
    using Set_Up = std::function<void(httplib::Request&)>;
    template <typename Stream>
    bool Process(Stream& connection, bool is_last, bool& closed, const Set_Up& set_up);
    bool Process_One(Connection& connection, bool is_last, bool& closed);

    Connection_List connections{Connection_Threads};
};

#endif  // WQZ_TOOL_PREVIEW_HTTP_SERVER_H
