package programs;

import java.lang.reflect.Method;
import java.util.HashMap;
import java.util.Map;
import java.util.TreeMap;

/** What a program says that it did, beside what the tables of probes say. */
final class EventCounts {
    private static final String[] GETTERS = {"Int", "Long", "String", "ForeignKey", "ClassName"};
    private static final long PATIENCE_MS = 60_000;

    private final Map<String, Integer> done = new TreeMap<>();
    private final Map<String, Method> natives = new HashMap<>();

    EventCounts() throws Exception {
        for (Method method : Class.forName("com.vandrik.runtime.Callback").getMethods()) {
            natives.put(method.getName(), method);
        }
    }

    synchronized void did(String what) {
        done.merge(what, 1, Integer::sum);
    }

    /** Answers "name equal", or tells what differs. Rows may close behind an answer. */
    void compare(String name, String... tables) throws Exception {
        Map<String, Integer> recorded = Map.of();
        for (long end = System.currentTimeMillis() + PATIENCE_MS;
             !recorded.equals(done) && System.currentTimeMillis() < end; Thread.sleep(20)) {
            recorded = recorded(tables);
        }
        System.out.println(recorded.equals(done) ? name + " equal"
                                                 : "did      " + done + "\nrecorded " + recorded);
    }

    private Map<String, Integer> recorded(String... tables) throws Exception {
        Map<String, Integer> recorded = new TreeMap<>();
        for (int table = 32; table < 128; table++) {
            String text = description(table);
            for (String wanted : tables) {
                for (int row = 0; text.startsWith(wanted + "\n") && exists(table, row); row++) {
                    recorded.merge(describe(table, row), 1, Integer::sum);
                }
            }
        }
        return recorded;
    }

    private String description(int table) throws Exception {
        String text = (String) natives.get("getUserTableDescription").invoke(null, table);
        return text == null ? "" : text;
    }

    private Object value(String kind, int table, int row, int column) throws Exception {
        return natives.get("getUserTable" + kind + "Column").invoke(null, table, row, column);
    }

    private boolean exists(int table, int row) throws Exception {
        return (Long) value("Long", table, row, 0) != 0;
    }

    private int find(String table) throws Exception {
        for (int i = 32; i < 128; i++) {
            if (description(i).startsWith(table + "\n")) {
                return i;
            }
        }
        throw new IllegalStateException("no table " + table);
    }

    /** The table, its own columns, "open" if it is, and the row it is of. */
    private String describe(int table, int row) throws Exception {
        String[] lines = description(table).split("\n");
        StringBuilder text = new StringBuilder(lines[0]);
        String master = "";
        for (int column = 0; column < Integer.parseInt(lines[1]); column++) {
            String name = lines[2 + 2 * column];
            String kind = GETTERS[Integer.parseInt(lines[3 + 2 * column])];
            Object value = value(kind, table, row, column);
            if (name.equals("uptime_ns.end")) {
                text.append((Long) value == 0 ? " open" : "");
            } else if (kind.equals("ForeignKey")) {
                int number = (Integer) value;
                master = " of " + (number < 0 ? "nobody" : describe(find(name), number));
            } else if (Character.isUpperCase(name.charAt(0)) && value != null &&
                       !value.toString().isEmpty()) {
                text.append(' ').append(value);
            }
        }
        return text + master;
    }
}
