#include "request_guard.h"

#include <arpa/inet.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <memory>

namespace eqdrc_server {

namespace {

std::string lower(std::string s)
{
    for (char &c : s)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return s;
}

bool is_ipv4(const std::string &h)
{
    in_addr a;
    return inet_pton(AF_INET, h.c_str(), &a) == 1;
}

bool is_ipv6(const std::string &h)
{
    in6_addr a;
    return inet_pton(AF_INET6, h.c_str(), &a) == 1;
}

bool is_wildcard(const std::string &h) { return h.empty() || h == "0.0.0.0" || h == "::"; }

// Same address, whatever its spelling ("::0001" and "::1").
bool same_address(const std::string &a, const std::string &b)
{
    unsigned char x[16], y[16];
    if (inet_pton(AF_INET, a.c_str(), x) == 1 && inet_pton(AF_INET, b.c_str(), y) == 1)
        return std::equal(x, x + 4, y);
    if (inet_pton(AF_INET6, a.c_str(), x) == 1 && inet_pton(AF_INET6, b.c_str(), y) == 1)
        return std::equal(x, x + 16, y);
    return false;
}

bool valid_port(const std::string &p)
{
    if (p.empty() || p.size() > 5)
        return false;
    for (char c : p)
        if (c < '0' || c > '9')
            return false;
    return true;
}

}  // namespace

bool is_loopback_address(const std::string &host)
{
    unsigned char a[16];
    if (inet_pton(AF_INET, host.c_str(), a) == 1)
        return a[0] == 127;
    if (inet_pton(AF_INET6, host.c_str(), a) == 1) {
        static const unsigned char loop[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
        return std::equal(a, a + 16, loop);
    }
    return false;
}

std::string resolved_path(const std::string &path)
{
    std::unique_ptr<char, decltype(&std::free)> r(realpath(path.c_str(), nullptr), &std::free);
    return r ? r.get() : "";
}

std::string host_of(const std::string &hostHeader)
{
    std::string h = hostHeader, host, port;
    if (!h.empty() && h[0] == '[') {
        size_t close = h.find(']');
        if (close == std::string::npos)
            return "";
        host = h.substr(1, close - 1);
        std::string rest = h.substr(close + 1);
        if (!rest.empty() && (rest[0] != ':' || !valid_port(rest.substr(1))))
            return "";
        return is_ipv6(host) ? host : "";
    }
    size_t colon = h.find(':');
    host = h.substr(0, colon);
    if (colon != std::string::npos && !valid_port(h.substr(colon + 1)))
        return "";
    for (char c : host)
        if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '.'))
            return "";
    return lower(host);
}

bool host_allowed(const std::string &hostHeader, const GuardConfig &config)
{
    std::string host = host_of(hostHeader);
    if (host.empty())
        return false;
    if (host == "localhost" || is_loopback_address(host))
        return true;
    if (is_ipv4(host) || is_ipv6(host))
        return is_wildcard(config.listenHost) || same_address(host, config.listenHost);
    for (const std::string &allowed : config.allowedHosts)
        if (lower(allowed) == host)
            return true;
    return false;
}

bool origin_allowed(const std::string &origin, const std::string &hostHeader)
{
    if (origin.empty())
        return true;  // not a browser, or a same-origin GET: nothing for a page to abuse
    return lower(origin) == "http://" + lower(hostHeader) || lower(origin) == "https://" + lower(hostHeader);
}

bool token_valid(const std::string &authorization, const std::string &queryToken, const GuardConfig &config)
{
    if (config.token.empty())
        return true;
    static const std::string kBearer = "Bearer ";
    std::string given = queryToken;
    if (authorization.compare(0, kBearer.size(), kBearer) == 0)
        given = authorization.substr(kBearer.size());
    // Constant time in the token's contents: every byte of the expected token is compared.
    unsigned char diff = given.size() == config.token.size() ? 0 : 1;
    for (size_t i = 0; i < config.token.size(); ++i)
        diff |= static_cast<unsigned char>(config.token[i] ^ (i < given.size() ? given[i] : 0));
    return diff == 0;
}

std::string static_file(const std::string &siteRoot, const std::string &requestPath)
{
    if (requestPath.empty() || requestPath[0] != '/' || requestPath.find("..") != std::string::npos ||
        requestPath.find('\\') != std::string::npos || requestPath.find('\0') != std::string::npos ||
        requestPath.find("//") != std::string::npos)
        return "";
    std::string path = siteRoot + requestPath;
    if (path.back() == '/')
        path += "index.html";
    std::string real = resolved_path(path);
    if (real.empty())
        return "";
    struct stat st;
    if (::stat(real.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
        return static_file(siteRoot, requestPath + "/");
    if (real.compare(0, siteRoot.size() + 1, siteRoot + "/") != 0 || ::stat(real.c_str(), &st) != 0 ||
        !S_ISREG(st.st_mode))
        return "";
    return real;
}

}  // namespace eqdrc_server
