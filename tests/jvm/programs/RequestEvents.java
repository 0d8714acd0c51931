package programs;

import fixtures.WovenClasses;
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
import java.util.List;
import java.util.Map;
import org.apache.catalina.Context;
import org.apache.catalina.startup.Tomcat;
import org.apache.tomcat.util.descriptor.web.FilterDef;
import org.apache.tomcat.util.descriptor.web.FilterMap;

/** A server with a filter before all, and servlets that hand requests on in each way. */
public final class RequestEvents {
    private static final String TABLE = "JSP/Servlet Requests";
    private static final String[] PROBES = {
            "AWTEvents", "Databases", "FileStreams",       "FileChannels", "JUnitTests",
            "Processes", "Servlets",  "RandomAccessFiles", "Sockets",      "Threads"};
    private static final String[] PAGES = {"plain", "include",    "forward",   "async",    "throw",
                                           "slow",  "shop/order", "shop/fail", "shop/leak"};
    private static final long BURNT_NS = 300_000_000;

    private final EventCounts counts = new EventCounts();
    private final Tomcat tomcat = new Tomcat();
    private final Orders orders;

    /** What each servlet does; their superclass is called for it, and so is a filter. */
    static final class Pages extends HttpServlet {
        private static final String SHOP = "shop/";
        private final String page;
        private final transient Orders orders;

        Pages(String path, Orders shop) {
            page = path;
            orders = shop;
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
                if (page.startsWith(SHOP)) {
                    orders.serve(page.substring(SHOP.length()),
                                 Integer.parseInt(request.getParameter("id")));
                }
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
        tomcat.enableNaming();
        orders = new Orders(folder);
        orders.addDatabase(context);
        for (String page : PAGES) {
            Tomcat.addServlet(context, page, new Pages(page, orders)).setAsyncSupported(true);
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
        if (code != (address.matches("/throw.*|/shop/fail.*") ? 500 : 200)) {
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

    /** Two threads of clients; a connection is never closed, and a request fails. */
    void sell() throws Exception {
        get("/shop/leak?id=0");
        Thread second = new Thread(this::orderSome);
        second.start();
        orderSome();
        second.join();
        get("/shop/fail?id=1");
        orders.compare();
    }

    /** Once more, without probes: what runs is what ran before them, and no row comes. */
    void sellUnseen() throws Exception {
        WovenClasses woven = new WovenClasses();
        Class<?> probes = Class.forName("com.vandrik.probes.Probes");
        String[] names = PROBES.clone();
        for (int i = 0; i < names.length; i++) {
            names[i] = "com.vandrik.probes.builtin." + names[i];
        }
        probes.getMethod("unregisterProbes", String[].class).invoke(null, (Object) names);
        List<String> changed = woven.findChanged();
        get("/shop/order?id=1"); // calls that were under way end with their rows: accept
        Map<String, Integer> before = counts.countRows();
        get("/shop/order?id=1");
        Map<String, Integer> after = counts.countRows();
        System.out.println(woven.count() > 50 && changed.isEmpty() && after.equals(before)
                                   ? "unseen equal"
                                   : woven.count() + " woven, changed: " + changed + "; " + before +
                                             " rows became " + after);
    }

    private void orderSome() {
        try {
            for (int id = 0; id < 3; id++) {
                get("/shop/order?id=" + (id + 10 * (Thread.currentThread().getId() % 7)));
            }
        } catch (Exception e) {
            throw new IllegalStateException(e);
        }
    }

    /** One slow statement in a request, a look-up in another, and one request that fails. */
    void spend() throws Exception {
        get("/shop/order?id=2");
        get("/slow");
        get("/throw;v=secret");
    }
}
