#include "fit_command.h"

#include <unistd.h>

#include "fit_tuning.h"
#include "impulse_response.h"
#include "output_file.h"
#include "tuning.h"

namespace eqdrc_tool {
namespace {

eqdrc_fit::Curve read_measurement(const std::string &path)
{
    if (is_sound_file(path))
        return impulse_response_curve(path);
    return eqdrc_fit::parse_curve(read_file(path), path);
}

void write_all(PendingFile &file, const std::string &bytes)
{
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(file.fd(), bytes.data() + done, bytes.size() - done);
        if (n <= 0)
            throw Error(file.path() + ": cannot write");
        done += static_cast<size_t>(n);
    }
}

}  // namespace

void run_fit(const FitCommand &cmd, FILE *summary)
{
    const eqdrc_fit::FitOptions o = eqdrc_fit::read_options(cmd);

    std::vector<std::string> inputs = {cmd.measurement};
    const eqdrc_fit::Target target =
        eqdrc_fit::is_builtin_target(cmd.target)
            ? eqdrc_fit::target_from_option(cmd.target)
            : eqdrc_fit::target_from_curve(eqdrc_fit::parse_curve(read_file(cmd.target), cmd.target), cmd.target);
    if (!eqdrc_fit::is_builtin_target(cmd.target))
        inputs.push_back(cmd.target);
    if (!cmd.base.empty())
        inputs.push_back(cmd.base);
    const Record base = cmd.base.empty() ? eqdrc_fit::neutral_tuning() : read_tuning(cmd.base);

    const eqdrc_fit::FitResult r =
        eqdrc_fit::fit_tuning(read_measurement(cmd.measurement), cmd.measurement, target, o, base);

    // Both files appear together or neither does.
    PendingFile tuning(cmd.output, inputs, cmd.force);
    write_all(tuning, record_to_json_text(r.tuning));
    std::unique_ptr<PendingFile> report;
    if (!cmd.report.empty()) {
        report = std::make_unique<PendingFile>(cmd.report, inputs, cmd.force);
        write_all(*report, format_json(r.report));
    }
    tuning.commit();
    if (report)
        report->commit();
    std::fprintf(summary, "eqdrc: fit: %s\n", r.summary.c_str());
}

}  // namespace eqdrc_tool
