// `vdk metrics`: what is known of all profiled JVMs, for programs that gather numbers.
#include "client/commands/Commands.h"
#include "client/console/InputFile.h"
#include "client/console/Text.h"
#include "client/fleet/FleetWatch.h"
#include "client/fleet/HttpServer.h"

#include <algorithm>
#include <cstdlib>

namespace vdk {

namespace {

constexpr const char* DefaultAddress = "127.0.0.1:9464";
constexpr int DefaultDeadlineMs = 5000;
constexpr const char* MetricsPath = "/metrics";
// Of the time that the asker gives: the answer has to reach it.
constexpr double PartOfTimeout = 0.8;

ListenAddress addressOf(const Arguments& arguments) {
    const std::string text = arguments.text("--listen", DefaultAddress);
    const auto address = parseListenAddress(text);
    if (!address) {
        throw ClientError(ExitCode::Usage, "usage",
                          "'" + printable(text) + "' is no address to listen on",
                          "--listen 127.0.0.1:9464, [::1]:9464 or :0");
    }
    return *address;
}

// From the file, without the end of its line.
std::string tokenOf(const Arguments& arguments, const ListenAddress& address) {
    if (!arguments.has("--token-file")) {
        if (!address.isLoopback() && !arguments.has("--no-token")) {
            throw ClientError(ExitCode::Usage, "usage",
                              address.text() + " can be reached from elsewhere: name a file with a "
                                               "token, or say --no-token",
                              "vdk metrics --listen 0.0.0.0:9464 --token-file FILE");
        }
        return "";
    }
    const std::string path = arguments.text("--token-file");
    std::string token = readWholeFile(path);
    token.erase(token.find_last_not_of(" \t\r\n") + 1);
    if (token.empty() || token.find_first_of("\r\n") != std::string::npos) {
        throw ClientError(ExitCode::Usage, "usage",
                          path + ": a token is one line that is not empty");
    }
    return token;
}

int deadlineFor(const HttpRequest& request, int deadlineMs) {
    const std::string given = request.header("x-prometheus-scrape-timeout-seconds");
    const double seconds = strtod(given.c_str(), nullptr);
    return seconds > 0 && seconds < 3600 ? std::min(deadlineMs, int(seconds * 1000 * PartOfTimeout))
                                         : deadlineMs;
}

HttpAnswer answerTo(FleetWatch& fleet, const HttpRequest& request, int deadlineMs) {
    HttpAnswer answer;
    if (request.path == MetricsPath) {
        const MetricForm form = metricFormOf(request.header("accept"));
        answer.mediaType = mediaType(form);
        answer.body = fleet.scrape(form, deadlineFor(request, deadlineMs));
    } else if (request.path == "/") {
        answer.body = std::string("vdk metrics: ") + MetricsPath + "\n";
    } else if (request.path == "/-/healthy") {
        answer.body = "ok\n";
    } else {
        answer.status = 404;
        answer.body = std::string("nothing is here but ") + MetricsPath + "\n";
    }
    return answer;
}

int listFamilies(Console& console) {
    if (console.json) {
        JsonDocument json(console, "vdk.metrics/1");
        json.key("families").beginArray();
        for (const MetricFamily& family : FleetWatch::families()) {
            json.beginObject().field("name", std::string(family.name) + sampleEnding(family.type));
            json.field("type", typeName(family.type)).field("unit", family.unit);
            json.field("help", family.help).endObject();
        }
        json.endArray();
        json.end();
        return 0;
    }
    TextTable table({{"NAME"}, {"TYPE"}, {"MEANING"}});
    for (const MetricFamily& family : FleetWatch::families()) {
        table.add({std::string(family.name) + sampleEnding(family.type), typeName(family.type),
                   family.help});
    }
    table.print(console);
    return 0;
}

} // namespace

int runMetrics(Console& console, const Arguments& arguments) {
    if (arguments.has("--names")) {
        return listFamilies(console);
    }
    if (arguments.has("--all") && !arguments.all("TARGET").empty()) {
        throw ClientError(ExitCode::Usage, "usage", "name targets, or --all, not both");
    }
    if (arguments.has("--once") && console.json) {
        throw ClientError(ExitCode::Usage, "usage", "what --once prints is OpenMetrics, no JSON");
    }
    FleetChoices choices;
    choices.targets = arguments.all("TARGET");
    choices.timeoutMs = int(arguments.durationMs("--timeout", choices.timeoutMs));
    const int deadlineMs = int(arguments.durationMs("--deadline", DefaultDeadlineMs));
    if (arguments.has("--once")) {
        choices.timeoutMs = std::min(choices.timeoutMs, deadlineMs); // nobody comes again
    }
    FleetWatch fleet(choices);
    if (arguments.has("--once")) {
        console.out << fleet.scrape(MetricForm::OpenMetrics, deadlineMs);
        return 0;
    }
    const ListenAddress address = addressOf(arguments);
    HttpServer server(address, tokenOf(arguments, address), [&](const HttpRequest& request) {
        return answerTo(fleet, request, deadlineMs);
    });
    const std::string url = "http://" + server.address().text() + MetricsPath;
    if (console.json) {
        JsonDocument json(console, "vdk.metrics/1");
        json.field("url", url);
        json.end();
    } else {
        console.out << "metrics at " << url << "\n";
    }
    console.out.flush();
    server.run();
    return 0;
}

} // namespace vdk
