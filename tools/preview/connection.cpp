// Reads and sends within limits of time and size.
#include "connection.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto Idle_Limit = 5s;       // between two requests; a page asks every second
constexpr auto Request_Limit = 5s;    // for all of a request, however slowly it trickles in
constexpr auto Response_Limit = 10s;  // for one picture or page
// cpp-httplib limits the length of each header, but not their number.
constexpr size_t Most_Request_Bytes = 64 * 1024;
// Bytes that wait in the kernel for a slow client. More of them would only make its picture older.
constexpr int Unsent_Bytes = 128 * 1024;

/// @return the events that came before the deadline; 0 for none
short Poll(int socket, short events, Clock::time_point deadline)
{
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd record{socket, events, 0};
        const int count = poll(&record, 1, static_cast<int>(std::max<int64_t>(left.count(), 0)));
        if (count >= 0 || errno != EINTR) {
            return count > 0 ? record.revents : static_cast<short>(0);
        }
    }
}

void Address_Of(const sockaddr_storage& address, std::string& ip, int& port)
{
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (address.ss_family == AF_INET) {
        const auto& record = reinterpret_cast<const sockaddr_in&>(address);
        (void)inet_ntop(AF_INET, &record.sin_addr, text.data(), text.size());
        port = ntohs(record.sin_port);
    } else if (address.ss_family == AF_INET6) {
        const auto& record = reinterpret_cast<const sockaddr_in6&>(address);
        (void)inet_ntop(AF_INET6, &record.sin6_addr, text.data(), text.size());
        port = ntohs(record.sin6_port);
    }
    ip = text.data();
}

}  // namespace

void Connection_List::Note_Queued()
{
    const std::lock_guard lock(mutex);
    ++queued;
    Make_Room();
}

void Connection_List::Note_Taken()
{
    const std::lock_guard lock(mutex);
    --queued;
    ++taken;
}

void Connection_List::Note_Done()
{
    const std::lock_guard lock(mutex);
    --taken;
}

Connection_List::Entry Connection_List::Add(int socket)
{
    const std::lock_guard lock(mutex);
    if (closed) {
        (void)shutdown(socket, SHUT_RDWR);
    }
    return connections.insert(connections.end(), {socket, false});
}

void Connection_List::Remove(Entry entry)
{
    const std::lock_guard lock(mutex);
    connections.erase(entry);
}

void Connection_List::Set_Waiting(Entry entry, bool waiting)
{
    const std::lock_guard lock(mutex);
    entry->waiting = waiting;
    if (waiting) {
        Make_Room();
    }
}

void Connection_List::Make_Room()
{
    if (queued == 0 || taken + queued <= threads) {
        return;
    }
    const auto oldest = std::ranges::find_if(connections, &Open_Connection::waiting);
    if (oldest != connections.end()) {
        oldest->waiting = false;
        (void)shutdown(oldest->socket, SHUT_RDWR);
    }
}

void Connection_List::Close_All()
{
    const std::lock_guard lock(mutex);
    closed = true;
    for (const Open_Connection& connection : connections) {
        (void)shutdown(connection.socket, SHUT_RDWR);
    }
}

Connection::Connection(int connected_socket, Connection_List& connections)
    : descriptor(connected_socket), list(connections), entry(list.Add(connected_socket))
{
    const int on = 1;
    (void)setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    (void)setsockopt(descriptor, IPPROTO_TCP, TCP_NOTSENT_LOWAT, &Unsent_Bytes, sizeof Unsent_Bytes);
}

Connection::~Connection()
{
    list.Remove(entry);  // before the descriptor can belong to another connection
    (void)shutdown(descriptor, SHUT_RDWR);
    (void)close(descriptor);
}

short Connection::Wait(short events, std::chrono::steady_clock::time_point limit)
{
    list.Set_Waiting(entry, true);
    const short happened = Poll(descriptor, events, limit);
    list.Set_Waiting(entry, false);
    return happened;
}

bool Connection::Fill()
{
    if (Clock::now() >= deadline) {
        return false;
    }
    ssize_t count = recv(descriptor, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (count < 0 && errno == EAGAIN) {
        const short events = Wait(POLLIN, deadline);
        count = events == 0 ? -1 : recv(descriptor, buffer.data(), buffer.size(), MSG_DONTWAIT);
    }
    begin = 0;
    end = count > 0 ? static_cast<size_t>(count) : 0;
    return count > 0;
}

bool Connection::Wait_For_Request()
{
    deadline = Clock::now() + Idle_Limit;
    const bool has_more = begin < end || Fill();
    deadline = Clock::now() + Request_Limit;
    request_bytes = 0;
    return has_more;
}

bool Connection::is_readable() const
{
    return begin < end || Poll(descriptor, POLLIN, deadline) != 0;
}

bool Connection::is_writable() const
{
    return (Poll(descriptor, POLLRDHUP, Clock::now()) & (POLLRDHUP | POLLHUP | POLLERR)) == 0;
}

ssize_t Connection::read(char* bytes, size_t size)
{
    if (request_bytes >= Most_Request_Bytes || (begin == end && !Fill())) {
        return -1;
    }
    const size_t count = std::min(size, end - begin);
    std::memcpy(bytes, buffer.data() + begin, count);
    begin += count;
    request_bytes += count;
    return static_cast<ssize_t>(count);
}

ssize_t Connection::write(const char* bytes, size_t size)
{
    Clock::time_point limit;  // asked for when the socket is full, which is rare
    for (size_t sent = 0; sent < size;) {
        const ssize_t count = send(descriptor, bytes + sent, size - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count >= 0) {
            sent += static_cast<size_t>(count);
        } else if (errno == EAGAIN) {
            limit = limit == Clock::time_point() ? Clock::now() + Response_Limit : limit;
            if ((Wait(POLLOUT, limit) & POLLOUT) == 0) {
                return -1;
            }
        } else if (errno != EINTR) {
            return -1;
        }
    }
    return static_cast<ssize_t>(size);
}

void Connection::get_remote_ip_and_port(std::string& ip, int& port) const
{
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
        Address_Of(address, ip, port);
    }
}

void Connection::get_local_ip_and_port(std::string& ip, int& port) const
{
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
        Address_Of(address, ip, port);
    }
}
