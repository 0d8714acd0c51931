package programs;

import jakarta.servlet.AsyncContext;
import jakarta.servlet.Filter;
import jakarta.servlet.FilterChain;
import jakarta.servlet.ServletException;
import jakarta.servlet.ServletRequest;
import jakarta.servlet.ServletResponse;
import jakarta.servlet.http.HttpServlet;
import jakarta.servlet.http.HttpServletRequest;
import jakarta.servlet.http.HttpServletResponse;
import java.io.IOException;
import java.net.HttpURLConnection;
import java.net.URL;
import java.nio.file.Files;
import java.nio.file.Path;
import java.sql.Connection;
import java.sql.DriverManager;
import java.sql.Statement;
import org.apache.catalina.Context;
import org.apache.catalina.startup.Tomcat;
import org.apache.tomcat.util.descriptor.web.FilterDef;
import org.apache.tomcat.util.descriptor.web.FilterMap;

/** A server with a filter before all, and servlets that hand requests on in each way. */
public final class RequestEvents {
    private static final String TABLE = "JSP/Servlet Requests";
    private static final long BURNT_NS = 300_000_000;

    private final EventCounts counts = new EventCounts();
    private final Tomcat tomcat = new Tomcat();

    /** What each servlet does; their superclass is called for it, and so is a filter. */
    static final class Pages extends HttpServlet {
        private final String page;

        Pages(String path) {
            page = path;
        }

        @Override
        protected void service(HttpServletRequest request, HttpServletResponse response)
                throws ServletException, IOException {
            super.service(request, response);
        }

        @Override
        protected void doGet(HttpServletRequest request, HttpServletResponse response)
                throws ServletException, IOException {
            switch (page) {
            case "include":
                request.getRequestDispatcher("/plain").include(request, response);
                return;
            case "forward":
                request.getRequestDispatcher("/plain").forward(request, response);
                return;
            case "async":
                goOn(request.startAsync(), request.getParameter("dispatch") != null);
                return;
            case "throw":
                throw new IllegalStateException("counted");
            case "slow":
                query();
                return;
            default:
                response.getWriter().println("plain");
            }
        }

        private static void goOn(AsyncContext context, boolean dispatches) {
            Thread thread = new Thread(() -> {
                if (dispatches) {
                    context.dispatch("/plain");
                } else {
                    context.complete();
                }
            });
            thread.start();
        }

        private static void query() throws ServletException {
            try (Connection connection = DriverManager.getConnection("jdbc:h2:mem:");
                 Statement statement = connection.createStatement()) {
                statement.execute("create alias burn for \"programs.RequestEvents.burn\"");
                statement.executeQuery("call burn(" + BURNT_NS + ")");
            } catch (Exception e) {
                throw new ServletException(e);
            }
        }
    }

    static final class Pass implements Filter {
        @Override
        public void doFilter(ServletRequest request, ServletResponse response, FilterChain chain)
                throws IOException, ServletException {
            chain.doFilter(request, response);
        }
    }

    RequestEvents() throws Exception {
        Path folder = Files.createDirectories(Path.of("server").toAbsolutePath());
        tomcat.setBaseDir(folder.toString());
        tomcat.setHostname("localhost");
        tomcat.setPort(0);
        tomcat.getConnector().setProperty("address", "127.0.0.1");
        Context context = tomcat.addContext("", folder.toString());
        for (String page : new String[] {"plain", "include", "forward", "async", "throw", "slow"}) {
            Tomcat.addServlet(context, page, new Pages(page)).setAsyncSupported(true);
            context.addServletMappingDecoded("/" + page, page);
        }
        FilterDef filter = new FilterDef();
        filter.setFilterName("pass");
        filter.setFilter(new Pass());
        filter.setAsyncSupported("true");
        context.addFilterDef(filter);
        FilterMap all = new FilterMap();
        all.setFilterName("pass");
        all.addURLPattern("/*");
        context.addFilterMap(all);
        tomcat.start();
    }

    /** Called by the database, by reflection. */
    public static int burn(long ns) {
        int rounds = 0;
        for (long start = System.nanoTime(); System.nanoTime() - start < ns;) {
            rounds++;
        }
        return rounds;
    }

    private void get(String address) throws Exception {
        URL url = new URL("http://127.0.0.1:" + tomcat.getConnector().getLocalPort() + address);
        HttpURLConnection connection = (HttpURLConnection) url.openConnection();
        int code = connection.getResponseCode();
        if (code != (address.equals("/throw") ? 500 : 200)) {
            throw new IllegalStateException(address + " " + code);
        }
        if (code == 200) {
            connection.getInputStream().readAllBytes();
        }
    }

    private void request(String address, String... rows) throws Exception {
        get(address);
        for (String row : rows) {
            counts.did(TABLE + row);
        }
    }

    void run() throws Exception {
        for (int i = 0; i < 3; i++) {
            request("/plain?card=" + i + "&flag", " /plain card=?&?");
            request("/plain;jsessionid=A" + i, " /plain;jsessionid=?");
            request("/include", " /include", " /include /plain");
            request("/forward", " /forward", " /plain");
            request("/async", " /async");
            request("/async?dispatch=1", " /async dispatch=?");
            request("/throw", " /throw");
        }
        counts.compare("requests", TABLE);
    }

    /** One slow statement in a request, and one request that fails. */
    void spend() throws Exception {
        get("/slow");
        get("/throw");
    }
}
