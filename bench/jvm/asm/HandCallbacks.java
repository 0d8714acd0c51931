package floor;

import java.lang.instrument.ClassFileTransformer;
import java.lang.instrument.Instrumentation;
import java.lang.instrument.UnmodifiableClassException;
import java.security.ProtectionDomain;
import java.util.ArrayList;
import java.util.List;
import org.objectweb.asm.ClassReader;
import org.objectweb.asm.ClassVisitor;
import org.objectweb.asm.ClassWriter;
import org.objectweb.asm.MethodVisitor;
import org.objectweb.asm.Opcodes;
import org.objectweb.asm.Type;
import org.objectweb.asm.commons.AdviceAdapter;

/**
 * The floor under probes: the calls of the benchmarks' callbacks, inserted by hand with ASM, into
 * classes whose names begin with a prefix; at load, or later in batches.
 */
public final class HandCallbacks implements ClassFileTransformer {
    private static final String CALLBACKS = "bench/CallbackProbes$";
    private static final int BATCH = 200;
    private static Instrumentation instrumentation;
    private static volatile String prefix = "";

    private HandCallbacks() {
    }

    /** The argument is the prefix of classes to rewrite at load; none for nothing. */
    public static void premain(String argument, Instrumentation given) {
        instrumentation = given;
        choose(argument);
        given.addTransformer(new HandCallbacks(), true);
    }

    private static void choose(String classes) {
        prefix = classes == null ? "" : classes.replace('.', '/');
    }

    /**
     * From now on classes of this prefix have the calls; with an empty one those that had lose
     * them.
     */
    public static void change(String classes) throws UnmodifiableClassException {
        String concerned = classes.isEmpty() ? prefix.replace('/', '.') : classes;
        choose(classes);
        List<Class<?>> batch = new ArrayList<>();
        for (Class<?> type : instrumentation.getAllLoadedClasses()) {
            if (type.getName().startsWith(concerned)) {
                batch.add(type);
            }
            if (batch.size() == BATCH) {
                instrumentation.retransformClasses(batch.toArray(new Class<?>[ 0 ]));
                batch.clear();
            }
        }
        if (!batch.isEmpty()) {
            instrumentation.retransformClasses(batch.toArray(new Class<?>[ 0 ]));
        }
    }

    @Override
    public byte[] transform(ClassLoader loader, String name, Class<?> type, ProtectionDomain domain,
                            byte[] bytes) {
        if (prefix.isEmpty() || name == null || !name.startsWith(prefix)) {
            return null;
        }
        ClassReader reader = new ClassReader(bytes);
        ClassWriter writer = new ClassWriter(reader, ClassWriter.COMPUTE_MAXS);
        reader.accept(new ClassVisitor(Opcodes.ASM9, writer) {
            @Override
            public MethodVisitor visitMethod(int access, String method, String descriptor,
                                             String signature, String[] exceptions) {
                MethodVisitor next =
                        super.visitMethod(access, method, descriptor, signature, exceptions);
                return isChosen(method) ? new Calls(next, access, method, descriptor) : next;
            }
        }, ClassReader.EXPAND_FRAMES);
        return writer.toByteArray();
    }

    private static boolean isChosen(String method) {
        return method.matches("none|two|all|noneCalling|twoCalling|allCalling");
    }

    private static final class Calls extends AdviceAdapter {
        private final String method;

        Calls(MethodVisitor next, int access, String method, String descriptor) {
            super(Opcodes.ASM9, next, access, method, descriptor);
            this.method = method;
        }

        @Override
        protected void onMethodEnter() {
            String descriptor = "()V";
            if (method.startsWith("two")) {
                loadArg(0);
                loadArg(1);
                descriptor = "(JLjava/lang/Object;)V";
            } else if (method.startsWith("all")) {
                loadArgArray();
                descriptor = "([Ljava/lang/Object;)V";
            }
            String owner = Character.toUpperCase(method.charAt(0)) + method.substring(1);
            invokeStatic(Type.getObjectType(CALLBACKS + owner),
                         new org.objectweb.asm.commons.Method("onEnter", descriptor));
        }
    }
}
