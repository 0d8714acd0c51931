#include "client/console/Json.h"

#include "client/console/Text.h"

#include <cmath>
#include <cstdio>
#include <rapidjson/ostreamwrapper.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace vdk {

namespace {

using Stream = rapidjson::OStreamWrapper;

// The two rapidjson writers share no base class: one call reaches the one that is in use.
template <typename Action>
void apply(rapidjson::Writer<Stream>* compact, rapidjson::PrettyWriter<Stream>* pretty,
           Action action) {
    if (pretty) {
        action(*pretty);
    } else {
        action(*compact);
    }
}

} // namespace

struct JsonWriter::Impl {
    explicit Impl(std::ostream& out) : stream(out) {}

    Stream stream;
    std::unique_ptr<rapidjson::Writer<Stream>> compact;
    std::unique_ptr<rapidjson::PrettyWriter<Stream>> pretty;
};

JsonWriter::JsonWriter(std::ostream& out, bool pretty) : impl(std::make_unique<Impl>(out)) {
    if (pretty) {
        impl->pretty = std::make_unique<rapidjson::PrettyWriter<Stream>>(impl->stream);
        impl->pretty->SetIndent(' ', 2);
    } else {
        impl->compact = std::make_unique<rapidjson::Writer<Stream>>(impl->stream);
    }
}

JsonWriter::~JsonWriter() = default;

JsonWriter& JsonWriter::beginObject() {
    apply(impl->compact.get(), impl->pretty.get(), [](auto& writer) { writer.StartObject(); });
    return *this;
}

JsonWriter& JsonWriter::endObject() {
    apply(impl->compact.get(), impl->pretty.get(), [](auto& writer) { writer.EndObject(); });
    return *this;
}

JsonWriter& JsonWriter::beginArray() {
    apply(impl->compact.get(), impl->pretty.get(), [](auto& writer) { writer.StartArray(); });
    return *this;
}

JsonWriter& JsonWriter::endArray() {
    apply(impl->compact.get(), impl->pretty.get(), [](auto& writer) { writer.EndArray(); });
    return *this;
}

JsonWriter& JsonWriter::key(std::string_view name) {
    apply(impl->compact.get(), impl->pretty.get(), [&](auto& writer) {
        writer.Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
    });
    return *this;
}

JsonWriter& JsonWriter::value(std::string_view text) {
    std::string valid = validUtf8(text);
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> quoting(buffer);
    quoting.String(valid.data(), static_cast<rapidjson::SizeType>(valid.size()));
    // JSON allows what moves a terminal's cursor beyond ASCII; as escapes it means the same.
    std::string safe = replaceUnprintable(buffer.GetString(), [](unsigned c) {
        char escape[8];
        snprintf(escape, sizeof(escape), "\\u%04x", c);
        return std::string(escape);
    });
    apply(impl->compact.get(), impl->pretty.get(),
          [&](auto& writer) { writer.RawValue(safe.data(), safe.size(), rapidjson::kStringType); });
    return *this;
}

JsonWriter& JsonWriter::value(int64_t number) {
    apply(impl->compact.get(), impl->pretty.get(), [&](auto& writer) { writer.Int64(number); });
    return *this;
}

JsonWriter& JsonWriter::value(double number) {
    if (!std::isfinite(number)) {
        return nullValue();
    }
    apply(impl->compact.get(), impl->pretty.get(), [&](auto& writer) { writer.Double(number); });
    return *this;
}

JsonWriter& JsonWriter::value(bool flag) {
    apply(impl->compact.get(), impl->pretty.get(), [&](auto& writer) { writer.Bool(flag); });
    return *this;
}

JsonWriter& JsonWriter::nullValue() {
    apply(impl->compact.get(), impl->pretty.get(), [](auto& writer) { writer.Null(); });
    return *this;
}

std::string compactJson(const std::string& document) {
    rapidjson::StringStream stream(document.c_str());
    rapidjson::Reader reader;
    rapidjson::StringBuffer compact;
    rapidjson::Writer<rapidjson::StringBuffer> writer(compact);
    constexpr unsigned How = rapidjson::kParseStopWhenDoneFlag | rapidjson::kParseIterativeFlag;
    if (reader.Parse<How>(stream, writer).IsError()) {
        return "null";
    }
    return {compact.GetString(), compact.GetSize()};
}

} // namespace vdk
