#include "support/test_support.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace eqdrc_test {

std::vector<float> blank_record(int sampleRate, int bits, int channels)
{
    std::vector<float> r(EQDRC_RECORD_WORDS, 0.0f);
    r[0] = static_cast<float>(sampleRate);
    r[1] = static_cast<float>(bits);
    r[2] = 0.0f;
    r[3] = static_cast<float>(channels);
    r[4] = 2.0f;
    return r;
}

Planar::Planar(int channels, int frames, float value)
    : data(static_cast<size_t>(channels), std::vector<float>(static_cast<size_t>(frames), value))
{
    for (auto &d : data)
        ptr.push_back(d.data());
}

std::vector<float> reference_record()
{
    const std::string bytes = read_file(std::string(EQDRC_SOURCE_DIR) + "/tunings/reference.bin");
    std::vector<float> rec(EQDRC_RECORD_WORDS);
    std::memcpy(rec.data(), bytes.data(), std::min(bytes.size(), rec.size() * sizeof(float)));
    return rec;
}

std::vector<float> sine(int frames, float freq, int sampleRate, float amplitude, int start)
{
    std::vector<float> v(static_cast<size_t>(frames));
    for (int i = 0; i < frames; i++)
        v[static_cast<size_t>(i)] =
            static_cast<float>(amplitude * std::sin(2.0 * M_PI * freq * (start + i) / sampleRate));
    return v;
}

std::vector<float> bursts_and_holds(uint32_t seed, int holdStart, float held)
{
    std::vector<float> x(9000, held);
    for (int i = 0; i < 9000; i++) {
        seed = seed * 1664525u + 1013904223u;
        if (i < holdStart || (i >= 6000 && i < 6500))
            x[static_cast<size_t>(i)] = static_cast<float>(static_cast<int32_t>(seed) >> 17);
    }
    return x;
}

bool same_bits(float a, float b)
{
    if (std::isnan(a) || std::isnan(b))
        return std::isnan(a) && std::isnan(b);
    return std::memcmp(&a, &b, sizeof a) == 0;
}

bool same_bits(const std::vector<float> &a, const std::vector<float> &b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); i++)
        if (!same_bits(a[i], b[i]))
            return false;
    return true;
}

AudioPostState *quiet_chain(const float *rec, int frameLen)
{
    AudioPostState *st = nullptr;
    capture_stderr([&] { st = AudioPost_Init(rec, frameLen); });
    return st;
}

void destroy_quietly(AudioPostState *st)
{
    capture_stderr([&] { AudioPost_Destroy(st); });
}

std::string read_file(const std::string &path)
{
    std::ifstream f(path, std::ios::binary);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

void write_file(const std::string &path, const void *data, size_t bytes)
{
    std::ofstream f(path, std::ios::binary);
    f.write(static_cast<const char *>(data), static_cast<std::streamsize>(bytes));
}

std::string temp_path(const std::string &name)
{
    const char *dir = std::getenv("TMPDIR");
    return std::string(dir ? dir : "/tmp") + "/eqdrc_" + std::to_string(getpid()) + "_" + name;
}

}  // namespace eqdrc_test
