#include "tuning_store.h"

#include <cstdint>
#include <cstdio>

#include "check.h"
#include "tuning.h"

namespace eqdrc_server {

using eqdrc_tool::Error;
using eqdrc_tool::Record;

namespace {

// FNV-1a, 64 bits: a version label, not a security measure (the file is the server's own).
constexpr uint64_t kFnvOffset = 14695981039346656037ull;
constexpr uint64_t kFnvPrime = 1099511628211ull;

// The strongest accepted match: one quoted ETag, or any version.
bool matches(const std::string &ifMatch, const std::string &etag)
{
    return !etag.empty() && (ifMatch == "*" || ifMatch == etag);
}

}  // namespace

std::string etag_of(const std::string &bytes)
{
    uint64_t h = kFnvOffset;
    for (unsigned char c : bytes)
        h = (h ^ c) * kFnvPrime;
    char text[24];
    std::snprintf(text, sizeof text, "\"%016llx\"", static_cast<unsigned long long>(h));
    return text;
}

TuningStore::TuningStore(std::string path, int frameLen) : path_(std::move(path)), frameLen_(frameLen)
{
    std::string bytes = eqdrc_tool::read_file(path_);
    binary_ = !eqdrc_tool::is_json_text(bytes);
    eqdrc_tool::tuning_from_bytes(bytes, path_);  // refuses a file that is no tuning
}

TuningVersion TuningStore::read() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    TuningVersion v;
    try {
        std::string bytes = eqdrc_tool::read_file(path_);
        v.json = eqdrc_tool::record_to_json_text(eqdrc_tool::tuning_from_bytes(bytes, path_));
        v.etag = etag_of(bytes);
    } catch (const std::exception &e) {
        v.error = e.what();
    }
    return v;
}

std::string TuningStore::current_etag() const
{
    try {
        return etag_of(eqdrc_tool::read_file(path_));
    } catch (const std::exception &) {
        return "";
    }
}

PutResult TuningStore::put(const std::string &body, const std::string &ifMatch)
{
    PutResult r{PutStatus::Failed, "", "", "", {}};
    if (ifMatch.empty()) {
        r.status = PutStatus::Missing;
        r.error = "a write needs If-Match with the ETag of the version it replaces";
        return r;
    }
    Record rec;
    try {
        rec = eqdrc_tool::record_from_json_text(body);
    } catch (const std::exception &e) {
        r.status = PutStatus::Unreadable;
        r.error = e.what();
        return r;
    }
    std::vector<eqdrc_tool::Issue> issues = eqdrc_tool::check_tuning(rec, frameLen_);
    for (const eqdrc_tool::Issue &i : issues)
        r.issues.push_back(eqdrc_tool::format_issue(i));
    if (int errors = eqdrc_tool::count_errors(issues)) {
        r.status = PutStatus::Refused;
        r.error = std::to_string(errors) + " error(s) in the tuning; nothing written";
        return r;
    }
    std::string bytes = binary_ ? eqdrc_tool::record_to_bytes(rec) : eqdrc_tool::record_to_json_text(rec);

    std::lock_guard<std::mutex> lock(mutex_);
    r.etagBefore = current_etag();
    if (!matches(ifMatch, r.etagBefore)) {
        r.status = PutStatus::Stale;
        r.error = r.etagBefore.empty() ? path_ + " cannot be read" : "the tuning changed since " + ifMatch;
        return r;
    }
    try {
        eqdrc_tool::write_file_atomic(path_, bytes);
    } catch (const std::exception &e) {
        r.error = e.what();
        return r;
    }
    r.status = PutStatus::Written;
    r.etagAfter = etag_of(bytes);
    return r;
}

}  // namespace eqdrc_server
