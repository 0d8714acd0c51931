package com.vandrik.runtime;

/** A thread of a thread dump. */
public final class ThreadInfoRes {
    public final String myName;
    public final long myID;
    public final Thread.State myState;

    /** 0 if it isn't known. */
    public int myPriority;

    public boolean myDaemon;
    public StackTraceElementRes[] myStack = {};

    /** What the thread waits for, and who holds it; null if it waits for nothing. */
    public String myWait;

    private String myOwnedLocks = "";

    ThreadInfoRes(String name, long id, Thread.State state) {
        myName = name;
        myID = id;
        myState = state;
    }

    void setThread(Thread thread) {
        myPriority = thread.getPriority();
        myDaemon = thread.isDaemon();
    }

    void setStack(StackTraceElement[] stack) {
        myStack = new StackTraceElementRes[stack.length];
        for (int i = 0; i < stack.length; i++) {
            myStack[i] = new StackTraceElementRes(stack[i]);
        }
    }

    void addOwnedLock(String lock) {
        myOwnedLocks += "\t- " + lock + "\n";
    }

    void appendTo(StringBuilder out) {
        out.append('"').append(myName).append('"');
        if (myDaemon) {
            out.append(" daemon");
        }
        if (myPriority != 0) {
            out.append(" prio=").append(myPriority);
        }
        out.append(" id=").append(myID).append(' ').append(myState).append('\n');
        for (int i = 0; i < myStack.length; i++) {
            myStack[i].appendTo(out);
        }
        if (!myOwnedLocks.isEmpty()) {
            out.append("\n\tLocked synchronizers:\n").append(myOwnedLocks);
        }
        out.append('\n');
    }
}
