// Streaming JSON output: what is written goes to the stream at once, so that large exports need no
// memory. Texts are made valid UTF-8 on the way.
#pragma once

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>

namespace vdk {

class JsonWriter {
public:
    // With `pretty` one value a line, indented; else no blanks at all.
    JsonWriter(std::ostream& out, bool pretty);
    ~JsonWriter();

    JsonWriter& beginObject();
    JsonWriter& endObject();
    JsonWriter& beginArray();
    JsonWriter& endArray();
    JsonWriter& key(std::string_view name);

    JsonWriter& value(std::string_view text);
    JsonWriter& value(const char* text) { return value(std::string_view(text)); }
    JsonWriter& value(int64_t number);
    JsonWriter& value(int number) { return value(int64_t(number)); }
    JsonWriter& value(size_t number) { return value(int64_t(number)); }
    JsonWriter& value(double number);
    JsonWriter& value(bool flag);
    JsonWriter& nullValue();

    template <typename T>
    JsonWriter& field(std::string_view name, const T& content) {
        key(name);
        return value(content);
    }

private:
    struct Impl;
    std::unique_ptr<Impl> impl;
};

// The document without blanks, the first of several; "null" if the text is none.
std::string compactJson(const std::string& document);

} // namespace vdk
