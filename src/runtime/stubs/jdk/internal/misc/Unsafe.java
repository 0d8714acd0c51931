package jdk.internal.misc;

/** The JVM's own, as far as it is used; this one is compiled against and never packed. */
public final class Unsafe {
    private Unsafe() {
    }

    public static native Unsafe getUnsafe();

    public native long objectFieldOffset(Class<?> type, String name);

    public native long getLong(Object object, long offset);

    public native int getInt(Object object, long offset);

    public native byte getByte(Object object, long offset);

    public native void putInt(Object object, long offset, int value);
}
