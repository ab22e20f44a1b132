// The one tuning file the server reads and writes. Every version on disk has an ETag
// (a hash of its bytes), and a write names the version it replaces: a writer that did
// not see the latest version is refused, so two browsers never overwrite each other
// silently. A version is checked as `eqdrc tuning check` checks it and written whole
// (temporary file, fsync, rename) so a player watching the file never reads a part.
#ifndef EQDRC_SERVER_TUNING_STORE_H
#define EQDRC_SERVER_TUNING_STORE_H

#include <mutex>
#include <string>
#include <vector>

namespace eqdrc_server {

struct TuningVersion {
    std::string json;  // the tuning as JSON text
    std::string etag;  // quoted, as in an ETag header; empty when the file cannot be read
    std::string error; // why it cannot be read
};

enum class PutStatus { Written, Stale, Missing, Unreadable, Refused, Failed };

struct PutResult {
    PutStatus status;
    std::string etagBefore, etagAfter;  // the file's version before and after
    std::string error;                  // one line, for every status but Written
    std::vector<std::string> issues;    // the check's lines (Refused: errors; Written: warnings)
};

class TuningStore {
public:
    // `path` must name a readable tuning; it keeps its form (JSON or binary record) on
    // every write. `frameLen` is the player's frame, for the check. Throws on a bad file.
    TuningStore(std::string path, int frameLen);

    const std::string &path() const { return path_; }
    TuningVersion read() const;
    // `ifMatch` is the If-Match header: one quoted ETag, or "*" for any existing version.
    PutResult put(const std::string &body, const std::string &ifMatch);

private:
    std::string current_etag() const;

    std::string path_;
    int frameLen_;
    bool binary_;
    mutable std::mutex mutex_;  // one write at a time, and no read between its check and rename
};

// The ETag of a file's bytes.
std::string etag_of(const std::string &bytes);

}  // namespace eqdrc_server

#endif
