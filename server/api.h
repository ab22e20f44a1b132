// The server's requests and answers, apart from the HTTP library: the guard, the
// routes and the tuning's reads and writes. The HTTP front end (serve.cpp) only copies
// a request in and an answer out, so everything a client can send is tested and fuzzed
// here without sockets.
#ifndef EQDRC_SERVER_API_H
#define EQDRC_SERVER_API_H

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "event_hub.h"
#include "request_guard.h"
#include "tuning_store.h"

namespace eqdrc_server {

// Largest request body taken; a tuning's JSON is about 20 KiB.
constexpr size_t kMaxBodyBytes = 64 * 1024;

struct ApiRequest {
    std::string method, path;      // path without the query
    std::string queryToken;        // the "token" query parameter
    std::string host, origin, authorization, ifMatch;  // headers; empty when absent
    std::string remote;            // client address, for the log
    std::string body;
};

struct ApiResponse {
    int status = 200;
    std::string contentType = "application/json";
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string file;     // send this static file instead of the body
    bool events = false;  // answer with the event stream
};

struct ApiConfig {
    GuardConfig guard;
    std::string siteRoot;    // resolved absolute folder of the studio's files; empty: none
    std::string metersPath;  // shown in the status; empty: none
    std::string version;
};

class Api {
public:
    using Log = std::function<void(const std::string &line)>;
    Api(ApiConfig config, TuningStore &store, EventHub &hub, Log log);
    ApiResponse handle(const ApiRequest &request) const;

private:
    ApiResponse status() const;
    ApiResponse get_tuning() const;
    ApiResponse put_tuning(const ApiRequest &request) const;
    ApiResponse static_file(const ApiRequest &request) const;

    ApiConfig config_;
    TuningStore &store_;
    EventHub &hub_;
    Log log_;
};

// The content type the studio's files are served with, by extension.
std::string content_type_of(const std::string &path);

}  // namespace eqdrc_server

#endif
