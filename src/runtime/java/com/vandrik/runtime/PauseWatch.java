package com.vandrik.runtime;

import java.lang.management.GarbageCollectorMXBean;
import java.lang.management.ManagementFactory;
import javax.management.Notification;
import javax.management.NotificationEmitter;
import javax.management.NotificationListener;
import javax.management.openmbean.CompositeData;

/** Hears of each collection from the JVM. A class of its own, as a JVM may lack the beans. */
final class PauseWatch implements NotificationListener {
    /** A collection that goes on beside the application stops it for its pauses alone. */
    private static final String CYCLE = "cycle";

    static void start() {
        PauseWatch watch = new PauseWatch();
        for (GarbageCollectorMXBean bean : ManagementFactory.getGarbageCollectorMXBeans()) {
            if (bean instanceof NotificationEmitter) {
                ((NotificationEmitter) bean).addNotificationListener(watch, null, null);
            }
        }
    }

    @Override
    public void handleNotification(Notification notification, Object handback) {
        Object data = notification.getUserData();
        if (!(data instanceof CompositeData)) {
            return;
        }
        CompositeData collection = (CompositeData) data;
        if (!collection.containsKey("gcInfo") || !collection.containsKey("gcAction") ||
            String.valueOf(collection.get("gcAction")).contains(CYCLE)) {
            return;
        }
        Object duration = ((CompositeData) collection.get("gcInfo")).get("duration");
        if (duration instanceof Long) {
            JvmEvents.addPause((Long) duration);
        }
    }
}
