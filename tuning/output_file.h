// Every file the tool writes goes through PendingFile: it is written under a temporary
// name beside its final place and renamed into place only when complete, it never
// replaces one of the run's inputs unless forced, and it is removed by any failure and
// (once remove_pending_files_on_signals() has run) by any signal that ends the process.
#ifndef EQDRC_TOOL_OUTPUT_FILE_H
#define EQDRC_TOOL_OUTPUT_FILE_H

#include <string>
#include <vector>

namespace eqdrc_tool {

// Throws Error when `output` names the same file as one of `inputs` (also through a
// symbolic or hard link), unless `force`.
void refuse_overwriting_inputs(const std::string &output, const std::vector<std::string> &inputs, bool force);

class PendingFile {
public:
    // Creates OUTPUT.eqdrc-XXXXXX with the usual permissions; checks `inputs` first.
    PendingFile(const std::string &output, const std::vector<std::string> &inputs, bool force);
    ~PendingFile();  // removes the temporary file unless committed
    PendingFile(const PendingFile &) = delete;
    PendingFile &operator=(const PendingFile &) = delete;

    int fd() const { return fd_; }
    // The descriptor now belongs to someone else (e.g. libsndfile), who closes it.
    void release_fd() { fd_ = -1; }
    const std::string &path() const { return path_; }
    void commit();  // closes the descriptor if still held, renames into place

private:
    std::string path_, tmp_;
    int fd_ = -1;
    int slot_ = -1;
};

// Writes the whole of `bytes` to `path` through a PendingFile.
void write_file_atomic(const std::string &path, const std::string &bytes,
                       const std::vector<std::string> &inputs = {}, bool force = false);

// For programs, not for libraries inside a host: installs the handler that removes
// pending files on every signal whose default action ends the process (signals that are
// ignored or already handled stay so), and on exit().
void remove_pending_files_on_signals();

}  // namespace eqdrc_tool

#endif
