package floor;

import java.lang.instrument.ClassFileTransformer;
import java.lang.instrument.Instrumentation;
import java.security.ProtectionDomain;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Deque;
import java.util.List;
import org.objectweb.asm.ClassReader;
import org.objectweb.asm.ClassVisitor;
import org.objectweb.asm.ClassWriter;
import org.objectweb.asm.MethodVisitor;
import org.objectweb.asm.Opcodes;
import org.objectweb.asm.commons.LocalVariablesSorter;
import org.objectweb.asm.tree.AbstractInsnNode;
import org.objectweb.asm.tree.AnnotationNode;
import org.objectweb.asm.tree.MethodNode;

/**
 * The floor under an agent that is off: a Java agent that inserts with ASM, into all classes, the
 * calls that ours inserts, to methods that are always empty.
 */
public final class AsmCalls implements ClassFileTransformer {
    private static final String EMPTY = "floor/EmptyCalls";
    private static final int NEWEST_KNOWN = 64;
    private static final String[] LEFT_OUT = {
            "floor/",
            "org/objectweb/asm/",
            "jdk/internal/vm/",
            "java/lang/VirtualThread",
            "java/lang/invoke/",
            "jdk/internal/reflect/Generated",
            "java/lang/instrument/",
            "sun/instrument/",
    };

    private AsmCalls() {
    }

    public static void premain(String arguments, Instrumentation instrumentation) {
        instrumentation.addTransformer(new AsmCalls(), true);
        List<Class<?>> loaded = new ArrayList<>();
        for (Class<?> type : instrumentation.getAllLoadedClasses()) {
            if (instrumentation.isModifiableClass(type) && !type.isArray()) {
                loaded.add(type);
            }
        }
        for (Class<?> type : loaded) {
            try {
                instrumentation.retransformClasses(type);
            } catch (Throwable e) {
                System.err.println("ASM leaves out " + type.getName() + ": " + e);
            }
        }
    }

    @Override
    public byte[] transform(ClassLoader loader, String name, Class<?> type, ProtectionDomain domain,
                            byte[] bytes) {
        for (String prefix : LEFT_OUT) {
            if (name == null || name.startsWith(prefix)) {
                return null;
            }
        }
        try {
            return rewrite(bytes);
        } catch (Throwable e) {
            return null;
        }
    }

    private static byte[] rewrite(byte[] original) {
        byte[] bytes = original.clone();
        // A release of ASM older than the JDK: the version is all that it minds.
        bytes[7] = (byte) Math.min(bytes[7], NEWEST_KNOWN);
        ClassReader reader = new ClassReader(bytes);
        ClassWriter writer = new ClassWriter(reader, ClassWriter.COMPUTE_MAXS);
        reader.accept(new ClassVisitor(Opcodes.ASM9, writer) {
            @Override
            public MethodVisitor visitMethod(int access, String name, String descriptor,
                                             String signature, String[] exceptions) {
                MethodVisitor next =
                        super.visitMethod(access, name, descriptor, signature, exceptions);
                return new MethodNode(Opcodes.ASM9, access, name, descriptor, signature,
                                      exceptions) {
                    @Override
                    public void visitEnd() {
                        accept(isLeftAlone(this) ? next : new Calls(access, descriptor, next));
                    }
                };
            }
        }, ClassReader.EXPAND_FRAMES);
        byte[] result = writer.toByteArray();
        result[7] = original[7];
        return result;
    }

    /** No code, a trivial accessor, or an intrinsic. */
    private static boolean isLeftAlone(MethodNode method) {
        if (method.visibleAnnotations != null) {
            for (AnnotationNode annotation : method.visibleAnnotations) {
                if (annotation.desc.endsWith("/IntrinsicCandidate;")) {
                    return true;
                }
            }
        }
        int count = 0;
        boolean accesses = false;
        for (AbstractInsnNode node = method.instructions.getFirst(); node != null;
             node = node.getNext()) {
            if (node.getOpcode() >= 0) {
                count++;
                accesses |= node.getOpcode() >= Opcodes.GETSTATIC &&
                            node.getOpcode() <= Opcodes.PUTFIELD;
            }
        }
        return count < 3 || count <= 4 && accesses;
    }

    private static final class Calls extends LocalVariablesSorter {
        private final Deque<Boolean> pending = new ArrayDeque<>();
        private boolean afterNew;
        private int hint = -1;

        Calls(int access, String descriptor, MethodVisitor next) {
            super(Opcodes.ASM9, access, descriptor, next);
        }

        private void call(String name) {
            super.visitIntInsn(Opcodes.SIPUSH, 52);
            super.visitIntInsn(Opcodes.SIPUSH, 1);
            super.visitMethodInsn(Opcodes.INVOKESTATIC, EMPTY, name, "(SS)V", false);
        }

        private void allocated() {
            super.visitInsn(Opcodes.DUP);
            mv.visitVarInsn(Opcodes.ILOAD, hint);
            super.visitMethodInsn(Opcodes.INVOKESTATIC, EMPTY, "init", "(Ljava/lang/Object;I)I",
                                  false);
            mv.visitVarInsn(Opcodes.ISTORE, hint);
        }

        @Override
        public void visitCode() {
            super.visitCode();
            hint = newLocal(org.objectweb.asm.Type.INT_TYPE);
            super.visitInsn(Opcodes.ICONST_M1);
            mv.visitVarInsn(Opcodes.ISTORE, hint);
            call("entry");
        }

        @Override
        public void visitTypeInsn(int opcode, String type) {
            super.visitTypeInsn(opcode, type);
            afterNew = opcode == Opcodes.NEW;
            if (opcode == Opcodes.ANEWARRAY) {
                allocated();
            }
        }

        @Override
        public void visitInsn(int opcode) {
            if (opcode >= Opcodes.IRETURN && opcode <= Opcodes.RETURN) {
                call("exit");
            }
            super.visitInsn(opcode);
            if (afterNew) {
                pending.push(opcode == Opcodes.DUP);
                afterNew = false;
            }
        }

        @Override
        public void visitIntInsn(int opcode, int operand) {
            super.visitIntInsn(opcode, operand);
            if (opcode == Opcodes.NEWARRAY) {
                allocated();
            }
        }

        @Override
        public void visitMultiANewArrayInsn(String descriptor, int dimensions) {
            super.visitMultiANewArrayInsn(descriptor, dimensions);
            allocated();
        }

        @Override
        public void visitMethodInsn(int opcode, String owner, String name, String descriptor,
                                    boolean isInterface) {
            super.visitMethodInsn(opcode, owner, name, descriptor, isInterface);
            if (opcode == Opcodes.INVOKESPECIAL && name.equals("<init>") && !pending.isEmpty() &&
                pending.pop()) {
                allocated();
            }
        }
    }
}
