// Accepts connections and serves each in a thread of a fixed set.
#include "http_server.h"

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

namespace {

constexpr int Backlog = 128;
constexpr size_t Most_Body_Bytes = 16 * 1024;  // of a request; a setting takes a few hundred
constexpr size_t Most_Requests = 1000;         // of one connection

// Nothing in cpp-httplib 0.11, whether the work was taken in later versions.
using Enqueued = decltype(std::declval<httplib::TaskQueue&>().enqueue(nullptr));

/// @return the length that a request names for its body; nothing when it names none that is sure
std::optional<size_t> Body_Length(const httplib::Request& request)
{
    const size_t count = request.get_header_value_count("Content-Length");
    if (count > 1 || request.has_header("Transfer-Encoding")) {
        return std::nullopt;
    }
    const std::string text = count == 0 ? "0" : request.get_header_value("Content-Length");
    size_t length = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(length) : std::nullopt;
}

/// A fixed number of threads.
class Thread_Queue : public httplib::TaskQueue {
public:
    explicit Thread_Queue(Connection_List& open_connections)
        : connections(open_connections), threads(Connection_Threads)
    {
    }

    Enqueued enqueue(std::function<void()> work) override
    {
        connections.Note_Queued();
        threads.enqueue([this, work = std::move(work)] {
            connections.Note_Taken();
            work();
            connections.Note_Done();
        });
        return static_cast<Enqueued>(true);
    }

    void shutdown() override
    {
        connections.Close_All();
        threads.shutdown();
    }

private:
    Connection_List& connections;
    httplib::ThreadPool threads;
};

/// @return the listening socket, or a negative errno value
int Listen(const addrinfo& address)
{
    const int on = 1;
    const int listener = socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener < 0) {
        return -errno;
    }
    (void)setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(listener, address.ai_addr, address.ai_addrlen) == 0 && listen(listener, Backlog) == 0) {
        return listener;
    }
    const int error = errno;
    (void)close(listener);
    return -error;
}

int Port_Of(int listener)
{
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    (void)getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    return address.ss_family == AF_INET6 ? ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port)
                                         : ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
}

}  // namespace

Http_Server::Http_Server()
{
    new_task_queue = [this] { return new Thread_Queue(connections); };  // the base class deletes it
    set_payload_max_length(Most_Body_Bytes);
    set_keep_alive_max_count(Most_Requests);  // for the header that tells clients
}

int Http_Server::Bind(const std::string& address, int port)
{
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    if (getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) {
        return -EINVAL;
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
    const int listener = Listen(*found);
    if (listener < 0) {
        return listener;
    }
    svr_sock_ = listener;
    return Port_Of(listener);
}

void Http_Server::End()
{
    connections.Close_All();
    while (!is_running()) {  // stop does nothing before
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    stop();
}

// cpp-httplib 0.11 asks the stream for the addresses; later versions want them here.
template <typename Stream>
bool Http_Server::Process(Stream& connection, bool is_last, bool& closed, const Set_Up& set_up)
{
    if constexpr (requires { this->process_request(connection, is_last, closed, set_up); }) {
        return this->process_request(connection, is_last, closed, set_up);
    } else {
        return this->process_request(connection, "", 0, "", 0, is_last, closed, set_up);
    }
}

// A request that is refused keeps its body unread. Another web page could have put a request there, with headers of its
// choice, so what follows is answered only where the request surely ended.
bool Http_Server::Process_One(Connection& connection, bool is_last, bool& closed)
{
    size_t head_bytes = 0;
    std::optional<size_t> body_bytes;
    const auto set_up = [&](httplib::Request& request) {
        request.ranges.clear();  // players ask for the range from 0 on; many ranges would multiply the answer
        head_bytes = connection.Request_Bytes();
        body_bytes = Body_Length(request);
    };
    const bool is_processed = Process(connection, is_last, closed, set_up);
    const bool has_ended = body_bytes && connection.Request_Bytes() - head_bytes == *body_bytes;
    closed = closed || !has_ended;
    return is_processed;
}

bool Http_Server::process_and_close_socket(socket_t socket)
{
    Connection connection(socket, connections);
    bool closed = false;
    for (size_t count = 1; !closed && connection.Wait_For_Request(); ++count) {
        if (!Process_One(connection, count == Most_Requests, closed)) {
            return false;
        }
    }
    return true;
}
