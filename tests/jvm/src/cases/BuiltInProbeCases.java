package cases;

import fixtures.CountsItself;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Target;

/** What the built-in probes record of a program that counts what it does by itself. */
public final class BuiltInProbeCases {
    private static final String[] THEMES = {"files", "sockets", "processes", "threads", "events"};

    private BuiltInProbeCases() {
    }

    @Case(fixture = CountsItself.class)
    static void recordWhatTheProgramDoes(Target target) throws Exception {
        target.ask("register", "done register");
        for (String theme : THEMES) {
            target.ask(theme, "done " + theme);
            Check.isTrue(target.output().contains(theme + " equal\n"), () -> target.state());
        }
        target.finish();
    }
}
