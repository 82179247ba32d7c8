// The functions of zpr.framehold.Native. Java has tested sizes and ranges; what only addresses tell,
// whether planes overlap, is tested here.
#include "zpr_framehold.h"

#include <cstddef>
#include <cstdint>

#include <jni.h>

namespace {

constexpr jint kOverlap = -1;

/// Numbers of Stabilizer.Parameters, in its order.
struct Numbers {
    jdouble reals[3];
    jint integers[12];
};

Numbers numbersOf(JNIEnv* env, jdoubleArray reals, jintArray integers) {
    Numbers n{};
    env->GetDoubleArrayRegion(reals, 0, 3, n.reals);
    env->GetIntArrayRegion(integers, 0, 12, n.integers);
    return n;
}

ZPR_Param paramOf(const Numbers& n) {
    const jint* i = n.integers;
    ZPR_Param param{};
    param.fieldOfView = n.reals[0];
    param.readoutTime = n.reals[1];
    param.timeOffset = n.reals[2];
    param.fieldOfViewMode = i[0];
    param.sensorMask = i[1];
    param.cropPercent = i[2];
    param.smoothingLevel = i[3];
    param.delayFrames = i[4];
    param.inputImage = {ZPR_FORMAT_SEMIPLANAR_1, i[5], i[6], {}, {i[7], i[7]}};
    param.outputImage = {ZPR_FORMAT_SEMIPLANAR_1, i[8], i[9], {}, {i[10], i[11]}};
    return param;
}

uint8_t* addressOf(JNIEnv* env, jobject buffer) {
    return static_cast<uint8_t*>(env->GetDirectBufferAddress(buffer));
}

ZPR_Handle handleOf(jlong handle) {
    return reinterpret_cast<ZPR_Handle>(static_cast<intptr_t>(handle));
}

struct Bytes {
    uintptr_t begin;
    uintptr_t end;

    bool overlaps(const Bytes& other) const { return begin < other.end && other.begin < end; }
};

/// Bytes from the first pixel of a plane to its last.
Bytes bytesOf(const ZPR_Image& image, int plane) {
    const auto begin = reinterpret_cast<uintptr_t>(image.plane[plane]);
    const auto rows = static_cast<size_t>(image.height / (plane + 1));
    const size_t size = (rows - 1) * static_cast<size_t>(image.pitch[plane]);
    return {begin, begin + size + static_cast<size_t>(image.width)};
}

bool isSeparate(const ZPR_Image* input, const ZPR_Image& output) {
    const Bytes luma = bytesOf(output, 0);
    const Bytes chroma = bytesOf(output, 1);
    if (luma.overlaps(chroma)) return false;
    for (int plane = 0; input != nullptr && plane < 2; ++plane) {
        const Bytes in = bytesOf(*input, plane);
        if (in.overlaps(luma) || in.overlaps(chroma)) return false;
    }
    return true;
}

/// Has the library stabilize with this smoothing level, 0 for the one before.
jint run(jlong handle, jdouble timestamp, jint level, const ZPR_Image* input, ZPR_Image* output) {
    ZPR_Param update{};
    update.smoothingLevel = level;
    return ZPR_Stabilize(handleOf(handle), timestamp, input, output, level > 0 ? &update : nullptr);
}

jstring version(JNIEnv* env, jclass) {
    ZPR_Version record{};
    ZPR_GetVersion(&record);
    return env->NewStringUTF(record.text);
}

void defaults(JNIEnv* env, jclass, jdoubleArray reals, jintArray integers) {
    ZPR_Param param{};
    ZPR_GetDefaultParam(&param);
    const jdouble r[] = {param.fieldOfView, param.readoutTime, param.timeOffset};
    const jint i[] = {param.fieldOfViewMode, param.sensorMask, param.cropPercent,
                      param.smoothingLevel, param.delayFrames};
    env->SetDoubleArrayRegion(reals, 0, 3, r);
    env->SetIntArrayRegion(integers, 0, 5, i);
}

jint check(JNIEnv* env, jclass, jdoubleArray reals, jintArray integers) {
    const ZPR_Param param = paramOf(numbersOf(env, reals, integers));
    uint32_t size = 0;
    return ZPR_GetMemorySize(&param, &size);
}

jint create(JNIEnv* env, jclass, jdoubleArray reals, jintArray integers, jlongArray out) {
    const ZPR_Param param = paramOf(numbersOf(env, reals, integers));
    ZPR_Handle handle = nullptr;
    const jint code = ZPR_Init(nullptr, &param, &handle);
    const jlong value = reinterpret_cast<intptr_t>(handle);
    env->SetLongArrayRegion(out, 0, 1, &value);
    return code;
}

void destroy(JNIEnv*, jclass, jlong handle) {
    ZPR_Handle h = handleOf(handle);
    ZPR_Deinit(&h);
}

void reset(JNIEnv*, jclass, jlong handle) { ZPR_Reset(handleOf(handle)); }

jint addSample(JNIEnv*, jclass, jlong handle, jint type, jdouble timestamp, jdouble x, jdouble y,
               jdouble z, jdouble w) {
    const ZPR_SensorData sample{type, timestamp, {x, y, z, w}};
    return ZPR_SetSensorData(handleOf(handle), &sample);
}

jint stabilize(JNIEnv* env, jclass, jlong handle, jdouble timestamp, jint level, jobject inLuma,
               jint inLumaPitch, jobject inChroma, jint inChromaPitch, jint inWidth, jint inHeight,
               jobject outLuma, jint outLumaPitch, jobject outChroma, jint outChromaPitch,
               jint outWidth, jint outHeight) {
    ZPR_Image output{ZPR_FORMAT_SEMIPLANAR_1,
                     outWidth,
                     outHeight,
                     {addressOf(env, outLuma), addressOf(env, outChroma)},
                     {outLumaPitch, outChromaPitch}};
    ZPR_Image frame{};
    const ZPR_Image* input = nullptr;
    if (inLuma != nullptr) {
        frame = {ZPR_FORMAT_SEMIPLANAR_1,
                 inWidth,
                 inHeight,
                 {addressOf(env, inLuma), addressOf(env, inChroma)},
                 {inLumaPitch, inChromaPitch}};
        input = &frame;
    }
    return isSeparate(input, output) ? run(handle, timestamp, level, input, &output) : kOverlap;
}

jint stabilizeInPlace(JNIEnv* env, jclass, jlong handle, jdouble timestamp, jint level,
                      jobject luma, jint lumaPitch, jobject chroma, jint chromaPitch, jint width,
                      jint height) {
    ZPR_Image image{ZPR_FORMAT_SEMIPLANAR_1,
                    width,
                    height,
                    {addressOf(env, luma), addressOf(env, chroma)},
                    {lumaPitch, chromaPitch}};
    return run(handle, timestamp, level, &image, &image);
}

jlong distance(JNIEnv* env, jclass, jobject a, jobject b) {
    return static_cast<jlong>(reinterpret_cast<intptr_t>(addressOf(env, b)) -
                              reinterpret_cast<intptr_t>(addressOf(env, a)));
}

void copyPlane(JNIEnv* env, jclass, jobject from, jint fromPitch, jint fromPixel, jobject to,
               jint toOffset, jint toPitch, jint toPixel, jint width, jint height) {
    const uint8_t* source = addressOf(env, from);
    uint8_t* target = addressOf(env, to) + toOffset;
    for (ptrdiff_t y = 0; y < height; ++y) {
        const uint8_t* in = source + y * fromPitch;
        uint8_t* out = target + y * toPitch;
        for (ptrdiff_t x = 0; x < width; ++x) out[x * toPixel] = in[x * fromPixel];
    }
}

template <class Function>
JNINativeMethod method(const char* name, const char* signature, Function* function) {
    // JNI's declarations are not const.
    return {const_cast<char*>(name), const_cast<char*>(signature),
            reinterpret_cast<void*>(function)};
}

}  // namespace

extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void*) {
#define BUFFER "Ljava/nio/ByteBuffer;"
    const JNINativeMethod methods[] = {
        method("version", "()Ljava/lang/String;", version),
        method("defaults", "([D[I)V", defaults),
        method("check", "([D[I)I", check),
        method("create", "([D[I[J)I", create),
        method("destroy", "(J)V", destroy),
        method("reset", "(J)V", reset),
        method("addSample", "(JIDDDDD)I", addSample),
        method("stabilize", "(JDI" BUFFER "I" BUFFER "III" BUFFER "I" BUFFER "III)I", stabilize),
        method("stabilizeInPlace", "(JDI" BUFFER "I" BUFFER "III)I", stabilizeInPlace),
        method("distance", "(" BUFFER BUFFER ")J", distance),
        method("copyPlane", "(" BUFFER "II" BUFFER "IIIII)V", copyPlane),
    };
#undef BUFFER
    void* env = nullptr;
    if (vm->GetEnv(&env, JNI_VERSION_1_6) != JNI_OK) return JNI_ERR;
    auto* jni = static_cast<JNIEnv*>(env);
    const jclass type = jni->FindClass("zpr/framehold/Native");
    if (type == nullptr) return JNI_ERR;
    constexpr jint count = sizeof methods / sizeof *methods;
    return jni->RegisterNatives(type, methods, count) == JNI_OK ? JNI_VERSION_1_6 : JNI_ERR;
}
