#include "client/picture/PictureSvg.h"

#include "client/console/Console.h"
#include "client/console/Text.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace vdk {

namespace {

// Lengths are in the units of the picture, at its width pixels.
constexpr int Width = 1000, RowHeight = 17, TitleHeight = 26, Margin = 8;
// A character takes no more; what fits less than three has no text.
constexpr double CharacterWidth = 6.4;
constexpr int LeastCharacters = 3;

std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : printable(text)) {
        result += c == '<'   ? "&lt;"
                  : c == '>' ? "&gt;"
                  : c == '&' ? "&amp;"
                  : c == '"' ? "&quot;"
                             : std::string(1, c);
    }
    return result;
}

// With one digit behind the point, whatever the locale.
std::string decimal(double value) {
    const long long tenths = std::llround(value * 10);
    return std::to_string(tenths / 10) +
           (tenths % 10 == 0 ? "" : "." + std::to_string(tenths % 10));
}

// Classes of one package are much alike; those of the JDK are green.
std::string colorOf(const std::string& className) {
    uint32_t hash = 2166136261u;
    for (const unsigned char c : className) {
        hash = (hash ^ c) * 16777619u;
    }
    static const std::array<const char*, 4> platform = {"java.", "javax.", "jdk.", "sun."};
    const bool isPlatform = std::any_of(platform.begin(), platform.end(), [&](const char* prefix) {
        return startsWith(className, prefix);
    });
    const auto part = [&](int shift, unsigned from, unsigned range) {
        return std::to_string(from + (hash >> shift) % range);
    };
    return isPlatform
               ? "rgb(" + part(0, 150, 40) + "," + part(8, 205, 25) + "," + part(16, 150, 40) + ")"
               : "rgb(" + part(0, 235, 20) + "," + part(8, 150, 70) + "," + part(16, 90, 50) + ")";
}

class SvgWriter {
public:
    SvgWriter(const Picture& picture, const SvgLimits& limits) : picture(picture), limits(limits) {}

    void write(std::ostream& out) {
        y = Margin;
        for (const StackTree& tree : picture.trees) {
            add(tree);
        }
        out << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " << Width << " " << y
            << "\" font-family=\"monospace\" font-size=\"10.5\">\n<rect width=\"" << Width
            << "\" height=\"" << y << "\" fill=\"#fff\"/>\n"
            << body << "</svg>\n";
    }

private:
    void add(const StackTree& tree) {
        sums = sumsByNode(tree);
        children.assign(tree.nodes.size(), {});
        whole = std::max<int64_t>(tree.total(Side::Now).own, 1);
        for (size_t i = 1; i < tree.nodes.size(); i++) {
            if (double(sums[i].now.total) * 100 >= limits.minPercent * double(whole) &&
                sums[i].now.total > 0) {
                children[size_t(tree.nodes[i].parent)].push_back(int(i));
            }
        }
        for (std::vector<int>& siblings : children) {
            std::sort(siblings.begin(), siblings.end(), [&](int a, int b) {
                return nameOf(tree, a).full() < nameOf(tree, b).full();
            });
        }
        const std::string amount = formatOf(tree)(tree.total(Side::Now).own);
        body += "<text x=\"" + std::to_string(Margin) + "\" y=\"" + std::to_string(y + 14) +
                "\" font-size=\"13\" font-weight=\"bold\">" +
                escaped(picture.title + ": " + tree.title + ", " + amount) + "</text>\n";
        y += TitleHeight;
        y += draw(tree) * RowHeight + Margin;
    }

    const Picture::Name& nameOf(const StackTree& tree, int node) const {
        return picture.names[size_t(tree.nodes[size_t(node)].name)];
    }

    static std::string (*formatOf(const StackTree& tree))(int64_t) {
        return tree.unit == "ns" ? formatNs : tree.unit == "bytes" ? formatBytes : formatCount;
    }

    // Level by level, as stacks may be deep; how many there are.
    int draw(const StackTree& tree) {
        struct Place {
            int node;
            double x;
        };
        const double scale = double(Width - 2 * Margin) / double(whole);
        std::vector<Place> level = {{0, Margin}};
        for (int depth = 0; depth < limits.depth; depth++) {
            std::vector<Place> next;
            for (const Place& parent : level) {
                double x = parent.x;
                for (int child : children[size_t(parent.node)]) {
                    drawFrame(tree, child, x, y + depth * RowHeight, scale);
                    next.push_back({child, x});
                    x += double(sums[size_t(child)].now.total) * scale;
                }
            }
            if (next.empty()) {
                return depth;
            }
            level = std::move(next);
        }
        return limits.depth;
    }

    void drawFrame(const StackTree& tree, int node, double x, int top, double scale) {
        const Picture::Name& name = nameOf(tree, node);
        const int64_t total = sums[size_t(node)].now.total;
        const double width = double(total) * scale;
        const std::string left = decimal(x), full = escaped(name.full());
        body += "<g><title>" + full + ", " + formatOf(tree)(total) + ", " +
                formatPercent(percentOf(total, whole)) + " %</title><rect x=\"" + left + "\" y=\"" +
                std::to_string(top) + "\" width=\"" + decimal(std::max(width - 0.5, 0.2)) +
                "\" height=\"" + std::to_string(RowHeight - 1) + "\" fill=\"" +
                colorOf(name.className) + "\"/>";
        const auto room = int((width - 6) / CharacterWidth);
        if (room >= LeastCharacters) {
            const std::string text = name.full();
            const std::string simple =
                text.substr(std::min(text.size(), name.className.rfind('.') + 1));
            body += "<text x=\"" + decimal(x + 3) + "\" y=\"" + std::to_string(top + 12) + "\">" +
                    escaped(fitted(printable(simple), size_t(room))) + "</text>";
        }
        body += "</g>\n";
    }

    const Picture& picture;
    const SvgLimits& limits;
    std::vector<NameSums> sums;
    std::vector<std::vector<int>> children;
    int64_t whole = 1;
    int y = 0;
    std::string body;
};

} // namespace

void writeSvg(std::ostream& out, const Picture& picture, const SvgLimits& limits) {
    SvgWriter(picture, limits).write(out);
}

} // namespace vdk
