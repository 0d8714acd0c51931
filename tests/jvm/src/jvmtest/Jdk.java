package jvmtest;

import java.io.File;

/** One JDK that the tests run on. */
public final class Jdk {
    public final int release;
    public final String home;

    public Jdk(int release, String home) {
        this.release = release;
        this.home = home;
    }

    public String java() {
        return home + File.separator + "bin" + File.separator + "java";
    }

    @Override
    public String toString() {
        return Integer.toString(release);
    }
}
