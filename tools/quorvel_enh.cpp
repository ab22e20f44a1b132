// quorvel_enh: runs the chain over a raw 16-bit stereo PCM file, 768 samples per frame,
// swapping in a second tuning record at frame 5000 and back to the first at 8000.
//
//   quorvel_enh IN.raw OUT.raw FIRST.rec SECOND.rec DUMP.rec [bypath]
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "tqaudio_eqdrc.h"

namespace {

constexpr int kFrameLen = 768;
constexpr int kChannels = 2;
constexpr int kFrameUnits = kFrameLen;  // one unit = one stereo sample pair of 4 bytes
constexpr long kSwapInFrame = 5000;
constexpr long kSwapBackFrame = 8000;

// A stream that failed to open reads as empty rather than crashing the run.
size_t read_units(void *dst, size_t unit, size_t count, FILE *f) { return f ? std::fread(dst, unit, count, f) : 0; }

void close_stream(FILE *f)
{
    if (f)
        std::fclose(f);
}

// Reads one record file; a short or missing file ends the run.
void read_record(const char *path, float *record)
{
    FILE *f = path ? std::fopen(path, "rb") : nullptr;
    if (read_units(record, sizeof(float), EQDRC_RECORD_WORDS, f) < EQDRC_RECORD_WORDS) {
        std::puts("error");
        std::exit(-1);
    }
    close_stream(f);
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc < 3) {
        std::puts("Error: Wrong input parameters! A example is as following: ");
        std::puts("quorvel_enh test_in.wav test_out.wav test.bin 0");
        std::exit(-1);
    }
    auto arg = [&](int i) -> const char * { return i < argc ? argv[i] : nullptr; };

    FILE *fin = std::fopen(argv[1], "rb");
    FILE *fout = std::fopen(argv[2], "wb");
    if (fin == nullptr || fout == nullptr)
        std::fputs("open file fail", stderr);
    // Large stream buffers: a frame is 3 KiB, and a read and a write per frame would
    // otherwise cost two system calls per frame.
    static char inBuffer[1 << 20], outBuffer[1 << 20];
    if (fin != nullptr)
        std::setvbuf(fin, inBuffer, _IOFBF, sizeof inBuffer);
    if (fout != nullptr)
        std::setvbuf(fout, outBuffer, _IOFBF, sizeof outBuffer);

    static float first[EQDRC_RECORD_WORDS], second[EQDRC_RECORD_WORDS], readBack[EQDRC_RECORD_WORDS];
    std::memset(first, 0, sizeof first);
    std::memset(second, 0, sizeof second);

    AudioPostState *st = nullptr;
    const char *mode = arg(6);
    if (mode != nullptr && std::strcmp(mode, "bypath") == 0) {
        st = AudioPost_InitByPath(arg(3), kFrameLen);
        if (st == nullptr) {
            std::fputs("AudioPost_InitByPath failed\n", stderr);
            std::exit(-1);
        }
        AudioPost_GetPara(st, second);
        AudioPost_GetPara(st, first);
        std::fputs("AudioPost_InitByPath ok\n", stderr);
    } else {
        read_record(arg(3), first);
        read_record(arg(4), second);
        st = AudioPost_Init(first, kFrameLen);
        if (st == nullptr) {
            std::fputs("AudioPost_Init failed\n", stderr);
            std::exit(-1);
        }
        std::fputs("AudioPost_Init ok\n", stderr);
    }

    std::memset(readBack, 0, sizeof readBack);
    AudioPost_GetPara(st, readBack);
    const char *dumpPath = arg(5);
    FILE *dump = dumpPath ? std::fopen(dumpPath, "wb") : nullptr;
    if (dump)
        std::fwrite(readBack, sizeof(float), EQDRC_RECORD_WORDS, dump);
    close_stream(dump);

    auto *frame = static_cast<int16_t *>(std::malloc(kFrameLen * kChannels * sizeof(int16_t)));
    std::clock_t start = std::clock();
    long frameNo = 0;
    while (read_units(frame, 4, kFrameUnits, fin) >= static_cast<size_t>(kFrameUnits)) {
        frameNo++;
        if (frameNo == kSwapInFrame)
            AudioPost_SetPara(st, second, kFrameLen);
        if (frameNo == kSwapBackFrame)
            AudioPost_SetPara(st, first, kFrameLen);
        AudioPost_Process(st, frame, frame, kChannels, kFrameLen);
        if (fout == nullptr || std::fwrite(frame, 4, kFrameUnits, fout) < static_cast<size_t>(kFrameUnits))
            std::fputs("file write error\n", stderr);
    }
    std::clock_t stop = std::clock();
    std::printf("Finished, speech_time = %f, cost_time = %f\n", 0.0,
                static_cast<double>(static_cast<long>(stop - start)) / 1000000.0);

    std::free(frame);
    AudioPost_Destroy(st);
    close_stream(fin);
    close_stream(fout);
    int ignored = std::system("pause");
    (void)ignored;
    return 0;
}
