package com.vandrik.runtime;

import java.lang.management.GarbageCollectorMXBean;
import java.lang.management.ManagementFactory;
import javax.management.ListenerNotFoundException;
import javax.management.Notification;
import javax.management.NotificationEmitter;
import javax.management.NotificationListener;
import javax.management.openmbean.CompositeData;

/** Hears of each collection from the JVM. A class of its own, as a JVM may lack the beans. */
final class PauseWatch implements NotificationListener {
    /** A collection that goes on beside the application stops it for its pauses alone. */
    private static final String CYCLE = "cycle";

    private static PauseWatch ourWatch;

    static void start() {
        ourWatch = new PauseWatch();
        for (GarbageCollectorMXBean bean : ManagementFactory.getGarbageCollectorMXBeans()) {
            if (bean instanceof NotificationEmitter) {
                ((NotificationEmitter) bean).addNotificationListener(ourWatch, null, null);
            }
        }
    }

    static void end() {
        for (GarbageCollectorMXBean bean : ManagementFactory.getGarbageCollectorMXBeans()) {
            try {
                if (bean instanceof NotificationEmitter) {
                    ((NotificationEmitter) bean).removeNotificationListener(ourWatch);
                }
            } catch (ListenerNotFoundException never) {
                // the start failed before this bean
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
