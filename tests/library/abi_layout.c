/* Prints what programs that were compiled with the public header rely on: layout of the records and
 * values of the constants. The test compares it with abi_32.txt or abi_64.txt, by the word size.
 * A difference there breaks programs that are in use: it needs another ZPR_VERSION_MAJOR. That the
 * functions keep their types, the compiler checks. */
#include <stdio.h>
#include <zpr_framehold.h>

#define RECORD(type) printf(#type " %u\n", (unsigned)sizeof(type))
#define FIELD(type, field)                                               \
    printf(#type "." #field " %u %u\n", (unsigned)offsetof(type, field), \
           (unsigned)sizeof(((type*)0)->field))
#define CONSTANT(name) printf(#name " %d\n", (int)(name))

static void (*const version)(ZPR_Version*) = ZPR_GetVersion;
static int (*const defaults)(ZPR_Param*) = ZPR_GetDefaultParam;
static int (*const memory)(const ZPR_Param*, uint32_t*) = ZPR_GetMemorySize;
static int (*const init)(void*, const ZPR_Param*, ZPR_Handle*) = ZPR_Init;
static int (*const deinit)(ZPR_Handle*) = ZPR_Deinit;
static int (*const reset)(ZPR_Handle) = ZPR_Reset;
static int (*const sensor)(ZPR_Handle, const ZPR_SensorData*) = ZPR_SetSensorData;
static int (*const stabilize)(ZPR_Handle, double, const ZPR_Image*, ZPR_Image*,
                              const ZPR_Param*) = ZPR_Stabilize;

int main(void) {
    RECORD(ZPR_Image);
    FIELD(ZPR_Image, format);
    FIELD(ZPR_Image, width);
    FIELD(ZPR_Image, height);
    FIELD(ZPR_Image, plane);
    FIELD(ZPR_Image, pitch);
    RECORD(ZPR_Param);
    FIELD(ZPR_Param, inputImage);
    FIELD(ZPR_Param, outputImage);
    FIELD(ZPR_Param, fieldOfView);
    FIELD(ZPR_Param, fieldOfViewMode);
    FIELD(ZPR_Param, readoutTime);
    FIELD(ZPR_Param, timeOffset);
    FIELD(ZPR_Param, reserved);
    FIELD(ZPR_Param, sensorMask);
    FIELD(ZPR_Param, cropPercent);
    FIELD(ZPR_Param, smoothingLevel);
    FIELD(ZPR_Param, delayFrames);
    RECORD(ZPR_Version);
    FIELD(ZPR_Version, major);
    FIELD(ZPR_Version, minor);
    FIELD(ZPR_Version, build);
    FIELD(ZPR_Version, revision);
    FIELD(ZPR_Version, text);
    FIELD(ZPR_Version, buildDate);
    FIELD(ZPR_Version, notice);
    RECORD(ZPR_SensorData);
    FIELD(ZPR_SensorData, type);
    FIELD(ZPR_SensorData, timestamp);
    FIELD(ZPR_SensorData, value);
    RECORD(ZPR_Handle);
    CONSTANT(ZPR_OK);
    CONSTANT(ZPR_ERR_INVALID_PARAM);
    CONSTANT(ZPR_ERR_SENSOR_TYPE);
    CONSTANT(ZPR_ERR_NO_MEMORY);
    CONSTANT(ZPR_FRAME_BUFFERED);
    CONSTANT(ZPR_FORMAT_SEMIPLANAR_1);
    CONSTANT(ZPR_FORMAT_SEMIPLANAR_2);
    CONSTANT(ZPR_FOV_WIDTH);
    CONSTANT(ZPR_FOV_HEIGHT);
    CONSTANT(ZPR_FOV_DIAGONAL);
    CONSTANT(ZPR_FOV_FOCAL_LENGTH);
    CONSTANT(ZPR_SENSOR_GRAVITY_1);
    CONSTANT(ZPR_SENSOR_GRAVITY_2);
    CONSTANT(ZPR_SENSOR_RATE_1);
    CONSTANT(ZPR_SENSOR_RATE_2);
    CONSTANT(ZPR_SENSOR_ROTATION_1);
    CONSTANT(ZPR_SENSOR_ROTATION_2);
    CONSTANT(ZPR_SENSOR_BIT(ZPR_SENSOR_ROTATION_2));
    return !(version && defaults && memory && init && deinit && reset && sensor && stabilize);
}
