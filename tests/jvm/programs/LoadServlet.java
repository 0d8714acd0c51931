package programs;

import jakarta.servlet.AsyncContext;
import jakarta.servlet.ServletException;
import jakarta.servlet.annotation.WebServlet;
import jakarta.servlet.http.HttpServlet;
import jakarta.servlet.http.HttpServletRequest;
import jakarta.servlet.http.HttpServletResponse;
import jakarta.servlet.http.HttpSession;
import java.io.IOException;
import java.util.ArrayList;
import java.util.TreeMap;
import java.util.stream.Collectors;
import java.util.stream.IntStream;

/** What the server under load serves: each path answers the same to the same request. */
@WebServlet(urlPatterns = "/load/*", asyncSupported = true)
public final class LoadServlet extends HttpServlet {
    private static final long serialVersionUID = 1;

    @Override
    protected void doGet(HttpServletRequest request, HttpServletResponse response)
            throws ServletException, IOException {
        int n = Integer.parseInt(request.getParameter("n"));
        response.setContentType("text/plain;charset=UTF-8");
        switch (request.getPathInfo()) {
        case "/text":
            response.getWriter().println(IntStream.range(0, n)
                                                 .mapToObj(i -> String.format("%04x \u00e4", i * i))
                                                 .collect(Collectors.joining(", ")));
            break;
        case "/session":
            HttpSession session = request.getSession();
            session.setAttribute(
                    "list",
                    new ArrayList<>(new TreeMap<>(java.util.Map.of("b", 1, "a", 2)).keySet()));
            response.getWriter().println(session.isNew() + " " + session.getAttribute("list"));
            session.invalidate();
            break;
        case "/later":
            AsyncContext context = request.startAsync();
            context.start(() -> complete(context, n));
            break;
        case "/large":
            for (int i = 0; i < n * 100; i++) {
                response.getWriter().println("line " + i);
            }
            break;
        case "/fail":
            throw new ServletException("failed " + n, new IllegalStateException("cause"));
        default:
            response.sendError(HttpServletResponse.SC_NOT_FOUND, request.getPathInfo());
        }
    }

    private static void complete(AsyncContext context, int n) {
        try {
            context.getResponse().getWriter().println("later " + n);
        } catch (IOException e) {
            context.getRequest().getServletContext().log("answer not written", e);
        }
        context.complete();
    }

    @Override
    protected void doPost(HttpServletRequest request, HttpServletResponse response)
            throws IOException {
        byte[] body = request.getInputStream().readAllBytes();
        response.setContentType("text/plain");
        response.getWriter().println(body.length + " " + java.util.Arrays.hashCode(body));
    }
}
