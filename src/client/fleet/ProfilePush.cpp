#include "client/fleet/ProfilePush.h"

#include "client/console/Errors.h"
#include "client/console/Text.h"
#include "client/fleet/Subprocess.h"
#include "client/picture/ProtobufReader.h"
#include "core/ground/Version.h"

#include <algorithm>
#include <cstring>
#include <strings.h>
#include <utility>

namespace vdk {

namespace {

constexpr std::chrono::milliseconds FirstPause(1000);
constexpr std::chrono::milliseconds LongestPause(60000);
constexpr size_t MostAnswerBytes = 1 << 20;
constexpr size_t LongestWords = 200; // of a store
constexpr const char* OtlpPath = "/v1development/profiles";
// Part of no gzip file but by design of somebody who writes one.
constexpr const char* Boundary = "vdk-profile-4f3b9c2e7a51d806";

// What the store is to make of each value: the values of profile.proto that are written here.
constexpr const char* SampleTypes =
    R"({"cpu":{"units":"samples_nanoseconds","display-name":"cpu","aggregation":"sum","cumulative":false,"sampled":false},)"
    R"("wall":{"units":"samples_nanoseconds","display-name":"wall","aggregation":"sum","cumulative":false,"sampled":false},)"
    R"("alloc_space":{"units":"bytes","display-name":"alloc_in_new_tlab_bytes","aggregation":"sum","cumulative":false,"sampled":false},)"
    R"("alloc_objects":{"units":"objects","display-name":"alloc_in_new_tlab_objects","aggregation":"sum","cumulative":false,"sampled":false},)"
    R"("monitors-blocked":{"units":"lock_nanoseconds","display-name":"block_duration","aggregation":"sum","cumulative":false,"sampled":false},)"
    R"("exceptions":{"units":"exceptions","display-name":"exceptions","aggregation":"sum","cumulative":false,"sampled":false}})";

[[noreturn]] void failUsage(const std::string& message, const std::string& hint = "") {
    throw ClientError(ExitCode::Usage, "usage", message, hint);
}

bool hasControls(const std::string& text) {
    return std::any_of(text.begin(), text.end(),
                       [](unsigned char c) { return c < ' ' || c == 127; });
}

void checkUrl(const std::string& url) {
    const size_t scheme = startsWith(url, "https://") ? 8 : startsWith(url, "http://") ? 7 : 0;
    if (scheme == 0 || url.size() == scheme || hasControls(url) ||
        url.find_first_of(" ?#\"\\") != std::string::npos) {
        failUsage("'" + printable(url) + "' is no URL of a store: http:// or https://, host, port");
    }
    if (url.substr(scheme, url.find('/', scheme) - scheme).find('@') != std::string::npos) {
        failUsage("a URL on the command line is no place for a password",
                  "--credentials FILE, or VDK_PUSH_CREDENTIALS");
    }
}

// A line of curl's configuration.
std::string setting(const std::string& name, const std::string& value) {
    std::string line = name + " = \"";
    for (const char c : value) {
        line += (c == '"' || c == '\\' ? "\\" : "") + std::string(1, c);
    }
    return line + "\"\n";
}

std::string part(const char* name, const char* file, const std::string& content) {
    return std::string("--") + Boundary + "\r\nContent-Disposition: form-data; name=\"" + name +
           "\"; filename=\"" + file + "\"\r\nContent-Type: application/octet-stream\r\n\r\n" +
           content + "\r\n";
}

} // namespace

std::string percentEncoded(const std::string& text) {
    std::string result;
    for (const char c : text) {
        const bool isPlain = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') ||
                             (c >= 'A' && c <= 'Z') || c == '-' || c == '.' || c == '_';
        const char* digits = "0123456789ABCDEF";
        if (isPlain) {
            result += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            result += {'%', digits[byte >> 4], digits[byte & 15]};
        }
    }
    return result;
}

std::string profileName(const std::string& name, const std::vector<std::string>& tags) {
    const std::string taken = "{},=\"";
    if (name.empty() || hasControls(name) || name.find_first_of(taken) != std::string::npos) {
        failUsage("'" + printable(name, 60) + "' is no name for profiles",
                  "--name takes one without {},=\"");
    }
    std::string result;
    for (const std::string& tag : tags) {
        const size_t equals = tag.find('=');
        const std::string key = tag.substr(0, equals);
        const std::string value = equals == std::string::npos ? "" : tag.substr(equals + 1);
        const bool isKey = !key.empty() && !(key[0] >= '0' && key[0] <= '9') &&
                           std::all_of(key.begin(), key.end(),
                                       [](unsigned char c) { return isalnum(c) || c == '_'; });
        if (!isKey || value.empty() || hasControls(value) ||
            value.find_first_of(taken) != std::string::npos) {
            failUsage(
                "'" + printable(tag, 60) + "' is no tag",
                "--tag KEY=VALUE, the key of letters, digits and _, the value without {},=\"");
        }
        result += (result.empty() ? "{" : ",") + tag;
    }
    return name + result + (result.empty() ? "" : "}");
}

ProfilePush::ProfilePush(PushTarget pushTarget, int timeoutMs)
    : target(std::move(pushTarget)), timeoutMs(timeoutMs) {
    checkUrl(target.url);
    const bool isKnown = target.credentials.empty() || startsWith(target.credentials, "Bearer ") ||
                         startsWith(target.credentials, "Basic ");
    if (!isKnown || hasControls(target.credentials)) {
        failUsage("credentials are one line, `Bearer TOKEN` or `Basic USER:PASSWORD`");
    }
    try {
        if (runProgram({"curl", "--version"}, "", "", timeoutMs).code == 0) {
            return;
        }
    } catch (const ClientError& problem) {
        if (problem.code == ExitCode::Aborted) {
            throw;
        }
    }
    throw ClientError(ExitCode::CannotRun, "push.curl",
                      "profiles are sent by the system's curl, and there is none",
                      "install the package curl");
}

void ProfilePush::add(OutgoingProfile profile) {
    waitingBytes += profile.body.size();
    waiting.push_back(std::move(profile));
    while (waitingBytes > MostBytes) {
        waitingBytes -= waiting.front().body.size();
        waiting.pop_front(); // the oldest
        told.dropped++;
    }
}

std::chrono::milliseconds retryAfter(const std::string& head, time_t now) {
    constexpr long MostSeconds = 3600;
    for (const std::string& line : split(head, '\n')) {
        static const std::string Name = "retry-after:";
        if (line.size() < Name.size() ||
            strncasecmp(line.c_str(), Name.c_str(), Name.size()) != 0) {
            continue;
        }
        const size_t first = line.find_first_not_of(" \t", Name.size());
        const size_t last = line.find_last_not_of(" \t\r");
        const std::string value =
            first == std::string::npos ? "" : line.substr(first, last + 1 - first);
        struct tm time = {};
        if (const auto seconds = parseNumber(value, 0, INT32_MAX)) {
            return std::chrono::seconds(std::min<long>(*seconds, MostSeconds));
        }
        const char* end = strptime(value.c_str(), "%a, %d %b %Y %H:%M:%S GMT", &time);
        if (end && *end == 0) {
            return std::chrono::seconds(std::clamp<long>(timegm(&time) - now, 0, MostSeconds));
        }
    }
    return {};
}

// What is sent, as lines of curl's configuration and as a body.
static std::pair<std::string, std::string> requestFor(const PushTarget& target,
                                                      const OutgoingProfile& profile) {
    std::string url = target.url;
    url.erase(url.find_last_not_of('/') + 1);
    if (target.form == PushForm::Otlp) {
        return {setting("url", url + (endsWith(url, "/profiles") ? "" : OtlpPath)) +
                    setting("header", "Content-Type: application/x-protobuf") +
                    setting("header", "Content-Encoding: gzip"),
                profile.body};
    }
    return {setting("url", url + "/ingest?format=pprof&name=" + percentEncoded(profile.name) +
                               "&from=" + std::to_string(profile.fromSeconds) +
                               "&until=" + std::to_string(profile.untilSeconds)) +
                setting("header",
                        std::string("Content-Type: multipart/form-data; boundary=") + Boundary),
            part("profile", "profile.pb.gz", profile.body) +
                part("sample_type_config", "sample_type_config.json", SampleTypes) + "--" +
                Boundary + "--\r\n"};
}

// Too many, too slow, or a fault of its own: later it may take it. OTLP names the answers.
static bool mayTakeLater(PushForm form, long status) {
    return form == PushForm::Otlp
               ? status == 429 || (status >= 502 && status <= 504)
               : status == 408 || status == 425 || status == 429 || status >= 500;
}

namespace {

struct Answer {
    std::string head, body;
    long status = 0; // 0 where it is not whole
};

// curl puts the code and the length of the body behind the answer.
Answer answerOf(const std::string& output) {
    const size_t end = output.rfind('\n');
    const std::vector<std::string> words =
        split(end == std::string::npos ? "" : output.substr(end + 1), ' ');
    if (words.size() != 2) {
        return {output, "", 0};
    }
    const size_t length = size_t(parseNumber(words[1], 0, long(end)).value_or(0));
    return {output.substr(0, end - length), output.substr(end - length, length),
            parseNumber(words[0], 100, 599).value_or(0)};
}

// Other programs on the way answer with pages, or nothing.
bool hasMessage(const Answer& answer) {
    return !answer.body.empty() && strcasestr(answer.head.c_str(), "application/x-protobuf");
}

} // namespace

// ExportProfilesServiceResponse of profiles_service.proto.
void ProfilePush::notePartialSuccess(const std::string& message, std::string& why) {
    enum { PartialSuccess = 1 };
    enum { Rejected = 1, Words };
    int64_t rejected = 0;
    std::string words;
    try {
        MessageField part, field;
        for (MessageFields all(message); all.next(part);) {
            if (part.number != PartialSuccess || !part.isBytes) {
                continue;
            }
            for (MessageFields inner(part.bytes); inner.next(field);) {
                if (field.number == Rejected && !field.isBytes) {
                    rejected = std::clamp<int64_t>(int64_t(field.value), 0, INT32_MAX);
                } else if (field.number == Words && field.isBytes) {
                    words = printable(std::string(field.bytes), LongestWords);
                }
            }
        }
    } catch (const ClientError&) {
        why = "the store took the profiles, but its answer is no message of OTLP";
        return;
    }
    told.rejected += rejected;
    if (rejected > 0) {
        why = "the store rejected " + formatCount(rejected) + " of the profiles that it took";
    } else if (!words.empty()) {
        why = "the store took the profiles, and warns";
    }
    why += words.empty() ? "" : ": " + words;
}

ProfilePush::Outcome ProfilePush::send(const OutgoingProfile& profile, std::string& why) {
    auto [settings, body] = requestFor(target, profile);
    settings +=
        setting("header", "Expect:") + setting("user-agent", "vdk/" VDK_VERSION) +
        setting("data-binary", "@-") + setting("output", "-") + setting("dump-header", "-") +
        setting("write-out", "\\n%{http_code} %{size_download}") + setting("proto", "=http,https");
    if (startsWith(target.credentials, "Bearer ")) {
        settings += setting("header", "Authorization: " + target.credentials);
    } else if (!target.credentials.empty()) {
        settings += "basic\n" + setting("user", target.credentials.substr(6));
    }
    const ProgramResult result = runProgram({"curl", "-q", "-sS", "--config", "/dev/fd/3"}, body,
                                            settings, timeoutMs, MostAnswerBytes);
    const Answer answer = answerOf(result.output);
    asked = retryAfter(answer.head, time(nullptr));
    if (result.code == 0 && answer.status >= 200 && answer.status < 300) {
        if (target.form == PushForm::Otlp && hasMessage(answer)) {
            notePartialSuccess(answer.body, why);
        }
        return Outcome::Sent;
    }
    const long status = answer.status;
    why = result.timedOut    ? "the store did not answer in time"
          : result.code != 0 ? printable(result.errors.substr(0, result.errors.find('\n')), 200)
                             : "the store answered with " + std::to_string(status);
    const bool isRefused = result.code == 0 && status >= 300 && !mayTakeLater(target.form, status);
    return isRefused ? Outcome::Refused : Outcome::Failed;
}

std::string ProfilePush::sendDue(Clock::time_point now) {
    while (!waiting.empty() && now >= next) {
        std::string why;
        const Outcome outcome = send(waiting.front(), why);
        if (outcome == Outcome::Failed) {
            told.failures++;
            pause = std::min(LongestPause, pause.count() == 0 ? FirstPause : pause * 2);
            next = Clock::now() + std::max(pause, asked);
        } else {
            outcome == Outcome::Sent ? told.sent++ : told.refused++;
            const size_t size = waiting.front().body.size();
            told.sentBytes += outcome == Outcome::Sent ? int64_t(size) : 0;
            waitingBytes -= size;
            waiting.pop_front();
            pause = {};
        }
        if (why != trouble) {
            trouble = why;
            if (!why.empty()) {
                return why;
            }
        }
    }
    return "";
}

} // namespace vdk
