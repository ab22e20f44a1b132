// Who may drive the server: the checks every request passes before it reaches the
// tuning. A browser page from another site, or one reached through DNS rebinding, must
// not be able to write the tuning of a device on the engineer's network, and no client
// without the token may read or write it when the server has one.
#ifndef EQDRC_SERVER_REQUEST_GUARD_H
#define EQDRC_SERVER_REQUEST_GUARD_H

#include <string>
#include <vector>

namespace eqdrc_server {

struct GuardConfig {
    std::string listenHost;                // as listened on: "127.0.0.1", "::1", "0.0.0.0", "::", an address
    std::string token;                     // empty: no token (loopback only)
    std::vector<std::string> allowedHosts; // host names accepted in Host besides addresses and localhost
};

// The host part of a Host header ("[::1]:8080" -> "::1", "Example:80" -> "example");
// empty when the header is malformed.
std::string host_of(const std::string &hostHeader);

// Host names a request may be addressed to. The port is not compared: an SSH tunnel or a
// port forward puts another one in front of the server. A name other than localhost
// must be allowed explicitly, so a rebound DNS name never matches; an address literal
// must be a loopback address or the listening one (any address when listening on all).
bool host_allowed(const std::string &hostHeader, const GuardConfig &config);

// A browser's Origin, when it sends one, must be this server's own origin as the
// request's Host names it.
bool origin_allowed(const std::string &origin, const std::string &hostHeader);

// The bearer token from "Authorization: Bearer T" or, for EventSource which cannot set
// headers, the query parameter; compared in constant time.
bool token_valid(const std::string &authorization, const std::string &queryToken, const GuardConfig &config);

// The file under `siteRoot` (a resolved absolute folder) a request path names, resolved
// (symbolic links followed) and still inside the folder, or empty: paths with "..",
// backslashes, NUL or escapes that leave the folder, and anything that is not a regular
// file. "/" and folders name their index.html.
std::string static_file(const std::string &siteRoot, const std::string &requestPath);

bool is_loopback_address(const std::string &host);

// `path` with every symbolic link and ".." resolved, or empty when it does not exist.
std::string resolved_path(const std::string &path);

}  // namespace eqdrc_server

#endif
