package com.vandrik.probes.watch;

import com.vandrik.util.Strings;
import java.io.ByteArrayOutputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.util.HashMap;
import java.util.Map;

/**
 * Writes the class file of the probe of one watch. Its callbacks hand on to {@link Watches} what
 * they get. They have no parameter that the watch does not need, as a call would pay for it, and
 * the class has no initialiser, as that could fail in the midst of the application.
 */
final class WatchProbe {
    static final String PACKAGE = "com/vandrik/probes/watch/";

    private static final String ANNOTATIONS = "Lcom/vandrik/probes/";
    private static final String WATCHES = PACKAGE + "Watches";
    private static final String OBJECT = "Ljava/lang/Object;";
    /** The last version whose code needs no frames. */
    private static final int VERSION = 49;
    private static final int PUBLIC_FINAL_SUPER = 0x31;
    private static final int PUBLIC_STATIC = 9;

    private static final int ALOAD = 25;
    private static final int LLOAD_0 = 30;
    private static final int ACONST_NULL = 1;
    private static final int LRETURN = 173;
    private static final int RETURN = 177;
    private static final int INVOKESTATIC = 184;
    private static final int LDC_W = 19;

    private static final int UTF8 = 1;
    private static final int INTEGER = 3;
    private static final int CLASS = 7;
    private static final int METHOD = 10;
    private static final int NAME_AND_TYPE = 12;

    /** A parameter of the methods of Watches, behind the place of the watch. */
    private static final String[][] COMMON = {
            {"OnEnterResult", "J"},
            {"ClassRef", "Ljava/lang/Class;"},
            {"MethodName", "Ljava/lang/String;"},
            {"MethodSignature", "Ljava/lang/String;"},
    };

    private final ByteArrayOutputStream myPoolBytes = new ByteArrayOutputStream();
    private final DataOutputStream myPool = new DataOutputStream(myPoolBytes);
    private final Map<String, Integer> myEntries = new HashMap<String, Integer>();
    private int myEntryCount = 1;

    private final int myID;
    private final WatchSettings mySettings;

    private WatchProbe(int id, WatchSettings settings) {
        myID = id;
        mySettings = settings;
    }

    /**
     * Dotted. A class stays in the JVM: a later watch in the same place, whose callbacks have the
     * same parameters, takes its class over. Their code is the same, since after a redefinition
     * some JVMs retransform the bytes from before it.
     */
    static String nameOf(int id, WatchSettings settings) {
        int form = (settings.needsThis() ? 1 : 0) + (settings.needsArguments() ? 2 : 0) +
                   (settings.needsResult() ? 4 : 0);
        return PACKAGE.replace('/', '.') + "Watch" + Watches.placeOf(id) + "_" + form;
    }

    static byte[] write(int id, WatchSettings settings) {
        try {
            return new WatchProbe(id, settings).write();
        } catch (IOException e) {
            throw new IllegalStateException(e);
        }
    }

    private byte[] write() throws IOException {
        ByteArrayOutputStream bodyBytes = new ByteArrayOutputStream();
        DataOutputStream body = new DataOutputStream(bodyBytes);
        body.writeShort(PUBLIC_FINAL_SUPER);
        body.writeShort(classEntry(nameOf(myID, mySettings).replace('.', '/')));
        body.writeShort(classEntry("java/lang/Object"));
        body.writeShort(0);
        body.writeShort(0);
        body.writeShort(3);
        writeOnEnter(body);
        writeEnd(body, "onReturn", "returned", "ReturnValue", OBJECT, mySettings.needsResult());
        writeEnd(body, "onUncaughtException", "thrown", "ThrownException", "Ljava/lang/Throwable;",
                 true);
        body.writeShort(1);
        writeClassAnnotations(body);

        ByteArrayOutputStream file = new ByteArrayOutputStream();
        DataOutputStream out = new DataOutputStream(file);
        out.writeInt(0xCAFEBABE);
        out.writeInt(VERSION);
        out.writeShort(myEntryCount);
        myPoolBytes.writeTo(out);
        bodyBytes.writeTo(out);
        return file.toByteArray();
    }

    private void writeOnEnter(DataOutputStream out) throws IOException {
        ByteArrayOutputStream code = new ByteArrayOutputStream();
        call(code, "java/lang/System", "nanoTime", "()J");
        code.write(LRETURN);
        writeMethod(out, "onEnter", "()J", code, 2, 0, 1);
    }

    /** A callback that calls a method of Watches with its parameters, and null for the others. */
    private void writeEnd(DataOutputStream out, String callback, String target, String last,
                          String lastType, boolean hasLast) throws IOException {
        String[][] values = {{"This", OBJECT}, {"Params", "[" + OBJECT}, {last, lastType}};
        boolean[] isWoven = {mySettings.needsThis(), mySettings.needsArguments(), hasLast};
        ByteArrayOutputStream code = new ByteArrayOutputStream();
        ByteArrayOutputStream annotations = new ByteArrayOutputStream();
        int number = entry(INTEGER, Integer.valueOf(Watches.placeOf(myID)));
        code.write(LDC_W);
        writeShort(code, number);
        StringBuilder own = new StringBuilder("(");
        StringBuilder called = new StringBuilder("(I");
        int local = 0;
        int count = COMMON.length;
        for (int i = 0; i < COMMON.length; i++) {
            if (i == 0) {
                code.write(LLOAD_0);
            } else {
                code.write(ALOAD);
                code.write(local);
            }
            local += i == 0 ? 2 : 1;
            own.append(COMMON[i][1]);
            called.append(COMMON[i][1]);
            annotate(annotations, COMMON[i][0]);
        }
        for (int i = 0; i < values.length; i++) {
            called.append(values[i][1]);
            if (!isWoven[i]) {
                code.write(ACONST_NULL);
                continue;
            }
            code.write(ALOAD);
            code.write(local++);
            own.append(values[i][1]);
            annotate(annotations, values[i][0]);
            count++;
        }
        call(code, WATCHES, target, called.append(")V").toString());
        code.write(RETURN);
        writeMethod(out, callback, own.append(")V").toString(), code, 9, local, 2);
        writeAnnotatedParameters(out, count, annotations);
    }

    private void writeMethod(DataOutputStream out, String name, String descriptor,
                             ByteArrayOutputStream code, int stack, int locals, int attributes)
            throws IOException {
        out.writeShort(PUBLIC_STATIC);
        out.writeShort(utf8(name));
        out.writeShort(utf8(descriptor));
        out.writeShort(attributes);
        out.writeShort(utf8("Code"));
        out.writeInt(12 + code.size());
        out.writeShort(stack);
        out.writeShort(locals);
        out.writeInt(code.size());
        code.writeTo(out);
        out.writeShort(0);
        out.writeShort(0);
    }

    private void writeAnnotatedParameters(DataOutputStream out, int count,
                                          ByteArrayOutputStream annotations) throws IOException {
        out.writeShort(utf8("RuntimeInvisibleParameterAnnotations"));
        out.writeInt(1 + annotations.size());
        out.writeByte(count);
        annotations.writeTo(out);
    }

    /** One annotation without elements. */
    private void annotate(ByteArrayOutputStream out, String name) throws IOException {
        writeShort(out, 1);
        writeShort(out, utf8(ANNOTATIONS + name + ";"));
        writeShort(out, 0);
    }

    private void writeClassAnnotations(DataOutputStream out) throws IOException {
        ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        boolean isNarrowed = !Strings.isEmpty(mySettings.instanceOf);
        writeShort(bytes, isNarrowed ? 2 : 1);
        annotateWith(bytes, "MethodPattern");
        bytes.write('[');
        writeShort(bytes, 1);
        writeText(bytes, mySettings.pattern);
        if (isNarrowed) {
            annotateWith(bytes, "InstanceOf");
            writeText(bytes, mySettings.instanceOf);
        }
        out.writeShort(utf8("RuntimeInvisibleAnnotations"));
        out.writeInt(bytes.size());
        bytes.writeTo(out);
    }

    private void annotateWith(ByteArrayOutputStream out, String name) throws IOException {
        writeShort(out, utf8(ANNOTATIONS + name + ";"));
        writeShort(out, 1);
        writeShort(out, utf8("value"));
    }

    private void writeText(ByteArrayOutputStream out, String text) throws IOException {
        out.write('s');
        writeShort(out, utf8(text));
    }

    private void call(ByteArrayOutputStream code, String owner, String name, String descriptor)
            throws IOException {
        int nameAndType = pair(NAME_AND_TYPE, utf8(name), utf8(descriptor));
        code.write(INVOKESTATIC);
        writeShort(code, pair(METHOD, classEntry(owner), nameAndType));
    }

    private int classEntry(String name) throws IOException {
        return entry(CLASS, Integer.valueOf(utf8(name)));
    }

    private int utf8(String text) throws IOException {
        return entry(UTF8, text);
    }

    private int pair(int tag, int first, int second) throws IOException {
        return entry(tag, Integer.valueOf(first << 16 | second));
    }

    private int entry(int tag, Object value) throws IOException {
        String key = tag + " " + value;
        Integer known = myEntries.get(key);
        if (known != null) {
            return known.intValue();
        }
        myPool.writeByte(tag);
        if (tag == UTF8) {
            myPool.writeUTF((String) value);
        } else if (tag == CLASS) {
            myPool.writeShort(((Integer) value).intValue());
        } else {
            myPool.writeInt(((Integer) value).intValue());
        }
        myEntries.put(key, Integer.valueOf(myEntryCount));
        return myEntryCount++;
    }

    private static void writeShort(ByteArrayOutputStream out, int value) {
        out.write(value >> 8);
        out.write(value);
    }
}
