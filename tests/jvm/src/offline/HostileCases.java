package offline;

import static com.vandrik.Natives.*;
import static offline.Expect.check;

import com.vandrik.Natives;
import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.util.Random;

/** Every native with random choices of null, zero, negative, small and far too large arguments. */
final class HostileCases {
    private HostileCases() {
    }

    private static final int ROUNDS = 1500;
    private static final int[] INTS = {0,
                                       -1,
                                       1,
                                       2,
                                       3,
                                       31,
                                       32,
                                       100,
                                       Integer.MIN_VALUE,
                                       Integer.MAX_VALUE,
                                       Integer.MAX_VALUE - 1,
                                       1 << 30};
    private static final long[] LONGS = {0,        -1,         1, 8, Long.MIN_VALUE, Long.MAX_VALUE,
                                         1L << 40, 0x7fffffffL};
    private static final String[] TEXTS = {null,          "", "x", "a\n2\nb\n0\n", "t\n1\nc\n1\n",
                                           "\u0000\ud800"};

    private static long storage;
    private static long processor;
    private static long db;

    public static void everyNativeSurvivesAnyArguments() throws Exception {
        storage = osNcreate(100, (byte) 1, "");
        processor = createOIDProcessor(true, 100);
        db = dbNcreateNativeDatabaseImpl(-1, 20000);
        dbNcreateUserTableImpl(db, "t\n2\na\n0\nb\n1\n");
        Random random = new Random(1);
        int calls = 0;
        for (Method method : Natives.class.getDeclaredMethods()) {
            // Socket numbers are taken at their word, and files are written: told apart elsewhere.
            if (method.getName().equals("dbNwriteSnapshotImpl")) {
                continue;
            }
            boolean ofProcesses = method.getName().matches(".*(Marked|PID|CommandLine|Marker).*");
            for (int round = 0; round < (ofProcesses ? ROUNDS / 50 : ROUNDS); round++) {
                call(method, random);
                calls++;
            }
        }
        check(calls > 100000, "calls: " + calls);
        osNdelete(storage);
        deleteOIDProcessor(processor);
        dbNdeleteNativeDatabaseImpl(db);
    }

    private static void call(Method method, Random random) throws Exception {
        boolean deletes = method.getName().contains("elete");
        Class<?>[] types = method.getParameterTypes();
        Object[] arguments = new Object[types.length];
        for (int i = 0; i < types.length; i++) {
            arguments[i] = argument(types[i], i == 0, deletes, random);
        }
        limit(method.getName(), arguments);
        try {
            Object result = method.invoke(null, arguments);
            dispose(method.getName(), result);
        } catch (InvocationTargetException e) {
            if (e.getCause().getClass() != RuntimeException.class) {
                throw new AssertionError(method.getName(), e.getCause());
            }
        }
    }

    private static Object argument(Class<?> type, boolean first, boolean deletes, Random random) {
        if (type == long.class) {
            int choice = random.nextInt(first && !deletes ? 8 : 1);
            return first && choice > 1 ? handle(random)
                                       : (Object) LONGS[random.nextInt(LONGS.length)];
        }
        if (type == int.class) {
            return INTS[random.nextInt(INTS.length)];
        }
        if (type == byte.class) {
            return (byte) random.nextInt(3);
        }
        if (type == boolean.class) {
            return random.nextBoolean();
        }
        if (type == String.class) {
            return TEXTS[random.nextInt(TEXTS.length)];
        }
        int[] lengths = {0, 1, 3, 4, 100, 128};
        int length = lengths[random.nextInt(lengths.length)];
        if (random.nextInt(6) == 0) {
            return null;
        }
        if (type == byte[].class) {
            byte[] values = new byte[length];
            random.nextBytes(values);
            return values;
        }
        if (type == long[].class) {
            long[] values = new long[length];
            for (int i = 0; i < length; i++) {
                values[i] = LONGS[random.nextInt(LONGS.length)];
            }
            return values;
        }
        int[] values = new int[length];
        for (int i = 0; i < length; i++) {
            values[i] = random.nextInt(3) == 0 ? INTS[random.nextInt(INTS.length)]
                                               : random.nextInt(100);
        }
        return values;
    }

    private static Object handle(Random random) {
        long[] handles = {storage, processor, db};
        return handles[random.nextInt(handles.length)];
    }

    /** Rows far out are valid and make a table large: slow to walk, not wrong. */
    private static void limit(String name, Object[] arguments) {
        for (int i = 1; name.startsWith("dbN") && i < arguments.length; i++) {
            if (Integer.valueOf(1 << 30).equals(arguments[i])) {
                arguments[i] = 1 << 16;
            }
        }
    }

    private static void dispose(String name, Object result) {
        if (result instanceof Long && (Long) result != 0) {
            if (name.equals("osNcreate")) {
                osNdelete((Long) result);
            } else if (name.equals("createOIDProcessor")) {
                deleteOIDProcessor((Long) result);
            } else if (name.equals("dbNcreateNativeDatabaseImpl")) {
                dbNdeleteNativeDatabaseImpl((Long) result);
            }
        }
    }
}
