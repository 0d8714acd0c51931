package com.vandrik.probes.builtin;

import com.vandrik.api.ProfilingModes;
import com.vandrik.runtime.Callback;

/**
 * What {@link J2EESupport} tells the native side. Nothing that fails here reaches the application.
 * An event without a text still begins, so that each end finds its own. The name begins like the
 * probe's: by that its frames are left out of stacks, which events are told apart by.
 */
final class J2EESupportCalls {
    static final int SQL_QUERY = 1;
    static final int SQL_CONNECT = 2;
    static final int HTTP_SERVLET = 4;
    static final int HTTP_JSP = 5;
    static final int HTTP_DISPATCHER = 6;
    static final int JNDI = 7;

    private J2EESupportCalls() {
    }

    static void enterSql(String sql) {
        String text = null;
        try {
            text = Redaction.sql(sql);
        } catch (Throwable e) {
            Outermost.failed(e);
        }
        enter(text, SQL_QUERY);
    }

    static void enterDatabase(String url) {
        String text = null;
        try {
            text = Redaction.database(url);
        } catch (Throwable e) {
            Outermost.failed(e);
        }
        enter(text, SQL_CONNECT);
    }

    static void enterUri(String uri) {
        String text = null;
        try {
            text = Redaction.uri(uri);
        } catch (Throwable e) {
            Outermost.failed(e);
        }
        enter(text, HTTP_DISPATCHER);
    }

    /** A name may be an object of the application's. */
    static void enterName(Object name) {
        String text = null;
        try {
            text = name == null ? null : Texts.cut(name.toString());
        } catch (Throwable e) {
            Outermost.failed(e);
        }
        enter(text, JNDI);
    }

    private static void enter(String text, int type) {
        try {
            Callback.vdkJ2eeEntry1(text, type);
        } catch (Throwable e) {
            Outermost.failed(e);
        }
    }

    /** Has the text that the object got when it was made. */
    static void enterNamed(Object object, int type) {
        try {
            Callback.vdkJ2eeEntry2(object, type);
        } catch (Throwable e) {
            Outermost.failed(e);
        }
    }

    /** The native side asks the request by itself, but masks nothing. */
    static void enterRequest(Object request, int type) {
        String text = null;
        try {
            if (!Redaction.isOn()) {
                Callback.vdkJ2eeEntry3(request, type);
                return;
            }
            if ((Callback.getStatus() & ProfilingModes.CPU_J2EE) == 0) {
                return;
            }
            text = Redaction.uri(ServletRequests.uriOf(request));
        } catch (Throwable e) {
            Outermost.failed(e);
        }
        enter(text, type);
    }

    static void leave() {
        leave(null, null);
    }

    /** The statement keeps its text for when it is executed. */
    static void leaveSql(Object statement, String sql) {
        String text = null;
        try {
            text = Redaction.sql(sql);
        } catch (Throwable e) {
            Outermost.failed(e);
        }
        leave(statement, text);
    }

    static void leaveUri(Object dispatcher, String uri) {
        String text = null;
        try {
            text = Redaction.uri(uri);
        } catch (Throwable e) {
            Outermost.failed(e);
        }
        leave(dispatcher, text);
    }

    private static void leave(Object named, String text) {
        try {
            Callback.vdkJ2eeExit(named, text);
        } catch (Throwable e) {
            Outermost.failed(e);
        }
    }

    static void leaveByException() {
        try {
            Callback.vdkJ2eeLeave();
        } catch (Throwable e) {
            Outermost.failed(e);
        }
    }
}
