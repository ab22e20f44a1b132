// Second-order section design for every equalising, splitting and weighting filter.
#ifndef EQDRC_FILTERS_DESIGNER_H
#define EQDRC_FILTERS_DESIGNER_H

namespace eqdrc {

enum FilterType : int {
    kParametric = 0,
    kLowShelf = 1,
    kHighShelf = 2,
    kGeneralLP = 3,
    kGeneralHP = 4,
    kBandPass = 5,
    kButterworthLP = 6,
    kButterworthHP = 7,
};

// Label printed for a type code, or nullptr for codes without one (5..7 and unknown).
const char *filter_type_label(int type);

// Writes b0, b1, b2, a1, a2; an unknown type ends the process after its message.
void design_biquad(float coeffs[5], int type, float fs, float fc, float q, float gainDb);

// |H| in dB of a section at each of `count` frequencies, in double (pictures and checks).
void biquad_response_db(const float coeffs[5], double fs, const double *freqs, double *db, int count);

}  // namespace eqdrc

#endif
