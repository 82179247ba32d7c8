package zpr.framehold;

import java.nio.ByteBuffer;

/** Functions of the library behind JNI. They test nothing: their callers have done so. */
final class Native {
    static final int OK = 0;
    static final int INVALID = 2;
    static final int NO_MEMORY = 4;
    static final int FRAME_BUFFERED = 10;
    /** Planes that share bytes. */
    static final int OVERLAP = -1;

    static {
        System.loadLibrary("framehold_jni");
    }

    private Native() {}

    /** Name and numbers of the library's version. */
    static native String version();

    /** Fills in the library's defaults, in the order of {@link Stabilizer.Parameters}. */
    static native void defaults(double[] reals, int[] integers);

    /** Returns whether the library takes these parameters: OK or INVALID. */
    static native int check(double[] reals, int[] integers);

    static native int create(double[] reals, int[] integers, long[] handle);

    static native void destroy(long handle);

    static native void reset(long handle);

    static native int addSample(
            long handle, int type, double timestamp, double x, double y, double z, double w);

    /** Stabilizes a frame, or drains one if inLuma is null. level: 0 keeps the smoothing level. */
    static native int stabilize(long handle, double timestamp, int level,
            ByteBuffer inLuma, int inLumaPitch, ByteBuffer inChroma, int inChromaPitch,
            int inWidth, int inHeight,
            ByteBuffer outLuma, int outLumaPitch, ByteBuffer outChroma, int outChromaPitch,
            int outWidth, int outHeight);

    static native int stabilizeInPlace(long handle, double timestamp, int level,
            ByteBuffer luma, int lumaPitch, ByteBuffer chroma, int chromaPitch,
            int width, int height);

    /** Returns the address of b minus that of a. */
    static native long distance(ByteBuffer a, ByteBuffer b);

    /** Copies width x height bytes that are `pixel` bytes apart in a row, rows `pitch` bytes. */
    static native void copyPlane(ByteBuffer from, int fromPitch, int fromPixel,
            ByteBuffer to, int toOffset, int toPitch, int toPixel, int width, int height);
}
