package com.vandrik.probes.builtin;

import com.vandrik.probes.StringColumn;
import com.vandrik.probes.Table;
import com.vandrik.probes.triggers.RequestListener;
import com.vandrik.runtime.TypeNames;
import java.lang.reflect.InvocationHandler;
import java.lang.reflect.Method;
import java.lang.reflect.Proxy;

/**
 * The rows of {@link Servlets}. A thread has one open row for each different place that the request
 * has come to: filters, a servlet and its superclass share it. A request that goes on without its
 * thread keeps its row open until its container says that it is complete.
 */
final class ServletRequests {
    private static final RequestTable TABLE = new RequestTable();
    private static final ThreadLocal<Visit> VISITS = new ThreadLocal<Visit>();

    private ServletRequests() {
    }

    private static final class RequestTable extends Table {
        final StringColumn myUri = new StringColumn("URI");
        final StringColumn myQuery = new StringColumn("Query");
        final StringColumn myInclude = new StringColumn("Include");

        RequestTable() {
            super("JSP/Servlet Requests", MASK_FOR_SINGLE_METHOD_CALL_LASTING_EVENTS);
        }
    }

    /** A call on the way of a request; only the first one at a place has a row. */
    private static final class Visit {
        final Visit myOuter;
        final String myUri;
        final String myInclude;
        final long myStartNs = System.nanoTime();
        int myRow = Table.NO_ROW;

        Visit(Visit outer, String uri, String include) {
            myOuter = outer;
            myUri = uri;
            myInclude = include;
        }

        boolean isAtSamePlace(String uri, String include) {
            return equal(myUri, uri) && equal(myInclude, include);
        }

        private static boolean equal(String a, String b) {
            return a == null ? b == null : a.equals(b);
        }
    }

    /** What is asked of requests of a class, looked up once: every request is asked. */
    private static final class Api {
        private static final ClassValue<Api> APIS = new ClassValue<Api>() {
            @Override
            protected Api computeValue(Class<?> type) {
                Class<?> request = TypeNames.find(type, "jakarta.servlet.http.HttpServletRequest");
                if (request != null) {
                    return new Api("jakarta.", request);
                }
                request = TypeNames.find(type, "javax.servlet.http.HttpServletRequest");
                return request == null ? null : new Api("javax.", request);
            }
        };

        final String myPrefix; // of the packages
        // Null where the API is older than the method.
        final Method myURI;
        final Method myQuery;
        final Method myAttribute;
        final Method myDispatcher;
        final Method myIsAsync;
        final Method myContext;

        private Api(String prefix, Class<?> request) {
            myPrefix = prefix;
            myURI = find(request, "getRequestURI");
            myQuery = find(request, "getQueryString");
            myAttribute = find(request, "getAttribute", String.class);
            myDispatcher = find(request, "getDispatcherType");
            myIsAsync = find(request, "isAsyncStarted");
            myContext = find(request, "getAsyncContext");
        }

        /** Null if it is no request by HTTP. */
        static Api of(Object request) {
            return request == null ? null : APIS.get(request.getClass());
        }
    }

    /** Null if it is no request by HTTP. */
    static String uriOf(Object request) {
        Api api = Api.of(request);
        return api == null ? null : text(ask(request, api.myURI));
    }

    static Object enter(Object request) {
        Api api = Api.of(request);
        if (api == null) {
            return null;
        }
        Visit outer = VISITS.get();
        String uri = text(ask(request, api.myURI));
        String include =
                text(ask(request, api.myAttribute, api.myPrefix + "servlet.include.request_uri"));
        Visit visit = new Visit(outer, uri, include);
        VISITS.set(visit);
        boolean isNew = outer == null ? !isDispatchedAgain(request, api)
                                      : !outer.isAtSamePlace(uri, include);
        if (isNew) {
            visit.myRow = open(request, api, uri, include);
        }
        return visit;
    }

    private static int open(Object request, Api api, String uri, String include) {
        int row = TABLE.createRow();
        if (!Rows.exists(row)) {
            return row;
        }
        TABLE.myUri.setValue(row, Redaction.uri(uri));
        TABLE.myQuery.setValue(row, Redaction.query(text(ask(request, api.myQuery))));
        TABLE.myInclude.setValue(row, Redaction.uri(include));
        return row;
    }

    static void leave(Object call, Object request) {
        if (!(call instanceof Visit)) {
            return;
        }
        Visit visit = (Visit) call;
        if (visit.myOuter == null) {
            VISITS.remove();
        } else {
            VISITS.set(visit.myOuter);
        }
        if (visit.myRow != Table.NO_ROW && !(visit.myOuter == null && staysOpen(request, visit))) {
            TABLE.closeRow(visit.myRow);
            if (visit.myOuter == null) {
                tellOfEnd(visit);
            }
        }
    }

    /** What a request includes is part of it. */
    private static void tellOfEnd(Visit request) {
        if (request.myUri != null && RequestListener.isWanted()) {
            RequestListener.ended(request.myUri, System.nanoTime() - request.myStartNs);
        }
    }

    private static String text(Object value) {
        return value == null ? null : value.toString();
    }

    private static Method find(Class<?> type, String name, Class<?>... parameters) {
        try {
            return type == null ? null : type.getMethod(name, parameters);
        } catch (Exception e) {
            return null;
        } catch (LinkageError e) {
            return null;
        }
    }

    /** What the application's object answers; null where it can't. */
    private static Object ask(Object object, Method method, Object... arguments) {
        try {
            return method == null ? null : method.invoke(object, arguments);
        } catch (Exception e) {
            return null;
        }
    }

    /** A request that its container gives to another thread has its row already. */
    private static boolean isDispatchedAgain(Object request, Api api) {
        return "ASYNC".equals(text(ask(request, api.myDispatcher)));
    }

    private static boolean staysOpen(Object request, Visit visit) {
        Api api = Api.of(request);
        if (api == null || !Boolean.TRUE.equals(ask(request, api.myIsAsync))) {
            return false;
        }
        return listen(ask(request, api.myContext), api, visit);
    }

    /** Hears of the end; false if it has come already. */
    private static boolean listen(Object context, Api api, Visit visit) {
        Class<?> type = TypeNames.find(context, api.myPrefix + "servlet.AsyncContext");
        if (type == null) {
            return false;
        }
        try {
            Class<?> listenerType = Class.forName(api.myPrefix + "servlet.AsyncListener", false,
                                                  type.getClassLoader());
            Object listener = Proxy.newProxyInstance(listenerType.getClassLoader(),
                                                     new Class<?>[] {listenerType},
                                                     new CompletionListener(api, visit));
            type.getMethod("addListener", listenerType).invoke(context, listener);
            return true;
        } catch (Exception e) {
            return false;
        } catch (LinkageError e) {
            return false;
        }
    }

    /** An AsyncListener of either package. */
    private static final class CompletionListener implements InvocationHandler {
        private final Api myApi;
        private final Visit myVisit;

        CompletionListener(Api api, Visit visit) {
            myApi = api;
            myVisit = visit;
        }

        @Override
        public Object invoke(Object proxy, Method method, Object[] arguments) {
            String name = method.getName();
            if (name.equals("equals")) {
                return proxy == arguments[0];
            }
            if (name.equals("hashCode")) {
                return System.identityHashCode(proxy);
            }
            if (name.equals("toString")) {
                return getClass().getName();
            }
            try {
                if (name.equals("onComplete")) {
                    TABLE.closeRow(myVisit.myRow);
                    tellOfEnd(myVisit);
                } else if (name.equals("onStartAsync")) {
                    // Listeners hold for one round.
                    goOn(arguments[0]);
                }
            } catch (Throwable e) {
                Outermost.failed(e);
            }
            return null;
        }

        private void goOn(Object event) {
            Class<?> type = TypeNames.find(event, myApi.myPrefix + "servlet.AsyncEvent");
            if (!listen(ask(event, find(type, "getAsyncContext")), myApi, myVisit)) {
                TABLE.closeRow(myVisit.myRow);
            }
        }
    }
}
