import java.lang.module.ModuleReader;
import java.lang.module.ResolvedModule;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;

/**
 * Links every class of every module of the running JDK, or the classes of the given directory, and
 * prints how many were linked and how many the verifier refused. With verification on for all
 * loaders this shows whether rewritten classes are valid.
 */
public class LinkClasses {
    private static int linked;
    private static int refused;
    private static int unlinkable;

    private LinkClasses() {
    }

    private static void link(ClassLoader loader, String name) {
        try {
            Class<?> type = Class.forName(name, false, loader);
            type.getDeclaredConstructors();
            linked++;
        } catch (VerifyError | ClassFormatError e) {
            refused++;
            System.out.println("REFUSED " + name + ": " + e);
        } catch (Throwable e) {
            // Optional dependencies: the class is broken without any rewriting.
            unlinkable++;
        }
    }

    private static void linkModule(ResolvedModule module) throws Exception {
        Module loaded = ModuleLayer.boot().findModule(module.name()).orElse(null);
        if (loaded == null) {
            return;
        }
        try (ModuleReader reader = module.reference().open()) {
            List<String> names = reader.list().filter(n -> n.endsWith(".class")).toList();
            for (String name : names) {
                if (!name.endsWith("module-info.class")) {
                    String dotted = name.substring(0, name.length() - 6).replace('/', '.');
                    link(loaded.getClassLoader(), dotted);
                }
            }
        }
    }

    public static void main(String[] args) throws Exception {
        if (args.length > 0) {
            for (String name : Files.readAllLines(Path.of(args[0]))) {
                link(LinkClasses.class.getClassLoader(), name);
            }
        } else {
            for (ResolvedModule module : ModuleLayer.boot().configuration().modules()) {
                linkModule(module);
            }
        }
        System.out.println("linked " + linked + " refused " + refused + " unlinkable " +
                           unlinkable);
    }
}
