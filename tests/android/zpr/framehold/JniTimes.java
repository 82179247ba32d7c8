package zpr.framehold;

import java.io.BufferedReader;
import java.io.InputStreamReader;
import java.io.OutputStream;
import java.nio.ByteBuffer;
import java.util.Arrays;

/**
 * Prints how fast frames go through the binding, beside the library called from C: rounds of 60 frames
 * of 1280x720 in turn, each side in a process of its own. Arguments: REFERENCE_RUN DELAY ROUNDS
 */
final class JniTimes {
    private static final int WIDTH = 1280;
    private static final int HEIGHT = 720;
    private static final int FRAMES = 60;
    private static final int RING = 8;

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

    private double round() {
        long begin = System.nanoTime();
        for (int i = 0; i < FRAMES; ++i, ++frame) {
            run.feed(frame);
            run.stabilizer.stabilize(ReferenceRun.timeOf(frame),
                    ReferenceRun.frame(sources[frame % RING], WIDTH, HEIGHT, WIDTH),
                    ReferenceRun.frame(target, WIDTH, HEIGHT, WIDTH));
        }
        return (System.nanoTime() - begin) / 1e6 / FRAMES;
    }

    public static void main(String[] arguments) throws Exception {
        int delay = Integer.parseInt(arguments[1]);
        int rounds = Integer.parseInt(arguments[2]);
        Process c = new ProcessBuilder(arguments[0], "time", arguments[1]).start();
        OutputStream toC = c.getOutputStream();
        BufferedReader fromC = new BufferedReader(new InputStreamReader(c.getInputStream()));
        JniTimes times = new JniTimes(delay);
        double[][] ms = new double[3][rounds];
        int warmUp = 5;
        for (int i = -warmUp; i < rounds; ++i) {
            // Each side goes first every other time.
            boolean javaFirst = i % 2 == 0;
            double java = javaFirst ? times.round() : 0;
            toC.write('\n');
            toC.flush();
            double direct = Long.parseLong(fromC.readLine()) / 1e6 / FRAMES;
            if (!javaFirst) java = times.round();
            if (i < 0) continue;
            ms[0][i] = direct;
            ms[1][i] = java;
            ms[2][i] = java / direct;
        }
        toC.close();
        c.waitFor();
        for (double[] values : ms) Arrays.sort(values);
        System.out.printf("1280x720, %d frames of delay, %d rounds of %d frames in turn, medians:%n",
                delay, rounds, FRAMES);
        System.out.printf("C %.1f frames/s, Java %.1f frames/s; Java / C in time %.3f"
                        + " (quartiles %.3f to %.3f)%n",
                1e3 / ms[0][rounds / 2], 1e3 / ms[1][rounds / 2], ms[2][rounds / 2],
                ms[2][rounds / 4], ms[2][rounds * 3 / 4]);
    }
}
