package com.vandrik.runtime;

/** The records of one memory pool: names in the string table and rows in that of properties. */
final class MemPoolInfo {
    final int myUsedNameID;
    final int myCommittedNameID;
    private final int myInitRow;
    private final int myMaxRow;

    MemPoolInfo(int number, String name, boolean heap) {
        Callback.setProperty("mem.pool.name." + number, name);
        Callback.setProperty("mem.pool.type." + number, heap ? "heap" : "non-heap");
        Callback.setProperty("mem.pool.count", Integer.toString(number + 1));
        myUsedNameID = Callback.setProperty("mem.pool.used." + number, null);
        myCommittedNameID = Callback.setProperty("mem.pool.committed." + number, null);
        myInitRow = createRow("mem.pool.init." + number);
        myMaxRow = createRow("mem.pool.max." + number);
    }

    void setInitAndMax(long initBytes, long maxBytes) {
        Callback.setPropertyByRecordIndex(myInitRow, bytesToKB(initBytes));
        Callback.setPropertyByRecordIndex(myMaxRow, bytesToKB(maxBytes));
    }

    /** Unknown sizes are negative and become 0; sizes of 2 TB and more become the largest int. */
    static int bytesToKB(long bytes) {
        return (int) Math.min(Math.max(bytes, 0) / 1024, Integer.MAX_VALUE);
    }

    private static int createRow(String name) {
        return Callback.findPropertyRecordIndex(Callback.setProperty(name, null));
    }
}
