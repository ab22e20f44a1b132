#include "band.h"

#include <cstddef>

#include "tqaudio_eqdrc.h"

namespace eqdrc_fit {

std::vector<double> response_db(const Band &band, float sampleRate, const std::vector<double> &hz)
{
    float coeffs[5];
    filter_calculateCoeffs(coeffs, band.type, sampleRate, band.fc, band.q, band.gainDb);
    std::vector<double> db(hz.size());
    filter_responseDb(coeffs, sampleRate, hz.data(), db.data(), static_cast<int>(hz.size()));
    return db;
}

void add_response(const Band &band, float sampleRate, const std::vector<double> &hz, std::vector<double> &sumDb)
{
    const std::vector<double> db = response_db(band, sampleRate, hz);
    for (size_t i = 0; i < db.size(); ++i)
        sumDb[i] += db[i];
}

std::vector<double> cascade_db(const std::vector<Band> &bands, float sampleRate, const std::vector<double> &hz)
{
    std::vector<double> sum(hz.size(), 0.0);
    for (const Band &b : bands)
        add_response(b, sampleRate, hz, sum);
    return sum;
}

}  // namespace eqdrc_fit
