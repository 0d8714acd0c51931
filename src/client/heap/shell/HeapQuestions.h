// Many questions about one opened heap, each a line as `vdk heap FILE` takes it.
#pragma once

#include "client/commands/Command.h"
#include "client/heap/HeapSession.h"

#include <string>
#include <vector>

namespace vdk {

class HeapQuestions {
public:
    // Opens and analyzes the heap that the arguments name. Throws ClientError.
    HeapQuestions(Console& console, const Arguments& arguments);

    // Answers as the command would: the exit code, with everything told on the console.
    int ask(const std::vector<std::string>& words, Console& console) const;

    const HeapModel& model() const { return session.model(); }

private:
    const std::string file;
    const HeapSession::Sharing sharing;
    const HeapSession session;
};

// The words of a line: divided at blanks, but for what stands in quotes. Of a query in SQL, whose
// own quotes count, the line behind "sql" is one word. Throws ClientError for a quote without end.
std::vector<std::string> questionWords(const std::string& line);

} // namespace vdk
