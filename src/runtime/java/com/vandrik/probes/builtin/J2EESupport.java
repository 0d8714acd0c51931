package com.vandrik.probes.builtin;

import com.vandrik.probes.InstanceOf;
import com.vandrik.probes.MethodName;
import com.vandrik.probes.MethodPattern;
import com.vandrik.probes.Param;
import com.vandrik.probes.ReturnValue;
import com.vandrik.probes.This;

/** Charges CPU time to what it is spent for: statements, requests, look-ups. */
public final class J2EESupport {
    private J2EESupport() {
    }

    /** Statements are prepared; they keep the text. */
    @MethodPattern({"*:prepareStatement(*)", "*:prepareCall(*)"})
    @InstanceOf("java.sql.Connection")
    public static final class Connection_1 {
        private Connection_1() {
        }

        public static void onEnter(@Param(1) String sql) {
            J2EESupportCalls.enterSql(sql);
        }

        public static void onReturn(@ReturnValue Object statement, @Param(1) String sql) {
            J2EESupportCalls.leaveSql(statement, sql);
        }

        public static void onUncaughtException() {
            J2EESupportCalls.leaveByException();
        }
    }

    /** Transactions end. */
    @MethodPattern({"*:commit() void", "*:rollback() void"})
    @InstanceOf("java.sql.Connection")
    public static final class Connection_2 {
        private Connection_2() {
        }

        public static void onEnter(@MethodName String name) {
            J2EESupportCalls.enterSql(name);
        }

        public static void onReturn() {
            J2EESupportCalls.leave();
        }

        public static void onUncaughtException() {
            J2EESupportCalls.leaveByException();
        }
    }

    /** Statements are executed with a text. */
    @MethodPattern({"*:execute(String)", "*:execute(String, *)", "*:executeQuery(String)",
                    "*:executeUpdate(String)", "*:executeUpdate(String, *)",
                    "*:executeLargeUpdate(String)", "*:executeLargeUpdate(String, *)"})
    @InstanceOf("java.sql.Statement")
    public static final class Statement_1 {
        private Statement_1() {
        }

        public static void onEnter(@Param(1) String sql) {
            J2EESupportCalls.enterSql(sql);
        }

        public static void onReturn() {
            J2EESupportCalls.leave();
        }

        public static void onUncaughtException() {
            J2EESupportCalls.leaveByException();
        }
    }

    /** Batches are executed. */
    @MethodPattern({"*:executeBatch()", "*:executeLargeBatch()"})
    @InstanceOf("java.sql.Statement")
    public static final class Statement_2 {
        private Statement_2() {
        }

        public static void onEnter(@This Object statement) {
            J2EESupportCalls.enterNamed(statement, J2EESupportCalls.SQL_QUERY);
        }

        public static void onReturn() {
            J2EESupportCalls.leave();
        }

        public static void onUncaughtException() {
            J2EESupportCalls.leaveByException();
        }
    }

    /** Prepared statements are executed. */
    @MethodPattern(
            {"*:execute()", "*:executeQuery()", "*:executeUpdate()", "*:executeLargeUpdate()"})
    @InstanceOf("java.sql.PreparedStatement")
    public static final class PreparedStatement {
        private PreparedStatement() {
        }

        public static void onEnter(@This Object statement) {
            J2EESupportCalls.enterNamed(statement, J2EESupportCalls.SQL_QUERY);
        }

        public static void onReturn() {
            J2EESupportCalls.leave();
        }

        public static void onUncaughtException() {
            J2EESupportCalls.leaveByException();
        }
    }

    /** Connections are opened. */
    @MethodPattern("*:connect(String, java.util.Properties)")
    @InstanceOf("java.sql.Driver")
    public static final class Driver {
        private Driver() {
        }

        public static void onEnter(@Param(1) String url) {
            J2EESupportCalls.enterDatabase(url);
        }

        public static void onReturn() {
            J2EESupportCalls.leave();
        }

        public static void onUncaughtException() {
            J2EESupportCalls.leaveByException();
        }
    }

    /** Servlets serve requests. */
    @MethodPattern(
            "*:service(javax.servlet.http.HttpServletRequest, javax.servlet.http.HttpServletResponse)")
    @InstanceOf("javax.servlet.http.HttpServlet")
    public static final class HttpServlet {
        private HttpServlet() {
        }

        public static void onEnter(@Param(1) Object request) {
            J2EESupportCalls.enterRequest(request, J2EESupportCalls.HTTP_SERVLET);
        }

        public static void onReturn() {
            J2EESupportCalls.leave();
        }

        public static void onUncaughtException() {
            J2EESupportCalls.leaveByException();
        }
    }

    /** Pages do. */
    @MethodPattern(
            "*:_jspService(javax.servlet.http.HttpServletRequest, javax.servlet.http.HttpServletResponse)")
    @InstanceOf("javax.servlet.jsp.HttpJspPage")
    public static final class HttpJspPage {
        private HttpJspPage() {
        }

        public static void onEnter(@Param(1) Object request) {
            J2EESupportCalls.enterRequest(request, J2EESupportCalls.HTTP_JSP);
        }

        public static void onReturn() {
            J2EESupportCalls.leave();
        }

        public static void onUncaughtException() {
            J2EESupportCalls.leaveByException();
        }
    }

    /** Pages include, and forward to, others. */
    @MethodPattern({"*:include(String)", "*:include(String, boolean)", "*:forward(String)"})
    @InstanceOf("javax.servlet.jsp.PageContext")
    public static final class PageContext {
        private PageContext() {
        }

        public static void onEnter(@Param(1) String uri) {
            J2EESupportCalls.enterUri(uri);
        }

        public static void onReturn() {
            J2EESupportCalls.leave();
        }

        public static void onUncaughtException() {
            J2EESupportCalls.leaveByException();
        }
    }

    /** Dispatchers do; they have the name that they were asked for by. */
    @MethodPattern({"*:include(javax.servlet.ServletRequest, javax.servlet.ServletResponse)",
                    "*:forward(javax.servlet.ServletRequest, javax.servlet.ServletResponse)"})
    @InstanceOf("javax.servlet.RequestDispatcher")
    public static final class RequestDispatcher {
        private RequestDispatcher() {
        }

        public static void onEnter(@This Object dispatcher) {
            J2EESupportCalls.enterNamed(dispatcher, J2EESupportCalls.HTTP_DISPATCHER);
        }

        public static void onReturn() {
            J2EESupportCalls.leave();
        }

        public static void onUncaughtException() {
            J2EESupportCalls.leaveByException();
        }
    }

    /** Dispatchers are asked for. */
    @MethodPattern({"*:getRequestDispatcher(String)", "*:getNamedDispatcher(String)"})
    @InstanceOf("javax.servlet.ServletContext")
    public static final class ServletContext {
        private ServletContext() {
        }

        public static void onEnter(@Param(1) String uri) {
            J2EESupportCalls.enterUri(uri);
        }

        public static void onReturn(@ReturnValue Object dispatcher, @Param(1) String uri) {
            J2EESupportCalls.leaveUri(dispatcher, uri);
        }

        public static void onUncaughtException() {
            J2EESupportCalls.leaveByException();
        }
    }

    /** Dispatchers are asked for. */
    @MethodPattern("*:getRequestDispatcher(String)")
    @InstanceOf("javax.servlet.ServletRequest")
    public static final class ServletRequest {
        private ServletRequest() {
        }

        public static void onEnter(@Param(1) String uri) {
            J2EESupportCalls.enterUri(uri);
        }

        public static void onReturn(@ReturnValue Object dispatcher, @Param(1) String uri) {
            J2EESupportCalls.leaveUri(dispatcher, uri);
        }

        public static void onUncaughtException() {
            J2EESupportCalls.leaveByException();
        }
    }

    /** Servlets serve requests. */
    @MethodPattern(
            "*:service(jakarta.servlet.http.HttpServletRequest, jakarta.servlet.http.HttpServletResponse)")
    @InstanceOf("jakarta.servlet.http.HttpServlet")
    public static final class JakartaHttpServlet {
        private JakartaHttpServlet() {
        }

        public static void onEnter(@Param(1) Object request) {
            J2EESupportCalls.enterRequest(request, J2EESupportCalls.HTTP_SERVLET);
        }

        public static void onReturn() {
            J2EESupportCalls.leave();
        }

        public static void onUncaughtException() {
            J2EESupportCalls.leaveByException();
        }
    }

    /** Pages do. */
    @MethodPattern(
            "*:_jspService(jakarta.servlet.http.HttpServletRequest, jakarta.servlet.http.HttpServletResponse)")
    @InstanceOf("jakarta.servlet.jsp.HttpJspPage")
    public static final class JakartaHttpJspPage {
        private JakartaHttpJspPage() {
        }

        public static void onEnter(@Param(1) Object request) {
            J2EESupportCalls.enterRequest(request, J2EESupportCalls.HTTP_JSP);
        }

        public static void onReturn() {
            J2EESupportCalls.leave();
        }

        public static void onUncaughtException() {
            J2EESupportCalls.leaveByException();
        }
    }

    /** Pages include, and forward to, others. */
    @MethodPattern({"*:include(String)", "*:include(String, boolean)", "*:forward(String)"})
    @InstanceOf("jakarta.servlet.jsp.PageContext")
    public static final class JakartaPageContext {
        private JakartaPageContext() {
        }

        public static void onEnter(@Param(1) String uri) {
            J2EESupportCalls.enterUri(uri);
        }

        public static void onReturn() {
            J2EESupportCalls.leave();
        }

        public static void onUncaughtException() {
            J2EESupportCalls.leaveByException();
        }
    }

    /** Dispatchers do; they have the name that they were asked for by. */
    @MethodPattern({"*:include(jakarta.servlet.ServletRequest, jakarta.servlet.ServletResponse)",
                    "*:forward(jakarta.servlet.ServletRequest, jakarta.servlet.ServletResponse)"})
    @InstanceOf("jakarta.servlet.RequestDispatcher")
    public static final class JakartaRequestDispatcher {
        private JakartaRequestDispatcher() {
        }

        public static void onEnter(@This Object dispatcher) {
            J2EESupportCalls.enterNamed(dispatcher, J2EESupportCalls.HTTP_DISPATCHER);
        }

        public static void onReturn() {
            J2EESupportCalls.leave();
        }

        public static void onUncaughtException() {
            J2EESupportCalls.leaveByException();
        }
    }

    /** Dispatchers are asked for. */
    @MethodPattern({"*:getRequestDispatcher(String)", "*:getNamedDispatcher(String)"})
    @InstanceOf("jakarta.servlet.ServletContext")
    public static final class JakartaServletContext {
        private JakartaServletContext() {
        }

        public static void onEnter(@Param(1) String uri) {
            J2EESupportCalls.enterUri(uri);
        }

        public static void onReturn(@ReturnValue Object dispatcher, @Param(1) String uri) {
            J2EESupportCalls.leaveUri(dispatcher, uri);
        }

        public static void onUncaughtException() {
            J2EESupportCalls.leaveByException();
        }
    }

    /** Dispatchers are asked for. */
    @MethodPattern("*:getRequestDispatcher(String)")
    @InstanceOf("jakarta.servlet.ServletRequest")
    public static final class JakartaServletRequest {
        private JakartaServletRequest() {
        }

        public static void onEnter(@Param(1) String uri) {
            J2EESupportCalls.enterUri(uri);
        }

        public static void onReturn(@ReturnValue Object dispatcher, @Param(1) String uri) {
            J2EESupportCalls.leaveUri(dispatcher, uri);
        }

        public static void onUncaughtException() {
            J2EESupportCalls.leaveByException();
        }
    }

    /** Objects are looked up, and bound, by a text. */
    @MethodPattern({"*C*t*x*:lookup(String)", "*C*t*x*:lookupLink(String)", "*C*t*x*:list(String)",
                    "*C*t*x*:listBindings(String)", "*C*t*x*:bind(String, Object)",
                    "*C*t*x*:rebind(String, Object)", "*C*t*x*:unbind(String)",
                    "*C*t*x*:createSubcontext(String)", "*C*t*x*:destroySubcontext(String)"})
    @InstanceOf("javax.naming.Context")
    public static final class NamingContext_1 {
        private NamingContext_1() {
        }

        public static void onEnter(@Param(1) String name) {
            J2EESupportCalls.enterName(name);
        }

        public static void onReturn() {
            J2EESupportCalls.leave();
        }

        public static void onUncaughtException() {
            J2EESupportCalls.leaveByException();
        }
    }

    /** The same by a name in parts. */
    @MethodPattern(
            {"*C*t*x*:lookup(javax.naming.Name)", "*C*t*x*:lookupLink(javax.naming.Name)",
             "*C*t*x*:list(javax.naming.Name)", "*C*t*x*:listBindings(javax.naming.Name)",
             "*C*t*x*:bind(javax.naming.Name, Object)", "*C*t*x*:rebind(javax.naming.Name, Object)",
             "*C*t*x*:unbind(javax.naming.Name)", "*C*t*x*:createSubcontext(javax.naming.Name)",
             "*C*t*x*:destroySubcontext(javax.naming.Name)"})
    @InstanceOf("javax.naming.Context")
    public static final class NamingContext_2 {
        private NamingContext_2() {
        }

        public static void onEnter(@Param(1) Object name) {
            J2EESupportCalls.enterName(name);
        }

        public static void onReturn() {
            J2EESupportCalls.leave();
        }

        public static void onUncaughtException() {
            J2EESupportCalls.leaveByException();
        }
    }

    /** Directories are asked, and changed, by a text. */
    @MethodPattern({"*C*t*x*:getAttributes(String)", "*C*t*x*:getAttributes(String, *)",
                    "*C*t*x*:modifyAttributes(String, *)", "*C*t*x*:search(String, *)",
                    "*C*t*x*:bind(String, Object, javax.naming.directory.Attributes)",
                    "*C*t*x*:rebind(String, Object, javax.naming.directory.Attributes)",
                    "*C*t*x*:createSubcontext(String, javax.naming.directory.Attributes)"})
    @InstanceOf("javax.naming.directory.DirContext")
    public static final class DirContext_1 {
        private DirContext_1() {
        }

        public static void onEnter(@Param(1) String name) {
            J2EESupportCalls.enterName(name);
        }

        public static void onReturn() {
            J2EESupportCalls.leave();
        }

        public static void onUncaughtException() {
            J2EESupportCalls.leaveByException();
        }
    }

    /** The same by a name in parts. */
    @MethodPattern(
            {"*C*t*x*:getAttributes(javax.naming.Name)",
             "*C*t*x*:getAttributes(javax.naming.Name, *)",
             "*C*t*x*:modifyAttributes(javax.naming.Name, *)",
             "*C*t*x*:search(javax.naming.Name, *)",
             "*C*t*x*:bind(javax.naming.Name, Object, javax.naming.directory.Attributes)",
             "*C*t*x*:rebind(javax.naming.Name, Object, javax.naming.directory.Attributes)",
             "*C*t*x*:createSubcontext(javax.naming.Name, javax.naming.directory.Attributes)"})
    @InstanceOf("javax.naming.directory.DirContext")
    public static final class DirContext_2 {
        private DirContext_2() {
        }

        public static void onEnter(@Param(1) Object name) {
            J2EESupportCalls.enterName(name);
        }

        public static void onReturn() {
            J2EESupportCalls.leave();
        }

        public static void onUncaughtException() {
            J2EESupportCalls.leaveByException();
        }
    }
}
