package probes;

import com.vandrik.probes.IntColumn;
import com.vandrik.probes.MethodPattern;
import com.vandrik.probes.OnEnterResult;
import com.vandrik.probes.Param;
import com.vandrik.probes.ReturnValue;
import com.vandrik.probes.StringColumn;
import com.vandrik.probes.Table;

/** Calls that last: a row for each look-up, opened where it begins and closed where it ends. */
@MethodPattern("shop.Shop:price(String) int")
public final class Prices {
    private static final PriceTable TABLE = new PriceTable();

    private Prices() {
    }

    /** The row of this call; the others get it back. */
    public static int onEnter(@Param(1) String item) {
        int row = TABLE.createRow();
        TABLE.myItem.setValue(row, item);
        return row;
    }

    public static void onReturn(@OnEnterResult int row, @ReturnValue int price) {
        TABLE.myPrice.setValue(row, price);
        TABLE.closeRow(row);
    }

    /** A row that is not closed would stay open for ever. */
    public static void onUncaughtException(@OnEnterResult int row) {
        TABLE.closeRow(row);
    }

    private static final class PriceTable extends Table {
        final StringColumn myItem = new StringColumn("Item");
        final IntColumn myPrice = new IntColumn("Price");

        PriceTable() {
            super("Prices", MASK_FOR_SINGLE_METHOD_CALL_LASTING_EVENTS);
        }
    }
}
