#include "api.h"

#include <ctime>
#include <nlohmann/json.hpp>

namespace eqdrc_server {

namespace {

using Json = nlohmann::json;

// Messages may quote what a client sent, which need not be UTF-8.
std::string text_of(const Json &j) { return j.dump(-1, ' ', false, Json::error_handler_t::replace); }

ApiResponse json_answer(int status, const Json &body)
{
    ApiResponse r;
    r.status = status;
    r.body = text_of(body);
    r.headers.emplace_back("Cache-Control", "no-store");
    return r;
}

ApiResponse error_answer(int status, const std::string &message)
{
    return json_answer(status, Json{{"error", message}});
}

std::string utc_now()
{
    std::time_t now = std::time(nullptr);
    std::tm t;
    gmtime_r(&now, &t);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &t);
    return text;
}

bool ends_with(const std::string &s, const std::string &tail)
{
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

}  // namespace

std::string content_type_of(const std::string &path)
{
    static const std::pair<const char *, const char *> kTypes[] = {
        {".html", "text/html; charset=utf-8"}, {".js", "text/javascript; charset=utf-8"},
        {".mjs", "text/javascript; charset=utf-8"}, {".css", "text/css; charset=utf-8"},
        {".wasm", "application/wasm"}, {".json", "application/json"}, {".svg", "image/svg+xml"},
        {".png", "image/png"}, {".wav", "audio/wav"}, {".txt", "text/plain; charset=utf-8"}};
    for (const auto &t : kTypes)
        if (ends_with(path, t.first))
            return t.second;
    return "application/octet-stream";
}

Api::Api(ApiConfig config, TuningStore &store, EventHub &hub, Log log)
    : config_(std::move(config)), store_(store), hub_(hub), log_(std::move(log))
{
}

ApiResponse Api::handle(const ApiRequest &q) const
{
    if (!host_allowed(q.host, config_.guard))
        return error_answer(403, "Host '" + q.host + "' is not this server's address");
    if (!origin_allowed(q.origin, q.host))
        return error_answer(403, "requests from the page at '" + q.origin + "' are not accepted");
    if (q.body.size() > kMaxBodyBytes)
        return error_answer(413, "request body over " + std::to_string(kMaxBodyBytes / 1024) + " KiB");
    bool api = q.path.compare(0, 5, "/api/") == 0 || q.path == "/api";
    if (!api)
        return static_file(q);
    if (!token_valid(q.authorization, q.queryToken, config_.guard))
        return error_answer(401, "a valid token is needed (Authorization: Bearer TOKEN)");
    if (q.path == "/api/status" && q.method == "GET")
        return status();
    if (q.path == "/api/tuning" && q.method == "GET")
        return get_tuning();
    if (q.path == "/api/tuning" && q.method == "PUT")
        return put_tuning(q);
    if (q.path == "/api/events" && q.method == "GET") {
        ApiResponse r;
        r.events = true;
        r.contentType = "text/event-stream";
        return r;
    }
    if (q.path == "/api/status" || q.path == "/api/tuning" || q.path == "/api/events")
        return error_answer(405, q.method + " is not allowed on " + q.path);
    return error_answer(404, "no such call: " + q.path);
}

ApiResponse Api::status() const
{
    TuningVersion v = store_.read();
    Json meters = config_.metersPath.empty() ? Json(nullptr) : Json(config_.metersPath);
    return json_answer(200, Json{{"tuning", store_.path()}, {"etag", v.etag}, {"meters", meters},
                                 {"version", config_.version}});
}

ApiResponse Api::get_tuning() const
{
    TuningVersion v = store_.read();
    if (v.etag.empty())
        return error_answer(404, v.error);
    ApiResponse r;
    r.body = v.json;
    r.headers.emplace_back("ETag", v.etag);
    r.headers.emplace_back("Cache-Control", "no-store");
    return r;
}

ApiResponse Api::put_tuning(const ApiRequest &q) const
{
    PutResult p = store_.put(q.body, q.ifMatch);
    std::string who = utc_now() + " " + (q.remote.empty() ? "-" : q.remote) + " ";
    switch (p.status) {
    case PutStatus::Written: {
        log_(who + "wrote " + store_.path() + ": " + p.etagBefore + " -> " + p.etagAfter);
        hub_.publish("tuning", text_of(Json{{"etag", p.etagAfter}, {"client", q.remote}}));
        ApiResponse r = json_answer(200, Json{{"etag", p.etagAfter}, {"warnings", p.issues}});
        r.headers.emplace_back("ETag", p.etagAfter);
        return r;
    }
    case PutStatus::Stale:
        log_(who + "refused (stale If-Match " + q.ifMatch + ", file at " + p.etagBefore + ")");
        return json_answer(412, Json{{"error", p.error}, {"etag", p.etagBefore}});
    case PutStatus::Missing:
        return error_answer(428, p.error);
    case PutStatus::Unreadable:
        return error_answer(400, p.error);
    case PutStatus::Refused:
        log_(who + "refused (" + p.error + ")");
        hub_.publish("refused", text_of(Json{{"errors", p.issues}, {"client", q.remote}}));
        return json_answer(422, Json{{"error", p.error}, {"errors", p.issues}});
    case PutStatus::Failed:
        break;
    }
    log_(who + "failed to write " + store_.path() + ": " + p.error);
    return error_answer(500, p.error);
}

ApiResponse Api::static_file(const ApiRequest &q) const
{
    if (q.method != "GET" && q.method != "HEAD")
        return error_answer(405, q.method + " is not allowed on the studio's files");
    std::string file = config_.siteRoot.empty() ? "" : eqdrc_server::static_file(config_.siteRoot, q.path);
    if (file.empty())
        return error_answer(404, "not found: " + q.path);
    ApiResponse r;
    r.file = file;
    r.contentType = content_type_of(file);
    return r;
}

}  // namespace eqdrc_server
