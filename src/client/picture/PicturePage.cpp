#include "client/picture/PicturePage.h"

#include "client/console/Errors.h"
#include "client/console/Json.h"

#include <sstream>
#include <zlib.h>

extern "C" {
extern const char ourPageMarkup[], ourPageStyle[], ourPageModel[], ourPageView[], ourPageScript[];
}

namespace vdk {

namespace {

class Packer {
public:
    explicit Packer(bool isComparison) : isComparison(isComparison) {}

    std::string pack(const StackTree& tree) {
        add(int64_t(tree.nodes.size()));
        for (size_t i = 1; i < tree.nodes.size(); i++) {
            add(int64_t(i) - tree.nodes[i].parent);
            add(tree.nodes[i].name);
        }
        add(int64_t(tree.entries.size()));
        int node = 0;
        for (const StackTree::Entry& entry : tree.entries) {
            add(entry.node - node);
            node = entry.node;
            add(entry.thread);
            add(entry.now);
            if (isComparison) {
                add(entry.base);
            }
            add(int64_t(entry.lines.size()));
            for (const LineTime& line : entry.lines) {
                add(line.line);
                add(line.ownNs);
            }
        }
        return std::move(bytes);
    }

private:
    void add(const StackTree::Sums& sums) {
        add(sums.own);
        add(sums.count);
    }

    void add(int64_t number) {
        uint64_t rest = uint64_t(std::max<int64_t>(number, 0));
        while (rest > 127) {
            bytes += char((rest & 127) | 128);
            rest >>= 7;
        }
        bytes += char(rest);
    }

    const bool isComparison;
    std::string bytes;
};

std::string deflated(const std::string& bytes) {
    uLongf size = compressBound(uLong(bytes.size()));
    std::string packed(size, 0);
    const int result = compress2(reinterpret_cast<Bytef*>(packed.data()), &size,
                                 reinterpret_cast<const Bytef*>(bytes.data()), uLong(bytes.size()),
                                 Z_DEFAULT_COMPRESSION);
    if (result != Z_OK) {
        throw ClientError(ExitCode::CannotWrite, "memory", "no memory to compress the stacks");
    }
    packed.resize(size);
    return packed;
}

std::string base64(const std::string& bytes) {
    static const char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve(bytes.size() / 3 * 4 + 4);
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t count = std::min<size_t>(bytes.size() - i, 3);
        unsigned bits = 0;
        for (size_t k = 0; k < 3; k++) {
            bits = bits << 8 | (k < count ? static_cast<unsigned char>(bytes[i + k]) : 0);
        }
        for (size_t k = 0; k < 4; k++) {
            text += k <= count ? digits[bits >> (18 - 6 * k) & 63] : '=';
        }
    }
    return text;
}

void writePair(JsonWriter& json, const std::string& first, const std::string& second) {
    json.beginArray().value(first).value(second).endArray();
}

// What tells the page about its data.
std::string headOf(const Picture& picture) {
    std::ostringstream text;
    JsonWriter json(text, false);
    json.beginObject().field("title", picture.title).field("session", picture.session);
    json.field("source", picture.source).field("notes", picture.notes);
    json.field("compared", picture.isComparison);
    json.key("names").beginArray();
    for (const Picture::Name& name : picture.names) {
        writePair(json, name.className, name.method);
    }
    json.endArray().key("threads").beginArray();
    for (const Picture::Thread& thread : picture.threads) {
        writePair(json, thread.name, thread.group);
    }
    json.endArray().key("trees").beginArray();
    for (const StackTree& tree : picture.trees) {
        json.beginObject().field("id", tree.id).field("title", tree.title);
        json.field("unit", tree.unit).field("countTitle", tree.countTitle);
        json.field("compared", picture.isComparison).field("baseFactor", tree.baseFactor);
        json.endObject();
    }
    json.endArray().endObject();
    return text.str();
}

// Neither a closing tag nor the beginning of a comment can stand in it.
void writeWithoutTags(std::ostream& out, const std::string& json) {
    for (char c : json) {
        c == '<' ? out << "\\u003c" : out << c;
    }
}

void writePart(std::ostream& out, const Picture& picture, const std::string& name) {
    if (name == "STYLE") {
        out << ourPageStyle;
    } else if (name == "SCRIPT") {
        out << ourPageModel << ourPageView << ourPageScript;
    } else if (name == "HEAD") {
        writeWithoutTags(out, headOf(picture));
    } else if (name == "DATA") {
        for (size_t i = 0; i < picture.trees.size(); i++) {
            out << "<script nonce=\"vdk\" type=\"application/octet-stream\" id=\"data" << i << "\">"
                << base64(deflated(Packer(picture.isComparison).pack(picture.trees[i])))
                << "</script>\n";
        }
    }
}

} // namespace

void writePage(std::ostream& out, const Picture& picture) {
    const std::string markup = ourPageMarkup;
    for (size_t at = 0; at < markup.size();) {
        const size_t mark = markup.find('@', at);
        const size_t end = markup.find('@', mark + 1);
        out << markup.substr(at, mark - at);
        if (mark == std::string::npos || end == std::string::npos) {
            return;
        }
        writePart(out, picture, markup.substr(mark + 1, end - mark - 1));
        at = end + 1;
    }
}

} // namespace vdk
