/*
 * What a camera app does, with files and pipes in place of a camera and its sensors:
 *
 *     ffmpeg -i walk.mp4 -f rawvideo -pix_fmt nv12 - |
 *         live 1280x720 1150 0.0243 0.0021 10 - events.txt - | ffplay -f rawvideo ...
 *
 * The frames are raw NV12, one after the other. The events are lines of text in the order in which
 * an app gets them, times in seconds on one clock, sensors in device axes:
 *
 *     gravity TIME X Y Z      m/s^2; at rest it points up
 *     rate TIME X Y Z         rad/s
 *     frame TIME              takes one of the frames
 *
 * Samples come before the frame that they belong to, up to the end of its readout. For every frame
 * that is read, one is written, of the same size.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zpr_framehold.h>

/* Each camera has its own: `framehold calibrate CLIP --motion LOG --snippet camera.c`. */
typedef struct Camera {
    double focalLength; /* pixels */
    double readoutTime; /* seconds, as all times */
    double timeOffset;
} Camera;

ZPR_Handle start(const ZPR_Image* image, const Camera* camera, int delayFrames) {
    ZPR_Param param = {0};
    ZPR_Handle stabilizer = NULL;
    ZPR_GetDefaultParam(&param);
    param.inputImage = *image;
    param.outputImage = *image;
    param.sensorMask = ZPR_SENSOR_BIT(ZPR_SENSOR_GRAVITY_1) | ZPR_SENSOR_BIT(ZPR_SENSOR_RATE_1);
    param.fieldOfViewMode = ZPR_FOV_FOCAL_LENGTH;
    param.fieldOfView = camera->focalLength;
    param.readoutTime = camera->readoutTime;
    param.timeOffset = camera->timeOffset;
    param.delayFrames = delayFrames;
    return ZPR_Init(NULL, &param, &stabilizer) == ZPR_OK ? stabilizer : NULL;
}

int onSensor(ZPR_Handle stabilizer, const ZPR_SensorData* sample) {
    return ZPR_SetSensorData(stabilizer, sample);
}

/* ZPR_OK: out is written. ZPR_FRAME_BUFFERED: the first delayFrames frames. */
int onFrame(ZPR_Handle stabilizer, double time, const ZPR_Image* in, ZPR_Image* out) {
    return ZPR_Stabilize(stabilizer, time, in, out, NULL);
}

static void fail(const char* what, const char* which) {
    fprintf(stderr, "live: %s%s\n", what, which);
    exit(1);
}

static FILE* openStream(const char* name, const char* mode) {
    FILE* stream = mode[0] == 'r' ? stdin : stdout;
    if (strcmp(name, "-") != 0) stream = fopen(name, mode);
    if (stream == NULL) fail("cannot open ", name);
    return stream;
}

static double number(const char* text) {
    char* end;
    const double value = strtod(text, &end);
    if (end == text || *end != '\0') fail("not a number: ", text);
    return value;
}

/* Both planes in one piece, without gaps between the rows. */
static size_t frameSize(const ZPR_Image* image) {
    return (size_t)image->width * (size_t)image->height * 3 / 2;
}

static ZPR_Image newFrame(int width, int height) {
    ZPR_Image image = {0};
    image.format = ZPR_FORMAT_SEMIPLANAR_1;
    image.width = width;
    image.height = height;
    image.pitch[0] = image.pitch[1] = width;
    image.plane[0] = malloc(frameSize(&image));
    if (image.plane[0] == NULL) fail("no memory for a frame", "");
    image.plane[1] = image.plane[0] + (size_t)width * (size_t)height;
    return image;
}

/* Stabilizes one frame and writes what comes out, if anything does. */
static void handleFrame(ZPR_Handle stabilizer, double time, const ZPR_Image* in, ZPR_Image* out,
                        FILE* steady) {
    const size_t luma = (size_t)out->width * (size_t)out->height;
    int result;
    memset(out->plane[0], 16, luma); /* black, for pixels without a source */
    memset(out->plane[1], 128, luma / 2);
    result = onFrame(stabilizer, time, in, out);
    if (result == ZPR_FRAME_BUFFERED) return;
    if (result != ZPR_OK) fail("a frame was refused", "");
    if (fwrite(out->plane[0], 1, frameSize(out), steady) != frameSize(out)) {
        fail("cannot write a frame", "");
    }
}

int main(int count, char** arguments) {
    FILE *frames, *events, *steady;
    Camera camera;
    ZPR_Handle stabilizer;
    ZPR_Image in, out;
    char line[256];
    double time = 0.0, period = 0.0;
    int width = 0, height = 0, delay, frame = 0, i;

    if (count != 9 || sscanf(arguments[1], "%dx%d", &width, &height) != 2 || width < 2 ||
        height < 2) {
        fail("usage: live WIDTHxHEIGHT FOCAL_LENGTH READOUT_TIME TIME_OFFSET DELAY ",
             "FRAMES EVENTS STEADY");
    }
    camera.focalLength = number(arguments[2]);
    camera.readoutTime = number(arguments[3]);
    camera.timeOffset = number(arguments[4]);
    delay = (int)number(arguments[5]);
    frames = openStream(arguments[6], "rb");
    events = openStream(arguments[7], "r");
    steady = openStream(arguments[8], "wb");
    in = newFrame(width, height);
    out = newFrame(width, height);
    stabilizer = start(&in, &camera, delay);
    if (stabilizer == NULL) fail("a parameter is out of its range", "");

    while (fgets(line, sizeof line, events) != NULL) {
        ZPR_SensorData sample = {0};
        char kind[16];
        const int fields = sscanf(line, "%15s %lf %lf %lf %lf", kind, &sample.timestamp,
                                  &sample.value[0], &sample.value[1], &sample.value[2]);
        if (fields == 5 && strcmp(kind, "gravity") == 0) {
            sample.type = ZPR_SENSOR_GRAVITY_1;
        } else if (fields == 5 && strcmp(kind, "rate") == 0) {
            sample.type = ZPR_SENSOR_RATE_1;
        } else if (fields == 2 && strcmp(kind, "frame") == 0) {
            if (fread(in.plane[0], 1, frameSize(&in), frames) != frameSize(&in)) break;
            if (frame++ > 0) period = sample.timestamp - time;
            time = sample.timestamp;
            handleFrame(stabilizer, time, &in, &out, steady);
            continue;
        } else {
            fail("not an event: ", line);
        }
        if (onSensor(stabilizer, &sample) != ZPR_OK) fail("a sample was refused: ", line);
    }

    /* The end: the last frame again, so that the ones still delayed come out. */
    for (i = 1; i <= delay && frame > 0; ++i) {
        handleFrame(stabilizer, time + i * period, &in, &out, steady);
    }
    ZPR_Deinit(&stabilizer);
    free(in.plane[0]);
    free(out.plane[0]);
    if (fclose(steady) != 0) fail("cannot write ", arguments[8]);
    return 0;
}
