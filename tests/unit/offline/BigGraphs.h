#pragma once

#include "offline/ObjectStorage.h"

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

// Heaps of any size with a known shape, for the computations whose cost must stay linear.
struct BigGraph {
    std::string name;
    std::unique_ptr<ObjectStorage> storage;
    std::vector<int> roots;
    long references = 0;
};

// Fills a storage row by row. next(row, list) puts the references of a row on the list.
template <typename Next>
BigGraph makeBigGraph(const char* name, int rows, std::vector<int> roots, Next&& next) {
    BigGraph graph;
    graph.name = name;
    graph.roots = std::move(roots);
    graph.storage = std::make_unique<ObjectStorage>(rows + 1, true);
    std::vector<int> list;
    for (int row = 1; row <= rows; row++) {
        list.clear();
        next(row, list);
        const int count = static_cast<int>(list.size());
        graph.storage->createClass(nullptr, row, 0, 16 + row % 5 * 8, count);
        for (int i = 0; i < count; i++) {
            graph.storage->setRef(row, list[i], i);
        }
        graph.references += count;
    }
    return graph;
}

inline BigGraph chainGraph(int rows) {
    return makeBigGraph("chain", rows, {1}, [rows](int row, std::vector<int>& list) {
        list.push_back(row < rows ? row + 1 : 0);
    });
}

// The first row refers to all others, and they to it.
inline BigGraph starGraph(int rows) {
    return makeBigGraph("star", rows, {1}, [rows](int row, std::vector<int>& list) {
        for (int i = 2; row == 1 && i <= rows; i++) {
            list.push_back(i);
        }
        list.push_back(1);
    });
}

// Binary tree whose rows refer to their parent too; every 64th level is a long list.
inline BigGraph parentTreeGraph(int rows) {
    return makeBigGraph("tree with parents", rows, {1}, [rows](int row, std::vector<int>& list) {
        for (int child : {2 * row, 2 * row + 1}) {
            if (row <= rows / 2 && child <= rows) {
                list.push_back(child);
            }
        }
        list.push_back(row / 2);
    });
}

// A list of 64 rows a level, each linked to its parent and its sibling: depth rows / 64.
inline BigGraph deepTreeGraph(int rows) {
    return makeBigGraph("deep tree", rows, {1}, [rows](int row, std::vector<int>& list) {
        list.push_back(row % 64 == 1 ? row - 64 : row - 1);
        list.push_back(row + 1 <= rows ? row + 1 : 0);
        list.push_back(row % 64 == 1 && row + 64 <= rows ? row + 64 : 0);
        if (list[0] < 0) {
            list[0] = 0;
        }
    });
}

// Square grid, each row linked to the right and down: all but the border are dominated by the
// corner.
inline BigGraph gridGraph(int rows) {
    int side = 1;
    while ((side + 1) * (side + 1) <= rows) {
        side++;
    }
    return makeBigGraph("grid", side * side, {1}, [side](int row, std::vector<int>& list) {
        list.push_back(row % side != 0 ? row + 1 : 0);
        list.push_back(row + side <= side * side ? row + side : 0);
    });
}

// A list whose last row and a root refer to all others: quadratic for algorithms that walk up the
// tree once for each reference.
inline BigGraph trapGraph(int rows) {
    return makeBigGraph("trap list", rows, {1}, [rows](int row, std::vector<int>& list) {
        list.push_back(row < rows ? row + 1 : 0);
        for (int i = 2; (row == 1 || row == rows) && i < rows; i++) {
            list.push_back(i);
        }
    });
}

// Many roots below one, each with a bucket to empty, after a big one: quadratic where the cost of
// emptying is that of the fullest moment.
inline BigGraph bucketTrapGraph(int rows) {
    const int third = rows / 3;
    std::vector<int> roots;
    for (int row = 1; row <= third; row++) {
        roots.push_back(row);
    }
    return makeBigGraph("bucket trap", rows, roots, [=](int row, std::vector<int>& list) {
        // Rows of the middle third hang in a list below the last root and on the other roots.
        const int partner = row + third;
        if (row <= third) {
            list.push_back(partner);
            list.push_back(row == third ? third + 1 : 0);
        } else {
            list.push_back(row < rows ? row + 1 : 0);
        }
    });
}

// Something like the heap of a program: objects of two to eight references, most to younger
// neighbours, some far away, maps with arrays, lists both ways, shared strings and classes.
inline BigGraph heapLikeGraph(int rows, unsigned seed = 1) {
    std::vector<int> roots;
    for (int i = 0; i < 64; i++) {
        roots.push_back(1 + static_cast<int>(static_cast<long>(i) * rows / 64));
    }
    auto random = std::make_shared<std::mt19937>(seed);
    const int classes = rows < 100000 ? 10 : 1000;
    return makeBigGraph("heap-like", rows, roots, [=](int row, std::vector<int>& list) {
        const unsigned dice = (*random)();
        list.push_back(1 + static_cast<int>(dice % static_cast<unsigned>(classes)));
        const auto near = [&](unsigned reach) {
            const int to = row + 1 + static_cast<int>((*random)() % reach);
            return to <= rows ? to : 0;
        };
        switch (dice >> 16 & 7) {
        case 0: // a leaf
        case 1:
            break;
        case 2: // a node of a list both ways
            list.push_back(row > 1 ? row - 1 : 0);
            list.push_back(near(1));
            list.push_back(near(3));
            break;
        case 3: // an array
            for (int i = 0; i < 12; i++) {
                list.push_back(near(40));
            }
            break;
        case 4: // shared with somebody far away
            list.push_back(1 + static_cast<int>((*random)() % static_cast<unsigned>(rows)));
            list.push_back(near(2));
            break;
        default:
            list.push_back(near(2));
            list.push_back(near(5));
        }
    });
}
