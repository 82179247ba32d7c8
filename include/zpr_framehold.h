/**
 * @file
 * @brief Framehold: real-time video stabilization for phone cameras.
 *
 * The caller feeds one instance two streams, motion-sensor samples and camera frames, and gets a
 * stabilized frame of a fixed size for every frame it gave. Typical use:
 *
 * @code
 * ZPR_Param param;
 * ZPR_Handle handle = NULL;
 * memset(&param, 0, sizeof param);
 * ZPR_GetDefaultParam(&param);
 * ... fill in param: images, fieldOfView, readoutTime, timeOffset, sensorMask ...
 * ZPR_Init(NULL, &param, &handle);
 * for (each frame) {
 *     ZPR_SetSensorData(handle, ...);  for every sample up to the end of the frame's readout
 *     ZPR_Stabilize(handle, time, &input, &output, NULL);
 * }
 * while (ZPR_Stabilize(handle, 0, NULL, &output, NULL) == ZPR_OK) {
 *     ... the frames that were still delayed ...
 * }
 * ZPR_Deinit(&handle);
 * @endcode
 *
 * docs/integrating.md shows it step by step, with the arithmetic behind the limits named here.
 *
 * CLOCK. All times are doubles in seconds on one clock of the caller's choice, shared by frames and
 * sensor samples. Times should be positive on that clock: a gravity sample before time 0 does not
 * count as received, and a frame whose corrected time is below 0 (or not a number) is treated as
 * taken at time 0.
 *
 * AXES. Device axes follow the Android convention: hold the phone upright, screen towards you; x
 * points right, y up, z out of the screen. The back camera looks along -z. With the sensor mounted
 * the usual way, the picture's x axis (to the right) is device -y and its y axis (downwards) is
 * device -x. Angular rates are positive counter-clockwise when seen from the positive end of their
 * axis (right-hand rule). A device at rest, lying face up, reports gravity (0, 0, +9.81).
 * Orientations are unit quaternions that rotate device coordinates into world coordinates; the
 * world's z axis points up.
 *
 * THREADS. An instance is used by one thread at a time: the caller serialises all calls on one
 * handle, ZPR_SetSensorData included. Different instances are independent of each other. Each has
 * one worker thread for every configured processor, at most 4, with a stack of 64 KB; they start in
 * ZPR_Init, never call back, take no signals but those of their own faults, and are joined in
 * ZPR_Deinit.
 *
 * FORK. A child process has no workers: there, no function may be called with a handle that was
 * made before the fork, ZPR_Deinit included; leave it alone. New instances work as in any process.
 * The parent's instances are not affected.
 *
 * ERRORS. Functions return one of the codes below. Unless a function says otherwise, a call that
 * returns an error code has changed nothing. No exception leaves the library, and nothing is
 * printed except one line, "Task lost", if the internal task queue is ever misused.
 */
#ifndef ZPR_FRAMEHOLD_H
#define ZPR_FRAMEHOLD_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

/**
 * @name Version of this header
 * Fits every library of the same ZPR_VERSION_MAJOR; ZPR_GetVersion gives the library's numbers.
 * @{
 */
#define ZPR_VERSION_MAJOR 3       /**< ZPR_Version::major */
#define ZPR_VERSION_MINOR 0       /**< ZPR_Version::minor */
#define ZPR_VERSION_BUILD 12021   /**< ZPR_Version::build */
#define ZPR_VERSION_REVISION 9425 /**< ZPR_Version::revision */
/** @} */

/** Marks the functions that the library exports. */
#if defined(__GNUC__)
#define ZPR_API __attribute__((visibility("default")))
#else
#define ZPR_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Return codes. */
enum {
    ZPR_OK = 0,                /**< success; for ZPR_Stabilize: an output frame was written */
    ZPR_ERR_INVALID_PARAM = 2, /**< null pointer, bad parameter or image, or nothing to drain */
    ZPR_ERR_SENSOR_TYPE = 3,   /**< sensor type outside 1..6 or not enabled in sensorMask */
    ZPR_ERR_NO_MEMORY = 4,     /**< an allocation failed */
    ZPR_FRAME_BUFFERED = 10    /**< the frame was taken into the delay ring; no output yet */
};

/**
 * @brief Image formats.
 *
 * Both are two-plane 4:2:0 layouts: plane 0 holds `height` rows of `width` luma bytes, plane 1
 * holds `height` / 2 rows of `width` bytes of interleaved chroma pairs. The order of the two bytes
 * in a pair is carried through and never interpreted, so the two codes are accepted wherever either
 * is and mean the same to the library. No other format is accepted.
 */
enum {
    ZPR_FORMAT_SEMIPLANAR_1 = 0x801, /**< chroma pairs in one order */
    ZPR_FORMAT_SEMIPLANAR_2 = 0x802  /**< chroma pairs in the other order */
};

/** Meaning of ZPR_Param::fieldOfView. */
enum {
    ZPR_FOV_WIDTH = 1,       /**< degrees across the input width */
    ZPR_FOV_HEIGHT = 2,      /**< degrees across the input height */
    ZPR_FOV_DIAGONAL = 3,    /**< degrees across the input diagonal */
    ZPR_FOV_FOCAL_LENGTH = 4 /**< not an angle: the focal length in input pixels */
};

/** Sensor sample types, see ZPR_SensorData. */
enum {
    ZPR_SENSOR_GRAVITY_1 = 1,  /**< gravity */
    ZPR_SENSOR_GRAVITY_2 = 2,  /**< another name for the same input */
    ZPR_SENSOR_RATE_1 = 3,     /**< angular rate */
    ZPR_SENSOR_RATE_2 = 4,     /**< another name for the same input */
    ZPR_SENSOR_ROTATION_1 = 5, /**< orientation; used before all others */
    ZPR_SENSOR_ROTATION_2 = 6  /**< orientation; used if type 5 is not enabled */
};

/** The bit of ZPR_Param::sensorMask that enables a sensor type. */
#define ZPR_SENSOR_BIT(type) (1 << ((type)-1))

/** One image: a description, and for frames the planes, which the caller owns. */
typedef struct ZPR_Image {
    uint32_t format;   /**< ZPR_FORMAT_SEMIPLANAR_1 or _2 */
    int32_t width;     /**< pixels, positive and even */
    int32_t height;    /**< pixels, positive and even */
    uint8_t* plane[4]; /**< [0] luma, [1] chroma pairs, of any alignment; the others are unused */
    int32_t pitch[4];  /**< bytes from one row to the next of plane [0] and [1] */
} ZPR_Image;

/**
 * @brief Parameters of an instance. Start from ZPR_GetDefaultParam; copied whole by ZPR_Init.
 *
 * The defaults of fieldOfView, readoutTime and timeOffset are those of one camera. Every phone has
 * its own, for each camera and mode; `framehold calibrate` finds them from a clip.
 */
typedef struct ZPR_Param {
    /** Every input frame. No default. pitch[0] is the row pitch of BOTH planes of every frame that
     * goes through the delay ring (delayFrames > 0) or is stabilized in place, and must then be at
     * least the width. It sizes the ring's memory in any case: keep it above 0, or ZPR_Init may
     * find no memory. Plane pointers are not used. */
    ZPR_Image inputImage;
    /** Every output frame. No default. pitch[0] and pitch[1] are used for output in place only.
     * Plane pointers are not used. */
    ZPR_Image outputImage;
    /** Angle of view in degrees over the dimension that fieldOfViewMode names, above 0 and at most
     * 180; in mode 4 the focal length in input pixels, above 0. Default 65.4002. */
    double fieldOfView;
    /** 1 to 4, see ZPR_FOV_WIDTH; a fieldOfView above 180 needs mode 4. Default 1. */
    int32_t fieldOfViewMode;
    /** Time in seconds from the exposure of a frame's first row to that of its last (rolling
     * shutter), at least 0. Default 0.0299. */
    double readoutTime;
    /** Seconds added to every frame timestamp to bring it to the sensors' clock and to the moment
     * the first row is read. Any value. Default -0.0411. */
    double timeOffset;
    /** Not read. */
    uint8_t reserved[24];
    /** Enabled sample types, an OR of ZPR_SENSOR_BIT, 1 to 63. The default 0 is refused: the caller
     * must choose. Orientations come from type 5 if enabled, else from 6, else from the fusion of
     * rates (3, 4) with gravity (1, 2), which needs both kinds: gravity alone or rates alone give
     * none, and every frame then gets the plain crop. */
    int32_t sensorMask;
    /** Share of the input width and height that the output shows, in percent, 1 to 100; the rest is
     * the margin for corrections. Default 80. What is shown is central for outputs of the input's
     * size, and for those of exactly cropPercent of it. Otherwise its centre lies
     * (input - output) / 2 x (input x cropPercent / (100 x output) - 1) input pixels right of and
     * below the input's: with an output of 90 % and cropPercent 100 it reaches out of the input,
     * with one of 50 % and cropPercent 80 far out of it. */
    int32_t cropPercent;
    /** Strength of the smoothing, 1 (follow the hand) to 10 (strongest). Default 9. */
    int32_t smoothingLevel;
    /** Frames held back so that the smoother sees the coming motion, at least 0. Default 0. The
     * smoother takes frames to be 1/30 s apart.
     *
     * The ring of orientations holds 200 x (delayFrames / 30 + 1) samples, rounded up to a power of
     * two of at least 256. They must reach back from the newest one fed to 1/30 s before the frame
     * being written: at 30 frames per second, for about 3400 samples per second with no delay, 740
     * with 8 frames, 890 with 15, 475 with 30. Average faster sensors down before feeding them. At
     * higher rates the smoothing suffers first; then, with no delay, each frame gets the plain crop,
     * and with delay no frame shows a picture, from the first one on: the input's top left pixels
     * fill all but the right end. Where rates grow later, the last correction found stays. */
    int32_t delayFrames;
} ZPR_Param;

/** Version record. The texts are static and never freed. */
typedef struct ZPR_Version {
    int32_t major;         /**< first of the four numbers */
    int32_t minor;         /**< second */
    int32_t build;         /**< third */
    int32_t revision;      /**< fourth */
    const char* text;      /**< name and numbers */
    const char* buildDate; /**< as text */
    const char* notice;    /**< rights notice */
} ZPR_Version;

/**
 * @brief One motion-sensor sample.
 *
 * What value[] holds:
 * - types 1, 2: gravity (accelerometer) along device x, y, z in m/s^2; at rest it points up.
 *   Samples whose length is 3 % or more off 9.81 never correct the tilt: with wrong units it
 *   drifts, without an error.
 * - types 3, 4: angular rate about device x, y, z in rad/s. It counts for the whole time since the
 *   sample before it, however long: see ZPR_Reset.
 * - types 5, 6: orientation quaternion x, y, z, w (device to world), of unit length. Consecutive
 *   ones must not change sign, or the picture moves by tens of pixels for a second: negate a sample
 *   whose dot product with the one fed before it is negative.
 *
 * Samples of one kind should come in order of time. A sample whose time or used values are not
 * finite is dropped.
 */
typedef struct ZPR_SensorData {
    int32_t type;     /**< 1 to 6 */
    double timestamp; /**< seconds, on the clock of the frames */
    double value[4];  /**< see above */
} ZPR_SensorData;

/** An instance. Created by ZPR_Init, released by ZPR_Deinit. */
typedef struct ZPR_Instance* ZPR_Handle;

/**
 * @brief Copies the version record.
 * @param[out] out  where to; null does nothing
 */
ZPR_API void ZPR_GetVersion(ZPR_Version* out);

/**
 * @brief Fills in the defaults of all but the image descriptions.
 *
 * Sets sensorMask, delayFrames, fieldOfView, fieldOfViewMode, readoutTime, timeOffset, cropPercent
 * and smoothingLevel. The image descriptions, `reserved` and padding keep what they held: the
 * caller fills the images and sensorMask, and replaces what is one camera's (see ZPR_Param).
 *
 * @param[out] param  the record
 * @return ZPR_ERR_INVALID_PARAM if `param` is null, else ZPR_OK
 */
ZPR_API int ZPR_GetDefaultParam(ZPR_Param* param);

/**
 * @brief Computes the memory that an instance needs when it comes from an arena (see ZPR_Init).
 *
 * The figure holds 20 MiB of headroom, out of which one more frame of the ring has to fit: for
 * input frames above about 13 megapixels give the arena pitch x height x 3 / 2 bytes more. It is
 * right while inputImage.pitch[0] x height x delayFrames is below 2^31; beyond that the product
 * wraps. An arena holds at most 2 GiB: larger rings need the process heap.
 *
 * @param[in]  param  the instance's parameters
 * @param[out] size   bytes; UINT32_MAX for what 32 bits cannot say
 * @return ZPR_ERR_INVALID_PARAM, with *size left alone, if `param` or `size` is null or a parameter
 *         is out of its range; else ZPR_OK
 */
ZPR_API int ZPR_GetMemorySize(const ZPR_Param* param, uint32_t* size);

/**
 * @brief Creates an instance.
 *
 * @param[in] memory  null to use the process heap; or the address of a region that ZPR_FormatArena
 *                    has formatted. The region belongs to the caller, serves one instance at a
 *                    time, and must stay until ZPR_Deinit; it is then as it was before and can be
 *                    used again. The instance's large buffers lie in it; some small objects use the
 *                    heap in either case.
 * @param[in] param   copied; the caller's record is not needed afterwards
 * @param[out] out    the instance, which the caller releases with ZPR_Deinit; left alone on errors
 * @return tested in this order:
 * - ZPR_ERR_INVALID_PARAM: `param` or `out` is null, or a parameter is out of its range
 * - ZPR_ERR_NO_MEMORY: memory or threads are exhausted; everything taken has been given back
 * - ZPR_OK
 */
ZPR_API int ZPR_Init(void* memory, const ZPR_Param* param, ZPR_Handle* out);

/**
 * @brief Releases an instance. Frames still delayed are discarded.
 * @param[in,out] handle  the instance, set to null; a null `handle` or *handle does nothing
 * @return ZPR_OK
 */
ZPR_API int ZPR_Deinit(ZPR_Handle* handle);

/**
 * @brief Starts over with the next frame, as after ZPR_Init.
 *
 * Delayed frames and buffered sensor samples are forgotten, the smoothing begins anew. The fused
 * orientation and a changed smoothing level stay, and the next rate (types 3, 4) is still
 * integrated from the one before the reset: over a gap of seconds that turns the orientation
 * anywhere, and the picture drifts by tens of pixels until gravity has righted it. Keep feeding
 * samples while no frames come, or make a new instance.
 *
 * @param[in] handle  the instance
 * @return ZPR_ERR_INVALID_PARAM if `handle` is null, else ZPR_OK
 */
ZPR_API int ZPR_Reset(ZPR_Handle handle);

/**
 * @brief Takes one sensor sample.
 *
 * Give every sample up to the end of a frame's readout before that frame, oldest first. Samples
 * beyond it let the smoother look ahead, but push old ones out of the ring (see
 * ZPR_Param::delayFrames): at 200 samples per second and with no delay they may be a second ahead
 * of the frames. Never feed a whole log first. Rates count from the first gravity sample on, so
 * feed gravity first.
 *
 * @param[in] handle  the instance
 * @param[in] sample  the sample; not needed after the call
 * @return tested in this order:
 * - ZPR_ERR_INVALID_PARAM: `sample` or `handle` is null
 * - ZPR_ERR_SENSOR_TYPE: sample->type is outside 1..6, or not enabled in sensorMask
 * - ZPR_ERR_NO_MEMORY: the first sample of its kind could not be buffered for lack of memory
 * - ZPR_OK: taken (or dropped, if not finite)
 */
ZPR_API int ZPR_SetSensorData(ZPR_Handle handle, const ZPR_SensorData* sample);

/**
 * @brief Takes one frame and writes one stabilized frame; or, with a null `input`, drains one frame
 *        from the delay ring.
 *
 * A frame without orientation data (none fed, or not up to its time) is rendered with the plain
 * crop and zoom. Drained frames look ahead from where draining began rather than from themselves,
 * which can show as small jumps: to end a recording smoothly, give the last frame again,
 * delayFrames times and at times that go on, instead of draining.
 *
 * @param[in] handle     the instance
 * @param[in] timestamp  capture time of `input` in seconds; not used when draining
 * @param[in] input   the frame; format, width and height must be those of ZPR_Param::inputImage
 *     (either format code will do). With delayFrames > 0 or output in place it is copied: the
 *     planes must hold inputImage.pitch[0] x height and inputImage.pitch[0] x height / 2 bytes,
 *     laid out with that pitch, and input->pitch is not looked at. Otherwise it is read with its
 *     own pitches, each at least the width. Not needed after the call.
 * @param[in,out] output  where the frame goes. The caller sets planes, pitches (each at least
 *     outputImage.width) and size; `format` is ignored. With an input the size is at most the
 *     input's, also while frames are buffered. outputImage.width pixels of `height` rows are
 *     written, but no more than outputImage.height rounded up to a multiple of 128, as far as the
 *     correction reaches: pixels that have no source keep what they held. With a width or height
 *     of 0 or below, nothing is written. Planes must not overlap those of `input`, unless the two
 *     are the same record.
 *     In place (output == input): the frame is copied first, then the record is rewritten: width,
 *     height and pitches from ZPR_Param::outputImage (each pitch at least its width), plane[1] =
 *     plane[0] + pitch[0] x (height rounded up to a multiple of 32); the buffer behind plane[0]
 *     must be large enough for that. Refill the record before it is used as an input again.
 * @param[in] update  null; or a parameter record of which only smoothingLevel is read (not
 *     validated: below 1 counts as 1, above 10 as 10) and used from this frame on
 * @return tested in this order:
 * - ZPR_ERR_INVALID_PARAM: `handle` or `output` is null; nothing to drain; input format unknown;
 *   input smaller than output; input size not that of inputImage; an input plane is null; an input
 *   pitch (inputImage.pitch[0] where the frame is copied) is below the width or too large for the
 *   address space; where a frame is to be written, the same of the output (of outputImage's pitches
 *   in place), or its height is odd
 * - ZPR_ERR_NO_MEMORY: no memory for the frame's correction or the sensor buffer
 * - ZPR_FRAME_BUFFERED: one of the first delayFrames frames since ZPR_Init or ZPR_Reset: taken,
 *   `output` was not touched
 * - ZPR_OK: *output holds the oldest frame not yet given back: with an input, the one taken
 *   delayFrames calls before, or less after draining
 */
ZPR_API int ZPR_Stabilize(ZPR_Handle handle, double timestamp, const ZPR_Image* input,
                          ZPR_Image* output, const ZPR_Param* update);

/**
 * @brief Formats a memory region as an arena for ZPR_Init: one free block between an 8-byte header
 *        and an 8-byte end mark.
 *
 * What the region held is lost. Nothing else is needed to dispose of it.
 *
 * @param[out] region  at least 20 bytes, aligned to 4 bytes
 * @param[in] size     bytes in the region; a remainder below 4, and whatever exceeds 2 GiB, is not
 *                     used
 * @return ZPR_ERR_INVALID_PARAM, with nothing written, if `region` is null or misaligned or `size`
 *         is too small; else ZPR_OK
 */
static inline int ZPR_FormatArena(void* region, size_t size) {
    const int32_t free_mark = 0;
    const int32_t end_mark[2] = {-1, 1};
    int32_t payload;
    unsigned char* bytes = (unsigned char*)region;
    if (!region || ((uintptr_t)region & 3u) != 0 || size < 20) {
        return ZPR_ERR_INVALID_PARAM;
    }
    size -= 16;
    payload = size > 0x7ffffffcu ? 0x7ffffffc : (int32_t)(size & ~(size_t)3);
    memcpy(bytes, &payload, 4);
    memcpy(bytes + 4, &free_mark, 4);
    memcpy(bytes + 8 + payload, end_mark, 8);
    return ZPR_OK;
}

#ifdef __cplusplus
}
#endif

#endif /* ZPR_FRAMEHOLD_H */
