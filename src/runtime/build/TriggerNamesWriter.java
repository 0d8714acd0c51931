import com.vandrik.probes.triggers.EventListener;
import com.vandrik.probes.triggers.Serialization;
import com.vandrik.probes.triggers.actions.Action;
import com.vandrik.probes.triggers.actions.NeedsOption;
import com.vandrik.probes.triggers.macros.Macro;
import java.io.IOException;
import java.lang.reflect.Field;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.Arrays;
import java.util.LinkedHashMap;
import java.util.Map;

/**
 * Writes the names of the trigger text as C++ source for the client: listeners, actions and macros,
 * with their properties, as the runtime classes (on the class path) have them.
 */
public final class TriggerNamesWriter {
    /** Types of properties, by the names that the client has for them. */
    private static final Map<String, String> KINDS = new LinkedHashMap<>();
    static {
        KINDS.put("String", "Text");
        KINDS.put("boolean", "Flag");
        KINDS.put("int", "Number");
        KINDS.put("long", "LongNumber");
        KINDS.put("Duration", "Duration");
    }

    private final StringBuilder myOut = new StringBuilder();

    public static void main(String[] args) throws Exception {
        if (args.length != 1) {
            System.err.println("usage: TriggerNamesWriter <out.cpp>");
            System.exit(2);
        }
        new TriggerNamesWriter().write(Paths.get(args[0]));
    }

    private void write(Path file) throws Exception {
        myOut.append("// Written by the build from the agent's Java classes.\n");
        myOut.append("#include \"client/triggers/TriggerNames.h\"\n\nnamespace vdk {\n");
        begin("TriggerName", "triggerListeners");
        for (Class<?> type : EventListener.ALL_CLASSES) {
            writeName(type);
        }
        end();
        begin("TriggerName", "triggerActions");
        for (Class<?> type : Action.ALL_CLASSES) {
            writeName(type);
        }
        end();
        begin("TriggerMacro", "triggerMacros");
        for (Macro macro : Macro.values()) {
            myOut.append("        {").append(quote(macro.name())).append(", ");
            myOut.append(macro.isOfMethod()).append(", {");
            for (String option : macro.getOptions()) {
                myOut.append(quote(option)).append(", ");
            }
            myOut.append("}},\n");
        }
        end();
        myOut.append("\n} // namespace vdk\n");
        writeIfChanged(file, myOut.toString());
    }

    /** A file that is as it was need not be compiled again. */
    private static void writeIfChanged(Path file, String text) throws IOException {
        byte[] bytes = text.getBytes(StandardCharsets.UTF_8);
        if (!Files.exists(file) || !Arrays.equals(Files.readAllBytes(file), bytes)) {
            Files.write(file, bytes);
        }
    }

    private void begin(String type, String function) {
        myOut.append("\nconst std::vector<").append(type).append(">& ").append(function);
        myOut.append("() {\n    static const std::vector<").append(type).append("> list = {\n");
    }

    private void end() {
        myOut.append("    };\n    return list;\n}\n");
    }

    private void writeName(Class<?> type) throws Exception {
        Object object = type.getDeclaredConstructor().newInstance();
        myOut.append("        {").append(quote(Serialization.getExternalName(type))).append(", {");
        for (Field field : Serialization.getProperties(type)) {
            String kind = KINDS.get(field.getType().getSimpleName());
            if (kind == null) {
                throw new IllegalStateException("a property of an unknown type: " + field);
            }
            Object value = field.get(object);
            myOut.append("{").append(quote(Serialization.getPropertyName(field)));
            myOut.append(", TriggerValue::").append(kind).append(", ");
            myOut.append(quote(value == null ? "" : value.toString())).append("}, ");
        }
        boolean isOfMethodsOnly = object instanceof Action && ((Action) object).isOfMethodsOnly();
        String option =
                object instanceof NeedsOption ? ((NeedsOption) object).getNeededOption() : "";
        myOut.append("}, ")
                .append(isOfMethodsOnly)
                .append(", ")
                .append(quote(option))
                .append("},\n");
    }

    private static String quote(String text) {
        return '"' + text.replace("\\", "\\\\").replace("\"", "\\\"") + '"';
    }
}
