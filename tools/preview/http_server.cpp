// Accepts connections and serves each in a thread of a fixed set.
#include "http_server.h"

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <thread>
#include <utility>

namespace {

constexpr int Backlog = 128;
constexpr size_t Most_Body_Bytes = 16 * 1024;  // of a request; a setting takes a few hundred
constexpr size_t Most_Requests = 1000;         // of one connection

/// A fixed number of threads. When all are taken, a client that sends nothing makes room.
class Thread_Queue : public httplib::TaskQueue {
public:
    explicit Thread_Queue(Connection_List& open_connections)
        : connections(open_connections), threads(Connection_Threads)
    {
    }

    void enqueue(std::function<void()> work) override
    {
        if (taken.fetch_add(1) >= Connection_Threads) {
            connections.Close_Longest_Waiting();
        }
        threads.enqueue([this, work = std::move(work)] {
            work();
            taken.fetch_sub(1);
        });
    }

    void shutdown() override
    {
        connections.Close_All();
        threads.shutdown();
    }

private:
    Connection_List& connections;
    std::atomic<int> taken = 0;
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

bool Http_Server::process_and_close_socket(socket_t socket)
{
    Connection connection(socket, connections);
    bool closed = false;
    for (size_t count = 1; !closed && connection.Wait_For_Request(); ++count) {
        if (!process_request(connection, count == Most_Requests, closed, nullptr)) {
            return false;
        }
    }
    return true;
}
