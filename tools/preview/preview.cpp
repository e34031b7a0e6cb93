// The verb "preview": serves a page with the live picture.
#include "preview.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>
#include <vector>

#include "../output.h"
#include "../tool_error.h"
#include "access.h"
#include "http_server.h"
#include "roster.h"
#include "routes.h"

namespace {

constexpr int Default_Port = 8080;
constexpr int Tried_Ports = 10;  // when the user names none and the default is taken

/// The signals that end the preview. They are blocked in all threads, and Wait takes them.
class End_Signals {
public:
    End_Signals()
    {
        (void)sigemptyset(&signals);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
            (void)sigaddset(&signals, signal);
        }
        (void)pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    }

    void Wait() const
    {
        int signal = 0;
        while (sigwait(&signals, &signal) != 0) {
        }
    }

private:
    sigset_t signals{};
};

int Bind(Http_Server& server, const std::string& address, const Preview_Options& options)
{
    const int first = options.port.value_or(Default_Port);
    int result = server.Bind(address, first);
    for (int port = first + 1; !options.port && result == -EADDRINUSE && port < first + Tried_Ports; ++port) {
        result = server.Bind(address, port);
    }
    if (result == -EINVAL) {
        throw Tool_Error("'" + address + "' is not an IP address; write one of this machine, or 0.0.0.0 for all");
    }
    if (result < 0) {
        const std::string place = address + " port " + std::to_string(first);
        throw Tool_Error(place + " cannot be served: " + std::strerror(-result) +
                         (result == -EADDRINUSE ? "; choose another port with --port" : ""));
    }
    return result;
}

/// @return this machine's IPv4 addresses on the network
std::vector<std::string> Network_Addresses()
{
    ifaddrs* list = nullptr;
    std::vector<std::string> addresses;
    if (getifaddrs(&list) != 0) {
        return addresses;
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, freeifaddrs);
    for (const ifaddrs* each = list; each != nullptr; each = each->ifa_next) {
        if (each->ifa_addr != nullptr && each->ifa_addr->sa_family == AF_INET &&
            (each->ifa_flags & IFF_LOOPBACK) == 0) {
            std::array<char, INET_ADDRSTRLEN> text{};
            (void)inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(each->ifa_addr)->sin_addr, text.data(),
                            text.size());
            addresses.emplace_back(text.data());
        }
    }
    return addresses;
}

/// @return the page's addresses, the one for other machines first
nlohmann::ordered_json Page_Addresses(const Access& access, const std::string& listen_address)
{
    std::vector<std::string> hosts{listen_address.empty() ? Loopback_Address : listen_address};
    if (listen_address == "0.0.0.0" || listen_address == "::") {
        hosts = Network_Addresses();
        hosts.emplace_back(Loopback_Address);
    }
    auto addresses = nlohmann::ordered_json::array();
    for (const std::string& host : hosts) {
        addresses.push_back(access.Address(host));
    }
    return addresses;
}

void Print_Addresses(const Access& access, const Preview_Options& options)
{
    const auto addresses = Page_Addresses(access, options.listen_address);
    if (options.json) {
        std::cout << Json_Text({{"addresses", addresses}}, -1) << '\n';
    } else {
        for (const auto& address : addresses) {
            std::cout << address.get<std::string>() << '\n';
        }
    }
    Flush_Output();
    Say("open this address in a browser; Ctrl-C ends");
    if (!options.listen_address.empty()) {
        Say("whoever has this address can see the camera and change its settings; nothing is encrypted");
    }
}

}  // namespace

int Run_Preview(const Preview_Options& options)
{
    const End_Signals signals;  // before any thread begins
    Roster roster(options.camera);
    Http_Server server;
    const int port = Bind(server, options.listen_address.empty() ? Loopback_Address : options.listen_address, options);
    const Access access(options.listen_address, port);
    const Routes routes(server, access, roster);
    bool is_served = false;
    std::thread listening([&] {
        is_served = server.listen_after_bind();
        (void)kill(getpid(), SIGTERM);  // the end of the server is the end of the preview
    });
    Print_Addresses(access, options);
    signals.Wait();
    roster.End();
    server.End();
    listening.join();
    if (!is_served) {
        throw Tool_Error("the system accepts no more connections; start the preview again");
    }
    return EXIT_SUCCESS;
}
