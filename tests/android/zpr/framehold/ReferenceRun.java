package zpr.framehold;

import java.nio.ByteBuffer;

/** Feeds the binding what reference_run.c feeds the library, with the same numbers. */
final class ReferenceRun implements AutoCloseable {
    static final int WIDTH = 352;
    static final int HEIGHT = 240;
    static final int PITCH = 384;
    static final int FRAMES = 200;

    final Stabilizer stabilizer;
    private int next;

    ReferenceRun(Stabilizer.Parameters.Builder parameters) {
        stabilizer = new Stabilizer(parameters.build());
    }

    static Stabilizer.Parameters.Builder parameters(int width, int height, int pitch, int delay) {
        return new Stabilizer.Parameters.Builder()
                .inputImage(width, height, pitch)
                .outputImage(width, height)
                .fieldOfViewMode(Stabilizer.Parameters.FOV_FOCAL_LENGTH)
                .fieldOfView(width * 0.75)
                .readoutTime(0.02)
                .timeOffset(0.0)
                .sensorMask(Stabilizer.sensorBit(Stabilizer.SENSOR_GRAVITY_1)
                        | Stabilizer.sensorBit(Stabilizer.SENSOR_RATE_1))
                .delayFrames(delay);
    }

    static double timeOf(int frame) {
        return 1.0 + frame / 30.0;
    }

    /** Feeds all samples up to the end of a frame's readout. */
    void feed(int frame) {
        double end = timeOf(frame) + 0.02;
        for (; 1.0 + next * 0.005 <= end; ++next) {
            int i = next;
            double time = 1.0 + i * 0.005;
            stabilizer.addSensorSample(
                    Stabilizer.SENSOR_GRAVITY_1, time, 0.1 * triangle(i * 3), 9.81, 0.0);
            stabilizer.addSensorSample(Stabilizer.SENSOR_RATE_1, time, 0.25 * triangle(i * 7),
                    0.20 * triangle(i * 5 + 30), 0.15 * triangle(i * 11 + 60));
        }
    }

    static void draw(ByteBuffer bytes, int width, int height, int pitch, int frame) {
        for (int y = 0; y < height * 3 / 2; ++y) {
            for (int x = 0; x < pitch; ++x) {
                int value = x < width ? x * x / 64 + y * (frame % 7 + 3) / 4 + frame * 3 : 0;
                bytes.put(y * pitch + x, (byte) value);
            }
        }
    }

    /** A frame whose chroma follows its luma without a gap. */
    static Frame frame(ByteBuffer bytes, int width, int height, int pitch) {
        return new Frame(
                bytes, pitch, Frame.slice(bytes, (long) pitch * height), pitch, width, height);
    }

    static long checksum(Frame frame) {
        long sum = 0xcbf29ce484222325L;
        sum = add(sum, frame.luma(), frame.lumaPitch(), frame.width(), frame.height());
        return add(sum, frame.chroma(), frame.chromaPitch(), frame.width(), frame.height() / 2);
    }

    @Override
    public void close() {
        stabilizer.close();
    }

    private static long add(long sum, ByteBuffer plane, int pitch, int width, int height) {
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                sum = (sum ^ (plane.get(y * pitch + x) & 0xff)) * 0x100000001b3L;
            }
        }
        return sum;
    }

    /** -1 to 1 and back, as n grows by 200. */
    private static double triangle(int n) {
        int m = n % 200;
        return ((m < 100 ? m : 200 - m) - 50) / 50.0;
    }
}
