package com.vandrik.probes.builtin;

import com.vandrik.probes.InstanceOf;
import com.vandrik.probes.MethodPattern;
import com.vandrik.probes.OnEnterResult;
import com.vandrik.probes.Param;

/**
 * Requests that servlets, JSP pages and filters serve: one row each, and one for what a request
 * includes or is forwarded to.
 */
public final class Servlets {
    private Servlets() {
    }

    static Object enter(Object request) {
        try {
            return Outermost.isLive() ? ServletRequests.enter(request) : null;
        } catch (Throwable e) {
            Outermost.failed(e);
            return null;
        }
    }

    static void leave(Object call, Object request) {
        try {
            ServletRequests.leave(call, request);
        } catch (Throwable e) {
            Outermost.failed(e);
        }
    }

    /** A servlet serves a request. */
    @MethodPattern(
            "*:service(javax.servlet.http.HttpServletRequest, javax.servlet.http.HttpServletResponse)")
    @InstanceOf("javax.servlet.http.HttpServlet")
    public static final class Servlet {
        private Servlet() {
        }

        public static Object onEnter(@Param(1) Object request) {
            return enter(request);
        }

        public static void onReturn(@Param(1) Object request, @OnEnterResult Object call) {
            leave(call, request);
        }

        public static void onUncaughtException(@Param(1) Object request,
                                               @OnEnterResult Object call) {
            leave(call, request);
        }
    }

    /** A JSP page does. */
    @MethodPattern(
            "*:_jspService(javax.servlet.http.HttpServletRequest, javax.servlet.http.HttpServletResponse)")
    @InstanceOf("javax.servlet.jsp.HttpJspPage")
    public static final class Page {
        private Page() {
        }

        public static Object onEnter(@Param(1) Object request) {
            return enter(request);
        }

        public static void onReturn(@Param(1) Object request, @OnEnterResult Object call) {
            leave(call, request);
        }

        public static void onUncaughtException(@Param(1) Object request,
                                               @OnEnterResult Object call) {
            leave(call, request);
        }
    }

    /** A filter hands a request on. */
    @MethodPattern(
            "*:doFilter(javax.servlet.ServletRequest, javax.servlet.ServletResponse, javax.servlet.FilterChain)")
    @InstanceOf("javax.servlet.Filter")
    public static final class Filter {
        private Filter() {
        }

        public static Object onEnter(@Param(1) Object request) {
            return enter(request);
        }

        public static void onReturn(@Param(1) Object request, @OnEnterResult Object call) {
            leave(call, request);
        }

        public static void onUncaughtException(@Param(1) Object request,
                                               @OnEnterResult Object call) {
            leave(call, request);
        }
    }

    /** A servlet serves a request. */
    @MethodPattern(
            "*:service(jakarta.servlet.http.HttpServletRequest, jakarta.servlet.http.HttpServletResponse)")
    @InstanceOf("jakarta.servlet.http.HttpServlet")
    public static final class JakartaServlet {
        private JakartaServlet() {
        }

        public static Object onEnter(@Param(1) Object request) {
            return enter(request);
        }

        public static void onReturn(@Param(1) Object request, @OnEnterResult Object call) {
            leave(call, request);
        }

        public static void onUncaughtException(@Param(1) Object request,
                                               @OnEnterResult Object call) {
            leave(call, request);
        }
    }

    /** A JSP page does. */
    @MethodPattern(
            "*:_jspService(jakarta.servlet.http.HttpServletRequest, jakarta.servlet.http.HttpServletResponse)")
    @InstanceOf("jakarta.servlet.jsp.HttpJspPage")
    public static final class JakartaPage {
        private JakartaPage() {
        }

        public static Object onEnter(@Param(1) Object request) {
            return enter(request);
        }

        public static void onReturn(@Param(1) Object request, @OnEnterResult Object call) {
            leave(call, request);
        }

        public static void onUncaughtException(@Param(1) Object request,
                                               @OnEnterResult Object call) {
            leave(call, request);
        }
    }

    /** A filter hands a request on. */
    @MethodPattern(
            "*:doFilter(jakarta.servlet.ServletRequest, jakarta.servlet.ServletResponse, jakarta.servlet.FilterChain)")
    @InstanceOf("jakarta.servlet.Filter")
    public static final class JakartaFilter {
        private JakartaFilter() {
        }

        public static Object onEnter(@Param(1) Object request) {
            return enter(request);
        }

        public static void onReturn(@Param(1) Object request, @OnEnterResult Object call) {
            leave(call, request);
        }

        public static void onUncaughtException(@Param(1) Object request,
                                               @OnEnterResult Object call) {
            leave(call, request);
        }
    }
}
