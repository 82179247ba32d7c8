package zpr.framehold;

import java.nio.ByteBuffer;
import java.util.Objects;
import java.util.concurrent.atomic.AtomicInteger;

/**
 * Stabilizes the frames of one camera, from them and the samples of its motion sensors.
 *
 * <p>Times are seconds on one clock; axes are those of the device. What samples and frames mean, in
 * which order to feed them and what to do at the end of a recording is said in zpr_framehold.h and
 * docs/integrating.md; how it is wired to Camera2, in docs/android.md.
 *
 * <p>A stabilizer is used by one thread at a time. Calls that meet throw IllegalStateException and
 * change nothing: where sensors and frames come on threads of their own, put both into
 * {@code synchronized (stabilizer)}. {@link #close} may come at any time, from any thread; a call
 * that is running then ends as usual, and every later one throws IllegalStateException.
 */
public final class Stabilizer implements AutoCloseable {
    /** Gravity along x, y, z in m/s^2; at rest it points up. */
    public static final int SENSOR_GRAVITY_1 = 1;
    /** Another name for the same input. */
    public static final int SENSOR_GRAVITY_2 = 2;
    /** Angular rate about x, y, z in rad/s. */
    public static final int SENSOR_RATE_1 = 3;
    /** Another name for the same input. */
    public static final int SENSOR_RATE_2 = 4;
    /** Orientation x, y, z, w; used before all others. */
    public static final int SENSOR_ROTATION_1 = 5;
    /** Orientation x, y, z, w; used if type 5 is not enabled. */
    public static final int SENSOR_ROTATION_2 = 6;

    private static final int IDLE = 0;
    private static final int BUSY = 1;
    /** Closed by another thread than the one whose call is running: that call releases. */
    private static final int CLOSING = 2;
    private static final int CLOSED = 3;

    private final Parameters parameters;
    private final long handle;
    private final AtomicInteger state = new AtomicInteger(IDLE);
    /** Smoothing level to go with the next frame; 0 for none. Guarded by state. */
    private int newLevel;

    /**
     * Makes a stabilizer.
     *
     * @throws OutOfMemoryError if memory or threads are exhausted
     */
    public Stabilizer(Parameters parameters) {
        this.parameters = Objects.requireNonNull(parameters, "parameters");
        long[] created = new long[1];
        int code = Native.create(parameters.reals(), parameters.integers(), created);
        if (code != Native.OK) throw failure(code);
        handle = created[0];
    }

    public Parameters parameters() {
        return parameters;
    }

    /** Name and version of the library. */
    public static String version() {
        return Native.version();
    }

    /** The bit of sensorMask that enables a sensor type. */
    public static int sensorBit(int type) {
        if (type < SENSOR_GRAVITY_1 || type > SENSOR_ROTATION_2) {
            throw new IllegalArgumentException("type is " + type + "; allowed: 1 to 6");
        }
        return 1 << (type - 1);
    }

    /** Takes a sample of gravity or rates. */
    public void addSensorSample(int type, double timestamp, double x, double y, double z) {
        addSensorSample(type, timestamp, x, y, z, 0.0);
    }

    /**
     * Takes a sample; w counts for orientations only. One that is not finite is dropped.
     *
     * @throws IllegalArgumentException if the type is outside 1 to 6 or not in sensorMask
     */
    public void addSensorSample(
            int type, double timestamp, double x, double y, double z, double w) {
        if ((sensorBit(type) & parameters.sensorMask()) == 0) {
            throw new IllegalArgumentException("type is " + type
                    + "; allowed: those that sensorMask enables (" + parameters.sensorMask() + ")");
        }
        enter();
        try {
            int code = Native.addSample(handle, type, timestamp, x, y, z, w);
            if (code != Native.OK) throw failure(code);
        } finally {
            leave();
        }
    }

    /** Changes the smoothing level, from the next frame on. */
    public void setSmoothingLevel(int level) {
        Parameters.requireIn("smoothingLevel", level, 1, 10);
        enter();
        newLevel = level;
        leave();
    }

    /**
     * Takes a frame and writes a stabilized one.
     *
     * @param timestamp capture time of the input in seconds
     * @param input of the size of inputImage. With delay, both pitches must be that of inputImage
     *     and the planes hold their last row's padding, too. Not needed after the call.
     * @param output of the size of outputImage, in memory apart from the input's. Pixels that have
     *     no source keep what they held.
     * @return true if the output was written; false for the first delayFrames frames
     * @throws IllegalArgumentException if a frame does not fit; nothing has changed
     */
    public boolean stabilize(double timestamp, Frame input, Frame output) {
        Objects.requireNonNull(input, "input");
        parameters.requireInput("input", input, parameters.delayFrames() > 0);
        parameters.requireOutput(Objects.requireNonNull(output, "output"));
        return run(timestamp, input, output);
    }

    /**
     * Writes a frame that is still delayed. To end a recording smoothly, rather give the last frame
     * again, delayFrames times.
     *
     * @return false if there is none
     */
    public boolean drain(Frame output) {
        parameters.requireOutput(Objects.requireNonNull(output, "output"));
        return run(0.0, null, output);
    }

    /**
     * Takes a frame and writes a stabilized one over its luma buffer, laid out as
     * {@link Parameters#inPlaceOutput} says.
     *
     * @param frame of the size of inputImage, with its pitch, and with room for the output
     * @return true if the output was written; false for the first delayFrames frames
     * @throws IllegalArgumentException if the frame does not fit; nothing has changed
     */
    public boolean stabilizeInPlace(double timestamp, Frame frame) {
        parameters.requireInput("frame", Objects.requireNonNull(frame, "frame"), true);
        parameters.inPlaceOutput(frame);
        enter();
        try {
            return finish(Native.stabilizeInPlace(handle, timestamp, newLevel, frame.luma(),
                    frame.lumaPitch(), frame.chroma(), frame.chromaPitch(), frame.width(),
                    frame.height()), true);
        } finally {
            leave();
        }
    }

    /** Starts over with the next frame: forgets delayed frames and buffered samples. */
    public void reset() {
        enter();
        Native.reset(handle);
        leave();
    }

    /** Releases the instance, at once or when the call that is running ends. */
    @Override
    public void close() {
        while (true) {
            if (state.compareAndSet(IDLE, CLOSED)) {
                Native.destroy(handle);
                return;
            }
            if (state.compareAndSet(BUSY, CLOSING) || state.get() >= CLOSING) return;
        }
    }

    private boolean run(double timestamp, Frame input, Frame output) {
        boolean drains = input == null;
        enter();
        try {
            return finish(Native.stabilize(handle, timestamp, newLevel,
                    drains ? null : input.luma(), drains ? 0 : input.lumaPitch(),
                    drains ? null : input.chroma(), drains ? 0 : input.chromaPitch(),
                    drains ? 0 : input.width(), drains ? 0 : input.height(),
                    output.luma(), output.lumaPitch(), output.chroma(), output.chromaPitch(),
                    output.width(), output.height()), !drains);
        } finally {
            leave();
        }
    }

    private boolean finish(int code, boolean hasInput) {
        if (code == Native.INVALID && !hasInput) return false;
        if (code == Native.OVERLAP) {
            throw new IllegalArgumentException(
                    "the output's planes share memory with each other or with the input's");
        }
        if (code != Native.OK && code != Native.FRAME_BUFFERED) throw failure(code);
        newLevel = 0;
        return code == Native.OK;
    }

    private void enter() {
        if (state.compareAndSet(IDLE, BUSY)) return;
        throw new IllegalStateException(state.get() >= CLOSING
                ? "the stabilizer is closed"
                : "the stabilizer is used by two threads at once");
    }

    private void leave() {
        if (state.compareAndSet(BUSY, IDLE)) return;
        Native.destroy(handle);
        state.set(CLOSED);
    }

    private static RuntimeException failure(int code) {
        if (code == Native.NO_MEMORY) {
            throw new OutOfMemoryError("no memory or threads for the stabilizer");
        }
        return new IllegalArgumentException("the library refused its arguments, code " + code);
    }

    /** Parameters of a stabilizer, with the names and ranges of ZPR_Param. */
    public static final class Parameters {
        /** fieldOfViewMode: degrees across the input width. */
        public static final int FOV_WIDTH = 1;
        /** fieldOfViewMode: degrees across the input height. */
        public static final int FOV_HEIGHT = 2;
        /** fieldOfViewMode: degrees across the input diagonal. */
        public static final int FOV_DIAGONAL = 3;
        /** fieldOfViewMode: fieldOfView is the focal length in input pixels. */
        public static final int FOV_FOCAL_LENGTH = 4;

        // Places in integers.
        private static final int MODE = 0;
        private static final int MASK = 1;
        private static final int CROP = 2;
        private static final int LEVEL = 3;
        private static final int DELAY = 4;
        private static final int IN_WIDTH = 5;
        private static final int IN_HEIGHT = 6;
        private static final int IN_PITCH = 7;
        private static final int OUT_WIDTH = 8;
        private static final int OUT_HEIGHT = 9;
        private static final int OUT_LUMA_PITCH = 10;
        private static final int OUT_CHROMA_PITCH = 11;

        /** fieldOfView, readoutTime, timeOffset. */
        private final double[] reals;
        private final int[] integers;

        private Parameters(Builder builder) {
            reals = builder.reals.clone();
            integers = builder.integers.clone();
        }

        public int inputWidth() {
            return integers[IN_WIDTH];
        }

        public int inputHeight() {
            return integers[IN_HEIGHT];
        }

        /** Pitch of both planes of frames that are delayed or stabilized in place. */
        public int inputPitch() {
            return integers[IN_PITCH];
        }

        public int outputWidth() {
            return integers[OUT_WIDTH];
        }

        public int outputHeight() {
            return integers[OUT_HEIGHT];
        }

        public double fieldOfView() {
            return reals[0];
        }

        public int fieldOfViewMode() {
            return integers[MODE];
        }

        public double readoutTime() {
            return reals[1];
        }

        public double timeOffset() {
            return reals[2];
        }

        public int sensorMask() {
            return integers[MASK];
        }

        public int cropPercent() {
            return integers[CROP];
        }

        public int smoothingLevel() {
            return integers[LEVEL];
        }

        public int delayFrames() {
            return integers[DELAY];
        }

        /**
         * Where {@link Stabilizer#stabilizeInPlace} puts its output: luma at the start of the
         * input's luma buffer, chroma after the output's height rounded up to 32 rows.
         *
         * @throws IllegalArgumentException if the buffer is read-only or too small for that
         */
        public Frame inPlaceOutput(Frame input) {
            ByteBuffer luma = input.luma();
            input.requireWritable("frame");
            long lumaRows = (integers[OUT_HEIGHT] + 31L) / 32 * 32;
            long chromaAt = lumaRows * integers[OUT_LUMA_PITCH];
            long chromaSize = Frame.bytesNeeded(
                    integers[OUT_HEIGHT] / 2, integers[OUT_CHROMA_PITCH], integers[OUT_WIDTH]);
            Frame.requireBytes("frame luma", luma.capacity(), chromaAt + chromaSize);
            return new Frame(Frame.slice(luma, 0), integers[OUT_LUMA_PITCH],
                    Frame.slice(luma, chromaAt), integers[OUT_CHROMA_PITCH], integers[OUT_WIDTH],
                    integers[OUT_HEIGHT]);
        }

        double[] reals() {
            return reals;
        }

        int[] integers() {
            return integers;
        }

        private void requireInput(String name, Frame input, boolean isCopied) {
            input.requireSize(name, integers[IN_WIDTH], integers[IN_HEIGHT]);
            if (isCopied) input.requireWhole(name, integers[IN_PITCH]);
        }

        private void requireOutput(Frame output) {
            output.requireSize("output", integers[OUT_WIDTH], integers[OUT_HEIGHT]);
            output.requireWritable("output");
        }

        private static void requireIn(String field, int value, int low, int high) {
            if (value < low || value > high) {
                throw new IllegalArgumentException(
                        field + " is " + value + "; allowed: " + low + " to " + high);
            }
        }

        /** Collects parameters. What is not set has the library's default. */
        public static final class Builder {
            private final double[] reals = {65.4002, 0.0299, -0.0411};
            private final int[] integers = {FOV_WIDTH, 0, 80, 9, 0, 0, 0, 0, 0, 0, 0, 0};

            /** Every input frame, rows without padding. No default. */
            public Builder inputImage(int width, int height) {
                return inputImage(width, height, width);
            }

            /** Every input frame; see {@link Parameters#inputPitch}. No default. */
            public Builder inputImage(int width, int height, int pitch) {
                requireImage("inputImage", width, height, pitch);
                return set(IN_WIDTH, width, height, pitch);
            }

            /** Every output frame, at most the input's size. Default: the input's size. */
            public Builder outputImage(int width, int height) {
                return outputImage(width, height, width, width);
            }

            /** The same, with the pitches of output in place. */
            public Builder outputImage(int width, int height, int lumaPitch, int chromaPitch) {
                requireImage("outputImage", width, height, Math.min(lumaPitch, chromaPitch));
                return set(OUT_WIDTH, width, height, lumaPitch, chromaPitch);
            }

            /** Degrees, above 0, at most 180; in mode 4 input pixels, above 0. Default 65.4002. */
            public Builder fieldOfView(double value) {
                if (!(value > 0.0)) {
                    throw new IllegalArgumentException(
                            "fieldOfView is " + value + "; allowed: above 0");
                }
                reals[0] = value;
                return this;
            }

            /** One of FOV_WIDTH to FOV_FOCAL_LENGTH, 1 to 4. Default 1. */
            public Builder fieldOfViewMode(int mode) {
                requireIn("fieldOfViewMode", mode, FOV_WIDTH, FOV_FOCAL_LENGTH);
                return set(MODE, mode);
            }

            /** Seconds from the exposure of a frame's first row to its last's. Default 0.0299. */
            public Builder readoutTime(double seconds) {
                if (!(seconds >= 0.0)) {
                    throw new IllegalArgumentException(
                            "readoutTime is " + seconds + "; allowed: from 0");
                }
                reals[1] = seconds;
                return this;
            }

            /** Seconds added to every frame's time. Any value. Default -0.0411. */
            public Builder timeOffset(double seconds) {
                reals[2] = seconds;
                return this;
            }

            /** Enabled sample types, an OR of {@link Stabilizer#sensorBit}, 1 to 63. No default. */
            public Builder sensorMask(int mask) {
                requireIn("sensorMask", mask, 1, 63);
                return set(MASK, mask);
            }

            /** Share of the input that the output shows, 1 to 100. Default 80. */
            public Builder cropPercent(int percent) {
                requireIn("cropPercent", percent, 1, 100);
                return set(CROP, percent);
            }

            /** 1 (follow the hand) to 10 (strongest). Default 9. */
            public Builder smoothingLevel(int level) {
                requireIn("smoothingLevel", level, 1, 10);
                return set(LEVEL, level);
            }

            /** Frames held back, from 0. Default 0. */
            public Builder delayFrames(int frames) {
                requireIn("delayFrames", frames, 0, Integer.MAX_VALUE);
                return set(DELAY, frames);
            }

            /**
             * Makes the parameters.
             *
             * @throws IllegalArgumentException if one is missing or does not go with another
             */
            public Parameters build() {
                if (integers[IN_WIDTH] == 0) {
                    throw new IllegalArgumentException("inputImage is not set");
                }
                if (integers[MASK] == 0) {
                    throw new IllegalArgumentException("sensorMask is not set; allowed: 1 to 63");
                }
                if (reals[0] > 180.0 && integers[MODE] != FOV_FOCAL_LENGTH) {
                    throw new IllegalArgumentException("fieldOfView is " + reals[0]
                            + "; allowed: up to 180, or with fieldOfViewMode 4");
                }
                Parameters made = new Parameters(this);
                if (integers[OUT_WIDTH] == 0) made.useInputSizeForOutput();
                made.requireOutputWithinInput();
                return made;
            }

            private Builder set(int first, int... values) {
                System.arraycopy(values, 0, integers, first, values.length);
                return this;
            }

            private static void requireImage(String field, int width, int height, int pitch) {
                Frame.requireEven(field + " width", width);
                Frame.requireEven(field + " height", height);
                requireIn(field + " pitch", pitch, width, Integer.MAX_VALUE);
            }
        }

        private void useInputSizeForOutput() {
            integers[OUT_WIDTH] = integers[IN_WIDTH];
            integers[OUT_HEIGHT] = integers[IN_HEIGHT];
            integers[OUT_LUMA_PITCH] = integers[IN_PITCH];
            integers[OUT_CHROMA_PITCH] = integers[IN_PITCH];
        }

        private void requireOutputWithinInput() {
            if (integers[OUT_WIDTH] > integers[IN_WIDTH]
                    || integers[OUT_HEIGHT] > integers[IN_HEIGHT]) {
                throw new IllegalArgumentException("outputImage is " + integers[OUT_WIDTH] + "x"
                        + integers[OUT_HEIGHT] + "; allowed: up to inputImage, "
                        + integers[IN_WIDTH] + "x" + integers[IN_HEIGHT]);
            }
        }
    }
}
