package programs;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import org.apache.catalina.startup.Tomcat;

/**
 * Tomcat with one web application, which holds {@link LoadServlet} in classes of its own. Its
 * folder is "server" in the working folder; the port that it took stands in the file "port" there.
 */
public final class TomcatServer {
    private TomcatServer() {
    }

    private static Path makeApplication(Path server) throws IOException {
        Path classes = server.resolve("webapps/app/WEB-INF/classes/programs");
        Files.createDirectories(classes);
        String name = "LoadServlet.class";
        try (java.io.InputStream in = TomcatServer.class.getResourceAsStream(name)) {
            Files.copy(in, classes.resolve(name), StandardCopyOption.REPLACE_EXISTING);
        }
        return server.resolve("webapps/app");
    }

    public static void main(String[] args) throws Exception {
        Path server = Path.of("server").toAbsolutePath();
        Path application = makeApplication(server);
        Tomcat tomcat = new Tomcat();
        tomcat.setBaseDir(server.toString());
        tomcat.setHostname("localhost");
        tomcat.setPort(0);
        tomcat.getConnector().setProperty("address", "127.0.0.1");
        tomcat.addWebapp("/app", application.toString());
        tomcat.start();
        Files.writeString(server.resolve("port"),
                          Integer.toString(tomcat.getConnector().getLocalPort()));
        System.out.println("ready");
        while (System.in.read() >= 0 && System.in.available() > 0) {
            continue; // the rest of the line "stop"
        }
        tomcat.stop();
        tomcat.destroy();
        System.out.println("bye");
        System.exit(0);
    }
}
