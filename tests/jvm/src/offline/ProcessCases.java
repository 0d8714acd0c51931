package offline;

import static com.vandrik.Natives.*;
import static offline.Expect.*;

import java.util.Arrays;

/** What a program asks that lists the JVMs of its machine, and rewriting where no agent runs. */
final class ProcessCases {
    private ProcessCases() {
    }

    private static final int NO_PROCESS = Integer.MAX_VALUE;

    public static void thisProcessIsFoundByItsId() {
        int pid = getPID();
        same(ProcessHandle.current().pid(), pid, "pid");
        check(isLivePID(pid), "alive");
        check(!isLivePID(NO_PROCESS) && !isLivePID(0) && !isLivePID(-1), "no process");
        check(getProcessPathByPID(pid).endsWith("java"), getProcessPathByPID(pid));
        String line = getCommandLineByPID(pid);
        check(line.contains(" jvmtest.InProcess /"), line);
        check("InProcess".equals(getSessionNameByCommandLine(pid)), "session");
        check("unknown".equals(getSessionNameByCommandLine(NO_PROCESS)), "session of nobody");
        check(getCommandLineByPID(NO_PROCESS).isEmpty(), "line of nobody");
        check(getHostID().matches("-?[0-9]+"), getHostID());
        check("0".equals(getHostID2()), "second host id");
    }

    public static void onlyAgentsHaveMarkers() {
        int pid = getPID();
        int[] marked = fillMarked(-1);
        check(marked == null || marked.length % 3 == 0, Arrays.toString(marked));
        for (int i = 0; marked != null && i < marked.length; i += 3) {
            check(marked[i] != pid, "a marker of this process");
        }
        check(getSessionNameFromMarker(pid).isEmpty(), getSessionNameFromMarker(pid));
        check(fillMarked75() == null, "an area that no longer exists");
    }

    public static void patternsAreMatchedAndChecked() {
        check(matches("a*c", "abc") && !matches("a*c", "abd"), "wildcard");
        check(matches(null, "x") && matches(null, null) && !matches("x", null), "null");
        check(validateMethodPattern("*:close()void") == null, "valid");
        check("methodPattern is null".equals(validateMethodPattern(null)), "null");
    }

    public static void withoutAnAgentNoClassIsRewritten() throws Exception {
        byte[] bytes = Object.class.getModule()
                               .getResourceAsStream("java/util/ArrayList.class")
                               .readAllBytes();
        check(retransformClass("java/util/ArrayList", bytes) == null, "a class");
        check(retransformClass("x", new byte[0]) == null, "nothing");
        throwsInternal(() -> retransformClass(null, bytes));
        throwsInternal(() -> retransformClass("x", null));
    }
}
