package bench;

/** Says that it runs and waits for the end of its standard input. */
public final class Waiting {
    private Waiting() {
    }

    public static void main(String[] args) throws Exception {
        System.out.println("ready");
        while (System.in.read() >= 0) {
            continue;
        }
    }
}
