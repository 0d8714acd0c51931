package com.vandrik.runtime;

import com.vandrik.util.Strings;
import com.vandrik.util.ThreadUtil;
import java.io.File;
import java.io.IOException;
import java.io.InputStream;
import java.util.ArrayList;
import java.util.List;

/** Starts the profiler's user interface when the agent was asked to. */
final class UILauncher {
    private UILauncher() {
    }

    static void start(final String path, final int idePort, final int port) {
        ThreadUtil
                .createDaemon("VDKAgent-UILauncher",
                              new Runnable() {
                                  @Override
                                  public void run() {
                                      launchUI(path, idePort, port);
                                  }
                              })
                .start();
    }

    private static void launchUI(String path, int idePort, int port) {
        try {
            List<String> command = getCommand(path, idePort, port, Core.ourSessionID,
                                              Core.getSnapshotDirectory(null).getAbsolutePath());
            Callback.messageToLogFile("Launching profiler UI (" + join(command) + ")");
            Process process = new ProcessBuilder(command).start();
            process.getOutputStream().close();
            drain("VDKAgent-UILauncher-IR", process.getInputStream());
            drain("VDKAgent-UILauncher-ER", process.getErrorStream());
        } catch (Throwable e) {
            Callback.messageToLogFile("Cannot launch profiler UI: " + Strings.messageOf(e));
        }
    }

    /** A directory is the home of an installation, anything else the program itself. */
    static List<String> getCommand(String path, int idePort, int port, long sessionID,
                                   String snapshotDirectory) {
        File program = new File(path);
        if (program.isDirectory()) {
            program = new File(new File(program, "bin"), "vandrik");
        }
        List<String> command = new ArrayList<String>();
        command.add(program.getPath());
        command.add("-ideport=" + idePort);
        command.add("-agentport=" + port);
        command.add("-sessionid=" + sessionID);
        command.add("-snapshotdir=" + snapshotDirectory);
        return command;
    }

    private static String join(List<String> command) {
        StringBuilder text = new StringBuilder();
        for (String word : command) {
            if (text.length() != 0) {
                text.append(' ');
            }
            text.append(word);
        }
        return text.toString();
    }

    /** A process whose output nobody reads would stop at a full pipe. */
    private static void drain(String threadName, final InputStream in) {
        ThreadUtil
                .createDaemon(threadName,
                              new Runnable() {
                                  @Override
                                  public void run() {
                                      byte[] buffer = new byte[1024];
                                      try {
                                          while (in.read(buffer) >= 0) {
                                              // its output is of no interest
                                          }
                                      } catch (IOException e) {
                                          // the process has ended
                                      }
                                  }
                              })
                .start();
    }
}
