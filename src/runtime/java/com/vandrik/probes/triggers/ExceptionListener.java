package com.vandrik.probes.triggers;

import com.vandrik.runtime.Callback;
import com.vandrik.runtime.Core;
import com.vandrik.util.Strings;
import java.util.ArrayDeque;
import java.util.HashMap;
import java.util.Map;

/**
 * Fires when there were too many exceptions within a time. Native code counts them by class, while
 * there is such a listener, and is asked once in a round: no code runs for it where they are made.
 */
public final class ExceptionListener extends PolledListener {
    private static final int DEFAULT_COUNT = 100;

    /** A time is kept in so many parts, so that a long one takes no more memory. */
    private static final int PARTS = 100;

    private static boolean ourIsCounting;
    private static long ourAskedMs = -1;

    /** Of the class; "*" stands for any text. */
    public String myClassPattern = "*";

    public int myMoreThan = DEFAULT_COUNT;

    public Duration myWithin = new Duration(1, Duration.Unit.MINUTES);

    private final ArrayDeque<Part> myParts = new ArrayDeque<Part>();
    private long myCount;
    private long myNowMs;
    private long myFiredMs;

    private String myEventClass;
    private long myEventCount;

    /** Counting begins with the first such listener in force, and ends with the last. */
    public static synchronized void listenersChanged() {
        boolean isWanted = false;
        for (EventListener listener : Core.ourListeners) {
            isWanted |= listener instanceof ExceptionListener && !listener.isTriggerCountExceeded();
        }
        isWanted &= Callback.getTelemetryPeriodMs() > 0;
        if (isWanted != ourIsCounting) {
            Callback.countExceptions(isWanted);
            ourIsCounting = isWanted;
        }
    }

    @Override
    public void observe(long uptimeMs) {
        myNowMs = uptimeMs;
        if (uptimeMs == ourAskedMs) {
            return; // for all of them, by the first in this round
        }
        ourAskedMs = uptimeMs;
        String counts = Callback.takeExceptionCounts();
        if (counts.isEmpty()) {
            return;
        }
        for (EventListener listener : Core.ourListeners) {
            if (listener instanceof ExceptionListener) {
                ((ExceptionListener) listener).add(counts, uptimeMs);
            }
        }
    }

    /** Lines of a number and a class name. */
    void add(String counts, long uptimeMs) {
        forgetOld(uptimeMs);
        for (String line : counts.split("\n")) {
            int blank = line.indexOf(' ');
            String type = line.substring(blank + 1);
            if (Strings.matches(myClassPattern, type)) {
                add(Long.parseLong(line.substring(0, blank)), type, uptimeMs);
            }
        }
    }

    private void add(long count, String type, long uptimeMs) {
        Part last = myParts.peekLast();
        if (last == null || uptimeMs - last.myStartMs > myWithin.toMilliseconds() / PARTS) {
            last = new Part(uptimeMs);
            myParts.add(last);
        }
        Long known = last.myCounts.get(type);
        last.myCounts.put(type, known == null ? count : known + count);
        myCount += count;
    }

    @Override
    public boolean shouldTrigger(long uptimeMs) {
        forgetOld(uptimeMs);
        if (myCount <= myMoreThan) {
            return false;
        }
        myFiredMs = uptimeMs;
        myEventCount = myCount;
        myEventClass = getMostFrequent();
        myParts.clear();
        myCount = 0;
        return true;
    }

    private void forgetOld(long uptimeMs) {
        while (!myParts.isEmpty() &&
               uptimeMs - myParts.peek().myStartMs > myWithin.toMilliseconds()) {
            for (long count : myParts.remove().myCounts.values()) {
                myCount -= count;
            }
        }
    }

    /** When a whole time has passed since, and there were not too many in the latest. */
    @Override
    public boolean isEventFinished() {
        forgetOld(myNowMs);
        return myNowMs - myFiredMs >= myWithin.toMilliseconds() && myCount <= myMoreThan;
    }

    private String getMostFrequent() {
        Map<String, Long> sums = new HashMap<String, Long>();
        String first = null;
        for (Part part : myParts) {
            for (Map.Entry<String, Long> entry : part.myCounts.entrySet()) {
                Long known = sums.get(entry.getKey());
                long sum = entry.getValue() + (known == null ? 0 : known);
                sums.put(entry.getKey(), sum);
                if (first == null || sum > sums.get(first)) {
                    first = entry.getKey();
                }
            }
        }
        return first;
    }

    @Override
    public void onActionsBegin() {
        TelemetryValues.ourExceptionClass = myEventClass;
        TelemetryValues.ourExceptionCount = myEventCount;
    }

    @Override
    public void onActionsCompleted() {
        if (isTriggerCountExceeded()) {
            listenersChanged();
        }
    }

    @Override
    protected void check() {
        super.check();
        if (myMoreThan < 0) {
            throw new IllegalArgumentException("moreThan is negative: " + myMoreThan);
        }
    }

    /** What came within a part of the time. */
    private static final class Part {
        final long myStartMs;
        final Map<String, Long> myCounts = new HashMap<String, Long>();

        Part(long startMs) {
            myStartMs = startMs;
        }
    }
}
