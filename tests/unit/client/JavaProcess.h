// A Java program in a process of its own: prints "ready", waits for its standard input to close,
// prints "done" and ends with 7.
#pragma once

#include "Programs.h"
#include "TempDir.h"

#include <csignal>
#include <fcntl.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

class JavaProcess {
public:
    // Compiles the program into the folder. False if there is no compiler.
    static bool compile(const TempDir& dir) {
        dir.write("Waiter.java", R"(
public class Waiter {
    static volatile double sink;
    static void burn(int rounds) { double x = 1; for (int i = 0; i < rounds; i++) x = Math.sqrt(x + i); sink += x; }
    static void work() { burn(200000); }
    public static void main(String[] args) throws Exception {
        boolean busy = args.length > 0;
        System.out.println("ready");
        while (System.in.available() == 0) { if (busy) work(); else Thread.sleep(10); }
        System.out.println("done");
        System.exit(7);
    }
})");
        std::vector<std::string> homes = jdks("17");
        return !homes.empty() &&
               run(homes[0] + "/bin/javac -d " + dir.path + " " + dir.file("Waiter.java") + " 2>&1")
                       .code == 0;
    }

    // Starts `arguments` (the launcher first) with the program's standard output read by this
    // object and its standard error in `errorFile`.
    JavaProcess(std::vector<std::string> arguments, const std::string& errorFile) {
        int input[2], output[2];
        if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) {
            return;
        }
        pid = fork();
        if (pid == 0) {
            dup2(input[0], STDIN_FILENO);
            dup2(output[1], STDOUT_FILENO);
            dup2(open(errorFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
            std::vector<char*> pointers;
            for (std::string& argument : arguments) {
                pointers.push_back(argument.data());
            }
            pointers.push_back(nullptr);
            execvp(pointers[0], pointers.data());
            _exit(126);
        }
        close(input[0]);
        close(output[1]);
        toProgram = input[1];
        fromProgram = output[0];
    }
    ~JavaProcess() {
        if (pid > 0) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
        close(toProgram);
        close(fromProgram);
    }
    JavaProcess(const JavaProcess&) = delete;
    JavaProcess& operator=(const JavaProcess&) = delete;

    // Reads the output up to this text; false if the output ends before.
    bool waitFor(const std::string& text) {
        char c;
        while (output.find(text) == std::string::npos) {
            if (read(fromProgram, &c, 1) != 1) {
                return false;
            }
            output += c;
        }
        return true;
    }

    // Lets the program end; its exit code.
    int finish() {
        if (write(toProgram, "x", 1) != 1) {
            return -1;
        }
        char buffer[4096];
        ssize_t count;
        while ((count = read(fromProgram, buffer, sizeof(buffer))) > 0) {
            output.append(buffer, size_t(count));
        }
        int status = 0;
        waitpid(pid, &status, 0);
        pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    int pid = -1;
    std::string output;

private:
    int toProgram = -1, fromProgram = -1;
};
