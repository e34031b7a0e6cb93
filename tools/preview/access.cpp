// Checks Host, Origin and token of requests.
//
// A page of any web site that the user visits can send requests to this server. Browsers then tell the truth in Host
// (which stops a name that was rebound to this address), Origin and Sec-Fetch-Site.
#include "access.h"

#include <arpa/inet.h>
#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <utility>

#include "../tool_error.h"

namespace {

bool Is_Loopback_Name(const std::string& name)
{
    return name == "localhost" || name == Loopback_Address || name == "[::1]";
}

bool Is_Wildcard(const std::string& address)
{
    return address == "0.0.0.0" || address == "::";
}

/// @return an IP address as it stands in an address of the web: IPv6 in brackets
std::string Bracketed(const std::string& address)
{
    return address.find(':') == std::string::npos ? address : "[" + address + "]";
}

bool Is_Numeric(const std::string& host)
{
    std::array<unsigned char, sizeof(in6_addr)> bytes{};
    return inet_pton(AF_INET, host.c_str(), bytes.data()) == 1 ||
           (host.starts_with('[') && host.ends_with(']') &&
            inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), bytes.data()) == 1);
}

/// Takes the same time wherever the texts differ, so that the time tells nothing.
bool Are_Equal(const std::string& one, const std::string& other)
{
    if (one.size() != other.size()) {
        return false;
    }
    unsigned difference = 0;
    for (size_t i = 0; i < one.size(); ++i) {
        difference |= static_cast<unsigned char>(one[i]) ^ static_cast<unsigned char>(other[i]);
    }
    return difference == 0;
}

/// @return the value of a cookie, or an empty text
std::string Cookie_Value(const std::string& cookies, const std::string& name)
{
    for (size_t start = 0; start < cookies.size();) {
        const size_t stop = std::min(cookies.find(';', start), cookies.size());
        start = std::min(cookies.find_first_not_of(' ', start), stop);
        const std::string pair = cookies.substr(start, stop - start);
        if (pair.starts_with(name + "=")) {
            return pair.substr(name.size() + 1);
        }
        start = stop + 1;
    }
    return "";
}

std::string Lower(std::string text)
{
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

/// @return whether a page of another origin makes this request. Opening our page by a link from there is no harm.
bool Is_Foreign(const httplib::Request& request, const std::string& host)
{
    const std::string site = request.get_header_value("Sec-Fetch-Site");
    const bool opens_page = request.path == "/" && request.get_header_value("Sec-Fetch-Mode") == "navigate";
    const bool is_foreign_site = !site.empty() && site != "same-origin" && site != "none" && !opens_page;
    return is_foreign_site ||
           (request.has_header("Origin") && Lower(request.get_header_value("Origin")) != "http://" + host);
}

bool Changes_State(const httplib::Request& request)
{
    return request.method != "GET" && request.method != "HEAD";
}

bool Is_Json(const httplib::Request& request)
{
    const std::string type = Lower(request.get_header_value("Content-Type"));
    return type == "application/json" || type.starts_with("application/json;");
}

}  // namespace

std::string Random_Token()
{
    std::array<unsigned char, 16> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw Tool_Error("the system has no random numbers for the token");
    }
    std::string text;
    for (const unsigned char byte : bytes) {
        std::array<char, 3> digits{};
        (void)std::snprintf(digits.data(), digits.size(), "%02x", byte);
        text += digits.data();
    }
    return text;
}

Access::Access(std::string listen_address, int served_port)
    : address(std::move(listen_address)), port(served_port), token(address.empty() ? "" : Random_Token())
{
}

std::string Access::Refusal(const httplib::Request& request) const
{
    if (!Is_Our_Host(request)) {
        return "This address does not belong to the preview. Use the address that it printed.";
    }
    if (Is_Foreign(request, Lower(request.get_header_value("Host")))) {
        return "Pages of other origins may not use the preview.";
    }
    if (!Has_Token(request)) {
        return "The token is missing or wrong. Use the address that the preview printed.";
    }
    if (Changes_State(request) && !Is_Json(request)) {
        return "Changes take JSON: send Content-Type: application/json.";
    }
    return "";
}

bool Access::Is_Our_Host(const httplib::Request& request) const
{
    if (request.get_header_value_count("Host") != 1) {
        return false;
    }
    const std::string host = Lower(request.get_header_value("Host"));
    const size_t bracket = host.rfind(']');
    const size_t colon = host.rfind(':');
    const bool has_port = colon != std::string::npos && (bracket == std::string::npos || colon > bracket);
    const std::string name = host.substr(0, has_port ? colon : host.size());
    const std::string named_port = has_port ? host.substr(colon + 1) : "80";
    if (named_port != std::to_string(port)) {
        return false;
    }
    if (Is_Wildcard(address)) {
        return Is_Loopback_Name(name) || Is_Numeric(name);  // numbers cannot be rebound
    }
    return address.empty() ? Is_Loopback_Name(name) : name == Bracketed(address);
}

bool Access::Has_Token(const httplib::Request& request) const
{
    return token.empty() || Are_Equal(request.get_param_value("token"), token) ||
           Are_Equal(Cookie_Value(request.get_header_value("Cookie"), Cookie_Name()), token);
}

std::string Access::Cookie_To_Set(const httplib::Request& request) const
{
    if (token.empty() || !request.has_param("token")) {
        return "";
    }
    return Cookie_Name() + "=" + token + "; Path=/; HttpOnly; SameSite=Strict";
}

// Browsers send a cookie to all ports of a host, so the name tells one preview from another.
std::string Access::Cookie_Name() const
{
    return "wqz-preview-" + std::to_string(port);
}

std::string Access::Address(const std::string& host) const
{
    return "http://" + Bracketed(host) + ":" + std::to_string(port) + "/" + (token.empty() ? "" : "?token=" + token);
}
