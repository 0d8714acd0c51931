package com.vandrik.probes.watch;

import java.util.ArrayList;
import java.util.Collections;
import java.util.Comparator;
import java.util.List;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.concurrent.atomic.AtomicLongArray;
import java.util.concurrent.atomic.AtomicReferenceArray;

/** Times of calls by method. Methods are told by what their callbacks got as constants. */
public final class CallSums {
    private static final int MOST_METHODS = 1000;
    private static final int PLACES = 4096; // a power of two

    private final AtomicReferenceArray<Row> myRows = new AtomicReferenceArray<Row>(PLACES);
    private final AtomicInteger myCount = new AtomicInteger();

    /** One method. */
    public static final class Row {
        private static final int ERRORS = 0;
        private static final int TOTAL = 1;
        private static final int SHORTEST = 2;
        private static final int LONGEST = 3;
        private static final int FIRST_BUCKET = 4;

        public final Class<?> type;
        public final String method;
        public final String signature;
        private final int myNumber;
        private final AtomicLongArray[] myStripes = new AtomicLongArray[StripedCounters.STRIPES];

        Row(int number, WatchedCall call) {
            myNumber = number;
            type = call.type;
            method = call.method;
            signature = call.signature;
            for (int i = 0; i < myStripes.length; i++) {
                myStripes[i] = new AtomicLongArray(FIRST_BUCKET + Buckets.COUNT);
                myStripes[i].set(SHORTEST, Long.MAX_VALUE);
            }
        }

        boolean isOf(WatchedCall call) {
            return type == call.type && method.equals(call.method) &&
                    signature.equals(call.signature);
        }

        void add(WatchedCall call, int stripe) {
            AtomicLongArray values = myStripes[stripe];
            long duration = call.durationNs;
            values.getAndIncrement(FIRST_BUCKET + Buckets.of(duration));
            values.getAndAdd(TOTAL, duration);
            if (call.exception != null) {
                values.getAndIncrement(ERRORS);
            }
            for (long old = values.get(SHORTEST); duration < old; old = values.get(SHORTEST)) {
                values.compareAndSet(SHORTEST, old, duration);
            }
            for (long old = values.get(LONGEST); duration > old; old = values.get(LONGEST)) {
                values.compareAndSet(LONGEST, old, duration);
            }
        }

        public long getErrors() {
            return sum(ERRORS);
        }

        public long getTotalNs() {
            return sum(TOTAL);
        }

        public long getShortestNs() {
            long shortest = Long.MAX_VALUE;
            for (AtomicLongArray values : myStripes) {
                shortest = Math.min(shortest, values.get(SHORTEST));
            }
            return shortest == Long.MAX_VALUE ? 0 : shortest;
        }

        public long getLongestNs() {
            long longest = 0;
            for (AtomicLongArray values : myStripes) {
                longest = Math.max(longest, values.get(LONGEST));
            }
            return longest;
        }

        /** Calls by bucket. */
        public long[] getBuckets() {
            long[] calls = new long[Buckets.COUNT];
            for (int i = 0; i < calls.length; i++) {
                calls[i] = sum(FIRST_BUCKET + i);
            }
            return calls;
        }

        private long sum(int index) {
            long sum = 0;
            for (AtomicLongArray values : myStripes) {
                sum += values.get(index);
            }
            return sum;
        }
    }

    /** False where there are too many methods. */
    boolean add(WatchedCall call, int stripe) {
        Row row = rowOf(call);
        if (row == null) {
            return false;
        }
        row.add(call, stripe);
        return true;
    }

    private Row rowOf(WatchedCall call) {
        int hash = System.identityHashCode(call.type) * 31 + call.method.hashCode();
        int place = hash * 31 + call.signature.hashCode();
        place ^= place >>> 16;
        for (;; place++) {
            Row row = myRows.get(place & PLACES - 1);
            if (row == null) {
                int number = myCount.incrementAndGet();
                if (number > MOST_METHODS) {
                    myCount.decrementAndGet();
                    return null;
                }
                row = new Row(number, call);
                if (myRows.compareAndSet(place & PLACES - 1, null, row)) {
                    return row;
                }
                myCount.decrementAndGet();
                row = myRows.get(place & PLACES - 1);
            }
            if (row.isOf(call)) {
                return row;
            }
        }
    }

    /** By their first calls. */
    public List<Row> getRows() {
        List<Row> rows = new ArrayList<Row>();
        for (int i = 0; i < PLACES; i++) {
            Row row = myRows.get(i);
            if (row != null) {
                rows.add(row);
            }
        }
        Collections.sort(rows, new Comparator<Row>() {
            @Override
            public int compare(Row a, Row b) {
                return a.myNumber < b.myNumber ? -1 : a.myNumber > b.myNumber ? 1 : 0;
            }
        });
        return rows;
    }
}
