// `vdk heap FILE server`: a question in JSON a line, and an answer a line.
#include "client/console/Signals.h"
#include "client/console/Text.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"
#include "client/heap/shell/HeapQuestions.h"

#include <algorithm>
#include <iostream>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <sstream>

namespace vdk {

namespace {

constexpr size_t MostCharacters = 1000000;
constexpr int MostDepth = 100;

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

void writeCompact(Writer& writer, const std::string& document) {
    const std::string compact = compactJson(document);
    writer.RawValue(compact.data(), compact.size(), rapidjson::kObjectType);
}

// The words of a request; throws ClientError for what is none.
std::vector<std::string> wordsOf(const rapidjson::Document& request) {
    if (!request.IsObject() || !request.HasMember("words") || !request["words"].IsArray()) {
        throw ClientError(ExitCode::Usage, "usage",
                          R"(a question is {"id":1,"words":["histogram","java.*"]})");
    }
    std::vector<std::string> words;
    for (const auto& word : request["words"].GetArray()) {
        if (!word.IsString()) {
            throw ClientError(ExitCode::Usage, "usage", "words are texts");
        }
        words.emplace_back(word.GetString(), word.GetStringLength());
    }
    words.emplace_back("--json");
    return words;
}

// Writing a document back goes as deep as it is.
bool isTooDeep(const std::string& line) {
    int depth = 0;
    return std::any_of(line.begin(), line.end(), [&](char c) {
        depth += c == '[' || c == '{' ? 1 : c == ']' || c == '}' ? -1 : 0;
        return depth > MostDepth;
    });
}

// The next line, at most MostCharacters and one of it; the rest of a longer one is read and
// dropped.
bool readLine(std::istream& in, std::string& line) {
    line.clear();
    std::streambuf& buffer = *in.rdbuf();
    for (int c = buffer.sbumpc(); c != std::char_traits<char>::eof(); c = buffer.sbumpc()) {
        if (c == '\n') {
            return true;
        }
        if (line.size() <= MostCharacters) {
            line += char(c);
        }
    }
    return !line.empty();
}

std::string answerTo(const std::string& line, const HeapQuestions& questions) {
    std::ostringstream out, err;
    Console console(out, err, false, false);
    console.json = true;
    const bool isTooLong = line.size() > MostCharacters;
    const bool isDeep = isTooDeep(line);
    rapidjson::Document request;
    if (!isTooLong && !isDeep) {
        request.Parse(line.c_str(), line.size());
    }
    int code = int(ExitCode::Usage);
    try {
        if (isTooLong) {
            throw ClientError(ExitCode::Usage, "usage",
                              "the line has more than " + formatCount(MostCharacters) + " bytes");
        }
        if (isDeep) {
            throw ClientError(ExitCode::Usage, "usage", "the line nests too deep");
        }
        if (request.HasParseError()) {
            throw ClientError(ExitCode::Usage, "usage", "the line is no JSON");
        }
        code = questions.ask(wordsOf(request), console);
    } catch (const ClientError& e) {
        console.error(e);
    }
    rapidjson::StringBuffer buffer;
    Writer writer(buffer);
    writer.StartObject();
    writer.Key("id");
    const bool hasId = !request.HasParseError() && request.IsObject() && request.HasMember("id");
    hasId ? request["id"].Accept(writer) : writer.Null();
    writer.Key("code");
    writer.Int(code);
    writer.Key("answer");
    writeCompact(writer, out.str());
    if (!err.str().empty()) {
        writer.Key("error");
        writeCompact(writer, err.str());
    }
    writer.EndObject();
    return buffer.GetString();
}

} // namespace

int reportHeapServer(Console& console, const Arguments& arguments) {
    heapArguments(arguments, 0, 0, "no arguments");
    const HeapQuestions questions(console, arguments);
    std::string line;
    while (!isInterrupted() && readLine(std::cin, line)) {
        if (line.find_first_not_of(" \t\r") != std::string::npos) {
            console.out << answerTo(line, questions) << "\n";
            console.out.flush();
        }
    }
    return 0;
}

} // namespace vdk
