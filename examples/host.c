/* A minimal host: read a record file, create the chain from it, run one second of a
 * 1 kHz tone through it frame by frame, print the output peak.
 *   host TUNING.bin
 * The record, not the host, decides the channel count (word 3) and the sample rate
 * (word 0); AudioPost_Process ignores its channel argument and reads and writes
 * frameLen x (the record's channels) samples, so the buffer is sized from the record. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <tqaudio_eqdrc.h>

enum { FRAME = 768, WORD_SAMPLE_RATE = 0, WORD_CHANNELS = 3 };

int main(int argc, char **argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: %s TUNING.bin\n", argv[0]);
        return 2;
    }
    float record[EQDRC_RECORD_WORDS];  /* the file is the little-endian image of the words */
    FILE *f = fopen(argv[1], "rb");
    if (f == NULL || fread(record, sizeof record, 1, f) != 1) {
        fprintf(stderr, "%s: not a %u-byte record\n", argv[1], (unsigned)sizeof record);
        return 1;
    }
    fclose(f);
    int rate = (int)record[WORD_SAMPLE_RATE];
    int channels = (int)record[WORD_CHANNELS];
    if (rate <= 0 || channels < 1 || channels > 2) {
        fprintf(stderr, "%s: %d Hz, %d channels: not a record this host runs\n", argv[1], rate, channels);
        return 1;
    }
    AudioPostState *chain = AudioPost_Init(record, FRAME);
    if (chain == NULL)
        return 1;
    int16_t *frame = malloc(sizeof *frame * FRAME * (size_t)channels);
    if (frame == NULL)
        return 1;
    int peak = 0;
    for (int n = 0; n < rate / FRAME; n++) {
        for (int i = 0; i < FRAME; i++) {
            int16_t v = (int16_t)(8000.0 * sin(2.0 * 3.141592653589793 * 1000.0 * (n * FRAME + i) / rate));
            for (int c = 0; c < channels; c++)
                frame[i * channels + c] = v;
        }
        if (AudioPost_Process(chain, frame, frame, 0 /* ignored */, FRAME) < 0)
            return 1;
        for (int i = 0; i < FRAME * channels; i++)
            peak = abs(frame[i]) > peak ? abs(frame[i]) : peak;
    }
    AudioPost_Destroy(chain);
    free(frame);
    printf("output peak: %d (%d channel(s) at %d Hz)\n", peak, channels, rate);
    return peak > 0 ? 0 : 1;
}
