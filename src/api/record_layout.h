#pragma once

// Callers build these records byte by byte on 32-bit ARM: their layout there is fixed.

#if defined(__arm__)

#include "zpr_framehold.h"

#include <cstddef>

#define ZPR_LAYOUT(record, field, offset) \
    static_assert(offsetof(record, field) == (offset), #record "." #field)

static_assert(sizeof(void*) == 4 && sizeof(int) == 4 && alignof(double) == 8);

static_assert(sizeof(ZPR_Image) == 44);
ZPR_LAYOUT(ZPR_Image, format, 0);
ZPR_LAYOUT(ZPR_Image, width, 4);
ZPR_LAYOUT(ZPR_Image, height, 8);
ZPR_LAYOUT(ZPR_Image, plane, 12);
ZPR_LAYOUT(ZPR_Image, pitch, 28);

static_assert(sizeof(ZPR_Param) == 160);
ZPR_LAYOUT(ZPR_Param, inputImage, 0);
ZPR_LAYOUT(ZPR_Param, outputImage, 44);
ZPR_LAYOUT(ZPR_Param, fieldOfView, 88);
ZPR_LAYOUT(ZPR_Param, fieldOfViewMode, 96);
ZPR_LAYOUT(ZPR_Param, readoutTime, 104);
ZPR_LAYOUT(ZPR_Param, timeOffset, 112);
ZPR_LAYOUT(ZPR_Param, reserved, 120);
ZPR_LAYOUT(ZPR_Param, sensorMask, 144);
ZPR_LAYOUT(ZPR_Param, cropPercent, 148);
ZPR_LAYOUT(ZPR_Param, smoothingLevel, 152);
ZPR_LAYOUT(ZPR_Param, delayFrames, 156);

static_assert(sizeof(ZPR_Version) == 28);
ZPR_LAYOUT(ZPR_Version, major, 0);
ZPR_LAYOUT(ZPR_Version, minor, 4);
ZPR_LAYOUT(ZPR_Version, build, 8);
ZPR_LAYOUT(ZPR_Version, revision, 12);
ZPR_LAYOUT(ZPR_Version, text, 16);
ZPR_LAYOUT(ZPR_Version, buildDate, 20);
ZPR_LAYOUT(ZPR_Version, notice, 24);

static_assert(sizeof(ZPR_SensorData) == 48);
ZPR_LAYOUT(ZPR_SensorData, type, 0);
ZPR_LAYOUT(ZPR_SensorData, timestamp, 8);
ZPR_LAYOUT(ZPR_SensorData, value, 16);

#undef ZPR_LAYOUT

#endif
