import java.io.BufferedOutputStream;
import java.io.DataOutputStream;
import java.io.InputStream;
import java.net.URI;
import java.nio.file.FileSystems;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.stream.Stream;
import java.util.zip.ZipEntry;
import java.util.zip.ZipFile;

/**
 * Writes class files into one bundle: per class a u2 name length, the name, a u4 length and the
 * bytes. Sources are "jrt" (every module of the running JDK), "jrt:module" or paths of jars.
 */
public class ExtractClasses {
    private static DataOutputStream out;

    private ExtractClasses() {
    }

    private static void add(String name, byte[] bytes) throws Exception {
        out.writeUTF(name);
        out.writeInt(bytes.length);
        out.write(bytes);
    }

    private static void addModules(String module) throws Exception {
        Path root = FileSystems.getFileSystem(URI.create("jrt:/")).getPath("/modules" + module);
        List<Path> paths;
        try (Stream<Path> walk = Files.walk(root)) {
            paths = walk.filter(p -> p.toString().endsWith(".class")).toList();
        }
        for (Path path : paths) {
            add(path.toString(), Files.readAllBytes(path));
        }
    }

    private static void addJar(String jar) throws Exception {
        try (ZipFile zip = new ZipFile(jar)) {
            for (ZipEntry entry : zip.stream().toList()) {
                if (entry.getName().endsWith(".class")) {
                    try (InputStream in = zip.getInputStream(entry)) {
                        add(jar + "!" + entry.getName(), in.readAllBytes());
                    }
                }
            }
        }
    }

    public static void main(String[] args) throws Exception {
        out = new DataOutputStream(
                new BufferedOutputStream(Files.newOutputStream(Path.of(args[0])), 1 << 20));
        for (int i = 1; i < args.length; i++) {
            if (args[i].equals("jrt")) {
                addModules("");
            } else if (args[i].startsWith("jrt:")) {
                addModules("/" + args[i].substring(4));
            } else {
                addJar(args[i]);
            }
        }
        out.close();
    }
}
