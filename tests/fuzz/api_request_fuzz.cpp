// Requests as a network client can send them to `eqdrc serve`, through everything but
// the sockets: the guard (Host, Origin, token), the routes, the static-file path check
// and the tuning's JSON body through the check and the atomic write. The input is the
// request's fields one per line (method, path, token parameter, Host, Origin,
// Authorization, If-Match), then the body.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "adapt.h"
#include "api.h"
#include "check.h"
#include "tuning.h"

namespace {

using namespace eqdrc_server;

constexpr int kFields = 7;

struct Fixture {
    std::string root, site, tuning;
    TuningStore *store;
    EventHub hub;
    Api *api;

    Fixture()
    {
        char folder[] = "/tmp/eqdrc-api-fuzz-XXXXXX";
        root = mkdtemp(folder);
        site = root + "/site";
        tuning = root + "/speaker.json";
        ::mkdir(site.c_str(), 0700);
        eqdrc_tool::write_file_atomic(site + "/index.html", "<p>studio</p>");
        eqdrc_tool::write_file_atomic(root + "/secret", "secret");
        (void)::symlink((root + "/secret").c_str(), (site + "/link").c_str());
        eqdrc_tool::write_file_atomic(tuning, eqdrc_tool::record_to_json_text(eqdrc_tool::default_tuning()));
        store = new TuningStore(tuning, 768);
        ApiConfig config;
        config.guard.listenHost = "127.0.0.1";
        config.guard.token = "fuzz";
        config.siteRoot = site;
        api = new Api(config, *store, hub, [](const std::string &) {});
    }
    ~Fixture() { std::filesystem::remove_all(root); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static Fixture f;
    std::string text(reinterpret_cast<const char *>(data), size), fields[kFields];
    size_t at = 0;
    for (std::string &field : fields) {
        size_t end = text.find('\n', at);
        field = text.substr(at, end == std::string::npos ? std::string::npos : end - at);
        at = end == std::string::npos ? text.size() : end + 1;
    }
    ApiRequest q{fields[0], fields[1], fields[2], fields[3], fields[4], fields[5], fields[6], "127.0.0.1",
                 text.substr(at)};
    ApiResponse r = f.api->handle(q);
    // A static answer is a file inside the site; a write leaves a tuning that passes the check.
    if (!r.file.empty() && r.file.compare(0, f.site.size() + 1, f.site + "/") != 0)
        __builtin_trap();
    if (r.status == 200 && q.method == "PUT" &&
        eqdrc_tool::count_errors(eqdrc_tool::check_tuning(eqdrc_tool::read_tuning(f.tuning), 768)) != 0)
        __builtin_trap();
    if (r.status < 200 || r.status > 599)
        __builtin_trap();
    return 0;
}
