// One connection of a browser or another program, with limits on the time and the size of each request and on the time
// of each response.
#ifndef WQZ_TOOL_PREVIEW_CONNECTION_H
#define WQZ_TOOL_PREVIEW_CONNECTION_H

#include <httplib.h>

#include <array>
#include <chrono>
#include <list>
#include <mutex>
#include <string>

/// The open connections, and those that wait for a thread. While some do, connections that have nothing to do but wait
/// for their clients are closed, the oldest first. So a client that opens many connections and sends nothing, or
/// receives nothing, keeps nobody out.
class Connection_List {
public:
    using Entry = std::list<struct Open_Connection>::iterator;

    explicit Connection_List(size_t thread_count) : threads(thread_count) {}

    /// A connection was accepted and waits for a thread; a thread took it; the thread is free again.
    void Note_Queued();
    void Note_Taken();
    void Note_Done();

    Entry Add(int socket);
    void Remove(Entry entry);
    void Set_Waiting(Entry entry, bool waiting);

    /// Ends the waits of all connections, of later ones too.
    void Close_All();

private:
    void Make_Room();

    const size_t threads;
    std::mutex mutex;
    std::list<Open_Connection> connections;  // the oldest first
    size_t queued = 0;
    size_t taken = 0;
    bool closed = false;
};

struct Open_Connection {
    int socket;
    bool waiting;  // for the client to send or to receive
};

class Connection : public httplib::Stream {
public:
    /// Takes over the socket.
    Connection(int connected_socket, Connection_List& connections);
    ~Connection() override;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Waits for the first byte of a request.
    /// @return false when none came in time, or the client is gone
    bool Wait_For_Request();

    /// @return how many bytes of the request were read
    size_t Request_Bytes() const { return request_bytes; }

    bool is_readable() const override;
    /// @return false when the client is gone
    bool is_writable() const override;
    ssize_t read(char* bytes, size_t size) override;
    /// Sends all bytes, or fails.
    ssize_t write(const char* bytes, size_t size) override;
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    socket_t socket() const override { return descriptor; }

private:
    /// Waits for the client, while the connection may be closed to make room.
    short Wait(short events, std::chrono::steady_clock::time_point limit);
    bool Fill();

    int descriptor;
    Connection_List& list;
    Connection_List::Entry entry;
    std::chrono::steady_clock::time_point deadline;  // of the request that is being read
    size_t request_bytes = 0;                        // of the same request
    std::array<char, 4096> buffer{};
    size_t begin = 0;
    size_t end = 0;
};

#endif  // WQZ_TOOL_PREVIEW_CONNECTION_H
