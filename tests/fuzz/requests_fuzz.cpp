// Any bytes as what a client sends to the preview, served as the tool serves them: by its server, routes and access
// rules, with a virtual camera.
//
// The first byte chooses the server: 'n' is the one that listens to the network. TOKEN in the input stands for its
// token.
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <virtual_camera/virtual_camera.h>

#include <array>
#include <cctype>
#include <charconv>
#include <nlohmann/json.hpp>
#include <string_view>

#include "fuzz/fuzz_input.h"
#include "preview/routes.h"

namespace {

constexpr int Port = 8080;  // as clients name it
constexpr const char* Network_Address = "192.0.2.7";
constexpr const char* Token_Mark = "TOKEN";
constexpr size_t Most_Received = 32 * 1024;  // then the client receives no more, as one that has gone to sleep
constexpr int Send_Buffer = 4096;            // so that the server soon notices

/// The client of the server that this thread runs. Its turn comes when the server waits.
struct Client {
    int socket;
    std::string received;

    void Receive()
    {
        std::array<char, 4096> bytes{};
        ssize_t count = 0;
        while (received.size() < Most_Received &&
               (count = recv(socket, bytes.data(), bytes.size(), MSG_DONTWAIT)) > 0) {
            received.append(bytes.data(), static_cast<size_t>(count));
        }
    }
};

thread_local Client* client = nullptr;

struct Preview {
    Preview(const std::string& listen_address, Roster& roster)
        : access(listen_address, Port), routes(server, access, roster)
    {
        Require(server.Bind(Loopback_Address, 0) > 0);  // a server without a socket takes itself for one that ends
    }

    std::string Token() const
    {
        const std::string address = access.Address("");
        return address.substr(address.rfind('=') + 1);
    }

    Http_Server server;
    const Access access;
    const Routes routes;
};

struct Previews {
    Roster roster{""};
    Preview local{"", roster};
    Preview network{Network_Address, roster};
};

void Plug_In_A_Camera()
{
    virtual_camera::Camera_Description camera = virtual_camera::Usb_Camera();
    camera.capture_node = "/dev/video0";
    virtual_camera::Frame_Size size;
    size.width = size.max_width = 32;
    size.height = size.max_height = 16;
    size.intervals = {{1, 1000}, {1, 500}};  // nobody waits long for a picture
    camera.formats = {{V4L2_PIX_FMT_MJPEG, {size}}, {V4L2_PIX_FMT_YUYV, {size}}, {V4L2_PIX_FMT_GREY, {size}}};
    virtual_camera::Add_Camera(camera);
}

Previews& The_Previews()
{
    static const bool is_plugged = (Plug_In_A_Camera(), true);
    static Previews previews;
    (void)is_plugged;
    return previews;
}

std::string Serve(Http_Server& server, std::string_view bytes)
{
    std::array<int, 2> ends{};
    Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0);
    (void)setsockopt(ends[1], SOL_SOCKET, SO_SNDBUF, &Send_Buffer, sizeof Send_Buffer);
    Client mine{ends[0], ""};
    Require(send(mine.socket, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
    client = &mine;
    (void)server.process_and_close_socket(ends[1]);
    client = nullptr;
    mine.Receive();
    (void)close(mine.socket);
    return mine.received;
}

struct Answer {
    int status = 0;
    std::string_view head;
    std::string_view body;

    bool Has(std::string_view header) const { return head.find(header) != std::string_view::npos; }
};

/// @return the length that the head names for the body; all that is left when it names none
size_t Body_Length(std::string_view head, size_t left)
{
    constexpr std::string_view Name = "\r\nContent-Length: ";
    const size_t at = head.find(Name);
    size_t length = left;
    if (at != std::string_view::npos) {
        const char* digits = head.data() + at + Name.size();
        Require(std::from_chars(digits, head.data() + head.size(), length).ec == std::errc());
    }
    return length;
}

/// Takes the first answer off the text.
Answer Take_Answer(std::string_view& text, bool is_cut)
{
    Answer answer;
    const size_t end = text.find("\r\n\r\n");
    Require(text.starts_with("HTTP/1.1 ") && (end != std::string_view::npos || is_cut));
    Require(std::from_chars(text.data() + 9, text.data() + std::min<size_t>(text.size(), 12), answer.status).ec ==
            std::errc());
    answer.head = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 4);
    if (answer.status >= 200 && !text.starts_with("HTTP/1.1 ")) {  // HEAD is answered without a body
        const size_t length = Body_Length(answer.head, text.size());
        Require(text.empty() || length <= text.size() || is_cut);
        answer.body = text.substr(0, length);
        text.remove_prefix(answer.body.size());
    }
    return answer;
}

void Check_Json(const Answer& answer)
{
    const bool is_compressed = answer.Has("\r\nContent-Encoding: ");
    if (answer.body.empty() || is_compressed || !answer.Has("\r\nContent-Type: application/json")) {
        return;
    }
    const auto json = nlohmann::json::parse(answer.body, nullptr, false);
    Require(!json.is_discarded() && (answer.status == 200 || json.at("error").is_string()));
}

/// What is wrong with a request before the preview looks at it is told without a body.
bool Is_Refusal(const Answer& answer)
{
    return answer.status == 100 || answer.status == 403 || (answer.status >= 400 && answer.body.empty());
}

void Check_Answers(const std::string& received, bool may_be_answered)
{
    const bool is_cut = received.size() >= Most_Received;
    for (std::string_view rest = received; !rest.empty();) {
        const Answer answer = Take_Answer(rest, is_cut);
        Require(may_be_answered || Is_Refusal(answer));
        if (!is_cut) {
            Check_Json(answer);
        }
    }
}

std::string Lower(std::string text)
{
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool Names(const std::string& text, const std::string& word)
{
    return text.find(word) != std::string::npos;
}

/// @return whether the input can hold a request that has the right host and the token
bool May_Be_Answered(const std::string& text, bool is_network)
{
    const std::string lower = Lower(text);
    const bool is_encoded = Names(text, "%");  // cpp-httplib decodes headers too
    if (is_network) {
        return Names(text, Token_Mark) && (is_encoded || Names(lower, "192.0.2.7:8080"));
    }
    return is_encoded || Names(lower, "127.0.0.1:8080") || Names(lower, "localhost:8080") || Names(lower, "[::1]:8080");
}

std::string With_Token(std::string text, const std::string& token)
{
    for (size_t at = 0; (at = text.find(Token_Mark, at)) != std::string::npos; at += token.size()) {
        text.replace(at, std::string_view(Token_Mark).size(), token);
    }
    return text;
}

}  // namespace

extern "C" {

// Nothing more comes from the client, so the server's waits for it are over at once.
int __real_poll(pollfd* entries, nfds_t count, int milliseconds);
int __wrap_poll(pollfd* entries, nfds_t count, int milliseconds);
int __wrap_poll(pollfd* entries, nfds_t count, int milliseconds)
{
    if (client == nullptr) {
        return __real_poll(entries, count, milliseconds);
    }
    client->Receive();
    return __real_poll(entries, count, 0);
}

}  // extern "C"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0) {
        return 0;
    }
    Previews& previews = The_Previews();
    const bool is_network = data[0] == 'n';
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    const bool may_be_answered = May_Be_Answered(text, is_network);
    const bool may_change = may_be_answered && Names(Lower(text), "application/json");

    const uint64_t revision = previews.roster.Find("")->Report().revision;
    Preview& preview = is_network ? previews.network : previews.local;
    Check_Answers(Serve(preview.server, With_Token(text, previews.network.Token())), may_be_answered);
    const Feed_Report report = previews.roster.Find("")->Report();
    Require(report.viewers == 0 && (may_change || report.revision == revision));
    return 0;
}
