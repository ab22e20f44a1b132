#include "serve.h"

#include <fcntl.h>
#include <httplib.h>
#include <signal.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "api.h"
#include "meter_file.h"
#include "tuning.h"

namespace eqdrc_server {

using eqdrc_tool::Error;

namespace {

constexpr int kWorkerThreads = 32;   // idle connections time out before they can hold all of them
constexpr int kReadTimeoutSeconds = 5;
constexpr int kWriteTimeoutSeconds = 5;
constexpr int kKeepAliveSeconds = 5;
constexpr int kMaxEventStreams = 16; // each holds a worker thread
constexpr auto kEventWait = std::chrono::seconds(15);  // then a comment keeps proxies from closing
constexpr auto kMeterPoll = std::chrono::milliseconds(50);
constexpr size_t kTokenBytes = 32;
constexpr size_t kMinTokenChars = 32;  // 128 bits as hex

struct Listen {
    std::string host;
    int port;
};

Listen parse_listen(const std::string &text)
{
    std::string host, port;
    if (!text.empty() && text[0] == '[') {
        size_t close = text.find("]:");
        if (close == std::string::npos)
            throw Error("--listen " + text + ": expected [ADDRESS]:PORT");
        host = text.substr(1, close - 1);
        port = text.substr(close + 2);
    } else {
        size_t colon = text.rfind(':');
        if (colon == std::string::npos || text.find(':') != colon)
            throw Error("--listen " + text + ": expected ADDRESS:PORT (an IPv6 address in brackets)");
        host = text.substr(0, colon);
        port = text.substr(colon + 1);
    }
    char *end = nullptr;
    long p = std::strtol(port.c_str(), &end, 10);
    if (port.empty() || *end || p < 0 || p > 65535)
        throw Error("--listen " + text + ": the port must be 0..65535");
    return {host, static_cast<int>(p)};
}

std::string read_token(const std::string &path)
{
    std::string token;
    try {
        token = eqdrc_tool::read_file(path);
    } catch (const std::exception &e) {
        throw Error(std::string("--token-file: ") + e.what());
    }
    while (!token.empty() && std::isspace(static_cast<unsigned char>(token.back())))
        token.pop_back();
    for (char c : token)
        if (!(std::isalnum(static_cast<unsigned char>(c)) || std::strchr("-._~+/=", c)))
            throw Error("--token-file " + path + ": a token is one line of letters, digits and -._~+/=");
    if (token.size() < kMinTokenChars)
        throw Error("--token-file " + path + ": the token is too short (at least " + std::to_string(kMinTokenChars) +
                    " characters; eqdrc serve --new-token FILE makes one)");
    return token;
}

// The studio's files installed beside the program: BINDIR/../share/eqdrc/studio.
std::string default_site()
{
    char exe[4096];
    ssize_t n = ::readlink("/proc/self/exe", exe, sizeof exe - 1);
    if (n <= 0)
        return "";
    std::string dir(exe, static_cast<size_t>(n));
    dir = dir.substr(0, dir.rfind('/'));
    return dir + "/../share/eqdrc/studio";
}

std::string resolved_folder(const std::string &path)
{
    std::string r = resolved_path(path);
    struct stat st;
    if (r.empty() || ::stat(r.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
        return "";
    return r;
}

ApiRequest request_of(const httplib::Request &req)
{
    ApiRequest q;
    q.method = req.method;
    q.path = req.path;
    q.queryToken = req.get_param_value("token");
    q.host = req.get_header_value("Host");
    q.origin = req.get_header_value("Origin");
    q.authorization = req.get_header_value("Authorization");
    q.ifMatch = req.get_header_value("If-Match");
    q.remote = req.remote_addr;
    q.body = req.body;
    return q;
}

// Streams the hub's events to one page until it goes or the server stops.
void stream_events(EventHub &hub, std::atomic<int> &streams, httplib::Response &res)
{
    res.set_header("Cache-Control", "no-store");
    auto cursor = std::make_shared<unsigned long long>(0);
    auto opened = std::make_shared<bool>(false);
    res.set_chunked_content_provider(
        "text/event-stream",
        [&hub, cursor, opened](size_t, httplib::DataSink &sink) {
            std::string text;
            if (!*opened) {
                *opened = true;
                hub.next(*cursor, std::chrono::milliseconds(0));  // from now on
                text = ": connected\n\n";  // lets the page's EventSource open at once
            } else {
                text = hub.next(*cursor, kEventWait);
                if (hub.closed()) {
                    sink.done();
                    return false;
                }
                if (text.empty())
                    text = ": idle\n\n";
            }
            return sink.write(text.data(), text.size());
        },
        [&streams](bool) { --streams; });
}

// Reads the player's meter file and turns what changed into events.
class MeterRelay {
public:
    MeterRelay(const std::string &path, EventHub &hub) : reader_(path), hub_(hub), thread_([this] { run(); }) {}
    ~MeterRelay()
    {
        stopping_ = true;
        thread_.join();
    }

private:
    void run()
    {
        unsigned long long lastPublished = 0, lastHandovers = 0;
        bool first = true;
        while (!stopping_) {
            eqdrc_plugin::MeterReading r;
            if (reader_.read(r) && r.publishedMs != lastPublished) {
                lastPublished = r.publishedMs;
                hub_.publish("meters", eqdrc_plugin::meter_reading_json(r));
                if (r.handovers != lastHandovers && !first && r.handoverFrame >= 0)
                    hub_.publish("handover", nlohmann::json{{"frame", r.handoverFrame}, {"handovers", r.handovers}}.dump());
                lastHandovers = r.handovers;
                first = false;
            }
            std::this_thread::sleep_for(kMeterPoll);
        }
    }

    eqdrc_plugin::MeterFileReader reader_;
    EventHub &hub_;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

}  // namespace

void write_new_token(const std::string &path)
{
    unsigned char bytes[kTokenBytes];
    if (::getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes))
        throw Error(std::string("--new-token: no random bytes: ") + std::strerror(errno));
    std::string text;
    static const char kHex[] = "0123456789abcdef";
    for (unsigned char b : bytes) {
        text += kHex[b >> 4];
        text += kHex[b & 15];
    }
    text += '\n';
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0)
        throw Error("--new-token " + path + ": " + std::strerror(errno) + (errno == EEXIST ? " (not replaced)" : ""));
    bool ok = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && ::fsync(fd) == 0;
    int err = errno;
    ::close(fd);
    if (!ok) {
        ::unlink(path.c_str());
        throw Error("--new-token " + path + ": " + std::strerror(err));
    }
}

int run_serve(const ServeOptions &o, const std::string &version, FILE *log)
{
    Listen at = parse_listen(o.listen);
    ApiConfig config;
    config.guard.listenHost = at.host;
    config.guard.allowedHosts = o.allowHosts;
    if (!o.tokenFile.empty())
        config.guard.token = read_token(o.tokenFile);
    else if (!is_loopback_address(at.host) && at.host != "localhost")
        throw Error("--listen " + o.listen + ": a server reachable from other machines needs --token-file "
                    "(eqdrc serve --new-token FILE makes one), or reach it through an SSH tunnel");
    if (o.frameLen < 1)
        throw Error("--frame: must be at least 1 sample");
    TuningStore store(o.tuning, o.frameLen);
    std::string site = o.site.empty() ? default_site() : o.site;
    config.siteRoot = resolved_folder(site);
    if (config.siteRoot.empty() && !o.site.empty())
        throw Error("--site " + o.site + ": not a folder");
    config.metersPath = o.meters;
    config.version = version;

    EventHub hub;
    Api api(config, store, hub, [log](const std::string &line) {
        std::fprintf(log, "eqdrc serve: %s\n", line.c_str());
        std::fflush(log);
    });
    std::atomic<int> streams{0};

    httplib::Server server;
    server.new_task_queue = [] { return new httplib::ThreadPool(kWorkerThreads); };
    server.set_payload_max_length(kMaxBodyBytes);
    server.set_read_timeout(kReadTimeoutSeconds, 0);
    server.set_write_timeout(kWriteTimeoutSeconds, 0);
    server.set_keep_alive_timeout(kKeepAliveSeconds);
    auto handler = [&](const httplib::Request &req, httplib::Response &res) {
        ApiResponse a = api.handle(request_of(req));
        res.status = a.status;
        for (const auto &h : a.headers)
            res.set_header(h.first, h.second);
        if (a.events) {
            if (++streams > kMaxEventStreams) {
                --streams;
                res.status = 503;
                res.set_content("{\"error\":\"too many event streams\"}", "application/json");
                return;
            }
            stream_events(hub, streams, res);
        } else if (!a.file.empty()) {
            try {
                res.set_content(eqdrc_tool::read_file(a.file), a.contentType);
            } catch (const std::exception &) {
                res.status = 404;
                res.set_content("{\"error\":\"not found\"}", "application/json");
            }
        } else {
            res.set_content(a.body, a.contentType);
        }
    };
    server.Get(".*", handler);
    server.Put(".*", handler);
    server.Post(".*", handler);
    server.Delete(".*", handler);
    server.Patch(".*", handler);
    server.Options(".*", handler);

    int port = at.port;
    if (port == 0)
        port = server.bind_to_any_port(at.host);
    else if (!server.bind_to_port(at.host, port))
        port = -1;
    if (port < 0)
        throw Error("--listen " + o.listen + ": cannot listen there: " + std::strerror(errno));

    // SIGINT and SIGTERM end the server cleanly; every thread started from here on keeps
    // them blocked, and one waits for them.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    std::thread stopper([&] {
        int sig = 0;
        sigwait(&stopSignals, &sig);
        hub.close();
        server.stop();
    });
    std::unique_ptr<MeterRelay> relay;
    if (!o.meters.empty())
        relay = std::make_unique<MeterRelay>(o.meters, hub);

    std::string shown = at.host.find(':') != std::string::npos ? "[" + at.host + "]" : at.host;
    std::fprintf(log, "eqdrc serve: %s on http://%s:%d/%s%s\n", o.tuning.c_str(), shown.c_str(), port,
                 config.siteRoot.empty() ? " (API only: no studio files; --site names them)" : "",
                 config.guard.token.empty() ? "" : " (token required)");
    std::fflush(log);
    bool ok = server.listen_after_bind();
    if (!hub.closed()) {  // the server failed by itself: let the stopper go
        hub.close();
        pthread_kill(stopper.native_handle(), SIGTERM);
    }
    stopper.join();
    return ok ? 0 : 2;
}

}  // namespace eqdrc_server
