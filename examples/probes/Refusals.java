package probes;

import com.vandrik.probes.ClassNameColumn;
import com.vandrik.probes.ClassRef;
import com.vandrik.probes.MethodName;
import com.vandrik.probes.MethodPattern;
import com.vandrik.probes.StringColumn;
import com.vandrik.probes.Table;
import com.vandrik.probes.ThrownException;

/** Exceptions that leave any method of a package, with the method. */
@MethodPattern("shop.*:*(*)")
public final class Refusals {
    private static final RefusalTable TABLE = new RefusalTable();

    private Refusals() {
    }

    public static void onUncaughtException(@ThrownException Throwable exception,
                                           @ClassRef Class<?> declaring, @MethodName String name) {
        int row = TABLE.createRow();
        TABLE.myClass.setValue(row, declaring);
        TABLE.myMethod.setValue(row, name);
        TABLE.myException.setValue(row, exception.toString());
    }

    private static final class RefusalTable extends Table {
        final ClassNameColumn myClass = new ClassNameColumn("Class");
        final StringColumn myMethod = new StringColumn("Method");
        final StringColumn myException = new StringColumn("Exception");

        RefusalTable() {
            super("Refusals", MASK_FOR_POINT_EVENTS);
        }
    }
}
