/*
 * Feeds the library what the Java tests feed the binding (ReferenceRun.java), the same numbers.
 * reference_run               prints of each frame: delay, in place or not, number, checksum
 * reference_run time DELAY    for each line that it reads, prints what 60 frames take: nanoseconds,
 *                             and the calling thread's nanoseconds of processor time
 */
#define _POSIX_C_SOURCE 200809L
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <zpr_framehold.h>

enum { WIDTH = 352, HEIGHT = 240, PITCH = 384, FRAMES = 200, TIMED_FRAMES = 60, RING = 8 };

/* -1 to 1 and back, as n grows by 200. */
static double triangle(int n) {
    const int m = n % 200;
    return ((m < 100 ? m : 200 - m) - 50) / 50.0;
}

/* Feeds all samples up to a time; *next is the number of the first. */
static void feed(ZPR_Handle handle, double end, int* next) {
    for (; 1.0 + *next * 0.005 <= end; ++*next) {
        const int i = *next;
        ZPR_SensorData gravity = {0};
        ZPR_SensorData rate = {0};
        gravity.type = ZPR_SENSOR_GRAVITY_1;
        gravity.timestamp = 1.0 + i * 0.005;
        gravity.value[0] = 0.1 * triangle(i * 3);
        gravity.value[1] = 9.81;
        rate.type = ZPR_SENSOR_RATE_1;
        rate.timestamp = gravity.timestamp;
        rate.value[0] = 0.25 * triangle(i * 7);
        rate.value[1] = 0.20 * triangle(i * 5 + 30);
        rate.value[2] = 0.15 * triangle(i * 11 + 60);
        ZPR_SetSensorData(handle, &gravity);
        ZPR_SetSensorData(handle, &rate);
    }
}

/* Draws a frame whose chroma follows its luma without a gap. */
static void draw(uint8_t* bytes, int width, int height, int pitch, int frame) {
    int x, y;
    for (y = 0; y < height * 3 / 2; ++y) {
        for (x = 0; x < pitch; ++x) {
            const int value = x < width ? x * x / 64 + y * (frame % 7 + 3) / 4 + frame * 3 : 0;
            bytes[(size_t)y * (size_t)pitch + (size_t)x] = (uint8_t)value;
        }
    }
}

static uint64_t checksum(const ZPR_Image* image) {
    uint64_t sum = 0xcbf29ce484222325u;
    int plane, x, y;
    for (plane = 0; plane < 2; ++plane) {
        for (y = 0; y < image->height / (plane + 1); ++y) {
            const uint8_t* row = image->plane[plane] + (ptrdiff_t)y * image->pitch[plane];
            for (x = 0; x < image->width; ++x) sum = (sum ^ row[x]) * 0x100000001b3u;
        }
    }
    return sum;
}

static ZPR_Image image(uint8_t* bytes, int width, int height, int pitch) {
    ZPR_Image made = {0};
    made.format = ZPR_FORMAT_SEMIPLANAR_1;
    made.width = width;
    made.height = height;
    made.pitch[0] = made.pitch[1] = pitch;
    made.plane[0] = bytes;
    if (bytes) made.plane[1] = bytes + (ptrdiff_t)pitch * height;
    return made;
}

static ZPR_Handle start(int width, int height, int pitch, int delay) {
    ZPR_Param param;
    ZPR_Handle handle = NULL;
    memset(&param, 0, sizeof param);
    ZPR_GetDefaultParam(&param);
    param.inputImage = image(NULL, width, height, pitch);
    param.outputImage = image(NULL, width, height, width);
    param.fieldOfViewMode = ZPR_FOV_FOCAL_LENGTH;
    param.fieldOfView = width * 0.75;
    param.readoutTime = 0.02;
    param.timeOffset = 0.0;
    param.sensorMask = ZPR_SENSOR_BIT(ZPR_SENSOR_GRAVITY_1) | ZPR_SENSOR_BIT(ZPR_SENSOR_RATE_1);
    param.delayFrames = delay;
    if (ZPR_Init(NULL, &param, &handle) != ZPR_OK) exit(1);
    return handle;
}

static void printChecksums(int delay, int inPlace) {
    ZPR_Handle handle = start(WIDTH, HEIGHT, PITCH, delay);
    uint8_t* in = calloc((size_t)PITCH * HEIGHT * 2, 1);
    uint8_t* out = calloc((size_t)WIDTH * HEIGHT * 2, 1);
    int next = 0;
    int written = 0;
    int frame;
    ZPR_Image target = image(out, WIDTH, HEIGHT, WIDTH);
    for (frame = 0; frame < FRAMES; ++frame) {
        const double time = 1.0 + frame / 30.0;
        ZPR_Image source = image(in, WIDTH, HEIGHT, PITCH);
        feed(handle, time + 0.02, &next);
        draw(in, WIDTH, HEIGHT, PITCH, frame);
        if (ZPR_Stabilize(handle, time, &source, inPlace ? &source : &target, NULL) == ZPR_OK) {
            printf("%d %d %d %016" PRIx64 "\n", delay, inPlace, written++,
                   checksum(inPlace ? &source : &target));
        }
    }
    while (ZPR_Stabilize(handle, 0, NULL, &target, NULL) == ZPR_OK) {
        printf("%d %d %d %016" PRIx64 "\n", delay, inPlace, written++, checksum(&target));
    }
    ZPR_Deinit(&handle);
    free(out);
    free(in);
}

static int64_t nanoseconds(clockid_t clock) {
    struct timespec now;
    clock_gettime(clock, &now);
    return (int64_t)now.tv_sec * 1000000000 + now.tv_nsec;
}

static void answerWithTimes(int delay) {
    enum { W = 1280, H = 720 };
    ZPR_Handle handle = start(W, H, W, delay);
    uint8_t* in[RING];
    uint8_t* out = calloc((size_t)W * H * 3 / 2, 1);
    int next = 0;
    int frame = 0;
    int i;
    for (i = 0; i < RING; ++i) {
        in[i] = calloc((size_t)W * H * 3 / 2, 1);
        draw(in[i], W, H, W, i);
    }
    while (getchar() != EOF) {
        const int64_t threadBegin = nanoseconds(CLOCK_THREAD_CPUTIME_ID);
        const int64_t begin = nanoseconds(CLOCK_MONOTONIC);
        for (i = 0; i < TIMED_FRAMES; ++i, ++frame) {
            const double time = 1.0 + frame / 30.0;
            ZPR_Image source = image(in[frame % RING], W, H, W);
            ZPR_Image target = image(out, W, H, W);
            feed(handle, time + 0.02, &next);
            ZPR_Stabilize(handle, time, &source, &target, NULL);
        }
        printf("%" PRId64 " %" PRId64 "\n", nanoseconds(CLOCK_MONOTONIC) - begin,
               nanoseconds(CLOCK_THREAD_CPUTIME_ID) - threadBegin);
        fflush(stdout);
    }
    for (i = 0; i < RING; ++i) free(in[i]);
    free(out);
    ZPR_Deinit(&handle);
}

int main(int argc, char** argv) {
    if (argc == 3 && strcmp(argv[1], "time") == 0) {
        answerWithTimes(atoi(argv[2]));
        return 0;
    }
    printChecksums(0, 0);
    printChecksums(0, 1);
    printChecksums(15, 0);
    printChecksums(15, 1);
    return 0;
}
