// This file must not see the chain's header: the chain exports its own ebur128_init and
// ebur128_destroy, which share their names with libebur128's.
#include "loudness.h"

#include <algorithm>
#include <cmath>
#include <dlfcn.h>
#include <ebur128.h>
#include <string>

#include "layout.h"

namespace eqdrc_tool {

namespace {

// The two clashing functions are looked up in libebur128 itself, so that they never bind
// to the chain's functions of the same names, whatever the order of the libraries.
struct Ebur128Entry {
    decltype(&::ebur128_init) init = nullptr;
    decltype(&::ebur128_destroy) destroy = nullptr;

    Ebur128Entry()
    {
        Dl_info where{};
        // ebur128_loudness_global exists only in libebur128: it tells which file to ask.
        if (dladdr(reinterpret_cast<void *>(&::ebur128_loudness_global), &where) && where.dli_fname) {
            if (void *lib = dlopen(where.dli_fname, RTLD_LAZY | RTLD_NOLOAD)) {
                init = reinterpret_cast<decltype(init)>(dlsym(lib, "ebur128_init"));
                destroy = reinterpret_cast<decltype(destroy)>(dlsym(lib, "ebur128_destroy"));
                dlclose(lib);  // NOLOAD only took a reference; the library stays loaded
            }
        }
    }
};

const Ebur128Entry &entry()
{
    static const Ebur128Entry e;
    return e;
}

}  // namespace

struct LoudnessMeter::State {
    ebur128_state *meter = nullptr;
};

LoudnessMeter::LoudnessMeter(int channels, int sampleRate) : state_(new State), channels_(channels)
{
    if (!entry().init || !entry().destroy) {
        delete state_;
        throw Error("cannot find libebur128's ebur128_init");
    }
    state_->meter = entry().init(static_cast<unsigned>(channels), static_cast<unsigned long>(sampleRate),
                                 EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK);
    if (!state_->meter) {
        delete state_;
        throw Error("cannot measure loudness at " + std::to_string(sampleRate) + " Hz");
    }
}

LoudnessMeter::~LoudnessMeter()
{
    entry().destroy(&state_->meter);
    delete state_;
}

void LoudnessMeter::add(const int16_t *interleaved, size_t frames)
{
    ebur128_add_frames_short(state_->meter, interleaved, frames);
}

Loudness LoudnessMeter::result() const
{
    Loudness l;
    if (ebur128_loudness_global(state_->meter, &l.integratedLufs) != EBUR128_SUCCESS)
        l.integratedLufs = -HUGE_VAL;
    if (ebur128_loudness_range(state_->meter, &l.rangeLu) != EBUR128_SUCCESS)
        l.rangeLu = 0.0;
    double peak = 0.0;
    for (int c = 0; c < channels_; ++c) {
        double p = 0.0;
        if (ebur128_true_peak(state_->meter, static_cast<unsigned>(c), &p) == EBUR128_SUCCESS)
            peak = std::max(peak, p);
    }
    l.truePeakDbtp = peak > 0.0 ? 20.0 * std::log10(peak) : -HUGE_VAL;
    return l;
}

}  // namespace eqdrc_tool
