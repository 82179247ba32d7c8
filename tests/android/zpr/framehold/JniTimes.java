package zpr.framehold;

import java.io.BufferedReader;
import java.io.InputStreamReader;
import java.io.OutputStream;
import java.lang.management.ManagementFactory;
import java.lang.management.ThreadMXBean;
import java.nio.ByteBuffer;
import java.util.Arrays;

/**
 * Prints how fast frames go through the binding, beside the library called from C: rounds of frames
 * of 1280x720 in turn, each side in a process of its own; and what a call that finds nothing to do
 * takes. Arguments: REFERENCE_RUN DELAY ROUNDS
 */
final class JniTimes {
    private static final int WIDTH = 1280;
    private static final int HEIGHT = 720;
    private static final int FRAMES = 60;
    private static final int RING = 8;

    private final ThreadMXBean threads = ManagementFactory.getThreadMXBean();
    private final ReferenceRun run;
    private final ByteBuffer[] sources = new ByteBuffer[RING];
    private final ByteBuffer target = ByteBuffer.allocateDirect(WIDTH * HEIGHT * 3 / 2);
    private int frame;

    private JniTimes(int delay) {
        run = new ReferenceRun(ReferenceRun.parameters(WIDTH, HEIGHT, WIDTH, delay));
        for (int i = 0; i < RING; ++i) {
            sources[i] = ByteBuffer.allocateDirect(WIDTH * HEIGHT * 3 / 2);
            ReferenceRun.draw(sources[i], WIDTH, HEIGHT, WIDTH, i);
        }
    }

    /** Returns milliseconds for a frame, and those of processor time of this thread. */
    private double[] round() {
        long threadBegin = threads.getCurrentThreadCpuTime();
        long begin = System.nanoTime();
        for (int i = 0; i < FRAMES; ++i, ++frame) {
            run.feed(frame);
            run.stabilizer.stabilize(ReferenceRun.timeOf(frame),
                    ReferenceRun.frame(sources[frame % RING], WIDTH, HEIGHT, WIDTH),
                    ReferenceRun.frame(target, WIDTH, HEIGHT, WIDTH));
        }
        long end = System.nanoTime();
        return perFrame(end - begin, threads.getCurrentThreadCpuTime() - threadBegin);
    }

    private static double[] perFrame(long time, long threadTime) {
        return new double[] {time / 1e6 / FRAMES, threadTime / 1e6 / FRAMES};
    }

    /** Returns milliseconds of processor time of a call to drain an empty ring. */
    private double emptyCall() {
        Frame out = ReferenceRun.frame(target, WIDTH, HEIGHT, WIDTH);
        run.stabilizer.reset();
        int calls = 1000000;
        long begin = 0;
        for (int i = -calls; i < calls; ++i) {
            if (i == 0) begin = threads.getCurrentThreadCpuTime();
            if (run.stabilizer.drain(out)) throw new IllegalStateException("drained a frame");
        }
        return (threads.getCurrentThreadCpuTime() - begin) / 1e6 / calls;
    }

    public static void main(String[] arguments) throws Exception {
        int delay = Integer.parseInt(arguments[1]);
        int rounds = Integer.parseInt(arguments[2]);
        Process c = new ProcessBuilder(arguments[0], "time", arguments[1]).start();
        OutputStream toC = c.getOutputStream();
        BufferedReader fromC = new BufferedReader(new InputStreamReader(c.getInputStream()));
        JniTimes times = new JniTimes(delay);
        // Time, then the thread's processor time: C, Java, Java / C.
        double[][] ms = new double[6][rounds];
        int warmUp = 15;
        for (int i = -warmUp; i < rounds; ++i) {
            // Each side goes first every other time.
            boolean javaFirst = i % 2 == 0;
            double[] java = javaFirst ? times.round() : null;
            toC.write('\n');
            toC.flush();
            String[] answer = fromC.readLine().split(" ");
            double[] direct = perFrame(Long.parseLong(answer[0]), Long.parseLong(answer[1]));
            if (!javaFirst) java = times.round();
            for (int k = 0; i >= 0 && k < 2; ++k) {
                ms[3 * k][i] = direct[k];
                ms[3 * k + 1][i] = java[k];
                ms[3 * k + 2][i] = java[k] / direct[k];
            }
        }
        toC.close();
        c.waitFor();
        for (double[] values : ms) Arrays.sort(values);
        System.out.printf("1280x720, %d frames of delay, %d rounds of %d frames in turn, medians%n",
                delay, rounds, FRAMES);
        System.out.printf("C %.0f frames/s, Java %.0f frames/s%n", 1e3 / ms[0][rounds / 2],
                1e3 / ms[1][rounds / 2]);
        for (int k = 2; k < 6; k += 3) {
            System.out.printf("Java / C in %s %.3f (quartiles %.3f to %.3f)%n",
                    k == 2 ? "time" : "the calling thread's processor time", ms[k][rounds / 2],
                    ms[k][rounds / 4], ms[k][rounds * 3 / 4]);
        }
        double call = times.emptyCall();
        System.out.printf("A call that finds nothing to do takes %.2f microseconds%n", call * 1e3);
    }
}
