#include "client/watch/WatchClient.h"

#include "client/agent/Protocol.h"
#include "client/console/Errors.h"
#include "client/console/Text.h"

namespace vdk {

using namespace protocol;

namespace {

// The agent sends fewer; more are none of an agent.
constexpr int32_t MostItems = 1 << 16;

int32_t readCount(Session& session, int32_t least) {
    const int32_t count = session.readInt();
    if (count < least || count > MostItems) {
        throw ClientError(ExitCode::BadInput, "agent.data",
                          std::string(INCORRECT_DATA_FROM_AGENT_MESSAGE) + "\nA list of " +
                              std::to_string(count));
    }
    return count;
}

std::vector<std::string> readTexts(Session& session, int32_t count) {
    std::vector<std::string> texts;
    for (int32_t i = 0; i < count; i++) {
        texts.push_back(session.readStringNotNull());
    }
    return texts;
}

WatchedCall readCall(Session& session) {
    WatchedCall call;
    call.number = session.readLong();
    call.endMs = session.readLong();
    call.durationNs = session.readLong();
    call.threadId = session.readLong();
    call.thread = session.readStringNotNull();
    call.className = session.readStringNotNull();
    call.objectClass = session.readString();
    call.method = session.readStringNotNull();
    call.signature = session.readStringNotNull();
    call.threw = session.readInt() != 0;
    call.self = session.readString();
    const int32_t arguments = readCount(session, -1);
    if (arguments >= 0) {
        call.arguments = readTexts(session, arguments);
    }
    call.result = session.readString();
    call.exception = session.readString();
    call.stack = readTexts(session, readCount(session, 0));
    return call;
}

MethodSums readSums(Session& session) {
    MethodSums sums;
    sums.className = session.readStringNotNull();
    sums.method = session.readStringNotNull();
    sums.signature = session.readStringNotNull();
    sums.calls = session.readLong();
    sums.errors = session.readLong();
    sums.totalNs = session.readLong();
    sums.shortestNs = session.readLong();
    sums.longestNs = session.readLong();
    for (int32_t left = readCount(session, 0); left > 0; left--) {
        const int32_t bucket = session.readInt();
        const int64_t calls = session.readLong();
        if (bucket < 0 || bucket > LastDurationBucket) {
            throw ClientError(ExitCode::BadInput, "agent.data",
                              std::string(INCORRECT_DATA_FROM_AGENT_MESSAGE) + "\nBucket " +
                                  std::to_string(bucket));
        }
        sums.buckets[bucket] = calls;
    }
    return sums;
}

// What the agent found in the user's own texts is a mistake on the command line.
void failInTexts(const ClientError& e) {
    const std::string text = e.what();
    if (e.word != "agent.error") {
        return;
    }
    if (text.find("pattern") != std::string::npos && text.find("invalid") != std::string::npos) {
        throw ClientError(ExitCode::Usage, "watch.pattern", text);
    }
    for (const std::string option : {"where", "masks"}) {
        if (startsWith(text, option + ", ")) {
            throw ClientError(ExitCode::Usage, "watch." + option, "--" + text);
        }
    }
}

} // namespace

int WatchClient::start(const WatchRequest& request) {
    PacketWriter packet(PACKET_WATCH_START);
    packet.writeString(request.pattern).writeString(request.instanceOf);
    packet.writeInt(request.flags).writeLong(request.shortestNs).writeLong(request.mostEvents);
    packet.writeInt(request.room).writeInt(request.stackDepth).writeInt(LeaseMs);
    packet.writeString(request.where).writeString(request.masks);
    try {
        // Classes are rewritten meanwhile.
        Request started(client.address(), client.timeout(), AgentClient::LongTimeoutMs, packet);
        watch = started.session.readInt();
        return started.session.readInt();
    } catch (const ClientError& e) {
        failInTexts(e);
        throw;
    }
}

WatchNews WatchClient::read(int mostEvents) {
    PacketWriter packet(PACKET_WATCH_READ);
    packet.writeInt(watch).writeInt(mostEvents);
    Request request(client.address(), client.timeout(), client.timeout(), packet);
    request.connection.expectMuch();
    Session& session = request.session;
    WatchNews news;
    news.totals.calls = session.readLong();
    news.totals.matched = session.readLong();
    news.totals.dropped = session.readLong();
    news.totals.failed = session.readLong();
    news.complete = session.readInt() != 0;
    news.waiting = session.readInt();
    for (int32_t left = readCount(session, 0); left > 0; left--) {
        news.calls.push_back(readCall(session));
    }
    for (int32_t left = readCount(session, 0); left > 0; left--) {
        news.methods.push_back(readSums(session));
    }
    return news;
}

void WatchClient::stop() {
    PacketWriter packet(PACKET_WATCH_STOP);
    packet.writeInt(watch);
    Request(client.address(), client.timeout(), AgentClient::LongTimeoutMs, packet);
}

} // namespace vdk
