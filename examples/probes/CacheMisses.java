package probes;

import com.vandrik.probes.MethodPattern;
import com.vandrik.probes.Param;
import com.vandrik.probes.ReturnValue;
import com.vandrik.probes.StringColumn;
import com.vandrik.probes.Table;

/** Moments: a row with thread and stack whenever a cache has nothing. */
@MethodPattern("shop.*Cache:get(String)")
public final class CacheMisses {
    private static final MissTable TABLE = new MissTable();

    private CacheMisses() {
    }

    public static void onReturn(@Param(1) String key, @ReturnValue Object value) {
        if (value == null) {
            int row = TABLE.createRow();
            TABLE.myKey.setValue(row, key);
        }
    }

    private static final class MissTable extends Table {
        final StringColumn myKey = new StringColumn("Key");

        MissTable() {
            super("Cache Misses", MASK_FOR_POINT_EVENTS);
        }
    }
}
