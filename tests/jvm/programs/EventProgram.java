package programs;

import fixtures.CountsItself;
import java.io.BufferedReader;
import java.io.InputStreamReader;
import java.util.logging.LogManager;

/** Obeys lines: what to do, and to compare with what was recorded. */
public final class EventProgram {
    private EventProgram() {
    }

    public static void main(String[] args) {
        try {
            obeyLines();
            System.out.println("bye");
            System.out.flush();
            System.exit(0);
        } catch (Throwable e) {
            e.printStackTrace();
            System.exit(1); // the server's threads would go on
        }
    }

    private static void obeyLines() throws Exception {
        LogManager.getLogManager().reset();
        System.out.println("ready");
        BufferedReader in = new BufferedReader(new InputStreamReader(System.in));
        RequestEvents server = null;
        for (String line = in.readLine(); !line.equals("stop"); line = in.readLine()) {
            switch (line) {
            case "depth":
                Deep.fall();
                break;
            case "queries":
                new QueryEvents().run();
                break;
            case "tests":
                CountedTest.run();
                break;
            case "requests":
                server = new RequestEvents();
                server.run();
                break;
            case "orders":
                server.sell();
                break;
            case "unseen":
                server.sellUnseen();
                break;
            case "sampled":
            case "traced":
                server.spend();
                break;
            default:
                CountsItself.obey(line);
            }
            System.out.println("done " + line);
        }
    }
}
