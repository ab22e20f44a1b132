/* A minimal host: create the chain from a record file, run one second of a 1 kHz tone
 * through it frame by frame, print the output peak.
 *   host TUNING.bin */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <tqaudio_eqdrc.h>

enum { FRAME = 768, CHANNELS = 2 };

int main(int argc, char **argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: %s TUNING.bin\n", argv[0]);
        return 2;
    }
    AudioPostState *chain = AudioPost_InitByPath(argv[1], FRAME);
    if (chain == NULL)
        return 1;
    int16_t frame[FRAME * CHANNELS];
    int peak = 0;
    for (int f = 0; f < 48000 / FRAME; f++) {
        for (int i = 0; i < FRAME; i++) {
            int16_t v = (int16_t)(8000.0 * sin(2.0 * 3.141592653589793 * 1000.0 * (f * FRAME + i) / 48000.0));
            frame[i * CHANNELS] = frame[i * CHANNELS + 1] = v;
        }
        if (AudioPost_Process(chain, frame, frame, CHANNELS, FRAME) < 0)
            return 1;
        for (int i = 0; i < FRAME * CHANNELS; i++)
            peak = abs(frame[i]) > peak ? abs(frame[i]) : peak;
    }
    AudioPost_Destroy(chain);
    printf("output peak: %d\n", peak);
    return peak > 0 ? 0 : 1;
}
