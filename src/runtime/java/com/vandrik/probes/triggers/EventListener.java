package com.vandrik.probes.triggers;

/** An event that a user has tied actions to, as told by a line of the trigger text. */
public abstract class EventListener {
    /** The text that the listeners were made from. */
    public static String serializeListeners(EventListener[] listeners) {
        StringBuilder text = new StringBuilder();
        for (int i = 0; i < listeners.length; i++) {
            text.append(listeners[i].serialize());
        }
        return text.toString();
    }

    /**
     * Whether a trigger text names any event. Comments and empty lines don't, nor do actions that
     * stand ahead of the first event.
     */
    public static boolean hasListeners(String text) {
        String[] lines = text.split("\n");
        for (int i = 0; i < lines.length; i++) {
            String line = lines[i];
            String trimmed = line.trim();
            if (!trimmed.isEmpty() && !trimmed.startsWith("#") && line.charAt(0) != ' ') {
                return true;
            }
        }
        return false;
    }

    /** The lines of this listener and its actions. */
    protected abstract String serialize();
}
