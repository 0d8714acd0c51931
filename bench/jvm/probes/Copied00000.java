package bench;

/** A class of some methods, copied under other names of this length: see {@link Registering}. */
public class Copied00000 {
    private int total;
    private String name = "";

    public int none(int by) {
        total += by;
        return total;
    }

    public String rename(String to) {
        String old = name;
        name = to == null ? "" : to.trim();
        return old;
    }

    public int sum(int[] values) {
        int all = 0;
        for (int value : values) {
            all += value > 0 ? value : none(-value);
        }
        return all;
    }

    @Override
    public String toString() {
        return "Copied " + name + " " + total;
    }
}
