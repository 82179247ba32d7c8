package zpr.framehold;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.ByteBuffer;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import zpr.framehold.Stabilizer.Parameters;

class CameraTest {
    /** A sensor of 5.76 mm and 4032 x 3024 pixels that takes 30.24 ms, a lens of 4.3 mm. */
    private static CameraModel.Builder phone() {
        return new CameraModel.Builder()
                .physicalWidth(5.76)
                .lensFocalLength(4.3)
                .activeArray(4032, 3024)
                .frameSize(1920, 1080)
                .rollingShutterSkew(30_240_000)
                .timestampSource(CameraModel.TIMESTAMP_REALTIME);
    }

    /** The examples of docs/android.md. */
    @ParameterizedTest
    @CsvSource({
            // crop: left, top, width, height; frame; focal length, readout, offset
            "0, 0, 4032, 3024, 1920, 1080, 1433.333, 0.02268, 0.00378",
            "0, 0, 4032, 3024, 1440, 1080, 1075.000, 0.03024, 0",
            "1008, 756, 2016, 1512, 1920, 1080, 2866.667, 0.01134, 0.00945",
            "0, 100, 4032, 1000, 1080, 1920, 5779.200, 0.01, 0.001",
    })
    void parametersOfACamera(int left, int top, int width, int height, int frameWidth,
            int frameHeight, double focal, double readout, double offset) {
        CameraModel camera = phone()
                                     .cropRegion(left, top, width, height)
                                     .frameSize(frameWidth, frameHeight)
                                     .build();
        Parameters made = camera.parameters().build();
        assertEquals(focal, made.fieldOfView(), 0.001);
        assertEquals(readout, made.readoutTime(), 1e-9);
        assertEquals(offset, made.timeOffset(), 1e-9);
        assertEquals(4, made.fieldOfViewMode());
        assertEquals(5, made.sensorMask());
        assertEquals(frameWidth, made.inputPitch());
        assertEquals(frameHeight, made.outputHeight());
    }

    @Test
    void focalLengthFromOtherNumbers() {
        // The physical size is of 4096 pixels, 64 of which are not active.
        assertEquals(4.3 * 4096 / 5.76 * 1920 / 4032,
                phone().pixelArrayWidth(4096).build().focalLength(), 1e-9);
        assertEquals(3010.0 * 1920 / 4032,
                phone().intrinsicCalibration(3010.0).build().focalLength(), 1e-9);
    }

    @Test
    void timesAreOnTheSensorsClock() {
        assertEquals(100.005, phone().build().frameTime(100_000_000_000L, 10_000_000L), 1e-9);
        CameraModel other = phone()
                                    .timestampSource(CameraModel.TIMESTAMP_UNKNOWN)
                                    .clocks(7_250_000_000_000L, 7_000_000_000_000L)
                                    .build();
        assertEquals(350.005, other.frameTime(100_000_000_000L, 10_000_000L), 1e-9);
        assertEquals(100.25, CameraModel.sampleTime(100_250_000_000L), 1e-9);
    }

    /**
     * Axes by hand: the camera's picture axes right, down and into the scene, in device axes, are
     * what the library takes for -y, -x and -z.
     */
    @ParameterizedTest
    @CsvSource({
            "90, 1, XYZ", "270, 1, xyZ", "0, 1, YxZ", "180, 1, yXZ",
            "270, 0, Xyz", "90, 0, xYz", "0, 0, YXz", "180, 0, yxz",
    })
    void axesOfACamera(int orientation, int facing, String letters) {
        CameraModel camera =
                phone().sensorOrientation(orientation).lensFacing(facing).build();
        assertEquals(letters, camera.axes());
        float[] values = {1, 2, 3};
        double[] expected = new double[3];
        int sign = 1;
        for (int i = 0; i < 3; ++i) {
            int axis = "XYZxyz".indexOf(letters.charAt(i));
            expected[i] = axis < 3 ? values[axis] : -values[axis - 3];
            if (axis >= 3) sign = -sign;
        }
        if ("XYZ".indexOf(Character.toUpperCase(letters.charAt(0))) == 1) sign = -sign;
        assertEquals(1, sign, "a rotation");
        double[] out = new double[3];
        camera.toLibraryAxes(values, out);
        assertArrayEquals(expected, out);
    }

    @Test
    void missingAndWrongNumbersAreNamed() {
        CameraModel.Builder unknown = phone().timestampSource(CameraModel.TIMESTAMP_UNKNOWN);
        refused("clocks is not set", unknown::build);
        refused("activeArray is not set", () -> new CameraModel.Builder().build());
        refused("lensFacing is 2; allowed: 0, 1", () -> phone().lensFacing(2));
        refused("sensorOrientation is 45; allowed: 0, 90, 180, 270",
                () -> phone().sensorOrientation(45));
        refused("cropRegion is 4032x3024 at 1, 0; allowed: within",
                () -> phone().cropRegion(1, 0, 4032, 3024));
        refused("lensFocalLength is 0.0", () -> phone().lensFocalLength(0));
        refused("rollingShutterSkew is -1", () -> phone().rollingShutterSkew(-1));
    }

    private static void refused(String message, Runnable action) {
        String thrown =
                assertThrows(IllegalArgumentException.class, action::run).getMessage();
        assertTrue(thrown.contains(message), thrown);
    }

    /** Pixels of 16 x 8, laid out in every way that cameras have. */
    @ParameterizedTest
    @CsvSource({
            // luma row, pixel; chroma row, pixel; V first; pitch; delay; copied planes
            "16, 1, 16, 2, false, 16, 0, 0",
            "16, 1, 16, 2, true, 16, 0, 0",
            "24, 1, 32, 2, false, 16, 0, 0",
            "16, 1, 16, 2, true, 16, 1, 0",
            "24, 1, 24, 2, true, 24, 1, 2",
            "24, 1, 24, 2, false, 16, 1, 2",
            "32, 2, 16, 2, true, 16, 1, 1",
            "16, 1, 8, 1, false, 16, 0, 1",
            "24, 1, 12, 1, false, 32, 3, 2",
            "40, 2, 40, 4, true, 16, 0, 2",
            "49, 3, 50, 5, false, 20, 0, 2",
    })
    void framesOfAnyLayout(int yRow, int yPixel, int uvRow, int uvPixel, boolean vFirst, int pitch,
            int delay, int copied) {
        boolean interleaved = uvPixel > 1;
        // Chroma ends with its last byte: nothing behind the last row may be read.
        ByteBuffer y = ByteBuffer.allocateDirect(7 * yRow + 15 * yPixel + 1 + 5);
        y.position(5);
        int component = 3 * uvRow + 7 * uvPixel + 1;
        ByteBuffer chroma = ByteBuffer.allocateDirect(
                interleaved ? component + 1 : component * 2);
        int uAt = vFirst ? 1 : 0;
        int vAt = vFirst ? 0 : interleaved ? 1 : component;
        ByteBuffer u = part(chroma, uAt, component);
        ByteBuffer v = part(chroma, vAt, component);
        for (int row = 0; row < 8; ++row) {
            for (int x = 0; x < 16; ++x) {
                y.put(5 + row * yRow + x * yPixel, (byte) (row * 16 + x));
                if (row >= 4 || x >= 8) continue;
                u.put(row * uvRow + x * uvPixel, (byte) (128 + row * 8 + x));
                v.put(row * uvRow + x * uvPixel, (byte) (192 + row * 8 + x));
            }
        }
        Parameters parameters =
                new Parameters.Builder().inputImage(16, 8, pitch).sensorMask(5)
                        .delayFrames(delay).build();
        FrameConverter converter = new FrameConverter(parameters);
        for (int call = 0; call < 2; ++call) {
            Frame frame = converter.convert(y, yRow, yPixel, u, v, uvRow, uvPixel);
            assertEquals(copied, converter.copiedPlanes());
            boolean swapped = vFirst && Native.distance(frame.chroma(), chroma) == 0;
            for (int row = 0; row < 8; ++row) {
                for (int x = 0; x < 16; ++x) {
                    assertEquals(row * 16 + x,
                            frame.luma().get(row * frame.lumaPitch() + x) & 0xff);
                    // The last byte may lie in the other component's buffer.
                    int at = row * frame.chromaPitch() + x;
                    if (row >= 4 || at >= frame.chroma().capacity()) continue;
                    int expected = (x % 2 == (swapped ? 1 : 0) ? 128 : 192) + row * 8 + x / 2;
                    assertEquals(expected, frame.chroma().get(at) & 0xff);
                }
            }
            try (Stabilizer stabilizer = new Stabilizer(parameters)) {
                Frame out = Frame.allocate(16, 8);
                assertEquals(delay == 0, stabilizer.stabilize(1.0 + call, frame, out));
            }
        }
    }

    private static ByteBuffer part(ByteBuffer buffer, int at, int size) {
        ByteBuffer part = buffer.duplicate();
        part.limit(at + size).position(at);
        return part.slice();
    }

    @Test
    void planesTooSmallForTheirStridesAreRefused() {
        FrameConverter converter = new FrameConverter(
                new Parameters.Builder().inputImage(16, 8).sensorMask(5).build());
        ByteBuffer y = ByteBuffer.allocateDirect(128);
        ByteBuffer c = ByteBuffer.allocateDirect(63);
        refused("y holds 128 bytes; needed: 135", () -> converter.convert(y, 17, 1, c, c, 16, 2));
        refused("u holds 63 bytes; needed: 66", () -> converter.convert(y, 16, 1, c, c, 17, 2));
        refused("v is not a direct buffer",
                () -> converter.convert(y, 16, 1, c, ByteBuffer.allocate(64), 16, 2));
        refused("u has strides of -16 and 2", () -> converter.convert(y, 16, 1, c, c, -16, 2));
        refused("needed: 6442450956",
                () -> converter.convert(y, 16, 1, c, c, Integer.MAX_VALUE, 2));
    }
}
