// Decides which requests the preview answers: web pages of other origins and strangers on the network get nothing.
#ifndef WQZ_TOOL_PREVIEW_ACCESS_H
#define WQZ_TOOL_PREVIEW_ACCESS_H

#include <httplib.h>

#include <string>

/// The address that is served when the user names none: programs of this machine only.
constexpr const char* Loopback_Address = "127.0.0.1";

/// @return 128 random bits as hexadecimal digits
/// @throws Tool_Error  when the system has none
std::string Random_Token();

class Access {
public:
    /// @param listen_address  the IP address that the user wants to serve; empty for loopback
    /// @param served_port  the port that is served
    Access(std::string listen_address, int served_port);

    /// @return why the request is refused, or an empty text
    std::string Refusal(const httplib::Request& request) const;

    /// @return the value of the Set-Cookie header by which the page's own requests carry the token; empty when the
    ///         request brought none in its address
    std::string Cookie_To_Set(const httplib::Request& request) const;

    /// @return the page's address, with the token if there is one
    std::string Address(const std::string& host) const;

private:
    bool Is_Our_Host(const httplib::Request& request) const;
    bool Has_Token(const httplib::Request& request) const;
    std::string Cookie_Name() const;

    std::string address;
    int port;
    std::string token;  // empty on loopback
};

#endif  // WQZ_TOOL_PREVIEW_ACCESS_H
