package programs;

import com.sun.jna.Native;
import com.sun.jna.Platform;
import fixtures.Programs;

/** Natives that JNA binds to functions of the C library, by the names that reflection shows. */
public final class DirectMapping implements Programs.Program {
    static {
        Native.register(Platform.C_LIBRARY_NAME);
    }

    public static native int abs(int number);

    private native long labs(long number);

    private static int leaf(int i) {
        return abs(-i);
    }

    @Override
    public String round() {
        long sum = 0;
        for (int i = 0; i < 300; i++) {
            sum += leaf(i) + labs(-1L << 40);
        }
        return "sum " + sum;
    }
}
