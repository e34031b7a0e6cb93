// A USB Video Class camera in user space. One end of a socket pair goes into the kernel's vhci_hcd, which then finds
// a high-speed device behind one of its ports. At the other end this program answers in the USB/IP protocol. The
// stream runs over a bulk endpoint, because bulk payloads need no isochronous timing.
//
//     usb_camera FIFO
//
// Lines written to FIFO: "pause SECONDS" withholds frames, "unplug" pulls the cable and ends the program.

#include <endian.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <deque>
#include <system_error>

#include "usb_camera_stream.h"

namespace {

constexpr uint8_t Get_Descriptor = 0x06, Clear_Feature = 0x01;                                      // USB requests
constexpr uint8_t Set_Cur = 0x01, Get_Cur = 0x81, Get_Len = 0x85, Get_Info = 0x86, Get_Def = 0x87;  // UVC requests
constexpr int32_t Stall = -EPIPE;

enum Usbip_Command : uint32_t { Command_Submit = 1, Command_Unlink = 2, Reply_Submit = 3, Reply_Unlink = 4 };

struct Setup {
    uint8_t type, request;
    uint16_t value, index, length;
};

struct Usbip_Header {  // big-endian but for the setup packet
    uint32_t command, sequence, device, direction, endpoint;
    uint32_t argument[5];  // submit: flags, length, ...; its reply: status, actual length, ...; unlink: sequence
    Setup setup;
};
static_assert(sizeof(Usbip_Header) == 48);

struct Control {
    uint8_t selector, length;
    int32_t minimum, maximum, step, initial, current;
};

Control Controls[] = {
    {0x02, 2, -64, 64, 1, 0, 0},            // brightness
    {0x0A, 2, 2800, 6500, 10, 4600, 4600},  // white balance temperature
    {0x0B, 1, 0, 1, 1, 1, 1},               // the same, automatic
};

/// The device as the host controller sees it: takes USB/IP requests from a socket and answers them.
class Usb_Device {
public:
    explicit Usb_Device(int socket_fd) : Socket(socket_fd) {}

    Stream C_Stream;

    /// Reads one request and answers it. @return false when the host has let go of the device
    bool Serve()
    {
        Usbip_Header header{};
        if (!Receive(&header, sizeof header)) {
            return false;
        }
        const uint32_t sequence = be32toh(header.sequence);
        if (be32toh(header.command) == Command_Unlink) {
            // Status 0: the transfer was answered before the request to drop it arrived.
            const auto meant = [&](const Transfer& t) { return t.sequence == be32toh(header.argument[0]); };
            Reply(Reply_Unlink, sequence, std::erase_if(cPending, meant) == 0 ? 0 : -ECONNRESET, 0, {});
            return true;
        }
        const bool in = header.direction != 0;
        const uint32_t length = be32toh(header.argument[1]);
        Bytes data(length);
        if (!in && length > 0 && !Receive(data.data(), data.size())) {
            return false;
        }
        if (be32toh(header.endpoint) == Bulk_Endpoint) {
            cPending.push_back({sequence, length});
            return true;
        }
        const int32_t status = Control_Transfer(header.setup, data);
        data.resize(std::min<size_t>(data.size(), length));
        Reply(Reply_Submit, sequence, status, data.size(), in ? data : Bytes{});
        return true;
    }

    /// Sends what is due to the transfers that wait for it.
    /// @return milliseconds until more is due, -1 when only a request helps
    int Send_Due_Payloads()
    {
        while (C_Stream.Streaming() && !cPending.empty()) {
            const auto wait = std::chrono::ceil<std::chrono::milliseconds>(C_Stream.Wait()).count();
            if (wait > 0) {
                return static_cast<int>(wait);
            }
            const Bytes payload = C_Stream.Next_Payload(cPending.front().length);
            Reply(Reply_Submit, cPending.front().sequence, 0, payload.size(), payload);
            cPending.pop_front();
        }
        return -1;
    }

private:
    struct Transfer {
        uint32_t sequence, length;
    };

    bool Receive(void* to, size_t size) { return recv(Socket, to, size, MSG_WAITALL) == static_cast<ssize_t>(size); }

    // A failed send needs no answer: the next receive ends the program.
    void Reply(Usbip_Command command, uint32_t sequence, int32_t status, size_t length, const Bytes& data)
    {
        Usbip_Header header{};
        header.command = htobe32(command);
        header.sequence = htobe32(sequence);
        header.argument[0] = htobe32(static_cast<uint32_t>(status));
        header.argument[1] = htobe32(static_cast<uint32_t>(length));
        Bytes message(sizeof header);
        memcpy(message.data(), &header, sizeof header);
        Append(message, data);
        (void)send(Socket, message.data(), message.size(), MSG_NOSIGNAL);
    }

    // `data` is what came with an OUT transfer; for an IN transfer it is zero and receives the answer.
    int32_t Control_Transfer(const Setup& setup, Bytes& data)
    {
        if ((setup.type & 0x60) == 0x20) {  // of the class; index holds the interface, above it the unit
            return setup.index == 1                      ? Streaming_Request(setup, data)
                   : setup.index == Processing_Unit << 8 ? Processing_Request(setup, data)
                                                         : Stall;
        }
        if (setup.type == 0x80 && setup.request == Get_Descriptor) {
            data = Usb_Descriptor(setup.value);
            return data.empty() ? Stall : 0;
        }
        if (setup.type == 0x02 && setup.request == Clear_Feature) {
            C_Stream.Stop();  // a host ends the stream of a bulk camera so
        }
        return 0;  // with zeros for a status and the like
    }

    int32_t Streaming_Request(const Setup& setup, Bytes& data)
    {
        if (setup.request == Set_Cur) {
            Probe_Control wanted{};
            memcpy(&wanted, data.data(), std::min(data.size(), sizeof wanted));
            setup.value >> 8 == 2 ? C_Stream.Start(wanted) : C_Stream.Negotiate(wanted);  // commit or probe
        } else {
            data.resize(sizeof(Probe_Control));
            memcpy(data.data(), &C_Stream.Probe(), data.size());
        }
        return 0;
    }

    static int32_t Processing_Request(const Setup& setup, Bytes& data)
    {
        const auto control = std::find_if(std::begin(Controls), std::end(Controls),
                                          [&](const Control& c) { return c.selector == setup.value >> 8; });
        if (control == std::end(Controls) ||
            (setup.request != Set_Cur && (setup.request < Get_Cur || setup.request > Get_Def))) {
            return Stall;
        }
        if (setup.request == Set_Cur) {
            data.resize(2);
            control->current = static_cast<int16_t>(data[0] | data[1] << 8);
            return 0;
        }
        // In the order of the requests from Get_Cur on; 3 is the information: may be read and written.
        const int32_t answers[] = {
            control->current, control->minimum, control->maximum, control->step, control->length, 3, control->initial};
        const int bytes = setup.request == Get_Info ? 1 : setup.request == Get_Len ? 2 : control->length;
        data.clear();
        Append_Little(data, static_cast<uint32_t>(answers[setup.request - Get_Cur]), bytes);
        return 0;
    }

    int Socket;
    std::deque<Transfer> cPending;  // bulk transfers without an answer, oldest first
};

/// @return `result`; throws when it is negative
int Checked(int result, const char* what)
{
    return result < 0 ? throw std::system_error(errno, std::generic_category(), what) : result;
}

/// Plugs the device in. @return our end of the connection
int Attach()
{
    int pair[2];
    Checked(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), "socketpair");
    // Port 0, the socket, any device number, high speed.
    const std::string line = "0 " + std::to_string(pair[1]) + " 65538 3";
    const int fd = Checked(open("/sys/devices/platform/vhci_hcd.0/attach", O_WRONLY | O_CLOEXEC), "vhci_hcd");
    ssize_t written = 0;
    for (int tries = 0; tries < 500; ++tries) {  // the port of an unplugged camera stays busy for a moment
        written = write(fd, line.data(), line.size());
        if (written >= 0 || errno != EBUSY) {
            break;
        }
        usleep(10000);
    }
    Checked(static_cast<int>(written), "attach to vhci_hcd");
    close(fd);
    close(pair[1]);
    return pair[0];
}

/// Carries out a line from the FIFO. @return false to unplug
bool Obey(int fifo, Stream& stream)
{
    char text[256] = {};
    int seconds = 0;
    if (read(fifo, text, sizeof text - 1) > 0 && sscanf(text, "pause %d", &seconds) == 1) {
        stream.Pause(std::chrono::seconds(seconds));
    }
    return strncmp(text, "unplug", 6) != 0;
}

}  // namespace

int main(int argc, char** argv)
try {
    const char* const path = argc == 2 ? argv[1] : throw std::invalid_argument("usage: usb_camera FIFO");
    (void)mkfifo(path, 0600);  // it may exist
    // Read-write, so that it never ends when a writer leaves.
    const int fifo = Checked(open(path, O_RDWR | O_CLOEXEC), path);
    const int socket_fd = Attach();
    Usb_Device device(socket_fd);
    for (;;) {
        pollfd ready[2] = {{socket_fd, POLLIN, 0}, {fifo, POLLIN, 0}};
        Checked(poll(ready, 2, device.Send_Due_Payloads()), "poll");
        if ((ready[1].revents != 0 && !Obey(fifo, device.C_Stream)) || (ready[0].revents != 0 && !device.Serve())) {
            return 0;
        }
    }
} catch (const std::exception& error) {
    fprintf(stderr, "usb_camera: %s\n", error.what());
    return 1;
}
