package com.vandrik.probes.triggers;

import com.vandrik.runtime.Callback;
import com.vandrik.runtime.Core;
import com.vandrik.util.Strings;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.atomic.AtomicInteger;

/** Fires when requests that servlets answer take long; the probe Servlets tells of them. */
public final class RequestListener extends PolledListener {
    private static final String PROBE = "com.vandrik.probes.builtin.Servlets";

    /** Those that hear of requests. */
    private static volatile RequestListener[] ourListeners = {};

    /** Of the path; "*" stands for any text. */
    public String myUrlPattern = "*";

    public Duration mySlowerThan = new Duration(1, Duration.Unit.SECONDS);

    /** Requests since the last look. */
    private final AtomicInteger mySlow = new AtomicInteger();

    private boolean myHears;

    /** Whether anybody wants to hear of requests. */
    public static boolean isWanted() {
        return ourListeners.length != 0;
    }

    /** A request has ended. Called by threads of the application. */
    public static void ended(String path, long durationNs) {
        for (RequestListener listener : ourListeners) {
            if (durationNs / 1000000 > listener.mySlowerThan.toMilliseconds() &&
                Strings.matches(listener.myUrlPattern, path)) {
                listener.mySlow.incrementAndGet();
            }
        }
    }

    @Override
    public boolean shouldTrigger(long uptimeMs) {
        if (!myHears) {
            myHears = true;
            listen(this);
        }
        return mySlow.getAndSet(0) != 0;
    }

    /** Those that are no longer in force hear no more. */
    private static synchronized void listen(RequestListener added) {
        List<EventListener> inForce = Arrays.asList(Core.ourListeners);
        List<RequestListener> all = new ArrayList<RequestListener>();
        for (RequestListener known : ourListeners) {
            if (inForce.contains(known)) {
                all.add(known);
            }
        }
        all.add(added);
        ourListeners = all.toArray(new RequestListener[0]);
        if (!Arrays.asList(Callback.getProbes(1)).contains(PROBE)) {
            Callback.messageToLogFile("RequestListener fires only while the probe Servlets is"
                                      + " registered, which it is not");
        }
    }
}
