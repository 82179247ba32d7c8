package zpr.framehold;

import java.nio.ByteBuffer;
import java.util.Objects;

/**
 * A frame of two planes: luma, and chroma pairs in either order, in memory that the caller owns.
 *
 * <p>The planes are direct buffers and are used as they are, without a copy. Each starts at its
 * buffer's position and may reach to its limit, as they are when the frame is made; both may lie in
 * the same memory. A frame made of a camera's image is of no use once that image is closed: do not
 * give it to a {@link Stabilizer} then.
 */
public final class Frame {
    private final ByteBuffer luma;
    private final ByteBuffer chroma;
    private final int lumaPitch;
    private final int chromaPitch;
    private final int width;
    private final int height;
    /** Bytes of the chroma plane: all of its buffer, or some that lie in another one behind it. */
    private final long chromaBytes;

    /**
     * Describes a frame.
     *
     * @param luma height rows of width bytes
     * @param lumaPitch bytes from one row to the next, at least the width
     * @param chroma height / 2 rows of width bytes
     * @param chromaPitch bytes from one row to the next, at least the width
     * @param width pixels, positive and even
     * @param height pixels, positive and even
     * @throws IllegalArgumentException if a number is out of its range, or a buffer not direct or
     *     too small
     */
    public Frame(ByteBuffer luma, int lumaPitch, ByteBuffer chroma, int chromaPitch, int width,
            int height) {
        this(luma, lumaPitch, chroma, chromaPitch, width, height, 0);
    }

    /** moreChroma: bytes of the chroma plane behind its buffer, in one that overlaps it. */
    Frame(ByteBuffer luma, int lumaPitch, ByteBuffer chroma, int chromaPitch, int width, int height,
            int moreChroma) {
        requireEven("width", width);
        requireEven("height", height);
        this.luma = plane("luma", luma, lumaPitch, width, height, 0);
        this.chroma = plane("chroma", chroma, chromaPitch, width, height / 2, moreChroma);
        this.chromaBytes = (long) this.chroma.capacity() + moreChroma;
        this.lumaPitch = lumaPitch;
        this.chromaPitch = chromaPitch;
        this.width = width;
        this.height = height;
    }

    /** A frame in memory of its own, its rows without padding. */
    public static Frame allocate(int width, int height) {
        requireEven("width", width);
        requireEven("height", height);
        long lumaSize = (long) width * height;
        if (lumaSize * 3 / 2 > Integer.MAX_VALUE) {
            throw new IllegalArgumentException(
                    "a frame of " + width + "x" + height + " does not fit into one buffer");
        }
        ByteBuffer bytes = ByteBuffer.allocateDirect((int) (lumaSize * 3 / 2));
        return new Frame(slice(bytes, 0), width, slice(bytes, lumaSize), width, width, height);
    }

    /** The luma plane, from the buffer's start to its capacity. */
    public ByteBuffer luma() {
        return luma;
    }

    /** The plane of chroma pairs, from the buffer's start to its capacity. */
    public ByteBuffer chroma() {
        return chroma;
    }

    public int lumaPitch() {
        return lumaPitch;
    }

    public int chromaPitch() {
        return chromaPitch;
    }

    public int width() {
        return width;
    }

    public int height() {
        return height;
    }

    /** Refuses a frame of another size. */
    void requireSize(String name, int allowedWidth, int allowedHeight) {
        if (width != allowedWidth || height != allowedHeight) {
            throw new IllegalArgumentException(name + " is " + width + "x" + height + "; allowed: "
                    + allowedWidth + "x" + allowedHeight);
        }
    }

    void requireWritable(String name) {
        if (luma.isReadOnly() || chroma.isReadOnly()) {
            throw new IllegalArgumentException(name + " is read-only");
        }
    }

    /** Refuses a frame that cannot be copied whole: pitches, or padding after the last row. */
    void requireWhole(String name, int pitch) {
        for (int actual : new int[] {lumaPitch, chromaPitch}) {
            if (actual == pitch) continue;
            throw new IllegalArgumentException(
                    name + " has a pitch of " + actual + "; allowed: " + pitch + ", of inputImage");
        }
        requireBytes(name + " luma", luma.capacity(), (long) pitch * height);
        requireBytes(name + " chroma", chromaBytes, (long) pitch * (height / 2));
    }

    /** The part of a buffer from an offset on, whatever its position and limit. */
    static ByteBuffer slice(ByteBuffer buffer, long offset) {
        ByteBuffer part = buffer.duplicate();
        part.clear();
        part.position((int) offset);
        return part.slice();
    }

    static void requireEven(String field, int value) {
        if (value <= 0 || value % 2 != 0) {
            throw new IllegalArgumentException(
                    field + " is " + value + "; allowed: even numbers above 0");
        }
    }

    static void requireDirect(String field, ByteBuffer buffer) {
        if (!Objects.requireNonNull(buffer, field).isDirect()) {
            throw new IllegalArgumentException(field + " is not a direct buffer");
        }
    }

    /** Bytes from the first pixel of a plane to its last. */
    static long bytesNeeded(long rows, long pitch, long width) {
        return (rows - 1) * pitch + width;
    }

    static void requireBytes(String field, long available, long needed) {
        if (available < needed) {
            throw new IllegalArgumentException(
                    field + " holds " + available + " bytes; needed: " + needed);
        }
    }

    private static ByteBuffer plane(String field, ByteBuffer buffer, int pitch, int width,
            int rows, int more) {
        requireDirect(field, buffer);
        if (pitch < width) {
            throw new IllegalArgumentException(
                    field + "Pitch is " + pitch + "; allowed: from the width, " + width);
        }
        ByteBuffer plane = buffer.slice();
        requireBytes(field, (long) plane.capacity() + more, bytesNeeded(rows, pitch, width));
        return plane;
    }
}
