package com.vandrik;

/**
 * All natives of the library as a program declares them that opens heaps and databases and lists
 * the profiled JVMs of its machine.
 * Storages, databases and id processors are held by handles; each must be used by one thread at a
 * time and deleted. Rows are bit r % 32 of word r / 32 wherever an int array holds bits.
 */
public final class Natives {
    private Natives() {
    }

    // Object storage

    public static native long osNcreate(int objectCount, byte withScratch, String tempPath);

    public static native void osNdelete(long storage);

    public static native void osNunmapImpl(long storage);

    public static native int osNcreateObjectImpl(long storage, int index, int classRow,
                                                 int generation, int size, int fieldCount);

    public static native int osNcreatePrimArrayImpl(long storage, int index, int classRow,
                                                    int length, int size, int generation);

    public static native int osNcreateObjectArrayImpl(long storage, int index, int classRow,
                                                      int generation, int size, int length);

    public static native int osNcreateClassImpl(long storage, int index, int generation, int size,
                                                int refCount);

    public static native void osNsetRefImpl(long storage, int row, int reference, int position);

    public static native int osNgetRefImpl(long storage, int row, int position);

    public static native int osNgetRefCountImpl(long storage, int row);

    public static native int osNgetSizeImpl(long storage, int row);

    public static native void osNsetSizeImpl(long storage, int row, int value);

    public static native int osNgetGenerationImpl(long storage, int row);

    public static native int osNgetDominatorImpl(long storage, int row);

    public static native int osNgetArrayLengthImpl(long storage, int row);

    public static native int osNgetMetaLengthImpl(long storage, int row);

    public static native int osNgetOIDHighPartImpl(long storage, int row);

    public static native void osNsetOIDHighPartImpl(long storage, int row, int value);

    public static native int osNgetAllocatorTRNImpl(long storage, int row);

    public static native int osNgetAllocatorFrameImpl(long storage, int row);

    public static native void osNsetAllocatorImpl(long storage, int row, int frame, int thread);

    public static native long osNgetRetainedSizeImpl(long storage, int row);

    public static native void osNsetRetainedSizeImpl(long storage, int row, long value);

    public static native long osNgetPrimitiveDataPositionImpl(long storage, int row);

    public static native void osNsetPrimitiveDataPositionImpl(long storage, int row, long value);

    public static native long osNgetMetaPositionImpl(long storage, int row);

    public static native void osNsetMetaImpl(long storage, int row, long position, int length);

    public static native int osNreadArrayImpl(long storage, int readKind, int[] data, int from,
                                              int to);

    public static native void f(long storage, int[] objects, int[] markBits);

    public static native int f0(long storage, int[] extraMarks, int[] list, int from, int to,
                                int[] objects, int[] reachableBits, int[] resultBits);

    public static native long s1(long storage, int[] markBits);

    public static native int osNcomputeBRTImpl(long storage, int[] reachableBits, int[] counts);

    public static native int osNcomputeDominatorsAndRetainedSizesImpl(long storage, int[] roots,
                                                                      int[] reachableBits);

    public static native String getDefaultTADir();

    public static native long getIndexFileFullLength();

    // Row numbers for object ids

    public static native long createOIDProcessor(boolean wide, int capacity);

    public static native void processOIDs(long processor, long[] oids, int count);

    public static native void convertOIDsToIndices(long processor);

    public static native int getIndex(long processor, long oid);

    public static native void deleteOIDProcessor(long processor);

    // Database

    public static native long dbNcreateNativeDatabaseImpl(int telemetryLimit,
                                                          int probeTableLengthLimit);

    public static native void dbNdeleteNativeDatabaseImpl(long db);

    public static native int dbNgetIntFieldImpl(long db, int field, int row);

    public static native long dbNgetLongFieldImpl(long db, int field, int row);

    public static native void dbNsetIntFieldImpl(long db, int field, int row, int value);

    public static native void dbNsetLongFieldImpl(long db, int field, int row, long value);

    public static native int dbNgetTableMinIndexImpl(long db, int slot);

    public static native int dbNgetTableCapacityImpl(long db, int slot);

    public static native void dbNclearTableImpl(long db, int slot);

    public static native int dbNgetNextIndexFromPoolImpl(long db, int slot);

    public static native int dbNgetRecordModificationStampImpl(long db, int slot, int row);

    public static native void dbNsetRecordModificationStampImpl(long db, int slot, int row,
                                                                int stamp);

    public static native int dbNgetStrIDImpl(long db, String text, int create);

    public static native String dbNgetStringImpl(long db, int row);

    public static native void dbNsetStringImpl(long db, int row, String text);

    public static native int dbNgetPropertyNameImpl(long db, int row);

    public static native void dbNsetPropertyNameImpl(long db, int row, int value);

    public static native int dbNgetPropertyValueImpl(long db, int row);

    public static native void dbNsetPropertyValueImpl(long db, int row, int value);

    public static native int dbNgetTeleValueImpl(long db, int row, int field);

    public static native void dbNsetTeleValueImpl(long db, int row, int field, int value);

    public static native int dbNgetTFIImpl(long db, int threadIndex, int frame, int create);

    public static native int dbNgetTFIFrameIDImpl(long db, int row);

    public static native void dbNsetTFIFrameIDImpl(long db, int row, int value);

    public static native int dbNgetTFIThreadIndexForTFIImpl(long db, int row);

    public static native void dbNsetTFIThreadIndexForTFIImpl(long db, int row, int value);

    public static native void dbNfillThreadFrameIndexImpl(long db);

    public static native void dbNfillJ2EEIndexImpl(long db);

    public static native void dbNfillFramesByMethodImpl(long db, int method, int[] bits, int from,
                                                        int to);

    public static native int dbNcreateUserTableImpl(long db, String description);

    public static native int dbNgetUserTableColumnImpl(long db, int slot, int row, int column);

    public static native void dbNsetUserTableColumnImpl(long db, int slot, int row, int column,
                                                        int value);

    public static native long dbNgetUserTableLongColumnImpl(long db, int slot, int row, int column);

    public static native void dbNsetUserTableLongColumnImpl(long db, int slot, int row, int column,
                                                            long value);

    public static native String dbNgetDatabaseStatisticsImpl(long db);

    public static native String dbNwriteSnapshotImpl(long db, long storage, String path,
                                                     int progressSocket, long flags);

    // Patterns and rewriting

    public static native boolean matches(String pattern, String text);

    public static native String validateMethodPattern(String pattern);

    public static native byte[] retransformClass(String name, byte[] bytes);

    // Processes of this machine

    public static native int[] fillMarked(int stateMask);

    public static native int[] fillMarked75();

    public static native int[] fillMarked8();

    public static native String getSessionNameFromMarker(int pid);

    public static native boolean isLivePID(int pid);

    public static native String getCommandLineByPID(int pid);

    public static native String getProcessPathByPID(int pid);

    public static native String getSessionNameByCommandLine(int pid);

    public static native int getPID();

    public static native String getHostID();

    public static native String getHostID2();

    // Of other operating systems: 0 or null

    public static native String getWinRegStringValue(int root, String key, String name);

    public static native int getWinRegIntValue(int root, String key, String name);

    public static native int setWinRegStringValue(int root, String key, String name, String value);

    public static native int setWinRegIntValue(int root, String key, String name, int value);

    public static native int deleteWinRegValue(int root, String key, String name);

    public static native int createWinRegKey(int root, String key);

    public static native String[] getWinRegValueNames(int root, String key);

    public static native String[] getWinRegSubKeys(int root, String key);

    public static native int createMutex(String name);

    public static native boolean is64BitMachine();

    public static native int getWindowsVersion();

    public static native int getProcessType(int pid);

    public static native String getShortPath(String path);

    public static native int[] getSpecialJavaPIDs();
}
