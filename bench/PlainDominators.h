#pragma once

#include <cstdint>
#include <vector>

// Baseline of the offline benchmark: dominators and retained sizes over plain contiguous arrays,
// nodes renumbered in depth-first order, balanced Lengauer-Tarjan, one array a field. No paging, no
// checks, no limits on memory.
class PlainDominators {
public:
    // references of node i: targets[starts[i]] up to targets[starts[i + 1]]; 0 is none.
    PlainDominators(const std::vector<int>& listStarts, const std::vector<int>& listTargets,
                    const std::vector<int>& rootNodes)
        : starts(listStarts), targets(listTargets), roots(rootNodes),
          count(static_cast<int>(listStarts.size()) - 1) {}

    void search() {
        number.assign(count, 0);
        vertex.assign(count + 1, 0);
        parent.assign(count + 1, 0);
        visited = 1;
        number[0] = 1;
        std::vector<std::pair<int, int>> stack;
        for (int root : roots) {
            if (number[root] != 0) {
                continue;
            }
            enter(root, 1);
            stack.emplace_back(root, starts[root]);
            while (!stack.empty()) {
                auto& top = stack.back();
                if (top.second == starts[top.first + 1]) {
                    stack.pop_back();
                    continue;
                }
                const int next = targets[top.second++];
                if (next != 0 && number[next] == 0) {
                    enter(next, number[top.first]);
                    stack.emplace_back(next, starts[next]);
                }
            }
        }
    }

    // Referrers by depth-first number, as numbers.
    void referrers() {
        backStarts.assign(visited + 2, 0);
        for (int node = 1; node < count; node++) {
            for (int i = starts[node]; number[node] != 0 && i < starts[node + 1]; i++) {
                backStarts[number[targets[i]] + 1] += targets[i] != 0;
            }
        }
        for (int i = 1; i <= visited + 1; i++) {
            backStarts[i] += backStarts[i - 1];
        }
        backTargets.resize(backStarts[visited + 1]);
        std::vector<int> next(backStarts.begin(), backStarts.end() - 1);
        for (int node = 1; node < count; node++) {
            for (int i = starts[node]; number[node] != 0 && i < starts[node + 1]; i++) {
                if (targets[i] != 0) {
                    backTargets[next[number[targets[i]]]++] = number[node];
                }
            }
        }
    }

    void dominators() {
        const int n = visited;
        semi.resize(n + 1);
        label.resize(n + 1);
        ancestor.assign(n + 1, 0);
        child.assign(n + 1, 0);
        size.assign(n + 1, 1);
        dominator.assign(n + 1, 0);
        std::vector<int> bucket(n + 1, 0);
        std::vector<int> nextInBucket(n + 1, 0);
        size[0] = 0;
        for (int i = 0; i <= n; i++) {
            semi[i] = label[i] = i;
        }
        std::vector<bool> isRoot(n + 1);
        for (int root : roots) {
            isRoot[number[root]] = true;
        }
        for (int w = n; w > 1; w--) {
            semi[w] = isRoot[w] ? 1 : semi[w];
            for (int i = backStarts[w]; i < backStarts[w + 1]; i++) {
                const int u = eval(backTargets[i]);
                semi[w] = semi[u] < semi[w] ? semi[u] : semi[w];
            }
            nextInBucket[w] = bucket[semi[w]];
            bucket[semi[w]] = w;
            const int p = parent[w];
            link(p, w);
            for (int v = bucket[p]; v != 0; v = nextInBucket[v]) {
                const int u = eval(v);
                dominator[v] = semi[u] < semi[v] ? u : p;
            }
            bucket[p] = 0;
        }
        for (int w = 2; w <= n; w++) {
            if (dominator[w] != semi[w]) {
                dominator[w] = dominator[dominator[w]];
            }
        }
    }

    void retained(const std::vector<int>& sizes) {
        retainedSizes.assign(visited + 1, 0);
        for (int w = visited; w > 1; w--) {
            retainedSizes[w] += sizes[vertex[w]];
            retainedSizes[dominator[w]] += retainedSizes[w];
        }
    }

    // Node that dominates `node`, 0 for the root.
    int dominatorOf(int node) const {
        return number[node] == 0 ? 0 : vertex[dominator[number[node]]];
    }

private:
    void enter(int node, int above) {
        number[node] = ++visited;
        vertex[visited] = node;
        parent[visited] = above;
    }
    int eval(int v) {
        if (ancestor[v] == 0) {
            return label[v];
        }
        compress(v);
        return semi[label[ancestor[v]]] >= semi[label[v]] ? label[v] : label[ancestor[v]];
    }
    void compress(int v) {
        if (ancestor[ancestor[v]] != 0) {
            compress(ancestor[v]);
            if (semi[label[ancestor[v]]] < semi[label[v]]) {
                label[v] = label[ancestor[v]];
            }
            ancestor[v] = ancestor[ancestor[v]];
        }
    }
    void link(int v, int w) {
        int s = w;
        while (semi[label[w]] < semi[label[child[s]]]) {
            const int c = child[s];
            if (size[s] + size[child[c]] >= 2 * size[c]) {
                ancestor[c] = s;
                child[s] = child[c];
            } else {
                size[c] = size[s];
                ancestor[s] = c;
                s = c;
            }
        }
        label[s] = label[w];
        size[v] += size[w];
        if (size[v] < 2 * size[w]) {
            std::swap(s, child[v]);
        }
        while (s != 0) {
            ancestor[s] = v;
            s = child[s];
        }
    }

    const std::vector<int>& starts;
    const std::vector<int>& targets;
    const std::vector<int>& roots;
    int count;
    int visited = 0;
    std::vector<int> number, vertex, parent, backStarts, backTargets;
    std::vector<int> semi, label, ancestor, child, size, dominator;
    std::vector<int64_t> retainedSizes;
};
