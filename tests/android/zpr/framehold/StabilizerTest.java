package zpr.framehold;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;
import static org.junit.jupiter.api.DynamicTest.dynamicTest;

import java.nio.ByteBuffer;
import java.nio.file.Files;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.List;
import java.util.Random;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;
import java.util.stream.Stream;
import org.junit.jupiter.api.DynamicTest;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.TestFactory;
import org.junit.jupiter.api.function.Executable;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import zpr.framehold.Stabilizer.Parameters;

class StabilizerTest {
    private static final int WIDTH = ReferenceRun.WIDTH;
    private static final int HEIGHT = ReferenceRun.HEIGHT;
    private static final int PITCH = ReferenceRun.PITCH;

    /** The file named by framehold.checksums holds what reference_run printed. */
    @ParameterizedTest
    @CsvSource({"0, false", "0, true", "15, false", "15, true"})
    void givesTheFramesOfTheLibrary(int delay, boolean inPlace) throws Exception {
        String name = delay + " " + (inPlace ? 1 : 0) + " ";
        List<String> expected = new ArrayList<>();
        String file = System.getProperty("framehold.checksums");
        for (String line : Files.readAllLines(Paths.get(file))) {
            if (line.startsWith(name)) expected.add(line);
        }
        assertEquals(ReferenceRun.FRAMES, expected.size());
        List<String> sums = checksums(name, delay, inPlace);
        assertEquals(expected.size(), sums.size());
        for (int i = 0; i < sums.size(); ++i) assertEquals(expected.get(i), sums.get(i));
    }

    private static List<String> checksums(String name, int delay, boolean inPlace) {
        List<String> sums = new ArrayList<>();
        ByteBuffer bytes = ByteBuffer.allocateDirect(PITCH * HEIGHT * 2);
        Frame target = Frame.allocate(WIDTH, HEIGHT);
        try (ReferenceRun run = new ReferenceRun(
                     ReferenceRun.parameters(WIDTH, HEIGHT, PITCH, delay))) {
            for (int i = 0; i < ReferenceRun.FRAMES; ++i) {
                double time = ReferenceRun.timeOf(i);
                Frame source = ReferenceRun.frame(bytes, WIDTH, HEIGHT, PITCH);
                run.feed(i);
                ReferenceRun.draw(bytes, WIDTH, HEIGHT, PITCH, i);
                boolean written = inPlace ? run.stabilizer.stabilizeInPlace(time, source)
                                          : run.stabilizer.stabilize(time, source, target);
                assertEquals(i >= delay, written);
                if (!written) continue;
                Frame result =
                        inPlace ? run.stabilizer.parameters().inPlaceOutput(source) : target;
                sums.add(line(name, sums.size(), result));
            }
            while (run.stabilizer.drain(target)) sums.add(line(name, sums.size(), target));
        }
        return sums;
    }

    private static String line(String name, int number, Frame frame) {
        return name + number + " " + String.format("%016x", ReferenceRun.checksum(frame));
    }

    @Test
    void smoothingLevelChangesFromTheNextFrameOn() {
        long[] sums = new long[3];
        for (int run = 0; run < sums.length; ++run) {
            ByteBuffer bytes = ByteBuffer.allocateDirect(PITCH * HEIGHT * 2);
            Frame source = ReferenceRun.frame(bytes, WIDTH, HEIGHT, PITCH);
            Frame target = Frame.allocate(WIDTH, HEIGHT);
            try (ReferenceRun input = new ReferenceRun(
                         ReferenceRun.parameters(WIDTH, HEIGHT, PITCH, 0)
                                 .smoothingLevel(run == 1 ? 2 : 9))) {
                if (run == 2) input.stabilizer.setSmoothingLevel(2);
                for (int i = 0; i < 40; ++i) {
                    input.feed(i);
                    ReferenceRun.draw(bytes, WIDTH, HEIGHT, PITCH, i);
                    input.stabilizer.stabilize(ReferenceRun.timeOf(i), source, target);
                }
                sums[run] = ReferenceRun.checksum(target);
            }
        }
        assertNotEquals(sums[0], sums[1]);
        assertEquals(sums[1], sums[2]);
    }

    @Test
    void resetStartsOver() {
        Frame source = Frame.allocate(WIDTH, HEIGHT);
        Frame target = Frame.allocate(WIDTH, HEIGHT);
        try (ReferenceRun run = new ReferenceRun(
                     ReferenceRun.parameters(WIDTH, HEIGHT, WIDTH, 1))) {
            assertFalse(run.stabilizer.drain(target));
            assertFalse(run.stabilizer.stabilize(1.0, source, target));
            assertTrue(run.stabilizer.stabilize(1.1, source, target));
            run.stabilizer.reset();
            assertFalse(run.stabilizer.drain(target));
            assertFalse(run.stabilizer.stabilize(1.2, source, target));
            assertTrue(run.stabilizer.drain(target));
        }
    }

    @Test
    void defaultsAreTheLibrarys() {
        double[] reals = new double[3];
        int[] integers = new int[12];
        Native.defaults(reals, integers);
        Parameters built = new Parameters.Builder().inputImage(4, 4).sensorMask(63).build();
        assertArrayEquals(built.reals(), reals);
        integers[1] = 63;
        for (int i = 0; i < 5; ++i) assertEquals(integers[i], built.integers()[i], "number " + i);
        assertTrue(Stabilizer.version().contains("Framehold"));
    }

    /** What the binding takes, the library takes; what it refuses beyond that is known. */
    @Test
    void rangesAreTheLibrarys() {
        Random random = new Random(5);
        int taken = 0;
        for (int round = 0; round < 40000; ++round) {
            double[] reals = {pick(random, -1.0, 0.0, Double.NaN, 1e-9, 60.0, 180.0, 180.5,
                                      Double.POSITIVE_INFINITY),
                    pick(random, -1e-9, 0.0, 0.03, Double.NaN), pick(random, -1.0, 5.0)};
            int[] n = {1 + random.nextInt(4), random.nextInt(66) - 1, random.nextInt(103),
                    random.nextInt(12), random.nextInt(4) - 1, 62 + random.nextInt(4), 64, 64,
                    61 + random.nextInt(4), 64, 64, 64};
            if (random.nextInt(8) == 0) n[random.nextInt(5)] = random.nextInt();
            boolean accepts = Native.check(reals, n) == Native.OK;
            if (n[5] < n[8] || n[7] < n[5]) accepts = false;
            boolean built;
            try {
                new Parameters.Builder()
                        .fieldOfView(reals[0]).readoutTime(reals[1]).timeOffset(reals[2])
                        .fieldOfViewMode(n[0]).sensorMask(n[1]).cropPercent(n[2])
                        .smoothingLevel(n[3]).delayFrames(n[4]).inputImage(n[5], n[6], n[7])
                        .outputImage(n[8], n[9], n[10], n[11]).build();
                built = true;
            } catch (IllegalArgumentException e) {
                built = false;
            }
            final int number = round;
            assertEquals(accepts, built, () -> "round " + number);
            if (built) ++taken;
        }
        assertTrue(taken > 500, "taken: " + taken);
    }

    private static double pick(Random random, double... values) {
        return values[random.nextInt(values.length)];
    }

    @TestFactory
    Stream<DynamicTest> misuse() {
        Stabilizer plain = new Stabilizer(ReferenceRun.parameters(64, 48, 64, 0).build());
        Stabilizer delaying = new Stabilizer(ReferenceRun.parameters(64, 48, 80, 2).build());
        Stabilizer closed = new Stabilizer(ReferenceRun.parameters(64, 48, 64, 0).build());
        closed.close();
        closed.close();
        Frame in = Frame.allocate(64, 48);
        Frame out = Frame.allocate(64, 48);
        ByteBuffer big = ByteBuffer.allocateDirect(1 << 16);
        ByteBuffer heap = ByteBuffer.allocate(1 << 16);
        Frame readOnly = new Frame(big.asReadOnlyBuffer(), 64, big, 64, 64, 48);
        Parameters.Builder builder = new Parameters.Builder();
        Class<?> argument = IllegalArgumentException.class;
        Class<?> state = IllegalStateException.class;
        return Stream.of(
                refused("crop", argument, "cropPercent is 101; allowed: 1 to 100",
                        () -> builder.cropPercent(101)),
                refused("level", argument, "smoothingLevel is 0", () -> builder.smoothingLevel(0)),
                refused("delay", argument, "delayFrames is -1", () -> builder.delayFrames(-1)),
                refused("odd width", argument, "inputImage width is 63; allowed: even",
                        () -> builder.inputImage(63, 48)),
                refused("pitch", argument, "outputImage pitch is 62",
                        () -> builder.outputImage(64, 48, 64, 62)),
                refused("no angle", argument, "fieldOfView", () -> builder.fieldOfView(Double.NaN)),
                refused("wide angle", argument, "fieldOfView is 181.0; allowed: up to 180",
                        () -> ReferenceRun.parameters(64, 48, 64, 0).fieldOfViewMode(1)
                                .fieldOfView(181).build()),
                refused("no image", argument, "inputImage is not set",
                        () -> new Parameters.Builder().sensorMask(5).build()),
                refused("no mask", argument, "sensorMask is not set",
                        () -> new Parameters.Builder().inputImage(64, 48).build()),
                refused("large output", argument, "outputImage is 66x48; allowed: up to",
                        () -> ReferenceRun.parameters(64, 48, 64, 0).outputImage(66, 48).build()),
                refused("memory", OutOfMemoryError.class, "no memory",
                        () -> new Stabilizer(ReferenceRun.parameters(64, 48, 1 << 30, 1 << 30)
                                .build())),
                refused("no type", argument, "type is 7; allowed: 1 to 6",
                        () -> plain.addSensorSample(7, 1, 0, 0, 0)),
                refused("type not enabled", argument, "sensorMask enables (5)",
                        () -> plain.addSensorSample(5, 1, 0, 0, 0, 1)),
                refused("heap buffer", argument, "luma is not a direct buffer",
                        () -> new Frame(heap, 64, big, 64, 64, 48)),
                refused("short luma", argument, "luma holds 3071 bytes; needed: 3072",
                        () -> new Frame(limited(big, 1, 3072), 64, big, 64, 64, 48)),
                refused("short chroma", argument, "chroma holds 1535 bytes; needed: 1536",
                        () -> new Frame(big, 64, limited(big, 0, 1535), 64, 64, 48)),
                refused("pitch below the width", argument, "chromaPitch is 62",
                        () -> new Frame(big, 64, big, 62, 64, 48)),
                refused("huge pitch", argument, "luma holds 65536 bytes; needed: 100931731473",
                        () -> new Frame(big, Integer.MAX_VALUE, big, 64, 64, 48)),
                refused("negative height", argument, "height is -2",
                        () -> new Frame(big, 64, big, 64, 64, -2)),
                refused("huge frame", argument, "does not fit",
                        () -> Frame.allocate(1 << 20, 1 << 20)),
                refused("no input", NullPointerException.class, "input",
                        () -> plain.stabilize(1, null, out)),
                refused("input size", argument, "input is 64x46; allowed: 64x48",
                        () -> plain.stabilize(1, Frame.allocate(64, 46), out)),
                refused("output size", argument, "output is 62x48; allowed: 64x48",
                        () -> plain.stabilize(1, in, Frame.allocate(62, 48))),
                refused("drain's output size", argument, "output is 62x48",
                        () -> delaying.drain(Frame.allocate(62, 48))),
                refused("read-only output", argument, "output is read-only",
                        () -> plain.stabilize(1, in, readOnly)),
                refused("read-only in place", argument, "frame is read-only",
                        () -> plain.stabilizeInPlace(1,
                                new Frame(big.asReadOnlyBuffer(), 64, big, 64, 64, 48))),
                refused("other pitch with delay", argument,
                        "input has a pitch of 64; allowed: 80, of inputImage",
                        () -> delaying.stabilize(1, in, out)),
                refused("last row's padding", argument, "input luma holds 3824 bytes; needed: 3840",
                        () -> delaying.stabilize(1,
                                new Frame(limited(big, 0, 3824), 80, big, 80, 64, 48), out)),
                refused("no room in place", argument, "frame luma holds 4608 bytes; needed: 5632",
                        () -> plain.stabilizeInPlace(1, in)),
                refused("output is the input", argument, "share memory",
                        () -> plain.stabilize(1, in, in)),
                refused("output in the input's chroma", argument, "share memory",
                        () -> plain.stabilize(1, ReferenceRun.frame(big, 64, 48, 64),
                                ReferenceRun.frame(Frame.slice(big, 4544), 64, 48, 64))),
                refused("chroma in the input's luma", argument, "share memory",
                        () -> plain.stabilize(1, in,
                                new Frame(big, 64, Frame.slice(in.luma(), 3008), 64, 64, 48))),
                refused("output in itself", argument, "share memory",
                        () -> plain.stabilize(1, in, new Frame(big, 64, big, 64, 64, 48))),
                refused("closed: sample", state, "closed",
                        () -> closed.addSensorSample(1, 1, 0, 9.81, 0)),
                refused("closed: frame", state, "closed", () -> closed.stabilize(1, in, out)),
                refused("closed: in place", state, "closed", () -> closed.stabilizeInPlace(1,
                        ReferenceRun.frame(big, 64, 48, 64))),
                refused("closed: drain", state, "closed", () -> closed.drain(out)),
                refused("closed: level", state, "closed", () -> closed.setSmoothingLevel(3)),
                refused("closed: reset", state, "closed", closed::reset));
    }

    private static DynamicTest refused(
            String name, Class<?> type, String message, Executable action) {
        return dynamicTest(name, () -> {
            Throwable thrown = assertThrows(type.asSubclass(Throwable.class), action);
            assertTrue(thrown.getMessage().contains(message), thrown.getMessage());
        });
    }

    private static ByteBuffer limited(ByteBuffer buffer, int position, int limit) {
        ByteBuffer part = buffer.duplicate();
        part.limit(limit).position(position);
        return part;
    }

    /** A call that meets another throws and changes nothing; closing during one never crashes. */
    @Test
    void threadsThatMeetAreRefused() throws Exception {
        ExecutorService threads = Executors.newFixedThreadPool(2);
        int met = 0;
        for (int round = 0; round < 150; ++round) {
            boolean closesEarly = round % 2 == 1;
            Stabilizer stabilizer =
                    new Stabilizer(ReferenceRun.parameters(640, 480, 640, 1).build());
            CountDownLatch start = new CountDownLatch(2);
            List<Future<Integer>> results = new ArrayList<>();
            for (int t = 0; t < 2; ++t) {
                results.add(threads.submit(() -> callOften(stabilizer, start)));
            }
            start.await();
            if (closesEarly) {
                Thread.sleep(0, 300000);
                stabilizer.close();
            }
            for (Future<Integer> result : results) met += result.get();
            if (closesEarly) {
                assertThrows(IllegalStateException.class, stabilizer::reset);
            } else {
                stabilizer.reset();
            }
            stabilizer.close();
        }
        threads.shutdown();
        assertTrue(met > 0, "no calls met");
    }

    /** Returns how many calls met one of another thread. */
    private static int callOften(Stabilizer stabilizer, CountDownLatch start) throws Exception {
        Frame in = Frame.allocate(640, 480);
        Frame out = Frame.allocate(640, 480);
        int met = 0;
        start.countDown();
        start.await();
        for (int i = 0; i < 12; ++i) {
            try {
                stabilizer.addSensorSample(1, 1.0 + i * 0.03, 0.0, 9.81, 0.0);
                stabilizer.addSensorSample(3, 1.0 + i * 0.03, 0.1, 0.0, 0.0);
                stabilizer.stabilize(1.0 + i * 0.03, in, out);
            } catch (IllegalStateException e) {
                if (e.getMessage().contains("closed")) return met;
                ++met;
            }
        }
        return met;
    }
}
