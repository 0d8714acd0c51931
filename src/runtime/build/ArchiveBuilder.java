import java.io.ByteArrayInputStream;
import java.io.ByteArrayOutputStream;
import java.io.DataInputStream;
import java.io.IOException;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.time.LocalDateTime;
import java.util.ArrayList;
import java.util.List;
import java.util.SortedMap;
import java.util.TreeMap;
import java.util.stream.Stream;
import java.util.zip.CRC32;
import java.util.zip.ZipEntry;
import java.util.zip.ZipOutputStream;

/**
 * Packs the compiled runtime classes for the library: an archive of stored entries, a list of the
 * parts that it is cut into, and the class Callback by itself; and for those who write probes, a
 * jar of the classes that these name. Equal classes give equal bytes:
 * entries have a fixed date and an order of their own. Superclasses and interfaces come ahead of
 * the classes that need them, so that native code can define the entries one after the other.
 */
public final class ArchiveBuilder {
    private static final int PART_SIZE = 10240;
    private static final String CALLBACK = "com/vandrik/runtime/Callback";
    /** What probes are compiled against. */
    private static final String API = "com/vandrik/probes";
    /** The first day of 1980 counts as "earlier than that" and takes a field with the time zone. */
    private static final LocalDateTime DATE = LocalDateTime.of(1980, 2, 1, 0, 0);
    private static final String MANIFEST = "Manifest-Version: 1.0\r\n\r\n";

    /** Classes by binary name. */
    private final SortedMap<String, byte[]> classes = new TreeMap<>();

    private final List<String> order = new ArrayList<>();

    public static void main(String[] args) throws IOException {
        if (args.length < 4 || args.length > 5) {
            System.err.println(
                    "usage: ArchiveBuilder <classes> <archive> <parts.h> <Callback> [<api.jar>]");
            System.exit(2);
        }
        ArchiveBuilder builder = new ArchiveBuilder();
        builder.readClasses(Paths.get(args[0]));
        builder.sort();
        byte[] archive = builder.pack("");
        Files.write(Paths.get(args[1]), archive);
        Files.write(Paths.get(args[2]), partList(archive.length));
        Files.write(Paths.get(args[3]), builder.classes.get(CALLBACK));
        if (args.length == 5) {
            Files.write(Paths.get(args[4]), builder.pack(API));
        }
    }

    private void readClasses(Path root) throws IOException {
        try (Stream<Path> files = Files.walk(root)) {
            for (Path file : (Iterable<Path>) files::iterator) {
                String name = root.relativize(file).toString().replace('\\', '/');
                if (name.endsWith(".class")) {
                    classes.put(name.substring(0, name.length() - 6), Files.readAllBytes(file));
                }
            }
        }
    }

    /** Callback first, as rewritten code needs it first; the rest by name. */
    private void sort() throws IOException {
        visit(CALLBACK);
        for (String name : classes.keySet()) {
            visit(name);
        }
    }

    private void visit(String name) throws IOException {
        if (order.contains(name) || !classes.containsKey(name)) {
            return;
        }
        for (String parent : parentsOf(classes.get(name))) {
            visit(parent);
        }
        order.add(name);
    }

    /** The classes of one package, or with an empty name all. */
    private byte[] pack(String packageName) throws IOException {
        ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        try (ZipOutputStream zip = new ZipOutputStream(bytes)) {
            for (String name : order) {
                if (!packageName.isEmpty() &&
                    !name.substring(0, name.lastIndexOf('/')).equals(packageName)) {
                    continue;
                }
                put(zip, name + ".class", classes.get(name));
            }
            put(zip, "META-INF/MANIFEST.MF", MANIFEST.getBytes(StandardCharsets.US_ASCII));
        }
        return bytes.toByteArray();
    }

    private static void put(ZipOutputStream zip, String name, byte[] content) throws IOException {
        CRC32 crc = new CRC32();
        crc.update(content);
        ZipEntry entry = new ZipEntry(name);
        entry.setMethod(ZipEntry.STORED);
        entry.setSize(content.length);
        entry.setCompressedSize(content.length);
        entry.setCrc(crc.getValue());
        entry.setTimeLocal(DATE);
        zip.putNextEntry(entry);
        zip.write(content);
        zip.closeEntry();
    }

    private static byte[] partList(int size) {
        ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        PrintStream out = new PrintStream(bytes, false, StandardCharsets.US_ASCII);
        out.print("// Written by the build: offset and size of each part of the archive.\n");
        out.print("#define VDK_RUNTIME_ARCHIVE_SIZE " + size + "\n");
        out.print("#define VDK_RUNTIME_ARCHIVE_PARTS(PART)");
        for (int offset = 0; offset < size; offset += PART_SIZE) {
            out.print(" \\\n    PART(" + offset + ", " + Math.min(PART_SIZE, size - offset) + ")");
        }
        out.print("\n");
        out.flush();
        return bytes.toByteArray();
    }

    /** Names of superclass and interfaces. */
    private static List<String> parentsOf(byte[] classFile) throws IOException {
        DataInputStream in = new DataInputStream(new ByteArrayInputStream(classFile));
        in.skipBytes(8);
        int count = in.readUnsignedShort();
        String[] texts = new String[count];
        int[] classNames = new int[count];
        for (int i = 1; i < count; i++) {
            int tag = in.readUnsignedByte();
            if (tag == 1) {
                texts[i] = in.readUTF();
            } else if (tag == 7) {
                classNames[i] = in.readUnsignedShort();
            } else {
                in.skipBytes(constantSize(tag));
                i += tag == 5 || tag == 6 ? 1 : 0;
            }
        }
        in.skipBytes(4);
        List<String> parents = new ArrayList<>();
        parents.add(texts[classNames[in.readUnsignedShort()]]);
        int interfaces = in.readUnsignedShort();
        for (int i = 0; i < interfaces; i++) {
            parents.add(texts[classNames[in.readUnsignedShort()]]);
        }
        return parents;
    }

    private static int constantSize(int tag) {
        switch (tag) {
        case 8:
        case 16:
            return 2;
        case 15:
            return 3;
        case 5:
        case 6:
            return 8;
        default:
            return 4;
        }
    }
}
