package programs;

import java.sql.Connection;
import java.sql.Driver;
import java.sql.DriverPropertyInfo;
import java.util.Properties;
import java.util.logging.Logger;

/** Calls into a probe for the first time where no stack is left, at every depth of the end. */
final class Deep implements Driver {
    @Override
    public Connection connect(String url, Properties info) {
        return null;
    }

    @Override
    public boolean acceptsURL(String url) {
        return false;
    }

    @Override
    public DriverPropertyInfo[] getPropertyInfo(String url, Properties info) {
        return new DriverPropertyInfo[0];
    }

    @Override
    public int getMajorVersion() {
        return 0;
    }

    @Override
    public int getMinorVersion() {
        return 0;
    }

    @Override
    public boolean jdbcCompliant() {
        return false;
    }

    @Override
    public Logger getParentLogger() {
        return null;
    }

    private int dive(int depth) {
        try {
            return dive(depth + 1) + 1;
        } catch (StackOverflowError full) {
            connect("", null);
            throw full;
        }
    }

    static void fall() throws InterruptedException {
        Deep deep = new Deep();
        Thread thread = new Thread(null, () -> {
            try {
                deep.dive(0);
            } catch (StackOverflowError expected) {
                deep.connect("", null);
            }
        }, "deep", 200_000);
        thread.start();
        thread.join();
    }
}
