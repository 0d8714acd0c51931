// `vdk mcp`: the answers of other commands as tools for assistants.
#include "client/commands/Commands.h"
#include "client/fleet/McpServer.h"

#include <unistd.h>

namespace vdk {

int runMcp(Console& console, const Arguments& arguments) {
    McpServer(arguments.has("--allow-control")).serve(STDIN_FILENO, console.out);
    return 0;
}

} // namespace vdk
