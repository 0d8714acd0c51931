package com.vandrik.runtime;

/** A failure whose message is meant for a user, with a detail for whoever looks closer. */
public class PresentableException extends Exception {
    private static final long serialVersionUID = 1;

    private final String myDetail;

    public PresentableException(String message) {
        this(message, null);
    }

    public PresentableException(String message, String detail) {
        super(message);
        myDetail = detail;
    }

    /** May be null. */
    public String getDetail() {
        return myDetail;
    }
}
