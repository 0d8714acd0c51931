package bench;

/** Equal methods, each with a callback of its own. */
final class CalledMethods {
    private CalledMethods() {
    }

    static long none(long number, Object object, int shift, String text) {
        return (number >>> shift) ^ number * 31;
    }

    static long two(long number, Object object, int shift, String text) {
        return (number >>> shift) ^ number * 31;
    }

    static long all(long number, Object object, int shift, String text) {
        return (number >>> shift) ^ number * 31;
    }

    static long noneCalling(long number, Object object, int shift, String text) {
        return (number >>> shift) ^ number * 31;
    }

    static long twoCalling(long number, Object object, int shift, String text) {
        return (number >>> shift) ^ number * 31;
    }

    static long allCalling(long number, Object object, int shift, String text) {
        return (number >>> shift) ^ number * 31;
    }
}
