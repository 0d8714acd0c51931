package offline;

import static com.vandrik.Natives.*;
import static offline.Expect.*;

import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;

final class DatabaseCases {
    private DatabaseCases() {
    }

    private static final int LONG_FIELD = 5; // native id of a thread

    public static void fieldsAreReachedByNumber() {
        long db = dbNcreateNativeDatabaseImpl(-1, 20000);
        for (int field = 1; field < 56; field++) {
            int number = field;
            same(0, Math.min(0, Math.abs(dbNgetIntFieldImpl(db, number, 3))), "field " + field);
        }
        dbNsetIntFieldImpl(db, 4, 700, 77);
        same(77, dbNgetIntFieldImpl(db, 4, 700), "int field");
        dbNsetLongFieldImpl(db, LONG_FIELD, 700, 0x123456789abcL);
        same(0x123456789abcL, dbNgetLongFieldImpl(db, LONG_FIELD, 700), "long field");
        throwsInternal(() -> dbNgetIntFieldImpl(db, 56, 0));
        throwsInternal(() -> dbNgetIntFieldImpl(db, -1, 0));
        throwsInternal(() -> dbNgetIntFieldImpl(db, 4, -1));
        throwsInternal(() -> dbNsetLongFieldImpl(db, 4, 1, 1));
        dbNdeleteNativeDatabaseImpl(db);
    }

    public static void tablesTellTheirShapeAndStamps() {
        long db = dbNcreateNativeDatabaseImpl(-1, 20000);
        same(1280, dbNgetTableCapacityImpl(db, 1), "capacity");
        same(-1, dbNgetTableMinIndexImpl(db, 1), "lowest row");
        dbNsetRecordModificationStampImpl(db, 1, 600, 9);
        same(512, dbNgetTableMinIndexImpl(db, 1), "lowest row");
        same(9, dbNgetRecordModificationStampImpl(db, 1, 600), "stamp");
        same(0, dbNgetRecordModificationStampImpl(db, 1, 1 << 30), "stamp beyond the table");
        same(1, dbNgetNextIndexFromPoolImpl(db, 1), "next row");
        same(2, dbNgetNextIndexFromPoolImpl(db, 1), "next row");
        dbNclearTableImpl(db, 1);
        same(0, dbNgetRecordModificationStampImpl(db, 1, 600), "stamp");
        same(1, dbNgetNextIndexFromPoolImpl(db, 1), "next row");
        for (int slot :
             new int[] {-1, 19, 31, 32, 127, 128, Integer.MAX_VALUE, Integer.MIN_VALUE}) {
            throwsInternal(() -> dbNgetTableCapacityImpl(db, slot));
            throwsInternal(() -> dbNclearTableImpl(db, slot));
        }
        check(dbNgetDatabaseStatisticsImpl(db).contains("threadframe"), "statistics");
        dbNdeleteNativeDatabaseImpl(db);
    }

    public static void textsAreInterned() {
        long db = dbNcreateNativeDatabaseImpl(-1, 20000);
        same(0, dbNgetStrIDImpl(db, null, 1), "null");
        same(0, dbNgetStrIDImpl(db, "x", 0), "unknown");
        int x = dbNgetStrIDImpl(db, "x\u0000\u00e9\u20ac", 1);
        same(x, dbNgetStrIDImpl(db, "x\u0000\u00e9\u20ac", 0), "known");
        check("x\u0000\u00e9\u20ac".equals(dbNgetStringImpl(db, x)), "text");
        dbNsetStringImpl(db, 40, "forty");
        same(40, dbNgetStrIDImpl(db, "forty", 1), "set");
        check(dbNgetStringImpl(db, 41) == null, "no text");
        throwsInternal(() -> dbNsetStringImpl(db, 0, "zero"));
        throwsInternal(() -> dbNgetStringImpl(db, -1));
        dbNclearTableImpl(db, 0);
        same(0, dbNgetStrIDImpl(db, "forty", 0), "cleared");
        dbNdeleteNativeDatabaseImpl(db);
    }

    public static void propertiesAndTelemetryKeepTheirValues() {
        long db = dbNcreateNativeDatabaseImpl(-1, 20000);
        dbNsetPropertyNameImpl(db, 7, 70);
        dbNsetPropertyValueImpl(db, 7, 71);
        same(70, dbNgetPropertyNameImpl(db, 7), "name");
        same(71, dbNgetPropertyValueImpl(db, 7), "value");
        same(0, dbNgetTeleValueImpl(db, 1 << 30, 3), "telemetry of no row");
        dbNsetTeleValueImpl(db, 5, 16, 42);
        dbNsetRecordModificationStampImpl(db, 15, 5, 1);
        same(42, dbNgetTeleValueImpl(db, 5, 16), "telemetry");
        throwsInternal(() -> dbNgetTeleValueImpl(db, 5, 17));
        throwsInternal(() -> dbNsetTeleValueImpl(db, 5, -1, 1));
        dbNdeleteNativeDatabaseImpl(db);
    }

    public static void threadFramesAreFoundAfterTheIndexIsFilled() {
        long db = dbNcreateNativeDatabaseImpl(-1, 20000);
        same(-1, dbNgetTFIImpl(db, 5, 100, 0), "unknown");
        int tfi = dbNgetTFIImpl(db, 5, 100, 1);
        same(tfi, dbNgetTFIImpl(db, 5, 100, 0), "known");
        same(100, dbNgetTFIFrameIDImpl(db, tfi), "frame");
        same(5, dbNgetTFIThreadIndexForTFIImpl(db, tfi), "thread");
        dbNsetTFIFrameIDImpl(db, 9, 300);
        dbNsetTFIThreadIndexForTFIImpl(db, 9, 6);
        dbNsetRecordModificationStampImpl(db, 3, 9, 1);
        dbNfillThreadFrameIndexImpl(db);
        same(9, dbNgetTFIImpl(db, 6, 300, 0), "loaded");
        same(tfi, dbNgetTFIImpl(db, 5, 100, 0), "kept");
        dbNfillJ2EEIndexImpl(db);
        throwsInternal(() -> dbNgetTFIImpl(db, -1, 0, 1));
        throwsInternal(() -> dbNgetTFIImpl(db, 0, -1, 1));
        throwsInternal(() -> dbNgetTFIImpl(db, Integer.MAX_VALUE, 0, 1));
        throwsInternal(() -> dbNgetTFIImpl(db, 0, Integer.MAX_VALUE, 1));
        dbNdeleteNativeDatabaseImpl(db);
    }

    public static void framesOfAMethodAreMarked() {
        long db = dbNcreateNativeDatabaseImpl(-1, 20000);
        for (int row : new int[] {1, 31, 32, 63}) {
            dbNsetIntFieldImpl(db, 30, row, 4);
            dbNsetRecordModificationStampImpl(db, 8, row, 1);
        }
        int[] bits = new int[2];
        dbNfillFramesByMethodImpl(db, 4, bits, 1, 63);
        same((1 << 31) + 2, bits[0], "first word");
        same((1 << 31) + 1, bits[1], "second word");
        bits = new int[2];
        dbNfillFramesByMethodImpl(db, 4, bits, 2, 62);
        same(1 << 31, bits[0], "from on");
        same(1, bits[1], "to");
        int[] shorter = new int[1];
        throwsInternal(() -> dbNfillFramesByMethodImpl(db, 4, shorter, 0, 32));
        throwsInternal(() -> dbNfillFramesByMethodImpl(db, 4, shorter, -1, 3));
        throwsInternal(() -> dbNfillFramesByMethodImpl(db, 4, null, 0, 3));
        dbNdeleteNativeDatabaseImpl(db);
    }

    public static void columnsOfUserTablesKeepTheirValues() {
        long db = dbNcreateNativeDatabaseImpl(-1, 20000);
        same(-2, dbNcreateUserTableImpl(db, "nonsense"), "malformed");
        int slot = dbNcreateUserTableImpl(db, "t\n3\na\n0\nb\n1\nc\n2\n");
        same(32, slot, "slot");
        dbNsetUserTableColumnImpl(db, slot, 3, 0, 11);
        dbNsetUserTableLongColumnImpl(db, slot, 3, 1, -3000000000L);
        dbNsetUserTableColumnImpl(db, slot, 3, 2, 13);
        same(11, dbNgetUserTableColumnImpl(db, slot, 3, 0), "int");
        same(-3000000000L, dbNgetUserTableLongColumnImpl(db, slot, 3, 1), "long");
        same(13, dbNgetUserTableColumnImpl(db, slot, 3, 2), "text");
        throwsInternal(() -> dbNgetUserTableColumnImpl(db, slot, 3, 1));
        throwsInternal(() -> dbNgetUserTableLongColumnImpl(db, slot, 3, 0));
        throwsInternal(() -> dbNgetUserTableColumnImpl(db, slot, 3, 3));
        throwsInternal(() -> dbNgetUserTableColumnImpl(db, slot, -3, 0));
        throwsInternal(() -> dbNcreateUserTableImpl(db, null));
        for (int empty : new int[] {33, 1, -1, 128, Integer.MAX_VALUE}) {
            String text = "Table is null: " + empty;
            check(text.equals(thrownBy(() -> dbNgetUserTableColumnImpl(db, empty, 0, 0))), text);
            check(text.equals(thrownBy(() -> dbNsetUserTableLongColumnImpl(db, empty, 0, 0, 1))),
                  text);
        }
        dbNdeleteNativeDatabaseImpl(db);
    }

    public static void aSnapshotHoldsTheArraysOfTheStorage() throws Exception {
        long db = dbNcreateNativeDatabaseImpl(-1, 20000);
        long storage = osNcreate(4, (byte) 0, "");
        osNcreateClassImpl(storage, 2, 0, 96, 0);
        osNcreateObjectImpl(storage, 1, 2, 0, 24, 0);
        Path file = Files.createTempFile("vdk-heap", ".snapshot");
        check(dbNwriteSnapshotImpl(db, storage, file.toString(), 0, 1) == null, "written");
        ByteBuffer bytes = ByteBuffer.wrap(Files.readAllBytes(file)).order(ByteOrder.LITTLE_ENDIAN);
        String magic = new String(bytes.array(), 0, 32, StandardCharsets.US_ASCII);
        check("Vandrik Java Profiler snapshot, ".equals(magic), magic);
        int page = 4 * ((1 << 20) + 2);
        // References, sizes: one page each; the other ten arrays are empty.
        int index = bytes.capacity() - (2 * page + 12 * 8) - (1 + 4 + 4 + 4 + 4 + 8);
        same(44, bytes.get(index), "tag");
        int[] expected = {13, 0, 1, 2, -1, -1, 0, 1 << 20, 2, 0};
        for (int i = 0; i < expected.length; i++) {
            same(expected[i], bytes.getInt(index + 1 + 4 * i), "word " + i);
        }
        int sizes = index + 25 + page + 8 + 8;
        same(24, bytes.getInt(sizes + 8 + 4), "size of row 1");
        same(96, bytes.getInt(sizes + 8 + 8), "size of row 2");
        same(-1, bytes.getInt(sizes + 8 + 12), "size of row 3");
        Files.delete(file);
        String error = dbNwriteSnapshotImpl(db, storage, "/nonexistent/x", 0, 1);
        check("Cannot open file to write snapshot".equals(error), error);
        if (Files.exists(Paths.get("/dev/full"))) {
            error = dbNwriteSnapshotImpl(db, storage, "/dev/full", 0, 1);
            check(error != null && !error.isEmpty(), "full disk");
        }
        throwsInternal(() -> dbNwriteSnapshotImpl(db, storage, null, 0, 1));
        throwsInternal(() -> dbNwriteSnapshotImpl(0, storage, "x", 0, 1));
        throwsInternal(() -> dbNwriteSnapshotImpl(db, 0, "x", 0, 1));
        throwsInternal(() -> dbNwriteSnapshotImpl(storage, db, "x", 0, 1));
        same(0, getIndexFileFullLength(), "length afterwards");
        osNdelete(storage);
        dbNdeleteNativeDatabaseImpl(db);
    }
}
