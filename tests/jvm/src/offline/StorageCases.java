package offline;

import static com.vandrik.Natives.*;
import static offline.Expect.*;

final class StorageCases {
    private StorageCases() {
    }

    public static void rowsReadDefaultsUntilTheyAreMade() {
        long storage = osNcreate(10, (byte) 0, "/tmp/");
        same(-1, osNgetSizeImpl(storage, 3), "size");
        same(-1, osNgetArrayLengthImpl(storage, 3), "array length");
        same(-1, osNgetAllocatorTRNImpl(storage, 3), "thread");
        same(0, osNgetAllocatorFrameImpl(storage, 3), "frame");
        same(0, osNgetRetainedSizeImpl(storage, 3), "retained size");
        same(0, osNgetGenerationImpl(storage, 3), "generation");
        same(0, osNgetDominatorImpl(storage, 3), "dominator");
        same(0, osNgetRefCountImpl(storage, 3), "references");
        same(0, osNgetMetaLengthImpl(storage, 3), "meta length");
        same(0, osNgetMetaPositionImpl(storage, 3), "meta position");
        same(0, osNgetPrimitiveDataPositionImpl(storage, 3), "data position");
        same(0, osNgetOIDHighPartImpl(storage, 3), "id");
        osNdelete(storage);
    }

    public static void everyKindOfRowKeepsWhatItWasMadeWith() {
        long storage = osNcreate(10, (byte) 0, "/tmp/");
        same(1, osNcreateClassImpl(storage, 1, 5, 96, 2), "class");
        same(1, osNcreateObjectImpl(storage, 2, 1, 6, 24, 3), "object");
        same(1, osNcreatePrimArrayImpl(storage, 3, 1, 100, 416, 7), "primitive array");
        same(1, osNcreateObjectArrayImpl(storage, 4, 1, 8, 56, 4), "object array");
        int[][] expected = {{2, 96, 5, -1}, {4, 24, 6, -1}, {1, 416, 7, 100}, {5, 56, 8, 4}};
        for (int row = 1; row <= 4; row++) {
            int[] values = expected[row - 1];
            same(values[0], osNgetRefCountImpl(storage, row), "references of " + row);
            same(values[1], osNgetSizeImpl(storage, row), "size of " + row);
            same(values[2], osNgetGenerationImpl(storage, row), "generation of " + row);
            same(row == 1 ? 0 : 1, osNgetRefImpl(storage, row, 0), "class of " + row);
        }
        same(100, osNgetArrayLengthImpl(storage, 3), "length");
        same(4, osNgetArrayLengthImpl(storage, 4), "length");
        osNsetRefImpl(storage, 4, 2, 4);
        same(2, osNgetRefImpl(storage, 4, 4), "reference");
        same(0, osNgetRefImpl(storage, 4, 3), "reference");
        osNunmapImpl(storage);
        osNdelete(storage);
    }

    public static void attributesKeepTheirValues() {
        long storage = osNcreate(10, (byte) 1, "");
        osNsetSizeImpl(storage, 9, 77);
        osNsetOIDHighPartImpl(storage, 9, -5);
        osNsetAllocatorImpl(storage, 9, 11, 12);
        osNsetRetainedSizeImpl(storage, 9, 0x123456789aL);
        osNsetPrimitiveDataPositionImpl(storage, 9, -2L);
        osNsetMetaImpl(storage, 9, 1L << 40, 99);
        same(77, osNgetSizeImpl(storage, 9), "size");
        same(-5, osNgetOIDHighPartImpl(storage, 9), "id");
        same(11, osNgetAllocatorFrameImpl(storage, 9), "frame");
        same(12, osNgetAllocatorTRNImpl(storage, 9), "thread");
        same(0x123456789aL, osNgetRetainedSizeImpl(storage, 9), "retained");
        same(-2L, osNgetPrimitiveDataPositionImpl(storage, 9), "data position");
        same(1L << 40, osNgetMetaPositionImpl(storage, 9), "meta position");
        same(99, osNgetMetaLengthImpl(storage, 9), "meta length");
        osNdelete(storage);
    }

    public static void badRowsAreToldAndChangeNothing() {
        long storage = osNcreate(10, (byte) 0, "/tmp/");
        for (int bad : new int[] {0, -1, Integer.MIN_VALUE}) {
            String text = "index > 0 (" + bad + ", 0)";
            check(text.equals(thrownBy(() -> osNcreateObjectImpl(storage, bad, 1, 0, 8, 1))), text);
            check(text.equals(thrownBy(() -> osNcreateClassImpl(storage, bad, 0, 8, 1))), text);
            check(text.equals(thrownBy(() -> osNgetSizeImpl(storage, bad))), text);
            check(text.equals(thrownBy(() -> osNsetRefImpl(storage, bad, 1, 0))), text);
        }
        for (int bad : new int[] {10, 11, Integer.MAX_VALUE}) {
            String text = "index < myObjectCount (" + bad + ", 10)";
            check(text.equals(thrownBy(() -> osNcreatePrimArrayImpl(storage, bad, 1, 1, 8, 1))),
                  text);
            check(text.equals(thrownBy(() -> osNcreateObjectArrayImpl(storage, bad, 1, 1, 8, 1))),
                  text);
            check(text.equals(thrownBy(() -> osNsetRetainedSizeImpl(storage, bad, 1))), text);
        }
        same(1, osNcreateObjectImpl(storage, 9, 1, 0, 8, 0), "last row");
        throwsInternal(() -> osNgetRefImpl(storage, 9, 1));
        throwsInternal(() -> osNsetRefImpl(storage, 9, 1, -1));
        throwsInternal(() -> osNcreateObjectImpl(storage, 8, 1, 0, 8, -1));
        throwsInternal(() -> osNcreateObjectImpl(storage, 8, 1, 0, 8, Integer.MAX_VALUE));
        osNdelete(storage);
        check("objectCount > 0 (0, 0)".equals(thrownBy(() -> osNcreate(0, (byte) 0, ""))),
              "no rows");
        throwsInternal(() -> osNcreate(10, (byte) 0, null));
        throwsInternal(() -> osNgetSizeImpl(storage, 1));
    }

    public static void arraysAreReadByKind() {
        long storage = osNcreate(6, (byte) 0, "/tmp/");
        // Row 1 refers to 2 and 3, row 2 to nothing, row 3 to 1.
        same(1, osNreadArrayImpl(storage, 0, new int[] {0, 0, 0, 2, 2, 0, 2, 1}, 0, 8),
             "starts and counts");
        same(1, osNreadArrayImpl(storage, 1, new int[] {2, 3, 1}, 0, 3), "references");
        same(3, osNgetRefImpl(storage, 1, 1), "second reference");
        same(1, osNgetRefImpl(storage, 3, 0), "reference back");
        same(1, osNreadArrayImpl(storage, 3, new int[] {40, -1, 48}, 1, 4), "sizes");
        same(40, osNgetSizeImpl(storage, 1), "size");
        same(-1, osNgetSizeImpl(storage, 2), "size left out");
        same(1, osNreadArrayImpl(storage, 4, new int[] {1, -1}, 4, 6), "retained sizes");
        same((1L << 32) + 0xffffffffL, osNgetRetainedSizeImpl(storage, 2), "retained size");
        for (int kind = 2; kind <= 12; kind++) {
            same(1, osNreadArrayImpl(storage, kind, new int[] {1, 2, 3}, 0, 2), "kind " + kind);
        }
        same(0, osNreadArrayImpl(storage, 13, new int[3], 0, 2), "no kind");
        same(0, osNreadArrayImpl(storage, -1, new int[3], 0, 2), "no kind");
        throwsInternal(() -> osNreadArrayImpl(storage, 3, null, 0, 1));
        throwsInternal(() -> osNreadArrayImpl(storage, 3, new int[2], 0, 3));
        throwsInternal(() -> osNreadArrayImpl(storage, 3, new int[2], -1, 0));
        throwsInternal(() -> osNreadArrayImpl(storage, 3, new int[2], 2, 1));
        throwsInternal(() -> osNreadArrayImpl(storage, 0, new int[20], 0, 20));
        osNdelete(storage);
    }

    public static void idsBecomeRowsInTheirOrder() {
        for (boolean wide : new boolean[] {true, false}) {
            long processor = createOIDProcessor(wide, 5);
            processOIDs(processor, new long[] {900, 100, 0}, 2);
            processOIDs(processor, new long[] {500, 0x7fffffff}, 2);
            convertOIDsToIndices(processor);
            same(1, getIndex(processor, 100), "first");
            same(2, getIndex(processor, 500), "second");
            same(3, getIndex(processor, 900), "third");
            same(4, getIndex(processor, 0x7fffffff), "last");
            same(0, getIndex(processor, 101), "unknown");
            same(0, getIndex(processor, 100 + (1L << 32)), "unknown beyond 32 bits");
            throwsInternal(() -> processOIDs(processor, new long[2], 2));
            throwsInternal(() -> processOIDs(processor, new long[2], 3));
            throwsInternal(() -> processOIDs(processor, new long[2], -1));
            throwsInternal(() -> processOIDs(processor, null, 0));
            deleteOIDProcessor(processor);
            throwsInternal(() -> getIndex(processor, 1));
        }
        deleteOIDProcessor(0);
        throwsInternal(() -> createOIDProcessor(true, -1));
    }

    public static void constantsAreAnswered() {
        check("/tmp/".equals(getDefaultTADir()), "directory");
        same(0, getIndexFileFullLength(), "length while nothing is written");
        check(getWinRegStringValue(1, "", "") == null && getShortPath("x") == null, "texts");
        check(getWinRegValueNames(1, "") == null && getWinRegSubKeys(1, null) == null, "names");
        same(0,
             getWinRegIntValue(1, "", "") + setWinRegStringValue(1, "", "", "") +
                     setWinRegIntValue(1, "", "", 1) + deleteWinRegValue(1, "", "") +
                     createWinRegKey(1, "") + createMutex("") + getWindowsVersion() +
                     getProcessType(1),
             "numbers");
        check(!is64BitMachine(), "machine");
        same(0, getSpecialJavaPIDs().length, "processes");
    }
}
