import java.io.ByteArrayInputStream;
import java.io.DataInputStream;
import java.lang.management.ManagementFactory;
import java.lang.management.ThreadMXBean;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import org.objectweb.asm.ClassReader;
import org.objectweb.asm.ClassVisitor;
import org.objectweb.asm.ClassWriter;
import org.objectweb.asm.MethodVisitor;
import org.objectweb.asm.Opcodes;

/**
 * The baseline of classfile_bench: the same classes read and written, and given entry and exit
 * calls, by ASM on a warmed-up JVM, in thread CPU time. Arguments: bundle, rounds.
 */
public class AsmBench {
    private AsmBench() {
    }

    static final class Calls extends MethodVisitor {
        private static final String CALLBACK = "com/vandrik/runtime/Callback";

        Calls(MethodVisitor next) {
            super(Opcodes.ASM9, next);
        }

        private void call(String name) {
            super.visitIntInsn(Opcodes.SIPUSH, 52);
            super.visitIntInsn(Opcodes.SIPUSH, 1);
            super.visitMethodInsn(Opcodes.INVOKESTATIC, CALLBACK, name, "(SS)V", false);
        }

        @Override
        public void visitCode() {
            super.visitCode();
            call("vdkMethodEntry");
        }

        @Override
        public void visitInsn(int opcode) {
            if (opcode >= Opcodes.IRETURN && opcode <= Opcodes.RETURN) {
                call("vdkMethodExit");
            }
            super.visitInsn(opcode);
        }

        @Override
        public void visitMaxs(int stack, int locals) {
            super.visitMaxs(stack + 2, locals);
        }
    }

    private static long rewrite(byte[] bytes, boolean copyUnchanged, boolean insert) {
        ClassReader reader = new ClassReader(bytes);
        ClassWriter writer = copyUnchanged ? new ClassWriter(reader, 0) : new ClassWriter(0);
        boolean isInterface = (reader.getAccess() & Opcodes.ACC_INTERFACE) != 0;
        ClassVisitor visitor =
                !insert || isInterface ? writer : new ClassVisitor(Opcodes.ASM9, writer) {
                    @Override
                    public MethodVisitor visitMethod(int access, String name, String descriptor,
                                                     String signature, String[] exceptions) {
                        return new Calls(
                                super.visitMethod(access, name, descriptor, signature, exceptions));
                    }
                };
        reader.accept(visitor, 0);
        return writer.toByteArray().length;
    }

    private static void measure(String name, List<byte[]> classes, int rounds, boolean copy,
                                boolean insert) {
        ThreadMXBean threads = ManagementFactory.getThreadMXBean();
        double megabytes = 0;
        for (byte[] bytes : classes) {
            megabytes += bytes.length / 1e6;
        }
        double best = 1e9;
        long written = 0;
        for (int round = 0; round < rounds; round++) {
            long start = threads.getCurrentThreadCpuTime();
            written = 0;
            for (byte[] bytes : classes) {
                written += rewrite(bytes, copy, insert);
            }
            best = Math.min(best, (threads.getCurrentThreadCpuTime() - start) / 1e9);
        }
        System.out.printf("%-46s %7.1f MB/s %9.0f classes/s %6.2f us/class  (writes %.1f MB)%n",
                          name, megabytes / best, classes.size() / best,
                          best / classes.size() * 1e6, written / 1e6);
    }

    public static void main(String[] args) throws Exception {
        byte[] file = Files.readAllBytes(Path.of(args[0]));
        int rounds = Integer.parseInt(args[1]);
        List<byte[]> classes = new ArrayList<>();
        DataInputStream in = new DataInputStream(new ByteArrayInputStream(file));
        int unknown = 0;
        while (in.available() > 0) {
            in.readUTF();
            byte[] bytes = new byte[in.readInt()];
            in.readFully(bytes);
            // A release of ASM older than the JDK: the version is all that it minds.
            if (bytes[7] > 64) {
                bytes[7] = 64;
            }
            try {
                rewrite(bytes, false, true);
                classes.add(bytes);
            } catch (RuntimeException e) {
                unknown++;
            }
        }
        System.out.println("ASM: " + classes.size() + " classes, " + unknown + " left out");
        measure("ASM: read, write (unchanged methods copied)", classes, rounds, true, false);
        measure("ASM: read, write (everything visited)", classes, rounds, false, false);
        measure("ASM: read, insert entry and exit, write", classes, rounds, true, true);
    }
}
