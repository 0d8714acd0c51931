package com.vandrik.runtime;

/** A frame of a thread dump, with notes on the locks taken or awaited there. */
public final class StackTraceElementRes {
    public final StackTraceElement myElement;
    private String myNotes = "";

    StackTraceElementRes(StackTraceElement element) {
        myElement = element;
    }

    void addNote(String note) {
        myNotes += "\t- " + note + "\n";
    }

    void appendTo(StringBuilder out) {
        out.append("\tat ").append(myElement).append('\n').append(myNotes);
    }
}
