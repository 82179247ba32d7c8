package zpr.framehold;

/**
 * Parameters, times and axes of a camera, from the numbers that Camera2 gives for it.
 *
 * <p>What each comes from, and examples with their arithmetic: docs/android.md. They are a start:
 * calibrating with a clip is more exact.
 */
public final class CameraModel {
    /** SENSOR_INFO_TIMESTAMP_SOURCE: a clock that is not the sensors'. */
    public static final int TIMESTAMP_UNKNOWN = 0;
    /** SENSOR_INFO_TIMESTAMP_SOURCE: the sensors' clock. */
    public static final int TIMESTAMP_REALTIME = 1;
    /** LENS_FACING: the camera looks out of the screen. */
    public static final int FACING_FRONT = 0;
    /** LENS_FACING: the camera looks away from the screen. */
    public static final int FACING_BACK = 1;

    private static final double NANOSECONDS = 1e-9;

    private final double focalLength;
    private final double readoutTime;
    private final double timeOffset;
    private final double clockDifference;
    private final int frameWidth;
    private final int frameHeight;
    /** Device axes that the picture's x (right), y (down) and the view direction point along. */
    private final int[][] pictureAxes;

    private CameraModel(Builder b) {
        // The part of the crop region that has the frame's shape.
        double scale = Math.min(b.cropWidth / b.frameWidth, b.cropHeight / b.frameHeight);
        double rows = scale * b.frameHeight;
        double firstRow = b.cropTop + (b.cropHeight - rows) / 2;
        frameWidth = b.frameWidth;
        frameHeight = b.frameHeight;
        focalLength = b.arrayFocalLength() / scale;
        readoutTime = b.skew * rows / b.arrayHeight;
        timeOffset = b.skew * firstRow / b.arrayHeight;
        clockDifference = b.clockDifference;
        pictureAxes = pictureAxes(b.orientation, b.facing);
    }

    /** Focal length in pixels of the frame. */
    public double focalLength() {
        return focalLength;
    }

    /** Seconds from the frame's first row to its last. */
    public double readoutTime() {
        return readoutTime;
    }

    /** Seconds from the array's first row to the frame's. */
    public double timeOffset() {
        return timeOffset;
    }

    /**
     * Parameters for rates and gravity, with the camera's fields set. The pitch is the width:
     * set inputImage again for another one.
     */
    public Stabilizer.Parameters.Builder parameters() {
        return new Stabilizer.Parameters.Builder()
                .inputImage(frameWidth, frameHeight)
                .fieldOfViewMode(Stabilizer.Parameters.FOV_FOCAL_LENGTH)
                .fieldOfView(focalLength)
                .readoutTime(readoutTime)
                .timeOffset(timeOffset)
                .sensorMask(Stabilizer.sensorBit(Stabilizer.SENSOR_GRAVITY_1)
                        | Stabilizer.sensorBit(Stabilizer.SENSOR_RATE_1));
    }

    /**
     * Time to give a frame: the middle of its first row's exposure, on the sensors' clock.
     *
     * @param timestamp SENSOR_TIMESTAMP in nanoseconds
     * @param exposureTime SENSOR_EXPOSURE_TIME of the same frame in nanoseconds
     */
    public double frameTime(long timestamp, long exposureTime) {
        return timestamp * NANOSECONDS + clockDifference + exposureTime * NANOSECONDS / 2;
    }

    /** Time to give a sample: SensorEvent.timestamp in seconds. */
    public static double sampleTime(long timestamp) {
        return timestamp * NANOSECONDS;
    }

    /**
     * Turns a sample of gravity or rates from device axes to those that the library expects, which
     * are the same for a back camera with an orientation of 90 degrees.
     *
     * @param values x, y, z as SensorEvent.values has them
     * @param out where the three results go
     */
    public void toLibraryAxes(float[] values, double[] out) {
        double x = values[0];
        double y = values[1];
        double z = values[2];
        for (int i = 0; i < 3; ++i) {
            int[] axis = pictureAxes[i == 2 ? 2 : 1 - i];
            // Adding 0 makes a negative zero positive.
            out[i] = -(axis[0] * x + axis[1] * y + axis[2] * z) + 0.0;
        }
    }

    /** The axes as three letters, as metadata for `framehold` and its calibration have them. */
    public String axes() {
        StringBuilder letters = new StringBuilder();
        for (int i = 0; i < 3; ++i) {
            int[] axis = pictureAxes[i == 2 ? 2 : 1 - i];
            for (int j = 0; j < 3; ++j) {
                if (axis[j] != 0) letters.append((axis[j] < 0 ? "XYZ" : "xyz").charAt(j));
            }
        }
        return letters.toString();
    }

    /** orientation: clockwise turn that makes the picture upright on the upright device. */
    private static int[][] pictureAxes(int orientation, int facing) {
        int cos = orientation == 0 ? 1 : orientation == 180 ? -1 : 0;
        int sin = orientation == 90 ? 1 : orientation == 270 ? -1 : 0;
        // The upright picture's right is the device's right for a back camera, else its left.
        int right = facing == FACING_BACK ? 1 : -1;
        return new int[][] {
            {right * cos, -sin, 0}, {-right * sin, -cos, 0}, {0, 0, -right}
        };
    }

    /** Collects the numbers. What has no default must be set. */
    public static final class Builder {
        private double physicalWidth;
        private double pixelWidth;
        private double lensFocalLength;
        private double calibratedFocalLength;
        private double arrayWidth;
        private double arrayHeight;
        private double cropTop;
        private double cropWidth;
        private double cropHeight;
        private int frameWidth;
        private int frameHeight;
        private double skew = -1.0;
        private int timestampSource = -1;
        private double clockDifference = Double.NaN;
        private int orientation = 90;
        private int facing = FACING_BACK;

        /** Width of SENSOR_INFO_PHYSICAL_SIZE in mm. No default. */
        public Builder physicalWidth(double mm) {
            requirePositive("physicalWidth", mm);
            physicalWidth = mm;
            return this;
        }

        /**
         * Width of SENSOR_INFO_PIXEL_ARRAY_SIZE, of which the physical width is. Default: that of
         * the active array.
         */
        public Builder pixelArrayWidth(int pixels) {
            requirePositive("pixelArrayWidth", pixels);
            pixelWidth = pixels;
            return this;
        }

        /** LENS_FOCAL_LENGTH in mm. No default. */
        public Builder lensFocalLength(double mm) {
            requirePositive("lensFocalLength", mm);
            lensFocalLength = mm;
            return this;
        }

        /**
         * The first number of LENS_INTRINSIC_CALIBRATION, in pixels of the array, where a phone has
         * it: instead of lensFocalLength and physicalWidth.
         */
        public Builder intrinsicCalibration(double pixels) {
            requirePositive("intrinsicCalibration", pixels);
            calibratedFocalLength = pixels;
            return this;
        }

        /** Size of SENSOR_INFO_ACTIVE_ARRAY_SIZE. No default. Sets the crop region to all of it. */
        public Builder activeArray(int width, int height) {
            requirePositive("activeArray", Math.min(width, height));
            arrayWidth = width;
            arrayHeight = height;
            return setCrop(0, width, height);
        }

        /** SCALER_CROP_REGION, within the active array, which must be set before. */
        public Builder cropRegion(int left, int top, int width, int height) {
            requirePositive("cropRegion", Math.min(width, height));
            if (left < 0 || top < 0 || (double) left + width > arrayWidth
                    || (double) top + height > arrayHeight) {
                throw new IllegalArgumentException("cropRegion is " + width + "x" + height + " at "
                        + left + ", " + top + "; allowed: within the active array, "
                        + (long) arrayWidth + "x" + (long) arrayHeight);
            }
            return setCrop(top, width, height);
        }

        /** Size of the stream's frames. No default. */
        public Builder frameSize(int width, int height) {
            Frame.requireEven("frameSize width", width);
            Frame.requireEven("frameSize height", height);
            frameWidth = width;
            frameHeight = height;
            return this;
        }

        /** SENSOR_ROLLING_SHUTTER_SKEW in nanoseconds. No default. */
        public Builder rollingShutterSkew(long nanoseconds) {
            if (nanoseconds < 0) {
                throw new IllegalArgumentException(
                        "rollingShutterSkew is " + nanoseconds + "; allowed: from 0");
            }
            skew = nanoseconds * NANOSECONDS;
            return this;
        }

        /** SENSOR_INFO_TIMESTAMP_SOURCE. No default. */
        public Builder timestampSource(int source) {
            requireOneOf("timestampSource", source, TIMESTAMP_UNKNOWN, TIMESTAMP_REALTIME);
            timestampSource = source;
            return this;
        }

        /**
         * Both clocks at one moment, SystemClock.elapsedRealtimeNanos() and System.nanoTime(), for
         * cameras whose timestamp source is unknown: most of them use the latter.
         */
        public Builder clocks(long elapsedRealtime, long nanoTime) {
            clockDifference = (elapsedRealtime - nanoTime) * NANOSECONDS;
            return this;
        }

        /** SENSOR_ORIENTATION in degrees. Default 90. */
        public Builder sensorOrientation(int degrees) {
            requireOneOf("sensorOrientation", degrees, 0, 90, 180, 270);
            orientation = degrees;
            return this;
        }

        /** LENS_FACING: front or back. Default back. An external camera is not fixed to sensors. */
        public Builder lensFacing(int lensFacing) {
            requireOneOf("lensFacing", lensFacing, FACING_FRONT, FACING_BACK);
            facing = lensFacing;
            return this;
        }

        /**
         * Makes the model.
         *
         * @throws IllegalArgumentException if a number is missing
         */
        public CameraModel build() {
            requireSet("activeArray", arrayWidth > 0);
            requireSet("frameSize", frameWidth > 0);
            requireSet("rollingShutterSkew", skew >= 0);
            requireSet("timestampSource", timestampSource >= 0);
            if (timestampSource == TIMESTAMP_REALTIME) {
                clockDifference = 0.0;
            } else {
                requireSet("clocks", !Double.isNaN(clockDifference));
            }
            if (calibratedFocalLength == 0) {
                requireSet("lensFocalLength", lensFocalLength > 0);
                requireSet("physicalWidth", physicalWidth > 0);
            }
            return new CameraModel(this);
        }

        /** Focal length in pixels of the active array. */
        private double arrayFocalLength() {
            if (calibratedFocalLength > 0) return calibratedFocalLength;
            double pixels = pixelWidth > 0 ? pixelWidth : arrayWidth;
            return lensFocalLength * pixels / physicalWidth;
        }

        private Builder setCrop(int top, int width, int height) {
            cropTop = top;
            cropWidth = width;
            cropHeight = height;
            return this;
        }

        private static void requirePositive(String field, double value) {
            if (!(value > 0.0) || Double.isInfinite(value)) {
                throw new IllegalArgumentException(field + " is " + value + "; allowed: above 0");
            }
        }

        private static void requireOneOf(String field, int value, int... allowed) {
            StringBuilder list = new StringBuilder();
            for (int one : allowed) {
                if (value == one) return;
                list.append(list.length() > 0 ? ", " : "").append(one);
            }
            throw new IllegalArgumentException(field + " is " + value + "; allowed: " + list);
        }

        private static void requireSet(String field, boolean isSet) {
            if (!isSet) throw new IllegalArgumentException(field + " is not set");
        }
    }
}
