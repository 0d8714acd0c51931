/** Without a package, and called as the JVM calls a primitive type in short. */
public final class B {
    private B() {
    }

    public static int twice(int number) {
        return number + number;
    }
}
