#include "client/fleet/RemoteHost.h"

#include "client/attach/AgentLibraryFile.h"
#include "client/attach/Launch.h"
#include "client/console/Errors.h"
#include "client/console/InputFile.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"
#include "client/fleet/Subprocess.h"
#include "core/ground/Version.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <zlib.h>

namespace vdk {

namespace {

constexpr const char* HostOption = "--host";
constexpr const char* CopyOption = "--copy-vdk";
constexpr int CopyTimeoutMs = 600000;

void checkHost(const std::string& host) {
    const bool isPlain = std::all_of(host.begin(), host.end(), [](unsigned char c) {
        return isalnum(c) || strchr("._-@:[]%", c) != nullptr;
    });
    // A name that began with a hyphen would be an option of ssh's.
    if (host.empty() || host[0] == '-' || !isPlain) {
        throw ClientError(ExitCode::Usage, "usage",
                          "'" + printable(host, 60) +
                              "' is no host: USER@MACHINE, or a name of "
                              "~/.ssh/config");
    }
}

std::vector<std::string> sshWords(const std::string& host, const std::string& command,
                                  bool needsTerminal) {
    return {"ssh", needsTerminal ? "-t" : "-T", "--", host, command};
}

// Runs a line of the other side's shell with the bytes as its input.
void runThere(const std::string& host, const std::string& line, const std::string& input) {
    const ProgramResult result = runProgram(
        sshWords(host, "exec sh -c " + shellQuoted(line), false), input, "", CopyTimeoutMs);
    if (result.code != 0) {
        std::string why = result.timedOut ? "no answer in time" : result.errors;
        why.erase(why.find_last_not_of("\r\n") + 1);
        throw ClientError(
            ExitCode::CannotRun, "host.copy",
            "cannot copy vdk to " + host + ": " +
                (why.empty() ? "exit code " + std::to_string(result.code) : printable(why, 300)));
    }
}

// Brings a file there unless it is there; its name is of its content, so that it is never another.
void bring(const std::string& host, const std::string& folder, const std::string& name,
           const std::string& bytes) {
    const std::string file = folder + "/" + name;
    // The variable is for the shell there.
    runThere(host,
             "umask 077; f=\"$HOME/" + file + "\"; test -s \"$f\" && exit 0; mkdir -p \"$HOME/" +
                 folder + "\" && cat > \"$f.$$\" && test $(wc -c < \"$f.$$\") = " +
                 std::to_string(bytes.size()) + " && chmod 700 \"$f.$$\" && mv \"$f.$$\" \"$f\"",
             bytes);
}

std::string copyVdk(Console& console, const std::string& host) {
    const std::string program = readWholeFile("/proc/self/exe");
    const std::string library = readWholeFile(findAgentLibrary("", ExitCode::CannotRun));
    uLong sum = crc32_z(0, reinterpret_cast<const Bytef*>(program.data()), program.size());
    sum = crc32_z(sum, reinterpret_cast<const Bytef*>(library.data()), library.size());
    char mark[16];
    snprintf(mark, sizeof(mark), "%08lx", sum);
    const std::string folder = std::string(".cache/vdk/") + VDK_VERSION + "-" + mark;
    if (!console.quiet && !console.json) {
        console.note("bringing vdk to " + host + ":~/" + folder + ", unless it is there");
    }
    bring(host, folder, "libvdkagent.so", library);
    bring(host, folder, "vdk", program);
    return "\"$HOME\"/" + folder + "/vdk";
}

} // namespace

std::vector<std::string> withoutHost(const std::vector<std::string>& words) {
    std::vector<std::string> rest;
    for (size_t i = 0; i < words.size(); i++) {
        if (words[i] == "--") {
            rest.insert(rest.end(), words.begin() + long(i), words.end());
            break;
        }
        if (words[i] == HostOption) {
            i++; // its value
        } else if (words[i] != CopyOption && !startsWith(words[i], std::string(HostOption) + "=")) {
            rest.push_back(words[i]);
        }
    }
    return rest;
}

std::vector<std::string> remoteCommand(const RemoteCall& call, const std::string& program) {
    std::string line = "exec " + program;
    for (const std::string& word : call.words) {
        line += " " + shellQuoted(word);
    }
    // Whatever shell the user has there: only sh is known to take the line as it is meant.
    return sshWords(call.host, "exec sh -c " + shellQuoted(line), call.needsTerminal);
}

void runOnHost(Console& console, const RemoteCall& call) {
    checkHost(call.host);
    const std::string program = call.copies ? copyVdk(console, call.host) : "vdk";
    console.out.flush();
    restoreSignalHandlers();
    execute({remoteCommand(call, program), ""});
    const int error = errno;
    installSignalHandlers();
    throw ClientError(ExitCode::CannotRun, "host.ssh",
                      std::string("cannot run ssh: ") + strerror(error),
                      "install the package openssh-client");
}

} // namespace vdk
