package programs;

import java.lang.reflect.Method;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import java.util.regex.Pattern;

/** What a program says that it did, beside what the tables of probes say. */
final class EventCounts {
    private static final String[] GETTERS = {"Int", "Long", "String", "ForeignKey", "ClassName"};
    private static final String REQUESTS = "JSP/Servlet Requests";
    private static final int FIRST_TABLE = 32;
    private static final int LAST_TABLE = 127;
    private static final long PATIENCE_MS = 60_000;

    /** A request while which its thread did what is beside it in time. */
    private static final class Request {
        private final Object thread;
        private final long start;
        private final long end;
        private final String uri;

        Request(Map<String, Object> row) {
            thread = row.get("thread");
            start = (Long) row.get("uptime_ns");
            end = (Long) row.get("uptime_ns.end");
            uri = (String) row.get("URI");
        }

        boolean holds(Map<String, Object> row) {
            long time = (Long) row.get("uptime_ns");
            return thread.equals(row.get("thread")) && time >= start && time <= end;
        }
    }

    private final Map<String, Integer> done = new TreeMap<>();
    private final List<Request> requests = new ArrayList<>();
    private Pattern ofInterest = Pattern.compile("");
    private final Map<String, Method> natives = new HashMap<>();

    EventCounts() throws Exception {
        for (Method method : Class.forName("com.vandrik.runtime.Callback").getMethods()) {
            natives.put(method.getName(), method);
        }
    }

    void did(String what) {
        did(what, 1);
    }

    synchronized void did(String what, int count) {
        done.merge(what, count, Integer::sum);
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

    /** Of rows whose text has this somewhere. */
    void compareThose(String pattern, String name, String... tables) throws Exception {
        ofInterest = Pattern.compile(pattern);
        compare(name, tables);
    }

    /** In all tables of probes, by name. */
    Map<String, Integer> countRows() throws Exception {
        Map<String, Integer> rows = new TreeMap<>();
        for (int table = FIRST_TABLE; table <= LAST_TABLE; table++) {
            String text = description(table);
            boolean isOfProbe =
                    text.contains("\nuptime_ns\n") && !text.startsWith("Class Loading\n");
            for (int row = 0; isOfProbe && exists(table, row); row++) {
                rows.merge(text.split("\n")[0], 1, Integer::sum);
            }
        }
        return rows;
    }

    private Map<String, Integer> recorded(String... tables) throws Exception {
        requests.clear();
        for (int row = 0, table = find(REQUESTS); table >= 0 && exists(table, row); row++) {
            requests.add(new Request(values(table, row)));
        }
        Map<String, Integer> recorded = new TreeMap<>();
        for (int table = FIRST_TABLE; table <= LAST_TABLE; table++) {
            String text = description(table);
            for (String wanted : tables) {
                for (int row = 0; text.startsWith(wanted + "\n") && exists(table, row); row++) {
                    Map<String, Object> values = values(table, row);
                    String what = describe(wanted, values);
                    if (ofInterest.matcher(what).find()) {
                        recorded.merge(what, ((Number) values.getOrDefault("Bytes", 1)).intValue(),
                                       Integer::sum);
                    }
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

    /** -1 if there is none of that name. */
    private int find(String table) throws Exception {
        for (int i = FIRST_TABLE; i <= LAST_TABLE; i++) {
            if (description(i).startsWith(table + "\n")) {
                return i;
            }
        }
        return -1;
    }

    /** By column, in order; a key is told by the text of its row, under "master". */
    private Map<String, Object> values(int table, int row) throws Exception {
        String[] lines = description(table).split("\n");
        Map<String, Object> values = new LinkedHashMap<>();
        for (int column = 0; column < Integer.parseInt(lines[1]); column++) {
            String name = lines[2 + 2 * column];
            String kind = GETTERS[Integer.parseInt(lines[3 + 2 * column])];
            Object value = value(kind, table, row, column);
            if (kind.equals("ForeignKey")) {
                int number = (Integer) value;
                values.put("master",
                           number < 0 ? "nobody" : describe(name, values(find(name), number)));
            } else {
                values.put(name, value);
            }
        }
        return values;
    }

    /** The table, its own columns, "open" if it is, the row it is of, or the request it is in. */
    private String describe(String table, Map<String, Object> row) {
        StringBuilder text = new StringBuilder(table);
        for (Map.Entry<String, Object> column : row.entrySet()) {
            Object value = column.getValue();
            String name = column.getKey();
            if (name.equals("uptime_ns.end")) {
                text.append((Long) value == 0 ? " open" : "");
            } else if (Character.isUpperCase(name.charAt(0)) && !name.equals("Bytes") &&
                       value != null && !value.toString().isEmpty()) {
                text.append(' ').append(value);
            }
        }
        if (row.containsKey("master")) {
            return text + " of " + row.get("master");
        }
        for (Request request : requests) {
            if (!table.equals(REQUESTS) && request.holds(row)) {
                return text + " in " + request.uri;
            }
        }
        return text.toString();
    }
}
