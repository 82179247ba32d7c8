package zpr.framehold;

import java.nio.ByteBuffer;

/**
 * Makes frames of what cameras deliver as YUV_420_888: three planes with any strides.
 *
 * <p>A plane is used where it lies if the stabilizer can read it there: luma in rows of adjoining
 * bytes; chroma if U and V are alternate bytes of the same rows (semi-planar, either order); with
 * delay, both also with inputImage's pitch and the whole last row. Any other plane is copied into
 * memory of the converter's own, which the next call uses again.
 */
public final class FrameConverter {
    private final int width;
    private final int height;
    private final int pitch;
    private final boolean isCopied;
    private ByteBuffer ownLuma;
    private ByteBuffer ownChroma;
    private int copiedPlanes;

    /** For frames that {@link Stabilizer#stabilize} takes with these parameters. */
    public FrameConverter(Stabilizer.Parameters parameters) {
        width = parameters.inputWidth();
        height = parameters.inputHeight();
        pitch = parameters.inputPitch();
        isCopied = parameters.delayFrames() > 0;
    }

    /** How many of the last frame's two planes were copied: luma, chroma. */
    public int copiedPlanes() {
        return copiedPlanes;
    }

    /**
     * Makes a frame. Strides are those of android.media.Image.Plane.
     *
     * @param y luma, from the buffer's position on
     * @param yRowStride bytes from one row to the next
     * @param yPixelStride bytes from one pixel to the next
     * @param u first chroma component
     * @param v second chroma component
     * @param uvRowStride of u and v
     * @param uvPixelStride of u and v
     * @return the frame, to be used before the next call and before the camera's image is closed
     * @throws IllegalArgumentException if a buffer is not direct, or too small for its strides
     */
    public Frame convert(ByteBuffer y, int yRowStride, int yPixelStride, ByteBuffer u, ByteBuffer v,
            int uvRowStride, int uvPixelStride) {
        ByteBuffer luma = plane("y", y, yRowStride, yPixelStride, width, height);
        ByteBuffer first = plane("u", u, uvRowStride, uvPixelStride, width / 2, height / 2);
        ByteBuffer second = plane("v", v, uvRowStride, uvPixelStride, width / 2, height / 2);
        copiedPlanes = 0;

        int lumaPitch = yRowStride;
        if (yPixelStride != 1 || !suits(yRowStride, luma.capacity(), height)) {
            if (ownLuma == null) ownLuma = allocate(height);
            Native.copyPlane(
                    luma, yRowStride, yPixelStride, ownLuma, 0, pitch, 1, width, height);
            luma = ownLuma;
            lumaPitch = pitch;
            ++copiedPlanes;
        }

        long apart = Native.distance(first, second);
        if (uvPixelStride == 2 && (apart == 1 || apart == -1)) {
            // The later component's buffer holds the last byte.
            ByteBuffer early = apart == 1 ? first : second;
            ByteBuffer late = apart == 1 ? second : first;
            int more = Math.max(0, late.capacity() + 1 - early.capacity());
            if (suits(uvRowStride, (long) early.capacity() + more, height / 2)) {
                return new Frame(luma, lumaPitch, early, uvRowStride, width, height, more);
            }
        }
        if (ownChroma == null) ownChroma = allocate(height / 2);
        interleave(first, 0, uvRowStride, uvPixelStride);
        interleave(second, 1, uvRowStride, uvPixelStride);
        ++copiedPlanes;
        return new Frame(luma, lumaPitch, ownChroma, pitch, width, height);
    }

    private void interleave(ByteBuffer component, int at, int rowStride, int pixelStride) {
        Native.copyPlane(component, rowStride, pixelStride, ownChroma, at, pitch, 2, width / 2,
                height / 2);
    }

    /** True if the stabilizer reads rows of this pitch in a plane of this size. */
    private boolean suits(int rowStride, long bytes, int rows) {
        return isCopied ? rowStride == pitch && bytes >= (long) pitch * rows : rowStride >= width;
    }

    private ByteBuffer allocate(int rows) {
        long bytes = (long) pitch * rows;
        Frame.requireBytes("a buffer", Integer.MAX_VALUE, bytes);
        return ByteBuffer.allocateDirect((int) bytes);
    }

    private static ByteBuffer plane(String field, ByteBuffer buffer, int rowStride,
            int pixelStride, int columns, int rows) {
        Frame.requireDirect(field, buffer);
        if (pixelStride < 1 || rowStride < 0) {
            throw new IllegalArgumentException(field + " has strides of " + rowStride + " and "
                    + pixelStride + "; allowed: rows from 0, pixels from 1");
        }
        ByteBuffer plane = buffer.slice();
        long row = Frame.bytesNeeded(columns, pixelStride, 1);
        Frame.requireBytes(field, plane.capacity(), Frame.bytesNeeded(rows, rowStride, row));
        return plane;
    }
}
