#include "check.h"

#include <cmath>
#include <cstdint>
#include <limits>

#include "tqaudio_eqdrc.h"

namespace eqdrc_tool {

static_assert(kRecordWords == EQDRC_RECORD_WORDS, "the tuning library's record is the library's");

namespace {

// The library's conversion of a record word to an integer: truncation, 0 for NaN.
int64_t truncated(float v)
{
    if (std::isnan(v))
        return 0;
    if (v >= 2147483648.0f)
        return INT32_MAX;
    if (v <= -2147483648.0f)
        return INT32_MIN;
    return static_cast<int64_t>(v);
}

bool fractional(float v)
{
    return std::isfinite(v) && v != std::trunc(v);
}

std::string num(double v)
{
    return shortest_text(static_cast<float>(v));
}

// Quality bounds of the filter designer, by type (its limits, from the library's header).
float max_quality(int64_t type)
{
    switch (type) {
    case LowShelf: case HighShelf: return EQDRC_DESIGN_SLOPE_MAX;
    case BandPass: return EQDRC_DESIGN_OCTAVES_MAX;
    case ButterworthLP: case ButterworthHP: return INFINITY;  // ignored by the Butterworth types
    default: return EQDRC_DESIGN_Q_MAX;
    }
}

constexpr float kMinQuality = EQDRC_DESIGN_Q_MIN;
constexpr float kMaxBoostDb = EQDRC_DESIGN_GAIN_MAX_DB;

class Checker {
public:
    Checker(const Record &rec, int frameLen, const Layout &layout) : rec_(rec), frameLen_(frameLen), layout_(layout) {}

    std::vector<Issue> run()
    {
        header();
        non_finite();
        if (sampleRate_ <= 0 || channels_ < 1)
            return issues_;  // nothing below can be judged without a rate and channels
        if (built("auto_gain"))
            auto_gain();
        if (built("bass_enhancer"))
            for (int c : used_channels())
                bass_enhancer(c);
        if (built("exciter"))
            for (int c : used_channels())
                exciter(c);
        if (built("de_esser"))
            for (int c : used_channels())
                de_esser(c);
        if (built("eq10"))
            for (int c : used_channels())
                eq10(c);
        if (built("multiband_drc"))
            for (int c : used_channels())
                multiband_drc(c);
        if (built("agc") || built("maximizer"))
            for (int c : used_channels())
                maximizer_and_agc(c);
        return issues_;
    }

private:
    float get(const std::string &path) const { return rec_[layout_.word(path)]; }
    void add(Severity s, const std::string &path, const std::string &message)
    {
        // A NaN or an infinity is reported once, as such, not again by every rule it trips.
        if (!std::isfinite(get(path)) && !reportingNonFinite_)
            return;
        issues_.push_back(Issue{s, path, get(path), message});
    }
    void error(const std::string &path, const std::string &m) { add(Severity::Error, path, m); }
    void warn(const std::string &path, const std::string &m) { add(Severity::Warning, path, m); }

    static std::string channel(const std::string &section, int c)
    {
        return section + ".channels[" + std::to_string(c) + "].";
    }
    bool built(const std::string &stage) const { return truncated(get("header.enable." + stage)) != 0; }
    // Linked channels all read channel 0's block.
    std::vector<int> used_channels() const
    {
        std::vector<int> v{0};
        if (channels_ == 2 && !link_)
            v.push_back(1);
        return v;
    }
    float nyquist() const { return static_cast<float>(sampleRate_) * 0.5f; }

    void header()
    {
        float version = get("header.tool_version");
        if (std::fabs(static_cast<double>(version) - 2.0) > 0.0001)
            error("header.tool_version", "the library accepts only tool version 2.0 (within 0.0001) and rejects the record");

        float bits = get("header.bit_depth");
        int64_t depth = truncated(bits);
        if (depth != 16 && depth != 24 && depth != 32)
            error("header.bit_depth", "the library accepts 16, 24 or 32 and rejects the record");
        else if (fractional(bits))
            warn("header.bit_depth", "truncated to " + std::to_string(depth));
        if (depth == 24 || depth == 32)
            warn("header.bit_depth", "samples are always 16-bit: a " + std::to_string(depth) +
                 "-bit record measures levels against a wider full scale and wraps the output instead of clipping it");

        float rate = get("header.sample_rate");
        sampleRate_ = truncated(rate);
        if (sampleRate_ <= 0)
            error("header.sample_rate", "must be a positive rate in Hz");
        else if (fractional(rate))
            warn("header.sample_rate", "truncated to " + std::to_string(sampleRate_));

        float count = get("header.channels");
        channels_ = truncated(count);
        if (channels_ > 2)
            error("header.channels", "at most 2: the multi-channel stages end the process, and channel 2 would "
                  "take its pre-gain from the auto-gain section");
        else if (channels_ < 1)
            error("header.channels", "no channels: nothing would be processed");
        else if (fractional(count))
            warn("header.channels", "truncated to " + std::to_string(channels_));
        link_ = truncated(get("header.channel_link")) != 0;

        for (const Field &f : layout_.fields()) {
            if (f.path.rfind("header.enable.", 0) != 0)
                continue;
            float v = rec_[f.word];
            int64_t t = truncated(v);
            std::string effect = t == 0 ? "the stage is off" : t == 1 ? "the stage runs" : "the stage is built but never runs";
            if (fractional(v))
                warn(f.path, "truncated to " + std::to_string(t) + ": " + effect);
            else if (t != 0 && t != 1)
                warn(f.path, "only 1 runs a stage; " + effect);
        }
    }

    // A field is read when its stage is built, its channel is used and, inside the EQ and
    // the compressor, its band is switched on or counted.
    bool read_by_library(const Field &f) const
    {
        if (f.section == "header") {
            if (f.path.rfind("header.parameter_version", 0) == 0)
                return false;  // printed, never tested
            if (f.path == "header.pre_gain_dB[1]")
                return channels_ == 2 && !link_;
            return true;
        }
        if (f.section == "agc" || f.section == "maximizer") {
            if (!built("agc") && !built("maximizer"))
                return false;
        } else if (!built(f.section)) {
            return false;
        }
        if (f.path.find("channels[1]") != std::string::npos && (channels_ != 2 || link_))
            return false;
        if (f.section == "eq10") {
            std::string band = f.path.substr(0, f.path.rfind('.') + 1);
            return f.path == band + "enable" || truncated(get(band + "enable")) != 0;
        }
        if (f.section == "multiband_drc") {
            std::string ch = f.path.substr(0, f.path.find("].") + 2);
            int64_t bands = truncated(get(ch + "crossover_band"));
            if (f.path.find(".middle_1.") != std::string::npos)
                return bands >= 3;
            if (f.path.find(".middle_2.") != std::string::npos)
                return bands >= 4;
        }
        return true;
    }

    void non_finite()
    {
        reportingNonFinite_ = true;
        for (const Field &f : layout_.fields())
            if (!std::isfinite(rec_[f.word]) && read_by_library(f))
                error(f.path, "not a finite number");
        reportingNonFinite_ = false;
    }

    // Filters designed at or above half the sample rate (or at 0 Hz) are undefined or unstable.
    bool frequency(const std::string &path)
    {
        float f = get(path);
        if (f > 0.0f && f < nyquist())
            return true;
        if (std::isfinite(f))
            error(path, "must lie above 0 and below half the sample rate (" + num(nyquist()) +
                  " Hz): the filter designed there is unstable or undefined");
        return false;
    }

    void time_ms(const std::string &path, const std::string &zeroEffect)
    {
        float t = get(path);
        if (t == 0.0f)
            warn(path, "a zero time divides by zero (an infinite exponent): " + zeroEffect);
        else if (t < 0.0f)
            error(path, "a negative time makes the smoothing grow without bound");
    }

    void auto_gain()
    {
        int64_t steps = truncated(get("auto_gain.r128_steps"));
        int64_t wins = truncated(get("auto_gain.r128_wins"));
        int64_t stepSamples = sampleRate_ * steps / 1000;
        int64_t windowSamples = wins * sampleRate_ / 1000;
        if (fractional(get("auto_gain.r128_steps")))
            warn("auto_gain.r128_steps", "truncated to " + std::to_string(steps) + " ms");
        if (fractional(get("auto_gain.r128_wins")))
            warn("auto_gain.r128_wins", "truncated to " + std::to_string(wins) + " ms");
        if (stepSamples < frameLen_)
            error("auto_gain.r128_steps", "a step of " + std::to_string(stepSamples) + " samples is shorter than the frame (" +
                  std::to_string(frameLen_) + " samples): the auto gain ends the process");
        if (windowSamples < 1)
            error("auto_gain.r128_wins", "the loudness window holds no samples");
        if (sampleRate_ * std::max<int64_t>(std::abs(steps), std::abs(wins)) > INT32_MAX)
            warn("auto_gain.r128_wins", "the window or step times the sample rate overflows a 32-bit integer");
        time_ms("auto_gain.attack_time", "the loudness and the rising gain follow at once");
        time_ms("auto_gain.release_time", "the falling gain follows at once");
    }

    void bass_enhancer(int c)
    {
        std::string p = channel("bass_enhancer", c);
        if (get(p + "drive") == 0.0f)
            error(p + "drive", "zero drive divides by zero: the shaper's constants are infinite and the output is NaN");
        if (get(p + "blend") == 10.5f)
            error(p + "blend", "a blend of 10.5 divides by zero: the shaper's constants are infinite");
        if (frequency(p + "freq") && get(p + "freq") * 3.0f >= nyquist())
            error(p + "freq", "the harmonic low-pass at 3 x freq = " + num(get(p + "freq") * 3.0f) +
                  " Hz lies at or above half the sample rate (" + num(nyquist()) + " Hz)");
        float active = get(p + "floor_active");
        int64_t on = truncated(active);
        if (fractional(active) || (on != 0 && on != 1))
            warn(p + "floor_active", "read as " + std::to_string(on) + ": the floor filter is " + (on > 0 ? "on" : "off"));
        if (on > 0)
            frequency(p + "floor");
    }

    void exciter(int c)
    {
        std::string p = channel("exciter", c);
        frequency(p + "Cutoff");
        float mix = get(p + "mix");
        if (mix < 0.0f || mix > 1.0f)
            warn(p + "mix", "outside 0-1: the dry signal is " + std::string(mix > 1.0f ? "subtracted" : "amplified"));
    }

    void de_esser(int c)
    {
        std::string p = channel("de_esser", c);
        frequency(p + "f0");
        float silence = -20.0f * std::log10(full_scale());
        if (get(p + "threshold") < silence)
            warn(p + "threshold", "below the level of silence (" + num(silence) + " dBFS): the notch is always in");
    }

    float full_scale() const
    {
        int64_t depth = truncated(get("header.bit_depth"));
        return depth == 24 ? 8388608.0f : depth == 32 ? 2147483648.0f : 32768.0f;
    }

    void eq10(int c)
    {
        for (int b = 0; layout_.find(channel("eq10", c) + "bands[" + std::to_string(b) + "].enable"); ++b) {
            std::string p = channel("eq10", c) + "bands[" + std::to_string(b) + "].";
            float enable = get(p + "enable");
            int64_t on = truncated(enable);
            if (fractional(enable))
                warn(p + "enable", "truncated to " + std::to_string(on));
            if (on != 0 && on != 1)
                warn(p + "enable", "counts " + std::to_string(on) + " times in the channel's band count: the channel "
                     "runs a different number of bands than it designs, and the bands after it shift");
            if (on == 0)
                continue;
            float typeWord = get(p + "filterTypes");
            int64_t type = truncated(typeWord);
            if (type < 0 || type >= EQDRC_FILTER_TYPE_COUNT)
                error(p + "filterTypes", "not a filter type (0-" + std::to_string(EQDRC_FILTER_TYPE_COUNT - 1) +
                                             "): the filter designer ends the process");
            else if (fractional(typeWord))
                warn(p + "filterTypes", "truncated to " + std::to_string(type));
            frequency(p + "fc");
            float boost = get(p + "boost");
            if (std::fabs(boost) > kMaxBoostDb)
                warn(p + "boost", "the designer clamps it to " + num(std::copysign(kMaxBoostDb, boost)) + " dB");
            float q = get(p + "Q");
            if (q < kMinQuality)
                warn(p + "Q", "the designer raises it to 0.01");
            else if (q > max_quality(type))
                warn(p + "Q", "the designer lowers it to " + num(max_quality(type)) + " for this type");
        }
    }

    // The expander/compressor curve shared by the compressor bands and the AGC; its gain
    // table spans noise_threshold - 4 dB up to `topDb`.
    void curve(const std::string &p, const std::string &message, float topDb)
    {
        float nt = get(p + "noise_threshold"), ee = get(p + "expand_end"), cs = get(p + "compress_start");
        float mg = get(p + "max_gain"), mp = get(p + "max_peak");
        std::string tail = ": " + message;
        if (nt > ee)
            warn(p + "noise_threshold", "above expand_end (" + num(ee) + ")" + tail);
        if (ee > cs)
            warn(p + "expand_end", "above compress_start (" + num(cs) + ")" + tail);
        if (cs + mg > mp)
            warn(p + "max_peak", "below compress_start + max_gain (" + num(cs + mg) + ")" + tail);
        if (ee == nt)
            warn(p + "expand_end", "equals noise_threshold: the expansion slope divides by zero");
        if (cs == 0.0f)
            warn(p + "compress_start", "at 0 dBFS the compression slope divides by zero");
        if (nt - 4.0f >= topDb)
            warn(p + "noise_threshold", "the gain table runs from 4 dB below it up to " + num(topDb) +
                 " dBFS, so it spans no levels");
    }

    void multiband_drc(int c)
    {
        std::string p = channel("multiband_drc", c);
        float countWord = get(p + "crossover_band");
        int64_t bands = truncated(countWord);
        if (bands < 2 || bands > 4) {
            error(p + "crossover_band", bands > 4 ? "more than 4 bands: the compressor reports a crossover error and the "
                                                    "extra bands overwrite the next channel's settings"
                                                  : "fewer than 2 bands: the crossover is misconfigured and the channel loses its signal");
            return;
        }
        if (fractional(countWord))
            warn(p + "crossover_band", "truncated to " + std::to_string(bands));
        std::vector<std::string> groups{"low", "high"};
        if (bands >= 3)
            groups.push_back("middle_1");
        if (bands == 4)
            groups.push_back("middle_2");
        frequency(p + "low.freq_end");
        frequency(p + "high.freq_start");
        for (const std::string &g : groups) {
            std::string q = p + g + ".";
            if (g.rfind("middle", 0) == 0 && frequency(q + "freq_start") && frequency(q + "freq_end") &&
                get(q + "freq_start") >= get(q + "freq_end"))
                warn(q + "freq_start", "not below freq_end (" + num(get(q + "freq_end")) + "): the band-pass band is empty");
            if (fractional(get(q + "drc_enable")))
                warn(q + "drc_enable", "truncated to " + std::to_string(truncated(get(q + "drc_enable"))));
            curve(q, "the compressor prints \"wrong param for MultiDRC\" and uses the values as given", 0.0f);
            for (const char *t : {"attack_time", "release_time"}) {
                float ms = get(q + t);
                int64_t whole = truncated(ms);
                if (whole == 0)
                    warn(q + t, std::string(ms != 0.0f ? "truncated to 0 ms, which " : "0 ms ") +
                         "divides by zero (an infinite exponent): the band's level and gain follow at once");
                else if (whole < 0)
                    error(q + t, "a negative time makes the band's level and gain grow without bound");
                else if (sampleRate_ * whole > INT32_MAX)
                    warn(q + t, "the sample rate times this time overflows a 32-bit integer in the compressor");
                else if (fractional(ms))
                    warn(q + t, "truncated to " + std::to_string(whole) + " ms");
            }
        }
    }

    void maximizer_and_agc(int c)
    {
        std::string a = channel("agc", c);
        curve(a, "the maximizer prints \"wrong param for agc\" and uses the values as given", 10.0f);
        if (built("agc")) {
            time_ms(a + "attack_time", "the AGC gain rises within one frame");
            time_ms(a + "release_time", "the AGC gain falls within one frame");
        }
        if (!built("maximizer"))
            return;
        std::string m = channel("maximizer", c);
        time_ms(m + "release", "the limiter releases within one frame");
        float threshold = get(m + "max_threshold");
        if (truncated(6.0f - 2.0f * threshold) < 1)
            warn(m + "max_threshold", "at 2.5 dBFS or above the limiter's knee is empty: its curve lifts every level to 0 dBFS");
        if (get(m + "ceiling") > 0.0f)
            warn(m + "ceiling", "above full scale: peaks are driven into the output clamp");
    }

    const Record &rec_;
    int frameLen_;
    const Layout &layout_;
    std::vector<Issue> issues_;
    int64_t sampleRate_ = 0;
    int64_t channels_ = 0;
    bool link_ = false;
    bool reportingNonFinite_ = false;
};

}  // namespace

std::vector<Issue> check_tuning(const Record &rec, int frameLen, const Layout &layout)
{
    return Checker(rec, frameLen, layout).run();
}

int count_errors(const std::vector<Issue> &issues)
{
    int n = 0;
    for (const Issue &i : issues)
        n += i.severity == Severity::Error;
    return n;
}

std::string format_issue(const Issue &issue)
{
    return std::string(issue.severity == Severity::Error ? "error: " : "warning: ") + issue.path + " = " +
           shortest_text(issue.value) + ": " + issue.message;
}

}  // namespace eqdrc_tool
