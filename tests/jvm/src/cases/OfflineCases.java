package cases;

import fixtures.Idle;
import java.util.ArrayList;
import java.util.List;
import jvmtest.Case;
import jvmtest.InProcess;
import jvmtest.Target;
import jvmtest.Tool;

/** The natives of the offline analysis, driven in a JVM without an agent. */
public final class OfflineCases {
    private OfflineCases() {
    }

    @Case(fixture = Idle.class, noAgent = true, attach = false)
    static void everyNativeDoesItsPart(Target target) throws Exception {
        target.finish();
        List<String> command = new ArrayList<>(List.of(
                "env", "HOME=" + target.folder, target.jdk.java(), "-Duser.home=" + target.folder,
                "-cp", System.getProperty("java.class.path"), InProcess.class.getName(),
                target.library));
        for (String name : List.of("Storage", "Analysis", "Database", "Process", "Hostile")) {
            command.add("offline." + name + "Cases");
        }
        Tool.run(command);
    }
}
