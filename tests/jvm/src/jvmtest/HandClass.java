package jvmtest;

import java.io.ByteArrayOutputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.util.HashMap;
import java.util.Map;

/** Writes small class files by hand, for what no compiler would emit. */
public final class HandClass {
    private final ByteArrayOutputStream poolBytes = new ByteArrayOutputStream();
    private final ByteArrayOutputStream methodBytes = new ByteArrayOutputStream();
    private final DataOutputStream pool = new DataOutputStream(poolBytes);
    private final DataOutputStream methods = new DataOutputStream(methodBytes);
    private final Map<String, Integer> utf8s = new HashMap<>();
    private final int major;
    private final int thisClass;
    private final int superClass;
    private int poolCount = 1;
    private int methodCount;

    public HandClass(String name, int majorVersion) throws IOException {
        major = majorVersion;
        thisClass = indexed(7, utf8(name));
        superClass = indexed(7, utf8("java/lang/Object"));
    }

    public int poolCount() {
        return poolCount;
    }

    public int utf8(String text) throws IOException {
        Integer known = utf8s.get(text);
        if (known != null) {
            return known;
        }
        pool.writeByte(1);
        pool.writeUTF(text);
        utf8s.put(text, poolCount);
        return poolCount++;
    }

    /** A constant of a tag and one or two indices. */
    public int indexed(int tag, int... indices) throws IOException {
        pool.writeByte(tag);
        for (int index : indices) {
            pool.writeShort(index);
        }
        return poolCount++;
    }

    public int member(int tag, String owner, String name, String descriptor) throws IOException {
        int type = indexed(7, utf8(owner));
        return indexed(tag, type, indexed(12, utf8(name), utf8(descriptor)));
    }

    /**
     * Integers that nothing uses, until the pool has so many entries, the unused first included.
     */
    public void fillPool(int count) throws IOException {
        for (; poolCount < count; poolCount++) {
            pool.writeByte(3);
            pool.writeInt(poolCount);
        }
    }

    public void method(int flags, String name, String descriptor, int maxStack, int maxLocals,
                       int... code) throws IOException {
        int attribute = utf8("Code");
        methods.writeShort(flags);
        methods.writeShort(utf8(name));
        methods.writeShort(utf8(descriptor));
        methods.writeShort(1);
        methods.writeShort(attribute);
        methods.writeInt(12 + code.length);
        methods.writeShort(maxStack);
        methods.writeShort(maxLocals);
        methods.writeInt(code.length);
        for (int b : code) {
            methods.writeByte(b);
        }
        methods.writeInt(0);
        methodCount++;
    }

    public void nativeMethod(int flags, String name, String descriptor) throws IOException {
        methods.writeShort(flags);
        methods.writeShort(utf8(name));
        methods.writeShort(utf8(descriptor));
        methods.writeShort(0);
        methodCount++;
    }

    public byte[] bytes() throws IOException {
        ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        DataOutputStream out = new DataOutputStream(bytes);
        out.writeInt(0xcafebabe);
        out.writeInt(major);
        out.writeShort(poolCount);
        poolBytes.writeTo(out);
        out.writeShort(0x21);
        out.writeShort(thisClass);
        out.writeShort(superClass);
        out.writeInt(0);
        out.writeShort(methodCount);
        methodBytes.writeTo(out);
        out.writeShort(0);
        return bytes.toByteArray();
    }
}
