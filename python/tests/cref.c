/* Calls the library directly, for comparison with the Python bindings.  Float arguments
 * are the hex bits of float32 values; results are printed as hex bits.
 *   cref design TYPE FS FC Q GAIN
 *   cref table KNEE X NT EE CS MG MP        cref maxtable KNEE X THR
 *   cref chain RECORD.bin FRAME IN.raw OUT.raw     (interleaved int16; last frame padded)
 *   cref meter BITS RATE CH WIN STEP FRAME IN.raw  (loudness after each frame)
 *   cref level RATE CH FRAME IN.raw                (levels after each frame) */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tqaudio_eqdrc.h>

static float F(const char *s)
{
    unsigned int b = (unsigned int)strtoul(s, NULL, 16);
    float v;
    memcpy(&v, &b, 4);
    return v;
}

static unsigned int B(float v)
{
    unsigned int b;
    memcpy(&b, &v, 4);
    return b;
}

static short *read_raw(const char *path, long *n)
{
    FILE *f = fopen(path, "rb");
    if (!f) exit(3);
    fseek(f, 0, SEEK_END);
    *n = ftell(f) / 2;
    fseek(f, 0, SEEK_SET);
    short *p = calloc((size_t)*n + 1, 2);
    if (fread(p, 2, (size_t)*n, f) != (size_t)*n) exit(3);
    fclose(f);
    return p;
}

int main(int argc, char **argv)
{
    if (argc < 2) return 2;
    const char *cmd = argv[1];
    if (!strcmp(cmd, "design") && argc == 7) {
        float c[5];
        filter_calculateCoeffs(c, atoi(argv[2]), F(argv[3]), F(argv[4]), F(argv[5]), F(argv[6]));
        for (int i = 0; i < 5; i++) printf("%08x\n", B(c[i]));
    } else if (!strcmp(cmd, "table") && argc == 9) {
        printf("%08x\n", B(table_caculate(atoi(argv[2]), F(argv[3]), F(argv[4]), F(argv[5]), F(argv[6]), F(argv[7]),
                                         F(argv[8]))));
    } else if (!strcmp(cmd, "maxtable") && argc == 5) {
        printf("%08x\n", B(max_table_caculate(atoi(argv[2]), F(argv[3]), F(argv[4]))));
    } else if (!strcmp(cmd, "chain") && argc == 6) {
        int frame = atoi(argv[3]);
        AudioPostState *st = AudioPost_InitByPath(argv[2], frame);
        if (!st) return 4;
        FILE *rf = fopen(argv[2], "rb");
        float rec[EQDRC_RECORD_WORDS];
        if (!rf || fread(rec, 4, EQDRC_RECORD_WORDS, rf) != EQDRC_RECORD_WORDS) return 3;
        fclose(rf);
        int ch = (int)rec[3];
        long n;
        short *in = read_raw(argv[4], &n);
        short *buf = calloc((size_t)frame * ch, 2);
        FILE *out = fopen(argv[5], "wb");
        for (long pos = 0; pos < n; pos += (long)frame * ch) {
            long take = n - pos < (long)frame * ch ? n - pos : (long)frame * ch;
            memset(buf, 0, (size_t)frame * ch * 2);
            memcpy(buf, in + pos, (size_t)take * 2);
            AudioPost_Process(st, buf, buf, 0, frame);
            fwrite(buf, 2, (size_t)take, out);
        }
        fclose(out);
        AudioPost_Destroy(st);
        free(in);
        free(buf);
    } else if (!strcmp(cmd, "meter") && argc == 9) {
        int ch = atoi(argv[4]), frame = atoi(argv[7]);
        Ebur128State *m = ebur128_init(atoi(argv[2]), atoi(argv[3]), ch, atoi(argv[5]), atoi(argv[6]));
        long n;
        short *in = read_raw(argv[8], &n);
        float *planes[2] = {calloc((size_t)frame, 4), calloc((size_t)frame, 4)};
        for (long pos = 0; pos + (long)frame * ch <= n; pos += (long)frame * ch) {
            for (int i = 0; i < frame; i++)
                for (int c = 0; c < ch; c++) planes[c][i] = in[pos + (long)i * ch + c];
            ebur128_addframes(m, planes, frame);
            printf("%08x\n", B(ebur128_gatedloudness(m)));
        }
        ebur128_destroy(m);
    } else if (!strcmp(cmd, "level") && argc == 6) {
        int ch = atoi(argv[3]), frame = atoi(argv[4]);
        LevelDetectorState *d = LevelDetector_Init(16, atoi(argv[2]), ch, frame);
        LevelDetector_SetPara(d, NULL, 100.0f, 50.0f, 300.0f);
        long n;
        short *in = read_raw(argv[5], &n);
        for (long pos = 0; pos + (long)frame * ch <= n; pos += (long)frame * ch) {
            LevelDetectorResult r;
            LevelDetector_Process(d, in + pos, frame);
            LevelDetector_GetRes(d, &r);
            for (int b = 0; b < 10; b++) printf("%d %d%c", r.freq[b], r.level[b], b == 9 ? '\n' : ' ');
        }
        LevelDetector_Destroy(d);
    } else {
        return 2;
    }
    return 0;
}
