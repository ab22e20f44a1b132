// One EQ band as the record holds it, and its response as the chain plays it: designed
// by the library's own designer, in float, at the tuning's sample rate.
#ifndef EQDRC_FIT_BAND_H
#define EQDRC_FIT_BAND_H

#include <vector>

namespace eqdrc_fit {

struct Band {
    int type;      // EqdrcFilterType: Parametric, LowShelf or HighShelf from the fitter
    float fc;      // Hz
    float q;       // Q, or the slope S of a shelf
    float gainDb;  // the record's "boost"
};

// Adds the band's response in dB at each frequency to `sumDb`.
void add_response(const Band &band, float sampleRate, const std::vector<double> &hz, std::vector<double> &sumDb);
std::vector<double> response_db(const Band &band, float sampleRate, const std::vector<double> &hz);
std::vector<double> cascade_db(const std::vector<Band> &bands, float sampleRate, const std::vector<double> &hz);

}  // namespace eqdrc_fit

#endif
